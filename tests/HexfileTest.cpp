// Memory images: the model, reading, writing, dumps, and what other programs make of the same files.

#include "QuorvelHexfile.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

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
    EXPECT_EQ(oImage.GetMinAddress(), 0U); // adding leaves it alone
    EXPECT_EQ(oImage.GetMaxAddress(), 0x101U);
    oImage.AddMemoryBlock(0x101, "\x55\x66", 2);
    EXPECT_EQ(oImage.GetDataByte(0x101), 2); // the first block that has it
    EXPECT_EQ(oImage.GetDataByte(0x90), 0);
    EXPECT_EQ(oImage.GetTotalBytes(), 7U);
    oImage.SetDataByte(0x101, 0x77);
    oImage.SetDataByte(0x10, 0x11); // a block of its own, and a new minimum
    EXPECT_EQ(Blocks(oImage.GetMemoryBlocks()), "100:0177 80:000000 101:5566 10:11");
    EXPECT_EQ(oImage.GetMinAddress(), 0x10U);

    oImage.ClearMemoryBlocks();
    EXPECT_EQ(oImage.GetMinAddress(), 0x10U); // both stay
    oImage.RecalcMinMax();
    EXPECT_EQ(oImage.GetMinAddress(), 0x10U); // this one even now
    oImage.AddMemoryBlock(nullptr);
    EXPECT_EQ(oImage.GetMaxAddress(), 0U);
    oImage.AddMemoryBlock(0xFFFFFFFE, "\x01\x02\x03", 3); // the last byte has no address
    oImage.RecalcMinMax();
    EXPECT_EQ(oImage.GetMaxAddress(), 0xFFFFFFFFU);

    EXPECT_TRUE(CImage::SMemoryBlock(1, "ab", 2) == CImage::SMemoryBlock(9, "ab", 2)); // wherever it lies
    EXPECT_FALSE(CImage::SMemoryBlock(1, "ab", 2) == CImage::SMemoryBlock(1, "ac", 2));
}

TEST_F(HexfileTest, MapNamesAndSizes)
{
    CImage::CByteMap oMap;
    std::vector<CImage::SMemoryBlock*> apBlocks;
    for (const auto& [nAddress, nValue] :
         {std::pair(0x1000U, '\1'), {0xFFFU, '\2'}, {~0U, '\4'}, {0xFFFU, '\7'}})
        oMap.SetByte(nAddress, nValue);
    CImage oImage;
    oMap.ToMemoryBlocks(apBlocks);
    EXPECT_EQ(Blocks(apBlocks), "fff:0701 ffffffff:04"); // the last value counts
    for (CImage::SMemoryBlock* const p : apBlocks)
        oImage.AddMemoryBlock(p);

    EXPECT_EQ(CImage::GetSizeString(2048) + CImage::GetSizeString(1025), "2 kbyte1025 byte");
    oImage.SetFilename(nullptr);
    EXPECT_EQ(oImage.GetFilename(), "tmp1");
}

