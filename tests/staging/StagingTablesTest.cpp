// The staging tables: their exact definitions, the binding of the records'
// members, and the tables at work in a database.
#include <dirent.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "DatabaseFixture.h"
#include "mce/MCE.h"

using namespace ORVANE;
using namespace ORVANE::MCE;
using namespace ORVANE::VDB;
using ORVANE::VCM::CString;

namespace {

struct TField
{
    const wchar_t* pszName;
    uint32_t nType;
};

void ExpectFields(const TFieldDef* pDefs, const std::vector<TField>& aExpected)
{
    size_t i = 0;
    for (; i < aExpected.size(); ++i)
    {
        ASSERT_NE(pDefs[i].pszName, nullptr) << i;
        EXPECT_STREQ(pDefs[i].pszName, aExpected[i].pszName) << i;
        EXPECT_EQ(pDefs[i].nType, aExpected[i].nType) << i;
        EXPECT_EQ(pDefs[i].nReserved, 0u) << i;
    }
    EXPECT_EQ(pDefs[i].pszName, nullptr);
    EXPECT_EQ(pDefs[i].nType, 0u);
    EXPECT_EQ(pDefs[i].nReserved, 0u);
}

void ExpectIndex(const TIndexDef& tIndex, std::vector<unsigned char> abStart)
{
    abStart.resize(32, 0);
    EXPECT_EQ(std::vector<unsigned char>(tIndex.abData, tIndex.abData + 32), abStart);
}

void ExpectBindings(const TFieldBinding* pBindings, const TFieldDef* pDefs, const std::type_info& tRecord)
{
    size_t i = 0;
    for (; pDefs[i].pszName; ++i)
    {
        EXPECT_STREQ(pBindings[i].pszName, pDefs[i].pszName) << i;
        EXPECT_EQ(pBindings[i].nType, pDefs[i].nType) << i;
        EXPECT_EQ(*pBindings[i].pRecordType, tRecord) << i;
    }
    EXPECT_EQ(pBindings[i].pszName, nullptr);
    EXPECT_EQ(pBindings[i].nType, 0u);
}

} // namespace

TEST(StagingDefinitions, Change)
{
    CChangeTable cTable(nullptr);
    EXPECT_EQ(cTable.GetFileDef(), &CChangeTable::s_tFileDef);
    EXPECT_EQ(cTable.GetFieldDefs(), CChangeTable::s_atFieldDefs);
    EXPECT_EQ(cTable.GetIndexDefs(), CChangeTable::s_atIndexDefs);
    EXPECT_STREQ(CChangeTable::s_tFileDef.pszName, L"change");
    EXPECT_EQ(CChangeTable::s_tFileDef.nFlags, 1u);
    ExpectFields(CChangeTable::s_atFieldDefs, {{L"ID", 3},
                                               {L"ProviderID", 3},
                                               {L"StreamID", 3},
                                               {L"User", 4},
                                               {L"Time", 3},
                                               {L"Comment", 5},
                                               {L"NextItem", 3},
                                               {L"Props", 13}});
    ExpectIndex(CChangeTable::s_atIndexDefs[0], {0x00, 0x00, 0x01, 0x00, 0x00, 0x00});
    ExpectIndex(CChangeTable::s_atIndexDefs[1], {0x01, 0x00, 0x02, 0x00, 0x02, 0x00, 0x04, 0x00});
    ExpectIndex(CChangeTable::s_atIndexDefs[2], {});
    EXPECT_FALSE(cTable.IsOpen());
}

TEST(StagingDefinitions, ChangeItems)
{
    CChangeItemTable cTable(nullptr);
    EXPECT_EQ(cTable.GetFileDef(), &CChangeItemTable::s_tFileDef);
    EXPECT_EQ(cTable.GetFieldDefs(), CChangeItemTable::s_atFieldDefs);
    EXPECT_EQ(cTable.GetIndexDefs(), CChangeItemTable::s_atIndexDefs);
    EXPECT_STREQ(CChangeItemTable::s_tFileDef.pszName, L"citems");
    EXPECT_EQ(CChangeItemTable::s_tFileDef.nFlags, 0u);
    ExpectFields(CChangeItemTable::s_atFieldDefs, {{L"ID", 3},
                                                   {L"Item", 3},
                                                   {L"Type", 3},
                                                   {L"FilePath", 12},
                                                   {L"Revision", 3},
                                                   {L"Props", 13},
                                                   {L"Timestamp", 11}});
    ExpectIndex(CChangeItemTable::s_atIndexDefs[0], {0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00});
    ExpectIndex(CChangeItemTable::s_atIndexDefs[1], {});
}

