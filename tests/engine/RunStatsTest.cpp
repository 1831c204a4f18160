// The figures of a run: child time by kind of command, the engine's own
// share, the staging files' largest size, and the events passed on.
#include <gtest/gtest.h>

#include <fstream>

#include <nlohmann/json.hpp>

#include "RunStats.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using ORVANE::VCM::CProcessCapture;

namespace {

// Records the events it is passed, as "start KIND" / "end KIND STATUS".
class CRecordingObserver : public ORVANE::VCM::IProcessObserver
{
public:
    void OnChildStarting(const std::vector<std::string>& astrArgs) override
    {
        m_astrEvents.push_back("start " + astrArgs.back());
    }
    void OnChildEnded(const std::vector<std::string>& astrArgs, int nStatus, double, const CProcessCapture&) override
    {
        m_astrEvents.push_back("end " + astrArgs.back() + " " + std::to_string(nStatus));
    }
    std::vector<std::string> m_astrEvents;
};

void WriteBytes(const std::string& strPath, size_t nBytes)
{
    std::ofstream(strPath, std::ios::binary | std::ios::trunc) << std::string(nBytes, 'x');
}

} // namespace

TEST(RunStats, CommandKindOfP4)
{
    EXPECT_EQ("changes", CommandKind({"/usr/bin/p4", "-G", "changes", "//depot/main/..."}, ""));
    EXPECT_EQ("describe", CommandKind({"p4", "-G", "-c", "Orvane_Temp_Client", "describe", "12"}, ""));
    EXPECT_EQ("sync", CommandKind({"/opt/p4", "-x", "list.txt", "-cClient", "-u", "bob", "sync"}, ""));
    EXPECT_EQ("client", CommandKind({"/build/tools/p4sim/p4sim", "-p", "sim:/srv", "client", "-i"}, ""));
    EXPECT_EQ("branch", CommandKind({"/bin/perforce", "-G", "-z", "tag", "branch", "-o", "rel"}, "/bin/perforce"));
    EXPECT_EQ("p4sim", CommandKind({"p4sim", "-V"}, ""));
    // Another program of that name is no p4.
    EXPECT_EQ("perforce", CommandKind({"/bin/perforce", "-G", "info"}, "/usr/bin/perforce"));
    EXPECT_EQ("git", CommandKind({"/usr/bin/git", "--version"}, ""));
    EXPECT_EQ("", CommandKind({}, ""));
}

TEST(RunStats, SumsChildrenByKindAndPassesThemOn)
{
    CRecordingObserver cNext;
    CRunStats cStats(&cNext);
    cStats.SetP4Program("/srv/bin/p4x");
    const CProcessCapture cCapture;
    const std::vector<std::string> astrDescribe = {"/srv/bin/p4x", "-G", "describe", "7"};
    const std::vector<std::string> astrSync = {"/srv/bin/p4x", "-c", "C", "sync", "//C/...@7"};
    const std::vector<std::string> astrGit = {"/usr/bin/git", "--version"};
    cStats.OnChildStarting(astrDescribe);
    cStats.OnChildEnded(astrDescribe, 0, 0.25, cCapture);
    cStats.OnChildStarting(astrSync);
    cStats.OnChildEnded(astrSync, 1, 1.5, cCapture);
    cStats.OnChildStarting(astrDescribe);
    cStats.OnChildEnded(astrDescribe, 0, 0.5, cCapture);
    cStats.OnChildStarting(astrGit);
    cStats.OnChildEnded(astrGit, 0, 0.125, cCapture);
    EXPECT_EQ((std::vector<std::string>{"start 7", "end 7 0", "start //C/...@7", "end //C/...@7 1", "start 7",
                                        "end 7 0", "start --version", "end --version 0"}),
              cNext.m_astrEvents);
    EXPECT_EQ(4u, cStats.ChildCount());
    EXPECT_EQ(2.375, cStats.ChildSeconds());
    ASSERT_EQ(3u, cStats.Kinds().size());
    EXPECT_EQ(2u, cStats.Kinds().at("describe").nCount);
    EXPECT_EQ(0.75, cStats.Kinds().at("describe").fSeconds);
    EXPECT_EQ(1u, cStats.Kinds().at("sync").nCount);
    EXPECT_EQ(1.5, cStats.Kinds().at("sync").fSeconds);
    EXPECT_EQ(1u, cStats.Kinds().at("git").nCount);
    EXPECT_EQ(0.125, cStats.Kinds().at("git").fSeconds);

    cStats.SetChanges(4);
    TRunFigures tFigures;
    tFigures.fWallSeconds = 4.375;
    tFigures.fCpuSeconds = 1.25;
    tFigures.nPeakResidentKb = 20480;
    const nlohmann::json j = nlohmann::json::parse(cStats.Json(tFigures));
    EXPECT_EQ(4.375, j["wall_s"].get<double>());
    EXPECT_EQ(4u, j["changes"].get<unsigned>());
    EXPECT_EQ(2.375, j["child_s"].get<double>());
    EXPECT_EQ(4u, j["child_count"].get<unsigned>());
    EXPECT_EQ(2.0, j["ours_s"].get<double>());
    EXPECT_EQ(500.0, j["ours_per_change_ms"].get<double>());
    EXPECT_EQ(1.25, j["cpu_s"].get<double>());
    EXPECT_EQ(20480u, j["peak_rss_kb"].get<unsigned>());
    EXPECT_EQ(2u, j["child_kinds"]["describe"]["count"].get<unsigned>());
    EXPECT_EQ(0.75, j["child_kinds"]["describe"]["s"].get<double>());
    EXPECT_EQ(375.0, j["child_kinds"]["describe"]["ms_each"].get<double>());
    EXPECT_EQ(1500.0, j["child_kinds"]["sync"]["ms_each"].get<double>());
    EXPECT_EQ(125.0, j["child_kinds"]["git"]["ms_each"].get<double>());
    EXPECT_EQ(0u, j["staging_max_bytes"].get<unsigned>());
}

