// orvane-import continuing a repository: a history imported in two parts,
// runs killed with SIGKILL at several points and started again, and a run
// with nothing new. Each ends with exactly the commits of one uninterrupted
// run over the whole history.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <thread>

#include "EngineHarness.h"

namespace enginetest {

namespace {

// Every file below the folder with its size, time and content digest.
std::string FolderState(const std::string& strFolder)
{
    std::string str;
    std::error_code ec;
    for (std::filesystem::recursive_directory_iterator it(strFolder, ec), itEnd; !ec && it != itEnd; it.increment(ec))
    {
        struct stat st;
        if (lstat(it->path().c_str(), &st) != 0 || S_ISDIR(st.st_mode))
            continue;
        str += it->path().string() + " " + std::to_string(st.st_size) + " " + std::to_string(st.st_mtim.tv_sec) + "." +
               std::to_string(st.st_mtim.tv_nsec) + " " +
               std::to_string(std::hash<std::string>()(ReadWholeFile(it->path().string()))) + "\n";
    }
    return str;
}

class CResumeTest : public CEngineTest
{
protected:
    // A generated history: loaded into a server of its own, imported in
    // one run into the reference repository, and kept in m_jHistory.
    void MakeReference(const std::vector<std::string>& astrOptions)
    {
        const std::string strJson = m_strTemp + "/history.json";
        std::vector<std::string> astr = {ENGINETEST_P4SIM,     "admin",  "generate",
                                         m_strTemp + "/whole", "--json", strJson};
        astr.insert(astr.end(), astrOptions.begin(), astrOptions.end());
        const TResult g = RunProgram(astr, Env());
        ASSERT_EQ(0, g.nStatus) << g.strErr;
        m_jHistory = nlohmann::json::parse(ReadWholeFile(strJson));
        m_strReference = m_strTemp + "/reference.git";
        const TResult r = Import({"--git", m_strReference, "--quiet"}, {{"P4PORT", "sim:" + m_strTemp + "/whole"}});
        ASSERT_EQ(0, r.nStatus) << r.strErr;
        m_strReferenceRefs = Refs(m_strReference);
        ASSERT_NE("", m_strReferenceRefs);
    }
    // The branches and their commits: "NAME REF" lines.
    std::string Refs(const std::string& strGit) const
    {
        const TResult r =
            RunProgram({"git", "--git-dir=" + strGit, "for-each-ref", "--format=%(objectname) %(refname)"}, Env());
        EXPECT_EQ(0, r.nStatus) << r.strErr;
        return r.strOut;
    }
    // Each branch of the repository is at a commit of the same branch of
    // the reference: only whole commits, the same as one run makes.
    void ExpectPrefixOfReference() const
    {
        for (const std::string& strLine : Lines(Refs(m_strGit)))
        {
            const std::string strCommit = strLine.substr(0, 40);
            const std::string strRef = strLine.substr(41);
            const TResult r = RunProgram(
                {"git", "--git-dir=" + m_strReference, "merge-base", "--is-ancestor", strCommit, strRef}, Env());
            EXPECT_EQ(0, r.nStatus) << strLine << " is not in the reference's history";
        }
    }
    // Kills the engine and all it started, the way a machine's kill -9 of
    // everything would: no one is left to clean up.
    void KillEverything(ORVANE::VCM::CChildProcess& cEngine)
    {
        // What is orphaned below the engine comes to this process, not to
        // init: a process started while the tree was being listed is found
        // once its parent is gone, and is killed as well.
        ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1));
        std::vector<pid_t> anAll = {cEngine.GetPid()};
        for (size_t i = 0; i < anAll.size(); ++i)
            for (pid_t n : Children(anAll[i]))
                anAll.push_back(n);
        for (pid_t n : anAll)
            kill(n, SIGSTOP);
        for (pid_t n : anAll)
            kill(n, SIGKILL);
        EXPECT_EQ(128 + SIGKILL, cEngine.Wait());
        // Gone, every one: the orphans this process adopted killed in turn
        // and reaped.
        for (;;)
        {
            const std::vector<pid_t> anAdopted = Children(getpid());
            for (pid_t n : anAdopted)
            {
                if (std::find(anAll.begin(), anAll.end(), n) == anAll.end())
                    anAll.push_back(n);
                kill(n, SIGKILL);
            }
            while (waitpid(-1, nullptr, WNOHANG) > 0)
            {
            }
            if (anAdopted.empty() && std::all_of(anAll.begin(), anAll.end(), [](pid_t n) { return kill(n, 0) != 0; }))
                break;
            std::this_thread::yield();
        }
        // The staging files the killed worker left go at once: another test
        // running at the same time would otherwise find them and say so.
        // (That a later run removes such files is the supervisor's test.)
        for (pid_t n : anAll)
            for (const char* pszSuffix : {".tdf", ".tlf"})
                unlink(("/tmp/orvane-em-" + std::to_string(n) + pszSuffix).c_str());
    }

