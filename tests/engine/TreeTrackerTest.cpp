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
    const TBlobSink fnSink = [&](const std::string&, const std::string& strContent) { astrSent.push_back(strContent); };
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
                     [&](const std::string&, const std::string& strContent) { astrSent.push_back(strContent); });
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
