// The test switches: P4SIM_JOURNAL, P4SIM_FAIL, P4SIM_LATENCY_MS,
// P4SIM_GARBLE, P4SIM_TICKET and P4SIM_DROP.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <map>

using namespace p4simtest;

namespace {

class SwitchesTest : public ::testing::Test {
protected:
    void SetUp() override { m_sim.Load(kHistory); }
    SimServer m_sim;
};

const char* kDecodeAll =
    "import io, marshal, sys\n"
    "data = sys.stdin.buffer.read()\n"
    "f = io.BytesIO(data)\n"
    "n = 0\n"
    "try:\n"
    "    while f.tell() < len(data):\n"
    "        d = marshal.load(f)\n"
    "        if not isinstance(d, dict): raise ValueError('not a dict')\n"
    "        if not all(isinstance(v, (bytes, int)) for v in d.values()): raise ValueError('bad value')\n"
    "        n += 1\n"
    "    print('ok', n)\n"
    "except Exception as e:\n"
    "    print('broken')\n";

std::string Decode(const std::string& bytes)
{
    Result py = RunProcess(P4SIM_PYTHON3, {"-c", kDecodeAll}, {{"PATH", "/usr/bin:/bin"}}, bytes);
    return py.out;
}

}  // namespace

TEST_F(SwitchesTest, JournalRecordsEachInvocation)
{
    std::string journal = m_sim.Root() + "/journal.jsonl";
    m_sim.Env()["P4SIM_JOURNAL"] = journal;
    m_sim.P4({"-G", "changes", "//depot/main/..."});
    m_sim.P4({"client", "-i"}, ClientForm(m_sim.Root() + "/ws"), m_sim.Root());
    m_sim.P4({"describe", "99"});
    std::vector<std::string> lines;
    std::string text = ReadFile(journal);
    for (size_t p = 0; p < text.size();) {
        size_t e = text.find('\n', p);
        lines.push_back(text.substr(p, e - p));
        p = e + 1;
    }
    ASSERT_EQ(lines.size(), 3u);
    auto j0 = nlohmann::json::parse(lines[0]);
    EXPECT_EQ(j0["argv"].size(), 4u);
    EXPECT_EQ(j0["argv"][1], "-G");
    EXPECT_EQ(j0["args"], "-G changes //depot/main/...");
    EXPECT_EQ(j0["P4CLIENT"], "ws");
    EXPECT_EQ(j0["P4HOST"], "h1");
    EXPECT_EQ(j0["P4PORT"], "sim:" + m_sim.ServerDir());
    EXPECT_EQ(j0["P4USER"], "jo");
    EXPECT_EQ(j0["stdin"], "");
    EXPECT_EQ(j0["exit"], 0);
    auto j1 = nlohmann::json::parse(lines[1]);
    EXPECT_EQ(j1["args"], "client -i");
    EXPECT_EQ(j1["cwd"], m_sim.Root());
    EXPECT_EQ(j1["stdin"], ClientForm(m_sim.Root() + "/ws"));
    auto j2 = nlohmann::json::parse(lines[2]);
    EXPECT_EQ(j2["exit"], 1);
}