TEST(RunStats, NoChangesNoCostPerChange)
{
    CRunStats cStats;
    TRunFigures tFigures;
    tFigures.fWallSeconds = 0.5;
    const nlohmann::json j = nlohmann::json::parse(cStats.Json(tFigures));
    EXPECT_EQ(0u, j["changes"].get<unsigned>());
    EXPECT_EQ(0.5, j["ours_s"].get<double>());
    EXPECT_EQ(0.0, j["ours_per_change_ms"].get<double>());
    EXPECT_TRUE(j["child_kinds"].is_object());
    EXPECT_EQ(0u, j["child_kinds"].size());
}

// The time the run waited for what was fetched ahead on other connections
// is the server's, not the run's own.
TEST(RunStats, TheWaitForFetchesIsNoTimeOfItsOwn)
{
    CRunStats cStats;
    cStats.SetChanges(4);
    cStats.SetFetched(37, 1.5);
    TRunFigures tFigures;
    tFigures.fWallSeconds = 3.5;
    const nlohmann::json j = nlohmann::json::parse(cStats.Json(tFigures));
    EXPECT_EQ(37u, j["fetch_commands"].get<unsigned>());
    EXPECT_EQ(1.5, j["fetch_wait_s"].get<double>());
    EXPECT_EQ(2.0, j["ours_s"].get<double>());
    EXPECT_EQ(500.0, j["ours_per_change_ms"].get<double>());
}

TEST(RunStats, KeepsTheLargestStagingSizeSeen)
{
    enginetest::TScratch cScratch;
    const std::string strPrefix = cScratch.File("orvane-em-1");
    CRunStats cStats;
    cStats.SetStagingPrefix(strPrefix);
    cStats.SampleStaging();
    EXPECT_EQ(0u, cStats.StagingMaxBytes());
    WriteBytes(strPrefix + ".tdf", 3000);
    WriteBytes(strPrefix + ".tlf", 500);
    cStats.SampleStaging();
    EXPECT_EQ(3500u, cStats.StagingMaxBytes());
    WriteBytes(strPrefix + ".tdf", 1000);
    WriteBytes(strPrefix + ".tlf", 800);
    cStats.SampleStaging();
    EXPECT_EQ(3500u, cStats.StagingMaxBytes());
    const nlohmann::json j = nlohmann::json::parse(cStats.Json(TRunFigures()));
    EXPECT_EQ(3500u, j["staging_max_bytes"].get<unsigned>());
    EXPECT_EQ(3000u, j["staging_max_tdf_bytes"].get<unsigned>());
    EXPECT_EQ(800u, j["staging_max_tlf_bytes"].get<unsigned>());
}

TEST(RunStats, WritesTheFile)
{
    enginetest::TScratch cScratch;
    CRunStats cStats;
    cStats.SetChanges(2);
    std::string strError;
    ASSERT_TRUE(cStats.Write(cScratch.File("stats.json"), TRunFigures(), strError)) << strError;
    std::ifstream cFile(cScratch.File("stats.json"));
    const std::string strText((std::istreambuf_iterator<char>(cFile)), std::istreambuf_iterator<char>());
    EXPECT_EQ(cStats.Json(TRunFigures()), strText);
    EXPECT_FALSE(cStats.Write(cScratch.File("no/such/folder/stats.json"), TRunFigures(), strError));
    EXPECT_EQ("cannot write '" + cScratch.File("no/such/folder/stats.json") + "': No such file or directory", strError);
}
