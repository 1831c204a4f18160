// The pieces of the Git LFS import one by one: the size option, the patterns and paths as .gitattributes has them, the
// pointer text, the store's paths, which files go into LFS, the lines of
// the root .gitattributes, and the store itself.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "Digest.h"
#include "EngineHarness.h"
#include "Lfs.h"
#include "LfsImport.h"
#include "LfsStore.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;

namespace {

// "hello\n" and its SHA-256.
const char* const s_pszHello = "hello\n";
const char* const s_pszHelloOid = "5891b5b522d5df086d0ff0b110fbd9d21bb4fc7163af34d08286a2e846f6be03";

TEntry File(const std::string& strContent, bool bLfs = false, unsigned nMode = 0100644)
{
    TEntry t = enginetest::Entry(nMode, strContent);
    t.bLfs = bLfs;
    return t;
}

// A change of the tree, and its record in the delta.
void Put(TTree& tTree, TTreeDelta& tDelta, const std::string& strPath, const TEntry& tEntry)
{
    tTree[strPath] = tEntry;
    tDelta.Changed(strPath);
}

void Drop(TTree& tTree, TTreeDelta& tDelta, const std::string& strPath)
{
    tTree.erase(strPath);
    tDelta.Removed(strPath);
}

// The paths of the tree.
std::set<std::string> Keys(const TTree& tTree)
{
    std::set<std::string> set;
    for (const auto& kv : tTree)
        set.insert(kv.first);
    return set;
}

TLfsSettings Settings(uint64_t nThreshold, const std::vector<std::string>& astrPatterns)
{
    TLfsSettings t;
    t.nThreshold = nThreshold;
    t.astrPatterns = astrPatterns;
    return t;
}

} // namespace

TEST(LfsTest, SizesTakeBytesOrKMGT)
{
    const std::vector<std::pair<std::string, uint64_t>> atGood = {
        {"123", 123},       {"500K", 512000},         {"500k", 512000}, {"50M", 52428800},
        {"1G", 1073741824}, {"2t", 2199023255552ULL}, {"1", 1},         {"16777215T", 18446742974197923840ULL}};
    for (const auto& t : atGood)
    {
        uint64_t n = 0;
        EXPECT_TRUE(ParseSize(t.first, n)) << t.first;
        EXPECT_EQ(t.second, n) << t.first;
    }
    for (const char* psz :
         {"", "M", "0", "0K", "1.5M", "50MB", "-1", " 1", "1 ", "50P", "18446744073709551616", "16777216T", "0x10"})
    {
        uint64_t n = 7;
        EXPECT_FALSE(ParseSize(psz, n)) << psz;
        EXPECT_EQ(7u, n) << psz;
    }
}

TEST(LfsTest, PatternsAreWrittenAsGitattributesReadsThem)
{
    EXPECT_EQ("*.psd", AttributePattern("*.psd"));
    EXPECT_EQ("assets/**", AttributePattern("assets/**"));
    EXPECT_EQ("my[[:space:]]file.psd", AttributePattern("my file.psd"));
    EXPECT_EQ("\\#notes", AttributePattern("#notes"));
    EXPECT_EQ("", PatternProblem("*.psd"));
    EXPECT_EQ("", PatternProblem("my file.psd"));
    EXPECT_EQ("an empty pattern matches no file", PatternProblem(""));
    EXPECT_EQ(".gitattributes has no negative patterns ('!')", PatternProblem("!*.psd"));
    EXPECT_EQ("a pattern may not begin with '\"'", PatternProblem("\"x\""));
    EXPECT_EQ("a pattern may not hold control characters", PatternProblem("a\tb"));
    EXPECT_EQ("a pattern that ends with '/' matches folders only, and attributes apply to files: write "
              "'assets/**' for every file below the folder",
              PatternProblem("assets/"));
}