TEST(StagingDefinitions, FileWithItsDuplicateName)
{
    CFileTable cTable;
    EXPECT_EQ(cTable.GetFileDef(), &CFileTable::s_tFileDef);
    EXPECT_EQ(cTable.GetFieldDefs(), CFileTable::s_atFieldDefs);
    EXPECT_EQ(cTable.GetIndexDefs(), CFileTable::s_atIndexDefs);
    EXPECT_STREQ(CFileTable::s_tFileDef.pszName, L"file");
    EXPECT_EQ(CFileTable::s_tFileDef.nFlags, 1u);
    ExpectFields(CFileTable::s_atFieldDefs, {{L"ID", 3}, {L"Path", 12}, {L"Path", 13}});
    ExpectIndex(CFileTable::s_atIndexDefs[0], {0x00, 0x00, 0x01, 0x00, 0x00, 0x00});
    ExpectIndex(CFileTable::s_atIndexDefs[1], {});
}

TEST(StagingDefinitions, Folder)
{
    CFolderTable cTable;
    EXPECT_EQ(cTable.GetFileDef(), &CFolderTable::s_tFileDef);
    EXPECT_EQ(cTable.GetFieldDefs(), CFolderTable::s_atFieldDefs);
    EXPECT_EQ(cTable.GetIndexDefs(), CFolderTable::s_atIndexDefs);
    EXPECT_STREQ(CFolderTable::s_tFileDef.pszName, L"folder");
    EXPECT_EQ(CFolderTable::s_tFileDef.nFlags, 1u);
    ExpectFields(CFolderTable::s_atFieldDefs, {{L"ID", 3}});
    ExpectIndex(CFolderTable::s_atIndexDefs[0], {0x00, 0x00, 0x01, 0x00, 0x00, 0x00});
    ExpectIndex(CFolderTable::s_atIndexDefs[1], {});
}

TEST(StagingBindings, EachFieldIsBoundToItsMember)
{
    ExpectBindings(CChangeTable::s_atFieldBindings, CChangeTable::s_atFieldDefs, typeid(TChangeRecord));
    ExpectBindings(CChangeItemTable::s_atFieldBindings, CChangeItemTable::s_atFieldDefs, typeid(TChangeItemRecord));
    ExpectBindings(CFileTable::s_atFieldBindings, CFileTable::s_atFieldDefs, typeid(TFileRecord));
    ExpectBindings(CFolderTable::s_atFieldBindings, CFolderTable::s_atFieldDefs, typeid(TFolderRecord));
    EXPECT_EQ(CChangeTable(nullptr).GetFieldBindings(), CChangeTable::s_atFieldBindings);
    EXPECT_EQ(CChangeItemTable(nullptr).GetFieldBindings(), CChangeItemTable::s_atFieldBindings);

    // change: each number field reaches its own member.
    const TFieldBinding* pChange = CChangeTable::s_atFieldBindings;
    TChangeRecord c;
    pChange[0].pfnSetNumber(&c, 10);
    pChange[1].pfnSetNumber(&c, 11);
    pChange[2].pfnSetNumber(&c, 12);
    pChange[4].pfnSetNumber(&c, 4294967295u);
    pChange[6].pfnSetNumber(&c, 16);
    EXPECT_EQ(c.nID, 10u);
    EXPECT_EQ(c.nProviderID, 11u);
    EXPECT_EQ(c.nStreamID, 12u);
    EXPECT_EQ(c.tTime, -1); // a long time: the signed 32-bit value
    EXPECT_EQ(c.nNextItem, 16u);
    EXPECT_EQ(pChange[4].pfnGetNumber(&c), 4294967295u);
    EXPECT_EQ(pChange[3].pfnMember(&c), static_cast<void*>(&c.strUser));
    EXPECT_EQ(pChange[5].pfnMember(&c), static_cast<void*>(&c.strComment));
    EXPECT_EQ(pChange[7].pfnMember(&c), static_cast<void*>(&c.cProps));

    const TFieldBinding* pItem = CChangeItemTable::s_atFieldBindings;
    TChangeItemRecord i;
    pItem[0].pfnSetNumber(&i, 20);
    pItem[1].pfnSetNumber(&i, 21);
    pItem[2].pfnSetNumber(&i, 2);
    pItem[4].pfnSetNumber(&i, 24);
    EXPECT_EQ(i.nID, 20u);
    EXPECT_EQ(i.nItem, 21u);
    EXPECT_EQ(i.eType, eChangeItemDelete);
    EXPECT_EQ(i.nRevision, 24u);
    EXPECT_EQ(pItem[3].pfnMember(&i), static_cast<void*>(&i.cFilePath));
    EXPECT_EQ(pItem[5].pfnMember(&i), static_cast<void*>(&i.cProps));
    EXPECT_EQ(pItem[6].pfnMember(&i), static_cast<void*>(&i.cTimestamp));

    TFileRecord f;
    CFileTable::s_atFieldBindings[0].pfnSetNumber(&f, 30);
    EXPECT_EQ(f.nID, 30u);
    EXPECT_EQ(CFileTable::s_atFieldBindings[1].pfnMember(&f), static_cast<void*>(&f.cPath));
    EXPECT_EQ(CFileTable::s_atFieldBindings[2].pfnMember(&f), static_cast<void*>(&f.cProps));
    TFolderRecord d;
    CFolderTable::s_atFieldBindings[0].pfnSetNumber(&d, 40);
    EXPECT_EQ(d.nID, 40u);
}

