#include "P4SimHarness.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <ftw.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace p4simtest {

const char* kHistory = R"JSON({
 "users": [{"name": "jo", "email": "jo@example.com", "fullName": "Jo Doe", "time": 1200000000},
           {"name": "max", "email": "max@example.com", "fullName": "Max Mustermann", "time": 1200000000}],
 "branches": [{"name": "rel1", "owner": "jo", "description": "Release 1",
               "view": ["//depot/main/... //depot/rel1/..."], "time": 1200000300}],
 "changes": [
  {"user": "jo", "client": "jo-ws", "time": 1200000000, "description": "Initial import",
   "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "one\ntwo\n"},
             {"path": "//depot/main/sub/b.txt", "action": "add", "content": "bee\n"},
             {"path": "//depot/main/run.sh", "action": "add", "type": "text+x", "content": "echo hi\n"},
             {"path": "//depot/main/img.bin", "action": "add", "type": "binary", "base64": "AAEC/w=="}]},
  {"user": "max", "client": "max-ws", "time": 1200000100, "description": "Edit a, add the odd name",
   "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "one\ntwo\nthree\n"},
             {"path": "//depot/main/x@y#z*w%v.txt", "action": "add", "content": "odd\n"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000200, "description": "Branch main to rel1",
   "files": [{"path": "//depot/rel1/a.txt", "action": "branch", "from": "//depot/main/a.txt"},
             {"path": "//depot/rel1/sub/b.txt", "action": "branch", "from": "//depot/main/sub/b.txt"}]},
  {"user": "jo", "client": "jo-ws", "time": 1200000200, "description": "Delete b, move run.sh and a description longer than thirty-one bytes\nwith a second line",
   "files": [{"path": "//depot/main/sub/b.txt", "action": "delete"},
             {"path": "//depot/main/tools/run.sh", "action": "move/add", "from": "//depot/main/run.sh"}]},
  {"user": "max", "client": "max-ws", "time": 1200000400, "description": "Integrate a into rel1",
   "files": [{"path": "//depot/rel1/a.txt", "action": "integrate", "from": "//depot/main/a.txt"}]}
 ]
})JSON";

std::string ClientForm(const std::string& root, const std::string& options, const std::string& host,
                       const std::string& lineEnd)
{
    return "Client: ws\nOwner: jo\nHost: " + host + "\nDescription: A test client\nRoot: " + root +
           "\nOptions: " + options + "\nLineEnd: " + lineEnd +
           "\nView: \n \"//depot/main/...\" \"//ws/main/...\"\n \"//depot/rel1/...\" \"//ws/rel 1/...\"\n";
}

