// Pending and shelved changes: loaded from the history, listed by
// `changes` (with -s), described (with -S), invisible to what the depot's
// revisions show, and submitted by a later load under the next number.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

namespace {

// Change 2 is pending (an edit with the content to submit, an add without
// any), change 4 shelved (a delete, an edit and an add with shelved
// content); 1, 3 and 5 are submitted.
const char* const kPendingHistory = R"JSON({
 "changes": [
  {"user": "jo", "client": "jo-ws", "time": 1200000000, "description": "Initial",
   "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "one\n"},
             {"path": "//depot/main/b.txt", "action": "add", "content": "bee\n"}]},
  {"user": "max", "client": "max-ws", "time": 1200000100, "description": "Work in progress", "status": "pending",
   "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "one\ntwo\n"},
             {"path": "//depot/main/new.txt", "action": "add"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000200, "description": "Second",
   "files": [{"path": "//depot/main/b.txt", "action": "edit", "content": "bee\nbee\n"}]},
  {"user": "kim", "client": "kim-ws", "time": 1200000300, "description": "For review", "status": "shelved",
   "files": [{"path": "//depot/main/a.txt", "action": "delete"},
             {"path": "//depot/main/b.txt", "action": "edit", "content": "shelved\n"},
             {"path": "//depot/other/c.txt", "action": "add", "content": "c\n"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000400, "description": "Third",
   "files": [{"path": "//depot/other/d.txt", "action": "add", "content": "d\n"}]}
 ]
})JSON";

const char* const kLine1 = "Change 1 on 2008/01/10 by jo@jo-ws 'Initial '\n";
const char* const kLine2 = "Change 2 on 2008/01/10 by max@max-ws *pending* 'Work in progress '\n";
const char* const kLine3 = "Change 3 on 2008/01/10 by jo@jo-ws 'Second '\n";
const char* const kLine4 = "Change 4 on 2008/01/10 by kim@kim-ws *pending* 'For review '\n";
const char* const kLine5 = "Change 5 on 2008/01/10 by jo@jo-ws 'Third '\n";

class PendingTest : public ::testing::Test
{
protected:
    void SetUp() override { m_sim.Load(kPendingHistory); }

    Result Load(const std::string& json)
    {
        m_sim.WriteFile(m_sim.Root() + "/more.json", json);
        return m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/more.json"});
    }

    std::string Out(const std::vector<std::string>& args)
    {
        Result r = m_sim.P4(args);
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out;
    }

    SimServer m_sim;
};

} // namespace

