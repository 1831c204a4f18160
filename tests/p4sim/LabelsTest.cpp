// Labels: loaded with the history, listed by `labels`, shown by `label -o`,
// and named as `@label` by `files` and `changes`.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

namespace {

// Loaded after kHistory: a label of rel1 as branched, and one of the
// mainline whose later tag of a.txt replaces the earlier one and whose
// deleted and moved-away files are not tagged.
const char* kLabels = R"JSON({
 "labels": [
  {"name": "rel1-base", "owner": "jo", "description": "Release 1 as branched", "view": ["//depot/rel1/..."],
   "time": 1200000300, "files": ["//depot/rel1/...@3"]},
  {"name": "mixed", "owner": "max", "description": "Mainline bits\nwith a second line", "time": 1200000500,
   "files": ["//depot/main/...@4", "//depot/main/a.txt#1"]}
 ]
})JSON";

class LabelsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_sim.Load(kHistory);
        m_sim.Load(kLabels);
    }
    std::string G(const std::vector<std::string>& args, int status = 0)
    {
        std::vector<std::string> a = {"-G"};
        a.insert(a.end(), args.begin(), args.end());
        Result r = m_sim.P4(a);
        EXPECT_EQ(r.status, status) << r.err;
        return r.out;
    }
    SimServer m_sim;
};

} // namespace

