/* Uses the C interface where no gateway listens. */
#include "QuorvelDLL.h"
#include "QuorvelDllSPI.h"

#include <stdio.h>

int main(void)
{
    char acText[64];
    char acRead[4];
    SQuorvelDeviceInfo oInfo;
    int nHandle = 0;
    int nWritten = DLLInfo(acText, (int)sizeof acText);
    int nRC;

    printf("%d %s\n", nWritten, acText);
    printf("%s\n", gsDLLVersionString);
    nRC = SPIOpenDevice(&nHandle, "127.88.0.1", 1000);
    printf("open 0x%08x handle %d\n", (unsigned int)nRC, nHandle);
    nWritten = SPIErrorMessage(nRC, acText, (int)sizeof acText);
    printf("%d %s\n", nWritten, acText);
    printf("transfer 0x%08x\n", (unsigned int)SPIDataReq(12345, "\x9f", 1, acRead, sizeof acRead));
    printf("info 0x%08x size %u\n", (unsigned int)DeviceInfo(12345, &oInfo), (unsigned int)sizeof oInfo);
    printf("close 0x%08x\n", (unsigned int)SPICloseDevice(nHandle));
    return 0;
}
