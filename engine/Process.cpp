#include "Process.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include "host/ProcessCapture.h"

namespace ORVANE {
namespace IMP {

std::string ExecutablePath()
{
    char ach[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", ach, sizeof(ach) - 1);
    return n > 0 ? std::string(ach, static_cast<size_t>(n)) : std::string();
}

int RunProcess(const std::vector<std::string>& astrArgv, const std::string& strInput, std::string* pstrOutput,
               std::string* pstrError)
{
    VCM::CProcessCapture cCapture;
    if (!strInput.empty())
        cCapture.GetStdInputStream()->Write(strInput.data(), strInput.size());
    const int nStatus = cCapture.Execute(astrArgv);
    if (pstrOutput)
        *pstrOutput = VCM::ReadAllBytes(*cCapture.GetStdOutputStream());
    if (pstrError)
        *pstrError = VCM::ReadAllBytes(*cCapture.GetStdErrorStream());
    return nStatus;
}

namespace {

// What the child's input pipe should hold: enough for this program to hand
// over a change's files and commit and go on while the child is still busy
// with the one before.
const int s_nInputPipeBytes = 1 << 20;
// The system's own size, below which there is nothing to ask for.
const int s_nDefaultPipeBytes = 64 << 10;

// Asks for the largest pipe up to nBytes that the system grants (a user's
// limit may be lower); the pipe keeps its size when none is.
void EnlargePipe(int nFd, int nBytes)
{
    for (int n = nBytes; n > s_nDefaultPipeBytes; n /= 2)
        if (::fcntl(nFd, F_SETPIPE_SZ, n) >= 0)
            return;
}

} // namespace

CChild::~CChild()
{
    if (m_cProcess.IsRunning())
        Finish();
}

bool CChild::Start(const std::vector<std::string>& astrArgv, std::string* pstrError)
{
    // Every failure names its reason: the caller's message is made of it.
    const auto fnFail = [&](int nError) {
        if (pstrError)
            *pstrError = "cannot run " + astrArgv[0] + ": " + VCM::ErrorText(nError);
        return false;
    };
    int afdIn[2], afdOut[2];
    if (!VCM::MakePipe(afdIn))
        return fnFail(errno);
    if (!VCM::MakePipe(afdOut))
    {
        const int nError = errno;
        VCM::CloseDescriptor(afdIn[0]), VCM::CloseDescriptor(afdIn[1]);
        return fnFail(nError);
    }
    VCM::TSpawnOptions tOptions;
    tOptions.nStdIn = afdIn[0];
    tOptions.nStdOut = afdOut[1];
    tOptions.bOwnProcessGroup = true;
    tOptions.bBatchScheduling = true;
    const int nError = m_cProcess.Start(astrArgv, tOptions);
    VCM::CloseDescriptor(afdIn[0]);
    VCM::CloseDescriptor(afdOut[1]);
    if (nError != 0)
    {
        VCM::CloseDescriptor(afdIn[1]), VCM::CloseDescriptor(afdOut[0]);
        return fnFail(nError);
    }
    m_fdIn = afdIn[1];
    m_fdOut = afdOut[0];
    EnlargePipe(m_fdIn, s_nInputPipeBytes);
    return true;
}

bool CChild::Write(const char* p, size_t n)
{
    return m_fdIn >= 0 && VCM::WriteAll(m_fdIn, p, n);
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

size_t CChild::InputPipeBytes() const
{
    const int n = m_fdIn >= 0 ? ::fcntl(m_fdIn, F_GETPIPE_SZ) : -1;
    return n > 0 ? static_cast<size_t>(n) : 0;
}

void CChild::CloseInput()
{
    VCM::CloseDescriptor(m_fdIn);
}

int CChild::Finish()
{
    CloseInput();
    if (m_cProcess.IsRunning())
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
        m_nStatus = m_cProcess.Wait();
    }
    VCM::CloseDescriptor(m_fdOut);
    return m_nStatus;
}

} // namespace IMP
} // namespace ORVANE
