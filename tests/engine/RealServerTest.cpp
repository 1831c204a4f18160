// What real Perforce servers send and the module cannot cope with alone:
// pending and shelved changes in listings, connections that drop, query
// limits, expired tickets, a file and a folder of one name. Each run is
// checked end to end: git's history, the exit status and what the user is
// told.
#include <sys/stat.h>

#include <fstream>

#include "EngineHarness.h"
#include "Environment.h"

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

// The connection drops once on one describe of the module (nothing is
// fetched ahead of it): the command is tried again and the run makes
// exactly the commits of an undisturbed run.
TEST_F(CRealServerTest, ADroppedDescribeIsTriedAgain)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const TResult r =
        Import({"--git", m_strGit, "--retry-wait", "0", "--jobs", "0"}, {{"P4SIM_DROP", "^-G describe 5$"}});
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
    TResult r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0", "--workspace", strWorkspace, "--jobs", "0"},
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
    TResult r = Import({"--git", m_strGit, "--quiet", "--retry-wait", "0", "--jobs", "0"},
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
    // Under these limits the integrations cannot be read either (see
    // CMergeHistoryTest.ALimitThatRefusesTheIntegrationsStopsTheRun).
    const TResult r = Import({"--git", m_strGit, "--quiet", "--no-merges"});
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

// The same with lib a symbolic link to a folder outside the workspace: the
// sync is not run (a client would write the file wherever the link
// points), and the run stops naming it.
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
                                            "/depot/...@2' was not run: the depot file //depot/main/lib/passwd "
                                            "lies below the symbolic link //depot/main/lib: a sync would write it "
                                            "wherever the link points",
                                        "Nothing was written for this change; the changes before it are in git. Run "
                                        "again to continue from there, or give --keep-going to import without what "
                                        "failed."}),
              MessageLines(r.strErr));
    EXPECT_EQ(std::set<std::string>(), Tree(strVictim));
    ExpectCleanedUp(strWorkspace);
}

