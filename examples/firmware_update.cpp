// Gives a gateway new firmware: clears its flash, writes and compares it block by block, notes the new version in
// its device information, and restarts it.
//
//     firmware_update HOST
//
// Returns 0 when the gateway runs again and tells the new version.

#include "QuorvelClientFirmware.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

namespace
{

constexpr std::size_t BLOCK = 2048;

// The first failure ends it.
int Update(CQuorvelClientFirmware& oGateway, std::string strImage)
{
    strImage.resize((strImage.size() + BLOCK - 1) / BLOCK * BLOCK, '\xFF'); // whole blocks
    const auto nBlocks = static_cast<unsigned short>(strImage.size() / BLOCK);
    int nRC = oGateway.ClearFlash();
    for (unsigned short nBlock = 0; nRC == 0 && nBlock < nBlocks; ++nBlock)
        nRC = oGateway.WriteFlash(nBlock, strImage.data() + nBlock * BLOCK);

    std::string strRead;
    for (unsigned short nBlock = 0; nRC == 0 && nBlock < nBlocks; ++nBlock) {
        char acBlock[BLOCK];
        unsigned int nLen = 0;
        nRC = oGateway.ReadFlash(nBlock, acBlock, nLen);
        strRead.append(acBlock, nLen);
    }
    if (nRC == 0)
        std::printf("%d blocks written, comparison %s\n", nBlocks, strRead == strImage ? "good" : "BAD");
    return nRC;
}

int ShowInfo(CQuorvelClientFirmware& oGateway, CQuorvelClientFirmware::SQuorvelDeviceInfoEx& oInfo)
{
    const int nRC = oGateway.GetInfo(oInfo);
    if (nRC == 0)
        std::printf("serial number %u, hardware %s, software %s\n", oInfo.nSerialNumber,
                    oInfo.GetHWVersionString().c_str(), oInfo.GetSWVersionString().c_str());
    return nRC;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    // Every gateway has this service; port 0 is 5099.
    CQuorvelClientFirmware oGateway(10000);
    CQuorvelClientFirmware::SQuorvelDeviceInfoEx oInfo{};
    int nRC = oGateway.Connect(argv[1], 0, 1, true);
    int nUnused = 0;
    if (nRC == 0)
        nRC = oGateway.Open(nUnused, nUnused);
    if (nRC == 0)
        nRC = ShowInfo(oGateway, oInfo);
    if (nRC == 0)
        nRC = Update(oGateway, std::string(5000, 'F'));
    if (nRC == 0) {
        oInfo.nSWVersion = 0x00020001; // 2.1
        nRC = oGateway.SetInfo(oInfo);
    }
    if (nRC == 0)
        nRC = oGateway.Restart();

    // The gateway ends the connection, is away for a moment, and takes a new one then.
    const auto oPatience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const auto fnWait = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return std::chrono::steady_clock::now() < oPatience;
    };
    if (nRC == 0) {
        while (oGateway.GetConnectState() == 3 && fnWait()) {
        }
        while ((nRC = oGateway.Connect(argv[1], 0, 1, true)) != 0 && fnWait()) {
        }
    }
    if (nRC == 0)
        nRC = ShowInfo(oGateway, oInfo);
    if (nRC != 0)
        std::printf("0x%08X %s\n", static_cast<unsigned int>(nRC), CQuorvelClient::GetErrorMsg(nRC).c_str());
    return nRC == 0 ? 0 : 1;
}
