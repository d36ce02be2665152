#include "SdoClient.h"

#include "SimTelegram.h"

std::string CSdoClient::Read()
{
    m_eState = EState::eRead;
    return SdoFrame(0x40, m_nIndex, m_nSubindex);
}

std::string CSdoClient::Write(unsigned nValue, unsigned nBytes)
{
    m_eState = EState::eWrite;
    return SdoFrame(nBytes == 0 ? 0x22 : 0x23 | (4 - nBytes) << 2, m_nIndex, m_nSubindex, nValue);
}

std::string CSdoClient::ReadBlocks()
{
    m_eState = EState::eReadBlocks;
    return SdoFrame(0xA4, m_nIndex, m_nSubindex, nSdoMaxBlock);
}

std::string CSdoClient::WriteBlocks(const std::string& strData)
{
    m_eState = EState::eWriteBlocks;
    m_oSender.Start(strData);
    return SdoFrame(0xC6, m_nIndex, m_nSubindex, static_cast<unsigned>(strData.size()));
}

std::string CSdoClient::GiveUp(unsigned nCode)
{
    m_eState = EState::eFinished;
    m_nAbort = nCode;
    return SdoAbort(m_nIndex, m_nSubindex, nCode);
}

std::vector<std::string> CSdoClient::Handle(const std::string& strFrame)
{
    std::vector<std::string> astrNext;
    if (strFrame.size() != 8 || IsFinished())
        return astrNext;
    if (SdoByte(strFrame, 0) == 0x80) {
        m_nAbort = SimGet32(strFrame, 4);
        m_eState = EState::eFinished;
    } else {
        Step(strFrame, astrNext);
    }
    return astrNext;
}

void CSdoClient::Step(const std::string& strFrame, std::vector<std::string>& astrNext)
{
    const unsigned nCommand = SdoByte(strFrame, 0);
    switch (m_eState) {
    case EState::eRead:
        if (nCommand >> 5 != 2)
            return Fail(eSdoUnknownCommand, astrNext);
        if ((nCommand & 2) != 0) {
            m_strData = strFrame.substr(4, (nCommand & 1) != 0 ? 4 - (nCommand >> 2 & 3) : 4);
            m_eState = EState::eFinished;
        } else {
            m_eState = EState::eReadSegments;
            astrNext.push_back(SdoSegment(0x60, {}));
        }
        break;
    case EState::eReadSegments:
        return TakeSegment(strFrame, astrNext);
    case EState::eWrite:
        if (nCommand != 0x60)
            return Fail(eSdoUnknownCommand, astrNext);
        m_strData = strFrame.substr(4);
        m_eState = EState::eFinished;
        break;
    case EState::eReadBlocks: {
        if ((nCommand & 0xF9) != 0xC0)
            return Fail(eSdoUnknownCommand, astrNext);
        m_bCrc = (nCommand & 4) != 0;
        std::optional<std::size_t> oSize;
        if ((nCommand & 2) != 0)
            oSize = SimGet32(strFrame, 4);
        if (oSize && *oSize > nSdoMaxData)
            return Fail(eSdoMemory, astrNext);
        m_oReceiver.Start(oSize);
        m_eState = EState::eReadBlock;
        astrNext.push_back(SdoSegment(0xA3, {}));
        break;
    }
    case EState::eReadBlock:
        if ((nCommand & 0x7F) == 0)
            return Fail(eSdoSequence, astrNext);
        if (m_oReceiver.Receive(strFrame)) {
            astrNext.push_back(SdoSegment(0xA2, {static_cast<char>(m_oReceiver.Acknowledge()), '\x7F'}));
            if (m_oReceiver.IsFinished())
                m_eState = EState::eReadBlocksEnd;
        }
        if (m_oReceiver.IsTooLong())
            Fail(eSdoMemory, astrNext);
        break;
    case EState::eReadBlocksEnd:
        if ((nCommand & 0xE3) != 0xC1)
            return Fail(eSdoUnknownCommand, astrNext);
        if (const unsigned nAbort = m_oReceiver.End(strFrame, m_bCrc); nAbort != 0)
            return Fail(nAbort, astrNext);
        m_strData = m_oReceiver.GetData();
        m_eState = EState::eFinished;
        astrNext.push_back(SdoSegment(0xA1, {}));
        break;
    case EState::eWriteBlocks:
    case EState::eWriteBlock:
    case EState::eWriteBlocksEnd:
        return TakeBlockAnswer(strFrame, astrNext);
    case EState::eFinished:
        break;
    }
}

void CSdoClient::TakeSegment(const std::string& strFrame, std::vector<std::string>& astrNext)
{
    const unsigned nCommand = SdoByte(strFrame, 0);
    if (nCommand >> 5 != 0)
        return Fail(eSdoUnknownCommand, astrNext);
    if ((nCommand & 0x10) != m_nToggle)
        return Fail(eSdoToggle, astrNext);
    m_nToggle ^= 0x10;
    m_strData.append(strFrame, 1, 7 - (nCommand >> 1 & 7));
    if (m_strData.size() > nSdoMaxData)
        return Fail(eSdoMemory, astrNext);
    if ((nCommand & 1) != 0)
        m_eState = EState::eFinished;
    else
        astrNext.push_back(SdoSegment(0x60 | m_nToggle, {}));
}

void CSdoClient::TakeBlockAnswer(const std::string& strFrame, std::vector<std::string>& astrNext)
{
    const unsigned nCommand = SdoByte(strFrame, 0);
    if (m_eState == EState::eWriteBlocksEnd) {
        if (nCommand != 0xA1)
            return Fail(eSdoUnknownCommand, astrNext);
        m_strData.assign(4, '\0');
        m_eState = EState::eFinished;
        return;
    }
    const bool bFirst = m_eState == EState::eWriteBlocks;
    if ((nCommand & (bFirst ? 0xFBU : 0xFFU)) != (bFirst ? 0xA0U : 0xA2U))
        return Fail(eSdoUnknownCommand, astrNext);
    if (!bFirst && !m_oSender.Acknowledge(SdoByte(strFrame, 1)))
        return Fail(eSdoSequence, astrNext);
    if (!m_oSender.SetBlockSize(SdoByte(strFrame, bFirst ? 4 : 2)))
        return Fail(eSdoBlockSize, astrNext);
    m_eState = EState::eWriteBlock;
    if (m_oSender.IsFinished()) {
        m_eState = EState::eWriteBlocksEnd;
        astrNext.push_back(m_oSender.End(0xC1));
    } else {
        m_oSender.Send(astrNext);
    }
}
