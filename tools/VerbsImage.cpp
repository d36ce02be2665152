// The group `image`: memory image files, without any gateway.

#include "Groups.h"
#include "Image.h"
#include "Text.h"

#include <algorithm>
#include <cstdint>

namespace
{

using EType = CQuorvelHexfile::EType;

constexpr std::uint64_t MAX_FILL = 0x40000000; // bytes
constexpr std::uint64_t MAP_COLUMNS = 80;
constexpr std::uint64_t DUMP_WIDTH = 16;

/// A verb with an image to read.
class CImageVerb : public CVerb
{
  public:
    CImageVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
    }

  protected:
    void AddInput()
    {
        m_oApp.add_option("FILE", m_strFile, "The image; - is standard input")->required()->type_name("FILE");
        AddFormatOption(m_oApp, "--from", m_eFrom, FORMAT_OF_INPUT);
    }

    std::string m_strFile;
    EType m_eFrom = CQuorvelHexfile::eTypeAuto;
};

class CImageInfo : public CVerb
{
  public:
    explicit CImageInfo(CLI::App& oGroup)
        : CVerb(oGroup, "info", "Tell format, ranges, holes and CRC-32 of images, and check their lines")
    {
        m_oApp.add_option("FILE", m_astrFiles, "The images; - is standard input")
            ->required()
            ->type_name("FILE");
        AddFormatOption(m_oApp, "--from", m_eFrom, FORMAT_OF_INPUT);
        m_oApp.footer(
            "Addresses are those of the first and of the last byte: the last one is included. The CRC-32 is "
            "that of zip and Ethernet; that of all data runs over the ranges and leaves out the holes.\n\n"
            "A line at fault is told on standard error with its number, and the status is 5; what could be "
            "read is printed all the same. A record without data, such as a start segment address (type 03 "
            "of Intel HEX), and a missing end record are warnings only. The checksums of S-records are "
            "checked, too.\n\n"
            "With --json: one object for each file.\n\n"
            "quorvel image info firmware.hex");
    }

    int Run(CTool& oTool) override
    {
        int nStatus = eStatusDone;
        for (const std::string& strFile : m_astrFiles) {
            CImage oImage;
            if (const int nLoaded = oImage.Load(oTool, strFile, m_eFrom); nLoaded != 0)
                nStatus = nLoaded;
            if (oImage.GetType() == CQuorvelHexfile::eTypeAuto)
                continue; // not even its format is known
            if (oTool.GetOptions().bJson)
                PrintAsJson(strFile, oImage);
            else
                PrintAsText(strFile, oImage);
        }
        return nStatus;
    }

  private:
    // Calls fnRange(addresses, bytes) for all ranges and holes, the latter with no bytes; gives the CRC-32.
    template<class FRange>
    static std::uint32_t ForEach(const CImage& oImage, FRange fnRange)
    {
        std::uint32_t nCrc = 0;
        std::uint64_t nNext = 0;
        for (const CImage::SRange& oRange : oImage.GetRanges()) {
            if (&oRange != oImage.GetRanges().data())
                fnRange(SAddresses{nNext, oRange.nAddress - 1}, std::string_view());
            fnRange(SAddresses{oRange.nAddress, oRange.GetLast()}, std::string_view(oRange.strBytes));
            nCrc = GetCrc32(oRange.strBytes, nCrc);
            nNext = oRange.GetLast() + 1;
        }
        return nCrc;
    }

    static void PrintAsText(const std::string& strFile, const CImage& oImage)
    {
        fmt::print("{}: {}, {} in {}\n", ToHarmless(strFile), GetFormatName(oImage.GetType()),
                   Plural(oImage.GetSize(), "byte"), Plural(oImage.GetRanges().size(), "range"));
        const std::uint32_t nCrc =
            ForEach(oImage, [](const SAddresses& oAddresses, std::string_view strBytes) {
                fmt::print("  0x{:08x}-0x{:08x}  {:>16}  {}\n", oAddresses.nFirst, oAddresses.nLast,
                           Plural(oAddresses.nLast - oAddresses.nFirst + 1, "byte"),
                           strBytes.empty() ? "hole" : fmt::format("CRC-32 {:08x}", GetCrc32(strBytes)));
            });
        fmt::print("  CRC-32 of all data{}: {:08x}\n",
                   oImage.GetRanges().size() > 1 ? ", without the holes" : "", nCrc);
    }

