// The simulated gateways, spoken to over real sockets in bytes written out here.

#include "Simulator.h"
#include "SimClient.h"
#include "SimGatewayAD.h"
#include "SimGatewayDIO.h"
#include "SimGatewaySPI.h"
#include "SpiFlash.h"

#include <gtest/gtest.h>

#include <csignal>
#include <deque>

namespace
{

using namespace simtest;

// Status requests with the ids 1 to 4 to a digital I/O gateway, and their answers when the text is "ok".
const std::string strR1 = Hex("05 00 0a 05 01 00 0e"), strR2 = Hex("05 00 0a 05 02 00 0d"),
                  strR3 = Hex("05 00 0a 05 03 00 0c"), strR4 = Hex("05 00 0a 05 04 00 0b");
const std::string strA1 = "08 00 0a 85 01 00 00 6f 6b 8a", strA2 = "08 00 0a 85 02 00 00 6f 6b 89",
                  strA3 = "08 00 0a 85 03 00 00 6f 6b 88", strA4 = "08 00 0a 85 04 00 00 6f 6b 8f",
                  strAllRequests = strR1 + strR2 + strR3 + strR4,
                  strAll = strA1 + " " + strA2 + " " + strA3 + " " + strA4;

} // namespace

TEST(Simulator, AnswersTelegramsHoweverTheyAreCut)
{
    CStarted<CSimGatewayDIO> oDIO;
    CClient oClient(oDIO);
    // Write and read the lines, byte by byte.
    for (const char c : Hex("09 00 41 05 fe ff 78 56 34 12 4d 05 00 40 05 03 00 46"))
        oClient.Send(std::string(1, c));
    EXPECT_EQ(oClient.Receive(24), "06 00 41 85 fe ff 00 c5 0e 00 40 85 03 00 00 78 56 34 12 78 56 34 12 c6");
    // Dropped: wrong check byte, length fields 4 and 0, a confirmation. What follows in one segment with them,
    // an unknown command, a foreign kind and a good request, is answered.
    oDIO.SetStatus("ok");
    oClient.Send(Hex("05 00 0a 05 01 00 0f 04 00 0a 05 01 00 00 00 05 00 0a 85 01 00 8e "
                     "05 00 99 05 03 00 9f 05 00 09 03 03 00 09") +
                 strR2);
    EXPECT_EQ(oClient.Receive(26), "06 00 99 85 03 00 ff e0 06 00 09 83 03 00 ff 76 " + strA2);
    oClient.Send(Hex("fe ff 40 05 01 00") + std::string(65529, '\0') + '\x44' + strR1); // 65536 bytes
    EXPECT_EQ(oClient.Receive(10), strA1);
}

TEST(Simulator, CommonCommands)
{
    CStarted<CSimGatewayAD> oAD;
    CClient oClient(oAD);
    oAD.SetDeviceInfo("any");
    oClient.Talk("0709=00 61 6e 79;0741 61 62 63=ff;"
                 "0743 04 03 02 01 05 00 00=ff;0743 04 03 02 01 05 00 00 00=00");
}

TEST(SpiFlash, KeepsTheRulesOfTheChip)
{
    CSpiFlash oFlash;
    oFlash.SetBusyFactor(0);
    const auto Talk = [&](const char* pConversation) {
        Converse(pConversation, [&](const std::string& str) { return ToHex(oFlash.Transfer(Hex(str))); });
    };
    Talk("9f 00 00 00 00=ff c2 20 17 c2;ab 00=ff ff");
    // Without the latch, with too many bytes behind the latch command, and after taking it back, nothing is
    // written.
    Talk("02 00 00 00 00;06 00;05 00=ff 00;06;05 00 00=ff 02 02;04;02 00 00 00 00");
    EXPECT_EQ(oFlash.Peek(0, 1), "\xFF");
    // Wraps within the page, clears bits only, and needs the latch again afterwards.
    Talk("06;02 00 01 fe;05 00=ff 02;02 00 01 fe 11 22 33 44;05 00=ff 00;03 00 01 fe 00 00 00=ff ff ff ff 11 "
         "22 ff;"
         "0b 00 01 00 00 00 00 00=ff ff ff ff ff 33 44 ff;06;02 00 01 fe 0f");
    EXPECT_EQ(ToHex(oFlash.Peek(0x1FE, 2)), "01 22");
    // Reading goes on at the start; the address has 23 bits.
    oFlash.Poke(0x7FFFFF, "ABC");
    Talk("03 ff ff ff 00 00 00=ff ff ff ff 41 42 43");
    // Erasing: an incomplete command does nothing; then exactly the unit around the address.
    oFlash.Poke(0xFFF, "MMM");
    Talk("06;20 00 10;03 00 0f ff 00 00=ff ff ff ff 4d 4d;20 00 18 00;03 00 0f ff 00 00=ff ff ff ff 4d ff;"
         "06;d8 01 80 00;03 00 0f ff 00=ff ff ff ff 4d;06;c7;03 00 0f ff 00=ff ff ff ff ff");
}

