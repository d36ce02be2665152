// Writes a serial EEPROM behind an I2C gateway, reads it back and compares.
//
//     i2c_eeprom HOST
//
// Returns 0 when the memory holds what was written.

#include "QuorvelClientI2C.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    // Chip 0 has 32 KiB: 15 bits of offset, sent in two bytes, none of them in the slave address (mode 0).
    constexpr unsigned short CHIP = 0;
    constexpr unsigned short ADDRESSING = 0x000F;
    constexpr unsigned int OFFSET = 0x01F0; // in the middle of a page
    constexpr unsigned short POLL = 100;    // milliseconds

    // Port 0 is the port of the kind; the time-out of two seconds holds for every call; 400 means 400 kHz.
    CQuorvelClientI2C oGateway(2000);
    int nRC = oGateway.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oGateway.Open(400);

    // A memory that writes a page does not acknowledge for some milliseconds. The plain write would fail if it
    // came too soon after another; this one polls. The gateway cuts it at the page boundaries.
    std::string strText;
    for (int i = 1; i <= 10; ++i)
        strText += "Line " + std::to_string(i) + " of what is written across some pages.\n";
    const auto nLen = static_cast<unsigned short>(strText.size());
    if (nRC == 0)
        nRC = oGateway.WriteEEPromPollAck(CHIP, OFFSET, ADDRESSING, strText.data(), nLen, POLL);
    if (nRC == 0)
        nRC = oGateway.WriteEEPromPollAck(CHIP, OFFSET, ADDRESSING, "LINE", 4, POLL);

    std::string strRead(nLen, '\0');
    unsigned short nRead = 0;
    if (nRC == 0)
        nRC = oGateway.ReadEEProm(CHIP, OFFSET, ADDRESSING, strRead.data(), nLen, nRead);

    // Failures are codes with a text, never exceptions.
    if (nRC != 0) {
        std::printf("0x%08X %s\n", static_cast<unsigned int>(nRC), CQuorvelClient::GetErrorMsg(nRC).c_str());
        return 1;
    }
    strText.replace(0, 4, "LINE");
    const bool bSame = nRead == nLen && strRead == strText;
    std::printf("%u bytes at 0x%04X of chip %u: %s\n", nRead, OFFSET, CHIP,
                bSame ? "as written" : "not what was written");
    std::printf("%s\n", strRead.substr(0, strRead.find('\n')).c_str());
    return bSame ? 0 : 1; // the client disconnects when it goes
}
