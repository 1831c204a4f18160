// `p4 integrated`: the integration records of the files that the arguments
// name, from both sides: "merge from" on the target, "merge into" on the
// source.
#include "Commands.h"

#include "Text.h"

#include <algorithm>
#include <map>

namespace ORVANE {
namespace P4SIM {

namespace {

// How the source's side reads a record that the target keeps.
std::string ReverseHow(const std::string& strHow)
{
    static const std::map<std::string, std::string> s_mapReverse = {
        {"branch from", "branch into"}, {"copy from", "copy into"}, {"merge from", "merge into"},
        {"edit from", "edit into"},     {"ignored", "ignored by"},  {"delete from", "delete into"},
        {"moved from", "moved into"},   {"add from", "add into"},
    };
    auto it = s_mapReverse.find(strHow);
    return it != s_mapReverse.end() ? it->second : strHow;
}

// "#none" or "#N".
std::string RevText(long long nRev)
{
    return nRev > 0 ? "#" + Num(nRev) : "#none";
}

// A revision range as the plain listing shows it: "#3", or "#2,#4" for the
// revisions after nStart up to nEnd.
std::string RangeText(long long nStart, long long nEnd)
{
    return nStart + 1 >= nEnd ? "#" + Num(nEnd) : "#" + Num(nStart + 1) + ",#" + Num(nEnd);
}

// One record as seen from the file under the argument: the file, the
// partner, the file's and the partner's ranges, and how.
struct TSeen
{
    std::string strFile, strPartner;
    long long nFileStart = 0, nFileEnd = 0, nPartnerStart = 0, nPartnerEnd = 0;
    std::string strHow;
    long long nChange = 0;
};

TSeen AsTarget(const TIntegRec& t)
{
    return TSeen{t.strToFile, t.strFromFile, t.nToRev - 1, t.nToRev, t.nFromStart, t.nFromEnd, t.strHow, t.nChange};
}

TSeen AsSource(const TIntegRec& t)
{
    return TSeen{t.strFromFile, t.strToFile, t.nFromStart,         t.nFromEnd,
                 t.nToRev - 1,  t.nToRev,    ReverseHow(t.strHow), t.nChange};
}

} // namespace

void CmdIntegrated(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.astrArgs.empty())
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    long long nSince = 0;
    if (tOptions.Has('s') && (!ParseUInt(tOptions.Value('s'), nSince)))
        throw EP4Error("Invalid changelist number '" + tOptions.Value('s') + "'.");
    const long long nMax = MaxOption(tOptions);
    std::unique_ptr<TClientView> pView = ClientIfNeeded(tContext, tOptions.astrArgs, true);
    CStore& rStore = *tContext.pStore;
    const bool bAny = rStore.HasIntegs();
    long long nShown = 0;
    for (const std::string& strArg : tOptions.astrArgs)
    {
        const TFileArg tArg = SplitFileArg(strArg);
        bool bIsDepot = true;
        const std::string strPattern = ArgPattern(tContext, tArg.strPath, pView.get(), bIsDepot);
        std::vector<TSeen> atSeen;
        for (const std::string& strPrefix :
             bAny ? DepotPrefixes(strPattern, bIsDepot, pView.get()) : std::vector<std::string>())
        {
            std::string strClientFile;
            for (const TIntegRec& t : rStore.IntegsInto(strPrefix))
                if (t.nChange >= nSince && PatternNames(strPattern, bIsDepot, pView.get(), t.strToFile, strClientFile))
                    atSeen.push_back(AsTarget(t));
            for (const TIntegRec& t : rStore.IntegsFrom(strPrefix))
                if (t.nChange >= nSince &&
                    PatternNames(strPattern, bIsDepot, pView.get(), t.strFromFile, strClientFile))
                    atSeen.push_back(AsSource(t));
        }
        std::stable_sort(atSeen.begin(), atSeen.end(), [](const TSeen& tA, const TSeen& tB) {
            if (tA.strFile != tB.strFile)
                return tA.strFile < tB.strFile;
            if (tA.nChange != tB.nChange)
                return tA.nChange < tB.nChange;
            return tA.strPartner < tB.strPartner;
        });
        if (atSeen.empty())
        {
            tContext.pOutput->Message(strArg + " - no file(s) integrated.", eSeverityWarning, eGenericEmpty);
            continue;
        }
        for (const TSeen& t : atSeen)
        {
            if (nMax >= 0 && nShown >= nMax)
                return;
            ++nShown;
            TRecord aRecord = {{"toFile", t.strFile},
                               {"fromFile", t.strPartner},
                               {"startToRev", RevText(t.nFileStart)},
                               {"endToRev", RevText(t.nFileEnd)},
                               {"startFromRev", RevText(t.nPartnerStart)},
                               {"endFromRev", RevText(t.nPartnerEnd)},
                               {"how", t.strHow},
                               {"change", Num(t.nChange)}};
            tContext.pOutput->Stat(aRecord, t.strFile + RangeText(t.nFileStart, t.nFileEnd) + " - " + t.strHow + " " +
                                                t.strPartner + RangeText(t.nPartnerStart, t.nPartnerEnd) + "\n");
        }
    }
}

} // namespace P4SIM
} // namespace ORVANE
