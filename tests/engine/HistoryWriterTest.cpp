// The history writer driven by the driver over a fake provider whose syncs
// write files: the dump, the commits, the completeness check.
#include <unistd.h>

#include <gtest/gtest.h>

#include "Digest.h"
#include "EngineHarness.h"
#include "FakeProvider.h"
#include "HistoryWriter.h"
#include "Stop.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;
using ORVANE::MCE::eChangeItemAdd;
using ORVANE::MCE::eChangeItemDelete;
using ORVANE::MCE::eChangeItemModify;

namespace {

std::function<void(const std::string&)> Sync(const std::map<std::string, std::string>& mapWrite,
                                             const std::vector<std::string>& astrRemove = {})
{
    return [=](const std::string& strRoot) {
        for (const auto& kv : mapWrite)
            WriteWholeFile(strRoot + "/" + kv.first, kv.second);
        for (const std::string& s : astrRemove)
            unlink((strRoot + "/" + s).c_str());
    };
}

class CHistoryWriterTest : public ::testing::Test
{
protected:
    CHistoryWriterTest()
        : m_cProgress(m_cMessages.File()), m_cWriter(m_atStreams, m_cWorkspace, m_cDump, nullptr, m_cProgress, false),
          m_cDriver(m_cProvider, m_cWriter)
    {
        m_cProvider.m_atStreams = {FakeStream(1, 0, "main", "//depot/main"),
                                   FakeStream(2, 1, "rel1", "//depot/rel1", "//depot/main")};
        m_cProvider.m_mapChanges[1] = {{7,
                                        "jo@ws",
                                        100,
                                        "add",
                                        {{eChangeItemAdd, "a.txt", 1}, {eChangeItemAdd, "b.txt", 1}},
                                        Sync({{"a.txt", "one\n"}, {"b.txt", "b\n"}})},
                                       {9,
                                        "jo@ws",
                                        200,
                                        "edit",
                                        {{eChangeItemModify, "a.txt", 2}, {eChangeItemDelete, "b.txt", 2}},
                                        Sync({{"a.txt", "two\n"}}, {"b.txt"})}};
        m_cProvider.m_mapChanges[2] = {
            {8, "ann@ws2", 150, "branch", {{eChangeItemAdd, "a.txt", 1}}, Sync({{"a.txt", "one\n"}})}};
        m_cWorkspace.Make(m_tScratch.Path() + "/ws");
    }
    // The streams found, their branches and folders, then each imported.
    void Import()
    {
        m_atStreams = MakeStreams(m_cDriver.WalkStreams());
        NameBranches(m_atStreams);
        PlaceStreams(m_atStreams, m_cWorkspace.Path());
        m_cProgress.Start(false, false);
        for (TStream& s : m_atStreams)
        {
            m_cWriter.SetStream(s);
            m_cDriver.ImportStream(s.tInfo.nID, s.strFolder);
        }
        m_cWriter.Stop();
    }
    // Imports into a new repository.
    void ImportInto(const std::string& strGit)
    {
        CGitRepository cGit;
        std::string strError;
        ASSERT_TRUE(cGit.Open(strGit, strError)) << strError;
        m_cWriter.SetRepository(&cGit);
        Import();
        m_cWriter.SetRepository(nullptr);
        ASSERT_TRUE(cGit.Close(HeadBranch(m_atStreams), strError)) << strError;
    }
    TScratch m_tScratch;
    CMemoryFile m_cMessages;
    CFakeProvider m_cProvider;
    TStreams m_atStreams;
    CWorkspace m_cWorkspace;
    CDumpWriter m_cDump;
    CProgress m_cProgress;
    CHistoryWriter m_cWriter;
    CMigrationDriver m_cDriver;
};

} // namespace

