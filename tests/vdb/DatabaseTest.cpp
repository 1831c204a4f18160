// Databases, their two files, their safety rules, tables and transactions.
#include <fcntl.h>
#include <sqlite3.h>

#include <fstream>

#include "VdbTestSupport.h"
#include "host/VDBStore.h"

using namespace VdbTest;

namespace {

// Adds a sample record with the given group, time and name.
bool AddSample(CIterator<TSampleRecord>& cIt, unsigned nGroup, long tTime, const wchar_t* pszName,
               unsigned* pnID = nullptr)
{
    TSampleRecord t;
    t.nGroup = nGroup;
    t.tTime = tTime;
    t.strName = pszName;
    const bool bOk = cIt.Add(&t, false);
    if (pnID)
        *pnID = t.nID;
    return bOk;
}

struct TSample
{
    unsigned nGroup;
    long tTime;
    const wchar_t* pszName;
};

// Opens the table in a transaction of its own, adds the samples through the
// index given and commits.
::testing::AssertionResult AddCommitted(CDatabase* pDb, CSampleTable& cTable, int nIndex,
                                        const std::vector<TSample>& atSamples)
{
    CTransaction cTx(pDb, 60000);
    if (!cTable.Open(pDb, nullptr, &cTx, false))
        return ::testing::AssertionFailure() << "the table does not open";
    CIterator<TSampleRecord> cIt(&cTable, nIndex, &cTx);
    for (const TSample& t : atSamples)
        if (!AddSample(cIt, t.nGroup, t.tTime, t.pszName))
            return ::testing::AssertionFailure() << "cannot add " << wxString(t.pszName);
    cIt.Close();
    if (!cTx.Commit(false, nullptr, nullptr))
        return ::testing::AssertionFailure() << "the commit failed";
    return ::testing::AssertionSuccess();
}

int CountAll(CTable& cTable, CTransaction* pTransaction)
{
    CIterator<TSampleRecord> cIt(&cTable, 0, pTransaction);
    TSampleRecord t;
    int n = 0;
    for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
        ++n;
    return n;
}

} // namespace

TEST(VdbFactory, CreatesTheTwoFilesAndNothingElse)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    EXPECT_EQ(cFolder.List(), TwoFiles());
    EXPECT_STREQ(pDb->GetPath(), wxString(cFolder.File("db")).wc_str());
    pDb->Release();
    pDb = nullptr;
    // Released: the files stay for their owner to remove.
    EXPECT_EQ(cFolder.List(), TwoFiles());
}

TEST(VdbFactory, RefusesMalformedConnectionStrings)
{
    CTempFolder cFolder;
    const std::string strBase = cFolder.File("db");
    const wxString strPath(strBase);
    const wchar_t* apszBad[] = {
        L"",
        L"type=native;create=1;nobinaries=1",
        L"type=other;path=%s;create=1;nobinaries=1",
        L"type=native;path=%s;create=0;nobinaries=1",
        L"type=native;path=%s;create=1;nobinaries=2",
        L"type=native;path=%s;create=1;nobinaries=1;colour=blue",
        L"type=native;path=%s;path=%s;create=1",
        L"type=native;path=;create=1",
        L"path=%s;create=1",
        L"type=native;path=%s;create",
    };
    for (const wchar_t* pszFormat : apszBad)
    {
        CString str;
        str.Format(pszFormat, strPath.wc_str(), strPath.wc_str());
        EXPECT_EQ(CDatabaseFactory::Create(str), nullptr) << str;
    }
    EXPECT_EQ(CDatabaseFactory::Create(nullptr), nullptr);
    EXPECT_TRUE(cFolder.List().empty());

    // Order and nobinaries=0 do not matter.
    CString str;
    str.Format(L"nobinaries=0;create=1;path=%s;type=native", strPath.wc_str());
    CDatabase* pDb = CDatabaseFactory::Create(str);
    CReleaser cRelease{pDb};
    EXPECT_NE(pDb, nullptr);
}

TEST(VdbFactory, RefusesAFolderThatDoesNotExist)
{
    CTempFolder cFolder;
    EXPECT_EQ(CDatabaseFactory::Create(cFolder.Connection("missing/db")), nullptr);
    EXPECT_TRUE(cFolder.List().empty());
}

