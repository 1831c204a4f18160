#include "perforce/Integrations.h"

#include <algorithm>
#include <cstdlib>

namespace ORVANE {
namespace IMP {

unsigned int RevisionNumber(const std::string& strRev)
{
    const size_t nStart = !strRev.empty() && strRev[0] == '#' ? 1 : 0;
    return unsigned(std::strtoul(strRev.c_str() + nStart, nullptr, 10));
}

bool IsTargetSide(const std::string& strHow)
{
    return strHow == "ignored" || (strHow.size() > 5 && strHow.compare(strHow.size() - 5, 5, " from") == 0);
}

bool IsDeleteAction(const std::string& strAction)
{
    return strAction == "delete" || strAction == "move/delete" || strAction == "purge" || strAction == "archive";
}

void CIntegrationIndex::AddStream(unsigned int nID, const std::string& strPath)
{
    std::string strFolder = strPath;
    if (strFolder.size() >= 4 && strFolder.compare(strFolder.size() - 4, 4, "/...") == 0)
        strFolder.resize(strFolder.size() - 3);
    if (strFolder.empty() || strFolder.back() != '/')
        strFolder += '/';
    m_atStreams.emplace_back(strFolder, nID);
    std::stable_sort(m_atStreams.begin(), m_atStreams.end(),
                     [](const std::pair<std::string, unsigned int>& tA,
                        const std::pair<std::string, unsigned int>& tB) { return tA.first.size() > tB.first.size(); });
}

unsigned int CIntegrationIndex::StreamOf(const std::string& strFile) const
{
    for (const auto& t : m_atStreams)
        if (strFile.compare(0, t.first.size(), t.first) == 0)
            return t.second;
    return 0;
}

void CIntegrationIndex::AddRevision(const TP4Revision& tRevision)
{
    const unsigned int nStream = StreamOf(tRevision.strFile);
    if (nStream == 0)
        return;
    auto itFile = m_mapFiles.emplace(tRevision.strFile, TFile()).first;
    TFile& tFile = itFile->second;
    tFile.nStream = nStream;
    const TRev tRev{tRevision.nRev, tRevision.nChange, tRevision.bDeleted, nullptr};
    auto it = std::lower_bound(tFile.atRevs.begin(), tFile.atRevs.end(), tRev,
                               [](const TRev& tA, const TRev& tB) { return tA.nRev < tB.nRev; });
    if (it != tFile.atRevs.end() && it->nRev == tRev.nRev)
        *it = tRev;
    else
        tFile.atRevs.insert(it, tRev);
    m_mapByChange[nStream][tRevision.nChange].emplace_back(&itFile->first, tRevision.nRev);
}

void CIntegrationIndex::AddIntegration(const TP4Integration& tIntegration)
{
    if (!IsTargetSide(tIntegration.strHow))
        return;
    const unsigned int nStream = StreamOf(tIntegration.strToFile);
    if (nStream == 0)
        return;
    m_atRecords.push_back(tIntegration);
    const TP4Integration* pRecord = &m_atRecords.back();
    m_mapInto[nStream][tIntegration.nChange].push_back(pRecord);
    m_mapCoverage[{nStream, tIntegration.strFromFile}].push_back(pRecord);
    // What leaves the target as the source was: a branch, a copy, a move,
    // a deletion.
    if (tIntegration.strHow == "branch from" || tIntegration.strHow == "copy from" ||
        tIntegration.strHow == "moved from" || tIntegration.strHow == "delete from")
    {
        // The stream's revisions come before its records.
        auto itFile = m_mapFiles.find(tIntegration.strToFile);
        if (itFile != m_mapFiles.end())
            for (TRev& t : itFile->second.atRevs)
                if (t.nRev == tIntegration.nToRev)
                    t.pCopy = pRecord;
    }
}

std::vector<unsigned int> CIntegrationIndex::Changes(unsigned int nStream) const
{
    std::vector<unsigned int> anChanges;
    auto it = m_mapByChange.find(nStream);
    if (it != m_mapByChange.end())
        for (const auto& kv : it->second)
            anChanges.push_back(kv.first);
    return anChanges;
}

const CIntegrationIndex::TRev* CIntegrationIndex::RevisionAt(const std::string& strFile, unsigned int nChange) const
{
    auto it = m_mapFiles.find(strFile);
    if (it == m_mapFiles.end())
        return nullptr;
    const TRev* pAt = nullptr;
    for (const TRev& t : it->second.atRevs)
        if (t.nChange <= nChange)
            pAt = &t;
    return pAt;
}

unsigned int CIntegrationIndex::ChangeOf(const std::string& strFile, unsigned int nRev) const
{
    auto it = m_mapFiles.find(strFile);
    if (it == m_mapFiles.end())
        return 0;
    const std::vector<TRev>& atRevs = it->second.atRevs;
    auto itRev =
        std::lower_bound(atRevs.begin(), atRevs.end(), nRev, [](const TRev& t, unsigned int n) { return t.nRev < n; });
    return itRev != atRevs.end() && itRev->nRev == nRev ? itRev->nChange : 0;
}

bool CIntegrationIndex::IsHeldCopy(const std::string& strFile, unsigned int nRev, unsigned int nStreamA,
                                   unsigned int nStreamB, unsigned int nChange,
                                   const std::map<unsigned int, unsigned int>& mapHeld) const
{
    auto it = m_mapFiles.find(strFile);
    if (it == m_mapFiles.end())
        return false;
    auto itRev = std::find_if(it->second.atRevs.begin(), it->second.atRevs.end(),
                              [nRev](const TRev& t) { return t.nRev == nRev; });
    if (itRev == it->second.atRevs.end() || !itRev->pCopy)
        return false;
    const TP4Integration& tCopy = *itRev->pCopy;
    const unsigned int nSource = StreamOf(tCopy.strFromFile);
    if (nSource == 0 || nSource == nStreamA)
        return false;
    const unsigned int nSourceChange = ChangeOf(tCopy.strFromFile, tCopy.nFromEnd);
    if (nSource == nStreamB)
        return nSourceChange != 0 && nSourceChange < nChange;
    auto itHeld = mapHeld.find(nSource);
    return nSourceChange != 0 && itHeld != mapHeld.end() && itHeld->second >= nSourceChange;
}

bool CIntegrationIndex::IsCovered(unsigned int nStreamB, const std::string& strFile, unsigned int nRev,
                                  unsigned int nChange) const
{
    auto it = m_mapCoverage.find({nStreamB, strFile});
    if (it == m_mapCoverage.end())
        return false;
    for (const TP4Integration* p : it->second)
        if (p->nChange <= nChange && p->nFromStart < nRev && nRev <= p->nFromEnd)
            return true;
    return false;
}

const std::vector<const TP4Integration*>* CIntegrationIndex::RecordsInto(unsigned int nStream,
                                                                         unsigned int nChange) const
{
    auto itStream = m_mapInto.find(nStream);
    if (itStream == m_mapInto.end())
        return nullptr;
    auto itChange = itStream->second.find(nChange);
    return itChange != itStream->second.end() ? &itChange->second : nullptr;
}

bool CIntegrationIndex::IsCoveredMove(unsigned int nStreamA, unsigned int nStreamB, const std::string& strFile,
                                      unsigned int nChange, unsigned int nUpTo) const
{
    if (const std::vector<const TP4Integration*>* pRecords = RecordsInto(nStreamA, nChange))
        for (const TP4Integration* p : *pRecords)
            if (p->strHow == "moved from" && p->strFromFile == strFile &&
                IsCovered(nStreamB, p->strToFile, p->nToRev, nUpTo))
                return true;
    return false;
}

std::vector<TIntegration> CIntegrationIndex::Integrations(unsigned int nStream, unsigned int nChange,
                                                          const std::map<unsigned int, unsigned int>& mapHeld) const
{
    std::vector<TIntegration> atOut;
    const std::vector<const TP4Integration*>* pRecords = RecordsInto(nStream, nChange);
    if (!pRecords)
        return atOut;
    // The changes of each stream whose revisions the change took.
    std::map<unsigned int, std::vector<unsigned int>> mapBySource;
    for (const TP4Integration* pRecord : *pRecords)
    {
        const TP4Integration& t = *pRecord;
        const unsigned int nSource = StreamOf(t.strFromFile);
        if (nSource == 0 || nSource == nStream)
            continue;
        std::vector<unsigned int>& anTaken = mapBySource[nSource];
        for (unsigned int nRev = t.nFromStart + 1; nRev <= t.nFromEnd; ++nRev)
            if (const unsigned int nOf = ChangeOf(t.strFromFile, nRev))
                anTaken.push_back(nOf);
    }
    for (const auto& kv : mapBySource)
    {
        const unsigned int nSource = kv.first;
        auto itHeld = mapHeld.find(nSource);
        const unsigned int nHeld = itHeld != mapHeld.end() ? itHeld->second : 0;
        // Each file of the source changed since the change held: whether a
        // revision of it is missing, whether it existed then, whether it is
        // deleted now.
        struct TState
        {
            bool bExisted = false, bMissing = false, bDeleted = false;
            bool Blocks() const { return bMissing && !(bDeleted && !bExisted); }
        };
        std::map<std::string, TState> mapState;
        size_t nBlocking = 0;
        unsigned int nUpTo = 0;
        auto itSource = m_mapByChange.find(nSource);
        if (itSource != m_mapByChange.end())
        {
            for (auto it = itSource->second.upper_bound(nHeld); it != itSource->second.end() && it->first < nChange;
                 ++it)
            {
                for (const auto& tRevision : it->second)
                {
                    const std::string& strFile = *tRevision.first;
                    auto tInserted = mapState.emplace(strFile, TState());
                    TState& tState = tInserted.first->second;
                    if (tInserted.second)
                    {
                        const TRev* pAtHeld = RevisionAt(strFile, nHeld);
                        tState.bExisted = pAtHeld && !pAtHeld->bDeleted;
                    }
                    const bool bBlocked = tState.Blocks();
                    const TRev* pRev = RevisionAt(strFile, it->first);
                    tState.bDeleted = pRev && pRev->bDeleted;
                    // A copy of what the target held: the target has the file
                    // as it is now (what came before it is gone), and its
                    // deletion must come over.
                    if (IsHeldCopy(strFile, tRevision.second, nSource, nStream, nChange, mapHeld))
                    {
                        tState.bExisted = tState.bExisted || !tState.bDeleted;
                        tState.bMissing = false;
                    }
                    else if (!IsCovered(nStream, strFile, tRevision.second, nChange) &&
                             !(tState.bDeleted && IsCoveredMove(nSource, nStream, strFile, it->first, nChange)))
                        tState.bMissing = true;
                    if (bBlocked != tState.Blocks())
                        nBlocking = bBlocked ? nBlocking - 1 : nBlocking + 1;
                }
                if (nBlocking == 0)
                    nUpTo = it->first;
            }
        }
        // A merge of work that the change itself brought: none when all of
        // it lies beyond (or before) what was complete already.
        const std::vector<unsigned int>& anTaken = kv.second;
        if (std::none_of(anTaken.begin(), anTaken.end(), [&](unsigned int nOf) { return nOf > nHeld && nOf <= nUpTo; }))
            nUpTo = 0;
        // What the change took beyond that.
        TIntegration tOut;
        tOut.nFromStream = nSource;
        tOut.nUpTo = nUpTo;
        for (unsigned int nOf : anTaken)
            if (nOf > std::max(nUpTo, nHeld))
            {
                tOut.nFirst = tOut.nFirst == 0 ? nOf : std::min(tOut.nFirst, nOf);
                tOut.nLast = std::max(tOut.nLast, nOf);
            }
        if (tOut.nUpTo != 0 || tOut.nFirst != 0)
            atOut.push_back(tOut);
    }
    return atOut;
}

} // namespace IMP
} // namespace ORVANE
