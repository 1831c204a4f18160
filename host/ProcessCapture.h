// One child process with its three standard streams.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <wx/stream.h>

#include "host/ChildProcess.h"
#include "host/String.h"

namespace ORVANE {
namespace VCM {

// Runs one command line at a time as a child process, started directly
// (never through a shell). The command line is split at blanks; text in
// double quotes is one argument, without the quotes. Bytes written to the
// input stream before Execute are fed to the child while its output is
// drained; standard output and error are captured completely, spooled to an
// unlinked temporary file once they grow beyond a few MiB. The same object
// runs many commands one after the other.
class CProcessCapture
{
public:
    CProcessCapture();
    CProcessCapture(const CProcessCapture&) = delete;
    CProcessCapture& operator=(const CProcessCapture&) = delete;
    ~CProcessCapture();

    // Runs the command line and waits for the child to finish. Returns its
    // exit status (0 for success); a child that cannot be started gives a
    // non-zero status and one line on the error stream saying why.
    int Execute(const CString& strCommandLine);
    // The same with the program and its arguments given one by one, as
    // bytes, passed exactly as they are: for arguments that no command line
    // could carry (a double quote in a file name, say).
    int Execute(const std::vector<std::string>& astrArgs);
    // The same with a given environment, working directory or process group
    // (the descriptors of the options are ignored: the capture owns them).
    int Execute(const std::vector<std::string>& astrArgs, const TSpawnOptions& tOptions);
    // The resources the last child used (CPU times, peak memory).
    const struct rusage& GetUsage() const;

    // What the last child wrote on standard output / error, from the first
    // byte to the end.
    wxInputStream* GetStdOutputStream();
    wxInputStream* GetStdErrorStream();
    // Bytes written here before Execute become the next child's standard
    // input, followed by end of input.
    wxOutputStream* GetStdInputStream();

private:
    struct TImpl;
    std::unique_ptr<TImpl> m_pImpl;
};

} // namespace VCM
} // namespace ORVANE
