// The connection: framing, time-outs, losing and regaining the peer, closing from everywhere.

#include "TestPeer.h"
#include "support/ZelEvent.h"
#include "support/ZelIPConnection.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

namespace
{

using CTexts = std::vector<std::string>;

constexpr unsigned int LONG = 5000; // milliseconds, never used up when all is well

struct CRecorder : CZelIPConnection {
    ~CRecorder() override { DisconnectReq(0xFFFFFFFFU); }

    void ConnectInd(bool bConnected) override
    {
        const std::lock_guard oLock(m_oMutex);
        m_strStates += bConnected ? '+' : '-';
        if (!bConnected)
            m_oLost.Signal();
    }

    void DataInd(const char* pData, unsigned short nLen) override
    {
        {
            const std::lock_guard oLock(m_oMutex);
            m_astrTelegrams.emplace_back(pData, nLen);
        }
        if (m_fnDataInd)
            m_fnDataInd();
    }

    int Connect(unsigned short nPort, unsigned int nTimeout = LONG, const char* pHost = "127.0.0.1")
    {
        return ConnectReq(pHost, nPort, nTimeout, 3, eProtocolTCP, "", true);
    }

    int Send(const std::string& strBytes, unsigned int nTimeout = LONG)
    {
        return DataReq(strBytes.data(), static_cast<unsigned short>(strBytes.size()), nTimeout);
    }

    bool WaitForStates(const std::string& strStates)
    {
        return WaitUntil([&] { return std::lock_guard(m_oMutex), m_strStates == strStates; });
    }

    CTexts GetTelegrams()
    {
        const std::lock_guard oLock(m_oMutex);
        return m_astrTelegrams;
    }

    bool WaitForTelegrams(std::size_t nCount)
    {
        return WaitUntil([&] { return GetTelegrams().size() >= nCount; });
    }

    std::function<void()> m_fnDataInd; // set before connecting
    CZelEvent m_oLost;
    std::mutex m_oMutex;
    std::string m_strStates;
    CTexts m_astrTelegrams;
};

// The telegram of that length field, filled with a byte.
std::string Block(std::size_t nLengthField, char cFill)
{
    return std::string{static_cast<char>(nLengthField & 0xFF), static_cast<char>(nLengthField >> 8)} +
           std::string(nLengthField, cFill);
}

} // namespace

TEST(ConnectionTest, TelegramsArriveWholeHoweverTheyAreCutOrJoined)
{
    CTraceRecorder oTraces(16);
    CTestPeer oPeer;
    CRecorder oConnection;
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    // Length fields that are no telegram's are passed on all the same.
    const std::string strSmall = Hex("05 00 09 83 02 00 88 00 00 04 00 01 02 03 04");
    oPeer.Send(strSmall + Block(65534, 'a') + Block(3, 'b') + Block(65535, 'c') + Block(65533, 'd'));
    ASSERT_TRUE(oConnection.WaitForTelegrams(5));
    for (const char c : strSmall) // a byte at a time; the peer's socket does not wait for more
        oPeer.Send(std::string(1, c));
    ASSERT_TRUE(oConnection.WaitForTelegrams(8));
    const std::string astrSmall[] = {Hex("05 00 09 83 02 00 88"), Hex("00 00"), Hex("04 00 01 02 03 04")};
    EXPECT_EQ(oConnection.GetTelegrams(),
              (CTexts{astrSmall[0], astrSmall[1], astrSmall[2], Block(3, 'b'), Block(65533, 'd'),
                      astrSmall[0], astrSmall[1], astrSmall[2]}));
    const std::string strTooLong = "16 source/support/ZelIPConnection: telegram of ";
    EXPECT_EQ(oTraces.Take(), (CTexts{strTooLong + "65536 bytes is too long and is discarded.",
                                      strTooLong + "65537 bytes is too long and is discarded."}));
}

TEST(ConnectionTest, ConnectingTellsFailuresApart)
{
    CRecorder oConnection;
    EXPECT_EQ(oConnection.GetPartnerAddress(), "");
    EXPECT_EQ(oConnection.Connect(5002, LONG, "127.29.0.1"), 2); // refused
    EXPECT_EQ(oConnection.GetPartnerAddress(), "127.29.0.1");
    EXPECT_EQ(oConnection.Connect(80, LONG, "no such host"), 2);
    EXPECT_EQ(oConnection.Connect(80, LONG, nullptr), 2);
    EXPECT_EQ(oConnection.GetState(), 0);
    EXPECT_EQ(oConnection.Send("xx"), 3);
    EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);

    CTestPeer oPeer;
    EXPECT_EQ(oConnection.Connect(oPeer.GetPort(), LONG, "localhost"), 1); // after the failures
    EXPECT_EQ(oConnection.GetState(), 3);
}

