// Cursor operations: order over composite keys with ties, the reads at and
// around a key, updates that move a record within its index, and the
// remaining operations of the typed iterator.
#include "VdbTestSupport.h"

using namespace VdbTest;

namespace {

class VdbCursor : public ORVANE::TEST::CDatabaseFixture
{
protected:
    void SetUp() override
    {
        OpenDatabase();
        ASSERT_TRUE(m_cSamples.Open(m_pDb, nullptr, m_pTx, false));
        ASSERT_TRUE(m_cPairs.Open(m_pDb, nullptr, m_pTx, false));
    }
    void TearDown() override
    {
        delete m_pTx;
        m_pTx = nullptr;
        m_cSamples.Close();
        m_cPairs.Close();
        CloseDatabase();
    }

    CIterator<TSampleRecord> Samples(int nIndex) { return CIterator<TSampleRecord>(&m_cSamples, nIndex, m_pTx); }
    CIterator<TPairRecord> Pairs(int nIndex) { return CIterator<TPairRecord>(&m_cPairs, nIndex, m_pTx); }

    unsigned AddSample(unsigned nGroup, long tTime, const wchar_t* pszName)
    {
        CIterator<TSampleRecord> cIt = Samples(0);
        TSampleRecord t;
        t.nGroup = nGroup;
        t.tTime = tTime;
        t.strName = pszName;
        EXPECT_TRUE(cIt.Add(&t, false)) << pszName;
        return t.nID;
    }

    // The names met walking an index from the first record to the last.
    std::vector<std::wstring> Walk(int nIndex)
    {
        CIterator<TSampleRecord> cIt = Samples(nIndex);
        std::vector<std::wstring> astr;
        TSampleRecord t;
        for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
            astr.push_back(t.strName.ToStdWstring());
        return astr;
    }
    std::vector<std::wstring> WalkBack(int nIndex)
    {
        CIterator<TSampleRecord> cIt = Samples(nIndex);
        std::vector<std::wstring> astr;
        TSampleRecord t;
        for (bool b = cIt.GetLast(&t, false); b; b = cIt.GetPrevious(&t, false))
            astr.push_back(t.strName.ToStdWstring());
        return astr;
    }

    CSampleTable m_cSamples;
    CPairTable m_cPairs;
};

using VS = std::vector<std::wstring>;

} // namespace

TEST_F(VdbCursor, AddOnANumberedTableGivesFreshNonzeroIDs)
{
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    t.nID = 0;
    t.strName = L"a";
    ASSERT_TRUE(cIt.Add(&t, false));
    const unsigned nFirst = t.nID;
    EXPECT_NE(nFirst, 0u);
    t.nID = 0;
    t.strName = L"b";
    ASSERT_TRUE(cIt.Add(&t, false));
    EXPECT_NE(t.nID, 0u);
    EXPECT_NE(t.nID, nFirst);
    // Whatever the ID held: an old ID, or one not used yet.
    const unsigned nSecond = t.nID;
    t.strName = L"c";
    ASSERT_TRUE(cIt.Add(&t, false)); // t.nID still holds nSecond
    EXPECT_NE(t.nID, nSecond);
    EXPECT_NE(t.nID, nFirst);
    EXPECT_NE(t.nID, 0u);
    t.nID = 4000000000u;
    t.strName = L"d";
    ASSERT_TRUE(cIt.Add(&t, false));
    EXPECT_NE(t.nID, 4000000000u);
    // Each ID reads back its own record.
    CIterator<TSampleRecord> cById = Samples(0);
    TSampleRecord r;
    r.nID = nSecond;
    ASSERT_TRUE(cById.GetEqual(&r, false));
    EXPECT_EQ(r.strName, L"b");
}

