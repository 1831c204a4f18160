// Progress lines on a clock the test moves.
#include <algorithm>

#include <gtest/gtest.h>

#include "Progress.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;

namespace {

class CProgressTest : public ::testing::Test
{
protected:
    CProgressTest() : m_cProgress(m_cFile.File(), [this] { return m_tNow; }) {}
    void Advance(int nMilliseconds) { m_tNow += std::chrono::milliseconds(nMilliseconds); }

    enginetest::CMemoryFile m_cFile;
    CProgress::TClock::time_point m_tNow;
    CProgress m_cProgress;
};

} // namespace

TEST_F(CProgressTest, ALineASecondWhenNoTerminal)
{
    m_cProgress.Start(true, false);
    m_cProgress.SetTotal(10);
    Advance(500);
    m_cProgress.CountChange();
    m_cProgress.Show("main", false);
    EXPECT_EQ("", m_cFile.Text());
    Advance(500);
    m_cProgress.CountChange();
    m_cProgress.Show("main", false);
    EXPECT_EQ("stream main: change 2 of 10, 2.0 changes/s, 0:04 left\n", m_cFile.Text());
    Advance(999);
    m_cProgress.CountChange();
    m_cProgress.Show("main", false);
    // The last line is still the newest; the final one shows the rest.
    m_cProgress.Show("rel1", true);
    EXPECT_EQ("stream main: change 2 of 10, 2.0 changes/s, 0:04 left\n"
              "stream rel1: change 3 of 10, 1.5 changes/s, 0:05 left\n",
              m_cFile.Text());
    m_cProgress.Show("rel1", true);
    EXPECT_EQ(3u, m_cProgress.Done());
    const std::string strText = m_cFile.Text();
    EXPECT_EQ(2, std::count(strText.begin(), strText.end(), '\n'));
}

TEST_F(CProgressTest, OneLineRewrittenOnATerminal)
{
    m_cProgress.Start(true, true);
    m_cProgress.SetTotal(200);
    Advance(100);
    m_cProgress.CountChange();
    m_cProgress.Show("main", false);
    Advance(150);
    m_cProgress.CountChange();
    m_cProgress.Show("main", false);
    m_cProgress.BreakLine();
    m_cProgress.BreakLine();
    // Nothing new: the final line is not needed.
    Advance(1000);
    m_cProgress.Show("main", true);
    m_cProgress.CountChange();
    m_cProgress.Show("main", true);
    EXPECT_EQ("\rstream main: change 1 of 200, 10.0 changes/s, 0:20 left\033[K"
              "\rstream main: change 2 of 200, 8.0 changes/s, 0:25 left\033[K"
              "\n"
              "\rstream main: change 3 of 200, 2.4 changes/s, 1:22 left\033[K\n",
              m_cFile.Text());
}

TEST_F(CProgressTest, NoRateNoTimeLeft)
{
    m_cProgress.Start(true, false);
    m_cProgress.SetTotal(3);
    m_cProgress.Show("main", true);
    EXPECT_EQ("stream main: change 0 of 3, 0.0 changes/s, - left\n", m_cFile.Text());
    // More done than announced: no time left to tell.
    Advance(2000);
    for (int i = 0; i < 4; ++i)
        m_cProgress.CountChange();
    m_cProgress.Show("main", false);
    EXPECT_EQ("stream main: change 0 of 3, 0.0 changes/s, - left\n"
              "stream main: change 4 of 3, 2.0 changes/s, - left\n",
              m_cFile.Text());
}

TEST_F(CProgressTest, HiddenShowsNothing)
{
    m_cProgress.Start(false, true);
    m_cProgress.CountChange();
    Advance(5000);
    m_cProgress.Show("main", false);
    m_cProgress.Show("main", true);
    m_cProgress.BreakLine();
    EXPECT_EQ("", m_cFile.Text());
    EXPECT_EQ(1u, m_cProgress.Done());
}
