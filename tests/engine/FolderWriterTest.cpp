// Writing into a stream's folder as a sync does, and nowhere else: modes,
// links, removal, and every path that would leave the folder refused with
// nothing written outside.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Files.h"
#include "Scratch.h"
#include "perforce/FastSync.h"
#include "perforce/FolderWriter.h"

using namespace ORVANE::IMP;
using ORVANE::TEST::Exists;
using ORVANE::TEST::ReadWholeFile;
using ORVANE::TEST::WriteWholeFile;

namespace {

class CFolderWriterTest : public ::testing::Test
{
protected:
    CFolderWriterTest() : m_cScratch("orvane-folder-writer")
    {
        m_strFolder = m_cScratch.Path() + "/ws";
        m_strSpool = m_cScratch.Path() + "/spool";
        m_strOutside = m_cScratch.Path() + "/outside";
        ::mkdir(m_strFolder.c_str(), 0777);
        ::mkdir(m_strSpool.c_str(), 0700);
        ::mkdir(m_strOutside.c_str(), 0777);
        m_nSpool = ::open(m_strSpool.c_str(), O_RDONLY | O_DIRECTORY);
        m_nMask = ::umask(022);
    }
    ~CFolderWriterTest() override
    {
        ::umask(m_nMask);
        ::close(m_nSpool);
    }
    // A fetched file in the spool.
    std::string Spooled(const std::string& strContent)
    {
        const std::string strName = "r" + std::to_string(++m_nNames);
        WriteWholeFile(m_strSpool + "/" + strName, strContent);
        return strName;
    }
    unsigned Mode(const std::string& strPath) const
    {
        struct stat t;
        return ::lstat(strPath.c_str(), &t) == 0 ? unsigned(t.st_mode & 07777) : 0u;
    }

    ORVANE::TEST::CScratchFolder m_cScratch;
    std::string m_strFolder, m_strSpool, m_strOutside;
    int m_nSpool = -1;
    unsigned m_nNames = 0;
    mode_t m_nMask = 0;
};

} // namespace

TEST_F(CFolderWriterTest, FilesGetTheModesASyncGives)
{
    const CFolderWriter c(m_strFolder);
    EXPECT_EQ("", c.PutFile("src/deep/a.c", m_nSpool, Spooled("int a;\n"), 0444));
    EXPECT_EQ("", c.PutFile("run.sh", m_nSpool, Spooled("#!/bin/sh\n"), 0555));
    EXPECT_EQ("", c.PutFile("w.txt", m_nSpool, Spooled("w"), 0666));
    EXPECT_EQ("int a;\n", ReadWholeFile(m_strFolder + "/src/deep/a.c"));
    EXPECT_EQ(0444u, Mode(m_strFolder + "/src/deep/a.c"));
    EXPECT_EQ(0555u, Mode(m_strFolder + "/run.sh"));
    EXPECT_EQ(0644u, Mode(m_strFolder + "/w.txt")); // the umask applies
    EXPECT_EQ(0755u, Mode(m_strFolder + "/src/deep"));
    // A read-only file is replaced by the next revision; the spool file
    // is gone.
    const std::string strName = Spooled("int b;\n");
    EXPECT_EQ("", c.PutFile("src/deep/a.c", m_nSpool, strName, 0444));
    EXPECT_EQ("int b;\n", ReadWholeFile(m_strFolder + "/src/deep/a.c"));
    EXPECT_FALSE(Exists(m_strSpool + "/" + strName));
}

TEST_F(CFolderWriterTest, ContentIsWrittenInPlace)
{
    const CFolderWriter c(m_strFolder);
    EXPECT_EQ("", c.PutContent("src/a.c", "a longer first revision\n", 0444));
    EXPECT_EQ(0444u, Mode(m_strFolder + "/src/a.c"));
    struct stat tBefore;
    ASSERT_EQ(0, ::stat((m_strFolder + "/src/a.c").c_str(), &tBefore));
    // The next revision is shorter: nothing of the first is left.
    EXPECT_EQ("", c.PutContent("src/a.c", "short\n", 0555));
    EXPECT_EQ("short\n", ReadWholeFile(m_strFolder + "/src/a.c"));
    EXPECT_EQ(0555u, Mode(m_strFolder + "/src/a.c"));
    struct stat tAfter;
    ASSERT_EQ(0, ::stat((m_strFolder + "/src/a.c").c_str(), &tAfter));
    EXPECT_EQ(tBefore.st_ino, tAfter.st_ino);
    EXPECT_EQ("", c.PutContent("src/a.c", "", 0444));
    EXPECT_EQ("", ReadWholeFile(m_strFolder + "/src/a.c"));
    // A link in its place makes way; its target is not touched.
    WriteWholeFile(m_strOutside + "/target", "keep\n");
    ASSERT_EQ(0, ::symlink((m_strOutside + "/target").c_str(), (m_strFolder + "/l").c_str()));
    EXPECT_EQ("", c.PutContent("l", "file now\n", 0444));
    EXPECT_EQ("file now\n", ReadWholeFile(m_strFolder + "/l"));
    EXPECT_EQ(0444u, Mode(m_strFolder + "/l"));
    EXPECT_EQ("keep\n", ReadWholeFile(m_strOutside + "/target"));
    // Through a link: refused.
    ASSERT_EQ(0, ::symlink(m_strOutside.c_str(), (m_strFolder + "/lib").c_str()));
    EXPECT_EQ("'lib' is a symbolic link: nothing is written through it", c.PutContent("lib/target", "x", 0444));
    EXPECT_EQ("keep\n", ReadWholeFile(m_strOutside + "/target"));
    EXPECT_EQ("the server named the path '../outside/target', which does not stay inside the folder",
              c.PutContent("../outside/target", "x", 0444));
}