TEST_F(HexfileTest, IntelHex)
{
    // The first extended address record of the process sets the minimum, later ones only lower it.
    EXPECT_EQ(Load(":020000040001F9\n:0100000041BE\n"), "0 10000:41");
    EXPECT_EQ(m_pImage->GetMinAddress(), 0x10000U);
    EXPECT_EQ(Load(":020000021000EC\n:0100000041BE\n"), "0 10000:41");
    EXPECT_EQ(m_pImage->GetMinAddress(), 0U);

    testing::internal::CaptureStdout();
    Load(":0100000041BF\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("Invalid checksum in data line: :0100000041BF\0\n", 46));

    const std::string strRecord = ":0100000041BE";
    const std::string strNext = "\n:0100010042BC\n";
    EXPECT_EQ(Load(strRecord + std::string(1010, '.') + strNext), "0 0:4142"); // 1023 characters
    EXPECT_EQ(Load(strRecord + std::string(1011, '.') + strNext), "0 0:41");   // the end of the reading
    EXPECT_EQ(Load(strRecord + '\n' + std::string(1500, 'x') + strNext), "91 0:41");
    EXPECT_EQ(m_strMessage, "Invalid format in data line: " + std::string(1023, 'x'));
}

TEST_F(HexfileTest, Records)
{
    const std::string strFormat = "Invalid format in data line: ", strSum = "Invalid checksum in data line: ",
                      strType = "Invalid record type in data line: ",
                      strLength = "Invalid format in data line (line length): ";
    const std::tuple<std::string, const char*, std::string> astrCases[] = {
        // the file, to be read as Intel HEX unless it begins with S; the result; the message
        {":00000001FF\n:0100000041BE and more\r\n", "0 0:41", ""},         // goes on behind the end record
        {"\n \t\r\n;x\n:0400000500000000F7\n:01000000G1FE", "0 0:01", ""}, // G counts as 0
        {":0100000412E9\n:0100000041BE\n:00000004FC\n:0100000042BD\n", "0 0:42 12000000:41", ""},
        {":02000004FFFFFC\n:02FFFF00556645", "91 ", strFormat + ":02FFFF00556645"},
        {":0100000041BF\n:0100010042BC\n", "92 0:4142", strSum + ":0100000041BF."},
        {":0100000041B", "91 ", strFormat + ":0100000041B"},
        {":0100000041B\n", "92 0:41", strSum + ":0100000041B."}, // the NUL is a digit
        {":0100000041BF\nx" + std::string(1, '\0') + "y \n\n", "91 0:41", strFormat + "x.y ."},
        {"S00600004844521B\nS104001041AA\r\nS205010000FFFA\nS306FFFFFFFF7786", "0 10:41 10000:ff ffffffff:77",
         ""},
        {"S1040000410\n", "0 0:41",
         ""}, // not tested, the checksum may lack the digit that the NUL makes up for
        {"S1040000410", "91 ", strLength + "S1040000410"},
        {"S307FFFFFFFF778800\n", "91 ", strFormat + "S307FFFFFFFF778800."},
        {"S4030000FC\nS104000041BA\n", "90 0:41", strType + "S4030000FC."},
        {"S903000\nS104000041BA", "0 0:41", ""}, // 8 characters with the NUL
    };
    for (const auto& [strFile, pResult, strMessage] : astrCases) {
        EXPECT_EQ(Load(strFile, strFile[0] == 'S' ? CImage::eTypeAuto : CImage::eTypeIntel), pResult)
            << strFile;
        EXPECT_EQ(m_strMessage, strMessage);
    }
    Load("S104001041AA\nS104002042");
    EXPECT_EQ(m_pImage->GetMinAddress(), 0x10U); // taken from the blocks, unlike Intel HEX
}

TEST_F(HexfileTest, TypesAndFilesThatCannotBeLoaded)
{
    EXPECT_EQ(Load("AB"), "0 0:4142");
    EXPECT_EQ(Load("\n:0100000041BE"), "0 0:0a3a303130303030303034314245"); // begins with a line feed: binary
    EXPECT_EQ(Load(""), "93 ");
    EXPECT_EQ(m_pImage->GetErrorMessage(), "File <" + m_strFile + ">: could not be opened.\n\n");

    CImage oImage;
    for (const std::string& strName :
         {m_strDirectory + "missing", m_strDirectory, std::string("/proc/self/mem")}) {
        EXPECT_EQ(oImage.LoadFile(strName.c_str(), CImage::eTypeAuto), 0x80U);
        EXPECT_EQ(oImage.GetErrorMessage(), "File <" + strName + "> could not be opened.");
    }
    const std::string strNoType = "Inputfile format is not supported (use Intel or Motorola).";
    EXPECT_EQ(oImage.LoadFile(Write(":0100000041BE").c_str(), static_cast<CImage::EType>(4)), 0x90U);
    EXPECT_EQ(oImage.GetErrorMessage(), "File <" + m_strFile + ">: could not be opened.\n\n" + strNoType);
    EXPECT_EQ(oImage.LoadFile(Write(":0100000041BF\n").c_str(), CImage::eTypeAuto), 0x92U);
    EXPECT_EQ(oImage.GetErrorMessage(), "File <" + m_strFile +
                                            ">: checksum error.\n\nInvalid checksum in data line: "
                                            ":0100000041BF.\nIgnore error? ");
    EXPECT_EQ(Blocks(oImage.GetMemoryBlocks()), "0:41");
}

TEST_F(HexfileTest, Traces)
{
    CTraceRecorder oTraces(0x0F);
    Load("S5030001FB\r\nS9030000FC\nS4030000FC\n");
    const std::string strUnit = " source/QuorvelHexfile: ";
    const std::vector<std::string> astrExpected{
        "4" + strUnit + "Datei " + m_strFile + " wird geladen. ",
        "2" + strUnit + "Not supported S-record format: S5030001FB\r",
        "8" + strUnit + "Ignored S-record format: S9030000FC",
        "1" + strUnit + "File <" + m_strFile +
            ">: could not be opened.\n\nInvalid record type in data line: S4030000FC."};
    EXPECT_EQ(oTraces.Take(), astrExpected);
}

TEST_F(HexfileTest, Saving)
{
    CImage oImage;
    oImage.AddMemoryBlock(0x100, "\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16\17\20\21\22\23", 20);
    EXPECT_EQ(Save(oImage, CImage::eTypeIntel), ":10010000000102030405060708090A0B0C0D0E0F77\n"
                                                ":0401100010111213A5\n:00000001FF\n");
    EXPECT_EQ(Save(oImage, CImage::eTypeAuto).size(), 20U); // the minimum, which was not calculated, is 0
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
    EXPECT_EQ(Save(oHigh, CImage::eTypeIntel),
              ":02000004abcd82\n:0100000041BE\n:020000040001F9\n:02FFFF0042437B\n"
              ":020000040000FA\n:02FFFF000102FD\n:00000001FF\n");
    EXPECT_EQ(Save(oHigh, CImage::eTypeMotorola), "S306ABCD00004140\nS20601FFFF424375\nS105FFFF0102F9\n");
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
    EXPECT_EQ(fnDump(16, 0x100, 0x10F, "abc"), // behind what is there
              "abc 41 00 7F 80 7A -- -- 7E  20 FF                   A...z  ~ .      \n");
    EXPECT_EQ(fnDump(1, 0x500, 0x400), " FF .\n"); // both limited
    oImage.AddMemoryBlock(0x50, "\x11", 1);        // behind a higher one: not seen
    EXPECT_EQ(fnDump(1, 0x50, 0x50), " --  \n");

    std::string strLine = std::string("ab") + std::string(100, '\0');
    const bool abValid[] = {true, false, true};
    CImage::MemDump("012", abValid, 3, strLine.data(), 2, 0);
    EXPECT_EQ(std::string(strLine.c_str()), "ab 30 -- 0 \n 32    2 \n");
}

TEST_F(HexfileTest, OtherProgramsReadAndWriteTheSame)
{
    for (unsigned int nSeed = 1; nSeed <= 6; ++nSeed) {
        SCOPED_TRACE(nSeed);
        std::mt19937 oRandom(nSeed);
        const auto fnOneOf = [&](std::initializer_list<unsigned int> anValues) {
            return anValues.begin()[oRandom() % anValues.size()];
        };
        CImage oImage;
        unsigned int nAddress = fnOneOf({0, 1, 0x100, 0xFFF0, 0xFFFFFF});
        for (const bool bLast : {false, false, false, false, false, true}) {
            std::string strBytes(fnOneOf({1, 15, 16, 17, 4096, 5000, 70001}), '\0');
            for (char& c : strBytes)
                c = static_cast<char>(oRandom());
            const auto nLength = static_cast<unsigned int>(strBytes.size());
            if (bLast) // ends with the address space
                nAddress = 0U - nLength;
            oImage.AddMemoryBlock(nAddress, strBytes.data(), nLength);
            nAddress += nLength + fnOneOf({1, 2, 4095, 65536, 0x1000001});
        }
        for (const auto& [eType, pCommand] :
             {std::pair(CImage::eTypeIntel, "srec_cat file -intel -o back -motorola"),
              {CImage::eTypeIntel, "objcopy -I ihex -O srec file back"},
              {CImage::eTypeMotorola, "srec_cat file -motorola -o back -intel"},
              {CImage::eTypeMotorola, "objcopy -I srec -O ihex file back"}}) {
            CImage oBack;
            EXPECT_EQ(oImage.SaveFile(m_strFile.c_str(), eType), 0U);
            EXPECT_TRUE(Tool(pCommand)) << Read("log");
            EXPECT_EQ(oBack.LoadFile((m_strDirectory + "back").c_str(), CImage::eTypeAuto), 0U);
            EXPECT_TRUE(Blocks(oBack.GetMemoryBlocks()) == Blocks(oImage.GetMemoryBlocks())) << pCommand;
        }
    }
}