TEST(ConnectionTest, ConnectingToAnAddressThatDropsPacketsEndsOnTime)
{
    CTestPeer oPeer;
    oPeer.StopAnsweringAtAll();
    CRecorder oConnection;
    const long long nTime = Milliseconds([&] { EXPECT_EQ(oConnection.Connect(oPeer.GetPort(), 300), 4); });
    EXPECT_GE(nTime, 300);
    EXPECT_LT(nTime, 600);
    EXPECT_EQ(oConnection.GetState(), 0);

    // Closing from another thread ends the attempt at once.
    std::thread oCloser([&] {
        EXPECT_TRUE(WaitUntil([&] { return oConnection.GetState() == 1; }));
        EXPECT_EQ(oConnection.Connect(oPeer.GetPort()), 5); // not while another thread connects
        oConnection.DisconnectReq(LONG);
    });
    EXPECT_LT(Milliseconds([&] { EXPECT_EQ(oConnection.Connect(oPeer.GetPort(), 20000), 2); }), 10000);
    oCloser.join();
}

TEST(ConnectionTest, SendingToAPeerThatNeverReadsEndsOnTimeAndClosesTheConnection)
{
    CTestPeer oPeer;
    oPeer.StopReading();
    CRecorder oConnection;
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    const std::string strTelegram = Block(60000, 'x');
    int nRC = 1;
    long long nTime = 0;
    while (nRC == 1)
        nTime = Milliseconds([&] { nRC = oConnection.Send(strTelegram, 250); });
    EXPECT_EQ(nRC, 4);
    EXPECT_GE(nTime, 250);
    EXPECT_LT(nTime, 550);
    // Part of a telegram is out, so the stream is over.
    EXPECT_EQ(oConnection.Send("xx", 250), 3);
    EXPECT_TRUE(oConnection.WaitForStates("+-"));
    oPeer.ReadAgain();
    EXPECT_TRUE(oPeer.WaitForEndOfClient());
    EXPECT_TRUE(oPeer.WasReset()); // and the peer cannot take it for a complete one
}

TEST(ConnectionTest, WhatWasSentArrivesThoughThePeerGoesOnSending)
{
    for (const bool bIndication : {false, true}) {
        CTestPeer oPeer;
        oPeer.StopReading();
        CRecorder oConnection;
        if (bIndication)
            oConnection.m_fnDataInd = [&] { EXPECT_EQ(oConnection.DisconnectReq(LONG), 1); };
        ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
        for (int i = 0; i < 20; ++i) // more than the peer's system takes
            ASSERT_EQ(oConnection.Send(Block(30000, 'x')), 1);
        std::thread oCloser;
        if (!bIndication)
            oCloser = std::thread([&] { EXPECT_EQ(oConnection.DisconnectReq(LONG), 1); });
        oPeer.Send(Block(5, 'i'));
        EXPECT_TRUE(WaitUntil([&] { return oConnection.GetState() != 3; }));
        for (int i = 0; i < 100; ++i)
            oPeer.Send(Block(5, 'i'));
        oPeer.ReadAgain();
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(oPeer.TakeRequest(), ToHex(Block(30000, 'x'))) << i;
        if (oCloser.joinable())
            oCloser.join();
        EXPECT_LE(oConnection.GetTelegrams().size(), 1U); // nothing is delivered any more
    }
}

TEST(ConnectionTest, ClosingWaitsForAPeerThatReadsNothingAndNotForABlockedSender)
{
    CTestPeer oPeer;
    CRecorder oConnection;
    oPeer.StopReading();
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    EXPECT_LT(Milliseconds([&] { EXPECT_EQ(oConnection.DisconnectReq(LONG), 1); }),
              1000); // nothing is on its way
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(oConnection.Send(Block(30000, 'x')), 1);
    const long long nTime = Milliseconds([&] { EXPECT_EQ(oConnection.DisconnectReq(200), 4); });
    EXPECT_GE(nTime, 200);
    EXPECT_LT(nTime, 500);

    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    std::thread oSender([&] {
        int nRC = 1;
        while (nRC == 1)
            nRC = oConnection.Send(Block(60000, 'x'), 60000);
        EXPECT_EQ(nRC, 3);
    });
    EXPECT_TRUE(WaitUntil([&] { return oConnection.Send("xx", 100) == 4; })); // it is blocked
    EXPECT_LT(Milliseconds([&] { EXPECT_EQ(oConnection.DisconnectReq(LONG), 1); }), 1000);
    oSender.join();
}

