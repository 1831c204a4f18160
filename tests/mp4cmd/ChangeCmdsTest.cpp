// The change list commands against p4sim servers and prepared bytes.
#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>

#include "Run.h"
#include "TestSupport.h"
#include "host/ChildProcess.h"

namespace mp4test {
namespace {

using ORVANE::MP4::CChangesCmd;
using ORVANE::MP4::CDescribeCmd;
using ORVANE::MP4::eActionAdd;
using ORVANE::MP4::eActionBranch;
using ORVANE::MP4::eActionDelete;
using ORVANE::MP4::eActionEdit;
using ORVANE::MP4::eActionIntegrate;
using ORVANE::MP4::TChange;
using ORVANE::MP4::TChangeItem;
using ORVANE::MP4::TChangeItemAction;

using Pairs = std::vector<std::pair<std::string, std::string>>;

const char* const s_pszHistory = R"({"changes":[
    {"change":1,"user":"al","client":"ws0","time":1100000000,"description":"First",
     "files":[{"path":"//depot/main/a.c","action":"add","content":"a1\n"}]},
    {"change":2,"user":"bo","client":"ws0","time":1150000000,"description":"Second",
     "files":[{"path":"//depot/main/a.c","action":"edit","content":"a2\n"}]},
    {"change":3,"user":"al","client":"ws2","time":1160000000,"description":"Third change\nwith two lines",
     "files":[{"path":"//depot/main/a.c","action":"edit","content":"a3\n"},
              {"path":"//depot/main/b.c","action":"add","content":"b1\n"}]},
    {"change":4,"user":"cy","client":"ws3","time":1170000000,"description":"Elsewhere",
     "files":[{"path":"//depot/other/z.c","action":"add","content":"z\n"}]},
    {"change":1234,"user":"jo","client":"ws1","time":1200000000,"description":"Big number",
     "files":[{"path":"//depot/main/c.c","action":"add","content":"c\n"}]}
]})";

std::wstring PathText(const TChangeItem& cItem)
{
    return W(cItem.cPath.GeneratePath(L'/', true));
}

class ChangeCmdsTest : public CCommandTest
{
protected:
    CDescribeCmd m_cDescribe;
};

TEST_F(ChangeCmdsTest, ListingRecordFields)
{
    Server(s_pszHistory);
    CChangesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumChangesForPath(Path(L"//depot/main")));
    TChange cChange;
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 1234u);
    EXPECT_EQ(cChange.cTime.GetUTC(), 1200000000L);
    EXPECT_EQ(W(cChange.strUser), L"jo");
    EXPECT_EQ(W(cChange.strClient), L"ws1");
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 3u);
    EXPECT_EQ(cChange.cTime.GetUTC(), 1160000000L);
    EXPECT_EQ(W(cChange.strUser), L"al");
    EXPECT_EQ(W(cChange.strClient), L"ws2");
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 2u);
    EXPECT_EQ(W(cChange.strUser), L"bo");
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 1u);
    EXPECT_FALSE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 0u);
    EXPECT_EQ(W(cChange.strUser), L"");
    EXPECT_EQ(JournalArgs(), std::vector<std::string>{"-G changes //depot/main/..."});
    EXPECT_EQ(Log(), Performed("-G changes //depot/main/..."));
}

TEST_F(ChangeCmdsTest, ListingOfTheDepotRootAndOfAPathWithoutChanges)
{
    Server(s_pszHistory);
    CChangesCmd cAll;
    ASSERT_TRUE(cAll.EnumChangesForPath(Path(L"//depot")));
    TChange cChange;
    std::vector<unsigned int> anNumbers;
    while (cAll.GetNextChange(cChange))
        anNumbers.push_back(cChange.nChange);
    EXPECT_EQ(anNumbers, (std::vector<unsigned int>{1234, 4, 3, 2, 1}));

    CChangesCmd cNone;
    ASSERT_TRUE(cNone.EnumChangesForPath(Path(L"//depot/nothing")));
    EXPECT_FALSE(cNone.GetNextChange(cChange));
    EXPECT_EQ(JournalArgs(), (std::vector<std::string>{"-G changes //depot/...", "-G changes //depot/nothing/..."}));
}

