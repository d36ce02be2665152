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
    std::string Ask(unsigned nCode, const std::string& strHex) { return m_oClient.Ask(nCode, Bytes(strHex)); }

    CStarted<CSimGatewayI2C> m_oGateway;
    CClient m_oClient;
};

} // namespace

TEST(SimulatorI2CTest, TransfersAndSettings)
{
    CI2C oI2C;
    EXPECT_EQ(oI2C.Ask(0x0108, ""), "00 A0 86 01 00");
    EXPECT_EQ(oI2C.Ask(0x0107, "40 42 0F 00"), "00"); // 1 MHz
    EXPECT_EQ(oI2C.Ask(0x0107, "41 42 0F 00"), "FF");
    EXPECT_EQ(oI2C.Ask(0x0107, "00 00 00 00"), "FF");
    EXPECT_EQ(oI2C.Ask(0x0108, ""), "00 40 42 0F 00");

    // Bit 0 of the address does not matter; without bytes it is a question whether somebody is there.
    EXPECT_EQ(oI2C.Ask(0x0111, "A1 00 00 20 41 42 43"), "00 00 00");
    EXPECT_EQ(oI2C.Ask(0x0111, "A0 00 00 20"), "00 00 00");
    EXPECT_EQ(oI2C.Ask(0x0110, "A0 00 05 00"), "00 41 42 43 FF FF");
    EXPECT_EQ(oI2C.Ask(0x0110, "A1 00 00 00"), "00");
    EXPECT_EQ(oI2C.Ask(0x0111, "A6 00"), "00 00 00");
    for (const char* pNobody : {"A8 00", "50 00", "00 00", "A0 01"}) {
        EXPECT_EQ(oI2C.Ask(0x0111, pNobody), "20 00 00") << pNobody;
        EXPECT_EQ(oI2C.Ask(0x0110, pNobody + std::string(" 01 00")), "20") << pNobody;
    }
    // The position of what was refused: a register that there is not, a third byte for one of two.
    EXPECT_EQ(oI2C.Ask(0x0111, "90 00 04 00"), "20 01 00");
    EXPECT_EQ(oI2C.Ask(0x0111, "90 00 03 51 80 00"), "20 04 00");
    EXPECT_EQ(oI2C.Ask(0x0111, "90 00 01 00 00"), "20 03 00");

    // Too short, too long, and more than an answer holds.
    const struct {
        unsigned nCode;
        const char* pData;
    } aoBad[] = {{0x0107, "A0 86 01"},
                 {0x0108, "00"},
                 {0x0110, "A0 00 01"},
                 {0x0110, "A0 00 F8 FF"},
                 {0x0111, "A0"},
                 {0x0112, "A0 00 02 00 00 00 20 01"},
                 {0x0112, "A0 00 03 00 00 00 20 01 00"},
                 {0x0113, "A0 00 00 00 00 00 00 41"},
                 {0x0113, "A0 00 02 00 00 00"},
                 {0x0116, "A0"},
                 {0x0119, "A0 00 01 00 02 00 00 00"},
                 {0x0114, "01"},
                 {0x011A, ""}};
    for (const auto& oBad : aoBad)
        EXPECT_EQ(oI2C.Ask(oBad.nCode, oBad.pData).substr(0, 2), "FF") << oBad.nCode << " " << oBad.pData;

    oI2C->SetClockHeld(true);
    for (const auto& [nCode, pData] : {std::pair(0x0110U, "A0 00 01 00"), std::pair(0x0115U, ""),
                                       std::pair(0x0119U, "A0 00 01 00 02 00 00 00 20 41")})
        EXPECT_EQ(oI2C.Ask(nCode, pData), "21");
    EXPECT_EQ(oI2C.Ask(0x0108, ""), "00 40 42 0F 00");
    EXPECT_EQ(oI2C.Ask(0x0104, ""), "00");
    EXPECT_EQ(oI2C.Ask(0x0112, "A0 00 02 00 00 00 20 01 00"), "00 41");

    // A restart: bus settings as after power-on, memory contents stay, nothing is busy.
    oI2C->GetMemory(0xA0)->SetBusyTime(1h);
    EXPECT_EQ(oI2C.Ask(0x0113, "A0 00 02 00 00 00 20 44"), "00");
    oI2C->SetClockHeld(true);
    EXPECT_EQ(oI2C.Ask(0x010C, ""), "00");
    EXPECT_EQ(oI2C.m_oClient.ReceiveAll(), "");
    std::string strClock;
    EXPECT_TRUE(Within([&] {
        CClient oAgain(oI2C.m_oGateway);
        return oAgain.IsConnected() && (strClock = oAgain.Ask(0x0108, "")) == "00 A0 86 01 00" &&
               oAgain.Ask(0x0112, Bytes("A0 00 02 00 00 00 20 02 00")) == "00 44 42";
    })) << strClock;
}

