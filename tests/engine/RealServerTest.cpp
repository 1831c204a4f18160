// What real Perforce servers send and the module cannot cope with alone:
// pending and shelved changes in listings, connections that drop, query
// limits, expired tickets, a file and a folder of one name. Each run is
// checked end to end: git's history, the exit status and what the user is
// told.
#include <sys/stat.h>

#include <fstream>

#include "EngineHarness.h"

namespace enginetest {

namespace {

class CRealServerTest : public CEngineTest
{
protected:
    void Load(const nlohmann::json& jHistory)
    {
        const std::string strFile = m_strTemp + "/history-" + std::to_string(++m_nLoads) + ".json";
        WriteWholeFile(strFile, jHistory.dump());
        LoadHistory(strFile);
    }

    // Every branch with the commit it points at, and every commit's subject
    // and change trailer, newest first: "BRANCH COMMIT" and "  SUBJECT N".
    std::vector<std::string> History(const std::string& strGit) const
    {
        std::vector<std::string> astr;
        const TResult r = RunProgram(
            {"git", "--git-dir", strGit, "for-each-ref", "--format=%(refname:short) %(objectname)", "refs/heads/"}, {});
        for (const std::string& strLine : Lines(r.strOut))
        {
            astr.push_back(strLine);
            const TResult rLog = RunProgram({"git", "--git-dir", strGit, "log",
                                             "--format=  %s %(trailers:key=Perforce-Change,valueonly,separator=)",
                                             strLine.substr(0, strLine.find(' '))},
                                            {});
            for (const std::string& str : Lines(rLog.strOut))
                astr.push_back(str);
        }
        return astr;
    }

    // A second repository made by an undisturbed full run of the server
    // as it is now.
    std::vector<std::string> UndisturbedHistory()
    {
        const std::string strGit = m_strTemp + "/undisturbed.git";
        const TResult r = Import({"--git", strGit, "--quiet"});
        EXPECT_EQ(0, r.nStatus) << r.strErr;
        return History(strGit);
    }

