// The git repository written through one git fast-import process.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Process.h"
#include "Tree.h"

namespace ORVANE {
namespace IMP {

// A valid ref name below refs/heads/ for the stream name, different from
// every name in setUsed (compared without regard to case, so that the refs
// also live side by side on a case-insensitive file system); it is added to
// setUsed.
std::string MakeBranchName(const std::string& strStreamName, std::set<std::string>& setUsed);

// "jo@ws" -> name "jo", address "jo@ws"; text without '@' is both.
void SplitUser(const std::string& strUser, std::string& strName, std::string& strEmail);

class CGitOutput
{
public:
    // Creates the bare repository (the folder must not exist or be empty)
    // and starts git fast-import on it.
    bool Open(const std::string& strDirectory, std::string& strError);
    bool IsOpen() const { return m_cChild.Pid() > 0; }

    // The mark of a blob with this content, sending it once.
    unsigned Blob(const std::string& strName, const std::string& strContent);

    struct TCommit
    {
        std::string strBranch;   // below refs/heads/
        std::string strUser;     // "user@client"
        long tTime = 0;          // seconds since 1970 UTC
        std::string strMessage;
        unsigned nFrom = 0;      // mark of the first parent; 0: the branch's tip, or none
        bool bFullTree = false;  // the tree is written out whole (deleteall first)
    };
    // Writes the commit for the tree after the change; returns its mark.
    unsigned Commit(const TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta);

    // Makes everything sent so far visible to other git processes and
    // returns the commit's name.
    bool Checkpoint(unsigned nCommitMark, std::string& strName);
    // The tree of a commit, read back with git ls-tree.
    bool ReadTree(const std::string& strCommit, TTree& tTree, std::string& strError);

    // Ends fast-import; points HEAD at the branch when given. False with a
    // message when git reported an error.
    bool Close(const std::string& strHeadBranch, std::string& strError);
    bool Failed() const { return m_bFailed; }
    const std::string& Directory() const { return m_strDirectory; }

private:
    bool Send(const std::string& str);

    CChild m_cChild;
    std::string m_strDirectory;
    std::map<std::string, unsigned> m_mapBlobs;
    unsigned m_nNextMark = 1;
    bool m_bFailed = false;
};

} // namespace IMP
} // namespace ORVANE
