#include "FileTypes.h"

#include "Text.h"

#include <cctype>
#include <ctime>

namespace ORVANE {
namespace P4SIM {

const char* const g_pszUtf8Bom = "\xEF\xBB\xBF";

namespace {

// The older type names and the base type with modifiers each stands for.
struct TOldName
{
    const char* pszName;
    const char* pszBase;
    const char* pszModifiers;
};

const TOldName s_atOldNames[] = {
    {"ctempobj", "binary", "Sw"},  {"ctext", "text", "C"},     {"cxtext", "text", "Cx"},
    {"ktext", "text", "k"},        {"kxtext", "text", "kx"},   {"ltext", "text", "F"},
    {"tempobj", "binary", "FSw"},  {"ubinary", "binary", "F"}, {"uresource", "resource", "F"},
    {"uxbinary", "binary", "Fx"},  {"xbinary", "binary", "x"}, {"xltext", "text", "Fx"},
    {"xtempobj", "binary", "Swx"}, {"xtext", "text", "x"},     {"xunicode", "unicode", "x"},
    {"xutf16", "utf16", "x"},
};

void ApplyModifiers(TFileType& tType, const std::string& strModifiers)
{
    for (size_t i = 0; i < strModifiers.size(); ++i)
    {
        switch (strModifiers[i])
        {
        case 'x':
            tType.bExecutable = true;
            break;
        case 'w':
            tType.bWritable = true;
            break;
        case 'm':
            tType.bModTime = true;
            break;
        case 'k':
            if (i + 1 < strModifiers.size() && strModifiers[i + 1] == 'o')
            {
                tType.eKeywords = eKeywordsIdOnly;
                ++i;
            }
            else
                tType.eKeywords = eKeywordsAll;
            break;
        case 'S':
        {
            int nCount = 0;
            while (i + 1 < strModifiers.size() && std::isdigit(static_cast<unsigned char>(strModifiers[i + 1])))
                nCount = nCount * 10 + (strModifiers[++i] - '0');
            tType.nStoredRevisions = nCount > 0 ? nCount : 1;
            break;
        }
        default:
            break; // +l +C +D +F +X: locking and storage, nothing a client sees
        }
    }
}

// The keywords of RCS expansion, in the order the reference lists them.
const char* const s_apszKeywords[] = {"Id",         "Header", "Date", "DateUTC",  "DateTime", "DateTimeUTC",
                                      "DateTimeTZ", "Change", "File", "Revision", "Author"};

bool ExpandsUnder(const std::string& strKeyword, TKeywordMode eMode)
{
    if (eMode == eKeywordsAll)
        return true;
    return eMode == eKeywordsIdOnly && (strKeyword == "Id" || strKeyword == "Header");
}

std::string FormatTimeIn(long long nTime, const char* pszFormat, bool bUtc)
{
    time_t tTime = time_t(nTime);
    struct tm tmOut;
    if (bUtc)
        gmtime_r(&tTime, &tmOut);
    else
        localtime_r(&tTime, &tmOut);
    char szBuffer[80];
    strftime(szBuffer, sizeof szBuffer, pszFormat, &tmOut);
    return szBuffer;
}

std::string KeywordValue(const std::string& strKeyword, const TKeywordSource& tSource)
{
    if (strKeyword == "Id" || strKeyword == "Header")
        return tSource.strDepotFile + "#" + Num(tSource.nRev);
    if (strKeyword == "Date")
        return FormatTimeIn(tSource.nTime, "%Y/%m/%d", false);
    if (strKeyword == "DateUTC")
        return FormatTimeIn(tSource.nTime, "%Y/%m/%d", true);
    if (strKeyword == "DateTime")
        return FormatTimeIn(tSource.nTime, "%Y/%m/%d %H:%M:%S", false);
    if (strKeyword == "DateTimeUTC")
        return FormatTimeIn(tSource.nTime, "%Y/%m/%d %H:%M:%S", true);
    if (strKeyword == "DateTimeTZ")
        return FormatTimeIn(tSource.nTime, "%Y/%m/%d %H:%M:%S %z %Z", false);
    if (strKeyword == "Change")
        return Num(tSource.nChange);
    if (strKeyword == "File")
        return tSource.strDepotFile;
    if (strKeyword == "Revision")
        return "#" + Num(tSource.nRev);
    return tSource.strAuthor;
}

// Rewrites every keyword that eMode expands, at "$" positions: "$Name$",
// "$Name:$" or "$Name: text $" (the text on one line, without "$").
template <class F> std::string RewriteKeywords(const std::string& strData, TKeywordMode eMode, F fnReplacement)
{
    if (eMode == eKeywordsNone || strData.find('$') == std::string::npos)
        return strData;
    std::string strOut;
    strOut.reserve(strData.size() + 64);
    size_t i = 0;
    while (i < strData.size())
    {
        size_t nDollar = strData.find('$', i);
        if (nDollar == std::string::npos)
            break;
        strOut.append(strData, i, nDollar - i);
        size_t nNameEnd = nDollar + 1;
        while (nNameEnd < strData.size() && std::isalpha(static_cast<unsigned char>(strData[nNameEnd])))
            ++nNameEnd;
        const std::string strName = strData.substr(nDollar + 1, nNameEnd - nDollar - 1);
        size_t nClose = std::string::npos;
        if (ExpandsUnder(strName, eMode) && nNameEnd < strData.size())
        {
            bool bKnown = false;
            for (const char* pszKeyword : s_apszKeywords)
                bKnown = bKnown || strName == pszKeyword;
            if (bKnown && strData[nNameEnd] == '$')
                nClose = nNameEnd;
            else if (bKnown && strData[nNameEnd] == ':')
            {
                size_t nEnd = strData.find_first_of("$\n", nNameEnd + 1);
                if (nEnd != std::string::npos && strData[nEnd] == '$')
                    nClose = nEnd;
            }
        }
        if (nClose == std::string::npos)
        {
            strOut += '$';
            i = nDollar + 1;
            continue;
        }
        strOut += fnReplacement(strName);
        i = nClose + 1;
    }
    if (i < strData.size())
        strOut.append(strData, i, std::string::npos);
    return strOut;
}

void PutUtf16(std::string& strOut, unsigned long nCode)
{
    auto fnUnit = [&strOut](unsigned long nUnit) {
        strOut += char(nUnit & 0xFF);
        strOut += char((nUnit >> 8) & 0xFF);
    };
    if (nCode >= 0x10000)
    {
        nCode -= 0x10000;
        fnUnit(0xD800 + (nCode >> 10));
        fnUnit(0xDC00 + (nCode & 0x3FF));
    }
    else
        fnUnit(nCode);
}

void PutUtf8(std::string& strOut, unsigned long nCode)
{
    if (nCode < 0x80)
        strOut += char(nCode);
    else if (nCode < 0x800)
    {
        strOut += char(0xC0 | (nCode >> 6));
        strOut += char(0x80 | (nCode & 0x3F));
    }
    else if (nCode < 0x10000)
    {
        strOut += char(0xE0 | (nCode >> 12));
        strOut += char(0x80 | ((nCode >> 6) & 0x3F));
        strOut += char(0x80 | (nCode & 0x3F));
    }
    else
    {
        strOut += char(0xF0 | (nCode >> 18));
        strOut += char(0x80 | ((nCode >> 12) & 0x3F));
        strOut += char(0x80 | ((nCode >> 6) & 0x3F));
        strOut += char(0x80 | (nCode & 0x3F));
    }
}

} // namespace

TFileType ParseFileType(const std::string& strType)
{
    TFileType tType;
    size_t nPlus = strType.find('+');
    std::string strBase = strType.substr(0, nPlus);
    std::string strModifiers = nPlus == std::string::npos ? std::string() : strType.substr(nPlus + 1);
    tType.strBase = strBase;
    for (const TOldName& tOld : s_atOldNames)
    {
        if (strBase == tOld.pszName)
        {
            tType.strBase = tOld.pszBase;
            ApplyModifiers(tType, tOld.pszModifiers);
        }
    }
    static const char* const s_apszBases[] = {"text", "binary", "symlink", "unicode",
                                              "utf8", "utf16",  "apple",   "resource"};
    bool bKnown = false;
    for (const char* pszBase : s_apszBases)
        bKnown = bKnown || tType.strBase == pszBase;
    if (!bKnown)
        tType.strBase = "text";
    ApplyModifiers(tType, strModifiers);
    return tType;
}

std::string ExpandKeywords(const std::string& strData, TKeywordMode eMode, const TKeywordSource& tSource)
{
    return RewriteKeywords(strData, eMode, [&](const std::string& strName) {
        return "$" + strName + ": " + KeywordValue(strName, tSource) + " $";
    });
}

std::string ContractKeywords(const std::string& strData, TKeywordMode eMode)
{
    return RewriteKeywords(strData, eMode, [](const std::string& strName) { return "$" + strName + "$"; });
}

std::string Utf8ToUtf16Le(const std::string& strUtf8)
{
    std::string strOut = "\xFF\xFE";
    strOut.reserve(2 + strUtf8.size() * 2);
    for (size_t i = 0; i < strUtf8.size();)
    {
        const unsigned char c = static_cast<unsigned char>(strUtf8[i]);
        size_t nMore = 9;
        if (c < 0x80)
            nMore = 0;
        else if (c >= 0xC2 && c <= 0xDF)
            nMore = 1;
        else if (c >= 0xE0 && c <= 0xEF)
            nMore = 2;
        else if (c >= 0xF0 && c <= 0xF4)
            nMore = 3;
        const std::string strChar = nMore <= 3 && i + nMore < strUtf8.size() ? strUtf8.substr(i, nMore + 1) : "";
        if (strChar.empty() || !IsUtf8(strChar))
        {
            PutUtf16(strOut, 0xFFFD);
            ++i;
            continue;
        }
        unsigned long nCode = nMore == 0 ? c : (c & (0x3F >> nMore));
        for (size_t n = 1; n <= nMore; ++n)
            nCode = (nCode << 6) | (static_cast<unsigned char>(strChar[n]) & 0x3F);
        PutUtf16(strOut, nCode);
        i += nMore + 1;
    }
    return strOut;
}

bool Utf16ToUtf8(const std::string& strUtf16, std::string& strUtf8)
{
    if (strUtf16.size() < 2)
        return false;
    const unsigned char c0 = static_cast<unsigned char>(strUtf16[0]), c1 = static_cast<unsigned char>(strUtf16[1]);
    bool bLittle = c0 == 0xFF && c1 == 0xFE;
    if (!bLittle && !(c0 == 0xFE && c1 == 0xFF))
        return false;
    strUtf8.clear();
    auto fnUnit = [&](size_t i) -> unsigned long {
        const unsigned char a = static_cast<unsigned char>(strUtf16[i]),
                            b = static_cast<unsigned char>(strUtf16[i + 1]);
        return bLittle ? (unsigned long)(a | (b << 8)) : (unsigned long)((a << 8) | b);
    };
    for (size_t i = 2; i + 1 < strUtf16.size(); i += 2)
    {
        unsigned long nCode = fnUnit(i);
        if (nCode >= 0xD800 && nCode <= 0xDBFF && i + 3 < strUtf16.size())
        {
            unsigned long nLow = fnUnit(i + 2);
            if (nLow >= 0xDC00 && nLow <= 0xDFFF)
            {
                nCode = 0x10000 + ((nCode - 0xD800) << 10) + (nLow - 0xDC00);
                i += 2;
            }
        }
        PutUtf8(strUtf8, nCode);
    }
    return true;
}

} // namespace P4SIM
} // namespace ORVANE
