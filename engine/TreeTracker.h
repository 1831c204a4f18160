// What each sync did to a stream's folder: the folder's tree kept up to
// date through a watch on it, checked against the paths the change names.
#pragma once

#include <set>
#include <string>

#include "FolderWatch.h"
#include "Tree.h"

namespace ORVANE {
namespace IMP {

class CTreeTracker
{
public:
    // Reads the folder as it is now (empty, unless a workspace was kept
    // from before) and starts watching it. Nothing is sent for the files
    // already there.
    void Begin(const std::string& strFolder);
    // What changed since the last call: from the watch's paths, or from a
    // full scan when the watch lost some. New content goes to the sink.
    void Collect(TTreeDelta& tDelta, const TBlobSink& fnSink);
    // Looks at the paths again, for anything the watch missed, and adds
    // their changes to the delta. A path that this change's collection read
    // (it, or a folder above it, was touched) and that nothing touched since
    // is as it was read then: it is not read again.
    void Recheck(const std::set<std::string>& setPaths, TTreeDelta& tDelta, const TBlobSink& fnSink);
    void End();
    // Reads the files the filter takes through it from now on (null: none).
    void SetFilter(CContentFilter* pFilter) { m_pFilter = pFilter; }

    const TTree& Tree() const { return m_tTree; }
    const std::string& Folder() const { return m_strFolder; }

private:
    // Brings the tree up to date from the watch, or from a full scan when
    // the watch lost events; remembers what was read.
    void CollectMore(TTreeDelta& tDelta, const TBlobSink& fnSink);
    // Read since the change's collection began, and not touched since.
    bool IsFresh(const std::string& strPath) const;

    std::string m_strFolder;
    TTree m_tTree;
    CFolderWatch m_cWatch;
    bool m_bWatching = false;
    // What the current change's collection read: the paths the watch named
    // (a folder stands for everything below it), or everything after a scan.
    std::set<std::string> m_setFresh;
    bool m_bAllFresh = false;
    CContentFilter* m_pFilter = nullptr;
};

} // namespace IMP
} // namespace ORVANE
