// `p4 files`, `p4 fstat` and `p4 print`: revisions of the files that the
// arguments name.
#include "Commands.h"

#include "FileSystem.h"
#include "Text.h"

#include <algorithm>
#include <fstream>
#include <set>

namespace ORVANE {
namespace P4SIM {

namespace {

// A file that an argument names, at the revision its specifier selects.
struct TResolvedFile
{
    TRevRec tRev;
    std::string strClientFile; // empty when not mapped or no client
};

std::vector<TRevRec> RevisionsUnder(CStore& rStore, const std::string& strPrefix, const TRevBounds& tBounds,
                                    long long nMaxChange, bool bAllRevs)
{
    if (bAllRevs)
    {
        std::vector<TRevRec> atRevs = rStore.RevsUnder(strPrefix, tBounds.nLow, tBounds.nHigh);
        std::sort(atRevs.begin(), atRevs.end(), [](const TRevRec& tA, const TRevRec& tB) {
            return tA.strDepotFile != tB.strDepotFile ? PathLess(tA.strDepotFile, tB.strDepotFile) : tA.nRev > tB.nRev;
        });
        return atRevs;
    }
    std::vector<TRevRec> atRevs;
    if (tBounds.nRev >= 0)
    {
        for (const TRevRec& tHead : rStore.HeadsUnder(strPrefix, nMaxChange))
        {
            std::optional<TRevRec> tExact =
                tHead.nRev < tBounds.nRev ? std::nullopt : rStore.Rev(tHead.strDepotFile, tBounds.nRev);
            if (tExact)
                atRevs.push_back(*tExact);
        }
        return atRevs;
    }
    atRevs = rStore.HeadsUnder(strPrefix, tBounds.nHigh);
    if (tBounds.nLow > 1)
    {
        atRevs.erase(std::remove_if(atRevs.begin(), atRevs.end(),
                                    [&](const TRevRec& tRev) { return tRev.nChange < tBounds.nLow; }),
                     atRevs.end());
    }
    return atRevs;
}

std::vector<TResolvedFile> Resolve(TContext& tContext, const TFileArg& tArg, const TClientView* pView,
                                   bool bAllRevs = false)
{
    bool bIsDepot = true;
    // "@label" alone stands for "//...@label".
    std::string strPattern = ArgPattern(tContext, tArg.strPath.empty() ? "//..." : tArg.strPath, pView, bIsDepot);
    long long nMaxChange = tContext.pStore->MaxChange();
    TRevBounds tBounds = ParseRevBounds(tArg.strRev, nMaxChange);
    std::vector<TResolvedFile> atOut;
    for (const std::string& strPrefix : DepotPrefixes(strPattern, bIsDepot, pView))
    {
        std::vector<TRevRec> atRevs = tBounds.strLabel.empty()
                                          ? RevisionsUnder(*tContext.pStore, strPrefix, tBounds, nMaxChange, bAllRevs)
                                          : LabelRevisions(tContext, tBounds.strLabel, strPrefix);
        // The rows read: every revision of the files under the prefix up to
        // the change, or the label's revisions.
        if (tContext.cLimits.ScanLimited())
        {
            long long nAt = tBounds.nRev >= 0 ? nMaxChange : tBounds.nHigh;
            tContext.cLimits.AddScanned(tBounds.strLabel.empty() ? tContext.pStore->CountRevsUnder(strPrefix, nAt)
                                                                 : static_cast<long long>(atRevs.size()));
        }
        for (TRevRec& tRev : atRevs)
        {
            TResolvedFile tFile;
            if (!PatternNames(strPattern, bIsDepot, pView, tRev.strDepotFile, tFile.strClientFile))
                continue;
            tFile.tRev = std::move(tRev);
            atOut.push_back(std::move(tFile));
        }
    }
    return atOut;
}

std::string NoSuchFiles(const TFileArg& tArg)
{
    return tArg.strPath + tArg.strRev + " - no such file(s).";
}

std::string RevisionLine(const TRevRec& tRev)
{
    return tRev.strDepotFile + "#" + Num(tRev.nRev) + " - " + tRev.strAction + " change " + Num(tRev.nChange) + " (" +
           tRev.strType + ")\n";
}

TRecord FstatRecord(TContext& tContext, const TResolvedFile& tFile, const TClientView* pView)
{
    const TRevRec& tRev = tFile.tRev;
    TRecord aRecord = {{"depotFile", tRev.strDepotFile}};
    if (!tFile.strClientFile.empty())
    {
        aRecord.push_back({"clientFile", pView->LocalPath(tFile.strClientFile)});
        aRecord.push_back({"isMapped", ""});
    }
    aRecord.push_back({"headAction", tRev.strAction});
    aRecord.push_back({"headType", tRev.strType});
    aRecord.push_back({"headTime", Num(tRev.nTime)});
    aRecord.push_back({"headRev", Num(tRev.nRev)});
    aRecord.push_back({"headChange", Num(tRev.nChange)});
    aRecord.push_back({"headModTime", Num(tRev.nModTime)});
    if (pView && !tFile.strClientFile.empty())
    {
        std::optional<THaveRec> tHave = tContext.pStore->Have(pView->tSpec.strName, tFile.strClientFile);
        if (tHave)
            aRecord.push_back({"haveRev", Num(tHave->nRev)});
    }
    return aRecord;
}

// The -T fields: names separated by blanks or commas.
std::set<std::string> FstatFields(const TOptions& tOptions)
{
    std::set<std::string> setFields;
    for (std::string strList : tOptions.Values('T'))
    {
        std::replace(strList.begin(), strList.end(), ',', ' ');
        for (const std::string& strField : SplitWords(strList))
            setFields.insert(strField);
    }
    return setFields;
}

void PrintRevision(TContext& tContext, const TOptions& tOptions, const TRevRec& tRev, std::string* pstrToFile)
{
    TRecord aRecord = {{"depotFile", tRev.strDepotFile}, {"rev", Num(tRev.nRev)}, {"change", Num(tRev.nChange)},
                       {"action", tRev.strAction},       {"type", tRev.strType},  {"time", Num(tRev.nTime)},
                       {"fileSize", Num(tRev.nSize)}};
    tContext.cLimits.AddResults(1);
    if (!tOptions.Has('q'))
        tContext.pOutput->Stat(aRecord, RevisionLine(tRev));
    if (!tRev.HasContent())
        return;
    // -k prints the keywords as stored ("$Id$").
    std::string strData = ClientContent(tContext, tRev, !tOptions.Has('k'), "\n");
    if (pstrToFile)
        *pstrToFile += strData;
    else
        tContext.pOutput->Content(strData, !IsTextType(tRev.strType));
}

} // namespace

void CmdFiles(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.astrArgs.empty())
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    long long nMax = MaxOption(tOptions);
    std::unique_ptr<TClientView> pView = ClientIfNeeded(tContext, tOptions.astrArgs, false);
    long long nListed = 0;
    for (const std::string& strArg : tOptions.astrArgs)
    {
        TFileArg tArg = SplitFileArg(strArg);
        bool bAny = false;
        for (const TResolvedFile& tFile : Resolve(tContext, tArg, pView.get(), tOptions.Has('a')))
        {
            const TRevRec& tRev = tFile.tRev;
            if (tOptions.Has('e') && !tRev.HasContent())
                continue;
            if (nMax >= 0 && nListed >= nMax)
                return;
            ++nListed;
            bAny = true;
            tContext.cLimits.AddResults(1);
            TRecord aRecord = {{"depotFile", tRev.strDepotFile}, {"rev", Num(tRev.nRev)}, {"change", Num(tRev.nChange)},
                               {"action", tRev.strAction},       {"type", tRev.strType},  {"time", Num(tRev.nTime)}};
            tContext.pOutput->Stat(aRecord, RevisionLine(tRev));
        }
        if (!bAny)
            tContext.pOutput->Message(NoSuchFiles(tArg), eSeverityWarning, eGenericEmpty);
    }
}

void CmdFstat(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.astrArgs.empty())
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    long long nMax = MaxOption(tOptions);
    std::set<std::string> setOnly = FstatFields(tOptions);
    std::unique_ptr<TClientView> pView = ClientIfNeeded(tContext, tOptions.astrArgs, false);
    long long nListed = 0;
    for (const std::string& strArg : tOptions.astrArgs)
    {
        TFileArg tArg = SplitFileArg(strArg);
        bool bAny = false;
        for (const TResolvedFile& tFile : Resolve(tContext, tArg, pView.get()))
        {
            if (nMax >= 0 && nListed >= nMax)
                return;
            ++nListed;
            bAny = true;
            tContext.cLimits.AddResults(1);
            TRecord aRecord;
            for (const auto& tField : FstatRecord(tContext, tFile, pView.get()))
            {
                if (setOnly.empty() || setOnly.count(tField.first))
                    aRecord.push_back(tField);
            }
            std::string strPlain;
            for (const auto& tField : aRecord)
                strPlain += "... " + tField.first + (tField.second.empty() ? "" : " " + tField.second) + "\n";
            tContext.pOutput->Stat(aRecord, strPlain + "\n");
        }
        if (!bAny)
            tContext.pOutput->Message(NoSuchFiles(tArg), eSeverityWarning, eGenericEmpty);
    }
}

