#include "perforce/Labels.h"

#include <algorithm>
#include <cstdlib>

#include "FastImport.h"
#include "GitRepository.h"
#include "Stop.h"
#include "Text.h"
#include "Trailers.h"
#include "perforce/P4Query.h"

namespace ORVANE {
namespace IMP {

namespace {

bool IsDeletion(const std::string& strAction)
{
    return strAction == "delete" || strAction == "move/delete" || strAction == "purge" || strAction == "archive";
}

// The revisions of a `p4 files` listing that are files (deletions left
// out): depot file -> revision; nMaxChange gets the newest change of all.
typedef std::map<std::string, std::string> TRevisions;

bool ListFiles(const std::string& strP4, const std::vector<std::string>& astrArgs, TRevisions& mapRevs,
               unsigned& nMaxChange, std::string& strProblem)
{
    nMaxChange = 0;
    const TP4Result tResult = CP4Query(strP4).Run(astrArgs, [&](const TP4Record& t) {
        if (RecordValue(t, "code") != "stat")
            return true;
        nMaxChange = std::max(nMaxChange, unsigned(std::strtoul(RecordValue(t, "change").c_str(), nullptr, 10)));
        if (!IsDeletion(RecordValue(t, "action")))
            mapRevs[RecordValue(t, "depotFile")] = RecordValue(t, "rev");
        return true;
    });
    strProblem = tResult.Problem();
    return strProblem.empty();
}

bool IsUnder(const std::string& strFile, const std::string& strDepotPath)
{
    return strFile.compare(0, strDepotPath.size() + 1, strDepotPath + "/") == 0;
}

// The first file whose revision differs between the two.
std::string FirstDifference(const TRevisions& mapA, const TRevisions& mapB)
{
    auto itA = mapA.begin();
    auto itB = mapB.begin();
    while (itA != mapA.end() && itB != mapB.end() && *itA == *itB)
        ++itA, ++itB;
    if (itA == mapA.end())
        return itB == mapB.end() ? std::string() : itB->first;
    if (itB == mapB.end() || itA->first < itB->first)
        return itA->first;
    return itB->first;
}

// A label's description as its tag's message: the line ends and blanks at
// its end go. (A '\r' stays, as it always has: tags that earlier runs made
// must come out the same byte for byte.)
std::string MessageText(std::string str)
{
    while (!str.empty() && (str.back() == '\n' || str.back() == ' ' || str.back() == '\t'))
        str.pop_back();
    return str;
}

// Runs git on the repository: what it wrote to standard output, or to
// standard error when it failed (nStatus not 0).
std::string Git(const std::string& strGitDir, const std::vector<std::string>& astrArgs, const std::string& strInput,
                int& nStatus)
{
    std::string strOut, strErr;
    nStatus = RunGit(strGitDir, astrArgs, strInput, strOut, strErr);
    return nStatus != 0 ? strErr : strOut;
}

} // namespace

std::string TagObject(const std::string& strCommit, const std::string& strName, const TIdent& tTagger, long tTime,
                      const std::string& strMessage)
{
    std::string strText = MessageText(strMessage);
    if (strText.empty())
        strText = "Perforce label " + strName;
    // The tagger is cleaned as a commit's author is.
    return "object " + strCommit + "\ntype commit\ntag " + strName + "\ntagger " +
           IdentLine(tTagger.strName, tTagger.strEmail, tTime) + "\n\n" + strText + "\n";
}

bool CommitsByChange(const std::string& strGitDir, const std::string& strBranch,
                     std::map<unsigned, std::string>& mapCommits, std::string& strError)
{
    std::vector<TGitCommit> atCommits;
    std::string strErr;
    if (!ReadFirstParents(strGitDir, "refs/heads/" + strBranch, atCommits, strErr))
    {
        strError = "git log of " + strBranch + " failed: " + strErr.substr(0, strErr.find('\n'));
        return false;
    }
    // The newest commit of each change: the branch's own, not its parent
    // stream's before it.
    for (const TGitCommit& tCommit : atCommits)
        if (tCommit.nChange && !mapCommits.count(tCommit.nChange))
            mapCommits[tCommit.nChange] = tCommit.strName + "\t" + tCommit.strPath;
    return true;
}

std::vector<TLabelOutcome> CLabels::Import(const std::vector<TLabelStream>& atStreams)
{
    std::vector<TLabelInfo> atLabels;
    const TP4Result tList = CP4Query(m_strP4).Run({"labels"}, [&atLabels](const TP4Record& t) {
        if (RecordValue(t, "code") == "stat")
            atLabels.push_back(TLabelInfo{RecordValue(t, "label"), RecordValue(t, "Owner"),
                                          RecordValue(t, "Description"), std::atol(RecordValue(t, "Update").c_str())});
        return true;
    });
    if (!tList.Problem().empty())
        throw EStop(eExitFailure, "the labels of the Perforce server cannot be listed: " + tList.Problem());
    std::vector<TLabelOutcome> atOutcomes;
    for (const TLabelInfo& tLabel : atLabels)
    {
        TLabelOutcome tOutcome;
        tOutcome.strName = tLabel.strName;
        const std::string strCommit = FindCommit(tLabel, atStreams, tOutcome.strWhat);
        if (!strCommit.empty())
        {
            WriteTag(tLabel, strCommit);
            tOutcome.bTagged = true;
        }
        atOutcomes.push_back(tOutcome);
    }
    return atOutcomes;
}

std::string CLabels::FindCommit(const TLabelInfo& tLabel, const std::vector<TLabelStream>& atStreams,
                                std::string& strWhat)
{
    int nStatus = 0;
    Git(m_strGitDir, {"check-ref-format", "refs/tags/" + tLabel.strName}, std::string(), nStatus);
    if (nStatus != 0)
    {
        strWhat = "its name is not a valid git tag name";
        return std::string();
    }
    TRevisions mapLabel;
    unsigned nChange = 0;
    std::string strProblem;
    if (!ListFiles(m_strP4, {"files", "//...@" + tLabel.strName}, mapLabel, nChange, strProblem))
    {
        strWhat = "its files cannot be listed: " + strProblem;
        return std::string();
    }
    if (mapLabel.empty())
    {
        strWhat = "it tags no files";
        return std::string();
    }
    // The streams that hold every file of the label, the deepest first.
    std::vector<const TLabelStream*> apCandidates;
    for (const TLabelStream& s : atStreams)
        if (std::all_of(mapLabel.begin(), mapLabel.end(),
                        [&s](const TRevisions::value_type& kv) { return IsUnder(kv.first, s.strDepotPath); }))
            apCandidates.push_back(&s);
    std::sort(apCandidates.begin(), apCandidates.end(), [](const TLabelStream* pA, const TLabelStream* pB) {
        return pA->strDepotPath.size() > pB->strDepotPath.size();
    });
    if (apCandidates.empty())
    {
        std::string strStreams;
        for (const TLabelStream& s : atStreams)
            for (const auto& kv : mapLabel)
                if (IsUnder(kv.first, s.strDepotPath))
                {
                    strStreams += (strStreams.empty() ? "" : ", ") + s.strBranch;
                    break;
                }
        for (const auto& kv : mapLabel)
            if (std::none_of(atStreams.begin(), atStreams.end(),
                             [&kv](const TLabelStream& s) { return IsUnder(kv.first, s.strDepotPath); }))
            {
                strWhat = "it tags files outside every stream (" + kv.first + ")";
                return std::string();
            }
        strWhat = "its files lie in several streams (" + strStreams + ")";
        return std::string();
    }
    for (const TLabelStream* pStream : apCandidates)
    {
        TRevisions mapStream;
        unsigned nIgnored = 0;
        if (!ListFiles(m_strP4, {"files", "-e", pStream->strDepotPath + "/...@" + std::to_string(nChange)}, mapStream,
                       nIgnored, strProblem))
        {
            strWhat = "the files of " + pStream->strBranch + " cannot be listed: " + strProblem;
            return std::string();
        }
        const std::string strDifference = FirstDifference(mapLabel, mapStream);
        if (!strDifference.empty())
        {
            strWhat = "it is not the state of " + pStream->strBranch + " at change " + std::to_string(nChange) +
                      ", its newest (" + strDifference + " differs)";
            continue;
        }
        auto itBranch = m_mapBranchCommits.find(pStream->strBranch);
        if (itBranch == m_mapBranchCommits.end())
        {
            std::string strError;
            itBranch = m_mapBranchCommits.emplace(pStream->strBranch, std::map<unsigned, std::string>()).first;
            CommitsByChange(m_strGitDir, pStream->strBranch, itBranch->second, strError);
        }
        auto itCommit = itBranch->second.find(nChange);
        const std::string strPattern = DepotPattern(pStream->strDepotPath);
        if (itCommit == itBranch->second.end() || itCommit->second.substr(41) != strPattern)
        {
            strWhat = "change " + std::to_string(nChange) + " has no commit on " + pStream->strBranch;
            return std::string();
        }
        const std::string strCommit = itCommit->second.substr(0, 40);
        strWhat = "tag on " + pStream->strBranch + " at change " + std::to_string(nChange) + " (" +
                  strCommit.substr(0, 12) + ")";
        return strCommit;
    }
    return std::string();
}

void CLabels::WriteTag(const TLabelInfo& tLabel, const std::string& strCommit)
{
    const std::string strObject =
        TagObject(strCommit, tLabel.strName, m_cAuthors.Ident(tLabel.strOwner), tLabel.tUpdate, tLabel.strDescription);
    int nStatus = 0;
    const std::string strTag = TrimmedEnd(Git(m_strGitDir, {"mktag"}, strObject, nStatus));
    if (nStatus != 0)
        throw EStop(eExitFailure, "git mktag failed for the label " + tLabel.strName + ": " + strTag);
    const std::string strError =
        Git(m_strGitDir, {"update-ref", "refs/tags/" + tLabel.strName, strTag}, std::string(), nStatus);
    if (nStatus != 0)
        throw EStop(eExitFailure, "git update-ref failed for the tag " + tLabel.strName + ": " + strError);
}

} // namespace IMP
} // namespace ORVANE