TEST_F(VdbCursor, GetGTEAndGetLTEAtTheEnds)
{
    AddSample(5, 100, L"5/100");
    AddSample(5, 200, L"5/200");
    AddSample(7, 50, L"7/50");
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    // Below every record: GTE gives the first, LTE nothing.
    t.nGroup = 0;
    t.tTime = 0;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.strName, L"5/100");
    t.nGroup = 0;
    t.tTime = 0;
    t.strName = L"untouched";
    EXPECT_FALSE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strName, L"untouched"); // a failed read leaves the record alone
    // Above every record: GTE nothing, LTE the last.
    t.nGroup = 7;
    t.tTime = 51;
    EXPECT_FALSE(cIt.GetGTE(&t, false));
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strName, L"7/50");
    // Between: by the composite key.
    t.nGroup = 5;
    t.tTime = 150;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.strName, L"5/200");
    t.nGroup = 5;
    t.tTime = 150;
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strName, L"5/100");
    t.nGroup = 6;
    t.tTime = 0;
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strName, L"5/200");
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"7/50");
    EXPECT_FALSE(cIt.GetNext(&t, false));
    // Exact keys.
    t.nGroup = 5;
    t.tTime = 200;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.strName, L"5/200");
    t.nGroup = 5;
    t.tTime = 200;
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strName, L"5/200");
    t.nGroup = 5;
    t.tTime = 201;
    EXPECT_FALSE(cIt.GetEqual(&t, false));
    t.nGroup = 7;
    t.tTime = 50;
    ASSERT_TRUE(cIt.GetEqual(&t, false));
    EXPECT_EQ(t.strName, L"7/50");
}

TEST_F(VdbCursor, EqualKeysAreAllReachedInTheOrderAdded)
{
    AddSample(2, 10, L"b");
    AddSample(1, 20, L"c");
    AddSample(1, 10, L"a1");
    AddSample(1, 10, L"a2");
    AddSample(3, 0, L"d");
    AddSample(1, 10, L"a3");
    AddSample(1, 20, L"c2");
    EXPECT_EQ(Walk(1), (VS{L"a1", L"a2", L"a3", L"c", L"c2", L"b", L"d"}));
    EXPECT_EQ(WalkBack(1), (VS{L"d", L"b", L"c2", L"c", L"a3", L"a2", L"a1"}));

    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    // GetGTE and GetEqual: the first of the equal keys; GetLTE the last.
    t.nGroup = 1;
    t.tTime = 10;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.strName, L"a1");
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"a2");
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"a3");
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"a2");
    t.nGroup = 1;
    t.tTime = 10;
    ASSERT_TRUE(cIt.GetEqual(&t, false));
    EXPECT_EQ(t.strName, L"a1");
    t.nGroup = 1;
    t.tTime = 15;
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.strName, L"a3");
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"a2");
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"a3");
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"c");
}

TEST_F(VdbCursor, TimesOrderAsUnsigned32BitNumbers)
{
    AddSample(1, -1, L"minus one");
    AddSample(1, 2147483647, L"max");
    AddSample(1, -2147483647 - 1, L"min");
    AddSample(1, 0, L"zero");
    AddSample(1, 4711, L"4711");
    EXPECT_EQ(Walk(1), (VS{L"zero", L"4711", L"max", L"min", L"minus one"}));
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    t.nGroup = 1;
    t.tTime = -1;
    ASSERT_TRUE(cIt.GetEqual(&t, false));
    EXPECT_EQ(t.strName, L"minus one");
    EXPECT_EQ(t.tTime, -1); // read back as the signed 32-bit value
    t.nGroup = 1;
    t.tTime = -2147483647 - 1;
    ASSERT_TRUE(cIt.GetEqual(&t, false));
    EXPECT_EQ(t.tTime, -2147483647 - 1);
}

TEST_F(VdbCursor, CompositeKeysOfTheCallersOwn)
{
    CIterator<TPairRecord> cIt = Pairs(0);
    for (unsigned nMajor : {3u, 1u, 2u})
        for (unsigned nMinor : {2u, 0u, 1u, 4294967295u})
        {
            TPairRecord t = Pair(nMajor, nMinor, L"v");
            ASSERT_TRUE(cIt.Add(&t, false));
        }
    TPairRecord t = Pair(2, 1);
    EXPECT_FALSE(cIt.Add(&t, false)); // a duplicate unique key
    std::vector<std::pair<unsigned, unsigned>> aKeys;
    for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
        aKeys.emplace_back(t.nMajor, t.nMinor);
    const std::vector<std::pair<unsigned, unsigned>> aExpected = {
        {1, 0}, {1, 1}, {1, 2}, {1, 4294967295u}, {2, 0}, {2, 1}, {2, 2}, {2, 4294967295u},
        {3, 0}, {3, 1}, {3, 2}, {3, 4294967295u}};
    EXPECT_EQ(aKeys, aExpected);
    // (2, 3) lies between (2, 2) and (2, max).
    t = Pair(2, 3);
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.nMajor, 2u);
    EXPECT_EQ(t.nMinor, 4294967295u);
    t = Pair(2, 3);
    ASSERT_TRUE(cIt.GetLTE(&t, false));
    EXPECT_EQ(t.nMinor, 2u);
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.nMinor, 1u);
    // The text index with equal values.
    CIterator<TPairRecord> cByValue = Pairs(1);
    t.strValue = L"v";
    EXPECT_EQ(cByValue.ExecSP(&t, eProcCountEqual), 12);
}

