// Memory images: the model, reading, writing, dumps, and what other programs make of the same files.

#include "QuorvelHexfile.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <sys/stat.h>

namespace
{

using CImage = CQuorvelHexfile;

// The blocks as "address:bytes", in hexadecimal.
std::string Blocks(const std::vector<CImage::SMemoryBlock*>& apBlocks)
{
    std::ostringstream oText;
    for (const CImage::SMemoryBlock* const p : apBlocks) {
        oText << (oText.tellp() > 0 ? " " : "") << std::hex << p->nAddress << ':';
        for (unsigned int i = 0; i < p->nLength; ++i)
            oText << (p->pData[i] >> 4 & 0xF) << (p->pData[i] & 0xF);
    }
    return oText.str();
}

class HexfileTest : public testing::Test
{
  protected:
    HexfileTest()
    {
        m_strDirectory = testing::TempDir() + "hexfile.XXXXXX";
        EXPECT_NE(mkdtemp(m_strDirectory.data()), nullptr);
        m_strDirectory += '/';
        m_strFile = m_strDirectory + "file";
    }
    ~HexfileTest() override { std::filesystem::remove_all(m_strDirectory); }

    std::string Write(const std::string& strBytes, const std::string& strName = "file") const
    {
        std::ofstream(m_strDirectory + strName, std::ios::binary) << strBytes;
        return m_strDirectory + strName;
    }
    std::string Read(const std::string& strName = "file") const
    {
        std::ostringstream oText;
        oText << std::ifstream(m_strDirectory + strName, std::ios::binary).rdbuf();
        return oText.str();
    }
    // Loads a file of these bytes into a new image: "result blocks".
    std::string Load(const std::string& strBytes, CImage::EType eType = CImage::eTypeAuto)
    {
        m_pImage = std::make_unique<CImage>();
        std::ostringstream oText;
        oText << std::hex << m_pImage->LoadFile(Write(strBytes).c_str(), eType) << ' '
              << Blocks(m_pImage->GetMemoryBlocks());
        // The message without its frame, which has a test of its own.
        m_strMessage = m_pImage->GetErrorMessage();
        m_strMessage.erase(0, std::min(m_strMessage.find("\n\n"), m_strMessage.size() - 2) + 2);
        m_strMessage = m_strMessage.substr(0, m_strMessage.find("\nIgnore"));
        return oText.str();
    }
    // What saving an image gives: the file, or the result.
    std::string Save(CImage& oImage, CImage::EType eType) const
    {
        const unsigned int nResult = oImage.SaveFile(m_strFile.c_str(), eType);
        return nResult == 0 ? Read() : std::to_string(nResult);
    }
    bool Tool(const std::string& strCommand) const
    {
        return std::system(("cd " + m_strDirectory + " && " + strCommand + " >>log 2>&1").c_str()) == 0;
    }

    std::string m_strDirectory;
    std::string m_strFile;
    std::string m_strMessage;
    std::unique_ptr<CImage> m_pImage;
};

} // namespace

