// The fast-import stream, read back as text from a string sink: blobs
// sent once, commits with their idents, deltas and whole trees, quoting.
#include <gtest/gtest.h>

#include "Digest.h"
#include "FastImport.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using enginetest::Entry;

namespace {

// Takes the first n bytes and fails afterwards.
class CShortSink : public CByteSink
{
public:
    explicit CShortSink(size_t n) : m_nLeft(n) {}
    bool Write(const char* p, size_t n) override
    {
        if (n > m_nLeft)
            return false;
        m_str.append(p, n);
        m_nLeft -= n;
        return true;
    }
    std::string m_str;

private:
    size_t m_nLeft;
};

// Counts the writes, passing them on.
class CPieceCounter : public CByteSink
{
public:
    explicit CPieceCounter(CByteSink& cNext) : m_cNext(cNext) {}
    bool Write(const char* p, size_t n) override
    {
        ++m_nWrites;
        return m_cNext.Write(p, n);
    }
    unsigned m_nWrites = 0;

private:
    CByteSink& m_cNext;
};

} // namespace

TEST(FastImport, QuotePathOnlyWhenNeeded)
{
    EXPECT_EQ("a b/c.txt", QuotePath("a b/c.txt"));
    EXPECT_EQ("R\xC3\xA9sum\xC3\xA9", QuotePath("R\xC3\xA9sum\xC3\xA9"));
    EXPECT_EQ("say \"hi\"", QuotePath("say \"hi\""));
    EXPECT_EQ("\"\\\"quoted\\\"\"", QuotePath("\"quoted\""));
    EXPECT_EQ("\"back\\\\slash\"", QuotePath("back\\slash"));
    EXPECT_EQ("\"line\\nbreak\\011tab\\001\\177\"", QuotePath("line\nbreak\ttab\x01\x7f"));
}

TEST(FastImport, IdentFromUserAtClient)
{
    std::string strName, strEmail;
    SplitUser("jo@ws", strName, strEmail);
    EXPECT_EQ("jo", strName);
    EXPECT_EQ("jo@ws", strEmail);
    SplitUser("max", strName, strEmail);
    EXPECT_EQ("max", strName);
    EXPECT_EQ("max", strEmail);
    SplitUser("a<b>@c\nd", strName, strEmail);
    EXPECT_EQ("a_b_", strName);
    EXPECT_EQ("a_b_@c_d", strEmail);
    SplitUser("  @ws ", strName, strEmail);
    EXPECT_EQ("unknown", strName);
    EXPECT_EQ("@ws", strEmail);
}

TEST(FastImport, BlobsAreSentOnce)
{
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    EXPECT_EQ(1u, cWriter.Blob(GitBlobName("one\n"), "one\n"));
    EXPECT_EQ(2u, cWriter.Blob(GitBlobName(""), ""));
    EXPECT_EQ(1u, cWriter.Blob(GitBlobName("one\n"), "one\n"));
    EXPECT_EQ("blob\nmark :1\ndata 4\none\n\n"
              "blob\nmark :2\ndata 0\n\n",
              cSink.Text());
}

TEST(FastImport, AfterACommitBlobsAreNamedByTheirGitNames)
{
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    TTree tTree = {{"a.txt", Entry(0100644, "one\n")}};
    EXPECT_EQ(1u, cWriter.Blob(tTree["a.txt"].strBlob, "one\n"));
    CFastImportWriter::TCommit tCommit;
    tCommit.strBranch = "main";
    tCommit.strName = "jo";
    tCommit.strEmail = "jo@ws";
    tCommit.tTime = 7;
    TTreeDelta tDelta;
    tDelta.setChanged = {"a.txt"};
    EXPECT_EQ(2u, cWriter.Commit(tCommit, tTree, tDelta));
    // The next commit refers to the same content by its git name; the blob
    // comes again when the content does (fast-import stores it once).
    tTree["b.txt"] = Entry(0100644, "one\n");
    tDelta.setChanged = {"a.txt", "b.txt"};
    EXPECT_EQ(3u, cWriter.Commit(tCommit, tTree, tDelta));
    EXPECT_EQ(4u, cWriter.Blob(GitBlobName("one\n"), "one\n"));
    const std::string strText = cSink.Text();
    const std::string strSecond = strText.substr(strText.find("commit refs/heads/main\nmark :3"));
    EXPECT_EQ("commit refs/heads/main\nmark :3\n"
              "author jo <jo@ws> 7 +0000\n"
              "committer jo <jo@ws> 7 +0000\n"
              "data 0\n"
              "\n"
              "M 100644 " +
                  GitBlobName("one\n") + " a.txt\nM 100644 " + GitBlobName("one\n") +
                  " b.txt\n"
                  "\n"
                  "blob\nmark :4\ndata 4\none\n\n",
              strSecond);
}