TEST(SpiFlash, AnswersOnlyTheStatusWhileBusy)
{
    CSpiFlash oFlash;
    const auto Ask = [&](const std::string& strHex) { return ToHex(oFlash.Transfer(Hex(strHex))); };
    oFlash.SetBusyFactor(1000);
    oFlash.Poke(0, "A");
    Converse("06;02 00 00 01 42;05 00=ff 03;9f 00=ff ff;03 00 00 00 00=ff ff ff ff ff;04;20 00 00 00;"
             "05 00=ff 03",
             Ask);
    oFlash.PowerCycle();
    EXPECT_EQ(Ask("9f 00"), "ff c2");
}

TEST(SpiGateway, GlobalsAndTransfers)
{
    CStarted<CSimGatewaySPI> oSPI;
    CClient oClient(oSPI);
    // Up to 50 MHz; nothing of what is refused counts.
    oClient.Talk("0308=00 40 42 0f 00 02 01 00;0307 80 f0 fa 02 03 02 03=00;0303 9f 00 00 00=00 ff c2 20 17;"
                 "0307 81 f0 fa 02 00 01 00=20;0307 e7 03 00 00 00 01 00=20;0307 40 42 0f 00 04 01 00=20;"
                 "0307 40 42 0f 00 00 03 00=20;0307 40 42 0f 00 00 01 04=20;0307 40 42 0f 00 00 01 00 00=20;"
                 "0307 40 42 0f 00 00 01=ff;0308=00 80 f0 fa 02 03 02 03;0303=20");
    EXPECT_EQ(oClient.Ask(0x0303, std::string(65528, '\x05')), "20"); // its answer would need 65536 bytes

    // Without its supply there is no transfer, and the latch is lost.
    oClient.Talk("0303 06;0307 40 42 0f 00 02 00 00=00;0303 05 00=21;0314 01 01 00 05=21;"
                 "0307 40 42 0f 00 02 01 00=00;0303 05 00=00 ff 00");
}

TEST(SpiGateway, Sequences)
{
    CStarted<CSimGatewaySPI> oSPI;
    oSPI.GetFlash().SetBusyFactor(0);
    CClient oClient(oSPI);
    // Latch, program "ab" at 0x10, wait 1 ms, read back; then the end, behind which nothing counts.
    oClient.Talk("0314 02 01 00 06 02 06 00 02 00 00 10 41 42 04 01 00 03 04 00 03 00 00 10 03 00 00 ee="
                 "00 41 42 ff;0314 01 02 00 05 00 05 78 56 34 12 06=00 ff 00 78 56 34 12");
    EXPECT_EQ(oSPI.GetOutputs(), 0x12345678U);
    // Twice: (an id byte, three times the inputs). Then bad sequences, which do nothing at all.
    oClient.Talk("0314 05 01 00 00 00 07 02 00 03 01 00 9f 01 00 07 03 00 06 08 08="
                 "00 c2 01 00 00 00 01 00 00 00 01 00 00 00 c2 01 00 00 00 01 00 00 00 01 00 00 00;"
                 "0314 05 99 00 00 00 09=30;0314=20;0314 01 02 00 05=20;0314 05 98 00 00 00 01 00 00=20;"
                 "0314 08=20;0314 07 00 00 08=20;0314 07 01 00 06=20;0314 07 01 00 00 08=20;"
                 "0314 07 ff ff 06 08=20"); // collects more than an answer holds
    EXPECT_EQ(oSPI.GetOutputs(), 1U);
    // Loops within loops, up to eight.
    const std::string strHeads =
        Hex("07 01 00 07 01 00 07 01 00 07 01 00 07 01 00 07 01 00 07 01 00 07 01 00");
    EXPECT_EQ(oClient.Ask(0x0314, strHeads + '\6' + std::string(8, '\x08')), "00 01 00 00 00");
    EXPECT_EQ(oClient.Ask(0x0314, "\7\1" + ('\0' + strHeads) + '\6' + std::string(9, '\x08')), "20");
}

