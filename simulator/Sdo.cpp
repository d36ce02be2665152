#include "Sdo.h"

#include "SimTelegram.h"

#include <algorithm>

unsigned SdoCrc(const std::string& strData)
{
    unsigned nCrc = 0;
    for (const char c : strData) {
        nCrc ^= static_cast<unsigned>(static_cast<unsigned char>(c)) << 8;
        for (int i = 0; i < 8; i++)
            nCrc = ((nCrc & 0x8000) != 0 ? nCrc << 1 ^ 0x1021 : nCrc << 1) & 0xFFFF;
    }
    return nCrc;
}

std::string SdoFrame(unsigned nCommand, unsigned nIndex, unsigned nSubindex, unsigned nValue)
{
    std::string strFrame(1, static_cast<char>(nCommand));
    SimPut16(strFrame, nIndex);
    strFrame += static_cast<char>(nSubindex);
    SimPut32(strFrame, nValue);
    return strFrame;
}

std::string SdoAbort(unsigned nIndex, unsigned nSubindex, unsigned nCode)
{
    return SdoFrame(0x80, nIndex, nSubindex, nCode);
}

std::string SdoSegment(unsigned nCommand, const std::string& strData, std::size_t nPos)
{
    std::string strFrame = static_cast<char>(nCommand) + strData.substr(nPos, 7);
    strFrame.resize(8);
    return strFrame;
}

unsigned SdoByte(const std::string& strFrame, std::size_t nPos)
{
    return static_cast<unsigned char>(strFrame[nPos]);
}

void CSdoBlockSender::Start(const std::string& strData)
{
    *this = {};
    m_strData = strData;
}

bool CSdoBlockSender::SetBlockSize(unsigned nSegments)
{
    m_nBlockSize = nSegments;
    return nSegments >= 1 && nSegments <= nSdoMaxBlock;
}

void CSdoBlockSender::Send(std::vector<std::string>& astrFrames)
{
    m_nSent = std::min<std::size_t>(m_nBlockSize, Total() - m_nFirst);
    for (std::size_t i = 0; i < m_nSent; i++) {
        const bool bLast = m_nFirst + i + 1 == Total();
        astrFrames.push_back(
            SdoSegment(static_cast<unsigned>(i + 1) | (bLast ? 0x80U : 0), m_strData, 7 * (m_nFirst + i)));
    }
}

bool CSdoBlockSender::Acknowledge(unsigned nSegments)
{
    if (nSegments > m_nSent)
        return false;
    m_nFirst += nSegments;
    m_nSent = 0;
    return true;
}

std::string CSdoBlockSender::End(unsigned nCommand) const
{
    std::string strCrc;
    SimPut16(strCrc, SdoCrc(m_strData));
    return SdoSegment(nCommand | static_cast<unsigned>(7 * Total() - m_strData.size()) << 2, strCrc);
}

void CSdoBlockReceiver::Start(std::optional<std::size_t> oSize)
{
    *this = {};
    m_oSize = oSize;
}

bool CSdoBlockReceiver::Receive(const std::string& strFrame)
{
    const unsigned nSequence = SdoByte(strFrame, 0) & 0x7F;
    const bool bLast = (SdoByte(strFrame, 0) & 0x80) != 0;
    if (nSequence == m_nSequence + 1 && !IsTooLong()) {
        m_nSequence++;
        m_strData.append(strFrame, 1, 7);
        m_bFinished = bLast;
    }
    return bLast || nSequence == nSdoMaxBlock;
}

unsigned CSdoBlockReceiver::Acknowledge()
{
    const unsigned nSequence = m_nSequence;
    m_nSequence = 0;
    return nSequence;
}

unsigned CSdoBlockReceiver::End(const std::string& strFrame, bool bCrc)
{
    // The last segment holds at least one byte, unless the object is empty.
    m_strData.resize(m_strData.size() - (SdoByte(strFrame, 0) >> 2 & 7));
    if (bCrc && SdoCrc(m_strData) != SimGet16(strFrame, 1))
        return eSdoCrc;
    if (m_strData.size() > nSdoMaxData)
        return eSdoMemory;
    if (m_oSize && *m_oSize != m_strData.size())
        return eSdoLength;
    return 0;
}
