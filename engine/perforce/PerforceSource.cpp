#include "perforce/PerforceSource.h"

#include <algorithm>
#include <set>

#include <wx/filefn.h>

#include "Stop.h"
#include "Text.h"
#include "WorkerChannel.h"
#include "host/StreamRecord.h"
#include "mce/ProviderBase.h"
#include "perforce/Labels.h"
#include "perforce/P4Query.h"
#include "perforce/ServerChecks.h"

namespace ORVANE {
namespace IMP {

const char* const g_pszPerforceClient = "Orvane_Temp_Client";

namespace {

// Runs "p4 ARGS..." with the input; false with the first line of what it
// said when it failed.
bool RunP4WithInput(const std::string& strP4, const std::vector<std::string>& astrArgs, const std::string& strInput,
                    std::string& strError)
{
    std::vector<std::string> astrAll = {strP4};
    astrAll.insert(astrAll.end(), astrArgs.begin(), astrArgs.end());
    VCM::CProcessCapture cCapture;
    if (!strInput.empty())
        cCapture.GetStdInputStream()->Write(strInput.data(), strInput.size());
    const int nStatus = cCapture.Execute(astrAll);
    strError = VCM::ReadAllBytes(*cCapture.GetStdErrorStream());
    if (strError.empty())
        strError = VCM::ReadAllBytes(*cCapture.GetStdOutputStream());
    strError = strError.substr(0, strError.find('\n'));
    if (nStatus != 0 && strError.empty())
        strError = "exit status " + std::to_string(nStatus);
    return nStatus == 0;
}

// Whether the setting IgnoredBranches leaves the branch specification out
// on purpose: its ';'-separated wildcard patterns, compared without case.
bool IsIgnoredBranch(const std::string& strPatterns, const std::string& strName)
{
    const wxString strLower = Wide(strName).Lower();
    size_t nStart = 0;
    while (nStart < strPatterns.size())
    {
        const size_t nEnd = std::min(strPatterns.find(';', nStart), strPatterns.size());
        const wxString strPattern = Wide(strPatterns.substr(nStart, nEnd - nStart)).Lower();
        if (wxIsWild(strPattern) ? wxMatchWild(strPattern, strLower, true) : strPattern == strLower)
            return true;
        nStart = nEnd + 1;
    }
    return false;
}

std::string Setting(const std::map<std::string, std::string>& mapSettings, const char* pszKey)
{
    auto it = mapSettings.find(pszKey);
    return it != mapSettings.end() ? it->second : std::string();
}

} // namespace

CPerforceSource::CPerforceSource(const TSourceOptions& tOptions, std::function<void(const std::string&)> fnSay)
    : CSourceSystem(tOptions, std::move(fnSay))
{
}

CPerforceSource::~CPerforceSource()
{
    if (m_pGateway)
        VCM::CProcessCapture::SetGateway(nullptr);
}

void CPerforceSource::Start(MCE::CProvider& cProvider, const std::map<std::string, std::string>& mapSettings)
{
    m_pProvider = &cProvider;
    m_bCaseInsensitive = Setting(mapSettings, "CaseInsensitive") == "1";
    m_strP4 = Setting(mapSettings, "P4Path");
    m_strRootPath = Setting(mapSettings, "RootPath");
    m_strIgnoredBranches = Setting(mapSettings, "IgnoredBranches");
    CP4Gateway::TPolicy tPolicy;
    tPolicy.nRetries = m_tOptions.nRetries;
    tPolicy.fFirstWait = m_tOptions.fRetryWait;
    tPolicy.strMetadataEncoding = m_tOptions.strMetadataEncoding;
    m_pGateway.reset(new CP4Gateway(m_strP4, tPolicy, m_cNames));
    if (!m_tOptions.bQuiet)
        m_pGateway->SetNotice([this](const std::string& str) { Say("warning: " + str); });
    m_pGateway->SetStopCheck([]() { return g_nStopSignal != 0; });
    m_pGateway->SetSyncGuard(
        [this](const std::string& strFolder, unsigned int nChange) { return GuardSync(strFolder, nChange); });
    if (m_tOptions.nJobs > 0)
    {
        TPrefetchPolicy tFetch;
        tFetch.nJobs = m_tOptions.nJobs;
        tFetch.nRetries = m_tOptions.nRetries;
        tFetch.fFirstWait = m_tOptions.fRetryWait;
        m_pGateway->FetchAhead(tFetch);
    }
    VCM::CProcessCapture::SetGateway(m_pGateway.get());
    WorkerChannel().Send(EVENT::pszP4, m_strP4);
}

std::function<unsigned int()> CPerforceSource::ChangeNumbers() const
{
    // The Perforce module is built on the provider framework: the
    // changelist number is its current change record's.
    const MCE::CProviderBase* pBase = static_cast<const MCE::CProviderBase*>(m_pProvider);
    return [pBase]() { return pBase->GetCurrentProviderChangeID(); };
}

void CPerforceSource::CheckSource(CAuthors& cAuthors)
{
    const CServerChecks cChecks(m_strP4);
    const TP4Record tInfo = cChecks.CheckConnection();
    m_pGateway->SetUnicodeServer(RecordValue(tInfo, "unicode") == "enabled");
    // The module compares paths without case unless told otherwise; the
    // server says how it compares them.
    const std::string strCase = RecordValue(tInfo, "caseHandling");
    m_bServerSaysCase = strCase == "insensitive";
    if (m_bServerSaysCase)
        m_pGateway->SetCaseInsensitiveServer();
    if (!strCase.empty() && m_tOptions.setGivenSettings.count("CaseInsensitive") == 0)
    {
        m_bCaseInsensitive = strCase == "insensitive";
        m_pProvider->SetProperty(L"CaseInsensitive", m_bCaseInsensitive ? L"1" : L"0");
    }
    cChecks.ReadUsers(cAuthors);
}

void CPerforceSource::OnStreamsKnown(const TStreams& atStreams)
{
    m_pStreams = &atStreams;
    NameLeftOutBranches(atStreams);
}

bool CPerforceSource::ViewUnderRoot(const std::string& strBranch) const
{
    // A name the client would take for an option cannot be asked about.
    if (strBranch[0] == '-')
        return true;
    std::string strRoot = m_strRootPath;
    if (strRoot.size() >= 4 && strRoot.compare(strRoot.size() - 4, 4, "/...") == 0)
        strRoot.resize(strRoot.size() - 4);
    const auto fnUnder = [&strRoot](const std::string& strPath) {
        return strPath.compare(0, strRoot.size(), strRoot) == 0 &&
               (strPath.size() == strRoot.size() || strPath[strRoot.size()] == '/');
    };
    bool bUnder = false;
    const TP4Result tForm = CP4Query(m_strP4).Run({"branch", "-o", strBranch}, [&](const TP4Record& t) {
        for (const auto& kv : t)
        {
            if (kv.first.compare(0, 4, "View") != 0)
                continue;
            // "SOURCE TARGET", each side perhaps in double quotes.
            std::vector<std::string> astrSides;
            const std::string& strLine = kv.second;
            for (size_t i = 0; i < strLine.size();)
            {
                if (strLine[i] == ' ')
                {
                    ++i;
                    continue;
                }
                const bool bQuoted = strLine[i] == '"';
                const size_t nStart = bQuoted ? i + 1 : i;
                const size_t nEnd = std::min(strLine.find(bQuoted ? '"' : ' ', nStart), strLine.size());
                astrSides.push_back(strLine.substr(nStart, nEnd - nStart));
                i = nEnd + (bQuoted ? 1 : 0);
            }
            if (astrSides.size() == 2 && fnUnder(astrSides[0]) && fnUnder(astrSides[1]))
                bUnder = true;
        }
        return true;
    });
    // A form that cannot be read may well be of a stream: it is named.
    return bUnder || !tForm.Problem().empty();
}

void CPerforceSource::NameLeftOutBranches(const TStreams& atStreams)
{
    std::map<std::string, std::string> mapWhy;
    for (const auto& t : m_pGateway->TakeUnreadBranches())
    {
        if (t.first.empty())
        {
            Say("warning: the branch specifications cannot be listed, so none became a stream: " + t.second);
            return;
        }
        mapWhy[t.first] = t.second;
    }
    std::set<std::string> setStreams;
    for (const TStream& t : atStreams)
        setStreams.insert(t.strName);
    // The module's own listing covers the root path; the same listing here
    // tells which specifications it left out without a word.
    CP4Query(m_strP4).Run({"branches"}, [&](const TP4Record& t) {
        const std::string strName = RecordValue(t, "branch");
        if (RecordValue(t, "code") != "stat" || strName.empty() || IsIgnoredBranch(m_strIgnoredBranches, strName))
            return true;
        VCM::CString strValid = Wide(strName);
        VDB::TStreamRecord::MakeValidName(strValid);
        if (setStreams.count(strName) != 0 || setStreams.count(Utf8(strValid)) != 0)
            return true;
        if (!ViewUnderRoot(strName))
            return true;
        auto it = mapWhy.find(strName);
        Say("warning: the branch specification " + strName + " is left out, its files are in no stream: " +
            (it != mapWhy.end() ? it->second
                                : std::string("the module cannot use it (a blank in its name or in a folder of its "
                                              "view, or a name that begins with '-'; see the import log)")));
        return true;
    });
}

void CPerforceSource::BeforeImport()
{
    // Before anything is synced or written.
    if (!CServerChecks(m_strP4).ScanNames(m_strRootPath, m_cNames) && !m_tOptions.bQuiet)
        Say("the server refuses to list every file under " + m_strRootPath +
            " at once (its MaxResults or MaxScanRows); the names are checked as the changes are read");
}

bool CPerforceSource::ClientGone() const
{
    const TP4Result tResult = CP4Query(m_strP4).Run({"clients", "-e", g_pszPerforceClient});
    if (!tResult.Problem().empty())
        return false;
    for (const TP4Record& tRecord : tResult.atRecords)
        if (RecordValue(tRecord, "client") == g_pszPerforceClient)
            return false;
    return true;
}

void CPerforceSource::BeforeCall(const char* /*pszCall*/)
{
    // A failure of a p4 command belongs to the call that ran it.
    m_pGateway->ForgetFailure();
}

std::string CPerforceSource::LastFailure() const
{
    return m_pGateway ? m_pGateway->LastFailure() : std::string();
}

std::string CPerforceSource::GuardSync(const std::string& strFolder, unsigned int nChange) const
{
    if (!m_pStreams)
        return std::string();
    for (const TStream& t : *m_pStreams)
    {
        if (t.strFolder != strFolder)
            continue;
        for (const std::string& strLink : m_pGateway->LinksAt(PathText(t.tInfo.cDstPath) + "/", nChange))
        {
            // Rare: a link of the depot. Is anything below it at the change?
            std::string strBelow;
            CP4Query(m_strP4).Run({"files", "-e", strLink + "/...@" + std::to_string(nChange)},
                                  [&strBelow](const TP4Record& tRecord) {
                                      if (RecordValue(tRecord, "code") == "stat" && strBelow.empty())
                                          strBelow = RecordValue(tRecord, "depotFile");
                                      return strBelow.empty();
                                  });
            if (!strBelow.empty())
                return "the depot file " + strBelow + " lies below the symbolic link " + strLink +
                       ": a sync would write it wherever the link points";
        }
    }
    return std::string();
}

std::string CPerforceSource::StreamOfPath(const std::string& strListed) const
{
    if (m_pStreams)
        for (const TStream& t : *m_pStreams)
            if (PathText(t.tInfo.cDstPath) + "/..." == strListed)
                return "stream " + t.strName;
    return strListed;
}

void CPerforceSource::OnChangesEstablished(unsigned int nCount)
{
    if (!m_pGateway->RefusedNames().empty())
        throw EStop(eExitFailure, NeverEndingMessage(m_pGateway->RefusedNames()));
    const std::vector<TLostCommand> atLost = m_pGateway->TakeLost();
    ActOn(atLost, nullptr);
    // The module reads what the gateway passed as whole its own way: a
    // change it could not read is missing from its count (it says why
    // only in its import log).
    unsigned nDescribeLost = 0;
    for (const TLostCommand& t : atLost)
        nDescribeLost += t.eKind == TLostCommand::eDescribe ? 1 : 0;
    const unsigned nExpected = m_pGateway->ListedChanges() - nDescribeLost;
    if (nCount >= nExpected)
        return;
    const std::string str = "the module read " + std::to_string(nCount) + " of the " + std::to_string(nExpected) +
                            " changes the server listed; the import log names the others (\"** Failed to "
                            "enumerate change\")";
    if (m_tOptions.bKeepGoing)
        Say("warning: " + str + " (--keep-going: the module goes on without them)");
    else
        throw EStop(eExitFailure, str + "\nNothing was imported. Run again, or give --keep-going to import without "
                                        "what failed.");
}

void CPerforceSource::OnChangeSynced(const TStream& tStream, unsigned int nNumber)
{
    ActOn(m_pGateway->TakeLost(), &tStream);
    m_pSyncedStream = &tStream;
    m_nSyncedNumber = nNumber;
}

namespace {

// A name as the server writes it in a depot path: '%' '@' '#' '*' escaped.
std::string ServerEscaped(const std::string& strName)
{
    std::string str;
    for (char c : strName)
    {
        switch (c)
        {
        case '%':
            str += "%25";
            break;
        case '@':
            str += "%40";
            break;
        case '#':
            str += "%23";
            break;
        case '*':
            str += "%2A";
            break;
        default:
            str += c;
        }
    }
    return str;
}

} // namespace

CContentFilter* CPerforceSource::WrapFilter(CContentFilter* pNext)
{
    if (m_tOptions.bKeepKeywords)
        return pNext;
    std::unique_ptr<CKeywordFilter>& pFilter = m_mapKeywordFilters[pNext];
    if (!pFilter)
        pFilter.reset(new CKeywordFilter(
            [this](const std::string& strPath) {
                // Nearly every depot has no such file: nothing to look up.
                if (!m_pSyncedStream || !m_pGateway->HasKeywordTypes())
                    return eKeywordsNone;
                return m_pGateway->KeywordModeAt(
                    PathText(m_pSyncedStream->tInfo.cDstPath) + "/" + ServerEscaped(strPath), m_nSyncedNumber);
            },
            pNext));
    return pFilter.get();
}

std::vector<std::string> CPerforceSource::GonePaths(const TStream& tStream, unsigned int nNumber) const
{
    std::vector<std::string> astr;
    const std::string strPrefix = PathText(tStream.tInfo.cDstPath) + "/";
    for (const TGoneRevision& t : m_pGateway->GoneRevisions())
        if (t.nChange == nNumber && t.strDepotFile.compare(0, strPrefix.size(), strPrefix) == 0)
            astr.push_back(Utf8(wxString(DecodeOnce(Wide(t.strDepotFile.substr(strPrefix.size())).ToStdWstring()))));
    return astr;
}

void CPerforceSource::ActOn(const std::vector<TLostCommand>& atLost, const TStream* pSynced)
{
    if (atLost.empty())
        return;
    std::vector<std::string> astr;
    for (const TLostCommand& t : atLost)
    {
        std::string str;
        switch (t.eKind)
        {
        case TLostCommand::eListing:
            str = "the changes of " + StreamOfPath(t.strPath) + " cannot be listed";
            break;
        case TLostCommand::eDescribe:
            str = "change " + std::to_string(t.nChange) + " of " + StreamOfPath(t.strPath) + " cannot be read";
            break;
        case TLostCommand::eSync:
            str = "change " + std::to_string(t.nChange) + (pSynced ? " of stream " + pSynced->strName : std::string()) +
                  " cannot be synced";
            break;
        }
        astr.push_back(str + ": '" + t.strCommand + (t.bNotRun ? "' was not run: " : "' failed: ") + t.strProblem);
    }
    if (m_tOptions.bKeepGoing)
    {
        for (const std::string& str : astr)
            Say("warning: " + str + " (--keep-going: the module goes on without it)");
        return;
    }
    std::string strMessage = astr[0];
    for (size_t i = 1; i < astr.size(); ++i)
        strMessage += "\n    " + astr[i];
    strMessage += pSynced ? "\nNothing was written for this change; the changes before it are in git. Run again to "
                            "continue from there, or give --keep-going to import without what failed."
                          : "\nNothing was imported. Run again, or give --keep-going to import without what failed.";
    throw EStop(eExitFailure, strMessage);
}

std::string CPerforceSource::SyncedPath(const std::string& strStreamPath, const std::string& strItemPath) const
{
    return m_cNames.SyncedPath(strStreamPath, strItemPath);
}

bool CPerforceSource::ReadIntegrations(const TStreams& atStreams)
{
    for (const TStream& t : atStreams)
        m_cIntegrations.AddStream(t.tInfo.nID, PathText(t.tInfo.cDstPath));
    // Per stream: every revision of its files, and every integration record
    // of them (the records of the other side are left out as they come).
    for (const TStream& t : atStreams)
    {
        const std::string strPattern = PathText(t.tInfo.cDstPath) + "/...";
        const std::vector<std::string> astrRevisions = {"files", "-a", strPattern};
        const TP4Result tRevisions = CP4Query(m_strP4).Run(astrRevisions, [this](const TP4Record& tRecord) {
            if (RecordValue(tRecord, "code") == "stat")
                m_cIntegrations.AddRevision(TP4Revision{
                    RecordValue(tRecord, "depotFile"), RevisionNumber(RecordValue(tRecord, "rev")),
                    RevisionNumber(RecordValue(tRecord, "change")), IsDeleteAction(RecordValue(tRecord, "action"))});
            return true;
        });
        const std::vector<std::string> astrIntegrated = {"integrated", strPattern};
        const TP4Result tIntegrated = CP4Query(m_strP4).Run(astrIntegrated, [this](const TP4Record& tRecord) {
            if (RecordValue(tRecord, "code") == "stat")
                m_cIntegrations.AddIntegration(TP4Integration{
                    RecordValue(tRecord, "toFile"), RevisionNumber(RecordValue(tRecord, "endToRev")),
                    RecordValue(tRecord, "fromFile"), RevisionNumber(RecordValue(tRecord, "startFromRev")),
                    RevisionNumber(RecordValue(tRecord, "endFromRev")), RecordValue(tRecord, "how"),
                    RevisionNumber(RecordValue(tRecord, "change"))});
            return true;
        });
        for (const auto& tQuery :
             {std::make_pair(&astrRevisions, &tRevisions), std::make_pair(&astrIntegrated, &tIntegrated)})
        {
            const std::string strProblem = tQuery.second->Problem();
            if (strProblem.empty())
                continue;
            std::string strCommand = "p4";
            for (const std::string& str : *tQuery.first)
                strCommand += " " + str;
            throw EStop(eExitFailure, "the integrations of stream " + t.strName + " cannot be read: '" + strCommand +
                                          "' failed: " + strProblem +
                                          "\nNothing was imported. Run again, or give --no-merges to import "
                                          "without merges.");
        }
    }
    return true;
}

std::vector<unsigned int> CPerforceSource::StreamChanges(unsigned int nStreamID) const
{
    return m_cIntegrations.Changes(nStreamID);
}

std::vector<TIntegration> CPerforceSource::Integrations(unsigned int nStreamID, unsigned int nChange,
                                                        const std::map<unsigned int, unsigned int>& mapHeld) const
{
    return m_cIntegrations.Integrations(nStreamID, nChange, mapHeld);
}

void CPerforceSource::ForgetIntegrations()
{
    m_cIntegrations.Clear();
}

std::string CPerforceSource::ImportLabels(const TStreams& atStreams, const std::string& strGitDir,
                                          const CAuthors& cAuthors, std::FILE* pOut)
{
    std::vector<TLabelStream> atLabelStreams;
    for (const TStream& s : atStreams)
        atLabelStreams.push_back(TLabelStream{s.strBranch, PathText(s.tInfo.cDstPath)});
    const std::vector<TLabelOutcome> atOutcomes = CLabels(m_strP4, strGitDir, cAuthors).Import(atLabelStreams);
    size_t nTags = 0;
    for (const TLabelOutcome& t : atOutcomes)
    {
        nTags += t.bTagged ? 1 : 0;
        // A skipped label is told even with --quiet: it is missing from git.
        if (!t.bTagged || !m_tOptions.bQuiet)
            std::fprintf(pOut, "label %s: %s%s\n", t.strName.c_str(), t.bTagged ? "" : "skipped: ", t.strWhat.c_str());
    }
    return ", " + std::to_string(nTags) + " of " + std::to_string(atOutcomes.size()) + " labels as tags";
}

namespace {

std::string GoneText(const TGoneRevision& t)
{
    return t.strDepotFile + "#" + std::to_string(t.nRevision) + " of change " + std::to_string(t.nChange);
}

} // namespace

std::vector<std::string> CPerforceSource::Summary(bool bQuiet) const
{
    std::vector<std::string> astr;
    if (!m_pGateway)
        return astr;
    const unsigned nRecovered = m_pGateway->Recovered();
    if (nRecovered != 0 && !bQuiet)
        astr.push_back(std::to_string(nRecovered) + (nRecovered == 1 ? " p4 command" : " p4 commands") +
                       " failed on the way to the server and succeeded when tried again");
    // What git lacks is told even to a quiet run.
    const std::vector<TGoneRevision>& atGone = m_pGateway->GoneRevisions();
    if (!atGone.empty())
    {
        std::string str = std::to_string(atGone.size()) + (atGone.size() == 1 ? " revision is" : " revisions are") +
                          " purged or archived on the server and left out of the commits: ";
        for (size_t i = 0; i < atGone.size() && i < 3; ++i)
            str += (i ? ", " : "") + GoneText(atGone[i]);
        astr.push_back(str + (atGone.size() > 3 ? ", ... (each in the import log)" : " (each in the import log)"));
    }
    return astr;
}

void CPerforceSource::OnWorkspace(const std::string& strFolder)
{
    // A folder the client's view leaves alone, beside the streams' folders
    // (whose names come from branch specifications, which never begin
    // with a '.').
    m_pGateway->SetSpool(strFolder + "/.fetched-ahead");
}

void CPerforceSource::Fetched(unsigned& nCommands, double& fWaitSeconds) const
{
    nCommands = 0;
    fWaitSeconds = 0;
    if (m_pGateway)
        m_pGateway->Fetched(nCommands, fWaitSeconds);
}

void CPerforceSource::StopFetching()
{
    if (m_pGateway)
        m_pGateway->StopFetching();
}

bool CPerforceSource::SyncElsewhere(const TStream& tStream, unsigned int nNumber, const std::string& strFolder,
                                    std::string& strProblem)
{
    strProblem = GuardSync(tStream.strFolder, nNumber);
    if (!strProblem.empty())
        return false;
    // A client of its own whose root is the folder; -p leaves its have list
    // empty, so removing it leaves nothing on the server.
    const std::string strClient = std::string(g_pszPerforceClient) + "_Verify";
    const std::string strDepot = PathText(tStream.tInfo.cDstPath);
    const std::string strForm = "Client: " + strClient + "\nRoot: " + strFolder +
                                "\nOptions: noallwrite clobber nocompress unlocked modtime normdir\nLineEnd: local\n"
                                "View:\n\t\"" +
                                strDepot + "/...\" \"//" + strClient + "/...\"\n";
    std::string strError;
    if (!RunP4WithInput(m_strP4, {"client", "-i"}, strForm, strError))
    {
        strProblem = "cannot make the client " + strClient + ": " + strError;
        return false;
    }
    const bool bSynced =
        RunP4WithInput(m_strP4, {"-c", strClient, "sync", "-p", strDepot + "/...@" + std::to_string(nNumber)},
                       std::string(), strError);
    std::string strIgnored;
    RunP4WithInput(m_strP4, {"client", "-d", strClient}, std::string(), strIgnored);
    if (!bSynced)
        strProblem = "the server's sync failed: " + strError;
    return bSynced;
}

std::vector<std::string> CPerforceSource::LogLines() const
{
    std::vector<std::string> astr;
    if (m_pGateway && !m_pGateway->FetchSummary().empty())
        astr.push_back("orvane-import: " + m_pGateway->FetchSummary());
    if (m_pGateway)
        for (const TGoneRevision& t : m_pGateway->GoneRevisions())
            astr.push_back("orvane-import: left out of its commit: " + GoneText(t) + " (" +
                           (t.strAction == "purge" ? "purged" : "archived") + " on the server)");
    return astr;
}

} // namespace IMP
} // namespace ORVANE
