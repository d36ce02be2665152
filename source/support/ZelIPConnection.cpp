#include "support/ZelIPConnection.h"

#include "support/TraceServer.h"
#include "support/ZelEvent.h"
#include "support/ZelMutex.h"
#include "support/ZelTime.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

// One TCP connection's life: its socket and the thread that reads it. It outlives the CZelIPConnection when
// that one is deleted at the very end of its own receive thread.
struct CZelIPConnection::SReception {
    SReception() = default;
    SReception(const SReception&) = delete;
    SReception& operator=(const SReception&) = delete;
    ~SReception() { CloseSocket(); }

    void CloseSocket()
    {
        if (m_nSocket >= 0)
            close(m_nSocket);
        m_nSocket = -1;
    }

    int m_nSocket = -1;               // changes while connecting (under SState::m_oMutex) and at the end
    std::atomic<bool> m_bStop{false}; // nothing more is delivered
    CZelMutex m_oMutexSend;           // held for one telegram, and to close the socket
    CZelEvent m_oEventEnded;          // the receive thread is through
    std::thread m_oThread;
    std::function<void()> m_fnLast; // used by the receive thread only
};

struct CZelIPConnection::SState {
    mutable std::mutex m_oMutex; // guards all below; never held while anything waits
    int m_nState = eStateNotConnected;
    unsigned int m_nAlive = 0;
    std::string m_strHost;
    std::shared_ptr<SReception> m_pCurrent;
    std::vector<std::shared_ptr<SReception>> m_apRetired; // no longer current, thread not yet joined

    // Makes a connection the current one. Room for retiring it is made now: a close needs no memory.
    void SetCurrent(const std::shared_ptr<SReception>& pReception)
    {
        m_apRetired.reserve(m_apRetired.size() + 1);
        m_pCurrent = pReception;
    }

    // Takes the current connection out of use: shut down at once, to be joined later.
    void Retire() noexcept
    {
        if (!m_pCurrent)
            return;
        m_pCurrent->m_bStop = true;
        if (m_pCurrent->m_nSocket >= 0)
            shutdown(m_pCurrent->m_nSocket, SHUT_RDWR);
        if (m_pCurrent->m_oThread.joinable())
            m_apRetired.push_back(std::move(m_pCurrent));
        m_pCurrent.reset();
        m_nState = eStateNotConnected;
    }
};

namespace
{

constexpr const char* UNIT = "source/support/ZelIPConnection";
constexpr std::size_t MAX_TELEGRAM = 65535;
constexpr std::size_t RECEIVE_BUFFER = 0x20000; // a partial telegram and, behind it, room for a large read

// The connection whose indications run on this thread.
thread_local const CZelIPConnection* t_pReceiving = nullptr;

void SetOption(int nSocket, int nLevel, int nOption, int nValue)
{
    setsockopt(nSocket, nLevel, nOption, &nValue, sizeof nValue);
}

void SetSocketAlive(int nSocket, unsigned int nMilliSeconds)
{
    // First probe after about half the time, then probes up to the end of it, in whole seconds as the system
    // counts. The user time-out ends it exactly, and covers data that is never acknowledged.
    const int nSeconds = static_cast<int>(std::min(nMilliSeconds / 1000, 32767U));
    const int nInterval = std::max(1, nSeconds / 4);
    // With a part of a second it would end behind the last probe, and that would be noticed an interval later.
    const unsigned int nEnd = nMilliSeconds < 1000 ? nMilliSeconds : nMilliSeconds / 1000 * 1000;
    SetOption(nSocket, SOL_SOCKET, SO_KEEPALIVE, nMilliSeconds != 0 ? 1 : 0);
    SetOption(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(std::min(nEnd, 0x7FFFFFFFU)));
    if (nMilliSeconds == 0)
        return;
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPIDLE, std::max(1, nSeconds - 2 * nInterval));
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPINTVL, nInterval);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPCNT, 2);
}

// Waits until the socket is ready for the events; a transport code.
int WaitForSocket(int nSocket, short nEvents, const CZelDeadline& oDeadline)
{
    pollfd oPoll{nSocket, nEvents, 0};
    for (;;) {
        const unsigned int nRemaining = oDeadline.GetRemaining();
        const int nTimeout = nRemaining > 0x7FFFFFFFU ? -1 : static_cast<int>(nRemaining);
        const int nReady = poll(&oPoll, 1, nTimeout);
        if (nReady > 0)
            return CZelIPBase::eSuccess;
        if (nReady == 0 && oDeadline.IsOver())
            return CZelIPBase::eTimeout;
        if (nReady < 0 && errno != EINTR)
            return CZelIPBase::eSocketError;
    }
}