TEST_F(CHistoryWriterTest, DumpOfEveryStreamChangeAndItem)
{
    CMemoryFile cDump;
    m_cDump.Attach(cDump.File());
    Import();
    const std::string strOne = Sha256Hex("one\n");
    EXPECT_EQ(
        "{\"kind\":\"stream\",\"id\":1,\"parent\":0,\"name\":\"main\",\"src\":\"\",\"dst\":\"//depot/main\","
        "\"base\":0}\n"
        "{\"kind\":\"stream\",\"id\":2,\"parent\":1,\"name\":\"rel1\",\"src\":\"//depot/main\","
        "\"dst\":\"//depot/rel1\",\"base\":0}\n"
        "{\"kind\":\"change\",\"stream\":1,\"id\":7,\"user\":\"jo@ws\",\"time\":100,\"comment\":\"add\","
        "\"items\":3}\n"
        "{\"kind\":\"item\",\"change\":7,\"type\":\"add\",\"path\":\"a.txt\",\"revision\":1,\"sha256\":\"" +
            strOne +
            "\"}\n"
            "{\"kind\":\"item\",\"change\":7,\"type\":\"add\",\"path\":\"b.txt\",\"revision\":1,\"sha256\":\"" +
            Sha256Hex("b\n") +
            "\"}\n"
            "{\"kind\":\"change\",\"stream\":1,\"id\":9,\"user\":\"jo@ws\",\"time\":200,\"comment\":\"edit\","
            "\"items\":3}\n"
            "{\"kind\":\"item\",\"change\":9,\"type\":\"modify\",\"path\":\"a.txt\",\"revision\":2,\"sha256\":\"" +
            Sha256Hex("two\n") +
            "\"}\n"
            "{\"kind\":\"item\",\"change\":9,\"type\":\"delete\",\"path\":\"b.txt\",\"revision\":2,"
            "\"sha256\":null}\n"
            "{\"kind\":\"change\",\"stream\":2,\"id\":8,\"user\":\"ann@ws2\",\"time\":150,\"comment\":\"branch\","
            "\"items\":2}\n"
            "{\"kind\":\"item\",\"change\":8,\"type\":\"add\",\"path\":\"a.txt\",\"revision\":1,\"sha256\":\"" +
            strOne + "\"}\n",
        cDump.Text());
    EXPECT_EQ(2u, m_atStreams[0].nChanges);
    EXPECT_EQ(1u, m_atStreams[1].nChanges);
    EXPECT_EQ((std::vector<std::pair<long, unsigned>>{{100, 0}, {200, 0}}), m_atStreams[0].atCommits);
    EXPECT_EQ(3u, m_cProgress.Done());
    EXPECT_EQ("two\n", ReadWholeFile(m_cWorkspace.Path() + "/main/a.txt"));
}

TEST_F(CHistoryWriterTest, CommitsOnTopOfTheParentStream)
{
    const std::string strGit = m_tScratch.Path() + "/out.git";
    ImportInto(strGit);
    // Marks: blobs 1 ("one"), 2 ("b"), commit 3, blob 4 ("two"), commit 5,
    // blob 6 ("one" again: the new stream's folder brings it), commit 7.
    EXPECT_EQ((std::vector<std::pair<long, unsigned>>{{100, 3}, {200, 5}}), m_atStreams[0].atCommits);
    EXPECT_EQ((std::vector<std::pair<long, unsigned>>{{150, 7}}), m_atStreams[1].atCommits);
    const enginetest::TResult r = RunProgram({"git", "--git-dir=" + strGit, "log", "--format=%s|%an|%ae|%at", "rel1"},
                                             {{"GIT_CONFIG_NOSYSTEM", "1"}, {"GIT_CONFIG_GLOBAL", "/dev/null"}});
    EXPECT_EQ("branch|ann|ann@ws2|150\nadd|jo|jo@ws|100\n", r.strOut) << r.strErr;
    const enginetest::TResult t = RunProgram({"git", "--git-dir=" + strGit, "ls-tree", "-r", "--name-only", "main"});
    EXPECT_EQ("a.txt\n", t.strOut);
}

TEST_F(CHistoryWriterTest, EachCommitEndsWithItsChangelistsTrailers)
{
    m_cProvider.m_mapChanges[1][0].nNumber = 17;
    m_cProvider.m_mapChanges[1][1].nNumber = 19;
    m_cProvider.m_mapChanges[2][0].nNumber = 18;
    m_cDriver.SetChangeNumbers([this]() { return m_cProvider.CurrentNumber(); });
    const std::string strGit = m_tScratch.Path() + "/out.git";
    ImportInto(strGit);
    const enginetest::TResult r = RunProgram({"git", "--git-dir=" + strGit, "log", "--format=%B|", "rel1"},
                                             {{"GIT_CONFIG_NOSYSTEM", "1"}, {"GIT_CONFIG_GLOBAL", "/dev/null"}});
    EXPECT_EQ("branch\n\nPerforce-Change: 18\nPerforce-Path: //depot/rel1/...\n|\n"
              "add\n\nPerforce-Change: 17\nPerforce-Path: //depot/main/...\n|\n",
              r.strOut)
        << r.strErr;
}

