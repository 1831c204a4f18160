// Pattern matching as git does it for .gitattributes and .gitignore
// (git's "wildmatch"): '?', '*', '**', bracket expressions with ranges,
// negation and [:classes:], and backslash escapes, on bytes.
#pragma once

#include <string>

namespace ORVANE {
namespace IMP {

// Whether the pattern matches the whole text. With bPathname, '*', '?' and
// bracket expressions never match '/', and "**" as a whole path component
// matches any number of folders ("a/**/b" matches "a/b" and "a/x/y/b",
// "**/b" matches "b", "a/**" everything below "a"); without it '*' matches
// '/' too. A malformed pattern (an unclosed bracket, an unknown class, a
// trailing backslash) matches nothing that would need the malformed part.
bool WildMatch(const std::string& strPattern, const std::string& strText, bool bPathname);

} // namespace IMP
} // namespace ORVANE
