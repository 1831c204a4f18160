// Byte-exact -G output of every command against fixed expectations, and the
// same output read back by an independent decoder, Python's marshal module.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

namespace {

class MarshalTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_sim.Load(kHistory);
        m_ws = m_sim.Root() + "/ws";
        m_sim.MakeClient(ClientForm(m_ws));
    }
    std::string G(const std::vector<std::string>& args, int status = 0)
    {
        std::vector<std::string> a = {"-G"};
        a.insert(a.end(), args.begin(), args.end());
        Result r = m_sim.P4(a);
        if (status >= 0) {
            EXPECT_EQ(r.status, status) << r.err;
        }
        return r.out;
    }
    SimServer m_sim;
    std::string m_ws;
};

std::string Bytes(std::initializer_list<int> b)
{
    std::string s;
    for (int c : b) s += char(c);
    return s;
}

}  // namespace

TEST_F(MarshalTest, BranchesAsLiteralBytes)
{
    std::string expected = "{";
    expected += Bytes({'s', 4, 0, 0, 0}) + "code" + Bytes({'s', 4, 0, 0, 0}) + "stat";
    expected += Bytes({'s', 6, 0, 0, 0}) + "branch" + Bytes({'s', 4, 0, 0, 0}) + "rel1";
    expected += Bytes({'s', 6, 0, 0, 0}) + "Update" + Bytes({'s', 10, 0, 0, 0}) + "1200000300";
    expected += Bytes({'s', 6, 0, 0, 0}) + "Access" + Bytes({'s', 10, 0, 0, 0}) + "1200000300";
    expected += Bytes({'s', 5, 0, 0, 0}) + "Owner" + Bytes({'s', 2, 0, 0, 0}) + "jo";
    expected += Bytes({'s', 7, 0, 0, 0}) + "Options" + Bytes({'s', 8, 0, 0, 0}) + "unlocked";
    expected += Bytes({'s', 11, 0, 0, 0}) + "Description" + Bytes({'s', 10, 0, 0, 0}) + "Release 1\n";
    expected += "0";
    EXPECT_EQ(G({"branches"}), expected);
}

TEST_F(MarshalTest, BranchSpec)
{
    EXPECT_EQ(G({"branch", "-o", "rel1"}), Stat({{"Branch", "rel1"},
                                                 {"Update", "2008/01/10 21:25:00"},
                                                 {"Access", "2008/01/10 21:25:00"},
                                                 {"Owner", "jo"},
                                                 {"Description", "Release 1\n"},
                                                 {"Options", "unlocked"},
                                                 {"View0", "//depot/main/... //depot/rel1/..."}}));
}

TEST_F(MarshalTest, ChangesOfAPath)
{
    auto rec = [](const char* n, const char* t, const char* u, const char* path, const char* desc) {
        return Stat({{"change", n},
                     {"time", t},
                     {"user", u},
                     {"client", std::string(u) + "-ws"},
                     {"status", "submitted"},
                     {"changeType", "public"},
                     {"path", path},
                     {"desc", desc}});
    };
    EXPECT_EQ(G({"changes", "//depot/main/..."}),
              rec("4", "1200000200", "jo", "//depot/main/...", "Delete b, move run.sh and a des") +
                  rec("2", "1200000100", "max", "//depot/main/...", "Edit a, add the odd name\n") +
                  rec("1", "1200000000", "jo", "//depot/main/...", "Initial import\n"));
    EXPECT_EQ(G({"changes", "-m", "1", "//depot/rel1/..."}),
              rec("5", "1200000400", "max", "//depot/rel1/...", "Integrate a into rel1\n"));
    EXPECT_EQ(G({"changes", "-l", "-u", "jo", "//depot/main/...@2,@4"}),
              rec("4", "1200000200", "jo", "//depot/main/...",
                  "Delete b, move run.sh and a description longer than thirty-one bytes\nwith a second line\n"));
}

