// Inner workings of the record database (not installed): the SQLite
// connection with its transactions, the tables it holds with their
// prepared statements, and the encoding of field values.
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/VDBDatabase.h"
#include "host/VDBIterator.h"

namespace ORVANE {
namespace VDB {
namespace Detail {

// ---------------------------------------------------------------------------
// Field values as SQLite holds them.

// One stored value: an integer (type codes 3 and 11), UTF-8 text (4, 5) or
// bytes (12, 13). Used for key values, cursor places and filters.
struct TValue
{
    enum EKind : unsigned char
    {
        eInteger,
        eText,
        eBlob
    };
    EKind eKind = eInteger;
    int64_t nInteger = 0;
    std::string strBytes;

    bool operator==(const TValue& other) const
    {
        return eKind == other.eKind && nInteger == other.nInteger && strBytes == other.strBytes;
    }
    bool operator!=(const TValue& other) const { return !(*this == other); }
};

// Text is stored as UTF-8. Every wchar_t value from 0 to 0x7FFFFFFF is
// encoded (lone surrogates and values beyond U+10FFFF with the original
// long forms of UTF-8), so any CString comes back exactly; a negative
// wchar_t is stored as U+FFFD.
void AppendUtf8(const VCM::CString& str, std::string& strOut);
void DecodeUtf8(const unsigned char* pb, size_t nSize, VCM::CString& strOut);
// A path: per item, its UTF-8 length as 4 bytes big-endian, then the bytes.
void EncodePath(const VCM::CFilePath& cPath, std::string& strOut);
bool DecodePath(const unsigned char* pb, size_t nSize, VCM::CFilePath& cPath);
// A bag: per property, its id as 2 bytes big-endian, its size as 4 bytes
// big-endian, then its bytes, in the bag's order.
void EncodeProperties(const VCM::CProperties& cProps, std::string& strOut);
bool DecodeProperties(const unsigned char* pb, size_t nSize, VCM::CProperties& cProps);

// The stored form of field nField of a record, through its binding.
void EncodeField(const TFieldBinding& tBinding, const void* pRecord, TValue& tValue);

// ---------------------------------------------------------------------------
// A prepared statement, made once and reset for every use. A statement whose
// rows are still being read belongs to the cursor that last ran it (m_nOwner)
// for as long as no write has happened in the store since (m_nGeneration).
class CStatement
{
public:
    CStatement(sqlite3* pDb, const std::string& strSql);
    ~CStatement();
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;

    bool IsValid() const { return m_pStmt != nullptr; }
    sqlite3_stmt* Get() const { return m_pStmt; }
    void Reset();
    // Binds values from parameter nFirst on; gives the next parameter number.
    int Bind(int nFirst, const std::vector<TValue>& aValues);
    int Bind(int nFirst, const TValue& tValue);

    uint64_t m_nOwner = 0;
    uint64_t m_nGeneration = 0;

private:
    sqlite3_stmt* m_pStmt = nullptr;
};

class CStore;

// ---------------------------------------------------------------------------
// One index of a table.
struct TIndexLayout
{
    bool bUnique = true;            // flags 0
    bool bRowidKey = false;         // the key is the database-numbered ID, i.e. the rowid
    std::vector<unsigned> anKeys;   // field numbers, most significant first
    // SQL fragments, made once.
    std::string strKeyTuple;        // "(f2,f4)"
    std::string strPlaceTuple;      // the key, and the rowid when keys may repeat
    std::string strOrderAsc;
    std::string strOrderDesc;
};

// The kinds of statement a cursor runs on an index.
enum TIndexQuery
{
    eQueryFirst,
    eQueryLast,
    eQueryNext,
    eQueryPrevious,
    eQueryGTE,
    eQueryLTE,
    eQueryCountEqual,
    eQueryCountAll,
    eQueryDeleteEqual,
    eQueryCount
};

// A table held by a store: its definitions (copied), its SQL layout and its
// prepared statements. Owned by the store; everyone else holds it weakly.
class CTableState
{
public:
    CTableState(CStore* pStore, const std::string& strName, const TFileDef& tFileDef, const TFieldDef* pFields,
                const TIndexDef* pIndexes);

    CStore* GetStore() const { return m_pStore; }
    bool IsNumbered() const { return m_nFlags == 1; }
    size_t GetFieldCount() const { return m_aFields.size(); }
    uint32_t GetFieldType(size_t nField) const { return m_aFields[nField].nType; }
    size_t GetIndexCount() const { return m_aIndexes.size(); }
    const TIndexLayout& GetIndex(size_t nIndex) const { return m_aIndexes[nIndex]; }

    // Whether the definitions are those this table was made with.
    bool HasDefinitions(const TFileDef& tFileDef, const TFieldDef* pFields, const TIndexDef* pIndexes) const;

    // Makes the SQL table and indexes when the database lacks them (again,
    // after a given-up transaction removed them). False on failure.
    bool EnsureCreated();
    bool Exists();

