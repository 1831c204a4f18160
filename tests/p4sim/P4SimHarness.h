// Runs the built p4sim as a child process against a server of its own.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Scratch.h"

namespace p4simtest {

struct Result {
    int status = -1;
    std::string out, err;
};

// Starts exe directly (no shell) with exactly the given environment, feeds
// input on its standard input and collects both outputs.
Result RunProcess(const std::string& exe, const std::vector<std::string>& args,
                  const std::map<std::string, std::string>& env, const std::string& input = "",
                  const std::string& cwd = "");

// A temporary folder with a server in DIR/srv; removed with everything in
// it when the object goes.
class SimServer {
public:
    SimServer();
    ~SimServer();
    SimServer(const SimServer&) = delete;
    SimServer& operator=(const SimServer&) = delete;

    const std::string& Root() const { return m_root; }
    std::string ServerDir() const { return m_root + "/srv"; }
    std::map<std::string, std::string>& Env() { return m_env; }

    Result P4(const std::vector<std::string>& args, const std::string& input = "", const std::string& cwd = "");
    Result Admin(const std::vector<std::string>& args);
    // Loads a history given as JSON text; fails the test when it fails.
    void Load(const std::string& json);
    // Creates a client from form text; fails the test when it fails.
    void MakeClient(const std::string& form);
    void WriteFile(const std::string& path, const std::string& data);

private:
    ORVANE::TEST::CScratchFolder m_scratch{"p4sim-test"};
    std::string m_root;
    std::map<std::string, std::string> m_env;
};

// Marshal encoding, built independently of p4sim's code, for the expected
// bytes: one dictionary of strings (with "code" "stat" first), and an error.
std::string Stat(const std::vector<std::pair<std::string, std::string>>& fields);
std::string Error(const std::string& data, int severity, int generic);
std::string Info(const std::string& data, int level = 0);

std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);
int Mode(const std::string& path);  // permission bits
long long Size(const std::string& path); // -1 when missing
long long MTime(const std::string& path);

// The history most tests load.
extern const char* kHistory;
// The form of the client most tests use, with root ROOT.
std::string ClientForm(const std::string& root, const std::string& options = "noallwrite clobber nocompress unlocked nomodtime normdir",
                       const std::string& host = "", const std::string& lineEnd = "local");

}  // namespace p4simtest
