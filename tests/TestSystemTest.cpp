// The boxes of a test system: value arrays, configurations, and files with their CRC-32. A whole job is
// examples/test_system.cpp.

#include "ConnectedTest.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>

#include <sys/stat.h>

namespace
{

struct CBox : CQuorvelClientTestSystemCOM {
    using CQuorvelClientTestSystemCOM::CQuorvelClientTestSystemCOM;
    ~CBox() override { StopReception(); }
    int GetCnfRetCode(const CQuorvelMsg& o) override { return CQuorvelClient::GetCnfRetCode(o) | m_nMore; }
    int m_nMore = 0;
};

// Starts on a directory of its own for files.
class TestSystemCOMTest : public CConnectedTest<CBox, 0x0D00>
{
  protected:
    TestSystemCOMTest() { std::filesystem::create_directory(m_strDirectory); }
    ~TestSystemCOMTest() override { std::filesystem::remove_all(m_strDirectory); }

    std::string MakeFile(const std::string& strContent, const std::string& strName = "a.bin") const
    {
        std::ofstream(m_strDirectory + strName, std::ios::binary) << strContent;
        return m_strDirectory + strName;
    }

    const std::string m_strDirectory = testing::TempDir() + "quorvel-" + std::to_string(getpid()) + "/";
};
using TestSystemIOTest = CConnectedTest<CQuorvelClientTestSystemIO, 0x0B00>;
using TestSystemPWRTest = CConnectedTest<CQuorvelClientTestSystemPWR, 0x0C00>;
using TestSystemRelayTest = CConnectedTest<CQuorvelClientTestSystemRelay, 0x1100>;

const std::string UNIT = "4 source/QuorvelClientTestSystem";
unsigned short g_anValues[] = {0x0201, 0xFFFF};

// So many bytes that no two pieces are alike.
std::string Content(std::size_t nSize)
{
    std::string strContent(nSize, '\0');
    for (std::size_t i = 0; i < nSize; ++i)
        strContent[i] = static_cast<char>(i * 7 + i / 256);
    return strContent;
}

} // namespace

TEST_F(TestSystemIOTest, RequestsAndResults)
{
    unsigned short anValues[2] = {};
    Check([&] { return m_oClient.SetPower(g_anValues, 2); }, "09 00 20 0b 02 00 01 02 ff ff 2a",
          UNIT + "IO: SET POWER");
    Check([&] { return m_oClient.GetPower(anValues, 2); }, "05 00 21 0b 02 00 28", UNIT + "IO: GET POWER");
    Check([&] { return m_oClient.SetValue(g_anValues, 2); }, "09 00 10 0b 02 00 01 02 ff ff 1a",
          UNIT + "IO: SET VALUE");
    Check([&] { return m_oClient.SetValue(nullptr, 0); }, "05 00 10 0b 02 00 19", UNIT + "IO: SET VALUE");
    Check([&] { return m_oClient.GetValue(anValues, 2); }, "05 00 11 0b 02 00 18", UNIT + "IO: GET VALUE");
}

TEST_F(TestSystemPWRTest, RequestsAndResults)
{
    unsigned short anValues[2] = {};
    Check([&] { return m_oClient.SetValue(g_anValues, 2); }, "09 00 10 0c 02 00 01 02 ff ff 1d",
          UNIT + "PWR: SET VALUE");
    Check([&] { return m_oClient.GetValue(anValues, 2); }, "05 00 11 0c 02 00 1f", UNIT + "PWR: GET VALUE");
}

TEST_F(TestSystemRelayTest, RequestsAndResults)
{
    unsigned short anValues[2] = {};
    Check([&] { return m_oClient.SetRelay(7, true); }, "07 00 12 11 02 00 07 01 07",
          UNIT + "Relay: SET VALUE"); // so traced, though it sets a relay
    Check([&] { return m_oClient.SetPower(g_anValues, 2); }, "09 00 20 11 02 00 01 02 ff ff 30",
          UNIT + "Relay: SET POWER");
    Check([&] { return m_oClient.GetPower(anValues, 2); }, "05 00 21 11 02 00 32", UNIT + "Relay: GET POWER");
}

