// Memory images of the command line.
#ifndef QUORVEL_TOOL_IMAGE_H
#define QUORVEL_TOOL_IMAGE_H

#include "File.h"
#include "QuorvelHexfile.h"
#include "Tool.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The highest address of an image.
constexpr std::uint64_t MAX_ADDRESS = CQuorvelHexfile::m_nMaxAddressSupported;

/// Addresses, the last one included.
struct SAddresses {
    std::uint64_t nFirst;
    std::uint64_t nLast;
};

/// A sparse image: ranges of bytes, ascending, neither touching nor overlapping.
class CImage
{
  public:
    /// One range without a gap.
    struct SRange {
        std::uint64_t nAddress; ///< of the first byte
        std::string strBytes;   ///< at least one

        /// @return the address of the last byte
        std::uint64_t GetLast() const { return nAddress + strBytes.size() - 1; }
    };

    /// How two images differ.
    struct SDifferences {
        /// A byte that both have.
        struct SByte {
            std::uint64_t nAddress;
            unsigned char nLeft;
            unsigned char nRight;
        };
        std::uint64_t nDiffering = 0; ///< bytes that both have, but not the same
        std::uint64_t nOnlyLeft = 0;
        std::uint64_t nOnlyRight = 0;
        std::vector<SByte> aoBytes; ///< the first of those that differ
        std::vector<SAddresses> aoOnlyLeft, aoOnlyRight;

        /// @return true when there is any difference
        bool IsAny() const { return nDiffering + nOnlyLeft + nOnlyRight != 0; }
    };

    /**
     * Loads a file that is not longer than an image may be. Every fault is reported with its line: a record without data, such as a start segment address,
     * is a warning; anything else an error, also a wrong checksum of an S-record and a record of an unknown type.
     * What could be read is there even then. That the last record is no end record is a warning.
     * @param oTool   reports
     * @param strPath the file, "-" for standard input
     * @param eType   its format; see GetInputFormat
     * @param nSize   bytes of the memory that it is for; nothing: none
     * @return 0, or the exit status of a failure, which was reported
     */
    int Load(const CTool& oTool, const std::string& strPath, CQuorvelHexfile::EType eType,
             std::optional<std::uint64_t> nSize = {});

    /**
     * Loads a file for a memory that begins at address 0; otherwise as Load, but one without data is a failure, too,
     * and one with data outside the memory.
     * @param nSize   bytes of the memory
     * @param nOffset added to all addresses
     */
    int LoadData(const CTool& oTool, const std::string& strPath, CQuorvelHexfile::EType eType,
                 std::uint64_t nSize, std::int64_t nOffset);

    /**
     * Loads the content of a file; otherwise as Load.
     * @param oTool      reports
     * @param strName    what reports call the file
     * @param strContent its bytes
     * @param eType      its format
     * @param bTolerant  true: wrong checksums are warnings
     * @return 0, or the exit status of a failure, which was reported
     */
    int Parse(const CTool& oTool, const std::string& strName, std::string strContent,
              CQuorvelHexfile::EType eType, bool bTolerant = false);

    /**
     * Writes a file. Unless it is standard output, a pipe or a device, it is read back and compared before it takes
     * its name. Records end at multiples of 16, so none crosses a boundary of 64 KiB; S-records have a header and an
     * end record.
     * @param oFile     the file, which was opened; so that what takes long need not be done for a file that cannot
     * @param eType     its format; as eTypeBinary, the ranges are written one behind the other
     * @param bComments true: behind each data record of Intel HEX are its address and its characters
     * @return 0, or the exit status of a failure, which was reported
     */
    int Save(const CTool& oTool, COutputFile& oFile, CQuorvelHexfile::EType eType,
             bool bComments = false) const;

    /// Opens a file and writes it. @param strPath the file, "-" for standard output
    int Save(CTool& oTool, const std::string& strPath, CQuorvelHexfile::EType eType,
             bool bComments = false) const;

    /// @return the format of the file that was loaded
    CQuorvelHexfile::EType GetType() const { return m_eType; }

    /// @return the ranges
    const std::vector<SRange>& GetRanges() const { return m_aoRanges; }