    static void PrintAsJson(const std::string& strFile, const CImage& oImage)
    {
        CJson oRanges = CJson::array();
        CJson oHoles = CJson::array();
        const std::uint32_t nCrc =
            ForEach(oImage, [&](const SAddresses& oAddresses, std::string_view strBytes) {
                CJson oRange{{"first", oAddresses.nFirst},
                             {"last", oAddresses.nLast},
                             {"size", oAddresses.nLast - oAddresses.nFirst + 1}};
                if (!strBytes.empty())
                    oRange["crc32"] = fmt::format("{:08x}", GetCrc32(strBytes));
                (strBytes.empty() ? oHoles : oRanges).push_back(std::move(oRange));
            });
        CTool::PrintJson({{"file", strFile},
                          {"format", GetFormatName(oImage.GetType())},
                          {"size", oImage.GetSize()},
                          {"last_included", true},
                          {"ranges", std::move(oRanges)},
                          {"holes", std::move(oHoles)},
                          {"crc32", fmt::format("{:08x}", nCrc)}});
    }

    std::vector<std::string> m_astrFiles;
    EType m_eFrom = CQuorvelHexfile::eTypeAuto;
};

class CImageConvert : public CVerb
{
  public:
    explicit CImageConvert(CLI::App& oGroup)
        : CVerb(oGroup, "convert", "Convert an image to another format; crop it, fill its holes, move it")
    {
        m_oApp.add_option("IN", m_strIn, "The image to read; - is standard input")
            ->required()
            ->type_name("FILE");
        m_oApp.add_option("OUT", m_strOut, "The file to write; - is standard output")
            ->required()
            ->type_name("FILE");
        AddFormatOption(m_oApp, "--from", m_eFrom, FORMAT_OF_INPUT);
        AddFormatOption(
            m_oApp, "--to", m_eTo,
            "Format of the output; auto: the ending of OUT decides, .hex .ihex .ihx .mcs, .srec .s19 "
            ".s28 .s37 .mot, .bin .img .rom");
        m_oApp.add_option("--base", m_nBase, "Address of the first byte of binary input")
            ->type_name("FIRST")
            ->check(CLI::Range(0U, 0xFFFFFFFFU).description(""));
        AddAddressesOption(m_oApp, "--crop", m_oCrop, "Keep these addresses only; the last one is included");
        m_oApp
            .add_option("--fill", m_nFill, "Fill the holes between the first and the last byte with a value")
            ->type_name("VALUE")
            ->check(CLI::Range(0U, 255U).description(""));
        AddAddressesOption(m_oApp, "--fill-range", m_oFillRange,
                           "Fill what is not there at these addresses instead; the last one is included");
        m_oApp.add_option("--offset", m_nOffset, "Add a number, which may be negative, to all addresses")
            ->type_name("N")
            ->check(CLI::Range(-0xFFFFFFFFLL, 0xFFFFFFFFLL).description(""));
        m_oApp.footer("The order is: --base, --crop, --fill, --offset; so --crop and --fill-range take "
                      "addresses of the input.\n\n"
                      "Holes are never filled unless --fill asks for it. Binary files have no addresses: "
                      "what is to be written as "
                      "binary must begin at 0 and have no holes. An offset that would move data below 0 or "
                      "above 0xffffffff is "
                      "an error.\n\n"
                      "The file is read back and compared before it takes its name, so that it is there "
                      "whole or not at all; "
                      "standard output is not read back. Intel HEX is written without a start address, "
                      "S-records with a header and an end record, both with up to 16 bytes in a line. "
                      "Input with a line at "
                      "fault is not converted.\n\n"
                      "quorvel image convert firmware.hex firmware.bin --offset -0x8000 --fill 0xff\n"
                      "quorvel image convert --to motorola --crop 0x100-0x1ff firmware.hex -");
    }

