// The aWire programmer: its telegrams byte by byte, and whole jobs on a simulated target. Runs under the thread
// sanitizer too.

#include "DeviceManager.h"
#include "QuorvelClientAWire.h"
#include "SimGatewayAWire.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iomanip>
#include <pthread.h>

namespace
{

using Progress = CQuorvelClientAWire::Progress;
using FileStep = CQuorvelClientAWire::FileStep;
using EFault = CSimGatewayAWire::EFault;
using namespace std::chrono_literals;

constexpr int LONG = 10000;
constexpr const char* HOST = "127.32.1.1";
constexpr unsigned int FLASH = 0x10000000;

// The name of a file with this content, until the next call.
const std::string& File(const std::string& strContent)
{
    static const struct SFile {
        ~SFile() { std::filesystem::remove(strName); }
        const std::string strName = testing::TempDir() + "awire-" + std::to_string(getpid());
    } s_oFile;
    std::ofstream(s_oFile.strName, std::ios::binary) << strContent;
    return s_oFile.strName;
}

// S-records of bytes at an address.
std::string Records(unsigned int nAddress, const std::string& strBytes)
{
    std::ostringstream oText;
    oText << std::hex << std::setfill('0');
    for (std::size_t i = 0; i < strBytes.size(); i += 200) {
        const std::string strPart = strBytes.substr(i, 200);
        oText << "S3" << std::setw(2) << strPart.size() + 5 << std::setw(8) << nAddress + i;
        for (const char c : strPart)
            oText << std::setw(2) << static_cast<unsigned int>(static_cast<unsigned char>(c));
        oText << "00\n"; // a checksum that nobody tests
    }
    return oText.str();
}

std::string Pattern(std::size_t nLength)
{
    std::string strBytes;
    for (std::size_t i = 0; i < nLength; ++i)
        strBytes += static_cast<char>(i * 7 + i / 251);
    return strBytes;
}

// A client that is connected to somebody; what happens within its indications is the test's.
class CClient : public CQuorvelClientAWire
{
  public:
    CClient(const char* pHost, unsigned short nPort, int nTimeout = LONG) : CQuorvelClientAWire(nTimeout)
    {
        EXPECT_EQ(Connect(pHost, nPort, 1, true), 0);
        EXPECT_EQ(Open(), 0);
    }
    ~CClient() override
    {
        EndWriteFile();
        StopReception();
    }

    bool DataIndRespond(CQuorvelMsg* pMsg) override
    {
        if (m_fnRespond)
            m_fnRespond();
        return CQuorvelClientAWire::DataIndRespond(pMsg);
    }

    // What is known of a block: result, progress, length, done.
    std::vector<int> Block(short nID)
    {
        Progress::EProgress eProgress{};
        unsigned short nLength = 0;
        unsigned short nDone = 0;
        const int nRC = GetWriteBlockStatus(nID, eProgress, nLength, nDone);
        return {nRC, static_cast<int>(eProgress), nLength, nDone};
    }

    // What is known of the file: result, step, percent.
    std::vector<int> File()
    {
        FileStep::EFileStep eStep{};
        unsigned char nPercent = 0;
        const int nRC = GetWriteFileStatus(eStep, nPercent);
        return {nRC, eStep, nPercent};
    }
    bool WaitForFile(int nStep, int nPercent)
    {
        return WaitUntil([=, this] { return File() == std::vector<int>{0, nStep, nPercent}; });
    }

    std::function<void()> m_fnRespond;
};

// A simulated target without delay, and a client of it.
struct STarget {
    explicit STarget(const std::string& strFaults = "", int nTimeout = LONG)
    {
        std::string strError;
        oGateway.SetPageTime(0us);
        EXPECT_TRUE(oGateway.SetFaultPlan(strFaults, strError)) << strError;
        EXPECT_TRUE(oGateway.Start(HOST, 0, &strError)) << strError;
        pClient = std::make_unique<CClient>(HOST, oGateway.GetPort(), nTimeout);
    }
    bool WaitForWrites(unsigned int nWrites) const
    {
        return WaitUntil([=, this] { return oGateway.GetStatistics().nWrites == nWrites; });
    }

    CSimGatewayAWire oGateway;
    std::unique_ptr<CClient> pClient;
};

} // namespace

