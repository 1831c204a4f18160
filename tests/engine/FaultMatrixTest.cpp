// The fault matrix: orvane-import end to end against p4sim with one fault
// per test. Each p4 command the module runs fails in turn, its marshalled
// output arrives broken in each of p4sim's ways, the p4 client is missing,
// the workspace cannot be written, the staging file's name is taken by a
// symbolic link, a disk fills up, git fast-import dies. For each: the
// module's import log entries for it, the exit status, and always no crash,
// no temporary client left on the server (or a warning naming it), no
// staging file, nothing touched outside the workspace and the repository.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "EngineHarness.h"

namespace enginetest {

namespace {

const char* const s_pszClient = "Orvane_Temp_Client";

// The entries of the import log that tell of a failure, without their
// "SECONDS: " prefix.
std::vector<std::string> FailureEntries(const std::string& strLog)
{
    std::vector<std::string> astr;
    for (const std::string& strLine : Lines(strLog))
    {
        const size_t nColon = strLine.find(": ");
        if (nColon == std::string::npos || strLine.find_first_not_of("0123456789") != nColon)
            continue;
        const std::string strText = strLine.substr(nColon + 2);
        for (const char* pszStart : {" Command failure", "** ", "Failed ", "No streams"})
            if (strText.compare(0, std::strlen(pszStart), pszStart) == 0)
                astr.push_back(strText);
    }
    return astr;
}

// Processes whose command line holds the text.
std::vector<pid_t> ProcessesWith(const std::string& strText)
{
    return Processes([&strText](pid_t nPid) {
        return ReadWholeFile("/proc/" + std::to_string(nPid) + "/cmdline").find(strText) != std::string::npos;
    });
}

// Text that git cannot compress much: hexadecimal digits of a simple
// pseudo-random sequence.
std::string Noise(size_t nBytes, unsigned nSeed)
{
    std::string str;
    str.reserve(nBytes + 1);
    unsigned n = nSeed;
    while (str.size() < nBytes)
    {
        n = n * 1103515245u + 12345u;
        str += "0123456789abcdef"[(n >> 16) & 15];
    }
    return str + "\n";
}

// A history of two changes with a file of the given size in each.
std::string BigFileHistory(size_t nBytes)
{
    const nlohmann::json j = {
        {"users", {{{"name", "jo"}, {"email", "jo@example.com"}, {"fullName", "Jo Doe"}, {"time", 1000}}}},
        {"changes",
         {{{"user", "jo"},
           {"client", "ws"},
           {"time", 1000},
           {"description", "big"},
           {"files",
            {{{"path", "//depot/main/big.txt"}, {"action", "add"}, {"content", Noise(nBytes, 1)}},
             {{"path", "//depot/main/small.txt"}, {"action", "add"}, {"content", "small\n"}}}}},
          {{"user", "jo"},
           {"client", "ws"},
           {"time", 1100},
           {"description", "bigger"},
           {"files", {{{"path", "//depot/main/big.txt"}, {"action", "edit"}, {"content", Noise(nBytes, 2)}}}}}}}};
    return j.dump();
}

} // namespace

class CFaultTest : public CEngineTest
{
protected:
    void SetUp() override
    {
        CEngineTest::SetUp();
        m_strWorkspace = m_strTemp + "/ws";
        m_strOutside = m_strTemp + "/outside";
        for (const char* psz : {"/outside", "/outside/tmp", "/outside/home", "/outside/cwd"})
            ASSERT_EQ(0, mkdir((m_strTemp + psz).c_str(), 0755));
        m_setOutsideBefore = Tree(m_strOutside);
    }

    // The engine's environment: the temporary folder, home and working
    // folder are the test's, so that whatever lands there is seen.
    std::map<std::string, std::string> FaultEnv(const std::map<std::string, std::string>& mapExtra) const
    {
        std::map<std::string, std::string> mapEnv = {{"TMPDIR", m_strOutside + "/tmp"},
                                                     {"HOME", m_strOutside + "/home"}};
        for (const auto& kv : mapExtra)
            mapEnv[kv.first] = kv.second;
        return Env(mapEnv);
    }

