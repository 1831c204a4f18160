// Wide-character string of the host core library.
#pragma once

#include <cstdarg>
#include <wx/string.h>

namespace ORVANE {
namespace VCM {

// A wxString with the small MFC-like surface the migration modules use.
// Every wxString operation also applies.
class CString : public wxString
{
public:
    CString() = default;
    CString(const wchar_t* psz) : wxString(psz ? psz : L"") {}
    CString(const wxString& str) : wxString(str) {}
    CString(const CString& str) = default;
    CString(CString&& str) = default;
    ~CString() = default;

    CString& operator=(const CString& str) = default;
    CString& operator=(CString&& str) = default;
    CString& operator=(const wchar_t* psz)
    {
        wxString::operator=(psz ? psz : L"");
        return *this;
    }
    CString& operator=(const wxString& str)
    {
        wxString::operator=(str);
        return *this;
    }

    operator const wchar_t*() const { return wc_str(); }

    int GetLength() const { return static_cast<int>(length()); }
    wchar_t GetAt(int nIndex) const { return static_cast<wchar_t>(GetChar(static_cast<size_t>(nIndex))); }
    int CompareNoCase(const wchar_t* psz) const { return CmpNoCase(psz ? psz : L""); }
    CString& TrimLeft()
    {
        Trim(false);
        return *this;
    }
    CString& TrimRight()
    {
        Trim(true);
        return *this;
    }
    // Index of the first occurrence at or after nStart, -1 when absent.
    int Find(const wchar_t* psz, int nStart = 0) const;
    int Find(wchar_t ch, int nStart = 0) const;

    CString& operator+=(const CString& str)
    {
        append(str);
        return *this;
    }
    CString& operator+=(const wchar_t* psz)
    {
        if (psz)
            append(psz);
        return *this;
    }
    CString& operator+=(wchar_t ch)
    {
        append(1, ch);
        return *this;
    }

    bool operator==(const CString& str) const { return compare(str) == 0; }
    bool operator!=(const CString& str) const { return compare(str) != 0; }
    bool operator==(const wchar_t* psz) const { return compare(psz ? psz : L"") == 0; }
    bool operator!=(const wchar_t* psz) const { return !(*this == psz); }

    // Replaces the contents with the printf-style formatting of args.
    void FormatV(const wchar_t* pszFormat, va_list args);

    // Replaces the contents with the formatting of the typed argument list.
    // The new text is built before it is assigned, so the string's own text
    // may be one of the arguments.
    WX_DEFINE_VARARG_FUNC_VOID(Format, 1, (const wxFormatString&), DoFormatUnicode, DoFormatUtf8)

    // The variadic worker behind Format (arguments already normalised by wx).
    void DoFormatUnicode(const wchar_t* pszFormat, ...);
#if wxUSE_UNICODE_UTF8
    void DoFormatUtf8(const char* pszFormat, ...);
#endif
};

} // namespace VCM
} // namespace ORVANE

// Lets a CString be passed to wx's type-safe formatting (Format, Printf) like
// a wxString. C varargs functions still need .wc_str().
template <>
struct wxArgNormalizerWchar<ORVANE::VCM::CString> : public wxArgNormalizerWchar<const wxString&>
{
    wxArgNormalizerWchar(const wxString& value, const wxFormatString* fmt, unsigned index)
        : wxArgNormalizerWchar<const wxString&>(value, fmt, index)
    {
    }
};
template <>
struct wxArgNormalizerWchar<const ORVANE::VCM::CString&> : public wxArgNormalizerWchar<const wxString&>
{
    wxArgNormalizerWchar(const wxString& value, const wxFormatString* fmt, unsigned index)
        : wxArgNormalizerWchar<const wxString&>(value, fmt, index)
    {
    }
};
