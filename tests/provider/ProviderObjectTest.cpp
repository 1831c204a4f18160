// The provider object: construction, the instance pointer, destruction,
// and settings.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "TestProvider.h"

using namespace test;

TEST(ProviderObject, ConstructionSetsTheDocumentedInitialState)
{
    CTestProvider* p = new CTestProvider;
    EXPECT_EQ(nullptr, p->GetEngine());
    EXPECT_TRUE(p->GetProviderName() == CString(L"Test Source"));
    EXPECT_EQ(nullptr, p->Database());
    EXPECT_EQ(nullptr, p->Transaction());
    EXPECT_TRUE(p->DatabasePath().empty());
    EXPECT_FALSE(p->ChangeTableOpen());
    EXPECT_FALSE(p->ChangeIteratorOpen());
    EXPECT_EQ(0u, p->ChangeCount());
    EXPECT_FALSE(p->IsLogOpen());
    EXPECT_EQ(0, p->StreamCount());
    EXPECT_EQ(p, CProviderBase::GetInstance());
    p->Destroy();
}

TEST(ProviderObject, SecondProviderBecomesTheInstanceAndStaysSoAfterEitherIsDestroyed)
{
    CTestProvider* pFirst = new CTestProvider;
    CTestProvider* pSecond = new CTestProvider;
    EXPECT_EQ(pSecond, CProviderBase::GetInstance());
    pFirst->Destroy();
    EXPECT_EQ(pSecond, CProviderBase::GetInstance());
    CProviderBase* pExpected = pSecond;
    pSecond->Destroy();
    // Left dangling on purpose; only the address is compared.
    EXPECT_EQ(pExpected, CProviderBase::GetInstance());

    CTestProvider* pThird = new CTestProvider;
    CTestProvider* pFourth = new CTestProvider;
    CProviderBase* pNewer = pFourth;
    pFourth->Destroy(); // the newer one first this time
    EXPECT_EQ(pNewer, CProviderBase::GetInstance());
    pThird->Destroy();
    EXPECT_EQ(pNewer, CProviderBase::GetInstance());
}

TEST(ProviderObject, DestroyingAProviderThatNeverOpenedAnythingDeletesNoFile)
{
    // Files at this process's staging path must survive a provider that
    // never made its database.
    const std::string strBase = StagingBase();
    for (const char* pszExt : {".tdf", ".tlf"})
    {
        const int fd = open((strBase + pszExt).c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
        ASSERT_GE(fd, 0);
        close(fd);
    }
    CTestProvider* p = new CTestProvider;
    p->Destroy();
    EXPECT_TRUE(FileExists(strBase + ".tdf"));
    EXPECT_TRUE(FileExists(strBase + ".tlf"));
    unlink((strBase + ".tdf").c_str());
    unlink((strBase + ".tlf").c_str());
}


// Settings.

TEST(ProviderSettings, BooleanReadingFollowsTheCLibrarysAtoi)
{
    CTestProvider c;
    const struct
    {
        const wchar_t* pszValue;
        bool bExpected;
    } atCases[] = {
        {L"", false}, {L"0", false}, {L"01", true},  {L"yes", false}, {L"1", true},    {L"2", true},
        {L"-1", true}, {L" 1", true}, {L"true", false}, {L"on", false}, {L"+3x", true}, {L"-0", false},
        // Beyond 32 bits: saturated as by a 32-bit long, never cut to the low
        // 32 bits (which are 0 here).
        {L"4294967296", true}, {L"-4294967296", true}, {L"18446744073709551616", true},
    };
    for (const auto& t : atCases)
    {
        c.SetProperty(L"Flag", t.pszValue);
        EXPECT_EQ(t.bExpected, c.GetBooleanProperty(L"Flag")) << Utf8(t.pszValue);
    }
    EXPECT_FALSE(c.GetBooleanProperty(L"NeverSet"));
}

TEST(ProviderSettings, StringOfAKeyNeverSetIsEmptyEvenWithATableDefault)
{
    CTestProvider c;
    EXPECT_TRUE(c.GetStringProperty(L"Text").empty());
    EXPECT_STREQ(L"default text", c.GetPropertyInfo()[1].pszDefault);
}

TEST(ProviderSettings, SettingAKeyTwiceKeepsTheSecondValue)
{
    CTestProvider c;
    c.SetProperty(L"Text", L"first");
    c.SetProperty(L"Text", L"second");
    EXPECT_TRUE(c.GetStringProperty(L"Text") == CString(L"second"));
    // Any key is accepted, unchecked and untrimmed.
    c.SetProperty(L"Unknown Key", L"  padded  ");
    EXPECT_TRUE(c.GetStringProperty(L"Unknown Key") == CString(L"  padded  "));
    // Keys are exact.
    EXPECT_TRUE(c.GetStringProperty(L"text").empty());
}

TEST(ProviderSettings, ValidateStringPropertyAcceptsAnythingUnchanged)
{
    CTestProvider c;
    CString strValue(L"  //depot/... ");
    CString strError(L"earlier");
    EXPECT_TRUE(c.ValidateStringProperty(L"RootPath", strValue, strError));
    EXPECT_TRUE(strValue == CString(L"  //depot/... "));
    EXPECT_TRUE(strError == CString(L"earlier"));
    CString strEmpty;
    EXPECT_TRUE(c.ValidateStringProperty(nullptr, strEmpty, strError));
    EXPECT_TRUE(strEmpty.empty());
}

TEST(ProviderSettings, BaseEnvironmentCheckIsUsableAndLeavesTheMessage)
{
    CTestProvider c;
    CString strError(L"untouched");
    EXPECT_EQ(0, c.CheckEnvironment(strError));
    EXPECT_TRUE(strError == CString(L"untouched"));
}

TEST(ProviderSettings, RetrieveFilesDefaultDoesNothing)
{
    CTestProvider c;
    EXPECT_EQ(0, c.RetrieveFiles(7));
    EXPECT_TRUE(c.m_anRetrievedChanges.empty());
}
