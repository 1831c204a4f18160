// Plain-text output, views, escaping, the host refusal and the errors a
// client gets without a server.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include "View.h"

using namespace p4simtest;

namespace {

class CommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_sim.Load(kHistory);
        m_ws = m_sim.Root() + "/ws";
    }
    SimServer m_sim;
    std::string m_ws;
};

}  // namespace

TEST_F(CommandsTest, PlainListings)
{
    Result r = m_sim.P4({"changes", "//depot/main/..."});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "Change 4 on 2008/01/10 by jo@jo-ws 'Delete b, move run.sh and a des'\n"
              "Change 2 on 2008/01/10 by max@max-ws 'Edit a, add the odd name '\n"
              "Change 1 on 2008/01/10 by jo@jo-ws 'Initial import '\n");
    r = m_sim.P4({"branches"});
    EXPECT_EQ(r.out, "Branch rel1 2008/01/10 'Release 1 '\n");
    r = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(r.out,
              "Change 2 by max@max-ws on 2008/01/10 21:21:40\n\n"
              "\tEdit a, add the odd name\n\n"
              "Affected files ...\n\n"
              "... //depot/main/a.txt#2 edit\n"
              "... //depot/main/x%40y%23z%2Aw%25v.txt#1 add\n\n");
    r = m_sim.P4({"files", "//depot/main/*.txt"});
    EXPECT_EQ(r.out,
              "//depot/main/a.txt#2 - edit change 2 (text)\n"
              "//depot/main/x%40y%23z%2Aw%25v.txt#1 - add change 2 (text)\n");
    r = m_sim.P4({"-z", "tag", "changes", "-m1"});
    EXPECT_EQ(r.out,
              "... change 5\n... time 1200000400\n... user max\n... client max-ws\n... status submitted\n"
              "... changeType public\n... path //depot/rel1/...\n... desc Integrate a into rel1\n\n\n");
    r = m_sim.P4({"print", "-q", "//depot/main/a.txt#1"});
    EXPECT_EQ(r.out, "one\ntwo\n");
    r = m_sim.P4({"print", "//depot/main/a.txt@1"});
    EXPECT_EQ(r.out, "//depot/main/a.txt#1 - add change 1 (text)\none\ntwo\n");
}

