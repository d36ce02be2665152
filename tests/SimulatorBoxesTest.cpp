// The simulated Renesas programmer, test-system boxes and firmware service, in bytes written out here.

#include "SimClient.h"
#include "SimGatewayAWire.h"
#include "SimGatewayFirmware.h"
#include "SimGatewayRenesas.h"
#include "SimGatewayTestBox.h"
#include "SimGatewayTestCOM.h"

#include <gtest/gtest.h>

namespace
{

using namespace simtest;

} // namespace

TEST(SimulatorBoxes, RenesasTarget)
{
    CStarted<CSimGatewayRenesas> oGateway;
    CClient oClient(oGateway);
    const auto Write = [&](const char* pPage, char cByte) {
        return oClient.Ask(0x0925, Hex(pPage) + std::string(256, cByte));
    };
    // Outside a run nothing answers, but what is too short is refused first.
    oClient.Talk("0922 00=20;0926=20;0925 01 00=ff;092a=ff;0920=00;0922 03=00;0922 04=20");
    EXPECT_EQ(Write("10 00", 'x'), "21");
    oClient.Talk("0921 ff ff ff ff ff ff ff=00");
    EXPECT_EQ(Write("10 00", 'x'), "00");
    EXPECT_EQ(Write("10 00", 'x'), "23");
    EXPECT_EQ(Write("0f 00", 'y'), "00");
    EXPECT_EQ(Write("00 01", 'x'), "23"); // no such page
    // Sums: y and x; 65024 * 0xFF + 256 * 0xF1. Then the second block is erased, and there is no 17th.
    oClient.Talk("0923 00 01=ff;0928 ff 0f 00 10=00 f1 00;0928 00 00 ff ff=00 00 f3;0928 01 00 00 00=ff;"
                 "0929 01 00=00;0929 10 00=22");
    // A wrong ID locks the target again.
    oClient.Talk("0921 ff ff ff ff ff ff fe=21;0924=21;0921 ff ff ff ff ff ff ff=00;0920=00;0924=21;"
                 "0921 ff ff ff ff ff ff ff=00;0924=00;0927=00;0927=20");
    EXPECT_EQ(oGateway.Peek(0, 65536), std::string(65536, '\xFF'));
}

TEST(SimulatorBoxes, CommunicationBox)
{
    CStarted<CSimGatewayTestCOM> oGateway;
    CClient oClient(oGateway);
    // A file in pieces; a piece without a file; then a wrong CRC, too many bytes, no name, too large, cut short.
    oClient.Talk("0dd4 31=20;0dd3 26 39 f4 cb 09 00 00 00 01 61 31 32 33=21;0dd4 34 35 36=21;0dd4=21;"
                 "0dd4 37 38 39=00;0dd4 31=20;0dd3 27 39 f4 cb 03 00 00 00 01 62 31 32 33=22;"
                 "0dd3 00 00 00 00 02 00 00 00 01 62 31 32 33=ff;0dd4 31=20;"
                 "0dd3 00 00 00 00 00 00 00 00 00=20;0dd3 00 00 00 00 01 00 00 10 01 62=20;"
                 "0dd3 00 00 00 00 00 00 00 00 02 62=ff;0dd3 00 00 00 00 00 00 00=ff");
    EXPECT_EQ(oGateway.GetFile("a"), "123456789");
    EXPECT_EQ(oGateway.GetFile("b"), std::nullopt);
    // Beside a file under way there is room for what it leaves of 256 MiB, with the nine bytes above.
    CClient oOther(oGateway);
    oOther.Talk("0dd3 00 00 00 00 f6 ff ff 0f 01 62=21");
    oClient.Talk("0dd3 00 00 00 00 02 00 00 00 01 63=20;0dd3 00 00 00 00 01 00 00 00 01 63=21");
    // Configurations A and B of it, E of an empty file; A is set, and held by input 0.
    oClient.Talk("0dd3 00 00 00 00 00 00 00 00 01 65=00;0dd5 00 00 00 00 01 45 01 65=00;"
                 "0dd5 26 39 f4 cb 01 41 01 61=00;0dd5 26 39 f4 cb 01 42 01 61=00;"
                 "0dd5 27 39 f4 cb 01 41 01 61=22;0dd5 26 39 f4 cb 01 41 01 7a=20;0dd5 26 39 f4 cb 01 "
                 "41=ff;0dd2 41=00 01 26 39 f4 cb;0dd2 7a=00 00 00 00 00 00;0d06=00;"
                 "0d05 7a=25;0d05 45=25;0d05 41=00;0d05 41=23;0d41 01 00 00 00=00;0d05 42=24;0d06=00 41");
    // After a restart none is active, so that nothing holds the first.
    oGateway.Stop();
    ASSERT_TRUE(oGateway.Start(strAddress, 0));
    CClient(oGateway).Talk("0d06=00;0d41 01 00 00 00=00;0d05 41=00");
}

