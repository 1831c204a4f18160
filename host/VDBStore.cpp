// The SQLite connection behind a database, its files, its transactions, and
// the factory.
#include "host/VDBStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>

namespace ORVANE {
namespace VDB {
namespace Detail {

namespace {

// ---------------------------------------------------------------------------
// File names.
//
// SQLite names a database's rollback journal after the database file plus
// "-journal", and has no setting to name it otherwise. A database here lives
// in exactly two files, "<path>.tdf" and "<path>.tlf", so the connection
// goes through a thin VFS of our own ("orvane-vdb") that forwards to the
// platform's VFS and changes nothing but file names: the journal that SQLite
// calls "<path>.tdf-journal" is opened, probed and deleted as "<path>.tlf".
// The same VFS refuses to open any other file (temporary databases,
// statement journals, super-journals, WAL files): with temp_store=MEMORY
// SQLite keeps all of those in memory and never asks, and should it ever
// ask, it gets an error rather than a stray file. The other ways to get a
// journal of our own name were worse: journal_mode=MEMORY or OFF gives up
// the rollback journal altogether, and renaming files behind SQLite's back
// breaks hot-journal recovery.
// ---------------------------------------------------------------------------

const char s_szDataSuffix[] = ".tdf";
const char s_szJournalSuffix[] = ".tlf";
const char s_szSqliteJournalSuffix[] = ".tdf-journal";

bool EndsWith(const std::string& str, const char* pszSuffix)
{
    const size_t n = std::strlen(pszSuffix);
    return str.size() >= n && str.compare(str.size() - n, n, pszSuffix) == 0;
}

std::mutex s_mutexFiles;
// Journal names as SQLite gives them -> our names. The unix VFS keeps the
// name pointer of an open file, so each translated name lives here until
// its database is closed.
std::map<std::string, std::string> s_mapJournalNames;
// Data and journal files of the open databases of this process, by device
// and inode.
std::set<std::pair<dev_t, ino_t>> s_setOpenFiles;
std::atomic<unsigned long> s_nRefusedFiles{0};

sqlite3_vfs* s_pBaseVfs = nullptr;
sqlite3_vfs s_tVfs;

// The name to use for zName, or null when it is not the journal of one of
// our data files.
const char* JournalName(const char* zName)
{
    if (zName == nullptr)
        return nullptr;
    std::string strName(zName);
    if (!EndsWith(strName, s_szSqliteJournalSuffix))
        return nullptr;
    std::lock_guard<std::mutex> lock(s_mutexFiles);
    auto it = s_mapJournalNames.find(strName);
    if (it == s_mapJournalNames.end())
    {
        std::string strOurs = strName.substr(0, strName.size() - std::strlen(s_szSqliteJournalSuffix)) + s_szJournalSuffix;
        it = s_mapJournalNames.emplace(strName, strOurs).first;
    }
    return it->second.c_str();
}

int VfsOpen(sqlite3_vfs*, sqlite3_filename zName, sqlite3_file* pFile, int nFlags, int* pnOutFlags)
{
    pFile->pMethods = nullptr;
    if ((nFlags & SQLITE_OPEN_MAIN_DB) && zName && EndsWith(zName, s_szDataSuffix))
        return s_pBaseVfs->xOpen(s_pBaseVfs, zName, pFile, nFlags | SQLITE_OPEN_NOFOLLOW, pnOutFlags);
    if (nFlags & SQLITE_OPEN_MAIN_JOURNAL)
    {
        const char* pszJournal = JournalName(zName);
        struct stat tStat;
        if (pszJournal && (::lstat(pszJournal, &tStat) != 0 || S_ISREG(tStat.st_mode)))
            return s_pBaseVfs->xOpen(s_pBaseVfs, pszJournal, pFile, nFlags | SQLITE_OPEN_NOFOLLOW, pnOutFlags);
    }
    ++s_nRefusedFiles;
    return SQLITE_CANTOPEN;
}

int VfsDelete(sqlite3_vfs*, const char* zName, int nSyncDir)
{
    const char* pszJournal = JournalName(zName);
    return s_pBaseVfs->xDelete(s_pBaseVfs, pszJournal ? pszJournal : zName, nSyncDir);
}

int VfsAccess(sqlite3_vfs*, const char* zName, int nFlags, int* pnResult)
{
    const char* pszJournal = JournalName(zName);
    return s_pBaseVfs->xAccess(s_pBaseVfs, pszJournal ? pszJournal : zName, nFlags, pnResult);
}

int VfsFullPathname(sqlite3_vfs*, const char* zName, int nOut, char* zOut)
{
    return s_pBaseVfs->xFullPathname(s_pBaseVfs, zName, nOut, zOut);
}
void* VfsDlOpen(sqlite3_vfs*, const char*)
{
    return nullptr; // no extensions are loaded
}
void VfsDlError(sqlite3_vfs*, int nByte, char* zErrMsg)
{
    if (nByte > 0)
        std::snprintf(zErrMsg, static_cast<size_t>(nByte), "%s", "extensions are not loaded");
}
void (*VfsDlSym(sqlite3_vfs*, void*, const char*))(void)
{
    return nullptr;
}
void VfsDlClose(sqlite3_vfs*, void*) {}
int VfsRandomness(sqlite3_vfs*, int nByte, char* zOut)
{
    return s_pBaseVfs->xRandomness(s_pBaseVfs, nByte, zOut);
}
int VfsSleep(sqlite3_vfs*, int nMicroseconds)
{
    return s_pBaseVfs->xSleep(s_pBaseVfs, nMicroseconds);
}
int VfsCurrentTime(sqlite3_vfs*, double* pTime)
{
    return s_pBaseVfs->xCurrentTime(s_pBaseVfs, pTime);
}
int VfsGetLastError(sqlite3_vfs*, int nByte, char* zOut)
{
    return s_pBaseVfs->xGetLastError ? s_pBaseVfs->xGetLastError(s_pBaseVfs, nByte, zOut) : 0;
}
int VfsCurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* pTime)
{
    return s_pBaseVfs->xCurrentTimeInt64(s_pBaseVfs, pTime);
}

const char* RegisterVfs()
{
    static std::once_flag s_once;
    static bool s_bRegistered = false;
    std::call_once(s_once, [] {
        if (sqlite3_initialize() != SQLITE_OK)
            return;
        s_pBaseVfs = sqlite3_vfs_find(nullptr);
        if (s_pBaseVfs == nullptr || s_pBaseVfs->iVersion < 2)
            return;
        std::memset(&s_tVfs, 0, sizeof(s_tVfs));
        s_tVfs.iVersion = 2;
        s_tVfs.szOsFile = s_pBaseVfs->szOsFile;
        s_tVfs.mxPathname = s_pBaseVfs->mxPathname;
        s_tVfs.zName = "orvane-vdb";
        s_tVfs.xOpen = VfsOpen;
        s_tVfs.xDelete = VfsDelete;
        s_tVfs.xAccess = VfsAccess;
        s_tVfs.xFullPathname = VfsFullPathname;
        s_tVfs.xDlOpen = VfsDlOpen;
        s_tVfs.xDlError = VfsDlError;
        s_tVfs.xDlSym = VfsDlSym;
        s_tVfs.xDlClose = VfsDlClose;
        s_tVfs.xRandomness = VfsRandomness;
        s_tVfs.xSleep = VfsSleep;
        s_tVfs.xCurrentTime = VfsCurrentTime;
        s_tVfs.xGetLastError = VfsGetLastError;
        s_tVfs.xCurrentTimeInt64 = VfsCurrentTimeInt64;
        s_bRegistered = sqlite3_vfs_register(&s_tVfs, 0) == SQLITE_OK;
    });
    return s_bRegistered ? s_tVfs.zName : nullptr;
}

// Checks a file name before the database is made. 1: nothing there; 0: a
// leftover that may be replaced; -1: refused.
int CheckFile(const std::string& strFile)
{
    struct stat tStat;
    if (::lstat(strFile.c_str(), &tStat) != 0)
        return errno == ENOENT ? 1 : -1;
    if (S_ISLNK(tStat.st_mode) || !S_ISREG(tStat.st_mode) || tStat.st_uid != ::geteuid())
        return -1;
    std::lock_guard<std::mutex> lock(s_mutexFiles);
    if (s_setOpenFiles.count({tStat.st_dev, tStat.st_ino}))
        return -1; // held by an open database of this process
    return 0;
}

// Makes a new, empty, private file; false when anything is in the way.
bool MakeFile(const std::string& strFile, std::pair<dev_t, ino_t>& tId)
{
    const int fd = ::open(strFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    struct stat tStat;
    const bool bOk = ::fstat(fd, &tStat) == 0;
    ::close(fd);
    tId = {tStat.st_dev, tStat.st_ino};
    return bOk;
}

class CStoreDatabase final : public CDatabase
{
public:
    CStoreDatabase(std::shared_ptr<CStore> pStore, const wxString& strPath)
        : m_pStore(std::move(pStore)), m_strPath(strPath.wc_str())
    {
    }

    void Release() override
    {
        m_pStore->Close();
        m_pStore.reset();
        delete this;
    }
    const wchar_t* GetPath() const override { return m_strPath.c_str(); }

    std::shared_ptr<CStore> m_pStore;

private:
    ~CStoreDatabase() override = default;

    std::wstring m_strPath;
};

// Parses "key=value;key=value". False for anything malformed, unknown or
// repeated.
bool ParseConnection(const wxString& strConnection, wxString& strPath)
{
    bool bType = false, bPath = false, bCreate = false, bNoBinaries = false;
    size_t nPos = 0;
    while (nPos <= strConnection.length())
    {
        size_t nEnd = strConnection.find(L';', nPos);
        if (nEnd == wxString::npos)
            nEnd = strConnection.length();
        const wxString strPair = strConnection.substr(nPos, nEnd - nPos);
        nPos = nEnd + 1;
        if (strPair.empty() && nEnd == strConnection.length())
            break; // a trailing ';'
        const size_t nEq = strPair.find(L'=');
        if (nEq == wxString::npos)
            return false;
        const wxString strKey = strPair.substr(0, nEq);
        const wxString strValue = strPair.substr(nEq + 1);
        bool* pbSeen = nullptr;
        if (strKey == L"type")
        {
            if (strValue != L"native")
                return false;
            pbSeen = &bType;
        }
        else if (strKey == L"path")
        {
            strPath = strValue;
            pbSeen = &bPath;
        }
        else if (strKey == L"create")
        {
            if (strValue != L"1")
                return false;
            pbSeen = &bCreate;
        }
        else if (strKey == L"nobinaries")
        {
            if (strValue != L"0" && strValue != L"1")
                return false;
            pbSeen = &bNoBinaries;
        }
        else
            return false;
        if (*pbSeen)
            return false;
        *pbSeen = true;
    }
    return bType && bPath && bCreate && !strPath.empty();
}

} // namespace

unsigned long GetRefusedFileCount()
{
    return s_nRefusedFiles.load();
}

std::shared_ptr<CStore> StoreOf(CDatabase* pDatabase)
{
    CStoreDatabase* p = dynamic_cast<CStoreDatabase*>(pDatabase);
    return p ? p->m_pStore : nullptr;
}

// ---------------------------------------------------------------------------
// CStatement

CStatement::CStatement(sqlite3* pDb, const std::string& strSql)
{
    if (sqlite3_prepare_v3(pDb, strSql.c_str(), static_cast<int>(strSql.size() + 1), SQLITE_PREPARE_PERSISTENT,
                           &m_pStmt, nullptr) != SQLITE_OK)
    {
        sqlite3_finalize(m_pStmt);
        m_pStmt = nullptr;
    }
}

CStatement::~CStatement()
{
    sqlite3_finalize(m_pStmt);
}

void CStatement::Reset()
{
    if (m_pStmt)
        sqlite3_reset(m_pStmt);
    m_nOwner = 0;
}

int CStatement::Bind(int nFirst, const TValue& tValue)
{
    switch (tValue.eKind)
    {
    case TValue::eInteger:
        sqlite3_bind_int64(m_pStmt, nFirst, tValue.nInteger);
        break;
    case TValue::eText:
        sqlite3_bind_text(m_pStmt, nFirst, tValue.strBytes.data(), static_cast<int>(tValue.strBytes.size()),
                          SQLITE_TRANSIENT);
        break;
    case TValue::eBlob:
        if (tValue.strBytes.empty())
            sqlite3_bind_zeroblob(m_pStmt, nFirst, 0);
        else
            sqlite3_bind_blob(m_pStmt, nFirst, tValue.strBytes.data(), static_cast<int>(tValue.strBytes.size()),
                              SQLITE_TRANSIENT);
        break;
    }
    return nFirst + 1;
}

int CStatement::Bind(int nFirst, const std::vector<TValue>& aValues)
{
    for (const TValue& tValue : aValues)
        nFirst = Bind(nFirst, tValue);
    return nFirst;
}

// ---------------------------------------------------------------------------
// CStore

CStore::~CStore()
{
    Close();
}

bool CStore::Open(const std::string& strBase, const std::vector<std::pair<dev_t, ino_t>>& aFileIds)
{
    {
        std::lock_guard<std::mutex> lock(s_mutexFiles);
        m_aFileIds = aFileIds;
        s_setOpenFiles.insert(aFileIds.begin(), aFileIds.end());
    }
    const char* pszVfs = RegisterVfs();
    if (pszVfs == nullptr)
        return false;
    m_strBase = strBase;
    m_strDataFile = strBase + s_szDataSuffix;
    m_strJournalFile = strBase + s_szJournalSuffix;
    const int nFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE |
                       SQLITE_OPEN_EXRESCODE;
    if (sqlite3_open_v2(m_strDataFile.c_str(), &m_pDb, nFlags, pszVfs) != SQLITE_OK)
    {
        Close();
        return false;
    }
    // temp_store first, before anything could want a temporary file. The
    // files are locked for the life of the connection (one writer: this
    // process), and the journal is truncated rather than deleted after each
    // commit, so both files exist for as long as the database does. The
    // page cache is small (1 MB): records are written and read in index
    // order and the system caches the file anyway; a larger cache (2 or
    // 8 MB) was no faster and only made the process grow with the history.
    static const char s_szSetup[] = "PRAGMA temp_store=MEMORY;"
                                    "PRAGMA locking_mode=EXCLUSIVE;"
                                    "PRAGMA journal_mode=TRUNCATE;"
                                    "PRAGMA cache_size=-1024;"
                                    "PRAGMA trusted_schema=OFF;"
                                    "PRAGMA user_version=1;";
    if (sqlite3_exec(m_pDb, s_szSetup, nullptr, nullptr, nullptr) != SQLITE_OK)
    {
        Close();
        return false;
    }
    sqlite3_extended_result_codes(m_pDb, 1);
    return true;
}

void CStore::Close()
{
    m_mapTables.clear(); // finalizes the tables' statements
    m_pBegin.reset();
    m_pCommit.reset();
    m_pRollback.reset();
    m_pSavepoint.reset();
    m_pRelease.reset();
    m_pRollbackTo.reset();
    m_anTransactions.clear();
    ++m_nGeneration;
    if (m_pDb)
    {
        sqlite3_close_v2(m_pDb); // gives up an open transaction
        m_pDb = nullptr;
    }
    std::lock_guard<std::mutex> lock(s_mutexFiles);
    for (const auto& tId : m_aFileIds)
        s_setOpenFiles.erase(tId);
    m_aFileIds.clear();
    if (!m_strJournalFile.empty())
    {
        for (auto it = s_mapJournalNames.begin(); it != s_mapJournalNames.end();)
            it = it->second == m_strJournalFile ? s_mapJournalNames.erase(it) : std::next(it);
        m_strJournalFile.clear();
    }
}

bool CStore::Exec(std::unique_ptr<CStatement>& pStmt, const char* pszSql)
{
    if (m_pDb == nullptr)
        return false;
    if (!pStmt)
        pStmt = std::make_unique<CStatement>(m_pDb, pszSql);
    if (!pStmt->IsValid())
        return false;
    const int nResult = sqlite3_step(pStmt->Get());
    pStmt->Reset();
    return nResult == SQLITE_DONE;
}

void CStore::ResetAll()
{
    for (auto& tEntry : m_mapTables)
        tEntry.second->ResetAll();
}

std::shared_ptr<CTableState> CStore::OpenTable(const std::string& strName, const TFileDef& tFileDef,
                                               const TFieldDef* pFields, const TIndexDef* pIndexes, bool bMustExist)
{
    if (m_pDb == nullptr)
        return nullptr;
    auto it = m_mapTables.find(strName);
    std::shared_ptr<CTableState> pState;
    if (it != m_mapTables.end())
    {
        if (!it->second->HasDefinitions(tFileDef, pFields, pIndexes))
            return nullptr;
        pState = it->second;
    }
    else
        pState = std::make_shared<CTableState>(this, strName, tFileDef, pFields, pIndexes);
    if (bMustExist ? !pState->Exists() : !pState->EnsureCreated())
        return nullptr;
    pState->m_bCreated = true;
    m_mapTables[strName] = pState;
    return pState;
}

uint64_t CStore::Begin(unsigned int nTimeout)
{
    if (m_pDb == nullptr)
        return 0;
    if (m_anTransactions.empty())
    {
        sqlite3_busy_timeout(m_pDb, static_cast<int>(nTimeout > 0x7FFFFFFFu ? 0x7FFFFFFFu : nTimeout));
        if (!Exec(m_pBegin, "BEGIN"))
            return 0;
    }
    else if (!Exec(m_pSavepoint, "SAVEPOINT vdb"))
        return 0;
    const uint64_t nSerial = m_nNextSerial++;
    m_anTransactions.push_back(nSerial);
    return nSerial;
}

bool CStore::IsActive(uint64_t nSerial) const
{
    for (uint64_t n : m_anTransactions)
        if (n == nSerial)
            return true;
    return false;
}

bool CStore::Commit(uint64_t nSerial, bool bContinue)
{
    if (m_anTransactions.empty() || m_anTransactions.back() != nSerial)
        return false;
    ResetAll();
    Written();
    const bool bOuter = m_anTransactions.size() == 1;
    const bool bOk = bOuter ? Exec(m_pCommit, "COMMIT") : Exec(m_pRelease, "RELEASE vdb");
    if (!bOk)
    {
        Rollback(nSerial);
        return false;
    }
    m_anTransactions.pop_back();
    const uint64_t nParent = GetInnermost();
    for (auto& tEntry : m_mapTables)
        if (tEntry.second->m_nCreatedIn == nSerial)
            tEntry.second->m_nCreatedIn = nParent;
    if (bContinue)
    {
        if (bOuter ? !Exec(m_pBegin, "BEGIN") : !Exec(m_pSavepoint, "SAVEPOINT vdb"))
            return false; // committed, but the transaction could not go on
        m_anTransactions.push_back(nSerial);
    }
    return true;
}

void CStore::Rollback(uint64_t nSerial)
{
    size_t nDepth = 0;
    while (nDepth < m_anTransactions.size() && m_anTransactions[nDepth] != nSerial)
        ++nDepth;
    if (nDepth == m_anTransactions.size())
        return;
    ResetAll();
    Written();
    FinishRollback(nDepth);
    for (auto& tEntry : m_mapTables)
        if (tEntry.second->m_nCreatedIn >= nSerial)
        {
            tEntry.second->m_bCreated = false;
            tEntry.second->m_nCreatedIn = 0;
        }
}

void CStore::FinishRollback(size_t nDepth)
{
    while (m_anTransactions.size() > nDepth)
    {
        if (m_anTransactions.size() == 1)
        {
            if (!sqlite3_get_autocommit(m_pDb))
                Exec(m_pRollback, "ROLLBACK");
        }
        else
        {
            Exec(m_pRollbackTo, "ROLLBACK TO vdb");
            Exec(m_pRelease, "RELEASE vdb");
        }
        m_anTransactions.pop_back();
    }
}

} // namespace Detail

// ---------------------------------------------------------------------------
// Public classes

TRecordBase::~TRecordBase() = default;
CDatabase::~CDatabase() = default;

CDatabase* CDatabaseFactory::Create(const wchar_t* pszConnection)
{
    using namespace Detail;
    if (pszConnection == nullptr)
        return nullptr;
    wxString strPath;
    if (!ParseConnection(wxString(pszConnection), strPath))
        return nullptr;
    const wxCharBuffer tBase = strPath.fn_str();
    if (tBase.data() == nullptr || tBase.length() == 0)
        return nullptr;
    const std::string strBase(tBase.data(), tBase.length());
    if (strBase.find('\0') != std::string::npos)
        return nullptr;
    const std::string strData = strBase + s_szDataSuffix;
    const std::string strJournal = strBase + s_szJournalSuffix;

    const int nData = CheckFile(strData);
    const int nJournal = CheckFile(strJournal);
    if (nData < 0 || nJournal < 0)
        return nullptr;
    // Leftovers of an earlier process (one whose id has come round again):
    // never reused, so that no old record mixes into new work.
    if ((nData == 0 && ::unlink(strData.c_str()) != 0) || (nJournal == 0 && ::unlink(strJournal.c_str()) != 0))
        return nullptr;

    std::pair<dev_t, ino_t> tDataId, tJournalId;
    if (!MakeFile(strData, tDataId))
        return nullptr;
    if (!MakeFile(strJournal, tJournalId))
    {
        ::unlink(strData.c_str());
        return nullptr;
    }
    auto pStore = std::make_shared<CStore>();
    if (!pStore->Open(strBase, {tDataId, tJournalId}))
    {
        pStore->Close();
        ::unlink(strData.c_str());
        ::unlink(strJournal.c_str());
        return nullptr;
    }
    return new CStoreDatabase(std::move(pStore), strPath);
}

CTransaction::CTransaction(CDatabase* pDatabase, unsigned int nTimeout)
{
    std::shared_ptr<Detail::CStore> pStore = Detail::StoreOf(pDatabase);
    if (!pStore)
        return;
    m_nSerial = pStore->Begin(nTimeout);
    if (m_nSerial != 0)
        m_pStore = pStore;
}

CTransaction::~CTransaction()
{
    if (std::shared_ptr<Detail::CStore> pStore = m_pStore.lock())
        pStore->Rollback(m_nSerial);
}

bool CTransaction::Commit(bool bContinue, VRM::CProgressHelper* /*pProgress*/, CCommitFunctor* /*pFunctor*/)
{
    std::shared_ptr<Detail::CStore> pStore = m_pStore.lock();
    return pStore && pStore->Commit(m_nSerial, bContinue);
}

bool CTransaction::IsActive() const
{
    std::shared_ptr<Detail::CStore> pStore = m_pStore.lock();
    return pStore && pStore->IsActive(m_nSerial);
}

} // namespace VDB
} // namespace ORVANE
