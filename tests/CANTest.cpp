// The CAN client: settings, transmission, power supply and CANopen requests.

#include "ConnectedTest.h"
#include "QuorvelClientCAN.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <sstream>

namespace
{

using CANTest = CConnectedTest<CQuorvelClientCAN, 0x0200>;

const std::string U = "4 source/QuorvelClientCAN: ";

} // namespace

TEST_F(CANTest, RequestsAndResults)
{
    bool b = false;
    unsigned char c = 0;
    unsigned short n = 0;
    short nSigned = 0;
    unsigned int nWord = 0;
    timeval oTime{-2, 999999};
    CQuorvelClientCAN::SConfigFilter oFilter{};
    for (unsigned int i = 0; i < 16; ++i)
        oFilter.anValues[i] = 0x81000000 + i;
    Check([&] { return m_oClient.SetConfig(false, true); }, "07 00 05 02 02 00 00 01 04", U + "SET_CONFIG",
          ", ConfirmData=0, Monitor=1");
    Check([&] { return m_oClient.GetConfig(b, b); }, "05 00 06 02 02 00 06", U + "GET_CONFIG");
    Check([&] { return m_oClient.SetFilter(oFilter); },
          "45 00 20 02 02 00 00 00 00 81 01 00 00 81 02 00 00 81 03 00 00 81 04 00 00 81 05 00 00 81 06 00 "
          "00 81 07 00 00 81 08 00 00 81 09 00 00 81 0a 00 00 81 0b 00 00 81 0c 00 00 81 0d 00 00 81 0e 00 "
          "00 81 0f 00 00 81 20",
          U + "SET_FILTER");
    Check([&] { return m_oClient.GetFilter(oFilter); }, "05 00 21 02 02 00 21", U + "GET_FILTER");
    Check([&] { return m_oClient.SetGlobals(500000, 200, true, false, true); },
          "0d 00 07 02 02 00 c8 20 a1 07 00 01 00 01 49", U + "SET_GLOBALS",
          ", Operating mode=200, Baudrate=500000, Termination=1, HighSpeed=0, TimestampOn=1");
    Check([&] { return m_oClient.GetGlobals(nWord, c, b, b, b); }, "05 00 08 02 02 00 08", U + "GET_GLOBALS");
    Check([&] { return m_oClient.SetZCardParameter(5, 256, 512); },
          "0c 00 51 02 02 00 05 00 01 00 02 00 02 55", U + "SET_ZCARD_PI",
          ", ZCardInterval=5, ZCardIDStart=256, ZCardIDEnd=512");
    Check([&] { return m_oClient.GetZCardParameter(c, n, n); }, "05 00 52 02 02 00 52", U + "GET_ZCARD_PI");
    Check([&] { return m_oClient.SetTime(oTime); }, "0d 00 0b 02 02 00 fe ff ff ff 3f 42 0f 00 78",
          U + "SET_TIME", ", oTime.tv_sec=-2, oTime.tv_usec=999999");
    Check([&] { return m_oClient.GetTime(b, oTime); }, "05 00 0e 02 02 00 0e", U + "GET_TIME");
    Check(
        [&] {
            return m_oClient.GetPowerStatus(0, c, 0, c, 0, c, nSigned, n, n, b, nullptr, nullptr, nullptr);
        },
        "05 00 22 02 02 00 22", U + "GET_POWERSTATUS");
    Check([&] { return m_oClient.SetPowerRelais(true); }, "06 00 23 02 02 00 01 22", U + "SET_POWERRELAIS",
          ", cData=1");
    Check([&] { return m_oClient.SetActivePowerSupplies(0x80000001); }, "09 00 24 02 02 00 01 00 00 80 a5",
          U + "SET_POWERACTIVESUPPLIES", ", nBitmask=2147483649");
    m_oPeer.Confirm("21");
    EXPECT_EQ(0x0221, m_oClient.Open(true, false));
    EXPECT_EQ("07 00 05 02 02 00 01 00 04", m_oPeer.TakeRequest());
    EXPECT_EQ(0, m_oClient.StartAlive(3));
    EXPECT_EQ(0, m_oClient.StartAlive(0xFFFFFFFF));
}

