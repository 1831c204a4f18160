#include "Merges.h"

#include <algorithm>

namespace ORVANE {
namespace IMP {

const unsigned int* CMergePlan::Row(unsigned int nStreamID, unsigned int nChange) const
{
    auto itSlot = m_mapSlots.find(nStreamID);
    if (itSlot == m_mapSlots.end())
        return nullptr;
    const TStreamHeld& tStream = m_atHeld[itSlot->second];
    auto it = std::lower_bound(tStream.anChanges.begin(), tStream.anChanges.end(), nChange);
    if (it == tStream.anChanges.end() || *it != nChange)
        return nullptr;
    return tStream.anHeld.data() + size_t(it - tStream.anChanges.begin()) * m_atHeld.size();
}

THeld CMergePlan::HeldOf(const unsigned int* pnRow) const
{
    THeld mapHeld;
    if (pnRow)
        for (size_t i = 0; i < m_atHeld.size(); ++i)
            if (pnRow[i] != 0)
                mapHeld[m_atHeld[i].nID] = pnRow[i];
    return mapHeld;
}

void CMergePlan::Build(const TStreams& atStreams, const CSourceSystem& cSource)
{
    m_mapSteps.clear();
    m_atHeld.assign(atStreams.size(), TStreamHeld());
    m_mapSlots.clear();
    m_nMerges = 0;
    const size_t nStreams = atStreams.size();
    // Every change of every stream, by number, then by the streams' order
    // (a parent before its children).
    std::vector<std::pair<unsigned int, size_t>> atChanges;
    for (size_t i = 0; i < nStreams; ++i)
    {
        TStreamHeld& tHeld = m_atHeld[i];
        tHeld.nID = atStreams[i].tInfo.nID;
        tHeld.anChanges = cSource.StreamChanges(tHeld.nID);
        std::sort(tHeld.anChanges.begin(), tHeld.anChanges.end());
        tHeld.anChanges.erase(std::unique(tHeld.anChanges.begin(), tHeld.anChanges.end()), tHeld.anChanges.end());
        tHeld.anHeld.assign(tHeld.anChanges.size() * nStreams, 0);
        m_mapSlots.emplace(tHeld.nID, i);
        for (unsigned int nChange : tHeld.anChanges)
            atChanges.emplace_back(nChange, i);
    }
    std::sort(atChanges.begin(), atChanges.end());
    // Each change's place among its stream's.
    std::vector<size_t> anNext(nStreams, 0);
    std::vector<unsigned int> anNew(nStreams);
    for (const auto& tChange : atChanges)
    {
        const unsigned int nChange = tChange.first;
        const TStream& tStream = atStreams[tChange.second];
        TStreamHeld& tHeld = m_atHeld[tChange.second];
        const size_t nPlace = anNext[tChange.second]++;
        // What the commit before held: the stream's previous one, or for its
        // first the parent stream's at the branch point.
        const unsigned int* pnBefore = nullptr;
        if (nPlace != 0)
            pnBefore = tHeld.anHeld.data() + (nPlace - 1) * nStreams;
        else if (tStream.tInfo.nParentID != 0)
        {
            auto itSlot = m_mapSlots.find(tStream.tInfo.nParentID);
            if (itSlot != m_mapSlots.end())
            {
                const TStreamHeld& tParent = m_atHeld[itSlot->second];
                auto it = std::upper_bound(tParent.anChanges.begin(), tParent.anChanges.end(), nChange);
                if (it != tParent.anChanges.begin())
                    pnBefore = tParent.anHeld.data() + size_t(it - 1 - tParent.anChanges.begin()) * nStreams;
            }
        }
        if (pnBefore)
            anNew.assign(pnBefore, pnBefore + nStreams);
        else
            anNew.assign(nStreams, 0);
        const THeld mapHeld = HeldOf(anNew.data());
        TMergeStep tStep;
        for (const TIntegration& t : cSource.Integrations(tHeld.nID, nChange, mapHeld))
        {
            auto itHeld = mapHeld.find(t.nFromStream);
            const unsigned int nHeld = itHeld != mapHeld.end() ? itHeld->second : 0;
            auto itSource = m_mapSlots.find(t.nFromStream);
            // The merged commit: one the plan has made already.
            const unsigned int* pnParent = Row(t.nFromStream, t.nUpTo);
            if (pnParent && pnParent[itSource->second] == 0)
                pnParent = nullptr;
            // Never backwards, and only onto a commit the plan has.
            if (t.nUpTo > nHeld && t.nUpTo < nChange && pnParent)
            {
                tStep.atParents.emplace_back(t.nFromStream, t.nUpTo);
                for (size_t i = 0; i < nStreams; ++i)
                    anNew[i] = std::max(anNew[i], pnParent[i]);
                ++m_nMerges;
            }
            if (t.nFirst != 0)
                tStep.atTaken.push_back(t);
        }
        anNew[tChange.second] = nChange;
        std::copy(anNew.begin(), anNew.end(), tHeld.anHeld.begin() + std::ptrdiff_t(nPlace * nStreams));
        if (!tStep.atParents.empty() || !tStep.atTaken.empty())
            m_mapSteps[{tHeld.nID, nChange}] = tStep;
    }
}

const TMergeStep* CMergePlan::Step(unsigned int nStreamID, unsigned int nChange) const
{
    auto it = m_mapSteps.find({nStreamID, nChange});
    return it != m_mapSteps.end() ? &it->second : nullptr;
}

THeld CMergePlan::Held(unsigned int nStreamID, unsigned int nChange) const
{
    return HeldOf(Row(nStreamID, nChange));
}

TMergeEdges CMergePlan::Edges() const
{
    TMergeEdges mapEdges;
    for (const auto& kv : m_mapSteps)
        for (const auto& tParent : kv.second.atParents)
            mapEdges[{tParent.first, kv.first.first}].push_back(kv.first.second);
    return mapEdges;
}

} // namespace IMP
} // namespace ORVANE
