// Files of the command line; "-" is standard input or standard output.
#ifndef QUORVEL_TOOL_FILE_H
#define QUORVEL_TOOL_FILE_H

#include "Tool.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

/// How long a file that is read may be.
struct SFileLimit {
    std::uint64_t nBytes;
    const char* pReason = ""; ///< what is told behind the number
};

/// The limit where nothing else gives one: the largest serial flash memories, 256 MiB, as text.
constexpr SFileLimit MAX_FILE{0x40000000};

/// Finds the limit by the first bytes of a file, at least four if it has as many.
using TFindLimit = std::function<SFileLimit(std::string_view strStart)>;

/**
 * Reads a whole file, which is a regular one or a pipe. One that is too long is refused as soon as that shows.
 * @param strPath     its path, or "-": whatever standard input is
 * @param fnFindLimit tells how long it may be
 * @param strContent  receives the bytes
 * @return 0, or the exit status of a failure, which was reported
 */
int ReadFile(const CTool& oTool, const std::string& strPath, const TFindLimit& fnFindLimit,
             std::string& strContent);

/// Reads a file whose limit does not depend on what is in it.
int ReadFile(const CTool& oTool, const std::string& strPath, const SFileLimit& oLimit,
             std::string& strContent);

/**
 * An output file that is there whole or not at all: it is written under another name beside its own, and takes its
 * name in Commit. A symbolic link stays: the file that it points to is written, also when it is not there yet. Device
 * files and pipes are written as they are.
 */
class COutputFile
{
  public:
    explicit COutputFile(CTool& oTool) : m_oTool(oTool) {}

    /// Removes what was not committed.
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    /// Opens the file. @param strPath its path, or "-" @return 0, or the exit status of a failure, which was reported
    int Open(const std::string& strPath);

    /// Appends bytes; a failure shows in Commit.
    void Write(std::string_view strBytes);

    /// @return the stream, for formatted output
    std::FILE* GetStream() { return m_pFile; }

    /**
     * Completes the file.
     * @param fnCheck is called before a file takes its name, not for device files and pipes, with the path it can be
     *                read at; after an exit status other than 0, for a failure that was reported, the file is not kept
     * @return 0, or the exit status of a failure, which was reported
     */
    int Commit(const std::function<int(const std::string&)>& fnCheck = {});

  private:
    int Fail();

    CTool& m_oTool;
    std::string m_strPath;
    std::string m_strTemporary; // empty when written in place
    std::FILE* m_pFile = nullptr;
};

#endif
