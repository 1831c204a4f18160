// `p4 users`, `p4 info` and `p4 login`.
#include "Commands.h"

#include "Text.h"

namespace ORVANE {
namespace P4SIM {

namespace {

const char* const s_pszServerVersion = "P4D/LINUX26X86_64/2014.1/p4sim (2014/01/01)";

bool UserSelected(const TOptions& tOptions, const std::string& strName)
{
    if (tOptions.astrArgs.empty())
        return true;
    for (const std::string& strPattern : tOptions.astrArgs)
    {
        if (WildMatch(strPattern, strName))
            return true;
    }
    return false;
}

} // namespace

void CmdUsers(TContext& tContext, const TOptions& tOptions)
{
    long long nMax = MaxOption(tOptions);
    long long nListed = 0;
    for (const TUserRec& tUser : tContext.pStore->Users())
    {
        if (nMax >= 0 && nListed >= nMax)
            break;
        if (!UserSelected(tOptions, tUser.strName))
            continue;
        ++nListed;
        TRecord aRecord = {{"User", tUser.strName},          {"Type", "standard"},
                           {"Email", tUser.strEmail},        {"Update", Num(tUser.nUpdated)},
                           {"Access", Num(tUser.nAccessed)}, {"FullName", tUser.strFullName}};
        tContext.pOutput->Stat(aRecord, tUser.strName + " <" + tUser.strEmail + "> (" + tUser.strFullName +
                                            ") accessed " + FormatDate(tUser.nAccessed) + "\n");
    }
}

void CmdInfo(TContext& tContext, const TOptions& /*tOptions*/)
{
    std::optional<TClientRec> tClient = tContext.pStore->Client(tContext.strClient);
    std::string strRoot = tClient ? tClient->strRoot : "*unknown*";
    std::string strClient = tClient ? tContext.strClient : "*unknown*";
    std::string strDate = FormatDateTime(tContext.nNow) + " " + FormatZone(tContext.nNow);
    const std::string strCase = tContext.pStore->CaseInsensitive() ? "insensitive" : "sensitive";
    const bool bUnicode = tContext.pStore->Unicode();
    TRecord aRecord = {{"userName", tContext.strUser},
                       {"clientName", strClient},
                       {"clientRoot", strRoot},
                       {"clientCwd", tContext.strCwd},
                       {"clientHost", tContext.strHost},
                       {"clientAddress", "127.0.0.1"},
                       {"serverAddress", tContext.strPort},
                       {"serverRoot", tContext.ServerDir()},
                       {"serverDate", strDate},
                       {"serverUptime", "00:00:00"},
                       {"serverVersion", s_pszServerVersion},
                       {"serverLicense", "none"},
                       {"caseHandling", strCase}};
    if (bUnicode)
        aRecord.push_back({"unicode", "enabled"});
    std::string strPlain =
        "User name: " + tContext.strUser + "\nClient name: " + strClient + "\nClient host: " + tContext.strHost +
        "\nClient root: " + strRoot + "\nCurrent directory: " + tContext.strCwd +
        "\nPeer address: 127.0.0.1:0\nClient address: 127.0.0.1\nServer address: " + tContext.strPort +
        "\nServer root: " + tContext.ServerDir() + "\nServer date: " + strDate +
        "\nServer uptime: 00:00:00\nServer version: " + s_pszServerVersion +
        "\nServer license: none\nCase Handling: " + strCase + "\n" + (bUnicode ? "Unicode: enabled\n" : "");
    tContext.pOutput->Stat(aRecord, strPlain);
}

void CmdLogin(TContext& tContext, const TOptions& /*tOptions*/)
{
    // No passwords in p4sim: every user is at security level 0 without one,
    // and the server answers with an informational message (exit status 0).
    tContext.pOutput->Info("'login' not necessary, no password set for this user.");
}

} // namespace P4SIM
} // namespace ORVANE
