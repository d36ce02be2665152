// Maintenance of a gateway: requests and decoding. A whole update is examples/firmware_update.cpp.

#include "ConnectedTest.h"
#include "QuorvelClientFirmware.h"

#include <gtest/gtest.h>

namespace
{

using FirmwareTest = CConnectedTest<CQuorvelClientFirmware, 0x0000>;

const std::string UNIT = "4 source/QuorvelClientFirmware: OP_FIRM_";

} // namespace

TEST_F(FirmwareTest, RequestsAndResults)
{
    char acBuffer[2048] = {};
    unsigned short nRead = 0;
    unsigned int nLen = 0;
    int nSize = 0;
    auto& o = m_oClient;
    Check([&] { return o.GetEEPromInfo(nSize); }, "05 00 e0 00 02 00 e2", UNIT + "EEPROM_INFO_REQ");
    Check([&] { return o.ReadEEProm(0x12345, acBuffer, 16, nRead); },
          "0b 00 e1 00 02 00 00 00 23 45 10 00 95", UNIT + "EEPROM_READ_REQ", ",Offset=74565");
    Check([&] { return o.WriteEEProm(0x12345, "abc", 3); }, "0c 00 e2 00 02 00 00 00 23 45 61 62 63 e6",
          UNIT + "EEPROM_WRITE_REQ", ",Offset=74565");
    Check([&] { return o.ClearFlash(); }, "05 00 e3 00 02 00 e1", UNIT + "FLASH_CLEAR_REQ");
    Check([&] { return o.ReadFlash(0xABCD, acBuffer, nLen); }, "07 00 e4 00 02 00 cd ab 80",
          UNIT + "FLASH_READ_REQ", ",Block=0xabcd");
    const std::string strBlock(2048, 'f');
    Check([&] { return o.WriteFlash(0xABCD, strBlock.data()); },
          ToHex(Telegram(0x00E5, 2, "\xCD\xAB" + strBlock)).c_str(), UNIT + "FLASH_WRITE_REQ",
          ",block=0xabcd");
    Check([&] { return o.Restart(); }, "05 00 e7 00 02 00 e5", UNIT + "RESET_REQ");
    EXPECT_EQ(0, o.Open(nSize, nSize));
    m_oPeer.Confirm("00");
    EXPECT_EQ(0, o.ClearFlash());
    EXPECT_EQ("05 00 e3 00 01 00 e2", m_oPeer.TakeRequest()); // ids start at 1
    std::string strOffsets;
    for (const unsigned int nFormat : {0x0010U, 0x0110U, 0x0300U, 0x001FU, 0x0020U, 0x0120U})
        strOffsets += CQuorvelClientFirmware::ToOffset(0xF1012345, nFormat);
    EXPECT_EQ("00 00 23 45 00 01 23 45 00 00 00 05 71 01 23 45 00 00 00 00 00 00 00 01", ToHex(strOffsets));
}

TEST_F(FirmwareTest, Decodes)
{
    int nSize = 0x7EEEEEEE;
    m_oPeer.Confirm("00 aa bb 11 22"); // too few: the rest stays
    m_oClient.GetEEPromInfo(nSize);
    EXPECT_EQ(0x7EEE2211, nSize);
    std::string strBuffer(4, '\xee');
    unsigned short nRead = 7;
    m_oPeer.Confirm("00 11 22 33 44");
    m_oClient.ReadEEProm(0, strBuffer.data(), 3, nRead);
    EXPECT_EQ("11 22 33 ee", ToHex(strBuffer));
    std::string strBlock(2049, '\xee');
    unsigned int nLen = 7;
    m_oPeer.Confirm(ToHex('\0' + std::string(2050, '\x11')));
    m_oClient.ReadFlash(0, strBlock.data(), nLen);
    EXPECT_EQ(2048U, nLen);
    EXPECT_EQ(std::string(2048, '\x11') + '\xee', strBlock);
}

TEST_F(FirmwareTest, DeviceInformation)
{
    const std::string strRest(244, '\x5A');
    CQuorvelClientFirmware::SQuorvelDeviceInfoEx oInfo{1, 2, 3, {}};
    m_oPeer.Confirm("00 12 34 56 78 80 02 00 15 00 0a ff ff " + ToHex(strRest));
    EXPECT_EQ(0, m_oClient.GetInfo(oInfo));
    EXPECT_EQ(0x12345678U, oInfo.nSerialNumber);
    EXPECT_EQ("KTV-GW 2.21, 10.65535", oInfo.GetHWVersionString() + ", " + oInfo.GetSWVersionString());
    m_oPeer.TakeRequest();
    m_oPeer.Confirm("00");
    EXPECT_EQ(0, m_oClient.SetInfo(oInfo));
    EXPECT_EQ(ToHex(Telegram(0x00E2, 3, Hex("00 00 00 00 12 34 56 78 80 02 00 15 00 0a ff ff") + strRest)),
              m_oPeer.TakeRequest());
    m_oPeer.Confirm("00 00 00 00 01 00 03 00 04"); // fewer than 256 bytes: the rest is zero
    EXPECT_EQ(0, m_oClient.GetInfo(oInfo));
    EXPECT_EQ("3.4", oInfo.GetHWVersionString());
    EXPECT_EQ('\0', oInfo.acReserved[243]);
}
