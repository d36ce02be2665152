// The commands that every gateway understands, and the digital and analog clients made of them.

#include "ConnectedTest.h"
#include "QuorvelClientAD.h"
#include "QuorvelClientDIO.h"
#include "QuorvelClientSPI.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

using CommonCommandsTest = CConnectedTest<CQuorvelClientSPI, 0x0300>;
using DIOTest = CConnectedTest<CQuorvelClientDIO, 0x0500>;
using ADTest = CConnectedTest<CQuorvelClientAD, 0x0700>;

const std::string READ_DIGITAL = "4 source/QuorvelClient: READ DIGITAL";
const std::string WRITE_DIGITAL = "4 source/QuorvelClient: WRITE DIGITAL";

} // namespace

TEST_F(CommonCommandsTest, RequestsAndResults)
{
    const unsigned int anValues[10] = {0x01020304, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0, 0, 0x80000000};
    std::string strStatus;
    unsigned int n = 0;
    unsigned short nCount = 0;
    Check([&] { return m_oClient.Restart(); }, "05 00 0c 03 02 00 0d", "4 source/QuorvelClient: CLOSE");
    Check([&] { return m_oClient.Info(nullptr); }, "05 00 09 03 02 00 08", "8 source/QuorvelClient: INFO");
    Check([&] { return m_oClient.Status(strStatus); }, "05 00 0a 03 02 00 0b",
          "8 source/QuorvelClient: STATUS");
    Check([&] { return m_oClient.ReadAnalog(n, nullptr, nCount); }, "05 00 42 03 02 00 43",
          "4 source/QuorvelClient: READ ANALOG");
    Check(
        [&] { return m_oClient.WriteAnalog(anValues, 10); },
        "2d 00 43 03 02 00 04 03 02 01 ff ff ff ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
        "00 00 00 00 00 00 00 00 00 00 00 00 80 c6",
        "4 source/QuorvelClient: WRITE ANALOG", ", OutputCount=0x10"); // decimal, in spite of the "0x"
}

TEST_F(CommonCommandsTest, InfoAndStatusKeepWhatIsNotSent)
{
    for (const auto& [pConfirmation, pRecord] :
         {std::pair("00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14 15 16 17 18 19",
                    "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14"),
          {"00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12",
           "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 03 00"}}) {
        SQuorvelDeviceInfo oInfo;
        std::memset(&oInfo, 0xEE, sizeof oInfo);
        m_oPeer.Confirm(pConfirmation);
        m_oClient.Info(&oInfo);
        EXPECT_EQ(pRecord, ToHex(std::string(reinterpret_cast<char*>(&oInfo), sizeof oInfo)));
    }
    std::string strStatus = "old";
    for (const auto& [pConfirmation, pStatus] : {std::pair("00", "6f 6c 64"), {"00 4f 00 4b", "4f 00 4b"}}) {
        m_oPeer.Confirm(pConfirmation);
        m_oClient.Status(strStatus);
        EXPECT_EQ(pStatus, ToHex(strStatus));
    }
}

TEST_F(CommonCommandsTest, ReadAnalogTellsHowManyValuesThereAre)
{
    const std::tuple<const char*, unsigned short, CNumbers> aoCases[] = {
        // confirmation, capacity; information word, count and buffer afterwards
        {"00 aa 00 00 80 01 00 00 00 02 00 00 00 03 00 00 90", 4, {0x800000AA, 3, 1, 2, 0x90000003, 9}},
        {"00 aa 00 00 80 01 00 00 00 02 00 00 00 03 00 00 90", 2, {0x800000AA, 3, 1, 2, 9, 9}},
        {"00 aa 00 00 80 01 00 00 00 02 00 00 00 03 00 00", 4, {0x800000AA, 2, 1, 2, 9, 9}},
        {"00 aa 00 00 80 01 02", 4, {0x800000AA, 0, 9, 9, 9, 9}},
        {"00 aa 00 00", 4, {7, 0, 9, 9, 9, 9}},
    };
    for (const auto& [pConfirmation, nCapacity, anExpected] : aoCases) {
        CNumbers anResult{7, 0, 9, 9, 9, 9};
        unsigned short nCount = nCapacity;
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, m_oClient.ReadAnalog(anResult[0], &anResult[2], nCount));
        anResult[1] = nCount;
        EXPECT_EQ(anExpected, anResult) << pConfirmation;
    }
}

TEST_F(DIOTest, RequestsAndResults)
{
    CNumbers anWords{11, 12};
    const auto fnRead = [&] { return m_oClient.Read(anWords[0], anWords[1]); };
    Check(fnRead, "05 00 40 05 02 00 47", READ_DIGITAL);
    Check([&] { return m_oClient.Write(0x80000001); }, "09 00 41 05 02 00 01 00 00 80 c7", WRITE_DIGITAL,
          ", OutputBits=0x80000001");
    const std::pair<const char*, CNumbers> aoCases[] = {
        {"00 01 02 03 04 05 06 07", {11, 12}}, // too short
        {"00 01 02 03 04 05 06 07 88", {0x04030201, 0x88070605}},
    };
    for (const auto& [pConfirmation, anExpected] : aoCases) {
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, fnRead());
        EXPECT_EQ(anExpected, anWords);
    }
}

TEST_F(ADTest, DigitalLines)
{
    CNumbers an{1, 2, 3};
    Check([&] { return m_oClient.ReadDigital(an[0], an[1]); }, "05 00 40 07 02 00 45", READ_DIGITAL);
    Check([&] { return m_oClient.WriteDigital(0x80000001); }, "09 00 41 07 02 00 01 00 00 80 c5",
          WRITE_DIGITAL, ", OutputBits=0x80000001");
    m_oPeer.Confirm("00 ef cd ab 89 00 00 00 00");
    EXPECT_EQ(0, m_oClient.ReadDigitalInput(an[0], an[1], an[2]));
    EXPECT_EQ((CNumbers{0xEF, 0xCD, 0xAB}), an);
    m_oPeer.Confirm("00 01 00 00 00 02 00 00 00");
    EXPECT_EQ(0, m_oClient.ReadDigital(an[0], an[1]));
    EXPECT_EQ((CNumbers{1, 2, 0xAB}), an);
}

TEST_F(ADTest, ReadAppendsAllValuesAlsoThoseOfAnError)
{
    const std::tuple<const char*, int, CNumbers> aoCases[] = {
        {"00 01 00 00 80 02 00 00 00 03 00", 0, {0x80000001, 2}},
        {"05 03 00 00 00 04 00 00 00", 0x0705, {0x80000001, 2, 3, 4}},
        {"00", 0, {0x80000001, 2, 3, 4}},
    };
    CNumbers anValues;
    CTraceRecorder oTraces(0x0F);
    for (const auto& [pConfirmation, nRC, anExpected] : aoCases) {
        m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(nRC, m_oClient.Read(anValues));
        EXPECT_EQ(anExpected, anValues);
        EXPECT_EQ(CTexts{"8 source/QuorvelClientAD: READ requested to 127.0.0.1"}, oTraces.Take());
    }
    EXPECT_EQ("05 00 30 07 02 00 35", m_oPeer.TakeRequest());
}