    unsigned m_nLoads = 0;
};

nlohmann::json File(const char* pszPath, const char* pszAction, const char* pszContent = nullptr)
{
    nlohmann::json j = {{"path", pszPath}, {"action", pszAction}};
    if (pszContent)
        j["content"] = pszContent;
    return j;
}

nlohmann::json Change(long tTime, const char* pszDescription, const std::vector<nlohmann::json>& ajFiles,
                      const char* pszStatus = nullptr)
{
    nlohmann::json j = {{"user", "jo"},
                        {"client", "jo-ws"},
                        {"time", tTime},
                        {"description", pszDescription},
                        {"files", nlohmann::json(ajFiles)}};
    if (pszStatus)
        j["status"] = pszStatus;
    return j;
}

const nlohmann::json s_jUsers = {{{"name", "jo"}, {"email", "jo@example.com"}, {"fullName", "Jo Doe"}, {"time", 1000}}};

} // namespace

// Another user's pending change and a shelved one touch the path: a real
// server lists them with the submitted ones. They never become commits;
// once the pending one is submitted (and renumbered), a catch-up run adds
// it, and the result is what a full run makes.
TEST_F(CRealServerTest, PendingAndShelvedChangesNeverBecomeCommits)
{
    Load({{"users", s_jUsers},
          {"changes",
           nlohmann::json::array(
               {Change(1200000000, "Add a and b",
                       {File("//depot/a.txt", "add", "one\n"), File("//depot/b.txt", "add", "b\n")}),
                Change(1200000100, "Edit a", {File("//depot/a.txt", "edit", "two\n")}),
                Change(1200000200, "Work in progress",
                       {File("//depot/a.txt", "edit", "three\n"), File("//depot/c.txt", "add", "c\n")}, "pending"),
                Change(1200000300, "Shelved fix", {File("//depot/b.txt", "edit", "shelved\n")}, "shelved"),
                Change(1200000400, "Edit b", {File("//depot/b.txt", "edit", "b3\n")})})}});
    // The server lists them, as a real one does.
    const std::vector<std::string> astrListed = Lines(P4({"changes", "//depot/..."}).strOut);
    ASSERT_EQ(5u, astrListed.size());
    EXPECT_EQ(0u, astrListed[1].find("Change 4 on ")) << astrListed[1];
    EXPECT_NE(std::string::npos, astrListed[1].find(" *pending* ")) << astrListed[1];
    EXPECT_EQ(0u, astrListed[2].find("Change 3 on ")) << astrListed[2];
    EXPECT_NE(std::string::npos, astrListed[2].find(" *pending* ")) << astrListed[2];
    TResult r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("", r.strErr);
    std::vector<std::string> astr = History(m_strGit);
    ASSERT_EQ(4u, astr.size());
    EXPECT_EQ((std::vector<std::string>{"  Edit b 5", "  Edit a 2", "  Add a and b 1"}),
              std::vector<std::string>(astr.begin() + 1, astr.end()));
    TFiles tTip = CommitTree("depot");
    EXPECT_EQ((std::vector<std::string>{"a.txt", "b.txt"}), [&tTip]() {
        std::vector<std::string> a;
        for (const auto& kv : tTip)
            a.push_back(kv.first);
        return a;
    }());
    EXPECT_EQ("two\n", tTip["a.txt"].strContent);
    EXPECT_EQ("b3\n", tTip["b.txt"].strContent);

    // The pending change is submitted now, as change 6.
    Load({{"changes", nlohmann::json::array({nlohmann::json{{"submit", 3}, {"time", 1200000500}}})}});
    r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    astr = History(m_strGit);
    EXPECT_EQ((std::vector<std::string>{"  Work in progress 6", "  Edit b 5", "  Edit a 2", "  Add a and b 1"}),
              std::vector<std::string>(astr.begin() + 1, astr.end()));
    tTip = CommitTree("depot");
    EXPECT_EQ("three\n", tTip["a.txt"].strContent);
    EXPECT_EQ("c\n", tTip["c.txt"].strContent);
    EXPECT_EQ(UndisturbedHistory(), astr);
    ExpectCleanedUp(std::string());
}

// The connection drops once on one describe: the command is tried again
// and the run makes exactly the commits of an undisturbed run.
TEST_F(CRealServerTest, ADroppedDescribeIsTriedAgain)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const TResult r = Import({"--git", m_strGit, "--retry-wait", "0"}, {{"P4SIM_DROP", "^-G describe 5$"}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const std::vector<std::string> astrMessage = MessageLines(r.strErr);
    ASSERT_FALSE(astrMessage.empty());
    EXPECT_EQ(0u, astrMessage[0].find("orvane-import: warning: '" ENGINETEST_P4SIM
                                      " -G describe 5' failed (TCP receive failed.); trying again in 0 s (1 of 3)"))
        << r.strErr;
    EXPECT_NE(std::string::npos,
              r.strErr.find("orvane-import: 1 p4 command failed on the way to the server and succeeded when tried "
                            "again\n"))
        << r.strErr;
    EXPECT_EQ(UndisturbedHistory(), History(m_strGit));
    ExpectCleanedUp(std::string());
}

// A sync whose connection drops every time: the run stops before the
// change is written, naming it; the next run goes on from there and ends
// with the commits of an undisturbed run.
TEST_F(CRealServerTest, ASyncThatKeepsFailingStopsBeforeItsChange)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strWorkspace = m_strTemp + "/ws";
    TResult r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0", "--workspace", strWorkspace},
                       {{"P4SIM_DROP", "^sync .*@4$"}, {"P4SIM_DROP_TIMES", "100"}});
    EXPECT_EQ(1, r.nStatus);
    const std::string strSync = "sync " + strWorkspace + "/depot_main/...@4";
    EXPECT_EQ(
        (std::vector<std::string>{"orvane-import: error: change 4 of stream depot_main cannot be synced: '" +
                                      std::string(ENGINETEST_P4SIM) + " " + strSync + "' failed: TCP receive failed.",
                                  "Nothing was written for this change; the changes before it are in git. Run "
                                  "again to continue from there, or give --keep-going to import without what "
                                  "failed."}),
        MessageLines(r.strErr));
    std::vector<std::string> astr = History(m_strGit);
    ASSERT_FALSE(astr.empty());
    EXPECT_EQ(0u, astr[0].find("depot_main "));
    EXPECT_EQ((std::vector<std::string>{"  Notes in several languages 2", "  Initial import of the calculator 1"}),
              std::vector<std::string>(astr.begin() + 1, astr.end()));
    ExpectCleanedUp(strWorkspace);

