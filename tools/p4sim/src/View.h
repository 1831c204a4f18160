// Perforce views: mapping lines with the wildcards "...", "*" and %%1 to
// %%9, exclusion lines (-), later lines taking precedence over earlier
// ones, and file specifications with the same wildcards.
#pragma once

#include <string>
#include <vector>

namespace p4sim {

// Does path match pattern (wildcards ..., * and %%n)? Case-sensitive, as a
// server on Linux compares.
bool WildMatch(const std::string& pattern, const std::string& path);
bool HasWildcards(const std::string& pattern);
// The text of pattern before its first wildcard.
std::string LiteralPrefix(const std::string& pattern);

struct MapLine {
    bool exclude = false;
    std::string left, right;
};

// Splits one view line into its two paths: blanks separate them, double
// quotes protect blanks, a leading - or + (inside or outside the quotes)
// marks exclusion or overlay. Returns false for a line that is not two
// paths.
bool ParseViewLine(const std::string& line, MapLine& out);
// The view line as a server writes it back: quoted only when a path holds
// a blank.
std::string FormatViewLine(const MapLine& line);

class MapTable {
public:
    MapTable() = default;
    explicit MapTable(const std::vector<MapLine>& lines) : m_lines(lines) {}
    void Add(const MapLine& l) { m_lines.push_back(l); }
    const std::vector<MapLine>& Lines() const { return m_lines; }

    // Left to right (depot to client): the mapped path, or false when no
    // line maps it or the last matching line excludes it.
    bool Translate(const std::string& left, std::string& right) const;
    // Right to left (client to depot).
    bool TranslateBack(const std::string& right, std::string& left) const;

    // Literal depot-side prefixes that can hold the depot files whose client
    // path could start with clientPrefix: a narrow range for each line.
    std::vector<std::string> LeftPrefixesFor(const std::string& rightPrefix) const;

private:
    std::vector<MapLine> m_lines;
};

}  // namespace p4sim
