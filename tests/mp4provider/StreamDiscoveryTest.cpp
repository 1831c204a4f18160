// Stream discovery from branch specs.
#include "ProviderFixture.h"

using namespace p4test;

namespace {

std::string Cmd(const std::string& strArgs)
{
    return "42: Performing command " + std::string(g_pszP4Sim) + " " + strArgs + "\n";
}

const std::string strDefaultPatterns = "42: -- Added branch ignore regex of 'IgnoredBranch*'\n"
                                       "42: -- Added branch ignore regex of 'ZZ*'\n";

// A history with the given branch specs (name, view line) and one change.
std::string History(const std::vector<std::pair<std::string, std::string>>& atBranches)
{
    nlohmann::json j;
    j["users"] = nlohmann::json::array({{{"name", "jo"}}});
    j["branches"] = nlohmann::json::array();
    for (const auto& t : atBranches)
        j["branches"].push_back({{"name", t.first}, {"owner", "jo"}, {"view", {t.second}}});
    j["changes"] = nlohmann::json::array(
        {{{"user", "jo"}, {"client", "ws"}, {"time", 1200000000}, {"description", "first"},
          {"files", {{{"path", "//depot/main/a.txt"}, {"action", "add"}, {"content", "a\n"}}}}}});
    return j.dump();
}

} // namespace

TEST_F(CProviderTest, NoBranchSpecsMakeTheRootPathTheOnlyStream)
{
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ(std::vector<std::string>{"1 0 depot //depot  0"}, Describe(m_pProvider->m_atStreams));
    EXPECT_EQ(strDefaultPatterns + Cmd("-G branches"), Log());
    ASSERT_EQ(2, m_pProvider->m_astrIgnoredPatterns.GetCount());
    EXPECT_EQ("ignoredbranch*", Utf8(m_pProvider->m_astrIgnoredPatterns[0]));
    EXPECT_EQ("zz*", Utf8(m_pProvider->m_astrIgnoredPatterns[1]));
    EXPECT_EQ(std::vector<std::string>{"-G branches"}, JournalArgs());
}

