// The way to the server: commands tried again, listings without pending
// changes, descriptions the module could not read refused, and the
// module's lost commands kept. The commands run a stand-in p4 that answers
// with prepared bytes.
#include <gtest/gtest.h>

#include <fstream>

#include "Environment.h"
#include "Marshal.h"
#include "Scratch.h"
#include "host/ProcessCapture.h"
#include "perforce/Gateway.h"

using namespace ORVANE::IMP;
using ORVANE::TEST::MarshalRecord;

namespace {

const char* const s_pszP4 = ENGINETEST_FAKE_P4;

// A stand-in p4 whose answers to each command are files in a folder,
// with the gateway of the test in place for its life.
class CGatewayTest : public ::testing::Test
{
protected:
    CGatewayTest()
        : m_cFeed("orvane-gateway"), m_cEnv("ORVANE_FUZZ_FEED", m_cFeed.Path()), m_cGateway(s_pszP4, Policy(), m_cNames)
    {
        ORVANE::VCM::CProcessCapture::SetGateway(&m_cGateway);
    }
    ~CGatewayTest() override { ORVANE::VCM::CProcessCapture::SetGateway(nullptr); }

    static CP4Gateway::TPolicy Policy()
    {
        CP4Gateway::TPolicy t;
        t.nRetries = 2;
        t.fFirstWait = 0;
        return t;
    }

    // The answer to the command NAME: its output, error and exit status.
    void Answer(const std::string& strName, const std::string& strOut, const std::string& strErr = std::string(),
                int nExit = 0)
    {
        Write(strName + ".out", strOut);
        Write(strName + ".err", strErr);
        Write(strName + ".exit", std::to_string(nExit));
    }

    void Write(const std::string& strFile, const std::string& strBytes)
    {
        std::ofstream(m_cFeed.Path() + "/" + strFile, std::ios::binary) << strBytes;
    }

    struct TRun
    {
        int nStatus;
        std::string strOut, strErr;
    };

    TRun Run(const std::vector<std::string>& astrArgs)
    {
        ORVANE::VCM::CProcessCapture cCapture;
        TRun t;
        t.nStatus = cCapture.Execute(astrArgs);
        t.strOut = ORVANE::VCM::ReadAllBytes(*cCapture.GetStdOutputStream());
        t.strErr = ORVANE::VCM::ReadAllBytes(*cCapture.GetStdErrorStream());
        return t;
    }

    ORVANE::TEST::CScratchFolder m_cFeed;
    ORVANE::TEST::CEnvironment m_cEnv;
    CEscapedNames m_cNames;
    CP4Gateway m_cGateway;
};

std::string Change(const char* pszNumber, const char* pszStatus)
{
    return MarshalRecord({{"code", "stat"},
                          {"change", pszNumber},
                          {"time", "1200000000"},
                          {"user", "jo"},
                          {"client", "ws"},
                          {"status", pszStatus}});
}

std::string Failure(const std::string& strMessage)
{
    return "{" + ORVANE::TEST::MarshalString("code") + ORVANE::TEST::MarshalString("error") +
           ORVANE::TEST::MarshalString("data") + ORVANE::TEST::MarshalString(strMessage + "\n") +
           ORVANE::TEST::MarshalString("severity") + ORVANE::TEST::MarshalInteger(3) +
           ORVANE::TEST::MarshalString("generic") + ORVANE::TEST::MarshalInteger(38) + "0";
}

std::string Describe(const std::string& strFile)
{
    return MarshalRecord({{"code", "stat"},
                          {"change", "7"},
                          {"desc", "Edit\n"},
                          {"depotFile0", strFile},
                          {"action0", "edit"},
                          {"type0", "text"},
                          {"rev0", "2"}});
}

} // namespace

TEST(P4Command, GlobalOptionsAreSkippedToTheCommand)
{
    const TP4Command t = ParseP4Command({"p4", "-G", "-c", "ws", "-u", "jo", "describe", "7"});
    EXPECT_TRUE(t.bMarshalled);
    EXPECT_EQ("describe", t.strName);
    EXPECT_EQ(std::vector<std::string>{"7"}, t.astrArgs);
    const TP4Command tSync = ParseP4Command({"p4", "sync", "/ws/main/...@42"});
    EXPECT_FALSE(tSync.bMarshalled);
    EXPECT_EQ("sync", tSync.strName);
    EXPECT_EQ(std::vector<std::string>{"/ws/main/...@42"}, tSync.astrArgs);
    EXPECT_EQ("", ParseP4Command({"p4", "-G"}).strName);
}