TEST(VdbFactory, RefusesSymbolicLinks)
{
    CTempFolder cFolder;
    const std::string strTarget = cFolder.File("target");
    std::ofstream(strTarget) << "keep me";
    for (const char* pszSuffix : {".tdf", ".tlf"})
    {
        const std::string strLink = cFolder.File(std::string("db") + pszSuffix);
        ASSERT_EQ(::symlink(strTarget.c_str(), strLink.c_str()), 0);
        EXPECT_EQ(CDatabaseFactory::Create(cFolder.Connection()), nullptr) << pszSuffix;
        ::unlink(strLink.c_str());
        // A link to nowhere as well.
        ASSERT_EQ(::symlink(cFolder.File("nowhere").c_str(), strLink.c_str()), 0);
        EXPECT_EQ(CDatabaseFactory::Create(cFolder.Connection()), nullptr) << pszSuffix;
        EXPECT_FALSE(FileExists(cFolder.File("nowhere")));
        ::unlink(strLink.c_str());
    }
    std::ifstream cIn(strTarget);
    std::string strText;
    std::getline(cIn, strText);
    EXPECT_EQ(strText, "keep me");
    EXPECT_EQ(cFolder.List(), std::vector<std::string>{"target"});
}

TEST(VdbFactory, RefusesWhatIsNotARegularFile)
{
    CTempFolder cFolder;
    ASSERT_EQ(::mkdir(cFolder.File("db.tlf").c_str(), 0700), 0);
    EXPECT_EQ(CDatabaseFactory::Create(cFolder.Connection()), nullptr);
    ::rmdir(cFolder.File("db.tlf").c_str());
}

TEST(VdbFactory, RefusesFilesOfAnotherUser)
{
    if (::geteuid() != 0)
    {
        GTEST_SKIP() << "needs root to give a file to another user";
    }
    CTempFolder cFolder;
    for (const char* pszSuffix : {".tdf", ".tlf"})
    {
        const std::string strFile = cFolder.File(std::string("db") + pszSuffix);
        std::ofstream(strFile) << "someone else's";
        ASSERT_EQ(::chown(strFile.c_str(), 65534, 65534), 0);
        EXPECT_EQ(CDatabaseFactory::Create(cFolder.Connection()), nullptr) << pszSuffix;
        EXPECT_TRUE(FileExists(strFile));
        ::unlink(strFile.c_str());
    }
}

TEST(VdbFactory, ReplacesStaleFiles)
{
    CTempFolder cFolder;
    // A database left behind by an earlier run.
    {
        CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
        ASSERT_NE(pDb, nullptr);
        CSampleTable cTable;
        ASSERT_TRUE(AddCommitted(pDb, cTable, 0, {{1, 100, L"old"}}));
        cTable.Close();
        pDb->Release();
    }
    struct stat tOld;
    ASSERT_EQ(::stat(cFolder.File("db.tdf").c_str(), &tOld), 0);
    EXPECT_GT(tOld.st_size, 0);

    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    EXPECT_EQ(cFolder.List(), TwoFiles());
    CSampleTable cTable;
    CTransaction cTx(pDb, 60000);
    // The old table is gone: the files were made anew.
    EXPECT_FALSE(cTable.Open(pDb, nullptr, &cTx, true));
    ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
    EXPECT_EQ(CountAll(cTable, &cTx), 0);
}

TEST(VdbFactory, ReplacesStaleJunk)
{
    CTempFolder cFolder;
    std::ofstream(cFolder.File("db.tdf")) << "not a database at all";
    std::ofstream(cFolder.File("db.tlf")) << "not a journal either";
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    CTransaction cTx(pDb, 60000);
    ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
    CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
    EXPECT_TRUE(AddSample(cIt, 1, 1, L"new"));
    EXPECT_EQ(CountAll(cTable, &cTx), 1);
}

TEST(VdbFactory, ALeftoverJournalAloneIsReplacedToo)
{
    CTempFolder cFolder;
    std::ofstream(cFolder.File("db.tlf")) << "stale";
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    struct stat tStat;
    ASSERT_EQ(::stat(cFolder.File("db.tlf").c_str(), &tStat), 0);
    EXPECT_EQ(tStat.st_size, 0);
}

TEST(VdbFactory, RefusesAPathHeldByAnOpenDatabase)
{
    CTempFolder cFolder;
    CDatabase* pFirst = CDatabaseFactory::Create(cFolder.Connection());
    ASSERT_NE(pFirst, nullptr);
    EXPECT_EQ(CDatabaseFactory::Create(cFolder.Connection()), nullptr);
    pFirst->Release();
    CDatabase* pSecond = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pSecond};
    EXPECT_NE(pSecond, nullptr);
}

