// The stream list, its table and its graph.
#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "FakeProvider.h"
#include "Graph.h"
#include "Stop.h"
#include "Streams.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;

namespace {

TStreams Demo()
{
    TStreams atStreams = MakeStreams({FakeStream(1, 0, "depot_main", "//depot/main"),
                                      FakeStream(2, 1, "rel1", "//depot/rel1", "//depot/main"),
                                      FakeStream(3, 1, "Say \"r\xC3\xA9l\"", "//depot/rel2", "//depot/main")});
    return atStreams;
}

} // namespace

TEST(Streams, MadeFromTheProvidersStreams)
{
    TStreams atStreams = Demo();
    ASSERT_EQ(3u, atStreams.size());
    EXPECT_EQ("Say \"r\xC3\xA9l\"", atStreams[2].strName);
    EXPECT_EQ(1u, atStreams[2].tInfo.nParentID);
    NameBranches(atStreams);
    PlaceStreams(atStreams, "/ws");
    EXPECT_EQ("depot_main", atStreams[0].strBranch);
    EXPECT_EQ("Say_\"r\xC3\xA9l\"", atStreams[2].strBranch);
    EXPECT_EQ("/ws/rel1", atStreams[1].strFolder);

    TStreamInfo tNewer = FakeStream(2, 1, "rel1", "//depot/rel1", "//depot/main");
    tNewer.nBaseChangeID = 12;
    RefreshStreams(atStreams, {tNewer, FakeStream(9, 0, "unknown", "//depot/x")});
    EXPECT_EQ(12u, atStreams[1].tInfo.nBaseChangeID);
    EXPECT_EQ(3u, atStreams.size());
}

TEST(Streams, ParentCommitIsTheLastAtOrBeforeTheTime)
{
    TStreams atStreams = Demo();
    atStreams[0].atCommits = {{100, 1}, {200, 3}, {300, 5}};
    EXPECT_EQ("", ParentCommit(atStreams, atStreams[1], 99));
    EXPECT_EQ(":1", ParentCommit(atStreams, atStreams[1], 100));
    EXPECT_EQ(":3", ParentCommit(atStreams, atStreams[1], 299));
    EXPECT_EQ(":5", ParentCommit(atStreams, atStreams[1], 1000));
    EXPECT_EQ("", ParentCommit(atStreams, atStreams[0], 1000));
    // With the commits of earlier runs before them.
    const std::string strA(40, 'a'), strB(40, 'b');
    atStreams[0].atEarlier = {{40, strA}, {60, strB}};
    EXPECT_EQ("", ParentCommit(atStreams, atStreams[1], 39));
    EXPECT_EQ(strA, ParentCommit(atStreams, atStreams[1], 59));
    EXPECT_EQ(strB, ParentCommit(atStreams, atStreams[1], 99));
    EXPECT_EQ(":1", ParentCommit(atStreams, atStreams[1], 100));
}

TEST(Streams, EarlierCommitsAreTheStreamsOwnFromItsTip)
{
    TStreams atStreams = Demo();
    NameBranches(atStreams);
    std::string strError;
    // rel1's branch: two commits of its own on top of the mainline's.
    const std::vector<TGitCommit> atLog = {{std::string(40, 'c'), 300, 12, "//depot/rel1/..."},
                                           {std::string(40, 'b'), 200, 9, "//depot/rel1/..."},
                                           {std::string(40, 'a'), 100, 5, "//depot/main/..."}};
    ASSERT_TRUE(TakeEarlierCommits(atStreams[1], atLog, strError)) << strError;
    EXPECT_EQ(12u, atStreams[1].nLastChange);
    EXPECT_EQ((std::vector<std::pair<long, std::string>>{{200, std::string(40, 'b')}, {300, std::string(40, 'c')}}),
              atStreams[1].atEarlier);
    // No branch: nothing held.
    ASSERT_TRUE(TakeEarlierCommits(atStreams[1], {}, strError));
    EXPECT_EQ(0u, atStreams[1].nLastChange);
    EXPECT_TRUE(atStreams[1].atEarlier.empty());
    // A tip of another stream, or without trailers.
    EXPECT_FALSE(TakeEarlierCommits(atStreams[0], atLog, strError));
    EXPECT_EQ("the branch depot_main does not end with a commit of the stream depot_main (trailers Perforce-Change "
              "and Perforce-Path: //depot/main/...)",
              strError);
    EXPECT_FALSE(TakeEarlierCommits(atStreams[1], {{std::string(40, 'd'), 1, 0, ""}}, strError));
}

