// How many frames a second `quorvel can log` writes into a file without losing one. A thread stands in for the
// gateway and sends frames at a fixed rate, every millisecond as many as are due; the lines of the file are counted
// and their order is looked at.

#include "BenchTelegram.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using CClock = std::chrono::steady_clock;

constexpr const char* ADDRESS = "127.90.3.190";
constexpr unsigned short PORT = 5001;
constexpr int GOAL = 50000; // frames a second

[[noreturn]] void Die(const char* pWhat)
{
    std::perror(pWhat);
    std::exit(2);
}

void SendAll(int nSocket, const std::string& strBytes)
{
    for (std::size_t nSent = 0; nSent < strBytes.size();) {
        const ssize_t n = send(nSocket, strBytes.data() + nSent, strBytes.size() - nSent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        nSent += static_cast<std::size_t>(n);
    }
}

// A frame of 29 bits whose identifier counts, with 8 bytes and a time stamp.
std::string Frame(unsigned nCount)
{
    std::string strData(21, '\x11');
    std::memcpy(strData.data(), &nCount, sizeof nCount);
    strData[4] = 0x05;
    return Telegram(0x0203, 0, strData);
}

// Answers the only request (the CANopen mode), sends the frames, and closes when the client has.
void Serve(int nListener, int nRate, int nFrames)
{
    const int nSocket = accept(nListener, nullptr, nullptr);
    const int nYes = 1;
    setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nYes, sizeof nYes);
    unsigned char anRequest[7];
    if (recv(nSocket, anRequest, sizeof anRequest, MSG_WAITALL) != sizeof anRequest)
        Die("recv");
    SendAll(nSocket, Telegram(0x8261, anRequest[4] + 256U * anRequest[5], std::string(2, '\0')));
    const auto oStart = CClock::now();
    for (int nSent = 0; nSent < nFrames;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const std::chrono::duration<double> oPassed = CClock::now() - oStart;
        const int nDue = static_cast<int>(std::min<double>(nFrames, oPassed.count() * nRate));
        std::string strBytes;
        while (nSent < nDue)
            strBytes += Frame(static_cast<unsigned>(nSent++));
        SendAll(nSocket, strBytes);
    }
    char c = 0;
    while (recv(nSocket, &c, 1, 0) > 0) {
    }
    close(nSocket);
}

// Logs so many frames at a rate. Returns how many are in the file, in their order; prints what it took.
int Log(int nListener, int nRate, int nFrames, const std::string& strFile)
{
    std::thread oGateway(Serve, nListener, nRate, nFrames);
    const auto oStart = CClock::now();
    const pid_t nProcess = fork();
    if (nProcess == 0) {
        const std::string strCount = std::to_string(nFrames);
        execl(QUORVEL_COMMAND, "quorvel", "-q", "-g", ADDRESS, "can", "log", "-n", strCount.c_str(), "-T",
              "2000", strFile.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int nStatus = 0;
    rusage oUsage{};
    if (nProcess < 0 || wait4(nProcess, &nStatus, 0, &oUsage) != nProcess || nStatus != 0) {
        std::fprintf(stderr, "quorvel ended with status 0x%04x\n", static_cast<unsigned>(nStatus));
        std::exit(2);
    }
    const std::chrono::duration<double> oTime = CClock::now() - oStart;
    oGateway.join();
    std::ifstream oLog(strFile);
    unsigned nLines = 0;
    for (std::string strLine; std::getline(oLog, strLine); ++nLines) {
        char acFrame[40];
        std::snprintf(acFrame, sizeof acFrame, " can0 %08X#1111111111111111", nLines);
        if (!strLine.ends_with(acFrame)) {
            std::printf("line %u is %s\n", nLines + 1, strLine.c_str());
            break;
        }
    }
    const double dCpu = static_cast<double>(oUsage.ru_utime.tv_sec + oUsage.ru_stime.tv_sec) +
                        static_cast<double>(oUsage.ru_utime.tv_usec + oUsage.ru_stime.tv_usec) / 1e6;
    std::printf("| %d | %d | %u | %.2f | %.0f |\n", nRate, nFrames, nLines, oTime.count(),
                100 * dCpu / oTime.count());
    std::fflush(stdout);
    return static_cast<int>(nLines);
}

} // namespace

int main(int argc, char** argv)
{
    const bool bQuick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_port = htons(PORT);
    inet_pton(AF_INET, ADDRESS, &oAddress.sin_addr);
    const int nListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int nYes = 1;
    setsockopt(nListener, SOL_SOCKET, SO_REUSEADDR, &nYes, sizeof nYes);
    if (bind(nListener, reinterpret_cast<sockaddr*>(&oAddress), sizeof oAddress) != 0 ||
        listen(nListener, 1) != 0)
        Die("listen");
    char acDirectory[] = "/tmp/can_log_bench.XXXXXX";
    if (mkdtemp(acDirectory) == nullptr)
        Die("mkdtemp");
    const std::string strFile = std::string(acDirectory) + "/frames.log";

    std::printf(
        "| frames a second | sent | in the file | seconds | processor, %% |\n|---:|---:|---:|---:|---:|\n");
    int nBest = 0;
    const double dSeconds = bQuick ? 0.5 : 10;
    for (const int nRate : {GOAL, 100000, 200000, 400000, 800000}) {
        const int nFrames = static_cast<int>(nRate * dSeconds);
        if (Log(nListener, nRate, nFrames, strFile) != nFrames)
            break;
        nBest = nRate;
        if (bQuick)
            break;
    }
    unlink(strFile.c_str());
    rmdir(acDirectory);
    close(nListener);
    std::printf("\nframes a second at which nothing was lost: %d, goal %d: %s\n", nBest, GOAL,
                nBest >= GOAL ? "met" : "MISSED");
    return 0;
}
