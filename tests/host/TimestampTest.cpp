#include <gtest/gtest.h>

#include "host/Timestamp.h"

using ORVANE::VCM::CString;
using ORVANE::VCM::CTimestamp;

TEST(CTimestamp, SetAndGetUTC)
{
    CTimestamp t;
    EXPECT_EQ(0, t.GetUTC());
    t.Set(1200000000);
    EXPECT_EQ(1200000000, t.GetUTC());
    CTimestamp u(t);
    EXPECT_TRUE(u == t);
}

TEST(CTimestamp, FormatInUTC)
{
    CTimestamp t;
    t.Set(1200000000);
    EXPECT_TRUE(t.Format(wxDateTime::GMT0) == CString(L"2008-01-10 21:20:00"));
    t.Set(0);
    EXPECT_TRUE(t.Format(wxDateTime::GMT0) == CString(L"1970-01-01 00:00:00"));
}

TEST(CTimestamp, TimesAreSigned32Bit)
{
    CTimestamp t;
    t.Set(-1);
    EXPECT_EQ(-1, t.GetUTC());
    t.Set(static_cast<long>(0xffffffffL)); // wider than 32 bits: wraps
    EXPECT_EQ(-1, t.GetUTC());
    t.Set(-1);
    EXPECT_TRUE(t.Format(wxDateTime::GMT0) == CString(L"1969-12-31 23:59:59"));
    t.Set(-2147483647L - 1);
    EXPECT_TRUE(t.Format(wxDateTime::GMT0) == CString(L"1901-12-13 20:45:52"));
    t.Set(2147483647);
    EXPECT_TRUE(t.Format(wxDateTime::GMT0) == CString(L"2038-01-19 03:14:07"));
}