TEST_F(CANTest, CANopenRequestsAndResults)
{
    unsigned char c = 0;
    unsigned short n = 0;
    unsigned int nWord = 0;
    const std::string strParameters = ", NodeID=200, Index=4660, Subindex=129, Timeout=500";
    const auto* const pBlock = reinterpret_cast<const unsigned char*>("\0\x81");
    Check([&] { return m_oClient.CANopenSetConfig(200); }, "06 00 60 02 02 00 c8 a8",
          U + "CANOPEN_SET_CONFIG", ", CANOpenModus=200");
    Check([&] { return m_oClient.CANopenGetConfig(c); }, "05 00 61 02 02 00 61", U + "CANOPEN_GET_CONFIG");
    Check([&] { return m_oClient.CANopenSetSYNCMode(1000); }, "07 00 62 02 02 00 e8 03 89",
          U + "CANOPEN_SYNC_MODE", ", PeriodTime=1000");
    Check([&] { return m_oClient.CANopenSendNMT(5, 128); }, "07 00 63 02 02 00 05 80 e6", U + "CANOPEN_NMT",
          ", NodeID=5, NMTTyp=128");
    Check([&] { return m_oClient.CANopenSendSYNC(); }, "05 00 64 02 02 00 64", U + "CANOPEN_SYNC");
    Check([&] { return m_oClient.CANopenSendTIME(0x102, 0x03040506); },
          "0b 00 65 02 02 00 02 01 06 05 04 03 62", U + "CANOPEN_TIME", ", Day=258, Ms=50595078");
    Check([&] { return m_oClient.CANopenSendPDO(5, 1, 3, "\1\2\3"); }, "0a 00 67 02 02 00 05 01 01 02 03 63",
          U + "CANOPEN_PDO", ", NodeID=5, PDOTyp=1");
    Check([&] { return m_oClient.CANopenSendSDORead(200, 0x1234, 129, 500, c, nWord); },
          "0b 00 68 02 02 00 c8 34 12 81 f4 01 f2", U + "CANOPEN_SDO_READ", strParameters.c_str());
    Check([&] { return m_oClient.CANopenSendSDOWrite(2, 200, 0x1234, 129, 500, 0x80000001, c, nWord); },
          "10 00 69 02 02 00 02 c8 34 12 81 f4 01 01 00 00 80 70", U + "CANOPEN_SDO_WRITE",
          (", SDOWriteTyp=2" + strParameters).c_str());
    Check([&] { return m_oClient.CANopenSendSDOReadBlock(200, 0x1234, 129, 500, 7, c, n, nullptr); },
          "0b 00 6a 02 02 00 c8 34 12 81 f4 01 f0", U + "CANOPEN_SDO_READ_BLOCK", strParameters.c_str());
    Check([&] { return m_oClient.CANopenSendSDOWriteBlock(200, 0x1234, 129, 500, 2, pBlock, c, nWord); },
          "0d 00 6b 02 02 00 c8 34 12 81 f4 01 00 81 70", U + "CANOPEN_SDO_WRITE_BLOCK",
          strParameters.c_str());
    const std::vector<unsigned char> anLong(65535);
    for (const unsigned short nLen :
         {std::uint16_t{65523}, std::uint16_t{65535}}) // no telegram holds so many
        EXPECT_EQ(0x00020000,
                  m_oClient.CANopenSendSDOWriteBlock(1, 2, 3, 500, nLen, anLong.data(), c, nWord));
}

