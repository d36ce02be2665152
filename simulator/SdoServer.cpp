#include "SdoServer.h"

#include "SimTelegram.h"

#include <utility>

std::vector<std::string> CSdoServer::Handle(const std::string& strFrame)
{
    m_astrAnswers.clear();
    if (strFrame.size() != 8)
        return {};
    const unsigned nCommand = SdoByte(strFrame, 0);
    if (nCommand == 0x80) {
        Reset();
    } else if (m_eState == EState::eBlockDownload) {
        if (nCommand == 0) {
            Abort(eSdoSequence);
        } else if (m_oReceiver.Receive(strFrame)) {
            m_astrAnswers.push_back(SdoSegment(0xA2, {static_cast<char>(m_oReceiver.Acknowledge()), '\x7F'}));
            if (m_oReceiver.IsFinished())
                m_eState = EState::eBlockEnd;
        }
        if (m_oReceiver.IsTooLong())
            Abort(eSdoMemory);
    } else {
        switch (nCommand >> 5) {
        case 0:
            DownloadSegment(strFrame);
            break;
        case 1:
            Download(strFrame);
            break;
        case 2:
            Upload(strFrame);
            break;
        case 3:
            UploadSegment(strFrame);
            break;
        case 5:
            BlockUpload(strFrame);
            break;
        case 6:
            BlockDownload(strFrame);
            break;
        default:
            Abort(eSdoUnknownCommand);
            break;
        }
    }
    return std::exchange(m_astrAnswers, {});
}

/// Begins a transfer.
void CSdoServer::Select(const std::string& strFrame)
{
    m_nIndex = SimGet16(strFrame, 1);
    m_nSubindex = SdoByte(strFrame, 3);
    m_nToggle = 0;
    m_strData.clear();
    m_nPos = 0;
    m_eState = EState::eIdle;
}

/// Ends a download.
void CSdoServer::Confirm(unsigned nAbort, const std::string& strConfirmation)
{
    if (nAbort != 0)
        return Abort(nAbort);
    m_eState = EState::eIdle;
    m_astrAnswers.push_back(strConfirmation);
}

void CSdoServer::Abort(unsigned nCode)
{
    m_eState = EState::eIdle;
    m_astrAnswers.push_back(SdoAbort(m_nIndex, m_nSubindex, nCode));
}

/// Whether the segment is the next one.
bool CSdoServer::IsToggled(const std::string& strFrame)
{
    if ((SdoByte(strFrame, 0) & 0x10) != m_nToggle)
        return false;
    m_nToggle ^= 0x10;
    return true;
}

void CSdoServer::Download(const std::string& strFrame)
{
    Select(strFrame);
    const unsigned nCommand = SdoByte(strFrame, 0);
    const bool bSized = (nCommand & 1) != 0;
    if ((nCommand & 2) != 0) {
        const std::size_t nLen = bSized ? 4 - (nCommand >> 2 & 3) : 4;
        return Confirm(m_oObjects.WriteObject(m_nIndex, m_nSubindex, strFrame.substr(4, nLen), bSized),
                       SdoFrame(0x60, m_nIndex, m_nSubindex));
    }
    m_oSize.reset();
    if (bSized)
        m_oSize = SimGet32(strFrame, 4);
    if (m_oSize && *m_oSize > nSdoMaxData)
        return Abort(eSdoMemory);
    m_eState = EState::eDownload;
    m_astrAnswers.push_back(SdoFrame(0x60, m_nIndex, m_nSubindex));
}

void CSdoServer::DownloadSegment(const std::string& strFrame)
{
    if (m_eState != EState::eDownload)
        return Abort(eSdoUnknownCommand);
    if (!IsToggled(strFrame))
        return Abort(eSdoToggle);
    const unsigned nCommand = SdoByte(strFrame, 0);
    m_strData.append(strFrame, 1, 7 - (nCommand >> 1 & 7));
    if (m_strData.size() > nSdoMaxData)
        return Abort(eSdoMemory);
    const std::string strConfirmation = SdoSegment(0x20 | (nCommand & 0x10), {});
    if ((nCommand & 1) == 0)
        m_astrAnswers.push_back(strConfirmation);
    else if (m_oSize && *m_oSize != m_strData.size())
        Abort(eSdoLength);
    else
        Confirm(m_oObjects.WriteObject(m_nIndex, m_nSubindex, m_strData, true), strConfirmation);
}