TEST_F(CFolderWriterTest, LinksAndRemoval)
{
    const CFolderWriter c(m_strFolder);
    EXPECT_EQ("", c.PutLink("lib/current", "../v2"));
    char ach[64] = {};
    ASSERT_EQ(5, ::readlink((m_strFolder + "/lib/current").c_str(), ach, sizeof(ach)));
    EXPECT_EQ("../v2", std::string(ach));
    // A link becomes a file, and a file a link.
    EXPECT_EQ("", c.PutFile("lib/current", m_nSpool, Spooled("now a file"), 0444));
    EXPECT_EQ("now a file", ReadWholeFile(m_strFolder + "/lib/current"));
    EXPECT_EQ("", c.PutLink("lib/current", "v3"));
    EXPECT_EQ(0777u, Mode(m_strFolder + "/lib/current"));
    EXPECT_EQ("", c.Remove("lib/current"));
    EXPECT_FALSE(Exists(m_strFolder + "/lib/current"));
    // Removing what is not there (or below a missing folder) is no failure.
    EXPECT_EQ("", c.Remove("lib/current"));
    EXPECT_EQ("", c.Remove("none/such/file"));
}

TEST_F(CFolderWriterTest, NothingIsWrittenThroughALink)
{
    // A link that an earlier change made, to a folder outside, then a file
    // below it.
    ASSERT_EQ(0, ::symlink(m_strOutside.c_str(), (m_strFolder + "/lib").c_str()));
    WriteWholeFile(m_strOutside + "/passwd", "root:x:0:0\n");
    const CFolderWriter c(m_strFolder);
    const std::string strName = Spooled("evil\n");
    EXPECT_EQ("'lib' is a symbolic link: nothing is written through it",
              c.PutFile("lib/passwd", m_nSpool, strName, 0444));
    EXPECT_EQ("'lib' is a symbolic link: nothing is written through it", c.PutLink("lib/x", "/etc/shadow"));
    EXPECT_EQ("'lib' is a symbolic link: nothing is written through it", c.Remove("lib/passwd"));
    EXPECT_EQ("root:x:0:0\n", ReadWholeFile(m_strOutside + "/passwd"));
    EXPECT_FALSE(Exists(m_strOutside + "/x"));
    EXPECT_TRUE(Exists(m_strSpool + "/" + strName));
}

TEST_F(CFolderWriterTest, PathsThatLeaveTheFolderAreRefused)
{
    const CFolderWriter c(m_strFolder);
    for (const char* psz : {"../outside/x", "a/../../outside/x", "/tmp/x", "a//b", "./a", "a/./b", "", "a/"})
    {
        const std::string strName = Spooled("x");
        EXPECT_EQ("the server named the path '" + std::string(psz) + "', which does not stay inside the folder",
                  c.PutFile(psz, m_nSpool, strName, 0444))
            << psz;
    }
    EXPECT_FALSE(Exists(m_strOutside + "/x"));
    EXPECT_FALSE(Exists(m_strFolder + "/a"));
}

TEST_F(CFolderWriterTest, AFolderInTheWayIsAFailure)
{
    const CFolderWriter c(m_strFolder);
    ::mkdir((m_strFolder + "/dir").c_str(), 0777);
    ::mkdir((m_strFolder + "/dir/inner").c_str(), 0777);
    const std::string strWhy = c.PutFile("dir", m_nSpool, Spooled("x"), 0444);
    EXPECT_EQ(0u, strWhy.find("cannot write 'dir': ")) << strWhy;
    WriteWholeFile(m_strFolder + "/file", "f");
    EXPECT_EQ("cannot open the folder 'file': Not a directory", c.PutFile("file/x", m_nSpool, Spooled("x"), 0444));
}

TEST(SyncedTypeTest, ModesOfTheTypes)
{
    EXPECT_TRUE(SyncedType("text").bSupported);
    EXPECT_FALSE(SyncedType("text").bExecutable);
    EXPECT_TRUE(SyncedType("text+x").bExecutable);
    EXPECT_TRUE(SyncedType("binary+Fx").bExecutable);
    EXPECT_TRUE(SyncedType("xtext").bExecutable);
    EXPECT_TRUE(SyncedType("kxtext").bExecutable);
    EXPECT_FALSE(SyncedType("ktext").bExecutable);
    EXPECT_TRUE(SyncedType("text+kw").bWritable);
    EXPECT_TRUE(SyncedType("symlink").bLink);
    EXPECT_TRUE(SyncedType("text+ko").bSupported);
    // Types the client translates on the way are left to the server.
    EXPECT_FALSE(SyncedType("utf16").bSupported);
    EXPECT_FALSE(SyncedType("utf8").bSupported);
    EXPECT_FALSE(SyncedType("unicode").bSupported);
    EXPECT_FALSE(SyncedType("xunicode").bSupported);
    EXPECT_FALSE(SyncedType("apple").bSupported);
}

TEST(SyncedTypeTest, LocalNames)
{
    EXPECT_EQ("a@b#c%d*e", LocalName("a%40b%23c%25d%2Ae"));
    EXPECT_EQ("a*e", LocalName("a%2ae"));
    EXPECT_EQ("100%", LocalName("100%"));
    EXPECT_EQ("%41%2", LocalName("%41%2"));
    EXPECT_EQ("caf\xc3\xa9 blank", LocalName("caf\xc3\xa9 blank"));
}