TEST_F(MarshalTest, DescribeWithEscapedNames)
{
    EXPECT_EQ(G({"describe", "2"}), Stat({{"change", "2"},
                                         {"user", "max"},
                                         {"client", "max-ws"},
                                         {"time", "1200000100"},
                                         {"desc", "Edit a, add the odd name\n"},
                                         {"status", "submitted"},
                                         {"changeType", "public"},
                                         {"path", "//depot/main/..."},
                                         {"depotFile0", "//depot/main/a.txt"},
                                         {"action0", "edit"},
                                         {"type0", "text"},
                                         {"rev0", "2"},
                                         {"fileSize0", "14"},
                                         {"digest0", "DEED54B823522E0525693B090363F9DF"},
                                         {"depotFile1", "//depot/main/x%40y%23z%2Aw%25v.txt"},
                                         {"action1", "add"},
                                         {"type1", "text"},
                                         {"rev1", "1"},
                                         {"fileSize1", "4"},
                                         {"digest1", "A1A740E5F7E4A21557F2FC05C502C552"}}));
}

TEST_F(MarshalTest, DescribeDeletesAndMoves)
{
    EXPECT_EQ(G({"describe", "-s", "4"}),
              Stat({{"change", "4"},
                    {"user", "jo"},
                    {"client", "jo-ws"},
                    {"time", "1200000200"},
                    {"desc", "Delete b, move run.sh and a description longer than thirty-one bytes\nwith a second line\n"},
                    {"status", "submitted"},
                    {"changeType", "public"},
                    {"path", "//depot/main/..."},
                    {"depotFile0", "//depot/main/run.sh"},
                    {"action0", "move/delete"},
                    {"type0", "text+x"},
                    {"rev0", "2"},
                    {"depotFile1", "//depot/main/sub/b.txt"},
                    {"action1", "delete"},
                    {"type1", "text"},
                    {"rev1", "2"},
                    {"depotFile2", "//depot/main/tools/run.sh"},
                    {"action2", "move/add"},
                    {"type2", "text+x"},
                    {"rev2", "1"},
                    {"fileSize2", "8"},
                    {"digest2", "9A312C9D8B035B8C2DA417B451F8F92D"}}));
}

TEST_F(MarshalTest, DescribeErrors)
{
    EXPECT_EQ(G({"describe", "99"}, 1), Error("Change 99 unknown.\n", 3, 2));
    EXPECT_EQ(G({"describe", "x"}, 1), Error("Invalid changelist number 'x'.\n", 3, 1));
}

// The value of the first string key in marshalled bytes.
static std::string ValueOf(const std::string& bytes, const std::string& key)
{
    size_t p = 1;
    while (p + 5 <= bytes.size() && bytes[p] == 's') {
        auto str = [&](size_t& at) {
            uint32_t n = uint32_t((unsigned char)bytes[at + 1]) | (uint32_t((unsigned char)bytes[at + 2]) << 8) |
                         (uint32_t((unsigned char)bytes[at + 3]) << 16) | (uint32_t((unsigned char)bytes[at + 4]) << 24);
            std::string v = bytes.substr(at + 5, n);
            at += 5 + n;
            return v;
        };
        std::string k = str(p);
        std::string v = str(p);
        if (k == key) return v;
    }
    return "";
}

TEST_F(MarshalTest, ClientForm)
{
    std::string out = G({"client", "-o"});
    // Update and Access hold the time of the client -i: taken from the output.
    std::string update = ValueOf(out, "Update"), access = ValueOf(out, "Access");
    EXPECT_EQ(update.size(), 19u);
    EXPECT_EQ(out, Stat({{"Client", "ws"},
                         {"Update", update},
                         {"Access", access},
                         {"Owner", "jo"},
                         {"Description", "A test client\n"},
                         {"Root", m_ws},
                         {"Options", "noallwrite clobber nocompress unlocked nomodtime normdir"},
                         {"SubmitOptions", "submitunchanged"},
                         {"LineEnd", "local"},
                         {"View0", "//depot/main/... //ws/main/..."},
                         {"View1", "//depot/rel1/... \"//ws/rel 1/...\""}}));
}

TEST_F(MarshalTest, NewClientFormDefaults)
{
    m_sim.Env()["P4CLIENT"] = "fresh";
    Result r = m_sim.P4({"-G", "client", "-o"}, "", m_sim.Root());
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.out, Stat({{"Client", "fresh"},
                           {"Owner", "jo"},
                           {"Host", "h1"},
                           {"Description", "Created by jo.\n"},
                           {"Root", m_sim.Root()},
                           {"Options", "noallwrite noclobber nocompress unlocked nomodtime normdir"},
                           {"SubmitOptions", "submitunchanged"},
                           {"LineEnd", "local"},
                           {"View0", "//depot/... //fresh/..."}}));
}

