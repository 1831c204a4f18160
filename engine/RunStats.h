// Figures of one run for benchmarks: where the wall time went (inside the
// child processes, by kind of command, or in this process), this process's
// own CPU time and peak memory, and how large the provider's staging files
// grew.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/ProcessCapture.h"

namespace ORVANE {
namespace IMP {

// The children of one kind: how many ran and their wall time together.
struct TChildKind
{
    unsigned nCount = 0;
    double fSeconds = 0;
};

// What the process itself measures at the end of the run.
struct TRunFigures
{
    double fWallSeconds = 0;
    double fCpuSeconds = 0;
    unsigned long nPeakResidentKb = 0;
};

// Counts every child it is told of (and passes the events on to the next
// observer, when there is one).
class CRunStats : public VCM::IProcessObserver
{
public:
    explicit CRunStats(VCM::IProcessObserver* pNext = nullptr);

    // The p4 client program the provider runs (its children are counted by
    // p4 command).
    void SetP4Program(const std::string& strPath) { m_strP4Program = strPath; }
    // The staging files are PREFIX.tdf and PREFIX.tlf (by default the
    // provider's, named after this process).
    void SetStagingPrefix(const std::string& strPrefix) { m_strStagingPrefix = strPrefix; }
    void SetChanges(unsigned nChanges) { m_nChanges = nChanges; }
    // What the source fetched ahead on connections of its own: the commands
    // run, and how long the run waited for them (which is no time of its
    // own).
    void SetFetched(unsigned nCommands, double fWaitSeconds)
    {
        m_nFetchCommands = nCommands;
        m_fFetchWaitSeconds = fWaitSeconds;
    }
    // Looks at the staging files' sizes now and keeps the largest seen.
    void SampleStaging();

    void OnChildStarting(const std::vector<std::string>& astrArgs) override;
    void OnChildEnded(const std::vector<std::string>& astrArgs, int nStatus, double fSeconds,
                      const VCM::CProcessCapture& cCapture) override;

    // By kind; looked up without a copy of the kind's name.
    typedef std::map<std::string, TChildKind, std::less<>> TKinds;
    const TKinds& Kinds() const { return m_mapKinds; }
    double ChildSeconds() const { return m_fChildSeconds; }
    unsigned ChildCount() const { return m_nChildCount; }
    unsigned long long StagingMaxBytes() const { return m_nStagingMax; }

    // The figures as one JSON object.
    std::string Json(const TRunFigures& tFigures) const;
    // Writes Json to the file; false (with the reason) when it cannot.
    bool Write(const std::string& strPath, const TRunFigures& tFigures, std::string& strError) const;

private:
    VCM::IProcessObserver* m_pNext;
    std::string m_strP4Program;
    std::string m_strStagingPrefix;
    TKinds m_mapKinds;
    double m_fChildSeconds = 0;
    unsigned m_nChildCount = 0;
    unsigned m_nChanges = 0;
    unsigned m_nFetchCommands = 0;
    double m_fFetchWaitSeconds = 0;
    unsigned long long m_nStagingMaxData = 0;
    unsigned long long m_nStagingMaxLog = 0;
    unsigned long long m_nStagingMax = 0;
};

// The kind of a child's command line: for p4 (a program named p4 or p4sim,
// or the given p4 program) the command after the global options; for any
// other program its name. A view of the arguments' own text.
std::string_view CommandKind(const std::vector<std::string>& astrArgs, const std::string& strP4Program);

// This process's user and system CPU time so far.
double OwnCpuSeconds();
// This process's peak resident memory (VmHWM) in KiB; 0 when unknown.
unsigned long OwnPeakResidentKb();

} // namespace IMP
} // namespace ORVANE
