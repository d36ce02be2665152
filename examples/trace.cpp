// Prints what goes over the wire while some commands run.
//
//     trace HOST
//
// Returns 0 when the commands succeeded and something was traced.

#include "QuorvelClientSPI.h"
#include "support/TraceServer.h"

#include <atomic>
#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    // The sink gets every message of the levels it asks for: 4 and 8 are the requests, 16 is every telegram,
    // 1 and 2 are failures. It is called on the thread that traces (sending is traced on yours, receiving on
    // the connection's), but never twice at once.
    static std::atomic<int> s_nMessages{0};
    CTraceServer::SetSink(
        [](const STraceMessage& oMessage) {
            ++s_nMessages;
            std::printf("[%2u] %s:%u\n%s\n", oMessage.nLevel, oMessage.pFile, oMessage.nLine, oMessage.pText);
        },
        1 | 2 | 4 | 8 | 16);

    CQuorvelClientSPI oGateway(2000);
    int nRC = oGateway.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oGateway.Open();

    SQuorvelDeviceInfo oInfo;
    if (nRC == 0)
        nRC = oGateway.Info(&oInfo);
    if (nRC == 0)
        nRC = oGateway.WriteDigital(0x0F);

    // The identification of the flash on the bus: one byte out, three more in.
    char acID[4];
    if (nRC == 0)
        nRC = oGateway.DataReq("\x9F", 1, acID, sizeof acID);

    // Without a sink no trace text is ever built.
    CTraceServer::SetSink({});
    std::printf("%d messages, result 0x%08X\n", s_nMessages.load(), static_cast<unsigned int>(nRC));
    return nRC == 0 && s_nMessages > 0 ? 0 : 1;
}
