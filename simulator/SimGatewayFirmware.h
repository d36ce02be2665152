/**
 * @file SimGatewayFirmware.h
 * @brief The simulated maintenance service of a gateway.
 */
#ifndef QUORVEL_SIM_GATEWAY_FIRMWARE_H
#define QUORVEL_SIM_GATEWAY_FIRMWARE_H

#include "SimGateway.h"

/**
 * Device kind 0: a gateway's own flash, 128 blocks of 2048 bytes, and its EEPROM of 64 KiB. Commands:
 *  - 0xE0 EEPROM information: answers 2 bytes 0, then the size (4 bytes, little-endian)
 *  - 0xE1 read EEPROM: offset (4 bytes, most significant first), length (2 bytes, little-endian)
 *  - 0xE2 write EEPROM: offset likewise, data
 *  - 0xE3 clear flash
 *  - 0xE4 read flash: block (2 bytes, little-endian); answers 2048 bytes
 *  - 0xE5 write flash: block, 2048 bytes; the block must be clear (all 0xFF)
 *  - 0xE7 restart
 *
 * Past the end of the EEPROM, or of an answer: 0x02. A block that is not there or not clear: 0xFF.
 *
 * At start every byte of the flash is 0. The EEPROM begins with the device information, three numbers of 4
 * bytes, most significant first: serial number 1001, hardware version 0x80010002, software version 0x00010000;
 * 244 bytes 0 follow, the rest is 0xFF. Both keep their content over a restart.
 */
class CSimGatewayFirmware : public CSimGateway
{
  public:
    static constexpr std::size_t nFlashSize = std::size_t{128} * 2048;
    static constexpr std::size_t nEEPROMSize = 65536;

    CSimGatewayFirmware();
    ~CSimGatewayFirmware() override;

    /// Content of the flash and of the EEPROM, past the gateway.
    std::string PeekFlash(std::size_t nAddress, std::size_t nLen) const;
    std::string PeekEEPROM(std::size_t nAddress, std::size_t nLen) const;

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;

  private:
    SSimAnswer AccessEEPROM(const SSimRequest& oRequest);
    SSimAnswer AccessFlash(const SSimRequest& oRequest);

    std::string m_strFlash;
    std::string m_strEEPROM;
};

#endif
