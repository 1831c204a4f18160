// The content of a blob on its way to git: text held in memory, or a large
// regular file that is read a piece at a time whenever its bytes are needed
// (hashed for the blob's name, sent to git fast-import), so that no file of
// the history is ever held whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace ORVANE {
namespace IMP {

// Regular files larger than this are read in pieces, twice (once for the
// blob's name, once when git needs the content); smaller ones are read whole,
// once. 8 MiB keeps the process small next to a depot's largest files (a
// memory use that no longer grows with them), while the files of ordinary
// source trees, nearly all below it, are still read only once.
const uint64_t g_nStreamedBlobBytes = 8u << 20;
// The size of those pieces: large enough that reading and writing cost
// little per call, small enough not to count in the process's memory.
const size_t g_nBlobPieceBytes = 1u << 20;

class CBlobContent
{
public:
    // Receives the next piece; false: no more is wanted.
    typedef std::function<bool(const char* p, size_t n)> TPieceFn;

    // No content (an empty text).
    CBlobContent() = default;
    // The text, held by this object.
    explicit CBlobContent(std::string strText);
    // The first nSize bytes of the regular file open on fd (this object
    // closes it), read in pieces when needed. strBlob is the blob name they
    // had when they were hashed; strPath names the file in messages.
    CBlobContent(int fd, uint64_t nSize, std::string strBlob, std::string strPath);
    CBlobContent(CBlobContent&& o) noexcept;
    CBlobContent& operator=(CBlobContent&& o) noexcept;
    CBlobContent(const CBlobContent&) = delete;
    CBlobContent& operator=(const CBlobContent&) = delete;
    ~CBlobContent();

    uint64_t Size() const { return m_nSize; }
    // The text, or null when the content is a file's.
    const std::string* Text() const { return m_fd < 0 ? &m_strText : nullptr; }
    // Gives the content to fnPiece in order, in pieces of at most
    // g_nBlobPieceBytes, exactly Size() bytes in all unless fnPiece wants
    // no more. A file that changed since it was hashed (another size, other
    // bytes) or that cannot be read any more still gives Size() bytes (made
    // up with zeros where it lacks them), so that what was announced to the
    // receiver holds; the problem is returned (empty when there is none).
    std::string Pieces(const TPieceFn& fnPiece) const;
    // The whole content as text: for content known to be small.
    std::string Whole() const;

private:
    void Close();

    std::string m_strText;
    int m_fd = -1;
    uint64_t m_nSize = 0;
    std::string m_strBlob;
    std::string m_strPath;
};

// The blob name of the first nSize bytes of the file open on fd, read in
// pieces from its start. False when it holds fewer bytes or cannot be read.
bool HashFileBlob(int fd, uint64_t nSize, std::string& strBlob);

} // namespace IMP
} // namespace ORVANE
