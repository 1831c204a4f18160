// `p4 labels` and `p4 label`. Labels come only from `admin load`: p4sim
// shows them but does not edit them.
#include "Commands.h"

#include "Forms.h"
#include "Text.h"

namespace ORVANE {
namespace P4SIM {

namespace {

// With a file argument only the labels that tag a file under it are listed.
bool TagsFilesUnder(TContext& tContext, const TLabelRec& tLabel, const std::string& strArg)
{
    const std::string strPath = SplitFileArg(strArg).strPath;
    if (!StartsWith(strPath, "//"))
        throw EP4Error("p4sim takes depot paths only for 'labels FILE'.");
    for (const TRevRec& tRev : tContext.pStore->LabelRevsUnder(tLabel.strName, LiteralPrefix(strPath)))
    {
        if (WildMatch(strPath, tRev.strDepotFile))
            return true;
    }
    return false;
}

void ShowLabel(TContext& tContext, const std::string& strName)
{
    std::optional<TLabelRec> tLabel = tContext.pStore->Label(strName);
    const bool bExisting = tLabel.has_value();
    if (!tLabel)
    {
        tLabel = TLabelRec();
        tLabel->strName = strName;
        tLabel->strOwner = tContext.strUser;
        tLabel->strDescription = "Created by " + tContext.strUser + ".\n";
        tLabel->strOptions = "unlocked noautoreload";
        tLabel->astrView = {"//depot/..."};
    }
    tContext.pOutput->Stat(ViewSpecFormRecord("Label", *tLabel, bExisting), LabelFormText(*tLabel, bExisting));
}

} // namespace

void CmdLabels(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.astrArgs.size() > 1)
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    long long nMax = MaxOption(tOptions);
    long long nListed = 0;
    for (const TLabelRec& tLabel : tContext.pStore->Labels())
    {
        if (nMax >= 0 && nListed >= nMax)
            break;
        if (!ListingSelects(tOptions, tLabel.strName, tLabel.strOwner))
            continue;
        if (!tOptions.astrArgs.empty() && !TagsFilesUnder(tContext, tLabel, tOptions.astrArgs[0]))
            continue;
        ++nListed;
        ListViewSpec(tContext, tOptions, "Label", tLabel);
    }
}

void CmdLabel(TContext& tContext, const TOptions& tOptions)
{
    if (!tOptions.Has('o'))
        throw EP4Error("p4sim keeps the labels of 'admin load' as they are: use 'label -o NAME'.");
    if (tOptions.astrArgs.size() != 1)
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    ShowLabel(tContext, tOptions.astrArgs[0]);
}

} // namespace P4SIM
} // namespace ORVANE
