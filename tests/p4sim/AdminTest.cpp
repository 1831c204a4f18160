// admin init, load and generate.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

TEST(AdminTest, InitRefusesAnExistingServer)
{
    SimServer sim;
    Result r = sim.Admin({"init", sim.ServerDir()});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim: a server already exists in " + sim.ServerDir() + "\n");
    EXPECT_EQ(sim.P4({"changes"}).out, "");
}

TEST(AdminTest, LoadIsAllOrNothing)
{
    SimServer sim;
    sim.WriteFile(sim.Root() + "/bad.json",
                  R"({"changes": [
                       {"user": "jo", "time": 1, "description": "ok", "files": [{"path": "//depot/a", "action": "add", "content": "a"}]},
                       {"user": "jo", "time": 2, "description": "bad", "files": [{"path": "//depot/b", "action": "edit", "content": "b"}]}]})");
    Result r = sim.Admin({"load", sim.ServerDir(), sim.Root() + "/bad.json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim admin: edit of //depot/b in change 2: no such file\n");
    EXPECT_EQ(sim.P4({"changes"}).out, "");
    sim.WriteFile(sim.Root() + "/syntax.json", "{\"changes\": [");
    r = sim.Admin({"load", sim.ServerDir(), sim.Root() + "/syntax.json"});
    EXPECT_EQ(r.status, 1);
}

TEST(AdminTest, LoadSetsUsersBranchesAndChanges)
{
    SimServer sim;
    sim.Load(kHistory);
    EXPECT_EQ(sim.P4({"users"}).out,
              "jo <jo@example.com> (Jo Doe) accessed 2008/01/10\nmax <max@example.com> (Max Mustermann) accessed "
              "2008/01/10\n");
    EXPECT_EQ(sim.P4({"changes", "-m", "1"}).out, "Change 5 on 2008/01/10 by max@max-ws 'Integrate a into rel1 '\n");
    // A second history continues the numbering.
    sim.Load(R"({"changes": [{"user": "zed", "client": "z", "time": 1300000000, "description": "More",
                 "files": [{"path": "//depot/main/new.txt", "action": "add", "content": "n\n"}]}]})");
    EXPECT_EQ(sim.P4({"changes", "-m", "1"}).out, "Change 6 on 2011/03/13 by zed@z 'More '\n");
    EXPECT_EQ(sim.P4({"users", "zed"}).out, "zed <zed@z> (zed) accessed 2011/03/13\n");
}

TEST(AdminTest, GenerateIsReproducible)
{
    SimServer a, b, c;
    auto gen = [](SimServer& s, const char* seed) {
        Result r = s.Admin({"generate", s.ServerDir(), "--changes", "60", "--branches", "3", "--files", "30", "--seed",
                            seed, "--json", s.Root() + "/history.json"});
        EXPECT_EQ(r.status, 0) << r.err;
    };
    gen(a, "7");
    gen(b, "7");
    gen(c, "8");
    std::string ja = ReadFile(a.Root() + "/history.json");
    EXPECT_EQ(ja, ReadFile(b.Root() + "/history.json"));
    EXPECT_NE(ja, ReadFile(c.Root() + "/history.json"));
    Result changes = a.P4({"-G", "changes"});
    EXPECT_EQ(changes.out, b.P4({"-G", "changes"}).out);
    Result list = a.P4({"changes"});
    size_t lines = 0;
    for (char ch : list.out)
        lines += ch == '\n';
    EXPECT_EQ(lines, 60u);
    for (const char* n : {"1", "17", "33", "60"})
    {
        EXPECT_EQ(a.P4({"-G", "describe", "-s", n}).out, b.P4({"-G", "describe", "-s", n}).out);
    }
    EXPECT_EQ(a.P4({"branches"}).out.substr(0, 12), "Branch rel1 ");
    size_t branches = 0;
    for (char ch : a.P4({"branches"}).out)
        branches += ch == '\n';
    EXPECT_EQ(branches, 3u);
    // The generated JSON loads into a server that answers the same.
    SimServer d;
    d.Load(ja);
    EXPECT_EQ(d.P4({"-G", "describe", "-s", "60"}).out, a.P4({"-G", "describe", "-s", "60"}).out);
}

TEST(AdminTest, DeletedUsersGoButTheirChangesStay)
{
    SimServer sim;
    sim.Load(R"({"users": [{"name": "jo", "email": "jo@example.com", "fullName": "Jo Doe", "time": 1200000000}],
                 "changes": [{"user": "gone", "client": "g-ws", "time": 1200000000, "description": "Left",
                              "files": [{"path": "//depot/a", "action": "add", "content": "a"}]}],
                 "deletedUsers": ["gone"]})");
    EXPECT_EQ(sim.P4({"users"}).out, "jo <jo@example.com> (Jo Doe) accessed 2008/01/10\n");
    EXPECT_EQ(sim.P4({"changes"}).out, "Change 1 on 2008/01/10 by gone@g-ws 'Left '\n");
}

