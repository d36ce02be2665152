#include "WireTrace.h"

#include "Kinds.h"
#include "Text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace
{

struct SCommand {
    unsigned nCode; // kind * 256 + number
    const char* pName;
};

constexpr SCommand COMMANDS[] = {
    {0x0104, "I2C reset"},
    {0x0107, "I2C set bus clock"},
    {0x0108, "I2C get bus clock"},
    {0x0110, "I2C read"},
    {0x0111, "I2C write"},
    {0x0112, "I2C EEPROM read"},
    {0x0113, "I2C EEPROM write"},
    {0x0114, "I2C sequence"},
    {0x0115, "I2C start condition"},
    {0x0116, "I2C send byte"},
    {0x0117, "I2C get byte"},
    {0x0118, "I2C stop condition"},
    {0x0119, "I2C EEPROM write, polling"},
    {0x0203, "CAN write"},
    {0x0205, "CAN set configuration"},
    {0x0206, "CAN get configuration"},
    {0x0207, "CAN set bus parameters"},
    {0x0208, "CAN get bus parameters"},
    {0x020B, "CAN set clock"},
    {0x020E, "CAN get clock"},
    {0x0220, "CAN set filter"},
    {0x0221, "CAN get filter"},
    {0x0222, "CAN get power status"},
    {0x0223, "CAN set power relay"},
    {0x0224, "CAN set active power supplies"},
    {0x0251, "CAN set Z-card parameters"},
    {0x0252, "CAN get Z-card parameters"},
    {0x0260, "CANopen set mode"},
    {0x0261, "CANopen get mode"},
    {0x0262, "CANopen SYNC period"},
    {0x0263, "CANopen NMT"},
    {0x0264, "CANopen SYNC"},
    {0x0265, "CANopen TIME"},
    {0x0267, "CANopen PDO"},
    {0x0268, "CANopen SDO read"},
    {0x0269, "CANopen SDO write"},
    {0x026A, "CANopen SDO block read"},
    {0x026B, "CANopen SDO block write"},
    {0x0303, "SPI transfer"},
    {0x0307, "SPI set bus parameters"},
    {0x0308, "SPI get bus parameters"},
    {0x0314, "SPI sequence"},
    {0x0730, "AD read all values"},
    {0x0920, "Renesas begin a run"},
    {0x0921, "Renesas check ID"},
    {0x0922, "Renesas set baud rate"},
    {0x0923, "Renesas read page"},
    {0x0924, "Renesas erase all"},
    {0x0925, "Renesas write page"},
    {0x0926, "Renesas get version"},
    {0x0927, "Renesas end a run"},
    {0x0928, "Renesas checksum"},
    {0x0929, "Renesas erase block"},
    {0x0B10, "IO set values"},
    {0x0B11, "IO get values"},
    {0x0B20, "IO set power"},
    {0x0B21, "IO get power"},
    {0x0C10, "PWR set values"},
    {0x0C11, "PWR get values"},
    {0x0D05, "COM set configuration"},
    {0x0D06, "COM get configuration"},
    {0x0DD2, "COM is a configuration there"},
    {0x0DD3, "COM send file"},
    {0x0DD4, "COM next piece"},
    {0x0DD5, "COM install"},
    {0x0E05, "AWire set configuration"},
    {0x0E06, "AWire get configuration"},
    {0x0EE0, "AWire write block"},
    {0x0EE1, "AWire write status"},
    {0x0EE2, "AWire erase block"},
    {0x0EE3, "AWire read"},
    {0x0EE4, "AWire write user page"},
    {0x0EE5, "AWire erase user page"},
    {0x1112, "Relay switch"},
    {0x1120, "Relay set power"},
    {0x1121, "Relay get power"},
    {0x00E0, "firmware EEPROM information"},
    {0x00E1, "firmware read EEPROM"},
    {0x00E2, "firmware write EEPROM"},
    {0x00E3, "firmware clear flash"},
    {0x00E4, "firmware read flash"},
    {0x00E5, "firmware write flash"},
    {0x00E7, "firmware restart"},
};

// The numbers that mean the same for every kind, unless the kind has a command of its own there.
constexpr SCommand COMMON_COMMANDS[] = {
    {0x09, "information"},   {0x0A, "status"},      {0x0C, "restart"},      {0x40, "read digital"},
    {0x41, "write digital"}, {0x42, "read analog"}, {0x43, "write analog"},
};

std::string GetCommandName(unsigned nCode)
{
    for (const SCommand& oCommand : COMMANDS) {
        if (oCommand.nCode == nCode)
            return oCommand.pName;
    }
    for (const SCommand& oCommand : COMMON_COMMANDS) {
        if (oCommand.nCode == (nCode & 0xFF))
            return fmt::format("{} {}", GetKindName(static_cast<EQuorvelDevice>(nCode >> 8)), oCommand.pName);
    }
    return "unknown command";
}

} // namespace

std::string FormatTelegram(std::chrono::system_clock::time_point oTime, bool bSent, EQuorvelDevice eKind,
                           const CQuorvelMsg& oMsg)
{
    const auto nMicroseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(oTime.time_since_epoch()).count() % 1000000;
    std::string strText = fmt::format(
        "{:%H:%M:%S}.{:06} {} {} 0x{:04X} id {}", fmt::localtime(std::chrono::system_clock::to_time_t(oTime)),
        nMicroseconds, bSent ? "->" : "<-", GetCommandName(oMsg.GetCmdCode() & 0x7FFFU), oMsg.GetCmdCode(),
        oMsg.GetMsgID());
    const std::string& strData = oMsg.GetData();
    if (oMsg.IsConfirmation() && strData.empty()) {
        strText += ", no result";
    } else if (oMsg.IsConfirmation()) {
        const auto nResult = static_cast<unsigned char>(strData[0]);
        strText += fmt::format(", result 0x{:02X}", nResult);
        if (nResult != 0)
            strText += " " + QuorvelErrorMsg((static_cast<int>(eKind) << 8) | nResult);
    }
    strText += fmt::format(", {} byte{}", strData.size(), strData.size() == 1 ? "" : "s");
    if (!oMsg.IsValid())
        strText += ", wrong length";
    else if (!oMsg.IsCRCValid())
        strText += ", wrong check byte";
    return strText + "\n" + Dump(0, strData, "    ");
}
