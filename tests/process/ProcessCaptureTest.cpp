#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <wx/utils.h>

#include "ProcessPattern.h"
#include "Scratch.h"
#include "host/ProcessCapture.h"

using ORVANE::VCM::CProcessCapture;
using ORVANE::VCM::CString;

namespace
{

const size_t s_nMiB = 1024 * 1024;

CString ToCString(const std::string& str)
{
    return CString(wxString(str.c_str(), wxConvLibc));
}

// The test child, quoted (its path might hold blanks), followed by arguments.
CString Child(const std::string& strArgs)
{
    return ToCString(std::string("\"") + ORVANE_PROCESS_CHILD + "\" " + strArgs);
}

// Everything left in the stream, read in big pieces.
std::string ReadAll(wxInputStream* pStream)
{
    std::string str;
    std::vector<char> ac(64 * 1024);
    while (!pStream->Eof())
    {
        pStream->Read(ac.data(), ac.size());
        const size_t n = pStream->LastRead();
        if (n == 0)
            break;
        str.append(ac.data(), n);
    }
    return str;
}

std::string Out(CProcessCapture& cCapture)
{
    return ReadAll(cCapture.GetStdOutputStream());
}

std::string Err(CProcessCapture& cCapture)
{
    return ReadAll(cCapture.GetStdErrorStream());
}

void Feed(CProcessCapture& cCapture, const std::string& str)
{
    wxOutputStream* pIn = cCapture.GetStdInputStream();
    ASSERT_NE(nullptr, pIn);
    pIn->Write(str.data(), str.size());
    ASSERT_EQ(str.size(), pIn->LastWrite());
}

std::string Pattern(size_t nCount, uint64_t nStart = 0)
{
    std::string str(nCount, '\0');
    ORVANE::TEST::FillPattern(reinterpret_cast<unsigned char*>(&str[0]), nCount, nStart);
    return str;
}

// A field of /proc/self/status in kB ("VmHWM", "VmRSS").
long StatusKiB(const char* pszField)
{
    std::ifstream cFile("/proc/self/status");
    std::string strLine;
    const std::string strPrefix = std::string(pszField) + ":";
    while (std::getline(cFile, strLine))
    {
        if (strLine.compare(0, strPrefix.size(), strPrefix) == 0)
            return std::atol(strLine.c_str() + strPrefix.size());
    }
    return -1;
}

int CountOpenFds()
{
    DIR* pDir = opendir("/proc/self/fd");
    if (!pDir)
        return -1;
    int n = 0;
    while (const dirent* pEntry = readdir(pDir))
    {
        if (pEntry->d_name[0] != '.')
            ++n;
    }
    closedir(pDir);
    return n - 1; // the directory's own descriptor
}

bool FileExists(const std::string& strPath)
{
    struct stat cStat;
    return stat(strPath.c_str(), &cStat) == 0;
}

std::string Unique(const char* pszTag)
{
    return std::string(pszTag) + "-" + std::to_string(getpid());
}

bool CopyFile(const std::string& strFrom, const std::string& strTo, mode_t nMode)
{
    std::ifstream cIn(strFrom, std::ios::binary);
    std::ofstream cOut(strTo, std::ios::binary);
    cOut << cIn.rdbuf();
    cOut.close();
    return cIn.good() && cOut.good() && chmod(strTo.c_str(), nMode) == 0;
}

bool NoChildLeft()
{
    int nStatus = 0;
    return waitpid(-1, &nStatus, WNOHANG) == -1 && errno == ECHILD;
}

volatile sig_atomic_t s_nAlarms = 0;

void OnAlarm(int)
{
    s_nAlarms = s_nAlarms + 1;
}

} // namespace

// --- command line splitting -------------------------------------------------

TEST(CProcessCapture, SplitsAtRunsOfBlanks)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("args   a  b\tc\t \td   ")));
    EXPECT_EQ("[a]\n[b]\n[c]\n[d]\n", Out(cCapture));
    EXPECT_EQ("", Err(cCapture));
}

TEST(CProcessCapture, QuotedArgumentWithBlanksIsOneArgument)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("args sync \"/tmp/my ws/...@42\"")));
    EXPECT_EQ("[sync]\n[/tmp/my ws/...@42]\n", Out(cCapture));
}

TEST(CProcessCapture, QuotesJoinWithNeighbouringText)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("args ab\"c d\"e \"x\"\"y\" \"  \"")));
    EXPECT_EQ("[abc de]\n[xy]\n[  ]\n", Out(cCapture));
}

TEST(CProcessCapture, EmptyQuotedArgumentIsKept)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("args \"\" x \"\"")));
    EXPECT_EQ("[]\n[x]\n[]\n", Out(cCapture));
}

TEST(CProcessCapture, UnterminatedQuoteRunsToTheEnd)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("args a \"b c")));
    EXPECT_EQ("[a]\n[b c]\n", Out(cCapture));
}

TEST(CProcessCapture, ArgumentsGivenOneByOneArePassedExactly)
{
    CProcessCapture cCapture;
    // Quotes, blanks, an empty argument and shell syntax: nothing is split,
    // unquoted or interpreted.
    ASSERT_EQ(0, cCapture.Execute(std::vector<std::string>{ORVANE_PROCESS_CHILD, "args", "a \"b\" c", "", "$(id)",
                                                           "x;y"}));
    EXPECT_EQ("[a \"b\" c]\n[]\n[$(id)]\n[x;y]\n", Out(cCapture));
    EXPECT_EQ("", Err(cCapture));

    // Input written before the call reaches the child, as with a command line.
    cCapture.GetStdInputStream()->Write("piped\n", 6);
    ASSERT_EQ(0, cCapture.Execute(std::vector<std::string>{ORVANE_PROCESS_CHILD, "cat"}));
    EXPECT_EQ("piped\n", Out(cCapture));
}

TEST(CProcessCapture, NoArgumentsOrAMissingProgramGivenOneByOne)
{
    CProcessCapture cCapture;
    EXPECT_EQ(127, cCapture.Execute(std::vector<std::string>{}));
    EXPECT_EQ("cannot run '': empty command line\n", Err(cCapture));
    EXPECT_EQ(127, cCapture.Execute(std::vector<std::string>{"/nonexistent-orvane-dir/p4", "-G", "info"}));
    EXPECT_EQ("cannot run '/nonexistent-orvane-dir/p4': No such file or directory\n", Err(cCapture));
    EXPECT_EQ("", Out(cCapture));
}

