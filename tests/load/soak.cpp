// All commands of all clients for a given time, with good gateways and with bad ones: clients come and go, answers are
// late, lost, spoiled, connections are reset, gateways restart. The gateways are processes of their own, so what grows
// here is the library's.
//
// usage: quorvel_soak SECONDS SIMULATOR

#include "../EveryCommand.h"
#include "Process.h"

#include <filesystem>
#include <map>
#include <random>

#include <malloc.h>

namespace
{

// Two simulators, for this process alone.
const std::string GOOD = "127.4" + OwnAddress().substr(5);
const std::string BAD = "127.5" + OwnAddress().substr(5);
const char* const FAULTS =
    "drop@7-8;delay=150@15-20;badcrc@30;badcode@31;badid@32;truncate=0@40;truncate=2@41-44;"
    "duplicate@50-60;glue=2@70-71;split=3@80-120;flood=20@125;refuse=0x21@130-135;"
    "longlength@180;reset@190";

std::atomic<bool> g_bEnd{false};

struct SCounts {
    unsigned long nConnects = 0;
    unsigned long nCommands = 0;
    std::map<int, unsigned long> anErrors; // by result code
};

// One thread's life: client after client, each for some hundred commands.
void Live(const SKind& oKind, bool bGood, SCounts& oCounts)
{
    std::mt19937 oRandom(static_cast<unsigned int>(oKind.nKind));
    while (!g_bEnd) {
        const std::unique_ptr<CQuorvelClient> pClient = oKind.pNewClient();
        SetTimeout(*pClient, bGood ? 2000 : 100);
        SOut oOut;
        int nLost = 0; // answers, one after the other
        oOut.nWait = 100;
        for (unsigned long i = 0; i < 300 && !g_bEnd; ++i) {
            if (pClient->GetConnectState() != 3 || i % 100 == 50 || nLost > 2) {
                pClient->Disconnect();
                nLost = 0;
                ++oCounts.nConnects;
                int nRC = pClient->Connect((bGood ? GOOD : BAD).c_str(), 0, 1, true);
                nRC = nRC != 0 ? nRC : pClient->Open();
                if (nRC != 0) {
                    ++oCounts.anErrors[nRC];
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                    continue;
                }
                oKind.pSetup(*pClient, oOut);
            }
            const SCommand& oCommand = oKind.aoCommands[oRandom() % oKind.aoCommands.size()];
            if (oCommand.strName.find("Restart") != std::string::npos && oRandom() % 20 != 0)
                continue;
            oOut.v.clear();
            ++oCounts.nCommands;
            try {
                const int nRC = oCommand.pRun(*pClient, oOut);
                nLost = nRC == 0x00040000 ? nLost + 1 : 0;
                if (nRC != 0)
                    ++oCounts.anErrors[nRC];
            } catch (
                const std::out_of_range&) { // the analog client's documented answer to an empty confirmation
                ++oCounts.anErrors[-1];
            }
        }
    }
}

struct SUsage {
    std::size_t nHeap = mallinfo2().uordblks + mallinfo2().hblkhd;
    std::size_t nDescriptors = Count("/proc/self/fd");
    std::size_t nThreads = Count("/proc/self/task");
    std::size_t nResident = Resident();

    static std::size_t Count(const char* pDirectory)
    {
        std::size_t nCount = 0;
        for ([[maybe_unused]] const auto& oEntry : std::filesystem::directory_iterator(pDirectory))
            ++nCount;
        return nCount;
    }
    static std::size_t Resident()
    {
        std::size_t nPages = 0;
        std::ifstream("/proc/self/statm") >> nPages >> nPages;
        return nPages * static_cast<std::size_t>(getpagesize());
    }
};

// All kinds at both simulators for some time; nothing of it is left when it returns.
void Round(int nSeconds, std::map<int, SCounts>& aoGood, std::map<int, SCounts>& aoBad)
{
    std::map<std::pair<std::size_t, bool>, SCounts> aoCounts;
    g_bEnd = false;
    std::vector<std::thread> aoThreads;
    for (std::size_t i = 0; i < Kinds().size(); ++i) {
        for (const bool bGood : {true, false})
            aoThreads.emplace_back(Live, std::cref(Kinds()[i]), bGood, std::ref(aoCounts[{i, bGood}]));
    }
    std::this_thread::sleep_for(std::chrono::seconds(nSeconds));
    g_bEnd = true;
    for (std::thread& oThread : aoThreads)
        oThread.join();
    for (const auto& [oKey, oCounts] : aoCounts) {
        SCounts& oSum = (oKey.second ? aoGood : aoBad)[Kinds()[oKey.first].nKind];
        oSum.nConnects += oCounts.nConnects;
        oSum.nCommands += oCounts.nCommands;
        for (const auto& [nRC, nCount] : oCounts.anErrors)
            oSum.anErrors[nRC] += nCount;
    }
}

void Print(const char* pTitle, const std::map<int, SCounts>& aoCounts)
{
    std::printf("%s\n", pTitle);
    for (const auto& [nKind, oCounts] : aoCounts) {
        std::printf("  kind %2d %8lu commands %6lu connections", nKind, oCounts.nCommands, oCounts.nConnects);
        for (const auto& [nRC, nCount] : oCounts.anErrors)
            std::printf(" %08x:%lu", static_cast<unsigned int>(nRC), nCount);
        std::printf("\n");
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int nSeconds = argc == 3 ? std::atoi(argv[1]) : 0;
    if (nSeconds <= 0) {
        std::fprintf(stderr, "usage: quorvel_soak SECONDS SIMULATOR\n");
        return 2;
    }
    const auto fnStart = [argv](const std::string& strAddress, const char* pFaults) {
        return std::make_unique<CProcess>(std::vector<const char*>{
            argv[2], "--address", strAddress.c_str(), "--max-connections", "1000", "--fault", pFaults});
    };
    const auto pGood = fnStart(GOOD, "");
    const auto pBad = fnStart(BAD, FAULTS);
    std::map<int, SCounts> aoGood;
    std::map<int, SCounts> aoBad;
    Round(std::max(1, nSeconds / 6), aoGood, aoBad); // fills the tables, here and in the C library
    malloc_trim(0);
    const SUsage oStart;
    Round(nSeconds - nSeconds / 6, aoGood, aoBad);
    malloc_trim(0);
    const SUsage oEnd;
    Print("good gateways", aoGood);
    Print("bad gateways", aoBad);
    std::printf("%-12s %12s %12s\n", "", "start", "end");
    std::printf("%-12s %12zu %12zu bytes\n", "heap", oStart.nHeap, oEnd.nHeap);
    std::printf("%-12s %12zu %12zu bytes\n", "resident", oStart.nResident, oEnd.nResident);
    std::printf("%-12s %12zu %12zu\n", "descriptors", oStart.nDescriptors, oEnd.nDescriptors);
    std::printf("%-12s %12zu %12zu\n", "threads", oStart.nThreads, oEnd.nThreads);
    bool bGood = oEnd.nDescriptors == oStart.nDescriptors && oEnd.nThreads == oStart.nThreads &&
                 oEnd.nHeap <= oStart.nHeap + 8192; // a line of the table of errors, at most
    for (const auto& [nKind, oCounts] : aoGood)
        bGood = bGood && oCounts.nCommands > oCounts.anErrors.size();
    std::printf("%s\n", bGood ? "no growth" : "GROWTH");
    return bGood ? 0 : 1;
}
