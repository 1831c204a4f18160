// Text helpers shared by the parts of p4sim: words, numbers, lines, depot
// path escaping and the server's date formats.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

bool StartsWith(const std::string& str, const std::string& strPrefix);
bool EndsWith(const std::string& str, const std::string& strSuffix);
std::string ToLower(std::string str);
std::vector<std::string> SplitWords(const std::string& str); // on blanks, tabs and line ends
std::string Trim(const std::string& str);
bool ParseUInt(const std::string& str, long long& nOut); // decimal digits only
std::string Num(long long n);

// Lines joined by, and split at, "\n" (no final line end).
std::string JoinLines(const std::vector<std::string>& astrLines);
std::vector<std::string> SplitLines(const std::string& strText);

// Each line with a tab before it, as forms and long descriptions show text.
std::string Indented(const std::string& strText);
// Line ends and tabs as blanks: a description on one line.
std::string OneLine(std::string str);
// The first nMax bytes: descriptions in listings.
std::string Truncated(const std::string& str, size_t nMax);

// The smallest text greater than every text that starts with strPrefix,
// the end of a range scan on an index.
std::string PrefixEnd(const std::string& strPrefix);

// The server's escaping of the four characters that have a meaning in file
// specifications: @ %40, # %23, * %2A, % %25.
std::string EscapeName(const std::string& strName);
std::string UnescapeName(const std::string& strName);

// Case handling of the server's paths: a server whose caseHandling is
// "insensitive" compares paths (and matches views and wildcards) without
// ASCII case. Set once per process from the server's setting.
void SetCaseInsensitive(bool bInsensitive);
bool CaseInsensitive();
// ASCII letters to lower case when paths compare without case.
std::string FoldPath(const std::string& strPath);
bool PathStartsWith(const std::string& strPath, const std::string& strPrefix);
bool PathLess(const std::string& strA, const std::string& strB);
bool SameChar(char cA, char cB);

// Whether the bytes are well-formed UTF-8 (no overlong forms, surrogates or
// code points past U+10FFFF).
bool IsUtf8(const std::string& str);

// "2024/01/31" and "2024/01/31 12:34:56" in the server's time zone (the
// process's local zone, TZ honoured).
std::string FormatDate(long long nTime);
std::string FormatDateTime(long long nTime);
// "+0000 UTC": the zone as `info` shows it.
std::string FormatZone(long long nTime);

} // namespace P4SIM
} // namespace ORVANE
