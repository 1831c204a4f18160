#include "EngineHarness.h"

#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace enginetest {

namespace {

// The staging files of all runs: their names in /tmp.
std::set<std::string> StagingFiles()
{
    std::set<std::string> setFiles;
    DIR* pDir = opendir("/tmp");
    if (!pDir)
        return setFiles;
    while (const dirent* pEntry = readdir(pDir))
        if (std::string(pEntry->d_name).compare(0, 10, "orvane-em-") == 0)
            setFiles.insert(pEntry->d_name);
    closedir(pDir);
    return setFiles;
}

} // namespace

std::vector<std::string> Lines(const std::string& str)
{
    std::vector<std::string> astr;
    std::istringstream in(str);
    for (std::string strLine; std::getline(in, strLine);)
        astr.push_back(strLine);
    return astr;
}

std::vector<std::string> MessageLines(const std::string& strErr)
{
    std::vector<std::string> astr;
    for (const std::string& strLine : Lines(strErr))
        if (strLine.compare(0, 27, "orvane-import: import log: ") != 0)
            astr.push_back(strLine);
    return astr;
}

std::vector<pid_t> Processes(const std::function<bool(pid_t)>& fnTest)
{
    std::vector<pid_t> an;
    DIR* pDir = opendir("/proc");
    while (pDir)
    {
        const dirent* pEntry = readdir(pDir);
        if (!pEntry)
            break;
        const pid_t nPid = static_cast<pid_t>(std::atol(pEntry->d_name));
        if (nPid > 0 && fnTest(nPid))
            an.push_back(nPid);
    }
    if (pDir)
        closedir(pDir);
    return an;
}

std::vector<pid_t> Children(pid_t nParent)
{
    return Processes([nParent](pid_t nPid) {
        const std::string strStat = ReadWholeFile("/proc/" + std::to_string(nPid) + "/stat");
        // pid (name) state ppid ...: the name may hold blanks and parentheses.
        const size_t nClose = strStat.rfind(')');
        if (nClose == std::string::npos)
            return false;
        std::istringstream in(strStat.substr(nClose + 1));
        std::string strState;
        long nPpid = 0;
        in >> strState >> nPpid;
        return nPpid == nParent;
    });
}

bool WaitFor(const std::function<bool()>& fnCondition, ORVANE::VCM::CChildProcess& cEngine, int& nStatus)
{
    for (;;)
    {
        if (fnCondition())
            return true;
        if (cEngine.TryWait(nStatus))
            return false;
        std::this_thread::yield();
    }
}

bool WaitForCommand(const std::string& strJournal, const std::string& strText, ORVANE::VCM::CChildProcess& cEngine,
                    int& nStatus)
{
    return WaitFor([&]() { return ReadWholeFile(strJournal).find(strText) != std::string::npos; }, cEngine, nStatus);
}

namespace {

void ListTree(const std::string& strRoot, const std::string& strBelow, std::set<std::string>& setOut)
{
    DIR* pDir = opendir((strRoot + strBelow).c_str());
    if (!pDir)
        return;
    while (const dirent* pEntry = readdir(pDir))
    {
        const std::string strName = pEntry->d_name;
        if (strName == "." || strName == "..")
            continue;
        const std::string strPath = strBelow + "/" + strName;
        struct stat tStat;
        if (lstat((strRoot + strPath).c_str(), &tStat) == 0 && S_ISDIR(tStat.st_mode))
        {
            setOut.insert(strPath + "/");
            ListTree(strRoot, strPath, setOut);
        }
        else
            setOut.insert(strPath);
    }
    closedir(pDir);
}

} // namespace

std::set<std::string> Tree(const std::string& strRoot)
{
    std::set<std::string> set;
    ListTree(strRoot, std::string(), set);
    return set;
}

void CEngineTest::SetUp()
{
    m_setStagingBefore = StagingFiles();
    m_pScratch.reset(new ORVANE::TEST::CScratchFolder("orvane-import-test"));
    m_strTemp = m_pScratch->Path();
    ASSERT_FALSE(m_strTemp.empty());
    m_strServer = m_strTemp + "/server";
    m_strGit = m_strTemp + "/out.git";
    m_strLog = m_strTemp + "/import.log";
}

void CEngineTest::TearDown()
{
    m_pScratch.reset();
}

