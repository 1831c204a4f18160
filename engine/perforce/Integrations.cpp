#include "perforce/Integrations.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_map>

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

namespace {

// The entries of a list sorted by key that have the key.
template <class T>
std::pair<typename std::vector<T>::const_iterator, typename std::vector<T>::const_iterator>
KeyRange(const std::vector<T>& at, uint32_t nKey)
{
    return std::equal_range(at.begin(), at.end(), T{nKey, 0},
                            [](const T& tA, const T& tB) { return tA.nKey < tB.nKey; });
}

// Sorts by key, keeping the order in which the entries of one key came;
// lets go of the room that growing left.
template <class T> void SortByKey(std::vector<T>& at)
{
    std::stable_sort(at.begin(), at.end(), [](const T& tA, const T& tB) { return tA.nKey < tB.nKey; });
    at.shrink_to_fit();
}

} // namespace

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
    // The files known already may be of the new stream.
    for (uint32_t nFile = 0; nFile < m_atFiles.size(); ++nFile)
        m_atFiles[nFile].nStream = StreamOf(std::string(m_cNames.At(nFile)));
}

unsigned int CIntegrationIndex::StreamOf(const std::string& strFile) const
{
    for (const auto& t : m_atStreams)
        if (strFile.compare(0, t.first.size(), t.first) == 0)
            return t.second;
    return 0;
}

uint32_t CIntegrationIndex::FileNumber(const std::string& strFile)
{
    const uint32_t nFile = m_cNames.Intern(strFile);
    if (nFile == m_atFiles.size())
    {
        m_atFiles.emplace_back();
        m_atFiles.back().nStream = StreamOf(strFile);
    }
    return nFile;
}

void CIntegrationIndex::AddRevision(const TP4Revision& tRevision)
{
    const unsigned int nStream = StreamOf(tRevision.strFile);
    if (nStream == 0)
        return;
    const uint32_t nFile = FileNumber(tRevision.strFile);
    std::vector<TRev>& atRevs = m_atFiles[nFile].atRevs;
    TRev tRev;
    tRev.nRev = tRevision.nRev;
    tRev.nChange = tRevision.nChange;
    tRev.nCopy = 0;
    tRev.bDeleted = tRevision.bDeleted ? 1 : 0;
    auto it = std::lower_bound(atRevs.begin(), atRevs.end(), tRev,
                               [](const TRev& tA, const TRev& tB) { return tA.nRev < tB.nRev; });
    if (it != atRevs.end() && it->nRev == tRev.nRev)
        *it = tRev;
    else
        atRevs.insert(it, tRev);
    TStreamLists& tLists = m_mapLists[nStream];
    tLists.atByChange.push_back(TChangeRev{tRevision.nChange, nFile, tRevision.nRev});
    tLists.bSorted = false;
}

void CIntegrationIndex::AddIntegration(const TP4Integration& tIntegration)
{
    if (!IsTargetSide(tIntegration.strHow))
        return;
    const unsigned int nStream = StreamOf(tIntegration.strToFile);
    if (nStream == 0)
        return;
    // What leaves the target as the source was: a branch, a copy, a move,
    // a deletion.
    const bool bMove = tIntegration.strHow == "moved from";
    const bool bCopy = bMove || tIntegration.strHow == "branch from" || tIntegration.strHow == "copy from" ||
                       tIntegration.strHow == "delete from";
    const uint32_t nToFile = FileNumber(tIntegration.strToFile);
    const uint32_t nFromFile = FileNumber(tIntegration.strFromFile);
    const uint32_t nRecord = static_cast<uint32_t>(m_atRecords.size());
    m_atRecords.push_back(TRecord{nToFile, tIntegration.nToRev, nFromFile, tIntegration.nFromStart,
                                  tIntegration.nFromEnd, tIntegration.nChange, bCopy, bMove});
    TStreamLists& tLists = m_mapLists[nStream];
    tLists.atInto.push_back(TKeyed{tIntegration.nChange, nRecord});
    tLists.atCoverage.push_back(TKeyed{nFromFile, nRecord});
    tLists.bSorted = false;
    // The stream's revisions come before its records.
    if (bCopy)
        for (TRev& t : m_atFiles[nToFile].atRevs)
            if (t.nRev == tIntegration.nToRev)
                t.nCopy = nRecord + 1;
}

