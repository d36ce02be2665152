// Reading files into an image, by way of the map.

#include "QuorvelHexfile.h"

#include "Hexfile.h"
#include "Trace.h"
#include "support/ZelFile.h"
#include "support/ZelTools.h"

#include <atomic>
#include <cstring>
#include <iostream>
#include <memory>
#include <string_view>

namespace
{

constexpr const char* UNIT = "source/QuorvelHexfile";
constexpr unsigned int PAGE_SIZE = 4096;

// Only the first extended address record in the life of the process sets the lowest address whatever it was:
// existing applications rely on it. Atomic, since different threads may load images.
std::atomic<bool> s_bFirstTime{true};

using SEntry = CQuorvelHexfile::CByteMap::SEntry;

// The bytes that all pairs of characters stand for, ready for the map; what is no hex digit counts as the
// digit 0. One look-up for a byte, since this is what reading a large file spends its time on.
struct SPairs {
    SEntry aoEntries[65536];
};
constexpr SPairs PAIRS = [] {
    unsigned char anDigits[256] = {};
    for (unsigned int i = 0; i < 6; ++i)
        anDigits['A' + i] = anDigits['a' + i] = static_cast<unsigned char>(10 + i);
    for (unsigned int i = 0; i < 10; ++i)
        anDigits['0' + i] = static_cast<unsigned char>(i);
    SPairs oPairs{};
    for (unsigned int i = 0; i < 65536; ++i)
        oPairs.aoEntries[i] = {static_cast<char>(anDigits[i & 0xFF] << 4 | anDigits[i >> 8]), true};
    return oPairs;
}();

const SEntry& HexEntry(const char* pDigits)
{
    return PAIRS
        .aoEntries[static_cast<unsigned char>(pDigits[1]) << 8 | static_cast<unsigned char>(pDigits[0])];
}

unsigned int HexByte(const char* pDigits)
{
    return static_cast<unsigned char>(HexEntry(pDigits).nValue);
}

// Decodes nCount bytes into the map and returns their sum.
unsigned int HexData(const char* pDigits, CQuorvelHexfile::CByteMap& oMap, unsigned int nAddress,
                     unsigned int nCount)
{
    unsigned int nSum = 0;
    while (nCount > 0) {
        SEntry* pEntry = oMap.GetEntries(nAddress);
        const unsigned int nHere = std::min(nCount, PAGE_SIZE - nAddress % PAGE_SIZE);
        for (const SEntry* const pEnd = pEntry + nHere; pEntry != pEnd; pDigits += 2) {
            const SEntry oEntry = HexEntry(pDigits);
            *pEntry++ = oEntry;
            nSum += static_cast<unsigned char>(oEntry.nValue);
        }
        nAddress += nHere;
        nCount -= nHere;
    }
    return nSum;
}

// Gives how many bytes came, 0 at the end.
using FRead = std::function<std::size_t(char* pBuffer, std::size_t nMax)>;

// Reads lines as std::istream::getline with a buffer of 1024 characters does, at less cost.
class CLines
{
  public:
    explicit CLines(const FRead& fnRead) : m_fnRead(fnRead) {}

    // The next line, with a NUL in place of its line feed if it has one; empty at the end, and after a line
    // that was too long: of that, the first 1023 characters are a line still. Valid until the next call.
    std::string_view Next()
    {
        if (m_nEnd - m_nBegin < LINE_SIZE && !m_bOver)
            Fill();
        char* const pLine = m_pBuffer.get() + m_nBegin;
        std::size_t nLength = std::min(m_nEnd - m_nBegin, LINE_SIZE);
        auto* const pLineFeed = static_cast<char*>(std::memchr(pLine, '\n', nLength));
        if (pLineFeed != nullptr) {
            *pLineFeed = '\0';
            nLength = static_cast<std::size_t>(pLineFeed - pLine) + 1;
            m_nBegin += nLength;
        } else {
            nLength = std::min(nLength, LINE_SIZE - 1);
            m_nBegin = m_nEnd;
            m_bOver = true;
        }
        return {pLine, nLength};
    }

  private:
    static constexpr std::size_t LINE_SIZE = 1024;
    static constexpr std::size_t BUFFER_SIZE = 65536; // not on the stack, which may be small

    void Fill()
    {
        m_nEnd -= m_nBegin;
        std::memmove(m_pBuffer.get(), m_pBuffer.get() + m_nBegin, m_nEnd);
        m_nBegin = 0;
        m_nEnd += m_fnRead(m_pBuffer.get() + m_nEnd, BUFFER_SIZE - m_nEnd);
    }

    const FRead& m_fnRead;
    std::size_t m_nBegin = 0;
    std::size_t m_nEnd = 0;
    bool m_bOver = false;
    const std::unique_ptr<char[]> m_pBuffer = std::make_unique_for_overwrite<char[]>(BUFFER_SIZE);
};

} // namespace

