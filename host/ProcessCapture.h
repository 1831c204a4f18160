// One child process with its three standard streams.
#pragma once

#include <cstdint>
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
// unlinked temporary file once they grow beyond 256 KiB. The same object
// runs many commands one after the other.
class CProcessCapture;

// Told about every child that the process captures of this process run:
// for statistics of the commands, and for a supervisor that must know
// whether work is going on. Called on the thread that runs the child.
class IProcessObserver
{
public:
    virtual ~IProcessObserver() = default;
    virtual void OnChildStarting(const std::vector<std::string>& astrArgs) = 0;
    // The child has ended (or could not be started, with status 126 or 127);
    // its output can be looked at with the capture's Peek functions.
    virtual void OnChildEnded(const std::vector<std::string>& astrArgs, int nStatus, double fSeconds,
                              const CProcessCapture& cCapture) = 0;
};

// One command of a capture as a gateway sees it: the gateway may run the
// child (again, with the same input each time, or not at all), look at
// what it wrote, and change what the caller will read.
class IChildRun
{
public:
    virtual ~IChildRun() = default;
    virtual const std::vector<std::string>& Arguments() const = 0;
    // Runs the child as the caller asked, observed like any child; its
    // exit status. What an earlier run wrote is gone.
    virtual int Run() = 0;
    virtual const CProcessCapture& Capture() const = 0;
    // Replaces what the caller reads on standard output / error.
    virtual void SetOutput(const std::string& strBytes) = 0;
    virtual void SetError(const std::string& strBytes) = 0;
};

// Stands between every capture of this process and its children: a place
// to retry a command that failed on the way, or to leave records out of
// what the caller reads, without the caller knowing. Called on the thread
// that runs the command.
class IProcessGateway
{
public:
    virtual ~IProcessGateway() = default;
    // Returns the exit status the caller sees.
    virtual int Pass(IChildRun& rRun) = 0;
};

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
    // Up to nMax of the first bytes that the last child wrote on standard
    // output / error, without consuming anything of the streams.
    std::string PeekOutput(size_t nMax) const;
    std::string PeekError(size_t nMax) const;
    // Up to nMax bytes of standard output from byte nOffset on, and how
    // many bytes it holds: for output too large to look at in one piece.
    std::string PeekOutput(uint64_t nOffset, size_t nMax) const;
    uint64_t OutputSize() const;

    // The observer of every child of this process (none: nullptr). The
    // caller keeps it alive while it is set.
    static void SetObserver(IProcessObserver* pObserver);
    // The gateway of every command of this process (none: nullptr, each
    // command runs its child once). The caller keeps it alive while set.
    static void SetGateway(IProcessGateway* pGateway);

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

// Everything left in a stream, as bytes (a captured output, for one).
std::string ReadAllBytes(wxInputStream& rStream);

} // namespace VCM
} // namespace ORVANE
