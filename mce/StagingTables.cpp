#include "mce/StagingTables.h"

namespace ORVANE {
namespace MCE {

using VDB::BindField;
using VDB::eFieldName;
using VDB::eFieldNumber;
using VDB::eFieldPath;
using VDB::eFieldProperties;
using VDB::eFieldText;
using VDB::eFieldTimestamp;

// ---------------------------------------------------------------------------
// "change"

const VDB::TFileDef CChangeTable::s_tFileDef = {L"change", 1};

const VDB::TFieldDef CChangeTable::s_atFieldDefs[] = {
    {L"ID", 3, 0},
    {L"ProviderID", 3, 0},
    {L"StreamID", 3, 0},
    {L"User", 4, 0},
    {L"Time", 3, 0},
    {L"Comment", 5, 0},
    {L"NextItem", 3, 0},
    {L"Props", 13, 0},
    {nullptr, 0, 0},
};

const VDB::TIndexDef CChangeTable::s_atIndexDefs[] = {
    {{0x00, 0x00, 0x01, 0x00, 0x00, 0x00}},             // unique: ID
    {{0x01, 0x00, 0x02, 0x00, 0x02, 0x00, 0x04, 0x00}}, // equal keys allowed: StreamID, Time
    {{0}},
};

// Each field to its member of TChangeRecord.
const VDB::TFieldBinding CChangeTable::s_atFieldBindings[] = {
    BindField<eFieldNumber, &TChangeRecord::nID>(L"ID"),
    BindField<eFieldNumber, &TChangeRecord::nProviderID>(L"ProviderID"),
    BindField<eFieldNumber, &TChangeRecord::nStreamID>(L"StreamID"),
    BindField<eFieldName, &TChangeRecord::strUser>(L"User"),
    BindField<eFieldNumber, &TChangeRecord::tTime>(L"Time"),
    BindField<eFieldText, &TChangeRecord::strComment>(L"Comment"),
    BindField<eFieldNumber, &TChangeRecord::nNextItem>(L"NextItem"),
    BindField<eFieldProperties, &TChangeRecord::cProps>(L"Props"),
    VDB::TFieldBinding{},
};

CChangeTable::CChangeTable(VDB::CDatabase* pDatabase) : VDB::CTable(pDatabase, s_atFieldBindings) {}

const VDB::TFileDef* CChangeTable::GetFileDef() const
{
    return &s_tFileDef;
}

const VDB::TFieldDef* CChangeTable::GetFieldDefs() const
{
    return s_atFieldDefs;
}

const VDB::TIndexDef* CChangeTable::GetIndexDefs() const
{
    return s_atIndexDefs;
}

VDB::CIterator<TChangeRecord> CChangeTable::GetIterator(VDB::CTransaction* pTransaction)
{
    return VDB::CIterator<TChangeRecord>(this, 0, pTransaction);
}

VDB::CIterator<TChangeRecord> CChangeTable::GetStreamTimeIterator(VDB::CTransaction* pTransaction)
{
    return VDB::CIterator<TChangeRecord>(this, 1, pTransaction);
}

// ---------------------------------------------------------------------------
// "citems"

const VDB::TFileDef CChangeItemTable::s_tFileDef = {L"citems", 0};

const VDB::TFieldDef CChangeItemTable::s_atFieldDefs[] = {
    {L"ID", 3, 0},
    {L"Item", 3, 0},
    {L"Type", 3, 0},
    {L"FilePath", 12, 0},
    {L"Revision", 3, 0},
    {L"Props", 13, 0},
    {L"Timestamp", 11, 0},
    {nullptr, 0, 0},
};

const VDB::TIndexDef CChangeItemTable::s_atIndexDefs[] = {
    {{0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00}}, // unique: ID, Item
    {{0}},
};

// Each field to its member of TChangeItemRecord.
const VDB::TFieldBinding CChangeItemTable::s_atFieldBindings[] = {
    BindField<eFieldNumber, &TChangeItemRecord::nID>(L"ID"),
    BindField<eFieldNumber, &TChangeItemRecord::nItem>(L"Item"),
    BindField<eFieldNumber, &TChangeItemRecord::eType>(L"Type"),
    BindField<eFieldPath, &TChangeItemRecord::cFilePath>(L"FilePath"),
    BindField<eFieldNumber, &TChangeItemRecord::nRevision>(L"Revision"),
    BindField<eFieldProperties, &TChangeItemRecord::cProps>(L"Props"),
    BindField<eFieldTimestamp, &TChangeItemRecord::cTimestamp>(L"Timestamp"),
    VDB::TFieldBinding{},
};

CChangeItemTable::CChangeItemTable(VDB::CDatabase* pDatabase) : VDB::CTable(pDatabase, s_atFieldBindings) {}

const VDB::TFileDef* CChangeItemTable::GetFileDef() const
{
    return &s_tFileDef;
}

const VDB::TFieldDef* CChangeItemTable::GetFieldDefs() const
{
    return s_atFieldDefs;
}

const VDB::TIndexDef* CChangeItemTable::GetIndexDefs() const
{
    return s_atIndexDefs;
}

VDB::CIterator<TChangeItemRecord> CChangeItemTable::GetIterator(VDB::CTransaction* pTransaction)
{
    return VDB::CIterator<TChangeItemRecord>(this, 0, pTransaction);
}

// ---------------------------------------------------------------------------
// "file": the third field carries the name "Path" a second time, and is kept
// so.

const VDB::TFileDef CFileTable::s_tFileDef = {L"file", 1};

const VDB::TFieldDef CFileTable::s_atFieldDefs[] = {
    {L"ID", 3, 0},
    {L"Path", 12, 0},
    {L"Path", 13, 0},
    {nullptr, 0, 0},
};

const VDB::TIndexDef CFileTable::s_atIndexDefs[] = {
    {{0x00, 0x00, 0x01, 0x00, 0x00, 0x00}}, // unique: ID
    {{0}},
};

// Each field to its member of TFileRecord.
const VDB::TFieldBinding CFileTable::s_atFieldBindings[] = {
    BindField<eFieldNumber, &TFileRecord::nID>(L"ID"),
    BindField<eFieldPath, &TFileRecord::cPath>(L"Path"),
    BindField<eFieldProperties, &TFileRecord::cProps>(L"Path"),
    VDB::TFieldBinding{},
};

CFileTable::CFileTable(VDB::CDatabase* pDatabase) : VDB::CTable(pDatabase, s_atFieldBindings) {}

const VDB::TFileDef* CFileTable::GetFileDef() const
{
    return &s_tFileDef;
}

const VDB::TFieldDef* CFileTable::GetFieldDefs() const
{
    return s_atFieldDefs;
}

const VDB::TIndexDef* CFileTable::GetIndexDefs() const
{
    return s_atIndexDefs;
}

// ---------------------------------------------------------------------------
// "folder"

const VDB::TFileDef CFolderTable::s_tFileDef = {L"folder", 1};

const VDB::TFieldDef CFolderTable::s_atFieldDefs[] = {
    {L"ID", 3, 0},
    {nullptr, 0, 0},
};

const VDB::TIndexDef CFolderTable::s_atIndexDefs[] = {
    {{0x00, 0x00, 0x01, 0x00, 0x00, 0x00}}, // unique: ID
    {{0}},
};

// The ID to its member of TFolderRecord (the directory data is not stored).
const VDB::TFieldBinding CFolderTable::s_atFieldBindings[] = {
    BindField<eFieldNumber, &TFolderRecord::nID>(L"ID"),
    VDB::TFieldBinding{},
};

CFolderTable::CFolderTable(VDB::CDatabase* pDatabase) : VDB::CTable(pDatabase, s_atFieldBindings) {}

const VDB::TFileDef* CFolderTable::GetFileDef() const
{
    return &s_tFileDef;
}

const VDB::TFieldDef* CFolderTable::GetFieldDefs() const
{
    return s_atFieldDefs;
}

const VDB::TIndexDef* CFolderTable::GetIndexDefs() const
{
    return s_atIndexDefs;
}

} // namespace MCE
} // namespace ORVANE
