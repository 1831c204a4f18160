// SHA-1 (git object names) and SHA-256 (content digests of the dump).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ORVANE {
namespace IMP {

class CSha1
{
public:
    CSha1();
    void Update(const void* pData, size_t nSize);
    // The digest as 40 lowercase hex digits; the object cannot be updated
    // afterwards.
    std::string HexDigest();

private:
    void Block(const unsigned char* p);
    uint32_t m_h[5];
    unsigned char m_buf[64];
    size_t m_nBuf = 0;
    uint64_t m_nTotal = 0;
};

class CSha256
{
public:
    CSha256();
    void Update(const void* pData, size_t nSize);
    // The digest as 64 lowercase hex digits.
    std::string HexDigest();

private:
    void Block(const unsigned char* p);
    uint32_t m_h[8];
    unsigned char m_buf[64];
    size_t m_nBuf = 0;
    uint64_t m_nTotal = 0;
};

// The name git gives a blob with this content.
std::string GitBlobName(const std::string& strContent);
std::string Sha256Hex(const std::string& strContent);

} // namespace IMP
} // namespace ORVANE
