#include "Hash.h"

#include <cstring>

namespace ORVANE {
namespace IMP {

namespace {

inline uint32_t Rol(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }
inline uint32_t Ror(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

inline uint32_t LoadBE(const unsigned char* p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

std::string Hex(const uint32_t* ph, int n)
{
    static const char s_acDigits[] = "0123456789abcdef";
    std::string str;
    for (int i = 0; i < n; ++i)
        for (int nShift = 28; nShift >= 0; nShift -= 4)
            str += s_acDigits[(ph[i] >> nShift) & 15];
    return str;
}

// Shared Merkle-Damgard buffering of both hashes.
template <typename THash>
void Feed(THash& h, unsigned char* pBuf, size_t& nBuf, uint64_t& nTotal, const void* pData, size_t nSize)
{
    const unsigned char* p = static_cast<const unsigned char*>(pData);
    nTotal += nSize;
    while (nSize > 0)
    {
        const size_t n = std::min(nSize, size_t(64) - nBuf);
        std::memcpy(pBuf + nBuf, p, n);
        nBuf += n;
        p += n;
        nSize -= n;
        if (nBuf == 64)
        {
            h(pBuf);
            nBuf = 0;
        }
    }
}

template <typename THash>
void Finish(THash& h, unsigned char* pBuf, size_t& nBuf, uint64_t nTotal)
{
    const uint64_t nBits = nTotal * 8;
    pBuf[nBuf++] = 0x80;
    if (nBuf > 56)
    {
        std::memset(pBuf + nBuf, 0, 64 - nBuf);
        h(pBuf);
        nBuf = 0;
    }
    std::memset(pBuf + nBuf, 0, 56 - nBuf);
    for (int i = 0; i < 8; ++i)
        pBuf[56 + i] = static_cast<unsigned char>(nBits >> (56 - 8 * i));
    h(pBuf);
    nBuf = 0;
}

const uint32_t s_anK256[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

} // namespace

CSha1::CSha1() : m_h{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0}, m_buf{} {}

void CSha1::Block(const unsigned char* p)
{
    uint32_t w[80];
    for (int i = 0; i < 16; ++i)
        w[i] = LoadBE(p + 4 * i);
    for (int i = 16; i < 80; ++i)
        w[i] = Rol(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3], e = m_h[4];
    for (int i = 0; i < 80; ++i)
    {
        uint32_t f, k;
        if (i < 20)
            f = (b & c) | (~b & d), k = 0x5A827999;
        else if (i < 40)
            f = b ^ c ^ d, k = 0x6ED9EBA1;
        else if (i < 60)
            f = (b & c) | (b & d) | (c & d), k = 0x8F1BBCDC;
        else
            f = b ^ c ^ d, k = 0xCA62C1D6;
        const uint32_t t = Rol(a, 5) + f + e + k + w[i];
        e = d;
        d = c;
        c = Rol(b, 30);
        b = a;
        a = t;
    }
    m_h[0] += a;
    m_h[1] += b;
    m_h[2] += c;
    m_h[3] += d;
    m_h[4] += e;
}

void CSha1::Update(const void* pData, size_t nSize)
{
    auto h = [this](const unsigned char* p) { Block(p); };
    Feed(h, m_buf, m_nBuf, m_nTotal, pData, nSize);
}

std::string CSha1::HexDigest()
{
    auto h = [this](const unsigned char* p) { Block(p); };
    Finish(h, m_buf, m_nBuf, m_nTotal);
    return Hex(m_h, 5);
}

CSha256::CSha256()
    : m_h{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19}, m_buf{}
{
}

void CSha256::Block(const unsigned char* p)
{
    uint32_t w[64];
    for (int i = 0; i < 16; ++i)
        w[i] = LoadBE(p + 4 * i);
    for (int i = 16; i < 64; ++i)
    {
        const uint32_t s0 = Ror(w[i - 15], 7) ^ Ror(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const uint32_t s1 = Ror(w[i - 2], 17) ^ Ror(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3], e = m_h[4], f = m_h[5], g = m_h[6], h = m_h[7];
    for (int i = 0; i < 64; ++i)
    {
        const uint32_t S1 = Ror(e, 6) ^ Ror(e, 11) ^ Ror(e, 25);
        const uint32_t ch = (e & f) ^ (~e & g);
        const uint32_t t1 = h + S1 + ch + s_anK256[i] + w[i];
        const uint32_t S0 = Ror(a, 2) ^ Ror(a, 13) ^ Ror(a, 22);
        const uint32_t maj = (a & b) ^ (a & c) ^ (b & c);
        const uint32_t t2 = S0 + maj;
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    m_h[0] += a;
    m_h[1] += b;
    m_h[2] += c;
    m_h[3] += d;
    m_h[4] += e;
    m_h[5] += f;
    m_h[6] += g;
    m_h[7] += h;
}

void CSha256::Update(const void* pData, size_t nSize)
{
    auto h = [this](const unsigned char* p) { Block(p); };
    Feed(h, m_buf, m_nBuf, m_nTotal, pData, nSize);
}

std::string CSha256::HexDigest()
{
    auto h = [this](const unsigned char* p) { Block(p); };
    Finish(h, m_buf, m_nBuf, m_nTotal);
    return Hex(m_h, 8);
}

std::string GitBlobName(const std::string& strContent)
{
    CSha1 c;
    const std::string strHeader = "blob " + std::to_string(strContent.size());
    c.Update(strHeader.c_str(), strHeader.size() + 1); // with its NUL
    c.Update(strContent.data(), strContent.size());
    return c.HexDigest();
}

std::string Sha256Hex(const std::string& strContent)
{
    CSha256 c;
    c.Update(strContent.data(), strContent.size());
    return c.HexDigest();
}

} // namespace IMP
} // namespace ORVANE
