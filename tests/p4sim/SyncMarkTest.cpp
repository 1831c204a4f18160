// Sync marks: a complete sync of one file argument to a change leaves a
// mark, and the next sync of that argument looks only at the files changed
// in between. Its results must be those of a full sync, and the mark must go
// whenever the have list or the view changes otherwise.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include "Store.h"

using namespace p4simtest;
using ORVANE::P4SIM::CStore;
using ORVANE::P4SIM::TSyncMark;

namespace {

std::string Replaced(std::string text, const std::string& from, const std::string& to)
{
    for (size_t p = text.find(from); p != std::string::npos; p = text.find(from, p + to.size()))
        text.replace(p, from.size(), to);
    return text;
}

class SyncMarkTest : public ::testing::Test
{
protected:
    // The sync marks of a client, as "pattern@change:count".
    std::vector<std::string> Marks(const std::string& client)
    {
        CStore store(m_sim.ServerDir());
        store.Begin(false);
        std::vector<std::string> marks;
        for (const TSyncMark& mark : store.SyncMarks(client))
            marks.push_back(mark.strPattern + "@" + std::to_string(mark.nChange) + ":" +
                            std::to_string(mark.nHaveCount));
        store.Rollback();
        return marks;
    }
    Result Sync(const std::string& client, const std::vector<std::string>& args)
    {
        m_sim.Env()["P4CLIENT"] = client;
        std::vector<std::string> all = {"-G", "sync"};
        all.insert(all.end(), args.begin(), args.end());
        return m_sim.P4(all);
    }
    // A client of every branch of a generated history.
    std::string Form(const std::string& client, const std::string& description)
    {
        std::string form = "Client: " + client + "\nRoot: " + m_sim.Root() + "/" + client +
                           "\nDescription: " + description +
                           "\nOptions: noallwrite clobber nocompress unlocked nomodtime normdir\nView:\n";
        for (const char* stream : {"main", "rel1", "rel2"})
            form += std::string(" //depot/") + stream + "/... //" + client + "/" + stream + "/...\n";
        return form + " -//depot/rel2/docs/... //" + client + "/rel2/docs/...\n";
    }
    SimServer m_sim;
};

} // namespace

TEST_F(SyncMarkTest, SyncsFromMarksMatchFullSyncs)
{
    Result g = m_sim.Admin(
        {"generate", m_sim.ServerDir(), "--changes", "120", "--branches", "2", "--files", "25", "--seed", "4"});
    ASSERT_EQ(g.status, 0) << g.err;
    m_sim.MakeClient(Form("wa", "marked"));
    // wb is saved again before every sync, which drops its marks: every one
    // of its syncs is a full one.
    const std::vector<std::vector<std::string>> steps = {{"ROOT/...@10"},
                                                         {"ROOT/...@11"},
                                                         {"ROOT/...@14"},
                                                         {"ROOT/...@13"},
                                                         {"ROOT/...@40"},
                                                         {"ROOT/...@39"},
                                                         {"ROOT/main/...@60"},
                                                         {"ROOT/main/...@61"},
                                                         {"ROOT/...@61"},
                                                         {"ROOT/...#none"},
                                                         {"ROOT/...@70"},
                                                         {"ROOT/...@75"},
                                                         {"//depot/rel1/...@80"},
                                                         {"//depot/rel1/...@95"},
                                                         {"ROOT/...@95"},
                                                         {"ROOT/..."},
                                                         {"ROOT/...@100"},
                                                         {"ROOT/...@100"},
                                                         {"-k", "ROOT/...@104"},
                                                         {"ROOT/...@103"},
                                                         {"-n", "ROOT/...@110"},
                                                         {"ROOT/...@111"},
                                                         {"-m", "2", "ROOT/...@118"},
                                                         {"ROOT/...@118"},
                                                         {"ROOT/...@5"}};
    int variant = 0;
    for (const std::vector<std::string>& step : steps)
    {
        std::vector<std::string> args;
        for (const std::string& arg : step)
            args.push_back(Replaced(arg, "ROOT", m_sim.Root() + "/CLIENT"));
        std::vector<std::string> argsA, argsB;
        for (const std::string& arg : args)
        {
            argsA.push_back(Replaced(arg, "CLIENT", "wa"));
            argsB.push_back(Replaced(arg, "CLIENT", "wb"));
        }
        m_sim.MakeClient(Form("wb", "full " + std::to_string(++variant)));
        Result a = Sync("wa", argsA);
        Result b = Sync("wb", argsB);
        EXPECT_EQ(a.status, b.status) << step.back();
        EXPECT_EQ(Replaced(a.out, "wa", "wb"), b.out) << step.back();
        m_sim.Env()["P4CLIENT"] = "wa";
        std::string haveA = m_sim.P4({"have"}).out;
        m_sim.Env()["P4CLIENT"] = "wb";
        std::string haveB = m_sim.P4({"have"}).out;
        ASSERT_EQ(Replaced(haveA, "wa", "wb"), haveB) << step.back();
    }
    // The last sync left its mark: the change and the number of files.
    m_sim.Env()["P4CLIENT"] = "wa";
    std::string have = m_sim.P4({"have"}).out;
    size_t files = 0;
    for (char c : have)
        files += c == '\n';
    EXPECT_GT(files, 20u);
    EXPECT_EQ(Marks("wa"), std::vector<std::string>{"//wa/...@5:" + std::to_string(files)});
}