TEST(P4Command, DroppedConnectionsAndTimeOutsAreWorthAnotherTry)
{
    EXPECT_TRUE(IsTransientProblem("Perforce client error:\n\tPartner exited unexpectedly.\n"));
    EXPECT_TRUE(IsTransientProblem("TCP receive failed.\nread: socket: Connection reset by peer\n"));
    EXPECT_TRUE(IsTransientProblem("Perforce client error:\n\tConnect to server failed; check $P4PORT.\n"));
    EXPECT_FALSE(IsTransientProblem("Your session has expired, please login again.\n"));
    EXPECT_FALSE(IsTransientProblem("Change 7 unknown.\n"));
    EXPECT_FALSE(IsTransientProblem(""));
}

TEST(P4Command, QueryLimitsAreKnownByTheirHelpTopic)
{
    EXPECT_TRUE(IsLimitProblem("Request too large (over 100); see 'p4 help maxresults'.\n"));
    EXPECT_TRUE(IsLimitProblem("Too many rows scanned (over 1000); see 'p4 help maxscanrows'.\n"));
    EXPECT_FALSE(IsLimitProblem("TCP receive failed.\n"));
}

TEST_F(CGatewayTest, PendingAndShelvedChangesLeaveTheListing)
{
    Answer("changes",
           Change("9", "submitted") + Change("8", "pending") + Change("7", "shelved") + Change("6", "submitted"));
    const TRun t = Run({s_pszP4, "-G", "changes", "//depot/main/..."});
    EXPECT_EQ(0, t.nStatus);
    EXPECT_EQ(Change("9", "submitted") + Change("6", "submitted"), t.strOut);
    EXPECT_EQ(2u, m_cGateway.PendingLeftOut());
    EXPECT_EQ(2u, m_cGateway.ListedChanges());
    EXPECT_TRUE(m_cGateway.TakeLost().empty());
    EXPECT_EQ("", m_cGateway.LastFailure());
}

TEST_F(CGatewayTest, AListingOfSubmittedChangesPassesByteForByte)
{
    const std::string strListing = Change("2", "submitted") + Change("1", "submitted");
    Answer("changes", strListing);
    EXPECT_EQ(strListing, Run({s_pszP4, "-G", "changes", "//depot/main/..."}).strOut);
    EXPECT_EQ(0u, m_cGateway.PendingLeftOut());
    EXPECT_EQ(2u, m_cGateway.ListedChanges());
}

TEST_F(CGatewayTest, AFailedListingIsKeptWithItsPath)
{
    Answer("changes", Failure("Request too large (over 10); see 'p4 help maxresults'."), "", 1);
    const TRun t = Run({s_pszP4, "-G", "changes", "//depot/rel1/..."});
    EXPECT_EQ(1, t.nStatus);
    EXPECT_EQ(0u, m_cGateway.ListedChanges());
    const std::vector<TLostCommand> at = m_cGateway.TakeLost();
    ASSERT_EQ(1u, at.size());
    EXPECT_EQ(TLostCommand::eListing, at[0].eKind);
    EXPECT_EQ("//depot/rel1/...", at[0].strPath);
    EXPECT_EQ(std::string(s_pszP4) + " -G changes //depot/rel1/...", at[0].strCommand);
    EXPECT_EQ("Request too large (over 10); see 'p4 help maxresults'.", at[0].strProblem);
    EXPECT_EQ("'" + std::string(s_pszP4) +
                  " -G changes //depot/rel1/...' failed: Request too large (over 10); see "
                  "'p4 help maxresults'.",
              m_cGateway.LastFailure());
    // Not a failure on the way: it is not tried again.
    EXPECT_EQ(0u, m_cGateway.Retried());
    EXPECT_TRUE(m_cGateway.TakeLost().empty());
}