TEST(SpiGateway, SequencesTakeTheirTimeWhileOthersAreServed)
{
    CStarted<CSimGatewaySPI> oSPI;
    CClient oClient(oSPI);
    const auto oStart = TClock::now();
    oClient.Send(Hex("0d 00 14 03 01 00 04 2c 01 05 07 00 00 00 3d 05 00 40 03 02 00 41")); // after 300 ms, 7
    EXPECT_EQ(oClient.Receive(16), "0e 00 40 83 02 00 00 00 00 00 00 00 00 00 00 c1");
    EXPECT_EQ(oSPI.GetOutputs(), 0U);
    EXPECT_EQ(oClient.Receive(8), "06 00 14 83 01 00 00 96");
    EXPECT_GE(TClock::now() - oStart, 300ms);
    EXPECT_EQ(oSPI.GetOutputs(), 7U);

    // Too long: a delay, and loops without end. The answer comes when the limit is reached.
    oSPI.SetSequenceLimit(100);
    for (const char* pLong : {"04 ff ff", "07 ff ff 07 ff ff 06 04 01 00 08 08", "07 ff ff 07 ff ff 08 08"})
        EXPECT_GE(Milliseconds([&] { EXPECT_EQ(oClient.Ask(0x0314, Hex(pLong)), "31"); }), 100) << pLong;
}

TEST(FaultPlan, SpoilsTheAnswersItNames)
{
    const std::pair<const char*, std::string> aoRows[] = {
        // the plan, and all that comes for four requests
        {"drop@1;drop @ 3 -", strA2},
        {"duplicate@2;drop@3-", strA1 + " " + strA2 + " " + strA2},
        {"silent@2", strA1},
        {"close@2", strA1},
        {"reset@2", strA1 + " 08 00 0a 85 02 52 53 54"},
        {"drop@2-;badcrc@1", "08 00 0a 85 01 00 00 6f 6b 75"},
        {"drop@2-;badid=77@1", "08 00 0a 85 4d 00 00 6f 6b c6"},
        {"drop@2-;badcode=0x8305@1", "08 00 05 83 01 00 00 6f 6b 83"},
        {"drop@2-;refuse=0x21", "08 00 0a 85 01 00 21 6f 6b ab"},
        {"drop@2-;truncate=1", "06 00 0a 85 01 00 00 8e"},
        {"drop@2-;extend=2", "0a 00 0a 85 01 00 00 6f 6b 55 55 8a"},
        {"halfclose@2", strA1},
        {"drop@2-;longlength", "0c 00 0a 85 01 00 00 6f 6b 8a"},
        {"drop@2-;shortlength=3", "05 00 0a 85 01 00 00 6f 6b 8a"},
        {"drop@2-;flood=2@1", "09 00 f0 05 00 00 00 00 00 00 f5 09 00 f0 05 00 00 01 00 00 00 f4 " + strA1},
        {"glue=3", strA1 + " " + strA2 + " " + strA3},
        {"restart@2;drop@3-", strA1},
    };
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus("ok");
    for (const auto& [pPlan, strBytes] : aoRows) {
        std::string strError;
        ASSERT_TRUE(oDIO.SetFaultPlan(pPlan, strError)) << strError;
        CClient oClient(oDIO);
        oClient.Send(strAllRequests);
        oClient.EndSending();
        EXPECT_EQ(oClient.ReceiveAll(), strBytes) << pPlan;
    }
}

TEST(FaultPlan, DelaysAndSegments)
{
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus("ok");
    std::string strError;
    ASSERT_TRUE(oDIO.SetFaultPlan("delay=200@1;split@2;split=4@3", strError));
    CClient oClient(oDIO);
    const auto oStart = TClock::now();
    oClient.Send(strR1 + strR2);
    EXPECT_EQ(oClient.Receive(10), strA2);
    EXPECT_EQ(oClient.SegmentsReceived(), 10U);
    oClient.Send(strR3);
    EXPECT_EQ(oClient.Receive(20), strA3 + " " + strA1);
    EXPECT_EQ(oClient.SegmentsReceived(), 14U);
    EXPECT_GE(TClock::now() - oStart, 200ms);
}

