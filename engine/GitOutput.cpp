#include "GitOutput.h"

#include <dirent.h>
#include <errno.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstring>

namespace ORVANE {
namespace IMP {

namespace {

std::string Lower(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// A path as fast-import reads it: quoted C-style when it holds a character
// that the plain form cannot carry.
std::string QuotePath(const std::string& strPath)
{
    bool bQuote = !strPath.empty() && strPath[0] == '"';
    for (unsigned char c : strPath)
        if (c < 0x20 || c == '\\' || c == 0x7f)
            bQuote = true;
    if (!bQuote)
        return strPath;
    std::string str = "\"";
    for (unsigned char c : strPath)
    {
        if (c == '"' || c == '\\')
            str += '\\', str += char(c);
        else if (c == '\n')
            str += "\\n";
        else if (c < 0x20 || c == 0x7f)
        {
            char ach[8];
            std::snprintf(ach, sizeof(ach), "\\%03o", c);
            str += ach;
        }
        else
            str += char(c);
    }
    return str + "\"";
}

// Name and address of an ident line may not hold '<', '>' or line ends.
std::string CleanIdent(const std::string& s)
{
    std::string str;
    for (char c : s)
        str += (c == '<' || c == '>' || c == '\n' || c == '\r' || c == '\0') ? '_' : c;
    // Leading and trailing blanks are dropped by git; keep the text exact
    // otherwise.
    while (!str.empty() && str.back() == ' ')
        str.pop_back();
    while (!str.empty() && str.front() == ' ')
        str.erase(0, 1);
    return str;
}

bool IsEmptyDirectory(const std::string& strPath, bool& bExists)
{
    DIR* pDir = opendir(strPath.c_str());
    bExists = pDir != nullptr || errno != ENOENT;
    if (!pDir)
        return !bExists;
    bool bEmpty = true;
    while (dirent* p = readdir(pDir))
        if (std::strcmp(p->d_name, ".") != 0 && std::strcmp(p->d_name, "..") != 0)
            bEmpty = false;
    closedir(pDir);
    return bEmpty;
}

} // namespace

std::string MakeBranchName(const std::string& strStreamName, std::set<std::string>& setUsed)
{
    std::string str;
    for (unsigned char c : strStreamName)
    {
        const bool bBad = c < 0x20 || c == 0x7f || c == ' ' || c == '~' || c == '^' || c == ':' || c == '?' ||
                          c == '*' || c == '[' || c == '\\' || c == '/';
        str += bBad ? '_' : char(c);
    }
    for (size_t n; (n = str.find("..")) != std::string::npos;)
        str[n] = '_';
    for (size_t n; (n = str.find("@{")) != std::string::npos;)
        str[n] = '_';
    if (str.empty() || str == "@")
        str = "stream";
    if (str[0] == '.' || str[0] == '-')
        str[0] = '_';
    if (str.back() == '.')
        str.back() = '_';
    if (str.size() >= 5 && str.compare(str.size() - 5, 5, ".lock") == 0)
        str += "_";
    std::string strName = str;
    for (int n = 2; setUsed.count(Lower(strName)); ++n)
        strName = str + "-" + std::to_string(n);
    setUsed.insert(Lower(strName));
    return strName;
}

void SplitUser(const std::string& strUser, std::string& strName, std::string& strEmail)
{
    const size_t n = strUser.find('@');
    strName = CleanIdent(n == std::string::npos ? strUser : strUser.substr(0, n));
    strEmail = CleanIdent(strUser);
    if (strName.empty())
        strName = "unknown";
}

bool CGitOutput::Open(const std::string& strDirectory, std::string& strError)
{
    bool bExists = false;
    if (!IsEmptyDirectory(strDirectory, bExists))
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
    if (!m_cChild.Start({"git", "--git-dir=" + strDirectory, "fast-import", "--quiet"}, &strError))
        return false;
    return true;
}

bool CGitOutput::Send(const std::string& str)
{
    if (m_bFailed)
        return false;
    if (!m_cChild.Write(str))
        m_bFailed = true;
    return !m_bFailed;
}

unsigned CGitOutput::Blob(const std::string& strName, const std::string& strContent)
{
    auto it = m_mapBlobs.find(strName);
    if (it != m_mapBlobs.end())
        return it->second;
    const unsigned nMark = m_nNextMark++;
    Send("blob\nmark :" + std::to_string(nMark) + "\ndata " + std::to_string(strContent.size()) + "\n");
    Send(strContent);
    Send("\n");
    m_mapBlobs[strName] = nMark;
    return nMark;
}

unsigned CGitOutput::Commit(const TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta)
{
    const unsigned nMark = m_nNextMark++;
    std::string strName, strEmail;
    SplitUser(tCommit.strUser, strName, strEmail);
    const std::string strIdent = strName + " <" + strEmail + "> " + std::to_string(tCommit.tTime) + " +0000\n";
    std::string str = "commit refs/heads/" + tCommit.strBranch + "\nmark :" + std::to_string(nMark) + "\nauthor " +
                      strIdent + "committer " + strIdent + "data " + std::to_string(tCommit.strMessage.size()) +
                      "\n" + tCommit.strMessage + "\n";
    if (tCommit.nFrom)
        str += "from :" + std::to_string(tCommit.nFrom) + "\n";
    auto Line = [this](const std::string& strPath, const TEntry& tEntry) {
        char achMode[16];
        std::snprintf(achMode, sizeof(achMode), "%o", tEntry.nMode);
        auto it = m_mapBlobs.find(tEntry.strBlob);
        const std::string strRef = it != m_mapBlobs.end() ? ":" + std::to_string(it->second) : tEntry.strBlob;
        return std::string("M ") + achMode + " " + strRef + " " + QuotePath(strPath) + "\n";
    };
    if (tCommit.bFullTree)
    {
        str += "deleteall\n";
        for (const auto& kv : tTree)
            str += Line(kv.first, kv.second);
    }
    else
    {
        for (const std::string& strPath : tDelta.setRemoved)
            str += "D " + QuotePath(strPath) + "\n";
        for (const std::string& strPath : tDelta.setChanged)
        {
            auto it = tTree.find(strPath);
            if (it != tTree.end())
                str += Line(it->first, it->second);
        }
    }
    str += "\n";
    Send(str);
    return nMark;
}

bool CGitOutput::Checkpoint(unsigned nCommitMark, std::string& strName)
{
    if (!Send("checkpoint\nget-mark :" + std::to_string(nCommitMark) + "\n"))
        return false;
    if (!m_cChild.ReadLine(strName) || strName.size() != 40)
    {
        m_bFailed = true;
        return false;
    }
    return true;
}

bool CGitOutput::ReadTree(const std::string& strCommit, TTree& tTree, std::string& strError)
{
    tTree.clear();
    std::string strOut, strErr;
    if (RunProcess({"git", "--git-dir=" + m_strDirectory, "ls-tree", "-r", "-z", "--full-tree", strCommit},
                   std::string(), &strOut, &strErr) != 0)
    {
        strError = "git ls-tree failed: " + strErr;
        return false;
    }
    // "<mode> SP <type> SP <name> TAB <path> NUL"
    size_t nPos = 0;
    while (nPos < strOut.size())
    {
        const size_t nEnd = strOut.find('\0', nPos);
        const std::string strLine = strOut.substr(nPos, nEnd - nPos);
        nPos = nEnd == std::string::npos ? strOut.size() : nEnd + 1;
        const size_t nTab = strLine.find('\t');
        if (nTab == std::string::npos || nTab < 48)
            continue;
        TEntry tEntry;
        tEntry.nMode = unsigned(std::strtoul(strLine.c_str(), nullptr, 8));
        tEntry.strBlob = strLine.substr(nTab - 40, 40);
        tTree[strLine.substr(nTab + 1)] = tEntry;
    }
    return true;
}

bool CGitOutput::Close(const std::string& strHeadBranch, std::string& strError)
{
    if (!IsOpen())
        return !m_bFailed;
    const int nStatus = m_cChild.Finish();
    if (nStatus != 0 || m_bFailed)
    {
        strError = "git fast-import failed (exit status " + std::to_string(nStatus) + ")";
        m_bFailed = true;
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