TEST(ConnectionTest, TelegramsOfManySendersDoNotMix)
{
    CTestPeer oPeer;
    CRecorder oConnection;
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    constexpr int COUNT = 50;
    std::vector<std::thread> aoThreads;
    for (const char c : {'a', 'b', 'c', 'd'}) {
        aoThreads.emplace_back([&, c] {
            for (int i = 0; i < COUNT; ++i)
                EXPECT_EQ(oConnection.Send(Block(30000, c)), 1);
        });
    }
    std::map<std::string, int> anSeen;
    for (int i = 0; i < 4 * COUNT; ++i)
        ++anSeen[oPeer.TakeRequest()];
    for (std::thread& oThread : aoThreads)
        oThread.join();
    EXPECT_EQ(anSeen.size(), 4U); // each one whole: a mixture would be another text
    for (const char c : {'a', 'b', 'c', 'd'})
        EXPECT_EQ(anSeen[ToHex(Block(30000, c))], COUNT) << c;
}

TEST(ConnectionTest, LosingThePeerIsToldAndTheObjectConnectsAgain)
{
    CTestPeer oPeer;
    CRecorder oConnection;
    for (const bool bReset : {false, true}) {
        ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
        ASSERT_TRUE(oPeer.WaitForClient(bReset ? 2 : 1));
        oPeer.Send(Hex("05 00 01 02 03 04 05 10 00 01")); // the second one is never finished
        ASSERT_TRUE(oConnection.WaitForTelegrams(bReset ? 2 : 1));
        bReset ? oPeer.Reset() : oPeer.Close();
        EXPECT_TRUE(oConnection.WaitForStates(bReset ? "+-+-" : "+-"));
        EXPECT_EQ(oConnection.GetState(), 0);
        EXPECT_EQ(oConnection.Send("xx"), 3);
    }
    EXPECT_EQ(oConnection.GetTelegrams().size(), 2U);

    // One's own closing is no loss, and connecting twice leaves one connection.
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    EXPECT_TRUE(oPeer.WaitForClient());
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    EXPECT_EQ(oConnection.Send(Hex("01 00 33")), 1);
    EXPECT_EQ(oPeer.TakeRequest(), "01 00 33");
    EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);
    EXPECT_TRUE(oPeer.WaitForEndOfClient());
    EXPECT_EQ(oConnection.GetState(), 0);
    EXPECT_TRUE(oConnection.WaitForStates("+-+-++"));
}

TEST(ConnectionTest, KeepAliveNoticesAPeerThatVanishedAndKeepsOneThatOnlyDoesNotRead)
{
    for (const int nTelegrams : {0, 1, 20}) { // with nothing, with little and with much on its way
        CTestPeer oPeer;
        oPeer.StopReading();
        CRecorder oConnection;
        oConnection.SetAlive(2000);
        ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
        ASSERT_TRUE(oPeer.WaitForClient());
        const auto fnSend = [&] {
            for (int i = 0; i < nTelegrams; ++i)
                EXPECT_EQ(oConnection.Send(Block(30000, 'x')), 1);
        };
        if (nTelegrams == 20) { // the window closes, and its probes are answered
            fnSend();
            EXPECT_FALSE(oConnection.m_oLost.Wait(4000));
            oPeer.ReadAgain();
        } else {
            oPeer.StopAnsweringAtAll();
            fnSend();
            const long long nTime = Milliseconds([&] { EXPECT_TRUE(oConnection.m_oLost.Wait(30000)); });
            EXPECT_GT(nTime, 1000);
            EXPECT_LT(nTime, 3500);
        }
    }
}

TEST(ConnectionTest, ClosingWithinAnIndicationEndsDelivery)
{
    CTestPeer oPeer;
    CZelEvent oClosed;
    CRecorder oConnection;
    oConnection.m_fnDataInd = [&] {
        EXPECT_TRUE(oConnection.IsReceiveThread());
        EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);
        EXPECT_EQ(oConnection.GetState(), 0);
        oClosed.Signal();
    };
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'a') + Block(5, 'b') + Block(5, 'c'));
    EXPECT_TRUE(oPeer.WaitForEndOfClient());
    EXPECT_TRUE(oClosed.Wait(LONG));
    EXPECT_EQ(oConnection.DisconnectReq(LONG), 1); // the indication has returned
    EXPECT_EQ(oConnection.GetTelegrams().size(), 1U);

    // And from within an indication the object may connect anew.
    oConnection.m_fnDataInd = [&] {
        if (oConnection.GetTelegrams().size() == 2) {
            EXPECT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
        }
    };
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'd'));
    ASSERT_TRUE(oPeer.WaitForClient(3));
    oPeer.Send(Block(5, 'e'));
    EXPECT_TRUE(oConnection.WaitForTelegrams(3));
}

