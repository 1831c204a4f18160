// The walks the engine drives: streams, changesets and change items.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "TestProvider.h"

using namespace test;
using ORVANE::POSITION;
using ORVANE::PtrToInt;
using ORVANE::MCE::eChangeItemAdd;
using ORVANE::MCE::eChangeItemDelete;
using ORVANE::MCE::eChangeItemModify;

namespace {

std::vector<CProvider::TStreamInfo> FourStreams()
{
    // Array order: a child, two roots, a grandchild.
    return {Stream(3, 1, L"rel1", L"//depot/rel1", L"//depot/main"), Stream(1, 0, L"main", L"//depot/main"),
            Stream(2, 0, L"other", L"//other/trunk"), Stream(4, 3, L"rel1fix", L"//depot/rel1fix", L"//depot/rel1")};
}


} // namespace

TEST(StreamWalk, EstablishStreamsSearchesOnceAndCounts)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    unsigned int nCount = 0;
    EXPECT_EQ(0, c.EstablishStreams(nCount));
    EXPECT_EQ(4u, nCount);
    EXPECT_EQ(0, c.EstablishStreams(nCount));
    EXPECT_EQ(1, c.m_nSearchCalls);
    EXPECT_EQ(4, c.StreamCount());
}

TEST(StreamWalk, NoStreamsIsLoggedEachTime)
{
    TFixedClock tClock(8);
    CTestProvider c;
    c.OpenLog(true);
    unsigned int nCount = 77;
    EXPECT_EQ(1, c.EstablishStreams(nCount));
    EXPECT_EQ(1, c.EstablishStreams(nCount));
    EXPECT_EQ(77u, nCount);
    EXPECT_EQ(1, c.m_nSearchCalls);
    const CString strPath = c.GetLogPath();
    EXPECT_EQ("8: Beginning Import with Test Source\n8: No streams were found.\n8: No streams were found.\n",
              ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(StreamWalk, FailedSearchIsAFailureWithoutMessage)
{
    TFixedClock tClock(8);
    CTestProvider c;
    c.m_bSearchResult = false;
    c.OpenLog(true);
    unsigned int nCount = 0;
    EXPECT_EQ(1, c.EstablishStreams(nCount));
    EXPECT_EQ(1, c.EstablishStreams(nCount)); // searched again: the flag was not set
    EXPECT_EQ(2, c.m_nSearchCalls);
    POSITION pos = nullptr;
    CProvider::TStreamInfo t;
    EXPECT_EQ(1, c.GetNextStream(pos, t, 0));
    const CString strPath = c.GetLogPath();
    EXPECT_EQ("8: Beginning Import with Test Source\n", ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(StreamWalk, ResetStreamsKeepsStorageAndSearchesAgain)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    unsigned int nCount = 0;
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    const int nCapacity = c.Streams().GetCapacity();
    c.ResetStreams();
    EXPECT_EQ(0, c.StreamCount());
    EXPECT_EQ(nCapacity, c.Streams().GetCapacity());
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    EXPECT_EQ(2, c.m_nSearchCalls);
    EXPECT_EQ(4u, nCount);
}

TEST(StreamWalk, RootsThenChildren)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    POSITION pos = nullptr;
    CProvider::TStreamInfo t;
    // GetNextStream searches by itself when nothing was established.
    ASSERT_EQ(0, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(1, c.m_nSearchCalls);
    EXPECT_EQ(1u, t.nID);
    EXPECT_EQ(2, PtrToInt(pos)); // just after the stream returned, the child at 0 skipped
    ASSERT_EQ(0, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(2u, t.nID);
    EXPECT_EQ(3, PtrToInt(pos));
    EXPECT_EQ(2, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(4u, t.nID); // the last stream examined
    EXPECT_EQ(4, PtrToInt(pos)); // moved past it, now at the end
    EXPECT_EQ(2, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(4, PtrToInt(pos));

    pos = nullptr;
    ASSERT_EQ(0, c.GetNextStream(pos, t, 1));
    EXPECT_EQ(3u, t.nID);
    EXPECT_TRUE(t.strName == CString(L"rel1"));
    EXPECT_TRUE(t.cSrcPath.GeneratePath(L'/', true) == CString(L"//depot/main"));
    EXPECT_EQ(2, c.GetNextStream(pos, t, 1));
    pos = nullptr;
    ASSERT_EQ(0, c.GetNextStream(pos, t, 3));
    EXPECT_EQ(4u, t.nID);
    pos = nullptr;
    EXPECT_EQ(2, c.GetNextStream(pos, t, 4));
    EXPECT_EQ(1, c.m_nSearchCalls);
}

TEST(StreamWalk, PositionAtOrPastTheEndGivesTwoAndStays)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    CProvider::TStreamInfo t;
    t.nID = 99;
    POSITION pos = ORVANE::IntToPosition(4);
    EXPECT_EQ(2, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(4, PtrToInt(pos));
    EXPECT_EQ(99u, t.nID); // nothing examined
    pos = ORVANE::IntToPosition(9);
    EXPECT_EQ(2, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(9, PtrToInt(pos));
    pos = ORVANE::IntToPosition(-1);
    EXPECT_EQ(2, c.GetNextStream(pos, t, 0));
    EXPECT_EQ(-1, PtrToInt(pos));
}

TEST(StreamWalk, UnknownParentMatchesTheDefaultStreamsId)
{
    // A default stream's id is 0, so an unknown parent id walks the roots.
    CTestProvider c;
    c.m_atToFind = FourStreams();
    POSITION pos = nullptr;
    CProvider::TStreamInfo t;
    ASSERT_EQ(0, c.GetNextStream(pos, t, 77));
    EXPECT_EQ(1u, t.nID);
}

TEST(StreamWalk, OnBeginStreamWithAnUnknownIdKeepsTheStreamButTakesTheRoot)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    unsigned int nCount = 0;
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    EXPECT_EQ(0, c.OnBeginStream(3, L"/tmp/ws/rel1"));
    EXPECT_EQ(3u, c.CurrentStream().nID);
    EXPECT_TRUE(c.StreamRoot().GeneratePath() == CString(L"/tmp/ws/rel1"));
    EXPECT_EQ(0, c.OnBeginStream(42, L"/tmp/ws/other"));
    EXPECT_EQ(3u, c.CurrentStream().nID);
    EXPECT_TRUE(c.StreamRoot().GeneratePath() == CString(L"/tmp/ws/other"));
}

TEST(ChangesetWalk, EstablishChangesetsEnumeratesOnceAndReportsTheTotal)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    c.m_fnEnumerate = [](CTestProvider& p) {
        p.AddChange(10, 1, L"u", L"a", 100);
        p.AddChange(11, 3, L"u", L"b", 200);
        p.AddChange(12, 3, L"u", L"c", 300);
    };
    unsigned int nCount = 0;
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    c.OnBeginStream(1, L"/tmp/x/main");
    ASSERT_EQ(0, c.EstablishChangesets(nCount));
    EXPECT_EQ(3u, nCount);
    EXPECT_EQ(nullptr, c.Transaction()); // committed
    c.OnBeginStream(3, L"/tmp/x/rel1");
    nCount = 0;
    ASSERT_EQ(0, c.EstablishChangesets(nCount));
    EXPECT_EQ(3u, nCount);
    EXPECT_EQ(1, c.m_nEnumerateCalls);
}

TEST(ChangesetWalk, FailedEnumerationCanBeTriedAgain)
{
    CTestProvider c;
    c.m_bEnumerateResult = false;
    unsigned int nCount = 5;
    EXPECT_EQ(1, c.EstablishChangesets(nCount));
    EXPECT_EQ(5u, nCount);
    EXPECT_NE(nullptr, c.Transaction()); // not committed
    c.m_bEnumerateResult = true;
    EXPECT_EQ(0, c.EstablishChangesets(nCount));
    EXPECT_EQ(2, c.m_nEnumerateCalls);
    EXPECT_EQ(0u, nCount);
}

TEST(ChangesetWalk, StreamWithoutChangesAndChangeWithoutItemsGiveTwo)
{
    CTestProvider c;
    c.m_atToFind = FourStreams();
    c.m_fnEnumerate = [](CTestProvider& p) { p.AddChange(10, 1, L"u", L"a", 100); };
    unsigned int nCount = 0;
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    ASSERT_EQ(0, c.EstablishChangesets(nCount));
    c.OnBeginStream(2, L"/tmp/x/other");
    CProvider::TChangeInfo tChange;
    EXPECT_EQ(2, c.OnFirstChangeset(tChange));
    c.OnBeginStream(1, L"/tmp/x/main");
    ASSERT_EQ(0, c.OnFirstChangeset(tChange));
    CProvider::TChangeItemInfo tItem;
    EXPECT_EQ(2, c.OnFirstChangeItem(tItem));
    EXPECT_EQ(2, c.OnNextChangeset(tChange));
}

TEST(ChangesetWalk, ItemFailuresFirstSilentThenReported)
{
    TScratch tDir;
    TFixedClock tClock(30);
    CTestProvider c;
    c.m_atToFind = {Stream(1, 0, L"main", L"//depot/main")};
    c.m_fnEnumerate = [](CTestProvider& p) {
        const unsigned int n = p.AddChange(10, 1, L"u", L"a", 100);
        p.AddChangeItem(n, 1, eChangeItemAdd, Path(L"a.txt"), 1);
        p.AddChangeItem(n, 2, eChangeItemAdd, Path(L"b.txt"), 1);
        p.AddChangeItem(n, 3, eChangeItemAdd, Path(L"blocked/c.txt"), 1);
        p.UpdateChangeItemCount(n, 4);
    };
    // A file where the folder of item 3 would go.
    const std::string strRoot = tDir.strPath + "/main";
    ASSERT_EQ(0, mkdir(strRoot.c_str(), 0755));
    FILE* pf = fopen((strRoot + "/blocked").c_str(), "w");
    ASSERT_NE(nullptr, pf);
    fclose(pf);

    c.OpenLog(true);
    unsigned int nCount = 0;
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    c.OnBeginStream(1, wxString::FromUTF8(strRoot.c_str()).wc_str());
    ASSERT_EQ(0, c.EstablishChangesets(nCount));
    CProvider::TChangeInfo tChange;
    ASSERT_EQ(0, c.OnFirstChangeset(tChange));
    c.m_anItemResults = {7, 5};
    CProvider::TChangeItemInfo tItem;
    EXPECT_EQ(1, c.OnFirstChangeItem(tItem));
    EXPECT_EQ(1u, tItem.nRevision);
    EXPECT_EQ(1, c.OnNextChangeItem(tItem));
    EXPECT_EQ(1, c.OnNextChangeItem(tItem));
    EXPECT_EQ(2, c.OnNextChangeItem(tItem));
    const CString strPath = c.GetLogPath();
    EXPECT_EQ("30: Beginning Import with Test Source\n"
              "30: Failed to retrieve change item file 'b.txt'\n"
              "30: Failed to create directory '" + strRoot + "/blocked'\n"
              "30: Failed to create folder for change item 'blocked/c.txt'\n",
              ReadFile(strPath));
    wxRemoveFile(strPath);
    ASSERT_EQ(2u, c.m_astrRetrievedItems.size());
}

TEST(ChangesetWalk, FullWalkInTheEnginesOrder)
{
    TScratch tDir;
    CTestProvider c;
    c.m_atToFind = {Stream(1, 0, L"main", L"//depot/main"), Stream(2, 1, L"rel1", L"//depot/rel1", L"//depot/main"),
                    Stream(3, 0, L"tools", L"//tools/trunk")};
    unsigned int nMainA = 0, nMainB = 0, nMainC = 0, nRel = 0, nTools = 0;
    c.m_fnEnumerate = [&](CTestProvider& p) {
        // Newest first, as a source lists them; two changes share a time.
        nMainC = p.AddChange(30, 1, L"ann@ws", L"third", 3000);
        p.AddChangeItem(nMainC, 1, eChangeItemDelete, Path(L"src/old.c"), 2);
        p.UpdateChangeItemCount(nMainC, 2);
        nMainB = p.AddChange(20, 1, L"bob@ws", L"second", 2000);
        p.AddChangeItem(nMainB, 1, eChangeItemModify, Path(L"src/main.c"), 2);
        p.AddChangeItem(nMainB, 2, eChangeItemAdd, Path(L"doc/deep/readme.txt"), 1);
        p.UpdateChangeItemCount(nMainB, 3);
        nMainA = p.AddChange(10, 1, L"ann@ws", L"first", 2000);
        p.AddChangeItem(nMainA, 1, eChangeItemAdd, Path(L"src/main.c"), 1);
        p.UpdateChangeItemCount(nMainA, 2);
        nRel = p.AddChange(25, 2, L"cy@ws2", L"branch", 2500);
        p.AddChangeItem(nRel, 1, eChangeItemAdd, Path(L"src/main.c"), 1);
        p.UpdateChangeItemCount(nRel, 2);
        nTools = p.AddChange(5, 3, L"dee@ws3", L"tools", 500);
        p.UpdateChangeItemCount(nTools, 1);
    };

    std::vector<std::string> astrTrace;
    unsigned int nCount = 0;
    CString strError;
    ASSERT_EQ(0, c.CheckEnvironment(strError));
    ASSERT_EQ(0, c.EstablishStreams(nCount));
    ASSERT_EQ(3u, nCount);

    // The engine walks roots, then the children of each, depth first.
    std::function<void(unsigned int)> fnWalk = [&](unsigned int nParent) {
        POSITION pos = nullptr;
        CProvider::TStreamInfo tStream;
        while (c.GetNextStream(pos, tStream, nParent) == 0)
        {
            // The engine makes each stream's folder before it begins it.
            const std::string strRoot = tDir.strPath + "/" + Utf8(tStream.strName);
            ASSERT_EQ(0, mkdir(strRoot.c_str(), 0755));
            ASSERT_EQ(0, c.OnBeginStream(tStream.nID, wxString::FromUTF8(strRoot.c_str()).wc_str()));
            unsigned int nTotal = 0;
            ASSERT_EQ(0, c.EstablishChangesets(nTotal));
            ASSERT_EQ(5u, nTotal);
            astrTrace.push_back("stream " + Utf8(tStream.strName));
            CProvider::TChangeInfo tChange;
            int r = c.OnFirstChangeset(tChange);
            for (; r == 0; r = c.OnNextChangeset(tChange))
            {
                ASSERT_EQ(0, c.OnProcessChange(tChange));
                astrTrace.push_back(" change " + std::to_string(tChange.nID) + " " + Utf8(tChange.strUser) + " " +
                                    std::to_string(tChange.tTime) + " " + Utf8(tChange.strComment) + " items=" +
                                    std::to_string(tChange.nItemCount));
                CProvider::TChangeItemInfo tItem;
                int s = c.OnFirstChangeItem(tItem);
                for (; s == 0; s = c.OnNextChangeItem(tItem))
                    astrTrace.push_back("  item " + std::to_string(tItem.nChangeID) + " " +
                                        std::to_string(tItem.eType) + " " +
                                        Utf8(tItem.cFilePath.GeneratePath(L'/', true)) + " #" +
                                        std::to_string(tItem.nRevision));
                EXPECT_EQ(2, s);
            }
            EXPECT_EQ(2, r);
            fnWalk(tStream.nID);
        }
    };
    fnWalk(0);

    const std::vector<std::string> astrExpected = {
        "stream main",
        // Equal times come in the order they were recorded.
        " change " + std::to_string(nMainB) + " bob@ws 2000 second items=3",
        "  item " + std::to_string(nMainB) + " 1 src/main.c #2",
        "  item " + std::to_string(nMainB) + " 0 doc/deep/readme.txt #1",
        " change " + std::to_string(nMainA) + " ann@ws 2000 first items=2",
        "  item " + std::to_string(nMainA) + " 0 src/main.c #1",
        " change " + std::to_string(nMainC) + " ann@ws 3000 third items=2",
        "  item " + std::to_string(nMainC) + " 2 src/old.c #2",
        "stream rel1",
        " change " + std::to_string(nRel) + " cy@ws2 2500 branch items=2",
        "  item " + std::to_string(nRel) + " 0 src/main.c #1",
        "stream tools",
        " change " + std::to_string(nTools) + " dee@ws3 500 tools items=1",
    };
    EXPECT_EQ(astrExpected, astrTrace);
    EXPECT_EQ(1, c.m_nEnumerateCalls);

    // Files were asked for under each stream's folder, and their folders made.
    const std::vector<std::string> astrItems = {
        std::to_string(nMainB) + "/1 " + tDir.strPath + "/main/src/main.c",
        std::to_string(nMainB) + "/2 " + tDir.strPath + "/main/doc/deep/readme.txt",
        std::to_string(nMainA) + "/1 " + tDir.strPath + "/main/src/main.c",
        std::to_string(nMainC) + "/1 " + tDir.strPath + "/main/src/old.c",
        std::to_string(nRel) + "/1 " + tDir.strPath + "/rel1/src/main.c",
    };
    EXPECT_EQ(astrItems, c.m_astrRetrievedItems);
    EXPECT_EQ((std::vector<unsigned int>{nMainB, nMainA, nMainC, nRel, nTools}), c.m_anRetrievedChanges);
    struct stat st;
    EXPECT_EQ(0, stat((tDir.strPath + "/main/doc/deep").c_str(), &st));
    EXPECT_EQ(0, stat((tDir.strPath + "/rel1/src").c_str(), &st));
    EXPECT_NE(0, stat((tDir.strPath + "/tools/src").c_str(), &st)); // no items, no folders
}

