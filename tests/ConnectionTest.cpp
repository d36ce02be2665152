// The connection: framing, time-outs, losing and regaining the peer, closing from everywhere.

#include "TestPeer.h"
#include "support/ZelEvent.h"
#include "support/ZelIPConnection.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{

constexpr unsigned int LONG = 5000; // milliseconds, never used up when all is well

class CRecorder : public CZelIPConnection
{
  public:
    ~CRecorder() override { DisconnectReq(0xFFFFFFFFU); }

    void ConnectInd(bool bConnected) override
    {
        const std::lock_guard oLock(m_oMutex);
        m_strStates += bConnected ? '+' : '-';
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

    std::string GetStates()
    {
        const std::lock_guard oLock(m_oMutex);
        return m_strStates;
    }

    std::vector<std::string> GetTelegrams()
    {
        const std::lock_guard oLock(m_oMutex);
        return m_astrTelegrams;
    }

    bool WaitForTelegrams(std::size_t nCount)
    {
        return WaitUntil([&] { return GetTelegrams().size() >= nCount; });
    }

    std::function<void()> m_fnDataInd; // set before connecting

  private:
    std::mutex m_oMutex;
    std::string m_strStates;
    std::vector<std::string> m_astrTelegrams;
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
    CTestPeer oPeer;
    CRecorder oConnection;
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    // Length fields that are no telegram's are passed on all the same.
    const std::vector<std::string> astrSent = {Hex("05 00 09 83 02 00 88"), Hex("00 00"),
                                               Hex("04 00 01 02 03 04"), Block(65533, 'x'),
                                               Hex("05 00 01 02 03 04 05")};
    std::string strStream;
    for (const std::string& strTelegram : astrSent)
        strStream += strTelegram;
    oPeer.Send(strStream); // in one go
    ASSERT_TRUE(oConnection.WaitForTelegrams(5));
    const std::string strSmall = astrSent[0] + astrSent[1] + astrSent[2];
    for (const char c : strSmall) // a byte at a time; the peer's socket does not wait for more
        oPeer.Send(std::string(1, c));
    ASSERT_TRUE(oConnection.WaitForTelegrams(8));

    std::vector<std::string> astrExpected = astrSent;
    astrExpected.insert(astrExpected.end(), astrSent.begin(), astrSent.begin() + 3);
    EXPECT_EQ(oConnection.GetTelegrams(), astrExpected);
}

TEST(ConnectionTest, TelegramsThatAreTooLongAreSkippedAndTraced)
{
    CTraceRecorder oTraces(16);
    CTestPeer oPeer;
    CRecorder oConnection;
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(65534, 'a') + Block(3, 'b') + Block(65535, 'c') + Block(65533, 'd') + Block(4, 'e'));
    ASSERT_TRUE(oConnection.WaitForTelegrams(3));
    EXPECT_EQ(oConnection.GetTelegrams(),
              (std::vector<std::string>{Block(3, 'b'), Block(65533, 'd'), Block(4, 'e')}));
    EXPECT_EQ(
        oTraces.Take(),
        (std::vector<std::string>{
            "16 source/support/ZelIPConnection: telegram of 65536 bytes is too long and is discarded.",
            "16 source/support/ZelIPConnection: telegram of 65537 bytes is too long and is discarded."}));
}

TEST(ConnectionTest, ConnectingTellsFailuresApart)
{
    CRecorder oConnection;
    EXPECT_EQ(oConnection.GetPartnerAddress(), "");
    unsigned short nFreePort = 0;
    {
        const CTestPeer oPeer;
        nFreePort = oPeer.GetPort();
    }
    EXPECT_EQ(oConnection.Connect(nFreePort), 2); // refused
    EXPECT_EQ(oConnection.GetPartnerAddress(), "127.0.0.1");
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
    int nRC = 0;
    const long long nTime = Milliseconds([&] { nRC = oConnection.Connect(oPeer.GetPort(), 300); });
    EXPECT_EQ(nRC, 4);
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
    EXPECT_EQ(oConnection.GetState(), 0);
    EXPECT_EQ(oConnection.Send("xx", 250), 3);
    EXPECT_TRUE(WaitUntil([&] { return oConnection.GetStates() == "+-"; }));
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
    std::string strStates;
    for (const bool bReset : {false, true}) {
        ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
        oPeer.Send(Hex("05 00 01 02 03 04 05") + Hex("10 00 01")); // the second one is never finished
        ASSERT_TRUE(WaitUntil([&] { return !oConnection.GetTelegrams().empty(); }));
        if (bReset)
            oPeer.Reset();
        else
            oPeer.Close();
        strStates += "+-";
        EXPECT_TRUE(WaitUntil([&] { return oConnection.GetStates() == strStates; }));
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
    EXPECT_EQ(oConnection.GetStates().find('-', 4), std::string::npos);
}

TEST(ConnectionTest, KeepAliveNoticesAPeerThatVanished)
{
    CTestPeer oPeer;
    CRecorder oConnection;
    oConnection.SetAlive(2000);
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    ASSERT_TRUE(oPeer.WaitForClient());
    oPeer.StopAnsweringAtAll();
    const long long nTime =
        Milliseconds([&] { EXPECT_TRUE(WaitUntil([&] { return oConnection.GetStates() == "+-"; })); });
    EXPECT_GT(nTime, 1000);
    EXPECT_LT(nTime, 3500);
}

TEST(ConnectionTest, ClosingWithinAnIndicationEndsDelivery)
{
    CTestPeer oPeer;
    CRecorder oConnection;
    CZelEvent oClosed;
    oConnection.m_fnDataInd = [&] {
        EXPECT_TRUE(oConnection.IsReceiveThread());
        EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);
        EXPECT_EQ(oConnection.GetState(), 0);
        oClosed.Signal();
    };
    ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
    oPeer.Send(Block(5, 'a') + Block(5, 'b') + Block(5, 'c'));
    ASSERT_TRUE(oClosed.Wait(LONG));
    EXPECT_TRUE(oPeer.WaitForEndOfClient());
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

TEST(ConnectionTest, ClosingFromAnotherThreadWaitsForARunningIndicationAndNoLonger)
{
    CTestPeer oPeer;
    CZelEvent oRunning;
    CZelEvent oGoOn;
    {
        CRecorder oConnection;
        oConnection.m_fnDataInd = [&] {
            oRunning.Signal();
            oGoOn.Wait(LONG);
        };
        ASSERT_EQ(oConnection.Connect(oPeer.GetPort()), 1);
        oPeer.Send(Block(5, 'a') + Block(5, 'b'));
        ASSERT_TRUE(oRunning.Wait(LONG));
        int nRC = 0;
        const long long nTime = Milliseconds([&] { nRC = oConnection.DisconnectReq(200); });
        EXPECT_EQ(nRC, 4);
        EXPECT_GE(nTime, 200);
        EXPECT_LT(nTime, 500);
        EXPECT_TRUE(oPeer.WaitForEndOfClient()); // closed all the same
        EXPECT_EQ(oConnection.GetState(), 0);
        oGoOn.Signal();
        EXPECT_EQ(oConnection.DisconnectReq(LONG), 1);
        EXPECT_EQ(oConnection.GetTelegrams().size(), 1U);
    }
}
