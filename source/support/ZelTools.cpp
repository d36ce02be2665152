#include "support/ZelTools.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace
{

void AppendHex(std::string& strText, unsigned int nValue, unsigned int nDigits)
{
    while (nDigits-- > 0)
        strText += "0123456789ABCDEF"[(nValue >> (4 * nDigits)) & 0xF];
}

} // namespace

std::string ZelMemDump(const char* pData, unsigned int nLen, unsigned int nMaxLen, unsigned int nBytesPerLine)
{
    const std::size_t nTotal = std::min(nLen, nMaxLen);
    const std::size_t nWidth = nBytesPerLine == 0 || nBytesPerLine > 256 ? 16 : nBytesPerLine;
    const unsigned int nOffsetDigits = nTotal > 0x10000 ? 8 : 4;

    std::string strText;
    for (std::size_t nLine = 0; nLine < nTotal; nLine += nWidth) {
        const std::size_t nCount = std::min(nWidth, nTotal - nLine);
        if (nLine > 0)
            strText += '\n';
        AppendHex(strText, static_cast<unsigned int>(nLine), nOffsetDigits);
        strText += ": ";
        for (std::size_t i = 0; i < nCount; ++i) {
            AppendHex(strText, static_cast<unsigned char>(pData[nLine + i]), 2);
            strText += ' ';
        }
        strText.append(3 * (nWidth - nCount) + 1, ' ');
        for (std::size_t i = 0; i < nCount; ++i) {
            const char c = pData[nLine + i];
            strText += c >= ' ' && c <= '~' ? c : '.';
        }
    }
    return strText;
}

std::string ZelStrTrim(const std::string& strText)
{
    constexpr std::string_view BLANK(" \t\n\v\f\r\0", 7);
    const std::size_t nFirst = strText.find_first_not_of(BLANK);
    if (nFirst == std::string::npos)
        return {};
    return strText.substr(nFirst, strText.find_last_not_of(BLANK) - nFirst + 1);
}

std::string ZelToString(long long nNumber, unsigned int nBase)
{
    if (nBase != 16)
        return std::to_string(nNumber);
    auto nRest = static_cast<unsigned long long>(nNumber);
    std::string strText;
    do {
        strText += "0123456789abcdef"[nRest & 0xF];
        nRest >>= 4;
    } while (nRest != 0);
    return {strText.rbegin(), strText.rend()};
}
