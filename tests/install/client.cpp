// Uses the classes where no gateway listens.
#include "DeviceManager.h"
#include "QuorvelClientSPI.h"
#include "QuorvelMsg.h"

#include <cstdio>

int main()
{
    const CQuorvelMsg oMsg(0x0309, 42, nullptr, 0);
    for (const char cByte : oMsg.GetMessageData())
        std::printf("%02x ", static_cast<unsigned int>(static_cast<unsigned char>(cByte)));
    std::printf("\n");

    CQuorvelClientSPI oClient(1000);
    const int nRC = oClient.Connect("127.88.0.2", 0, 1, true);
    std::printf("connect 0x%08x kind %d state %d\n", static_cast<unsigned int>(nRC),
                static_cast<int>(oClient.GetDeviceType()), oClient.GetConnectState());
    std::printf("%s\n", CQuorvelClient::GetErrorMsg(nRC).c_str());

    int nHandle = 0;
    const int nOpen = CDeviceManager::OpenDevice(&nHandle, "127.88.0.2", 1000, 5, 0, 1, true);
    std::printf("open 0x%08x handle %d\n", static_cast<unsigned int>(nOpen), nHandle);
    std::printf("close 0x%08x\n", static_cast<unsigned int>(CDeviceManager::CloseDevice(nHandle)));
    return 0;
}
