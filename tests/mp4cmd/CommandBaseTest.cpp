// The command runner: the command line it builds, what it logs, how it
// reports a failure.
#include <cstdlib>
#include <filesystem>

#include "TestSupport.h"

namespace mp4test {
namespace {

using ORVANE::MP4::CBranchesCmd;
using ORVANE::MP4::CCommandBase;

const char* const s_pszOneBranch =
    R"({"branches":[{"name":"rel1","view":["//depot/main/... //depot/rel1/..."]}]})";

class CommandBaseTest : public CCommandTest
{
protected:
    void TearDown() override
    {
        if (m_bPathSaved)
            ::setenv("PATH", m_strSavedPath.c_str(), 1);
        CCommandTest::TearDown();
    }

    // A folder with a link named p4 to p4sim; returns the link's path.
    std::string LinkP4(bool bOnPath)
    {
        const std::string strBin = m_strTemp + "/bin";
        std::filesystem::create_directories(strBin);
        std::filesystem::create_symlink(g_pszP4Sim, strBin + "/p4");
        if (bOnPath)
        {
            const char* pszPath = std::getenv("PATH");
            m_strSavedPath = pszPath ? pszPath : "";
            m_bPathSaved = true;
            ::setenv("PATH", (strBin + ":" + m_strSavedPath).c_str(), 1);
        }
        return strBin + "/p4";
    }

    std::string m_strSavedPath;
    bool m_bPathSaved = false;
};

TEST_F(CommandBaseTest, DefaultExecutableIsP4FromTheSearchPath)
{
    EXPECT_EQ(W(CCommandBase::s_strP4Executable), L"p4");
    Server(s_pszOneBranch);
    CCommandBase::SetP4Executable(L"p4");
    LinkP4(true);

    CBranchesCmd cCmd;
    EXPECT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    EXPECT_EQ(Log(), "42: Performing command p4 -G branches\n");
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["argv"], nlohmann::json({"p4", "-G", "branches"}));
    EXPECT_EQ(aJournal[0]["args"], "-G branches");
    EXPECT_EQ(aJournal[0]["exit"], 0);
}

TEST_F(CommandBaseTest, ConfiguredPathStartsEveryCommand)
{
    CCommandBase::SetP4Executable(L"/opt/p4/bin/p4");
    EXPECT_EQ(W(CCommandBase::s_strP4Executable), L"/opt/p4/bin/p4");
    CReaderCmd cCmd;
    EXPECT_FALSE(cCmd.Execute(L"-G branches"));
    EXPECT_FALSE(cCmd.Execute(L"-G changes //depot/main/..."));
    // The program does not exist: the capture reports it on standard error
    // with the status 127, and that is the failure logged.
    EXPECT_EQ(Log(), "42: Performing command /opt/p4/bin/p4 -G branches\n"
                     "42:  Command failure (127) - cannot run '/opt/p4/bin/p4': No such file or directory \n"
                     "42: Performing command /opt/p4/bin/p4 -G changes //depot/main/...\n"
                     "42:  Command failure (127) - cannot run '/opt/p4/bin/p4': No such file or directory \n");
}

TEST_F(CommandBaseTest, ConfiguredPathIsTheProgramThatRuns)
{
    Server(s_pszOneBranch);
    const std::string strLink = LinkP4(false);
    CCommandBase::SetP4Executable(CString(wxString(strLink)));

    CBranchesCmd cCmd;
    EXPECT_TRUE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    EXPECT_EQ(Log(), "42: Performing command " + strLink + " -G branches\n");
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["argv"], nlohmann::json({strLink, "-G", "branches"}));
}

TEST_F(CommandBaseTest, EmptyExecutableGivesALineStartingWithABlank)
{
    CCommandBase::SetP4Executable(L"");
    CReaderCmd cCmd;
    EXPECT_FALSE(cCmd.Execute(L"-G branches"));
    // The line is split at blanks: the first word is taken for the program.
    EXPECT_EQ(Log(), "42: Performing command  -G branches\n"
                     "42:  Command failure (127) - cannot run '-G': No such file or directory \n");
}

