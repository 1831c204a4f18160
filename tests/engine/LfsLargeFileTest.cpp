// A 300 MB file through orvane-import into Git LFS: the worker reads it in
// pieces, so its peak memory (VmHWM, from --stats) stays far below the
// file's size. The file is generated into the p4sim server at test time,
// and compared in pieces with what p4sim holds after a clone and git lfs
// pull. About 12 seconds, with AddressSanitizer too: part of the normal
// suite.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <vector>

#include "Digest.h"
#include "LfsHarness.h"

namespace enginetest {

namespace {

const long long s_nHugeBytes = 300LL << 20;

// Whether the two files hold the same bytes, read a piece at a time.
bool SameContent(const std::string& strA, const std::string& strB)
{
    const int fdA = open(strA.c_str(), O_RDONLY | O_CLOEXEC);
    const int fdB = open(strB.c_str(), O_RDONLY | O_CLOEXEC);
    bool bSame = fdA >= 0 && fdB >= 0;
    std::vector<char> achA(1 << 20), achB(1 << 20);
    while (bSame)
    {
        const ssize_t nA = read(fdA, achA.data(), achA.size());
        ssize_t nB = 0;
        // A pipe or a slow reader may give fewer bytes: read B up to A's.
        while (nA > 0 && nB < nA)
        {
            const ssize_t n = read(fdB, achB.data() + nB, size_t(nA - nB));
            if (n <= 0)
                break;
            nB += n;
        }
        bSame = nA >= 0 && nA == nB && std::equal(achA.begin(), achA.begin() + nA, achB.begin());
        if (nA <= 0)
        {
            char c;
            bSame = bSame && nA == 0 && read(fdB, &c, 1) == 0;
            break;
        }
    }
    if (fdA >= 0)
        close(fdA);
    if (fdB >= 0)
        close(fdB);
    return bSame;
}

double Seconds(std::chrono::steady_clock::time_point tStart)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
}

} // namespace

TEST_F(CLfsEngineTest, AFileOfThreeHundredMegabytesStaysOutOfTheWorkersMemory)
{
    auto tStart = std::chrono::steady_clock::now();
    LoadChanges({Change(1200000000, {Generated("media/huge.bin", "add", s_nHugeBytes, 1), Text("a.txt", "add", "a\n")}),
                 Change(1200000100, {Text("a.txt", "edit", "b\n")})});
    const double fLoad = Seconds(tStart);

    const std::string strStats = m_strTemp + "/stats.json";
    tStart = std::chrono::steady_clock::now();
    const TResult r = Import({"--git", m_strGit, "--lfs-threshold", "50M", "--verify", "--stats", strStats, "--quiet"});
    const double fImport = Seconds(tStart);
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const nlohmann::json jStats = nlohmann::json::parse(ReadWholeFile(strStats));
    const unsigned long nPeakKb = jStats["peak_rss_kb"].get<unsigned long>();
    std::printf(
        "p4sim admin load of a %lld MB file: %.1f s; orvane-import --verify: %.1f s, worker peak memory %lu KB\n",
        s_nHugeBytes >> 20, fLoad, fImport, nPeakKb);
    RecordProperty("peak_rss_kb", std::to_string(nPeakKb));
    EXPECT_GT(nPeakKb, 0u);
    EXPECT_LT(nPeakKb, 100u * 1024u);

    // Both commits hold the pointer; the store holds the content, once.
    const std::vector<std::string> astrCommits = Lines(Git({"rev-list", "--reverse", "depot"}).strOut);
    ASSERT_EQ(2u, astrCommits.size());
    for (const std::string& strCommit : astrCommits)
        EXPECT_EQ(std::set<std::string>({"media/huge.bin"}), LfsPaths(strCommit)) << strCommit;
    EXPECT_EQ("/media/huge.bin filter=lfs diff=lfs merge=lfs -text\n", Attributes(astrCommits[1]));
    EXPECT_EQ(1u, StoredObjects());
    const std::string strDepotFile = m_strTemp + "/huge-from-p4sim.bin";
    const TResult p = P4({"print", "-q", "-o", strDepotFile, "//depot/media/huge.bin"});
    ASSERT_EQ(0, p.nStatus) << p.strErr;
    std::string strOid;
    unsigned long long nSize = 0;
    ASSERT_TRUE(ParsePointer(Git({"cat-file", "-p", "depot:media/huge.bin"}).strOut, strOid, nSize));
    EXPECT_EQ(static_cast<unsigned long long>(s_nHugeBytes), nSize);
    std::string strDepotOid;
    ASSERT_TRUE(ORVANE::IMP::FileSha256(strDepotFile, strDepotOid));
    EXPECT_EQ(strDepotOid, strOid);

    tStart = std::chrono::steady_clock::now();
    ExpectLfsFsck();
    const double fFsck = Seconds(tStart);
    tStart = std::chrono::steady_clock::now();
    ASSERT_NO_FATAL_FAILURE(MakeClone("depot"));
    std::printf("git lfs fsck of both commits: %.1f s; clone and git lfs pull: %.1f s\n", fFsck, Seconds(tStart));
    EXPECT_TRUE(SameContent(strDepotFile, Clone("depot") + "/media/huge.bin"));
    EXPECT_EQ("b\n", ReadWholeFile(Clone("depot") + "/a.txt"));
    EXPECT_EQ("", RunProgram({"git", "status", "--porcelain"}, Env(), "", Clone("depot")).strOut);
    ExpectCleanedUp(std::string());
}

} // namespace enginetest