TEST_F(ChangeCmdsTest, ListingFailure)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "changes", 1);
    CChangesCmd cCmd;
    EXPECT_FALSE(cCmd.EnumChangesForPath(Path(L"//depot/main")));
    TChange cChange;
    EXPECT_FALSE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(Log(), Performed("-G changes //depot/main/...") + SimFailure("-G changes //depot/main/..."));
}

TEST_F(ChangeCmdsTest, RecordWithoutAUsableNumberIsSkipped)
{
    Feed("default", MarshalRecord({{"code", "stat"}, {"change", "abc"}, {"user", "x"}, {"client", "cx"}}) +
                        MarshalRecord({{"change", "0"}, {"user", "zero"}}) +
                        MarshalRecord({{"code", "stat"}, {"change", "77"}, {"time", "5"}, {"user", "y"}}) +
                        MarshalRecord({{"CHANGE", "78"}, {"Time", "later"}, {"USER", "u"}, {"Client", "c"},
                                       {"desc", "ignored"}}));
    CChangesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumChangesForPath(Path(L"//depot/main")));
    TChange cChange;
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 77u);
    EXPECT_EQ(W(cChange.strUser), L"y");
    EXPECT_EQ(W(cChange.strClient), L"");
    EXPECT_EQ(cChange.cTime.GetUTC(), 5L);
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 78u);
    EXPECT_EQ(W(cChange.strUser), L"u");
    EXPECT_EQ(W(cChange.strClient), L"c");
    EXPECT_EQ(cChange.cTime.GetUTC(), 0L);
    EXPECT_FALSE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(FeedArgs(), std::vector<std::string>{"-G changes //depot/main/..."});
}

// Numbers are read as by atoi with a 32-bit long: beyond the 32-bit range
// they saturate, whatever the width of long where the module is built.
TEST_F(ChangeCmdsTest, NumbersBeyond32BitsSaturate)
{
    Feed("default", MarshalRecord({{"change", "4294967297"}, {"time", "2200000000"}, {"user", "a"}}) +
                        MarshalRecord({{"change", "7"}, {"time", "-4294967296"}, {"user", "b"}}));
    CChangesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumChangesForPath(Path(L"//depot/main")));
    TChange cChange;
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 2147483647u);
    EXPECT_EQ(cChange.cTime.GetUTC(), 2147483647L);
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 7u);
    EXPECT_EQ(cChange.cTime.GetUTC(), -2147483647L - 1);
    EXPECT_FALSE(cCmd.GetNextChange(cChange));

    // A revision of 2^32 is not 0: the item counts.
    Feed("-G describe 12", MarshalRecord({{"code", "stat"},
                                          {"change", "12"},
                                          {"desc", "Wide revision"},
                                          {"depotFile0", "//depot/main/x.c"},
                                          {"action0", "edit"},
                                          {"rev0", "4294967296"}}));
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(12, strDescription));
    TChangeItem cItem;
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/x.c");
    EXPECT_EQ(cItem.nRev, 2147483647u);
    EXPECT_FALSE(m_cDescribe.GetNextItem(cItem));
}

TEST_F(ChangeCmdsTest, LastRecordCutShortStillCounts)
{
    Feed("default", MarshalRecord({{"change", "5"}}) + "{" + MarshalString("change") + MarshalString("6") +
                        MarshalString("user") + MarshalString("cut"));
    CChangesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumChangesForPath(Path(L"//depot/main")));
    TChange cChange;
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 5u);
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 6u);
    EXPECT_EQ(W(cChange.strUser), L"cut");
    EXPECT_FALSE(cCmd.GetNextChange(cChange));
}

