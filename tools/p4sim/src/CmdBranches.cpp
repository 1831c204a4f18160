// `p4 branches` and `p4 branch`.
#include "Commands.h"

#include "Forms.h"
#include "Text.h"

namespace ORVANE {
namespace P4SIM {

namespace {

void SaveBranch(TContext& tContext)
{
    CForm cForm(tContext.fnReadStdin(), "branch");
    TBranchRec tBranch;
    tBranch.strName = cForm.Get("Branch");
    if (tBranch.strName.empty())
        throw EP4Error("Error in branch specification.\nMissing required field 'Branch'.");
    std::optional<TBranchRec> tOld = tContext.pStore->Branch(tBranch.strName);
    tBranch.strOwner = cForm.Has("Owner") ? cForm.Get("Owner") : tContext.strUser;
    tBranch.strDescription = cForm.Description();
    tBranch.strOptions = cForm.Has("Options") ? cForm.Get("Options") : "unlocked";
    for (const std::string& strLine : cForm.Lines("View"))
    {
        TMapLine tLine;
        if (!ParseViewLine(strLine, tLine))
            throw EP4Error("Error in branch specification.\nWrong number of words for field 'View'.");
        tBranch.astrView.push_back(FormatViewLine(tLine));
    }
    tBranch.nUpdated = tBranch.nAccessed = tContext.nNow;
    if (tOld && tOld->strOwner == tBranch.strOwner && tOld->strDescription == tBranch.strDescription &&
        tOld->strOptions == tBranch.strOptions && tOld->astrView == tBranch.astrView)
    {
        tContext.pOutput->Info("Branch " + tBranch.strName + " not changed.");
        return;
    }
    if (tOld)
        tBranch.nAccessed = tOld->nAccessed;
    tContext.pStore->PutBranch(tBranch);
    tContext.pOutput->Info("Branch " + tBranch.strName + " saved.");
}

void ShowBranch(TContext& tContext, const std::string& strName)
{
    std::optional<TBranchRec> tBranch = tContext.pStore->Branch(strName);
    bool bExisting = tBranch.has_value();
    if (!tBranch)
    {
        tBranch = TBranchRec();
        tBranch->strName = strName;
        tBranch->strOwner = tContext.strUser;
        tBranch->strDescription = "Created by " + tContext.strUser + ".\n";
        tBranch->strOptions = "unlocked";
    }
    tContext.pOutput->Stat(ViewSpecFormRecord("Branch", *tBranch, bExisting), BranchFormText(*tBranch, bExisting));
}

} // namespace

void CmdBranches(TContext& tContext, const TOptions& tOptions)
{
    long long nMax = MaxOption(tOptions);
    long long nListed = 0;
    for (const TBranchRec& tBranch : tContext.pStore->Branches())
    {
        if (nMax >= 0 && nListed >= nMax)
            break;
        if (!ListingSelects(tOptions, tBranch.strName, tBranch.strOwner))
            continue;
        ++nListed;
        ListViewSpec(tContext, tOptions, "Branch", tBranch);
    }
}

void CmdBranch(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.Has('i'))
    {
        if (!tOptions.astrArgs.empty())
            throw UsageError(tContext, "Extra argument.");
        SaveBranch(tContext);
        return;
    }
    if (tOptions.astrArgs.size() != 1)
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    const std::string& strName = tOptions.astrArgs[0];
    if (tOptions.Has('d'))
    {
        if (!tContext.pStore->Branch(strName))
            throw EP4Error("Branch '" + strName + "' doesn't exist.", eSeverityFailed, eGenericUnknown);
        tContext.pStore->DeleteBranch(strName);
        tContext.pOutput->Info("Branch " + strName + " deleted.");
        return;
    }
    if (!tOptions.Has('o'))
        throw EP4Error("p4sim runs no editor: use 'branch -o " + strName + "' and 'branch -i'.");
    ShowBranch(tContext, strName);
}

} // namespace P4SIM
} // namespace ORVANE
