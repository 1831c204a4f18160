#include "Import.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>

#include "Authors.h"
#include "Driver.h"
#include "Dump.h"
#include "GitRepository.h"
#include "Graph.h"
#include "HistoryWriter.h"
#include "Labels.h"
#include "Leftovers.h"
#include "LfsImport.h"
#include "LogFile.h"
#include "Module.h"
#include "P4Query.h"
#include "Progress.h"
#include "ProviderHost.h"
#include "ServerChecks.h"
#include "Stop.h"
#include "Streams.h"
#include "Text.h"
#include "WorkerChannel.h"
#include "Workspace.h"
#include "mce/ProviderBase.h"

namespace ORVANE {
namespace IMP {

namespace {

// The temporary client that the Perforce module makes on the server.
const char* const s_pszPerforceClient = "Orvane_Temp_Client";

// Why the module could not make its staging database, when something is in
// the way of its files (it says nothing itself): ": the staging file ... is
// in the way ...", or empty.
std::string StagingObstacle()
{
    for (const char* pszSuffix : g_apszStagingSuffixes)
    {
        const std::string strPath = StagingPrefix(g_pszStagingFolder, ::getpid()) + pszSuffix;
        struct stat tStat;
        if (::lstat(strPath.c_str(), &tStat) != 0)
            continue;
        if (S_ISLNK(tStat.st_mode))
            return ": the staging file " + strPath + " is in the way (a symbolic link); remove it";
        if (!S_ISREG(tStat.st_mode) || tStat.st_uid != ::geteuid())
            return ": the staging file " + strPath + " is in the way (not a file of this user); remove it";
    }
    return std::string();
}

class CImport
{
public:
    CImport(const TOptions& tOptions, CRunStats* pStats)
        : m_tOptions(tOptions), m_pStats(pStats), m_cProgress(stderr),
          m_cHistory(m_atStreams, m_cWorkspace, m_cDump, nullptr, m_cProgress, tOptions.bVerify)
    {
        m_cHistory.SetRunStats(pStats);
    }
    int Run();

private:
    std::string Migrate();
    bool IsPerforce() const;
    // The value a setting of the provider was given.
    std::string Setting(const std::string& strKey) const;
    void LoadProvider();
    void StartProvider();
    void DiscoverStreams();
    // The users of the history without a mapping, one a line on standard
    // output; returns the message for the end.
    std::string ListMissingAuthors();
    void OpenRepository();
    // What the branches of a repository that an earlier run made hold.
    void ReadEarlierRuns();
    void ImportStreams();
    std::string Finish();
    // The labels as tags, each told on standard output; returns the end of
    // the closing message.
    std::string ImportLabels();
    void PrintStreams(bool bWithCommits);
    void Cleanup(int nStatus);
    void ReleaseProvider(int nStatus);
    // The module's clients go, once.
    void RemoveClients();
    // Whether the temporary client is still on the server (or the server
    // cannot tell).
    bool ClientRemains() const;
    void Say(const std::string& str);
    // Where what the user asked to see goes: standard output, unless the
    // dump is written there.
    std::FILE* Report() const { return m_cDump.IsStandardOutput() ? stderr : stdout; }