    int Run(CTool& oTool) override
    {
        if (m_oFillRange && !m_nFill)
            return oTool.Fail(eStatusUsage, "--fill-range needs --fill VALUE");
        const EType eTo = m_eTo != CQuorvelHexfile::eTypeAuto ? m_eTo : GetFormatOfName(m_strOut);
        if (eTo == CQuorvelHexfile::eTypeAuto)
            return oTool.Fail(eStatusUsage,
                              m_strOut + ": the name tells no format; give --to intel, motorola or binary");
        CImage oImage;
        if (const int nStatus = oImage.Load(oTool, m_strIn, m_eFrom); nStatus != 0)
            return nStatus;
        if (m_nBase && oImage.GetType() != CQuorvelHexfile::eTypeBinary)
            return oTool.Fail(eStatusUsage,
                              fmt::format("--base is for binary input, but {} is {}; --offset moves it",
                                          m_strIn, GetFormatName(oImage.GetType())));
        if (m_nBase && !oImage.Move(*m_nBase))
            return oTool.Fail(eStatusFile, "--base: the data would end above 0xffffffff");
        if (m_oCrop)
            oImage.Crop(*m_oCrop);
        if (oImage.GetRanges().empty())
            return oTool.Fail(eStatusFile,
                              m_strIn + (m_oCrop ? ": no data at the addresses of --crop" : ": no data"));
        if (m_nFill) {
            const SAddresses oAddresses = m_oFillRange.value_or(
                SAddresses{oImage.GetRanges().front().nAddress, oImage.GetRanges().back().GetLast()});
            if (oAddresses.nLast - oAddresses.nFirst >= MAX_FILL)
                return oTool.Fail(eStatusFile,
                                  "--fill: more than 1 GiB; choose less with --crop or --fill-range");
            oImage.Fill(oAddresses, static_cast<char>(*m_nFill));
        }
        const CImage::SRange& oFirst = oImage.GetRanges().front();
        if (m_nOffset && !oImage.Move(*m_nOffset))
            return oTool.Fail(
                eStatusFile, fmt::format("--offset: 0x{:08x}-0x{:08x} would leave the addresses 0-0xffffffff",
                                         oFirst.nAddress, oImage.GetRanges().back().GetLast()));
        if (eTo == CQuorvelHexfile::eTypeBinary && oImage.GetRanges().size() > 1)
            return oTool.Fail(eStatusFile,
                              fmt::format("binary has no addresses, and the image has {}, the first one at "
                                          "0x{:08x}-0x{:08x}: fill with --fill VALUE, or choose with --crop",
                                          Plural(oImage.GetRanges().size() - 1, "hole"), oFirst.GetLast() + 1,
                                          oImage.GetRanges()[1].nAddress - 1));
        if (eTo == CQuorvelHexfile::eTypeBinary && oFirst.nAddress != 0)
            return oTool.Fail(
                eStatusFile,
                fmt::format("binary has no addresses, and the image begins at 0x{0:08x}: move it with "
                            "--offset -0x{0:x}, or fill with --fill VALUE --fill-range 0-0x{1:x}",
                            oFirst.nAddress, oFirst.nAddress - 1));
        return oImage.Save(oTool, m_strOut, eTo);
    }

  private:
    std::string m_strIn;
    std::string m_strOut;
    EType m_eFrom = CQuorvelHexfile::eTypeAuto;
    EType m_eTo = CQuorvelHexfile::eTypeAuto;
    std::optional<unsigned> m_nBase;
    std::optional<SAddresses> m_oCrop;
    std::optional<unsigned> m_nFill;
    std::optional<SAddresses> m_oFillRange;
    std::optional<std::int64_t> m_nOffset;
};

class CImageDump : public CImageVerb
{
  public:
    explicit CImageDump(CLI::App& oGroup) : CImageVerb(oGroup, "dump", "Print the bytes of an image")
    {
        AddInput();
        m_oApp.add_option("--address", m_nAddress, "First address; default: the first of the image")
            ->type_name("ADDRESS")
            ->check(CLI::Range(0U, 0xFFFFFFFFU).description(""));
        m_oApp.add_option("--length", m_nLength, "How many addresses; default: up to the end")
            ->type_name("BYTES")
            ->check(CLI::Range(std::uint64_t{1}, MAX_ADDRESS + 1).description(""));
        m_oApp.footer(
            "Prints address, bytes and characters of up to 16 bytes in a line, and a line for each hole.\n\n"
            "With --json: one object for each range; its last address is included.\n\n"
            "The status is 5 when the image has nothing at these addresses.\n\n"
            "quorvel image dump firmware.hex --address 0x100 --length 256");
    }