void CSdoServer::Upload(const std::string& strFrame)
{
    Select(strFrame);
    if (const unsigned nAbort = m_oObjects.ReadObject(m_nIndex, m_nSubindex, m_strData); nAbort != 0)
        return Abort(nAbort);
    const auto nSize = static_cast<unsigned>(m_strData.size());
    if (nSize >= 1 && nSize <= 4) {
        std::string strValue = m_strData;
        strValue.resize(4);
        m_astrAnswers.push_back(
            SdoFrame(0x43 | (4 - nSize) << 2, m_nIndex, m_nSubindex, SimGet32(strValue, 0)));
        return;
    }
    m_eState = EState::eUpload;
    m_astrAnswers.push_back(SdoFrame(0x41, m_nIndex, m_nSubindex, nSize));
}

void CSdoServer::UploadSegment(const std::string& strFrame)
{
    if (m_eState != EState::eUpload)
        return Abort(eSdoUnknownCommand);
    if (!IsToggled(strFrame))
        return Abort(eSdoToggle);
    const auto nRest = static_cast<unsigned>(m_strData.size() - m_nPos);
    const unsigned nIdle = nRest < 7 ? 7 - nRest : 0;
    const unsigned nLast = nRest <= 7 ? 1 : 0;
    m_astrAnswers.push_back(
        SdoSegment((SdoByte(strFrame, 0) & 0x10) | nIdle << 1 | nLast, m_strData, m_nPos));
    m_nPos += 7 - nIdle;
    if (nLast == 1)
        m_eState = EState::eIdle;
}

void CSdoServer::BlockDownload(const std::string& strFrame)
{
    const unsigned nCommand = SdoByte(strFrame, 0);
    if ((nCommand & 1) != 0) {
        if (m_eState != EState::eBlockEnd)
            return Abort(eSdoUnknownCommand);
        unsigned nAbort = m_oReceiver.End(strFrame, m_bCrc);
        if (nAbort == 0)
            nAbort = m_oObjects.WriteObject(m_nIndex, m_nSubindex, m_oReceiver.GetData(), true);
        return Confirm(nAbort, SdoSegment(0xA1, {}));
    }
    Select(strFrame);
    m_bCrc = (nCommand & 4) != 0;
    m_oSize.reset();
    if ((nCommand & 2) != 0)
        m_oSize = SimGet32(strFrame, 4);
    if (m_oSize && *m_oSize > nSdoMaxData)
        return Abort(eSdoMemory);
    m_oReceiver.Start(m_oSize);
    m_eState = EState::eBlockDownload;
    m_astrAnswers.push_back(SdoFrame(0xA4, m_nIndex, m_nSubindex, nSdoMaxBlock));
}

void CSdoServer::BlockUpload(const std::string& strFrame)
{
    const unsigned nStep = SdoByte(strFrame, 0) & 3;
    if (nStep == 0) {
        Select(strFrame);
        if (const unsigned nAbort = m_oObjects.ReadObject(m_nIndex, m_nSubindex, m_strData); nAbort != 0)
            return Abort(nAbort);
        m_oSender.Start(m_strData);
        if (!m_oSender.SetBlockSize(SdoByte(strFrame, 4)))
            return Abort(eSdoBlockSize);
        m_eState = EState::eBlockUpload;
        m_astrAnswers.push_back(
            SdoFrame(0xC6, m_nIndex, m_nSubindex, static_cast<unsigned>(m_oSender.GetSize())));
        return;
    }
    if (m_eState != EState::eBlockUpload)
        return Abort(eSdoUnknownCommand);
    if (nStep == 1) {
        if (!m_oSender.IsFinished())
            return Abort(eSdoUnknownCommand);
        m_eState = EState::eIdle;
        return;
    }
    if (nStep == 2) {
        if (!m_oSender.Acknowledge(SdoByte(strFrame, 1)))
            return Abort(eSdoSequence);
        if (!m_oSender.SetBlockSize(SdoByte(strFrame, 2)))
            return Abort(eSdoBlockSize);
    }
    if (m_oSender.IsFinished())
        m_astrAnswers.push_back(m_oSender.End(0xC1));
    else
        m_oSender.Send(m_astrAnswers);
}
