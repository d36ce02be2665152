// The far side of a connection on loopback.
#ifndef QUORVEL_FUZZ_SOCKET_H
#define QUORVEL_FUZZ_SOCKET_H

#include "FuzzFile.h"

#include <cerrno>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

/// A connected socket.
class CFuzzSocket
{
  public:
    explicit CFuzzSocket(int nSocket) : m_nSocket(nSocket)
    {
        Require(nSocket >= 0);
        const int nOn = 1;
        setsockopt(m_nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
    }
    ~CFuzzSocket() { close(m_nSocket); }
    CFuzzSocket(const CFuzzSocket&) = delete;
    CFuzzSocket& operator=(const CFuzzSocket&) = delete;

    void Send(const std::string& strBytes) const
    {
        send(m_nSocket, strBytes.data(), strBytes.size(), MSG_NOSIGNAL);
    }
    void EndSending() const { shutdown(m_nSocket, SHUT_WR); }

    /// Everything that comes until the other side ends; it must within ten seconds.
    std::string ReadAll() const
    {
        std::string strAll;
        char acBytes[65536];
        pollfd oPoll{m_nSocket, POLLIN, 0};
        while (true) {
            const int nReady = poll(&oPoll, 1, 10000);
            if (nReady < 0 && errno == EINTR) // the fuzzer's own timer
                continue;
            Require(nReady == 1);
            const ssize_t nRead = recv(m_nSocket, acBytes, sizeof acBytes, 0);
            if (nRead <= 0)
                return strAll;
            strAll.append(acBytes, static_cast<std::size_t>(nRead));
        }
    }

  private:
    int m_nSocket;
};

inline sockaddr_in Loopback(unsigned short nPort)
{
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    oAddress.sin_port = htons(nPort);
    return oAddress;
}

/// Listens on a port of its own.
class CFuzzListener
{
  public:
    CFuzzListener()
    {
        sockaddr_in oAddress = Loopback(0);
        socklen_t nSize = sizeof oAddress;
        auto* const pAddress = reinterpret_cast<sockaddr*>(&oAddress);
        Require(bind(m_nSocket, pAddress, nSize) == 0 && listen(m_nSocket, 8) == 0 &&
                getsockname(m_nSocket, pAddress, &nSize) == 0);
        m_nPort = ntohs(oAddress.sin_port);
    }
    ~CFuzzListener() { close(m_nSocket); }
    CFuzzListener(const CFuzzListener&) = delete;
    CFuzzListener& operator=(const CFuzzListener&) = delete;

    unsigned short GetPort() const { return m_nPort; }
    CFuzzSocket Accept() const { return CFuzzSocket(accept4(m_nSocket, nullptr, nullptr, SOCK_CLOEXEC)); }

  private:
    int m_nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unsigned short m_nPort = 0;
};

/// Connects to a port on loopback, as soon as somebody listens there.
inline CFuzzSocket FuzzConnect(unsigned short nPort)
{
    const sockaddr_in oAddress = Loopback(nPort);
    for (int nTries = 0; nTries < 10000; ++nTries) {
        const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(nSocket, reinterpret_cast<const sockaddr*>(&oAddress), sizeof oAddress) == 0)
            return CFuzzSocket(nSocket);
        close(nSocket);
        usleep(1000);
    }
    std::abort();
}

#endif
