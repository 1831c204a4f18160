#include "host/String.h"

namespace ORVANE {
namespace VCM {

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
    // The C library's wide printf reads %s as a narrow string; the format
    // is converted so that %s and %c take wide text, as callers write them.
    wxFormatString cFormat(pszFormat ? pszFormat : L"");
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
