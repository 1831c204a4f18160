// The `p4` commands that p4sim answers.
#pragma once

#include "Output.h"
#include "Store.h"
#include "View.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace p4sim {

// What the client side knows when it runs one command: the global options
// and environment as resolved, the standard input on demand.
struct Context {
    std::string port, user, client, host, cwd;
    Store* store = nullptr;
    Output* out = nullptr;
    std::function<std::string()> readStdin;
    long long now = 0;

    std::string ServerDir() const { return port.substr(4); }
};

// Options of one command, parsed the way the real client parses them: a
// flag, or a flag with a value either attached (-m5) or in the next
// argument (-m 5). An unknown flag is a usage error.
struct Options {
    std::map<char, std::vector<std::string>> flags;
    std::vector<std::string> args;
    bool Has(char c) const { return flags.count(c) != 0; }
    std::string Value(char c, const std::string& def = "") const
    {
        auto it = flags.find(c);
        return it == flags.end() || it->second.empty() ? def : it->second.back();
    }
};
Options ParseOptions(const std::vector<std::string>& argv, const std::string& plain, const std::string& withValue,
                     const std::string& usage);

// A file argument split into its path and revision specifier ("@12",
// "#3", "#none", "#head", "@1,@5", or empty).
struct FileArg {
    std::string path;
    std::string rev;
};
FileArg SplitFileArg(const std::string& arg);

// The current client, with its view parsed; error texts as the server's
// when it is unknown or locked to another host.
struct ClientView {
    ClientRec spec;
    MapTable map;
    std::string LocalPath(const std::string& clientFile) const;  // //ws/a%40b -> ROOT/a@b
    // Local path (absolute, normalised) to client syntax; false when the
    // path is not under the root.
    bool ClientPathOf(const std::string& local, std::string& clientPath) const;
};
ClientView LoadClient(Context& ctx, bool checkHost);
// A file argument in depot, client or local syntax, as a pattern in client
// syntax (for client and local paths) or depot syntax. isDepot tells which.
std::string ArgPattern(Context& ctx, const std::string& path, const ClientView* cv, bool& isDepot);
std::string AbsoluteLocal(const Context& ctx, const std::string& path);

bool IsTextType(const std::string& type);

// Each command: reads its arguments, writes through ctx.out; throws P4Error
// for a failure that ends the command.
using CommandFn = void (*)(Context&, const std::vector<std::string>&);
CommandFn FindCommand(const std::string& name);
// Commands that change the server state run in a write transaction.
bool CommandWrites(const std::string& name, const std::vector<std::string>& args);

void CmdSync(Context& ctx, const std::vector<std::string>& args);

}  // namespace p4sim