TEST_F(HexfileTest, BlocksAndBytes)
{
    CImage oImage;
    oImage.AddMemoryBlock(0x100, "\x01\x02", 2);
    oImage.AddMemoryBlock(0x80, nullptr, 3);
    EXPECT_EQ(Blocks(oImage.GetMemoryBlocks()), "100:0102 80:000000");
    EXPECT_EQ(oImage.GetMinAddress(), 0U); // adding leaves it alone
    EXPECT_EQ(oImage.GetMaxAddress(), 0x101U);
    oImage.RecalcMinMax();
    EXPECT_EQ(oImage.GetMinAddress(), 0x80U);
    oImage.AddMemoryBlock(0x101, "\x55\x66", 2);
    EXPECT_EQ(oImage.GetDataByte(0x101), 2); // the first block that has it
    EXPECT_EQ(oImage.GetDataByte(0x102), 0x66);
    EXPECT_EQ(oImage.GetDataByte(0x90), 0);
    oImage.GetMemoryBlocks()[0]->nAddress += 0x1000; // above the highest address nobody looks
    EXPECT_EQ(oImage.GetDataByte(0x1101), 0);
    oImage.GetMemoryBlocks()[0]->nAddress -= 0x1000;
    EXPECT_EQ(oImage.GetTotalBytes(), 7U);
    oImage.SetDataByte(0x101, 0x77);
    oImage.SetDataByte(0x10, 0x11); // a block of its own, and a new minimum
    EXPECT_EQ(Blocks(oImage.GetMemoryBlocks()), "100:0177 80:000000 101:5566 10:11");
    EXPECT_EQ(oImage.GetMinAddress(), 0x10U);

    oImage.ClearMemoryBlocks();
    EXPECT_EQ(oImage.GetMinAddress(), 0x10U); // both stay
    EXPECT_EQ(oImage.GetMaxAddress(), 0x102U);
    oImage.RecalcMinMax();
    EXPECT_EQ(oImage.GetMinAddress(), 0x10U); // this one even now
    EXPECT_EQ(oImage.GetMaxAddress(), 0U);
    oImage.AddMemoryBlock(0, nullptr, 0);
    oImage.AddMemoryBlock(nullptr);
    EXPECT_EQ(oImage.GetMaxAddress(), 0U);
    oImage.AddMemoryBlock(0xFFFFFFFE, "\x01\x02\x03", 3); // the last byte has no address
    oImage.RecalcMinMax();
    EXPECT_EQ(oImage.GetMaxAddress(), 0xFFFFFFFFU);
    EXPECT_EQ(oImage.GetDataByte(0xFFFFFFFF), 2);
    EXPECT_EQ(Save(oImage, CImage::eTypeMotorola), "S307FFFFFFFE0102FA\n");

    const CImage::SMemoryBlock oOne(1, "ab", 2);
    EXPECT_TRUE(oOne == CImage::SMemoryBlock(9, "ab", 2)); // wherever it lies
    EXPECT_FALSE(oOne == CImage::SMemoryBlock(1, "ac", 2));
    EXPECT_FALSE(oOne == CImage::SMemoryBlock(1, "a", 1));
}

TEST_F(HexfileTest, MapNamesAndSizes)
{
    CImage::CByteMap oMap;
    std::vector<CImage::SMemoryBlock*> apBlocks;
    oMap.ToMemoryBlocks(apBlocks);
    EXPECT_EQ(Blocks(apBlocks), "");
    for (const unsigned int nAddress : {0x1000U, 0xFFFU, 0x1002U, 0xFFFFFFFFU, 0xFFFFFFFEU, 0U, 0xFFFU})
        oMap.SetByte(nAddress, static_cast<char>(apBlocks.size() + (nAddress >> 4 & 0xF) + 1));
    oMap.SetByte(0xFFF, 0x21); // the last value counts
    CImage oImage;
    oMap.ToMemoryBlocks(apBlocks);
    EXPECT_EQ(Blocks(apBlocks), "0:01 fff:2101 1002:01 fffffffe:1010");
    for (CImage::SMemoryBlock* const p : apBlocks)
        oImage.AddMemoryBlock(p);
    oMap.Clear();
    oMap.SetByte(0x1001, 1);
    oMap.ToMemoryBlocks(apBlocks);
    EXPECT_EQ(Blocks(apBlocks), "1001:01");
    oImage.AddMemoryBlock(apBlocks[0]);

    EXPECT_EQ(CImage::GetSizeString(0) + CImage::GetSizeString(2048) + CImage::GetSizeString(1025) +
                  CImage::GetSizeString(-1024),
              "0 kbyte2 kbyte1025 byte-1 kbyte");
    std::string strNames;
    for (const char* const pName :
         {"a", static_cast<const char*>(nullptr), static_cast<const char*>(nullptr)}) {
        oImage.SetFilename(pName);
        strNames += oImage.GetFilename() + ' ';
    }
    EXPECT_EQ(strNames, "a tmp1 tmp2 ");
}

