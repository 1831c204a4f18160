// orvane-import: migrates the history of a source system, through its
// migration module, into git.
#include <fcntl.h>
#include <langinfo.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "Import.h"
#include "Lfs.h"
#include "Process.h"
#include "RunStats.h"
#include "Stop.h"
#include "Supervisor.h"
#include "WorkerChannel.h"
#include "host/ProcessCapture.h"
#include "perforce/MetadataText.h"

#ifndef ORVANE_IMPORT_VERSION
#define ORVANE_IMPORT_VERSION "0"
#endif

namespace {

using ORVANE::IMP::TOptions;

// How long the module may go without any sign of work, and a p4 command
// without ending (0: no limit), before the run is taken to be stuck.
struct TLimits
{
    double fStallSeconds = 600;
    double fCommandSeconds = 0;
};

void OnStopSignal(int nSignal)
{
    ORVANE::IMP::g_nStopSignal = nSignal;
}

void OnSupervisorSignal(int nSignal)
{
    ORVANE::IMP::g_nSupervisorStop = nSignal;
}

// The module converts all text through the C library's locale: without a
// UTF-8 locale non-ASCII names would be lost.
void SetLocale()
{
    const char* psz = std::setlocale(LC_ALL, "");
    const char* pszCodeset = psz ? nl_langinfo(CODESET) : "";
    if (psz && std::strcmp(pszCodeset, "UTF-8") == 0)
        return;
    if (!std::setlocale(LC_ALL, "C.UTF-8"))
        std::fprintf(stderr, "orvane-import: warning: no UTF-8 locale; names beyond ASCII may be lost\n");
}

// Large files into Git LFS; the values are checked here, so that a wrong
// one is a usage error before anything starts.
void AddLfsOptions(CLI::App& app, TOptions& tOptions)
{
    app.add_option("--lfs-threshold", tOptions.strLfsThreshold,
                   "put files of this size or more into Git LFS (with --git): bytes, or with K, M, G or T (powers "
                   "of 1024): 500K, 50M, 1G")
        ->type_name("SIZE")
        ->check([](const std::string& str) {
            uint64_t n = 0;
            return ORVANE::IMP::ParseSize(str, n)
                       ? std::string()
                       : "'" + str + "' is not a size: bytes, or a whole number with K, M, G or T (500K, 50M, 1G)";
        });
    app.add_option("--lfs-pattern", tOptions.astrLfsPatterns,
                   "put the files that the pattern matches into Git LFS (repeatable; with --git): a .gitattributes "
                   "pattern, one without '/' matches the name in any folder ('*.psd', 'assets/**')")
        ->type_name("GLOB")
        ->check([](const std::string& str) { return ORVANE::IMP::PatternProblem(str); });
}

void AddOptions(CLI::App& app, TOptions& tOptions, std::vector<std::string>& astrSettings, TLimits& tLimits)
{
    app.add_option("--stall-timeout", tLimits.fStallSeconds,
                   "end the run when the module shows no sign of work (no p4 command, no result) for this long")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber)
        ->default_val(600);
    app.add_option("--command-timeout", tLimits.fCommandSeconds,
                   "end the run when one p4 command runs longer than this (default: no limit)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber)
        ->default_val(0);
    app.set_version_flag("--version", std::string("orvane-import ") + ORVANE_IMPORT_VERSION);
    app.add_option("--provider", tOptions.strProvider,
                   "provider id: loads liborvane-em-ID.so from the installation's lib/orvane/")
        ->default_val("p4");
    app.add_option("--module", tOptions.strModule, "the module file to load instead");
    app.add_option("--set", astrSettings, "a provider setting KEY=VALUE (repeatable); unset keys take their default")
        ->type_name("KEY=VALUE");
    app.add_flag("--list-settings", tOptions.bListSettings, "print the provider's settings and their defaults");
    app.add_option("--workspace", tOptions.strWorkspace,
                   "folder for the files of each change (default: a new temporary folder)");
    app.add_flag("--keep-workspace", tOptions.bKeepWorkspace, "do not remove the workspace at the end");
    app.add_option("--log", tOptions.strLog, "copy the import log to FILE at the end");
    app.add_flag("--log-to-console", tOptions.bLogToConsole, "also send the import log to standard error");
    app.add_flag("--streams-only", tOptions.bStreamsOnly, "discover and print the streams; import nothing");
    app.add_option("--graph", tOptions.strGraph, "write the stream tree as Graphviz DOT, or SVG when FILE ends in .svg")
        ->type_name("FILE");
    app.add_flag("--progress", tOptions.bProgress, "show progress on standard error even when it is no terminal");
    app.add_flag("--quiet", tOptions.bQuiet,
                 "print errors only; a run that ends well then keeps no import log (--log FILE keeps one)");
    app.add_option("--git", tOptions.strGit,
                   "write the history into a new bare git repository, or continue one that an earlier run made")
        ->type_name("DIR");
    app.add_option("--checkpoint", tOptions.fCheckpointSeconds,
                   "move the branches to the commits written so far this often (0: after every commit); a run "
                   "that is killed keeps what was imported until then")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber)
        ->default_val(60);
    app.add_option("--dump", tOptions.strDump,
                   "write everything received from the provider as JSON Lines ('-': stdout)")
        ->type_name("FILE");
    app.add_flag("--verify", tOptions.bVerify,
                 "compare each commit's tree with the synced folder; stop at a difference");
    app.add_option("--authors", tOptions.strAuthors,
                   "map Perforce users to git authors: lines 'user = Full Name <email>', '#' comments; they take "
                   "precedence over the server's user list")
        ->type_name("FILE");
    app.add_flag("--authors-missing", tOptions.bAuthorsMissing,
                 "list the users of the history that have no name and e-mail address, one a line; import nothing");
    app.add_flag("--merges", tOptions.bMerges,
                 "make a change that brings everything of another stream up to one of its changes a merge commit, "
                 "and name what a partial integration took in a Perforce-Integrated trailer (the default); the "
                 "choice is kept in the repository, and a run that continues it must make the same");
    app.add_flag_callback(
        "--no-merges", [&tOptions]() { tOptions.bMerges = false; },
        "every commit has one parent, integrations or not (without reading them)");
    app.add_flag("--labels", tOptions.bLabels,
                 "make each Perforce label that is one stream's state at one change an annotated tag (with --git)");
    app.add_flag("--keep-going", tOptions.bKeepGoing,
                 "when a p4 command of the module fails for good (the changes of a stream cannot be listed, a "
                 "change cannot be read or synced), warn and let the module go on without it, as it does alone; "
                 "without it the run stops with exit status 1 and writes nothing for that change");
    app.add_option("--retries", tOptions.nRetries,
                   "how often a p4 command that failed on the way to the server (a dropped connection, a time-out) "
                   "is tried again")
        ->type_name("N")
        ->check(CLI::Range(0u, 100u))
        ->default_val(3);
    app.add_option("--retry-wait", tOptions.fRetryWait,
                   "the wait before the first retry; each further one waits twice as long")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 3600.0))
        ->default_val(1);
    app.add_option("--jobs", tOptions.nJobs,
                   "how many connections to the server fetch change descriptions and file contents ahead of the "
                   "module, in batches, so that its syncs need not wait for the server; 0: none, every command "
                   "of the module reaches the server as it wrote it")
        ->type_name("N")
        ->check(CLI::Range(0u, 256u))
        ->default_val(8);
    app.add_flag("--keep-keywords", tOptions.bKeepKeywords,
                 "keep RCS keywords of +k files as sync expanded them ($Id: //depot/a.c#3 $); by default git gets "
                 "them unexpanded ($Id$), so that revisions and branches differ only where the files do");
    app.add_option("--metadata-encoding", tOptions.strMetadataEncoding,
                   "the code page of change descriptions, user and full names that are not UTF-8 (a server "
                   "without unicode keeps the bytes its clients sent): they are decoded from it, never dropped")
        ->type_name("ENCODING")
        ->check([](const std::string& str) {
            return ORVANE::IMP::CMetadataDecoder::IsKnown(str) ? std::string()
                                                               : "unknown encoding '" + str + "' (see iconv -l)";
        })
        ->default_val("cp1252");
    app.add_option("--stats", tOptions.strStats,
                   "write figures of the run (time in p4 commands and in the engine, CPU, memory) as JSON")
        ->type_name("FILE");
    AddLfsOptions(app, tOptions);
}