TEST(VdbFactory, FilesArePrivate)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    for (const std::string& strName : TwoFiles())
    {
        struct stat tStat;
        ASSERT_EQ(::lstat(cFolder.File(strName).c_str(), &tStat), 0);
        EXPECT_TRUE(S_ISREG(tStat.st_mode));
        EXPECT_EQ(tStat.st_mode & 0777, 0600u) << strName;
        EXPECT_EQ(tStat.st_uid, ::geteuid());
    }
}

TEST(VdbFiles, OnlyTheTwoFilesExistDuringAndAfterABigTransaction)
{
    CTempFolder cFolder;
    const unsigned long nRefused = Detail::GetRefusedFileCount();
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    {
        CTransaction cTx(pDb, 60000);
        ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
        EXPECT_EQ(cFolder.List(), TwoFiles());
        CIterator<TSampleRecord> cIt(&cTable, 1, &cTx);
        // Far more than the page cache holds, so that pages go to the
        // files, and the journal is written, before the commit.
        TSampleRecord t;
        t.strText = CString(wxString(L'x', 2000));
        for (unsigned i = 0; i < 12000; ++i)
        {
            t.nGroup = i % 7;
            t.tTime = static_cast<long>(i);
            t.strName.Printf(L"name %u", i);
            ASSERT_TRUE(cIt.Add(&t, false));
            if (i % 3000 == 0)
            {
                EXPECT_EQ(cFolder.List(), TwoFiles()) << i;
            }
        }
        // A nested transaction (a savepoint) and an update of many rows.
        {
            CTransaction cInner(pDb, 60000);
            CIterator<TSampleRecord> cInnerIt(&cTable, 0, &cInner);
            for (bool b = cInnerIt.GetFirst(&t, false); b; b = cInnerIt.GetNext(&t, false))
            {
                t.strText = L"short";
                ASSERT_TRUE(cInnerIt.Update(&t, false));
            }
            EXPECT_EQ(cFolder.List(), TwoFiles());
        }
        EXPECT_EQ(cFolder.List(), TwoFiles());
        struct stat tJournal;
        ASSERT_EQ(::stat(cFolder.File("db.tlf").c_str(), &tJournal), 0);
        cIt.Close();
        ASSERT_TRUE(cTx.Commit(false, nullptr, nullptr));
    }
    EXPECT_EQ(cFolder.List(), TwoFiles());
    {
        // Read the records back after the commit; the given-up nested
        // transaction left the long texts.
        CTransaction cTx(pDb, 60000);
        CIterator<TSampleRecord> cIt(&cTable, 2, &cTx);
        TSampleRecord t;
        t.strName = L"name 11999";
        ASSERT_TRUE(cIt.GetEqual(&t, false));
        EXPECT_EQ(t.strText.length(), 2000u);
        EXPECT_EQ(cFolder.List(), TwoFiles());
    }
    EXPECT_EQ(Detail::GetRefusedFileCount(), nRefused);
}

TEST(VdbFiles, TheJournalIsTheRollbackJournal)
{
    // The records committed are in "<path>.tdf" as an SQLite database; the
    // rollback journal of a transaction in progress is "<path>.tlf".
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    {
        CTransaction cTx(pDb, 60000);
        ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
        CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
        ASSERT_TRUE(AddSample(cIt, 1, -1, L"minus one"));
        ASSERT_TRUE(cTx.Commit());
    }
    {
        CTransaction cTx(pDb, 60000);
        CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
        TSampleRecord t;
        ASSERT_TRUE(cIt.GetFirst(&t, false));
        t.strText = L"changed";
        ASSERT_TRUE(cIt.Update(&t, false));
        struct stat tJournal;
        ASSERT_EQ(::stat(cFolder.File("db.tlf").c_str(), &tJournal), 0);
        EXPECT_GT(tJournal.st_size, 0); // the original page is journalled
    }
    cTable.Close();
    pDb->Release();

    sqlite3* pRaw = nullptr;
    ASSERT_EQ(sqlite3_open_v2(cFolder.File("db.tdf").c_str(), &pRaw, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt* pStmt = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(pRaw, "SELECT f2, f4 FROM sample", -1, &pStmt, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(pStmt), SQLITE_ROW);
    // A time of -1 is stored as the unsigned 32-bit value.
    EXPECT_EQ(sqlite3_column_int64(pStmt, 0), 4294967295LL);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(pStmt, 1)), ""); // the update was given up
    sqlite3_finalize(pStmt);
    sqlite3_close(pRaw);
}

