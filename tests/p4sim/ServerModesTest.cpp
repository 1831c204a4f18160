// What a server keeps and how it compares: descriptions and names that are
// not UTF-8 (a non-unicode server keeps a client's bytes), a unicode server
// and the client's character set, and a server whose case handling is
// insensitive.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

namespace {

const char* kBytesHistory = R"JSON({
 "users": [{"name": "rene", "email": "rene@example.com", "fullNameEscaped": "Ren\\xe9 M\\xfcller", "time": 1200000000}],
 "changes": [
  {"user": "rene", "client": "rene-ws", "time": 1200000000, "descriptionEscaped": "caf\\xe9 \\\\ cr\\xe8me",
   "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "one\n"}]}
 ]
})JSON";

const char* kUnicodeHistory = R"JSON({
 "unicode": true,
 "changes": [
  {"user": "jo", "time": 1200000000, "description": "Caf\u00e9",
   "files": [{"path": "//depot/main/u.txt", "action": "add", "type": "unicode", "content": "\u00e9\n"},
             {"path": "//depot/main/t.txt", "action": "add", "content": "t\n"}]}
 ]
})JSON";

const char* kCaseHistory = R"JSON({
 "caseHandling": "insensitive",
 "changes": [
  {"user": "jo", "time": 1200000000, "description": "Two spellings of one folder",
   "files": [{"path": "//depot/main/Src/a.c", "action": "add", "content": "a\n"},
             {"path": "//depot/main/src/b.c", "action": "add", "content": "b\n"}]},
  {"user": "jo", "time": 1200000100, "description": "Edit under another spelling",
   "files": [{"path": "//depot/MAIN/SRC/A.C", "action": "edit", "content": "a2\n"}]}
 ]
})JSON";

// The fields of a -G record without its braces and "code".
std::string Fields(const std::vector<std::pair<std::string, std::string>>& fields)
{
    std::string record = Stat(fields);
    return record.substr(19, record.size() - 20);
}

class ServerModesTest : public ::testing::Test
{
protected:
    void SetUp() override { m_ws = m_sim.Root() + "/ws"; }
    SimServer m_sim;
    std::string m_ws;
};

} // namespace

