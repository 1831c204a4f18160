// How a run ends early.
#include <gtest/gtest.h>

#include "Stop.h"

using namespace ORVANE::IMP;

TEST(Stop, ExitStatuses)
{
    EXPECT_EQ(0, eExitDone);
    EXPECT_EQ(1, eExitFailure);
    EXPECT_EQ(2, eExitUsage);
    EXPECT_EQ(128, eExitSignal);
}

TEST(Stop, ProviderFailureNamesTheCall)
{
    const EProviderFailure e("OnFirstChangeItem", 3);
    EXPECT_EQ(eExitFailure, e.Status());
    EXPECT_EQ("OnFirstChangeItem", e.Call());
    EXPECT_EQ(3, e.Result());
    EXPECT_STREQ("the provider reported a failure in OnFirstChangeItem (result 3)", e.what());
}

TEST(Stop, SignalsStopTheRun)
{
    g_nStopSignal = 0;
    CheckStopSignal();
    for (const auto& tCase :
         std::vector<std::pair<int, std::string>>{{SIGINT, "interrupted by SIGINT; the migration did not complete"},
                                                  {SIGTERM, "interrupted by SIGTERM; the migration did not complete"}})
    {
        g_nStopSignal = tCase.first;
        try
        {
            CheckStopSignal();
            ADD_FAILURE() << "no stop";
        }
        catch (const EStop& e)
        {
            EXPECT_EQ(128 + tCase.first, e.Status());
            EXPECT_EQ(tCase.second, e.what());
        }
    }
    g_nStopSignal = 0;
}