    std::vector<std::string> Args(const std::vector<std::string>& astrExtra = {}) const
    {
        std::vector<std::string> astr = {"--git", m_strGit, "--workspace", m_strWorkspace, "--quiet"};
        astr.insert(astr.end(), astrExtra.begin(), astrExtra.end());
        return EngineArgs(astr);
    }

    TResult RunEngine(const std::vector<std::string>& astrArgv, const std::map<std::string, std::string>& mapEnv = {})
    {
        return RunProgram(astrArgv, FaultEnv(mapEnv), "", m_strOutside + "/cwd");
    }

    // The engine inside engine_sandbox with the given mounts; false (the
    // test skipped) when this system cannot make the sandbox.
    bool RunSandboxed(const std::vector<std::string>& astrMounts, const std::vector<std::string>& astrArgv, TResult& r,
                      const std::map<std::string, std::string>& mapEnv = {})
    {
        std::vector<std::string> astr = {ENGINETEST_SANDBOX};
        astr.insert(astr.end(), astrMounts.begin(), astrMounts.end());
        astr.push_back("--");
        astr.insert(astr.end(), astrArgv.begin(), astrArgv.end());
        std::map<std::string, std::string> mapAll = mapEnv;
        if (std::find(astrMounts.begin(), astrMounts.end(), "--pid") != astrMounts.end())
        {
            // In a PID namespace of its own a program still sees the outer
            // /proc: the leak checker of a sanitized build cannot find its
            // threads there and fails the program. Leaks are checked in
            // every other run.
            const char* pszAsan = std::getenv("ASAN_OPTIONS");
            mapAll["ASAN_OPTIONS"] =
                std::string(pszAsan ? pszAsan : "") + (pszAsan && *pszAsan ? ":" : "") + "detect_leaks=0";
        }
        r = RunEngine(astr, mapAll);
        if (r.nStatus == 125 && r.strErr.compare(0, 22, "engine_sandbox: cannot") == 0)
        {
            std::printf("skipped: %s", r.strErr.c_str());
            return false;
        }
        return true;
    }

    // Mounts that give the sandbox a /tmp of its own (the folder given, or
    // a tmpfs of that many KB made on it), in which this test's folder
    // stays reachable under its own path.
    std::vector<std::string> PrivateTmp(const std::string& strFolder, const std::string& strTmpfsKb) const
    {
        std::vector<std::string> astr;
        if (!strTmpfsKb.empty())
            astr = {"--tmpfs", strFolder, strTmpfsKb};
        for (const std::string& strKept : KeptInTmp())
        {
            const std::string strInside = strFolder + "/" + strKept;
            astr.insert(astr.end(), {"--mkdir", strInside, "--bind", "/tmp/" + strKept, strInside});
        }
        astr.insert(astr.end(), {"--bind", strFolder, "/tmp"});
        return astr;
    }

    // The folders of /tmp that a private /tmp keeps: those through which
    // this test's folder and the programs it runs (the build, a checkout
    // below /tmp) are reached.
    std::set<std::string> KeptInTmp() const
    {
        std::set<std::string> set;
        for (const std::string& str : {m_strTemp, std::string(ENGINETEST_BUILD_ROOT)})
            if (str.compare(0, 5, "/tmp/") == 0)
                set.insert(str.substr(5, str.find('/', 5) - 5));
        return set;
    }

    // What every run must leave: no crash, no temporary client (unless the
    // run warned about it), no staging file, no workspace, nothing in the
    // temporary folder, home or working folder it was given.
    void ExpectNoHarm(const TResult& r)
    {
        EXPECT_LT(r.nStatus, 128) << r.strErr;
        EXPECT_EQ(std::string::npos, r.strErr.find("crashed")) << r.strErr;
        ExpectCleanedUp(m_strWorkspace);
        EXPECT_EQ(m_setOutsideBefore, Tree(m_strOutside));
    }

