#include "LogFile.h"

#include <cstdlib>

#include <dirent.h>

namespace ORVANE {
namespace IMP {

std::set<std::string> ListImportLogs()
{
    const char* pszTemp = std::getenv("TMPDIR");
    const std::string strFolder = pszTemp && *pszTemp ? pszTemp : "/tmp";
    std::set<std::string> setFiles;
    DIR* pDir = ::opendir(strFolder.c_str());
    if (!pDir)
        return setFiles;
    while (const dirent* pEntry = ::readdir(pDir))
        if (std::string(pEntry->d_name).compare(0, 6, "Orvane") == 0)
            setFiles.insert(strFolder + "/" + pEntry->d_name);
    ::closedir(pDir);
    return setFiles;
}

std::string NewImportLog(const std::set<std::string>& setBefore)
{
    std::string strNew;
    for (const std::string& strFile : ListImportLogs())
    {
        if (setBefore.count(strFile))
            continue;
        if (!strNew.empty())
            return std::string();
        strNew = strFile;
    }
    return strNew;
}

} // namespace IMP
} // namespace ORVANE
