#include "support/ZelFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

bool ToStatus(const struct stat& oStat, CZelFileStatus& oStatus)
{
    if (!S_ISREG(oStat.st_mode))
        return false;
    oStatus.m_nSize = static_cast<unsigned long long>(oStat.st_size);
    return true;
}

} // namespace

CZelFile::~CZelFile()
{
    Close();
}

bool CZelFile::GetStatus(const char* pFilename, CZelFileStatus& oStatus)
{
    struct stat oStat {
    };
    return pFilename != nullptr && stat(pFilename, &oStat) == 0 && ToStatus(oStat, oStatus);
}

bool CZelFile::Open(const char* pFilename, CZelFileStatus& oStatus)
{
    Close();
    m_nPosition = 0;
    struct stat oStat {
    };
    // Asked before, because the opening alone makes some devices do something; asked again of what was opened,
    // because the name may lead elsewhere by then: so a pipe must not wait for its other end.
    if (!GetStatus(pFilename, oStatus))
        return false;
    m_nDescriptor = open(pFilename, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    char cFirst = 0; // some files can be opened, but not read
    return m_nDescriptor >= 0 && fstat(m_nDescriptor, &oStat) == 0 && ToStatus(oStat, oStatus) &&
           pread(m_nDescriptor, &cFirst, 1, 0) >= 0;
}

long CZelFile::Read(char* pBuffer, std::size_t nMax)
{
    std::size_t nRead = 0;
    while (nRead < nMax) {
        const ssize_t nNow =
            pread(m_nDescriptor, pBuffer + nRead, nMax - nRead, static_cast<off_t>(m_nPosition));
        if (nNow < 0 && errno == EINTR)
            continue;
        if (nNow < 0 && nRead == 0)
            return -1;
        if (nNow <= 0)
            break;
        nRead += static_cast<std::size_t>(nNow);
        m_nPosition += static_cast<unsigned long long>(nNow);
    }
    return static_cast<long>(nRead);
}

void CZelFile::Close()
{
    if (m_nDescriptor >= 0)
        close(m_nDescriptor);
    m_nDescriptor = -1;
}
