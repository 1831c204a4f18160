// The fetcher on its own against a p4sim server: descriptions fetched in
// batches are byte for byte what the server sends for one change alone,
// revisions are the server's print of them (small ones in memory, large
// ones in the spool), what is not fetched is said to be, and a stop ends
// everything and removes the spool.
#include <sys/stat.h>
#include <unistd.h>

#include "EngineHarness.h"
#include "Environment.h"
#include "perforce/Prefetch.h"

using ORVANE::IMP::CPrefetcher;
using ORVANE::IMP::TFetched;
using ORVANE::IMP::TPrefetchPolicy;
using ORVANE::IMP::TWantedRevision;

namespace enginetest {

namespace {

class CPrefetchTest : public CEngineTest
{
protected:
    void SetUp() override
    {
        CEngineTest::SetUp();
        const nlohmann::json jBig = {{"path", "//depot/main/big.bin"},
                                     {"action", "add"},
                                     {"type", "binary"},
                                     {"generated", {{"size", 2000000}, {"seed", 4}}}};
        nlohmann::json jChanges = nlohmann::json::array();
        for (int n = 1; n <= 40; ++n)
            jChanges.push_back({{"user", "jo"},
                                {"client", "ws"},
                                {"time", 1200000000 + n},
                                {"description", "change " + std::to_string(n)},
                                {"files",
                                 {{{"path", "//depot/main/f" + std::to_string(n % 7) + ".txt"},
                                   {"action", n <= 7 ? "add" : "edit"},
                                   {"content", "content " + std::to_string(n) + "\n"}}}}});
        jChanges.push_back(
            {{"user", "jo"}, {"client", "ws"}, {"time", 1200000100}, {"description", "big"}, {"files", {jBig}}});
        const std::string strFile = m_strTemp + "/history.json";
        WriteWholeFile(strFile, nlohmann::json({{"changes", jChanges}}).dump());
        LoadHistory(strFile);
        m_pPort.reset(new ORVANE::TEST::CEnvironment("P4PORT", "sim:" + m_strServer));
        m_pUser.reset(new ORVANE::TEST::CEnvironment("P4USER", "tester"));
    }
    void TearDown() override
    {
        m_pPort.reset();
        m_pUser.reset();
        CEngineTest::TearDown();
    }

    static TPrefetchPolicy Policy(unsigned nJobs)
    {
        TPrefetchPolicy t;
        t.nJobs = nJobs;
        t.nDescribeBatch = 7;
        t.nPrintFiles = 3;
        t.nRetries = 0;
        return t;
    }

