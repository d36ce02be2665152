// Every command of every client against everything that can go wrong with its answer.

#include "EveryCommand.h"
#include "Simulator.h"

#include <sstream>

namespace
{

constexpr unsigned short SHORT = 80; // ms, where no answer is to come
constexpr long long MARGIN = 5000;
const std::string strAddress = OwnAddress();

// What is left of the connection: all of it, a stream in which nobody can find the telegrams, or nothing.
enum class ELeft { eAll, eStream, eNothing };

struct SFault {
    std::string strName;
    std::string strPlan; // n is the command's answer, m the next
    int nResult;
    ELeft eLeft = ELeft::eAll;
    bool bKind = false; // the result carries the device kind
};

void PrintTo(const SFault& oFault, std::ostream* pStream)
{
    *pStream << oFault.strPlan;
}

const SFault aoFaults[] = {
    {"twice", "duplicate@n", 0},
    {"glued", "duplicate@n;glue=2@n", 0},
    {"split", "split@n", 0},
    {"flooded", "flood=3@n;split=3@n", 0},
    {"short", "truncate=3@n", 0},
    {"long", "extend=3@n", 0},
    {"empty", "truncate=0@n", 0x000C0000, ELeft::eAll, true},
    {"refused", "refuse=0x7E@n", 0x7E, ELeft::eAll, true},
    {"badcheck", "badcrc@n", 0x000A0000},
    {"badcode", "badcode@n", 0x000B0000},
    {"badid", "badid=0x4000@n", 0x00040000},
    {"dropped", "drop@n", 0x00040000},
    {"shortlength", "truncate=1@n;shortlength@n", 0x000A0000, ELeft::eStream},
    {"longlength", "longlength=1000@n", 0x00040000, ELeft::eStream}, // more than indications fill up
    {"hugelength", "longlength=0xFFFF@n", 0x00040000, ELeft::eStream},
    {"silent", "silent@n", 0x00040000, ELeft::eStream},
    {"reset", "reset@n", 0x00040000, ELeft::eNothing},
    {"halfclosed", "halfclose@n", 0x00040000, ELeft::eNothing},
    {"closed", "close@n", 0x00040000, ELeft::eNothing},
    {"restarted", "restart@n", 0x00040000, ELeft::eNothing},
};

// A client of a kind, set up, and its gateway, on which the plan holds from then on.
struct SSession {
    SSession(const SKind& oKind, CSimGateway& oTheGateway, std::string strPlan)
        : oGateway(oTheGateway), pClient(oKind.pNewClient())
    {
        for (const auto& [pMark, nAnswer] : {std::pair("@n", oKind.nSetup + 2), {"@m", oKind.nSetup + 3}})
            for (std::size_t nPos = 0; (nPos = strPlan.find(pMark)) != std::string::npos;)
                strPlan.replace(nPos + 1, 1, std::to_string(nAnswer));
        std::string strError;
        EXPECT_TRUE(oGateway.Start(strAddress, 0, &strError)) << strError;
        EXPECT_TRUE(oGateway.SetFaultPlan(strPlan, strError)) << strError;
        oGateway.SetRestartTime(0);
        oGateway.SetStatus("good");
        oGateway.SetDeviceInfo("follow-up");
        SOut oOut;
        EXPECT_EQ(0, Connect());
        EXPECT_EQ(0, oKind.pSetup(*pClient, oOut));
        EXPECT_EQ(0, pClient->BaseWriteDigital(0x00030200));
    }
    ~SSession() { oGateway.Stop(); }

    int Connect() const
    {
        const int nRC = pClient->Connect(strAddress.c_str(), oGateway.GetPort(), 1, true);
        return nRC != 0 ? nRC : pClient->Open();
    }

    void SetTimeout(unsigned short nNew) { ::SetTimeout(*pClient, nTimeout = nNew); }

    std::string Run(const SCommand& oCommand) const
    {
        SOut oOut;
        oOut.nWait = nTimeout;
        try {
            return oOut.Text(oCommand.pRun(*pClient, oOut));
        } catch (const std::out_of_range&) {
            return "out of range";
        }
    }

