// The repository written through git fast-import, and read back.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "Digest.h"
#include "EngineHarness.h"
#include "GitRepository.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;

namespace {

std::string Git(const std::string& strDir, const std::vector<std::string>& astrArgs)
{
    std::vector<std::string> astr = {"git", "--git-dir=" + strDir};
    astr.insert(astr.end(), astrArgs.begin(), astrArgs.end());
    const TResult r = RunProgram(astr, {{"GIT_CONFIG_NOSYSTEM", "1"}, {"GIT_CONFIG_GLOBAL", "/dev/null"}});
    EXPECT_EQ(0, r.nStatus) << r.strErr;
    return r.strOut;
}

// A commit naming a blob that was never sent: fast-import ends with an
// error when it reads it.
void SendCommitOfAnUnsentBlob(CGitRepository& cGit)
{
    TTree tTree = {{"a.txt", Entry(0100644, "never sent\n")}};
    CFastImportWriter::TCommit tCommit;
    tCommit.strBranch = "main";
    tCommit.strName = "jo";
    tCommit.strEmail = "jo";
    tCommit.bFullTree = true;
    cGit.Writer().Commit(tCommit, tTree, TTreeDelta());
}

// The first commit of branch main, its whole tree.
CFastImportWriter::TCommit FirstCommit()
{
    CFastImportWriter::TCommit tCommit;
    tCommit.strBranch = "main";
    tCommit.strName = "jo";
    tCommit.strEmail = "jo@ws";
    tCommit.tTime = 1000;
    tCommit.strMessage = "first";
    tCommit.bFullTree = true;
    return tCommit;
}

} // namespace

TEST(GitRepository, ParseTreeListing)
{
    const std::string strA(40, 'a'), strB(40, 'b');
    TTree tTree = {{"stale", TEntry()}};
    ParseTreeListing("100644 blob " + strA + "\tdir/a b.txt" + std::string(1, '\0') + "100755 blob " + strB + "\tx.sh" +
                         std::string(1, '\0') + "garbage" + std::string(1, '\0') + "120000 blob " + strA + "\tlink",
                     tTree);
    ASSERT_EQ(3u, tTree.size());
    EXPECT_EQ(0100644u, tTree["dir/a b.txt"].nMode);
    EXPECT_EQ(strA, tTree["dir/a b.txt"].strBlob);
    EXPECT_EQ(0100755u, tTree["x.sh"].nMode);
    EXPECT_EQ(strB, tTree["x.sh"].strBlob);
    EXPECT_EQ(0120000u, tTree["link"].nMode);
}

TEST(GitRepository, OnlyAFreeFolder)
{
    TScratch tScratch;
    EXPECT_TRUE(CGitRepository::IsFree(tScratch.Path()));
    EXPECT_TRUE(CGitRepository::IsFree(tScratch.Path() + "/none"));
    WriteWholeFile(tScratch.Path() + "/file", "x");
    EXPECT_FALSE(CGitRepository::IsFree(tScratch.Path()));
    EXPECT_FALSE(CGitRepository::IsFree(tScratch.Path() + "/file"));
    CGitRepository cGit;
    std::string strError;
    EXPECT_FALSE(cGit.Open(tScratch.Path(), strError));
    EXPECT_EQ("the git folder '" + tScratch.Path() + "' exists and is not a git repository made by orvane-import",
              strError);
    EXPECT_FALSE(cGit.IsOpen());
    EXPECT_TRUE(cGit.Close("main", strError));
}

TEST(GitRepository, CommitsCheckpointsAndTheirTrees)
{
    TScratch tScratch;
    const std::string strDir = tScratch.Path() + "/out.git";
    CGitRepository cGit;
    std::string strError;
    ASSERT_TRUE(cGit.Open(strDir, strError)) << strError;
    EXPECT_TRUE(cGit.IsOpen());
    EXPECT_EQ(strDir, cGit.Directory());
    TTree tTree = {{"a.txt", Entry(0100644, "one\n")}, {"run.sh", Entry(0100755, "#!/bin/sh\n")}};
    cGit.Writer().Blob(tTree["a.txt"].strBlob, "one\n");
    cGit.Writer().Blob(tTree["run.sh"].strBlob, "#!/bin/sh\n");
    const CFastImportWriter::TCommit tCommit = FirstCommit();
    const unsigned nMark = cGit.Writer().Commit(tCommit, tTree, TTreeDelta());
    std::string strCommit;
    ASSERT_TRUE(cGit.Checkpoint(nMark, strCommit));
    EXPECT_EQ(40u, strCommit.size());
    TTree tRead;
    ASSERT_TRUE(cGit.ReadTree(strCommit, tRead, strError)) << strError;
    EXPECT_TRUE(tRead == tTree);
    EXPECT_FALSE(cGit.ReadTree(std::string(40, '0'), tRead, strError));
    EXPECT_EQ(0u, strError.find("git ls-tree failed: "));
    ASSERT_TRUE(cGit.Close("main", strError)) << strError;
    EXPECT_FALSE(cGit.IsOpen());
    EXPECT_EQ(strCommit + "\n", Git(strDir, {"rev-parse", "refs/heads/main"}));
    EXPECT_EQ("refs/heads/main\n", Git(strDir, {"symbolic-ref", "HEAD"}));
    EXPECT_EQ("jo <jo@ws> 1000 +0000|first\n", Git(strDir, {"log", "-1", "--format=%an <%ae> %ad|%s", "--date=raw"}));
}

