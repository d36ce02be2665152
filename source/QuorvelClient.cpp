#include "QuorvelClient.h"

#include "Command.h"
#include "Trace.h"
#include "support/ZelTools.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace
{

constexpr const char* UNIT = "source/QuorvelClient";
constexpr unsigned char LEVEL_TRAFFIC = 16;

// The object of the last indication on this thread, whose memory the next one uses: a stream of indications
// allocates nothing.
thread_local std::unique_ptr<CQuorvelMsg> t_pSpareMsg;

std::string Dump(const std::string& strBytes)
{
    return ZelMemDump(strBytes.data(), static_cast<unsigned int>(strBytes.size()), 0xFFFFFFFFU, 0xFFFFFFFFU);
}

[[gnu::noinline]] void TraceReceived(const CQuorvelMsg& oMsg, const char* pData, unsigned short nLen,
                                     bool bValid)
{
    if (bValid) {
        Trace(LEVEL_TRAFFIC, UNIT, "incoming telegram from parter");
        Trace(LEVEL_TRAFFIC, UNIT, [&] { return Dump(oMsg.GetMessageData()); });
    } else {
        Trace(LEVEL_TRAFFIC, UNIT, "invalid incoming telegram from parter is discarded.");
        Trace(LEVEL_TRAFFIC, UNIT, [&] { return ZelMemDump(pData, nLen, 0xFFFFFFFFU, 0xFFFFFFFFU); });
    }
}

// Bit 15 of the command code, which follows the two length bytes.
bool IsConfirmation(const char* pData, unsigned short nLen)
{
    return nLen >= 7 && (static_cast<unsigned char>(pData[3]) & 0x80) != 0;
}

// The reader of an exchange. One within it, by an override of SendMsg, uses the same: it could not have another.
struct SReaderInUse {
    SReaderInUse(CZelIPConnection::CReader*& pReader, CZelIPConnection::CReader& oOwn)
        : m_pReader(pReader), m_pFormer(pReader)
    {
        if (m_pReader == nullptr)
            m_pReader = &oOwn;
    }
    ~SReaderInUse() { m_pReader = m_pFormer; }
    SReaderInUse(const SReaderInUse&) = delete;
    SReaderInUse& operator=(const SReaderInUse&) = delete;

    CZelIPConnection::CReader*& m_pReader;
    CZelIPConnection::CReader* m_pFormer;
};

unsigned short Code(EQuorvelDevice eDeviceType, unsigned int nCommand)
{
    return static_cast<unsigned short>(((static_cast<unsigned int>(eDeviceType) & 0x7F) << 8) | nCommand);
}

} // namespace

void CQuorvelClient::CConnection::ConnectInd(bool bConnected)
{
    if (m_pParent != nullptr)
        m_pParent->ConInd(bConnected);
}

void CQuorvelClient::CConnection::DataInd(const char* pData, unsigned short nLen)
{
    if (m_pParent != nullptr)
        m_pParent->DataInd(pData, nLen);
}

CQuorvelClient::CMessageItem::CMessageItem(CQuorvelMsg* pMsg)
    : m_pMsg(pMsg), m_oTime(CZelLocalTime::CurrentLocalTime())
{
}

CQuorvelClient::CMessageItem::~CMessageItem()
{
    delete m_pMsg;
}

CQuorvelMsg* CQuorvelClient::CMessageItem::PopMsg()
{
    return std::exchange(m_pMsg, nullptr);
}

CQuorvelClient::CQuorvelClient(EQuorvelDevice eDeviceType, unsigned int nTimeout)
    : m_nTimeout(nTimeout), m_nMsgID(0), m_eDeviceType(eDeviceType)
{
    m_oConnection.SetParentClass(this);
}

CQuorvelClient::~CQuorvelClient()
{
    StopReception();
    LeaveToParent();
    const CZelLock oLock(m_oMutexMessageMap);
    for (const auto& [nID, pItem] : m_aoMessageMap)
        delete pItem;
    m_aoMessageMap.clear();
}

