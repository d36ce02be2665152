// Reads the flash of the target behind an aWire programmer and compares it with an image file.
//
//     awire_compare HOST IMAGE
//
// Returns 0 when the target holds the image.

#include "QuorvelClientAWire.h"

#include <algorithm>
#include <cstdio>
#include <vector>

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

    constexpr unsigned int PIECE = 32768;
    std::vector<char> acRead(PIECE);
    unsigned int nDifferent = 0;
    for (const CQuorvelHexfile::SMemoryBlock* pBlock : oImage.GetMemoryBlocks()) {
        for (unsigned int n = 0; n < pBlock->nLength && nRC == 0; n += PIECE) {
            const auto nLength = static_cast<unsigned short>(std::min(PIECE, pBlock->nLength - n));
            unsigned short nRead = 0;
            nRC = oGateway.Read(pBlock->nAddress + n, nLength, acRead.data(), nRead);
            for (unsigned int i = 0; i < nLength; ++i) {
                if (i < nRead && acRead[i] == pBlock->pData[n + i])
                    continue;
                if (nDifferent == 0)
                    std::printf("first difference at 0x%08X\n", pBlock->nAddress + n + i);
                ++nDifferent;
            }
        }
    }
    if (nRC != 0) {
        std::printf("0x%08X %s\n", static_cast<unsigned int>(nRC), CQuorvelClient::GetErrorMsg(nRC).c_str());
        return 1;
    }
    std::printf("%u of %u bytes differ\n", nDifferent, oImage.GetTotalBytes());
    return nDifferent == 0 ? 0 : 1;
}