TEST(CProcessCapture, ProgramPathWithBlanksInQuotes)
{
    ORVANE::TEST::CScratchFolder cDir("orvane-proctest");
    ASSERT_FALSE(cDir.Path().empty());
    const std::string strFolder = cDir.Path() + "/my tools";
    ASSERT_EQ(0, mkdir(strFolder.c_str(), 0700));
    const std::string strProgram = strFolder + "/child copy";
    ASSERT_TRUE(CopyFile(ORVANE_PROCESS_CHILD, strProgram, 0700));

    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(ToCString("\"" + strProgram + "\" args one \"two three\"")));
    EXPECT_EQ("[one]\n[two three]\n", Out(cCapture));
}

TEST(CProcessCapture, ShellSyntaxReachesTheChildLiterally)
{
    const std::string strPwnedA = "/tmp/" + Unique("orvane-pwned-a");
    const std::string strPwnedB = "/tmp/" + Unique("orvane-pwned-b");
    const std::string strPwnedC = "/tmp/" + Unique("orvane-pwned-c");
    const std::string strPwnedD = "/tmp/" + Unique("orvane-pwned-d");
    for (const std::string& str : {strPwnedA, strPwnedB, strPwnedC, strPwnedD})
        unlink(str.c_str());

    CProcessCapture cCapture;
    const std::string strArgs = "args x;touch " + strPwnedA + " $(id) `id` \"$(touch " + strPwnedB + ")\" \"`touch " +
                                strPwnedC + "`\" a|b >" + strPwnedD + " && * ~ $HOME 'single' \\n %s";
    ASSERT_EQ(0, cCapture.Execute(Child(strArgs)));
    EXPECT_EQ("[x;touch]\n[" + strPwnedA + "]\n[$(id)]\n[`id`]\n[$(touch " + strPwnedB + ")]\n[`touch " + strPwnedC +
                  "`]\n[a|b]\n[>" + strPwnedD + "]\n[&&]\n[*]\n[~]\n[$HOME]\n['single']\n[\\n]\n[%s]\n",
              Out(cCapture));
    EXPECT_EQ("", Err(cCapture));
    EXPECT_FALSE(FileExists(strPwnedA));
    EXPECT_FALSE(FileExists(strPwnedB));
    EXPECT_FALSE(FileExists(strPwnedC));
    EXPECT_FALSE(FileExists(strPwnedD));
}

// --- exit statuses and start failures ----------------------------------------

TEST(CProcessCapture, ExitStatusIsReturned)
{
    CProcessCapture cCapture;
    EXPECT_EQ(0, cCapture.Execute(Child("exit 0")));
    EXPECT_EQ(1, cCapture.Execute(Child("exit 1")));
    EXPECT_EQ(42, cCapture.Execute(Child("exit 42")));
    EXPECT_EQ(127, cCapture.Execute(Child("exit 127")));
    EXPECT_EQ(255, cCapture.Execute(Child("exit 255")));
    EXPECT_EQ("", Out(cCapture));
    EXPECT_EQ("", Err(cCapture));
}

TEST(CProcessCapture, DeathBySignalGives128PlusSignal)
{
    CProcessCapture cCapture;
    EXPECT_EQ(128 + SIGTERM, cCapture.Execute(Child("signal 15")));
    EXPECT_EQ(128 + SIGKILL, cCapture.Execute(Child("signal 9")));
}

TEST(CProcessCapture, ProgramNotFound)
{
    const std::string strName = Unique("nosuchprog");
    CProcessCapture cCapture;
    EXPECT_EQ(127, cCapture.Execute(ToCString(strName + " -G branches")));
    EXPECT_EQ("", Out(cCapture));
    EXPECT_EQ("cannot run '" + strName + "': No such file or directory\n", Err(cCapture));

    EXPECT_EQ(127, cCapture.Execute(CString(L"/nonexistent-orvane-dir/p4 info")));
    EXPECT_EQ("cannot run '/nonexistent-orvane-dir/p4': No such file or directory\n", Err(cCapture));

    // An empty program name is not found either.
    EXPECT_EQ(127, cCapture.Execute(CString(L"\"\" x")));
    EXPECT_EQ("cannot run '': No such file or directory\n", Err(cCapture));
}

TEST(CProcessCapture, ProgramNotExecutable)
{
    ORVANE::TEST::CScratchFolder cDir("orvane-proctest");
    ASSERT_FALSE(cDir.Path().empty());
    const std::string strFile = cDir.Path() + "/plain";
    ASSERT_TRUE(CopyFile(ORVANE_PROCESS_CHILD, strFile, 0644));

    CProcessCapture cCapture;
    EXPECT_EQ(126, cCapture.Execute(ToCString(strFile + " args x")));
    EXPECT_EQ("", Out(cCapture));
    EXPECT_EQ("cannot run '" + strFile + "': Permission denied\n", Err(cCapture));

    EXPECT_EQ(126, cCapture.Execute(ToCString(cDir.Path())));
    EXPECT_EQ("cannot run '" + cDir.Path() + "': Permission denied\n", Err(cCapture));
}

TEST(CProcessCapture, EmptyCommandLine)
{
    CProcessCapture cCapture;
    EXPECT_EQ(127, cCapture.Execute(CString()));
    EXPECT_EQ("", Out(cCapture));
    EXPECT_EQ("cannot run '': empty command line\n", Err(cCapture));

    EXPECT_EQ(127, cCapture.Execute(CString(L" \t  ")));
    EXPECT_EQ("cannot run '': empty command line\n", Err(cCapture));
}

TEST(CProcessCapture, StartFailureDropsTheInputAndTheNextCommandRuns)
{
    CProcessCapture cCapture;
    Feed(cCapture, "left over");
    EXPECT_EQ(127, cCapture.Execute(ToCString(Unique("nosuchprog"))));
    ASSERT_EQ(0, cCapture.Execute(Child("cat")));
    EXPECT_EQ("", Out(cCapture));
    EXPECT_EQ("", Err(cCapture));
}

