// The input of git fast-import: blobs, commits and checkpoints, written to
// any sink.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Tree.h"

namespace ORVANE {
namespace IMP {

// Where bytes go.
class CByteSink
{
public:
    virtual ~CByteSink();
    // False when the bytes could not be written.
    virtual bool Write(const char* p, size_t n) = 0;
};

// Keeps everything written, for reading back.
class CStringSink : public CByteSink
{
public:
    bool Write(const char* p, size_t n) override;
    const std::string& Text() const { return m_strText; }

private:
    std::string m_strText;
};

// A path as fast-import reads it: quoted C-style when it holds a character
// that the plain form cannot carry.
std::string QuotePath(const std::string& strPath);

// "jo@ws" -> name "jo", address "jo@ws"; text without '@' is both. Neither
// holds '<', '>' or a line end afterwards, nor blanks at either end; an
// empty name becomes "unknown".
void SplitUser(const std::string& strUser, std::string& strName, std::string& strEmail);

// "Name <email> TIME +0000" of an author, committer or tagger line: name
// and address cleaned as SplitUser leaves them, an empty name "unknown".
std::string IdentLine(const std::string& strName, const std::string& strEmail, long tTime);

class CFastImportWriter
{
public:
    explicit CFastImportWriter(CByteSink& cSink) : m_cSink(cSink) {}

    // The mark of a blob with this name (its git name), sending its
    // content only the first time since the last commit. The content of a
    // file goes in pieces, as long as announced whatever happens to the
    // file; when it no longer held the blob's bytes, the blob is not
    // remembered, the result is 0 and ContentProblem() tells why: nothing
    // may refer to it.
    unsigned Blob(const std::string& strName, const CBlobContent& cContent);
    // The same for text (a copy of it is made).
    unsigned Blob(const std::string& strName, const std::string& strContent)
    {
        return Blob(strName, CBlobContent(strContent));
    }
    // Why the last Blob gave 0.
    const std::string& ContentProblem() const { return m_strContentProblem; }

    struct TCommit
    {
        std::string strBranch; // below refs/heads/
        std::string strName, strEmail; // of the author and the committer
        long tTime = 0;        // seconds since 1970 UTC
        std::string strMessage;
        std::string strFrom;    // the first parent, ":<mark>" or a commit's name; "": the branch's tip, or none
        std::vector<std::string> astrMerges; // further parents, each as strFrom
        bool bFullTree = false;              // the tree is written out whole (deleteall first)
    };
    // The commit of the tree after a change: the delta's paths, or the
    // whole tree. Files are named by their blob's mark when it was sent
    // for this commit, else by their git name. Returns the commit's mark.
    unsigned Commit(const TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta);

    // The same in two steps, for a commit that waits for its parents: its
    // mark and file commands now (the blobs sent so far are named as they
    // are now), the commit itself later.
    unsigned ReserveMark() { return m_nNextMark++; }
    std::string FileCommands(const TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta);
    void SendCommit(const TCommit& tCommit, unsigned nMark, const std::string& strFileCommands);

    // Asks fast-import to make everything so far visible to other git
    // processes (the branches move) and, given a mark, to print the
    // commit's name.
    bool Checkpoint(unsigned nCommitMark);
    // Ends the stream: fast-import, started with --done, takes an input that
    // ends without it for a broken one and moves no branch.
    bool Done();

    // A write failed: nothing more is sent.
    bool Failed() const { return m_bFailed; }
    void SetFailed() { m_bFailed = true; }

private:
    bool Send(const std::string& str) { return Send(str.data(), str.size()); }
    bool Send(const char* p, size_t n);
    std::string FileLine(const std::string& strPath, const TEntry& tEntry) const;

    CByteSink& m_cSink;
    std::map<std::string, unsigned> m_mapBlobs;
    unsigned m_nNextMark = 1;
    bool m_bFailed = false;
    std::string m_strContentProblem;
};

} // namespace IMP
} // namespace ORVANE
