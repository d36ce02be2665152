#include "support/ZelIPConnection.h"

#include "support/Reception.h"
#include "support/TraceServer.h"
#include "support/ZelEvent.h"
#include "support/ZelMonitor.h"
#include "support/ZelMutex.h"
#include "support/ZelTime.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <thread>
#include <vector>

#include <sys/uio.h>

namespace
{

constexpr const char* UNIT = "source/support/ZelIPConnection";
constexpr unsigned int NO_LIMIT = 0xFFFFFFFFU;

void TraceException()
{
    CTraceServer::SendTraceMessage(1, 3, 0xFFFFFFFFU, __LINE__, UNIT,
                                   "exception while a telegram was handled", 0);
}

// The connection whose indications run on this thread.
thread_local const CZelIPConnection* t_pReceiving = nullptr;

} // namespace

struct CZelIPConnection::SState {
    // Never held while anything waits.
    std::unique_lock<std::mutex> Lock()
    {
        return m_oMonitor.Lock([this] {
            if (m_pCurrent)
                m_apRetired.push_back(std::move(m_pCurrent));
            for (const auto& pReception : m_apRetired)
                pReception->Abandon();
            m_apRetired.clear();
            m_nState = eStateNotConnected;
        });
    }

    // Makes a connection the current one. Room for retiring it is made now: a close needs no memory.
    void SetCurrent(const std::shared_ptr<CReception>& pReception)
    {
        m_apRetired.reserve(m_apRetired.size() + 1);
        m_pCurrent = pReception;
        m_nState = eStateConnecting;
    }

    // Takes a connection out of use that the peer has ended. False when it was closed from this side before.
    bool Lose(const std::shared_ptr<CReception>& pReception)
    {
        const std::unique_lock oLock = Lock();
        if (m_pCurrent != pReception)
            return false;
        m_pCurrent->Lose();
        m_apRetired.push_back(std::move(m_pCurrent));
        m_nState = eStateNotConnected;
        return true;
    }

    // Takes the current connection out of use. Whoever connects it finds it stopped.
    void Retire(unsigned int nTimeout) noexcept
    {
        if (!m_pCurrent)
            return;
        if (m_nState == eStateConnecting) {
            m_pCurrent->m_bStop = true;
            m_pCurrent->m_oSocket.Wake();
            m_pCurrent.reset();
        } else {
            m_pCurrent->Stop(nTimeout);
            m_apRetired.push_back(std::move(m_pCurrent));
        }
        m_nState = eStateNotConnected;
    }

    CZelMonitor m_oMonitor; // guards all below
    int m_nState = eStateNotConnected;
    unsigned int m_nAlive = 0;
    FMine m_fnMine = nullptr;
    std::string m_strHost;
    std::shared_ptr<CReception> m_pCurrent;
    std::vector<std::shared_ptr<CReception>> m_apRetired; // no longer current, and not yet seen to have ended
};

CZelIPConnection::CZelIPConnection() : m_pState(std::make_shared<SState>()) {}

CZelIPConnection::~CZelIPConnection()
{
    DisconnectReq(NO_LIMIT);
}

void CZelIPConnection::ConnectInd(bool /*bConnected*/) {}

void CZelIPConnection::DataInd(const char* /*pData*/, unsigned short /*nLen*/) {}

bool CZelIPConnection::IsConnectMsgAccepted(const std::string& /*strConnectMsg*/)
{
    return true;
}

int CZelIPConnection::ConnectReq(const char* pHost, unsigned short nPort, unsigned int nTimeout,
                                 unsigned char /*nDevice*/, EProtocol /*eProtocol*/,
                                 const std::string& /*strConnectMsg*/, bool /*bFlag*/)
try {
    const std::string strHost = pHost != nullptr ? pHost : "";
    const auto pReception = std::make_shared<CReception>();
    const CZelDeadline oDeadline(nTimeout);
    {
        const std::unique_lock oLock = m_pState->Lock();
        if (m_pState->m_nState == eStateConnecting)
            return eStackInitialising;
        m_pState->m_strHost = strHost;
    }
    // A former connection must have delivered its last; what it has sent arrives in the background.
    const int nRC = Close(m_pState, nTimeout, IsReceiveThread(), false);
    if (nRC != eSuccess)
        return nRC;
    {
        const std::unique_lock oLock = m_pState->Lock();
        if (m_pState->m_pCurrent) // another thread was faster
            return eStackInitialising;
        m_pState->SetCurrent(pReception);
    }
    const int nResult = pReception->m_oSocket.Connect(strHost, nPort, oDeadline.GetRemaining());
    const std::unique_lock oLock = m_pState->Lock();
    if (pReception->IsStopped()) // closed meanwhile
        return eSocketError;
    if (nResult == eSuccess && Start(pReception))
        return eSuccess;
    m_pState->m_pCurrent.reset();
    m_pState->m_nState = eStateNotConnected;
    return nResult == eSuccess ? eSocketError : nResult;
} catch (const std::bad_alloc&) { // before anything was begun
    return eSocketError;
}