TEST(LfsTest, PatternsWithoutSlashMatchTheNameInAnyFolder)
{
    EXPECT_TRUE(AttributeMatches("*.psd", "x.psd"));
    EXPECT_TRUE(AttributeMatches("*.psd", "art/deep/x.psd"));
    EXPECT_TRUE(AttributeMatches("big.bin", "sub/big.bin"));
    EXPECT_FALSE(AttributeMatches("*.psd", "x.psd/y"));
    EXPECT_TRUE(AttributeMatches("/*.psd", "x.psd"));
    EXPECT_FALSE(AttributeMatches("/*.psd", "art/x.psd"));
    EXPECT_TRUE(AttributeMatches("art/*.psd", "art/x.psd"));
    EXPECT_FALSE(AttributeMatches("art/*.psd", "a/art/x.psd"));
    EXPECT_FALSE(AttributeMatches("art/*.psd", "art/sub/x.psd"));
    EXPECT_TRUE(AttributeMatches("assets/**", "assets/a/b.png"));
    EXPECT_TRUE(AttributeMatches("**/tex/*.png", "a/b/tex/c.png"));
    EXPECT_TRUE(AttributeMatches("my[[:space:]]file.psd", "art/my file.psd"));
}

TEST(LfsTest, APathPatternNamesExactlyItsFile)
{
    EXPECT_EQ("/big.bin", PathPattern("big.bin"));
    EXPECT_EQ("/art/a[[:space:]]b\xc3\xa9.psd", PathPattern("art/a b\xc3\xa9.psd"));
    EXPECT_EQ("/x/st\\*r\\?\\[1]\\\\.dat", PathPattern("x/st*r?[1]\\.dat"));
    EXPECT_EQ("/#a/!b[[:space:]]\"c\"", PathPattern("#a/!b \"c\""));
    const std::vector<std::string> astrPaths = {
        "big.bin", "sub/big.bin", "art/a b\xc3\xa9.psd", "x/st*r.dat",   "x/stXr.dat",  "q/[1].bin",
        "q/1.bin", "#a/!b",       "odd/\\back.bin",      "t/a\"q\".bin", "sp/ lead.bin"};
    for (const std::string& strPath : astrPaths)
        for (const std::string& strOther : astrPaths)
            EXPECT_EQ(strPath == strOther, AttributeMatches(PathPattern(strPath), strOther))
                << PathPattern(strPath) << " against " << strOther;
    // A blank stands for any blank, as with `git lfs track`.
    EXPECT_TRUE(AttributeMatches(PathPattern("a b.bin"), "a\tb.bin"));
}

TEST(LfsTest, ThePointerIsGitLfsText)
{
    EXPECT_EQ(std::string("version https://git-lfs.github.com/spec/v1\noid sha256:") + s_pszHelloOid + "\nsize 6\n",
              LfsPointer(Sha256Hex(s_pszHello), 6));
    EXPECT_EQ("", LfsPointer(Sha256Hex(""), 0));
    EXPECT_EQ(std::string("/srv/r.git/lfs/objects/58/91/") + s_pszHelloOid, LfsObjectPath("/srv/r.git", s_pszHelloOid));
}

TEST(LfsTest, SettingsAreDescribedAsOptions)
{
    EXPECT_EQ("no Git LFS", TLfsSettings().Describe());
    EXPECT_EQ("--lfs-threshold 1024 --lfs-pattern '*.psd' --lfs-pattern 'a b'",
              Settings(1024, {"*.psd", "a b"}).Describe());
    EXPECT_EQ("--lfs-pattern '*.psd'", Settings(0, {"*.psd"}).Describe());
    EXPECT_TRUE(Settings(1, {}) == Settings(1, {}));
    EXPECT_TRUE(Settings(1, {"a"}) != Settings(1, {}));
}