    nlohmann::json m_jHistory;
    std::string m_strReference;
    std::string m_strReferenceRefs;
};

} // namespace

TEST_F(CResumeTest, AHistoryImportedInTwoPartsHasTheCommitsOfOneRun)
{
    MakeReference({"--changes", "60", "--branches", "2", "--files", "8", "--seed", "11"});
    const nlohmann::json& jChanges = m_jHistory["changes"];
    // The first part ends after about half of the changes, where the next
    // change is later than every change before it.
    size_t nSplit = jChanges.size() / 2;
    for (;; ++nSplit)
    {
        ASSERT_LT(nSplit, jChanges.size());
        long tLatest = 0;
        for (size_t i = 0; i < nSplit; ++i)
            tLatest = std::max(tLatest, jChanges[i]["time"].get<long>());
        long tNext = jChanges[nSplit]["time"];
        for (size_t i = nSplit; i < jChanges.size(); ++i)
            tNext = std::min(tNext, jChanges[i]["time"].get<long>());
        if (tNext > tLatest)
            break;
    }
    nlohmann::json jFirst = m_jHistory;
    jFirst["changes"] = nlohmann::json(std::vector<nlohmann::json>(jChanges.begin(), jChanges.begin() + long(nSplit)));
    const nlohmann::json jRest = {
        {"changes", std::vector<nlohmann::json>(jChanges.begin() + long(nSplit), jChanges.end())}};
    WriteWholeFile(m_strTemp + "/first.json", jFirst.dump());
    WriteWholeFile(m_strTemp + "/rest.json", jRest.dump());

    LoadHistory(m_strTemp + "/first.json");
    const TResult r1 = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r1.nStatus) << r1.strErr;
    ExpectPrefixOfReference();
    EXPECT_NE(m_strReferenceRefs, Refs(m_strGit));

    const std::string strCommitsBefore = Git({"rev-list", "--all", "--count"}).strOut;
    LoadHistory(m_strTemp + "/rest.json");
    const TResult r2 = Import({"--git", m_strGit});
    ASSERT_EQ(0, r2.nStatus) << r2.strErr;
    EXPECT_EQ(m_strReferenceRefs, Refs(m_strGit));
    const std::vector<std::string> astrOut = Lines(r2.strErr);
    ASSERT_FALSE(astrOut.empty());
    // One commit for each change of each stream it touched.
    const unsigned nNew =
        unsigned(std::stoul(Git({"rev-list", "--all", "--count"}).strOut) - std::stoul(strCommitsBefore));
    EXPECT_LE(jChanges.size() - nSplit, nNew);
    EXPECT_EQ("orvane-import: imported " + std::to_string(nNew) + " changes of 3 streams into " + m_strGit,
              astrOut.back());

    // Once more: nothing new, nothing written.
    const std::string strBefore = FolderState(m_strGit);
    const TResult r3 = Import({"--git", m_strGit});
    ASSERT_EQ(0, r3.nStatus) << r3.strErr;
    EXPECT_EQ("orvane-import: nothing new: the branches in " + m_strGit + " hold every change of the 3 streams",
              Lines(r3.strErr).back());
    EXPECT_EQ(strBefore, FolderState(m_strGit));
    ExpectCleanedUp(std::string());
}

