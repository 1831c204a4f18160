// Child processes started directly through the host's process primitives,
// never through a shell.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "host/ChildProcess.h"

namespace ORVANE {
namespace IMP {

// Runs argv[0] (found through PATH) with the arguments, feeds it strInput on
// its standard input and collects its standard output and error, through
// the host's process capture. Returns the exit status, 128 + N when it was
// killed by signal N, 127 when it could not be started (with the reason in
// *pstrError).
int RunProcess(const std::vector<std::string>& astrArgv, const std::string& strInput, std::string* pstrOutput,
               std::string* pstrError);

// The path of this program's file, as /proc/self/exe names it; empty when
// it cannot be read.
std::string ExecutablePath();

// A long-running child with pipes to its standard input and output.
class CChild
{
public:
    CChild() = default;
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;
    ~CChild();

    // Starts the child in its own process group, so that a terminal's
    // interrupt reaches this program only and the child can be ended
    // cleanly. Its standard error is inherited. Its input pipe holds 1 MiB
    // where the system allows it (else as much as it grants): a writer
    // rarely waits for a child that works through what came before. It is
    // scheduled as batch work: waking on new input, it does not take the
    // processor from this program, whose work is what the run waits for,
    // but uses what is free. False, with the reason in *pstrError, when it
    // cannot be started.
    bool Start(const std::vector<std::string>& astrArgv, std::string* pstrError);
    bool Write(const std::string& strData);
    bool Write(const char* p, size_t n);
    // Reads one line of the child's standard output, without its end.
    bool ReadLine(std::string& strLine);
    // Closes the input and waits for the child: its exit status (128 + N
    // when signal N ended it; 127 when it never ran). Once it has ended,
    // the same status again.
    int Finish();
    // Closes the input alone: the child ends its work while this program
    // does something else; Finish waits for it later.
    void CloseInput();
    pid_t Pid() const { return m_cProcess.GetPid(); }
    // What the input pipe holds before a write waits; 0 when there is none.
    size_t InputPipeBytes() const;

private:
    VCM::CChildProcess m_cProcess;
    int m_fdIn = -1;
    int m_fdOut = -1;
    int m_nStatus = VCM::eStatusNotFound;
    std::string m_strPending;
};

} // namespace IMP
} // namespace ORVANE
