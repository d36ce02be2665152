/**
 * @file I2cEeprom.h
 * @brief Serial EEPROMs of the 24 series, in every way in which they take a slave address.
 */
#ifndef QUORVEL_SIM_I2C_EEPROM_H
#define QUORVEL_SIM_I2C_EEPROM_H

#include "I2cBus.h"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <span>
#include <string>

/** A type of memory. */
struct SI2cEepromType {
    const char* pName;
    unsigned nMode;       ///< bits 8 to 10 of its addressing word: where chip number and further offset bits
                          ///< are in the slave address; bits 8 and 9 alone: how many further offset bits
    unsigned nOffsetBits; ///< bits of the offset bytes that it uses; bits 0 to 7 of the addressing word
    std::size_t nPageSize;

    unsigned GetFurtherBits() const { return nMode >> 8 & 3; }
    std::size_t GetSize() const { return std::size_t{1} << (nOffsetBits + GetFurtherBits()); }
    unsigned GetChips() const; ///< how many can be told apart on a bus
};

/**
 * A serial EEPROM; slave addresses are 8-bit, 0xA0 to 0xAE.
 *
 * Written to, it takes the offset (one or two bytes, most significant first), then data, which wraps within
 * its page; of more than a page the last bytes count. At the stop condition it stores the data, and then does
 * not acknowledge its address until the busy time is over. A repeated start instead of the stop forgets the
 * data. Read from, it goes on where the last transfer ended, over all of the memory and from its end to its
 * start. At first all bytes are 0xFF.
 *
 * All functions of its own may be called from any thread.
 */
class CI2cEeprom : public CI2cDevice
{
  public:
    /// The types there are; one for each mode at least.
    static std::span<const SI2cEepromType> GetTypes();

    /// nChip must be less than oType.GetChips().
    CI2cEeprom(const SI2cEepromType& oType, unsigned nChip);

    const SI2cEepromType& GetType() const { return m_oType; }
    std::size_t GetSize() const { return m_strMemory.size(); }
    /// The slave address (bit 0 clear) under which the byte is found, the offset taken modulo the size.
    std::uint8_t GetSlaveAddress(std::size_t nOffset) const;
    /// Whether the slave address is one of the memory's; bit 0 does not matter.
    bool IsAt(unsigned nAddress) const;
    /// The offset in the memory from a slave address of its own and the offset bytes.
    std::size_t ToOffset(unsigned nAddress, std::size_t nOffsetBytes) const;

    /// How long it is busy after a write; 5000 µs at start.
    void SetBusyTime(std::chrono::microseconds nTime);
    /// Content, past the bus; an offset beyond the end is taken modulo the size.
    std::string Peek(std::size_t nOffset, std::size_t nLen) const;
    /// Replaces content, past the bus and its rules.
    void Poke(std::size_t nOffset, const std::string& strData);

    bool Select(std::uint8_t nAddress) override;
    bool Write(std::uint8_t nByte) override;
    std::uint8_t Read() override;
    void Stop() override;
    void PowerCycle() override;

  private:
    const SI2cEepromType& m_oType;
    const unsigned m_nChipBits;    ///< the slave address without further offset bits
    const unsigned m_nFurtherBits; ///< mask of the further offset bits in the slave address

    mutable std::mutex m_oMutex;
    std::string m_strMemory;
    std::size_t m_nPos = 0;   ///< what is read next
    unsigned m_nAddress = 0;  ///< the slave address last selected
    std::string m_strWritten; ///< since then: offset bytes and data
    std::chrono::microseconds m_nBusyTime{5000};
    std::chrono::steady_clock::time_point m_oBusyUntil;
};

#endif