TEST_F(CGatewayTest, AServerNeverReachedIsNotTriedAgain)
{
    Answer("info", "", "Perforce client error:\n\tConnect to server failed; check $P4PORT.\n", 1);
    EXPECT_EQ(1, Run({s_pszP4, "-G", "info"}).nStatus);
    EXPECT_EQ(0u, m_cGateway.Retried());
    EXPECT_EQ("'" + std::string(s_pszP4) + " -G info' failed: Connect to server failed; check $P4PORT.",
              m_cGateway.LastFailure());
}

TEST_F(CGatewayTest, ABrokenDescriptionIsTriedAgainThenKeptAsLost)
{
    Answer("changes", Change("7", "submitted"));
    Run({s_pszP4, "-G", "changes", "//depot/main/..."});
    const std::string strWhole = Describe("//depot/main/a.txt");
    Answer("describe", strWhole.substr(0, strWhole.size() / 2));
    Run({s_pszP4, "-G", "describe", "7"});
    EXPECT_EQ(2u, m_cGateway.Retried());
    EXPECT_EQ(0u, m_cGateway.Recovered());
    const std::vector<TLostCommand> at = m_cGateway.TakeLost();
    ASSERT_EQ(1u, at.size());
    EXPECT_EQ(TLostCommand::eDescribe, at[0].eKind);
    EXPECT_EQ(7u, at[0].nChange);
    EXPECT_EQ("//depot/main/...", at[0].strPath);
    EXPECT_EQ("its output could not be read", at[0].strProblem);
}

TEST_F(CGatewayTest, ADroppedSyncIsTriedAgainAndKeptWithItsChange)
{
    std::vector<std::string> astrNotices;
    m_cGateway.SetNotice([&astrNotices](const std::string& str) { astrNotices.push_back(str); });
    Answer("info", MarshalRecord({{"code", "stat"}, {"serverVersion", "P4D/LINUX26X86_64/2024.1/2596294"}}));
    Run({s_pszP4, "-G", "info"});
    Answer("sync", "", "Perforce client error:\n\tPartner exited unexpectedly.\n", 1);
    const TRun t = Run({s_pszP4, "sync", "/ws/main/...@42"});
    EXPECT_EQ(1, t.nStatus);
    EXPECT_EQ("Perforce client error:\n\tPartner exited unexpectedly.\n", t.strErr);
    EXPECT_EQ(2u, m_cGateway.Retried());
    ASSERT_EQ(2u, astrNotices.size());
    EXPECT_EQ("'" + std::string(s_pszP4) +
                  " sync /ws/main/...@42' failed (Partner exited unexpectedly.); trying again in 0 s (1 of 2)",
              astrNotices[0]);
    const std::vector<TLostCommand> at = m_cGateway.TakeLost();
    ASSERT_EQ(1u, at.size());
    EXPECT_EQ(TLostCommand::eSync, at[0].eKind);
    EXPECT_EQ(42u, at[0].nChange);
}

TEST_F(CGatewayTest, AStopAskedForEndsTheRetries)
{
    m_cGateway.SetStopCheck([]() { return true; });
    Answer("info", MarshalRecord({{"code", "stat"}}));
    Run({s_pszP4, "-G", "info"});
    Answer("sync", "", "TCP receive failed.\n", 1);
    EXPECT_EQ(1, Run({s_pszP4, "sync", "/ws/main/...@3"}).nStatus);
    EXPECT_EQ(1u, m_cGateway.Retried());
}

TEST_F(CGatewayTest, ADescriptionNamingAFileTheModuleCannotReadIsRefused)
{
    Answer("describe", Describe("//depot/main/done 100%25"));
    const TRun t = Run({s_pszP4, "-G", "describe", "7"});
    EXPECT_EQ(1, t.nStatus);
    EXPECT_EQ("", t.strOut);
    EXPECT_EQ("orvane-import: the migration module cannot read the depot file name '//depot/main/done 100%25'\n",
              t.strErr);
    EXPECT_EQ(std::vector<std::string>{"//depot/main/done 100%25"}, m_cGateway.RefusedNames());
    EXPECT_TRUE(m_cGateway.TakeLost().empty());
    // Met again, it is named once.
    Run({s_pszP4, "-G", "describe", "7"});
    EXPECT_EQ(1u, m_cGateway.RefusedNames().size());
}

