#include "HistoryWriter.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Digest.h"
#include "Stop.h"
#include "Text.h"
#include "Trailers.h"
#include "Verify.h"
#include "WorkerChannel.h"

namespace ORVANE {
namespace IMP {

namespace {

// How often an unchanged phase is told again.
const std::chrono::steady_clock::duration s_tPhaseRepeat = std::chrono::milliseconds(100);

} // namespace

const CAuthors CHistoryWriter::s_cNoAuthors;

void CHistoryWriter::BeforeCall(const char* pszCall)
{
    CheckStopSignal();
    if (m_pSource)
        m_pSource->BeforeCall(pszCall);
    // The supervisor needs the phase when it changes (the module runs the
    // same call once per item), and a sign of life now and then for its
    // stall watch.
    const std::chrono::steady_clock::time_point tNow = std::chrono::steady_clock::now();
    const bool bDue = tNow - m_tPhaseSent >= s_tPhaseRepeat;
    if (!bDue && m_strPhaseCall == pszCall && m_pPhaseStream == m_pStream)
        return;
    m_strPhaseCall = pszCall;
    m_pPhaseStream = m_pStream;
    m_tPhaseSent = tNow;
    std::string strPhase = pszCall;
    if (m_pStream)
        strPhase += " (stream " + m_pStream->strName + ")";
    WorkerChannel().Send(EVENT::pszPhase, strPhase);
}

void CHistoryWriter::OnStreamOpening()
{
    m_cWorkspace.MakeFolder(m_pStream->strFolder);
}

void CHistoryWriter::OnStreamsRefreshed(const std::vector<TStreamInfo>& atStreams)
{
    RefreshStreams(m_atStreams, atStreams);
    for (const TStreamInfo& t : atStreams)
        m_cDump.Stream(t);
}

void CHistoryWriter::OnChangesReady(unsigned int nCount)
{
    // The provider establishes every stream's changes at once, before the
    // first stream's: what it asked for must have come whole.
    if (m_pSource && !m_bChangesEstablished)
        m_pSource->OnChangesEstablished(nCount);
    m_bChangesEstablished = true;
    m_cProgress.SetTotal(nCount);
    if (m_pStats)
        m_pStats->SampleStaging();
    m_cTracker.Begin(m_pStream->strFolder);
}

void CHistoryWriter::OnStreamClosed()
{
    m_cTracker.End();
}

std::string CHistoryWriter::WhyItemFailed(const TChangeItemInfo& tItem) const
{
    // The provider makes the folders of an item's path before it gives the
    // item: something that is no folder may stand in the way.
    const std::string strPath = PathText(tItem.cFilePath);
    std::string strFolder = m_pStream->strFolder;
    size_t nStart = 0;
    for (size_t nSlash; (nSlash = strPath.find('/', nStart)) != std::string::npos; nStart = nSlash + 1)
    {
        strFolder += "/" + strPath.substr(nStart, nSlash - nStart);
        struct stat tStat;
        if (::lstat(strFolder.c_str(), &tStat) != 0)
        {
            if (errno == ENOENT)
                return std::string();
            return "cannot make the folder of '" + strPath + "': " + strFolder + ": " + std::strerror(errno);
        }
        struct stat tTarget;
        if (S_ISDIR(tStat.st_mode) ||
            (S_ISLNK(tStat.st_mode) && ::stat(strFolder.c_str(), &tTarget) == 0 && S_ISDIR(tTarget.st_mode)))
            continue;
        const char* pszKind = S_ISLNK(tStat.st_mode)   ? " (a symbolic link of the synced files)"
                              : S_ISREG(tStat.st_mode) ? " (a file of the synced files)"
                                                       : "";
        return "cannot make the folder of '" + strPath + "': " + strFolder + " is not a directory" + pszKind;
    }
    return std::string();
}

bool CHistoryWriter::OnChangeListed(const TChangeInfo& /*tChange*/, unsigned int nNumber)
{
    m_nNumber = nNumber;
    // The branch holds it already. The first change imported after it is
    // synced as a whole (the sync of the stream's folder to it brings every
    // file) and written as the whole tree.
    if (nNumber != 0 && nNumber <= m_pStream->nLastChange)
    {
        m_cProgress.CountLeftOut();
        return false;
    }
    return true;
}

void CHistoryWriter::UpdateFilter()
{
    CContentFilter* pFilter = m_pLfs ? m_pLfs->Filter() : nullptr;
    m_cTracker.SetFilter(m_pSource ? m_pSource->WrapFilter(pFilter) : pFilter);
}

void CHistoryWriter::SourceView(bool bWhole, const TTree*& pTree, const TTreeDelta*& pDelta)
{
    if (!m_pSource)
        return;
    if (m_pSource->FoldsCase())
    {
        if (bWhole)
        {
            m_cSpelling = CFolderSpelling();
            // The spellings of what an earlier run wrote stay.
            TTree tEarlier;
            std::string strError;
            if (m_pGit && !m_pStream->atEarlier.empty() &&
                m_pGit->ReadTree(m_pStream->atEarlier.back().second, tEarlier, strError))
                m_cSpelling.Seed(tEarlier);
            m_tFolded.clear();
        }
        TTreeDelta tFoldedDelta;
        TTree tChanged;
        for (const std::string& str : pDelta->setChanged)
        {
            auto it = pTree->find(str);
            if (it != pTree->end())
                tChanged[str] = it->second;
        }
        if (bWhole)
            tChanged = *pTree;
        TTree tFoldedChanged;
        m_cSpelling.Apply(tChanged, *pDelta, tFoldedChanged, tFoldedDelta);
        for (const std::string& str : tFoldedDelta.setRemoved)
            m_tFolded.erase(str);
        for (const auto& kv : tFoldedChanged)
            m_tFolded[kv.first] = kv.second;
        m_tAdjustedDelta = tFoldedDelta;
        pTree = &m_tFolded;
        pDelta = &m_tAdjustedDelta;
    }
    // A path that a change brings again is there again.
    for (const std::string& str : pDelta->setChanged)
        m_setGone.erase(str);
    const std::vector<std::string> astrGone = m_pSource->GonePaths(*m_pStream, m_nNumber);
    if (astrGone.empty())
        return;
    m_tAdjusted = *pTree;
    if (pDelta != &m_tAdjustedDelta)
        m_tAdjustedDelta = *pDelta;
    for (const std::string& strGone : astrGone)
    {
        const std::string str = m_pSource->FoldsCase() ? m_cSpelling.Fold(strGone) : strGone;
        m_setGone.insert(str);
        if (m_tAdjusted.erase(str) != 0 || !bWhole)
            m_tAdjustedDelta.Removed(str);
    }
    pTree = &m_tAdjusted;
    pDelta = &m_tAdjustedDelta;
}

void CHistoryWriter::SourceView(TTree& tFolder)
{
    if (!m_pSource)
        return;
    if (m_pSource->FoldsCase())
    {
        TTree tFolded;
        for (const auto& kv : tFolder)
            tFolded[m_cSpelling.Fold(kv.first)] = kv.second;
        tFolder.swap(tFolded);
    }
    for (const std::string& str : m_setGone)
        tFolder.erase(str);
}

TBlobSink CHistoryWriter::BlobSink()
{
    if (!m_pGit)
        return TBlobSink();
    CFastImportWriter* pWriter = &m_pGit->Writer();
    return [pWriter](const std::string& strBlob, const std::string& strContent) { pWriter->Blob(strBlob, strContent); };
}

void CHistoryWriter::OnChangeSynced(const TChangeInfo& tChange)
{
    if (m_pSource)
        m_pSource->OnChangeSynced(*m_pStream, m_nNumber);
    m_tDelta = TTreeDelta();
    m_atItems.clear();
    m_cTracker.Collect(m_tDelta, BlobSink());
    m_cDump.Change(m_pStream->tInfo.nID, tChange);
}

void CHistoryWriter::OnChangeItem(const TChangeItemInfo& tItem)
{
    const std::string strPath = PathText(tItem.cFilePath);
    // Where p4 sync put the file, which is not always where the module says
    // (a name it decodes twice).
    const std::string strLocal =
        m_pSource ? m_pSource->SyncedPath(PathText(m_pStream->tInfo.cDstPath), strPath) : strPath;
    if (m_cDump.IsOpen())
    {
        std::string strDigest;
        const bool bFile = FileSha256(m_pStream->strFolder + "/" + strLocal, strDigest);
        m_cDump.Item(tItem, bFile ? &strDigest : nullptr);
    }
    m_atItems.push_back(TItem{strLocal, strPath, tItem.nRevision, tItem.eType == MCE::eChangeItemDelete});
}

std::string CHistoryWriter::FirstMissing() const
{
    // The tree was brought up to date for every item's path: what it holds
    // is what the folder holds. A file or a symbolic link (wherever it
    // points) is there.
    const TTree& tTree = m_cTracker.Tree();
    for (const TItem& t : m_atItems)
        if (t.bDelete == (tTree.count(t.strLocal) != 0))
            return t.bDelete ? "the file '" + t.strPath + "' is still there although the change deletes it"
                             : "the file '" + t.strPath + "#" + std::to_string(t.nRevision) + "' is missing";
    return std::string();
}

void CHistoryWriter::OnChangeDone(const TChangeInfo& tChange)
{
    // The items say where to look: anything the watch missed is caught here.
    std::set<std::string> setItems;
    for (const TItem& t : m_atItems)
        setItems.insert(t.strLocal);
    m_cTracker.Recheck(setItems, m_tDelta, BlobSink());
    if (m_pLfs)
        m_pLfs->CheckStore();
    const std::string strMissing = FirstMissing();
    if (!strMissing.empty())
        throw EStop(eExitFailure, "change " + std::to_string(tChange.nID) + " of stream " + m_pStream->strName +
                                      " was not synced completely: " + strMissing);
    ++m_pStream->nChanges;
    m_cProgress.CountChange();
    const unsigned nMark = Commit(tChange);
    m_pStream->atCommits.emplace_back(tChange.tTime, nMark);
    if (m_bVerify)
        Verify(tChange, nMark);
    m_cProgress.Show(m_pStream->strName, false);
}

unsigned CHistoryWriter::Commit(const TChangeInfo& tChange)
{
    if (!m_pGit)
        return 0;
    CFastImportWriter::TCommit tCommit;
    tCommit.strBranch = m_pStream->strBranch;
    const TIdent tIdent = m_pAuthors->Ident(Utf8(tChange.strUser));
    tCommit.strName = tIdent.strName;
    tCommit.strEmail = tIdent.strEmail;
    tCommit.tTime = tChange.tTime;
    tCommit.strMessage = CommitMessage(Utf8(tChange.strComment), m_nNumber, PathText(m_pStream->tInfo.cDstPath));
    if (m_pStream->atCommits.empty())
    {
        // The stream's first commit of this run: its whole tree, on top of
        // the branch an earlier run left, else of the parent stream's
        // history at that time.
        tCommit.bFullTree = true;
        tCommit.strFrom = m_pStream->atEarlier.empty() ? ParentCommit(m_atStreams, *m_pStream, tChange.tTime)
                                                       : m_pStream->atEarlier.back().second;
    }
    const TTree* pTree = &m_cTracker.Tree();
    const TTreeDelta* pDelta = &m_tDelta;
    SourceView(tCommit.bFullTree, pTree, pDelta);
    if (m_pLfs)
    {
        // The tree with the root .gitattributes that names the files in Git
        // LFS.
        TTree tTree;
        TTreeDelta tDelta;
        m_pLfs->CommitTree(m_pStream->strFolder, *pTree, *pDelta, tCommit.bFullTree, BlobSink(), tTree, tDelta);
        return Write(tCommit, tTree, tDelta);
    }
    return Write(tCommit, *pTree, *pDelta);
}

unsigned CHistoryWriter::Write(const CFastImportWriter::TCommit& tCommit, const TTree& tTree, const TTreeDelta& tDelta)
{
    const unsigned nMark = m_pGit->Writer().Commit(tCommit, tTree, tDelta);
    if (!m_pGit->CommitWritten())
        throw EStop(eExitFailure, m_pGit->StopMessage());
    return nMark;
}

void CHistoryWriter::Verify(const TChangeInfo& tChange, unsigned nMark)
{
    TTree tFolder;
    std::string strWhere = "change " + std::to_string(tChange.nID) + " of stream " + m_pStream->strName;
    if (m_pLfs)
    {
        // Large files as their pointers, hashed again; each in the store.
        const std::string strProblem = m_pLfs->ScanFolder(m_pStream->strFolder, tFolder, [this](CContentFilter* pNext) {
            return m_pSource ? m_pSource->WrapFilter(pNext) : pNext;
        });
        if (!strProblem.empty())
            throw EStop(eExitFailure, "verify: " + strWhere + ": " + strProblem);
    }
    else
        ScanTree(m_pStream->strFolder, tFolder, TBlobSink(), nullptr,
                 m_pSource ? m_pSource->WrapFilter(nullptr) : nullptr);
    SourceView(tFolder);
    TTree tGit;
    if (m_pGit)
    {
        std::string strCommit, strError;
        if (!m_pGit->Checkpoint(nMark, strCommit))
            throw EStop(eExitFailure, "git fast-import failed while verifying " + strWhere);
        if (!m_pGit->ReadTree(strCommit, tGit, strError))
            throw EStop(eExitFailure, strError);
        strWhere += " (commit " + strCommit.substr(0, 12) + ")";
    }
    else
        tGit = m_cTracker.Tree();
    const std::string strDifference = TreeDifference(tGit, tFolder);
    if (!strDifference.empty())
        throw EStop(eExitFailure, "verify: " + strWhere + ": " + strDifference);
}

} // namespace IMP
} // namespace ORVANE
