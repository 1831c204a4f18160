// Where each change's integrations came from, as the Perforce server
// records them: every revision of each stream's files and every
// integration record into them, and from these whether a change merged
// another stream completely up to one of its changes, or took part of it.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SourceSystem.h"

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

private:
    struct TRev
    {
        unsigned int nRev, nChange;
        bool bDeleted;
        // The record that made it a branch, copy, move or deletion of
        // another file (null: none).
        const TP4Integration* pCopy;
    };
    struct TFile
    {
        unsigned int nStream = 0;
        std::vector<TRev> atRevs; // by revision
    };
    // Whether the revision is a branch or copy of a file of another stream
    // than A whose change the target held already.
    bool IsHeldCopy(const std::string& strFile, unsigned int nRev, unsigned int nStreamA, unsigned int nStreamB,
                    unsigned int nChange, const std::map<unsigned int, unsigned int>& mapHeld) const;
    // Whether a record into stream B at or before the change covers the
    // revision.
    bool IsCovered(unsigned int nStreamB, const std::string& strFile, unsigned int nRev, unsigned int nChange) const;
    // The file's revision at the change (0: none yet), and whether it is
    // deleted there.
    const TRev* RevisionAt(const std::string& strFile, unsigned int nChange) const;
    // The change of a revision (0: unknown).
    unsigned int ChangeOf(const std::string& strFile, unsigned int nRev) const;
    // The records into the stream at the change (null: none).
    const std::vector<const TP4Integration*>* RecordsInto(unsigned int nStream, unsigned int nChange) const;
    // Whether the revision is the deletion of a move whose addition at the
    // same change is covered.
    bool IsCoveredMove(unsigned int nStreamA, unsigned int nStreamB, const std::string& strFile, unsigned int nChange,
                       unsigned int nUpTo) const;

    std::vector<std::pair<std::string, unsigned int>> m_atStreams; // "//depot/main/" and id, longest first
    // Each file once: the others name it by the key's address.
    std::map<std::string, TFile> m_mapFiles;
    // Each stream's revisions by change: file and revision.
    std::map<unsigned int, std::map<unsigned int, std::vector<std::pair<const std::string*, unsigned int>>>>
        m_mapByChange;
    // Every record once; each stream's by change, and by source file.
    std::deque<TP4Integration> m_atRecords;
    std::map<unsigned int, std::map<unsigned int, std::vector<const TP4Integration*>>> m_mapInto;
    std::map<std::pair<unsigned int, std::string>, std::vector<const TP4Integration*>> m_mapCoverage;
};

} // namespace IMP
} // namespace ORVANE
