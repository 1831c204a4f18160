// Text conversions and the tables printed for the user.
#include <gtest/gtest.h>

#include "Table.h"
#include "Text.h"

using namespace ORVANE::IMP;

TEST(Text, Utf8AndBack)
{
    const std::string str = "R\xC3\xA9sum\xC3\xA9 \xE2\x82\xAC";
    EXPECT_EQ(str, Utf8(Wide(str)));
    EXPECT_EQ(std::wstring(L"R\u00e9sum\u00e9 \u20ac"), Wide(str).ToStdWstring());
    EXPECT_EQ("", Utf8(Wide("")));
}

TEST(Text, PathTextJoinsWithSlashes)
{
    ORVANE::VCM::CFilePath c;
    ASSERT_TRUE(c.Parse(L"//depot/main/a b.txt", -1, false));
    EXPECT_EQ("//depot/main/a b.txt", PathText(c));
    ASSERT_TRUE(c.Parse(L"docs/R\u00e9sum\u00e9.txt", -1, false));
    EXPECT_EQ("docs/R\xC3\xA9sum\xC3\xA9.txt", PathText(c));
    EXPECT_EQ("", PathText(ORVANE::VCM::CFilePath()));
}

TEST(Text, WidthCountsCharacters)
{
    EXPECT_EQ(0u, Width(""));
    EXPECT_EQ(3u, Width("abc"));
    EXPECT_EQ(6u, Width("R\xC3\xA9sum\xC3\xA9"));
    EXPECT_EQ(1u, Width("\xE2\x82\xAC"));
}

TEST(Table, ColumnsLineUpByCharacters)
{
    EXPECT_EQ(
        "ID  NAME    TYPE\n"
        "1   R\xC3\xA9sum\xC3\xA9  text\n"
        "22  x       a long one\n"
        "3\n",
        FormatTable({{"ID", "NAME", "TYPE"}, {"1", "R\xC3\xA9sum\xC3\xA9", "text"}, {"22", "x", "a long one"}, {"3"}}));
    EXPECT_EQ("", FormatTable({}));
}

TEST(Table, PrintWritesTheText)
{
    char* p = nullptr;
    size_t n = 0;
    std::FILE* pFile = open_memstream(&p, &n);
    ASSERT_NE(nullptr, pFile);
    PrintTable({{"A", "B"}, {"long", "x"}}, pFile);
    std::fclose(pFile);
    EXPECT_EQ("A     B\nlong  x\n", std::string(p, n));
    std::free(p);
}
