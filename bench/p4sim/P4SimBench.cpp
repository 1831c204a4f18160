// Cost per p4sim command at a given history size: generates a server in a
// temporary folder (or copies one), then runs each command many times as a
// child process, as the migration module does, and prints the mean wall and
// CPU time of one invocation, with the sizes of the database and its log.
//
//   p4sim_bench [--changes N] [--branches B] [--files F] [--seed S] [--runs R]
//               [--json FILE] [--p4sim EXE] [--from DIR]
#include "BenchPlan.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <ftw.h>
#include <sys/resource.h>
#include <unistd.h>

#include "host/ChildProcess.h"

using namespace ORVANE::P4SIMBENCH;

namespace {

std::string g_exe = P4SIM_EXE;
double g_cpuMs = 0; // user + system time of the children run so far

// Runs p4sim with the arguments and the input, its output dropped; its exit
// status. Its CPU time is added to g_cpuMs.
int Run(const std::vector<std::string>& args, const std::string& input = "")
{
    int in[2];
    if (!ORVANE::VCM::MakePipe(in))
        return -1;
    int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ORVANE::VCM::TSpawnOptions options;
    options.nStdIn = in[0];
    options.nStdOut = null;
    options.nStdErr = null;
    std::vector<std::string> argv = {g_exe};
    argv.insert(argv.end(), args.begin(), args.end());
    ORVANE::VCM::CChildProcess child;
    const int error = child.Start(argv, options);
    ORVANE::VCM::CloseDescriptor(in[0]);
    ORVANE::VCM::CloseDescriptor(null);
    if (error == 0 && !input.empty())
        ORVANE::VCM::WriteAll(in[1], input.data(), input.size());
    ORVANE::VCM::CloseDescriptor(in[1]);
    if (error != 0)
        return -1;
    const int status = child.Wait();
    const struct rusage& ru = child.GetUsage();
    g_cpuMs +=
        (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000.0 + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1000.0;
    return status;
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*)
{
    chmod(path, 0700);
    remove(path);
    return 0;
}

// One invocation of a case: its arguments and what goes to its standard
// input.
struct TInvocation
{
    std::vector<std::string> astrArgs;
    std::string strInput;
};

// A measured command: the invocations run in turn, R in all.
struct TCase
{
    std::string strName;
    std::vector<TInvocation> atCycle;
    double dWallMs = 0, dCpuMs = 0;
    int nFailures = 0;
};

void Measure(TCase& rCase, int nRuns)
{
    g_cpuMs = 0;
    auto tStart = std::chrono::steady_clock::now();
    for (int i = 0; i < nRuns; ++i)
    {
        const TInvocation& tRun = rCase.atCycle[size_t(i) % rCase.atCycle.size()];
        if (Run(tRun.astrArgs, tRun.strInput) != 0)
            ++rCase.nFailures;
    }
    auto tEnd = std::chrono::steady_clock::now();
    rCase.dWallMs = std::chrono::duration<double, std::milli>(tEnd - tStart).count() / nRuns;
    rCase.dCpuMs = g_cpuMs / nRuns;
}

std::string ClientForm(const std::string& strRoot, const std::vector<std::string>& astrStreams, int nVariant)
{
    // Quoted view lines and options ending in a blank, as the module writes
    // them; two descriptions, so that each save changes the spec.
    std::string strForm =
        "Client: bench_ws\nOwner: bench\nHost: \nDescription: bench client " + std::to_string(nVariant) +
        "\nRoot: " + strRoot +
        "\nOptions: noallwrite clobber nocompress unlocked modtime normdir \nLineEnd: local\nView: \n";
    for (const std::string& strStream : astrStreams)
        strForm += " \"//depot/" + strStream + "/...\" \"//bench_ws/" + strStream + "/...\"\n";
    return strForm;
}

std::string SyncName(const TSyncPair& tPair)
{
    return "sync of " + std::to_string(tPair.nFiles) + " files, " + std::to_string(tPair.nBytes / 2048) + " KB (@" +
           std::to_string(tPair.nFrom) + " <-> @" + std::to_string(tPair.nTo) + ")";
}

std::vector<TCase> Cases(const TBenchPicks& tPicks, const std::string& strWs, const std::string& strForm1,
                         const std::string& strForm2)
{
    std::string strDescribe = std::to_string(tPicks.nDescribe);
    auto fnSync = [&](long long nChange) {
        return TInvocation{{"sync", strWs + "/...@" + std::to_string(nChange)}, ""};
    };
    return {
        {"p4sim -V (process start, the floor)", {{{"-V"}, ""}}},
        {"-G describe -s " + strDescribe + " (" + std::to_string(tPicks.nDescribeFiles) + " files)",
         {{{"-G", "describe", "-s", strDescribe}, ""}}},
        {"-G describe " + strDescribe + " (the module's form)", {{{"-G", "describe", strDescribe}, ""}}},
        {"-G changes -m1 //depot/main/...", {{{"-G", "changes", "-m1", "//depot/main/..."}, ""}}},
        {"-G changes //depot/main/... (the module's form: all)", {{{"-G", "changes", "//depot/main/..."}, ""}}},
        {"-G branches", {{{"-G", "branches"}, ""}}},
        {"-G branch -o rel1", {{{"-G", "branch", "-o", "rel1"}, ""}}},
        {"-G info", {{{"-G", "info"}, ""}}},
        {"-G users", {{{"-G", "users"}, ""}}},
        {"client -i (saved: the spec changes)", {{{"client", "-i"}, strForm1}, {{"client", "-i"}, strForm2}}},
        {SyncName(tPicks.tSync10), {fnSync(tPicks.tSync10.nTo), fnSync(tPicks.tSync10.nFrom)}},
        {SyncName(tPicks.tSync100), {fnSync(tPicks.tSync100.nTo), fnSync(tPicks.tSync100.nFrom)}},
    };
}

std::string JsonText(const std::string& str)
{
    std::string strOut = "\"";
    for (char c : str)
    {
        if (c == '"' || c == '\\')
            strOut += '\\';
        strOut += c;
    }
    return strOut + "\"";
}

struct TSizes
{
    long long nDbAfterGenerate = 0, nWalAfterGenerate = 0, nDbAfterCommands = 0, nWalAfterCommands = 0;
};

void WriteJson(const std::string& strPath, const TBenchOptions& tOptions, double dGenerateMs, double dGenerateCpuMs,
               const TSizes& tSizes, const std::vector<TCase>& atCases)
{
    std::ofstream cOut(strPath, std::ios::trunc);
    cOut << "{\"changes\": " << tOptions.nChanges << ", \"branches\": " << tOptions.nBranches
         << ", \"files\": " << tOptions.nFiles << ", \"seed\": " << tOptions.nSeed << ", \"runs\": " << tOptions.nRuns
         << ",\n \"generate\": {\"wall_ms\": " << dGenerateMs << ", \"cpu_ms\": " << dGenerateCpuMs << "},\n"
         << " \"sizes\": {\"db_after_generate\": " << tSizes.nDbAfterGenerate
         << ", \"wal_after_generate\": " << tSizes.nWalAfterGenerate
         << ", \"db_after_commands\": " << tSizes.nDbAfterCommands
         << ", \"wal_after_commands\": " << tSizes.nWalAfterCommands << "},\n \"commands\": [";
    for (size_t i = 0; i < atCases.size(); ++i)
    {
        cOut << (i ? ",\n  " : "\n  ") << "{\"name\": " << JsonText(atCases[i].strName)
             << ", \"wall_ms\": " << atCases[i].dWallMs << ", \"cpu_ms\": " << atCases[i].dCpuMs
             << ", \"failures\": " << atCases[i].nFailures << "}";
    }
    cOut << "\n ]}\n";
}

// The server to measure: generated (timed), or copied from --from.
bool MakeServer(const TBenchOptions& tOptions, const std::string& strSrv, double& dMs, double& dCpuMs)
{
    auto tStart = std::chrono::steady_clock::now();
    g_cpuMs = 0;
    if (!tOptions.strFrom.empty())
    {
        mkdir(strSrv.c_str(), 0777);
        if (!CopyFile(tOptions.strFrom + "/p4sim.db", strSrv + "/p4sim.db"))
            return false;
    }
    else if (Run({"admin", "generate", strSrv, "--changes", std::to_string(tOptions.nChanges), "--branches",
                  std::to_string(tOptions.nBranches), "--files", std::to_string(tOptions.nFiles), "--seed",
                  std::to_string(tOptions.nSeed)}) != 0)
    {
        return false;
    }
    dMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - tStart).count();
    dCpuMs = g_cpuMs;
    return true;
}

void PrintHeader(const TBenchOptions& tOptions, const TBenchPicks& tPicks, double dMs, double dCpuMs,
                 const TSizes& tSizes)
{
    std::printf("p4sim benchmark: %lld changes, %lld branches, %lld files in the first change, seed %lld; "
                "mean of %d runs\n(wall: from start to exit of the child, as a caller sees it; cpu: its user + "
                "system time)\n",
                tPicks.nMaxChange, tOptions.nBranches, tOptions.nFiles, tOptions.nSeed, tOptions.nRuns);
    std::printf("  %-56s %10.0f ms wall %10.0f ms cpu\n",
                tOptions.strFrom.empty() ? "admin generate (once)" : "copy of the server (once)", dMs, dCpuMs);
    std::printf("  %-56s %10.1f MB db %8.1f MB log\n", "files after generate", tSizes.nDbAfterGenerate / 1048576.0,
                tSizes.nWalAfterGenerate / 1048576.0);
}

} // namespace