    // The branches of the repository as "NAME COMMITS".
    std::vector<std::string> Branches() const
    {
        std::vector<std::string> astr;
        for (const std::string& strName :
             Lines(Git({"for-each-ref", "--format=%(refname:short)", "refs/heads/"}).strOut))
            astr.push_back(strName + " " + Lines(Git({"rev-list", "--count", "refs/heads/" + strName}).strOut).at(0));
        return astr;
    }

    std::string m_strWorkspace;
    std::string m_strOutside;
    std::set<std::string> m_setOutsideBefore;
};

// Rows that differ only in p4sim's test switches.
struct TSwitchRow
{
    const char* pszName;
    std::map<std::string, std::string> mapEnv;
    int nStatus;
    std::vector<std::string> astrLog;      // the module's failure entries
    std::vector<std::string> astrMessage;  // the engine's lines on standard error
    std::vector<std::string> astrBranches; // the branches in git afterwards: "NAME COMMITS"
    bool bClientRemains = false;
    bool bKeepGoing = false; // run with --keep-going
};

// The row's name in gtest's messages.
void PrintTo(const TSwitchRow& t, std::ostream* pOut);
void PrintTo(const TSwitchRow& t, std::ostream* pOut)
{
    *pOut << t.pszName;
}

class CSwitchFaultTest : public CFaultTest, public ::testing::WithParamInterface<TSwitchRow>
{
};

TEST_P(CSwitchFaultTest, Row)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    const TSwitchRow& t = GetParam();
    // A broken answer is tried again at once: the switch breaks every one.
    // The module's own commands meet the faults: nothing is fetched ahead
    // of it (the faults of fetching ahead are the fetch's own tests).
    std::vector<std::string> astrArgs = {"--retry-wait", "0", "--jobs", "0"};
    if (t.bKeepGoing)
        astrArgs.push_back("--keep-going");
    const TResult r = RunEngine(Args(astrArgs), t.mapEnv);
    EXPECT_EQ(t.nStatus, r.nStatus) << r.strErr;
    std::vector<std::string> astrLog = t.astrLog;
    std::vector<std::string> astrMessage = t.astrMessage;
    for (std::vector<std::string>* p : {&astrLog, &astrMessage})
        for (std::string& str : *p)
            while (str.find("@WS@") != std::string::npos)
                str.replace(str.find("@WS@"), 4, m_strWorkspace);
    EXPECT_EQ(astrLog, FailureEntries(ReadWholeFile(m_strLog)));
    EXPECT_EQ(astrMessage, MessageLines(r.strErr));
    EXPECT_EQ(t.astrBranches, Branches());
    if (t.bClientRemains)
    {
        // The server refused every delete: the warning names the client,
        // which is removed here so that the usual checks hold.
        EXPECT_EQ(0, P4({"client", "-d", s_pszClient}).nStatus);
    }
    ExpectNoHarm(r);
}

