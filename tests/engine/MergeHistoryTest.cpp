// Integrations as merges, end to end: p4sim servers whose histories merge,
// cherry-pick, take ranges, ignore, move backwards, rename and nest
// streams, imported by orvane-import and read back from git.
#include <fstream>
#include <sstream>

#include "EngineHarness.h"

namespace enginetest {

namespace {

// The release branch spec, and one for a branch of the release.
const char* const s_pszRel =
    R"({"name": "rel", "owner": "jo", "view": ["//depot/main/... //depot/rel/..."], "time": 1200000000})";
const char* const s_pszHot =
    R"({"name": "hot", "owner": "jo", "view": ["//depot/rel/... //depot/hot/..."], "time": 1200000000})";

// The first two changes of every history here: the mainline's a.txt,
// b.txt and c.txt, and the release branched from them.
const char* const s_pszBase = R"(
  {"user": "jo", "time": 1200000000, "description": "Import",
   "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "a1\n"},
             {"path": "//depot/main/b.txt", "action": "add", "content": "b1\n"},
             {"path": "//depot/main/c.txt", "action": "add", "content": "c1\n"}]},
  {"user": "jo", "time": 1200000100, "description": "Branch the release",
   "files": [{"path": "//depot/rel/a.txt", "action": "branch", "from": "//depot/main/a.txt"},
             {"path": "//depot/rel/b.txt", "action": "branch", "from": "//depot/main/b.txt"},
             {"path": "//depot/rel/c.txt", "action": "branch", "from": "//depot/main/c.txt"}]})";

// A change of one or more files, at a time that grows with its number.
std::string Change(unsigned nChange, const std::string& strFiles)
{
    return R"({"user": "jo", "time": )" + std::to_string(1200000000 + 100 * (nChange - 1)) +
           R"(, "description": "Change )" + std::to_string(nChange) + R"(", "files": [)" + strFiles + "]}";
}

std::string Edit(const std::string& strPath, const std::string& strContent)
{
    return R"({"path": ")" + strPath + R"(", "action": "edit", "content": ")" + strContent + R"(\n"})";
}

// An integration; strMore adds keys ("how", "fromRevStart", ...).
std::string Integrate(const std::string& strPath, const std::string& strFrom, const std::string& strMore = "")
{
    return R"({"path": ")" + strPath + R"(", "action": "integrate", "from": ")" + strFrom + "\"" +
           (strMore.empty() ? "" : ", " + strMore) + "}";
}

class CMergeHistoryTest : public CEngineTest
{
protected:
    // The base, then the changes, into the server (or another one).
    void LoadChanges(const std::vector<std::string>& astrChanges, bool bHot = false, const std::string& strServer = "",
                     bool bBase = true)
    {
        std::string strJson = R"({"users": [{"name": "jo", "email": "jo@example.com", "fullName": "Jo Doe"}],
                                  "branches": [)" +
                              std::string(s_pszRel) + (bHot ? std::string(", ") + s_pszHot : "") +
                              R"(], "changes": [)" + (bBase ? std::string(s_pszBase) : "");
        for (size_t i = 0; i < astrChanges.size(); ++i)
            strJson += (bBase || i ? ", " : "") + astrChanges[i];
        strJson += "]}";
        const std::string strFile = m_strTemp + "/history-" + std::to_string(++m_nLoads) + ".json";
        WriteWholeFile(strFile, strJson);
        const TResult r = RunProgram(
            {ENGINETEST_P4SIM, "admin", "load", strServer.empty() ? m_strServer : strServer, strFile}, Env());
        ASSERT_EQ(0, r.nStatus) << r.strErr << strJson;
    }

    void ImportAll(const std::vector<std::string>& astrMore = {})
    {
        std::vector<std::string> astr = {"--git", m_strGit, "--quiet", "--verify"};
        astr.insert(astr.end(), astrMore.begin(), astrMore.end());
        const TResult r = Import(astr);
        ASSERT_EQ(0, r.nStatus) << r.strErr;
    }

