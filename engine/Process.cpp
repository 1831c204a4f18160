#include "Process.h"

#include "host/ProcessCapture.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ORVANE {
namespace IMP {

namespace {

std::vector<char*> Argv(const std::vector<std::string>& astrArgv)
{
    std::vector<char*> ap;
    for (const std::string& s : astrArgv)
        ap.push_back(const_cast<char*>(s.c_str()));
    ap.push_back(nullptr);
    return ap;
}

int WaitFor(pid_t nPid)
{
    int nStatus = 0;
    while (waitpid(nPid, &nStatus, 0) < 0)
        if (errno != EINTR)
            return 127;
    if (WIFEXITED(nStatus))
        return WEXITSTATUS(nStatus);
    if (WIFSIGNALED(nStatus))
        return 128 + WTERMSIG(nStatus);
    return 127;
}

// The child starts with default signal handling and an empty mask, whatever
// this program has installed.
void DefaultSignals(posix_spawnattr_t& attr, bool bOwnGroup)
{
    sigset_t setDefault, setEmpty;
    sigemptyset(&setDefault);
    sigaddset(&setDefault, SIGINT);
    sigaddset(&setDefault, SIGTERM);
    sigaddset(&setDefault, SIGPIPE);
    sigemptyset(&setEmpty);
    posix_spawnattr_setsigdefault(&attr, &setDefault);
    posix_spawnattr_setsigmask(&attr, &setEmpty);
    short nFlags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    if (bOwnGroup)
    {
        posix_spawnattr_setpgroup(&attr, 0);
        nFlags |= POSIX_SPAWN_SETPGROUP;
    }
    posix_spawnattr_setflags(&attr, nFlags);
}

} // namespace

namespace {

// Everything left in a captured stream.
std::string ReadAll(wxInputStream& rStream)
{
    std::string str;
    char ach[65536];
    while (!rStream.Eof())
    {
        const size_t nRead = rStream.Read(ach, sizeof(ach)).LastRead();
        if (nRead == 0)
            break;
        str.append(ach, nRead);
    }
    return str;
}

} // namespace

int RunProcess(const std::vector<std::string>& astrArgv, const std::string& strInput, std::string* pstrOutput,
               std::string* pstrError)
{
    VCM::CProcessCapture cCapture;
    if (!strInput.empty())
        cCapture.GetStdInputStream()->Write(strInput.data(), strInput.size());
    const int nStatus = cCapture.Execute(astrArgv);
    if (pstrOutput)
        *pstrOutput = ReadAll(*cCapture.GetStdOutputStream());
    if (pstrError)
        *pstrError = ReadAll(*cCapture.GetStdErrorStream());
    return nStatus;
}

CChild::~CChild()
{
    if (m_nPid > 0)
        Finish();
}

bool CChild::Start(const std::vector<std::string>& astrArgv, std::string* pstrError)
{
    int afdIn[2], afdOut[2];
    if (pipe2(afdIn, O_CLOEXEC) != 0)
        return false;
    if (pipe2(afdOut, O_CLOEXEC) != 0)
    {
        close(afdIn[0]), close(afdIn[1]);
        return false;
    }
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, afdIn[0], 0);
    posix_spawn_file_actions_adddup2(&fa, afdOut[1], 1);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    DefaultSignals(attr, true);
    std::vector<char*> ap = Argv(astrArgv);
    const int nError = posix_spawnp(&m_nPid, ap[0], &fa, &attr, ap.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    posix_spawnattr_destroy(&attr);
    close(afdIn[0]);
    close(afdOut[1]);
    if (nError != 0)
    {
        m_nPid = -1;
        close(afdIn[1]), close(afdOut[0]);
        if (pstrError)
            *pstrError = "cannot run " + astrArgv[0] + ": " + strerror(nError);
        return false;
    }
    m_fdIn = afdIn[1];
    m_fdOut = afdOut[0];
    return true;
}

bool CChild::Write(const char* p, size_t n)
{
    while (n > 0 && m_fdIn >= 0)
    {
        const ssize_t w = write(m_fdIn, p, n);
        if (w < 0)
        {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += w;
        n -= size_t(w);
    }
    return n == 0;
}

bool CChild::Write(const std::string& strData)
{
    return Write(strData.data(), strData.size());
}

bool CChild::ReadLine(std::string& strLine)
{
    for (;;)
    {
        const size_t nEnd = m_strPending.find('\n');
        if (nEnd != std::string::npos)
        {
            strLine = m_strPending.substr(0, nEnd);
            m_strPending.erase(0, nEnd + 1);
            return true;
        }
        if (m_fdOut < 0)
            return false;
        char ach[4096];
        const ssize_t r = read(m_fdOut, ach, sizeof(ach));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        m_strPending.append(ach, size_t(r));
    }
}

int CChild::Finish()
{
    if (m_fdIn >= 0)
        close(m_fdIn);
    m_fdIn = -1;
    int nStatus = 127;
    if (m_nPid > 0)
    {
        // Drain what is left so that the child never blocks on a full pipe.
        if (m_fdOut >= 0)
        {
            char ach[4096];
            for (;;)
            {
                const ssize_t r = read(m_fdOut, ach, sizeof(ach));
                if (r < 0 && errno == EINTR)
                    continue;
                if (r <= 0)
                    break;
            }
        }
        nStatus = WaitFor(m_nPid);
        m_nPid = -1;
    }
    if (m_fdOut >= 0)
        close(m_fdOut);
    m_fdOut = -1;
    return nStatus;
}

} // namespace IMP
} // namespace ORVANE
