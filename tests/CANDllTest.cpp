// The receiving CAN client: callbacks, queues and readers, also with many threads and at awkward moments. Runs
// under the thread sanitizer too.

#include "ConnectedTest.h"
#include "DeviceManager.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelDllSPI.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <tuple>
#include <type_traits>

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
    const auto nLen = static_cast<std::size_t>(std::get<LEN>(std::tuple(5, args...)));
    const auto fnShow = [&](auto a) {
        if constexpr (std::is_pointer_v<decltype(a)>)
            return '[' + ToHex({reinterpret_cast<const char*>(a), nLen}) + "] ";
        else
            return std::to_string(a) + ' ';
    };
    g_strSeen = (fnShow(args) + ...);
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
    template<class... A>
    std::string ReadBy(int (CQuorvelClientCANDll::*pReader)(A*...), bool bNull)
    {
        std::array<std::string, sizeof...(A)> astrOutputs;
        astrOutputs.fill(std::string(300, '\xee'));
        const auto fnRead = [&](auto&... strOutputs) {
            return (this->*pReader)((bNull ? nullptr : reinterpret_cast<A*>(strOutputs.data()))...);
        };
        std::string strText = std::to_string(std::apply(fnRead, astrOutputs));
        for (std::string& strBytes : astrOutputs) {
            strBytes.resize(strBytes.find_last_not_of('\xee') + 1);
            strText += strBytes.empty() ? "" : " | " + ToHex(strBytes);
        }
        return strText;
    }
};

std::atomic<unsigned int> g_nFrames;
std::function<void(int)> g_fnOnFrame;

template<class... A>
void Count(A...)
{
    ++g_nFrames;
}

void CallOnFrame(unsigned int, const char* pData, int, int, int nHandle)
{
    ++g_nFrames;
    g_fnOnFrame(nHandle);
    EXPECT_EQ('\n', *pData); // still readable
}

} // namespace

TEST(CANDllTest, IndicationsReachCallbacksAndReaders)
{
    const std::string strNoTime = U + "CAN Message has no timestamp.";
    const std::string strInvalid = U + "Invalid CAN-Telegram received.";
    const std::string str64 = ToHex(std::string(64, 'Z'));
    const std::string str253 = ToHex(std::string(253, '\0'));
    const std::string strZero = " | 00 00 00 00 | 00 00 00 00"; // seconds and microseconds
    const std::tuple<unsigned int, std::string, std::string, std::string, CTexts> aoCases[] = {
        // code, data; arguments of the callback, outputs of the reader, traces of one of them
        {0x0203, "78 56 34 92 84 01 02 02 01 00 00 04 00 00 00", "2452903544 [01 02] 2 132 77 258 4 ",
         "0 | 78 56 34 92 | 01 02 02 01 00 00 04 00 00 00 | 02 | 84 ff ff ff | 02 01 00 00 | 04 00 00 00",
         CTexts{}},
        {0x0203, "01 00 00 00 04 0a 0b 0c 0d 0f 10 11", "1 [] 0 4 77 0 0 ",
         "0 | 01 00 00 00 | 0a 0b 0c 0d 0f 10 11 | 00 | 04 00 00 00" + strZero, CTexts{}},
        {0x0203, "01 00 00 00 04 09 00 00 00 08 00 00 00", "1 [] 0 4 77 9 8 ",
         "0 | 01 00 00 00 | 09 00 00 00 08 00 00 00 | 00 | 04 00 00 00 | 09 00 00 00 | 08 00 00 00",
         CTexts{}},
        {0x0203, "01 00 00 00 00" + str64, "1 [" + str64 + "] 64 0 77 0 0 ",
         "0 | 01 00 00 00 | " + str64 + " | 40 | 00 00 00 00" + strZero, CTexts{strNoTime}},
        {0x0203, "01 00 00 00 00 5a" + str64, "", "-1", CTexts{strNoTime, strInvalid}},
        {0x0203, "01 00 00 00 00 0a 0b 00 00 00" + str253, "1 [0a 0b] 2 0 77 0 0 ",
         "0 | 01 00 00 00 | 0a 0b | 02 | 00 00 00 00" + strZero, CTexts{strNoTime}}, // lengths in one byte
        {0x0264, "85", "133 77 0 0 ", "0 | 85", CTexts{U + "SYNC Indication."}},
        {0x0266, "05 81 10 82 01 02 03 04 05 06", "5 65409 130 [01 02 03 04 05] 77 0 0 ",
         "0 | 05 | 81 ff | 82 | 01 02 03 04 05", CTexts{U + "EMCY Indication."}}, // not 0x1081
        {0x0267, "05 01 09 01 02 03 04 05 06 07 08 09", "5 1 9 [01 02 03 04 05 06 07 08 09] 77 0 0 ",
         "0 | 05 | 01 | 08 | 01 02 03 04 05 06 07 08", CTexts{U + "PDO Indication."}},
        {0x0267, "05 01 ff 01 02", "5 1 255 [01 02 " + str253 + "] 77 0 0 ",
         "0 | 05 | 01 | 08 | 01 02 00 00 00 00 00 00", CTexts{U + "PDO Indication."}},
        {0x026C, "05 85 01", "5 133 77 0 0 ", "0 | 05 | 85", CTexts{U + "GUARD Indication."}},
        {0x026D, "fe ff ff ff 04 01 02 09 00 00 00 08 00 00 00", "-2 254 255 2 [01 02] 77 9 8 ",
         "0 | fe ff ff ff | fe | ff | 02 | 01 02 09 00 00 00 08 00 00 00 | 09 00 00 00 | 08 00 00 00",
         CTexts{U + "UNDEFINED Indication."}},
        {0x026D, "05 00 00 00 00 01 02 03 04 05 06 07 08 09", "5 5 0 9 [01 02 03 04 05 06 07 08 09] 77 0 0 ",
         "0 | 05 00 00 00 | 05 | 00 | 08 | 01 02 03 04 05 06 07 08 09" + strZero,
         CTexts{U + "UNDEFINED Indication.", strNoTime}},
        {0x0265, "01 02 03 04 05", "", "-1", CTexts{}},
    };
    CClient oCalled;
    CClient oQueued;
    oCalled.SetCallbackEx(See<3>);
    oCalled.CANopenSetCallback(See<3>, See<0>, See<0>, See<0>, See<4>);
    oCalled.SetMaxSizePerQueue(1);
    oQueued.SetMaxSizePerQueue(1);
    for (const auto& [nCode, strData, strSeen, strRead, astrTraces] : aoCases) {
        SCOPED_TRACE(std::to_string(nCode) + ": " + strData);
        CTraceRecorder oTraces(8);
        g_strSeen.clear();
        oCalled.Receive(nCode, Hex(strData));
        EXPECT_EQ(strSeen, g_strSeen);
        EXPECT_EQ(astrTraces, oTraces.Take());
        EXPECT_EQ("-1", oCalled.Read(nCode)); // bypassed
        oQueued.Receive(nCode, Hex(strData));
        EXPECT_EQ(strRead, oQueued.Read(nCode));
    }
}

