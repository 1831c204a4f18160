#include <gtest/gtest.h>

#include "host/StreamRecord.h"

using ORVANE::VCM::CString;
using ORVANE::VDB::TStreamRecord;

namespace {
CString Valid(const wchar_t* psz)
{
    CString str(psz);
    TStreamRecord::MakeValidName(str);
    return str;
}
} // namespace

TEST(TStreamRecord, PlainNamesStay)
{
    EXPECT_TRUE(Valid(L"main") == CString(L"main"));
    EXPECT_TRUE(Valid(L"rel-1.0") == CString(L"rel-1.0"));
    EXPECT_TRUE(Valid(L"Ünïcode name") == CString(L"Ünïcode name"));
}

TEST(TStreamRecord, DepotPathsBecomeOneFolderName)
{
    EXPECT_TRUE(Valid(L"//depot/main") == CString(L"depot_main"));
    EXPECT_TRUE(Valid(L"//depot/main/") == CString(L"depot_main"));
    EXPECT_TRUE(Valid(L"a\\b") == CString(L"a_b"));
}

TEST(TStreamRecord, CharactersUnsafeInAViewAreReplaced)
{
    EXPECT_TRUE(Valid(L"a@b#c%d*e") == CString(L"a_b_c_d_e"));
    EXPECT_TRUE(Valid(L"x...y") == CString(L"x_y"));
    EXPECT_TRUE(Valid(L"tab\there") == CString(L"tab_here"));
    EXPECT_TRUE(Valid(L"  padded  ") == CString(L"padded"));
}

TEST(TStreamRecord, NothingLeftGivesAName)
{
    EXPECT_TRUE(Valid(L"") == CString(L"stream"));
    EXPECT_TRUE(Valid(L".") == CString(L"stream"));
    EXPECT_TRUE(Valid(L"..") == CString(L"stream"));
    EXPECT_TRUE(Valid(L"//") == CString(L"stream"));
    EXPECT_TRUE(Valid(L"...") == CString(L"_"));
}