TEST_F(ServerModesTest, DescriptionsAndNamesThatAreNotUtf8AreSentAsStored)
{
    m_sim.Load(kBytesHistory);
    Result r = m_sim.P4({"-G", "describe", "-s", "1"});
    EXPECT_NE(
        r.out.find(Fields(
            {{"user", "rene"}, {"client", "rene-ws"}, {"time", "1200000000"}, {"desc", "caf\xe9 \\ cr\xe8me\n"}})),
        std::string::npos);
    r = m_sim.P4({"changes", "-l"});
    EXPECT_EQ(r.out, "Change 1 on 2008/01/10 by rene@rene-ws\n\n\tcaf\xe9 \\ cr\xe8me\n\n");
    r = m_sim.P4({"users"});
    EXPECT_EQ(r.out, "rene <rene@example.com> (Ren\xe9 M\xfcller) accessed 2008/01/10\n");
    r = m_sim.P4({"-G", "users"});
    EXPECT_EQ(r.out, Stat({{"User", "rene"},
                           {"Type", "standard"},
                           {"Email", "rene@example.com"},
                           {"Update", "1200000000"},
                           {"Access", "1200000000"},
                           {"FullName", "Ren\xe9 M\xfcller"}}));
    // Both forms of one field, or a bad escape, refuse the load.
    m_sim.WriteFile(m_sim.Root() + "/bad.json",
                    R"({"changes": [{"description": "a", "descriptionEscaped": "b", "files": []}]})");
    EXPECT_EQ(m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/bad.json"}).status, 1);
    m_sim.WriteFile(m_sim.Root() + "/bad.json", R"({"users": [{"name": "x", "fullNameEscaped": "\\xZZ"}]})");
    EXPECT_EQ(m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/bad.json"}).status, 1);
}

TEST_F(ServerModesTest, AUnicodeServerRefusesClientsWithoutACharacterSet)
{
    m_sim.Load(kUnicodeHistory);
    // info answers any client and shows the mode.
    Result r = m_sim.P4({"-G", "info"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find(Fields({{"caseHandling", "sensitive"}, {"unicode", "enabled"}})), std::string::npos);
    r = m_sim.P4({"info"});
    EXPECT_NE(r.out.find("\nCase Handling: sensitive\nUnicode: enabled\n"), std::string::npos);

    r = m_sim.P4({"-G", "files", "//depot/..."});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, Error("Unicode server permits only unicode enabled clients.\n", 3, 36));
    m_sim.Env()["P4CHARSET"] = "none";
    r = m_sim.P4({"files", "//depot/..."});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Unicode server permits only unicode enabled clients.\n");

    m_sim.Env()["P4CHARSET"] = "utf8";
    r = m_sim.P4({"changes"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Change 1 on 2008/01/10 by jo@jo-ws 'Caf\xc3\xa9 '\n");
    m_sim.MakeClient("Client: ws\nRoot: " + m_ws + "\nView:\n\t//depot/main/... //ws/...\n");
    r = m_sim.P4({"sync"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/u.txt"), "\xc3\xa9\n");
    // -C overrides P4CHARSET; utf8-bom writes unicode files with a BOM.
    r = m_sim.P4({"-C", "utf8-bom", "sync", "-f", "//depot/main/u.txt"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/u.txt"), "\xef\xbb\xbf\xc3\xa9\n");
    EXPECT_EQ(ReadFile(m_ws + "/t.txt"), "t\n");
}

TEST_F(ServerModesTest, ANonUnicodeServerRefusesUnicodeClients)
{
    m_sim.Load(kBytesHistory);
    m_sim.Env()["P4CHARSET"] = "utf8";
    Result r = m_sim.P4({"-G", "changes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, Error("Unicode clients require a unicode enabled server.\n", 3, 36));
    r = m_sim.P4({"info"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("Unicode"), std::string::npos);
    // auto means none against a non-unicode server.
    m_sim.Env()["P4CHARSET"] = "auto";
    EXPECT_EQ(m_sim.P4({"changes"}).status, 0);
    // A name the client does not know: its list, before any connection.
    m_sim.Env()["P4CHARSET"] = "latin9";
    r = m_sim.P4({"changes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "Character set must be one of:\n"
                     "none, auto, utf8, utf8-bom, iso8859-1, shiftjis, eucjp, iso8859-15,\n"
                     "iso8859-5, macosroman, winansi, koi8-r, cp949, cp1251,\n"
                     "utf16, utf16-nobom, utf16le, utf16le-bom, utf16be,\n"
                     "utf16be-bom, utf32, utf32-nobom, utf32le, utf32le-bom, utf32be,\n"
                     "cp936, cp950, cp850, cp858, cp1253, iso8859-7, utf32be-bom,\n"
                     "cp852, cp1250, or iso8859-2.\n"
                     "Check P4CHARSET and your '-C' option.\n");
}

TEST_F(ServerModesTest, AUnicodeServerKeepsOnlyUtf8)
{
    m_sim.Load(kBytesHistory);
    // A server with other text cannot be switched.
    m_sim.WriteFile(m_sim.Root() + "/u.json", R"({"unicode": true})");
    Result r = m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/u.json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Database has 2 tables with non-UTF8 text and can't be switched to Unicode mode."),
              std::string::npos);

    SimServer unicode;
    unicode.Load(kUnicodeHistory);
    unicode.WriteFile(unicode.Root() + "/b.json", R"({"changes": [{"descriptionEscaped": "caf\\xe9",
        "files": [{"path": "//depot/main/b.txt", "action": "add", "content": "b\n"}]}]})");
    EXPECT_EQ(unicode.Admin({"load", unicode.ServerDir(), unicode.Root() + "/b.json"}).status, 1);
    unicode.WriteFile(unicode.Root() + "/b.json", R"({"unicode": false})");
    EXPECT_EQ(unicode.Admin({"load", unicode.ServerDir(), unicode.Root() + "/b.json"}).status, 1);
    // The unicode type needs a unicode server.
    m_sim.WriteFile(m_sim.Root() + "/t.json", R"({"changes": [{"files": [
        {"path": "//depot/main/u.txt", "action": "add", "type": "unicode", "content": "u\n"}]}]})");
    EXPECT_EQ(m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/t.json"}).status, 1);
}

TEST_F(ServerModesTest, AnInsensitiveServerComparesPathsWithoutCase)
{
    m_sim.Load(kCaseHistory);
    Result r = m_sim.P4({"-G", "info"});
    EXPECT_NE(r.out.find(Fields({{"caseHandling", "insensitive"}})), std::string::npos);
    r = m_sim.P4({"info"});
    EXPECT_NE(r.out.find("\nCase Handling: insensitive\n"), std::string::npos);

    // The file keeps the name of its first revision; each file its own
    // spelling of the folder.
    r = m_sim.P4({"files", "//depot/MAIN/..."});
    EXPECT_EQ(r.out, "//depot/main/Src/a.c#2 - edit change 2 (text)\n"
                     "//depot/main/src/b.c#1 - add change 1 (text)\n");
    r = m_sim.P4({"files", "//depot/main/SRC/*.C"});
    EXPECT_EQ(r.out, "//depot/main/Src/a.c#2 - edit change 2 (text)\n"
                     "//depot/main/src/b.c#1 - add change 1 (text)\n");
    r = m_sim.P4({"changes", "//depot/main/src/A.c"});
    EXPECT_EQ(r.out, "Change 2 on 2008/01/10 by jo@jo-ws 'Edit under another spelling '\n"
                     "Change 1 on 2008/01/10 by jo@jo-ws 'Two spellings of one folder '\n");

    // A view matches without case; a Linux client writes each file where
    // its depot path puts it, so the two spellings are two folders.
    m_sim.MakeClient("Client: ws\nRoot: " + m_ws + "\nView:\n\t//DEPOT/Main/... //ws/...\n");
    r = m_sim.P4({"sync"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "//depot/main/Src/a.c#2 - added as " + m_ws +
                         "/Src/a.c\n"
                         "//depot/main/src/b.c#1 - added as " +
                         m_ws + "/src/b.c\n");
    EXPECT_EQ(ReadFile(m_ws + "/Src/a.c"), "a2\n");
    EXPECT_EQ(ReadFile(m_ws + "/src/b.c"), "b\n");
    // Both folders are //ws/SRC/ to the server.
    r = m_sim.P4({"have", "//ws/SRC/..."});
    EXPECT_EQ(r.out, "//depot/main/Src/a.c#2 - " + m_ws + "/Src/a.c\n//depot/main/src/b.c#1 - " + m_ws + "/src/b.c\n");

    // The case handling of a server with changes stays.
    m_sim.WriteFile(m_sim.Root() + "/s.json", R"({"caseHandling": "sensitive"})");
    EXPECT_EQ(m_sim.Admin({"load", m_sim.ServerDir(), m_sim.Root() + "/s.json"}).status, 1);
}