TEST(FaultPlan, NamesTheBadStep)
{
    const char* const pNumber = "behind '@' comes an answer number from 1, as in @2, @2-4 or @2-";
    const std::pair<std::string, std::string> astrRows[] = {// the step, and what is wrong with it
                                                            {"dorp@2", "is not a known fault"},
                                                            {"delay", "needs a value"},
                                                            {"drop=1", "takes no value"},
                                                            {"refuse=256", "needs a value from 0 to 255"},
                                                            {"drop@0", pNumber},
                                                            {"drop@3-2", pNumber}};
    for (const auto& [strStep, strText] : astrRows) {
        CFaultPlan oPlan;
        std::string strError;
        EXPECT_FALSE(CFaultPlan::Parse("drop;" + strStep, oPlan, strError)) << strStep;
        EXPECT_EQ(strError, "fault plan step '" + strStep + "': " + strText);
    }
}

TEST(Simulator, ConnectionsAndIndications)
{
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus("ok");
    oDIO.SetMaxConnections(1);
    CClient oFirst(oDIO);
    ASSERT_TRUE(oDIO.WaitForConnections(1, 20000));
    CClient(oDIO).Talk("050a=01");
    ASSERT_TRUE(oDIO.WaitForConnections(1, 20000));
    CClient oSecond(oDIO); // who was refused leaves no place
    oSecond.Talk("050a=01");
    oFirst.Talk("050a=00 6f 6b");
    EXPECT_EQ(oDIO.GetConnectionCount(), 2U);
    EXPECT_EQ(oDIO.GetRequestCount(), 3ULL);
    // Of those who are refused, 64 stay; the next is not even talked to.
    std::deque<CClient> aoRefused;
    while (aoRefused.size() < 63)
        aoRefused.emplace_back(oDIO);
    ASSERT_TRUE(oDIO.WaitForConnections(65, 20000));
    EXPECT_EQ(CClient(oDIO).ReceiveAll(), "");
    EXPECT_TRUE(oDIO.SendIndication(0x0533, -1, "\xAA\xBB"));
    EXPECT_EQ(oFirst.Receive(9), "07 00 33 05 ff ff aa bb 27");
    oDIO.DropConnections();
    EXPECT_EQ(oFirst.ReceiveAll() + oSecond.ReceiveAll(), "");
    EXPECT_TRUE(oDIO.WaitForConnections(0, 20000));
}

TEST(Simulator, ClientsThatNeverReadHoldNothingUp)
{
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus(std::string(60000, 's'));
    CClient oDeaf(oDIO);
    for (int i = 0; i < 600; i++)
        oDeaf.Send(strR1);
    EXPECT_TRUE(WaitUntil([&] { return !oDIO.SendIndication(0x0533, 0, std::string(60000, 'i')); }));
    CClient oOther(oDIO);
    for (int i = 0; i < 6000; i++) // time enough to answer them all, were they not to wait
        ASSERT_EQ(oOther.Ask(0x0540, ""), "00 00 00 00 00 00 00 00 00");
    EXPECT_LT(oDIO.GetRequestCount(), 6400ULL);
    EXPECT_LT(Milliseconds([&] { oDIO.Stop(); }), 20000);
}

TEST(Simulator, RestartComesBackInPowerOnState)
{
    CStarted<CSimGatewaySPI> oSPI;
    oSPI.SetRestartTime(100);
    CClient oClient(oSPI);
    oClient.Talk("0341 ff ff ff ff=00;0307 e8 03 00 00 01 02 03=00");
    const auto oStart = TClock::now();
    oClient.Talk("030c=00");
    EXPECT_EQ(oClient.ReceiveAll(), "");
    std::unique_ptr<CClient> pAgain;
    EXPECT_TRUE(WaitUntil([&] {
        pAgain = std::make_unique<CClient>(oSPI);
        return pAgain->IsConnected();
    }));
    EXPECT_GE(TClock::now() - oStart, 100ms);
    pAgain->Talk("0340=00 00 00 00 00 00 00 00 00;0308=00 40 42 0f 00 02 01 00");
}