// Starts the receive thread of a new connection. False when there is no thread, or no memory for it.
bool CZelIPConnection::Start(const std::shared_ptr<CReception>& pReception)
{
    pReception->m_fnMine = m_pState->m_fnMine;
    if (m_pState->m_nAlive != 0)
        pReception->SetAlive(m_pState->m_nAlive);
    if (!pReception->m_oSocket.Watch())
        return false;
    try {
        std::thread oThread([this, pReception] { Receive(pReception); });
        pReception->m_oThread = oThread.get_id();
        oThread.detach(); // events tell how far it is
    } catch (const std::exception&) {
        return false;
    }
    m_pState->m_nState = eStateConnected;
    return true;
}

int CZelIPConnection::DisconnectReq(unsigned int nTimeout)
{
    return Close(m_pState, nTimeout, IsReceiveThread(), true);
}

// Takes what there is out of use and waits for its end: for indications, and with bForPeer until what was sent has
// arrived. Within an indication it waits for nothing, and only clears away what has ended: that indication may be
// the one that always connects anew. The state is kept alive meanwhile: the object may be deleted.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int CZelIPConnection::Close(std::shared_ptr<SState> pState, unsigned int nTimeout, bool bIndication,
                            bool bForPeer)
{
    const CZelDeadline oDeadline(nTimeout);
    bool bArrived = true;
    for (;;) {
        std::shared_ptr<CReception> pReception;
        {
            const std::unique_lock oLock = pState->Lock();
            pState->Retire(nTimeout); // also what an indication has connected meanwhile
            auto& apRetired = pState->m_apRetired;
            if (bIndication || !bForPeer)
                std::erase_if(apRetired, [&](const auto& p) { return p->m_oEventQuiet.Wait(0); });
            if (bIndication || apRetired.empty())
                return bArrived ? eSuccess : eTimeout;
            pReception = apRetired.front();
            if (pState->m_nState == eStateNotConnected)
                pState->m_nState = eStateDisconnecting;
        }
        bool bEnded = false;
        {
            const CTraceServer::CWaitInSink oWait(pReception->m_oThread);
            bEnded = pReception->m_oEventQuiet.Wait(oDeadline.GetRemaining());
            if (bEnded && bForPeer) {
                const bool bInTime = pReception->m_oEventEnded.Wait(
                    nTimeout == NO_LIMIT ? NO_LIMIT : oDeadline.GetRemaining());
                bArrived = bArrived && bInTime && pReception->m_bArrived;
            }
        }
        const std::unique_lock oLock = pState->Lock();
        if (pState->m_nState == eStateDisconnecting)
            pState->m_nState = eStateNotConnected;
        if (!bEnded)
            return eTimeout;
        std::erase(pState->m_apRetired, pReception);
    }
}

int CZelIPConnection::DataReq(const char* pData, unsigned short nLen, unsigned int nTimeout)
{
    return DataReq({std::string_view(pData, nLen)}, nTimeout);
}

int CZelIPConnection::DataReq(std::initializer_list<std::string_view> aoPieces, unsigned int nTimeout)
{
    std::array<iovec, 8> aoVectors{};
    std::size_t nVectors = 0;
    std::size_t nLen = 0;
    for (const std::string_view strPiece : aoPieces) {
        if (nVectors == aoVectors.size())
            return eSocketError;
        aoVectors[nVectors++] = {const_cast<char*>(strPiece.data()), strPiece.size()}; // sendmsg only reads
        nLen += strPiece.size();
    }
    if (nLen > MAX_TELEGRAM)
        return eSocketError;

    std::shared_ptr<CReception> pReception;
    {
        const std::unique_lock oLock = m_pState->Lock();
        if (m_pState->m_nState != eStateConnected)
            return eNotConnected;
        pReception = m_pState->m_pCurrent;
    }
    const CZelDeadline oDeadline(nTimeout);
    if (!pReception->m_oMutexSend.Lock(nTimeout))
        return eTimeout;

    CTcpSocket& oSocket = pReception->m_oSocket;
    msghdr oMessage{};
    oMessage.msg_iov = aoVectors.data();
    oMessage.msg_iovlen = nVectors;
    bool bBegun = false;
    const int nResult = oSocket.IsOpen() ? oSocket.Send(oMessage, oDeadline, bBegun) : int{eNotConnected};
    if (nResult != eSuccess && oSocket.IsOpen()) {
        if (pReception->m_bStop)
            pReception->m_bBlocked = true;
        if (bBegun) {
            // Part of a telegram is out: the stream can no longer be trusted. What the peer has not taken yet is
            // thrown away with the connection, and the receive thread finds the end of the stream.
            pReception->m_bCut = true;
            const std::unique_lock oLock = m_pState->Lock();
            if (m_pState->m_pCurrent == pReception)
                m_pState->m_nState = eStateNotConnected;
            oSocket.Reset();
        }
        oSocket.Wake(); // a close does not wait for a peer that takes nothing
    }
    pReception->m_oMutexSend.Unlock();
    return nResult;
}