TEST(LfsTest, FilesGoIntoLfsFromTheThresholdOrByAPattern)
{
    const CLfsRules cRules(Settings(1024, {"*.psd", "assets/**"}));
    EXPECT_FALSE(cRules.Takes("a.bin", 1023));
    EXPECT_TRUE(cRules.Takes("a.bin", 1024));
    EXPECT_TRUE(cRules.Takes("deep/a.bin", 5000));
    EXPECT_TRUE(cRules.Takes("x.psd", 1));
    EXPECT_TRUE(cRules.Takes("art/x.psd", 0));
    EXPECT_TRUE(cRules.Takes("assets/t/x.txt", 3));
    EXPECT_FALSE(cRules.Takes("other/assets/x.txt", 3));
    // What git and Git LFS read themselves stays out, whatever its size.
    EXPECT_FALSE(cRules.Takes(".gitattributes", 1 << 20));
    EXPECT_FALSE(cRules.Takes("sub/.gitattributes", 1 << 20));
    EXPECT_FALSE(cRules.Takes(".lfsconfig", 1 << 20));
    const CLfsRules cPatternsOnly(Settings(0, {"*.psd"}));
    EXPECT_FALSE(cPatternsOnly.Takes("a.bin", uint64_t(1) << 40));
    EXPECT_TRUE(CLfsRules(Settings(0, {"*"})).Matches(".gitattributes"));
}

TEST(LfsTest, AttributesNamePatternsThenPathsInLfsBySizeAlone)
{
    const CLfsRules cRules(Settings(100, {"*.psd", "my file.*"}));
    CLfsAttributes cAttributes(cRules);
    TTree tTree = {{"a.txt", File("a")},
                   {"art/big.psd", File("p", true)},
                   {"data/big one.bin", File("b", true)},
                   {"data/x*y.bin", File("c", true)},
                   {"my file.bin", File("m", true)}};
    cAttributes.Update(tTree, TTreeDelta(), true);
    const std::string strOurs = "*.psd filter=lfs diff=lfs merge=lfs -text\n"
                                "my[[:space:]]file.* filter=lfs diff=lfs merge=lfs -text\n"
                                "/data/big[[:space:]]one.bin filter=lfs diff=lfs merge=lfs -text\n"
                                "/data/x\\*y.bin filter=lfs diff=lfs merge=lfs -text\n";
    EXPECT_EQ(strOurs, cAttributes.Text(""));
    // The depot's own lines first, ended if they are not.
    EXPECT_EQ("*.txt text\n" + strOurs, cAttributes.Text("*.txt text"));
    EXPECT_EQ("*.txt text\r\n" + strOurs, cAttributes.Text("*.txt text\r\n"));

    // A file that becomes small again leaves; one deleted goes; one added
    // by size comes.
    TTreeDelta tDelta;
    Put(tTree, tDelta, "data/big one.bin", File("small"));
    Drop(tTree, tDelta, "data/x*y.bin");
    Put(tTree, tDelta, "new.bin", File("n", true));
    cAttributes.Update(tTree, tDelta, false);
    EXPECT_EQ("*.psd filter=lfs diff=lfs merge=lfs -text\n"
              "my[[:space:]]file.* filter=lfs diff=lfs merge=lfs -text\n"
              "/new.bin filter=lfs diff=lfs merge=lfs -text\n",
              cAttributes.Text(""));
}

TEST(LfsTest, WithoutLinesTheDepotsAttributesStayAsTheyAre)
{
    const CLfsRules cRules(Settings(100, {}));
    CLfsAttributes cAttributes(cRules);
    cAttributes.Update({{"a.txt", File("a")}}, TTreeDelta(), true);
    EXPECT_EQ("", cAttributes.Text(""));
    EXPECT_EQ("*.txt text", cAttributes.Text("*.txt text"));
}