TEST(Simulator, AllKindsOrNone)
{
    CSimulator oFirst(strAddress, 99);
    std::string strError;
    ASSERT_TRUE(oFirst.Start(strError)) << strError;
    EXPECT_EQ(oFirst.GetGateway(3)->GetPort(), 14902);
    EXPECT_FALSE(CSimulator(strAddress, 99).Start(strError));
    EXPECT_EQ(strError, "cannot listen on " + strAddress + ":14900: Address already in use");
    EXPECT_FALSE(CSimulator("192.168.0.1").Start(strError));
    EXPECT_EQ(strError, "'192.168.0.1' is not an address within 127.0.0.0/8");
}

namespace
{

/// The program, run with its output in a pipe.
class CProgram
{
  public:
    explicit CProgram(const std::string& strArguments)
        : m_pOut(popen(("echo $$; exec " QUORVEL_SIM_PROGRAM " " + strArguments).c_str(), "r")),
          m_nProcess(std::stoi(Line()))
    {
    }
    std::string Line() const
    {
        std::string strLine;
        for (std::string strNext; (strNext = Read(fileno(m_pOut), 1)).size() == 1 && strNext != "\n";)
            strLine += strNext;
        return strLine;
    }
    std::string Output() const { return Read(fileno(m_pOut), std::string::npos); }
    void Signal(int nSignal) const { kill(m_nProcess, nSignal); }
    int End()
    {
        const int nStatus = pclose(m_pOut);
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

  private:
    FILE* m_pOut;
    pid_t m_nProcess;
};

} // namespace

TEST(SimulatorProgram, ServesUntilItIsTold)
{
    for (const int nSignal : {SIGTERM, SIGINT}) {
        CProgram oProgram("--address " + strAddress +
                          " --port-index 98 --verbose --fault 5:drop@1 --fault DIO:refuse=2"
                          " --max-connections 3 --i2c-memories 24c16 2>&1");
        EXPECT_EQ(oProgram.Line(), "quorvel-sim 1.0.0 ready on " + strAddress +
                                       ": I2C=14800 CAN=14801 SPI=14802 DIO=14804 AD=14806 Renesas=14808 "
                                       "IO=14810 PWR=14811 COM=14812 AWire=14813 Relay=14816 Firmware=14899");
        {
            const CClient oClient(strAddress, 14804);
            oClient.Send(Hex("05 00 40 05 01 00 44 05 00 40 05 02 00 47"));
            EXPECT_EQ(oClient.Receive(16), "0e 00 40 85 02 00 02 00 00 00 00 00 00 00 00 c5");
            CClient(strAddress, 14800).Talk("0111 ae 00=00 00 00");
        }
        oProgram.Signal(nSignal);
        const std::string strOutput = oProgram.Output();
        EXPECT_NE(strOutput.find("connected (1 of 3)\n"), std::string::npos) << strOutput;
        EXPECT_EQ(oProgram.End(), 0);
    }
}

TEST(SimulatorProgram, RefusesWhatItCannotDo)
{
    const std::tuple<std::string, std::string, int> aoRows[] = {
        // arguments, a part of the output, exit status
        {"--version 2>/dev/null", "quorvel-sim 1.0.0\n", 0},
        {"--list --port-index 1 2>/dev/null", "\nkind 13  COM  port 5112\n", 0},
        {"--address 0.0.0.0 2>&1 >/dev/null", "'0.0.0.0' is not within 127.0.0.0/8", 2},
        {"--nonsense 2>&1 >/dev/null", "--nonsense", 2},
        {"--fault 4:drop 2>&1 >/dev/null", "'4' is not a kind of gateway", 2},
        {"--i2c-memories 24c16,24c02@7 2>&1 >/dev/null", "two memories at slave address 0xAE", 2},
        {"--address " + strAddress + " --port-index 97 2>&1 >/dev/null", ":14706: Address already in use", 4},
    };
    CSimGatewayAD oTaken;
    ASSERT_TRUE(oTaken.Start(strAddress, 14706));
    for (const auto& [strArguments, strPart, nExit] : aoRows) {
        CProgram oProgram(strArguments);
        const std::string strOutput = oProgram.Output();
        EXPECT_NE(strOutput.find(strPart), std::string::npos) << strOutput;
        EXPECT_EQ(oProgram.End(), nExit) << strArguments;
    }
}