TEST_F(MarshalTest, SyncHaveWhere)
{
    EXPECT_EQ(G({"sync", m_ws + "/rel 1/...@3"}),
              Stat({{"depotFile", "//depot/rel1/a.txt"},
                    {"clientFile", m_ws + "/rel 1/a.txt"},
                    {"rev", "1"},
                    {"action", "added"},
                    {"fileSize", "14"},
                    {"totalFileSize", "18"},
                    {"totalFileCount", "2"},
                    {"change", "3"}}) +
                  Stat({{"depotFile", "//depot/rel1/sub/b.txt"},
                        {"clientFile", m_ws + "/rel 1/sub/b.txt"},
                        {"rev", "1"},
                        {"action", "added"},
                        {"fileSize", "4"}}));
    EXPECT_EQ(G({"sync", m_ws + "/rel 1/...@3"}), Error(m_ws + "/rel 1/...@3 - file(s) up-to-date.\n", 2, 17));
    EXPECT_EQ(G({"have"}), Stat({{"depotFile", "//depot/rel1/a.txt"},
                                 {"clientFile", "//ws/rel 1/a.txt"},
                                 {"path", m_ws + "/rel 1/a.txt"},
                                 {"haveRev", "1"}}) +
                               Stat({{"depotFile", "//depot/rel1/sub/b.txt"},
                                     {"clientFile", "//ws/rel 1/sub/b.txt"},
                                     {"path", m_ws + "/rel 1/sub/b.txt"},
                                     {"haveRev", "1"}}));
    EXPECT_EQ(G({"where", "//depot/main/x%40y.txt"}),
              Stat({{"depotFile", "//depot/main/x%40y.txt"},
                    {"clientFile", "//ws/main/x%40y.txt"},
                    {"path", m_ws + "/main/x@y.txt"}}));
}

TEST_F(MarshalTest, FilesFstatPrintUsers)
{
    EXPECT_EQ(G({"files", "//depot/rel1/..."}),
              Stat({{"depotFile", "//depot/rel1/a.txt"}, {"rev", "2"}, {"change", "5"}, {"action", "integrate"},
                    {"type", "text"}, {"time", "1200000400"}}) +
                  Stat({{"depotFile", "//depot/rel1/sub/b.txt"}, {"rev", "1"}, {"change", "3"}, {"action", "branch"},
                        {"type", "text"}, {"time", "1200000200"}}));
    EXPECT_EQ(G({"fstat", "//depot/main/img.bin"}),
              Stat({{"depotFile", "//depot/main/img.bin"},
                    {"clientFile", m_ws + "/main/img.bin"},
                    {"isMapped", ""},
                    {"headAction", "add"},
                    {"headType", "binary"},
                    {"headTime", "1200000000"},
                    {"headRev", "1"},
                    {"headChange", "1"},
                    {"headModTime", "1200000000"}}));
    std::string content = "{";
    content += Bytes({'s', 4, 0, 0, 0}) + "code" + Bytes({'s', 6, 0, 0, 0}) + "binary";
    content += Bytes({'s', 4, 0, 0, 0}) + "data" + Bytes({'s', 4, 0, 0, 0}) + Bytes({0, 1, 2, 0xff}) + "0";
    EXPECT_EQ(G({"print", "//depot/main/img.bin#1"}),
              Stat({{"depotFile", "//depot/main/img.bin"}, {"rev", "1"}, {"change", "1"}, {"action", "add"},
                    {"type", "binary"}, {"time", "1200000000"}, {"fileSize", "4"}}) +
                  content);
    EXPECT_EQ(G({"users", "m*"}), Stat({{"User", "max"},
                                        {"Type", "standard"},
                                        {"Email", "max@example.com"},
                                        {"Update", "1200000000"},
                                        {"Access", "1200000000"},
                                        {"FullName", "Max Mustermann"}}));
    EXPECT_EQ(G({"files", "//depot/none/..."}), Error("//depot/none/... - no such file(s).\n", 2, 17));
}