TEST_F(VdbCursor, UpdateMovesARecordWithinItsIndex)
{
    AddSample(1, 100, L"a");
    AddSample(1, 200, L"b");
    AddSample(1, 300, L"c");
    AddSample(1, 400, L"d");
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    t.nGroup = 1;
    t.tTime = 100;
    ASSERT_TRUE(cIt.GetGTE(&t, true));
    ASSERT_EQ(t.strName, L"a");
    const unsigned nID = t.nID;
    // Move "a" forward, past "b" and "c".
    t.tTime = 350;
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_EQ(t.nID, nID);
    EXPECT_EQ(Walk(1), (VS{L"b", L"c", L"a", L"d"}));
    // The cursor stays with the rewritten record at its new place: GetNext
    // reads the record after (1, 350), not the one after (1, 100).
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"d");
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"a");
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"c");
    // Move "c" backward, before everything, even into another group.
    t.nGroup = 0;
    t.tTime = 999;
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_EQ(Walk(1), (VS{L"c", L"b", L"a", L"d"}));
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"b");
    // Updating twice in a row rewrites the same record.
    t.strText = L"first";
    ASSERT_TRUE(cIt.Update(&t, false));
    t.strText = L"second";
    t.tTime = 500;
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_EQ(Walk(1), (VS{L"c", L"a", L"d", L"b"}));
    EXPECT_FALSE(cIt.GetNext(&t, false));
    // And a walk that raises every time ends (each record moves ahead of
    // the cursor's place only once it has been passed).
    int nSteps = 0;
    for (bool b = cIt.GetFirst(&t, false); b && nSteps < 100; b = cIt.GetNext(&t, false), ++nSteps)
    {
        t.tTime += 1000;
        ASSERT_TRUE(cIt.Update(&t, false));
    }
    EXPECT_LT(nSteps, 100);
}

TEST_F(VdbCursor, UpdateRewritesTheRecordLastReadByAnyIndex)
{
    AddSample(1, 100, L"a");
    AddSample(1, 200, L"b");
    CIterator<TSampleRecord> cIt = Samples(2); // by name
    TSampleRecord t;
    t.strName = L"b";
    ASSERT_TRUE(cIt.GetEqual(&t, true));
    // The name is this index's key: renaming moves it in the name order.
    t.strName = L"0 first now";
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_EQ(Walk(2), (VS{L"0 first now", L"a"}));
    // A unique key that would repeat: refused, nothing changes.
    t.strName = L"a";
    EXPECT_FALSE(cIt.Update(&t, false));
    EXPECT_EQ(Walk(2), (VS{L"0 first now", L"a"}));
    // The ID of a numbered table stays; the stored one is written back.
    t.strName = L"renamed";
    const unsigned nID = t.nID;
    t.nID = 12345;
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_EQ(t.nID, nID);
    // Without a record read first there is nothing to update.
    CIterator<TSampleRecord> cFresh = Samples(0);
    EXPECT_FALSE(cFresh.Update(&t, false));
}

TEST_F(VdbCursor, StepsWithoutAPlaceStartAtTheEnds)
{
    AddSample(1, 1, L"x");
    AddSample(1, 2, L"y");
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"x");
    CIterator<TSampleRecord> cBack = Samples(1);
    ASSERT_TRUE(cBack.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"y");
    // At the end a step fails and the place stays.
    EXPECT_FALSE(cBack.GetNext(&t, false));
    EXPECT_FALSE(cBack.GetNext(&t, false));
    ASSERT_TRUE(cBack.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"x");
    EXPECT_FALSE(cBack.GetPrevious(&t, false));
    ASSERT_TRUE(cBack.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"y");
}

