// The SPI client: requests, transfers, sequences, and the addresses of serial EEPROMs.

#include "ConnectedTest.h"
#include "QuorvelClientSPI.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{

using SPITest = CConnectedTest<CQuorvelClientSPI, 0x0300>;

const std::string UNIT = "source/QuorvelClientSPI: ";
const std::string UNTOUCHED = "ee ee ee ee ee ee";

} // namespace

TEST_F(SPITest, RequestsAndResults)
{
    unsigned int n = 0;
    unsigned char c = 0;
    char acRead[5];
    const std::string strTransfer = "8 " + UNIT + "DATA REQ";
    Check([&] { return m_oClient.SetGlobals(500000, 0x41, 0x42, 0x43); },
          "0c 00 07 03 02 00 20 a1 07 00 41 42 43 c0", "4 " + UNIT + "SET_GLOBALS",
          ", SignalLevel=A, AuXVoltage=B, ClockMode=C, Baudrate=500000"); // raw characters
    Check([&] { return m_oClient.GetGlobals(n, c, c, c); }, "05 00 08 03 02 00 09",
          "4 " + UNIT + "GET_GLOBALS");
    Check([&] { return m_oClient.DataReq("\1\2", 2, acRead, 5); }, "0a 00 03 03 02 00 01 02 00 00 00 01",
          strTransfer);
    Check([&] { return m_oClient.DataReq("\1\2\3\4\5", 5, acRead, 2); },
          "0a 00 03 03 02 00 01 02 03 04 05 03", strTransfer);
    Check([&] { return m_oClient.SequenceReq("\x90\x1f\0", 3, acRead, 5); }, "08 00 14 03 02 00 90 1f 00 9a",
          "8 " + UNIT + "SEQUENCE REQ");
}

TEST_F(SPITest, GetGlobalsAndReadDigitalDecode)
{
    const std::pair<const char*, CNumbers> aoCases[] = {
        {"00 20 a1 07 80 01 02", {9, 8, 7, 6}}, // too short
        {"00 20 a1 07 80 01 02 f3", {0x8007A120, 1, 2, 0xF3}},
    };
    unsigned int n = 9;
    unsigned int nOutputs = 9;
    unsigned char anBytes[3] = {8, 7, 6};
    for (const auto& [pConfirmation, anExpected] : aoCases) {
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, m_oClient.GetGlobals(n, anBytes[0], anBytes[1], anBytes[2]));
        EXPECT_EQ(anExpected, (CNumbers{n, anBytes[0], anBytes[1], anBytes[2]}));
    }
    m_oPeer.Confirm("00 01 00 00 00 02 00 00 00");
    EXPECT_EQ(0, m_oClient.ReadDigital(n, nOutputs));
    EXPECT_EQ((CNumbers{1, 2}), (CNumbers{n, nOutputs}));
}

// A synchronous sequence hands over the result byte too, the other reads do not.
TEST_F(SPITest, ReadsFillTheBufferEachInItsWay)
{
    const std::tuple<const char*, unsigned short, int, std::string, std::string> aoCases[] = {
        {"00 11 22 33", 5, 0, "11 22 33 ee ee ee", "00 11 22 33 ee ee"},
        {"00 11 22 33", 2, 0, "11 22 ee ee ee ee", "00 11 ee ee ee ee"},
        {"00 11 22 33", 0, 0, UNTOUCHED, UNTOUCHED},
        {"21 11 22", 5, 0x0321, "11 22 ee ee ee ee", "21 11 22 ee ee ee"}, // an error's data as well
        {"", 5, 0x000C0300, "00 00 00 00 00 ee", UNTOUCHED},
    };
    for (const auto& [pConfirmation, nLen, nRC, strOthers, strSequence] : aoCases) {
        SCOPED_TRACE(pConfirmation);
        std::string strData(6, '\xee');
        std::string strSync = strData;
        std::string strAsync = strData;
        short nID = 0;
        for (int i = 0; i < 5; ++i)
            m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(nRC, m_oClient.DataReq("\1", 1, strData.data(), nLen));
        EXPECT_EQ(nRC, m_oClient.SequenceReq("\1", 1, strSync.data(), nLen));
        EXPECT_EQ(nRC, m_oClient.SequenceReq("\1", 1, nullptr, nLen));
        for (char* const p : {strAsync.data(), static_cast<char*>(nullptr)}) {
            EXPECT_EQ(0, m_oClient.SequenceReq("\1", 1, &nID));
            EXPECT_EQ(nRC, m_oClient.SequenceGetCnf(nID, p, nLen));
        }
        EXPECT_EQ((CTexts{strOthers, strSequence, strOthers}),
                  (CTexts{ToHex(strData), ToHex(strSync), ToHex(strAsync)}));
    }
}

TEST_F(SPITest, FailedExchangesLeaveBuffersAlone)
{
    std::string strBuffer(6, '\xee');
    const std::string strLong(65535, 'x'); // no telegram holds so many
    EXPECT_EQ(0x00020000, m_oClient.DataReq(strLong.data(), 65535, strBuffer.data(), 5));
    EXPECT_EQ(UNTOUCHED, ToHex(strBuffer));
    m_oClient.Close();
    short nID = 0;
    EXPECT_EQ(0x00030000, m_oClient.SequenceReq("\1", 1, &nID));
    EXPECT_EQ(3, nID); // told all the same
}

