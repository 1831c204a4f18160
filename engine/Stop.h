// How a run ends early: an exit status and a one-line message.
#pragma once

#include <csignal>
#include <stdexcept>
#include <string>

namespace ORVANE {
namespace IMP {

// The program's exit statuses; a run stopped by signal N ends with
// eExitSignal + N.
enum TExitStatus : int
{
    eExitDone = 0,
    eExitFailure = 1,
    eExitUsage = 2,
    eExitSignal = 128
};

// Ends the run with the status; what() is the message.
class EStop : public std::runtime_error
{
public:
    EStop(int nStatus, const std::string& strMessage) : std::runtime_error(strMessage), m_nStatus(nStatus) {}
    int Status() const { return m_nStatus; }

private:
    int m_nStatus;
};

// The provider answered a call with a failure.
class EProviderFailure : public EStop
{
public:
    // strCause: why, when the engine can tell.
    EProviderFailure(const char* pszCall, int nResult, const std::string& strCause = std::string());
    const std::string& Call() const { return m_strCall; }
    int Result() const { return m_nResult; }
    const std::string& Cause() const { return m_strCause; }

private:
    std::string m_strCall;
    int m_nResult;
    std::string m_strCause;
};

// The signal that asked the run to stop, or 0. Set by the signal handler.
extern volatile std::sig_atomic_t g_nStopSignal;

// The stop for the signal.
EStop StopBySignal(int nSignal);

// Throws the stop when a signal asked for it.
void CheckStopSignal();

} // namespace IMP
} // namespace ORVANE
