// The kinds of gateway, as the command line names them.
#ifndef QUORVEL_TOOL_KINDS_H
#define QUORVEL_TOOL_KINDS_H

#include "QuorvelErrorMsg.h"

#include <array>
#include <string>

/// The maintenance service that every gateway has.
constexpr auto eDeviceFirmware = static_cast<EQuorvelDevice>(0);

/// One kind of gateway.
struct SKind {
    EQuorvelDevice eKind;
    const char* pName; ///< on the command line; upper and lower case do not matter
    const char* pText;
};

/// All kinds that the library has a client for.
constexpr std::array<SKind, 12> KINDS{{
    {eDeviceI2C, "I2C", "I2C master"},
    {eDeviceCAN, "CAN", "CAN interface and CANopen master"},
    {eDeviceSPI, "SPI", "SPI master"},
    {eDeviceDIO, "DIO", "digital inputs and outputs"},
    {eDeviceAD, "AD", "analog and digital lines"},
    {eDeviceRenesas, "Renesas", "Renesas flash programmer"},
    {eDeviceTestSystemIO, "IO", "test system: I/O box"},
    {eDeviceTestSystemPWR, "PWR", "test system: power-supply box"},
    {eDeviceTestSystemCOM, "COM", "test system: communication box"},
    {eDeviceAWire, "AWire", "aWire programmer"},
    {eDeviceTestSystemRelay, "Relay", "test system: relay box"},
    {eDeviceFirmware, "Firmware", "maintenance of any gateway"},
}};

/// @return the kind's name on the command line
inline const char* GetKindName(EQuorvelDevice eKind)
{
    for (const SKind& oKind : KINDS) {
        if (oKind.eKind == eKind)
            return oKind.pName;
    }
    return "?";
}

#endif