TEST(LfsTest, AttributesTakeLfsOffWhatAReaderWouldTakeForLfs)
{
    // With "*" everything is in LFS but what git reads itself.
    const CLfsRules cAll(Settings(0, {"*"}));
    CLfsAttributes cAttributes(cAll);
    cAttributes.Update({{"a.txt", File("a", true)}, {"sub/.gitattributes", File("g")}}, TTreeDelta(), true);
    EXPECT_EQ("* filter=lfs diff=lfs merge=lfs -text\n"
              "/.gitattributes !filter !diff !merge !text\n"
              "/sub/.gitattributes !filter !diff !merge !text\n",
              cAttributes.Text(""));

    // Git LFS 3.3 reads a line "/NAME" as "NAME" in every folder: a file of
    // that name below the root that is not in LFS gets an override, be the
    // line a pattern or that of a root file in LFS by size. Symbolic links
    // are never read for LFS.
    const CLfsRules cRules(Settings(100, {"/*.zip"}));
    CLfsAttributes cRoot(cRules);
    TTree tTree = {{"big.bin", File("B", true)},
                   {"sub/big.bin", File("s")},
                   {"sub/x/big.bin", File("t", true)},
                   {"a.zip", File("z", true)},
                   {"sub/b.zip", File("y")},
                   {"c.zip", File("l", false, 0120000)},
                   {"link/big.bin", File("l", false, 0120000)}};
    cRoot.Update(tTree, TTreeDelta(), true);
    EXPECT_EQ("/*.zip filter=lfs diff=lfs merge=lfs -text\n"
              "/big.bin filter=lfs diff=lfs merge=lfs -text\n"
              "/sub/x/big.bin filter=lfs diff=lfs merge=lfs -text\n"
              "/sub/b.zip !filter !diff !merge !text\n"
              "/sub/big.bin !filter !diff !merge !text\n",
              cRoot.Text(""));
    // The root file becomes small: its line goes, and the override with it.
    TTreeDelta tDelta;
    Put(tTree, tDelta, "big.bin", File("b"));
    cRoot.Update(tTree, tDelta, false);
    EXPECT_EQ("/*.zip filter=lfs diff=lfs merge=lfs -text\n"
              "/sub/x/big.bin filter=lfs diff=lfs merge=lfs -text\n"
              "/sub/b.zip !filter !diff !merge !text\n",
              cRoot.Text(""));
}

TEST(LfsTest, AttributesKeptChangeByChangeAreThoseOfTheWholeTree)
{
    const CLfsRules cRules(Settings(3, {"/*.zip"}));
    CLfsAttributes cKept(cRules);
    TTree tTree;
    cKept.Update(tTree, TTreeDelta(), true);
    // Each step: path, content ("" removes), whether in LFS.
    const std::vector<std::vector<std::tuple<std::string, std::string, bool>>> aSteps = {
        {{"a.bin", "AAAA", true}, {"d/a.bin", "a", false}, {"d/e/a.bin", "AAAA", true}},
        {{"d/a.zip", "z", false}, {"a.zip", "z", true}},
        {{"a.bin", "a", false}},
        {{"a.bin", "AAAAA", true}, {"d/a.bin", "", false}},
        {{"d/a.bin", "b", false}, {"a.zip", "", false}},
        {{"a.bin", "", false}, {"d/e/a.bin", "", false}}};
    for (const auto& aStep : aSteps)
    {
        TTreeDelta tDelta;
        for (const auto& t : aStep)
        {
            if (std::get<1>(t).empty())
                Drop(tTree, tDelta, std::get<0>(t));
            else
                Put(tTree, tDelta, std::get<0>(t), File(std::get<1>(t), std::get<2>(t)));
        }
        cKept.Update(tTree, tDelta, false);
        CLfsAttributes cWhole(cRules);
        cWhole.Update(tTree, TTreeDelta(), true);
        EXPECT_EQ(cWhole.Text("x"), cKept.Text("x"));
    }
}

namespace {

class CLfsStoreTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(m_cScratch.Path().empty());
        ASSERT_EQ(0, ::mkdir(m_strGit.c_str(), 0755));
    }
    // Reads the file at the path below the scratch folder through the store.
    bool Read(CLfsStore& cStore, const std::string& strName, std::string& strText)
    {
        const int fd = ::open(m_cScratch.File(strName).c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_GE(fd, 0);
        struct stat st;
        EXPECT_EQ(0, ::fstat(fd, &st));
        const bool b = cStore.Read(strName, fd, uint64_t(st.st_size), strText);
        ::close(fd);
        return b;
    }
    // The names in the store's temporary folder.
    std::vector<std::string> Temporary() const
    {
        std::vector<std::string> astr;
        for (const auto& cEntry : std::filesystem::directory_iterator(m_strGit + "/lfs/tmp"))
            astr.push_back(cEntry.path().filename().string());
        return astr;
    }

    enginetest::TScratch m_cScratch;
    std::string m_strGit = m_cScratch.File("r.git");
    const CLfsRules m_cRules{Settings(4, {})};
};

} // namespace