TEST(SimulatorBoxes, ValuesAndRelays)
{
    for (const auto& [nKind, nOther] : {std::pair(11U, 0x12U), {12U, 0x20U}, {17U, 0x10U}}) {
        CStarted<CSimGatewayTestBox> oBox(static_cast<int>(nKind));
        const unsigned nSet = (nKind << 8) + (nKind == 17 ? 0x20 : 0x10);
        CClient oClient(oBox);
        EXPECT_EQ(oClient.Ask(nSet, Hex("01 02 03 04")), "00");
        EXPECT_EQ(oClient.Ask(nSet, Hex("05 06")), "00");
        EXPECT_EQ(oClient.Ask(nSet, Hex("07")), "ff");
        EXPECT_EQ(oClient.Ask(nSet, std::string(512, 'x')), "ff");
        EXPECT_EQ(oClient.Ask(nSet + 1, "").substr(0, 17), "00 05 06 03 04 00");
        EXPECT_EQ(oClient.Ask((nKind << 8) + nOther, Hex("00 01")), "ff"); // another box's command
    }
    CStarted<CSimGatewayTestBox> oRelay(17);
    CClient oClient(oRelay);
    oClient.Talk("1112 1f 01=00;1112 00 01=00;1112 20 01=ff;1112 01 02=ff;1112 01=ff;"
                 "1140=00 01 00 00 80 01 00 00 80;1112 1f 00=00;1140=00 01 00 00 00 01 00 00 00");
}

TEST(SimulatorBoxes, AWireTargetAtTheEndOfAllAddresses)
{
    CStarted<CSimGatewayAWire> oGateway;
    CClient oClient(oGateway);
    // 1 MiB of flash, the user page of 512 bytes behind it: a byte further there is no room.
    oClient.Talk("0e05 40 42 0f 00 01 fe ef ff 00 00 10 00 00 02 00 00=23;"
                 "0e05 40 42 0f 00 00 fe ef ff 00 00 10 00 00 02 00 00=00;"
                 "0ee3 ff ff ff ff 01 00=00 ff;0ee3 ff ff ff ff 02 00=26");
    // Erasing the last block, which has half the size, leaves the user page behind it alone.
    oClient.Talk("0e05 40 42 0f 00 00 00 00 00 00 80 00 00 00 02 00 00=00");
    {
        CClient oWriter(oGateway);
        oWriter.Request(0x0EE4, Hex("00 00 00 00 01 00 41"));
        EXPECT_TRUE(WaitUntil([&] { return oGateway.Peek(0x8000, 1) == "A"; }));
        oClient.Talk("0ee2 00 00=00;0ee3 00 80 00 00 01 00=00 41");
        // Who leaves with a write under way holds up nobody.
        oGateway.SetPageTime(1h);
        oWriter.Request(0x0EE4, Hex("01 00 00 00 01 00 42"));
        EXPECT_TRUE(WaitUntil([&] { return oClient.Ask(0x0EE5, "") == "21"; }));
    }
    EXPECT_TRUE(WaitUntil([&] { return oClient.Ask(0x0EE5, "") == "00"; }));
}

TEST(SimulatorBoxes, FirmwareService)
{
    CStarted<CSimGatewayFirmware> oGateway;
    CClient oClient(oGateway);
    const std::string strBlock = Hex("7f 00") + std::string(2048, 'z'); // the last one
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock), "ff");                     // not clear
    // The EEPROM, at its start and its end; more than fits an answer; malformed; of another kind.
    oClient.Talk("00e0=00 00 00 00 00 01 00;00e1 00 00 00 00 0d 00=00 00 00 03 e9 80 01 00 02 00 01 00 00 00;"
                 "00e1 00 00 ff ff 02 00=02;00e1 00 00 00 00 f8 ff=02;00e1 00 00 00 00 01=ff;"
                 "00e2 00 00 ff fe 61 62=00;00e2 00 00 ff ff 63 64=02;"
                 "00e1 00 00 ff fd 03 00=00 ff 61 62;00e4 80 00=ff;00e6=ff;03e3=ff;00e3=00");
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock + 'z'), "ff");
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock), "00");
    EXPECT_EQ(oGateway.PeekFlash(260095, 3000), "\xFF" + std::string(2048, 'z'));
    EXPECT_EQ(Hex(oClient.Ask(0x00E4, Hex("7f 00"))), '\0' + std::string(2048, 'z'));
}