// The settings as KEY and VALUE; false (with the message given) for one
// without '=' or without a key.
bool SplitSettings(const std::vector<std::string>& astrSettings, TOptions& tOptions)
{
    for (const std::string& str : astrSettings)
    {
        const size_t n = str.find('=');
        if (n == std::string::npos || n == 0)
        {
            std::fprintf(stderr, "orvane-import: error: --set takes KEY=VALUE, not '%s'\n", str.c_str());
            return false;
        }
        tOptions.atSettings.emplace_back(str.substr(0, n), str.substr(n + 1));
    }
    return true;
}

bool HasSomethingToDo(const TOptions& tOptions)
{
    if (tOptions.bLabels && tOptions.strGit.empty() && !tOptions.bAuthorsMissing)
    {
        std::fprintf(stderr, "orvane-import: error: --labels makes tags in the repository of --git DIR (see --help)\n");
        return false;
    }
    if ((!tOptions.strLfsThreshold.empty() || !tOptions.astrLfsPatterns.empty()) && tOptions.strGit.empty())
    {
        std::fprintf(stderr, "orvane-import: error: --lfs-threshold and --lfs-pattern put files into the Git LFS "
                             "store of the repository of --git DIR (see --help)\n");
        return false;
    }
    if (!tOptions.strGit.empty() || !tOptions.strDump.empty() || tOptions.bStreamsOnly || tOptions.bListSettings ||
        !tOptions.strGraph.empty() || tOptions.bVerify || tOptions.bAuthorsMissing)
        return true;
    std::fprintf(stderr, "orvane-import: error: nothing to do: give --git DIR, --dump FILE, --verify, "
                         "--streams-only, --authors-missing or --graph FILE (see --help)\n");
    return false;
}

