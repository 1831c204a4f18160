// End-to-end tests of orvane-import: a p4sim server per test in a temporary
// folder, the engine run as a child process, and the depot's own view of
// each stream read back with p4sim, independently of the module.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Files.h"
#include "Run.h"
#include "Scratch.h"

namespace enginetest {

// What a program did: its status, output and error.
typedef ORVANE::TEST::TRunResult TResult;

using ORVANE::TEST::Exists;
using ORVANE::TEST::ReadWholeFile;
using ORVANE::TEST::RunProgram;
using ORVANE::TEST::WriteWholeFile;

// Starts a program with its output going to files; the child is ended and
// reaped if it still runs when the object goes.
inline ORVANE::VCM::CChildProcess Start(const std::vector<std::string>& astrArgv,
                                        const std::map<std::string, std::string>& mapEnv, const std::string& strOutFile,
                                        const std::string& strErrFile)
{
    return ORVANE::TEST::StartProgram(astrArgv, mapEnv, strOutFile, strErrFile);
}

// The lines of the text, without their ends.
std::vector<std::string> Lines(const std::string& str);
// The children of a process, from /proc.
std::vector<pid_t> Children(pid_t nParent);
// Waits until the condition holds; false (with the engine's exit status)
// when the engine ended first.
bool WaitFor(const std::function<bool()>& fnCondition, ORVANE::VCM::CChildProcess& cEngine, int& nStatus);
// Waits until the journal of the server records a command that contains
// the text.
bool WaitForCommand(const std::string& strJournal, const std::string& strText, ORVANE::VCM::CChildProcess& cEngine,
                    int& nStatus);
// The lines of orvane-import's standard error that are not the pointer to
// the import log.
std::vector<std::string> MessageLines(const std::string& strErr);
// The processes of the system for which the test holds.
std::vector<pid_t> Processes(const std::function<bool(pid_t)>& fnTest);

// Everything below a folder, as paths relative to it that start with '/'
// (folders end in '/').
std::set<std::string> Tree(const std::string& strRoot);

// One file of a tree: git mode and content.
struct TFile
{
    unsigned nMode = 0;
    std::string strContent;
    bool operator==(const TFile& o) const { return nMode == o.nMode && strContent == o.strContent; }
};
typedef std::map<std::string, TFile> TFiles;

class CEngineTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    void LoadHistory(const std::string& strJsonFile);
    void Generate(const std::vector<std::string>& astrOptions);
    // The engine with the test server's environment; P4Path is p4sim and the
    // log goes into the test folder.
    TResult Import(const std::vector<std::string>& astrArgs, const std::map<std::string, std::string>& mapEnv = {});
    std::vector<std::string> EngineArgs(const std::vector<std::string>& astrArgs) const;
    std::map<std::string, std::string> Env(const std::map<std::string, std::string>& mapExtra = {}) const;
    TResult P4(const std::vector<std::string>& astrArgs) const;
    TResult Git(const std::vector<std::string>& astrArgs) const;

    // The depot's files below the path at the change: path below it -> file.
    TFiles DepotTree(const std::string& strDepotPath, unsigned nChange);
    // The change numbers that touched the path, oldest first, with their
    // "user@client".
    std::vector<std::pair<unsigned, std::string>> DepotChanges(const std::string& strDepotPath) const;
    // The tree of a commit.
    TFiles CommitTree(const std::string& strCommit) const;
    // The server's users as `p4 users` prints them: user -> "Full Name <email>".
    std::map<std::string, std::string> DepotUsers() const;
    // Checks every commit of every branch against the depot, its author and
    // committer against the server's users; the streams come from the dump's
    // stream lines.
    void ExpectBranchesMatchDepot(const std::vector<nlohmann::json>& aStreams);
    std::vector<nlohmann::json> ReadDump(const std::string& strFile) const;
    // No temporary client on the server, no staging file of the engine and
    // no workspace.
    void ExpectCleanedUp(const std::string& strWorkspace) const;

    std::unique_ptr<ORVANE::TEST::CScratchFolder> m_pScratch;
    std::set<std::string> m_setStagingBefore;
    std::string m_strTemp;
    std::string m_strServer;
    std::string m_strGit;
    std::string m_strLog;
    std::map<std::string, std::string> m_mapPrint; // "path#rev" -> content
};

} // namespace enginetest
