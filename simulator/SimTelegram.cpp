#include "SimTelegram.h"

namespace
{

unsigned char CheckByte(const char* pData, std::size_t nLen)
{
    unsigned char nCheck = 0;
    for (std::size_t i = 0; i < nLen; i++)
        nCheck = static_cast<unsigned char>(nCheck ^ static_cast<unsigned char>(pData[i]));
    return nCheck;
}

} // namespace

void SimPut16(std::string& strData, unsigned nValue)
{
    strData += static_cast<char>(nValue & 0xFF);
    strData += static_cast<char>(nValue >> 8 & 0xFF);
}

void SimPut32(std::string& strData, unsigned nValue)
{
    SimPut16(strData, nValue & 0xFFFF);
    SimPut16(strData, nValue >> 16);
}

unsigned SimGet16(const std::string& strData, std::size_t nPos)
{
    return static_cast<unsigned char>(strData[nPos]) +
           (static_cast<unsigned>(static_cast<unsigned char>(strData[nPos + 1])) << 8);
}

unsigned SimGet32(const std::string& strData, std::size_t nPos)
{
    return SimGet16(strData, nPos) + (SimGet16(strData, nPos + 2) << 16);
}

std::string SSimTelegram::ToBytes() const
{
    std::string strBytes;
    strBytes.reserve(strData.size() + 7);
    SimPut16(strBytes, static_cast<unsigned>(strData.size() + 5));
    SimPut16(strBytes, nCmdCode);
    SimPut16(strBytes, static_cast<unsigned short>(nID));
    strBytes += strData;
    strBytes += static_cast<char>(CheckByte(strBytes.data() + 2, strBytes.size() - 2));
    return strBytes;
}

void CSimTelegramCutter::Append(const char* pData, std::size_t nLen)
{
    m_strBuffer.erase(0, m_nRead);
    m_nRead = 0;
    m_strBuffer.append(pData, nLen);
}

CSimTelegramCutter::EResult CSimTelegramCutter::Next(SSimTelegram& oTelegram, std::string& strProblem)
{
    if (m_strBuffer.size() - m_nRead < 2)
        return EResult::eNone;
    const std::size_t nLength = SimGet16(m_strBuffer, m_nRead);
    if (m_strBuffer.size() - m_nRead < nLength + 2)
        return EResult::eNone;
    const std::size_t nStart = m_nRead + 2;
    m_nRead = nStart + nLength;
    if (nLength < 5) {
        strProblem = "length field " + std::to_string(nLength) + " is below 5";
        return EResult::eDamaged;
    }
    if (nLength + 2 > SSimTelegram::nMaxBytes) {
        strProblem = "length field " + std::to_string(nLength) + " makes more than 65535 bytes";
        return EResult::eDamaged;
    }
    // The check byte makes the XOR over all bytes zero.
    if (CheckByte(m_strBuffer.data() + nStart, nLength) != 0) {
        strProblem = "wrong check byte";
        return EResult::eDamaged;
    }
    oTelegram.nCmdCode = static_cast<unsigned short>(SimGet16(m_strBuffer, nStart));
    oTelegram.nID = static_cast<short>(SimGet16(m_strBuffer, nStart + 2));
    oTelegram.strData = m_strBuffer.substr(nStart + 4, nLength - 5);
    return EResult::eTelegram;
}
