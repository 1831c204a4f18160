#include "TreeTracker.h"

namespace ORVANE {
namespace IMP {

void CTreeTracker::Begin(const std::string& strFolder)
{
    m_strFolder = strFolder;
    m_tTree.clear();
    ScanTree(m_strFolder, m_tTree);
    m_bWatching = m_cWatch.Start(m_strFolder);
}

void CTreeTracker::Collect(TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    std::set<std::string> setDirty;
    if (m_bWatching && m_cWatch.Collect(setDirty))
        UpdateTree(m_strFolder, setDirty, m_tTree, tDelta, fnSink);
    else
        RescanTree(m_strFolder, m_tTree, tDelta, fnSink);
}

void CTreeTracker::Recheck(const std::set<std::string>& setPaths, TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    TTreeDelta tMore;
    UpdateTree(m_strFolder, setPaths, m_tTree, tMore, fnSink);
    for (const std::string& s : tMore.setChanged)
        tDelta.Changed(s);
    for (const std::string& s : tMore.setRemoved)
        tDelta.Removed(s);
}

void CTreeTracker::End()
{
    m_cWatch.Stop();
    m_bWatching = false;
}

} // namespace IMP
} // namespace ORVANE