TEST_F(LabelsTest, LabelsListing)
{
    Result r = m_sim.P4({"labels"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Label mixed 2008/01/10 'Mainline bits with a second lin'\n"
                     "Label rel1-base 2008/01/10 'Release 1 as branched '\n");
    EXPECT_EQ(m_sim.P4({"labels", "-t", "-u", "jo"}).out,
              "Label rel1-base 2008/01/10 21:25:00 'Release 1 as branched '\n");
    EXPECT_EQ(m_sim.P4({"labels", "-e", "rel*"}).out, "Label rel1-base 2008/01/10 'Release 1 as branched '\n");
    EXPECT_EQ(m_sim.P4({"labels", "-m", "1"}).out, "Label mixed 2008/01/10 'Mainline bits with a second lin'\n");
    // With a file: the labels that tag a file under it.
    EXPECT_EQ(m_sim.P4({"labels", "//depot/main/tools/..."}).out,
              "Label mixed 2008/01/10 'Mainline bits with a second lin'\n");
    EXPECT_EQ(m_sim.P4({"labels", "//depot/main/sub/..."}).out, "");
    EXPECT_EQ(G({"labels", "-e", "rel1-base"}), Stat({{"label", "rel1-base"},
                                                      {"Update", "1200000300"},
                                                      {"Access", "1200000300"},
                                                      {"Owner", "jo"},
                                                      {"Options", "unlocked noautoreload"},
                                                      {"Description", "Release 1 as branched\n"}}));
}

TEST_F(LabelsTest, LabelForm)
{
    EXPECT_EQ(G({"label", "-o", "mixed"}), Stat({{"Label", "mixed"},
                                                 {"Update", "2008/01/10 21:28:20"},
                                                 {"Access", "2008/01/10 21:28:20"},
                                                 {"Owner", "max"},
                                                 {"Description", "Mainline bits\nwith a second line\n"},
                                                 {"Options", "unlocked noautoreload"},
                                                 {"View0", "//depot/..."}}));
    Result r = m_sim.P4({"label", "-o", "rel1-base"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\nLabel:\trel1-base\n\nUpdate:\t2008/01/10 21:25:00\n\nAccess:\t2008/01/10 21:25:00\n\n"
                         "Owner:\tjo\n\nDescription:\n\tRelease 1 as branched\n\nOptions:\tunlocked noautoreload\n\n"
                         "View:\n\t//depot/rel1/...\n\n"),
              std::string::npos)
        << r.out;
    // A label that does not exist: the form a new one would get.
    EXPECT_EQ(G({"label", "-o", "new"}), Stat({{"Label", "new"},
                                               {"Owner", "jo"},
                                               {"Description", "Created by jo.\n"},
                                               {"Options", "unlocked noautoreload"},
                                               {"View0", "//depot/..."}}));
    r = m_sim.P4({"label", "-i"}, "Label: x\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim keeps the labels of 'admin load' as they are: use 'label -o NAME'.\n");
}

TEST_F(LabelsTest, FilesOfALabel)
{
    const std::string strMixed = "//depot/main/a.txt#1 - add change 1 (text)\n"
                                 "//depot/main/img.bin#1 - add change 1 (binary)\n"
                                 "//depot/main/tools/run.sh#1 - move/add change 4 (text+x)\n"
                                 "//depot/main/x%40y%23z%2Aw%25v.txt#1 - add change 2 (text)\n";
    EXPECT_EQ(m_sim.P4({"files", "@mixed"}).out, strMixed);
    EXPECT_EQ(m_sim.P4({"files", "//depot/...@mixed"}).out, strMixed);
    EXPECT_EQ(m_sim.P4({"files", "//depot/main/t...@mixed"}).out,
              "//depot/main/tools/run.sh#1 - move/add change 4 (text+x)\n");
    EXPECT_EQ(m_sim.P4({"files", "//depot/rel1/...@rel1-base"}).out,
              "//depot/rel1/a.txt#1 - branch change 3 (text)\n"
              "//depot/rel1/sub/b.txt#1 - branch change 3 (text)\n");
    EXPECT_EQ(G({"files", "//depot/rel1/a.txt@rel1-base"}), Stat({{"depotFile", "//depot/rel1/a.txt"},
                                                                  {"rev", "1"},
                                                                  {"change", "3"},
                                                                  {"action", "branch"},
                                                                  {"type", "text"},
                                                                  {"time", "1200000200"}}));
    Result r = m_sim.P4({"files", "//depot/rel1/...@mixed"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "//depot/rel1/...@mixed - no such file(s).\n");
    r = m_sim.P4({"files", "//depot/...@nolabel"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Invalid changelist/client/label/date '@nolabel'.\n");
    EXPECT_EQ(G({"files", "@nolabel"}, 1), Error("Invalid changelist/client/label/date '@nolabel'.\n", 3, 2));
}

TEST_F(LabelsTest, ChangesUpToALabel)
{
    // Every change of a revision up to the one the label tags.
    EXPECT_EQ(m_sim.P4({"changes", "//depot/main/...@mixed"}).out,
              "Change 4 on 2008/01/10 by jo@jo-ws 'Delete b, move run.sh and a des'\n"
              "Change 2 on 2008/01/10 by max@max-ws 'Edit a, add the odd name '\n"
              "Change 1 on 2008/01/10 by jo@jo-ws 'Initial import '\n");
    EXPECT_EQ(m_sim.P4({"changes", "-m", "1", "@rel1-base"}).out,
              "Change 3 on 2008/01/10 by jo@jo-ws 'Branch main to rel1 '\n");
    EXPECT_EQ(m_sim.P4({"changes", "-r", "//depot/main/a.txt@mixed"}).out,
              "Change 1 on 2008/01/10 by jo@jo-ws 'Initial import '\n");
    EXPECT_EQ(m_sim.P4({"changes", "//depot/rel1/...@mixed"}).out, "");
    Result r = m_sim.P4({"changes", "//depot/...@nolabel"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Invalid changelist/client/label/date '@nolabel'.\n");
}

TEST_F(LabelsTest, ATagThatNamesNothingFailsTheWholeLoad)
{
    m_sim.WriteFile(m_sim.Root() + "/bad.json", R"({"labels": [
        {"name": "fine", "time": 1, "files": ["//depot/main/..."]},
        {"name": "bad", "time": 1, "files": ["//depot/main/a.txt#9"]}]})");
    Result r = m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/bad.json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim admin: label bad: //depot/main/a.txt#9 names no revision\n");
    EXPECT_EQ(m_sim.P4({"labels"}).out, "Label mixed 2008/01/10 'Mainline bits with a second lin'\n"
                                        "Label rel1-base 2008/01/10 'Release 1 as branched '\n");
}
