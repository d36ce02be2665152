#include "support/TcpSocket.h"

#include "support/ZelIPConnection.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>

#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace
{

int PollTimeout(unsigned int nMilliSeconds)
{
    return nMilliSeconds > 0x7FFFFFFFU ? -1 : static_cast<int>(nMilliSeconds);
}

void SetOption(int nSocket, int nLevel, int nOption, int nValue)
{
    setsockopt(nSocket, nLevel, nOption, &nValue, sizeof nValue);
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

CTcpSocket::CTcpSocket() : m_nWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

CTcpSocket::~CTcpSocket()
{
    Close();
}

void CTcpSocket::Close()
{
    CloseSocket();
    if (m_nWake >= 0)
        close(m_nWake);
    if (m_nWatch >= 0)
        close(m_nWatch);
    m_nWake = -1;
    m_nWatch = -1;
}

void CTcpSocket::CloseSocket()
{
    if (m_nSocket >= 0)
        close(m_nSocket);
    m_nSocket = -1;
}

int CTcpSocket::Connect(const std::string& strHost, unsigned short nPort, unsigned int nTimeout)
{
    addrinfo oHints{};
    oHints.ai_family = AF_UNSPEC;
    oHints.ai_socktype = SOCK_STREAM;
    oHints.ai_flags = AI_NUMERICSERV;
    addrinfo* pFound = nullptr;
    if (m_nWake < 0 || strHost.empty() ||
        getaddrinfo(strHost.c_str(), std::to_string(nPort).c_str(), &oHints, &pFound) != 0)
        return CZelIPBase::eSocketError;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> pOwned(pFound, freeaddrinfo);

    unsigned int nAddresses = 0;
    for (const addrinfo* p = pFound; p != nullptr; p = p->ai_next)
        ++nAddresses;
    const CZelDeadline oDeadline(nTimeout);
    int nResult = CZelIPBase::eSocketError;
    for (const addrinfo* p = pFound; p != nullptr && nResult != CZelIPBase::eSuccess; p = p->ai_next) {
        const unsigned int nLeft = oDeadline.GetRemaining();
        nResult = ConnectTo(*p, CZelDeadline(nLeft == 0xFFFFFFFFU ? nLeft : nLeft / nAddresses--));
        if (TakeWake())
            return CZelIPBase::eSocketError;
    }
    if (nResult == CZelIPBase::eSuccess)
        SetOption(m_nSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    return nResult;
}

int CTcpSocket::ConnectTo(const addrinfo& oAddress, const CZelDeadline& oDeadline)
{
    CloseSocket();
    m_nSocket =
        socket(oAddress.ai_family, oAddress.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, oAddress.ai_protocol);
    if (m_nSocket < 0)
        return CZelIPBase::eSocketError;
    int nError = connect(m_nSocket, oAddress.ai_addr, oAddress.ai_addrlen) == 0 ? 0 : errno;
    if (nError == EINPROGRESS || nError == EINTR) {
        pollfd aoPolls[] = {{m_nSocket, POLLOUT, 0}, {m_nWake, POLLIN, 0}};
        int nReady = 0;
        do
            nReady = poll(aoPolls, 2, PollTimeout(oDeadline.GetRemaining()));
        while ((nReady == 0 && !oDeadline.IsOver()) || (nReady < 0 && errno == EINTR));
        if (nReady == 0)
            return CZelIPBase::eTimeout;
        if (nReady < 0 || aoPolls[1].revents != 0)
            return CZelIPBase::eSocketError;
        socklen_t nSize = sizeof nError;
        if (getsockopt(m_nSocket, SOL_SOCKET, SO_ERROR, &nError, &nSize) != 0)
            return CZelIPBase::eSocketError;
    }
    if (nError == ETIMEDOUT)
        return CZelIPBase::eTimeout;
    return nError == 0 ? CZelIPBase::eSuccess : CZelIPBase::eSocketError;
}

int CTcpSocket::Send(msghdr& oMessage, const CZelDeadline& oDeadline, bool& bBegun)
{
    while (oMessage.msg_iovlen > 0) {
        const ssize_t nNow = sendmsg(m_nSocket, &oMessage, MSG_NOSIGNAL);
        if (nNow >= 0) {
            bBegun = bBegun || nNow > 0;
            Advance(oMessage, static_cast<std::size_t>(nNow));
        } else if (errno == EAGAIN) {
            pollfd oPoll{m_nSocket, POLLOUT, 0};
            const int nReady = poll(&oPoll, 1, PollTimeout(oDeadline.GetRemaining()));
            if (nReady == 0 && oDeadline.IsOver())
                return CZelIPBase::eTimeout;
            if (nReady < 0 && errno != EINTR)
                return CZelIPBase::eSocketError;
        } else if (errno != EINTR) {
            const bool bLost =
                errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN || errno == ETIMEDOUT;
            return bLost ? CZelIPBase::eNotConnected : CZelIPBase::eSocketError;
        }
    }
    return CZelIPBase::eSuccess;
}

bool CTcpSocket::Watch()
{
    m_nWatch = epoll_create1(EPOLL_CLOEXEC);
    epoll_event oBytes{EPOLLIN, {.u32 = eReady}};
    epoll_event oWake{EPOLLIN | EPOLLET, {.u32 = eWoken}}; // what it does not take back is not told again
    return m_nWatch >= 0 && epoll_ctl(m_nWatch, EPOLL_CTL_ADD, m_nSocket, &oBytes) == 0 &&
           epoll_ctl(m_nWatch, EPOLL_CTL_ADD, m_nWake, &oWake) == 0;
}

void CTcpSocket::SetWatched(bool bWatched) const
{
    epoll_event oEvent{bWatched ? EPOLLIN : 0U, {.u32 = eReady}};
    epoll_ctl(m_nWatch, EPOLL_CTL_MOD, m_nSocket, &oEvent);
}

CTcpSocket::EReady CTcpSocket::WaitForBytes(unsigned int nTimeout) const
{
    epoll_event aoEvents[2];
    const int nReady = epoll_wait(m_nWatch, aoEvents, 2, PollTimeout(nTimeout));
    if (nReady == 0)
        return eTimeOver;
    return nReady == 1 && aoEvents[0].data.u32 == eReady ? eReady : eWoken;
}

CTcpSocket::EReady CTcpSocket::Wait(unsigned int nTimeout, bool bBytes) const
{
    pollfd aoPolls[] = {{bBytes ? m_nSocket : -1, POLLIN, 0}, {m_nWake, POLLIN, 0}};
    const int nReady = poll(aoPolls, 2, PollTimeout(nTimeout));
    if (nReady < 0 && errno != EINTR)
        return eWoken;
    if (nReady > 0 && aoPolls[1].revents != 0)
        return eWoken;
    return nReady > 0 ? eReady : eTimeOver;
}

std::optional<std::size_t> CTcpSocket::Receive(char* pBuffer, std::size_t nSize) const
{
    const ssize_t nRead = recv(m_nSocket, pBuffer, nSize, 0);
    if (nRead < 0 && (errno == EINTR || errno == EAGAIN))
        return std::nullopt;
    return nRead < 0 ? 0 : static_cast<std::size_t>(nRead);
}

void CTcpSocket::Wake() const
{
    eventfd_write(m_nWake, 1);
}

bool CTcpSocket::TakeWake() const
{
    eventfd_t nCount = 0;
    return eventfd_read(m_nWake, &nCount) == 0;
}

void CTcpSocket::EndSending() const
{
    shutdown(m_nSocket, SHUT_WR);
}

void CTcpSocket::EndBoth() const
{
    shutdown(m_nSocket, SHUT_RDWR);
}

void CTcpSocket::Reset() const
{
    const linger oLinger{1, 0};
    setsockopt(m_nSocket, SOL_SOCKET, SO_LINGER, &oLinger, sizeof oLinger);
    EndBoth();
}

bool CTcpSocket::IsAllAcknowledged() const
{
    // The end of the stream counts as a byte, and is acknowledged last.
    int nBytes = 0;
    return ioctl(m_nSocket, SIOCOUTQ, &nBytes) != 0 || nBytes <= 1;
}

bool CTcpSocket::IsOver() const
{
    tcp_info oInfo{};
    socklen_t nSize = sizeof oInfo;
    return getsockopt(m_nSocket, IPPROTO_TCP, TCP_INFO, &oInfo, &nSize) != 0 || oInfo.tcpi_state == TCP_CLOSE;
}

void CTcpSocket::SetAlive(unsigned int nMilliSeconds) const
{
    SetOption(m_nSocket, SOL_SOCKET, SO_KEEPALIVE, nMilliSeconds != 0 ? 1 : 0);
    if (nMilliSeconds == 0)
        return;
    // The first probe after about half the time, then probes up to the end of it, in whole seconds as the system
    // counts.
    const int nSeconds = static_cast<int>(std::min(nMilliSeconds / 1000, 32767U));
    const int nInterval = std::max(1, nSeconds / 4);
    SetOption(m_nSocket, IPPROTO_TCP, TCP_KEEPIDLE, std::max(1, nSeconds - 2 * nInterval));
    SetOption(m_nSocket, IPPROTO_TCP, TCP_KEEPINTVL, nInterval);
    SetOption(m_nSocket, IPPROTO_TCP, TCP_KEEPCNT, 2);
}

// The system's own time-out for unacknowledged data (TCP_USER_TIMEOUT) is no use here: it also ends a connection
// whose peer answers every probe and only has no room for data.
bool CTcpSocket::IsPeerGone(unsigned int nMilliSeconds)
{
    using namespace std::chrono;
    tcp_info oInfo{};
    socklen_t nSize = sizeof oInfo;
    if (getsockopt(m_nSocket, IPPROTO_TCP, TCP_INFO, &oInfo, &nSize) != 0)
        return false;
    const CTime oNow = steady_clock::now();
    const bool bLate =
        oNow - m_oAsked > milliseconds(nMilliSeconds) / 2; // since when it owes an answer is not known
    m_oAsked = oNow;
    if (bLate || (oInfo.tcpi_unacked == 0 && oInfo.tcpi_probes == 0))
        m_oAnswered = oNow;
    const unsigned int nQuiet = std::min(oInfo.tcpi_last_ack_recv, oInfo.tcpi_last_data_recv);
    m_oAnswered = std::max<CTime>(m_oAnswered, oNow - milliseconds(nQuiet));
    return oNow - m_oAnswered >= milliseconds(nMilliSeconds);
}
