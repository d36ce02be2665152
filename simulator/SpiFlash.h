/**
 * @file SpiFlash.h
 * @brief A serial NOR flash of 8 MiB, as it behaves on its SPI pins.
 */
#ifndef QUORVEL_SIM_SPI_FLASH_H
#define QUORVEL_SIM_SPI_FLASH_H

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

/**
 * The flash chip behind the SPI gateway.
 *
 * Commands (first byte of a chip-select frame):
 *  - 0x9F identification: C2 20 17, repeated
 *  - 0x05 status, repeated: bit 0 busy, bit 1 write-enable latch
 *  - 0x06 / 0x04 set / clear the write-enable latch
 *  - 0x03 read: 3 address bytes (most significant first), then data; 0x0B the same with one dummy byte before
 * the data. Reading past the end goes on at 0.
 *  - 0x02 page program: 3 address bytes, data. The data wraps within its page of 256 bytes, only the last 256
 * bytes count, and bits can only be cleared.
 *  - 0x20 / 0xD8 erase 4 KiB / 64 KiB: 3 address bytes; 0xC7 erase all
 *
 * Writing commands act at the end of the frame, need the write-enable latch, which they clear when they are
 * done, and need exactly their bytes: the erase commands nothing behind the address, 0x06, 0x04 and 0xC7
 * nothing behind the command, 0x02 at least one data byte. While busy only 0x05 is answered. Whatever is not
 * answered reads as 0xFF.
 *
 * All functions may be called from any thread.
 */
class CSpiFlash
{
  public:
    static constexpr std::size_t nSize = std::size_t{8} << 20;

    CSpiFlash();

    /// One chip-select frame: clocks the bytes out and returns as many that the chip answered.
    std::string Transfer(const std::string& strWrite);

    /// Takes the supply away and gives it back: the latch and a running operation are gone, the content
    /// stays.
    void PowerCycle();

    /// Busy times are multiplied by it; 1 at start: page 1 ms, 4 KiB 20 ms, 64 KiB 100 ms, chip 2 s. 0: never
    /// busy.
    void SetBusyFactor(double nFactor);

    /// Content, past the bus; an address beyond the end is taken modulo the size.
    std::string Peek(std::size_t nAddress, std::size_t nLen) const;
    /// Replaces content, past the bus and its rules.
    void Poke(std::size_t nAddress, const std::string& strData);

  private:
    void Update();
    void Begin(std::chrono::milliseconds nBusy);
    void Program(std::size_t nAddress, const std::string& strWrite);
    void Erase(std::size_t nAddress, std::size_t nLen, std::chrono::milliseconds nBusy);

    mutable std::mutex m_oMutex;
    std::string m_strMemory;
    bool m_bWriteEnabled = false;
    bool m_bBusy = false;
    std::chrono::steady_clock::time_point m_oBusyUntil;
    double m_nBusyFactor = 1;
};

#endif
