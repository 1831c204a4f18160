// The engine's Perforce part: the server checked before the module starts,
// the users and labels asked of it, and the gateway through which every p4
// command of the run passes, with what the run does about the failures it
// sees there.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "SourceSystem.h"
#include "perforce/EscapedNames.h"
#include "perforce/Gateway.h"
#include "perforce/Integrations.h"
#include "perforce/KeywordFilter.h"

namespace ORVANE {
namespace IMP {

// The temporary client that the Perforce module makes on the server.
extern const char* const g_pszPerforceClient;

class CPerforceSource : public CSourceSystem
{
public:
    CPerforceSource(const TSourceOptions& tOptions, std::function<void(const std::string&)> fnSay);
    ~CPerforceSource() override;

    void Start(MCE::CProvider& cProvider, const std::map<std::string, std::string>& mapSettings) override;
    std::function<unsigned int()> ChangeNumbers() const override;
    void CheckSource(CAuthors& cAuthors) override;
    void OnStreamsKnown(const TStreams& atStreams) override;
    void BeforeImport() override;
    void OnWorkspace(const std::string& strFolder) override;
    void StopFetching() override;
    void Fetched(unsigned& nCommands, double& fWaitSeconds) const override;
    bool SyncElsewhere(const TStream& tStream, unsigned int nNumber, const std::string& strFolder,
                       std::string& strProblem) override;
    std::string TemporaryClient() const override { return g_pszPerforceClient; }
    bool ClientGone() const override;

    void BeforeCall(const char* pszCall) override;
    std::string LastFailure() const override;
    void OnChangesEstablished(unsigned int nCount) override;
    void OnChangeSynced(const TStream& tStream, unsigned int nNumber) override;
    std::string SyncedPath(const std::string& strStreamPath, const std::string& strItemPath) const override;

    bool ReadIntegrations(const TStreams& atStreams) override;
    std::vector<unsigned int> StreamChanges(unsigned int nStreamID) const override;
    std::vector<TIntegration> Integrations(unsigned int nStreamID, unsigned int nChange,
                                           const std::map<unsigned int, unsigned int>& mapHeld) const override;
    void ForgetIntegrations() override;
    CContentFilter* WrapFilter(CContentFilter* pNext) override;
    bool FoldsCase() const override { return m_bCaseInsensitive && m_bServerSaysCase; }
    std::vector<std::string> GonePaths(const TStream& tStream, unsigned int nNumber) const override;

    bool HasLabels() const override { return true; }
    std::string ImportLabels(const TStreams& atStreams, const std::string& strGitDir, const CAuthors& cAuthors,
                             std::FILE* pOut) override;
    std::vector<std::string> Summary(bool bQuiet) const override;
    std::vector<std::string> LogLines() const override;

private:
    // Ends the run for commands of the module that lost history, or (with
    // --keep-going) warns of each.
    void ActOn(const std::vector<TLostCommand>& atLost, const TStream* pSynced);
    // Why the module's sync of the stream folder to the change must not
    // run ("" when it may): a file of the stream at the change lies below a
    // symbolic link of the stream, and would be written through it.
    std::string GuardSync(const std::string& strFolder, unsigned int nChange) const;
    // "stream NAME" of a listed depot path ("//depot/main/..."), or the path.
    std::string StreamOfPath(const std::string& strListed) const;

    // The branch specifications that became no stream, each with why when
    // the gateway saw it.
    void NameLeftOutBranches(const TStreams& atStreams);
    // Whether a view line of the branch specification lies below the root
    // path on both sides (or its form cannot be read).
    bool ViewUnderRoot(const std::string& strBranch) const;

    std::string m_strP4;
    std::string m_strRootPath;
    std::string m_strIgnoredBranches;
    MCE::CProvider* m_pProvider = nullptr;
    // Whether the server compares paths without case (and said so).
    bool m_bCaseInsensitive = true;
    bool m_bServerSaysCase = false;
    // The stream and change being imported, for the keyword filter.
    const TStream* m_pSyncedStream = nullptr;
    unsigned int m_nSyncedNumber = 0;
    std::map<CContentFilter*, std::unique_ptr<CKeywordFilter>> m_mapKeywordFilters;
    const TStreams* m_pStreams = nullptr;
    CEscapedNames m_cNames;
    std::unique_ptr<CP4Gateway> m_pGateway;
    CIntegrationIndex m_cIntegrations;
};

} // namespace IMP
} // namespace ORVANE
