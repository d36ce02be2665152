/*
 * Programs a file into the serial flash behind an SPI gateway, reads it back and compares.
 *
 *     spi_flash HOST FILE
 *
 * Plain C with nothing but the library's C interface. The flash is of the common 25 series; what it
 * understands is listed below. Returns 0 when the flash holds the file, 1 otherwise.
 */
#include "QuorvelDLL.h"
#include "QuorvelDllSPI.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* The first byte of a frame, that is of what is clocked while the flash is selected, is the command. */
enum {
    CMD_PROGRAM = 0x02,      /* 3 address bytes, then up to a page of data */
    CMD_READ = 0x03,         /* 3 address bytes, then as many bytes as are clocked */
    CMD_STATUS = 0x05,       /* 1 byte: bit 0 busy, bit 1 writing is enabled */
    CMD_WRITE_ENABLE = 0x06, /* must precede each of the writing commands */
    CMD_ERASE_4K = 0x20,     /* 3 address bytes */
    CMD_IDENTIFY = 0x9F,     /* 3 bytes: manufacturer, type, capacity as a power of two */
    CMD_ERASE_64K = 0xD8     /* 3 address bytes */
};

enum { HEAD = 4, PAGE = 256, SECTOR = 4096, BLOCK = 65536, READ_PIECE = 32768, BUSY_SECONDS = 5 };

/* Tells what failed, with the code and what it means. */
static int Failed(const char* pWhat, int nRC)
{
    char acText[200];
    SPIErrorMessage(nRC, acText, sizeof acText);
    printf("%s: code 0x%08X, %s\n", pWhat, (unsigned int)nRC, acText);
    return nRC;
}

/* Every quarter is worth a line. */
static void Progress(const char* pWhat, size_t nBefore, size_t nDone, size_t nTotal)
{
    if (nBefore * 4 / nTotal != nDone * 4 / nTotal)
        printf("%s %lu of %lu bytes\n", pWhat, (unsigned long)nDone, (unsigned long)nTotal);
}

static void PutHead(char* pFrame, int nCommand, size_t nAddress)
{
    pFrame[0] = (char)nCommand;
    pFrame[1] = (char)(nAddress >> 16); /* most significant byte first */
    pFrame[2] = (char)(nAddress >> 8);
    pFrame[3] = (char)nAddress;
}

/* One writing command: enable, do, and ask for the status until the flash is through. */
static int Write(int nHandle, const char* pFrame, size_t nLen)
{
    const char cEnable = CMD_WRITE_ENABLE;
    const char cStatus = CMD_STATUS;
    const time_t nStart = time(NULL);
    char acAnswer[2];
    int nRC = SPIDataReq(nHandle, &cEnable, 1, NULL, 0);
    if (nRC == 0)
        nRC = SPIDataReq(nHandle, pFrame, (unsigned short)nLen, NULL, 0);
    if (nRC != 0)
        return Failed("writing", nRC);
    do {
        /* One byte out, two bytes in: the library clocks a zero for the second, the status comes with it. */
        nRC = SPIDataReq(nHandle, &cStatus, 1, acAnswer, sizeof acAnswer);
        if (nRC != 0)
            return Failed("reading the status", nRC);
        if (difftime(time(NULL), nStart) > BUSY_SECONDS) {
            printf("the flash does not get ready\n");
            return -1;
        }
    } while ((acAnswer[1] & 1) != 0);
    return 0;
}

/* Flash bits can only be cleared one by one; setting them again takes a whole sector or block. */
static int Erase(int nHandle, size_t nTotal)
{
    char acFrame[HEAD];
    size_t nAddress = 0;
    int nRC = 0;
    while (nRC == 0 && nAddress < nTotal) {
        const size_t nPart = nTotal - nAddress >= BLOCK ? BLOCK : SECTOR;
        PutHead(acFrame, nPart == BLOCK ? CMD_ERASE_64K : CMD_ERASE_4K, nAddress);
        nRC = Write(nHandle, acFrame, sizeof acFrame);
        nAddress += nPart;
    }
    if (nRC == 0)
        printf("erased     %lu bytes\n", (unsigned long)nAddress);
    return nRC;
}

