#include "I2cEeprom.h"

#include <algorithm>

namespace
{

// Those called 24x are layouts that addressing words can describe and that common types do not use.
constexpr SI2cEepromType aoTypes[] = {
    {"24c02", 0x000, 8, 8},     {"24c256", 0x000, 15, 64},   {"24c512", 0x000, 16, 128},
    {"24c04", 0x100, 8, 16},    {"24c08", 0x200, 8, 16},     {"24c16", 0x300, 8, 16},
    {"24x400", 0x400, 12, 32},  {"24c1025", 0x500, 16, 128}, {"24x600", 0x600, 16, 256},
    {"24x700", 0x700, 16, 256},
};

/// What the bits 1 to 3 of the slave address are for, by mode.
struct SLayout {
    unsigned nChipShift;
    unsigned nChipBits;
    unsigned nFurtherShift;
};
constexpr SLayout aoLayouts[] = {{1, 3, 1}, {2, 2, 1}, {3, 1, 1}, {1, 0, 1},
                                 {1, 0, 1}, {1, 2, 3}, {1, 1, 2}, {1, 0, 1}};

const SLayout& Layout(const SI2cEepromType& oType)
{
    return aoLayouts[oType.nMode >> 8 & 7];
}

} // namespace

unsigned SI2cEepromType::GetChips() const
{
    return 1U << Layout(*this).nChipBits;
}

std::span<const SI2cEepromType> CI2cEeprom::GetTypes()
{
    return aoTypes;
}

CI2cEeprom::CI2cEeprom(const SI2cEepromType& oType, unsigned nChip)
    : m_oType(oType),
      m_nChipBits(0xA0 | nChip << Layout(oType).nChipShift),
      m_nFurtherBits(((1U << oType.GetFurtherBits()) - 1) << Layout(oType).nFurtherShift),
      m_strMemory(oType.GetSize(), '\xFF')
{
}

std::uint8_t CI2cEeprom::GetSlaveAddress(std::size_t nOffset) const
{
    const auto nFurther = static_cast<unsigned>(nOffset % GetSize() >> m_oType.nOffsetBits);
    return static_cast<std::uint8_t>(m_nChipBits | nFurther << Layout(m_oType).nFurtherShift);
}

bool CI2cEeprom::IsAt(unsigned nAddress) const
{
    return (nAddress & ~(m_nFurtherBits | 1)) == m_nChipBits;
}

std::size_t CI2cEeprom::ToOffset(unsigned nAddress, std::size_t nOffsetBytes) const
{
    const std::size_t nFurther = (nAddress & m_nFurtherBits) >> Layout(m_oType).nFurtherShift;
    return nFurther << m_oType.nOffsetBits | (nOffsetBytes & ((std::size_t{1} << m_oType.nOffsetBits) - 1));
}

void CI2cEeprom::SetBusyTime(std::chrono::microseconds nTime)
{
    const std::lock_guard oLock(m_oMutex);
    m_nBusyTime = nTime;
}

std::string CI2cEeprom::Peek(std::size_t nOffset, std::size_t nLen) const
{
    const std::lock_guard oLock(m_oMutex);
    std::string strData;
    for (std::size_t i = 0; i < nLen; i++)
        strData += m_strMemory[(nOffset + i) % GetSize()];
    return strData;
}

void CI2cEeprom::Poke(std::size_t nOffset, const std::string& strData)
{
    const std::lock_guard oLock(m_oMutex);
    for (std::size_t i = 0; i < strData.size(); i++)
        m_strMemory[(nOffset + i) % GetSize()] = strData[i];
}

bool CI2cEeprom::Select(std::uint8_t nAddress)
{
    const std::lock_guard oLock(m_oMutex);
    m_strWritten.clear();
    if (!IsAt(nAddress) || std::chrono::steady_clock::now() < m_oBusyUntil)
        return false;
    m_nAddress = nAddress;
    return true;
}

bool CI2cEeprom::Write(std::uint8_t nByte)
{
    const std::lock_guard oLock(m_oMutex);
    const std::size_t nOffsetBytes = m_oType.nOffsetBits > 8 ? 2 : 1;
    // The page buffer has room for a page; what comes later replaces what came first.
    if (m_strWritten.size() == nOffsetBytes + 2 * m_oType.nPageSize)
        m_strWritten.erase(nOffsetBytes, m_oType.nPageSize);
    m_strWritten += static_cast<char>(nByte);
    if (m_strWritten.size() == nOffsetBytes) {
        std::size_t nOffset = 0;
        for (const char c : m_strWritten)
            nOffset = nOffset << 8 | static_cast<unsigned char>(c);
        m_nPos = ToOffset(m_nAddress, nOffset);
    }
    return true;
}

std::uint8_t CI2cEeprom::Read()
{
    const std::lock_guard oLock(m_oMutex);
    const auto nByte = static_cast<std::uint8_t>(m_strMemory[m_nPos]);
    m_nPos = (m_nPos + 1) % GetSize();
    return nByte;
}

void CI2cEeprom::Stop()
{
    const std::lock_guard oLock(m_oMutex);
    const std::size_t nOffsetBytes = m_oType.nOffsetBits > 8 ? 2 : 1;
    if (m_strWritten.size() > nOffsetBytes) {
        const std::size_t nPage = m_nPos - m_nPos % m_oType.nPageSize;
        for (std::size_t i = nOffsetBytes; i < m_strWritten.size(); i++) {
            m_strMemory[m_nPos] = m_strWritten[i];
            m_nPos = nPage + (m_nPos + 1) % m_oType.nPageSize;
        }
        m_oBusyUntil = std::chrono::steady_clock::now() + m_nBusyTime;
    }
    m_strWritten.clear();
}

void CI2cEeprom::PowerCycle()
{
    const std::lock_guard oLock(m_oMutex);
    m_strWritten.clear();
    m_nPos = 0;
    m_oBusyUntil = {};
}