TEST(CProcessCapture, ProgramIsFoundThroughPath)
{
    wxString strOldPath;
    const bool bHadPath = wxGetEnv("PATH", &strOldPath);
    ASSERT_TRUE(wxSetEnv("PATH", wxString(ORVANE_PROCESS_CHILD_DIR) + ":/usr/bin:/bin"));

    CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(ToCString(std::string(ORVANE_PROCESS_CHILD_NAME) + " args via-path"));
    const std::string strOut = Out(cCapture);

    if (bHadPath)
        wxSetEnv("PATH", strOldPath);
    else
        wxUnsetEnv("PATH");
    EXPECT_EQ(0, nStatus);
    EXPECT_EQ("[via-path]\n", strOut);
}

// --- environment and process state ------------------------------------------

TEST(CProcessCapture, ChildSeesEnvironmentSetJustBefore)
{
    CProcessCapture cCapture;
    ASSERT_TRUE(wxSetEnv("ORVANE_PROCESS_TEST_VAR", "value with blanks 42"));
    ASSERT_EQ(0, cCapture.Execute(Child("env ORVANE_PROCESS_TEST_VAR")));
    EXPECT_EQ("value with blanks 42\n", Out(cCapture));

    ASSERT_TRUE(wxSetEnv("ORVANE_PROCESS_TEST_VAR", "changed"));
    ASSERT_EQ(0, cCapture.Execute(Child("env ORVANE_PROCESS_TEST_VAR")));
    EXPECT_EQ("changed\n", Out(cCapture));

    ASSERT_TRUE(wxUnsetEnv("ORVANE_PROCESS_TEST_VAR"));
    ASSERT_EQ(0, cCapture.Execute(Child("env ORVANE_PROCESS_TEST_VAR")));
    EXPECT_EQ("<unset>\n", Out(cCapture));
}

TEST(CProcessCapture, ChildRunsInTheCallersWorkingDirectory)
{
    ORVANE::TEST::CScratchFolder cDir("orvane-proctest");
    ASSERT_FALSE(cDir.Path().empty());
    std::vector<char> acOld(4096);
    ASSERT_NE(nullptr, getcwd(acOld.data(), acOld.size()));
    ASSERT_EQ(0, chdir(cDir.Path().c_str()));
    std::vector<char> acNow(4096);
    ASSERT_NE(nullptr, getcwd(acNow.data(), acNow.size()));

    CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(Child("cwd"));
    const std::string strOut = Out(cCapture);
    ASSERT_EQ(0, chdir(acOld.data()));

    EXPECT_EQ(0, nStatus);
    EXPECT_EQ(std::string(acNow.data()) + "\n", strOut);
}

TEST(CProcessCapture, ChildStartsWithDefaultSignalsAndEmptyMask)
{
    sigset_t cBlock;
    sigemptyset(&cBlock);
    sigaddset(&cBlock, SIGUSR1);
    sigaddset(&cBlock, SIGTERM);
    sigset_t cOldMask;
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &cBlock, &cOldMask));
    struct sigaction cIgnore;
    std::memset(&cIgnore, 0, sizeof(cIgnore));
    cIgnore.sa_handler = SIG_IGN;
    struct sigaction cOldUsr2, cOldPipe, cOldInt;
    ASSERT_EQ(0, sigaction(SIGUSR2, &cIgnore, &cOldUsr2));
    ASSERT_EQ(0, sigaction(SIGPIPE, &cIgnore, &cOldPipe));
    ASSERT_EQ(0, sigaction(SIGINT, &cIgnore, &cOldInt));

    CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(Child("sigstate"));
    const std::string strOut = Out(cCapture);

    sigaction(SIGUSR2, &cOldUsr2, nullptr);
    sigaction(SIGPIPE, &cOldPipe, nullptr);
    sigaction(SIGINT, &cOldInt, nullptr);
    pthread_sigmask(SIG_SETMASK, &cOldMask, nullptr);

    EXPECT_EQ(0, nStatus);
    EXPECT_EQ("blocked=0 ignored=0\n", strOut);
}

TEST(CProcessCapture, NoDescriptorLeaksIntoTheChild)
{
    // Descriptors someone else opened without close-on-exec.
    const int nNull = open("/dev/null", O_RDONLY);
    ASSERT_GE(nNull, 0);
    int anPipe[2];
    ASSERT_EQ(0, pipe(anPipe));

    CProcessCapture cCapture;
    Feed(cCapture, "some input");
    const int nStatus = cCapture.Execute(Child("fds"));
    const std::string strOut = Out(cCapture);
    close(nNull);
    close(anPipe[0]);
    close(anPipe[1]);

    EXPECT_EQ(0, nStatus);
    EXPECT_EQ("", strOut);
}

TEST(CProcessCapture, NonAsciiTextUsesTheCLibraryLocale)
{
    const std::string strOld = std::setlocale(LC_ALL, nullptr);
    if (!std::setlocale(LC_ALL, "C.UTF-8"))
        GTEST_SKIP() << "no C.UTF-8 locale";
    CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(Child("") + CString(L"hex \u00e9t\u00e9 \u20ac"));
    const std::string strOut = Out(cCapture);

    // Under the C locale the same text cannot be converted: the command is
    // not run, and the error stream says why on one line.
    std::setlocale(LC_ALL, "C");
    const int nStatusC = cCapture.Execute(Child("") + CString(L"hex \u00e9t\u00e9"));
    const std::string strErrC = Err(cCapture);
    std::setlocale(LC_ALL, strOld.c_str());

    EXPECT_EQ(0, nStatus);
    EXPECT_EQ("c3a974c3a9\ne282ac\n", strOut);
    EXPECT_NE(0, nStatusC);
    EXPECT_EQ("cannot run '" + std::string(ORVANE_PROCESS_CHILD) +
                  "': the command line cannot be represented in the current locale\n",
              strErrC);
}

// --- streams: volume, binary data, input --------------------------------------

