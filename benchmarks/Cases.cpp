#include "Cases.h"

#include "Allocations.h"
#include "Links.h"
#include "Peer.h"
#include "QuorvelClientSPI.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <modbus/modbus-tcp.h>
#include <sys/resource.h>

namespace
{

constexpr int nTimeout = 20000;
constexpr int nWarmUp = 200;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// One iteration is one exchange. Leaves the median in microseconds.
template<class FExchange>
void TimeExchanges(benchmark::State& oState, FExchange fnExchange)
{
    for (int i = 0; i < nWarmUp; ++i) {
        if (!fnExchange()) {
            oState.SkipWithError("exchange failed");
            return;
        }
    }
    std::vector<double> anTimes;
    anTimes.reserve(static_cast<std::size_t>(oState.max_iterations));
    for (auto _ : oState) {
        const double nStart = Now();
        const bool bOk = fnExchange();
        const double nTime = Now() - nStart;
        if (!bOk) {
            oState.SkipWithError("exchange failed");
            return;
        }
        oState.SetIterationTime(nTime);
        anTimes.push_back(nTime);
    }
    const auto itMedian = anTimes.begin() + static_cast<std::ptrdiff_t>(anTimes.size() / 2);
    std::nth_element(anTimes.begin(), itMedian, anTimes.end());
    oState.counters["us"] = *itMedian * 1e6;
}

CPeer::EPlacement Placement(const benchmark::State& oState)
{
    return oState.range(1) != 0 ? CPeer::eApart : CPeer::eTogether;
}

template<class TLink>
void TimeLink(benchmark::State& oState)
{
    const CPeer oPeer(CPeer::eTelegram, Placement(oState));
    TLink oLink(oPeer, static_cast<std::size_t>(oState.range(0)));
    TimeExchanges(oState, [&] { return oLink.Exchange(); });
}

bool ConnectClient(CQuorvelClientSPI& oClient, const CPeer& oPeer)
{
    return oClient.Connect(CPeer::GetHost(), oPeer.GetPort(), 1, true) == 0 && oClient.Open() == 0;
}

// A full-duplex transfer through the library; the peer sends back what was written.
class CTransfer
{
  public:
    explicit CTransfer(std::size_t nLen) : m_strWrite(nLen, '\x5A'), m_strRead(nLen, '\0') {}

    bool Run(CQuorvelClientSPI& oClient)
    {
        const auto nLen = static_cast<unsigned short>(m_strWrite.size());
        m_strRead[nLen - 1U] = 0;
        return oClient.DataReq(m_strWrite.data(), nLen, m_strRead.data(), nLen) == 0 &&
               m_strRead.back() == '\x5A';
    }

  private:
    std::string m_strWrite;
    std::string m_strRead;
};

void TimeLibrary(benchmark::State& oState)
{
    const CPeer oPeer(CPeer::eTelegram, Placement(oState));
    CQuorvelClientSPI oClient(nTimeout);
    ConnectClient(oClient, oPeer);
    CTransfer oTransfer(static_cast<std::size_t>(oState.range(0)));
    TimeExchanges(oState, [&] { return oTransfer.Run(oClient); });
}

void TimeModbus(benchmark::State& oState)
{
    const CPeer oPeer(CPeer::eModbus, Placement(oState));
    const int nRegisters = static_cast<int>(oState.range(0)) / 2;
    modbus_t* const pModbus = modbus_new_tcp(CPeer::GetHost(), oPeer.GetPort());
    modbus_connect(pModbus);
    uint16_t anRegisters[16];
    TimeExchanges(oState,
                  [&] { return modbus_read_registers(pModbus, 0, nRegisters, anRegisters) == nRegisters; });
    modbus_close(pModbus);
    modbus_free(pModbus);
}

void CountAllocations(benchmark::State& oState)
{
    const CPeer oPeer(CPeer::eTelegram);
    CQuorvelClientSPI oClient(nTimeout);
    ConnectClient(oClient, oPeer);
    CTransfer oTransfer(static_cast<std::size_t>(oState.range(0)));
    for (int i = 0; i < nWarmUp; ++i)
        oTransfer.Run(oClient);
    bool bOk = true;
    const unsigned long long nBefore = GetAllocations();
    for (auto _ : oState)
        bOk = oTransfer.Run(oClient) && bOk;
    const auto nCount = static_cast<double>(GetAllocations() - nBefore);
    if (!bOk)
        oState.SkipWithError("exchange failed");
    oState.counters["allocations"] = nCount / static_cast<double>(oState.iterations());
}

// Counts what has arrived, to begin collecting when all of it has.
class CCountingClient : public CQuorvelClientSPI
{
  public:
    CCountingClient() : CQuorvelClientSPI(nTimeout) {}
    ~CCountingClient() override { StopReception(); }

