// The simulated CAN gateway, its bus and its CANopen node, spoken to over real sockets in bytes written out here.

#include "SdoServer.h"
#include "SimClient.h"
#include "SimGatewayCAN.h"

#include <array>
#include <deque>
#include <thread>

namespace
{

using namespace simtest;

class CCanClient : public CClient
{
  public:
    /// @param bConfirmed has its frames confirmed
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
    /// The answers to several.
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

unsigned Number(const std::string& strHex, std::size_t nPos)
{
    return SimGet32(Hex(strHex), nPos);
}

} // namespace

TEST(SimulatorCANTest, FramesReachAllOthers)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oSecond(oGateway);
    CCanClient oSender(oGateway), oNeighbour(oGateway), oFar(oSecond), oUnconfirmed(oSecond, false);
    EXPECT_EQ(oUnconfirmed.Do(0x06, ""), "00 00 00");
    EXPECT_EQ(oSender.Do(0x06, ""), "00 01 00");
    // The frame to the byte, the longest FD frame, an identifier of 29 bits, a remote frame. The time stamp flag is
    // ignored.
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
    for (const char* pBad :
         {"00 08 00 00 00", "00 00 00 20 01", "23 01 00 00 10", "23 01 00 00 02 00", "23 01 00 00 0a",
          "23 01 00 00 00 00 00 00 00 00 00 00 00 00", "23 01 00 00 08 00 00 00 00 00 00 00 00 00"})
        EXPECT_EQ(oSender.Do(0x03, pBad), "21") << pBad;
    EXPECT_EQ(oSender.Do(0x03, "23 01 00 00"), "ff");
    // Monitoring, its own frame comes back behind the confirmation. Without confirmation the next answer is another.
    EXPECT_EQ(oSender.Do(0x05, "01 01"), "00");
    EXPECT_EQ(oSender.Do(0x03, "01 00 00 00 00"), "00");
    oUnconfirmed.Request(0x0203, Hex("02 00 00 00 00"));
    oUnconfirmed.Request(0x0203, Hex("02 00 00 00 00 00 00 00 00 00 00 00 00 00"));
    oUnconfirmed.Request(0x0203, "");
    EXPECT_EQ(oSender.Next(2), "0203 01 00 00 00 00; 0203 02 00 00 00 00");
    EXPECT_EQ(oUnconfirmed.Next(), "0203 01 00 00 00 00");
    EXPECT_EQ(oUnconfirmed.Do(0x06, ""), "00 00 00");
}

