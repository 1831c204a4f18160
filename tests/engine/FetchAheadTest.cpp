// Fetching ahead of the module: descriptions in batches and file contents
// over several connections, the module's syncs done from them. Whatever
// the number of connections, git gets the same commits as when every
// command of the module reaches the server; a fetch that fails is tried
// again and then left to the server; a stop during a fetch leaves nothing
// behind; nothing is written outside the workspace.
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "EngineHarness.h"

namespace enginetest {

namespace {

class CFetchAheadTest : public CEngineTest
{
protected:
    void Load(const nlohmann::json& jHistory)
    {
        const std::string strFile = m_strTemp + "/history.json";
        WriteWholeFile(strFile, jHistory.dump());
        LoadHistory(strFile);
    }

    // Every ref with the commit it names.
    std::string Refs(const std::string& strGit) const
    {
        return RunProgram({"git", "--git-dir", strGit, "for-each-ref", "--format=%(objectname) %(refname)"}, {}).strOut;
    }

    // Imports into a repository of its own; its refs.
    std::string ImportRefs(const std::string& strName, const std::vector<std::string>& astrOptions,
                           const std::map<std::string, std::string>& mapEnv = {})
    {
        const std::string strGit = m_strTemp + "/" + strName + ".git";
        std::vector<std::string> astrArgs = {"--git", strGit, "--quiet"};
        astrArgs.insert(astrArgs.end(), astrOptions.begin(), astrOptions.end());
        const TResult r = Import(astrArgs, mapEnv);
        EXPECT_EQ(0, r.nStatus) << strName << ": " << r.strErr;
        return Refs(strGit);
    }

    // The line of the import log that says what was fetched ahead.
    std::string FetchLine() const
    {
        for (const std::string& strLine : Lines(ReadWholeFile(m_strLog)))
        {
            const size_t n = strLine.find("orvane-import: fetched ahead: ");
            if (n != std::string::npos)
                return strLine.substr(n + 15);
        }
        return std::string();
    }

