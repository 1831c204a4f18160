#include <gtest/gtest.h>

#include "host/FilePath.h"

using ORVANE::VCM::CFilePath;
using ORVANE::VCM::CString;

namespace {

CFilePath P(const wchar_t* psz)
{
    CFilePath c;
    EXPECT_TRUE(c.Parse(psz, -1, false)) << psz;
    return c;
}

CString Slash(const CFilePath& c)
{
    return c.GeneratePath(L'/', true);
}

} // namespace

TEST(CFilePath, DepotPathItems)
{
    CFilePath c = P(L"//depot/main/...");
    ASSERT_EQ(4u, c.GetItemCount());
    EXPECT_STREQ(L"/", c.GetItemText(0, nullptr));
    EXPECT_STREQ(L"depot", c.GetItemText(1, nullptr));
    EXPECT_STREQ(L"main", c.GetItemText(2, nullptr));
    EXPECT_STREQ(L"...", c.GetItemText(3, nullptr));
    EXPECT_TRUE(Slash(c) == CString(L"//depot/main/..."));
    c.RemoveLastItem();
    EXPECT_TRUE(Slash(c) == CString(L"//depot/main"));
    EXPECT_TRUE(Slash(P(L"//depot/main")) == CString(L"//depot/main"));
}

TEST(CFilePath, LocalAbsolutePath)
{
    CFilePath c = P(L"/tmp/ws/main");
    ASSERT_EQ(4u, c.GetItemCount());
    EXPECT_STREQ(L"", c.GetItemText(0, nullptr));
    EXPECT_STREQ(L"tmp", c.GetItemText(1, nullptr));
    EXPECT_TRUE(Slash(c) == CString(L"/tmp/ws/main"));
    EXPECT_TRUE(c.GeneratePath() == CString(L"/tmp/ws/main"));
    CString strOut;
    c.GeneratePath(strOut);
    EXPECT_TRUE(strOut == CString(L"/tmp/ws/main"));
}

TEST(CFilePath, ClientPathFromItems)
{
    CFilePath c;
    c.Add(L"/");
    c.Add(L"Orvane_Temp_Client");
    c.Add(L"main");
    EXPECT_TRUE(Slash(c) == CString(L"//Orvane_Temp_Client/main"));
}

TEST(CFilePath, RootsAlone)
{
    EXPECT_TRUE(Slash(P(L"/")) == CString(L"/"));
    EXPECT_EQ(1u, P(L"/").GetItemCount());
    EXPECT_TRUE(Slash(P(L"//")) == CString(L"//"));
    EXPECT_EQ(1u, P(L"//").GetItemCount());
}

TEST(CFilePath, RelativePathAndSeparators)
{
    CFilePath c = P(L"a/b/c.txt");
    EXPECT_EQ(3u, c.GetItemCount());
    EXPECT_TRUE(c.GeneratePath(L'\\', true) == CString(L"a\\b\\c.txt"));
    EXPECT_EQ(2u, P(L"a/b/").GetItemCount()); // one trailing separator is dropped
    unsigned nLength = 99;
    EXPECT_STREQ(L"c.txt", c.GetItemText(2, &nLength));
    EXPECT_EQ(5u, nLength);
    EXPECT_STREQ(L"", c.GetItemText(3, &nLength));
    EXPECT_EQ(0u, nLength);
}

TEST(CFilePath, ParseWithLength)
{
    CFilePath c;
    EXPECT_TRUE(c.Parse(L"//depot/main/...", 12, false));
    EXPECT_TRUE(Slash(c) == CString(L"//depot/main"));
}

TEST(CFilePath, ParseRejectsTextThatIsNoPath)
{
    CFilePath c = P(L"//depot/x");
    EXPECT_FALSE(c.Parse(L"", -1, false));
    EXPECT_EQ(0u, c.GetItemCount());
    EXPECT_FALSE(c.Parse(nullptr, -1, false));
    EXPECT_FALSE(c.Parse(L"a//b", -1, false));
    EXPECT_FALSE(c.Parse(L"///depot", -1, false));
    EXPECT_FALSE(c.Parse(L"a/b//", -1, false));
    const wchar_t szWithNul[] = {L'a', L'\0', L'b', L'\0'};
    EXPECT_FALSE(c.Parse(szWithNul, 3, false));
    EXPECT_FALSE(c.Parse(L"abc", 0, false));
}