TEST_F(CommandsTest, PrintArgumentsFromStandardInputAndToAFile)
{
    Result r = m_sim.P4({"-x", "-", "print", "-q"}, "//depot/main/sub/b.txt#1\n//depot/main/a.txt#2\n");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "bee\none\ntwo\nthree\n");
    r = m_sim.P4({"print", "-q", "-o", m_sim.Root() + "/out.txt", "//depot/main/a.txt"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(ReadFile(m_sim.Root() + "/out.txt"), "one\ntwo\nthree\n");
}

TEST_F(CommandsTest, ViewLinesWithQuotesBlanksAndExclusions)
{
    m_sim.MakeClient("Client: ws\nRoot: " + m_ws +
                     "\nView:\n"
                     "\t//depot/main/... //ws/all/...\n"
                     "\t-//depot/main/sub/... //ws/all/sub/...\n"
                     "\t\"//depot/main/sub/b.txt\" \"//ws/with blank/bee file.txt\"\n"
                     "\t//depot/rel1/%%1.txt //ws/flat/%%1-rel.txt\n");
    Result r = m_sim.P4({"where", "//depot/main/a.txt", "//depot/main/sub/b.txt", "//depot/main/sub/other.c",
                         "//depot/rel1/a.txt", "//depot/rel1/sub/b.txt"});
    EXPECT_EQ(r.out, "//depot/main/a.txt //ws/all/a.txt " + m_ws + "/all/a.txt\n"
                     "//depot/main/sub/b.txt //ws/with blank/bee file.txt " + m_ws + "/with blank/bee file.txt\n"
                     "//depot/rel1/a.txt //ws/flat/a-rel.txt " + m_ws + "/flat/a-rel.txt\n");
    EXPECT_EQ(r.err, "//depot/main/sub/other.c - file(s) not in client view.\n"
                     "//depot/rel1/sub/b.txt - file(s) not in client view.\n");
    r = m_sim.P4({"sync", "//ws/...@3"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/with blank/bee file.txt"), "bee\n");
    EXPECT_EQ(ReadFile(m_ws + "/flat/a-rel.txt"), "one\ntwo\nthree\n");
    EXPECT_EQ(ReadFile(m_ws + "/all/x@y#z*w%v.txt"), "odd\n");
    EXPECT_FALSE(Exists(m_ws + "/all/sub/b.txt"));
    r = m_sim.P4({"client", "-o"});
    EXPECT_NE(r.out.find("View:\n\t//depot/main/... //ws/all/...\n\t-//depot/main/sub/... //ws/all/sub/...\n"
                         "\t//depot/main/sub/b.txt \"//ws/with blank/bee file.txt\"\n"
                         "\t//depot/rel1/%%1.txt //ws/flat/%%1-rel.txt\n"),
              std::string::npos)
        << r.out;
}

TEST(ViewMapping, LaterLinesWinAndWildcardsCarryOver)
{
    ORVANE::P4SIM::CMapTable t;
    ORVANE::P4SIM::TMapLine l;
    ASSERT_TRUE(ORVANE::P4SIM::ParseViewLine(" \"//depot/a b/...\" \"//c/x y/...\"", l));
    EXPECT_EQ(l.strLeft, "//depot/a b/...");
    EXPECT_EQ(l.strRight, "//c/x y/...");
    t.Add(l);
    ASSERT_TRUE(ORVANE::P4SIM::ParseViewLine("-\"//depot/a b/tmp/...\" \"//c/x y/tmp/...\"", l));
    EXPECT_TRUE(l.bExclude);
    t.Add(l);
    ASSERT_TRUE(ORVANE::P4SIM::ParseViewLine("\"-//depot/*/%%1.c\" //c/src/%%1/*.c", l));
    EXPECT_TRUE(l.bExclude);
    ASSERT_TRUE(ORVANE::P4SIM::ParseViewLine("//depot/%%1/%%2.c //c/src/%%2/%%1.c", l));
    t.Add(l);
    std::string out;
    EXPECT_TRUE(t.Translate("//depot/a b/d/e.txt", out));
    EXPECT_EQ(out, "//c/x y/d/e.txt");
    EXPECT_FALSE(t.Translate("//depot/a b/tmp/e.txt", out));
    EXPECT_TRUE(t.Translate("//depot/lib/main.c", out));
    EXPECT_EQ(out, "//c/src/main/lib.c");
    EXPECT_TRUE(t.TranslateBack("//c/x y/q", out));
    EXPECT_EQ(out, "//depot/a b/q");
    EXPECT_FALSE(ORVANE::P4SIM::ParseViewLine("//depot/only-one", l));
}

TEST_F(CommandsTest, HostRefusal)
{
    m_sim.MakeClient(ClientForm(m_ws, "noallwrite noclobber nocompress unlocked nomodtime normdir", "buildhost"));
    Result r = m_sim.P4({"sync"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Client 'ws' can only be used from host 'buildhost'.\n");
    r = m_sim.P4({"-G", "sync", m_ws + "/main/...@1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, Error("Client 'ws' can only be used from host 'buildhost'.\n", 3, 6));
    EXPECT_FALSE(Exists(m_ws));
    r = m_sim.P4({"-H", "buildhost", "sync", m_ws + "/main/...@1"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(Exists(m_ws + "/main/a.txt"));
}

TEST_F(CommandsTest, UnknownClientIsRefused)
{
    m_sim.Env()["P4CLIENT"] = "ghost";
    Result r = m_sim.P4({"sync", "//depot/main/..."});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Client 'ghost' unknown - use 'client' command to create it.\n");
}

TEST_F(CommandsTest, ClientViewMustBeUnderTheClient)
{
    Result r = m_sim.P4({"client", "-i"}, "Client: ws\nRoot: /tmp\nView:\n\t//depot/... //other/...\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error in client specification.\nMapping '//other/...' is not under '//ws/...'.\n");
    r = m_sim.P4({"client", "-i"}, "Client: ws\nRoot: /tmp\nOptions: sometimes\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error in client specification.\nInvalid option 'sometimes' in Options option field.\n");
}

TEST_F(CommandsTest, ClientCreateAndDeleteMessages)
{
    Result r = m_sim.P4({"client", "-i"}, ClientForm(m_ws));
    EXPECT_EQ(r.out, "Client ws saved.\n");
    r = m_sim.P4({"clients"});
    EXPECT_NE(r.out.find("Client ws "), std::string::npos);
    EXPECT_NE(r.out.find(" root " + m_ws + " 'A test client '\n"), std::string::npos);
    r = m_sim.P4({"client", "-d", "ws"});
    EXPECT_EQ(r.out, "Client ws deleted.\n");
    r = m_sim.P4({"client", "-d", "ws"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Client 'ws' doesn't exist.\n");
}

TEST_F(CommandsTest, BranchFormRoundTrip)
{
    Result r = m_sim.P4({"branch", "-i"},
                        "Branch: rel2\nOwner: max\nDescription:\n\tSecond release\nOptions: locked\nView:\n"
                        "\t//depot/main/... //depot/rel2/...\n\t\"//depot/main/a b/...\" \"//depot/rel2/c d/...\"\n");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Branch rel2 saved.\n");
    r = m_sim.P4({"-G", "branch", "-o", "rel2"});
    std::string view1 = "//depot/main/a b/... //depot/rel2/c d/...";
    EXPECT_NE(r.out.find("\"//depot/main/a b/...\" \"//depot/rel2/c d/...\""), std::string::npos);
    r = m_sim.P4({"branches", "-u", "max"});
    EXPECT_EQ(r.out.substr(0, 12), "Branch rel2 ");
}

TEST_F(CommandsTest, NoServerGivesTheConnectError)
{
    m_sim.Env()["P4PORT"] = "perforce:1666";
    Result r = m_sim.P4({"changes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "Perforce client error:\n\tConnect to server failed; check $P4PORT.\n"
              "\tTCP connect to perforce:1666 failed.\n\tconnect: perforce:1666: Connection refused\n");
    r = m_sim.P4({"-G", "-p", "sim:" + m_sim.Root() + "/nothing", "changes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, Error("Connect to server failed; check $P4PORT.\nTCP connect to sim:" + m_sim.Root() +
                               "/nothing failed.\nconnect: sim:" + m_sim.Root() + "/nothing: Connection refused\n",
                           4, 38));
}

TEST_F(CommandsTest, InfoAndLogin)
{
    // A server without passwords answers `login -s` with an informational
    // message: with -G the record a real client writes, byte for byte
    // ("code" "info", "level" 0, then "data" without a line end).
    const std::string expected = std::string("{s\x04\0\0\0codes\x04\0\0\0infos\x05\0\0\0leveli\0\0\0\0", 34) +
                                 std::string("s\x04\0\0\0datas\x35\0\0\0", 14) +
                                 "'login' not necessary, no password set for this user.0";
    Result r = m_sim.P4({"-G", "login", "-s"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(r.out, Info("'login' not necessary, no password set for this user."));
    r = m_sim.P4({"login", "-s"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "'login' not necessary, no password set for this user.\n");
    EXPECT_EQ(r.err, "");
    r = m_sim.P4({"-z", "tag", "login", "-s"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "'login' not necessary, no password set for this user.\n");
    r = m_sim.P4({"info"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("User name: jo\nClient name: *unknown*\nClient host: h1\n"), std::string::npos);
}
