#include "Image.h"

#include "Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <iostream>
#include <streambuf>

namespace
{

using EType = CQuorvelHexfile::EType;
using SRange = CImage::SRange;

constexpr std::size_t MAX_FAULTS = 20;     // of one file that are told one by one
constexpr std::size_t MAX_QUOTED = 80;     // characters of a line
constexpr std::size_t MAX_PAGES = 8192;    // of the reader's map, 8 KiB each
constexpr std::uint64_t RECORD = 16;       // bytes of a record that is written
constexpr std::uint64_t SEGMENT = 0x10000; // bytes that the address in a record of Intel HEX reaches

// The library's map, which takes much more memory than the bytes in it when these are far apart.
class CMap : public CQuorvelHexfile::CByteMap
{
  public:
    bool IsLarge() const { return m_aoPages.size() > MAX_PAGES; }

    std::vector<SRange> TakeRanges()
    {
        std::vector<CQuorvelHexfile::SMemoryBlock*> apBlocks;
        ToMemoryBlocks(apBlocks);
        Clear();
        std::vector<SRange> aoRanges;
        aoRanges.reserve(apBlocks.size());
        for (const CQuorvelHexfile::SMemoryBlock* const pBlock : apBlocks) {
            aoRanges.push_back({pBlock->nAddress, std::string(pBlock->pData, pBlock->nLength)});
            delete pBlock;
        }
        return aoRanges;
    }
};

// The library's reader also tells wrong checksums on std::cout, where data belong.
class CSilence
{
  public:
    CSilence() { std::cout.setstate(std::ios::failbit); }
    ~CSilence() { std::cout.clear(); }
    CSilence(const CSilence&) = delete;
    CSilence& operator=(const CSilence&) = delete;
};

// Tells the faults of a file, but not thousands of them.
class CFaults
{
  public:
    CFaults(const CTool& oTool, const std::string& strName) : m_oTool(oTool), m_strName(strName) {}

    void Tell(unsigned nLine, std::string_view strLine, const char* pFault, bool bWarning)
    {
        if (!bWarning)
            m_nStatus = eStatusFile;
        if (++m_nFaults > MAX_FAULTS)
            return;
        if (strLine.ends_with('\r'))
            strLine.remove_suffix(1);
        const std::string strText =
            fmt::format("{}:{}: {}: {}{}", m_strName, nLine, pFault, Quote(strLine.substr(0, MAX_QUOTED)),
                        strLine.size() > MAX_QUOTED ? "..." : "");
        if (bWarning)
            m_oTool.Warn(strText);
        else
            m_nStatus = m_oTool.Fail(eStatusFile, strText);
    }

    int GetStatus() const
    {
        if (m_nFaults > MAX_FAULTS)
            m_oTool.Warn(fmt::format("{}: {} more lines with faults", m_strName, m_nFaults - MAX_FAULTS));
        return m_nStatus;
    }

