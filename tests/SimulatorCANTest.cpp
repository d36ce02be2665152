// The simulated CAN gateway, its bus and its CANopen node, spoken to over real sockets in bytes written out here.

#include "SimClient.h"
#include "SimGatewayCAN.h"

#include <deque>
#include <thread>

namespace
{

using namespace simtest;

class CCanClient : public CClient
{
  public:
    explicit CCanClient(const CSimGateway& oGateway, bool bConfirmed = true) : CClient(oGateway)
    {
        EXPECT_EQ(Do(0x05, bConfirmed ? "01 00" : "00 00"), "00");
    }
    /// The answer to a request. Indications that come first are kept for Next.
    std::string Do(unsigned nCommand, const std::string& strHex)
    {
        Request(0x0200 | nCommand, Hex(strHex));
        return Confirmation(nCommand);
    }
    std::string Do(std::initializer_list<std::pair<unsigned, const char*>> aoRequests)
    {
        std::string strAll;
        for (const auto& [nCommand, pHex] : aoRequests)
            strAll += (strAll.empty() ? "" : "; ") + Do(nCommand, pHex);
        return strAll;
    }
    std::string Confirmation(unsigned nCommand)
    {
        const std::string strStart = "82" + ToHex(std::string(1, static_cast<char>(nCommand))) + " ";
        std::string strNext;
        while ((strNext = Take())[0] == '0')
            m_astrEvents.push_back(strNext);
        return strNext.starts_with(strStart) ? strNext.substr(5) : "not " + strStart + strNext;
    }
    /// The next indications, command code and data of each.
    std::string Next(unsigned nCount = 1)
    {
        std::string strAll;
        for (unsigned i = 0; i < nCount; i++) {
            if (m_astrEvents.empty())
                m_astrEvents.push_back(Take());
            strAll += (i == 0 ? "" : "; ") + m_astrEvents.front();
            m_astrEvents.pop_front();
        }
        return strAll;
    }

  private:
    std::string Take() const
    {
        const std::string strLength = Hex(Receive(2));
        if (strLength.size() != 2)
            return "nothing";
        const std::string strBody = Receive(SimGet16(strLength, 0));
        return strBody.substr(3, 2) + strBody.substr(0, 2) + strBody.substr(11, strBody.size() - 14);
    }

    std::deque<std::string> m_astrEvents;
};

class COnBus : public CSimGatewayCAN
{
  public:
    explicit COnBus(const CSimGatewayCAN& oOther) : CSimGatewayCAN(oOther.GetBus())
    {
        EXPECT_TRUE(Start(strAddress, 0));
    }
    ~COnBus() override { Stop(); }
};

} // namespace

TEST(SimulatorCANTest, FramesReachAllOthers)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oSecond(oGateway);
    CCanClient oSender(oGateway), oNeighbour(oGateway), oFar(oSecond), oUnconfirmed(oSecond, false);
    // To the byte, its time stamp flag ignored; the longest FD frame, an identifier of 29 bits, a remote frame.
    EXPECT_EQ(oSender.Do(0x03, "23 01 00 00 04 11 22"), "00");
    const std::string strLong = std::string(63, 'L') + "e";
    EXPECT_EQ(oSender.Ask(0x0203, Hex("ff 07 00 00 08") + strLong), "00");
    EXPECT_EQ(oSender.Do(0x03, "ff ff ff 1f 01"), "00");
    EXPECT_EQ(oSender.Do(0x03, "7f 07 00 00 02"), "00");
    for (CCanClient* pClient : {&oNeighbour, &oFar, &oUnconfirmed}) {
        EXPECT_EQ(pClient->Receive(14), "0c 00 03 02 00 00 23 01 00 00 00 11 22 10");
        EXPECT_EQ(pClient->Next(), "0203 ff 07 00 00 08 " + ToHex(strLong));
        EXPECT_EQ(pClient->Next(2), "0203 ff ff ff 1f 01; 0203 7f 07 00 00 02");
    }
    // What cannot be a frame: nothing arrives anywhere.
    for (const char* pBad : {"00 08 00 00 00", "23 01 00 00 00 00 00 00 00 00 00 00 00 00",
                             "23 01 00 00 08 00 00 00 00 00 00 00 00 00 00"})
        EXPECT_EQ(oSender.Do(0x03, pBad), "21") << pBad;
    // Monitoring, its own frame comes back behind the confirmation. Without confirmation the next answer is another.
    EXPECT_EQ(oSender.Do(0x05, "01 01"), "00");
    EXPECT_EQ(oSender.Do(0x03, "01 00 00 00 00"), "00");
    oUnconfirmed.Request(0x0203, Hex("02 00 00 00 00"));
    EXPECT_EQ(oSender.Next(2), "0203 01 00 00 00 00; 0203 02 00 00 00 00");
    EXPECT_EQ(oUnconfirmed.Next(), "0203 01 00 00 00 00");
    EXPECT_EQ(oUnconfirmed.Do(0x06, ""), "00 00 00");
}