TEST(SimulatorCANTest, GlobalsDecideWhoHearsWhom)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oClient(oGateway);
    EXPECT_EQ(oClient.Do(0x08, ""), "00 00 20 a1 07 00 00 01 00");
    for (const char* pBad : {"00 21 a1 07 00 00 00 00", "00 00 00 00 00 00 00 00"})
        EXPECT_EQ(oClient.Do(0x07, pBad), "24");
    EXPECT_EQ(oClient.Do(0x07, "03 20 a1 07 00 00 00 00"), "ff");
    EXPECT_EQ(oClient.Do(0x07, "00 20 a1 07 00 00 00"), "ff");
    EXPECT_EQ(oClient.Do(0x07, "00 40 42 0f 00 01 00 00"), "00"); // 1 Mbit/s; the node follows
    EXPECT_EQ(oClient.Do(0x08, ""), "00 00 40 42 0f 00 01 00 00");
    EXPECT_EQ(oClient.Do(0x03, "23 01 00 00 00"), "00");

    // Another bit rate on the bus destroys all frames; listening to it only does not.
    COnBus oSecond(oGateway);
    CCanClient oOther(oSecond);
    EXPECT_EQ(oOther.Do(0x03, "01 01 00 00 00"), "21");
    EXPECT_EQ(oClient.Do(0x03, "01 01 00 00 00"), "21");
    EXPECT_EQ(oOther.Do(0x07, "01 20 a1 07 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "02 01 00 00 00"), "00");
    EXPECT_EQ(oOther.Do(0x03, "03 01 00 00 00"), "21");
    EXPECT_EQ(oOther.Do(0x07, "01 40 42 0f 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "04 01 00 00 00"), "00");
    EXPECT_EQ(oOther.Next(), "0203 04 01 00 00 00");
    // A listener acknowledges nothing, nor does a node without power or a gateway that is gone.
    oGateway.GetNode()->SetBitRate(125000);
    EXPECT_EQ(oClient.Do(0x03, "05 01 00 00 00"), "21");
    oGateway.GetNode()->SetPower(false);
    EXPECT_EQ(oClient.Do(0x03, "06 01 00 00 00"), "20");
    EXPECT_EQ(oOther.Do(0x07, "00 40 42 0f 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "07 01 00 00 00"), "00");
    EXPECT_EQ(oOther.Next(), "0203 07 01 00 00 00");
    oSecond.Stop();
    EXPECT_EQ(oClient.Do(0x03, "08 01 00 00 00"), "20");
    // Looped back, a frame needs nobody, and its sender hears it, too.
    EXPECT_EQ(oClient.Do(0x07, "02 40 42 0f 00 00 00 00"), "00");
    EXPECT_EQ(oClient.Do(0x03, "09 01 00 00 00 aa"), "00");
    EXPECT_EQ(oClient.Next(), "0203 09 01 00 00 00 aa");
    EXPECT_EQ(oOther.ReceiveAll(), "");

    // A restart brings back the state after power-on.
    oGateway.SetRestartTime(0);
    EXPECT_EQ(oClient.Do({{0x60, "01"}, {0x0C, ""}}), "00; 00");
    EXPECT_EQ(oClient.ReceiveAll(), "");
    EXPECT_TRUE(WaitUntil([&] { return CClient(oGateway).IsConnected(); }));
    CCanClient oAgain(oGateway);
    EXPECT_EQ(oAgain.Do({{0x08, ""}, {0x61, ""}}), "00 00 20 a1 07 00 00 01 00; 00 00");
}

TEST(SimulatorCANTest, Filters)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oSecond(oGateway);
    CCanClient oSender(oSecond), oClient(oGateway);
    // 0x100 to 0x10F; and 29-bit identifiers ending in 0x55.
    const std::string strFilter =
        "f0 07 00 80 00 01 00 00 ff 00 00 80 55 00 00 80 " + ToHex(std::string(48, '\0'));
    EXPECT_EQ(oClient.Do(0x20, strFilter.substr(3)), "ff");
    EXPECT_EQ(oClient.Do(0x20, strFilter), "00");
    EXPECT_EQ(oClient.Do(0x21, ""), "00 " + strFilter);
    for (const char* pFrame :
         {"00 01 00 00 00", "10 01 00 00 00", "55 00 00 00 00", "00 01 00 00 01", "55 01 00 00 01"})
        EXPECT_EQ(oSender.Do(0x03, pFrame), "00");
    EXPECT_EQ(oClient.Next(2), "0203 00 01 00 00 00; 0203 55 01 00 00 01");
    EXPECT_EQ(oClient.Do(0x20, ToHex(std::string(64, '\0'))), "00");
    EXPECT_EQ(oSender.Do(0x03, "10 01 00 00 00"), "00");
    EXPECT_EQ(oClient.Next(), "0203 10 01 00 00 00");
}

TEST(SimulatorCANTest, ClockPowerAndCard)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oClient(oGateway), oOther(oGateway);
    EXPECT_EQ(oClient.Do(0x0E, "").substr(0, 5), "00 00");
    EXPECT_NEAR(Number(oClient.Do(0x0E, ""), 2), static_cast<double>(time(nullptr)), 20);
    EXPECT_EQ(oClient.Do(0x0B, "40 42 0f 00 40 42 0f 00"), "ff");
    EXPECT_EQ(oClient.Do(0x0B, "40 42 0f 00 00 00 00 00"), "00");
    const std::string strTime = oClient.Do(0x0E, "");
    EXPECT_EQ(strTime.substr(0, 5), "00 01");
    EXPECT_EQ(strTime.size(), 29U);
    EXPECT_NEAR(Number(strTime, 2), 1000010, 10);
    // With time stamps: 8 bytes behind the result, and behind the frame's data, the same.
    EXPECT_EQ(oClient.Do(0x07, "00 20 a1 07 00 00 01 01"), "00");
    const std::string strSent = oClient.Do(0x03, "23 01 00 00 00 11");
    EXPECT_NEAR(Number(strSent, 1), 1000010, 10);
    EXPECT_GE(Number(strSent, 1) * 1000000ULL + Number(strSent, 5),
              Number(strTime, 2) * 1000000ULL + Number(strTime, 6));
    EXPECT_EQ(oOther.Next(), "0203 23 01 00 00 04 11 " + strSent.substr(3));
    EXPECT_EQ(oClient.Do(0x03, "00 08 00 00 00"), "21");

    // 31.5 degrees, 24 V, current, live, four voltages, four supplies, relay and termination.
    EXPECT_EQ(oClient.Do(0x22, ""),
              "00 04 04 02 3b 01 c0 5d 64 00 00 00 00 00 00 00 00 00 00 01 01 01 01 00 00");
    EXPECT_EQ(oClient.Do({{0x24, "05 00 00 00"}, {0x23, "01"}, {0x24, "10 00 00 00"}}), "00; 00; ff");
    EXPECT_EQ(oClient.Do(0x07, "00 20 a1 07 00 01 01 00"), "00");
    EXPECT_EQ(oClient.Do(0x22, ""),
              "00 04 04 02 3b 01 c0 5d c8 00 01 e4 0c 00 00 e0 2e 00 00 01 00 01 00 01 01");
    EXPECT_EQ(oClient.Do({{0x51, "05 80 01 10 02 10 02"}, {0x51, "05 80 01 10 02 10"}}), "00; ff");
    EXPECT_EQ(oClient.Do(0x52, ""), "00 05 80 01 10 02");
    EXPECT_EQ(oClient.Do(0x30, ""), "ff");
}

TEST(SimulatorCANTest, BusErrors)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanClient oClient(oGateway), oOther(oGateway);
    CCanBus& oBus = *oGateway.GetBus();
    oBus.FailNext(eCanLostArbitration, 2);
    EXPECT_EQ(oClient.Do({{0x03, "01 00 00 00 00"}, {0x03, "02 00 00 00 00"}}), "23; 23");
    EXPECT_EQ(oClient.Do(0x03, "03 00 00 00 00"), "00");
    EXPECT_EQ(oOther.Next(), "0203 03 00 00 00 00");

    // While the bus is held, 32 frames wait and the next finds no room.
    oBus.Hold(true);
    const auto nFrames = oBus.GetFrameCount();
    for (unsigned i = 0; i < 33; i++)
        oClient.Request(0x0203, Hex("04 00 00 00 00"));
    EXPECT_EQ(oClient.Confirmation(0x03), "22");
    EXPECT_EQ(oBus.GetFrameCount(), nFrames);
    oBus.Hold(false);
    for (unsigned i = 0; i < 32; i++) {
        EXPECT_EQ(oClient.Confirmation(0x03), "00");
        EXPECT_EQ(oOther.Next(), "0203 04 00 00 00 00");
    }
    // Frames that wait are lost when the gateway leaves the bus.
    oBus.Hold(true);
    oClient.Request(0x0203, Hex("05 00 00 00 00"));
    EXPECT_EQ(oOther.Do(0x07, "01 20 a1 07 00 00 01 00"), "00");
    EXPECT_EQ(oClient.Confirmation(0x03), "21");
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
        const char* pFrame;      // at a plain client on the bus; nothing: refused
        const char* pIndication; // at another client of the same gateway
        const char* pRefusal = "00";
    } aoRows[] = {
        {0x63, "05 80", "00 00 00 00 00 80 05", "026d 00 00 00 00 00 80 05"},
        {0x63, "80 01", "", "", "ff"},
        {0x63, "01 03", "", "", "ff"},
        {0x64, "", "80 00 00 00 00", "0264 00"},
        {0x65, "34 12 dd cc bb 0a", "00 01 00 00 00 dd cc bb 0a 34 12",
         "026d 00 01 00 00 00 dd cc bb 0a 34 12"},
        {0x67, "05 01 01 02 03", "05 02 00 00 00 01 02 03", "0267 05 81 03 01 02 03"},
        {0x67, "7f 84", "ff 04 00 00 00", "0267 7f 04 00"},
        {0x67, "00 01", "", "", "ff"},
        {0x67, "05 05", "", "", "ff"},
        {0x67, "05 80", "", "", "ff"},
        {0x67, "05 01 00 00 00 00 00 00 00 00 00", "", "", "21"},
        {0x03, "80 00 00 00 00 07", "80 00 00 00 00 07", "0264 07"},
        {0x03, "85 00 00 00 00 81 10 20 01 02 03 04 05", "85 00 00 00 00 81 10 20 01 02 03 04 05",
         "0266 05 81 10 20 01 02 03 04 05"},
        {0x03, "85 00 00 00 00 81", "85 00 00 00 00 81", "0266 05 81 00 00 00 00 00 00 00"},
        {0x03, "05 07 00 00 00 85", "05 07 00 00 00 85", "026c 05 85"},
        {0x03, "05 07 00 00 02", "05 07 00 00 02", "026d 05 07 00 00 02"},
        {0x03, "85 01 00 00 01 aa", "85 01 00 00 01 aa", "026d 85 01 00 00 01 aa"},
        {0x03, "85 05 00 00 00 60", "85 05 00 00 00 60", "026d 85 05 00 00 00 60"},
    };
    for (const auto& oRow : aoRows) {
        EXPECT_EQ(oMaster.Do(oRow.nCommand, oRow.pData), oRow.pRefusal)
            << oRow.nCommand << ": " << oRow.pData;
        if (*oRow.pFrame == '\0')
            continue;
        EXPECT_EQ(oWire.Next(), std::string("0203 ") + oRow.pFrame);
        EXPECT_EQ(oOther.Next(), oRow.pIndication);
    }
    // The periodic SYNC goes to all clients and ends with the mode.
    const auto oStart = TClock::now();
    EXPECT_EQ(oMaster.Do(0x62, "64 00"), "00");
    EXPECT_EQ(oWire.Next(3), "0203 80 00 00 00 00; 0203 80 00 00 00 00; 0203 80 00 00 00 00");
    EXPECT_GE(TClock::now() - oStart, 250ms);
    EXPECT_EQ(oMaster.Next(2), "0264 00; 0264 00");
    EXPECT_EQ(oOther.Do(0x60, "00"), "00");
    const auto nFrames = oGateway.GetBus()->GetFrameCount();
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    EXPECT_EQ(oMaster.Do(0x68, "09 00 10 00 fa 00"), "fc 05 00 00 04 05"); // 250 ms
    EXPECT_EQ(oGateway.GetBus()->GetFrameCount(), nFrames + 2);
}

TEST(SimulatorCANTest, NodeObeysAndTells)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oPlain(oGateway);
    CCanOpenNode& oNode = *oGateway.GetNode();
    CCanClient oMaster(oGateway), oWire(oPlain);
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    const auto Events = [&](unsigned nCount) { return oMaster.Next(nCount); };
    EXPECT_EQ(oNode.GetState(), CCanOpenNode::ePreOperational);
    // Boot-up after a reset, of all nodes or this one; other nodes' commands and SYNC do not matter yet.
    EXPECT_EQ(oMaster.Do({{0x63, "00 81"}, {0x63, "01 82"}, {0x63, "02 01"}}), "00; 00; 00");
    EXPECT_EQ(oMaster.Do({{0x64, ""}, {0x67, "01 01 01 00 00 00"}}), "00; 00");
    EXPECT_EQ(Events(2), "026c 01 00; 026c 01 00");
    EXPECT_EQ(oWire.Next(7), "0203 00 00 00 00 00 81 00; 0203 01 07 00 00 00 00; 0203 00 00 00 00 00 82 01; "
                             "0203 01 07 00 00 00 00; 0203 00 00 00 00 00 01 02; 0203 80 00 00 00 00; "
                             "0203 01 02 00 00 00 01 00 00 00");
    EXPECT_EQ(oNode.GetOutputs(), 0U);
    // Operational: outputs come back as inputs, behind them the temperature 21.5, on every second SYNC.
    EXPECT_EQ(oMaster.Do({{0x63, "01 01"}, {0x67, "01 01 78 56 34 12"}}), "00; 00");
    EXPECT_EQ(oNode.GetOutputs(), 0x12345678U);
    EXPECT_EQ(oMaster.Do(0x64, ""), "00");
    EXPECT_EQ(Events(1), "0267 01 01 06 78 56 34 12 d7 00");
    EXPECT_EQ(oMaster.Do(0x69, "01 01 00 18 02 f4 01 02 00 00 00"), "00 00 00 00 00 00");
    EXPECT_EQ(oMaster.Do({{0x64, ""}, {0x64, ""}, {0x64, ""}}), "00; 00; 00");
    EXPECT_EQ(oMaster.Do({{0x64, ""}, {0x69, "01 01 00 18 02 f4 01 ff 00 00 00"}}), "00; 00 00 00 00 00 00");
    EXPECT_EQ(Events(2), "0267 01 01 06 78 56 34 12 d7 00; 0267 01 01 06 78 56 34 12 d7 00");
    // On a change; SYNC does not matter any more.
    EXPECT_EQ(oMaster.Do({{0x64, ""}, {0x67, "01 01 78 56 34 12"}}), "00; 00");
    oNode.SetInputs(7);
    EXPECT_EQ(oMaster.Do(0x69, "02 01 01 20 00 f4 01 fb ff 00 00"), "00 00 00 00 00 00");
    EXPECT_EQ(oMaster.Do(0x67, "01 01 00 00 00 00"), "00");
    EXPECT_EQ(Events(2), "0267 01 01 06 07 00 00 00 d7 00; 0267 01 01 06 07 00 00 00 fb ff");
    // EMCY through the object, the interface, and a PDO that is too short; the register tells of it.
    EXPECT_EQ(oMaster.Do(0x69, "02 01 02 20 00 f4 01 00 10 00 00"), "00 00 00 00 00 00");
    oNode.SendEmergency(0x1081, 0x81, "12345678");
    EXPECT_EQ(oMaster.Do(0x68, "01 01 10 00 f4 01"), "00 00 81");
    EXPECT_EQ(oMaster.Do(0x67, "01 01 00 00 00"), "00");
    EXPECT_EQ(oMaster.Do(0x69, "02 01 02 20 00 f4 01 00 00 00 00"), "00 00 00 00 00 00");
    EXPECT_EQ(Events(4), "0266 01 00 10 01 00 00 00 00 00; 0266 01 81 10 81 31 32 33 34 35; "
                         "0266 01 10 82 11 00 00 00 00 00; 0266 01 00 00 00 00 00 00 00 00");
    // Guarding with the toggle bit; heartbeat; stopped, there are neither SDO nor PDO nor EMCY, but heartbeats.
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(oMaster.Do(0x03, "01 07 00 00 02"), "00");
    EXPECT_EQ(Events(3), "026c 01 05; 026c 01 85; 026c 01 05");
    const auto oStart = TClock::now();
    EXPECT_EQ(oMaster.Do(0x69, "02 01 17 10 00 f4 01 64 00 00 00"), "00 00 00 00 00 00");
    EXPECT_EQ(Events(2), "026c 01 05; 026c 01 05");
    EXPECT_GE(TClock::now() - oStart, 200ms);
    EXPECT_EQ(oMaster.Do(0x63, "01 02"), "00");
    oNode.SendEmergency(0x1000, 1);
    oNode.SetInputs(8);
    std::string strNext;
    while ((strNext = Events(1)) == "026c 01 05")
        continue;
    EXPECT_EQ(strNext, "026c 01 04");
    EXPECT_EQ(oMaster.Do(0x68, "01 00 10 00 01 00"), "fc 05 00 00 04 05");
    // Power off and on: silent, then as at the start.
    oNode.SetPower(false);
    oNode.SetPower(true);
    while ((strNext = Events(1)) == "026c 01 04")
        continue;
    EXPECT_EQ(strNext, "026c 01 00");
    EXPECT_EQ(oMaster.Do({{0x68, "01 17 10 00 f4 01"}, {0x68, "01 01 21 00 f4 01"}}),
              "00 00 00 00; 00 00 00 00 00 00");
    EXPECT_EQ(oMaster.Do(0x63, "01 80"), "00");
    EXPECT_EQ(oNode.GetState(), CCanOpenNode::ePreOperational);
}

