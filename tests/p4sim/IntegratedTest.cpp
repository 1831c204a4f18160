// p4sim's integration records: what branch, integrate, delete and move/add
// with a source record, and `p4 integrated` showing them from both sides.
#include <gtest/gtest.h>

#include "P4SimHarness.h"

using namespace p4simtest;

namespace {

// A mainline with two files, a release branch of it, two edits of a.txt
// on the mainline, then integrations of every kind into the release.
const char* kIntegrations = R"({"changes": [
  {"user": "jo", "client": "jo-ws", "time": 1200000000, "description": "Import",
   "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "a1\n"},
             {"path": "//depot/main/b.txt", "action": "add", "content": "b1\n"},
             {"path": "//depot/main/c.txt", "action": "add", "content": "c1\n"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000100, "description": "Branch",
   "files": [{"path": "//depot/rel/a.txt", "action": "branch", "from": "//depot/main/a.txt"},
             {"path": "//depot/rel/b.txt", "action": "branch", "from": "//depot/main/b.txt"},
             {"path": "//depot/rel/c.txt", "action": "branch", "from": "//depot/main/c.txt"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000200, "description": "Edit a",
   "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "a2\n"},
             {"path": "//depot/main/b.txt", "action": "edit", "content": "b2\n"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000300, "description": "Edit a again, drop c",
   "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "a3\n"},
             {"path": "//depot/main/c.txt", "action": "delete"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000400, "description": "Integrate",
   "files": [{"path": "//depot/rel/a.txt", "action": "integrate", "from": "//depot/main/a.txt",
              "fromRevStart": 3, "fromRev": 3},
             {"path": "//depot/rel/b.txt", "action": "integrate", "from": "//depot/main/b.txt", "how": "ignored"},
             {"path": "//depot/rel/c.txt", "action": "delete", "from": "//depot/main/c.txt"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000500, "description": "Merge back",
   "files": [{"path": "//depot/main/b.txt", "action": "integrate", "from": "//depot/rel/b.txt",
              "content": "b2 merged\n"}]}
]})";

} // namespace

TEST(IntegratedTest, RecordsShowFromBothSides)
{
    SimServer sim;
    sim.Load(kIntegrations);
    Result r = sim.P4({"integrated", "//depot/rel/..."});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "//depot/rel/a.txt#1 - branch from //depot/main/a.txt#1\n"
                     "//depot/rel/a.txt#2 - copy from //depot/main/a.txt#3\n"
                     "//depot/rel/b.txt#1 - branch from //depot/main/b.txt#1\n"
                     "//depot/rel/b.txt#2 - ignored //depot/main/b.txt#2\n"
                     "//depot/rel/b.txt#2 - merge into //depot/main/b.txt#3\n"
                     "//depot/rel/c.txt#1 - branch from //depot/main/c.txt#1\n"
                     "//depot/rel/c.txt#2 - delete from //depot/main/c.txt#2\n");
    r = sim.P4({"integrated", "//depot/main/a.txt", "//depot/main/b.txt"});
    EXPECT_EQ(r.out, "//depot/main/a.txt#1 - branch into //depot/rel/a.txt#1\n"
                     "//depot/main/a.txt#3 - copy into //depot/rel/a.txt#2\n"
                     "//depot/main/b.txt#1 - branch into //depot/rel/b.txt#1\n"
                     "//depot/main/b.txt#2 - ignored by //depot/rel/b.txt#2\n"
                     "//depot/main/b.txt#3 - merge from //depot/rel/b.txt#2\n");
    // The tagged fields; a start revision is the one before the range.
    r = sim.P4({"-G", "integrated", "//depot/rel/a.txt"});
    EXPECT_EQ(r.out, Stat({{"toFile", "//depot/rel/a.txt"},
                           {"fromFile", "//depot/main/a.txt"},
                           {"startToRev", "#none"},
                           {"endToRev", "#1"},
                           {"startFromRev", "#none"},
                           {"endFromRev", "#1"},
                           {"how", "branch from"},
                           {"change", "2"}}) +
                         Stat({{"toFile", "//depot/rel/a.txt"},
                               {"fromFile", "//depot/main/a.txt"},
                               {"startToRev", "#1"},
                               {"endToRev", "#2"},
                               {"startFromRev", "#2"},
                               {"endFromRev", "#3"},
                               {"how", "copy from"},
                               {"change", "5"}}));
    // What each way of resolving left in the files.
    EXPECT_EQ(sim.P4({"print", "-q", "//depot/rel/a.txt"}).out, "a3\n");
    EXPECT_EQ(sim.P4({"print", "-q", "//depot/rel/b.txt"}).out, "b1\n");
    EXPECT_EQ(sim.P4({"files", "//depot/rel/c.txt"}).out, "//depot/rel/c.txt#2 - delete change 5 (text)\n");
    EXPECT_EQ(sim.P4({"files", "//depot/main/b.txt"}).out, "//depot/main/b.txt#3 - integrate change 6 (text)\n");
}

TEST(IntegratedTest, RangesAndSelections)
{
    SimServer sim;
    sim.Load(kIntegrations);
    // Without fromRevStart, the range starts after what was integrated (or
    // came from the target) before: rel/b.txt#1 was main/b.txt#1's branch.
    EXPECT_EQ(sim.P4({"integrated", "//depot/main/b.txt"}).out.find("merge from //depot/rel/b.txt#2\n") !=
                  std::string::npos,
              true);
    // -s: since a change; -m: at most so many.
    EXPECT_EQ(sim.P4({"integrated", "-s", "5", "//depot/rel/..."}).out,
              "//depot/rel/a.txt#2 - copy from //depot/main/a.txt#3\n"
              "//depot/rel/b.txt#2 - ignored //depot/main/b.txt#2\n"
              "//depot/rel/b.txt#2 - merge into //depot/main/b.txt#3\n"
              "//depot/rel/c.txt#2 - delete from //depot/main/c.txt#2\n");
    EXPECT_EQ(sim.P4({"integrated", "-m", "1", "//depot/rel/..."}).out,
              "//depot/rel/a.txt#1 - branch from //depot/main/a.txt#1\n");
    Result r = sim.P4({"integrated", "//depot/other/..."});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "//depot/other/... - no file(s) integrated.\n");
    r = sim.P4({"-G", "integrated", "//depot/other/..."});
    EXPECT_EQ(r.out, Error("//depot/other/... - no file(s) integrated.\n", 2, 17));
}

TEST(IntegratedTest, MovesWithinAndAcrossStreams)
{
    SimServer sim;
    sim.Load(R"({"changes": [
      {"user": "jo", "time": 1200000000, "description": "Import",
       "files": [{"path": "//depot/main/x.c", "action": "add", "content": "x\n"}]},
      {"user": "jo", "time": 1200000100, "description": "Branch",
       "files": [{"path": "//depot/rel/x.c", "action": "branch", "from": "//depot/main/x.c"}]},
      {"user": "jo", "time": 1200000200, "description": "Rename on the mainline",
       "files": [{"path": "//depot/main/z.c", "action": "move/add", "from": "//depot/main/x.c"}]},
      {"user": "jo", "time": 1200000300, "description": "Bring the rename to the release",
       "files": [{"path": "//depot/rel/z.c", "action": "move/add", "from": "//depot/main/z.c", "how": "moved from"},
                 {"path": "//depot/rel/x.c", "action": "move/delete"}]}
    ]})");
    EXPECT_EQ(sim.P4({"integrated", "//depot/main/..."}).out, "//depot/main/x.c#1 - branch into //depot/rel/x.c#1\n"
                                                              "//depot/main/x.c#1 - moved into //depot/main/z.c#1\n"
                                                              "//depot/main/z.c#1 - moved from //depot/main/x.c#1\n"
                                                              "//depot/main/z.c#1 - moved into //depot/rel/z.c#1\n");
    EXPECT_EQ(sim.P4({"files", "//depot/rel/..."}).out, "//depot/rel/x.c#2 - move/delete change 4 (text)\n"
                                                        "//depot/rel/z.c#1 - move/add change 4 (text)\n");
}