    const TOptions& m_tOptions;
    CRunStats* m_pStats;
    CModule m_cModule;
    CProviderHost m_cHost;
    std::unique_ptr<CMigrationDriver> m_pDriver;
    bool m_bClientsRemoved = false;
    TStreams m_atStreams;
    CWorkspace m_cWorkspace;
    CDumpWriter m_cDump;
    std::unique_ptr<CGitRepository> m_pGit;
    CProgress m_cProgress;
    CHistoryWriter m_cHistory;
    std::map<std::string, std::string> m_mapSettings;
    CEscapedNames m_cNames;
    CAuthors m_cAuthors;
    TLfsSettings m_tLfs;
    std::unique_ptr<CLfsImport> m_pLfs;
};

void CImport::Say(const std::string& str)
{
    m_cProgress.BreakLine();
    std::fprintf(stderr, "orvane-import: %s\n", str.c_str());
}

int CImport::Run()
{
    int nStatus = eExitDone;
    std::string strMessage;
    try
    {
        strMessage = Migrate();
    }
    catch (const EProviderFailure& e)
    {
        m_cDump.Failure(e.Call(), e.Result());
        nStatus = e.Status();
        strMessage = e.what();
        // Say why, when a p4 command of the call failed.
        if (!WorkerChannel().GetLastFailure().empty())
            strMessage += ": " + WorkerChannel().GetLastFailure();
        else if (e.Call() == "EstablishChangesets")
            strMessage += StagingObstacle();
    }
    catch (const EStop& e)
    {
        nStatus = e.Status();
        strMessage = e.what();
    }
    catch (const std::exception& e)
    {
        nStatus = eExitFailure;
        strMessage = std::string("unexpected error: ") + e.what();
    }
    // A stop that came during a call may have made the call fail (its p4
    // command was ended too): the stop is what happened.
    if (g_nStopSignal && nStatus != eExitDone)
    {
        const EStop eStop = StopBySignal(g_nStopSignal);
        nStatus = eStop.Status();
        strMessage = eStop.what();
    }
    if (m_pGit && m_pGit->IsOpen())
    {
        // Keep what was imported before the stop.
        std::string strError;
        m_pGit->Close(std::string(), strError);
    }
    if (!strMessage.empty() && nStatus != eExitDone)
        m_cProgress.BreakLine();
    Cleanup(nStatus);
    if (m_pStats)
        m_pStats->SetChanges(m_cProgress.Done());
    if (!strMessage.empty() && (nStatus != eExitDone || !m_tOptions.bQuiet))
        Say(nStatus == eExitDone ? strMessage : "error: " + strMessage);
    return nStatus;
}

// The whole migration; returns the message for its end, empty when there is
// none to give.
std::string CImport::Migrate()
{
    std::string strUnusable;
    if (!m_tOptions.strGit.empty() && !CGitRepository::IsUsable(m_tOptions.strGit, strUnusable))
        throw EStop(eExitUsage, strUnusable);
    // Before the server is asked anything: settings a continued repository
    // cannot take end the run here.
    m_tLfs = ChooseLfsSettings(m_tOptions.strGit, LfsSettings(m_tOptions.strLfsThreshold, m_tOptions.astrLfsPatterns));
    if (!m_tOptions.strAuthors.empty())
        m_cAuthors.ReadFile(m_tOptions.strAuthors);
    m_cHistory.SetAuthors(m_cAuthors);
    LoadProvider();
    if (m_tOptions.bListSettings)
    {
        PrintTable(SettingRows(m_cHost.Provider()->GetPropertyInfo()), stdout);
        return std::string();
    }
    if (!m_tOptions.strDump.empty())
        m_cDump.Open(m_tOptions.strDump);
    if (IsPerforce())
    {
        CServerChecks(Setting("P4Path")).CheckConnection();
        m_cAuthors.ReadServerUsers(Setting("P4Path"));
    }
    StartProvider();
    DiscoverStreams();
    if (m_tOptions.bStreamsOnly)
    {
        PrintStreams(false);
        return std::string();
    }
    if (m_tOptions.bAuthorsMissing)
        return ListMissingAuthors();
    if (IsPerforce())
    {
        // Before anything is synced or written.
        CServerChecks(Setting("P4Path")).ScanNames(Setting("RootPath"), m_cNames);
        m_cHistory.SetEscapedNames(&m_cNames);
    }
    OpenRepository();
    NameBranches(m_atStreams);
    ReadEarlierRuns();
    ImportStreams();
    return Finish();
}

void CImport::LoadProvider()
{
    const std::string& strID = m_tOptions.strProvider;
    if (!CModule::IsValidID(strID))
        throw EStop(eExitUsage, "invalid provider id '" + strID + "'");
    const std::string strPath =
        m_tOptions.strModule.empty() ? CModule::Find(strID, CModule::Folders()) : m_tOptions.strModule;
    m_cModule.Load(strPath, strID);
    m_cHost.Adopt(m_cModule.CreateProvider());
    m_pDriver.reset(new CMigrationDriver(*m_cHost.Provider(), m_cHistory));
    if (IsPerforce())
    {
        // The Perforce module is built on the provider framework: the
        // changelist number is its current change record's.
        const MCE::CProviderBase* pBase = static_cast<const MCE::CProviderBase*>(m_cHost.Provider());
        m_pDriver->SetChangeNumbers([pBase]() { return pBase->GetCurrentProviderChangeID(); });
    }
    m_mapSettings = ApplySettings(*m_cHost.Provider(), m_tOptions.atSettings);
    if (IsPerforce())
        WorkerChannel().Send(EVENT::pszP4, Setting("P4Path"));
}

bool CImport::IsPerforce() const
{
    return m_tOptions.strProvider == "p4";
}

std::string CImport::Setting(const std::string& strKey) const
{
    auto it = m_mapSettings.find(strKey);
    return it != m_mapSettings.end() ? it->second : std::string();
}

void CImport::StartProvider()
{
    std::string strWarning;
    if (!m_pDriver->CheckEnvironment(strWarning) && !m_tOptions.bQuiet)
        Say("warning: " + strWarning);
    // The provider names its log only when it ends it.
    const std::set<std::string> setLogs = ListImportLogs();
    m_pDriver->OpenLog(m_tOptions.bLogToConsole);
    const std::string strLog = NewImportLog(setLogs);
    if (!strLog.empty())
        WorkerChannel().Send(EVENT::pszLog, strLog);
}

void CImport::DiscoverStreams()
{
    m_pDriver->EstablishStreams();
    m_atStreams = MakeStreams(m_pDriver->WalkStreams());
    if (!m_tOptions.strGraph.empty())
        WriteGraph(StreamGraph(m_atStreams), m_tOptions.strGraph);
}

std::string CImport::ListMissingAuthors()
{
    std::set<std::string> setUsers;
    for (TStream& s : m_atStreams)
    {
        m_cHistory.SetStream(s);
        m_pDriver->ListChanges(s.tInfo.nID, std::string(),
                               [&setUsers](const TChangeInfo& tChange) { setUsers.insert(Utf8(tChange.strUser)); });
    }
    const std::vector<std::string> astrMissing = m_cAuthors.Missing(setUsers);
    std::FILE* pOut = Report();
    for (const std::string& strUser : astrMissing)
        std::fprintf(pOut, "%s\n", strUser.c_str());
    std::set<std::string> setNames;
    for (const std::string& strUser : setUsers)
        setNames.insert(PerforceUser(strUser));
    return std::to_string(astrMissing.size()) + " of the " + std::to_string(setNames.size()) +
           " users of the history have no name and e-mail address";
}

void CImport::OpenRepository()
{
    if (m_tOptions.strGit.empty())
        return;
    m_pGit.reset(new CGitRepository);
    std::string strError;
    if (!m_pGit->Open(m_tOptions.strGit, strError))
        throw EStop(eExitFailure, strError);
    m_pGit->SetSaveInterval(m_tOptions.fCheckpointSeconds);
    if (!m_pGit->Recovered().empty() && !m_tOptions.bQuiet)
        Say("an earlier run was killed: removed what it left in " + m_tOptions.strGit + " (" +
            std::to_string(m_pGit->Recovered().size()) + " lock and crash files)");
    m_cHistory.SetRepository(m_pGit.get());
    if (m_tLfs.Any())
    {
        m_pLfs.reset(new CLfsImport(m_tLfs, m_tOptions.strGit));
        m_pLfs->Open(!m_pGit->Continued());
        m_cHistory.SetLfs(m_pLfs.get());
    }
}

void CImport::ReadEarlierRuns()
{
    if (!m_pGit || !m_pGit->Continued())
        return;
    for (TStream& s : m_atStreams)
    {
        std::vector<TGitCommit> atLog;
        std::string strError;
        if (!m_pGit->ReadHistory(s.strBranch, atLog, strError) || !TakeEarlierCommits(s, atLog, strError))
            throw EStop(eExitFailure, strError);
    }
}

void CImport::ImportStreams()
{
    m_cWorkspace.Make(m_tOptions.strWorkspace);
    if (m_cWorkspace.Made())
        WorkerChannel().Send(EVENT::pszWorkspace, m_cWorkspace.Path());
    PlaceStreams(m_atStreams, m_cWorkspace.Path());
    if (IsPerforce())
        WorkerChannel().Send(EVENT::pszClient, s_pszPerforceClient);
    m_pDriver->InitialiseClients(m_cWorkspace.Path());
    const bool bTerminal = isatty(2);
    m_cProgress.Start(!m_tOptions.bQuiet && (m_tOptions.bProgress || bTerminal), bTerminal);
    for (TStream& s : m_atStreams)
    {
        m_cHistory.SetStream(s);
        m_pDriver->ImportStream(s.tInfo.nID, s.strFolder);
    }
    if (!m_atStreams.empty())
        m_cProgress.Show(m_atStreams.back().strName, true);
}

std::string CImport::Finish()
{
    // Every change is read: the workspace goes while git writes its pack
    // and the module removes its client.
    if (!m_cWorkspace.Path().empty() && !m_tOptions.bKeepWorkspace)
    {
        m_cHistory.Stop();
        m_cWorkspace.StartRemoval();
    }
    if (m_pGit)
        m_pGit->EndInput();
    RemoveClients();
    if (m_pGit)
    {
        std::string strError;
        if (!m_pGit->Close(HeadBranch(m_atStreams), strError))
            throw EStop(eExitFailure, strError);
    }
    if (!m_tOptions.bQuiet)
        PrintStreams(true);
    std::string strLabels;
    if (m_tOptions.bLabels && m_pGit && IsPerforce())
        strLabels = ImportLabels();
    if (m_pGit && m_pGit->Continued() && m_cProgress.Done() == 0)
        return "nothing new: the branches in " + m_tOptions.strGit + " hold every change of the " +
               std::to_string(m_atStreams.size()) + " streams" + strLabels;
    return "imported " + std::to_string(m_cProgress.Done()) + " changes of " + std::to_string(m_atStreams.size()) +
           " streams" + (m_pGit ? " into " + m_tOptions.strGit : std::string()) + strLabels;
}

std::string CImport::ImportLabels()
{
    std::vector<TLabelStream> atStreams;
    for (const TStream& s : m_atStreams)
        atStreams.push_back(TLabelStream{s.strBranch, PathText(s.tInfo.cDstPath)});
    WorkerChannel().Send(EVENT::pszPhase, "labels");
    const std::vector<TLabelOutcome> atOutcomes =
        CLabels(Setting("P4Path"), m_tOptions.strGit, m_cAuthors).Import(atStreams);
    size_t nTags = 0;
    std::FILE* pOut = Report();
    for (const TLabelOutcome& t : atOutcomes)
    {
        nTags += t.bTagged ? 1 : 0;
        // A skipped label is told even with --quiet: it is missing from git.
        if (!t.bTagged || !m_tOptions.bQuiet)
            std::fprintf(pOut, "label %s: %s%s\n", t.strName.c_str(), t.bTagged ? "" : "skipped: ", t.strWhat.c_str());
    }
    return ", " + std::to_string(nTags) + " of " + std::to_string(atOutcomes.size()) + " labels as tags";
}

void CImport::PrintStreams(bool bWithCommits)
{
    PrintTable(StreamRows(m_atStreams, bWithCommits), Report());
}

void CImport::Cleanup(int nStatus)
{
    m_cHistory.Stop();
    ReleaseProvider(nStatus);
    if (!m_cWorkspace.Path().empty() && !m_tOptions.bKeepWorkspace)
        m_cWorkspace.Remove();
    else if (!m_cWorkspace.Path().empty() && !m_tOptions.bQuiet)
        Say("workspace kept: " + m_cWorkspace.Path());
    m_cDump.Close();
}

bool CImport::ClientRemains() const
{
    const TP4Result tResult = CP4Query(Setting("P4Path")).Run({"clients", "-e", s_pszPerforceClient});
    if (!tResult.Problem().empty())
        return true;
    for (const TP4Record& tRecord : tResult.atRecords)
        if (RecordValue(tRecord, "client") == s_pszPerforceClient)
            return true;
    return false;
}

void CImport::RemoveClients()
{
    if (!m_pDriver || m_bClientsRemoved)
        return;
    m_bClientsRemoved = true;
    m_pDriver->RemoveClients();
    // The module does not look whether its client went: the supervisor
    // removes one that is still there, or names it.
    if (!IsPerforce() || !ClientRemains())
        WorkerChannel().Send(EVENT::pszClientGone);
}

void CImport::ReleaseProvider(int nStatus)
{
    MCE::CProvider* pProvider = m_cHost.Provider();
    if (!pProvider)
        return;
    RemoveClients();
    const std::string strLog = Utf8(pProvider->GetLogPath());
    if (!strLog.empty())
    {
        if (!m_tOptions.strLog.empty())
        {
            if (!MoveLog(strLog, m_tOptions.strLog))
                Say("cannot write the log to " + m_tOptions.strLog);
        }
        else if (!m_tOptions.bQuiet || nStatus != eExitDone)
            Say("import log: " + strLog);
        else
        {
            // A quiet run that went well names nothing: a log kept all the
            // same would be left in the temporary folder for good, one
            // more with every run of a scheduled import.
            ::unlink(strLog.c_str());
        }
    }
    // The module stays loaded until the process ends: whatever it
    // registered to run at exit (static destructors) must find its code in
    // place.
    if (m_pStats)
        m_pStats->SampleStaging();
    m_cHost.Destroy();
}

} // namespace

int RunImport(const TOptions& tOptions, CRunStats* pStats)
{
    CImport cImport(tOptions, pStats);
    return cImport.Run();
}

} // namespace IMP
} // namespace ORVANE