    // The journal's commands ("args"), in order.
    std::vector<std::string> Commands(const std::string& strJournal) const
    {
        std::vector<std::string> astr;
        for (const std::string& strLine : Lines(ReadWholeFile(strJournal)))
            astr.push_back(nlohmann::json::parse(strLine)["args"].get<std::string>());
        return astr;
    }
};

nlohmann::json File(const std::string& strPath, const char* pszAction, const char* pszContent = nullptr,
                    const char* pszType = nullptr)
{
    nlohmann::json j = {{"path", strPath}, {"action", pszAction}};
    if (pszContent)
        j["content"] = pszContent;
    if (pszType)
        j["type"] = pszType;
    return j;
}

nlohmann::json From(const std::string& strPath, const char* pszAction, const std::string& strFrom)
{
    return {{"path", strPath}, {"action", pszAction}, {"from", strFrom}};
}

nlohmann::json Change(long tTime, const char* pszDescription, const std::vector<nlohmann::json>& ajFiles)
{
    return {{"user", "jo"},
            {"client", "jo-ws"},
            {"time", tTime},
            {"description", pszDescription},
            {"files", nlohmann::json(ajFiles)}};
}

const nlohmann::json s_jUsers = nlohmann::json::array(
    {nlohmann::json{{"name", "jo"}, {"email", "jo@example.com"}, {"fullName", "Jo Doe"}, {"time", 1200000000}}});

nlohmann::json Branch(const char* pszName, const char* pszView)
{
    return {{"name", pszName}, {"owner", "jo"}, {"view", {pszView}}, {"time", 1200000000}};
}

// Every kind of change the histories of the tests hold, on a mainline and a
// release branch.
nlohmann::json EveryKind()
{
    nlohmann::json jPurged = File("//depot/main/old.bin", "edit", "gone\n");
    jPurged["purged"] = true;
    nlohmann::json jNotUtf8 = {
        {"pathEscaped", "//depot/main/caf\\xe9.txt"}, {"action", "add"}, {"content", "latin1\n"}};
    // Larger than what waits in memory: it goes through the spool folder.
    nlohmann::json jBig = {{"path", "//depot/main/big.bin"},
                           {"action", "add"},
                           {"type", "binary"},
                           {"generated", {{"size", 3000000}, {"seed", 1}}}};
    nlohmann::json jBigEdit = jBig;
    jBigEdit["action"] = "edit";
    jBigEdit["generated"]["seed"] = 2;
    return {
        {"users", s_jUsers},
        {"branches", nlohmann::json::array({Branch("rel1", "//depot/main/... //depot/rel1/...")})},
        {"changes",
         nlohmann::json::array({
             Change(1200000000, "Add",
                    {File("//depot/main/a.txt", "add", "one\n"), File("//depot/main/run.sh", "add", "echo\n", "text+x"),
                     File("//depot/main/src/deep/b.c", "add", "int b;\n"),
                     File("//depot/main/old.bin", "add", "old\n", "binary"),
                     File("//depot/main/k.c", "add", "/* $Id$ $Change$ */\n", "ktext"),
                     File("//depot/main/o.c", "add", "$Id$\n", "text+ko"),
                     File("//depot/main/with blank.txt", "add", "blank\n"),
                     File("//depot/main/at@hash#pct%star*.txt", "add", "escaped\n"),
                     File("//depot/main/caf\xc3\xa9.txt", "add", "utf-8 name\n"), jNotUtf8, jBig}),
             Change(1200000100, "Edit, delete, link",
                    {File("//depot/main/a.txt", "edit", "one\ntwo\n"), File("//depot/main/src/deep/b.c", "delete"),
                     File("//depot/main/current", "add", "src", "symlink"),
                     File("//depot/main/k.c", "edit", "/* $Id$ $Change$ */\nmore\n")}),
             Change(1200000200, "Move and make executable",
                    {From("//depot/main/tools/run.sh", "move/add", "//depot/main/run.sh"),
                     File("//depot/main/a.txt", "edit", "one\ntwo\n", "text+x"), jBigEdit}),
             Change(1200000300, "Purge", {jPurged}),
             Change(1200000400, "Branch",
                    {From("//depot/rel1/a.txt", "branch", "//depot/main/a.txt"),
                     From("//depot/rel1/k.c", "branch", "//depot/main/k.c"),
                     From("//depot/rel1/current", "branch", "//depot/main/current"),
                     From("//depot/rel1/tools/run.sh", "branch", "//depot/main/tools/run.sh")}),
             Change(1200000500, "Work on both",
                    {File("//depot/rel1/a.txt", "edit", "one\ntwo\nfix\n"),
                     File("//depot/main/current", "edit", "tools", "symlink"),
                     File("//depot/main/with blank.txt", "delete")}),
             Change(1200000600, "Integrate the fix",
                    {{{"path", "//depot/main/a.txt"},
                      {"action", "integrate"},
                      {"from", "//depot/rel1/a.txt"},
                      {"content", "one\ntwo\nfix\n"}},
                     File("//depot/main/u16.txt", "add", "wide\n", "utf16")}),
             Change(1200000700, "A link becomes a file",
                    {File("//depot/main/current", "edit", "plain now\n", "text"),
                     File("//depot/main/at@hash#pct%star*.txt", "edit", "escaped 2\n")}),
         })}};
}

} // namespace

// The same commits with no connection fetching ahead, the default and 32,
// over every kind of change; the syncs the fast path cannot do exactly (a
// purged revision, a utf16 file) go to the server.
TEST_F(CFetchAheadTest, EveryKindOfChangeGivesTheSameCommits)
{
    Load(EveryKind());
    const std::string strSlow = ImportRefs("slow", {"--jobs", "0"});
    ASSERT_NE("", strSlow);
    EXPECT_EQ("", FetchLine());
    EXPECT_EQ(strSlow, ImportRefs("default", {"--verify"}));
    // The mainline's 7 changes and the release branch's 2, one describe
    // for each stream, and change 6 once more: it is in both streams, and
    // its files are forgotten when the mainline is past it (they are asked
    // for again as the release branch comes to it). The revisions: 21 of
    // the mainline (every added or
    // changed file but the purged revision and the utf16 file) and 5 of the
    // release branch. The changes with the purge and the utf16 file are
    // synced by the server, the 7 others not.
    const std::string strLine = FetchLine();
    EXPECT_EQ(0u, strLine.find("fetched ahead: 10 descriptions in 3 commands, 26 revisions (")) << strLine;
    // (How the revisions share print commands depends on when the
    // descriptions come.)
    EXPECT_NE(std::string::npos, strLine.find(" commands; 7 syncs done from them, 2 by the server; ")) << strLine;
    EXPECT_EQ(strSlow, ImportRefs("many", {"--jobs", "32"}));
    EXPECT_EQ(strSlow, ImportRefs("one", {"--jobs", "1"}));
}

// The demo's history: the same commits with 0, the default and 32
// connections.
TEST_F(CFetchAheadTest, TheDemoGivesTheSameCommitsWhateverTheConnections)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strSlow = ImportRefs("slow", {"--jobs", "0"});
    ASSERT_NE("", strSlow);
    EXPECT_EQ(strSlow, ImportRefs("default", {}));
    EXPECT_EQ(0u, FetchLine().find("fetched ahead: ")) << FetchLine();
    EXPECT_EQ(strSlow, ImportRefs("many", {"--jobs", "32", "--verify"}));
}

