#include "HistoryWriter.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

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
        // A whole tree is folded whole; otherwise what the change touched.
        TTree tChanged;
        if (bWhole)
            tChanged = *pTree;
        else
            for (const std::string& str : pDelta->setChanged)
            {
                auto it = pTree->find(str);
                if (it != pTree->end())
                    tChanged[str] = it->second;
            }
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
    const std::string strWhere = "stream " + m_pStream->strName + ", change " + std::to_string(m_nNumber);
    return [pWriter, strWhere](const std::string& strBlob, const CBlobContent& cContent) {
        // A file that changed while it was sent: the blob git got is not
        // the one the tree names.
        if (pWriter->Blob(strBlob, cContent) == 0)
            throw EStop(eExitFailure, strWhere + ": " + pWriter->ContentProblem());
    };
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
    if (nMark != 0)
        m_pStream->mapCommits[m_nNumber] = ":" + std::to_string(nMark);
    // A commit that merges waits for its parents: the streams are imported
    // one after the other, and the one it merges may come later.
    WriteReady(false);
    m_cProgress.Show(m_pStream->strName, false);
}

namespace {

const TStream* StreamByID(const TStreams& atStreams, unsigned nID)
{
    for (const TStream& t : atStreams)
        if (t.tInfo.nID == nID)
            return &t;
    return nullptr;
}

} // namespace

unsigned CHistoryWriter::Commit(const TChangeInfo& tChange)
{
    const std::string strWhere = "change " + std::to_string(tChange.nID) + " of stream " + m_pStream->strName;
    TWaiting tWaiting;
    tWaiting.bVerify = m_bVerify;
    tWaiting.strWhere = strWhere;
    if (!m_pGit)
    {
        if (m_bVerify)
        {
            ScanForVerify(strWhere, tWaiting.tFolder);
            Verify(strWhere, 0, tWaiting.tFolder);
        }
        return 0;
    }
    CFastImportWriter::TCommit& tCommit = tWaiting.tCommit;
    tCommit.strBranch = m_pStream->strBranch;
    const TIdent tIdent = m_pAuthors->Ident(Utf8(tChange.strUser));
    tCommit.strName = tIdent.strName;
    tCommit.strEmail = tIdent.strEmail;
    tCommit.tTime = tChange.tTime;
    std::vector<std::string> astrTrailers;
    if (const TMergeStep* pStep = m_pPlan ? m_pPlan->Step(m_pStream->tInfo.nID, m_nNumber) : nullptr)
    {
        tWaiting.atMerges = pStep->atParents;
        for (const TIntegration& t : pStep->atTaken)
            if (const TStream* pFrom = StreamByID(m_atStreams, t.nFromStream))
                astrTrailers.push_back(IntegratedTrailer(PathText(pFrom->tInfo.cDstPath), t.nFirst, t.nLast));
    }
    tCommit.strMessage =
        CommitMessage(Utf8(tChange.strComment), m_nNumber, PathText(m_pStream->tInfo.cDstPath), astrTrailers);
    if (m_pStream->atCommits.empty())
    {
        // The stream's first commit of this run: its whole tree, on top of
        // the branch an earlier run left, else of the parent stream's
        // history at that time.
        tCommit.bFullTree = true;
        tCommit.strFrom = m_pStream->atEarlier.empty() ? ParentCommit(m_atStreams, *m_pStream, tChange.tTime)
                                                       : m_pStream->atEarlier.back().second;
    }
    else
        tWaiting.nAfter = m_pStream->atCommits.back().second;
    const TTree* pTree = &m_cTracker.Tree();
    const TTreeDelta* pDelta = &m_tDelta;
    SourceView(tCommit.bFullTree, pTree, pDelta);
    CFastImportWriter& cWriter = m_pGit->Writer();
    if (m_pLfs)
    {
        // The tree with the root .gitattributes that names the files in Git
        // LFS.
        TTree tTree;
        TTreeDelta tDelta;
        m_pLfs->CommitTree(m_pStream->strFolder, *pTree, *pDelta, tCommit.bFullTree, BlobSink(), tTree, tDelta);
        tWaiting.nMark = cWriter.ReserveMark();
        tWaiting.strFiles = cWriter.FileCommands(tCommit, tTree, tDelta);
    }
    else
    {
        tWaiting.nMark = cWriter.ReserveMark();
        tWaiting.strFiles = cWriter.FileCommands(tCommit, *pTree, *pDelta);
    }
    // The folder changes with the next change: what the commit is compared
    // with is read now, as the source sees it at this change.
    if (m_bVerify)
        ScanForVerify(strWhere, tWaiting.tFolder);
    const unsigned nMark = tWaiting.nMark;
    m_mapWaiting[m_pStream->tInfo.nID].push_back(std::move(tWaiting));
    return nMark;
}

bool CHistoryWriter::IsWritten(const std::string& strRef) const
{
    // A name is a commit of an earlier run.
    if (strRef.empty() || strRef[0] != ':')
        return true;
    return m_setWritten.count(unsigned(std::stoul(strRef.substr(1)))) != 0;
}

