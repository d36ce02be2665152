// Writing an image to files and into dumps.

#include "QuorvelHexfile.h"

#include "Hexfile.h"

#include <array>
#include <cstring>
#include <memory>

namespace
{

constexpr unsigned int RECORD_SIZE = 16;
constexpr std::size_t LONGEST_RECORD = 2 + 2 + 8 + 2 * RECORD_SIZE + 2 + 1;

// The two digits of every byte, one after the other.
using CDigits = std::array<char, 512>;

constexpr CDigits MakeDigits(const char* pDigits)
{
    CDigits acDigits{};
    for (std::size_t i = 0; i < 256; ++i) {
        acDigits[2 * i] = pDigits[i / 16];
        acDigits[2 * i + 1] = pDigits[i % 16];
    }
    return acDigits;
}

constexpr CDigits UPPER = MakeDigits("0123456789ABCDEF");
constexpr CDigits LOWER = MakeDigits("0123456789abcdef");

char* PutByte(char* pOut, unsigned int nByte, const CDigits& acDigits = UPPER)
{
    std::memcpy(pOut, &acDigits[2 * (nByte & 0xFFU)], 2);
    return pOut + 2;
}

// Collects records and passes them on in large pieces.
class CRecords
{
  public:
    explicit CRecords(std::ofstream& oFile) : m_oFile(oFile) {}

    // Where the next record goes; there is room for the longest.
    char* Begin()
    {
        if (BUFFER_SIZE - m_nUsed < LONGEST_RECORD)
            Flush();
        return m_pBuffer.get() + m_nUsed;
    }

    // Ends the record, whose last character is before pEnd.
    void End(char* pEnd)
    {
        *pEnd++ = '\n';
        m_nUsed = static_cast<std::size_t>(pEnd - m_pBuffer.get());
    }

    void Flush()
    {
        m_oFile.write(m_pBuffer.get(), static_cast<std::streamsize>(m_nUsed));
        m_nUsed = 0;
    }

  private:
    static constexpr std::size_t BUFFER_SIZE = 0x40000;

    std::ofstream& m_oFile;
    std::size_t m_nUsed = 0;
    std::unique_ptr<char[]> m_pBuffer = std::make_unique<char[]>(BUFFER_SIZE);
};

char* PutData(char* pOut, const char* pData, unsigned int nLength, unsigned int& nSum)
{
    for (unsigned int i = 0; i < nLength; ++i) {
        const auto nByte = static_cast<unsigned char>(pData[i]);
        pOut = PutByte(pOut, nByte);
        nSum += nByte;
    }
    return pOut;
}

// Calls fnRecord(address, bytes, length) for each record of an image.
template<class FRecord>
void ForEachRecord(const std::vector<CQuorvelHexfile::SMemoryBlock*>& apBlocks, FRecord fnRecord)
{
    for (const CQuorvelHexfile::SMemoryBlock* const pBlock : apBlocks) {
        const std::uint64_t nEnd = EndOf(*pBlock);
        for (std::uint64_t nAddress = pBlock->nAddress; nAddress < nEnd; nAddress += RECORD_SIZE) {
            const std::uint64_t nLength = std::min<std::uint64_t>(RECORD_SIZE, nEnd - nAddress);
            fnRecord(static_cast<unsigned int>(nAddress), pBlock->pData + (nAddress - pBlock->nAddress),
                     static_cast<unsigned int>(nLength));
        }
    }
}

// Writes one line of a dump without a NUL, returns its end.
char* PutDumpLine(const char* pData, const bool* pValid, std::uint64_t nSize, std::uint64_t nOffset,
                  char* pOut, unsigned int nBytesPerLine)
{
    char* pText = pOut + std::size_t{3} * nBytesPerLine + (std::size_t{nBytesPerLine} + 7) / 8;
    for (unsigned int i = 0; i < nBytesPerLine; ++i) {
        if (i % 8 == 0)
            *pOut++ = ' ';
        const std::uint64_t nIndex = nOffset + i;
        char cText = ' ';
        if (nIndex >= nSize) {
            std::memcpy(pOut, "  ", 2);
        } else if (!pValid[nIndex]) {
            std::memcpy(pOut, "--", 2);
        } else {
            PutByte(pOut, static_cast<unsigned char>(pData[nIndex]));
            cText = pData[nIndex] >= ' ' && pData[nIndex] <= '~' ? pData[nIndex] : '.';
        }
        pOut[2] = ' ';
        pOut += 3;
        *pText++ = cText;
    }
    return pText;
}

// MemDump for any size: the whole address space does not fit 32 bits.
void Dump(const char* pData, const bool* pValid, std::uint64_t nSize, char* pOut, unsigned int nBytesPerLine)
{
    if (nBytesPerLine == 0)
        return;
    pOut += std::strlen(pOut);
    for (std::uint64_t nOffset = 0; nOffset < nSize; nOffset += nBytesPerLine) {
        pOut = PutDumpLine(pData, pValid, nSize, nOffset, pOut, nBytesPerLine);
        *pOut++ = '\n';
    }
    *pOut = '\0';
}

} // namespace