TEST_F(PendingTest, ChangesListsPendingAndShelvedChanges)
{
    EXPECT_EQ(Out({"changes"}), std::string(kLine5) + kLine4 + kLine3 + kLine2 + kLine1);
    // With a path, pending and shelved changes by the files they have open.
    EXPECT_EQ(Out({"changes", "//depot/main/..."}), std::string(kLine4) + kLine3 + kLine2 + kLine1);
    EXPECT_EQ(Out({"changes", "-r", "//depot/main/..."}), std::string(kLine1) + kLine2 + kLine3 + kLine4);
    EXPECT_EQ(Out({"changes", "-m", "2", "//depot/main/..."}), std::string(kLine4) + kLine3);
    EXPECT_EQ(Out({"changes", "//depot/main/new.txt"}), kLine2);
    EXPECT_EQ(Out({"changes", "//depot/other/...", "//depot/main/new.txt"}), std::string(kLine5) + kLine4 + kLine2);
    // -s: a shelved change is a pending one with shelved files.
    EXPECT_EQ(Out({"changes", "-s", "submitted"}), std::string(kLine5) + kLine3 + kLine1);
    EXPECT_EQ(Out({"changes", "-s", "pending"}), std::string(kLine4) + kLine2);
    EXPECT_EQ(Out({"changes", "-s", "shelved"}), kLine4);
    EXPECT_EQ(Out({"changes", "-s", "pending", "//depot/other/..."}), kLine4);
    EXPECT_EQ(Out({"changes", "-s", "submitted", "//depot/main/..."}), std::string(kLine3) + kLine1);
    EXPECT_EQ(Out({"changes", "-s", "shelved", "-u", "max"}), "");

    // Their records: status "pending", and "shelved" for a shelved one.
    EXPECT_EQ(Out({"-G", "changes", "-s", "pending"}), Stat({{"change", "4"},
                                                             {"time", "1200000300"},
                                                             {"user", "kim"},
                                                             {"client", "kim-ws"},
                                                             {"status", "pending"},
                                                             {"changeType", "public"},
                                                             {"path", "//depot/..."},
                                                             {"shelved", ""},
                                                             {"desc", "For review\n"}}) +
                                                           Stat({{"change", "2"},
                                                                 {"time", "1200000100"},
                                                                 {"user", "max"},
                                                                 {"client", "max-ws"},
                                                                 {"status", "pending"},
                                                                 {"changeType", "public"},
                                                                 {"path", "//depot/main/..."},
                                                                 {"desc", "Work in progress\n"}}));
    EXPECT_EQ(Out({"-z", "tag", "changes", "-s", "shelved"}),
              "... change 4\n... time 1200000300\n... user kim\n... client kim-ws\n... status pending\n"
              "... changeType public\n... path //depot/...\n... shelved \n... desc For review\n\n\n");
    EXPECT_EQ(Out({"-G", "changes", "-m1", "-s", "submitted"}), Stat({{"change", "5"},
                                                                      {"time", "1200000400"},
                                                                      {"user", "jo"},
                                                                      {"client", "jo-ws"},
                                                                      {"status", "submitted"},
                                                                      {"changeType", "public"},
                                                                      {"path", "//depot/other/..."},
                                                                      {"desc", "Third\n"}}));
    Result r = m_sim.P4({"changes", "-s", "open"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Invalid changelist status 'open'.\n");
}

TEST_F(PendingTest, DescribeShowsOpenedAndShelvedFiles)
{
    // A pending change: its opened files, each at the revision it was
    // opened against (an added file at the one it is to become).
    EXPECT_EQ(Out({"describe", "2"}), "Change 2 by max@max-ws on 2008/01/10 21:21:40 *pending*\n\n"
                                      "\tWork in progress\n\n"
                                      "Affected files ...\n\n"
                                      "... //depot/main/a.txt#1 edit\n"
                                      "... //depot/main/new.txt#1 add\n\n");
    EXPECT_EQ(Out({"-G", "describe", "-s", "2"}), Stat({{"change", "2"},
                                                        {"user", "max"},
                                                        {"client", "max-ws"},
                                                        {"time", "1200000100"},
                                                        {"desc", "Work in progress\n"},
                                                        {"status", "pending"},
                                                        {"changeType", "public"},
                                                        {"path", "//depot/main/..."},
                                                        {"depotFile0", "//depot/main/a.txt"},
                                                        {"action0", "edit"},
                                                        {"type0", "text"},
                                                        {"rev0", "1"},
                                                        {"depotFile1", "//depot/main/new.txt"},
                                                        {"action1", "add"},
                                                        {"type1", "text"},
                                                        {"rev1", "1"}}));
    // b.txt was opened against #2, the head before change 4.
    EXPECT_EQ(Out({"describe", "-s", "4"}), "Change 4 by kim@kim-ws on 2008/01/10 21:25:00 *pending*\n\n"
                                            "\tFor review\n\n"
                                            "Affected files ...\n\n"
                                            "... //depot/main/a.txt#1 delete\n"
                                            "... //depot/main/b.txt#2 edit\n"
                                            "... //depot/other/c.txt#1 add\n\n");
    // -S: the shelved files, with the shelved content's size and digest.
    EXPECT_EQ(Out({"describe", "-S", "4"}), "Change 4 by kim@kim-ws on 2008/01/10 21:25:00 *pending*\n\n"
                                            "\tFor review\n\n"
                                            "Shelved files ...\n\n"
                                            "... //depot/main/a.txt#1 delete\n"
                                            "... //depot/main/b.txt#2 edit\n"
                                            "... //depot/other/c.txt#none add\n\n");
    const std::vector<std::pair<std::string, std::string>> head = {
        {"change", "4"},          {"user", "kim"},          {"client", "kim-ws"},
        {"time", "1200000300"},   {"desc", "For review\n"}, {"status", "pending"},
        {"changeType", "public"}, {"path", "//depot/..."},  {"shelved", ""}};
    std::vector<std::pair<std::string, std::string>> shelved = head;
    shelved.insert(shelved.end(), {{"depotFile0", "//depot/main/a.txt"},
                                   {"action0", "delete"},
                                   {"type0", "text"},
                                   {"rev0", "1"},
                                   {"depotFile1", "//depot/main/b.txt"},
                                   {"action1", "edit"},
                                   {"type1", "text"},
                                   {"rev1", "2"},
                                   {"fileSize1", "8"},
                                   {"digest1", "F14D5246BC510AA8EA5ECCB5C7346446"},
                                   {"depotFile2", "//depot/other/c.txt"},
                                   {"action2", "add"},
                                   {"type2", "text"},
                                   {"rev2", "none"},
                                   {"fileSize2", "2"},
                                   {"digest2", "2CD6EE2C70B0BDE53FBE6CAC3C8B8BB1"}});
    EXPECT_EQ(Out({"-G", "describe", "-s", "-S", "4"}), Stat(shelved));
    std::vector<std::pair<std::string, std::string>> opened = head;
    opened.insert(opened.end(), {{"depotFile0", "//depot/main/a.txt"},
                                 {"action0", "delete"},
                                 {"type0", "text"},
                                 {"rev0", "1"},
                                 {"depotFile1", "//depot/main/b.txt"},
                                 {"action1", "edit"},
                                 {"type1", "text"},
                                 {"rev1", "2"},
                                 {"depotFile2", "//depot/other/c.txt"},
                                 {"action2", "add"},
                                 {"type2", "text"},
                                 {"rev2", "1"}});
    EXPECT_EQ(Out({"-G", "describe", "-s", "4"}), Stat(opened));
    // A submitted change is described as before, -S or not.
    EXPECT_EQ(Out({"describe", "-S", "3"}), Out({"describe", "-s", "3"}));
    EXPECT_EQ(Out({"describe", "-s", "3"}), "Change 3 by jo@jo-ws on 2008/01/10 21:23:20\n\n"
                                            "\tSecond\n\n"
                                            "Affected files ...\n\n"
                                            "... //depot/main/b.txt#2 edit\n\n");
}

TEST_F(PendingTest, APendingChangeNumberMeansTheSubmittedStateUpToIt)
{
    const std::string at1 = "//depot/main/a.txt#1 - add change 1 (text)\n"
                            "//depot/main/b.txt#1 - add change 1 (text)\n";
    EXPECT_EQ(Out({"files", "//depot/...@2"}), at1);
    EXPECT_EQ(Out({"files", "//depot/...@1"}), at1);
    EXPECT_EQ(Out({"files", "//depot/main/...@4"}), "//depot/main/a.txt#1 - add change 1 (text)\n"
                                                    "//depot/main/b.txt#2 - edit change 3 (text)\n");
    // Nothing pending or shelved changes the heads.
    EXPECT_EQ(Out({"files", "//depot/..."}), "//depot/main/a.txt#1 - add change 1 (text)\n"
                                             "//depot/main/b.txt#2 - edit change 3 (text)\n"
                                             "//depot/other/d.txt#1 - add change 5 (text)\n");
    EXPECT_EQ(Out({"print", "-q", "//depot/main/a.txt"}), "one\n");
    EXPECT_EQ(Out({"-G", "fstat", "-T", "headRev,headChange", "//depot/main/a.txt"}),
              Stat({{"headRev", "1"}, {"headChange", "1"}}));
    Result r = m_sim.P4({"files", "//depot/main/new.txt"});
    EXPECT_EQ(r.err, "//depot/main/new.txt - no such file(s).\n");

    // changes: a range that ends at a pending change lists it, and the
    // submitted changes up to it.
    EXPECT_EQ(Out({"changes", "//depot/main/...@2"}), std::string(kLine2) + kLine1);
    EXPECT_EQ(Out({"changes", "//depot/main/...@2,@3"}), std::string(kLine3) + kLine2);
    EXPECT_EQ(Out({"changes", "-s", "submitted", "//depot/...@4"}), std::string(kLine3) + kLine1);

    // sync to a pending change: the files as of change 1; the have list
    // does not see the pending or shelved files.
    m_sim.MakeClient("Client: ws\nRoot: " + m_sim.Root() + "/ws\nView:\n\t//depot/... //ws/...\n");
    EXPECT_EQ(Out({"sync", "//ws/...@2"}), "//depot/main/a.txt#1 - added as " + m_sim.Root() +
                                               "/ws/main/a.txt\n//depot/main/b.txt#1 - added as " + m_sim.Root() +
                                               "/ws/main/b.txt\n");
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/b.txt"), "bee\n");
    Out({"sync", "//ws/...@4"});
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/b.txt"), "bee\nbee\n");
    EXPECT_FALSE(Exists(m_sim.Root() + "/ws/other/c.txt"));
    EXPECT_EQ(Out({"have"}), "//depot/main/a.txt#1 - " + m_sim.Root() + "/ws/main/a.txt\n" + "//depot/main/b.txt#2 - " +
                                 m_sim.Root() + "/ws/main/b.txt\n");
}

TEST_F(PendingTest, SubmitRenumbersAPendingChangeWhenNewerChangesExist)
{
    // Change 2's add had no content: the submission gives it.
    Result r = Load(R"({"changes": [{"submit": 2, "time": 1200000500,
                                      "files": [{"path": "//depot/main/new.txt", "content": "new\n"}]}]})");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Change 2 renamed change 6 and submitted.\n");
    EXPECT_EQ(Out({"changes"}), "Change 6 on 2008/01/10 by max@max-ws 'Work in progress '\n" + std::string(kLine5) +
                                    kLine4 + kLine3 + kLine1);
    r = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Change 2 unknown.\n");
    EXPECT_EQ(Out({"describe", "-s", "6"}), "Change 6 by max@max-ws on 2008/01/10 21:28:20\n\n"
                                            "\tWork in progress\n\n"
                                            "Affected files ...\n\n"
                                            "... //depot/main/a.txt#2 edit\n"
                                            "... //depot/main/new.txt#1 add\n\n");
    EXPECT_EQ(Out({"print", "-q", "//depot/main/a.txt", "//depot/main/new.txt"}), "one\ntwo\nnew\n");
    EXPECT_EQ(Out({"changes", "-s", "pending"}), kLine4);

    // The shelved change: its shelved content, and a new description.
    r = Load(R"({"changes": [{"submit": 4, "time": 1200000600, "description": "Reviewed"}]})");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Change 4 renamed change 7 and submitted.\n");
    EXPECT_EQ(Out({"describe", "-s", "7"}), "Change 7 by kim@kim-ws on 2008/01/10 21:30:00\n\n"
                                            "\tReviewed\n\n"
                                            "Affected files ...\n\n"
                                            "... //depot/main/a.txt#3 delete\n"
                                            "... //depot/main/b.txt#3 edit\n"
                                            "... //depot/other/c.txt#1 add\n\n");
    EXPECT_EQ(Out({"print", "-q", "//depot/main/b.txt", "//depot/other/c.txt"}), "shelved\nc\n");
    EXPECT_EQ(Out({"changes", "-s", "pending"}), "");
    EXPECT_EQ(Out({"changes", "-s", "submitted", "-m", "1"}), "Change 7 on 2008/01/10 by kim@kim-ws 'Reviewed '\n");
}

