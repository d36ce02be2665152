// The model: blocks and access by address.

#include "QuorvelHexfile.h"

#include "Hexfile.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>

namespace
{

std::atomic<unsigned int> nTempFilenameLfdNr{1}; // atomic, since different threads may name images

bool Holds(const CQuorvelHexfile::SMemoryBlock& oBlock, unsigned int nAddress)
{
    return nAddress >= oBlock.nAddress && nAddress - oBlock.nAddress < oBlock.nLength;
}

} // namespace

CQuorvelHexfile::SMemoryBlock::SMemoryBlock(unsigned int nStart, const char* pBytes, unsigned int nCount)
    : nAddress(nStart), nLength(nCount), pData(new char[nCount])
{
    if (nCount == 0)
        return;
    if (pBytes != nullptr)
        std::memcpy(pData, pBytes, nCount);
    else
        std::memset(pData, 0, nCount);
}

CQuorvelHexfile::SMemoryBlock::~SMemoryBlock()
{
    delete[] pData;
}

bool CQuorvelHexfile::SMemoryBlock::operator==(const SMemoryBlock& oOther) const
{
    // The address takes no part: existing applications rely on it.
    return nLength == oOther.nLength && (nLength == 0 || std::memcmp(pData, oOther.pData, nLength) == 0);
}

CQuorvelHexfile::CQuorvelHexfile() : m_eType(eTypeAuto), m_nMaxAddress(0), m_nMinAddress(0) {}

CQuorvelHexfile::~CQuorvelHexfile()
{
    ClearMemoryBlocks();
}

void CQuorvelHexfile::AddMemoryBlock(SMemoryBlock* pBlock)
{
    if (pBlock == nullptr)
        return;
    std::unique_ptr<SMemoryBlock> oOwner(pBlock);
    m_vecMemoryBlocks.push_back(pBlock);
    oOwner.release(); // NOLINT(bugprone-unused-return-value)
    const std::uint64_t nEnd = EndOf(*pBlock);
    if (nEnd > std::uint64_t{m_nMaxAddress} + 1)
        m_nMaxAddress = static_cast<unsigned int>(nEnd - 1);
    // The lowest address stays: existing applications rely on it and call RecalcMinMax.
}

void CQuorvelHexfile::AddMemoryBlock(unsigned int nAddress, const char* pData, unsigned int nLength)
{
    AddMemoryBlock(new SMemoryBlock(nAddress, pData, nLength));
}

void CQuorvelHexfile::ClearMemoryBlocks()
{
    for (const SMemoryBlock* const pBlock : m_vecMemoryBlocks)
        delete pBlock;
    m_vecMemoryBlocks.clear();
    // Lowest and highest address stay: existing applications rely on it.
}

void CQuorvelHexfile::RecalcMinMax()
{
    m_nMaxAddress = 0;
    bool bFirst = true;
    for (const SMemoryBlock* const pBlock : m_vecMemoryBlocks) {
        const std::uint64_t nEnd = EndOf(*pBlock);
        if (nEnd > m_nMaxAddress)
            m_nMaxAddress = static_cast<unsigned int>(nEnd - 1);
        if (bFirst || pBlock->nAddress < m_nMinAddress)
            m_nMinAddress = pBlock->nAddress;
        bFirst = false;
    }
}

char CQuorvelHexfile::GetDataByte(unsigned int nAddress) const
{
    if (nAddress > m_nMaxAddress)
        return 0;
    for (const SMemoryBlock* const pBlock : m_vecMemoryBlocks) {
        if (Holds(*pBlock, nAddress))
            return pBlock->pData[nAddress - pBlock->nAddress];
    }
    return 0;
}

void CQuorvelHexfile::SetDataByte(unsigned int nAddress, char nValue)
{
    for (const SMemoryBlock* const pBlock : m_vecMemoryBlocks) {
        if (Holds(*pBlock, nAddress)) {
            pBlock->pData[nAddress - pBlock->nAddress] = nValue;
            return;
        }
    }
    AddMemoryBlock(nAddress, &nValue, 1);
    RecalcMinMax();
}

unsigned int CQuorvelHexfile::GetTotalBytes() const
{
    unsigned int nTotal = 0;
    for (const SMemoryBlock* const pBlock : m_vecMemoryBlocks)
        nTotal += pBlock->nLength;
    return nTotal;
}

void CQuorvelHexfile::SetFilename(const char* pName)
{
    m_strFilename = pName != nullptr ? pName : "tmp" + std::to_string(nTempFilenameLfdNr++);
}

std::string CQuorvelHexfile::GetSizeString(int nBytes)
{
    // 0 is "0 kbyte": existing applications rely on it.
    return nBytes % 1024 == 0 ? std::to_string(nBytes / 1024) + " kbyte" : std::to_string(nBytes) + " byte";
}
