#include "host/String.h"

#include <string>

namespace ORVANE {
namespace VCM {

namespace {

template <typename TNumber> void AppendDecimal(std::wstring& str, TNumber n)
{
    wchar_t ach[24];
    wchar_t* p = ach + sizeof(ach) / sizeof(ach[0]);
    // Digits from the magnitude, which for the most negative number is the
    // one an unsigned type holds.
    unsigned long long nMagnitude =
        n < 0 ? 0ull - static_cast<unsigned long long>(n) : static_cast<unsigned long long>(n);
    do
        *--p = static_cast<wchar_t>(L'0' + nMagnitude % 10);
    while ((nMagnitude /= 10) != 0);
    if (n < 0)
        *--p = L'-';
    str.append(p, ach + sizeof(ach) / sizeof(ach[0]));
}

// Most texts are made of plain conversions: %s and %ls (wide text), %c and
// %lc (a wide character), %d, %i and %u with or without l, and %%. Those
// are written here as the C library writes them, without its cost; false
// for a format with anything else (flags, widths, precisions, other
// conversions), which the C library then formats from the start.
bool FormatPlain(const wchar_t* pszFormat, va_list args, std::wstring& strOut)
{
    const wchar_t* p = pszFormat;
    for (;;)
    {
        const wchar_t* pRun = p;
        while (*p && *p != L'%')
            ++p;
        strOut.append(pRun, p);
        if (!*p)
            return true;
        ++p;
        const bool bLong = *p == L'l';
        if (bLong)
            ++p;
        switch (*p)
        {
        case L'%':
            if (bLong)
                return false;
            strOut += L'%';
            break;
        case L's':
        {
            const wchar_t* psz = va_arg(args, const wchar_t*);
            strOut += psz ? psz : L"(null)";
            break;
        }
        case L'c':
        {
            // A character the C library would write differently (none, or
            // no Unicode scalar value) is left to it.
            const int n = va_arg(args, int);
            if (n <= 0 || (n >= 0xD800 && n < 0xE000) || n > 0x10FFFF)
                return false;
            strOut += static_cast<wchar_t>(n);
            break;
        }
        case L'd':
        case L'i':
            if (bLong)
                AppendDecimal(strOut, va_arg(args, long));
            else
                AppendDecimal(strOut, va_arg(args, int));
            break;
        case L'u':
            if (bLong)
                AppendDecimal(strOut, va_arg(args, unsigned long));
            else
                AppendDecimal(strOut, va_arg(args, unsigned int));
            break;
        default:
            return false;
        }
        ++p;
    }
}

} // namespace

int CString::Find(const wchar_t* psz, int nStart) const
{
    if (!psz || nStart < 0 || static_cast<size_t>(nStart) > length())
        return -1;
    const size_t n = find(psz, static_cast<size_t>(nStart));
    return n == npos ? -1 : static_cast<int>(n);
}

int CString::Find(wchar_t ch, int nStart) const
{
    if (nStart < 0 || static_cast<size_t>(nStart) > length())
        return -1;
    const size_t n = find(ch, static_cast<size_t>(nStart));
    return n == npos ? -1 : static_cast<int>(n);
}

void CString::FormatV(const wchar_t* pszFormat, va_list args)
{
    if (!pszFormat)
        pszFormat = L"";
    {
        std::wstring strPlain;
        va_list argsPlain;
        va_copy(argsPlain, args);
        const bool bPlain = FormatPlain(pszFormat, argsPlain, strPlain);
        va_end(argsPlain);
        if (bPlain)
        {
            wxString::operator=(strPlain);
            return;
        }
    }
    // The C library's wide printf reads %s as a narrow string; the format
    // is converted so that %s and %c take wide text, as callers write them.
    wxFormatString cFormat(pszFormat);
    const wchar_t* pszWide = cFormat;
    wxString strNew;
    strNew.PrintfV(pszWide, args);
    wxString::operator=(strNew);
}

void CString::DoFormatUnicode(const wchar_t* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    FormatV(pszFormat, args);
    va_end(args);
}

#if wxUSE_UNICODE_UTF8
void CString::DoFormatUtf8(const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    wxString strNew;
    strNew.PrintfV(wxString::FromUTF8(pszFormat), args);
    va_end(args);
    wxString::operator=(strNew);
}
#endif

} // namespace VCM
} // namespace ORVANE