TEST(CProcessCapture, HundredMiBOfOutputWithBoundedMemory)
{
    const size_t nTotal = 100 * s_nMiB + 12345;
    CProcessCapture cCapture;
    // A first small run, so that lazily made buffers are counted before.
    ASSERT_EQ(0, cCapture.Execute(Child("bytes 1000")));
    ASSERT_EQ(Pattern(1000), Out(cCapture));

    const long nHwmBefore = StatusKiB("VmHWM");
    ASSERT_GT(nHwmBefore, 0);
    ASSERT_EQ(0, cCapture.Execute(Child("bytes " + std::to_string(nTotal))));
    EXPECT_EQ("", Err(cCapture));

    wxInputStream* pOut = cCapture.GetStdOutputStream();
    EXPECT_EQ(static_cast<wxFileOffset>(nTotal), pOut->GetLength());
    std::vector<char> acRead(256 * 1024);
    std::vector<unsigned char> acExpected(acRead.size());
    uint64_t nPos = 0;
    uint64_t nSum = 0;
    uint64_t nExpectedSum = 0;
    bool bSame = true;
    while (!pOut->Eof())
    {
        pOut->Read(acRead.data(), acRead.size());
        const size_t n = pOut->LastRead();
        if (n == 0)
            break;
        ORVANE::TEST::FillPattern(acExpected.data(), n, nPos);
        if (bSame && std::memcmp(acRead.data(), acExpected.data(), n) != 0)
        {
            bSame = false;
            ADD_FAILURE() << "output differs in the piece at offset " << nPos;
        }
        for (size_t i = 0; i < n; ++i)
        {
            nSum = nSum * 31 + static_cast<unsigned char>(acRead[i]);
            nExpectedSum = nExpectedSum * 31 + acExpected[i];
        }
        nPos += n;
    }
    EXPECT_EQ(nTotal, nPos);
    EXPECT_EQ(nExpectedSum, nSum);
    EXPECT_TRUE(pOut->Eof());
    EXPECT_EQ(wxEOF, pOut->GetC());
    EXPECT_EQ(0u, pOut->LastRead());

    // Our own memory must not have grown with the output: the bulk of it
    // lives in a temporary file.
    const long nHwmAfter = StatusKiB("VmHWM");
    EXPECT_LT(nHwmAfter - nHwmBefore, 40 * 1024)
        << "peak memory grew from " << nHwmBefore << " kB to " << nHwmAfter << " kB";
    std::printf("100 MiB capture: peak memory %ld kB before, %ld kB after\n", nHwmBefore, nHwmAfter);
}

TEST(CProcessCapture, TenMiBOfInputEchoedByteExact)
{
    const std::string strInput = Pattern(10 * s_nMiB + 7, 99);
    CProcessCapture cCapture;
    Feed(cCapture, strInput);
    EXPECT_EQ(static_cast<wxFileOffset>(strInput.size()), cCapture.GetStdInputStream()->TellO());
    ASSERT_EQ(0, cCapture.Execute(Child("cat")));
    const std::string strOut = Out(cCapture);
    EXPECT_EQ(strInput.size(), strOut.size());
    EXPECT_TRUE(strOut == strInput);
    EXPECT_EQ("", Err(cCapture));

    // The input went with that command: the next one starts with none.
    EXPECT_EQ(0, cCapture.GetStdInputStream()->TellO());
    ASSERT_EQ(0, cCapture.Execute(Child("cat")));
    EXPECT_EQ("", Out(cCapture));
}

TEST(CProcessCapture, InterleavedOutputAndErrorAreBothComplete)
{
    const int nLines = 20000;
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("interleave " + std::to_string(nLines))));
    std::string strOut;
    std::string strErr;
    for (int i = 0; i < nLines; ++i)
    {
        strOut += "out " + std::to_string(i) + "\n";
        strErr += "err " + std::to_string(i) + "\n";
    }
    EXPECT_TRUE(Out(cCapture) == strOut);
    EXPECT_TRUE(Err(cCapture) == strErr);
}

TEST(CProcessCapture, LargeOutputOnBothStreamsAndLargeInput)
{
    // Both streams well beyond the pipes and the memory limit, while input
    // is still being fed: nothing may block.
    const size_t nTotal = 9 * s_nMiB + 3;
    CProcessCapture cCapture;
    Feed(cCapture, Pattern(6 * s_nMiB));
    ASSERT_EQ(3, cCapture.Execute(Child("noread 100")));
    EXPECT_EQ("read 100\n", Out(cCapture));

    Feed(cCapture, std::string(3 * s_nMiB, 'x'));
    ASSERT_EQ(0, cCapture.Execute(Child("both " + std::to_string(nTotal))));
    const std::string strExpected = Pattern(nTotal);
    EXPECT_TRUE(Out(cCapture) == strExpected);
    EXPECT_TRUE(Err(cCapture) == strExpected);
}

TEST(CProcessCapture, ChildThatExitsWithoutReadingItsInput)
{
    // Without protection the write to the vanished reader would kill us
    // with SIGPIPE.
    CProcessCapture cCapture;
    Feed(cCapture, Pattern(16 * s_nMiB));
    EXPECT_EQ(3, cCapture.Execute(Child("noread 0")));
    EXPECT_EQ("read 0\n", Out(cCapture));

    Feed(cCapture, Pattern(16 * s_nMiB));
    EXPECT_EQ(3, cCapture.Execute(Child("noread 200000")));
    EXPECT_EQ("read 200000\n", Out(cCapture));

    // A program that does not take input at all.
    Feed(cCapture, Pattern(4 * s_nMiB));
    EXPECT_EQ(7, cCapture.Execute(Child("exit 7")));

    // No SIGPIPE was left pending or blocked behind us.
    sigset_t cPending;
    sigemptyset(&cPending);
    ASSERT_EQ(0, sigpending(&cPending));
    EXPECT_EQ(0, sigismember(&cPending, SIGPIPE));
    sigset_t cMask;
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, nullptr, &cMask));
    EXPECT_EQ(0, sigismember(&cMask, SIGPIPE));
}

TEST(CProcessCapture, BinaryOutputIsByteExact)
{
    static const unsigned char s_ac[] = {0x00, 0xFF, 0x0D, 0x0A, 0x00, 0x00, 0x0A, 0x0D, 0x1A, 0x80,
                                         0xFE, 0x7F, 0x00, 0x73, 0x04, 0x00, 0x00, 0x00, 0xFF, 0x00};
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("binary")));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(s_ac), sizeof(s_ac)), Out(cCapture));

    // And every byte value through input and output.
    std::string strAll;
    for (int i = 0; i < 256 * 4; ++i)
        strAll += static_cast<char>(i & 0xFF);
    Feed(cCapture, strAll);
    ASSERT_EQ(0, cCapture.Execute(Child("cat")));
    EXPECT_EQ(strAll, Out(cCapture));
}

// --- stream semantics --------------------------------------------------------

