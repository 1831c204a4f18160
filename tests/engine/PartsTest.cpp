// The engine's parts on their own: digests, branch names, identities, and
// the folder watch that finds what a sync changed.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "GitOutput.h"
#include "Hash.h"
#include "Tree.h"

using namespace ORVANE::IMP;

TEST(Hash, KnownDigests)
{
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", Sha256Hex(""));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", Sha256Hex("abc"));
    EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
              Sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", Sha256Hex(std::string(1000000, 'a')));
    CSha1 c;
    c.Update("abc", 3);
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", c.HexDigest());
    EXPECT_EQ("e69de29bb2d1d6434b8b29ae775ad8c2e48c5391", GitBlobName(""));
    EXPECT_EQ("ce013625030ba8dba906f756967f9e9ca394464a", GitBlobName("hello\n"));
}

TEST(BranchName, ValidAndUnique)
{
    std::set<std::string> setUsed;
    EXPECT_EQ("main", MakeBranchName("main", setUsed));
    EXPECT_EQ("main-2", MakeBranchName("main", setUsed));
    EXPECT_EQ("Main-3", MakeBranchName("Main", setUsed));
    EXPECT_EQ("a_b_c_d_e_f_g_h_i_j", MakeBranchName("a b~c^d:e?f*g[h\\i/j", setUsed));
    EXPECT_EQ("x_.y", MakeBranchName("x..y", setUsed));
    EXPECT_EQ("_hidden", MakeBranchName(".hidden", setUsed));
    EXPECT_EQ("end_", MakeBranchName("end.", setUsed));
    EXPECT_EQ("ref.lock_", MakeBranchName("ref.lock", setUsed));
    EXPECT_EQ("a_{b}", MakeBranchName("a@{b}", setUsed));
    EXPECT_EQ("stream", MakeBranchName("@", setUsed));
    EXPECT_EQ("stream-2", MakeBranchName("", setUsed));
    EXPECT_EQ("r\xC3\xA9sum\xC3\xA9", MakeBranchName("r\xC3\xA9sum\xC3\xA9", setUsed));
    EXPECT_EQ("_dash", MakeBranchName("-dash", setUsed));
    for (const std::string& s : setUsed)
    {
        const enginetest::TResult r = enginetest::RunProgram({"git", "check-ref-format", "refs/heads/" + s});
        EXPECT_EQ(0, r.nStatus) << s;
    }
}

TEST(Identity, UserAtClient)
{
    std::string strName, strEmail;
    SplitUser("jo@ws", strName, strEmail);
    EXPECT_EQ("jo", strName);
    EXPECT_EQ("jo@ws", strEmail);
    SplitUser("max", strName, strEmail);
    EXPECT_EQ("max", strName);
    EXPECT_EQ("max", strEmail);
    SplitUser("a<b>@c\nd", strName, strEmail);
    EXPECT_EQ("a_b_", strName);
    EXPECT_EQ("a_b_@c_d", strEmail);
}

namespace {

class CTreeTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char ach[] = "/tmp/orvane-tree-test-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(ach));
        m_strRoot = ach;
    }
    void TearDown() override { enginetest::RunProgram({"rm", "-rf", m_strRoot}); }
    void Write(const std::string& strPath, const std::string& strData, mode_t nMode = 0644)
    {
        const std::string strFull = m_strRoot + "/" + strPath;
        std::ofstream(strFull, std::ios::binary | std::ios::trunc) << strData;
        chmod(strFull.c_str(), nMode);
    }
    // Collects the watch's paths, updates the tree, and checks it against a
    // full scan.
    TTreeDelta Step()
    {
        std::set<std::string> setDirty;
        EXPECT_TRUE(m_cWatch.Collect(setDirty));
        TTreeDelta tDelta;
        UpdateTree(m_strRoot, setDirty, m_tTree, tDelta,
                   [this](const std::string& strBlob, const std::string&) { m_setSent.insert(strBlob); });
        TTree tScan;
        ScanTree(m_strRoot, tScan);
        EXPECT_TRUE(tScan == m_tTree);
        return tDelta;
    }
    std::string m_strRoot;
    CFolderWatch m_cWatch;
    TTree m_tTree;
    std::set<std::string> m_setSent;
};

} // namespace