namespace {

// The entry of every run: the module deletes a client of its name before
// it makes its own.
const std::string s_strNoClient = " Command failure (1) - Client 'Orvane_Temp_Client' doesn't exist. ";

std::string Simulated(const std::string& strArgs)
{
    return " Command failure (1) - p4sim: simulated failure of '" + strArgs + "' ";
}

std::string Provider(const std::string& strCall, const std::string& strArgs)
{
    return "orvane-import: error: the provider reported a failure in " + strCall + " (result 1): '" + ENGINETEST_P4SIM +
           " " + strArgs + "' failed: p4sim: simulated failure of '" + strArgs + "'";
}

// A failure the run ends with: what was lost, the command and its message.
std::string Lost(const std::string& strWhat, const std::string& strArgs, const std::string& strProblem)
{
    return "orvane-import: error: " + strWhat + ": '" + ENGINETEST_P4SIM + " " + strArgs + "' failed: " + strProblem;
}

// The same as a warning of --keep-going.
std::string KeptGoing(const std::string& strWhat, const std::string& strArgs, const std::string& strProblem)
{
    return "orvane-import: warning: " + strWhat + ": '" + ENGINETEST_P4SIM + " " + strArgs + "' failed: " + strProblem +
           " (--keep-going: the module goes on without it)";
}

std::string LeftOut(const std::string& strBranch, const std::string& strProblem)
{
    return "orvane-import: warning: the branch specification " + strBranch +
           " is left out, its files are in no "
           "stream: '" +
           ENGINETEST_P4SIM + " -G branch -o " + strBranch + "' failed: " + strProblem;
}

const std::string s_strUnlisted = std::string("orvane-import: warning: the branch specifications cannot be listed, so "
                                              "none became a stream: '") +
                                  ENGINETEST_P4SIM + " -G branches' failed: its output could not be read";

const std::string s_strNothingImported =
    "Nothing was imported. Run again, or give --keep-going to import without what failed.";

const std::string s_strUnreadable = "its output could not be read";

std::string SimulatedText(const std::string& strArgs)
{
    return "p4sim: simulated failure of '" + strArgs + "'";
}

std::map<std::string, std::string> Garble(const std::string& strPattern, const char* pszMode)
{
    return {{"P4SIM_GARBLE", strPattern}, {"P4SIM_GARBLE_MODE", pszMode}};
}

const std::vector<std::string> s_astrAll = {"depot_main 3", "rel1 4"};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    P4, CSwitchFaultTest,
    ::testing::Values(
        TSwitchRow{"BranchesFails",
                   {{"P4SIM_FAIL", "^-G branches"}},
                   1,
                   {Simulated("-G branches")},
                   {Provider("EstablishStreams", "-G branches")},
                   {}},
        // The branch spec is skipped, with a warning: the root path is the
        // one stream.
        TSwitchRow{"BranchOutputFails",
                   {{"P4SIM_FAIL", "^-G branch -o rel1"}},
                   0,
                   {Simulated("-G branch -o rel1"), s_strNoClient},
                   {LeftOut("rel1", SimulatedText("-G branch -o rel1"))},
                   {"depot 4"}},
        // The module would go on without the stream's changes: the run
        // stops once the changes are established, before anything is
        // written.
        TSwitchRow{"ChangesFails",
                   {{"P4SIM_FAIL", "^-G changes //depot/rel1"}},
                   1,
                   {s_strNoClient, Simulated("-G changes //depot/rel1/..."),
                    "** Failed to enumerate changes for //depot/rel1"},
                   {Lost("the changes of stream rel1 cannot be listed", "-G changes //depot/rel1/...",
                         SimulatedText("-G changes //depot/rel1/...")),
                    s_strNothingImported},
                   {}},
        // The module would leave change 3 out and give its files to change 4.
        TSwitchRow{"DescribeFails",
                   {{"P4SIM_FAIL", "^-G describe 3$"}},
                   1,
                   {s_strNoClient, Simulated("-G describe 3"), "** Failed to enumerate change 3"},
                   {Lost("change 3 of stream rel1 cannot be read", "-G describe 3", SimulatedText("-G describe 3")),
                    s_strNothingImported},
                   {}},
        TSwitchRow{"ClientCreateFails",
                   {{"P4SIM_FAIL", "^client -i"}},
                   1,
                   {s_strNoClient, Simulated("client -i"), s_strNoClient},
                   {Provider("InitialiseClients", "client -i")},
                   {}},
        // The module's deletes fail; the engine's own one removes the client.
        TSwitchRow{"ClientDeleteFails",
                   {{"P4SIM_FAIL", "^client -d"}},
                   0,
                   {Simulated("client -d Orvane_Temp_Client"), Simulated("client -d Orvane_Temp_Client")},
                   {},
                   s_astrAll},
        TSwitchRow{"ClientDeleteRefused",
                   {{"P4SIM_FAIL", "client -d"}},
                   0,
                   {Simulated("client -d Orvane_Temp_Client"), Simulated("client -d Orvane_Temp_Client")},
                   {"orvane-import: warning: the temporary client 'Orvane_Temp_Client' remains on the server (p4sim: "
                    "simulated failure of '-G client -d Orvane_Temp_Client'); remove it with: p4 client -d "
                    "Orvane_Temp_Client"},
                   s_astrAll,
                   true},
        // The first change's sync fails: nothing is written for it.
        TSwitchRow{"SyncFails",
                   {{"P4SIM_FAIL", "^sync "}},
                   1,
                   {s_strNoClient, Simulated("sync @WS@/depot_main/...@1")},
                   {Lost("change 1 of stream depot_main cannot be synced", "sync @WS@/depot_main/...@1",
                         SimulatedText("sync @WS@/depot_main/...@1")),
                    "Nothing was written for this change; the changes before it are in git. Run again to continue "
                    "from there, or give --keep-going to import without what failed."},
                   {}},
        // A listing cut short or broken: tried again, then named. No branch
        // spec can be read, so the root path is the one stream.
        TSwitchRow{"BranchesCut", Garble("^-G branches", "cut"), 0, {s_strNoClient}, {s_strUnlisted}, {"depot 4"}},
        TSwitchRow{"BranchesType", Garble("^-G branches", "type"), 0, {s_strNoClient}, {s_strUnlisted}, {"depot 4"}},
        TSwitchRow{
            "BranchesLength", Garble("^-G branches", "length"), 0, {s_strNoClient}, {s_strUnlisted}, {"depot 4"}},
        TSwitchRow{"BranchOutputCut",
                   Garble("^-G branch -o", "cut"),
                   0,
                   {s_strNoClient},
                   {LeftOut("rel1", s_strUnreadable)},
                   {"depot 4"}},
        TSwitchRow{"BranchOutputType",
                   Garble("^-G branch -o", "type"),
                   0,
                   {s_strNoClient},
                   {LeftOut("rel1", s_strUnreadable)},
                   {"depot 4"}},
        TSwitchRow{"BranchOutputLength",
                   Garble("^-G branch -o", "length"),
                   0,
                   {s_strNoClient},
                   {LeftOut("rel1", s_strUnreadable)},
                   {"depot 4"}},
        TSwitchRow{
            "ChangesCut",
            Garble("^-G changes //depot/main", "cut"),
            1,
            {s_strNoClient, "** Found no changelists for stream //depot/main"},
            {Lost("the changes of stream depot_main cannot be listed", "-G changes //depot/main/...", s_strUnreadable),
             s_strNothingImported},
            {}},
        TSwitchRow{
            "ChangesType",
            Garble("^-G changes //depot/main", "type"),
            1,
            {s_strNoClient, "** Found no changelists for stream //depot/main"},
            {Lost("the changes of stream depot_main cannot be listed", "-G changes //depot/main/...", s_strUnreadable),
             s_strNothingImported},
            {}},
        // Only the last record is broken: the module would lose the oldest
        // change without a word.
        TSwitchRow{
            "ChangesLength",
            Garble("^-G changes //depot/main", "length"),
            1,
            {s_strNoClient},
            {Lost("the changes of stream depot_main cannot be listed", "-G changes //depot/main/...", s_strUnreadable),
             s_strNothingImported},
            {}},
        TSwitchRow{"DescribeCut",
                   Garble("^-G describe 2$", "cut"),
                   1,
                   {s_strNoClient, "** Failed to enumerate change 2"},
                   {Lost("change 2 of stream depot_main cannot be read", "-G describe 2", s_strUnreadable),
                    s_strNothingImported},
                   {}},
        TSwitchRow{"DescribeType",
                   Garble("^-G describe 2$", "type"),
                   1,
                   {s_strNoClient, "** Failed to enumerate change 2"},
                   {Lost("change 2 of stream depot_main cannot be read", "-G describe 2", s_strUnreadable),
                    s_strNothingImported},
                   {}},
        TSwitchRow{"DescribeLength",
                   Garble("^-G describe 2$", "length"),
                   1,
                   {s_strNoClient},
                   {Lost("change 2 of stream depot_main cannot be read", "-G describe 2", s_strUnreadable),
                    s_strNothingImported},
                   {}}),
    [](const ::testing::TestParamInfo<TSwitchRow>& tInfo) { return std::string(tInfo.param.pszName); });

