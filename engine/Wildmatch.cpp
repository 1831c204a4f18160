#include "Wildmatch.h"

#include <cstring>

namespace ORVANE {
namespace IMP {

namespace {

// How a match attempt ended. The two aborts let a star give up early: no
// later start in the text can do better ("abort all"), or only a "**"
// further out can ("abort to **").
enum TMatch
{
    eMatch,
    eNoMatch,
    eAbortAll,
    eAbortToStarStar
};

bool IsDigit(unsigned char c)
{
    return c >= '0' && c <= '9';
}

bool IsUpper(unsigned char c)
{
    return c >= 'A' && c <= 'Z';
}

bool IsLower(unsigned char c)
{
    return c >= 'a' && c <= 'z';
}

bool IsAlnum(unsigned char c)
{
    return IsDigit(c) || IsUpper(c) || IsLower(c);
}

// Whether the byte is in the named class; bKnown false for a name that is
// no class. ASCII only, as git has it (its "space" is blank, tab, CR, LF).
bool InClass(const std::string& strName, unsigned char c, bool& bKnown)
{
    bKnown = true;
    if (strName == "alnum")
        return IsAlnum(c);
    if (strName == "alpha")
        return IsUpper(c) || IsLower(c);
    if (strName == "blank")
        return c == ' ' || c == '\t';
    if (strName == "cntrl")
        return c < 0x20 || c == 0x7f;
    if (strName == "digit")
        return IsDigit(c);
    if (strName == "graph")
        return c > 0x20 && c < 0x7f;
    if (strName == "lower")
        return IsLower(c);
    if (strName == "print")
        return c >= 0x20 && c < 0x7f;
    if (strName == "punct")
        return c > 0x20 && c < 0x7f && !IsAlnum(c);
    if (strName == "space")
        return c == ' ' || c == '\t' || c == '\n' || c == '\r';
    if (strName == "upper")
        return IsUpper(c);
    if (strName == "xdigit")
        return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    bKnown = false;
    return false;
}

// The bracket expression at p (its '[') against the byte c; p is left on
// its closing ']'.
TMatch MatchBracket(const unsigned char*& p, unsigned char c, bool bPathname)
{
    ++p;
    const bool bNegated = *p == '!' || *p == '^';
    if (bNegated)
        ++p;
    bool bMatched = false;
    unsigned char cPrevious = 0; // where a range would start; 0: none
    // The first member may be ']' itself.
    do
    {
        unsigned char cMember = *p;
        if (cMember == '\0')
            return eAbortAll;
        if (cMember == '\\')
        {
            cMember = *++p;
            if (cMember == '\0')
                return eAbortAll;
            bMatched = bMatched || c == cMember;
        }
        else if (cMember == '-' && cPrevious && p[1] && p[1] != ']')
        {
            cMember = *++p;
            if (cMember == '\\' && (cMember = *++p) == '\0')
                return eAbortAll;
            bMatched = bMatched || (c >= cPrevious && c <= cMember);
            cMember = 0; // no range starts at the end of one
        }
        else if (cMember == '[' && p[1] == ':')
        {
            const unsigned char* pName = p + 2;
            const unsigned char* pEnd = pName;
            while (*pEnd && *pEnd != ']')
                ++pEnd;
            if (!*pEnd)
                return eAbortAll;
            if (pEnd == pName || pEnd[-1] != ':')
            {
                // No ":]": the '[' is an ordinary member.
                bMatched = bMatched || c == '[';
            }
            else
            {
                bool bKnown = false;
                bMatched = InClass(std::string(pName, pEnd - 1), c, bKnown) || bMatched;
                if (!bKnown)
                    return eAbortAll;
                p = pEnd;
                cMember = 0;
            }
        }
        else
            bMatched = bMatched || c == cMember;
        cPrevious = cMember;
    } while (*++p != ']');
    return bMatched == bNegated || (bPathname && c == '/') ? eNoMatch : eMatch;
}

TMatch Match(const unsigned char* p, const unsigned char* t, const unsigned char* pStart, bool bPathname)
{
    for (; *p; ++p, ++t)
    {
        if (*t == '\0' && *p != '*')
            return eAbortAll;
        switch (*p)
        {
        case '\\':
            // The next byte stands for itself; a backslash at the end
            // matches nothing.
            ++p;
            if (*p == '\0' || *t != *p)
                return eNoMatch;
            break;
        case '?':
            if (bPathname && *t == '/')
                return eNoMatch;
            break;
        case '[':
        {
            const TMatch eBracket = MatchBracket(p, *t, bPathname);
            if (eBracket != eMatch)
                return eBracket;
            break;
        }
        case '*':
        {
            // Whether the stars may match '/': "**" as a whole path
            // component may, as does any star without bPathname.
            bool bSlash = !bPathname;
            const unsigned char* pFirst = p;
            while (p[1] == '*')
                ++p;
            const unsigned char* pNext = p + 1;
            if (p != pFirst && (pFirst == pStart || pFirst[-1] == '/') &&
                (*pNext == '\0' || *pNext == '/' || (pNext[0] == '\\' && pNext[1] == '/')))
            {
                // "**/" may match no folder at all.
                if (*pNext == '/' && Match(pNext + 1, t, pStart, bPathname) == eMatch)
                    return eMatch;
                bSlash = true;
            }
            p = pNext;
            if (*p == '\0')
                return !bSlash && std::strchr(reinterpret_cast<const char*>(t), '/') ? eAbortToStarStar : eMatch;
            if (!bSlash && *p == '/')
            {
                // "*/": the star takes everything up to the next '/', which
                // the loop then matches.
                const char* pSlash = std::strchr(reinterpret_cast<const char*>(t), '/');
                if (!pSlash)
                    return eAbortAll;
                t = reinterpret_cast<const unsigned char*>(pSlash);
                break;
            }
            for (; *t; ++t)
            {
                const TMatch eRest = Match(p, t, pStart, bPathname);
                if (eRest != eNoMatch)
                {
                    if (!bSlash || eRest != eAbortToStarStar)
                        return eRest;
                }
                else if (!bSlash && *t == '/')
                    return eAbortToStarStar;
            }
            return eAbortAll;
        }
        default:
            if (*t != *p)
                return eNoMatch;
            break;
        }
    }
    return *t ? eNoMatch : eMatch;
}

} // namespace

bool WildMatch(const std::string& strPattern, const std::string& strText, bool bPathname)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strPattern.c_str());
    return Match(p, reinterpret_cast<const unsigned char*>(strText.c_str()), p, bPathname) == eMatch;
}

} // namespace IMP
} // namespace ORVANE
