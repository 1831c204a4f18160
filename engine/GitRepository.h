// The git repository written through one git fast-import process.
#pragma once

#include <string>

#include "FastImport.h"
#include "Process.h"
#include "Tree.h"

namespace ORVANE {
namespace IMP {

// Reads the output of git ls-tree -r -z into the tree.
void ParseTreeListing(const std::string& strListing, TTree& tTree);

class CGitRepository
{
public:
    CGitRepository() : m_cSink(m_cChild), m_cWriter(m_cSink) {}
    CGitRepository(const CGitRepository&) = delete;
    CGitRepository& operator=(const CGitRepository&) = delete;

    // True when there is nothing at the path, or an empty folder.
    static bool IsFree(const std::string& strDirectory);

    // Creates the bare repository (the folder must be free) and starts git
    // fast-import on it.
    bool Open(const std::string& strDirectory, std::string& strError);
    bool IsOpen() const { return m_cChild.Pid() > 0; }
    // Where the blobs and commits go.
    CFastImportWriter& Writer() { return m_cWriter; }

    // Makes everything sent so far visible to other git processes and
    // returns the commit's name.
    bool Checkpoint(unsigned nCommitMark, std::string& strName);
    // The tree of a commit, read back with git ls-tree.
    bool ReadTree(const std::string& strCommit, TTree& tTree, std::string& strError);

    // Ends fast-import; points HEAD at the branch when given. False with a
    // message when git reported an error.
    bool Close(const std::string& strHeadBranch, std::string& strError);
    bool Failed() const { return m_cWriter.Failed(); }
    const std::string& Directory() const { return m_strDirectory; }

private:
    // Feeds fast-import's standard input.
    class CChildSink : public CByteSink
    {
    public:
        explicit CChildSink(CChild& cChild) : m_cChild(cChild) {}
        bool Write(const char* p, size_t n) override { return m_cChild.Write(p, n); }

    private:
        CChild& m_cChild;
    };

    CChild m_cChild;
    CChildSink m_cSink;
    CFastImportWriter m_cWriter;
    std::string m_strDirectory;
};

} // namespace IMP
} // namespace ORVANE
