#include "GitRepository.h"

#include <cstdlib>
#include <filesystem>

namespace ORVANE {
namespace IMP {

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

bool CGitRepository::IsFree(const std::string& strDirectory)
{
    std::error_code ec;
    std::filesystem::directory_iterator it(strDirectory, ec);
    if (ec)
        return ec == std::errc::no_such_file_or_directory;
    return it == std::filesystem::directory_iterator();
}

bool CGitRepository::Open(const std::string& strDirectory, std::string& strError)
{
    if (!IsFree(strDirectory))
    {
        strError = "the git folder '" + strDirectory + "' exists and is not empty";
        return false;
    }
    std::string strOut, strErr;
    if (RunProcess({"git", "init", "--quiet", "--bare", strDirectory}, std::string(), &strOut, &strErr) != 0)
    {
        strError = "git init failed: " + strErr;
        while (!strError.empty() && strError.back() == '\n')
            strError.pop_back();
        return false;
    }
    m_strDirectory = strDirectory;
    return m_cChild.Start({"git", "--git-dir=" + strDirectory, "fast-import", "--quiet"}, &strError);
}

bool CGitRepository::Checkpoint(unsigned nCommitMark, std::string& strName)
{
    if (!m_cWriter.Checkpoint(nCommitMark))
        return false;
    if (!m_cChild.ReadLine(strName) || strName.size() != 40)
    {
        m_cWriter.SetFailed();
        return false;
    }
    return true;
}

bool CGitRepository::ReadTree(const std::string& strCommit, TTree& tTree, std::string& strError)
{
    tTree.clear();
    std::string strOut, strErr;
    if (RunProcess({"git", "--git-dir=" + m_strDirectory, "ls-tree", "-r", "-z", "--full-tree", strCommit},
                   std::string(), &strOut, &strErr) != 0)
    {
        strError = "git ls-tree failed: " + strErr;
        return false;
    }
    ParseTreeListing(strOut, tTree);
    return true;
}

bool CGitRepository::Close(const std::string& strHeadBranch, std::string& strError)
{
    if (!IsOpen())
        return !Failed();
    const int nStatus = m_cChild.Finish();
    if (nStatus != 0 || Failed())
    {
        strError = "git fast-import failed (exit status " + std::to_string(nStatus) + ")";
        m_cWriter.SetFailed();
        return false;
    }
    if (!strHeadBranch.empty())
    {
        std::string strOut, strErr;
        RunProcess({"git", "--git-dir=" + m_strDirectory, "symbolic-ref", "HEAD", "refs/heads/" + strHeadBranch},
                   std::string(), &strOut, &strErr);
    }
    return true;
}

} // namespace IMP
} // namespace ORVANE
