// The table that keeps each depot path once.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "StringTable.h"

using namespace ORVANE::IMP;

TEST(StringTableTest, EachStringOnceByItsNumber)
{
    CStringTable cTable;
    EXPECT_EQ(cTable.Find("//depot/main/a.txt"), CStringTable::npos);
    const uint32_t nA = cTable.Intern("//depot/main/a.txt");
    const uint32_t nB = cTable.Intern("//depot/rel/a.txt");
    const uint32_t nEmpty = cTable.Intern("");
    EXPECT_EQ(nA, 0u);
    EXPECT_EQ(nB, 1u);
    EXPECT_EQ(nEmpty, 2u);
    EXPECT_EQ(cTable.Intern("//depot/main/a.txt"), nA);
    EXPECT_EQ(cTable.Find("//depot/rel/a.txt"), nB);
    EXPECT_EQ(cTable.Find(""), nEmpty);
    EXPECT_EQ(cTable.At(nA), "//depot/main/a.txt");
    EXPECT_EQ(cTable.At(nEmpty), "");
    EXPECT_EQ(cTable.Size(), 3u);
}

TEST(StringTableTest, GrowingKeepsEveryNumber)
{
    CStringTable cTable;
    std::vector<std::string> astr;
    for (int i = 0; i < 5000; ++i)
        astr.push_back("//depot/main/src/file" + std::to_string(i * 7919 % 5000) + ".c");
    for (size_t i = 0; i < astr.size(); ++i)
        ASSERT_EQ(cTable.Intern(astr[i]), i);
    for (size_t i = 0; i < astr.size(); ++i)
    {
        ASSERT_EQ(cTable.Find(astr[i]), i);
        ASSERT_EQ(cTable.At(uint32_t(i)), astr[i]);
    }
    EXPECT_EQ(cTable.Find("//depot/main/src/file5000.c"), CStringTable::npos);
    // The names end to end, not a string object each.
    EXPECT_LT(cTable.Bytes(), 5000u * 80);
    cTable.Clear();
    EXPECT_EQ(cTable.Size(), 0u);
    EXPECT_EQ(cTable.Find(astr[0]), CStringTable::npos);
    EXPECT_EQ(cTable.Intern(astr[1]), 0u);
}
