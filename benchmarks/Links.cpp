#include "Links.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

CPlainLink::CPlainLink(const CPeer& oPeer, std::size_t nDataLen)
    : m_nSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_anAnswer(nDataLen + 8)
{
    const std::size_t nLength = nDataLen + 5;
    const char acHead[] = {static_cast<char>(nLength & 0xFF), static_cast<char>(nLength >> 8), 3, 3, 2, 0};
    m_strRequest.assign(acHead, sizeof acHead);
    m_strRequest.append(nDataLen, '\0');
    m_strRequest += '\x02'; // 03 ^ 03 ^ 02

    const int nOn = 1;
    setsockopt(m_nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_addr.s_addr = inet_addr(CPeer::GetHost());
    oAddress.sin_port = htons(oPeer.GetPort());
    // A failure shows with the first exchange.
    static_cast<void>(connect(m_nSocket, reinterpret_cast<sockaddr*>(&oAddress), sizeof oAddress));
}

CPlainLink::~CPlainLink()
{
    close(m_nSocket);
}

bool CPlainLink::Exchange()
{
    return Send() && Receive();
}

bool CPlainLink::Send() const
{
    for (std::size_t nSent = 0; nSent < m_strRequest.size();) {
        const ssize_t nNow =
            send(m_nSocket, m_strRequest.data() + nSent, m_strRequest.size() - nSent, MSG_NOSIGNAL);
        if (nNow <= 0)
            return false;
        nSent += static_cast<std::size_t>(nNow);
    }
    return true;
}

bool CPlainLink::Receive()
{
    for (std::size_t nHave = 0; nHave < m_anAnswer.size();) {
        const ssize_t nNow = recv(m_nSocket, m_anAnswer.data() + nHave, m_anAnswer.size() - nHave, 0);
        if (nNow <= 0)
            return false;
        nHave += static_cast<std::size_t>(nNow);
    }
    return true;
}
