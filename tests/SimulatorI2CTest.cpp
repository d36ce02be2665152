// The simulated I2C gateway and the chips on its bus, spoken to over real sockets in bytes written out here.

#include "SimClient.h"
#include "SimGatewayI2C.h"

namespace
{

using namespace simtest;

/// A started gateway with memories that are never busy, and a client.
class CI2C
{
  public:
    explicit CI2C(const std::string& strMemories = CSimGatewayI2C::pDefaultMemories) : m_oClient(m_oGateway)
    {
        std::string strError;
        EXPECT_TRUE(m_oGateway.SetMemories(strMemories, strError)) << strError;
        for (unsigned nAddress = 0xA0; nAddress < 0xB0; nAddress += 2) {
            if (const auto pMemory = m_oGateway.GetMemory(nAddress))
                pMemory->SetBusyTime(0us);
        }
    }
    CSimGatewayI2C* operator->() { return &m_oGateway; }
    std::string Ask(unsigned nCode, const std::string& strHex) { return m_oClient.Ask(nCode, Hex(strHex)); }
    void Talk(const std::string& strConversation) { m_oClient.Talk(strConversation); }

    CStarted<CSimGatewayI2C> m_oGateway;
    CClient m_oClient;
};

} // namespace

TEST(SimulatorI2CTest, TransfersAndSettings)
{
    CI2C oI2C;
    // Up to 1 MHz.
    oI2C.Talk("0108=00 a0 86 01 00;0107 40 42 0f 00=00;0107 41 42 0f 00=ff;0107 00 00 00 00=ff;"
              "0108=00 40 42 0f 00");
    // Bit 0 of the address does not matter; without bytes it is a question whether somebody is there.
    oI2C.Talk(
        "0111 a1 00 00 20 41 42 43=00 00 00;0111 a0 00 00 20=00 00 00;0110 a0 00 05 00=00 41 42 43 ff ff;"
        "0110 a1 00 00 00=00;0111 a6 00=00 00 00");
    for (const std::string strNobody : {"a8 00", "50 00", "00 00", "a0 01"})
        oI2C.Talk("0111 " + strNobody + "=20 00 00;0110 " + strNobody + " 01 00=20");
    // Too short, too long, and more than an answer holds.
    oI2C.Talk("0107 a0 86 01=ff;0108 00=ff;0110 a0 00 01=ff;0110 a0 00 f8 ff=ff;0111 a0=ff;"
              "0112 a0 00 02 00 00 00 20 01=ff;0112 a0 00 03 00 00 00 20 01 00=ff;0114 01=ff;011a=ff");
    oI2C->SetClockHeld(true);
    oI2C.Talk("0110 a0 00 01 00=21;0115=21;0119 a0 00 01 00 02 00 00 00 20 41=21;0108=00 40 42 0f 00;0104=00;"
              "0112 a0 00 02 00 00 00 20 01 00=00 41");
}

TEST(SimulatorI2CTest, RawOperationsAndTransfersShareTheBus)
{
    CI2C oI2C;
    CClient oOther(oI2C.m_oGateway);
    // Without a start condition nobody listens. Nothing is stored before the stop condition, which may come
    // from another connection.
    oI2C.Talk("0116 a0 00=20;0117 00=00 ff;0115;0116 a0 00=00;0116 00 00=00;0116 10 00=00;0116 41 00=00;"
              "0116 42 00=00;0116 43 00=00");
    EXPECT_EQ(ToHex(oI2C->GetMemory(0xA0)->Peek(0x10, 2)), "ff ff");
    oOther.Talk("0118=00");
    oI2C.Talk("0112 a0 00 02 00 00 00 10 03 00=00 41 42 43");
    // A repeated start, or a reset, forgets the data.
    for (const std::string strForget : {"0115", "0104;0116 a0 00"})
        oI2C.Talk("0115;0116 a0 00=00;0116 00 00=00;0116 10 00=00;0116 77 00=00;" + strForget + ";0118");
    // Set the offset, repeated start, read: flag bit 0 acknowledges; after a byte that is not, nobody sends.
    oI2C.Talk("0115;0116 a0 00;0116 00 00;0116 10 00;0115;0116 a1 00=00;0117 01=00 41;0116 00 00=20;"
              "0117 00=00 42;0117 00=00 ff;0118");
}

TEST(SimulatorI2CTest, Sequences)
{
    CI2C oI2C;
    // Write to two memories, set the offsets, read from both.
    oI2C.Talk("0114 05 00 a0 00 04 00 00 20 41 42 a2 00 02 00 08 43 a0 00 02 00 00 20 a1 00 02 00 "
              "a2 00 01 00 08 a3 00 02 00=00 00 00 41 42 43 ff");
    // The third step (index 2) fails: what was read is there, what follows is not carried out.
    oI2C.Talk("0114 04 00 a0 00 02 00 00 20 a1 00 02 00 50 00 00 00 a2 00 02 00 08 44=20 02 00 41 42");
    // A bad sequence does nothing at all: cut off, more to read than announced, more than an answer holds.
    oI2C.Talk(
        "0114 01 00 a2 00 02 00 08 44 a3 00 02=ff 01 00;0114 01 00 a2 00 02 00 08 44 a2 00 02 00 08=ff 01 00;"
        "0114 01 00 a2 00 02 00 08 44 a3 00 02 00=ff 01 00;0114 01 00 a3 00 01 00 a3 00 01 00=ff 01 00;"
        "0114 f6 ff a2 00 02 00 08 44=ff 00 00");
    EXPECT_EQ(oI2C->GetMemory(0xA2)->Peek(8, 1), "C");
}