TEST(AWireTest, Commands)
{
    CTestPeer oPeer;
    CClient oClient("127.0.0.1", oPeer.GetPort());
    CTraceRecorder oTraces(0x0F);

    oPeer.Confirm("00");
    EXPECT_EQ(oClient.SetConfig(1000000, FLASH, 0x100000, 512, "chip"), 0);
    EXPECT_EQ(oPeer.TakeRequest(),
              "19 00 05 0e 02 00 40 42 0f 00 00 00 00 10 00 00 10 00 00 02 00 00 63 68 69 70 14");
    unsigned int an[4] = {1, 2, 3, 4};
    std::string strName = "none";
    oPeer.Confirm("00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00"); // a byte is missing
    EXPECT_EQ(oClient.GetConfig(an[3], an[2], an[1], an[0], strName), 0);
    EXPECT_EQ(oPeer.TakeRequest(), "05 00 06 0e 03 00 0b");
    EXPECT_EQ(std::vector<unsigned int>(an, an + 4), (std::vector<unsigned int>{1, 2, 3, 4}));
    EXPECT_EQ(strName, "none");
    oPeer.Confirm("00 44 33 22 11 88 77 66 55 cc bb aa 99 00 02 00 00 61 62");
    EXPECT_EQ(oClient.GetConfig(an[0], an[1], an[2], an[3], strName), 0);
    EXPECT_EQ(std::vector<unsigned int>(an, an + 4),
              (std::vector<unsigned int>{0x11223344, 0x55667788, 0x99AABBCC, 512}));
    EXPECT_EQ(strName, "ab");
    EXPECT_EQ(oPeer.TakeRequest(), "05 00 06 0e 04 00 0c");

    oPeer.Confirm("24");
    EXPECT_EQ(oClient.Erase(258), 0x0E24);
    EXPECT_EQ(oPeer.TakeRequest(), "07 00 e2 0e 05 00 02 01 ea");
    oPeer.Confirm("00");
    EXPECT_EQ(oClient.EraseUserPage(), 0);
    EXPECT_EQ(oPeer.TakeRequest(), "05 00 e5 0e 06 00 ed");

    char acData[] = "....";
    unsigned short nRead = 9;
    const auto fnRead = [&](const char* pConfirmation) {
        oPeer.Confirm(pConfirmation);
        const int nRC = oClient.Read(FLASH + 16, 3, acData, nRead);
        return std::to_string(nRC) + " " + std::to_string(nRead) + " " + acData;
    };
    EXPECT_EQ(fnRead("26 41 41"), "3622 9 ....");
    EXPECT_EQ(oPeer.TakeRequest(), "0b 00 e3 0e 07 00 10 00 00 10 03 00 e9");
    EXPECT_EQ(fnRead("00 61"), "0 1 a...");
    EXPECT_EQ(fnRead("00 42 43 44 45"), "0 3 BCD.");
    const auto fnVerify = [&](const char* pConfirmation) {
        oPeer.Confirm(pConfirmation);
        return oClient.Verify(FLASH + 16, 3, "ABC");
    };
    EXPECT_EQ(fnVerify("00 41 42 43 44"), 0);
    EXPECT_EQ(fnVerify("00 41 42"), 0x0E26);
    EXPECT_EQ(fnVerify("00 41 42 44"), 0x0EFF);
    EXPECT_EQ(fnVerify("21 41 42 43"), 0x0E21);
    EXPECT_EQ(fnVerify(""), 0x000C0E00);
    short nID = 0;
    EXPECT_EQ(oClient.WriteBlock(FLASH + 512, 17, "seventeen letters", nID), 0);
    EXPECT_EQ(nID, 15);
    EXPECT_EQ(oClient.WriteUserPage(8, 1, "D", nID), 0);
    EXPECT_EQ(nID, 16);

    const std::string strUnit = "4 source/QuorvelClientAWire: ";
    const std::string strRead = "READ BLOCK requested to 127.0.0.1, offset=0x10000010, length=0x3";
    const char* const pConfig = "SET CONFIG requested to 127.0.0.1"; // of GetConfig, too
    std::vector<std::string> astrTexts = {pConfig, pConfig, pConfig,
                                          "ERASE BLOCK requested to 127.0.0.1, block=258",
                                          "ERASE USER PAGE requested to 127.0.0.1"};
    astrTexts.insert(astrTexts.end(), 8, strRead);
    astrTexts.emplace_back("WRITE BLOCK requested to 127.0.0.1, offset=0x10000200, length=0x11");
    astrTexts.emplace_back("WRITE USER PAGE requested to 127.0.0.1");
    for (std::string& strText : astrTexts)
        strText.insert(0, strUnit);
    EXPECT_EQ(oTraces.Take(), astrTexts);
}

