// The supervising side of a migration: the module runs in a worker process
// (this program again), so that whatever the module does (spin, crash, ignore
// a signal) the supervisor can take control back, end the worker, and clean
// up after it: the temporary client on the server, the staging files, the
// temporary workspace.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace ORVANE {
namespace VCM {
class CChildProcess;
} // namespace VCM
namespace IMP {

struct TSupervision
{
    // The worker's command line (this program with the user's options).
    std::vector<std::string> astrWorker;
    // The p4 client to clean up with until the worker names another.
    std::string strP4 = "p4";
    // A temporary workspace made for this run: removed after the worker
    // unless it is to be kept.
    std::string strTemporaryWorkspace;
    bool bKeepWorkspace = false;
    // How long the worker may go without any sign of work (no event, no
    // child started or ended) before it is taken to be stuck. While a child
    // runs, the limit is the child's own: nChildSeconds (0: none).
    double fStallSeconds = 600;
    double fChildSeconds = 0;
    // How long a worker asked to stop may take before it is killed.
    double fStopGraceSeconds = 1.0;
    // The folder of the staging files ("/tmp").
    std::string strStagingFolder = "/tmp";
    bool bQuiet = false;
};

// The signal that asked the run to stop, or 0; set by the caller's handler.
extern volatile int g_nSupervisorStop;

class CSupervisor
{
public:
    explicit CSupervisor(const TSupervision& tSupervision) : m_tSupervision(tSupervision) {}

    // Runs the worker to its end and cleans up after it. Returns the exit
    // status of the run.
    int Run();

    // Removes the staging files of earlier runs whose process no longer
    // exists (never those of a live process); the names removed.
    static std::vector<std::string> RemoveStaleStaging(const std::string& strFolder);

private:
    struct TState;
    // Starts the worker with the write end of a pipe as its event channel;
    // the read end in nChannel. False (with the message given) when it
    // cannot.
    bool StartWorker(VCM::CChildProcess& cWorker, int& nChannel);
    // Waits a little for the worker's events and takes those that came.
    void ReadChannel(int& nFd, TState& tState);
    // Each whole line received so far.
    void TakeEvents(TState& tState);
    // Passes a stop asked for on to the worker.
    void ForwardStop(VCM::CChildProcess& cWorker, TState& tState, std::chrono::steady_clock::time_point tNow);
    // Kills a worker that took too long to stop, or that is stuck.
    void KillIfStuck(VCM::CChildProcess& cWorker, TState& tState, std::chrono::steady_clock::time_point tNow);
    void OnEvent(const std::string& strLine, TState& tState);
    int Finish(int nWaitStatus, TState& tState);
    void CleanUp(TState& tState);
    // Deletes the temporary client the worker left on the server; a warning
    // names it when the server refuses.
    void RemoveClient(TState& tState);
    void Say(const std::string& strLine) const;

    TSupervision m_tSupervision;
    pid_t m_nWorkerPid = -1;
};

} // namespace IMP
} // namespace ORVANE