TEST(SimulatorI2CTest, RawOperationsAndTransfersShareTheBus)
{
    CI2C oI2C;
    CClient oOther(oI2C.m_oGateway);
    const auto Send = [&](const std::string& strHex) {
        std::string strResults;
        for (std::size_t i = 0; i + 1 < strHex.size(); i += 3)
            strResults += oI2C.Ask(0x0116, strHex.substr(i, 2) + " 00");
        return strResults;
    };
    EXPECT_EQ(Send("A0"), "20"); // without a start condition nobody listens
    EXPECT_EQ(oI2C.Ask(0x0117, "00"), "00 FF");

    // Nothing is stored before the stop condition, which may come from another connection.
    oI2C.Ask(0x0115, "");
    EXPECT_EQ(Send("A0 00 10 41 42 43"), "000000000000");
    EXPECT_EQ(Hex(oI2C->GetMemory(0xA0)->Peek(0x10, 2)), "FF FF");
    EXPECT_EQ(oOther.Ask(0x0118, ""), "00");
    EXPECT_EQ(oI2C.Ask(0x0112, "A0 00 02 00 00 00 10 03 00"), "00 41 42 43");
    // A repeated start, or a reset, forgets the data.
    for (const auto& [nCode, pNext] :
         {std::pair(0x0115U, ""), std::pair(0x0115U, "A0"), std::pair(0x0104U, "A0")}) {
        oI2C.Ask(0x0115, "");
        EXPECT_EQ(Send("A0 00 10 77"), "00000000");
        oI2C.Ask(nCode, "");
        Send(pNext);
        oI2C.Ask(0x0118, "");
    }
    // Set the offset, repeated start, read: flag bit 0 acknowledges; after a byte that is not, nobody sends.
    oI2C.Ask(0x0115, "");
    Send("A0 00 10");
    oI2C.Ask(0x0115, "");
    EXPECT_EQ(Send("A1"), "00");
    EXPECT_EQ(oI2C.Ask(0x0117, "01"), "00 41");
    EXPECT_EQ(Send("00"), "20");
    EXPECT_EQ(oI2C.Ask(0x0117, "00"), "00 42");
    EXPECT_EQ(oI2C.Ask(0x0117, "00"), "00 FF");
    oI2C.Ask(0x0118, "");
    // Flag bit 0 of sending: whether it is acknowledged does not matter.
    oI2C.Ask(0x0115, "");
    EXPECT_EQ(oI2C.Ask(0x0116, "50 01"), "00");
    EXPECT_EQ(Send("00"), "20");
}

