#include "BenchPlan.h"

#include "Store.h"
#include "Text.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>

#include <sys/stat.h>

namespace ORVANE {
namespace P4SIMBENCH {

using P4SIM::CStore;
using P4SIM::TRevRec;

const char* const g_pszBenchUsage =
    "Usage: p4sim_bench [--changes N] [--branches B] [--files F] [--seed S] [--runs R] [--json FILE]\n"
    "                   [--p4sim EXE] [--from DIR]\n"
    "\n"
    "Generates a server (or copies the one in DIR), then runs each command R times as a child\n"
    "process and prints the mean wall and CPU time of one invocation.\n";

namespace {

bool NumberValue(const std::string& strName, const char* pszValue, long long& nOut)
{
    if (P4SIM::ParseUInt(pszValue, nOut))
        return true;
    std::fprintf(stderr, "p4sim_bench: %s: not a number: '%s'\n%s", strName.c_str(), pszValue, g_pszBenchUsage);
    return false;
}

// The files of a change under the streams the client maps.
size_t FilesOf(CStore& rStore, long long nChange, std::set<std::string>* psetInto = nullptr)
{
    size_t nCount = 0;
    for (const TRevRec& tRev : rStore.RevsOfChange(nChange))
    {
        ++nCount;
        if (psetInto)
            psetInto->insert(tRev.strDepotFile);
    }
    return nCount;
}

// From nStart on: the first run of consecutive changes that together touch
// at least nFiles files, none of them more than half again as many.
TSyncPair PickSyncPair(CStore& rStore, long long nStart, long long nMaxChange, size_t nFiles,
                       std::set<std::string>& setFiles)
{
    TSyncPair tPair;
    tPair.nFrom = nStart;
    for (long long nChange = nStart + 1; nChange <= nMaxChange; ++nChange)
    {
        std::set<std::string> setChange;
        if (FilesOf(rStore, nChange, &setChange) > nFiles + nFiles / 2)
        {
            // Too big a change (a branch, say): start again after it.
            setFiles.clear();
            tPair.nFrom = nChange;
            continue;
        }
        setFiles.insert(setChange.begin(), setChange.end());
        if (setFiles.size() >= nFiles)
        {
            tPair.nTo = nChange;
            tPair.nFiles = setFiles.size();
            return tPair;
        }
    }
    tPair.nTo = nMaxChange;
    tPair.nFiles = setFiles.size();
    return tPair;
}

// The bytes a sync writes going from one change of the pair to the other
// and back.
long long PairBytes(CStore& rStore, const std::set<std::string>& setFiles, const TSyncPair& tPair)
{
    long long nBytes = 0;
    for (const std::string& strFile : setFiles)
    {
        for (long long nAt : {tPair.nFrom, tPair.nTo})
        {
            std::optional<TRevRec> tHead = rStore.HeadRev(strFile, nAt);
            if (tHead && !tHead->Deleted())
                nBytes += tHead->nSize;
        }
    }
    return nBytes;
}

// Of the runs that start at the next changes, one of exactly nFiles files
// whose contents come closest to nBytes (both ways): the same work at every
// history size.
TSyncPair ClosestSyncPair(CStore& rStore, long long nStart, long long nMaxChange, size_t nFiles, long long nBytes)
{
    TSyncPair tBest;
    long long nBestScore = -1;
    for (long long nFrom = nStart; nFrom < nStart + 300 && nFrom < nMaxChange; ++nFrom)
    {
        std::set<std::string> setFiles;
        TSyncPair tPair = PickSyncPair(rStore, nFrom, nMaxChange, nFiles, setFiles);
        tPair.nBytes = PairBytes(rStore, setFiles, tPair);
        long long nScore =
            std::llabs(tPair.nBytes - nBytes) +
            (tPair.nFiles == nFiles ? 0 : 1000000000LL * std::llabs((long long)tPair.nFiles - (long long)nFiles));
        if (nBestScore < 0 || nScore < nBestScore)
        {
            tBest = tPair;
            nBestScore = nScore;
        }
    }
    return tBest;
}

} // namespace

bool ParseBenchOptions(int nArgc, char** ppszArgv, TBenchOptions& tOptions, bool& bHelp)
{
    bHelp = false;
    for (int i = 1; i < nArgc; ++i)
    {
        std::string strArg = ppszArgv[i];
        if (strArg == "--help" || strArg == "-h")
        {
            bHelp = true;
            return true;
        }
        if (i + 1 >= nArgc)
        {
            std::fprintf(stderr, "p4sim_bench: unknown option or missing value: '%s'\n%s", strArg.c_str(),
                         g_pszBenchUsage);
            return false;
        }
        const char* pszValue = ppszArgv[++i];
        long long nRuns = 0;
        bool bOk = true;
        if (strArg == "--changes")
            bOk = NumberValue(strArg, pszValue, tOptions.nChanges);
        else if (strArg == "--branches")
            bOk = NumberValue(strArg, pszValue, tOptions.nBranches);
        else if (strArg == "--files")
            bOk = NumberValue(strArg, pszValue, tOptions.nFiles);
        else if (strArg == "--seed")
            bOk = NumberValue(strArg, pszValue, tOptions.nSeed);
        else if (strArg == "--runs")
        {
            bOk = NumberValue(strArg, pszValue, nRuns);
            tOptions.nRuns = nRuns > 0 ? int(nRuns) : 1;
        }
        else if (strArg == "--json")
            tOptions.strJson = pszValue;
        else if (strArg == "--p4sim")
            tOptions.strExe = pszValue;
        else if (strArg == "--from")
            tOptions.strFrom = pszValue;
        else
        {
            std::fprintf(stderr, "p4sim_bench: unknown option '%s'\n%s", strArg.c_str(), g_pszBenchUsage);
            return false;
        }
        if (!bOk)
            return false;
    }
    return true;
}

TBenchPicks PickChanges(const std::string& strDir)
{
    CStore cStore(strDir);
    cStore.Begin(false);
    TBenchPicks tPicks;
    tPicks.nMaxChange = cStore.MaxChange();
    tPicks.astrStreams.push_back("main");
    for (const P4SIM::TBranchRec& tBranch : cStore.Branches())
        tPicks.astrStreams.push_back(tBranch.strName);
    long long nMiddle = tPicks.nMaxChange / 2;
    for (long long nChange = nMiddle; nChange <= tPicks.nMaxChange && !tPicks.nDescribe; ++nChange)
    {
        size_t nFiles = FilesOf(cStore, nChange);
        if (nFiles >= 8 && nFiles <= 12)
        {
            tPicks.nDescribe = nChange;
            tPicks.nDescribeFiles = nFiles;
        }
    }
    if (!tPicks.nDescribe)
    {
        tPicks.nDescribe = nMiddle;
        tPicks.nDescribeFiles = FilesOf(cStore, nMiddle);
    }
    tPicks.tSync10 = ClosestSyncPair(cStore, nMiddle, tPicks.nMaxChange, 10, 80000);
    tPicks.tSync100 = ClosestSyncPair(cStore, nMiddle, tPicks.nMaxChange, 100, 800000);
    cStore.Rollback();
    return tPicks;
}

bool CopyFile(const std::string& strFrom, const std::string& strTo)
{
    std::ifstream cIn(strFrom, std::ios::binary);
    std::ofstream cOut(strTo, std::ios::binary | std::ios::trunc);
    if (!cIn || !cOut)
        return false;
    cOut << cIn.rdbuf();
    return bool(cOut);
}

long long FileBytes(const std::string& strPath)
{
    struct stat tStat;
    return stat(strPath.c_str(), &tStat) == 0 ? static_cast<long long>(tStat.st_size) : -1;
}

} // namespace P4SIMBENCH
} // namespace ORVANE
