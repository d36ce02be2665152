// The aWire programmer: its telegrams byte by byte, and transfers that go wrong on a simulated target. Whole jobs
// are examples/awire_flash.cpp and awire_compare.cpp. Runs under the thread sanitizer too.

#include "ConnectedTest.h"
#include "DeviceManager.h"
#include "QuorvelClientAWire.h"
#include "SimGatewayAWire.h"

#include <filesystem>
#include <iomanip>

namespace
{

using AWireTest = CConnectedTest<CQuorvelClientAWire, 0x0E00>;
using Progress = CQuorvelClientAWire::Progress;
using FileStep = CQuorvelClientAWire::FileStep;
using EFault = CSimGatewayAWire::EFault;
using CStatus = std::vector<int>;
using namespace std::chrono_literals;

constexpr int LONG = 10000;
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

// S-records of so many bytes at an address, no two chunks alike; nobody tests the checksums.
std::string Records(unsigned int nAddress, unsigned int nLength)
{
    std::ostringstream oText;
    oText << std::hex << std::setfill('0');
    for (unsigned int i = 0; i < nLength; ++i)
        oText << "S306" << std::setw(8) << nAddress + i << std::setw(2) << (i * 7 + i / 251) % 256 << "00\n";
    return oText.str();
}

// What is known of a block: result, progress, length, done.
CStatus Block(CQuorvelClientAWire& oClient, short nID)
{
    Progress::EProgress eProgress{};
    unsigned short nLength = 0;
    unsigned short nDone = 0;
    const int nRC = oClient.GetWriteBlockStatus(nID, eProgress, nLength, nDone);
    return {nRC, static_cast<int>(eProgress), nLength, nDone};
}

// What is known of the file: result, step, percent.
CStatus Transfer(CQuorvelClientAWire& oClient)
{
    FileStep::EFileStep eStep{};
    unsigned char nPercent = 0;
    const int nRC = oClient.GetWriteFileStatus(eStep, nPercent);
    return {nRC, eStep, nPercent};
}

bool WaitForTransfer(CQuorvelClientAWire& oClient, int nStep, int nPercent)
{
    return WaitUntil([&] { return Transfer(oClient) == CStatus{0, nStep, nPercent}; });
}

// A simulated target without delay, and a client of it.
struct STarget {
    explicit STarget(EFault eFault = EFault::eNone, unsigned int nBlock = 1, unsigned char nStatus = 2)
    {
        oGateway.SetPageTime(0us);
        oGateway.SetFault(eFault, nBlock, nStatus);
        EXPECT_TRUE(oGateway.Start("127.32.1.1", 0));
        EXPECT_EQ(pClient->Connect("127.32.1.1", oGateway.GetPort(), 1, true), 0);
        EXPECT_EQ(pClient->Open(), 0);
    }
    bool WaitForWrites(unsigned int nWrites) const
    {
        return WaitUntil([=, this] { return oGateway.GetStatistics().nWrites == nWrites; });
    }

    CSimGatewayAWire oGateway;
    std::unique_ptr<CQuorvelClientAWire> pClient = std::make_unique<CQuorvelClientAWire>(LONG);
};

} // namespace

