// The group `i2c eeprom`: serial memories of the 24 series.

#include "VerbsI2cEeprom.h"

#include "File.h"
#include "Gateway.h"
#include "Image.h"
#include "Progress.h"
#include "QuorvelClientI2C.h"
#include "Text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <fstream>
#include <functional>
#include <map>

namespace
{

struct SMemoryType {
    const char* pName;
    unsigned short nAddressing; // addressing word of the library
};

// The first of a size is taken for --size.
constexpr std::array<SMemoryType, 14> TYPES{{{"24c01", 0x0007},
                                             {"24c02", 0x0008},
                                             {"24c04", 0x0108},
                                             {"24c08", 0x0208},
                                             {"24c16", 0x0308},
                                             {"24c32", 0x000C},
                                             {"24c64", 0x000D},
                                             {"24c128", 0x000E},
                                             {"24c256", 0x000F},
                                             {"24c512", 0x0010},
                                             {"24c1024", 0x0110},
                                             {"24m01", 0x0110},
                                             {"24c1025", 0x0510},
                                             {"24m02", 0x0210}}};

const std::map<std::string, CQuorvelHexfile::EType> FORMATS{{"auto", CQuorvelHexfile::eTypeAuto},
                                                            {"intel", CQuorvelHexfile::eTypeIntel},
                                                            {"motorola", CQuorvelHexfile::eTypeMotorola},
                                                            {"binary", CQuorvelHexfile::eTypeBinary}};

// Pieces end at its multiples: no memory has pages, or blocks with a slave address of their own, that cross them,
// and each is done well within a time-out.
constexpr std::uint64_t PIECE = 256;

constexpr int RC_SHORT_ANSWER = 0x000C0000;

constexpr unsigned short POLL_LIMIT = 100; // milliseconds; data sheets say 5 to 10
constexpr unsigned MAX_LINES = 10;         // of differences, without -v

std::uint64_t GetMemorySize(unsigned nAddressing)
{
    return 1ULL << ((nAddressing & 0xFFU) + (nAddressing >> 8 & 3U));
}

unsigned GetChipCount(unsigned nAddressing)
{
    constexpr std::array<unsigned, 8> COUNTS{8, 4, 2, 1, 1, 4, 2, 1}; // by mode
    return COUNTS[nAddressing >> 8 & 7U];
}

// What all verbs of the group share: which memory, which file, and how bytes go there and come back.
class CEepromVerb : public CVerb
{
  public:
    CEepromVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
        std::vector<std::string> astrNames;
        for (const SMemoryType& oType : TYPES)
            astrNames.emplace_back(oType.pName);
        m_oApp
            .add_option("--type", m_strType, "The memory: " + fmt::format("{}", fmt::join(astrNames, ", ")))
            ->type_name("NAME")
            ->check(CLI::IsMember(astrNames, CLI::ignore_case).description(""));
        m_oApp.add_option("--size", m_nSize, "Its size instead: 128 to 262144 bytes, a power of two")
            ->type_name("N");
        m_oApp
            .add_option("--addressing", m_nAddressing,
                        "Its addressing instead: bits 0 to 7 the number of offset bits in the offset bytes; "
                        "bits 8 to 10 which bits of the slave address are further ones, and which the chip's")
            ->type_name("WORD");
        m_oApp.add_option("--chip", m_nChip, "Chip number, the level of its address pins")
            ->type_name("N")
            ->capture_default_str();
        m_oApp.add_option("--format", m_eFormat, "Format of the file")
            ->type_name("auto|intel|motorola|binary")
            ->transform(CLI::Transformer(FORMATS).description(""));
        m_oApp.add_option("FILE", m_strFile, "The file; - is standard input or output")
            ->required()
            ->type_name("");
    }

  protected:
    void AddOffset(const std::string& strText)
    {
        m_oApp.add_option("--offset", m_nOffset, strText)
            ->type_name("N")
            ->check(CLI::Range(0U, 0x3FFFFU).description(""))
            ->capture_default_str();
    }

    using CMemory = CGateway<CQuorvelClientI2C>;