    void DataInd(const char* pData, unsigned short nLen) override
    {
        CQuorvelClientSPI::DataInd(pData, nLen);
        ++m_nArrived;
        if (m_nArrived == m_nExpected)
            m_nArrived.notify_one();
    }

    void Expect(int nCount)
    {
        m_nArrived = 0;
        m_nExpected = nCount;
    }

    void WaitForAll()
    {
        for (int nArrived = m_nArrived; nArrived != m_nExpected; nArrived = m_nArrived)
            m_nArrived.wait(nArrived);
    }

  private:
    std::atomic<int> m_nArrived{0};
    std::atomic<int> m_nExpected{0};
};

// One iteration sends range(0) sequences and collects their answers in random order. Leaves nanoseconds per
// confirmation: of collecting alone when everything is there before, else of sending and collecting.
void TimeOutstanding(benchmark::State& oState, bool bCollectOnly)
{
    const CPeer oPeer(CPeer::eTelegram);
    CCountingClient oClient;
    ConnectClient(oClient, oPeer);
    const int nCount = static_cast<int>(oState.range(0));
    std::vector<short> anIDs(static_cast<std::size_t>(nCount));
    std::vector<std::size_t> anOrder(anIDs.size());
    for (std::size_t i = 0; i < anOrder.size(); ++i)
        anOrder[i] = i;
    std::shuffle(anOrder.begin(), anOrder.end(), std::mt19937(4711));

    const char acSequence[nSmallTransfer] = {};
    char acAnswer[nSmallTransfer];
    bool bOk = true;
    double nTotal = 0;
    for (auto _ : oState) {
        oClient.Expect(nCount);
        double nStart = Now();
        for (short& nID : anIDs)
            bOk = oClient.SequenceReq(acSequence, sizeof acSequence, &nID) == 0 && bOk;
        if (bCollectOnly) {
            oClient.WaitForAll();
            nStart = Now();
        }
        for (const std::size_t i : anOrder)
            bOk = oClient.SequenceGetCnf(anIDs[i], acAnswer, sizeof acAnswer) == 0 && bOk;
        const double nTime = Now() - nStart;
        oState.SetIterationTime(nTime);
        nTotal += nTime;
    }
    if (!bOk)
        oState.SkipWithError("a confirmation is missing");
    oState.counters["ns"] = nTotal * 1e9 / static_cast<double>(oState.iterations()) / nCount;
}

// Memory that no other process shares, in KiB.
double PrivateMemory()
{
    std::ifstream oFile("/proc/self/smaps_rollup");
    double nSum = 0;
    for (std::string strWord; oFile >> strWord;) {
        double nKiB = 0;
        if ((strWord == "Private_Clean:" || strWord == "Private_Dirty:") && oFile >> nKiB)
            nSum += nKiB;
    }
    return nSum;
}

// What all threads but this one have used so far.
struct SUsage {
    SUsage()
    {
        Add(RUSAGE_SELF, 1);
        Add(RUSAGE_THREAD, -1);
    }

