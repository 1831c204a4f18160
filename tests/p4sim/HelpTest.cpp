// --help of p4sim and of each of its commands, and the usage errors of the
// admin commands: help goes to standard output with exit status 0, a wrong
// command line to standard error with exit status 2, and neither touches a
// server or makes a folder.
#include "P4SimHarness.h"

#include <gtest/gtest.h>

using namespace p4simtest;

namespace {

// The first line of a text, without its line end.
std::string FirstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

class HelpTest : public ::testing::Test
{
protected:
    // p4sim run in the test's folder, with nothing but the arguments.
    Result Run(const std::vector<std::string>& args) { return m_sim.P4(args, "", m_sim.Root()); }
    SimServer m_sim;
};

const char* kGenerateUsage =
    "Usage: p4sim admin generate DIR [--changes N] [--branches B] [--files F] [--seed S] [--json FILE]";

} // namespace

TEST_F(HelpTest, AdminCommandsPrintTheirUsage)
{
    Result r = Run({"admin", "generate", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.substr(0, r.out.find("\n\n") + 2), std::string(kGenerateUsage) + "\n\n");
    EXPECT_NE(r.out.find("\n  --changes N    changes in all (default 100)\n"), std::string::npos);
    EXPECT_FALSE(Exists(m_sim.Root() + "/--help"));

    r = Run({"admin", "init", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "Usage: p4sim admin init DIR\n\nMakes an empty server in DIR (and the folder, when there is none).\n");
    r = Run({"admin", "load", "-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(FirstLine(r.out), "Usage: p4sim admin load DIR HISTORY.json");
    // Help wins wherever it stands, and names no server.
    r = Run({"admin", "generate", m_sim.Root() + "/new", "--changes", "5", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(FirstLine(r.out), kGenerateUsage);
    EXPECT_FALSE(Exists(m_sim.Root() + "/new"));
    EXPECT_FALSE(Exists(m_sim.Root() + "/--help"));
}

TEST_F(HelpTest, AdminItselfPrintsAllUsages)
{
    const std::string usage = "Usage: p4sim admin init DIR\n"
                              "       p4sim admin load DIR HISTORY.json\n"
                              "       p4sim admin generate DIR [--changes N] [--branches B] [--files F] [--seed S] "
                              "[--json FILE]\n"
                              "       p4sim admin limits DIR [--max-results N] [--max-scan-rows N]\n";
    for (const char* flag : {"--help", "-h", "help"})
    {
        Result r = Run({"admin", flag});
        EXPECT_EQ(r.status, 0) << flag;
        EXPECT_EQ(r.out, usage + "\nRun 'p4sim admin COMMAND --help' for one command.\n") << flag;
    }
    Result r = Run({"admin", "help", "generate"});
    EXPECT_EQ(FirstLine(r.out), kGenerateUsage);
    r = Run({"admin"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "p4sim admin: no command given\n" + usage);
    r = Run({"admin", "destroy", "x"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "p4sim admin: unknown command 'destroy'\n" + usage);
}

TEST_F(HelpTest, AdminUsageErrors)
{
    Result r = Run({"admin", "generate", m_sim.Root() + "/g", "--chnages", "5"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "p4sim admin generate: unknown option '--chnages'\n" + std::string(kGenerateUsage) + "\n");
    EXPECT_FALSE(Exists(m_sim.Root() + "/g"));
    r = Run({"admin", "generate", "--changes", "5"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "p4sim admin generate: missing DIR\n" + std::string(kGenerateUsage) + "\n");
    r = Run({"admin", "generate", m_sim.Root() + "/g", "--changes", "many"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(FirstLine(r.err), "p4sim admin generate: --changes: not a number: 'many'");
    r = Run({"admin", "generate", m_sim.Root() + "/g", "--seed"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(FirstLine(r.err), "p4sim admin generate: --seed needs a value");
    r = Run({"admin", "init", m_sim.Root() + "/a", m_sim.Root() + "/b"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "p4sim admin init: unexpected argument '" + m_sim.Root() + "/b'\nUsage: p4sim admin init DIR\n");
    r = Run({"admin", "load", m_sim.Root() + "/a"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "p4sim admin load: missing DIR and HISTORY.json\nUsage: p4sim admin load DIR HISTORY.json\n");
    EXPECT_FALSE(Exists(m_sim.Root() + "/a"));
    EXPECT_FALSE(Exists(m_sim.Root() + "/b"));
    // Options in the --name=value form, before the folder.
    r = Run({"admin", "generate", "--changes=3", "--files=2", "--branches=0", m_sim.Root() + "/g"});
    EXPECT_EQ(r.status, 0) << r.err;
    m_sim.Env()["P4PORT"] = "sim:" + m_sim.Root() + "/g";
    EXPECT_EQ(m_sim.P4({"changes", "-m1"}).out.substr(0, 9), "Change 3 ");
}

TEST_F(HelpTest, ProgramHelp)
{
    for (const char* flag : {"--help", "-h"})
    {
        Result r = Run({flag});
        EXPECT_EQ(r.status, 0) << flag;
        EXPECT_EQ(FirstLine(r.out),
                  "Usage: p4sim [ -G -z tag -c client -H host -p port -u user -d dir -x file ] command [ arg ... ]");
        EXPECT_NE(r.out.find("\nCommands:\n    branch branches changes changelists client clients describe files "
                             "fstat\n    get have info integrated label labels login print sync users where\n"
                             "    workspace workspaces\n"),
                  std::string::npos)
            << r.out;
    }
    EXPECT_EQ(Run({"help"}).out, Run({"--help"}).out);
    EXPECT_EQ(Run({}).out, Run({"--help"}).out);
    Result r = Run({"help", "admin"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(FirstLine(r.out), "Usage: p4sim admin init DIR");
    r = Run({"help", "frobnicate"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "p4sim help: no such command 'frobnicate'\n");
}

TEST_F(HelpTest, EveryCommandPrintsItsUsage)
{
    const std::vector<std::pair<std::string, std::string>> usages = {
        {"branch", "branch [ -d -f -o -i ] branchname"},
        {"branches", "branches [ -t ] [ -u user ] [ [-e|-E] query -m max ]"},
        {"changes", "changes [ -c client -e changelist# -i -l -L -f -m max -r -s status -t -u user ] "
                    "[ file[revRange] ... ]"},
        {"changelists", "changes [ -c client -e changelist# -i -l -L -f -m max -r -s status -t -u user ] "
                        "[ file[revRange] ... ]"},
        {"client", "client [ -d -f -Fs -i -o -t template ] [ clientname ]"},
        {"clients", "clients [ -t ] [ -u user ] [ [-e|-E] query -m max ] [ -a ]"},
        {"describe", "describe [-d<flags> -m max -s -S -f -O -I] changelist# ..."},
        {"files", "files [ -a ] [ -A ] [ -e ] [ -m max ] file[revRange] ..."},
        {"fstat", "fstat [ -F filter -T fields -m max -r ] [ -c | -e changelist# ] [ -Ox -Rx -Sx ] file[rev] ..."},
        {"get", "sync [ -f -L -n -N -k -q -r ] [-m max] [ file[revRange] ... ]"},
        {"have", "have [ file ... ]"},
        {"info", "info [ -s ]"},
        {"label", "label [ -d -f -g -i -o -t template ] labelname"},
        {"labels", "labels [ -t ] [ -u user ] [ [-e|-E] query -m max ] [ -a | -s serverID ] [ file[revrange] ]"},
        {"login", "login [ -a -p ] [ -h host ] [ user ]"},
        {"print", "print [-a -A -k -o localFile -q -m max] [--offset offset --size size] file[revRange] ..."},
        {"sync", "sync [ -f -L -n -N -k -q -r ] [-m max] [ file[revRange] ... ]"},
        {"users", "users [ -l -a -r ] [ -m max ] [ user ... ]"},
        {"where", "where [ file ... ]"},
        {"workspace", "client [ -d -f -Fs -i -o -t template ] [ clientname ]"},
        {"workspaces", "clients [ -t ] [ -u user ] [ [-e|-E] query -m max ] [ -a ]"},
    };
    // Without a server: help needs none.
    m_sim.Env()["P4PORT"] = "perforce:1666";
    for (const auto& command : usages)
    {
        Result r = Run({command.first, "--help"});
        EXPECT_EQ(r.status, 0) << command.first;
        EXPECT_EQ(r.out, "Usage: " + command.second + "\n") << command.first;
        EXPECT_EQ(r.err, "") << command.first;
        EXPECT_EQ(Run({"help", command.first}).out, r.out) << command.first;
        EXPECT_EQ(Run({"-G", command.first, "-s", "--help"}).out, r.out) << command.first;
    }
    // A file argument named --help is a file argument; login's -h takes a
    // host.
    m_sim.Env()["P4PORT"] = "sim:" + m_sim.ServerDir();
    Result r = Run({"describe", "7", "--help"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Change 7 unknown.\nInvalid changelist number '--help'.\n");
    r = Run({"login", "-h", "somehost"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "'login' not necessary, no password set for this user.\n");
    EXPECT_EQ(r.err, "");
}

TEST_F(HelpTest, UnknownOptionsAreUsageErrors)
{
    Result r = Run({"--frobnicate", "info"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Usage: p4 [ -G -c client -H host -p port -u user -x file -z tag -d dir ] command [ arg ... ]\n"
                     "Invalid option: --frobnicate.\n");
    r = Run({"sync", "-Z"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Usage: sync [ -f -L -n -N -k -q -r ] [-m max] [ file[revRange] ... ]\nInvalid option: -Z.\n");
}