TEST(SimulatorCANTest, ObjectsThroughTheMaster)
{
    CStarted<CSimGatewayCAN> oGateway;
    CCanOpenNode& oNode = *oGateway.GetNode();
    CCanClient oMaster(oGateway);
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    const struct {
        unsigned nCommand;
        const char* pRequest;
        const char* pAnswer;
    } aoRows[] = {
        {0x68, "01 00 10 00 f4 01", "00 00 91 01 03 00"},
        {0x68, "01 18 10 00 f4 01", "00 00 04"},
        {0x68, "01 18 10 02 f4 01", "00 00 51 00 00 00"},
        {0x68, "01 18 10 03 f4 01", "00 00 00 00 01 00"},
        {0x68, "01 18 10 04 f4 01", "00 00 01 00 00 00"},
        {0x68, "01 00 14 01 f4 01", "00 00 01 02 00 00"},
        {0x68, "01 00 18 01 f4 01", "00 00 81 01 00 00"},
        {0x68, "01 01 20 00 f4 01", "00 00 d7 00"},
        {0x68, "01 08 10 00 f4 01", "00 00 51 75 6f 72 76 65 6c 20 43 41 4e 6f 70 65 6e 20 6e 6f 64 65"},
        {0x6A, "01 08 10 00 f4 01", "00 00 51 75 6f 72 76 65 6c 20 43 41 4e 6f 70 65 6e 20 6e 6f 64 65"},
        // Without saying how long the value is, the object takes what it needs.
        {0x69, "00 01 00 20 00 f4 01 ef be ad de", "00 00 00 00 00 00"},
        {0x68, "01 00 20 00 f4 01", "00 00 ef be ad de"},
        {0x69, "00 01 01 20 00 f4 01 fe ff ad de", "00 00 00 00 00 00"},
        {0x68, "01 01 20 00 f4 01", "00 00 fe ff"},
        {0x6B, "01 00 20 00 f4 01 01 02 03 04", "00 00 00 00 00 00"},
        {0x6A, "01 00 20 00 f4 01", "00 00 01 02 03 04"},
        // Aborts: no object, no subindex, write only, read only, wrong length, range.
        {0x68, "01 00 30 00 f4 01", "fd 06 00 00 02 06"},
        {0x6A, "01 18 10 05 f4 01", "fd 06 11 00 09 06"},
        {0x68, "01 02 20 00 f4 01", "fd 06 01 00 01 06"},
        {0x69, "04 01 00 10 00 f4 01 00 00 00 00", "fd 06 02 00 01 06"},
        {0x69, "01 01 00 20 00 f4 01 00 00 00 00", "fd 06 10 00 07 06"},
        {0x6B, "01 00 20 00 f4 01 00 00 00", "fd 06 10 00 07 06"},
        {0x69, "01 01 00 18 02 f4 01 00 00 00 00", "fd 06 30 00 09 06"},
        {0x69, "01 01 00 18 02 f4 01 f1 00 00 00", "fd 06 30 00 09 06"},
        // No such node; requests that cannot be.
        {0x68, "02 00 10 00 01 00", "fc 05 00 00 04 05"},
        {0x68, "00 00 10 00 f4 01", "ff"},
        {0x68, "80 00 10 00 f4 01", "ff"},
        {0x69, "05 01 00 20 00 f4 01 00 00 00 00", "ff"},
        {0x69, "04 01 00 20 00 f4 01 00 00 00", "ff"},
    };
    for (const auto& oRow : aoRows)
        EXPECT_EQ(oMaster.Do(oRow.nCommand, oRow.pRequest), oRow.pAnswer) << oRow.pRequest;

    // The memory, in blocks: empty, one segment, whole segments, several blocks, and one byte too many.
    EXPECT_EQ(oMaster.Do(0x6A, "01 10 20 00 f4 01").substr(765, 17), "fd fe ff 00 01 02");
    for (const std::size_t nSize : {0U, 1U, 7U, 8U, 889U, 890U, 8192U}) {
        std::string strMemory(nSize, '\xA5');
        for (std::size_t i = 0; i < nSize; i++)
            strMemory[i] = static_cast<char>(i * i >> 3);
        EXPECT_EQ(oMaster.Ask(0x026B, Hex("01 10 20 00 f4 01") + strMemory), "00 00 00 00 00 00") << nSize;
        EXPECT_EQ(oNode.GetMemory(), strMemory);
        EXPECT_EQ(oMaster.Do(0x6A, "01 10 20 00 f4 01"), ToHex(std::string(2, '\0') + strMemory)) << nSize;
        EXPECT_EQ(oMaster.Do(0x68, "01 10 20 00 f4 01"), ToHex(std::string(2, '\0') + strMemory)) << nSize;
    }
    EXPECT_EQ(oMaster.Ask(0x026B, Hex("01 10 20 00 f4 01") + std::string(8193, 'x')), "fd 06 12 00 07 06");
    EXPECT_EQ(oMaster.Ask(0x026B, Hex("01 10 20 00 f4 01") + std::string(65522, 'x')), "fd 06 12 00 07 06");
    EXPECT_EQ(oNode.GetMemory().size(), 8192U);
    oGateway.GetBus()->FailNext(eCanNoAcknowledge);
    EXPECT_EQ(oMaster.Do(0x68, "01 00 10 00 f4 01"), "20 00");
    oGateway.GetBus()->Hold(true);
    EXPECT_EQ(oMaster.Do(0x68, "01 00 10 00 01 00"), "fc 05 00 00 04 05");
}

