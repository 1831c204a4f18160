#include "LfsHarness.h"

#include <sys/stat.h>

#include <filesystem>

#include "Digest.h"

namespace enginetest {

namespace {

const char* const s_pszPointerStart = "version https://git-lfs.github.com/spec/v1\noid sha256:";

// The object of the oid in the repository's store.
std::string ObjectPath(const std::string& strGit, const std::string& strOid)
{
    return strGit + "/lfs/objects/" + strOid.substr(0, 2) + "/" + strOid.substr(2, 2) + "/" + strOid;
}

} // namespace

nlohmann::json Generated(const std::string& strPath, const std::string& strAction, long long nSize, int nSeed)
{
    return {{"path", "//depot/" + strPath},
            {"action", strAction},
            {"type", "binary"},
            {"generated", {{"size", nSize}, {"seed", nSeed}}}};
}

nlohmann::json Text(const std::string& strPath, const std::string& strAction, const std::string& strContent)
{
    return {{"path", "//depot/" + strPath}, {"action", strAction}, {"content", strContent}};
}

nlohmann::json Deleted(const std::string& strPath)
{
    return {{"path", "//depot/" + strPath}, {"action", "delete"}};
}

nlohmann::json Change(long nTime, const std::vector<nlohmann::json>& ajFiles)
{
    return {{"user", "jo"}, {"client", "jo-ws"}, {"time", nTime}, {"description", "change"}, {"files", ajFiles}};
}

bool ParsePointer(const std::string& strText, std::string& strOid, unsigned long long& nSize)
{
    const std::string strStart = s_pszPointerStart;
    const size_t nOidEnd = strStart.size() + 64;
    if (strText.compare(0, strStart.size(), strStart) != 0 || strText.size() < nOidEnd + 8 ||
        strText.compare(nOidEnd, 6, "\nsize ") != 0 || strText.back() != '\n')
        return false;
    strOid = strText.substr(strStart.size(), 64);
    const std::string strSize = strText.substr(nOidEnd + 6, strText.size() - nOidEnd - 7);
    if (strOid.find_first_not_of("0123456789abcdef") != std::string::npos || strSize.empty() ||
        strSize.find_first_not_of("0123456789") != std::string::npos)
        return false;
    nSize = std::stoull(strSize);
    return true;
}

void CLfsEngineTest::LoadChanges(const std::vector<nlohmann::json>& ajChanges)
{
    const nlohmann::json j = {
        {"users", {{{"name", "jo"}, {"email", "jo@example.com"}, {"fullName", "Jo Doe"}, {"time", 1200000000}}}},
        {"changes", ajChanges}};
    const std::string strHistory = m_strTemp + "/history.json";
    ASSERT_TRUE(WriteWholeFile(strHistory, j.dump()));
    LoadHistory(strHistory);
}

void CLfsEngineTest::ExpectCommitsMatchDepot(const std::string& strBranch, const std::string& strDepot)
{
    const auto atChanges = DepotChanges(strDepot);
    const TResult r = Git({"rev-list", "--first-parent", "--reverse", strBranch});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    const std::vector<std::string> astrCommits = Lines(r.strOut);
    ASSERT_EQ(atChanges.size(), astrCommits.size());
    for (size_t i = 0; i < astrCommits.size(); ++i)
    {
        SCOPED_TRACE("change " + std::to_string(atChanges[i].first) + " commit " + astrCommits[i]);
        TFiles tDepot = DepotTree(strDepot, atChanges[i].first);
        TFiles tGit = CommitTree(astrCommits[i]);
        tDepot.erase(".gitattributes");
        tGit.erase(".gitattributes");
        for (auto& kv : tGit)
        {
            std::string strOid;
            unsigned long long nSize = 0;
            if (!ParsePointer(kv.second.strContent, strOid, nSize))
                continue;
            kv.second.strContent = ReadWholeFile(ObjectPath(m_strGit, strOid));
            EXPECT_EQ(nSize, kv.second.strContent.size()) << kv.first;
            EXPECT_EQ(strOid, ORVANE::IMP::Sha256Hex(kv.second.strContent)) << kv.first;
        }
        for (const auto& kv : tDepot)
        {
            auto it = tGit.find(kv.first);
            if (it == tGit.end())
                ADD_FAILURE() << kv.first << " is missing from git";
            else
                EXPECT_TRUE(it->second == kv.second) << kv.first << " differs";
        }
        for (const auto& kv : tGit)
            EXPECT_TRUE(tDepot.count(kv.first)) << kv.first << " is in git but not in the depot";
    }
}

void CLfsEngineTest::ExpectLfsFsck()
{
    const TResult r = Git({"rev-list", "--all"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    ASSERT_FALSE(r.strOut.empty());
    // One commit at a time: without a commit git lfs fsck looks at HEAD
    // only, and a range leaves out its start.
    for (const std::string& strCommit : Lines(r.strOut))
    {
        const TResult f = Git({"lfs", "fsck", strCommit});
        EXPECT_EQ(0, f.nStatus) << strCommit << ": " << f.strOut << f.strErr;
        EXPECT_EQ("Git LFS fsck OK\n", f.strOut) << strCommit;
    }
}

void CLfsEngineTest::MakeClone(const std::string& strBranch)
{
    const std::string strClone = Clone(strBranch);
    const TResult c = RunProgram({"git", "clone", "-q", "--branch", strBranch, m_strGit, strClone}, Env());
    ASSERT_EQ(0, c.nStatus) << c.strErr;
    // The clone's own Git LFS filters (no global configuration here), and
    // the content from the repository that was cloned.
    for (const std::vector<std::string>& astr :
         {std::vector<std::string>{"lfs", "install", "--local"}, std::vector<std::string>{"lfs", "pull"}})
    {
        std::vector<std::string> astrArgv = {"git"};
        astrArgv.insert(astrArgv.end(), astr.begin(), astr.end());
        const TResult l = RunProgram(astrArgv, Env(), "", strClone);
        ASSERT_EQ(0, l.nStatus) << l.strOut << l.strErr;
    }
}

void CLfsEngineTest::ExpectCloneMatchesDepot(const std::string& strBranch, const std::string& strDepot)
{
    ASSERT_NO_FATAL_FAILURE(MakeClone(strBranch));
    const std::string strClone = Clone(strBranch);
    const auto atChanges = DepotChanges(strDepot);
    ASSERT_FALSE(atChanges.empty());
    TFiles tDepot = DepotTree(strDepot, atChanges.back().first);
    tDepot.erase(".gitattributes");
    std::set<std::string> setExpected, setFound;
    for (const auto& kv : tDepot)
    {
        setExpected.insert(kv.first);
        const std::string strPath = strClone + "/" + kv.first;
        EXPECT_TRUE(ReadWholeFile(strPath) == kv.second.strContent) << kv.first << " differs in the clone";
        struct stat st;
        ASSERT_EQ(0, lstat(strPath.c_str(), &st)) << kv.first;
        EXPECT_EQ(kv.second.nMode == 0100755, (st.st_mode & S_IXUSR) != 0) << kv.first;
    }
    for (const std::string& strPath : Tree(strClone))
        if (strPath.back() != '/' && strPath.compare(0, 6, "/.git/") != 0 && strPath != "/.gitattributes")
            setFound.insert(strPath.substr(1));
    EXPECT_EQ(setExpected, setFound);
    const TResult s = RunProgram({"git", "status", "--porcelain"}, Env(), "", strClone);
    EXPECT_EQ(0, s.nStatus) << s.strErr;
    EXPECT_EQ("", s.strOut);
}

std::set<std::string> CLfsEngineTest::LfsPaths(const std::string& strCommit)
{
    std::set<std::string> set;
    for (const auto& kv : CommitTree(strCommit))
    {
        std::string strOid;
        unsigned long long nSize = 0;
        if (ParsePointer(kv.second.strContent, strOid, nSize))
            set.insert(kv.first);
    }
    return set;
}

std::string CLfsEngineTest::Attributes(const std::string& strCommit)
{
    const TResult r = Git({"cat-file", "-p", strCommit + ":.gitattributes"});
    return r.nStatus == 0 ? r.strOut : std::string();
}

size_t CLfsEngineTest::StoredObjects() const
{
    size_t n = 0;
    std::error_code ec;
    for (std::filesystem::recursive_directory_iterator it(m_strGit + "/lfs/objects", ec), itEnd; !ec && it != itEnd;
         it.increment(ec))
        n += it->is_regular_file() ? 1 : 0;
    return n;
}

} // namespace enginetest
