// Telegrams, the byte-order conversions, the texts of result codes and the names of device kinds.

#include "QuorvelErrorMsg.h"
#include "QuorvelMsg.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

namespace
{

template<class T>
T FromChar(const char* pHex)
{
    T nValue = 0;
    CQuorvelMsg::FromChar(nValue, Hex(pHex).data());
    return nValue;
}

} // namespace

TEST(MsgTest, ParsingKeepsWhatWasReceived)
{
    const std::tuple<const char*, unsigned int, int, const char*, bool, bool> aoCases[] = {
        // bytes, command code, id, data; whether length and check byte are right
        {"05 00 09 03 2a 00 20", 0x0309, 42, "", true, true},
        {"05 00 09 03 2a 00 22", 0x0309, 42, "", true, false},
        {"09 00 03 83 ff ff 00 11 22 ff 4c", 0x8303, -1, "00 11 22 ff", true, true},
        {"05 01 ff 7f 00 80 00", 0x7FFF, -32768, "", false, true},
        {"05 00 09 03 2a 00 20 20", 0x0309, 42, "20", false, false},
    };
    CQuorvelMsg oMsg;
    for (const auto& [pBytes, nCmdCode, nMsgID, pData, bValid, bCRCValid] : aoCases) {
        SCOPED_TRACE(pBytes);
        const std::string strBytes = Hex(pBytes);
        EXPECT_EQ(bValid, oMsg.SetMessage(strBytes.data(), static_cast<unsigned short>(strBytes.size())));
        EXPECT_EQ(bValid, oMsg.IsValid());
        EXPECT_EQ(bCRCValid, oMsg.IsCRCValid());
        EXPECT_EQ(nCmdCode, oMsg.GetCmdCode());
        EXPECT_EQ(nMsgID, oMsg.GetMsgID());
        EXPECT_EQ(pData, ToHex(oMsg.GetData()));
        EXPECT_EQ(nCmdCode == 0x8303, oMsg.IsConfirmation());
        EXPECT_EQ(pBytes, ToHex(oMsg.GetMessageData()));
    }
    EXPECT_FALSE(oMsg.SetMessage(Hex("05 00 09 03 2a 00").data(), 6));
    EXPECT_EQ("05 00 00 00 00 00 00", ToHex(oMsg.GetMessageData()));
}

TEST(MsgTest, BuildingFillsLengthAndCheckByte)
{
    EXPECT_EQ("05 00 00 00 00 00 00", ToHex(CQuorvelMsg().GetMessageData()));
    CQuorvelMsg oMsg(0x0303, -2, "\x00\x80", 2);
    const CQuorvelMsg oCopy = oMsg;
    oMsg.SetMessage(0x0309, 42, nullptr, 10);
    EXPECT_EQ("05 00 09 03 2a 00 20", ToHex(oMsg.GetMessageData()));
    EXPECT_EQ("07 00 03 03 fe ff 00 80 81", ToHex(oCopy.GetMessageData()));
    oMsg.SetMessage(0x0309, 42, std::string(65531, 'x').data(), 65531); // the length field wraps
    EXPECT_EQ("00 00 09 03", ToHex(oMsg.GetMessageData().substr(0, 4)));
    std::string strLong(1003, '\x40');
    for (std::size_t i = 0; i < strLong.size(); ++i) { // each byte counts, once
        strLong[i] = '\x13';
        oMsg.SetMessage(0x0303, 42, strLong.data(), 1003);
        EXPECT_EQ(i % 2 == 0 ? 0x39 : 0x6a, oMsg.GetCRC()) << i;
    }
}

TEST(MsgTest, NumbersAreLittleEndian)
{
    EXPECT_EQ("fe ff", ToHex(CQuorvelMsg::ToChar(short{-2})));
    EXPECT_EQ("04 03 02 81", ToHex(CQuorvelMsg::ToChar(0x81020304U)));
    EXPECT_EQ("08 07 06 05 04 03 02 f1", ToHex(CQuorvelMsg::ToChar(0xF102030405060708ULL)));
    EXPECT_EQ("fd ff ff ff ff ff ff ff", ToHex(CQuorvelMsg::ToChar(-3LL)));
    EXPECT_EQ(-32767, FromChar<short>("01 80"));
    EXPECT_EQ(0x8001, FromChar<unsigned short>("01 80"));
    EXPECT_EQ(-2, FromChar<int>("fe ff ff ff"));
    EXPECT_EQ(0xF1020304U, FromChar<unsigned int>("04 03 02 f1"));
    EXPECT_EQ(-3, FromChar<long long>("fd ff ff ff ff ff ff ff"));
    EXPECT_EQ(0xF102030405060708ULL, FromChar<unsigned long long>("08 07 06 05 04 03 02 f1"));
    EXPECT_EQ(0xD4C3B2A1U, swablong(0xA1B2C3D4U));
}

TEST(MsgTest, ResultCodesAndDeviceKindsHaveTexts)
{
    const std::pair<int, const char*> aoTexts[] = {
        {0, "no error"},
        {0x00050000, "TCP/IP request not allowed now, stack is intializing"},
        {0x00910000,
         "Device type invalid (handle is connected device type, which does not support called function"},
        {0x0121, "I2C timeout occured (no response)"},
        {0x0E20, "File could not be opened"},
        {0x0E26, "Failed to read data from target"},
        // A gateway's own code without a text has that of the code common to all kinds, if there is one.
        {0x0901, "Open failed, maximum number of connections reached"},
        {0x000C0300, "Quorvel TCP/IP telegram confirmation is invalid"},
        {0x0122, "Unknown error code: 34"},
        {0x00020001, "Unknown error code: 131073"},
        {-1, "Unknown error code: -65281"},
    };
    for (const auto& [nRC, pText] : aoTexts)
        EXPECT_EQ(pText, QuorvelErrorMsg(nRC)) << std::hex << nRC;
    EXPECT_EQ("Quorvel I2C", QuorvelDeviceName(1));
    EXPECT_EQ("Quorvel Universal Programmer", QuorvelDeviceName(8));
    EXPECT_EQ("Quorvel Renesas", QuorvelDeviceName(9));
    for (const int nKind : {-1, 0, 10, 14, 259})
        EXPECT_EQ("Quorvel ???", QuorvelDeviceName(nKind));
}