TEST(SimulatorCANTest, GlobalsDecideWhoHearsWhom)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oClient(oGateway);
    EXPECT_EQ(oClient.Do(0x07, "00 21 a1 07 00 00 00 00"), "24");
    EXPECT_EQ(oClient.Do(0x07, "00 40 42 0f 00 01 00 00"), "00"); // 1 Mbit/s; the node follows
    EXPECT_EQ(oClient.Do(0x08, ""), "00 00 40 42 0f 00 01 00 00");

    // Another bit rate on the bus destroys all frames; listening to it only does not.
    COnBus oSecond(oGateway);
    CCanClient oOther(oSecond);
    EXPECT_EQ(oClient.Do(0x03, "01 01 00 00 00"), "21");
    EXPECT_EQ(oOther.Do(0x07, "01 20 a1 07 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "02 01 00 00 00"), "00");
    EXPECT_EQ(oOther.Do(0x03, "03 01 00 00 00"), "21");
    // A listener acknowledges nothing, nor does a node without power.
    oGateway.GetNode()->SetPower(false);
    EXPECT_EQ(oClient.Do(0x03, "06 01 00 00 00"), "20");
    EXPECT_EQ(oOther.Do(0x07, "00 40 42 0f 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "07 01 00 00 00"), "00");
    EXPECT_EQ(oOther.Next(), "0203 07 01 00 00 00");
    // Looped back, a frame needs nobody, and its sender hears it, too.
    EXPECT_EQ(oClient.Do(0x07, "02 40 42 0f 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "09 01 00 00 00 aa"), "00");
    EXPECT_EQ(oClient.Next(), "0203 09 01 00 00 00 aa");
    oSecond.Stop();
    EXPECT_EQ(oOther.ReceiveAll(), "");
}

TEST(SimulatorCANTest, Filters)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oSecond(oGateway);
    CCanClient oSender(oSecond), oClient(oGateway);
    // 0x100 to 0x10F; and 29-bit identifiers ending in 0x55.
    const std::string strFilter =
        "f0 07 00 80 05 01 00 00 ff 00 00 80 55 00 00 80 " + ToHex(std::string(48, '\0'));
    EXPECT_EQ(oClient.Do(0x20, strFilter), "00");
    EXPECT_EQ(oClient.Do(0x21, ""), "00 " + strFilter);
    for (const char* pFrame :
         {"00 01 00 00 00", "10 01 00 00 00", "55 00 00 00 00", "00 01 00 00 01", "55 01 00 00 01"})
        EXPECT_EQ(oSender.Do(0x03, pFrame), "00");
    EXPECT_EQ(oClient.Next(2), "0203 00 01 00 00 00; 0203 55 01 00 00 01");
}

TEST(SimulatorCANTest, ClockPowerAndCard)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oClient(oGateway), oOther(oGateway);
    EXPECT_NEAR(SimGet32(Hex(oClient.Do(0x0E, "")), 2), static_cast<double>(time(nullptr)), 20);
    EXPECT_EQ(oClient.Do(0x0B, "40 42 0f 00 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do({{0x0B, "00 00 00 00 40 42 0f 00"}, {0x24, "10 00 00 00"}}), "ff; ff");
    const std::string strTime = oClient.Do(0x0E, "");
    EXPECT_EQ(strTime.substr(0, 5), "00 01");
    EXPECT_NEAR(SimGet32(Hex(strTime), 2), 1000010, 10);
    // With time stamps: 8 bytes behind the result, and behind the frame's data, the same.
    EXPECT_EQ(oClient.Do(0x07, "00 20 a1 07 00 00 01 01"), "00");
    const std::string strSent = oClient.Do(0x03, "23 01 00 00 00 11");
    EXPECT_NEAR(SimGet32(Hex(strSent), 1), 1000010, 10);
    EXPECT_EQ(oOther.Next(), "0203 23 01 00 00 04 11 " + strSent.substr(3));

    // 31.5 degrees, 24 V, current, live, four voltages, four supplies, relay and termination.
    EXPECT_EQ(oClient.Do({{0x24, "05 00 00 00"}, {0x23, "01"}}), "00; 00");
    EXPECT_EQ(oClient.Do(0x07, "00 20 a1 07 00 01 01 00"), "00");
    EXPECT_EQ(oClient.Do(0x22, ""),
              "00 04 04 02 3b 01 c0 5d c8 00 01 e4 0c 00 00 e0 2e 00 00 01 00 01 00 01 01");
    EXPECT_EQ(oClient.Do({{0x51, "05 80 01 10 02 10 02"}, {0x52, ""}}), "00; 00 05 80 01 10 02");
}

TEST(SimulatorCANTest, BusErrors)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oClient(oGateway), oOther(oGateway);
    CCanBus& oBus = *oGateway.GetBus();
    oBus.FailNext(eCanLostArbitration);
    EXPECT_EQ(oClient.Do({{0x03, "01 00 00 00 00"}, {0x03, "03 00 00 00 00"}}), "23; 00");
    EXPECT_EQ(oOther.Next(), "0203 03 00 00 00 00");

    // While the bus is held, 32 frames wait and the next finds no room.
    oBus.Hold(true);
    oClient.Request(0x0203, Hex("04 00 00 00 00"));
    EXPECT_EQ(oClient.Do(0x07, "01 20 a1 07 00 00 00 00"), "00"); // listening, it takes the frame back
    EXPECT_EQ(oClient.Confirmation(0x03), "21");
    EXPECT_EQ(oClient.Do(0x07, "00 20 a1 07 00 00 00 00"), "00");
    for (unsigned i = 0; i < 33; i++)
        oClient.Request(0x0203, Hex("04 00 00 00 00"));
    EXPECT_EQ(oClient.Confirmation(0x03), "22");
    oBus.Hold(false);
    for (unsigned i = 0; i < 32; i++) {
        EXPECT_EQ(oClient.Confirmation(0x03), "00");
        EXPECT_EQ(oOther.Next(), "0203 04 00 00 00 00");
    }
}

TEST(SimulatorCANTest, CanOpenServicesAreFrames)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oPlain(oGateway);
    CCanClient oMaster(oGateway), oOther(oGateway), oWire(oPlain);
    for (unsigned nCommand = 0x62; nCommand <= 0x6B; nCommand++)
        EXPECT_EQ(oMaster.Do(nCommand, "01 01 00 00 00 00 00 00 00 00 00"), nCommand == 0x66 ? "ff" : "fe");
    EXPECT_EQ(oMaster.Do({{0x60, "02"}, {0x60, "01"}, {0x61, ""}}), "ff; 00; 00 01");

    const struct {
        unsigned nCommand;
        const char* pData;
        const char* pFrame;      // at a plain client on the bus
        const char* pIndication; // at another client of the same gateway
    } aoRows[] = {
        {0x63, "05 80", "00 00 00 00 00 80 05", "026d 00 00 00 00 00 80 05"},
        {0x64, "", "80 00 00 00 00", "0264 00"},
        {0x65, "34 12 dd cc bb 0a", "00 01 00 00 00 dd cc bb 0a 34 12",
         "026d 00 01 00 00 00 dd cc bb 0a 34 12"},
        {0x67, "05 04 01 02 03", "05 05 00 00 00 01 02 03", "0267 05 84 03 01 02 03"},
    };
    for (const auto& oRow : aoRows) {
        EXPECT_EQ(oMaster.Do(oRow.nCommand, oRow.pData), "00") << oRow.pData;
        EXPECT_EQ(oWire.Next(), std::string("0203 ") + oRow.pFrame);
        EXPECT_EQ(oOther.Next(), oRow.pIndication);
    }
    EXPECT_EQ(oMaster.Do({{0x63, "01 03"}, {0x67, "05 05"}}), "ff; ff");
    // An EMCY is filled up; a heartbeat without a state is none.
    EXPECT_EQ(oWire.Do({{0x03, "85 00 00 00 00 aa"}, {0x03, "05 07 00 00 00"}}), "00; 00");
    for (CCanClient* pClient : {&oMaster, &oOther})
        EXPECT_EQ(pClient->Next(2), "0266 05 aa 00 00 00 00 00 00 00; 026d 05 07 00 00 00");
    // The periodic SYNC goes to all clients.
    const auto oStart = TClock::now();
    EXPECT_EQ(oMaster.Do(0x62, "64 00"), "00");
    EXPECT_EQ(oWire.Next(3), "0203 80 00 00 00 00; 0203 80 00 00 00 00; 0203 80 00 00 00 00");
    EXPECT_GE(TClock::now() - oStart, 250ms);
    EXPECT_EQ(oMaster.Next(2), "0264 00; 0264 00");
    // It ends with CANopen, while the node's heartbeat goes on.
    EXPECT_EQ(oMaster.Do(0x69, "02 01 17 10 00 f4 01 32 00 00 00"), "00 00 00 00 00 00");
    EXPECT_EQ(oMaster.Do({{0x62, "01 00"}, {0x60, "00"}}), "00; 00");
    CCanClient oLate(oPlain);
    EXPECT_EQ(oLate.Next(2), "0203 01 07 00 00 00 7f; 0203 01 07 00 00 00 7f");
}

TEST(SimulatorCANTest, NodeObeysAndTells)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oMaster(oGateway);
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    // Boot-up after a reset, of all nodes or this one; other nodes' commands and SYNC do not matter yet.
    EXPECT_EQ(oMaster.Do({{0x63, "00 81"}, {0x63, "01 82"}, {0x63, "02 01"}}), "00; 00; 00");
    EXPECT_EQ(oMaster.Do({{0x64, ""}, {0x67, "01 01 01 00 00 00"}}), "00; 00");
    EXPECT_EQ(oMaster.Next(2), "026c 01 00; 026c 01 00");
    EXPECT_EQ(oGateway.GetNode()->GetOutputs(), 0U);
    // Operational: outputs come back as inputs, behind them the temperature 21.5, on SYNC.
    EXPECT_EQ(oMaster.Do({{0x63, "01 01"}, {0x67, "01 01 78 56 34 12"}, {0x64, ""}}), "00; 00; 00");
    EXPECT_EQ(oMaster.Next(), "0267 01 01 06 78 56 34 12 d7 00");
    // On every second SYNC, counted anew from each start: the EMCY comes before any PDO.
    EXPECT_EQ(oMaster.Do(0x69, "01 01 00 18 02 f4 01 02 00 00 00"), "00 00 00 00 00 00");
    for (const char* pStop : {"01 80", "01 02"}) {
        EXPECT_EQ(oMaster.Do({{0x63, pStop}, {0x63, "01 01"}, {0x64, ""}}), "00; 00; 00");
        oGateway.GetNode()->SendEmergency(0x1000, 1);
        EXPECT_EQ(oMaster.Next(), "0266 01 00 10 01 00 00 00 00 00");
    }
    EXPECT_EQ(oMaster.Do(0x64, ""), "00");
    EXPECT_EQ(oMaster.Next(), "0267 01 01 06 78 56 34 12 d7 00");
    // EMCY, here because of a PDO that is too short.
    EXPECT_EQ(oMaster.Do(0x67, "01 01 00 00 00"), "00");
    EXPECT_EQ(oMaster.Next(), "0266 01 10 82 11 00 00 00 00 00");
    // Heartbeat, whatever comes later; stopped, there are neither SDO nor EMCY, but heartbeats.
    const auto oStart = TClock::now();
    EXPECT_EQ(oMaster.Do(0x62, "60 ea"), "00"); // SYNC every minute
    EXPECT_EQ(oMaster.Do(0x69, "02 01 17 10 00 f4 01 64 00 00 00"), "00 00 00 00 00 00");
    EXPECT_EQ(oMaster.Next(2), "026c 01 05; 026c 01 05");
    EXPECT_GE(TClock::now() - oStart, 200ms);
    EXPECT_EQ(oMaster.Do(0x63, "01 02"), "00");
    oGateway.GetNode()->SendEmergency(0x1000, 1);
    std::string strNext;
    while ((strNext = oMaster.Next()) == "026c 01 05")
        continue;
    EXPECT_EQ(strNext, "026c 01 04");
    EXPECT_EQ(oMaster.Do(0x68, "01 00 10 00 01 00"), "fc 05 00 00 04 05");
}

TEST(SimulatorCANTest, ObjectsThroughTheMaster)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oMaster(oGateway);
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    const struct {
        unsigned nCommand;
        const char* pRequest;
        const char* pAnswer;
    } aoRows[] = {
        {0x68, "01 08 10 00 f4 01", "00 00 51 75 6f 72 76 65 6c 20 43 41 4e 6f 70 65 6e 20 6e 6f 64 65"},
        // Without saying how long the value is, the object takes what it needs.
        {0x69, "00 01 00 20 00 f4 01 ef be ad de", "00 00 00 00 00 00"},
        {0x68, "01 00 20 00 f4 01", "00 00 ef be ad de"},
        // Aborts: no object, wrong length, no such node.
        {0x68, "01 00 30 00 f4 01", "fd 06 00 00 02 06"},
        {0x69, "01 01 00 20 00 f4 01 00 00 00 00", "fd 06 10 00 07 06"},
        {0x68, "02 00 10 00 01 00", "fc 05 00 00 04 05"},
        {0x69, "05 01 00 20 00 f4 01 00 00 00 00", "ff"}, // no value has five bytes
    };
    for (const auto& oRow : aoRows)
        EXPECT_EQ(oMaster.Do(oRow.nCommand, oRow.pRequest), oRow.pAnswer) << oRow.pRequest;

    // The memory, in blocks: empty, one segment, whole segments, several blocks, and one byte too many.
    for (const std::size_t nSize : {0U, 7U, 889U, 890U, 8192U}) {
        std::string strMemory(nSize, '\xA5');
        for (std::size_t i = 0; i < nSize; i++)
            strMemory[i] = static_cast<char>(i * i >> 3);
        EXPECT_EQ(oMaster.Ask(0x026B, Hex("01 10 20 00 f4 01") + strMemory), "00 00 00 00 00 00") << nSize;
        EXPECT_EQ(oGateway.GetNode()->GetMemory(), strMemory);
        EXPECT_EQ(oMaster.Do(0x6A, "01 10 20 00 f4 01"), ToHex(std::string(2, '\0') + strMemory)) << nSize;
        EXPECT_EQ(oMaster.Do(0x68, "01 10 20 00 f4 01"), ToHex(std::string(2, '\0') + strMemory)) << nSize;
    }
    EXPECT_EQ(oMaster.Ask(0x026B, Hex("01 10 20 00 f4 01") + std::string(8193, 'x')), "fd 06 12 00 07 06");
}

TEST(SimulatorCANTest, MasterAgainstANodeMadeOfFrames)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oPlain(oGateway);
    CCanClient oMaster(oGateway), oWaiting(oGateway), oWire(oPlain, false);
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    const auto Sees = [&](const std::string& strFrame, const std::string& strReply = "") {
        EXPECT_EQ(oWire.Next(), "0203 05 06 00 00 00 " + strFrame);
        if (!strReply.empty())
            oWire.Request(0x0203, Hex("85 05 00 00 00 " + strReply));
    };
    // A block read whose first segment is lost; then a wrong CRC. Another transfer waits meanwhile.
    oMaster.Request(0x026A, Hex("05 00 20 01 20 4e"));
    Sees("a4 00 20 01 7f 00 00 00", "c6 00 20 01 07 00 00 00");
    oWaiting.Request(0x0268, Hex("05 00 10 00 20 4e"));
    Sees("a3 00 00 00 00 00 00 00", "82 31 32 33 34 35 36 37");
    Sees("a2 00 7f 00 00 00 00 00", "81 31 32 33 34 35 36 37");
    Sees("a2 01 7f 00 00 00 00 00", "c1 00 01 00 00 00 00 00");
    Sees("80 00 20 01 04 00 04 05");
    EXPECT_EQ(oMaster.Confirmation(0x6A), "fd 05 04 00 04 05");
    // A read in segments; the wrong toggle bit.
    Sees("40 00 10 00 00 00 00 00", "41 00 10 00 08 00 00 00");
    Sees("60 00 00 00 00 00 00 00", "10 31 32 33 34 35 36 37");
    Sees("80 00 10 00 00 00 03 05");
    EXPECT_EQ(oWaiting.Confirmation(0x68), "fd 05 00 00 03 05");
    // More than an answer holds; and a client that leaves in the middle.
    oMaster.Request(0x026A, Hex("05 00 20 01 20 4e"));
    Sees("a4 00 20 01 7f 00 00 00", "c6 00 20 01 f3 ff 00 00");
    Sees("80 00 20 01 05 00 04 05");
    EXPECT_EQ(oMaster.Confirmation(0x6A), "fd 05 05 00 04 05");
    {
        CCanClient oLeaving(oGateway);
        oLeaving.Request(0x0268, Hex("05 00 10 00 20 4e"));
        Sees("40 00 10 00 00 00 00 00");
    }
    Sees("80 00 10 00 00 00 04 05");
    // Segments down, which this master never sends.
    for (const auto& [pSize, pEnd] : {std::pair("09", "80 10 20 00 10 00 07 06"),
                                      {"07", "80 10 20 00 10 00 07 06"},
                                      {"08", "30 00 00 00 00 00 00 00"}}) {
        oWire.Request(0x0203, Hex(std::string("01 06 00 00 00 21 10 20 00 ") + pSize + " 00 00 00"));
        oWire.Request(0x0203, Hex("01 06 00 00 00 00 41 42 43 44 45 46 47"));
        oWire.Request(0x0203, Hex("01 06 00 00 00 1d 48 00 00 00 00 00 00"));
        EXPECT_EQ(oWire.Next(2),
                  "0203 81 05 00 00 00 60 10 20 00 00 00 00 00; 0203 81 05 00 00 00 20 00 00 00 00 00 00 00");
        EXPECT_EQ(oWire.Next(), "0203 81 05 00 00 00 " + std::string(pEnd));
    }
    EXPECT_EQ(oGateway.GetNode()->GetMemory(), "ABCDEFGH");
    // The end of reading blocks before the blocks.
    for (const char* pFrame : {"a0 10 20 00 7f 00 00 00", "a1 00 00 00 00 00 00 00"})
        oWire.Request(0x0203, Hex(std::string("01 06 00 00 00 ") + pFrame));
    EXPECT_EQ(oWire.Next(), "0203 81 05 00 00 00 c6 10 20 00 08 00 00 00");
    EXPECT_EQ(oWire.Next(), "0203 81 05 00 00 00 80 10 20 00 01 00 04 05");
}

