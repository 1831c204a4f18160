// Perforce file types as `p4 help filetypes` describes them: a base type
// (text, binary, symlink, unicode, utf8, utf16, apple, resource) with
// modifiers (+x +w +k +ko +l +m +C +D +F +S +S<n> +X), or one of the older
// names (ktext, kxtext, xtext, ubinary, xbinary, tempobj, ...). And what the
// types do to a file's bytes: RCS keyword expansion, and the form a client
// writes (symbolic links, UTF-16 with a byte order mark, UTF-8 with one).
#pragma once

#include <string>

namespace ORVANE {
namespace P4SIM {

enum TKeywordMode
{
    eKeywordsNone,
    eKeywordsAll,    // +k
    eKeywordsIdOnly, // +ko: $Id$ and $Header$ only
};

struct TFileType
{
    std::string strBase;      // text binary symlink unicode utf8 utf16 apple resource
    bool bExecutable = false; // +x
    bool bWritable = false;   // +w
    bool bModTime = false;    // +m
    TKeywordMode eKeywords = eKeywordsNone;
    int nStoredRevisions = 0; // +S: 1, +S<n>: n, 0: every revision kept

    bool IsSymlink() const { return strBase == "symlink"; }
    bool IsUtf16() const { return strBase == "utf16"; }
    bool IsUtf8() const { return strBase == "utf8"; }
    bool IsUnicode() const { return strBase == "unicode"; }
    // Line ends are translated for these (text and the Unicode kinds).
    bool IsText() const { return strBase == "text" || strBase == "unicode" || strBase == "utf8" || strBase == "utf16"; }
};

// The type as the server understands it; an unknown name is taken as text
// with no modifiers.
TFileType ParseFileType(const std::string& strType);

// What a keyword expands to, for one revision: the depot path, the change's
// user and time.
struct TKeywordSource
{
    std::string strDepotFile;
    long long nRev = 0, nChange = 0, nTime = 0;
    std::string strAuthor;
};

// The content with its RCS keywords expanded ("$Id: //depot/a.c#3 $"),
// whether they were stored as "$Id$", "$Id:$" or already expanded.
std::string ExpandKeywords(const std::string& strData, TKeywordMode eMode, const TKeywordSource& tSource);
// The content with its expanded keywords back to "$Id$": what the server
// stores for a +k file.
std::string ContractKeywords(const std::string& strData, TKeywordMode eMode);

// The bytes of UTF-8 text as UTF-16 in little-endian order (an x86 client's
// byte order), after a byte order mark. Bytes that are not UTF-8 become
// U+FFFD.
std::string Utf8ToUtf16Le(const std::string& strUtf8);
// UTF-16 with a byte order mark (either order) as UTF-8; false when the
// bytes do not start with a byte order mark.
bool Utf16ToUtf8(const std::string& strUtf16, std::string& strUtf8);

extern const char* const g_pszUtf8Bom;

} // namespace P4SIM
} // namespace ORVANE
