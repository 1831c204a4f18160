#include "Digest.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nettle/base16.h>

namespace ORVANE {
namespace IMP {

namespace {

std::string Hex(const uint8_t* pDigest, size_t nSize)
{
    std::string str(BASE16_ENCODE_LENGTH(nSize), '\0');
    base16_encode_update(&str[0], nSize, pDigest);
    return str;
}

} // namespace

CSha1::CSha1()
{
    sha1_init(&m_tContext);
}

void CSha1::Update(const void* pData, size_t nSize)
{
    sha1_update(&m_tContext, nSize, static_cast<const uint8_t*>(pData));
}

std::string CSha1::HexDigest()
{
    uint8_t ach[SHA1_DIGEST_SIZE];
    sha1_digest(&m_tContext, sizeof(ach), ach);
    return Hex(ach, sizeof(ach));
}

CSha256::CSha256()
{
    sha256_init(&m_tContext);
}

void CSha256::Update(const void* pData, size_t nSize)
{
    sha256_update(&m_tContext, nSize, static_cast<const uint8_t*>(pData));
}

std::string CSha256::HexDigest()
{
    uint8_t ach[SHA256_DIGEST_SIZE];
    sha256_digest(&m_tContext, sizeof(ach), ach);
    return Hex(ach, sizeof(ach));
}

void StartGitBlob(CSha1& cSha1, uint64_t nSize)
{
    const std::string strHeader = "blob " + std::to_string(nSize);
    cSha1.Update(strHeader.c_str(), strHeader.size() + 1); // the header ends with its NUL
}

std::string GitBlobName(const std::string& strContent)
{
    CSha1 c;
    StartGitBlob(c, strContent.size());
    c.Update(strContent.data(), strContent.size());
    return c.HexDigest();
}

std::string Sha256Hex(const std::string& strContent)
{
    CSha256 c;
    c.Update(strContent.data(), strContent.size());
    return c.HexDigest();
}

bool FileSha256(const std::string& strPath, std::string& strHex)
{
    struct stat st;
    if (stat(strPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    const int fd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    CSha256 c;
    char ach[65536];
    for (;;)
    {
        const ssize_t r = read(fd, ach, sizeof(ach));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            break;
        c.Update(ach, size_t(r));
    }
    close(fd);
    strHex = c.HexDigest();
    return true;
}

} // namespace IMP
} // namespace ORVANE
