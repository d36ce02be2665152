// System calls and allocations of the library that fail, one after the other, from opening to closing. This
// program puts its own functions before those of the system; they concern the library's calls only.

#pragma GCC diagnostic ignored "-Wmismatched-new-delete" // the replaced operators use malloc and free

#include "EveryCommand.h"
#include "QuorvelDllSPI.h"
#include "SimGatewayAWire.h"
#include "SimGatewayCAN.h"
#include "SimGatewayI2C.h"
#include "SimGatewaySPI.h"
#include "Simulator.h"

#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace
{

const std::string strAddress = OwnAddress();
thread_local bool t_bLibrary = false; // this thread is in the library
std::atomic<const char*> pFailing{""};
std::atomic<int> nError{0};
std::atomic<int> nLeft{0}; // calls until one fails

bool Fails(const char* pCall)
{
    if (!t_bLibrary || std::strcmp(pCall, pFailing) != 0 || --nLeft != 0)
        return false;
    errno = nError;
    return true;
}

template<class TFunction>
TFunction* Real(const char* pName)
{
    return reinterpret_cast<TFunction*>(dlsym(RTLD_NEXT, pName));
}

void* Allocate(std::size_t nSize)
{
    void* const p = Fails("new") ? nullptr : std::malloc(nSize);
    return p != nullptr ? p : throw std::bad_alloc();
}

std::vector<std::array<int, 3>> aoOptions; // of sockets, set by the library: level, name, value

struct SStart {
    void* (*pRun)(void*);
    void* pArgument;
};

} // namespace

