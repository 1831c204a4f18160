#include <gtest/gtest.h>

#include "host/Properties.h"

using ORVANE::VCM::CProperties;
using ORVANE::VCM::CString;

TEST(CProperties, SetPropertyOneStoresBigEndianBytes)
{
    CProperties cProps;
    EXPECT_TRUE(cProps.SetProperty(3, 1u));
    unsigned nSize = 0;
    const unsigned char* pb = cProps.GetPropertyData(3, &nSize);
    ASSERT_NE(nullptr, pb);
    ASSERT_EQ(4u, nSize);
    EXPECT_EQ(0x00, pb[0]);
    EXPECT_EQ(0x00, pb[1]);
    EXPECT_EQ(0x00, pb[2]);
    EXPECT_EQ(0x01, pb[3]);
    unsigned int nValue = 0;
    EXPECT_TRUE(cProps.GetProperty(3, nValue));
    EXPECT_EQ(1u, nValue);
}

TEST(CProperties, SetPropertyReplacesThenAdds)
{
    CProperties cProps;
    EXPECT_TRUE(cProps.SetProperty(0, 0x01020304u));
    EXPECT_TRUE(cProps.SetProperty(0, 0xfffffffeu));
    EXPECT_EQ(1, cProps.GetCount());
    unsigned int nValue = 0;
    EXPECT_TRUE(cProps.GetProperty(0, nValue));
    EXPECT_EQ(0xfffffffeu, nValue);
}

TEST(CProperties, AddAndChangeRules)
{
    CProperties cProps;
    const unsigned char ab[] = {1, 2, 3};
    EXPECT_FALSE(cProps.ChangeProperty(9, ab, 3));
    EXPECT_TRUE(cProps.AddProperty(9, ab, 3));
    EXPECT_FALSE(cProps.AddProperty(9, ab, 3));
    EXPECT_TRUE(cProps.ChangeProperty(9, ab, 2));
    unsigned nSize = 0;
    cProps.GetPropertyData(9, &nSize);
    EXPECT_EQ(2u, nSize);
    unsigned int nValue = 77;
    EXPECT_FALSE(cProps.GetProperty(9, nValue)); // not 4 bytes
    EXPECT_EQ(77u, nValue);
    EXPECT_FALSE(cProps.GetProperty(10, nValue)); // absent
}

TEST(CProperties, TextRoundTrip)
{
    CProperties cProps;
    EXPECT_TRUE(cProps.SetProperty(1, wxString(L"1.4.2.1")));
    EXPECT_TRUE(cProps.SetProperty(2, wxString(L"Grüße")));
    EXPECT_TRUE(cProps.SetProperty(3, wxString()));
    CString str;
    EXPECT_TRUE(cProps.GetProperty(1, str));
    EXPECT_TRUE(str == CString(L"1.4.2.1"));
    EXPECT_TRUE(cProps.GetProperty(2, str));
    EXPECT_TRUE(str == CString(L"Grüße"));
    EXPECT_TRUE(cProps.GetProperty(3, str));
    EXPECT_TRUE(str.empty());
}

TEST(CProperties, RemoveAllKeepsStorageAndEmpties)
{
    CProperties cProps;
    cProps.SetProperty(0, 5u);
    cProps.SetProperty(1, 6u);
    cProps.RemoveAll();
    EXPECT_EQ(0, cProps.GetCount());
    unsigned int nValue = 0;
    EXPECT_FALSE(cProps.GetProperty(0, nValue));
    EXPECT_TRUE(cProps.SetProperty(1, 8u));
    EXPECT_EQ(1, cProps.GetCount());
    EXPECT_TRUE(cProps.GetProperty(1, nValue));
    EXPECT_EQ(8u, nValue);
}

TEST(CProperties, CopyAndCompare)
{
    CProperties a;
    a.SetProperty(0, 1000u);
    a.SetProperty(1, wxString(L"x"));
    CProperties b(a);
    EXPECT_TRUE(a == b);
    b.SetProperty(0, 1001u);
    EXPECT_TRUE(a != b);
    b = a;
    EXPECT_TRUE(a == b);
    a.RemoveAll();
    CProperties c(a);
    EXPECT_EQ(0, c.GetCount());
    EXPECT_TRUE(a == c);
}
