// A long-running child with pipes both ways: what it is sent comes back,
// its input pipe is large enough for a writer not to wait on it, and it
// runs as batch work.
#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>

#include <fstream>

#include "Process.h"

using namespace ORVANE::IMP;

namespace {

// The largest pipe that this process may ask for: any size for the super
// user, else up to the system's limit.
size_t GrantedPipeBytes(size_t nWanted)
{
    if (::geteuid() == 0)
        return nWanted;
    size_t nLimit = 0;
    std::ifstream("/proc/sys/fs/pipe-max-size") >> nLimit;
    size_t n = nWanted;
    while (n > nLimit && n > (64u << 10))
        n /= 2;
    return n;
}

} // namespace

TEST(Child, SendsToTheChildAndReadsItsLines)
{
    CChild cChild;
    std::string strError;
    ASSERT_TRUE(cChild.Start({"cat"}, &strError)) << strError;
    EXPECT_GT(cChild.Pid(), 0);
    ASSERT_TRUE(cChild.Write("first line\nsecond"));
    ASSERT_TRUE(cChild.Write(std::string(" line\n")));
    std::string strLine;
    ASSERT_TRUE(cChild.ReadLine(strLine));
    EXPECT_EQ("first line", strLine);
    ASSERT_TRUE(cChild.ReadLine(strLine));
    EXPECT_EQ("second line", strLine);
    EXPECT_EQ(0, cChild.Finish());
    EXPECT_EQ(0u, cChild.InputPipeBytes());
}

TEST(Child, ItsInputPipeHoldsAMebibyteWhereTheSystemGrantsIt)
{
    CChild cChild;
    EXPECT_EQ(0u, cChild.InputPipeBytes());
    std::string strError;
    ASSERT_TRUE(cChild.Start({"cat"}, &strError)) << strError;
    EXPECT_EQ(GrantedPipeBytes(1u << 20), cChild.InputPipeBytes());
    EXPECT_EQ(0, cChild.Finish());
}

TEST(Child, RunsAsBatchWorkThatNeverTakesTheProcessorFromItsWriter)
{
    CChild cChild;
    std::string strError;
    ASSERT_TRUE(cChild.Start({"cat"}, &strError)) << strError;
    EXPECT_EQ(SCHED_BATCH, ::sched_getscheduler(cChild.Pid()));
    EXPECT_EQ(SCHED_OTHER, ::sched_getscheduler(0));
    EXPECT_EQ(0, cChild.Finish());
}

TEST(Child, AProgramThatIsNotThereIsNamed)
{
    CChild cChild;
    std::string strError;
    // A path, not a name looked up along PATH: a folder there that this
    // user may not search would make it "Permission denied".
    EXPECT_FALSE(cChild.Start({"/nonexistent/orvane-no-such-program"}, &strError));
    EXPECT_EQ("cannot run /nonexistent/orvane-no-such-program: No such file or directory", strError);
    EXPECT_EQ(0u, cChild.InputPipeBytes());
}