TEST_F(CANTest, SettingsAreDecodedFromLongEnoughSuccesses)
{
    bool ab[3] = {true, true, true};
    unsigned char c = 9;
    unsigned int nWord = 9;
    unsigned short an[2] = {9, 9};
    timeval oTime{9, 9};
    const auto fnState = [&] {
        return CNumbers{nWord,
                        c,
                        ab[0],
                        ab[1],
                        ab[2],
                        an[0],
                        an[1],
                        static_cast<unsigned int>(oTime.tv_sec),
                        static_cast<unsigned int>(oTime.tv_usec)};
    };
    const auto fnGlobals = [&] { return m_oClient.GetGlobals(nWord, c, ab[0], ab[1], ab[2]); };
    const auto fnZCard = [&] { return m_oClient.GetZCardParameter(c, an[0], an[1]); };
    const auto fnTime = [&] { return m_oClient.GetTime(ab[0], oTime); };
    const auto fnMode = [&] { return m_oClient.CANopenGetConfig(c); };
    const std::tuple<std::function<int()>, const char*, int, CNumbers> aoCases[] = {
        {fnGlobals, "21 03 20 a1 07 80 01 01 01", 0x0221, {9, 9, 1, 1, 1, 9, 9, 9, 9}},
        {fnGlobals, "00 03 20 a1 07", 0, {9, 9, 1, 1, 1, 9, 9, 9, 9}},
        {fnGlobals, "00 03 20 a1 07 80", 0, {0x8007A120, 3, 0, 0, 0, 9, 9, 9, 9}},
        {fnGlobals, "00 03 20 a1 07 80 01 02", 0, {0x8007A120, 3, 1, 0, 0, 9, 9, 9, 9}}, // only 1 is true
        {fnGlobals, "00 03 20 a1 07 80 00 01 01", 0, {0x8007A120, 3, 0, 1, 1, 9, 9, 9, 9}},
        {fnZCard, "00 05 80 01 10", 0, {0x8007A120, 3, 0, 1, 1, 9, 9, 9, 9}},
        {fnZCard, "00 05 80 01 10 00", 0, {0x8007A120, 5, 0, 1, 1, 0x80, 0x10, 9, 9}}, // 0x100 too low
        {fnZCard, "00 05 ff 00 7f 80", 0, {0x8007A120, 5, 0, 1, 1, 0xFFFF, 0x807F, 9, 9}},
        {fnTime, "00 02 01 00 00 00 02 00 00", 0, {0x8007A120, 5, 0, 1, 1, 0xFFFF, 0x807F, 9, 9}},
        {fnTime, "00 02 01 00 00 40 02 00 00 00", 0, {0x8007A120, 5, 1, 1, 1, 0xFFFF, 0x807F, 0x40000001, 2}},
        {fnTime, "00 00 fe ff ff ff 02 00 00 00", 0, {0x8007A120, 5, 0, 1, 1, 0xFFFF, 0x807F, 0xFFFFFFFE, 2}},
        {fnMode, "21 07", 0x0221, {0x8007A120, 5, 0, 1, 1, 0xFFFF, 0x807F, 0xFFFFFFFE, 2}},
        {fnMode, "00 07", 0, {0x8007A120, 7, 0, 1, 1, 0xFFFF, 0x807F, 0xFFFFFFFE, 2}},
        {fnMode, "00", 0, {0x8007A120, 0, 0, 1, 1, 0xFFFF, 0x807F, 0xFFFFFFFE, 2}},
    };
    for (const auto& [fnCall, pConfirmation, nRC, anExpected] : aoCases) {
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(nRC, fnCall()) << pConfirmation;
        EXPECT_EQ(anExpected, fnState()) << pConfirmation;
    }
    EXPECT_EQ(-2, oTime.tv_sec); // as SetTime sends it

    CQuorvelClientCAN::SConfigFilter oFilter{};
    std::string strValues = "00";
    for (const char cDigit : std::string("0123456789abcdef"))
        strValues += " 01 02 03 8" + std::string(1, cDigit);
    for (const auto& [nLen, nFirst, nLast] : {std::tuple(191U, 0U, 0U), {194U, 0x80030201U, 0x8F030201U}}) {
        m_oPeer.Confirm(strValues.substr(0, nLen)); // a byte short, and complete
        EXPECT_EQ(0, m_oClient.GetFilter(oFilter));
        EXPECT_EQ(nFirst, oFilter.anValues[0]);
        EXPECT_EQ(nLast, oFilter.anValues[15]);
    }
}

