#include "support/ZelIPConnection.h"

#include "support/TcpSocket.h"
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
constexpr std::size_t MAX_TELEGRAM = 65535;
constexpr std::size_t RECEIVE_BUFFER = 0x20000; // a partial telegram and, behind it, room for a large read
constexpr unsigned int NO_LIMIT = 0xFFFFFFFFU;
constexpr unsigned int LINGER =
    10000; // milliseconds for a peer that does not end, where nothing else limits them

void TraceTooLong(std::size_t nBytes)
{
    if (!CTraceServer::IsEnabled(16))
        return;
    char acText[80]; // needs no memory
    std::snprintf(acText, sizeof acText, "telegram of %zu bytes is too long and is discarded.", nBytes);
    CTraceServer::SendTraceMessage(16, 3, 0xFFFFFFFFU, __LINE__, UNIT, acText, 0);
}

} // namespace

// One TCP connection's life: its socket and the thread that reads it. It outlives the CZelIPConnection: that may be
// deleted at the end of its own receive thread, and what the peer sends after a close is read in the background.
struct CZelIPConnection::SReception {
    // The connection is over for its user: nothing more is delivered or sent.
    void Stop(unsigned int nTimeout) noexcept
    {
        m_nLinger = nTimeout == NO_LIMIT ? LINGER : nTimeout;
        m_bStop = true;
        m_oSocket.EndSending();
        m_oSocket.Wake();
    }

    // A child process has a copy of the socket, but not of the thread.
    void Abandon() noexcept
    {
        m_bStop = true;
        m_oSocket.Close();
        m_oEventQuiet.Signal();
        m_oEventEnded.Signal();
    }

    // Takes a connection out of use that the peer has ended.
    void Lose() noexcept
    {
        m_bStop = true;
        m_oSocket.EndBoth();
    }

    bool IsStopped() const { return m_bStop || m_nForks != CZelMonitor::GetForkCount(); }

    bool Read(char* pBuffer, std::size_t& nHave);
    void Linger();

    CTcpSocket m_oSocket;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bBlocked{false};    // a sender was waiting when the connection was stopped
    std::atomic<bool> m_bCut{false};        // part of a telegram is out, and the rest never will be
    std::atomic<bool> m_bArrived{true};     // what was sent; valid when m_oEventEnded is signalled
    std::atomic<unsigned int> m_nAlive{0};  // milliseconds
    std::atomic<unsigned int> m_nLinger{0}; // milliseconds to wait for the peer when stopped
    CZelMutex m_oMutexSend;                 // held for one telegram, and to close the socket
    CZelEvent m_oEventQuiet;                // no indication runs or will
    CZelEvent m_oEventEnded;                // and what was sent has arrived, or never will
    std::thread::id m_oThread;
    std::function<void()> m_fnLast; // used by the receive thread only
    const unsigned int m_nForks = CZelMonitor::GetForkCount();
};

namespace
{

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
    void SetCurrent(const std::shared_ptr<SReception>& pReception)
    {
        m_apRetired.reserve(m_apRetired.size() + 1);
        m_pCurrent = pReception;
        m_nState = eStateConnecting;
    }

