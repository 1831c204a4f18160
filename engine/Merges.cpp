#include "Merges.h"

#include <algorithm>

namespace ORVANE {
namespace IMP {

namespace {

void TakeNewer(THeld& mapHeld, const THeld& mapOther)
{
    for (const auto& kv : mapOther)
    {
        unsigned int& nHeld = mapHeld[kv.first];
        nHeld = std::max(nHeld, kv.second);
    }
}

} // namespace

void CMergePlan::Build(const TStreams& atStreams, const CSourceSystem& cSource)
{
    m_mapSteps.clear();
    m_mapHeld.clear();
    m_nMerges = 0;
    // Every change of every stream, by number, then by the streams' order
    // (a parent before its children).
    std::vector<std::pair<unsigned int, size_t>> atChanges;
    std::vector<std::vector<unsigned int>> aanChanges(atStreams.size());
    for (size_t i = 0; i < atStreams.size(); ++i)
    {
        aanChanges[i] = cSource.StreamChanges(atStreams[i].tInfo.nID);
        for (unsigned int nChange : aanChanges[i])
            atChanges.emplace_back(nChange, i);
    }
    std::sort(atChanges.begin(), atChanges.end());
    std::vector<unsigned int> anPrevious(atStreams.size(), 0);
    for (const auto& tChange : atChanges)
    {
        const unsigned int nChange = tChange.first;
        const TStream& tStream = atStreams[tChange.second];
        const unsigned int nID = tStream.tInfo.nID;
        // What the commit before held: the stream's previous one, or for its
        // first the parent stream's at the branch point.
        THeld mapHeld;
        unsigned int& nPrevious = anPrevious[tChange.second];
        if (nPrevious != 0)
            mapHeld = m_mapHeld[{nID, nPrevious}];
        else
            for (size_t i = 0; i < atStreams.size(); ++i)
            {
                if (atStreams[i].tInfo.nID != tStream.tInfo.nParentID || tStream.tInfo.nParentID == 0)
                    continue;
                const std::vector<unsigned int>& anParent = aanChanges[i];
                auto it = std::upper_bound(anParent.begin(), anParent.end(), nChange);
                if (it != anParent.begin())
                    mapHeld = m_mapHeld[{atStreams[i].tInfo.nID, *(it - 1)}];
            }
        TMergeStep tStep;
        THeld mapNew = mapHeld;
        for (const TIntegration& t : cSource.Integrations(nID, nChange, mapHeld))
        {
            auto itHeld = mapHeld.find(t.nFromStream);
            const unsigned int nHeld = itHeld != mapHeld.end() ? itHeld->second : 0;
            auto itParent = m_mapHeld.find({t.nFromStream, t.nUpTo});
            // Never backwards, and only onto a commit the plan has.
            if (t.nUpTo > nHeld && t.nUpTo < nChange && itParent != m_mapHeld.end())
            {
                tStep.atParents.emplace_back(t.nFromStream, t.nUpTo);
                TakeNewer(mapNew, itParent->second);
                ++m_nMerges;
            }
            if (t.nFirst != 0)
                tStep.atTaken.push_back(t);
        }
        mapNew[nID] = nChange;
        m_mapHeld[{nID, nChange}] = mapNew;
        if (!tStep.atParents.empty() || !tStep.atTaken.empty())
            m_mapSteps[{nID, nChange}] = tStep;
        nPrevious = nChange;
    }
}

const TMergeStep* CMergePlan::Step(unsigned int nStreamID, unsigned int nChange) const
{
    auto it = m_mapSteps.find({nStreamID, nChange});
    return it != m_mapSteps.end() ? &it->second : nullptr;
}

THeld CMergePlan::Held(unsigned int nStreamID, unsigned int nChange) const
{
    auto it = m_mapHeld.find({nStreamID, nChange});
    return it != m_mapHeld.end() ? it->second : THeld();
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