TEST(CANDllTest, OneFrameCallbackAtATime)
{
    CClient oClient;
    const std::string strFrame = Hex("01 00 00 00 80 0a");
    oClient.SetCallbackEx(See<3>);
    oClient.SetCallback(See<3>);
    oClient.Receive(0x0203, strFrame);
    EXPECT_EQ("1 [0a] 1 128 77 ", g_strSeen);
    oClient.SetCallbackEx(See<3>);
    oClient.Receive(0x0203, strFrame);
    EXPECT_EQ("1 [0a] 1 128 77 0 0 ", g_strSeen);
    g_strSeen.clear();
    oClient.SetCallback(nullptr); // clears the other one, too
    oClient.Receive(0x0203, strFrame);
    oClient.SetCallback(See<3>);
    oClient.SetCallbackEx(nullptr);
    oClient.Receive(0x0203, strFrame);
    EXPECT_EQ("", g_strSeen);
    EXPECT_EQ("-1", oClient.Read(0x0203)); // queueing was never switched on
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
        oClient.SetMaxSizePerQueue(4);
        fnReceive({"01", "02", "03", "04", "05"});
        oClient.SetMaxSizePerQueue(1); // what is there stays
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

TEST(CANDllTest, AQueueHoldsTelegramsOfAnyLength)
{
    struct SQueue : CQuorvelMsgQueue {
        using CQuorvelMsgQueue::m_nMaxSize;
    } oQueue;
    EXPECT_EQ(1000U, oQueue.m_nMaxSize);
    oQueue.SetMaxSize(3000);
    const std::atomic<bool> bOn{true};
    const unsigned short anLengths[] = {0, 128, 129, 16380, 16384, 65528, 1};
    std::array<char, 128> acShort{};
    std::string strLong;
    std::string_view strData;
    for (int nRound = 0; nRound < 2; ++nRound) { // what one round left behind does not disturb the next
        for (int i = 0; i < 140; ++i) {
            const std::string strSent(anLengths[i % 7], static_cast<char>(i));
            oQueue.Append(CQuorvelMsg(0x0203, 0, strSent.data(), anLengths[i % 7]), bOn);
        }
        for (int i = 0; i < 70; ++i) {
            ASSERT_EQ(139 - i, i % 2 == 0 ? oQueue.Take(acShort, strLong, strData) : oQueue.Take(strLong));
            const std::string strSent(anLengths[i % 7], static_cast<char>(i));
            ASSERT_TRUE(strSent == (i % 2 == 0 ? strData : strLong)) << i;
        }
        oQueue.Clear();
        strLong = "left alone";
        ASSERT_EQ(-1, oQueue.Take(strLong));
        ASSERT_EQ("left alone", strLong);
    }
}

class CANDllThreadsTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_nFrames = 0;
        for (int i = 0; i < 500; ++i)
            m_strFrames += Telegram(0x0203, 0, Hex("01 00 00 00 00 0a"));
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
        for (int i = 0; i < 200; ++i)
            m_oPeer.Send(m_strFrames + Telegram(0x0264, 0, "x") + Telegram(0x0267, 0, "pdo"));
    });
    EXPECT_TRUE(WaitUntil([&] {
        for (int i = 0; i < 100; ++i) {
            oClient.SetCallbackEx(Count);
            oClient.CANopenSetCallback(See<3>, See<0>, See<0>, See<0>, See<4>);
            oClient.SetMaxSizePerQueue(5);
            oClient.SetCallback(Count);
            oClient.CANopenSetCallback(nullptr, nullptr, nullptr, nullptr, nullptr);
            oClient.SetMaxSizePerQueue(0);
        }
        return g_nFrames >= 100000;
    }));
    oSender.join();
    EXPECT_EQ(100000U, g_nFrames);
}