TEST_F(VdbCursor, WritesBetweenStepsAreSeen)
{
    AddSample(1, 10, L"a");
    AddSample(1, 30, L"c");
    CIterator<TSampleRecord> cReader = Samples(1);
    CIterator<TSampleRecord> cOther = Samples(1);
    TSampleRecord t, u;
    ASSERT_TRUE(cReader.GetFirst(&t, false));
    ASSERT_TRUE(cOther.GetFirst(&u, false));
    EXPECT_EQ(u.strName, L"a");
    AddSample(1, 20, L"b"); // after the reader's place
    AddSample(1, 5, L"0");  // before it
    ASSERT_TRUE(cReader.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"b");
    // Two cursors on one index, interleaved, each keep their own place.
    ASSERT_TRUE(cOther.GetNext(&u, false));
    EXPECT_EQ(u.strName, L"b");
    ASSERT_TRUE(cReader.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"c");
    ASSERT_TRUE(cOther.GetNext(&u, false));
    EXPECT_EQ(u.strName, L"c");
    EXPECT_FALSE(cReader.GetNext(&t, false));
    EXPECT_FALSE(cOther.GetNext(&u, false));
}

TEST_F(VdbCursor, IteratorsAreValues)
{
    AddSample(1, 1, L"one");
    AddSample(1, 2, L"two");
    AddSample(1, 3, L"three");
    CIterator<TSampleRecord> cClosed;
    EXPECT_FALSE(cClosed.IsOpen());
    TSampleRecord t;
    EXPECT_FALSE(cClosed.GetFirst(&t, false));
    EXPECT_FALSE(cClosed.Add(&t, false));
    cClosed.Close();
    EXPECT_EQ(cClosed.GetIndex(), -1);

    CIterator<TSampleRecord> cIt = Samples(1);
    ASSERT_TRUE(cIt.GetFirst(&t, false));
    CIterator<TSampleRecord> cCopy(cIt);
    ASSERT_TRUE(cCopy.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"two");
    ASSERT_TRUE(cCopy.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"three");
    ASSERT_TRUE(cIt.GetNext(&t, false)); // the original kept its place
    EXPECT_EQ(t.strName, L"two");
    // Assignment replaces the cursor.
    cClosed = cIt;
    EXPECT_TRUE(cClosed.IsOpen());
    EXPECT_EQ(cClosed.GetIndex(), 1);
    ASSERT_TRUE(cClosed.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"three");
    cClosed = CIterator<TSampleRecord>();
    EXPECT_FALSE(cClosed.IsOpen());
    cIt.Close();
    EXPECT_FALSE(cIt.IsOpen());
    EXPECT_FALSE(cIt.GetNext(&t, false));
}

TEST_F(VdbCursor, IteratorsThatCannotWorkAreClosed)
{
    EXPECT_FALSE(Samples(3).IsOpen()); // no index 3
    EXPECT_FALSE(Samples(-1).IsOpen());
    EXPECT_TRUE(Samples(2).IsOpen());
    // A record class that is not the table's.
    EXPECT_FALSE(CIterator<TPairRecord>(&m_cSamples, 0, m_pTx).IsOpen());
    // A closed table.
    CSampleTable cClosedTable;
    EXPECT_FALSE(CIterator<TSampleRecord>(&cClosedTable, 0, m_pTx).IsOpen());
    EXPECT_FALSE(CIterator<TSampleRecord>(nullptr, 0, m_pTx).IsOpen());
    // A transaction that has ended.
    CTransaction cEnded(m_pDb, 60000);
    ASSERT_TRUE(cEnded.Commit());
    EXPECT_FALSE(CIterator<TSampleRecord>(&m_cSamples, 0, &cEnded).IsOpen());
    // Without a transaction an iterator works in the active one.
    CIterator<TSampleRecord> cNone(&m_cSamples, 0, nullptr);
    ASSERT_TRUE(cNone.IsOpen());
    AddSample(1, 1, L"seen");
    TSampleRecord t;
    ASSERT_TRUE(cNone.GetFirst(&t, false));
    EXPECT_EQ(t.strName, L"seen");
}

