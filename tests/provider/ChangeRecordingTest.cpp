// Recording changes and change items, and grouping file revisions into
// changes.
#include <gtest/gtest.h>

#include "TestProvider.h"

using namespace test;
using ORVANE::MCE::eChangeItemAdd;
using ORVANE::MCE::eChangeItemDelete;
using ORVANE::MCE::eChangeItemModify;
using ORVANE::MCE::TCVSRevision;

namespace {

CProvider::TStreamInfo StreamOf(unsigned int nID)
{
    return Stream(nID, 0, L"s", L"//depot/s");
}

} // namespace

TEST(ChangeRecording, AddChangeTwiceGivesTwoIdsAndCountsTwo)
{
    CTestProvider c;
    const unsigned int nFirst = c.AddChange(42, 1, L"jo@ws", L"same", 1000);
    const unsigned int nSecond = c.AddChange(42, 1, L"jo@ws", L"same", 1000);
    EXPECT_NE(0u, nFirst);
    EXPECT_NE(0u, nSecond);
    EXPECT_NE(nFirst, nSecond);
    EXPECT_EQ(2u, c.ChangeCount());
    TChangeRecord t;
    ASSERT_TRUE(c.ReadChange(nSecond, t));
    EXPECT_EQ(42u, t.nProviderID);
    EXPECT_EQ(1u, t.nStreamID);
    EXPECT_TRUE(t.strUser == CString(L"jo@ws"));
    EXPECT_EQ(1000, t.tTime);
    EXPECT_TRUE(t.strComment == CString(L"same"));
    EXPECT_EQ(0u, t.nNextItem);
    EXPECT_EQ(-1, t.GetBaseTime());
    EXPECT_EQ(-1, t.GetMaxTime());
}

TEST(ChangeRecording, AddChangeItemAndUpdateTheCount)
{
    CTestProvider c;
    const unsigned int nChange = c.AddChange(7, 1, L"u", L"c", 50);
    EXPECT_TRUE(c.AddChangeItem(nChange, 1, eChangeItemAdd, Path(L"a/b.c"), 3));
    EXPECT_TRUE(c.AddChangeItem(nChange, 2, eChangeItemDelete, Path(L"d.c"), 4));
    EXPECT_FALSE(c.AddChangeItem(nChange, 2, eChangeItemModify, Path(L"e.c"), 5)); // duplicate key
    EXPECT_TRUE(c.UpdateChangeItemCount(nChange, 3));
    EXPECT_FALSE(c.UpdateChangeItemCount(nChange + 100, 3));

    TChangeRecord t;
    ASSERT_TRUE(c.ReadChange(nChange, t));
    EXPECT_EQ(3u, t.nNextItem);
    TChangeItemRecord ti;
    ASSERT_TRUE(c.ReadItem(nChange, 1, ti));
    EXPECT_EQ(eChangeItemAdd, ti.eType);
    EXPECT_TRUE(ti.cFilePath.GeneratePath(L'/', true) == CString(L"a/b.c"));
    EXPECT_EQ(3u, ti.nRevision);
    EXPECT_EQ(0, ti.cProps.GetCount());
    ASSERT_TRUE(c.ReadItem(nChange, 2, ti));
    EXPECT_EQ(eChangeItemDelete, ti.eType);
    EXPECT_EQ(4u, ti.nRevision);
}

TEST(ChangeRecording, GroupingJoinsWithinTheWindowIgnoringTheCaseOfTheUser)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    const CProvider::TStreamInfo tStream = StreamOf(1);
    c.AddChangeItem(tStream, L"u", eChangeItemAdd, Path(L"a"), 1000, L"first", 1);
    const unsigned int nC = c.ChangeBuffer().nID;
    TChangeRecord t;
    ASSERT_TRUE(c.ReadChange(nC, t));
    EXPECT_EQ(2u, t.nNextItem);
    EXPECT_EQ(1000, t.tTime);
    EXPECT_EQ(1000, t.GetBaseTime());
    EXPECT_EQ(-1, t.GetMaxTime());
    EXPECT_EQ(0u, t.nProviderID);
    TChangeItemRecord ti;
    ASSERT_TRUE(c.ReadItem(nC, 1, ti));
    EXPECT_EQ(1000, ti.cTimestamp.GetUTC());
    CString strRevision(L"unset");
    EXPECT_TRUE(ti.cProps.GetProperty(1, strRevision));
    EXPECT_TRUE(strRevision.empty());

    c.AddChangeItem(tStream, L"U", eChangeItemModify, Path(L"b"), 1200, L"second. more.", 1);
    EXPECT_EQ(nC, c.ChangeBuffer().nID);
    ASSERT_TRUE(c.ReadChange(nC, t));
    EXPECT_EQ(3u, t.nNextItem);
    EXPECT_EQ(1200, t.tTime);
    EXPECT_EQ(1000, t.GetBaseTime());
    EXPECT_TRUE(t.strComment == CString(L"first\nsecond\nmore"));
    ASSERT_TRUE(c.ReadItem(nC, 2, ti));
    EXPECT_TRUE(ti.cFilePath.GeneratePath(L'/', true) == CString(L"b"));

    c.AddChangeItem(tStream, L"u", eChangeItemAdd, Path(L"c"), 1301, L"third", 1);
    const unsigned int nNew = c.ChangeBuffer().nID;
    EXPECT_NE(nC, nNew);
    ASSERT_TRUE(c.ReadChange(nNew, t));
    EXPECT_EQ(1301, t.tTime);
    EXPECT_EQ(2u, t.nNextItem);
    EXPECT_EQ(2u, c.ChangeCount());
}