void CQuorvelHexfile::CByteMap::SetByte(unsigned int nAddress, char nValue)
{
    *GetEntries(nAddress) = {nValue, true};
}

CQuorvelHexfile::CByteMap::SEntry* CQuorvelHexfile::CByteMap::GetEntries(unsigned int nAddress)
{
    const unsigned int nIndex = nAddress % PAGE_SIZE;
    const unsigned int nPage = nAddress - nIndex;
    if (m_pLastPage == nullptr || nPage != m_nLastPage) {
        // To be copied, which beats setting every entry. Never destroyed: threads may still load while the process ends.
        static const CPage& s_oEmptyPage = *new CPage(PAGE_SIZE);
        m_pLastPage = &m_aoPages.try_emplace(nPage, s_oEmptyPage).first->second;
        m_nLastPage = nPage;
    }
    return m_pLastPage->data() + nIndex;
}

void CQuorvelHexfile::CByteMap::Clear()
{
    m_aoPages.clear();
    m_pLastPage = nullptr;
}

void CQuorvelHexfile::CByteMap::ToMemoryBlocks(std::vector<SMemoryBlock*>& apBlocks) const
{
    apBlocks.clear(); // not deleted: existing applications may have taken them over

    // The runs are measured first, so that each block can be filled where it lies.
    struct SRun {
        std::uint64_t nStart;
        std::uint64_t nEnd;
    };
    std::vector<SRun> aoRuns;
    for (const auto& [nPage, oPage] : m_aoPages) {
        unsigned char nFull = 1; // most pages are full, which vector instructions find out
        for (unsigned int i = 0; i < PAGE_SIZE; ++i)
            nFull &= static_cast<unsigned char>(oPage[i].bPresent);
        for (unsigned int i = 0; i < PAGE_SIZE;) {
            if (!oPage[i].bPresent) {
                ++i;
                continue;
            }
            const std::uint64_t nStart = std::uint64_t{nPage} + i;
            if (nFull != 0)
                i = PAGE_SIZE;
            while (i < PAGE_SIZE && oPage[i].bPresent)
                ++i;
            if (aoRuns.empty() || nStart > aoRuns.back().nEnd)
                aoRuns.push_back({nStart, nStart});
            aoRuns.back().nEnd = std::uint64_t{nPage} + i;
        }
    }
    // The length of a block has 32 bits, so one block cannot hold the whole address space.
    constexpr std::uint64_t ALL = std::uint64_t{1} << 32;
    if (!aoRuns.empty() && aoRuns[0].nEnd - aoRuns[0].nStart == ALL)
        aoRuns = {{0, ALL / 2}, {ALL / 2, ALL}};

    apBlocks.reserve(aoRuns.size());
    auto itPage = m_aoPages.begin();
    for (const SRun& oRun : aoRuns) {
        auto pBlock = std::make_unique<SMemoryBlock>();
        pBlock->nAddress = static_cast<unsigned int>(oRun.nStart);
        pBlock->nLength = static_cast<unsigned int>(oRun.nEnd - oRun.nStart);
        pBlock->pData = new char[pBlock->nLength];
        for (std::uint64_t nAddress = oRun.nStart; nAddress < oRun.nEnd;) {
            while (std::uint64_t{itPage->first} + PAGE_SIZE <= nAddress)
                ++itPage;
            const std::uint64_t nEnd = std::min(oRun.nEnd, std::uint64_t{itPage->first} + PAGE_SIZE);
            const SEntry* const pEntries = itPage->second.data() + nAddress % PAGE_SIZE;
            char* const pBytes = pBlock->pData + (nAddress - oRun.nStart);
            const std::size_t nCount = nEnd - nAddress;
            for (std::size_t i = 0; i < nCount; ++i)
                pBytes[i] = pEntries[i].nValue;
            nAddress = nEnd;
        }
        apBlocks.push_back(pBlock.get());
        pBlock.release(); // NOLINT(bugprone-unused-return-value): it is in the vector now
    }
}

unsigned int CQuorvelHexfile::LineFault(EResult eResult, const char* pText, std::string_view strLine)
{
    m_strErrorMessage = pText;
    m_strErrorMessage += strLine;
    return eResult;
}

// A line that does not begin like a record: skipped when it is blank.
unsigned int CQuorvelHexfile::NoRecord(std::string_view strLine)
{
    if (ZelStrTrim(std::string(strLine)).empty())
        return eResultOk;
    return LineFault(eResultLineFormat, "Invalid format in data line: ", strLine);
}