TEST(CProcessCapture, GetCUngetchEofAndLastRead)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("print ABCDE")));
    wxInputStream* pOut = cCapture.GetStdOutputStream();
    ASSERT_NE(nullptr, pOut);

    EXPECT_FALSE(pOut->Eof());
    EXPECT_EQ('A', pOut->GetC());
    EXPECT_EQ(1u, pOut->LastRead());
    EXPECT_FALSE(pOut->Eof());
    EXPECT_TRUE(pOut->Ungetch('A'));
    EXPECT_FALSE(pOut->Eof());
    EXPECT_EQ('A', pOut->GetC());
    EXPECT_EQ(1u, pOut->LastRead());

    char ac[8] = {};
    pOut->Read(ac, 2);
    EXPECT_EQ(2u, pOut->LastRead());
    EXPECT_EQ("BC", std::string(ac, 2));
    EXPECT_FALSE(pOut->Eof());

    // A read that wants more than is left gets what is left.
    pOut->Read(ac, 4);
    EXPECT_EQ(2u, pOut->LastRead());
    EXPECT_EQ("DE", std::string(ac, 2));
    EXPECT_TRUE(pOut->Eof());

    EXPECT_EQ(wxEOF, pOut->GetC());
    EXPECT_EQ(0u, pOut->LastRead());
    EXPECT_TRUE(pOut->Eof());
    pOut->Read(ac, 4);
    EXPECT_EQ(0u, pOut->LastRead());
    EXPECT_TRUE(pOut->Eof());

    // A byte pushed back at the end is read again.
    EXPECT_TRUE(pOut->Ungetch('E'));
    EXPECT_FALSE(pOut->Eof());
    EXPECT_EQ('E', pOut->GetC());
    EXPECT_EQ(1u, pOut->LastRead());
    EXPECT_TRUE(pOut->Eof());

    // Bytes above 0x7F come back as 128..255, not as negative values.
    ASSERT_EQ(0, cCapture.Execute(Child("binary")));
    EXPECT_EQ(0x00, pOut->GetC());
    EXPECT_EQ(0xFF, pOut->GetC());
    EXPECT_EQ(1u, pOut->LastRead());
}

TEST(CProcessCapture, EmptyOutputIsAtEofAtOnce)
{
    CProcessCapture cCapture;
    // Before any command the streams exist and are empty.
    EXPECT_TRUE(cCapture.GetStdOutputStream()->Eof());
    EXPECT_TRUE(cCapture.GetStdErrorStream()->Eof());

    ASSERT_EQ(0, cCapture.Execute(Child("exit 0")));
    for (wxInputStream* p : {cCapture.GetStdOutputStream(), cCapture.GetStdErrorStream()})
    {
        EXPECT_TRUE(p->Eof());
        EXPECT_EQ(0, p->GetLength());
        EXPECT_EQ(wxEOF, p->GetC());
        EXPECT_EQ(0u, p->LastRead());
        EXPECT_TRUE(p->Eof());
        char ac[4];
        p->Read(ac, sizeof(ac));
        EXPECT_EQ(0u, p->LastRead());
        EXPECT_TRUE(p->Ungetch('z'));
        EXPECT_FALSE(p->Eof());
        EXPECT_EQ('z', p->GetC());
        EXPECT_TRUE(p->Eof());
    }
}

TEST(CProcessCapture, RecordReaderPattern)
{
    // A marshalled record {s"code" s"stat" 0}, read the way the record
    // reader reads it.
    std::string strRecord = "{";
    for (const char* psz : {"code", "stat"})
    {
        strRecord += 's';
        const uint32_t nLength = 4;
        strRecord.append(reinterpret_cast<const char*>(&nLength), 4);
        strRecord += psz;
    }
    strRecord += '0';

    CProcessCapture cCapture;
    Feed(cCapture, strRecord + strRecord);
    ASSERT_EQ(0, cCapture.Execute(Child("cat")));
    wxInputStream* p = cCapture.GetStdOutputStream();

    std::vector<std::string> astrSeen;
    int nRecords = 0;
    while (!p->Eof())
    {
        int c = p->GetC();
        ASSERT_EQ(1u, p->LastRead());
        ASSERT_EQ('{', c);
        for (;;)
        {
            ASSERT_FALSE(p->Eof());
            c = p->GetC();
            ASSERT_EQ(1u, p->LastRead());
            if (c == '0')
                break;
            p->Ungetch(static_cast<char>(c));
            ASSERT_EQ('s', p->GetC());
            ASSERT_FALSE(p->Eof());
            uint32_t nLength = 0;
            p->Read(&nLength, 4);
            ASSERT_EQ(4u, p->LastRead());
            ASSERT_FALSE(p->Eof());
            std::vector<char> ac(nLength + 1);
            p->Read(ac.data(), nLength);
            ASSERT_EQ(nLength, p->LastRead());
            astrSeen.emplace_back(ac.data(), nLength);
        }
        ++nRecords;
    }
    EXPECT_EQ(2, nRecords);
    EXPECT_EQ((std::vector<std::string>{"code", "stat", "code", "stat"}), astrSeen);
}

TEST(CProcessCapture, SpooledOutputReadInPiecesOfEverySize)
{
    // Beyond the memory limit the output is read back from the temporary
    // file: small reads, big reads, push-backs and seeks all see the same
    // bytes.
    const size_t nTotal = 5 * s_nMiB + 123;
    const std::string strExpected = Pattern(nTotal);
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("bytes " + std::to_string(nTotal))));
    wxInputStream* p = cCapture.GetStdOutputStream();
    EXPECT_EQ(static_cast<wxFileOffset>(nTotal), p->GetLength());

    const size_t anSizes[] = {1, 7, 4096, 70000, 3, 65536, 65535, 1, 200000};
    std::string strRead;
    std::vector<char> ac(200000);
    size_t nStep = 0;
    while (!p->Eof())
    {
        const size_t nWant = anSizes[nStep++ % (sizeof(anSizes) / sizeof(anSizes[0]))];
        p->Read(ac.data(), nWant);
        const size_t n = p->LastRead();
        ASSERT_EQ(std::min(nWant, nTotal - strRead.size()), n);
        strRead.append(ac.data(), n);
        if (nStep % 5 == 0 && n > 0)
        {
            // Push the last byte back and read it again.
            ASSERT_TRUE(p->Ungetch(ac[n - 1]));
            ASSERT_EQ(static_cast<unsigned char>(ac[n - 1]), p->GetC());
        }
    }
    EXPECT_EQ(nTotal, strRead.size());
    EXPECT_TRUE(strRead == strExpected);
    EXPECT_EQ(wxEOF, p->GetC());

    // Seeking back into the file.
    EXPECT_EQ(static_cast<wxFileOffset>(nTotal - 10), p->SeekI(-10, wxFromEnd));
    EXPECT_FALSE(p->Eof());
    p->Read(ac.data(), 100);
    EXPECT_EQ(10u, p->LastRead());
    EXPECT_EQ(strExpected.substr(nTotal - 10), std::string(ac.data(), 10));
    EXPECT_TRUE(p->Eof());
    EXPECT_EQ(1000, p->SeekI(1000));
    EXPECT_EQ(1000, p->TellI());
    EXPECT_EQ(static_cast<unsigned char>(strExpected[1000]), p->GetC());
}

