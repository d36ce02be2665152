#include "File.h"

#include "Paths.h"
#include "Text.h"

#include <algorithm>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t START = 4;     // bytes that tell the format
constexpr std::size_t PIECE = 65536; // bytes read at a time

struct SDescriptor {
    int nNumber;

    ~SDescriptor()
    {
        if (nNumber > STDIN_FILENO)
            ::close(nNumber);
    }
};

} // namespace

int ReadFile(const CTool& oTool, const std::string& strPath, const TFindLimit& fnFindLimit,
             std::string& strContent)
{
    const CInterrupt::CScope oScope(oTool.GetInterrupt(), CInterrupt::eAtOnce);
    struct stat oStatus {
    };
    const bool bInput = strPath == "-";
    const std::string strName = bInput ? "standard input" : strPath;
    const auto fnFail = [&] { return oTool.Fail(eStatusFile, strName + ": " + GetSystemError()); };
    if (!bInput && ::stat(strPath.c_str(), &oStatus) != 0)
        return fnFail();
    // Opening a device may do something, and some never end.
    if (S_ISCHR(oStatus.st_mode) || S_ISBLK(oStatus.st_mode))
        return oTool.Fail(eStatusFile, strName + ": neither a file nor a pipe");
    const SDescriptor oFile{bInput ? STDIN_FILENO : ::open(strPath.c_str(), O_RDONLY | O_CLOEXEC)};
    if (oFile.nNumber < 0 || ::fstat(oFile.nNumber, &oStatus) != 0)
        return fnFail();
    std::uint64_t nKnown = 0; // bytes that there are
    if (const off_t nPosition = ::lseek(oFile.nNumber, 0, SEEK_CUR);
        S_ISREG(oStatus.st_mode) && nPosition >= 0 && nPosition < oStatus.st_size)
        nKnown = static_cast<std::uint64_t>(oStatus.st_size - nPosition);
    std::optional<SFileLimit> oLimit;
    std::size_t nLength = 0;
    for (bool bMore = true; bMore;) {
        strContent.resize(nLength + PIECE);
        const ssize_t nRead = ::read(oFile.nNumber, strContent.data() + nLength, PIECE);
        if (nRead < 0)
            return fnFail();
        bMore = nRead > 0;
        nLength += static_cast<std::size_t>(nRead);
        if (!oLimit && (nLength >= START || !bMore))
            oLimit = fnFindLimit(std::string_view(strContent).substr(0, nLength));
        if (oLimit && std::max<std::uint64_t>(nKnown, nLength) > oLimit->nBytes)
            return oTool.Fail(eStatusFile, fmt::format("{}: longer than {} bytes{}", strName, oLimit->nBytes,
                                                       oLimit->pReason));
    }
    strContent.resize(nLength);
    return eStatusDone;
}

int ReadFile(const CTool& oTool, const std::string& strPath, const SFileLimit& oLimit,
             std::string& strContent)
{
    return ReadFile(
        oTool, strPath, [&](std::string_view) { return oLimit; }, strContent);
}

COutputFile::~COutputFile()
{
    if (m_pFile != nullptr && m_pFile != stdout)
        static_cast<void>(std::fclose(m_pFile));
    if (!m_strTemporary.empty()) {
        ::unlink(m_strTemporary.c_str());
        m_oTool.GetInterrupt().RemovePartialFile(m_strTemporary);
    }
}

int COutputFile::Fail()
{
    return m_oTool.FailOutput(m_strPath);
}

int COutputFile::Open(const std::string& strPath)
{
    m_strPath = strPath == "-" ? "standard output" : strPath;
    if (strPath == "-") {
        m_pFile = stdout;
        return eStatusDone;
    }
    struct stat oStatus {
    };
    const bool bThere = ::stat(strPath.c_str(), &oStatus) == 0;
    if (!bThere && errno != ENOENT)
        return Fail();
    if (bThere && !S_ISREG(oStatus.st_mode)) {
        m_pFile = std::fopen(strPath.c_str(), "we");
        return m_pFile != nullptr ? eStatusDone : Fail();
    }
    if (bThere && ::access(strPath.c_str(), W_OK) != 0)
        return Fail(); // renaming over it would get around its protection
    // A link stays a link: what it points to is replaced.
    m_strPath = FollowLinks(strPath);
    std::string strTemporary = m_strPath + ".XXXXXX";
    const int nFile = ::mkostemp(strTemporary.data(), O_CLOEXEC);
    if (nFile < 0)
        return Fail();
    m_strTemporary = strTemporary;
    m_oTool.GetInterrupt().AddPartialFile(m_strTemporary);
    const mode_t nMask = ::umask(0);
    ::umask(nMask);
    static_cast<void>(::fchmod(nFile, bThere ? oStatus.st_mode & 07777U : 0666U & ~nMask));
    m_pFile = ::fdopen(nFile, "w");
    if (m_pFile != nullptr)
        return eStatusDone;
    ::close(nFile);
    return Fail();
}

void COutputFile::Write(std::string_view strBytes)
{
    static_cast<void>(std::fwrite(strBytes.data(), 1, strBytes.size(), m_pFile));
}

int COutputFile::Commit(const std::function<int(const std::string&)>& fnCheck)
{
    std::FILE* const pFile = std::exchange(m_pFile, nullptr);
    const bool bWritten = std::fflush(pFile) == 0 && std::ferror(pFile) == 0;
    const bool bClosed = pFile == stdout || std::fclose(pFile) == 0;
    if (!bWritten || !bClosed)
        return Fail();
    if (m_strTemporary.empty())
        return eStatusDone;
    if (const int nStatus = fnCheck ? fnCheck(m_strTemporary) : 0; nStatus != 0)
        return nStatus;
    if (m_oTool.GetInterrupt().GetSignal() != 0)
        return m_oTool.Fail(eStatusFile, ""); // the signal's status
    if (::rename(m_strTemporary.c_str(), m_strPath.c_str()) != 0)
        return Fail();
    m_oTool.GetInterrupt().RemovePartialFile(m_strTemporary);
    m_strTemporary.clear();
    return eStatusDone;
}
