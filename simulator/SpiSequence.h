/**
 * @file SpiSequence.h
 * @brief The byte programs that the SPI gateway runs on its own.
 */
#ifndef QUORVEL_SIM_SPI_SEQUENCE_H
#define QUORVEL_SIM_SPI_SEQUENCE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/**
 * A sequence as a list of operations. The byte format, numbers little-endian:
 *
 * | op code | operands | effect |
 * |---|---|---|
 * | 0x00 end | | ends the sequence; what follows is not looked at. The end of the bytes ends it, too. |
 * | 0x01 transfer | count (2), bytes | one chip-select frame; the bytes read are collected |
 * | 0x02 write | count (2), bytes | the same, the bytes read are dropped |
 * | 0x03 write and read | count (2), bytes, read count (2) | one frame: writes, then clocks zeros; only the
 * bytes read meanwhile are collected | | 0x04 delay | milliseconds (2) | | | 0x05 digital write | outputs (4)
 * | | | 0x06 digital read | | the inputs (4) are collected | | 0x07 loop | count (2), at least 1 | runs what
 * follows up to its loop end so many times; loops nest to a depth of 8 | | 0x08 loop end | | |
 *
 * Frames of no bytes, loops that are not closed or opened, and an empty sequence are inconsistent.
 */
class CSpiSequence
{
  public:
    /// Result bytes.
    enum : unsigned char { eInconsistent = 0x20, eUnknownOpCode = 0x30 };

    enum EOpCode : unsigned char {
        eEnd = 0x00,
        eTransfer = 0x01,
        eWrite = 0x02,
        eWriteRead = 0x03,
        eDelay = 0x04,
        eDigitalWrite = 0x05,
        eDigitalRead = 0x06,
        eLoop = 0x07,
        eLoopEnd = 0x08
    };

    struct SOperation {
        EOpCode eOpCode = eEnd;
        std::string strWrite;      ///< of a frame, zeros for reading included
        std::size_t nCollect = 0;  ///< how many of the frame's last bytes are collected
        unsigned nValue = 0;       ///< milliseconds, outputs or loop count
        std::size_t nLoopHead = 0; ///< of a loop end: its loop
    };

    /// Reads the byte format; returns 0 or a result byte, and then the sequence must not be used.
    unsigned char Parse(const std::string& strBytes);

    const std::vector<SOperation>& GetOperations() const { return m_aoOperations; }

  private:
    std::vector<SOperation> m_aoOperations;
};

#endif