#pragma GCC visibility push(default)
// clang-format off
#define REPLACE(TYPE, NAME, PARAMETERS, FAILURE, ...)                                                        \
    TYPE NAME PARAMETERS                                                                                     \
    {                                                                                                        \
        static auto* const s_pReal = Real<decltype(NAME)>(#NAME);                                            \
        return Fails(#NAME) ? FAILURE : s_pReal(__VA_ARGS__);                                                \
    }
extern "C" {
REPLACE(int, socket, (int n, int nType, int nProtocol) noexcept, -1, n, nType, nProtocol)
REPLACE(int, connect, (int n, const sockaddr* p, socklen_t nLen), -1, n, p, nLen)
REPLACE(int, poll, (pollfd* p, nfds_t n, int nTimeout), -1, p, n, nTimeout)
REPLACE(ssize_t, sendmsg, (int n, const msghdr* p, int nFlags), -1, n, p, nFlags)
REPLACE(ssize_t, recv, (int n, void* p, size_t nLen, int nFlags), -1, n, p, nLen, nFlags)
REPLACE(int, getsockopt, (int n, int nLevel, int nName, void* p, socklen_t* pLen) noexcept, -1, n, nLevel, nName, p, pLen)
int setsockopt(int n, int nLevel, int nName, const void* p, socklen_t nLen) noexcept
{
    static auto* const s_pReal = Real<decltype(setsockopt)>("setsockopt");
    if (t_bLibrary && nLen == sizeof(int))
        aoOptions.push_back({nLevel, nName, *static_cast<const int*>(p)});
    return Fails("setsockopt") ? -1 : s_pReal(n, nLevel, nName, p, nLen);
}
REPLACE(int, eventfd, (unsigned int n, int nFlags) noexcept, -1, n, nFlags)
// "two.hosts" has two addresses, and its look-up takes 300 ms.
int getaddrinfo(const char* pHost, const char* pService, const addrinfo* pHints, addrinfo** pFound)
{
    static auto* const s_pReal = Real<decltype(getaddrinfo)>("getaddrinfo");
    if (Fails("getaddrinfo"))
        return EAI_MEMORY;
    if (std::strcmp(pHost, "two.hosts") != 0)
        return s_pReal(pHost, pService, pHints, pFound);
    CZelEvent().Wait(300);
    return s_pReal("127.33.0.1", pService, pHints, pFound) + s_pReal("127.33.0.2", pService, pHints, &(*pFound)->ai_next);
}
// A thread that the library starts is in the library.
    int pthread_create(pthread_t* pThread, const pthread_attr_t* pAttributes, void* (*pRun)(void*),
                       void* pArgument) noexcept
{
    if (t_bLibrary) {
        pArgument = new (std::malloc(sizeof(SStart))) SStart{pRun, pArgument};
        pRun = [](void* p) {
            const SStart oStart = *static_cast<SStart*>(p);
            std::free(p);
            t_bLibrary = true;
            return oStart.pRun(oStart.pArgument);
        };
    }
    static auto* const s_pReal = Real<decltype(pthread_create)>("pthread_create");
    if (!Fails("pthread_create"))
        return s_pReal(pThread, pAttributes, pRun, pArgument);
    std::free(pArgument);
    return EAGAIN;
}
}
void* operator new(std::size_t n) { return Allocate(n); }
void* operator new[](std::size_t n) { return Allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return std::malloc(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
// clang-format on
#pragma GCC visibility pop

namespace
{

constexpr int TIMEOUT = 500;

template<class FCall>
int Library(FCall fnCall)
{
    t_bLibrary = true;
    int nRC = -1;
    try {
        nRC = fnCall();
    } catch (const std::bad_alloc&) {
        ADD_FAILURE() << "the library is left by std::bad_alloc";
    }
    t_bLibrary = false;
    return nRC;
}

std::ptrdiff_t Count(const char* pDirectory)
{
    return std::distance(std::filesystem::directory_iterator(pDirectory), {});
}

using CResults = std::vector<int>;

struct SCall {
    const char* pName;
    int nError;
    CResults anResults; // that it may cause, besides 255: a transfer that failed
};

const SCall aoCalls[] = {
    {"socket", EMFILE, {0x20000}},
    {"connect", ECONNREFUSED, {0x20000}},
    {"connect", ETIMEDOUT, {0x40000}},
    {"poll", ENOMEM, {0x20000, 0x30000, 0x40000}},
    {"poll", EINTR, {}},
    {"getsockopt", ENOBUFS, {0x20000}},
    {"setsockopt", ENOMEM, {}},
    {"eventfd", EMFILE, {0x20000}},
    {"getaddrinfo", 0, {0x20000}},
    {"pthread_create", EAGAIN, {0x20000}},
    {"sendmsg", ECONNRESET, {0x30000}},
    {"sendmsg", ENOBUFS, {0x20000}},
    {"sendmsg", EAGAIN, {}},
    {"sendmsg", EINTR, {}},
    {"recv", EINTR, {}},
    {"recv", ECONNRESET, {0x30000, 0x40000}},
    {"new", 0, {0x20000, 0x30000, 0x40000, -1}}, // -1: the frame found no memory
};

// Has every call fail, one after the other, in a life of clients, which gives all results.
template<class FLife>
void Check(CSimGateway& oGateway, FLife fnLife)
{
    std::string strError;
    const auto nPort = static_cast<unsigned short>(4999 + oGateway.GetKind());
    ASSERT_TRUE(oGateway.Start(strAddress, nPort, &strError)) << strError;
    const auto fnInUse = [] { return std::pair(Count("/proc/self/fd"), Count("/proc/self/task")); };
    auto oBefore = fnInUse();
    fnLife();
    for (const SCall& oCall : aoCalls) {
        int nCall = 0;
        do {
            SCOPED_TRACE(std::string(oCall.pName) + " " + std::to_string(oCall.nError) + ", call " +
                         std::to_string(++nCall));
            EXPECT_TRUE(WaitUntil([&] { return fnInUse() == oBefore; }));
            nError = oCall.nError;
            nLeft = nCall;
            pFailing = oCall.pName;
            CResults anResults;
            EXPECT_LT(Milliseconds([&] { anResults = fnLife(); }), 10000);
            pFailing = "";
            for (const int nRC : anResults)
                EXPECT_TRUE(nRC == 0 ||
                            (nLeft <= 0 && (nRC == 255 || std::count(oCall.anResults.begin(),
                                                                     oCall.anResults.end(), nRC) > 0)))
                    << std::hex << nRC;
            if (nCall == 1 && !oCall.anResults.empty()) {
                EXPECT_NE(CResults(anResults.size()), anResults) << "no consequence";
            }
        } while (nLeft <= 0 && !testing::Test::HasFailure());
    }
}

// The steps, mostly twice, with one client, which is closed before and destroyed unclosed. Each time the first failure
// ends the steps, and the second time there is none when the call has failed before.
template<class TClient>
CResults Live(std::unique_ptr<TClient> (*pNew)(), const std::vector<std::function<int(TClient&)>>& aoSteps,
              int nRounds = 2)
{
    CResults anResults;
    std::unique_ptr<TClient> pClient = pNew();
    for (int nRound = 0; nRound < nRounds; ++nRound) {
        const bool bFailed = nLeft <= 0;
        anResults.push_back(Library([&] { return pClient->Close(); }));
        anResults.push_back(Library([&] { return pClient->Connect(strAddress.c_str(), 0, 1, true); }));
        for (auto it = aoSteps.begin(); anResults.back() == 0 && it != aoSteps.end(); ++it)
            anResults.push_back(Library([&] { return (*it)(*pClient); }));
        EXPECT_TRUE(!bFailed || anResults.back() == 0) << "not usable any more";
    }
    Library([&] {
        pClient.reset();
        return 0;
    });
    return anResults;
}

} // namespace

TEST(SystemFailureTest, SocketOptionsAreWhatTheyShouldBe)
{
    using COptions = std::vector<std::array<int, 3>>;
    CTestPeer oPeer;
    CQuorvelClientCANDll oClient(1, TIMEOUT);
    const auto fnOptions = [&](const std::function<int()>& fnCall) {
        aoOptions.clear();
        EXPECT_EQ(Library(fnCall), 0);
        return std::exchange(aoOptions, {});
    };
    EXPECT_EQ(fnOptions([&] { return oClient.Connect("127.0.0.1", oPeer.GetPort(), 1, true); }),
              (COptions{{IPPROTO_TCP, TCP_NODELAY, 1}}));
    EXPECT_EQ(fnOptions([&] { return oClient.StartAlive(4294968); }), // in milliseconds beyond 32 bits
              (COptions{{SOL_SOCKET, SO_KEEPALIVE, 1},
                        {IPPROTO_TCP, TCP_KEEPIDLE, 16385},
                        {IPPROTO_TCP, TCP_KEEPINTVL, 8191},
                        {IPPROTO_TCP, TCP_KEEPCNT, 2}}));
    EXPECT_EQ(fnOptions([&] { return oClient.StartAlive(0); }), (COptions{{SOL_SOCKET, SO_KEEPALIVE, 0}}));
}

TEST(SystemFailureTest, TheTimeToConnectIsSharedOutAmongAddressesAndDoesNotCountTheLookUp)
{
    CTestPeer oDead("127.33.0.1");
    CTestPeer oAlive("127.33.0.2", oDead.GetPort());
    oDead.StopAnsweringAtAll();
    CQuorvelClientSPI oClient(250);
    const long long nTime =
        Milliseconds([&] { EXPECT_EQ(oClient.Connect("two.hosts", oDead.GetPort(), 1, true), 0); });
    EXPECT_GE(nTime, 300 + 125);
    EXPECT_LT(nTime, 300 + 250);
}

TEST(SystemFailureTest, Exchanges)
{
    CSimGatewayCAN oGateway;
    using C = CQuorvelClientCANDll;
    Check(oGateway, [&] {
        return Live<C>(
            [] { return std::make_unique<C>(1, TIMEOUT); },
            {[](C& c) { return c.Open(true, true); },
             [](C& c) {
                 c.SetMaxSizePerQueue(0);
                 c.SetMaxSizePerQueue(9);
                 return c.Write(1, "ab", 2, 0, nullptr, nullptr);
             },
             [](C& c) {
                 std::string str;
                 return c.Status(str);
             },
             [](C& c) { return c.CANGetMessage(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }});
    });
}

TEST(SystemFailureTest, FileTransfer)
{
    using C = CQuorvelClientAWire;
    static const std::string s_strFile = testing::TempDir() + "quorvel-failure-" + std::to_string(getpid());
    std::ofstream(s_strFile) << "S1060000010203F3\n";
    CSimGatewayAWire oGateway;
    Check(oGateway, [&] {
        return Live<C>([] { return std::make_unique<C>(TIMEOUT); },
                       {[](C& c) { return c.SetConfig(1000000, 0, 1048576, 512, "t"); },
                        [](C& c) { return c.WriteFile(s_strFile); },
                        [](C& c) {
                            C::FileStep::EFileStep eStep{};
                            unsigned char nPercent = 0;
                            const auto oEnd = std::chrono::steady_clock::now() + std::chrono::seconds(2);
                            while (eStep != C::FileStep::eFailed && eStep != C::FileStep::eFinished &&
                                   std::chrono::steady_clock::now() < oEnd)
                                if (const int nRC = c.GetWriteFileStatus(eStep, nPercent))
                                    return nRC;
                            return eStep == C::FileStep::eFinished ? 0 : 255;
                        }},
                       1); // a lost report leaves the transfer under way
    });
    unlink(s_strFile.c_str());
}

TEST(SystemFailureTest, CInterface)
{
    CSimGatewaySPI oGateway;
    Check(oGateway, [] {
        int nHandle = 0;
        short nID = 0;
        char acRead[4];
        CResults anResults{Library([&] { return SPIOpenDevice(&nHandle, strAddress.c_str(), TIMEOUT); })};
        EXPECT_EQ(anResults[0] == 0, nHandle != -1);
        if (anResults[0] != 0)
            return anResults;
        anResults.push_back(Library([&] { return SPIDataReq(nHandle, "\x9f", 1, acRead, 4); }));
        anResults.push_back(Library([&] { return SPISequenceReq(nHandle, "\1\1\0\5", 4, &nID); }));
        if (anResults.back() == 0)
            anResults.push_back(Library([&] { return SPISequenceGetCnf(nHandle, nID, acRead, 4); }));
        anResults.push_back(Library([&] { return SPICloseDevice(nHandle); }));
        return anResults;
    });
}

// Of a client that is connected: each allocation of each command fails once, then the command succeeds.
class NoMemoryTest : public testing::TestWithParam<bool>
{
  public:
    ~NoMemoryTest() override { CTraceServer::SetSink({}); }
};

TEST_P(NoMemoryTest, EveryCommand)
{
    const bool bTraced = GetParam();
    if (bTraced)
        CTraceServer::SetSink([](const STraceMessage&) {});
    const CSimulator oGateways;
    for (const SKind& oKind : Kinds()) {
        CSimGateway& oGateway = *oGateways.GetGateway(oKind.nKind);
        oGateway.SetRestartTime(0);
        oGateway.SetStatus(std::string(300, 's'));
        for (const SCommand& oCommand : oKind.aoCommands) {
            SCOPED_TRACE(oCommand.strName + ", kind " + std::to_string(oKind.nKind));
            std::string strError;
            ASSERT_TRUE(oGateway.Start(strAddress, 0, &strError)) << strError;
            const std::unique_ptr<CQuorvelClient> pClient = oKind.pNewClient();
            SOut oOut;
            ASSERT_EQ(0, pClient->Connect(strAddress.c_str(), oGateway.GetPort(), 1, true));
            ASSERT_EQ(0, pClient->Open() | oKind.pSetup(*pClient, oOut));
            if (const auto* const pI2C = dynamic_cast<CSimGatewayI2C*>(&oGateway)) {
                for (unsigned int nAddress = 0xA0; nAddress < 0xB0; nAddress += 2) {
                    if (const auto pMemory = pI2C->GetMemory(nAddress))
                        pMemory->SetBusyTime({}); // with a write whose confirmation was lost
                }
            }
            // With its trace left out a command succeeds, and may not do so again. A transfer in the background
            // tells later.
            const bool bEnds = oCommand.strName.find("Restart") != std::string::npos;
            pFailing = "new";
            int nRC = -1;
            for (int nCall = 1; nCall == 1 || (nLeft <= 0 && !(bEnds && nRC == 0)); ++nCall) {
                nLeft = nCall;
                nRC = Library([&] { return oCommand.pRun(*pClient, oOut); });
                if (bEnds) { // a gateway that is not about to restart
                    oGateway.Stop();
                    ASSERT_TRUE(oGateway.Start(strAddress, 0, &strError)) << strError;
                    ASSERT_EQ(0, pClient->Connect(strAddress.c_str(), oGateway.GetPort(), 1, true));
                }
                if (bTraced || (nRC == 0 && oCommand.strName == "WriteFile"))
                    continue;
                if (nLeft <= 0)
                    EXPECT_EQ(0xFF | oCommand.nBand, nRC) << "allocation " << nCall;
                else // the gateway may refuse what it has done before, when the confirmation found no memory
                    EXPECT_LT(nRC, 0x10000) << "allocation " << nCall;
            }
            pFailing = "";
            EXPECT_EQ(0, pClient->Info(nullptr)) << "not usable any more";
            oGateway.Stop();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Memory, NoMemoryTest, testing::Bool(),
                         [](const auto& oInfo) { return oInfo.param ? "Traced" : "Untraced"; });
