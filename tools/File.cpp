#include "File.h"

#include "Paths.h"
#include "Text.h"

#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

int ReadFile(const CTool& oTool, const std::string& strPath, std::string& strContent)
{
    struct SClose {
        void operator()(std::FILE* pFile) const
        {
            if (pFile != stdin)
                static_cast<void>(std::fclose(pFile));
        }
    };
    const CInterrupt::CScope oScope(oTool.GetInterrupt(), CInterrupt::eAtOnce);
    const std::unique_ptr<std::FILE, SClose> pFile(strPath == "-" ? stdin
                                                                  : std::fopen(strPath.c_str(), "re"));
    if (!pFile)
        return oTool.Fail(eStatusFile, strPath + ": " + GetSystemError());
    struct stat oStatus {
    };
    const bool bSized = ::fstat(::fileno(pFile.get()), &oStatus) == 0 && S_ISREG(oStatus.st_mode);
    strContent.resize(bSized ? static_cast<std::size_t>(oStatus.st_size) + 1 : 65536);
    std::size_t nLength = 0;
    while (const std::size_t nRead =
               std::fread(strContent.data() + nLength, 1, strContent.size() - nLength, pFile.get())) {
        nLength += nRead;
        if (nLength == strContent.size())
            strContent.resize(2 * nLength);
    }
    strContent.resize(nLength);
    if (std::ferror(pFile.get()) != 0)
        return oTool.Fail(eStatusFile, strPath + ": " + GetSystemError());
    return eStatusDone;
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