TEST(SimulatorCANTest, ManyFramesFromManyThreads)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oSecond(oGateway);
    constexpr unsigned nFrames = 3000;
    CCanClient oReader(oGateway), oDeaf(oGateway);
    CCanClient oFirstWriter(oGateway, false), oSecondWriter(oSecond, false);
    const auto Stream = [](CCanClient& oWriter, const char* pHead) {
        for (unsigned i = 0; i < nFrames; i++)
            oWriter.Request(0x0203, Hex(pHead) + static_cast<char>(i & 0xFF) + static_cast<char>(i >> 8));
    };
    std::thread oOne(Stream, std::ref(oFirstWriter), "01 01 00 00 00");
    std::thread oTwo(Stream, std::ref(oSecondWriter), "02 01 00 00 00");
    // Every frame once and in order.
    unsigned anNext[2] = {};
    for (unsigned nSeen = 0; nSeen < 2 * nFrames && !HasFailure(); nSeen++) {
        const std::string strFrame = Hex(oReader.Next().substr(5));
        const std::size_t nWriter = strFrame.starts_with('\1') ? 0 : 1;
        EXPECT_EQ(strFrame.size() == 7 ? SimGet16(strFrame, 5) : ~0U, anNext[nWriter]++);
    }
    oOne.join();
    oTwo.join();
}
