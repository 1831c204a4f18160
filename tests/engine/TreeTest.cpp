// The folder's tree as git sees it: read whole, or brought up to date
// from the paths a folder watch reports, and the watch itself.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "Digest.h"
#include "EngineHarness.h"
#include "FolderWatch.h"
#include "Tree.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;

namespace {

class CTreeTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_FALSE(m_strRoot.empty()); }
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
                   [this](const std::string& strBlob, const CBlobContent&) { m_setSent.insert(strBlob); });
        TTree tScan;
        ScanTree(m_strRoot, tScan);
        EXPECT_TRUE(tScan == m_tTree);
        return tDelta;
    }
    enginetest::TScratch m_tScratch;
    std::string m_strRoot = m_tScratch.Path();
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
    std::filesystem::remove_all(m_strRoot + "/a/b");
    tDelta = Step();
    EXPECT_EQ((std::set<std::string>{"a/b/c/new.txt"}), tDelta.setRemoved);
    std::filesystem::remove_all(m_strRoot + "/a");
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

TEST_F(CTreeTest, ReadEntryGivesModeNameAndContent)
{
    Write("x.sh", "echo\n", 0755);
    TEntry tEntry;
    std::string strContent;
    ASSERT_TRUE(ReadEntry(m_strRoot + "/x.sh", tEntry, &strContent));
    EXPECT_EQ(0100755u, tEntry.nMode);
    EXPECT_EQ(GitBlobName("echo\n"), tEntry.strBlob);
    EXPECT_EQ("echo\n", strContent);
    EXPECT_FALSE(ReadEntry(m_strRoot, tEntry, nullptr));
    EXPECT_FALSE(ReadEntry(m_strRoot + "/none", tEntry, nullptr));
}

TEST_F(CTreeTest, LargeAndEmptyFilesAreReadWhole)
{
    // Larger than one read, and not a multiple of its size.
    std::string strLarge;
    for (unsigned i = 0; strLarge.size() < 200001; ++i)
        strLarge += std::to_string(i) + (i % 7 ? " " : "\n");
    strLarge.resize(200001);
    Write("large.bin", strLarge);
    Write("empty", "");
    TEntry tEntry;
    std::string strContent;
    ASSERT_TRUE(ReadEntry(m_strRoot + "/large.bin", tEntry, &strContent));
    EXPECT_EQ(200001u, strContent.size());
    EXPECT_EQ(strLarge, strContent);
    EXPECT_EQ(GitBlobName(strLarge), tEntry.strBlob);
    ASSERT_TRUE(ReadEntry(m_strRoot + "/empty", tEntry, &strContent));
    EXPECT_EQ("", strContent);
    EXPECT_EQ("e69de29bb2d1d6434b8b29ae775ad8c2e48c5391", tEntry.strBlob);
    // The same through the watch and a scan.
    ScanTree(m_strRoot, m_tTree);
    ASSERT_TRUE(m_cWatch.Start(m_strRoot));
    Write("large.bin", strLarge + "tail");
    const TTreeDelta tDelta = Step();
    EXPECT_EQ(std::set<std::string>{"large.bin"}, tDelta.setChanged);
    EXPECT_EQ(GitBlobName(strLarge + "tail"), m_tTree.at("large.bin").strBlob);
    EXPECT_EQ(1u, m_setSent.count(GitBlobName(strLarge + "tail")));
}

TEST_F(CTreeTest, ScanSendsOnlyWhatIsNewToTheSink)
{
    Write("a", "1");
    Write("b", "2");
    TTree tOld;
    ScanTree(m_strRoot, tOld);
    Write("b", "22");
    std::vector<std::string> astrSent;
    TTree tNew;
    ScanTree(
        m_strRoot, tNew,
        [&](const std::string& strBlob, const CBlobContent& cContent) {
            astrSent.push_back(strBlob + " " + cContent.Whole());
        },
        &tOld);
    EXPECT_EQ((std::vector<std::string>{GitBlobName("22") + " 22"}), astrSent);
    EXPECT_EQ(2u, tNew.size());
}

TEST_F(CTreeTest, ALinkToAFolderIsOneEntryAndARootThatWentHoldsNothing)
{
    ASSERT_EQ(0, mkdir((m_strRoot + "/stream").c_str(), 0755));
    ASSERT_EQ(0, mkdir((m_strRoot + "/stream/real").c_str(), 0755));
    Write("stream/real/in.txt", "in\n");
    ASSERT_EQ(0, symlink("real", (m_strRoot + "/stream/alias").c_str()));
    const std::string strStream = m_strRoot + "/stream";
    ScanTree(strStream, m_tTree);
    ASSERT_EQ(2u, m_tTree.size());
    EXPECT_EQ(0120000u, m_tTree.at("alias").nMode);
    EXPECT_EQ(GitBlobName("real"), m_tTree.at("alias").strBlob);
    EXPECT_EQ(GitBlobName("in\n"), m_tTree.at("real/in.txt").strBlob);
    // Updated through the link, nothing is read below it.
    TTreeDelta tDelta;
    UpdateTree(strStream, {"alias", "real"}, m_tTree, tDelta, TBlobSink());
    EXPECT_TRUE(tDelta.Empty());
    EXPECT_EQ(2u, m_tTree.size());
    // The folder goes: whatever was said to change goes from the tree.
    std::filesystem::remove_all(strStream);
    UpdateTree(strStream, {"alias", "real"}, m_tTree, tDelta, TBlobSink());
    EXPECT_TRUE(m_tTree.empty());
    EXPECT_EQ((std::set<std::string>{"alias", "real/in.txt"}), tDelta.setRemoved);
}

TEST_F(CTreeTest, AWatchStartedAgainReportsOnlyItsNewFolder)
{
    ASSERT_EQ(0, mkdir((m_strRoot + "/one").c_str(), 0755));
    ASSERT_EQ(0, mkdir((m_strRoot + "/one/sub").c_str(), 0755));
    ASSERT_EQ(0, mkdir((m_strRoot + "/two").c_str(), 0755));
    ASSERT_TRUE(m_cWatch.Start(m_strRoot + "/one"));
    Write("one/sub/before.txt", "1\n");
    std::set<std::string> setDirty;
    ASSERT_TRUE(m_cWatch.Collect(setDirty));
    EXPECT_EQ(std::set<std::string>{"sub/before.txt"}, setDirty);
    // Left in the queue when the watch moves on: never reported.
    Write("one/sub/uncollected.txt", "2\n");
    m_cWatch.Stop();
    EXPECT_FALSE(m_cWatch.Collect(setDirty));
    EXPECT_TRUE(setDirty.empty());
    ASSERT_TRUE(m_cWatch.Start(m_strRoot + "/two"));
    Write("one/sub/after.txt", "3\n");
    Write("two/new.txt", "4\n");
    ASSERT_EQ(0, mkdir((m_strRoot + "/two/deeper").c_str(), 0755));
    ASSERT_TRUE(m_cWatch.Collect(setDirty));
    EXPECT_EQ((std::set<std::string>{"deeper", "new.txt"}), setDirty);
    Write("two/deeper/late.txt", "5\n");
    ASSERT_TRUE(m_cWatch.Collect(setDirty));
    EXPECT_EQ(std::set<std::string>{"deeper/late.txt"}, setDirty);
}
