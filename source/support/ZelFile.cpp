#include "support/ZelFile.h"

#include <sys/stat.h>

bool CZelFile::GetStatus(const char* pFilename, CZelFileStatus& oStatus)
{
    struct stat oStat {
    };
    if (pFilename == nullptr || stat(pFilename, &oStat) != 0 || !S_ISREG(oStat.st_mode))
        return false;
    oStatus.m_nSize = static_cast<unsigned long long>(oStat.st_size);
    return true;
}