  private:
    const CTool& m_oTool;
    const std::string& m_strName;
    std::size_t m_nFaults = 0;
    int m_nStatus = eStatusDone;
};

unsigned GetDigit(char cDigit)
{
    if (cDigit >= '0' && cDigit <= '9')
        return static_cast<unsigned>(cDigit - '0');
    const char cLower = static_cast<char>(cDigit | ('a' ^ 'A'));
    return cLower >= 'a' && cLower <= 'f' ? static_cast<unsigned>(cLower - 'a') + 10 : 0;
}

unsigned GetByte(std::string_view strDigits)
{
    return GetDigit(strDigits[0]) << 4 | GetDigit(strDigits[1]);
}

// Adds bytes up; their digits are there.
unsigned GetSum(std::string_view strDigits, unsigned nBytes)
{
    unsigned nSum = 0;
    for (unsigned i = 0; i < nBytes; ++i)
        nSum += GetByte(strDigits.substr(std::size_t{2} * i));
    return nSum & 0xFF;
}

// The library does not test the checksums of S-records.
bool HasWrongSum(std::string_view strLine)
{
    if (strLine.size() < 4 || strLine[0] != 'S')
        return false;
    const unsigned nCount = GetByte(strLine.substr(2));
    return strLine.size() < 4 + std::size_t{2} * nCount || GetSum(strLine.substr(2), nCount + 1) != 0xFF;
}

// What a record is called that the library does not know, but that has no data in any case; null for all others.
const char* GetNameWithoutData(std::string_view strLine)
{
    constexpr std::size_t START = 19; // characters of a start segment address
    if (strLine.starts_with("S604") && !HasWrongSum(strLine))
        return "a count of records, left out";
    if (strLine.size() >= START && strLine.starts_with(":04") && strLine.substr(7, 2) == "03" &&
        GetSum(strLine.substr(1), START / 2) == 0)
        return "a start segment address, left out";
    return nullptr;
}

bool IsRecord(std::string_view strLine)
{
    return strLine.starts_with(':') || strLine.starts_with('S');
}

bool IsEndRecord(std::string_view strLine)
{
    return strLine[0] == ':' ? strLine.size() > 8 && strLine.substr(7, 2) == "01"
                             : strLine.size() > 1 && strLine[1] >= '7' && strLine[1] <= '9';
}

std::string GetName(const std::string& strPath)
{
    return strPath == "-" ? "standard input" : strPath;
}

// Appends a range that is above all others.
void Append(std::vector<SRange>& aoRanges, SRange&& oRange)
{
    if (!aoRanges.empty() && aoRanges.back().GetLast() + 1 == oRange.nAddress)
        aoRanges.back().strBytes += oRange.strBytes;
    else
        aoRanges.push_back(std::move(oRange));
}

// Makes the library's writers write to an output file, with comments if wanted.
class COutputBuffer : public std::streambuf
{
  public:
    COutputBuffer(COutputFile& oFile, bool bComments) : m_oFile(oFile), m_bComments(bComments) {}

  protected:
    std::streamsize xsputn(const char* pText, std::streamsize nLength) override
    {
        Put({pText, static_cast<std::size_t>(nLength)});
        return nLength;
    }

    int_type overflow(int_type nChar) override
    {
        const char cChar = traits_type::to_char_type(nChar);
        Put({&cChar, 1});
        return nChar;
    }

  private:
    void Put(std::string_view strText)
    {
        if (!m_bComments) {
            m_oFile.Write(strText);
            return;
        }
        for (const char cChar : strText) {
            if (cChar == '\n')
                m_strLine += GetComment(m_strLine);
            m_strLine += cChar;
            if (cChar != '\n')
                continue;
            m_oFile.Write(m_strLine);
            m_strLine.clear();
        }
    }

    // What goes behind a line of Intel HEX.
    std::string GetComment(const std::string& strLine)
    {
        const std::string strRecord = ParseHex(std::string_view(strLine).substr(1)).value_or("");
        const auto fnWord = [&](std::size_t i) {
            return static_cast<unsigned>(static_cast<unsigned char>(strRecord[i])) << 8 |
                   static_cast<unsigned char>(strRecord[i + 1]);
        };
        if (strRecord[3] == 4)
            m_nUpper = fnWord(4);
        if (strRecord[3] != 0)
            return "";
        const std::string strData = strRecord.substr(4, strRecord.size() - 5);
        return fmt::format(" // {:05x}> {}", m_nUpper << 16 | fnWord(1), ToPrintable(strData));
    }

