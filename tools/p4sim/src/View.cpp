#include "View.h"

#include "Util.h"

#include <algorithm>

namespace p4sim {

namespace {

enum class Tok { Lit, Dots, Star, Pct };

struct Token {
    Tok kind;
    char ch;   // for Lit
    int num;   // for Pct
};

std::vector<Token> Tokenize(const std::string& p)
{
    std::vector<Token> out;
    for (size_t i = 0; i < p.size();) {
        if (p.compare(i, 3, "...") == 0) {
            out.push_back({Tok::Dots, 0, 0});
            i += 3;
        } else if (p[i] == '*') {
            out.push_back({Tok::Star, 0, 0});
            i += 1;
        } else if (p[i] == '%' && i + 2 < p.size() && p[i + 1] == '%' && p[i + 2] >= '0' && p[i + 2] <= '9') {
            out.push_back({Tok::Pct, 0, p[i + 2] - '0'});
            i += 3;
        } else {
            out.push_back({Tok::Lit, p[i], 0});
            i += 1;
        }
    }
    return out;
}

struct Captures {
    std::vector<std::string> dots, stars;
    std::string pct[10];
};

// Backtracking match of tokens[ti..] against s[si..], filling captures in
// the order the wildcards occur.
bool Match(const std::vector<Token>& t, size_t ti, const std::string& s, size_t si,
           std::vector<std::pair<size_t, size_t>>& spans)
{
    while (ti < t.size() && t[ti].kind == Tok::Lit) {
        if (si >= s.size() || s[si] != t[ti].ch) return false;
        ++ti;
        ++si;
    }
    if (ti == t.size()) return si == s.size();
    bool anySlash = t[ti].kind == Tok::Dots;
    // Longest first, as the server's "..." and "*" are greedy.
    size_t maxEnd = si;
    while (maxEnd < s.size() && (anySlash || s[maxEnd] != '/')) ++maxEnd;
    for (size_t end = maxEnd + 1; end-- > si;) {
        spans.push_back({si, end - si});
        if (Match(t, ti + 1, s, end, spans)) return true;
        spans.pop_back();
    }
    return false;
}

bool MatchCapture(const std::string& pattern, const std::string& s, Captures* caps)
{
    std::vector<Token> t = Tokenize(pattern);
    std::vector<std::pair<size_t, size_t>> spans;
    if (!Match(t, 0, s, 0, spans)) return false;
    if (caps) {
        size_t k = 0;
        for (const Token& tok : t) {
            if (tok.kind == Tok::Lit) continue;
            std::string v = s.substr(spans[k].first, spans[k].second);
            ++k;
            if (tok.kind == Tok::Dots) caps->dots.push_back(v);
            else if (tok.kind == Tok::Star) caps->stars.push_back(v);
            else caps->pct[tok.num] = v;
        }
    }
    return true;
}

std::string Substitute(const std::string& pattern, const Captures& caps)
{
    std::vector<Token> t = Tokenize(pattern);
    std::string out;
    size_t d = 0, st = 0;
    for (const Token& tok : t) {
        switch (tok.kind) {
        case Tok::Lit: out += tok.ch; break;
        case Tok::Dots: out += d < caps.dots.size() ? caps.dots[d++] : std::string(); break;
        case Tok::Star: out += st < caps.stars.size() ? caps.stars[st++] : std::string(); break;
        case Tok::Pct: out += caps.pct[tok.num]; break;
        }
    }
    return out;
}

bool TranslateWith(const std::vector<MapLine>& lines, const std::string& in, std::string& out, bool forward)
{
    for (size_t i = lines.size(); i-- > 0;) {
        const MapLine& l = lines[i];
        Captures caps;
        if (!MatchCapture(forward ? l.left : l.right, in, &caps)) continue;
        if (l.exclude) return false;
        out = Substitute(forward ? l.right : l.left, caps);
        return true;
    }
    return false;
}

}  // namespace

bool WildMatch(const std::string& pattern, const std::string& path) { return MatchCapture(pattern, path, nullptr); }

bool HasWildcards(const std::string& pattern)
{
    return pattern.find("...") != std::string::npos || pattern.find('*') != std::string::npos ||
           pattern.find("%%") != std::string::npos;
}

std::string LiteralPrefix(const std::string& pattern)
{
    size_t p = pattern.size();
    for (const char* w : {"...", "*", "%%"}) p = std::min(p, pattern.find(w));
    return pattern.substr(0, p);
}

bool ParseViewLine(const std::string& line, MapLine& out)
{
    std::vector<std::string> words;
    size_t i = 0;
    bool exclude = false;
    while (i < line.size()) {
        char c = line[i];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            ++i;
            continue;
        }
        std::string w;
        bool quoted = false;
        if ((c == '-' || c == '+') && i + 1 < line.size() && line[i + 1] == '"' && words.empty()) {
            if (c == '-') exclude = true;
            ++i;
            c = line[i];
        }
        if (c == '"') {
            quoted = true;
            ++i;
            while (i < line.size() && line[i] != '"') w += line[i++];
            if (i < line.size()) ++i;
        } else {
            while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r' && line[i] != '\n') {
                w += line[i++];
            }
        }
        (void)quoted;
        if (words.empty() && !w.empty() && (w[0] == '-' || w[0] == '+')) {
            if (w[0] == '-') exclude = true;
            w.erase(0, 1);
        }
        words.push_back(w);
    }
    if (words.size() != 2 || words[0].empty() || words[1].empty()) return false;
    out.exclude = exclude;
    out.left = words[0];
    out.right = words[1];
    return true;
}

std::string FormatViewLine(const MapLine& line)
{
    auto side = [](const std::string& p, bool minus) {
        std::string s = (minus ? "-" : "") + p;
        if (p.find(' ') != std::string::npos || p.find('\t') != std::string::npos) return "\"" + s + "\"";
        return s;
    };
    return side(line.left, line.exclude) + " " + side(line.right, false);
}

bool MapTable::Translate(const std::string& left, std::string& right) const
{
    return TranslateWith(m_lines, left, right, true);
}

bool MapTable::TranslateBack(const std::string& right, std::string& left) const
{
    return TranslateWith(m_lines, right, left, false);
}

std::vector<std::string> MapTable::LeftPrefixesFor(const std::string& rightPrefix) const
{
    std::vector<std::string> out;
    for (const MapLine& l : m_lines) {
        if (l.exclude) continue;
        std::string rl = LiteralPrefix(l.right), ll = LiteralPrefix(l.left);
        if (StartsWith(rightPrefix, rl)) {
            // When both sides end in a single trailing "...", the part of the
            // prefix beyond the right literal carries over to the left.
            if (l.right == rl + "..." && l.left == ll + "...") out.push_back(ll + rightPrefix.substr(rl.size()));
            else out.push_back(ll);
        } else if (StartsWith(rl, rightPrefix)) {
            out.push_back(ll);
        }
    }
    // Drop prefixes covered by shorter ones.
    std::sort(out.begin(), out.end());
    std::vector<std::string> kept;
    for (const std::string& p : out) {
        if (!kept.empty() && StartsWith(p, kept.back())) continue;
        kept.push_back(p);
    }
    return kept;
}

}  // namespace p4sim
