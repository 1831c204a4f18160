// Tables of the staging store. "change" and "citems" hold the history
// between enumeration and import; "file" and "folder" are declared in full.
#pragma once

#include "host/VDBDatabase.h"
#include "host/VDBIterator.h"
#include "mce/StagingRecords.h"

namespace ORVANE {
namespace MCE {

// "change": TChangeRecord, IDs numbered by the database. Index 0 "ID",
// index 1 "StreamID" then "Time" (several changes may share a key).
class CChangeTable : public VDB::CTable
{
public:
    explicit CChangeTable(VDB::CDatabase* pDatabase);

    const VDB::TFileDef* GetFileDef() const override;
    const VDB::TFieldDef* GetFieldDefs() const override;
    const VDB::TIndexDef* GetIndexDefs() const override;

    // Iterator on index 0 ("ID").
    VDB::CIterator<TChangeRecord> GetIterator(VDB::CTransaction* pTransaction);
    // Iterator on index 1 ("StreamID", "Time").
    VDB::CIterator<TChangeRecord> GetStreamTimeIterator(VDB::CTransaction* pTransaction);

    static const VDB::TFileDef s_tFileDef;
    static const VDB::TFieldDef s_atFieldDefs[];
    static const VDB::TIndexDef s_atIndexDefs[];
    static const VDB::TFieldBinding s_atFieldBindings[];
};

// "citems": TChangeItemRecord, key supplied by the module. Index 0 "ID" then
// "Item".
class CChangeItemTable : public VDB::CTable
{
public:
    explicit CChangeItemTable(VDB::CDatabase* pDatabase);

    const VDB::TFileDef* GetFileDef() const override;
    const VDB::TFieldDef* GetFieldDefs() const override;
    const VDB::TIndexDef* GetIndexDefs() const override;

    // Iterator on index 0 ("ID", "Item").
    VDB::CIterator<TChangeItemRecord> GetIterator(VDB::CTransaction* pTransaction);

    static const VDB::TFileDef s_tFileDef;
    static const VDB::TFieldDef s_atFieldDefs[];
    static const VDB::TIndexDef s_atIndexDefs[];
    static const VDB::TFieldBinding s_atFieldBindings[];
};

// "file": TFileRecord, IDs numbered by the database. Index 0 "ID".
class CFileTable : public VDB::CTable
{
public:
    explicit CFileTable(VDB::CDatabase* pDatabase = nullptr);

    const VDB::TFileDef* GetFileDef() const override;
    const VDB::TFieldDef* GetFieldDefs() const override;
    const VDB::TIndexDef* GetIndexDefs() const override;

    static const VDB::TFileDef s_tFileDef;
    static const VDB::TFieldDef s_atFieldDefs[];
    static const VDB::TIndexDef s_atIndexDefs[];
    static const VDB::TFieldBinding s_atFieldBindings[];
};

// "folder": TFolderRecord, IDs numbered by the database. Index 0 "ID".
class CFolderTable : public VDB::CTable
{
public:
    explicit CFolderTable(VDB::CDatabase* pDatabase = nullptr);

    const VDB::TFileDef* GetFileDef() const override;
    const VDB::TFieldDef* GetFieldDefs() const override;
    const VDB::TIndexDef* GetIndexDefs() const override;

    static const VDB::TFileDef s_tFileDef;
    static const VDB::TFieldDef s_atFieldDefs[];
    static const VDB::TIndexDef s_atIndexDefs[];
    static const VDB::TFieldBinding s_atFieldBindings[];
};

} // namespace MCE
} // namespace ORVANE
