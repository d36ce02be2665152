// Programs the flash of the target behind an aWire programmer with an image file, and checks it.
//
//     awire_flash HOST IMAGE
//
// Erases the blocks of the flash that the image touches, writes the image in the background while its progress
// is told, and finally compares what the target has. Returns 0 when that is the image. awire_compare does the
// comparison alone.

#include "QuorvelClientAWire.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <set>
#include <thread>

namespace
{

constexpr unsigned int BLOCK_SIZE = 65536; // what this target erases at a time
constexpr unsigned int PIECE = 32768;

int Fail(const char* pWhat, int nRC)
{
    std::printf("%s: 0x%08X %s\n", pWhat, static_cast<unsigned int>(nRC),
                CQuorvelClient::GetErrorMsg(nRC).c_str());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::printf("usage: %s HOST IMAGE\n", argv[0]);
        return 1;
    }
    CQuorvelHexfile oImage;
    if (oImage.LoadFile(argv[2], CQuorvelHexfile::eTypeAuto) != CQuorvelHexfile::eResultOk) {
        std::printf("%s\n", oImage.GetErrorMessage().c_str());
        return 1;
    }

    CQuorvelClientAWire oGateway(2000);
    int nRC = oGateway.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oGateway.Open();
    unsigned int nBaudrate = 0;
    unsigned int nStart = 0;
    unsigned int nSize = 0;
    unsigned int nPageSize = 0;
    std::string strName;
    if (nRC == 0)
        nRC = oGateway.GetConfig(nBaudrate, nStart, nSize, nPageSize, strName);
    if (nRC != 0)
        return Fail("target", nRC);
    std::printf("target: %s, %s of flash at 0x%08X, pages of %u bytes\n", strName.c_str(),
                CQuorvelHexfile::GetSizeString(static_cast<int>(nSize)).c_str(), nStart, nPageSize);

    // Writing does not erase.
    std::set<unsigned int> anBlocks;
    for (const CQuorvelHexfile::SMemoryBlock* pBlock : oImage.GetMemoryBlocks()) {
        if (pBlock->nAddress < nStart || pBlock->nLength > nSize ||
            pBlock->nAddress - nStart > nSize - pBlock->nLength) {
            std::printf("the image does not fit the target\n");
            return 1;
        }
        const unsigned int nLast = pBlock->nAddress - nStart + pBlock->nLength - 1;
        for (unsigned int n = (pBlock->nAddress - nStart) / BLOCK_SIZE; n <= nLast / BLOCK_SIZE; ++n)
            anBlocks.insert(n);
    }
    for (const unsigned int nBlock : anBlocks) {
        nRC = oGateway.Erase(static_cast<unsigned short>(nBlock));
        if (nRC != 0)
            return Fail("erase", nRC);
    }
    std::printf("%u blocks erased\n", static_cast<unsigned int>(anBlocks.size()));

    // The transfer runs on a thread of the client; this one only asks.
    nRC = oGateway.WriteFile(argv[2]);
    if (nRC != 0)
        return Fail("write", nRC);
    auto eStep = CQuorvelClientAWire::FileStep::eNotStarted;
    unsigned char nPercent = 0;
    while (oGateway.GetWriteFileStatus(eStep, nPercent) == 0) { // 255 once the end was told
        if (eStep == CQuorvelClientAWire::FileStep::eWriting)
            std::printf("\rwriting   %3d %%", nPercent);
        else if (eStep == CQuorvelClientAWire::FileStep::eVerifying)
            std::printf("\rverifying %3d %%", nPercent);
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const bool bFinished = eStep == CQuorvelClientAWire::FileStep::eFinished;
    std::printf("\n%u bytes %s\n", oImage.GetTotalBytes(), bFinished ? "written" : "not written");
    if (!bFinished)
        return 1;

    // The transfer has compared already; this is how to do it oneself.
    for (const CQuorvelHexfile::SMemoryBlock* pBlock : oImage.GetMemoryBlocks()) {
        for (unsigned int n = 0; n < pBlock->nLength; n += PIECE) {
            const auto nLength = static_cast<unsigned short>(std::min(PIECE, pBlock->nLength - n));
            nRC = oGateway.Verify(pBlock->nAddress + n, nLength, pBlock->pData + n);
            if (nRC != 0)
                return Fail("compare", nRC);
        }
    }
    std::printf("the target holds the image\n");
    return 0;
}
