// Connecting, the exchange of telegrams, and what happens to confirmations that nobody waits for.

#include "ConnectedTest.h"
#include "QuorvelClient.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace
{

constexpr unsigned int NO_WAIT = 0xFFFFFFFFU;
const CQuorvelMsg REQUEST(0x0309, 7, "\x01\x02", 2);
const std::string GOOD = "08 00 09 83 07 00 00 21 22 8e";
const std::string UNIT = "16 source/QuorvelClient: ";
const std::string DELETED = UNIT + "deleting obsolete confirmation telegram from parter";

struct CProbe : CQuorvelClient {
    explicit CProbe(unsigned int nTimeout, int nDeviceType = 3)
        : CQuorvelClient(static_cast<EQuorvelDevice>(nDeviceType), nTimeout)
    {
    }
    ~CProbe() override { StopReception(); }

    using CQuorvelClient::m_aoMessageMap;
    using CQuorvelClient::m_nMsgID;
    using CQuorvelClient::m_nTimeout;

    void ConInd(bool bConnected) override { m_nLost += bConnected ? 0 : 1; }

    bool DataIndRespond(CQuorvelMsg* pMsg) override { return m_pTaken.reset(pMsg), true; }

    using CQuorvelClient::SendMsg;
    int SendMsg(const CQuorvelMsg& oMsg) override
    {
        if (m_fnBeforeSending)
            std::exchange(m_fnBeforeSending, nullptr)();
        return CQuorvelClient::SendMsg(oMsg);
    }

    void Receive(const std::string& strHex)
    {
        const std::string strBytes = Hex(strHex);
        DataInd(strBytes.data(), static_cast<unsigned short>(strBytes.size()));
    }

    // Checks what an exchange of REQUEST returns and hands over.
    void Exchange(const unsigned int* pTimeout, int nRC, const std::string& strCnf)
    {
        CQuorvelMsg* pCnf = nullptr;
        EXPECT_EQ(nRC, SendMsg(REQUEST, pCnf, pTimeout));
        const std::unique_ptr<CQuorvelMsg> pOwned(pCnf);
        EXPECT_EQ(strCnf, pOwned ? ToHex(pOwned->GetMessageData()) : "");
    }

    std::atomic<int> m_nLost{0};
    std::unique_ptr<CQuorvelMsg> m_pTaken;
    std::function<void()> m_fnBeforeSending; // called once
};

using ClientTest = CConnectedTest<CProbe, 0x0300>;

} // namespace

TEST_F(ClientTest, ConnectsToThePortOfItsKind)
{
    const std::string strAddress = OwnAddress();
    CTestPeer aoPeers[] = {CTestPeer(strAddress, 5002), CTestPeer(strAddress, 5099)};
    for (const auto& [nKind, nPeer] : {std::pair(3, 0), std::pair(0, 1), std::pair(0x10003, 0)}) {
        CProbe oClient(5000, nKind);
        ASSERT_EQ(0, oClient.Connect(strAddress.c_str(), 0, 1, true));
        EXPECT_TRUE(aoPeers[nPeer].WaitForClient());
        EXPECT_EQ(3, oClient.GetConnectState());
        EXPECT_EQ(0, oClient.Close());
        EXPECT_TRUE(aoPeers[nPeer].WaitForEndOfClient());
    }
}

