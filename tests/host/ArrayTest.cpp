#include <gtest/gtest.h>

#include "host/Array.h"

using ORVANE::EArrayIndexOutOfRange;
using ORVANE::VCM::CArray;
using ORVANE::VCM::CString;

namespace {

// Counts constructions and assignments so the growth rule can be observed.
struct TCounted
{
    static int s_nConstructed;
    static int s_nAssigned;
    int nValue = 0;
    TCounted() { ++s_nConstructed; }
    TCounted(const TCounted& other) : nValue(other.nValue) { ++s_nConstructed; }
    TCounted& operator=(const TCounted& other)
    {
        nValue = other.nValue;
        ++s_nAssigned;
        return *this;
    }
};
int TCounted::s_nConstructed = 0;
int TCounted::s_nAssigned = 0;

} // namespace

TEST(CArray, LayoutIsCapacityCountStorage)
{
    CArray<int> a(0);
    static_assert(sizeof(CArray<int>) == 2 * sizeof(int32_t) + sizeof(void*), "three words");
    a.Add(5);
    const int32_t* pnWords = reinterpret_cast<const int32_t*>(&a);
    EXPECT_EQ(16, pnWords[0]);
    EXPECT_EQ(1, pnWords[1]);
    const int* const* ppData = reinterpret_cast<const int* const*>(reinterpret_cast<const char*>(&a) + 8);
    EXPECT_EQ(a.GetData(), *ppData);
}

TEST(CArray, GrowthIs16ThenDoubling)
{
    CArray<int> a(0);
    EXPECT_EQ(0, a.GetCapacity());
    a.Add(0);
    EXPECT_EQ(16, a.GetCapacity());
    for (int i = 1; i < 16; ++i)
        a.Add(i);
    EXPECT_EQ(16, a.GetCapacity());
    a.Add(16);
    EXPECT_EQ(32, a.GetCapacity());
    for (int i = 17; i < 33; ++i)
        a.Add(i);
    EXPECT_EQ(64, a.GetCapacity());
    EXPECT_EQ(33, a.GetCount());
    for (int i = 0; i < 33; ++i)
        EXPECT_EQ(i, a[i]);
}

TEST(CArray, NewStorageIsDefaultConstructedAndElementsAssigned)
{
    TCounted::s_nConstructed = 0;
    TCounted::s_nAssigned = 0;
    {
        CArray<TCounted> a(0);
        TCounted t;
        t.nValue = 7;
        EXPECT_EQ(1, TCounted::s_nConstructed);
        a.Add(t);
        EXPECT_EQ(17, TCounted::s_nConstructed); // 16 new slots
        EXPECT_EQ(1, TCounted::s_nAssigned);
        EXPECT_EQ(7, a[0].nValue);
    }
}

TEST(CArray, RemoveAllWithoutFreeKeepsCapacityAndNextAddDoesNotAllocate)
{
    CArray<CString> a(0);
    for (int i = 0; i < 20; ++i)
        a.Add(CString(L"x"));
    EXPECT_EQ(32, a.GetCapacity());
    const CString* pStorage = a.GetData();
    a.RemoveAll(false);
    EXPECT_EQ(0, a.GetCount());
    EXPECT_EQ(32, a.GetCapacity());
    TCounted::s_nConstructed = 0;
    a.Add(CString(L"y"));
    EXPECT_EQ(pStorage, a.GetData());
    EXPECT_EQ(32, a.GetCapacity());
    EXPECT_TRUE(a[0] == CString(L"y"));
}

TEST(CArray, RemoveAllWithFreeReleasesStorage)
{
    CArray<int> a(0);
    a.Add(1);
    a.RemoveAll(true);
    EXPECT_EQ(0, a.GetCount());
    EXPECT_EQ(0, a.GetCapacity());
    EXPECT_EQ(nullptr, a.GetData());
}

TEST(CArray, RemoveAllWithoutFreeResetsUsedSlots)
{
    CArray<TCounted> a(0);
    TCounted t;
    t.nValue = 9;
    a.Add(t);
    a.RemoveAll(false);
    EXPECT_EQ(0, a.GetData()[0].nValue);
}

TEST(CArray, IndexMinusOneAndCountThrowWithTheIndexGiven)
{
    CArray<int> a(0);
    a.Add(1);
    a.Add(2);
    try
    {
        a.GetAt(-1);
        FAIL() << "no exception";
    }
    catch (const EArrayIndexOutOfRange& e)
    {
        EXPECT_TRUE(e.GetErrorMessage() == CString(L"Array index (-1) out of range"));
    }
    try
    {
        a.ElementAt(2);
        FAIL() << "no exception";
    }
    catch (const EArrayIndexOutOfRange& e)
    {
        EXPECT_TRUE(e.GetErrorMessage() == CString(L"Array index (2) out of range"));
    }
    const CArray<int>& ac = a;
    EXPECT_THROW(ac[2], EArrayIndexOutOfRange);
    EXPECT_EQ(2, ac[1]);
}

TEST(CArray, InitialCapacityAndCopy)
{
    CArray<int> a(4);
    EXPECT_EQ(4, a.GetCapacity());
    a.Add(1);
    a.Add(2);
    CArray<int> b(a);
    EXPECT_EQ(2, b.GetCount());
    EXPECT_EQ(2, b[1]);
    b.Add(3);
    EXPECT_EQ(2, a.GetCount());
    a = b;
    EXPECT_EQ(3, a.GetCount());
    EXPECT_EQ(3, a[2]);
}

TEST(CArray, RemoveAt)
{
    CArray<int> a(0);
    for (int i = 0; i < 4; ++i)
        a.Add(i);
    a.RemoveAt(1);
    EXPECT_EQ(3, a.GetCount());
    EXPECT_EQ(0, a[0]);
    EXPECT_EQ(2, a[1]);
    EXPECT_EQ(3, a[2]);
    EXPECT_THROW(a.RemoveAt(3), EArrayIndexOutOfRange);
}
