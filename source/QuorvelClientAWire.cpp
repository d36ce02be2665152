#include "QuorvelClientAWire.h"

#include "Command.h"
#include "Trace.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientAWire";
constexpr unsigned short CODE_WRITE_STATUS = 0x0EE1;
constexpr const char* TEXT_READ = "READ BLOCK requested to ";
constexpr int RC_TRANSFER_IN_PROGRESS = 0x0E21;
constexpr int RC_READ_FAILED = 0x0E26;
constexpr int RC_DIFFERENT = 0x0EFF;
constexpr int RC_NONE = 255; // no such block, no transfer, no thread
constexpr unsigned int MAX_CHUNK = 32768;
constexpr std::size_t MAX_PENDING = 2;

std::string Range(unsigned int nOffset, unsigned short nLength)
{
    return CQuorvelMsg::ToChar(nOffset) + CQuorvelMsg::ToChar(nLength);
}

void TraceRange(CCommand& oCommand, unsigned int nOffset, unsigned short nLength)
{
    oCommand << std::hex << ", offset=0x" << nOffset << ", length=0x" << nLength;
}

int ExchangeRead(CCommand& oCommand, unsigned int nOffset, unsigned short nLength)
{
    TraceRange(oCommand, nOffset, nLength);
    return oCommand.Exchange(0x0EE3, Range(nOffset, nLength));
}

} // namespace

CQuorvelClientAWire::CQuorvelClientAWire(int nTimeout)
    : CQuorvelClient(eDeviceAWire, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientAWire));
}

CQuorvelClientAWire::~CQuorvelClientAWire()
{
    // While there is reception: without it, an exchange of the transfer would always wait for its time-out.
    EndWriteFile();
    StopReception();
}

void CQuorvelClientAWire::EndWriteFile()
{
    std::unique_ptr<CWriteFileThread> pEnded; // deleted, which joins the thread, when the lock is gone
    const CZelLock oLock(m_oMutexWriteFile);
    pEnded = std::move(m_pWriteFileThread);
}

// NOLINTBEGIN(performance-unnecessary-value-param): by value, existing applications rely on it
int CQuorvelClientAWire::SetConfig(unsigned int nBaudrate, unsigned int nFlashAddress,
                                   unsigned int nFlashSize, unsigned int nPageSize, std::string strName)
// NOLINTEND(performance-unnecessary-value-param)
{
    CCommand oCommand(*this, UNIT, 4, "SET CONFIG requested to ");
    const int nRC =
        oCommand.Exchange(0x0E05, {CQuorvelMsg::ToChar(nBaudrate), CQuorvelMsg::ToChar(nFlashAddress),
                                   CQuorvelMsg::ToChar(nFlashSize), CQuorvelMsg::ToChar(nPageSize), strName});
    if (nRC == 0)
        m_nPageSize = nPageSize;
    return nRC;
}

int CQuorvelClientAWire::GetConfig(unsigned int& nBaudrate, unsigned int& nFlashAddress,
                                   unsigned int& nFlashSize, unsigned int& nPageSize, std::string& strName)
{
    // The text of SetConfig: log readers rely on it.
    CCommand oCommand(*this, UNIT, 4, "SET CONFIG requested to ");
    const int nRC = oCommand.Exchange(0x0E06);
    const CDataReader oData = oCommand.Data();
    return Guarded([&] {
        if (nRC == 0 && oData.GetLength() > 16) {
            strName = oData.Rest(17);
            nBaudrate = oData.DWord(1);
            nFlashAddress = oData.DWord(5);
            nFlashSize = oData.DWord(9);
            m_nPageSize = nPageSize = oData.DWord(13);
        }
        return nRC;
    });
}

int CQuorvelClientAWire::WriteBlock(unsigned int nOffset, unsigned short nLength, const char* pData,
                                    short& nID)
{
    return IsWritingFile() ? RC_TRANSFER_IN_PROGRESS : WriteBlockInternal(nOffset, nLength, pData, nID);
}

int CQuorvelClientAWire::WriteBlockInternal(unsigned int nOffset, unsigned short nLength, const char* pData,
                                            short& nID)
{
    CCommand oCommand(*this, UNIT, 4, "WRITE BLOCK requested to ");
    TraceRange(oCommand, nOffset, nLength);
    return SendBlock(oCommand, 0x0EE0, nOffset, nLength, pData, nID);
}

