// Folders of a source that compares paths without case, spelt one way.
#include <gtest/gtest.h>

#include "CaseFolding.h"

using namespace ORVANE::IMP;

TEST(CaseFolding, PathsWithoutCase)
{
    EXPECT_EQ("main/src", CaselessKey("main/Src"));
    // ASCII letters only, as the server compares them.
    EXPECT_EQ("r\xC3\x89sum\xC3\x89/\xC3\x89t\xC3\xA9", CaselessKey("R\xC3\x89SUM\xC3\x89/\xC3\x89t\xC3\xA9"));
    EXPECT_EQ("caf\xE9/x", CaselessKey("CAF\xE9/X"));
    EXPECT_EQ("", CaselessKey(""));
}

TEST(CaseFolding, TheFirstSpellingOfAFolderWins)
{
    CFolderSpelling c;
    EXPECT_EQ("main/Src/a.c", c.Fold("main/Src/a.c"));
    EXPECT_EQ("main/Src/b.c", c.Fold("main/src/b.c"));
    EXPECT_EQ("main/Src/B.c", c.Fold("MAIN/SRC/B.c")); // the file's own name as it is
    EXPECT_EQ("main/Src/Deep/x", c.Fold("main/src/Deep/x"));
    EXPECT_EQ("main/Src/Deep/y", c.Fold("Main/sRc/deep/y"));
    EXPECT_EQ("top.txt", c.Fold("top.txt"));
}

TEST(CaseFolding, ASeededTreeKeepsItsSpellings)
{
    CFolderSpelling c;
    TTree tEarlier;
    tEarlier["Docs/Guide/a.md"] = TEntry();
    c.Seed(tEarlier);
    EXPECT_EQ("Docs/Guide/b.md", c.Fold("docs/guide/b.md"));
}

TEST(CaseFolding, TreesAndDeltasAreFolded)
{
    CFolderSpelling c;
    TEntry tA, tB;
    tA.nMode = tB.nMode = 0100644;
    tA.strBlob = "a";
    tB.strBlob = "b";
    TTree tTree = {{"Src/a.c", tA}, {"src/b.c", tB}};
    TTreeDelta tDelta;
    tDelta.Changed("src/b.c");
    tDelta.Removed("src/a.c"); // the other spelling of a file that stays
    tDelta.Removed("SRC/old.c");
    TTree tFolded;
    TTreeDelta tFoldedDelta;
    c.Apply(tTree, tDelta, tFolded, tFoldedDelta);
    EXPECT_EQ((TTree{{"Src/a.c", tA}, {"Src/b.c", tB}}), tFolded);
    EXPECT_EQ(std::set<std::string>{"Src/b.c"}, tFoldedDelta.setChanged);
    EXPECT_EQ(std::set<std::string>{"Src/old.c"}, tFoldedDelta.setRemoved);
}
