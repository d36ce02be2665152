// How fast files go to a test system: the CRC-32 of a file, and SendFile against a plain socket that moves the
// same bytes with the same number of round trips. Prints each figure with its goal; ends with 1 when one is missed.

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
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::size_t FILE_SIZE = std::size_t{64} << 20;
constexpr std::size_t PIECE = 32768;
constexpr int ROUNDS = 9;
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

// A gateway that asks for piece after piece and looks at nothing.
class CPeer
{
  public:
    CPeer()
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
        m_oThread = std::thread([this] { Serve(); });
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

double Median(std::vector<double> adValues)
{
    std::sort(adValues.begin(), adValues.end());
    return adValues[adValues.size() / 2];
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

bool Report(const char* pWhat, double dValue, const char* pUnit, const char* pGoal, bool bReached)
{
    std::printf("%-44s %9.2f %-5s goal %-8s %s\n", pWhat, dValue, pUnit, pGoal,
                bReached ? "reached" : "MISSED");
    return bReached;
}

} // namespace

int main()
{
    const std::filesystem::path oDirectory =
        std::filesystem::temp_directory_path() / ("quorvel-bench-" + std::to_string(getpid()));
    std::filesystem::create_directory(oDirectory);
    const std::string strSmall = MakeFile(oDirectory / "small", std::size_t{1} << 20);
    const std::string strFile = MakeFile(oDirectory / NAME, FILE_SIZE);

    const CPeer oPeer;
    const CPeer oPlainPeer;
    const int nSocket = Connect(oPlainPeer.GetPort());
    CQuorvelClientTestSystemCOM oClient(10000);
    if (oClient.Connect("127.0.0.1", oPeer.GetPort(), 1, true) != 0)
        Die("connecting");

    Send(oClient, strSmall, 0);
    const long nPeak = PeakKilobytes();
    Send(oClient, strFile, 0);
    const long nGrowth = PeakKilobytes() - nPeak;

    std::vector<double> adCRC;
    std::vector<double> adPlain;
    std::vector<double> adGiven;
    std::vector<double> adWhole;
    for (int i = 0; i < ROUNDS; ++i) {
        std::ifstream oFile(strFile, std::ios::binary);
        adCRC.push_back(Seconds([&] { CQuorvelClientTestSystemCOM::GetCRC32(oFile); }));
        adPlain.push_back(Seconds([&] { SendPlain(nSocket); }));
        adGiven.push_back(Seconds([&] { Send(oClient, strFile, 1); }));
        adWhole.push_back(Seconds([&] { Send(oClient, strFile, 0); }));
    }
    close(nSocket);
    oClient.Close();
    std::filesystem::remove_all(oDirectory);

    const double dCRC = FILE_SIZE / Median(adCRC) / 1e9;
    const double dPlain = Median(adPlain);
    const double dGiven = dPlain / Median(adGiven);
    const double dWhole = dPlain / Median(adWhole);
    std::printf("64 MiB, medians of %d; plain socket: %.0f MB/s\n", ROUNDS, FILE_SIZE / dPlain / 1e6);
    bool bAll = Report("CRC-32 of a file", dCRC, "GB/s", ">= 1", dCRC >= 1);
    bAll = Report("SendFile / plain socket, with its CRC-32", dWhole, "", ">= 0.5", dWhole >= 0.5) && bAll;
    bAll = Report("SendFile / plain socket, CRC-32 given", dGiven, "", ">= 0.5", dGiven >= 0.5) && bAll;
    bAll = Report("memory for 63 MiB more", static_cast<double>(nGrowth) / 1024, "MiB", "<= 1",
                  nGrowth <= 1024) &&
           bAll;
    return bAll ? 0 : 1;
}