TEST(AWireTest, BlockWritesAndTheirStatus)
{
    CTestPeer oPeer;
    CClient oClient("127.0.0.1", oPeer.GetPort());
    CTraceRecorder oTraces(0x0A);
    const auto fnReport = [&](const char* pData, unsigned int nCode = 0x0EE1) {
        oPeer.Send(Telegram(nCode, 0, Hex(pData)));
    };
    short nID = 0;
    EXPECT_EQ(oClient.Block(2), (std::vector<int>{255, 0, 0, 0}));
    EXPECT_EQ(oClient.WriteBlock(FLASH + 512, 3, "ABC", nID), 0);
    EXPECT_EQ(oPeer.TakeRequest(), "0e 00 e0 0e 02 00 00 02 00 10 03 00 41 42 43 bd");
    EXPECT_EQ(oClient.WriteUserPage(8, 1, "D", nID), 0);
    EXPECT_EQ(oPeer.TakeRequest(), "0c 00 e4 0e 03 00 08 00 00 00 01 00 44 a4");
    EXPECT_EQ(oClient.Block(2), (std::vector<int>{0, 1, 3, 0}));
    fnReport("02 00 00 03 00", 0x0EE0); // not a report
    fnReport("02 00 00 03");            // incomplete
    fnReport("04 00 00 03 00");         // of an unknown block
    fnReport("02 00 01 02 00 ff");
    EXPECT_TRUE(WaitUntil([&] { return oClient.Block(2) == std::vector<int>{0, 1, 3, 2}; }));
    fnReport("03 00 a7 34 12"); // any other status is handed on, and is told again and again
    EXPECT_TRUE(WaitUntil([&] { return oClient.Block(3) == std::vector<int>{0, 0xA7, 1, 0x1234}; }));
    EXPECT_EQ(oClient.Block(3), (std::vector<int>{0, 0xA7, 1, 0x1234}));
    fnReport("02 00 00 03 00");
    EXPECT_TRUE(WaitUntil([&] { return oClient.Block(2) == std::vector<int>{0, 0, 3, 3}; }));
    EXPECT_EQ(oClient.Block(2), (std::vector<int>{255, 0, 0, 0})); // a finished block is told once

    const std::string strCame = "8 source/QuorvelClientAWire: aWire Write Status Indication.";
    const std::string strFailed = "2 source/QuorvelClientAWire: Received ";
    EXPECT_EQ(oTraces.Take(), (std::vector<std::string>{
                                  strCame, strFailed + "incomplete aWire Write Status Indication.", strCame,
                                  strFailed + "aWire Write Status Indication for unknown block.", strCame,
                                  strCame, strCame}));

    // What cannot be sent leaves nothing behind.
    EXPECT_EQ(oClient.WriteBlock(0, 65523, std::string(65523, 'x').data(), nID), 0x00020000);
    EXPECT_EQ(nID, 4);
    EXPECT_EQ(oClient.Block(4)[0], 255);
    EXPECT_EQ(oClient.Close(), 0);
    EXPECT_EQ(oClient.WriteBlock(0, 1, "x", nID), 0x00030000);
    EXPECT_EQ(oClient.Block(nID)[0], 255);
}

