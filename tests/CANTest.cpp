// The CAN client: settings, transmission, power supply and CANopen requests.

#include "ConnectedTest.h"
#include "QuorvelClientCAN.h"

#include <gtest/gtest.h>

#include <ctime>
#include <locale>
#include <sstream>

namespace
{

using CANTest = CConnectedTest<CQuorvelClientCAN, 0x0200>;

const std::string U = "4 source/QuorvelClientCAN: ";

// Values of any types, with blanks between them.
template<class... A>
std::string Text(A... values)
{
    std::ostringstream oText;
    ((oText << +values << ' '), ...);
    return oText.str();
}

// Writes numbers as some countries do.
struct SGrouping : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

} // namespace

TEST_F(CANTest, RequestsAndResults)
{
    const std::locale oBefore =
        std::locale::global(std::locale(std::locale(), new SGrouping)); // for the traces
    auto& o = m_oClient;
    bool b = false;
    unsigned char c = 0;
    unsigned short n = 0;
    short nSigned = 0;
    unsigned int nWord = 0;
    timeval oTime{-2, 999999};
    CQuorvelClientCAN::SConfigFilter oFilter{{0x81000000, 1, 2}};
    const auto* const pBlock = reinterpret_cast<const unsigned char*>("\0\x81");
    const std::string strSDO = ", NodeID=200, Index=4660, Subindex=129, Timeout=500";
    const std::tuple<std::function<int()>, const char*, std::string, std::string> aoCases[] = {
        {[&] { return o.SetGlobals(500000, 200, true, false, true); },
         "0d 00 07 02 02 00 c8 20 a1 07 00 01 00 01 49", "SET_GLOBALS",
         ", Operating mode=200, Baudrate=500000, Termination=1, HighSpeed=0, TimestampOn=1"},
        {[&] { return o.SetConfig(false, true); }, "07 00 05 02 02 00 00 01 04", "SET_CONFIG",
         ", ConfirmData=0, Monitor=1"},
        {[&] { return o.GetConfig(b, b); }, "05 00 06 02 02 00 06", "GET_CONFIG", ""},
        {[&] { return o.SetFilter(oFilter); },
         "45 00 20 02 02 00 00 00 00 81 01 00 00 00 02 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 a2",
         "SET_FILTER", ""},
        {[&] { return o.GetFilter(oFilter); }, "05 00 21 02 02 00 21", "GET_FILTER", ""},
        {[&] { return o.GetGlobals(nWord, c, b, b, b); }, "05 00 08 02 02 00 08", "GET_GLOBALS", ""},
        {[&] { return o.SetZCardParameter(5, 256, 512); }, "0c 00 51 02 02 00 05 00 01 00 02 00 02 55",
         "SET_ZCARD_PI", ", ZCardInterval=5, ZCardIDStart=256, ZCardIDEnd=512"},
        {[&] { return o.GetZCardParameter(c, n, n); }, "05 00 52 02 02 00 52", "GET_ZCARD_PI", ""},
        {[&] { return o.SetTime(oTime); }, "0d 00 0b 02 02 00 fe ff ff ff 3f 42 0f 00 78", "SET_TIME",
         ", oTime.tv_sec=-2, oTime.tv_usec=999999"},
        {[&] { return o.GetTime(b, oTime); }, "05 00 0e 02 02 00 0e", "GET_TIME", ""},
        {[&] { return o.GetPowerStatus(0, c, 0, c, 0, c, nSigned, n, n, b, nullptr, nullptr, nullptr); },
         "05 00 22 02 02 00 22", "GET_POWERSTATUS", ""},
        {[&] { return o.SetPowerRelais(true); }, "06 00 23 02 02 00 01 22", "SET_POWERRELAIS", ", cData=1"},
        {[&] { return o.SetActivePowerSupplies(0x80000001); }, "09 00 24 02 02 00 01 00 00 80 a5",
         "SET_POWERACTIVESUPPLIES", ", nBitmask=2147483649"},
        {[&] { return o.CANopenSetConfig(200); }, "06 00 60 02 02 00 c8 a8", "CANOPEN_SET_CONFIG",
         ", CANOpenModus=200"},
        {[&] { return o.CANopenGetConfig(c); }, "05 00 61 02 02 00 61", "CANOPEN_GET_CONFIG", ""},
        {[&] { return o.CANopenSetSYNCMode(1000); }, "07 00 62 02 02 00 e8 03 89", "CANOPEN_SYNC_MODE",
         ", PeriodTime=1000"},
        {[&] { return o.CANopenSendNMT(5, 128); }, "07 00 63 02 02 00 05 80 e6", "CANOPEN_NMT",
         ", NodeID=5, NMTTyp=128"},
        {[&] { return o.CANopenSendSYNC(); }, "05 00 64 02 02 00 64", "CANOPEN_SYNC", ""},
        {[&] { return o.CANopenSendTIME(0x102, 0x03040506); }, "0b 00 65 02 02 00 02 01 06 05 04 03 62",
         "CANOPEN_TIME", ", Day=258, Ms=50595078"},
        {[&] { return o.CANopenSendPDO(5, 1, 3, "\1\2\3"); }, "0a 00 67 02 02 00 05 01 01 02 03 63",
         "CANOPEN_PDO", ", NodeID=5, PDOTyp=1"},
        {[&] { return o.CANopenSendSDOWrite(2, 200, 0x1234, 129, 500, 0x80000001, c, nWord); },
         "10 00 69 02 02 00 02 c8 34 12 81 f4 01 01 00 00 80 70", "CANOPEN_SDO_WRITE",
         ", SDOWriteTyp=2" + strSDO},
        {[&] { return o.CANopenSendSDORead(200, 0x1234, 129, 500, c, nWord); },
         "0b 00 68 02 02 00 c8 34 12 81 f4 01 f2", "CANOPEN_SDO_READ", strSDO},
        {[&] { return o.CANopenSendSDOReadBlock(200, 0x1234, 129, 500, 7, c, n, nullptr); },
         "0b 00 6a 02 02 00 c8 34 12 81 f4 01 f0", "CANOPEN_SDO_READ_BLOCK", strSDO},
        {[&] { return o.CANopenSendSDOWriteBlock(200, 0x1234, 129, 500, 2, pBlock, c, nWord); },
         "0d 00 6b 02 02 00 c8 34 12 81 f4 01 00 81 70", "CANOPEN_SDO_WRITE_BLOCK", strSDO},
        {[&] { return o.Open(false, true); }, "07 00 05 02 02 00 00 01 04", "SET_CONFIG",
         ", ConfirmData=0, Monitor=1"},
    };
    for (const auto& [fnCall, pRequest, strName, strParameters] : aoCases)
        Check(fnCall, pRequest, U + strName, strParameters.c_str());
    std::locale::global(oBefore);
}

