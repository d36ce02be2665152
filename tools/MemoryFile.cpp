#include "MemoryFile.h"

#include "File.h"
#include "MemoryOperation.h"

#include <algorithm>

namespace
{

constexpr std::uint64_t MAX_ELF = 0x4000000;     // bytes; most may be for a debugger
constexpr std::string_view BYTE_LISTS = "mdhob"; // formats

CQuorvelHexfile::EType GetType(char cFormat)
{
    switch (cFormat) {
    case 'i':
    case 'I':
        return CQuorvelHexfile::eTypeIntel;
    case 's':
        return CQuorvelHexfile::eTypeMotorola;
    case 'r':
        return CQuorvelHexfile::eTypeBinary;
    default:
        return CQuorvelHexfile::eTypeAuto;
    }
}

bool IsElfFile(char cFormat, std::string_view strStart)
{
    return cFormat == 'e' || (cFormat == 'a' && IsElf(strStart));
}

} // namespace

char GetFormatLetter(const std::string& strFile, char cOther)
{
    switch (GetFormatOfName(strFile)) {
    case CQuorvelHexfile::eTypeIntel:
        return 'i';
    case CQuorvelHexfile::eTypeMotorola:
        return 's';
    case CQuorvelHexfile::eTypeBinary:
        return 'r';
    default:
        return cOther;
    }
}

int LoadMemoryFile(const CTool& oTool, const std::string& strFile, char cFormat, std::uint64_t nSize,
                   CImage& oImage, bool& bAddressed)
{
    if (cFormat == 'a')
        cFormat = GetFormatLetter(strFile, 'a');
    const auto fnFindLimit = [&](std::string_view strStart) {
        if (IsElfFile(cFormat, strStart))
            return SFileLimit{std::max(MAX_ELF, nSize)};
        const bool bList = BYTE_LISTS.find(cFormat) != std::string_view::npos;
        return GetFileLimit(
            bList ? CQuorvelHexfile::eTypeIntel : GetInputFormat("", strStart, GetType(cFormat)), nSize);
    };
    std::string strContent = strFile;
    if (cFormat != 'm') {
        if (const int nStatus = ReadFile(oTool, strFile, fnFindLimit, strContent); nStatus != 0)
            return nStatus;
    }
    const std::string strName = strFile == "-" ? "standard input" : strFile;
    std::string strError;
    bAddressed = true;
    if (IsElfFile(cFormat, strContent)) {
        const auto aoSegments = FindElfSegments(strContent, strError);
        if (!aoSegments)
            return oTool.Fail(eStatusFile, strName + ": " + strError);
        std::uint64_t nLoaded = 0;
        for (const CSegment& oSegment : *aoSegments)
            nLoaded += oSegment.second.size();
        if (nLoaded > nSize)
            return oTool.Fail(eStatusFile, fmt::format("{}: the ELF file loads {} bytes, the memory has {}",
                                                       strName, nLoaded, nSize));
        for (const auto& [nAddress, strBytes] : *aoSegments)
            oImage.Set(nAddress, strBytes);
    } else if (BYTE_LISTS.find(cFormat) != std::string_view::npos) {
        const auto strBytes = ParseByteList(strContent, strError);
        if (!strBytes)
            return oTool.Fail(cFormat == 'm' ? eStatusUsage : eStatusFile, strName + ": " + strError);
        bAddressed = false;
        oImage.Set(0, *strBytes);
    } else {
        if (const int nStatus =
                oImage.Parse(oTool, strName, std::move(strContent), GetType(cFormat), cFormat == 'I');
            nStatus != 0)
            return nStatus;
        bAddressed = oImage.GetType() != CQuorvelHexfile::eTypeBinary;
    }
    if (oImage.GetRanges().empty())
        return oTool.Fail(eStatusFile, strName + ": there are no data in it");
    return eStatusDone;
}

int SaveMemoryFile(CTool& oTool, const std::string& strFile, char cFormat, const CImage& oImage)
{
    if (const auto eType = GetType(cFormat); eType != CQuorvelHexfile::eTypeAuto)
        return oImage.Save(oTool, strFile, eType, cFormat == 'I');
    COutputFile oFile(oTool);
    if (const int nStatus = oFile.Open(strFile); nStatus != 0)
        return nStatus;
    for (const CImage::SRange& oRange : oImage.GetRanges())
        oFile.Write(FormatByteList(oRange.strBytes, cFormat) + "\n");
    return oFile.Commit();
}