TEST_F(CANTest, PowerStatusStaysWithinItsArrays)
{
    const std::tuple<const char*, unsigned char, std::string> aoCases[] = {
        // capacity of each array; counts, values and flag, the arrays. The first flags were 1, the others 0.
        {"21 01 01 01 fe ff 03 80 04 00 01 11 11", 3, "9 9 9 -9 9 9 0 9 9 9 111 000"},
        {"00 01 01 01 fe ff 03 80 04 00 01 11", 3, "9 9 9 -9 9 9 0 9 9 9 111 000"}, // a byte short
        {"00 02 01 01 fe ff 03 80 04 00 03 11 22 33 44 fe ff", 3, "2 1 1 -2 32771 4 1 8721 17459 9 011 100"},
        {"00 04 02 03 00 80 03 80 04 00 02 11 22 33 44 55 66 77 88 01 00 00 01 01", 2,
         "4 2 3 -32768 32771 4 0 8721 17459 9 101 010"},
        {"00 01 01 01 00 00 00 00 00 00 00 11 22 00 01", 0, "1 1 1 0 0 0 0 9 9 9 111 000"},
        {"00 ff 02 ff 00 00 00 00 00 00 01 11 22", 3, "255 2 255 0 0 0 1 8721 0 0 001 000"}, // not sent: 0
    };
    for (const auto& [pConfirmation, nCapacity, strExpected] : aoCases) {
        unsigned char anCounts[] = {9, 9, 9};
        short nSigned = -9;
        unsigned short an[] = {9, 9, 9, 9, 9};
        bool ab[] = {false, true, true, true, false, false, false};
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(pConfirmation[0] == '0' ? 0 : 0x0221,
                  m_oClient.GetPowerStatus(nCapacity, anCounts[0], nCapacity, anCounts[1], nCapacity,
                                           anCounts[2], nSigned, an[3], an[4], ab[0], an, ab + 1, ab + 4));
        std::ostringstream oSeen;
        oSeen << +anCounts[0] << ' ' << +anCounts[1] << ' ' << +anCounts[2] << ' ' << nSigned << ' ' << an[3]
              << ' ' << an[4] << ' ' << ab[0] << ' ' << an[0] << ' ' << an[1] << ' ' << an[2] << ' ' << ab[1]
              << ab[2] << ab[3] << ' ' << ab[4] << ab[5] << ab[6];
        EXPECT_EQ(strExpected, oSeen.str());
    }
    m_oPeer.Confirm("00 02 01 01 00 00 00 00 00 00 01 11 22 33 44 01 01");
    unsigned char c = 0;
    unsigned short n = 0;
    short nSigned = 0;
    bool b = false;
    EXPECT_EQ(0, m_oClient.GetPowerStatus(9, c, 9, c, 9, c, nSigned, n, n, b, nullptr, nullptr, nullptr));
}