TEST_F(CANTest, SettingsAreDecodedFromLongEnoughSuccesses)
{
    bool ab[3] = {true, true, true};
    unsigned char c = 9;
    unsigned int nWord = 9;
    unsigned short an[2] = {9, 9};
    timeval oTime{9, 9};
    const auto fnGlobals = [&] { return m_oClient.GetGlobals(nWord, c, ab[0], ab[1], ab[2]); };
    const auto fnZCard = [&] { return m_oClient.GetZCardParameter(c, an[0], an[1]); };
    const auto fnTime = [&] { return m_oClient.GetTime(ab[0], oTime); };
    const auto fnMode = [&] { return m_oClient.CANopenGetConfig(c); };
    const std::tuple<std::function<int()>, const char*, const char*> aoCases[] = {
        {fnGlobals, "00 03 20 a1 07", "9 9 1 1 1 9 9 9 9 "},
        {fnGlobals, "00 03 20 a1 07 00", "500000 3 0 0 0 9 9 9 9 "},
        {fnGlobals, "00 03 20 a1 07 80 01 02", "2147983648 3 1 0 0 9 9 9 9 "}, // only 1 is true
        {fnGlobals, "00 03 01 00 00 00 00 01 01", "1 3 0 1 1 9 9 9 9 "},
        {fnZCard, "00 05 80 01 10 00", "1 5 0 1 1 128 16 9 9 "},             // 256 too low
        {fnTime, "00 02 fe ff ff ff 02 00 00 00", "1 5 1 1 1 128 16 -2 2 "}, // as SetTime sends it
        {fnMode, "00 07", "1 7 1 1 1 128 16 -2 2 "},
        {fnMode, "00", "1 0 1 1 1 128 16 -2 2 "},
    };
    for (const auto& [fnCall, pConfirmation, pExpected] : aoCases) {
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, fnCall()) << pConfirmation;
        EXPECT_EQ(pExpected, Text(nWord, c, ab[0], ab[1], ab[2], an[0], an[1], oTime.tv_sec, oTime.tv_usec))
            << pConfirmation;
    }

    CQuorvelClientCAN::SConfigFilter oFilter{};
    m_oPeer.Confirm("00 01 02 03 80 " + ToHex(std::string(60, 'x')));
    EXPECT_EQ(0, m_oClient.GetFilter(oFilter));
    EXPECT_EQ(0x80030201, oFilter.anValues[0]);
    EXPECT_EQ(0x78787878U, oFilter.anValues[15]);
}