bool CHistoryWriter::IsReady(TWaiting& tWaiting, bool bForce)
{
    for (auto it = tWaiting.atMerges.begin(); it != tWaiting.atMerges.end();)
    {
        const TStream* pFrom = StreamByID(m_atStreams, it->first);
        auto itCommit = pFrom ? pFrom->mapCommits.find(it->second) : std::map<unsigned, std::string>::const_iterator();
        if (pFrom && itCommit != pFrom->mapCommits.end())
            tWaiting.tCommit.astrMerges.push_back(itCommit->second);
        else if (bForce)
            m_astrLeftOut.push_back(tWaiting.strWhere + ": the merge of change " + std::to_string(it->second) +
                                    (pFrom ? " of stream " + pFrom->strName : std::string()) +
                                    " (no commit of it was made)");
        else
        {
            ++it;
            continue;
        }
        it = tWaiting.atMerges.erase(it);
    }
    if (!tWaiting.atMerges.empty() || !IsWritten(tWaiting.tCommit.strFrom) ||
        (tWaiting.nAfter != 0 && m_setWritten.count(tWaiting.nAfter) == 0))
        return false;
    for (const std::string& strMerge : tWaiting.tCommit.astrMerges)
        if (!IsWritten(strMerge))
            return false;
    return true;
}

void CHistoryWriter::Write(TWaiting& tWaiting)
{
    m_pGit->Writer().SendCommit(tWaiting.tCommit, tWaiting.nMark, tWaiting.strFiles);
    m_setWritten.insert(tWaiting.nMark);
    if (!m_pGit->CommitWritten())
        throw EStop(eExitFailure, m_pGit->StopMessage());
    if (tWaiting.bVerify)
        Verify(tWaiting.strWhere, tWaiting.nMark, tWaiting.tFolder);
}

void CHistoryWriter::WriteReady(bool bForce)
{
    for (bool bProgress = true; bProgress;)
    {
        bProgress = false;
        for (auto& kv : m_mapWaiting)
            while (!kv.second.empty() && IsReady(kv.second.front(), bForce))
            {
                Write(kv.second.front());
                kv.second.pop_front();
                bProgress = true;
            }
    }
}

std::vector<std::string> CHistoryWriter::WriteWaitingCommits()
{
    // Only merges that wait for each other can be left (a cycle that the
    // source's times made): one at a time loses its merges.
    for (WriteReady(true);; WriteReady(true))
    {
        TWaiting* pStuck = nullptr;
        for (auto& kv : m_mapWaiting)
            if (!kv.second.empty() && !kv.second.front().tCommit.astrMerges.empty() && !pStuck)
                pStuck = &kv.second.front();
        if (!pStuck)
            break;
        for (const std::string& strMerge : pStuck->tCommit.astrMerges)
            m_astrLeftOut.push_back(pStuck->strWhere + ": the merge of " + strMerge + " (it waits for this one)");
        pStuck->tCommit.astrMerges.clear();
    }
    for (const auto& kv : m_mapWaiting)
        if (!kv.second.empty())
            throw EStop(eExitFailure, "internal error: " + kv.second.front().strWhere + " cannot be written");
    return m_astrLeftOut;
}

void CHistoryWriter::CheckWithSource(const std::string& strBelow)
{
    if (!m_pSource || !m_pStream || m_nNumber == 0)
        return;
    std::string strScratch = strBelow + "/.verify-XXXXXX";
    if (!::mkdtemp(&strScratch[0]))
        throw EStop(eExitFailure, "verify: cannot make a folder below " + strBelow + ": " + std::strerror(errno));
    const std::string strWhere = "stream " + m_pStream->strName + ", change " + std::to_string(m_nNumber);
    std::string strProblem;
    const bool bSynced = m_pSource->SyncElsewhere(*m_pStream, m_nNumber, strScratch, strProblem);
    TTree tHere, tThere;
    if (bSynced)
    {
        ScanForVerify(strWhere, tHere);
        ScanForVerify(strWhere, strScratch, tThere);
    }
    std::error_code ec;
    std::filesystem::remove_all(strScratch, ec);
    if (!bSynced && !strProblem.empty())
        throw EStop(eExitFailure, "verify: " + strWhere + ": " + strProblem);
    const std::string strDifference = TreeDifference(tHere, tThere);
    if (!strDifference.empty())
        throw EStop(eExitFailure,
                    "verify: " + strWhere + ": the source's own sync into a scratch folder differs: " + strDifference);
}

void CHistoryWriter::ScanForVerify(const std::string& strWhere, TTree& tFolder)
{
    ScanForVerify(strWhere, m_pStream->strFolder, tFolder);
}

void CHistoryWriter::ScanForVerify(const std::string& strWhere, const std::string& strFolderPath, TTree& tFolder)
{
    if (m_pLfs)
    {
        // Large files as their pointers, hashed again; each in the store.
        const std::string strProblem = m_pLfs->ScanFolder(strFolderPath, tFolder, [this](CContentFilter* pNext) {
            return m_pSource ? m_pSource->WrapFilter(pNext) : pNext;
        });
        if (!strProblem.empty())
            throw EStop(eExitFailure, "verify: " + strWhere + ": " + strProblem);
    }
    else
        ScanTree(strFolderPath, tFolder, TBlobSink(), nullptr, m_pSource ? m_pSource->WrapFilter(nullptr) : nullptr);
    SourceView(tFolder);
}

void CHistoryWriter::Verify(const std::string& strWhere, unsigned nMark, const TTree& tFolder)
{
    TTree tGit;
    std::string strAt = strWhere;
    if (m_pGit)
    {
        std::string strCommit, strError;
        if (!m_pGit->Checkpoint(nMark, strCommit))
            throw EStop(eExitFailure, "git fast-import failed while verifying " + strWhere);
        if (!m_pGit->ReadTree(strCommit, tGit, strError))
            throw EStop(eExitFailure, strError);
        strAt += " (commit " + strCommit.substr(0, 12) + ")";
    }
    else
        tGit = m_cTracker.Tree();
    const std::string strDifference = TreeDifference(tGit, tFolder);
    if (!strDifference.empty())
        throw EStop(eExitFailure, "verify: " + strAt + ": " + strDifference);
}

} // namespace IMP
} // namespace ORVANE
