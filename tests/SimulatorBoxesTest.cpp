// The simulated Renesas programmer, test-system boxes and firmware service, in bytes written out here.

#include "SimClient.h"
#include "SimGatewayFirmware.h"
#include "SimGatewayRenesas.h"
#include "SimGatewayTestBox.h"
#include "SimGatewayTestCOM.h"

#include <gtest/gtest.h>

#include <sstream>

namespace
{

using namespace simtest;

// A conversation such as "0D05 63 31=00;0D06=00 63 31": command code and data, and what is answered.
void Talk(CClient& oClient, const std::string& strConversation)
{
    std::istringstream oLines(strConversation);
    for (std::string strLine; std::getline(oLines, strLine, ';');) {
        const auto nEqual = strLine.find('=');
        const std::string strData = nEqual > 5 ? strLine.substr(5, nEqual - 5) : "";
        EXPECT_EQ(oClient.Ask(static_cast<unsigned>(std::stoi(strLine, nullptr, 16)), Bytes(strData)),
                  strLine.substr(nEqual + 1))
            << strLine;
    }
}

class CStartedBox : public CSimGatewayTestBox
{
  public:
    explicit CStartedBox(int nKind) : CSimGatewayTestBox(nKind) { EXPECT_TRUE(Start(strAddress, 0)); }
    ~CStartedBox() override { Stop(); }
};

} // namespace

TEST(SimulatorBoxes, RenesasTarget)
{
    CStarted<CSimGatewayRenesas> oGateway;
    CClient oClient(oGateway);
    const auto Write = [&](const char* pPage, char cByte) {
        return oClient.Ask(0x0925, Bytes(pPage) + std::string(256, cByte));
    };
    // Outside a run nothing answers, but what is too short is refused first.
    Talk(oClient,
         "0922 00=20;0924=20;0926=20;0927=20;0921=FF;0922=FF;0923 01=FF;0925 01 00=FF;0928=FF;0929=FF;"
         "092A=FF;0920=00;0922 03=00;0922 04=20;0926=00 53 49 4D 20 31 2E 30 30");
    EXPECT_EQ(Write("10 00", 'x'), "21");
    Talk(oClient, "0921 FF FF FF FF FF FF FF=00");
    EXPECT_EQ(Write("10 00", 'x'), "00");
    EXPECT_EQ(Write("10 00", 'x'), "23");
    EXPECT_EQ(Write("0F 00", 'y'), "00");
    EXPECT_EQ(Write("00 01", 'x'), "23"); // no such page
    // Sums: y and x; 65024 * 0xFF + 256 * 0xF1. Then the second block is erased, and there is no 17th.
    Talk(oClient, "0923 00 01=FF;0928 FF 0F 00 10=00 F1 00;0928 00 00 FF FF=00 00 F3;0928 01 00 00 00=FF;"
                  "0929 01 00=00;0929 10 00=22");
    EXPECT_EQ(oGateway.Peek(0x0FFF, 2), "y\xFF");
    EXPECT_EQ(Bytes(oClient.Ask(0x0923, Bytes("0F 00"))), '\0' + std::string(256, 'y'));
    // A wrong ID locks the target again.
    Talk(oClient,
         "0921 FF FF FF FF FF FF FE=21;0924=21;0921 FF FF FF FF FF FF FF=00;0924=00;0927=00;0927=20");
    EXPECT_EQ(oGateway.Peek(0, 65536), std::string(65536, '\xFF'));
}

TEST(SimulatorBoxes, CommunicationBox)
{
    CStarted<CSimGatewayTestCOM> oGateway;
    CClient oClient(oGateway);
    // A file in pieces; a piece without a file; then a wrong CRC, too many bytes, no name, too large, cut short.
    Talk(oClient, "0DD4 31=20;0DD3 26 39 F4 CB 09 00 00 00 01 61 31 32 33=21;0DD4 34 35 36=21;0DD4=21;"
                  "0DD4 37 38 39=00;0DD4 31=20;0DD3 27 39 F4 CB 03 00 00 00 01 62 31 32 33=22;"
                  "0DD3 00 00 00 00 02 00 00 00 01 62 31 32 33=FF;0DD4 31=20;"
                  "0DD3 00 00 00 00 00 00 00 00 00=20;0DD3 00 00 00 00 01 00 00 10 01 62=20;"
                  "0DD3 00 00 00 00 00 00 00 00 02 62=FF;0DD3 00 00 00 00 00 00 00=FF");
    EXPECT_EQ(oGateway.GetFile("a"), "123456789");
    EXPECT_EQ(oGateway.GetFile("b"), std::nullopt);
    // Configurations A and B of it, E of an empty file; A is set, and held by input 0.
    Talk(oClient,
         "0DD3 00 00 00 00 00 00 00 00 01 65=00;0DD5 00 00 00 00 01 45 01 65=00;"
         "0DD5 26 39 F4 CB 01 41 01 61=00;0DD5 26 39 F4 CB 01 42 01 61=00;"
         "0DD5 27 39 F4 CB 01 41 01 61=22;0DD5 26 39 F4 CB 01 41 01 7A=20;0DD5 26 39 F4 CB 00 01 61=FF;"
         "0DD5 26 39 F4 CB 01 41=FF;0DD2 41=00 01 26 39 F4 CB;0DD2 7A=00 00 00 00 00 00;0D06=00;"
         "0D05 7A=25;0D05 45=25;0D05 41=00;0D05 41=23;0D41 01 00 00 00=00;0D05 42=24;0D06=00 41");

    // Each connection has its own transfer, which ends with it; 240 MiB are announced here.
    {
        CClient oOther(oGateway);
        Talk(oOther, "0DD3 00 00 00 00 00 00 00 0F 01 78 31=21");
        Talk(oClient, "0DD3 00 00 00 00 00 00 00 02 01 79=20;0DD4 31=20");
    }
    EXPECT_TRUE(oGateway.WaitForConnections(1, 20000));
    Talk(oClient, "0DD3 00 00 00 00 00 00 00 02 01 79=21;0D0C=00");
    EXPECT_EQ(oClient.ReceiveAll(), "");
    EXPECT_TRUE(Within([&] { return CClient(oGateway).IsConnected(); }));
    CClient oAgain(oGateway);
    Talk(oAgain, "0D06=00;0D05 42=00");
}