int main(int argc, char** argv)
{
    TBenchOptions tOptions;
    bool bHelp = false;
    if (!ParseBenchOptions(argc, argv, tOptions, bHelp))
        return 2;
    if (bHelp)
    {
        std::fputs(g_pszBenchUsage, stdout);
        return 0;
    }
    if (!tOptions.strExe.empty())
        g_exe = tOptions.strExe;
    char szTemplate[] = "/tmp/p4sim-bench-XXXXXX";
    if (!mkdtemp(szTemplate))
        return 1;
    std::string strRoot = szTemplate, strSrv = strRoot + "/srv", strWs = strRoot + "/ws";
    setenv("P4PORT", ("sim:" + strSrv).c_str(), 1);
    setenv("P4USER", "bench", 1);
    setenv("P4CLIENT", "bench_ws", 1);
    setenv("P4HOST", "benchhost", 1);

    double dMs = 0, dCpuMs = 0;
    if (!MakeServer(tOptions, strSrv, dMs, dCpuMs))
    {
        std::fprintf(stderr, "p4sim_bench: no server to measure\n");
        nftw(strRoot.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
        return 1;
    }
    TSizes tSizes;
    tSizes.nDbAfterGenerate = FileBytes(strSrv + "/p4sim.db");
    tSizes.nWalAfterGenerate = std::max(0LL, FileBytes(strSrv + "/p4sim.db-wal"));
    TBenchPicks tPicks = PickChanges(strSrv);
    PrintHeader(tOptions, tPicks, dMs, dCpuMs, tSizes);

    std::string strForm1 = ClientForm(strWs, tPicks.astrStreams, 1),
                strForm2 = ClientForm(strWs, tPicks.astrStreams, 2);
    Run({"client", "-i"}, strForm1);
    Run({"sync", strWs + "/...@" + std::to_string(tPicks.tSync10.nFrom)});
    std::vector<TCase> atCases = Cases(tPicks, strWs, strForm1, strForm2);
    for (TCase& rCase : atCases)
    {
        if (rCase.atCycle[0].astrArgs[0] == "sync")
            Run(rCase.atCycle.back().astrArgs); // the case starts where its cycle ends
        Measure(rCase, tOptions.nRuns);
        std::printf("  %-56s %10.2f ms wall %10.2f ms cpu%s\n", rCase.strName.c_str(), rCase.dWallMs, rCase.dCpuMs,
                    rCase.nFailures ? "  (some runs failed)" : "");
    }
    tSizes.nDbAfterCommands = FileBytes(strSrv + "/p4sim.db");
    tSizes.nWalAfterCommands = std::max(0LL, FileBytes(strSrv + "/p4sim.db-wal"));
    std::printf("  %-56s %10.1f MB db %8.1f MB log\n", "files after the commands", tSizes.nDbAfterCommands / 1048576.0,
                tSizes.nWalAfterCommands / 1048576.0);
    if (!tOptions.strJson.empty())
        WriteJson(tOptions.strJson, tOptions, dMs, dCpuMs, tSizes, atCases);
    nftw(strRoot.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
    return 0;
}