    // Every commit of the repository: "PATH@CHANGE" -> its name, and the
    // other way.
    void ReadCommits(const std::string& strGit = "")
    {
        m_mapCommits.clear();
        m_mapNames.clear();
        const TResult r = RunProgram({"git", "--git-dir=" + (strGit.empty() ? m_strGit : strGit), "log", "--all",
                                      "--format=%H %(trailers:key=Perforce-Path,valueonly,separator=)@%(trailers:key="
                                      "Perforce-Change,valueonly,separator=)"},
                                     Env());
        ASSERT_EQ(0, r.nStatus) << r.strErr;
        for (const std::string& strLine : Lines(r.strOut))
        {
            const std::string strName = strLine.substr(0, 40);
            std::string strWhere = strLine.substr(41);
            strWhere.erase(strWhere.find("/..."), 4);
            m_mapCommits[strWhere] = strName;
            m_mapNames[strName] = strWhere;
        }
    }
    // The commit of the stream's change ("//depot/rel@5").
    std::string C(const std::string& strWhere) const
    {
        auto it = m_mapCommits.find(strWhere);
        return it != m_mapCommits.end() ? it->second : "no commit " + strWhere;
    }
    // A commit's parents as "PATH@CHANGE", first parent first.
    std::vector<std::string> Parents(const std::string& strWhere) const
    {
        const TResult r = Git({"rev-list", "--parents", "-n", "1", C(strWhere)});
        std::vector<std::string> astr;
        std::istringstream in(r.strOut);
        std::string strName;
        in >> strName;
        while (in >> strName)
        {
            auto it = m_mapNames.find(strName);
            astr.push_back(it != m_mapNames.end() ? it->second : strName);
        }
        return astr;
    }
    std::string Integrated(const std::string& strWhere) const
    {
        const std::string str =
            Git({"log", "-1", "--format=%(trailers:key=Perforce-Integrated,separator=%x0a)", C(strWhere)}).strOut;
        return str == "\n" ? std::string() : str;
    }
    std::string Show(const std::string& strWhere, const std::string& strPath) const
    {
        return Git({"show", C(strWhere) + ":" + strPath}).strOut;
    }
    std::string Branch(const std::string& strName) const
    {
        return Lines(Git({"rev-parse", "refs/heads/" + strName}).strOut).at(0);
    }

    unsigned m_nLoads = 0;
    std::map<std::string, std::string> m_mapCommits, m_mapNames;
};

typedef std::vector<std::string> TList;

} // namespace

TEST_F(CMergeHistoryTest, ACompleteMergeHasTheMergedCommitAsSecondParent)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2")), Change(4, Edit("//depot/main/b.txt", "b2")),
                 Change(5, Integrate("//depot/rel/a.txt", "//depot/main/a.txt") + ", " +
                               Integrate("//depot/rel/b.txt", "//depot/main/b.txt"))});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@5"), (TList{"//depot/rel@2", "//depot/main@4"}));
    EXPECT_EQ(Integrated("//depot/rel@5"), "");
    // The branch's first commit has its one parent as before.
    EXPECT_EQ(Parents("//depot/rel@2"), (TList{"//depot/main@1"}));
    EXPECT_EQ(Integrated("//depot/rel@2"), "");
}

TEST_F(CMergeHistoryTest, AMergeBackIntoTheParent)
{
    LoadChanges({Change(3, Edit("//depot/rel/c.txt", "c2")), Change(4, Edit("//depot/main/a.txt", "a2")),
                 Change(5, Integrate("//depot/main/c.txt", "//depot/rel/c.txt"))});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/main@5"), (TList{"//depot/main@4", "//depot/rel@3"}));
    EXPECT_EQ(Show("//depot/main@5", "c.txt"), "c2\n");
    // The mainline's later history and the release share the merged commit.
    EXPECT_EQ(Lines(Git({"merge-base", C("//depot/main@5"), C("//depot/rel@3")}).strOut).at(0), C("//depot/rel@3"));
}

TEST_F(CMergeHistoryTest, ACherryPickKeepsOneParentAndSaysWhatItTook)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2")), Change(4, Edit("//depot/main/b.txt", "b2")),
                 Change(5, Integrate("//depot/rel/b.txt", "//depot/main/b.txt"))});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@5"), (TList{"//depot/rel@2"}));
    EXPECT_EQ(Integrated("//depot/rel@5"), "Perforce-Integrated: //depot/main/...@4\n");
    const std::string strMessage = Git({"log", "-1", "--format=%B", C("//depot/rel@5")}).strOut;
    EXPECT_EQ(strMessage, "Change 5\n\nPerforce-Change: 5\nPerforce-Path: //depot/rel/...\n"
                          "Perforce-Integrated: //depot/main/...@4\n\n");
}

