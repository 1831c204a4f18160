// Runs a program whose output is read as it comes, on any thread: for the
// commands that fetch from the server ahead of the module, which must not
// pass the process-wide gateway and must stop at once when asked.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

struct TStreamedRun
{
    int nStatus = -1;      // the exit status (128 + N: ended by signal N)
    std::string strError;  // what it wrote on standard error, or why it did not start
    bool bStopped = false; // killed because a stop was asked or the reader stopped
};

// Runs the program with the arguments (astrArgs[0] looked up along PATH
// when it has no '/') and the environment ("NAME=value" entries); each
// piece of its standard output goes to fnOutput as it arrives (false: the
// child is killed). fnStop is asked a few times a second.
TStreamedRun RunStreamed(const std::vector<std::string>& astrArgs, const std::vector<std::string>& astrEnvironment,
                         const std::function<bool(const char*, size_t)>& fnOutput, const std::function<bool()>& fnStop);

// Waits before try nTry + 1 of a command (fFirstWait seconds, doubled for
// each further try), in slices so that a stop asked for meanwhile is seen
// at once; false when fnStop said stop.
bool WaitBeforeRetry(unsigned nTry, double fFirstWait, const std::function<bool()>& fnStop);

// This process's environment as "NAME=value" entries.
std::vector<std::string> CurrentEnvironment();

} // namespace IMP
} // namespace ORVANE
