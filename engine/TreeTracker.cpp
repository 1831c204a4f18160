#include "TreeTracker.h"

namespace ORVANE {
namespace IMP {

void CTreeTracker::Begin(const std::string& strFolder)
{
    m_strFolder = strFolder;
    m_tTree.clear();
    ScanTree(m_strFolder, m_tTree, TBlobSink(), nullptr, m_pFilter);
    m_bWatching = m_cWatch.Start(m_strFolder);
}

void CTreeTracker::Collect(TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    m_setFresh.clear();
    m_bAllFresh = false;
    CollectMore(tDelta, fnSink);
}

void CTreeTracker::CollectMore(TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    std::set<std::string> setDirty;
    if (m_bWatching && m_cWatch.Collect(setDirty))
    {
        UpdateTree(m_strFolder, setDirty, m_tTree, tDelta, fnSink, m_pFilter);
        m_bAllFresh = m_bAllFresh || setDirty.count(std::string()) != 0; // the root: a full scan
        m_setFresh.insert(setDirty.begin(), setDirty.end());
    }
    else
    {
        RescanTree(m_strFolder, m_tTree, tDelta, fnSink, m_pFilter);
        m_bAllFresh = true;
    }
}

bool CTreeTracker::IsFresh(const std::string& strPath) const
{
    if (m_bAllFresh)
        return true;
    for (size_t n = strPath.size(); n != 0 && n != std::string::npos; n = strPath.rfind('/', n - 1))
        if (m_setFresh.count(strPath.substr(0, n)))
            return true;
    return false;
}

void CTreeTracker::Recheck(const std::set<std::string>& setPaths, TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    // Without a watch nothing says what happened since the scan: every path
    // is read again.
    if (!m_bWatching)
    {
        UpdateTree(m_strFolder, setPaths, m_tTree, tDelta, fnSink, m_pFilter);
        return;
    }
    // Whatever was touched since the collection first; then the paths that
    // neither it nor that read.
    CollectMore(tDelta, fnSink);
    std::set<std::string> setStale;
    for (const std::string& strPath : setPaths)
        if (!IsFresh(strPath))
            setStale.insert(strPath);
    UpdateTree(m_strFolder, setStale, m_tTree, tDelta, fnSink, m_pFilter);
}

void CTreeTracker::End()
{
    m_cWatch.Stop();
    m_bWatching = false;
}

} // namespace IMP
} // namespace ORVANE
