// Working out what a sync does for one file argument.
#include "Sync.h"

#include "Text.h"

#include <algorithm>
#include <map>
#include <set>

namespace ORVANE {
namespace P4SIM {

namespace {

// How many revisions between a mark's change and the argument's the plan
// from a mark looks at; beyond that the full plan is cheaper.
const size_t s_nMarkRevisionLimit = 4096;

// The files under an argument's pattern at its revision, by client file.
struct TTargets
{
    std::map<std::string, TRevRec> mapTargets;   // files to have
    std::map<std::string, TRevRec> mapDeletedAt; // files deleted at that revision
    // Files whose revision is purged or archived: a sync skips them, leaving
    // the local file and the have list as they are.
    std::set<std::string> setSkipped;
    bool bAnyInDepot = false, bAnyMapped = false;
};

void CollectTargets(TContext& tContext, const TClientView& tView, const TSyncArg& tArg, long long nMaxChange,
                    TTargets& tOut)
{
    long long nAt = tArg.nExactRev >= 0 ? nMaxChange : tArg.nAtChange;
    for (const std::string& strPrefix : DepotPrefixes(tArg.strPattern, tArg.bIsDepot, &tView))
    {
        if (tContext.cLimits.ScanLimited())
            tContext.cLimits.AddScanned(tContext.pStore->CountRevsUnder(strPrefix, nAt));
        for (TRevRec& tRev : tContext.pStore->HeadsUnder(strPrefix, nAt))
        {
            std::string strClientFile;
            bool bMapped = tView.cMap.Translate(tRev.strDepotFile, strClientFile);
            if (tArg.bIsDepot)
            {
                if (!WildMatch(tArg.strPattern, tRev.strDepotFile))
                    continue;
                tOut.bAnyInDepot = true;
                if (!bMapped)
                    continue;
            }
            else if (!bMapped || !WildMatch(tArg.strPattern, strClientFile))
            {
                continue;
            }
            tOut.bAnyInDepot = tOut.bAnyMapped = true;
            if (tArg.nExactRev >= 0)
            {
                std::optional<TRevRec> tExact =
                    tArg.nExactRev > tRev.nRev ? std::nullopt : tContext.pStore->Rev(tRev.strDepotFile, tArg.nExactRev);
                if (!tExact)
                    continue;
                tRev = *tExact;
            }
            if (tRev.Purged())
                tOut.setSkipped.insert(strClientFile);
            else
                (tRev.Deleted() ? tOut.mapDeletedAt : tOut.mapTargets)[strClientFile] = tRev;
        }
    }
}

std::map<std::string, THaveRec> CollectHaves(TContext& tContext, const TClientView& tView, const TSyncArg& tArg)
{
    std::map<std::string, THaveRec> mapHaves;
    std::string strPrefix = tArg.bIsDepot ? "//" + tView.tSpec.strName + "/" : LiteralPrefix(tArg.strPattern);
    for (THaveRec& tHave : tContext.pStore->HaveUnder(tView.tSpec.strName, strPrefix))
    {
        if (WildMatch(tArg.strPattern, tArg.bIsDepot ? tHave.strDepotFile : tHave.strClientFile))
            mapHaves[tHave.strClientFile] = tHave;
    }
    return mapHaves;
}

TSyncAction MakeAction(const TClientView& tView, TSyncKind eKind, const std::string& strDepotFile,
                       const std::string& strClientFile, const TRevRec* pTarget)
{
    TSyncAction tAction;
    tAction.eKind = eKind;
    tAction.strDepotFile = strDepotFile;
    tAction.strClientFile = strClientFile;
    tAction.strLocal = tView.LocalPath(strClientFile);
    if (pTarget)
    {
        tAction.tTarget = *pTarget;
        tAction.bTargetKnown = true;
    }
    return tAction;
}

std::vector<TSyncAction> FullActions(const TClientView& tView, const TTargets& tTargets,
                                     const std::map<std::string, THaveRec>& mapHaves, bool bForce)
{
    std::vector<TSyncAction> atActions;
    for (const auto& tTarget : tTargets.mapTargets)
    {
        auto itHave = mapHaves.find(tTarget.first);
        TSyncKind eKind = eSyncAdd;
        if (itHave != mapHaves.end())
        {
            if (itHave->second.nRev != tTarget.second.nRev)
                eKind = eSyncUpdate;
            else if (bForce)
                eKind = eSyncRefresh;
            else
                continue;
        }
        atActions.push_back(MakeAction(tView, eKind, tTarget.second.strDepotFile, tTarget.first, &tTarget.second));
    }
    for (const auto& tHave : mapHaves)
    {
        if (tTargets.mapTargets.count(tHave.first) || tTargets.setSkipped.count(tHave.first))
            continue;
        auto itDeleted = tTargets.mapDeletedAt.find(tHave.first);
        const TRevRec* pDeleted = itDeleted == tTargets.mapDeletedAt.end() ? nullptr : &itDeleted->second;
        atActions.push_back(MakeAction(tView, eSyncDelete, tHave.second.strDepotFile, tHave.first, pDeleted));
    }
    return atActions;
}

// The warning for an argument with nothing to do.
std::string NothingToDo(const TSyncArg& tArg, const TTargets& tTargets, bool bAnyHave)
{
    if (bAnyHave || !tTargets.mapTargets.empty() || (tTargets.bAnyMapped && !tTargets.mapDeletedAt.empty()) ||
        !tTargets.setSkipped.empty() || tArg.bNone)
        return tArg.strArg + " - file(s) up-to-date.";
    if (tArg.bIsDepot && tTargets.bAnyInDepot && !tTargets.bAnyMapped)
        return tArg.strArg + " - file(s) not in client view.";
    if (!tArg.tFile.strRev.empty() && tArg.tFile.strRev[0] == '@')
        return tArg.strArg + " - no file(s) at that changelist number.";
    return tArg.strArg + " - no such file(s).";
}

void SortByDepotFile(std::vector<TSyncAction>& atActions)
{
    std::sort(atActions.begin(), atActions.end(),
              [](const TSyncAction& tA, const TSyncAction& tB) { return PathLess(tA.strDepotFile, tB.strDepotFile); });
}

// The depot files changed between the mark and the argument, under the
// argument's prefixes, in order; false when there are too many.
bool ChangedFiles(TContext& tContext, const TClientView& tView, const TSyncArg& tArg, long long nMarkChange,
                  std::set<std::string>& setOut)
{
    std::vector<std::string> astrFiles;
    long long nLow = std::min(nMarkChange, tArg.nAtChange), nHigh = std::max(nMarkChange, tArg.nAtChange);
    if (!tContext.pStore->FilesChangedBetween(nLow, nHigh, s_nMarkRevisionLimit, astrFiles))
        return false;
    std::vector<std::string> astrPrefixes = DepotPrefixes(tArg.strPattern, tArg.bIsDepot, &tView);
    for (const std::string& strFile : astrFiles)
    {
        for (const std::string& strPrefix : astrPrefixes)
        {
            if (PathStartsWith(strFile, strPrefix))
                setOut.insert(strFile);
        }
    }
    return true;
}

} // namespace

TSyncArg ResolveSyncArg(TContext& tContext, const TClientView& tView, const std::string& strArg, long long nMaxChange)
{
    TSyncArg tArg;
    tArg.strArg = strArg;
    tArg.tFile = SplitFileArg(strArg);
    tArg.strPattern = ArgPattern(tContext, tArg.tFile.strPath, &tView, tArg.bIsDepot);
    const std::string& strRev = tArg.tFile.strRev;
    tArg.bNone = strRev == "#none" || strRev == "#0";
    tArg.bHaveRev = strRev == "#have";
    tArg.nAtChange = nMaxChange;
    if (strRev.empty() || tArg.bNone || tArg.bHaveRev || strRev == "#head" || strRev == "@now")
        return tArg;
    long long nValue;
    std::string strNumber = strRev.substr(1);
    if (strRev[0] == '#')
    {
        if (!ParseUInt(strNumber, nValue))
            throw EP4Error("Invalid revision number '" + strNumber + "'.");
        tArg.nExactRev = nValue;
        return tArg;
    }
    if (!ParseUInt(strNumber, nValue))
        throw EP4Error("Invalid changelist number '" + strNumber + "'.");
    tArg.nAtChange = std::min(nValue, nMaxChange);
    return tArg;
}

TSyncPlan PlanInFull(TContext& tContext, const TClientView& tView, const TSyncArg& tArg, bool bForce,
                     long long nMaxChange)
{
    TTargets tTargets;
    if (!tArg.bNone && !tArg.bHaveRev)
        CollectTargets(tContext, tView, tArg, nMaxChange, tTargets);
    std::map<std::string, THaveRec> mapHaves = CollectHaves(tContext, tView, tArg);
    if (tArg.bHaveRev)
    {
        for (const auto& tHave : mapHaves)
        {
            std::optional<TRevRec> tRev = tContext.pStore->Rev(tHave.second.strDepotFile, tHave.second.nRev);
            if (tRev && tRev->Purged())
                tTargets.setSkipped.insert(tHave.first);
            else if (tRev)
                tTargets.mapTargets[tHave.first] = *tRev;
        }
        tTargets.bAnyInDepot = tTargets.bAnyMapped = !mapHaves.empty();
    }
    // The files the argument names are the rows a server returns.
    tContext.cLimits.AddResults(static_cast<long long>(tTargets.mapTargets.size()));
    TSyncPlan tPlan;
    tPlan.atActions = FullActions(tView, tTargets, mapHaves, bForce);
    tPlan.nHaveAfter = static_cast<long long>(tTargets.mapTargets.size());
    for (const std::string& strSkipped : tTargets.setSkipped)
        tPlan.nHaveAfter += mapHaves.count(strSkipped) ? 1 : 0;
    if (tPlan.atActions.empty())
        tContext.pOutput->Message(NothingToDo(tArg, tTargets, !mapHaves.empty()), eSeverityWarning, eGenericEmpty);
    SortByDepotFile(tPlan.atActions);
    return tPlan;
}

bool PlanFromMark(TContext& tContext, const TClientView& tView, const TSyncArg& tArg, const TSyncMark& tMark,
                  TSyncPlan& tPlan)
{
    std::set<std::string> setFiles;
    if (!tView.cMap.IsOneToOne() || !ChangedFiles(tContext, tView, tArg, tMark.nChange, setFiles))
        return false;
    tPlan = TSyncPlan();
    tPlan.nHaveAfter = tMark.nHaveCount;
    for (const std::string& strDepotFile : setFiles)
    {
        std::string strClientFile;
        if (!PatternNames(tArg.strPattern, tArg.bIsDepot, &tView, strDepotFile, strClientFile) || strClientFile.empty())
            continue;
        std::optional<TRevRec> tHead = tContext.pStore->HeadRev(strDepotFile, tArg.nAtChange);
        std::optional<THaveRec> tHave = tContext.pStore->Have(tView.tSpec.strName, strClientFile);
        if (tHave && tHave->strDepotFile != strDepotFile)
            return false;
        if (tHead && tHead->Purged())
            continue;
        if (tHead && !tHead->Deleted())
        {
            if (tHave && tHave->nRev == tHead->nRev)
                continue;
            tPlan.atActions.push_back(
                MakeAction(tView, tHave ? eSyncUpdate : eSyncAdd, strDepotFile, strClientFile, &*tHead));
            tPlan.nHaveAfter += tHave ? 0 : 1;
        }
        else if (tHave)
        {
            tPlan.atActions.push_back(
                MakeAction(tView, eSyncDelete, strDepotFile, strClientFile, tHead ? &*tHead : nullptr));
            --tPlan.nHaveAfter;
        }
    }
    // Nothing to do: "up-to-date" needs a file under the pattern; the other
    // answers need the full picture.
    if (tPlan.atActions.empty())
    {
        if (tPlan.nHaveAfter == 0)
            return false;
        tContext.pOutput->Message(tArg.strArg + " - file(s) up-to-date.", eSeverityWarning, eGenericEmpty);
    }
    SortByDepotFile(tPlan.atActions);
    return true;
}

} // namespace P4SIM
} // namespace ORVANE
