#include "Peer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <modbus/modbus-tcp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

[[noreturn]] void Die(const char* pWhat)
{
    std::perror(pWhat);
    std::exit(2);
}

int Listen(unsigned short& nPort)
{
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_addr.s_addr = inet_addr(CPeer::GetHost());
    socklen_t nSize = sizeof oAddress;
    auto* const pAddress = reinterpret_cast<sockaddr*>(&oAddress);
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (nSocket < 0 || bind(nSocket, pAddress, nSize) != 0 || listen(nSocket, 512) != 0 ||
        getsockname(nSocket, pAddress, &nSize) != 0)
        Die("listening");
    nPort = ntohs(oAddress.sin_port);
    return nSocket;
}

void Bind(std::size_t nProcessor)
{
    cpu_set_t oSet;
    CPU_ZERO(&oSet);
    CPU_SET(nProcessor, &oSet);
    sched_setaffinity(0, sizeof oSet, &oSet);
}

// The confirmation of a telegram: one byte longer, bit 15 of the code set, which the check byte follows.
void Confirm(std::string& strAnswers, const unsigned char* pTelegram, std::size_t nTotal)
{
    const std::size_t nLength = nTotal - 2 + 1;
    const char acHead[] = {static_cast<char>(nLength & 0xFF),
                           static_cast<char>(nLength >> 8),
                           static_cast<char>(pTelegram[2]),
                           static_cast<char>(pTelegram[3] ^ 0x80),
                           static_cast<char>(pTelegram[4]),
                           static_cast<char>(pTelegram[5]),
                           0};
    strAnswers.append(acHead, sizeof acHead);
    strAnswers.append(reinterpret_cast<const char*>(pTelegram) + 6, nTotal - 7);
    strAnswers += static_cast<char>(pTelegram[nTotal - 1] ^ 0x80);
}

void ServeTelegrams(int nSocket)
{
    const int nOn = 1;
    setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
    std::vector<unsigned char> anBuffer(128 * 1024);
    std::string strAnswers;
    std::size_t nHave = 0;
    for (;;) {
        const ssize_t nRead = recv(nSocket, anBuffer.data() + nHave, anBuffer.size() - nHave, 0);
        if (nRead <= 0)
            break;
        nHave += static_cast<std::size_t>(nRead);
        std::size_t nPos = 0;
        strAnswers.clear();
        while (nHave - nPos >= 7) {
            const unsigned char* const pTelegram = anBuffer.data() + nPos;
            const std::size_t nTotal = pTelegram[0] + 256U * pTelegram[1] + 2;
            if (nHave - nPos < nTotal)
                break;
            Confirm(strAnswers, pTelegram, nTotal);
            nPos += nTotal;
        }
        nHave -= nPos;
        std::memmove(anBuffer.data(), anBuffer.data() + nPos, nHave);
        for (std::size_t nSent = 0; nSent < strAnswers.size();) {
            const ssize_t nNow =
                send(nSocket, strAnswers.data() + nSent, strAnswers.size() - nSent, MSG_NOSIGNAL);
            if (nNow <= 0)
                break;
            nSent += static_cast<std::size_t>(nNow);
        }
    }
    close(nSocket);
}

void ServeModbus(int nListening)
{
    modbus_t* const pModbus = modbus_new_tcp(CPeer::GetHost(), 1502); // the port is the listening socket's
    modbus_mapping_t* const pMapping = modbus_mapping_new(0, 0, 16, 0);
    if (pModbus == nullptr || pMapping == nullptr)
        Die("modbus");
    while (modbus_tcp_accept(pModbus, &nListening) >= 0) {
        uint8_t anQuery[MODBUS_TCP_MAX_ADU_LENGTH];
        for (int nLen = 0; (nLen = modbus_receive(pModbus, anQuery)) >= 0;) {
            if (nLen > 0)
                modbus_reply(pModbus, anQuery, nLen, pMapping);
        }
        modbus_close(pModbus);
    }
}

} // namespace

CPeer::CPeer(EKind eKind, EPlacement ePlacement)
{
    sched_getaffinity(0, sizeof m_oAllowed, &m_oAllowed);
    std::vector<std::size_t> anProcessors;
    for (std::size_t i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &m_oAllowed))
            anProcessors.push_back(i);
    }
    if (ePlacement != eAnywhere)
        Bind(anProcessors.front());
    const int nListening = Listen(m_nPort);
    const pid_t nParent = getpid();
    m_nProcess = fork();
    if (m_nProcess < 0)
        Die("fork");
    if (m_nProcess > 0) {
        close(nListening);
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL); // never outlives the benchmark
    if (getppid() != nParent)
        _exit(1);
    if (ePlacement == eApart)
        Bind(anProcessors.back());
    if (eKind == eModbus) {
        ServeModbus(nListening);
    } else {
        for (int nSocket = 0; (nSocket = accept(nListening, nullptr, nullptr)) >= 0;)
            std::thread(ServeTelegrams, nSocket).detach();
    }
    _exit(1);
}

CPeer::~CPeer()
{
    kill(m_nProcess, SIGKILL);
    waitpid(m_nProcess, nullptr, 0);
    sched_setaffinity(0, sizeof m_oAllowed, &m_oAllowed);
}
