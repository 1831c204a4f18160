// Cursors of the record database.
#pragma once

#include <memory>
#include <typeinfo>

#include "host/VDBDatabase.h"

namespace ORVANE {
namespace VDB {

// How SetKeyFilter compares the leading key fields of the index with those
// of the filter record.
enum TKeyFilterType
{
    eKeyFilterEqual = 0,          // equal
    eKeyFilterGreaterOrEqual = 1, // greater than or equal (as a composite key)
    eKeyFilterLessOrEqual = 2     // less than or equal (as a composite key)
};

// The built-in procedures that ExecSP runs.
enum TStoredProcedure
{
    eProcCountEqual = 0,  // count the records whose key equals the record's
    eProcCountAll = 1,    // count the records the cursor can reach (key filter applies)
    eProcDeleteEqual = 2  // delete the records whose key equals the record's; gives their count
};

namespace Detail {
class CCursor;
} // namespace Detail

// A cursor over one index of one open table, inside one transaction.
//
// Order: the index's key fields, most significant first, numbers as
// unsigned 32-bit values, texts by their characters' code points, paths and
// property bags by their stored bytes; records with equal keys in the order
// they were added.
//
// The current record is the one last read, added or updated through this
// cursor. GetNext and GetPrevious step from its place in the index. After an
// Update the cursor stays with the rewritten record at its new place: when
// the Update changed this index's key fields, GetNext reads the record that
// follows the rewritten record's new key, not the one that followed its old
// key. After Delete the place of the removed record remains, so GetNext and
// GetPrevious read its former neighbours. A read that fails changes neither
// the record buffer nor the cursor's place.
//
// bForUpdate of the reads: the database has one writer (the files are
// locked for the life of the database), so a read meant for an Update
// needs no lock of its own; the flag is accepted and reads behave alike.
//
// An iterator made with a transaction works while that transaction is
// active; made with none it works in the transaction that is active at the
// time of each call, or commits each write by itself when none is. Records
// are copied into the caller's record object. Value type: a copy is an
// independent cursor at the same place with the same filter and top count.
class CIteratorBase
{
public:
    // An open cursor on index nIndex of pTable; a closed one when the table
    // is not open, the index does not exist, or pRecordType is given and is
    // not the record class bound to the table's fields.
    CIteratorBase(CTable* pTable, int nIndex, CTransaction* pTransaction,
                  const std::type_info* pRecordType = nullptr);
    CIteratorBase(const CIteratorBase& other);
    CIteratorBase& operator=(const CIteratorBase& other);
    ~CIteratorBase();

    bool IsOpen() const;
    // Releases the cursor; harmless when closed.
    void Close();

    // bGreaterOrEqual false: the first record, in index order, whose key
    // equals the key fields of *pRecord. true: the first record whose key is
    // greater than or equal to it.
    bool DB_GetByKey(void* pRecord, bool bForUpdate, bool bGreaterOrEqual);
    // The last record whose key is less than or equal to the key of *pRecord.
    bool DB_GetLTE(void* pRecord, bool bForUpdate);
    bool DB_GetFirst(void* pRecord, bool bForUpdate);
    bool DB_GetLast(void* pRecord, bool bForUpdate);
    bool DB_GetNext(void* pRecord, bool bForUpdate);
    bool DB_GetPrevious(void* pRecord, bool bForUpdate);
    // Inserts *pRecord and makes it the current record. In a table numbered
    // by the database (TFileDef flags 1) it gets a new nonzero ID whatever
    // its ID held, written back into *pRecord. With bReplace a record that
    // has the same unique key is replaced; otherwise a duplicate unique key
    // fails.
    bool DB_Add(void* pRecord, bool bReplace);
    // Rewrites the current record with the fields of *pRecord, key fields
    // of any index included. In a table numbered by the database the ID
    // cannot change: the stored ID is kept and written back into *pRecord.
    // False when there is no current record (or it was deleted) or a unique
    // key would be duplicated. bFlag is reserved and ignored.
    bool DB_Update(void* pRecord, bool bFlag);
    // Inserts a record whose fields are all empty (numbered by the database
    // when the table is) and makes it the current record, for an Update to
    // fill in.
    bool DB_AddNew();
    // Removes the record whose key equals the key of *pRecord: the current
    // record when it has that key, otherwise the first with that key.
    bool DB_Delete(void* pRecord);
    // Sets every field of *pRecord to its empty value: 0, empty text, empty
    // path, empty bag, time 0.
    void DB_ClearRecord(void* pRecord) const;
    // Runs the built-in procedure nProcedure (TStoredProcedure) with the key
    // of *pRecord; its count, or -1 for an unknown procedure or a failure.
    int DB_ExecSP(void* pRecord, int nProcedure);
    // From now on the cursor reaches only the records whose first nFields
    // key fields compare with those of *pRecord as eType says (1 <= nFields
    // <= the index's key count, else false and no filter).
    bool DB_KeyFilter(const void* pRecord, int nFields, TKeyFilterType eType);
    void DB_KeyFilterReset();
    // At most nCount records are read per walk: a walk begins with GetFirst,
    // GetLast, GetEqual, GetGTE or GetLTE (the first record read) and goes
    // on with GetNext and GetPrevious. 0 or less: no limit.
    void DB_SetTopCount(int nCount);

    // The index the cursor walks, -1 when closed.
    int GetIndex() const;

private:
    std::unique_ptr<Detail::CCursor> m_pCursor; // null when closed
};

// The typed cursor, one instantiation per record class. Adds no data.
template <typename TRecord>
class CIterator : public CIteratorBase
{
public:
    CIterator() : CIteratorBase(nullptr, 0, nullptr) {}
    CIterator(CTable* pTable, int nIndex, CTransaction* pTransaction)
        : CIteratorBase(pTable, nIndex, pTransaction, &typeid(TRecord))
    {
    }

    bool GetEqual(TRecord* p, bool bForUpdate) { return DB_GetByKey(p, bForUpdate, false); }
    bool GetGTE(TRecord* p, bool bForUpdate) { return DB_GetByKey(p, bForUpdate, true); }
    bool GetLTE(TRecord* p, bool bForUpdate) { return DB_GetLTE(p, bForUpdate); }
    bool GetNext(TRecord* p, bool bForUpdate) { return DB_GetNext(p, bForUpdate); }
    bool GetFirst(TRecord* p, bool bForUpdate) { return DB_GetFirst(p, bForUpdate); }
    bool GetLast(TRecord* p, bool bForUpdate) { return DB_GetLast(p, bForUpdate); }
    bool GetPrevious(TRecord* p, bool bForUpdate) { return DB_GetPrevious(p, bForUpdate); }
    bool Add(TRecord* p, bool bFlag) { return DB_Add(p, bFlag); }
    bool Update(TRecord* p, bool bFlag) { return DB_Update(p, bFlag); }
    bool AddNew() { return DB_AddNew(); }
    bool Delete(TRecord* p) { return DB_Delete(p); }
    void ClearRecord(TRecord* p) { DB_ClearRecord(p); }
    int ExecSP(TRecord* p, int nProcedure) { return DB_ExecSP(p, nProcedure); }
    bool SetKeyFilter(TRecord* p, int nFields, TKeyFilterType eType) { return DB_KeyFilter(p, nFields, eType); }
    void ResetKeyFilter() { DB_KeyFilterReset(); }
    void SetTopCount(int nCount) { DB_SetTopCount(nCount); }
};

} // namespace VDB
} // namespace ORVANE
