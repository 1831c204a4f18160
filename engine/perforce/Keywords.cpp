#include "perforce/Keywords.h"

#include <cstring>

namespace ORVANE {
namespace IMP {

namespace {

// Every keyword that +k expands, as the file type reference lists them;
// +ko expands the first two only.
const char* const s_apszKeywords[] = {"Id",         "Header", "Date", "DateUTC",  "DateTime", "DateTimeUTC",
                                      "DateTimeTZ", "Change", "File", "Revision", "Author"};
const size_t s_nIdOnly = 2;

} // namespace

TKeywordMode KeywordMode(const std::string& strType)
{
    const size_t nPlus = strType.find('+');
    const std::string strBase = strType.substr(0, nPlus);
    TKeywordMode eMode = eKeywordsNone;
    // The old names of the types: ktext, kxtext.
    if (strBase == "ktext" || strBase == "kxtext")
        eMode = eKeywordsAll;
    if (nPlus == std::string::npos)
        return eMode;
    const std::string strModifiers = strType.substr(nPlus + 1);
    const size_t nK = strModifiers.find('k');
    if (nK == std::string::npos)
        return eMode;
    return nK + 1 < strModifiers.size() && strModifiers[nK + 1] == 'o' ? eKeywordsIdOnly : eKeywordsAll;
}

bool CollapseKeywords(std::string& strText, TKeywordMode eMode)
{
    if (eMode == eKeywordsNone || strText.find('$') == std::string::npos)
        return false;
    const size_t nKeywords = eMode == eKeywordsIdOnly ? s_nIdOnly : sizeof(s_apszKeywords) / sizeof(s_apszKeywords[0]);
    std::string strOut;
    bool bChanged = false;
    size_t nCopied = 0;
    size_t nPos = strText.find('$');
    while (nPos != std::string::npos)
    {
        size_t nNext = nPos + 1;
        for (size_t i = 0; i < nKeywords; ++i)
        {
            const size_t nLength = std::strlen(s_apszKeywords[i]);
            const size_t nColon = nPos + 1 + nLength;
            // "$Keyword: value $": the value runs to the next '$' on the line.
            if (strText.compare(nPos + 1, nLength, s_apszKeywords[i]) != 0 || nColon >= strText.size() ||
                strText[nColon] != ':')
                continue;
            const size_t nEnd = strText.find_first_of("$\n", nColon + 1);
            if (nEnd == std::string::npos || strText[nEnd] != '$')
                break;
            strOut.append(strText, nCopied, nPos - nCopied);
            strOut += "$" + std::string(s_apszKeywords[i]) + "$";
            nCopied = nEnd + 1;
            nNext = nEnd + 1;
            bChanged = true;
            break;
        }
        nPos = strText.find('$', nNext);
    }
    if (!bChanged)
        return false;
    strOut.append(strText, nCopied, std::string::npos);
    strText.swap(strOut);
    return true;
}

} // namespace IMP
} // namespace ORVANE
