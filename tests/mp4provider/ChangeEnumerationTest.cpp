// Change enumeration into the staging store.
#include "ProviderFixture.h"

using namespace p4test;

namespace {

std::string Cmd(const std::string& strArgs)
{
    return "42: Performing command " + std::string(g_pszP4Sim) + " " + strArgs + "\n";
}

// Lists are vectors: a braced list of one JSON value would be that value.
nlohmann::json Change(int nTime, const std::string& strDescription, const std::vector<nlohmann::json>& ajFiles,
                      const std::string& strUser = "jo", const std::string& strClient = "ws")
{
    return {{"user", strUser}, {"client", strClient}, {"time", nTime}, {"description", strDescription},
            {"files", nlohmann::json(ajFiles)}};
}

nlohmann::json Add(const std::string& strPath, const std::string& strContent = "x\n")
{
    return {{"path", strPath}, {"action", "add"}, {"content", strContent}};
}

nlohmann::json Edit(const std::string& strPath, const std::string& strContent)
{
    return {{"path", strPath}, {"action", "edit"}, {"content", strContent}};
}

std::string History(const std::vector<nlohmann::json>& ajChanges,
                    const std::vector<std::pair<std::string, std::string>>& atBranches = {})
{
    nlohmann::json j;
    j["users"] = nlohmann::json::array({{{"name", "jo"}}});
    j["branches"] = nlohmann::json::array();
    for (const auto& t : atBranches)
        j["branches"].push_back({{"name", t.first}, {"owner", "jo"}, {"view", {t.second}}});
    j["changes"] = nlohmann::json(ajChanges);
    return j.dump();
}

// What the engine would receive for one stream: "time user comment items"
// per change, then "  type path #rev" per item.
std::vector<std::string> Staged(CTestableProvider& c, unsigned int nStream)
{
    std::vector<std::string> astr;
    c.OnBeginStream(nStream, L"/nonexistent-root");
    ORVANE::MCE::CProvider::TChangeInfo tChange;
    for (int r = c.OnFirstChangeset(tChange); r == 0; r = c.OnNextChangeset(tChange))
        astr.push_back(std::to_string(tChange.tTime) + " " + Utf8(tChange.strUser) + " " +
                       Utf8(tChange.strComment).substr(0, Utf8(tChange.strComment).find('\n')) + " " +
                       std::to_string(tChange.nItemCount));
    return astr;
}

} // namespace