int CQuorvelClientAWire::WriteUserPage(unsigned int nOffset, unsigned short nLength, const char* pData,
                                       short& nID)
{
    return IsWritingFile() ? RC_TRANSFER_IN_PROGRESS : WriteUserPageInternal(nOffset, nLength, pData, nID);
}

int CQuorvelClientAWire::WriteUserPageInternal(unsigned int nOffset, unsigned short nLength,
                                               const char* pData, short& nID)
{
    CCommand oCommand(*this, UNIT, 4, "WRITE USER PAGE requested to ");
    return SendBlock(oCommand, 0x0EE4, nOffset, nLength, pData, nID);
}

int CQuorvelClientAWire::SendBlock(CCommand& oCommand, unsigned short nCmdCode, unsigned int nOffset,
                                   unsigned short nLength, const char* pData, short& nID)
{
    return Guarded([&] {
        const CQuorvelMsg oReq =
            oCommand.Request(nCmdCode, {Range(nOffset, nLength), ToData(pData, nLength)});
        nID = oReq.GetMsgID();
        {
            // Before sending, because the report may come at once.
            const CZelLock oLock(m_oMutexBlockProgress);
            m_aoBlockProgress[nID] = {Progress::eInProgress, nLength, 0};
        }
        const int nRC = Guarded([&] { return SendMsg(oReq); }); // an override may throw
        if (nRC != 0) {
            const CZelLock oLock(m_oMutexBlockProgress);
            m_aoBlockProgress.erase(nID);
        }
        return nRC;
    });
}

bool CQuorvelClientAWire::DataIndRespond(CQuorvelMsg* pMsg)
{
    if (pMsg->GetCmdCode() != CODE_WRITE_STATUS)
        return false;
    Trace(8, UNIT, "aWire Write Status Indication.");
    const CDataReader oData(pMsg->GetData());
    if (oData.GetLength() < 5) {
        Trace(2, UNIT, "Received incomplete aWire Write Status Indication.");
        return false;
    }
    bool bKnown = false;
    {
        const CZelLock oLock(m_oMutexBlockProgress);
        const auto it = m_aoBlockProgress.find(static_cast<short>(oData.Word(0)));
        bKnown = it != m_aoBlockProgress.end();
        if (bKnown) {
            it->second.eProgress = static_cast<Progress::EProgress>(oData.Byte(2));
            it->second.nDone = oData.Word(3);
        }
    }
    if (bKnown)
        m_oEventBlockProgress.Signal();
    else
        Trace(2, UNIT, "Received aWire Write Status Indication for unknown block.");
    return false;
}

int CQuorvelClientAWire::GetWriteBlockStatus(short nID, Progress::EProgress& eProgress,
                                             unsigned short& nLength, unsigned short& nDone)
{
    const CZelLock oLock(m_oMutexBlockProgress);
    const auto it = m_aoBlockProgress.find(nID);
    if (it == m_aoBlockProgress.end())
        return RC_NONE;
    eProgress = it->second.eProgress;
    nLength = it->second.nLength;
    nDone = it->second.nDone;
    // Told once: existing applications rely on 255 afterwards.
    if (eProgress == Progress::eFinished)
        m_aoBlockProgress.erase(it);
    return 0;
}

int CQuorvelClientAWire::Erase(unsigned short nBlock)
{
    CCommand oCommand(*this, UNIT, 4, "ERASE BLOCK requested to ");
    oCommand << ", block=" << nBlock;
    return oCommand.Exchange(0x0EE2, CQuorvelMsg::ToChar(nBlock));
}

int CQuorvelClientAWire::EraseUserPage()
{
    CCommand oCommand(*this, UNIT, 4, "ERASE USER PAGE requested to ");
    return oCommand.Exchange(0x0EE5);
}

int CQuorvelClientAWire::Read(unsigned int nOffset, unsigned short nLength, char* pData,
                              unsigned short& nRead)
{
    CCommand oCommand(*this, UNIT, 4, TEXT_READ);
    const int nRC = ExchangeRead(oCommand, nOffset, nLength);
    if (nRC == 0) {
        const CDataReader oData = oCommand.Data();
        nRead = static_cast<unsigned short>(std::min<std::size_t>(oData.GetLength() - 1, nLength));
        oData.Copy(1, pData, nRead);
    }
    return nRC;
}

