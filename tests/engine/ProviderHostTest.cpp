// The engine's side of a provider: its messages, its engine, its end, and
// its log kept.
#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "FakeProvider.h"
#include "ProviderHost.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;

TEST(ProviderHost, AdoptsAndDestroysOnce)
{
    CMemoryFile cMessages;
    CFakeProvider cProvider;
    {
        CProviderHost cHost(cMessages.File());
        EXPECT_EQ(nullptr, cHost.Provider());
        cHost.Adopt(&cProvider);
        EXPECT_EQ(&cProvider, cHost.Provider());
        EXPECT_EQ(&cHost.Engine(), cProvider.GetEngine());
        cHost.Destroy();
        EXPECT_EQ(nullptr, cHost.Provider());
        cHost.Adopt(&cProvider);
    }
    // Once by hand, once when the host went.
    EXPECT_EQ((std::vector<std::string>{"Destroy", "Destroy"}), cProvider.m_astrCalls);
}

TEST(ProviderHost, InformationMessagesAreLines)
{
    CMemoryFile cMessages;
    CFakeProvider cProvider;
    CProviderHost cHost(cMessages.File());
    cHost.Adopt(&cProvider);
    ORVANE::VRM::IConnectionProxyBase* pConnection = cProvider.GetEngine()->GetConnection();
    ASSERT_NE(nullptr, pConnection);
    pConnection->DisplayInfoMsg(L"%s", L"12: Proposing stream 'r\u00e9l'");
    pConnection->DisplayInfoMsg(L"%s", L"ends with its own\n");
    pConnection->DisplayInfoMsg(L"%s", L"");
    EXPECT_EQ("12: Proposing stream 'r\xC3\xA9l'\nends with its own\n\n", cMessages.Text());
}

TEST(ProviderHost, MoveLog)
{
    TScratch tScratch;
    const std::string strLog = tScratch.Path() + "/import.tlf";
    WriteWholeFile(strLog, "1: Beginning Import\n2: done\n");
    EXPECT_TRUE(MoveLog(strLog, tScratch.Path() + "/kept.log"));
    EXPECT_EQ("1: Beginning Import\n2: done\n", ReadWholeFile(tScratch.Path() + "/kept.log"));
    EXPECT_FALSE(Exists(strLog));

    WriteWholeFile(strLog, "again\n");
    EXPECT_FALSE(MoveLog(strLog, tScratch.Path() + "/none/kept.log"));
    EXPECT_EQ("again\n", ReadWholeFile(strLog));
}
