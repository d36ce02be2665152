// Standard input, output and error that the caller has closed.
#ifndef QUORVEL_STANDARD_DESCRIPTORS_H
#define QUORVEL_STANDARD_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

/**
 * Takes those of the descriptors 0 to 2 that are closed, so that no connection and no file gets them and with them
 * what is meant for standard output or standard error. Using them is an error as before. To be called first in main.
 */
inline void TakeStandardDescriptors()
{
    // open gives the lowest descriptor that is free.
    for (int nDescriptor = STDIN_FILENO; nDescriptor <= STDERR_FILENO; ++nDescriptor) {
        if (::fcntl(nDescriptor, F_GETFD) < 0)
            static_cast<void>(::open("/dev/null", nDescriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
}

#endif
