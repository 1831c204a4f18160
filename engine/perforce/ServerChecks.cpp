#include "perforce/ServerChecks.h"

#include <cstdlib>

#include "Stop.h"
#include "host/ChildProcess.h"
#include "perforce/Gateway.h"
#include "perforce/P4Query.h"

namespace ORVANE {
namespace IMP {

namespace {

std::string Variable(const char* pszName, const char* pszUnset)
{
    const char* psz = std::getenv(pszName);
    return psz && *psz ? std::string(psz) : std::string(pszUnset);
}

// The client itself could not be started: no records, and the capture's
// start failure on standard error.
bool NotStarted(const TP4Result& tResult)
{
    return tResult.atRecords.empty() &&
           (tResult.nStatus == VCM::eStatusNotFound || tResult.nStatus == VCM::eStatusCannotExecute) &&
           tResult.strError.compare(0, 12, "cannot run '") == 0;
}

} // namespace

namespace {

const char* const s_pszUnicodeOnly = "Unicode server permits only unicode enabled clients.";

// Whether the user chose a character set for p4 (none counts as none).
bool CharsetChosen()
{
    const char* psz = std::getenv("P4CHARSET");
    return psz && *psz && std::string(psz) != "none";
}

// Runs the query; a refusal for want of a character set makes every later
// p4 of this process use UTF-8, and the query runs once more.
TP4Result RunWithCharset(const CP4Query& cQuery, const std::vector<std::string>& astrArgs)
{
    TP4Result t = cQuery.Run(astrArgs);
    if (t.AllMessages().find(s_pszUnicodeOnly) != std::string::npos && !CharsetChosen())
    {
        ::setenv("P4CHARSET", "utf8", 1);
        t = cQuery.Run(astrArgs);
    }
    return t;
}

} // namespace

TP4Record CServerChecks::CheckConnection() const
{
    const CP4Query cQuery(m_strP4);
    const TP4Result tInfo = RunWithCharset(cQuery, {"info"});
    if (NotStarted(tInfo))
        throw EStop(eExitFailure, "the Perforce client cannot be run: " + tInfo.Problem() +
                                      " (the setting P4Path names the p4 executable)");
    std::string strProblem = tInfo.Problem();
    if (!strProblem.empty())
        throw EStop(eExitFailure, "the Perforce server at P4PORT=" + Variable("P4PORT", "(unset)") +
                                      " cannot be reached: " + strProblem);
    // A real server answers "'login' not necessary, no password set for
    // this user." as an informational record when there is no password.
    // A server with unicode enabled answers its information to any client,
    // and refuses everything else to one without a character set.
    for (const TP4Record& t : tInfo.atRecords)
        if (RecordValue(t, "code") == "stat" && RecordValue(t, "unicode") == "enabled" && !CharsetChosen())
            ::setenv("P4CHARSET", "utf8", 1);
    const TP4Result tLogin = RunWithCharset(cQuery, {"login", "-s"});
    strProblem = tLogin.Problem();
    if (!strProblem.empty())
        throw EStop(eExitFailure, "the Perforce server does not accept the user " + Variable("P4USER", "(unset)") +
                                      ": " + strProblem + " (log in with 'p4 login' first)");
    for (const TP4Record& t : tInfo.atRecords)
        if (RecordValue(t, "code") == "stat")
            return t;
    return TP4Record();
}

std::string DeleteServerClient(const std::string& strP4, const std::string& strClient)
{
    return RunWithCharset(CP4Query(strP4), {"client", "-d", strClient}).Problem();
}

std::string NeverEndingMessage(const std::vector<std::string>& astrFiles)
{
    std::string strMessage = "the migration module cannot read the names of these depot files (its decoding of "
                             "'%' escapes would never finish on them):";
    for (const std::string& strFile : astrFiles)
        strMessage += "\n    " + strFile;
    return strMessage + "\nRename them in Perforce (p4 move), or set RootPath to a narrower path that leaves them out.";
}

bool CServerChecks::ScanNames(const std::string& strRootPath, CEscapedNames& cNames) const
{
    const TP4Result tFiles = CP4Query(m_strP4).Run({"files", strRootPath}, [&cNames](const TP4Record& t) {
        auto itCode = t.find("code");
        auto itFile = t.find("depotFile");
        if (itCode != t.end() && itCode->second == "stat" && itFile != t.end())
            cNames.Add(itFile->second);
        return true;
    });
    const std::string strProblem = tFiles.Problem();
    if (!strProblem.empty() && IsLimitProblem(tFiles.AllMessages()))
        return false;
    if (!strProblem.empty())
        throw EStop(eExitFailure, "the depot files under " + strRootPath + " cannot be listed: " + strProblem);
    if (!cNames.GetNeverEnding().empty())
        throw EStop(eExitFailure, NeverEndingMessage(cNames.GetNeverEnding()));
    return true;
}

void CServerChecks::ReadUsers(CAuthors& cAuthors) const
{
    const TP4Result tUsers = CP4Query(m_strP4).Run({"users", "-a"}, [&cAuthors](const TP4Record& t) {
        if (RecordValue(t, "code") == "stat" && !RecordValue(t, "User").empty())
            cAuthors.AddServerUser(RecordValue(t, "User"), TIdent{RecordValue(t, "FullName"), RecordValue(t, "Email")});
        return true;
    });
    const std::string strProblem = tUsers.Problem();
    if (!strProblem.empty())
        throw EStop(eExitFailure, "the users of the Perforce server cannot be listed: " + strProblem);
}

} // namespace IMP
} // namespace ORVANE
