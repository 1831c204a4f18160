// A stand-in for the import worker, for the supervisor's tests. It reports
// through the channel as the real worker does and then behaves as its
// arguments say:
//   done N           reports the end and exits with N
//   exit N           exits with N without reporting the end
//   crash            raises SIGSEGV
//   spin             loops without end, telling nothing
//   ignore-term      ignores SIGTERM and loops (makes $FAKE_READY first)
//   graceful         on SIGTERM reports the end and exits with 143 (makes
//                    $FAKE_READY first)
//   child            reports a child that never ends, and waits
//   client NAME P4   reports the p4 client and a temporary client, then crashes
//   staging          makes its staging file in $FAKE_STAGING, then crashes
//   log FILE         reports FILE as the import log, then crashes
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

namespace {

int g_nFd = -1;

void Send(const std::string& strLine)
{
    const std::string str = strLine + "\n";
    if (g_nFd >= 0 && ::write(g_nFd, str.data(), str.size()) < 0)
        std::exit(90);
}

void OnTerm(int)
{
    Send("done");
    ::_exit(143);
}

// Tells the test that the signal handling is in place: $FAKE_READY is made.
void Ready()
{
    if (const char* pszReady = std::getenv("FAKE_READY"))
        if (FILE* p = std::fopen(pszReady, "w"))
            std::fclose(p);
}

[[noreturn]] void Spin()
{
    volatile unsigned long n = 0;
    for (;;)
        n = n + 1;
}

} // namespace

int main(int argc, char** argv)
{
    const char* psz = std::getenv("ORVANE_IMPORT_CHANNEL");
    if (!psz)
        return 99;
    g_nFd = std::atoi(psz);
    if (argc < 2)
        return 98;
    const std::string strMode = argv[1];
    Send("phase EstablishStreams");
    if (strMode == "done")
    {
        Send("done");
        return std::atoi(argv[2]);
    }
    if (strMode == "exit")
        return std::atoi(argv[2]);
    if (strMode == "crash")
        std::raise(SIGSEGV);
    if (strMode == "spin")
        Spin();
    if (strMode == "ignore-term")
    {
        std::signal(SIGTERM, SIG_IGN);
        Ready();
        Spin();
    }
    if (strMode == "graceful")
    {
        std::signal(SIGTERM, OnTerm);
        Ready();
        for (;;)
            ::pause();
    }
    if (strMode == "child")
    {
        Send("child-start p4 -G describe 7");
        for (;;)
            ::pause();
    }
    if (strMode == "client" && argc == 4)
    {
        Send(std::string("p4 ") + argv[3]);
        Send(std::string("client ") + argv[2]);
        std::raise(SIGSEGV);
    }
    if (strMode == "staging")
    {
        const std::string strBase =
            std::string(std::getenv("FAKE_STAGING")) + "/orvane-em-" + std::to_string(::getpid());
        for (const char* pszSuffix : {".tdf", ".tlf"})
            if (FILE* p = std::fopen((strBase + pszSuffix).c_str(), "w"))
                std::fclose(p);
        std::raise(SIGSEGV);
    }
    if (strMode == "log" && argc == 3)
    {
        Send(std::string("log ") + argv[2]);
        std::raise(SIGABRT);
    }
    return 97;
}
