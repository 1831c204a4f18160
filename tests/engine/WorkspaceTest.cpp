// The workspace: a temporary folder or the given one, the stream folders
// made in it, and what is removed at the end.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "Environment.h"
#include "Stop.h"
#include "UnitSupport.h"
#include "Workspace.h"

using namespace ORVANE::IMP;
using enginetest::Exists;
using enginetest::StopOf;

namespace {

using TEnvironment = ORVANE::TEST::CEnvironment;

} // namespace

TEST(Workspace, TemporaryBelowTmpdirRemovedWhole)
{
    enginetest::TScratch tScratch;
    TEnvironment tTmp("TMPDIR", tScratch.Path());
    CWorkspace cWorkspace;
    cWorkspace.Make("");
    EXPECT_TRUE(cWorkspace.Made());
    // Named after the process that made it, for a later run to know it
    // when this one is killed.
    const std::string strPrefix = tScratch.Path() + "/orvane-import-" + std::to_string(::getpid()) + "-";
    EXPECT_EQ(strPrefix, cWorkspace.Path().substr(0, strPrefix.size()));
    EXPECT_EQ(strPrefix.size() + 6, cWorkspace.Path().size());
    EXPECT_EQ(std::vector<std::string>(), RemoveStaleWorkspaces(tScratch.Path()));
    cWorkspace.MakeFolder(cWorkspace.Path() + "/main");
    enginetest::WriteWholeFile(cWorkspace.Path() + "/main/a.txt", "a");
    cWorkspace.Remove();
    EXPECT_FALSE(Exists(cWorkspace.Path()));
}

TEST(Workspace, TheTemporaryWorkspacesOfRunsThatAreGoneAreRemoved)
{
    enginetest::TScratch tScratch;
    // Of a process that cannot exist, of a live one (ours), and names that
    // only look alike.
    const std::string strDead = tScratch.Path() + "/orvane-import-999999999-aB3xYz";
    const std::string strLive = tScratch.Path() + "/orvane-import-" + std::to_string(::getpid()) + "-aB3xYz";
    const std::vector<std::string> astrOthers = {"orvane-import-999999999-short", "orvane-import-12x-aB3xYz",
                                                 "orvane-import--aB3xYz", "orvane-import-aB3xYz", "file-999999999"};
    for (const std::string& str : {strDead, strLive})
    {
        ASSERT_TRUE(MakeFolders(str + "/main/src"));
        enginetest::WriteWholeFile(str + "/main/src/a.c", "a");
    }
    for (const std::string& str : astrOthers)
        ASSERT_TRUE(MakeFolders(tScratch.Path() + "/" + str));
    // A file with the name of a dead run's workspace, and a link to a folder.
    enginetest::WriteWholeFile(tScratch.Path() + "/orvane-import-999999998-aB3xYz", "");
    ASSERT_TRUE(MakeFolders(tScratch.Path() + "/kept"));
    ASSERT_EQ(0, ::symlink((tScratch.Path() + "/kept").c_str(),
                           (tScratch.Path() + "/orvane-import-999999997-aB3xYz").c_str()));

    EXPECT_EQ(std::vector<std::string>{strDead}, RemoveStaleWorkspaces(tScratch.Path()));
    EXPECT_FALSE(Exists(strDead));
    EXPECT_TRUE(Exists(strLive + "/main/src/a.c"));
    for (const std::string& str : astrOthers)
        EXPECT_TRUE(Exists(tScratch.Path() + "/" + str)) << str;
    EXPECT_TRUE(Exists(tScratch.Path() + "/orvane-import-999999998-aB3xYz"));
    EXPECT_TRUE(Exists(tScratch.Path() + "/kept"));
    EXPECT_EQ(std::vector<std::string>(), RemoveStaleWorkspaces(tScratch.Path() + "/missing"));
}