int CQuorvelClientAWire::Verify(unsigned int nOffset, unsigned short nLength, const char* pData)
{
    CCommand oCommand(*this, UNIT, 4, TEXT_READ);
    const int nRC = ExchangeRead(oCommand, nOffset, nLength);
    if (nRC != 0)
        return nRC;
    const std::string_view strRead = oCommand.Data().Rest(1);
    if (strRead.size() < nLength)
        return RC_READ_FAILED;
    return strRead.compare(0, nLength, ToData(pData, nLength)) == 0 ? 0 : RC_DIFFERENT;
}

bool CQuorvelClientAWire::IsWritingFile()
{
    const CZelLock oLock(m_oMutexWriteFile);
    return m_pWriteFileThread != nullptr;
}

int CQuorvelClientAWire::WriteFile(const std::string& strFilename)
{
    if (IsWritingFile())
        return RC_TRANSFER_IN_PROGRESS;
    if (m_nPageSize == 0) {
        unsigned int anIgnored[4];
        std::string strIgnored;
        const int nRC = GetConfig(anIgnored[0], anIgnored[1], anIgnored[2], anIgnored[3], strIgnored);
        // Without a page size, success is told and nothing done: existing applications rely on it.
        if (nRC != 0 || m_nPageSize == 0)
            return nRC;
    }
    return Guarded([&] {
        auto pThread = std::make_unique<CWriteFileThread>(*this, strFilename);
        const CZelLock oLock(m_oMutexWriteFile);
        if (m_pWriteFileThread != nullptr) // another thread was faster
            return RC_TRANSFER_IN_PROGRESS;
        if (!pThread->Create())
            return RC_NONE;
        m_pWriteFileThread = std::move(pThread);
        return 0;
    });
}

int CQuorvelClientAWire::GetWriteFileStatus(FileStep::EFileStep& eStep, unsigned char& nPercent)
{
    std::unique_ptr<CWriteFileThread> pEnded; // deleted, which joins the thread, when the lock is gone
    const CZelLock oLock(m_oMutexWriteFile);
    if (m_pWriteFileThread == nullptr)
        return RC_NONE;
    eStep = m_pWriteFileThread->GetStep();
    nPercent = m_pWriteFileThread->GetPercent(eStep);
    // The end is told once: existing applications rely on 255 afterwards.
    if (eStep == FileStep::eFinished || eStep == FileStep::eFailed)
        pEnded = std::move(m_pWriteFileThread);
    return 0;
}

CQuorvelClientAWire::CWriteFileThread::CWriteFileThread(CQuorvelClientAWire& oClient,
                                                        const std::string& strFilename)
    : m_oClient(oClient)
{
    try {
        if (m_oHexfile.LoadFile(strFilename.c_str(), CQuorvelHexfile::eTypeAuto) !=
            CQuorvelHexfile::eResultOk)
            m_eStep = FileStep::eFailed;
    } catch (const std::exception&) { // no memory for it
        m_eStep = FileStep::eFailed;
    }
    m_nTotal = m_oHexfile.GetTotalBytes();
}

CQuorvelClientAWire::CWriteFileThread::~CWriteFileThread()
{
    Terminate();
    WaitForEnd();
}

unsigned char CQuorvelClientAWire::CWriteFileThread::GetPercent(FileStep::EFileStep eStep) const
{
    unsigned long long nBytes = 0; // times 100 exceeds 32 bits from 42 MB on
    switch (eStep) {
    case FileStep::eWriting:
        nBytes = m_nWritten;
        break;
    case FileStep::eVerifying:
        nBytes = m_nVerified;
        break;
    case FileStep::eFinished:
    case FileStep::eFailed: // a failed transfer is at 100 percent, too: existing applications rely on it
        return 100;
    case FileStep::eNotStarted:
        break;
    }
    if (m_nTotal == 0)
        return 0;
    return static_cast<unsigned char>(std::min(nBytes * 100 / m_nTotal, 100ULL));
}

bool CQuorvelClientAWire::CWriteFileThread::IsIn(FileStep::EFileStep eStep)
{
    return m_eStep == eStep && !IsTerminating();
}

