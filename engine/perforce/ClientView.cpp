#include "perforce/ClientView.h"

namespace ORVANE {
namespace IMP {

namespace {

// The two sides of a view line, each possibly in double quotes.
bool SplitLine(const std::string& strLine, std::string& strLeft, std::string& strRight)
{
    std::vector<std::string> astr;
    size_t i = 0;
    while (i < strLine.size())
    {
        if (strLine[i] == ' ' || strLine[i] == '\t')
        {
            ++i;
            continue;
        }
        std::string str;
        if (strLine[i] == '"')
        {
            const size_t nEnd = strLine.find('"', i + 1);
            if (nEnd == std::string::npos)
                return false;
            str = strLine.substr(i + 1, nEnd - i - 1);
            i = nEnd + 1;
        }
        else
        {
            const size_t nEnd = strLine.find_first_of(" \t", i);
            str = strLine.substr(i, nEnd == std::string::npos ? std::string::npos : nEnd - i);
            i = nEnd == std::string::npos ? strLine.size() : nEnd;
        }
        astr.push_back(str);
    }
    if (astr.size() != 2)
        return false;
    strLeft = astr[0];
    strRight = astr[1];
    return true;
}

// "//depot/main/..." -> "//depot/main/"; false for any other wildcard.
bool FolderPattern(const std::string& strSide, std::string& strFolder)
{
    if (strSide.size() < 4 || strSide.compare(strSide.size() - 4, 4, "/...") != 0)
        return false;
    strFolder = strSide.substr(0, strSide.size() - 3);
    return strFolder.find("...") == std::string::npos && strFolder.find('*') == std::string::npos &&
           strFolder.find("%%") == std::string::npos;
}

bool StartsWith(const std::string& str, const std::string& strPrefix)
{
    return str.compare(0, strPrefix.size(), strPrefix) == 0;
}

} // namespace

bool CClientView::Read(const TP4Record& tSpec)
{
    m_atLines.clear();
    m_strRoot = RecordValue(tSpec, "Root");
    const std::string strClient = RecordValue(tSpec, "Client");
    while (!m_strRoot.empty() && m_strRoot.back() == '/')
        m_strRoot.pop_back();
    if (m_strRoot.empty() || strClient.empty())
        return false;
    const std::string strClientPrefix = "//" + strClient + "/";
    for (unsigned n = 0;; ++n)
    {
        auto it = tSpec.find("View" + std::to_string(n));
        if (it == tSpec.end())
            break;
        std::string strLeft, strRight;
        if (!SplitLine(it->second, strLeft, strRight) || strLeft.empty())
            return m_atLines.clear(), false;
        TLine tLine;
        if (strLeft[0] == '-')
            tLine.bExclude = true, strLeft.erase(0, 1);
        else if (strLeft[0] == '+' || strLeft[0] == '&')
            return m_atLines.clear(), false;
        std::string strLocal;
        if (!FolderPattern(strLeft, tLine.strDepot) || !FolderPattern(strRight, strLocal) ||
            !StartsWith(strLocal, strClientPrefix))
            return m_atLines.clear(), false;
        tLine.strLocal = strLocal.substr(strClientPrefix.size());
        m_atLines.push_back(tLine);
    }
    return !m_atLines.empty();
}

const CClientView::TLine* CClientView::LineOf(const std::string& strDepotFile) const
{
    for (size_t i = m_atLines.size(); i-- > 0;)
        if (StartsWith(strDepotFile, m_atLines[i].strDepot))
            return &m_atLines[i];
    return nullptr;
}

std::string CClientView::BelowRoot(const std::string& strLocalFolder) const
{
    if (m_strRoot.empty() || !StartsWith(strLocalFolder, m_strRoot + "/"))
        return std::string();
    std::string str = strLocalFolder.substr(m_strRoot.size() + 1);
    while (!str.empty() && str.back() == '/')
        str.pop_back();
    return str.empty() ? str : str + "/";
}

std::string CClientView::DepotFolderOf(const std::string& strLocalFolder) const
{
    const std::string strBelow = BelowRoot(strLocalFolder);
    if (strBelow.empty())
        return std::string();
    const TLine* pFound = nullptr;
    for (const TLine& t : m_atLines)
    {
        if (t.bExclude)
            continue;
        // A line onto the folder, onto a folder inside it or onto one
        // holding it: only one that maps the folder exactly is followed.
        if (StartsWith(t.strLocal, strBelow) || StartsWith(strBelow, t.strLocal))
        {
            if (pFound || t.strLocal != strBelow)
                return std::string();
            pFound = &t;
        }
    }
    return pFound ? pFound->strDepot : std::string();
}

std::string CClientView::LocalPathBelow(const std::string& strLocalFolder, const std::string& strDepotFile) const
{
    const TLine* pLine = LineOf(strDepotFile);
    if (!pLine || pLine->bExclude || pLine->strLocal != BelowRoot(strLocalFolder))
        return std::string();
    return strDepotFile.substr(pLine->strDepot.size());
}

} // namespace IMP
} // namespace ORVANE
