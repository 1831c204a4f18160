// Small helpers shared by the parts of p4sim: text, digests, base64, depot
// path escaping, time formatting and files.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace p4sim {

// A failure that ends the command. The message is the text a real server
// would send; severity and generic follow Perforce's error numbering
// (severity 2 warning, 3 failed, 4 fatal; generic 1 usage, 2 unknown,
// 3 context, 6 protect, 17 empty, 38 communication).
struct P4Error : std::runtime_error {
    P4Error(std::string text, int sev = 3, int gen = 1)
        : std::runtime_error(std::move(text)), severity(sev), generic(gen) {}
    int severity;
    int generic;
};

bool StartsWith(const std::string& s, const std::string& prefix);
bool EndsWith(const std::string& s, const std::string& suffix);
std::string ToLower(std::string s);
std::vector<std::string> SplitWords(const std::string& s);  // on blanks and tabs
std::string Trim(const std::string& s);
bool ParseUInt(const std::string& s, long long& out);  // decimal digits only

// MD5 of the bytes, as 32 upper-case hexadecimal digits (the form of the
// server's digest field).
std::string Md5Hex(const std::string& data);

std::string Base64Decode(const std::string& text);
std::string Base64Encode(const std::string& data);

// The server's escaping of the four characters that have a meaning in
// file specifications: @ %40, # %23, * %2A, % %25.
std::string EscapeName(const std::string& name);
std::string UnescapeName(const std::string& name);

// "2024/01/31" and "2024/01/31 12:34:56" in the server's time zone (the
// process's local zone, TZ honoured).
std::string FormatDate(long long t);
std::string FormatDateTime(long long t);

std::string ReadWholeFile(const std::string& path);  // throws std::runtime_error
bool FileExists(const std::string& path);
void MakeDirs(const std::string& dir);  // like mkdir -p; throws on failure
std::string DirName(const std::string& path);
std::string JoinPath(const std::string& dir, const std::string& rel);
std::string NormalizePath(const std::string& path);  // removes . and .. and //
std::string CurrentDir();

// Deterministic pseudo-random numbers (splitmix64), the same on every
// platform and library, for reproducible generated histories.
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    uint64_t Next();
    // A value in [0, n), n > 0.
    uint64_t Below(uint64_t n) { return Next() % n; }
    bool Chance(unsigned percent) { return Below(100) < percent; }

private:
    uint64_t m_state;
};

}  // namespace p4sim