TEST_F(MarshalTest, FormMessagesAndErrors)
{
    EXPECT_EQ(G({"client", "-i"}, 1), Error("Error in client specification.\nMissing required field 'Client'.\n", 3, 1));
    Result r = m_sim.P4({"-G", "client", "-i"}, ClientForm(m_ws));
    EXPECT_EQ(r.out, Info("Client ws not changed."));
    EXPECT_EQ(G({"client", "-d", "nosuch"}, 1), Error("Client 'nosuch' doesn't exist.\n", 3, 2));
    EXPECT_EQ(G({"branch", "-d", "rel1"}), Info("Branch rel1 deleted."));
    EXPECT_EQ(G({"bogus"}, 1), Error("Unknown command.  Try 'p4 help' for info.\n", 3, 1));
    EXPECT_EQ(G({"changes", "-Q"}, 1),
              Error("Usage: changes [ -c client -e changelist# -i -l -L -f -m max -r -s status -t -u user ] "
                    "[ file[revRange] ... ]\nInvalid option: -Q.\n",
                    3, 1));
}

TEST_F(MarshalTest, PythonMarshalReadsTheSameRecords)
{
    const char* script =
        "import marshal, sys, json\n"
        "f = sys.stdin.buffer\n"
        "out = []\n"
        "while True:\n"
        "    try:\n"
        "        d = marshal.load(f)\n"
        "    except EOFError:\n"
        "        break\n"
        "    out.append({k.decode('latin-1'): (v.decode('latin-1') if isinstance(v, bytes) else v) for k, v in d.items()})\n"
        "print(json.dumps(out, sort_keys=False))\n";
    auto decode = [&](const std::vector<std::string>& args) {
        std::string bytes = G(args, -2);
        Result py = RunProcess(P4SIM_PYTHON3, {"-c", script}, {{"PATH", "/usr/bin:/bin"}}, bytes);
        EXPECT_EQ(py.status, 0) << py.err;
        return py.out;
    };
    EXPECT_EQ(decode({"describe", "-s", "3"}),
              "[{\"code\": \"stat\", \"change\": \"3\", \"user\": \"jo\", \"client\": \"jo-ws\", \"time\": "
              "\"1200000200\", \"desc\": \"Branch main to rel1\\n\", \"status\": \"submitted\", \"changeType\": "
              "\"public\", \"path\": \"//depot/rel1/...\", \"depotFile0\": \"//depot/rel1/a.txt\", \"action0\": "
              "\"branch\", \"type0\": \"text\", \"rev0\": \"1\", \"fileSize0\": \"14\", \"digest0\": "
              "\"DEED54B823522E0525693B090363F9DF\", \"depotFile1\": \"//depot/rel1/sub/b.txt\", \"action1\": "
              "\"branch\", \"type1\": \"text\", \"rev1\": \"1\", \"fileSize1\": \"4\", \"digest1\": "
              "\"4E82DA0CCA1F18A97843BA4C897CDC72\"}]\n");
    EXPECT_EQ(decode({"changes", "-m", "2"}),
              "[{\"code\": \"stat\", \"change\": \"5\", \"time\": \"1200000400\", \"user\": \"max\", \"client\": "
              "\"max-ws\", \"status\": \"submitted\", \"changeType\": \"public\", \"path\": \"//depot/rel1/...\", "
              "\"desc\": \"Integrate a into rel1\\n\"}, {\"code\": \"stat\", \"change\": \"4\", \"time\": "
              "\"1200000200\", \"user\": \"jo\", \"client\": \"jo-ws\", \"status\": \"submitted\", \"changeType\": "
              "\"public\", \"path\": \"//depot/main/...\", \"desc\": \"Delete b, move run.sh and a des\"}]\n");
    EXPECT_EQ(decode({"describe", "77"}),
              "[{\"code\": \"error\", \"data\": \"Change 77 unknown.\\n\", \"severity\": 3, \"generic\": 2}]\n");
    EXPECT_EQ(decode({"branches"}),
              "[{\"code\": \"stat\", \"branch\": \"rel1\", \"Update\": \"1200000300\", \"Access\": \"1200000300\", "
              "\"Owner\": \"jo\", \"Options\": \"unlocked\", \"Description\": \"Release 1\\n\"}]\n");
}