TEST_F(CHistoryWriterTest, VerifiedAgainstTheTrackedTree)
{
    CHistoryWriter cVerifying(m_atStreams, m_cWorkspace, m_cDump, nullptr, m_cProgress, true);
    CMigrationDriver cDriver(m_cProvider, cVerifying);
    m_atStreams = MakeStreams(cDriver.WalkStreams());
    PlaceStreams(m_atStreams, m_cWorkspace.Path());
    cVerifying.SetStream(m_atStreams[0]);
    cDriver.ImportStream(1, m_atStreams[0].strFolder);
    EXPECT_EQ(2u, m_atStreams[0].nChanges);
}

TEST_F(CHistoryWriterTest, AFileTheSyncMissedStopsTheRun)
{
    m_cProvider.m_mapChanges[1][0].fnSync = Sync({{"b.txt", "b\n"}});
    EXPECT_EQ("1 change 7 of stream main was not synced completely: the file 'a.txt#1' is missing",
              StopOf([this] { Import(); }));
    EXPECT_EQ(0u, m_atStreams[0].nChanges);
}

TEST_F(CHistoryWriterTest, AFileLeftBehindStopsTheRun)
{
    m_cProvider.m_mapChanges[1][1].fnSync = Sync({{"a.txt", "two\n"}});
    EXPECT_EQ("1 change 9 of stream main was not synced completely: the file 'b.txt' is still there although the "
              "change deletes it",
              StopOf([this] { Import(); }));
    EXPECT_EQ(1u, m_atStreams[0].nChanges);
}

TEST_F(CHistoryWriterTest, ASymbolicLinkThatPointsNowhereIsAFileThere)
{
    // A link the server holds as a file of its own: synced, it points
    // wherever its text says, here at nothing.
    m_cProvider.m_mapChanges[1][0].fnSync = [](const std::string& strRoot) {
        WriteWholeFile(strRoot + "/a.txt", "one\n");
        ASSERT_EQ(0, symlink("gone/nowhere", (strRoot + "/b.txt").c_str()));
    };
    const std::string strGit = m_tScratch.Path() + "/out.git";
    ImportInto(strGit);
    EXPECT_EQ(2u, m_atStreams[0].nChanges);
    const enginetest::TResult r = RunProgram({"git", "--git-dir=" + strGit, "ls-tree", "main~1"});
    EXPECT_EQ("100644 blob " + GitBlobName("one\n") + "\ta.txt\n120000 blob " + GitBlobName("gone/nowhere") +
                  "\tb.txt\n",
              r.strOut)
        << r.strErr;
}

TEST_F(CHistoryWriterTest, ASymbolicLinkLeftBehindStopsTheRun)
{
    m_cProvider.m_mapChanges[1][0].fnSync = [](const std::string& strRoot) {
        WriteWholeFile(strRoot + "/a.txt", "one\n");
        ASSERT_EQ(0, symlink("gone/nowhere", (strRoot + "/b.txt").c_str()));
    };
    m_cProvider.m_mapChanges[1][1].fnSync = Sync({{"a.txt", "two\n"}});
    EXPECT_EQ("1 change 9 of stream main was not synced completely: the file 'b.txt' is still there although the "
              "change deletes it",
              StopOf([this] { Import(); }));
    EXPECT_EQ(1u, m_atStreams[0].nChanges);
}

TEST_F(CHistoryWriterTest, StreamFoldersAreMadeAndRemoved)
{
    Import();
    EXPECT_TRUE(Exists(m_cWorkspace.Path() + "/rel1/a.txt"));
    m_cWorkspace.Remove();
    EXPECT_FALSE(Exists(m_cWorkspace.Path()));
}
