// What the engine adds around a provider for the system it reads from:
// checks before the migration, its own questions to the source, and the
// protections between the provider and the source. The generic import
// calls only this interface; a provider whose system has no part of its
// own gets the plain base, which adds nothing.
#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Authors.h"
#include "Streams.h"
#include "Tree.h"
#include "mce/Provider.h"

namespace ORVANE {
namespace IMP {

// How the source system's part of a run behaves, as the user chose.
struct TSourceOptions
{
    // Failures that lose history are warnings and the run goes on, as
    // the provider alone would go on.
    bool bKeepGoing = false;
    // How often a command that failed on the way to the source is tried
    // again, and the wait before the first retry (doubled each time).
    unsigned nRetries = 3;
    double fRetryWait = 1;
    // Connections that fetch from the source ahead of the provider, so
    // that it need not wait for each answer (0: none; the provider's
    // commands reach the source as it wrote them).
    unsigned nJobs = 0;
    bool bQuiet = false;
    // Files are kept as the source wrote them (keywords left expanded).
    bool bKeepKeywords = false;
    // The code page of texts that the source keeps as other bytes than
    // UTF-8 ("": they pass as they are).
    std::string strMetadataEncoding = "cp1252";
    // The provider settings the user gave (the others keep their
    // defaults, which the source's part may set from what the source says).
    std::set<std::string> setGivenSettings;
};

// What one change of a stream brought from another stream.
struct TIntegration
{
    unsigned int nFromStream = 0; // the other stream's id
    // Every change of the other stream up to this one is in the stream
    // now: a merge (0: none).
    unsigned int nUpTo = 0;
    // The first and last change of the other stream of which the change
    // brought work besides (0: none): a part of them, or all of some.
    unsigned int nFirst = 0, nLast = 0;
};

class CSourceSystem
{
public:
    // fnSay: where the part tells the user something (one line).
    explicit CSourceSystem(const TSourceOptions& tOptions, std::function<void(const std::string&)> fnSay)
        : m_tOptions(tOptions), m_fnSay(std::move(fnSay))
    {
    }
    virtual ~CSourceSystem();

    // The provider is loaded and its settings applied (key -> value).
    virtual void Start(MCE::CProvider& cProvider, const std::map<std::string, std::string>& mapSettings)
    {
        (void)cProvider, (void)mapSettings;
    }
    // The number of the provider's current change in the source system
    // (none: null, the number is 0).
    virtual std::function<unsigned int()> ChangeNumbers() const { return nullptr; }
    // Before the provider starts: the source answers and takes the user;
    // who its users are.
    virtual void CheckSource(CAuthors& cAuthors) { (void)cAuthors; }
    // The streams are known: throws EStop when the source holds what the
    // provider could never read; tells what the provider left out.
    virtual void OnStreamsKnown(const TStreams& atStreams) { (void)atStreams; }
    // Before anything is synced or written.
    virtual void BeforeImport() {}
    // The folder under which the provider syncs (the workspace): the source
    // may keep what it fetches ahead in a folder of its own there.
    virtual void OnWorkspace(const std::string& strFolder) { (void)strFolder; }
    // Nothing more is synced: what the source fetched ahead goes, and
    // nothing more is fetched.
    virtual void StopFetching() {}
    // What the source fetched ahead: how many commands, and how long the
    // provider's calls waited for them.
    virtual void Fetched(unsigned& nCommands, double& fWaitSeconds) const
    {
        nCommands = 0;
        fWaitSeconds = 0;
    }
    // Syncs the stream's folder at the change into another folder the way
    // the source itself writes it, for a check of what the run wrote:
    // false with strProblem when that failed, false with it empty when the
    // source offers no such sync.
    virtual bool SyncElsewhere(const TStream& tStream, unsigned int nNumber, const std::string& strFolder,
                               std::string& strProblem)
    {
        (void)tStream, (void)nNumber, (void)strFolder;
        strProblem.clear();
        return false;
    }
    // The name of the temporary client the provider makes in the source
    // ("" when it makes none).
    virtual std::string TemporaryClient() const { return std::string(); }
    // After the provider removed its clients: whether the one it made is
    // gone (or there is none).
    virtual bool ClientGone() const { return true; }

