// sync: adding, updating and deleting files, the have list, and the
// client's options.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace p4simtest;

namespace {

class SyncTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_sim.Load(kHistory);
        m_ws = m_sim.Root() + "/ws";
    }
    Result Sync(const std::string& arg, const std::vector<std::string>& flags = {})
    {
        std::vector<std::string> a = {"sync"};
        a.insert(a.end(), flags.begin(), flags.end());
        a.push_back(arg);
        return m_sim.P4(a);
    }
    SimServer m_sim;
    std::string m_ws;
};

}  // namespace

TEST_F(SyncTest, AddsUpdatesAndDeletes)
{
    m_sim.MakeClient(ClientForm(m_ws, "noallwrite clobber nocompress unlocked modtime normdir"));
    Result r = Sync(m_ws + "/main/...@1");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "//depot/main/a.txt#1 - added as " + m_ws + "/main/a.txt\n"
                     "//depot/main/img.bin#1 - added as " + m_ws + "/main/img.bin\n"
                     "//depot/main/run.sh#1 - added as " + m_ws + "/main/run.sh\n"
                     "//depot/main/sub/b.txt#1 - added as " + m_ws + "/main/sub/b.txt\n");
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\n");
    EXPECT_EQ(ReadFile(m_ws + "/main/img.bin"), std::string("\0\1\2\xff", 4));
    EXPECT_EQ(Mode(m_ws + "/main/a.txt") & 0222, 0);      // read-only without allwrite
    EXPECT_EQ(Mode(m_ws + "/main/run.sh") & 0100, 0100);  // text+x is executable
    EXPECT_EQ(MTime(m_ws + "/main/a.txt"), 1200000000);   // modtime: the revision's time

    r = Sync(m_ws + "/main/...@4");
    EXPECT_EQ(r.out, "//depot/main/a.txt#2 - updating " + m_ws + "/main/a.txt\n"
                     "//depot/main/run.sh#2 - deleted as " + m_ws + "/main/run.sh\n"
                     "//depot/main/sub/b.txt#2 - deleted as " + m_ws + "/main/sub/b.txt\n"
                     "//depot/main/tools/run.sh#1 - added as " + m_ws + "/main/tools/run.sh\n"
                     "//depot/main/x%40y%23z%2Aw%25v.txt#1 - added as " + m_ws + "/main/x@y#z*w%v.txt\n");
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\nthree\n");
    EXPECT_FALSE(Exists(m_ws + "/main/sub/b.txt"));
    EXPECT_TRUE(Exists(m_ws + "/main/sub"));  // normdir
    EXPECT_EQ(ReadFile(m_ws + "/main/x@y#z*w%v.txt"), "odd\n");

    r = m_sim.P4({"have", m_ws + "/main/..."});
    EXPECT_EQ(r.out, "//depot/main/a.txt#2 - " + m_ws + "/main/a.txt\n"
                     "//depot/main/img.bin#1 - " + m_ws + "/main/img.bin\n"
                     "//depot/main/tools/run.sh#1 - " + m_ws + "/main/tools/run.sh\n"
                     "//depot/main/x%40y%23z%2Aw%25v.txt#1 - " + m_ws + "/main/x@y#z*w%v.txt\n");

    // Back in time, then everything away.
    r = Sync(m_ws + "/main/...@1");
    EXPECT_EQ(ReadFile(m_ws + "/main/sub/b.txt"), "bee\n");
    EXPECT_FALSE(Exists(m_ws + "/main/tools/run.sh"));
    r = Sync(m_ws + "/main/...#none", {"-f"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "//depot/main/a.txt#none - deleted as " + m_ws + "/main/a.txt\n"
                     "//depot/main/img.bin#none - deleted as " + m_ws + "/main/img.bin\n"
                     "//depot/main/run.sh#none - deleted as " + m_ws + "/main/run.sh\n"
                     "//depot/main/sub/b.txt#none - deleted as " + m_ws + "/main/sub/b.txt\n");
    EXPECT_EQ(m_sim.P4({"have"}).out, "");
}

