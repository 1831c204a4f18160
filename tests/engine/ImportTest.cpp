// orvane-import end to end against p4sim servers.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <sstream>
#include <thread>

#include "EngineHarness.h"
#include "Environment.h"
#include "LogFile.h"

using namespace enginetest;

namespace {

std::vector<nlohmann::json> Kind(const std::vector<nlohmann::json>& a, const std::string& strKind)
{
    std::vector<nlohmann::json> aOut;
    for (const nlohmann::json& j : a)
        if (j["kind"] == strKind)
            aOut.push_back(j);
    return aOut;
}

} // namespace

TEST_F(CEngineTest, DemoHistoryEveryCommitMatchesTheDepot)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strDump = m_strTemp + "/dump.jsonl";
    const TResult r = Import({"--git", m_strGit, "--verify", "--dump", strDump, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("", r.strOut);
    EXPECT_EQ("", r.strErr);
    const auto aDump = ReadDump(strDump);
    const auto aStreams = Kind(aDump, "stream");
    ASSERT_EQ(3u, aStreams.size());
    EXPECT_EQ(9u, Kind(aDump, "change").size() - 1); // change 8 is in two streams
    ExpectBranchesMatchDepot(aStreams);

    // The rename's new file is not among the items, yet it is in git; the
    // executable bit and the non-ASCII name came along.
    const TResult t = Git({"ls-tree", "-r", "--name-only", "-z", "depot_main"});
    std::string strExpected;
    for (const char* psz : {"README.txt", "build.sh", "docs/R\xC3\xA9sum\xC3\xA9 des \xC3\xA9tapes.txt",
                            "docs/release notes.txt", "src/calculator.c"})
        strExpected += std::string(psz) + '\0';
    EXPECT_EQ(strExpected, t.strOut);
    EXPECT_EQ("100755", Git({"ls-tree", "depot_main", "build.sh"}).strOut.substr(0, 6));

    // Each release branch starts from the mainline's commit at or before its
    // first change.
    EXPECT_EQ("Notes in several languages\n", Git({"log", "-1", "--format=%s", "rel1~2^"}).strOut);
    EXPECT_EQ("Rename the sources, drop the old logo\n", Git({"log", "-1", "--format=%s", "rel2~1^"}).strOut);
    // Times are the changes' times in UTC; two changes of the mainline at
    // the same second were spread apart by the provider.
    EXPECT_EQ("1262303999 +0000|1262303999 +0000\n",
              Git({"log", "-1", "--format=%ad|%cd", "--date=raw", "depot_main~4"}).strOut);
    EXPECT_EQ("refs/heads/depot_main\n", Git({"symbolic-ref", "HEAD"}).strOut);
    EXPECT_FALSE(ReadWholeFile(m_strLog).empty());
}

TEST_F(CEngineTest, GeneratedHistoryEveryCommitMatchesTheDepot)
{
    Generate({"--changes", "40", "--branches", "2", "--files", "16", "--seed", "11"});
    const std::string strDump = m_strTemp + "/dump.jsonl";
    const std::string strWorkspace = m_strTemp + "/ws";
    const TResult r = Import({"--git", m_strGit, "--verify", "--dump", strDump, "--workspace", strWorkspace});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const auto aDump = ReadDump(strDump);
    const auto aStreams = Kind(aDump, "stream");
    ASSERT_EQ(3u, aStreams.size());
    ExpectBranchesMatchDepot(aStreams);
    // The table printed at the end names each branch and its commits.
    const auto astrLines = Lines(r.strOut);
    ASSERT_EQ(4u, astrLines.size()) << r.strOut;
    EXPECT_EQ(0u, astrLines[0].find("ID  PARENT  NAME"));
    EXPECT_FALSE(Exists(strWorkspace));
}

TEST_F(CEngineTest, DumpOfASmallHistoryIsExactlyTheRecord)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    const TResult r = Import({"--dump", "-", "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const auto astrExpected = Lines(ReadWholeFile(ENGINETEST_DATA "/small-dump.jsonl"));
    const auto astrActual = Lines(r.strOut);
    ASSERT_FALSE(astrExpected.empty());
    for (size_t i = 0; i < std::max(astrExpected.size(), astrActual.size()); ++i)
        EXPECT_EQ(i < astrExpected.size() ? astrExpected[i] : "(none)", i < astrActual.size() ? astrActual[i] : "(none)")
            << "line " << i + 1;
}

TEST_F(CEngineTest, StreamsOnlyAndGraph)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strDot = m_strTemp + "/streams.dot";
    const TResult r = Import({"--streams-only", "--graph", strDot});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("ID  PARENT  NAME        SOURCE        DESTINATION\n"
              "1   0       depot_main  -             //depot/main\n"
              "2   1       rel1        //depot/main  //depot/rel1\n"
              "3   1       rel2        //depot/main  //depot/rel2\n",
              r.strOut);
    EXPECT_EQ("digraph streams {\n"
              "    rankdir=LR;\n"
              "    node [shape=box, fontname=\"sans-serif\"];\n"
              "    s1 [label=\"depot_main\\n//depot/main\"];\n"
              "    s2 [label=\"rel1\\n//depot/rel1\"];\n"
              "    s3 [label=\"rel2\\n//depot/rel2\"];\n"
              "    s1 -> s2;\n"
              "    s1 -> s3;\n"
              "    s2 -> s1 [style=dashed, constraint=false, label=\"merge 9\"];\n"
              "}\n",
              ReadWholeFile(strDot));
    // Nothing was imported: no client was ever made.
    EXPECT_EQ("", P4({"clients"}).strOut);

    const std::string strSvg = m_strTemp + "/streams.svg";
    const TResult s = Import({"--streams-only", "--quiet", "--graph", strSvg});
    ASSERT_EQ(0, s.nStatus) << s.strErr;
    EXPECT_NE(std::string::npos, ReadWholeFile(strSvg).find("<svg"));
}

TEST_F(CEngineTest, ListSettingsShowsTheProvidersTable)
{
    const TResult r = RunProgram({ENGINETEST_ENGINE, "--list-settings"}, Env());
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("NAME                               KEY              DEFAULT             TYPE\n"
              "p4 Executable Path                 P4Path           p4                  file\n"
              "Root Path                          RootPath         //depot/...         text\n"
              "Ignored Branch Specs               IgnoredBranches  IgnoredBranch*;ZZ*  text\n"
              "Use Compression                    Compression      0                   boolean\n"
              "Server Case-Insensitive (Windows)  CaseInsensitive  1                   boolean\n",
              r.strOut);
}

TEST_F(CEngineTest, UsageErrorsExitWithTwoAndOneLine)
{
    for (const std::vector<std::string>& astrArgs :
         std::vector<std::vector<std::string>>{{"--no-such-option"},
                                               {"--dump", "-", "--set", "NoEquals"},
                                               {"--dump", "-", "--set", "NoSuchKey=1"},
                                               {"--dump", "-", "--set", "Compression=yes"},
                                               {"--dump", "-", "--provider", "nosuch"},
                                               {}})
    {
        std::vector<std::string> astr = {ENGINETEST_ENGINE};
        astr.insert(astr.end(), astrArgs.begin(), astrArgs.end());
        const TResult r = RunProgram(astr, Env());
        EXPECT_EQ(2, r.nStatus) << r.strErr;
        EXPECT_EQ(1u, Lines(r.strErr).size()) << r.strErr;
        EXPECT_EQ(0u, r.strErr.find("orvane-import: error: ")) << r.strErr;
    }
    // A git folder that is in use is refused before anything is done.
    WriteWholeFile(m_strTemp + "/occupied", "x");
    const TResult g = RunProgram({ENGINETEST_ENGINE, "--git", m_strTemp}, Env());
    EXPECT_EQ(2, g.nStatus);

    const TResult h = RunProgram({ENGINETEST_ENGINE, "--help"}, Env());
    EXPECT_EQ(0, h.nStatus);
    EXPECT_NE(std::string::npos, h.strOut.find("--git"));
    const TResult v = RunProgram({ENGINETEST_ENGINE, "--version"}, Env());
    EXPECT_EQ(0, v.nStatus);
    EXPECT_EQ(0u, v.strOut.find("orvane-import "));
}

TEST_F(CEngineTest, ModuleNamedDirectly)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    const TResult r = Import({"--module", ENGINETEST_MODULE, "--streams-only", "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(3u, Lines(r.strOut).size());
}

// A provider failure: exit status 1, the failure in the dump, and nothing
// left behind.
struct TFailureCase
{
    const char* pszPattern;
    const char* pszCall; // the failing provider call, or "" when the engine notices
};

class CFailureTest : public CEngineTest, public ::testing::WithParamInterface<TFailureCase>
{
};

TEST_P(CFailureTest, EndsWithStatusOneAndLeavesNothingBehind)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strDump = m_strTemp + "/dump.jsonl";
    const std::string strWorkspace = m_strTemp + "/ws";
    const std::string strErr = m_strTemp + "/err";
    ORVANE::VCM::CChildProcess cEngine =
        Start(EngineArgs({"--git", m_strGit, "--dump", strDump, "--workspace", strWorkspace}),
              Env({{"P4SIM_FAIL", GetParam().pszPattern}}), m_strTemp + "/out", strErr);
    ASSERT_TRUE(cEngine.IsRunning());
    EXPECT_EQ(1, cEngine.Wait());
    const std::string strMessage = ReadWholeFile(strErr);
    EXPECT_NE(std::string::npos, strMessage.find("orvane-import: error: ")) << strMessage;
    const auto aDump = ReadDump(strDump);
    if (*GetParam().pszCall)
    {
        ASSERT_FALSE(aDump.empty());
        EXPECT_EQ((nlohmann::json{{"kind", "failure"}, {"call", GetParam().pszCall}, {"result", 1}}), aDump.back());
    }
    ExpectCleanedUp(strWorkspace);
}

INSTANTIATE_TEST_SUITE_P(Injected, CFailureTest,
                         ::testing::Values(TFailureCase{"branches", "EstablishStreams"},
                                           TFailureCase{"^client -i", "InitialiseClients"},
                                           TFailureCase{"^sync .*rel1|^-G print .*rel1", ""}),
                         [](const ::testing::TestParamInfo<TFailureCase>& tInfo) {
                             return std::string(*tInfo.param.pszCall ? tInfo.param.pszCall : "IncompleteSync");
                         });

class CSignalTest : public CEngineTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(CSignalTest, StopsBetweenCallsAndCleansUp)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strJournal = m_strTemp + "/journal";
    const std::string strWorkspace = m_strTemp + "/ws";
    const std::string strErr = m_strTemp + "/err";
    ORVANE::VCM::CChildProcess cEngine =
        Start(EngineArgs({"--git", m_strGit, "--workspace", strWorkspace}),
              Env({{"P4SIM_LATENCY_MS", "40"}, {"P4SIM_JOURNAL", strJournal}}), m_strTemp + "/out", strErr);
    ASSERT_TRUE(cEngine.IsRunning());
    bool bSynced = false;
    for (int i = 0; i < 3000 && !bSynced; ++i)
    {
        for (const std::string& strLine : Lines(ReadWholeFile(strJournal)))
            if (strLine.find("\"args\":\"sync ") != std::string::npos ||
                strLine.find("\"args\":\"-G print ") != std::string::npos)
                bSynced = true;
        if (!bSynced)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(bSynced) << ReadWholeFile(strJournal);
    cEngine.Signal(GetParam());
    EXPECT_EQ(128 + GetParam(), cEngine.Wait());
    EXPECT_NE(std::string::npos, ReadWholeFile(strErr).find("interrupted")) << ReadWholeFile(strErr);
    ExpectCleanedUp(strWorkspace);
}

INSTANTIATE_TEST_SUITE_P(Signals, CSignalTest, ::testing::Values(SIGINT, SIGTERM),
                         [](const ::testing::TestParamInfo<int>& tInfo) {
                             return std::string(tInfo.param == SIGINT ? "SIGINT" : "SIGTERM");
                         });

TEST_F(CEngineTest, NonAsciiNamesSurviveALocaleThatIsNotUtf8)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const TResult r = Import({"--git", m_strGit, "--verify", "--quiet"}, {{"LC_ALL", "C"}, {"LANG", "C"}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const TResult t = Git({"ls-tree", "-r", "--name-only", "-z", "rel2"});
    EXPECT_NE(std::string::npos, t.strOut.find("docs/R\xC3\xA9sum\xC3\xA9 des \xC3\xA9tapes.txt")) << t.strOut;
}

TEST_F(CEngineTest, TheImportLogIsNamedOrRemoved)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strTmp = m_strTemp + "/tmp";
    ASSERT_EQ(0, mkdir(strTmp.c_str(), 0700));
    // The engine's own listing of the import logs, in that folder.
    const ORVANE::TEST::CEnvironment cTmpdir("TMPDIR", strTmp);
    const std::vector<std::string> astrArgs = {ENGINETEST_ENGINE, "--set", std::string("P4Path=") + ENGINETEST_P4SIM,
                                               "--streams-only"};
    // A run that says what it did names its log, and keeps it.
    const TResult r = RunProgram(astrArgs, Env({{"TMPDIR", strTmp}}));
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const std::set<std::string> setLogs = ORVANE::IMP::ListImportLogs();
    ASSERT_EQ(1u, setLogs.size());
    const std::string strLog = *setLogs.begin();
    EXPECT_EQ("orvane-import: import log: " + strLog, Lines(r.strErr).back());
    EXPECT_NE(std::string::npos, ReadWholeFile(strLog).find(": Beginning Import with Perforce\n"));
    // A quiet one that ends well names nothing, and leaves nothing.
    std::vector<std::string> astrQuiet = astrArgs;
    astrQuiet.push_back("--quiet");
    const TResult q = RunProgram(astrQuiet, Env({{"TMPDIR", strTmp}}));
    ASSERT_EQ(0, q.nStatus) << q.strErr;
    EXPECT_EQ("", q.strErr);
    EXPECT_EQ(setLogs, ORVANE::IMP::ListImportLogs());
    // A quiet one that fails names its log all the same.
    const TResult f = RunProgram(astrQuiet, Env({{"TMPDIR", strTmp}, {"P4SIM_FAIL", "^-G branches"}}));
    EXPECT_EQ(1, f.nStatus);
    ASSERT_EQ(2u, ORVANE::IMP::ListImportLogs().size());
    const std::string strFailed = ORVANE::IMP::NewImportLog(setLogs);
    EXPECT_EQ(std::vector<std::string>({"orvane-import: import log: " + strFailed,
                                        "orvane-import: error: the provider reported a failure in EstablishStreams "
                                        "(result 1): '" ENGINETEST_P4SIM " -G branches' failed: p4sim: simulated "
                                        "failure of '-G branches'"}),
              Lines(f.strErr));
}

TEST_F(CEngineTest, KeptWorkspaceHoldsEachStreamsLastState)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    const std::string strWorkspace = m_strTemp + "/ws";
    const TResult r = Import({"--dump", m_strTemp + "/dump", "--workspace", strWorkspace, "--keep-workspace",
                              "--log-to-console", "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("one\ntwo\n", ReadWholeFile(strWorkspace + "/depot_main/a.txt"));
    EXPECT_EQ("last\n", ReadWholeFile(strWorkspace + "/depot_main/z.txt"));
    EXPECT_FALSE(Exists(strWorkspace + "/depot_main/bin/run.sh"));
    EXPECT_EQ("one\ntwo\nthree\n", ReadWholeFile(strWorkspace + "/rel1/a.txt"));
    // The import log went to standard error as well as to its file.
    EXPECT_NE(std::string::npos, r.strErr.find("Proposing stream 'rel1'")) << r.strErr;
    EXPECT_NE(std::string::npos, ReadWholeFile(m_strLog).find("Proposing stream 'rel1'"));
    ExpectCleanedUp(std::string());
}