    std::unique_ptr<ORVANE::TEST::CEnvironment> m_pPort, m_pUser;
};

} // namespace

TEST_F(CPrefetchTest, DescriptionsAreWhatTheServerSendsForEachChange)
{
    for (unsigned nJobs : {1u, 4u})
    {
        CPrefetcher c(ENGINETEST_P4SIM, Policy(nJobs));
        std::vector<unsigned int> an;
        for (unsigned int n = 41; n >= 1; --n)
            an.push_back(n);
        c.WantDescriptions(an);
        for (unsigned int n : an)
        {
            std::string strRecord, strProblem;
            ASSERT_TRUE(c.TakeDescription(n, strRecord, strProblem)) << n << ": " << strProblem;
            EXPECT_EQ(P4({"-G", "describe", std::to_string(n)}).strOut, strRecord) << n;
            EXPECT_EQ("", strProblem);
        }
        // Taken once; never asked for: not fetched.
        std::string strRecord, strProblem;
        EXPECT_FALSE(c.TakeDescription(41, strRecord, strProblem));
        EXPECT_FALSE(c.TakeDescription(99, strRecord, strProblem));
        EXPECT_EQ("", strProblem);
        const CPrefetcher::TStats t = c.Stats();
        EXPECT_EQ(41u, t.nDescriptions);
        EXPECT_EQ(6u, t.nDescribeCommands); // 41 changes, 7 at a time
    }
}

TEST_F(CPrefetchTest, AChangeTheServerDoesNotKnowFailsAlone)
{
    CPrefetcher c(ENGINETEST_P4SIM, Policy(2));
    c.WantDescriptions({3, 77, 4});
    std::string strRecord, strProblem;
    EXPECT_TRUE(c.TakeDescription(3, strRecord, strProblem));
    EXPECT_FALSE(c.TakeDescription(77, strRecord, strProblem));
    EXPECT_EQ("'" + std::string(ENGINETEST_P4SIM) + " -G describe -s 3 77 4' failed: Change 77 unknown.", strProblem);
    strProblem.clear();
    EXPECT_TRUE(c.TakeDescription(4, strRecord, strProblem)) << strProblem;
}

TEST_F(CPrefetchTest, RevisionsAreTheServersPrintOfThem)
{
    CPrefetcher c(ENGINETEST_P4SIM, Policy(3));
    const std::string strSpool = m_strTemp + "/spool";
    c.SetSpool(strSpool);
    std::vector<TWantedRevision> at;
    for (unsigned n = 0; n < 7; ++n)
        at.push_back(TWantedRevision{"//depot/main/f" + std::to_string(n) + ".txt", 2, 0});
    at.push_back(TWantedRevision{"//depot/main/big.bin", 1, 2000000});
    c.WantRevisions(at);
    for (const TWantedRevision& t : at)
    {
        TFetched tFetched;
        std::string strProblem;
        ASSERT_EQ(CPrefetcher::eTaken, c.TakeRevision(t.strDepotFile, t.nRev, tFetched, strProblem))
            << t.strDepotFile << ": " << strProblem;
        const std::string strExpected = P4({"print", "-q", t.strDepotFile + "#" + std::to_string(t.nRev)}).strOut;
        if (t.nSize > 1000000)
        {
            // Larger than what waits in memory: a file of the spool, the
            // taker's.
            ASSERT_TRUE(tFetched.bSpooled);
            EXPECT_EQ(strExpected, ReadWholeFile(strSpool + "/" + tFetched.strName));
            ::unlink((strSpool + "/" + tFetched.strName).c_str());
        }
        else
        {
            EXPECT_FALSE(tFetched.bSpooled);
            EXPECT_EQ(strExpected, tFetched.strContent) << t.strDepotFile;
        }
    }
    TFetched tFetched;
    std::string strProblem;
    EXPECT_EQ(CPrefetcher::eNotWanted, c.TakeRevision("//depot/main/f1.txt", 2, tFetched, strProblem));
    EXPECT_EQ(3u, c.Stats().nPrintCommands); // 7 small ones 3 at a time, the large one with the last
    c.Stop();
    EXPECT_FALSE(Exists(strSpool));
}

TEST_F(CPrefetchTest, ARevisionTheServerCannotPrintFailsWithItsMessage)
{
    CPrefetcher c(ENGINETEST_P4SIM, Policy(1));
    c.SetSpool(m_strTemp + "/spool");
    c.WantRevisions({TWantedRevision{"//depot/main/f1.txt", 1, 0}, TWantedRevision{"//depot/main/none.txt", 1, 0}});
    TFetched tFetched;
    std::string strProblem;
    EXPECT_EQ(CPrefetcher::eTaken, c.TakeRevision("//depot/main/f1.txt", 1, tFetched, strProblem)) << strProblem;
    EXPECT_EQ("content 1\n", tFetched.strContent);
    EXPECT_EQ(CPrefetcher::eFailed, c.TakeRevision("//depot/main/none.txt", 1, tFetched, strProblem));
    EXPECT_EQ("'" + std::string(ENGINETEST_P4SIM) +
                  " -G print //depot/main/f1.txt#1 //depot/main/none.txt#1' failed: it sent no content for "
                  "//depot/main/none.txt#1",
              strProblem);
}

TEST_F(CPrefetchTest, AStopEndsTheFetchesAndRemovesTheSpool)
{
    // Every command takes long: the stop comes while they run.
    ORVANE::TEST::CEnvironment cLatency("P4SIM_LATENCY_MS", "5000");
    const std::string strSpool = m_strTemp + "/spool";
    CPrefetcher c(ENGINETEST_P4SIM, Policy(2));
    c.SetSpool(strSpool);
    ASSERT_EQ(0, ::mkdir(strSpool.c_str(), 0700));
    WriteWholeFile(strSpool + "/r1", "left by a fetch");
    c.WantDescriptions({1, 2, 3});
    c.WantRevisions({TWantedRevision{"//depot/main/f1.txt", 1, 0}});
    c.Stop();
    EXPECT_FALSE(Exists(strSpool));
    std::string strRecord, strProblem;
    EXPECT_FALSE(c.TakeDescription(1, strRecord, strProblem));
    EXPECT_EQ("stopped", strProblem);
    TFetched tFetched;
    EXPECT_EQ(CPrefetcher::eFailed, c.TakeRevision("//depot/main/f1.txt", 1, tFetched, strProblem));
    EXPECT_EQ("stopped", strProblem);
}

} // namespace enginetest