    // Finds the memory of the options. @return 0, or a status
    int ParseMemory(const CTool& oTool)
    {
        if ((m_strType.empty() ? 0 : 1) + (m_nSize ? 1 : 0) + (m_nAddressing ? 1 : 0) != 1)
            return oTool.Fail(eStatusUsage, "which memory? Give --type, --size or --addressing");
        if (m_nAddressing &&
            (*m_nAddressing > 0x7FF || (*m_nAddressing & 0xFFU) < 1 || (*m_nAddressing & 0xFFU) > 16))
            return oTool.Fail(eStatusUsage, "--addressing: 1 to 16 in bits 0 to 7, a mode in bits 8 to 10");
        if (!m_nAddressing) {
            const auto itType = std::find_if(TYPES.begin(), TYPES.end(), [this](const SMemoryType& oType) {
                return m_nSize ? GetMemorySize(oType.nAddressing) == *m_nSize
                               : CLI::detail::to_lower(m_strType) == oType.pName;
            });
            if (itType == TYPES.end())
                return oTool.Fail(eStatusUsage, "--size: 128 to 262144, a power of two");
            m_nAddressing = itType->nAddressing;
        }
        if (m_nChip >= GetChipCount(*m_nAddressing))
            return oTool.Fail(eStatusUsage,
                              fmt::format("--chip: there can be {} of this memory on a bus, 0 to {}",
                                          GetChipCount(*m_nAddressing), GetChipCount(*m_nAddressing) - 1));
        return eStatusDone;
    }

    std::uint64_t GetSize() const { return GetMemorySize(*m_nAddressing); }

    // Loads the file and moves it; everything has to fit the memory.
    int LoadImage(const CTool& oTool, CImage& oImage) const
    {
        CImage oFile;
        if (const int nStatus = oFile.Load(oTool, m_strFile, m_eFormat); nStatus != 0)
            return nStatus;
        for (const CImage::SRange& oRange : oFile.GetRanges()) {
            const std::uint64_t nLast = oRange.GetLast() + m_nOffset;
            if (nLast >= GetSize())
                return oTool.Fail(eStatusFile,
                                  fmt::format("{}: reaches to 0x{:04x}; the last byte of the memory "
                                              "is 0x{:04x}",
                                              m_strFile, nLast, GetSize() - 1));
            oImage.Set(oRange.nAddress + m_nOffset, oRange.strBytes);
        }
        return eStatusDone;
    }

    // Reads ranges, as long as they are.
    int ReadRanges(CTool& oTool, CMemory& oMemory, std::vector<CImage::SRange>& aoRanges) const
    {
        const auto fnRead = [&](unsigned nOffset, char* pBytes, unsigned short nLength,
                                unsigned short& nDone) {
            return oMemory.ReadEEProm(static_cast<unsigned short>(m_nChip), nOffset, GetAddressing(), pBytes,
                                      nLength, nDone);
        };
        return ForPieces(oTool, oMemory, "Reading", "read", aoRanges, fnRead);
    }

    int WriteRanges(CTool& oTool, CMemory& oMemory, std::vector<CImage::SRange> aoRanges) const
    {
        const auto fnWrite = [&](unsigned nOffset, char* pBytes, unsigned short nLength,
                                 unsigned short& nDone) {
            nDone = nLength;
            return oMemory.WriteEEPromPollAck(static_cast<unsigned short>(m_nChip), nOffset, GetAddressing(),
                                              pBytes, nLength, POLL_LIMIT);
        };
        return ForPieces(oTool, oMemory, "Writing", "write", aoRanges, fnWrite);
    }

