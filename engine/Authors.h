// Who made each change, as git shows it: the Perforce users' full names and
// e-mail addresses from the server's user list, overridden or completed by
// an authors file in the format of git's Subversion importer
// ("user = Full Name <email>" lines, '#' comments).
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

// The name and e-mail address of a commit's author and committer.
struct TIdent
{
    std::string strName, strEmail;
    bool operator==(const TIdent& o) const { return strName == o.strName && strEmail == o.strEmail; }
};

// The Perforce user of the module's user text "user@client": the text
// before its first '@'. Neither a Perforce user name nor a client name may
// hold an '@', so on a real server there is exactly one; taking the first
// keeps the user whole even if a client's name broke that rule. A text
// without '@' is all user.
std::string PerforceUser(const std::string& strUserText);

class CAuthors
{
public:
    // Takes one user of the source system's list.
    void AddServerUser(const std::string& strUser, const TIdent& tIdent);

    // Reads an authors file, whose lines take precedence over the server's
    // list. Throws EStop (usage) naming the file and line of a line that is
    // not "user = Full Name <email>", of a user mapped twice, or when the
    // file cannot be read.
    void ReadFile(const std::string& strPath);
    // The same for the file's text; strFile names it in errors.
    void ParseFile(const std::string& strText, const std::string& strFile);

    // The mapping of a Perforce user: the authors file's, else the server's.
    bool Find(const std::string& strUser, TIdent& tIdent) const;
    // The ident of a change by the user text "user@client": the mapping of
    // its user, else "user <user@client>" as without any mapping.
    TIdent Ident(const std::string& strUserText) const;
    // The Perforce users of the user texts that have no mapping, sorted.
    std::vector<std::string> Missing(const std::set<std::string>& setUserTexts) const;

private:
    std::map<std::string, TIdent> m_mapServer;
    std::map<std::string, TIdent> m_mapFile;
};

} // namespace IMP
} // namespace ORVANE
