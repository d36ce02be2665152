// Runs the measurements and prints what came out beside what it should be. A missed goal is told, not
// punished: the result depends on the machine and on who else uses it.

#include "Cases.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace
{

// Keeps every counter of every run.
class CCollector : public benchmark::BenchmarkReporter
{
  public:
    bool ReportContext(const Context& /*oContext*/) override { return true; }

    void ReportRuns(const std::vector<Run>& aoRuns) override
    {
        for (const Run& oRun : aoRuns) {
            if (oRun.error_occurred) {
                std::fprintf(stderr, "%s: %s\n", oRun.benchmark_name().c_str(), oRun.error_message.c_str());
                m_bFailed = true;
            }
            for (const auto& [strCounter, oValue] : oRun.counters)
                m_aanValues[oRun.run_name.function_name +
                            (oRun.run_name.args.empty() ? "" : "/" + oRun.run_name.args)][strCounter]
                    .push_back(oValue);
        }
    }

    // The values of all rounds, the smallest first.
    std::vector<double> Sorted(const std::string& strCase, const char* pCounter)
    {
        std::vector<double>& anValues = m_aanValues[strCase][pCounter];
        if (anValues.empty()) {
            m_bFailed = true;
            anValues.push_back(0);
        }
        std::sort(anValues.begin(), anValues.end());
        return anValues;
    }

    double Best(const std::string& strCase, const char* pCounter)
    {
        return Sorted(strCase, pCounter).front();
    }

    bool HasFailed() const { return m_bFailed; }

  private:
    std::map<std::string, std::map<std::string, std::vector<double>>> m_aanValues;
    bool m_bFailed = false;
};

constexpr const char* pHeading = "\n| | measured | goal | |\n|---|---:|---:|---|\n";
constexpr const char* pPlaces[] = {"on the same processor", "on another processor"};

// A case's name as the library of measurements writes it.
std::string Name(const char* pCase, std::initializer_list<int> anArguments)
{
    std::string strName = pCase;
    for (const int nArgument : anArguments)
        strName += "/" + std::to_string(nArgument);
    return strName;
}

const char* Verdict(bool bMet)
{
    return bMet ? "met" : "MISSED";
}

// Cases that took turns, and how they compare.
class CComparison
{
  public:
    CComparison(CCollector& oCollector, const char* pCounter) : m_oCollector(oCollector), m_pCounter(pCounter)
    {
        std::printf("\n| | best round | middle | worst |\n|---|---:|---:|---:|\n");
    }

    void Print(const char* pText, const std::string& strCase)
    {
        const std::vector<double> anValues = m_oCollector.Sorted(strCase, m_pCounter);
        std::printf("| %s | %.1f | %.1f | %.1f |\n", pText, anValues.front(), Middle(anValues),
                    anValues.back());
    }

    // One case's time by another's: of the best rounds, which is judged, and of the middle ones.
    void PrintRatio(const char* pText, const std::string& strCase, const std::string& strOther, double nGoal,
                    bool bAtLeast = false)
    {
        const std::vector<double> anCase = m_oCollector.Sorted(strCase, m_pCounter);
        const std::vector<double> anOther = m_oCollector.Sorted(strOther, m_pCounter);
        const double nRatio = anCase.front() / anOther.front();
        if (!m_bRatios)
            std::printf("\n| | best rounds | middle rounds | goal | |\n|---|---:|---:|---:|---|\n");
        m_bRatios = true;
        std::printf("| %s | %.2f | %.2f | at %s %.2f | %s |\n", pText, nRatio,
                    Middle(anCase) / Middle(anOther), bAtLeast ? "least" : "most", nGoal,
                    Verdict(bAtLeast ? nRatio >= nGoal : nRatio <= nGoal));
    }

  private:
    static double Middle(const std::vector<double>& anSorted) { return anSorted[anSorted.size() / 2]; }

    CCollector& m_oCollector;
    const char* m_pCounter;
    bool m_bRatios = false;
};

void PrintLatency(CCollector& oCollector)
{
    for (const int nApart : {0, 1}) {
        const std::string strPlain = Name("latency/plain", {nSmallTransfer, nApart});
        const std::string strModbus = Name("latency/libmodbus", {nSmallTransfer, nApart});
        const std::string strLibrary = Name("latency/library", {nSmallTransfer, nApart});
        std::printf("\nLatency of an exchange of 8 bytes, peer %s, median of a round, microseconds\n",
                    pPlaces[nApart]);
        CComparison oComparison(oCollector, "us");
        oComparison.Print("A plain send and recv", strPlain);
        oComparison.Print("B libmodbus, 4 registers", strModbus);
        oComparison.Print("C `CQuorvelClientSPI::DataReq`", strLibrary);
        oComparison.PrintRatio("C / A", strLibrary, strPlain, 1.35);
        oComparison.PrintRatio("C / B", strLibrary, strModbus, 0.85);
    }
}

void PrintLarge(CCollector& oCollector)
{
    for (const int nApart : {0, 1}) {
        const std::string strPlain = Name("large/plain", {nLargeTransfer, nApart});
        const std::string strLibrary = Name("large/library", {nLargeTransfer, nApart});
        std::printf("\nOne transfer of 60,000 bytes, peer %s, median of a round, microseconds\n",
                    pPlaces[nApart]);
        CComparison oComparison(oCollector, "us");
        oComparison.Print("plain send and recv", strPlain);
        oComparison.Print("`CQuorvelClientSPI::DataReq`", strLibrary);
        // Bytes per second are the inverse of the time.
        oComparison.PrintRatio("bytes per second, library / plain", strPlain, strLibrary, 0.8, true);
        std::printf("\n%.0f million bytes per second each way.\n",
                    nLargeTransfer / oCollector.Best(strLibrary, "us"));
    }
}

void PrintOutstanding(CCollector& oCollector)
{
    std::printf("\nSequences outstanding, collected in random order, nanoseconds per confirmation\n");
    CComparison oComparison(oCollector, "ns");
    oComparison.Print("collecting alone, 200", Name("outstanding/collect", {nFewOutstanding}));
    oComparison.Print("collecting alone, 20,000", Name("outstanding/collect", {nManyOutstanding}));
    oComparison.Print("sending and collecting, 200", Name("outstanding/all", {nFewOutstanding}));
    oComparison.Print("sending and collecting, 20,000", Name("outstanding/all", {nManyOutstanding}));
    oComparison.PrintRatio("20,000 / 200, collecting alone", Name("outstanding/collect", {nManyOutstanding}),
                           Name("outstanding/collect", {nFewOutstanding}), 2);
    oComparison.PrintRatio("20,000 / 200, sending and collecting",
                           Name("outstanding/all", {nManyOutstanding}),
                           Name("outstanding/all", {nFewOutstanding}), 2);
}

void PrintAllocations(CCollector& oCollector)
{
    std::printf("\nHeap allocations per exchange, no trace sink\n%s", pHeading);
    for (const int nLen : {nSmallTransfer, nMediumTransfer}) {
        const double nCount = oCollector.Best(Name("allocations", {nLen}), "allocations");
        std::printf("| %d bytes | %.2f | at most 6 | %s |\n", nLen, nCount, Verdict(nCount <= 6));
    }
}

void PrintGateways(CCollector& oCollector, const SEffort& oEffort)
{
    std::printf("\n%d gateways open in one process, each used by a thread of its own\n%s", oEffort.nGateways,
                pHeading);
    const double nErrors = oCollector.Best("gateways", "errors");
    const double nKiB = oCollector.Best("gateways", "kib");
    const double nIdle = oCollector.Best("gateways", "idle_us");
    std::printf("| errors | %.0f | 0 | %s |\n", nErrors, Verdict(nErrors == 0));
    std::printf("| private memory per connection, KiB | %.1f | below 150 | %s |\n", nKiB,
                Verdict(nKiB < 150));
    const double nWakeUps = oCollector.Best("gateways", "wake_ups");
    std::printf("| threads woken in %d ms of idling | %.0f | 0 | %s |\n", oEffort.nIdleMilliSeconds, nWakeUps,
                Verdict(nWakeUps == 0));
    // The time is a difference of four readings of a clock that counts microseconds.
    std::printf("| processor time meanwhile, microseconds | %.0f | 0 | %s |\n", nIdle, Verdict(nIdle < 4));
}

} // namespace