TEST(Workspace, GivenRelativeFolderIsMadeAbsolute)
{
    enginetest::TScratch tScratch;
    char achOld[4096];
    ASSERT_NE(nullptr, getcwd(achOld, sizeof(achOld)));
    ASSERT_EQ(0, chdir(tScratch.Path().c_str()));
    CWorkspace cWorkspace;
    cWorkspace.Make("ws/deeper//");
    ASSERT_EQ(0, chdir(achOld));
    EXPECT_EQ(tScratch.Path() + "/ws/deeper", cWorkspace.Path());
    EXPECT_TRUE(cWorkspace.Made());
    struct stat st;
    ASSERT_EQ(0, stat(cWorkspace.Path().c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    cWorkspace.Remove();
    EXPECT_FALSE(Exists(tScratch.Path() + "/ws/deeper"));
    EXPECT_TRUE(Exists(tScratch.Path() + "/ws"));
}

TEST(Workspace, AnExistingFolderKeepsWhatWasThere)
{
    enginetest::TScratch tScratch;
    const std::string strWs = tScratch.Path() + "/ws";
    ASSERT_EQ(0, mkdir(strWs.c_str(), 0755));
    ASSERT_EQ(0, mkdir((strWs + "/old").c_str(), 0755));
    enginetest::WriteWholeFile(strWs + "/mine.txt", "keep me");
    ASSERT_EQ(0, mkdir((strWs + "/old/sub").c_str(), 0755));
    enginetest::WriteWholeFile(strWs + "/old/sub/left.txt", "left by an earlier run");
    enginetest::WriteWholeFile(strWs + "/old/top.txt", "left by an earlier run");
    CWorkspace cWorkspace;
    cWorkspace.Make(strWs);
    EXPECT_FALSE(cWorkspace.Made());
    cWorkspace.MakeFolder(strWs + "/old");
    // A stream's folder that is there already is emptied for its syncs.
    EXPECT_TRUE(Exists(strWs + "/old"));
    EXPECT_FALSE(Exists(strWs + "/old/sub"));
    EXPECT_FALSE(Exists(strWs + "/old/top.txt"));
    cWorkspace.MakeFolder(strWs + "/new/deep");
    enginetest::WriteWholeFile(strWs + "/new/deep/f", "x");
    cWorkspace.Remove();
    EXPECT_TRUE(Exists(strWs + "/mine.txt"));
    EXPECT_FALSE(Exists(strWs + "/old"));
    EXPECT_FALSE(Exists(strWs + "/new/deep"));
    EXPECT_TRUE(Exists(strWs + "/new"));
}

TEST(Workspace, ARemovalStartedEarlyRemovesTheSameAndIsWaitedFor)
{
    enginetest::TScratch tScratch;
    TEnvironment tTmp("TMPDIR", tScratch.Path());
    std::string strTemporary;
    {
        CWorkspace cWorkspace;
        cWorkspace.Make("");
        strTemporary = cWorkspace.Path();
        cWorkspace.MakeFolder(strTemporary + "/main");
        for (int i = 0; i < 200; ++i)
            enginetest::WriteWholeFile(strTemporary + "/main/f" + std::to_string(i), "x");
        cWorkspace.StartRemoval();
        // A second start changes nothing; the object's end waits for the
        // removal.
        cWorkspace.StartRemoval();
    }
    EXPECT_FALSE(Exists(strTemporary));

    // A given workspace: only the folders this run made go.
    const std::string strWs = tScratch.Path() + "/ws";
    ASSERT_EQ(0, mkdir(strWs.c_str(), 0755));
    enginetest::WriteWholeFile(strWs + "/mine.txt", "keep me");
    CWorkspace cWorkspace;
    cWorkspace.Make(strWs);
    cWorkspace.MakeFolder(strWs + "/a");
    cWorkspace.MakeFolder(strWs + "/b/deep");
    enginetest::WriteWholeFile(strWs + "/a/f", "x");
    enginetest::WriteWholeFile(strWs + "/b/deep/f", "x");
    cWorkspace.StartRemoval();
    cWorkspace.Remove();
    EXPECT_TRUE(Exists(strWs + "/mine.txt"));
    EXPECT_FALSE(Exists(strWs + "/a"));
    EXPECT_FALSE(Exists(strWs + "/b/deep"));
    EXPECT_TRUE(Exists(strWs + "/b"));
}

TEST(Workspace, FoldersThatCannotBeMade)
{
    enginetest::TScratch tScratch;
    enginetest::WriteWholeFile(tScratch.Path() + "/file", "x");
    CWorkspace cWorkspace;
    EXPECT_EQ("1 cannot make the workspace " + tScratch.Path() + "/file/ws: Not a directory",
              StopOf([&] { cWorkspace.Make(tScratch.Path() + "/file/ws"); }));
    CWorkspace cOther;
    cOther.Make(tScratch.Path());
    EXPECT_EQ("1 cannot make the folder " + tScratch.Path() + "/file/main: Not a directory",
              StopOf([&] { cOther.MakeFolder(tScratch.Path() + "/file/main"); }));
    TEnvironment tTmp("TMPDIR", tScratch.Path() + "/none");
    CWorkspace cTemporary;
    EXPECT_EQ("1 cannot make a temporary workspace: No such file or directory", StopOf([&] { cTemporary.Make(""); }));
}

TEST(Workspace, MakeFoldersLeavesAFileInTheWayOfTheLastOne)
{
    enginetest::TScratch tScratch;
    EXPECT_TRUE(MakeFolders(tScratch.Path() + "/a/b/c"));
    EXPECT_TRUE(MakeFolders(tScratch.Path() + "/a/b/c"));
    enginetest::WriteWholeFile(tScratch.Path() + "/f", "x");
    EXPECT_TRUE(MakeFolders(tScratch.Path() + "/f"));
    errno = 0;
    EXPECT_FALSE(MakeFolders(tScratch.Path() + "/f/g"));
    EXPECT_EQ(ENOTDIR, errno);
}
