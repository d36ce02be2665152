// The command `quorvel`: everything the library does, from a shell.

#include "Tool.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv)
{
    try {
        CTool oTool;
        return oTool.Run(argc, argv);
    } catch (const std::exception& oError) {
        std::fprintf(stderr, "quorvel: %s\n", oError.what());
        return eStatusFile; // out of memory, most likely for a file
    }
}