unsigned int CQuorvelHexfile::LoadFile(const char* pFilename, EType eType)
{
    m_strErrorMessage.clear();
    if (pFilename == nullptr)
        return eResultOk;
    m_strFilename = pFilename;
    CZelFile oFile;
    CZelFileStatus oStatus;
    if (!oFile.Open(m_strFilename.c_str(), oStatus)) {
        m_strErrorMessage = "File <" + m_strFilename + "> could not be opened.";
        Trace(1, UNIT, m_strErrorMessage);
        return eResultNotOpened;
    }
    bool bBad = false;
    unsigned int nResult = Analize(
        [&](char* pBuffer, std::size_t nMax) {
            const long nRead = oFile.Read(pBuffer, nMax);
            bBad = bBad || nRead < 0;
            return static_cast<std::size_t>(std::max(nRead, 0L));
        },
        eType);
    if (nResult == eResultOk && bBad)
        nResult = eResultNotOpened; // what follows could not be read
    if (nResult == eResultOk)
        return m_eType == eTypeBinary ? LoadFileBinary(m_strFilename.c_str()) : eResultOk;

    // Each wording also covers faults that it does not name: existing applications rely on it.
    if (nResult == eResultLineFormat || nResult == eResultChecksum)
        m_strErrorMessage =
            "File <" + m_strFilename + ">: checksum error.\n\n" + m_strErrorMessage + "\nIgnore error? ";
    else
        m_strErrorMessage = "File <" + m_strFilename + ">: could not be opened.\n\n" + m_strErrorMessage;
    Trace(1, UNIT, m_strErrorMessage);
    return nResult;
}

unsigned int CQuorvelHexfile::AnalizeFile(std::ifstream& oFile, EType eType)
{
    return Analize(
        [&](char* pBuffer, std::size_t nMax) {
            oFile.read(pBuffer, static_cast<std::streamsize>(nMax));
            return static_cast<std::size_t>(oFile.gcount());
        },
        eType);
}

unsigned int CQuorvelHexfile::Analize(const FRead& fnRead, EType eType)
{
    if (eType > eTypeBinary) {
        m_strErrorMessage = "Inputfile format is not supported (use Intel or Motorola).";
        std::cout << m_strErrorMessage << '\n';
        return eResultRecordType;
    }
    CLines oLines(fnRead);
    std::string_view strLine = oLines.Next();
    if (strLine.empty()) {
        Trace(2, UNIT, [&] { return "Eingabe " + m_strFilename + " enthaelt keine Daten."; });
        return eResultNoData;
    }
    if (eType != eTypeAuto)
        m_eType = eType;
    else if (strLine[0] == ':')
        m_eType = eTypeIntel;
    else
        m_eType = strLine[0] == 'S' ? eTypeMotorola : eTypeBinary;
    if (m_eType == eTypeBinary)
        return eResultOk;
    Trace(4, UNIT, [&] { return "Datei " + m_strFilename + " wird geladen. "; });
    Trace(16, UNIT, "start reading input lines.");

    unsigned int nResult = eResultOk;
    unsigned int nBaseAddress = 0;
    CByteMap oMap;
    for (; !strLine.empty(); strLine = oLines.Next()) {
        const unsigned int nLineResult =
            m_eType == eTypeIntel ? LineIntel(strLine, oMap, nBaseAddress) : LineMotorola(strLine, oMap);
        std::replace(m_strErrorMessage.begin(), m_strErrorMessage.end(), '\0', '.');
        if (nLineResult != eResultOk)
            nResult = nLineResult; // and on: the last faulty line counts
    }
    Trace(16, UNIT, "reading input lines completed.");
    oMap.ToMemoryBlocks(m_vecMemoryBlocks);
    Trace(16, UNIT, "input lines converted to internal data structure.");
    if (m_eType == eTypeMotorola)
        RecalcMinMax(); // not for Intel HEX: existing applications rely on it
    oMap.Clear();
    Trace(16, UNIT, "internal byte map is destructed.");
    return nResult;
}

unsigned int CQuorvelHexfile::AnalizeLineIntel(const std::string& strLine, CByteMap& oMap,
                                               unsigned int& nBaseAddress)
{
    return LineIntel(strLine, oMap, nBaseAddress);
}

unsigned int CQuorvelHexfile::AnalizeLineMotorola(const std::string& strLine, CByteMap& oMap)
{
    return LineMotorola(strLine, oMap);
}

