/**
 * @file SimGatewayI2C.h
 * @brief The simulated I2C gateway with serial EEPROMs and a thermometer on its bus.
 */
#ifndef QUORVEL_SIM_GATEWAY_I2C_H
#define QUORVEL_SIM_GATEWAY_I2C_H

#include "I2cBus.h"
#include "I2cEeprom.h"
#include "I2cTemperatureSensor.h"
#include "SimGateway.h"

#include <memory>
#include <string>
#include <vector>

/**
 * Device kind 1. Commands, numbers little-endian, slave addresses 2 bytes in the 8-bit form:
 *  - 0x04 reset: gives up what is under way on the bus, and ends SetClockHeld
 *  - 0x07 set globals: bus clock in Hz (4 bytes, 1 to 1000000; anything else gives 0xFF and changes nothing).
 *    Power-on: 100000.
 *  - 0x08 get globals: the same 4 bytes
 *  - 0x10 read: slave address, length (2); the answer is the bytes read
 *  - 0x11 write: slave address, bytes; the answer, also with result 0x20, is the position (2) of what was not
 *    acknowledged: 0 the address, 1 the first byte; 0 without an error
 *  - 0x12 read EEPROM: slave address, number of offset bytes (1), offset (4, most significant first),
 *    length (2); the answer is the bytes read
 *  - 0x13 write EEPROM: slave address, number of offset bytes, offset, bytes
 *  - 0x19 write EEPROM with polling: slave address, milliseconds to poll (2), number of offset bytes, offset,
 *    bytes
 *  - 0x14 sequence: length of the answer (2), then per step slave address, length (2) and, when bit 0 of the
 *    address is clear, that many bytes; the answer is the index (2) of the step that failed, 0 without an
 *    error, and what was read
 *  - 0x15 start; 0x16 send: byte, flags (bit 0: 0x00 even if it is not acknowledged); 0x17 get: flags (bit 0:
 *    acknowledge it); 0x18 stop
 *
 * Results: 0x20 not acknowledged, 0x21 the bus does not answer (SetClockHeld), 0x25 polled in vain, 0xFF
 * request data that is too short, too long or inconsistent. docs/simulator.md has the details.
 */
class CSimGatewayI2C : public CSimGateway
{
  public:
    /// The memories at start.
    static constexpr const char* pDefaultMemories = "24c256@0,24c02@1,24c04@1";

    CSimGatewayI2C();
    ~CSimGatewayI2C() override;

    /**
     * Replaces all memories by new ones.
     * @param strList types with their chip numbers, "24c256@0,24c02@1"; without a number it is 0; empty: none
     * @param strError names what is wrong with the list
     * @return whether it was good; if not, nothing is changed
     */
    bool SetMemories(const std::string& strList, std::string& strError);
    /// The memory that has the slave address (8-bit form), null when there is none. It stays as it is, off the
    /// bus, when the memories are replaced.
    std::shared_ptr<CI2cEeprom> GetMemory(unsigned nAddress) const;
    CI2cTemperatureSensor& GetSensor() { return *m_pSensor; }

    /// Has the bus clock held down: all that needs the bus gives 0x21, until it is released here, by the reset
    /// command or by a restart.
    void SetClockHeld(bool bHeld);
    /// Puts two further bytes, the number of bytes read, in front of what reading an EEPROM answers.
    void SetTwoBytesFirst(bool bOn);

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;

  private:
    struct SWrite;

    SSimAnswer ExecuteOnBus(const SSimRequest& oRequest);
    std::shared_ptr<CI2cEeprom> FindMemory(unsigned nAddress) const;
    bool Write(unsigned nAddress, const std::string& strBytes, unsigned& nPosition);
    bool Read(unsigned nAddress, std::size_t nLen, std::string& strRead);
    SSimAnswer ReadEeprom(const std::string& strData);
    SSimAnswer StartWriteEeprom(const std::string& strData, bool bPoll);
    SSimAnswer WriteEeprom(const std::shared_ptr<SWrite>& pWrite);
    bool WritePage(SWrite& oWrite);
    SSimAnswer RunSequence(const std::string& strData);

    const std::shared_ptr<CI2cTemperatureSensor> m_pSensor = std::make_shared<CI2cTemperatureSensor>();
    std::vector<std::shared_ptr<CI2cEeprom>> m_apMemories;
    CI2cBus m_oBus;
    unsigned m_nClock = 0;
    bool m_bClockHeld = false;
    bool m_bTwoBytesFirst = false;
};

#endif
