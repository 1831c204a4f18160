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