unsigned int CQuorvelHexfile::SaveFile(const char* pFilename, EType eType)
{
    m_strErrorMessage.clear();
    if (pFilename == nullptr)
        return eResultOk;
    const bool bText = eType == eTypeIntel || eType == eTypeMotorola;
    std::ofstream oFile(pFilename, bText ? std::ios::out : std::ios::out | std::ios::binary);
    if (!oFile.is_open()) {
        m_strErrorMessage = std::string("File ") + pFilename + " could not be opened.\n\n";
        return eResultNotOpened;
    }
    if (!bText)
        return SaveAsFileBinary(oFile);
    const bool bSaved = eType == eTypeIntel ? SaveAsFileIntel(oFile) : SaveAsFileMotorola(oFile);
    // A failing close, such as on a full disk, changes nothing: existing applications rely on it.
    oFile.close();
    if (!bSaved) {
        m_strErrorMessage = std::string("File ") + pFilename + " could not be saved.\n\n";
        return eResultNotSaved;
    }
    return eResultOk;
}

bool CQuorvelHexfile::SaveAsFileIntel(std::ofstream& oFile)
{
    CRecords oRecords(oFile);
    unsigned int nUpper = 0;
    ForEachRecord(m_vecMemoryBlocks, [&](unsigned int nAddress, const char* pData, unsigned int nLength) {
        if (nAddress >> 16 != nUpper) {
            nUpper = nAddress >> 16;
            // Lower case before the first data record: existing applications rely on it.
            const CDigits& acDigits = (oFile.flags() & std::ios::uppercase) != 0 ? UPPER : LOWER;
            char* const pRecord = oRecords.Begin();
            std::memcpy(pRecord, ":02000004", 9);
            char* pOut = PutByte(pRecord + 9, nUpper >> 8, acDigits);
            pOut = PutByte(pOut, nUpper, acDigits);
            oRecords.End(PutByte(pOut, 0U - ((nUpper >> 8) + nUpper + 6), acDigits));
        }
        oFile.setf(std::ios::uppercase);
        char* pOut = oRecords.Begin();
        *pOut++ = ':';
        pOut = PutByte(pOut, nLength);
        pOut = PutByte(pOut, nAddress >> 8);
        pOut = PutByte(pOut, nAddress);
        pOut = PutByte(pOut, 0);
        unsigned int nSum = nLength + (nAddress >> 8) + nAddress;
        pOut = PutData(pOut, pData, nLength, nSum);
        oRecords.End(PutByte(pOut, 0U - nSum));
    });
    char* const pRecord = oRecords.Begin();
    std::memcpy(pRecord, ":00000001FF", 11);
    oRecords.End(pRecord + 11);
    oRecords.Flush();
    return true;
}

