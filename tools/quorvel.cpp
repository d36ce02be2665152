// The command `quorvel`: everything the library does, from a shell.

#include "StandardDescriptors.h"
#include "Tool.h"

#include <csignal>
#include <cstdio>
#include <exception>

int main(int argc, char** argv)
{
    TakeStandardDescriptors();
    std::signal(SIGXFSZ, SIG_IGN); // a file at its size limit is reported like a full disk
    std::signal(SIGPIPE, SIG_IGN); // what is being programmed is completed, whoever still listens
    try {
        CTool oTool;
        return oTool.Run(argc, argv);
    } catch (const std::exception& oError) {
        std::fprintf(stderr, "quorvel: %s\n", oError.what());
        return eStatusFile; // out of memory, most likely for a file
    }
}