// In the worker, SIGINT and SIGTERM end the run between two calls of the
// provider; the supervisor wakes up at once to pass them on. A reader of the
// output that goes away is no reason to die.
void InstallSignalHandlers(void (*pfnHandler)(int), int nFlags)
{
    struct sigaction sa;
    std::memset(&sa, 0, sizeof(sa));
    sa.sa_handler = pfnHandler;
    sa.sa_flags = nFlags;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

// The figures of the run, measured in the worker at its end.
void WriteStats(const ORVANE::IMP::CRunStats& cStats, const std::string& strPath,
                std::chrono::steady_clock::time_point tStart)
{
    ORVANE::IMP::TRunFigures tFigures;
    tFigures.fWallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
    tFigures.fCpuSeconds = ORVANE::IMP::OwnCpuSeconds();
    tFigures.nPeakResidentKb = ORVANE::IMP::OwnPeakResidentKb();
    std::string strError;
    if (!cStats.Write(strPath, tFigures, strError))
        std::fprintf(stderr, "orvane-import: warning: --stats: %s\n", strError.c_str());
}

// The migration itself, in the worker process: it tells the supervisor what
// it does through the channel.
int RunWorker(const TOptions& tOptions)
{
    const auto tStart = std::chrono::steady_clock::now();
    ORVANE::IMP::CWorkerChannel& cChannel = ORVANE::IMP::WorkerChannel();
    // With --stats every child is counted on its way to the channel.
    std::unique_ptr<ORVANE::IMP::CRunStats> pStats;
    if (!tOptions.strStats.empty())
    {
        pStats.reset(new ORVANE::IMP::CRunStats(&cChannel));
        for (const auto& kv : tOptions.atSettings)
            if (kv.first == "P4Path")
                pStats->SetP4Program(kv.second);
    }
    ORVANE::VCM::CProcessCapture::SetObserver(pStats ? static_cast<ORVANE::VCM::IProcessObserver*>(pStats.get())
                                                     : &cChannel);
    InstallSignalHandlers(OnStopSignal, SA_RESTART);
    const int nStatus = ORVANE::IMP::RunImport(tOptions, pStats.get());
    if (pStats)
        WriteStats(*pStats, tOptions.strStats, tStart);
    cChannel.Send(ORVANE::IMP::EVENT::pszDone);
    ORVANE::VCM::CProcessCapture::SetObserver(nullptr);
    return nStatus;
}

// The program again, as the worker, with the same arguments: started from
// the path of this program's file while that path still names the file this
// process runs, otherwise from /proc/self/exe (that file, whatever became of
// its path). A tool that runs the program inside its own process (valgrind)
// is itself what /proc/self/exe names to exec, but it answers readlink and
// open of /proc/self/exe with the program: the path keeps the worker in it.
std::vector<std::string> WorkerCommand(int argc, char** argv)
{
    std::string strProgram = "/proc/self/exe";
    const std::string strPath = ORVANE::IMP::ExecutablePath();
    const int nSelf = ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    struct stat tSelf, tPath;
    if (!strPath.empty() && strPath[0] == '/' && nSelf >= 0 && ::fstat(nSelf, &tSelf) == 0 &&
        ::stat(strPath.c_str(), &tPath) == 0 && tPath.st_dev == tSelf.st_dev && tPath.st_ino == tSelf.st_ino)
        strProgram = strPath;
    if (nSelf >= 0)
        ::close(nSelf);
    std::vector<std::string> astr = {strProgram};
    for (int i = 1; i < argc; ++i)
        astr.push_back(argv[i]);
    return astr;
}

// The supervising process: runs the worker and cleans up after it.
int RunSupervisor(const TOptions& tOptions, const TLimits& tLimits, int argc, char** argv)
{
    ORVANE::IMP::TSupervision tSupervision;
    tSupervision.astrWorker = WorkerCommand(argc, argv);
    for (const auto& kv : tOptions.atSettings)
        if (kv.first == "P4Path")
            tSupervision.strP4 = kv.second;
    tSupervision.bKeepWorkspace = tOptions.bKeepWorkspace;
    tSupervision.fStallSeconds = tLimits.fStallSeconds;
    tSupervision.fChildSeconds = tLimits.fCommandSeconds;
    tSupervision.bQuiet = tOptions.bQuiet;
    InstallSignalHandlers(OnSupervisorSignal, 0);
    return ORVANE::IMP::CSupervisor(tSupervision).Run();
}

} // namespace

