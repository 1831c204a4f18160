// The streams of a migration, what became of each, and the table that
// shows them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Driver.h"
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
};

typedef std::vector<TStream> TStreams;

TStreams MakeStreams(const std::vector<TStreamInfo>& atInfos);
// Takes the newer information of each stream found by its id.
void RefreshStreams(TStreams& atStreams, const std::vector<TStreamInfo>& atInfos);
// A branch name of its own for each stream, in the list's order.
void NameBranches(TStreams& atStreams);
// Each stream's folder below the workspace, named after the stream.
void PlaceStreams(TStreams& atStreams, const std::string& strWorkspace);
// The mark of the parent stream's last commit at or before the time: where
// the stream's history branches off. 0 when there is none.
unsigned ParentCommit(const TStreams& atStreams, const TStream& tStream, long tTime);
// The branch of the first stream that has commits, or "".
std::string HeadBranch(const TStreams& atStreams);
// The table of the streams: ID, PARENT, NAME, SOURCE, DESTINATION, and
// with the commits BRANCH and COMMITS.
TRows StreamRows(const TStreams& atStreams, bool bWithCommits);

} // namespace IMP
} // namespace ORVANE