TEST_F(SwitchesTest, FailMakesMatchingInvocationsFail)
{
    m_sim.Env()["P4SIM_FAIL"] = "^-G describe [0-9]+$";
    Result r = m_sim.P4({"-G", "describe", "2"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "p4sim: simulated failure of '-G describe 2'\np4sim: the command matched P4SIM_FAIL\n");
    r = m_sim.P4({"-G", "changes"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(Decode(r.out), "ok 5\n");
}

TEST_F(SwitchesTest, LatencyDelaysEveryInvocation)
{
    // A lower bound only: the wait is at least what was asked for.
    m_sim.Env()["P4SIM_LATENCY_MS"] = "250";
    auto start = std::chrono::steady_clock::now();
    Result r = m_sim.P4({"-G", "branches"});
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    EXPECT_EQ(r.status, 0);
    EXPECT_GE(waited.count(), 250);
    EXPECT_EQ(Decode(r.out), "ok 1\n");
}

TEST_F(SwitchesTest, GarbleBreaksMarshalledOutput)
{
    Result clean = m_sim.P4({"-G", "describe", "2"});
    ASSERT_EQ(Decode(clean.out), "ok 1\n");
    m_sim.Env()["P4SIM_GARBLE"] = "describe";

    Result cut = m_sim.P4({"-G", "describe", "2"});
    EXPECT_EQ(cut.status, 0);
    EXPECT_LT(cut.out.size(), clean.out.size());
    EXPECT_EQ(cut.out, clean.out.substr(0, cut.out.size()));
    EXPECT_EQ(Decode(cut.out), "broken\n");

    m_sim.Env()["P4SIM_GARBLE_MODE"] = "type";
    Result type = m_sim.P4({"-G", "describe", "2"});
    ASSERT_EQ(type.out.size(), clean.out.size());
    // The value of "code" is announced as an integer.
    EXPECT_EQ(type.out.substr(0, 10), clean.out.substr(0, 10));
    EXPECT_EQ(type.out[10], 'i');
    EXPECT_EQ(type.out.substr(11), clean.out.substr(11));

    m_sim.Env()["P4SIM_GARBLE_MODE"] = "length";
    Result length = m_sim.P4({"-G", "describe", "2"});
    ASSERT_EQ(length.out.size(), clean.out.size());
    EXPECT_NE(length.out, clean.out);
    EXPECT_EQ(Decode(length.out), "broken\n");

    // Other commands, and output without -G, stay intact.
    EXPECT_EQ(Decode(m_sim.P4({"-G", "changes"}).out), "ok 5\n");
    EXPECT_EQ(m_sim.P4({"describe", "-s", "2"}).out.substr(0, 9), "Change 2 ");
}

TEST_F(SwitchesTest, ExpiredTicketRefusesEveryCommandButInfo)
{
    m_sim.Env()["P4SIM_TICKET"] = "expired";
    const std::string text = "Your session has expired, please login again.";
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{{"changes"},
                                                                                      {"describe", "2"},
                                                                                      {"files", "//depot/..."},
                                                                                      {"fstat", "//depot/main/a.txt"},
                                                                                      {"print", "//depot/main/a.txt"},
                                                                                      {"sync"},
                                                                                      {"users"},
                                                                                      {"client", "-o"},
                                                                                      {"login", "-s"}})
    {
        Result r = m_sim.P4(args);
        EXPECT_EQ(r.status, 1) << args[0];
        EXPECT_EQ(r.out, "") << args[0];
        EXPECT_EQ(r.err, text + "\n") << args[0];
        std::vector<std::string> marshalled = args;
        marshalled.insert(marshalled.begin(), "-G");
        r = m_sim.P4(marshalled);
        EXPECT_EQ(r.status, 1) << args[0];
        // E_FAILED, EV_ILLEGAL.
        EXPECT_EQ(r.out, Error(text + "\n", 3, 4)) << args[0];
        EXPECT_EQ(r.err, "") << args[0];
    }
    // `info` needs no login; help is the client's own.
    Result r = m_sim.P4({"info"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.substr(0, 22), "User name: jo\nClient n");
    r = m_sim.P4({"help", "sync"});
    EXPECT_EQ(r.status, 0);
    // A client without a server still cannot connect.
    m_sim.Env()["P4PORT"] = "perforce:1666";
    r = m_sim.P4({"changes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.substr(0, 23), "Perforce client error:\n");
}

TEST_F(SwitchesTest, MissingTicketRefusesWithThePasswordMessage)
{
    m_sim.Env()["P4SIM_TICKET"] = "missing";
    Result r = m_sim.P4({"-G", "changes", "-m1"});
    EXPECT_EQ(r.status, 1);
    // E_FAILED, EV_CONFIG.
    EXPECT_EQ(r.out, Error("Perforce password (P4PASSWD) invalid or unset.\n", 3, 36));
    r = m_sim.P4({"login", "-s"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Perforce password (P4PASSWD) invalid or unset.\n");
    EXPECT_EQ(m_sim.P4({"info"}).status, 0);
    // Any other value is a valid ticket.
    m_sim.Env()["P4SIM_TICKET"] = "valid";
    EXPECT_EQ(m_sim.P4({"changes", "-m1"}).status, 0);
}

namespace {

const char* const kDropPlain =
    "Perforce client error:\n\tTCP receive failed.\n\tread: socket: Connection reset by peer\n";

} // namespace

TEST_F(SwitchesTest, DropFailsTheNthMatchingInvocationOnce)
{
    m_sim.Env()["P4SIM_DROP"] = "describe";
    m_sim.Env()["P4SIM_DROP_AT"] = "2";
    // Invocations that do not match are not counted.
    EXPECT_EQ(m_sim.P4({"changes", "-m1"}).status, 0);
    Result first = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.out.substr(0, 9), "Change 2 ");
    Result second = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, kDropPlain);
    Result third = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(third.status, 0);
    EXPECT_EQ(third.out, first.out);
    EXPECT_EQ(m_sim.P4({"describe", "-s", "2"}).status, 0);
    // The count lives in the server folder by default.
    EXPECT_EQ(ReadFile(m_sim.ServerDir() + "/p4sim-drop.count"), "4\n");
}

TEST_F(SwitchesTest, DropFailsKTimesInARowAndLeavesTheServerAlone)
{
    m_sim.MakeClient(ClientForm(m_sim.Root() + "/ws"));
    const std::string counter = m_sim.Root() + "/drops";
    m_sim.Env()["P4SIM_DROP"] = "^-G sync";
    m_sim.Env()["P4SIM_DROP_TIMES"] = "3";
    m_sim.Env()["P4SIM_DROP_COUNTER"] = counter;
    for (int i = 0; i < 3; ++i)
    {
        Result r = m_sim.P4({"-G", "sync", "//depot/main/...@1"});
        EXPECT_EQ(r.status, 1) << i;
        // E_FAILED, EV_COMM.
        EXPECT_EQ(r.out, Error("TCP receive failed.\nread: socket: Connection reset by peer\n", 3, 38)) << i;
        EXPECT_EQ(r.err, "") << i;
        EXPECT_FALSE(Exists(m_sim.Root() + "/ws/main/a.txt")) << i;
        EXPECT_EQ(m_sim.P4({"have"}).out, "") << i;
    }
    EXPECT_EQ(ReadFile(counter), "3\n");
    Result r = m_sim.P4({"-G", "sync", "//depot/main/...@1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(ReadFile(m_sim.Root() + "/ws/main/a.txt"), "one\ntwo\n");
    // A plain sync does not match.
    EXPECT_EQ(m_sim.P4({"sync", "//depot/main/...@2"}).status, 0);
    EXPECT_EQ(ReadFile(counter), "4\n");
}

TEST_F(SwitchesTest, DropCountsInvocationsThatRunAtOnce)
{
    // Eight p4sim processes started together: exactly the 3rd and 4th to
    // take the count fail.
    const std::string journal = m_sim.Root() + "/journal.jsonl";
    std::map<std::string, std::string> env = m_sim.Env();
    env["P4SIM_JOURNAL"] = journal;
    env["P4SIM_DROP"] = "changes";
    env["P4SIM_DROP_AT"] = "3";
    env["P4SIM_DROP_TIMES"] = "2";
    env["P4SIM_EXE"] = P4SIM_EXE;
    Result sh = RunProcess(
        "/bin/sh", {"-c", "for i in 1 2 3 4 5 6 7 8; do \"$P4SIM_EXE\" -G changes -m1 >/dev/null 2>&1 & done; wait"},
        env);
    ASSERT_EQ(sh.status, 0) << sh.err;
    std::string text = ReadFile(journal);
    int failed = 0, succeeded = 0;
    for (size_t p = 0; p < text.size();)
    {
        size_t e = text.find('\n', p);
        auto j = nlohmann::json::parse(text.substr(p, e - p));
        (j["exit"] == 1 ? failed : succeeded)++;
        p = e + 1;
    }
    EXPECT_EQ(failed, 2);
    EXPECT_EQ(succeeded, 6);
    EXPECT_EQ(ReadFile(m_sim.ServerDir() + "/p4sim-drop.count"), "8\n");
}