Result RunProcess(const std::string& exe, const std::vector<std::string>& args,
                  const std::map<std::string, std::string>& env, const std::string& input, const std::string& cwd)
{
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return {};
    std::vector<std::string> argStore = {exe};
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argStore) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> envStore;
    for (auto& kv : env) envStore.push_back(kv.first + "=" + kv.second);
    std::vector<char*> envp;
    for (auto& e : envStore) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
        execve(exe.c_str(), argv.data(), envp.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    Result r;
    size_t written = 0;
    int inFd = in[1];
    if (input.empty()) {
        close(inFd);
        inFd = -1;
    } else {
        fcntl(inFd, F_SETFL, O_NONBLOCK);
    }
    bool outOpen = true, errOpen = true;
    while (outOpen || errOpen) {
        struct pollfd fds[3];
        int n = 0;
        int iOut = -1, iErr = -1, iIn = -1;
        if (outOpen) { fds[n] = {out[0], POLLIN, 0}; iOut = n++; }
        if (errOpen) { fds[n] = {err[0], POLLIN, 0}; iErr = n++; }
        if (inFd >= 0) { fds[n] = {inFd, POLLOUT, 0}; iIn = n++; }
        if (poll(fds, nfds_t(n), -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        char buf[65536];
        if (iOut >= 0 && fds[iOut].revents) {
            ssize_t k = read(out[0], buf, sizeof buf);
            if (k > 0) r.out.append(buf, size_t(k));
            else outOpen = false;
        }
        if (iErr >= 0 && fds[iErr].revents) {
            ssize_t k = read(err[0], buf, sizeof buf);
            if (k > 0) r.err.append(buf, size_t(k));
            else errOpen = false;
        }
        if (iIn >= 0 && fds[iIn].revents) {
            ssize_t k = write(inFd, input.data() + written, input.size() - written);
            if (k > 0) written += size_t(k);
            if (k < 0 || written == input.size()) {
                close(inFd);
                inFd = -1;
            }
        }
    }
    if (inFd >= 0) close(inFd);
    close(out[0]);
    close(err[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return r;
}

static int RemoveEntry(const char* path, const struct stat*, int, struct FTW*)
{
    chmod(path, 0700);
    remove(path);
    return 0;
}

SimServer::SimServer()
{
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/p4sim-test-XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back(0);
    if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
    m_root = buf.data();
    m_env = {{"P4PORT", "sim:" + ServerDir()}, {"P4USER", "jo"}, {"P4CLIENT", "ws"}, {"P4HOST", "h1"},
             {"TZ", "UTC"}, {"PATH", "/usr/bin:/bin"}};
    for (const char* v : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* s = getenv(v)) m_env[v] = s;
    }
    Result r = Admin({"init", ServerDir()});
    if (r.status != 0) throw std::runtime_error("admin init failed: " + r.err);
}

SimServer::~SimServer() { nftw(m_root.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS); }

Result SimServer::P4(const std::vector<std::string>& args, const std::string& input, const std::string& cwd)
{
    return RunProcess(P4SIM_EXE, args, m_env, input, cwd);
}

Result SimServer::Admin(const std::vector<std::string>& args)
{
    std::vector<std::string> a = {"admin"};
    a.insert(a.end(), args.begin(), args.end());
    return RunProcess(P4SIM_EXE, a, m_env);
}

void SimServer::WriteFile(const std::string& path, const std::string& data)
{
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << data;
}

void SimServer::Load(const std::string& json)
{
    std::string path = m_root + "/history.json";
    WriteFile(path, json);
    Result r = Admin({"load", ServerDir(), path});
    ASSERT_EQ(r.status, 0) << r.err;
}

void SimServer::MakeClient(const std::string& form)
{
    Result r = P4({"client", "-i"}, form);
    ASSERT_EQ(r.status, 0) << r.err << r.out;
}

static void PutStr(std::string& out, const std::string& s)
{
    uint32_t n = uint32_t(s.size());
    out += 's';
    out += char(n & 0xFF);
    out += char((n >> 8) & 0xFF);
    out += char((n >> 16) & 0xFF);
    out += char((n >> 24) & 0xFF);
    out += s;
}

static void PutI(std::string& out, int v)
{
    uint32_t n = uint32_t(v);
    out += 'i';
    for (int i = 0; i < 4; ++i) out += char((n >> (8 * i)) & 0xFF);
}

std::string Stat(const std::vector<std::pair<std::string, std::string>>& fields)
{
    std::string out = "{";
    PutStr(out, "code");
    PutStr(out, "stat");
    for (auto& kv : fields) {
        PutStr(out, kv.first);
        PutStr(out, kv.second);
    }
    return out + "0";
}

std::string Error(const std::string& data, int severity, int generic)
{
    std::string out = "{";
    PutStr(out, "code");
    PutStr(out, "error");
    PutStr(out, "data");
    PutStr(out, data);
    PutStr(out, "severity");
    PutI(out, severity);
    PutStr(out, "generic");
    PutI(out, generic);
    return out + "0";
}

std::string Info(const std::string& data, int level)
{
    std::string out = "{";
    PutStr(out, "code");
    PutStr(out, "info");
    PutStr(out, "data");
    PutStr(out, data);
    PutStr(out, "level");
    PutI(out, level);
    return out + "0";
}

std::string ReadFile(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    std::ostringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

bool Exists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

int Mode(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return -1;
    return int(st.st_mode & 07777);
}

long long Size(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return -1;
    return (long long)st.st_size;
}

long long MTime(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return -1;
    return (long long)st.st_mtime;
}

}  // namespace p4simtest