TEST_F(SPITest, AsynchronousSequencesAreCollectedInAnyOrder)
{
    for (int i = 0; i < 4; ++i)
        m_oPeer.Ignore();
    m_oPeer.Confirm("00"); // another request in between
    CTraceRecorder oTraces(0x08);
    short anIDs[3] = {};
    for (short& nID : anIDs)
        EXPECT_EQ(0, m_oClient.SequenceReq("\x90\x1f\0", 3, &nID));
    EXPECT_EQ(0, m_oClient.SequenceReq("\5", 1, nullptr));
    EXPECT_EQ(0, m_oClient.WriteDigital(0x0A0B0C0D));
    EXPECT_EQ(CTexts(4, "8 " + UNIT + "SEQUENCE REQ requested to 127.0.0.1"), oTraces.Take());
    for (const char* pRequest :
         {"08 00 14 03 02 00 90 1f 00 9a", "08 00 14 03 03 00 90 1f 00 9b", "08 00 14 03 04 00 90 1f 00 9c",
          "06 00 14 03 05 00 05 17", "09 00 41 03 06 00 0d 0c 0b 0a 44"})
        EXPECT_EQ(pRequest, m_oPeer.TakeRequest());
    for (const auto& [nID, pData] : {std::pair(3, "00 33"), std::pair(2, "00 22"), std::pair(4, "00 44")})
        m_oPeer.Send(Telegram(0x8314, nID, Hex(pData)));
    char acBuffer[4] = {};
    for (const int i : {2, 0, 1})
        EXPECT_EQ(0, m_oClient.SequenceGetCnf(anIDs[i], acBuffer + i, 1));
    EXPECT_STREQ("\x22\x33\x44", acBuffer);
}

TEST_F(SPITest, SequenceGetCnfTracesItsFailures)
{
    const std::tuple<const char*, int, std::string> aoCases[] = {
        {"06 00 14 83 09 00 00 9f", 0x000A0000, "Quorvel TCP/IP telegram has invalid CRC: 0xa0000"},
        {"06 00 03 83 09 00 00 89", 0x000B0000,
         "Quorvel TCP/IP telegram is not confirmed by partner: 0xb0000"},
    };
    std::string strBuffer(6, '\xee');
    CTraceRecorder oTraces;
    for (const auto& [pTelegram, nRC, strFailure] : aoCases) {
        m_oPeer.Send(Hex(pTelegram));
        EXPECT_EQ(nRC, m_oClient.SequenceGetCnf(9, strBuffer.data(), 5));
        EXPECT_EQ("16 " + UNIT + strFailure, oTraces.Take().at(2)); // its arrival is traced twice
    }
    CQuorvelClientSPI oHasty(120);
    const auto fnCollect = [&] { EXPECT_EQ(0x00040000, oHasty.SequenceGetCnf(9, strBuffer.data(), 5)); };
    EXPECT_GE(Milliseconds(fnCollect), 120);
    EXPECT_EQ(CTexts{"16 " + UNIT + "TCP/IP timeout occured: 0x40000"}, oTraces.Take());
    EXPECT_EQ(UNTOUCHED, ToHex(strBuffer));
}

TEST(SPIAddressTest, OffsetsAndSlaveAddresses)
{
    const char* const apOffsets[] = {"", "78", "56 78", "34 56 78", "f2 34 56 78", ""};
    for (int i = 0; i < 6; ++i) {
        const auto eFormat = static_cast<CQuorvelClientSPI::EOffsetFormat>(i);
        EXPECT_EQ(apOffsets[i], ToHex(CQuorvelClientSPI::ToOffset(0xF2345678, eFormat)));
    }
    const std::tuple<unsigned short, unsigned int, unsigned int, unsigned int> aoCases[] = {
        // chip, offset, format; the address
        {5, 0xFFFF, 0x008, 0xAA},  {0xF, 0, 0x010, 0xAE},        {5, 0x1FF, 0x108, 0xA6},
        {3, 0x100, 0x208, 0xAA},   {7, 0x500, 0x308, 0xAA},      {0, 0x10000, 0x111, 0xA2},
        {0, 0x70000, 0x3FF, 0xAE}, {1, 0xFFFFFFFF, 0x100, 0xA4}, {6, 0xFFFFFFFF, 0x408, 0xAC}};
    for (const auto& [nChip, nOffset, nFormat, nAddress] : aoCases)
        EXPECT_EQ(nAddress, CQuorvelClientSPI::GetEEPROMSlaveAddress(nChip, nOffset, nFormat)) << nFormat;
}

TEST(SPIResultTest, AnOverrideThatThrowsWhileASequenceIsCollected)
{
    struct CThrowing : CQuorvelClientSPI {
        CThrowing() : CQuorvelClientSPI(5000) {}
        ~CThrowing() override { StopReception(); }
        int GetCnfRetCode(const CQuorvelMsg& /*oCnf*/) override { throw std::runtime_error("x"); }
    } oClient;
    const std::string strConfirmation = Telegram(0x8314, 7, "x");
    oClient.DataInd(strConfirmation.data(), static_cast<unsigned short>(strConfirmation.size()));
    EXPECT_EQ(0xFF, oClient.SequenceGetCnf(7, nullptr, 0));
}
