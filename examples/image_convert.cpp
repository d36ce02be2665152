// Converts a memory image file: Intel HEX, S-records or binary in, any of them out.
//
// usage: image_convert INPUT intel|motorola|binary OUTPUT

#include "QuorvelHexfile.h"

#include <cstdio>
#include <iostream>
#include <map>

int main(int argc, char** argv)
{
    const std::map<std::string, CQuorvelHexfile::EType> aeTypes{{"intel", CQuorvelHexfile::eTypeIntel},
                                                                {"motorola", CQuorvelHexfile::eTypeMotorola},
                                                                {"binary", CQuorvelHexfile::eTypeBinary}};
    const auto itType = argc == 4 ? aeTypes.find(argv[2]) : aeTypes.end();
    if (itType == aeTypes.end()) {
        std::cerr << "usage: image_convert INPUT intel|motorola|binary OUTPUT\n";
        return 2;
    }

    CQuorvelHexfile oImage;
    if (oImage.LoadFile(argv[1], CQuorvelHexfile::eTypeAuto) != CQuorvelHexfile::eResultOk) {
        // The lines without a fault are loaded; whoever writes them to a device had better not.
        std::cerr << oImage.GetErrorMessage() << '\n';
        return 1;
    }
    oImage.RecalcMinMax(); // Intel HEX does not leave the lowest address behind

    for (const CQuorvelHexfile::SMemoryBlock* const pBlock : oImage.GetMemoryBlocks())
        std::printf("%08X: %s\n", pBlock->nAddress,
                    CQuorvelHexfile::GetSizeString(static_cast<int>(pBlock->nLength)).c_str());
    const unsigned int nFirst = oImage.GetMinAddress();
    std::string strDump(CQuorvelHexfile::GetNumberOfBytesNeedForLine(16) + 1, '\0');
    oImage.GetPrintDump(strDump.data(), 16, nFirst, nFirst + 15 > nFirst ? nFirst + 15 : nFirst);
    std::printf("first bytes:%s", strDump.c_str());

    if (oImage.SaveFile(argv[3], itType->second) != CQuorvelHexfile::eResultOk) {
        std::cerr << oImage.GetErrorMessage();
        return 1;
    }
    return 0;
}