TEST_F(CANTest, PowerStatusStaysWithinItsArrays)
{
    const std::tuple<const char*, unsigned char, const char*> aoCases[] = {
        // capacity of each array; counts, values and flag, the arrays. The first flags were 1, the others 0.
        {"00 04 02 03 00 80 03 80 04 00 02 11 22 33 44 55 66 77 88 01 00 00 01 01", 2,
         "4 2 3 -32768 32771 4 0 8721 17459 9 1 0 1 0 1 0 "},
        {"00 04 02 03 00 80 03 80 04 00 02 11", 2, "9 9 9 -9 9 9 0 9 9 9 1 1 1 0 0 0 "}, // too short
        {"00 ff 02 ff fe ff 03 80 04 00 01 11 22", 3,
         "255 2 255 -2 32771 4 1 8721 0 0 0 0 1 0 0 0 "}, // not sent: 0
    };
    for (const auto& [pConfirmation, nCapacity, pExpected] : aoCases) {
        unsigned char ac[] = {9, 9, 9};
        short nSigned = -9;
        unsigned short an[] = {9, 9, 9, 9, 9};
        bool ab[] = {false, true, true, true, false, false, false};
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, m_oClient.GetPowerStatus(nCapacity, ac[0], nCapacity, ac[1], nCapacity, ac[2], nSigned,
                                              an[3], an[4], ab[0], an, ab + 1, ab + 4));
        EXPECT_EQ(pExpected, Text(ac[0], ac[1], ac[2], nSigned, an[3], an[4], ab[0], an[0], an[1], an[2],
                                  ab[1], ab[2], ab[3], ab[4], ab[5], ab[6]));
    }
}

TEST_F(CANTest, AGatewayThatVanishedIsNoticed)
{
    EXPECT_EQ(0, m_oClient.StartAlive(2));
    ASSERT_TRUE(m_oPeer.WaitForClient());
    m_oPeer.StopAnsweringAtAll();
    const long long nTime =
        Milliseconds([&] { EXPECT_TRUE(WaitUntil([&] { return m_oClient.GetConnectState() != 3; })); });
    EXPECT_GT(nTime, 1000);
    EXPECT_LT(nTime, 3500);
}

