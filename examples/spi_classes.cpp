// Erases, programs and reads a page of the serial flash behind an SPI gateway, through the classes.
//
//     spi_classes HOST
//
// Returns 0 when the flash holds what was written. spi_flash.c does the whole job, with a file, in C.

#include "QuorvelClientSPI.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    // A client is one gateway. Port 0 is the port of its kind; the time-out of two seconds holds for every
    // call.
    CQuorvelClientSPI oGateway(2000);
    int nRC = oGateway.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oGateway.Open();

    // One frame: bytes out, then zeros for what is to be read behind them. The first failure stays.
    const auto fnFrame = [&](const std::string& strOut, std::size_t nRead = 0) {
        std::string strIn(strOut.size() + nRead, '\0');
        const auto nIn = static_cast<unsigned short>(strIn.size());
        if (nRC == 0)
            nRC = oGateway.DataReq(strOut.data(), static_cast<unsigned short>(strOut.size()), strIn.data(),
                                   nIn);
        return strIn.substr(strOut.size());
    };

    // A writing command: enable it, send it, ask until the busy bit is gone (at most so often:
    // where no flash is, it never goes).
    const auto fnWrite = [&](const std::string& strOut) {
        fnFrame("\x06");
        fnFrame(strOut);
        for (int i = 0; i < 100000 && nRC == 0 && (fnFrame("\x05", 1)[0] & 1) != 0; ++i) {
        }
    };

    const std::string strAddress = CQuorvelClientSPI::ToOffset(0x1000, CQuorvelClientSPI::eOffset3Byte);
    const std::string strText = "Written through the classes.";
    const std::string strID = fnFrame("\x9F", 3);
    fnWrite("\x20" + strAddress);
    fnWrite("\x02" + strAddress + strText);
    const std::string strRead = fnFrame("\x03" + strAddress, strText.size());

    // Failures are codes with a text, never exceptions.
    if (nRC != 0) {
        std::printf("0x%08X %s\n", static_cast<unsigned int>(nRC), CQuorvelClient::GetErrorMsg(nRC).c_str());
        return 1;
    }
    std::printf("flash %02X %02X %02X: \"%s\"\n", static_cast<unsigned char>(strID[0]),
                static_cast<unsigned char>(strID[1]), static_cast<unsigned char>(strID[2]), strRead.c_str());
    return strRead == strText ? 0 : 1; // the client disconnects when it goes
}
