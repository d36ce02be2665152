// The receiving CAN client: callbacks, queues and readers, also with many threads and at awkward moments. Runs
// under the thread sanitizer too.

#include "ConnectedTest.h"
#include "DeviceManager.h"
#include "QuorvelClientCANDll.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <utility>

namespace
{

constexpr int LONG = 10000;
const std::string U = "8 source/QuorvelClientCANDll: "; // in front of every trace

// What a callback got: all its arguments, bytes as hex digits.
std::string g_strSeen;

// LEN tells which argument is the length of the data; 0 means 5 bytes.
template<int LEN, class... A>
void See(A... args)
{
    std::size_t nLen = LEN == 0 ? 5 : 0;
    int i = 0;
    const auto fnLength = [&](auto a) {
        ++i;
        if constexpr (!std::is_pointer_v<decltype(a)>)
            nLen = i == LEN ? static_cast<std::size_t>(a) : nLen;
    };
    const auto fnShow = [&](auto a) {
        if constexpr (std::is_pointer_v<decltype(a)>)
            g_strSeen += '[' + ToHex({reinterpret_cast<const char*>(a), nLen}) + "] ";
        else
            g_strSeen += std::to_string(a) + ' ';
    };
    g_strSeen.clear();
    (fnLength(args), ...);
    (fnShow(args), ...);
}

class CClient : public CQuorvelClientCANDll
{
  public:
    CClient() : CQuorvelClientCANDll(77, LONG) {}
    ~CClient() override { StopReception(); }

    void Receive(unsigned int nCode, const std::string& strData)
    {
        const std::string strBytes = Telegram(nCode, 1, strData);
        DataInd(strBytes.data(), static_cast<unsigned short>(strBytes.size()));
    }

    void SetCallbacks(bool bOn)
    {
        SetCallbackEx(nullptr);
        if (bOn)
            SetCallbackEx(See<3>);
        bOn ? CANopenSetCallback(See<3>, See<-1>, See<0>, See<-1>, See<4>)
            : CANopenSetCallback(nullptr, nullptr, nullptr, nullptr, nullptr);
    }

    // The result of a kind's reader, then what it wrote to each output.
    std::string Read(unsigned int nCode, bool bNull = false)
    {
        using T = CQuorvelClientCANDll;
        return nCode == 0x0203   ? ReadBy(&T::CANGetMessage, bNull)
               : nCode == 0x0264 ? ReadBy(&T::CANopenGetSYNC, bNull)
               : nCode == 0x0266 ? ReadBy(&T::CANopenGetEMCY, bNull)
               : nCode == 0x0267 ? ReadBy(&T::CANopenGetPDO, bNull)
               : nCode == 0x026C ? ReadBy(&T::CANopenGetGUARD, bNull)
                                 : ReadBy(&T::CANopenGetUndefined, bNull);
    }

  private:
    struct SOutput {
        SOutput() { std::fill_n(anBytes, sizeof anBytes, static_cast<unsigned char>(0xEE)); }
        alignas(8) unsigned char anBytes[300];
    };

    template<class... A>
    std::string ReadBy(int (CQuorvelClientCANDll::*pReader)(A*...), bool bNull)
    {
        SOutput aoOutputs[sizeof...(A)];
        const auto fnRead = [&]<std::size_t... I>(std::index_sequence<I...>)
        {
            return (this->*pReader)((bNull ? nullptr : reinterpret_cast<A*>(aoOutputs[I].anBytes))...);
        };
        std::string strText = std::to_string(fnRead(std::index_sequence_for<A...>()));
        for (const SOutput& oOutput : aoOutputs) {
            std::string strBytes(oOutput.anBytes, oOutput.anBytes + sizeof oOutput.anBytes);
            strBytes.resize(strBytes.find_last_not_of('\xee') + 1);
            strText += strBytes.empty() ? "" : " | " + ToHex(strBytes);
        }
        return strText;
    }
};

std::string Number(int n)
{
    return {static_cast<char>(n), static_cast<char>(n >> 8), static_cast<char>(n >> 16), '\0'};
}

std::string Frame(int nIdentifier)
{
    return Telegram(0x0203, 0, Number(nIdentifier) + '\4' + "8 bytes." + Number(nIdentifier) + Number(1));
}

std::string Repeat(const char* pText, int nCount)
{
    std::string strText;
    while (nCount-- > 0)
        strText += pText;
    return strText;
}

std::atomic<unsigned int> g_nFrames;
std::function<void(int)> g_fnOnFrame;

void Count(unsigned int, const char*, int, int, int)
{
    ++g_nFrames;
}

void CountEx(unsigned int, const char*, int, int, int, int, int)
{
    ++g_nFrames;
}

void CallOnFrame(unsigned int, const char*, int, int, int nHandle)
{
    ++g_nFrames;
    g_fnOnFrame(nHandle);
}

} // namespace

