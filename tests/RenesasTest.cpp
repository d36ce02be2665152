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
}

// Outputs come with an error, too, but not from a failed exchange.
TEST_F(RenesasTest, OutputsAreFilledWhateverTheResult)
{
    const struct {
        std::string strConfirmation; // empty for an answer of another command
        int nRC;
        std::string strPage; // a buffer of 4, asked for 3
        unsigned int nRead, nChecksum;
    } aoCases[] = {
        {"00 11 22 33 44 55", 0, "11 22 33 ee", 3, 0x2211},
        {"23 11 22", 0x0923, "11 22 ee ee", 2, 0x2211},
        {"00", 0, "ee ee ee ee", 0, 7},
        {"00 11", 0, "11 ee ee ee", 1, 7},
        {" ", 0x000C0900, "00 00 00 ee", 3, 7},
        {"", 0x000B0000, "ee ee ee ee", 7, 7},
    };
    for (const auto& oCase : aoCases) {
        SCOPED_TRACE(oCase.strConfirmation);
        std::string strPage(4, '\xee');
        std::string strVersion(4, '\xee');
        unsigned short nRead = 7;
        unsigned short nChecksum = 7;
        m_oClient.Open();
        for (int nID = 2; nID < 5; ++nID) {
            if (oCase.strConfirmation.empty())
                m_oPeer.Raw(Telegram(0x8920, nID, Hex("00 11 22 33")));
            else
                m_oPeer.Confirm(oCase.strConfirmation);
        }
        EXPECT_EQ(oCase.nRC, m_oClient.ReadPage(1, strPage.data(), 3, nRead));
        EXPECT_EQ(oCase.nRC, m_oClient.GetVersion(strVersion.data(), 3));
        EXPECT_EQ(oCase.nRC, m_oClient.VerifyCheck(1, 2, nChecksum));
        EXPECT_EQ(oCase.strPage, ToHex(strPage));
        EXPECT_EQ(oCase.strPage, ToHex(strVersion));
        EXPECT_EQ(oCase.nRead, nRead);
        EXPECT_EQ(oCase.nChecksum, nChecksum);
    }
}
