// Loads any bytes as an image file. The first byte of the input chooses the type, the rest is the file.

#include "FuzzFile.h"
#include "QuorvelHexfile.h"

#include <algorithm>
#include <cstdint>
#include <iostream>

extern "C" int LLVMFuzzerInitialize(int* /*pnCount*/, char*** /*pppArguments*/)
{
    std::cout.setstate(std::ios::failbit); // where messages on checksums would go
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pInput, std::size_t nSize)
{
    if (nSize == 0)
        return 0;
    const auto eType = static_cast<CQuorvelHexfile::EType>(pInput[0] % 5); // one that there is not, too
    const CFuzzFile oFile(pInput + 1, nSize - 1);
    CQuorvelHexfile oImage;
    const unsigned int nResult = oImage.LoadFile(oFile.GetName().c_str(), eType);
    Require(nResult == 0 || (nResult >= 0x90 && nResult <= 0x93));
    Require((nResult == 0) == oImage.GetErrorMessage().empty());
    Require(oImage.GetErrorMessage().find('\0') == std::string::npos);

    std::uint64_t nFree = 0; // the blocks ascend and do not touch
    for (const CQuorvelHexfile::SMemoryBlock* const pBlock : oImage.GetMemoryBlocks()) {
        const std::uint64_t nEnd = std::uint64_t{pBlock->nAddress} + pBlock->nLength;
        Require(pBlock->nLength > 0 && pBlock->nAddress >= nFree && nEnd <= 0x100000000);
        Require(nEnd - 1 <= oImage.GetMaxAddress());
        Require(oImage.GetDataByte(static_cast<unsigned int>(nEnd - 1)) ==
                pBlock->pData[pBlock->nLength - 1]);
        nFree = nEnd + 1;
    }

    // The lines once more, each in memory of its own, where reading past its end is noticed.
    CQuorvelHexfile::CByteMap oMap;
    unsigned int nBaseAddress = 0;
    for (const std::uint8_t *pLine = pInput + 1, *const pEnd = pInput + nSize; pLine != pEnd;) {
        const std::uint8_t* const pNext = std::find(pLine, pEnd, '\n');
        const std::string strLine(pLine, pNext);
        oImage.AnalizeLineIntel(strLine, oMap, nBaseAddress);
        oImage.AnalizeLineMotorola(strLine, oMap);
        pLine = pNext + (pNext != pEnd ? 1 : 0);
    }

    // A dump around the last byte: 3 lines of 7 bytes.
    const unsigned int nTo = oImage.GetMaxAddress();
    const unsigned int nFrom = nTo - std::min(nTo, 20U);
    const unsigned int nLines = (nTo - nFrom) / 7 + 1;
    std::string strText(CQuorvelHexfile::GetNumberOfBytesNeedForLine(7) * nLines + 1, '\0');
    oImage.GetPrintDump(strText.data(), 7, nFrom, 0xFFFFFFFF);
    Require(strText.find('\0') == strText.size() - 1);
    return 0;
}
