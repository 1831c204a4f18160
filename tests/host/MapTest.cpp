#include <gtest/gtest.h>

#include "host/Map.h"

using ORVANE::EMapIndexOutOfRange;
using ORVANE::POSITION;
using ORVANE::PtrToInt;
using ORVANE::VCM::CMap;
using ORVANE::VCM::CString;

TEST(CMap, SetAtKeepsPairsSortedAndReplacesEqualKeys)
{
    CMap<CString, CString> map;
    map.SetAt(L"RootPath", L"//depot/...");
    map.SetAt(L"P4Path", L"p4");
    map.SetAt(L"Compression", L"0");
    map.SetAt(L"P4Path", L"/opt/p4/bin/p4");
    EXPECT_EQ(3, map.GetCount());

    POSITION pos = map.GetStartPosition();
    EXPECT_EQ(1, PtrToInt(pos));
    CString strKey, strValue;
    map.GetNextAssoc(pos, strKey, strValue);
    EXPECT_TRUE(strKey == CString(L"Compression"));
    EXPECT_EQ(2, PtrToInt(pos));
    map.GetNextAssoc(pos, strKey, strValue);
    EXPECT_TRUE(strKey == CString(L"P4Path"));
    EXPECT_TRUE(strValue == CString(L"/opt/p4/bin/p4"));
    map.GetNextAssoc(pos, strKey, strValue);
    EXPECT_TRUE(strKey == CString(L"RootPath"));
    EXPECT_EQ(nullptr, pos);
}

TEST(CMap, GetAtLeavesValueUntouchedWhenAbsent)
{
    CMap<CString, CString> map;
    map.SetAt(L"a", L"1");
    CString strValue(L"unchanged");
    EXPECT_FALSE(map.GetAt(L"b", strValue));
    EXPECT_TRUE(strValue == CString(L"unchanged"));
    EXPECT_TRUE(map.Lookup(L"a", strValue));
    EXPECT_TRUE(strValue == CString(L"1"));
}

TEST(CMap, KeysAreCaseSensitive)
{
    CMap<CString, CString> map;
    map.SetAt(L"Key", L"1");
    map.SetAt(L"key", L"2");
    EXPECT_EQ(2, map.GetCount());
    CString strValue;
    EXPECT_TRUE(map.GetAt(L"Key", strValue));
    EXPECT_TRUE(strValue == CString(L"1"));
}

TEST(CMap, PositionOutsideRangeThrowsZeroBasedIndex)
{
    CMap<int, int> map;
    map.SetAt(1, 10);
    int nKey = 0, nValue = 0;
    POSITION pos = nullptr;
    try
    {
        map.GetNextAssoc(pos, nKey, nValue);
        FAIL() << "no exception";
    }
    catch (const EMapIndexOutOfRange& e)
    {
        EXPECT_TRUE(e.GetErrorMessage() == CString(L"Map index (-1) out of range"));
    }
    pos = ORVANE::IntToPosition(2);
    try
    {
        map.GetNextAssoc(pos, nKey, nValue);
        FAIL() << "no exception";
    }
    catch (const EMapIndexOutOfRange& e)
    {
        EXPECT_TRUE(e.GetErrorMessage() == CString(L"Map index (1) out of range"));
    }
}

TEST(CMap, GrowsAndStaysSortedWithManyKeys)
{
    CMap<int, int> map;
    for (int i = 0; i < 100; ++i)
        map.SetAt((i * 37) % 100, i);
    EXPECT_EQ(100, map.GetCount());
    POSITION pos = map.GetStartPosition();
    int nExpected = 0;
    while (pos)
    {
        int nKey = -1, nValue = -1;
        map.GetNextAssoc(pos, nKey, nValue);
        EXPECT_EQ(nExpected, nKey);
        EXPECT_EQ(nExpected, (nValue * 37) % 100);
        ++nExpected;
    }
    EXPECT_EQ(100, nExpected);
    EXPECT_TRUE(map.RemoveKey(50));
    EXPECT_FALSE(map.RemoveKey(50));
    EXPECT_EQ(99, map.GetCount());
}

TEST(CMap, EmptyMapHasNoStartPosition)
{
    CMap<CString, CString> map;
    EXPECT_EQ(nullptr, map.GetStartPosition());
    CMap<CString, CString> copy(map);
    EXPECT_EQ(0, copy.GetCount());
}
