// Large regular files as blobs: named by hashing them in pieces, sent to git
// fast-import in pieces from the file, and a file that changes on the way
// caught without breaking the stream.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "BlobContent.h"
#include "Digest.h"
#include "EngineHarness.h"
#include "FastImport.h"
#include "Tree.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;

namespace {

// Random-looking bytes: no piece of them repeats another.
std::string Bytes(size_t nSize, unsigned nSeed)
{
    std::string str(nSize, '\0');
    uint64_t n = 0x9e3779b97f4a7c15ull * (nSeed + 1);
    for (char& c : str)
    {
        n ^= n << 13;
        n ^= n >> 7;
        n ^= n << 17;
        c = char(n);
    }
    return str;
}

class CBlobContentTest : public ::testing::Test
{
protected:
    // Larger than the threshold, and not a whole number of pieces.
    const size_t m_nLarge = size_t(g_nStreamedBlobBytes) + 12345;

    void SetUp() override { ASSERT_EQ(0, mkdir(Root().c_str(), 0755)); }
    // The folder the tests scan.
    std::string Root() const { return m_cScratch.Path() + "/tree"; }
    std::string File(const std::string& strName) const { return Root() + "/" + strName; }
    // What git calls the file's content.
    static std::string GitHashObject(const std::string& strPath)
    {
        const enginetest::TResult r = enginetest::RunProgram({"git", "hash-object", "--no-filters", strPath});
        EXPECT_EQ(0, r.nStatus) << r.strErr;
        return r.strOut.substr(0, 40);
    }
    // The fast-import stream of one blob of the content sent by the sink,
    // each file first changed by fnChange; the problem in strProblem.
    std::string StreamOf(const std::function<void(const std::string&)>& fnChange, std::string& strProblem)
    {
        CStringSink cSink;
        CFastImportWriter cWriter(cSink);
        TTree tTree;
        ScanTree(Root(), tTree, [&](const std::string& strBlob, const CBlobContent& cContent) {
            fnChange(strBlob);
            if (cWriter.Blob(strBlob, cContent) == 0)
                strProblem = cWriter.ContentProblem();
        });
        EXPECT_FALSE(cWriter.Failed());
        cWriter.Done();
        return cSink.Text();
    }