std::map<std::string, std::string> CEngineTest::Env(const std::map<std::string, std::string>& mapExtra) const
{
    std::map<std::string, std::string> mapEnv = {{"P4PORT", "sim:" + m_strServer},
                                                 {"P4USER", "tester"},
                                                 {"P4CLIENT", ORVANE::TEST::g_pszUnset},
                                                 {"P4HOST", ORVANE::TEST::g_pszUnset},
                                                 {"TZ", "UTC"},
                                                 {"LC_ALL", "C.UTF-8"},
                                                 {"GIT_CONFIG_NOSYSTEM", "1"},
                                                 {"GIT_CONFIG_GLOBAL", "/dev/null"}};
    for (const auto& kv : mapExtra)
        mapEnv[kv.first] = kv.second;
    return mapEnv;
}

void CEngineTest::LoadHistory(const std::string& strJsonFile)
{
    const TResult r = RunProgram({ENGINETEST_P4SIM, "admin", "load", m_strServer, strJsonFile}, Env());
    ASSERT_EQ(0, r.nStatus) << r.strErr;
}

void CEngineTest::Generate(const std::vector<std::string>& astrOptions)
{
    std::vector<std::string> astr = {ENGINETEST_P4SIM, "admin", "generate", m_strServer};
    astr.insert(astr.end(), astrOptions.begin(), astrOptions.end());
    const TResult r = RunProgram(astr, Env());
    ASSERT_EQ(0, r.nStatus) << r.strErr;
}

std::vector<std::string> CEngineTest::EngineArgs(const std::vector<std::string>& astrArgs) const
{
    std::vector<std::string> astr = {ENGINETEST_ENGINE, "--set", std::string("P4Path=") + ENGINETEST_P4SIM, "--log",
                                     m_strLog};
    astr.insert(astr.end(), astrArgs.begin(), astrArgs.end());
    return astr;
}

TResult CEngineTest::Import(const std::vector<std::string>& astrArgs, const std::map<std::string, std::string>& mapEnv)
{
    return RunProgram(EngineArgs(astrArgs), Env(mapEnv));
}

TResult CEngineTest::P4(const std::vector<std::string>& astrArgs) const
{
    std::vector<std::string> astr = {ENGINETEST_P4SIM};
    astr.insert(astr.end(), astrArgs.begin(), astrArgs.end());
    return RunProgram(astr, Env());
}

TResult CEngineTest::Git(const std::vector<std::string>& astrArgs) const
{
    std::vector<std::string> astr = {"git", "--git-dir=" + m_strGit};
    astr.insert(astr.end(), astrArgs.begin(), astrArgs.end());
    return RunProgram(astr, Env());
}

namespace {

// The server's escapes in depot paths.
std::string Unescape(const std::string& str)
{
    std::string strOut;
    for (size_t i = 0; i < str.size(); ++i)
    {
        if (str[i] == '%' && i + 2 < str.size())
        {
            const std::string strCode = str.substr(i + 1, 2);
            if (strCode == "40")
                strOut += '@', i += 2;
            else if (strCode == "23")
                strOut += '#', i += 2;
            else if (strCode == "2A")
                strOut += '*', i += 2;
            else if (strCode == "25")
                strOut += '%', i += 2;
            else
                strOut += str[i];
        }
        else
            strOut += str[i];
    }
    return strOut;
}

} // namespace

TFiles CEngineTest::DepotTree(const std::string& strDepotPath, unsigned nChange)
{
    TFiles tFiles;
    const TResult r = P4({"files", strDepotPath + "/...@" + std::to_string(nChange)});
    EXPECT_TRUE(r.nStatus == 0 || r.strErr.find("no such file") != std::string::npos) << r.strErr;
    std::istringstream in(r.strOut);
    std::string strLine;
    while (std::getline(in, strLine))
    {
        // PATH#REV - ACTION change N (TYPE); a path holds no '#' of its own.
        const size_t nHash = strLine.rfind('#');
        const size_t nDash = strLine.find(" - ", nHash == std::string::npos ? 0 : nHash);
        const size_t nChangeAt = strLine.find(" change ", nDash == std::string::npos ? 0 : nDash);
        const size_t nOpen = strLine.rfind(" (");
        if (nHash == std::string::npos || nDash == std::string::npos || nChangeAt == std::string::npos ||
            nOpen == std::string::npos || strLine.back() != ')')
        {
            ADD_FAILURE() << "unexpected files line: " << strLine;
            continue;
        }
        const std::string strPath = strLine.substr(0, nHash);
        const std::string strRevision = strLine.substr(nHash + 1, nDash - nHash - 1);
        const std::string strAction = strLine.substr(nDash + 3, nChangeAt - nDash - 3);
        const std::string strType = strLine.substr(nOpen + 2, strLine.size() - nOpen - 3);
        if (strAction == "delete" || strAction == "move/delete")
            continue;
        const std::string strKey = strPath + "#" + strRevision;
        auto it = m_mapPrint.find(strKey);
        if (it == m_mapPrint.end())
        {
            const TResult p = P4({"print", "-q", strKey});
            EXPECT_EQ(0, p.nStatus) << p.strErr;
            it = m_mapPrint.emplace(strKey, p.strOut).first;
        }
        TFile tFile;
        tFile.strContent = it->second;
        tFile.nMode = strType.find("+x") != std::string::npos ? 0100755 : 0100644;
        tFiles[Unescape(strPath.substr(strDepotPath.size() + 1))] = tFile;
    }
    return tFiles;
}

