/**
 * @file ZelFile.h
 * @brief What the library asks of a file.
 */
#ifndef QUORVEL_ZEL_FILE_H
#define QUORVEL_ZEL_FILE_H

#include "../QuorvelExport.h"

#include <cstddef>

/** Facts about a file. */
struct CZelFileStatus {
    unsigned long long m_nSize = 0; ///< size in bytes
};

/** A regular file, opened for reading. */
class QUORVEL_API CZelFile
{
  public:
    /** No file yet. */
    CZelFile() = default;

    /** Closes the file. */
    ~CZelFile();
    CZelFile(const CZelFile&) = delete;
    CZelFile& operator=(const CZelFile&) = delete;

    /**
     * Reads the facts about a regular file.
     * @param pFilename name of the file; null is no file
     * @param oStatus   receives them; untouched on failure
     * @return false when there is no such file, it is no regular file, or its status cannot be read
     */
    static bool GetStatus(const char* pFilename, CZelFileStatus& oStatus);

    /**
     * Opens a regular file, in place of one that was opened before. Never waits: a pipe or a device is refused.
     * @param pFilename name of the file; null is no file
     * @param oStatus   receives the facts about it
     * @return false when there is no such file, it is no regular file, or it cannot be read
     */
    bool Open(const char* pFilename, CZelFileStatus& oStatus);

    /**
     * Reads on from where the last call ended.
     * @param pBuffer receives the bytes; must not be null unless nMax is 0
     * @param nMax    how many
     * @return number of bytes; fewer at the end of the file, and before a failure, for which the next call gives -1
     */
    long Read(char* pBuffer, std::size_t nMax);

    /** Has the next Read begin at the start of the file. */
    void Rewind() { m_nPosition = 0; }

  private:
    void Close();

    int m_nDescriptor = -1;
    unsigned long long m_nPosition = 0;
};

#endif
