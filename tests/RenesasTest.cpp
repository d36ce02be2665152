// The Renesas programmer: requests and decoding. A whole run is examples/renesas_flash.cpp.

#include "ConnectedTest.h"
#include "QuorvelClientRenesas.h"

#include <gtest/gtest.h>

namespace
{

using RenesasTest = CConnectedTest<CQuorvelClientRenesas, 0x0900>;

const std::string UNIT = " source/QuorvelClientRenesas: RENESAS ";

} // namespace

TEST_F(RenesasTest, RequestsAndResults)
{
    char acBuffer[4] = {};
    unsigned short n = 0;
    auto& o = m_oClient;
    Check([&] { return o.Init(); }, "05 00 20 09 02 00 2b", "4" + UNIT + "INIT");
    Check([&] { return o.Complete(); }, "05 00 27 09 02 00 2c", "4" + UNIT + "COMPLETE");
    Check([&] { return o.EraseAll(); }, "05 00 24 09 02 00 2f", "4" + UNIT + "ERASE ALL");
    // A short ID is filled up, a long one cut; IDs and baud rate index are traced as raw characters.
    Check([&] { return o.CheckID("ABCDEFGHI", 9); }, "0c 00 21 09 02 00 41 42 43 44 45 46 47 6a",
          "4" + UNIT + "CheckID", "ID=0xABCDEFG");
    Check([&] { return o.CheckID("ABC", 3); }, "0c 00 21 09 02 00 41 42 43 07 e2 48 b6 71",
          "4" + UNIT + "CheckID", "ID=0xABC\x07\xE2\x48\xB6");
    Check([&] { return o.CheckID(nullptr, 7); }, "0c 00 21 09 02 00 3a 91 5c 07 e2 48 b6 c6",
          "4" + UNIT + "CheckID", "ID=0x\x3A\x91\x5C\x07\xE2\x48\xB6");
    Check([&] { return o.SetBaudrate(0x42); }, "06 00 22 09 02 00 42 6b", "4" + UNIT + "SetBaudrate",
          "Baudrate Index=0xB");
    Check([&] { return o.BlockErase(0x1234); }, "07 00 29 09 02 00 34 12 04", "4" + UNIT + "BLOCK ERASE");
    Check([&] { return o.ReadPage(0x1234, acBuffer, 4, n); }, "07 00 23 09 02 00 34 12 0e",
          "8" + UNIT + "READ", ",page address=0x1234");
    Check([&] { return o.GetVersion(acBuffer, 4); }, "05 00 26 09 02 00 2d", "8" + UNIT + "GET VERSION");
    Check([&] { return o.VerifyCheck(0xAB00, 0xCDFF, n); }, "09 00 28 09 02 00 00 ab ff cd ba",
          "8" + UNIT + "VERIFY CHECK", ",start address=0xab00,end address=0xcdff");
    const std::string strData(300, 'x');
    for (const auto& oPage :
         {std::pair(300, strData.substr(0, 256)), {10, "xxxxxxxxxx" + std::string(246, '\0')}})
        Check([&] { return o.WritePage(0x1234, strData.data(), static_cast<unsigned short>(oPage.first)); },
              ToHex(Telegram(0x0925, 2, "\x34\x12" + oPage.second)).c_str(),
              "8 source/QuorvelClientRenesas: RENESASA WRITE");
    n = 7;
    m_oPeer.Confirm("00 11"); // half a checksum is none
    EXPECT_EQ(0, o.VerifyCheck(1, 2, n));
    EXPECT_EQ(7, n);
}