static int Program(int nHandle, const char* pData, size_t nTotal)
{
    char acFrame[HEAD + PAGE];
    size_t nAddress = 0;
    int nRC = 0;
    while (nRC == 0 && nAddress < nTotal) {
        const size_t nPart = nTotal - nAddress < PAGE ? nTotal - nAddress : PAGE;
        PutHead(acFrame, CMD_PROGRAM, nAddress);
        memcpy(acFrame + HEAD, pData + nAddress, nPart);
        nRC = Write(nHandle, acFrame, HEAD + nPart);
        if (nRC == 0)
            Progress("programmed", nAddress, nAddress + nPart, nTotal);
        nAddress += nPart;
    }
    return nRC;
}

static int ReadBack(int nHandle, char* pData, size_t nTotal)
{
    static char acFrame[HEAD + READ_PIECE];
    char acHead[HEAD];
    size_t nAddress = 0;
    while (nAddress < nTotal) {
        const size_t nPart = nTotal - nAddress < READ_PIECE ? nTotal - nAddress : READ_PIECE;
        int nRC;
        PutHead(acHead, CMD_READ, nAddress);
        nRC = SPIDataReq(nHandle, acHead, HEAD, acFrame, (unsigned short)(HEAD + nPart));
        if (nRC != 0)
            return Failed("reading", nRC);
        /* What came in while the command went out means nothing. */
        memcpy(pData + nAddress, acFrame + HEAD, nPart);
        Progress("read back ", nAddress, nAddress + nPart, nTotal);
        nAddress += nPart;
    }
    return 0;
}

/* CRC-32, as in zip files. */
static unsigned long Checksum(const char* pData, size_t nLen)
{
    unsigned long nCRC = 0xFFFFFFFFUL;
    size_t i;
    int nBit;
    for (i = 0; i < nLen; ++i) {
        nCRC ^= (unsigned char)pData[i];
        for (nBit = 0; nBit < 8; ++nBit)
            nCRC = (nCRC >> 1) ^ ((nCRC & 1) != 0 ? 0xEDB88320UL : 0);
    }
    return nCRC ^ 0xFFFFFFFFUL;
}

/* The whole file in memory that the caller frees; null when it cannot be read or is empty. */
static char* LoadFile(const char* pName, size_t* pnLen)
{
    char* pData = NULL;
    long nLen = -1;
    FILE* const pFile = fopen(pName, "rb");
    if (pFile == NULL)
        return NULL;
    if (fseek(pFile, 0, SEEK_END) == 0)
        nLen = ftell(pFile);
    /* No flash of this kind holds more than three address bytes can reach; a directory tells nonsense. */
    if (nLen > 0 && nLen <= 1L << 24 && fseek(pFile, 0, SEEK_SET) == 0)
        pData = malloc((size_t)nLen);
    if (pData != NULL && fread(pData, 1, (size_t)nLen, pFile) != (size_t)nLen) {
        free(pData);
        pData = NULL;
    }
    fclose(pFile);
    *pnLen = (size_t)nLen;
    return pData;
}