TEST_F(AWireTest, Commands)
{
    auto& o = m_oClient;
    const std::string strUnit = "4 source/QuorvelClientAWire: ";
    unsigned int an[4] = {1, 2, 3, 4};
    std::string strName = "none";
    char acData[] = "....";
    unsigned short nRead = 9;
    Check([&] { return o.SetConfig(1000000, FLASH, 0x100000, 512, "chip"); },
          "19 00 05 0e 02 00 40 42 0f 00 00 00 00 10 00 00 10 00 00 02 00 00 63 68 69 70 14",
          strUnit + "SET CONFIG");
    // Log readers rely on the text of SetConfig.
    Check([&] { return o.GetConfig(an[0], an[1], an[2], an[3], strName); }, "05 00 06 0e 02 00 0a",
          strUnit + "SET CONFIG");
    Check([&] { return o.Erase(258); }, "07 00 e2 0e 02 00 02 01 ed", strUnit + "ERASE BLOCK", ", block=258");
    Check([&] { return o.EraseUserPage(); }, "05 00 e5 0e 02 00 e9", strUnit + "ERASE USER PAGE");
    Check([&] { return o.Read(FLASH + 16, 3, acData, nRead); }, "0b 00 e3 0e 02 00 10 00 00 10 03 00 ec",
          strUnit + "READ BLOCK", ", offset=0x10000010, length=0x3");

    m_oPeer.Confirm("00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00"); // a byte is missing
    EXPECT_EQ(o.GetConfig(an[3], an[2], an[1], an[0], strName), 0);
    EXPECT_EQ(CNumbers(an, an + 4), (CNumbers{1, 2, 3, 4}));
    EXPECT_EQ(strName, "none");
    m_oPeer.Confirm("00 44 33 22 11 88 77 66 55 cc bb aa 99 00 02 00 00 61 62");
    EXPECT_EQ(o.GetConfig(an[0], an[1], an[2], an[3], strName), 0);
    EXPECT_EQ(CNumbers(an, an + 4), (CNumbers{0x11223344, 0x55667788, 0x99AABBCC, 512}));
    EXPECT_EQ(strName, "ab");

    nRead = 9;
    const auto fnRead = [&](const char* pConfirmation) {
        m_oPeer.Confirm(pConfirmation);
        const int nRC = o.Read(FLASH + 16, 3, acData, nRead);
        return std::to_string(nRC) + " " + std::to_string(nRead) + " " + acData;
    };
    EXPECT_EQ(fnRead("00 61"), "0 1 a...");
    EXPECT_EQ(fnRead("00 42 43 44 45"), "0 3 BCD.");
    const auto fnVerify = [&](const char* pConfirmation) {
        m_oPeer.Confirm(pConfirmation);
        return o.Verify(FLASH + 16, 3, "ABC");
    };
    CTraceRecorder oTraces(0x0F);
    EXPECT_EQ(fnVerify("00 41 42 43 44"), 0);
    EXPECT_EQ(oTraces.Take(),
              CTexts{strUnit + "READ BLOCK requested to 127.0.0.1, offset=0x10000010, length=0x3"});
    EXPECT_EQ(fnVerify("00 41 42 44"), 0x0EFF);
}

TEST_F(AWireTest, BlockWritesAndTheirStatus)
{
    auto& o = m_oClient;
    CTraceRecorder oTraces(0x06);
    const auto fnReport = [&](const char* pData, unsigned int nCode = 0x0EE1) {
        m_oPeer.Send(Telegram(nCode, 0, Hex(pData)));
    };
    short nID = 0;
    EXPECT_EQ(Block(o, 2), (CStatus{255, 0, 0, 0}));
    EXPECT_EQ(o.WriteBlock(FLASH + 512, 3, "ABC", nID), 0);
    EXPECT_EQ(m_oPeer.TakeRequest(), "0e 00 e0 0e 02 00 00 02 00 10 03 00 41 42 43 bd");
    EXPECT_EQ(o.WriteUserPage(8, 1, "D", nID), 0);
    EXPECT_EQ(m_oPeer.TakeRequest(), "0c 00 e4 0e 03 00 08 00 00 00 01 00 44 a4");
    EXPECT_EQ(Block(o, 2), (CStatus{0, 1, 3, 0}));
    fnReport("02 00 00 03 00", 0x0EE0); // not a report
    fnReport("02 00 00 03");            // incomplete
    fnReport("04 00 00 03 00");         // of an unknown block
    fnReport("02 00 01 02 00 ff");
    EXPECT_TRUE(WaitUntil([&] { return Block(o, 2) == CStatus{0, 1, 3, 2}; }));
    fnReport("03 00 a7 34 12"); // any other status is handed on, and is told again and again
    EXPECT_TRUE(WaitUntil([&] { return Block(o, 3) == CStatus{0, 0xA7, 1, 0x1234}; }));
    EXPECT_EQ(Block(o, 3), (CStatus{0, 0xA7, 1, 0x1234}));
    fnReport("02 00 00 03 00");
    EXPECT_TRUE(WaitUntil([&] { return Block(o, 2) == CStatus{0, 0, 3, 3}; }));
    EXPECT_EQ(Block(o, 2), (CStatus{255, 0, 0, 0})); // a finished block is told once

    CTexts astrTexts = {"4WRITE BLOCK requested to 127.0.0.1, offset=0x10000200, length=0x3",
                        "4WRITE USER PAGE requested to 127.0.0.1",
                        "2Received incomplete aWire Write Status Indication.",
                        "2Received aWire Write Status Indication for unknown block."};
    for (std::string& strText : astrTexts)
        strText.insert(1, " source/QuorvelClientAWire: ");
    EXPECT_EQ(oTraces.Take(), astrTexts);

    // What cannot be sent leaves nothing behind.
    EXPECT_EQ(o.WriteBlock(0, 65523, std::string(65523, 'x').data(), nID), 0x00020000);
    EXPECT_EQ(Block(o, 4)[0], 255);
    struct CThrowing : CQuorvelClientAWire {
        CThrowing() : CQuorvelClientAWire(LONG) {}
        ~CThrowing() override { StopReception(); }
        int SendMsg(const CQuorvelMsg& /*oMsg*/) override { throw std::bad_alloc(); }
    } oThrowing;
    nID = -7;
    EXPECT_EQ(oThrowing.WriteBlock(0, 1, "x", nID), 0xFF);
    EXPECT_EQ(Block(oThrowing, nID), (CStatus{255, 0, 0, 0}));
}

