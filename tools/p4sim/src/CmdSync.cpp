// `p4 sync`: brings the files of the current client to a revision, through
// the client's view, writing, updating and removing files under its root and
// keeping its have list on the server.
//
// A complete sync of one file argument to a change leaves a sync mark; the
// next sync of the same argument then looks only at the files changed
// between the two changes, so that its cost does not grow with the depot.
#include "Sync.h"

#include "Text.h"

#include <algorithm>

namespace ORVANE {
namespace P4SIM {

namespace {

TSyncSettings SettingsFor(const TOptions& tOptions, const TClientRec& tClient)
{
    TSyncSettings tSettings;
    tSettings.bForce = tOptions.Has('f');
    tSettings.bPreview = tOptions.Has('n') || tOptions.Has('N');
    tSettings.bKeep = tOptions.Has('k');
    tSettings.bNoHave = tOptions.Has('p');
    tSettings.bQuiet = tOptions.Has('q');
    for (const std::string& strWord : SplitWords(tClient.strOptions))
    {
        tSettings.bAllWrite = tSettings.bAllWrite || strWord == "allwrite";
        tSettings.bClobber = tSettings.bClobber || strWord == "clobber";
        tSettings.bModTime = tSettings.bModTime || strWord == "modtime";
        tSettings.bRmDir = tSettings.bRmDir || strWord == "rmdir";
    }
    if (tClient.strLineEnd == "win")
        tSettings.strLineEnd = "\r\n";
    else if (tClient.strLineEnd == "mac")
        tSettings.strLineEnd = "\r";
    return tSettings;
}

const TSyncMark* FindMark(const std::vector<TSyncMark>& atMarks, const std::string& strPattern)
{
    for (const TSyncMark& tMark : atMarks)
    {
        if (tMark.strPattern == strPattern)
            return &tMark;
    }
    return nullptr;
}

// The plan from the argument's mark when it has one and it serves, the
// full plan otherwise.
TSyncPlan PlanArg(TContext& tContext, const TClientView& tView, const TSyncArg& tArg,
                  const std::vector<TSyncMark>& atMarks, bool bForce, long long nMaxChange)
{
    // Under a server's limits the full plan counts every file and row.
    const TSyncMark* pMark =
        tArg.Markable() && !bForce && !tContext.cLimits.Active() ? FindMark(atMarks, tArg.strPattern) : nullptr;
    TSyncPlan tPlan;
    if (pMark && PlanFromMark(tContext, tView, tArg, *pMark, tPlan))
        return tPlan;
    return PlanInFull(tContext, tView, tArg, bForce, nMaxChange);
}

bool MarkCovers(const TClientView& tView, const TSyncMark& tMark, const THaveRec& tHave)
{
    bool bClientSyntax = StartsWith(tMark.strPattern, "//" + tView.tSpec.strName + "/");
    return WildMatch(tMark.strPattern, bClientSyntax ? tHave.strClientFile : tHave.strDepotFile);
}

// Marks whose files changed otherwise than through their own sync go; the
// sync's own mark is set when it completed.
void KeepMarks(TContext& tContext, const TClientView& tView, const std::vector<TSyncMark>& atMarks,
               const std::vector<THaveRec>& atChanged, const TSyncMark* pNewMark)
{
    for (const TSyncMark& tMark : atMarks)
    {
        if (pNewMark && tMark.strPattern == pNewMark->strPattern)
            continue;
        for (const THaveRec& tHave : atChanged)
        {
            if (MarkCovers(tView, tMark, tHave))
            {
                tContext.pStore->DeleteSyncMark(tView.tSpec.strName, tMark.strPattern);
                break;
            }
        }
    }
    if (pNewMark)
        tContext.pStore->PutSyncMark(tView.tSpec.strName, *pNewMark);
}

} // namespace

void CmdSync(TContext& tContext, const TOptions& tOptions)
{
    TClientView tView = LoadClient(tContext, true);
    TSyncSettings tSettings = SettingsFor(tOptions, tView.tSpec);
    long long nMax = MaxOption(tOptions);
    std::vector<std::string> astrArgs = tOptions.astrArgs;
    if (astrArgs.empty())
        astrArgs.push_back("//" + tView.tSpec.strName + "/...");
    long long nMaxChange = tContext.pStore->MaxChange();
    std::vector<TSyncMark> atMarks = tContext.pStore->SyncMarks(tView.tSpec.strName);

    std::vector<TSyncAction> atActions;
    long long nSyncChange = 0;
    TSyncArg tArg;
    TSyncPlan tPlan;
    for (const std::string& strArg : astrArgs)
    {
        tArg = ResolveSyncArg(tContext, tView, strArg, nMaxChange);
        nSyncChange = std::max(nSyncChange, tArg.nAtChange);
        tPlan = PlanArg(tContext, tView, tArg, atMarks, tSettings.bForce, nMaxChange);
        atActions.insert(atActions.end(), tPlan.atActions.begin(), tPlan.atActions.end());
    }
    bool bCut = nMax >= 0 && static_cast<long long>(atActions.size()) > nMax;
    if (bCut)
        atActions.resize(size_t(nMax));

    std::vector<THaveRec> atChanged;
    bool bAllDone = ApplySyncPlan(tContext, tView, tSettings, atActions, nSyncChange, atChanged);
    if (tSettings.bPreview)
        return;
    if (!tSettings.bNoHave)
    {
        // A mark never names a pending change: its submission under the same
        // number would add revisions the mark claims to cover.
        long long nMarkChange = std::min(tArg.nAtChange, tContext.pStore->MaxSubmittedChange());
        TSyncMark tNewMark{tArg.strPattern, nMarkChange, tPlan.nHaveAfter};
        bool bMarked = astrArgs.size() == 1 && tArg.Markable() && !bCut && bAllDone;
        KeepMarks(tContext, tView, atMarks, atChanged, bMarked ? &tNewMark : nullptr);
    }
    tContext.pStore->TouchClient(tView.tSpec.strName, tContext.nNow);
}

} // namespace P4SIM
} // namespace ORVANE
