#include "Scratch.h"

#include <algorithm>
#include <cstdlib>

#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ORVANE {
namespace TEST {

namespace {

int RemoveEntry(const char* pszPath, const struct stat*, int nFlag, struct FTW*)
{
    if (nFlag == FTW_DP)
        ::rmdir(pszPath);
    else
        ::unlink(pszPath);
    return 0;
}

// Folders that the test made read-only must be writable to be emptied.
int MakeWritable(const char* pszPath, const struct stat* pStat, int nFlag, struct FTW*)
{
    if (nFlag == FTW_D || nFlag == FTW_DNR)
        ::chmod(pszPath, (pStat->st_mode & 07777) | S_IRWXU);
    return 0;
}

} // namespace

std::string TemporaryFolder()
{
    const char* psz = std::getenv("TMPDIR");
    return psz && *psz ? std::string(psz) : std::string("/tmp");
}

void RemoveTree(const std::string& strPath)
{
    struct stat tStat;
    if (::lstat(strPath.c_str(), &tStat) != 0)
        return;
    if (S_ISDIR(tStat.st_mode))
        ::nftw(strPath.c_str(), MakeWritable, 32, FTW_PHYS);
    ::nftw(strPath.c_str(), RemoveEntry, 32, FTW_DEPTH | FTW_PHYS);
}

CScratchFolder::CScratchFolder(const std::string& strPrefix)
{
    std::string strTemplate = TemporaryFolder() + "/" + strPrefix + "-XXXXXX";
    if (::mkdtemp(&strTemplate[0]))
        m_strPath = strTemplate;
}

CScratchFolder::~CScratchFolder()
{
    if (!m_strPath.empty() && !m_bKeep)
        RemoveTree(m_strPath);
}

std::vector<std::string> CScratchFolder::List() const
{
    std::vector<std::string> astr;
    if (DIR* pDir = ::opendir(m_strPath.c_str()))
    {
        while (dirent* pEntry = ::readdir(pDir))
        {
            const std::string strName = pEntry->d_name;
            if (strName != "." && strName != "..")
                astr.push_back(strName);
        }
        ::closedir(pDir);
    }
    std::sort(astr.begin(), astr.end());
    return astr;
}

} // namespace TEST
} // namespace ORVANE
