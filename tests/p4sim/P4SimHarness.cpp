#include "P4SimHarness.h"

#include "Run.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
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
    std::vector<std::string> argv = {exe};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<std::string> envList;
    for (const auto& kv : env)
        envList.push_back(kv.first + "=" + kv.second);
    const ORVANE::TEST::TRunResult t = ORVANE::TEST::RunProgramWithEnvironment(argv, envList, input, cwd);
    Result r;
    r.status = t.nStatus;
    r.out = t.strOut;
    r.err = t.strErr;
    return r;
}

SimServer::SimServer()
{
    if (m_scratch.Path().empty())
        throw std::runtime_error("no temporary folder");
    m_root = m_scratch.Path();
    m_env = {{"P4PORT", "sim:" + ServerDir()}, {"P4USER", "jo"}, {"P4CLIENT", "ws"}, {"P4HOST", "h1"},
             {"TZ", "UTC"}, {"PATH", "/usr/bin:/bin"}};
    for (const char* v : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* s = getenv(v)) m_env[v] = s;
    }
    Result r = Admin({"init", ServerDir()});
    if (r.status != 0) throw std::runtime_error("admin init failed: " + r.err);
}

SimServer::~SimServer() = default;

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
    PutStr(out, "level");
    PutI(out, level);
    PutStr(out, "data");
    PutStr(out, data);
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
    if (lstat(path.c_str(), &st) != 0)
        return -1;
    return (long long)st.st_size;
}

long long MTime(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return -1;
    return (long long)st.st_mtime;
}

}  // namespace p4simtest
