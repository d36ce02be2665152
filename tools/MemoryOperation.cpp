#include "MemoryOperation.h"

#include "Text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <elf.h>
#include <set>

namespace
{

/// Takes the text up to a separator off the front.
std::string_view TakeUpTo(std::string_view& strText, std::string_view strSeparators)
{
    const std::size_t nEnd = std::min(strText.find_first_of(strSeparators), strText.size());
    const std::string_view strWord = strText.substr(0, nEnd);
    strText.remove_prefix(std::min(nEnd + 1, strText.size()));
    return strWord;
}

/// Reads the structures of an ELF file, whatever its byte order.
class CElfReader
{
  public:
    explicit CElfReader(std::string_view strContent)
        : m_strContent(strContent), m_bBig(strContent[EI_DATA] == ELFDATA2MSB)
    {
    }

    template<class THeader, class TSegment>
    bool FindSegments(std::vector<CSegment>& aoSegments, std::string& strError) const
    {
        THeader oHeader;
        if (!Get(0, oHeader)) {
            strError = "the ELF file ends within its header";
            return false;
        }
        const std::uint64_t nTable = Swap(oHeader.e_phoff);
        const std::uint64_t nEntry = Swap(oHeader.e_phentsize);
        const unsigned nCount = Swap(oHeader.e_phnum);
        for (unsigned n = 0; n < nCount; ++n) {
            TSegment oSegment;
            if (nEntry < sizeof oSegment || nTable > m_strContent.size() ||
                !Get(nTable + n * nEntry, oSegment)) {
                strError = "the ELF file ends within its program headers";
                return false;
            }
            const std::uint64_t nOffset = Swap(oSegment.p_offset);
            const std::uint64_t nLength = Swap(oSegment.p_filesz);
            const std::uint64_t nAddress = Swap(oSegment.p_paddr);
            if (Swap(oSegment.p_type) != PT_LOAD || nLength == 0)
                continue;
            if (nOffset > m_strContent.size() || nLength > m_strContent.size() - nOffset ||
                nAddress + nLength < nAddress) {
                strError = "the ELF file ends within a segment";
                return false;
            }
            aoSegments.emplace_back(nAddress, m_strContent.substr(nOffset, nLength));
        }
        return true;
    }

  private:
    template<class T>
    bool Get(std::uint64_t nOffset, T& oValue) const
    {
        if (nOffset > m_strContent.size() || sizeof oValue > m_strContent.size() - nOffset)
            return false;
        std::memcpy(&oValue, m_strContent.data() + nOffset, sizeof oValue);
        return true;
    }

    template<class T>
    T Swap(T nValue) const
    {
        if (m_bBig == (std::endian::native == std::endian::big))
            return nValue;
        T nSwapped = 0;
        for (std::size_t n = 0; n < sizeof nValue; ++n) {
            const auto nByte = static_cast<unsigned char>(nValue >> (8 * n));
            nSwapped = static_cast<T>(nSwapped | static_cast<T>(nByte) << (8 * (sizeof nValue - 1 - n)));
        }
        return nSwapped;
    }

    std::string_view m_strContent;
    bool m_bBig;
};

} // namespace

std::optional<SMemoryOperation> ParseMemoryOperation(std::string_view strText, std::string& strError)
{
    SMemoryOperation oOperation;
    const std::size_t nColon = strText.find(':');
    if (nColon != std::string_view::npos && nColon + 2 < strText.size() && strText[nColon + 2] == ':') {
        switch (strText[nColon + 1]) {
        case 'r':
            oOperation.eAction = SMemoryOperation::EAction::eRead;
            break;
        case 'w':
            break;
        case 'v':
            oOperation.eAction = SMemoryOperation::EAction::eVerify;
            break;
        default:
            strError = "behind the memory is r to read, w to write or v to verify";
            return std::nullopt;
        }
        oOperation.strMemories = strText.substr(0, nColon);
        strText.remove_prefix(nColon + 3);
    }
    const std::size_t nLength = strText.size();
    if (nLength > 1 && strText[nLength - 2] == ':' &&
        MEMORY_FORMATS.find(strText.back()) != std::string_view::npos) {
        oOperation.cFormat = strText.back();
        strText.remove_suffix(2);
    }
    if (strText.empty() || oOperation.strMemories.empty()) {
        strError = strText.empty() ? "there is no file" : "there is no memory in front of the first colon";
        return std::nullopt;
    }
    oOperation.strFile = strText;
    return oOperation;
}

