// File types as the reference describes them: RCS keywords expanded by sync
// and print (+k, +ko), symbolic links, utf16 and utf8 files in the form a
// client writes them, and revisions purged by a +S type, by p4 archive -p
// or archived by p4 archive.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include <climits>
#include <sys/stat.h>
#include <unistd.h>

using namespace p4simtest;

namespace {

// 2026/01/02 03:04:05 UTC, 2026/01/01 19:04:05 in Los Angeles (PST).
const char* kKeywordHistory = R"JSON({
 "users": [{"name": "bruno", "email": "bruno@example.com", "fullName": "Bruno"}],
 "changes": [
  {"user": "bruno", "client": "b-ws", "time": 1767323045, "description": "Keywords",
   "files": [
    {"path": "//depot/main/k.c", "action": "add", "type": "ktext",
     "content": "$Id$ $Header$\n$Date$ $DateUTC$ $DateTime$ $DateTimeUTC$ $DateTimeTZ$\n$Change$ $File$ $Revision$ $Author$\n"},
    {"path": "//depot/main/o.c", "action": "add", "type": "text+ko", "content": "$Id$ $Header$ $Change$ $Author$\n"},
    {"path": "//depot/main/plain.c", "action": "add", "content": "$Id$\n"}]},
  {"user": "bruno", "client": "b-ws", "time": 1767323100, "description": "Expanded already",
   "files": [{"path": "//depot/main/k.c", "action": "edit",
              "content": "$Id: //depot/old.c#9 $ $Id:$ $Revision: #7 $ $Idle$ $Id: two\nlines $\n"}]}
 ]
})JSON";

std::string ReadLink(const std::string& path)
{
    char buffer[PATH_MAX];
    ssize_t n = readlink(path.c_str(), buffer, sizeof buffer);
    return n < 0 ? std::string("(not a link)") : std::string(buffer, size_t(n));
}

// The fields of a -G record without its braces and "code": what a record
// of several files must hold somewhere.
std::string Fields(const std::vector<std::pair<std::string, std::string>>& fields)
{
    std::string record = Stat(fields);
    return record.substr(19, record.size() - 20);
}

bool IsLink(const std::string& path)
{
    char buffer[16];
    return readlink(path.c_str(), buffer, sizeof buffer) >= 0;
}

class FileTypesTest : public ::testing::Test
{
protected:
    void SetUp() override { m_ws = m_sim.Root() + "/ws"; }
    void Client(const std::string& options = "noallwrite clobber nocompress unlocked nomodtime normdir",
                const std::string& lineEnd = "local")
    {
        m_sim.MakeClient("Client: ws\nOwner: bruno\nRoot: " + m_ws + "\nOptions: " + options + "\nLineEnd: " + lineEnd +
                         "\nView:\n\t//depot/main/... //ws/...\n");
    }
    SimServer m_sim;
    std::string m_ws;
};

} // namespace