TEST_F(ChangeCmdsTest, UnexpectedItemEndsTheListing)
{
    Feed("default", MarshalRecord({{"change", "8"}}) + "{" + MarshalString("change") + MarshalString("9") +
                        MarshalString("level") + "i" + Le32(0) + "0" + MarshalRecord({{"change", "10"}}));
    CChangesCmd cCmd;
    ASSERT_TRUE(cCmd.EnumChangesForPath(Path(L"//depot/main")));
    TChange cChange;
    ASSERT_TRUE(cCmd.GetNextChange(cChange));
    EXPECT_EQ(cChange.nChange, 8u);
    EXPECT_FALSE(cCmd.GetNextChange(cChange));
}

TEST_F(ChangeCmdsTest, DescribeGivesDescriptionAndItems)
{
    Server(s_pszHistory);
    CString strDescription = L"old";
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(3, strDescription));
    EXPECT_EQ(W(strDescription), L"Third change\nwith two lines\n");
    TChangeItem cItem;
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/a.c");
    EXPECT_EQ(cItem.eAction, eActionEdit);
    EXPECT_EQ(cItem.nRev, 3u);
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/b.c");
    EXPECT_EQ(cItem.eAction, eActionAdd);
    EXPECT_EQ(cItem.nRev, 1u);
    EXPECT_FALSE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(JournalArgs(), std::vector<std::string>{"-G describe 3"});
    EXPECT_EQ(Log(), Performed("-G describe 3"));
}

TEST_F(ChangeCmdsTest, DescribeOfABigNumber)
{
    Server(s_pszHistory);
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(1234, strDescription));
    EXPECT_EQ(W(strDescription), L"Big number\n");
    TChangeItem cItem;
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/c.c");
    EXPECT_EQ(JournalArgs(), std::vector<std::string>{"-G describe 1234"});
}

TEST_F(ChangeCmdsTest, DescribeRecordFromPreparedBytes)
{
    Feed("-G describe 12", MarshalRecord({{"code", "stat"},
                                          {"change", "12"},
                                          {"desc", "Two files"},
                                          {"depotFile0", "//depot/main/x.c"},
                                          {"action0", "edit"},
                                          {"type0", "text"},
                                          {"rev0", "3"},
                                          {"depotFile1", "//depot/main/y.c"},
                                          {"action1", "add"},
                                          {"type1", "text"},
                                          {"rev1", "1"}}));
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(12, strDescription));
    EXPECT_EQ(W(strDescription), L"Two files");
    TChangeItem cItem;
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/x.c");
    EXPECT_EQ(cItem.eAction, eActionEdit);
    EXPECT_EQ(cItem.nRev, 3u);
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/y.c");
    EXPECT_EQ(cItem.eAction, eActionAdd);
    EXPECT_EQ(cItem.nRev, 1u);
    EXPECT_FALSE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(cItem.cPath.GetItemCount(), 0u);
}

TEST_F(ChangeCmdsTest, EveryActionOfTheTable)
{
    Server(R"({"changes":[
        {"change":1,"time":1,"files":[{"path":"//depot/main/a.c","action":"add","content":"a\n"},
                                     {"path":"//depot/main/d.c","action":"add","content":"d\n"}]},
        {"change":2,"time":2,"files":[{"path":"//depot/rel/a.c","action":"branch","from":"//depot/main/a.c"}]},
        {"change":3,"time":3,"files":[{"path":"//depot/main/a.c","action":"edit","content":"a2\n"}]},
        {"change":4,"time":4,"files":[{"path":"//depot/rel/a.c","action":"integrate","from":"//depot/main/a.c"},
                                     {"path":"//depot/main/d.c","action":"delete"}]}]})");
    CString strDescription;
    TChangeItem cItem;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(2, strDescription));
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/rel/a.c");
    EXPECT_EQ(cItem.eAction, eActionBranch);
    EXPECT_EQ(cItem.nRev, 1u);

    CDescribeCmd cFour;
    ASSERT_TRUE(cFour.EnumItemsForChange(4, strDescription));
    ASSERT_TRUE(cFour.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/d.c");
    EXPECT_EQ(cItem.eAction, eActionDelete);
    EXPECT_EQ(cItem.nRev, 2u);
    ASSERT_TRUE(cFour.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/rel/a.c");
    EXPECT_EQ(cItem.eAction, eActionIntegrate);
    EXPECT_EQ(cItem.nRev, 2u);
    EXPECT_FALSE(cFour.GetNextItem(cItem));
}

TEST_F(ChangeCmdsTest, ActionOutsideTheTableEndsTheList)
{
    Server(R"({"changes":[
        {"change":1,"time":1,"files":[{"path":"//depot/main/a.c","action":"add","content":"a\n"},
                                     {"path":"//depot/main/z.c","action":"add","content":"z\n"},
                                     {"path":"//depot/main/c.c","action":"add","content":"c\n"}]},
        {"change":2,"time":2,"files":[{"path":"//depot/main/a.c","action":"edit","content":"a2\n"},
                                     {"path":"//depot/main/b.c","action":"move/add","from":"//depot/main/z.c"},
                                     {"path":"//depot/main/c.c","action":"edit","content":"c2\n"}]}]})");
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(2, strDescription));
    TChangeItem cItem;
    ASSERT_TRUE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(PathText(cItem), L"//depot/main/a.c");
    EXPECT_EQ(cItem.eAction, eActionEdit);
    EXPECT_EQ(cItem.nRev, 2u);
    // b.c was moved in: "move/add" is no action of the table.
    EXPECT_FALSE(m_cDescribe.GetNextItem(cItem));
}