    COutputFile& m_oFile;
    bool m_bComments;
    std::string m_strLine; // as far as it has come, while there are comments
    unsigned m_nUpper = 0;
};

// Calls fnPiece(address, length, left, right) for all pieces that are in one of two images, or in both; a
// pointer is null where that image has nothing.
template<class FPiece>
void ForEachPiece(const std::vector<SRange>& aoLeft, const std::vector<SRange>& aoRight, FPiece fnPiece)
{
    struct SSide {
        std::vector<SRange>::const_iterator it, itEnd;

        std::uint64_t GetStart(std::uint64_t nAddress) const
        {
            return it == itEnd ? MAX_ADDRESS + 1 : std::max(nAddress, it->nAddress);
        }
    };
    SSide aoSides[] = {{aoLeft.begin(), aoLeft.end()}, {aoRight.begin(), aoRight.end()}};
    std::uint64_t nAddress = 0;
    while (true) {
        const std::uint64_t anStarts[] = {aoSides[0].GetStart(nAddress), aoSides[1].GetStart(nAddress)};
        nAddress = std::min(anStarts[0], anStarts[1]);
        if (nAddress > MAX_ADDRESS)
            return;
        std::uint64_t nEnd = std::max(anStarts[0], anStarts[1]); // where the other one begins
        const char* apBytes[] = {nullptr, nullptr};
        nEnd = nEnd == nAddress ? MAX_ADDRESS + 1 : nEnd;
        for (std::size_t i = 0; i < 2; ++i) {
            if (anStarts[i] != nAddress)
                continue;
            apBytes[i] = aoSides[i].it->strBytes.data() + (nAddress - aoSides[i].it->nAddress);
            nEnd = std::min(nEnd, aoSides[i].it->GetLast() + 1);
        }
        fnPiece(nAddress, nEnd - nAddress, apBytes[0], apBytes[1]);
        nAddress = nEnd;
        for (SSide& oSide : aoSides) {
            if (oSide.it != oSide.itEnd && oSide.it->GetLast() < nAddress)
                ++oSide.it;
        }
    }
}

struct SFormat {
    std::string_view strName;
    EType eType;
};

constexpr SFormat FORMATS[] = {{"auto", CQuorvelHexfile::eTypeAuto},
                               {"intel", CQuorvelHexfile::eTypeIntel},
                               {"motorola", CQuorvelHexfile::eTypeMotorola},
                               {"binary", CQuorvelHexfile::eTypeBinary}};

constexpr SFormat ENDINGS[] = {
    {"hex", CQuorvelHexfile::eTypeIntel},     {"ihex", CQuorvelHexfile::eTypeIntel},
    {"ihx", CQuorvelHexfile::eTypeIntel},     {"mcs", CQuorvelHexfile::eTypeIntel},
    {"srec", CQuorvelHexfile::eTypeMotorola}, {"s19", CQuorvelHexfile::eTypeMotorola},
    {"s28", CQuorvelHexfile::eTypeMotorola},  {"s37", CQuorvelHexfile::eTypeMotorola},
    {"mot", CQuorvelHexfile::eTypeMotorola},  {"bin", CQuorvelHexfile::eTypeBinary},
    {"img", CQuorvelHexfile::eTypeBinary},    {"rom", CQuorvelHexfile::eTypeBinary}};

} // namespace

std::uint64_t CImage::GetSize() const
{
    std::uint64_t nSize = 0;
    for (const SRange& oRange : m_aoRanges)
        nSize += oRange.strBytes.size();
    return nSize;
}

void CImage::Set(std::uint64_t nAddress, std::string_view strBytes)
{
    if (!strBytes.empty())
        Set({SRange{nAddress, std::string(strBytes)}});
}

void CImage::Set(std::vector<SRange> aoRanges)
{
    if (aoRanges.empty())
        return;
    // What comes in ascending order is only appended.
    if (m_aoRanges.empty() || m_aoRanges.back().GetLast() < aoRanges.front().nAddress) {
        for (SRange& oRange : aoRanges)
            Append(m_aoRanges, std::move(oRange));
        return;
    }
    std::vector<SRange> aoOld;
    aoOld.swap(m_aoRanges);
    m_aoRanges.reserve(aoOld.size() + aoRanges.size());
    std::uint64_t nStart = 0; // what is below is done
    auto itOld = aoOld.begin();
    // Takes over what is old below an address.
    const auto fnKeep = [&](std::uint64_t nEnd) {
        for (; itOld != aoOld.end() && itOld->nAddress < nEnd; ++itOld) {
            const std::uint64_t nOldEnd = itOld->GetLast() + 1;
            const std::uint64_t nFrom = std::max(nStart, itOld->nAddress);
            if (nFrom == itOld->nAddress && nOldEnd <= nEnd)
                Append(m_aoRanges, std::move(*itOld));
            else if (nFrom < std::min(nOldEnd, nEnd))
                Append(m_aoRanges, {nFrom, itOld->strBytes.substr(nFrom - itOld->nAddress,
                                                                  std::min(nOldEnd, nEnd) - nFrom)});
            if (nOldEnd > nEnd)
                return;
        }
    };
    for (SRange& oRange : aoRanges) {
        fnKeep(oRange.nAddress);
        nStart = oRange.GetLast() + 1;
        Append(m_aoRanges, std::move(oRange));
    }
    fnKeep(MAX_ADDRESS + 1);
}

