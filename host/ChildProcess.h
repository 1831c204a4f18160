// Starting a program as a child process and waiting for it. This is the one
// place that creates processes: the program is started directly (never
// through a shell), with default signal handling, an empty signal mask and
// only its three standard descriptors open, whatever the caller has set up.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace ORVANE {
namespace VCM {

// How a child starts. Descriptors that are -1 are inherited from this
// process; the others become the child's standard input, output and error.
struct TSpawnOptions
{
    int nStdIn = -1;
    int nStdOut = -1;
    int nStdErr = -1;
    // "NAME=value" entries; null: this process's environment as it is at the
    // moment of the start, so that changes made just before are seen.
    const std::vector<std::string>* pastrEnvironment = nullptr;
    // Further descriptors of ours that the child gets as 3, 4, ... in this
    // order (every other one is closed in the child).
    std::vector<int> anExtraFds;
    // Empty: this process's working directory.
    std::string strWorkingDirectory;
    // The child leads a process group of its own: a terminal's interrupt
    // reaches this process only, and Signal reaches the child's whole group.
    bool bOwnProcessGroup = false;
    // The child is scheduled as batch work (SCHED_BATCH): when it wakes it
    // does not take the processor from a running task, it uses what is
    // free. For a consumer whose work nobody waits for, so that it never
    // interrupts the producer feeding it. Where the system refuses, the
    // child runs as any other.
    bool bBatchScheduling = false;
};

// Exit statuses of a child that could not be started, as a shell gives them.
enum TStartFailureStatus
{
    eStatusCannotExecute = 126,
    eStatusNotFound = 127,
};

// One child process. A child that is still running when the object goes is
// killed and reaped, so that no process and no zombie outlives its owner.
class CChildProcess
{
public:
    CChildProcess() = default;
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;
    CChildProcess(CChildProcess&& rOther) noexcept;
    CChildProcess& operator=(CChildProcess&& rOther) noexcept;
    ~CChildProcess();

    // Starts the program astrArgs[0] (looked up along PATH when it holds no
    // '/') with the arguments exactly as given. Returns 0, or the error number
    // that kept it from starting.
    int Start(const std::vector<std::string>& astrArgs, const TSpawnOptions& tOptions = TSpawnOptions());

    // Waits for the child to end, through interruptions by signals. Returns
    // its exit status, 128 + N when signal N ended it, -1 when the status is
    // unknown (no child, or it was reaped elsewhere).
    int Wait();
    // The same without blocking: false while the child runs.
    bool TryWait(int& nStatus);
    // Sends the signal to the child, or to its group when it has its own.
    bool Signal(int nSignal) const;

    bool IsRunning() const { return m_nPid > 0; }
    pid_t GetPid() const { return m_nPid; }
    // The resources the child used, valid once it has been waited for.
    const struct rusage& GetUsage() const { return m_tUsage; }

private:
    int Reap(int nFlags, bool& bEnded);

    pid_t m_nPid = -1;
    bool m_bOwnGroup = false;
    struct rusage m_tUsage = {};
};

// The exit status a shell gives for a program that could not be started
// for this error number: 127 when it does not exist, 126 otherwise.
int StartFailureStatus(int nError);

// The text of an error number.
std::string ErrorText(int nError);

// A pipe whose two ends are close-on-exec and never one of the standard
// descriptors (which matters when this process's own are closed).
bool MakePipe(int anFds[2]);
// Moves a descriptor (closing the old one) above the standard ones, keeping
// it close-on-exec, so that it can never be confused with 0, 1 or 2 when a
// child's streams are set up.
bool MoveAboveStandard(int& nFd);
// Closes the descriptor when it is open and marks it closed (-1).
void CloseDescriptor(int& nFd);
// Writes all bytes, through interruptions; false with errno on failure.
bool WriteAll(int nFd, const void* pData, size_t nSize);
// True when no process has the id, or only the exit status of one is left
// for its parent to collect: what a run that was killed left behind may go.
bool IsProcessGone(pid_t nPid);

} // namespace VCM
} // namespace ORVANE
