// The test switches, set in the environment: P4SIM_JOURNAL (a JSON line per
// invocation), P4SIM_FAIL (matching invocations fail), P4SIM_LATENCY_MS (a
// wait before each invocation), P4SIM_GARBLE and P4SIM_GARBLE_MODE (broken
// -G output), P4SIM_TICKET (an expired or missing login ticket), P4SIM_DROP
// with P4SIM_DROP_AT, P4SIM_DROP_TIMES and P4SIM_DROP_COUNTER (a connection
// that drops in the middle of a command).
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

// The state of the user's login ticket that P4SIM_TICKET asks for.
enum TTicketState
{
    eTicketValid,   // unset, or any other value
    eTicketExpired, // "expired"
    eTicketMissing  // "missing"
};
TTicketState TicketState();

// Counts one more invocation that matched P4SIM_DROP, in the counter file
// (P4SIM_DROP_COUNTER, or strDefaultCounter), under an exclusive lock so
// that p4sim processes running at once count each invocation once. True
// when this one is to drop its connection: the P4SIM_DROP_AT-th (default
// 1st) and the P4SIM_DROP_TIMES-1 (default 0) after it.
bool CountDrop(const std::string& strDefaultCounter);

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