    r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(UndisturbedHistory(), History(m_strGit));
}

// A describe that keeps failing: nothing is imported, and a second run
// imports everything.
TEST_F(CRealServerTest, ADescribeThatKeepsFailingImportsNothing)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    TResult r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0"},
                       {{"P4SIM_DROP", "^-G describe 4$"}, {"P4SIM_DROP_TIMES", "100"}});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ(
        (std::vector<std::string>{"orvane-import: error: change 4 of stream depot_main cannot be read: '" +
                                      std::string(ENGINETEST_P4SIM) + " -G describe 4' failed: TCP receive failed.",
                                  "Nothing was imported. Run again, or give --keep-going to import without "
                                  "what failed."}),
        MessageLines(r.strErr));
    EXPECT_TRUE(History(m_strGit).empty());
    r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(UndisturbedHistory(), History(m_strGit));
}

// MaxResults below the number of files of the depot: the start-up listing
// is refused, the names are checked as the changes are read, and the run
// completes (no single command of it reaches the limit).
TEST_F(CRealServerTest, AServerWithASmallMaxResultsIsMigrated)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const TResult rLimit = RunProgram({ENGINETEST_P4SIM, "admin", "limits", m_strServer, "--max-results", "12"}, Env());
    ASSERT_EQ(0, rLimit.nStatus) << rLimit.strErr;
    ASSERT_EQ(1, P4({"files", "//depot/..."}).nStatus);
    const TResult r = Import({"--git", m_strGit});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_NE(std::string::npos,
              r.strErr.find("orvane-import: the server refuses to list every file under //depot/... at once (its "
                            "MaxResults or MaxScanRows); the names are checked as the changes are read\n"))
        << r.strErr;
    const TResult rUnlimit =
        RunProgram({ENGINETEST_P4SIM, "admin", "limits", m_strServer, "--max-results", "0"}, Env());
    ASSERT_EQ(0, rUnlimit.nStatus) << rUnlimit.strErr;
    EXPECT_EQ(UndisturbedHistory(), History(m_strGit));
}

// With the limit, a name the module would never finish decoding is still
// found before anything is written.
TEST_F(CRealServerTest, ANameTheModuleCannotReadIsFoundWithoutTheListing)
{
    Load({{"users", s_jUsers},
          {"changes",
           nlohmann::json::array({Change(1200000000, "Add",
                                         {File("//depot/a.txt", "add", "a\n"), File("//depot/b.txt", "add", "b\n"),
                                          File("//depot/c.txt", "add", "c\n")}),
                                  Change(1200000100, "Done", {File("//depot/done 100%", "add", "done\n")})})}});
    const TResult rLimit = RunProgram({ENGINETEST_P4SIM, "admin", "limits", m_strServer, "--max-results", "3"}, Env());
    ASSERT_EQ(0, rLimit.nStatus) << rLimit.strErr;
    const TResult r = Import({"--git", m_strGit, "--quiet"});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ((std::vector<std::string>{"orvane-import: error: the migration module cannot read the names of these "
                                        "depot files (its decoding of '%' escapes would never finish on them):",
                                        "    //depot/done 100%25",
                                        "Rename them in Perforce (p4 move), or set RootPath to a narrower path that "
                                        "leaves them out."}),
              MessageLines(r.strErr));
    EXPECT_TRUE(History(m_strGit).empty());
    ExpectCleanedUp(std::string());
}

// An expired ticket stops the run at once with the server's words.
TEST_F(CRealServerTest, AnExpiredTicketIsOneClearLine)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const TResult r = Import({"--git", m_strGit}, {{"P4SIM_TICKET", "expired"}, {"P4USER", "jo"}});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ("orvane-import: error: the Perforce server does not accept the user jo: Your session has expired, "
              "please login again. (log in with 'p4 login' first)\n",
              r.strErr);
    EXPECT_FALSE(Exists(m_strGit));
}