TEST_F(ClientTest, ExchangeJudgesTheConfirmationAndHandsItOver)
{
    const std::string strBadCheck = UNIT + "Quorvel TCP/IP telegram has invalid CRC: 0xa0000";
    const std::string strForeign = UNIT + "Quorvel TCP/IP telegram is not confirmed by partner: 0xb0000";
    const std::string strLate = UNIT + "TCP/IP timeout occured: 0x40000";
    const std::string strOld = "08 00 34 12 05 00 6f 6c 64 44";
    const std::tuple<std::string, int, std::string, CTexts> aoCases[] = {
        {GOOD, 0, GOOD, {}},
        {"05 00 09 83 07 00 8d", 0, "05 00 09 83 07 00 8d", {}}, // its missing result is not judged here
        {"06 00 09 84 07 00 00 8a", 0x000B0000, "06 00 09 84 07 00 00 8a", {strForeign}},
        {"06 00 0a 83 07 00 00 00", 0x000A0000, "06 00 0a 83 07 00 00 00", {strBadCheck}},
        {"06 00 09 83 08 00 00 82", 0x00040000, strOld, {strLate}}, // another id
        {"06 00 09 03 07 00 00 0d", 0x00040000, strOld, {strLate}}, // an indication
    };
    for (const auto& [strAnswer, nRC, strCnf, astrFailure] : aoCases) {
        const unsigned int nTimeout = nRC == 0x00040000 ? 100 : 5000;
        CTraceRecorder oTraces;
        CQuorvelMsg oCnf(0x1234, 5, "old", 3);
        m_oPeer.Raw(Hex(strAnswer));
        EXPECT_EQ(nRC, m_oClient.SendMsg(REQUEST, oCnf, &nTimeout)) << strAnswer;
        EXPECT_EQ(strCnf, ToHex(oCnf.GetMessageData()));
        EXPECT_EQ("07 00 09 03 07 00 01 02 0e", m_oPeer.TakeRequest());
        const CTexts astrTexts = oTraces.Take();
        EXPECT_EQ(astrFailure, CTexts(astrTexts.begin() + 4, astrTexts.end())); // behind the telegrams
    }
    EXPECT_EQ(1U, m_oClient.m_aoMessageMap.count(8)); // the one with the other id was kept
}

TEST_F(ClientTest, WaitingEndsOnTimeWhateverElseHappens)
{
    const auto fnLasts = [&](long long nMilliSeconds, const unsigned int* pTimeout) {
        const long long nTaken = Milliseconds([&] { m_oClient.Exchange(pTimeout, 0x00040000, ""); });
        EXPECT_GE(nTaken, nMilliSeconds);
        EXPECT_LT(nTaken, nMilliSeconds + 300);
    };
    const unsigned int nTimeout = 500;
    std::thread oFlood([&] {
        const CZelDeadline oEnd(400);
        while (!oEnd.IsOver())
            m_oClient.Receive("06 00 09 83 08 00 00 82"); // another id
    });
    fnLasts(500, &nTimeout);
    oFlood.join();
    for (const unsigned int nNoWait : {0x80000000U, 0xFFFFFFFFU}) { // as signed numbers: negative
        m_oClient.Receive("06 00 09 83 07 00 21 ac");
        m_oClient.Receive(GOOD);               // replaces the older
        m_oClient.Exchange(&nNoWait, 0, GOOD); // what is there is taken, once
        fnLasts(0, &nNoWait);
    }
    m_oClient.m_nTimeout = 300; // its own counts when no other is given
    std::thread oCloser([&] {
        for (int i = 0; i < 6; ++i)
            m_oPeer.TakeRequest();
        m_oPeer.Close();
    });
    fnLasts(300, nullptr); // nor does a lost connection shorten the waiting
    oCloser.join();
    EXPECT_EQ(1, m_oClient.m_nLost);
}

TEST_F(ClientTest, WaitingIsEndedFromOutside)
{
    m_oClient.CancelWait(); // of nothing
    const unsigned int nTimeout = 60000;
    std::atomic<bool> bEnded{false};
    std::thread oExchange([&] { m_oClient.Exchange(&nTimeout, 0x00040000, ""); });
    m_oPeer.TakeRequest();
    m_oClient.CancelWait();
    oExchange.join();
    std::thread oCollector([&] {
        EXPECT_EQ(nullptr, m_oClient.WaitForMsg(9, &nTimeout));
        bEnded = true;
    });
    EXPECT_TRUE(
        WaitUntil([&] { return m_oClient.CancelWait(), bEnded.load(); })); // whenever it began to wait
    oCollector.join();
    m_oPeer.Raw(Hex(GOOD)); // the connection stays
    m_oClient.Exchange(nullptr, 0, GOOD);
}

TEST_F(ClientTest, OneExchangeAtATimeAndItsOwnWithinIt)
{
    m_oClient.m_nTimeout = 300;
    CQuorvelMsg oCnf;
    std::thread oOther;
    m_oClient.m_fnBeforeSending = [&] {
        oOther = std::thread([&] { m_oClient.Exchange(nullptr, 0x00040000, ""); });
        EXPECT_EQ(0x00040000, m_oClient.SendMsg(CQuorvelMsg(0x0301, 5, nullptr, 0), oCnf, nullptr));
    };
    m_oPeer.Ignore();
    m_oPeer.Raw(Telegram(0x8302, 6, "x"));
    EXPECT_EQ(0, m_oClient.SendMsg(CQuorvelMsg(0x0302, 6, nullptr, 0), oCnf, nullptr));
    oOther.join();
    for (const char* pRequest :
         {"05 00 01 03 05 00 07", "05 00 02 03 06 00 07", "07 00 09 03 07 00 01 02 0e"})
        EXPECT_EQ(pRequest, m_oPeer.TakeRequest());
}

