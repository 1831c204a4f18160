#include "host/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ORVANE {
namespace VCM {

namespace {

// The file actions and attributes of one start, released with the object.
class CSpawnSetup
{
public:
    CSpawnSetup()
    {
        m_bActions = posix_spawn_file_actions_init(&m_cActions) == 0;
        m_bAttr = posix_spawnattr_init(&m_cAttr) == 0;
    }
    CSpawnSetup(const CSpawnSetup&) = delete;
    CSpawnSetup& operator=(const CSpawnSetup&) = delete;
    ~CSpawnSetup()
    {
        if (m_bAttr)
            posix_spawnattr_destroy(&m_cAttr);
        if (m_bActions)
            posix_spawn_file_actions_destroy(&m_cActions);
    }

    // 0 or the error number.
    int Prepare(const TSpawnOptions& tOptions)
    {
        if (!m_bActions || !m_bAttr)
            return ENOMEM;
        int nResult = 0;
        const int anFds[3] = {tOptions.nStdIn, tOptions.nStdOut, tOptions.nStdErr};
        for (int nTarget = 0; nTarget < 3 && nResult == 0; ++nTarget)
            if (anFds[nTarget] >= 0)
                nResult = posix_spawn_file_actions_adddup2(&m_cActions, anFds[nTarget], nTarget);
        // The extra descriptors go to spare places above all of them first,
        // then to 3, 4, ...: no one is overwritten before it is copied, and
        // each copy is without close-on-exec.
        const int nCount = static_cast<int>(tOptions.anExtraFds.size());
        int nSpare = STDERR_FILENO + 1 + nCount;
        for (int nFd : tOptions.anExtraFds)
            nSpare = std::max(nSpare, nFd + 1);
        for (int i = 0; i < nCount && nResult == 0; ++i)
            nResult = posix_spawn_file_actions_adddup2(&m_cActions, tOptions.anExtraFds[size_t(i)], nSpare + i);
        for (int i = 0; i < nCount && nResult == 0; ++i)
            nResult = posix_spawn_file_actions_adddup2(&m_cActions, nSpare + i, STDERR_FILENO + 1 + i);
        const int nNext = STDERR_FILENO + 1 + nCount;
        // Every descriptor of ours is close-on-exec, and whatever someone else
        // left open is closed as well.
        if (nResult == 0)
            nResult = posix_spawn_file_actions_addclosefrom_np(&m_cActions, nNext);
        if (nResult == 0 && !tOptions.strWorkingDirectory.empty())
            nResult = posix_spawn_file_actions_addchdir_np(&m_cActions, tOptions.strWorkingDirectory.c_str());

        // Default dispositions for every signal and nothing blocked, whatever
        // the caller's thread has set up.
        sigset_t cAll;
        sigset_t cNone;
        sigfillset(&cAll);
        sigemptyset(&cNone);
        short nFlags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
        if (nResult == 0)
            nResult = posix_spawnattr_setsigdefault(&m_cAttr, &cAll);
        if (nResult == 0)
            nResult = posix_spawnattr_setsigmask(&m_cAttr, &cNone);
        if (nResult == 0 && tOptions.bOwnProcessGroup)
        {
            nResult = posix_spawnattr_setpgroup(&m_cAttr, 0);
            nFlags |= POSIX_SPAWN_SETPGROUP;
        }
        if (nResult == 0)
            nResult = posix_spawnattr_setflags(&m_cAttr, nFlags);
        return nResult;
    }