TEST(ChangeRecording, ANewerRevisionOfAFileInTheChangeGoesOneSecondAfterIt)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    const CProvider::TStreamInfo tStream = StreamOf(1);
    c.AddChangeItem(tStream, L"u", eChangeItemAdd, Path(L"a"), 1000, L"c", 1);
    const unsigned int nC = c.ChangeBuffer().nID;
    c.AddChangeItem(tStream, L"u", eChangeItemModify, Path(L"a"), 1100, L"c", 2);
    const unsigned int nNew = c.ChangeBuffer().nID;
    EXPECT_NE(nC, nNew);

    TChangeRecord t;
    ASSERT_TRUE(c.ReadChange(nC, t));
    EXPECT_EQ(1000, t.tTime); // raised in the buffer only, never rewritten
    EXPECT_EQ(2u, t.nNextItem);
    ASSERT_TRUE(c.ReadChange(nNew, t));
    EXPECT_EQ(1101, t.tTime);
    EXPECT_EQ(1101, t.GetBaseTime());
    TChangeItemRecord ti;
    ASSERT_TRUE(c.ReadItem(nNew, 1, ti));
    EXPECT_EQ(2u, ti.nRevision);
    EXPECT_EQ(1101, ti.cTimestamp.GetUTC());
}

TEST(ChangeRecording, AnOlderRevisionGoesOneSecondBefore)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    const CProvider::TStreamInfo tStream = StreamOf(1);
    c.AddChangeItem(tStream, L"u", eChangeItemAdd, Path(L"a"), 1000, L"c", 5);
    c.AddChangeItem(tStream, L"u", eChangeItemModify, Path(L"a"), 1050, L"c", 5);
    TChangeRecord t;
    ASSERT_TRUE(c.ReadChange(c.ChangeBuffer().nID, t));
    // Time was raised to 1050 in the buffer, which is not above 1050: 1049.
    EXPECT_EQ(1049, t.tTime);
}

TEST(ChangeRecording, OtherStreamsAndOtherUsersDoNotJoin)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    c.AddChangeItem(StreamOf(1), L"u", eChangeItemAdd, Path(L"a"), 1000, L"c", 1);
    const unsigned int nFirst = c.ChangeBuffer().nID;
    c.AddChangeItem(StreamOf(2), L"u", eChangeItemAdd, Path(L"b"), 1000, L"c", 1);
    EXPECT_NE(nFirst, c.ChangeBuffer().nID);
    c.AddChangeItem(StreamOf(1), L"v", eChangeItemAdd, Path(L"b"), 1000, L"c", 1);
    EXPECT_NE(nFirst, c.ChangeBuffer().nID);
    EXPECT_EQ(3u, c.ChangeCount());
}

TEST(ChangeRecording, CommentCheckAndMaximumTimeOfTheRevisionForm)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    TCVSRevision tRev;
    tRev.Add(1);
    tRev.Add(4);
    c.AddChangeItem(StreamOf(1), L"u", eChangeItemAdd, Path(L"a"), 1000, CString(L"Fix."), tRev, 5000);
    const unsigned int nC = c.ChangeBuffer().nID;
    TChangeRecord t;
    ASSERT_TRUE(c.ReadChange(nC, t));
    EXPECT_EQ(5000, t.GetMaxTime());
    TChangeItemRecord ti;
    ASSERT_TRUE(c.ReadItem(nC, 1, ti));
    EXPECT_EQ(0u, ti.nRevision);
    CString strRevision;
    EXPECT_TRUE(ti.cProps.GetProperty(1, strRevision));
    EXPECT_TRUE(strRevision == CString(L"1.4"));

    // Another comment: no join when comments are checked.
    c.AddChangeItem(StreamOf(1), L"u", eChangeItemAdd, Path(L"b"), 1010, CString(L"Other."), tRev, 5000);
    EXPECT_NE(nC, c.ChangeBuffer().nID);
    // The same comment ignoring case joins, and lowers the maximum time.
    c.AddChangeItem(StreamOf(1), L"u", eChangeItemAdd, Path(L"c"), 1020, CString(L"FIX."), tRev, 3000);
    EXPECT_EQ(nC, c.ChangeBuffer().nID);
    ASSERT_TRUE(c.ReadChange(nC, t));
    EXPECT_EQ(3000, t.GetMaxTime());
    EXPECT_EQ(1020, t.tTime);
    EXPECT_EQ(3u, t.nNextItem);
}