std::optional<std::vector<std::size_t>>
SelectMemories(std::string_view strList, const std::vector<std::string>& astrNames, std::string& strError)
{
    std::set<std::size_t> anSelected;
    while (!strList.empty()) {
        std::string_view strName = TakeUpTo(strList, ",");
        const bool bOut = strName.starts_with('-');
        strName.remove_prefix(bOut ? 1 : 0);
        const bool bAll = strName == "all" || strName == "ALL" || strName == "etc";
        bool bKnown = bAll;
        for (std::size_t n = 0; n < astrNames.size(); ++n) {
            if (!bAll && strName != astrNames[n])
                continue;
            bKnown = true;
            if (bOut)
                anSelected.erase(n);
            else
                anSelected.insert(n);
        }
        if (!bKnown) {
            strError = Quote(strName) + " is no memory; there are: ";
            for (const std::string& strKnown : astrNames)
                strError += strKnown + ", ";
            strError += "all";
            return std::nullopt;
        }
    }
    if (anSelected.empty()) {
        strError = "the list leaves no memory";
        return std::nullopt;
    }
    return std::vector(anSelected.begin(), anSelected.end());
}

std::optional<std::string> ParseByteList(std::string_view strText, std::string& strError)
{
    std::string strBytes;
    while (!strText.empty()) {
        const std::string_view strWord = TakeUpTo(strText, ", \t\r\n");
        if (strWord.empty())
            continue;
        std::optional<std::uint64_t> nByte;
        if (strWord.starts_with("0b") || strWord.starts_with("0B")) {
            const char* const pEnd = strWord.data() + strWord.size();
            unsigned nValue = 0;
            const auto [pStop, eError] = std::from_chars(strWord.data() + 2, pEnd, nValue, 2);
            if (eError == std::errc() && pStop == pEnd && nValue <= 0xFF)
                nByte = nValue;
        } else {
            nByte = ParseNumber(strWord, 0xFF);
        }
        if (!nByte) {
            strError = Quote(strWord) + " is no byte: 0 to 255, 0x0 to 0xff, 00 to 0377 or 0b0 to 0b11111111";
            return std::nullopt;
        }
        strBytes += static_cast<char>(*nByte);
    }
    if (strBytes.empty()) {
        strError = "there are no bytes";
        return std::nullopt;
    }
    return strBytes;
}

std::string FormatByteList(std::string_view strBytes, char cFormat)
{
    const int nBase = cFormat == 'h' ? 16 : cFormat == 'o' ? 8 : cFormat == 'b' ? 2 : 10;
    std::string strText;
    for (const char c : strBytes) {
        char acDigits[8];
        const auto nByte = static_cast<unsigned char>(c);
        const char* const pEnd = std::to_chars(acDigits, acDigits + sizeof acDigits, nByte, nBase).ptr;
        if (!strText.empty())
            strText += ',';
        strText += cFormat == 'h' ? "0x" : cFormat == 'b' ? "0b" : cFormat == 'o' && nByte > 7 ? "0" : "";
        strText.append(acDigits, static_cast<std::size_t>(pEnd - acDigits));
    }
    return strText;
}

bool IsElf(std::string_view strContent)
{
    return strContent.starts_with(std::string_view(ELFMAG, SELFMAG));
}

std::optional<std::vector<CSegment>> FindElfSegments(std::string_view strContent, std::string& strError)
{
    std::vector<CSegment> aoSegments;
    if (!IsElf(strContent) || strContent.size() < EI_NIDENT) {
        strError = "this is no ELF file";
        return std::nullopt;
    }
    const CElfReader oReader(strContent);
    const bool bGood = strContent[EI_CLASS] == ELFCLASS64
                           ? oReader.FindSegments<Elf64_Ehdr, Elf64_Phdr>(aoSegments, strError)
                           : oReader.FindSegments<Elf32_Ehdr, Elf32_Phdr>(aoSegments, strError);
    if (!bGood)
        return std::nullopt;
    std::sort(aoSegments.begin(), aoSegments.end(),
              [](const CSegment& oLeft, const CSegment& oRight) { return oLeft.first < oRight.first; });
    for (std::size_t n = 1; n < aoSegments.size(); ++n) {
        if (aoSegments[n].first - aoSegments[n - 1].first < aoSegments[n - 1].second.size()) {
            strError = "segments of the ELF file overlap";
            return std::nullopt;
        }
    }
    return aoSegments;
}