void CImage::Crop(const SAddresses& oAddresses)
{
    std::vector<SRange> aoRanges;
    for (SRange& oRange : m_aoRanges) {
        if (oRange.GetLast() < oAddresses.nFirst || oRange.nAddress > oAddresses.nLast)
            continue;
        if (oRange.GetLast() > oAddresses.nLast)
            oRange.strBytes.resize(oAddresses.nLast + 1 - oRange.nAddress);
        if (oRange.nAddress < oAddresses.nFirst) {
            oRange.strBytes.erase(0, oAddresses.nFirst - oRange.nAddress);
            oRange.nAddress = oAddresses.nFirst;
        }
        aoRanges.push_back(std::move(oRange));
    }
    m_aoRanges.swap(aoRanges);
}

void CImage::Fill(const SAddresses& oAddresses, char nValue)
{
    std::vector<SRange> aoOld;
    aoOld.swap(m_aoRanges);
    m_aoRanges.push_back({oAddresses.nFirst, std::string(oAddresses.nLast + 1 - oAddresses.nFirst, nValue)});
    Set(std::move(aoOld));
}

bool CImage::Move(std::int64_t nOffset)
{
    if (m_aoRanges.empty())
        return true;
    const auto nFirst = static_cast<std::int64_t>(m_aoRanges.front().nAddress) + nOffset;
    const auto nLast = static_cast<std::int64_t>(m_aoRanges.back().GetLast()) + nOffset;
    if (nFirst < 0 || nLast > static_cast<std::int64_t>(MAX_ADDRESS))
        return false;
    for (SRange& oRange : m_aoRanges)
        oRange.nAddress += static_cast<std::uint64_t>(nOffset);
    return true;
}

std::vector<SAddresses> CImage::GetSpans(std::uint64_t nHole) const
{
    std::vector<SAddresses> aoSpans;
    for (const SRange& oRange : m_aoRanges) {
        if (!aoSpans.empty() && oRange.nAddress - aoSpans.back().nLast <= nHole + 1)
            aoSpans.back().nLast = oRange.GetLast();
        else
            aoSpans.push_back({oRange.nAddress, oRange.GetLast()});
    }
    return aoSpans;
}

CImage::SDifferences CImage::Compare(const CImage& oLeft, const CImage& oRight, std::size_t nMaximum)
{
    SDifferences oFound;
    ForEachPiece(oLeft.m_aoRanges, oRight.m_aoRanges,
                 [&](std::uint64_t nAddress, std::uint64_t nLength, const char* pLeft, const char* pRight) {
                     if (pLeft == nullptr || pRight == nullptr) {
                         (pLeft != nullptr ? oFound.nOnlyLeft : oFound.nOnlyRight) += nLength;
                         auto& aoOnly = pLeft != nullptr ? oFound.aoOnlyLeft : oFound.aoOnlyRight;
                         if (aoOnly.size() < nMaximum)
                             aoOnly.push_back({nAddress, nAddress + nLength - 1});
                         return;
                     }
                     if (std::memcmp(pLeft, pRight, nLength) == 0)
                         return;
                     for (std::uint64_t i = 0; i < nLength; ++i) {
                         if (pLeft[i] == pRight[i])
                             continue;
                         ++oFound.nDiffering;
                         if (oFound.aoBytes.size() < nMaximum)
                             oFound.aoBytes.push_back({nAddress + i, static_cast<unsigned char>(pLeft[i]),
                                                       static_cast<unsigned char>(pRight[i])});
                     }
                 });
    return oFound;
}

int CImage::Load(const CTool& oTool, const std::string& strPath, EType eType,
                 std::optional<std::uint64_t> nSize)
{
    const auto fnFindLimit = [&](std::string_view strStart) {
        return nSize ? GetFileLimit(GetInputFormat(strPath, strStart, eType), *nSize) : MAX_FILE;
    };
    std::string strContent;
    if (const int nStatus = ReadFile(oTool, strPath, fnFindLimit, strContent); nStatus != 0)
        return nStatus;
    return Parse(oTool, GetName(strPath), std::move(strContent), eType);
}