TEST_F(CLfsStoreTest, AFileIsStoredOnceUnderItsSha256)
{
    CLfsStore cStore(m_cRules, m_strGit, true);
    std::string strError;
    ASSERT_TRUE(cStore.Prepare(strError)) << strError;
    std::ofstream(m_cScratch.File("hello"), std::ios::binary) << s_pszHello;
    std::string strText;
    ASSERT_TRUE(Read(cStore, "hello", strText));
    EXPECT_EQ(LfsPointer(s_pszHelloOid, 6), strText);
    const std::string strObject = LfsObjectPath(m_strGit, s_pszHelloOid);
    EXPECT_EQ(s_pszHello, enginetest::ReadWholeFile(strObject));
    EXPECT_TRUE(cStore.Holds(s_pszHelloOid, 6));
    EXPECT_FALSE(cStore.Holds(s_pszHelloOid, 7));
    struct stat stFirst, stAgain;
    ASSERT_EQ(0, ::stat(strObject.c_str(), &stFirst));
    // The same content again (another file): the object stays as it is.
    std::ofstream(m_cScratch.File("again"), std::ios::binary) << s_pszHello;
    ASSERT_TRUE(Read(cStore, "again", strText));
    ASSERT_EQ(0, ::stat(strObject.c_str(), &stAgain));
    EXPECT_EQ(stFirst.st_ino, stAgain.st_ino);
    EXPECT_EQ(std::vector<std::string>(), Temporary());
    EXPECT_EQ("", cStore.Error());
    // Empty content has an empty pointer and no object.
    std::ofstream(m_cScratch.File("empty"), std::ios::binary).flush();
    ASSERT_TRUE(Read(cStore, "empty", strText));
    EXPECT_EQ("", strText);
    EXPECT_EQ(std::vector<std::string>(), Temporary());
    // The pointer is the one Git LFS itself writes for the file.
    const enginetest::TResult r = enginetest::RunProgram(
        {"git", "lfs", "pointer", "--file=" + m_cScratch.File("hello")},
        {{"GIT_CONFIG_NOSYSTEM", "1"}, {"GIT_CONFIG_GLOBAL", "/dev/null"}, {"HOME", m_cScratch.Path()}});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ(LfsPointer(s_pszHelloOid, 6), r.strOut);
}

TEST_F(CLfsStoreTest, AStoreThatOnlyHashesKeepsWhatItRead)
{
    CLfsStore cStore(m_cRules, m_strGit, false);
    std::ofstream(m_cScratch.File("hello"), std::ios::binary) << s_pszHello;
    std::string strText;
    ASSERT_TRUE(Read(cStore, "hello", strText));
    EXPECT_EQ(LfsPointer(s_pszHelloOid, 6), strText);
    EXPECT_FALSE(enginetest::Exists(m_strGit + "/lfs"));
    const std::vector<CLfsStore::TObject> at = cStore.TakeObjects();
    ASSERT_EQ(1u, at.size());
    EXPECT_EQ("hello", at[0].strPath);
    EXPECT_EQ(s_pszHelloOid, at[0].strOid);
    EXPECT_EQ(6u, at[0].nSize);
    EXPECT_TRUE(cStore.TakeObjects().empty());
}

TEST_F(CLfsStoreTest, PrepareRemovesTheTemporaryFilesOfAKilledRun)
{
    CLfsStore cStore(m_cRules, m_strGit, true);
    std::string strError;
    ASSERT_TRUE(cStore.Prepare(strError)) << strError;
    std::ofstream(m_strGit + "/lfs/tmp/orvane-import-AbC123") << "half";
    std::ofstream(m_strGit + "/lfs/tmp/other-tool") << "not ours";
    ASSERT_TRUE(cStore.Prepare(strError)) << strError;
    EXPECT_EQ(std::vector<std::string>({"other-tool"}), Temporary());
}

