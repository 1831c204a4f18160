#include "Admin.h"

#include "Errors.h"
#include "FileSystem.h"
#include "History.h"
#include "Store.h"
#include "Text.h"

#include <fstream>
#include <iostream>
#include <map>

namespace ORVANE {
namespace P4SIM {

const char* const g_pszAdminUsage =
    "Usage: p4sim admin init DIR\n"
    "       p4sim admin load DIR HISTORY.json\n"
    "       p4sim admin generate DIR [--changes N] [--branches B] [--files F] [--seed S] [--json FILE]\n"
    "       p4sim admin limits DIR [--max-results N] [--max-scan-rows N]\n";

namespace {

const char* const s_pszInitHelp = "Usage: p4sim admin init DIR\n"
                                  "\n"
                                  "Makes an empty server in DIR (and the folder, when there is none).\n";

const char* const s_pszLoadHelp =
    "Usage: p4sim admin load DIR HISTORY.json\n"
    "\n"
    "Submits the history in HISTORY.json to the server in DIR, all of it or nothing.\n"
    "A server is made when there is none; an existing one continues its change numbering.\n";

const char* const s_pszGenerateHelp =
    "Usage: p4sim admin generate DIR [--changes N] [--branches B] [--files F] [--seed S] [--json FILE]\n"
    "\n"
    "Submits a reproducible history to the server in DIR (made when there is none): a mainline\n"
    "//depot/main, branches rel1... made from it, and edits, adds, deletes, renames and\n"
    "integrations on all of them. The same options give the same history, byte for byte.\n"
    "\n"
    "  --changes N    changes in all (default 100)\n"
    "  --branches B   branches (default 2)\n"
    "  --files F      files of the mainline's first change (default 50)\n"
    "  --seed S       seed of the pseudo-random choices (default 1)\n"
    "  --json FILE    also writes the history to FILE, in the format that load reads\n";

const char* const s_pszLimitsHelp =
    "Usage: p4sim admin limits DIR [--max-results N] [--max-scan-rows N]\n"
    "\n"
    "Sets the MaxResults and MaxScanRows of the server in DIR (0: unlimited), which hold\n"
    "for every later command, as a group's limits hold for its members on a real server;\n"
    "then prints both. Without options it only prints them.\n"
    "\n"
    "  --max-results N     rows a command may return\n"
    "  --max-scan-rows N   database rows a command may read\n";

const char* const s_pszAdminHelpEnd = "\nRun 'p4sim admin COMMAND --help' for one command.\n";

// The arguments of one admin command: its folder and file arguments and its
// --name value options.
struct TAdminArgs
{
    std::vector<std::string> astrPositional;
    std::map<std::string, std::string> mapOptions;
};

bool IsHelp(const std::string& strArg)
{
    return strArg == "--help" || strArg == "-h";
}

TAdminArgs SplitAdminArgs(const std::string& strCommand, const std::vector<std::string>& astrArgs,
                          const std::vector<std::string>& astrValueOptions)
{
    TAdminArgs tOut;
    for (size_t i = 0; i < astrArgs.size(); ++i)
    {
        const std::string& strArg = astrArgs[i];
        if (strArg.empty() || strArg[0] != '-')
        {
            tOut.astrPositional.push_back(strArg);
            continue;
        }
        std::string strName = strArg.substr(0, strArg.find('='));
        bool bKnown = false;
        for (const std::string& strOption : astrValueOptions)
            bKnown = bKnown || strName == strOption;
        if (!bKnown)
            throw EUsageError("p4sim admin " + strCommand + ": unknown option '" + strArg + "'");
        if (strName.size() < strArg.size())
            tOut.mapOptions[strName] = strArg.substr(strName.size() + 1);
        else if (i + 1 < astrArgs.size())
            tOut.mapOptions[strName] = astrArgs[++i];
        else
            throw EUsageError("p4sim admin " + strCommand + ": " + strArg + " needs a value");
    }
    return tOut;
}

void ExpectPositional(const std::string& strCommand, const TAdminArgs& tArgs, size_t nCount, const char* pszNames)
{
    if (tArgs.astrPositional.size() < nCount)
        throw EUsageError("p4sim admin " + strCommand + ": missing " + pszNames);
    if (tArgs.astrPositional.size() > nCount)
        throw EUsageError("p4sim admin " + strCommand + ": unexpected argument '" + tArgs.astrPositional[nCount] + "'");
}

long long NumberOption(const TAdminArgs& tArgs, const std::string& strName, long long nDefault,
                       const std::string& strCommand = "generate")
{
    auto it = tArgs.mapOptions.find(strName);
    if (it == tArgs.mapOptions.end())
        return nDefault;
    long long nValue;
    if (!ParseUInt(it->second, nValue))
        throw EUsageError("p4sim admin " + strCommand + ": " + strName + ": not a number: '" + it->second + "'");
    return nValue;
}

int Init(const std::string& strDir)
{
    MakeDirs(strDir);
    if (FileExists(CStore::DbPath(strDir)))
    {
        std::cerr << "p4sim: a server already exists in " << strDir << "\n";
        return eExitFailed;
    }
    CStore cStore(strDir, true);
    return eExitOk;
}

// Runs fnSubmit in one transaction on the server in strDir (made when there
// is none): all of it or nothing.
int Submit(const std::string& strDir, const std::function<void(CStore&)>& fnSubmit)
{
    MakeDirs(strDir);
    CStore cStore(strDir, !FileExists(CStore::DbPath(strDir)));
    cStore.SetBulkCache();
    cStore.Begin(true);
    cStore.LoadSettings();
    try
    {
        fnSubmit(cStore);
        // The commit folds the history into the database file, so that every
        // later command starts from an empty log.
        cStore.Commit();
    }
    catch (...)
    {
        cStore.Rollback();
        throw;
    }
    return eExitOk;
}

int Load(const std::string& strDir, const std::string& strFile)
{
    nlohmann::json jHistory;
    try
    {
        jHistory = nlohmann::json::parse(ReadWholeFile(strFile));
    }
    catch (const nlohmann::json::exception& e)
    {
        throw std::runtime_error(strFile + ": " + e.what());
    }
    THistory tHistory = ParseHistory(jHistory);
    std::vector<std::string> astrMessages;
    int nStatus = Submit(strDir, [&](CStore& rStore) { astrMessages = SubmitHistory(rStore, tHistory); });
    for (const std::string& strMessage : astrMessages)
        std::cout << strMessage << "\n";
    return nStatus;
}

int Generate(const TAdminArgs& tArgs)
{
    TGenerateOptions tOptions;
    tOptions.nChanges = NumberOption(tArgs, "--changes", tOptions.nChanges);
    tOptions.nBranches = NumberOption(tArgs, "--branches", tOptions.nBranches);
    tOptions.nFiles = NumberOption(tArgs, "--files", tOptions.nFiles);
    tOptions.nSeed =
        static_cast<unsigned long long>(NumberOption(tArgs, "--seed", static_cast<long long>(tOptions.nSeed)));
    auto itJson = tArgs.mapOptions.find("--json");
    std::string strJson = itJson == tArgs.mapOptions.end() ? "" : itJson->second;
    return Submit(tArgs.astrPositional[0], [&](CStore& rStore) {
        CSubmitter cSubmitter(rStore);
        if (strJson.empty())
        {
            GenerateHistory(tOptions, cSubmitter);
            return;
        }
        CHistoryCollector cCollector(cSubmitter);
        GenerateHistory(tOptions, cCollector);
        std::ofstream cFile(strJson, std::ios::binary | std::ios::trunc);
        if (!cFile)
            throw std::runtime_error("cannot write " + strJson);
        cFile << HistoryToJson(cCollector.History()).dump(1) << "\n";
    });
}

std::string LimitText(long long nLimit)
{
    return nLimit > 0 ? std::to_string(nLimit) : "unlimited";
}

// Sets the limits that the options give (-1: not given) on an existing
// server, then prints both.
int Limits(const std::string& strDir, long long nMaxResults, long long nMaxScanRows)
{
    if (!FileExists(CStore::DbPath(strDir)))
    {
        std::cerr << "p4sim admin: no server in " << strDir << "\n";
        return eExitFailed;
    }
    CStore cStore(strDir);
    bool bWrites = nMaxResults >= 0 || nMaxScanRows >= 0;
    cStore.Begin(bWrites);
    if (nMaxResults >= 0)
        cStore.SetMaxResults(nMaxResults);
    if (nMaxScanRows >= 0)
        cStore.SetMaxScanRows(nMaxScanRows);
    std::string strText =
        "MaxResults: " + LimitText(cStore.MaxResults()) + "\nMaxScanRows: " + LimitText(cStore.MaxScanRows()) + "\n";
    cStore.Commit();
    std::cout << strText;
    return eExitOk;
}

// One admin command with its arguments; help and usage errors handled by
// the caller.
int RunCommand(const std::string& strCommand, const std::vector<std::string>& astrArgs)
{
    if (strCommand == "init")
    {
        TAdminArgs tArgs = SplitAdminArgs(strCommand, astrArgs, {});
        ExpectPositional(strCommand, tArgs, 1, "DIR");
        return Init(tArgs.astrPositional[0]);
    }
    if (strCommand == "load")
    {
        TAdminArgs tArgs = SplitAdminArgs(strCommand, astrArgs, {});
        ExpectPositional(strCommand, tArgs, 2, "DIR and HISTORY.json");
        return Load(tArgs.astrPositional[0], tArgs.astrPositional[1]);
    }
    if (strCommand == "limits")
    {
        TAdminArgs tArgs = SplitAdminArgs(strCommand, astrArgs, {"--max-results", "--max-scan-rows"});
        ExpectPositional(strCommand, tArgs, 1, "DIR");
        return Limits(tArgs.astrPositional[0], NumberOption(tArgs, "--max-results", -1, strCommand),
                      NumberOption(tArgs, "--max-scan-rows", -1, strCommand));
    }
    TAdminArgs tArgs = SplitAdminArgs(strCommand, astrArgs, {"--changes", "--branches", "--files", "--seed", "--json"});
    ExpectPositional(strCommand, tArgs, 1, "DIR");
    return Generate(tArgs);
}

const char* HelpOf(const std::string& strCommand)
{
    if (strCommand == "init")
        return s_pszInitHelp;
    if (strCommand == "load")
        return s_pszLoadHelp;
    if (strCommand == "generate")
        return s_pszGenerateHelp;
    if (strCommand == "limits")
        return s_pszLimitsHelp;
    return nullptr;
}

} // namespace

int RunAdmin(const std::vector<std::string>& astrArgs)
{
    if (!astrArgs.empty() && (IsHelp(astrArgs[0]) || astrArgs[0] == "help"))
    {
        const char* pszHelp = astrArgs.size() > 1 ? HelpOf(astrArgs[1]) : nullptr;
        std::cout << (pszHelp ? std::string(pszHelp) : std::string(g_pszAdminUsage) + s_pszAdminHelpEnd);
        return eExitOk;
    }
    std::string strCommand = astrArgs.empty() ? "" : astrArgs[0];
    const char* pszHelp = HelpOf(strCommand);
    std::vector<std::string> astrRest(astrArgs.begin() + (astrArgs.empty() ? 0 : 1), astrArgs.end());
    try
    {
        if (!pszHelp)
            throw EUsageError(strCommand.empty() ? "p4sim admin: no command given"
                                                 : "p4sim admin: unknown command '" + strCommand + "'");
        for (const std::string& strArg : astrRest)
        {
            if (IsHelp(strArg))
            {
                std::cout << pszHelp;
                return eExitOk;
            }
        }
        return RunCommand(strCommand, astrRest);
    }
    catch (const EUsageError& e)
    {
        std::cerr << e.what() << "\n" << (pszHelp ? Trim(SplitLines(pszHelp)[0]) + "\n" : g_pszAdminUsage);
        return eExitUsage;
    }
    catch (const std::exception& e)
    {
        std::cerr << "p4sim admin: " << e.what() << "\n";
        return eExitFailed;
    }
}

} // namespace P4SIM
} // namespace ORVANE