TEST_F(CTreeTest, WatchFindsEveryKindOfChange)
{
    ASSERT_TRUE(m_cWatch.Start(m_strRoot));
    // New folders several levels deep, written before the watch sees them.
    ASSERT_EQ(0, mkdir((m_strRoot + "/a").c_str(), 0755));
    ASSERT_EQ(0, mkdir((m_strRoot + "/a/b").c_str(), 0755));
    ASSERT_EQ(0, mkdir((m_strRoot + "/a/b/c").c_str(), 0755));
    Write("a/b/c/deep.txt", "deep\n");
    Write("top.sh", "#!/bin/sh\n", 0755);
    Write("name with blank.txt", "x\n");
    ASSERT_EQ(0, symlink("top.sh", (m_strRoot + "/link").c_str()));
    TTreeDelta tDelta = Step();
    EXPECT_EQ((std::set<std::string>{"a/b/c/deep.txt", "link", "name with blank.txt", "top.sh"}), tDelta.setChanged);
    EXPECT_TRUE(tDelta.setRemoved.empty());
    EXPECT_EQ(0100755u, m_tTree["top.sh"].nMode);
    EXPECT_EQ(0120000u, m_tTree["link"].nMode);
    EXPECT_EQ(GitBlobName("top.sh"), m_tTree["link"].strBlob);
    EXPECT_EQ(4u, m_setSent.size());

    // Nothing happened: nothing changed, nothing is sent again.
    m_setSent.clear();
    EXPECT_TRUE(Step().Empty());

    // Same content rewritten, a mode change, a removal, a new file in the
    // folder that was added last time, and a rename.
    Write("name with blank.txt", "x\n");
    chmod((m_strRoot + "/top.sh").c_str(), 0644);
    unlink((m_strRoot + "/link").c_str());
    Write("a/b/c/new.txt", "new\n");
    ASSERT_EQ(0, rename((m_strRoot + "/a/b/c/deep.txt").c_str(), (m_strRoot + "/a/moved.txt").c_str()));
    tDelta = Step();
    EXPECT_EQ((std::set<std::string>{"a/b/c/new.txt", "a/moved.txt", "top.sh"}), tDelta.setChanged);
    EXPECT_EQ((std::set<std::string>{"a/b/c/deep.txt", "link"}), tDelta.setRemoved);
    EXPECT_EQ(0100644u, m_tTree["top.sh"].nMode);

    // A whole folder goes; a file takes the place of a folder.
    enginetest::RunProgram({"rm", "-rf", m_strRoot + "/a/b"});
    tDelta = Step();
    EXPECT_EQ((std::set<std::string>{"a/b/c/new.txt"}), tDelta.setRemoved);
    enginetest::RunProgram({"rm", "-rf", m_strRoot + "/a"});
    Write("a", "now a file\n");
    tDelta = Step();
    EXPECT_EQ((std::set<std::string>{"a"}), tDelta.setChanged);
    EXPECT_EQ((std::set<std::string>{"a/moved.txt"}), tDelta.setRemoved);
}

TEST_F(CTreeTest, RescanFindsTheSameAsTheWatch)
{
    Write("one.txt", "1\n");
    TTreeDelta tDelta;
    RescanTree(m_strRoot, m_tTree, tDelta, TBlobSink());
    EXPECT_EQ((std::set<std::string>{"one.txt"}), tDelta.setChanged);
    Write("two.txt", "2\n");
    unlink((m_strRoot + "/one.txt").c_str());
    TTreeDelta tDelta2;
    RescanTree(m_strRoot, m_tTree, tDelta2, TBlobSink());
    EXPECT_EQ((std::set<std::string>{"two.txt"}), tDelta2.setChanged);
    EXPECT_EQ((std::set<std::string>{"one.txt"}), tDelta2.setRemoved);
}
