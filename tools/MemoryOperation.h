// Memory operations as avrdude's option -U writes them, and the input formats that only programmers know.
#ifndef QUORVEL_TOOL_MEMORY_OPERATION_H
#define QUORVEL_TOOL_MEMORY_OPERATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// One operation on memories of a target.
struct SMemoryOperation {
    /// What is done.
    enum class EAction {
        eRead,  ///< from the target into the file
        eWrite, ///< from the file to the target
        eVerify ///< compare the target with the file
    };

    std::string strMemories = "flash"; ///< a list, see SelectMemories
    EAction eAction = EAction::eWrite; ///< what is done
    std::string strFile;               ///< "-" is standard input or output; with the format m, the bytes
    char cFormat = 'a';                ///< one of MEMORY_FORMATS
};

/// a automatic, d h o b numbers, e ELF, i Intel HEX, I with comments, m the bytes themselves, r raw, s S-records.
constexpr std::string_view MEMORY_FORMATS = "abdehiImors";

/**
 * Parses "MEMORIES:r|w|v:FILE[:FORMAT]" or "FILE[:FORMAT]", which writes the flash. A file name may contain colons:
 * only a known format letter behind the last one is a format.
 * @param strText  the text
 * @param strError receives what is wrong
 * @return the operation; nothing when it is none
 */
std::optional<SMemoryOperation> ParseMemoryOperation(std::string_view strText, std::string& strError);

/**
 * Chooses memories by a list: names, "all" ("ALL" and "etc" mean the same), and names with a minus, which are taken out
 * again.
 * @param strList   the list, separated by commas
 * @param astrNames the target's memories
 * @param strError  receives what is wrong
 * @return indices, ascending, at least one; nothing when the list is wrong
 */
std::optional<std::vector<std::size_t>>
SelectMemories(std::string_view strList, const std::vector<std::string>& astrNames, std::string& strError);

/**
 * Reads a list of bytes: decimal, 0x hexadecimal, 0 octal or 0b binary numbers.
 * @param strText  the text; commas and white space separate
 * @param strError receives what is wrong
 * @return the bytes, at least one; nothing when anything else is there
 */
std::optional<std::string> ParseByteList(std::string_view strText, std::string& strError);

/// Writes a list of bytes: d decimal, h hexadecimal, o octal, b binary. @return such as "0x1,0xff"
std::string FormatByteList(std::string_view strBytes, char cFormat);

/// Bytes and the address of the first.
using CSegment = std::pair<std::uint64_t, std::string_view>;

/// @return true for the first bytes of an ELF file
bool IsElf(std::string_view strContent);

/**
 * Finds what an ELF file, of 32 or 64 bits and either byte order, loads: its PT_LOAD segments, at their physical
 * addresses, as far as they have bytes in the file.
 * @param strContent the file; the segments point into it
 * @param strError   receives what is wrong
 * @return the segments, ascending; nothing when the file is damaged, or they overlap
 */
std::optional<std::vector<CSegment>> FindElfSegments(std::string_view strContent, std::string& strError);

#endif
