// Little-endian bytes to a number, inline: every received frame passes here several times.
#ifndef QUORVEL_BYTE_ORDER_H
#define QUORVEL_BYTE_ORDER_H

#include <algorithm>
#include <bit>
#include <cstring>

template<class T>
T Decode(const char* pData)
{
    T nValue;
    std::memcpy(&nValue, pData, sizeof nValue);
    if constexpr (std::endian::native == std::endian::big) {
        auto* const pBytes = reinterpret_cast<char*>(&nValue);
        std::reverse(pBytes, pBytes + sizeof nValue);
    }
    return nValue;
}

#endif