int CImage::LoadData(const CTool& oTool, const std::string& strPath, EType eType, std::uint64_t nSize,
                     std::int64_t nOffset)
{
    if (const int nStatus = Load(oTool, strPath, eType, nSize); nStatus != 0)
        return nStatus;
    const std::string strName = GetName(strPath);
    if (m_aoRanges.empty())
        return oTool.Fail(eStatusFile, strName + ": there are no data in it");
    const auto nFirst = static_cast<std::int64_t>(m_aoRanges.front().nAddress);
    const auto nLast = static_cast<std::int64_t>(m_aoRanges.back().GetLast()) + nOffset;
    if (nFirst + nOffset < 0)
        return oTool.Fail(eStatusFile,
                          fmt::format("{}: the offset moves 0x{:x} below address 0", strName, nFirst));
    if (nLast >= static_cast<std::int64_t>(nSize) || !Move(nOffset))
        return oTool.Fail(eStatusFile,
                          fmt::format("{}: reaches to 0x{:04x}; the last byte of the memory is 0x{:04x}",
                                      strName, nLast, nSize - 1));
    return eStatusDone;
}

int CImage::Parse(const CTool& oTool, const std::string& strName, std::string strContent,
                  CQuorvelHexfile::EType eType, bool bTolerant)
{
    m_aoRanges.clear();
    if (strContent.empty())
        return oTool.Fail(eStatusFile, strName + ": the file is empty");
    m_eType = GetInputFormat(strName, strContent, eType);
    if (m_eType == CQuorvelHexfile::eTypeBinary) {
        m_aoRanges.push_back({0, std::move(strContent)});
        return eStatusDone;
    }
    // Line by line, so that a fault can be told with its line, and standard input be read.
    const CSilence oSilence;
    CFaults oFaults(oTool, strName);
    CQuorvelHexfile oReader;
    CMap oMap;
    unsigned nBase = 0;
    unsigned nLine = 0;
    bool bEnded = false;
    std::string strLine;
    for (std::size_t nStart = 0; nStart < strContent.size();) {
        std::size_t nEnd = strContent.find('\n', nStart);
        nEnd = nEnd == std::string::npos ? strContent.size() : nEnd;
        strLine.assign(strContent, nStart, nEnd - nStart);
        nStart = nEnd + 1;
        ++nLine;
        unsigned nResult = m_eType == CQuorvelHexfile::eTypeIntel
                               ? oReader.AnalizeLineIntel(strLine, oMap, nBase)
                               : oReader.AnalizeLineMotorola(strLine, oMap);
        if (nResult == CQuorvelHexfile::eResultOk && m_eType == CQuorvelHexfile::eTypeMotorola &&
            HasWrongSum(strLine))
            nResult = CQuorvelHexfile::eResultChecksum;
        if (oMap.IsLarge())
            Set(oMap.TakeRanges());
        if (IsRecord(strLine))
            bEnded = IsEndRecord(strLine);
        if (nResult == CQuorvelHexfile::eResultOk)
            continue;
        if (nResult == CQuorvelHexfile::eResultRecordType) {
            const char* const pName = GetNameWithoutData(strLine);
            oFaults.Tell(nLine, strLine, pName != nullptr ? pName : "a record of an unknown type",
                         pName != nullptr);
        } else {
            oFaults.Tell(nLine, strLine,
                         nResult == CQuorvelHexfile::eResultChecksum ? "wrong checksum"
                                                                     : "no complete record",
                         bTolerant && nResult == CQuorvelHexfile::eResultChecksum);
        }
    }
    Set(oMap.TakeRanges());
    const int nStatus = oFaults.GetStatus();
    if (nStatus == 0 && !bEnded)
        oTool.Warn(strName + ": no end record: is the file complete?");
    return nStatus;
}

int CImage::Save(CTool& oTool, const std::string& strPath, EType eType, bool bComments) const
{
    COutputFile oFile(oTool);
    const int nStatus = oFile.Open(strPath);
    return nStatus != 0 ? nStatus : Save(oTool, oFile, eType, bComments);
}

