// Prints what comes over a CAN bus, as it comes, through a callback.
//
//     can_monitor HOST
//
// So that there is something to see, a second client of the same gateway sends some frames. Returns 0 when all
// of them were seen.

#include "QuorvelClientCANDll.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace
{

std::atomic<int> nSeen{0};

// Runs on the receive thread; while it does, nothing else is received. The data is gone when it returns.
void OnFrame(unsigned int nIdentifier, const char* pData, int nLen, int nFlags, int nHandle, int nSeconds,
             int nMicroSeconds)
{
    std::printf("%d: %d.%06d  %0*X  %s [%d]", nHandle, nSeconds, nMicroSeconds, (nFlags & 1) != 0 ? 8 : 3,
                nIdentifier, (nFlags & 2) != 0 ? "remote" : "data", nLen);
    for (int i = 0; i < nLen; ++i)
        std::printf(" %02X", static_cast<unsigned char>(pData[i]));
    std::printf("\n");
    ++nSeen;
}

int Failed(const char* pWhat, int nRC)
{
    std::printf("%s: 0x%08X %s\n", pWhat, static_cast<unsigned int>(nRC),
                CQuorvelClient::GetErrorMsg(nRC).c_str());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    // The first argument is passed on to the callback: one function can serve several gateways. Port 0 is the
    // port of the kind; the time-out of two seconds holds for every call.
    CQuorvelClientCANDll oMonitor(1, 2000);
    oMonitor.SetCallbackEx(OnFrame);
    int nRC = oMonitor.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oMonitor.Open(false, false);
    // 500 kbit/s, normal mode, no termination, high speed, time stamps
    if (nRC == 0)
        nRC = oMonitor.SetGlobals(500000, 0, false, true, true);
    if (nRC != 0)
        return Failed("monitor", nRC);

    // The sender has its frames confirmed: Write returns when the frame is on the bus.
    CQuorvelClientCANDll oSender(2, 2000);
    nRC = oSender.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oSender.Open(true, false);
    constexpr int FRAMES = 5;
    for (int i = 0; i < FRAMES - 1 && nRC == 0; ++i)
        nRC =
            oSender.Write(0x120 + i, "\x11\x22\x33\x44", static_cast<unsigned char>(i), 0, nullptr, nullptr);
    if (nRC == 0) // with an identifier of 29 bits
        nRC = oSender.Write(0x1ABCDEF0, "\xFF", 1, 0x01, nullptr, nullptr);
    if (nRC != 0)
        return Failed("sender", nRC);

    for (int i = 0; i < 2000 && nSeen < FRAMES; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::printf("%d frames seen\n", nSeen.load());
    return nSeen == FRAMES ? 0 : 1;
}
