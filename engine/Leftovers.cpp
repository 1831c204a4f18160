#include "Leftovers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "host/ChildProcess.h"

namespace fs = std::filesystem;

namespace ORVANE {
namespace IMP {

const char* const g_pszStagingFolder = "/tmp";
const char* const g_apszStagingSuffixes[2] = {".tdf", ".tlf"};

namespace {

const char s_szStagingPrefix[] = "orvane-em-";

} // namespace

std::string StagingPrefix(const std::string& strFolder, long nPid)
{
    return strFolder + "/" + s_szStagingPrefix + std::to_string(nPid);
}

pid_t StagingOwner(const std::string& strName)
{
    const size_t nPrefix = sizeof(s_szStagingPrefix) - 1;
    if (strName.compare(0, nPrefix, s_szStagingPrefix) != 0 || strName.size() < nPrefix + 5)
        return 0;
    const std::string strSuffix = strName.substr(strName.size() - 4);
    const std::string strPid = strName.substr(nPrefix, strName.size() - nPrefix - 4);
    if ((strSuffix != g_apszStagingSuffixes[0] && strSuffix != g_apszStagingSuffixes[1]) || strPid.size() > 9 ||
        strPid.find_first_not_of("0123456789") != std::string::npos)
        return 0;
    return static_cast<pid_t>(std::stol(strPid));
}

std::vector<std::string> RemoveLeftovers(const std::string& strFolder,
                                         const std::function<pid_t(const std::string&)>& fnOwner, bool bFolders)
{
    std::vector<std::string> astrRemoved;
    std::error_code ec;
    for (fs::directory_iterator it(strFolder, ec), itEnd; !ec && it != itEnd; it.increment(ec))
    {
        const pid_t nPid = fnOwner(it->path().filename().string());
        if (nPid <= 0)
            continue;
        const std::string strPath = it->path().string();
        struct stat tStat;
        if (::lstat(strPath.c_str(), &tStat) != 0 || !(bFolders ? S_ISDIR(tStat.st_mode) : S_ISREG(tStat.st_mode)) ||
            tStat.st_uid != ::getuid() || !VCM::IsProcessGone(nPid))
            continue;
        std::error_code ecRemove;
        fs::remove_all(strPath, ecRemove);
        if (!ecRemove)
            astrRemoved.push_back(strPath);
    }
    return astrRemoved;
}

} // namespace IMP
} // namespace ORVANE
