#include "Streams.h"

#include <set>

#include "RefName.h"
#include "Text.h"

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

unsigned ParentCommit(const TStreams& atStreams, const TStream& tStream, long tTime)
{
    unsigned nMark = 0;
    for (const TStream& tParent : atStreams)
        if (tParent.tInfo.nID == tStream.tInfo.nParentID)
            for (const auto& tCommit : tParent.atCommits)
                if (tCommit.first <= tTime)
                    nMark = tCommit.second;
    return nMark;
}

std::string HeadBranch(const TStreams& atStreams)
{
    for (const TStream& s : atStreams)
        if (!s.atCommits.empty())
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
            astrRow.push_back(t.atCommits.empty() ? "-" : "refs/heads/" + t.strBranch);
            astrRow.push_back(std::to_string(t.nChanges));
        }
        aastrRows.push_back(astrRow);
    }
    return aastrRows;
}

} // namespace IMP
} // namespace ORVANE