    // Before each provider call.
    virtual void BeforeCall(const char* pszCall) { (void)pszCall; }
    // Why the last call failed, when the source knows ("" else).
    virtual std::string LastFailure() const { return std::string(); }
    // The provider has established its changes, nCount of them: throws
    // EStop when what it asked the source for did not come whole.
    virtual void OnChangesEstablished(unsigned int nCount) { (void)nCount; }
    // The provider synced the stream's folder to the change with this
    // number: throws EStop when the sync did not come whole.
    virtual void OnChangeSynced(const TStream& tStream, unsigned int nNumber) { (void)tStream, (void)nNumber; }
    // Where the file of an item is, relative to the stream's folder, when
    // the source writes it under another name than the provider reports.
    virtual std::string SyncedPath(const std::string& strStreamPath, const std::string& strItemPath) const
    {
        (void)strStreamPath;
        return strItemPath;
    }

    // Reads which changes of each stream brought work from other streams,
    // before the import (every stream's changes, and what they integrated):
    // false when the source keeps no such records.
    virtual bool ReadIntegrations(const TStreams& atStreams)
    {
        (void)atStreams;
        return false;
    }
    // The numbers of the stream's changes, oldest first, as the source
    // lists them (after ReadIntegrations).
    virtual std::vector<unsigned int> StreamChanges(unsigned int nStreamID) const
    {
        (void)nStreamID;
        return std::vector<unsigned int>();
    }
    // What the stream's change brought from other streams, each at most
    // once, given the newest change of each stream (by id) that the
    // stream's history held before it; a merge only when it brings changes
    // after the one held.
    virtual std::vector<TIntegration> Integrations(unsigned int nStreamID, unsigned int nChange,
                                                   const std::map<unsigned int, unsigned int>& mapHeld) const
    {
        (void)nStreamID, (void)nChange, (void)mapHeld;
        return std::vector<TIntegration>();
    }
    // The merges are planned: what ReadIntegrations read may go.
    virtual void ForgetIntegrations() {}
    // The filter through which the files of the stream are read: the
    // source's own in front of pNext (none: pNext itself). It stays the
    // source's.
    virtual CContentFilter* WrapFilter(CContentFilter* pNext) { return pNext; }
    // Whether the source compares paths without case (its folders are
    // then one folder in git whatever their spelling).
    virtual bool FoldsCase() const { return false; }
    // The paths (relative to the stream's folder) whose content at this
    // change the source no longer has: they are left out of its commit.
    virtual std::vector<std::string> GonePaths(const TStream& tStream, unsigned int nNumber) const
    {
        (void)tStream, (void)nNumber;
        return std::vector<std::string>();
    }

    // Whether the source has labels that can become tags.
    virtual bool HasLabels() const { return false; }
    // Makes the labels tags in the repository, each told on pOut (the
    // skipped ones even when quiet); the end of the closing message.
    virtual std::string ImportLabels(const TStreams& atStreams, const std::string& strGitDir, const CAuthors& cAuthors,
                                     std::FILE* pOut)
    {
        (void)atStreams, (void)strGitDir, (void)cAuthors, (void)pOut;
        return std::string();
    }
    // What the user should know at the end, one line each (with bQuiet
    // only what is missing from git).
    virtual std::vector<std::string> Summary(bool bQuiet) const
    {
        (void)bQuiet;
        return std::vector<std::string>();
    }
    // Lines for the end of the import log.
    virtual std::vector<std::string> LogLines() const { return std::vector<std::string>(); }

protected:
    void Say(const std::string& str) const
    {
        if (m_fnSay)
            m_fnSay(str);
    }

    TSourceOptions m_tOptions;

private:
    std::function<void(const std::string&)> m_fnSay;
};

// The part for the provider with this id: its own where there is one,
// else the plain base.
std::unique_ptr<CSourceSystem> MakeSourceSystem(const std::string& strProvider, const TSourceOptions& tOptions,
                                                std::function<void(const std::string&)> fnSay);

} // namespace IMP
} // namespace ORVANE
