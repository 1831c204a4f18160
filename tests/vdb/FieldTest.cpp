// Field values through the database, the binding of members to fields, the
// definition records and the layout of the interface.
#include <cstring>
#include <iterator>

#include <sqlite3.h>

#include "ItaniumLayout.h"
#include "VdbTestSupport.h"
#include "host/VDBStore.h"

using namespace VdbTest;

namespace {

class VdbFields : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_pDb = CDatabaseFactory::Create(m_cFolder.Connection());
        ASSERT_NE(m_pDb, nullptr);
        CTransaction cTx(m_pDb, 60000);
        ASSERT_TRUE(m_cTable.Open(m_pDb, nullptr, &cTx, false));
        ASSERT_TRUE(cTx.Commit());
    }
    void TearDown() override
    {
        m_cTable.Close();
        if (m_pDb)
            m_pDb->Release();
    }

    // Adds the record, commits, and reads it back by ID in a new transaction.
    TSampleRecord RoundTrip(TSampleRecord tRecord)
    {
        {
            CTransaction cTx(m_pDb, 60000);
            CIterator<TSampleRecord> cIt(&m_cTable, 0, &cTx);
            EXPECT_TRUE(cIt.Add(&tRecord, false));
            cIt.Close();
            EXPECT_TRUE(cTx.Commit());
        }
        CTransaction cTx(m_pDb, 60000);
        CIterator<TSampleRecord> cIt(&m_cTable, 0, &cTx);
        TSampleRecord tRead;
        tRead.strText = L"stale";
        tRead.cPath.Parse(L"stale/path");
        tRead.cProps.SetProperty(77, 77u);
        tRead.nID = tRecord.nID;
        EXPECT_TRUE(cIt.GetEqual(&tRead, false));
        return tRead;
    }

    CTempFolder m_cFolder;
    CDatabase* m_pDb = nullptr;
    CSampleTable m_cTable;
};

} // namespace

TEST_F(VdbFields, EveryTypeRoundTrips)
{
    TSampleRecord t;
    t.nGroup = 4294967295u;
    t.tTime = 1700000000;
    t.strName = L"J\u00fcrgen \u65e5\u672c \U0001F600 \u00e9";
    t.strText = L"line one\nline two\ttab \u20ac";
    t.cStamp.Set(1234567890);
    for (int i = 0; i < 300; ++i)
        t.cPath.Add(CString(wxString::Format(L"item-%d-\u00e4", i)));
    for (unsigned short n = 0; n < 500; ++n)
    {
        unsigned char ab[7] = {0, 1, 2, 0xFF, static_cast<unsigned char>(n), 0, 0x80};
        t.cProps.AddProperty(static_cast<unsigned short>(n * 131), ab, n % 8);
    }
    t.cProps.SetProperty(65535, L"text \u00df");
    t.eKind = eKindC;

    const TSampleRecord r = RoundTrip(t);
    EXPECT_NE(r.nID, 0u);
    EXPECT_EQ(r.nGroup, 4294967295u);
    EXPECT_EQ(r.tTime, 1700000000);
    EXPECT_EQ(r.strName, t.strName);
    EXPECT_EQ(r.strText, t.strText);
    EXPECT_EQ(r.cStamp.GetUTC(), 1234567890);
    EXPECT_EQ(r.cPath, t.cPath);
    EXPECT_EQ(r.cPath.GetItemCount(), 300u);
    EXPECT_STREQ(r.cPath.GetItemText(299), L"item-299-\u00e4");
    EXPECT_EQ(r.cProps, t.cProps);
    EXPECT_EQ(r.cProps.GetCount(), 501);
    CString strText;
    ASSERT_TRUE(r.cProps.GetProperty(65535, strText));
    EXPECT_EQ(strText, L"text \u00df");
    EXPECT_EQ(r.eKind, eKindC);
}

TEST_F(VdbFields, EmptyValuesRoundTrip)
{
    TSampleRecord t;
    t.strName = L"";
    const TSampleRecord r = RoundTrip(t);
    EXPECT_TRUE(r.strName.empty());
    EXPECT_TRUE(r.strText.empty()); // "stale" was replaced
    EXPECT_EQ(r.cPath.GetItemCount(), 0u);
    EXPECT_EQ(r.cProps.GetCount(), 0);
    EXPECT_EQ(r.cStamp.GetUTC(), 0);
    EXPECT_EQ(r.tTime, 0);
}

