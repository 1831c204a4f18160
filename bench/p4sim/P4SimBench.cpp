// Cost per p4sim command: generates a server in a temporary folder and runs
// each command many times as a child process, as the migration module does,
// printing the mean wall time of one invocation.
//
//   p4sim_bench [--runs N] [--changes N] [--files F] [--branches B]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <ftw.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string g_exe = P4SIM_EXE;
double g_cpuMs = 0;  // user + system time of the children run so far

int Run(const std::vector<std::string>& args, const std::string& input = "")
{
    int in[2];
    if (pipe(in) != 0) return -1;
    std::vector<char*> argv;
    std::vector<std::string> store = {g_exe};
    store.insert(store.end(), args.begin(), args.end());
    for (auto& s : store) argv.push_back(const_cast<char*>(s.c_str()));
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        close(in[0]);
        close(in[1]);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        close(null);
        execv(g_exe.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    if (!input.empty() && write(in[1], input.data(), input.size()) < 0) {
    }
    close(in[1]);
    int status = 0;
    struct rusage ru;
    wait4(pid, &status, 0, &ru);
    g_cpuMs += (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000.0 + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1000.0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

double TimeMs(int runs, const std::vector<std::vector<std::string>>& cycle, double& cpu)
{
    g_cpuMs = 0;
    auto start = std::chrono::steady_clock::now();
    int n = 0;
    for (int i = 0; i < runs; ++i) {
        for (const auto& args : cycle) {
            Run(args);
            ++n;
        }
    }
    auto end = std::chrono::steady_clock::now();
    cpu = g_cpuMs / n;
    return std::chrono::duration<double, std::milli>(end - start).count() / n;
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*)
{
    chmod(path, 0700);
    remove(path);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    int runs = 50;
    std::string changes = "300", files = "100", branches = "3";
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        if (a == "--runs") runs = atoi(argv[i + 1]);
        else if (a == "--changes") changes = argv[i + 1];
        else if (a == "--files") files = argv[i + 1];
        else if (a == "--branches") branches = argv[i + 1];
    }
    char templ[] = "/tmp/p4sim-bench-XXXXXX";
    if (!mkdtemp(templ)) return 1;
    std::string root = templ, srv = root + "/srv", ws = root + "/ws";
    setenv("P4PORT", ("sim:" + srv).c_str(), 1);
    setenv("P4USER", "bench", 1);
    setenv("P4CLIENT", "bench_ws", 1);
    setenv("P4HOST", "benchhost", 1);

    auto t0 = std::chrono::steady_clock::now();
    if (Run({"admin", "generate", srv, "--changes", changes, "--files", files, "--branches", branches, "--seed", "1"}) !=
        0) {
        fprintf(stderr, "p4sim_bench: generate failed\n");
        return 1;
    }
    double genMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    std::string form = "Client: bench_ws\nOwner: bench\nHost: \nDescription: bench\nRoot: " + ws +
                       "\nOptions: noallwrite clobber nocompress unlocked modtime normdir \nLineEnd: local\nView: \n"
                       " \"//depot/main/...\" \"//bench_ws/main/...\"\n";
    Run({"client", "-i"}, form);

    printf("p4sim benchmark: %s changes, %s files in the first change, %s branches; mean of %d runs\n"
           "(wall: from start to exit of the child, as a caller sees it; cpu: its user + system time)\n",
           changes.c_str(), files.c_str(), branches.c_str(), runs);
    printf("  %-52s %8.1f ms (once)\n", "admin generate", genMs);
    struct Case {
        std::string name;
        std::vector<std::vector<std::string>> cycle;
    };
    std::vector<Case> cases = {
        {"-G info (process start, no work)", {{"-G", "info"}}},
        {"-G branches", {{"-G", "branches"}}},
        {"-G branch -o rel1", {{"-G", "branch", "-o", "rel1"}}},
        {"-G changes //depot/main/... (all changes of main)", {{"-G", "changes", "//depot/main/..."}}},
        {"-G changes -m 10", {{"-G", "changes", "-m", "10"}}},
        {"-G describe 1 (a change of " + files + " files)", {{"-G", "describe", "1"}}},
        {"-G describe -s 2", {{"-G", "describe", "-s", "2"}}},
        {"sync of " + files + " files (@1, then #none)",
         {{"sync", ws + "/main/...@1"}, {"sync", "-f", ws + "/main/...#none"}}},
        {"sync @1 again (up to date)", {{"sync", ws + "/main/...@1"}}},
        {"-G files //depot/main/...", {{"-G", "files", "//depot/main/..."}}},
        {"-G fstat //depot/main/...", {{"-G", "fstat", "//depot/main/..."}}},
        {"client -i", {{"client", "-i"}}},
    };
    Run({"sync", ws + "/main/...@1"});
    for (const Case& c : cases) {
        double ms, cpu = 0;
        if (c.name == "client -i") {
            g_cpuMs = 0;
            auto start = std::chrono::steady_clock::now();
            for (int i = 0; i < runs; ++i) Run({"client", "-i"}, form);
            ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / runs;
            cpu = g_cpuMs / runs;
        } else {
            ms = TimeMs(runs, c.cycle, cpu);
        }
        printf("  %-52s %8.2f ms wall %8.2f ms cpu\n", c.name.c_str(), ms, cpu);
    }
    nftw(root.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
    return 0;
}
