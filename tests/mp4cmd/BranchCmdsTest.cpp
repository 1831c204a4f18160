// The branch spec commands against p4sim servers and prepared bytes.
#include "TestSupport.h"

namespace mp4test {
namespace {

using ORVANE::MP4::CBranchCmd;
using ORVANE::MP4::CBranchesCmd;
using ORVANE::MP4::TBranch;

std::vector<std::wstring> Paths(const ORVANE::VCM::CArray<CFilePath>& aPaths)
{
    std::vector<std::wstring> astr;
    for (int i = 0; i < aPaths.GetCount(); ++i)
        astr.push_back(W(aPaths[i].GeneratePath(L'/', true)));
    return astr;
}

using Texts = std::vector<std::wstring>;

class BranchCmdsTest : public CCommandTest
{
};

TEST_F(BranchCmdsTest, ServerWithoutBranchSpecs)
{
    Server("{}");
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    cBranch.strName = L"old";
    cBranch.strDescription = L"old";
    cBranch.aSourcePaths.Add(Path(L"//old"));
    cBranch.aTargetPaths.Add(Path(L"//old"));
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    // The caller's old contents never leak into the result.
    EXPECT_EQ(W(cBranch.strName), L"");
    EXPECT_EQ(W(cBranch.strDescription), L"");
    EXPECT_EQ(cBranch.aSourcePaths.GetCount(), 0);
    EXPECT_EQ(cBranch.aTargetPaths.GetCount(), 0);
    EXPECT_EQ(JournalArgs(), std::vector<std::string>{"-G branches"});
    EXPECT_EQ(Log(), Performed("-G branches"));
}

TEST_F(BranchCmdsTest, ViewLinesLoseTheTrailingWildcardOnly)
{
    Server(R"({"branches":[{"name":"rel1","description":"Release one\nsecond line",
        "view":["//depot/main/... //depot/rel1/...","//depot/main/a.c //depot/rel1/a.c"]}]})");
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    ASSERT_TRUE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"rel1");
    EXPECT_EQ(W(cBranch.strDescription), L"Release one\nsecond line\n");
    EXPECT_EQ(Paths(cBranch.aSourcePaths), (Texts{L"//depot/main", L"//depot/main/a.c"}));
    EXPECT_EQ(Paths(cBranch.aTargetPaths), (Texts{L"//depot/rel1", L"//depot/rel1/a.c"}));
    EXPECT_EQ(cBranch.aSourcePaths[0].GetItemCount(), 3u);
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(JournalArgs(), (std::vector<std::string>{"-G branches", "-G branch -o rel1"}));
    EXPECT_EQ(Log(), Performed("-G branches") + Performed("-G branch -o rel1"));
}

TEST_F(BranchCmdsTest, OnlyLinesWithBothSidesUnderThePathAreKept)
{
    Server(R"({"branches":[
        {"name":"a-outside","view":["//other/x/... //other/y/..."]},
        {"name":"b-empty"},
        {"name":"c-three","view":["//other/a/... //depot/r1/...","//depot/main/... //depot/r2/...",
                                  "//depot/main/... //other/b/..."]},
        {"name":"d-case","view":["//Depot/main/... //depot/r3/..."]},
        {"name":"e-last","view":["//depot/main/x/... //depot/r4/x/..."]}]})");
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    ASSERT_TRUE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"c-three");
    EXPECT_EQ(Paths(cBranch.aSourcePaths), (Texts{L"//depot/main"}));
    EXPECT_EQ(Paths(cBranch.aTargetPaths), (Texts{L"//depot/r2"}));
    // Paths are compared with their case.
    ASSERT_TRUE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"e-last");
    EXPECT_EQ(Paths(cBranch.aSourcePaths), (Texts{L"//depot/main/x"}));
    EXPECT_EQ(Paths(cBranch.aTargetPaths), (Texts{L"//depot/r4/x"}));
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(JournalArgs(), (std::vector<std::string>{"-G branches", "-G branch -o a-outside", "-G branch -o b-empty",
                                                       "-G branch -o c-three", "-G branch -o d-case",
                                                       "-G branch -o e-last"}));
}

TEST_F(BranchCmdsTest, LinesAboveThePathAreDropped)
{
    Server(R"({"branches":[{"name":"rel1","view":["//depot/main/... //depot/rel1/..."]},
                           {"name":"sub","view":["//depot/main/sub/... //depot/main/sub2/..."]}]})");
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot/main")));
    TBranch cBranch;
    ASSERT_TRUE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"sub");
    EXPECT_EQ(Paths(cBranch.aSourcePaths), (Texts{L"//depot/main/sub"}));
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
}