void CmdPrint(TContext& tContext, const TOptions& tOptions)
{
    if (tOptions.astrArgs.empty())
        throw UsageError(tContext, "Missing/wrong number of arguments.");
    std::unique_ptr<TClientView> pView = ClientIfNeeded(tContext, tOptions.astrArgs, false);
    std::string strOutFile = tOptions.Value('o');
    std::string strWritten;
    for (const std::string& strArg : tOptions.astrArgs)
    {
        TFileArg tArg = SplitFileArg(strArg);
        bool bAny = false;
        for (const TResolvedFile& tFile : Resolve(tContext, tArg, pView.get(), tOptions.Has('a')))
        {
            bAny = true;
            if (tFile.tRev.Deleted() && !tOptions.Has('a'))
                continue;
            PrintRevision(tContext, tOptions, tFile.tRev, strOutFile.empty() ? nullptr : &strWritten);
        }
        if (!bAny)
            tContext.pOutput->Message(NoSuchFiles(tArg), eSeverityWarning, eGenericEmpty);
    }
    if (strOutFile.empty())
        return;
    std::string strPath = AbsoluteLocal(tContext, strOutFile);
    std::ofstream cFile(strPath, std::ios::binary | std::ios::trunc);
    if (!cFile)
        throw EP4Error("open for write: " + strPath + ": No such file or directory", eSeverityFailed, eGenericFault);
    cFile << strWritten;
}

} // namespace P4SIM
} // namespace ORVANE