TEST_F(CProviderTest, BranchSpecMakesARootForItsSourceFirst)
{
    Load(History({{"rel1", "//depot/main/... //depot/rel1/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 rel1 //depot/rel1 //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
    EXPECT_EQ(strDefaultPatterns + Cmd("-G branches") + Cmd("-G branch -o rel1") +
                  "42: Proposing stream 'rel1' (source='//depot/main',dest='//depot/rel1')\n",
              Log());
}

TEST_F(CProviderTest, LaterBranchSpecTakesOverARootMadeForASource)
{
    // Branch specs are listed by name.
    Load(History({{"a-rel1", "//depot/main/... //depot/rel1/..."}, {"b-main", "//depot/trunk/... //depot/main/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 3 b-main //depot/main //depot/trunk 0",
                                        "2 1 a-rel1 //depot/rel1 //depot/main 0", "3 0 depot_trunk //depot/trunk  0"}),
              Describe(m_pProvider->m_atStreams));
    EXPECT_EQ(4u, m_pProvider->m_nNextStreamID);
}

TEST_F(CProviderTest, SecondBranchSpecWithTheSameDestinationIsRefused)
{
    Load(History({{"r1", "//depot/main/... //depot/rel/..."}, {"r2", "//depot/dev/... //depot/rel/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    // r2's source became a root before its destination was refused.
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 r1 //depot/rel //depot/main 0",
                                        "3 0 depot_dev //depot/dev  0"}),
              Describe(m_pProvider->m_atStreams));
    EXPECT_EQ(strDefaultPatterns + Cmd("-G branches") + Cmd("-G branch -o r1") +
                  "42: Proposing stream 'r1' (source='//depot/main',dest='//depot/rel')\n" + Cmd("-G branch -o r2") +
                  "42: Proposing stream 'r2' (source='//depot/dev',dest='//depot/rel')\n",
              Log());
}

TEST_F(CProviderTest, SourceInsideAStreamAndDestinationAroundAStreamAreRefused)
{
    Load(History({{"a", "//depot/main/... //depot/rel1/..."},
                  {"b", "//depot/main/sub/... //depot/rel2/..."},
                  {"c", "//depot/rel1/... //depot/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 a //depot/rel1 //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
    const std::string strLog = Log();
    EXPECT_NE(std::string::npos,
              strLog.find("42: Proposing stream 'b' (source='//depot/main/sub',dest='//depot/rel2')\n"));
    EXPECT_NE(std::string::npos, strLog.find("42: Proposing stream 'c' (source='//depot/rel1',dest='//depot')\n"));
}

TEST_F(CProviderTest, SourceThatHoldsAStreamIsRefused)
{
    Load(History({{"a", "//depot/main/x/... //depot/rel1/..."}, {"b", "//depot/main/... //depot/rel2/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main_x //depot/main/x  0", "2 1 a //depot/rel1 //depot/main/x 0"}),
              Describe(m_pProvider->m_atStreams));
}

TEST_F(CProviderTest, IgnoredBranchSpecsByWildcardAndByName)
{
    Load(History({{"ignoredbranch7", "//depot/main/... //depot/i7/..."},
                  {"IgnoredBranch", "//depot/main/... //depot/ib/..."},
                  {"zz", "//depot/main/... //depot/zz/..."},
                  {"xZZ", "//depot/main/... //depot/xzz/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 xZZ //depot/xzz //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
    const std::string strLog = Log();
    EXPECT_NE(std::string::npos,
              strLog.find("42: Ignored branch spec 'IgnoredBranch' due to Ignored Branches setting 'ignoredbranch*'\n"));
    EXPECT_NE(std::string::npos,
              strLog.find("42: Ignored branch spec 'ignoredbranch7' due to Ignored Branches setting 'ignoredbranch*'\n"));
    EXPECT_NE(std::string::npos, strLog.find("42: Ignored branch spec 'zz' due to Ignored Branches setting 'zz*'\n"));
    EXPECT_EQ(std::string::npos, strLog.find("'xZZ' due to"));
}

TEST_F(CProviderTest, PlainIgnorePatternsCompareExactlyAfterLowerCasing)
{
    Load(History({{"REL2", "//depot/main/... //depot/r2/..."}, {"rel20", "//depot/main/... //depot/r20/..."}}));
    Settings({{L"IgnoredBranches", L"rel1;Rel2"}});
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 rel20 //depot/r20 //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
    const std::string strLog = Log();
    EXPECT_EQ(0u, strLog.find("42: -- Added branch ignore regex of 'rel1'\n"
                              "42: -- Added branch ignore regex of 'Rel2'\n"));
    EXPECT_NE(std::string::npos, strLog.find("42: Ignored branch spec 'REL2' due to Ignored Branches setting 'rel2'\n"));
}

TEST_F(CProviderTest, EmptyTokensAreKeptButNoneAfterAFinalSeparator)
{
    Settings({{L"IgnoredBranches", L"a;;b;"}});
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_EQ(3, m_pProvider->m_astrIgnoredPatterns.GetCount());
    EXPECT_EQ("", Utf8(m_pProvider->m_astrIgnoredPatterns[1]));
    EXPECT_EQ(0u, Log().find("42: -- Added branch ignore regex of 'a'\n"
                             "42: -- Added branch ignore regex of ''\n"
                             "42: -- Added branch ignore regex of 'b'\n"
                             "42: Performing command "));
}

TEST_F(CProviderTest, LeadingDotIsNotMatchedByALeadingWildcard)
{
    Load(History({{".hidden", "//depot/main/... //depot/hidden/..."}}));
    Settings({{L"IgnoredBranches", L"*hidden"}});
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ(2, m_pProvider->m_atStreams.GetCount());
}

TEST_F(CProviderTest, CaseInsensitiveSourceTakesTheStoredSpelling)
{
    Load(History({{"a", "//depot/main/... //depot/rel1/..."}, {"b", "//Depot/Main/... //depot/rel2/..."}}));
    Settings({{L"RootPath", L"//..."}});
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 a //depot/rel1 //depot/main 0",
                                        "3 1 b //depot/rel2 //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
}

TEST_F(CProviderTest, CaseSensitiveWhenTheSettingSaysSoAfterClientsAreMade)
{
    Load(History({{"a", "//depot/main/... //depot/rel1/..."}, {"b", "//Depot/Main/... //depot/rel2/..."}}));
    Settings({{L"RootPath", L"//..."}, {L"CaseInsensitive", L"0"}});
    m_pProvider->m_bCaseInsensitive = false; // as InitialiseClients leaves it
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 a //depot/rel1 //depot/main 0",
                                        "3 0 Depot_Main //Depot/Main  0", "4 3 b //depot/rel2 //Depot/Main 0"}),
              Describe(m_pProvider->m_atStreams));
}

TEST_F(CProviderTest, EveryBranchSpecIgnoredLeavesTheRootPath)
{
    Load(History({{"zzTop", "//depot/main/... //depot/rel1/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ(std::vector<std::string>{"1 0 depot //depot  0"}, Describe(m_pProvider->m_atStreams));
}

TEST_F(CProviderTest, OnlyTheFirstViewLineCountsAndOutsideLinesAreDropped)
{
    nlohmann::json j = nlohmann::json::parse(History({}));
    j["branches"].push_back({{"name", "multi"},
                             {"owner", "jo"},
                             {"view", {"//other/x/... //other/y/...", "//depot/main/... //depot/rel1/...",
                                       "//depot/main/b/... //depot/rel9/b/..."}}});
    Load(j.dump());
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 0 depot_main //depot/main  0", "2 1 multi //depot/rel1 //depot/main 0"}),
              Describe(m_pProvider->m_atStreams));
}

TEST_F(CProviderTest, BranchSpecsBothWaysLeaveNoRoot)
{
    Load(History({{"a", "//depot/A/... //depot/B/..."}, {"b", "//depot/B/... //depot/A/..."}}));
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_EQ((std::vector<std::string>{"1 2 b //depot/A //depot/B 0", "2 1 a //depot/B //depot/A 0"}),
              Describe(m_pProvider->m_atStreams));
    EXPECT_TRUE(m_pProvider->EnumerateChanges());
    EXPECT_EQ((std::vector<std::string>{"-G branches", "-G branch -o a", "-G branch -o b"}), JournalArgs());
}

TEST_F(CProviderTest, UnparsableRootPathFailsSilently)
{
    Settings({{L"RootPath", L""}});
    EXPECT_FALSE(m_pProvider->SearchForStreams());
    EXPECT_EQ("", Log());
    EXPECT_TRUE(JournalArgs().empty());
}

TEST_F(CProviderTest, FailedListingFailsAfterThePatterns)
{
    setenv("P4SIM_FAIL", "branches", 1);
    Settings();
    EXPECT_FALSE(m_pProvider->SearchForStreams());
    EXPECT_EQ(2, m_pProvider->m_astrIgnoredPatterns.GetCount());
    const std::string strLog = Log();
    EXPECT_EQ(0u, strLog.find(strDefaultPatterns + Cmd("-G branches") + "42:  Command failure (1) - "));
    EXPECT_EQ(0, m_pProvider->m_atStreams.GetCount());
}

TEST_F(CProviderTest, SettingTheExecutableComesFromP4Path)
{
    Settings({{L"P4Path", L"/nonexistent/p4"}});
    EXPECT_FALSE(m_pProvider->SearchForStreams());
    EXPECT_EQ("/nonexistent/p4", Utf8(ORVANE::MP4::CCommandBase::s_strP4Executable));
}
