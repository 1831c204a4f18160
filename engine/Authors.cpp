#include "Authors.h"

#include <fstream>
#include <sstream>

#include "FastImport.h"
#include "Stop.h"
#include "Text.h"

namespace ORVANE {
namespace IMP {

namespace {

// "user = Full Name <email>": false when the line is not of that form.
bool ParseAuthorLine(const std::string& strLine, std::string& strUser, TIdent& tIdent)
{
    const size_t nEquals = strLine.find('=');
    if (nEquals == std::string::npos)
        return false;
    strUser = Trimmed(strLine.substr(0, nEquals));
    const std::string strRest = Trimmed(strLine.substr(nEquals + 1));
    const size_t nOpen = strRest.find('<');
    if (strUser.empty() || nOpen == std::string::npos || strRest.back() != '>')
        return false;
    tIdent.strName = Trimmed(strRest.substr(0, nOpen));
    tIdent.strEmail = strRest.substr(nOpen + 1, strRest.size() - nOpen - 2);
    return !tIdent.strName.empty() && tIdent.strEmail.find_first_of("<>") == std::string::npos &&
           tIdent.strName.find('>') == std::string::npos;
}

} // namespace

std::string PerforceUser(const std::string& strUserText)
{
    return strUserText.substr(0, strUserText.find('@'));
}

void CAuthors::AddServerUser(const std::string& strUser, const TIdent& tIdent)
{
    TIdent t = tIdent;
    // A user without a full name is known by the user name.
    if (Trimmed(t.strName).empty())
        t.strName = strUser;
    m_mapServer[strUser] = t;
}

void CAuthors::ReadFile(const std::string& strPath)
{
    std::ifstream in(strPath, std::ios::binary);
    std::ostringstream ss;
    if (!in || !(ss << in.rdbuf()))
        throw EStop(eExitUsage, "cannot read the authors file '" + strPath + "'");
    ParseFile(ss.str(), strPath);
}

void CAuthors::ParseFile(const std::string& strText, const std::string& strFile)
{
    std::map<std::string, unsigned> mapLines;
    std::istringstream in(strText);
    std::string strLine;
    for (unsigned nLine = 1; std::getline(in, strLine); ++nLine)
    {
        const std::string strTrimmed = Trimmed(strLine);
        if (strTrimmed.empty() || strTrimmed[0] == '#')
            continue;
        const std::string strWhere = strFile + ":" + std::to_string(nLine) + ": ";
        std::string strUser;
        TIdent tIdent;
        if (!ParseAuthorLine(strTrimmed, strUser, tIdent))
            throw EStop(eExitUsage, strWhere + "expected 'user = Full Name <email>', not '" + strTrimmed + "'");
        auto it = mapLines.find(strUser);
        if (it != mapLines.end())
            throw EStop(eExitUsage, strWhere + "the user '" + strUser + "' is mapped already on line " +
                                        std::to_string(it->second));
        mapLines[strUser] = nLine;
        m_mapFile[strUser] = tIdent;
    }
}

bool CAuthors::Find(const std::string& strUser, TIdent& tIdent) const
{
    for (const auto* pMap : {&m_mapFile, &m_mapServer})
    {
        auto it = pMap->find(strUser);
        if (it != pMap->end())
        {
            tIdent = it->second;
            return true;
        }
    }
    return false;
}

TIdent CAuthors::Ident(const std::string& strUserText) const
{
    TIdent tIdent;
    if (!Find(PerforceUser(strUserText), tIdent))
        SplitUser(strUserText, tIdent.strName, tIdent.strEmail);
    return tIdent;
}

std::vector<std::string> CAuthors::Missing(const std::set<std::string>& setUserTexts) const
{
    std::set<std::string> setMissing;
    TIdent tIdent;
    for (const std::string& strText : setUserTexts)
        if (!Find(PerforceUser(strText), tIdent))
            setMissing.insert(PerforceUser(strText));
    return std::vector<std::string>(setMissing.begin(), setMissing.end());
}

} // namespace IMP
} // namespace ORVANE
