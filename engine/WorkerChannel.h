// What the worker process tells its supervisor, one line per event, through
// a pipe whose descriptor it finds in the environment. The supervisor needs
// it to know that work goes on, what to clean up when the worker cannot,
// and what to name when the worker dies.
#pragma once

#include <string>
#include <vector>

#include "host/ProcessCapture.h"

namespace ORVANE {
namespace IMP {

// The environment variable that holds the channel's descriptor.
extern const char* const g_pszChannelVariable;

// The kinds of events, as their first word.
namespace EVENT {
extern const char* const pszPhase;      // what the worker is doing now
extern const char* const pszChildStart; // a p4 (or other) child started: its arguments
extern const char* const pszChildEnd;   // ... and ended: its status
extern const char* const pszP4;         // the p4 client the provider runs
extern const char* const pszClient;     // a temporary client is being made on the server: its name
extern const char* const pszClientGone; // ... and has been removed
extern const char* const pszLog;        // the import log's path
extern const char* const pszWorkspace;  // a workspace folder made for this run
extern const char* const pszDone;       // the worker ends by itself, having cleaned up
} // namespace EVENT

class CWorkerChannel : public VCM::IProcessObserver
{
public:
    // Opens the channel named by the environment (and removes the variable,
    // so that the worker's own children do not inherit it). False when the
    // process is no worker.
    bool OpenFromEnvironment();
    bool IsOpen() const { return m_nFd >= 0; }

    // Sends one event; the text must be one line (line ends become blanks).
    void Send(const char* pszKind, const std::string& strText = std::string());

    void OnChildStarting(const std::vector<std::string>& astrArgs) override;
    void OnChildEnded(const std::vector<std::string>& astrArgs, int nStatus, double fSeconds,
                      const VCM::CProcessCapture& cCapture) override;

private:
    int m_nFd = -1;
};

// The channel of this process (closed unless it is a worker).
CWorkerChannel& WorkerChannel();

// One command line as a person would type it again (arguments with blanks
// or quotes in single quotes).
std::string CommandText(const std::vector<std::string>& astrArgs);

} // namespace IMP
} // namespace ORVANE