TEST_F(CMergeHistoryTest, ARangeIsNamedInTheTrailer)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2")), Change(4, Edit("//depot/main/a.txt", "a3")),
                 Change(5, Edit("//depot/main/a.txt", "a4")),
                 Change(6, Integrate("//depot/rel/a.txt", "//depot/main/a.txt",
                                     R"("fromRevStart": 3, "fromRev": 4, "content": "a1 a3\n")"))});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@6"), (TList{"//depot/rel@2"}));
    EXPECT_EQ(Integrated("//depot/rel@6"), "Perforce-Integrated: //depot/main/...@4,@5\n");
}

TEST_F(CMergeHistoryTest, IgnoredCountsAsMerged)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2")),
                 Change(4, Integrate("//depot/rel/a.txt", "//depot/main/a.txt", R"("how": "ignored")"))});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@4"), (TList{"//depot/rel@2", "//depot/main@3"}));
    EXPECT_EQ(Show("//depot/rel@4", "a.txt"), "a1\n");
}

TEST_F(CMergeHistoryTest, AMergeNeverMovesBackwards)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2")), Change(4, Edit("//depot/main/b.txt", "b2")),
                 Change(5, Integrate("//depot/rel/a.txt", "//depot/main/a.txt") + ", " +
                               Integrate("//depot/rel/b.txt", "//depot/main/b.txt")),
                 Change(6, Edit("//depot/main/a.txt", "a3")),
                 // Change 3's revision again, older than the merge at 5.
                 Change(7, Integrate("//depot/rel/a.txt", "//depot/main/a.txt",
                                     R"("fromRevStart": 2, "fromRev": 2, "content": "a2 again\n")")),
                 Change(8, Integrate("//depot/rel/a.txt", "//depot/main/a.txt", R"("fromRevStart": 3)"))});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@5"), (TList{"//depot/rel@2", "//depot/main@4"}));
    EXPECT_EQ(Parents("//depot/rel@7"), (TList{"//depot/rel@5"}));
    EXPECT_EQ(Integrated("//depot/rel@7"), "");
    EXPECT_EQ(Parents("//depot/rel@8"), (TList{"//depot/rel@7", "//depot/main@6"}));
}