TEST(CProcessCapture, NextExecuteReplacesTheStreams)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("print first-output")));
    wxInputStream* pOut = cCapture.GetStdOutputStream();
    EXPECT_EQ('f', pOut->GetC());
    pOut->Ungetch('q'); // left pending
    ASSERT_EQ(0, cCapture.Execute(Child("print second")));
    pOut = cCapture.GetStdOutputStream();
    EXPECT_EQ("second", ReadAll(pOut));

    // After reading to the end and past it, the next command starts afresh.
    EXPECT_EQ(wxEOF, pOut->GetC());
    ASSERT_EQ(0, cCapture.Execute(Child("print third")));
    EXPECT_FALSE(cCapture.GetStdOutputStream()->Eof());
    EXPECT_EQ("third", Out(cCapture));

    // From spooled output back to a small one.
    ASSERT_EQ(0, cCapture.Execute(Child("bytes " + std::to_string(5 * s_nMiB))));
    EXPECT_EQ(0x00 + ORVANE::TEST::PatternByte(0), cCapture.GetStdOutputStream()->GetC());
    ASSERT_EQ(0, cCapture.Execute(Child("print small")));
    EXPECT_EQ("small", Out(cCapture));
}

TEST(CProcessCapture, ManyCommandsInARowOnOneObject)
{
    const int nFdsBefore = CountOpenFds();
    {
        CProcessCapture cCapture;
        for (int i = 0; i < 200; ++i)
        {
            switch (i % 5)
            {
            case 0:
                ASSERT_EQ(0, cCapture.Execute(Child("args run " + std::to_string(i))));
                ASSERT_EQ("[run]\n[" + std::to_string(i) + "]\n", Out(cCapture));
                ASSERT_EQ("", Err(cCapture));
                break;
            case 1:
                Feed(cCapture, "input " + std::to_string(i));
                ASSERT_EQ(0, cCapture.Execute(Child("cat")));
                ASSERT_EQ("input " + std::to_string(i), Out(cCapture));
                break;
            case 2:
                ASSERT_EQ(i % 256, cCapture.Execute(Child("exit " + std::to_string(i % 256))));
                ASSERT_EQ("", Out(cCapture));
                break;
            case 3:
                ASSERT_EQ(127, cCapture.Execute(ToCString(Unique("nosuchprog"))));
                ASSERT_EQ("", Out(cCapture));
                ASSERT_EQ("cannot run '" + Unique("nosuchprog") + "': No such file or directory\n", Err(cCapture));
                break;
            default:
                ASSERT_EQ(0, cCapture.Execute(Child("interleave 3")));
                ASSERT_EQ("out 0\nout 1\nout 2\n", Out(cCapture));
                ASSERT_EQ("err 0\nerr 1\nerr 2\n", Err(cCapture));
                break;
            }
        }
        // Every child has been reaped.
        EXPECT_TRUE(NoChildLeft());
    }
    EXPECT_EQ(nFdsBefore, CountOpenFds());
}

TEST(CProcessCapture, SpooledOutputLeavesNoDescriptorBehind)
{
    const int nFdsBefore = CountOpenFds();
    {
        CProcessCapture cCapture;
        ASSERT_EQ(0, cCapture.Execute(Child("both " + std::to_string(5 * s_nMiB))));
        ASSERT_EQ(0, cCapture.Execute(Child("both " + std::to_string(5 * s_nMiB))));
        EXPECT_EQ(nFdsBefore + 2, CountOpenFds()); // one spool file per stream
        ASSERT_EQ(0, cCapture.Execute(Child("exit 0")));
        EXPECT_EQ(nFdsBefore, CountOpenFds());
        ASSERT_EQ(0, cCapture.Execute(Child("both " + std::to_string(5 * s_nMiB))));
    }
    EXPECT_EQ(nFdsBefore, CountOpenFds());
    EXPECT_TRUE(NoChildLeft());
}

TEST(CProcessCapture, SpoolFileIsUnlinkedAndInTmpDir)
{
    ORVANE::TEST::CScratchFolder cDir("orvane-proctest");
    ASSERT_FALSE(cDir.Path().empty());
    wxString strOldTmp;
    const bool bHadTmp = wxGetEnv("TMPDIR", &strOldTmp);
    ASSERT_TRUE(wxSetEnv("TMPDIR", wxString(cDir.Path().c_str(), wxConvLibc)));

    CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(Child("bytes " + std::to_string(5 * s_nMiB)));
    // Our descriptors that point into the folder: the spool file, already
    // removed from it.
    std::vector<std::string> astrTargets;
    DIR* pDir = opendir("/proc/self/fd");
    ASSERT_NE(nullptr, pDir);
    while (const dirent* pEntry = readdir(pDir))
    {
        std::vector<char> ac(4096);
        const std::string strLink = std::string("/proc/self/fd/") + pEntry->d_name;
        const ssize_t n = readlink(strLink.c_str(), ac.data(), ac.size() - 1);
        if (n > 0 &&
            std::string(ac.data(), static_cast<size_t>(n)).compare(0, cDir.Path().size() + 1, cDir.Path() + "/") == 0)
            astrTargets.emplace_back(ac.data(), static_cast<size_t>(n));
    }
    closedir(pDir);
    const bool bSame = Out(cCapture) == Pattern(5 * s_nMiB);

    // A TMPDIR that does not exist falls back to /tmp.
    ASSERT_TRUE(wxSetEnv("TMPDIR", "/nonexistent-orvane-tmp"));
    const int nStatusFallback = cCapture.Execute(Child("bytes " + std::to_string(5 * s_nMiB)));
    const bool bSameFallback = Out(cCapture) == Pattern(5 * s_nMiB);

    if (bHadTmp)
        wxSetEnv("TMPDIR", strOldTmp);
    else
        wxUnsetEnv("TMPDIR");

    EXPECT_EQ(0, nStatus);
    EXPECT_TRUE(bSame);
    ASSERT_EQ(1u, astrTargets.size());
    EXPECT_NE(std::string::npos, astrTargets[0].find("(deleted)")) << astrTargets[0];
    EXPECT_EQ(0, nStatusFallback);
    EXPECT_TRUE(bSameFallback);
}

