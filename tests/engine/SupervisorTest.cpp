// The supervisor against a stand-in worker: every way a worker can end, and
// what is cleaned up after it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include <unistd.h>

#include "Files.h"
#include "Run.h"
#include "Scratch.h"
#include "Supervisor.h"

using namespace ORVANE::IMP;
using ORVANE::TEST::CScratchFolder;
using ORVANE::TEST::Exists;

namespace {

const std::string s_strFake = ENGINETEST_FAKE_WORKER;
const std::string s_strP4Sim = ENGINETEST_P4SIM;

class SupervisorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(m_cDir.Path().empty());
        g_nSupervisorStop = 0;
        m_tSupervision.strStagingFolder = m_cDir.Path();
        m_tSupervision.bQuiet = true;
    }
    void TearDown() override { g_nSupervisorStop = 0; }

    // Runs the supervisor over the fake worker; its status and its messages.
    int Supervise(const std::vector<std::string>& astrArgs, std::string& strErr)
    {
        m_tSupervision.astrWorker = {s_strFake};
        m_tSupervision.astrWorker.insert(m_tSupervision.astrWorker.end(), astrArgs.begin(), astrArgs.end());
        ::testing::internal::CaptureStderr();
        const int nStatus = CSupervisor(m_tSupervision).Run();
        strErr = ::testing::internal::GetCapturedStderr();
        return nStatus;
    }

    CScratchFolder m_cDir{"orvane-supervisor"};
    TSupervision m_tSupervision;
};

} // namespace

TEST_F(SupervisorTest, AWorkerThatEndsByItselfGivesItsOwnStatus)
{
    std::string strErr;
    EXPECT_EQ(0, Supervise({"done", "0"}, strErr));
    EXPECT_EQ("", strErr);
    EXPECT_EQ(2, Supervise({"done", "2"}, strErr));
    EXPECT_EQ("", strErr);
}

TEST_F(SupervisorTest, AWorkerThatEndsWithoutSayingSoIsAFailure)
{
    std::string strErr;
    EXPECT_EQ(1, Supervise({"exit", "0"}, strErr));
    EXPECT_EQ("orvane-import: error: the migration ended unexpectedly with exit status 0 during EstablishStreams\n",
              strErr);
}

TEST_F(SupervisorTest, ACrashIsNamedWithWhatTheWorkerWasDoing)
{
    std::string strErr;
    EXPECT_EQ(1, Supervise({"crash"}, strErr));
    EXPECT_EQ("orvane-import: error: the migration module crashed (SIGSEGV) during EstablishStreams\n", strErr);
}

TEST_F(SupervisorTest, AWorkerThatStopsMakingProgressIsEnded)
{
    m_tSupervision.fStallSeconds = 0.5;
    std::string strErr;
    EXPECT_EQ(1, Supervise({"spin"}, strErr));
    EXPECT_EQ("orvane-import: error: the migration module stopped making progress during EstablishStreams: no p4 "
              "command and no result for 0 s; the run was ended\n",
              strErr);
}

TEST_F(SupervisorTest, ARunningChildHasItsOwnLimit)
{
    m_tSupervision.fStallSeconds = 0.2;
    m_tSupervision.fChildSeconds = 1.0;
    std::string strErr;
    const auto tStart = std::chrono::steady_clock::now();
    EXPECT_EQ(1, Supervise({"child"}, strErr));
    // Not ended at the general limit, while the child ran.
    EXPECT_GE(std::chrono::steady_clock::now() - tStart, std::chrono::seconds(1));
    EXPECT_EQ("orvane-import: error: the migration module stopped making progress during EstablishStreams (while "
              "running p4 -G describe 7): a command ran for more than 1 s; the run was ended\n",
              strErr);
}

TEST_F(SupervisorTest, AStopIsPassedOnAndAGracefulWorkerEndsItself)
{
    const std::string strReady = m_cDir.File("ready");
    ::setenv("FAKE_READY", strReady.c_str(), 1);
    std::thread cStopper([&strReady] {
        while (!Exists(strReady))
            std::this_thread::yield();
        g_nSupervisorStop = SIGTERM;
    });
    std::string strErr;
    EXPECT_EQ(143, Supervise({"graceful"}, strErr));
    cStopper.join();
    ::unsetenv("FAKE_READY");
    EXPECT_EQ("", strErr);
}

TEST_F(SupervisorTest, AWorkerThatIgnoresTheStopIsKilledAfterTheGrace)
{
    const std::string strReady = m_cDir.File("ready");
    ::setenv("FAKE_READY", strReady.c_str(), 1);
    m_tSupervision.fStopGraceSeconds = 0.3;
    std::thread cStopper([&strReady] {
        while (!Exists(strReady))
            std::this_thread::yield();
        g_nSupervisorStop = SIGINT;
    });
    std::string strErr;
    EXPECT_EQ(130, Supervise({"ignore-term"}, strErr));
    cStopper.join();
    ::unsetenv("FAKE_READY");
    EXPECT_EQ("orvane-import: error: interrupted by SIGINT; the migration did not complete\n", strErr);
}

