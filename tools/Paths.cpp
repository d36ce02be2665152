#include "Paths.h"

#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

std::string FollowLinks(const std::string& strPath)
{
    constexpr int MAX_LINKS = 40; // as many as Linux follows
    fs::path oPath = strPath;
    std::error_code oError;
    for (int i = 0; i < MAX_LINKS && fs::is_symlink(fs::symlink_status(oPath, oError)); ++i)
        oPath = oPath.parent_path() / fs::read_symlink(oPath, oError);
    return oPath.string();
}

bool IsSameFile(const std::string& strLeft, const std::string& strRight)
{
    struct stat oLeft {
    };
    struct stat oRight {
    };
    const bool bThere = ::stat(strLeft.c_str(), &oLeft) == 0;
    if (bThere != (::stat(strRight.c_str(), &oRight) == 0))
        return false;
    if (bThere)
        return oLeft.st_dev == oRight.st_dev && oLeft.st_ino == oRight.st_ino &&
               (S_ISREG(oLeft.st_mode) || S_ISBLK(oLeft.st_mode));
    std::error_code oError;
    const auto fnResolve = [&](const std::string& strPath) {
        return fs::weakly_canonical(fs::absolute(FollowLinks(strPath), oError), oError);
    };
    return fnResolve(strLeft) == fnResolve(strRight) && !oError;
}
