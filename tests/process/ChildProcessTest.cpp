// The one primitive that starts processes: start, wait, signals, process
// groups, environments, working directories, and that no child outlives
// its owner.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Files.h"
#include "Scratch.h"
#include "host/ChildProcess.h"

using ORVANE::TEST::CScratchFolder;
using ORVANE::TEST::ReadWholeFile;
using ORVANE::VCM::CChildProcess;
using ORVANE::VCM::TSpawnOptions;

namespace {

const std::string s_strChild = ORVANE_PROCESS_CHILD;

// A child whose output goes to a file of the folder; returns what it wrote.
std::string RunToFile(const CScratchFolder& cDir, const std::vector<std::string>& astrArgs, TSpawnOptions tOptions,
                      int& nStatus)
{
    const std::string strOut = cDir.File("out");
    int nFd = ::open(strOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_GE(nFd, 0);
    tOptions.nStdOut = nFd;
    CChildProcess cChild;
    EXPECT_EQ(0, cChild.Start(astrArgs, tOptions));
    ORVANE::VCM::CloseDescriptor(nFd);
    nStatus = cChild.Wait();
    return ReadWholeFile(strOut);
}

bool ProcessGone(pid_t nPid)
{
    return ::kill(nPid, 0) != 0 && errno == ESRCH;
}

// A child that waits for the end of its input: it runs until the write end
// of the pipe is closed.
struct TBlockedChild
{
    CChildProcess cChild;
    int anPipe[2] = {-1, -1};

    explicit TBlockedChild(bool bOwnGroup = false, bool bBatch = false)
    {
        EXPECT_TRUE(ORVANE::VCM::MakePipe(anPipe));
        TSpawnOptions tOptions;
        tOptions.nStdIn = anPipe[0];
        tOptions.bOwnProcessGroup = bOwnGroup;
        tOptions.bBatchScheduling = bBatch;
        EXPECT_EQ(0, cChild.Start({s_strChild, "cat"}, tOptions));
        ORVANE::VCM::CloseDescriptor(anPipe[0]);
    }
    ~TBlockedChild() { ORVANE::VCM::CloseDescriptor(anPipe[1]); }
};

} // namespace

TEST(CChildProcess, ExitStatusAndArgumentsExactly)
{
    CScratchFolder cDir("orvane-childtest");
    int nStatus = -1;
    EXPECT_EQ("[a b]\n[$(id)]\n[]\n", RunToFile(cDir, {s_strChild, "args", "a b", "$(id)", ""}, {}, nStatus));
    EXPECT_EQ(0, nStatus);
    CChildProcess cChild;
    ASSERT_EQ(0, cChild.Start({s_strChild, "exit", "42"}));
    EXPECT_TRUE(cChild.IsRunning());
    EXPECT_GT(cChild.GetPid(), 0);
    EXPECT_EQ(42, cChild.Wait());
    EXPECT_FALSE(cChild.IsRunning());
    EXPECT_EQ(-1, cChild.GetPid());
    // Waiting again: no child.
    EXPECT_EQ(-1, cChild.Wait());
}

TEST(CChildProcess, DeathBySignalIs128PlusTheSignal)
{
    CChildProcess cChild;
    ASSERT_EQ(0, cChild.Start({s_strChild, "signal", "9"}));
    EXPECT_EQ(128 + SIGKILL, cChild.Wait());
}

TEST(CChildProcess, StartFailuresGiveTheErrorNumber)
{
    CChildProcess cChild;
    EXPECT_EQ(ENOENT, cChild.Start({"/nonexistent/program"}));
    EXPECT_FALSE(cChild.IsRunning());
    EXPECT_EQ(ENOENT, cChild.Start({"orvane-no-such-program-anywhere"}));
    EXPECT_EQ(ENOENT, cChild.Start({}));
    EXPECT_EQ(EACCES, cChild.Start({"/"}));
    EXPECT_EQ(127, ORVANE::VCM::StartFailureStatus(ENOENT));
    EXPECT_EQ(127, ORVANE::VCM::StartFailureStatus(ENOTDIR));
    EXPECT_EQ(126, ORVANE::VCM::StartFailureStatus(EACCES));
    EXPECT_EQ("No such file or directory", ORVANE::VCM::ErrorText(ENOENT));
}

TEST(CChildProcess, GivenEnvironmentReplacesOurs)
{
    CScratchFolder cDir("orvane-childtest");
    ASSERT_EQ(0, ::setenv("ORVANE_CHILD_TEST_OURS", "ours", 1));
    const std::vector<std::string> astrEnv = {"ORVANE_CHILD_TEST=given value"};
    TSpawnOptions tOptions;
    tOptions.pastrEnvironment = &astrEnv;
    int nStatus = -1;
    EXPECT_EQ("given value\n", RunToFile(cDir, {s_strChild, "env", "ORVANE_CHILD_TEST"}, tOptions, nStatus));
    EXPECT_EQ("<unset>\n", RunToFile(cDir, {s_strChild, "env", "ORVANE_CHILD_TEST_OURS"}, tOptions, nStatus));
    // Without one, ours as it is now.
    EXPECT_EQ("ours\n", RunToFile(cDir, {s_strChild, "env", "ORVANE_CHILD_TEST_OURS"}, {}, nStatus));
    ::unsetenv("ORVANE_CHILD_TEST_OURS");
}

TEST(CChildProcess, WorkingDirectory)
{
    CScratchFolder cDir("orvane-childtest");
    TSpawnOptions tOptions;
    tOptions.strWorkingDirectory = cDir.Path();
    int nStatus = -1;
    char acOurs[4096];
    ASSERT_NE(nullptr, ::getcwd(acOurs, sizeof(acOurs)));
    EXPECT_EQ(cDir.Path() + "\n", RunToFile(cDir, {s_strChild, "cwd"}, tOptions, nStatus));
    EXPECT_EQ(std::string(acOurs) + "\n", RunToFile(cDir, {s_strChild, "cwd"}, {}, nStatus));
    tOptions.strWorkingDirectory = cDir.File("missing");
    CChildProcess cChild;
    EXPECT_EQ(ENOENT, cChild.Start({s_strChild, "cwd"}, tOptions));
}

TEST(CChildProcess, OnlyTheStandardDescriptorsReachTheChild)
{
    CScratchFolder cDir("orvane-childtest");
    // A descriptor of ours without close-on-exec must not leak either.
    const int nLeaky = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(nLeaky, 0);
    int nStatus = -1;
    EXPECT_EQ("", RunToFile(cDir, {s_strChild, "fds"}, {}, nStatus));
    EXPECT_EQ(0, nStatus);
    ::close(nLeaky);
}

TEST(CChildProcess, TryWaitWhileRunningAndAfterTheEnd)
{
    TBlockedChild tBlocked;
    int nStatus = -5;
    EXPECT_FALSE(tBlocked.cChild.TryWait(nStatus));
    EXPECT_EQ(-5, nStatus);
    EXPECT_TRUE(tBlocked.cChild.IsRunning());
    ORVANE::VCM::CloseDescriptor(tBlocked.anPipe[1]);
    EXPECT_EQ(0, tBlocked.cChild.Wait());
    EXPECT_TRUE(tBlocked.cChild.TryWait(nStatus));
    EXPECT_EQ(-1, nStatus);
}

TEST(IsProcessGone, ALiveProcessIsNotGoneAnExitedOneIsBeforeItIsCollected)
{
    TBlockedChild tBlocked;
    const pid_t nPid = tBlocked.cChild.GetPid();
    EXPECT_FALSE(ORVANE::VCM::IsProcessGone(nPid));
    EXPECT_FALSE(ORVANE::VCM::IsProcessGone(::getpid()));
    EXPECT_FALSE(ORVANE::VCM::IsProcessGone(0));
    EXPECT_FALSE(ORVANE::VCM::IsProcessGone(-1));
    EXPECT_TRUE(ORVANE::VCM::IsProcessGone(999999999));
    ORVANE::VCM::CloseDescriptor(tBlocked.anPipe[1]);
    // Ended, with its status not yet collected: only a zombie is left.
    siginfo_t tInfo{};
    ASSERT_EQ(0, ::waitid(P_PID, static_cast<id_t>(nPid), &tInfo, WEXITED | WNOWAIT));
    EXPECT_TRUE(ORVANE::VCM::IsProcessGone(nPid));
    EXPECT_EQ(0, tBlocked.cChild.Wait());
}

TEST(CChildProcess, SignalReachesTheChildsOwnGroup)
{
    TBlockedChild tBlocked(true);
    const pid_t nPid = tBlocked.cChild.GetPid();
    EXPECT_EQ(nPid, ::getpgid(nPid));
    EXPECT_NE(::getpgrp(), ::getpgid(nPid));
    EXPECT_TRUE(tBlocked.cChild.Signal(SIGTERM));
    EXPECT_EQ(128 + SIGTERM, tBlocked.cChild.Wait());
    EXPECT_FALSE(tBlocked.cChild.Signal(SIGTERM));
}

TEST(CChildProcess, WithoutItsOwnGroupItSharesOurs)
{
    TBlockedChild tBlocked(false);
    EXPECT_EQ(::getpgrp(), ::getpgid(tBlocked.cChild.GetPid()));
    EXPECT_TRUE(tBlocked.cChild.Signal(SIGINT));
    EXPECT_EQ(128 + SIGINT, tBlocked.cChild.Wait());
}

TEST(CChildProcess, ABatchChildIsScheduledAsBatchWorkAndOthersAreNot)
{
    TBlockedChild tBatch(false, true);
    TBlockedChild tOther(false, false);
    EXPECT_EQ(SCHED_BATCH, ::sched_getscheduler(tBatch.cChild.GetPid()));
    EXPECT_EQ(SCHED_OTHER, ::sched_getscheduler(tOther.cChild.GetPid()));
    // This process is left as it was.
    EXPECT_EQ(SCHED_OTHER, ::sched_getscheduler(0));
    EXPECT_TRUE(tBatch.cChild.Signal(SIGTERM));
    EXPECT_EQ(128 + SIGTERM, tBatch.cChild.Wait());
    EXPECT_TRUE(tOther.cChild.Signal(SIGTERM));
    EXPECT_EQ(128 + SIGTERM, tOther.cChild.Wait());
}

TEST(CChildProcess, NoChildOutlivesItsOwner)
{
    pid_t nPid = -1;
    {
        TBlockedChild tBlocked;
        nPid = tBlocked.cChild.GetPid();
        ASSERT_GT(nPid, 0);
    }
    // Killed and reaped: neither a process nor a zombie is left.
    EXPECT_TRUE(ProcessGone(nPid));
    int nStatus = 0;
    EXPECT_EQ(-1, ::waitpid(nPid, &nStatus, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

TEST(CChildProcess, MovedChildIsOwnedByItsNewOwner)
{
    TBlockedChild tBlocked;
    const pid_t nPid = tBlocked.cChild.GetPid();
    CChildProcess cMoved(std::move(tBlocked.cChild));
    EXPECT_FALSE(tBlocked.cChild.IsRunning());
    EXPECT_EQ(nPid, cMoved.GetPid());
    // Moving onto a running child ends that one first.
    TBlockedChild tOther;
    const pid_t nOther = tOther.cChild.GetPid();
    tOther.cChild = std::move(cMoved);
    EXPECT_TRUE(ProcessGone(nOther));
    EXPECT_EQ(nPid, tOther.cChild.GetPid());
    ORVANE::VCM::CloseDescriptor(tBlocked.anPipe[1]);
    EXPECT_EQ(0, tOther.cChild.Wait());
}

TEST(CChildProcess, UsageIsReportedAfterTheWait)
{
    CChildProcess cChild;
    ASSERT_EQ(0, cChild.Start({s_strChild, "exit", "0"}));
    ASSERT_EQ(0, cChild.Wait());
    // Every process has a resident set; the child's own peak is reported.
    EXPECT_GT(cChild.GetUsage().ru_maxrss, 0);
}

TEST(ChildDescriptors, PipesStayAboveTheStandardDescriptors)
{
    const int nSaved = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
    ASSERT_GE(nSaved, 0);
    ::close(STDIN_FILENO);
    int anPipe[2];
    const bool bMade = ORVANE::VCM::MakePipe(anPipe);
    ::dup2(nSaved, STDIN_FILENO);
    ::close(nSaved);
    ASSERT_TRUE(bMade);
    EXPECT_GT(anPipe[0], STDERR_FILENO);
    EXPECT_GT(anPipe[1], STDERR_FILENO);
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(anPipe[0], F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(anPipe[1], F_GETFD) & FD_CLOEXEC);
    ASSERT_TRUE(ORVANE::VCM::WriteAll(anPipe[1], "abc", 3));
    char ac[4] = {0};
    EXPECT_EQ(3, ::read(anPipe[0], ac, sizeof(ac)));
    EXPECT_STREQ("abc", ac);
    ORVANE::VCM::CloseDescriptor(anPipe[0]);
    EXPECT_EQ(-1, anPipe[0]);
    ORVANE::VCM::CloseDescriptor(anPipe[0]); // closing twice is harmless
    ORVANE::VCM::CloseDescriptor(anPipe[1]);
}

TEST(CChildProcess, ExtraDescriptorsArriveAsThreeFourAndNoOthers)
{
    CScratchFolder cDir("orvane-childtest");
    int anFirst[2], anSecond[2];
    ASSERT_TRUE(ORVANE::VCM::MakePipe(anFirst));
    ASSERT_TRUE(ORVANE::VCM::MakePipe(anSecond));
    TSpawnOptions tOptions;
    // In the opposite order of their numbers, so that one would overwrite
    // the other without care.
    tOptions.anExtraFds = {anSecond[1], anFirst[1]};
    int nStatus = -1;
    EXPECT_EQ("3\n4\n", RunToFile(cDir, {s_strChild, "fds"}, tOptions, nStatus));
    EXPECT_EQ(0, nStatus);
    for (int* pn : {&anFirst[0], &anFirst[1], &anSecond[0], &anSecond[1]})
        ORVANE::VCM::CloseDescriptor(*pn);
}