// With --keep-going the module's own handling is back: each failure is a
// warning, and the run ends as the module alone would end it.
INSTANTIATE_TEST_SUITE_P(
    KeepGoing, CSwitchFaultTest,
    ::testing::Values(
        TSwitchRow{"ChangesFails",
                   {{"P4SIM_FAIL", "^-G changes //depot/rel1"}},
                   0,
                   {s_strNoClient, Simulated("-G changes //depot/rel1/..."),
                    "** Failed to enumerate changes for //depot/rel1"},
                   {KeptGoing("the changes of stream rel1 cannot be listed", "-G changes //depot/rel1/...",
                              SimulatedText("-G changes //depot/rel1/..."))},
                   {"depot_main 3"},
                   false,
                   true},
        // Change 3 is not recorded: its files come with change 4.
        TSwitchRow{
            "DescribeFails",
            {{"P4SIM_FAIL", "^-G describe 3$"}},
            0,
            {s_strNoClient, Simulated("-G describe 3"), "** Failed to enumerate change 3"},
            {KeptGoing("change 3 of stream rel1 cannot be read", "-G describe 3", SimulatedText("-G describe 3"))},
            {"depot_main 3", "rel1 4"},
            false,
            true},
        // The engine's check of the synced files still stops the run.
        TSwitchRow{"SyncFails",
                   {{"P4SIM_FAIL", "^sync "}},
                   1,
                   {s_strNoClient, Simulated("sync @WS@/depot_main/...@1")},
                   {KeptGoing("change 1 of stream depot_main cannot be synced", "sync @WS@/depot_main/...@1",
                              SimulatedText("sync @WS@/depot_main/...@1")),
                    "orvane-import: error: change 3 of stream depot_main was not synced completely: the file "
                    "'a.txt#1' is missing"},
                   {},
                   false,
                   true},
        TSwitchRow{"DescribeLength",
                   Garble("^-G describe 2$", "length"),
                   0,
                   {s_strNoClient},
                   {KeptGoing("change 2 of stream depot_main cannot be read", "-G describe 2", s_strUnreadable)},
                   s_astrAll,
                   false,
                   true}),
    [](const ::testing::TestParamInfo<TSwitchRow>& tInfo) { return std::string(tInfo.param.pszName); });