TEST_F(AWireTest, ChunksEndAtBoundaries)
{
    const struct {
        unsigned int nPageSize, nAddress, nLength;
        CTexts astrChunks; // address and length as in a telegram
    } aoRows[] = {
        {256, 0x1F00, 1000, {"00 1f 00 00 e8 03"}},
        {256, 0x7F00, 40000, {"00 7f 00 00 00 01", "00 80 00 00 00 80", "00 00 01 00 40 1b"}},
        {3000, 100, 29901, {"64 00 00 00 cc 74", "30 75 00 00 01 00"}}, // up to 30000
        {32769, 1, 32768, {"01 00 00 00 ff 7f", "00 80 00 00 01 00"}},
    };
    for (const auto& oRow : aoRows) {
        m_oClient.Open();
        m_oPeer.Confirm("00");
        EXPECT_EQ(m_oClient.SetConfig(0, 0, 0, oRow.nPageSize, ""), 0);
        m_oPeer.TakeRequest();
        for (char c = 3; c < 3 + static_cast<char>(oRow.astrChunks.size()); ++c)
            m_oPeer.Raw(Telegram(0x0EE1, 0, std::string{c, 0, 0, 0, 0}));
        m_oPeer.Confirm("26"); // to the first verification
        EXPECT_EQ(m_oClient.WriteFile(File(Records(oRow.nAddress, oRow.nLength))), 0);
        for (const std::string& strChunk : oRow.astrChunks)
            EXPECT_EQ(m_oPeer.TakeRequest().substr(18, 17), strChunk);
        EXPECT_EQ(m_oPeer.TakeRequest().substr(6, 5), "e3 0e");
        EXPECT_TRUE(WaitForTransfer(m_oClient, FileStep::eFailed, 100));
    }
}

TEST_F(AWireTest, EveryByteIsVerified)
{
    std::string strContent(40000, 'x');
    const std::string& strFile = File(strContent);
    for (const char cLast : {'x', 'y'}) {
        m_oClient.Open();
        m_oPeer.Confirm("00");
        EXPECT_EQ(m_oClient.SetConfig(0, 0, 0, 256, ""), 0);
        for (const char c : {'\3', '\4'})
            m_oPeer.Raw(Telegram(0x0EE1, 0, std::string{c, 0, 0, 0, 0}));
        m_oPeer.Raw(Telegram(0x8EE3, 5, '\0' + strContent.substr(0, 32768)));
        EXPECT_EQ(m_oClient.WriteFile(strFile), 0);
        for (int i = 0; i < 3; ++i) // the page size and two chunks
            m_oPeer.TakeRequest();
        EXPECT_EQ(m_oPeer.TakeRequest(), "0b 00 e3 0e 05 00 00 00 00 00 00 80 68");
        EXPECT_EQ(m_oPeer.TakeRequest(), "0b 00 e3 0e 06 00 00 80 00 00 40 1c 37");
        EXPECT_TRUE(WaitForTransfer(m_oClient, FileStep::eVerifying, 81));
        strContent.back() = cLast;
        m_oPeer.Send(Telegram(0x8EE3, 6, '\0' + strContent.substr(32768)));
        EXPECT_TRUE(WaitForTransfer(m_oClient, cLast == 'x' ? FileStep::eFinished : FileStep::eFailed, 100));
    }
}