TEST_F(PendingTest, SubmitOfTheNewestChangeKeepsItsNumber)
{
    m_sim.MakeClient("Client: ws\nRoot: " + m_sim.Root() + "/ws\nView:\n\t//depot/... //ws/...\n");
    Result r = Load(R"({"changes": [{"user": "max", "client": "max-ws", "time": 1200000600, "description": "Last",
                                      "status": "pending",
                                      "files": [{"path": "//depot/main/b.txt", "action": "edit", "content": "x\n"}]}]})");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(Out({"changes", "-m1"}), "Change 6 on 2008/01/10 by max@max-ws *pending* 'Last '\n");
    // A sync while change 6 is pending, then one after its submission.
    Out({"sync"});
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/b.txt"), "bee\nbee\n");
    r = Load(R"({"changes": [{"submit": 6, "time": 1200000700}]})");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Change 6 submitted.\n");
    EXPECT_EQ(Out({"changes", "-m1"}), "Change 6 on 2008/01/10 by max@max-ws 'Last '\n");
    Out({"sync"});
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/b.txt"), "x\n");
    EXPECT_EQ(Out({"-G", "fstat", "-T", "headRev", "//depot/main/b.txt"}), Stat({{"headRev", "3"}}));
    // Numbers go on from the submitted change.
    r = Load(R"({"changes": [{"user": "jo", "time": 1200000800, "description": "After",
                              "files": [{"path": "//depot/main/e.txt", "action": "add", "content": "e\n"}]}]})");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Out({"changes", "-m1"}), "Change 7 on 2008/01/10 by jo@jo-ws 'After '\n");
}