bool CQuorvelHexfile::SaveAsFileMotorola(std::ofstream& oFile)
{
    CRecords oRecords(oFile);
    ForEachRecord(m_vecMemoryBlocks, [&](unsigned int nAddress, const char* pData, unsigned int nLength) {
        const unsigned int nAddressBytes = nAddress <= 0xFFFF ? 2 : nAddress < 0x1000000 ? 3 : 4;
        const unsigned int nCount = nAddressBytes + nLength + 1;
        char* pOut = oRecords.Begin();
        *pOut++ = 'S';
        *pOut++ = static_cast<char>('0' + nAddressBytes - 1);
        pOut = PutByte(pOut, nCount);
        unsigned int nSum = nCount;
        for (unsigned int i = 4; i-- > 0;) {
            const unsigned int nByte = nAddress >> (8 * i);
            nSum += nByte; // the bytes that are not written are 0
            if (i < nAddressBytes)
                pOut = PutByte(pOut, nByte);
        }
        pOut = PutData(pOut, pData, nLength, nSum);
        oRecords.End(PutByte(pOut, ~nSum));
    });
    oRecords.Flush();
    return true;
}

unsigned int CQuorvelHexfile::SaveAsFileBinary(std::ofstream& oFile)
{
    if (m_vecMemoryBlocks.empty())
        return eResultOk;
    // Not the block's own address is tested: existing applications rely on it.
    if (m_vecMemoryBlocks.size() > 1 || m_nMinAddress != 0) {
        m_strErrorMessage =
            "Data could not be saved in binary format because of StartAddress != 0 OR multiple "
            "blocks in hex data.\n\n";
        return eResultNotAsBinary;
    }
    oFile.write(m_vecMemoryBlocks[0]->pData, m_vecMemoryBlocks[0]->nLength);
    return eResultOk;
}

void CQuorvelHexfile::GetPrintDump(char* pOut, unsigned int nBytesPerLine, unsigned int nFromAddress,
                                   unsigned int nToAddress) const
{
    const std::uint64_t nHigh = std::min(nToAddress, m_nMaxAddress);
    const std::uint64_t nLow = std::min<std::uint64_t>(nFromAddress, nHigh);
    const std::uint64_t nSize = nHigh - nLow + 1;
    const auto pData = std::make_unique<char[]>(nSize);
    const auto pValid = std::make_unique<bool[]>(nSize);
    for (const SMemoryBlock* const pBlock : m_vecMemoryBlocks) {
        if (pBlock->nAddress > nHigh)
            break; // the blocks are expected in ascending order: existing applications rely on it
        const std::uint64_t nFirst = std::max<std::uint64_t>(pBlock->nAddress, nLow);
        const std::uint64_t nEnd = std::min(EndOf(*pBlock), nHigh + 1);
        if (nEnd <= nFirst)
            continue;
        std::memcpy(pData.get() + (nFirst - nLow), pBlock->pData + (nFirst - pBlock->nAddress),
                    nEnd - nFirst);
        std::fill_n(pValid.get() + (nFirst - nLow), nEnd - nFirst, true);
    }
    Dump(pData.get(), pValid.get(), nSize, pOut, nBytesPerLine);
}

void CQuorvelHexfile::GetPrintDump(char* pOut, unsigned int nBytesPerLine) const
{
    GetPrintDump(pOut, nBytesPerLine, 0, m_nMaxAddress);
}

void CQuorvelHexfile::MemDump(const char* pData, const bool* pValid, unsigned int nSize, char* pOut,
                              unsigned int nBytesPerLine, unsigned int /*nAddress*/)
{
    Dump(pData, pValid, nSize, pOut, nBytesPerLine);
}

void CQuorvelHexfile::MemDumpLine(const char* pData, const bool* pValid, unsigned int nSize,
                                  unsigned int nOffset, char* pOut, unsigned int* pnLength,
                                  unsigned int nBytesPerLine, unsigned int /*nAddress*/)
{
    char* const pEnd = PutDumpLine(pData, pValid, nSize, nOffset, pOut + std::strlen(pOut), nBytesPerLine);
    *pEnd = '\0';
    *pnLength = static_cast<unsigned int>(pEnd - pOut) + 1;
}

unsigned int CQuorvelHexfile::GetNumberOfBytesNeedForLine(unsigned int nBytesPerLine)
{
    return 4 * nBytesPerLine + nBytesPerLine / 8 + (nBytesPerLine % 8 != 0 ? 1 : 0) + 1;
}