// In a child process: a thread of the parent may have been at work on the map, or in an exchange, when the process was
// forked.
void CQuorvelClient::LeaveToParent()
{
    if (m_nForks == CZelMonitor::GetForkCount())
        return;
    m_nForks = CZelMonitor::GetForkCount();
    m_pReader = nullptr;
    new (&m_oMessagePool) std::pmr::unsynchronized_pool_resource;
    new (&m_aoMessageMap) std::pmr::map<short, CMessageItem*>(&m_oMessagePool);
}

int CQuorvelClient::Open()
{
    m_nMsgID = 2;
    return 0;
}

int CQuorvelClient::Close()
{
    return Disconnect();
}

int CQuorvelClient::Connect(const char* pHost, unsigned short nPort, unsigned char nProtocol, bool bFlag)
{
    if (nPort == 0)
        nPort = static_cast<unsigned short>(m_eDeviceType == 0 ? 5099 : 4999 + m_eDeviceType);
    LeaveToParent();
    if (m_bReceiveWhileWaiting || typeid(*this) == *m_pOwnClass)
        m_oConnection.SetReadByCallers(IsConfirmation);
    return ConvertTCPRetCode(
        m_oConnection.ConnectReq(pHost, nPort, m_nTimeout, static_cast<unsigned char>(m_eDeviceType),
                                 static_cast<CZelIPBase::EProtocol>(nProtocol), "", bFlag));
}

int CQuorvelClient::Disconnect()
{
    return ConvertTCPRetCode(m_oConnection.DisconnectReq(m_nTimeout));
}

void CQuorvelClient::StopReception()
{
    Disconnect();
    m_oConnection.DisconnectReq(0xFFFFFFFFU);
}

bool CQuorvelClient::RunAtEndOfReception(std::function<void()> fnLast)
{
    if (!m_oConnection.RunAtEndOfReception(std::move(fnLast)))
        return false;
    Disconnect();
    return true;
}

short CQuorvelClient::TakeMsgID()
{
    return m_nMsgID.fetch_add(1);
}

int CQuorvelClient::SendMsg(const CQuorvelMsg& oMsg)
{
    const std::string strHeader = oMsg.GetHeader();
    const char cCRC = static_cast<char>(oMsg.GetCRC());
    const int nRC = ConvertTCPRetCode(
        m_oConnection.DataReq({strHeader, oMsg.GetData(), std::string_view(&cCRC, 1)}, m_nTimeout));
    Trace(LEVEL_TRAFFIC, UNIT, [&] { return "data sended RC=" + std::to_string(nRC); });
    Trace(LEVEL_TRAFFIC, UNIT, [&] { return Dump(oMsg.GetMessageData()); });
    return nRC;
}

int CQuorvelClient::SendMsg(const CQuorvelMsg& oReq, CQuorvelMsg*& pCnf, const unsigned int* pTimeout)
{
    return Guarded([&] {
        const CZelMyTurn oMyTurn(m_oTurn);
        LeaveToParent();
        const unsigned int nCancelled = m_nCancelled; // also what cancels while the request is sent
        m_oEventMsg.Reset();
        CZelIPConnection::CReader oOwn(m_oConnection);
        const SReaderInUse oInUse(m_pReader, oOwn);
        CZelIPConnection::CReader& oReader = *m_pReader;
        oReader.Begin();
        const int nRC = SendMsg(oReq);
        if (nRC != 0) {
            TraceFailure(nRC, UNIT, __LINE__);
            return nRC;
        }
        pCnf = WaitForMsg(oReq.GetMsgID(), pTimeout, nCancelled, oReader);
        return CheckCnf(pCnf, oReq.GetCmdCode(), UNIT, __LINE__);
    });
}