TEST_F(CProviderTest, EqualTimesAreSpreadDownwardsWithOneMessagePerMovedChange)
{
    Load(History({Change(1000, "one", {Add("//depot/a")}), Change(1000, "two", {Add("//depot/b")})}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    Log();
    m_pProvider->OpenLog(true);
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    EXPECT_EQ(Cmd("-G changes //depot/...") + Cmd("-G describe 2") + "42: Added 1 changeitems\n" +
                  Cmd("-G describe 1") +
                  "42: Manually changed time for change 'one\n'. It's time was after the next change!\n" +
                  "42: Added 1 changeitems\n",
              Log());
    m_pProvider->CommitChanges();
    EXPECT_EQ((std::vector<std::string>{"999 jo@ws one 2", "1000 jo@ws two 2"}), Staged(*m_pProvider, 1));
}

TEST_F(CProviderTest, ThreeEqualTimes)
{
    Load(History({Change(100, "a", {Add("//depot/a")}), Change(100, "b", {Add("//depot/b")}),
                  Change(100, "c", {Add("//depot/c")})}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    m_pProvider->CommitChanges();
    EXPECT_EQ((std::vector<std::string>{"98 jo@ws a 2", "99 jo@ws b 2", "100 jo@ws c 2"}), Staged(*m_pProvider, 1));
}

TEST_F(CProviderTest, NewestChangeAtTimeZeroIsNotCompared)
{
    Load(History({Change(500, "older", {Add("//depot/a")}), Change(0, "zero", {Add("//depot/b")})}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    EXPECT_EQ(std::string::npos, Log().find("Manually changed time"));
    m_pProvider->CommitChanges();
    EXPECT_EQ((std::vector<std::string>{"0 jo@ws zero 2", "500 jo@ws older 2"}), Staged(*m_pProvider, 1));
}

TEST_F(CProviderTest, FailedDescribeSkipsTheChangeAndKeepsThePreviousTime)
{
    Load(History({Change(300, "c1", {Add("//depot/a")}), Change(300, "c2", {Add("//depot/b")}),
                  Change(300, "c3", {Add("//depot/c")})}));
    setenv("P4SIM_FAIL", "^-G describe 2$", 1);
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    Log();
    m_pProvider->OpenLog(true);
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    const std::string strLog = Log();
    EXPECT_NE(std::string::npos, strLog.find(Cmd("-G describe 2") + "42:  Command failure (1) - "));
    EXPECT_NE(std::string::npos, strLog.find("42: ** Failed to enumerate change 2\n" + Cmd("-G describe 1") +
                                             "42: Manually changed time for change 'c1\n'."));
    m_pProvider->CommitChanges();
    // c1 was compared with c3, not with the failed c2.
    EXPECT_EQ((std::vector<std::string>{"299 jo@ws c1 2", "300 jo@ws c3 2"}), Staged(*m_pProvider, 1));
}

TEST_F(CProviderTest, AChangeTouchingTwoStreamsIsRecordedUnderEach)
{
    Load(History({Change(1000, "base", {Add("//depot/main/a"), Add("//depot/rel1/b")})},
                 {{"rel1", "//depot/main/... //depot/rel1/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    m_pProvider->CommitChanges();
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  1", "2 1 rel1 //depot/rel1 //depot/main 2"}),
              Describe(m_pProvider->m_atStreams));
    for (unsigned int nStream : {1u, 2u})
    {
        m_pProvider->OnBeginStream(nStream, L"/nonexistent-root");
        ORVANE::MCE::CProvider::TChangeInfo tChange;
        ASSERT_EQ(0, m_pProvider->OnFirstChangeset(tChange));
        EXPECT_EQ(2u, tChange.nItemCount);
        ORVANE::MCE::CProvider::TChangeItemInfo tItem;
        // The folder of a file in the stream's root needs no making.
        ASSERT_EQ(0, m_pProvider->OnFirstChangeItem(tItem));
        EXPECT_EQ(nStream == 1 ? "a" : "b", Utf8(tItem.cFilePath.GeneratePath(L'/', true)));
        EXPECT_EQ(ORVANE::MCE::eChangeItemAdd, tItem.eType);
        EXPECT_EQ(1u, tItem.nRevision);
        EXPECT_EQ(2, m_pProvider->OnNextChangeItem(tItem));
    }
}

TEST_F(CProviderTest, ChangeWithEveryFileOutsideIsStillRecorded)
{
    // A branch spec's view keeps the server's escapes while described file
    // names are decoded: the files of //depot/r%40l lie outside that stream.
    Load(History({Change(1000, "base", {Add("//depot/main/a")}), Change(1100, "escaped", {Add("//depot/r@l/b")})},
                 {{"rel", "//depot/main/... //depot/r%40l/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 rel //depot/r%40l //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
    Log();
    m_pProvider->OpenLog(true);
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    EXPECT_NE(std::string::npos,
              Log().find(Cmd("-G changes //depot/r%40l/...") + Cmd("-G describe 2") + "42: Added 0 changeitems\n"));
    m_pProvider->CommitChanges();
    // Recorded all the same, with the next free item number 1.
    EXPECT_EQ((std::vector<std::string>{"1100 jo@ws escaped 1"}), Staged(*m_pProvider, 2));
}

TEST_F(CProviderTest, BranchIsAnAddAndIntegrateAChange)
{
    const std::vector<nlohmann::json> aj = {Change(1000, "base", {Add("//depot/main/a", "1\n")}),
                         Change(1100, "branch", {nlohmann::json{{"path", "//depot/rel1/a"}, {"action", "branch"}, {"from", "//depot/main/a"}}}),
                         Change(1200, "edit", {Edit("//depot/main/a", "2\n")}),
                         Change(1300, "merge", {nlohmann::json{{"path", "//depot/rel1/a"}, {"action", "integrate"}, {"from", "//depot/main/a"}}})};
    Load(History(aj, {{"rel1", "//depot/main/... //depot/rel1/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    m_pProvider->CommitChanges();
    m_pProvider->OnBeginStream(2, L"/nonexistent-root");
    ORVANE::MCE::CProvider::TChangeInfo tChange;
    ORVANE::MCE::CProvider::TChangeItemInfo tItem;
    ASSERT_EQ(0, m_pProvider->OnFirstChangeset(tChange));
    EXPECT_EQ(1100, tChange.tTime);
    ASSERT_EQ(0, m_pProvider->OnFirstChangeItem(tItem));
    EXPECT_EQ(ORVANE::MCE::eChangeItemAdd, tItem.eType);
    EXPECT_EQ(1u, tItem.nRevision);
    ASSERT_EQ(0, m_pProvider->OnNextChangeset(tChange));
    EXPECT_EQ(1300, tChange.tTime);
    ASSERT_EQ(0, m_pProvider->OnFirstChangeItem(tItem));
    EXPECT_EQ(ORVANE::MCE::eChangeItemModify, tItem.eType);
    EXPECT_EQ(2u, tItem.nRevision);
    // The base change of rel1 is its oldest change's record.
    EXPECT_NE(0u, m_pProvider->m_atStreams[1].nBaseChangeID);
}

TEST_F(CProviderTest, StreamWithoutChangesKeepsBaseZero)
{
    Load(History({Change(1000, "base", {Add("//depot/main/a")})}, {{"rel1", "//depot/main/... //depot/rel1/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    Log();
    m_pProvider->OpenLog(true);
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    EXPECT_EQ(Cmd("-G changes //depot/main/...") + Cmd("-G describe 1") + "42: Added 1 changeitems\n" +
                  Cmd("-G changes //depot/rel1/...") + "42: ** Found no changelists for stream //depot/rel1\n",
              Log());
    EXPECT_EQ(0u, m_pProvider->m_atStreams[1].nBaseChangeID);
    EXPECT_NE(0u, m_pProvider->m_atStreams[0].nBaseChangeID);
}

TEST_F(CProviderTest, FailedListingIsLoggedAndTheRunGoesOn)
{
    Load(History({Change(1000, "base", {Add("//depot/main/a"), Add("//depot/rel1/a")})},
                 {{"rel1", "//depot/main/... //depot/rel1/..."}}));
    setenv("P4SIM_FAIL", "changes //depot/main", 1);
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    Log();
    m_pProvider->OpenLog(true);
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    const std::string strLog = Log();
    EXPECT_NE(std::string::npos, strLog.find("42: ** Failed to enumerate changes for //depot/main\n" +
                                             Cmd("-G changes //depot/rel1/...")));
    EXPECT_EQ(0u, m_pProvider->m_atStreams[0].nBaseChangeID);
    EXPECT_NE(0u, m_pProvider->m_atStreams[1].nBaseChangeID);
}

TEST_F(CProviderTest, DepthFirstFromEachRoot)
{
    Load(History({Change(1000, "base", {Add("//depot/main/a"), Add("//tools/t/x")})},
                 {{"a-rel1", "//depot/main/... //depot/rel1/..."},
                  {"b-tools", "//depot/tools/... //depot/toolsrel/..."},
                  {"c-fix", "//depot/rel1/... //depot/fix/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->EnumerateChanges());
    std::vector<std::string> astrListings;
    for (const std::string& str : JournalArgs())
        if (str.find("changes") != std::string::npos)
            astrListings.push_back(str);
    // main, its child rel1, rel1's child fix, then the second root.
    EXPECT_EQ((std::vector<std::string>{"-G changes //depot/main/...", "-G changes //depot/rel1/...",
                                        "-G changes //depot/fix/...", "-G changes //depot/tools/...",
                                        "-G changes //depot/toolsrel/..."}),
              astrListings);
}
