// How fast files go to a test system: the CRC-32 of a file, and SendFile against a plain socket that moves the
// same bytes with the same number of round trips. Prints each figure with its goal.
//
// usage: transfer_bench [--quick]     25 rounds of each, or one

#include "QuorvelClientTestSystemCOM.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::size_t FILE_SIZE = std::size_t{64} << 20;
constexpr std::size_t PIECE = 32768;
constexpr const char* NAME = "quorvel-transfer-bench";

[[noreturn]] void Die(const char* pWhat)
{
    std::perror(pWhat);
    std::exit(2);
}

void SendAll(int nSocket, const char* pData, std::size_t nLen)
{
    while (nLen > 0) {
        const ssize_t n = send(nSocket, pData, nLen, MSG_NOSIGNAL);
        if (n <= 0)
            Die("send");
        pData += n;
        nLen -= static_cast<std::size_t>(n);
    }
}

bool ReceiveAll(int nSocket, char* pData, std::size_t nLen)
{
    return recv(nSocket, pData, nLen, MSG_WAITALL) == static_cast<ssize_t>(nLen);
}

void NoDelay(int nSocket)
{
    const int nYes = 1;
    setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nYes, sizeof nYes);
}

// Binds the calling thread, and those that it starts, to a processor.
void StayOn(unsigned int nProcessor)
{
    cpu_set_t oSet;
    CPU_ZERO(&oSet);
    CPU_SET(nProcessor, &oSet);
    sched_setaffinity(0, sizeof oSet, &oSet);
}

// A gateway that asks for piece after piece and looks at nothing.
class CPeer
{
  public:
    // Runs on this processor.
    explicit CPeer(unsigned int nProcessor)
    {
        sockaddr_in oAddress{};
        oAddress.sin_family = AF_INET;
        oAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t nSize = sizeof oAddress;
        auto* const pAddress = reinterpret_cast<sockaddr*>(&oAddress);
        m_nListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (m_nListener < 0 || bind(m_nListener, pAddress, nSize) != 0 || listen(m_nListener, 8) != 0 ||
            getsockname(m_nListener, pAddress, &nSize) != 0)
            Die("listening");
        m_nPort = ntohs(oAddress.sin_port);
        m_oThread = std::thread([this, nProcessor] {
            StayOn(nProcessor);
            Serve();
        });
    }
    // After its client has gone.
    ~CPeer()
    {
        shutdown(m_nListener, SHUT_RDWR);
        m_oThread.join();
        close(m_nListener);
    }
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    unsigned short GetPort() const { return m_nPort; }

  private:
    void Serve() const
    {
        std::vector<char> acTelegram(65537);
        for (int nClient; (nClient = accept(m_nListener, nullptr, nullptr)) >= 0; close(nClient)) {
            NoDelay(nClient);
            char* const p = acTelegram.data();
            while (ReceiveAll(nClient, p, 2) &&
                   ReceiveAll(nClient, p + 2,
                              static_cast<unsigned char>(p[0]) + 256U * static_cast<unsigned char>(p[1]))) {
                char acAnswer[] = {6, 0, p[2], static_cast<char>(p[3] ^ 0x80), p[4], p[5], 0x21, 0};
                for (int i = 2; i < 7; ++i)
                    acAnswer[7] = static_cast<char>(acAnswer[7] ^ acAnswer[i]);
                SendAll(nClient, acAnswer, sizeof acAnswer);
            }
        }
    }

    int m_nListener = -1;
    unsigned short m_nPort = 0;
    std::thread m_oThread;
};

template<class FCall>
double Seconds(FCall fnCall)
{
    const auto oStart = std::chrono::steady_clock::now();
    fnCall();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - oStart).count();
}

long PeakKilobytes()
{
    rusage oUsage{};
    getrusage(RUSAGE_SELF, &oUsage);
    return oUsage.ru_maxrss;
}

std::string MakeFile(const std::string& strPath, std::size_t nSize)
{
    std::string strBlock(std::size_t{1} << 20, '\0');
    for (std::size_t i = 0; i < strBlock.size(); ++i)
        strBlock[i] = static_cast<char>(i * 7 + i / 256);
    std::ofstream oFile(strPath, std::ios::binary);
    for (; nSize > 0; nSize -= strBlock.size())
        oFile << strBlock;
    return strPath;
}

void Send(CQuorvelClientTestSystemCOM& oClient, const std::string& strPath, unsigned int nCRC)
{
    if (oClient.SendFile(strPath, nCRC) != 0x0D21) // the peer always asks for more
        Die("SendFile");
}

int Connect(unsigned short nPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    oAddress.sin_port = htons(nPort);
    if (connect(nSocket, reinterpret_cast<sockaddr*>(&oAddress), sizeof oAddress) != 0)
        Die("connecting");
    NoDelay(nSocket);
    return nSocket;
}