TEST(SimulatorCANTest, MasterAgainstANodeMadeOfFrames)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oPlain(oGateway);
    CCanClient oMaster(oGateway), oWaiting(oGateway);
    CCanClient oWire(oPlain, false);
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    const auto Reply = [&](const std::string& strFrame) {
        oWire.Request(0x0203, Hex("85 05 00 00 00 " + strFrame));
    };
    const auto Sees = [&](const std::string& strFrame) {
        EXPECT_EQ(oWire.Next(), "0203 05 06 00 00 00 " + strFrame);
    };
    // A block read of 10 bytes: the second segment comes too late and is sent again; then a wrong and a right end.
    for (const bool bGood : {false, true}) {
        oMaster.Request(0x026A, Hex("05 00 20 01 20 4e"));
        Sees("a4 00 20 01 7f 00 00 00");
        Reply("c6 00 20 01 09 00 00 00");
        Sees("a3 00 00 00 00 00 00 00");
        Reply("01 31 32 33 34 35 36 37");
        Reply("83 38 39 00 00 00 00 00");
        Sees("a2 01 7f 00 00 00 00 00");
        Reply("81 38 39 00 00 00 00 00");
        Sees("a2 01 7f 00 00 00 00 00");
        Reply(bGood ? "d5 c3 31 00 00 00 00 00" : "d5 c4 31 00 00 00 00 00");
        Sees(bGood ? "a1 00 00 00 00 00 00 00" : "80 00 20 01 04 00 04 05");
        EXPECT_EQ(oMaster.Confirmation(0x6A),
                  bGood ? "00 00 31 32 33 34 35 36 37 38 39" : "fd 05 04 00 04 05");
    }
    // A block write whose second segment is lost; other transfers wait meanwhile, one of them too long.
    oMaster.Request(0x026B, Hex("05 00 20 01 20 4e 31 32 33 34 35 36 37 38 39"));
    Sees("c6 00 20 01 09 00 00 00");
    EXPECT_EQ(oWaiting.Do(0x68, "05 00 10 00 01 00"), "fc 05 00 00 04 05");
    oWaiting.Request(0x0268, Hex("05 00 10 00 20 4e"));
    Reply("a4 00 20 01 02 00 00 00");
    Sees("01 31 32 33 34 35 36 37");
    Sees("82 38 39 00 00 00 00 00");
    Reply("a2 01 7f 00 00 00 00 00");
    Sees("81 38 39 00 00 00 00 00");
    Reply("a2 01 7f 00 00 00 00 00");
    Sees("d5 c3 31 00 00 00 00 00");
    Reply("a1 00 00 00 00 00 00 00");
    EXPECT_EQ(oMaster.Confirmation(0x6B), "00 00 00 00 00 00");
    // A read in segments; the wrong toggle bit.
    Sees("40 00 10 00 00 00 00 00");
    Reply("41 00 10 00 08 00 00 00");
    Sees("60 00 00 00 00 00 00 00");
    Reply("00 31 32 33 34 35 36 37");
    Sees("70 00 00 00 00 00 00 00");
    Reply("1d 38 00 00 00 00 00 00");
    EXPECT_EQ(oWaiting.Confirmation(0x68), "00 00 31 32 33 34 35 36 37 38");
    oMaster.Request(0x0268, Hex("05 00 10 00 20 4e"));
    Sees("40 00 10 00 00 00 00 00");
    Reply("41 00 10 00 08 00 00 00");
    Sees("60 00 00 00 00 00 00 00");
    Reply("10 31 32 33 34 35 36 37");
    Sees("80 00 10 00 00 00 03 05");
    EXPECT_EQ(oMaster.Confirmation(0x68), "fd 05 00 00 03 05");
    // Answers that fit no transfer are undefined frames; too many bytes end one.
    Reply("60 00 10 00 00 00 00 00");
    for (CCanClient* pClient : {&oMaster, &oWaiting})
        EXPECT_EQ(pClient->Next(), "026d 85 05 00 00 00 60 00 10 00 00 00 00 00");
    oMaster.Request(0x026A, Hex("05 00 20 01 20 4e"));
    Sees("a4 00 20 01 7f 00 00 00");
    Reply("c6 00 20 01 f3 ff 00 00");
    Sees("80 00 20 01 05 00 04 05");
    EXPECT_EQ(oMaster.Confirmation(0x6A), "fd 05 05 00 04 05");
    // A client that goes leaves no transfer behind.
    {
        CCanClient oLeaving(oGateway);
        oLeaving.Request(0x0268, Hex("05 01 10 00 20 4e"));
        Sees("40 01 10 00 00 00 00 00");
    }
    Sees("80 01 10 00 00 00 04 05");
    EXPECT_EQ(oMaster.Do(0x68, "01 01 10 00 e8 03"), "00 00 00");
}

