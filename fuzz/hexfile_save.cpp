// Builds an image, saves it as each type, loads it again: the bytes are the same. The input is a list of
// runs: four bytes of address, one of length, the bytes; what comes later overwrites.

#include "FuzzFile.h"
#include "QuorvelHexfile.h"

#include <cstdint>
#include <cstring>

namespace
{

bool SameBytes(const CQuorvelHexfile& oImage, const std::vector<CQuorvelHexfile::SMemoryBlock*>& apBlocks)
{
    const auto& apLoaded = oImage.GetMemoryBlocks();
    bool bSame = apLoaded.size() == apBlocks.size();
    for (std::size_t i = 0; bSame && i < apBlocks.size(); ++i)
        bSame = apLoaded[i]->nAddress == apBlocks[i]->nAddress && *apLoaded[i] == *apBlocks[i];
    return bSame;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pInput, std::size_t nSize)
{
    CQuorvelHexfile::CByteMap oMap;
    for (std::size_t nAt = 0; nAt + 5 <= nSize;) {
        std::uint32_t nAddress = 0;
        std::memcpy(&nAddress, pInput + nAt, 4);
        std::size_t nLength = pInput[nAt + 4];
        for (nAt += 5; nLength > 0 && nAt < nSize; --nLength)
            oMap.SetByte(nAddress++, static_cast<char>(pInput[nAt++]));
    }
    std::vector<CQuorvelHexfile::SMemoryBlock*> apBlocks;
    oMap.ToMemoryBlocks(apBlocks);
    CQuorvelHexfile oImage;
    for (CQuorvelHexfile::SMemoryBlock* const pBlock : apBlocks)
        oImage.AddMemoryBlock(pBlock);
    oImage.RecalcMinMax();

    for (const auto eType : {CQuorvelHexfile::eTypeIntel, CQuorvelHexfile::eTypeMotorola}) {
        const CFuzzFile oFile;
        CQuorvelHexfile oLoaded;
        Require(oImage.SaveFile(oFile.GetName().c_str(), eType) == 0);
        const unsigned int nResult = oLoaded.LoadFile(oFile.GetName().c_str(), eType);
        // An empty image makes an empty file of S-records.
        Require(nResult == (apBlocks.empty() && eType == CQuorvelHexfile::eTypeMotorola ? 0x93U : 0U));
        Require(SameBytes(oLoaded, apBlocks));
        Require(oLoaded.GetMaxAddress() == oImage.GetMaxAddress());
    }
    const CFuzzFile oFile;
    const bool bFits = apBlocks.empty() || (apBlocks.size() == 1 && apBlocks[0]->nAddress == 0);
    Require(oImage.SaveFile(oFile.GetName().c_str(), CQuorvelHexfile::eTypeBinary) == (bFits ? 0U : 0x94U));
    if (bFits && !apBlocks.empty()) {
        CQuorvelHexfile oLoaded;
        Require(oLoaded.LoadFile(oFile.GetName().c_str(), CQuorvelHexfile::eTypeBinary) == 0);
        Require(SameBytes(oLoaded, apBlocks));
    }
    return 0;
}