TEST_F(AWireTest, AFileIsSentAsItsBlocksAreReported)
{
    const std::string& strFile = File(Records(0x1F00, 1000) + Records(0x7F00, 80000));
    const auto fnReport = [&](const char* pData) { m_oPeer.Send(Telegram(0x0EE1, 0, Hex(pData))); };
    m_oPeer.Confirm("00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00");
    EXPECT_EQ(m_oClient.WriteFile(strFile), 0);
    for (int i = 0; i < 3; ++i) // the page size, a whole memory block, and the next without waiting
        EXPECT_NE(m_oPeer.TakeRequest(), "none");
    // Two are pending, so nothing more comes: neither with one in progress nor with a report for nobody.
    fnReport("03 00 01 2a 03");
    EXPECT_TRUE(WaitForTransfer(m_oClient, FileStep::eWriting, 1)); // 810 bytes of 81000
    short nID = 0;
    EXPECT_EQ(m_oClient.WriteFile(strFile), 0x0E21);
    EXPECT_EQ(m_oClient.WriteBlock(0, 1, "x", nID), 0x0E21);
    EXPECT_EQ(m_oClient.WriteUserPage(0, 1, "x", nID), 0x0E21);
    m_oPeer.Confirm("00");
    EXPECT_EQ(m_oClient.EraseUserPage(), 0);
    EXPECT_EQ(m_oPeer.TakeRequest(), "05 00 e5 0e 05 00 ee"); // id 5: no third block was sent

    fnReport("03 00 00 e8 03");
    EXPECT_EQ(m_oPeer.TakeRequest().substr(12, 23), "06 00 00 80 00 00 00 80");
    fnReport("04 00 00 00 01");
    EXPECT_EQ(m_oPeer.TakeRequest().substr(12, 23), "07 00 00 00 01 00 00 80");
    fnReport("06 00 01 b0 b3");
    EXPECT_TRUE(WaitForTransfer(m_oClient, FileStep::eWriting, 58)); // 1256 and 46000 bytes
    fnReport("06 00 00 00 80");
    fnReport("07 00 01 ff ff");
    EXPECT_TRUE(WaitForTransfer(m_oClient, FileStep::eWriting, 100)); // never more, whatever is reported
    fnReport("07 00 03 00 00");
    EXPECT_TRUE(WaitForTransfer(m_oClient, FileStep::eFailed, 100));
    EXPECT_EQ(Transfer(m_oClient), (CStatus{255, 0, 0})); // the end is told once
    EXPECT_EQ(m_oClient.WriteBlock(0, 1, "x", nID), 0);
}

TEST(AWireTargetTest, PercentOfALargeFile)
{
    STarget oTarget(EFault::eNever, 1400); // 1399 chunks are 45842432 bytes, times 100 over 2^32
    EXPECT_EQ(oTarget.pClient->SetConfig(1000000, 0, 0x4000000, 512, ""), 0);
    const std::string& strFile = File(std::string(1, '\0'));
    std::filesystem::resize_file(strFile, 46000000);
    EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
    EXPECT_TRUE(WaitForTransfer(*oTarget.pClient, FileStep::eWriting, 99));
}

TEST(AWireTargetTest, EveryFailureEndsTheTransfer)
{
    const std::string& strFile = File(Records(FLASH, 70000));
    const struct {
        EFault eFault;
        unsigned char nStatus;
        int nStep;
    } aoRows[] = {
        {EFault::eRefuse, 2, FileStep::eFailed},
        {EFault::eRefuse, 0, FileStep::eFailed}, // told as written, and it was not
        {EFault::eUnknownID, 2, FileStep::eFinished},
        {EFault::eGarbage, 2, FileStep::eFinished},
    };
    for (const auto& oRow : aoRows) {
        STarget oTarget(oRow.eFault, 2, oRow.nStatus);
        EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
        EXPECT_TRUE(WaitForTransfer(*oTarget.pClient, oRow.nStep, 100)) << &oRow - aoRows;
    }
    STarget oTarget;
    EXPECT_EQ(oTarget.pClient->WriteFile("/nowhere/to/be/found"), 0);
    EXPECT_TRUE(WaitForTransfer(*oTarget.pClient, FileStep::eFailed, 100));
}

