// What becomes of each stream, change and item the driver walks: the
// stream's folder tree tracked, each change checked for completeness and
// written to the dump and to git, and verified when asked.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Authors.h"
#include "CaseFolding.h"
#include "Driver.h"
#include "Dump.h"
#include "GitRepository.h"
#include "LfsImport.h"
#include "Merges.h"
#include "Progress.h"
#include "RunStats.h"
#include "SourceSystem.h"
#include "Streams.h"
#include "TreeTracker.h"
#include "Workspace.h"

namespace ORVANE {
namespace IMP {

class CHistoryWriter : public CMigrationHandler
{
public:
    // pGit may be null: no git repository is written then.
    CHistoryWriter(TStreams& atStreams, CWorkspace& cWorkspace, CDumpWriter& cDump, CGitRepository* pGit,
                   CProgress& cProgress, bool bVerify)
        : m_atStreams(atStreams), m_cWorkspace(cWorkspace), m_cDump(cDump), m_pGit(pGit), m_cProgress(cProgress),
          m_bVerify(bVerify)
    {
    }

    // Where the commits go from now on (null: nowhere).
    void SetRepository(CGitRepository* pGit) { m_pGit = pGit; }
    // The stream the driver imports next.
    void SetStream(TStream& tStream) { m_pStream = &tStream; }
    // Stops watching the folder.
    void Stop() { m_cTracker.End(); }
    // With --verify, once the stream's changes are imported: the source
    // syncs the last of them again its own way into a scratch folder below
    // strBelow, which must hold what the stream's folder holds. Throws
    // EStop when it does not.
    void CheckWithSource(const std::string& strBelow);

    // The source system's part, told of each call and sync and asked where
    // the synced files are (none: null).
    void SetSource(CSourceSystem* pSource)
    {
        m_pSource = pSource;
        UpdateFilter();
    }
    // Samples the staging files once the changes are known (none: null).
    void SetRunStats(CRunStats* pStats) { m_pStats = pStats; }
    // Who the commits are by (none given: "user <user@client>" each).
    void SetAuthors(const CAuthors& cAuthors) { m_pAuthors = &cAuthors; }
    // Which commits merge other streams (none: null, every commit has one
    // parent).
    void SetMergePlan(const CMergePlan* pPlan) { m_pPlan = pPlan; }
    // Writes the commits that still wait for a parent. A merge of a commit
    // that no stream made is left out: each such is named in the list
    // returned.
    std::vector<std::string> WriteWaitingCommits();
    // Puts large files into Git LFS (null: none).
    void SetLfs(CLfsImport* pLfs)
    {
        m_pLfs = pLfs;
        UpdateFilter();
    }

    void BeforeCall(const char* pszCall) override;
    void OnStreamOpening() override;
    void OnStreamsRefreshed(const std::vector<TStreamInfo>& atStreams) override;
    void OnChangesReady(unsigned int nCount) override;
    bool OnChangeListed(const TChangeInfo& tChange, unsigned int nNumber) override;
    void OnChangeSynced(const TChangeInfo& tChange) override;
    void OnChangeItem(const TChangeItemInfo& tItem) override;
    void OnChangeDone(const TChangeInfo& tChange) override;
    void OnStreamClosed() override;
    std::string WhyItemFailed(const TChangeItemInfo& tItem) const override;

private:
    // The files are read through the source's filter and then Git LFS's.
    void UpdateFilter();
    TBlobSink BlobSink();
    // The tree and delta the commit writes, as the source wants them: its
    // folders spelt one way, what it no longer has left out.
    void SourceView(bool bWhole, const TTree*& pTree, const TTreeDelta*& pDelta);
    // The same for a tree read afresh from the folder.
    void SourceView(TTree& tFolder);
    unsigned Commit(const TChangeInfo& tChange);
    // Reads the folder's files as --verify compares them: through the
    // source's filter (and Git LFS's pointers), as the source sees them.
    void ScanForVerify(const std::string& strWhere, TTree& tFolder);
    void ScanForVerify(const std::string& strWhere, const std::string& strFolder, TTree& tFolder);
    // Compares the commit with the folder's files.
    void Verify(const std::string& strWhere, unsigned nMark, const TTree& tFolder);

    // A commit made but not yet written: it waits until every parent is.
    struct TWaiting
    {
        CFastImportWriter::TCommit tCommit;
        unsigned nMark = 0;
        std::string strFiles;
        // The merged commits still to be found: (stream id, change).
        std::vector<std::pair<unsigned, unsigned>> atMerges;
        unsigned nAfter = 0; // the stream's commit before it in this run (0: none)
        bool bVerify = false;
        std::string strWhere;
        TTree tFolder;
    };
    // Writes, for each stream in turn, the waiting commits whose parents
    // are written; bForce leaves out merges of commits that no stream made.
    void WriteReady(bool bForce);
    bool IsReady(TWaiting& tWaiting, bool bForce);
    void Write(TWaiting& tWaiting);
    bool IsWritten(const std::string& strRef) const;
    // The first item whose file is not as the change says ("" when none).
    std::string FirstMissing() const;

    TStreams& m_atStreams;
    CWorkspace& m_cWorkspace;
    CDumpWriter& m_cDump;
    CGitRepository* m_pGit;
    CProgress& m_cProgress;
    bool m_bVerify;
    TStream* m_pStream = nullptr;
    CSourceSystem* m_pSource = nullptr;
    bool m_bChangesEstablished = false;
    CRunStats* m_pStats = nullptr;
    const CAuthors* m_pAuthors = &s_cNoAuthors;
    static const CAuthors s_cNoAuthors;
    const CMergePlan* m_pPlan = nullptr;
    // By stream id, in the order made.
    std::map<unsigned, std::deque<TWaiting>> m_mapWaiting;
    std::set<unsigned> m_setWritten; // marks of the commits written
    std::vector<std::string> m_astrLeftOut;
    CLfsImport* m_pLfs = nullptr;
    CTreeTracker m_cTracker;
    // The phase last told to the supervisor, and when.
    std::string m_strPhaseCall;
    const TStream* m_pPhaseStream = nullptr;
    std::chrono::steady_clock::time_point m_tPhaseSent;
    // The change being imported.
    unsigned int m_nNumber = 0; // in the source system
    TTreeDelta m_tDelta;
    // Each item: where its file is, its path and revision as a message
    // names them, and whether the change deletes it.
    struct TItem
    {
        std::string strLocal;
        std::string strPath;
        unsigned nRevision;
        bool bDelete;
    };
    std::vector<TItem> m_atItems;
    // On a source that compares paths without case: the spellings of the
    // stream's folders, and its tree spelt so.
    CFolderSpelling m_cSpelling;
    TTree m_tFolded;
    TTree m_tAdjusted;
    TTreeDelta m_tAdjustedDelta;
    // The paths left out because the source no longer has their content,
    // until a change brings them again.
    std::set<std::string> m_setGone;
};

} // namespace IMP
} // namespace ORVANE
