// The migration driver against a fake provider: the provider's calls and
// the handler's steps in their exact order, failures named by their call,
// and stops between calls.
#include <set>

#include <gtest/gtest.h>

#include "Driver.h"
#include "FakeProvider.h"
#include "Stop.h"

using namespace ORVANE::IMP;
using namespace enginetest;

namespace {

// Records each step as a line in the same list as the provider's calls; a
// stop is thrown before the provider call numbered m_nStopAt.
class CRecordingHandler : public CMigrationHandler
{
public:
    explicit CRecordingHandler(std::vector<std::string>& astrLog) : m_astrLog(astrLog) {}
    size_t m_nStopAt = size_t(-1);

    void BeforeCall(const char* pszCall) override
    {
        if (m_astrLog.size() >= m_nStopAt)
            throw EStop(eExitSignal + 2, "stopped");
        m_astrBefore.push_back(pszCall);
    }
    // The calls announced, in order.
    std::vector<std::string> m_astrBefore;
    void OnStreamOpening() override { m_astrLog.push_back("> opening"); }
    void OnStreamsRefreshed(const std::vector<TStreamInfo>& atStreams) override
    {
        m_astrLog.push_back("> refreshed " + std::to_string(atStreams.size()));
    }
    void OnChangesReady(unsigned int nCount) override { m_astrLog.push_back("> ready " + std::to_string(nCount)); }
    // Changes with an id in m_setLeaveOut are left out.
    std::set<unsigned> m_setLeaveOut;
    bool OnChangeListed(const TChangeInfo& t, unsigned int nNumber) override
    {
        m_astrLog.push_back("> listed " + std::to_string(t.nID) + " " + std::to_string(nNumber));
        return !m_setLeaveOut.count(t.nID);
    }
    void OnChangeSynced(const TChangeInfo& t) override { m_astrLog.push_back("> synced " + std::to_string(t.nID)); }
    void OnChangeItem(const TChangeItemInfo& t) override
    {
        m_astrLog.push_back("> item " + std::to_string(t.nChangeID) + " " + Utf8(t.cFilePath.GeneratePath(L'/', true)));
    }
    void OnChangeDone(const TChangeInfo& t) override { m_astrLog.push_back("> done " + std::to_string(t.nID)); }
    void OnStreamClosed() override { m_astrLog.push_back("> closed"); }

private:
    std::vector<std::string>& m_astrLog;
};

class CDriverTest : public ::testing::Test
{
protected:
    CDriverTest() : m_cHandler(m_cProvider.m_astrCalls), m_cDriver(m_cProvider, m_cHandler)
    {
        m_cProvider.m_atStreams = {
            FakeStream(1, 0, "main", "//depot/main"), FakeStream(2, 1, "rel1", "//depot/rel1", "//depot/main"),
            FakeStream(3, 0, "other", "//depot/other"), FakeStream(4, 2, "fix", "//depot/fix", "//depot/rel1"),
            FakeStream(5, 1, "rel2", "//depot/rel2", "//depot/main")};
        m_cProvider.m_mapChanges[1] = {
            {7, "jo@ws", 100, "first", {{ORVANE::MCE::eChangeItemAdd, "a.txt", 1}}, nullptr},
            {9,
             "jo@ws",
             200,
             "second",
             {{ORVANE::MCE::eChangeItemModify, "a.txt", 2}, {ORVANE::MCE::eChangeItemDelete, "b.txt", 3}},
             nullptr}};
        m_cProvider.m_mapChanges[2] = {{8, "ann@ws", 150, "empty", {}, nullptr}};
    }
    std::vector<std::string>& Calls() { return m_cProvider.m_astrCalls; }

    CFakeProvider m_cProvider;
    CRecordingHandler m_cHandler;
    CMigrationDriver m_cDriver;
};

} // namespace

TEST(Results, AreTheIterationCodes)
{
    EXPECT_EQ(0, eResultDone);
    EXPECT_EQ(1, eResultFailure);
    EXPECT_EQ(2, eResultNoMore);
}

TEST_F(CDriverTest, WalksRootsThenEachStreamsChildrenDepthFirst)
{
    EXPECT_EQ(5u, m_cDriver.EstablishStreams());
    std::vector<std::string> astrNames;
    for (const TStreamInfo& t : m_cDriver.WalkStreams())
        astrNames.push_back(Utf8(t.strName));
    EXPECT_EQ((std::vector<std::string>{"main", "rel1", "fix", "rel2", "other"}), astrNames);
    EXPECT_EQ((std::vector<std::string>{"EstablishStreams", "GetNextStream 0", "GetNextStream 0", "GetNextStream 0",
                                        "GetNextStream 1", "GetNextStream 1", "GetNextStream 1", "GetNextStream 2",
                                        "GetNextStream 2", "GetNextStream 4", "GetNextStream 5", "GetNextStream 3"}),
              Calls());
}

