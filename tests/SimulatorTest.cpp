// The simulated gateways, spoken to over real sockets in bytes written out here.

#include "Simulator.h"
#include "SimGatewayAD.h"
#include "SimGatewayDIO.h"
#include "SimGatewaySPI.h"
#include "SpiFlash.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <linux/tcp.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace std::chrono_literals;
using TClock = std::chrono::steady_clock;

// Of this process alone, so that fixed ports do not collide with those of another run.
const std::string strAddress =
    "127.66." + std::to_string(getpid() >> 8 & 0xFF) + "." + std::to_string(getpid() & 0xFF);
constexpr auto nPatience = 20s;

std::string Bytes(const std::string& strHex)
{
    std::string strBytes;
    for (std::size_t i = 0; i + 1 < strHex.size(); i += 3)
        strBytes += static_cast<char>(std::stoi(strHex.substr(i, 2), nullptr, 16));
    return strBytes;
}

std::string Hex(const std::string& strBytes)
{
    std::string strHex;
    for (const char c : strBytes) {
        strHex += strHex.empty() ? "" : " ";
        strHex += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
        strHex += "0123456789ABCDEF"[c & 0xF];
    }
    return strHex;
}

/// Reads until there are nLen bytes or the stream ends; a reset adds "RST", running out of patience "LATE".
std::string Read(int nDescriptor, std::size_t nLen)
{
    std::string strRead;
    const auto oDeadline = TClock::now() + nPatience;
    while (strRead.size() < nLen) {
        pollfd oPoll{nDescriptor, POLLIN, 0};
        const auto nRest = std::chrono::duration_cast<std::chrono::milliseconds>(oDeadline - TClock::now());
        if (nRest <= 0ms || poll(&oPoll, 1, static_cast<int>(nRest.count())) == 0)
            return strRead + "LATE";
        char acChunk[4096];
        const auto nRead = read(nDescriptor, acChunk, std::min(sizeof(acChunk), nLen - strRead.size()));
        if (nRead <= 0)
            return strRead + (nRead < 0 ? "RST" : "");
        strRead.append(acChunk, static_cast<std::size_t>(nRead));
    }
    return strRead;
}