TEST_F(TestSystemIOTest, ArraysTakeWhatFits)
{
    const std::tuple<const char*, unsigned char, CNumbers> aoCases[] = {
        {"00 01 02 03 04 05 06", 2, {0x0201, 0x0403, 9}},
        {"00 01 02 03", 3, {0x0201, 9, 9}},
    };
    for (const auto& [pConfirmation, nCount, anExpected] : aoCases) {
        unsigned short anValues[3] = {9, 9, 9};
        m_oPeer.Confirm(pConfirmation);
        m_oClient.GetValue(anValues, nCount);
        EXPECT_EQ(anExpected, CNumbers(anValues, anValues + 3)) << pConfirmation << ' ' << +nCount;
    }
}

TEST_F(TestSystemCOMTest, RequestsAndResults)
{
    std::string strName;
    bool bAvailable = false;
    unsigned int nValue = 0;
    const std::string strPath = MakeFile("123456789");
    auto& o = m_oClient;
    Check([&] { return o.SetConfig("cfg"); }, "08 00 05 0d 02 00 63 66 67 68", UNIT + "COM: SET CONFIG",
          ",name=cfg");
    Check([&] { return o.GetConfig(strName); }, "05 00 06 0d 02 00 09", UNIT + "COM: GET CONFIG");
    Check([&] { return o.IsConfigAvailable("cfg", bAvailable, nValue); }, "08 00 d2 0d 02 00 63 66 67 bf",
          UNIT + "COM: IS CONFIG AVAILABLE", ",name=cfg");
    Check([&] { return o.InstallConfig("cfg", strPath); },
          "13 00 d5 0d 02 00 26 39 f4 cb 03 63 66 67 05 61 2e 62 69 6e b4", UNIT + "COM: INSTALL CONFIG",
          (",config=cfg,file=" + strPath).c_str());
    // Names with a length byte are cut, the others are not.
    const std::string strLong(300, 'n');
    m_oPeer.Confirm("00");
    m_oPeer.Confirm("00");
    o.Open();
    EXPECT_EQ(0, o.InstallConfig(strLong, MakeFile("123456789", "x\\")));
    EXPECT_EQ(0, o.SetConfig(strLong));
    EXPECT_EQ(
        ToHex(Telegram(0x0DD5, 2, "\x26\x39\xf4\xcb\xff" + strLong.substr(0, 255) + std::string(1, '\0'))),
        m_oPeer.TakeRequest());
    EXPECT_EQ(ToHex(Telegram(0x0D05, 3, strLong)), m_oPeer.TakeRequest());
}

TEST_F(TestSystemCOMTest, Decodes)
{
    const std::tuple<const char*, const char*, bool, unsigned int> aoCases[] = {
        {"00 01 02 03 04 05 06", "01 02 03 04 05 06", true, 0x05040302},
        {"00 00 02 03 04 85", "00 02 03 04 85", false, 0x85040302},
        {"00", "", true, 9},
    };
    for (const auto& [pConfirmation, pName, bExpected, nExpected] : aoCases) {
        std::string strName = "old";
        bool bAvailable = true;
        unsigned int nValue = 9;
        m_oPeer.Confirm(pConfirmation);
        m_oPeer.Confirm(pConfirmation);
        m_oClient.GetConfig(strName);
        m_oClient.IsConfigAvailable("x", bAvailable, nValue);
        EXPECT_EQ(pName, ToHex(strName)) << pConfirmation;
        EXPECT_EQ(bExpected, bAvailable) << pConfirmation;
        EXPECT_EQ(nExpected, nValue) << pConfirmation;
    }
    std::string strNames;
    for (const char* pPath : {"/x\\y/z\\c", "/tmp/b", "d"})
        strNames += CQuorvelClientTestSystemCOM::GetFileName(pPath) + ';';
    EXPECT_EQ("c;b;d;", strNames);
}