TEST(AWireTest, ChunksEndAtBoundaries)
{
    const struct {
        const char* pPageSize; // as in a telegram
        unsigned int nAddress;
        std::size_t nLength;
        std::vector<std::string> astrChunks; // address and length as in a telegram
    } aoRows[] = {
        {"00 01 00 00", 0x1F00, 1000, {"00 1f 00 00 e8 03"}},
        {"00 01 00 00", 0x7F00, 40000, {"00 7f 00 00 00 01", "00 80 00 00 00 80", "00 00 01 00 40 1b"}},
        {"b8 0b 00 00", 100, 29901, {"64 00 00 00 cc 74", "30 75 00 00 01 00"}}, // 3000, so 30000
        {"01 80 00 00", 1, 32768, {"01 00 00 00 ff 7f", "00 80 00 00 01 00"}},   // 32769
    };
    for (const auto& oRow : aoRows) {
        CTestPeer oPeer;
        CClient oClient("127.0.0.1", oPeer.GetPort());
        oPeer.Confirm("00 00 00 00 00 00 00 00 00 00 00 00 00 " + std::string(oRow.pPageSize));
        for (char c = 3; c < 3 + static_cast<char>(oRow.astrChunks.size()); ++c)
            oPeer.Raw(Telegram(0x0EE1, 0, std::string{c, 0, 0, 0, 0}));
        oPeer.Confirm("26"); // to the first verification
        EXPECT_EQ(oClient.WriteFile(File(Records(oRow.nAddress, Pattern(oRow.nLength)))), 0);
        EXPECT_EQ(oPeer.TakeRequest(), "05 00 06 0e 02 00 0a");
        for (const std::string& strChunk : oRow.astrChunks)
            EXPECT_EQ(oPeer.TakeRequest().substr(18, 17), strChunk);
        EXPECT_EQ(oPeer.TakeRequest().substr(6, 5), "e3 0e");
        EXPECT_TRUE(oClient.WaitForFile(FileStep::eFailed, 100));
    }
}

TEST(AWireTest, AFileIsSentAsItsBlocksAreReported)
{
    CTestPeer oPeer;
    CClient oClient("127.0.0.1", oPeer.GetPort());
    const std::string& strFile = File(Records(0x1F00, Pattern(1000)) + Records(0x7F00, Pattern(80000)));
    const auto fnReport = [&](const char* pData) { oPeer.Send(Telegram(0x0EE1, 0, Hex(pData))); };
    oPeer.Confirm("00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00");
    EXPECT_EQ(oClient.WriteFile(strFile), 0);
    for (int i = 0; i < 3; ++i) // the page size, a whole memory block, and the next without waiting
        EXPECT_NE(oPeer.TakeRequest(), "none");
    // Two are pending, so nothing more comes: neither with one in progress nor with a report for nobody.
    fnReport("03 00 01 2a 03");
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eWriting, 1)); // 810 bytes of 81000
    short nID = 0;
    EXPECT_EQ(oClient.WriteFile(strFile), 0x0E21);
    EXPECT_EQ(oClient.WriteBlock(0, 1, "x", nID), 0x0E21);
    EXPECT_EQ(oClient.WriteUserPage(0, 1, "x", nID), 0x0E21);
    oPeer.Confirm("00");
    EXPECT_EQ(oClient.EraseUserPage(), 0);
    EXPECT_EQ(oPeer.TakeRequest(), "05 00 e5 0e 05 00 ee"); // id 5: no third block was sent

    fnReport("03 00 00 e8 03");
    EXPECT_EQ(oPeer.TakeRequest().substr(12, 23), "06 00 00 80 00 00 00 80");
    fnReport("04 00 00 00 01");
    EXPECT_EQ(oPeer.TakeRequest().substr(12, 23), "07 00 00 00 01 00 00 80");
    fnReport("06 00 01 b0 b3");
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eWriting, 58)); // 1256 and 46000 bytes
    fnReport("06 00 00 00 80");
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eWriting, 42)); // 1256 and 32768 bytes
    fnReport("07 00 01 ff ff");
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eWriting, 100)); // never more, whatever is reported
    fnReport("07 00 03 00 00");
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eFailed, 100));
    EXPECT_EQ(oClient.File(), (std::vector<int>{255, 0, 0})); // the end is told once
    EXPECT_EQ(oClient.WriteBlock(0, 1, "x", nID), 0);
}