    /// @return the number of bytes in all ranges
    std::uint64_t GetSize() const;

    /// Sets bytes; what was there before is replaced, and ranges that then touch become one.
    void Set(std::uint64_t nAddress, std::string_view strBytes);

    /// Sets ranges of bytes, which are ascending and do not overlap.
    void Set(std::vector<SRange> aoRanges);

    /// Removes what is outside of a range of addresses.
    void Crop(const SAddresses& oAddresses);

    /// Sets what is not there yet in a range of addresses to a value.
    void Fill(const SAddresses& oAddresses, char nValue);

    /// Adds a number to all addresses. @return false, and nothing is changed, if one left the address space
    bool Move(std::int64_t nOffset);

    /// @return the addresses from the first to the last byte, holes of up to nHole bytes included
    std::vector<SAddresses> GetSpans(std::uint64_t nHole) const;

    /**
     * Compares two images.
     * @param nMaximum how many differing bytes are listed, and ranges of each image that the other has not
     */
    static SDifferences Compare(const CImage& oLeft, const CImage& oRight, std::size_t nMaximum);

  private:
    int ReadBack(const CTool& oTool, const std::string& strPath, CQuorvelHexfile::EType eType) const;

    CQuorvelHexfile::EType m_eType = CQuorvelHexfile::eTypeAuto;
    std::vector<SRange> m_aoRanges;
};

/// @return "intel", "motorola" or "binary"
const char* GetFormatName(CQuorvelHexfile::EType eType);

/// @return the format that the ending of a file's name stands for; eTypeAuto when it tells none
CQuorvelHexfile::EType GetFormatOfName(const std::string& strPath);

/// What the format option of a file that is read says; see GetInputFormat.
constexpr const char* FORMAT_OF_INPUT =
    "Format of the file; auto: the ending of its name decides, .hex .ihex .ihx .mcs Intel HEX, .srec .s19 "
    ".s28 .s37 .mot S-records, .bin .img .rom binary, with any other the first character, ':' Intel HEX, 'S' "
    "S-records, else binary";

/// What the format option of a file that is written says; see GetOutputFormat.
constexpr const char* FORMAT_OF_OUTPUT =
    "Format of the file; auto: the ending of its name decides, .hex .ihex .ihx .mcs "
    "Intel HEX, .srec .s19 .s28 .s37 .mot S-records, any other binary";

/// @return the format to read a file in: the one given, or with eTypeAuto as its name or else its start tells
CQuorvelHexfile::EType GetInputFormat(const std::string& strPath, std::string_view strStart,
                                      CQuorvelHexfile::EType eType);

/// @return how long a file for a memory may be: a binary one as the memory, a text 16 times as much
SFileLimit GetFileLimit(CQuorvelHexfile::EType eType, std::uint64_t nSize);

/// @return the format to write a file in: the one given, or with eTypeAuto as its name tells, else binary
CQuorvelHexfile::EType GetOutputFormat(const std::string& strPath, CQuorvelHexfile::EType eType);

/// Adds an option for the format of an image.
CLI::Option& AddFormatOption(CLI::App& oApp, const std::string& strName, CQuorvelHexfile::EType& eType,
                             const std::string& strText);

/// Adds an option for addresses, FIRST-LAST.
CLI::Option& AddAddressesOption(CLI::App& oApp, const std::string& strName,
                                std::optional<SAddresses>& oAddresses, const std::string& strText);

/**
 * Finds what the options --address and --length choose of a memory.
 * @param oTool     reports
 * @param strMemory what reports call the memory
 * @param oMemory   its addresses
 * @param nFirst    first address; nothing: that of the memory
 * @param nLength   how many bytes; nothing: up to the end
 * @param oRange    receives the addresses
 * @return 0, or the exit status of a failure, which was reported
 */
int FindRange(const CTool& oTool, std::string_view strMemory, const SAddresses& oMemory,
              std::optional<std::uint64_t> nFirst, std::optional<std::uint64_t> nLength, SAddresses& oRange);

/**
 * The CRC-32 of zip and Ethernet.
 * @param nCrc that of the bytes before
 */
std::uint32_t GetCrc32(std::string_view strBytes, std::uint32_t nCrc = 0);

#endif
