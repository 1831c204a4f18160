#include "Run.h"

#include <fcntl.h>
#include <unistd.h>

#include "host/ProcessCapture.h"

extern char** environ;

namespace ORVANE {
namespace TEST {

const char* const g_pszUnset = "\x01";

namespace {

int OpenFor(const std::string& strPath, int nFlags)
{
    int nFd = ::open(strPath.c_str(), nFlags | O_CLOEXEC, 0644);
    if (nFd >= 0 && !VCM::MoveAboveStandard(nFd))
        VCM::CloseDescriptor(nFd);
    return nFd;
}

} // namespace

std::vector<std::string> Environment(const std::map<std::string, std::string>& mapOverrides)
{
    std::map<std::string, std::string> mapAll;
    for (char** pp = environ; *pp; ++pp)
    {
        const std::string str = *pp;
        const size_t n = str.find('=');
        if (n != std::string::npos)
            mapAll[str.substr(0, n)] = str.substr(n + 1);
    }
    for (const auto& kv : mapOverrides)
    {
        if (kv.second == g_pszUnset)
            mapAll.erase(kv.first);
        else
            mapAll[kv.first] = kv.second;
    }
    std::vector<std::string> astr;
    for (const auto& kv : mapAll)
        astr.push_back(kv.first + "=" + kv.second);
    return astr;
}

TRunResult RunProgram(const std::vector<std::string>& astrArgv, const std::map<std::string, std::string>& mapEnv,
                      const std::string& strInput, const std::string& strWorkingDirectory)
{
    return RunProgramWithEnvironment(astrArgv, Environment(mapEnv), strInput, strWorkingDirectory);
}

TRunResult RunProgramWithEnvironment(const std::vector<std::string>& astrArgv,
                                     const std::vector<std::string>& astrEnvironment, const std::string& strInput,
                                     const std::string& strWorkingDirectory)
{
    VCM::TSpawnOptions tOptions;
    tOptions.pastrEnvironment = &astrEnvironment;
    tOptions.strWorkingDirectory = strWorkingDirectory;
    VCM::CProcessCapture cCapture;
    if (!strInput.empty())
        cCapture.GetStdInputStream()->Write(strInput.data(), strInput.size());
    TRunResult tResult;
    tResult.nStatus = cCapture.Execute(astrArgv, tOptions);
    tResult.strOut = VCM::ReadAllBytes(*cCapture.GetStdOutputStream());
    tResult.strErr = VCM::ReadAllBytes(*cCapture.GetStdErrorStream());
    return tResult;
}

VCM::CChildProcess StartProgram(const std::vector<std::string>& astrArgv,
                                const std::map<std::string, std::string>& mapEnv, const std::string& strOutFile,
                                const std::string& strErrFile)
{
    const std::vector<std::string> astrEnv = Environment(mapEnv);
    int nIn = OpenFor("/dev/null", O_RDONLY);
    int nOut = OpenFor(strOutFile, O_WRONLY | O_CREAT | O_TRUNC);
    int nErr = OpenFor(strErrFile, O_WRONLY | O_CREAT | O_TRUNC);
    VCM::CChildProcess cChild;
    if (nIn >= 0 && nOut >= 0 && nErr >= 0)
    {
        VCM::TSpawnOptions tOptions;
        tOptions.nStdIn = nIn;
        tOptions.nStdOut = nOut;
        tOptions.nStdErr = nErr;
        tOptions.pastrEnvironment = &astrEnv;
        cChild.Start(astrArgv, tOptions);
    }
    for (int* pnFd : {&nIn, &nOut, &nErr})
        VCM::CloseDescriptor(*pnFd);
    return cChild;
}

} // namespace TEST
} // namespace ORVANE
