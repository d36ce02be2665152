/**
 * @file SimTelegram.h
 * @brief The simulator's own form of a telegram, and the cutting of a byte stream into telegrams.
 */
#ifndef QUORVEL_SIM_TELEGRAM_H
#define QUORVEL_SIM_TELEGRAM_H

#include <cstddef>
#include <string>

/**
 * One telegram. On the wire (numbers little-endian): length (2 bytes, data bytes + 5), command code (2),
 * telegram id (2), data, check byte (XOR of command code, id and data bytes).
 */
struct SSimTelegram {
    /// The longest telegram, length field included, that both sides pass on.
    static constexpr std::size_t nMaxBytes = 65535;
    /// The most data bytes that fit such a telegram.
    static constexpr std::size_t nMaxData = nMaxBytes - 7;

    unsigned short nCmdCode = 0; ///< bit 15 confirmation, bits 8..14 kind, bits 0..7 command number
    short nID = 0;               ///< a confirmation carries the id of its request
    std::string strData;         ///< at most nMaxData bytes

    /// The bytes on the wire.
    std::string ToBytes() const;
};

/// Appends a 16-bit number, little-endian.
void SimPut16(std::string& strData, unsigned nValue);
/// Appends a 32-bit number, little-endian.
void SimPut32(std::string& strData, unsigned nValue);
/// The 16-bit little-endian number at nPos; nPos + 2 must not exceed the size.
unsigned SimGet16(const std::string& strData, std::size_t nPos);
/// The 32-bit little-endian number at nPos; nPos + 4 must not exceed the size.
unsigned SimGet32(const std::string& strData, std::size_t nPos);

/** Cuts the bytes of a stream into telegrams, however they arrive. */
class CSimTelegramCutter
{
  public:
    enum class EResult {
        eNone,     ///< no whole telegram is there
        eTelegram, ///< a telegram was taken
        eDamaged   ///< a telegram that cannot be used was taken and dropped; the text says why
    };

    void Append(const char* pData, std::size_t nLen);
    EResult Next(SSimTelegram& oTelegram, std::string& strProblem);

  private:
    std::string m_strBuffer;
    std::size_t m_nRead = 0;
};

#endif