TEST_F(AWireTest, TransfersThatDoNotStart)
{
    const std::string& strFile = File(Records(0, 1));
    m_oPeer.Confirm("22");
    EXPECT_EQ(m_oClient.SetConfig(0, 0, 0, 256, ""), 0x0E22); // so the page size is still asked for
    m_oPeer.Confirm("23");
    EXPECT_EQ(m_oClient.WriteFile(strFile), 0x0E23);
    m_oPeer.Confirm("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(m_oClient.WriteFile(strFile), 0); // success, though without a page size nothing is done
    EXPECT_EQ(Transfer(m_oClient)[0], 255);
}

TEST(AWireTargetTest, AskedToTerminateItEndsAsFinished)
{
    STarget oTarget(EFault::eNever);
    CQuorvelClientAWire::CWriteFileThread oThread(*oTarget.pClient, File(Records(FLASH, 70000)));
    EXPECT_TRUE(oThread.Create());
    EXPECT_TRUE(oTarget.WaitForWrites(2));
    EXPECT_EQ(oThread.GetStep(), FileStep::eWriting);
    oThread.Terminate();
    oThread.WaitForEnd();
    EXPECT_EQ(oThread.GetStep(), FileStep::eFinished);

    // A block that somebody else has asked for is no longer waited for.
    struct SThread : CQuorvelClientAWire::CWriteFileThread {
        using CWriteFileThread::CWriteFileThread;
        bool Drops()
        {
            m_anPending = {77, 78};
            UpdateStatus();
            return m_anPending.empty();
        }
    };
    EXPECT_TRUE(SThread(*oTarget.pClient, File("x")).Drops());

    // Of nothing, nothing is done.
    const CQuorvelClientAWire::CWriteFileThread oEmpty(*oTarget.pClient, File(":00000001FF\n"));
    EXPECT_EQ(oEmpty.GetPercent(FileStep::eWriting), 0);
}

TEST(AWireTargetTest, DestroyingTheClientInAnyState)
{
    const std::string& strFile = File(Records(FLASH, 70000));
    {
        STarget oTarget(EFault::eNever);
        EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
        EXPECT_TRUE(oTarget.WaitForWrites(2));
        EXPECT_LT(Milliseconds([&] { oTarget.pClient.reset(); }), LONG / 2);
    }
    for (unsigned int i = 0; i < 40; ++i) { // anywhere
        STarget oTarget;
        EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
        EXPECT_TRUE(WaitUntil([&] {
            return oTarget.oGateway.GetRequestCount() >= i % 10 || Transfer(*oTarget.pClient)[0] == 255;
        }));
        EXPECT_LT(Milliseconds([&] { oTarget.pClient.reset(); }), LONG / 2);
    }
}

TEST(AWireTargetTest, LosingTheGatewayFailsTheTransfer)
{
    const std::string& strFile = File(Records(FLASH, 70000));
    const auto fnFails = [&](const std::function<void(STarget&)>& fnLose) {
        STarget oTarget(EFault::eNever);
        EXPECT_EQ(oTarget.pClient->WriteFile(strFile), 0);
        EXPECT_TRUE(oTarget.WaitForWrites(2));
        fnLose(oTarget);
        EXPECT_TRUE(WaitForTransfer(*oTarget.pClient, FileStep::eFailed, 100));
    };
    fnFails([](STarget& oTarget) { oTarget.oGateway.DropConnections(); });
    fnFails([](STarget& oTarget) { EXPECT_EQ(oTarget.pClient->Close(), 0); });
}

TEST(AWireTargetTest, ClosingAHandleWithinAnIndicationDuringATransfer)
{
    CSimGatewayAWire oGateway;
    ASSERT_TRUE(oGateway.Start("127.32.2.1", 5013));
    const std::string& strFile = File(Records(FLASH, 70000));
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

TEST(AWireTargetTest, ManyThreadsOnOneClient)
{
    STarget oTarget;
    const std::string& strFile = File(Records(FLASH, 40000));
    std::atomic<int> nFinished{0};
    std::vector<std::thread> aoThreads;
    for (int i = 0; i < 4; ++i) {
        aoThreads.emplace_back([&] {
            WaitUntil([&] {
                oTarget.pClient->WriteFile(strFile); // or 0x0E21
                short nID = 0;
                oTarget.pClient->WriteUserPage(0, 1, "x", nID);
                const int nStep = Transfer(*oTarget.pClient)[1];
                EXPECT_NE(nStep, FileStep::eFailed);
                return (nFinished += nStep == FileStep::eFinished ? 1 : 0) >= 20;
            });
        });
    }
    for (std::thread& oThread : aoThreads)
        oThread.join();
    EXPECT_GE(nFinished, 20);
}