TEST_F(TestSystemCOMTest, SendsFilesInPieces)
{
    const struct {
        std::size_t nSize;
        std::vector<const char*> apAnswers; // one for each telegram that is to come
        const char* pHead;                  // CRC and size
        int nRC;
    } aoCases[] = {
        {0, {"00"}, "00 00 00 00 00 00 00 00", 0},
        {32768, {"21"}, "27 43 df d1 00 80 00 00", 0x0D21}, // no empty piece
        {70000, {"21", "21", "00"}, "1b a6 af 59 70 11 01 00", 0},
        {70000, {"21", "21", "02"}, "1b a6 af 59 70 11 01 00", 0x00070D02}, // asks by the low byte alone
    };
    for (const auto& oCase : aoCases) {
        m_oClient.m_nMore = oCase.nRC & 0x00070000;
        SCOPED_TRACE(std::to_string(oCase.nSize) + " " + oCase.apAnswers.back());
        const std::string strContent = Content(oCase.nSize);
        const std::string strPath = MakeFile(strContent);
        for (const char* pAnswer : oCase.apAnswers)
            m_oPeer.Confirm(pAnswer);
        m_oClient.Open();
        CTraceRecorder oTraces(0x0F);
        EXPECT_EQ(oCase.nRC, m_oClient.SendFile(strPath));
        EXPECT_EQ(CTexts{UNIT + "COM: SEND FILE requested to 127.0.0.1,file=" + strPath}, oTraces.Take());
        std::string strHead = Hex(oCase.pHead) + "\x05" + "a.bin";
        for (std::size_t i = 0; i < oCase.apAnswers.size(); ++i)
            EXPECT_EQ(ToHex(Telegram(i == 0 ? 0x0DD3 : 0x0DD4, static_cast<int>(2 + i),
                                     (i == 0 ? strHead : "") + strContent.substr(32768 * i, 32768))),
                      m_oPeer.TakeRequest());
    }
    m_oClient.m_nMore = 0;
    // A caller's CRC is used unchecked. 64 KiB of stack are enough.
    m_oPeer.Confirm("22");
    m_oClient.Open();
    OnSmallStack([&] { EXPECT_EQ(0x0D22, m_oClient.SendFile(MakeFile("x"), 0x12345678)); });
    EXPECT_EQ(ToHex(Telegram(0x0DD3, 2, Hex("78 56 34 12 01 00 00 00 05") + "a.binx")),
              m_oPeer.TakeRequest());
}

TEST_F(TestSystemCOMTest, FilesThatCannotBeSent)
{
    const std::string strHuge = MakeFile("");
    std::filesystem::resize_file(strHuge, 0x100000000ULL); // sparse
    EXPECT_EQ(0x00920000, m_oClient.SendFile(strHuge, 1));
    std::filesystem::resize_file(strHuge, 0xFFFFFFFFU);
    m_oPeer.Confirm("22");
    EXPECT_EQ(0x0D22, m_oClient.SendFile(strHuge, 1));
    EXPECT_EQ(
        ToHex(Telegram(0x0DD3, 2, Hex("01 00 00 00 ff ff ff ff 05") + "a.bin" + std::string(32768, '\0'))),
        m_oPeer.TakeRequest());
    const std::string strPipe = m_strDirectory + "pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    // Missing, a directory, nothing to be read at the start, a pipe that nobody writes to.
    for (const std::string& strPath :
         {m_strDirectory + "none", m_strDirectory, std::string("/proc/self/mem"), strPipe}) {
        EXPECT_EQ(0x0D20, m_oClient.SendFile(strPath)) << strPath;
        EXPECT_EQ(0x0D20, m_oClient.InstallConfig("c", strPath)) << strPath;
    }
}

TEST_F(TestSystemCOMTest, FilesThatShrinkMeanwhile)
{
    const std::string strPath = MakeFile(Content(70000));
    m_oClient.Open();
    auto oResult = std::async(std::launch::async, [&] { return m_oClient.SendFile(strPath); });
    EXPECT_NE("none", m_oPeer.TakeRequest());
    std::filesystem::resize_file(strPath, 32868); // while the first piece is under way
    m_oPeer.Confirm("21");
    m_oPeer.Send(Telegram(0x8DD3, 2, "\x21"));
    EXPECT_EQ(0x0D21, oResult.get());
    EXPECT_EQ(ToHex(Telegram(0x0DD4, 3, Content(70000).substr(32768, 100))), m_oPeer.TakeRequest());
}