TEST(FastImport, FirstCommitWritesTheWholeTree)
{
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    TTree tTree = {{"a.txt", Entry(0100644, "one\n")},
                   {"bin/run.sh", Entry(0100755, "#!/bin/sh\n")},
                   {"link", Entry(0120000, "a.txt")}};
    cWriter.Blob(tTree["a.txt"].strBlob, "one\n");
    CFastImportWriter::TCommit tCommit;
    tCommit.strBranch = "rel1";
    tCommit.strName = "jo";
    tCommit.strEmail = "jo@ws";
    tCommit.tTime = 1262303999;
    tCommit.strMessage = "Branch\nwith two lines";
    tCommit.strFrom = ":7";
    tCommit.bFullTree = true;
    EXPECT_EQ(2u, cWriter.Commit(tCommit, tTree, TTreeDelta()));
    EXPECT_EQ("blob\nmark :1\ndata 4\none\n\n"
              "commit refs/heads/rel1\n"
              "mark :2\n"
              "author jo <jo@ws> 1262303999 +0000\n"
              "committer jo <jo@ws> 1262303999 +0000\n"
              "data 21\n"
              "Branch\nwith two lines\n"
              "from :7\n"
              "deleteall\n"
              "M 100644 :1 a.txt\n"
              "M 100755 " +
                  GitBlobName("#!/bin/sh\n") +
                  " bin/run.sh\n"
                  "M 120000 " +
                  GitBlobName("a.txt") +
                  " link\n"
                  "\n",
              cSink.Text());
}

TEST(FastImport, LaterCommitsWriteTheDelta)
{
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    TTree tTree = {{"a.txt", Entry(0100644, "two\n")}, {"new\tfile", Entry(0100644, "")}};
    cWriter.Blob(tTree["a.txt"].strBlob, "two\n");
    cWriter.Blob(tTree["new\tfile"].strBlob, "");
    TTreeDelta tDelta;
    tDelta.setChanged = {"a.txt", "new\tfile", "gone meanwhile"};
    tDelta.setRemoved = {"old.txt", "z\\y"};
    CFastImportWriter::TCommit tCommit;
    tCommit.strBranch = "depot_main";
    tCommit.strName = "ann";
    tCommit.strEmail = "ann";
    tCommit.tTime = 5;
    EXPECT_EQ(3u, cWriter.Commit(tCommit, tTree, tDelta));
    EXPECT_EQ(4u, cWriter.Blob(GitBlobName("x"), "x"));
    const std::string strText = cSink.Text();
    const std::string strCommit = strText.substr(strText.find("commit "));
    EXPECT_EQ("commit refs/heads/depot_main\n"
              "mark :3\n"
              "author ann <ann> 5 +0000\n"
              "committer ann <ann> 5 +0000\n"
              "data 0\n"
              "\n"
              "D old.txt\n"
              "D \"z\\\\y\"\n"
              "M 100644 :1 a.txt\n"
              "M 100644 :2 \"new\\011file\"\n"
              "\n"
              "blob\nmark :4\ndata 1\nx\n",
              strCommit);
}

TEST(FastImport, CheckpointAsksForTheMark)
{
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    EXPECT_TRUE(cWriter.Checkpoint(12));
    EXPECT_EQ("checkpoint\nget-mark :12\n", cSink.Text());
}

TEST(FastImport, AFailedWriteStopsEverything)
{
    // The first blob fits, the second does not.
    CShortSink cSink(40);
    CFastImportWriter cWriter(cSink);
    EXPECT_EQ(1u, cWriter.Blob("b1", "0123456789"));
    EXPECT_FALSE(cWriter.Failed());
    EXPECT_EQ(2u, cWriter.Blob("b2", "abcdefghij"));
    EXPECT_TRUE(cWriter.Failed());
    EXPECT_FALSE(cWriter.Checkpoint(1));
    EXPECT_EQ("blob\nmark :1\ndata 10\n0123456789\n", cSink.m_str);
}

TEST(FastImport, ALargeBlobIsWrittenInThreePiecesASmallOneInOne)
{
    CStringSink cSink;
    CFastImportWriter cWriter(cSink);
    const std::string strSmall(64 * 1024, 's');
    const std::string strLarge(64 * 1024 + 1, 'L');
    EXPECT_EQ(1u, cWriter.Blob("small", strSmall));
    EXPECT_EQ(2u, cWriter.Blob("large", strLarge));
    EXPECT_EQ("blob\nmark :1\ndata 65536\n" + strSmall + "\nblob\nmark :2\ndata 65537\n" + strLarge + "\n",
              cSink.Text());
    // Counted: the small blob in one write, the large one in three, the
    // same bytes.
    CStringSink cCollected;
    CPieceCounter cPieces(cCollected);
    CFastImportWriter cCounted(cPieces);
    cCounted.Blob("small", strSmall);
    EXPECT_EQ(1u, cPieces.m_nWrites);
    cCounted.Blob("large", strLarge);
    EXPECT_EQ(4u, cPieces.m_nWrites);
    EXPECT_FALSE(cCounted.Failed());
    EXPECT_EQ(cSink.Text(), cCollected.Text());
}
