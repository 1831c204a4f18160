// Labels as tags: the tag object's text, the commits found by their
// trailers in a repository made here, and orvane-import --labels end to end.
#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "Process.h"
#include "UnitSupport.h"
#include "perforce/Labels.h"

using namespace ORVANE::IMP;
using namespace enginetest;

TEST(Labels, TagObjectText)
{
    const std::string strCommit(40, 'a');
    EXPECT_EQ("object " + strCommit +
                  "\ntype commit\ntag v1\ntagger Jo Doe <jo@example.com> 1250 +0000\n\nRelease 1\nsecond line\n",
              TagObject(strCommit, "v1", TIdent{"Jo Doe", "jo@example.com"}, 1250, "Release 1\nsecond line\n\n"));
    EXPECT_EQ("object " + strCommit + "\ntype commit\ntag v2\ntagger unknown <a_b_> 7 +0000\n\nPerforce label v2\n",
              TagObject(strCommit, "v2", TIdent{" ", "a<b>"}, 7, "\n"));
}

TEST(Labels, CommitsAreFoundByTheirTrailers)
{
    TScratch tScratch;
    const std::string strGit = tScratch.Path() + "/r.git";
    std::string strOut, strErr;
    ASSERT_EQ(0, RunProcess({"git", "init", "--quiet", "--bare", strGit}, std::string(), &strOut, &strErr));
    // main: changes 1 and 3; rel1 branches off after 1 and has 2, and 3
    // touched it too; a commit without trailers is left out.
    auto fnCommit = [](const std::string& strBranch, int nMark, int nFrom, const std::string& strMessage) {
        return "commit refs/heads/" + strBranch + "\nmark :" + std::to_string(nMark) +
               "\ncommitter jo <jo> 1 +0000\ndata " + std::to_string(strMessage.size()) + "\n" + strMessage +
               (nFrom ? "from :" + std::to_string(nFrom) + "\n" : "") + "\n";
    };
    const std::string strInput =
        fnCommit("main", 1, 0, "One\n\nPerforce-Change: 1\nPerforce-Path: //depot/main/...\n") +
        fnCommit("rel1", 2, 1, "Two\n\nPerforce-Change: 2\nPerforce-Path: //depot/rel1/...\n") +
        fnCommit("rel1", 3, 0, "Three\n\nPerforce-Change: 3\nPerforce-Path: //depot/rel1/...\n") +
        fnCommit("main", 4, 1, "Three\n\nPerforce-Change: 3\nPerforce-Path: //depot/main/...\n") +
        fnCommit("main", 5, 0, "No trailers\n");
    ASSERT_EQ(0, RunProcess({"git", "--git-dir=" + strGit, "fast-import", "--quiet"}, strInput, &strOut, &strErr))
        << strErr;
    auto fnRev = [&](const std::string& strRev) {
        std::string strName;
        RunProcess({"git", "--git-dir=" + strGit, "rev-parse", strRev}, std::string(), &strName, &strErr);
        return strName.substr(0, 40);
    };
    std::map<unsigned, std::string> mapCommits;
    std::string strError;
    ASSERT_TRUE(CommitsByChange(strGit, "rel1", mapCommits, strError)) << strError;
    EXPECT_EQ((std::map<unsigned, std::string>{{1, fnRev("main~2") + "\t//depot/main/..."},
                                               {2, fnRev("rel1~1") + "\t//depot/rel1/..."},
                                               {3, fnRev("rel1") + "\t//depot/rel1/..."}}),
              mapCommits);
    mapCommits.clear();
    ASSERT_TRUE(CommitsByChange(strGit, "main", mapCommits, strError)) << strError;
    EXPECT_EQ((std::map<unsigned, std::string>{{1, fnRev("main~2") + "\t//depot/main/..."},
                                               {3, fnRev("main~1") + "\t//depot/main/..."}}),
              mapCommits);
    EXPECT_FALSE(CommitsByChange(strGit, "none", mapCommits, strError));
    EXPECT_EQ(0u, strError.find("git log of none failed: ")) << strError;
}

TEST_F(CEngineTest, LabelsOfOneStreamAtOneChangeBecomeTagsOthersAreReported)
{
    LoadHistory(ENGINETEST_DATA "/small-history.json");
    LoadHistory(ENGINETEST_DATA "/labels.json");
    const TResult r = Import({"--git", m_strGit, "--labels", "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("label bad~name: skipped: its name is not a valid git tag name\n"
              "label mixed: skipped: its files lie in several streams (depot_main, rel1)\n"
              "label outside: skipped: it tags files outside every stream (//depot/other/x.txt)\n"
              "label partial: skipped: it is not the state of depot_main at change 2, its newest "
              "(//depot/main/bin/run.sh differs)\n",
              r.strOut);
    EXPECT_EQ("rel1-start\n", Git({"tag", "-l"}).strOut);
    const std::string strCommit = Git({"rev-parse", "rel1~1"}).strOut.substr(0, 40);
    EXPECT_EQ("Branch rel1\n\nPerforce-Change: 3\nPerforce-Path: //depot/rel1/...\n",
              Git({"log", "-1", "--format=%B", "rel1-start^{commit}"}).strOut.substr(0, 64));
    EXPECT_EQ("object " + strCommit +
                  "\ntype commit\ntag rel1-start\ntagger Jo Doe <jo@example.com> 1250 +0000\n\nRelease 1 as "
                  "branched\n",
              Git({"cat-file", "tag", "rel1-start"}).strOut);
    // The same tag, byte for byte, from a second run into a new repository.
    const std::string strTag = Git({"rev-parse", "refs/tags/rel1-start"}).strOut;
    m_strGit = m_strTemp + "/again.git";
    const TResult r2 = Import({"--git", m_strGit, "--labels", "--quiet"});
    ASSERT_EQ(0, r2.nStatus) << r2.strErr;
    EXPECT_EQ(strTag, Git({"rev-parse", "refs/tags/rel1-start"}).strOut);
    const TResult f = Git({"fsck", "--strict", "--no-dangling"});
    EXPECT_EQ(0, f.nStatus) << f.strOut << f.strErr;
}

TEST_F(CEngineTest, LabelsNeedAGitRepository)
{
    const TResult r = RunProgram(EngineArgs({"--labels", "--dump", m_strTemp + "/d.jsonl"}), Env());
    EXPECT_EQ(2, r.nStatus);
    EXPECT_EQ("orvane-import: error: --labels makes tags in the repository of --git DIR (see --help)\n", r.strErr);
}
