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
    EXPECT_EQ(0u, ParentCommit(atStreams, atStreams[1], 99));
    EXPECT_EQ(1u, ParentCommit(atStreams, atStreams[1], 100));
    EXPECT_EQ(3u, ParentCommit(atStreams, atStreams[1], 299));
    EXPECT_EQ(5u, ParentCommit(atStreams, atStreams[1], 1000));
    EXPECT_EQ(0u, ParentCommit(atStreams, atStreams[0], 1000));
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