TEST_F(VdbCursor, AddNewThenUpdate)
{
    CIterator<TSampleRecord> cIt = Samples(1);
    ASSERT_TRUE(cIt.AddNew());
    TSampleRecord t;
    t.nID = 0;
    t.nGroup = 4;
    t.tTime = 44;
    t.strName = L"filled in";
    ASSERT_TRUE(cIt.Update(&t, false));
    EXPECT_NE(t.nID, 0u); // the new record's ID
    CIterator<TSampleRecord> cById = Samples(0);
    TSampleRecord r;
    r.nID = t.nID;
    ASSERT_TRUE(cById.GetEqual(&r, false));
    EXPECT_EQ(r.strName, L"filled in");
    EXPECT_EQ(r.tTime, 44);

    // A table keyed by the caller: the empty key can be added once.
    CIterator<TPairRecord> cPairs = Pairs(0);
    ASSERT_TRUE(cPairs.AddNew());
    EXPECT_FALSE(cPairs.AddNew());
    TPairRecord p = Pair(9, 9);
    ASSERT_TRUE(cPairs.GetEqual(&p, false) == false);
    p = Pair(0, 0, L"sentinel");
    ASSERT_TRUE(cPairs.GetEqual(&p, false));
    EXPECT_EQ(p.strValue, L"");
}

TEST_F(VdbCursor, DeleteRemovesAndKeepsThePlace)
{
    AddSample(1, 10, L"a");
    AddSample(1, 20, L"b");
    AddSample(1, 20, L"b2");
    AddSample(1, 30, L"c");
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    t.nGroup = 1;
    t.tTime = 20;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    ASSERT_TRUE(cIt.GetNext(&t, false));
    ASSERT_EQ(t.strName, L"b2");
    // The current record when it has the key (not the first "b").
    ASSERT_TRUE(cIt.Delete(&t));
    EXPECT_FALSE(cIt.Update(&t, false)); // gone
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"c");
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"b");
    // By key, from anywhere.
    TSampleRecord k;
    k.nGroup = 1;
    k.tTime = 10;
    ASSERT_TRUE(cIt.Delete(&k));
    k.tTime = 11;
    EXPECT_FALSE(cIt.Delete(&k));
    ASSERT_TRUE(cIt.GetPrevious(&t, false) == false); // nothing before (1, 10) now
    EXPECT_EQ(Walk(1), (VS{L"b", L"c"}));
}

TEST_F(VdbCursor, ClearRecordEmptiesEveryField)
{
    CIterator<TSampleRecord> cIt = Samples(0);
    TSampleRecord t;
    t.nID = 7;
    t.nGroup = 8;
    t.tTime = -9;
    t.strName = L"name";
    t.strText = L"text";
    t.cStamp.Set(12345);
    t.cPath.Parse(L"a/b/c");
    t.cProps.SetProperty(1, 99u);
    t.eKind = eKindC;
    cIt.ClearRecord(&t);
    EXPECT_EQ(t.nID, 0u);
    EXPECT_EQ(t.nGroup, 0u);
    EXPECT_EQ(t.tTime, 0);
    EXPECT_TRUE(t.strName.empty());
    EXPECT_TRUE(t.strText.empty());
    EXPECT_EQ(t.cStamp.GetUTC(), 0);
    EXPECT_EQ(t.cPath.GetItemCount(), 0u);
    EXPECT_EQ(t.cProps.GetCount(), 0);
    EXPECT_EQ(t.eKind, eKindA);
}

TEST_F(VdbCursor, StoredProcedures)
{
    AddSample(1, 10, L"a");
    AddSample(1, 10, L"b");
    AddSample(1, 10, L"c");
    AddSample(2, 10, L"d");
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord t;
    t.nGroup = 1;
    t.tTime = 10;
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountEqual), 3);
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountAll), 4);
    EXPECT_EQ(cIt.ExecSP(&t, 99), -1);
    EXPECT_EQ(cIt.ExecSP(&t, eProcDeleteEqual), 3);
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountEqual), 0);
    EXPECT_EQ(Walk(1), (VS{L"d"}));
}