TEST_F(HexfileTest, IntelHex)
{
    // The first extended address record of the process sets the minimum, later ones only lower it.
    EXPECT_EQ(Load(":020000040001F9\n:020000020800F4\n:020000040002F8\n:0100000041BE\n"), "0 20000:41");
    EXPECT_EQ(m_pImage->GetType(), CImage::eTypeIntel);
    EXPECT_EQ(m_pImage->GetMinAddress(), 0x8000U);
    EXPECT_EQ(m_pImage->GetMaxAddress(), 0x20000U);
    EXPECT_EQ(Load(":020000021000EC\n:0100000041BE\n"), "0 10000:41");
    EXPECT_EQ(m_pImage->GetMinAddress(), 0U);
    CImage oLower; // the highest address is only raised
    std::ofstream(m_strFile) << ":0100100041AE\n:0100000041BE\n";
    EXPECT_EQ(oLower.LoadFile(m_strFile.c_str(), CImage::eTypeAuto), 0U);
    EXPECT_EQ(oLower.GetMaxAddress(), 0x10U);

    struct {
        std::string strFile;
        const char* pResult;
        std::string strMessage;
    } const aoCases[] = {
        {":00000001FF\n:0100000041BE", "0 0:41", ""}, // goes on behind the end record
        {":0100000041BE and more\r\n", "0 0:41", ""},
        {"\n \t\r\n;x\n:0400000500000000F7\n:01000000G1FE", "0 0:01", ""}, // G counts as 0
        {":0100000412E9\n:0100000041BE\n:00000004FC\n:0100000042BD\n", "0 0:42 12000000:41", ""},
        {":02000004FFFFFC\n:01FFFF0055AC\n", "0 ffffffff:55", ""},
        {":02000004FFFFFC\n:02FFFF00556645", "91 ", "Invalid format in data line: :02FFFF00556645"},
        {":0100000041BF\n:0100010042BC\n", "92 0:4142", "Invalid checksum in data line: :0100000041BF."},
        {":020000030000FB\r\n:0100010042BC", "90 1:42",
         "Invalid record type in data line: :020000030000FB\r."},
        {":0100000041B", "91 ", "Invalid format in data line: :0100000041B"},
        {":0100000041B\n", "92 0:41", "Invalid checksum in data line: :0100000041B."}, // the NUL is a digit
        {":01000000FF0\n", "0 0:ff", ""},
        {":00000001FF", "0 ", ""},
        {":FF00000041BE\n", "91 ", "Invalid format in data line: :FF00000041BE."},
        {":0100000041BF\nx" + std::string(1, '\0') + "y \n\n", "91 0:41",
         "Invalid format in data line: x.y ."},
        {":0100000041BE\n:0000000600\n", "90 0:41", "Invalid record type in data line: :0000000600."},
        {":\xFF\x80zz\n", "91 ", "Invalid format in data line: :\xFF\x80zz."},
        {std::string("\0:\n", 3), "91 ", "Invalid format in data line: .:."},
    };
    for (const auto& oCase : aoCases) {
        EXPECT_EQ(Load(oCase.strFile, CImage::eTypeIntel), oCase.pResult) << oCase.strFile;
        EXPECT_EQ(m_strMessage, oCase.strMessage);
    }
    std::string strAll = ":FF000000" + std::string(510, '0') + "01\n"; // the longest record
    EXPECT_EQ(Load(strAll), "0 0:" + std::string(510, '0'));
    testing::internal::CaptureStdout();
    Load(":0100000041BF\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("Invalid checksum in data line: :0100000041BF\0\n", 46));
}

TEST_F(HexfileTest, LinesThatAreTooLong)
{
    const std::string strRecord = ":0100000041BE";
    const std::string strNext = "\n:0100010042BC\n";
    EXPECT_EQ(Load(strRecord + std::string(1010, '.') + strNext), "0 0:4142"); // 1023 characters
    EXPECT_EQ(Load(strRecord + std::string(1011, '.') + strNext), "0 0:41");   // the end of the reading
    EXPECT_EQ(Load(strRecord + std::string(1010, '.')), "0 0:41");
    EXPECT_EQ(Load(strRecord + '\n' + std::string(1500, 'x') + strNext), "91 0:41");
    EXPECT_EQ(m_strMessage, "Invalid format in data line: " + std::string(1023, 'x'));
}

TEST_F(HexfileTest, SRecords)
{
    struct {
        const char* pFile;
        const char* pResult;
        const char* pMessage;
    } const aoCases[] = {
        {"S00600004844521B\nS104001041AA\r\nS205010000FFFA\nS306FFFFFFFF7786", "0 10:41 10000:ff ffffffff:77",
         ""},
        {"S10400004100\n", "0 0:41", ""}, // the checksum is not tested
        {"S1040000410\n", "0 0:41", ""},  // so it may lack the digit that the NUL makes up for
        {"S1040000410", "91 ", "Invalid format in data line (line length): S1040000410"},
        {"S1030000FC\nS5030001FB\nS9030000FC\n\n", "0 ", ""},
        {"S1020000FD\n", "91 ", "Invalid format in data line (line length): S1020000FD."},
        {"S3020000\n", "91 ", "Invalid format in data line (line length): S3020000."},
        {"S307FFFFFFFF7788\n", "91 ", "Invalid format in data line (line length): S307FFFFFFFF7788."},
        {"S307FFFFFFFF778800\n", "91 ", "Invalid format in data line: S307FFFFFFFF778800."},
        {"S4030000FC\nS104000041BA\n", "90 0:41", "Invalid record type in data line: S4030000FC."},
        {"S104000041BA\nS6030000FC\n:00000001FF\n", "91 0:41", "Invalid format in data line: :00000001FF."},
        {"S903000\nS104000041BA", "0 0:41", ""}, // 8 characters with the NUL
        {"S90300\n", "91 ", "Invalid format in data line: S90300."},
    };
    for (const auto& oCase : aoCases) {
        EXPECT_EQ(Load(oCase.pFile), oCase.pResult) << oCase.pFile;
        EXPECT_EQ(m_strMessage, oCase.pMessage);
    }
    Load("S104001041AA\nS104002042");
    EXPECT_EQ(m_pImage->GetMinAddress(), 0x10U); // taken from the blocks, unlike Intel HEX
    EXPECT_EQ(m_pImage->GetMaxAddress(), 0x10U);
}

TEST_F(HexfileTest, TypesAndFilesThatCannotBeLoaded)
{
    EXPECT_EQ(Load("AB"), "0 0:4142");
    EXPECT_EQ(m_pImage->GetType(), CImage::eTypeBinary);
    EXPECT_EQ(Load("\n:0100000041BE"), "0 0:0a3a303130303030303034314245"); // begins with a line feed: binary
    EXPECT_EQ(Load(":0100000041BE", CImage::eTypeBinary), "0 0:3a303130303030303034314245");
    EXPECT_EQ(Load("S\x80\xFF", CImage::eTypeIntel), "91 ");
    EXPECT_EQ(Load("\n\n\n\n", CImage::eTypeMotorola), "0 ");
    EXPECT_EQ(Load(""), "93 ");
    EXPECT_EQ(m_pImage->GetErrorMessage(), "File <" + m_strFile + ">: could not be opened.\n\n");

    CImage oImage;
    const char* const pNotOpened = " could not be opened.";
    const std::string strPipe = m_strDirectory + "pipe";
    ASSERT_EQ(mkfifo(strPipe.c_str(), 0600), 0);
    for (const std::string& strName : {m_strDirectory + "missing", m_strDirectory, strPipe,
                                       std::string("/dev/zero"), std::string("/proc/self/mem")}) {
        EXPECT_EQ(oImage.LoadFile(strName.c_str(), CImage::eTypeAuto), 0x80U);
        EXPECT_EQ(oImage.GetErrorMessage(), "File <" + strName + ">" + pNotOpened);
    }
    EXPECT_EQ(oImage.LoadFileBinary(strPipe.c_str()), 0x80U);
    EXPECT_EQ(oImage.LoadFile(nullptr, CImage::eTypeAuto), 0U);
    EXPECT_EQ(oImage.GetErrorMessage(), "");
    EXPECT_EQ(oImage.GetFilename(), "/proc/self/mem");
    testing::internal::CaptureStdout();
    EXPECT_EQ(oImage.LoadFile(Write(":0100000041BE").c_str(), static_cast<CImage::EType>(4)), 0x90U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Inputfile format is not supported (use Intel or Motorola).\n");
    EXPECT_EQ(oImage.GetErrorMessage(), "File <" + m_strFile +
                                            ">: could not be opened.\n\n"
                                            "Inputfile format is not supported (use Intel or Motorola).");
    EXPECT_EQ(oImage.LoadFile(Write(":0100000041BF\n").c_str(), CImage::eTypeAuto), 0x92U);
    EXPECT_EQ(oImage.GetErrorMessage(), "File <" + m_strFile +
                                            ">: checksum error.\n\n"
                                            "Invalid checksum in data line: :0100000041BF.\nIgnore error? ");
    EXPECT_EQ(oImage.LoadFile(Write("AB").c_str(), CImage::eTypeAuto), 0U); // appended
    EXPECT_EQ(Blocks(oImage.GetMemoryBlocks()), "0:41 0:4142");
}

TEST_F(HexfileTest, LoadsOnASmallStackAndWhileTheProcessEnds)
{
    static const auto* const s_pFile = new std::string(Write(" \n:0100000041BE\n"));
    static const auto s_fnLoad = [] {
        CImage oImage;
        const bool bLoaded = oImage.LoadFile(s_pFile->c_str(), CImage::eTypeIntel) == CImage::eResultOk;
        return bLoaded && Blocks(oImage.GetMemoryBlocks()) == "0:41";
    };
    // Asked for before the first load, this comes when all that is destroyed at the end is destroyed, and its memory
    // used for something else.
    const auto fnEnd = [] {
        std::atexit([] {
            const std::vector<std::string> astrElse(64, std::string(8192, '\xFF'));
            std::_Exit(s_fnLoad() ? 0 : 1);
        });
        s_fnLoad();
        std::exit(2); // NOLINT(concurrency-mt-unsafe)
    };
    EXPECT_EXIT(fnEnd(), testing::ExitedWithCode(0), "");
    OnSmallStack([] { EXPECT_TRUE(s_fnLoad()); });
}

TEST_F(HexfileTest, Traces)
{
    CTraceRecorder oTraces;
    Load("S5030001FB\r\nS9030000FC\nS4030000FC\n");
    Load("");
    CImage().LoadFile("/nowhere", CImage::eTypeAuto);
    const std::string strUnit = " source/QuorvelHexfile: ";
    const std::vector<std::string> astrExpected{
        "4" + strUnit + "Datei " + m_strFile + " wird geladen. ",
        "16" + strUnit + "start reading input lines.",
        "2" + strUnit + "Not supported S-record format: S5030001FB\r",
        "8" + strUnit + "Ignored S-record format: S9030000FC",
        "16" + strUnit + "reading input lines completed.",
        "16" + strUnit + "input lines converted to internal data structure.",
        "16" + strUnit + "internal byte map is destructed.",
        "1" + strUnit + "File <" + m_strFile +
            ">: could not be opened.\n\nInvalid record type in data line: S4030000FC.",
        "2" + strUnit + "Eingabe " + m_strFile + " enthaelt keine Daten.",
        "1" + strUnit + "File <" + m_strFile + ">: could not be opened.\n\n",
        "1" + strUnit + "File </nowhere> could not be opened."};
    EXPECT_EQ(oTraces.Take(), astrExpected);
}

TEST_F(HexfileTest, Saving)
{
    CImage oImage;
    EXPECT_EQ(Save(oImage, CImage::eTypeIntel), ":00000001FF\n");
    EXPECT_EQ(Save(oImage, CImage::eTypeMotorola), "");
    EXPECT_EQ(Save(oImage, CImage::eTypeBinary), "");
    const std::string strBytes("\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16\17\20\21\22\23", 20);
    oImage.AddMemoryBlock(0x100, strBytes.data(), 20);
    EXPECT_EQ(Save(oImage, CImage::eTypeIntel), ":10010000000102030405060708090A0B0C0D0E0F77\n"
                                                ":0401100010111213A5\n:00000001FF\n");
    EXPECT_EQ(Save(oImage, CImage::eTypeAuto), strBytes); // the minimum, which was not calculated, is 0
    oImage.RecalcMinMax();
    EXPECT_EQ(Save(oImage, CImage::eTypeBinary), "148");
    EXPECT_EQ(oImage.GetErrorMessage(),
              "Data could not be saved in binary format because of StartAddress != 0 "
              "OR multiple blocks in hex data.\n\n");
    EXPECT_EQ(Read(), ""); // emptied all the same

    CImage oHigh;
    oHigh.AddMemoryBlock(0xABCD0000, "A", 1); // lower case before the first data
    oHigh.AddMemoryBlock(0x1FFFF, "BC", 2);   // not split
    oHigh.AddMemoryBlock(0xFFFF, "\1\2", 2);
    oHigh.AddMemoryBlock(0xFFFFFFFF, "\xEF", 1);
    EXPECT_EQ(Save(oHigh, CImage::eTypeIntel),
              ":02000004abcd82\n:0100000041BE\n:020000040001F9\n:02FFFF0042437B\n"
              ":020000040000FA\n:02FFFF000102FD\n"
              ":02000004FFFFFC\n:01FFFF00EF12\n:00000001FF\n");
    EXPECT_EQ(Save(oHigh, CImage::eTypeMotorola), "S306ABCD00004140\nS20601FFFF424375\nS105FFFF0102F9\n"
                                                  "S306FFFFFFFFEF0E\n");
    EXPECT_EQ(Save(oHigh, CImage::eTypeBinary), "148"); // several blocks

    CImage oEdge;
    oEdge.AddMemoryBlock(0xFFFFFF, "A", 1);
    oEdge.AddMemoryBlock(0x1000000, "A", 1);
    EXPECT_EQ(Save(oEdge, CImage::eTypeMotorola), "S205FFFFFF41BC\nS3060100000041B7\n");

    EXPECT_EQ(oHigh.SaveFile(nullptr, CImage::eTypeIntel), 0U);
    EXPECT_EQ(oHigh.GetErrorMessage(), "");
    EXPECT_EQ(oHigh.SaveFile(m_strDirectory.c_str(), CImage::eTypeIntel), 0x80U);
    EXPECT_EQ(oHigh.GetErrorMessage(), "File " + m_strDirectory + " could not be opened.\n\n");
    EXPECT_EQ(oHigh.SaveFile("/dev/full", CImage::eTypeIntel), 0U); // not noticed
}

TEST_F(HexfileTest, Dumps)
{
    CImage oImage;
    oImage.AddMemoryBlock(0x100, "A\0\x7F\x80z", 5);
    oImage.AddMemoryBlock(0x107, "~ \xFF", 3);
    const auto fnDump = [&](unsigned int nBytes, unsigned int nFrom, unsigned int nTo,
                            std::string strText = "") {
        strText.resize(4000);
        oImage.GetPrintDump(strText.data(), nBytes, nFrom, nTo);
        return std::string(strText.c_str());
    };
    const char* const pTwo = " 41 00 7F 80 7A -- -- 7E  20 FF                   A...z  ~ .      \n";
    EXPECT_EQ(fnDump(16, 0x100, 0x200), pTwo);
    EXPECT_EQ(fnDump(16, 0x100, 0x10F, "abc"), std::string("abc") + pTwo); // behind what is there
    EXPECT_EQ(fnDump(3, 0xFE, 0x103), " -- -- 41   A\n 00 7F 80 ...\n");
    EXPECT_EQ(fnDump(2, 0x103, 0x107), " 80 7A .z\n -- --   \n 7E    ~ \n");
    EXPECT_EQ(fnDump(1, 0x500, 0x400), " FF .\n"); // both limited
    EXPECT_EQ(fnDump(1, 0x104, 0x100), " 41 A\n"); // from above to
    EXPECT_EQ(fnDump(0, 0, 1, "x"), "x");
    oImage.AddMemoryBlock(0x50, "\x11", 1); // behind a higher one: not seen
    EXPECT_EQ(fnDump(1, 0x50, 0x50), " --  \n");
    EXPECT_EQ(fnDump(4, 0x100, 0x100), " 41          A   \n");
    std::string strWhole(4000, '\0');
    oImage.GetPrintDump(strWhole.data(), 256);
    EXPECT_EQ(std::string(strWhole.c_str()).size(), 2U * (32 + 256 * 4 + 1));

    std::string strLine = std::string("ab") + std::string(100, '\0');
    const bool abValid[] = {true, false, true};
    unsigned int nLength = 0;
    CImage::MemDumpLine("012", abValid, 3, 1, strLine.data(), &nLength, 3, 0x1234);
    EXPECT_EQ(std::string(strLine.c_str()), "ab -- 32     2 ");
    EXPECT_EQ(nLength, 16U);
    CImage::MemDumpLine("012", abValid, 3, 0, strLine.data(), &nLength, 0, 0);
    EXPECT_EQ(nLength, 16U);
    CImage::MemDump("012", abValid, 3, strLine.data(), 2, 0);
    EXPECT_EQ(std::string(strLine.c_str()), "ab -- 32     2  30 -- 0 \n 32    2 \n");
    for (const auto& [nBytes, nNeeded] : {std::pair{0U, 1U}, {1U, 6U}, {8U, 34U}, {16U, 67U}, {2000U, 8251U}})
        EXPECT_EQ(CImage::GetNumberOfBytesNeedForLine(nBytes), nNeeded);
}

TEST_F(HexfileTest, OtherProgramsReadAndWriteTheSame)
{
    for (unsigned int nSeed = 1; nSeed <= 6; ++nSeed) {
        std::mt19937 oRandom(nSeed);
        const auto fnOneOf = [&](std::initializer_list<unsigned int> anValues) {
            return anValues.begin()[oRandom() % anValues.size()];
        };
        CImage oImage;
        std::string strPieces;
        std::uint64_t nAddress = fnOneOf({0, 1, 0x100, 0xFFF0, 0xFFFFFF});
        for (unsigned int i = 0; i < 6; ++i) {
            std::string strBytes(fnOneOf({1, 15, 16, 17, 4096, 5000, 70001}), '\0');
            for (char& c : strBytes)
                c = static_cast<char>(oRandom());
            if (i == 5) // ends with the address space
                nAddress = 0x100000000 - strBytes.size();
            const std::string strName = "piece" + std::to_string(i);
            Write(strBytes, strName);
            strPieces += ' ' + strName + " -binary -offset " + std::to_string(nAddress);
            oImage.AddMemoryBlock(static_cast<unsigned int>(nAddress), strBytes.data(),
                                  static_cast<unsigned int>(strBytes.size()));
            nAddress += strBytes.size() + fnOneOf({1, 2, 4095, 65536, 0x1000001});
        }
        ASSERT_TRUE(Tool("srec_cat" + strPieces + " -o s.hex -intel") &&
                    Tool("srec_cat" + strPieces + " -o s.srec -motorola"))
            << Read("log");
        for (const char* const pName : {"s.hex", "s.srec"}) {
            CImage oLoaded;
            EXPECT_EQ(oLoaded.LoadFile((m_strDirectory + pName).c_str(), CImage::eTypeAuto), 0U);
            EXPECT_TRUE(Blocks(oLoaded.GetMemoryBlocks()) == Blocks(oImage.GetMemoryBlocks()))
                << pName << " of seed " << nSeed;
        }
        for (const bool bIntel : {true, false}) {
            EXPECT_EQ(oImage.SaveFile(m_strFile.c_str(), bIntel ? CImage::eTypeIntel : CImage::eTypeMotorola),
                      0U);
            EXPECT_TRUE(Tool(std::string("srec_cmp file ") + (bIntel ? "-intel" : "-motorola") + " '('" +
                             strPieces + " ')'") &&
                        Tool(std::string("objcopy -O srec -I ") + (bIntel ? "ihex" : "srec") + " file back"))
                << "seed " << nSeed << Read("log");
        }
    }
}