TEST(AWireTest, FilesEndUpInTheTarget)
{
    STarget oTarget;
    CClient& oClient = *oTarget.pClient;
    oTarget.oGateway.SetPageTime(100us);
    EXPECT_EQ(oClient.WriteFile(File(Records(FLASH + 0x1F0, Pattern(200000)))), 0);
    std::filesystem::remove(File("")); // no longer needed
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eFinished, 100));
    EXPECT_EQ(oClient.File()[0], 255);
    EXPECT_EQ(oTarget.oGateway.Peek(FLASH + 0x1F0, 200000), Pattern(200000));
    EXPECT_EQ(oTarget.oGateway.Peek(FLASH + 0x1F0 + 200000, 1), "\xFF");
    EXPECT_EQ(oTarget.oGateway.GetStatistics().nMaxPending, 2U);

    short nID = 0;
    EXPECT_EQ(oClient.WriteUserPage(3, 5, "fuses", nID), 0);
    EXPECT_TRUE(WaitUntil([&] { return oClient.Block(nID)[1] == 0; }));
    char acData[6] = "";
    unsigned short nRead = 0;
    EXPECT_EQ(oClient.Read(FLASH + 0x100003, 5, acData, nRead), 0);
    EXPECT_STREQ(acData, "fuses");
    EXPECT_EQ(oClient.EraseUserPage(), 0);
    EXPECT_EQ(oClient.Erase(0), 0);
    EXPECT_EQ(oTarget.oGateway.Peek(FLASH + 0x100003, 5), "\xFF\xFF\xFF\xFF\xFF");
    EXPECT_EQ(oTarget.oGateway.Peek(FLASH + 0xFFFF, 1), "\xFF");
    EXPECT_NE(oTarget.oGateway.Peek(FLASH + 0x10000, 1), "\xFF");

    EXPECT_EQ(oClient.Erase(16), 0x0E25);
    EXPECT_EQ(oClient.Read(FLASH + 0x1001FF, 2, acData, nRead), 0x0E26);
    EXPECT_EQ(oClient.SetConfig(999, FLASH, 0x100000, 512, ""), 0x0E22);
    EXPECT_EQ(oClient.SetConfig(1000, FLASH, 0x100000, 511, ""), 0x0E23);
    oTarget.oGateway.SetPageTime(10s);
    EXPECT_EQ(oClient.WriteUserPage(0, 1, "x", nID), 0);
    EXPECT_EQ(oClient.EraseUserPage(), 0x0E21);

    // Nothing to do is 0 percent, then done.
    const std::string& strEmpty = File(":00000001FF\n");
    const CQuorvelClientAWire::CWriteFileThread oThread(oClient, strEmpty);
    EXPECT_EQ(oThread.GetPercent(FileStep::eWriting), 0);
    EXPECT_EQ(oThread.GetPercent(FileStep::eVerifying), 0);
    EXPECT_EQ(oClient.WriteFile(strEmpty), 0);
    EXPECT_TRUE(oClient.WaitForFile(FileStep::eFinished, 100));
}

TEST(AWireTest, PercentOfALargeFile)
{
    STarget oTarget;
    EXPECT_EQ(oTarget.pClient->SetConfig(1000000, 0, 0x4000000, 512, ""), 0);
    const std::string& strFile = File(std::string(1, '\0'));
    std::filesystem::resize_file(strFile, 46000000);
    oTarget.oGateway.SetFault(EFault::eNever, 1400); // 1399 chunks are 45842432 bytes, times 100 over 2^32
    EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
    EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eWriting, 99));
}

TEST(AWireTest, EveryFailureEndsTheTransfer)
{
    const std::string strImage = Records(FLASH, Pattern(100000));
    const struct {
        std::string strFile;
        EFault eFault;
        unsigned char nStatus;
        int nStep;
    } aoRows[] = {
        {strImage, EFault::eRefuse, 2, FileStep::eFailed},
        {strImage, EFault::eRefuse, 0, FileStep::eFailed}, // told as written, and it was not
        {strImage, EFault::eUnknownID, 2, FileStep::eFinished},
        {strImage, EFault::eTwice, 2, FileStep::eFinished},
        {strImage, EFault::eGarbage, 2, FileStep::eFinished},
        {strImage + Records(FLASH + 0xFFFFF, "ab"), EFault::eNone, 2, FileStep::eFailed}, // does not fit
        {Records(FLASH - 1, "a"), EFault::eNone, 2, FileStep::eFailed},
        {"", EFault::eNone, 2, FileStep::eFailed},
        {":00000001FF\nS1", EFault::eNone, 2, FileStep::eFailed},
    };
    for (const auto& oRow : aoRows) {
        STarget oTarget;
        oTarget.oGateway.SetFault(oRow.eFault, 2, oRow.nStatus);
        EXPECT_EQ(oTarget.pClient->WriteFile(File(oRow.strFile)), 0);
        EXPECT_TRUE(oTarget.pClient->WaitForFile(oRow.nStep, 100)) << &oRow - aoRows;
        EXPECT_EQ(oTarget.pClient->File()[0], 255);
    }

    STarget oTarget;
    EXPECT_EQ(oTarget.pClient->WriteFile("/nowhere/to/be/found"), 0);
    EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eFailed, 100));
    // Not erased before.
    EXPECT_EQ(oTarget.pClient->WriteFile(File(strImage)), 0);
    EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eFinished, 100));
    EXPECT_EQ(oTarget.pClient->WriteFile(File(Records(FLASH, "other"))), 0);
    EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eFailed, 100));
}