TEST_F(CLfsStoreTest, AFailureToStoreIsKeptWithItsReason)
{
    CLfsStore cStore(m_cRules, m_strGit, true);
    std::string strError;
    ASSERT_TRUE(cStore.Prepare(strError)) << strError;
    ASSERT_EQ(0, ::rmdir((m_strGit + "/lfs/tmp").c_str()));
    std::ofstream(m_cScratch.File("hello"), std::ios::binary) << s_pszHello;
    std::string strText;
    EXPECT_FALSE(Read(cStore, "hello", strText));
    EXPECT_EQ("cannot store 'hello' in Git LFS: cannot make a file in " + m_strGit +
                  "/lfs/tmp: No such file or directory",
              cStore.Error());
    // A store whose folder cannot be made says so.
    std::ofstream(m_cScratch.File("file.git"));
    CLfsStore cBlocked(m_cRules, m_cScratch.File("file.git"), true);
    EXPECT_FALSE(cBlocked.Prepare(strError));
    EXPECT_EQ("cannot make the Git LFS folder " + m_cScratch.File("file.git") + "/lfs: Not a directory", strError);
}

TEST_F(CLfsStoreTest, ATreeHoldsThePointersOfTheFilesInLfs)
{
    CLfsStore cStore(m_cRules, m_strGit, true);
    std::string strError;
    ASSERT_TRUE(cStore.Prepare(strError)) << strError;
    const std::string strRoot = m_cScratch.File("tree");
    ASSERT_EQ(0, ::mkdir(strRoot.c_str(), 0755));
    ASSERT_EQ(0, ::mkdir((strRoot + "/d").c_str(), 0755));
    std::ofstream(strRoot + "/d/hello", std::ios::binary) << s_pszHello;
    std::ofstream(strRoot + "/abc", std::ios::binary) << "abc";
    ASSERT_EQ(0, ::symlink("hello-is-long-enough", (strRoot + "/link").c_str()));
    std::map<std::string, std::string> mapSent;
    TTree tTree;
    ScanTree(
        strRoot, tTree,
        [&mapSent](const std::string& strBlob, const CBlobContent& cText) { mapSent[strBlob] = cText.Whole(); },
        nullptr, &cStore);
    const std::string strPointer = LfsPointer(s_pszHelloOid, 6);
    ASSERT_EQ(3u, tTree.size());
    EXPECT_TRUE(tTree["d/hello"] == File(strPointer));
    EXPECT_TRUE(tTree["d/hello"].bLfs);
    EXPECT_FALSE(tTree["abc"].bLfs);
    EXPECT_FALSE(tTree["link"].bLfs);
    EXPECT_EQ(strPointer, mapSent[GitBlobName(strPointer)]);
    EXPECT_EQ("abc", mapSent[GitBlobName("abc")]);
    EXPECT_TRUE(cStore.Holds(s_pszHelloOid, 6));
}

