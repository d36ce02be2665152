#include "QuorvelMsg.h"

#include "ByteOrder.h"

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

namespace
{

constexpr unsigned short OVERHEAD = 5; // what the length field counts beside the data
constexpr unsigned short SHORTEST = 7; // bytes of a telegram without data

// Four vectors at a time, each with a sum of its own: telegrams of 64 KiB pass here twice in an exchange.
unsigned int XorOfBytes(const std::string& strBytes)
{
    using CVector = std::uint64_t __attribute__((vector_size(16)));
    const char* p = strBytes.data();
    const char* const pEnd = p + strBytes.size();
    const auto fnLoad = [&p](std::size_t i) {
        CVector oVector;
        std::memcpy(&oVector, p + i * sizeof oVector, sizeof oVector);
        return oVector;
    };
    CVector o0 = {};
    CVector o1 = {};
    CVector o2 = {};
    CVector o3 = {};
    for (; pEnd - p >= 64; p += 64) {
        o0 ^= fnLoad(0);
        o1 ^= fnLoad(1);
        o2 ^= fnLoad(2);
        o3 ^= fnLoad(3);
    }
    const CVector oSum = o0 ^ o1 ^ o2 ^ o3;
    std::uint64_t nSum = oSum[0] ^ oSum[1];
    for (const unsigned int nHalf : {32U, 16U, 8U})
        nSum ^= nSum >> nHalf;
    for (; p != pEnd; ++p)
        nSum ^= static_cast<unsigned char>(*p);
    return nSum & 0xFF;
}

template<class T>
std::string Encode(T nValue)
{
    auto nRest = static_cast<std::make_unsigned_t<T>>(nValue);
    std::string strBytes(sizeof(T), '\0');
    for (char& c : strBytes) {
        c = static_cast<char>(nRest & 0xFF);
        nRest = static_cast<decltype(nRest)>(nRest >> 8);
    }
    return strBytes;
}

} // namespace

CQuorvelMsg::CQuorvelMsg() : CQuorvelMsg(0, 0, nullptr, 0) {}

// The virtual ComputeCRC called while constructing is this class's own: a derived class recomputes by
// SetMessage.
CQuorvelMsg::CQuorvelMsg(unsigned short nCmdCode, short nMsgID, const char* pData, unsigned short nDataLen)
{
    CQuorvelMsg::SetMessage(nCmdCode, nMsgID, pData, nDataLen);
}

CQuorvelMsg::CQuorvelMsg(unsigned short nCmdCode, short nMsgID, std::string&& strData)
    : m_strData(std::move(strData))
{
    Seal(nCmdCode, nMsgID);
}

CQuorvelMsg::CQuorvelMsg(const char* pBuffer, unsigned short nBufferLen)
{
    CQuorvelMsg::SetMessage(pBuffer, nBufferLen);
}

CQuorvelMsg::~CQuorvelMsg() = default;

bool CQuorvelMsg::IsValid() const
{
    return m_nLength == static_cast<unsigned short>(m_strData.size() + OVERHEAD);
}

unsigned char CQuorvelMsg::ComputeCRC() const
{
    const auto nID = static_cast<unsigned short>(m_nMsgID);
    unsigned int nCRC = m_nCmdCode ^ (m_nCmdCode >> 8U) ^ nID ^ (nID >> 8U);
    return static_cast<unsigned char>(nCRC ^ XorOfBytes(m_strData));
}

void CQuorvelMsg::SetMessage(unsigned short nCmdCode, short nMsgID, const char* pData,
                             unsigned short nDataLen)
{
    if (pData != nullptr)
        m_strData.assign(pData, nDataLen);
    else
        m_strData.clear();
    Seal(nCmdCode, nMsgID);
}

void CQuorvelMsg::Seal(unsigned short nCmdCode, short nMsgID)
{
    m_nCmdCode = nCmdCode;
    m_nMsgID = nMsgID;
    m_nLength = static_cast<unsigned short>(m_strData.size() + OVERHEAD);
    m_nCRC = ComputeCRC(); // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): own one while constructing
}

bool CQuorvelMsg::SetMessage(const char* pBuffer, unsigned short nBufferLen)
{
    if (pBuffer == nullptr || nBufferLen < SHORTEST) {
        SetMessage(0, 0, nullptr, 0);
        return false;
    }
    m_nLength = Decode<unsigned short>(pBuffer);
    m_nCmdCode = Decode<unsigned short>(pBuffer + 2);
    m_nMsgID = Decode<short>(pBuffer + 4);
    const std::size_t nDataLen = nBufferLen - SHORTEST;
    if (m_strData.size() == nDataLen)
        std::memcpy(m_strData.data(), pBuffer + 6, nDataLen); // the usual case in a stream of like telegrams
    else
        m_strData.assign(pBuffer + 6, nDataLen);
    m_nCRC = static_cast<unsigned char>(pBuffer[nBufferLen - 1]);
    return IsValid(); // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): own one while constructing
}

std::string CQuorvelMsg::GetHeader() const
{
    return ToChar(m_nLength) + ToChar(m_nCmdCode) + ToChar(m_nMsgID);
}

std::string CQuorvelMsg::GetMessageData() const
{
    std::string strBytes;
    strBytes.reserve(m_strData.size() + SHORTEST);
    strBytes += GetHeader();
    strBytes += m_strData;
    strBytes += static_cast<char>(m_nCRC);
    return strBytes;
}

// clang-format off
std::string CQuorvelMsg::ToChar(short nValue) { return Encode(nValue); }
std::string CQuorvelMsg::ToChar(unsigned short nValue) { return Encode(nValue); }
std::string CQuorvelMsg::ToChar(int nValue) { return Encode(nValue); }
std::string CQuorvelMsg::ToChar(unsigned int nValue) { return Encode(nValue); }
std::string CQuorvelMsg::ToChar(long long nValue) { return Encode(nValue); }
std::string CQuorvelMsg::ToChar(unsigned long long nValue) { return Encode(nValue); }

void CQuorvelMsg::FromChar(short& nValue, const char* pData) { nValue = Decode<short>(pData); }
void CQuorvelMsg::FromChar(unsigned short& nValue, const char* pData) { nValue = Decode<unsigned short>(pData); }
void CQuorvelMsg::FromChar(int& nValue, const char* pData) { nValue = Decode<int>(pData); }
void CQuorvelMsg::FromChar(unsigned int& nValue, const char* pData) { nValue = Decode<unsigned int>(pData); }
void CQuorvelMsg::FromChar(long long& nValue, const char* pData) { nValue = Decode<long long>(pData); }
void CQuorvelMsg::FromChar(unsigned long long& nValue, const char* pData) { nValue = Decode<unsigned long long>(pData); }
// clang-format on

unsigned int swablong(unsigned int nValue)
{
    return (nValue << 24) | ((nValue & 0xFF00) << 8) | ((nValue >> 8) & 0xFF00) | (nValue >> 24);
}