TEST_F(CGatewayTest, DescribedNamesAreLearnt)
{
    const std::string strDescribe = Describe("//depot/main/pct%2541.txt");
    Answer("describe", strDescribe);
    const TRun t = Run({s_pszP4, "-G", "describe", "7"});
    EXPECT_EQ(0, t.nStatus);
    EXPECT_EQ(strDescribe, t.strOut);
    // The module reads "pctA.txt"; p4 sync writes "pct%41.txt".
    EXPECT_EQ("pct%41.txt", m_cNames.SyncedPath("//depot/main", "pctA.txt"));
}

TEST_F(CGatewayTest, AnUnreadBranchFormIsNamed)
{
    Answer("branch", Failure("Access for user 'jo' has not been enabled by 'p4 protect'."), "", 1);
    Run({s_pszP4, "-G", "branch", "-o", "rel1"});
    const auto at = m_cGateway.TakeUnreadBranches();
    ASSERT_EQ(1u, at.size());
    EXPECT_EQ("rel1", at[0].first);
    EXPECT_EQ("'" + std::string(s_pszP4) +
                  " -G branch -o rel1' failed: Access for user 'jo' has not been enabled by 'p4 protect'.",
              at[0].second);
    EXPECT_TRUE(m_cGateway.TakeUnreadBranches().empty());
}

TEST_F(CGatewayTest, OtherProgramsPassUntouched)
{
    const TRun t = Run({"/bin/sh", "-c", "exit 3"});
    EXPECT_EQ(3, t.nStatus);
    EXPECT_EQ("", m_cGateway.LastFailure());
    EXPECT_EQ(0u, m_cGateway.Retried());
}

TEST_F(CGatewayTest, AFailureRecordOfASuccessfulCommandCounts)
{
    Answer("info", Failure("Your session has expired, please login again."));
    EXPECT_EQ(0, Run({s_pszP4, "-G", "info"}).nStatus);
    EXPECT_EQ("'" + std::string(s_pszP4) + " -G info' failed: Your session has expired, please login again.",
              m_cGateway.LastFailure());
    m_cGateway.ForgetFailure();
    EXPECT_EQ("", m_cGateway.LastFailure());
}

TEST(MetadataText, Utf8IsRecognised)
{
    EXPECT_TRUE(IsUtf8("plain"));
    EXPECT_TRUE(IsUtf8("caf\xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80"));
    EXPECT_FALSE(IsUtf8("caf\xE9"));
    EXPECT_FALSE(IsUtf8("\xC0\xAF"));         // overlong '/'
    EXPECT_FALSE(IsUtf8("\xED\xA0\x80"));     // a surrogate
    EXPECT_FALSE(IsUtf8("\xF4\x90\x80\x80")); // beyond U+10FFFF
    EXPECT_FALSE(IsUtf8("\xE6\x97"));         // cut short
}

TEST(MetadataText, TextsOfACodePageBecomeUtf8)
{
    const CMetadataDecoder cDecoder("cp1252");
    std::string str = "Ren\xE9 M\xFCller \x80 \x93quoted\x94";
    EXPECT_TRUE(cDecoder.ToUtf8(str));
    EXPECT_EQ("Ren\xC3\xA9 M\xC3\xBCller \xE2\x82\xAC \xE2\x80\x9Cquoted\xE2\x80\x9D", str);
    // 0x81 is not defined in Windows-1252: it is replaced, not dropped.
    str = "a\x81z";
    EXPECT_TRUE(cDecoder.ToUtf8(str));
    EXPECT_EQ("a\xEF\xBF\xBDz", str);
    // UTF-8 stays as it is.
    str = "caf\xC3\xA9";
    EXPECT_FALSE(cDecoder.ToUtf8(str));
    EXPECT_EQ("caf\xC3\xA9", str);
    // Without an encoding nothing is decoded.
    str = "caf\xE9";
    EXPECT_FALSE(CMetadataDecoder().ToUtf8(str));
    EXPECT_EQ("caf\xE9", str);
    EXPECT_TRUE(CMetadataDecoder::IsKnown("latin1"));
    EXPECT_FALSE(CMetadataDecoder::IsKnown("no-such-encoding"));
    EXPECT_FALSE(CMetadataDecoder::IsKnown(""));
}