std::vector<std::pair<unsigned, std::string>> CEngineTest::DepotChanges(const std::string& strDepotPath) const
{
    std::vector<std::pair<unsigned, std::string>> at;
    const TResult r = P4({"changes", strDepotPath + "/..."});
    EXPECT_EQ(0, r.nStatus) << r.strErr;
    std::istringstream in(r.strOut);
    std::string strLine;
    while (std::getline(in, strLine))
    {
        // Change N on DATE by USER@CLIENT 'DESCRIPTION'
        std::istringstream words(strLine);
        std::string strWord, strNumber, strOn, strDate, strBy, strUser;
        words >> strWord >> strNumber >> strOn >> strDate >> strBy >> strUser;
        if (strWord == "Change" && strOn == "on" && strBy == "by" && !strNumber.empty())
            at.insert(at.begin(), {unsigned(std::stoul(strNumber)), strUser});
        else
            ADD_FAILURE() << "unexpected changes line: " << strLine;
    }
    return at;
}

TFiles CEngineTest::CommitTree(const std::string& strCommit) const
{
    TFiles tFiles;
    const TResult r = Git({"ls-tree", "-r", "-z", "--full-tree", strCommit});
    EXPECT_EQ(0, r.nStatus) << r.strErr;
    size_t nPos = 0;
    while (nPos < r.strOut.size())
    {
        const size_t nEnd = r.strOut.find('\0', nPos);
        const std::string strLine = r.strOut.substr(nPos, nEnd - nPos);
        nPos = nEnd + 1;
        const size_t nTab = strLine.find('\t');
        std::istringstream in(strLine.substr(0, nTab));
        std::string strMode, strType, strName;
        in >> strMode >> strType >> strName;
        TFile tFile;
        tFile.nMode = unsigned(std::stoul(strMode, nullptr, 8));
        const TResult b = Git({"cat-file", "blob", strName});
        EXPECT_EQ(0, b.nStatus);
        tFile.strContent = b.strOut;
        tFiles[strLine.substr(nTab + 1)] = tFile;
    }
    return tFiles;
}

std::map<std::string, std::string> CEngineTest::DepotUsers() const
{
    std::map<std::string, std::string> mapUsers;
    const TResult r = P4({"users"});
    EXPECT_EQ(0, r.nStatus) << r.strErr;
    std::istringstream in(r.strOut);
    std::string strLine;
    while (std::getline(in, strLine))
    {
        // USER <EMAIL> (FULL NAME) accessed DATE
        const size_t nOpen = strLine.find(" <"), nClose = strLine.find("> (");
        const size_t nEnd = strLine.rfind(") accessed ");
        if (nOpen == std::string::npos || nClose == std::string::npos || nEnd == std::string::npos)
        {
            ADD_FAILURE() << "unexpected users line: " << strLine;
            continue;
        }
        mapUsers[strLine.substr(0, nOpen)] =
            strLine.substr(nClose + 3, nEnd - nClose - 3) + " <" + strLine.substr(nOpen + 2, nClose - nOpen - 2) + ">";
    }
    return mapUsers;
}

std::vector<nlohmann::json> CEngineTest::ReadDump(const std::string& strFile) const
{
    std::vector<nlohmann::json> a;
    std::istringstream in(ReadWholeFile(strFile));
    std::string strLine;
    while (std::getline(in, strLine))
        a.push_back(nlohmann::json::parse(strLine));
    return a;
}