TEST(CANDllTest, IndicationsReachCallbacksAndReaders)
{
    const std::string strNoTime = "CAN Message has no timestamp.";
    const std::string strInvalid = "Invalid CAN-Telegram received.";
    const std::string str64 = Repeat(" 5a", 64).substr(1);
    const std::string strZero = " | 00 00 00 00 | 00 00 00 00"; // seconds and microseconds
    const std::tuple<unsigned int, std::string, std::string, std::string, std::string> aoCases[] = {
        // code, data; arguments of the callback, outputs of the reader, traces of one of them
        {0x0203, "78 56 34 92 84 01 02 03 04 05 06 07 08 02 01 00 00 04 00 00 00",
         "2452903544 [01 02 03 04 05 06 07 08] 8 132 77 258 4 ",
         "0 | 78 56 34 92 | 01 02 03 04 05 06 07 08 02 01 00 00 04 00 00 00 | 08 | 84 ff ff ff | 02 01 00 00 "
         "| 04 00 00 00",
         ""},
        {0x0203, "01 00 00 00 00 0a 0b 0c", "1 [0a 0b 0c] 3 0 77 0 0 ",
         "0 | 01 00 00 00 | 0a 0b 0c | 03 | 00 00 00 00" + strZero, strNoTime},
        {0x0203, "01 00 00 00 04 0a 0b 0c 0d 0f 10 11", "1 [] 0 4 77 0 0 ",
         "0 | 01 00 00 00 | 0a 0b 0c 0d 0f 10 11 | 00 | 04 00 00 00" + strZero, ""}, // its time is missing
        {0x0203, "01 00 00 00 04" + str64 + "ff ff ff ff 01 00 00 80",
         "1 [" + str64 + "] 64 4 77 -1 -2147483647 ",
         "0 | 01 00 00 00 | " + str64 +
             " ff ff ff ff 01 00 00 80 | 40 | 04 00 00 00 | ff ff ff ff | 01 00 00 80",
         ""},
        {0x0203, "01 00 00 00 00 5a" + str64, "", "-1", strNoTime + "|" + strInvalid},
        {0x0203, "01 00 00 00 04 5a" + str64 + "01 00 00 00 01 00 00 00", "", "-1", strInvalid},
        {0x0203, "01 00 00 00 00 0a 0b" + Repeat("00", 256), "1 [0a 0b] 2 0 77 0 0 ",
         "0 | 01 00 00 00 | 0a 0b | 02 | 00 00 00 00" + strZero, strNoTime}, // lengths in one byte
        {0x0203, "01 00", "", "-1", strNoTime + "|" + strInvalid},
        {0x0264, "85", "133 77 0 0 ", "0 | 85", "SYNC Indication."},
        {0x0264, "", "0 77 0 0 ", "0 | 00", "SYNC Indication."},
        {0x0266, "05 81 10 82 01 02 03 04 05 06", "5 65409 130 [01 02 03 04 05] 77 0 0 ",
         "0 | 05 | 81 ff | 82 | 01 02 03 04 05", "EMCY Indication."}, // not 0x1081
        {0x0266, "05 10 81 02 01", "5 33040 2 [01 00 00 00 00] 77 0 0 ",
         "0 | 05 | 10 81 | 02 | 01 00 00 00 00", "EMCY Indication."},
        {0x0267, "05 01 0c 01 02 03 04 05 06 07 08 09 0a 0b 0c",
         "5 1 12 [01 02 03 04 05 06 07 08 09 0a 0b 0c] 77 0 0 ", "0 | 05 | 01 | 08 | 01 02 03 04 05 06 07 08",
         "PDO Indication."},
        {0x0267, "05 01 ff 01 02", "5 1 255 [01 02" + Repeat(" 00", 253) + "] 77 0 0 ",
         "0 | 05 | 01 | 08 | 01 02 00 00 00 00 00 00", "PDO Indication."},
        {0x026C, "05 85 01", "5 133 77 0 0 ", "0 | 05 | 85", "GUARD Indication."},
        {0x026D, "fe ff ff ff 04 01 02 09 00 00 00 08 00 00 00", "-2 254 255 2 [01 02] 77 9 8 ",
         "0 | fe ff ff ff | fe | ff | 02 | 01 02 09 00 00 00 08 00 00 00 | 09 00 00 00 | 08 00 00 00",
         "UNDEFINED Indication."},
        {0x026D, "01 02 00 00 00 01 02 03 04 05 06 07 08 09",
         "513 1 2 9 [01 02 03 04 05 06 07 08 09] 77 0 0 ",
         "0 | 01 02 00 00 | 01 | 02 | 08 | 01 02 03 04 05 06 07 08 09" + strZero,
         "UNDEFINED Indication.|" + strNoTime},
        {0x026D, "01 02 00 00", "513 1 2 255 [00" + Repeat(" 00", 254) + "] 77 0 0 ",
         "0 | 01 02 00 00 | 01 | 02 | 08 | 00" + Repeat(" 00", 254) + strZero,
         "UNDEFINED Indication.|" + strNoTime},
        {0x0265, "01 02 03 04 05", "", "-1", ""},
    };
    CClient oClient;
    for (const auto& [nCode, strData, strSeen, strRead, strTraces] : aoCases) {
        SCOPED_TRACE(std::to_string(nCode) + ": " + strData);
        CTraceRecorder oTraces(8);
        oClient.SetMaxSizePerQueue(3);
        oClient.SetCallbacks(true);
        g_strSeen.clear();
        oClient.Receive(nCode, Hex(strData));
        EXPECT_EQ(strSeen, g_strSeen);
        std::string strTraced;
        for (const std::string& strText : oTraces.Take())
            strTraced += (strTraced.empty() ? "" : "|") + strText.substr(U.size());
        EXPECT_EQ(strTraces, strTraced);
        EXPECT_EQ("-1", oClient.Read(nCode)); // bypassed

        oClient.SetCallbacks(false);
        oClient.Receive(nCode, Hex(strData));
        EXPECT_EQ(strRead, oClient.Read(nCode));
        EXPECT_EQ("-1", oClient.Read(nCode));

        oClient.SetMaxSizePerQueue(0);
        oClient.Receive(nCode, Hex(strData));
        EXPECT_EQ("-1", oClient.Read(nCode));
    }
}

