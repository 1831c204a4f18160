#include "View.h"

#include "Text.h"

#include <algorithm>
#include <utility>

namespace ORVANE {
namespace P4SIM {

namespace {

enum TTokenKind
{
    eTokenLiteral,
    eTokenDots,
    eTokenStar,
    eTokenPercent
};

struct TToken
{
    TTokenKind eKind;
    char c;     // for eTokenLiteral
    int nIndex; // for eTokenPercent
};

std::vector<TToken> Tokenize(const std::string& strPattern)
{
    std::vector<TToken> atOut;
    for (size_t i = 0; i < strPattern.size();)
    {
        char c = strPattern[i];
        if (strPattern.compare(i, 3, "...") == 0)
        {
            atOut.push_back({eTokenDots, 0, 0});
            i += 3;
        }
        else if (c == '*')
        {
            atOut.push_back({eTokenStar, 0, 0});
            i += 1;
        }
        else if (c == '%' && i + 2 < strPattern.size() && strPattern[i + 1] == '%' && strPattern[i + 2] >= '0' &&
                 strPattern[i + 2] <= '9')
        {
            atOut.push_back({eTokenPercent, 0, strPattern[i + 2] - '0'});
            i += 3;
        }
        else
        {
            atOut.push_back({eTokenLiteral, c, 0});
            i += 1;
        }
    }
    return atOut;
}

struct TCaptures
{
    std::vector<std::string> astrDots, astrStars;
    std::string astrPercent[10];
};

using TSpans = std::vector<std::pair<size_t, size_t>>;

// Backtracking match of atTokens[nToken..] against str[nPos..], recording
// the span of each wildcard in the order they occur.
bool Match(const std::vector<TToken>& atTokens, size_t nToken, const std::string& str, size_t nPos, TSpans& aSpans)
{
    while (nToken < atTokens.size() && atTokens[nToken].eKind == eTokenLiteral)
    {
        if (nPos >= str.size() || !SameChar(str[nPos], atTokens[nToken].c))
            return false;
        ++nToken;
        ++nPos;
    }
    if (nToken == atTokens.size())
        return nPos == str.size();
    bool bAnySlash = atTokens[nToken].eKind == eTokenDots;
    // Longest first, as the server's "..." and "*" are greedy.
    size_t nMaxEnd = nPos;
    while (nMaxEnd < str.size() && (bAnySlash || str[nMaxEnd] != '/'))
        ++nMaxEnd;
    for (size_t nEnd = nMaxEnd + 1; nEnd-- > nPos;)
    {
        aSpans.push_back({nPos, nEnd - nPos});
        if (Match(atTokens, nToken + 1, str, nEnd, aSpans))
            return true;
        aSpans.pop_back();
    }
    return false;
}

bool MatchCapture(const std::string& strPattern, const std::string& str, TCaptures* pCaptures)
{
    std::vector<TToken> atTokens = Tokenize(strPattern);
    TSpans aSpans;
    if (!Match(atTokens, 0, str, 0, aSpans))
        return false;
    if (!pCaptures)
        return true;
    size_t nSpan = 0;
    for (const TToken& tToken : atTokens)
    {
        if (tToken.eKind == eTokenLiteral)
            continue;
        std::string strValue = str.substr(aSpans[nSpan].first, aSpans[nSpan].second);
        ++nSpan;
        if (tToken.eKind == eTokenDots)
            pCaptures->astrDots.push_back(strValue);
        else if (tToken.eKind == eTokenStar)
            pCaptures->astrStars.push_back(strValue);
        else
            pCaptures->astrPercent[tToken.nIndex] = strValue;
    }
    return true;
}

std::string Substitute(const std::string& strPattern, const TCaptures& tCaptures)
{
    std::string strOut;
    size_t nDots = 0, nStars = 0;
    for (const TToken& tToken : Tokenize(strPattern))
    {
        switch (tToken.eKind)
        {
        case eTokenLiteral:
            strOut += tToken.c;
            break;
        case eTokenDots:
            strOut += nDots < tCaptures.astrDots.size() ? tCaptures.astrDots[nDots++] : std::string();
            break;
        case eTokenStar:
            strOut += nStars < tCaptures.astrStars.size() ? tCaptures.astrStars[nStars++] : std::string();
            break;
        case eTokenPercent:
            strOut += tCaptures.astrPercent[tToken.nIndex];
            break;
        }
    }
    return strOut;
}

bool TranslateWith(const std::vector<TMapLine>& atLines, const std::string& strIn, std::string& strOut, bool bForward)
{
    for (size_t i = atLines.size(); i-- > 0;)
    {
        const TMapLine& tLine = atLines[i];
        TCaptures tCaptures;
        if (!MatchCapture(bForward ? tLine.strLeft : tLine.strRight, strIn, &tCaptures))
            continue;
        if (tLine.bExclude)
            return false;
        strOut = Substitute(bForward ? tLine.strRight : tLine.strLeft, tCaptures);
        return true;
    }
    return false;
}

// "PREFIX..." with no other wildcard.
bool IsPlainTree(const std::string& strPattern)
{
    return EndsWith(strPattern, "...") && LiteralPrefix(strPattern).size() + 3 == strPattern.size();
}

// One word of a view line: quoted (blanks allowed) or up to the next blank.
std::string ReadViewWord(const std::string& strLine, size_t& i)
{
    std::string strWord;
    if (strLine[i] == '"')
    {
        ++i;
        while (i < strLine.size() && strLine[i] != '"')
            strWord += strLine[i++];
        if (i < strLine.size())
            ++i;
        return strWord;
    }
    while (i < strLine.size() && strLine[i] != ' ' && strLine[i] != '\t' && strLine[i] != '\r' && strLine[i] != '\n')
        strWord += strLine[i++];
    return strWord;
}

} // namespace

bool WildMatch(const std::string& strPattern, const std::string& strPath)
{
    return MatchCapture(strPattern, strPath, nullptr);
}

std::string LiteralPrefix(const std::string& strPattern)
{
    size_t nEnd = strPattern.size();
    for (const char* pszWild : {"...", "*", "%%"})
        nEnd = std::min(nEnd, strPattern.find(pszWild));
    return strPattern.substr(0, nEnd);
}

bool ParseViewLine(const std::string& strLine, TMapLine& tOut)
{
    std::vector<std::string> astrWords;
    bool bExclude = false;
    size_t i = 0;
    while (i < strLine.size())
    {
        char c = strLine[i];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
        {
            ++i;
            continue;
        }
        // -"..." and +"...": the mark outside the quotes.
        if ((c == '-' || c == '+') && i + 1 < strLine.size() && strLine[i + 1] == '"' && astrWords.empty())
        {
            bExclude = bExclude || c == '-';
            ++i;
        }
        std::string strWord = ReadViewWord(strLine, i);
        if (astrWords.empty() && !strWord.empty() && (strWord[0] == '-' || strWord[0] == '+'))
        {
            bExclude = bExclude || strWord[0] == '-';
            strWord.erase(0, 1);
        }
        astrWords.push_back(strWord);
    }
    if (astrWords.size() != 2 || astrWords[0].empty() || astrWords[1].empty())
        return false;
    tOut.bExclude = bExclude;
    tOut.strLeft = astrWords[0];
    tOut.strRight = astrWords[1];
    return true;
}

std::string FormatViewLine(const TMapLine& tLine)
{
    auto fnSide = [](const std::string& strPath, bool bMinus) {
        std::string str = (bMinus ? "-" : "") + strPath;
        if (strPath.find(' ') != std::string::npos || strPath.find('\t') != std::string::npos)
            return "\"" + str + "\"";
        return str;
    };
    return fnSide(tLine.strLeft, tLine.bExclude) + " " + fnSide(tLine.strRight, false);
}

bool CMapTable::Translate(const std::string& strLeft, std::string& strRight) const
{
    return TranslateWith(m_atLines, strLeft, strRight, true);
}

bool CMapTable::TranslateBack(const std::string& strRight, std::string& strLeft) const
{
    return TranslateWith(m_atLines, strRight, strLeft, false);
}

std::vector<std::string> CMapTable::LeftPrefixesFor(const std::string& strRightPrefix) const
{
    std::vector<std::string> astrOut;
    for (const TMapLine& tLine : m_atLines)
    {
        if (tLine.bExclude)
            continue;
        std::string strRightLiteral = LiteralPrefix(tLine.strRight), strLeftLiteral = LiteralPrefix(tLine.strLeft);
        if (PathStartsWith(strRightPrefix, strRightLiteral))
        {
            // When both sides end in a single trailing "...", the part of the
            // prefix beyond the right literal carries over to the left.
            if (tLine.strRight == strRightLiteral + "..." && tLine.strLeft == strLeftLiteral + "...")
                astrOut.push_back(strLeftLiteral + strRightPrefix.substr(strRightLiteral.size()));
            else
                astrOut.push_back(strLeftLiteral);
        }
        else if (PathStartsWith(strRightLiteral, strRightPrefix))
        {
            astrOut.push_back(strLeftLiteral);
        }
    }
    // Prefixes covered by shorter ones go.
    std::sort(astrOut.begin(), astrOut.end(), PathLess);
    std::vector<std::string> astrKept;
    for (const std::string& strPrefix : astrOut)
    {
        if (astrKept.empty() || !PathStartsWith(strPrefix, astrKept.back()))
            astrKept.push_back(strPrefix);
    }
    return astrKept;
}

bool CMapTable::IsOneToOne() const
{
    std::vector<std::string> astrRights;
    for (const TMapLine& tLine : m_atLines)
    {
        if (tLine.bExclude)
            continue;
        if (!IsPlainTree(tLine.strLeft) || !IsPlainTree(tLine.strRight))
            return false;
        astrRights.push_back(LiteralPrefix(tLine.strRight));
    }
    for (size_t i = 0; i < astrRights.size(); ++i)
    {
        for (size_t k = 0; k < astrRights.size(); ++k)
        {
            if (i != k && PathStartsWith(astrRights[i], astrRights[k]))
                return false;
        }
    }
    return true;
}

} // namespace P4SIM
} // namespace ORVANE