    // Statements, made on first use.
    CStatement* GetInsert(bool bReplace);
    CStatement* GetInsertEmpty();
    CStatement* GetUpdate();
    CStatement* GetDelete();
    // nFilterType -1 for no filter, else a TKeyFilterType over the first
    // nFilterFields key fields.
    CStatement* GetQuery(size_t nIndex, TIndexQuery eQuery, int nFilterType, int nFilterFields);

    // Resets every statement (ends every read in progress).
    void ResetAll();

    // Record <-> statement.
    // Binds every field of the record (or every field but the ID of a
    // numbered table) from parameter 1; gives the next parameter number.
    int BindRecord(CStatement& cStmt, const TFieldBinding* pBindings, const void* pRecord, bool bSkipID);
    // Reads the columns f0.. of the current row into the record.
    void ReadRecord(sqlite3_stmt* pStmt, const TFieldBinding* pBindings, void* pRecord) const;
    // The key values of an index from a record, or from the current row.
    void KeyFromRecord(size_t nIndex, const TFieldBinding* pBindings, const void* pRecord,
                       std::vector<TValue>& aKey, size_t nFields) const;
    void KeyFromRow(size_t nIndex, sqlite3_stmt* pStmt, std::vector<TValue>& aKey) const;
    static void ColumnValue(sqlite3_stmt* pStmt, int nColumn, uint32_t nType, TValue& tValue);

    // The transaction that made the SQL table (0 once durable), and whether
    // it must be made again.
    uint64_t m_nCreatedIn = 0;
    bool m_bCreated = false;

private:
    CStatement* Make(std::unique_ptr<CStatement>& pStmt, const std::string& strSql);
    // The columns of an index, in parentheses, as CREATE INDEX takes them.
    std::string IndexColumns(const TIndexLayout& tLayout) const;

    CStore* m_pStore;
    std::string m_strName;       // UTF-8
    std::string m_strQuoted;     // as an SQL identifier
    uint32_t m_nFlags;
    std::vector<TFieldDef> m_aFields;
    std::vector<std::wstring> m_astrFieldNames;
    std::vector<TIndexDef> m_aIndexDefs;
    std::vector<TIndexLayout> m_aIndexes;
    std::string m_strColumns;    // "f0,f1,...,rowid"

    std::unique_ptr<CStatement> m_pInsert, m_pInsertReplace, m_pInsertEmpty, m_pUpdate, m_pDelete, m_pExists;
    std::map<uint32_t, std::unique_ptr<CStatement>> m_mapQueries;
    std::vector<std::string> m_astrScratch; // encoded text and bytes of the record being written
};

// ---------------------------------------------------------------------------
// One SQLite connection on the two files, with the transaction stack and
// the tables.
class CStore
{
public:
    CStore() = default;
    ~CStore();
    CStore(const CStore&) = delete;
    CStore& operator=(const CStore&) = delete;

    // Opens the database at strBase (file-system encoding), whose two files
    // the factory has just made with the given device and inode numbers;
    // false on failure.
    bool Open(const std::string& strBase, const std::vector<std::pair<dev_t, ino_t>>& aFileIds);
    void Close();
    sqlite3* GetDb() const { return m_pDb; }

    // Tables.
    std::shared_ptr<CTableState> OpenTable(const std::string& strName, const TFileDef& tFileDef,
                                           const TFieldDef* pFields, const TIndexDef* pIndexes, bool bMustExist);

    // Transactions: serial numbers, newest innermost.
    uint64_t Begin(unsigned int nTimeout);
    bool Commit(uint64_t nSerial, bool bContinue);
    void Rollback(uint64_t nSerial);
    bool IsActive(uint64_t nSerial) const;
    uint64_t GetInnermost() const { return m_anTransactions.empty() ? 0 : m_anTransactions.back(); }

    // Every write (and every commit or rollback) moves the generation on,
    // which ends the reads in progress of all cursors.
    uint64_t GetGeneration() const { return m_nGeneration; }
    void Written() { ++m_nGeneration; }
    void ResetAll();

    // Runs one prepared statement of no result to its end.
    bool Exec(std::unique_ptr<CStatement>& pStmt, const char* pszSql);

    const std::string& GetBase() const { return m_strBase; }

private:
    void FinishRollback(size_t nDepth);

    sqlite3* m_pDb = nullptr;
    std::string m_strBase, m_strDataFile, m_strJournalFile;
    std::vector<std::pair<dev_t, ino_t>> m_aFileIds; // registered as held by this process
    std::map<std::string, std::shared_ptr<CTableState>> m_mapTables;
    std::vector<uint64_t> m_anTransactions;
    uint64_t m_nNextSerial = 1;
    uint64_t m_nGeneration = 1;
    std::unique_ptr<CStatement> m_pBegin, m_pCommit, m_pRollback, m_pSavepoint, m_pRelease, m_pRollbackTo;
};

// The store behind a database made by CDatabaseFactory, null for any other.
std::shared_ptr<CStore> StoreOf(CDatabase* pDatabase);

// Files that SQLite asked for and the database refused to make (anything
// but the data file and its journal). Always 0 in a correct build; exposed
// for the tests and the benchmark.
unsigned long GetRefusedFileCount();

} // namespace Detail
} // namespace VDB
} // namespace ORVANE
