// orvane-import end to end when things go wrong: names the module cannot
// read, names it reads differently from the server, a stop in the middle of
// the enumeration, a worker that is killed, a module that crashes or spins,
// a server that is not there and a p4 client that does not exist. Whatever
// happens: a clear message, the right exit status, nothing left behind.
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "EngineHarness.h"

namespace enginetest {

namespace {

// A history of one change with the given files (path, content), as the
// users of the server named them (p4sim escapes '%', '@', '#' and '*').
std::string History(const std::vector<std::pair<std::string, std::string>>& atFiles)
{
    nlohmann::json jFiles = nlohmann::json::array();
    for (const auto& t : atFiles)
        jFiles.push_back({{"path", t.first}, {"action", "add"}, {"content", t.second}});
    const nlohmann::json j = {
        {"users", {{{"name", "jo"}, {"email", "jo@example.com"}, {"fullName", "Jo Doe"}, {"time", 1000}}}},
        {"changes", {{{"user", "jo"}, {"client", "ws"}, {"time", 1000}, {"description", "names"}, {"files", jFiles}}}}};
    return j.dump();
}

} // namespace

TEST_F(CEngineTest, ANameTheModuleCouldNeverReadIsRefusedBeforeAnythingIsWritten)
{
    const std::string strHistory = m_strTemp + "/history.json";
    WriteWholeFile(strHistory, History({{"//depot/main/done 100%", "done\n"},
                                        {"//depot/main/ok.txt", "fine\n"},
                                        {"//depot/main/x%4", "short\n"}}));
    LoadHistory(strHistory);
    const TResult r = Import({"--git", m_strGit, "--dump", m_strTemp + "/dump"});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ((std::vector<std::string>{
                  "orvane-import: error: the migration module cannot read the names of these depot files (its "
                  "decoding of '%' escapes would never finish on them):",
                  "    //depot/main/done 100%25", "    //depot/main/x%254",
                  "Rename them in Perforce (p4 move), or set RootPath to a narrower path that leaves them out."}),
              MessageLines(r.strErr));
    EXPECT_FALSE(Exists(m_strGit));
    ExpectCleanedUp(std::string());
}

TEST_F(CEngineTest, NamesTheModuleDecodesTwiceArriveAsTheServerNamesThem)
{
    const std::string strHistory = m_strTemp + "/history.json";
    WriteWholeFile(strHistory, History({{"//depot/main/pct%41.txt", "percent A\n"},
                                        {"//depot/main/a%20b.txt", "url-encoded blank\n"},
                                        {"//depot/main/plain.txt", "plain\n"}}));
    LoadHistory(strHistory);
    const std::string strDump = m_strTemp + "/dump";
    const TResult r = Import({"--git", m_strGit, "--dump", strDump, "--verify", "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("", r.strErr);
    const TFiles tFiles = CommitTree("depot");
    EXPECT_EQ((TFiles{{"main/a%20b.txt", {0100644, "url-encoded blank\n"}},
                      {"main/pct%41.txt", {0100644, "percent A\n"}},
                      {"main/plain.txt", {0100644, "plain\n"}}}),
              tFiles);
    // The dump keeps the module's own reading of the names, with the
    // digests of the files p4 sync wrote.
    std::vector<std::string> astrItems;
    for (const nlohmann::json& j : ReadDump(strDump))
        if (j["kind"] == "item")
            astrItems.push_back(j["path"].get<std::string>() + " " + j["sha256"].get<std::string>());
    EXPECT_EQ(
        (std::vector<std::string>{"main/a b.txt a317fcce07b0b405d4958017d1bd340a2074dc8dfc6f4c06a03eb3b7c46144e4",
                                  "main/pctA.txt d9389a22a53b8b72b4b6fd2c47a00291d9ecc7705a36642233c326e21fe563b2",
                                  "main/plain.txt dacf36547c7774a0a170806363b5d412991fbc0d6260b2c00b1d3a80a816c23f"}),
        astrItems);
}

TEST_F(CEngineTest, AFileMissingForAnotherReasonStillStopsTheRun)
{
    const std::string strHistory = m_strTemp + "/history.json";
    WriteWholeFile(strHistory, History({{"//depot/main/pct%41.txt", "percent A\n"}}));
    LoadHistory(strHistory);
    // Every sync of the module fails (nothing is fetched ahead of it), and
    // the run goes on as the module would: the file is missing, and no
    // other name explains it.
    const TResult r = Import({"--git", m_strGit, "--keep-going", "--jobs", "0"}, {{"P4SIM_FAIL", "^sync "}});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_NE(std::string::npos,
              r.strErr.find("change 1 of stream depot was not synced completely: the file 'main/pctA.txt#1' is "
                            "missing"))
        << r.strErr;
    ExpectCleanedUp(std::string());
}

TEST_F(CEngineTest, AStopDuringTheEnumerationEndsTheRunAtOnce)
{
    Generate({"--changes", "400", "--branches", "2", "--files", "8", "--seed", "5"});
    const std::string strJournal = m_strTemp + "/journal";
    const std::string strErr = m_strTemp + "/err";
    ORVANE::VCM::CChildProcess cEngine =
        Start(EngineArgs({"--git", m_strGit}), Env({{"P4SIM_LATENCY_MS", "30"}, {"P4SIM_JOURNAL", strJournal}}),
              m_strTemp + "/out", strErr);
    ASSERT_TRUE(cEngine.IsRunning());
    int nStatus = -1;
    ASSERT_TRUE(WaitForCommand(strJournal, "-G describe", cEngine, nStatus)) << ReadWholeFile(strErr);
    const auto tStop = std::chrono::steady_clock::now();
    cEngine.Signal(SIGTERM);
    EXPECT_EQ(143, cEngine.Wait());
    const double fSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStop).count();
    RecordProperty("seconds_to_stop", std::to_string(fSeconds));
    std::printf("stopped %.2f s after SIGTERM\n", fSeconds);
    EXPECT_EQ("orvane-import: error: interrupted by SIGTERM; the migration did not complete",
              MessageLines(ReadWholeFile(strErr)).back());
    // The enumeration was cut short: far fewer changes were described than
    // the history has.
    size_t nDescribed = 0;
    for (const std::string& strLine : Lines(ReadWholeFile(strJournal)))
        if (strLine.find("\"args\":\"-G describe") != std::string::npos)
            ++nDescribed;
    EXPECT_LT(nDescribed, 100u);
    ExpectCleanedUp(std::string());
}

TEST_F(CEngineTest, AKilledWorkerIsCleanedUpAfter)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strJournal = m_strTemp + "/journal";
    const std::string strErr = m_strTemp + "/err";
    const std::string strWorkspace = m_strTemp + "/ws";
    ORVANE::VCM::CChildProcess cEngine =
        Start(EngineArgs({"--git", m_strGit, "--workspace", strWorkspace}),
              Env({{"P4SIM_LATENCY_MS", "20"}, {"P4SIM_JOURNAL", strJournal}}), m_strTemp + "/out", strErr);
    ASSERT_TRUE(cEngine.IsRunning());
    int nStatus = -1;
    ASSERT_TRUE(WaitForCommand(strJournal, "\"args\":\"sync ", cEngine, nStatus)) << ReadWholeFile(strErr);
    // The worker dies as a crashed one would, with the client made and the
    // staging files open.
    const std::vector<pid_t> anWorkers = Children(cEngine.GetPid());
    ASSERT_EQ(1u, anWorkers.size());
    ASSERT_EQ(0, kill(anWorkers[0], SIGKILL));
    EXPECT_EQ(1, cEngine.Wait());
    const std::vector<std::string> astrMessage = MessageLines(ReadWholeFile(strErr));
    ASSERT_FALSE(astrMessage.empty());
    EXPECT_EQ(0u, astrMessage.back().find("orvane-import: error: the migration module crashed (SIGKILL) during "))
        << astrMessage.back();
    ExpectCleanedUp(strWorkspace);
}

TEST_F(CEngineTest, AModuleThatCrashesIsNamed)
{
    for (const char* pszFault : {"crash", "abort"})
    {
        const TResult r = RunProgram({ENGINETEST_ENGINE, "--provider", "fault", "--module", ENGINETEST_FAULT_MODULE,
                                      "--streams-only", "--quiet"},
                                     Env({{"ORVANE_FAULT", pszFault}}));
        EXPECT_EQ(1, r.nStatus) << pszFault;
        EXPECT_EQ((std::vector<std::string>{std::string("orvane-import: error: the migration module crashed (") +
                                            (pszFault == std::string("crash") ? "SIGSEGV" : "SIGABRT") +
                                            ") during EstablishStreams"}),
                  MessageLines(r.strErr))
            << r.strErr;
    }
    // The same module without a fault.
    const TResult r = RunProgram(
        {ENGINETEST_ENGINE, "--provider", "fault", "--module", ENGINETEST_FAULT_MODULE, "--streams-only", "--quiet"},
        Env());
    EXPECT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("ID  PARENT  NAME  SOURCE  DESTINATION\n1   0       main  -       //fault/main\n", r.strOut);
}

TEST_F(CEngineTest, AModuleThatSpinsIsEnded)
{
    const TResult r = RunProgram({ENGINETEST_ENGINE, "--provider", "fault", "--module", ENGINETEST_FAULT_MODULE,
                                  "--streams-only", "--quiet", "--stall-timeout", "1"},
                                 Env({{"ORVANE_FAULT", "spin"}}));
    EXPECT_EQ(1, r.nStatus);
    const std::vector<std::string> astrMessage = MessageLines(r.strErr);
    ASSERT_EQ(1u, astrMessage.size()) << r.strErr;
    EXPECT_EQ(0u, astrMessage[0].find("orvane-import: error: the migration module stopped making progress during "
                                      "EstablishStreams: no p4 command and no result for "))
        << astrMessage[0];
}

TEST_F(CEngineTest, AServerThatIsNotThereIsOneClearLine)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const TResult r = Import({"--git", m_strGit}, {{"P4PORT", "sim:" + m_strTemp + "/nothing"}});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ("orvane-import: error: the Perforce server at P4PORT=sim:" + m_strTemp +
                  "/nothing cannot be reached: Connect to server failed; check $P4PORT.\n",
              r.strErr);
    EXPECT_FALSE(Exists(m_strGit));
}

TEST_F(CEngineTest, AClientThatDoesNotExistIsOneClearLine)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    std::vector<std::string> astrArgs = EngineArgs({"--git", m_strGit});
    for (std::string& str : astrArgs)
        if (str.compare(0, 7, "P4Path=") == 0)
            str = "P4Path=" + m_strTemp + "/no/p4";
    const TResult r = RunProgram(astrArgs, Env());
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ("orvane-import: error: the Perforce client cannot be run: cannot run '" + m_strTemp +
                  "/no/p4': No such file or directory (the setting P4Path names the p4 executable)\n",
              r.strErr);
    EXPECT_FALSE(Exists(m_strGit));
}

} // namespace enginetest