void CEngineTest::ExpectBranchesMatchDepot(const std::vector<nlohmann::json>& aStreams)
{
    ASSERT_FALSE(aStreams.empty());
    const std::map<std::string, std::string> mapUsers = DepotUsers();
    for (const nlohmann::json& j : aStreams)
    {
        const std::string strName = j["name"];
        const std::string strDst = j["dst"];
        const auto atChanges = DepotChanges(strDst);
        SCOPED_TRACE("stream " + strName + " at " + strDst);
        if (atChanges.empty())
        {
            EXPECT_NE(0, Git({"rev-parse", "--verify", "--quiet", "refs/heads/" + strName}).nStatus);
            continue;
        }
        const TResult r = Git({"rev-list", "--first-parent", "--reverse", "refs/heads/" + strName});
        ASSERT_EQ(0, r.nStatus) << r.strErr;
        std::vector<std::string> astrCommits;
        std::istringstream in(r.strOut);
        for (std::string s; std::getline(in, s);)
            astrCommits.push_back(s);
        ASSERT_GE(astrCommits.size(), atChanges.size());
        // The branch's own commits are its last ones; before them comes the
        // parent stream's history, if any.
        const size_t nFirst = astrCommits.size() - atChanges.size();
        if (j["parent"] == 0)
        {
            EXPECT_EQ(0u, nFirst);
        }
        for (size_t i = 0; i < atChanges.size(); ++i)
        {
            const std::string& strCommit = astrCommits[nFirst + i];
            SCOPED_TRACE("change " + std::to_string(atChanges[i].first) + " commit " + strCommit);
            const TFiles tDepot = DepotTree(strDst, atChanges[i].first);
            const TFiles tGit = CommitTree(strCommit);
            EXPECT_EQ(tDepot.size(), tGit.size());
            for (const auto& kv : tDepot)
            {
                auto it = tGit.find(kv.first);
                if (it == tGit.end())
                {
                    ADD_FAILURE() << kv.first << " is missing from git";
                    continue;
                }
                EXPECT_EQ(kv.second.nMode, it->second.nMode) << kv.first;
                EXPECT_TRUE(kv.second.strContent == it->second.strContent) << kv.first << " differs";
            }
            for (const auto& kv : tGit)
                EXPECT_TRUE(tDepot.count(kv.first)) << kv.first << " is in git but not in the depot";
            // The message ends with the changelist's trailers.
            const TResult m = Git({"log", "-1", "--format=%B", strCommit});
            const TResult t =
                RunProgram({"git", "interpret-trailers", "--parse"}, Env(), m.strOut.substr(0, m.strOut.size() - 1));
            // What the change took of other streams without merging them
            // comes after.
            std::string strTrailers = t.strOut;
            const size_t nIntegrated = strTrailers.find("Perforce-Integrated: //depot/");
            if (nIntegrated != std::string::npos)
                strTrailers.erase(nIntegrated);
            EXPECT_EQ("Perforce-Change: " + std::to_string(atChanges[i].first) + "\nPerforce-Path: " + strDst +
                          "/...\n",
                      strTrailers);
            const std::string& strUser = atChanges[i].second;
            const TResult a = Git({"log", "-1", "--format=%an <%ae>|%cn <%ce>", strCommit});
            // p4sim knows every user who made a change.
            const auto itUser = mapUsers.find(strUser.substr(0, strUser.find('@')));
            ASSERT_TRUE(itUser != mapUsers.end()) << strUser;
            const std::string& strIdent = itUser->second;
            EXPECT_EQ(strIdent + "|" + strIdent + "\n", a.strOut);
        }
    }
    const TResult f = Git({"fsck", "--strict", "--no-dangling"});
    EXPECT_EQ(0, f.nStatus) << f.strOut << f.strErr;
}

void CEngineTest::ExpectCleanedUp(const std::string& strWorkspace) const
{
    const TResult c = P4({"clients"});
    EXPECT_EQ(0, c.nStatus) << c.strErr;
    EXPECT_EQ(std::string::npos, c.strOut.find("Orvane_Temp_Client")) << c.strOut;
    // The staging files of this test's run are gone; those of runs of other
    // tests at the same time belong to processes that still live, or to a
    // worker that has just died, whose supervisor removes them within
    // moments. What is still there after that was left by this test.
    const auto fnLeft = [this]() {
        std::vector<std::string> astrLeft;
        for (const std::string& strName : StagingFiles())
        {
            if (m_setStagingBefore.count(strName))
                continue;
            const pid_t nPid = static_cast<pid_t>(std::atol(strName.c_str() + 10));
            if (nPid > 0 && kill(nPid, 0) != 0 && errno == ESRCH)
                astrLeft.push_back("/tmp/" + strName);
        }
        return astrLeft;
    };
    const auto tGiveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::vector<std::string> astrLeft = fnLeft();
    while (!astrLeft.empty() && std::chrono::steady_clock::now() < tGiveUp)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        astrLeft = fnLeft();
    }
    EXPECT_EQ(std::vector<std::string>(), astrLeft) << "left behind";
    if (!strWorkspace.empty())
    {
        EXPECT_FALSE(Exists(strWorkspace)) << strWorkspace;
    }
}

} // namespace enginetest