    int Run(CTool& oTool) override
    {
        CImage oImage;
        const int nStatus = oImage.Load(oTool, m_strFile, m_eFrom);
        oImage.Crop({m_nAddress, m_nAddress + m_nLength - 1});
        if (nStatus == 0 && oImage.GetRanges().empty())
            return oTool.Fail(eStatusFile, m_strFile + ": no data at these addresses");
        std::uint64_t nNext = 0;
        for (const CImage::SRange& oRange : oImage.GetRanges()) {
            if (oTool.GetOptions().bJson) {
                CTool::PrintJson({{"first", oRange.nAddress},
                                  {"last", oRange.GetLast()},
                                  {"last_included", true},
                                  {"bytes", ToHex(oRange.strBytes, "")}});
                continue;
            }
            if (&oRange != oImage.GetRanges().data())
                fmt::print("          hole of {}\n", Plural(oRange.nAddress - nNext, "byte"));
            nNext = oRange.GetLast() + 1;
            // Lines begin at multiples of 16.
            std::string_view strRest = oRange.strBytes;
            for (std::uint64_t nAddress = oRange.nAddress; !strRest.empty();) {
                const std::string_view strLine = strRest.substr(0, DUMP_WIDTH - nAddress % DUMP_WIDTH);
                fmt::print("{}", Dump(nAddress, strLine));
                nAddress += strLine.size();
                strRest.remove_prefix(strLine.size());
            }
        }
        return nStatus;
    }

  private:
    std::uint64_t m_nAddress = 0;
    std::uint64_t m_nLength = MAX_ADDRESS + 1;
};

class CImageCompare : public CVerb
{
  public:
    explicit CImageCompare(CLI::App& oGroup)
        : CVerb(oGroup, "compare", "Compare two images byte by byte; their formats may differ")
    {
        m_oApp.add_option("A", m_strA, "An image; - is standard input")->required()->type_name("FILE");
        m_oApp.add_option("B", m_strB, "The other image")->required()->type_name("FILE");
        AddFormatOption(m_oApp, "--from", m_eFrom,
                        "Format of both; auto: for each the ending of its name decides, else the first "
                        "character");
        m_oApp.add_option("--max", m_nMaximum, "How many differences are listed")
            ->type_name("N")
            ->capture_default_str();
        m_oApp.footer(
            "Prints how many bytes differ, and how many are in one image only; then the first differing "
            "bytes, "
            "that of A in front, and the first ranges that only one image has, the last address included.\n\n"
            "The status is 0 when both images are the same, 3 when they are not.\n\n"
            "quorvel image compare firmware.hex read-back.bin");
    }

    int Run(CTool& oTool) override
    {
        CImage oA;
        CImage oB;
        const int nStatusA = oA.Load(oTool, m_strA, m_eFrom);
        const int nStatusB = oB.Load(oTool, m_strB, m_eFrom);
        if (nStatusA != 0 || nStatusB != 0)
            return nStatusA != 0 ? nStatusA : nStatusB;
        const CImage::SDifferences oFound = CImage::Compare(oA, oB, m_nMaximum);
        if (oTool.GetOptions().bJson)
            PrintAsJson(oFound);
        else
            PrintAsText(oFound);
        return oFound.IsAny() ? eStatusMismatch : eStatusDone;
    }

  private:
    void PrintAsText(const CImage::SDifferences& oFound) const
    {
        const std::string strA = ToHarmless(m_strA);
        const std::string strB = ToHarmless(m_strB);
        fmt::print("differing bytes: {}; only in {}: {}; only in {}: {}\n", oFound.nDiffering, strA,
                   oFound.nOnlyLeft, strB, oFound.nOnlyRight);
        for (const auto& oByte : oFound.aoBytes)
            fmt::print("  0x{:02x} != 0x{:02x} at 0x{:04x}\n", oByte.nLeft, oByte.nRight, oByte.nAddress);
        for (const auto& oRange : oFound.aoOnlyLeft)
            fmt::print("  only in {}: 0x{:04x}-0x{:04x}\n", strA, oRange.nFirst, oRange.nLast);
        for (const auto& oRange : oFound.aoOnlyRight)
            fmt::print("  only in {}: 0x{:04x}-0x{:04x}\n", strB, oRange.nFirst, oRange.nLast);
    }

