// What each sync changed in a stream's folder: through the watch, and
// rechecked at the paths the change's items name.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Digest.h"
#include "EngineHarness.h"
#include "TreeTracker.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using enginetest::WriteWholeFile;

TEST(TreeTracker, BeginReadsWhatIsThereAndSendsNothing)
{
    enginetest::TScratch tScratch;
    WriteWholeFile(tScratch.Path() + "/kept.txt", "from before\n");
    CTreeTracker cTracker;
    cTracker.Begin(tScratch.Path());
    EXPECT_EQ(tScratch.Path(), cTracker.Folder());
    ASSERT_EQ(1u, cTracker.Tree().size());
    EXPECT_EQ(GitBlobName("from before\n"), cTracker.Tree().at("kept.txt").strBlob);

    std::vector<std::string> astrSent;
    const TBlobSink fnSink = [&](const std::string&, const CBlobContent& cContent) {
        astrSent.push_back(cContent.Whole());
    };
    TTreeDelta tDelta;
    cTracker.Collect(tDelta, fnSink);
    EXPECT_TRUE(tDelta.Empty());
    EXPECT_TRUE(astrSent.empty());

    WriteWholeFile(tScratch.Path() + "/new.txt", "new\n");
    unlink((tScratch.Path() + "/kept.txt").c_str());
    cTracker.Collect(tDelta, fnSink);
    EXPECT_EQ((std::set<std::string>{"new.txt"}), tDelta.setChanged);
    EXPECT_EQ((std::set<std::string>{"kept.txt"}), tDelta.setRemoved);
    EXPECT_EQ((std::vector<std::string>{"new\n"}), astrSent);
    cTracker.End();
}

TEST(TreeTracker, RecheckCatchesWhatTheWatchDidNotSee)
{
    enginetest::TScratch tScratch;
    CTreeTracker cTracker;
    cTracker.Begin(tScratch.Path());
    // Not watched any more: only the recheck can find these.
    cTracker.End();
    WriteWholeFile(tScratch.Path() + "/a.txt", "a\n");
    WriteWholeFile(tScratch.Path() + "/b.txt", "b\n");
    TTreeDelta tDelta;
    tDelta.setRemoved = {"a.txt"};
    tDelta.setChanged = {"other"};
    std::vector<std::string> astrSent;
    cTracker.Recheck({"a.txt", "none.txt"}, tDelta,
                     [&](const std::string&, const CBlobContent& cContent) { astrSent.push_back(cContent.Whole()); });
    EXPECT_EQ((std::set<std::string>{"a.txt", "other"}), tDelta.setChanged);
    EXPECT_TRUE(tDelta.setRemoved.empty());
    EXPECT_EQ((std::vector<std::string>{"a\n"}), astrSent);
    EXPECT_EQ(1u, cTracker.Tree().size());

    unlink((tScratch.Path() + "/a.txt").c_str());
    cTracker.Recheck({"a.txt"}, tDelta, TBlobSink());
    EXPECT_EQ((std::set<std::string>{"other"}), tDelta.setChanged);
    EXPECT_EQ((std::set<std::string>{"a.txt"}), tDelta.setRemoved);
    EXPECT_TRUE(cTracker.Tree().empty());
}

// A write through a hard link in another folder reaches the file without
// the watch seeing it: the file's content changes behind the tracker's back,
// which shows whether the recheck reads it again.
TEST(TreeTracker, RecheckReadsAgainOnlyWhatTheCollectionDidNotRead)
{
    enginetest::TScratch tScratch;
    const std::string strFolder = tScratch.Path() + "/watched";
    const std::string strLinks = tScratch.Path() + "/links";
    ASSERT_EQ(0, mkdir(strFolder.c_str(), 0755));
    ASSERT_EQ(0, mkdir(strLinks.c_str(), 0755));
    WriteWholeFile(strFolder + "/old.txt", "old 1\n");
    ASSERT_EQ(0, mkdir((strFolder + "/sub").c_str(), 0755));
    CTreeTracker cTracker;
    cTracker.Begin(strFolder);
    WriteWholeFile(strFolder + "/new.txt", "new 1\n");
    WriteWholeFile(strFolder + "/sub/deep.txt", "deep 1\n");
    ASSERT_EQ(0, link((strFolder + "/new.txt").c_str(), (strLinks + "/new.txt").c_str()));
    ASSERT_EQ(0, link((strFolder + "/old.txt").c_str(), (strLinks + "/old.txt").c_str()));
    ASSERT_EQ(0, link((strFolder + "/sub/deep.txt").c_str(), (strLinks + "/deep.txt").c_str()));

    std::vector<std::string> astrSent;
    const TBlobSink fnSink = [&](const std::string&, const CBlobContent& cContent) {
        astrSent.push_back(cContent.Whole());
    };
    TTreeDelta tDelta;
    cTracker.Collect(tDelta, fnSink);
    EXPECT_EQ((std::set<std::string>{"new.txt", "sub/deep.txt"}), tDelta.setChanged);
    EXPECT_EQ((std::vector<std::string>{"new 1\n", "deep 1\n"}), astrSent);

    // Unseen: all three. Seen: a new file.
    WriteWholeFile(strLinks + "/new.txt", "new 2\n");
    WriteWholeFile(strLinks + "/old.txt", "old 2\n");
    WriteWholeFile(strLinks + "/deep.txt", "deep 2\n");
    WriteWholeFile(strFolder + "/later.txt", "later\n");
    astrSent.clear();
    cTracker.Recheck({"new.txt", "old.txt", "sub/deep.txt", "later.txt"}, tDelta, fnSink);
    // new.txt and sub/deep.txt were read after the sync and not touched
    // since: kept as read. old.txt was not read by this change: read again.
    // later.txt came from the watch.
    EXPECT_EQ((std::vector<std::string>{"later\n", "old 2\n"}), astrSent);
    EXPECT_EQ((std::set<std::string>{"later.txt", "new.txt", "old.txt", "sub/deep.txt"}), tDelta.setChanged);
    EXPECT_EQ(GitBlobName("new 1\n"), cTracker.Tree().at("new.txt").strBlob);
    EXPECT_EQ(GitBlobName("deep 1\n"), cTracker.Tree().at("sub/deep.txt").strBlob);
    EXPECT_EQ(GitBlobName("old 2\n"), cTracker.Tree().at("old.txt").strBlob);

    // The next change's collection starts afresh: its recheck reads every
    // path the watch did not name in it.
    TTreeDelta tNext;
    cTracker.Collect(tNext, fnSink);
    EXPECT_TRUE(tNext.Empty());
    astrSent.clear();
    cTracker.Recheck({"new.txt", "sub/deep.txt"}, tNext, fnSink);
    EXPECT_EQ((std::vector<std::string>{"new 2\n", "deep 2\n"}), astrSent);
    EXPECT_EQ((std::set<std::string>{"new.txt", "sub/deep.txt"}), tNext.setChanged);
    cTracker.End();
}

TEST(TreeTracker, WithoutAWatchEachCollectionScansTheFolder)
{
    enginetest::TScratch tScratch;
    CTreeTracker cTracker;
    cTracker.Begin(tScratch.Path());
    cTracker.End();
    WriteWholeFile(tScratch.Path() + "/a.txt", "a\n");
    TTreeDelta tDelta;
    cTracker.Collect(tDelta, TBlobSink());
    EXPECT_EQ((std::set<std::string>{"a.txt"}), tDelta.setChanged);
}