namespace
{

class CObjects : public CSdoObjects
{
  public:
    unsigned ReadObject(unsigned, unsigned, std::string& strData) override
    {
        strData = strObject;
        return 0;
    }
    unsigned WriteObject(unsigned, unsigned, const std::string& strData, bool) override
    {
        strObject = strData;
        return 0;
    }
    std::string strObject = "123456789";
};

} // namespace

TEST(SimulatorCANTest, SdoServerSegmentsAndBlocksGoneWrong)
{
    CObjects oObjects;
    CSdoServer oServer(oObjects);
    const auto Ask = [&](const std::string& strFrame) {
        std::string strAll;
        for (const auto& strAnswer : oServer.Handle(Hex(strFrame)))
            strAll += ToHex(strAnswer) + ";";
        return strAll;
    };
    const std::string strUnknown = "80 00 20 01 01 00 04 05;";
    EXPECT_EQ(Ask("40 00 20 01"), "");
    // Segments up, with a repeated one.
    EXPECT_EQ(Ask("40 00 20 01 00 00 00 00"), "41 00 20 01 09 00 00 00;");
    EXPECT_EQ(Ask("60 00 00 00 00 00 00 00"), "00 31 32 33 34 35 36 37;");
    EXPECT_EQ(Ask("70 00 00 00 00 00 00 00"), "1b 38 39 00 00 00 00 00;");
    EXPECT_EQ(Ask("60 00 00 00 00 00 00 00"), strUnknown);
    Ask("40 00 20 01 00 00 00 00");
    Ask("60 00 00 00 00 00 00 00");
    EXPECT_EQ(Ask("60 00 00 00 00 00 00 00"), "80 00 20 01 00 00 03 05;");
    // Segments down, of the size announced or another.
    for (const bool bGood : {true, false}) {
        EXPECT_EQ(Ask(bGood ? "21 00 20 01 08 00 00 00" : "21 00 20 01 09 00 00 00"),
                  "60 00 20 01 00 00 00 00;");
        EXPECT_EQ(Ask("00 41 42 43 44 45 46 47"), "20 00 00 00 00 00 00 00;");
        EXPECT_EQ(Ask("1d 48 00 00 00 00 00 00"),
                  bGood ? "30 00 00 00 00 00 00 00;" : "80 00 20 01 10 00 07 06;");
    }
    EXPECT_EQ(oObjects.strObject, "ABCDEFGH");
    EXPECT_EQ(Ask("21 00 20 01 f3 ff 00 00"), "80 00 20 01 05 00 04 05;");
    Ask("20 00 20 01 00 00 00 00");
    EXPECT_EQ(Ask("10 00 00 00 00 00 00 00"), "80 00 20 01 00 00 03 05;");
    EXPECT_EQ(Ask("00 00 00 00 00 00 00 00"), strUnknown);
    // Blocks down: a lost segment, a wrong CRC, then without one.
    for (const char* pEnd : {"d5 c3 31 00 00 00 00 00", "d5 c3 32 00 00 00 00 00"}) {
        EXPECT_EQ(Ask("c6 00 20 01 09 00 00 00"), "a4 00 20 01 7f 00 00 00;");
        EXPECT_EQ(Ask("82 38 39 00 00 00 00 00"), "a2 00 7f 00 00 00 00 00;");
        Ask("01 31 32 33 34 35 36 37");
        EXPECT_EQ(Ask("82 38 39 00 00 00 00 00"), "a2 02 7f 00 00 00 00 00;");
        EXPECT_EQ(Ask(pEnd), pEnd[7] == '1' ? "a1 00 00 00 00 00 00 00;" : "80 00 20 01 04 00 04 05;");
        EXPECT_EQ(oObjects.strObject, "123456789");
    }
    EXPECT_EQ(Ask("c0 00 20 01 00 00 00 00"), "a4 00 20 01 7f 00 00 00;");
    EXPECT_EQ(Ask("81 41 00 00 00 00 00 00"), "a2 01 7f 00 00 00 00 00;");
    EXPECT_EQ(Ask("d9 00 00 00 00 00 00 00"), "a1 00 00 00 00 00 00 00;");
    EXPECT_EQ(oObjects.strObject, "A");
    Ask("c2 00 20 01 02 00 00 00");
    Ask("81 42 00 00 00 00 00 00");
    EXPECT_EQ(Ask("d9 00 00 00 00 00 00 00"), "80 00 20 01 10 00 07 06;");
    Ask("c0 00 20 01 00 00 00 00");
    EXPECT_EQ(Ask("00 41 00 00 00 00 00 00"), "80 00 20 01 03 00 04 05;");
    EXPECT_EQ(Ask("c1 00 00 00 00 00 00 00"), strUnknown);
    // More than a transfer may have.
    Ask("c0 00 20 01 00 00 00 00");
    std::string strLast;
    for (unsigned i = 0; i < 9362; i++)
        strLast = Ask(ToHex(static_cast<char>(i % 127 + 1) + std::string(7, 'x')));
    EXPECT_EQ(strLast, "80 00 20 01 05 00 04 05;");
    EXPECT_EQ(Ask("c1 00 00 00 00 00 00 00"), strUnknown);
    // Blocks up: block sizes that cannot be, acknowledging too much, too early an end; a repeated segment.
    oObjects.strObject = "123456789";
    for (const char* pBad : {"a4 00 20 01 00 00 00 00", "a4 00 20 01 80 00 00 00"})
        EXPECT_EQ(Ask(pBad), "80 00 20 01 02 00 04 05;");
    for (const char* pBad :
         {"a2 03 7f 00 00 00 00 00", "a2 01 00 00 00 00 00 00", "a1 00 00 00 00 00 00 00"}) {
        EXPECT_EQ(Ask("a4 00 20 01 02 00 00 00"), "c6 00 20 01 09 00 00 00;");
        EXPECT_EQ(Ask("a3 00 00 00 00 00 00 00"), "01 31 32 33 34 35 36 37;82 38 39 00 00 00 00 00;");
        EXPECT_EQ(Ask(pBad).substr(0, 2), "80") << pBad;
    }
    Ask("a4 00 20 01 02 00 00 00");
    Ask("a3 00 00 00 00 00 00 00");
    EXPECT_EQ(Ask("a2 01 7f 00 00 00 00 00"), "81 38 39 00 00 00 00 00;");
    EXPECT_EQ(Ask("a2 01 7f 00 00 00 00 00"), "d5 c3 31 00 00 00 00 00;");
    EXPECT_EQ(Ask("a2 01 7f 00 00 00 00 00").substr(0, 2), "80");
    EXPECT_EQ(Ask("e0 00 00 00 00 00 00 00"), strUnknown);
}

