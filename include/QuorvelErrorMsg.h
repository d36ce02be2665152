/**
 * @file QuorvelErrorMsg.h
 * @brief The device kinds, and the texts of result codes and device kinds.
 */
#ifndef QUORVEL_ERROR_MSG_H
#define QUORVEL_ERROR_MSG_H

#include "QuorvelExport.h"

#include <string>

/**
 * The kinds of gateway. The value is the high byte of a telegram's command code and decides the TCP port
 * (4999 + kind + 100 x port index).
 */
enum EQuorvelDevice : int {
    eDeviceI2C = 1,                 ///< I2C master
    eDeviceCAN = 2,                 ///< CAN interface and CANopen master
    eDeviceSPI = 3,                 ///< SPI master
    eDeviceRS232 = 4,               ///< serial interface
    eDeviceDIO = 5,                 ///< digital inputs and outputs
    eDeviceAudio = 6,               ///< audio
    eDeviceAD = 7,                  ///< analog and digital lines
    eDeviceUniversalProgrammer = 8, ///< universal programmer
    eDeviceRenesas = 9,             ///< Renesas flash programmer
    eDeviceTestSystemIO = 11,       ///< test system: I/O box
    eDeviceTestSystemPWR = 12,      ///< test system: power-supply box
    eDeviceTestSystemCOM = 13,      ///< test system: communication box
    eDeviceAWire = 14,              ///< aWire programmer
    eDeviceTestSystemRelay = 17     ///< test system: relay box
};

/**
 * The text of a result code, for example "TCP/IP timeout occured" for 0x00040000.
 *
 * A gateway's own code without a text of its own gets the text of the code that all kinds share
 * (0x03FF reads as 0x00FF, "Quorvel command failed"). A code that is not known at all gives
 * "Unknown error code: " and its value in decimal.
 *
 * @param nRC any result code of the library
 * @return the text; never empty
 * @note May be called from any thread at any time.
 */
QUORVEL_API std::string QuorvelErrorMsg(int nRC);

/**
 * The display name of a device kind, for example "Quorvel SPI" for 3.
 *
 * @param nDeviceType an EQuorvelDevice value
 * @return the name; "Quorvel ???" for every value outside 1 to 9
 * @note May be called from any thread at any time.
 */
QUORVEL_API std::string QuorvelDeviceName(int nDeviceType);

#endif