TEST(AWireTest, TransfersThatDoNotStart)
{
    CTestPeer oPeer;
    CClient oClient("127.0.0.1", oPeer.GetPort());
    const std::string& strFile = File(Records(0, "a"));
    oPeer.Confirm("23");
    EXPECT_EQ(oClient.WriteFile(strFile), 0x0E23);
    EXPECT_EQ(oClient.File()[0], 255);
    oPeer.Confirm("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(oClient.WriteFile(strFile), 0); // success, though without a page size nothing is done
    EXPECT_EQ(oClient.File()[0], 255);
    oPeer.Confirm("00");
    EXPECT_EQ(oClient.SetConfig(0, 0, 0, 512, ""), 0); // from now on the page size is known
    pthread_attr_t oUsual;
    pthread_attr_t oHuge; // no thread can have such a stack
    ASSERT_EQ(pthread_getattr_default_np(&oUsual) + pthread_attr_init(&oHuge) +
                  pthread_attr_setstacksize(&oHuge, std::size_t{1} << 47) +
                  pthread_setattr_default_np(&oHuge),
              0);
    EXPECT_EQ(oClient.WriteFile(strFile), 255);
    ASSERT_EQ(pthread_setattr_default_np(&oUsual), 0);
    EXPECT_EQ(oClient.File()[0], 255);
    EXPECT_EQ(oClient.WriteFile(strFile), 0);
    EXPECT_EQ(oClient.File()[0], 0);
}

TEST(AWireTest, AskedToTerminateItEndsAsFinished)
{
    STarget oTarget;
    oTarget.oGateway.SetFault(EFault::eNever);
    const std::string& strFile = File(Records(FLASH, Pattern(100000)));
    CQuorvelClientAWire::CWriteFileThread oThread(*oTarget.pClient, strFile);
    EXPECT_EQ(oThread.GetStep(), FileStep::eNotStarted);
    EXPECT_EQ(oThread.GetPercent(FileStep::eNotStarted), 0);
    EXPECT_TRUE(oThread.Create());
    EXPECT_TRUE(oTarget.WaitForWrites(2));
    EXPECT_EQ(oThread.GetStep(), FileStep::eWriting);
    oThread.Terminate();
    oThread.WaitForEnd();
    EXPECT_EQ(oThread.GetStep(), FileStep::eFinished);
}

TEST(AWireTest, DestroyingTheClientInAnyState)
{
    const std::string strOne = Records(FLASH, Pattern(100000)); // waits with two pending
    const std::string strMany = Records(FLASH, "a") + Records(FLASH + 2, "b") + Records(FLASH + 4, "c");
    for (const auto& [pFile, nWrites] : {std::pair{&strOne, 2U}, {&strMany, 3U}}) {
        STarget oTarget;
        oTarget.oGateway.SetFault(EFault::eNever);
        EXPECT_EQ(oTarget.pClient->WriteFile(File(*pFile)), 0);
        EXPECT_TRUE(oTarget.WaitForWrites(nWrites));
        EXPECT_LT(Milliseconds([&] { oTarget.pClient.reset(); }), LONG / 2);
    }
    {
        STarget oTarget("drop@2-", 1000); // no answer when verifying: the exchange takes its time-out
        EXPECT_EQ(oTarget.pClient->WriteFile(File(strOne)), 0);
        EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eVerifying, 0));
        EXPECT_LT(Milliseconds([&] { oTarget.pClient.reset(); }), 1900);
    }
    for (unsigned int i = 0; i < 40; ++i) { // anywhere
        STarget oTarget;
        EXPECT_EQ(oTarget.pClient->WriteFile(File(strOne)), 0);
        EXPECT_TRUE(WaitUntil([&] {
            return oTarget.oGateway.GetRequestCount() >= i % 10 || oTarget.pClient->File()[0] == 255;
        }));
        EXPECT_LT(Milliseconds([&] { oTarget.pClient.reset(); }), LONG / 2);
    }
}