    // Compares the memory with an image and tells where they differ.
    int VerifyImage(CTool& oTool, CMemory& oMemory, const CImage& oImage, const char* pVerb) const
    {
        std::vector<CImage::SRange> aoDevice = oImage.GetRanges();
        if (const int nStatus = ReadRanges(oTool, oMemory, aoDevice); nStatus != 0)
            return nStatus;
        const std::uint64_t nDifferent = Compare(oTool, oImage.GetRanges(), aoDevice);
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"operation", pVerb}, {"bytes", oImage.GetSize()}, {"different", nDifferent}});
        if (nDifferent > 0)
            return oTool.Fail(eStatusMismatch,
                              fmt::format("verify: {} of {} bytes differ", nDifferent, oImage.GetSize()));
        oTool.Note(fmt::format("{} bytes of EEPROM verified", oImage.GetSize()));
        return eStatusDone;
    }

    std::string m_strType;
    std::optional<std::uint64_t> m_nSize;
    std::optional<unsigned> m_nAddressing;
    unsigned m_nChip = 0;
    std::uint64_t m_nOffset = 0;
    CQuorvelHexfile::EType m_eFormat = CQuorvelHexfile::eTypeAuto;
    std::string m_strFile;

  private:
    unsigned short GetAddressing() const { return static_cast<unsigned short>(*m_nAddressing); }

    int ForPieces(CTool& oTool, const CMemory& oMemory, const char* pTitle, const char* pVerb,
                  std::vector<CImage::SRange>& aoRanges,
                  const std::function<int(unsigned, char*, unsigned short, unsigned short&)>& fnPiece) const
    {
        std::uint64_t nTotal = 0;
        for (const CImage::SRange& oRange : aoRanges)
            nTotal += oRange.strBytes.size();
        std::optional<CProgress> oProgress(std::in_place, oTool, pTitle, nTotal);
        std::uint64_t nDone = 0;
        for (CImage::SRange& oRange : aoRanges) {
            for (std::uint64_t nOffset = oRange.nAddress; nOffset <= oRange.GetLast();) {
                const std::uint64_t nNext = std::min(oRange.GetLast() + 1, (nOffset / PIECE + 1) * PIECE);
                const auto nLength = static_cast<unsigned short>(nNext - nOffset);
                unsigned short nMoved = 0;
                int nRC = fnPiece(static_cast<unsigned>(nOffset),
                                  oRange.strBytes.data() + (nOffset - oRange.nAddress), nLength, nMoved);
                if (nRC == 0 && nMoved < nLength)
                    nRC = RC_SHORT_ANSWER;
                if (nRC != 0) {
                    oProgress.reset(); // its line ends before the error
                    return oMemory.Check(fmt::format("{} {} bytes at 0x{:04x}", pVerb, nLength, nOffset),
                                         nRC);
                }
                nDone += nLength;
                oProgress->Update(nDone);
                nOffset = nNext;
            }
        }
        oProgress->Finish();
        return eStatusDone;
    }

    // Both have the same ranges.
    static std::uint64_t Compare(CTool& oTool, const std::vector<CImage::SRange>& aoInput,
                                 const std::vector<CImage::SRange>& aoDevice)
    {
        std::uint64_t nDifferent = 0;
        for (std::size_t nRange = 0; nRange < aoInput.size(); ++nRange) {
            const auto& [nAddress, strInput] = aoInput[nRange];
            const std::string& strDevice = aoDevice[nRange].strBytes;
            for (std::size_t i = 0; i < strInput.size(); ++i) {
                if (strDevice[i] == strInput[i])
                    continue;
                ++nDifferent;
                if (nDifferent <= MAX_LINES || oTool.GetOptions().bVerbose)
                    fmt::print(stderr, "  device 0x{:02x} != input 0x{:02x} at addr 0x{:04x} (error)\n",
                               static_cast<unsigned char>(strDevice[i]),
                               static_cast<unsigned char>(strInput[i]), nAddress + i);
            }
        }
        return nDifferent;
    }
};

class CEepromRead : public CEepromVerb
{
  public:
    explicit CEepromRead(CLI::App& oGroup) : CEepromVerb(oGroup, "read", "Read a memory into a file")
    {
        AddOffset("The first byte to read");
        m_oApp.add_option("--length", m_nLength, "How many bytes; default: up to the end")->type_name("N");
        m_oApp.footer(
            "The format auto means Intel HEX for names in .hex and .ihex, S-records for .srec, .s19, "
            ".s28, .s37 and .mot, and otherwise binary, which begins with the byte at the offset.\n\n"
            "quorvel -g 192.168.0.10 i2c eeprom read --type 24c02 --chip 1 content.hex\n\n"
            "quorvel -g 192.168.0.10 i2c eeprom read --size 32768 --length 16 - | hexdump -C");
    }

    int Run(CTool& oTool) override
    {
        if (const int nStatus = ParseMemory(oTool); nStatus != 0)
            return nStatus;
        const std::uint64_t nLength = m_nLength.value_or(GetSize() - std::min(m_nOffset, GetSize()));
        if (nLength == 0 || nLength > GetSize() || m_nOffset > GetSize() - nLength)
            return oTool.Fail(eStatusUsage,
                              fmt::format("--offset, --length: the memory has {} bytes", GetSize()));
        COutputFile oFile(oTool);
        CMemory oMemory(oTool);
        if (int nStatus = oMemory.OpenGateway(); nStatus != 0 || (nStatus = oFile.Open(m_strFile)) != 0)
            return nStatus;
        std::vector<CImage::SRange> aoRanges{{m_nOffset, std::string(nLength, '\0')}};
        if (const int nStatus = ReadRanges(oTool, oMemory, aoRanges); nStatus != 0)
            return nStatus;
        return Save(oTool, oFile, aoRanges[0].strBytes);
    }