TEST(CANDllTest, OneFrameCallbackAtATime)
{
    CClient oClient;
    const std::string strFrame = Hex("01 00 00 00 80 0a");
    const auto fnSeen = [&] {
        g_strSeen = "none";
        oClient.Receive(0x0203, strFrame);
        return g_strSeen;
    };
    EXPECT_EQ("none", fnSeen());
    oClient.SetCallback(See<3>);
    EXPECT_EQ("1 [0a] 1 128 77 ", fnSeen());
    oClient.SetCallbackEx(See<3>);
    EXPECT_EQ("1 [0a] 1 128 77 0 0 ", fnSeen());
    oClient.SetCallback(See<3>);
    EXPECT_EQ("1 [0a] 1 128 77 ", fnSeen());
    oClient.SetCallbackEx(nullptr);
    EXPECT_EQ("none", fnSeen());
    EXPECT_EQ("-1", oClient.Read(0x0203)); // queueing was never switched on
    CQuorvelMsg oMsg(0x0203, 0, strFrame.data(), 6);
    EXPECT_FALSE(oClient.DataIndRespond(&oMsg));

    timeval oTime{7, 8};
    EXPECT_EQ(0, oClient.GetTime(0x04, "\1\2\3\4\5\6\7", 7, oTime));
    EXPECT_EQ(std::pair(7L, 8L), std::pair(oTime.tv_sec, oTime.tv_usec)); // left alone
    EXPECT_EQ(1, oClient.GetTime(0xFF, "x\xff\xff\xff\xff\1\0\0\0", 9, oTime));
    EXPECT_EQ(std::pair(0xFFFFFFFFL, 1L), std::pair(oTime.tv_sec, oTime.tv_usec));
}