    CSimGateway& oGateway;
    std::unique_ptr<CQuorvelClient> pClient;
    unsigned short nTimeout = LONG;
};

std::string Special(const SCommand& oCommand, const std::string& strName)
{
    std::istringstream oSpecial(oCommand.strSpecial);
    for (std::string strOne; std::getline(oSpecial, strOne, '|');)
        if (strOne.starts_with(strName + ":"))
            return strOne.substr(strName.size() + 1);
    return "";
}

std::string Expected(const SCommand& oCommand, int nResult)
{
    const std::string strOutputs = nResult == 0 ? oCommand.strGood : Special(oCommand, "failed");
    std::ostringstream oText;
    oText << std::hex << (nResult == 0 ? 0 : nResult | oCommand.nBand) << (strOutputs.empty() ? "" : " ");
    return oText.str() + strOutputs;
}

void Check(const SKind& oKind, const SCommand& oCommand, const SFault& oFault, CSimGateway& oGateway)
{
    SSession o(oKind, oGateway, oFault.strPlan);
    std::string strExpected = Special(oCommand, oFault.strName);
    if (strExpected.empty())
        strExpected = oFault.strName == "short"
                          ? "0" // too short for the outputs: left alone
                          : Expected(oCommand, oFault.nResult | (oFault.bKind ? oKind.nKind << 8 : 0));
    const bool bTimeout = oFault.nResult == 0x00040000;
    o.SetTimeout(bTimeout ? SHORT : LONG);
    const long long nTime = Milliseconds([&] { EXPECT_EQ(strExpected, o.Run(oCommand)); });
    EXPECT_GE(nTime, bTimeout ? SHORT * oCommand.nWaits : 0);
    EXPECT_LE(nTime, MARGIN);
    const bool bGone =
        oFault.eLeft == ELeft::eNothing || oCommand.strName.find("Restart") != std::string::npos;
    if (bGone) {
        EXPECT_TRUE(WaitUntil([&] { return o.pClient->GetConnectState() != 3; }));
        EXPECT_EQ(Expected(oCommand, 0x00030000), o.Run(oCommand));
    }
    if (bGone || oFault.eLeft == ELeft::eStream) {
        o.SetTimeout(SHORT);
        o.pClient->RemoveOldMsgs(); // what came late or twice: its telegram id is used again
        o.oGateway.SetFaultPlan({});
        o.SetTimeout(LONG);
        EXPECT_TRUE(WaitUntil([&] { return o.Connect() == 0; }));
    }
    o.SetTimeout(LONG);
    std::string strStatus;
    SQuorvelDeviceInfo oInfo;
    EXPECT_EQ(0, o.pClient->Status(strStatus));
    EXPECT_EQ("good", strStatus);
    EXPECT_EQ(0, o.pClient->Info(&oInfo));
    EXPECT_EQ("follow-up", std::string(reinterpret_cast<const char*>(&oInfo), 9));
}

// Calls the function for every command, many at a time.
template<class FCheck>
void ForEveryCommand(FCheck fnCheck)
{
    std::vector<std::pair<const SKind*, std::size_t>> aoAll;
    for (const SKind& oKind : Kinds())
        for (std::size_t i = 0; i < oKind.aoCommands.size(); ++i)
            aoAll.emplace_back(&oKind, i);
    std::atomic<std::size_t> nNext{0};
    std::vector<std::thread> aoThreads(24);
    for (std::thread& oThread : aoThreads)
        oThread = std::thread([&] {
            const CSimulator oGateways;
            for (std::size_t i = 0; (i = nNext++) < aoAll.size();) {
                const auto& [pKind, nCommand] = aoAll[i];
                SCOPED_TRACE("kind " + std::to_string(pKind->nKind) + ": " +
                             pKind->aoCommands[nCommand].strName);
                fnCheck(*pKind, nCommand, *oGateways.GetGateway(pKind->nKind));
            }
        });
    for (std::thread& oThread : aoThreads)
        oThread.join();
}

class FaultMatrixTest : public testing::TestWithParam<SFault>
{
};

} // namespace

TEST_P(FaultMatrixTest, EveryCommand)
{
    ForEveryCommand([](const SKind& oKind, std::size_t n, CSimGateway& oGateway) {
        Check(oKind, oKind.aoCommands[n], GetParam(), oGateway);
    });
}

INSTANTIATE_TEST_SUITE_P(Fault, FaultMatrixTest, testing::ValuesIn(aoFaults),
                         [](const auto& oInfo) { return oInfo.param.strName; });

TEST(LateAnswerTest, IsNotTakenForThatOfTheNextCommand)
{
    ForEveryCommand([](const SKind& oKind, std::size_t n, CSimGateway& oGateway) {
        const SCommand& oFirst = oKind.aoCommands[n];
        const SCommand& oNext = oKind.aoCommands[(n + 1) % oKind.aoCommands.size()];
        if ((oFirst.strName + oNext.strName).find("Restart") != std::string::npos)
            return;
        SSession o(oKind, oGateway, "glue=2@n;glue=2@m");
        o.SetTimeout(SHORT);
        EXPECT_EQ(Expected(oFirst, 0x00040000), o.Run(oFirst));
        o.SetTimeout(LONG);
        EXPECT_EQ(Expected(oNext, 0), o.Run(oNext)) << oNext.strName;
    });
}