TEST_F(VdbCursor, KeyFilterLimitsWhatTheCursorReaches)
{
    AddSample(1, 10, L"1/10");
    AddSample(2, 5, L"2/5");
    AddSample(2, 15, L"2/15");
    AddSample(2, 25, L"2/25");
    AddSample(3, 1, L"3/1");
    CIterator<TSampleRecord> cIt = Samples(1);
    TSampleRecord f;
    f.nGroup = 2;
    f.tTime = 15;
    ASSERT_TRUE(cIt.SetKeyFilter(&f, 1, eKeyFilterEqual)); // group 2 only
    TSampleRecord t;
    std::vector<std::wstring> astr;
    for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
        astr.push_back(t.strName.ToStdWstring());
    EXPECT_EQ(astr, (VS{L"2/5", L"2/15", L"2/25"}));
    ASSERT_TRUE(cIt.GetLast(&t, false));
    EXPECT_EQ(t.strName, L"2/25");
    t.nGroup = 0;
    t.tTime = 0;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    EXPECT_EQ(t.strName, L"2/5");
    t.nGroup = 1;
    t.tTime = 10;
    EXPECT_FALSE(cIt.GetEqual(&t, false));
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountAll), 3);

    ASSERT_TRUE(cIt.SetKeyFilter(&f, 2, eKeyFilterGreaterOrEqual)); // from (2, 15)
    astr.clear();
    for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
        astr.push_back(t.strName.ToStdWstring());
    EXPECT_EQ(astr, (VS{L"2/15", L"2/25", L"3/1"}));

    ASSERT_TRUE(cIt.SetKeyFilter(&f, 2, eKeyFilterLessOrEqual)); // up to (2, 15)
    astr.clear();
    for (bool b = cIt.GetLast(&t, false); b; b = cIt.GetPrevious(&t, false))
        astr.push_back(t.strName.ToStdWstring());
    EXPECT_EQ(astr, (VS{L"2/15", L"2/5", L"1/10"}));

    EXPECT_FALSE(cIt.SetKeyFilter(&f, 3, eKeyFilterEqual)); // the index has two key fields
    EXPECT_FALSE(cIt.SetKeyFilter(&f, 0, eKeyFilterEqual));
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountAll), 5); // a refused filter is no filter
    ASSERT_TRUE(cIt.SetKeyFilter(&f, 1, eKeyFilterEqual));
    cIt.ResetKeyFilter();
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountAll), 5);
}

TEST_F(VdbCursor, TopCountLimitsEachWalk)
{
    for (long i = 1; i <= 6; ++i)
        AddSample(1, i, wxString::Format(L"%ld", i).wc_str());
    CIterator<TSampleRecord> cIt = Samples(1);
    cIt.SetTopCount(3);
    TSampleRecord t;
    int n = 0;
    for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
        ++n;
    EXPECT_EQ(n, 3);
    EXPECT_EQ(t.strName, L"3");
    // A new walk starts the count again.
    t.nGroup = 1;
    t.tTime = 5;
    ASSERT_TRUE(cIt.GetGTE(&t, false));
    ASSERT_TRUE(cIt.GetNext(&t, false));
    EXPECT_EQ(t.strName, L"6");
    EXPECT_FALSE(cIt.GetNext(&t, false));
    ASSERT_TRUE(cIt.GetLast(&t, false));
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_FALSE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"4");
    cIt.SetTopCount(0);
    ASSERT_TRUE(cIt.GetPrevious(&t, false));
    EXPECT_EQ(t.strName, L"3");
}

TEST_F(VdbCursor, AddCanReplace)
{
    CIterator<TPairRecord> cIt = Pairs(0);
    TPairRecord t = Pair(1, 1, L"old");
    ASSERT_TRUE(cIt.Add(&t, false));
    t = Pair(1, 1, L"new");
    EXPECT_FALSE(cIt.Add(&t, false));
    ASSERT_TRUE(cIt.Add(&t, true));
    t = Pair(1, 1);
    ASSERT_TRUE(cIt.GetEqual(&t, false));
    EXPECT_EQ(t.strValue, L"new");
    EXPECT_EQ(cIt.ExecSP(&t, eProcCountAll), 1);
}