namespace {

class StagingDatabase : public ORVANE::TEST::CDatabaseFixture
{
protected:
    void SetUp() override
    {
        OpenDatabase("orvane-em-1");
        m_cChanges.Open(m_pDb, nullptr, m_pTx, false);
        m_cItems.Open(m_pDb, nullptr, m_pTx, false);
        ASSERT_TRUE(m_cChanges.IsOpen());
        ASSERT_TRUE(m_cItems.IsOpen());
    }
    void TearDown() override
    {
        delete m_pTx;
        m_pTx = nullptr;
        m_cChanges.Close();
        m_cItems.Close();
        CloseDatabase();
        for (const char* pszSuffix : {"orvane-em-1.tdf", "orvane-em-1.tlf"})
            ::unlink(m_cFolder.File(pszSuffix).c_str());
        EXPECT_TRUE(m_cFolder.List().empty()); // nothing else was left
    }

    unsigned AddChange(unsigned nStream, long tTime, const wchar_t* pszComment)
    {
        CIterator<TChangeRecord> cIt = m_cChanges.GetStreamTimeIterator(m_pTx);
        TChangeRecord t;
        t.nStreamID = nStream;
        t.tTime = tTime;
        t.strComment = pszComment;
        EXPECT_TRUE(cIt.Add(&t, false));
        return t.nID;
    }

    CChangeTable m_cChanges{nullptr};
    CChangeItemTable m_cItems{nullptr};
};

} // namespace

TEST_F(StagingDatabase, IteratorsWalkTheirIndexes)
{
    EXPECT_EQ(m_cChanges.GetIterator(m_pTx).GetIndex(), 0);
    EXPECT_EQ(m_cChanges.GetStreamTimeIterator(m_pTx).GetIndex(), 1);
    EXPECT_EQ(m_cItems.GetIterator(m_pTx).GetIndex(), 0);
    EXPECT_TRUE(m_cChanges.GetIterator(m_pTx).IsOpen());
}

TEST_F(StagingDatabase, TwoAddsWithIDZeroGiveTwoNewIDs)
{
    CIterator<TChangeRecord> cIt = m_cChanges.GetStreamTimeIterator(m_pTx);
    TChangeRecord t;
    t.nID = 0;
    ASSERT_TRUE(cIt.Add(&t, false));
    const unsigned nFirst = t.nID;
    t.nID = 0;
    ASSERT_TRUE(cIt.Add(&t, false));
    EXPECT_NE(nFirst, 0u);
    EXPECT_NE(t.nID, 0u);
    EXPECT_NE(t.nID, nFirst);
}

TEST_F(StagingDatabase, EqualStreamAndTimeAreBothReached)
{
    const unsigned nA = AddChange(1, 1000, L"a");
    const unsigned nB = AddChange(1, 1000, L"b");
    AddChange(2, 500, L"other stream");
    AddChange(1, 900, L"earlier");
    CIterator<TChangeRecord> cIt = m_cChanges.GetStreamTimeIterator(m_pTx);
    TChangeRecord t;
    t.nStreamID = 1;
    t.tTime = 0;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.strComment, L"earlier");
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.nID, nA);
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.nID, nB);
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.nStreamID, 2u);
    EXPECT_FALSE(cIt.GetNext(&t, false));
    // The latest change of stream 1 at or before 950, and before its first.
    t.nStreamID = 1;
    t.tTime = 950;
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strComment, L"earlier");
    t.nStreamID = 2;
    t.tTime = 499;
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.nStreamID, 1u); // another stream's: the caller checks the stream
    t.nStreamID = 1;
    t.tTime = 899;
    EXPECT_FALSE(cIt.GetLTE(&t, false));
}