TEST_F(BranchCmdsTest, FailingBranchIsSkipped)
{
    Server(R"({"branches":[{"name":"a","view":["//depot/main/... //depot/a/..."]},
                           {"name":"b","view":["//depot/main/... //depot/b/..."]}]})");
    ::setenv("P4SIM_FAIL", "branch -o a$", 1);
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    ASSERT_TRUE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"b");
    EXPECT_EQ(Paths(cBranch.aTargetPaths), (Texts{L"//depot/b"}));
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(Log(), Performed("-G branches") + Performed("-G branch -o a") + SimFailure("-G branch -o a") +
                         Performed("-G branch -o b"));
}

TEST_F(BranchCmdsTest, NameWithABlankIsNotQuoted)
{
    Server(R"({"branches":[{"name":"my branch","view":["//depot/main/... //depot/mine/..."]}]})");
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 2u);
    EXPECT_EQ(aJournal[1]["argv"][0], g_pszP4Sim);
    EXPECT_EQ(aJournal[1]["argv"], nlohmann::json({g_pszP4Sim, "-G", "branch", "-o", "my", "branch"}));
    EXPECT_EQ(aJournal[1]["exit"], 1);
}

TEST_F(BranchCmdsTest, ListingFailure)
{
    Server(R"({"branches":[{"name":"a","view":["//depot/main/... //depot/a/..."]}]})");
    ::setenv("P4SIM_FAIL", "^-G branches$", 1);
    CBranchesCmd cCmd;
    EXPECT_FALSE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(Log(), Performed("-G branches") + SimFailure("-G branches"));
}

TEST_F(BranchCmdsTest, DamagedListingEndsTheIteration)
{
    Server(R"({"branches":[{"name":"a","view":["//depot/main/... //depot/a/..."]}]})");
    ::setenv("P4SIM_GARBLE", "^-G branches$", 1);
    ::setenv("P4SIM_GARBLE_MODE", "type", 1);
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(JournalArgs(), std::vector<std::string>{"-G branches"});
}

TEST_F(BranchCmdsTest, DamagedDetailsKeepWhatWasRead)
{
    Server(R"({"branches":[{"name":"a","description":"d","view":["//depot/main/... //depot/a/..."]}]})");
    ::setenv("P4SIM_GARBLE", "branch -o a$", 1);
    ::setenv("P4SIM_GARBLE_MODE", "length", 1);
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    // The last string (the only view line) runs past the end: it is lost,
    // the branch then has no view line and is skipped.
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
}

TEST_F(BranchCmdsTest, ListingRecordWithoutANameEndsTheIteration)
{
    Feed("-G branches", MarshalRecord({{"code", "stat"}, {"branch", "b1"}}) +
                            MarshalRecord({{"code", "stat"}, {"Owner", "jo"}}) +
                            MarshalRecord({{"code", "stat"}, {"branch", "b2"}}));
    Feed("-G branch -o b1", MarshalRecord({{"Branch", "b1"}, {"View0", "//depot/main/... //depot/b1/..."}}));
    Feed("-G branch -o b2", MarshalRecord({{"Branch", "b2"}, {"View0", "//depot/main/... //depot/b2/..."}}));
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    ASSERT_TRUE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"b1");
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"");
    EXPECT_EQ(FeedArgs(), (std::vector<std::string>{"-G branches", "-G branch -o b1"}));
}

TEST_F(BranchCmdsTest, ListingCutBeforeTheRecordEnd)
{
    // The name is read but the record has no end: no details are fetched.
    Feed("-G branches", "{" + MarshalString("branch") + MarshalString("b1"));
    CBranchesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    TBranch cBranch;
    EXPECT_FALSE(cCmd.GetNextBranch(cBranch));
    EXPECT_EQ(FeedArgs(), std::vector<std::string>{"-G branches"});
}

TEST_F(BranchCmdsTest, ViewKeysAndLineShapes)
{
    Feed("-G branch -o x",
         MarshalRecord({
             {"code", "stat"},
             {"Branch", "x"},
             {"description", "Line one\nLine two\n"},
             {"View0", "//depot/main/... //depot/v0/..."},
             {"view12", "//depot/main/a.c //depot/v12/a.c"},
             {"Viewer", "//depot/main/... //depot/viewer/..."},
             {"VIEW", "//depot/main/... //depot/plain/..."},
             {"Vie", "//depot/main/... //depot/short/..."},
             {"View1", "//depot/main/only-one-token/..."},
             {"View2", "\"//depot/my dir/...\" \"//depot/rel/...\""},
             {"View3", "-//depot/main/x/... //depot/rel/x/..."},
             {"View4", "  //a/b/...\t\t//c/d/...\r\n"},
             {"View5", "//depot/main/...abc //depot/x/...def extra words"},
             {"View6", "//depot/main/.. //depot/dots/.."},
         }) +
             MarshalRecord({{"View7", "//depot/next/... //depot/record/..."}}));
    CBranchCmd cCmd;
    TBranch cBranch;
    cBranch.strName = L"x";
    cBranch.aSourcePaths.Add(Path(L"//kept/before"));
    cBranch.aTargetPaths.Add(Path(L"//kept/after"));
    ASSERT_TRUE(cCmd.GetBranchDetails(cBranch));
    EXPECT_EQ(W(cBranch.strName), L"x");
    EXPECT_EQ(W(cBranch.strDescription), L"Line one\nLine two\n");
    EXPECT_EQ(Paths(cBranch.aSourcePaths),
              (Texts{L"//kept/before", L"//depot/main", L"//depot/main/a.c", L"//depot/main", L"//depot/main",
                     L"//a/b", L"//depot/main", L"//depot/main/.."}));
    EXPECT_EQ(Paths(cBranch.aTargetPaths),
              (Texts{L"//kept/after", L"//depot/v0", L"//depot/v12/a.c", L"//depot/viewer", L"//depot/plain",
                     L"//c/d", L"//depot/x", L"//depot/dots/.."}));
    EXPECT_EQ(FeedArgs(), std::vector<std::string>{"-G branch -o x"});
}

TEST_F(BranchCmdsTest, DetailsStopAtAnUnexpectedItem)
{
    Feed("-G branch -o x", "{" + MarshalString("View0") + MarshalString("//depot/main/... //depot/x/...") +
                               MarshalString("level") + "i" + Le32(1) + MarshalString("View1") +
                               MarshalString("//depot/main/... //depot/y/...") + "0");
    CBranchCmd cCmd;
    TBranch cBranch;
    cBranch.strName = L"x";
    EXPECT_TRUE(cCmd.GetBranchDetails(cBranch));
    EXPECT_EQ(Paths(cBranch.aTargetPaths), (Texts{L"//depot/x"}));
}

TEST_F(BranchCmdsTest, DetailsFailure)
{
    Server(R"({"branches":[{"name":"a","view":["//depot/main/... //depot/a/..."]}]})");
    ::setenv("P4SIM_FAIL", "branch", 1);
    CBranchCmd cCmd;
    TBranch cBranch;
    cBranch.strName = L"a";
    cBranch.strDescription = L"kept";
    EXPECT_FALSE(cCmd.GetBranchDetails(cBranch));
    EXPECT_EQ(W(cBranch.strDescription), L"kept");
    EXPECT_EQ(cBranch.aSourcePaths.GetCount(), 0);
    EXPECT_EQ(Log(), Performed("-G branch -o a") + SimFailure("-G branch -o a"));
}

TEST_F(BranchCmdsTest, DetailsFromTheServer)
{
    Server(R"({"branches":[{"name":"rel2","description":"Two","view":[
        "//depot/main/... //depot/rel2/...","//depot/main/doc/... //depot/rel2/docs/..."]}]})");
    CBranchCmd cCmd;
    TBranch cBranch;
    cBranch.strName = L"rel2";
    ASSERT_TRUE(cCmd.GetBranchDetails(cBranch));
    EXPECT_EQ(W(cBranch.strDescription), L"Two\n");
    EXPECT_EQ(Paths(cBranch.aSourcePaths), (Texts{L"//depot/main", L"//depot/main/doc"}));
    EXPECT_EQ(Paths(cBranch.aTargetPaths), (Texts{L"//depot/rel2", L"//depot/rel2/docs"}));
    EXPECT_EQ(JournalArgs(), std::vector<std::string>{"-G branch -o rel2"});
    EXPECT_EQ(Log(), Performed("-G branch -o rel2"));
}

} // namespace
} // namespace mp4test