TEST_F(FileTypesTest, SyncAndPrintExpandEveryKeywordOfKtext)
{
    m_sim.Env()["TZ"] = "America/Los_Angeles";
    m_sim.Load(kKeywordHistory);
    Client();
    Result r = m_sim.P4({"sync", "//...@1"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string expanded = "$Id: //depot/main/k.c#1 $ $Header: //depot/main/k.c#1 $\n"
                                 "$Date: 2026/01/01 $ $DateUTC: 2026/01/02 $ $DateTime: 2026/01/01 19:04:05 $ "
                                 "$DateTimeUTC: 2026/01/02 03:04:05 $ $DateTimeTZ: 2026/01/01 19:04:05 -0800 PST $\n"
                                 "$Change: 1 $ $File: //depot/main/k.c $ $Revision: #1 $ $Author: bruno $\n";
    EXPECT_EQ(ReadFile(m_ws + "/k.c"), expanded);
    // +ko: $Id$ and $Header$ only; a type without +k: nothing.
    EXPECT_EQ(ReadFile(m_ws + "/o.c"), "$Id: //depot/main/o.c#1 $ $Header: //depot/main/o.c#1 $ $Change$ $Author$\n");
    EXPECT_EQ(ReadFile(m_ws + "/plain.c"), "$Id$\n");

    r = m_sim.P4({"print", "-q", "//depot/main/k.c#1"});
    EXPECT_EQ(r.out, expanded);
    // print -k leaves the keywords as they are stored.
    r = m_sim.P4({"print", "-q", "-k", "//depot/main/k.c#1"});
    EXPECT_EQ(r.out, "$Id$ $Header$\n$Date$ $DateUTC$ $DateTime$ $DateTimeUTC$ $DateTimeTZ$\n"
                     "$Change$ $File$ $Revision$ $Author$\n");
}

TEST_F(FileTypesTest, AnExpandedKeywordIsExpandedAgainAndStoredUnexpanded)
{
    m_sim.Load(kKeywordHistory);
    Client("noallwrite clobber nocompress unlocked nomodtime normdir", "win");
    Result r = m_sim.P4({"print", "-q", "//depot/main/k.c"});
    // The colon after a keyword is optional; text that spans a line end or
    // names no keyword stays as it is.
    EXPECT_EQ(r.out, "$Id: //depot/main/k.c#2 $ $Id: //depot/main/k.c#2 $ $Revision: #2 $ $Idle$ $Id: two\nlines $\n");
    r = m_sim.P4({"print", "-q", "-k", "//depot/main/k.c"});
    const std::string stored = "$Id$ $Id$ $Revision$ $Idle$ $Id: two\nlines $\n";
    EXPECT_EQ(r.out, stored);
    r = m_sim.P4({"-G", "describe", "-s", "2"});
    EXPECT_NE(r.out.find(Fields({{"fileSize0", std::to_string(stored.size())}})), std::string::npos);
    // A client with LineEnd win gets the expanded text with CR LF.
    r = m_sim.P4({"sync", "//depot/main/k.c"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(m_ws + "/k.c"),
              "$Id: //depot/main/k.c#2 $ $Id: //depot/main/k.c#2 $ $Revision: #2 $ $Idle$ $Id: two\r\nlines $\r\n");
}

TEST_F(FileTypesTest, ASymlinkIsSyncedAsASymbolicLinkToItsContent)
{
    m_sim.Load(R"JSON({"changes": [
      {"user": "jo", "time": 1200000000, "description": "Links",
       "files": [{"path": "//depot/main/link", "action": "add", "type": "symlink", "content": "target/file.txt"},
                 {"path": "//depot/main/f", "action": "add", "content": "a file\n"}]},
      {"user": "jo", "time": 1200000100, "description": "Retarget",
       "files": [{"path": "//depot/main/link", "action": "edit", "content": "other"}]},
      {"user": "jo", "time": 1200000200, "description": "A file becomes a link",
       "files": [{"path": "//depot/main/f", "action": "edit", "type": "symlink", "content": "link-to\n"}]},
      {"user": "jo", "time": 1200000300, "description": "A link becomes a file",
       "files": [{"path": "//depot/main/link", "action": "edit", "type": "text", "content": "now a file\n"}]}
    ]})JSON");
    Client("noallwrite noclobber nocompress unlocked nomodtime normdir");
    Result r = m_sim.P4({"sync", "//...@1"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadLink(m_ws + "/link"), "target/file.txt");

    r = m_sim.P4({"files", "//depot/main/link"});
    EXPECT_EQ(r.out, "//depot/main/link#3 - edit change 4 (text)\n");
    r = m_sim.P4({"files", "//depot/main/link#1"});
    EXPECT_EQ(r.out, "//depot/main/link#1 - add change 1 (symlink)\n");
    r = m_sim.P4({"print", "-q", "//depot/main/link#2"});
    EXPECT_EQ(r.out, "other");
    r = m_sim.P4({"-G", "fstat", "-T", "headType", "//depot/main/link#1"});
    EXPECT_EQ(r.out, Stat({{"headType", "symlink"}}));
    r = m_sim.P4({"-G", "describe", "-s", "1"});
    EXPECT_NE(r.out.find(Fields({{"depotFile1", "//depot/main/link"}, {"action1", "add"}, {"type1", "symlink"}})),
              std::string::npos);

    // The link is replaced, though the client has noclobber.
    r = m_sim.P4({"sync", "//...@2"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadLink(m_ws + "/link"), "other");
    // A plain file is replaced by a link; the content's final line end is
    // not part of the target.
    r = m_sim.P4({"sync", "//...@3"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadLink(m_ws + "/f"), "link-to");
    r = m_sim.P4({"sync", "//...@4"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(IsLink(m_ws + "/link"));
    EXPECT_EQ(ReadFile(m_ws + "/link"), "now a file\n");
    // Removed like any file.
    r = m_sim.P4({"sync", "//...#none"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(Exists(m_ws + "/f"));
}

// A link "lib" to a folder outside the workspace, and a file "lib/passwd"
// in the same change: the file is not written through the link.
TEST_F(FileTypesTest, NoFileIsWrittenThroughASymbolicLinkOfTheDepot)
{
    const std::string victim = m_sim.Root() + "/victim";
    ASSERT_EQ(0, mkdir(victim.c_str(), 0755));
    m_sim.Load(R"JSON({"changes": [
      {"user": "jo", "time": 1200000000, "description": "A link and a file below it",
       "files": [{"path": "//depot/main/lib", "action": "add", "type": "symlink", "content": ")JSON" +
               victim + R"JSON("},
                 {"path": "//depot/main/lib/passwd", "action": "add", "content": "root\n"}]}
    ]})JSON");
    Client();
    const Result r = m_sim.P4({"sync", "//...@1"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(m_ws + "/lib/passwd: cannot be written through the symbolic link " + m_ws + "/lib\n", r.err);
    EXPECT_EQ(ReadLink(m_ws + "/lib"), victim);
    EXPECT_FALSE(Exists(victim + "/passwd"));
}

TEST_F(FileTypesTest, Utf16AndUtf8FilesAreStoredAsUtf8AndWrittenWithAByteOrderMark)
{
    // g.txt comes as a client would submit it: UTF-16LE with a BOM, "h\n".
    m_sim.Load(R"JSON({"changes": [
      {"user": "jo", "time": 1200000000, "description": "Unicode files",
       "files": [{"path": "//depot/main/w.txt", "action": "add", "type": "utf16", "content": "h\u00e9\nx\n"},
                 {"path": "//depot/main/e.txt", "action": "add", "type": "utf8", "content": "\u00e9\n"},
                 {"path": "//depot/main/g.txt", "action": "add", "type": "utf16", "base64": "//5oAAoA"}]}
    ]})JSON");
    Client("noallwrite clobber nocompress unlocked nomodtime normdir", "win");
    Result r = m_sim.P4({"sync"});
    ASSERT_EQ(r.status, 0) << r.err;
    // UTF-16 with a BOM in the client's byte order (little-endian here),
    // line ends translated; UTF-8 with its BOM.
    EXPECT_EQ(ReadFile(m_ws + "/w.txt"), std::string("\xFF\xFE"
                                                     "h\0\xE9\0\r\0\n\0x\0\r\0\n\0",
                                                     16));
    EXPECT_EQ(ReadFile(m_ws + "/e.txt"), "\xEF\xBB\xBF\xC3\xA9\r\n");
    EXPECT_EQ(ReadFile(m_ws + "/g.txt"), std::string("\xFF\xFE"
                                                     "h\0\r\0\n\0",
                                                     8));
    // The server keeps UTF-8 without a BOM: sizes of h\xc3\xa9\nx\n,
    // \xc3\xa9\n and h\n.
    r = m_sim.P4({"-G", "describe", "-s", "1"});
    EXPECT_NE(r.out.find(Fields({{"depotFile0", "//depot/main/e.txt"},
                                 {"action0", "add"},
                                 {"type0", "utf8"},
                                 {"rev0", "1"},
                                 {"fileSize0", "3"}})),
              std::string::npos);
    EXPECT_NE(r.out.find(Fields({{"type1", "utf16"}, {"rev1", "1"}, {"fileSize1", "2"}})), std::string::npos);
    EXPECT_NE(r.out.find(Fields({{"type2", "utf16"}, {"rev2", "1"}, {"fileSize2", "6"}})), std::string::npos);
}

TEST_F(FileTypesTest, APlusSTypeKeepsOnlyItsNewestRevisions)
{
    m_sim.Load(R"JSON({"changes": [
      {"user": "jo", "time": 1200000000, "description": "One",
       "files": [{"path": "//depot/main/s.bin", "action": "add", "type": "binary+S", "content": "v1"},
                 {"path": "//depot/main/s2.bin", "action": "add", "type": "binary+S2", "content": "v1"}]},
      {"user": "jo", "time": 1200000100, "description": "Two",
       "files": [{"path": "//depot/main/s.bin", "action": "edit", "content": "v2"},
                 {"path": "//depot/main/s2.bin", "action": "edit", "content": "v2"}]},
      {"user": "jo", "time": 1200000200, "description": "Three",
       "files": [{"path": "//depot/main/s.bin", "action": "edit", "content": "v3"},
                 {"path": "//depot/main/s2.bin", "action": "edit", "content": "v3"}]}
    ]})JSON");
    Result r = m_sim.P4({"files", "-a", "//depot/main/..."});
    EXPECT_EQ(r.out, "//depot/main/s.bin#3 - edit change 3 (binary+S)\n"
                     "//depot/main/s.bin#2 - purge change 2 (binary+S)\n"
                     "//depot/main/s.bin#1 - purge change 1 (binary+S)\n"
                     "//depot/main/s2.bin#3 - edit change 3 (binary+S2)\n"
                     "//depot/main/s2.bin#2 - edit change 2 (binary+S2)\n"
                     "//depot/main/s2.bin#1 - purge change 1 (binary+S2)\n");
    r = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(r.out, "Change 2 by jo@jo-ws on 2008/01/10 21:21:40\n\n\tTwo\n\nAffected files ...\n\n"
                     "... //depot/main/s.bin#2 purge\n... //depot/main/s2.bin#2 edit\n\n");
    // A purged revision has no content to print or sync.
    r = m_sim.P4({"print", "//depot/main/s.bin#1"});
    EXPECT_EQ(r.out, "//depot/main/s.bin#1 - purge change 1 (binary+S)\n");
    Client();
    r = m_sim.P4({"sync", "//...@1"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(Exists(m_ws + "/s.bin"));
    EXPECT_FALSE(Exists(m_ws + "/s2.bin"));
    r = m_sim.P4({"sync", "//...@2"});
    EXPECT_EQ(r.out, "//depot/main/s2.bin#2 - added as " + m_ws + "/s2.bin\n");
}

TEST_F(FileTypesTest, PurgedAndArchivedRevisionsKeepTheirMetadataAndSyncSkipsThem)
{
    m_sim.Load(R"JSON({"changes": [
      {"user": "jo", "time": 1200000000, "description": "Add",
       "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "one\n"},
                 {"path": "//depot/main/b.txt", "action": "add", "content": "bee\n"}]},
      {"user": "jo", "time": 1200000100, "description": "Edit",
       "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "two\n", "purged": true},
                 {"path": "//depot/main/b.txt", "action": "edit", "content": "bee2\n", "archived": true}]}
    ]})JSON");
    Result r = m_sim.P4({"describe", "-s", "2"});
    EXPECT_EQ(r.out, "Change 2 by jo@jo-ws on 2008/01/10 21:21:40\n\n\tEdit\n\nAffected files ...\n\n"
                     "... //depot/main/a.txt#2 purge\n... //depot/main/b.txt#2 archive\n\n");
    r = m_sim.P4({"-G", "fstat", "-T", "headAction,headRev", "//depot/main/..."});
    EXPECT_EQ(r.out,
              Stat({{"headAction", "purge"}, {"headRev", "2"}}) + Stat({{"headAction", "archive"}, {"headRev", "2"}}));
    // files -e leaves out what has no content to give.
    r = m_sim.P4({"files", "-e", "//depot/main/..."});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "//depot/main/... - no such file(s).\n");

    Client();
    r = m_sim.P4({"sync", "//...@1"});
    ASSERT_EQ(r.status, 0) << r.err;
    // The head revisions are skipped: the files and have entries stay.
    r = m_sim.P4({"sync"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(ReadFile(m_ws + "/a.txt"), "one\n");
    EXPECT_EQ(ReadFile(m_ws + "/b.txt"), "bee\n");
    r = m_sim.P4({"have"});
    EXPECT_EQ(r.out, "//depot/main/a.txt#1 - " + m_ws + "/a.txt\n//depot/main/b.txt#1 - " + m_ws + "/b.txt\n");
    r = m_sim.P4({"print", "//depot/main/b.txt"});
    EXPECT_EQ(r.out, "//depot/main/b.txt#2 - archive change 2 (text)\n");
}
