// Telegrams for the far sides of the benchmarks, made without the library.
#ifndef QUORVEL_BENCH_TELEGRAM_H
#define QUORVEL_BENCH_TELEGRAM_H

#include <string>

/// @return the bytes for the wire, check byte included
inline std::string Telegram(unsigned nCmdCode, unsigned nID, const std::string& strData)
{
    const std::size_t nLen = strData.size() + 5;
    std::string strBytes;
    for (const std::size_t n : {nLen, std::size_t{nCmdCode}, std::size_t{nID}})
        strBytes.append({static_cast<char>(n & 0xFF), static_cast<char>(n >> 8)});
    strBytes += strData;
    char cCheck = 0;
    for (std::size_t i = 2; i < strBytes.size(); ++i)
        cCheck = static_cast<char>(cCheck ^ strBytes[i]);
    return strBytes + cCheck;
}

#endif