TEST(AdminTest, EscapedPathsCarryNamesThatAreNotUtf8)
{
    SimServer sim;
    // \xe9 is Latin-1 'é'; \\ is one backslash; the rename's source is given
    // escaped as well.
    sim.Load(R"({"changes": [
                  {"user": "jo", "time": 1200000000, "description": "Latin-1",
                   "files": [{"pathEscaped": "//depot/caf\\xe9 \\\\.txt", "action": "add", "content": "a\n"}]},
                  {"user": "jo", "time": 1200000100, "description": "Move",
                   "files": [{"pathEscaped": "//depot/\\xff\\xfe@", "action": "move/add",
                              "fromEscaped": "//depot/caf\\xe9 \\\\.txt"}]}]})");
    EXPECT_EQ(sim.P4({"files", "//depot/..."}).out, "//depot/caf\xe9 \\.txt#2 - move/delete change 2 (text)\n"
                                                    "//depot/\xff\xfe%40#1 - move/add change 2 (text)\n");
    // A bad escape, or both forms of a path, refuse the load.
    const std::vector<std::pair<std::string, std::string>> atBad = {
        {R"({"pathEscaped": "//depot/x\\x4", "action": "add", "content": "a"})",
         "p4sim admin: bad escape in '//depot/x\\x4': a backslash takes \\xNN or \\\\\n"},
        {R"({"pathEscaped": "//depot/x\\q", "action": "add", "content": "a"})",
         "p4sim admin: bad escape in '//depot/x\\q': a backslash takes \\xNN or \\\\\n"},
        {R"({"path": "//depot/x", "pathEscaped": "//depot/x", "action": "add", "content": "a"})",
         "p4sim admin: both 'path' and 'pathEscaped'\n"}};
    for (const auto& tBad : atBad)
    {
        sim.WriteFile(sim.Root() + "/bad.json",
                      R"({"changes": [{"user": "jo", "time": 1, "files": [)" + tBad.first + "]}]}");
        const Result r = sim.Admin({"load", sim.ServerDir(), sim.Root() + "/bad.json"});
        EXPECT_EQ(r.status, 1) << tBad.first;
        EXPECT_EQ(r.err, tBad.second);
    }
}

namespace {

// splitmix64's bytes, least significant first: the reference for "generated".
std::string SplitMix(unsigned long long nSeed, size_t nSize)
{
    std::string str;
    while (str.size() < nSize)
    {
        unsigned long long n = (nSeed += 0x9e3779b97f4a7c15ULL);
        n = (n ^ (n >> 30)) * 0xbf58476d1ce4e5b9ULL;
        n = (n ^ (n >> 27)) * 0x94d049bb133111ebULL;
        n ^= n >> 31;
        for (int i = 0; i < 8 && str.size() < nSize; ++i, n >>= 8)
            str += static_cast<char>(n & 0xff);
    }
    return str;
}

} // namespace

TEST(AdminTest, GeneratedContentIsTheSameForTheSameSizeAndSeed)
{
    SimServer sim;
    sim.Load(R"({"changes": [{"user": "jo", "time": 1200000000, "description": "Large",
                 "files": [{"path": "//depot/a.bin", "action": "add", "type": "binary",
                            "generated": {"size": 21, "seed": 7}},
                           {"path": "//depot/b.bin", "action": "add", "type": "binary",
                            "generated": {"size": 21, "seed": 8}},
                           {"path": "//depot/empty.bin", "action": "add", "type": "binary",
                            "generated": {"size": 0, "seed": 7}}]}]})");
    EXPECT_EQ(sim.P4({"print", "-q", "//depot/a.bin"}).out, SplitMix(7, 21));
    EXPECT_EQ(sim.P4({"print", "-q", "//depot/b.bin"}).out, SplitMix(8, 21));
    EXPECT_EQ(sim.P4({"print", "-q", "//depot/empty.bin"}).out, "");
    sim.WriteFile(sim.Root() + "/bad.json", R"({"changes": [{"user": "jo", "time": 1, "files": [
                      {"path": "//depot/x", "action": "add", "generated": {"seed": 1}}]}]})");
    const Result r = sim.Admin({"load", sim.ServerDir(), sim.Root() + "/bad.json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "p4sim admin: 'generated' needs a 'size' of 0 or more bytes\n");
}
