// I2C messages, and the language in which i2ctransfer takes them.
#ifndef QUORVEL_TOOL_I2C_MESSAGES_H
#define QUORVEL_TOOL_I2C_MESSAGES_H

#include <cstddef>
#include <string>
#include <vector>

/// One message on the bus: what is between a start condition and the next.
struct SI2cMessage {
    /// What SMBus allows in a block, and so the most that a message of variable length brings.
    static constexpr std::size_t MAX_BLOCK = 32;

    unsigned nAddress = 0;   ///< 7 bits
    bool bRead = false;      ///< read, or write
    bool bVariable = false;  ///< the first byte read tells how many follow, 1 to MAX_BLOCK
    bool bStop = false;      ///< a stop condition follows, also when more messages come
    std::size_t nLength = 0; ///< how many bytes; of variable length: the most that may come
    std::string strBytes;    ///< to write, or as they were read
};

/**
 * Reads messages as i2ctransfer has them: DESC [DATA]... for each.
 * @param astrWords     the words of the command line
 * @param bAllAddresses 0x00 to 0x7f instead of 0x08 to 0x77
 * @param aoMessages    receives the messages
 * @return what is wrong; empty when nothing is
 */
std::string ParseI2cMessages(const std::vector<std::string>& astrWords, bool bAllAddresses,
                             std::vector<SI2cMessage>& aoMessages);

/**
 * The line of i2ctransfer -v, without line feed.
 * @param nIndex which message
 * @param bDone  also the bytes read; they are not known before
 */
std::string DescribeI2cMessage(std::size_t nIndex, const SI2cMessage& oMessage, bool bDone);

/// @return "0x01 0x02"
std::string ToI2cBytes(const std::string& strBytes);

/// @return the SMBus packet error code (polynomial x^8 + x^2 + x + 1) of all bytes from the address on
unsigned char GetPacketErrorCode(const std::string& strBytes);

#endif