TEST_F(CANTest, WriteWaitsOnlyForAGatewayThatConfirms)
{
    // A clock five hours ahead: the time is the local one.
    setenv("TZ", "ABC-5", 1); // NOLINT(concurrency-mt-unsafe)
    tzset();
    const auto fnNow = [] { return static_cast<int>(time(nullptr) + 18000); };
    int nSeconds = 0;
    int nMicroSeconds = -1;
    const auto fnWrite = [&] { return m_oClient.Write(-2, "\1\2", 2, 0x84, &nSeconds, &nMicroSeconds); };
    CTraceRecorder oTraces(0x0F);
    const int nBefore = fnNow();
    EXPECT_EQ(0, fnWrite());
    EXPECT_EQ(CTexts{U + "WRITE requested to 127.0.0.1,nIdentifier=0xfffffffe"}, oTraces.Take());
    EXPECT_EQ("0c 00 03 02 02 00 fe ff ff ff 84 01 02 85", m_oPeer.TakeRequest());
    EXPECT_LE(nBefore, nSeconds);
    EXPECT_GE(fnNow(), nSeconds);

    bool bConfirm = false;
    bool bMonitor = true;
    m_oPeer.Confirm("21 01 00");
    EXPECT_EQ(0x0221, m_oClient.GetConfig(bConfirm, bMonitor)); // leaves the outputs and the mode
    EXPECT_EQ(std::pair(false, true), std::pair(bConfirm, bMonitor));
    m_oPeer.Confirm("21");
    EXPECT_EQ(0x0221, m_oClient.SetConfig(true, true)); // so does this
    EXPECT_EQ(0, fnWrite());
    for (int i = 0; i < 3; ++i)
        m_oPeer.TakeRequest(); // from here on the next request is confirmed
    m_oPeer.Confirm("00 01 02");
    EXPECT_EQ(0, m_oClient.GetConfig(bConfirm, bMonitor));
    EXPECT_EQ(std::pair(true, false), std::pair(bConfirm, bMonitor));
    nSeconds = nMicroSeconds = 7;
    m_oPeer.Confirm("00 11 00 00 40 22 00 00");
    EXPECT_EQ(0, fnWrite());
    EXPECT_EQ(std::pair(7, 7), std::pair(nSeconds, nMicroSeconds));
    m_oPeer.Confirm("21 ff ff ff ff 22 00 00 80");
    EXPECT_EQ(0x0221, fnWrite());
    EXPECT_EQ(std::pair(-1, -0x7FFFFFDE), std::pair(nSeconds, nMicroSeconds));
    m_oClient.Open();
    m_oPeer.Raw(Hex("0e 00 03 82 02 00 00 01 00 00 00 02 00 00 00 ff")); // wrong check byte
    EXPECT_EQ(0x000A0000, fnWrite());
    EXPECT_EQ(std::pair(1, 2), std::pair(nSeconds, nMicroSeconds)); // time stored all the same

    m_oPeer.Confirm("00");
    EXPECT_EQ(0, m_oClient.SetConfig(false, false));
    m_oClient.Close();
    nSeconds = 0;
    EXPECT_EQ(0x00030000, fnWrite());
    EXPECT_LE(nBefore, nSeconds); // stored also when sending failed
    unsetenv("TZ");               // NOLINT(concurrency-mt-unsafe)
    tzset();
}

TEST_F(CANTest, SDOResultsAndTimeouts)
{
    unsigned char c = 0;
    unsigned short n = 0;
    unsigned int nWord = 0;
    unsigned char ac[5] = {};
    const std::function<int(unsigned short)> afnCalls[] = {
        [&](unsigned short t) { return m_oClient.CANopenSendSDORead(1, 2, 3, t, c, nWord); },
        [&](unsigned short t) { return m_oClient.CANopenSendSDOWrite(0, 1, 2, 3, t, 4, c, nWord); },
        [&](unsigned short t) { return m_oClient.CANopenSendSDOWriteBlock(1, 2, 3, t, 0, ac, c, nWord); },
        [&](unsigned short t) { return m_oClient.CANopenSendSDOReadBlock(1, 2, 3, t, 4, c, n, ac); }};
    const std::tuple<const char*, unsigned int, unsigned int> aoValues[] = {
        {"00 01", 1, 9},
        {"00 02 01 80", 2, 0xFFFF8001}, // a sum of signed bytes
        {"00 00 78 56 34 12 99", 0, 0x12345678},
        {"00 00 ff ff ff ff", 0, 0xFEFEFEFF},
    };
    for (const auto& [pConfirmation, nStatus, nValue] : aoValues) {
        for (int i = 0; i < 3; ++i) {
            c = 9;
            nWord = 9;
            m_oPeer.Confirm(pConfirmation);
            EXPECT_EQ(0, afnCalls[i](500)) << pConfirmation;
            EXPECT_EQ((CNumbers{nStatus, nValue}), (CNumbers{c, nWord})) << pConfirmation;
        }
    }
    const std::tuple<const char*, CNumbers, const char*> aoBlocks[] = {
        {"00 00 11 22 33 44 55", {0, 4}, "00 11 22 33 ee"}, // from the status byte on
        {"00 01 11 22", {1, 2}, "01 11 ee ee ee"},
    };
    for (const auto& [pConfirmation, anExpected, pBytes] : aoBlocks) {
        c = 9;
        n = 9;
        std::fill_n(ac, 5, static_cast<unsigned char>(0xEE));
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, afnCalls[3](500)) << pConfirmation;
        EXPECT_EQ(anExpected, (CNumbers{c, n})) << pConfirmation;
        EXPECT_EQ(pBytes, ToHex({ac, ac + 5})) << pConfirmation;
    }
    for (const auto& fnCall : afnCalls) {
        const long long nTime = Milliseconds([&] { EXPECT_EQ(0x00040000, fnCall(60)); });
        EXPECT_GE(nTime, 120); // twice the timeout sent
        EXPECT_LT(nTime, 2000);
    }
}