int CQuorvelClient::SendMsg(const CQuorvelMsg& oReq, CQuorvelMsg& oCnf, const unsigned int* pTimeout)
{
    CQuorvelMsg* pCnf = nullptr;
    const int nRC = SendMsg(oReq, pCnf, pTimeout);
    const std::unique_ptr<CQuorvelMsg> pOwned(pCnf);
    if (pOwned)
        oCnf = std::move(*pOwned);
    return nRC;
}

int CQuorvelClient::CheckCnf(const CQuorvelMsg* pCnf, unsigned short nCmdCode, const char* pUnit,
                             unsigned int nLine)
{
    int nRC = 0;
    if (pCnf == nullptr)
        nRC = 0x00040000;
    else if (!pCnf->IsCRCValid())
        nRC = 0x000A0000;
    else if (pCnf->GetCmdCode() != (nCmdCode | 0x8000))
        nRC = 0x000B0000;
    if (nRC != 0)
        TraceFailure(nRC, pUnit, nLine);
    return nRC;
}

void CQuorvelClient::TraceFailure(int nRC, const char* pUnit, unsigned int nLine)
{
    Trace(
        LEVEL_TRAFFIC, pUnit,
        [nRC] { return GetErrorMsg(nRC) + ": 0x" + ZelToString(static_cast<unsigned int>(nRC), 16); }, nLine);
}

CQuorvelMsg* CQuorvelClient::WaitForMsg(short nMsgID, const unsigned int* pTimeout)
{
    try {
        return CollectMsg(nMsgID, pTimeout);
    } catch (const std::bad_alloc&) { // none for the confirmation
        return nullptr;
    }
}

CQuorvelMsg* CQuorvelClient::CollectMsg(short nMsgID, const unsigned int* pTimeout)
{
    CZelIPConnection::CReader oReader(m_oConnection);
    return WaitForMsg(nMsgID, pTimeout, m_nCancelled, oReader);
}

CQuorvelMsg* CQuorvelClient::WaitForMsg(short nMsgID, const unsigned int* pTimeout, unsigned int nCancelled,
                                        CZelIPConnection::CReader& oReader)
{
    const unsigned int nTimeout = pTimeout != nullptr ? *pTimeout : m_nTimeout;
    const CZelDeadline oDeadline(nTimeout);
    // The count is taken before looking, so that a confirmation stored in between is not missed.
    unsigned int nCount = m_oEventMsg.GetSignalCount();
    CQuorvelMsg* pMsg = GetMsg(nMsgID);
    // As a signed number, 0x80000000 and above are negative: no waiting at all. Existing applications rely on
    // it.
    if (static_cast<int>(nTimeout) >= 0) {
        while (pMsg == nullptr && m_nCancelled == nCancelled && !oDeadline.IsOver()) {
            // What was stored before this thread had the reading has been signalled.
            const bool bReader = oReader.Begin();
            if (!bReader ||
                (m_oEventMsg.GetSignalCount() == nCount && !oReader.Read(oDeadline.GetRemaining())))
                m_oEventMsg.WaitBeyond(nCount, oDeadline.GetRemaining());
            nCount = m_oEventMsg.GetSignalCount();
            pMsg = GetMsg(nMsgID);
        }
        if (pMsg == nullptr) // a confirmation that came just before the end counts
            pMsg = GetMsg(nMsgID);
    }
    RemoveOldMsgs();
    return pMsg;
}

void CQuorvelClient::CancelWait()
{
    ++m_nCancelled;
    m_oEventMsg.Signal();
    m_oConnection.CancelRead();
}

CQuorvelMsg* CQuorvelClient::GetMsg(short nMsgID)
{
    const CZelLock oLock(m_oMutexMessageMap);
    const auto it = m_aoMessageMap.find(nMsgID);
    if (it == m_aoMessageMap.end())
        return nullptr;
    CQuorvelMsg* const pMsg = it->second->PopMsg();
    delete it->second;
    m_aoMessageMap.erase(it);
    return pMsg;
}

