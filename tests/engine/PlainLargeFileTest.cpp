// A 300 MB file through orvane-import into plain git (no Git LFS): the
// worker hashes it and sends it to git fast-import in pieces, so its peak
// memory (VmHWM, from --stats) stays far below the file's size. The file is
// generated into the p4sim server at test time; git must hold the depot's
// bytes, named as git names them, and --verify and --dump read it the same
// way.
#include <cstdio>

#include "Digest.h"
#include "LfsHarness.h"

namespace enginetest {

namespace {

const long long s_nHugeBytes = 300LL << 20;

} // namespace

TEST_F(CLfsEngineTest, AFileOfThreeHundredMegabytesGoesToPlainGitInPieces)
{
    LoadChanges({Change(1200000000, {Generated("media/huge.bin", "add", s_nHugeBytes, 5), Text("a.txt", "add", "a\n")}),
                 Change(1200000100, {Text("a.txt", "edit", "b\n")})});

    const std::string strStats = m_strTemp + "/stats.json";
    const std::string strDump = m_strTemp + "/dump.jsonl";
    const TResult r = Import({"--git", m_strGit, "--verify", "--dump", strDump, "--stats", strStats, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const nlohmann::json jStats = nlohmann::json::parse(ReadWholeFile(strStats));
    const unsigned long nPeakKb = jStats["peak_rss_kb"].get<unsigned long>();
    std::printf("orvane-import --verify of a %lld MB file into plain git: worker peak memory %lu KB\n",
                s_nHugeBytes >> 20, nPeakKb);
    RecordProperty("peak_rss_kb", std::to_string(nPeakKb));
    EXPECT_GT(nPeakKb, 0u);
    EXPECT_LT(nPeakKb, 100u * 1024u);

    // The depot's bytes, as git names them, in both commits; no Git LFS.
    const std::string strDepotFile = m_strTemp + "/huge-from-p4sim.bin";
    const TResult p = P4({"print", "-q", "-o", strDepotFile, "//depot/media/huge.bin"});
    ASSERT_EQ(0, p.nStatus) << p.strErr;
    const TResult h = RunProgram({"git", "hash-object", "--no-filters", strDepotFile});
    ASSERT_EQ(0, h.nStatus) << h.strErr;
    const std::vector<std::string> astrCommits = Lines(Git({"rev-list", "--reverse", "depot"}).strOut);
    ASSERT_EQ(2u, astrCommits.size());
    for (const std::string& strCommit : astrCommits)
    {
        EXPECT_EQ(h.strOut, Git({"rev-parse", strCommit + ":media/huge.bin"}).strOut) << strCommit;
        EXPECT_EQ(std::to_string(s_nHugeBytes) + "\n", Git({"cat-file", "-s", strCommit + ":media/huge.bin"}).strOut);
        EXPECT_EQ("", Attributes(strCommit));
    }
    EXPECT_EQ("b\n", Git({"cat-file", "-p", "depot:a.txt"}).strOut);
    EXPECT_EQ(0u, StoredObjects());

    // The dump describes the file by the depot's digest.
    std::string strDepotSha256;
    ASSERT_TRUE(ORVANE::IMP::FileSha256(strDepotFile, strDepotSha256));
    bool bItem = false;
    for (const nlohmann::json& j : ReadDump(strDump))
        if (j.value("kind", "") == "item" && j.value("path", "").find("huge.bin") != std::string::npos)
        {
            EXPECT_EQ(strDepotSha256, j["sha256"].get<std::string>());
            bItem = true;
        }
    EXPECT_TRUE(bItem);
    ExpectCleanedUp(std::string());
}

} // namespace enginetest
