// Shared pieces of the record database tests: a private folder per test,
// and sample tables whose fields cover every type code.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "DatabaseFixture.h"
#include "Scratch.h"
#include "host/VDB.h"

namespace VdbTest {

using namespace ORVANE;
using namespace ORVANE::VDB;
using ORVANE::VCM::CFilePath;
using ORVANE::VCM::CProperties;
using ORVANE::VCM::CString;
using ORVANE::VCM::CTimestamp;

enum TSampleKind : unsigned int
{
    eKindA = 0,
    eKindB = 1,
    eKindC = 2
};

// A record with a member for every type code.
class TSampleRecord : public TRecordBase
{
public:
    TSampleRecord() = default;
    TSampleRecord(const TSampleRecord&) = default;
    TSampleRecord& operator=(const TSampleRecord&) = default;
    TRecordBase* Clone() const override { return new TSampleRecord(*this); }
    void Delete() override { delete this; }
    void CopyFrom(const TRecordBase* pOther) override { *this = *static_cast<const TSampleRecord*>(pOther); }

    unsigned int nID = 0;   // 0 "ID"      3
    unsigned int nGroup = 0; // 1 "Group"  3
    long tTime = 0;         // 2 "Time"    3
    CString strName;        // 3 "Name"    4
    CString strText;        // 4 "Text"    5
    CTimestamp cStamp;      // 5 "Stamp"   11
    CFilePath cPath;        // 6 "Path"    12
    CProperties cProps;     // 7 "Props"   13
    TSampleKind eKind = eKindA; // 8 "Kind" 3
};

// "sample": numbered IDs; index 0 ID, index 1 Group+Time (equal keys
// allowed), index 2 Name (unique).
class CSampleTable : public CTable
{
public:
    explicit CSampleTable(CDatabase* pDatabase = nullptr) : CTable(pDatabase, s_atFieldBindings) {}
    const TFileDef* GetFileDef() const override { return &s_tFileDef; }
    const TFieldDef* GetFieldDefs() const override { return s_atFieldDefs; }
    const TIndexDef* GetIndexDefs() const override { return s_atIndexDefs; }

    static constexpr TFileDef s_tFileDef = {L"sample", 1};
    static constexpr TFieldDef s_atFieldDefs[] = {
        {L"ID", 3, 0},    {L"Group", 3, 0}, {L"Time", 3, 0},   {L"Name", 4, 0},  {L"Text", 5, 0},
        {L"Stamp", 11, 0}, {L"Path", 12, 0}, {L"Props", 13, 0}, {L"Kind", 3, 0}, {nullptr, 0, 0},
    };
    static constexpr TIndexDef s_atIndexDefs[] = {
        {{0, 0, 1, 0, 0, 0}},
        {{1, 0, 2, 0, 1, 0, 2, 0}},
        {{0, 0, 1, 0, 3, 0}},
        {{0}},
    };
    static constexpr TFieldBinding s_atFieldBindings[] = {
        BindField<eFieldNumber, &TSampleRecord::nID>(L"ID"),
        BindField<eFieldNumber, &TSampleRecord::nGroup>(L"Group"),
        BindField<eFieldNumber, &TSampleRecord::tTime>(L"Time"),
        BindField<eFieldName, &TSampleRecord::strName>(L"Name"),
        BindField<eFieldText, &TSampleRecord::strText>(L"Text"),
        BindField<eFieldTimestamp, &TSampleRecord::cStamp>(L"Stamp"),
        BindField<eFieldPath, &TSampleRecord::cPath>(L"Path"),
        BindField<eFieldProperties, &TSampleRecord::cProps>(L"Props"),
        BindField<eFieldNumber, &TSampleRecord::eKind>(L"Kind"),
        TFieldBinding{},
    };
};

// A record whose key the caller supplies.
class TPairRecord : public TRecordBase
{
public:
    TRecordBase* Clone() const override { return new TPairRecord(*this); }
    void Delete() override { delete this; }
    void CopyFrom(const TRecordBase* pOther) override { *this = *static_cast<const TPairRecord*>(pOther); }

    unsigned int nMajor = 0; // 0 "Major"
    unsigned int nMinor = 0; // 1 "Minor"
    CString strValue;        // 2 "Value"
};

// "pair": key Major+Minor unique (index 0), Value with equal keys (index 1).
class CPairTable : public CTable
{
public:
    explicit CPairTable(CDatabase* pDatabase = nullptr) : CTable(pDatabase, s_atFieldBindings) {}
    const TFileDef* GetFileDef() const override { return &s_tFileDef; }
    const TFieldDef* GetFieldDefs() const override { return s_atFieldDefs; }
    const TIndexDef* GetIndexDefs() const override { return s_atIndexDefs; }

    static constexpr TFileDef s_tFileDef = {L"pair", 0};
    static constexpr TFieldDef s_atFieldDefs[] = {
        {L"Major", 3, 0}, {L"Minor", 3, 0}, {L"Value", 4, 0}, {nullptr, 0, 0}};
    static constexpr TIndexDef s_atIndexDefs[] = {
        {{0, 0, 2, 0, 0, 0, 1, 0}},
        {{1, 0, 1, 0, 2, 0}},
        {{0}},
    };
    static constexpr TFieldBinding s_atFieldBindings[] = {
        BindField<eFieldNumber, &TPairRecord::nMajor>(L"Major"),
        BindField<eFieldNumber, &TPairRecord::nMinor>(L"Minor"),
        BindField<eFieldName, &TPairRecord::strValue>(L"Value"),
        TFieldBinding{},
    };
};

inline TPairRecord Pair(unsigned nMajor, unsigned nMinor, const wchar_t* pszValue = L"")
{
    TPairRecord t;
    t.nMajor = nMajor;
    t.nMinor = nMinor;
    t.strValue = pszValue;
    return t;
}

// A private folder for one test, removed with everything in it.
class CTempFolder : public ORVANE::TEST::CScratchFolder
{
public:
    CTempFolder() : CScratchFolder("vdbtest") {}
    // The connection string for the base path "<folder>/<name>".
    CString Connection(const std::string& strName = "db") const
    {
        return ORVANE::TEST::DatabaseConnection(File(strName));
    }
};

inline std::vector<std::string> TwoFiles(const std::string& strName = "db")
{
    return {strName + ".tdf", strName + ".tlf"};
}

inline bool FileExists(const std::string& strPath)
{
    struct stat tStat;
    return ::lstat(strPath.c_str(), &tStat) == 0;
}

// Releases a database at the end of a scope.
struct CReleaser
{
    CDatabase*& pDatabase;
    ~CReleaser()
    {
        if (pDatabase)
            pDatabase->Release();
        pDatabase = nullptr;
    }
};

} // namespace VdbTest
