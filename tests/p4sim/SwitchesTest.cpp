// The test switches: P4SIM_JOURNAL, P4SIM_FAIL, P4SIM_LATENCY_MS,
// P4SIM_GARBLE.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>

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
