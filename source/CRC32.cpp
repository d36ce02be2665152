#include "CRC32.h"

#include <array>

namespace
{

// Sixteen bytes at a time: table k holds what a byte that is k bytes away from the end of the sixteen adds to
// the register, so that the sixteen look-ups do not wait for each other.
constexpr std::size_t STRIDE = 16;
using CTables = std::array<std::array<unsigned int, 256>, STRIDE>;

constexpr CTables MakeTables()
{
    CTables anTables{};
    for (unsigned int nByte = 0; nByte < 256; ++nByte) {
        unsigned int nRest = nByte;
        for (int nBit = 0; nBit < 8; ++nBit)
            nRest = (nRest >> 1) ^ ((nRest & 1U) != 0 ? 0xEDB88320U : 0U); // the polynomial, reflected
        anTables[0][nByte] = nRest;
    }
    for (std::size_t k = 1; k < STRIDE; ++k) {
        for (std::size_t nByte = 0; nByte < 256; ++nByte) {
            const unsigned int nBefore = anTables[k - 1][nByte];
            anTables[k][nByte] = (nBefore >> 8) ^ anTables[0][nBefore & 0xFF];
        }
    }
    return anTables;
}

constexpr CTables TABLES = MakeTables();

unsigned int Word(const unsigned char* pBytes)
{
    return pBytes[0] | (static_cast<unsigned int>(pBytes[1]) << 8) |
           (static_cast<unsigned int>(pBytes[2]) << 16) | (static_cast<unsigned int>(pBytes[3]) << 24);
}

// What four bytes add, the last of them nDistance bytes away from the end.
template<std::size_t nDistance>
unsigned int Part(unsigned int nWord)
{
    return TABLES[nDistance + 3][nWord & 0xFF] ^ TABLES[nDistance + 2][(nWord >> 8) & 0xFF] ^
           TABLES[nDistance + 1][(nWord >> 16) & 0xFF] ^ TABLES[nDistance][nWord >> 24];
}

} // namespace

void CCRC32::Add(const char* pData, std::size_t nLen)
{
    const auto* pBytes = reinterpret_cast<const unsigned char*>(pData);
    unsigned int nRegister = m_nRegister;
    for (; nLen >= STRIDE; nLen -= STRIDE, pBytes += STRIDE)
        nRegister = Part<12>(Word(pBytes) ^ nRegister) ^ Part<8>(Word(pBytes + 4)) ^
                    Part<4>(Word(pBytes + 8)) ^ Part<0>(Word(pBytes + 12));
    for (; nLen > 0; --nLen)
        nRegister = (nRegister >> 8) ^ TABLES[0][(nRegister ^ *pBytes++) & 0xFF];
    m_nRegister = nRegister;
}