int CImage::Save(const CTool& oTool, COutputFile& oFile, EType eType, bool bComments) const
{
    if (eType == CQuorvelHexfile::eTypeBinary) {
        for (const SRange& oRange : m_aoRanges)
            oFile.Write(oRange.strBytes);
    } else {
        CQuorvelHexfile oWriter;
        for (const SRange& oRange : m_aoRanges) {
            // A record of the library has the 16 bytes that come next in its block, even across 64 KiB, where the
            // address of a record of Intel HEX ends.
            for (std::uint64_t i = 0, nPiece = 0; i < oRange.strBytes.size(); i += nPiece) {
                const std::uint64_t nAddress = oRange.nAddress + i;
                const std::uint64_t nUnit = nAddress % RECORD != 0 ? RECORD : SEGMENT;
                nPiece = std::min(nUnit - nAddress % nUnit, oRange.strBytes.size() - i);
                oWriter.AddMemoryBlock(static_cast<unsigned>(nAddress), oRange.strBytes.data() + i,
                                       static_cast<unsigned>(nPiece));
            }
        }
        COutputBuffer oBuffer(oFile, bComments && eType == CQuorvelHexfile::eTypeIntel);
        std::ofstream oStream;
        static_cast<std::ios&>(oStream).rdbuf(&oBuffer);
        oStream.setf(std::ios::uppercase);
        if (eType == CQuorvelHexfile::eTypeIntel) {
            oWriter.SaveAsFileIntel(oStream);
        } else {
            const std::uint64_t nLast = m_aoRanges.empty() ? 0 : m_aoRanges.back().GetLast();
            oFile.Write("S0030000FC\n");
            oWriter.SaveAsFileMotorola(oStream);
            oFile.Write(nLast <= 0xFFFF     ? "S9030000FC\n"
                        : nLast <= 0xFFFFFF ? "S804000000FB\n"
                                            : "S70500000000FA\n");
        }
    }
    return oFile.Commit([&](const std::string& strWritten) { return ReadBack(oTool, strWritten, eType); });
}

int CImage::ReadBack(const CTool& oTool, const std::string& strPath, EType eType) const
{
    bool bSame = true;
    if (eType == CQuorvelHexfile::eTypeBinary) {
        std::string strContent;
        if (const int nStatus = ReadFile(oTool, strPath, SFileLimit{GetSize()}, strContent); nStatus != 0)
            return nStatus;
        std::string_view strRest = strContent;
        for (const SRange& oRange : m_aoRanges) {
            bSame = bSame && strRest.starts_with(oRange.strBytes);
            strRest.remove_prefix(std::min(strRest.size(), oRange.strBytes.size()));
        }
        bSame = bSame && strRest.empty();
    } else {
        const CSilence oSilence;
        CQuorvelHexfile oWritten;
        bSame = oWritten.LoadFile(strPath.c_str(), eType) == CQuorvelHexfile::eResultOk &&
                std::equal(m_aoRanges.begin(), m_aoRanges.end(), oWritten.GetMemoryBlocks().begin(),
                           oWritten.GetMemoryBlocks().end(),
                           [](const SRange& oRange, const CQuorvelHexfile::SMemoryBlock* pBlock) {
                               return oRange.nAddress == pBlock->nAddress &&
                                      oRange.strBytes == std::string_view(pBlock->pData, pBlock->nLength);
                           });
    }
    if (!bSame)
        return oTool.Fail(eStatusFile, strPath + ": what was written reads back differently");
    return eStatusDone;
}

const char* GetFormatName(EType eType)
{
    return FORMATS[eType].strName.data();
}

EType GetFormatOfName(const std::string& strPath)
{
    const auto nDot = strPath.find_last_of("./");
    if (nDot == std::string::npos || strPath[nDot] != '.')
        return CQuorvelHexfile::eTypeAuto;
    std::string strEnding = strPath.substr(nDot + 1);
    for (char& cChar : strEnding)
        cChar = static_cast<char>(std::tolower(static_cast<unsigned char>(cChar)));
    for (const SFormat& oEnding : ENDINGS) {
        if (oEnding.strName == strEnding)
            return oEnding.eType;
    }
    return CQuorvelHexfile::eTypeAuto;
}