TEST(CANDllTest, QueuesKeepTheOldest)
{
    CClient oClient;
    for (const unsigned int nCode : {0x0203U, 0x0264U, 0x0266U, 0x0267U, 0x026CU, 0x026DU}) {
        const auto fnReceive = [&](std::initializer_list<const char*> apFirst) {
            for (const char* pFirst : apFirst)
                oClient.Receive(nCode, Hex(pFirst + std::string(" 00 00 00 00")));
        };
        const auto fnFirst = [&] { return oClient.Read(nCode).substr(0, 6); };
        oClient.SetMaxSizePerQueue(2);
        fnReceive({"01", "02", "03"});
        EXPECT_EQ("1 | 01", fnFirst());
        fnReceive({"04"});
        EXPECT_EQ("1 | 02", fnFirst());
        EXPECT_EQ("0 | 04", fnFirst());
        EXPECT_EQ("-1", fnFirst());

        oClient.SetMaxSizePerQueue(4);
        fnReceive({"01", "02", "03", "04"});
        oClient.SetMaxSizePerQueue(1); // what is there stays
        fnReceive({"05"});
        EXPECT_EQ("3 | 01", fnFirst());
        EXPECT_EQ("2", oClient.Read(nCode, true)); // null pointers are skipped
        fnReceive({"06"});                         // still full
        EXPECT_EQ("1 | 03", fnFirst());
        oClient.SetMaxSizePerQueue(0);
        EXPECT_EQ("-1", fnFirst());
        oClient.SetMaxSizePerQueue(5);
        fnReceive({"07"});
        EXPECT_EQ("0 | 07", fnFirst());
    }
}

TEST(CANDllTest, LongQueuesStayInOrder)
{
    CClient oClient;
    oClient.SetMaxSizePerQueue(30000);
    int nSent = 0;
    int nRead = 0;
    for (int nRound = 1; nRound <= 3; ++nRound) {
        for (; nSent < 30000 + nRead; ++nSent) { // a few so long that they need a block of their own
            const int nLen = nSent % 1000 == 0 ? 60000 : nSent % 60;
            oClient.Receive(0x026D, Number(nSent) + std::string(static_cast<std::size_t>(nLen), 'x'));
        }
        oClient.Receive(0x026D, "too many");
        for (int i = 0; i < 10000 * nRound; ++i, ++nRead) {
            int n = -1;
            ASSERT_EQ(nSent - nRead - 1,
                      oClient.CANopenGetUndefined(&n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
            ASSERT_EQ(nRead, n);
        }
    }
}

class CANDllThreadsTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_nFrames = 0;
        for (int i = 0; i < 500; ++i)
            m_strFrames += Frame(i);
    }

    void Connect(CClient& oClient) { ASSERT_EQ(0, oClient.Connect("127.0.0.1", m_oPeer.GetPort(), 1, true)); }

    CTestPeer m_oPeer;
    std::string m_strFrames; // 500
};

TEST_F(CANDllThreadsTest, NothingIsLostWhileCallbacksAreExchanged)
{
    CClient oClient;
    Connect(oClient);
    oClient.SetCallback(Count);
    std::thread oSender([&] {
        for (int i = 0; i < 40; ++i)
            m_oPeer.Send(m_strFrames + Telegram(0x0264, 0, "x") + Telegram(0x0267, 0, "pdo"));
    });
    EXPECT_TRUE(WaitUntil([&] {
        oClient.SetCallbackEx(CountEx);
        oClient.CANopenSetCallback(See<3>, See<-1>, See<0>, See<-1>, See<4>);
        oClient.SetMaxSizePerQueue(5);
        oClient.SetCallback(Count);
        oClient.CANopenSetCallback(nullptr, nullptr, nullptr, nullptr, nullptr);
        oClient.SetMaxSizePerQueue(0);
        return g_nFrames >= 20000;
    }));
    oSender.join();
    EXPECT_EQ(20000U, g_nFrames);
    EXPECT_EQ("-1", oClient.Read(0x0203));
}

TEST_F(CANDllThreadsTest, TwoReadersGetEveryFrameOnce)
{
    CClient oClient;
    Connect(oClient);
    oClient.SetMaxSizePerQueue(30000);
    std::thread oSender([&] {
        for (int i = 0; i < 40; ++i)
            m_oPeer.Send(m_strFrames);
    });
    std::atomic<long long> nSum{0};
    const auto fnRead = [&] {
        EXPECT_TRUE(WaitUntil([&] {
            int nIdentifier = 0;
            int nSeconds = 0;
            unsigned char nLen = 0;
            for (; oClient.CANGetMessage(&nIdentifier, nullptr, &nLen, nullptr, &nSeconds, nullptr) >= 0;
                 ++g_nFrames) {
                EXPECT_EQ(8, nLen);
                EXPECT_EQ(nIdentifier, nSeconds);
                nSum += nIdentifier;
            }
            return g_nFrames == 20000;
        }));
    };
    std::thread oReader(fnRead);
    fnRead();
    oReader.join();
    oSender.join();
    EXPECT_EQ(40LL * 499 * 250, nSum);
}

