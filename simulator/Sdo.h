/**
 * @file Sdo.h
 * @brief What both ends of an SDO transfer (CANopen's access to a node's objects) have in common.
 */
#ifndef QUORVEL_SIM_SDO_H
#define QUORVEL_SIM_SDO_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// Abort codes.
enum : unsigned {
    eSdoToggle = 0x05030000,
    eSdoTimeout = 0x05040000,
    eSdoUnknownCommand = 0x05040001,
    eSdoBlockSize = 0x05040002,
    eSdoSequence = 0x05040003,
    eSdoCrc = 0x05040004,
    eSdoMemory = 0x05040005,
    eSdoWriteOnly = 0x06010001,
    eSdoReadOnly = 0x06010002,
    eSdoNoObject = 0x06020000,
    eSdoLength = 0x06070010,
    eSdoTooLong = 0x06070012,
    eSdoNoSubindex = 0x06090011,
    eSdoRange = 0x06090030
};

/// No transfer may be longer; more would not fit the telegram of a block write.
constexpr std::size_t nSdoMaxData = 65522;
constexpr unsigned nSdoMaxBlock = 127;

/// The CRC of a block transfer: CCITT polynomial 0x1021, most significant bit first, start value 0.
unsigned SdoCrc(const std::string& strData);
/// A frame of 8 bytes: command, index, subindex, value.
std::string SdoFrame(unsigned nCommand, unsigned nIndex, unsigned nSubindex, unsigned nValue = 0);
/// A frame that ends a transfer before its time.
std::string SdoAbort(unsigned nIndex, unsigned nSubindex, unsigned nCode);
/// A frame of 8 bytes: command, then up to 7 bytes of data, then zeros.
std::string SdoSegment(unsigned nCommand, const std::string& strData, std::size_t nPos = 0);
/// A byte of a frame.
unsigned SdoByte(const std::string& strFrame, std::size_t nPos);

/** Sends an object in blocks of numbered segments, each block acknowledged as far as it arrived. */
class CSdoBlockSender
{
  public:
    void Start(const std::string& strData);
    /// How many segments the next block may have; false when that is not a number from 1 to 127.
    bool SetBlockSize(unsigned nSegments);
    /// Appends the next block.
    void Send(std::vector<std::string>& astrFrames);
    /// The other end has the first nSegments of the block; false when there were not so many.
    bool Acknowledge(unsigned nSegments);
    bool IsFinished() const { return m_nFirst == Total(); }
    /// The frame that ends the transfer, with the number of idle bytes in the last segment and the CRC.
    std::string End(unsigned nCommand) const;
    std::size_t GetSize() const { return m_strData.size(); }

  private:
    std::size_t Total() const { return m_strData.empty() ? 1 : (m_strData.size() + 6) / 7; }

    std::string m_strData;
    std::size_t m_nFirst = 0; ///< segments acknowledged
    std::size_t m_nSent = 0;  ///< in this block
    unsigned m_nBlockSize = nSdoMaxBlock;
};

/** Receives an object in blocks of segments. */
class CSdoBlockReceiver
{
  public:
    /// @param oSize how long the object is to be, if that was announced
    void Start(std::optional<std::size_t> oSize);
    /// Takes a segment; one out of sequence is dropped. True when the block is over and to be acknowledged.
    bool Receive(const std::string& strFrame);
    /// How many segments of the block have arrived in sequence; begins the next block.
    unsigned Acknowledge();
    bool IsFinished() const { return m_bFinished; }
    bool IsTooLong() const { return m_strData.size() >= nSdoMaxData + 7; }
    /// Reads the frame that ends the transfer. An abort code, or 0.
    unsigned End(const std::string& strFrame, bool bCrc);
    const std::string& GetData() const { return m_strData; }

  private:
    std::string m_strData;
    std::optional<std::size_t> m_oSize;
    unsigned m_nSequence = 0;
    bool m_bFinished = false;
};

#endif