TEST_F(ChangeCmdsTest, EscapedDepotNamesAreDecoded)
{
    Server(R"({"changes":[{"change":1,"time":1,"files":[
        {"path":"//depot/main/a@b.txt","action":"add","content":"1\n"},
        {"path":"//depot/main/h#1.c","action":"add","content":"2\n"},
        {"path":"//depot/main/p%41.txt","action":"add","content":"3\n"},
        {"path":"//depot/main/s*t.c","action":"add","content":"4\n"}]}]})");
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(1, strDescription));
    std::vector<std::wstring> astrPaths;
    TChangeItem cItem;
    while (m_cDescribe.GetNextItem(cItem))
        astrPaths.push_back(PathText(cItem));
    // The server writes a%40b.txt, h%231.c, p%2541.txt and s%2At.c; an
    // escape that decodes to '%' is decoded once more.
    EXPECT_EQ(astrPaths, (std::vector<std::wstring>{L"//depot/main/a@b.txt", L"//depot/main/h#1.c",
                                                     L"//depot/main/pA.txt", L"//depot/main/s*t.c"}));
}

TEST_F(ChangeCmdsTest, Utf8DescriptionUnderAUtf8Locale)
{
    Server(R"({"changes":[{"change":1,"time":1,"description":"Gr\u00fc\u00dfe \u2713 \ud83d\ude00",
        "files":[{"path":"//depot/main/a.c","action":"add","content":"a\n"}]}]})");
    ASSERT_TRUE(UseUtf8Locale());
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(1, strDescription));
    EXPECT_EQ(W(strDescription), std::wstring(L"Gr\u00FC\u00DFe \u2713 \U0001F600\n"));
}

TEST_F(ChangeCmdsTest, Utf8DescriptionUnderTheCLocaleIsEmpty)
{
    Server(R"({"changes":[{"change":1,"time":1,"description":"Gr\u00fc\u00dfe",
        "files":[{"path":"//depot/main/a.c","action":"add","content":"a\n"}]}]})");
    CString strDescription = L"old";
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(1, strDescription));
    EXPECT_EQ(W(strDescription), L"");
}

TEST_F(ChangeCmdsTest, DescribeFailure)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "describe", 1);
    CString strDescription = L"old";
    EXPECT_FALSE(m_cDescribe.EnumItemsForChange(3, strDescription));
    EXPECT_EQ(W(strDescription), L"old");
    TChangeItem cItem;
    EXPECT_FALSE(m_cDescribe.GetNextItem(cItem));
    EXPECT_EQ(Log(), Performed("-G describe 3") + SimFailure("-G describe 3"));
}

TEST_F(ChangeCmdsTest, DescribeOfAnUnknownChange)
{
    Server(s_pszHistory);
    CString strDescription = L"old";
    EXPECT_FALSE(m_cDescribe.EnumItemsForChange(99, strDescription));
    EXPECT_EQ(W(strDescription), L"old");
}