void CIntegrationIndex::Clear()
{
    *this = CIntegrationIndex();
}

void CIntegrationIndex::Sort() const
{
    for (auto& kv : m_mapLists)
    {
        TStreamLists& tLists = kv.second;
        if (tLists.bSorted)
            continue;
        SortByKey(tLists.atByChange);
        SortByKey(tLists.atInto);
        SortByKey(tLists.atCoverage);
        tLists.bSorted = true;
    }
}

const CIntegrationIndex::TStreamLists* CIntegrationIndex::Lists(unsigned int nStream) const
{
    auto it = m_mapLists.find(nStream);
    return it != m_mapLists.end() ? &it->second : nullptr;
}

std::vector<unsigned int> CIntegrationIndex::Changes(unsigned int nStream) const
{
    Sort();
    std::vector<unsigned int> anChanges;
    if (const TStreamLists* pLists = Lists(nStream))
        for (const TChangeRev& t : pLists->atByChange)
            if (anChanges.empty() || anChanges.back() != t.nKey)
                anChanges.push_back(t.nKey);
    return anChanges;
}

const CIntegrationIndex::TRev* CIntegrationIndex::RevisionAt(uint32_t nFile, unsigned int nChange) const
{
    const TFile* pFile = File(nFile);
    if (!pFile)
        return nullptr;
    const TRev* pAt = nullptr;
    for (const TRev& t : pFile->atRevs)
        if (t.nChange <= nChange)
            pAt = &t;
    return pAt;
}

unsigned int CIntegrationIndex::ChangeOf(uint32_t nFile, unsigned int nRev) const
{
    const TFile* pFile = File(nFile);
    if (!pFile)
        return 0;
    const std::vector<TRev>& atRevs = pFile->atRevs;
    auto itRev =
        std::lower_bound(atRevs.begin(), atRevs.end(), nRev, [](const TRev& t, unsigned int n) { return t.nRev < n; });
    return itRev != atRevs.end() && itRev->nRev == nRev ? itRev->nChange : 0;
}

bool CIntegrationIndex::IsHeldCopy(uint32_t nFile, unsigned int nRev, unsigned int nStreamA, unsigned int nStreamB,
                                   unsigned int nChange, const std::map<unsigned int, unsigned int>& mapHeld) const
{
    const TFile* pFile = File(nFile);
    if (!pFile)
        return false;
    auto itRev =
        std::find_if(pFile->atRevs.begin(), pFile->atRevs.end(), [nRev](const TRev& t) { return t.nRev == nRev; });
    if (itRev == pFile->atRevs.end() || itRev->nCopy == 0)
        return false;
    const TRecord& tCopy = m_atRecords[itRev->nCopy - 1];
    const unsigned int nSource = m_atFiles[tCopy.nFromFile].nStream;
    if (nSource == 0 || nSource == nStreamA)
        return false;
    const unsigned int nSourceChange = ChangeOf(tCopy.nFromFile, tCopy.nFromEnd);
    if (nSource == nStreamB)
        return nSourceChange != 0 && nSourceChange < nChange;
    auto itHeld = mapHeld.find(nSource);
    return nSourceChange != 0 && itHeld != mapHeld.end() && itHeld->second >= nSourceChange;
}

bool CIntegrationIndex::IsCovered(unsigned int nStreamB, uint32_t nFile, unsigned int nRev, unsigned int nChange) const
{
    const TStreamLists* pLists = Lists(nStreamB);
    if (!pLists)
        return false;
    const auto tRange = KeyRange(pLists->atCoverage, nFile);
    for (auto it = tRange.first; it != tRange.second; ++it)
    {
        const TRecord& t = m_atRecords[it->nValue];
        if (t.nChange <= nChange && t.nFromStart < nRev && nRev <= t.nFromEnd)
            return true;
    }
    return false;
}