TEST(GitRepository, AFastImportErrorFailsTheClose)
{
    TScratch tScratch;
    CGitRepository cGit;
    std::string strError;
    ASSERT_TRUE(cGit.Open(tScratch.Path() + "/out.git", strError)) << strError;
    SendCommitOfAnUnsentBlob(cGit);
    EXPECT_FALSE(cGit.Close(std::string(), strError));
    EXPECT_EQ("git fast-import stopped (exit status 128; see its message above)", strError);
    EXPECT_TRUE(cGit.Failed());
}

TEST(GitRepository, AStopSeenAtAWriteIsToldAsTheCloseTellsIt)
{
    TScratch tScratch;
    CGitRepository cGit;
    std::string strError;
    ASSERT_TRUE(cGit.Open(tScratch.Path() + "/out.git", strError)) << strError;
    SendCommitOfAnUnsentBlob(cGit);
    // However soon the failure is seen: fast-import is waited for, and the
    // close says the same.
    EXPECT_EQ("git fast-import stopped (exit status 128; see its message above)", cGit.StopMessage());
    EXPECT_FALSE(cGit.Close(std::string(), strError));
    EXPECT_EQ("git fast-import stopped (exit status 128; see its message above)", strError);
    // No marker of a running fast-import is left for the next run.
    EXPECT_FALSE(std::filesystem::exists(tScratch.Path() + "/out.git/orvane-import.running"));
}

TEST(GitRepository, AGitThatCannotBeStartedIsNamed)
{
    TScratch tScratch;
    CGitRepository cGit;
    std::string strError;
    ASSERT_TRUE(cGit.Open(tScratch.Path() + "/out.git", strError)) << strError;
    // git is looked up along PATH when fast-import starts: an empty folder.
    const std::string strEmpty = tScratch.Path() + "/empty";
    ASSERT_TRUE(std::filesystem::create_directory(strEmpty));
    const char* pszPath = std::getenv("PATH");
    const std::string strPath = pszPath ? pszPath : "";
    ::setenv("PATH", strEmpty.c_str(), 1);
    const bool bSent = cGit.Writer().Done();
    ::setenv("PATH", strPath.c_str(), 1);
    EXPECT_FALSE(bSent);
    EXPECT_EQ("cannot run git: No such file or directory", cGit.StopMessage());
    EXPECT_FALSE(cGit.Close(std::string(), strError));
    EXPECT_EQ("cannot run git: No such file or directory", strError);
    EXPECT_FALSE(std::filesystem::exists(tScratch.Path() + "/out.git/orvane-import.running"));
}

TEST(GitRepository, AnInputEndedEarlyIsWrittenWholeBeforeTheClose)
{
    TScratch tScratch;
    const std::string strDir = tScratch.Path() + "/out.git";
    CGitRepository cGit;
    std::string strError;
    ASSERT_TRUE(cGit.Open(strDir, strError)) << strError;
    // Nothing sent yet: nothing to end, and no fast-import is started for it.
    cGit.EndInput();
    EXPECT_FALSE(cGit.Wrote());
    TTree tTree = {{"a.txt", Entry(0100644, "one\n")}};
    cGit.Writer().Blob(tTree["a.txt"].strBlob, "one\n");
    const CFastImportWriter::TCommit tCommit = FirstCommit();
    cGit.Writer().Commit(tCommit, tTree, TTreeDelta());
    cGit.EndInput();
    cGit.EndInput();
    // fast-import finishes by itself: the branch appears with nobody
    // waiting for it.
    const auto tGiveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!std::filesystem::exists(strDir + "/refs/heads/main") && std::chrono::steady_clock::now() < tGiveUp)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(std::filesystem::exists(strDir + "/refs/heads/main"));
    ASSERT_TRUE(cGit.Close("main", strError)) << strError;
    EXPECT_EQ("refs/heads/main\n", Git(strDir, {"symbolic-ref", "HEAD"}));
    EXPECT_EQ("jo <jo@ws> 1000 +0000|first\n", Git(strDir, {"log", "-1", "--format=%an <%ae> %ad|%s", "--date=raw"}));
    EXPECT_FALSE(std::filesystem::exists(strDir + "/orvane-import.running"));
}
