// Test child for the process capture tests. The first argument names what
// it does; the rest are that action's arguments.
//   args A...        each argument as "[A]" on its own line
//   print S          S exactly, no newline
//   hex A...         each argument's bytes in hex, one line each
//   cat              standard input copied to standard output
//   bytes N          N pattern bytes on standard output
//   both N           N pattern bytes on each of standard output and error,
//                    alternating in chunks
//   interleave N     lines "out i" and "err i" alternating on the two streams
//   binary           a fixed sequence of bytes with NUL, 0xFF, CR and LF
//   exit N           exit status N
//   signal N         kills itself with signal N
//   env NAME         the variable's value, or <unset>
//   cwd              the working directory
//   noread N         reads N bytes of input, says so, exits with 3
//   sigstate         how many signals are blocked and how many ignored
//   fds              every open descriptor above 2, one per line
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include "ProcessPattern.h"

namespace
{

void WriteAll(int nFd, const void* pData, size_t nSize)
{
    const char* p = static_cast<const char*>(pData);
    while (nSize > 0)
    {
        const ssize_t n = ::write(nFd, p, nSize);
        if (n < 0)
        {
            if (errno == EINTR)
                continue;
            std::exit(90);
        }
        p += n;
        nSize -= static_cast<size_t>(n);
    }
}

void WriteText(int nFd, const std::string& str)
{
    WriteAll(nFd, str.data(), str.size());
}

unsigned long long Number(const char* psz)
{
    return std::strtoull(psz, nullptr, 10);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 99;
    const std::string strMode = argv[1];
    const size_t nChunk = 64 * 1024;

    if (strMode == "args")
    {
        for (int i = 2; i < argc; ++i)
            WriteText(1, std::string("[") + argv[i] + "]\n");
        return 0;
    }
    if (strMode == "print" && argc == 3)
    {
        WriteText(1, argv[2]);
        return 0;
    }
    if (strMode == "hex")
    {
        for (int i = 2; i < argc; ++i)
        {
            std::string str;
            for (const char* p = argv[i]; *p; ++p)
            {
                char acHex[3];
                std::snprintf(acHex, sizeof(acHex), "%02x", static_cast<unsigned char>(*p));
                str += acHex;
            }
            WriteText(1, str + "\n");
        }
        return 0;
    }
    if (strMode == "cat")
    {
        std::vector<char> ac(nChunk);
        for (;;)
        {
            const ssize_t n = ::read(0, ac.data(), ac.size());
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                return 91;
            if (n == 0)
                return 0;
            WriteAll(1, ac.data(), static_cast<size_t>(n));
        }
    }
    if ((strMode == "bytes" || strMode == "both") && argc == 3)
    {
        const unsigned long long nTotal = Number(argv[2]);
        std::vector<unsigned char> ac(nChunk);
        for (unsigned long long nDone = 0; nDone < nTotal;)
        {
            const size_t n = static_cast<size_t>(std::min<unsigned long long>(nChunk, nTotal - nDone));
            ORVANE::TEST::FillPattern(ac.data(), n, nDone);
            WriteAll(1, ac.data(), n);
            if (strMode == "both")
                WriteAll(2, ac.data(), n);
            nDone += n;
        }
        return 0;
    }
    if (strMode == "interleave" && argc == 3)
    {
        const unsigned long long nLines = Number(argv[2]);
        for (unsigned long long i = 0; i < nLines; ++i)
        {
            WriteText(1, "out " + std::to_string(i) + "\n");
            WriteText(2, "err " + std::to_string(i) + "\n");
        }
        return 0;
    }
    if (strMode == "binary")
    {
        static const unsigned char s_ac[] = {0x00, 0xFF, 0x0D, 0x0A, 0x00, 0x00, 0x0A, 0x0D, 0x1A, 0x80,
                                             0xFE, 0x7F, 0x00, 0x73, 0x04, 0x00, 0x00, 0x00, 0xFF, 0x00};
        WriteAll(1, s_ac, sizeof(s_ac));
        return 0;
    }
    if (strMode == "exit" && argc == 3)
        return static_cast<int>(Number(argv[2]));
    if (strMode == "signal" && argc == 3)
    {
        const int nSignal = static_cast<int>(Number(argv[2]));
        std::signal(nSignal, SIG_DFL);
        ::kill(::getpid(), nSignal);
        return 98;
    }
    if (strMode == "env" && argc == 3)
    {
        const char* psz = std::getenv(argv[2]);
        WriteText(1, std::string(psz ? psz : "<unset>") + "\n");
        return 0;
    }
    if (strMode == "cwd")
    {
        std::vector<char> ac(4096);
        if (!::getcwd(ac.data(), ac.size()))
            return 92;
        WriteText(1, std::string(ac.data()) + "\n");
        return 0;
    }
    if (strMode == "noread" && argc == 3)
    {
        const unsigned long long nWanted = Number(argv[2]);
        std::vector<char> ac(nChunk);
        unsigned long long nRead = 0;
        while (nRead < nWanted)
        {
            const ssize_t n =
                ::read(0, ac.data(), static_cast<size_t>(std::min<unsigned long long>(ac.size(), nWanted - nRead)));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            nRead += static_cast<unsigned long long>(n);
        }
        WriteText(1, "read " + std::to_string(nRead) + "\n");
        return 3;
    }
    if (strMode == "sigstate")
    {
        sigset_t cMask;
        sigemptyset(&cMask);
        if (sigprocmask(SIG_BLOCK, nullptr, &cMask) != 0)
            return 93;
        int nBlocked = 0;
        int nIgnored = 0;
        for (int nSignal = 1; nSignal < NSIG; ++nSignal)
        {
            if (sigismember(&cMask, nSignal) == 1)
                ++nBlocked;
            struct sigaction cAction;
            if (sigaction(nSignal, nullptr, &cAction) == 0 && !(cAction.sa_flags & SA_SIGINFO) &&
                cAction.sa_handler == SIG_IGN)
                ++nIgnored;
        }
        WriteText(1, "blocked=" + std::to_string(nBlocked) + " ignored=" + std::to_string(nIgnored) + "\n");
        return 0;
    }
    if (strMode == "fds")
    {
        DIR* pDir = ::opendir("/proc/self/fd");
        if (!pDir)
            return 94;
        const int nOwn = ::dirfd(pDir);
        std::string strOut;
        while (const dirent* pEntry = ::readdir(pDir))
        {
            if (pEntry->d_name[0] == '.')
                continue;
            const int nFd = std::atoi(pEntry->d_name);
            if (nFd > 2 && nFd != nOwn)
                strOut += std::to_string(nFd) + "\n";
        }
        ::closedir(pDir);
        WriteText(1, strOut);
        return 0;
    }
    return 99;
}
