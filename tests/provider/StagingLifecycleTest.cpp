// The staging database's lifecycle and the folders made for change items.
#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "TestProvider.h"

using namespace test;

namespace {

// The names in /tmp that begin with this process's staging base name.
std::vector<std::string> StagingFiles()
{
    const std::string strPrefix = "orvane-em-" + std::to_string(getpid());
    std::vector<std::string> astrNames;
    DIR* pDir = opendir("/tmp");
    if (!pDir)
        return astrNames;
    while (dirent* pEntry = readdir(pDir))
    {
        const std::string strName = pEntry->d_name;
        if (strName.compare(0, strPrefix.size(), strPrefix) == 0 &&
            (strName.size() == strPrefix.size() || strName[strPrefix.size()] == '.'))
            astrNames.push_back(strName);
    }
    closedir(pDir);
    std::sort(astrNames.begin(), astrNames.end());
    return astrNames;
}

std::vector<std::string> StagingFilesExpected()
{
    const std::string strPrefix = "orvane-em-" + std::to_string(getpid());
    return {strPrefix + ".tdf", strPrefix + ".tlf"};
}


bool IsDir(const std::string& strPath)
{
    struct stat st;
    return stat(strPath.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

} // namespace

TEST(StagingLifecycle, DatabaseIsMadeAtTheProcessPathAndItsFilesGoWithTheProvider)
{
    EXPECT_TRUE(StagingFiles().empty());
    CTestProvider* p = new CTestProvider;
    ASSERT_TRUE(p->PrepareForChanges(false));
    EXPECT_EQ(StagingBase(), Utf8(p->DatabasePath()));
    EXPECT_TRUE(p->ChangeTableOpen());
    EXPECT_TRUE(p->ChangeItemTableOpen());
    EXPECT_TRUE(p->ChangeIteratorOpen());
    EXPECT_TRUE(p->ChangeItemIteratorOpen());
    ASSERT_NE(0u, p->AddChange(1, 1, L"u", L"c", 100));
    EXPECT_EQ(StagingFilesExpected(), StagingFiles());
    p->CommitChanges();
    EXPECT_EQ(StagingFilesExpected(), StagingFiles());
    p->Destroy();
    EXPECT_TRUE(StagingFiles().empty());
}

TEST(StagingLifecycle, NothingRecordedMeansNoStagingFileAtAll)
{
    CTestProvider* p = new CTestProvider;
    unsigned int nCount = 0;
    p->m_atToFind = {Stream(1, 0, L"main", L"//depot/main")};
    EXPECT_EQ(0, p->EstablishStreams(nCount));
    EXPECT_TRUE(StagingFiles().empty());
    p->Destroy();
    EXPECT_TRUE(StagingFiles().empty());
}

TEST(StagingLifecycle, SecondPrepareChangesNothing)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    ORVANE::VDB::CDatabase* pDatabase = c.Database();
    ORVANE::VDB::CTransaction* pTransaction = c.Transaction();
    ASSERT_NE(nullptr, pDatabase);
    ASSERT_NE(nullptr, pTransaction);
    const unsigned int nID = c.AddChange(5, 1, L"u", L"c", 100);
    ASSERT_NE(0u, nID);
    EXPECT_TRUE(c.PrepareForChanges(false));
    EXPECT_EQ(pDatabase, c.Database());
    EXPECT_EQ(pTransaction, c.Transaction());
    // Still the same transaction: the uncommitted change is there.
    TChangeRecord t;
    EXPECT_TRUE(c.ReadChange(nID, t));
    EXPECT_EQ(5u, t.nProviderID);
}

TEST(StagingLifecycle, AfterCommitANewTransactionOnTheOpenTables)
{
    CTestProvider c;
    ASSERT_TRUE(c.PrepareForChanges(false));
    const unsigned int nID = c.AddChange(5, 1, L"u", L"c", 100);
    c.CommitChanges();
    EXPECT_EQ(nullptr, c.Transaction());
    EXPECT_FALSE(c.ChangeIteratorOpen());
    EXPECT_FALSE(c.ChangeItemIteratorOpen());
    EXPECT_TRUE(c.ChangeTableOpen()); // the tables stay open
    EXPECT_TRUE(c.ChangeItemTableOpen());

    ORVANE::VDB::CDatabase* pDatabase = c.Database();
    EXPECT_TRUE(c.PrepareForChanges(false));
    EXPECT_EQ(pDatabase, c.Database());
    EXPECT_NE(nullptr, c.Transaction());
    EXPECT_TRUE(c.ChangeIteratorOpen());
    EXPECT_TRUE(c.ChangeItemIteratorOpen());
    EXPECT_TRUE(c.ChangeTableOpen());
    TChangeRecord t;
    EXPECT_TRUE(c.ReadChange(nID, t));
}

TEST(StagingLifecycle, CommitWithoutTransactionDoesNothing)
{
    CTestProvider c;
    c.CommitChanges();
    EXPECT_EQ(nullptr, c.Database());
    EXPECT_EQ(nullptr, c.Transaction());
    EXPECT_TRUE(c.DatabasePath().empty());
    EXPECT_TRUE(StagingFiles().empty());
}

TEST(StagingLifecycle, CommittedWorkIsReadInTheNextTransaction)
{
    CTestProvider c;
    const unsigned int nKept = c.AddChange(1, 1, L"u", L"kept", 100);
    c.CommitChanges();
    ASSERT_TRUE(c.PrepareForChanges(false));
    TChangeRecord t;
    EXPECT_TRUE(c.ReadChange(nKept, t));
    EXPECT_TRUE(t.strComment == CString(L"kept"));
}

TEST(StagingLifecycle, FailedCreateStillDeletesBothFilesAtTeardown)
{
    // A symbolic link at the database path is refused.
    const std::string strBase = StagingBase();
    ASSERT_EQ(0, symlink("/nonexistent-target", (strBase + ".tdf").c_str()));
    const int fd = open((strBase + ".tlf").c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    close(fd);

    CTestProvider* p = new CTestProvider;
    EXPECT_FALSE(p->PrepareForChanges(false));
    EXPECT_EQ(nullptr, p->Database());
    EXPECT_EQ(strBase, Utf8(p->DatabasePath()));
    // The next call tries the same path again.
    EXPECT_FALSE(p->PrepareForChanges(false));
    EXPECT_EQ(0u, p->AddChange(1, 1, L"u", L"c", 1));
    unsigned int nCount = 99;
    EXPECT_EQ(1, p->EstablishChangesets(nCount));
    EXPECT_EQ(99u, nCount);
    EXPECT_EQ(0, p->m_nEnumerateCalls);
    p->Destroy();
    struct stat st;
    EXPECT_NE(0, lstat((strBase + ".tdf").c_str(), &st));
    EXPECT_NE(0, lstat((strBase + ".tlf").c_str(), &st));
}

TEST(StagingLifecycle, EnsureFolderExistsForAFileInTheRootMakesNothing)
{
    TScratch tDir;
    CTestProvider c;
    c.SetStreamRoot(wxString::FromUTF8(tDir.strPath.c_str()).wc_str());
    EXPECT_TRUE(c.EnsureFolderExists(Path(L"file.txt")));
    EXPECT_TRUE(c.EnsureFolderExists(CFilePath()));
    DIR* pDir = opendir(tDir.strPath.c_str());
    int nEntries = 0;
    while (dirent* pEntry = readdir(pDir))
        if (std::string(pEntry->d_name) != "." && std::string(pEntry->d_name) != "..")
            ++nEntries;
    closedir(pDir);
    EXPECT_EQ(0, nEntries);
}

TEST(StagingLifecycle, EnsureFolderExistsMakesTheMissingFoldersBelowTheRoot)
{
    TScratch tDir;
    CTestProvider c;
    c.SetStreamRoot(wxString::FromUTF8(tDir.strPath.c_str()).wc_str());
    ASSERT_EQ(0, mkdir((tDir.strPath + "/a").c_str(), 0755));
    EXPECT_TRUE(c.EnsureFolderExists(Path(L"a/b/c.txt")));
    EXPECT_TRUE(IsDir(tDir.strPath + "/a"));
    EXPECT_TRUE(IsDir(tDir.strPath + "/a/b"));
    EXPECT_FALSE(IsDir(tDir.strPath + "/a/b/c.txt"));
    EXPECT_TRUE(c.EnsureFolderExists(Path(L"x y/ü/d.txt")));
    EXPECT_TRUE(IsDir(tDir.strPath + "/x y/\xC3\xBC"));
}

TEST(StagingLifecycle, EnsureFolderExistsLogsTheFolderItCannotMake)
{
    TScratch tDir;
    // A file where a folder should be.
    const int fd = open((tDir.strPath + "/a").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
    TFixedClock tClock(10);
    CTestProvider c;
    c.SetStreamRoot(wxString::FromUTF8(tDir.strPath.c_str()).wc_str());
    c.OpenLog(true);
    EXPECT_FALSE(c.EnsureFolderExists(Path(L"a/b/c.txt")));
    const CString strPath = c.GetLogPath();
    EXPECT_EQ("10: Beginning Import with Test Source\n10: Failed to create directory '" + tDir.strPath + "/a'\n",
              ReadFile(strPath));
    wxRemoveFile(strPath);
}