TEST_F(CDriverTest, EveryProviderCallIsAnnouncedByItsName)
{
    m_cDriver.EstablishStreams();
    m_cDriver.InitialiseClients("/ws");
    m_cDriver.ImportStream(2, "/ws/rel1");
    // Each provider call of the log, by its name alone.
    std::vector<std::string> astrCalls;
    for (const std::string& str : Calls())
        if (str.compare(0, 1, ">") != 0)
            astrCalls.push_back(str.substr(0, str.find(' ')));
    EXPECT_EQ(astrCalls, m_cHandler.m_astrBefore);
    EXPECT_EQ("OnNextChangeset", m_cHandler.m_astrBefore.back());
}

TEST_F(CDriverTest, AStreamThatIsItsOwnAncestorIsWalkedOnce)
{
    m_cProvider.m_atStreams = {FakeStream(1, 0, "main", "//depot/main"), FakeStream(2, 1, "a", "//depot/a"),
                               FakeStream(1, 2, "main again", "//depot/main")};
    std::vector<std::string> astrNames;
    for (const TStreamInfo& t : m_cDriver.WalkStreams())
        astrNames.push_back(Utf8(t.strName));
    EXPECT_EQ((std::vector<std::string>{"main", "a"}), astrNames);
}

TEST_F(CDriverTest, ImportsAStreamInTheOrderTheProviderRequires)
{
    m_cDriver.InitialiseClients("/ws");
    m_cDriver.ImportStream(1, "/ws/main");
    m_cDriver.ImportStream(2, "/ws/rel1");
    m_cDriver.RemoveClients();
    m_cDriver.RemoveClients();
    const std::vector<std::string> astrStreamWalk = {"GetNextStream 0", "GetNextStream 0", "GetNextStream 0",
                                                     "GetNextStream 1", "GetNextStream 1", "GetNextStream 1",
                                                     "GetNextStream 2", "GetNextStream 2", "GetNextStream 4",
                                                     "GetNextStream 5", "GetNextStream 3"};
    std::vector<std::string> astrExpected = {"InitialiseClients /ws", "> opening", "OnBeginStream 1 /ws/main",
                                             "EstablishChangesets"};
    astrExpected.insert(astrExpected.end(), astrStreamWalk.begin(), astrStreamWalk.end());
    for (const char* psz : {"> refreshed 5",
                            "> ready 3",
                            "OnFirstChangeset",
                            "> listed 7 0",
                            "OnProcessChange 7",
                            "> synced 7",
                            "OnFirstChangeItem",
                            "> item 7 a.txt",
                            "OnNextChangeItem",
                            "> done 7",
                            "OnNextChangeset",
                            "> listed 9 0",
                            "OnProcessChange 9",
                            "> synced 9",
                            "OnFirstChangeItem",
                            "> item 9 a.txt",
                            "OnNextChangeItem",
                            "> item 9 b.txt",
                            "OnNextChangeItem",
                            "> done 9",
                            "OnNextChangeset",
                            "> closed",
                            "> opening",
                            "OnBeginStream 2 /ws/rel1",
                            "EstablishChangesets",
                            "> ready 3",
                            "OnFirstChangeset",
                            "> listed 8 0",
                            "OnProcessChange 8",
                            "> synced 8",
                            "OnFirstChangeItem",
                            "> done 8",
                            "OnNextChangeset",
                            "> closed",
                            "RemoveClients"})
        astrExpected.push_back(psz);
    EXPECT_EQ(astrExpected, Calls());
}

TEST_F(CDriverTest, AChangeLeftOutIsNeitherSyncedNorWalked)
{
    m_cProvider.m_mapChanges[1][0].nNumber = 1007;
    m_cProvider.m_mapChanges[1][1].nNumber = 1009;
    m_cDriver.SetChangeNumbers([this]() { return m_cProvider.CurrentNumber(); });
    m_cHandler.m_setLeaveOut = {7};
    m_cDriver.ImportStream(1, "/ws/main");
    std::vector<std::string> astrChanges;
    for (const std::string& str : Calls())
        if (str.compare(0, 8, "GetNextS") != 0)
            astrChanges.push_back(str);
    EXPECT_EQ((std::vector<std::string>{"> opening", "OnBeginStream 1 /ws/main", "EstablishChangesets",
                                        "> refreshed 5", "> ready 3", "OnFirstChangeset", "> listed 7 1007",
                                        "OnNextChangeset", "> listed 9 1009", "OnProcessChange 9", "> synced 9",
                                        "OnFirstChangeItem", "> item 9 a.txt", "OnNextChangeItem", "> item 9 b.txt",
                                        "OnNextChangeItem", "> done 9", "OnNextChangeset", "> closed"}),
              astrChanges);
}

