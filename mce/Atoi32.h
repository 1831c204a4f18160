// Decimal integers read as the C library's atoi reads them where long has
// 32 bits, as on the engines' platform: blanks skipped, an optional sign,
// the digits up to the first non-digit (none: 0), and a value beyond the
// 32-bit range saturated to the nearer bound. (Where long has 64 bits, atoi
// keeps the low 32 bits of such a value instead: 4294967296 would read 0.)
#pragma once

#include <cstdint>
#include <cstdlib>
#include <limits>

#include <wx/string.h>

namespace ORVANE {
namespace MCE {

inline int32_t Atoi32(const char* psz)
{
    const long long n = std::strtoll(psz, nullptr, 10);
    if (n > std::numeric_limits<int32_t>::max())
        return std::numeric_limits<int32_t>::max();
    if (n < std::numeric_limits<int32_t>::min())
        return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(n);
}

// wxAtoi's reading: the text in the C locale's multibyte form (wxConvLibc).
inline int32_t Atoi32(const wxString& str)
{
    const wxCharBuffer abText = str.mb_str(wxConvLibc);
    return Atoi32(abText.data() ? abText.data() : "");
}

} // namespace MCE
} // namespace ORVANE
