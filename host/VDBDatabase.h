// The record database: databases, tables and transactions.
#pragma once

#include <cstdint>
#include <memory>

#include "host/VDBRecord.h"

namespace ORVANE {
namespace VRM {
// Progress reporting of long operations; Commit accepts one and may be given null.
class CProgressHelper;
} // namespace VRM

namespace VDB {

// Called back by Commit; Commit accepts one and may be given null.
class CCommitFunctor;

namespace Detail {
class CStore;
class CTableState;
} // namespace Detail

class CTable;
class CTransaction;
class CIteratorBase;

// An open database. Made only by CDatabaseFactory::Create and freed only by
// Release, never by delete.
class CDatabase
{
protected:
    CDatabase() = default;
    virtual ~CDatabase();

public:
    // Frees the database: its tables are closed, its transactions given up
    // and its files closed (they stay on disk; the owner removes them).
    virtual void Release() = 0;
    // The base path the database was made at (its files are this path with
    // ".tdf" and ".tlf" appended).
    virtual const wchar_t* GetPath() const = 0;

    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;
};

class CDatabaseFactory
{
public:
    // Makes a database from a connection string of ';'-separated key=value
    // pairs: "type=native;path=<base path>;create=1;nobinaries=1".
    //   type        must be "native": a database in two files, "<path>.tdf"
    //               (the records) and "<path>.tlf" (the rollback journal);
    //               no other file is ever made.
    //   path        the base path (required).
    //   create      must be 1: the database is made fresh. Files found at
    //               the path that no open database of this process holds are
    //               leftovers of an earlier process and are replaced.
    //   nobinaries  0 or 1; this store has no binary field type, so both
    //               behave alike.
    // Null on failure: a malformed string, an unusable folder, a path held
    // by a database of this process that is still open, or a "<path>.tdf"
    // or "<path>.tlf" that is a symbolic link, not a regular file, or not
    // owned by the current user.
    static CDatabase* Create(const wchar_t* pszConnection);
};

// A unit of work on one database. Transactions nest: one made while another
// is active on the same database lies inside it (its commit makes its work
// part of the outer one; giving it up undoes only its own work).
class CTransaction
{
public:
    // nTimeout: how long, in milliseconds, to wait for the database files
    // while another process holds them locked.
    CTransaction(CDatabase* pDatabase, unsigned int nTimeout);
    // Gives up the work not committed yet (and that of any transaction still
    // active inside this one).
    ~CTransaction();

    // Makes the work durable. With bContinue a new transaction begins at
    // once in this object, so its iterators go on working; otherwise the
    // transaction ends and its iterators stop. False when the transaction is
    // not active, still has an active transaction inside it, or the commit
    // failed (the work is then given up). pProgress and pFunctor may be null
    // and are not called.
    bool Commit(bool bContinue = false, VRM::CProgressHelper* pProgress = nullptr, CCommitFunctor* pFunctor = nullptr);

    // True from construction until Commit without bContinue, destruction,
    // the end of an outer transaction or the release of the database.
    bool IsActive() const;

    CTransaction(const CTransaction&) = delete;
    CTransaction& operator=(const CTransaction&) = delete;

private:
    friend class CTable;
    friend class CIteratorBase;

    std::weak_ptr<Detail::CStore> m_pStore;
    uint64_t m_nSerial = 0;
};

// Base of every table class. A table class supplies its static definitions
// through the three getters and the binding of its record's members to its
// fields (BindField) through the constructor.
class CTable
{
public:
    // A closed table whose records cannot be read (no member binding).
    explicit CTable(CDatabase* pDatabase);
    // A closed table whose records are read and written through pBindings
    // (static storage, one entry per field, ended by TFieldBinding{}).
    CTable(CDatabase* pDatabase, const TFieldBinding* pBindings);
    virtual ~CTable();

    virtual const TFileDef* GetFileDef() const = 0;
    virtual const TFieldDef* GetFieldDefs() const = 0;
    virtual const TIndexDef* GetIndexDefs() const = 0;

    // Opens the table under pszName, or under its TFileDef name when null,
    // in pDatabase (or the database given to the constructor when null).
    // A table the database does not hold yet is made from the definitions,
    // in pTransaction when it is given (giving that transaction up removes
    // the table again), unless bMustExist, which then fails. False also for
    // inconsistent definitions or bindings, an inactive pTransaction, or a
    // table of that name held with other definitions.
    bool Open(CDatabase* pDatabase, const wchar_t* pszName, CTransaction* pTransaction, bool bMustExist);
    // True between a successful Open and Close (or the database's release).
    bool IsOpen() const;
    // Closes the table object; harmless when closed. The records stay in the
    // database and iterators made earlier stay usable.
    void Close();

    const TFieldBinding* GetFieldBindings() const { return m_pBindings; }

    CTable(const CTable&) = delete;
    CTable& operator=(const CTable&) = delete;

private:
    friend class CIteratorBase;

    CDatabase* m_pDatabase;
    const TFieldBinding* m_pBindings;
    std::weak_ptr<Detail::CTableState> m_pState;
};

} // namespace VDB
} // namespace ORVANE
