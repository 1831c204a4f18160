// Perforce labels as annotated git tags: a label whose revisions are
// exactly one stream's files at one of its changes becomes refs/tags/NAME
// on that change's commit; every other label is reported with the reason.
// The commits are found by their Perforce-Change trailers, so that commits
// of earlier runs count as well.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Authors.h"

namespace ORVANE {
namespace IMP {

// A label as `p4 labels` lists it.
struct TLabelInfo
{
    std::string strName, strOwner, strDescription;
    long tUpdate = 0; // seconds since 1970 UTC
};

// A stream the labels may be of: its branch and depot path ("//depot/main").
struct TLabelStream
{
    std::string strBranch, strDepotPath;
};

// What became of one label: a tag (bTagged) or why not.
struct TLabelOutcome
{
    std::string strName;
    bool bTagged = false;
    std::string strWhat; // "tag on BRANCH at change N (COMMIT)" or the reason it was skipped
};

// The text of an annotated tag object for the commit, as git mktag takes
// it: the tagger at the time (+0000), the message with one final line end
// (an empty one becomes "Perforce label NAME").
std::string TagObject(const std::string& strCommit, const std::string& strName, const TIdent& tTagger, long tTime,
                      const std::string& strMessage);

// The commits of the branch by their Perforce-Change trailer. False with a
// message when git cannot list them.
bool CommitsByChange(const std::string& strGitDir, const std::string& strBranch,
                     std::map<unsigned, std::string>& mapCommits, std::string& strError);

class CLabels
{
public:
    // strP4: the p4 client; strGitDir: the repository, with no fast-import
    // running on it; cAuthors: who the labels' owners are.
    CLabels(const std::string& strP4, const std::string& strGitDir, const CAuthors& cAuthors)
        : m_strP4(strP4), m_strGitDir(strGitDir), m_cAuthors(cAuthors)
    {
    }

    // Lists the server's labels and makes a tag of each that is one
    // stream's state at one of its changes, in the labels' order. Throws
    // EStop (failure) when the labels cannot be listed or git fails.
    std::vector<TLabelOutcome> Import(const std::vector<TLabelStream>& atStreams);

private:
    // The tag's commit, or empty with the reason the label is skipped.
    std::string FindCommit(const TLabelInfo& tLabel, const std::vector<TLabelStream>& atStreams, std::string& strWhat);
    // Writes refs/tags/NAME for the commit.
    void WriteTag(const TLabelInfo& tLabel, const std::string& strCommit);

    std::string m_strP4;
    std::string m_strGitDir;
    const CAuthors& m_cAuthors;
    std::map<std::string, std::map<unsigned, std::string>> m_mapBranchCommits;
};

} // namespace IMP
} // namespace ORVANE
