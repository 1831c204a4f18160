// The temporary client's view as the server holds it: which folder a depot
// path lands in, quoted lines, exclusions, later lines over earlier ones,
// and views this reading does not follow.
#include <gtest/gtest.h>

#include "perforce/ClientView.h"

using namespace ORVANE::IMP;

namespace {

TP4Record Spec(const std::vector<std::string>& astrView, const std::string& strRoot = "/ws")
{
    TP4Record t = {{"code", "stat"}, {"Client", "tmp"}, {"Root", strRoot}};
    for (size_t i = 0; i < astrView.size(); ++i)
        t["View" + std::to_string(i)] = astrView[i];
    return t;
}

} // namespace

TEST(ClientViewTest, OneLinePerStream)
{
    CClientView c;
    ASSERT_TRUE(c.Read(Spec({"//depot/main/... //tmp/main/...", "\"//depot/rel 1/...\" \"//tmp/rel 1/...\""})));
    EXPECT_EQ("//depot/main/", c.DepotFolderOf("/ws/main"));
    EXPECT_EQ("//depot/rel 1/", c.DepotFolderOf("/ws/rel 1"));
    EXPECT_EQ("", c.DepotFolderOf("/ws/other"));
    EXPECT_EQ("", c.DepotFolderOf("/elsewhere/main"));
    EXPECT_EQ("src/a.c", c.LocalPathBelow("/ws/main", "//depot/main/src/a.c"));
    EXPECT_EQ("x", c.LocalPathBelow("/ws/rel 1", "//depot/rel 1/x"));
    // A file of another stream is no file of this folder.
    EXPECT_EQ("", c.LocalPathBelow("/ws/main", "//depot/rel 1/x"));
    EXPECT_EQ("", c.LocalPathBelow("/ws/main", "//depot/mainline/x"));
}

TEST(ClientViewTest, ALaterLineTakesFilesFromAnEarlierOne)
{
    CClientView c;
    ASSERT_TRUE(c.Read(Spec({"//depot/main/... //tmp/main/...", "//depot/main/sub/... //tmp/sub/...",
                             "-//depot/main/secret/... //tmp/main/secret/..."})));
    EXPECT_EQ("a", c.LocalPathBelow("/ws/main", "//depot/main/a"));
    EXPECT_EQ("", c.LocalPathBelow("/ws/main", "//depot/main/sub/b"));
    EXPECT_EQ("b", c.LocalPathBelow("/ws/sub", "//depot/main/sub/b"));
    EXPECT_EQ("", c.LocalPathBelow("/ws/main", "//depot/main/secret/k"));
    EXPECT_EQ("//depot/main/", c.DepotFolderOf("/ws/main"));
}

TEST(ClientViewTest, FoldersInsideEachOtherAreNotFollowed)
{
    CClientView c;
    ASSERT_TRUE(c.Read(Spec({"//depot/main/... //tmp/main/...", "//depot/lib/... //tmp/main/lib/..."})));
    EXPECT_EQ("", c.DepotFolderOf("/ws/main"));
    EXPECT_EQ("", c.DepotFolderOf("/ws/main/lib"));
}

TEST(ClientViewTest, ViewsItDoesNotFollow)
{
    CClientView c;
    EXPECT_FALSE(c.Read(Spec({"//depot/main/*.c //tmp/main/*.c"})));
    EXPECT_FALSE(c.Read(Spec({"//depot/main/.../x //tmp/main/.../x"})));
    EXPECT_FALSE(c.Read(Spec({"+//depot/main/... //tmp/main/..."})));
    EXPECT_FALSE(c.Read(Spec({"//depot/main/... //other/main/..."})));
    EXPECT_FALSE(c.Read(Spec({"\"//depot/main/... //tmp/main/..."})));
    EXPECT_FALSE(c.Read(Spec({})));
    EXPECT_FALSE(c.Read(Spec({"//depot/main/... //tmp/main/..."}, "")));
    EXPECT_EQ("", c.DepotFolderOf("/ws/main"));
}

TEST(ClientViewTest, RootWithAFinalSlash)
{
    CClientView c;
    ASSERT_TRUE(c.Read(Spec({"//depot/main/... //tmp/main/..."}, "/ws/")));
    EXPECT_EQ("//depot/main/", c.DepotFolderOf("/ws/main/"));
}