    enginetest::TScratch m_cScratch;
};

TEST_F(CBlobContentTest, ALargeFileIsNamedInPiecesAsGitNamesIt)
{
    const std::string strBytes = Bytes(m_nLarge, 1);
    enginetest::WriteWholeFile(File("large.bin"), strBytes);
    TEntry tEntry;
    ASSERT_TRUE(ReadEntry(File("large.bin"), tEntry, nullptr));
    EXPECT_EQ(GitHashObject(File("large.bin")), tEntry.strBlob);
    EXPECT_EQ(GitBlobName(strBytes), tEntry.strBlob);
    EXPECT_EQ(0100644u, tEntry.nMode);

    // Through a scan the sink gets the file, not its text, whole as hashed.
    TTree tTree;
    uint64_t nSize = 0;
    bool bText = true;
    std::string strProblem = "not sent";
    ScanTree(Root(), tTree, [&](const std::string&, const CBlobContent& cContent) {
        nSize = cContent.Size();
        bText = cContent.Text() != nullptr;
        size_t nPieces = 0;
        std::string strRead;
        strProblem = cContent.Pieces([&](const char* p, size_t n) {
            EXPECT_LE(n, g_nBlobPieceBytes);
            strRead.append(p, n);
            ++nPieces;
            return true;
        });
        EXPECT_EQ(strBytes, strRead);
        EXPECT_GT(nPieces, 8u);
    });
    EXPECT_EQ("", strProblem);
    EXPECT_EQ(m_nLarge, nSize);
    EXPECT_FALSE(bText);
    EXPECT_EQ(tEntry, tTree.at("large.bin"));

    // Up to the threshold a file is read whole; a scan without a sink
    // hashes the same way.
    enginetest::WriteWholeFile(File("large.bin"), strBytes.substr(0, size_t(g_nStreamedBlobBytes)));
    ASSERT_TRUE(ReadEntry(File("large.bin"), tEntry, nullptr));
    EXPECT_EQ(GitHashObject(File("large.bin")), tEntry.strBlob);
    ScanTree(Root(), tTree,
             [&](const std::string&, const CBlobContent& cContent) { EXPECT_NE(nullptr, cContent.Text()); });
    EXPECT_EQ(tEntry, tTree.at("large.bin"));
}

TEST_F(CBlobContentTest, ALargeFileGoesToFastImportAsItsBytes)
{
    const std::string strBytes = Bytes(m_nLarge, 2);
    enginetest::WriteWholeFile(File("large.bin"), strBytes);
    std::string strProblem;
    const std::string strStream = StreamOf([](const std::string&) {}, strProblem);
    EXPECT_EQ("", strProblem);
    EXPECT_EQ("blob\nmark :1\ndata " + std::to_string(m_nLarge) + "\n" + strBytes + "\ndone\n", strStream);
    // The blob is sent once per commit, by its mark.
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    TEntry tEntry;
    std::string strText;
    ASSERT_TRUE(ReadEntry(File("large.bin"), tEntry, &strText));
    EXPECT_EQ(strBytes, strText);
    EXPECT_EQ(1u, cWriter.Blob(tEntry.strBlob, strText));
    EXPECT_EQ(1u, cWriter.Blob(tEntry.strBlob, CBlobContent()));
}

// A file that changes while it is sent (the sync is over: it should not)
// still gives fast-import the bytes announced, so that the stream stays
// whole; the writer reports it and the blob is not remembered.
TEST_F(CBlobContentTest, AFileThatChangesOnTheWayKeepsTheStreamWhole)
{
    const std::string strBytes = Bytes(m_nLarge, 3);
    const std::string strHead = "blob\nmark :1\ndata " + std::to_string(m_nLarge) + "\n";
    const std::string strPath = File("large.bin");
    struct TCase
    {
        const char* pszWhat;
        std::function<void()> fnChange;
        const char* pszProblem;
        std::string strSent;
    };
    const std::vector<TCase> atCases = {
        {"shrank", [&] { ASSERT_EQ(0, truncate(strPath.c_str(), 1000)); },
         "'large.bin' changed while it was read (8400953 bytes when it was hashed for git, 1000 when it was sent)",
         strBytes.substr(0, 1000) + std::string(m_nLarge - 1000, '\0')},
        {"grew", [&] { ASSERT_EQ(0, truncate(strPath.c_str(), off_t(m_nLarge + 5))); },
         "'large.bin' changed while it was read (8400953 bytes when it was hashed for git, 8400958 after it was sent)",
         strBytes},
        {"other bytes",
         [&] {
             const int fd = open(strPath.c_str(), O_WRONLY | O_CLOEXEC);
             ASSERT_EQ(1, pwrite(fd, "x", 1, 5000000));
             close(fd);
         },
         "'large.bin' changed while it was read (8400953 bytes when it was hashed for git, the same number but other "
         "bytes when it was sent)",
         strBytes.substr(0, 5000000) + "x" + strBytes.substr(5000001)},
    };
    for (const TCase& t : atCases)
    {
        SCOPED_TRACE(t.pszWhat);
        enginetest::WriteWholeFile(strPath, strBytes);
        std::string strProblem;
        const std::string strStream = StreamOf([&](const std::string&) { t.fnChange(); }, strProblem);
        EXPECT_EQ(t.pszProblem, strProblem);
        ASSERT_EQ(strHead.size() + m_nLarge + 1 + 5, strStream.size());
        EXPECT_TRUE(strStream == strHead + t.strSent + "\ndone\n");
        // fast-import takes it as a whole stream.
        const std::string strGit = m_cScratch.Path() + "/git-" + t.pszWhat;
        ASSERT_EQ(0, enginetest::RunProgram({"git", "init", "-q", "--bare", strGit}).nStatus);
        const enginetest::TResult r =
            enginetest::RunProgram({"git", "--git-dir", strGit, "fast-import", "--quiet", "--done"}, {}, strStream);
        EXPECT_EQ(0, r.nStatus) << r.strErr;
    }
}

} // namespace
