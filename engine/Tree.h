// The content of a stream's folder as git sees it: path -> mode and blob
// name, read whole or brought up to date for the paths that changed.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "BlobContent.h"

namespace ORVANE {
namespace IMP {

struct TEntry
{
    unsigned nMode = 0;   // 0100644, 0100755 or 0120000, as git writes them
    std::string strBlob;  // the blob's git name (SHA-1 hex)
    bool bLfs = false;    // the blob is the pointer to the file in Git LFS (not compared)
    bool operator==(const TEntry& o) const { return nMode == o.nMode && strBlob == o.strBlob; }
    bool operator!=(const TEntry& o) const { return !(*this == o); }
};

// Relative path ('/' separators) -> entry, in byte order.
typedef std::map<std::string, TEntry> TTree;

// Called with the blob name and the content of each file found new or
// changed, so that its content can be stored before it is referred to. The
// content of a large regular file is the file itself, open while the call
// lasts.
typedef std::function<void(const std::string& strBlob, const CBlobContent& cContent)> TBlobSink;

// Reads the regular files whose content is kept elsewhere (large files in
// Git LFS): the tree holds the small text that stands for each.
class CContentFilter
{
public:
    virtual ~CContentFilter();
    // Whether the regular file at the path (relative to the tree's root) of
    // this size is read by the filter.
    virtual bool Takes(const std::string& strPath, uint64_t nSize) const = 0;
    // Reads up to nSize bytes of the open file at the path (fewer when it
    // ends first) and gives the text that stands for them. False when that
    // failed (the filter keeps the reason).
    virtual bool Read(const std::string& strPath, int fd, uint64_t nSize, std::string& strText) = 0;
    // Whether the text the last Read gave stands for content kept
    // elsewhere (a pointer to Git LFS), not the content itself.
    virtual bool LastReadKeptElsewhere() const { return true; }
};

// Reads one file or symbolic link. False when the path is neither. A large
// regular file (over g_nStreamedBlobBytes) is hashed in pieces; it is read
// whole only when its content is asked for.
bool ReadEntry(const std::string& strPath, TEntry& tEntry, std::string* pstrContent);

// Every file and symbolic link below the folder. Each entry's content is
// passed to the sink (when there is one) unless pOld already holds the same
// entry at that path. The filter (when given) reads the files it takes.
void ScanTree(const std::string& strRoot, TTree& tTree, const TBlobSink& fnSink = TBlobSink(),
              const TTree* pOld = nullptr, CContentFilter* pFilter = nullptr);

// What one change did to a tree.
struct TTreeDelta
{
    std::set<std::string> setChanged; // paths added or modified
    std::set<std::string> setRemoved; // paths removed
    bool Empty() const { return setChanged.empty() && setRemoved.empty(); }
    // The path was added or modified (after whatever happened before).
    void Changed(const std::string& strPath)
    {
        setChanged.insert(strPath);
        setRemoved.erase(strPath);
    }
    // The path was removed (after whatever happened before).
    void Removed(const std::string& strPath)
    {
        setRemoved.insert(strPath);
        setChanged.erase(strPath);
    }
};

// Brings the tree up to date for the paths that may have changed (files or
// folders, relative to the root) and records the difference.
void UpdateTree(const std::string& strRoot, const std::set<std::string>& setDirty, TTree& tTree, TTreeDelta& tDelta,
                const TBlobSink& fnSink, CContentFilter* pFilter = nullptr);
// The same after a full scan.
void RescanTree(const std::string& strRoot, TTree& tTree, TTreeDelta& tDelta, const TBlobSink& fnSink,
                CContentFilter* pFilter = nullptr);

} // namespace IMP
} // namespace ORVANE