TEST_F(CommandBaseTest, FailureLogsOnlyTheFirstLineOfStandardError)
{
    Server(s_pszOneBranch);
    ::setenv("P4SIM_FAIL", "^-G branches$", 1);
    CBranchesCmd cCmd;
    EXPECT_FALSE(cCmd.EnumBranchesForPath(Path(L"//depot")));
    EXPECT_EQ(Log(), std::string("42: Performing command ") + g_pszP4Sim +
                         " -G branches\n"
                         "42:  Command failure (1) - p4sim: simulated failure of '-G branches' \n");
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["exit"], 1);
}

TEST_F(CommandBaseTest, FailureWithOtherStatusAndLineEnds)
{
    Feed("-G one", "", "first line\r\nsecond line\n", 3);
    Feed("-G two", "", "", 5);
    Feed("-G three", "", "no line end", 1);
    Feed("-G four", "", "x", 1);
    CReaderCmd cCmd;
    EXPECT_FALSE(cCmd.Execute(L"-G one"));
    EXPECT_FALSE(cCmd.Execute(L"-G two"));
    EXPECT_FALSE(cCmd.Execute(L"-G three"));
    EXPECT_FALSE(cCmd.Execute(L"-G four"));
    const std::string strFeeder = g_pszFeeder;
    EXPECT_EQ(Log(), "42: Performing command " + strFeeder +
                         " -G one\n"
                         "42:  Command failure (3) - first line \n"
                         "42: Performing command " +
                         strFeeder +
                         " -G two\n"
                         "42:  Command failure (5) -  \n"
                         "42: Performing command " +
                         strFeeder +
                         " -G three\n"
                         "42:  Command failure (1) - no line end \n"
                         "42: Performing command " +
                         strFeeder +
                         " -G four\n"
                         "42:  Command failure (1) - x \n");
}

TEST_F(CommandBaseTest, FailureTextInUtf8)
{
    Feed("default", "", "Gr\xC3\xBC\xC3\x9F" "e \xE2\x9C\x93\n", 2);
    CReaderCmd cCmd;
    EXPECT_FALSE(cCmd.Execute(L"-G x"));
    EXPECT_EQ(Log(), std::string("42: Performing command ") + g_pszFeeder +
                         " -G x\n42:  Command failure (2) - Gr\xC3\xBC\xC3\x9F" "e \xE2\x9C\x93 \n");
}

TEST_F(CommandBaseTest, StandardErrorOfASuccessIsNotLogged)
{
    Feed("default", MarshalRecord({{"code", "stat"}}), "warning: something\n", 0);
    CReaderCmd cCmd;
    EXPECT_TRUE(cCmd.Execute(L"-G x"));
    CString strKey, strValue;
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 1);
    EXPECT_EQ(W(strKey), L"code");
    EXPECT_EQ(W(strValue), L"stat");
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 3);
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 0);
    EXPECT_EQ(Log(), std::string("42: Performing command ") + g_pszFeeder + " -G x\n");
}

TEST_F(CommandBaseTest, OneObjectRunsCommandAfterCommand)
{
    Feed("-G one", MarshalRecord({{"n", "1"}}));
    Feed("-G two", MarshalRecord({{"n", "2"}}));
    CReaderCmd cCmd;
    CString strKey, strValue;
    ASSERT_TRUE(cCmd.Execute(L"-G one"));
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 1);
    EXPECT_EQ(W(strValue), L"1");
    // The second run starts over, whatever was left unread of the first.
    ASSERT_TRUE(cCmd.Execute(L"-G two"));
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 1);
    EXPECT_EQ(W(strValue), L"2");
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 3);
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 0);
    EXPECT_EQ(FeedArgs(), (std::vector<std::string>{"-G one", "-G two"}));
}

TEST_F(CommandBaseTest, InputStreamFeedsTheChild)
{
    Server("{}");
    CReaderCmd cCmd;
    wxOutputStream* pInput = cCmd.GetStdInputStream();
    ASSERT_NE(pInput, nullptr);
    const std::string strForm = "Client: c1\nRoot: /tmp/c1\nView:\n\t//depot/... //c1/...\n";
    pInput->Write(strForm.data(), strForm.size());
    EXPECT_TRUE(cCmd.Execute(L"client -i"));
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["stdin"], strForm);
    EXPECT_EQ(aJournal[0]["exit"], 0);
}

} // namespace
} // namespace mp4test