TEST_F(ChangeCmdsTest, DamagedDescribe)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_GARBLE", "describe", 1);
    ::setenv("P4SIM_GARBLE_MODE", "type", 1);
    CString strDescription = L"old";
    EXPECT_FALSE(m_cDescribe.EnumItemsForChange(3, strDescription));
    EXPECT_EQ(W(strDescription), L"old");
}

TEST_F(ChangeCmdsTest, DescriptionIsTheFirstDescKey)
{
    Feed("default", MarshalRecord({{"code", "stat"}, {"description", "not this"}, {"DESC", "this"}, {"desc", "nor"}}));
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(5, strDescription));
    EXPECT_EQ(W(strDescription), L"this");
    EXPECT_EQ(FeedArgs(), std::vector<std::string>{"-G describe 5"});
}

TEST_F(ChangeCmdsTest, DescribeWithoutDescription)
{
    Feed("default", MarshalRecord({{"code", "stat"}, {"change", "5"}}) + MarshalRecord({{"desc", "next record"}}));
    CString strDescription = L"old";
    EXPECT_FALSE(m_cDescribe.EnumItemsForChange(5, strDescription));
    EXPECT_EQ(W(strDescription), L"old");
}

// GetNextItem over prepared pairs, after the description.
class ItemTest : public ChangeCmdsTest
{
protected:
    void Items(const Pairs& atPairs)
    {
        Pairs atAll = {{"code", "stat"}, {"desc", "d"}};
        atAll.insert(atAll.end(), atPairs.begin(), atPairs.end());
        Feed("default", MarshalRecord(atAll));
        CString strDescription;
        ASSERT_TRUE(m_cDescribe.EnumItemsForChange(1, strDescription));
    }
    TChangeItem m_cItem;
};

TEST_F(ItemTest, SuffixOfActionMustMatch)
{
    Items({{"depotFile0", "//depot/a"}, {"action1", "add"}, {"type1", "text"}, {"rev1", "1"}});
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ItemTest, SuffixOfTypeMustMatch)
{
    Items({{"depotFile0", "//depot/a"}, {"action0", "add"}, {"type1", "text"}, {"rev0", "1"}});
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ItemTest, SuffixOfRevisionMustMatch)
{
    Items({{"depotFile0", "//depot/a"}, {"action0", "add"}, {"type0", "text"}, {"rev00", "1"}});
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ItemTest, SuffixesAreComparedAsText)
{
    Items({{"depotFile07", "//depot/a"}, {"action7", "add"}, {"type7", "text"}, {"rev7", "1"}});
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ItemTest, PrefixesAndSuffixesIgnoreCase)
{
    Items({{"DEPOTFILEa", "//depot/a"}, {"Actiona", "DELETE"}, {"TYPEA", "text"}, {"RevA", "4"}});
    ASSERT_TRUE(m_cDescribe.GetNextItem(m_cItem));
    EXPECT_EQ(PathText(m_cItem), L"//depot/a");
    EXPECT_EQ(m_cItem.eAction, eActionDelete);
    EXPECT_EQ(m_cItem.nRev, 4u);
}

TEST_F(ItemTest, RevisionZeroOrNotANumberEndsTheList)
{
    Items({{"depotFile0", "//depot/a"}, {"action0", "add"}, {"rev0", "0"}, {"depotFile1", "//depot/b"},
           {"action1", "add"}, {"rev1", "x"}, {"depotFile2", "//depot/c"}, {"action2", "add"}, {"rev2", "2"}});
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
    // Reading goes on where it stopped.
    ASSERT_TRUE(m_cDescribe.GetNextItem(m_cItem));
    EXPECT_EQ(PathText(m_cItem), L"//depot/c");
    EXPECT_EQ(m_cItem.nRev, 2u);
}

