// The test switches, set in the environment: P4SIM_JOURNAL (a JSON line per
// invocation), P4SIM_FAIL (matching invocations fail), P4SIM_LATENCY_MS (a
// wait before each invocation), P4SIM_GARBLE and P4SIM_GARBLE_MODE (broken
// -G output).
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// The arguments after the program, joined by blanks: what P4SIM_FAIL and
// P4SIM_GARBLE are matched against.
std::string JoinedArgs(const std::vector<std::string>& astrArgv);

// Does the POSIX extended regular expression in the variable match text
// anywhere? False when the variable is unset or empty.
bool MatchesEnvRegex(const char* pszVariable, const std::string& strText);

// Waits P4SIM_LATENCY_MS milliseconds, if set.
void WaitLatency();

// Breaks marshalled output the way P4SIM_GARBLE_MODE says.
std::string Garble(const std::string& strOut);

// Appends the invocation's line to P4SIM_JOURNAL, if set.
void Journal(const std::vector<std::string>& astrArgv, const std::string& strCwd, const std::string& strInput,
             int nStatus);

// Writes all of the text to the file descriptor.
void WriteAll(int nFd, const std::string& strText);

} // namespace P4SIM
} // namespace ORVANE