TEST(SimulatorCANTest, ManyFramesFromManyThreads)
{
    CStarted<CSimGatewayCAN> oGateway;
    COnBus oSecond(oGateway), oThird(oGateway);
    constexpr unsigned nFrames = 3000;
    CCanClient oMaster(oThird), oReader(oGateway), oDeaf(oGateway);
    CCanClient oFirstWriter(oGateway, false), oSecondWriter(oSecond, false);
    const auto Stream = [](CCanClient& oWriter, const char* pHead) {
        for (unsigned i = 0; i < nFrames; i++)
            oWriter.Request(0x0203, Hex(pHead) + static_cast<char>(i & 0xFF) + static_cast<char>(i >> 8));
    };
    std::thread oOne(Stream, std::ref(oFirstWriter), "01 01 00 00 00");
    std::thread oTwo(Stream, std::ref(oSecondWriter), "02 01 00 00 00");
    // Every frame once and in order, with transfers of the third gateway, which only it is told of, in between.
    std::array<unsigned, 2> anNext{};
    unsigned nLost = 0;
    EXPECT_EQ(oMaster.Do(0x60, "01"), "00");
    oMaster.Request(0x026B, Hex("01 10 20 00 20 4e") + std::string(4000, 'x'));
    for (unsigned nSeen = 0; nSeen < 2 * nFrames && nLost == 0;) {
        const std::string strFrame = Hex(oReader.Next().substr(5));
        if (strFrame.size() != 7)
            continue;
        const auto nWriter = static_cast<std::size_t>(strFrame[0] - 1);
        nLost += (SimGet16(strFrame, 5) == anNext[nWriter]++ ? 0 : 1);
        nSeen++;
    }
    EXPECT_EQ(nLost, 0U);
    oOne.join();
    oTwo.join();
    EXPECT_EQ(oMaster.Confirmation(0x6B), "00 00 00 00 00 00");
    EXPECT_EQ(oGateway.GetNode()->GetMemory(), std::string(4000, 'x'));
}