TEST_F(ClientTest, AChildProcessDoesNotWaitForAnExchangeOfItsParent)
{
    const unsigned int nTimeout = 1000;
    std::thread oExchange([&] { m_oClient.Exchange(&nTimeout, 0x00040000, ""); });
    EXPECT_NE("none", m_oPeer.TakeRequest());
    const auto fnChild = [&] {
        alarm(10);
        std::_Exit(m_oClient.Restart() == 0x00030000 ? 0 : 1);
    };
    EXPECT_EXIT(fnChild(), testing::ExitedWithCode(0), "");
    oExchange.join();
}

TEST_F(ClientTest, WhatAnOverrideThrowsBecomesAResult)
{
    CQuorvelMsg oMine;
    CQuorvelMsg* pCnf = &oMine;
    m_oClient.m_fnBeforeSending = [] { throw std::bad_alloc(); };
    EXPECT_EQ(0xFF, m_oClient.SendMsg(REQUEST, pCnf, nullptr));
    EXPECT_EQ(&oMine, pCnf);
    m_oClient.m_fnBeforeSending = [] { throw std::runtime_error("x"); };
    EXPECT_EQ(0xFF, m_oClient.SendMsg(REQUEST, oMine, nullptr));
    m_oPeer.Raw(Hex(GOOD));
    std::thread([&] { m_oClient.Exchange(nullptr, 0, GOOD); }).join(); // its turn has come
}

TEST_F(ClientTest, TelegramIDsCountThroughTheNegativeNumbers)
{
    m_oClient.m_nMsgID = 32767;
    for (const char* pRequest : {"05 00 0c 03 ff 7f 8f", "05 00 0c 03 00 80 8f"}) {
        m_oPeer.Confirm("00");
        EXPECT_EQ(0, m_oClient.Restart());
        EXPECT_EQ(pRequest, m_oPeer.TakeRequest());
    }
}

TEST_F(ClientTest, ConfirmationsAreKeptForAWhile)
{
    const auto& aoStored = m_oClient.m_aoMessageMap;
    CTraceRecorder oTraces;
    m_oClient.m_nTimeout = 50; // keeps nothing
    for (const char* p : {"06 00 09 83 fb ff 00 8e", "06 00 09 83 07 00 00 8d", "06 00 09 83 08 00 00 82"})
        m_oClient.Receive(p);
    EXPECT_EQ(3U, aoStored.size());
    EXPECT_EQ(1U, aoStored.count(-5));
    const std::unique_ptr<CQuorvelMsg> pMsg(m_oClient.WaitForMsg(7, &NO_WAIT)); // comes before the cleaning
    EXPECT_NE(nullptr, pMsg);
    const unsigned int nShort = 1;
    EXPECT_EQ(nullptr, m_oClient.WaitForMsg(9, &nShort));
    EXPECT_TRUE(aoStored.empty());
    const CTexts astrTexts = oTraces.Take();
    EXPECT_EQ((CTexts{DELETED, DELETED}), CTexts(astrTexts.end() - 2, astrTexts.end()));

    m_oClient.m_nTimeout = 199; // keeps for one second
    m_oClient.Receive("06 00 09 83 fb ff 00 8e");
    const unsigned int nLater = 250;
    EXPECT_EQ(nullptr, m_oClient.WaitForMsg(9, &nLater));
    m_oClient.Receive("06 00 09 83 08 00 00 82");
    const auto fnLeft = [&] { return m_oClient.WaitForMsg(9, &NO_WAIT), aoStored.size(); };
    const long long nKept = Milliseconds([&] {
        EXPECT_TRUE(WaitUntil([&] { return fnLeft() < 2; }));
        EXPECT_EQ(1U, aoStored.count(8)); // the younger one
        EXPECT_TRUE(WaitUntil([&] { return fnLeft() == 0; }));
    });
    EXPECT_GE(nKept, 990);
    EXPECT_LT(nKept, 1600); // not a second from the end of the older one
}

