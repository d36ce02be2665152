// The boxes of a test system: value arrays, configurations, and files with their CRC-32.

#include "ConnectedTest.h"
#include "DeviceManager.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"
#include "SimGatewayTestCOM.h"
#include "Simulator.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>

#include <sys/stat.h>

namespace
{

// Starts on a directory of its own for files.
class TestSystemCOMTest : public CConnectedTest<CQuorvelClientTestSystemCOM, 0x0D00>
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
const unsigned short VALUES[] = {0x0201, 0xFFFF};

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
    Check([&] { return m_oClient.SetPower(VALUES, 2); }, "09 00 20 0b 02 00 01 02 ff ff 2a",
          UNIT + "IO: SET POWER");
    Check([&] { return m_oClient.GetPower(anValues, 2); }, "05 00 21 0b 02 00 28", UNIT + "IO: GET POWER");
    Check([&] { return m_oClient.SetValue(VALUES, 2); }, "09 00 10 0b 02 00 01 02 ff ff 1a",
          UNIT + "IO: SET VALUE");
    Check([&] { return m_oClient.SetValue(nullptr, 0); }, "05 00 10 0b 02 00 19", UNIT + "IO: SET VALUE");
    Check([&] { return m_oClient.GetValue(anValues, 2); }, "05 00 11 0b 02 00 18", UNIT + "IO: GET VALUE");
}

TEST_F(TestSystemPWRTest, RequestsAndResults)
{
    unsigned short anValues[2] = {};
    Check([&] { return m_oClient.SetValue(VALUES, 2); }, "09 00 10 0c 02 00 01 02 ff ff 1d",
          UNIT + "PWR: SET VALUE");
    Check([&] { return m_oClient.GetValue(anValues, 2); }, "05 00 11 0c 02 00 1f", UNIT + "PWR: GET VALUE");
}

TEST_F(TestSystemRelayTest, RequestsAndResults)
{
    unsigned short anValues[2] = {};
    Check([&] { return m_oClient.SetRelay(7, true); }, "07 00 12 11 02 00 07 01 07",
          UNIT + "Relay: SET VALUE"); // so traced, though it sets a relay
    Check([&] { return m_oClient.SetRelay(7, false); }, "07 00 12 11 02 00 07 00 06",
          UNIT + "Relay: SET VALUE");
    Check([&] { return m_oClient.SetPower(VALUES, 2); }, "09 00 20 11 02 00 01 02 ff ff 30",
          UNIT + "Relay: SET POWER");
    Check([&] { return m_oClient.GetPower(anValues, 2); }, "05 00 21 11 02 00 32", UNIT + "Relay: GET POWER");
}

