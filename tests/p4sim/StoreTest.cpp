// The store's cost does not grow with the history: every query is answered
// through an index (checked with EXPLAIN QUERY PLAN), the write-ahead log is
// empty after every command that writes, and a sync from a sync mark looks
// only at the files changed since the mark.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include "Store.h"

#include <map>

using namespace p4simtest;
using ORVANE::P4SIM::CStore;
using ORVANE::P4SIM::TQuery;

namespace {

// The plan SQLite 3.40 chooses for each query of the store. "SCAN" appears
// only for the listings of specifications and users, which read every row
// of small tables by design; everything that grows with the history (revs,
// changes, contents, have, sync_marks, opened) is searched by key or index
// range.
const std::map<TQuery, std::vector<std::string>> kPlans = {
    {ORVANE::P4SIM::eQueryMetaGet, {"SEARCH meta USING PRIMARY KEY (key=?)"}},
    {ORVANE::P4SIM::eQueryMetaPut, {}},
    {ORVANE::P4SIM::eQueryUsers, {"SCAN users"}},
    {ORVANE::P4SIM::eQueryUser, {"SEARCH users USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryUserPut, {}},
    {ORVANE::P4SIM::eQueryUserDelete, {"SEARCH users USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryMaxChange, {"SEARCH changes"}},
    {ORVANE::P4SIM::eQueryChange, {"SEARCH changes USING INTEGER PRIMARY KEY (rowid=?)"}},
    {ORVANE::P4SIM::eQueryChangePut, {}},
    {ORVANE::P4SIM::eQueryChangesNewestFirst, {"SEARCH changes USING INTEGER PRIMARY KEY (rowid>? AND rowid<?)"}},
    {ORVANE::P4SIM::eQueryChangesOldestFirst, {"SEARCH changes USING INTEGER PRIMARY KEY (rowid>? AND rowid<?)"}},
    {ORVANE::P4SIM::eQueryRevsByChangeNewestFirst,
     {"SEARCH revs USING COVERING INDEX revs_by_change (change>? AND change<?)"}},
    {ORVANE::P4SIM::eQueryRevsByChangeOldestFirst,
     {"SEARCH revs USING COVERING INDEX revs_by_change (change>? AND change<?)"}},
    {ORVANE::P4SIM::eQueryFilesChangedBetween,
     {"SEARCH revs USING COVERING INDEX revs_by_change (change>? AND change<?)"}},
    {ORVANE::P4SIM::eQueryRevPut, {}},
    {ORVANE::P4SIM::eQueryRevsOfChange, {"SEARCH revs USING INDEX revs_by_change (change=?)"}},
    {ORVANE::P4SIM::eQueryHeadsUnder, {"SEARCH revs USING PRIMARY KEY (depot_file>? AND depot_file<?)"}},
    {ORVANE::P4SIM::eQueryRev, {"SEARCH revs USING PRIMARY KEY (depot_file=? AND rev=?)"}},
    {ORVANE::P4SIM::eQueryHeadRev, {"SEARCH revs USING PRIMARY KEY (depot_file=?)"}},
    {ORVANE::P4SIM::eQueryRevsUnderBetween, {"SEARCH revs USING PRIMARY KEY (depot_file>? AND depot_file<?)"}},
    {ORVANE::P4SIM::eQueryCountRevsUnder, {"SEARCH revs USING PRIMARY KEY (depot_file>? AND depot_file<?)"}},
    {ORVANE::P4SIM::eQueryContentPut, {}},
    {ORVANE::P4SIM::eQueryContent, {"SEARCH contents USING PRIMARY KEY (digest=?)"}},
    {ORVANE::P4SIM::eQueryBranches, {"SCAN branches"}},
    {ORVANE::P4SIM::eQueryBranch, {"SEARCH branches USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryBranchPut, {}},
    {ORVANE::P4SIM::eQueryBranchDelete, {"SEARCH branches USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryLabels, {"SCAN labels"}},
    {ORVANE::P4SIM::eQueryLabel, {"SEARCH labels USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryLabelPut, {}},
    {ORVANE::P4SIM::eQueryLabelRevPut, {}},
    {ORVANE::P4SIM::eQueryLabelRevsDelete, {"SEARCH label_revs USING PRIMARY KEY (label=?)"}},
    {ORVANE::P4SIM::eQueryLabelRevsUnder,
     {"SEARCH l USING PRIMARY KEY (label=? AND depot_file>? AND depot_file<?)",
      "SEARCH r USING PRIMARY KEY (depot_file=? AND rev=?)"}},
    {ORVANE::P4SIM::eQueryClients, {"SCAN clients"}},
    {ORVANE::P4SIM::eQueryClient, {"SEARCH clients USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryClientPut, {}},
    {ORVANE::P4SIM::eQueryClientTouch, {"SEARCH clients USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryClientDelete, {"SEARCH clients USING PRIMARY KEY (name=?)"}},
    {ORVANE::P4SIM::eQueryHaveUnder, {"SEARCH have USING PRIMARY KEY (client=? AND client_file>? AND client_file<?)"}},
    {ORVANE::P4SIM::eQueryHave, {"SEARCH have USING PRIMARY KEY (client=? AND client_file=?)"}},
    {ORVANE::P4SIM::eQueryHavePut, {}},
    {ORVANE::P4SIM::eQueryHaveDelete, {"SEARCH have USING PRIMARY KEY (client=? AND client_file=?)"}},
    {ORVANE::P4SIM::eQueryHaveDeleteClient, {"SEARCH have USING PRIMARY KEY (client=?)"}},
    {ORVANE::P4SIM::eQueryMarks, {"SEARCH sync_marks USING PRIMARY KEY (client=?)"}},
    {ORVANE::P4SIM::eQueryMarkPut, {}},
    {ORVANE::P4SIM::eQueryMarkDelete, {"SEARCH sync_marks USING PRIMARY KEY (client=? AND pattern=?)"}},
    {ORVANE::P4SIM::eQueryMarksDeleteClient, {"SEARCH sync_marks USING PRIMARY KEY (client=?)"}},
    {ORVANE::P4SIM::eQueryChangeDelete, {"SEARCH changes USING INTEGER PRIMARY KEY (rowid=?)"}},
    {ORVANE::P4SIM::eQueryMaxSubmittedChange, {"SEARCH revs USING COVERING INDEX revs_by_change"}},
    {ORVANE::P4SIM::eQueryOpenedPut, {}},
    {ORVANE::P4SIM::eQueryOpenedOfChange, {"SEARCH opened USING PRIMARY KEY (change=?)"}},
    {ORVANE::P4SIM::eQueryOpenedUnder,
     {"SEARCH opened USING COVERING INDEX opened_by_file (depot_file>? AND depot_file<?)"}},
    {ORVANE::P4SIM::eQueryOpenedDeleteChange, {"SEARCH opened USING PRIMARY KEY (change=?)"}},
    {ORVANE::P4SIM::eQueryIntegPut, {}},
    {ORVANE::P4SIM::eQueryIntegsInto, {"SEARCH integs USING PRIMARY KEY (to_file>? AND to_file<?)"}},
    {ORVANE::P4SIM::eQueryIntegsFrom, {"SEARCH integs USING INDEX integs_by_from (from_file>? AND from_file<?)"}},
    {ORVANE::P4SIM::eQueryIntegLast, {"SEARCH integs USING COVERING INDEX integs_by_from (from_file=?)"}},
    {ORVANE::P4SIM::eQueryIntegLastBack, {"SEARCH integs USING PRIMARY KEY (to_file=?)"}},
    {ORVANE::P4SIM::eQueryRevSetAction, {"SEARCH revs USING PRIMARY KEY (depot_file=? AND rev=?)"}},
};

class StoreTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_sim.Load(kHistory);
        m_ws = m_sim.Root() + "/ws";
    }
    std::string WalPath() const { return m_sim.ServerDir() + "/p4sim.db-wal"; }
    long long WalSize() const { return Size(WalPath()); }
    SimServer m_sim;
    std::string m_ws;
};

} // namespace

TEST_F(StoreTest, EveryQueryIsAnsweredThroughAnIndex)
{
    CStore store(m_sim.ServerDir());
    ASSERT_EQ(kPlans.size(), size_t(ORVANE::P4SIM::eQueryCount));
    for (int n = 0; n < ORVANE::P4SIM::eQueryCount; ++n)
    {
        TQuery query = TQuery(n);
        EXPECT_EQ(store.QueryPlan(query), kPlans.at(query)) << ORVANE::P4SIM::QueryText(query);
    }
}

TEST_F(StoreTest, TheLogIsEmptyAfterEveryWrite)
{
    // Loading folds the history into the database file.
    EXPECT_EQ(WalSize(), 0);
    Result r = m_sim.P4({"client", "-i"}, ClientForm(m_ws));
    ASSERT_EQ(r.out, "Client ws saved.\n");
    EXPECT_EQ(WalSize(), 0);
    r = m_sim.P4({"sync", m_ws + "/...@3"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(WalSize(), 0);
    r = m_sim.P4({"branch", "-i"}, "Branch: rel9\nView:\n\t//depot/main/... //depot/rel9/...\n");
    ASSERT_EQ(r.out, "Branch rel9 saved.\n");
    EXPECT_EQ(WalSize(), 0);
    r = m_sim.P4({"client", "-d", "ws"});
    ASSERT_EQ(r.out, "Client ws deleted.\n");
    EXPECT_EQ(WalSize(), 0);
}

TEST(StoreCaseTest, AnInsensitiveServerAnswersEveryQueryThroughAnIndexToo)
{
    SimServer sim;
    sim.Load(R"({"caseHandling": "insensitive", "changes": [{"files": [
        {"path": "//depot/Main/a.c", "action": "add", "content": "a\n"}]}]})");
    CStore store(sim.ServerDir());
    for (int n = 0; n < ORVANE::P4SIM::eQueryCount; ++n)
    {
        TQuery query = TQuery(n);
        EXPECT_EQ(store.QueryPlan(query), kPlans.at(query)) << ORVANE::P4SIM::QueryText(query);
    }
}

TEST_F(StoreTest, AContentLongerThanOnePartIsKeptInPartsAndReadBackWhole)
{
    CStore store(m_sim.ServerDir());
    store.SetContentPart(4);
    store.Begin(true);
    const std::map<std::string, std::string> kContents = {{"d0", ""},      {"d3", "abc"},      {"d4", "abcd"},
                                                          {"d5", "abcde"}, {"d8", "abcdefgh"}, {"d11", "abcdefghijk"}};
    for (const auto& tContent : kContents)
        store.PutContent(tContent.first, tContent.second);
    for (const auto& tContent : kContents)
        EXPECT_EQ(store.Content(tContent.first), tContent.second) << tContent.first;
    // The parts: full ones, then the rest, each under its own key.
    store.SetContentPart(CStore::kContentPart);
    EXPECT_EQ(store.Content("d11"), "abcd");
    EXPECT_EQ(store.Content("d11+1"), "efgh");
    EXPECT_EQ(store.Content("d11+2"), "ijk");
    EXPECT_EQ(store.Content("d8+2"), "");
    EXPECT_EQ(store.Content("unknown"), "");
    store.Rollback();
}

TEST_F(StoreTest, AValueSQLiteRefusesFailsTheWriteInsteadOfVanishing)
{
    CStore store(m_sim.ServerDir());
    store.Begin(true);
    // A blob longer than SQLite's limit: bound without copying, so this
    // costs no memory.
    static const char s_c = 0;
    try
    {
        store.Prepare(ORVANE::P4SIM::eQueryContentPut).BindBlob(2, &s_c, size_t(1) << 31);
        ADD_FAILURE() << "bound";
    }
    catch (const std::runtime_error& e)
    {
        EXPECT_STREQ(e.what(), "database: string or blob too big");
    }
    store.Rollback();
}
