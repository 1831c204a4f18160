// Branch names for streams: valid for git, and distinct without regard to
// case.
#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "RefName.h"

using namespace ORVANE::IMP;

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
    EXPECT_EQ("tab_cr_", MakeBranchName("tab\tcr\r", setUsed));
    EXPECT_EQ(14u, setUsed.size());
    EXPECT_EQ(1u, setUsed.count("main-3"));
    for (const std::string& s : setUsed)
    {
        const enginetest::TResult r = enginetest::RunProgram({"git", "check-ref-format", "refs/heads/" + s});
        EXPECT_EQ(0, r.nStatus) << s;
    }
}