EType GetInputFormat(const std::string& strPath, std::string_view strStart, EType eType)
{
    if (eType == CQuorvelHexfile::eTypeAuto)
        eType = GetFormatOfName(strPath);
    if (eType != CQuorvelHexfile::eTypeAuto)
        return eType;
    return strStart.starts_with(':')   ? CQuorvelHexfile::eTypeIntel
           : strStart.starts_with('S') ? CQuorvelHexfile::eTypeMotorola
                                       : CQuorvelHexfile::eTypeBinary;
}

SFileLimit GetFileLimit(EType eType, std::uint64_t nSize)
{
    if (eType == CQuorvelHexfile::eTypeBinary)
        return {nSize, ", more than the memory has"};
    return {nSize * 16, ", 16 for each byte of the memory"};
}

EType GetOutputFormat(const std::string& strPath, EType eType)
{
    if (eType == CQuorvelHexfile::eTypeAuto)
        eType = GetFormatOfName(strPath);
    return eType == CQuorvelHexfile::eTypeAuto ? CQuorvelHexfile::eTypeBinary : eType;
}

CLI::Option& AddFormatOption(CLI::App& oApp, const std::string& strName, EType& eType,
                             const std::string& strText)
{
    const auto fnSet = [strName, &eType](const std::string& strFormat) {
        for (const SFormat& oFormat : FORMATS) {
            if (oFormat.strName == strFormat) {
                eType = oFormat.eType;
                return;
            }
        }
        throw CLI::ValidationError(strName, Quote(strFormat) + " is none of auto, intel, motorola, binary");
    };
    return *oApp.add_option_function<std::string>(strName, fnSet, strText)
                ->type_name("auto|intel|motorola|binary");
}

CLI::Option& AddAddressesOption(CLI::App& oApp, const std::string& strName,
                                std::optional<SAddresses>& oAddresses, const std::string& strText)
{
    const auto fnSet = [strName, &oAddresses](const std::string& strAddresses) {
        const auto nMinus = strAddresses.find('-');
        const auto nFirst = ParseNumber(strAddresses.substr(0, nMinus), MAX_ADDRESS);
        const auto nLast =
            ParseNumber(nMinus == std::string::npos ? "" : strAddresses.substr(nMinus + 1), MAX_ADDRESS);
        if (!nFirst || !nLast || *nFirst > *nLast)
            throw CLI::ValidationError(strName, Quote(strAddresses) +
                                                    " is no range such as 0x100-0x1ff, the last included");
        oAddresses = SAddresses{*nFirst, *nLast};
    };
    return *oApp.add_option_function<std::string>(strName, fnSet, strText)->type_name("FIRST-LAST");
}

int FindRange(const CTool& oTool, std::string_view strMemory, const SAddresses& oMemory,
              std::optional<std::uint64_t> nFirst, std::optional<std::uint64_t> nLength, SAddresses& oRange)
{
    oRange.nFirst = nFirst.value_or(oMemory.nFirst);
    if (oRange.nFirst < oMemory.nFirst || oRange.nFirst > oMemory.nLast)
        return oTool.Fail(eStatusUsage, fmt::format("--address: {} has the addresses 0x{:04x}-0x{:04x}",
                                                    strMemory, oMemory.nFirst, oMemory.nLast));
    const std::uint64_t nRest = oMemory.nLast - oRange.nFirst + 1;
    if (nLength && (*nLength == 0 || *nLength > nRest))
        return oTool.Fail(eStatusUsage, fmt::format("--length: {}, but from 0x{:04x} on {} has {}", *nLength,
                                                    oRange.nFirst, strMemory, Plural(nRest, "byte")));
    oRange.nLast = oRange.nFirst + nLength.value_or(nRest) - 1;
    return eStatusDone;
}

std::uint32_t GetCrc32(std::string_view strBytes, std::uint32_t nCrc)
{
    static constexpr auto TABLE = [] {
        std::array<std::uint32_t, 256> anTable{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            anTable[i] = i;
            for (int nBit = 0; nBit < 8; ++nBit)
                anTable[i] = anTable[i] >> 1 ^ ((anTable[i] & 1) != 0 ? 0xEDB88320U : 0U);
        }
        return anTable;
    }();
    nCrc = ~nCrc;
    for (const char cByte : strBytes)
        nCrc = nCrc >> 8 ^ TABLE[(nCrc ^ static_cast<unsigned char>(cByte)) & 0xFF];
    return ~nCrc;
}