    // Takes a connection out of use that the peer has ended. False when it was closed from this side before.
    bool Lose(const std::shared_ptr<SReception>& pReception)
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
    std::string m_strHost;
    std::shared_ptr<SReception> m_pCurrent;
    std::vector<std::shared_ptr<SReception>> m_apRetired; // no longer current, and not yet seen to have ended
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
    const auto pReception = std::make_shared<SReception>();
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
bool CZelIPConnection::Start(const std::shared_ptr<SReception>& pReception)
{
    pReception->m_nAlive = m_pState->m_nAlive;
    if (m_pState->m_nAlive != 0)
        pReception->m_oSocket.SetAlive(m_pState->m_nAlive);
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
// the one that always connects anew.
int CZelIPConnection::Close(std::shared_ptr<SState> pState, unsigned int nTimeout, bool bIndication,
                            bool bForPeer)
{
    const CZelDeadline oDeadline(nTimeout);
    bool bArrived = true;
    for (;;) {
        std::shared_ptr<SReception> pReception;
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

    std::shared_ptr<SReception> pReception;
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
    m_pState->m_pCurrent->m_nAlive = nMilliSeconds;
    m_pState->m_pCurrent->m_oSocket.SetAlive(nMilliSeconds);
    m_pState->m_pCurrent->m_oSocket.Wake(); // to look after the peer, or to stop that
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

// Waits for the next bytes, to be put behind the nHave in the buffer. False at the end of the connection.
bool CZelIPConnection::SReception::Read(char* pBuffer, std::size_t& nHave)
{
    while (!IsStopped()) {
        const unsigned int nAlive = m_nAlive;
        const auto nRead = m_oSocket.Receive(pBuffer + nHave, RECEIVE_BUFFER - nHave,
                                             nAlive == 0 ? NO_LIMIT : std::max(nAlive / 8, 50U));
        if (nRead) {
            nHave += *nRead;
            return *nRead > 0;
        }
        if (nAlive != 0 && m_oSocket.IsPeerGone(nAlive))
            return false;
    }
    return false;
}

// Cuts the stream into telegrams and delivers them, until the connection ends or is stopped.
void CZelIPConnection::Deliver(SReception& oReception)
{
    // Not cleared: only the pages that data reaches are ever touched.
    const std::unique_ptr<char[]> pBuffer(new char[RECEIVE_BUFFER]);
    std::size_t nHave = 0; // bytes in the buffer, which start with a telegram
    std::size_t nSkip = 0; // bytes still to come of a telegram that is too long
    while (oReception.Read(pBuffer.get(), nHave)) {
        std::size_t nPos = 0;
        while (!oReception.IsStopped()) {
            const std::size_t nSkipNow = std::min(nSkip, nHave - nPos);
            nPos += nSkipNow;
            nSkip -= nSkipNow;
            if (nHave - nPos < 2)
                break;
            const auto* const pTelegram = reinterpret_cast<const unsigned char*>(pBuffer.get() + nPos);
            const std::size_t nTotal = pTelegram[0] + 256U * pTelegram[1] + 2;
            if (nTotal > MAX_TELEGRAM) {
                TraceTooLong(nTotal);
                nSkip = nTotal;
                continue;
            }
            if (nHave - nPos < nTotal)
                break;
            try {
                DataInd(pBuffer.get() + nPos, static_cast<unsigned short>(nTotal));
            } catch (...) {
                CTraceServer::SendTraceMessage(1, 3, 0xFFFFFFFFU, __LINE__, UNIT,
                                               "exception while a telegram was handled", 0);
            }
            nPos += nTotal;
        }
        if (nPos > 0) {
            nHave -= nPos;
            std::memmove(pBuffer.get(), pBuffer.get() + nPos, nHave);
        }
    }
}

// What the peer sends after the connection was closed from this side is read and thrown away, so that the system does
// not answer it by a reset: that would take with it what the peer has not received or not read yet.
void CZelIPConnection::SReception::Linger()
{
    char acNothing[4096];
    CZelDeadline oDeadline(m_nLinger);
    unsigned int nPause = 1; // the system does not tell when something is acknowledged
    bool bTold = false;
    bool bPeerEnded = false;
    while (!m_bCut) {
        if (!bTold && (m_bBlocked || m_oSocket.IsAllAcknowledged())) {
            bTold = true;
            m_oEventEnded.Signal();
            oDeadline = CZelDeadline(std::min(oDeadline.GetRemaining(), LINGER));
        }
        const unsigned int nLeft = oDeadline.GetRemaining();
        if (nLeft == 0 || (bPeerEnded && (bTold || m_oSocket.IsOver())))
            break;
        const unsigned int nWait = bTold ? nLeft : std::min(nLeft, nPause);
        nPause = std::min(2 * nPause, 50U);
        if (bPeerEnded)
            m_oSocket.WaitForWake(nWait);
        else
            bPeerEnded = m_oSocket.Receive(acNothing, sizeof acNothing, nWait) == 0U;
    }
    m_bArrived = bTold || m_bCut || m_oSocket.IsAllAcknowledged();
}

void CZelIPConnection::Receive(const std::shared_ptr<SReception>& pReception)
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
    {
        const CZelLock oLock(pReception->m_oMutexSend);
        pReception->m_oSocket.Close();
    }
    pReception->m_oEventEnded.Signal();
}
