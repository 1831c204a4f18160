// What p4sim_bench measures: its options, and the changes it picks from the
// generated history so that every history size is measured on work of the
// same size.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIMBENCH {

struct TBenchOptions
{
    long long nChanges = 1000;
    long long nBranches = 4;
    long long nFiles = 300;
    long long nSeed = 1;
    int nRuns = 30;
    std::string strJson; // --json FILE: the figures as JSON too
    std::string strExe;  // --p4sim EXE: another p4sim (say, an older build)
    std::string strFrom; // --from DIR: a copy of that server instead of generating one
};

// Reads the command line; false (after a message) when it is wrong.
bool ParseBenchOptions(int nArgc, char** ppszArgv, TBenchOptions& tOptions, bool& bHelp);
extern const char* const g_pszBenchUsage;

// Two changes between which a sync of the whole client moves nFiles files
// with nBytes of contents (there and back).
struct TSyncPair
{
    long long nFrom = 0, nTo = 0;
    size_t nFiles = 0;
    long long nBytes = 0;
};

// The changes the benchmark works with, chosen from the middle of the
// history onwards.
struct TBenchPicks
{
    long long nMaxChange = 0;
    long long nDescribe = 0; // a change of about ten files
    size_t nDescribeFiles = 0;
    TSyncPair tSync10, tSync100;
    std::vector<std::string> astrStreams; // main, rel1, ...
};

// Reads the server in strDir (in this process, through p4sim's store).
TBenchPicks PickChanges(const std::string& strDir);

// A copy of a file, byte for byte; false when it fails.
bool CopyFile(const std::string& strFrom, const std::string& strTo);
long long FileBytes(const std::string& strPath); // -1 when missing

} // namespace P4SIMBENCH
} // namespace ORVANE
