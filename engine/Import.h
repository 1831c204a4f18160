// One migration: the provider driven in the order it requires, its history
// written to git and to the dump.
#pragma once

#include <csignal>
#include <string>
#include <utility>
#include <vector>

namespace ORVANE {
namespace IMP {

struct TOptions
{
    std::string strProvider = "p4";
    std::string strModule;
    std::vector<std::pair<std::string, std::string>> atSettings;
    bool bListSettings = false;
    std::string strWorkspace;
    bool bKeepWorkspace = false;
    std::string strLog;
    bool bLogToConsole = false;
    bool bStreamsOnly = false;
    std::string strGraph;
    bool bProgress = false;
    bool bQuiet = false;
    std::string strGit;
    std::string strDump;
    bool bVerify = false;
};

// The signal that asked the run to stop, or 0.
extern volatile std::sig_atomic_t g_nStopSignal;

// Exit status: 0 done, 1 the migration failed, 2 usage, 128 + N stopped by
// signal N.
int RunImport(const TOptions& tOptions);

} // namespace IMP
} // namespace ORVANE