  private:
    CQuorvelHexfile::EType GetFormat() const
    {
        if (m_eFormat != CQuorvelHexfile::eTypeAuto)
            return m_eFormat;
        const auto HasEnding = [this](const char* pEnding) {
            return CLI::detail::to_lower(m_strFile).ends_with(pEnding);
        };
        if (HasEnding(".hex") || HasEnding(".ihex"))
            return CQuorvelHexfile::eTypeIntel;
        for (const char* const pEnding : {".srec", ".s19", ".s28", ".s37", ".mot"}) {
            if (HasEnding(pEnding))
                return CQuorvelHexfile::eTypeMotorola;
        }
        return CQuorvelHexfile::eTypeBinary;
    }

    // The library writes to a stream of its own, which is opened on the file.
    int Save(const CTool& oTool, COutputFile& oFile, const std::string& strBytes) const
    {
        const CQuorvelHexfile::EType eFormat = GetFormat();
        if (eFormat == CQuorvelHexfile::eTypeBinary) {
            oFile.Write(strBytes);
            return oFile.Commit();
        }
        CQuorvelHexfile oImage;
        oImage.AddMemoryBlock(static_cast<unsigned>(m_nOffset), strBytes.data(),
                              static_cast<unsigned>(strBytes.size()));
        std::ofstream oStream(fmt::format("/dev/fd/{}", ::fileno(oFile.GetStream())),
                              std::ios::binary | std::ios::app);
        if (eFormat == CQuorvelHexfile::eTypeIntel)
            oImage.SaveAsFileIntel(oStream);
        else
            oImage.SaveAsFileMotorola(oStream);
        oStream.close();
        if (!oStream)
            return oTool.Fail(eStatusFile, m_strFile + ": cannot be written");
        return oFile.Commit();
    }

    std::optional<std::uint64_t> m_nLength;
};

class CEepromWrite : public CEepromVerb
{
  public:
    explicit CEepromWrite(CLI::App& oGroup)
        : CEepromVerb(oGroup, "write", "Write a file into a memory, and verify")
    {
        AddOffset("Is added to the addresses of the file");
        m_oApp.add_flag("-V,--no-verify", m_bNoVerify, "Do not read back and compare");
        m_oApp.footer(
            "Only what is in the file is written; holes are left as they are. The format auto looks at "
            "the first character. The gateway respects the pages of the memory and waits until each is "
            "stored.\n\n"
            "Status: 1 when the memory does not acknowledge (NACK), 3 when it does not hold what was "
            "written, 5 when the file cannot be read or does not fit the memory.\n\n"
            "quorvel -g 192.168.0.10 i2c eeprom write --type 24c256 content.hex");
    }

    int Run(CTool& oTool) override
    {
        CImage oImage;
        int nStatus = ParseMemory(oTool);
        if (nStatus == 0)
            nStatus = LoadImage(oTool, oImage);
        if (nStatus != 0)
            return nStatus;
        CMemory oMemory(oTool);
        nStatus = oMemory.OpenGateway();
        if (nStatus == 0)
            nStatus = WriteRanges(oTool, oMemory, oImage.GetRanges());
        if (nStatus != 0)
            return nStatus;
        oTool.Note(fmt::format("{} bytes of EEPROM written", oImage.GetSize()));
        return m_bNoVerify ? eStatusDone : VerifyImage(oTool, oMemory, oImage, "write");
    }

  private:
    bool m_bNoVerify = false;
};

class CEepromVerify : public CEepromVerb
{
  public:
    explicit CEepromVerify(CLI::App& oGroup) : CEepromVerb(oGroup, "verify", "Compare a memory with a file")
    {
        AddOffset("Is added to the addresses of the file");
        m_oApp.footer(
            "Prints a line for each of the first ten bytes that differ, with -v for all, and how many "
            "there are. With --json an object with the number of bytes and of those that differ.\n\n"
            "Status: 3 when there is a difference.\n\n"
            "quorvel -g 192.168.0.10 i2c eeprom verify --type 24c256 content.hex");
    }

    int Run(CTool& oTool) override
    {
        CImage oImage;
        int nStatus = ParseMemory(oTool);
        if (nStatus == 0)
            nStatus = LoadImage(oTool, oImage);
        if (nStatus != 0)
            return nStatus;
        CMemory oMemory(oTool);
        nStatus = oMemory.OpenGateway();
        return nStatus != 0 ? nStatus : VerifyImage(oTool, oMemory, oImage, "verify");
    }
};

} // namespace

void AddI2cEeprom(CTool& oTool, CLI::App& oI2c)
{
    CLI::App& oGroup = *oI2c.add_subcommand("eeprom", "Serial memories of the 24 series");
    oGroup.require_subcommand(1);
    oTool.AddVerb<CEepromRead>(oGroup);
    oTool.AddVerb<CEepromWrite>(oGroup);
    oTool.AddVerb<CEepromVerify>(oGroup);
}