void CQuorvelClientAWire::CWriteFileThread::Run()
{
    if (m_eStep == FileStep::eFailed)
        return;
    m_eStep = FileStep::eWriting;
    try {
        Write();
        Verify();
    } catch (const std::exception&) { // no memory for a telegram
        m_eStep = FileStep::eFailed;
    }
}

void CQuorvelClientAWire::CWriteFileThread::Write()
{
    const unsigned int nPageSize = m_oClient.m_nPageSize;
    const unsigned int nChunkSize =
        nPageSize == 0 || nPageSize > MAX_CHUNK ? MAX_CHUNK : MAX_CHUNK / nPageSize * nPageSize;
    for (const CQuorvelHexfile::SMemoryBlock* pBlock : m_oHexfile.GetMemoryBlocks())
        WriteMemoryBlock(*pBlock, nChunkSize);
    while (IsIn(FileStep::eWriting) && !m_anPending.empty())
        AwaitStatus();
    if (m_eStep == FileStep::eWriting)
        m_eStep = FileStep::eVerifying;
}

void CQuorvelClientAWire::CWriteFileThread::WriteMemoryBlock(const CQuorvelHexfile::SMemoryBlock& oBlock,
                                                             unsigned int nChunkSize)
{
    for (unsigned int nSent = 0; nSent < oBlock.nLength && IsIn(FileStep::eWriting);) {
        const unsigned int nAddress = oBlock.nAddress + nSent;
        const auto nLength =
            static_cast<unsigned short>(std::min(nChunkSize - nAddress % nChunkSize, oBlock.nLength - nSent));
        short nID = 0;
        if (m_oClient.WriteBlockInternal(nAddress, nLength, oBlock.pData + nSent, nID) != 0) {
            m_eStep = FileStep::eFailed;
            return;
        }
        m_anPending.push_back(nID);
        nSent += nLength;
        // Behind the last chunk of a memory block the next one follows at once: gateways expect it so.
        while (nSent < oBlock.nLength && m_anPending.size() >= MAX_PENDING && IsIn(FileStep::eWriting))
            AwaitStatus();
    }
}

void CQuorvelClientAWire::CWriteFileThread::AwaitStatus()
{
    // A poll every millisecond, cut short by a report: otherwise each chunk would cost a millisecond, however
    // fast the target is.
    m_oClient.m_oEventBlockProgress.WaitBeyond(m_nSignals, 1);
    m_nSignals = m_oClient.m_oEventBlockProgress.GetSignalCount();
    // Asked before looking: the last reports come before the connection is lost.
    const bool bConnected = m_oClient.GetConnectState() == CZelIPBase::eStateConnected;
    UpdateStatus();
    if (!bConnected && !m_anPending.empty())
        m_eStep = FileStep::eFailed;
}

void CQuorvelClientAWire::CWriteFileThread::UpdateStatus()
{
    for (; !m_anPending.empty(); m_anPending.pop_front()) {
        Progress::EProgress eProgress = Progress::eFailed;
        unsigned short nLength = 0;
        unsigned short nDone = 0;
        if (m_oClient.GetWriteBlockStatus(m_anPending.front(), eProgress, nLength, nDone) != 0)
            continue; // somebody else has asked for it
        if (eProgress == Progress::eInProgress) {
            m_nWritten = m_nFinished + nDone;
            return;
        }
        if (eProgress != Progress::eFinished) {
            m_eStep = FileStep::eFailed;
            return;
        }
        m_nFinished += nLength;
        m_nWritten = m_nFinished;
    }
}

void CQuorvelClientAWire::CWriteFileThread::Verify()
{
    for (const CQuorvelHexfile::SMemoryBlock* pBlock : m_oHexfile.GetMemoryBlocks()) {
        for (unsigned int nDone = 0; nDone < pBlock->nLength && IsIn(FileStep::eVerifying);) {
            const auto nLength = static_cast<unsigned short>(std::min(MAX_CHUNK, pBlock->nLength - nDone));
            if (m_oClient.Verify(pBlock->nAddress + nDone, nLength, pBlock->pData + nDone) != 0) {
                m_eStep = FileStep::eFailed;
                return;
            }
            nDone += nLength;
            m_nVerified += nLength;
        }
    }
    // Also when asked to terminate before everything was verified, or even written: existing applications rely
    // on it.
    if (m_eStep == FileStep::eVerifying)
        m_eStep = FileStep::eFinished;
}
