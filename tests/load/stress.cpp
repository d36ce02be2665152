// Many threads at everything that may be done at any time from any thread, for a given time. The thread sanitizer finds
// what is not guarded, and this program what does not work or does not end.
//
// usage: quorvel_stress SECONDS

#include "../ConnectedTest.h"
#include "DeviceManager.h"
#include "QuorvelClientAWire.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelDllSPI.h"
#include "Simulator.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

namespace
{

constexpr int TIMEOUT = 10000;
const std::string g_strAddress = OwnAddress();
const std::string g_strFile = testing::TempDir() + "quorvel-stress-" + std::to_string(getpid());

std::atomic<bool> g_bEnd{false};
std::atomic<int> g_nFailures{0};
std::atomic<unsigned long> g_nFrames{0};

void Expect(bool bGood, const char* pWhat, int nRC = 0)
{
    if (!bGood && ++g_nFailures < 20)
        std::printf("wrong: %s, 0x%08x\n", pWhat, static_cast<unsigned int>(nRC));
}

// Every call counts; each must be good, so a thread that no longer comes through is seen as well.
void Repeat(unsigned long& nCount, const std::function<void(unsigned long)>& fnRun)
{
    while (!g_bEnd)
        fnRun(nCount++);
}

template<class TClient>
bool Connect(TClient& oClient)
{
    const int nRC = oClient.Connect(g_strAddress.c_str(), 0, 1, true);
    Expect(nRC == 0, "connect", nRC);
    return nRC == 0 && oClient.CQuorvelClient::Open() == 0;
}

void OnFrame(unsigned int, const char*, int, int, int, int, int)
{
    ++g_nFrames;
}

void CloseOwnHandle(unsigned int, const char*, int, int, int nHandle)
{
    CDeviceManager::CloseDevice(nHandle);
}

// One CAN client that all of the next functions use at a time, while frames stream in.
CQuorvelClientCANDll* g_pCAN = nullptr;

void ExchangeOnShared(unsigned long)
{
    unsigned int nBaudrate = 0;
    unsigned char nMode = 0;
    bool abFlags[3];
    const int nRC = g_pCAN->GetGlobals(nBaudrate, nMode, abFlags[0], abFlags[1], abFlags[2]);
    Expect(nRC == 0 && nBaudrate == 500000, "exchange on a shared client", nRC);
}

void SetCallbacks(unsigned long n)
{
    g_pCAN->SetCallbackEx(n % 2 == 0 ? OnFrame : nullptr);
    g_pCAN->CANopenSetCallback(nullptr, nullptr, nullptr, nullptr, nullptr);
    std::this_thread::yield();
}

void ResizeQueues(unsigned long n)
{
    g_pCAN->SetMaxSizePerQueue(static_cast<unsigned int>(n % 3 * 50));
    std::this_thread::yield();
}

void ReadQueue(unsigned long)
{
    char acData[72];
    if (g_pCAN->CANGetMessage(nullptr, acData, nullptr, nullptr, nullptr, nullptr) >= 0)
        ++g_nFrames;
    else
        std::this_thread::yield();
}

void SendFrames(unsigned long)
{
    static CQuorvelClientCANDll s_oSender(0, TIMEOUT);
    if (s_oSender.GetConnectState() != 3 && (!Connect(s_oSender) || s_oSender.Open(false, false) != 0))
        return;
    for (int i = 0; i < 20; ++i)
        Expect(s_oSender.Write(0x123, "12345678", 8, 0, nullptr, nullptr) == 0, "send a frame");
    ExchangeOnShared(0); // paces the flood
}

void ChangeSink(unsigned long n)
{
    static std::atomic<unsigned long> s_nTraces{0};
    CTraceServer::SetSink(
        [](const STraceMessage& oMessage) {
            s_nTraces += oMessage.pText != nullptr ? 1 : 0;
            CDeviceManager::GetDevice(1);
        },
        n % 2 == 0 ? 0xFF : 0);
    if (n % 4 == 3)
        CTraceServer::SetSink({});
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void OpenUseClose(unsigned long)
{
    int nHandle = 0;
    int nRC = SPIOpenDevice(&nHandle, g_strAddress.c_str(), TIMEOUT);
    Expect(nRC == 0, "open a handle", nRC);
    char acID[4] = {};
    nRC = SPIDataReq(nHandle, "\x9f", 1, acID, 4);
    Expect(nRC == 0 && acID[1] == '\xC2', "use a handle", nRC);
    Expect(SPICloseDevice(nHandle) == 0, "close a handle");
}

void CloseFromCallback(unsigned long)
{
    int nHandle = 0;
    const int nRC =
        CDeviceManager::OpenDevice(&nHandle, g_strAddress.c_str(), TIMEOUT, eDeviceCAN, 0, 1, true);
    Expect(nRC == 0, "open a handle that closes itself", nRC);
    if (nRC == 0)
        static_cast<CQuorvelClientCANDll*>(CDeviceManager::GetDevice(nHandle)->m_pClient)
            ->SetCallback(CloseOwnHandle);
    Expect(WaitUntil([&] { return g_bEnd || CDeviceManager::GetDevice(nHandle) == nullptr; }),
           "close in a callback");
    CDeviceManager::CloseDevice(nHandle); // at the end there may be no more frames
}

void AbandonTransfer(unsigned long n)
{
    CQuorvelClientAWire oClient(TIMEOUT);
    if (!Connect(oClient))
        return;
    Expect(oClient.WriteFile(g_strFile) == 0, "begin a transfer");
    auto eStep = CQuorvelClientAWire::FileStep::eNotStarted;
    unsigned char nPercent = 0;
    while (nPercent < n % 50 && oClient.GetWriteFileStatus(eStep, nPercent) == 0 && !g_bEnd)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
} // the destructor ends it half-way

void CloseDuringSendFile(unsigned long)
{
    CQuorvelClientTestSystemCOM oClient(300); // nobody wakes a caller whose connection is closed
    if (!Connect(oClient))
        return;
    std::thread oCloser([&] { oClient.Close(); });
    const int nRC = oClient.SendFile(g_strFile);
    Expect(nRC == 0 || nRC == 0x00030000 || nRC == 0x00020000 || nRC == 0x00040000, "send a file", nRC);
    oCloser.join();
}

void ResetByGateway(unsigned long n)
{
    CQuorvelClient oClient(eDeviceI2C, 200);
    if (!Connect(oClient))
        return;
    std::string strStatus;
    int nRC = 0;
    for (unsigned long i = 0; i < n % 5 && nRC == 0; ++i)
        nRC = oClient.Status(strStatus);
    Expect(nRC == 0 || (nRC & 0x00FF0000) != 0, "exchange that may be reset", nRC);
}

} // namespace

int main(int argc, char** argv)
{
    const int nSeconds = argc == 2 ? std::atoi(argv[1]) : 0;
    if (nSeconds <= 0) {
        std::fprintf(stderr, "usage: quorvel_stress SECONDS\n");
        return 2;
    }
    std::ofstream(g_strFile) << std::string(200000, 'x');
    CSimulator oSimulator(g_strAddress);
    std::string strError;
    if (!oSimulator.Start(strError) ||
        !oSimulator.GetGateway(eDeviceI2C)->SetFaultPlan("reset@4", strError)) {
        std::fprintf(stderr, "%s\n", strError.c_str());
        return 1;
    }
    for (const auto& pGateway : oSimulator.GetGateways())
        pGateway->SetMaxConnections(1000);
    CQuorvelClientCANDll oCAN(1, TIMEOUT);
    if (!Connect(oCAN) || oCAN.SetGlobals(500000, 0, false, true, true) != 0)
        return 1;
    g_pCAN = &oCAN;

    struct SJob {
        const char* pName;
        std::function<void(unsigned long)> fnRun;
        int nThreads;
    };
    const SJob aoJobs[] = {
        {"exchanges on a shared client", ExchangeOnShared, 2},
        {"callbacks set and cleared", SetCallbacks, 1},
        {"queues resized", ResizeQueues, 1},
        {"frames read from the queue", ReadQueue, 2},
        {"frames sent, by twenties", SendFrames, 1},
        {"trace sinks changed", ChangeSink, 1},
        {"handles opened, used, closed", OpenUseClose, 3},
        {"handles closed in a callback", CloseFromCallback, 1},
        {"transfers destroyed half-way", AbandonTransfer, 1},
        {"connections closed in a transfer", CloseDuringSendFile, 1},
        {"connections reset by the gateway", ResetByGateway, 1},
    };
    std::map<const char*, std::vector<std::unique_ptr<unsigned long>>> aoCounts;
    std::vector<std::thread> aoThreads;
    for (const SJob& oJob : aoJobs) {
        for (int i = 0; i < oJob.nThreads; ++i) {
            aoCounts[oJob.pName].push_back(std::make_unique<unsigned long>(0));
            aoThreads.emplace_back(Repeat, std::ref(*aoCounts[oJob.pName].back()), oJob.fnRun);
        }
    }
    std::this_thread::sleep_for(std::chrono::seconds(nSeconds));
    g_bEnd = true;
    for (std::thread& oThread : aoThreads)
        oThread.join();
    CTraceServer::SetSink({});
    for (const SJob& oJob : aoJobs) {
        unsigned long nSum = 0;
        for (const auto& pCount : aoCounts[oJob.pName])
            nSum += *pCount;
        std::printf("%-34s %10lu\n", oJob.pName, nSum);
        Expect(nSum > 0, oJob.pName);
    }
    std::printf("%-34s %10lu\n%-34s %10d\n", "frames received", g_nFrames.load(), "failures",
                g_nFailures.load());
    unlink(g_strFile.c_str());
    return g_nFailures == 0 ? 0 : 1;
}
