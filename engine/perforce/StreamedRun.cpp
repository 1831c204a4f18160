#include "perforce/StreamedRun.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "host/ChildProcess.h"

extern char** environ;

namespace ORVANE {
namespace IMP {

namespace {

class CPipe
{
public:
    CPipe()
    {
        if (::pipe2(m_an, O_CLOEXEC) != 0)
            m_an[0] = m_an[1] = -1;
    }
    ~CPipe()
    {
        CloseRead();
        CloseWrite();
    }
    bool Ok() const { return m_an[0] >= 0; }
    int Read() const { return m_an[0]; }
    int Write() const { return m_an[1]; }
    void CloseRead()
    {
        if (m_an[0] >= 0)
            ::close(m_an[0]);
        m_an[0] = -1;
    }
    void CloseWrite()
    {
        if (m_an[1] >= 0)
            ::close(m_an[1]);
        m_an[1] = -1;
    }

private:
    int m_an[2];
};

} // namespace

bool WaitBeforeRetry(unsigned nTry, double fFirstWait, const std::function<bool()>& fnStop)
{
    const auto tEnd =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                               std::chrono::duration<double>(fFirstWait * std::pow(2.0, double(nTry))));
    for (auto tNow = std::chrono::steady_clock::now(); tNow < tEnd; tNow = std::chrono::steady_clock::now())
    {
        if (fnStop && fnStop())
            return false;
        std::this_thread::sleep_for(
            std::min<std::chrono::steady_clock::duration>(std::chrono::milliseconds(20), tEnd - tNow));
    }
    return !(fnStop && fnStop());
}

std::vector<std::string> CurrentEnvironment()
{
    std::vector<std::string> astr;
    for (char** pp = environ; pp && *pp; ++pp)
        astr.emplace_back(*pp);
    return astr;
}

TStreamedRun RunStreamed(const std::vector<std::string>& astrArgs, const std::vector<std::string>& astrEnvironment,
                         const std::function<bool(const char*, size_t)>& fnOutput, const std::function<bool()>& fnStop)
{
    TStreamedRun tRun;
    CPipe cOut, cErr;
    int nNull = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (!cOut.Ok() || !cErr.Ok() || nNull < 0)
    {
        if (nNull >= 0)
            ::close(nNull);
        tRun.strError = std::string("cannot make a pipe: ") + std::strerror(errno);
        return tRun;
    }
    VCM::TSpawnOptions tOptions;
    tOptions.nStdIn = nNull;
    tOptions.nStdOut = cOut.Write();
    tOptions.nStdErr = cErr.Write();
    tOptions.pastrEnvironment = &astrEnvironment;
    VCM::CChildProcess cChild;
    const int nStart = cChild.Start(astrArgs, tOptions);
    ::close(nNull);
    cOut.CloseWrite();
    cErr.CloseWrite();
    if (nStart != 0)
    {
        tRun.nStatus = nStart == ENOENT ? VCM::eStatusNotFound : VCM::eStatusCannotExecute;
        tRun.strError = "cannot run " + astrArgs[0] + ": " + std::strerror(nStart);
        return tRun;
    }
    char ach[65536];
    bool bOut = true, bErr = true;
    while (bOut || bErr)
    {
        if (fnStop && fnStop())
        {
            tRun.bStopped = true;
            break;
        }
        struct pollfd at[2] = {{cOut.Read(), POLLIN, 0}, {cErr.Read(), POLLIN, 0}};
        at[0].fd = bOut ? cOut.Read() : -1;
        at[1].fd = bErr ? cErr.Read() : -1;
        const int nReady = ::poll(at, 2, 100);
        if (nReady < 0 && errno != EINTR)
            break;
        if (nReady <= 0)
            continue;
        if (bOut && (at[0].revents & (POLLIN | POLLHUP | POLLERR)))
        {
            const ssize_t n = ::read(cOut.Read(), ach, sizeof(ach));
            if (n > 0 && !fnOutput(ach, size_t(n)))
            {
                tRun.bStopped = true;
                break;
            }
            if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN))
                bOut = false;
        }
        if (bErr && (at[1].revents & (POLLIN | POLLHUP | POLLERR)))
        {
            const ssize_t n = ::read(cErr.Read(), ach, sizeof(ach));
            if (n > 0 && tRun.strError.size() < (1u << 20))
                tRun.strError.append(ach, size_t(n));
            if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN))
                bErr = false;
        }
    }
    if (tRun.bStopped)
        cChild.Signal(SIGKILL);
    tRun.nStatus = cChild.Wait();
    return tRun;
}

} // namespace IMP
} // namespace ORVANE