    static void PrintAsJson(const CImage::SDifferences& oFound)
    {
        CJson oBytes = CJson::array();
        for (const auto& oByte : oFound.aoBytes)
            oBytes.push_back({{"address", oByte.nAddress},
                              {"a", fmt::format("{:02x}", oByte.nLeft)},
                              {"b", fmt::format("{:02x}", oByte.nRight)}});
        const auto fnRanges = [](const std::vector<SAddresses>& aoRanges) {
            CJson oRanges = CJson::array();
            for (const auto& oRange : aoRanges)
                oRanges.push_back({{"first", oRange.nFirst}, {"last", oRange.nLast}});
            return oRanges;
        };
        CTool::PrintJson({{"differing", oFound.nDiffering},
                          {"only_in_a", oFound.nOnlyLeft},
                          {"only_in_b", oFound.nOnlyRight},
                          {"differences", std::move(oBytes)},
                          {"last_included", true},
                          {"ranges_only_in_a", fnRanges(oFound.aoOnlyLeft)},
                          {"ranges_only_in_b", fnRanges(oFound.aoOnlyRight)}});
    }

    std::string m_strA;
    std::string m_strB;
    EType m_eFrom = CQuorvelHexfile::eTypeAuto;
    unsigned m_nMaximum = 10;
};

class CImageMap : public CImageVerb
{
  public:
    explicit CImageMap(CLI::App& oGroup)
        : CImageVerb(oGroup, "map", "Draw which addresses an image has, in a line of up to 80 columns")
    {
        AddInput();
        m_oApp.footer(
            "Prints the first and the last address, which is included, and below a column for each equal "
            "share "
            "of the addresses between them: '=' where all bytes are there, '-' where some are, a blank where "
            "none is.\n\n"
            "quorvel image map firmware.hex");
    }

    int Run(CTool& oTool) override
    {
        CImage oImage;
        const int nStatus = oImage.Load(oTool, m_strFile, m_eFrom);
        if (oImage.GetRanges().empty())
            return nStatus != 0 ? nStatus : oTool.Fail(eStatusFile, m_strFile + ": no data");
        const std::uint64_t nFirst = oImage.GetRanges().front().nAddress;
        const std::uint64_t nLast = oImage.GetRanges().back().GetLast();
        const std::uint64_t nColumns = std::min(MAP_COLUMNS, nLast - nFirst + 1);
        std::string strMap;
        auto itRange = oImage.GetRanges().begin();
        for (std::uint64_t i = 0; i < nColumns; ++i) {
            const std::uint64_t nBegin = nFirst + (nLast - nFirst + 1) * i / nColumns;
            const std::uint64_t nEnd = nFirst + (nLast - nFirst + 1) * (i + 1) / nColumns;
            std::uint64_t nBytes = 0;
            for (; itRange != oImage.GetRanges().end() && itRange->nAddress < nEnd; ++itRange) {
                nBytes += std::min(nEnd, itRange->GetLast() + 1) - std::max(nBegin, itRange->nAddress);
                if (itRange->GetLast() >= nEnd)
                    break;
            }
            strMap += nBytes == 0 ? ' ' : nBytes == nEnd - nBegin ? '=' : '-';
        }
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"first", nFirst}, {"last", nLast}, {"last_included", true}, {"map", strMap}});
        else
            fmt::print("{:<{}}0x{:08x}\n{}\n", fmt::format("0x{:08x} ", nFirst),
                       std::max<std::uint64_t>(11, nColumns - std::min<std::uint64_t>(nColumns, 10)), nLast,
                       strMap);
        return nStatus;
    }
};

} // namespace

void AddImage(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("image", "Memory image files: Intel HEX, S-records, binary");
    oTool.AddVerb<CImageInfo>(oGroup);
    oTool.AddVerb<CImageConvert>(oGroup);
    oTool.AddVerb<CImageDump>(oGroup);
    oTool.AddVerb<CImageCompare>(oGroup);
    oTool.AddVerb<CImageMap>(oGroup);
}
