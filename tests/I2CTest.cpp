// The I2C client: requests, transfers, sequences, serial EEPROMs.

#include "ConnectedTest.h"
#include "QuorvelClientI2C.h"

#include <gtest/gtest.h>

namespace
{

using I2CTest = CConnectedTest<CQuorvelClientI2C, 0x0100>;

const std::string U = "source/QuorvelClientI2C: ";

struct SBuffer {
    char acBytes[6] = {'\xee', '\xee', '\xee', '\xee', '\xee', '\xee'};
    std::string Get() const { return ToHex({acBytes, sizeof acBytes}); }
};

} // namespace

TEST_F(I2CTest, RequestsAndResults)
{
    auto& o = m_oClient;
    unsigned int nWord = 0;
    unsigned short n = 0;
    unsigned char c = 0;
    char ac[4];
    const std::tuple<std::function<int()>, const char*, std::string, std::string> aoCases[] = {
        {[&] { return o.Write(0xA0, "\1\2\0", 3, n); }, "0a 00 11 01 02 00 a0 00 01 02 00 b1",
         "8 " + U + "WRITE", ",slave address=0xa0"},
        {[&] { return o.WriteEEProm(3, 0x1234, 0x0010, "\xaa\xbb", 2); },
         "0e 00 13 01 02 00 a6 00 02 00 00 12 34 aa bb 83", "8 " + U + "WRITE EEPROM",
         ",chip address=3,slave address=0xa6"},
        {[&] { return o.SetBaudrate(100); }, "09 00 07 01 02 00 a0 86 01 00 23", "4 " + U + "SET GLOBALS",
         ",Baudrate=100000"}, // kHz
        {[&] { return o.SetBaudrate(50); }, "09 00 07 01 02 00 32 00 00 00 36", "4 " + U + "SET GLOBALS",
         ",Baudrate=50"},
        {[&] { return o.GetBaudrate(nWord); }, "05 00 08 01 02 00 0b", "4 " + U + "GET GLOBALS", ""},
        {[&] { return o.Reset(); }, "05 00 04 01 02 00 07", "8 " + U + "RESET", ""},
        {[&] { return o.Read(0x1A1, ac, 4, n); }, "09 00 10 01 02 00 a1 01 04 00 b7", "8 " + U + "READ",
         ",slave address=0x1a1"},
        {[&] { return o.RAWStart(); }, "05 00 15 01 02 00 16", "8 " + U + "RAW_START", ""},
        {[&] { return o.RAWSend(0xA0, 1); }, "07 00 16 01 02 00 a0 01 b4", "8 " + U + "RAW_SEND", ""},
        {[&] { return o.RAWGet(0x81, c); }, "06 00 17 01 02 00 81 95", "8 " + U + "RAW_GET", ""},
        {[&] { return o.RAWStop(); }, "05 00 18 01 02 00 1b", "8 " + U + "RAW_STOP", ""},
        {[&] { return o.WriteSequence("\1\2", 2, ac, 0x104, n, n); }, "09 00 14 01 02 00 04 01 01 02 11",
         "8 " + U + "SEQUENCE", ""},
        {[&] { return o.WriteEEPromPollAck(10, 0x1FF, 0x0108, "\xaa", 1, 0x1234); },
         "0f 00 19 01 02 00 aa 00 34 12 01 00 00 01 ff aa c3", "8 " + U + "WRITE EEPROM",
         ",chip address=10,slave address=0xaa"},
        {[&] { return o.ReadEEProm(0, 0x10, 0x0009, ac, 4, n); },
         "0e 00 12 01 02 00 a0 00 02 00 00 00 10 04 00 a7", "8 " + U + "READ EEPROM",
         ",chip address=0,slave address=0xa0"},
        {[&] { return o.Open(100); }, "09 00 07 01 02 00 a0 86 01 00 23", "4 " + U + "SET GLOBALS",
         ",Baudrate=100000"},
    };
    for (const auto& [fnCall, pRequest, strTrace, strParameters] : aoCases)
        Check(fnCall, pRequest, strTrace, strParameters.c_str());
}

TEST_F(I2CTest, OutputsTakeWhatComes)
{
    const std::pair<const char*, CNumbers> aoCases[] = {
        // clock, byte, error position
        {"00 40 0d 03 80", {0x80030D40, 0x40, 0x0D40}},
        {"00 f0", {0xF0, 0xF0, 0x7777}}, // two bytes hold no error position
    };
    for (const auto& [pConfirmation, anExpected] : aoCases) {
        SCOPED_TRACE(pConfirmation);
        unsigned int nBaudrate = 1;
        unsigned char nValue = 1;
        unsigned short nPosition = 0x7777;
        for (int i = 0; i < 3; ++i)
            m_oPeer.Confirm(pConfirmation);
        EXPECT_EQ(0, m_oClient.GetBaudrate(nBaudrate));
        EXPECT_EQ(0, m_oClient.RAWGet(0, nValue));
        EXPECT_EQ(0, m_oClient.Write(0xA0, "\1", 1, nPosition));
        EXPECT_EQ(anExpected, (CNumbers{nBaudrate, nValue, nPosition}));
    }
}

