// The first difference between a commit's tree and the folder's.
#include <gtest/gtest.h>

#include "Verify.h"

using namespace ORVANE::IMP;

namespace {

TEntry Entry(unsigned nMode, const std::string& strBlob)
{
    TEntry t;
    t.nMode = nMode;
    t.strBlob = strBlob;
    return t;
}

} // namespace

TEST(Verify, SameTreesHaveNoDifference)
{
    const TTree t = {{"a", Entry(0100644, "1111")}, {"b/c", Entry(0100755, "2222")}};
    EXPECT_EQ("", TreeDifference(t, t));
    EXPECT_EQ("", TreeDifference(TTree(), TTree()));
}

TEST(Verify, TheFirstDifferenceInPathOrder)
{
    const TTree tGit = {{"a", Entry(0100644, "1111")}, {"c", Entry(0100644, "3333")}, {"d", Entry(0100644, "4")}};
    TTree tFolder = tGit;
    tFolder.erase("d");
    EXPECT_EQ("'d' is in git but not in the folder", TreeDifference(tGit, tFolder));
    tFolder["b"] = Entry(0100644, "2222");
    EXPECT_EQ("'b' is in the folder but not in git", TreeDifference(tGit, tFolder));
    tFolder = tGit;
    tFolder["e"] = Entry(0100644, "5");
    EXPECT_EQ("'e' is in the folder but not in git", TreeDifference(tGit, tFolder));
    tFolder = tGit;
    tFolder["c"] = Entry(0100755, "3333");
    tFolder["d"] = Entry(0120000, "9");
    EXPECT_EQ("'c' differs: git has 100644 3333, the folder 100755 3333", TreeDifference(tGit, tFolder));
    EXPECT_EQ("'a' differs: git has 100644 1111, the folder 000000 ",
              TreeDifference(tGit, {{"a", TEntry()}, {"c", tGit.at("c")}, {"d", tGit.at("d")}}));
}
