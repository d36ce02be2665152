// The bus behind an I2C gateway.
#ifndef QUORVEL_TOOL_I2C_BUS_H
#define QUORVEL_TOOL_I2C_BUS_H

#include "Gateway.h"
#include "I2cMessages.h"
#include "QuorvelClientI2C.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

/// One access to a register, in the modes of i2cget and i2cset.
struct SI2cAccess {
    /// What comes or goes.
    enum EMode {
        eByte,        ///< b: a byte
        eWord,        ///< w: two bytes, the low one first
        eConsecutive, ///< c: the register and a stop condition; a byte
        eSmbusBlock,  ///< s: the number of bytes, and the bytes
        eI2cBlock     ///< i: bytes
    };

    unsigned nAddress = 0;                  ///< 7 bits
    std::optional<unsigned> nRegister = {}; ///< 0 to 255; none: nothing is written before reading
    EMode eMode = eByte;
    bool bPec = false;                            ///< with a packet error code
    std::size_t nLength = SI2cMessage::MAX_BLOCK; ///< of an I2C block to read
};

/// Messages and register accesses on the bus.
class CI2cBus
{
  public:
    explicit CI2cBus(CTool& oTool) : m_oTool(oTool), m_oGateway(oTool) {}

    /// @return the gateway, for what is not a message
    CGateway<CQuorvelClientI2C>& GetGateway() { return m_oGateway; }

    /**
     * Carries messages out: all together in one telegram, except where a stop condition is asked for.
     * @param aoMessages  the messages; those that read receive their bytes
     * @param pUnreadable receives whether a device did not acknowledge, which then is no failure; may be null
     * @return 0, or the exit status of a failure, which was reported
     */
    int Run(std::vector<SI2cMessage>& aoMessages, bool* pUnreadable = nullptr);

    /**
     * Reads.
     * @param strValue    receives the value, without the length of a block and the packet error code
     * @param pUnreadable receives whether it did not come, or with a wrong packet error code, which then is
     *                    no failure; may be null
     * @return 0, or the exit status of a failure, which was reported
     */
    int ReadValue(const SI2cAccess& oAccess, std::string& strValue, bool* pUnreadable = nullptr);

    /// Writes to a register. @return 0, or the exit status of a failure, which was reported
    int WriteValue(const SI2cAccess& oAccess, const std::string& strValue);

  private:
    int RunTogether(std::span<SI2cMessage> aoMessages, std::size_t nFirst, std::size_t nAll,
                    bool* pUnreadable);
    int Execute(std::span<SI2cMessage> aoMessages, std::size_t& nFailed, unsigned short& nPosition,
                std::string& strRead);

    CTool& m_oTool;
    CGateway<CQuorvelClientI2C> m_oGateway;
};

#endif