    const posix_spawn_file_actions_t* Actions() const { return &m_cActions; }
    const posix_spawnattr_t* Attributes() const { return &m_cAttr; }

private:
    posix_spawn_file_actions_t m_cActions;
    posix_spawnattr_t m_cAttr;
    bool m_bActions = false;
    bool m_bAttr = false;
};

std::vector<char*> Pointers(const std::vector<std::string>& astr)
{
    std::vector<char*> ap;
    ap.reserve(astr.size() + 1);
    for (const std::string& str : astr)
        ap.push_back(const_cast<char*>(str.c_str()));
    ap.push_back(nullptr);
    return ap;
}

int DecodeStatus(int nWaitStatus)
{
    if (WIFEXITED(nWaitStatus))
        return WEXITSTATUS(nWaitStatus);
    if (WIFSIGNALED(nWaitStatus))
        return 128 + WTERMSIG(nWaitStatus);
    return -1;
}

} // namespace

CChildProcess::CChildProcess(CChildProcess&& rOther) noexcept
    : m_nPid(std::exchange(rOther.m_nPid, -1)), m_bOwnGroup(rOther.m_bOwnGroup), m_tUsage(rOther.m_tUsage)
{
}

CChildProcess& CChildProcess::operator=(CChildProcess&& rOther) noexcept
{
    if (this != &rOther)
    {
        if (IsRunning())
        {
            Signal(SIGKILL);
            Wait();
        }
        m_nPid = std::exchange(rOther.m_nPid, -1);
        m_bOwnGroup = rOther.m_bOwnGroup;
        m_tUsage = rOther.m_tUsage;
    }
    return *this;
}

CChildProcess::~CChildProcess()
{
    if (IsRunning())
    {
        Signal(SIGKILL);
        Wait();
    }
}

int CChildProcess::Start(const std::vector<std::string>& astrArgs, const TSpawnOptions& tOptions)
{
    if (IsRunning())
        return EBUSY;
    if (astrArgs.empty() || astrArgs[0].empty())
        return ENOENT;
    m_tUsage = {};
    CSpawnSetup cSetup;
    int nResult = cSetup.Prepare(tOptions);
    if (nResult != 0)
        return nResult;
    std::vector<char*> apszArgv = Pointers(astrArgs);
    std::vector<char*> apszEnv;
    char* const* ppszEnv = environ;
    if (tOptions.pastrEnvironment)
    {
        apszEnv = Pointers(*tOptions.pastrEnvironment);
        ppszEnv = apszEnv.data();
    }
    pid_t nPid = -1;
    nResult = posix_spawnp(&nPid, apszArgv[0], cSetup.Actions(), cSetup.Attributes(), apszArgv.data(), ppszEnv);
    if (nResult != 0)
        return nResult;
    m_nPid = nPid;
    m_bOwnGroup = tOptions.bOwnProcessGroup;
    if (tOptions.bBatchScheduling)
    {
        // Set from here, once the child runs: a system that refuses it must
        // not cost the start. Until then the child runs as any other, which
        // changes nothing for a consumer that waits for its input.
        const sched_param tParam = {};
        ::sched_setscheduler(nPid, SCHED_BATCH, &tParam);
    }
    return 0;
}

int CChildProcess::Reap(int nFlags, bool& bEnded)
{
    bEnded = false;
    if (m_nPid <= 0)
    {
        bEnded = true;
        return -1;
    }
    int nWaitStatus = 0;
    pid_t nWaited;
    do
        nWaited = ::wait4(m_nPid, &nWaitStatus, nFlags, &m_tUsage);
    while (nWaited < 0 && errno == EINTR);
    if (nWaited == 0)
        return -1; // still running
    bEnded = true;
    m_nPid = -1;
    // Reaped behind our back (SIGCHLD ignored): the status is unknown.
    return nWaited < 0 ? -1 : DecodeStatus(nWaitStatus);
}

int CChildProcess::Wait()
{
    bool bEnded = false;
    return Reap(0, bEnded);
}

bool CChildProcess::TryWait(int& nStatus)
{
    bool bEnded = false;
    const int n = Reap(WNOHANG, bEnded);
    if (bEnded)
        nStatus = n;
    return bEnded;
}

bool CChildProcess::Signal(int nSignal) const
{
    if (m_nPid <= 0)
        return false;
    return ::kill(m_bOwnGroup ? -m_nPid : m_nPid, nSignal) == 0;
}

int StartFailureStatus(int nError)
{
    return nError == ENOENT || nError == ENOTDIR ? eStatusNotFound : eStatusCannotExecute;
}

std::string ErrorText(int nError)
{
    char acBuffer[256];
    // GNU strerror_r: returns the text, not necessarily in acBuffer.
    const char* psz = strerror_r(nError, acBuffer, sizeof(acBuffer));
    return psz ? std::string(psz) : std::string("unknown error");
}

bool MoveAboveStandard(int& nFd)
{
    if (nFd > STDERR_FILENO)
        return true;
    const int nNew = ::fcntl(nFd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int nError = errno;
    ::close(nFd);
    nFd = nNew;
    errno = nError;
    return nNew >= 0;
}

bool MakePipe(int anFds[2])
{
    anFds[0] = anFds[1] = -1;
    if (::pipe2(anFds, O_CLOEXEC) != 0)
        return false;
    if (!MoveAboveStandard(anFds[0]) || !MoveAboveStandard(anFds[1]))
    {
        const int nError = errno;
        CloseDescriptor(anFds[0]);
        CloseDescriptor(anFds[1]);
        errno = nError;
        return false;
    }
    return true;
}

void CloseDescriptor(int& nFd)
{
    if (nFd >= 0)
    {
        // Linux always releases the descriptor, even when close reports EINTR.
        ::close(nFd);
        nFd = -1;
    }
}

bool WriteAll(int nFd, const void* pData, size_t nSize)
{
    const char* p = static_cast<const char*>(pData);
    while (nSize > 0)
    {
        const ssize_t nDone = ::write(nFd, p, nSize);
        if (nDone < 0)
        {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (nDone == 0)
        {
            errno = ENOSPC;
            return false;
        }
        p += nDone;
        nSize -= static_cast<size_t>(nDone);
    }
    return true;
}

bool IsProcessGone(pid_t nPid)
{
    if (nPid <= 0)
        return false;
    if (::kill(nPid, 0) != 0)
        return errno == ESRCH;
    // A zombie: its state follows the command name, which is in parentheses
    // and may itself hold blanks and parentheses.
    std::ifstream cStat("/proc/" + std::to_string(nPid) + "/stat");
    const std::string strStat((std::istreambuf_iterator<char>(cStat)), std::istreambuf_iterator<char>());
    const size_t nEnd = strStat.rfind(')');
    return nEnd != std::string::npos && nEnd + 2 < strStat.size() && strStat[nEnd + 2] == 'Z';
}

} // namespace VCM
} // namespace ORVANE