TEST_F(CANTest, WriteWaitsOnlyForAGatewayThatConfirms)
{
    // A clock five hours ahead: the time is the local one.
    setenv("TZ", "ABC-5", 1); // NOLINT(concurrency-mt-unsafe)
    tzset();
    const auto fnNow = [] { return static_cast<int>(time(nullptr) + 5 * 3600); };
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
    EXPECT_EQ(nMicroSeconds, nMicroSeconds % 1000000);
    EXPECT_EQ(0, m_oClient.Write(1, nullptr, 0, 0, nullptr, nullptr));
    EXPECT_EQ("0a 00 03 02 03 00 01 00 00 00 00 03", m_oPeer.TakeRequest());

    bool bConfirm = false;
    bool bMonitor = true;
    m_oPeer.Ignore(); // for a frame
    m_oPeer.Confirm("21 01 01");
    m_oPeer.Confirm("00 01");
    EXPECT_EQ(0, fnWrite());
    m_oPeer.TakeRequest();
    EXPECT_EQ(0x0221, m_oClient.GetConfig(bConfirm, bMonitor)); // leaves the outputs and the mode
    EXPECT_EQ(0, m_oClient.GetConfig(bConfirm, bMonitor));
    EXPECT_EQ(std::pair(false, true), std::pair(bConfirm, bMonitor));
    m_oPeer.Confirm("00 01 02");
    EXPECT_EQ(0, m_oClient.GetConfig(bConfirm, bMonitor));
    EXPECT_EQ(std::pair(true, false), std::pair(bConfirm, bMonitor));
    for (int i = 0; i < 3; ++i)
        m_oPeer.TakeRequest();

    const std::tuple<const char*, int, int, int> aoCases[] = {
        {"00 11 00 00 40 22 00 00", 0, 7, 7},
        {"00 11 00 00 40 22 00 00 80", 0, 0x40000011, -0x7FFFFFDE},
        {"21 ff ff ff ff 22 00 00 00", 0x0221, -1, 0x22},
    };
    for (const auto& [pConfirmation, nRC, nExpected, nExpectedMicro] : aoCases) {
        nSeconds = nMicroSeconds = 7;
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(nRC, fnWrite()) << pConfirmation;
        EXPECT_EQ(std::pair(nExpected, nExpectedMicro), std::pair(nSeconds, nMicroSeconds)) << pConfirmation;
        m_oPeer.TakeRequest();
    }
    m_oClient.Open();
    m_oPeer.Raw(Hex("0e 00 03 82 02 00 00 01 00 00 00 02 00 00 00 ff")); // wrong check byte
    EXPECT_EQ(0x000A0000, fnWrite());
    EXPECT_EQ(std::pair(1, 2), std::pair(nSeconds, nMicroSeconds)); // time stored all the same

    m_oPeer.Confirm("21");
    EXPECT_EQ(0x0221, m_oClient.SetConfig(false, false)); // a failure changes nothing
    m_oPeer.Confirm("21");
    EXPECT_EQ(0x0221, fnWrite());
    m_oPeer.Confirm("00");
    EXPECT_EQ(0, m_oClient.SetConfig(false, false));
    m_oClient.Close();
    nSeconds = 0;
    EXPECT_EQ(0x00030000, fnWrite());
    EXPECT_LE(nBefore, nSeconds); // stored also when sending failed
    unsetenv("TZ");               // NOLINT(concurrency-mt-unsafe)
    tzset();
}

TEST_F(CANTest, SDOValuesAreSumsOfSignedBytes)
{
    const std::tuple<const char*, int, unsigned int, unsigned int> aoCases[] = {
        {"21 01 02 03 04 05", 0x0221, 9, 9},
        {"00", 0, 9, 9},
        {"00 01", 0, 1, 9},
        {"00 00 2a", 0, 0, 42},
        {"00 00 80", 0, 0, 0xFFFFFF80},
        {"00 02 01 80", 0, 2, 0xFFFF8001},
        {"00 02 01 02 80", 0, 2, 0xFF800201},
        {"00 00 80 00 00 00", 0, 0, 0xFFFFFF80},
        {"00 00 ff 01 00 00", 0, 0, 0xFF},
        {"00 00 78 56 34 12 99", 0, 0, 0x12345678},
        {"00 00 ff ff ff ff", 0, 0, 0xFEFEFEFF},
        {"00 00 00 00 00 80", 0, 0, 0x80000000},
    };
    for (const auto& [pConfirmation, nRC, nExpectedStatus, nExpectedValue] : aoCases) {
        for (int i = 0; i < 3; ++i) {
            unsigned char nStatus = 9;
            unsigned int nValue = 9;
            m_oPeer.Confirm(pConfirmation);
            EXPECT_EQ(nRC, i == 0   ? m_oClient.CANopenSendSDORead(1, 2, 3, 500, nStatus, nValue)
                           : i == 1 ? m_oClient.CANopenSendSDOWrite(0, 1, 2, 3, 500, 4, nStatus, nValue)
                                    : m_oClient.CANopenSendSDOWriteBlock(1, 2, 3, 500, 0, nullptr, nStatus,
                                                                         nValue));
            EXPECT_EQ((CNumbers{nExpectedStatus, nExpectedValue}), (CNumbers{nStatus, nValue}))
                << pConfirmation;
        }
    }
}

