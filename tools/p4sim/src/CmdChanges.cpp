// `p4 changes` and `p4 describe`.
#include "Commands.h"

#include "Text.h"

#include <algorithm>
#include <set>

namespace ORVANE {
namespace P4SIM {

namespace {

// The listing's filters and output: each change offered goes out unless a
// filter drops it; false once the maximum is reached.
class CChangeLister
{
public:
    CChangeLister(TContext& rContext, const TOptions& tOptions) : m_rContext(rContext), m_tOptions(tOptions)
    {
        m_nMax = MaxOption(tOptions);
        m_strStatus = tOptions.Value('s');
        if (tOptions.Has('s') && m_strStatus != "submitted" && m_strStatus != "pending" && m_strStatus != "shelved")
            throw EP4Error("Invalid changelist status '" + m_strStatus + "'.");
    }

    bool Done() const { return m_nMax >= 0 && m_nListed >= m_nMax; }
    bool Offer(const TChangeRec& tChange);
    // Whether pending and shelved changes can be listed at all.
    bool WantsPending() const { return m_strStatus != "submitted"; }

private:
    TContext& m_rContext;
    const TOptions& m_tOptions;
    long long m_nMax = -1;
    long long m_nListed = 0;
    std::string m_strStatus;
};

bool CChangeLister::Offer(const TChangeRec& tChange)
{
    if (Done())
        return false;
    // A shelved change is a pending one with shelved files: -s pending lists
    // it too.
    if (m_strStatus == "submitted" && !tChange.Submitted())
        return true;
    if (m_strStatus == "pending" && tChange.Submitted())
        return true;
    if (m_strStatus == "shelved" && !tChange.Shelved())
        return true;
    if (m_tOptions.Has('u') && tChange.strUser != m_tOptions.Value('u'))
        return true;
    if (m_tOptions.Has('c') && tChange.strClient != m_tOptions.Value('c'))
        return true;
    ++m_nListed;
    m_rContext.cLimits.AddResults(1);
    bool bLong = m_tOptions.Has('l'), bLonger = m_tOptions.Has('L');
    std::string strDesc = bLong ? tChange.strDescription : Truncated(tChange.strDescription, bLonger ? 250 : 31);
    TRecord aRecord = {{"change", Num(tChange.nChange)},
                       {"time", Num(tChange.nTime)},
                       {"user", tChange.strUser},
                       {"client", tChange.strClient},
                       {"status", tChange.Submitted() ? "submitted" : "pending"},
                       {"changeType", "public"},
                       {"path", tChange.strPath}};
    if (tChange.Shelved())
        aRecord.push_back({"shelved", ""});
    aRecord.push_back({"desc", strDesc});
    std::string strDate = m_tOptions.Has('t') ? FormatDateTime(tChange.nTime) : FormatDate(tChange.nTime);
    std::string strHead =
        "Change " + Num(tChange.nChange) + " on " + strDate + " by " + tChange.strUser + "@" + tChange.strClient;
    if (!tChange.Submitted())
        strHead += " *pending*";
    std::string strPlain =
        (bLong || bLonger) ? strHead + "\n\n" + Indented(strDesc) + "\n" : strHead + " '" + OneLine(strDesc) + "'\n";
    m_rContext.pOutput->Stat(aRecord, strPlain);
    return !Done();
}

// One file argument of `changes`, resolved to a pattern and a change range.
struct TChangesArg
{
    std::string strPattern;
    bool bIsDepot = true;
    long long nLow = 1, nHigh = 0;
    std::string strLabel; // up to the revisions the label tags
    std::vector<std::string> astrPrefixes;
};

TChangesArg ResolveChangesArg(TContext& rContext, const std::string& strArg, const TClientView* pView,
                              long long nMinChange, long long nMaxChange)
{
    TFileArg tArg = SplitFileArg(strArg);
    TChangesArg tOut;
    TRevBounds tBounds = ParseRevBounds(tArg.strRev, nMaxChange);
    tOut.strLabel = tBounds.strLabel;
    // "@label" alone stands for "//...@label".
    tOut.strPattern = ArgPattern(rContext, tArg.strPath.empty() ? "//..." : tArg.strPath, pView, tOut.bIsDepot);
    if (tBounds.nRev >= 0 || tBounds.bNone || tBounds.bHave)
        tBounds = TRevBounds{1, nMaxChange, -1, false, false, std::string()};
    tOut.nLow = std::max(tBounds.nLow, nMinChange);
    tOut.nHigh = tBounds.nHigh;
    tOut.astrPrefixes = DepotPrefixes(tOut.strPattern, tOut.bIsDepot, pView);
    return tOut;
}

// The changes that touched the files of one argument under one prefix, in
// listing order, while fnChange returns true.
void VisitChangesOf(TContext& rContext, const TChangesArg& tArg, const std::string& strPrefix, const TClientView* pView,
                    bool bOldestFirst, const std::function<bool(long long)>& fnChange)
{
    long long nLast = -1;
    std::string strClientFile;
    rContext.pStore->VisitRevsByChange(
        tArg.nLow, tArg.nHigh, strPrefix, bOldestFirst, [&](long long nChange, const std::string& strDepotFile) {
            rContext.cLimits.AddScanned(1);
            if (nChange == nLast || !PatternNames(tArg.strPattern, tArg.bIsDepot, pView, strDepotFile, strClientFile))
                return true;
            nLast = nChange;
            return fnChange(nChange);
        });
}

// The changes of every revision up to the one the label tags, of each
// tagged file of one argument under one prefix.
void AddChangesUpToLabel(TContext& rContext, const TChangesArg& tArg, const std::string& strPrefix,
                         const TClientView* pView, std::set<long long>& setChanges)
{
    std::string strClientFile;
    for (const TRevRec& tTagged : LabelRevisions(rContext, tArg.strLabel, strPrefix))
    {
        rContext.cLimits.AddScanned(tTagged.nRev);
        if (!PatternNames(tArg.strPattern, tArg.bIsDepot, pView, tTagged.strDepotFile, strClientFile))
            continue;
        for (long long nRev = 1; nRev <= tTagged.nRev; ++nRev)
        {
            std::optional<TRevRec> tRev = rContext.pStore->Rev(tTagged.strDepotFile, nRev);
            if (tRev && tRev->nChange >= tArg.nLow)
                setChanges.insert(tRev->nChange);
        }
    }
}

// The pending and shelved changes with a file open that one argument
// names, within its range of change numbers.
void AddPendingOf(TContext& rContext, const TChangesArg& tArg, const TClientView* pView, std::set<long long>& setOut)
{
    if (!tArg.strLabel.empty())
        return;
    std::string strClientFile;
    for (const std::string& strPrefix : tArg.astrPrefixes)
    {
        for (const auto& tOpened : rContext.pStore->OpenedUnder(strPrefix))
        {
            rContext.cLimits.AddScanned(1);
            if (tOpened.first < tArg.nLow || tOpened.first > tArg.nHigh || setOut.count(tOpened.first) ||
                !PatternNames(tArg.strPattern, tArg.bIsDepot, pView, tOpened.second, strClientFile))
                continue;
            setOut.insert(tOpened.first);
        }
    }
}

void ListChangesOfFiles(TContext& rContext, const TOptions& tOptions, CChangeLister& rLister, long long nMinChange)
{
    long long nMaxChange = rContext.pStore->MaxChange();
    std::unique_ptr<TClientView> pView;
    std::vector<TChangesArg> atArgs;
    for (const std::string& strArg : tOptions.astrArgs)
    {
        if (!pView && NeedsClient(rContext, strArg))
            pView = std::make_unique<TClientView>(LoadClient(rContext, false));
        atArgs.push_back(ResolveChangesArg(rContext, strArg, pView.get(), nMinChange, nMaxChange));
    }
    bool bOldestFirst = tOptions.Has('r');
    auto fnOffer = [&](long long nChange) {
        std::optional<TChangeRec> tChange = rContext.pStore->Change(nChange);
        return !tChange || rLister.Offer(*tChange);
    };
    // Pending and shelved changes by the files they have open; submitted
    // ones by their revisions.
    std::set<long long> setPending;
    if (rLister.WantsPending() && rContext.pStore->HasPending())
    {
        for (const TChangesArg& tArg : atArgs)
            AddPendingOf(rContext, tArg, pView.get(), setPending);
    }
    // One range of one path: straight from the change index, so that a
    // listing with a maximum reads no further than it shows; the pending
    // changes go in between in order.
    if (atArgs.size() == 1 && atArgs[0].astrPrefixes.size() == 1 && atArgs[0].strLabel.empty())
    {
        std::vector<long long> anPending(setPending.begin(), setPending.end());
        if (!bOldestFirst)
            std::reverse(anPending.begin(), anPending.end());
        size_t nNext = 0;
        auto fnMerged = [&](long long nChange) {
            while (nNext < anPending.size() && (bOldestFirst ? anPending[nNext] < nChange : anPending[nNext] > nChange))
            {
                if (!fnOffer(anPending[nNext++]))
                    return false;
            }
            return fnOffer(nChange);
        };
        VisitChangesOf(rContext, atArgs[0], atArgs[0].astrPrefixes[0], pView.get(), bOldestFirst, fnMerged);
        while (nNext < anPending.size() && !rLister.Done() && fnOffer(anPending[nNext++]))
        {
        }
        return;
    }
    std::set<long long> setChanges = setPending;
    for (const TChangesArg& tArg : atArgs)
    {
        for (const std::string& strPrefix : tArg.astrPrefixes)
        {
            if (!tArg.strLabel.empty())
            {
                AddChangesUpToLabel(rContext, tArg, strPrefix, pView.get(), setChanges);
                continue;
            }
            VisitChangesOf(rContext, tArg, strPrefix, pView.get(), false, [&](long long nChange) {
                setChanges.insert(nChange);
                return true;
            });
        }
    }
    if (bOldestFirst)
    {
        for (auto it = setChanges.begin(); it != setChanges.end() && fnOffer(*it); ++it)
        {
        }
        return;
    }
    for (auto it = setChanges.rbegin(); it != setChanges.rend() && fnOffer(*it); ++it)
    {
    }
}

// One file of a description: the revision (or the revision a pending file
// was opened against), and its size and digest when it has content.
struct TDescribedFile
{
    std::string strDepotFile, strAction, strType, strRev;
    bool bContent = false;
    long long nSize = 0;
    std::string strDigest;
};

std::vector<TDescribedFile> SubmittedFiles(const std::vector<TRevRec>& atRevs)
{
    std::vector<TDescribedFile> atFiles;
    for (const TRevRec& tRev : atRevs)
        atFiles.push_back({tRev.strDepotFile, tRev.strAction, tRev.strType, Num(tRev.nRev),
                           !tRev.Deleted() && !tRev.strDigest.empty(), tRev.nSize, tRev.strDigest});
    return atFiles;
}

bool IsAddition(const std::string& strAction)
{
    return strAction == "add" || strAction == "branch" || strAction == "move/add";
}

// The files a pending change has open: each at the revision it was opened
// against, an added file at the revision it is to become. With bShelved,
// the shelved files instead, with their content; an added one has no
// revision ("none").
std::vector<TDescribedFile> OpenedFiles(const std::vector<TOpenedRec>& atOpened, bool bShelved)
{
    std::vector<TDescribedFile> atFiles;
    for (const TOpenedRec& tOpened : atOpened)
    {
        TDescribedFile tFile;
        tFile.strDepotFile = tOpened.strDepotFile;
        tFile.strAction = tOpened.strAction;
        tFile.strType = tOpened.strType;
        tFile.strRev = Num(tOpened.nRev);
        if (IsAddition(tOpened.strAction))
            tFile.strRev = bShelved ? "none" : Num(tOpened.nRev + 1);
        if (bShelved && !tOpened.strDigest.empty())
        {
            tFile.bContent = true;
            tFile.nSize = tOpened.nSize;
            tFile.strDigest = tOpened.strDigest;
        }
        atFiles.push_back(tFile);
    }
    return atFiles;
}

TRecord DescribeRecord(const TChangeRec& tChange, const std::vector<TDescribedFile>& atFiles)
{
    TRecord aRecord = {{"change", Num(tChange.nChange)}, {"user", tChange.strUser},
                       {"client", tChange.strClient},    {"time", Num(tChange.nTime)},
                       {"desc", tChange.strDescription}, {"status", tChange.Submitted() ? "submitted" : "pending"},
                       {"changeType", "public"},         {"path", tChange.strPath}};
    if (tChange.Shelved())
        aRecord.push_back({"shelved", ""});
    for (size_t i = 0; i < atFiles.size(); ++i)
    {
        const TDescribedFile& tFile = atFiles[i];
        std::string strIndex = Num(static_cast<long long>(i));
        aRecord.push_back({"depotFile" + strIndex, tFile.strDepotFile});
        aRecord.push_back({"action" + strIndex, tFile.strAction});
        aRecord.push_back({"type" + strIndex, tFile.strType});
        aRecord.push_back({"rev" + strIndex, tFile.strRev});
        if (tFile.bContent)
        {
            aRecord.push_back({"fileSize" + strIndex, Num(tFile.nSize)});
            aRecord.push_back({"digest" + strIndex, tFile.strDigest});
        }
    }
    return aRecord;
}

// The plain description: the heading, then "Affected files ..." (a
// submitted or pending change) or "Shelved files ..." (describe -S of a
// shelved change), and for a submitted one without -s the differences'
// heading.
std::string DescribeText(const TChangeRec& tChange, const std::vector<TDescribedFile>& atFiles, bool bShort,
                         bool bShelvedFiles)
{
    std::string strText = "Change " + Num(tChange.nChange) + " by " + tChange.strUser + "@" + tChange.strClient +
                          " on " + FormatDateTime(tChange.nTime) + (tChange.Submitted() ? "" : " *pending*") + "\n\n" +
                          Indented(tChange.strDescription) +
                          (bShelvedFiles ? "\nShelved files ...\n\n" : "\nAffected files ...\n\n");
    for (const TDescribedFile& tFile : atFiles)
        strText += "... " + tFile.strDepotFile + "#" + tFile.strRev + " " + tFile.strAction + "\n";
    strText += "\n";
    if (bShort || (!tChange.Submitted() && !bShelvedFiles))
        return strText;
    // Differences are announced but not computed: see README.
    strText += "Differences ...\n\n";
    for (const TDescribedFile& tFile : atFiles)
    {
        if (tFile.strAction == "edit" || tFile.strAction == "integrate")
            strText += "==== " + tFile.strDepotFile + "#" + tFile.strRev + " (" + tFile.strType + ") ====\n\n";
    }
    return strText;
}

} // namespace

void CmdChanges(TContext& tContext, const TOptions& tOptions)
{
    CChangeLister cLister(tContext, tOptions);
    long long nMinChange = 1;
    if (tOptions.Has('e') && !ParseUInt(tOptions.Value('e'), nMinChange))
        throw EP4Error("Invalid changelist number '" + tOptions.Value('e') + "'.");
    if (!tOptions.astrArgs.empty())
    {
        ListChangesOfFiles(tContext, tOptions, cLister, nMinChange);
        return;
    }
    if (cLister.Done())
        return;
    tContext.pStore->VisitChanges(nMinChange, tContext.pStore->MaxChange(), tOptions.Has('r'),
                                  [&](const TChangeRec& tChange) {
                                      tContext.cLimits.AddScanned(1);
                                      return cLister.Offer(tChange);
                                  });
}

void CmdDescribe(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.astrArgs.empty())
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    bool bShort = tOptions.Has('s') || tOptions.Has('S');
    for (const std::string& strArg : tOptions.astrArgs)
    {
        long long nChange;
        if (!ParseUInt(strArg, nChange) || nChange == 0)
        {
            tContext.pOutput->Message("Invalid changelist number '" + strArg + "'.", eSeverityFailed, eGenericUsage);
            continue;
        }
        std::optional<TChangeRec> tChange = tContext.pStore->Change(nChange);
        if (!tChange)
        {
            tContext.pOutput->Message("Change " + strArg + " unknown.", eSeverityFailed, eGenericUnknown);
            continue;
        }
        // -S shows a shelved change's shelved files; any other change shows
        // its revisions or opened files.
        bool bShelvedFiles = tOptions.Has('S') && tChange->Shelved();
        std::vector<TDescribedFile> atFiles =
            tChange->Submitted() ? SubmittedFiles(tContext.pStore->RevsOfChange(nChange))
                                 : OpenedFiles(tContext.pStore->OpenedOfChange(nChange), bShelvedFiles);
        tContext.cLimits.AddScanned(static_cast<long long>(atFiles.size()));
        tContext.cLimits.AddResults(static_cast<long long>(atFiles.size()));
        tContext.pOutput->Stat(DescribeRecord(*tChange, atFiles),
                               DescribeText(*tChange, atFiles, bShort, bShelvedFiles));
    }
}

} // namespace P4SIM
} // namespace ORVANE