TEST_F(CMergeHistoryTest, ARenameAcrossStreams)
{
    LoadChanges({Change(3, R"({"path": "//depot/main/z.txt", "action": "move/add", "from": "//depot/main/a.txt"})"),
                 Change(4, R"({"path": "//depot/rel/z.txt", "action": "move/add", "from": "//depot/main/z.txt",
                               "how": "moved from"},
                              {"path": "//depot/rel/a.txt", "action": "move/delete"})")});
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@4"), (TList{"//depot/rel@2", "//depot/main@3"}));
    EXPECT_EQ(Git({"ls-tree", "--name-only", C("//depot/rel@4")}).strOut, "b.txt\nc.txt\nz.txt\n");
}

TEST_F(CMergeHistoryTest, AStreamThatIsAChildOfAChild)
{
    LoadChanges({Change(3, R"({"path": "//depot/hot/a.txt", "action": "branch", "from": "//depot/rel/a.txt"},
                              {"path": "//depot/hot/b.txt", "action": "branch", "from": "//depot/rel/b.txt"},
                              {"path": "//depot/hot/c.txt", "action": "branch", "from": "//depot/rel/c.txt"})"),
                 Change(4, Edit("//depot/hot/a.txt", "hot fix")),
                 Change(5, Integrate("//depot/rel/a.txt", "//depot/hot/a.txt")),
                 Change(6, Integrate("//depot/main/a.txt", "//depot/rel/a.txt")),
                 Change(7, Edit("//depot/main/b.txt", "b2")),
                 Change(8, Integrate("//depot/rel/b.txt", "//depot/main/b.txt")),
                 Change(9, Integrate("//depot/hot/b.txt", "//depot/rel/b.txt"))},
                true);
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/hot@3"), (TList{"//depot/rel@2"}));
    EXPECT_EQ(Parents("//depot/rel@5"), (TList{"//depot/rel@2", "//depot/hot@4"}));
    EXPECT_EQ(Parents("//depot/main@6"), (TList{"//depot/main@1", "//depot/rel@5"}));
    EXPECT_EQ(Parents("//depot/rel@8"), (TList{"//depot/rel@5", "//depot/main@7"}));
    EXPECT_EQ(Parents("//depot/hot@9"), (TList{"//depot/hot@4", "//depot/rel@8"}));
    EXPECT_EQ(Lines(Git({"merge-base", C("//depot/main@7"), C("//depot/hot@4")}).strOut).at(0), C("//depot/hot@4"));
    EXPECT_EQ(Show("//depot/main@6", "a.txt"), "hot fix\n");
}

// A history whose merges go both ways, imported in two runs cut after
// every change: each gives the commits of one full run.
TEST_F(CMergeHistoryTest, MergesAcrossTheCatchUpPointGiveTheCommitsOfAFullRun)
{
    const std::vector<std::string> astrChanges = {
        Change(3, Edit("//depot/main/a.txt", "a2")),
        Change(4, Edit("//depot/rel/c.txt", "c2")),
        Change(5, Integrate("//depot/rel/a.txt", "//depot/main/a.txt")),
        Change(6, Integrate("//depot/main/c.txt", "//depot/rel/c.txt")),
        Change(7, Edit("//depot/rel/b.txt", "b2")),
        Change(8, Edit("//depot/rel/c.txt", "c3")),
        Change(9, Integrate("//depot/main/c.txt", "//depot/rel/c.txt")),
        Change(10, Edit("//depot/main/a.txt", "a3")),
        Change(11, Integrate("//depot/rel/a.txt", "//depot/main/a.txt") + ", " +
                       Integrate("//depot/rel/c.txt", "//depot/main/c.txt")),
        Change(12, Integrate("//depot/main/b.txt", "//depot/rel/b.txt")),
    };
    LoadChanges(astrChanges);
    ImportAll();
    ReadCommits();
    EXPECT_EQ(Parents("//depot/main@6"), (TList{"//depot/main@3", "//depot/rel@5"}));
    EXPECT_EQ(Parents("//depot/main@9"), (TList{"//depot/main@6"}));
    EXPECT_EQ(Integrated("//depot/main@9"), "Perforce-Integrated: //depot/rel/...@8\n");
    EXPECT_EQ(Parents("//depot/rel@11"), (TList{"//depot/rel@8", "//depot/main@10"}));
    EXPECT_EQ(Parents("//depot/main@12"), (TList{"//depot/main@10", "//depot/rel@11"}));
    const std::string strFull = Git({"for-each-ref", "--format=%(refname) %(objectname)", "refs/heads/"}).strOut;
    for (size_t nCut = 1; nCut < astrChanges.size(); ++nCut)
    {
        SCOPED_TRACE("cut after change " + std::to_string(nCut + 2));
        const std::string strServer = m_strTemp + "/cut" + std::to_string(nCut);
        const std::string strGit = m_strTemp + "/cut" + std::to_string(nCut) + ".git";
        const std::map<std::string, std::string> mapPort = {{"P4PORT", "sim:" + strServer}};
        LoadChanges(std::vector<std::string>(astrChanges.begin(), astrChanges.begin() + long(nCut)), false, strServer);
        TResult r = Import({"--git", strGit, "--quiet"}, mapPort);
        ASSERT_EQ(0, r.nStatus) << r.strErr;
        LoadChanges(std::vector<std::string>(astrChanges.begin() + long(nCut), astrChanges.end()), false, strServer,
                    false);
        r = Import({"--git", strGit, "--quiet"}, mapPort);
        ASSERT_EQ(0, r.nStatus) << r.strErr;
        EXPECT_EQ(RunProgram({"git", "--git-dir=" + strGit, "for-each-ref", "--format=%(refname) %(objectname)",
                              "refs/heads/"},
                             Env())
                      .strOut,
                  strFull);
    }
}

TEST_F(CMergeHistoryTest, ARunThatWouldMixMergesAndNoneStops)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2"))});
    ImportAll();
    EXPECT_EQ(Git({"config", "orvane.merges"}).strOut, "true\n");
    TResult r = Import({"--git", m_strGit, "--quiet", "--no-merges"});
    EXPECT_EQ(2, r.nStatus);
    EXPECT_EQ(MessageLines(r.strErr),
              (TList{"orvane-import: error: the repository " + m_strGit +
                     " was made with merges (git config orvane.merges true): continue it with --merges, or start a "
                     "new repository; one history cannot mix the two"}));
    const std::string strOther = m_strTemp + "/none.git";
    r = Import({"--git", strOther, "--quiet", "--no-merges"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    r = Import({"--git", strOther, "--quiet"});
    EXPECT_EQ(2, r.nStatus);
    EXPECT_EQ(MessageLines(r.strErr),
              (TList{"orvane-import: error: the repository " + strOther +
                     " was made without merges: continue it with --no-merges, or start a new repository; one "
                     "history cannot mix the two"}));
    // The same choice continues.
    r = Import({"--git", strOther, "--quiet", "--no-merges"});
    EXPECT_EQ(0, r.nStatus) << r.strErr;
}

TEST_F(CMergeHistoryTest, NoMergesKeepsOneParentAndNoTrailers)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2")), Change(4, Edit("//depot/main/b.txt", "b2")),
                 Change(5, Integrate("//depot/rel/b.txt", "//depot/main/b.txt")),
                 Change(6, Integrate("//depot/rel/a.txt", "//depot/main/a.txt"))});
    ImportAll({"--no-merges"});
    ReadCommits();
    EXPECT_EQ(Parents("//depot/rel@6"), (TList{"//depot/rel@5"}));
    EXPECT_EQ(Integrated("//depot/rel@5"), "");
    // The repository keeps the choice.
    EXPECT_EQ(Git({"config", "orvane.merges"}).strOut, "false\n");
}