TEST(SimulatorI2CTest, Sequences)
{
    CI2C oI2C;
    // Write to two memories, set the offsets, read from both.
    EXPECT_EQ(oI2C.Ask(0x0114,
                       "05 00 A0 00 04 00 00 20 41 42 A2 00 02 00 08 43 A0 00 02 00 00 20 A1 00 02 00 "
                       "A2 00 01 00 08 A3 00 02 00"),
              "00 00 00 41 42 43 FF");
    EXPECT_EQ(oI2C.Ask(0x0114, "00 00"), "00 00 00");
    // The third step (index 2) fails: what was read is there, what follows is not carried out.
    EXPECT_EQ(oI2C.Ask(0x0114, "04 00 A0 00 02 00 00 20 A1 00 02 00 50 00 00 00 A2 00 02 00 08 44"),
              "20 02 00 41 42");
    EXPECT_EQ(oI2C.Ask(0x0114, "01 00 51 00 01 00"), "20 00 00");
    EXPECT_EQ(oI2C->GetMemory(0xA2)->Peek(8, 1), "C");
    // A bad sequence does nothing at all: cut off, more to read than announced, more than an answer holds.
    const char* const pGood = " A2 00 02 00 08 44";
    for (const char* pBad : {" A3 00 02", " A2 00 02 00 08", " A3 00 02 00"})
        EXPECT_EQ(oI2C.Ask(0x0114, std::string("01 00") + pGood + pBad), "FF 01 00") << pBad;
    EXPECT_EQ(oI2C.Ask(0x0114, "01 00 A3 00 01 00 A3 00 01 00"), "FF 01 00");
    EXPECT_EQ(oI2C.Ask(0x0114, std::string("F6 FF") + pGood), "FF 00 00");
    EXPECT_EQ(oI2C->GetMemory(0xA2)->Peek(8, 1), "C");
}