TEST(CProcessCapture, OutputThatCannotBeKeptIsAFailure)
{
    // A file size limit makes the spool file refuse bytes (EFBIG instead of
    // SIGXFSZ, which is ignored here). The child itself only writes to a pipe.
    struct sigaction cIgnore;
    std::memset(&cIgnore, 0, sizeof(cIgnore));
    cIgnore.sa_handler = SIG_IGN;
    struct sigaction cOld;
    ASSERT_EQ(0, sigaction(SIGXFSZ, &cIgnore, &cOld));
    struct rlimit cOldLimit;
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &cOldLimit));
    struct rlimit cLimit = cOldLimit;
    cLimit.rlim_cur = 6 * s_nMiB;
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &cLimit));

    CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(Child("bytes " + std::to_string(8 * s_nMiB)));
    const std::string strOut = Out(cCapture);
    const std::string strErr = Err(cCapture);
    const int nStatusFailing = cCapture.Execute(Child("both " + std::to_string(8 * s_nMiB)));
    const std::string strErrFailing = Err(cCapture);

    setrlimit(RLIMIT_FSIZE, &cOldLimit);
    sigaction(SIGXFSZ, &cOld, nullptr);

    EXPECT_EQ(1, nStatus);
    const std::string strWhat = "' could not be captured completely: File too large\n";
    EXPECT_EQ("standard output of '" + std::string(ORVANE_PROCESS_CHILD) + strWhat, strErr);
    // What was kept is the start of the output.
    EXPECT_LE(4 * s_nMiB, strOut.size());
    EXPECT_GT(8 * s_nMiB, strOut.size());
    EXPECT_TRUE(strOut == Pattern(strOut.size()));
    EXPECT_EQ(1, nStatusFailing);
    // The error stream failed as well, but the explanation is still there
    // after what it kept.
    const std::string strNotes = "standard output of '" + std::string(ORVANE_PROCESS_CHILD) + strWhat +
                                 "standard error of '" + std::string(ORVANE_PROCESS_CHILD) + strWhat;
    ASSERT_LT(strNotes.size(), strErrFailing.size());
    const size_t nKept = strErrFailing.size() - strNotes.size();
    EXPECT_EQ(strNotes, strErrFailing.substr(nKept));
    EXPECT_TRUE(strErrFailing.substr(0, nKept) == Pattern(nKept));

    // With the limit gone everything works again.
    ASSERT_EQ(0, cCapture.Execute(Child("bytes " + std::to_string(8 * s_nMiB))));
    EXPECT_TRUE(Out(cCapture) == Pattern(8 * s_nMiB));
}

TEST(CProcessCapture, InterruptedBySignalsStillCompleteAndExact)
{
    // A signal handler without SA_RESTART and a fast timer: the waits and
    // transfers inside Execute get interrupted again and again.
    struct sigaction cAction;
    std::memset(&cAction, 0, sizeof(cAction));
    cAction.sa_handler = OnAlarm;
    sigemptyset(&cAction.sa_mask);
    cAction.sa_flags = 0;
    struct sigaction cOld;
    ASSERT_EQ(0, sigaction(SIGALRM, &cAction, &cOld));
    struct itimerval cTimer;
    std::memset(&cTimer, 0, sizeof(cTimer));
    cTimer.it_interval.tv_usec = 200;
    cTimer.it_value.tv_usec = 200;
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &cTimer, nullptr));

    CProcessCapture cCapture;
    const std::string strInput = Pattern(6 * s_nMiB, 5);
    Feed(cCapture, strInput);
    const int nStatusCat = cCapture.Execute(Child("cat"));
    const bool bCatSame = Out(cCapture) == strInput;
    const size_t nTotal = 20 * s_nMiB;
    const int nStatusBytes = cCapture.Execute(Child("both " + std::to_string(nTotal)));
    const std::string strOut = Out(cCapture);
    const std::string strErr = Err(cCapture);
    const int nStatusSleepy = cCapture.Execute(Child("interleave 2000"));
    const std::string strInterleaved = Out(cCapture);

    std::memset(&cTimer, 0, sizeof(cTimer));
    setitimer(ITIMER_REAL, &cTimer, nullptr);
    sigaction(SIGALRM, &cOld, nullptr);

    EXPECT_EQ(0, nStatusCat);
    EXPECT_TRUE(bCatSame);
    EXPECT_EQ(0, nStatusBytes);
    const std::string strExpected = Pattern(nTotal);
    EXPECT_TRUE(strOut == strExpected);
    EXPECT_TRUE(strErr == strExpected);
    EXPECT_EQ(0, nStatusSleepy);
    std::string strLines;
    for (int i = 0; i < 2000; ++i)
        strLines += "out " + std::to_string(i) + "\n";
    EXPECT_EQ(strLines, strInterleaved);
}

// --- the observer of every child ----------------------------------------------

namespace {

class CRecordingObserver : public ORVANE::VCM::IProcessObserver
{
public:
    void OnChildStarting(const std::vector<std::string>& astrArgs) override
    {
        m_astrEvents.push_back("start " + astrArgs.at(1));
    }
    void OnChildEnded(const std::vector<std::string>& astrArgs, int nStatus, double fSeconds,
                      const CProcessCapture& cCapture) override
    {
        m_astrEvents.push_back("end " + astrArgs.at(1) + " " + std::to_string(nStatus) + " [" + cCapture.PeekOutput(5) +
                               "] [" + cCapture.PeekError(100) + "]");
        m_fSeconds += fSeconds;
    }
    std::vector<std::string> m_astrEvents;
    double m_fSeconds = 0;
};

} // namespace

