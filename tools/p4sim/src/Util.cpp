#include "Util.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

namespace p4sim {

bool StartsWith(const std::string& s, const std::string& prefix)
{
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

bool EndsWith(const std::string& s, const std::string& suffix)
{
    return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string ToLower(std::string s)
{
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    return s;
}

std::vector<std::string> SplitWords(const std::string& s)
{
    std::vector<std::string> out;
    std::string cur;
    for (char c : s) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

std::string Trim(const std::string& s)
{
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r' || s[b] == '\n')) ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r' || s[e - 1] == '\n')) --e;
    return s.substr(b, e - b);
}

bool ParseUInt(const std::string& s, long long& out)
{
    if (s.empty() || s.size() > 18) return false;
    long long v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    out = v;
    return true;
}

// ---------------------------------------------------------------- MD5 (RFC 1321)

namespace {

struct Md5 {
    uint32_t a = 0x67452301, b = 0xefcdab89, c = 0x98badcfe, d = 0x10325476;

    static uint32_t Rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

    void Block(const unsigned char* p)
    {
        static const uint32_t k[64] = {
            0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
            0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
            0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
            0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
            0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
            0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
            0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
            0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
        static const int r[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                                  5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                                  4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                                  6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
        uint32_t w[16];
        for (int i = 0; i < 16; ++i) {
            w[i] = uint32_t(p[i * 4]) | (uint32_t(p[i * 4 + 1]) << 8) | (uint32_t(p[i * 4 + 2]) << 16) |
                   (uint32_t(p[i * 4 + 3]) << 24);
        }
        uint32_t A = a, B = b, C = c, D = d;
        for (int i = 0; i < 64; ++i) {
            uint32_t f;
            int g;
            if (i < 16) {
                f = (B & C) | (~B & D);
                g = i;
            } else if (i < 32) {
                f = (D & B) | (~D & C);
                g = (5 * i + 1) % 16;
            } else if (i < 48) {
                f = B ^ C ^ D;
                g = (3 * i + 5) % 16;
            } else {
                f = C ^ (B | ~D);
                g = (7 * i) % 16;
            }
            uint32_t tmp = D;
            D = C;
            C = B;
            B = B + Rotl(A + f + k[i] + w[g], r[i]);
            A = tmp;
        }
        a += A;
        b += B;
        c += C;
        d += D;
    }
};

}  // namespace

std::string Md5Hex(const std::string& data)
{
    Md5 m;
    size_t n = data.size();
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data.data());
    size_t full = n / 64;
    for (size_t i = 0; i < full; ++i) m.Block(p + i * 64);
    unsigned char tail[128] = {0};
    size_t rest = n - full * 64;
    if (rest) std::memcpy(tail, p + full * 64, rest);
    tail[rest] = 0x80;
    size_t tlen = (rest + 1 + 8 <= 64) ? 64 : 128;
    uint64_t bits = uint64_t(n) * 8;
    for (int i = 0; i < 8; ++i) tail[tlen - 8 + i] = (unsigned char)(bits >> (8 * i));
    m.Block(tail);
    if (tlen == 128) m.Block(tail + 64);
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (uint32_t v : {m.a, m.b, m.c, m.d}) {
        for (int i = 0; i < 4; ++i) {
            unsigned char byte = (unsigned char)(v >> (8 * i));
            out += hex[byte >> 4];
            out += hex[byte & 15];
        }
    }
    return out;
}

// ---------------------------------------------------------------- base64

static const char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Base64Decode(const std::string& text)
{
    int val[256];
    for (int& v : val) v = -1;
    for (int i = 0; i < 64; ++i) val[(unsigned char)kB64[i]] = i;
    std::string out;
    uint32_t acc = 0;
    int bits = 0;
    for (unsigned char c : text) {
        if (c == '=' || c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
        if (val[c] < 0) throw std::runtime_error("invalid base64 text");
        acc = (acc << 6) | uint32_t(val[c]);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += char((acc >> bits) & 0xFF);
        }
    }
    return out;
}

std::string Base64Encode(const std::string& data)
{
    std::string out;
    size_t i = 0;
    for (; i + 2 < data.size(); i += 3) {
        uint32_t v = (uint32_t((unsigned char)data[i]) << 16) | (uint32_t((unsigned char)data[i + 1]) << 8) |
                     uint32_t((unsigned char)data[i + 2]);
        out += kB64[(v >> 18) & 63];
        out += kB64[(v >> 12) & 63];
        out += kB64[(v >> 6) & 63];
        out += kB64[v & 63];
    }
    if (i + 1 == data.size()) {
        uint32_t v = uint32_t((unsigned char)data[i]) << 16;
        out += kB64[(v >> 18) & 63];
        out += kB64[(v >> 12) & 63];
        out += "==";
    } else if (i + 2 == data.size()) {
        uint32_t v = (uint32_t((unsigned char)data[i]) << 16) | (uint32_t((unsigned char)data[i + 1]) << 8);
        out += kB64[(v >> 18) & 63];
        out += kB64[(v >> 12) & 63];
        out += kB64[(v >> 6) & 63];
        out += '=';
    }
    return out;
}

// ---------------------------------------------------------------- escaping

std::string EscapeName(const std::string& name)
{
    std::string out;
    out.reserve(name.size());
    for (char c : name) {
        switch (c) {
        case '@': out += "%40"; break;
        case '#': out += "%23"; break;
        case '*': out += "%2A"; break;
        case '%': out += "%25"; break;
        default: out += c;
        }
    }
    return out;
}

static int HexVal(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string UnescapeName(const std::string& name)
{
    std::string out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '%' && i + 2 < name.size()) {
            int hi = HexVal(name[i + 1]), lo = HexVal(name[i + 2]);
            if (hi >= 0 && lo >= 0) {
                out += char(hi * 16 + lo);
                i += 2;
                continue;
            }
        }
        out += name[i];
    }
    return out;
}

// ---------------------------------------------------------------- time

static std::string FormatTime(long long t, const char* fmt)
{
    time_t tt = time_t(t);
    struct tm tmv;
    localtime_r(&tt, &tmv);
    char buf[64];
    strftime(buf, sizeof buf, fmt, &tmv);
    return buf;
}

std::string FormatDate(long long t) { return FormatTime(t, "%Y/%m/%d"); }
std::string FormatDateTime(long long t) { return FormatTime(t, "%Y/%m/%d %H:%M:%S"); }

// ---------------------------------------------------------------- files

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool FileExists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

void MakeDirs(const std::string& dir)
{
    if (dir.empty()) return;
    struct stat st;
    if (stat(dir.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) return;
        throw std::runtime_error(dir + ": not a directory");
    }
    std::string parent = DirName(dir);
    if (parent != dir && !parent.empty()) MakeDirs(parent);
    if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
        throw std::runtime_error("mkdir: " + dir + ": " + std::strerror(errno));
    }
}

std::string DirName(const std::string& path)
{
    size_t p = path.find_last_of('/');
    if (p == std::string::npos) return ".";
    if (p == 0) return "/";
    return path.substr(0, p);
}

std::string JoinPath(const std::string& dir, const std::string& rel)
{
    if (dir.empty()) return rel;
    if (EndsWith(dir, "/")) return dir + rel;
    return dir + "/" + rel;
}

std::string NormalizePath(const std::string& path)
{
    bool abs = StartsWith(path, "/");
    std::vector<std::string> parts;
    std::string cur;
    auto flush = [&]() {
        if (cur.empty() || cur == ".") {
        } else if (cur == "..") {
            if (!parts.empty()) parts.pop_back();
        } else {
            parts.push_back(cur);
        }
        cur.clear();
    };
    for (char c : path) {
        if (c == '/') flush();
        else cur += c;
    }
    flush();
    std::string out = abs ? "/" : "";
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i) out += '/';
        out += parts[i];
    }
    if (out.empty()) out = abs ? "/" : ".";
    return out;
}

std::string CurrentDir()
{
    const char* pwd = getenv("PWD");
    char buf[4096];
    if (getcwd(buf, sizeof buf) == nullptr) return pwd ? pwd : "/";
    return buf;
}

uint64_t Random::Next()
{
    uint64_t z = (m_state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

}  // namespace p4sim