TEST_F(VdbFields, PathsKeepEveryItemExactly)
{
    TSampleRecord t;
    t.strName = L"a";
    t.cPath.Parse(L"//depot/main/dir/file.txt");
    TSampleRecord r = RoundTrip(t);
    EXPECT_EQ(r.cPath.GetItemCount(), 5u);
    EXPECT_STREQ(r.cPath.GetItemText(0), L"/");
    EXPECT_EQ(r.cPath.GeneratePath(L'/', true), L"//depot/main/dir/file.txt");

    t.strName = L"b";
    t.cPath.Parse(L"/tmp/ws");
    r = RoundTrip(t);
    EXPECT_EQ(r.cPath.GetItemCount(), 3u);
    EXPECT_STREQ(r.cPath.GetItemText(0), L"");

    // Items made with Add may hold anything, separators included.
    t.strName = L"c";
    t.cPath.RemoveAll();
    t.cPath.Add(L"with/slash");
    t.cPath.Add(L"");
    t.cPath.Add(CString(wxString(L"nul\0inside", 10)));
    r = RoundTrip(t);
    EXPECT_EQ(r.cPath, t.cPath);
}

TEST_F(VdbFields, TextKeepsEveryCharacter)
{
    TSampleRecord t;
    t.strName = L"chars";
    std::wstring str;
    for (wchar_t ch : {L'\x01', L'\x7F', L'\x80', L'\x7FF', L'\x800', L'\xFFFF', L'\x10000', L'\x10FFFF'})
        str += ch;
    str += static_cast<wchar_t>(0xD800); // a lone surrogate
    str += static_cast<wchar_t>(0x7FFFFFFF);
    str += L'\0';
    str += L"end";
    t.strText = CString(wxString(str.data(), str.size()));
    const TSampleRecord r = RoundTrip(t);
    EXPECT_EQ(r.strText.ToStdWstring(), str);
}

TEST_F(VdbFields, TimesRoundTripForEverySigned32BitValue)
{
    const long atTimes[] = {0, 1, -1, 299, -300, 2147483647L, -2147483647L - 1, 1000000000, -1000000000};
    int n = 0;
    for (long tTime : atTimes)
    {
        TSampleRecord t;
        t.strName = wxString::Format(L"t%d", n++);
        t.tTime = tTime;
        t.cStamp.Set(tTime);
        const TSampleRecord r = RoundTrip(t);
        EXPECT_EQ(r.tTime, tTime);
        EXPECT_EQ(r.cStamp.GetUTC(), tTime);
    }
}

