// A file in memory that has a name, for code that takes file names.
#ifndef QUORVEL_FUZZ_FILE_H
#define QUORVEL_FUZZ_FILE_H

#include <cstddef>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

class CFuzzFile
{
  public:
    CFuzzFile() : m_nFile(memfd_create("fuzz", MFD_CLOEXEC)) {}
    CFuzzFile(const void* pBytes, std::size_t nCount) : CFuzzFile()
    {
        if (write(m_nFile, pBytes, nCount) != static_cast<ssize_t>(nCount))
            std::abort();
    }
    ~CFuzzFile() { close(m_nFile); }
    CFuzzFile(const CFuzzFile&) = delete;
    CFuzzFile& operator=(const CFuzzFile&) = delete;

    std::string GetName() const { return "/proc/self/fd/" + std::to_string(m_nFile); }

  private:
    int m_nFile;
};

// Stops the fuzzer when the code under test breaks a promise.
inline void Require(bool bTrue)
{
    if (!bTrue)
        std::abort();
}

#endif