TEST_F(CGatewayTest, DescriptionsAndNamesInACodePageReachTheModuleAsUtf8)
{
    const auto fnDescribe = [](const char* pszDesc, const char* pszUser) {
        return MarshalRecord({{"code", "stat"},
                              {"change", "7"},
                              {"user", pszUser},
                              {"desc", pszDesc},
                              {"depotFile0", "//depot/main/caf\xE9.txt"},
                              {"action0", "add"},
                              {"type0", "text"},
                              {"rev0", "1"}});
    };
    CEscapedNames cNames;
    CP4Gateway::TPolicy tPolicy = Policy();
    tPolicy.strMetadataEncoding = "cp1252";
    CP4Gateway cDecoding(s_pszP4, tPolicy, cNames);
    ORVANE::VCM::CProcessCapture::SetGateway(&cDecoding);
    Answer("describe", fnDescribe("Caf\xE9 cr\xE8me\n", "ren\xE9"));
    const TRun t = Run({s_pszP4, "-G", "describe", "7"});
    EXPECT_EQ(0, t.nStatus);
    // The file name keeps its bytes: git gets it as the server has it.
    EXPECT_EQ(fnDescribe("Caf\xC3\xA9 cr\xC3\xA8me\n", "ren\xC3\xA9"), t.strOut);
    EXPECT_EQ(2u, cDecoding.DecodedTexts());
    // A server with unicode enabled sends UTF-8: nothing is touched.
    cDecoding.SetUnicodeServer(true);
    EXPECT_EQ(fnDescribe("Caf\xE9 cr\xE8me\n", "ren\xE9"), Run({s_pszP4, "-G", "describe", "7"}).strOut);
}

TEST_F(CGatewayTest, PurgedAndArchivedRevisionsLeaveTheDescription)
{
    const auto fnItem = [](const char* pszNumber, const char* pszFile, const char* pszAction, const char* pszRev) {
        const std::string strNumber = pszNumber;
        return std::vector<std::pair<std::string, std::string>>{{"depotFile" + strNumber, pszFile},
                                                                {"action" + strNumber, pszAction},
                                                                {"type" + strNumber, "binary+S"},
                                                                {"rev" + strNumber, pszRev}};
    };
    std::vector<std::pair<std::string, std::string>> atAll = {{"code", "stat"}, {"change", "7"}, {"desc", "Mixed\n"}};
    std::vector<std::pair<std::string, std::string>> atKept = atAll;
    for (const auto& at :
         {fnItem("0", "//depot/main/a.txt", "edit", "2"), fnItem("1", "//depot/main/big.bin", "purge", "3"),
          fnItem("2", "//depot/main/old.bin", "archive", "1"), fnItem("3", "//depot/main/c.txt", "add", "1")})
    {
        atAll.insert(atAll.end(), at.begin(), at.end());
        if (at[1].second != "purge" && at[1].second != "archive")
            atKept.insert(atKept.end(), at.begin(), at.end());
    }
    Answer("describe", MarshalRecord(atAll));
    const TRun t = Run({s_pszP4, "-G", "describe", "7"});
    EXPECT_EQ(0, t.nStatus);
    EXPECT_EQ(MarshalRecord(atKept), t.strOut);
    const std::vector<TGoneRevision>& at = m_cGateway.GoneRevisions();
    ASSERT_EQ(2u, at.size());
    EXPECT_EQ("//depot/main/big.bin", at[0].strDepotFile);
    EXPECT_EQ(3u, at[0].nRevision);
    EXPECT_EQ(7u, at[0].nChange);
    EXPECT_EQ("purge", at[0].strAction);
    EXPECT_EQ("//depot/main/old.bin", at[1].strDepotFile);
    EXPECT_EQ(1u, at[1].nRevision);
    EXPECT_EQ("archive", at[1].strAction);
}

