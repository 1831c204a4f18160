#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cwchar>
#include <string>

#include "host/String.h"

using ORVANE::VCM::CString;

namespace {

CString FormatThroughV(const wchar_t* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    CString str;
    str.FormatV(pszFormat, args);
    va_end(args);
    return str;
}

// What the C library's wide printf makes of the format (in which %s would
// be a narrow string: wide text is %ls there).
template <typename... TArgs> std::wstring AsTheCLibraryWrites(const wchar_t* pszFormat, TArgs... args)
{
    wchar_t ach[512];
    const int n = std::swprintf(ach, sizeof(ach) / sizeof(ach[0]), pszFormat, args...);
    return n < 0 ? L"<error>" : std::wstring(ach, static_cast<size_t>(n));
}

std::wstring Text(const CString& str)
{
    return std::wstring(str.wc_str());
}

} // namespace

TEST(CString, ConstructAndAssign)
{
    CString strEmpty;
    EXPECT_EQ(0, strEmpty.GetLength());
    CString strA(L"depot");
    CString strB(strA);
    EXPECT_TRUE(strB == CString(L"depot"));
    strB = L"main";
    EXPECT_TRUE(strA == CString(L"depot"));
    EXPECT_TRUE(strB == CString(L"main"));
    strB = wxString(L"rel1");
    EXPECT_TRUE(strB == CString(L"rel1"));
    const wchar_t* pszNull = nullptr;
    CString strNull(pszNull);
    EXPECT_EQ(0, strNull.GetLength());
}

TEST(CString, LengthAndCharacters)
{
    CString str(L"Grüße");
    EXPECT_EQ(5, str.GetLength());
    EXPECT_EQ(L'G', str.GetAt(0));
    EXPECT_EQ(L'ü', str.GetAt(2));
    EXPECT_EQ(L'e', str.GetAt(4));
}

TEST(CString, CompareNoCase)
{
    CString str(L"Jo");
    EXPECT_EQ(0, str.CompareNoCase(L"JO"));
    EXPECT_EQ(0, str.CompareNoCase(L"jo"));
    EXPECT_NE(0, str.CompareNoCase(L"joe"));
    EXPECT_FALSE(str == CString(L"jo"));
    EXPECT_TRUE(str != CString(L"jo"));
}

TEST(CString, Trim)
{
    CString str(L" \t Fix A \n");
    EXPECT_EQ(&str, &str.TrimLeft());
    EXPECT_TRUE(str == CString(L"Fix A \n"));
    str.TrimRight();
    EXPECT_TRUE(str == CString(L"Fix A"));
}

TEST(CString, Find)
{
    CString str(L"a.b.c");
    EXPECT_EQ(1, str.Find(L'.', 0));
    EXPECT_EQ(3, str.Find(L'.', 2));
    EXPECT_EQ(-1, str.Find(L'.', 4));
    EXPECT_EQ(-1, str.Find(L'x', 0));
    EXPECT_EQ(2, str.Find(L"b.c", 0));
    EXPECT_EQ(-1, str.Find(L"b.c", 3));
    EXPECT_EQ(-1, str.Find(L'.', 99));
    EXPECT_EQ(-1, str.Find(L'.', -1));
}

TEST(CString, Append)
{
    CString str(L"a");
    str += CString(L"b");
    str += L"c";
    str += L'd';
    EXPECT_TRUE(str == CString(L"abcd"));
}

TEST(CString, FormatWithTypedArguments)
{
    CString strName(L"main");
    CString str;
    str.Format(L"%s@%s (%d, %u)", strName, CString(L"ws1"), -3, 4000000000u);
    EXPECT_TRUE(str == CString(L"main@ws1 (-3, 4000000000)"));
}

TEST(CString, FormatMayUseItsOwnText)
{
    CString str(L"abc");
    str.Format(L"%s-%s", str, str);
    EXPECT_TRUE(str == CString(L"abc-abc"));
}

TEST(CString, PlainConversionsAreWrittenAsTheCLibraryWritesThem)
{
    EXPECT_EQ(L"-G describe -s 12345", Text(FormatThroughV(L"-G describe -s %u", 12345u)));
    EXPECT_EQ(L"//depot/main/a b.c#3", Text(FormatThroughV(L"%s#%d", L"//depot/main/a b.c", 3)));
    EXPECT_EQ(AsTheCLibraryWrites(L"%ls#%d", L"//depot/x", 3), Text(FormatThroughV(L"%s#%d", L"//depot/x", 3)));
    EXPECT_EQ(AsTheCLibraryWrites(L"[%d|%i|%u]", INT_MIN, INT_MAX, UINT_MAX),
              Text(FormatThroughV(L"[%d|%i|%u]", INT_MIN, INT_MAX, UINT_MAX)));
    EXPECT_EQ(L"[-2147483648|2147483647|4294967295]", Text(FormatThroughV(L"[%d|%i|%u]", INT_MIN, INT_MAX, UINT_MAX)));
    EXPECT_EQ(AsTheCLibraryWrites(L"[%ld|%li|%lu|%d]", LONG_MIN, LONG_MAX, ULONG_MAX, 0),
              Text(FormatThroughV(L"[%ld|%li|%lu|%d]", LONG_MIN, LONG_MAX, ULONG_MAX, 0)));
    EXPECT_EQ(AsTheCLibraryWrites(L"%ls|%ls|%%|100%%", L"Grüße", static_cast<const wchar_t*>(nullptr)),
              Text(FormatThroughV(L"%s|%ls|%%|100%%", L"Grüße", static_cast<const wchar_t*>(nullptr))));
    EXPECT_EQ(L"Grüße|(null)|%|100%",
              Text(FormatThroughV(L"%s|%ls|%%|100%%", L"Grüße", static_cast<const wchar_t*>(nullptr))));
    EXPECT_EQ(L"sync \"/ws/main/...@42\"", Text(FormatThroughV(L"sync \"%s%c...@%d\"", L"/ws/main", L'/', 42)));
    EXPECT_EQ(AsTheCLibraryWrites(L"%lc%lc|%lc", L'\u00fc', L'\U0001F600', L'x'),
              Text(FormatThroughV(L"%c%lc|%c", L'\u00fc', L'\U0001F600', L'x')));
    EXPECT_EQ(L"", Text(FormatThroughV(L"")));
    EXPECT_EQ(L"no conversions", Text(FormatThroughV(L"no conversions")));
}

TEST(CString, AFormatWithMoreThanPlainConversionsIsFormattedWhole)
{
    // The plain conversions before the width are not taken twice.
    EXPECT_EQ(L"a:7:    9|x", Text(FormatThroughV(L"%s:%u:%5d|%s", L"a", 7u, 9, L"x")));
    EXPECT_EQ(L"ff 0x1f 007", Text(FormatThroughV(L"%x %#x %03d", 255, 31, 7)));
    EXPECT_EQ(L"12 ab", Text(FormatThroughV(L"%lld %.2s", 12ll, L"abc")));
}

TEST(CString, FormatV)
{
    EXPECT_TRUE(FormatThroughV(L"%d: %ls", 3599, L"line") == CString(L"3599: line"));
    // %s and %c take wide text, as everywhere in this code.
    EXPECT_TRUE(FormatThroughV(L"%s|%5s|%-3s|%c|%%", L"Grüße", L"ab", L"x", L'ü') == CString(L"Grüße|   ab|x  |ü|%"));
}