TEST_F(StagingDatabase, ChangesRoundTripEveryField)
{
    TChangeRecord t;
    t.nProviderID = 4711;
    t.nStreamID = 3;
    t.strUser = L"m\u00fcller";
    t.tTime = 1700000000;
    t.strComment = L"Fix A.\nFix \u00df.";
    t.nNextItem = 7;
    t.SetBaseTime(1699999999);
    t.SetMaxTime(static_cast<unsigned int>(-1));
    CIterator<TChangeRecord> cIt = m_cChanges.GetIterator(m_pTx);
    ASSERT_TRUE(cIt.Add(&t, false));
    ASSERT_TRUE(m_pTx->Commit());
    delete m_pTx;
    m_pTx = new CTransaction(m_pDb, 60000);
    CIterator<TChangeRecord> cRead = m_cChanges.GetIterator(m_pTx);
    TChangeRecord r;
    r.nID = t.nID;
    ASSERT_TRUE(cRead.GetEqual(&r, false));
    EXPECT_EQ(r.nProviderID, 4711u);
    EXPECT_EQ(r.nStreamID, 3u);
    EXPECT_EQ(r.strUser, t.strUser);
    EXPECT_EQ(r.tTime, 1700000000);
    EXPECT_EQ(r.strComment, t.strComment);
    EXPECT_EQ(r.nNextItem, 7u);
    EXPECT_EQ(r.GetBaseTime(), 1699999999);
    EXPECT_EQ(r.GetMaxTime(), -1);
    EXPECT_EQ(r.cProps, t.cProps);
}

TEST_F(StagingDatabase, ItemsAreKeyedByChangeAndNumber)
{
    CIterator<TChangeItemRecord> cIt = m_cItems.GetIterator(m_pTx);
    const unsigned anChanges[] = {2, 1, 2, 1, 1};
    const unsigned anItems[] = {1, 2, 2, 1, 3};
    for (int n = 0; n < 5; ++n)
    {
        TChangeItemRecord t;
        t.nID = anChanges[n];
        t.nItem = anItems[n];
        t.eType = static_cast<TChangeItemType>(n % 3);
        t.cFilePath.Parse(wxString::Format(L"dir %d/f\u00fcle %d.txt", n, n).wc_str());
        t.nRevision = static_cast<unsigned>(10 + n);
        TCVSRevision tRevision;
        tRevision.Add(1);
        tRevision.Add(static_cast<unsigned>(n));
        t.SetCVSRevision(tRevision);
        t.cTimestamp.Set(1000 + n);
        ASSERT_TRUE(cIt.Add(&t, false));
    }
    TChangeItemRecord t;
    t.nID = 1;
    t.nItem = 2;
    EXPECT_FALSE(cIt.Add(&t, false)); // (1, 2) is there already

    // The items of change 1, from item 0 on.
    t.nID = 1;
    t.nItem = 0;
    std::vector<unsigned> anSeen;
    for (bool b = cIt.GetGTE(&t, false); b && t.nID == 1; b = cIt.GetNext(&t, false))
        anSeen.push_back(t.nItem);
    EXPECT_EQ(anSeen, (std::vector<unsigned>{1, 2, 3}));
    EXPECT_EQ(t.nID, 2u);
    EXPECT_EQ(t.nItem, 1u);
    EXPECT_EQ(t.eType, eChangeItemAdd);
    EXPECT_EQ(t.cFilePath.GeneratePath(L'/', true), L"dir 0/f\u00fcle 0.txt");
    EXPECT_EQ(t.nRevision, 10u);
    EXPECT_EQ(t.cTimestamp.GetUTC(), 1000);
    CString str;
    ASSERT_TRUE(t.cProps.GetProperty(1, str));
    EXPECT_EQ(str, L"1.0");
    t.nID = 1;
    t.nItem = 3;
    ASSERT_TRUE(cIt.GetEqual(&t, false));
    EXPECT_EQ(t.eType, eChangeItemModify);
    EXPECT_EQ(t.cFilePath.GetItemCount(), 2u);
    t.nID = 3;
    t.nItem = 0;
    EXPECT_FALSE(cIt.GetGTE(&t, false));
}