TEST_F(CANDllThreadsTest, SeveralReadersGetEveryFrameOnceAndInOrder)
{
    constexpr int FRAMES = 50000;
    CClient oClient;
    oClient.SetMaxSizePerQueue(FRAMES);
    Connect(oClient);
    std::atomic<int> nRead{0};
    std::atomic<long> nSum{0};
    const auto fnRead = [&] {
        int nLast = -1;
        EXPECT_TRUE(WaitUntil([&] {
            int nIdentifier = 0;
            while (oClient.CANGetMessage(&nIdentifier, nullptr, nullptr, nullptr, nullptr, nullptr) >= 0) {
                EXPECT_LT(nLast, nIdentifier);
                nLast = nIdentifier;
                nSum += nIdentifier;
                ++nRead;
            }
            return nRead >= FRAMES;
        }));
    };
    std::thread oReader(fnRead);
    std::string strFrames;
    for (int i = 0; i < FRAMES; ++i) {
        strFrames += Telegram(0x0203, 0, {static_cast<char>(i), static_cast<char>(i >> 8), 0, 0, 0});
        if (strFrames.size() > 5000 || i == FRAMES - 1)
            m_oPeer.Send(std::exchange(strFrames, {}));
    }
    fnRead();
    oReader.join();
    EXPECT_EQ(FRAMES, nRead);
    EXPECT_EQ(1249975000L, nSum);
    EXPECT_EQ("-1", oClient.Read(0x0203));
}

TEST_F(CANDllThreadsTest, ACallbackClosesItsOwnDevice)
{
    static std::atomic<int> s_nClosed; // the end of a receive thread that nobody joins
    s_nClosed = 0;
    CClient oClient;
    g_fnOnFrame = [&](int) {
        EXPECT_EQ(0, oClient.Close());
        ++s_nClosed;
    };
    oClient.SetCallback(CallOnFrame);
    Connect(oClient);
    m_oPeer.Send(m_strFrames);
    EXPECT_TRUE(WaitUntil([] { return s_nClosed == 1; }));
    EXPECT_TRUE(m_oPeer.WaitForEndOfClient());
    EXPECT_EQ(0, oClient.Close()); // waits for the callback
    EXPECT_EQ(1U, g_nFrames);

    const std::string strAddress = OwnAddress();
    CTestPeer oPeer(strAddress, 5001);
    int nHandle = 0;
    ASSERT_EQ(0, CDeviceManager::OpenDevice(&nHandle, strAddress.c_str(), LONG, 2, 0, 1, true));
    auto& oManaged = dynamic_cast<CQuorvelClientCANDll&>(*CDeviceManager::GetDevice(nHandle)->m_pClient);
    g_fnOnFrame = [nHandle](int nCalled) {
        EXPECT_EQ(nHandle, nCalled);
        EXPECT_EQ(0, SPICloseDevice(nCalled));
        EXPECT_EQ(0x00900000, SPICloseDevice(nCalled));
        ++s_nClosed;
    };
    oManaged.SetCallback(CallOnFrame);
    oPeer.Send(m_strFrames);
    EXPECT_TRUE(WaitUntil([] { return s_nClosed == 2; }));
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