TEST(VdbTable, AnIndexWithRepeatableKeysCarriesTheWholeRecord)
{
    // Walking "sample" by Group+Time reads that index alone: after its keys
    // come the ID (the order of equal keys) and every other field. The
    // unique Name index holds its key only.
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    ASSERT_TRUE(AddCommitted(pDb, cTable, 1, {{2, 20, L"b"}, {1, 30, L"c"}, {2, 10, L"a"}}));
    {
        CTransaction cTx(pDb, 60000);
        CIterator<TSampleRecord> cIt(&cTable, 1, &cTx);
        TSampleRecord t;
        std::wstring strOrder;
        for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
            strOrder += std::wstring(t.strName.wc_str()) + std::to_wstring(t.nID);
        EXPECT_EQ(strOrder, L"c2a3b1");
    }
    cTable.Close();
    pDb->Release();

    sqlite3* pRaw = nullptr;
    ASSERT_EQ(sqlite3_open_v2(cFolder.File("db.tdf").c_str(), &pRaw, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    // The texts of one column of every row of a statement, each ended by ';'.
    const auto Column = [pRaw](const char* pszSql, int nColumn) {
        sqlite3_stmt* pStmt = nullptr;
        std::string str;
        if (sqlite3_prepare_v2(pRaw, pszSql, -1, &pStmt, nullptr) != SQLITE_OK)
            return std::string("cannot prepare: ") + sqlite3_errmsg(pRaw);
        while (sqlite3_step(pStmt) == SQLITE_ROW)
            str += std::string(reinterpret_cast<const char*>(sqlite3_column_text(pStmt, nColumn))) + ";";
        sqlite3_finalize(pStmt);
        return str;
    };
    EXPECT_EQ(Column("SELECT sql FROM sqlite_schema WHERE type='index' ORDER BY name", 0),
              "CREATE INDEX \"sample#1\" ON \"sample\"(f1,f2,f0,f3,f4,f5,f6,f7,f8);"
              "CREATE UNIQUE INDEX \"sample#2\" ON \"sample\"(f3);");
    // A step of the walk, as the cursor asks for it.
    EXPECT_EQ(Column("EXPLAIN QUERY PLAN SELECT f0,f1,f2,f3,f4,f5,f6,f7,f8,rowid FROM \"sample\" "
                     "WHERE (f1,f2,rowid)>(1,2,3) ORDER BY f1,f2,rowid",
                     3),
              "SEARCH sample USING COVERING INDEX sample#1 ((f1,f2)>(?,?));");
    sqlite3_close(pRaw);
}

TEST(VdbTable, OpensCreatesAndCloses)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    EXPECT_FALSE(cTable.IsOpen());
    cTable.Close(); // harmless when closed
    EXPECT_FALSE(cTable.Open(nullptr, nullptr, nullptr, false)); // no database at all
    CTransaction cTx(pDb, 60000);
    EXPECT_FALSE(cTable.Open(pDb, nullptr, &cTx, true)); // not there yet
    EXPECT_FALSE(cTable.IsOpen());
    ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
    EXPECT_TRUE(cTable.IsOpen());
    cTable.Close();
    EXPECT_FALSE(cTable.IsOpen());
    cTable.Close();
    EXPECT_TRUE(cTable.Open(pDb, nullptr, &cTx, true)); // there now

    // The database given to the constructor serves when Open gets none.
    CSampleTable cOther(pDb);
    EXPECT_TRUE(cOther.Open(nullptr, nullptr, &cTx, false));
    // Under another name: another table with the same definitions.
    CSampleTable cRenamed;
    ASSERT_TRUE(cRenamed.Open(pDb, L"sample copy", &cTx, false));
    CIterator<TSampleRecord> cIt(&cRenamed, 0, &cTx);
    ASSERT_TRUE(AddSample(cIt, 1, 1, L"one"));
    EXPECT_EQ(CountAll(cRenamed, &cTx), 1);
    EXPECT_EQ(CountAll(cTable, &cTx), 0);
}

namespace {

// Tables whose definitions are wrong in one way each.
struct CBadTable : public CTable
{
    CBadTable(const TFileDef* pFile, const TFieldDef* pFields, const TIndexDef* pIndexes, const TFieldBinding* pBindings)
        : CTable(nullptr, pBindings), m_pFile(pFile), m_pFields(pFields), m_pIndexes(pIndexes)
    {
    }
    const TFileDef* GetFileDef() const override { return m_pFile; }
    const TFieldDef* GetFieldDefs() const override { return m_pFields; }
    const TIndexDef* GetIndexDefs() const override { return m_pIndexes; }
    const TFileDef* m_pFile;
    const TFieldDef* m_pFields;
    const TIndexDef* m_pIndexes;
};

} // namespace

TEST(VdbTable, RefusesInconsistentDefinitions)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CTransaction cTx(pDb, 60000);
    const TFileDef* pFile = &CPairTable::s_tFileDef;
    const TFieldDef* pFields = CPairTable::s_atFieldDefs;
    const TIndexDef* pIndexes = CPairTable::s_atIndexDefs;
    const TFieldBinding* pBindings = CPairTable::s_atFieldBindings;

    EXPECT_TRUE(CBadTable(pFile, pFields, pIndexes, pBindings).Open(pDb, nullptr, &cTx, false));

    static const TIndexDef s_atKeyOutOfRange[] = {{{0, 0, 1, 0, 3, 0}}, {{0}}};
    static const TIndexDef s_atNoKeys[] = {{{0, 0, 0, 0, 0, 0}}, {{1}}, {{0}}};
    static const TIndexDef s_atBadFlags[] = {{{2, 0, 1, 0, 0, 0}}, {{0}}};
    static const TIndexDef s_atNoIndex[] = {{{0}}};
    static const TIndexDef s_atTrailingBytes[] = {{{0, 0, 1, 0, 0, 0, 0, 0, 9}}, {{0}}};
    for (const TIndexDef* pBad : {s_atKeyOutOfRange, s_atBadFlags, s_atNoIndex, s_atTrailingBytes})
        EXPECT_FALSE(CBadTable(pFile, pFields, pBad, pBindings).Open(pDb, L"bad", &cTx, false));
    (void)s_atNoKeys;

    static const TFieldDef s_atUnknownType[] = {{L"Major", 3, 0}, {L"Minor", 7, 0}, {L"Value", 4, 0}, {nullptr, 0, 0}};
    EXPECT_FALSE(CBadTable(pFile, s_atUnknownType, pIndexes, pBindings).Open(pDb, L"bad", &cTx, false));
    static const TFieldDef s_atRenamed[] = {{L"Major", 3, 0}, {L"Minor", 3, 0}, {L"Other", 4, 0}, {nullptr, 0, 0}};
    EXPECT_FALSE(CBadTable(pFile, s_atRenamed, pIndexes, pBindings).Open(pDb, L"bad", &cTx, false));
    static const TFieldDef s_atLonger[] = {
        {L"Major", 3, 0}, {L"Minor", 3, 0}, {L"Value", 4, 0}, {L"More", 3, 0}, {nullptr, 0, 0}};
    EXPECT_FALSE(CBadTable(pFile, s_atLonger, pIndexes, pBindings).Open(pDb, L"bad", &cTx, false));
    static const TFileDef s_tBadFlags = {L"pair", 2};
    EXPECT_FALSE(CBadTable(&s_tBadFlags, pFields, pIndexes, pBindings).Open(pDb, L"bad", &cTx, false));
    static const TFileDef s_tNoName = {nullptr, 0};
    EXPECT_FALSE(CBadTable(&s_tNoName, pFields, pIndexes, pBindings).Open(pDb, nullptr, &cTx, false));
    // No binding: the records could not be reached.
    EXPECT_FALSE(CBadTable(pFile, pFields, pIndexes, nullptr).Open(pDb, L"bad", &cTx, false));
    // A binding of another table's members.
    EXPECT_FALSE(CBadTable(pFile, pFields, pIndexes, CSampleTable::s_atFieldBindings).Open(pDb, L"bad", &cTx, false));
    // Same name, other definitions: refused, the table held is kept.
    static const TIndexDef s_atOtherIndexes[] = {{{0, 0, 1, 0, 0, 0}}, {{0}}};
    EXPECT_FALSE(CBadTable(pFile, pFields, s_atOtherIndexes, pBindings).Open(pDb, nullptr, &cTx, false));
    EXPECT_FALSE(CBadTable(pFile, pFields, pIndexes, pBindings).Open(pDb, L"bad", &cTx, true));
}

