// Digests through nettle: SHA-1 names git's objects, SHA-256 describes file
// contents in the dump.
#pragma once

#include <nettle/sha1.h>
#include <nettle/sha2.h>

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
    // The digest as 40 lowercase hex digits; starts the object anew.
    std::string HexDigest();

private:
    sha1_ctx m_tContext;
};

class CSha256
{
public:
    CSha256();
    void Update(const void* pData, size_t nSize);
    // The digest as 64 lowercase hex digits; starts the object anew.
    std::string HexDigest();

private:
    sha256_ctx m_tContext;
};

// Starts the name of a blob of nSize bytes: hashes git's header of it. The
// content follows.
void StartGitBlob(CSha1& cSha1, uint64_t nSize);
// The name git gives a blob with this content.
std::string GitBlobName(const std::string& strContent);
std::string Sha256Hex(const std::string& strContent);
// The SHA-256 of the regular file at the path (symbolic links followed).
// False when there is no such file or it cannot be read.
bool FileSha256(const std::string& strPath, std::string& strHex);

} // namespace IMP
} // namespace ORVANE
