// `p4sim admin ...`: creating, loading and generating server states. These
// are p4sim's own commands, not `p4` commands.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// Runs one admin command (the arguments after "admin"); returns the exit
// status. Help goes to standard output, messages to standard error.
int RunAdmin(const std::vector<std::string>& astrArgs);

// The usage lines of the admin commands.
extern const char* const g_pszAdminUsage;

} // namespace P4SIM
} // namespace ORVANE