TEST(CFilePath, BlanksAndUnicodeStayInItems)
{
    CFilePath c = P(L"//depot/main/my file ü.txt");
    EXPECT_STREQ(L"my file ü.txt", c.GetItemText(3, nullptr));
}

TEST(CFilePath, IsSupersetOfIsTrueWhenThisLiesAtOrBelowOther)
{
    CFilePath cStream = P(L"//depot/main");
    CFilePath cFile = P(L"//depot/main/a/b.txt");
    CFilePath cRest;
    EXPECT_TRUE(cFile.IsSupersetOf(cStream, &cRest, false));
    EXPECT_TRUE(Slash(cRest) == CString(L"a/b.txt"));
    EXPECT_FALSE(cStream.IsSupersetOf(cFile, &cRest, false));
    // Equal paths qualify, with an empty remainder.
    EXPECT_TRUE(cStream.IsSupersetOf(P(L"//depot/main"), &cRest, false));
    EXPECT_EQ(0u, cRest.GetItemCount());
    // A sibling that merely shares a prefix of text is not below.
    EXPECT_FALSE(P(L"//depot/mainline/x").IsSupersetOf(cStream, nullptr, false));
}

TEST(CFilePath, IsSupersetOfCaseFlag)
{
    CFilePath cStream = P(L"//Depot/Main");
    CFilePath cFile = P(L"//depot/MAIN/x.c");
    CFilePath cRest;
    EXPECT_FALSE(cFile.IsSupersetOf(cStream, &cRest, false));
    EXPECT_TRUE(cFile.IsSupersetOf(cStream, &cRest, true));
    EXPECT_TRUE(Slash(cRest) == CString(L"x.c"));
}

TEST(CFilePath, RemainderMayBeThePathItself)
{
    CFilePath c = P(L"//depot/main/a/b");
    EXPECT_TRUE(c.IsSupersetOf(P(L"//depot/main"), &c, false));
    EXPECT_TRUE(Slash(c) == CString(L"a/b"));
}

TEST(CFilePath, IsEqualTo)
{
    EXPECT_TRUE(P(L"a/b.txt").IsEqualTo(P(L"a/b.txt"), false));
    EXPECT_FALSE(P(L"a/B.txt").IsEqualTo(P(L"a/b.txt"), false));
    EXPECT_TRUE(P(L"a/B.txt").IsEqualTo(P(L"a/b.txt"), true));
    EXPECT_FALSE(P(L"a/b.txt").IsEqualTo(P(L"a"), true));
    EXPECT_TRUE(P(L"a/b") == P(L"a/b"));
    EXPECT_TRUE(P(L"a/b") != P(L"a/c"));
}

TEST(CFilePath, GeneratePathUnderBase)
{
    CFilePath cBase = P(L"/tmp/ws/main");
    EXPECT_TRUE(P(L"a/b.txt").GeneratePath(cBase, 0) == CString(L"/tmp/ws/main/a/b.txt"));
    EXPECT_TRUE(P(L"b.txt").GeneratePath(cBase, 0) == CString(L"/tmp/ws/main/b.txt"));
    EXPECT_TRUE(P(L"b.txt").GeneratePath(CFilePath(), 0) == CString(L"b.txt"));
    EXPECT_TRUE(CFilePath().GeneratePath(cBase, 0) == CString(L"/tmp/ws/main"));
    EXPECT_TRUE(P(L"x").GeneratePath(P(L"/"), 0) == CString(L"/x"));
}

TEST(CFilePath, ReplaceItemAndCopy)
{
    CFilePath c = P(L"//depot/a%40b.txt");
    c.ReplaceItem(2, L"a@b.txt");
    EXPECT_TRUE(Slash(c) == CString(L"//depot/a@b.txt"));
    c.ReplaceItem(7, L"ignored");
    CFilePath d(c, nullptr);
    EXPECT_TRUE(d == c);
    d.RemoveLastItem();
    EXPECT_FALSE(d == c);
    CFilePath e;
    e.RemoveLastItem();
    EXPECT_EQ(0u, e.GetItemCount());
}
