// The parts of `p4 sync`: working out what to do for each file argument
// (in full, or from the sync mark that an earlier sync of the same argument
// left), doing it under the client's root, and keeping the have list and
// the marks.
#pragma once

#include "Commands.h"

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

enum TSyncKind
{
    eSyncAdd,
    eSyncUpdate,
    eSyncRefresh,
    eSyncDelete
};

struct TSyncAction
{
    TSyncKind eKind = eSyncAdd;
    std::string strDepotFile, strClientFile, strLocal;
    // The revision to have; for a deletion the deleting revision, if any.
    TRevRec tTarget;
    bool bTargetKnown = false;
};

// One file argument of a sync, resolved.
struct TSyncArg
{
    std::string strArg; // as given
    TFileArg tFile;
    std::string strPattern;
    bool bIsDepot = false;
    bool bNone = false;    // #none
    bool bHaveRev = false; // #have
    long long nAtChange = 0;
    long long nExactRev = -1; // #N
    // @N, #head, @now or nothing: a complete sync leaves the have list as of
    // one change, and with it a sync mark.
    bool Markable() const { return !bNone && !bHaveRev && nExactRev < 0; }
};

// What one argument needs: its actions in depot order, and the number of
// have entries under its pattern once they are done.
struct TSyncPlan
{
    std::vector<TSyncAction> atActions;
    long long nHaveAfter = 0;
};

// The sync's flags and the client's options as they matter to it.
struct TSyncSettings
{
    bool bForce = false, bPreview = false, bKeep = false, bNoHave = false, bQuiet = false;
    bool bAllWrite = false, bClobber = false, bModTime = false, bRmDir = false;
    std::string strLineEnd = "\n";
};

TSyncArg ResolveSyncArg(TContext& tContext, const TClientView& tView, const std::string& strArg, long long nMaxChange);

// The full plan: every file under the pattern and every have entry; the
// messages for an argument with nothing to do go out.
TSyncPlan PlanInFull(TContext& tContext, const TClientView& tView, const TSyncArg& tArg, bool bForce,
                     long long nMaxChange);
// The plan from a sync mark: only the files changed between the mark's
// change and the argument's. False when the full plan is needed instead:
// too many changes between, a view that is not one to one, or nothing to do
// for an argument whose message needs the full picture.
bool PlanFromMark(TContext& tContext, const TClientView& tView, const TSyncArg& tArg, const TSyncMark& tMark,
                  TSyncPlan& tPlan);

// Carries out the actions and prints their records. Have entries that
// changed go to atChanged (as client file and depot file); false when any
// action failed.
bool ApplySyncPlan(TContext& tContext, const TClientView& tView, const TSyncSettings& tSettings,
                   const std::vector<TSyncAction>& atActions, long long nSyncChange, std::vector<THaveRec>& atChanged);

} // namespace P4SIM
} // namespace ORVANE
