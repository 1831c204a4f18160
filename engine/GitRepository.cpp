#include "GitRepository.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "Text.h"
#include "Trailers.h"

namespace fs = std::filesystem;

namespace ORVANE {
namespace IMP {

namespace {

// The configuration entry that marks a repository as this program's.
const char* const s_pszMarkKey = "orvane.import";
// Present while fast-import runs: found by a later run, it says that this
// one was killed.
const char* const s_pszRunMarker = "orvane-import.running";

} // namespace

void ParseTreeListing(const std::string& strListing, TTree& tTree)
{
    tTree.clear();
    // "<mode> SP <type> SP <name> TAB <path> NUL"
    size_t nPos = 0;
    while (nPos < strListing.size())
    {
        const size_t nEnd = strListing.find('\0', nPos);
        const std::string strLine = strListing.substr(nPos, nEnd - nPos);
        nPos = nEnd == std::string::npos ? strListing.size() : nEnd + 1;
        const size_t nTab = strLine.find('\t');
        if (nTab == std::string::npos || nTab < 48)
            continue;
        TEntry tEntry;
        tEntry.nMode = unsigned(std::strtoul(strLine.c_str(), nullptr, 8));
        tEntry.strBlob = strLine.substr(nTab - 40, 40);
        tTree[strLine.substr(nTab + 1)] = tEntry;
    }
}

const char* HistoryFormat()
{
    // Name, time, change and path, separated by US; each commit ends with RS.
    return "--format=%H%x1f%ct%x1f%(trailers:key=Perforce-Change,valueonly,separator=%x2c)%x1f"
           "%(trailers:key=Perforce-Path,valueonly,separator=%x2c)%x1e";
}

std::vector<TGitCommit> ParseHistory(const std::string& strLog)
{
    std::vector<TGitCommit> atCommits;
    size_t nPos = 0;
    for (size_t nEnd; (nEnd = strLog.find('\x1e', nPos)) != std::string::npos; nPos = nEnd + 1)
    {
        std::string strRecord = strLog.substr(nPos, nEnd - nPos);
        if (!strRecord.empty() && strRecord[0] == '\n')
            strRecord.erase(0, 1);
        std::vector<std::string> astrFields;
        for (size_t nField = 0;;)
        {
            const size_t nSeparator = strRecord.find('\x1f', nField);
            astrFields.push_back(strRecord.substr(nField, nSeparator - nField));
            if (nSeparator == std::string::npos)
                break;
            nField = nSeparator + 1;
        }
        if (astrFields.size() != 4)
            continue;
        TGitCommit tCommit;
        tCommit.strName = astrFields[0];
        tCommit.tTime = std::strtol(astrFields[1].c_str(), nullptr, 10);
        // One number, or none (0) when the trailer is missing or repeated.
        const std::string& strChange = astrFields[2];
        if (!strChange.empty() && strChange.find_first_not_of("0123456789") == std::string::npos &&
            strChange.size() <= 10)
            tCommit.nChange = unsigned(std::strtoul(strChange.c_str(), nullptr, 10));
        tCommit.strPath = astrFields[3];
        atCommits.push_back(tCommit);
    }
    return atCommits;
}

int RunGit(const std::string& strGitDir, const std::vector<std::string>& astrArgs, const std::string& strInput,
           std::string& strOut, std::string& strErr)
{
    std::vector<std::string> astr = {"git", "--git-dir=" + strGitDir};
    astr.insert(astr.end(), astrArgs.begin(), astrArgs.end());
    return RunProcess(astr, strInput, &strOut, &strErr);
}

bool ReadFirstParents(const std::string& strGitDir, const std::string& strRef, std::vector<TGitCommit>& atCommits,
                      std::string& strErr)
{
    std::string strOut;
    if (RunGit(strGitDir, {"log", "--first-parent", HistoryFormat(), strRef, "--"}, std::string(), strOut, strErr) != 0)
        return false;
    atCommits = ParseHistory(strOut);
    return true;
}

CGitRepository::~CGitRepository()
{
    Unlock();
}

bool CGitRepository::IsFree(const std::string& strDirectory)
{
    std::error_code ec;
    fs::directory_iterator it(strDirectory, ec);
    if (ec)
        return ec == std::errc::no_such_file_or_directory;
    return it == fs::directory_iterator();
}

bool CGitRepository::IsUsable(const std::string& strDirectory, std::string& strError)
{
    if (IsFree(strDirectory) || IsOurs(strDirectory))
        return true;
    strError = "the git folder '" + strDirectory + "' exists and is not a git repository made by orvane-import";
    return false;
}

bool CGitRepository::Open(const std::string& strDirectory, std::string& strError)
{
    if (!IsUsable(strDirectory, strError))
        return false;
    m_strDirectory = strDirectory;
    m_bContinued = !IsFree(strDirectory);
    if ((!m_bContinued && !Create(strError)) || !Lock(strError))
    {
        m_strDirectory.clear();
        return false;
    }
    if (fs::exists(RunMarker()))
        Recover();
    m_tLastSave = std::chrono::steady_clock::now();
    return true;
}

bool CGitRepository::Create(std::string& strError)
{
    std::string strOut, strErr;
    if (RunProcess({"git", "init", "--quiet", "--bare", m_strDirectory}, std::string(), &strOut, &strErr) != 0 ||
        RunGit(m_strDirectory, {"config", s_pszMarkKey, "true"}, std::string(), strOut, strErr) != 0)
    {
        strError = TrimmedEnd("git init failed: " + strErr);
        return false;
    }
    for (const auto& kv : m_atNewConfig)
        if (RunGit(m_strDirectory, {"config", kv.first, kv.second}, std::string(), strOut, strErr) != 0)
        {
            strError = TrimmedEnd("git config failed: " + strErr);
            return false;
        }
    return true;
}

std::string CGitRepository::Config(const std::string& strKey) const
{
    std::string strOut, strErr;
    if (RunGit(m_strDirectory, {"config", "--get", strKey}, std::string(), strOut, strErr) != 0)
        return std::string();
    return TrimmedEnd(strOut);
}

bool CGitRepository::IsOurs(const std::string& strDirectory)
{
    std::string strOut, strErr;
    return RunGit(strDirectory, {"config", "--get", s_pszMarkKey}, std::string(), strOut, strErr) == 0 &&
           TrimmedEnd(strOut) == "true";
}

bool CGitRepository::Lock(std::string& strError)
{
    m_nLock = ::open(m_strDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_nLock < 0)
    {
        strError = "cannot open the git folder '" + m_strDirectory + "': " + std::strerror(errno);
        return false;
    }
    // Held until Close, or until the process ends however it ends.
    if (::flock(m_nLock, LOCK_EX | LOCK_NB) != 0)
    {
        strError = "another orvane-import run is writing to the git folder '" + m_strDirectory + "'";
        Unlock();
        return false;
    }
    return true;
}

void CGitRepository::Unlock()
{
    if (m_nLock >= 0)
        ::close(m_nLock);
    m_nLock = -1;
}

std::string CGitRepository::RunMarker() const
{
    return m_strDirectory + "/" + s_pszRunMarker;
}

void CGitRepository::Recover()
{
    // No run of ours holds the repository but this one: any lock file below
    // refs/ is a killed fast-import's, taken while it moved a branch.
    std::error_code ec;
    std::vector<fs::path> acPaths;
    for (fs::recursive_directory_iterator it(m_strDirectory + "/refs", ec), itEnd; !ec && it != itEnd; it.increment(ec))
        if (it->path().extension() == ".lock")
            acPaths.push_back(it->path());
    for (const char* psz : {"packed-refs.lock", "HEAD.lock"})
        acPaths.push_back(fs::path(m_strDirectory) / psz);
    for (fs::directory_iterator it(m_strDirectory, ec), itEnd; !ec && it != itEnd; it.increment(ec))
        if (it->path().filename().string().compare(0, 18, "fast_import_crash_") == 0)
            acPaths.push_back(it->path());
    for (const fs::path& cPath : acPaths)
        if (fs::remove(cPath, ec))
            m_astrRecovered.push_back(cPath.string());
    fs::remove(RunMarker(), ec);
}

bool CGitRepository::StartFastImport()
{
    if (m_bStartFailed || m_strDirectory.empty())
        return false;
    std::ofstream(RunMarker()) << ::getpid() << "\n";
    if (!m_cChild.Start({"git", "--git-dir=" + m_strDirectory, "fast-import", "--quiet", "--done"}, &m_strStartError))
    {
        m_bStartFailed = true;
        std::error_code ec;
        fs::remove(RunMarker(), ec);
        return false;
    }
    m_bStarted = true;
    return true;
}

bool CGitRepository::CChildSink::Write(const char* p, size_t n)
{
    // Started once: a fast-import that ended is not started again.
    if (!m_cRepository.m_bStarted && !m_cRepository.StartFastImport())
        return false;
    return m_cRepository.m_cChild.Write(p, n);
}

namespace {

// How fast-import ended, for the last line of a run: git's own lines about
// it come before.
std::string FastImportEnded(int nStatus)
{
    if (nStatus <= 0)
        return "git fast-import stopped (see its message above)";
    return "git fast-import stopped (exit status " + std::to_string(nStatus) + "; see its message above)";
}

} // namespace

std::string CGitRepository::StopMessage()
{
    if (m_bStartFailed)
        return m_strStartError;
    return FastImportEnded(m_bStarted ? m_cChild.Finish() : 0);
}

bool CGitRepository::ReadHistory(const std::string& strBranch, std::vector<TGitCommit>& atCommits,
                                 std::string& strError)
{
    atCommits.clear();
    std::string strOut, strErr;
    const std::string strRef = "refs/heads/" + strBranch;
    if (RunGit(m_strDirectory, {"rev-parse", "--verify", "--quiet", strRef}, std::string(), strOut, strErr) != 0)
        return true;
    if (!ReadFirstParents(m_strDirectory, strRef, atCommits, strErr))
    {
        strError = TrimmedEnd("git log failed: " + strErr);
        return false;
    }
    return true;
}

bool CGitRepository::Checkpoint(unsigned nCommitMark, std::string& strName)
{
    if (!m_cWriter.Checkpoint(nCommitMark))
        return false;
    m_tLastSave = std::chrono::steady_clock::now();
    if (!m_cChild.ReadLine(strName) || strName.size() != 40)
    {
        m_cWriter.SetFailed();
        return false;
    }
    return true;
}

bool CGitRepository::CommitWritten()
{
    const auto tNow = std::chrono::steady_clock::now();
    if (std::chrono::duration<double>(tNow - m_tLastSave).count() < m_fSaveSeconds)
        return !Failed();
    m_tLastSave = tNow;
    return m_cWriter.Checkpoint(0);
}

bool CGitRepository::ReadTree(const std::string& strCommit, TTree& tTree, std::string& strError)
{
    tTree.clear();
    std::string strOut, strErr;
    if (RunGit(m_strDirectory, {"ls-tree", "-r", "-z", "--full-tree", strCommit}, std::string(), strOut, strErr) != 0)
    {
        strError = "git ls-tree failed: " + strErr;
        return false;
    }
    ParseTreeListing(strOut, tTree);
    return true;
}

void CGitRepository::EndInput()
{
    if (!IsOpen() || !Wrote() || m_bInputEnded)
        return;
    m_bInputEnded = true;
    m_cWriter.Done();
    m_cChild.CloseInput();
}

bool CGitRepository::Close(const std::string& strHeadBranch, std::string& strError)
{
    if (!IsOpen())
        return !Failed();
    const bool bWrote = Wrote();
    int nStatus = 0;
    if (bWrote)
    {
        EndInput();
        nStatus = m_cChild.Finish();
        std::error_code ec;
        fs::remove(RunMarker(), ec);
    }
    Unlock();
    if (nStatus != 0 || Failed() || m_bStartFailed)
    {
        strError = StopMessage();
        m_cWriter.SetFailed();
        return false;
    }
    if (bWrote && !strHeadBranch.empty())
    {
        std::string strOut, strErr;
        RunGit(m_strDirectory, {"symbolic-ref", "HEAD", "refs/heads/" + strHeadBranch}, std::string(), strOut, strErr);
    }
    return true;
}

} // namespace IMP
} // namespace ORVANE
