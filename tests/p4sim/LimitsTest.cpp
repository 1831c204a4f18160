// The server's MaxResults and MaxScanRows: set by the history's "limits" or
// by `admin limits`, kept in the server, and enforced by files, fstat,
// print, sync, changes and describe with the server's messages.
//
// Under //depot/main/ the test history has six files at their heads (four
// not deleted) and nine revisions; change 1 has four files, change 2 two.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

namespace {

std::string TooLarge(int limit)
{
    return "Request too large (over " + std::to_string(limit) + "); see 'p4 help maxresults'.";
}

std::string TooManyRows(int limit)
{
    return "Too many rows scanned (over " + std::to_string(limit) + "); see 'p4 help maxscanrows'.";
}

class LimitsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_sim.Load(kHistory);
        m_sim.MakeClient(ClientForm(m_sim.Root() + "/ws"));
    }

    void SetLimits(int maxResults, int maxScanRows)
    {
        Result r = m_sim.Admin({"limits", m_sim.ServerDir(), "--max-results", std::to_string(maxResults),
                                "--max-scan-rows=" + std::to_string(maxScanRows)});
        ASSERT_EQ(r.status, 0) << r.err;
    }

    // The command fails with the message alone, in plain text and with -G
    // (severity 3 E_FAILED, generic 35 EV_ADMIN).
    void ExpectRefused(const std::vector<std::string>& args, const std::string& message)
    {
        Result r = m_sim.P4(args);
        EXPECT_EQ(r.status, 1) << args[0];
        EXPECT_EQ(r.out, "") << args[0];
        EXPECT_EQ(r.err, message + "\n") << args[0];
        std::vector<std::string> marshalled = args;
        marshalled.insert(marshalled.begin(), "-G");
        r = m_sim.P4(marshalled);
        EXPECT_EQ(r.status, 1) << args[0];
        EXPECT_EQ(r.out, Error(message + "\n", 3, 35)) << args[0];
        EXPECT_EQ(r.err, "") << args[0];
    }

    void ExpectAllowed(const std::vector<std::string>& args)
    {
        Result r = m_sim.P4(args);
        EXPECT_EQ(r.status, 0) << args[0] << ": " << r.err;
        EXPECT_EQ(r.err.find("over"), std::string::npos) << r.err;
    }

    SimServer m_sim;
};

} // namespace

