#include "Workspace.h"

#include <errno.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>

#include "Stop.h"

namespace fs = std::filesystem;

namespace ORVANE {
namespace IMP {

namespace {

std::string ErrorText(int nError)
{
    return std::strerror(nError);
}

} // namespace

bool MakeFolders(const std::string& strPath)
{
    for (size_t n = 1; n <= strPath.size(); ++n)
    {
        if (n < strPath.size() && strPath[n] != '/')
            continue;
        std::error_code ec;
        fs::create_directory(strPath.substr(0, n), ec);
        if (ec && ec != std::errc::file_exists)
        {
            errno = ec.value();
            return false;
        }
    }
    return true;
}

void CWorkspace::Make(const std::string& strGiven)
{
    if (strGiven.empty())
    {
        const char* pszTemp = std::getenv("TMPDIR");
        std::string strTemplate = std::string(pszTemp && *pszTemp ? pszTemp : "/tmp") + "/orvane-import-XXXXXX";
        if (!mkdtemp(&strTemplate[0]))
            throw EStop(eExitFailure, "cannot make a temporary workspace: " + ErrorText(errno));
        m_strPath = strTemplate;
        m_bMade = true;
        return;
    }
    m_strPath = strGiven;
    while (m_strPath.size() > 1 && m_strPath.back() == '/')
        m_strPath.pop_back();
    if (m_strPath[0] != '/')
    {
        std::error_code ec;
        const fs::path cCurrent = fs::current_path(ec);
        if (!ec)
            m_strPath = cCurrent.string() + "/" + m_strPath;
    }
    std::error_code ec;
    m_bMade = !fs::exists(m_strPath, ec);
    if (!MakeFolders(m_strPath))
        throw EStop(eExitFailure, "cannot make the workspace " + m_strPath + ": " + ErrorText(errno));
}

void CWorkspace::MakeFolder(const std::string& strFolder)
{
    std::error_code ec;
    if (fs::is_directory(strFolder, ec))
    {
        // What an earlier run left (a kept workspace, or a killed run's):
        // a new client has nothing, and its sync would leave every file that
        // is not at the change where it is.
        std::vector<fs::path> acLeft;
        for (fs::directory_iterator it(strFolder, ec), itEnd; !ec && it != itEnd; it.increment(ec))
            acLeft.push_back(it->path());
        for (const fs::path& cPath : acLeft)
            fs::remove_all(cPath, ec);
        m_astrMadeFolders.push_back(strFolder);
        return;
    }
    if (fs::exists(strFolder, ec))
        return;
    if (!MakeFolders(strFolder))
        throw EStop(eExitFailure, "cannot make the folder " + strFolder + ": " + ErrorText(errno));
    m_astrMadeFolders.push_back(strFolder);
}

void CWorkspace::Remove()
{
    std::error_code ec;
    if (m_bMade)
        fs::remove_all(m_strPath, ec);
    else
        for (const std::string& s : m_astrMadeFolders)
            fs::remove_all(s, ec);
}

} // namespace IMP
} // namespace ORVANE