// The telegrams of SendFile's length, from memory, and an answer to each.
void SendPlain(int nSocket)
{
    std::string strTelegram(PIECE + 7, 'x');
    char acAnswer[8];
    for (std::size_t nRest = FILE_SIZE; nRest > 0; nRest -= PIECE) {
        const std::size_t nHead = nRest == FILE_SIZE ? 9 + std::string(NAME).size() : 0;
        strTelegram.resize(PIECE + 7 + nHead, 'x');
        strTelegram[0] = static_cast<char>((PIECE + 5 + nHead) & 0xFF);
        strTelegram[1] = static_cast<char>((PIECE + 5 + nHead) >> 8);
        SendAll(nSocket, strTelegram.data(), strTelegram.size());
        if (!ReceiveAll(nSocket, acAnswer, sizeof acAnswer))
            Die("recv");
    }
}

void Report(const char* pWhat, double dValue, const char* pUnit, const char* pGoal, bool bReached)
{
    std::printf("  %-44s %8.2f %-5s goal %-7s %s\n", pWhat, dValue, pUnit, pGoal,
                bReached ? "met" : "MISSED");
}

// SendFile beside the plain socket, in turns; the best round counts.
void MeasureSending(const std::string& strFile, unsigned int nPeerProcessor, int nRounds)
{
    const CPeer oPeer(nPeerProcessor);
    const CPeer oPlainPeer(nPeerProcessor);
    const int nSocket = Connect(oPlainPeer.GetPort());
    CQuorvelClientTestSystemCOM oClient(10000);
    if (oClient.Connect("127.0.0.1", oPeer.GetPort(), 1, true) != 0)
        Die("connecting");
    double dPlain = 1e9;
    double dGiven = 1e9;
    double dWhole = 1e9;
    for (int i = 0; i < nRounds; ++i) {
        dPlain = std::min(dPlain, Seconds([&] { SendPlain(nSocket); }));
        dGiven = std::min(dGiven, Seconds([&] { Send(oClient, strFile, 1); }));
        dWhole = std::min(dWhole, Seconds([&] { Send(oClient, strFile, 0); }));
    }
    close(nSocket);
    oClient.Close();
    std::printf("64 MiB, peer on %s processor; plain socket %.0f MB/s\n",
                nPeerProcessor == 0 ? "the same" : "another", FILE_SIZE / dPlain / 1e6);
    Report("SendFile / plain, computing the CRC-32", dPlain / dWhole, "", ">= 0.5", dPlain / dWhole >= 0.5);
    Report("SendFile / plain, CRC-32 given", dPlain / dGiven, "", ">= 0.5", dPlain / dGiven >= 0.5);
}

void MeasureMemory(const std::string& strSmall, const std::string& strFile)
{
    const CPeer oPeer(0);
    CQuorvelClientTestSystemCOM oClient(10000);
    if (oClient.Connect("127.0.0.1", oPeer.GetPort(), 1, true) != 0)
        Die("connecting");
    Send(oClient, strSmall, 0);
    const long nPeak = PeakKilobytes();
    Send(oClient, strFile, 0);
    const long nGrowth = PeakKilobytes() - nPeak;
    oClient.Close();
    Report("peak memory for 64 MiB over that for 1 MiB", static_cast<double>(nGrowth) / 1024, "MiB", "<= 1",
           nGrowth <= 1024);
}

void MeasureCRC(const std::string& strFile, int nRounds)
{
    double dBest = 1e9;
    for (int i = 0; i < nRounds; ++i) {
        std::ifstream oFile(strFile, std::ios::binary);
        dBest = std::min(dBest, Seconds([&] { CQuorvelClientTestSystemCOM::GetCRC32(oFile); }));
    }
    const double dSpeed = FILE_SIZE / dBest / 1e9;
    Report("CRC-32 of a file", dSpeed, "GB/s", ">= 1", dSpeed >= 1);
}

} // namespace

int main(int argc, char**)
{
    const int nRounds = argc > 1 ? 1 : 25;
    const std::filesystem::path oDirectory =
        std::filesystem::temp_directory_path() / ("quorvel-bench-" + std::to_string(getpid()));
    std::filesystem::create_directory(oDirectory);
    const std::string strSmall = MakeFile(oDirectory / "small", std::size_t{1} << 20);
    const std::string strFile = MakeFile(oDirectory / NAME, FILE_SIZE);
    StayOn(0);
    MeasureMemory(strSmall, strFile);
    MeasureCRC(strFile, nRounds);
    MeasureSending(strFile, 0, nRounds);
    if (std::thread::hardware_concurrency() > 1)
        MeasureSending(strFile, 1, nRounds);
    std::filesystem::remove_all(oDirectory);
    return 0;
}