TEST_F(SupervisorTest, StagingFilesOfTheWorkerAndOfDeadRunsAreRemoved)
{
    // An earlier run that is gone, and one of a live process (ours).
    const std::string strDead = m_cDir.File("orvane-em-999999999.tdf");
    const std::string strLive = m_cDir.File("orvane-em-" + std::to_string(::getpid()) + ".tlf");
    const std::string strOther = m_cDir.File("orvane-em-12x.tdf");
    for (const std::string& str : {strDead, strLive, strOther})
        ASSERT_TRUE(ORVANE::TEST::WriteWholeFile(str, ""));
    ::setenv("FAKE_STAGING", m_cDir.Path().c_str(), 1);
    std::string strErr;
    EXPECT_EQ(1, Supervise({"staging"}, strErr));
    ::unsetenv("FAKE_STAGING");
    // The worker's own two are gone too. (The folder's list is sorted: where
    // the live one goes depends on our process id.)
    std::vector<std::string> astrLeft = {"orvane-em-12x.tdf", "orvane-em-" + std::to_string(::getpid()) + ".tlf"};
    std::sort(astrLeft.begin(), astrLeft.end());
    EXPECT_EQ(astrLeft, m_cDir.List());
}

TEST_F(SupervisorTest, TheTemporaryClientIsDeletedWithTheUsersEnvironment)
{
    const std::string strServer = m_cDir.File("server");
    ASSERT_EQ(0, ORVANE::TEST::RunProgram({s_strP4Sim, "admin", "init", strServer}).nStatus);
    const std::map<std::string, std::string> mapEnv = {{"P4PORT", "sim:" + strServer}, {"P4USER", "jo"}};
    const std::string strForm = "Client: Orvane_Temp_Client\nOwner: jo\nRoot: " + m_cDir.Path() +
                                "\nView:\n\t//depot/... //Orvane_Temp_Client/...\n";
    ASSERT_EQ(0, ORVANE::TEST::RunProgram({s_strP4Sim, "client", "-i"}, mapEnv, strForm).nStatus);
    ASSERT_NE(std::string::npos,
              ORVANE::TEST::RunProgram({s_strP4Sim, "clients"}, mapEnv).strOut.find("Orvane_Temp_Client"));
    for (const auto& kv : mapEnv)
        ::setenv(kv.first.c_str(), kv.second.c_str(), 1);
    std::string strErr;
    EXPECT_EQ(1, Supervise({"client", "Orvane_Temp_Client", s_strP4Sim}, strErr));
    EXPECT_EQ("", ORVANE::TEST::RunProgram({s_strP4Sim, "clients"}, mapEnv).strOut);
    // Once more: the server now refuses, and the user is told what remains.
    EXPECT_EQ(1, Supervise({"client", "Orvane_Temp_Client", s_strP4Sim}, strErr));
    EXPECT_EQ("orvane-import: warning: the temporary client 'Orvane_Temp_Client' remains on the server (Client "
              "'Orvane_Temp_Client' doesn't exist.); remove it with: p4 client -d Orvane_Temp_Client\n"
              "orvane-import: error: the migration module crashed (SIGSEGV) during EstablishStreams\n",
              strErr);
    for (const auto& kv : mapEnv)
        ::unsetenv(kv.first.c_str());
}

TEST_F(SupervisorTest, TheImportLogIsNamedAfterACrash)
{
    const std::string strLog = m_cDir.File("import.log");
    ASSERT_TRUE(ORVANE::TEST::WriteWholeFile(strLog, "1: Beginning Import\n"));
    std::string strErr;
    EXPECT_EQ(1, Supervise({"log", strLog}, strErr));
    EXPECT_EQ("orvane-import: import log: " + strLog +
                  "\norvane-import: error: the migration module crashed (SIGABRT) during EstablishStreams\n",
              strErr);
}

TEST_F(SupervisorTest, TheTemporaryWorkspaceIsRemovedUnlessKept)
{
    const std::string strWorkspace = m_cDir.File("ws");
    ASSERT_EQ(0, ::mkdir(strWorkspace.c_str(), 0700));
    ASSERT_TRUE(ORVANE::TEST::WriteWholeFile(strWorkspace + "/f", "x"));
    m_tSupervision.strTemporaryWorkspace = strWorkspace;
    m_tSupervision.bKeepWorkspace = true;
    std::string strErr;
    EXPECT_EQ(1, Supervise({"crash"}, strErr));
    EXPECT_TRUE(Exists(strWorkspace + "/f"));
    m_tSupervision.bKeepWorkspace = false;
    EXPECT_EQ(1, Supervise({"crash"}, strErr));
    EXPECT_FALSE(Exists(strWorkspace));
}