TEST_F(StagingDatabase, RaisingATimeMovesTheChangeWithinTheStreamTimeIndex)
{
    const unsigned nC = AddChange(1, 1000, L"C");
    AddChange(1, 1100, L"D");
    AddChange(1, 1300, L"E");
    CIterator<TChangeRecord> cIt = m_cChanges.GetStreamTimeIterator(m_pTx);
    TChangeRecord t;
    t.nStreamID = 1;
    t.tTime = 700;
    ASSERT_TRUE(cIt.GetGTE(&t, true));
    ASSERT_EQ(t.nID, nC);
    t.tTime = 1200;
    t.nNextItem = 3;
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_EQ(t.nID, nC);
    // The cursor follows C to (1, 1200): next comes E, not D.
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strComment, L"E");
    std::vector<std::wstring> astr;
    t.nStreamID = 1;
    t.tTime = 0;
    for (bool b = cIt.GetGTE(&t, false); b; b = cIt.GetNext(&t, false))
        astr.push_back(t.strComment.ToStdWstring());
    EXPECT_EQ(astr, (std::vector<std::wstring>{L"D", L"C", L"E"}));
    // By ID it is still one record.
    CIterator<TChangeRecord> cById = m_cChanges.GetIterator(m_pTx);
    t.nID = nC;
    ASSERT_TRUE(cById.GetEqual(&t, true));
    EXPECT_EQ(t.tTime, 1200);
    EXPECT_EQ(t.nNextItem, 3u);
    t.nNextItem = 9;
    ASSERT_TRUE(cById.Update(&t, false));
    t.nID = nC;
    t.nNextItem = 0;
    ASSERT_TRUE(cById.GetEqual(&t, false));
    EXPECT_EQ(t.nNextItem, 9u);
}

TEST_F(StagingDatabase, AnAddWithAStaleIDStillGetsANewOne)
{
    const unsigned nFirst = AddChange(1, 1000, L"first");
    CIterator<TChangeRecord> cIt = m_cChanges.GetStreamTimeIterator(m_pTx);
    TChangeRecord t;
    t.nStreamID = 1;
    t.tTime = 700;
    ASSERT_TRUE(cIt.GetGTE(&t, true)); // the buffer now holds the first's ID
    ASSERT_EQ(t.nID, nFirst);
    t.tTime = 1500;
    t.strComment = L"second";
    ASSERT_TRUE(cIt.Add(&t, false));
    EXPECT_NE(t.nID, nFirst);
    EXPECT_NE(t.nID, 0u);
    CIterator<TChangeRecord> cById = m_cChanges.GetIterator(m_pTx);
    TChangeRecord r;
    r.nID = nFirst;
    ASSERT_TRUE(cById.GetEqual(&r, false));
    EXPECT_EQ(r.strComment, L"first");
}

TEST_F(StagingDatabase, TheDeclaredTablesWorkToo)
{
    CFileTable cFiles;
    ASSERT_TRUE(cFiles.Open(m_pDb, nullptr, m_pTx, false));
    CIterator<TFileRecord> cIt(&cFiles, 0, m_pTx);
    ASSERT_TRUE(cIt.IsOpen());
    TFileRecord t;
    t.cPath.Parse(L"a/b");
    t.cProps.SetProperty(2, 3u);
    ASSERT_TRUE(cIt.Add(&t, false));
    TFileRecord r;
    r.nID = t.nID;
    ASSERT_TRUE(cIt.GetEqual(&r, false));
    EXPECT_EQ(r.cPath, t.cPath);
    EXPECT_EQ(r.cProps, t.cProps);

    CFolderTable cFolders;
    ASSERT_TRUE(cFolders.Open(m_pDb, nullptr, m_pTx, false));
    CIterator<TFolderRecord> cFolderIt(&cFolders, 0, m_pTx);
    TFolderRecord d;
    d.cCurrent.m_cPath.Parse(L"not/stored");
    ASSERT_TRUE(cFolderIt.Add(&d, false));
    EXPECT_NE(d.nID, 0u);
    TFolderRecord e;
    e.nID = d.nID;
    ASSERT_TRUE(cFolderIt.GetEqual(&e, false));
    EXPECT_EQ(e.cCurrent.m_cPath.GetItemCount(), 0u);
}

TEST_F(StagingDatabase, GivingUpTheTransactionLosesTheRecords)
{
    AddChange(1, 1000, L"gone");
    delete m_pTx;
    m_pTx = new CTransaction(m_pDb, 60000);
    m_cChanges.Open(m_pDb, nullptr, m_pTx, false);
    CIterator<TChangeRecord> cIt = m_cChanges.GetIterator(m_pTx);
    TChangeRecord t;
    EXPECT_FALSE(cIt.GetFirst(&t, false));
}
