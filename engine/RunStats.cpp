#include "RunStats.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <nlohmann/json.hpp>

#include "Leftovers.h"

namespace ORVANE {
namespace IMP {

namespace {

// The p4 global options that take a value (as the next argument unless it
// is attached: -cNAME).
const char* const s_pszOptionsWithValue = "bcCdHLpPQruvxzZ";

std::string_view BaseName(std::string_view strPath)
{
    const size_t n = strPath.rfind('/');
    return n == std::string_view::npos ? strPath : strPath.substr(n + 1);
}

bool IsP4(const std::string& strProgram, const std::string& strP4Program)
{
    const std::string_view strName = BaseName(strProgram);
    return strName == "p4" || strName == "p4sim" || (!strP4Program.empty() && strProgram == strP4Program);
}

unsigned long long FileSize(const std::string& strPath)
{
    struct stat st;
    if (::stat(strPath.c_str(), &st) != 0)
        return 0;
    return static_cast<unsigned long long>(st.st_size);
}

double Milliseconds(double fSeconds, unsigned nCount)
{
    return nCount ? fSeconds * 1000.0 / nCount : 0.0;
}

} // namespace

std::string_view CommandKind(const std::vector<std::string>& astrArgs, const std::string& strP4Program)
{
    if (astrArgs.empty())
        return std::string_view();
    const std::string_view strName = BaseName(astrArgs[0]);
    if (!IsP4(astrArgs[0], strP4Program))
        return strName;
    for (size_t i = 1; i < astrArgs.size(); ++i)
    {
        const std::string& strArg = astrArgs[i];
        if (strArg.size() < 2 || strArg[0] != '-')
            return strArg;
        if (strArg.size() == 2 && std::strchr(s_pszOptionsWithValue, strArg[1]))
            ++i;
    }
    // Global options only (p4 -V, say).
    return strName;
}

double OwnCpuSeconds()
{
    struct rusage ru;
    if (::getrusage(RUSAGE_SELF, &ru) != 0)
        return 0;
    return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
           static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

unsigned long OwnPeakResidentKb()
{
    std::ifstream cStatus("/proc/self/status");
    std::string strLine;
    while (std::getline(cStatus, strLine))
        if (strLine.compare(0, 6, "VmHWM:") == 0)
            return std::strtoul(strLine.c_str() + 6, nullptr, 10);
    return 0;
}

CRunStats::CRunStats(VCM::IProcessObserver* pNext)
    : m_pNext(pNext), m_strStagingPrefix(StagingPrefix(g_pszStagingFolder, ::getpid()))
{
}

void CRunStats::SampleStaging()
{
    const unsigned long long nData = FileSize(m_strStagingPrefix + ".tdf");
    const unsigned long long nLog = FileSize(m_strStagingPrefix + ".tlf");
    m_nStagingMaxData = std::max(m_nStagingMaxData, nData);
    m_nStagingMaxLog = std::max(m_nStagingMaxLog, nLog);
    m_nStagingMax = std::max(m_nStagingMax, nData + nLog);
}

void CRunStats::OnChildStarting(const std::vector<std::string>& astrArgs)
{
    if (m_pNext)
        m_pNext->OnChildStarting(astrArgs);
}

void CRunStats::OnChildEnded(const std::vector<std::string>& astrArgs, int nStatus, double fSeconds,
                             const VCM::CProcessCapture& cCapture)
{
    const std::string_view strKind = CommandKind(astrArgs, m_strP4Program);
    auto it = m_mapKinds.find(strKind);
    if (it == m_mapKinds.end())
        it = m_mapKinds.emplace(std::string(strKind), TChildKind()).first;
    TChildKind& t = it->second;
    ++t.nCount;
    t.fSeconds += fSeconds;
    ++m_nChildCount;
    m_fChildSeconds += fSeconds;
    if (m_pNext)
        m_pNext->OnChildEnded(astrArgs, nStatus, fSeconds, cCapture);
}

std::string CRunStats::Json(const TRunFigures& tFigures) const
{
    const double fOurs = tFigures.fWallSeconds - m_fChildSeconds - m_fFetchWaitSeconds;
    nlohmann::ordered_json j;
    j["wall_s"] = tFigures.fWallSeconds;
    j["changes"] = m_nChanges;
    j["child_s"] = m_fChildSeconds;
    j["child_count"] = m_nChildCount;
    nlohmann::ordered_json jKinds = nlohmann::ordered_json::object();
    for (const auto& kv : m_mapKinds)
        jKinds[kv.first] = {{"count", kv.second.nCount},
                            {"s", kv.second.fSeconds},
                            {"ms_each", Milliseconds(kv.second.fSeconds, kv.second.nCount)}};
    j["child_kinds"] = jKinds;
    j["fetch_commands"] = m_nFetchCommands;
    j["fetch_wait_s"] = m_fFetchWaitSeconds;
    j["ours_s"] = fOurs;
    j["ours_per_change_ms"] = Milliseconds(fOurs, m_nChanges);
    j["cpu_s"] = tFigures.fCpuSeconds;
    j["peak_rss_kb"] = tFigures.nPeakResidentKb;
    j["staging_max_bytes"] = m_nStagingMax;
    j["staging_max_tdf_bytes"] = m_nStagingMaxData;
    j["staging_max_tlf_bytes"] = m_nStagingMaxLog;
    return j.dump(2) + "\n";
}

bool CRunStats::Write(const std::string& strPath, const TRunFigures& tFigures, std::string& strError) const
{
    const std::string strText = Json(tFigures);
    std::FILE* pFile = std::fopen(strPath.c_str(), "w");
    if (!pFile)
    {
        strError = "cannot write '" + strPath + "': " + std::strerror(errno);
        return false;
    }
    const bool bWritten = std::fwrite(strText.data(), 1, strText.size(), pFile) == strText.size();
    if (std::fclose(pFile) != 0 || !bWritten)
    {
        strError = "cannot write '" + strPath + "'";
        return false;
    }
    return true;
}

} // namespace IMP
} // namespace ORVANE
