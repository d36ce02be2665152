/**
 * @file ZelFile.h
 * @brief What the library asks of a file.
 */
#ifndef QUORVEL_ZEL_FILE_H
#define QUORVEL_ZEL_FILE_H

#include "../QuorvelExport.h"

/** Facts about a file. */
struct CZelFileStatus {
    unsigned long long m_nSize = 0; ///< size in bytes
};

/** File operations. */
class QUORVEL_API CZelFile
{
  public:
    /**
     * Reads the facts about a regular file.
     * @param pFilename name of the file
     * @param oStatus   receives them; untouched on failure
     * @return false when there is no such file, it is no regular file, or its status cannot be read
     */
    static bool GetStatus(const char* pFilename, CZelFileStatus& oStatus);
};

#endif