TEST_F(SyncTest, DepotAndClientSyntaxAndRevisions)
{
    m_sim.MakeClient(ClientForm(m_ws));
    Result r = Sync("//depot/main/a.txt#1");
    EXPECT_EQ(r.out, "//depot/main/a.txt#1 - added as " + m_ws + "/main/a.txt\n");
    r = Sync("//ws/main/a.txt");
    EXPECT_EQ(r.out, "//depot/main/a.txt#2 - updating " + m_ws + "/main/a.txt\n");
    r = Sync("//depot/main/a.txt", {"-f"});
    EXPECT_EQ(r.out, "//depot/main/a.txt#2 - refreshing " + m_ws + "/main/a.txt\n");
    r = Sync("//depot/main/a.txt");
    EXPECT_EQ(r.err, "//depot/main/a.txt - file(s) up-to-date.\n");
    r = Sync("//depot/elsewhere/...");
    EXPECT_EQ(r.err, "//depot/elsewhere/... - no such file(s).\n");
    EXPECT_EQ(r.status, 0);
    r = Sync("/not/under/root/...");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Path '/not/under/root/...' is not under client's root '" + m_ws + "'.\n");
    // Relative to the current directory.
    r = m_sim.P4({"sync", "...@2"}, "", m_ws + "/main");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(Exists(m_ws + "/main/x@y#z*w%v.txt"));
}

TEST_F(SyncTest, PreviewAndKeep)
{
    m_sim.MakeClient(ClientForm(m_ws));
    Result r = Sync(m_ws + "/rel 1/...", {"-n"});
    EXPECT_EQ(r.out, "//depot/rel1/a.txt#2 - added as " + m_ws + "/rel 1/a.txt\n"
                     "//depot/rel1/sub/b.txt#1 - added as " + m_ws + "/rel 1/sub/b.txt\n");
    EXPECT_FALSE(Exists(m_ws));
    EXPECT_EQ(m_sim.P4({"have"}).out, "");
    r = Sync(m_ws + "/rel 1/...", {"-k"});
    EXPECT_FALSE(Exists(m_ws));
    EXPECT_EQ(m_sim.P4({"have"}).out, "//depot/rel1/a.txt#2 - " + m_ws + "/rel 1/a.txt\n"
                                      "//depot/rel1/sub/b.txt#1 - " + m_ws + "/rel 1/sub/b.txt\n");
}