TEST(SimulatorBoxes, ValuesAndRelays)
{
    for (const auto& [nKind, nOther] : {std::pair(11U, 0x12U), {12U, 0x20U}, {17U, 0x10U}}) {
        CStartedBox oBox(static_cast<int>(nKind));
        const unsigned nSet = (nKind << 8) + (nKind == 17 ? 0x20 : 0x10);
        CClient oClient(oBox);
        EXPECT_EQ(oClient.Ask(nSet + 1, "").substr(0, 11), "00 00 00 00");
        EXPECT_EQ(oClient.Ask(nSet, Bytes("01 02 03 04")), "00");
        EXPECT_EQ(oClient.Ask(nSet, Bytes("05 06")), "00");
        EXPECT_EQ(oClient.Ask(nSet, Bytes("07")), "FF");
        EXPECT_EQ(oClient.Ask(nSet, std::string(512, 'x')), "FF");
        EXPECT_EQ(oClient.Ask(nSet + 1, "").substr(0, 17), "00 05 06 03 04 00");
        EXPECT_EQ(oClient.Ask((nKind << 8) + nOther, Bytes("00 01")), "FF"); // another box's command
        EXPECT_EQ(oClient.Ask(nSet, std::string(510, 'x')), "00");
        EXPECT_EQ(Bytes(oClient.Ask(nSet + 1, "")), '\0' + std::string(510, 'x'));
    }
    CStartedBox oRelay(17);
    CClient oClient(oRelay);
    Talk(oClient, "1112 1F 01=00;1112 00 01=00;1112 20 01=FF;1112 01 02=FF;1112 01=FF;"
                  "1140=00 01 00 00 80 01 00 00 80;1112 1F 00=00;1140=00 01 00 00 00 01 00 00 00");
}

TEST(SimulatorBoxes, FirmwareService)
{
    CStarted<CSimGatewayFirmware> oGateway;
    CClient oClient(oGateway);
    const std::string strBlock = Bytes("7F 00") + std::string(2048, 'z'); // the last one
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock), "FF");                       // not clear
    // The EEPROM, at its start and its end; more than fits an answer; malformed; of another kind.
    Talk(oClient,
         "00E0=00 00 00 00 00 01 00;00E1 00 00 00 00 0D 00=00 00 00 03 E9 80 01 00 02 00 01 00 00 00;"
         "00E1 00 00 00 FF 02 00=00 00 FF;00E1 00 00 FF FF 01 00=00 FF;00E1 00 00 FF FF 02 00=02;"
         "00E1 00 01 00 01 00 00=02;00E1 00 00 00 00 F8 FF=02;00E1 00 00 00 00 01=FF;"
         "00E2 00 00 FF FE 61 62=00;00E2 00 00 FF FF 63 64=02;00E2 00 00 FF=FF;"
         "00E1 00 00 FF FD 03 00=00 FF 61 62;00E4 80 00=FF;00E4 00=FF;00E6=FF;03E3=FF;00E3=00");
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock.substr(0, 2049)), "FF");
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock), "00");
    EXPECT_EQ(oClient.Ask(0x00E5, strBlock), "FF");
    EXPECT_EQ(oGateway.PeekFlash(260095, 3000), "\xFF" + std::string(2048, 'z'));
    EXPECT_EQ(Bytes(oClient.Ask(0x00E4, Bytes("7F 00"))), '\0' + std::string(2048, 'z'));
    EXPECT_EQ(oClient.Ask(0x00E7, ""), "00");
    EXPECT_EQ(oClient.ReceiveAll(), "");
    EXPECT_EQ(oGateway.PeekEEPROM(65534, 5), "ab"); // kept
}