TEST_F(PendingTest, WrongSubmissionsAndPendingChangesRefuseTheLoad)
{
    const std::vector<std::pair<std::string, std::string>> bad = {
        {R"({"submit": 3})", "p4sim admin: submit of change 3: no pending change 3\n"},
        {R"({"submit": 99})", "p4sim admin: submit of change 99: no pending change 99\n"},
        {R"({"submit": 2, "files": [{"path": "//depot/main/b.txt", "content": "b"}]})",
         "p4sim admin: submit of change 2: //depot/main/b.txt is not opened in it\n"},
        // A pending edit without content has none to submit; the newest
        // change keeps its number.
        {R"({"user": "jo", "status": "pending", "files": [{"path": "//depot/main/a.txt", "action": "edit"}]},
            {"submit": 6})",
         "p4sim admin: edit of //depot/main/a.txt in change 6: no content\n"},
        {R"({"user": "jo", "status": "shelved", "files": [{"path": "//depot/main/a.txt", "action": "edit"}]})",
         "p4sim admin: edit of //depot/main/a.txt in change 6: no content to shelve\n"},
        {R"({"user": "jo", "status": "pending", "files": [{"path": "//depot/main/zz.txt", "action": "edit"}]})",
         "p4sim admin: edit of //depot/main/zz.txt in change 6: no such file\n"},
        {R"({"user": "jo", "status": "open", "files": []})", "p4sim admin: unknown status 'open'\n"}};
    for (const auto& entry : bad)
    {
        Result r = Load(R"({"changes": [)" + entry.first + "]}");
        EXPECT_EQ(r.status, 1) << entry.first;
        EXPECT_EQ(r.err, entry.second) << entry.first;
    }
    // Nothing of them stayed.
    EXPECT_EQ(Out({"changes"}), std::string(kLine5) + kLine4 + kLine3 + kLine2 + kLine1);
}
