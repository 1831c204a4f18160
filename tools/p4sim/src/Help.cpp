#include "Help.h"

#include "Admin.h"
#include "Commands.h"

namespace ORVANE {
namespace P4SIM {

const char* const g_pszGlobalUsage =
    "Usage: p4 [ -G -c client -H host -p port -u user -x file -z tag -d dir ] command [ arg ... ]";

namespace {

// The command names, a few to a line.
std::string CommandList()
{
    std::string strOut, strLine = "   ";
    for (const TCommandSpec& tCommand : AllCommands())
    {
        if (strLine.size() + 1 + std::string(tCommand.pszName).size() > 78)
        {
            strOut += strLine + "\n";
            strLine = "   ";
        }
        strLine += std::string(" ") + tCommand.pszName;
    }
    return strOut + strLine + "\n";
}

} // namespace

std::string GlobalHelp()
{
    return "Usage: p4sim [ -G -z tag -c client -H host -p port -u user -d dir -x file ] command [ arg ... ]\n"
           "       p4sim -V | -h | --help\n"
           "       p4sim help [ command ]\n"
           "       p4sim admin init|load|generate|limits ...\n"
           "\n"
           "p4sim stands in for a Perforce server and its p4 client: each command runs\n"
           "against the server in DIR that P4PORT=sim:DIR (or -p sim:DIR) names.\n"
           "\n"
           "Commands:\n" +
           CommandList() +
           "\n"
           "'p4sim COMMAND --help' shows a command's usage, 'p4sim admin --help' the\n"
           "administration commands.\n";
}

bool HelpFor(const std::vector<std::string>& astrArgs, std::string& strOut)
{
    if (astrArgs.empty())
    {
        strOut = GlobalHelp();
        return true;
    }
    if (astrArgs[0] == "admin")
    {
        strOut = g_pszAdminUsage;
        return true;
    }
    const TCommandSpec* pCommand = FindCommand(astrArgs[0]);
    if (!pCommand)
    {
        strOut = "p4sim help: no such command '" + astrArgs[0] + "'\n";
        return false;
    }
    strOut = std::string("Usage: ") + pCommand->pszUsage + "\n";
    return true;
}

bool AsksForHelp(const std::vector<std::string>& astrArgs)
{
    for (const std::string& strArg : astrArgs)
    {
        if (strArg == "--help")
            return true;
        if (strArg == "--" || strArg.empty() || strArg[0] != '-')
            return false;
    }
    return false;
}

} // namespace P4SIM
} // namespace ORVANE