TEST(SimulatorI2CTest, MemoriesInEveryAddressingMode)
{
    const struct {
        const char* pMemory;
        const char* pAddresses; // which it takes
        const char*
            pPlace; // slave address, offset bytes, offset: 2 bytes before a boundary of pages or blocks
        std::size_t nOffset; // the same in the memory
        std::size_t nPageSize;
        std::size_t nSize;
    } aoRows[] = {
        {"24c02@3", "A6 ", "A6 00 01 00 00 00 06", 0x06, 8, 256},
        {"24c256", "A0 ", "A0 00 02 00 00 00 3E", 0x3E, 64, 32768},
        {"24c512@3", "A6 ", "A6 00 02 00 00 12 7E", 0x127E, 128, 65536},
        {"24c04@2", "A8 AA ", "A8 00 01 00 00 00 FE", 0xFE, 16, 512},
        {"24c08@1", "A8 AA AC AE ", "AC 00 01 00 00 02 FE", 0x2FE, 16, 1024},
        {"24c16", "A0 A2 A4 A6 A8 AA AC AE ", "A6 00 01 00 00 03 FE", 0x3FE, 16, 2048},
        {"24x400", "A0 ", "A0 00 02 00 00 0F FE", 0xFFE, 32, 4096}, // goes on at its start
        {"24c1025@1", "A2 AA ", "A2 00 02 00 00 FF FE", 0xFFFE, 128, 131072},
        {"24x600@1", "A2 A6 AA AE ", "A6 00 02 00 01 FF FE", 0x1FFFE, 256, 262144},
        {"24x700", "A0 A2 A4 A6 A8 AA AC AE ", "AC 00 02 00 06 FF FE", 0x6FFFE, 256, 524288},
    };
    for (const auto& oRow : aoRows) {
        CI2C oI2C(oRow.pMemory);
        std::string strAddresses;
        for (const char* pAddress : {"A0 ", "A2 ", "A4 ", "A6 ", "A8 ", "AA ", "AC ", "AE "})
            strAddresses += oI2C.Ask(0x0111, pAddress + std::string("00")) == "00 00 00" ? pAddress : "";
        EXPECT_EQ(strAddresses, oRow.pAddresses) << oRow.pMemory;
        const std::string strPlace = oRow.pPlace;
        EXPECT_EQ(oI2C.Ask(0x0113, strPlace + " 41 42 43 44"), "00") << oRow.pMemory;
        const auto pMemory = oI2C->GetMemory(std::stoul(strPlace, nullptr, 16) & 0xFF);
        ASSERT_NE(pMemory, nullptr) << oRow.pMemory;
        EXPECT_EQ(pMemory->GetSize(), oRow.nSize) << oRow.pMemory;
        EXPECT_EQ(Hex(pMemory->Peek(oRow.nOffset - 1, 6)), "FF 41 42 43 44 FF") << oRow.pMemory;
        EXPECT_EQ(oI2C.Ask(0x0112, strPlace + " 05 00"), "00 41 42 43 44 FF") << oRow.pMemory;
        // In one transfer it wraps within the page instead.
        const std::size_t nOffsetBytes = strPlace[7] == '1' ? 1 : 2;
        EXPECT_EQ(
            oI2C.Ask(0x0111, strPlace.substr(0, 6) + strPlace.substr(21 - 3 * nOffsetBytes) + " 61 62 63"),
            "00 00 00");
        EXPECT_EQ(pMemory->Peek(oRow.nOffset, 2), "ab") << oRow.pMemory;
        EXPECT_EQ(pMemory->Peek(oRow.nOffset + 2 - oRow.nPageSize, 1), "c") << oRow.pMemory;
        EXPECT_EQ(pMemory->Peek(oRow.nOffset + 2, 1), "C") << oRow.pMemory;
    }

    CI2C oI2C("24c02");
    // Of more than a page the last bytes count; reading goes on behind the byte last written, in its page.
    EXPECT_EQ(oI2C.Ask(0x0111, "A0 00 06 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 67 68 69"),
              "00 00 00");
    EXPECT_EQ(oI2C->GetMemory(0xA0)->Peek(0, 9), "ibcdefgh\xFF");
    EXPECT_EQ(oI2C.Ask(0x0110, "A0 00 02 00"), "00 62 63");
    oI2C->SetTwoBytesFirst(true);
    EXPECT_EQ(oI2C.Ask(0x0112, "A0 00 01 00 00 00 01 02 00"), "00 02 00 62 63");

    const struct {
        const char* pList;
        const char* pError;
    } aoBad[] = {
        {"24c02,24c03",
         "'24c03' is not a type of memory; there are 24c02 24c256 24c512 24c04 24c08 24c16 24x400 24c1025 "
         "24x600 24x700"},
        {"24c08@2", "'24c08@2': the chip number is 0 to 1"},
        {"24c02@", "'24c02@': the chip number is 0 to 7"},
        {"24c02@1x", "'24c02@1x': the chip number is 0 to 7"},
        {"24c02@3,24c04@1", "'24c02@3,24c04@1': two memories at slave address 0xA6"}};
    for (const auto& oBad : aoBad) {
        std::string strError;
        EXPECT_FALSE(oI2C->SetMemories(oBad.pList, strError));
        EXPECT_EQ(strError, oBad.pError);
    }
    EXPECT_EQ(oI2C.Ask(0x0111, "A0 00"), "00 00 00"); // the one from before
}