TEST_F(CMergeHistoryTest, ALimitThatRefusesTheIntegrationsStopsTheRun)
{
    LoadChanges({Change(3, Edit("//depot/main/a.txt", "a2"))});
    const TResult rLimit = RunProgram({ENGINETEST_P4SIM, "admin", "limits", m_strServer, "--max-results", "3"}, Env());
    ASSERT_EQ(0, rLimit.nStatus) << rLimit.strErr;
    const TResult r = Import({"--git", m_strGit, "--quiet"});
    EXPECT_EQ(1, r.nStatus);
    EXPECT_EQ(MessageLines(r.strErr),
              (TList{"orvane-import: error: the integrations of stream depot_main cannot be read: 'p4 files -a "
                     "//depot/main/...' failed: Request too large (over 3); see 'p4 help maxresults'.",
                     "Nothing was imported. Run again, or give --no-merges to import without merges."}));
}

// In a generated history the last complete merge between the mainline and
// its branch is where their histories meet.
TEST_F(CMergeHistoryTest, GeneratedMergesMeetAtTheLastCompleteMerge)
{
    Generate({"--changes", "300", "--branches", "1", "--files", "20", "--seed", "9"});
    ImportAll();
    ReadCommits();
    // Every merge commit: its change, and its first two parents' streams.
    const TResult r = Git({"log", "--all", "--merges", "--format=%H %P"});
    ASSERT_EQ(0, r.nStatus);
    unsigned nLast = 0, nIntoMain = 0, nIntoRel = 0;
    std::string strExpected;
    for (const std::string& strLine : Lines(r.strOut))
    {
        std::istringstream in(strLine);
        std::string strCommit, strFirst, strSecond;
        in >> strCommit >> strFirst >> strSecond;
        const std::string& strWhere = m_mapNames[strCommit];
        const unsigned nChange = unsigned(std::stoul(strWhere.substr(strWhere.find('@') + 1)));
        (strWhere.compare(0, 12, "//depot/main") == 0 ? nIntoMain : nIntoRel)++;
        if (nChange > nLast)
        {
            nLast = nChange;
            strExpected = strSecond;
        }
    }
    EXPECT_GE(nIntoMain, 2u);
    EXPECT_GE(nIntoRel, 2u);
    // Cherry-picks stay commits of one parent with their trailer.
    EXPECT_NE(Git({"log", "--all", "--no-merges", "--format=%(trailers:key=Perforce-Integrated)"})
                  .strOut.find("Perforce-Integrated: //depot/"),
              std::string::npos);
    const std::string strBase = Lines(Git({"merge-base", "--all", Branch("depot_main"), Branch("rel1")}).strOut).at(0);
    EXPECT_EQ(strBase, strExpected) << m_mapNames[strBase] << " instead of " << m_mapNames[strExpected];
}