std::pair<CIntegrationIndex::TKeyedIt, CIntegrationIndex::TKeyedIt>
CIntegrationIndex::RecordsInto(unsigned int nStream, unsigned int nChange) const
{
    const TStreamLists* pLists = Lists(nStream);
    if (!pLists)
        return std::make_pair(TKeyedIt(), TKeyedIt());
    return KeyRange(pLists->atInto, nChange);
}

bool CIntegrationIndex::IsCoveredMove(unsigned int nStreamA, unsigned int nStreamB, uint32_t nFile,
                                      unsigned int nChange, unsigned int nUpTo) const
{
    const auto tRange = RecordsInto(nStreamA, nChange);
    for (auto it = tRange.first; it != tRange.second; ++it)
    {
        const TRecord& t = m_atRecords[it->nValue];
        if (t.bMove && t.nFromFile == nFile && IsCovered(nStreamB, t.nToFile, t.nToRev, nUpTo))
            return true;
    }
    return false;
}

std::vector<TIntegration> CIntegrationIndex::Integrations(unsigned int nStream, unsigned int nChange,
                                                          const std::map<unsigned int, unsigned int>& mapHeld) const
{
    Sort();
    std::vector<TIntegration> atOut;
    const auto tRecords = RecordsInto(nStream, nChange);
    if (tRecords.first == tRecords.second)
        return atOut;
    // The changes of each stream whose revisions the change took.
    std::map<unsigned int, std::vector<unsigned int>> mapBySource;
    for (auto itRecord = tRecords.first; itRecord != tRecords.second; ++itRecord)
    {
        const TRecord& t = m_atRecords[itRecord->nValue];
        const unsigned int nSource = m_atFiles[t.nFromFile].nStream;
        if (nSource == 0 || nSource == nStream)
            continue;
        std::vector<unsigned int>& anTaken = mapBySource[nSource];
        for (unsigned int nRev = t.nFromStart + 1; nRev <= t.nFromEnd; ++nRev)
            if (const unsigned int nOf = ChangeOf(t.nFromFile, nRev))
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
        std::unordered_map<uint32_t, TState> mapState;
        size_t nBlocking = 0;
        unsigned int nUpTo = 0;
        if (const TStreamLists* pSource = Lists(nSource))
        {
            const std::vector<TChangeRev>& at = pSource->atByChange;
            auto it = std::upper_bound(at.begin(), at.end(), TChangeRev{nHeld, 0, 0},
                                       [](const TChangeRev& tA, const TChangeRev& tB) { return tA.nKey < tB.nKey; });
            while (it != at.end() && it->nKey < nChange)
            {
                // The revisions of one change.
                const unsigned int nOf = it->nKey;
                for (; it != at.end() && it->nKey == nOf; ++it)
                {
                    const uint32_t nFile = it->nFile;
                    auto tInserted = mapState.emplace(nFile, TState());
                    TState& tState = tInserted.first->second;
                    if (tInserted.second)
                    {
                        const TRev* pAtHeld = RevisionAt(nFile, nHeld);
                        tState.bExisted = pAtHeld && !pAtHeld->bDeleted;
                    }
                    const bool bBlocked = tState.Blocks();
                    const TRev* pRev = RevisionAt(nFile, nOf);
                    tState.bDeleted = pRev && pRev->bDeleted;
                    // A copy of what the target held: the target has the file
                    // as it is now (what came before it is gone), and its
                    // deletion must come over.
                    if (IsHeldCopy(nFile, it->nRev, nSource, nStream, nChange, mapHeld))
                    {
                        tState.bExisted = tState.bExisted || !tState.bDeleted;
                        tState.bMissing = false;
                    }
                    else if (!IsCovered(nStream, nFile, it->nRev, nChange) &&
                             !(tState.bDeleted && IsCoveredMove(nSource, nStream, nFile, nOf, nChange)))
                        tState.bMissing = true;
                    if (bBlocked != tState.Blocks())
                        nBlocking = bBlocked ? nBlocking - 1 : nBlocking + 1;
                }
                if (nBlocking == 0)
                    nUpTo = nOf;
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