TEST_F(CANDllThreadsTest, DestroyingWhileFramesStreamIn)
{
    std::atomic<bool> bEnd{false};
    std::thread oFlood([&] {
        while (!bEnd)
            m_oPeer.Send(m_strFrames + Telegram(0x026D, 0, "undefined"));
    });
    for (int i = 0; i < 20; ++i) {
        CClient oClient;
        i % 2 == 0 ? oClient.SetCallback(Count) : oClient.SetMaxSizePerQueue(100);
        Connect(oClient);
        const unsigned int nBefore = g_nFrames;
        ASSERT_TRUE(WaitUntil([&] { return g_nFrames > nBefore || oClient.Read(0x0203) != "-1"; }));
    }
    bEnd = true;
    CClient oLast; // lets the flood's Send find a connection, and end
    Connect(oLast);
    oFlood.join();
}

TEST_F(CANDllThreadsTest, ACallbackClosesItsOwnDevice)
{
    CClient oClient;
    CZelEvent oClosed;
    g_fnOnFrame = [&](int) {
        EXPECT_EQ(0, oClient.Close());
        oClosed.Signal();
    };
    oClient.SetCallback(CallOnFrame);
    Connect(oClient);
    m_oPeer.Send(m_strFrames);
    EXPECT_TRUE(oClosed.Wait(LONG));
    EXPECT_TRUE(m_oPeer.WaitForEndOfClient());
    EXPECT_EQ(0, oClient.Close()); // waits for the callback
    EXPECT_EQ(1U, g_nFrames);

    const std::string strAddress = OwnAddress();
    CTestPeer oPeer(strAddress, 5001);
    int nHandle = 0;
    ASSERT_EQ(0, CDeviceManager::OpenDevice(&nHandle, strAddress.c_str(), LONG, 2, 0, 1, true));
    auto* const pClient = dynamic_cast<CQuorvelClientCANDll*>(CDeviceManager::GetDevice(nHandle)->m_pClient);
    ASSERT_NE(nullptr, pClient);
    g_fnOnFrame = [&](int nCalled) {
        EXPECT_EQ(nHandle, nCalled);
        EXPECT_EQ(0, CDeviceManager::CloseDevice(nCalled));
        EXPECT_EQ(0x00900000, CDeviceManager::CloseDevice(nCalled));
        oClosed.Signal();
    };
    pClient->SetCallback(CallOnFrame);
    oPeer.Send(m_strFrames);
    EXPECT_TRUE(oClosed.Wait(LONG));
    EXPECT_TRUE(oPeer.WaitForEndOfClient());
    EXPECT_EQ(2U, g_nFrames);
}

TEST_F(CANDllThreadsTest, ACallbackThatThrowsIsTracedAndReceptionGoesOn)
{
    CClient oClient;
    g_fnOnFrame = [](int) { throw std::runtime_error("callback"); };
    oClient.SetCallback(CallOnFrame);
    CTraceRecorder oTraces(1);
    Connect(oClient);
    m_oPeer.Send(m_strFrames);
    EXPECT_TRUE(WaitUntil([] { return g_nFrames == 500; }));
    oClient.Close();
    EXPECT_EQ(CTexts(500, "1 source/support/ZelIPConnection: exception while a telegram was handled"),
              oTraces.Take());
}

TEST_F(CANDllThreadsTest, ACallbackMaySendAndSettersDoNotWaitForIt)
{
    CClient oClient;
    Connect(oClient);
    oClient.Open();
    CZelEvent oInside;
    CZelEvent oGoOn;
    g_fnOnFrame = [&](int) {
        EXPECT_EQ(0, oClient.Write(5, "x", 1, 0, nullptr, nullptr)); // unconfirmed, beside an exchange
        oInside.Signal();
        EXPECT_TRUE(oGoOn.Wait(LONG));
    };
    oClient.SetCallback(CallOnFrame);
    std::thread oExchange([&] { EXPECT_EQ(0, oClient.SetPowerRelais(true)); });
    EXPECT_EQ("06 00 23 02 02 00 01 22", m_oPeer.TakeRequest());
    m_oPeer.Send(Frame(1) + Frame(2) + Telegram(0x8223, 2, std::string(1, '\0')));
    ASSERT_TRUE(oInside.Wait(LONG));
    EXPECT_EQ("0b 00 03 02 03 00 05 00 00 00 00 78 7f", m_oPeer.TakeRequest());
    oClient.SetCallbackEx(CountEx); // takes effect with the next frame
    oClient.SetMaxSizePerQueue(0);
    EXPECT_EQ(1U, g_nFrames);
    oGoOn.Signal();
    oExchange.join();
    EXPECT_EQ(2U, g_nFrames);
}