/* What the gateway says about itself, and the settings of its bus. */
static int ShowGateway(int nHandle)
{
    SQuorvelDeviceInfo oInfo;
    char acStatus[300 + 1]; /* one byte more than DeviceStatus is told, as it asks for */
    unsigned int nBaudrate = 0;
    unsigned char nSigLevel = 0;
    unsigned char nAuxVoltage = 0;
    unsigned char nClockMode = 0;
    int nRC = DeviceInfo(nHandle, &oInfo);
    if (nRC != 0)
        return Failed("device information", nRC);
    printf("device:    \"%.18s\", kind %u\n", (const char*)oInfo.aucFirmware, oInfo.nDeviceType);
    DeviceStatus(nHandle, acStatus, 300);
    printf("status:    %s\n", acStatus);

    /* 10 MHz, 3.3 V signals, 3.3 V supply for the flash, clock mode 0. */
    nRC = SPISetGlobals(nHandle, 10000000, 2, 1, 0);
    if (nRC != 0)
        return Failed("setting the bus", nRC);
    nRC = SPIGetGlobals(nHandle, &nBaudrate, &nSigLevel, &nAuxVoltage, &nClockMode);
    if (nRC != 0)
        return Failed("reading the bus settings", nRC);
    printf("bus:       %u Hz, signal level %u, auxiliary voltage %u, clock mode %u\n", nBaudrate, nSigLevel,
           nAuxVoltage, nClockMode);
    return 0;
}

static int WorkOnFlash(int nHandle, const char* pFile, size_t nLen)
{
    const char cIdentify = (char)CMD_IDENTIFY;
    char acID[4];
    char* pRead;
    unsigned int nPower;
    int nRC = SPIDataReq(nHandle, &cIdentify, 1, acID, sizeof acID);
    if (nRC != 0)
        return Failed("identifying the flash", nRC);
    nPower = (unsigned char)acID[3];
    printf("flash:     %02X %02X %02X\n", (unsigned char)acID[1], (unsigned char)acID[2], nPower);
    if (nPower < 12 || nPower > 24 || nLen > (size_t)1 << nPower) {
        printf("there is no flash, or it is too small for %lu bytes\n", (unsigned long)nLen);
        return -1;
    }

    pRead = malloc(nLen);
    if (pRead == NULL)
        return -1;
    nRC = Erase(nHandle, nLen);
    if (nRC == 0)
        nRC = Program(nHandle, pFile, nLen);
    if (nRC == 0)
        nRC = ReadBack(nHandle, pRead, nLen);
    if (nRC == 0 && memcmp(pFile, pRead, nLen) == 0) {
        printf("equal:     %lu bytes, CRC-32 %08lX in the file and in the flash\n", (unsigned long)nLen,
               Checksum(pRead, nLen));
    } else if (nRC == 0) {
        printf("DIFFERENT: CRC-32 %08lX in the file, %08lX in the flash\n", Checksum(pFile, nLen),
               Checksum(pRead, nLen));
        nRC = -1;
    }
    free(pRead);
    return nRC;
}

/* Nothing bad happens on a wrong call: each function says what is wrong. True when they do. */
static int ShowMistakes(void)
{
    int nHandle = 0;
    const int nUnknown = Failed("a handle that nobody opened", SPIWriteDigital(12345, 0));
    const int nRefused =
        Failed("an address where no gateway is", SPIOpenDevice(&nHandle, "127.255.255.254", 1000));
    return nUnknown != 0 && nRefused != 0 && nHandle == -1;
}

int main(int argc, char** argv)
{
    char acVersion[100];
    size_t nLen = 0;
    char* pFile;
    int nHandle = 0;
    int nRC;

    if (argc != 3) {
        printf("usage: %s HOST FILE\n", argv[0]);
        return 1;
    }
    pFile = LoadFile(argv[2], &nLen);
    if (pFile == NULL) {
        printf("%s cannot be read, is empty or too long\n", argv[2]);
        return 1;
    }
    DLLInfo(acVersion, sizeof acVersion);
    printf("library:   %s\n", acVersion);

    nRC = SPIOpenDevice(&nHandle, argv[1], 2000); /* milliseconds, for each request too */
    if (nRC != 0) {
        Failed("opening the gateway", nRC);
    } else {
        nRC = ShowGateway(nHandle);
        if (nRC == 0)
            nRC = WorkOnFlash(nHandle, pFile, nLen);
        if (!ShowMistakes())
            nRC = -1;
        if (SPICloseDevice(nHandle) == 0)
            printf("closed\n");
        else
            nRC = -1;
    }
    free(pFile);
    return nRC == 0 ? 0 : 1;
}
