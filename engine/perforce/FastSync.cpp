#include "perforce/FastSync.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "perforce/FolderWriter.h"
#include "perforce/StreamedRun.h"

namespace ORVANE {
namespace IMP {

namespace {

enum TKind : uint8_t
{
    eContent = 1,
    eDelete,
    eOther
};

TKind KindOf(const std::string& strAction)
{
    static const char* const s_apszContent[] = {"add", "edit", "branch", "integrate", "move/add", "import"};
    for (const char* psz : s_apszContent)
        if (strAction == psz)
            return eContent;
    if (strAction == "delete" || strAction == "move/delete")
        return eDelete;
    return eOther;
}

// "depotFile12" -> 12; -1 for other keys.
int FileIndex(const std::string& strKey, const char* pszName)
{
    const size_t nName = std::strlen(pszName);
    if (strKey.size() <= nName || strKey.compare(0, nName, pszName) != 0)
        return -1;
    int n = 0;
    for (size_t i = nName; i < strKey.size(); ++i)
    {
        if (strKey[i] < '0' || strKey[i] > '9' || n > 100000000)
            return -1;
        n = n * 10 + (strKey[i] - '0');
    }
    return n;
}

unsigned long Number(const std::string& str)
{
    unsigned long n = 0;
    for (char c : str)
    {
        if (c < '0' || c > '9')
            return 0;
        n = n * 10 + static_cast<unsigned long>(c - '0');
    }
    return n;
}

// "//depot/main/" of a listed "//depot/main/...".
std::string ListedFolder(const std::string& strPath)
{
    const bool bWildcard = strPath.size() >= 3 && strPath.compare(strPath.size() - 3, 3, "...") == 0;
    return bWildcard ? strPath.substr(0, strPath.size() - 3) : strPath;
}

// Reads a small file of the spool whole (a link's target).
bool ReadSpooled(int nDir, const std::string& strName, std::string& strText)
{
    const int nFd = ::openat(nDir, strName.c_str(), O_RDONLY | O_CLOEXEC);
    if (nFd < 0)
        return false;
    char ach[4096];
    ssize_t n;
    while ((n = ::read(nFd, ach, sizeof(ach))) > 0 && strText.size() < 65536)
        strText.append(ach, size_t(n));
    ::close(nFd);
    return n == 0;
}

} // namespace

TSyncedType SyncedType(const std::string& strType)
{
    TSyncedType t;
    const size_t nPlus = strType.find('+');
    const std::string strBase = strType.substr(0, nPlus);
    const std::string strModifiers = nPlus == std::string::npos ? std::string() : strType.substr(nPlus + 1);
    // The types whose content a sync writes as the server sends it; the
    // older names carry their modifiers in front ("kxtext": text+kx).
    static const char* const s_apszPlain[] = {"text",    "binary",  "symlink",  "ktext",   "xtext",   "kxtext",
                                              "ctext",   "cxtext",  "ltext",    "xltext",  "ubinary", "uxbinary",
                                              "xbinary", "tempobj", "ctempobj", "xtempobj"};
    for (const char* psz : s_apszPlain)
        t.bSupported = t.bSupported || strBase == psz;
    t.bLink = strBase == "symlink";
    t.bExecutable = strModifiers.find('x') != std::string::npos ||
                    (strBase != "text" && strBase != "ktext" && strBase.find('x') != std::string::npos);
    t.bWritable = strModifiers.find('w') != std::string::npos;
    return t;
}

std::string LocalName(const std::string& strDepotName)
{
    std::string str;
    str.reserve(strDepotName.size());
    for (size_t i = 0; i < strDepotName.size(); ++i)
    {
        if (strDepotName[i] == '%' && i + 2 < strDepotName.size())
        {
            const std::string strCode = strDepotName.substr(i + 1, 2);
            const char* psz = strCode == "40"                        ? "@"
                              : strCode == "23"                      ? "#"
                              : strCode == "25"                      ? "%"
                              : (strCode == "2A" || strCode == "2a") ? "*"
                                                                     : nullptr;
            if (psz)
            {
                str += psz;
                i += 2;
                continue;
            }
        }
        str += strDepotName[i];
    }
    return str;
}

void CFastSync::OnListing(const std::string& strPath, const std::vector<unsigned int>& anChanges)
{
    std::vector<unsigned int>& an = m_mapListings[ListedFolder(strPath)];
    an = anChanges;
    std::sort(an.begin(), an.end());
    an.erase(std::unique(an.begin(), an.end()), an.end());
}

std::vector<CFastSync::TFileAction> CFastSync::FileActions(const std::vector<TP4Record>& atRecords)
{
    std::map<int, TFileAction> mapFiles;
    for (const TP4Record& tRecord : atRecords)
        for (const auto& kv : tRecord)
        {
            int n;
            if ((n = FileIndex(kv.first, "depotFile")) >= 0)
                mapFiles[n].strName = kv.second;
            else if ((n = FileIndex(kv.first, "action")) >= 0)
                mapFiles[n].eKind = KindOf(kv.second);
            else if ((n = FileIndex(kv.first, "type")) >= 0)
                mapFiles[n].tType = SyncedType(kv.second);
            else if ((n = FileIndex(kv.first, "rev")) >= 0)
                mapFiles[n].nRev = uint32_t(Number(kv.second));
            else if ((n = FileIndex(kv.first, "fileSize")) >= 0)
                mapFiles[n].nSize = Number(kv.second);
        }
    std::vector<TFileAction> at;
    at.reserve(mapFiles.size());
    for (auto& kv : mapFiles)
        at.push_back(std::move(kv.second));
    return at;
}

void CFastSync::OnDescribed(const std::string& strListing, unsigned int nChange,
                            const std::vector<TP4Record>& atRecords)
{
    // The module reads the history before anything is synced: of each
    // stream only the first changes are kept for the start of its import
    // (the others are asked for again as it comes near them), so that
    // memory does not grow with the history.
    auto it = m_mapListings.find(ListedFolder(strListing));
    if (it == m_mapListings.end())
        return;
    const size_t nIndex = size_t(std::lower_bound(it->second.begin(), it->second.end(), nChange) - it->second.begin());
    if (nIndex < nKeptFirst)
        m_mapChanges[nChange] = FileActions(atRecords);
}

const std::vector<CFastSync::TFileAction>* CFastSync::FilesOf(unsigned int nChange, bool bWait)
{
    auto it = m_mapChanges.find(nChange);
    if (it != m_mapChanges.end())
        return &it->second;
    std::string strRecord, strProblem;
    if (!m_rFetcher.TakeDescription(nChange, strRecord, strProblem, bWait))
    {
        if (!bWait || !strProblem.empty())
            return nullptr;
        // Never asked for: now.
        m_rFetcher.WantDescriptions({nChange});
        if (!m_rFetcher.TakeDescription(nChange, strRecord, strProblem, true))
            return nullptr;
    }
    std::vector<TP4Record> atRecords;
    CMarshalDecoder cDecoder;
    cDecoder.Feed(strRecord.data(), strRecord.size(), [&atRecords](const TP4Record& t) {
        atRecords.push_back(t);
        return true;
    });
    if (!cDecoder.AtRecordEnd() || atRecords.empty() || RecordValue(atRecords[0], "code") != "stat")
        return nullptr;
    return &(m_mapChanges[nChange] = FileActions(atRecords));
}

bool CFastSync::ReadView()
{
    if (m_nView >= 0)
        return m_nView == 1;
    m_nView = 0;
    CMarshalDecoder cDecoder;
    TP4Record tSpec;
    const TStreamedRun tRun = RunStreamed(
        {m_strP4, "-G", "client", "-o"}, CurrentEnvironment(),
        [&](const char* p, size_t n) {
            return cDecoder.Feed(p, n, [&](const TP4Record& t) {
                if (RecordValue(t, "code") == "stat")
                    tSpec = t;
                return true;
            });
        },
        nullptr);
    if (tRun.nStatus == 0 && cDecoder.AtRecordEnd() && m_cView.Read(tSpec))
        m_nView = 1;
    return m_nView == 1;
}

const std::vector<unsigned int>* CFastSync::ListingOf(const std::string& strFolder, std::string& strDepotFolder)
{
    if (!ReadView())
        return nullptr;
    strDepotFolder = m_cView.DepotFolderOf(strFolder);
    auto it = m_mapListings.find(strDepotFolder);
    return strDepotFolder.empty() || it == m_mapListings.end() ? nullptr : &it->second;
}

void CFastSync::WantOf(const std::string& strFolder, const std::vector<TFileAction>& atActions, size_t nFirst,
                       size_t nEnd, std::vector<TWantedRevision>& at)
{
    for (size_t i = nFirst; i < nEnd && i < atActions.size(); ++i)
    {
        const TFileAction& t = atActions[i];
        if (t.eKind == eContent && t.tType.bSupported && !m_cView.LocalPathBelow(strFolder, t.strName).empty())
            at.push_back(TWantedRevision{t.strName, t.nRev, t.nSize});
    }
}

void CFastSync::WantAhead(const std::string& strFolder, TFolder& tFolder, const std::vector<unsigned int>& anListing,
                          size_t nFrom, std::vector<TWantedRevision>& at)
{
    // The descriptions of the coming changes, then the revisions of those
    // whose description is here, whole, while the fetcher holds fewer
    // revisions than the budget: it bounds what it fetches, this what it is
    // told of. A change larger than that is asked for piece by piece as it
    // is synced.
    // Both in chunks, when what was asked for runs short, so that they
    // share commands.
    const size_t nDescriptionsAhead = 128;
    const size_t nChangesAhead = 64;
    const size_t nBudget = 8192;
    std::vector<unsigned int> anDescribe;
    if (tFolder.nDescribedUpTo < nFrom + nDescriptionsAhead / 2)
        for (size_t i = std::max(nFrom, tFolder.nDescribedUpTo); i < anListing.size() && i < nFrom + nDescriptionsAhead;
             ++i)
        {
            if (!m_mapChanges.count(anListing[i]))
                anDescribe.push_back(anListing[i]);
            tFolder.nDescribedUpTo = i + 1;
        }
    if (!anDescribe.empty())
        m_rFetcher.WantDescriptions(anDescribe);
    size_t i = std::max(nFrom, tFolder.nWantedUpTo);
    const size_t nUpTo = i < nFrom + nChangesAhead / 2 ? nFrom + nChangesAhead : i;
    for (; i < tFolder.nDescribedUpTo && i < nUpTo; ++i)
    {
        const std::vector<TFileAction>* pFiles = FilesOf(anListing[i], false);
        if (!pFiles || m_rFetcher.Outstanding() + at.size() + pFiles->size() > nBudget)
            break;
        WantOf(strFolder, *pFiles, 0, pFiles->size(), at);
    }
    tFolder.nWantedUpTo = std::max(tFolder.nWantedUpTo, i);
    m_rFetcher.WantRevisions(at);
}

bool CFastSync::Sync(const std::string& strFolder, unsigned int nChange, std::string& strNotice)
{
    if (m_bDisabled)
        return false;
    std::string strDepotFolder;
    const std::vector<unsigned int>* pListing = ListingOf(strFolder, strDepotFolder);
    if (!pListing)
        return false;
    const auto itAt = std::lower_bound(pListing->begin(), pListing->end(), nChange);
    if (itAt == pListing->end() || *itAt != nChange)
        return false;
    const size_t nIndex = size_t(itAt - pListing->begin());
    TFolder& tFolder = m_mapFolders[strFolder];
    const unsigned int nBefore = nIndex == 0 ? 0 : (*pListing)[nIndex - 1];
    std::vector<TWantedRevision> atWanted;
    const std::vector<TFileAction>* pFiles =
        tFolder.bKnown && tFolder.nAt == nBefore ? FilesOf(nChange, true) : nullptr;
    if (!pFiles)
    {
        WantAhead(strFolder, tFolder, *pListing, nIndex + 1, atWanted);
        return false;
    }
    const std::vector<TFileAction>& atActions = *pFiles;
    // Every file of the change in the folder must be one a sync writes as
    // the server sends it.
    for (const TFileAction& t : atActions)
        if ((t.eKind == eOther || (t.eKind == eContent && !t.tType.bSupported)) &&
            !m_cView.LocalPathBelow(strFolder, t.strName).empty())
        {
            WantAhead(strFolder, tFolder, *pListing, nIndex + 1, atWanted);
            return false;
        }
    // One file after the other, so that memory holds one content at a time
    // whatever the size of the change; its revisions asked for a piece at
    // a time, the coming changes' behind them. A sync that cannot go on
    // here goes to the server, whose have list is still at the change
    // before: it writes every file of the change again, these included.
    const size_t nPiece = 2048;
    const CFolderWriter cWriter(strFolder);
    for (size_t i = 0; i < atActions.size(); ++i)
    {
        if (i % nPiece == 0)
        {
            // Asked for together, so that they share commands.
            atWanted.clear();
            WantOf(strFolder, atActions, i, i + nPiece, atWanted);
            if (i + nPiece >= atActions.size())
                WantAhead(strFolder, tFolder, *pListing, nIndex + 1, atWanted);
            else
                m_rFetcher.WantRevisions(atWanted);
        }
        const TFileAction& t = atActions[i];
        const std::string strBelow = m_cView.LocalPathBelow(strFolder, t.strName);
        if (strBelow.empty())
            continue;
        TFetched tFetched;
        if (t.eKind == eContent)
        {
            std::string strProblem;
            const CPrefetcher::TTaken eTaken = m_rFetcher.TakeRevision(t.strName, t.nRev, tFetched, strProblem);
            if (eTaken != CPrefetcher::eTaken)
            {
                if (eTaken == CPrefetcher::eFailed && strProblem != "stopped")
                    strNotice = "fetching ahead failed (" + strProblem + "); change " + std::to_string(nChange) +
                                " is synced by the server";
                return false;
            }
        }
        if (!Put(cWriter, LocalName(strBelow), t, tFetched).empty())
            return false;
    }
    tFolder.nAt = nChange;
    ++m_nFast;
    Reached(strFolder, tFolder, nChange);
    return true;
}

std::string CFastSync::Put(const CFolderWriter& cWriter, const std::string& strPath, const TFileAction& tAction,
                           TFetched& tFetched)
{
    const int nSpool = m_rFetcher.SpoolDescriptor();
    // A spooled content not moved into the folder goes.
    struct TRelease
    {
        TFetched& t;
        int nSpool;
        ~TRelease()
        {
            if (t.bSpooled && !t.strName.empty())
                ::unlinkat(nSpool, t.strName.c_str(), 0);
        }
    } tRelease{tFetched, nSpool};
    const TSyncedType& tType = tAction.tType;
    if (tAction.eKind == eDelete)
        return cWriter.Remove(strPath);
    if (tType.bLink)
    {
        // A link's content is its target; a final line end is no part of
        // it.
        std::string strTarget = tFetched.strContent;
        if (tFetched.bSpooled && !ReadSpooled(nSpool, tFetched.strName, strTarget))
            return "cannot read a fetched file";
        if (!strTarget.empty() && strTarget.back() == '\n')
            strTarget.pop_back();
        return cWriter.PutLink(strPath, strTarget);
    }
    const mode_t nMode = (tType.bWritable ? 0666 : 0444) | (tType.bExecutable ? 0111 : 0);
    if (!tFetched.bSpooled)
        return cWriter.PutContent(strPath, tFetched.strContent, nMode);
    const std::string strProblem = cWriter.PutFile(strPath, nSpool, tFetched.strName, nMode);
    if (strProblem.empty())
        tFetched.strName.clear();
    return strProblem;
}

bool CFastSync::Flush(const std::string& strFolder, TFolder& tFolder)
{
    if (!tFolder.bKnown || tFolder.nAt == tFolder.nServerAt)
        return true;
    const std::string strTo = tFolder.nAt == 0 ? "#none" : "@" + std::to_string(tFolder.nAt);
    const TStreamedRun tRun = RunStreamed(
        {m_strP4, "sync", "-k", strFolder + "/..." + strTo}, CurrentEnvironment(),
        [](const char*, size_t) { return true; }, nullptr);
    if (tRun.nStatus != 0)
        return false;
    tFolder.nServerAt = tFolder.nAt;
    return true;
}

void CFastSync::BeforeServerSync(const std::string& strFolder)
{
    auto it = m_mapFolders.find(strFolder);
    if (it != m_mapFolders.end())
        Flush(strFolder, it->second);
}

void CFastSync::AfterServerSync(const std::string& strFolder, unsigned int nChange, bool bSucceeded)
{
    TFolder& tFolder = m_mapFolders[strFolder];
    ++m_nServer;
    tFolder.bKnown = bSucceeded;
    tFolder.nAt = tFolder.nServerAt = nChange;
    // The revisions fetched for this change in this folder are not needed
    // any more.
    auto itChange = m_mapChanges.find(nChange);
    if (itChange != m_mapChanges.end() && !m_bDisabled && m_nView == 1)
        for (const TFileAction& t : itChange->second)
            if (t.eKind == eContent && !m_cView.LocalPathBelow(strFolder, t.strName).empty())
                m_rFetcher.Drop(t.strName, t.nRev);
    Reached(strFolder, tFolder, nChange);
}

void CFastSync::Reached(const std::string& strFolder, TFolder& tFolder, unsigned int nChange)
{
    std::string strDepotFolder;
    const std::vector<unsigned int>* pListing = ListingOf(strFolder, strDepotFolder);
    if (!pListing)
        return;
    const size_t nEnd = size_t(std::upper_bound(pListing->begin(), pListing->end(), nChange) - pListing->begin());
    for (; tFolder.nPassed < nEnd; ++tFolder.nPassed)
        m_mapChanges.erase((*pListing)[tFolder.nPassed]);
}

void CFastSync::BeforeClientRemoval()
{
    for (auto& kv : m_mapFolders)
        Flush(kv.first, kv.second);
}

} // namespace IMP
} // namespace ORVANE