TEST_F(CFaultTest, ExecutableMissing)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    std::vector<std::string> astrArgs = Args();
    for (std::string& str : astrArgs)
        if (str.compare(0, 7, "P4Path=") == 0)
            str = "P4Path=" + m_strTemp + "/no/p4";
    const TResult r = RunEngine(astrArgs);
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ(
        (std::vector<std::string>{"orvane-import: error: the Perforce client cannot be run: cannot run '" + m_strTemp +
                                  "/no/p4': No such file or directory (the setting P4Path names the p4 "
                                  "executable)"}),
        MessageLines(r.strErr));
    // Refused before the module started: no import log, no repository.
    EXPECT_FALSE(Exists(m_strLog));
    EXPECT_FALSE(Exists(m_strGit));
    ExpectNoHarm(r);
}

TEST_F(CFaultTest, WorkspaceNotWritable)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    ASSERT_EQ(0, mkdir(m_strWorkspace.c_str(), 0755));
    TResult r;
    if (!RunSandboxed({"--readonly", m_strWorkspace}, Args(), r))
        GTEST_SKIP() << r.strErr;
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ((std::vector<std::string>{"orvane-import: error: cannot make the folder " + m_strWorkspace +
                                        "/depot_main: Read-only file system"}),
              MessageLines(r.strErr));
    EXPECT_EQ(std::vector<std::string>{s_strNoClient}, FailureEntries(ReadWholeFile(m_strLog)));
    // The folder was there before the run: it stays, empty.
    EXPECT_EQ(std::set<std::string>{}, Tree(m_strWorkspace));
    ASSERT_EQ(0, rmdir(m_strWorkspace.c_str()));
    ExpectNoHarm(r);
}

