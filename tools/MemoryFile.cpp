#include "MemoryFile.h"

#include "File.h"
#include "MemoryOperation.h"

#include <algorithm>
#include <numeric>

namespace
{

constexpr std::size_t RECORD = 16; // bytes in a line

void AppendBigEndian(std::string& strBytes, std::uint64_t nValue, unsigned nCount)
{
    while (nCount-- > 0)
        strBytes += static_cast<char>(nValue >> (8 * nCount));
}

unsigned char Sum(std::string_view strBytes)
{
    return static_cast<unsigned char>(
        std::accumulate(strBytes.begin(), strBytes.end(), 0U,
                        [](unsigned n, char c) { return n + static_cast<unsigned char>(c); }));
}

std::string UpperHex(std::string_view strBytes)
{
    std::string strText;
    for (const char c : strBytes)
        strText += fmt::format("{:02X}", static_cast<unsigned char>(c));
    return strText;
}

std::string IntelRecord(unsigned char nType, std::uint64_t nAddress, std::string_view strData)
{
    std::string strBytes(1, static_cast<char>(strData.size()));
    AppendBigEndian(strBytes, nAddress & 0xFFFF, 2);
    strBytes += static_cast<char>(nType);
    strBytes += strData;
    strBytes += static_cast<char>(-Sum(strBytes));
    return ":" + UpperHex(strBytes);
}

std::string MotorolaRecord(unsigned nType, std::uint64_t nAddress, unsigned nAddressLength,
                           std::string_view strData)
{
    std::string strBytes(1, static_cast<char>(nAddressLength + strData.size() + 1));
    AppendBigEndian(strBytes, nAddress, nAddressLength);
    strBytes += strData;
    strBytes += static_cast<char>(~Sum(strBytes));
    return fmt::format("S{}{}\n", nType, UpperHex(strBytes));
}

/// Calls a function for each record: at most 16 bytes, none across a multiple of 16.
template<class TFunction>
void ForEachRecord(const CImage& oImage, TFunction fnRecord)
{
    for (const CImage::SRange& oRange : oImage.GetRanges()) {
        for (std::size_t nDone = 0; nDone < oRange.strBytes.size();) {
            const std::uint64_t nAddress = oRange.nAddress + nDone;
            const std::string_view strData =
                std::string_view(oRange.strBytes).substr(nDone, RECORD - nAddress % RECORD);
            fnRecord(nAddress, strData);
            nDone += strData.size();
        }
    }
}

std::string FormatIntel(const CImage& oImage, bool bComments)
{
    std::string strText;
    std::uint64_t nUpper = 0;
    ForEachRecord(oImage, [&](std::uint64_t nAddress, std::string_view strData) {
        if (nAddress >> 16 != nUpper) {
            nUpper = nAddress >> 16;
            std::string strUpper;
            AppendBigEndian(strUpper, nUpper, 2);
            strText += IntelRecord(4, 0, strUpper) + "\n";
        }
        strText += IntelRecord(0, nAddress, strData);
        if (bComments) {
            std::string strPrintable(strData);
            std::replace_if(
                strPrintable.begin(), strPrintable.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
            strText += fmt::format(" // {:05x}> {}", nAddress, strPrintable);
        }
        strText += '\n';
    });
    return strText + IntelRecord(1, 0, "") + "\n";
}

std::string FormatMotorola(const CImage& oImage)
{
    const std::uint64_t nLast = oImage.GetRanges().empty() ? 0 : oImage.GetRanges().back().GetLast();
    const unsigned nAddressLength = nLast <= 0xFFFF ? 2 : nLast <= 0xFFFFFF ? 3 : 4;
    std::string strText = MotorolaRecord(0, 0, 2, "");
    ForEachRecord(oImage, [&](std::uint64_t nAddress, std::string_view strData) {
        strText += MotorolaRecord(nAddressLength - 1, nAddress, nAddressLength, strData);
    });
    return strText + MotorolaRecord(11 - nAddressLength, 0, nAddressLength, "");
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
        const CQuorvelHexfile::EType eType = cFormat == 'i' || cFormat == 'I' ? CQuorvelHexfile::eTypeIntel
                                             : cFormat == 's'                 ? CQuorvelHexfile::eTypeMotorola
                                             : cFormat == 'r'                 ? CQuorvelHexfile::eTypeBinary
                                                                              : CQuorvelHexfile::eTypeAuto;
        if (const int nStatus = oImage.Parse(oTool, strName, std::move(strContent), eType, cFormat == 'I');
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
    std::string strText;
    if (cFormat == 'i' || cFormat == 'I') {
        strText = FormatIntel(oImage, cFormat == 'I');
    } else if (cFormat == 's') {
        strText = FormatMotorola(oImage);
    } else {
        for (const CImage::SRange& oRange : oImage.GetRanges())
            strText += cFormat == 'r' ? oRange.strBytes : FormatByteList(oRange.strBytes, cFormat) + "\n";
    }
    COutputFile oFile(oTool);
    if (const int nStatus = oFile.Open(strFile); nStatus != 0)
        return nStatus;
    oFile.Write(strText);
    return oFile.Commit();
}