TEST(SimulatorI2CTest, MemoriesAreBusyWhileTheyWrite)
{
    CI2C oI2C;
    const auto pMemory = oI2C->GetMemory(0xA0);
    const auto Duration = [&](unsigned nCode, const std::string& strHex, const char* pAnswer) {
        const auto oStart = TClock::now();
        EXPECT_EQ(oI2C.Ask(nCode, strHex), pAnswer) << strHex;
        return TClock::now() - oStart;
    };
    // Three pages: twice waited for between them, with polling also at the end, each time for up to 50 ms.
    std::string strLong;
    for (int i = 0; i < 130; i++)
        strLong += " 41";
    pMemory->SetBusyTime(20ms);
    EXPECT_GE(Duration(0x0113, "A0 00 02 00 00 00 3F" + strLong, "00"), 40ms);
    pMemory->PowerCycle();
    EXPECT_GE(Duration(0x0119, "A0 00 32 00 02 00 00 00 3F" + strLong, "00"), 60ms);
    EXPECT_EQ(Hex(pMemory->Peek(0x3E, 2) + pMemory->Peek(0xC0, 2)), "FF 41 41 FF");

    // While it is busy nothing but polling helps, and only while it lasts.
    pMemory->SetBusyTime(1h);
    EXPECT_EQ(oI2C.Ask(0x0111, "A0 00 00 00"), "00 00 00"); // an offset alone does not make it busy
    EXPECT_EQ(oI2C.Ask(0x0113, "A0 00 02 00 00 00 00 42"), "00");
    EXPECT_EQ(oI2C.Ask(0x0113, "A0 00 02 00 00 00 01 42"), "20");
    EXPECT_EQ(oI2C.Ask(0x0111, "A0 00 00 01 42"), "20 00 00");
    EXPECT_EQ(oI2C.Ask(0x0112, "A0 00 02 00 00 00 00 01 00"), "20");
    EXPECT_GE(Duration(0x0119, "A0 00 1E 00 02 00 00 00 01 42", "25"), 30ms);
    EXPECT_GE(Duration(0x0119, "A0 00 00 00 02 00 00 00 01 42", "25"), 100ms); // 0: the gateway's own limit
    EXPECT_EQ(Hex(pMemory->Peek(0, 2)), "42 FF");
    EXPECT_GE(Duration(0x0119, "50 00 1E 00 02 00 00 00 01 42", "25"), 30ms);

    // Others are served meanwhile.
    CClient oOther(oI2C.m_oGateway);
    oI2C.m_oClient.Request(0x0119, Bytes("A0 00 FF FF 02 00 00 00 01 43"));
    EXPECT_TRUE(Within([&] { return oI2C->GetRequestCount() == 11; }));
    EXPECT_EQ(oOther.Ask(0x0112, Bytes("A2 00 01 00 00 00 00 01 00")), "00 FF");
    pMemory->SetBusyTime(0us);
    pMemory->PowerCycle();
    EXPECT_EQ(oI2C.m_oClient.Answer(0x0119), "00");
    EXPECT_EQ(oOther.Ask(0x0112, Bytes("A0 00 02 00 00 00 00 02 00")), "00 42 43");
}

TEST(SimulatorI2CTest, Thermometer)
{
    CI2C oI2C;
    auto& oSensor = oI2C->GetSensor();
    const auto Read = [&](const char* pLength) { return oI2C.Ask(0x0110, "91 00 " + std::string(pLength)); };
    const std::pair<double, const char*> aoTemperatures[] = {
        {25.125, "00 19 20"}, {0, "00 00 00"}, {-0.125, "00 FF E0"}, {-60, "00 C9 00"}, {200, "00 7D 00"}};
    for (const auto& [nTemperature, pBytes] : aoTemperatures) {
        oSensor.SetTemperature(nTemperature);
        EXPECT_EQ(Read("02 00"), pBytes) << nTemperature;
    }
    oSensor.SetTemperature(30); // what it measures when it is shut down
    // Configuration (read over and over), limits, and the temperature, which cannot be written.
    EXPECT_EQ(oI2C.Ask(0x0114, "07 00 90 00 02 00 01 01 91 00 03 00 90 00 01 00 02 91 00 02 00 "
                               "90 00 03 00 03 51 80 91 00 02 00 90 00 01 00 00"),
              "00 00 00 01 01 01 4B 00 51 80");
    EXPECT_EQ(oI2C.Ask(0x0111, "90 00 00 10"), "20 02 00");
    // Shut down it keeps what it measured last; then it moves around 25 degrees.
    EXPECT_EQ(Read("02 00"), "00 1E 00");
    oSensor.SetTemperature(std::nullopt);
    EXPECT_EQ(Read("02 00"), "00 1E 00");
    EXPECT_EQ(oI2C.Ask(0x0114, "00 00 90 00 02 00 01 00 90 00 01 00 00"), "00 00 00");
    const std::string strFirst = Read("02 00");
    EXPECT_GE(strFirst, "00 17 00");
    EXPECT_LE(strFirst, "00 1B 00");
    EXPECT_TRUE(Within([&] { return Read("02 00") != strFirst; }));
}