int main(int argc, char** argv)
{
    SetLocale();

    TOptions tOptions;
    std::vector<std::string> astrSettings;
    CLI::App app{"orvane-import: brings the complete history of a source system (Perforce by default) into git,\n"
                 "through the source's migration module.\n\n"
                 "Exit status: 0 the migration completed, 1 it failed (the provider reported a failure, git\n"
                 "or the verification failed), 2 usage error, 130/143 interrupted by SIGINT/SIGTERM.",
                 "orvane-import"};
    TLimits tLimits;
    AddOptions(app, tOptions, astrSettings, tLimits);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::CallForHelp& e)
    {
        return app.exit(e);
    }
    catch (const CLI::CallForVersion& e)
    {
        return app.exit(e);
    }
    catch (const CLI::ParseError& e)
    {
        std::string strWhat = e.what();
        std::replace(strWhat.begin(), strWhat.end(), '\n', ' ');
        std::fprintf(stderr, "orvane-import: error: %s (see --help)\n", strWhat.c_str());
        return ORVANE::IMP::eExitUsage;
    }
    if (!SplitSettings(astrSettings, tOptions) || !HasSomethingToDo(tOptions))
        return ORVANE::IMP::eExitUsage;
    if (ORVANE::IMP::WorkerChannel().OpenFromEnvironment())
        return RunWorker(tOptions);
    return RunSupervisor(tOptions, tLimits, argc, argv);
}