unsigned int CQuorvelHexfile::LineIntel(std::string_view strLine, CByteMap& oMap, unsigned int& nBaseAddress)
{
    if (strLine.empty() || strLine[0] == ';')
        return eResultOk;
    if (strLine[0] != ':' || strLine.size() < 11)
        return NoRecord(strLine);

    const char* const pLine = strLine.data();
    const unsigned int nCount = HexByte(pLine + 1);
    if (nCount * 2 + 11 > strLine.size())
        return LineFault(eResultLineFormat, "Invalid format in data line: ", strLine);
    const unsigned int nAddress = HexByte(pLine + 3) << 8 | HexByte(pLine + 5);
    const unsigned int nType = HexByte(pLine + 7);
    unsigned int nSum = nCount + (nAddress >> 8) + nAddress + nType;

    switch (nType) {
    case 0: {
        const std::uint64_t nFirst = std::uint64_t{nBaseAddress} + nAddress;
        if (nCount == 0)
            break;
        if (nFirst + nCount > ADDRESS_SPACE)
            return LineFault(eResultLineFormat, "Invalid format in data line: ", strLine);
        nSum += HexData(pLine + 9, oMap, static_cast<unsigned int>(nFirst), nCount);
        m_nMaxAddress = std::max(m_nMaxAddress, static_cast<unsigned int>(nFirst + nCount - 1));
        break;
    }
    case 1: // end of file: what follows is read all the same
    case 5:
        break;
    case 2:
    case 4: {
        const unsigned int nHigh = nCount > 0 ? HexByte(pLine + 9) : 0;
        const unsigned int nLow = nCount > 1 ? HexByte(pLine + 11) : 0;
        nBaseAddress = (nHigh << 8 | nLow) << (nType == 2 ? 4 : 16);
        if (m_nMinAddress > nBaseAddress || s_bFirstTime) {
            s_bFirstTime = false;
            m_nMinAddress = nBaseAddress;
        }
        break;
    }
    default:
        return LineFault(eResultRecordType, "Invalid record type in data line: ", strLine);
    }

    // nSum has the header and, in a data record, the data; what is left of the others are a few bytes.
    const char* const pChecksum = pLine + 9 + std::size_t{2} * nCount;
    if (nType != 0) {
        for (const char* pByte = pLine + 9; pByte != pChecksum; pByte += 2)
            nSum += HexByte(pByte);
    }
    if (((nSum + HexByte(pChecksum)) & 0xFF) == 0)
        return eResultOk;
    // The data are stored already: existing applications rely on it.
    const unsigned int nResult = LineFault(eResultChecksum, "Invalid checksum in data line: ", strLine);
    std::cout << m_strErrorMessage << '\n';
    return nResult;
}

unsigned int CQuorvelHexfile::LineMotorola(std::string_view strLine, CByteMap& oMap)
{
    if (strLine.empty())
        return eResultOk;
    if (strLine[0] != 'S' || strLine.size() < 8)
        return NoRecord(strLine);

    unsigned int nAddressBytes = 0;
    switch (strLine[1]) {
    case '0':
    case '7':
    case '8':
    case '9':
        Trace(8, UNIT, [&] { return "Ignored S-record format: " + std::string(strLine); });
        return eResultOk;
    case '5':
        Trace(2, UNIT, [&] { return "Not supported S-record format: " + std::string(strLine); });
        return eResultOk;
    case '1':
    case '2':
    case '3':
        nAddressBytes = static_cast<unsigned int>(strLine[1] - '0') + 1;
        break;
    default:
        return LineFault(eResultRecordType, "Invalid record type in data line: ", strLine);
    }

    const char* pDigits = strLine.data() + 2;
    const unsigned int nCount = HexByte(pDigits);
    if (nCount * 2 + 4 > strLine.size() || nCount < nAddressBytes + 1)
        return LineFault(eResultLineFormat, "Invalid format in data line (line length): ", strLine);
    unsigned int nAddress = 0;
    for (unsigned int i = 0; i < nAddressBytes; ++i)
        nAddress = nAddress << 8 | HexByte(pDigits += 2);
    const unsigned int nData = nCount - nAddressBytes - 1;
    if (nData == 0)
        return eResultOk;
    if (std::uint64_t{nAddress} + nData > ADDRESS_SPACE)
        return LineFault(eResultLineFormat, "Invalid format in data line: ", strLine);
    HexData(pDigits + 2, oMap, nAddress, nData);
    m_nMaxAddress = std::max(m_nMaxAddress, nAddress + nData - 1);
    return eResultOk; // whatever the checksum: existing applications rely on it
}

unsigned int CQuorvelHexfile::LoadFileBinary(const char* pFilename)
{
    CZelFile oFile;
    CZelFileStatus oStatus;
    if (!oFile.Open(pFilename, oStatus) || oStatus.m_nSize >= ADDRESS_SPACE)
        return eResultNotOpened;
    auto pBlock = std::make_unique<SMemoryBlock>();
    pBlock->nLength = static_cast<unsigned int>(oStatus.m_nSize);
    pBlock->pData = new char[pBlock->nLength];
    if (oFile.Read(pBlock->pData, pBlock->nLength) != static_cast<long>(pBlock->nLength))
        return eResultNotOpened; // has become shorter, or cannot be read
    AddMemoryBlock(pBlock.release());
    return eResultOk;
}
