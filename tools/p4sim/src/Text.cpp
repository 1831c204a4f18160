#include "Text.h"

#include <algorithm>
#include <ctime>

namespace ORVANE {
namespace P4SIM {

namespace {

bool s_bCaseInsensitive = false;

char LowerAscii(char c)
{
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

int HexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string FormatTime(long long nTime, const char* pszFormat)
{
    time_t tTime = time_t(nTime);
    struct tm tmLocal;
    localtime_r(&tTime, &tmLocal);
    char szBuffer[64];
    strftime(szBuffer, sizeof szBuffer, pszFormat, &tmLocal);
    return szBuffer;
}

} // namespace

bool StartsWith(const std::string& str, const std::string& strPrefix)
{
    return str.size() >= strPrefix.size() && str.compare(0, strPrefix.size(), strPrefix) == 0;
}

bool EndsWith(const std::string& str, const std::string& strSuffix)
{
    return str.size() >= strSuffix.size() &&
           str.compare(str.size() - strSuffix.size(), strSuffix.size(), strSuffix) == 0;
}

std::string ToLower(std::string str)
{
    for (char& c : str)
    {
        if (c >= 'A' && c <= 'Z')
            c = char(c - 'A' + 'a');
    }
    return str;
}

std::vector<std::string> SplitWords(const std::string& str)
{
    std::vector<std::string> astrOut;
    std::string strWord;
    for (char c : str)
    {
        if (!IsBlank(c))
        {
            strWord += c;
            continue;
        }
        if (!strWord.empty())
            astrOut.push_back(strWord);
        strWord.clear();
    }
    if (!strWord.empty())
        astrOut.push_back(strWord);
    return astrOut;
}

std::string Trim(const std::string& str)
{
    size_t nBegin = 0, nEnd = str.size();
    while (nBegin < nEnd && IsBlank(str[nBegin]))
        ++nBegin;
    while (nEnd > nBegin && IsBlank(str[nEnd - 1]))
        --nEnd;
    return str.substr(nBegin, nEnd - nBegin);
}

bool ParseUInt(const std::string& str, long long& nOut)
{
    if (str.empty() || str.size() > 18)
        return false;
    long long nValue = 0;
    for (char c : str)
    {
        if (c < '0' || c > '9')
            return false;
        nValue = nValue * 10 + (c - '0');
    }
    nOut = nValue;
    return true;
}

std::string Num(long long n)
{
    return std::to_string(n);
}

std::string JoinLines(const std::vector<std::string>& astrLines)
{
    std::string strOut;
    for (size_t i = 0; i < astrLines.size(); ++i)
    {
        if (i)
            strOut += '\n';
        strOut += astrLines[i];
    }
    return strOut;
}

std::vector<std::string> SplitLines(const std::string& strText)
{
    std::vector<std::string> astrOut;
    if (strText.empty())
        return astrOut;
    size_t nStart = 0;
    while (true)
    {
        size_t nEnd = strText.find('\n', nStart);
        if (nEnd == std::string::npos)
        {
            astrOut.push_back(strText.substr(nStart));
            return astrOut;
        }
        astrOut.push_back(strText.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
}

std::string Indented(const std::string& strText)
{
    std::string strBody = !strText.empty() && strText.back() == '\n' ? strText.substr(0, strText.size() - 1) : strText;
    std::string strOut;
    for (const std::string& strLine : SplitLines(strBody))
        strOut += "\t" + strLine + "\n";
    return strOut;
}

std::string OneLine(std::string str)
{
    for (char& c : str)
    {
        if (c == '\n' || c == '\t' || c == '\r')
            c = ' ';
    }
    return str;
}

std::string Truncated(const std::string& str, size_t nMax)
{
    return str.size() > nMax ? str.substr(0, nMax) : str;
}

std::string PrefixEnd(const std::string& strPrefix)
{
    std::string strEnd = strPrefix;
    while (!strEnd.empty())
    {
        unsigned char c = static_cast<unsigned char>(strEnd.back());
        if (c < 0xFF)
        {
            strEnd.back() = char(c + 1);
            return strEnd;
        }
        strEnd.pop_back();
    }
    return std::string(8, '\xFF');
}

std::string EscapeName(const std::string& strName)
{
    std::string strOut;
    strOut.reserve(strName.size());
    for (char c : strName)
    {
        switch (c)
        {
        case '@':
            strOut += "%40";
            break;
        case '#':
            strOut += "%23";
            break;
        case '*':
            strOut += "%2A";
            break;
        case '%':
            strOut += "%25";
            break;
        default:
            strOut += c;
        }
    }
    return strOut;
}

std::string UnescapeName(const std::string& strName)
{
    std::string strOut;
    strOut.reserve(strName.size());
    for (size_t i = 0; i < strName.size(); ++i)
    {
        if (strName[i] == '%' && i + 2 < strName.size())
        {
            int nHigh = HexValue(strName[i + 1]), nLow = HexValue(strName[i + 2]);
            if (nHigh >= 0 && nLow >= 0)
            {
                strOut += char(nHigh * 16 + nLow);
                i += 2;
                continue;
            }
        }
        strOut += strName[i];
    }
    return strOut;
}

void SetCaseInsensitive(bool bInsensitive)
{
    s_bCaseInsensitive = bInsensitive;
}

bool CaseInsensitive()
{
    return s_bCaseInsensitive;
}

std::string FoldPath(const std::string& strPath)
{
    return s_bCaseInsensitive ? ToLower(strPath) : strPath;
}

bool SameChar(char cA, char cB)
{
    return cA == cB || (s_bCaseInsensitive && LowerAscii(cA) == LowerAscii(cB));
}

bool PathStartsWith(const std::string& strPath, const std::string& strPrefix)
{
    if (!s_bCaseInsensitive)
        return StartsWith(strPath, strPrefix);
    if (strPath.size() < strPrefix.size())
        return false;
    for (size_t i = 0; i < strPrefix.size(); ++i)
    {
        if (!SameChar(strPath[i], strPrefix[i]))
            return false;
    }
    return true;
}

bool PathLess(const std::string& strA, const std::string& strB)
{
    if (!s_bCaseInsensitive)
        return strA < strB;
    // As SQLite's NOCASE collation orders: letters folded, then bytes.
    const size_t nCommon = std::min(strA.size(), strB.size());
    for (size_t i = 0; i < nCommon; ++i)
    {
        const unsigned char cA = static_cast<unsigned char>(LowerAscii(strA[i]));
        const unsigned char cB = static_cast<unsigned char>(LowerAscii(strB[i]));
        if (cA != cB)
            return cA < cB;
    }
    return strA.size() < strB.size();
}

bool IsUtf8(const std::string& str)
{
    for (size_t i = 0; i < str.size();)
    {
        const unsigned char c = static_cast<unsigned char>(str[i]);
        size_t nMore = 0;
        unsigned long nCode = 0;
        if (c < 0x80)
            nMore = 0, nCode = c;
        else if (c >= 0xC2 && c <= 0xDF)
            nMore = 1, nCode = c & 0x1F;
        else if (c >= 0xE0 && c <= 0xEF)
            nMore = 2, nCode = c & 0x0F;
        else if (c >= 0xF0 && c <= 0xF4)
            nMore = 3, nCode = c & 0x07;
        else
            return false;
        if (i + nMore >= str.size())
            return false;
        for (size_t n = 1; n <= nMore; ++n)
        {
            const unsigned char cNext = static_cast<unsigned char>(str[i + n]);
            if ((cNext & 0xC0) != 0x80)
                return false;
            nCode = (nCode << 6) | (cNext & 0x3F);
        }
        static const unsigned long s_anLeast[] = {0, 0x80, 0x800, 0x10000};
        if (nCode < s_anLeast[nMore] || nCode > 0x10FFFF || (nCode >= 0xD800 && nCode <= 0xDFFF))
            return false;
        i += nMore + 1;
    }
    return true;
}

std::string FormatDate(long long nTime)
{
    return FormatTime(nTime, "%Y/%m/%d");
}

std::string FormatDateTime(long long nTime)
{
    return FormatTime(nTime, "%Y/%m/%d %H:%M:%S");
}

std::string FormatZone(long long nTime)
{
    return FormatTime(nTime, "%z %Z");
}

} // namespace P4SIM
} // namespace ORVANE
