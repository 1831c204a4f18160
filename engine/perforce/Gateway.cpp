#include "perforce/Gateway.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <set>

#include "Text.h"
#include "WorkerChannel.h"
#include "perforce/P4Query.h"
#include "perforce/StreamedRun.h"

namespace ORVANE {
namespace IMP {

namespace {

// Global options of p4 that take a value, as separate argument.
bool TakesValue(const std::string& strOption)
{
    static const char* const s_apsz[] = {"-c", "-C", "-d", "-H", "-L", "-p", "-P", "-Q", "-u", "-x", "-z", "-r", "-v"};
    for (const char* psz : s_apsz)
        if (strOption == psz)
            return true;
    return false;
}

// A change number as the server writes it; 0 for anything else.
unsigned int ChangeNumber(const std::string& str)
{
    uint32_t n = 0;
    for (char c : str)
    {
        if (c < '0' || c > '9' || n > (UINT32_MAX - 9) / 10)
            return 0;
        n = n * 10 + static_cast<uint32_t>(c - '0');
    }
    return n;
}

bool Contains(const std::string& str, const char* pszPart)
{
    return str.find(pszPart) != std::string::npos;
}

// "//depot/main/..." of the module's "changes //depot/main/...".
std::string ListedPath(const TP4Command& tCommand)
{
    return tCommand.astrArgs.empty() ? std::string() : tCommand.astrArgs.back();
}

// The change of a sync argument "PATH@N"; 0 when it names none.
unsigned int SyncedChange(const TP4Command& tCommand)
{
    if (tCommand.astrArgs.empty())
        return 0;
    const std::string& strArg = tCommand.astrArgs.back();
    const size_t nAt = strArg.rfind('@');
    if (nAt == std::string::npos)
        return 0;
    return ChangeNumber(strArg.substr(nAt + 1));
}

bool IsModuleListing(const TP4Command& t)
{
    return t.bMarshalled && t.strName == "changes" && t.astrArgs.size() == 1;
}

bool IsModuleDescribe(const TP4Command& t)
{
    return t.bMarshalled && t.strName == "describe" && t.astrArgs.size() == 1;
}

// The module's "sync PATH@N" (not its "sync -f PATH#none").
bool IsModuleSync(const TP4Command& t)
{
    return !t.bMarshalled && t.strName == "sync" && t.astrArgs.size() == 1 && SyncedChange(t) != 0;
}

// The folder of the module's sync "FOLDER/...@N".
std::string SyncedFolder(const TP4Command& tCommand)
{
    std::string strFolder = tCommand.astrArgs[0].substr(0, tCommand.astrArgs[0].rfind('@'));
    if (strFolder.size() >= 4 && strFolder.compare(strFolder.size() - 4, 4, "/...") == 0)
        strFolder.resize(strFolder.size() - 4);
    return strFolder;
}

bool IsBranchForm(const TP4Command& t)
{
    return t.bMarshalled && t.strName == "branch" && t.astrArgs.size() >= 2 && t.astrArgs[0] == "-o";
}

// The branch specification's name as the module wrote it on its command
// line (which splits a name with blanks into several arguments).
std::string BranchName(const TP4Command& t)
{
    std::string str = t.astrArgs[1];
    for (size_t i = 2; i < t.astrArgs.size(); ++i)
        str += " " + t.astrArgs[i];
    return str;
}

} // namespace

TP4Command ParseP4Command(const std::vector<std::string>& astrArgs)
{
    TP4Command t;
    size_t i = 1;
    for (; i < astrArgs.size(); ++i)
    {
        const std::string& str = astrArgs[i];
        if (str.size() < 2 || str[0] != '-')
            break;
        if (str == "-G")
            t.bMarshalled = true;
        else if (TakesValue(str))
            ++i;
    }
    if (i < astrArgs.size())
    {
        t.strName = astrArgs[i];
        t.astrArgs.assign(astrArgs.begin() + static_cast<std::ptrdiff_t>(i) + 1, astrArgs.end());
    }
    return t;
}

bool IsTransientProblem(const std::string& strMessages)
{
    // What the client says when the connection to the server cannot be
    // made, drops in the middle of a command, or times out.
    static const char* const s_apsz[] = {"Connect to server failed",
                                         "TCP connect to",
                                         "TCP receive failed",
                                         "TCP send failed",
                                         "SSL receive failed",
                                         "SSL send failed",
                                         "SSL connect to",
                                         "Partner exited unexpectedly",
                                         "Connection reset by peer",
                                         "Connection timed out",
                                         "Broken pipe",
                                         "RpcTransport: partial message read",
                                         "timed out"};
    for (const char* psz : s_apsz)
        if (Contains(strMessages, psz))
            return true;
    return false;
}

bool IsLimitProblem(const std::string& strMessages)
{
    return Contains(strMessages, "see 'p4 help maxresults'") || Contains(strMessages, "see 'p4 help maxscanrows'") ||
           Contains(strMessages, "see 'p4 help maxlocktime'") || Contains(strMessages, "see 'p4 help maxopenfiles'");
}

bool CP4Gateway::Wait(unsigned nTry) const
{
    return WaitBeforeRetry(nTry, m_tPolicy.fFirstWait, m_fnStop);
}

bool CP4Gateway::TakeRecord(const TP4Record& tRecord, TP4Result& tResult, bool bKeep)
{
    if (IsFailureRecord(tRecord))
        tResult.atRecords.push_back(tRecord);
    else if (RecordValue(tRecord, "code") == "stat")
    {
        ++m_nStatRecords;
        if (bKeep)
            m_atDescribed.push_back(tRecord);
    }
    return true;
}

bool CP4Gateway::Decode(const TP4Command& tCommand, const std::string& strOutput, TP4Result& tResult)
{
    CMarshalDecoder cDecoder;
    m_nStatRecords = 0;
    m_atDescribed.clear();
    // A description is looked at once more: its records are kept.
    const bool bKeep = IsModuleDescribe(tCommand);
    cDecoder.Feed(strOutput.data(), strOutput.size(),
                  [this, &tResult, bKeep](const TP4Record& t) { return TakeRecord(t, tResult, bKeep); });
    tResult.bDecoded = cDecoder.AtRecordEnd();
    return tResult.bDecoded;
}

bool CP4Gateway::DecodeInPieces(const VCM::CProcessCapture& cCapture, const TP4Command& tCommand, TP4Result& tResult)
{
    // The module's listings and descriptions are looked at whole again; an
    // answer of one piece costs little as it is.
    const size_t nPiece = size_t(256) << 10;
    const uint64_t nSize = cCapture.OutputSize();
    if (IsModuleListing(tCommand) || IsModuleDescribe(tCommand) || nSize <= nPiece)
        return false;
    CMarshalDecoder cDecoder;
    m_nStatRecords = 0;
    m_atDescribed.clear();
    const auto fnRecord = [this, &tResult](const TP4Record& t) { return TakeRecord(t, tResult, false); };
    for (uint64_t nOffset = 0; nOffset < nSize; nOffset += nPiece)
    {
        const std::string strPiece = cCapture.PeekOutput(nOffset, nPiece);
        // Metadata to decode is rewritten in the whole output.
        if (!m_bUnicodeServer && std::any_of(strPiece.begin(), strPiece.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; }))
        {
            tResult.atRecords.clear();
            return false;
        }
        if (!cDecoder.Feed(strPiece.data(), strPiece.size(), fnRecord) || strPiece.size() < nPiece)
            break;
    }
    tResult.bDecoded = cDecoder.AtRecordEnd();
    return true;
}

int CP4Gateway::RunWithRetries(VCM::IChildRun& rRun, const TP4Command& tCommand, std::string& strOutput,
                               std::string& strProblem)
{
    for (unsigned nTry = 0;; ++nTry)
    {
        const int nStatus = rRun.Run();
        TP4Result tResult;
        tResult.nStatus = nStatus;
        tResult.strError = rRun.Capture().PeekError(std::numeric_limits<size_t>::max());
        strOutput.clear();
        if (tCommand.bMarshalled && !DecodeInPieces(rRun.Capture(), tCommand, tResult))
        {
            strOutput = rRun.Capture().PeekOutput(std::numeric_limits<size_t>::max());
            Decode(tCommand, strOutput, tResult);
        }
        strProblem = tResult.Problem();
        // Marshalled output that breaks off came over a connection that
        // broke: as worth another try as a dropped one. Output that is no
        // marshalled stream at all will not become one.
        const bool bCutShort = !tResult.bDecoded && rRun.Capture().PeekOutput(1) == "{";
        const bool bTransient = !strProblem.empty() && (IsTransientProblem(tResult.AllMessages()) || bCutShort);
        if (!bTransient)
            m_bServerAnswered = true;
        if (!bTransient || !m_bServerAnswered || nTry >= m_tPolicy.nRetries)
        {
            if (nTry > 0 && strProblem.empty())
                ++m_nRecovered;
            return nStatus;
        }
        if (m_fnNotice)
        {
            char szWait[32];
            std::snprintf(szWait, sizeof(szWait), "%g",
                          m_tPolicy.fFirstWait * std::pow(2.0, static_cast<double>(nTry)));
            m_fnNotice("'" + CommandText(rRun.Arguments()) + "' failed (" + strProblem + "); trying again in " +
                       szWait + " s (" + std::to_string(nTry + 1) + " of " + std::to_string(m_tPolicy.nRetries) + ")");
        }
        ++m_nRetried;
        if (!Wait(nTry))
            return nStatus;
    }
}

int CP4Gateway::Pass(VCM::IChildRun& rRun)
{
    const std::vector<std::string>& astrArgs = rRun.Arguments();
    if (astrArgs.empty() || astrArgs[0] != m_strP4)
        return rRun.Run();
    const TP4Command tCommand = ParseP4Command(astrArgs);
    if (IsModuleSync(tCommand) && m_fnSyncGuard)
    {
        // Refused before it runs: the sync would write through a link.
        const std::string strRefusal = m_fnSyncGuard(SyncedFolder(tCommand), SyncedChange(tCommand));
        if (!strRefusal.empty())
        {
            rRun.SetOutput(std::string());
            rRun.SetError(strRefusal + "\n");
            m_strLastFailure = "'" + CommandText(astrArgs) + "' was not run: " + strRefusal;
            m_atLost.push_back(TLostCommand{TLostCommand::eSync, CommandText(astrArgs), strRefusal, std::string(),
                                            SyncedChange(tCommand), true});
            return 1;
        }
    }
    if (IsModuleSync(tCommand) && SyncHere(rRun, tCommand))
        return 0;
    if (m_pFastSync && tCommand.strName == "client" && !tCommand.astrArgs.empty() && tCommand.astrArgs[0] == "-d")
        m_pFastSync->BeforeClientRemoval();
    std::string strOutput, strProblem;
    int nStatus = 0;
    std::string strFetchProblem;
    if (m_pFetcher && IsModuleDescribe(tCommand) &&
        m_pFetcher->TakeDescription(ChangeNumber(tCommand.astrArgs[0]), strOutput, strFetchProblem))
    {
        // Fetched ahead: the module reads what the server sent for it.
        TP4Result tResult;
        Decode(tCommand, strOutput, tResult);
        rRun.SetOutput(strOutput);
        rRun.SetError(std::string());
        m_bServerAnswered = true;
    }
    else
    {
        if (!strFetchProblem.empty() && strFetchProblem != "stopped")
            NoticeFetch("fetching ahead failed (" + strFetchProblem + "); the module asks the server itself",
                        strFetchProblem);
        nStatus = RunWithRetries(rRun, tCommand, strOutput, strProblem);
        if (IsModuleSync(tCommand) && m_pFastSync)
        {
            m_pFastSync->AfterServerSync(SyncedFolder(tCommand), SyncedChange(tCommand),
                                         nStatus == 0 && strProblem.empty());
        }
    }
    if (!strProblem.empty())
        m_strLastFailure = "'" + CommandText(astrArgs) + "' failed: " + strProblem;
    else if (tCommand.bMarshalled && !m_bUnicodeServer)
        DecodeMetadata(rRun, strOutput);

    if (IsModuleListing(tCommand))
    {
        m_strListing = ListedPath(tCommand);
        if (strProblem.empty())
        {
            const unsigned nLeftOutBefore = m_nPendingLeftOut;
            FilterListing(rRun, strOutput);
            m_nListed += m_nStatRecords - (m_nPendingLeftOut - nLeftOutBefore);
            if (m_pFetcher)
            {
                const std::vector<unsigned int> anChanges = ListedChanges(strOutput);
                m_pFetcher->WantDescriptions(anChanges);
                m_pFastSync->OnListing(m_strListing, anChanges);
            }
        }
        else
            m_atLost.push_back(
                TLostCommand{TLostCommand::eListing, CommandText(astrArgs), strProblem, m_strListing, 0});
    }
    else if (IsModuleDescribe(tCommand))
    {
        const unsigned int nChange = ChangeNumber(tCommand.astrArgs[0]);
        if (strProblem.empty() && m_pFastSync)
            m_pFastSync->OnDescribed(m_strListing, nChange, m_atDescribed);
        if (strProblem.empty())
            nStatus = CheckDescription(rRun, strOutput, nStatus, nChange);
        else
            m_atLost.push_back(
                TLostCommand{TLostCommand::eDescribe, CommandText(astrArgs), strProblem, m_strListing, nChange});
    }
    else if (IsModuleSync(tCommand) && !strProblem.empty())
        m_atLost.push_back(TLostCommand{TLostCommand::eSync, CommandText(astrArgs), strProblem, std::string(),
                                        SyncedChange(tCommand)});
    else if (IsBranchForm(tCommand) && !strProblem.empty())
        m_atUnreadBranches.emplace_back(BranchName(tCommand), m_strLastFailure);
    else if (tCommand.bMarshalled && tCommand.strName == "branches" && !strProblem.empty())
        m_atUnreadBranches.emplace_back(std::string(), m_strLastFailure);
    return nStatus;
}

bool CP4Gateway::SyncHere(VCM::IChildRun& rRun, const TP4Command& tCommand)
{
    if (!m_pFastSync)
        return false;
    const std::string strFolder = SyncedFolder(tCommand);
    std::string strNotice;
    if (m_pFastSync->Sync(strFolder, SyncedChange(tCommand), strNotice))
    {
        rRun.SetOutput(std::string());
        rRun.SetError(std::string());
        return true;
    }
    if (!strNotice.empty())
        NoticeFetch(strNotice, strNotice.substr(0, strNotice.rfind("); change ")));
    m_pFastSync->BeforeServerSync(strFolder);
    return false;
}

void CP4Gateway::NoticeFetch(const std::string& strNotice, const std::string& strProblem)
{
    // A batch that failed is told of once, not for each change in it.
    if (!m_fnNotice || !m_setFetchProblems.insert(strProblem).second)
        return;
    m_fnNotice(strNotice);
}

std::vector<unsigned int> CP4Gateway::ListedChanges(const std::string& strOutput)
{
    std::vector<unsigned int> an;
    CMarshalDecoder cDecoder;
    cDecoder.Feed(strOutput.data(), strOutput.size(), [&an](const TP4Record& t) {
        if (RecordValue(t, "code") == "stat")
            if (const unsigned int n = ChangeNumber(RecordValue(t, "change")))
                an.push_back(n);
        return true;
    });
    return an;
}

void CP4Gateway::FetchAhead(const TPrefetchPolicy& tPolicy)
{
    m_pFetcher.reset(new CPrefetcher(m_strP4, tPolicy));
    m_pFetcher->SetStopCheck(m_fnStop);
    m_pFastSync.reset(new CFastSync(m_strP4, *m_pFetcher));
}

void CP4Gateway::SetSpool(const std::string& strFolder)
{
    if (m_pFetcher)
        m_pFetcher->SetSpool(strFolder);
}

void CP4Gateway::StopFetching()
{
    if (m_pFetcher)
        m_pFetcher->Stop();
}

void CP4Gateway::Fetched(unsigned& nCommands, double& fWaitSeconds) const
{
    nCommands = 0;
    fWaitSeconds = 0;
    if (!m_pFetcher)
        return;
    const CPrefetcher::TStats t = m_pFetcher->Stats();
    nCommands = t.nDescribeCommands + t.nPrintCommands;
    fWaitSeconds = t.fWaitSeconds;
}

void CP4Gateway::SetCaseInsensitiveServer()
{
    if (m_pFastSync)
        m_pFastSync->Disable();
}

std::string CP4Gateway::FetchSummary() const
{
    if (!m_pFetcher)
        return std::string();
    const CPrefetcher::TStats t = m_pFetcher->Stats();
    char szWait[32];
    std::snprintf(szWait, sizeof(szWait), "%.1f", t.fWaitSeconds);
    return "fetched ahead: " + std::to_string(t.nDescriptions) + " descriptions in " +
           std::to_string(t.nDescribeCommands) + " commands, " + std::to_string(t.nRevisions) + " revisions (" +
           std::to_string(t.nBytes) + " bytes) in " + std::to_string(t.nPrintCommands) + " commands; " +
           std::to_string(m_pFastSync->FastSyncs()) + " syncs done from them, " +
           std::to_string(m_pFastSync->ServerSyncs()) + " by the server; " + szWait + " s waited" +
           (t.nSplit ? "; " + std::to_string(t.nSplit) + " commands over the server's limits asked again in halves"
                     : std::string());
}

void CP4Gateway::DecodeMetadata(VCM::IChildRun& rRun, std::string& strOutput)
{
    // Output of ASCII alone (nearly all) holds nothing to decode.
    bool bHigh = false;
    for (char c : strOutput)
        bHigh = bHigh || (static_cast<unsigned char>(c) & 0x80) != 0;
    if (!bHigh)
        return;
    unsigned nDecoded = 0;
    std::string strNew;
    const bool bRead = RewriteMarshalled(strOutput, strNew, [&](const std::string& strKey, std::string& strValue) {
        if (!CMetadataDecoder::IsMetadataKey(strKey) || !m_cDecoder.ToUtf8(strValue))
            return false;
        ++nDecoded;
        return true;
    });
    if (!bRead || nDecoded == 0)
        return;
    m_nDecoded += nDecoded;
    strOutput.swap(strNew);
    rRun.SetOutput(strOutput);
}

void CP4Gateway::FilterListing(VCM::IChildRun& rRun, const std::string& strOutput)
{
    // Listings without a pending or shelved change (nearly all) pass as
    // they are: their status values are all "submitted".
    static const std::string s_strPending("s\x07\0\0\0pending", 12);
    static const std::string s_strShelved("s\x07\0\0\0shelved", 12);
    if (strOutput.find(s_strPending) == std::string::npos && strOutput.find(s_strShelved) == std::string::npos)
        return;
    std::string strKept;
    CMarshalDecoder cDecoder;
    cDecoder.Feed(strOutput.data(), strOutput.size(), [&](const TP4Record& t, uint64_t nBegin, uint64_t nEnd) {
        const std::string strStatus = RecordValue(t, "status");
        if (RecordValue(t, "code") == "stat" && !strStatus.empty() && strStatus != "submitted")
            ++m_nPendingLeftOut;
        else
            strKept.append(strOutput, static_cast<size_t>(nBegin), static_cast<size_t>(nEnd - nBegin));
        return true;
    });
    rRun.SetOutput(strKept);
}

namespace {

// "action12" -> "action" and "12"; false for a key without a number.
bool SplitNumberedKey(const std::string& strKey, std::string& strName, std::string& strNumber)
{
    size_t n = strKey.size();
    while (n > 0 && strKey[n - 1] >= '0' && strKey[n - 1] <= '9')
        --n;
    if (n == strKey.size() || n == 0)
        return false;
    strName = strKey.substr(0, n);
    strNumber = strKey.substr(n);
    return true;
}

} // namespace

int CP4Gateway::CheckDescription(VCM::IChildRun& rRun, std::string& strOutput, int nStatus, unsigned int nChange)
{
    std::vector<std::string> astrNever;
    std::set<std::string> setGone; // the numbers of the file entries left out
    for (const TP4Record& t : m_atDescribed)
    {
        for (const auto& kv : t)
        {
            std::string strName, strNumber;
            if (!SplitNumberedKey(kv.first, strName, strNumber))
                continue;
            if (strName == "depotFile")
            {
                const size_t nBefore = m_cNames.GetNeverEnding().size();
                m_cNames.Add(kv.second);
                if (m_cNames.GetNeverEnding().size() != nBefore)
                    astrNever.push_back(kv.second);
            }
            else if (strName == "type")
            {
                const std::string strFile = RecordValue(t, ("depotFile" + strNumber).c_str());
                const std::string strAction = RecordValue(t, ("action" + strNumber).c_str());
                const bool bLink =
                    kv.second.compare(0, 7, "symlink") == 0 && strAction.find("delete") == std::string::npos;
                auto itLink = m_mapLinks.find(strFile);
                if (bLink || itLink != m_mapLinks.end())
                    m_mapLinks[strFile].emplace_back(nChange, bLink);
                const TKeywordMode eMode = KeywordMode(kv.second);
                auto it = m_mapKeywordTypes.find(strFile);
                if (eMode != eKeywordsNone || it != m_mapKeywordTypes.end())
                    m_mapKeywordTypes[strFile].emplace_back(nChange, eMode);
            }
            else if (strName == "action" && (kv.second == "purge" || kv.second == "archive"))
            {
                setGone.insert(strNumber);
                m_atGone.push_back(TGoneRevision{RecordValue(t, ("depotFile" + strNumber).c_str()),
                                                 ChangeNumber(RecordValue(t, ("rev" + strNumber).c_str())), nChange,
                                                 kv.second});
            }
        }
    }
    if (!astrNever.empty())
    {
        // The module would spin for ever on the name: it must not see it.
        for (const std::string& str : astrNever)
            if (std::find(m_astrRefused.begin(), m_astrRefused.end(), str) == m_astrRefused.end())
                m_astrRefused.push_back(str);
        rRun.SetOutput(std::string());
        rRun.SetError("orvane-import: the migration module cannot read the depot file name '" + astrNever[0] + "'\n");
        m_strLastFailure.clear();
        return 1;
    }
    if (setGone.empty())
        return nStatus;
    // The module stops reading a description at the first action it does
    // not know: without these entries it reads every other file.
    std::string strNew;
    if (DropMarshalledPairs(strOutput, strNew, [&setGone](const std::string& strKey) {
            std::string strName, strNumber;
            return SplitNumberedKey(strKey, strName, strNumber) && setGone.count(strNumber) != 0 &&
                   (strName == "depotFile" || strName == "action" || strName == "type" || strName == "rev" ||
                    strName == "fileSize" || strName == "digest");
        }))
    {
        strOutput.swap(strNew);
        rRun.SetOutput(strOutput);
    }
    return nStatus;
}

std::vector<std::string> CP4Gateway::LinksAt(const std::string& strPrefix, unsigned int nChange) const
{
    std::vector<std::string> astr;
    for (auto it = m_mapLinks.lower_bound(strPrefix);
         it != m_mapLinks.end() && it->first.compare(0, strPrefix.size(), strPrefix) == 0; ++it)
    {
        unsigned int nBest = 0;
        bool bLink = false;
        for (const auto& t : it->second)
            if (t.first <= nChange && t.first >= nBest)
                nBest = t.first, bLink = t.second;
        if (bLink)
            astr.push_back(it->first);
    }
    return astr;
}

TKeywordMode CP4Gateway::KeywordModeAt(const std::string& strDepotFile, unsigned int nChange) const
{
    auto it = m_mapKeywordTypes.find(strDepotFile);
    if (it == m_mapKeywordTypes.end())
        return eKeywordsNone;
    unsigned int nBest = 0;
    TKeywordMode eMode = eKeywordsNone;
    for (const auto& t : it->second)
        if (t.first <= nChange && t.first >= nBest)
            nBest = t.first, eMode = t.second;
    return eMode;
}

std::vector<TLostCommand> CP4Gateway::TakeLost()
{
    std::vector<TLostCommand> at;
    at.swap(m_atLost);
    return at;
}

std::vector<std::pair<std::string, std::string>> CP4Gateway::TakeUnreadBranches()
{
    std::vector<std::pair<std::string, std::string>> at;
    at.swap(m_atUnreadBranches);
    return at;
}

} // namespace IMP
} // namespace ORVANE