    void Add(int nWho, double nSign)
    {
        rusage oUsage{};
        getrusage(nWho, &oUsage);
        m_nMicroSeconds +=
            nSign * (static_cast<double>(oUsage.ru_utime.tv_sec + oUsage.ru_stime.tv_sec) * 1e6 +
                     static_cast<double>(oUsage.ru_utime.tv_usec + oUsage.ru_stime.tv_usec));
        m_nWakeUps += nSign * static_cast<double>(oUsage.ru_nvcsw + oUsage.ru_nivcsw);
    }

    double m_nMicroSeconds = 0;
    double m_nWakeUps = 0;
};

// Many gateways in one process, each used by a thread of its own for a while, then left alone.
void ManyGateways(benchmark::State& oState, int nGateways, int nIdleMilliSeconds)
{
    const CPeer oPeer(CPeer::eTelegram);
    for (auto _ : oState) {
        std::vector<std::unique_ptr<CQuorvelClientSPI>> aoClients;
        std::vector<std::thread> aoThreads;
        std::atomic<int> nErrors{0};
        const double nMemory = PrivateMemory();
        for (int i = 0; i < nGateways; ++i) {
            aoClients.push_back(std::make_unique<CQuorvelClientSPI>(nTimeout));
            if (!ConnectClient(*aoClients.back(), oPeer))
                ++nErrors;
        }
        for (const auto& pClient : aoClients) {
            aoThreads.emplace_back([&nErrors, &oClient = *pClient] {
                CTransfer oSmall(nSmallTransfer);
                CTransfer oMedium(nMediumTransfer);
                for (int i = 0; i < 50; ++i) {
                    if (!oSmall.Run(oClient) || !oMedium.Run(oClient))
                        ++nErrors;
                }
            });
        }
        for (std::thread& oThread : aoThreads)
            oThread.join();
        const SUsage oBefore;
        std::this_thread::sleep_for(std::chrono::milliseconds(nIdleMilliSeconds));
        const SUsage oAfter;
        oState.counters["idle_us"] = std::max(0.0, oAfter.m_nMicroSeconds - oBefore.m_nMicroSeconds);
        oState.counters["wake_ups"] = oAfter.m_nWakeUps - oBefore.m_nWakeUps;
        oState.counters["kib"] = (PrivateMemory() - nMemory) / nGateways;
        oState.counters["errors"] = nErrors.load();
    }
}

} // namespace

void RegisterCases(const SEffort& oEffort)
{
    using benchmark::RegisterBenchmark;
    RegisterBenchmark("gateways", ManyGateways, oEffort.nGateways, oEffort.nIdleMilliSeconds)->Iterations(1);

    for (const int nLen : {nSmallTransfer, nMediumTransfer})
        RegisterBenchmark("allocations", CountAllocations)->Arg(nLen)->Iterations(oEffort.nExchanges);

    // In the order in which they take turns.
    const auto fnTime = [](const char* pName, auto fnCase, int nLen, int nExchanges, int nApart) {
        RegisterBenchmark(pName, fnCase)->Args({nLen, nApart})->Iterations(nExchanges)->UseManualTime();
    };
    for (const int nApart : {0, 1}) {
        fnTime("latency/plain", TimeLink<CPlainLink>, nSmallTransfer, oEffort.nExchanges, nApart);
        fnTime("latency/libmodbus", TimeModbus, nSmallTransfer, oEffort.nExchanges, nApart);
        fnTime("latency/library", TimeLibrary, nSmallTransfer, oEffort.nExchanges, nApart);
        fnTime("large/plain", TimeLink<CPlainLink>, nLargeTransfer, oEffort.nLargeTransfers, nApart);
        fnTime("large/library", TimeLibrary, nLargeTransfer, oEffort.nLargeTransfers, nApart);
    }

    for (const bool bCollectOnly : {true, false}) {
        for (const int nCount : {nFewOutstanding, nManyOutstanding})
            RegisterBenchmark(bCollectOnly ? "outstanding/collect" : "outstanding/all", TimeOutstanding,
                              bCollectOnly)
                ->Arg(nCount)
                ->Iterations(nManyOutstanding / nCount)
                ->UseManualTime();
    }
}
