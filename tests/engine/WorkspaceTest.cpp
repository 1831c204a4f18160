// The workspace: a temporary folder or the given one, the stream folders
// made in it, and what is removed at the end.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>

#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "Stop.h"
#include "UnitSupport.h"
#include "Workspace.h"

using namespace ORVANE::IMP;
using enginetest::Exists;
using enginetest::StopOf;

namespace {

// Sets an environment variable for the scope.
struct TEnvironment
{
    std::string strName;
    std::string strOld;
    bool bHad;
    TEnvironment(const std::string& strVariable, const std::string& strValue) : strName(strVariable)
    {
        const char* psz = std::getenv(strName.c_str());
        bHad = psz != nullptr;
        strOld = psz ? psz : "";
        setenv(strName.c_str(), strValue.c_str(), 1);
    }
    ~TEnvironment()
    {
        if (bHad)
            setenv(strName.c_str(), strOld.c_str(), 1);
        else
            unsetenv(strName.c_str());
    }
};

} // namespace

TEST(Workspace, TemporaryBelowTmpdirRemovedWhole)
{
    enginetest::TScratch tScratch;
    TEnvironment tTmp("TMPDIR", tScratch.Path());
    CWorkspace cWorkspace;
    cWorkspace.Make("");
    EXPECT_TRUE(cWorkspace.Made());
    EXPECT_EQ(tScratch.Path() + "/orvane-import-", cWorkspace.Path().substr(0, tScratch.Path().size() + 15));
    EXPECT_EQ(tScratch.Path().size() + 21, cWorkspace.Path().size());
    cWorkspace.MakeFolder(cWorkspace.Path() + "/main");
    enginetest::WriteWholeFile(cWorkspace.Path() + "/main/a.txt", "a");
    cWorkspace.Remove();
    EXPECT_FALSE(Exists(cWorkspace.Path()));
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
