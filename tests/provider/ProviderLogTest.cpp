// The import log.
#include <gtest/gtest.h>

#include <dirent.h>

#include "TestProvider.h"

using namespace test;

namespace {

// Opens a file log on a provider with a connection, at a fixed clock.
struct TLogged
{
    TTestEngine tEngine;
    CTestProvider c;
    TLogged() { c.m_pEngine = &tEngine.cEngine; }
};

} // namespace

TEST(ImportLog, OpenLogWritesTheFirstLineToAFreshTemporaryFile)
{
    TFixedClock tClock(7 * 3600 + 125);
    TLogged t;
    t.c.OpenLog(true);
    EXPECT_TRUE(t.c.IsLogOpen());
    const CString strPath = t.c.GetLogPath();
    EXPECT_FALSE(t.c.IsLogOpen());
    const std::string strName = Utf8(strPath.AfterLast(L'/'));
    EXPECT_EQ(0u, strName.find("Orvane")) << strName;
    EXPECT_EQ("125: Beginning Import with Test Source\n", ReadFile(strPath));
    EXPECT_TRUE(t.tEngine.cConnection.m_astrMessages.empty());
    wxRemoveFile(strPath);
}

TEST(ImportLog, LineEndsAreAddedOnlyWhenMissing)
{
    TFixedClock tClock(42);
    TLogged t;
    t.c.OpenLog(true);
    t.c.WriteLog(L"with newline %d\n", 1);
    t.c.WriteLog(L"without newline %s", L"two");
    t.c.WriteLog(L"%s", L"");
    const CString strPath = t.c.GetLogPath();
    EXPECT_EQ("42: Beginning Import with Test Source\n"
              "42: with newline 1\n"
              "42: without newline two\n"
              "42: \n",
              ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(ImportLog, PrefixIsTheSecondWithinTheHour)
{
    TLogged t;
    t.c.OpenLog(true);
    TFixedClock::s_tNow = 0;
    {
        TFixedClock tClock(1700000000 - (1700000000 % 3600) + 3599);
        t.c.WriteLog(L"last second");
        TFixedClock::s_tNow += 1;
        t.c.WriteLog(L"next hour");
        TFixedClock::s_tNow = 3600 * 5 + 60;
        t.c.WriteLog(L"a minute in");
    }
    const CString strPath = t.c.GetLogPath();
    const std::string strLog = ReadFile(strPath);
    EXPECT_NE(std::string::npos, strLog.find("\n3599: last second\n0: next hour\n60: a minute in\n")) << strLog;
    wxRemoveFile(strPath);
}

TEST(ImportLog, NothingIsWrittenOrSentWithoutALog)
{
    TLogged t;
    EXPECT_FALSE(t.c.IsLogOpen());
    t.c.WriteLog(L"lost");
    EXPECT_TRUE(t.tEngine.cConnection.m_astrMessages.empty());
    EXPECT_TRUE(t.c.GetLogPath().empty());
}

TEST(ImportLog, ConnectionLogSendsEachLineAndOpensNoFile)
{
    TFixedClock tClock(3600 + 9);
    TLogged t;
    t.c.LogToConnection();
    EXPECT_TRUE(t.c.IsLogOpen());
    t.c.WriteLog(L"No streams were found.");
    // Already open: OpenLog(true) makes no file and writes no first line.
    t.c.OpenLog(true);
    t.c.WriteLog(L"second %d\n", 2);
    ASSERT_EQ(2u, t.tEngine.cConnection.m_astrMessages.size());
    EXPECT_EQ("9: No streams were found.\n", t.tEngine.cConnection.m_astrMessages[0]);
    EXPECT_EQ("9: second 2\n", t.tEngine.cConnection.m_astrMessages[1]);
    EXPECT_TRUE(t.c.GetLogPath().empty());
}

TEST(ImportLog, FileAndConnectionTogether)
{
    TFixedClock tClock(5);
    TLogged t;
    t.c.OpenLog(true);
    t.c.LogToConnection();
    t.c.WriteLog(L"both");
    ASSERT_EQ(1u, t.tEngine.cConnection.m_astrMessages.size());
    EXPECT_EQ("5: both\n", t.tEngine.cConnection.m_astrMessages[0]);
    const CString strPath = t.c.GetLogPath();
    EXPECT_EQ("5: Beginning Import with Test Source\n5: both\n", ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(ImportLog, OpenLogFalseSilencesEvenTheConnection)
{
    TFixedClock tClock(1);
    TLogged t;
    t.c.OpenLog(true);
    t.c.LogToConnection();
    t.c.OpenLog(false);
    EXPECT_FALSE(t.c.IsLogOpen());
    t.c.WriteLog(L"silenced");
    EXPECT_TRUE(t.tEngine.cConnection.m_astrMessages.empty());
    const CString strPath = t.c.GetLogPath();
    EXPECT_EQ("1: Beginning Import with Test Source\n", ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(ImportLog, EachOpeningAfterGetLogPathStartsANewFile)
{
    TFixedClock tClock(2);
    TLogged t;
    t.c.OpenLog(true);
    t.c.WriteLog(L"first file");
    const std::string strFirst = Utf8(t.c.GetLogPath()); // closes it; reopen by switching off and on
    t.c.OpenLog(true);
    t.c.WriteLog(L"second file");
    t.c.OpenLog(false);
    t.c.WriteLog(L"silenced");
    const std::string strSecondPath = Utf8(t.c.GetLogPath()); // still the second file's path
    t.c.OpenLog(true);
    t.c.WriteLog(L"third file");
    const std::string strThird = Utf8(t.c.GetLogPath());
    EXPECT_NE(strFirst, strSecondPath);
    EXPECT_NE(strSecondPath, strThird);
    EXPECT_EQ("2: Beginning Import with Test Source\n2: first file\n", ReadFile(strFirst));
    EXPECT_EQ("2: Beginning Import with Test Source\n2: second file\n", ReadFile(strSecondPath));
    EXPECT_EQ("2: Beginning Import with Test Source\n2: third file\n", ReadFile(strThird));
    for (const std::string& str : {strFirst, strSecondPath, strThird})
        unlink(str.c_str());
}

TEST(ImportLog, OpenLogAfterSwitchingOffStartsANewFileAndClosesTheEarlierOne)
{
    // Temporary files go to a folder of this test's own.
    ORVANE::TEST::CScratchFolder cDir("orvane-logtest");
    ASSERT_FALSE(cDir.Path().empty());
    const char* szDir = cDir.Path().c_str();
    const char* pszOldTmp = getenv("TMPDIR");
    const std::string strOldTmp = pszOldTmp ? pszOldTmp : "";
    setenv("TMPDIR", szDir, 1);

    TFixedClock tClock(2);
    {
        TLogged t;
        t.c.OpenLog(true);
        t.c.WriteLog(L"old");
        t.c.OpenLog(false);
        t.c.OpenLog(true); // the first file's streams are released here
        t.c.WriteLog(L"new");
        const std::string strNew = Utf8(t.c.GetLogPath());
        EXPECT_EQ("2: Beginning Import with Test Source\n2: new\n", ReadFile(strNew));

        std::vector<std::string> astrFiles;
        DIR* pDir = opendir(szDir);
        while (dirent* pEntry = readdir(pDir))
            if (std::string(pEntry->d_name).compare(0, 6, "Orvane") == 0)
                astrFiles.push_back(std::string(szDir) + "/" + pEntry->d_name);
        closedir(pDir);
        ASSERT_EQ(2u, astrFiles.size());
        const std::string strOld = astrFiles[0] == strNew ? astrFiles[1] : astrFiles[0];
        EXPECT_EQ("2: Beginning Import with Test Source\n2: old\n", ReadFile(strOld));
        for (const std::string& str : astrFiles)
            unlink(str.c_str());
    }
    EXPECT_TRUE(cDir.List().empty());
    if (pszOldTmp)
        setenv("TMPDIR", strOldTmp.c_str(), 1);
    else
        unsetenv("TMPDIR");
}

TEST(ImportLog, GetLogPathTwiceReturnsTheSamePath)
{
    TLogged t;
    t.c.OpenLog(true);
    const CString strFirst = t.c.GetLogPath();
    const CString strSecond = t.c.GetLogPath();
    EXPECT_FALSE(strFirst.empty());
    EXPECT_TRUE(strFirst == strSecond);
    wxRemoveFile(strFirst);
}

TEST(ImportLog, NonAsciiTextGoesOutAsUtf8)
{
    TFixedClock tClock(3);
    TLogged t;
    t.c.OpenLog(true);
    t.c.WriteLog(L"Grüße %s", L"€");
    const CString strPath = t.c.GetLogPath();
    EXPECT_EQ("3: Beginning Import with Test Source\n3: Gr\xC3\xBC\xC3\x9F"
              "e \xE2\x82\xAC\n",
              ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(ImportLog, StreamsAndChangesDump)
{
    TFixedClock tClock(0);
    TLogged t;
    t.c.m_atToFind = {Stream(1, 0, L"main", L"//depot/main"), Stream(2, 1, L"rel1", L"//depot/rel1", L"//depot/main")};
    unsigned int nCount = 0;
    ASSERT_EQ(0, t.c.EstablishStreams(nCount));
    t.c.Streams()[1].nBaseChangeID = 4;
    ASSERT_NE(0u, t.c.AddChange(12, 1, L"jo@ws1", L"first", 1200000000));
    CProvider::TStreamInfo tStream = Stream(1, 0, L"main", L"//depot/main");
    // A grouped change carries base and maximum times.
    t.c.AddChangeItem(tStream, L"ann", ORVANE::MCE::eChangeItemAdd, Path(L"a.c"), 1200000100, L"grouped", 1);
    t.c.CommitChanges();

    t.c.OpenLog(true);
    t.c.LogStreamsAndChanges();
    const CString strPath = t.c.GetLogPath();
    EXPECT_EQ("0: Beginning Import with Test Source\n"
              "0: Processing stream 'main' (id=1,parentid=0,destpath=//depot/main,srcpath=,basechangeid=0)\n"
              "0: \tChange (count=1,id=1,providerid=12,user=jo@ws1,time=2008-01-10 21:20:00 UTC,comment=first,"
              "basetime=1969-12-31 23:59:59 UTC(-1),maxtime=1969-12-31 23:59:59 UTC(-1))\n"
              "0: \tChange (count=2,id=2,providerid=0,user=ann,time=2008-01-10 21:21:40 UTC,comment=grouped,"
              "basetime=2008-01-10 21:21:40 UTC(1200000100),maxtime=1969-12-31 23:59:59 UTC(-1))\n"
              "0: Processing stream 'rel1' (id=2,parentid=1,destpath=//depot/rel1,srcpath=//depot/main,"
              "basechangeid=4)\n",
              ReadFile(strPath));
    wxRemoveFile(strPath);
}

TEST(ImportLog, DumpWithoutOpenLogWritesNothingButPreparesTheStore)
{
    TLogged t;
    t.c.LogStreamsAndChanges();
    EXPECT_NE(nullptr, t.c.Database());
    EXPECT_TRUE(t.c.ChangeIteratorOpen());
    EXPECT_TRUE(t.tEngine.cConnection.m_astrMessages.empty());
}
