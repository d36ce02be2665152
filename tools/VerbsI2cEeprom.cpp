// The group `i2c eeprom`: serial memories of the 24 series.

#include "VerbsI2cEeprom.h"

#include "File.h"
#include "Gateway.h"
#include "Image.h"
#include "Progress.h"
#include "QuorvelClientI2C.h"
#include "Text.h"
#include "Verify.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>

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

// Pieces end at its multiples: no memory has pages, or blocks with a slave address of their own, that cross them,
// and each is done well within a time-out.
constexpr std::uint64_t PIECE = 256;

constexpr unsigned MAX_OFFSET = 0x3FFFF; // of the largest memory

constexpr int RC_SHORT_ANSWER = 0x000C0000;

constexpr unsigned short POLL_LIMIT = 100; // milliseconds; data sheets say 5 to 10

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
    CEepromVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText,
                const char* pStandard)
        : CVerb(oGroup, strName, strText)
    {
        std::vector<std::string> astrNames;
        astrNames.reserve(TYPES.size());
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
        m_oApp.add_option("FILE", m_strFile, fmt::format("The file; - is standard {}", pStandard))
            ->required()
            ->type_name("");
    }

  protected:
    void AddInput()
    {
        AddFormatOption(m_oApp, "--format", m_eFormat, FORMAT_OF_INPUT);
        m_oApp.add_option("--offset", m_nOffset, "Added to every address of the file")
            ->type_name("BYTES")
            ->check(CLI::Range(0U, MAX_OFFSET).description(""))
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

    // Finds the memory, loads the file and connects.
    int OpenForImage(const CTool& oTool, CMemory& oMemory, CImage& oImage)
    {
        int nStatus = ParseMemory(oTool);
        if (nStatus == 0)
            nStatus = oImage.LoadData(oTool, m_strFile, m_eFormat, GetSize(), m_nOffset);
        return nStatus != 0 ? nStatus : oMemory.OpenGateway();
    }

    int ReadSpans(CTool& oTool, CMemory& oMemory, const std::vector<SAddresses>& aoSpans, CImage& oRead) const
    {
        std::vector<CImage::SRange> aoRanges;
        for (const SAddresses& oSpan : aoSpans)
            aoRanges.push_back({oSpan.nFirst, std::string(oSpan.nLast - oSpan.nFirst + 1, '\0')});
        const auto fnRead = [&](unsigned nOffset, char* pBytes, unsigned short nLength,
                                unsigned short& nDone) {
            return oMemory.ReadEEProm(static_cast<unsigned short>(m_nChip), nOffset, GetAddressing(), pBytes,
                                      nLength, nDone);
        };
        const int nStatus = ForPieces(oTool, oMemory, "Reading", "read", aoRanges, fnRead);
        oRead.Set(std::move(aoRanges));
        return nStatus;
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
    int VerifyImage(CTool& oTool, CMemory& oMemory, const CImage& oImage) const
    {
        CVerify oVerify(oTool, "EEPROM", GetInputName(m_strFile));
        CImage oDevice;
        if (const int nStatus = ReadSpans(oTool, oMemory, oImage.GetSpans(READ_HOLE), oDevice); nStatus != 0)
            return nStatus;
        oVerify.Compare(oDevice, oImage);
        return oVerify.Report(true);
    }

    std::string m_strType;
    std::optional<std::uint64_t> m_nSize;
    std::optional<unsigned> m_nAddressing;
    unsigned m_nChip = 0;
    std::int64_t m_nOffset = 0;
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
        CProgress oProgress(oTool, pTitle, nTotal);
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
                if (nRC != 0)
                    return oMemory.Check(
                        fmt::format("{} {} at 0x{:04x}", pVerb, Plural(nLength, "byte"), nOffset), nRC);
                nDone += nLength;
                oProgress.Update(nDone);
                nOffset = nNext;
            }
        }
        oProgress.Finish();
        return eStatusDone;
    }
};