TEST(Streams, HeadIsTheFirstStreamWithCommits)
{
    TStreams atStreams = Demo();
    NameBranches(atStreams);
    EXPECT_EQ("", HeadBranch(atStreams));
    atStreams[1].atCommits = {{100, 2}};
    EXPECT_EQ("rel1", HeadBranch(atStreams));
    atStreams[0].atCommits = {{50, 1}};
    EXPECT_EQ("depot_main", HeadBranch(atStreams));
    atStreams[0].atCommits.clear();
    atStreams[0].atEarlier = {{40, std::string(40, 'a')}};
    EXPECT_EQ("depot_main", HeadBranch(atStreams));
}

TEST(Streams, Table)
{
    TStreams atStreams = Demo();
    NameBranches(atStreams);
    atStreams[0].atCommits = {{50, 1}, {60, 2}};
    atStreams[0].nChanges = 2;
    EXPECT_EQ("ID  PARENT  NAME        SOURCE        DESTINATION\n"
              "1   0       depot_main  -             //depot/main\n"
              "2   1       rel1        //depot/main  //depot/rel1\n"
              "3   1       Say \"r\xC3\xA9l\"   //depot/main  //depot/rel2\n",
              FormatTable(StreamRows(atStreams, false)));
    EXPECT_EQ("ID  PARENT  NAME        SOURCE        DESTINATION   BRANCH                 COMMITS\n"
              "1   0       depot_main  -             //depot/main  refs/heads/depot_main  2\n"
              "2   1       rel1        //depot/main  //depot/rel1  -                      0\n"
              "3   1       Say \"r\xC3\xA9l\"   //depot/main  //depot/rel2  -                      0\n",
              FormatTable(StreamRows(atStreams, true)));
}

TEST(Graph, DotText)
{
    EXPECT_EQ("plain", DotText("plain"));
    EXPECT_EQ("a \\\"b\\\" c\\\\d", DotText("a \"b\" c\\d"));
    EXPECT_EQ("digraph streams {\n"
              "    rankdir=LR;\n"
              "    node [shape=box, fontname=\"sans-serif\"];\n"
              "    s1 [label=\"depot_main\\n//depot/main\"];\n"
              "    s2 [label=\"rel1\\n//depot/rel1\"];\n"
              "    s3 [label=\"Say \\\"r\xC3\xA9l\\\"\\n//depot/rel2\"];\n"
              "    s1 -> s2;\n"
              "    s1 -> s3;\n"
              "}\n",
              StreamGraph(Demo()));
}

TEST(Graph, WrittenAsDotOrSvg)
{
    TScratch tScratch;
    const std::string strDot = StreamGraph(Demo());
    WriteGraph(strDot, tScratch.Path() + "/g.dot");
    EXPECT_EQ(strDot, ReadWholeFile(tScratch.Path() + "/g.dot"));
    WriteGraph(strDot, tScratch.Path() + "/g.svg");
    EXPECT_NE(std::string::npos, ReadWholeFile(tScratch.Path() + "/g.svg").find("<svg"));
    try
    {
        WriteGraph(strDot, tScratch.Path() + "/none/g.dot");
        FAIL() << "written";
    }
    catch (const EStop& e)
    {
        EXPECT_EQ("cannot write " + tScratch.Path() + "/none/g.dot", std::string(e.what()));
    }
    try
    {
        WriteGraph(strDot, tScratch.Path() + "/none/g.svg");
        FAIL() << "written";
    }
    catch (const EStop& e)
    {
        const std::string strPrefix = "graphviz dot could not write " + tScratch.Path() + "/none/g.svg: ";
        EXPECT_EQ(strPrefix, std::string(e.what()).substr(0, strPrefix.size()));
        EXPECT_EQ(eExitFailure, e.Status());
    }
}