TEST_F(CResumeTest, RunsKilledAtAnyPointEndWithTheCommitsOfOneRun)
{
    MakeReference({"--changes", "40", "--branches", "2", "--files", "6", "--seed", "3"});
    LoadHistory(m_strTemp + "/history.json");
    const std::string strWorkspace = m_strTemp + "/ws";
    // Each killed run with a journal of its own; the branches move after
    // every commit.
    int nRun = 0;
    auto fnStart = [&](std::string& strJournal) {
        strJournal = m_strTemp + "/journal" + std::to_string(++nRun);
        return Start(EngineArgs({"--git", m_strGit, "--checkpoint", "0", "--workspace", strWorkspace}),
                     Env({{"P4SIM_LATENCY_MS", "5"}, {"P4SIM_JOURNAL", strJournal}}), m_strTemp + "/out",
                     m_strTemp + "/err" + std::to_string(nRun));
    };
    std::string strJournal;
    int nStatus = -1;
    {
        // During the enumeration of the changes.
        ORVANE::VCM::CChildProcess cEngine = fnStart(strJournal);
        ASSERT_TRUE(WaitForCommand(strJournal, "-G describe", cEngine, nStatus)) << nStatus;
        KillEverything(cEngine);
        EXPECT_EQ("", Refs(m_strGit));
    }
    {
        // Between two commits: the first branch has moved.
        ORVANE::VCM::CChildProcess cEngine = fnStart(strJournal);
        ASSERT_TRUE(WaitFor([&]() { return Exists(m_strGit + "/refs/heads/depot_main"); }, cEngine, nStatus))
            << nStatus;
        KillEverything(cEngine);
        ExpectPrefixOfReference();
        EXPECT_NE("", Refs(m_strGit));
    }
    {
        // Inside a commit: its change is being synced (its contents are
        // fetched ahead of it).
        ORVANE::VCM::CChildProcess cEngine = fnStart(strJournal);
        ASSERT_TRUE(WaitFor(
            [&]() {
                const std::string str = ReadWholeFile(strJournal);
                const size_t nFirst = str.find("\"args\":\"-G print ");
                return nFirst != std::string::npos && str.find("\"args\":\"-G print ", nFirst + 1) != std::string::npos;
            },
            cEngine, nStatus))
            << nStatus;
        KillEverything(cEngine);
        ExpectPrefixOfReference();
        EXPECT_NE(m_strReferenceRefs, Refs(m_strGit));
    }
    // Started again to its end.
    const TResult r = Import({"--git", m_strGit, "--workspace", strWorkspace});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(m_strReferenceRefs, Refs(m_strGit));
    const TResult f = Git({"fsck", "--strict", "--no-dangling"});
    EXPECT_EQ(0, f.nStatus) << f.strOut << f.strErr;
    EXPECT_FALSE(Exists(m_strGit + "/orvane-import.running"));
    // The streams' folders that the killed runs left in the workspace went
    // with the last run's.
    ExpectCleanedUp(std::string());
    EXPECT_TRUE(std::filesystem::is_empty(strWorkspace));
}

TEST_F(CResumeTest, LockFilesOfAKilledRunAreRemoved)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    ASSERT_EQ(0, Import({"--git", m_strGit, "--quiet"}).nStatus);
    const std::string strRefs = Refs(m_strGit);
    // What a fast-import killed while it moved a branch leaves.
    WriteWholeFile(m_strGit + "/orvane-import.running", "1\n");
    WriteWholeFile(m_strGit + "/refs/heads/rel1.lock", "");
    WriteWholeFile(m_strGit + "/packed-refs.lock", "");
    WriteWholeFile(m_strGit + "/fast_import_crash_1", "crash report\n");
    const TResult r = Import({"--git", m_strGit});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_NE(std::string::npos, r.strErr.find("orvane-import: an earlier run was killed: removed what it left in " +
                                               m_strGit + " (3 lock and crash files)\n"))
        << r.strErr;
    for (const char* psz :
         {"/orvane-import.running", "/refs/heads/rel1.lock", "/packed-refs.lock", "/fast_import_crash_1"})
        EXPECT_FALSE(Exists(m_strGit + psz)) << psz;
    EXPECT_EQ(strRefs, Refs(m_strGit));
}

TEST_F(CResumeTest, OnlyARepositoryOfAnEarlierRunIsContinued)
{
    LoadHistory(ENGINETEST_DEMO_HISTORY);
    ASSERT_EQ(0, RunProgram({"git", "init", "--quiet", "--bare", m_strGit}, Env()).nStatus);
    const TResult r = Import({"--git", m_strGit});
    EXPECT_EQ(2, r.nStatus);
    EXPECT_EQ("orvane-import: error: the git folder '" + m_strGit +
                  "' exists and is not a git repository made by orvane-import\n",
              r.strErr);
}

} // namespace enginetest
