// Where each change's integrations came from, as the Perforce server
// records them: every revision of each stream's files and every
// integration record into them, and from these whether a change merged
// another stream completely up to one of its changes, or took part of it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SourceSystem.h"
#include "StringTable.h"

namespace ORVANE {
namespace IMP {

// A revision of a depot file.
struct TP4Revision
{
    std::string strFile;
    unsigned int nRev = 0;
    unsigned int nChange = 0;
    bool bDeleted = false;
};

// An integration record as its target keeps it: the target's revision, the
// source's revisions after nFromStart up to nFromEnd, how it was resolved
// ("copy from", "ignored", ...) and the change that submitted it.
struct TP4Integration
{
    std::string strToFile;
    unsigned int nToRev = 0;
    std::string strFromFile;
    unsigned int nFromStart = 0, nFromEnd = 0;
    std::string strHow;
    unsigned int nChange = 0;
};

// "#none" -> 0, "#3" (or "3") -> 3.
unsigned int RevisionNumber(const std::string& strRev);
// Whether a record's "how" is the target's side of an integration ("...
// from", "ignored"), not the source's ("... into", "ignored by").
bool IsTargetSide(const std::string& strHow);
// Whether the action leaves the file deleted.
bool IsDeleteAction(const std::string& strAction);

// The rules:
// - A change C of stream B merges stream A up to change M when every
//   revision of A's files made by a change after the newest change K of A
//   that B already held, up to M, is covered by an integration record into
//   B from that file at C or before (the source revisions after the
//   record's start up to its end; "ignored" ones count). Not needed are a
//   revision that is a branch, copy, move or deletion from a file of another
//   stream S whose
//   change B held already (of B itself: any older one), the revisions that
//   such a copy replaced, and those of a file that did not exist at K and
//   is deleted at M. A move's deletion is
//   covered with the move's addition. M is the newest such change before C;
//   only one after K counts (a merge never moves backwards), and only when
//   C itself brought some of the revisions after K up to M.
// - What C integrated from A beyond M and K (all of it after K, when there
//   is no such M) is told as the first and last change of A whose
//   revisions it took: what B held already is no news.
class CIntegrationIndex
{
public:
    // The streams: id and depot folder ("//depot/main").
    void AddStream(unsigned int nID, const std::string& strPath);
    void AddRevision(const TP4Revision& tRevision);
    // A target's record; records of the source's side are left out.
    void AddIntegration(const TP4Integration& tIntegration);

    // The id of the stream that holds the depot file (0: none).
    unsigned int StreamOf(const std::string& strFile) const;
    std::vector<unsigned int> Changes(unsigned int nStream) const;
    std::vector<TIntegration> Integrations(unsigned int nStream, unsigned int nChange,
                                           const std::map<unsigned int, unsigned int>& mapHeld) const;

    // Lets go of everything it holds.
    void Clear();

private:
    // A target's record, its files by number.
    struct TRecord
    {
        uint32_t nToFile, nToRev, nFromFile, nFromStart, nFromEnd, nChange;
        // Whether it leaves the target as the source was (a branch, copy,
        // move or deletion), and whether it is a move.
        bool bCopy, bMove;
    };
    struct TRev
    {
        uint32_t nRev, nChange;
        // The record that made it a branch, copy, move or deletion of
        // another file, plus one (0: none).
        uint32_t nCopy : 31;
        uint32_t bDeleted : 1;
    };
    struct TFile
    {
        unsigned int nStream = 0;
        std::vector<TRev> atRevs; // by revision
    };
    // A number and what it leads to.
    struct TKeyed
    {
        uint32_t nKey, nValue;
    };
    struct TChangeRev
    {
        uint32_t nKey, nFile, nRev; // change, file, revision
    };
    // Lists kept in the order they came until asked: then sorted (stably)
    // by their key.
    struct TStreamLists
    {
        std::vector<TChangeRev> atByChange;
        std::vector<TKeyed> atInto;     // change, record
        std::vector<TKeyed> atCoverage; // source file, record
        bool bSorted = true;
    };
    typedef std::vector<TKeyed>::const_iterator TKeyedIt;
    typedef std::vector<TChangeRev>::const_iterator TChangeRevIt;

    // Sorts what came since the last question.
    void Sort() const;
    const TStreamLists* Lists(unsigned int nStream) const;
    const TFile* File(uint32_t nFile) const { return nFile < m_atFiles.size() ? &m_atFiles[nFile] : nullptr; }
    // Whether the revision is a branch or copy of a file of another stream
    // than A whose change the target held already.
    bool IsHeldCopy(uint32_t nFile, unsigned int nRev, unsigned int nStreamA, unsigned int nStreamB,
                    unsigned int nChange, const std::map<unsigned int, unsigned int>& mapHeld) const;
    // Whether a record into stream B at or before the change covers the
    // revision.
    bool IsCovered(unsigned int nStreamB, uint32_t nFile, unsigned int nRev, unsigned int nChange) const;
    // The file's revision at the change (null: none yet).
    const TRev* RevisionAt(uint32_t nFile, unsigned int nChange) const;
    // The change of a revision (0: unknown).
    unsigned int ChangeOf(uint32_t nFile, unsigned int nRev) const;
    // The records into the stream at the change.
    std::pair<TKeyedIt, TKeyedIt> RecordsInto(unsigned int nStream, unsigned int nChange) const;
    // Whether the revision is the deletion of a move whose addition at the
    // same change is covered.
    bool IsCoveredMove(unsigned int nStreamA, unsigned int nStreamB, uint32_t nFile, unsigned int nChange,
                       unsigned int nUpTo) const;
    uint32_t FileNumber(const std::string& strFile);

    std::vector<std::pair<std::string, unsigned int>> m_atStreams; // "//depot/main/" and id, longest first
    // Each depot file's name once; the file by its number.
    CStringTable m_cNames;
    std::vector<TFile> m_atFiles;
    std::vector<TRecord> m_atRecords;
    mutable std::map<unsigned int, TStreamLists> m_mapLists;
};

} // namespace IMP
} // namespace ORVANE
