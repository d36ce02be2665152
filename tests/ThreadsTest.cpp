// Many threads, and ends of life at awkward moments. Runs under the thread sanitizer too.

#include "DeviceManager.h"
#include "QuorvelClientSPI.h"
#include "QuorvelDllSPI.h"
#include "SimGatewaySPI.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr int LONG = 10000;

std::unique_ptr<CSimGatewaySPI> StartGateway(const char* pAddress, unsigned short nPort = 0)
{
    auto pGateway = std::make_unique<CSimGatewaySPI>();
    std::string strError;
    EXPECT_TRUE(pGateway->Start(pAddress, nPort, &strError)) << strError;
    return pGateway;
}

// The same on many threads at a time.
void OnThreads(unsigned int nCount, const std::function<void(unsigned int)>& fnRun)
{
    std::vector<std::thread> aoThreads;
    for (unsigned int i = 0; i < nCount; ++i)
        aoThreads.emplace_back(fnRun, i);
    for (std::thread& oThread : aoThreads)
        oThread.join();
}

// The trace of an incoming telegram runs on the receive thread, like an application's callback.
void OnIncomingTelegram(const std::function<void()>& fnRun)
{
    CTraceServer::SetSink(
        [fnRun](const STraceMessage& oMessage) {
            if (std::string(oMessage.pText) == "incoming telegram from parter")
                fnRun();
        },
        16);
}

// A client of indications 0x0377.
struct CListener : CQuorvelClient {
    CListener() : CQuorvelClient(eDeviceSPI, LONG) {}
    ~CListener() override { StopReception(); }

    bool DataIndRespond(CQuorvelMsg* pMsg) override
    {
        ++m_nSeen;
        if (m_fnRespond)
            m_fnRespond(pMsg->GetData());
        return false;
    }

    std::atomic<int> m_nSeen{0};
    std::function<void(const std::string&)> m_fnRespond;
};

} // namespace

TEST(ThreadsTest, OneHandleServesManyThreadsEachWithItsOwnAnswer)
{
    const auto pGateway = StartGateway("127.31.1.1", 5002);
    for (unsigned int i = 0; i < 16; ++i)
        pGateway->GetFlash().Poke(i << 16, std::string(32, static_cast<char>('A' + i)));
    int nHandle = 0;
    ASSERT_EQ(SPIOpenDevice(&nHandle, "127.31.1.1", LONG), 0);
    OnThreads(16, [=](unsigned int i) {
        const char acRead[4] = {0x03, static_cast<char>(i), 0, 0}; // read flash at 64 KiB x i
        for (int n = 0; n < 50; ++n) {
            char acData[36] = {};
            ASSERT_EQ(SPIDataReq(nHandle, acRead, 4, acData, 36), 0);
            ASSERT_EQ(std::string(acData + 4, 32), std::string(32, static_cast<char>('A' + i)));
        }
    });
    EXPECT_EQ(SPICloseDevice(nHandle), 0);
}

TEST(ThreadsTest, WaitingForASequenceKeepsItsWakeUpWhileOthersExchange)
{
    const auto pGateway = StartGateway("127.31.2.1");
    CQuorvelClientSPI oClient(LONG);
    ASSERT_EQ(oClient.Connect("127.31.2.1", pGateway->GetPort(), 1, true), 0);
    ASSERT_EQ(oClient.Open(), 0);
    std::atomic<bool> bEnd{false};
    std::thread oOther([&] {
        unsigned int nInputs = 0;
        unsigned int nOutputs = 0;
        while (!bEnd)
            EXPECT_EQ(oClient.ReadDigital(nInputs, nOutputs), 0);
    });
    for (int i = 0; i < 20; ++i) {
        const std::string strSequence = Hex("04 05 00 01 01 00 9f 00"); // 5 ms, then one frame
        short nID = 0;
        ASSERT_EQ(oClient.SequenceReq(strSequence.data(), 8, &nID), 0);
        char cRead = 0;
        const long long nTime = Milliseconds([&] { EXPECT_EQ(oClient.SequenceGetCnf(nID, &cRead, 1), 0); });
        EXPECT_LT(nTime, LONG / 2); // woken, not timed out
        EXPECT_EQ(cRead, '\xFF');
    }
    bEnd = true;
    oOther.join();
}

TEST(ThreadsTest, OpeningAndClosingOnManyThreads)
{
    const auto pGateway = StartGateway("127.31.3.1", 5002);
    pGateway->SetMaxConnections(100);
    std::mutex oMutex;
    std::set<int> anHandles;
    OnThreads(8, [&](unsigned int) {
        for (int n = 0; n < 15; ++n) {
            int nHandle = 0;
            ASSERT_EQ(SPIOpenDevice(&nHandle, "127.31.3.1", LONG), 0);
            EXPECT_EQ(SPIWriteDigital(nHandle, 5), 0);
            std::atomic<int> nClosed{0};
            OnThreads(2, [&](unsigned int) { nClosed += SPICloseDevice(nHandle); });
            EXPECT_EQ(nClosed, 0x00900000); // one closes it, the other comes too late
            EXPECT_EQ(SPIWriteDigital(nHandle, 5), 0x00900000);
            const std::lock_guard oLock(oMutex);
            EXPECT_TRUE(anHandles.insert(nHandle).second) << "handle given twice";
        }
    });
    EXPECT_EQ(anHandles.size(), 120U);
}

