// A thread that waits for a confirmation receives it itself. Nobody may see a difference but in time.

#include "QuorvelClient.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <set>

#include <pthread.h>

namespace
{

constexpr unsigned int LONG = 20000;

std::string Confirmation(int nID)
{
    return Telegram(0x8377, nID, std::string(1, '\0'));
}

std::string Indication(int nNumber)
{
    return Telegram(0x0366, nNumber, "data");
}

struct CReceiver : CQuorvelClient {
    explicit CReceiver(bool bOwnReceiving = true) : CQuorvelClient(eDeviceSPI, LONG)
    {
        if (bOwnReceiving)
            ReceiveWhileWaiting();
    }
    ~CReceiver() override { StopReception(); }

    bool DataIndRespond(CQuorvelMsg* pMsg) override
    {
        if (m_fnRespond)
            m_fnRespond();
        const std::lock_guard oLock(m_oMutex);
        m_anSeen.push_back(pMsg->GetMsgID());
        m_aoThreads.insert(std::this_thread::get_id());
        return false;
    }

    void Connect(CTestPeer& oPeer)
    {
        ASSERT_EQ(CQuorvelClient::Connect("127.0.0.1", oPeer.GetPort(), 1, true), 0);
        ASSERT_TRUE(oPeer.WaitForClient());
    }

    int Exchange(int nID, unsigned int nTimeout = LONG)
    {
        CQuorvelMsg oCnf;
        return SendMsg(CQuorvelMsg(0x0377, static_cast<short>(nID), nullptr, 0), oCnf, &nTimeout);
    }

    // Exchanges until indications are so long ago that callers receive again.
    int Settle(CTestPeer& oPeer)
    {
        const auto oEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(5);
        int nRC = 0;
        while (nRC == 0 && std::chrono::steady_clock::now() < oEnd) {
            oPeer.Raw(Confirmation(1));
            nRC = Exchange(1);
        }
        return nRC;
    }

    std::size_t GetSeen()
    {
        const std::lock_guard oLock(m_oMutex);
        return m_anSeen.size();
    }

    std::function<void()> m_fnRespond;
    std::mutex m_oMutex;
    std::vector<int> m_anSeen;
    std::set<std::thread::id> m_aoThreads;
};

} // namespace

TEST(ReceivingTest, IndicationsAndConfirmationsKeepTheirOrder)
{
    CTestPeer oPeer;
    CReceiver oClient;
    std::atomic<bool> bSlow{false};
    oClient.m_fnRespond = [&] {
        if (bSlow)
            CZelEvent().Wait(1);
    };
    oClient.Connect(oPeer);
    std::size_t nSent = 0;
    const auto fnIndications = [&](int nCount) {
        std::string strAll;
        for (; nCount > 0; --nCount)
            strAll += Indication(static_cast<int>(nSent++));
        return strAll;
    };
    const std::string strTooLong = "\xFF\xFF" + std::string(0xFFFF, 'x');
    for (int i = 0; i < 500; ++i) {
        bSlow = i % 10 == 0;
        if (i % 3 == 0) {
            ASSERT_EQ(oClient.Settle(oPeer), 0);
        }
        std::string strBefore = (i % 7 == 0 ? strTooLong : "") + fnIndications(i % 4);
        strBefore += Confirmation(100) + fnIndications(i % 5 == 0 ? 1 : 0);
        const std::size_t nBefore = nSent;
        oPeer.Raw(strBefore + Confirmation(7) + fnIndications(i % 2));
        ASSERT_EQ(oClient.Exchange(7), 0) << i;
        EXPECT_GE(oClient.GetSeen(), nBefore) << i; // the confirmation has overtaken none
    }
    ASSERT_EQ(oClient.Settle(oPeer), 0);
    oPeer.Raw(fnIndications(3)); // met by the caller, and the last before the end
    std::thread oEnd([&] {
        while (oPeer.TakeRequest() != "05 00 77 03 09 00 7d") {
        }
        oPeer.Close();
    });
    EXPECT_EQ(oClient.Exchange(9, 200), 0x00040000);
    oEnd.join();
    EXPECT_TRUE(WaitUntil([&] { return oClient.GetSeen() == nSent; }));
    for (std::size_t i = 0; i < nSent; ++i)
        ASSERT_EQ(oClient.m_anSeen[i], static_cast<int>(i));
    EXPECT_EQ(oClient.m_aoThreads.size(), 1U);
    EXPECT_EQ(oClient.m_aoThreads.count(std::this_thread::get_id()), 0U);
}

