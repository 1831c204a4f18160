#include "WorkerChannel.h"

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "host/ChildProcess.h"

namespace ORVANE {
namespace IMP {

const char* const g_pszChannelVariable = "ORVANE_IMPORT_CHANNEL";

namespace EVENT {
const char* const pszPhase = "phase";
const char* const pszChildStart = "child-start";
const char* const pszChildEnd = "child-end";
const char* const pszP4 = "p4";
const char* const pszClient = "client";
const char* const pszClientGone = "client-gone";
const char* const pszLog = "log";
const char* const pszWorkspace = "workspace";
const char* const pszDone = "done";
} // namespace EVENT

CWorkerChannel& WorkerChannel()
{
    static CWorkerChannel s_cChannel;
    return s_cChannel;
}

std::string CommandText(const std::vector<std::string>& astrArgs)
{
    std::string str;
    for (const std::string& strArg : astrArgs)
    {
        if (!str.empty())
            str += ' ';
        if (!strArg.empty() && strArg.find_first_of(" \t'\"\\$`;&|<>()*?") == std::string::npos)
        {
            str += strArg;
            continue;
        }
        str += '\'';
        for (char c : strArg)
            str += c == '\'' ? std::string("'\\''") : std::string(1, c);
        str += '\'';
    }
    return str;
}

bool CWorkerChannel::OpenFromEnvironment()
{
    const char* psz = std::getenv(g_pszChannelVariable);
    if (!psz || !*psz)
        return false;
    char* pszEnd = nullptr;
    const long n = std::strtol(psz, &pszEnd, 10);
    ::unsetenv(g_pszChannelVariable);
    if (*pszEnd != '\0' || n <= STDERR_FILENO || ::fcntl(static_cast<int>(n), F_GETFD) < 0)
        return false;
    m_nFd = static_cast<int>(n);
    ::fcntl(m_nFd, F_SETFD, FD_CLOEXEC);
    return true;
}

void CWorkerChannel::Send(const char* pszKind, const std::string& strText)
{
    if (m_nFd < 0)
        return;
    std::string strLine = pszKind;
    if (!strText.empty())
        strLine += ' ' + strText;
    for (char& c : strLine)
        if (c == '\n' || c == '\r')
            c = ' ';
    strLine += '\n';
    // A supervisor that has gone cannot be told anything: the write fails
    // with EPIPE (SIGPIPE is ignored) and the worker goes on.
    if (!VCM::WriteAll(m_nFd, strLine.data(), strLine.size()))
        VCM::CloseDescriptor(m_nFd);
}

void CWorkerChannel::OnChildStarting(const std::vector<std::string>& astrArgs)
{
    Send(EVENT::pszChildStart, CommandText(astrArgs));
}

void CWorkerChannel::OnChildEnded(const std::vector<std::string>&, int nStatus, double, const VCM::CProcessCapture&)
{
    Send(EVENT::pszChildEnd, std::to_string(nStatus));
}

} // namespace IMP
} // namespace ORVANE
