// What a hostile gateway, or somebody in its place, can do to a process that has a client connected to it: memory,
// processor time, and the exchanges of another client with an honest gateway. The far side is a process of its own.
//
// usage: quorvel_neighbours [SECONDS]      so long for each; default 1

#include "../ConnectedTest.h"
#include "Process.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientSPI.h"
#include "SimGatewaySPI.h"

#include <algorithm>
#include <ctime>

#include <malloc.h>

namespace
{

using CClock = std::chrono::steady_clock;

double Heap()
{
    const struct mallinfo2 oInfo = mallinfo2();
    return static_cast<double>(oInfo.uordblks + oInfo.hblkhd) / 1024;
}

// What a hostile gateway sends, again and again.
std::string Stream(const std::string& strName)
{
    std::string strStream;
    if (strName == "largest")
        strStream = Telegram(0x8303, 7, std::string(65528, 'x'));
    for (int i = 0; strName == "ids" && i < 65536; ++i)
        strStream += Telegram(0x8303, i, std::string(58, 'x'));
    for (int i = 0; strName == "lies" && i < 300; ++i)
        strStream += std::string(1, static_cast<char>(i)) + std::string(1, static_cast<char>(i % 3)) +
                     std::string(static_cast<std::size_t>(i % 90), '\xff');
    for (int i = 0; strName == "frames" && i < 1000; ++i)
        strStream += Telegram(0x0203, 0, Hex("23 01 00 00 00 08 31 32 33 34 35 36 37 38"));
    return strStream;
}

// The process of a hostile gateway: sends a stream as fast as it goes, and never reads.
int BeHostile(const std::string& strName)
{
    const std::string strStream = Stream(strName);
    CTestPeer oPeer;
    oPeer.StopReading();
    std::printf("%d\n", oPeer.GetPort());
    std::fflush(stdout);
    oPeer.WaitForClient();
    while (!strStream.empty())
        oPeer.Send(strStream);
    pause();
    return 0;
}

// That process, as this one sees it.
class CHostile : public CProcess
{
  public:
    explicit CHostile(const char* pName) : CProcess({"/proc/self/exe", "--hostile", pName}) {}
    unsigned short GetPort() const { return static_cast<unsigned short>(std::stoi(GetPrinted())); }
};

int g_nFailures = 0;

// The median exchange of a client with an honest gateway, in microseconds.
double Exchange(CQuorvelClientSPI& oHonest, double dSeconds)
{
    std::vector<double> adTimes;
    for (const auto oStart = CClock::now();
         CClock::now() - oStart < std::chrono::duration<double>(dSeconds);) {
        const auto oBefore = CClock::now();
        char acID[4] = {};
        if (oHonest.DataReq("\x9f", 1, acID, 4) != 0 || acID[1] != '\xC2')
            ++g_nFailures;
        adTimes.push_back(std::chrono::duration<double, std::micro>(CClock::now() - oBefore).count());
    }
    std::nth_element(adTimes.begin(), adTimes.begin() + static_cast<long>(adTimes.size() / 2), adTimes.end());
    return adTimes[adTimes.size() / 2];
}

// Connects to a hostile gateway that sends a stream, and reports what it costs. dLimit: KiB that it may cost.
template<class FUse>
void Attack(const char* pName, const char* pStream, CQuorvelClientSPI& oHonest, double dSeconds,
            double dQuiet, double dLimit, FUse fnUse)
{
    const CHostile oHostile(pStream);
    CQuorvelClientCANDll oVictim(1, 1000);
    const double dBefore = Heap();
    oVictim.SetMaxSizePerQueue(1000);
    if (oVictim.Connect("127.0.0.1", oHostile.GetPort(), 1, true) != 0)
        ++g_nFailures;
    fnUse(oVictim);
    const double dExchange = Exchange(oHonest, dSeconds);
    const double dGrown = Heap() - dBefore;
    const bool bGood = dGrown <= dLimit;
    g_nFailures += bGood ? 0 : 1;
    std::printf("%-44s %8.0f KiB (limit %5.0f)  exchange %6.1f us, %4.2f x%s\n", pName, dGrown, dLimit,
                dExchange, dExchange / dQuiet, bGood ? "" : "  TOO MUCH");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::string(argv[1]) == "--hostile")
        return BeHostile(argv[2]);
    const double dSeconds = argc > 1 ? std::atof(argv[1]) : 1;
    CSimGatewaySPI oGateway;
    std::string strError;
    if (!oGateway.Start("127.0.0.1", 0, &strError))
        return 1;
    CQuorvelClientSPI oHonest(5000);
    if (oHonest.Connect("127.0.0.1", oGateway.GetPort(), 1, true) != 0 || oHonest.Open() != 0)
        return 1;
    const auto fnNothing = [](CQuorvelClientCANDll&) {};

    {
        std::vector<std::unique_ptr<CHostile>> apSilent;
        std::vector<std::unique_ptr<CQuorvelClientCANDll>> apIdle;
        for (int i = 0; i < 20; ++i) {
            apSilent.push_back(std::make_unique<CHostile>("nothing"));
            apIdle.push_back(std::make_unique<CQuorvelClientCANDll>(i, 1000));
            if (apIdle.back()->Connect("127.0.0.1", apSilent.back()->GetPort(), 1, true) != 0)
                ++g_nFailures;
        }
        const std::clock_t nBefore = std::clock();
        std::this_thread::sleep_for(std::chrono::duration<double>(dSeconds));
        const double dUsed = static_cast<double>(std::clock() - nBefore) / CLOCKS_PER_SEC;
        std::printf("20 idle clients for %.0f s: %.1f ms of processor time\n", dSeconds, dUsed * 1000);
        g_nFailures += dUsed > 0.1 * dSeconds ? 1 : 0;
    }
    const double dQuiet = Exchange(oHonest, dSeconds);
    std::printf("%-44s %33s %6.1f us\n", "nobody hostile", "exchange", dQuiet);

    Attack("the largest telegrams, one id", "largest", oHonest, dSeconds, dQuiet, 1024, fnNothing);
    // One confirmation is kept for each of the 65536 ids.
    Attack("confirmations of 58 bytes under all ids", "ids", oHonest, dSeconds, dQuiet, 65536 * 0.35,
           fnNothing);
    Attack("lengths that lie", "lies", oHonest, dSeconds, dQuiet, 65536, fnNothing);
    Attack("CAN frames for a queue of 1000", "frames", oHonest, dSeconds, dQuiet, 1024, fnNothing);
    Attack("never reads, while 60000 bytes are sent", "nothing", oHonest, dSeconds, dQuiet, 1024,
           [](CQuorvelClientCANDll& oVictim) {
               const CQuorvelMsg oMsg(0x0203, 1, std::string(60000, 'x'));
               int nRC = 0;
               while (nRC == 0)
                   nRC = oVictim.CQuorvelClient::SendMsg(oMsg);
               if (nRC != 0x00040000)
                   ++g_nFailures;
           });
    std::printf("failures: %d\n", g_nFailures);
    return g_nFailures == 0 ? 0 : 1;
}