TEST(SimulatorI2CTest, MemoriesInEveryAddressingMode)
{
    const struct {
        const char* pMemory;
        const char* pAddresses; // which it takes
        std::string strPlace;   // slave address, offset bytes, offset: 2 bytes before the end of a page
        std::size_t nOffset;    // the same in the memory
    } aoRows[] = {
        {"24c02@3", "a6 ", "a6 00 01 00 00 00 06", 0x06},
        {"24c256", "a0 ", "a0 00 02 00 00 00 3e", 0x3E},
        {"24c16", "a0 a2 a4 a6 a8 aa ac ae ", "a6 00 01 00 00 03 fe", 0x3FE},
        {"24x400", "a0 ", "a0 00 02 00 00 0f fe", 0xFFE}, // goes on at its start
        {"24c1025@1", "a2 aa ", "a2 00 02 00 00 ff fe", 0xFFFE},
    };
    for (const auto& oRow : aoRows) {
        CI2C oI2C(oRow.pMemory);
        std::string strAddresses;
        for (const char* pAddress : {"a0 ", "a2 ", "a4 ", "a6 ", "a8 ", "aa ", "ac ", "ae "})
            strAddresses += oI2C.Ask(0x0111, pAddress + std::string("00")) == "00 00 00" ? pAddress : "";
        EXPECT_EQ(strAddresses, oRow.pAddresses) << oRow.pMemory;
        const std::string& strPlace = oRow.strPlace;
        oI2C.Talk("0113 " + strPlace + " 41 42 43 44=00;0112 " + strPlace + " 05 00=00 41 42 43 44 ff");
        const auto pMemory = oI2C->GetMemory(std::stoul(strPlace, nullptr, 16) & 0xFF);
        EXPECT_EQ(ToHex(pMemory->Peek(oRow.nOffset - 1, 6)), "ff 41 42 43 44 ff") << oRow.pMemory;
    }

    CI2C oI2C("24c02");
    // Of more than a page the last bytes count; reading goes on behind the byte last written, in its page.
    oI2C.Talk("0111 a0 00 06 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 67 68 69=00 00 00");
    EXPECT_EQ(oI2C->GetMemory(0xA0)->Peek(0, 9), "ibcdefgh\xFF");
    oI2C.Talk("0110 a0 00 02 00=00 62 63");

    const std::pair<const char*, const char*> aoBad[] = {
        {"24c02,24c03",
         "'24c03' is not a type of memory; there are 24c02 24c256 24c512 24c04 24c08 24c16 24x400 24c1025 "
         "24x600 24x700"},
        {"24c08@2", "'24c08@2': the chip number is 0 to 1"}};
    for (const auto& [pList, pError] : aoBad) {
        std::string strError;
        EXPECT_FALSE(oI2C->SetMemories(pList, strError));
        EXPECT_EQ(strError, pError);
    }
}

TEST(SimulatorI2CTest, MemoriesAreBusyWhileTheyWrite)
{
    CI2C oI2C;
    const auto pMemory = oI2C->GetMemory(0xA0);
    const auto Duration = [&](const std::string& strConversation) {
        return Milliseconds([&] { oI2C.Talk(strConversation); });
    };
    // Three pages: twice waited for between them, with polling also at the end, each time for up to 50 ms.
    const std::string strLong = ' ' + ToHex(std::string(130, 'A'));
    pMemory->SetBusyTime(20ms);
    EXPECT_GE(Duration("0113 a0 00 02 00 00 00 3f" + strLong + "=00"), 40);
    pMemory->PowerCycle();
    EXPECT_GE(Duration("0119 a0 00 32 00 02 00 00 00 3f" + strLong + "=00"), 60);
    EXPECT_EQ(ToHex(pMemory->Peek(0x3E, 2) + pMemory->Peek(0xC0, 2)), "ff 41 41 ff");

    // While it is busy nothing but polling helps, and only while it lasts.
    pMemory->SetBusyTime(1h);
    // An offset alone does not make it busy. 0 ms: the gateway's own limit.
    oI2C.Talk("0111 a0 00 00 00=00 00 00;0113 a0 00 02 00 00 00 00 42=00;0113 a0 00 02 00 00 00 01 42=20;"
              "0111 a0 00 00 01 42=20 00 00;0112 a0 00 02 00 00 00 00 01 00=20");
    EXPECT_GE(Duration("0119 a0 00 00 00 02 00 00 00 01 42=25"), 100);
    EXPECT_EQ(ToHex(pMemory->Peek(0, 2)), "42 ff");
    pMemory->PowerCycle();
    oI2C.Talk("0111 a0 00=00 00 00");
}

TEST(SimulatorI2CTest, Thermometer)
{
    CI2C oI2C;
    auto& oSensor = oI2C->GetSensor();
    const auto Read = [&] { return oI2C.Ask(0x0110, "91 00 02 00"); };
    const std::pair<double, const char*> aoTemperatures[] = {
        {25.125, "00 19 20"}, {0, "00 00 00"}, {-0.125, "00 ff e0"}, {-60, "00 c9 00"}, {200, "00 7d 00"}};
    for (const auto& [nTemperature, pBytes] : aoTemperatures) {
        oSensor.SetTemperature(nTemperature);
        EXPECT_EQ(Read(), pBytes) << nTemperature;
    }
    oSensor.SetTemperature(30); // what it measures when it is shut down
    // Configuration (read over and over), limits, and the temperature, which cannot be written.
    oI2C.Talk("0114 07 00 90 00 02 00 01 01 91 00 03 00 90 00 01 00 02 91 00 02 00 "
              "90 00 03 00 03 51 80 91 00 02 00 90 00 01 00 00=00 00 00 01 01 01 4b 00 51 80;"
              "0111 90 00 00 10=20 02 00");
    oSensor.SetTemperature(40);
    EXPECT_EQ(Read(), "00 1e 00"); // shut down it keeps what it measured last
}