TEST(ConnectionTest, ConnectingAnewWithinIndicationsTakesNoMoreMemory)
{
    const auto fnAddressSpace = [] { // in pages
        long long nPages = 0;
        std::ifstream("/proc/self/statm") >> nPages;
        return nPages;
    };
    CTestPeer oPeer;
    CRecorder oConnection;
    oConnection.m_fnDataInd = [&] { EXPECT_EQ(oConnection.Connect(oPeer.GetPort()), 1); };
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    long long nBefore = 0;
    for (unsigned int i = 1; i <= 60; ++i) {
        ASSERT_TRUE(oPeer.WaitForClient(i));
        if (i == 20)
            nBefore = fnAddressSpace();
        oPeer.Send(Block(5, 'a'));
    }
    ASSERT_TRUE(oPeer.WaitForClient(61));
    EXPECT_TRUE(WaitUntil([&] { return oConnection.GetState() == 3; }));
    EXPECT_LT(fnAddressSpace() - nBefore, 20 * 2048); // fewer than 20 stacks of 8 MiB
}

TEST(ConnectionTest, ClosingEndsWhatAnIndicationConnectsMeanwhile)
{
    CTestPeer oPeer;
    CZelEvent oRunning;
    CRecorder oConnection;
    oConnection.m_fnDataInd = [&] {
        oRunning.Signal();
        EXPECT_TRUE(WaitUntil([&] { return oConnection.GetState() == 2; })); // the close waits for this
        EXPECT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    };
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'a'));
    ASSERT_TRUE(oRunning.Wait(LONG));
    EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);
    EXPECT_EQ(oConnection.GetState(), 0);
}

TEST(ConnectionTest, DeletedAtTheEndOfReceptionWhenNoOtherIndicationRuns)
{
    CTestPeer oPeer;
    CZelEvent oGoOn;
    CZelEvent oDeleted;
    auto* const pConnection = new CRecorder;
    pConnection->m_fnDataInd = [&] {
        if (pConnection->GetTelegrams().size() == 1) {
            EXPECT_EQ(pConnection->Connect(oPeer.GetPort()), 1); // the next telegram comes on another thread
            oGoOn.Wait(LONG);
            EXPECT_EQ(pConnection->GetTelegrams().size(), 2U);
            return;
        }
        EXPECT_TRUE(pConnection->RunAtEndOfReception([&] {
            delete pConnection;
            oDeleted.Signal();
        }));
        EXPECT_EQ(pConnection->DisconnectReq(LONG), 1);
    };
    ASSERT_EQ(pConnection->Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'a'));
    ASSERT_TRUE(oPeer.WaitForClient(2));
    oPeer.Send(Block(5, 'b'));
    EXPECT_TRUE(oPeer.WaitForEndOfClient());
    EXPECT_FALSE(oDeleted.Wait(100));
    oGoOn.Signal();
    EXPECT_TRUE(oDeleted.Wait(LONG));
}

TEST(ConnectionTest, DeletedWhileAnotherThreadCloses)
{
    CTestPeer oPeer;
    CZelEvent oRunning;
    auto* const pConnection = new CRecorder;
    pConnection->m_fnDataInd = [&] {
        EXPECT_TRUE(pConnection->RunAtEndOfReception([&] { delete pConnection; }));
        oRunning.Signal();
        EXPECT_TRUE(WaitUntil([&] { return pConnection->GetState() == 2; }));
    };
    ASSERT_EQ(pConnection->Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'a'));
    ASSERT_TRUE(oRunning.Wait(LONG));
    EXPECT_EQ(pConnection->DisconnectReq(LONG), 1);
}

TEST(ConnectionTest, ClosingFromAnotherThreadWaitsForARunningIndicationAndNoLonger)
{
    CTestPeer oPeer;
    CZelEvent oRunning;
    CZelEvent oGoOn;
    CRecorder oConnection;
    oConnection.m_fnDataInd = [&] {
        oRunning.Signal();
        oGoOn.Wait(LONG);
    };
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'a') + Block(5, 'b'));
    ASSERT_TRUE(oRunning.Wait(LONG));
    const long long nTime = Milliseconds([&] { EXPECT_EQ(oConnection.DisconnectReq(200), 4); });
    EXPECT_GE(nTime, 200);
    EXPECT_LT(nTime, 500);
    EXPECT_TRUE(oPeer.WaitForEndOfClient()); // closed all the same
    EXPECT_EQ(oConnection.GetState(), 0);
    oGoOn.Signal();
    EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);
    EXPECT_EQ(oConnection.GetTelegrams().size(), 1U);
}
