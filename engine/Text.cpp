#include "Text.h"

namespace ORVANE {
namespace IMP {

std::string Utf8(const wxString& str)
{
    const wxScopedCharBuffer ach = str.utf8_str();
    return std::string(ach.data(), ach.length());
}

VCM::CString Wide(const std::string& str)
{
    return VCM::CString(wxString::FromUTF8(str.c_str(), str.size()));
}

namespace {

const char s_szBlanks[] = " \t\r\n";

} // namespace

std::string TrimmedEnd(std::string str)
{
    str.erase(str.find_last_not_of(s_szBlanks) + 1);
    return str;
}

std::string Trimmed(const std::string& str)
{
    const size_t nFirst = str.find_first_not_of(s_szBlanks);
    return nFirst == std::string::npos ? std::string() : TrimmedEnd(str.substr(nFirst));
}

std::string PathText(const VCM::CFilePath& cPath)
{
    return Utf8(cPath.GeneratePath(L'/', true));
}

size_t Width(const std::string& str)
{
    size_t n = 0;
    for (unsigned char c : str)
        if ((c & 0xC0) != 0x80)
            ++n;
    return n;
}

} // namespace IMP
} // namespace ORVANE