int main(int argc, char** argv)
{
    SEffort oEffort;
    std::string strOnly;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            oEffort = {2, 200, 1, 50, 20, 200};
        } else if (argv[i][0] != '-' && strOnly.empty()) {
            strOnly = argv[i];
        } else {
            std::fprintf(stderr, "usage: %s [--quick] [gateways|allocations|latency|large|outstanding]\n",
                         argv[0]);
            return 2;
        }
    }
    RegisterCases(oEffort);

    // Memory first, before anything else has filled the heap.
    const std::vector<std::pair<const char*, int>> aoGroups = {{"gateways", 1},
                                                               {"allocations", 1},
                                                               {"latency", oEffort.nRounds},
                                                               {"large", oEffort.nRounds},
                                                               {"outstanding", oEffort.nOutstandingRounds}};
    CCollector oCollector;
    for (const auto& [pGroup, nRounds] : aoGroups) {
        if (!strOnly.empty() && strOnly != pGroup)
            continue;
        for (int i = 0; i < nRounds; ++i)
            benchmark::RunSpecifiedBenchmarks(&oCollector, std::string("^") + pGroup);
        if (std::strcmp(pGroup, "latency") == 0)
            PrintLatency(oCollector);
        else if (std::strcmp(pGroup, "large") == 0)
            PrintLarge(oCollector);
        else if (std::strcmp(pGroup, "outstanding") == 0)
            PrintOutstanding(oCollector);
        else if (std::strcmp(pGroup, "allocations") == 0)
            PrintAllocations(oCollector);
        else
            PrintGateways(oCollector, oEffort);
        std::fflush(stdout);
    }
    return oCollector.HasFailed() ? 1 : 0;
}