class CClient
{
  public:
    CClient(const std::string& strHost, unsigned short nPort) : m_nSocket(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in oAddress{};
        oAddress.sin_family = AF_INET;
        oAddress.sin_port = htons(nPort);
        inet_pton(AF_INET, strHost.c_str(), &oAddress.sin_addr);
        m_bConnected = connect(m_nSocket, reinterpret_cast<sockaddr*>(&oAddress), sizeof(oAddress)) == 0;
        const int nOn = 1;
        setsockopt(m_nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    }
    explicit CClient(const CSimGateway& oGateway) : CClient(oGateway.GetAddress(), oGateway.GetPort()) {}
    ~CClient() { close(m_nSocket); }
    CClient(const CClient&) = delete;
    CClient& operator=(const CClient&) = delete;

    bool IsConnected() const { return m_bConnected; }
    void Send(const std::string& strBytes) const
    {
        for (std::size_t n = 0; n < strBytes.size();) {
            const auto nSent = send(m_nSocket, strBytes.data() + n, strBytes.size() - n, MSG_NOSIGNAL);
            ASSERT_GT(nSent, 0);
            n += static_cast<std::size_t>(nSent);
        }
    }
    void EndSending() const { shutdown(m_nSocket, SHUT_WR); }
    std::string Receive(std::size_t nLen) const { return Hex(Read(m_nSocket, nLen)); }
    std::string ReceiveAll() const { return Hex(Read(m_nSocket, std::string::npos)); }
    unsigned SegmentsReceived() const
    {
        tcp_info oInfo{};
        socklen_t nLen = sizeof(oInfo);
        getsockopt(m_nSocket, IPPROTO_TCP, TCP_INFO, &oInfo, &nLen);
        return oInfo.tcpi_data_segs_in;
    }

    /// Frames a request, and takes the frame off its answer, which must have the right code and id.
    std::string Ask(unsigned nCode, const std::string& strData)
    {
        Request(nCode, strData);
        return Answer(nCode);
    }
    void Request(unsigned nCode, const std::string& strData)
    {
        m_nID++;
        const std::string strBody = Number(nCode) + Number(m_nID) + strData;
        Send(Number(static_cast<unsigned>(strBody.size() + 1)) + strBody + Check(strBody));
    }
    std::string Answer(unsigned nCode)
    {
        const std::string strLength = Read(m_nSocket, 2);
        if (strLength.size() != 2)
            return "no answer: " + Hex(strLength);
        const auto nLength = static_cast<std::size_t>(static_cast<unsigned char>(strLength[0]) +
                                                      256 * static_cast<unsigned char>(strLength[1]));
        const std::string strBody = Read(m_nSocket, nLength);
        if (strBody.size() < 5 || strBody.substr(0, 4) != Number(nCode | 0x8000) + Number(m_nID) ||
            Check(strBody) != std::string(1, '\0'))
            return "bad answer: " + Hex(strBody);
        return Hex(strBody.substr(4, nLength - 5));
    }

  private:
    static std::string Number(unsigned n)
    {
        return {static_cast<char>(n & 0xFF), static_cast<char>(n >> 8 & 0xFF)};
    }
    static std::string Check(const std::string& strBytes)
    {
        char nCheck = 0;
        for (const char c : strBytes)
            nCheck = static_cast<char>(nCheck ^ c);
        return std::string(1, nCheck);
    }

    int m_nSocket;
    bool m_bConnected = false;
    unsigned m_nID = 0x1230;
};

template<class TGateway>
class CStarted : public TGateway
{
  public:
    CStarted()
    {
        std::string strError;
        EXPECT_TRUE(this->Start(strAddress, 0, &strError)) << strError;
    }
    ~CStarted() override { this->Stop(); }
};

bool Within(const std::function<bool()>& fnCondition)
{
    const auto oDeadline = TClock::now() + nPatience;
    while (!fnCondition()) {
        if (TClock::now() > oDeadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// Status requests with the ids 1 to 4 to a digital I/O gateway, and their answers when the text is "ok".
const std::string strR1 = Bytes("05 00 0A 05 01 00 0E"), strR2 = Bytes("05 00 0A 05 02 00 0D"),
                  strR3 = Bytes("05 00 0A 05 03 00 0C"), strR4 = Bytes("05 00 0A 05 04 00 0B");
const std::string strA1 = "08 00 0A 85 01 00 00 6F 6B 8A", strA2 = "08 00 0A 85 02 00 00 6F 6B 89",
                  strA3 = "08 00 0A 85 03 00 00 6F 6B 88", strA4 = "08 00 0A 85 04 00 00 6F 6B 8F",
                  strAllRequests = strR1 + strR2 + strR3 + strR4,
                  strAll = strA1 + " " + strA2 + " " + strA3 + " " + strA4;

} // namespace

TEST(Simulator, AnswersTelegramsHoweverTheyAreCut)
{
    CStarted<CSimGatewaySPI> oSPI;
    CClient oClient(oSPI);
    for (const char c : Bytes("05 00 09 03 2A 00 20"))
        oClient.Send(std::string(1, c));
    EXPECT_EQ(oClient.Receive(28),
              "1A 00 09 83 2A 00 00 53 49 4D 30 33 2D 30 30 30 31 46 57 20 31 2E 30 2E 30 03 01 DA");

    CStarted<CSimGatewayDIO> oDIO;
    std::string strLog;
    oDIO.SetLog([&](const std::string& strLine) { strLog += strLine + "\n"; });
    CClient oOther(oDIO);
    // Write and read the lines, an unknown command, a foreign kind, and a negative id in one segment.
    oOther.Send(Bytes(
        "09 00 41 05 FE FF 78 56 34 12 4D 05 00 40 05 03 00 46 05 00 99 05 03 00 9F 05 00 09 03 03 00 09"));
    EXPECT_EQ(oOther.Receive(40), "06 00 41 85 FE FF 00 C5 0E 00 40 85 03 00 00 78 56 34 12 78 56 34 12 C6 "
                                  "06 00 99 85 03 00 FF E0 06 00 09 83 03 00 FF 76");
    // Dropped: wrong check byte, length fields 4 and 0, a confirmation. The next request is answered.
    oDIO.SetStatus("ok");
    oOther.Send(Bytes("05 00 0A 05 01 00 0F 04 00 0A 05 01 00 00 00 05 00 0A 85 01 00 8E") + strR2);
    EXPECT_EQ(oOther.Receive(10), strA2);
    oDIO.Stop();
    for (const char* pText : {"connected (1 of 8)", "wrong check byte", "length field 4 is below 5",
                              "length field 0 is below 5", "a confirmation", "disconnected"})
        EXPECT_NE(strLog.find(pText), std::string::npos) << pText << " not in\n" << strLog;
}

TEST(Simulator, CommonCommands)
{
    CStarted<CSimGatewayAD> oAD;
    CClient oClient(oAD);
    const std::string strStatus = Bytes(oClient.Ask(0x070A, ""));
    EXPECT_NE(strStatus.find("AD gateway at " + strAddress + ":" + std::to_string(oAD.GetPort()) +
                             " is up for 0 s, serves 1 of 8 clients and has received 1 requests."),
              std::string::npos)
        << strStatus;
    oAD.SetDeviceInfo("any");
    EXPECT_EQ(oClient.Ask(0x0709, ""), "00 61 6E 79");
    oAD.SetInputs(0xABCDEF);
    EXPECT_EQ(oClient.Ask(0x0740, ""), "00 EF CD AB 00 00 00 00 00");
    EXPECT_EQ(oClient.Ask(0x0741, "abc"), "FF");
    EXPECT_EQ(oClient.Ask(0x0743, Bytes("04 03 02 01 05 00 00")), "FF");
    EXPECT_EQ(oClient.Ask(0x0743, Bytes("04 03 02 01 05 00 00 00")), "00");
    const std::string strAnalog = oClient.Ask(0x0742, "");
    EXPECT_EQ(strAnalog.size(), 158U);
    EXPECT_EQ(strAnalog.substr(0, 27), "00 0C 00 00 00 C4 09 00 00 "); // 12 channels, the first constant 2500
    EXPECT_EQ(strAnalog.substr(63, 23), "04 03 02 01 05 00 00 00");
    const std::string strRead = oClient.Ask(0x0730, "");
    EXPECT_EQ(strRead.size(), 146U);
    EXPECT_EQ(strRead.substr(51, 23), "04 03 02 01 05 00 00 00");
}

TEST(SpiFlash, KeepsTheRulesOfTheChip)
{
    CSpiFlash oFlash;
    oFlash.SetBusyFactor(0);
    const auto Spi = [&](const std::string& strHex) { return Hex(oFlash.Transfer(Bytes(strHex))); };
    EXPECT_EQ(Spi("9F 00 00 00 00"), "FF C2 20 17 C2");
    EXPECT_EQ(Spi("AB 00"), "FF FF");

    // Without the latch, with too many bytes behind the latch command, and after taking it back, nothing is
    // written.
    Spi("02 00 00 00 00");
    Spi("06 00");
    EXPECT_EQ(Spi("05 00"), "FF 00");
    Spi("06");
    EXPECT_EQ(Spi("05 00 00"), "FF 02 02");
    Spi("04");
    Spi("02 00 00 00 00");
    EXPECT_EQ(oFlash.Peek(0, 1), "\xFF");

    // Wraps within the page, clears bits only, and needs the latch again afterwards.
    Spi("06");
    Spi("02 00 01 FE 11 22 33 44");
    EXPECT_EQ(Spi("05 00"), "FF 00");
    EXPECT_EQ(Spi("03 00 01 FE 00 00 00"), "FF FF FF FF 11 22 FF");
    EXPECT_EQ(Spi("0B 00 01 00 00 00 00 00"), "FF FF FF FF FF 33 44 FF");
    Spi("06");
    Spi("02 00 01 FE 0F");
    EXPECT_EQ(Hex(oFlash.Peek(0x1FE, 2)), "01 22");
    // Of more than a page the last 256 bytes count.
    Spi("06");
    oFlash.Transfer(Bytes("02 00 02 00") + std::string(256, '\x55') + std::string(255, '\x77') + "\x66");
    EXPECT_EQ(Hex(oFlash.Peek(0x200, 2) + oFlash.Peek(0x2FF, 2)), "77 77 66 FF");

    // Reading goes on at the start; the address has 23 bits.
    oFlash.Poke(0x7FFFFF, "ABC");
    EXPECT_EQ(Spi("03 FF FF FF 00 00 00"), "FF FF FF FF 41 42 43");

    // Erasing: incomplete or overlong commands do nothing; then exactly the unit around the address.
    const std::size_t anMarks[] = {0xFFFF, 0x10000, 0x10FFF, 0x11000, 0x1FFFF, 0x20000};
    const auto Marks = [&] {
        std::string strMarks;
        for (const std::size_t nMark : anMarks)
            strMarks += oFlash.Peek(nMark, 1) == "M" ? 'M' : '-';
        return strMarks;
    };
    for (const std::size_t nMark : anMarks)
        oFlash.Poke(nMark, "M");
    Spi("06");
    Spi("20 01 08");
    Spi("20 01 08 00 00");
    Spi("C7 00");
    EXPECT_EQ(Marks(), "MMMMMM");
    Spi("20 01 08 00");
    EXPECT_EQ(Marks(), "M--MMM");
    Spi("06");
    Spi("D8 01 80 00");
    EXPECT_EQ(Marks(), "M----M");
    Spi("06");
    Spi("C7");
    EXPECT_EQ(Marks(), "------");
}

TEST(SpiFlash, AnswersOnlyTheStatusWhileBusy)
{
    CSpiFlash oFlash;
    const auto Spi = [&](const std::string& strHex) { return Hex(oFlash.Transfer(Bytes(strHex))); };
    Spi("06");
    const auto oStart = TClock::now();
    Spi("20 00 00 00");
    EXPECT_TRUE(Within([&] { return Spi("05 00") == "FF 00"; })); // the latch goes with the operation
    EXPECT_GE(TClock::now() - oStart, 20ms);

    oFlash.SetBusyFactor(1000);
    oFlash.Poke(0, "A");
    Spi("06");
    Spi("02 00 00 01 42");
    EXPECT_EQ(Spi("05 00"), "FF 03");
    EXPECT_EQ(Spi("9F 00"), "FF FF");
    EXPECT_EQ(Spi("03 00 00 00 00"), "FF FF FF FF FF");
    Spi("04");
    Spi("20 00 00 00");
    EXPECT_EQ(Spi("05 00"), "FF 03");
    oFlash.PowerCycle();
    EXPECT_EQ(Spi("05 00"), "FF 00");
    EXPECT_EQ(Spi("03 00 00 00 00 00"), "FF FF FF FF 41 42");
}

TEST(SpiGateway, GlobalsAndTransfers)
{
    CStarted<CSimGatewaySPI> oSPI;
    CClient oClient(oSPI);
    EXPECT_EQ(oClient.Ask(0x0308, ""), "00 40 42 0F 00 02 01 00");
    EXPECT_EQ(oClient.Ask(0x0307, Bytes("80 F0 FA 02 03 02 03")), "00"); // 50 MHz
    EXPECT_EQ(oClient.Ask(0x0303, Bytes("9F 00 00 00")), "00 FF C2 20 17");
    for (const char* pBad : {"81 F0 FA 02 00 01 00", "E7 03 00 00 00 01 00", "40 42 0F 00 04 01 00",
                             "40 42 0F 00 00 03 00", "40 42 0F 00 00 01 04", "40 42 0F 00 00 01 00 00"})
        EXPECT_EQ(oClient.Ask(0x0307, Bytes(pBad)), "20") << pBad;
    EXPECT_EQ(oClient.Ask(0x0307, Bytes("40 42 0F 00 00 01")), "FF");
    EXPECT_EQ(oClient.Ask(0x0308, ""), "00 80 F0 FA 02 03 02 03");

    EXPECT_EQ(oClient.Ask(0x0303, ""), "20");
    EXPECT_EQ(oClient.Ask(0x0303, std::string(65528, '\x05')), "20"); // its answer would need 65536 bytes
    const std::string strLong = oClient.Ask(0x0303, std::string(65527, '\x05'));
    EXPECT_EQ(strLong.size(), 196583U);
    EXPECT_EQ(strLong.substr(0, 8), "00 FF 00");

    // In the clock modes that the flash does not know, it neither answers nor obeys.
    oClient.Ask(0x0307, Bytes("40 42 0F 00 02 01 01"));
    EXPECT_EQ(oClient.Ask(0x0303, Bytes("9F 00")), "00 FF FF");
    EXPECT_EQ(oClient.Ask(0x0303, Bytes("06")), "00 FF");
    oClient.Ask(0x0307, Bytes("40 42 0F 00 02 01 00"));
    EXPECT_EQ(oClient.Ask(0x0303, Bytes("05 00")), "00 FF 00");
    // Without its supply there is no transfer, and the latch is lost.
    oClient.Ask(0x0303, Bytes("06"));
    oClient.Ask(0x0307, Bytes("40 42 0F 00 02 00 00"));
    EXPECT_EQ(oClient.Ask(0x0303, Bytes("05 00")), "21");
    EXPECT_EQ(oClient.Ask(0x0314, Bytes("01 01 00 05")), "21");
    oClient.Ask(0x0307, Bytes("40 42 0F 00 02 01 00"));
    EXPECT_EQ(oClient.Ask(0x0303, Bytes("05 00")), "00 FF 00");
}

TEST(SpiGateway, Sequences)
{
    CStarted<CSimGatewaySPI> oSPI;
    oSPI.GetFlash().SetBusyFactor(0);
    CClient oClient(oSPI);
    const auto Run = [&](const std::string& strHex) { return oClient.Ask(0x0314, Bytes(strHex)); };
    // Latch, program "AB" at 0x10, wait 1 ms, read back; then the end, behind which nothing counts.
    EXPECT_EQ(Run("02 01 00 06 02 06 00 02 00 00 10 41 42 04 01 00 03 04 00 03 00 00 10 03 00 00 EE"),
              "00 41 42 FF");
    EXPECT_EQ(Run("01 02 00 05 00 05 78 56 34 12 06"), "00 FF 00 78 56 34 12");
    EXPECT_EQ(oSPI.GetOutputs(), 0x12345678U);
    // Twice: (an id byte, three times the inputs)
    EXPECT_EQ(Run("05 01 00 00 00 07 02 00 03 01 00 9F 01 00 07 03 00 06 08 08"),
              "00 C2 01 00 00 00 01 00 00 00 01 00 00 00 C2 01 00 00 00 01 00 00 00 01 00 00 00");

    // A bad sequence does nothing at all.
    EXPECT_EQ(Run("05 99 00 00 00 09"), "30");
    EXPECT_EQ(oSPI.GetOutputs(), 1U);
    for (const char* pBad : {"", "01 02 00 05", "01 00 00", "03 01 00 9F 01", "04 01", "05 00 00 00", "07 01",
                             "08", "07 00 00 08", "07 01 00 06", "07 01 00 00 08"})
        EXPECT_EQ(Run(pBad), "20") << pBad;
    EXPECT_EQ(Run("07 FF FF 06 08"), "20"); // collects more than an answer holds
}

TEST(SpiGateway, SequencesTakeTheirTimeWhileOthersAreServed)
{
    CStarted<CSimGatewaySPI> oSPI;
    CClient oClient(oSPI);
    const auto oStart = TClock::now();
    oClient.Send(Bytes("0D 00 14 03 01 00 04 2C 01 05 07 00 00 00 3D")); // 300 ms, then outputs 7
    oClient.Send(Bytes("05 00 40 03 02 00 41"));
    EXPECT_EQ(oClient.Receive(16), "0E 00 40 83 02 00 00 00 00 00 00 00 00 00 00 C1");
    EXPECT_EQ(oSPI.GetOutputs(), 0U);
    EXPECT_EQ(oClient.Receive(8), "06 00 14 83 01 00 00 96");
    EXPECT_GE(TClock::now() - oStart, 300ms);
    EXPECT_EQ(oSPI.GetOutputs(), 7U);

    // Too long: a delay, and loops without end. The answer comes when the limit is reached.
    oSPI.SetSequenceLimit(100);
    for (const char* pLong : {"04 FF FF", "07 FF FF 07 FF FF 06 04 01 00 08 08", "07 FF FF 07 FF FF 08 08"}) {
        const auto oBegin = TClock::now();
        EXPECT_EQ(oClient.Ask(0x0314, Bytes(pLong)), "31") << pLong;
        EXPECT_GE(TClock::now() - oBegin, 100ms) << pLong;
    }
}

TEST(FaultPlan, SpoilsTheAnswersItNames)
{
    const struct {
        const char* pPlan;
        std::string strBytes; // all that comes for four requests
    } aoRows[] = {
        {" ; ", strAll},
        {"drop@1;drop @ 3 -", strA2},
        {"duplicate@2;drop@3-", strA1 + " " + strA2 + " " + strA2},
        {"silent@2", strA1},
        {"close@2", strA1},
        {"reset@2", strA1 + " 08 00 0A 85 02 52 53 54"},
        {"drop@2-;badcrc@1", "08 00 0A 85 01 00 00 6F 6B 75"},
        {"drop@2-;badid=77@1", "08 00 0A 85 4D 00 00 6F 6B C6"},
        {"drop@2-;badid@1", strA2},
        {"drop@2-;badcode@1", "08 00 0B 85 01 00 00 6F 6B 8B"},
        {"drop@2-;badcode=0x8305@1", "08 00 05 83 01 00 00 6F 6B 83"},
        {"drop@2-;refuse=0x21", "08 00 0A 85 01 00 21 6F 6B AB"},
        {"drop@2-;truncate=1", "06 00 0A 85 01 00 00 8E"},
        {"drop@2-;truncate=0", "05 00 0A 85 01 00 8E"},
        {"drop@2-;longlength", "0C 00 0A 85 01 00 00 6F 6B 8A"},
        {"drop@2-;longlength=65535", "FF FF 0A 85 01 00 00 6F 6B 8A"},
        {"drop@2-;shortlength=3", "05 00 0A 85 01 00 00 6F 6B 8A"},
        {"drop@2-;flood=2@1", "09 00 F0 05 00 00 00 00 00 00 F5 09 00 F0 05 00 00 01 00 00 00 F4 " + strA1},
        {"glue=3", strA1 + " " + strA2 + " " + strA3},
    };
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus("ok");
    for (const auto& oRow : aoRows) {
        std::string strError;
        ASSERT_TRUE(oDIO.SetFaultPlan(oRow.pPlan, strError)) << strError;
        CClient oClient(oDIO);
        oClient.Send(strAllRequests);
        oClient.EndSending();
        EXPECT_EQ(oClient.ReceiveAll(), oRow.strBytes) << oRow.pPlan;
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

    ASSERT_TRUE(oDIO.SetFaultPlan("glue=3@1-3", strError));
    CClient oGlued(oDIO);
    oGlued.Send(strAllRequests);
    EXPECT_EQ(oGlued.Receive(40), strAll);
    EXPECT_EQ(oGlued.SegmentsReceived(), 2U);
}

TEST(FaultPlan, NamesTheBadStep)
{
    const struct {
        const char* pPlan;
        const char* pError;
    } aoRows[] = {
        {"drop;dorp@2", "fault plan step 'dorp@2': is not a known fault"},
        {"delay", "fault plan step 'delay': needs a value"},
        {"drop=1", "fault plan step 'drop=1': takes no value"},
        {"refuse=256", "fault plan step 'refuse=256': needs a value from 0 to 255"},
        {"badid=-1", "fault plan step 'badid=-1': needs a value from 0 to 65535"},
        {"flood=1e3", "fault plan step 'flood=1e3': needs a value from 1 to 100000"},
        {"drop@0",
         "fault plan step 'drop@0': behind '@' comes an answer number from 1, as in @2, @2-4 or @2-"},
        {"drop@3-2",
         "fault plan step 'drop@3-2': behind '@' comes an answer number from 1, as in @2, @2-4 or @2-"},
    };
    for (const auto& oRow : aoRows) {
        CFaultPlan oPlan;
        std::string strError;
        EXPECT_FALSE(CFaultPlan::Parse(oRow.pPlan, oPlan, strError)) << oRow.pPlan;
        EXPECT_EQ(strError, oRow.pError);
    }
}

TEST(Simulator, ConnectionsAndIndications)
{
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus("ok");
    oDIO.SetMaxConnections(1);
    CClient oFirst(oDIO);
    ASSERT_TRUE(oDIO.WaitForConnections(1, 20000));
    CClient oSecond(oDIO);
    oSecond.Send(strR1);
    EXPECT_EQ(oSecond.Receive(8), "06 00 0A 85 01 00 01 8F");
    oFirst.Send(strR1);
    EXPECT_EQ(oFirst.Receive(10), strA1);
    EXPECT_EQ(oDIO.GetConnectionCount(), 2U);
    EXPECT_EQ(oDIO.GetRequestCount(), 2ULL);
    EXPECT_FALSE(oDIO.WaitForConnections(1, 0));

    EXPECT_TRUE(oDIO.SendIndication(0x0533, -1, "\xAA\xBB"));
    EXPECT_FALSE(oDIO.SendIndication(0x0533, -1, "\xAA\xBB", 99));
    EXPECT_EQ(oFirst.Receive(9), "07 00 33 05 FF FF AA BB 27");
    oDIO.DropConnections();
    EXPECT_EQ(oFirst.ReceiveAll() + oSecond.ReceiveAll(), "");
    EXPECT_TRUE(oDIO.WaitForConnections(0, 20000));
    EXPECT_FALSE(oDIO.SendIndication(0x0533, -1, ""));
    CClient oThird(oDIO);
    oThird.Send(strR1);
    EXPECT_EQ(oThird.Receive(10), strA1);
    oDIO.Stop();
    oDIO.Stop();
    EXPECT_EQ(oThird.ReceiveAll(), "");
    EXPECT_FALSE(CClient(oDIO).IsConnected());
}

TEST(Simulator, ClientsThatNeverReadHoldNothingUp)
{
    CStarted<CSimGatewayDIO> oDIO;
    oDIO.SetStatus(std::string(60000, 's'));
    CClient oDeaf(oDIO);
    for (int i = 0; i < 600; i++)
        oDeaf.Send(strR1);
    EXPECT_TRUE(Within([&] { return !oDIO.SendIndication(0x0533, 0, std::string(60000, 'i')); }));
    CClient oOther(oDIO);
    for (int i = 0; i < 6000; i++) // time enough to answer them all, were they not to wait
        ASSERT_EQ(oOther.Ask(0x0540, ""), "00 00 00 00 00 00 00 00 00");
    EXPECT_LT(oDIO.GetRequestCount(), 6400ULL);
    const auto oStart = TClock::now();
    oDIO.Stop();
    EXPECT_LT(TClock::now() - oStart, nPatience);
}

TEST(Simulator, RestartComesBackInPowerOnState)
{
    CStarted<CSimGatewaySPI> oSPI;
    oSPI.SetRestartTime(100);
    oSPI.GetFlash().Poke(0, "kept");
    CClient oOther(oSPI);
    CClient oClient(oSPI);
    EXPECT_EQ(oClient.Ask(0x0341, "\xFF\xFF\xFF\xFF"), "00");
    EXPECT_EQ(oClient.Ask(0x0307, Bytes("E8 03 00 00 01 02 03")), "00");
    const auto oStart = TClock::now();
    EXPECT_EQ(oClient.Ask(0x030C, ""), "00");
    EXPECT_EQ(oClient.ReceiveAll() + oOther.ReceiveAll(), "");
    std::unique_ptr<CClient> pAgain;
    EXPECT_TRUE(Within([&] {
        pAgain = std::make_unique<CClient>(oSPI);
        return pAgain->IsConnected();
    }));
    EXPECT_GE(TClock::now() - oStart, 100ms);
    EXPECT_EQ(pAgain->Ask(0x0340, ""), "00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(pAgain->Ask(0x0308, ""), "00 40 42 0F 00 02 01 00");
    EXPECT_EQ(oSPI.GetFlash().Peek(0, 4), "kept");

    // Stop does not wait for the end of a restart.
    oSPI.SetRestartTime(3600000);
    EXPECT_EQ(pAgain->Ask(0x030C, ""), "00");
    EXPECT_EQ(pAgain->ReceiveAll(), "");
    oSPI.Stop();
}

TEST(Simulator, AllKindsOrNone)
{
    CSimulator oFirst(strAddress, 99);
    std::string strError;
    ASSERT_TRUE(oFirst.Start(strError)) << strError;
    EXPECT_EQ(oFirst.GetGateway(3)->GetPort(), 14902);
    EXPECT_EQ(oFirst.GetGateway(7)->GetPort(), 14906);
    EXPECT_EQ(oFirst.GetGateway(8), nullptr);
    CSimulator oSecond(strAddress, 99);
    EXPECT_FALSE(oSecond.Start(strError));
    EXPECT_EQ(strError, "cannot listen on " + strAddress + ":14902: Address already in use");
    EXPECT_FALSE(CSimulator("192.168.0.1").Start(strError));
    EXPECT_EQ(strError, "'192.168.0.1' is not an address within 127.0.0.0/8");
}

namespace
{

/// The program, run with its output in pipes; killed when the test ends before it does.
class CProgram
{
  public:
    explicit CProgram(std::vector<std::string> astrArguments)
    {
        int anOut[2];
        int anErr[2];
        EXPECT_EQ(pipe2(anOut, O_CLOEXEC) | pipe2(anErr, O_CLOEXEC), 0);
        posix_spawn_file_actions_t oActions;
        posix_spawn_file_actions_init(&oActions);
        posix_spawn_file_actions_adddup2(&oActions, anOut[1], 1);
        posix_spawn_file_actions_adddup2(&oActions, anErr[1], 2);
        astrArguments.insert(astrArguments.begin(), QUORVEL_SIM_PROGRAM);
        std::vector<char*> apArguments;
        apArguments.reserve(astrArguments.size() + 1);
        for (auto& strArgument : astrArguments)
            apArguments.push_back(strArgument.data());
        apArguments.push_back(nullptr);
        EXPECT_EQ(posix_spawn(&m_nProcess, apArguments[0], &oActions, nullptr, apArguments.data(), environ),
                  0);
        posix_spawn_file_actions_destroy(&oActions);
        close(anOut[1]);
        close(anErr[1]);
        m_nOut = anOut[0];
        m_nErr = anErr[0];
    }
    ~CProgram()
    {
        if (m_nProcess > 0)
            Signal(SIGKILL), End();
        close(m_nOut);
        close(m_nErr);
    }
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;

    std::string Line() const
    {
        std::string strLine;
        for (std::string strNext;
             (strNext = Read(m_nOut, 1)) != "\n" && !strNext.empty() && strNext != "LATE";)
            strLine += strNext;
        return strLine;
    }
    std::string Output() const { return Read(m_nOut, std::string::npos); }
    std::string Errors() const { return Read(m_nErr, std::string::npos); }
    void Signal(int nSignal) const { kill(m_nProcess, nSignal); }
    int End()
    {
        int nStatus = 0;
        waitpid(m_nProcess, &nStatus, 0);
        m_nProcess = -1;
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

  private:
    pid_t m_nProcess = -1;
    int m_nOut = -1;
    int m_nErr = -1;
};

} // namespace

TEST(SimulatorProgram, ServesUntilItIsTold)
{
    for (const int nSignal : {SIGTERM, SIGINT}) {
        CProgram oProgram({"--address", strAddress, "--port-index", "98", "--verbose", "--fault", "5:drop@1",
                           "--fault", "DIO:refuse=2", "--max-connections", "3"});
        EXPECT_EQ(oProgram.Line(),
                  "quorvel-sim 1.0.0 ready on " + strAddress + ": SPI=14802 DIO=14804 AD=14806 AWire=14813");
        {
            const CClient oClient(strAddress, 14804);
            oClient.Send(Bytes("05 00 40 05 01 00 44 05 00 40 05 02 00 47"));
            EXPECT_EQ(oClient.Receive(16), "0E 00 40 85 02 00 02 00 00 00 00 00 00 00 00 C5");
            CClient oSPI(strAddress, 14802);
            EXPECT_EQ(oSPI.Ask(0x0303, Bytes("9F 00 00 00")), "00 FF C2 20 17");
        }
        oProgram.Signal(nSignal);
        const std::string strErrors = oProgram.Errors();
        EXPECT_NE(strErrors.find("connected (1 of 3)\n"), std::string::npos) << strErrors;
        EXPECT_NE(strErrors.find(" disconnected\n"), std::string::npos) << strErrors;
        EXPECT_EQ(oProgram.Output(), "");
        EXPECT_EQ(oProgram.End(), 0);
    }
}

TEST(SimulatorProgram, RefusesWhatItCannotDo)
{
    const struct {
        std::vector<std::string> astrArguments;
        const char* pOutput;
        const char* pErrors; // part of it
        int nExit;
    } aoRows[] = {
        {{"--version"}, "quorvel-sim 1.0.0\n", "", 0},
        {{"--list", "--port-index", "1"},
         "kind 3  SPI  port 5102\nkind 5  DIO  port 5104\nkind 7  AD  port 5106\n"
         "kind 14  AWire  port 5113\n",
         "",
         0},
        {{"--address", "0.0.0.0"}, "", "'0.0.0.0' is not within 127.0.0.0/8", 2},
        {{"--port-index", "100"}, "", "--port-index", 2},
        {{"--nonsense"}, "", "--nonsense", 2},
        {{"--fault", "SPI:dorp"}, "", "fault plan step 'dorp': is not a known fault", 2},
        {{"--fault", "4:drop"}, "", "'4' is not a kind of gateway", 2},
        {{"--address", strAddress, "--port-index", "97"}, "", ":14706: Address already in use", 4},
    };
    CSimGatewayAD oTaken;
    ASSERT_TRUE(oTaken.Start(strAddress, 14706));
    for (const auto& oRow : aoRows) {
        CProgram oProgram(oRow.astrArguments);
        EXPECT_EQ(oProgram.Output(), oRow.pOutput);
        const std::string strErrors = oProgram.Errors();
        EXPECT_NE(strErrors.find(oRow.pErrors), std::string::npos) << strErrors;
        EXPECT_EQ(oProgram.End(), oRow.nExit) << oRow.astrArguments[0];
    }
}
