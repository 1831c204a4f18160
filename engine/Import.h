// One migration: the provider driven in the order it requires, its history
// written to git and to the dump.
#pragma once

#include <string>
#include <vector>

#include "RunStats.h"
#include "Settings.h"

namespace ORVANE {
namespace IMP {

struct TOptions
{
    std::string strProvider = "p4";
    std::string strModule;
    TSettings atSettings;
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
    std::string strStats;
    // How often the branches are moved to the commits written so far.
    double fCheckpointSeconds = 60;
    std::string strAuthors;       // the authors file
    bool bAuthorsMissing = false; // list the users without a mapping, import nothing
    bool bLabels = false;         // Perforce labels become tags
    // A change that integrates everything of another stream up to one of
    // its changes becomes a merge commit.
    bool bMerges = true;
    // Failures of the module's commands that lose history are warnings,
    // and the module goes on as it does alone.
    bool bKeepGoing = false;
    // A command that failed on the way to the server is tried again this
    // often, after a wait that starts here and doubles.
    unsigned nRetries = 3;
    double fRetryWait = 1;
    // Connections that fetch from the server ahead of the provider (0:
    // none).
    unsigned nJobs = 8;
    // The code page of descriptions and names that are not UTF-8.
    std::string strMetadataEncoding = "cp1252";
    // Files of a +k type keep the keywords that sync expanded.
    bool bKeepKeywords = false;
    // Large files in Git LFS: from this size (main() has checked it; ""
    // none), and those that these patterns match.
    std::string strLfsThreshold;
    std::vector<std::string> astrLfsPatterns;
};

// Exit status: 0 done, 1 the migration failed, 2 usage, 128 + N stopped by
// signal N (see TExitStatus). pStats (when not null) is told of the changes
// imported and samples the staging files.
int RunImport(const TOptions& tOptions, CRunStats* pStats = nullptr);

} // namespace IMP
} // namespace ORVANE