// One change adds a file lib and a file lib/passwd: no sync can write
// both. The run stops naming the sync and the server's words; with
// --keep-going the module goes on and fails at the item, and the failure
// says what stood in the way.
TEST_F(CRealServerTest, AFileAndAFolderOfOneNameAreNamed)
{
    Load({{"users", s_jUsers},
          {"changes", nlohmann::json::array({Change(1200000000, "Add", {File("//depot/main/a.txt", "add", "a\n")}),
                                             Change(1200000100, "Both",
                                                    {File("//depot/main/lib", "add", "x\n"),
                                                     File("//depot/main/lib/passwd", "add", "root\n")})})}});
    const std::string strWorkspace = m_strTemp + "/ws";
    TResult r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0", "--workspace", strWorkspace});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ(
        (std::vector<std::string>{"orvane-import: error: change 2 of stream depot cannot be synced: '" +
                                      std::string(ENGINETEST_P4SIM) + " sync " + strWorkspace +
                                      "/depot/...@2' failed: " + strWorkspace + "/depot/main/lib: not a directory",
                                  "Nothing was written for this change; the changes before it are in git. Run "
                                  "again to continue from there, or give --keep-going to import without what "
                                  "failed."}),
        MessageLines(r.strErr));
    const std::vector<std::string> astrHistory = History(m_strGit);
    ASSERT_EQ(2u, astrHistory.size());
    EXPECT_EQ("  Add 1", astrHistory[1]);

    r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0", "--workspace", strWorkspace, "--keep-going"});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ((std::vector<std::string>{
                  "orvane-import: warning: change 2 of stream depot cannot be synced: '" +
                      std::string(ENGINETEST_P4SIM) + " sync " + strWorkspace + "/depot/...@2' failed: " +
                      strWorkspace + "/depot/main/lib: not a directory (--keep-going: the module goes on without it)",
                  "orvane-import: error: the provider reported a failure in OnNextChangeItem (result 1): cannot make "
                  "the folder of 'main/lib/passwd': " +
                      strWorkspace + "/depot/main/lib is not a directory (a file of the synced files)"}),
              MessageLines(r.strErr));
    ExpectCleanedUp(strWorkspace);
}

// The same with lib a symbolic link to a folder outside the workspace:
// nothing is written there, and the run stops naming the sync.
TEST_F(CRealServerTest, AFileBelowASymbolicLinkOfTheDepotIsNeverWrittenThroughIt)
{
    const std::string strVictim = m_strTemp + "/victim";
    ASSERT_EQ(0, mkdir(strVictim.c_str(), 0755));
    nlohmann::json jLink = File("//depot/main/lib", "add", strVictim.c_str());
    jLink["type"] = "symlink";
    Load({{"users", s_jUsers},
          {"changes", nlohmann::json::array(
                          {Change(1200000000, "Add", {File("//depot/main/a.txt", "add", "a\n")}),
                           Change(1200000100, "Both", {jLink, File("//depot/main/lib/passwd", "add", "root\n")})})}});
    const std::string strWorkspace = m_strTemp + "/ws";
    const TResult r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0", "--workspace", strWorkspace});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ((std::vector<std::string>{"orvane-import: error: change 2 of stream depot cannot be synced: '" +
                                            std::string(ENGINETEST_P4SIM) + " sync " + strWorkspace +
                                            "/depot/...@2' failed: " + strWorkspace +
                                            "/depot/main/lib/passwd: cannot be written through the symbolic link " +
                                            strWorkspace + "/depot/main/lib",
                                        "Nothing was written for this change; the changes before it are in git. Run "
                                        "again to continue from there, or give --keep-going to import without what "
                                        "failed."}),
              MessageLines(r.strErr));
    EXPECT_EQ(std::set<std::string>(), Tree(strVictim));
    ExpectCleanedUp(strWorkspace);
}

} // namespace enginetest