TEST_F(CANTest, BlocksAreReadFromTheStatusByteOn)
{
    const std::tuple<const char*, unsigned short, int, CNumbers, const char*> aoCases[] = {
        {"21 01 11", 4, 0x0221, {9, 9}, "ee ee ee ee ee"},
        {"00", 4, 0, {9, 9}, "ee ee ee ee ee"},
        {"00 01", 4, 0, {1, 0}, "ee ee ee ee ee"},
        {"00 00 11 22 33 44 55", 4, 0, {0, 4}, "00 11 22 33 ee"},
        {"00 01 11 22", 4, 0, {1, 2}, "01 11 ee ee ee"},
        {"00 01 11 22", 0, 0, {1, 0}, "ee ee ee ee ee"},
    };
    for (const auto& [pConfirmation, nSize, nRC, anExpected, pBytes] : aoCases) {
        unsigned char nStatus = 9;
        unsigned short nLen = 9;
        unsigned char anBuffer[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(nRC, m_oClient.CANopenSendSDOReadBlock(1, 2, 3, 500, nSize, nStatus, nLen, anBuffer));
        EXPECT_EQ(anExpected, (CNumbers{nStatus, nLen})) << pConfirmation;
        EXPECT_EQ(pBytes, ToHex({anBuffer, anBuffer + 5})) << pConfirmation;
    }
}

TEST_F(CANTest, SDORequestsWaitTwiceTheirOwnTimeout)
{
    unsigned char c = 0;
    unsigned short n = 0;
    unsigned int nWord = 0;
    const std::function<int(unsigned short)> afnCalls[] = {
        [&](unsigned short t) { return m_oClient.CANopenSendSDORead(1, 2, 3, t, c, nWord); },
        [&](unsigned short t) { return m_oClient.CANopenSendSDOWrite(0, 1, 2, 3, t, 4, c, nWord); },
        [&](unsigned short t) { return m_oClient.CANopenSendSDOReadBlock(1, 2, 3, t, 0, c, n, nullptr); },
        [&](unsigned short t) {
            return m_oClient.CANopenSendSDOWriteBlock(1, 2, 3, t, 0, nullptr, c, nWord);
        }};
    for (const auto& fnCall : afnCalls) {
        EXPECT_LT(Milliseconds([&] { EXPECT_EQ(0x00040000, fnCall(0)); }), 2000);
        const long long nTime = Milliseconds([&] { EXPECT_EQ(0x00040000, fnCall(60)); });
        EXPECT_GE(nTime, 120);
        EXPECT_LT(nTime, 2000);
    }
    for (int i = 0; i < 8; ++i)
        m_oPeer.TakeRequest();
    std::thread oCaller([&] { EXPECT_EQ(0, afnCalls[0](65535)); }); // long, not "no waiting"
    EXPECT_NE("none", m_oPeer.TakeRequest());
    m_oPeer.Send(Telegram(0x8268, 10, Hex("00 00 01")));
    oCaller.join();
    EXPECT_EQ(1U, nWord);
}
