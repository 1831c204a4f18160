// The table of p4 commands: names, options, usage lines.
#include "Commands.h"

namespace ORVANE {
namespace P4SIM {

namespace {

const char* const s_pszBranchesUsage = "branches [ -t ] [ -u user ] [ [-e|-E] query -m max ]";
const char* const s_pszBranchUsage = "branch [ -d -f -o -i ] branchname";
const char* const s_pszLabelUsage = "label [ -d -f -g -i -o -t template ] labelname";
const char* const s_pszLabelsUsage =
    "labels [ -t ] [ -u user ] [ [-e|-E] query -m max ] [ -a | -s serverID ] [ file[revrange] ]";
const char* const s_pszChangesUsage =
    "changes [ -c client -e changelist# -i -l -L -f -m max -r -s status -t -u user ] [ file[revRange] ... ]";
const char* const s_pszDescribeUsage = "describe [-d<flags> -m max -s -S -f -O -I] changelist# ...";
const char* const s_pszClientUsage = "client [ -d -f -Fs -i -o -t template ] [ clientname ]";
const char* const s_pszClientsUsage = "clients [ -t ] [ -u user ] [ [-e|-E] query -m max ] [ -a ]";
const char* const s_pszSyncUsage = "sync [ -f -L -n -N -k -q -r ] [-m max] [ file[revRange] ... ]";
const char* const s_pszFilesUsage = "files [ -a ] [ -A ] [ -e ] [ -m max ] file[revRange] ...";
const char* const s_pszFstatUsage =
    "fstat [ -F filter -T fields -m max -r ] [ -c | -e changelist# ] [ -Ox -Rx -Sx ] file[rev] ...";
const char* const s_pszPrintUsage =
    "print [-a -A -k -o localFile -q -m max] [--offset offset --size size] file[revRange] ...";

} // namespace

const std::vector<TCommandSpec>& AllCommands()
{
    static const std::vector<TCommandSpec> s_atCommands = {
        {"branch", CmdBranch, "dfoi", "", s_pszBranchUsage, eWritesUnlessOutput},
        {"branches", CmdBranches, "t", "umeE", s_pszBranchesUsage, eReadOnly},
        {"changes", CmdChanges, "ilLtfr", "cemsu", s_pszChangesUsage, eReadOnly},
        {"changelists", CmdChanges, "ilLtfr", "cemsu", s_pszChangesUsage, eReadOnly},
        {"client", CmdClient, "dfoiFs", "tS", s_pszClientUsage, eWritesUnlessOutput},
        {"clients", CmdClients, "ta", "umeES", s_pszClientsUsage, eReadOnly},
        {"describe", CmdDescribe, "sSfOI", "dm", s_pszDescribeUsage, eReadOnly},
        {"files", CmdFiles, "aAe", "m", s_pszFilesUsage, eReadOnly},
        {"fstat", CmdFstat, "rL", "FTmceOSRA", s_pszFstatUsage, eReadOnly},
        {"get", CmdSync, "fnkNpqLr", "m", s_pszSyncUsage, eWrites},
        {"have", CmdHave, "", "", "have [ file ... ]", eReadOnly},
        {"info", CmdInfo, "s", "", "info [ -s ]", eReadOnly},
        {"integrated", CmdIntegrated, "", "sm", "integrated [ -s change | -m max ] file ...", eReadOnly},
        {"label", CmdLabel, "dfgio", "t", s_pszLabelUsage, eReadOnly},
        {"labels", CmdLabels, "taU", "umeEs", s_pszLabelsUsage, eReadOnly},
        {"login", CmdLogin, "asp", "h", "login [ -a -p ] [ -h host ] [ user ]", eReadOnly},
        {"print", CmdPrint, "aAkqU", "om", s_pszPrintUsage, eReadOnly},
        {"sync", CmdSync, "fnkNpqLr", "m", s_pszSyncUsage, eWrites},
        {"users", CmdUsers, "alr", "m", "users [ -l -a -r ] [ -m max ] [ user ... ]", eReadOnly},
        {"where", CmdWhere, "", "", "where [ file ... ]", eReadOnly},
        {"workspace", CmdClient, "dfoiFs", "tS", s_pszClientUsage, eWritesUnlessOutput},
        {"workspaces", CmdClients, "ta", "umeES", s_pszClientsUsage, eReadOnly},
    };
    return s_atCommands;
}

const TCommandSpec* FindCommand(const std::string& strName)
{
    for (const TCommandSpec& tCommand : AllCommands())
    {
        if (strName == tCommand.pszName)
            return &tCommand;
    }
    return nullptr;
}

} // namespace P4SIM
} // namespace ORVANE
