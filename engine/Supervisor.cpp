#include "Supervisor.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Leftovers.h"
#include "WorkerChannel.h"
#include "Workspace.h"
#include "host/ChildProcess.h"
#include "perforce/ServerChecks.h"

extern char** environ;

namespace ORVANE {
namespace IMP {

volatile int g_nSupervisorStop = 0;

namespace {

typedef std::chrono::steady_clock TClock;

// How often the supervisor looks at the worker when nothing happens.
const int s_nPollMilliseconds = 100;
// After a read, how long events gather in the pipe before the next: a
// change brings several (phases, each command's start and end), and on a
// small machine a wake-up for each takes CPU from the worker and its p4
// commands.
const int s_nGatherMilliseconds = 20;

const char* SignalName(int nSignal)
{
    switch (nSignal)
    {
    case SIGINT:
        return "SIGINT";
    case SIGTERM:
        return "SIGTERM";
    case SIGSEGV:
        return "SIGSEGV";
    case SIGABRT:
        return "SIGABRT";
    case SIGBUS:
        return "SIGBUS";
    case SIGFPE:
        return "SIGFPE";
    case SIGILL:
        return "SIGILL";
    case SIGKILL:
        return "SIGKILL";
    default:
        return nullptr;
    }
}

std::string SignalText(int nSignal)
{
    const char* psz = SignalName(nSignal);
    return psz ? std::string(psz) : "signal " + std::to_string(nSignal);
}

double Seconds(TClock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

} // namespace

struct CSupervisor::TState
{
    std::string strPhase = "start-up";
    bool bInChild = false;
    std::string strChild;
    TClock::time_point tLastSign = TClock::now();
    std::string strClient;
    std::string strP4;
    std::string strLog;
    bool bDone = false;
    std::string strPending;
    int nStopSignal = 0;
    TClock::time_point tStopAsked;
    bool bKilled = false;
    std::string strStalled;
};

void CSupervisor::Say(const std::string& strLine) const
{
    std::fprintf(stderr, "orvane-import: %s\n", strLine.c_str());
    std::fflush(stderr);
}

void CSupervisor::OnEvent(const std::string& strLine, TState& tState)
{
    tState.tLastSign = TClock::now();
    const size_t nBlank = strLine.find(' ');
    const std::string strKind = strLine.substr(0, nBlank);
    const std::string strText = nBlank == std::string::npos ? std::string() : strLine.substr(nBlank + 1);
    if (strKind == EVENT::pszPhase)
        tState.strPhase = strText;
    else if (strKind == EVENT::pszChildStart)
        tState.bInChild = true, tState.strChild = strText;
    else if (strKind == EVENT::pszChildEnd)
        tState.bInChild = false;
    else if (strKind == EVENT::pszP4)
        tState.strP4 = strText;
    else if (strKind == EVENT::pszClient)
        tState.strClient = strText;
    else if (strKind == EVENT::pszClientGone)
        tState.strClient.clear();
    else if (strKind == EVENT::pszLog)
        tState.strLog = strText;
    else if (strKind == EVENT::pszWorkspace)
        m_tSupervision.strTemporaryWorkspace = strText;
    else if (strKind == EVENT::pszDone)
        tState.bDone = true;
}

std::vector<std::string> CSupervisor::RemoveStaleStaging(const std::string& strFolder)
{
    return RemoveLeftovers(strFolder, StagingOwner, false);
}

void CSupervisor::RemoveClient(TState& tState)
{
    if (!tState.strClient.empty())
    {
        // With the environment as it was before the run: the worker's
        // changes to it went with the worker.
        const std::string strP4 = tState.strP4.empty() ? m_tSupervision.strP4 : tState.strP4;
        const std::string strProblem = DeleteServerClient(strP4, tState.strClient);
        if (!strProblem.empty())
            Say("warning: the temporary client '" + tState.strClient + "' remains on the server (" + strProblem +
                "); remove it with: p4 client -d " + tState.strClient);
        tState.strClient.clear();
    }
}

void CSupervisor::CleanUp(TState& tState)
{
    RemoveClient(tState);
    for (const char* pszSuffix : g_apszStagingSuffixes)
        ::unlink((StagingPrefix(m_tSupervision.strStagingFolder, m_nWorkerPid) + pszSuffix).c_str());
    if (!m_tSupervision.strTemporaryWorkspace.empty())
    {
        if (m_tSupervision.bKeepWorkspace)
            Say("workspace kept: " + m_tSupervision.strTemporaryWorkspace);
        else
        {
            std::error_code cError;
            std::filesystem::remove_all(m_tSupervision.strTemporaryWorkspace, cError);
        }
    }
    if (!tState.strLog.empty() && ::access(tState.strLog.c_str(), F_OK) == 0)
        Say("import log: " + tState.strLog);
}

int CSupervisor::Finish(int nStatus, TState& tState)
{
    if (tState.bDone && !tState.bKilled)
    {
        // A worker that ended in order may still have left its client.
        RemoveClient(tState);
        return nStatus;
    }
    CleanUp(tState);
    if (tState.nStopSignal)
    {
        Say("error: interrupted by " + SignalText(tState.nStopSignal) + "; the migration did not complete");
        return 128 + tState.nStopSignal;
    }
    std::string strDuring = "during " + tState.strPhase;
    if (tState.bInChild)
        strDuring += " (while running " + tState.strChild + ")";
    if (!tState.strStalled.empty())
    {
        Say("error: the migration module stopped making progress " + strDuring + ": " + tState.strStalled +
            "; the run was ended");
        return 1;
    }
    if (nStatus > 128)
        Say("error: the migration module crashed (" + SignalText(nStatus - 128) + ") " + strDuring);
    else
        Say("error: the migration ended unexpectedly with exit status " + std::to_string(nStatus) + " " + strDuring);
    return 1;
}

bool CSupervisor::StartWorker(VCM::CChildProcess& cWorker, int& nChannel)
{
    int anChannel[2];
    if (!VCM::MakePipe(anChannel))
    {
        Say("error: cannot make a pipe: " + VCM::ErrorText(errno));
        return false;
    }
    std::vector<std::string> astrEnv;
    for (char** pp = environ; *pp; ++pp)
        if (std::strncmp(*pp, g_pszChannelVariable, std::strlen(g_pszChannelVariable)) != 0)
            astrEnv.push_back(*pp);
    astrEnv.push_back(std::string(g_pszChannelVariable) + "=3");
    VCM::TSpawnOptions tOptions;
    tOptions.anExtraFds = {anChannel[1]};
    tOptions.pastrEnvironment = &astrEnv;
    // A terminal's interrupt reaches the supervisor only; it decides.
    tOptions.bOwnProcessGroup = true;
    const int nError = cWorker.Start(m_tSupervision.astrWorker, tOptions);
    VCM::CloseDescriptor(anChannel[1]);
    if (nError != 0)
    {
        VCM::CloseDescriptor(anChannel[0]);
        Say("error: cannot start the worker " + m_tSupervision.astrWorker[0] + ": " + VCM::ErrorText(nError));
        return false;
    }
    m_nWorkerPid = cWorker.GetPid();
    nChannel = anChannel[0];
    return true;
}

void CSupervisor::TakeEvents(TState& tState)
{
    size_t nEnd;
    while ((nEnd = tState.strPending.find('\n')) != std::string::npos)
    {
        OnEvent(tState.strPending.substr(0, nEnd), tState);
        tState.strPending.erase(0, nEnd + 1);
    }
}

void CSupervisor::ReadChannel(int& nFd, TState& tState)
{
    struct pollfd tPoll = {nFd, POLLIN, 0};
    const int nReady = nFd >= 0 ? ::poll(&tPoll, 1, s_nPollMilliseconds) : ::poll(nullptr, 0, s_nPollMilliseconds);
    if (nReady <= 0)
        return;
    char ach[4096];
    const ssize_t n = ::read(nFd, ach, sizeof(ach));
    if (n > 0)
    {
        tState.strPending.append(ach, size_t(n));
        TakeEvents(tState);
        // A signal ends the pause early, as it ends the poll.
        ::poll(nullptr, 0, s_nGatherMilliseconds);
    }
    else if (n == 0 || (errno != EINTR && errno != EAGAIN))
        VCM::CloseDescriptor(nFd);
}

void CSupervisor::ForwardStop(VCM::CChildProcess& cWorker, TState& tState, TClock::time_point tNow)
{
    if (g_nSupervisorStop && !tState.nStopSignal)
    {
        tState.nStopSignal = g_nSupervisorStop;
        tState.tStopAsked = tNow;
        cWorker.Signal(tState.nStopSignal);
    }
}

void CSupervisor::KillIfStuck(VCM::CChildProcess& cWorker, TState& tState, TClock::time_point tNow)
{
    bool bKill = tState.nStopSignal && Seconds(tNow - tState.tStopAsked) > m_tSupervision.fStopGraceSeconds;
    const double fQuiet = Seconds(tNow - tState.tLastSign);
    if (!tState.nStopSignal && !tState.bInChild && fQuiet > m_tSupervision.fStallSeconds)
        tState.strStalled = "no p4 command and no result for " + std::to_string(int(fQuiet)) + " s";
    else if (!tState.nStopSignal && tState.bInChild && m_tSupervision.fChildSeconds > 0 &&
             fQuiet > m_tSupervision.fChildSeconds)
        tState.strStalled = "a command ran for more than " + std::to_string(int(fQuiet)) + " s";
    bKill = bKill || !tState.strStalled.empty();
    if (bKill && !tState.bKilled)
    {
        tState.bKilled = true;
        cWorker.Signal(SIGKILL);
    }
}

int CSupervisor::Run()
{
    for (const std::string& strPath : RemoveStaleStaging(m_tSupervision.strStagingFolder))
        if (!m_tSupervision.bQuiet)
            Say("removed the staging file of an earlier run: " + strPath);
    for (const std::string& strPath : RemoveStaleWorkspaces(TemporaryFolder()))
        if (!m_tSupervision.bQuiet)
            Say("removed the temporary workspace of an earlier run: " + strPath);
    VCM::CChildProcess cWorker;
    int nFd = -1;
    if (!StartWorker(cWorker, nFd))
        return 1;
    TState tState;
    int nStatus = -1;
    for (;;)
    {
        ReadChannel(nFd, tState);
        const TClock::time_point tNow = TClock::now();
        ForwardStop(cWorker, tState, tNow);
        if (cWorker.TryWait(nStatus))
            break;
        KillIfStuck(cWorker, tState, tNow);
    }
    // What the worker said last.
    if (nFd >= 0)
    {
        char ach[4096];
        ssize_t n;
        while ((n = ::read(nFd, ach, sizeof(ach))) > 0)
            tState.strPending.append(ach, size_t(n));
        VCM::CloseDescriptor(nFd);
        TakeEvents(tState);
    }
    // The worker's group may still hold children of its own (p4): they go
    // with it.
    ::kill(-m_nWorkerPid, SIGKILL);
    return Finish(nStatus, tState);
}

} // namespace IMP
} // namespace ORVANE