TEST(ThreadsTest, DestroyingAClientWhileTelegramsStreamIn)
{
    CTestPeer oPeer("127.31.4.1");
    std::atomic<bool> bEnd{false};
    std::string strMany;
    for (int i = 0; i < 200; ++i)
        strMany += Telegram(0x0377, i, "indication") + Telegram(0x8309, i, "uncollected confirmation");
    std::thread oFlood([&] {
        while (!bEnd)
            oPeer.Send(strMany);
    });
    for (int i = 0; i < 20; ++i) {
        CListener oClient;
        ASSERT_EQ(oClient.Connect("127.31.4.1", oPeer.GetPort(), 1, true), 0);
        ASSERT_TRUE(WaitUntil([&] { return oClient.m_nSeen > i; }));
    }
    bEnd = true;
    CListener oLast; // lets the flood's Send find a connection, and end
    oLast.Connect("127.31.4.1", oPeer.GetPort(), 1, true);
    oFlood.join();
}

TEST(ThreadsTest, ACallbackThatAsksForAHandleDoesNotBlockAClose)
{
    const auto pGateway = StartGateway("127.31.7.1", 5002);
    int nHandle = 0;
    int nOther = 0;
    ASSERT_EQ(SPIOpenDevice(&nHandle, "127.31.7.1", LONG), 0);
    ASSERT_EQ(SPIOpenDevice(&nOther, "127.31.7.1", LONG), 0);
    CZelEvent oInside;
    CZelEvent oDone;
    OnIncomingTelegram([&] {
        oInside.Signal();
        // Until the closing thread has taken the entry out and waits for this very call.
        EXPECT_TRUE(WaitUntil([&] { return CDeviceManager::GetDevice(nHandle) == nullptr; }));
        EXPECT_NE(CDeviceManager::GetDevice(nOther), nullptr);
        oDone.Signal();
    });
    ASSERT_TRUE(pGateway->WaitForConnections(2, LONG));
    EXPECT_TRUE(pGateway->SendIndication(0x0377, 0, "x", 1));
    ASSERT_TRUE(oInside.Wait(LONG));
    EXPECT_EQ(CDeviceManager::CloseDevice(nHandle), 0);
    EXPECT_TRUE(oDone.Wait(0)); // a close returns after the indication
    CTraceServer::SetSink({});
    EXPECT_EQ(SPICloseDevice(nOther), 0);
}

TEST(ThreadsTest, SendingWithoutWaitingDoesNotWaitForAnExchange)
{
    CTestPeer oPeer("127.31.8.1");
    CQuorvelClientSPI oClient(LONG);
    ASSERT_EQ(oClient.Connect("127.31.8.1", oPeer.GetPort(), 1, true), 0);
    ASSERT_EQ(oClient.Open(), 0);
    std::thread oExchange([&] { EXPECT_EQ(oClient.WriteDigital(1), 0); });
    EXPECT_EQ(oPeer.TakeRequest(), "09 00 41 03 02 00 01 00 00 00 41");
    short nID = 0;
    EXPECT_EQ(oClient.SequenceReq("\x00", 1, &nID), 0); // while the exchange waits
    EXPECT_EQ(nID, 3);
    EXPECT_EQ(oPeer.TakeRequest(), "06 00 14 03 03 00 00 14");
    oPeer.Send(Telegram(0x8314, 3, std::string(1, '\0')) + Telegram(0x8341, 2, std::string(1, '\0')));
    oExchange.join();
    EXPECT_EQ(oClient.SequenceGetCnf(3, nullptr, 0), 0);
}

TEST(ThreadsTest, ASinkClosesAClientWhoseReceiveThreadTraces)
{
    struct CTracing : CListener {
        void DataInd(const char* pData, unsigned short nLen) override
        {
            m_bReceiving = true;
            CListener::DataInd(pData, nLen); // traces, and so waits for the sink
        }
        std::atomic<bool> m_bReceiving{false};
    };
    CTestPeer oPeer("127.31.9.1");
    auto pClient = std::make_unique<CTracing>();
    ASSERT_EQ(pClient->Connect("127.31.9.1", oPeer.GetPort(), 1, true), 0);
    CTraceServer::SetSink([&, oTest = std::this_thread::get_id()](const STraceMessage&) {
        if (std::this_thread::get_id() != oTest)
            return;
        oPeer.Send(Telegram(0x0377, 0, "x"));
        EXPECT_TRUE(WaitUntil([&] { return pClient->m_bReceiving.load(); }));
        EXPECT_EQ(pClient->Close(), 0);
        pClient.reset();
    });
    CTraceServer::SendTraceMessage(4, 3, 0, 1, "test", "close it", 0);
    EXPECT_EQ(pClient, nullptr);
    CTraceServer::SetSink({});
}

TEST(ThreadsTest, AForkedChildLeavesTheConnectionToItsParent)
{
    CTestPeer oPeer("127.31.10.1");
    CQuorvelClient oClient(eDeviceSPI, LONG);
    ASSERT_EQ(oClient.Connect("127.31.10.1", oPeer.GetPort(), 1, true), 0);
    std::thread oExchange([&] { EXPECT_EQ(oClient.BaseWriteDigital(1), 0); });
    EXPECT_EQ(oPeer.TakeRequest(), "09 00 41 03 00 00 01 00 00 00 43"); // it waits
    const pid_t nChild = fork();
    if (nChild == 0) {
        alarm(20);
        const bool bGood = oClient.GetConnectState() == 0 && oClient.BaseWriteDigital(2) == 0x00030000 &&
                           oClient.Close() == 0;
        oClient.~CQuorvelClient();
        _exit(bGood ? 0 : 1);
    }
    int nStatus = -1;
    EXPECT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    EXPECT_EQ(nStatus, 0);
    oPeer.Send(Telegram(0x8341, 0, std::string(1, '\0')));
    oExchange.join();
    EXPECT_EQ(oClient.GetConnectState(), 3);
}