TEST_F(CDriverTest, EnvironmentAndLog)
{
    std::string strWarning = "x";
    EXPECT_TRUE(m_cDriver.CheckEnvironment(strWarning));
    EXPECT_EQ("", strWarning);
    m_cProvider.m_strEnvironmentWarning = "no p4 here";
    EXPECT_FALSE(m_cDriver.CheckEnvironment(strWarning));
    EXPECT_EQ("no p4 here", strWarning);
    m_cDriver.OpenLog(false);
    m_cDriver.OpenLog(true);
    EXPECT_EQ(
        (std::vector<std::string>{"CheckEnvironment", "CheckEnvironment", "OpenLog 1", "OpenLog 1", "LogToConnection"}),
        Calls());
}

TEST_F(CDriverTest, NoClientsNoRemoval)
{
    m_cDriver.RemoveClients();
    EXPECT_TRUE(Calls().empty());
    m_cProvider.m_bClientsResult = false;
    try
    {
        m_cDriver.InitialiseClients("/ws");
        FAIL() << "no failure";
    }
    catch (const EProviderFailure& e)
    {
        EXPECT_EQ("InitialiseClients", e.Call());
        EXPECT_EQ(1, e.Result());
        EXPECT_EQ(eExitFailure, e.Status());
        EXPECT_STREQ("the provider reported a failure in InitialiseClients (result 1)", e.what());
    }
    // A failed initialisation may have made something: it is removed.
    m_cDriver.RemoveClients();
    EXPECT_EQ((std::vector<std::string>{"InitialiseClients /ws", "RemoveClients"}), Calls());
}

TEST(Driver, EachCallsFailureIsNamedAndEndsTheWalk)
{
    for (const auto& tCase :
         std::vector<std::pair<std::string, std::string>>{{"EstablishStreams", "EstablishStreams"},
                                                          {"GetNextStream 1", "GetNextStream"},
                                                          {"OnBeginStream 1 /ws/main", "OnBeginStream"},
                                                          {"EstablishChangesets", "EstablishChangesets"},
                                                          {"OnFirstChangeset", "OnFirstChangeset"},
                                                          {"OnNextChangeset", "OnNextChangeset"},
                                                          {"OnProcessChange 7", "OnProcessChange"},
                                                          {"OnFirstChangeItem", "OnFirstChangeItem"},
                                                          {"OnNextChangeItem", "OnNextChangeItem"}})
    {
        for (int nResult : {1, 3})
        {
            CFakeProvider cProvider;
            cProvider.m_atStreams = {FakeStream(1, 0, "main", "//depot/main"),
                                     FakeStream(2, 1, "rel1", "//depot/rel1")};
            cProvider.m_mapChanges[1] = {
                {7,
                 "jo",
                 100,
                 "c",
                 {{ORVANE::MCE::eChangeItemAdd, "a", 1}, {ORVANE::MCE::eChangeItemAdd, "b", 1}},
                 nullptr}};
            CRecordingHandler cHandler(cProvider.m_astrCalls);
            CMigrationDriver cDriver(cProvider, cHandler);
            cProvider.m_mapResults[tCase.first] = nResult;
            std::string strFailure = "no failure";
            try
            {
                cDriver.EstablishStreams();
                cDriver.WalkStreams();
                cDriver.ImportStream(1, "/ws/main");
            }
            catch (const EProviderFailure& e)
            {
                strFailure = e.Call() + " " + std::to_string(e.Result());
                EXPECT_EQ(tCase.first, cProvider.m_astrCalls.back());
            }
            EXPECT_EQ(tCase.second + " " + std::to_string(nResult), strFailure);
        }
    }
}

TEST_F(CDriverTest, NoMoreWhereAnElementIsExpectedIsAFailure)
{
    // EstablishChangesets answering "no more" is no success.
    m_cProvider.m_mapResults["EstablishChangesets"] = eResultNoMore;
    try
    {
        m_cDriver.ImportStream(1, "/ws/main");
        FAIL() << "no failure";
    }
    catch (const EProviderFailure& e)
    {
        EXPECT_STREQ("the provider reported a failure in EstablishChangesets (result 2)", e.what());
    }
}

TEST_F(CDriverTest, AStopComesBeforeTheNextProviderCall)
{
    // Stop once six lines are recorded: before the seventh provider call.
    m_cHandler.m_nStopAt = 6;
    try
    {
        m_cDriver.ImportStream(2, "/ws/rel1");
        FAIL() << "no stop";
    }
    catch (const EStop& e)
    {
        EXPECT_EQ(eExitSignal + 2, e.Status());
    }
    EXPECT_EQ((std::vector<std::string>{"> opening", "OnBeginStream 2 /ws/rel1", "EstablishChangesets",
                                        "GetNextStream 0", "GetNextStream 0", "GetNextStream 0"}),
              Calls());
}