TEST_F(SyncMarkTest, ASyncFromAMarkReadsOnlyTheChangedFiles)
{
    m_sim.Load(kHistory);
    const std::string ws = m_sim.Root() + "/ws";
    m_sim.MakeClient(ClientForm(ws));
    Result r = Sync("ws", {ws + "/...@2"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/...@2:5"});
    // A have entry lost behind p4sim's back: a sync from the mark does not
    // see it, as it reads only what changes 3 brought.
    {
        CStore store(m_sim.ServerDir());
        store.Begin(true);
        store.DeleteHave("ws", "//ws/main/img.bin");
        store.Commit();
    }
    r = m_sim.P4({"sync", ws + "/...@3"});
    EXPECT_EQ(r.out, "//depot/rel1/a.txt#1 - added as " + ws +
                         "/rel 1/a.txt\n"
                         "//depot/rel1/sub/b.txt#1 - added as " +
                         ws + "/rel 1/sub/b.txt\n");
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/...@3:7"});
    // Saving the client drops the mark: the next sync is a full one and
    // finds the file missing.
    ASSERT_EQ(m_sim.P4({"client", "-i"}, ClientForm(ws, "noallwrite clobber nocompress unlocked modtime normdir")).out,
              "Client ws saved.\n");
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{});
    r = m_sim.P4({"sync", ws + "/...@3"});
    EXPECT_EQ(r.out, "//depot/main/img.bin#1 - added as " + ws + "/main/img.bin\n");
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/...@3:7"});
}

TEST_F(SyncMarkTest, MarksGoWhenTheirFilesChangeOtherwise)
{
    m_sim.Load(kHistory);
    const std::string ws = m_sim.Root() + "/ws";
    m_sim.MakeClient(ClientForm(ws));
    ASSERT_EQ(Sync("ws", {ws + "/main/...@2"}).status, 0);
    ASSERT_EQ(Sync("ws", {"//ws/rel 1/...@3"}).status, 0);
    EXPECT_EQ(Marks("ws"), (std::vector<std::string>{"//ws/main/...@2:5", "//ws/rel 1/...@3:2"}));
    // Previews and syncs that keep no have list leave the marks alone.
    ASSERT_EQ(Sync("ws", {"-n", ws + "/main/...@4"}).status, 0);
    ASSERT_EQ(Sync("ws", {"-p", ws + "/main/...@4"}).status, 0);
    EXPECT_EQ(Marks("ws"), (std::vector<std::string>{"//ws/main/...@2:5", "//ws/rel 1/...@3:2"}));
    // A sync of one file of main: main's mark goes, rel 1's stays.
    ASSERT_EQ(Sync("ws", {"//depot/main/a.txt#1"}).status, 0);
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/rel 1/...@3:2"});
    // A sync cut short by -m leaves no mark, and takes the old one away.
    Result r = m_sim.P4({"sync", "-m", "1", "//ws/rel 1/...@2"});
    EXPECT_EQ(r.out, "//depot/rel1/a.txt#none - deleted as " + ws + "/rel 1/a.txt\n");
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{});
    ASSERT_EQ(Sync("ws", {ws + "/...@5"}).status, 0);
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/...@5:6"});
    // Deleting the client takes its marks with its have list.
    ASSERT_EQ(m_sim.P4({"client", "-d", "ws"}).out, "Client ws deleted.\n");
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{});
}

TEST_F(SyncMarkTest, AFailedSyncLeavesNoMark)
{
    m_sim.Load(kHistory);
    const std::string ws = m_sim.Root() + "/ws";
    m_sim.MakeClient(ClientForm(ws, "allwrite noclobber nocompress unlocked nomodtime normdir"));
    ASSERT_EQ(Sync("ws", {ws + "/main/...@1"}).status, 0);
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/main/...@1:4"});
    // a.txt is writable and the client does not clobber: the sync fails for
    // it, and the have list is not that of change 2.
    Result r = m_sim.P4({"sync", ws + "/main/...@2"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Can't clobber writable file " + ws + "/main/a.txt\n");
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{});
    r = m_sim.P4({"sync", "-f", ws + "/main/...@2"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Marks("ws"), std::vector<std::string>{"//ws/main/...@2:5"});
}