TEST(IntegratedTest, AHowThatDoesNotFitIsRefused)
{
    SimServer sim;
    const std::string strHistory = sim.Root() + "/bad.json";
    sim.WriteFile(strHistory, R"({"changes": [
      {"user": "jo", "time": 1200000000, "description": "Import",
       "files": [{"path": "//depot/main/x.c", "action": "add", "content": "x\n"}]},
      {"user": "jo", "time": 1200000100, "description": "Branch",
       "files": [{"path": "//depot/rel/x.c", "action": "branch", "from": "//depot/main/x.c", "how": "ignored"}]}
    ]})");
    Result r = sim.Admin({"load", sim.ServerDir(), strHistory});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("'ignored' does not go with the action branch"), std::string::npos) << r.err;
    sim.WriteFile(strHistory, R"({"changes": [
      {"user": "jo", "time": 1200000000, "description": "Import",
       "files": [{"path": "//depot/main/x.c", "action": "add", "content": "x\n", "how": "copy from"}]}
    ]})");
    r = sim.Admin({"load", sim.ServerDir(), strHistory});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("need 'from'"), std::string::npos) << r.err;
}

TEST(IntegratedTest, GeneratedHistoriesMergeAndCherryPick)
{
    SimServer sim;
    Result r = sim.Admin({"generate", sim.ServerDir(), "--changes", "200", "--branches", "2", "--files", "20", "--seed",
                          "5", "--json", sim.Root() + "/history.json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string strChanges = sim.P4({"changes", "-l"}).out;
    EXPECT_NE(strChanges.find("\tMerge //depot/main/... to //depot/rel"), std::string::npos);
    EXPECT_NE(strChanges.find("\tMerge //depot/rel"), std::string::npos);
    EXPECT_NE(strChanges.find("\tCherry-pick from "), std::string::npos);
    const std::string strIntegrated = sim.P4({"integrated", "//depot/rel1/..."}).out;
    for (const char* psz : {" - branch from ", " - copy from ", " - copy into ", " - ignored "})
        EXPECT_NE(strIntegrated.find(psz), std::string::npos) << psz;
    // The history written by --json records the same integrations.
    SimServer copy;
    copy.Load(ReadFile(sim.Root() + "/history.json"));
    EXPECT_EQ(copy.P4({"-G", "integrated", "//depot/..."}).out, sim.P4({"-G", "integrated", "//depot/..."}).out);
}
