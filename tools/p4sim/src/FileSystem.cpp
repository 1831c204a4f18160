#include "FileSystem.h"

#include "Text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace ORVANE {
namespace P4SIM {

std::string ReadWholeFile(const std::string& strPath)
{
    std::ifstream cIn(strPath, std::ios::binary);
    if (!cIn)
        throw std::runtime_error("cannot open " + strPath);
    std::ostringstream cText;
    cText << cIn.rdbuf();
    return cText.str();
}

bool FileExists(const std::string& strPath)
{
    struct stat tStat;
    return lstat(strPath.c_str(), &tStat) == 0;
}

long long FileSize(const std::string& strPath)
{
    struct stat tStat;
    if (lstat(strPath.c_str(), &tStat) != 0)
        return -1;
    return static_cast<long long>(tStat.st_size);
}

void MakeDirs(const std::string& strDir)
{
    if (strDir.empty())
        return;
    struct stat tStat;
    if (stat(strDir.c_str(), &tStat) == 0)
    {
        if (S_ISDIR(tStat.st_mode))
            return;
        throw std::runtime_error(strDir + ": not a directory");
    }
    std::string strParent = DirName(strDir);
    if (strParent != strDir && !strParent.empty())
        MakeDirs(strParent);
    if (mkdir(strDir.c_str(), 0777) != 0 && errno != EEXIST)
        throw std::runtime_error("mkdir: " + strDir + ": " + std::strerror(errno));
}

std::string DirName(const std::string& strPath)
{
    size_t nSlash = strPath.find_last_of('/');
    if (nSlash == std::string::npos)
        return ".";
    if (nSlash == 0)
        return "/";
    return strPath.substr(0, nSlash);
}

std::string JoinPath(const std::string& strDir, const std::string& strRelative)
{
    if (strDir.empty())
        return strRelative;
    if (EndsWith(strDir, "/"))
        return strDir + strRelative;
    return strDir + "/" + strRelative;
}

std::string NormalizePath(const std::string& strPath)
{
    bool bAbsolute = StartsWith(strPath, "/");
    std::vector<std::string> astrParts;
    std::string strItem;
    auto fnFlush = [&]() {
        if (strItem == "..")
        {
            if (!astrParts.empty())
                astrParts.pop_back();
        }
        else if (!strItem.empty() && strItem != ".")
        {
            astrParts.push_back(strItem);
        }
        strItem.clear();
    };
    for (char c : strPath)
    {
        if (c == '/')
            fnFlush();
        else
            strItem += c;
    }
    fnFlush();
    std::string strOut = bAbsolute ? "/" : "";
    for (size_t i = 0; i < astrParts.size(); ++i)
    {
        if (i)
            strOut += '/';
        strOut += astrParts[i];
    }
    if (strOut.empty())
        strOut = bAbsolute ? "/" : ".";
    return strOut;
}

std::string CurrentDir()
{
    const char* pszPwd = getenv("PWD");
    char szBuffer[4096];
    if (getcwd(szBuffer, sizeof szBuffer) == nullptr)
        return pszPwd ? pszPwd : "/";
    return szBuffer;
}

} // namespace P4SIM
} // namespace ORVANE
