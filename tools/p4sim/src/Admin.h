// `p4sim admin ...`: creating, loading and generating server states. These
// are p4sim's own commands, not `p4` commands.
#pragma once

#include <string>
#include <vector>

namespace p4sim {

// Runs one admin command; returns the exit status. Messages go to standard
// error, results to standard output.
int RunAdmin(const std::vector<std::string>& args);

}  // namespace p4sim
