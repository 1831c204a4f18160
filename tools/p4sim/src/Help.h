// p4sim's own help: `p4sim --help`, `p4sim help [COMMAND]` and
// `p4sim COMMAND --help`.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// The program's usage, its commands and where to find more.
std::string GlobalHelp();
// `p4sim help [COMMAND]`: the command's usage line, or the global help.
// False for a command p4sim does not know (strOut then holds the error).
bool HelpFor(const std::vector<std::string>& astrArgs, std::string& strOut);
// Does a command's argument list ask for help (--help before its first file
// argument)?
bool AsksForHelp(const std::vector<std::string>& astrArgs);

// The global options' usage line, as an invalid option shows it.
extern const char* const g_pszGlobalUsage;

} // namespace P4SIM
} // namespace ORVANE
