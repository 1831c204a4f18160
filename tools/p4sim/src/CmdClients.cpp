// `p4 client` and `p4 clients`.
#include "Commands.h"

#include "Forms.h"
#include "Text.h"

#include <set>

namespace ORVANE {
namespace P4SIM {

namespace {

EP4Error SpecError(const std::string& strWhat, TGeneric eGeneric = eGenericUsage)
{
    return EP4Error("Error in client specification.\n" + strWhat, eSeverityFailed, eGeneric);
}

TClientRec DefaultClient(const TContext& tContext, const std::string& strName)
{
    TClientRec tClient;
    tClient.strName = strName;
    tClient.strOwner = tContext.strUser;
    tClient.strHost = tContext.strHost;
    tClient.strDescription = "Created by " + tContext.strUser + ".\n";
    tClient.strRoot = tContext.strCwd;
    tClient.strOptions = "noallwrite noclobber nocompress unlocked nomodtime normdir";
    tClient.strSubmitOptions = "submitunchanged";
    tClient.strLineEnd = "local";
    tClient.astrView.push_back("//depot/... //" + strName + "/...");
    return tClient;
}

std::vector<std::string> ClientViewOf(const CForm& cForm, const std::string& strName)
{
    std::string strPrefix = "//" + strName + "/";
    std::vector<std::string> astrView;
    for (const std::string& strLine : cForm.Lines("View"))
    {
        TMapLine tLine;
        if (!ParseViewLine(strLine, tLine))
            throw SpecError("Wrong number of words for field 'View'.");
        if (!StartsWith(tLine.strLeft, "//"))
            throw SpecError("Mapping '" + tLine.strLeft + "' is not under '//...'.", eGenericContext);
        if (!StartsWith(tLine.strRight, strPrefix))
            throw SpecError("Mapping '" + tLine.strRight + "' is not under '" + strPrefix + "...'.", eGenericContext);
        astrView.push_back(FormatViewLine(tLine));
    }
    return astrView;
}

TClientRec ReadClientForm(TContext& tContext)
{
    CForm cForm(tContext.fnReadStdin(), "client");
    TClientRec tClient;
    tClient.strName = cForm.Get("Client");
    if (tClient.strName.empty())
        throw SpecError("Missing required field 'Client'.");
    if (tClient.strName.find_first_of("@#/ ") != std::string::npos ||
        tClient.strName.find("...") != std::string::npos || tClient.strName[0] == '-')
        throw SpecError("Invalid client name '" + tClient.strName + "'.");
    if (!cForm.Has("Root") || cForm.Get("Root").empty())
        throw SpecError("Missing required field 'Root'.");
    tClient.strOwner = !cForm.Get("Owner").empty() ? cForm.Get("Owner") : tContext.strUser;
    tClient.strHost = cForm.Get("Host");
    tClient.strDescription = cForm.Description();
    tClient.strRoot = cForm.Get("Root");
    tClient.strOptions = NormalizeClientOptions(cForm.Get("Options"));
    tClient.strSubmitOptions = cForm.Get("SubmitOptions").empty() ? "submitunchanged" : cForm.Get("SubmitOptions");
    tClient.strLineEnd = cForm.Get("LineEnd").empty() ? "local" : cForm.Get("LineEnd");
    static const std::set<std::string> s_setLineEnds = {"local", "unix", "mac", "win", "share"};
    if (!s_setLineEnds.count(tClient.strLineEnd))
        throw SpecError("Invalid LineEnd '" + tClient.strLineEnd + "'.");
    tClient.astrView = ClientViewOf(cForm, tClient.strName);
    tClient.nUpdated = tClient.nAccessed = tContext.nNow;
    return tClient;
}

bool SameSpec(const TClientRec& tOld, const TClientRec& tNew)
{
    return tOld.strOwner == tNew.strOwner && tOld.strHost == tNew.strHost &&
           tOld.strDescription == tNew.strDescription && tOld.strRoot == tNew.strRoot &&
           tOld.strOptions == tNew.strOptions && tOld.strSubmitOptions == tNew.strSubmitOptions &&
           tOld.strLineEnd == tNew.strLineEnd && tOld.astrView == tNew.astrView;
}

void SaveClient(TContext& tContext)
{
    TClientRec tClient = ReadClientForm(tContext);
    std::optional<TClientRec> tOld = tContext.pStore->Client(tClient.strName);
    if (tOld && SameSpec(*tOld, tClient))
    {
        tContext.pOutput->Info("Client " + tClient.strName + " not changed.");
        return;
    }
    tContext.pStore->PutClient(tClient);
    tContext.pOutput->Info("Client " + tClient.strName + " saved.");
}

void ShowClient(TContext& tContext, const std::string& strName)
{
    std::optional<TClientRec> tClient = tContext.pStore->Client(strName);
    bool bExisting = tClient.has_value();
    if (!tClient)
        tClient = DefaultClient(tContext, strName);
    TRecord aRecord = {{"Client", tClient->strName}};
    if (bExisting)
    {
        aRecord.push_back({"Update", FormatDateTime(tClient->nUpdated)});
        aRecord.push_back({"Access", FormatDateTime(tClient->nAccessed)});
    }
    aRecord.push_back({"Owner", tClient->strOwner});
    if (!tClient->strHost.empty())
        aRecord.push_back({"Host", tClient->strHost});
    aRecord.push_back({"Description", tClient->strDescription});
    aRecord.push_back({"Root", tClient->strRoot});
    aRecord.push_back({"Options", tClient->strOptions});
    aRecord.push_back({"SubmitOptions", tClient->strSubmitOptions});
    aRecord.push_back({"LineEnd", tClient->strLineEnd});
    for (size_t i = 0; i < tClient->astrView.size(); ++i)
        aRecord.push_back({"View" + Num(static_cast<long long>(i)), tClient->astrView[i]});
    tContext.pOutput->Stat(aRecord, ClientFormText(*tClient, bExisting));
}

} // namespace

void CmdClient(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.Has('i'))
    {
        if (!tOptions.astrArgs.empty())
            throw UsageError(tContext, "Extra argument.");
        SaveClient(tContext);
        return;
    }
    if (tOptions.astrArgs.size() > 1)
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    std::string strName = tOptions.astrArgs.empty() ? tContext.strClient : tOptions.astrArgs[0];
    if (tOptions.Has('d'))
    {
        if (tOptions.astrArgs.empty())
            throw UsageError(tContext, "Missing/wrong number of arguments.");
        if (!tContext.pStore->Client(strName))
            throw EP4Error("Client '" + strName + "' doesn't exist.", eSeverityFailed, eGenericUnknown);
        tContext.pStore->DeleteClient(strName);
        tContext.pOutput->Info("Client " + strName + " deleted.");
        return;
    }
    if (!tOptions.Has('o'))
        throw EP4Error("p4sim runs no editor: use 'client -o' and 'client -i'.");
    ShowClient(tContext, strName);
}

void CmdClients(TContext& tContext, const TOptions& tOptions)
{
    long long nMax = MaxOption(tOptions);
    long long nListed = 0;
    for (const TClientRec& tClient : tContext.pStore->Clients())
    {
        if (nMax >= 0 && nListed >= nMax)
            break;
        if (!ListingSelects(tOptions, tClient.strName, tClient.strOwner))
            continue;
        ++nListed;
        TRecord aRecord = {{"client", tClient.strName},        {"Update", Num(tClient.nUpdated)},
                           {"Access", Num(tClient.nAccessed)}, {"Owner", tClient.strOwner},
                           {"Options", tClient.strOptions},    {"SubmitOptions", tClient.strSubmitOptions},
                           {"LineEnd", tClient.strLineEnd},    {"Root", tClient.strRoot},
                           {"Host", tClient.strHost},          {"Description", tClient.strDescription}};
        std::string strDate = tOptions.Has('t') ? FormatDateTime(tClient.nUpdated) : FormatDate(tClient.nUpdated);
        tContext.pOutput->Stat(aRecord, "Client " + tClient.strName + " " + strDate + " root " + tClient.strRoot +
                                            " '" + OneLine(Truncated(tClient.strDescription, 31)) + "'\n");
    }
}

} // namespace P4SIM
} // namespace ORVANE