void CQuorvelClient::RemoveOldMsgs()
{
    unsigned int nDeleted = 0;
    {
        const CZelLock oLock(m_oMutexMessageMap);
        if (m_aoMessageMap.empty())
            return;
        CZelLocalTime oLimit = CZelLocalTime::CurrentLocalTime();
        oLimit.SubTime(0, 0, 0, m_nTimeout / 100, 0, 0, 0);
        // The usual case, also with thousands of confirmations waiting: none of them can be too old.
        if (!(m_oOldestTime < oLimit))
            return;
        m_oOldestTime = CZelLocalTime::CurrentLocalTime();
        for (auto it = m_aoMessageMap.begin(); it != m_aoMessageMap.end();) {
            if (it->second->GetTime() < oLimit) {
                delete it->second;
                it = m_aoMessageMap.erase(it);
                ++nDeleted;
            } else {
                m_oOldestTime = std::min(m_oOldestTime, it->second->GetTime());
                ++it;
            }
        }
    }
    for (; nDeleted > 0; --nDeleted)
        Trace(LEVEL_TRAFFIC, UNIT, "deleting obsolete confirmation telegram from parter");
}

void CQuorvelClient::DataInd(const char* pData, unsigned short nLen)
{
    std::unique_ptr<CQuorvelMsg> pMsg = std::move(t_pSpareMsg);
    if (!pMsg)
        pMsg = std::make_unique<CQuorvelMsg>();
    if (!Parse(*pMsg, pData, nLen))
        return;
    if (pMsg->IsConfirmation())
        StoreConfirmation(std::move(pMsg));
    else if (DataIndRespond(pMsg.get()))
        static_cast<void>(pMsg.release()); // taken over
    else
        t_pSpareMsg = std::move(pMsg);
}

void CQuorvelClient::StoreConfirmation(std::unique_ptr<CQuorvelMsg> pMsg)
{
    const short nID = pMsg->GetMsgID();
    auto pItem = std::make_unique<CMessageItem>(pMsg.get());
    static_cast<void>(pMsg.release()); // the item's now

    const CZelLock oLock(m_oMutexMessageMap);
    m_oOldestTime = m_aoMessageMap.empty() ? pItem->GetTime() : std::min(m_oOldestTime, pItem->GetTime());
    CMessageItem*& pStored = m_aoMessageMap[nID];
    delete std::exchange(pStored, pItem.release()); // the newer confirmation replaces the older
    m_oEventMsg.Signal();
}

CQuorvelMsg* CQuorvelClient::ToMsg(const unsigned char* pData, unsigned short nLen)
{
    auto pMsg = std::make_unique<CQuorvelMsg>();
    return Parse(*pMsg, reinterpret_cast<const char*>(pData), nLen) ? pMsg.release() : nullptr;
}

bool CQuorvelClient::Parse(CQuorvelMsg& oMsg, const char* pData, unsigned short nLen)
{
    const bool bValid = oMsg.SetMessage(pData, nLen);
    if (CTraceServer::IsEnabled(LEVEL_TRAFFIC))
        TraceReceived(oMsg, pData, nLen, bValid);
    return bValid;
}

void CQuorvelClient::ConInd(bool /*bConnected*/) {}

bool CQuorvelClient::DataIndRespond(CQuorvelMsg* /*pMsg*/)
{
    return false;
}

int CQuorvelClient::GetCnfRetCode(const CQuorvelMsg& oCnf)
{
    const int nKind = (m_eDeviceType << 8) & 0xFFFF;
    const std::string& strData = oCnf.GetData();
    if (strData.empty())
        return 0x000C0000 | nKind;
    const unsigned char nResult = static_cast<unsigned char>(strData[0]);
    return nResult == 0 ? 0 : nResult | nKind;
}