// Files of a +k type: sync expands their keywords; git gets them back in
// their unexpanded form on every branch and every revision, and as sync
// wrote them with --keep-keywords. Other files keep their '$'s.
TEST_F(CRealServerTest, KeywordsOfKtextFilesAreCollapsed)
{
    const char* const pszKtext = "/* $Id$ $Header$ $Change$ $File$ $Revision$ $Author$ $DateTime$ $DateTimeTZ$ */\n";
    nlohmann::json jK = File("//depot/main/k.c", "add", pszKtext);
    jK["type"] = "ktext";
    nlohmann::json jO = File("//depot/main/o.c", "add", "$Id$ $Change$\n");
    jO["type"] = "text+ko";
    nlohmann::json jEdit = File("//depot/main/k.c", "edit", "/* $Id$ $Change$ */\nmore\n");
    Load(
        {{"users", s_jUsers},
         {"branches", nlohmann::json::array({nlohmann::json{{"name", "rel1"},
                                                            {"owner", "jo"},
                                                            {"view", {"//depot/main/... //depot/rel1/..."}},
                                                            {"time", 1200000000}}})},
         {"changes",
          nlohmann::json::array(
              {Change(1200000000, "Add", {jK, jO, File("//depot/main/plain.c", "add", "$Id$ costs $5 $Change: 9 $\n")}),
               Change(1200000100, "Edit", {jEdit}),
               Change(1200000200, "Branch",
                      {nlohmann::json{{"path", "//depot/rel1/k.c"}, {"action", "branch"}, {"from", "//depot/main/k.c"}},
                       nlohmann::json{{"path", "//depot/rel1/o.c"}, {"action", "branch"}, {"from", "//depot/main/o.c"}},
                       nlohmann::json{{"path", "//depot/rel1/plain.c"},
                                      {"action", "branch"},
                                      {"from", "//depot/main/plain.c"}}})})}});
    TResult r = Import({"--git", m_strGit, "--quiet", "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    // The sync expands them (the reference's forms).
    ASSERT_EQ(0, P4({"print", "-q", "//depot/main/k.c#1"})
                     .strOut.find("/* $Id: //depot/main/k.c#1 $ $Header: "
                                  "//depot/main/k.c#1 $ $Change: 1 $"));
    for (const char* pszCommit : {"depot_main~1", "depot_main", "rel1"})
    {
        TFiles t = CommitTree(pszCommit);
        EXPECT_EQ("$Id$ $Change$\n", t["o.c"].strContent) << pszCommit;
        EXPECT_EQ("$Id$ costs $5 $Change: 9 $\n", t["plain.c"].strContent) << pszCommit;
    }
    EXPECT_EQ(pszKtext, CommitTree("depot_main~1")["k.c"].strContent);
    EXPECT_EQ("/* $Id$ $Change$ */\nmore\n", CommitTree("depot_main")["k.c"].strContent);
    // The release branch has the very same blobs as the mainline.
    EXPECT_EQ(Git({"rev-parse", "depot_main:k.c"}).strOut, Git({"rev-parse", "rel1:k.c"}).strOut);

    const std::string strKept = m_strTemp + "/kept.git";
    r = Import({"--git", strKept, "--quiet", "--keep-keywords"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const TResult rK = RunProgram({"git", "--git-dir", strKept, "show", "depot_main:k.c"}, {});
    EXPECT_EQ("/* $Id: //depot/main/k.c#2 $ $Change: 2 $ */\nmore\n", rK.strOut);
    const TResult rO = RunProgram({"git", "--git-dir", strKept, "show", "rel1:o.c"}, {});
    EXPECT_EQ("$Id: //depot/rel1/o.c#1 $ $Change$\n", rO.strOut);
}

// A server without unicode keeps the bytes of Windows clients: the
// description and the full name arrive in git as UTF-8.
TEST_F(CRealServerTest, DescriptionsAndNamesInACodePageAreDecoded)
{
    nlohmann::json jChange = Change(1200000000, "", {File("//depot/a.txt", "add", "a\n")});
    jChange.erase("description");
    jChange["descriptionEscaped"] = "Caf\\xe9 cr\\xe8me \\x80 \\x93quoted\\x94";
    Load({{"users", nlohmann::json::array({nlohmann::json{{"name", "jo"},
                                                          {"email", "jo@example.com"},
                                                          {"fullNameEscaped", "Ren\\xe9 M\\xfcller"},
                                                          {"time", 1000}}})},
          {"changes", nlohmann::json::array({jChange})}});
    TResult r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("Ren\xC3\xA9 M\xC3\xBCller <jo@example.com>\nCaf\xC3\xA9 cr\xC3\xA8me \xE2\x82\xAC "
              "\xE2\x80\x9Cquoted\xE2\x80\x9D\n",
              Git({"log", "-1", "--format=%an <%ae>%n%s", "depot"}).strOut);
    // Another code page, as the user says.
    const std::string strLatin = m_strTemp + "/latin.git";
    r = Import({"--git", strLatin, "--quiet", "--metadata-encoding", "latin1"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("Caf\xC3\xA9 cr\xC3\xA8me \xC2\x80 \xC2\x93quoted\xC2\x94\n",
              RunProgram({"git", "--git-dir", strLatin, "log", "-1", "--format=%s", "depot"}, {}).strOut);
    EXPECT_EQ(2, Import({"--git", m_strTemp + "/x.git", "--metadata-encoding", "klingon"}).nStatus);
}

// A unicode server refuses a client without a character set: the run uses
// UTF-8 without being told.
TEST_F(CRealServerTest, AUnicodeServerIsMigratedWithoutBeingTold)
{
    Load({{"unicode", true},
          {"users", s_jUsers},
          {"changes", nlohmann::json::array({Change(1200000000, "Caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC",
                                                    {File("//depot/r\xC3\xA9sum\xC3\xA9.txt", "add", "a\n")})})}});
    const TResult rRefused = P4({"changes"});
    ASSERT_EQ(1, rRefused.nStatus) << rRefused.strOut << rRefused.strErr;
    const TResult r = Import({"--git", m_strGit, "--quiet"}, {{"P4CHARSET", ""}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("Caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC\n", Git({"log", "-1", "--format=%s", "depot"}).strOut);
    EXPECT_EQ("r\xC3\xA9sum\xC3\xA9.txt\n",
              Git({"-c", "core.quotepath=off", "ls-tree", "--name-only", "depot"}).strOut);
    // The check asks the server as a unicode client.
    const ORVANE::TEST::CEnvironment cCharset("P4CHARSET", "utf8");
    ExpectCleanedUp(std::string());
}

// A case-insensitive server: Src/ and src/ are one folder, spelt as it was
// first seen.
TEST_F(CRealServerTest, OneFolderOfACaseInsensitiveServerIsOneFolderInGit)
{
    Load({{"caseHandling", "insensitive"},
          {"users", s_jUsers},
          {"changes",
           nlohmann::json::array({Change(1200000000, "Add", {File("//depot/main/Src/a.c", "add", "a\n")}),
                                  Change(1200000100, "Add b", {File("//depot/main/src/b.c", "add", "b\n")}),
                                  Change(1200000200, "Edit a", {File("//depot/main/SRC/a.c", "edit", "a2\n")}),
                                  Change(1200000300, "Drop b", {File("//depot/main/src/b.c", "delete")})})}});
    const TResult r = Import({"--git", m_strGit, "--quiet", "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("main/Src/a.c\nmain/Src/b.c\n", Git({"ls-tree", "-r", "--name-only", "depot~1"}).strOut);
    EXPECT_EQ("a2\n", Git({"show", "depot~1:main/Src/a.c"}).strOut);
    EXPECT_EQ("main/Src/a.c\n", Git({"ls-tree", "-r", "--name-only", "depot"}).strOut);
}

// Purged and archived revisions: the module would stop reading the change
// at the first; the commit leaves out what the server no longer has, every
// other file is checked, and the run says which.
TEST_F(CRealServerTest, PurgedAndArchivedRevisionsAreLeftOutAndTold)
{
    nlohmann::json jPurged = File("//depot/main/big.bin", "add", "old\n");
    jPurged["purged"] = true;
    nlohmann::json jArchived = File("//depot/main/old.txt", "add", "archived\n");
    jArchived["archived"] = true;
    Load({{"users", s_jUsers},
          {"changes", nlohmann::json::array({Change(1200000000, "Add",
                                                    {File("//depot/main/a.txt", "add", "a\n"), jPurged, jArchived,
                                                     File("//depot/main/z.txt", "add", "z\n")}),
                                             Change(1200000100, "Edit",
                                                    {File("//depot/main/big.bin", "edit", "new\n"),
                                                     File("//depot/main/z.txt", "edit", "z2\n")})})}});
    const TResult r = Import({"--git", m_strGit, "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_NE(std::string::npos,
              r.strErr.find("orvane-import: 2 revisions are purged or archived on the server and left out of the "
                            "commits: //depot/main/big.bin#1 of change 1, //depot/main/old.txt#1 of change 1 (each in "
                            "the import log)\n"))
        << r.strErr;
    EXPECT_EQ("main/a.txt\nmain/z.txt\n", Git({"ls-tree", "-r", "--name-only", "depot~1"}).strOut);
    EXPECT_EQ("main/a.txt\nmain/big.bin\nmain/z.txt\n", Git({"ls-tree", "-r", "--name-only", "depot"}).strOut);
    EXPECT_EQ("new\n", Git({"show", "depot:main/big.bin"}).strOut);
    const std::string strLog = ReadWholeFile(m_strLog);
    EXPECT_NE(std::string::npos,
              strLog.find(": orvane-import: left out of its commit: //depot/main/big.bin#1 of change 1 (purged on the "
                          "server)\n"))
        << strLog;
    EXPECT_NE(std::string::npos,
              strLog.find(": orvane-import: left out of its commit: //depot/main/old.txt#1 of change "
                          "1 (archived on the server)\n"));
}

// utf16 and utf8 files: git holds what a sync on Linux writes.
TEST_F(CRealServerTest, Utf16AndUtf8FilesAreWhatSyncWrites)
{
    nlohmann::json j16 = File("//depot/u16.txt", "add", "h\xC3\xA9\n");
    j16["type"] = "utf16";
    nlohmann::json j8 = File("//depot/u8.txt", "add", "h\xC3\xA9\n");
    j8["type"] = "utf8";
    Load({{"users", s_jUsers}, {"changes", nlohmann::json::array({Change(1200000000, "Add", {j16, j8})})}});
    const TResult r = Import({"--git", m_strGit, "--quiet", "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    // UTF-16 with a byte order mark, in the client's (little-endian) order;
    // UTF-8 with a byte order mark.
    EXPECT_EQ(std::string("\xFF\xFEh\0\xE9\0\n\0", 8), Git({"show", "depot:u16.txt"}).strOut);
    EXPECT_EQ("\xEF\xBB\xBFh\xC3\xA9\n", Git({"show", "depot:u8.txt"}).strOut);
}

} // namespace enginetest