// Finishes the connect of a non-blocking socket.
int Connect(int nSocket, const addrinfo& oAddress, const CZelDeadline& oDeadline)
{
    int nError = connect(nSocket, oAddress.ai_addr, oAddress.ai_addrlen) == 0 ? 0 : errno;
    if (nError == EINPROGRESS || nError == EINTR) {
        const int nReady = WaitForSocket(nSocket, POLLOUT, oDeadline);
        if (nReady != CZelIPBase::eSuccess)
            return nReady;
        socklen_t nSize = sizeof nError;
        getsockopt(nSocket, SOL_SOCKET, SO_ERROR, &nError, &nSize);
    }
    if (nError == ETIMEDOUT)
        return CZelIPBase::eTimeout;
    return nError == 0 ? CZelIPBase::eSuccess : CZelIPBase::eSocketError;
}

// Takes what was sent off the front of a message.
void Advance(msghdr& oMessage, std::size_t nSent)
{
    while (oMessage.msg_iovlen > 0) {
        iovec& oFirst = *oMessage.msg_iov;
        const std::size_t nNow = std::min(nSent, oFirst.iov_len);
        oFirst.iov_base = static_cast<char*>(oFirst.iov_base) + nNow;
        oFirst.iov_len -= nNow;
        nSent -= nNow;
        if (oFirst.iov_len > 0)
            return;
        ++oMessage.msg_iov;
        --oMessage.msg_iovlen;
    }
}

} // namespace

CZelIPConnection::CZelIPConnection() : m_pState(std::make_unique<SState>()) {}

CZelIPConnection::~CZelIPConnection()
{
    DisconnectReq(0xFFFFFFFFU);
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
    auto pReception = std::make_shared<SReception>();
    {
        const std::lock_guard oLock(m_pState->m_oMutex);
        if (m_pState->m_nState == eStateConnecting)
            return eStackInitialising;
        m_pState->m_strHost = strHost;
    }
    CZelDeadline oDeadline(nTimeout);
    const int nRC = DisconnectReq(nTimeout); // a former connection must have delivered its last
    if (nRC != eSuccess)
        return nRC;
    {
        const std::lock_guard oLock(m_pState->m_oMutex);
        if (m_pState->m_pCurrent) // another thread was faster
            return eStackInitialising;
        m_pState->SetCurrent(pReception);
        m_pState->m_nState = eStateConnecting;
    }

    addrinfo oHints{};
    oHints.ai_family = AF_UNSPEC;
    oHints.ai_socktype = SOCK_STREAM;
    oHints.ai_flags = AI_NUMERICSERV;
    addrinfo* pFound = nullptr;
    const unsigned int nLeft = oDeadline.GetRemaining();
    int nResult = eSocketError;
    if (!strHost.empty() &&
        getaddrinfo(strHost.c_str(), std::to_string(nPort).c_str(), &oHints, &pFound) != 0)
        pFound = nullptr;
    oDeadline = CZelDeadline(nLeft); // the look-up does not count

    // The time is shared out among the addresses, so that a dead one does not use it all up.
    unsigned int nAddresses = 0;
    for (const addrinfo* p = pFound; p != nullptr; p = p->ai_next)
        ++nAddresses;
    for (const addrinfo* p = pFound; p != nullptr && nResult != eSuccess; p = p->ai_next, --nAddresses) {
        const int nSocket =
            socket(p->ai_family, p->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, p->ai_protocol);
        if (nSocket < 0)
            continue;
        {
            const std::lock_guard oLock(m_pState->m_oMutex);
            pReception->CloseSocket();
            pReception->m_nSocket = nSocket;
            if (pReception->m_bStop) // another thread has closed the object meanwhile
                break;
        }
        const unsigned int nRemaining = oDeadline.GetRemaining();
        nResult = Connect(nSocket, *p,
                          CZelDeadline(nRemaining == 0xFFFFFFFFU ? nRemaining : nRemaining / nAddresses));
        if (pReception->m_bStop)
            nResult = eSocketError;
    }
    if (pFound != nullptr)
        freeaddrinfo(pFound);

    const std::lock_guard oLock(m_pState->m_oMutex);
    if (pReception->m_bStop)
        return eSocketError;
    if (nResult == eSuccess) {
        const int nSocket = pReception->m_nSocket;
        SetOption(nSocket, IPPROTO_TCP, TCP_NODELAY, 1);
        if (m_pState->m_nAlive != 0)
            SetSocketAlive(nSocket, m_pState->m_nAlive);
        const int nFlags = fcntl(nSocket, F_GETFL);
        if (nFlags < 0 ||
            fcntl(nSocket, F_SETFL, nFlags & ~O_NONBLOCK) < 0) // the receive thread blocks in recv
            nResult = eSocketError;
    }
    if (nResult == eSuccess) {
        m_pState->m_nState = eStateConnected;
        try {
            pReception->m_oThread = std::thread([this, pReception] { Receive(pReception); });
        } catch (const std::exception&) { // no thread, or no memory for it
            nResult = eSocketError;
        }
    }
    if (nResult != eSuccess)
        m_pState->Retire();
    return nResult;
} catch (const std::bad_alloc&) { // before anything was begun
    return eSocketError;
}