TEST(ChangeRecording, TimesBelowTheWindowNeverJoin)
{
    // Below 300 seconds the unsigned window arithmetic wraps round and the
    // base check refuses.
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    c.AddChangeItem(StreamOf(1), L"u", eChangeItemAdd, Path(L"a"), 100, L"c", 1);
    const unsigned int nFirst = c.ChangeBuffer().nID;
    c.AddChangeItem(StreamOf(1), L"u", eChangeItemAdd, Path(L"b"), 100, L"c", 1);
    EXPECT_NE(nFirst, c.ChangeBuffer().nID);
}

TEST(ChangeRecording, CheckForExistingItem)
{
    CTestProvider c;
    const unsigned int nChange = c.AddChange(1, 1, L"u", L"c", 10);
    c.AddChangeItem(nChange, 1, eChangeItemAdd, Path(L"a/B.txt"), 6);
    c.AddChangeItem(nChange, 2, eChangeItemAdd, Path(L"c.txt"), 9);
    const unsigned int nOther = c.AddChange(1, 1, L"u", L"c", 11);
    c.AddChangeItem(nOther, 1, eChangeItemAdd, Path(L"z.txt"), 2);
    TChangeRecord tChange;
    ASSERT_TRUE(c.ReadChange(nChange, tChange));
    int nRevision = -5;
    EXPECT_TRUE(c.CheckForExistingItem(tChange, Path(L"c.txt"), nRevision));
    EXPECT_EQ(9, nRevision);
    EXPECT_TRUE(c.CheckForExistingItem(tChange, Path(L"a/b.txt"), nRevision)); // case ignored
    EXPECT_EQ(6, nRevision);
    nRevision = -5;
    EXPECT_FALSE(c.CheckForExistingItem(tChange, Path(L"z.txt"), nRevision)); // another change's
    EXPECT_EQ(-5, nRevision);
    // The item buffer holds the last record read: the other change's item.
    EXPECT_EQ(nOther, c.ChangeItemBuffer().nID);
}

TEST(ChangeRecording, FindNearestChange)
{
    CTestProvider c;
    c.AddChange(1, 1, L"u", L"early", 100);
    const unsigned int nA = c.AddChange(2, 2, L"u", L"a", 500);
    const unsigned int nB = c.AddChange(3, 2, L"u", L"b", 900);
    EXPECT_EQ(0u, c.FindNearestChange(StreamOf(2), 499)); // stream 1's change is earlier, yet not taken
    EXPECT_EQ(nA, c.FindNearestChange(StreamOf(2), 500));
    EXPECT_EQ(nA, c.FindNearestChange(StreamOf(2), 899));
    EXPECT_EQ(nB, c.FindNearestChange(StreamOf(2), 100000));
    EXPECT_EQ(0u, c.FindNearestChange(StreamOf(3), 100000)); // a stream with no change
    c.CommitChanges();
    EXPECT_EQ(nB, c.FindNearestChange(StreamOf(2), 950)); // prepares a transaction itself
}

TEST(ChangeRecording, AddToComment)
{
    CTestProvider c;
    const struct
    {
        const wchar_t* pszComment;
        const wchar_t* pszAdd;
        const wchar_t* pszExpected;
    } atCases[] = {
        {L"Fix A", L"Fix B", L"Fix A"},
        {L"Fix A", L"fix a. Fix B.", L"Fix A\nFix B"},
        {L"Fix A", L"Fix A", L"Fix A"},
        {L"", L"One. Two", L"One\nTwo"},
        {L"", L"no stop", L""},
        {L"a", L" b .  c . b.", L"a\nb\nc"},
        {L"x", L"...", L"x"},
        {L"Alpha", L"alpha beta. ALPHA.", L"Alpha\nalpha beta"},
    };
    for (const auto& t : atCases)
    {
        CString strComment(t.pszComment);
        c.AddToComment(strComment, t.pszAdd);
        EXPECT_TRUE(strComment == CString(t.pszExpected))
            << Utf8(t.pszComment) << " + " << Utf8(t.pszAdd) << " -> " << Utf8(strComment);
    }
}