TEST(VdbTransaction, ReadsSeeTheTransactionsOwnWrites)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    CTransaction cTx(pDb, 60000);
    ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
    CIterator<TSampleRecord> cWriter(&cTable, 0, &cTx);
    unsigned nID = 0;
    ASSERT_TRUE(AddSample(cWriter, 5, 50, L"fifty", &nID));
    CIterator<TSampleRecord> cReader(&cTable, 2, &cTx);
    TSampleRecord t;
    t.strName = L"fifty";
    ASSERT_TRUE(cReader.GetEqual(&t, false));
    EXPECT_EQ(t.nID, nID);
    EXPECT_EQ(t.nGroup, 5u);
    EXPECT_EQ(t.tTime, 50);
}

TEST(VdbTransaction, DeletedWithoutCommitGivesUpItsWork)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    {
        CTransaction cTx(pDb, 60000);
        ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
        CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
        ASSERT_TRUE(AddSample(cIt, 1, 10, L"kept"));
        cIt.Close();
        ASSERT_TRUE(cTx.Commit(false, nullptr, nullptr));
        EXPECT_FALSE(cTx.IsActive());
        EXPECT_FALSE(cTx.Commit()); // once only
    }
    {
        CTransaction* pTx = new CTransaction(pDb, 60000);
        CIterator<TSampleRecord> cIt(&cTable, 0, pTx);
        ASSERT_TRUE(AddSample(cIt, 2, 20, L"lost"));
        TSampleRecord t;
        ASSERT_TRUE(cIt.GetFirst(&t, false));
        t.strName = L"renamed";
        ASSERT_TRUE(cIt.Update(&t, false));
        EXPECT_EQ(CountAll(cTable, pTx), 2);
        delete pTx;
        // The iterator outlives its transaction: it reads nothing any more.
        EXPECT_FALSE(cIt.GetFirst(&t, false));
        EXPECT_FALSE(AddSample(cIt, 3, 30, L"late"));
    }
    CTransaction cTx(pDb, 60000);
    CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
    TSampleRecord t;
    ASSERT_TRUE(cIt.GetFirst(&t, false));
    EXPECT_EQ(t.strName, L"kept");
    EXPECT_FALSE(cIt.GetNext(&t, false));
}

