#include "BlobContent.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Digest.h"

namespace ORVANE {
namespace IMP {

namespace {

// How a pass over the first bytes of a file ended.
enum EPass
{
    ePassWhole,   // all of them were read
    ePassShort,   // the file ended first
    ePassFailed,  // a read failed (errno tells why)
    ePassStopped, // the receiver wanted no more
};

// Reads the first nSize bytes of the file open on fd from its start, a
// piece at a time, into the digest (a blob's, its header given already) and
// to fnPiece (when there is one). nDone: how many were read.
EPass ReadPieces(int fd, uint64_t nSize, CSha1& cSha1, const CBlobContent::TPieceFn& fnPiece, uint64_t& nDone)
{
    nDone = 0;
    if (::lseek(fd, 0, SEEK_SET) != 0)
        return ePassFailed;
    std::vector<char> ach(size_t(std::min<uint64_t>(nSize, g_nBlobPieceBytes)));
    while (nDone < nSize)
    {
        const size_t nWant = size_t(std::min<uint64_t>(nSize - nDone, ach.size()));
        const ssize_t r = ::read(fd, ach.data(), nWant);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return ePassFailed;
        if (r == 0)
            return ePassShort;
        cSha1.Update(ach.data(), size_t(r));
        nDone += uint64_t(r);
        if (fnPiece && !fnPiece(ach.data(), size_t(r)))
            return ePassStopped;
    }
    return ePassWhole;
}

// Gives fnPiece nSize zero bytes, in pieces. False when it wants no more.
bool Zeros(uint64_t nSize, const CBlobContent::TPieceFn& fnPiece)
{
    const std::vector<char> ach(size_t(std::min<uint64_t>(nSize, g_nBlobPieceBytes)), '\0');
    for (uint64_t nLeft = nSize; nLeft != 0;)
    {
        const size_t n = size_t(std::min<uint64_t>(nLeft, ach.size()));
        if (!fnPiece(ach.data(), n))
            return false;
        nLeft -= n;
    }
    return true;
}

} // namespace

CBlobContent::CBlobContent(std::string strText) : m_strText(std::move(strText)), m_nSize(m_strText.size()) {}

CBlobContent::CBlobContent(int fd, uint64_t nSize, std::string strBlob, std::string strPath)
    : m_fd(fd), m_nSize(nSize), m_strBlob(std::move(strBlob)), m_strPath(std::move(strPath))
{
}

CBlobContent::CBlobContent(CBlobContent&& o) noexcept
    : m_strText(std::move(o.m_strText)), m_fd(o.m_fd), m_nSize(o.m_nSize), m_strBlob(std::move(o.m_strBlob)),
      m_strPath(std::move(o.m_strPath))
{
    o.m_fd = -1;
}

CBlobContent& CBlobContent::operator=(CBlobContent&& o) noexcept
{
    if (this != &o)
    {
        Close();
        m_strText = std::move(o.m_strText);
        m_fd = o.m_fd;
        m_nSize = o.m_nSize;
        m_strBlob = std::move(o.m_strBlob);
        m_strPath = std::move(o.m_strPath);
        o.m_fd = -1;
    }
    return *this;
}

CBlobContent::~CBlobContent()
{
    Close();
}

void CBlobContent::Close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

std::string CBlobContent::Pieces(const TPieceFn& fnPiece) const
{
    if (m_fd < 0)
    {
        // Text is small, or the caller chose to hold it: one piece.
        if (!m_strText.empty())
            fnPiece(m_strText.data(), m_strText.size());
        return std::string();
    }
    // The file is hashed again as it goes: the bytes given must be the blob
    // that the tree names.
    CSha1 cSha1;
    StartGitBlob(cSha1, m_nSize);
    uint64_t nDone = 0;
    const EPass ePass = ReadPieces(m_fd, m_nSize, cSha1, fnPiece, nDone);
    const int nErrno = errno;
    if (ePass == ePassStopped)
        return std::string();
    const std::string strWhat = "'" + m_strPath + "' changed while it was read (" + std::to_string(m_nSize) +
                                " bytes when it was hashed for git";
    if (ePass != ePassWhole)
    {
        if (!Zeros(m_nSize - nDone, fnPiece))
            return std::string();
        if (ePass == ePassFailed)
            return "cannot read '" + m_strPath + "' again after " + std::to_string(nDone) + " of its " +
                   std::to_string(m_nSize) + " bytes: " + std::strerror(nErrno);
        return strWhat + ", " + std::to_string(nDone) + " when it was sent)";
    }
    struct stat st;
    if (::fstat(m_fd, &st) == 0 && uint64_t(st.st_size) != m_nSize)
        return strWhat + ", " + std::to_string(st.st_size) + " after it was sent)";
    if (cSha1.HexDigest() != m_strBlob)
        return strWhat + ", the same number but other bytes when it was sent)";
    return std::string();
}

std::string CBlobContent::Whole() const
{
    if (m_fd < 0)
        return m_strText;
    std::string str;
    str.reserve(size_t(m_nSize));
    Pieces([&str](const char* p, size_t n) {
        str.append(p, n);
        return true;
    });
    return str;
}

bool HashFileBlob(int fd, uint64_t nSize, std::string& strBlob)
{
    CSha1 cSha1;
    StartGitBlob(cSha1, nSize);
    uint64_t nDone = 0;
    if (ReadPieces(fd, nSize, cSha1, CBlobContent::TPieceFn(), nDone) != ePassWhole)
        return false;
    strBlob = cSha1.HexDigest();
    return true;
}

} // namespace IMP
} // namespace ORVANE