// A time is stored as its value modulo 2^32, the unsigned 32-bit number
// that every platform writes alike, and read back as a signed 32-bit value.
// A 64-bit long may hold more than 32 bits, which the store drops; a 32-bit
// long takes a value beyond its range modulo 2^32 when it is assigned, and
// the store must then keep the sign: -1 goes in as 4294967295 and comes back
// as -1. The same stored numbers and the same values read back either way.
TEST_F(VdbFields, ALongTimeIsKeptModulo2To32)
{
    const struct
    {
        const wchar_t* pszName;
        long long nAssigned; // assigned to the long member
        long long nStored;   // the number in the database
        long tRead;          // the value read back
    } atCases[] = {
        {L"wide", 0x100000005LL, 5, 5},
        {L"unsigned", 4294967295LL, 4294967295LL, -1},
        {L"minus one", -1, 4294967295LL, -1},
        {L"highest", 2147483647LL, 2147483647LL, 2147483647L},
        {L"lowest", -2147483648LL, 2147483648LL, -2147483647L - 1},
        {L"past the highest", 2147483648LL, 2147483648LL, -2147483647L - 1},
        {L"below the lowest", -2147483649LL, 2147483647LL, 2147483647L},
        {L"wide negative", -0x100000005LL, 4294967291LL, -5},
    };
    std::vector<unsigned int> anIDs;
    for (size_t i = 0; i < std::size(atCases); ++i)
    {
        TSampleRecord t;
        t.strName = atCases[i].pszName;
        t.tTime = static_cast<long>(atCases[i].nAssigned);
        const TSampleRecord r = RoundTrip(t);
        EXPECT_EQ(r.tTime, atCases[i].tRead) << "case " << i;
        anIDs.push_back(r.nID);
    }

    // The stored numbers, read from the file once the database is released.
    m_cTable.Close();
    m_pDb->Release();
    m_pDb = nullptr;
    sqlite3* pRaw = nullptr;
    ASSERT_EQ(sqlite3_open_v2(m_cFolder.File("db.tdf").c_str(), &pRaw, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt* pStmt = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(pRaw, "SELECT f2 FROM sample WHERE f0 = ?", -1, &pStmt, nullptr), SQLITE_OK);
    for (size_t i = 0; i < anIDs.size(); ++i)
    {
        sqlite3_bind_int64(pStmt, 1, anIDs[i]);
        ASSERT_EQ(sqlite3_step(pStmt), SQLITE_ROW);
        EXPECT_EQ(sqlite3_column_int64(pStmt, 0), atCases[i].nStored) << "case " << i;
        sqlite3_reset(pStmt);
    }
    sqlite3_finalize(pStmt);
    sqlite3_close(pRaw);
}

TEST(VdbBinding, BindsEachFieldToItsMember)
{
    const TFieldBinding* p = CSampleTable::s_atFieldBindings;
    TSampleRecord t;
    for (int i = 0; CSampleTable::s_atFieldDefs[i].pszName; ++i)
    {
        EXPECT_STREQ(p[i].pszName, CSampleTable::s_atFieldDefs[i].pszName);
        EXPECT_EQ(p[i].nType, CSampleTable::s_atFieldDefs[i].nType);
        EXPECT_EQ(*p[i].pRecordType, typeid(TSampleRecord));
    }
    EXPECT_EQ(p[9].pszName, nullptr);
    EXPECT_EQ(p[9].nType, 0u);
    // Numbers: through the getter and setter.
    p[0].pfnSetNumber(&t, 11);
    p[1].pfnSetNumber(&t, 22);
    p[2].pfnSetNumber(&t, 4294967295u);
    p[8].pfnSetNumber(&t, 2);
    EXPECT_EQ(t.nID, 11u);
    EXPECT_EQ(t.nGroup, 22u);
    EXPECT_EQ(t.tTime, -1);
    EXPECT_EQ(t.eKind, eKindC);
    t.tTime = -2;
    EXPECT_EQ(p[2].pfnGetNumber(&t), 4294967294u);
    t.tTime = -2147483647L - 1;
    EXPECT_EQ(p[2].pfnGetNumber(&t), 2147483648u);
    p[2].pfnSetNumber(&t, 2147483648u);
    EXPECT_EQ(t.tTime, -2147483647L - 1);
    EXPECT_EQ(p[1].pfnGetNumber(&t), 22u);
    EXPECT_EQ(p[8].pfnGetNumber(&t), 2u);
    // Objects: the member's own address.
    EXPECT_EQ(p[3].pfnMember(&t), static_cast<void*>(&t.strName));
    EXPECT_EQ(p[4].pfnMember(&t), static_cast<void*>(&t.strText));
    EXPECT_EQ(p[5].pfnMember(&t), static_cast<void*>(&t.cStamp));
    EXPECT_EQ(p[6].pfnMember(&t), static_cast<void*>(&t.cPath));
    EXPECT_EQ(p[7].pfnMember(&t), static_cast<void*>(&t.cProps));
    EXPECT_EQ(p[3].pfnGetNumber, nullptr);
    EXPECT_EQ(p[0].pfnMember, nullptr);
}

TEST(VdbDefinitions, IndexDefinitionsAre32RawBytes)
{
    static_assert(sizeof(TIndexDef) == 32, "32 bytes");
    const TIndexDef& tIndex = CSampleTable::s_atIndexDefs[1];
    const unsigned char abExpected[32] = {1, 0, 2, 0, 1, 0, 2, 0};
    EXPECT_EQ(std::memcmp(tIndex.abData, abExpected, 32), 0);
    EXPECT_EQ(tIndex.GetFlags(), 1u);
    EXPECT_EQ(tIndex.GetKeyCount(), 2u);
    EXPECT_EQ(tIndex.GetKeyField(0), 1u);
    EXPECT_EQ(tIndex.GetKeyField(1), 2u);
    EXPECT_FALSE(tIndex.IsEnd());
    EXPECT_TRUE(CSampleTable::s_atIndexDefs[3].IsEnd());
    // Little-endian words, whatever the machine.
    const TIndexDef tWide = {{0x01, 0x02, 0x03, 0x00, 0x04, 0x01}};
    EXPECT_EQ(tWide.GetFlags(), 0x0201u);
    EXPECT_EQ(tWide.GetKeyCount(), 3u);
    EXPECT_EQ(tWide.GetKeyField(0), 0x0104u);
    EXPECT_EQ(sizeof(TFieldDef), sizeof(void*) + 8);
}

#if ORVANE_TEST_ITANIUM_LAYOUT
using ORVANE::TEST::VirtualSlot;

TEST(VdbLayout, VirtualSlots)
{
    // Slots 0 and 1 are the destructor pair.
    EXPECT_EQ(VirtualSlot(&CDatabase::Release), 2);
    EXPECT_EQ(VirtualSlot(&CTable::GetFileDef), 2);
    EXPECT_EQ(VirtualSlot(&CTable::GetFieldDefs), 3);
    EXPECT_EQ(VirtualSlot(&CTable::GetIndexDefs), 4);
    EXPECT_EQ(VirtualSlot(&TRecordBase::Clone), 2);
    EXPECT_EQ(VirtualSlot(&TRecordBase::Delete), 3);
    EXPECT_EQ(VirtualSlot(&TRecordBase::CopyFrom), 4);
}
#endif

TEST(VdbLayout, IteratorsAddNoData)
{
    EXPECT_EQ(sizeof(CIterator<TSampleRecord>), sizeof(CIteratorBase));
    EXPECT_EQ(sizeof(CSampleTable), sizeof(CTable));
}

TEST(VdbEncoding, APathReadOverAnotherHoldsOnlyItsOwnItems)
{
    const auto Decode = [](const std::string& str, CFilePath& cPath) {
        return Detail::DecodePath(reinterpret_cast<const unsigned char*>(str.data()), str.size(), cPath);
    };
    CFilePath cPath;
    ASSERT_TRUE(cPath.Parse(L"src/module1/part2/file.cpp"));
    std::string strLong;
    Detail::EncodePath(cPath, strLong);
    CFilePath cRead;
    ASSERT_TRUE(Decode(strLong, cRead));
    EXPECT_EQ(cPath, cRead);
    // Fewer and shorter items over it, one of them with a NUL and one with
    // a byte that is no UTF-8.
    const std::string strShort("\0\0\0\3a\0b\0\0\0\2\xFFz", 13);
    ASSERT_TRUE(Decode(strShort, cRead));
    ASSERT_EQ(2u, cRead.GetItemCount());
    unsigned nLength = 0;
    const wchar_t* psz = cRead.GetItemText(0, &nLength);
    EXPECT_EQ(std::wstring(L"a\0b", 3), std::wstring(psz, nLength));
    psz = cRead.GetItemText(1, &nLength);
    EXPECT_EQ(std::wstring(L"\xFFFDz"), std::wstring(psz, nLength));
    // And more items again.
    ASSERT_TRUE(Decode(strLong, cRead));
    EXPECT_EQ(cPath, cRead);
    // An empty path empties it.
    ASSERT_TRUE(Decode(std::string(), cRead));
    EXPECT_EQ(0u, cRead.GetItemCount());
}

TEST(VdbEncoding, StoredForms)
{
    std::string str;
    CFilePath cPath;
    cPath.Parse(L"a/\u00e9");
    Detail::EncodePath(cPath, str);
    EXPECT_EQ(str, std::string("\0\0\0\1a\0\0\0\2\xC3\xA9", 11));
    CFilePath cBack;
    EXPECT_TRUE(Detail::DecodePath(reinterpret_cast<const unsigned char*>(str.data()), str.size(), cBack));
    EXPECT_EQ(cBack, cPath);
    EXPECT_FALSE(Detail::DecodePath(reinterpret_cast<const unsigned char*>(str.data()), str.size() - 1, cBack));
    EXPECT_EQ(cBack.GetItemCount(), 0u);

    str.clear();
    CProperties cProps;
    cProps.SetProperty(0x0102, 5u);
    Detail::EncodeProperties(cProps, str);
    EXPECT_EQ(str, std::string("\1\2\0\0\0\4\0\0\0\5", 10));
    CProperties cPropsBack;
    EXPECT_TRUE(Detail::DecodeProperties(reinterpret_cast<const unsigned char*>(str.data()), str.size(), cPropsBack));
    EXPECT_EQ(cPropsBack, cProps);
}