TEST_F(ItemTest, DepotFileWithoutRevisionIsOverwritten)
{
    Items({{"depotFile0", "//depot/lost"}, {"fileSize0", "3"}, {"depotFile1", "//depot/kept"}, {"digest1", "x"},
           {"action1", "integrate"}, {"type1", "text"}, {"rev1", "9"}});
    ASSERT_TRUE(m_cDescribe.GetNextItem(m_cItem));
    EXPECT_EQ(PathText(m_cItem), L"//depot/kept");
    EXPECT_EQ(m_cItem.eAction, eActionIntegrate);
    EXPECT_EQ(m_cItem.nRev, 9u);
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ItemTest, KeysAreTriedInOrder)
{
    // "revision" begins with "rev": its suffix "ision" does not match.
    Items({{"depotFile0", "//depot/a"}, {"action0", "add"}, {"revision", "1"}, {"rev0", "1"}});
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ItemTest, RevisionBeforeAnyDepotFile)
{
    // The suffix starts empty: a bare "rev" completes an item with no path.
    Items({{"action", "edit"}, {"rev", "2"}});
    ASSERT_TRUE(m_cDescribe.GetNextItem(m_cItem));
    EXPECT_EQ(m_cItem.cPath.GetItemCount(), 0u);
    EXPECT_EQ(m_cItem.eAction, eActionEdit);
    EXPECT_EQ(m_cItem.nRev, 2u);
}

TEST_F(ItemTest, UnexpectedItemEndsTheList)
{
    Feed("default", "{" + MarshalString("desc") + MarshalString("d") + MarshalString("depotFile0") +
                        MarshalString("//depot/a") + MarshalString("action0") + "i" + Le32(1) + "0");
    CString strDescription;
    ASSERT_TRUE(m_cDescribe.EnumItemsForChange(1, strDescription));
    EXPECT_FALSE(m_cDescribe.GetNextItem(m_cItem));
}

TEST_F(ChangeCmdsTest, ActionTexts)
{
    const struct
    {
        const wchar_t* pszText;
        TChangeItemAction eAction;
    } atCases[] = {
        {L"add", eActionAdd},         {L"ADD", eActionAdd},          {L"edit", eActionEdit},
        {L"EDIT", eActionEdit},       {L"Edit", eActionEdit},        {L"branch", eActionBranch},
        {L"Integrate", eActionIntegrate}, {L"delete", eActionDelete}, {L"DeLeTe", eActionDelete},
    };
    for (const auto& tCase : atCases)
    {
        TChangeItemAction eAction = eActionDelete;
        if (tCase.eAction == eActionDelete)
            eAction = eActionAdd;
        EXPECT_TRUE(m_cDescribe.GetActionFromString(tCase.pszText, eAction)) << Utf8(tCase.pszText);
        EXPECT_EQ(eAction, tCase.eAction) << Utf8(tCase.pszText);
    }
    for (const wchar_t* pszText : {L"move/add", L"move/delete", L"purge", L"archive", L"edit ", L" add", L"", L"ad"})
    {
        TChangeItemAction eAction = eActionIntegrate;
        EXPECT_FALSE(m_cDescribe.GetActionFromString(pszText, eAction)) << Utf8(pszText);
        EXPECT_EQ(eAction, eActionIntegrate);
    }
    EXPECT_EQ(static_cast<int>(eActionAdd), 0);
    EXPECT_EQ(static_cast<int>(eActionEdit), 1);
    EXPECT_EQ(static_cast<int>(eActionBranch), 2);
    EXPECT_EQ(static_cast<int>(eActionIntegrate), 3);
    EXPECT_EQ(static_cast<int>(eActionDelete), 4);
}

TEST_F(ChangeCmdsTest, HexDigits)
{
    const wchar_t* pszDigits = L"0123456789";
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(m_cDescribe.ConvertHexChar(pszDigits[i]), i);
    const wchar_t* pszLower = L"abcdef";
    const wchar_t* pszUpper = L"ABCDEF";
    for (int i = 0; i < 6; ++i)
    {
        EXPECT_EQ(m_cDescribe.ConvertHexChar(pszLower[i]), 10 + i);
        EXPECT_EQ(m_cDescribe.ConvertHexChar(pszUpper[i]), 10 + i);
    }
    for (wchar_t c : {L'g', L'G', L'z', L' ', L'%', L'/', L':', L'@', L'`', L'\0', L'\u0660', L'\uFF10'})
        EXPECT_EQ(m_cDescribe.ConvertHexChar(c), -1) << static_cast<int>(c);
}

