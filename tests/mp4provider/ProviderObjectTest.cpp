// The Perforce provider object and its settings table.
#include <unistd.h>

#include "ProviderFixture.h"

using namespace p4test;

TEST_F(CProviderTest, ConstructionArgumentsAndInitialValues)
{
    EXPECT_EQ("perforce", Utf8(m_pProvider->m_strID));
    EXPECT_EQ("Perforce", Utf8(m_pProvider->GetProviderName()));
    EXPECT_EQ("Streams originally converted from Perforce", Utf8(m_pProvider->m_strDescription));
    EXPECT_FALSE(m_pProvider->m_bFlag1);
    EXPECT_FALSE(m_pProvider->m_bFlag2);
    EXPECT_EQ(1u, m_pProvider->m_nNextStreamID);
    EXPECT_TRUE(m_pProvider->m_bCaseInsensitive);
    EXPECT_TRUE(m_pProvider->m_strSavedClient.empty());
    EXPECT_TRUE(m_pProvider->m_strSavedHost.empty());
    EXPECT_TRUE(m_pProvider->m_strHostName.empty());
    EXPECT_EQ(0, m_pProvider->m_astrIgnoredPatterns.GetCount());
}

TEST_F(CProviderTest, PropertyTableHasFiveRowsAndATerminator)
{
    const ORVANE::MCE::TPropertyInfo* p = m_pProvider->GetPropertyInfo();
    ASSERT_EQ(ORVANE::MP4::CProvider::s_atPropertyInfo, p);
    const struct
    {
        const wchar_t *pszDisplay, *pszKey, *pszDefault;
        unsigned int nType;
    } atExpected[] = {
        {L"p4 Executable Path", L"P4Path", L"p4", 3},
        {L"Root Path", L"RootPath", L"//depot/...", 0},
        {L"Ignored Branch Specs", L"IgnoredBranches", L"IgnoredBranch*;ZZ*", 0},
        {L"Use Compression", L"Compression", L"0", 1},
        {L"Server Case-Insensitive (Windows)", L"CaseInsensitive", L"1", 1},
    };
    for (size_t i = 0; i < 5; ++i)
    {
        EXPECT_STREQ(atExpected[i].pszDisplay, p[i].pszDisplayName);
        EXPECT_STREQ(atExpected[i].pszKey, p[i].pszKey);
        EXPECT_STREQ(atExpected[i].pszDefault, p[i].pszDefault);
        EXPECT_EQ(atExpected[i].nType, p[i].nType);
    }
    EXPECT_EQ(nullptr, p[5].pszDisplayName);
    EXPECT_EQ(nullptr, p[5].pszKey);
    EXPECT_EQ(nullptr, p[5].pszDefault);
    EXPECT_EQ(0u, p[5].nType);
}

TEST_F(CProviderTest, EnvironmentCheckWithAnExistingFile)
{
    Settings();
    CString strMessage(L"unchanged");
    EXPECT_EQ(0, m_pProvider->CheckEnvironment(strMessage));
    EXPECT_EQ("unchanged", Utf8(strMessage));
}

TEST_F(CProviderTest, EnvironmentCheckWarnsAboutTheDefaultThatIsNoFileHere)
{
    Settings({{L"P4Path", L"p4"}});
    char szCwd[4096];
    ASSERT_NE(nullptr, getcwd(szCwd, sizeof(szCwd)));
    ASSERT_EQ(0, chdir(m_strTemp.c_str())); // no file named p4 here
    CString strMessage;
    const int nResult = m_pProvider->CheckEnvironment(strMessage);
    ASSERT_EQ(0, chdir(szCwd));
    EXPECT_EQ(1, nResult);
    EXPECT_EQ("The file 'p4' doesn't seem to exist (ignore if p4/p4.exe is somewhere on your PATH)",
              Utf8(strMessage));
}

TEST_F(CProviderTest, EnvironmentCheckDoesNotSearchThePath)
{
    Settings({{L"P4Path", L"sh"}}); // on PATH, but no file of that name here
    char szCwd[4096];
    ASSERT_NE(nullptr, getcwd(szCwd, sizeof(szCwd)));
    ASSERT_EQ(0, chdir(m_strTemp.c_str()));
    CString strMessage;
    EXPECT_EQ(1, m_pProvider->CheckEnvironment(strMessage));
    // A file of exactly that name in the working directory is enough.
    WriteWholeFile(m_strTemp + "/sh", "");
    EXPECT_EQ(0, m_pProvider->CheckEnvironment(strMessage));
    ASSERT_EQ(0, chdir(szCwd));
}

TEST_F(CProviderTest, ResolveStreamLinkageDoesNothing)
{
    EXPECT_EQ(0, m_pProvider->ResolveStreamLinkage());
    EXPECT_EQ(0, m_pProvider->ResolveStreamLinkage());
    EXPECT_EQ(0, m_pProvider->m_atStreams.GetCount());
}

TEST_F(CProviderTest, FirstStreamGetsIdOne)
{
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_EQ(1, m_pProvider->m_atStreams.GetCount());
    EXPECT_EQ(1u, m_pProvider->m_atStreams[0].nID);
    EXPECT_EQ(2u, m_pProvider->m_nNextStreamID);
}

TEST_F(CProviderTest, ItemTypesFromActions)
{
    using ORVANE::MP4::CProvider;
    EXPECT_EQ(ORVANE::MCE::eChangeItemAdd, CProvider::GetChangeItemTypeFromAction(ORVANE::MP4::eActionAdd));
    EXPECT_EQ(ORVANE::MCE::eChangeItemModify, CProvider::GetChangeItemTypeFromAction(ORVANE::MP4::eActionEdit));
    EXPECT_EQ(ORVANE::MCE::eChangeItemAdd, CProvider::GetChangeItemTypeFromAction(ORVANE::MP4::eActionBranch));
    EXPECT_EQ(ORVANE::MCE::eChangeItemModify,
              CProvider::GetChangeItemTypeFromAction(ORVANE::MP4::eActionIntegrate));
    EXPECT_EQ(ORVANE::MCE::eChangeItemDelete, CProvider::GetChangeItemTypeFromAction(ORVANE::MP4::eActionDelete));
    EXPECT_EQ(ORVANE::MCE::eChangeItemModify,
              CProvider::GetChangeItemTypeFromAction(static_cast<ORVANE::MP4::TChangeItemAction>(9)));
}

TEST_F(CProviderTest, LocalPathIsTheRestBelowTheStream)
{
    using ORVANE::MP4::CProvider;
    EXPECT_EQ("src/a.c", Utf8(CProvider::GetChangeItemLocalPath(Path(L"//depot/rel1/src/a.c"), Path(L"//depot/rel1"))
                                  .GeneratePath(L'/', true)));
    // The leading items are not checked: the caller has done so.
    EXPECT_EQ("x", Utf8(CProvider::GetChangeItemLocalPath(Path(L"//other/y/x"), Path(L"//depot/rel1"))
                            .GeneratePath(L'/', true)));
    EXPECT_EQ(0u, CProvider::GetChangeItemLocalPath(Path(L"//depot/rel1"), Path(L"//depot/rel1")).GetItemCount());
}