TEST_F(CFaultTest, StagingNameTakenBySymbolicLink)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    // The sandbox's /tmp is this folder, and the worker is process 2 there:
    // its staging files would be /tmp/orvane-em-2.tdf and .tlf.
    const std::string strTmp = m_strTemp + "/tmp";
    ASSERT_EQ(0, mkdir(strTmp.c_str(), 0755));
    const std::string strVictim = m_strTemp + "/victim";
    WriteWholeFile(strVictim, "precious\n");
    for (const char* pszSuffix : {".tdf", ".tlf"})
        ASSERT_EQ(0, symlink(strVictim.c_str(), (strTmp + "/orvane-em-2" + pszSuffix).c_str()));
    std::vector<std::string> astrMounts = PrivateTmp(strTmp, "");
    astrMounts.push_back("--pid");
    TResult r;
    if (!RunSandboxed(astrMounts, Args(), r))
        GTEST_SKIP() << r.strErr;
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ((std::vector<std::string>{"orvane-import: error: the provider reported a failure in EstablishChangesets "
                                        "(result 1): the staging file /tmp/orvane-em-2.tdf is in the way (a "
                                        "symbolic link); remove it"}),
              MessageLines(r.strErr));
    EXPECT_EQ(std::vector<std::string>{s_strNoClient}, FailureEntries(ReadWholeFile(m_strLog)));
    // The file behind the link is untouched; the module's teardown removed
    // the links (not what they point to), and nothing else is left.
    EXPECT_EQ("precious\n", ReadWholeFile(strVictim));
    std::set<std::string> setLeft = Tree(strTmp);
    for (const std::string& strKept : KeptInTmp())
        setLeft.erase("/" + strKept + "/");
    EXPECT_EQ(std::set<std::string>{}, setLeft);
    ExpectNoHarm(r);
}

// A history whose files do not fit in a file system of nKb.
class CDiskFullTest : public CFaultTest
{
protected:
    void LoadBig()
    {
        const std::string strHistory = m_strTemp + "/history.json";
        WriteWholeFile(strHistory, BigFileHistory(600 * 1024));
        LoadHistory(strHistory);
    }
};

TEST_F(CDiskFullTest, Workspace)
{
    LoadBig();
    ASSERT_EQ(0, mkdir(m_strWorkspace.c_str(), 0755));
    TResult r;
    if (!RunSandboxed({"--tmpfs", m_strWorkspace, "256"}, Args(), r))
        GTEST_SKIP() << r.strErr;
    EXPECT_EQ(1, r.nStatus);
    // The sync's failure is named: nothing is written for its change.
    const std::string strSync = "sync " + m_strWorkspace + "/depot/...@1";
    EXPECT_EQ((std::vector<std::string>{
                  Lost("change 1 of stream depot cannot be synced", strSync,
                       "write: " + m_strWorkspace + "/depot/main/big.txt.p4sim-tmp: No space left on device"),
                  "Nothing was written for this change; the changes before it are in git. Run "
                  "again to continue from there, or give --keep-going to import without what "
                  "failed."}),
              MessageLines(r.strErr));
    EXPECT_EQ((std::vector<std::string>{s_strNoClient, " Command failure (1) - write: " + m_strWorkspace +
                                                           "/depot/main/big.txt.p4sim-tmp: No space left on device "}),
              FailureEntries(ReadWholeFile(m_strLog)));
    ASSERT_EQ(0, rmdir(m_strWorkspace.c_str()));
    ExpectNoHarm(r);
}

