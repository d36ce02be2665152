// Texts and numbers of the command line.
#ifndef QUORVEL_TOOL_TEXT_H
#define QUORVEL_TOOL_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/**
 * Reads a number: decimal, 0x hexadecimal or 0 octal; the whole text must be one.
 * @param strText  the text
 * @param nMaximum the largest number allowed
 * @return the number; nothing when it is none or too large
 */
std::optional<std::uint64_t> ParseNumber(std::string_view strText, std::uint64_t nMaximum);

/**
 * Reads bytes as hex digits: "9f 00", "9f00", "0x9f,0x00"; one digit alone is a byte too.
 * @param strText the text; blanks, commas, colons and dots separate
 * @return the bytes; nothing when it is anything else
 */
std::optional<std::string> ParseHex(std::string_view strText);

/// @return the bytes as two lower-case digits each, with a separator between them
std::string ToHex(std::string_view strBytes, std::string_view strSeparator = " ");

/// @return the text with what cannot be printed replaced by dots
std::string ToPrintable(std::string_view strBytes);

/// @return such as "1 byte", "2 bytes"
std::string Plural(std::uint64_t nCount, std::string_view strName);

/**
 * A hex dump: lines of address, 16 bytes and characters.
 * @param nAddress  address of the first byte
 * @param strIndent what each line begins with
 */
std::string Dump(std::uint64_t nAddress, std::string_view strBytes, std::string_view strIndent = "");

/// @return the names that somebody who typed a text may have meant, nearest first; at most three
std::vector<std::string> FindNearest(const std::string& strText, const std::vector<std::string>& astrNames);

/**
 * Makes a text harmless that comes from a gateway, a file or the command line.
 * @param strText the text
 * @param bLines  keeps ends of lines and tabs
 * @return the text, with a dot for everything that a terminal may obey or that hides what is there: control characters,
 *         those of C1 too, marks of the direction of writing, and bytes that are not UTF-8
 */
std::string ToHarmless(std::string_view strText, bool bLines = false);

/// @return the text in single quotes, harmless
std::string Quote(std::string_view strText);

/// @return what is wrong with the address of a gateway; empty when it can be one
std::string CheckHost(const std::string& strHost);

/// Prints on standard error. That it is closed or full takes the place of no other failure.
void PutError(const std::string& strText);

/// @return the text of errno
std::string GetSystemError();

#endif