// A run that continues an earlier one: each folder's first change is
// synced by the server (the folder starts empty, the change before it is
// in git already), the rest from what was fetched; the commits are those
// of one whole run.
TEST_F(CFetchAheadTest, AContinuedRunGivesTheCommitsOfOneRun)
{
    Load(EveryKind());
    const std::string strWhole = ImportRefs("whole", {"--jobs", "0"});
    const TResult rFirst =
        Import({"--git", m_strGit, "--quiet", "--jobs", "0", "--retries", "0"}, {{"P4SIM_FAIL", "^sync .*@3$"}});
    ASSERT_EQ(1, rFirst.nStatus) << rFirst.strErr;
    ASSERT_NE("", Refs(m_strGit));
    const TResult r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(strWhole, Refs(m_strGit));
    // The mainline's 3 (its first this run), 4 (the purge) and 7 (the
    // utf16 file) go to the server; 6 and 8, and the release branch's 5
    // and 6, not.
    const std::string strLine = FetchLine();
    EXPECT_NE(std::string::npos, strLine.find("; 4 syncs done from them, 3 by the server; ")) << strLine;
}

// A server whose MaxResults the batches go past: each is asked again in
// halves until the server answers; the commits are the same.
TEST_F(CFetchAheadTest, BatchesOverTheServersLimitsAreAskedInHalves)
{
    Load(EveryKind());
    const TResult rLimit = RunProgram({ENGINETEST_P4SIM, "admin", "limits", m_strServer, "--max-results", "20"}, Env());
    ASSERT_EQ(0, rLimit.nStatus) << rLimit.strErr;
    // The integrations are listed whole, past the limit: without merges.
    const std::string strSlow = ImportRefs("slow", {"--jobs", "0", "--no-merges"});
    ASSERT_NE("", strSlow);
    EXPECT_EQ(strSlow, ImportRefs("fast", {"--no-merges"}));
    // The mainline's 7 descriptions name 26 files: their describe is split
    // in two (the prints are split as far as their batches go past 20).
    const std::string strLine = FetchLine();
    EXPECT_NE(std::string::npos, strLine.find(" commands over the server's limits asked again in halves")) << strLine;
    EXPECT_NE(std::string::npos, strLine.find("10 descriptions in 5 commands, 26 revisions (")) << strLine;
}

// Without connections of its own the run sends the module's commands and
// nothing else; with them, the module's descriptions and syncs do not
// reach the server at all on a history the fast path handles.
TEST_F(CFetchAheadTest, TheModulesCommandsAloneWithNoJobs)
{
    Generate({"--changes", "40", "--branches", "2", "--files", "30", "--seed", "5"});
    const std::string strJournal0 = m_strTemp + "/journal0";
    const std::string strRefs0 = ImportRefs("slow", {"--jobs", "0", "--no-merges"}, {{"P4SIM_JOURNAL", strJournal0}});
    unsigned nDescribes = 0, nSyncs = 0;
    for (const std::string& str : Commands(strJournal0))
    {
        EXPECT_EQ(std::string::npos, str.find("print")) << str;
        EXPECT_EQ(std::string::npos, str.find("describe -s")) << str;
        EXPECT_EQ(std::string::npos, str.find("sync -k")) << str;
        nDescribes += str.compare(0, 12, "-G describe ") == 0;
        nSyncs += str.compare(0, 5, "sync ") == 0;
    }
    EXPECT_GE(nDescribes, 40u);
    EXPECT_EQ(nDescribes, nSyncs);

    const std::string strJournal = m_strTemp + "/journal";
    EXPECT_EQ(strRefs0, ImportRefs("fast", {"--no-merges"}, {{"P4SIM_JOURNAL", strJournal}}));
    unsigned nBatches = 0, nPrints = 0;
    for (const std::string& str : Commands(strJournal))
    {
        const bool bBatch = str.compare(0, 15, "-G describe -s ") == 0;
        nBatches += bBatch;
        nPrints += str.compare(0, 9, "-G print ") == 0;
        EXPECT_FALSE(str.compare(0, 12, "-G describe ") == 0 && !bBatch) << str;
        // Only the have list is brought up to date before the client goes.
        EXPECT_TRUE(str.compare(0, 5, "sync ") != 0 || str.compare(0, 8, "sync -k ") == 0) << str;
    }
    EXPECT_GE(nBatches, 2u);
    EXPECT_GE(nPrints, 1u);
}

