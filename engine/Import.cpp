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
#include "Leftovers.h"
#include "LfsImport.h"
#include "LogFile.h"
#include "Merges.h"
#include "Module.h"
#include "Progress.h"
#include "ProviderHost.h"
#include "SourceSystem.h"
#include "Stop.h"
#include "Streams.h"
#include "Text.h"
#include "WorkerChannel.h"
#include "Workspace.h"

namespace ORVANE {
namespace IMP {

namespace {

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
          m_cHistory(m_atStreams, m_cWorkspace, m_cDump, nullptr, m_cProgress, tOptions.bVerify),
          m_pSource(MakeSourceSystem(tOptions.strProvider, SourceOptions(tOptions),
                                     [this](const std::string& str) { Say(str); }))
    {
        m_cHistory.SetRunStats(pStats);
        m_cHistory.SetSource(m_pSource.get());
    }
    int Run();

private:
    std::string Migrate();
    static TSourceOptions SourceOptions(const TOptions& tOptions);
    void LoadProvider();
    void StartProvider();
    void DiscoverStreams();
    // Reads where the changes' integrations came from and plans the merges.
    void PlanMerges();
    // The users of the history without a mapping, one a line on standard
    // output; returns the message for the end.
    std::string ListMissingAuthors();
    void OpenRepository();
    // What the branches of a repository that an earlier run made hold.
    void ReadEarlierRuns();
    void ImportStreams();
    std::string Finish();
    void PrintStreams(bool bWithCommits);
    void Cleanup(int nStatus);
    void ReleaseProvider(int nStatus);
    // The module's clients go, once.
    void RemoveClients();
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
    CAuthors m_cAuthors;
    TLfsSettings m_tLfs;
    std::unique_ptr<CLfsImport> m_pLfs;
    std::unique_ptr<CSourceSystem> m_pSource;
    CMergePlan m_cPlan;
    bool m_bPlanned = false;
};

TSourceOptions CImport::SourceOptions(const TOptions& tOptions)
{
    TSourceOptions t;
    t.bKeepGoing = tOptions.bKeepGoing;
    t.nRetries = tOptions.nRetries;
    t.fRetryWait = tOptions.fRetryWait;
    t.nJobs = tOptions.nJobs;
    t.bQuiet = tOptions.bQuiet;
    t.strMetadataEncoding = tOptions.strMetadataEncoding;
    t.bKeepKeywords = tOptions.bKeepKeywords;
    for (const auto& kv : tOptions.atSettings)
        t.setGivenSettings.insert(kv.first);
    return t;
}

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
        // Say why: a command of the call failed, or the engine can tell.
        const std::string strFailure = m_pSource->LastFailure();
        if (!strFailure.empty())
            strMessage += ": " + strFailure;
        else if (!e.Cause().empty())
            strMessage += ": " + e.Cause();
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
    {
        m_pStats->SetChanges(m_cProgress.Done());
        unsigned nCommands = 0;
        double fWait = 0;
        if (m_pSource)
            m_pSource->Fetched(nCommands, fWait);
        m_pStats->SetFetched(nCommands, fWait);
    }
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
    m_pSource->CheckSource(m_cAuthors);
    StartProvider();
    DiscoverStreams();
    if (m_tOptions.bMerges && (m_tOptions.bStreamsOnly ? !m_tOptions.strGraph.empty() : !m_tOptions.strGit.empty()))
        PlanMerges();
    if (!m_tOptions.strGraph.empty())
        WriteGraph(StreamGraph(m_atStreams, m_bPlanned ? m_cPlan.Edges() : TMergeEdges()), m_tOptions.strGraph);
    if (m_tOptions.bStreamsOnly)
    {
        PrintStreams(false);
        return std::string();
    }
    if (m_tOptions.bAuthorsMissing)
        return ListMissingAuthors();
    m_pSource->BeforeImport();
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
    m_mapSettings = ApplySettings(*m_cHost.Provider(), m_tOptions.atSettings);
    m_pSource->Start(*m_cHost.Provider(), m_mapSettings);
    m_pDriver->SetChangeNumbers(m_pSource->ChangeNumbers());
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
    m_pSource->OnStreamsKnown(m_atStreams);
}

void CImport::PlanMerges()
{
    WorkerChannel().Send(EVENT::pszPhase, "integrations");
    if (!m_pSource->ReadIntegrations(m_atStreams))
        return;
    m_cPlan.Build(m_atStreams, *m_pSource);
    m_pSource->ForgetIntegrations();
    m_bPlanned = true;
    m_cHistory.SetMergePlan(&m_cPlan);
}

std::string CImport::ListMissingAuthors()
{
    std::set<std::string> setUsers;
    for (TStream& s : m_atStreams)
    {
        m_cHistory.SetStream(s);
        const unsigned int nCount =
            m_pDriver->ListChanges(s.tInfo.nID, std::string(),
                                   [&setUsers](const TChangeInfo& tChange) { setUsers.insert(Utf8(tChange.strUser)); });
        // Every stream's changes are established with the first.
        if (&s == &m_atStreams.front())
            m_pSource->OnChangesEstablished(nCount);
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
    const char* const pszMergesKey = "orvane.merges";
    const std::string strMerges = m_tOptions.bMerges ? "true" : "false";
    m_pGit->SetNewConfig(pszMergesKey, strMerges);
    std::string strError;
    if (!m_pGit->Open(m_tOptions.strGit, strError))
        throw EStop(eExitFailure, strError);
    // A repository made before the choice existed has no merges.
    const std::string strMade = m_pGit->Continued() ? m_pGit->Config(pszMergesKey) : strMerges;
    if ((strMade == "true") != m_tOptions.bMerges)
        throw EStop(eExitUsage, "the repository " + m_tOptions.strGit + " was made " +
                                    (strMade == "true" ? "with merges (git config " + std::string(pszMergesKey) +
                                                             " true): continue it with --merges"
                                                       : "without merges: continue it with --no-merges") +
                                    ", or start a new repository; one history cannot mix the two");
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
    m_pSource->OnWorkspace(m_cWorkspace.Path());
    if (!m_pSource->TemporaryClient().empty())
        WorkerChannel().Send(EVENT::pszClient, m_pSource->TemporaryClient());
    m_pDriver->InitialiseClients(m_cWorkspace.Path());
    const bool bTerminal = isatty(2);
    m_cProgress.Start(!m_tOptions.bQuiet && (m_tOptions.bProgress || bTerminal), bTerminal);
    for (TStream& s : m_atStreams)
    {
        m_cHistory.SetStream(s);
        m_pDriver->ImportStream(s.tInfo.nID, s.strFolder);
        if (m_tOptions.bVerify)
            m_cHistory.CheckWithSource(m_cWorkspace.Path());
    }
    if (!m_atStreams.empty())
        m_cProgress.Show(m_atStreams.back().strName, true);
}

std::string CImport::Finish()
{
    // Every change is read: the workspace goes while git writes its pack
    // and the module removes its client.
    m_pSource->StopFetching();
    if (!m_cWorkspace.Path().empty() && !m_tOptions.bKeepWorkspace)
    {
        m_cHistory.Stop();
        m_cWorkspace.StartRemoval();
    }
    if (m_pGit)
    {
        for (const std::string& str : m_cHistory.WriteWaitingCommits())
            Say("warning: " + str + " is left out");
        m_pGit->EndInput();
    }
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
    if (m_tOptions.bLabels && m_pGit && m_pSource->HasLabels())
    {
        WorkerChannel().Send(EVENT::pszPhase, "labels");
        strLabels = m_pSource->ImportLabels(m_atStreams, m_tOptions.strGit, m_cAuthors, Report());
    }
    for (const std::string& str : m_pSource->Summary(m_tOptions.bQuiet))
        Say(str);
    if (m_pGit && m_pGit->Continued() && m_cProgress.Done() == 0)
        return "nothing new: the branches in " + m_tOptions.strGit + " hold every change of the " +
               std::to_string(m_atStreams.size()) + " streams" + strLabels;
    return "imported " + std::to_string(m_cProgress.Done()) + " changes of " + std::to_string(m_atStreams.size()) +
           " streams" + (m_pGit ? " into " + m_tOptions.strGit : std::string()) + strLabels;
}

void CImport::PrintStreams(bool bWithCommits)
{
    PrintTable(StreamRows(m_atStreams, bWithCommits), Report());
}

void CImport::Cleanup(int nStatus)
{
    if (m_pSource)
        m_pSource->StopFetching();
    m_cHistory.Stop();
    ReleaseProvider(nStatus);
    if (!m_cWorkspace.Path().empty() && !m_tOptions.bKeepWorkspace)
        m_cWorkspace.Remove();
    else if (!m_cWorkspace.Path().empty() && !m_tOptions.bQuiet)
        Say("workspace kept: " + m_cWorkspace.Path());
    m_cDump.Close();
}

void CImport::RemoveClients()
{
    if (!m_pDriver || m_bClientsRemoved)
        return;
    m_bClientsRemoved = true;
    m_pDriver->RemoveClients();
    // The module does not look whether its client went: the supervisor
    // removes one that is still there, or names it.
    if (m_pSource->ClientGone())
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
        AppendToLog(strLog, m_pSource->LogLines());
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