TEST_F(SyncTest, NoclobberKeepsWritableFiles)
{
    m_sim.MakeClient(ClientForm(m_ws, "allwrite noclobber nocompress unlocked nomodtime rmdir"));
    Result r = Sync(m_ws + "/main/...@1");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(Mode(m_ws + "/main/a.txt") & 0200, 0200);  // allwrite
    r = Sync(m_ws + "/main/...@2");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Can't clobber writable file " + m_ws + "/main/a.txt\n");
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\n");
    EXPECT_EQ(m_sim.P4({"have", "//depot/main/a.txt"}).out, "//depot/main/a.txt#1 - " + m_ws + "/main/a.txt\n");
    r = Sync(m_ws + "/main/...@2", {"-f"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\nthree\n");
    // rmdir: an emptied folder goes with its last file.
    r = Sync(m_ws + "/main/sub/...#none", {"-f"});
    EXPECT_FALSE(Exists(m_ws + "/main/sub"));
    EXPECT_TRUE(Exists(m_ws + "/main"));
}

TEST_F(SyncTest, ClobberOverwritesWritableFiles)
{
    m_sim.MakeClient(ClientForm(m_ws, "allwrite clobber nocompress unlocked nomodtime normdir"));
    Sync(m_ws + "/main/...@1");
    m_sim.WriteFile(m_ws + "/main/a.txt", "local edit\n");
    Result r = Sync(m_ws + "/main/...@2");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\nthree\n");
}

// An update replaces what the client's file holds, its mode and time, even
// when the new content is shorter, and touches nothing else: another link
// to the same file keeps the old content, and a symbolic link in the
// file's place is replaced, not followed.
TEST_F(SyncTest, UpdatesReplaceOnlyTheClientsFile)
{
    m_sim.MakeClient(ClientForm(m_ws, "noallwrite clobber nocompress unlocked modtime normdir"));
    Sync(m_ws + "/main/...@2");
    ASSERT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\nthree\n");
    ASSERT_EQ(link((m_ws + "/main/a.txt").c_str(), (m_sim.Root() + "/a-link").c_str()), 0);
    m_sim.WriteFile(m_sim.Root() + "/outside.bin", "outside\n");
    ASSERT_EQ(unlink((m_ws + "/main/img.bin").c_str()), 0);
    ASSERT_EQ(symlink((m_sim.Root() + "/outside.bin").c_str(), (m_ws + "/main/img.bin").c_str()), 0);

    Result r = Sync(m_ws + "/main/...@1", {"-f"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\n");
    EXPECT_EQ(Mode(m_ws + "/main/a.txt") & 0222, 0);
    EXPECT_EQ(MTime(m_ws + "/main/a.txt"), 1200000000);
    EXPECT_EQ(ReadFile(m_sim.Root() + "/a-link"), "one\ntwo\nthree\n");
    struct stat st;
    ASSERT_EQ(lstat((m_ws + "/main/img.bin").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(ReadFile(m_ws + "/main/img.bin"), std::string("\0\1\2\xff", 4));
    EXPECT_EQ(ReadFile(m_sim.Root() + "/outside.bin"), "outside\n");

    // A read-only file of the client is rewritten the same way, shorter
    // and longer again.
    r = Sync(m_ws + "/main/a.txt@2");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\nthree\n");
    EXPECT_EQ(Mode(m_ws + "/main/a.txt") & 0222, 0);
}

TEST_F(SyncTest, LineEnds)
{
    m_sim.MakeClient(ClientForm(m_ws, "noallwrite noclobber nocompress unlocked nomodtime normdir", "", "win"));
    Sync(m_ws + "/main/...@2");
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\r\ntwo\r\nthree\r\n");
    EXPECT_EQ(ReadFile(m_ws + "/main/img.bin"), std::string("\0\1\2\xff", 4));  // binary untouched
    m_sim.MakeClient(ClientForm(m_ws, "noallwrite noclobber nocompress unlocked nomodtime normdir", "", "mac"));
    Sync(m_ws + "/main/a.txt", {"-f"});
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\rtwo\rthree\r");
    m_sim.MakeClient(ClientForm(m_ws, "noallwrite noclobber nocompress unlocked nomodtime normdir", "", "unix"));
    Sync(m_ws + "/main/a.txt", {"-f"});
    EXPECT_EQ(ReadFile(m_ws + "/main/a.txt"), "one\ntwo\nthree\n");
}

TEST_F(SyncTest, TheModulesOwnCommandLines)
{
    // Exactly as the migration module writes them: a form with quoted view
    // lines and options ending in a blank, then quoted sync paths.
    std::string form =
        "Client: Orvane_Temp_Client\nOwner: jo\nHost: \nDescription: A temporary client for Orvane migration\n"
        "Root: " + m_ws + "\nOptions: noallwrite clobber nocompress nocrlf unlocked modtime normdir \nLineEnd: local\n"
        "View: \n \"//depot/main/...\" \"//Orvane_Temp_Client/main/...\"\n"
        " \"//depot/rel1/...\" \"//Orvane_Temp_Client/rel1/...\"\n";
    Result r = m_sim.P4({"client", "-i"}, form);
    ASSERT_EQ(r.status, 0) << r.err;
    m_sim.Env()["P4CLIENT"] = "Orvane_Temp_Client";
    r = m_sim.P4({"sync", m_ws + "/rel1/...@5"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/rel1/a.txt"), "one\ntwo\nthree\n");
    r = m_sim.P4({"sync", "-f", m_ws + "/rel1/...#none"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(Exists(m_ws + "/rel1/a.txt"));
    r = m_sim.P4({"client", "-d", "Orvane_Temp_Client"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Client Orvane_Temp_Client deleted.\n");
}
