// Digests through nettle: the standard test vectors, git's blob names, and
// a file's SHA-256.
#include <gtest/gtest.h>

#include "Digest.h"
#include "EngineHarness.h"

using namespace ORVANE::IMP;

TEST(Digest, Sha256KnownVectors)
{
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", Sha256Hex(""));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", Sha256Hex("abc"));
    EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
              Sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", Sha256Hex(std::string(1000000, 'a')));
}

TEST(Digest, Sha1KnownVectorsInPieces)
{
    CSha1 c;
    c.Update("a", 1);
    c.Update("bc", 2);
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", c.HexDigest());
    // The object starts anew after a digest.
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", c.HexDigest());
    CSha256 d;
    d.Update("ab", 2);
    d.Update("c", 1);
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", d.HexDigest());
}

TEST(Digest, GitBlobNames)
{
    EXPECT_EQ("e69de29bb2d1d6434b8b29ae775ad8c2e48c5391", GitBlobName(""));
    EXPECT_EQ("ce013625030ba8dba906f756967f9e9ca394464a", GitBlobName("hello\n"));
    EXPECT_EQ(GitBlobName(std::string("a\0b", 3)), GitBlobName(std::string("a\0b", 3)));
    EXPECT_NE(GitBlobName(std::string("a\0b", 3)), GitBlobName("a"));
}

TEST(Digest, FileSha256OfRegularFilesOnly)
{
    char ach[] = "/tmp/orvane-digest-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(ach));
    const std::string strRoot = ach;
    enginetest::WriteWholeFile(strRoot + "/abc", "abc");
    std::string strHex = "unchanged";
    ASSERT_TRUE(FileSha256(strRoot + "/abc", strHex));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", strHex);
    strHex = "unchanged";
    EXPECT_FALSE(FileSha256(strRoot + "/none", strHex));
    EXPECT_FALSE(FileSha256(strRoot, strHex));
    EXPECT_EQ("unchanged", strHex);
    enginetest::RunProgram({"rm", "-rf", strRoot});
}