TEST(CProcessCapture, ObserverSeesEveryChildAndItsOutputWithoutConsumingIt)
{
    CRecordingObserver cObserver;
    CProcessCapture::SetObserver(&cObserver);
    CProcessCapture cCapture;
    EXPECT_EQ(0, cCapture.Execute(Child("print hello-world")));
    EXPECT_EQ(3, cCapture.Execute(std::vector<std::string>{ORVANE_PROCESS_CHILD, "exit", "3"}));
    EXPECT_EQ(127, cCapture.Execute(std::vector<std::string>{"/nonexistent/p4", "info"}));
    CProcessCapture::SetObserver(nullptr);
    EXPECT_EQ(0, cCapture.Execute(Child("print unobserved")));

    ASSERT_EQ(6u, cObserver.m_astrEvents.size());
    EXPECT_EQ("start print", cObserver.m_astrEvents[0]);
    EXPECT_EQ("end print 0 [hello] []", cObserver.m_astrEvents[1]);
    EXPECT_EQ("start exit", cObserver.m_astrEvents[2]);
    EXPECT_EQ("end exit 3 [] []", cObserver.m_astrEvents[3]);
    EXPECT_EQ("start info", cObserver.m_astrEvents[4]);
    EXPECT_EQ("end info 127 [] [cannot run '/nonexistent/p4': No such file or directory\n]", cObserver.m_astrEvents[5]);
    EXPECT_GT(cObserver.m_fSeconds, 0.0);
    // The last child's output is still there from its first byte.
    EXPECT_EQ("unobserved", Out(cCapture));
}

TEST(CProcessCapture, PeekReadsSpooledOutputAndStopsAtItsEnd)
{
    CProcessCapture cCapture;
    ASSERT_EQ(0, cCapture.Execute(Child("bytes " + std::to_string(6 * s_nMiB))));
    const std::string strPeek = cCapture.PeekOutput(8);
    ASSERT_EQ(8u, strPeek.size());
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(static_cast<char>(ORVANE::TEST::PatternByte(i)), strPeek[i]) << i;
    EXPECT_EQ(6 * s_nMiB, cCapture.PeekOutput(100 * s_nMiB).size());
    EXPECT_EQ("", cCapture.PeekError(10));
    EXPECT_EQ(static_cast<int>(ORVANE::TEST::PatternByte(0)), cCapture.GetStdOutputStream()->GetC());
}

// --- the gateway of every command -------------------------------------------

namespace {

// Runs each command up to three times while it fails, and then puts its own
// words in place of what the child wrote; a command "exit 9" is answered
// without running anything.
class CRetryingGateway : public ORVANE::VCM::IProcessGateway
{
public:
    int Pass(ORVANE::VCM::IChildRun& rRun) override
    {
        m_astrSeen.push_back(rRun.Arguments().at(1));
        if (rRun.Arguments().at(1) == "exit" && rRun.Arguments().at(2) == "9")
        {
            rRun.SetOutput("answered\n");
            rRun.SetError("without a child\n");
            return 0;
        }
        int nStatus = 0;
        for (int nTry = 0; nTry < 3; ++nTry)
        {
            nStatus = rRun.Run();
            m_astrOutputs.push_back(rRun.Capture().PeekOutput(100));
            if (nStatus == 0)
                break;
        }
        if (nStatus != 0)
            rRun.SetOutput("gave up after " + std::to_string(m_astrOutputs.size()) + "\n");
        return nStatus;
    }
    std::vector<std::string> m_astrSeen;
    std::vector<std::string> m_astrOutputs;
};

// The gateway and an observer in place for a scope.
struct TGatewayScope
{
    TGatewayScope()
    {
        CProcessCapture::SetGateway(&cGateway);
        CProcessCapture::SetObserver(&cObserver);
    }
    ~TGatewayScope()
    {
        CProcessCapture::SetObserver(nullptr);
        CProcessCapture::SetGateway(nullptr);
    }
    CRetryingGateway cGateway;
    CRecordingObserver cObserver;
};

} // namespace

TEST(CProcessCapture, AGatewayRunsTheCommandAgainWithTheSameInput)
{
    CProcessCapture cCapture;
    std::vector<std::string> astrSeen, astrOutputs, astrEvents;
    {
        TGatewayScope t;
        Feed(cCapture, "the form\n");
        // "noread 100" reads what it is given and exits with 3: three runs,
        // each given the whole input.
        EXPECT_EQ(3, cCapture.Execute(std::vector<std::string>{ORVANE_PROCESS_CHILD, "noread", "100"}));
        EXPECT_EQ("gave up after 3\n", Out(cCapture));
        Feed(cCapture, "echoed\n");
        EXPECT_EQ(0, cCapture.Execute(Child("cat")));
        EXPECT_EQ("echoed\n", Out(cCapture));
        // The input went with its command.
        EXPECT_EQ(0, cCapture.Execute(Child("cat")));
        EXPECT_EQ("", Out(cCapture));
        astrSeen = t.cGateway.m_astrSeen;
        astrOutputs = t.cGateway.m_astrOutputs;
        astrEvents = t.cObserver.m_astrEvents;
    }
    EXPECT_EQ((std::vector<std::string>{"noread", "cat", "cat"}), astrSeen);
    EXPECT_EQ((std::vector<std::string>{"read 9\n", "read 9\n", "read 9\n", "echoed\n", ""}), astrOutputs);
    // The observer saw every run of the child.
    EXPECT_EQ(10u, astrEvents.size());
    EXPECT_EQ("start noread", astrEvents[4]);
}

TEST(CProcessCapture, AGatewayMayAnswerWithoutAChild)
{
    CProcessCapture cCapture;
    {
        TGatewayScope t;
        Feed(cCapture, "never read\n");
        EXPECT_EQ(0, cCapture.Execute(std::vector<std::string>{ORVANE_PROCESS_CHILD, "exit", "9"}));
        EXPECT_EQ("answered\n", Out(cCapture));
        EXPECT_EQ("without a child\n", Err(cCapture));
        EXPECT_TRUE(t.cObserver.m_astrEvents.empty());
    }
    // Without the gateway the same command runs its child.
    EXPECT_EQ(9, cCapture.Execute(std::vector<std::string>{ORVANE_PROCESS_CHILD, "exit", "9"}));
    EXPECT_EQ("", Out(cCapture));
}