TEST_F(TestSystemIOTest, ArraysTakeWhatFits)
{
    const std::tuple<const char*, unsigned char, CNumbers> aoCases[] = {
        {"00 01 02 03 04 05 06", 2, {0x0201, 0x0403, 9}},
        {"00 01 02 03 04 05 06", 3, {0x0201, 0x0403, 0x0605}},
        {"00 01 02 03", 3, {0x0201, 9, 9}},
        {"00 01", 3, {9, 9, 9}},
        {"00 01 02", 0, {9, 9, 9}},
        {"22 01 02 03 04", 3, {9, 9, 9}},
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
        {"00 80 02 03 04", "80 02 03 04", true, 9},
        {"00 00 02 03 04 85", "00 02 03 04 85", false, 0x85040302},
        {"00", "", true, 9}, // an empty name; nothing told about availability
        {"23 00 02 03 04 05", "6f 6c 64", true, 9},
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
    for (const char* pPath : {"C:\\cfg\\a.bin", "/tmp/b.bin", "/x\\y/z\\c", "d.bin", "/tmp/", ""})
        strNames += CQuorvelClientTestSystemCOM::GetFileName(pPath) + ';';
    EXPECT_EQ("a.bin;b.bin;c;d.bin;;;", strNames);
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
        {0, {"21"}, "00 00 00 00 00 00 00 00", 0x0D21},
        {1, {"00"}, "8d ef 02 d2 01 00 00 00", 0},
        {32767, {"21"}, "fa a6 4e 6b ff 7f 00 00", 0x0D21},
        {32768, {"21"}, "27 43 df d1 00 80 00 00", 0x0D21}, // no empty piece
        {32769, {"21", "00"}, "85 06 61 9a 01 80 00 00", 0},
        {65536, {"21", "21"}, "68 d7 6f df 00 00 01 00", 0x0D21},
        {70000, {"21", "21", "00"}, "1b a6 af 59 70 11 01 00", 0},
        {70000, {"21", "21", "21"}, "1b a6 af 59 70 11 01 00", 0x0D21},
        {70000, {"21", "22"}, "1b a6 af 59 70 11 01 00", 0x0D22},
        {70000, {"00"}, "1b a6 af 59 70 11 01 00", 0}, // the gateway has had enough
        {70000, {""}, "1b a6 af 59 70 11 01 00", 0x000C0D00},
    };
    for (const auto& oCase : aoCases) {
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
        m_oPeer.Confirm("00");
        EXPECT_EQ(0, m_oClient.SetConfig("")); // nothing else had been sent
        EXPECT_EQ("05 00 05 0d", m_oPeer.TakeRequest().substr(0, 11));
    }
    // A caller's CRC is used unchecked. Names of 0 and 255 bytes.
    for (const std::string& strName : {std::string("none\\"), std::string(255, 'n')}) {
        const std::string strBase = strName.back() == '\\' ? "" : strName;
        m_oPeer.Confirm("22");
        m_oClient.Open();
        EXPECT_EQ(0x0D22, m_oClient.SendFile(MakeFile("x", strName), 0x12345678));
        EXPECT_EQ(ToHex(Telegram(0x0DD3, 2,
                                 Hex("78 56 34 12 01 00 00 00") + static_cast<char>(strBase.size()) +
                                     strBase + "x")),
                  m_oPeer.TakeRequest());
    }
}

TEST_F(TestSystemCOMTest, FilesThatCannotBeSent)
{
    const std::string strHuge = MakeFile("");
    std::filesystem::resize_file(strHuge, 0x100000000ULL); // sparse
    EXPECT_EQ(0x00920000, m_oClient.SendFile(strHuge, 1));
    const std::string strPipe = m_strDirectory + "pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    // Missing, a directory, nothing to be read at the start, a pipe that nobody writes to.
    for (const std::string& strPath : {m_strDirectory + "none", m_strDirectory, std::string("/proc/self/mem"),
                                       strPipe, m_strDirectory + std::string(300, 'n')}) {
        EXPECT_EQ(0x0D20, m_oClient.SendFile(strPath)) << strPath;
        EXPECT_EQ(0x0D20, m_oClient.SendFile(strPath, 1)) << strPath;
        EXPECT_EQ(0x0D20, m_oClient.InstallConfig("c", strPath)) << strPath;
    }
    m_oPeer.Confirm("00");
    EXPECT_EQ(0, m_oClient.SetConfig("c"));
    EXPECT_EQ("06 00 05 0d 02 00 63 69", m_oPeer.TakeRequest()); // nothing had been sent before
}

TEST_F(TestSystemCOMTest, FilesThatChangeMeanwhile)
{
    const struct {
        const char* pText;
        std::function<void(const std::string&)> fnChange; // while the first piece is under way
        std::vector<std::size_t> anPieces;                // that follow
        int nRC;                                          // of a gateway that asks for 70000 bytes
    } aoCases[] = {
        {"vanishes", [](const std::string& str) { std::filesystem::remove(str); }, {32768, 4464}, 0},
        {"shrinks", [](const std::string& str) { std::filesystem::resize_file(str, 32868); }, {100}, 0x0D21},
        {"is cut", [](const std::string& str) { std::filesystem::resize_file(str, 10); }, {}, 0x0D21},
        {"grows", [](const std::string& str) { std::filesystem::resize_file(str, 90000); }, {32768, 4464}, 0},
    };
    for (const auto& oCase : aoCases) {
        SCOPED_TRACE(oCase.pText);
        const std::string strPath = MakeFile(Content(70000));
        m_oClient.Open();
        auto oResult = std::async(std::launch::async, [&] { return m_oClient.SendFile(strPath); });
        EXPECT_NE("none", m_oPeer.TakeRequest());
        oCase.fnChange(strPath);
        std::size_t nSent = 32768;
        for (const std::size_t nPiece : oCase.anPieces) {
            nSent += nPiece;
            m_oPeer.Confirm(nSent == 70000 ? "00" : "21");
        }
        m_oPeer.Send(Telegram(0x8DD3, 2, "\x21"));
        EXPECT_EQ(oCase.nRC, oResult.get());
        for (const std::size_t nPiece : oCase.anPieces)
            EXPECT_EQ(3 * (nPiece + 7) - 1, m_oPeer.TakeRequest().size());
    }
    std::ifstream oFile(MakeFile("123456789"), std::ios::binary);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(0xCBF43926U, CQuorvelClientTestSystemCOM::GetCRC32(oFile)); // the whole file, every time
}

