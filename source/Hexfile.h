// What the units of the memory image share.
#ifndef QUORVEL_HEXFILE_INTERNAL_H
#define QUORVEL_HEXFILE_INTERNAL_H

#include "QuorvelHexfile.h"

#include <algorithm>
#include <cstdint>

constexpr std::uint64_t ADDRESS_SPACE = std::uint64_t{CQuorvelHexfile::m_nMaxAddressSupported} + 1;

// The address behind a block's last byte, not beyond the address space.
inline std::uint64_t EndOf(const CQuorvelHexfile::SMemoryBlock& oBlock)
{
    return std::min(std::uint64_t{oBlock.nAddress} + oBlock.nLength, ADDRESS_SPACE);
}

#endif