TEST_F(ChangeCmdsTest, EscapesInAPath)
{
    struct
    {
        const wchar_t* pszIn;
        const wchar_t* pszOut;
    } atCases[] = {
        {L"//depot/a%40b.txt", L"//depot/a@b.txt"},
        {L"//depot/%2a/%2A", L"//depot/*/*"},
        {L"//depot/a%20b%20c", L"//depot/a b c"},
        {L"//depot/p%2541", L"//depot/pA"},
        {L"//depot/%252541", L"//depot/A"},
        {L"//depot/%7e%7E%FF", L"//depot/~~\u00FF"},
        {L"//depot/plain", L"//depot/plain"},
        {L"/tmp/%41%42/x", L"/tmp/AB/x"},
    };
    for (const auto& tCase : atCases)
    {
        CFilePath cPath = Path(tCase.pszIn);
        EXPECT_TRUE(m_cDescribe.ReplaceHexChars(cPath)) << Utf8(tCase.pszIn);
        EXPECT_EQ(W(cPath.GeneratePath(L'/', true)), tCase.pszOut);
    }
}

TEST_F(ChangeCmdsTest, BadEscapeStopsTheDecoding)
{
    CFilePath cPath = Path(L"//depot/x%41/a%zz%41/b%41");
    EXPECT_FALSE(m_cDescribe.ReplaceHexChars(cPath));
    EXPECT_EQ(W(cPath.GeneratePath(L'/', true)), L"//depot/xA/a%zz%41/b%41");

    cPath = Path(L"//depot/a%4z");
    EXPECT_FALSE(m_cDescribe.ReplaceHexChars(cPath));
    EXPECT_EQ(W(cPath.GeneratePath(L'/', true)), L"//depot/a%4z");

    // The decoded item is kept; the next round meets the bad escape.
    cPath = Path(L"//depot/%41%g1");
    EXPECT_FALSE(m_cDescribe.ReplaceHexChars(cPath));
    EXPECT_EQ(W(cPath.GeneratePath(L'/', true)), L"//depot/A%g1");
}

// A name that ends in '%', or in '%' and one character, keeps the decoder
// busy for ever. It is decoded in a child process that must still be running
// when a complete name would long have been done; the child is then killed.
bool KeepsRunning(const char* pszPath)
{
    ORVANE::VCM::CChildProcess cChild;
    const int nDevNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ORVANE::VCM::TSpawnOptions tOptions;
    tOptions.nStdOut = nDevNull;
    const int nError = cChild.Start({g_pszDecodeChild, pszPath}, tOptions);
    ::close(nDevNull);
    if (nError != 0)
        return false;
    // A complete name takes a few milliseconds, however busy the machine.
    const auto tDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    int nStatus = -1;
    while (std::chrono::steady_clock::now() < tDeadline)
    {
        if (cChild.TryWait(nStatus))
            return false;
        struct pollfd* pNone = nullptr;
        ::poll(pNone, 0, 10);
    }
    return true; // the child is killed and reaped with the object
}

TEST_F(ChangeCmdsTest, NameEndingInAPercentNeverFinishes)
{
    EXPECT_TRUE(KeepsRunning("//depot/a%"));
    EXPECT_TRUE(KeepsRunning("//depot/a%4"));
    EXPECT_TRUE(KeepsRunning("//depot/a%41%/b"));
    // The same test finishes for a name that is complete.
    EXPECT_FALSE(KeepsRunning("//depot/a%41"));
    const ORVANE::TEST::TRunResult t = ORVANE::TEST::RunProgram({g_pszDecodeChild, "//depot/a%41%2541"});
    EXPECT_EQ(0, t.nStatus);
    EXPECT_EQ("1 //depot/aAA\n", t.strOut);
}

} // namespace
} // namespace mp4test