int CZelIPConnection::DisconnectReq(unsigned int nTimeout)
{
    const CZelDeadline oDeadline(nTimeout);
    const bool bReceiveThread = IsReceiveThread();
    for (;;) {
        std::shared_ptr<SReception> pReception;
        {
            const std::lock_guard oLock(m_pState->m_oMutex);
            m_pState->Retire(); // also what an indication has connected meanwhile
            const auto& apRetired = m_pState->m_apRetired;
            // An indication waits for nothing, and only clears away what has ended: it may be the one that always
            // connects anew.
            const auto it = std::find_if(apRetired.begin(), apRetired.end(), [&](const auto& p) {
                return !bReceiveThread || p->m_oEventEnded.Wait(0);
            });
            if (it == apRetired.end())
                return eSuccess;
            pReception = *it;
            if (m_pState->m_nState == eStateNotConnected)
                m_pState->m_nState = eStateDisconnecting;
        }
        const bool bEnded = pReception->m_oEventEnded.Wait(oDeadline.GetRemaining());
        {
            const std::lock_guard oLock(m_pState->m_oMutex);
            if (m_pState->m_nState == eStateDisconnecting)
                m_pState->m_nState = eStateNotConnected;
            if (!bEnded)
                return eTimeout;
            // Whoever takes the entry out joins it.
            auto& apRetired = m_pState->m_apRetired;
            const auto it = std::find(apRetired.begin(), apRetired.end(), pReception);
            if (it == apRetired.end())
                continue;
            apRetired.erase(it);
        }
        pReception->m_oThread.join();
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
        const std::lock_guard oLock(m_pState->m_oMutex);
        if (m_pState->m_nState != eStateConnected)
            return eNotConnected;
        pReception = m_pState->m_pCurrent;
    }
    const CZelDeadline oDeadline(nTimeout);
    if (!pReception->m_oMutexSend.Lock(nTimeout))
        return eTimeout;

    int nResult = pReception->m_nSocket >= 0 ? eSuccess : eNotConnected;
    msghdr oMessage{};
    oMessage.msg_iov = aoVectors.data();
    oMessage.msg_iovlen = nVectors;
    std::size_t nSent = 0;
    while (nResult == eSuccess && nSent < nLen) {
        const ssize_t nNow = sendmsg(pReception->m_nSocket, &oMessage, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (nNow >= 0) {
            nSent += static_cast<std::size_t>(nNow);
            Advance(oMessage, static_cast<std::size_t>(nNow));
        } else if (errno == EAGAIN) {
            nResult = WaitForSocket(pReception->m_nSocket, POLLOUT, oDeadline);
        } else if (errno != EINTR) {
            const bool bLost =
                errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN || errno == ETIMEDOUT;
            nResult = bLost ? eNotConnected : eSocketError;
        }
    }
    if (nResult != eSuccess && nSent > 0) {
        // Part of a telegram is out: the stream can no longer be trusted. What the peer has not taken yet is
        // thrown away with the connection.
        const linger oLinger{1, 0};
        setsockopt(pReception->m_nSocket, SOL_SOCKET, SO_LINGER, &oLinger, sizeof oLinger);
        const std::lock_guard oLock(m_pState->m_oMutex);
        if (m_pState->m_pCurrent == pReception)
            m_pState->m_nState = eStateNotConnected;
        shutdown(pReception->m_nSocket, SHUT_RDWR); // the receive thread finds the end of the stream
    }
    pReception->m_oMutexSend.Unlock();
    return nResult;
}

void CZelIPConnection::SetAlive(unsigned int nMilliSeconds)
{
    const std::lock_guard oLock(m_pState->m_oMutex);
    m_pState->m_nAlive = nMilliSeconds;
    if (m_pState->m_nState == eStateConnected)
        SetSocketAlive(m_pState->m_pCurrent->m_nSocket, nMilliSeconds);
}

int CZelIPConnection::GetState() const
{
    const std::lock_guard oLock(m_pState->m_oMutex);
    return m_pState->m_nState;
}

std::string CZelIPConnection::GetPartnerAddress() const
{
    const std::lock_guard oLock(m_pState->m_oMutex);
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
    const std::lock_guard oLock(m_pState->m_oMutex);
    const auto fnMine = [](const std::shared_ptr<SReception>& p) {
        return p && p->m_oThread.get_id() == std::this_thread::get_id();
    };
    const auto& apRetired = m_pState->m_apRetired;
    const auto it = std::find_if(apRetired.begin(), apRetired.end(), fnMine);
    const auto& pMine = it != apRetired.end() ? *it : m_pState->m_pCurrent;
    pMine->m_fnLast = std::move(fnLast);
    return true;
}

// Takes a connection that the peer ended out of use. False when it was closed from this side before.
bool CZelIPConnection::Lose(const std::shared_ptr<SReception>& pReception)
{
    const std::lock_guard oLock(m_pState->m_oMutex);
    if (m_pState->m_pCurrent != pReception)
        return false;
    m_pState->Retire();
    return true;
}

void CZelIPConnection::CutTelegrams(CZelIPConnection& oConnection, SReception& oReception)
{
    // Not cleared: only the pages that data reaches are ever touched.
    const std::unique_ptr<char[]> pBuffer(new char[RECEIVE_BUFFER]);
    std::size_t nHave = 0; // bytes in the buffer, which start with a telegram
    std::size_t nSkip = 0; // bytes still to come of a telegram that is too long
    while (!oReception.m_bStop) {
        const ssize_t nRead = recv(oReception.m_nSocket, pBuffer.get() + nHave, RECEIVE_BUFFER - nHave, 0);
        if (nRead < 0 && errno == EINTR)
            continue;
        if (nRead <= 0)
            return;
        nHave += static_cast<std::size_t>(nRead);

        std::size_t nPos = 0;
        while (!oReception.m_bStop) {
            const std::size_t nSkipNow = std::min(nSkip, nHave - nPos);
            nPos += nSkipNow;
            nSkip -= nSkipNow;
            if (nHave - nPos < 2)
                break;
            const auto* const pTelegram = reinterpret_cast<const unsigned char*>(pBuffer.get() + nPos);
            const std::size_t nTotal = pTelegram[0] + 256U * pTelegram[1] + 2;
            if (nTotal > MAX_TELEGRAM) {
                if (CTraceServer::IsEnabled(16)) {
                    char acText[80]; // needs no memory
                    std::snprintf(acText, sizeof acText,
                                  "telegram of %zu bytes is too long and is discarded.", nTotal);
                    CTraceServer::SendTraceMessage(16, 3, 0xFFFFFFFFU, __LINE__, UNIT, acText, 0);
                }
                nSkip = nTotal;
                continue;
            }
            if (nHave - nPos < nTotal)
                break;
            try {
                oConnection.DataInd(pBuffer.get() + nPos, static_cast<unsigned short>(nTotal));
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

void CZelIPConnection::Receive(const std::shared_ptr<SReception>& pReception)
{
    t_pReceiving = this;
    try {
        ConnectInd(true);
        CutTelegrams(*this, *pReception);
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory for the buffer, or an indication that throws
    }
    try {
        if (Lose(pReception))
            ConnectInd(false);
    } catch (...) { // NOLINT(bugprone-empty-catch): it ends all the same
    }
    {
        const CZelLock oLock(pReception->m_oMutexSend);
        pReception->CloseSocket();
    }
    t_pReceiving = nullptr;
    if (pReception->m_fnLast) {
        {
            // It may delete this object, which waits for all threads but this one.
            const std::lock_guard oLock(m_pState->m_oMutex);
            std::erase(m_pState->m_apRetired, pReception);
            pReception->m_oThread.detach();
        }
        pReception->m_fnLast(); // from here on only pReception is touched
    }
    pReception->m_oEventEnded.Signal();
}