void CZelIPConnection::SetAlive(unsigned int nMilliSeconds)
{
    const std::unique_lock oLock = m_pState->Lock();
    m_pState->m_nAlive = nMilliSeconds;
    if (m_pState->m_nState != eStateConnected)
        return;
    m_pState->m_pCurrent->SetAlive(nMilliSeconds);
}

int CZelIPConnection::GetState() const
{
    const std::unique_lock oLock = m_pState->Lock();
    return m_pState->m_nState;
}

std::string CZelIPConnection::GetPartnerAddress() const
{
    const std::unique_lock oLock = m_pState->Lock();
    return m_pState->m_strHost;
}

bool CZelIPConnection::IsReceiveThread() const
{
    return t_pReceiving == this;
}

bool CZelIPConnection::RunAtEndOfReception(std::function<void()> fnLast)
{
    if (!IsReceiveThread())
        return false;
    const std::unique_lock oLock = m_pState->Lock();
    const auto& apRetired = m_pState->m_apRetired;
    const auto it = std::find_if(apRetired.begin(), apRetired.end(),
                                 [](const auto& p) { return p->m_oThread == std::this_thread::get_id(); });
    const auto& pMine = it != apRetired.end() ? *it : m_pState->m_pCurrent;
    pMine->m_fnLast = std::move(fnLast);
    return true;
}

inline void CZelIPConnection::CallDataInd(std::string_view strTelegram)
{
    try {
        DataInd(strTelegram.data(), static_cast<unsigned short>(strTelegram.size()));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        TraceException();
    }
}

// Delivers telegrams until the connection ends or is stopped.
void CZelIPConnection::Deliver(CReception& oReception)
{
    while (oReception.Fill()) {
        bool bIndication = false;
        while (!oReception.m_bStop) {
            const std::string_view strTelegram = oReception.Peek();
            if (strTelegram.empty())
                break;
            oReception.Pop(strTelegram.size());
            bIndication = bIndication || !oReception.IsMine(strTelegram);
            try {
                CallDataInd(strTelegram);
            } catch (const std::bad_alloc&) {
                TraceException();
            }
        }
        if (bIndication)
            oReception.NoteIndication();
    }
}

void CZelIPConnection::SetReadByCallers(FMine fnMine)
{
    const std::unique_lock oLock = m_pState->Lock();
    m_pState->m_fnMine = fnMine;
}

void CZelIPConnection::CancelRead()
{
    const std::unique_lock oLock = m_pState->Lock();
    if (m_pState->m_nState == eStateConnected)
        m_pState->m_pCurrent->m_oSocket.Wake();
}

CZelIPConnection::CReader::~CReader()
{
    End(false);
}

bool CZelIPConnection::CReader::Begin()
{
    if (m_pReception)
        return true;
    SState& oState = *m_oConnection.m_pState;
    const std::unique_lock oLock = oState.Lock();
    if (oState.m_nState == eStateConnected && oState.m_pCurrent->m_fnMine != nullptr &&
        oState.m_pCurrent->BeginRead())
        m_pReception = oState.m_pCurrent;
    return m_pReception != nullptr;
}

bool CZelIPConnection::CReader::Read(unsigned int nTimeout)
{
    if (!m_pReception->Read(nTimeout)) {
        End(true);
        return false;
    }
    while (!m_pReception->IsStopped()) {
        const std::string_view strTelegram = m_pReception->Peek();
        if (strTelegram.empty())
            return true;
        if (!m_pReception->IsMine(strTelegram))
            break;
        m_pReception->Pop(strTelegram.size());
        try {
            m_oConnection.CallDataInd(strTelegram);
        } catch (const std::bad_alloc&) { // the telegram is lost, and the caller shall know why
            End(true);
            throw;
        }
    }
    End(true);
    return false;
}

void CZelIPConnection::CReader::End(bool bHandOver)
{
    if (m_pReception)
        m_pReception->EndRead(bHandOver);
    m_pReception.reset();
}

void CZelIPConnection::Receive(const std::shared_ptr<CReception>& pReception)
{
    const std::shared_ptr<SState> pState = m_pState;
    t_pReceiving = this;
    try {
        ConnectInd(true);
        Deliver(*pReception);
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory for the buffer, or an indication that throws
    }
    bool bLost = false;
    try {
        bLost = pState->Lose(pReception);
        if (bLost)
            ConnectInd(false);
    } catch (...) { // NOLINT(bugprone-empty-catch): it ends all the same
    }
    t_pReceiving = nullptr;
    if (pReception->m_fnLast) {
        {
            // It may delete this object, which waits for all threads but this one.
            const std::unique_lock oLock = pState->Lock();
            std::erase(pState->m_apRetired, pReception);
        }
        pReception->m_fnLast();
    }
    pReception->m_oEventQuiet.Signal(); // from here on this object may be gone
    if (!bLost)
        pReception->Linger();
    pReception->Close();
}
