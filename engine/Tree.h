// The content of a stream's folder as git sees it: path -> mode and blob
// name, kept up to date cheaply with inotify while the provider syncs.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

namespace ORVANE {
namespace IMP {

struct TEntry
{
    unsigned nMode = 0;   // 0100644, 0100755 or 0120000, as git writes them
    std::string strBlob;  // the blob's git name (SHA-1 hex)
    bool operator==(const TEntry& o) const { return nMode == o.nMode && strBlob == o.strBlob; }
    bool operator!=(const TEntry& o) const { return !(*this == o); }
};

// Relative path ('/' separators) -> entry, in byte order.
typedef std::map<std::string, TEntry> TTree;

// Called with the blob name and the content of each file found new or
// changed, so that its content can be stored before it is referred to.
typedef std::function<void(const std::string& strBlob, const std::string& strContent)> TBlobSink;

// Reads one file or symbolic link. False when the path is neither.
bool ReadEntry(const std::string& strPath, TEntry& tEntry, std::string* pstrContent);

// Every file and symbolic link below the folder. Each entry's content is
// passed to the sink (when there is one) unless pOld already holds the same
// entry at that path.
void ScanTree(const std::string& strRoot, TTree& tTree, const TBlobSink& fnSink = TBlobSink(),
              const TTree* pOld = nullptr);

// What one change did to a tree.
struct TTreeDelta
{
    std::set<std::string> setChanged; // paths added or modified
    std::set<std::string> setRemoved; // paths removed
    bool Empty() const { return setChanged.empty() && setRemoved.empty(); }
};

// Brings the tree up to date for the paths that may have changed (files or
// folders, relative to the root) and records the difference.
void UpdateTree(const std::string& strRoot, const std::set<std::string>& setDirty, TTree& tTree,
                TTreeDelta& tDelta, const TBlobSink& fnSink);
// The same after a full scan.
void RescanTree(const std::string& strRoot, TTree& tTree, TTreeDelta& tDelta, const TBlobSink& fnSink);

// Watches a folder and all folders below it, folders created later
// included, and reports the paths that something touched.
class CFolderWatch
{
public:
    CFolderWatch() = default;
    CFolderWatch(const CFolderWatch&) = delete;
    CFolderWatch& operator=(const CFolderWatch&) = delete;
    ~CFolderWatch() { Stop(); }

    // False when inotify cannot be used: then every collection is a full
    // scan.
    bool Start(const std::string& strRoot);
    void Stop();
    // The paths touched since the last call. False when events were lost
    // (queue overflow, or no watch at all): the caller must scan the whole
    // folder.
    bool Collect(std::set<std::string>& setDirty);

private:
    void AddTree(const std::string& strRelative);

    int m_fd = -1;
    std::string m_strRoot;
    std::map<int, std::string> m_mapDirs;
    bool m_bLost = false;
};

} // namespace IMP
} // namespace ORVANE