TEST(VdbTransaction, ATableMadeInAGivenUpTransactionIsMadeAgainWhenUsed)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    {
        CTransaction cTx(pDb, 60000);
        ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
        CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
        ASSERT_TRUE(AddSample(cIt, 1, 1, L"a"));
    }
    EXPECT_TRUE(cTable.IsOpen());
    CTransaction cTx(pDb, 60000);
    CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
    EXPECT_EQ(CountAll(cTable, &cTx), 0);
    ASSERT_TRUE(AddSample(cIt, 1, 1, L"a"));
    EXPECT_EQ(CountAll(cTable, &cTx), 1);
}

TEST(VdbTransaction, CommitCanContinue)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    {
        CTransaction cTx(pDb, 60000);
        ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
        CIterator<TSampleRecord> cIt(&cTable, 0, &cTx);
        ASSERT_TRUE(AddSample(cIt, 1, 1, L"first"));
        ASSERT_TRUE(cTx.Commit(true, nullptr, nullptr));
        EXPECT_TRUE(cTx.IsActive());
        ASSERT_TRUE(AddSample(cIt, 1, 2, L"second")); // the iterator goes on
    } // the second is given up, the first stays
    CTransaction cTx(pDb, 60000);
    EXPECT_EQ(CountAll(cTable, &cTx), 1);
}

