#include "host/StreamRecord.h"

namespace ORVANE {
namespace VDB {

namespace {
bool IsSeparator(wxUniChar ch)
{
    return ch == L'/' || ch == L'\\';
}
} // namespace

void TStreamRecord::MakeValidName(VCM::CString& strName)
{
    VCM::CString strText = strName;
    strText.Trim(true).Trim(false);

    // Separators at either end carry no name (//depot/main/ is depot_main).
    size_t nStart = 0;
    size_t nEnd = strText.length();
    while (nStart < nEnd && IsSeparator(strText[nStart]))
        ++nStart;
    while (nEnd > nStart && IsSeparator(strText[nEnd - 1]))
        --nEnd;

    VCM::CString strOut;
    for (size_t i = nStart; i < nEnd; ++i)
    {
        const wchar_t ch = static_cast<wchar_t>(strText[i].GetValue());
        if (ch == L'.' && i + 2 < nEnd && strText[i + 1] == L'.' && strText[i + 2] == L'.')
        {
            strOut += L'_';
            i += 2;
            continue;
        }
        const bool bBad = IsSeparator(ch) || ch == L'@' || ch == L'#' || ch == L'%' || ch == L'*' || ch < 0x20 ||
                          ch == 0x7f || (ch >= 0x80 && ch < 0xa0);
        strOut += bBad ? L'_' : ch;
    }
    strOut.Trim(true).Trim(false);
    if (strOut.empty() || strOut == L"." || strOut == L"..")
        strOut = L"stream";
    strName = strOut;
}

} // namespace VDB
} // namespace ORVANE
