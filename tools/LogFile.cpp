#include "LogFile.h"

#include "Paths.h"
#include "Text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Opens the file. @return the descriptor, or -1
int Open(std::string& strPath, ELog eLog)
{
    struct stat oStatus {
    };
    if (::stat(strPath.c_str(), &oStatus) == 0 && !S_ISREG(oStatus.st_mode))
        return ::open(strPath.c_str(), O_WRONLY | O_CLOEXEC);
    const bool bNew = eLog == ELog::eNew || eLog == ELog::eNumbered;
    const int nFlags = (eLog == ELog::eAppend ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND | O_CLOEXEC;
    // A link whose file is missing leads to the new file; only a plain name can be claimed.
    const std::string strTarget = FollowLinks(strPath);
    int nFile = ::open(strTarget.c_str(), nFlags | (bNew ? O_EXCL : 0), 0666);
    for (int i = 2; nFile < 0 && errno == EEXIST && eLog == ELog::eNumbered; ++i) {
        const std::size_t nEnding = strTarget.rfind('.');
        strPath = fmt::format("{}-{}{}", strTarget.substr(0, nEnding), i, strTarget.substr(nEnding));
        nFile = ::open(strPath.c_str(), nFlags | O_EXCL, 0666);
    }
    return nFile;
}

// Locks the file and makes it ready to be written at its end.
bool Begin(int nFile, ELog eLog)
{
    struct stat oStatus {
    };
    if (::fstat(nFile, &oStatus) != 0 || !S_ISREG(oStatus.st_mode))
        return true;
    // File systems without locks are written without.
    if (::flock(nFile, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return false;
    if (eLog == ELog::eAnew)
        return ::ftruncate(nFile, 0) == 0;
    char cLast = '\n';
    return eLog != ELog::eAppend || ::pread(nFile, &cLast, 1, oStatus.st_size - 1) != 1 || cLast == '\n' ||
           ::write(nFile, "\n", 1) == 1;
}

} // namespace

std::FILE* OpenLog(const CTool& oTool, std::string& strPath, ELog eLog)
{
    if (strPath == "-")
        return stdout;
    const int nFile = Open(strPath, eLog);
    if (nFile >= 0 && Begin(nFile, eLog)) {
        if (std::FILE* const pFile = ::fdopen(nFile, "a"); pFile != nullptr)
            return pFile;
    }
    const std::string strError = errno == EEXIST ? "is there already; --append goes on with it, --force "
                                                   "writes it anew"
                                 : errno == EWOULDBLOCK ? "another log is being written to it"
                                                        : GetSystemError();
    if (nFile >= 0)
        ::close(nFile);
    static_cast<void>(oTool.Fail(eStatusFile, strPath + ": " + strError));
    return nullptr;
}