TEST_F(CLfsStoreTest, ACommitTreeCarriesTheRootGitattributes)
{
    ASSERT_EQ(0, enginetest::RunProgram({"git", "init", "-q", "--bare", m_strGit}).nStatus);
    CLfsImport cLfs(Settings(4, {}), m_strGit);
    cLfs.Open(true);
    const std::string strRoot = m_cScratch.File("tree");
    ASSERT_EQ(0, ::mkdir(strRoot.c_str(), 0755));
    std::map<std::string, std::string> mapSent;
    const TBlobSink fnSink = [&mapSent](const std::string& strBlob, const CBlobContent& cText) {
        mapSent[strBlob] = cText.Whole();
    };
    const std::string strLine = "/big.bin filter=lfs diff=lfs merge=lfs -text\n";
    // The first commit: the whole tree, the file in LFS named.
    TTree tFolder = {{"big.bin", File(LfsPointer(s_pszHelloOid, 6), true)}, {"a.txt", File("a")}};
    TTree tTree;
    TTreeDelta tDelta;
    cLfs.CommitTree(strRoot, tFolder, TTreeDelta(), true, fnSink, tTree, tDelta);
    EXPECT_EQ(3u, tTree.size());
    EXPECT_TRUE(tTree[".gitattributes"] == File(strLine));
    EXPECT_EQ(strLine, mapSent[GitBlobName(strLine)]);
    // A change that leaves the lines alone: the delta's paths only.
    tFolder["a.txt"] = File("b");
    TTreeDelta tChange;
    tChange.Changed("a.txt");
    cLfs.CommitTree(strRoot, tFolder, tChange, false, fnSink, tTree, tDelta);
    EXPECT_EQ(std::set<std::string>({"a.txt"}), tDelta.setChanged);
    EXPECT_TRUE(tDelta.setRemoved.empty());
    EXPECT_EQ(std::set<std::string>({".gitattributes", "a.txt"}), Keys(tTree));
    // The file leaves LFS: nothing to name, the .gitattributes goes.
    tFolder["big.bin"] = File("small");
    TTreeDelta tSmall;
    tSmall.Changed("big.bin");
    cLfs.CommitTree(strRoot, tFolder, tSmall, false, fnSink, tTree, tDelta);
    EXPECT_EQ(std::set<std::string>({"big.bin"}), tDelta.setChanged);
    EXPECT_EQ(std::set<std::string>({".gitattributes"}), tDelta.setRemoved);
    EXPECT_EQ(0u, tTree.count(".gitattributes"));
    // The depot's own comes: it is read from the folder, and extended once
    // a file is in LFS again.
    std::ofstream(strRoot + "/.gitattributes", std::ios::binary) << "*.c text\n";
    tFolder[".gitattributes"] = File("*.c text\n");
    tFolder["big.bin"] = File(LfsPointer(s_pszHelloOid, 6), true);
    TTreeDelta tBoth;
    tBoth.Changed(".gitattributes");
    tBoth.Changed("big.bin");
    cLfs.CommitTree(strRoot, tFolder, tBoth, false, fnSink, tTree, tDelta);
    EXPECT_EQ(std::set<std::string>({".gitattributes", "big.bin"}), tDelta.setChanged);
    EXPECT_TRUE(tTree[".gitattributes"] == File("*.c text\n" + strLine));
    EXPECT_EQ("*.c text\n" + strLine, mapSent[GitBlobName("*.c text\n" + strLine)]);
}

TEST_F(CLfsStoreTest, AScanForVerifyFindsAnObjectTheStoreLacks)
{
    ASSERT_EQ(0, enginetest::RunProgram({"git", "init", "-q", "--bare", m_strGit}).nStatus);
    CLfsImport cLfs(Settings(4, {}), m_strGit);
    cLfs.Open(true);
    const std::string strRoot = m_cScratch.File("tree");
    ASSERT_EQ(0, ::mkdir(strRoot.c_str(), 0755));
    std::ofstream(strRoot + "/big.bin", std::ios::binary) << s_pszHello;
    std::ofstream(strRoot + "/a", std::ios::binary) << "a";
    TTree tTree;
    EXPECT_EQ("the Git LFS object of 'big.bin' (sha256:" + std::string(s_pszHelloOid) + ", 6 bytes) is not in " +
                  m_strGit + "/lfs/objects",
              cLfs.ScanFolder(strRoot, tTree));
    // Stored, it is found; the tree is what a commit holds.
    TTree tStored;
    ScanTree(strRoot, tStored, TBlobSink(), nullptr, cLfs.Filter());
    EXPECT_EQ("", cLfs.ScanFolder(strRoot, tTree));
    const std::string strLine = "/big.bin filter=lfs diff=lfs merge=lfs -text\n";
    EXPECT_EQ(3u, tTree.size());
    EXPECT_TRUE(tTree["big.bin"] == File(LfsPointer(s_pszHelloOid, 6)));
    EXPECT_TRUE(tTree[".gitattributes"] == File(strLine));
    // The settings went into the new repository's configuration.
    TLfsSettings tRead;
    std::string strError;
    ASSERT_TRUE(ReadLfsSettings(m_strGit, tRead, strError)) << strError;
    EXPECT_TRUE(tRead == Settings(4, {}));
}
