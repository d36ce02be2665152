#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <numeric>
#include <system_error>
#include <utility>

std::optional<std::uint64_t> ParseNumber(std::string_view strText, std::uint64_t nMaximum)
{
    int nBase = 10;
    if (strText.size() > 1 && strText[0] == '0') {
        const bool bHex = strText[1] == 'x' || strText[1] == 'X';
        nBase = bHex ? 16 : 8;
        strText.remove_prefix(bHex ? 2 : 1);
    }
    std::uint64_t nValue = 0;
    const char* const pEnd = strText.data() + strText.size();
    const auto [pStop, eError] = std::from_chars(strText.data(), pEnd, nValue, nBase);
    if (eError != std::errc() || pStop != pEnd || nValue > nMaximum)
        return std::nullopt;
    return nValue;
}

std::optional<std::string> ParseHex(std::string_view strText)
{
    constexpr std::string_view SEPARATORS = " \t\r\n,:.";
    std::string strBytes;
    while (true) {
        const auto nStart = strText.find_first_not_of(SEPARATORS);
        if (nStart == std::string_view::npos)
            return strBytes;
        strText.remove_prefix(nStart);
        std::string_view strWord = strText.substr(0, strText.find_first_of(SEPARATORS));
        strText.remove_prefix(strWord.size());
        if (strWord.starts_with("0x") || strWord.starts_with("0X"))
            strWord.remove_prefix(2);
        if (strWord.empty() || (strWord.size() > 1 && strWord.size() % 2 != 0))
            return std::nullopt;
        for (; !strWord.empty(); strWord.remove_prefix(std::min<std::size_t>(2, strWord.size()))) {
            unsigned char nByte = 0;
            const char* const pEnd = strWord.data() + std::min<std::size_t>(2, strWord.size());
            const auto [pStop, eError] = std::from_chars(strWord.data(), pEnd, nByte, 16);
            if (eError != std::errc() || pStop != pEnd)
                return std::nullopt;
            strBytes += static_cast<char>(nByte);
        }
    }
}

std::string ToHex(std::string_view strBytes, std::string_view strSeparator)
{
    std::string strText;
    for (const char cByte : strBytes)
        strText +=
            fmt::format("{}{:02x}", strText.empty() ? "" : strSeparator, static_cast<unsigned char>(cByte));
    return strText;
}

std::string ToPrintable(std::string_view strBytes)
{
    std::string strText;
    for (const char cByte : strBytes)
        strText += cByte >= ' ' && cByte <= '~' ? cByte : '.';
    return strText;
}

namespace
{

// Takes the first character of a text. @return its number; nothing when it is not UTF-8, and one byte is taken
std::optional<unsigned> TakeCharacter(std::string_view& strText)
{
    constexpr unsigned LEAST[] = {0, 0x80, 0x800, 0x10000}; // what needs so many bytes behind the first
    const unsigned nFirst = static_cast<unsigned char>(strText[0]);
    const std::size_t nMore = nFirst < 0x80 ? 0 : nFirst < 0xE0 ? 1 : nFirst < 0xF0 ? 2 : 3;
    unsigned nCharacter = nMore == 0 ? nFirst : nFirst & (0x3FU >> nMore);
    bool bValid = nFirst < 0x80 || (nFirst >= 0xC0 && nFirst < 0xF8 && nMore < strText.size());
    for (std::size_t i = 1; bValid && i <= nMore; ++i) {
        const unsigned nByte = static_cast<unsigned char>(strText[i]);
        bValid = (nByte & 0xC0U) == 0x80;
        nCharacter = nCharacter << 6 | (nByte & 0x3FU);
    }
    bValid =
        bValid && nCharacter >= LEAST[nMore] && nCharacter <= 0x10FFFF && (nCharacter & ~0x7FFU) != 0xD800;
    strText.remove_prefix(bValid ? nMore + 1 : 1);
    return bValid ? std::optional(nCharacter) : std::nullopt;
}

} // namespace

std::string ToHarmless(std::string_view strText, bool bLines)
{
    std::string strHarmless;
    while (!strText.empty()) {
        const std::string_view strRest = strText;
        const auto nCharacter = TakeCharacter(strText);
        const unsigned n = nCharacter.value_or(0);
        const bool bLine = bLines && (n == '\t' || n == '\n' || strRest.starts_with("\r\n"));
        const bool bControl = n < 0x20 || (n >= 0x7F && n < 0xA0);
        const bool bMark = (n >= 0x2028 && n <= 0x202E) || (n >= 0x2066 && n <= 0x2069);
        if (bLine || (!bControl && !bMark))
            strHarmless += strRest.substr(0, strRest.size() - strText.size());
        else
            strHarmless += '.';
    }
    return strHarmless;
}

std::string Plural(std::uint64_t nCount, std::string_view strName)
{
    return fmt::format("{} {}{}", nCount, strName, nCount == 1 ? "" : "s");
}

std::string Dump(std::uint64_t nAddress, std::string_view strBytes, std::string_view strIndent)
{
    std::string strText;
    for (std::size_t i = 0; i < strBytes.size(); i += 16) {
        const std::string_view strLine = strBytes.substr(i, 16);
        strText += fmt::format("{}{:08x}  {:<47}  |{}|\n", strIndent, nAddress + i, ToHex(strLine),
                               ToPrintable(strLine));
    }
    return strText;
}

std::vector<std::string> FindNearest(const std::string& strText, const std::vector<std::string>& astrNames)
{
    std::vector<std::pair<std::size_t, std::string>> aoFound;
    for (const std::string& strName : astrNames) {
        // Edit distance, row by row.
        std::vector<std::size_t> anRow(strName.size() + 1);
        std::iota(anRow.begin(), anRow.end(), 0);
        for (std::size_t i = 0; i < strText.size(); ++i) {
            std::size_t nDiagonal = std::exchange(anRow[0], i + 1);
            for (std::size_t j = 0; j < strName.size(); ++j) {
                const std::size_t nChanged = nDiagonal + (strText[i] == strName[j] ? 0 : 1);
                nDiagonal = anRow[j + 1];
                anRow[j + 1] = std::min({nChanged, nDiagonal + 1, anRow[j] + 1});
            }
        }
        if (strName.starts_with(strText) ||
            anRow.back() <= std::max<std::size_t>(1, (strName.size() + 1) / 3))
            aoFound.emplace_back(anRow.back(), strName);
    }
    std::stable_sort(aoFound.begin(), aoFound.end(),
                     [](const auto& oLeft, const auto& oRight) { return oLeft.first < oRight.first; });
    std::vector<std::string> astrFound;
    for (std::size_t i = 0; i < std::min<std::size_t>(3, aoFound.size()); ++i)
        astrFound.push_back(aoFound[i].second);
    return astrFound;
}

std::string Quote(std::string_view strText)
{
    return "'" + ToHarmless(strText) + "'";
}

std::string CheckHost(const std::string& strHost)
{
    // More than one colon is an address of IPv6.
    if (std::count(strHost.begin(), strHost.end(), ':') != 1)
        return "";
    return Quote(strHost) +
           " is not an address alone: the port follows from the kind of gateway, see --port-index";
}

void PutError(const std::string& strText)
{
    static_cast<void>(std::fputs(strText.c_str(), stderr));
}

std::string GetSystemError()
{
    return std::generic_category().message(errno);
}
