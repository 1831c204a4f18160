// Programs run by the tests, through the host's process primitives.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/ChildProcess.h"

namespace ORVANE {
namespace TEST {

// What a program did.
struct TRunResult
{
    int nStatus = -1; // exit status, 128 + N for signal N
    std::string strOut;
    std::string strErr;
};

// The value that removes a variable from the environment in the overrides.
extern const char* const g_pszUnset;

// This process's environment with the overrides applied, as "NAME=value"
// entries sorted by name.
std::vector<std::string> Environment(const std::map<std::string, std::string>& mapOverrides);

// Runs the program directly and waits for it: its standard input is the
// text, its output and error are collected. The environment is this
// process's with the overrides; the working directory is ours unless one is
// given.
TRunResult RunProgram(const std::vector<std::string>& astrArgv, const std::map<std::string, std::string>& mapEnv = {},
                      const std::string& strInput = "", const std::string& strWorkingDirectory = "");

// The same with exactly the given environment ("NAME=value" entries).
TRunResult RunProgramWithEnvironment(const std::vector<std::string>& astrArgv,
                                     const std::vector<std::string>& astrEnvironment, const std::string& strInput = "",
                                     const std::string& strWorkingDirectory = "");

// Starts the program with no input and its output and error going to
// files; the child is ended and reaped if it is still running when the
// object goes. IsRunning() is false when it could not be started.
VCM::CChildProcess StartProgram(const std::vector<std::string>& astrArgv,
                                const std::map<std::string, std::string>& mapEnv, const std::string& strOutFile,
                                const std::string& strErrFile);

} // namespace TEST
} // namespace ORVANE