TEST(VdbTransaction, NestedTransactions)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    CTransaction cOuter(pDb, 60000);
    ASSERT_TRUE(cTable.Open(pDb, nullptr, &cOuter, false));
    CIterator<TSampleRecord> cIt(&cTable, 0, &cOuter);
    ASSERT_TRUE(AddSample(cIt, 1, 1, L"outer"));
    {
        CTransaction cInner(pDb, 60000);
        EXPECT_FALSE(cOuter.Commit()); // not while an inner one is active
        CIterator<TSampleRecord> cInnerIt(&cTable, 0, &cInner);
        ASSERT_TRUE(AddSample(cInnerIt, 1, 2, L"inner, given up"));
        EXPECT_EQ(CountAll(cTable, &cInner), 2);
    }
    EXPECT_EQ(CountAll(cTable, &cOuter), 1);
    {
        CTransaction cInner(pDb, 60000);
        CIterator<TSampleRecord> cInnerIt(&cTable, 0, &cInner);
        ASSERT_TRUE(AddSample(cInnerIt, 1, 3, L"inner, committed"));
        EXPECT_TRUE(cInner.Commit());
        TSampleRecord t;
        EXPECT_FALSE(cInnerIt.GetFirst(&t, false)); // its transaction has ended
    }
    EXPECT_EQ(CountAll(cTable, &cOuter), 2);
    // Giving up the outer one while an inner one is active ends both.
    auto* pOuter = new CTransaction(pDb, 60000);
    CTransaction cInner(pDb, 60000);
    CIterator<TSampleRecord> cInnerIt(&cTable, 0, &cInner);
    ASSERT_TRUE(AddSample(cInnerIt, 9, 9, L"nine"));
    delete pOuter;
    EXPECT_FALSE(cInner.IsActive());
    EXPECT_FALSE(cInner.Commit());
    EXPECT_TRUE(cOuter.IsActive());
    EXPECT_EQ(CountAll(cTable, &cOuter), 2);
}

TEST(VdbDatabase, ReleaseEndsEverythingThatRefersToIt)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    ASSERT_NE(pDb, nullptr);
    CSampleTable cTable;
    auto* pTx = new CTransaction(pDb, 60000);
    ASSERT_TRUE(cTable.Open(pDb, nullptr, pTx, false));
    CIterator<TSampleRecord> cIt(&cTable, 0, pTx);
    ASSERT_TRUE(AddSample(cIt, 1, 1, L"x"));
    pDb->Release();
    EXPECT_FALSE(cTable.IsOpen());
    EXPECT_FALSE(pTx->IsActive());
    TSampleRecord t;
    EXPECT_FALSE(cIt.GetFirst(&t, false));
    EXPECT_FALSE(cIt.Add(&t, false));
    EXPECT_TRUE(cIt.IsOpen());
    cIt.Close();
    delete pTx;
    cTable.Close();
    EXPECT_EQ(cFolder.List(), TwoFiles());
}

TEST(VdbTransaction, MadeWithoutADatabaseIsInactive)
{
    CTransaction cTx(nullptr, 60000);
    EXPECT_FALSE(cTx.IsActive());
    EXPECT_FALSE(cTx.Commit());
}

TEST(VdbStatements, AreMadeOnceAndReused)
{
    CTempFolder cFolder;
    CDatabase* pDb = CDatabaseFactory::Create(cFolder.Connection());
    CReleaser cRelease{pDb};
    ASSERT_NE(pDb, nullptr);
    sqlite3* pRaw = Detail::StoreOf(pDb)->GetDb();
    auto CountStatements = [pRaw] {
        int n = 0;
        for (sqlite3_stmt* p = sqlite3_next_stmt(pRaw, nullptr); p; p = sqlite3_next_stmt(pRaw, p))
            ++n;
        return n;
    };
    CSampleTable cTable;
    int nAfterFirstRound = 0;
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        CTransaction cTx(pDb, 60000);
        ASSERT_TRUE(cTable.Open(pDb, nullptr, &cTx, false));
        CIterator<TSampleRecord> cIt(&cTable, 1, &cTx);
        TSampleRecord t;
        for (unsigned i = 0; i < 50; ++i)
        {
            t.nGroup = i % 3;
            t.tTime = static_cast<long>(i);
            t.strName.Printf(L"%d-%u", nRound, i);
            ASSERT_TRUE(cIt.Add(&t, false));
            ASSERT_TRUE(cIt.GetGTE(&t, false));
            cIt.GetNext(&t, false);
            cIt.GetPrevious(&t, false);
            ASSERT_TRUE(cIt.GetLTE(&t, false));
            ASSERT_TRUE(cIt.Update(&t, false));
        }
        ASSERT_TRUE(cTx.Commit());
        if (nRound == 0)
            nAfterFirstRound = CountStatements();
    }
    EXPECT_GT(nAfterFirstRound, 0);
    EXPECT_EQ(CountStatements(), nAfterFirstRound);
}