TEST(AWireTest, LosingTheGatewayFailsTheTransfer)
{
    const std::string& strFile = File(Records(FLASH, Pattern(100000)));
    const auto fnFails = [&](const std::function<void(STarget&)>& fnLose) {
        STarget oTarget;
        oTarget.oGateway.SetFault(EFault::eNever);
        EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
        EXPECT_TRUE(oTarget.WaitForWrites(2));
        EXPECT_LT(Milliseconds([&] {
                      fnLose(oTarget);
                      EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eFailed, 100));
                  }),
                  LONG / 2);
    };
    fnFails([](STarget& oTarget) { oTarget.oGateway.DropConnections(); });
    fnFails([](STarget& oTarget) { oTarget.oGateway.Stop(); });
    fnFails([](STarget& oTarget) { EXPECT_EQ(oTarget.pClient->Close(), 0); });
    fnFails([](STarget& oTarget) { // within an indication
        oTarget.pClient->m_fnRespond = [&] { EXPECT_EQ(oTarget.pClient->Close(), 0); };
        EXPECT_TRUE(oTarget.oGateway.SendIndication(0x0EE1, 0, "12345"));
    });
    STarget oTarget("close@2", 500); // instead of the first bytes to verify
    EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
    EXPECT_TRUE(oTarget.pClient->WaitForFile(FileStep::eFailed, 100));
}

TEST(AWireTest, ClosingAHandleWithinAnIndicationDuringATransfer)
{
    CSimGatewayAWire oGateway;
    ASSERT_TRUE(oGateway.Start("127.32.2.1", 5013));
    const std::string& strFile = File(Records(FLASH, Pattern(100000)));
    int nHandle = 0;
    ASSERT_EQ(CDeviceManager::OpenDevice(&nHandle, "127.32.2.1", LONG, eDeviceAWire, 0, 1, true), 0);
    auto* const pClient = dynamic_cast<CQuorvelClientAWire*>(CDeviceManager::GetDevice(nHandle)->m_pClient);
    ASSERT_NE(pClient, nullptr);
    EXPECT_EQ(pClient->WriteFile(strFile), 0);
    CTraceServer::SetSink(
        [&](const STraceMessage& oMessage) {
            EXPECT_STREQ(oMessage.pText, "aWire Write Status Indication.");
            EXPECT_EQ(CDeviceManager::CloseDevice(nHandle), 0);
        },
        8);
    EXPECT_TRUE(oGateway.WaitForConnections(0, LONG));
    CTraceServer::SetSink({});
    EXPECT_EQ(CDeviceManager::GetDevice(nHandle), nullptr);
}

TEST(AWireTest, ManyThreadsOnOneClient)
{
    STarget oTarget;
    const std::string& strFile = File(Records(FLASH, Pattern(40000)));
    std::atomic<int> nFinished{0};
    std::vector<std::thread> aoThreads;
    for (int i = 0; i < 4; ++i) {
        aoThreads.emplace_back([&] {
            WaitUntil([&] {
                oTarget.pClient->WriteFile(strFile); // or 0x0E21
                short nID = 0;
                oTarget.pClient->WriteUserPage(0, 1, "x", nID);
                const int nStep = oTarget.pClient->File()[1];
                EXPECT_NE(nStep, FileStep::eFailed);
                return (nFinished += nStep == FileStep::eFinished ? 1 : 0) >= 20;
            });
        });
    }
    for (std::thread& oThread : aoThreads)
        oThread.join();
    EXPECT_GE(nFinished, 20);
}