TEST_F(TestSystemCOMTest, SimulatedBoxesThroughTheirHandles)
{
    CSimulator oSimulator(OwnAddress());
    std::string strError;
    ASSERT_TRUE(oSimulator.Start(strError)) << strError;
    std::map<int, CQuorvelClient*> apClients;
    for (const auto nKind : std::initializer_list<unsigned char>{11, 12, 13, 17}) {
        int nHandle = 0;
        ASSERT_EQ(0, CDeviceManager::OpenDevice(&nHandle, OwnAddress().c_str(), 5000, nKind, 0, 1, true));
        apClients[nKind] = CDeviceManager::GetDevice(nHandle)->m_pClient;
        EXPECT_EQ(0, apClients[nKind]->Open());
        EXPECT_EQ(nKind, apClients[nKind]->GetDeviceType());
    }
    auto& oCOM = dynamic_cast<CQuorvelClientTestSystemCOM&>(*apClients[13]);
    const auto& oBox = dynamic_cast<CSimGatewayTestCOM&>(*oSimulator.GetGateway(13));
    for (const std::size_t nSize : {0U, 1U, 32768U, 65536U, 70000U}) {
        const std::string strPath = MakeFile(Content(nSize));
        EXPECT_EQ(0, oCOM.SendFile(strPath)) << nSize;
        EXPECT_EQ(Content(nSize), oBox.GetFile("a.bin"));
        EXPECT_EQ(0x0D22, oCOM.SendFile(strPath, 99)) << nSize;
    }
    EXPECT_EQ(0, oCOM.InstallConfig("one", m_strDirectory + "a.bin") | oCOM.SetConfig("one"));
    EXPECT_EQ(0x0D23, oCOM.SetConfig("one"));
    EXPECT_EQ(0x0D22, oCOM.InstallConfig("one", MakeFile("changed")));
    std::string strName = "old";
    bool bAvailable = false;
    unsigned int nValue = 1;
    EXPECT_EQ(0, oCOM.GetConfig(strName) | oCOM.IsConfigAvailable("one", bAvailable, nValue));
    EXPECT_EQ("one", strName);
    EXPECT_EQ(std::pair(true, 0x59AFA61BU), std::pair(bAvailable, nValue));

    auto& oIO = dynamic_cast<CQuorvelClientTestSystemIO&>(*apClients[11]);
    auto& oPWR = dynamic_cast<CQuorvelClientTestSystemPWR&>(*apClients[12]);
    auto& oRelay = dynamic_cast<CQuorvelClientTestSystemRelay&>(*apClients[17]);
    unsigned short anValues[12] = {};
    EXPECT_EQ(0, oIO.SetValue(VALUES, 2) | oIO.SetPower(VALUES + 1, 1) | oPWR.SetValue(VALUES, 1) |
                     oRelay.SetPower(VALUES, 2) | oRelay.SetRelay(31, true));
    EXPECT_EQ(0, oIO.GetValue(anValues, 3) | oIO.GetPower(anValues + 3, 3) | oPWR.GetValue(anValues + 6, 3) |
                     oRelay.GetPower(anValues + 9, 3) | oRelay.BaseReadDigital(nValue, nValue));
    EXPECT_EQ((CNumbers{0x0201, 0xFFFF, 0, 0xFFFF, 0, 0, 0x0201, 0, 0, 0x0201, 0xFFFF, 0}),
              CNumbers(anValues, anValues + 12));
    EXPECT_EQ(0x80000000U, nValue);
    CDeviceManager::CloseAllDevices();
}
