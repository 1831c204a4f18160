// Records of the staging store: changes, change items, files and folders,
// the kind of a change item and the dotted revision value.
#pragma once

#include <cstdint>

#include "host/Array.h"
#include "host/DirectoryData.h"
#include "host/FilePath.h"
#include "host/Properties.h"
#include "host/String.h"
#include "host/Timestamp.h"
#include "host/VDBRecord.h"

namespace ORVANE {
namespace MCE {

// Kind of a change item (stored as a 32-bit number).
enum TChangeItemType : unsigned int
{
    eChangeItemAdd = 0,    // the file is added
    eChangeItemModify = 1, // the file's content changes
    eChangeItemDelete = 2  // the file is deleted
};

// A dotted revision such as 1.4.2.1, held as its number components, most
// significant first.
class TCVSRevision
{
public:
    TCVSRevision() : m_anRevision(0) {}
    TCVSRevision(const TCVSRevision& other) : m_anRevision(other.m_anRevision) {}
    TCVSRevision& operator=(const TCVSRevision& other)
    {
        m_anRevision = other.m_anRevision;
        return *this;
    }
    ~TCVSRevision() = default;

    // Appends a component (the next less significant one).
    void Add(unsigned int nComponent) { m_anRevision.Add(nComponent); }
    int GetCount() const { return m_anRevision.GetCount(); }
    // Throws EArrayIndexOutOfRange for a bad index.
    unsigned int GetAt(int nIndex) const { return m_anRevision.GetAt(nIndex); }
    void RemoveAll() { m_anRevision.RemoveAll(true); }

    // The components joined with '.', each formatted as a signed number;
    // "" for an empty revision.
    VCM::CString GetRevisionAsString() const;

private:
    VCM::CArray<unsigned int> m_anRevision;
};

// A record of the "change" table.
class TChangeRecord : public VDB::TRecordBase
{
public:
    // Ids of the properties a change keeps in its bag.
    enum
    {
        ePropBaseTime = 0, // the first item's time, 4 bytes big-endian
        ePropMaxTime = 1   // the upper time bound of the change, 4 bytes big-endian
    };

    TChangeRecord();
    TChangeRecord(const TChangeRecord& other);
    TChangeRecord& operator=(const TChangeRecord& other);
    ~TChangeRecord() override;

    VDB::TRecordBase* Clone() const override;
    void Delete() override;
    // Assigns from *pOther, which must be a TChangeRecord (not checked).
    void CopyFrom(const VDB::TRecordBase* pOther) override;

    // The stored time as a signed 32-bit value, -1 when the property is absent.
    long GetBaseTime() const;
    long GetMaxTime() const;
    // Store the time (replacing the property or adding it).
    void SetBaseTime(unsigned int tTime);
    void SetMaxTime(unsigned int tTime);

    // Whether an item of time tTime, whose change may reach up to tMaxTime,
    // may join this change: tTime below the maximum time, tMaxTime not below
    // "Time", and tTime within 300 seconds of the base time, bounds
    // included. Every comparison and sum is unsigned 32-bit (modulo 2^32),
    // so an absent property (-1) reads as the largest value.
    bool AllowChangeItem(long tTime, long tMaxTime) const;

    // Fields of "change", in field order.
    unsigned int nID;         // 0 "ID", numbered by the database
    unsigned int nProviderID; // 1 "ProviderID", the source system's change number (0 when grouped)
    unsigned int nStreamID;   // 2 "StreamID"
    VCM::CString strUser;     // 3 "User"
    long tTime;               // 4 "Time", seconds since 1970 UTC (signed 32-bit value)
    VCM::CString strComment;  // 5 "Comment"
    unsigned int nNextItem;   // 6 "NextItem", the number the next item would get
    VCM::CProperties cProps;  // 7 "Props"
};

// A record of the "citems" table.
class TChangeItemRecord : public VDB::TRecordBase
{
public:
    // Id of the property that holds the dotted revision text.
    enum
    {
        ePropCVSRevision = 1
    };

    TChangeItemRecord();
    TChangeItemRecord(const TChangeItemRecord& other);
    TChangeItemRecord& operator=(const TChangeItemRecord& other);
    ~TChangeItemRecord() override;

    VDB::TRecordBase* Clone() const override;
    void Delete() override;
    // Assigns from *pOther, which must be a TChangeItemRecord (not checked).
    void CopyFrom(const VDB::TRecordBase* pOther) override;

    // Sets property 1 to the revision's dotted text, also when it is empty.
    void SetCVSRevision(TCVSRevision tRevision);

    // Fields of "citems", in field order.
    unsigned int nID;          // 0 "ID", the owning change's ID
    unsigned int nItem;        // 1 "Item", the item's number within the change, from 1
    TChangeItemType eType;     // 2 "Type"
    VCM::CFilePath cFilePath;  // 3 "FilePath", relative to the stream's folder
    unsigned int nRevision;    // 4 "Revision", the source system's file revision
    VCM::CProperties cProps;   // 5 "Props"
    VCM::CTimestamp cTimestamp; // 6 "Timestamp"
};

// A record of the "file" table. A plain record: its copy constructor copies
// the ID and the path but leaves the copy's bag empty, while assignment
// copies all three (intended).
class TFileRecord
{
public:
    TFileRecord() : nID(0) {}
    TFileRecord(const TFileRecord& other) : nID(other.nID), cPath(other.cPath) {}
    TFileRecord& operator=(const TFileRecord& other)
    {
        if (this != &other)
        {
            nID = other.nID;
            cPath = other.cPath;
            cProps = other.cProps;
        }
        return *this;
    }
    ~TFileRecord() = default;

    unsigned int nID;        // 0 "ID"
    VCM::CFilePath cPath;    // 1 "Path"
    VCM::CProperties cProps; // 2 (named "Path" as well)
};

// A record of the "folder" table. Only its ID is a field of the table.
class TFolderRecord
{
public:
    TFolderRecord() : nID(0) {}
    TFolderRecord(const TFolderRecord& other) = default;
    TFolderRecord& operator=(const TFolderRecord& other) = default;
    ~TFolderRecord() = default;

    unsigned int nID;              // 0 "ID"
    VCM::CDirectoryData cCurrent;  // not stored
    VCM::CDirectoryData cPrevious; // not stored
};

} // namespace MCE
} // namespace ORVANE
