#include "FastImport.h"

#include <cstdio>

namespace ORVANE {
namespace IMP {

namespace {

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

} // namespace

CByteSink::~CByteSink() = default;

bool CStringSink::Write(const char* p, size_t n)
{
    m_strText.append(p, n);
    return true;
}

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

void SplitUser(const std::string& strUser, std::string& strName, std::string& strEmail)
{
    const size_t n = strUser.find('@');
    strName = CleanIdent(n == std::string::npos ? strUser : strUser.substr(0, n));
    strEmail = CleanIdent(strUser);
    if (strName.empty())
        strName = "unknown";
}

std::string IdentLine(const std::string& strName, const std::string& strEmail, long tTime)
{
    std::string strCleanName = CleanIdent(strName);
    if (strCleanName.empty())
        strCleanName = "unknown";
    return strCleanName + " <" + CleanIdent(strEmail) + "> " + std::to_string(tTime) + " +0000";
}

namespace {

// Up to this size a blob goes out in one piece with its header (a copy of
// its content); larger ones are written as they are.
const size_t s_nJoinedBlobBytes = 64 * 1024;

} // namespace

bool CFastImportWriter::Send(const char* p, size_t n)
{
    if (m_bFailed)
        return false;
    if (!m_cSink.Write(p, n))
        m_bFailed = true;
    return !m_bFailed;
}

unsigned CFastImportWriter::Blob(const std::string& strName, const CBlobContent& cContent)
{
    auto it = m_mapBlobs.find(strName);
    if (it != m_mapBlobs.end())
        return it->second;
    const unsigned nMark = m_nNextMark++;
    std::string strHead = "blob\nmark :" + std::to_string(nMark) + "\ndata " + std::to_string(cContent.Size()) + "\n";
    const std::string* pstrText = cContent.Text();
    if (pstrText && pstrText->size() <= s_nJoinedBlobBytes)
    {
        // Most files are small: one write instead of three.
        strHead.reserve(strHead.size() + pstrText->size() + 1);
        strHead += *pstrText;
        strHead += '\n';
        Send(strHead);
    }
    else
    {
        // fast-import reads exactly the size announced: a file that
        // changed on the way still gives that many bytes, so that what
        // follows is read as it is meant.
        Send(strHead);
        const std::string strProblem = cContent.Pieces([this](const char* p, size_t n) { return Send(p, n); });
        Send("\n");
        if (!strProblem.empty())
        {
            m_strContentProblem = strProblem;
            return 0;
        }
    }
    m_mapBlobs[strName] = nMark;
    return nMark;
}

std::string CFastImportWriter::FileLine(const std::string& strPath, const TEntry& tEntry) const
{
    char achMode[16];
    std::snprintf(achMode, sizeof(achMode), "%o", tEntry.nMode);
    auto it = m_mapBlobs.find(tEntry.strBlob);
    const std::string strRef = it != m_mapBlobs.end() ? ":" + std::to_string(it->second) : tEntry.strBlob;
    return std::string("M ") + achMode + " " + strRef + " " + QuotePath(strPath) + "\n";
}

unsigned CFastImportWriter::Commit(const TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta)
{
    const unsigned nMark = ReserveMark();
    SendCommit(tCommit, nMark, FileCommands(tCommit, tTree, tDelta));
    return nMark;
}

std::string CFastImportWriter::FileCommands(const TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta)
{
    std::string str;
    if (tCommit.bFullTree)
    {
        str += "deleteall\n";
        for (const auto& kv : tTree)
            str += FileLine(kv.first, kv.second);
    }
    else
    {
        for (const std::string& strPath : tDelta.setRemoved)
            str += "D " + QuotePath(strPath) + "\n";
        for (const std::string& strPath : tDelta.setChanged)
        {
            auto it = tTree.find(strPath);
            if (it != tTree.end())
                str += FileLine(it->first, it->second);
        }
    }
    // Later commits name these blobs by their git names, which fast-import
    // knows as well as their marks: remembering every blob of the history
    // would make this process grow with it. A blob whose content comes back
    // later is sent again; fast-import stores it once.
    m_mapBlobs.clear();
    return str;
}

void CFastImportWriter::SendCommit(const TCommit& tCommit, unsigned nMark, const std::string& strFileCommands)
{
    const std::string strIdent = IdentLine(tCommit.strName, tCommit.strEmail, tCommit.tTime) + "\n";
    std::string str = "commit refs/heads/" + tCommit.strBranch + "\nmark :" + std::to_string(nMark) + "\nauthor " +
                      strIdent + "committer " + strIdent + "data " + std::to_string(tCommit.strMessage.size()) + "\n" +
                      tCommit.strMessage + "\n";
    if (!tCommit.strFrom.empty())
        str += "from " + tCommit.strFrom + "\n";
    for (const std::string& strMerge : tCommit.astrMerges)
        str += "merge " + strMerge + "\n";
    str += strFileCommands;
    str += "\n";
    Send(str);
}

bool CFastImportWriter::Checkpoint(unsigned nCommitMark)
{
    return Send(nCommitMark ? "checkpoint\nget-mark :" + std::to_string(nCommitMark) + "\n" : "checkpoint\n");
}

bool CFastImportWriter::Done()
{
    return Send("done\n");
}

} // namespace IMP
} // namespace ORVANE