int CQuorvelClient::ConvertTCPRetCode(int nRC)
{
    switch (nRC) {
    case CZelIPBase::eSuccess:
        return 0;
    case CZelIPBase::eMaxConnectionsReached:
        return 0x00000001; // a refusal by the gateway, reported as its own code; applications expect it so
    default:
        return static_cast<int>(static_cast<unsigned int>(nRC) << 16);
    }
}

std::string CQuorvelClient::GetErrorMsg(int nRC)
{
    return QuorvelErrorMsg(nRC);
}

int CQuorvelClient::Restart()
{
    CCommand oCommand(*this, UNIT, 4, "CLOSE requested to ");
    return oCommand.Exchange(Code(m_eDeviceType, 0x0C));
}

int CQuorvelClient::Info(SQuorvelDeviceInfo* pInfo)
{
    CCommand oCommand(*this, UNIT, 8, "INFO requested to ");
    if (pInfo != nullptr) {
        *pInfo = {};
        pInfo->nDeviceType = static_cast<unsigned char>(m_eDeviceType);
    }
    const int nRC = oCommand.Exchange(Code(m_eDeviceType, 0x09));
    if (nRC == 0) {
        const CDataReader oData = oCommand.Data();
        oData.Copy(1, pInfo, std::min(oData.GetLength() - 1, sizeof *pInfo));
    }
    return nRC;
}

int CQuorvelClient::Status(std::string& strStatus)
{
    CCommand oCommand(*this, UNIT, 8, "STATUS requested to ");
    const int nRC = oCommand.Exchange(Code(m_eDeviceType, 0x0A));
    return Guarded([&] {
        if (nRC == 0 && oCommand.Data().GetLength() > 1)
            strStatus = oCommand.Data().Rest(1);
        return nRC;
    });
}

int CQuorvelClient::BaseReadDigital(unsigned int& nInputs, unsigned int& nOutputs)
{
    CCommand oCommand(*this, UNIT, 4, "READ DIGITAL requested to ");
    const int nRC = oCommand.Exchange(Code(m_eDeviceType, 0x40));
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() > 8) {
        nInputs = oData.DWord(1);
        nOutputs = oData.DWord(5);
    }
    return nRC;
}

int CQuorvelClient::BaseWriteDigital(unsigned int nOutputs)
{
    CCommand oCommand(*this, UNIT, 4, "WRITE DIGITAL requested to ");
    oCommand << ", OutputBits=0x" << std::hex << nOutputs;
    return oCommand.Exchange(Code(m_eDeviceType, 0x41), CQuorvelMsg::ToChar(nOutputs));
}

int CQuorvelClient::ReadAnalog(unsigned int& nInfo, unsigned int* pValues, unsigned short& nCount)
{
    CCommand oCommand(*this, UNIT, 4, "READ ANALOG requested to ");
    const unsigned short nCapacity = std::exchange(nCount, 0);
    const int nRC = oCommand.Exchange(Code(m_eDeviceType, 0x42));
    const CDataReader oData = oCommand.Data();
    if (nRC != 0 || oData.GetLength() < 5)
        return nRC;
    nInfo = oData.DWord(1);
    // The number sent is told even when fewer were stored: callers compare it with their capacity.
    nCount = static_cast<unsigned short>((oData.GetLength() - 5) / 4);
    for (unsigned int i = 0; pValues != nullptr && i < std::min(nCount, nCapacity); ++i)
        pValues[i] = oData.DWord(5 + 4 * i);
    return 0;
}

int CQuorvelClient::WriteAnalog(const unsigned int* pValues, unsigned short nCount)
{
    CCommand oCommand(*this, UNIT, 4, "WRITE ANALOG requested to ");
    oCommand << ", OutputCount=0x" << nCount; // decimal behind "0x": log readers rely on it
    return Guarded([&] { return oCommand.Exchange(Code(m_eDeviceType, 0x43), ToData(pValues, nCount)); });
}
