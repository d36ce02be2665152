#include "MemoryFile.h"

#include "File.h"
#include "MemoryOperation.h"

namespace
{

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

} // namespace

int LoadMemoryFile(const CTool& oTool, const std::string& strFile, char cFormat, CImage& oImage,
                   bool& bAddressed)
{
    std::string strContent = strFile;
    if (cFormat != 'm') {
        if (const int nStatus = ReadFile(oTool, strFile, strContent); nStatus != 0)
            return nStatus;
    }
    const std::string strName = strFile == "-" ? "standard input" : strFile;
    std::string strError;
    bAddressed = true;
    if (cFormat == 'e' || (cFormat == 'a' && IsElf(strContent))) {
        const auto aoSegments = FindElfSegments(strContent, strError);
        if (!aoSegments)
            return oTool.Fail(eStatusFile, strName + ": " + strError);
        for (const auto& [nAddress, strBytes] : *aoSegments)
            oImage.Set(nAddress, strBytes);
    } else if (std::string_view("mdhob").find(cFormat) != std::string_view::npos) {
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
