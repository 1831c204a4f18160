// The streams of a migration, what became of each, and the table that
// shows them.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Driver.h"
#include "GitRepository.h"
#include "Table.h"

namespace ORVANE {
namespace IMP {

struct TStream
{
    TStreamInfo tInfo;
    std::string strName;                              // UTF-8
    std::string strFolder;                            // WORKSPACE/<name>
    std::string strBranch;                            // below refs/heads/
    std::vector<std::pair<long, unsigned>> atCommits; // time and fast-import mark of each commit
    unsigned nChanges = 0;
    // What the branch held before this run: the time and name of each of
    // the stream's commits, oldest first, and the last changelist (0: none).
    std::vector<std::pair<long, std::string>> atEarlier;
    unsigned nLastChange = 0;
    // The commit of each change: its name (earlier runs) or ":<mark>"
    // (this run), for the merges of other streams.
    std::map<unsigned, std::string> mapCommits;
};

typedef std::vector<TStream> TStreams;

TStreams MakeStreams(const std::vector<TStreamInfo>& atInfos);
// Takes the newer information of each stream found by its id.
void RefreshStreams(TStreams& atStreams, const std::vector<TStreamInfo>& atInfos);
// A branch name of its own for each stream, in the list's order.
void NameBranches(TStreams& atStreams);
// Each stream's folder below the workspace, named after the stream.
void PlaceStreams(TStreams& atStreams, const std::string& strWorkspace);
// Takes the stream's commits from its branch as an earlier run left it
// (newest first, following first parents): those whose Perforce-Path is the
// stream's, up to the first that is not (its parent stream's history).
// False with a message when the branch's tip is not the stream's.
bool TakeEarlierCommits(TStream& tStream, const std::vector<TGitCommit>& atLog, std::string& strError);
// The parent stream's last commit at or before the time, of this run
// (":<mark>") or of an earlier one (its name): where the stream's history
// branches off. "" when there is none.
std::string ParentCommit(const TStreams& atStreams, const TStream& tStream, long tTime);
// The branch of the first stream that has commits, or "".
std::string HeadBranch(const TStreams& atStreams);
// The table of the streams: ID, PARENT, NAME, SOURCE, DESTINATION, and
// with the commits BRANCH and COMMITS.
TRows StreamRows(const TStreams& atStreams, bool bWithCommits);

} // namespace IMP
} // namespace ORVANE