TEST_F(ClientTest, EveryTelegramIsTraced)
{
    const std::string strInfo = "8 source/QuorvelClient: INFO requested to 127.0.0.1";
    CTraceRecorder oTraces;
    m_oClient.m_nTimeout = 0x80000000U; // nothing is awaited, so that all traces come from this thread
    EXPECT_EQ(0x00040000, m_oClient.Info(nullptr));
    m_oClient.Receive("09 00 09 83 07 00 00 41 42 8d"); // a wrong length
    EXPECT_TRUE(m_oClient.m_aoMessageMap.empty());
    m_oClient.Receive(GOOD);
    m_oClient.Close();
    EXPECT_EQ(0x00030000, m_oClient.Info(nullptr));
    EXPECT_EQ((CTexts{strInfo, UNIT + "data sended RC=0",
                      UNIT + "0000: 05 00 09 03 02 00 08                             .......",
                      UNIT + "TCP/IP timeout occured: 0x40000",
                      UNIT + "invalid incoming telegram from parter is discarded.",
                      UNIT + "0000: 09 00 09 83 07 00 00 41 42 8D                    .......AB.",
                      UNIT + "incoming telegram from parter",
                      UNIT + "0000: 08 00 09 83 07 00 00 21 22 8E                    .......!\".", strInfo,
                      UNIT + "data sended RC=196608",
                      UNIT + "0000: 05 00 09 03 03 00 09                             .......",
                      UNIT + "Not connected to TCP/IP partner: 0x30000"}),
              oTraces.Take());
    CNumbers anFixed;
    CTraceServer::SetSink([&](const STraceMessage& o) { anFixed = {o.nKind, o.nSession, o.nFlag}; });
    m_oClient.Restart();
    EXPECT_EQ((CNumbers{3, 0xFFFFFFFF, 0}), anFixed);
    CTraceServer::SetSink({});
}

TEST_F(ClientTest, WhatCannotBeSentLeavesTheConfirmationAlone)
{
    const std::string strData(65529, 'x');
    CQuorvelMsg oMine;
    CQuorvelMsg* pCnf = &oMine;
    EXPECT_EQ(0x00020000, m_oClient.SendMsg(CQuorvelMsg(0x0309, 7, strData.data(), 65529), pCnf, nullptr));
    EXPECT_EQ(&oMine, pCnf);
    EXPECT_EQ(0, m_oClient.SendMsg(CQuorvelMsg(0x0309, 7, strData.data(), 65528)));
    EXPECT_EQ(65535U * 3 - 1, m_oPeer.TakeRequest().size()); // nothing of the longer one
}

TEST_F(ClientTest, IndicationsGoToTheDeviceClass)
{
    m_oClient.Receive("06 00 46 7f 09 00 aa 00"); // a bad check byte is no reason to drop one
    ASSERT_NE(nullptr, m_oClient.m_pTaken);
    EXPECT_EQ("06 00 46 7f 09 00 aa 00", ToHex(m_oClient.m_pTaken->GetMessageData()));
    EXPECT_TRUE(m_oClient.m_aoMessageMap.empty());
    EXPECT_FALSE(CQuorvelClient(eDeviceSPI, 5000).DataIndRespond(m_oClient.m_pTaken.get()));
}

TEST(ClientResultTest, ResultsOfConfirmationsAndTransport)
{
    const std::tuple<int, const char*, int> aoCases[] = {
        {3, "00", 0},        {3, "21 00", 0x0321}, {3, "00 21", 0},         {3, "ff", 0x03FF},
        {3, "", 0x000C0300}, {0, "21", 0x21},      {0x10083, "21", 0x8321}, {17, "", 0x000C1100}};
    for (const auto& [nKind, pHex, nRC] : aoCases) {
        const std::string strData = Hex(pHex);
        const CQuorvelMsg oCnf(0x8309, 2, strData.data(), static_cast<unsigned short>(strData.size()));
        EXPECT_EQ(nRC, CProbe(5000, nKind).GetCnfRetCode(oCnf)) << nKind << ' ' << pHex;
    }
    const int anResults[] = {0, 0, 0x00020000, 0x00030000, 0x00040000, 0x00050000, 0x00060000, 1};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(anResults[i], CQuorvelClient::ConvertTCPRetCode(i));
}
