#include "QuorvelErrorMsg.h"

#include <iterator>

namespace
{

struct SText {
    int nCode;
    const char* pText;
};

// The texts, misspellings and the parenthesis that is never closed included, are what applications compare.
constexpr SText ERROR_TEXTS[] = {
    {0x00000000, "no error"},
    {0x00020000, "TCP/IP socket error"},
    {0x00030000, "Not connected to TCP/IP partner"},
    {0x00040000, "TCP/IP timeout occured"},
    {0x00050000, "TCP/IP request not allowed now, stack is intializing"},
    {0x00060000, "TCP/IP stack is not initialized"},
    {0x000A0000, "Quorvel TCP/IP telegram has invalid CRC"},
    {0x000B0000, "Quorvel TCP/IP telegram is not confirmed by partner"},
    {0x000C0000, "Quorvel TCP/IP telegram confirmation is invalid"},
    {0x00900000, "Device handle is invalid"},
    {0x00910000,
     "Device type invalid (handle is connected device type, which does not support called function"},
    {0x00920000, "Invalid function parameter"},
    {0x00000001, "Open failed, maximum number of connections reached"},
    {0x00000002, "Read/write request to internal eeprom failed"},
    {0x000000FF, "Quorvel command failed"},
    {0x00000120, "I2C NACK (No Acknowledge)"},
    {0x00000121, "I2C timeout occured (no response)"},
    {0x00000125, "I2C Acknowledge Polling timeout occured"},
    {0x00000220, "CAN NACK (No Acknowledge)"},
    {0x00000221, "CAN transmit error"},
    {0x00000222, "CAN buffer overflow"},
    {0x00000223, "CAN lost arbitration"},
    {0x00000224, "CAN no valid baudrate"},
    {0x000002FC, "CANOpen block timeout"},
    {0x000002FD, "CANOpen NACK (No Acknowledge)"},
    {0x000002FE, "CANOpen mode not switched on"},
    {0x00000320, "SPI inconsistent telegram data"},
    {0x00000321, "SPI error while sending"},
    {0x00000330, "SPI sequence unknown command op code"},
    {0x00000331, "SPI sequence timeout"},
    {0x00000920, "Renesas timeout"},
    {0x00000921, "Renesas invalid ID"},
    {0x00000922, "Renesas failed erase the flash"},
    {0x00000923, "Renesas program the page failed"},
    {0x00000A20, "Display wrong bitmap size x"},
    {0x00000A21, "Display wrong bitmap size y"},
    {0x00000A22, "Display wrong bitmap size data"},
    {0x00000D20, "File could not be opened"},
    {0x00000D21, "File transfer did not complete successfully"},
    {0x00000D22, "File CRC mismatch"},
    {0x00000D23, "Requested configuration is already active"},
    {0x00000D24, "Could not stop configuration"},
    {0x00000D25, "Could not start configuration"},
    {0x00000E20, "File could not be opened"},
    {0x00000E21, "A transfer currently is in progress"},
    {0x00000E22, "SetConfig failed to initialize target"},
    {0x00000E23, "SetConfig failed to read Flash or Page size"},
    {0x00000E24, "EraseBlock not supported"},
    {0x00000E25, "Failed to erase target"},
    {0x00000E26, "Failed to read data from target"},
};
static_assert(std::size(ERROR_TEXTS) == 50);

// Looked up by position: row n - 1 is kind n.
constexpr SText DEVICE_NAMES[] = {
    {eDeviceI2C, "Quorvel I2C"},         {eDeviceCAN, "Quorvel CAN"},
    {eDeviceSPI, "Quorvel SPI"},         {eDeviceRS232, "Quorvel RS232"},
    {eDeviceDIO, "Quorvel DIO"},         {eDeviceAudio, "Quorvel Audio"},
    {eDeviceAD, "Quorvel AD"},           {eDeviceUniversalProgrammer, "Quorvel Universal Programmer"},
    {eDeviceRenesas, "Quorvel Renesas"},
};

} // namespace

std::string QuorvelErrorMsg(int nRC)
{
    for (const SText& oRow : ERROR_TEXTS) {
        if (oRow.nCode == nRC)
            return oRow.pText;
    }
    // A gateway's own code without a text has that of the code common to all kinds.
    if ((nRC & 0x0000FF00) != 0)
        return QuorvelErrorMsg(nRC & ~0x0000FF00);
    return "Unknown error code: " + std::to_string(nRC);
}

std::string QuorvelDeviceName(int nDeviceType)
{
    if (nDeviceType < 1 || nDeviceType > static_cast<int>(std::size(DEVICE_NAMES)))
        return "Quorvel ???";
    return DEVICE_NAMES[nDeviceType - 1].pText;
}