// The stream graph of --streams-only shows the merges.
TEST_F(CMergeHistoryTest, TheStreamGraphShowsTheMerges)
{
    LoadChanges(
        {Change(3, Edit("//depot/rel/c.txt", "c2")), Change(4, Integrate("//depot/main/c.txt", "//depot/rel/c.txt")),
         Change(5, Edit("//depot/main/a.txt", "a2")), Change(6, Integrate("//depot/rel/a.txt", "//depot/main/a.txt"))});
    const std::string strDot = m_strTemp + "/streams.dot";
    const TResult r = Import({"--streams-only", "--graph", strDot, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const std::string strGraph = ReadWholeFile(strDot);
    EXPECT_NE(strGraph.find("    s2 -> s1 [style=dashed, constraint=false, label=\"merge 4\"];\n"), std::string::npos)
        << strGraph;
    EXPECT_NE(strGraph.find("    s1 -> s2 [style=dashed, constraint=false, label=\"merge 6\"];\n"), std::string::npos)
        << strGraph;
}

// A merge into the mainline waits for the release's commit it merges; it is
// written as any commit: its large file in Git LFS (named in the root
// .gitattributes), its +k file with the keywords collapsed, and --verify
// compares it so.
TEST_F(CMergeHistoryTest, AMergeWithLfsAndKeywordFilesHasBothParents)
{
    const std::string strBig = R"({"path": "//depot/main/big.bin", "action": "add", "type": "binary",
                                   "generated": {"size": 2048, "seed": 1}})";
    const std::string strK =
        R"({"path": "//depot/main/k.c", "action": "add", "type": "ktext", "content": "$Id$ $Change$\n"})";
    const std::string strRelBig = R"({"path": "//depot/rel/big.bin", "action": "edit",
                                      "generated": {"size": 3000, "seed": 2}})";
    const std::string strRelK = R"({"path": "//depot/rel/k.c", "action": "edit", "content": "$Id$ rel\n"})";
    LoadChanges(
        {Change(1, R"({"path": "//depot/main/a.txt", "action": "add", "content": "a1\n"}, )" + strBig + ", " + strK),
         Change(2, R"({"path": "//depot/rel/a.txt", "action": "branch", "from": "//depot/main/a.txt"},
                              {"path": "//depot/rel/big.bin", "action": "branch", "from": "//depot/main/big.bin"},
                              {"path": "//depot/rel/k.c", "action": "branch", "from": "//depot/main/k.c"})"),
         Change(3, strRelBig + ", " + strRelK), Change(4, Edit("//depot/main/a.txt", "a2")),
         Change(5, Integrate("//depot/main/big.bin", "//depot/rel/big.bin") + ", " +
                       Integrate("//depot/main/k.c", "//depot/rel/k.c")),
         Change(6, Edit("//depot/main/a.txt", "a3"))},
        false, "", false);
    ImportAll({"--lfs-threshold", "1K"});
    ReadCommits();
    EXPECT_EQ(Parents("//depot/main@5"), (TList{"//depot/main@4", "//depot/rel@3"}));
    EXPECT_EQ(Parents("//depot/main@6"), (TList{"//depot/main@5"}));
    EXPECT_EQ(Integrated("//depot/main@5"), "");
    // The server expands the keywords; git has them collapsed.
    EXPECT_NE(P4({"print", "-q", "//depot/main/k.c#2"}).strOut.find("$Id: //depot/main/k.c#2 $"), std::string::npos);
    EXPECT_EQ("$Id$ rel\n", Show("//depot/main@5", "k.c"));
    EXPECT_EQ("$Id$ $Change$\n", Show("//depot/main@4", "k.c"));
    EXPECT_EQ(Git({"rev-parse", C("//depot/main@5") + ":k.c"}).strOut,
              Git({"rev-parse", C("//depot/rel@3") + ":k.c"}).strOut);
    // The large file is a pointer in every commit, the same as the
    // release's.
    const std::string strPointer = Show("//depot/main@5", "big.bin");
    EXPECT_EQ(0u, strPointer.find("version https://git-lfs.github.com/spec/v1\noid sha256:")) << strPointer;
    EXPECT_NE(strPointer.find("\nsize 3000\n"), std::string::npos) << strPointer;
    EXPECT_EQ(strPointer, Show("//depot/rel@3", "big.bin"));
    EXPECT_NE(Show("//depot/main@4", "big.bin").find("\nsize 2048\n"), std::string::npos);
    EXPECT_EQ("/big.bin filter=lfs diff=lfs merge=lfs -text\n", Show("//depot/main@5", ".gitattributes"));
}

} // namespace enginetest
