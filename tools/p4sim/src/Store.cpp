#include "Store.h"

#include "FileSystem.h"
#include "Text.h"

#include <ctime>
#include <stdexcept>

namespace ORVANE {
namespace P4SIM {

namespace {

void Check(sqlite3* pDb, int nResult, const char* pszWhat)
{
    if (nResult != SQLITE_OK && nResult != SQLITE_DONE && nResult != SQLITE_ROW)
        throw std::runtime_error(std::string(pszWhat) + ": " + sqlite3_errmsg(pDb));
}

// Waiting for a lock that another p4sim holds: commands are short, so a
// long wait means a stuck process.
const int s_nBusyTimeoutMs = 30000;

} // namespace

// ---------------------------------------------------------------- CStatement

CStatement& CStatement::Bind(int nIndex, const std::string& str)
{
    sqlite3_bind_text(m_pStmt, nIndex, str.data(), int(str.size()), SQLITE_TRANSIENT);
    return *this;
}

CStatement& CStatement::Bind(int nIndex, long long n)
{
    sqlite3_bind_int64(m_pStmt, nIndex, n);
    return *this;
}

CStatement& CStatement::BindBlob(int nIndex, const char* pData, size_t nSize)
{
    // Unchecked, a refused value would be bound as NULL, and an INSERT OR
    // IGNORE would drop the row without a word.
    Check(sqlite3_db_handle(m_pStmt), sqlite3_bind_blob64(m_pStmt, nIndex, pData, sqlite3_uint64(nSize), SQLITE_STATIC),
          "database");
    return *this;
}

CStatement& CStatement::BindNull(int nIndex)
{
    sqlite3_bind_null(m_pStmt, nIndex);
    return *this;
}

bool CStatement::Step()
{
    int nResult = sqlite3_step(m_pStmt);
    if (nResult == SQLITE_ROW)
        return true;
    if (nResult == SQLITE_DONE)
        return false;
    throw std::runtime_error(std::string("database: ") + sqlite3_errmsg(sqlite3_db_handle(m_pStmt)));
}

void CStatement::Run()
{
    while (Step())
    {
    }
}

std::string CStatement::Text(int nColumn) const
{
    const void* pData = sqlite3_column_blob(m_pStmt, nColumn);
    int nSize = sqlite3_column_bytes(m_pStmt, nColumn);
    if (!pData)
        return std::string();
    return std::string(static_cast<const char*>(pData), size_t(nSize));
}

long long CStatement::Int(int nColumn) const
{
    return sqlite3_column_int64(m_pStmt, nColumn);
}

bool CStatement::IsNull(int nColumn) const
{
    return sqlite3_column_type(m_pStmt, nColumn) == SQLITE_NULL;
}

// ---------------------------------------------------------------- CStore

std::string CStore::DbPath(const std::string& strDir)
{
    return JoinPath(strDir, "p4sim.db");
}

CStore::CStore(const std::string& strDir, bool bCreate) : m_strDir(strDir)
{
    std::string strPath = DbPath(strDir);
    if (!bCreate && !FileExists(strPath))
        throw std::runtime_error("no server state in " + strDir);
    int nFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (bCreate ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(strPath.c_str(), &m_pDb, nFlags, nullptr) != SQLITE_OK)
    {
        std::string strMessage = m_pDb ? sqlite3_errmsg(m_pDb) : "cannot open";
        sqlite3_close(m_pDb);
        m_pDb = nullptr;
        throw std::runtime_error(strPath + ": " + strMessage);
    }
    sqlite3_busy_timeout(m_pDb, s_nBusyTimeoutMs);
    // The last connection to close would checkpoint the log and sync the
    // files on every command; Commit() empties the log after each write
    // instead, without syncing.
    sqlite3_db_config(m_pDb, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    if (bCreate)
        CreateSchema();
    // A killed process cannot leave a half-done transaction with these
    // settings; only a machine crash could lose the last commits, which a
    // test server can afford.
    Exec("PRAGMA synchronous=OFF");
    // Pages come straight from the mapped file: no read call per page in a
    // process that lives for one command.
    Exec("PRAGMA mmap_size=4294967296");
}

CStore::~CStore()
{
    if (m_bInTransaction)
        sqlite3_exec(m_pDb, "ROLLBACK", nullptr, nullptr, nullptr);
    for (sqlite3_stmt* pStmt : m_apStatements)
        sqlite3_finalize(pStmt);
    sqlite3_close(m_pDb);
}

void CStore::CreateSchema()
{
    Exec("PRAGMA journal_mode=WAL");
    Begin(true);
    Exec(g_pszSchema);
    Exec(g_pszLabelsSchema);
    Exec(g_pszOpenedSchema);
    Exec(g_pszIntegsSchema);
    SetMeta("version", "1");
    SetMeta("created", std::to_string(static_cast<long long>(time(nullptr))));
    Commit();
}

void CStore::Exec(const char* pszSql)
{
    char* pszError = nullptr;
    if (sqlite3_exec(m_pDb, pszSql, nullptr, nullptr, &pszError) != SQLITE_OK)
    {
        std::string strMessage = pszError ? pszError : "error";
        sqlite3_free(pszError);
        throw std::runtime_error("database: " + strMessage);
    }
}

void CStore::Begin(bool bWrite)
{
    Exec(bWrite ? "BEGIN IMMEDIATE" : "BEGIN");
    m_bInTransaction = true;
    m_bWriting = bWrite;
    // Servers made before sync marks, labels or opened files existed get
    // their tables with the first write; for the others this is no work.
    if (bWrite)
    {
        Exec(g_pszSyncMarksSchema);
        Exec(g_pszLabelsSchema);
        Exec(g_pszOpenedSchema);
        Exec(g_pszIntegsSchema);
    }
}

void CStore::Commit()
{
    Exec("COMMIT");
    m_bInTransaction = false;
    if (m_bWriting)
        Checkpoint();
    m_bWriting = false;
}

void CStore::Rollback()
{
    if (m_bInTransaction)
        Exec("ROLLBACK");
    m_bInTransaction = false;
    m_bWriting = false;
}

void CStore::Checkpoint()
{
    // A cached statement that was stepped and never reset still counts as a
    // reader and would keep the log from being emptied.
    for (sqlite3_stmt* pStmt : m_apStatements)
    {
        if (pStmt)
            sqlite3_reset(pStmt);
    }
    // Without a busy handler a truncating checkpoint does what it can
    // without waiting: a reader that still needs the log keeps it, and the
    // next write empties it.
    sqlite3_busy_timeout(m_pDb, 0);
    int nResult = sqlite3_wal_checkpoint_v2(m_pDb, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    sqlite3_busy_timeout(m_pDb, s_nBusyTimeoutMs);
    if (nResult != SQLITE_BUSY && nResult != SQLITE_LOCKED)
        Check(m_pDb, nResult, "checkpoint");
}

void CStore::SetBulkCache()
{
    Exec("PRAGMA cache_size=-1048576");
}

CStatement CStore::Prepare(TQuery eQuery)
{
    sqlite3_stmt*& pStmt = m_apStatements[eQuery];
    if (pStmt)
    {
        sqlite3_reset(pStmt);
        sqlite3_clear_bindings(pStmt);
        return CStatement(pStmt);
    }
    Check(m_pDb, sqlite3_prepare_v2(m_pDb, QueryText(eQuery), -1, &pStmt, nullptr), QueryText(eQuery));
    return CStatement(pStmt);
}

std::vector<std::string> CStore::QueryPlan(TQuery eQuery)
{
    std::string strSql = std::string("EXPLAIN QUERY PLAN ") + QueryText(eQuery);
    sqlite3_stmt* pStmt = nullptr;
    Check(m_pDb, sqlite3_prepare_v2(m_pDb, strSql.c_str(), -1, &pStmt, nullptr), strSql.c_str());
    std::vector<std::string> astrPlan;
    while (sqlite3_step(pStmt) == SQLITE_ROW)
        astrPlan.push_back(reinterpret_cast<const char*>(sqlite3_column_text(pStmt, 3)));
    sqlite3_finalize(pStmt);
    return astrPlan;
}

std::string CStore::Meta(const std::string& strKey, const std::string& strDefault)
{
    CStatement cQuery = Prepare(eQueryMetaGet);
    cQuery.Bind(1, strKey);
    return cQuery.Step() ? cQuery.Text(0) : strDefault;
}

void CStore::SetMeta(const std::string& strKey, const std::string& strValue)
{
    Prepare(eQueryMetaPut).Bind(1, strKey).Bind(2, strValue).Run();
}

namespace {

const char* const s_pszMaxResults = "maxResults";
const char* const s_pszMaxScanRows = "maxScanRows";

long long MetaNumber(CStore& rStore, const char* pszKey)
{
    long long nValue = 0;
    return ParseUInt(rStore.Meta(pszKey, "0"), nValue) ? nValue : 0;
}

} // namespace

bool CStore::Unicode()
{
    return Meta("unicode") == "1";
}

void CStore::SetUnicode()
{
    SetMeta("unicode", "1");
}

bool CStore::CaseInsensitive()
{
    return Meta("caseHandling") == "insensitive";
}

void CStore::MakeCaseInsensitive()
{
    // Statements prepared on the old tables would not survive them.
    for (sqlite3_stmt*& pStmt : m_apStatements)
    {
        sqlite3_finalize(pStmt);
        pStmt = nullptr;
    }
    Exec(g_pszCaseInsensitiveSchema);
    SetMeta("caseHandling", "insensitive");
    LoadSettings();
}

void CStore::LoadSettings()
{
    SetCaseInsensitive(CaseInsensitive());
}

long long CStore::MaxResults()
{
    return MetaNumber(*this, s_pszMaxResults);
}

long long CStore::MaxScanRows()
{
    return MetaNumber(*this, s_pszMaxScanRows);
}

void CStore::SetMaxResults(long long nLimit)
{
    SetMeta(s_pszMaxResults, std::to_string(nLimit));
}

void CStore::SetMaxScanRows(long long nLimit)
{
    SetMeta(s_pszMaxScanRows, std::to_string(nLimit));
}

} // namespace P4SIM
} // namespace ORVANE