TEST_F(LimitsTest, AdminLimitsSetsPrintsAndClears)
{
    Result r = m_sim.Admin({"limits", m_sim.ServerDir()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "MaxResults: unlimited\nMaxScanRows: unlimited\n");
    r = m_sim.Admin({"limits", m_sim.ServerDir(), "--max-results", "5"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "MaxResults: 5\nMaxScanRows: unlimited\n");
    r = m_sim.Admin({"limits", "--max-scan-rows=8", m_sim.ServerDir()});
    EXPECT_EQ(r.out, "MaxResults: 5\nMaxScanRows: 8\n");
    r = m_sim.Admin({"limits", m_sim.ServerDir(), "--max-results", "0"});
    EXPECT_EQ(r.out, "MaxResults: unlimited\nMaxScanRows: 8\n");

    r = m_sim.Admin({"limits", m_sim.ServerDir(), "--max-results", "many"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "p4sim admin limits: --max-results: not a number: 'many'\n"
                     "Usage: p4sim admin limits DIR [--max-results N] [--max-scan-rows N]\n");
    r = m_sim.Admin({"limits", m_sim.Root() + "/nothing", "--max-results", "1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim admin: no server in " + m_sim.Root() + "/nothing\n");
    EXPECT_FALSE(Exists(m_sim.Root() + "/nothing"));
}

TEST_F(LimitsTest, HistoryLimitsHoldForLaterInvocations)
{
    m_sim.Load(R"({"limits": {"maxResults": 2}})");
    EXPECT_EQ(m_sim.Admin({"limits", m_sim.ServerDir()}).out, "MaxResults: 2\nMaxScanRows: unlimited\n");
    ExpectRefused({"changes", "-m", "3"}, TooLarge(2));
    ExpectAllowed({"changes", "-m", "2"});
    // A later history without "limits" leaves them as they are; one with
    // them sets the ones it names.
    m_sim.Load(R"({"users": [{"name": "zed"}]})");
    ExpectRefused({"changes"}, TooLarge(2));
    m_sim.Load(R"({"limits": {"maxResults": 0, "maxScanRows": 4}})");
    EXPECT_EQ(m_sim.Admin({"limits", m_sim.ServerDir()}).out, "MaxResults: unlimited\nMaxScanRows: 4\n");
    ExpectRefused({"changes"}, TooManyRows(4));

    m_sim.WriteFile(m_sim.Root() + "/bad.json", R"({"limits": {"maxResults": -3}})");
    Result r = m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/bad.json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim admin: a limit must be 0 (unlimited) or more\n");
}

TEST_F(LimitsTest, MaxResultsOnEachCommand)
{
    // files and fstat: six files.
    SetLimits(5, 0);
    ExpectRefused({"files", "//depot/main/..."}, TooLarge(5));
    ExpectRefused({"fstat", "//depot/main/..."}, TooLarge(5));
    // What an argument had printed before the limit goes too.
    ExpectRefused({"files", "//depot/main/a.txt", "//depot/main/..."}, TooLarge(5));
    ExpectAllowed({"files", "//depot/main/*.txt"});
    SetLimits(6, 0);
    ExpectAllowed({"files", "//depot/main/..."});
    ExpectAllowed({"fstat", "//depot/main/..."});
    EXPECT_EQ(m_sim.P4({"files", "//depot/main/..."}).out.substr(0, 44),
              "//depot/main/a.txt#2 - edit change 2 (text)\n");

    // print: four revisions that are not deleted.
    SetLimits(3, 0);
    ExpectRefused({"print", "//depot/main/..."}, TooLarge(3));
    SetLimits(4, 0);
    ExpectAllowed({"print", "//depot/main/..."});

    // sync: four files to have; nothing is written when it is refused.
    SetLimits(3, 0);
    ExpectRefused({"sync", "//depot/main/..."}, TooLarge(3));
    EXPECT_FALSE(Exists(m_sim.Root() + "/ws/main/a.txt"));
    EXPECT_EQ(m_sim.P4({"have"}).out, "");
    SetLimits(4, 0);
    ExpectAllowed({"sync", "//depot/main/..."});
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/a.txt"), "one\ntwo\nthree\n");

    // changes: five changes in all, three under //depot/main/.
    SetLimits(4, 0);
    ExpectRefused({"changes"}, TooLarge(4));
    ExpectAllowed({"changes", "-m", "4"});
    ExpectAllowed({"changes", "//depot/main/..."});
    SetLimits(2, 0);
    ExpectRefused({"changes", "//depot/main/..."}, TooLarge(2));

    // describe: the files of the change.
    SetLimits(3, 0);
    ExpectRefused({"describe", "-s", "1"}, TooLarge(3));
    ExpectAllowed({"describe", "-s", "2"});
    SetLimits(4, 0);
    ExpectAllowed({"describe", "-s", "1"});
}

TEST_F(LimitsTest, MaxScanRowsOnEachCommand)
{
    // Nine revisions under //depot/main/.
    SetLimits(0, 8);
    for (const char* command : {"files", "fstat", "print", "sync"})
        ExpectRefused({command, "//depot/main/..."}, TooManyRows(8));
    ExpectRefused({"changes", "//depot/main/..."}, TooManyRows(8));
    EXPECT_FALSE(Exists(m_sim.Root() + "/ws/main/a.txt"));
    // A listing with a maximum stops reading early.
    ExpectAllowed({"changes", "-m", "1", "//depot/main/..."});
    SetLimits(0, 9);
    for (const char* command : {"files", "fstat", "print", "changes", "sync"})
        ExpectAllowed({command, "//depot/main/..."});
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/a.txt"), "one\ntwo\nthree\n");

    // changes without a path reads the five changes; describe the change's
    // revisions.
    SetLimits(0, 4);
    ExpectRefused({"changes"}, TooManyRows(4));
    ExpectAllowed({"changes", "-m", "4"});
    ExpectAllowed({"describe", "-s", "1"});
    SetLimits(0, 3);
    ExpectRefused({"describe", "-s", "1"}, TooManyRows(3));
    // Commands the limits do not apply to.
    SetLimits(1, 1);
    ExpectAllowed({"users"});
    ExpectAllowed({"branches"});
    ExpectAllowed({"info"});
}