TEST_F(CDiskFullTest, Repository)
{
    LoadBig();
    const std::string strDisk = m_strTemp + "/disk";
    ASSERT_EQ(0, mkdir(strDisk.c_str(), 0755));
    std::vector<std::string> astrArgs = Args();
    for (std::string& str : astrArgs)
        if (str == m_strGit)
            str = strDisk + "/out.git";
    TResult r;
    if (!RunSandboxed({"--tmpfs", strDisk, "256"}, astrArgs, r))
        GTEST_SKIP() << r.strErr;
    EXPECT_EQ(1, r.nStatus);
    // git's own lines about the full disk come first.
    const std::vector<std::string> astrMessage = MessageLines(r.strErr);
    ASSERT_FALSE(astrMessage.empty());
    EXPECT_EQ("orvane-import: error: git fast-import stopped (exit status 128; see its message above)",
              astrMessage.back());
    EXPECT_NE(std::string::npos, r.strErr.find("Out of diskspace")) << r.strErr;
    EXPECT_EQ(std::vector<std::string>{s_strNoClient}, FailureEntries(ReadWholeFile(m_strLog)));
    ExpectNoHarm(r);
}

TEST_F(CDiskFullTest, TemporaryFolder)
{
    Generate({"--changes", "200", "--branches", "1", "--files", "40", "--seed", "3"});
    const std::string strTmp = m_strTemp + "/tmp";
    ASSERT_EQ(0, mkdir(strTmp.c_str(), 0755));
    std::vector<std::string> astrMounts = PrivateTmp(strTmp, "8");
    const std::string strLeft = m_strTemp + "/left";
    astrMounts.insert(astrMounts.end(), {"--pid", "--list-after", "/tmp", strLeft});
    TResult r;
    if (!RunSandboxed(astrMounts, Args(), r, {{"TMPDIR", "/tmp"}}))
        GTEST_SKIP() << r.strErr;
    // The module cannot make its staging database, and says nothing.
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ(std::vector<std::string>{"orvane-import: error: the provider reported a failure in EstablishChangesets "
                                       "(result 1)"},
              MessageLines(r.strErr));
    EXPECT_EQ(std::vector<std::string>{s_strNoClient}, FailureEntries(ReadWholeFile(m_strLog)));
    // Nothing of the run is left in the full /tmp (only the folders through
    // which this test's folder and the build were reachable).
    std::set<std::string> setLeft;
    std::istringstream cLeft(ReadWholeFile(strLeft));
    for (std::string strLine; std::getline(cLeft, strLine);)
        setLeft.insert(strLine);
    EXPECT_EQ(KeptInTmp(), setLeft);
    ExpectNoHarm(r);
}

TEST_F(CFaultTest, FastImportDies)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    const std::string strJournal = m_strTemp + "/journal";
    const std::string strErr = m_strTemp + "/err";
    ORVANE::VCM::CChildProcess cEngine = Start(
        Args(), FaultEnv({{"P4SIM_LATENCY_MS", "20"}, {"P4SIM_JOURNAL", strJournal}}), m_strTemp + "/out", strErr);
    ASSERT_TRUE(cEngine.IsRunning());
    // Once the first change is synced (its contents fetched), fast-import
    // runs: it dies.
    int nStatus = -1;
    std::vector<pid_t> anGit;
    while (anGit.empty() && !cEngine.TryWait(nStatus))
    {
        const std::string strCommands = ReadWholeFile(strJournal);
        if (strCommands.find("\"args\":\"sync ") != std::string::npos ||
            strCommands.find("\"args\":\"-G print ") != std::string::npos)
            anGit = ProcessesWith("--git-dir=" + m_strGit + std::string(1, '\0') + "fast-import");
        std::this_thread::yield();
    }
    ASSERT_EQ(1u, anGit.size()) << ReadWholeFile(strErr);
    ASSERT_EQ(0, kill(anGit[0], SIGKILL));
    TResult r;
    r.nStatus = cEngine.Wait();
    r.strErr = ReadWholeFile(strErr);
    EXPECT_EQ(1, r.nStatus);
    // Killed: 128 + SIGKILL.
    EXPECT_EQ(std::vector<std::string>{"orvane-import: error: git fast-import stopped (exit status 137; see its "
                                       "message above)"},
              MessageLines(r.strErr));
    EXPECT_EQ(std::vector<std::string>{s_strNoClient}, FailureEntries(ReadWholeFile(m_strLog)));
    ExpectNoHarm(r);
}

} // namespace enginetest