// A print whose connection drops every time is tried again, then its
// changes are synced by the server, with a warning; the commits are the
// same.
TEST_F(CFetchAheadTest, AFetchThatFailsIsTriedAgainThenLeftToTheServer)
{
    Load(EveryKind());
    const std::string strSlow = ImportRefs("slow", {"--jobs", "0"});
    const std::string strJournal = m_strTemp + "/journal";
    const std::string strGit = m_strTemp + "/dropped.git";
    const TResult r =
        Import({"--git", strGit, "--retries", "2", "--retry-wait", "0"}, {{"P4SIM_DROP", "^-G print "},
                                                                          {"P4SIM_DROP_TIMES", "1000"},
                                                                          {"P4SIM_DROP_COUNTER", m_strTemp + "/count"},
                                                                          {"P4SIM_JOURNAL", strJournal}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(strSlow, Refs(strGit));
    // Each print was run three times.
    std::map<std::string, unsigned> mapPrints;
    for (const std::string& str : Commands(strJournal))
        if (str.compare(0, 9, "-G print ") == 0)
            ++mapPrints[str];
    ASSERT_FALSE(mapPrints.empty());
    for (const auto& kv : mapPrints)
        EXPECT_EQ(3u, kv.second) << kv.first;
    EXPECT_NE(std::string::npos, r.strErr.find("orvane-import: warning: fetching ahead failed ('" +
                                               std::string(ENGINETEST_P4SIM) + " -G print //depot/main/a.txt#1 "))
        << r.strErr;
    EXPECT_NE(std::string::npos, r.strErr.find("' failed: TCP receive failed.")) << r.strErr;
    EXPECT_NE(std::string::npos, r.strErr.find("); change 1 is synced by the server")) << r.strErr;
}

// Descriptions whose batch fails: the module asks for each itself.
TEST_F(CFetchAheadTest, ADescriptionBatchThatFailsIsLeftToTheModule)
{
    Load(EveryKind());
    const std::string strSlow = ImportRefs("slow", {"--jobs", "0"});
    const std::string strGit = m_strTemp + "/failed.git";
    const TResult r =
        Import({"--git", strGit, "--retries", "1", "--retry-wait", "0"}, {{"P4SIM_FAIL", "^-G describe -s "}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(strSlow, Refs(strGit));
    EXPECT_NE(std::string::npos, r.strErr.find("orvane-import: warning: fetching ahead failed ('" +
                                               std::string(ENGINETEST_P4SIM) + " -G describe -s "))
        << r.strErr;
    EXPECT_NE(std::string::npos, r.strErr.find("the module asks the server itself")) << r.strErr;
}

// When the server's own sync fails too, the run stops as it does without
// fetching ahead: naming the sync, nothing written for the change.
TEST_F(CFetchAheadTest, WhenTheServerCannotSyncEitherTheRunStops)
{
    Load(EveryKind());
    const std::string strWorkspace = m_strTemp + "/ws";
    const TResult r = Import({"--git", m_strGit, "--quiet", "--retries", "0", "--workspace", strWorkspace},
                             {{"P4SIM_FAIL", "^-G print |^sync /"}});
    EXPECT_EQ(1, r.nStatus);
    const std::vector<std::string> astr = MessageLines(r.strErr);
    ASSERT_FALSE(astr.empty());
    EXPECT_EQ(0u, astr[0].find("orvane-import: error: change 1 of stream depot_main cannot be synced: '" +
                               std::string(ENGINETEST_P4SIM) + " sync " + strWorkspace + "/depot_main/...@1' failed: "))
        << astr[0];
    EXPECT_EQ("", Git({"for-each-ref"}).strOut);
    ExpectCleanedUp(strWorkspace);
}

// A stop while contents are on their way: the fetching commands end, the
// spool and workspace go, the client is removed.
TEST_F(CFetchAheadTest, AStopDuringAFetchLeavesNothingBehind)
{
    Generate({"--changes", "60", "--branches", "2", "--files", "40", "--seed", "9"});
    const std::string strJournal = m_strTemp + "/journal";
    const std::string strWorkspace = m_strTemp + "/ws";
    const std::string strErr = m_strTemp + "/err";
    ORVANE::VCM::CChildProcess cEngine =
        Start(EngineArgs({"--git", m_strGit, "--workspace", strWorkspace, "--jobs", "4"}),
              Env({{"P4SIM_LATENCY_MS", "150"}, {"P4SIM_JOURNAL", strJournal}}), m_strTemp + "/out", strErr);
    ASSERT_TRUE(cEngine.IsRunning());
    int nStatus = 0;
    ASSERT_TRUE(WaitForCommand(strJournal, "\"args\":\"-G print ", cEngine, nStatus)) << nStatus;
    cEngine.Signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, cEngine.Wait());
    EXPECT_NE(std::string::npos, ReadWholeFile(strErr).find("interrupted by SIGTERM")) << ReadWholeFile(strErr);
    ExpectCleanedUp(strWorkspace);
    // No p4 command of the run is left running.
    EXPECT_EQ(std::vector<pid_t>(), Processes([this](pid_t nPid) {
                  const std::string strEnv = ReadWholeFile("/proc/" + std::to_string(nPid) + "/environ");
                  return strEnv.find("P4PORT=sim:" + m_strServer + std::string(1, '\0')) != std::string::npos;
              }));
}

// A link to a folder outside the workspace, then a file below it in a
// later change: with or without fetching ahead, nothing is written through
// the link and the run stops naming it.
TEST_F(CFetchAheadTest, NothingIsWrittenThroughALinkOfAnEarlierChange)
{
    const std::string strVictim = m_strTemp + "/victim";
    ASSERT_EQ(0, mkdir(strVictim.c_str(), 0755));
    Load({{"users", s_jUsers},
          {"changes", nlohmann::json::array(
                          {Change(1200000000, "Add", {File("//depot/main/a.txt", "add", "a\n")}),
                           Change(1200000100, "Link", {File("//depot/main/lib", "add", strVictim.c_str(), "symlink")}),
                           Change(1200000200, "Below", {File("//depot/main/lib/passwd", "add", "root\n")})})}});
    std::vector<std::string> astrMessages;
    for (const char* pszJobs : {"0", "8"})
    {
        const std::string strWorkspace = m_strTemp + "/ws" + pszJobs;
        const TResult r = Import({"--git", m_strTemp + "/git" + pszJobs, "--quiet", "--retry-wait", "0", "--workspace",
                                  strWorkspace, "--jobs", pszJobs});
        EXPECT_EQ(1, r.nStatus) << pszJobs;
        const std::vector<std::string> astr = MessageLines(r.strErr);
        ASSERT_FALSE(astr.empty()) << pszJobs;
        EXPECT_NE(std::string::npos,
                  astr[0].find("' was not run: the depot file //depot/main/lib/passwd lies below the symbolic link "
                               "//depot/main/lib: a sync would write it wherever the link points"))
            << astr[0];
        EXPECT_EQ(std::set<std::string>(), Tree(strVictim)) << pszJobs;
        ExpectCleanedUp(strWorkspace);
    }
}

// --verify syncs each stream's last change again the server's way into a
// scratch folder; when that sync fails, the run says so.
TEST_F(CFetchAheadTest, VerifyAsksTheServerForTheLastChangeOfEachStream)
{
    Load(EveryKind());
    const std::string strJournal = m_strTemp + "/journal";
    const TResult r = Import({"--git", m_strGit, "--quiet", "--verify"}, {{"P4SIM_JOURNAL", strJournal}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    std::vector<std::string> astrChecks;
    for (const std::string& str : Commands(strJournal))
        if (str.find(" sync -p ") != std::string::npos)
            astrChecks.push_back(str);
    EXPECT_EQ((std::vector<std::string>{"-c Orvane_Temp_Client_Verify sync -p //depot/main/...@8",
                                        "-c Orvane_Temp_Client_Verify sync -p //depot/rel1/...@6"}),
              astrChecks);

    const TResult rFailed = Import({"--git", m_strTemp + "/failed.git", "--quiet", "--verify", "--retries", "0"},
                                   {{"P4SIM_FAIL", "sync -p "}});
    EXPECT_EQ(1, rFailed.nStatus);
    const std::vector<std::string> astr = MessageLines(rFailed.strErr);
    ASSERT_FALSE(astr.empty());
    EXPECT_EQ(0u, astr[0].find("orvane-import: error: verify: stream depot_main, change 8: the server's sync failed: "))
        << astr[0];
}

} // namespace enginetest