class CEepromRead : public CEepromVerb
{
  public:
    explicit CEepromRead(CLI::App& oGroup)
        : CEepromVerb(oGroup, "read", "Read a memory into a file", "output")
    {
        AddFormatOption(m_oApp, "--format", m_eFormat, FORMAT_OF_OUTPUT);
        m_oApp.add_option("--address", m_nAddress, "First address")
            ->type_name("ADDRESS")
            ->check(CLI::Range(0U, MAX_OFFSET).description(""))
            ->capture_default_str();
        m_oApp.add_option("--length", m_nLength, "How many bytes; default: up to the end")
            ->type_name("BYTES");
        m_oApp.footer("A binary file begins with the byte at --address; the others hold the addresses.\n\n"
                      "quorvel -g 192.168.0.10 i2c eeprom read --type 24c02 --chip 1 content.hex\n\n"
                      "quorvel -g 192.168.0.10 i2c eeprom read --size 32768 --length 16 - | hexdump -C");
    }

    int Run(CTool& oTool) override
    {
        SAddresses oRange{};
        if (int nStatus = ParseMemory(oTool);
            nStatus != 0 || (nStatus = FindRange(oTool, "the memory", {0, GetSize() - 1}, m_nAddress,
                                                 m_nLength, oRange)) != 0)
            return nStatus;
        COutputFile oFile(oTool);
        CMemory oMemory(oTool);
        if (int nStatus = oMemory.OpenGateway(); nStatus != 0 || (nStatus = oFile.Open(m_strFile)) != 0)
            return nStatus;
        CImage oImage;
        if (const int nStatus = ReadSpans(oTool, oMemory, {oRange}, oImage); nStatus != 0)
            return nStatus;
        return oImage.Save(oTool, oFile, GetOutputFormat(m_strFile, m_eFormat));
    }

  private:
    std::uint64_t m_nAddress = 0;
    std::optional<std::uint64_t> m_nLength;
};

class CEepromWrite : public CEepromVerb
{
  public:
    explicit CEepromWrite(CLI::App& oGroup)
        : CEepromVerb(oGroup, "write", "Write a file into a memory, and verify", "input")
    {
        AddInput();
        m_oApp.add_flag("-V,--no-verify", m_bNoVerify, "Do not read back and compare");
        m_oApp.footer(
            "Only what is in the file is written; holes are left as they are. The gateway respects the pages "
            "of the memory and waits until each is "
            "stored.\n\n"
            "Status: 1 when the memory does not acknowledge (NACK), 3 when it does not hold what was "
            "written, 5 when the file cannot be read or has no data, or does not fit the memory.\n\n"
            "quorvel -g 192.168.0.10 i2c eeprom write --type 24c256 content.hex");
    }

    int Run(CTool& oTool) override
    {
        CImage oImage;
        CMemory oMemory(oTool);
        int nStatus = OpenForImage(oTool, oMemory, oImage);
        if (nStatus == 0)
            nStatus = WriteRanges(oTool, oMemory, oImage.GetRanges());
        if (nStatus != 0)
            return nStatus;
        oTool.Note(Plural(oImage.GetSize(), "byte") + " of EEPROM written");
        return m_bNoVerify ? eStatusDone : VerifyImage(oTool, oMemory, oImage);
    }

  private:
    bool m_bNoVerify = false;
};

class CEepromVerify : public CEepromVerb
{
  public:
    explicit CEepromVerify(CLI::App& oGroup)
        : CEepromVerb(oGroup, "verify", "Compare a memory with a file", "input")
    {
        AddInput();
        m_oApp.footer("Reports the first ten bytes that differ, how many do, and whether bits are only set "
                      "(1 in the memory, "
                      "0 in the file), only cleared, or both.\n\n"
                      "Status: 3 when there is a difference.\n\n"
                      "quorvel -g 192.168.0.10 i2c eeprom verify --type 24c256 content.hex");
    }

    int Run(CTool& oTool) override
    {
        CImage oImage;
        CMemory oMemory(oTool);
        int nStatus = OpenForImage(oTool, oMemory, oImage);
        return nStatus != 0 ? nStatus : VerifyImage(oTool, oMemory, oImage);
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