TEST_F(CGatewayTest, LinksOfTheDescriptionsAreKnownAndASyncCanBeRefusedBeforeItRuns)
{
    Answer("describe", MarshalRecord({{"code", "stat"},
                                      {"change", "7"},
                                      {"desc", "Links\n"},
                                      {"depotFile0", "//depot/main/lib"},
                                      {"action0", "add"},
                                      {"type0", "symlink"},
                                      {"rev0", "1"},
                                      {"depotFile1", "//depot/rel1/lib"},
                                      {"action1", "add"},
                                      {"type1", "symlink+x"},
                                      {"rev1", "1"}}));
    Run({s_pszP4, "-G", "describe", "7"});
    Answer("describe", MarshalRecord({{"code", "stat"},
                                      {"change", "9"},
                                      {"desc", "A file again\n"},
                                      {"depotFile0", "//depot/main/lib"},
                                      {"action0", "edit"},
                                      {"type0", "text"},
                                      {"rev0", "2"}}));
    Run({s_pszP4, "-G", "describe", "9"});
    EXPECT_EQ(std::vector<std::string>{}, m_cGateway.LinksAt("//depot/main/", 6));
    EXPECT_EQ(std::vector<std::string>{"//depot/main/lib"}, m_cGateway.LinksAt("//depot/main/", 8));
    EXPECT_EQ(std::vector<std::string>{}, m_cGateway.LinksAt("//depot/main/", 9));
    EXPECT_EQ(std::vector<std::string>{"//depot/rel1/lib"}, m_cGateway.LinksAt("//depot/rel1/", 9));

    std::vector<std::pair<std::string, unsigned>> atAsked;
    m_cGateway.SetSyncGuard([&atAsked](const std::string& strFolder, unsigned int nChange) {
        atAsked.emplace_back(strFolder, nChange);
        return nChange == 8 ? std::string("a link is in the way") : std::string();
    });
    Answer("sync", "ran\n");
    TRun t = Run({s_pszP4, "sync", "/ws/main/...@8"});
    EXPECT_EQ(1, t.nStatus);
    EXPECT_EQ("", t.strOut); // the stand-in did not run
    EXPECT_EQ("a link is in the way\n", t.strErr);
    const std::vector<TLostCommand> at = m_cGateway.TakeLost();
    ASSERT_EQ(1u, at.size());
    EXPECT_TRUE(at[0].bNotRun);
    EXPECT_EQ(8u, at[0].nChange);
    EXPECT_EQ("a link is in the way", at[0].strProblem);
    t = Run({s_pszP4, "sync", "/ws/main/...@9"});
    EXPECT_EQ(0, t.nStatus);
    EXPECT_EQ("ran\n", t.strOut);
    EXPECT_EQ((std::vector<std::pair<std::string, unsigned>>{{"/ws/main", 8}, {"/ws/main", 9}}), atAsked);
}

TEST_F(CGatewayTest, ALargeAnswerIsLookedAtInPiecesAndPassesWhole)
{
    // More than a few pieces of revisions, then a failure.
    std::string strRevisions;
    for (int i = 0; strRevisions.size() < (size_t(1) << 20); ++i)
        strRevisions += MarshalRecord({{"code", "stat"},
                                       {"depotFile", "//depot/main/src/file" + std::to_string(i) + ".c"},
                                       {"rev", "1"},
                                       {"change", std::to_string(i + 1)},
                                       {"action", "add"}});
    Answer("files", strRevisions + Failure("Too many rows scanned."));
    const TRun t = Run({s_pszP4, "-G", "files", "-a", "//depot/main/..."});
    EXPECT_EQ(0, t.nStatus);
    EXPECT_EQ(strRevisions + Failure("Too many rows scanned."), t.strOut);
    EXPECT_NE(std::string::npos, m_cGateway.LastFailure().find("failed: Too many rows scanned."));
    EXPECT_EQ(0u, m_cGateway.Retried());
    // Cut short on the way: tried again.
    Answer("files", strRevisions.substr(0, strRevisions.size() - 1));
    Run({s_pszP4, "-G", "files", "-a", "//depot/main/..."});
    EXPECT_EQ(2u, m_cGateway.Retried());
}
