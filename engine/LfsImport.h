// An import that puts large files into Git LFS: its settings, kept in the
// repository for the runs that continue it; the store filled as the files
// are read; and each commit's tree with the root .gitattributes that names
// what is in Git LFS.
#pragma once

#include <functional>

#include <string>
#include <vector>

#include "Lfs.h"
#include "LfsStore.h"
#include "Tree.h"

namespace ORVANE {
namespace IMP {

// The Git LFS settings of the repository an earlier run made, from its git
// configuration (orvane.lfsThreshold, orvane.lfsPattern): none when it has
// none. False with git's message when git fails.
bool ReadLfsSettings(const std::string& strGitDir, TLfsSettings& tSettings, std::string& strError);
// Records the settings in the repository's configuration.
bool WriteLfsSettings(const std::string& strGitDir, const TLfsSettings& tSettings, std::string& strError);

// The settings of a run from its --lfs-threshold and --lfs-pattern values,
// which main() has checked.
TLfsSettings LfsSettings(const std::string& strThreshold, const std::vector<std::string>& astrPatterns);
// The settings a run uses with the repository at strGitDir: those given,
// for a new repository; those recorded, for one an earlier run made, when
// none are given. Throws EStop (usage) when the given ones differ from those
// recorded: the commits' names depend on them.
TLfsSettings ChooseLfsSettings(const std::string& strGitDir, const TLfsSettings& tGiven);

class CLfsImport
{
public:
    CLfsImport(const TLfsSettings& tSettings, const std::string& strGitDir);
    CLfsImport(const CLfsImport&) = delete;
    CLfsImport& operator=(const CLfsImport&) = delete;

    // Makes the store ready, and records the settings in a new repository
    // (one this run made). Throws EStop.
    void Open(bool bNewRepository);
    // Reads the large files of a stream's folder into the store.
    CContentFilter* Filter() { return &m_cStore; }
    // Throws EStop when a file could not be read or stored.
    void CheckStore() const;

    // The tree and delta a commit writes: the folder's, with the root
    // .gitattributes (its blob sent to the sink when it is new). bWhole:
    // the commit writes the whole tree (a stream's first commit of the run).
    void CommitTree(const std::string& strFolder, const TTree& tTree, const TTreeDelta& tDelta, bool bWhole,
                    const TBlobSink& fnSink, TTree& tCommit, TTreeDelta& tCommitDelta);
    // What a commit of the folder must hold, read afresh: the large files
    // hashed again (not stored) to their pointers, the root .gitattributes
    // made anew. Returns a problem of the store ("" when none): an object
    // of the folder's that the store lacks. fnWrap puts the filter of the
    // source in front of the one that hashes large files.
    std::string ScanFolder(const std::string& strFolder, TTree& tTree,
                           const std::function<CContentFilter*(CContentFilter*)>& fnWrap = nullptr);

private:
    // The root .gitattributes of the commit of the tree (no blob: none).
    TEntry RootAttributes(const CLfsAttributes& cAttributes, const std::string& strFolder, const TTree& tTree);

    const std::string m_strGitDir;
    const CLfsRules m_cRules;
    CLfsStore m_cStore;
    CLfsStore m_cChecker;
    CLfsAttributes m_cAttributes;
    TEntry m_tLastAttributes;
    std::string m_strAttributesText; // of the last RootAttributes that made a file
    // The depot's own root .gitattributes as last read: its blob and text.
    std::string m_strDepotBlob;
    std::string m_strDepotText;
};

} // namespace IMP
} // namespace ORVANE
