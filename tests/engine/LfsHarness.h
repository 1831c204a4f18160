// End-to-end tests of imports into Git LFS: histories of generated files
// loaded into p4sim, and the checks of the result that every such test
// makes: each commit against the depot through the LFS store, git lfs fsck
// at each commit, and a clone with git lfs pull against the depot, byte for
// byte.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "EngineHarness.h"

namespace enginetest {

// A file action of a history: a generated binary file (random-looking
// bytes of the size, from the seed) added or edited at //depot/PATH.
nlohmann::json Generated(const std::string& strPath, const std::string& strAction, long long nSize, int nSeed);
// A text file added or edited.
nlohmann::json Text(const std::string& strPath, const std::string& strAction, const std::string& strContent);
nlohmann::json Deleted(const std::string& strPath);
// A change by jo at the time.
nlohmann::json Change(long nTime, const std::vector<nlohmann::json>& ajFiles);

// The oid and size of a Git LFS pointer; false when the text is none.
bool ParsePointer(const std::string& strText, std::string& strOid, unsigned long long& nSize);

class CLfsEngineTest : public CEngineTest
{
protected:
    // Loads the changes into the server.
    void LoadChanges(const std::vector<nlohmann::json>& ajChanges);
    // Every commit of the branch against the depot at its change, each file
    // in LFS read from the store (whose content has the pointer's SHA-256
    // and size). The root .gitattributes is the tests' own to check.
    void ExpectCommitsMatchDepot(const std::string& strBranch = "depot", const std::string& strDepot = "//depot");
    // git lfs fsck passes at every commit of the repository.
    void ExpectLfsFsck();
    // A clone of the branch and git lfs pull: every file as the depot has
    // it at its last change, byte for byte, and nothing else; the work tree
    // is clean.
    void ExpectCloneMatchesDepot(const std::string& strBranch = "depot", const std::string& strDepot = "//depot");
    // Clones the branch into Clone(strBranch) and brings in its Git LFS
    // files with git lfs pull, from this repository.
    void MakeClone(const std::string& strBranch);
    // The paths of the commit's files that are Git LFS pointers.
    std::set<std::string> LfsPaths(const std::string& strCommit);
    // The root .gitattributes of the commit ("" when there is none).
    std::string Attributes(const std::string& strCommit);
    // The number of objects in the repository's LFS store.
    size_t StoredObjects() const;
    // The clone's folder after ExpectCloneMatchesDepot.
    std::string Clone(const std::string& strBranch) const { return m_strTemp + "/clone-" + strBranch; }
};

} // namespace enginetest
