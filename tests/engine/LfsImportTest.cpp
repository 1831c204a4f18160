// orvane-import with --lfs-threshold and --lfs-pattern against p4sim: which
// files go into Git LFS commit by commit, the root .gitattributes that names
// them, a depot's own .gitattributes kept and extended, runs that continue
// a repository with its settings, and wrong options. Each import is
// checked against the depot through the LFS store, with git lfs fsck at
// every commit, and with a clone and git lfs pull, byte for byte.
#include <nlohmann/json.hpp>

#include "Digest.h"
#include "LfsHarness.h"

namespace enginetest {

namespace {

const char* const s_pszLfs = " filter=lfs diff=lfs merge=lfs -text\n";
const char* const s_pszNoLfs = " !filter !diff !merge !text\n";

// The commits of the branch, oldest first.
std::vector<std::string> Commits(const TResult& tRevList)
{
    EXPECT_EQ(0, tRevList.nStatus) << tRevList.strErr;
    return Lines(tRevList.strOut);
}

} // namespace

class CLfsImportTest : public CLfsEngineTest
{
protected:
    std::vector<std::string> BranchCommits(const std::string& strBranch = "depot")
    {
        return Commits(Git({"rev-list", "--reverse", strBranch}));
    }
    // The checks every import here ends with.
    void ExpectGoodRepository()
    {
        ExpectCommitsMatchDepot();
        ExpectLfsFsck();
        ExpectCloneMatchesDepot();
    }
};

TEST_F(CLfsImportTest, FilesGoIntoLfsByTheirSizeOrAPattern)
{
    const std::string strOdd = "a b \xc3\xa9.bin"; // a blank and a non-ASCII letter
    nlohmann::json jTool = Generated("tool.run", "add", 2048, 11);
    jTool["type"] = "binary+x";
    LoadChanges(
        {Change(1200000000, {Generated("below.bin", "add", 1023, 1), Generated("at.bin", "add", 1024, 2),
                             Generated("art/both.psd", "add", 4096, 3), Generated("art/small.psd", "add", 10, 4),
                             Generated("shrinks.bin", "add", 2000, 5), Generated("gone.bin", "add", 3000, 6),
                             Generated(strOdd, "add", 1500, 7), Text("readme.txt", "add", "read me\n"), jTool}),
         // Smaller again: out of LFS, but for the pattern's file.
         Change(1200000100, {Generated("shrinks.bin", "edit", 100, 8), Deleted("gone.bin"),
                             Generated("art/both.psd", "edit", 10, 9)}),
         // Added again with its old content; grown to the threshold.
         Change(1200000200, {Generated("gone.bin", "add", 3000, 6), Generated("below.bin", "edit", 1024, 10)})});
    const TResult r = Import({"--git", m_strGit, "--lfs-threshold", "1K", "--lfs-pattern", "*.psd", "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;

    const std::vector<std::string> astrCommits = BranchCommits();
    ASSERT_EQ(3u, astrCommits.size());
    const std::string strPatternLine = std::string("*.psd") + s_pszLfs;
    const std::string strOddLine = std::string("/a[[:space:]]b[[:space:]]\xc3\xa9.bin") + s_pszLfs;
    const std::string strTool = std::string("/tool.run") + s_pszLfs;
    EXPECT_EQ(strPatternLine + strOddLine + "/at.bin" + s_pszLfs + "/gone.bin" + s_pszLfs + "/shrinks.bin" + s_pszLfs +
                  strTool,
              Attributes(astrCommits[0]));
    EXPECT_EQ(std::set<std::string>(
                  {strOdd, "art/both.psd", "art/small.psd", "at.bin", "gone.bin", "shrinks.bin", "tool.run"}),
              LfsPaths(astrCommits[0]));
    EXPECT_EQ(strPatternLine + strOddLine + "/at.bin" + s_pszLfs + strTool, Attributes(astrCommits[1]));
    EXPECT_EQ(std::set<std::string>({strOdd, "art/both.psd", "art/small.psd", "at.bin", "tool.run"}),
              LfsPaths(astrCommits[1]));
    EXPECT_EQ(strPatternLine + strOddLine + "/at.bin" + s_pszLfs + "/below.bin" + s_pszLfs + "/gone.bin" + s_pszLfs +
                  strTool,
              Attributes(astrCommits[2]));
    EXPECT_EQ(
        std::set<std::string>({strOdd, "art/both.psd", "art/small.psd", "at.bin", "below.bin", "gone.bin", "tool.run"}),
        LfsPaths(astrCommits[2]));
    // The executable keeps its mode with its pointer.
    EXPECT_EQ("100755", Git({"ls-tree", astrCommits[0], "tool.run"}).strOut.substr(0, 6));
    // Each content once: the file added again has its old object.
    EXPECT_EQ(9u, StoredObjects());
    ExpectGoodRepository();
    // git reads the lines as they are meant in the clone.
    const TResult a =
        RunProgram({"git", "check-attr", "filter", "--", strOdd, "below.bin", "readme.txt", "art/small.psd"}, Env(), "",
                   Clone("depot"));
    EXPECT_EQ("\"a b \\303\\251.bin\": filter: lfs\nbelow.bin: filter: lfs\nreadme.txt: filter: unspecified\n"
              "art/small.psd: filter: lfs\n",
              a.strOut);
}

TEST_F(CLfsImportTest, ADepotGitattributesIsKeptAndExtended)
{
    LoadChanges({Change(1200000000, {Text(".gitattributes", "add", "*.txt text eol=lf"), Text("a.txt", "add", "a\n"),
                                     Text("sub/.gitattributes", "add", "*.c text\n")}),
                 Change(1200000100, {Generated("big.bin", "add", 2048, 1)}),
                 Change(1200000200, {Text(".gitattributes", "edit", "*.txt text eol=lf\n*.sh text eol=lf\n")}),
                 Change(1200000300, {Deleted(".gitattributes")}), Change(1200000400, {Deleted("big.bin")})});
    const TResult r = Import({"--git", m_strGit, "--lfs-threshold", "1K", "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const std::vector<std::string> astrCommits = BranchCommits();
    ASSERT_EQ(5u, astrCommits.size());
    const std::string strBig = std::string("/big.bin") + s_pszLfs;
    // Nothing in LFS yet: the depot's file as it is, to the byte.
    EXPECT_EQ("*.txt text eol=lf", Attributes(astrCommits[0]));
    // Its lines first, ours after them.
    EXPECT_EQ("*.txt text eol=lf\n" + strBig, Attributes(astrCommits[1]));
    EXPECT_EQ("*.txt text eol=lf\n*.sh text eol=lf\n" + strBig, Attributes(astrCommits[2]));
    // The depot's file gone: ours alone; then nothing to name, no file.
    EXPECT_EQ(strBig, Attributes(astrCommits[3]));
    EXPECT_EQ("", Attributes(astrCommits[4]));
    EXPECT_NE(0, Git({"cat-file", "-e", astrCommits[4] + ":.gitattributes"}).nStatus);
    // A .gitattributes below the root stays as the depot has it.
    for (const std::string& strCommit : astrCommits)
        EXPECT_EQ("*.c text\n", Git({"cat-file", "-p", strCommit + ":sub/.gitattributes"}).strOut) << strCommit;
    ExpectGoodRepository();
}

TEST_F(CLfsImportTest, ARootFileInLfsLeavesItsNameBelowOutOfLfs)
{
    // Git LFS 3.3 reads the line "/big.bin" as "big.bin" in every folder:
    // the small file of that name below gets a line that says it is not in
    // LFS, or git lfs fsck would take it for a missing pointer.
    LoadChanges({Change(1200000000, {Generated("big.bin", "add", 2048, 1), Generated("sub/big.bin", "add", 10, 2),
                                     Generated("sub/deeper/big.bin", "add", 4096, 3)}),
                 Change(1200000100, {Generated("big.bin", "edit", 10, 4)})});
    const TResult r = Import({"--git", m_strGit, "--lfs-threshold", "1K", "--verify"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const std::vector<std::string> astrCommits = BranchCommits();
    ASSERT_EQ(2u, astrCommits.size());
    EXPECT_EQ(std::string("/big.bin") + s_pszLfs + "/sub/deeper/big.bin" + s_pszLfs + "/sub/big.bin" + s_pszNoLfs,
              Attributes(astrCommits[0]));
    EXPECT_EQ(std::set<std::string>({"big.bin", "sub/deeper/big.bin"}), LfsPaths(astrCommits[0]));
    EXPECT_EQ(std::string("/sub/deeper/big.bin") + s_pszLfs, Attributes(astrCommits[1]));
    EXPECT_EQ(std::set<std::string>({"sub/deeper/big.bin"}), LfsPaths(astrCommits[1]));
    ExpectGoodRepository();
}

TEST_F(CLfsImportTest, AContinuedRunKeepsTheSettingsOfTheFirstRun)
{
    const std::vector<nlohmann::json> ajFirst = {
        Change(1200000000, {Generated("a.bin", "add", 2048, 1), Generated("x.psd", "add", 5, 2)}),
        Change(1200000100, {Generated("a.bin", "edit", 20, 3), Text("t.txt", "add", "t\n")})};
    const std::vector<nlohmann::json> ajLater = {
        Change(1200000200, {Generated("b.bin", "add", 4000, 4), Generated("y.psd", "add", 7, 5)}),
        Change(1200000300, {Generated("a.bin", "edit", 1500, 6), Deleted("x.psd")})};
    const std::vector<std::string> astrLfs = {"--lfs-pattern", "*.psd", "--lfs-threshold", "1K",
                                              "--lfs-pattern", "*.psd"};
    // The whole history in one run, into a repository of its own.
    std::vector<nlohmann::json> ajWhole = ajFirst;
    ajWhole.insert(ajWhole.end(), ajLater.begin(), ajLater.end());
    ASSERT_NO_FATAL_FAILURE(LoadChanges(ajWhole));
    const std::string strReference = m_strTemp + "/reference.git";
    std::vector<std::string> astrArgs = {"--git", strReference, "--quiet"};
    astrArgs.insert(astrArgs.end(), astrLfs.begin(), astrLfs.end());
    ASSERT_EQ(0, Import(astrArgs).nStatus);
    const std::string strReferenceRefs =
        RunProgram({"git", "--git-dir=" + strReference, "for-each-ref", "--format=%(objectname) %(refname)"}, Env())
            .strOut;

    // The same history in two parts: the later run gives no settings and
    // takes those of the first.
    m_strServer = m_strTemp + "/server2";
    ASSERT_NO_FATAL_FAILURE(LoadChanges(ajFirst));
    astrArgs[1] = m_strGit;
    ASSERT_EQ(0, Import(astrArgs).nStatus);
    EXPECT_EQ("1024\n", Git({"config", "--get", "orvane.lfsThreshold"}).strOut);
    EXPECT_EQ("*.psd\n", Git({"config", "--get-all", "orvane.lfsPattern"}).strOut);
    ASSERT_NO_FATAL_FAILURE(LoadChanges(ajLater));
    const TResult r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(strReferenceRefs, Git({"for-each-ref", "--format=%(objectname) %(refname)"}).strOut);
    ExpectGoodRepository();

    // Other settings are refused before anything is done; the same ones,
    // in any order, find nothing new.
    const std::string strMade = "orvane-import: error: the repository " + m_strGit +
                                " was made with --lfs-threshold 1024 --lfs-pattern '*.psd', and this run asks for ";
    const std::string strEnd = ": the commits depend on them, so a run that continues it uses the same (give the same "
                               "options, or none)";
    const std::vector<std::pair<std::vector<std::string>, std::string>> atOther = {
        {{"--lfs-threshold", "2K", "--lfs-pattern", "*.psd"}, "--lfs-threshold 2048 --lfs-pattern '*.psd'"},
        {{"--lfs-threshold", "1024"}, "--lfs-threshold 1024"},
        {{"--lfs-pattern", "*.psd"}, "--lfs-pattern '*.psd'"},
        {{"--lfs-threshold", "1K", "--lfs-pattern", "*.psd", "--lfs-pattern", "*.png"},
         "--lfs-threshold 1024 --lfs-pattern '*.png' --lfs-pattern '*.psd'"}};
    for (const auto& tOther : atOther)
    {
        std::vector<std::string> astr = {"--git", m_strGit};
        astr.insert(astr.end(), tOther.first.begin(), tOther.first.end());
        const TResult o = Import(astr);
        EXPECT_EQ(2, o.nStatus) << tOther.second;
        EXPECT_EQ(std::vector<std::string>({strMade + tOther.second + strEnd}), MessageLines(o.strErr));
    }
    const TResult s = Import({"--git", m_strGit, "--lfs-pattern", "*.psd", "--lfs-threshold", "1024"});
    EXPECT_EQ(0, s.nStatus) << s.strErr;
    EXPECT_NE(std::string::npos, s.strErr.find("nothing new")) << s.strErr;
    EXPECT_EQ(strReferenceRefs, Git({"for-each-ref", "--format=%(objectname) %(refname)"}).strOut);
}

TEST_F(CLfsImportTest, ARepositoryWithoutLfsIsNotContinuedWithLfs)
{
    LoadChanges({Change(1200000000, {Generated("a.bin", "add", 2048, 1)})});
    ASSERT_EQ(0, Import({"--git", m_strGit, "--quiet"}).nStatus);
    const TResult r = Import({"--git", m_strGit, "--lfs-threshold", "1K"});
    EXPECT_EQ(2, r.nStatus);
    EXPECT_EQ(std::vector<std::string>({"orvane-import: error: the repository " + m_strGit +
                                        " was made with no Git LFS, and this run asks for --lfs-threshold 1024: the "
                                        "commits depend on them, so a run that continues it uses the same (give the "
                                        "same options, or none)"}),
              MessageLines(r.strErr));
    EXPECT_FALSE(Exists(m_strGit + "/lfs"));
}

TEST_F(CLfsImportTest, AFileOfSixteenMegabytesIsStreamedIntoLfs)
{
    // Two large revisions, each compared whole (the 300 MB file of
    // LfsLargeFileTest.cpp is compared in pieces).
    LoadChanges({Change(1200000000, {Generated("media/big.bin", "add", 16 << 20, 1), Text("a.txt", "add", "a\n")}),
                 Change(1200000100, {Generated("media/big.bin", "edit", 16 << 20, 2)})});
    const std::string strStats = m_strTemp + "/stats.json";
    const TResult r = Import({"--git", m_strGit, "--lfs-threshold", "1M", "--verify", "--stats", strStats});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const nlohmann::json jStats = nlohmann::json::parse(ReadWholeFile(strStats));
    RecordProperty("peak_rss_kb", std::to_string(jStats["peak_rss_kb"].get<unsigned long>()));
    EXPECT_EQ(2u, StoredObjects());
    // No temporary file is left in the store.
    EXPECT_EQ(std::set<std::string>(), Tree(m_strGit + "/lfs/tmp"));
    ExpectGoodRepository();
}

TEST_F(CLfsImportTest, WrongLfsOptionsAreUsageErrors)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> atWrong = {
        {{"--git", m_strGit, "--lfs-threshold", "1.5M"},
         "--lfs-threshold: '1.5M' is not a size: bytes, or a whole number with K, M, G or T (500K, 50M, 1G)"},
        {{"--git", m_strGit, "--lfs-threshold", "0"},
         "--lfs-threshold: '0' is not a size: bytes, or a whole number with K, M, G or T (500K, 50M, 1G)"},
        {{"--git", m_strGit, "--lfs-pattern", "assets/"},
         "--lfs-pattern: a pattern that ends with '/' matches folders only, and attributes apply to files: write "
         "'assets/**' for every file below the folder"},
        {{"--git", m_strGit, "--lfs-pattern", "!*.txt"},
         "--lfs-pattern: .gitattributes has no negative patterns ('!')"},
        {{"--dump", "-", "--lfs-threshold", "50M"},
         "--lfs-threshold and --lfs-pattern put files into the Git LFS store of the repository of --git DIR"}};
    for (const auto& tWrong : atWrong)
    {
        const TResult r = Import(tWrong.first);
        EXPECT_EQ(2, r.nStatus) << tWrong.second;
        EXPECT_EQ("orvane-import: error: " + tWrong.second + " (see --help)\n", r.strErr);
        EXPECT_FALSE(Exists(m_strGit));
    }
}

} // namespace enginetest
