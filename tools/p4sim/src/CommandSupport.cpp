// What the commands share: options, file arguments, the current client.
#include "Commands.h"

#include "FileSystem.h"
#include "FileTypes.h"
#include "Text.h"

#include <algorithm>

namespace ORVANE {
namespace P4SIM {

void CLimits::Set(long long nMaxResults, long long nMaxScanRows)
{
    m_nMaxResults = nMaxResults;
    m_nMaxScanRows = nMaxScanRows;
}

void CLimits::TooManyResults() const
{
    throw ELimitError("Request too large (over " + Num(m_nMaxResults) + "); see 'p4 help maxresults'.");
}

void CLimits::TooManyScanned() const
{
    throw ELimitError("Too many rows scanned (over " + Num(m_nMaxScanRows) + "); see 'p4 help maxscanrows'.");
}

std::string TOptions::Value(char c, const std::string& strDefault) const
{
    auto it = mapFlags.find(c);
    return it == mapFlags.end() || it->second.empty() ? strDefault : it->second.back();
}

const std::vector<std::string>& TOptions::Values(char c) const
{
    static const std::vector<std::string> s_astrNone;
    auto it = mapFlags.find(c);
    return it == mapFlags.end() ? s_astrNone : it->second;
}

TOptions ParseOptions(const TCommandSpec& tCommand, const std::vector<std::string>& astrArgs)
{
    const std::string strFlags = tCommand.pszFlags, strValueFlags = tCommand.pszValueFlags;
    const std::string strUsage = std::string("Usage: ") + tCommand.pszUsage + "\n";
    TOptions tOptions;
    size_t i = 0;
    for (; i < astrArgs.size(); ++i)
    {
        const std::string& strArg = astrArgs[i];
        if (strArg == "--")
        {
            ++i;
            break;
        }
        if (strArg.size() < 2 || strArg[0] != '-')
            break;
        for (size_t k = 1; k < strArg.size(); ++k)
        {
            char c = strArg[k];
            if (strValueFlags.find(c) != std::string::npos)
            {
                std::string strValue;
                if (k + 1 < strArg.size())
                    strValue = strArg.substr(k + 1);
                else if (i + 1 < astrArgs.size())
                    strValue = astrArgs[++i];
                else
                    throw EP4Error(strUsage + "Missing argument for flag -" + std::string(1, c) + ".");
                tOptions.mapFlags[c].push_back(strValue);
                break;
            }
            if (strFlags.find(c) == std::string::npos)
                throw EP4Error(strUsage + "Invalid option: " + strArg + ".");
            tOptions.mapFlags[c];
        }
    }
    tOptions.astrArgs.assign(astrArgs.begin() + long(i), astrArgs.end());
    return tOptions;
}

EP4Error UsageError(const TContext& tContext, const std::string& strWhat)
{
    return EP4Error(std::string("Usage: ") + tContext.pCommand->pszUsage + "\n" + strWhat);
}

long long MaxOption(const TOptions& tOptions)
{
    long long nMax = -1;
    if (tOptions.Has('m') && !ParseUInt(tOptions.Value('m'), nMax))
        throw EP4Error("Invalid maximum value '" + tOptions.Value('m') + "'.");
    return nMax;
}

TFileArg SplitFileArg(const std::string& strArg)
{
    size_t nMark = strArg.find_first_of("@#");
    if (nMark == std::string::npos)
        return {strArg, ""};
    return {strArg.substr(0, nMark), strArg.substr(nMark)};
}

bool IsTextType(const std::string& strType)
{
    // Everything but the binary kinds (and utf16, which a client gets as
    // UTF-16) is text as far as print's record code goes.
    const std::string strBase = ParseFileType(strType).strBase;
    return strBase != "binary" && strBase != "apple" && strBase != "resource" && strBase != "utf16";
}

std::string ConvertLineEnds(const std::string& strData, const std::string& strLineEnd)
{
    if (strLineEnd == "\n")
        return strData;
    std::string strOut;
    strOut.reserve(strData.size() + strData.size() / 16);
    for (char c : strData)
    {
        if (c == '\n')
            strOut += strLineEnd;
        else
            strOut += c;
    }
    return strOut;
}

std::string ClientContent(TContext& tContext, const TRevRec& tRev, bool bExpandKeywords, const std::string& strLineEnd)
{
    std::string strData = tContext.pStore->Content(tRev.strDigest);
    const TFileType tType = ParseFileType(tRev.strType);
    if (bExpandKeywords && tType.eKeywords != eKeywordsNone && !tType.IsSymlink())
    {
        TKeywordSource tSource;
        tSource.strDepotFile = tRev.strDepotFile;
        tSource.nRev = tRev.nRev;
        tSource.nChange = tRev.nChange;
        tSource.nTime = tRev.nTime;
        std::optional<TChangeRec> tChange = tContext.pStore->Change(tRev.nChange);
        tSource.strAuthor = tChange ? tChange->strUser : std::string();
        strData = ExpandKeywords(strData, tType.eKeywords, tSource);
    }
    if (tType.IsText())
        strData = ConvertLineEnds(strData, strLineEnd);
    if (tType.IsUtf16())
        return Utf8ToUtf16Le(strData);
    if (tType.IsUtf8() || (tType.IsUnicode() && tContext.strCharset == "utf8-bom"))
        return g_pszUtf8Bom + strData;
    return strData;
}

namespace {

// One end of a range: "@12", "#3", "@head", "@now".
long long RangeEnd(const std::string& strEnd, long long nMaxChange)
{
    std::string strValue = strEnd;
    if (!strValue.empty() && (strValue[0] == '@' || strValue[0] == '#'))
        strValue = strValue.substr(1);
    long long nValue;
    if (strValue == "head" || strValue == "now")
        return nMaxChange;
    if (ParseUInt(strValue, nValue))
        return nValue;
    throw EP4Error("Invalid changelist number '" + strValue + "'.");
}

long long ParsedNumber(const std::string& strText, const char* pszWhat)
{
    long long nValue;
    if (!ParseUInt(strText, nValue))
        throw EP4Error(std::string("Invalid ") + pszWhat + " number '" + strText + "'.");
    return nValue;
}

} // namespace

TRevBounds ParseRevBounds(const std::string& strRev, long long nMaxChange)
{
    TRevBounds tBounds;
    tBounds.nHigh = nMaxChange;
    if (strRev.empty() || strRev == "#head" || strRev == "@now")
        return tBounds;
    size_t nComma = strRev.find(',');
    if (nComma != std::string::npos)
    {
        // "@a,@b" (or "@a,b"); a range of revisions is taken as everything.
        std::string strFirst = strRev.substr(0, nComma), strLast = strRev.substr(nComma + 1);
        if (strLast[0] != '@' && strLast[0] != '#')
            strLast = std::string(1, strRev[0]) + strLast;
        if (strRev[0] == '@')
        {
            tBounds.nLow = RangeEnd(strFirst, nMaxChange);
            tBounds.nHigh = std::min(nMaxChange, RangeEnd(strLast, nMaxChange));
        }
        return tBounds;
    }
    if (strRev == "#none" || strRev == "#0")
        tBounds.bNone = true;
    else if (strRev == "#have")
        tBounds.bHave = true;
    else if (strRev[0] == '#')
        tBounds.nRev = ParsedNumber(strRev.substr(1), "revision");
    else if (StartsWith(strRev, "@="))
        tBounds.nLow = tBounds.nHigh = ParsedNumber(strRev.substr(2), "changelist");
    else if (long long nIgnored; !ParseUInt(strRev.substr(1), nIgnored))
        tBounds.strLabel = strRev.substr(1);
    else
        tBounds.nHigh = std::min(nMaxChange, ParsedNumber(strRev.substr(1), "changelist"));
    return tBounds;
}

std::vector<TRevRec> LabelRevisions(TContext& tContext, const std::string& strLabel, const std::string& strPrefix)
{
    // A real server would also try a client and a date of that name.
    if (!tContext.pStore->Label(strLabel))
        throw EP4Error("Invalid changelist/client/label/date '@" + strLabel + "'.", eSeverityFailed, eGenericUnknown);
    return tContext.pStore->LabelRevsUnder(strLabel, strPrefix);
}

TRecord ViewSpecFormRecord(const std::string& strKeyword, const TViewSpecRec& tSpec, bool bExisting)
{
    TRecord aRecord = {{strKeyword, tSpec.strName}};
    if (bExisting)
    {
        aRecord.push_back({"Update", FormatDateTime(tSpec.nUpdated)});
        aRecord.push_back({"Access", FormatDateTime(tSpec.nAccessed)});
    }
    aRecord.push_back({"Owner", tSpec.strOwner});
    aRecord.push_back({"Description", tSpec.strDescription});
    aRecord.push_back({"Options", tSpec.strOptions});
    for (size_t i = 0; i < tSpec.astrView.size(); ++i)
        aRecord.push_back({"View" + Num(static_cast<long long>(i)), tSpec.astrView[i]});
    return aRecord;
}

void ListViewSpec(TContext& tContext, const TOptions& tOptions, const std::string& strKeyword,
                  const TViewSpecRec& tSpec)
{
    TRecord aRecord = {{ToLower(strKeyword), tSpec.strName}, {"Update", Num(tSpec.nUpdated)},
                       {"Access", Num(tSpec.nAccessed)},     {"Owner", tSpec.strOwner},
                       {"Options", tSpec.strOptions},        {"Description", tSpec.strDescription}};
    std::string strDate = tOptions.Has('t') ? FormatDateTime(tSpec.nUpdated) : FormatDate(tSpec.nUpdated);
    tContext.pOutput->Stat(aRecord, strKeyword + " " + tSpec.strName + " " + strDate + " '" +
                                        OneLine(Truncated(tSpec.strDescription, 31)) + "'\n");
}

bool ListingSelects(const TOptions& tOptions, const std::string& strName, const std::string& strOwner)
{
    if (tOptions.Has('u') && strOwner != tOptions.Value('u'))
        return false;
    if (tOptions.Has('e') && !WildMatch(tOptions.Value('e'), strName))
        return false;
    if (tOptions.Has('E') && !WildMatch(ToLower(tOptions.Value('E')), ToLower(strName)))
        return false;
    return true;
}

std::string TClientView::LocalPath(const std::string& strClientFile) const
{
    std::string strRest = strClientFile.substr(tSpec.strName.size() + 3);
    return JoinPath(tSpec.strRoot, UnescapeName(strRest));
}

bool TClientView::ClientPathOf(const std::string& strLocal, std::string& strClientPath) const
{
    std::string strRoot = NormalizePath(tSpec.strRoot);
    std::string strRelative;
    if (strLocal == strRoot)
        strRelative = "";
    else if (strRoot == "/")
        strRelative = strLocal.substr(1);
    else if (StartsWith(strLocal, strRoot + "/"))
        strRelative = strLocal.substr(strRoot.size() + 1);
    else
        return false;
    strClientPath = "//" + tSpec.strName + "/" + strRelative;
    return true;
}

namespace {

EP4Error UnknownClient(const TContext& tContext)
{
    return EP4Error("Client '" + tContext.strClient + "' unknown - use 'client' command to create it.", eSeverityFailed,
                    eGenericUnknown);
}

} // namespace

TClientView LoadClient(TContext& tContext, bool bCheckHost)
{
    std::optional<TClientRec> tClient = tContext.pStore->Client(tContext.strClient);
    if (!tClient)
        throw UnknownClient(tContext);
    if (bCheckHost && !tClient->strHost.empty() && tClient->strHost != tContext.strHost)
    {
        throw EP4Error("Client '" + tClient->strName + "' can only be used from host '" + tClient->strHost + "'.",
                       eSeverityFailed, eGenericProtect);
    }
    TClientView tView;
    tView.tSpec = *tClient;
    for (const std::string& strLine : tClient->astrView)
    {
        TMapLine tLine;
        if (ParseViewLine(strLine, tLine))
            tView.cMap.Add(tLine);
    }
    return tView;
}

bool NeedsClient(const TContext& tContext, const std::string& strArg)
{
    const std::string strPath = SplitFileArg(strArg).strPath;
    return !strPath.empty() && (!StartsWith(strPath, "//") ||
                                (!tContext.strClient.empty() && StartsWith(strPath, "//" + tContext.strClient + "/")));
}

std::unique_ptr<TClientView> ClientIfNeeded(TContext& tContext, const std::vector<std::string>& astrArgs,
                                            bool bCheckHost)
{
    bool bNeeded = false;
    for (const std::string& strArg : astrArgs)
        bNeeded = bNeeded || NeedsClient(tContext, strArg);
    if (!bNeeded && !tContext.pStore->Client(tContext.strClient))
        return nullptr;
    return std::make_unique<TClientView>(LoadClient(tContext, bNeeded && bCheckHost));
}

std::string AbsoluteLocal(const TContext& tContext, const std::string& strPath)
{
    if (StartsWith(strPath, "/"))
        return NormalizePath(strPath);
    return NormalizePath(JoinPath(tContext.strCwd, strPath));
}

std::string ArgPattern(TContext& tContext, const std::string& strPath, const TClientView* pView, bool& bIsDepot)
{
    if (StartsWith(strPath, "//"))
    {
        size_t nSlash = strPath.find('/', 2);
        std::string strFirst = strPath.substr(2, nSlash == std::string::npos ? std::string::npos : nSlash - 2);
        bIsDepot = !(pView && strFirst == pView->tSpec.strName);
        return strPath;
    }
    if (!pView)
        throw UnknownClient(tContext);
    // A trailing "..." survives normalisation as the last item.
    std::string strLocal = AbsoluteLocal(tContext, strPath);
    std::string strClientPath;
    if (!pView->ClientPathOf(strLocal, strClientPath))
    {
        throw EP4Error("Path '" + strLocal + "' is not under client's root '" + pView->tSpec.strRoot + "'.",
                       eSeverityFailed, eGenericContext);
    }
    bIsDepot = false;
    return strClientPath;
}

std::vector<std::string> DepotPrefixes(const std::string& strPattern, bool bIsDepot, const TClientView* pView)
{
    if (bIsDepot)
        return {LiteralPrefix(strPattern)};
    return pView->cMap.LeftPrefixesFor(LiteralPrefix(strPattern));
}

bool PatternNames(const std::string& strPattern, bool bIsDepot, const TClientView* pView,
                  const std::string& strDepotFile, std::string& strClientFile)
{
    strClientFile.clear();
    bool bMapped = pView && pView->cMap.Translate(strDepotFile, strClientFile);
    if (bIsDepot)
        return WildMatch(strPattern, strDepotFile);
    return bMapped && WildMatch(strPattern, strClientFile);
}

} // namespace P4SIM
} // namespace ORVANE
