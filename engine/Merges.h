// Which commits are merges: the history of every stream walked in change
// order before anything is written, each change told what its stream's
// history held of every other stream (the newest change of it reachable
// from the commit before), and asked of the source what it brought from
// other streams. The same source history gives the same plan, whether the
// run is a full one or continues a repository at any point.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SourceSystem.h"
#include "Streams.h"

namespace ORVANE {
namespace IMP {

// What becomes of one change of a stream: the commits of other streams it
// merges, each as (stream id, change), as further parents; and what it took
// of other streams without merging them, for its message.
struct TMergeStep
{
    std::vector<std::pair<unsigned int, unsigned int>> atParents;
    std::vector<TIntegration> atTaken;
};

// The newest change of each stream (by id) that a commit's history holds.
typedef std::map<unsigned int, unsigned int> THeld;

// The merges between streams: (from, into) -> the changes of the target
// stream that merge.
typedef std::map<std::pair<unsigned int, unsigned int>, std::vector<unsigned int>> TMergeEdges;

class CMergePlan
{
public:
    // Walks the changes of every stream (as the source lists them) in
    // change order, parents before children at one change. A stream's
    // first change branches from its parent stream's newest change at or
    // before it.
    void Build(const TStreams& atStreams, const CSourceSystem& cSource);
    // The step of a change (null: a commit of one parent, nothing taken).
    const TMergeStep* Step(unsigned int nStreamID, unsigned int nChange) const;
    // What the history of the stream's commit for the change holds (empty
    // when the plan has no such commit).
    THeld Held(unsigned int nStreamID, unsigned int nChange) const;
    TMergeEdges Edges() const;
    size_t Merges() const { return m_nMerges; }

private:
    // What the commits of one stream hold: its changes oldest first and for
    // each a row of the newest change held of every stream, in the order of
    // the streams (0: none).
    struct TStreamHeld
    {
        unsigned int nID = 0;
        std::vector<unsigned int> anChanges;
        std::vector<unsigned int> anHeld;
    };
    // The row of the stream's commit for the change (null: none).
    const unsigned int* Row(unsigned int nStreamID, unsigned int nChange) const;
    unsigned int* Row(unsigned int nStreamID, unsigned int nChange)
    {
        return const_cast<unsigned int*>(static_cast<const CMergePlan*>(this)->Row(nStreamID, nChange));
    }
    THeld HeldOf(const unsigned int* pnRow) const;

    std::map<std::pair<unsigned int, unsigned int>, TMergeStep> m_mapSteps;
    std::vector<TStreamHeld> m_atHeld;
    std::map<unsigned int, size_t> m_mapSlots; // stream id -> its place in m_atHeld and in a row
    size_t m_nMerges = 0;
};

} // namespace IMP
} // namespace ORVANE