// What other threads do during the exchanges: they send an answer byte by byte, wait for confirmations of their own, and
// signals arrive.
TEST(ReceivingTest, EachWaiterGetsItsOwnWhoeverReads)
{
    CTestPeer oPeer;
    CReceiver oClient;
    oClient.Connect(oPeer);
    struct sigaction oAction {
    };
    oAction.sa_handler = [](int) {};
    struct sigaction oFormer {
    };
    sigaction(SIGUSR2, &oAction, &oFormer); // interrupts system calls
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(oClient.Settle(oPeer), 0);
        while (oPeer.TakeRequest(0) != "none") {
        }
        std::thread oExchange([&] { EXPECT_EQ(oClient.Exchange(8), 0); });
        std::thread oCollector(
            [&] { EXPECT_NE(std::unique_ptr<CQuorvelMsg>(oClient.WaitForMsg(9, nullptr)), nullptr); });
        EXPECT_EQ(oPeer.TakeRequest(), "05 00 77 03 08 00 7c");
        const std::string strOwn = Confirmation(8);
        const std::string strOther = Confirmation(9);
        const std::string strAll =
            (i % 2 == 0 ? strOwn + strOther : strOther + strOwn) + (i % 3 == 0 ? Indication(i) : "");
        for (std::size_t n = 0; n < strAll.size(); n += i % 5 == 0 ? 1 : 20) {
            oPeer.Send(strAll.substr(n, i % 5 == 0 ? 1 : 20));
            pthread_kill(oExchange.native_handle(), SIGUSR2);
            pthread_kill(oCollector.native_handle(), SIGUSR2);
        }
        oExchange.join();
        oCollector.join();
    }
    sigaction(SIGUSR2, &oFormer, nullptr);
    const long long nTime = Milliseconds([&] { EXPECT_EQ(oClient.Exchange(8, 150), 0x00040000); });
    EXPECT_GE(nTime, 150);
    EXPECT_LT(nTime, 250);
}

TEST(ReceivingTest, LossAndCloseAtAnyMomentOfAWait)
{
    CTestPeer oPeer;
    CReceiver oClient;
    for (int i = 0; i < 150; ++i) {
        ASSERT_EQ(oClient.CQuorvelClient::Connect("127.0.0.1", oPeer.GetPort(), 1, true), 0);
        ASSERT_TRUE(oPeer.WaitForClient(static_cast<unsigned int>(i + 1)));
        std::atomic<bool> bBegun{false};
        std::thread oExchange([&] {
            for (int n = 0, nRC = 0; nRC == 0 && n < 100; ++n) {
                oPeer.Raw(Confirmation(8) + (i % 4 == 0 ? Indication(n) : ""));
                bBegun = true;
                nRC = oClient.Exchange(8, 20);
                EXPECT_TRUE(nRC == 0 || nRC == 0x00030000 || nRC == 0x00040000) << nRC;
            }
        });
        EXPECT_TRUE(WaitUntil([&] { return bBegun.load(); }));
        for (int n = 0; n < i % 50; ++n) // sooner or later
            std::this_thread::yield();
        i % 3 == 0 ? oPeer.Reset() : i % 3 == 1 ? oPeer.Close() : static_cast<void>(oClient.Close());
        oExchange.join();
        EXPECT_TRUE(oPeer.WaitForEndOfClient());
        EXPECT_TRUE(WaitUntil([&] { return oClient.GetConnectState() == 0; }));
    }
}

TEST(ReceivingTest, ACallbackExchangesWithAnotherDevice)
{
    CTestPeer aoPeers[2];
    CReceiver oOther;
    CReceiver oClient;
    oOther.Connect(aoPeers[1]);
    oClient.m_fnRespond = [&] {
        aoPeers[1].Raw(Confirmation(5));
        EXPECT_EQ(oOther.Exchange(5), 0);
    };
    oClient.Connect(aoPeers[0]);
    aoPeers[0].Raw(Indication(1) + Confirmation(7));
    EXPECT_EQ(oClient.Exchange(7), 0);
    EXPECT_EQ(oClient.GetSeen(), 1U);
    oClient.m_fnRespond = [&] { // with its own, nobody could read the confirmation
        aoPeers[0].Raw(Confirmation(6));
        EXPECT_EQ(oClient.Exchange(6, 50), 0x00040000);
    };
    aoPeers[0].Send(Indication(2));
    EXPECT_TRUE(WaitUntil([&] { return oClient.GetSeen() == 2; }));
}

TEST(ReceivingTest, AnOverrideOfDataIndSeesEverythingOnTheReceiveThread)
{
    struct COverriding : CReceiver {
        COverriding() : CReceiver(false) {}
        ~COverriding() override { StopReception(); }
        void DataInd(const char* pData, unsigned short nLen) override
        {
            m_aoThreads.insert(std::this_thread::get_id());
            ++m_nTelegrams;
            CReceiver::DataInd(pData, nLen);
        }
        int m_nTelegrams = 0;
    } oClient;
    CTestPeer oPeer;
    oClient.Connect(oPeer);
    for (int i = 0; i < 50; ++i) {
        oPeer.Raw(Confirmation(7) + (i % 2 == 0 ? Indication(i) : ""));
        ASSERT_EQ(oClient.Exchange(7), 0);
    }
    EXPECT_TRUE(WaitUntil([&] { return oClient.GetSeen() == 25; }));
    oClient.Close();
    EXPECT_EQ(oClient.m_nTelegrams, 75);
    EXPECT_EQ(oClient.m_aoThreads.size(), 1U);
    EXPECT_EQ(oClient.m_aoThreads.count(std::this_thread::get_id()), 0U);
}
