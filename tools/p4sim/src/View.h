// Perforce views: mapping lines with the wildcards "...", "*" and %%1 to
// %%9, exclusion lines (-), later lines taking precedence over earlier
// ones, and file specifications with the same wildcards.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// Does strPath match strPattern (wildcards ..., * and %%n)? Case-sensitive,
// as a server on Linux compares, unless the server's case handling is
// insensitive (see SetCaseInsensitive).
bool WildMatch(const std::string& strPattern, const std::string& strPath);
// The text of a pattern before its first wildcard.
std::string LiteralPrefix(const std::string& strPattern);

struct TMapLine
{
    bool bExclude = false;
    std::string strLeft, strRight;
};

// Splits one view line into its two paths: blanks separate them, double
// quotes protect blanks, a leading - or + (inside or outside the quotes)
// marks exclusion or overlay. Returns false for a line that is not two
// paths.
bool ParseViewLine(const std::string& strLine, TMapLine& tOut);
// The view line as a server writes it back: quoted only when a path holds
// a blank.
std::string FormatViewLine(const TMapLine& tLine);

class CMapTable
{
public:
    void Add(const TMapLine& tLine) { m_atLines.push_back(tLine); }

    // Left to right (depot to client): the mapped path, or false when no
    // line maps it or the last matching line excludes it.
    bool Translate(const std::string& strLeft, std::string& strRight) const;
    // Right to left (client to depot).
    bool TranslateBack(const std::string& strRight, std::string& strLeft) const;

    // Literal depot-side prefixes that can hold the depot files whose client
    // path could start with strRightPrefix: a narrow range for each line.
    std::vector<std::string> LeftPrefixesFor(const std::string& strRightPrefix) const;

    // True when no two depot files can map to the same client file: every
    // mapping line is "LEFT/... RIGHT/..." with no other wildcard, and no
    // line's right side lies inside another's.
    bool IsOneToOne() const;

private:
    std::vector<TMapLine> m_atLines;
};

} // namespace P4SIM
} // namespace ORVANE