TEST_F(I2CTest, ReadsStoreWhatFits)
{
    const std::tuple<unsigned short, unsigned int, std::string, std::string> aoCases[] = {
        // bytes wanted and read, buffers of Read and of ReadEEProm
        {5, 4, "11 22 33 44 ee ee", "11 22 33 44 ee ee"},
        {2, 2, "11 22 ee ee ee ee", "33 44 ee ee ee ee"},
    };
    for (const auto& [nLen, nExpected, strRead, strEEProm] : aoCases) {
        SBuffer aoBuffers[3];
        unsigned short anRead[] = {7, 7, 7};
        unsigned short nIndex = 7;
        for (int i = 0; i < 3; ++i)
            m_oPeer.Confirm("00 11 22 33 44");
        EXPECT_EQ(0, m_oClient.Read(0xA1, aoBuffers[0].acBytes, nLen, anRead[0]));
        EXPECT_EQ(0, m_oClient.ReadEEProm(0, 0, 8, aoBuffers[1].acBytes, nLen, anRead[1]));
        EXPECT_EQ(0, m_oClient.WriteSequence("", 0, aoBuffers[2].acBytes, nLen, anRead[2], nIndex));
        EXPECT_EQ(nExpected, anRead[0]);
        EXPECT_EQ(nExpected, anRead[1]);
        EXPECT_EQ(strRead, aoBuffers[0].Get());
        EXPECT_EQ(strEEProm, aoBuffers[1].Get());
        EXPECT_EQ((CNumbers{2, 0x2211}), (CNumbers{anRead[2], nIndex})); // the error position is first
        EXPECT_EQ("33 44 ee ee ee ee", aoBuffers[2].Get());
    }
}

TEST_F(I2CTest, SequencesOfRecords)
{
    SBuffer aoBuffers[3];
    char acWrite[] = {1, 2, 3};
    CQuorvelClientI2C::I2CCommand aoSteps[] = {{0xA1, 2, aoBuffers[0].acBytes},
                                               {0xA0, 3, acWrite},
                                               {0x191, 3, aoBuffers[1].acBytes},
                                               {0xA1, 1, aoBuffers[2].acBytes}};
    unsigned short nIndex = 7;
    m_oPeer.Confirm("21 02 00 11 22 33 44"); // four of six bytes
    EXPECT_EQ(0x0121, m_oClient.WriteSequence(aoSteps, 4, nIndex));
    EXPECT_EQ("1a 00 14 01 02 00 06 00 a1 00 02 00 a0 00 03 00 01 02 03 91 01 03 00 a1 00 01 00 22",
              m_oPeer.TakeRequest());
    EXPECT_EQ(2, nIndex);
    EXPECT_EQ("11 22 ee ee ee ee", aoBuffers[0].Get());
    EXPECT_EQ("11 22 ee ee ee ee", aoBuffers[1].Get()); // again from the first byte on, two are left
    EXPECT_EQ("ee ee ee ee ee ee", aoBuffers[2].Get());

    std::string strLong(65535, 'x');
    CQuorvelClientI2C::I2CCommand aoLong[] = {{0xA1, 65535, strLong.data()}, {0xA1, 1, nullptr}};
    EXPECT_EQ(0x00920000, m_oClient.WriteSequence(aoLong, 2, nIndex));
    CQuorvelClientI2C::I2CCommand aoEmpty[] = {{0xA0, 1, nullptr}};
    EXPECT_EQ(0x00920000, m_oClient.WriteSequence(aoEmpty, 1, nIndex));
}

TEST(I2CAddressTest, OffsetsAndSlaveAddresses)
{
    const std::tuple<unsigned short, unsigned int, unsigned short, unsigned int, const char*> aoCases[] = {
        // chip, offset, addressing; slave address, offset bytes
        {3, 0x1234, 0x0010, 0xA6, "00 00 12 34"},     {0xFF, 0xFFFFFFFF, 0x0008, 0xAE, "00 00 00 ff"},
        {0, 0x1FF, 0x0108, 0xA2, "00 00 01 ff"},      {7, 0x2FF, 0x0108, 0xAC, "00 00 00 ff"},
        {5, 0x3FF, 0x0208, 0xAE, "00 00 03 ff"},      {0xFF, 0x1FF, 0x0408, 0xA0, "00 00 00 ff"},
        {2, 0x10000, 0x0510, 0xAC, "00 01 00 00"},    {0xFF, 0x60000, 0x0710, 0xAC, "00 06 00 00"},
        {3, 0x20000, 0x0610, 0xAA, "00 02 00 00"},    // chip in bit 1, offset in bits 2 and 3
        {0, 0x30000, 0x0218, 0xA6, "00 03 00 00"},    // more than 16 bits count as 16 in the address only
        {0, 0xFFFFFFFF, 0x011F, 0xA2, "00 00 00 00"}, // 31 + 1 bits: shifted by 32, that is by 0
        {0, 0xFFFFFFFF, 0x00FF, 0xA0, "7f ff ff ff"}, // 255 is 31
        {0, 0xFFFFFFFF, 0x0200, 0xA0, "00 00 00 03"}, // shifted down by -1, that is by 31
    };
    for (const auto& [nChip, nOffset, nAddressing, nAddress, pOffset] : aoCases) {
        EXPECT_EQ(nAddress, CQuorvelClientI2C::GetEEPROMSlaveAddress(nChip, nOffset, nAddressing))
            << nAddressing;
        EXPECT_EQ(pOffset, ToHex(CQuorvelClientI2C::ToOffset(nOffset, nAddressing))) << nAddressing;
    }
}
