#include "Text.h"

#include <type_traits>

namespace ORVANE {
namespace TEST {

namespace {

const char32_t s_cReplacement = 0xFFFD;

void AppendUtf8(std::string& str, char32_t c)
{
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        c = s_cReplacement;
    if (c < 0x80)
        str += static_cast<char>(c);
    else if (c < 0x800)
    {
        str += static_cast<char>(0xC0 | (c >> 6));
        str += static_cast<char>(0x80 | (c & 0x3F));
    }
    else if (c < 0x10000)
    {
        str += static_cast<char>(0xE0 | (c >> 12));
        str += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        str += static_cast<char>(0x80 | (c & 0x3F));
    }
    else
    {
        str += static_cast<char>(0xF0 | (c >> 18));
        str += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        str += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        str += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// The code point starting at str[nPos], moving nPos past it.
char32_t NextCodePoint(const std::string& str, size_t& nPos)
{
    const unsigned char c = static_cast<unsigned char>(str[nPos++]);
    if (c < 0x80)
        return c;
    size_t nMore = 0;
    char32_t cPoint = 0;
    char32_t cMin = 0;
    if ((c & 0xE0) == 0xC0)
        nMore = 1, cPoint = c & 0x1F, cMin = 0x80;
    else if ((c & 0xF0) == 0xE0)
        nMore = 2, cPoint = c & 0x0F, cMin = 0x800;
    else if ((c & 0xF8) == 0xF0)
        nMore = 3, cPoint = c & 0x07, cMin = 0x10000;
    else
        return s_cReplacement;
    for (size_t i = 0; i < nMore; ++i)
    {
        if (nPos >= str.size() || (static_cast<unsigned char>(str[nPos]) & 0xC0) != 0x80)
            return s_cReplacement;
        cPoint = (cPoint << 6) | (static_cast<unsigned char>(str[nPos++]) & 0x3F);
    }
    if (cPoint < cMin || cPoint > 0x10FFFF || (cPoint >= 0xD800 && cPoint <= 0xDFFF))
        return s_cReplacement;
    return cPoint;
}

} // namespace

std::string Utf8(const std::wstring& str)
{
    std::string strOut;
    strOut.reserve(str.size());
    for (wchar_t c : str)
        AppendUtf8(strOut, static_cast<char32_t>(static_cast<std::make_unsigned<wchar_t>::type>(c)));
    return strOut;
}

std::wstring Wide(const std::string& str)
{
    std::wstring strOut;
    size_t nPos = 0;
    while (nPos < str.size())
        strOut += static_cast<wchar_t>(NextCodePoint(str, nPos));
    return strOut;
}

std::string FeedName(const std::string& strArgs)
{
    std::string strName = strArgs;
    for (char& c : strName)
    {
        const bool bKeep =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
        if (!bKeep)
            c = '_';
    }
    return strName;
}

} // namespace TEST
} // namespace ORVANE
