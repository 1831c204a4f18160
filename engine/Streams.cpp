#include "Streams.h"

#include <set>

#include "RefName.h"
#include "Text.h"
#include "Trailers.h"

namespace ORVANE {
namespace IMP {

TStreams MakeStreams(const std::vector<TStreamInfo>& atInfos)
{
    TStreams atStreams;
    for (const TStreamInfo& t : atInfos)
    {
        TStream s;
        s.tInfo = t;
        s.strName = Utf8(t.strName);
        atStreams.push_back(s);
    }
    return atStreams;
}

void RefreshStreams(TStreams& atStreams, const std::vector<TStreamInfo>& atInfos)
{
    for (const TStreamInfo& t : atInfos)
        for (TStream& s : atStreams)
            if (s.tInfo.nID == t.nID)
                s.tInfo = t;
}

void NameBranches(TStreams& atStreams)
{
    std::set<std::string> setUsed;
    for (TStream& s : atStreams)
        s.strBranch = MakeBranchName(s.strName, setUsed);
}

void PlaceStreams(TStreams& atStreams, const std::string& strWorkspace)
{
    for (TStream& s : atStreams)
        s.strFolder = strWorkspace + "/" + s.strName;
}

bool TakeEarlierCommits(TStream& tStream, const std::vector<TGitCommit>& atLog, std::string& strError)
{
    tStream.atEarlier.clear();
    tStream.mapCommits.clear();
    tStream.nLastChange = 0;
    if (atLog.empty())
        return true;
    const std::string strPattern = DepotPattern(PathText(tStream.tInfo.cDstPath));
    if (atLog[0].nChange == 0 || atLog[0].strPath != strPattern)
    {
        strError = "the branch " + tStream.strBranch + " does not end with a commit of the stream " + tStream.strName +
                   " (trailers Perforce-Change and Perforce-Path: " + strPattern + ")";
        return false;
    }
    tStream.nLastChange = atLog[0].nChange;
    for (const TGitCommit& t : atLog)
    {
        if (t.strPath != strPattern)
            break;
        tStream.atEarlier.insert(tStream.atEarlier.begin(), {t.tTime, t.strName});
        tStream.mapCommits[t.nChange] = t.strName;
    }
    return true;
}

std::string ParentCommit(const TStreams& atStreams, const TStream& tStream, long tTime)
{
    std::string strCommit;
    for (const TStream& tParent : atStreams)
    {
        if (tParent.tInfo.nID != tStream.tInfo.nParentID)
            continue;
        // The earlier runs' commits come before this run's.
        for (const auto& tCommit : tParent.atEarlier)
            if (tCommit.first <= tTime)
                strCommit = tCommit.second;
        for (const auto& tCommit : tParent.atCommits)
            if (tCommit.first <= tTime)
                strCommit = ":" + std::to_string(tCommit.second);
    }
    return strCommit;
}

std::string HeadBranch(const TStreams& atStreams)
{
    for (const TStream& s : atStreams)
        if (!s.atCommits.empty() || !s.atEarlier.empty())
            return s.strBranch;
    return std::string();
}

TRows StreamRows(const TStreams& atStreams, bool bWithCommits)
{
    TRows aastrRows;
    if (bWithCommits)
        aastrRows.push_back({"ID", "PARENT", "NAME", "SOURCE", "DESTINATION", "BRANCH", "COMMITS"});
    else
        aastrRows.push_back({"ID", "PARENT", "NAME", "SOURCE", "DESTINATION"});
    for (const TStream& t : atStreams)
    {
        std::vector<std::string> astrRow = {std::to_string(t.tInfo.nID), std::to_string(t.tInfo.nParentID), t.strName,
                                            t.tInfo.cSrcPath.IsEmpty() ? "-" : PathText(t.tInfo.cSrcPath),
                                            PathText(t.tInfo.cDstPath)};
        if (bWithCommits)
        {
            astrRow.push_back(t.atCommits.empty() && t.atEarlier.empty() ? "-" : "refs/heads/" + t.strBranch);
            astrRow.push_back(std::to_string(t.nChanges));
        }
        aastrRows.push_back(astrRow);
    }
    return aastrRows;
}

} // namespace IMP
} // namespace ORVANE
