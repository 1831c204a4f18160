// Text between the provider's wide strings and the engine's UTF-8.
#pragma once

#include <string>

#include "host/FilePath.h"
#include "host/String.h"

namespace ORVANE {
namespace IMP {

std::string Utf8(const wxString& str);
VCM::CString Wide(const std::string& str);
// The path's items joined with '/', in UTF-8.
std::string PathText(const VCM::CFilePath& cPath);
// The number of characters of UTF-8 text (for lining up columns).
size_t Width(const std::string& str);
// The text without the blanks, tabs and line ends at its end.
std::string TrimmedEnd(std::string str);
// The same at both ends.
std::string Trimmed(const std::string& str);

} // namespace IMP
} // namespace ORVANE
