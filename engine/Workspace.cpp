#include "Workspace.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "Leftovers.h"
#include "Stop.h"
#include "host/ChildProcess.h"

namespace fs = std::filesystem;

namespace ORVANE {
namespace IMP {

namespace {

std::string ErrorText(int nError)
{
    return std::strerror(nError);
}

const char s_szWorkspacePrefix[] = "orvane-import-";

// The process id in a temporary workspace's name, or 0 when the name is not
// one of them.
pid_t WorkspaceOwner(const std::string& strName)
{
    const size_t nPrefix = sizeof(s_szWorkspacePrefix) - 1;
    if (strName.compare(0, nPrefix, s_szWorkspacePrefix) != 0)
        return 0;
    const size_t nDash = strName.find('-', nPrefix);
    // mkdtemp's six characters follow the dash.
    if (nDash == std::string::npos || nDash == nPrefix || nDash - nPrefix > 9 || strName.size() != nDash + 7)
        return 0;
    const std::string strPid = strName.substr(nPrefix, nDash - nPrefix);
    if (strPid.find_first_not_of("0123456789") != std::string::npos)
        return 0;
    return static_cast<pid_t>(std::stol(strPid));
}

} // namespace

std::string TemporaryFolder()
{
    const char* pszTemp = std::getenv("TMPDIR");
    return pszTemp && *pszTemp ? pszTemp : "/tmp";
}

std::vector<std::string> RemoveStaleWorkspaces(const std::string& strFolder)
{
    return RemoveLeftovers(strFolder, WorkspaceOwner, true);
}

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
        std::string strTemplate =
            TemporaryFolder() + "/" + s_szWorkspacePrefix + std::to_string(::getpid()) + "-XXXXXX";
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

namespace {

void RemoveFolders(const std::vector<std::string>& astrFolders)
{
    std::error_code ec;
    for (const std::string& s : astrFolders)
        fs::remove_all(s, ec);
}

} // namespace

CWorkspace::~CWorkspace()
{
    WaitForRemoval();
}

std::vector<std::string> CWorkspace::MadeByThisRun() const
{
    return m_bMade ? std::vector<std::string>{m_strPath} : m_astrMadeFolders;
}

void CWorkspace::WaitForRemoval()
{
    if (m_cRemoval.joinable())
        m_cRemoval.join();
}

void CWorkspace::Remove()
{
    WaitForRemoval();
    // Whatever is there still (nothing, after a removal that was started).
    RemoveFolders(MadeByThisRun());
}

void CWorkspace::StartRemoval()
{
    if (m_cRemoval.joinable())
        return;
    // The signals that stop a run stay with the threads that handle them:
    // the new thread starts with every signal blocked.
    sigset_t cAll, cBefore;
    sigfillset(&cAll);
    pthread_sigmask(SIG_SETMASK, &cAll, &cBefore);
    try
    {
        m_cRemoval = std::thread(RemoveFolders, MadeByThisRun());
    }
    catch (const std::system_error&)
    {
        // No thread to be had: Remove does it all.
    }
    pthread_sigmask(SIG_SETMASK, &cBefore, nullptr);
}

} // namespace IMP
} // namespace ORVANE
