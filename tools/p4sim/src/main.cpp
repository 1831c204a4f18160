// p4sim: a local stand-in for a Perforce server and its `p4` client.
//
//   p4sim [global options] command [args...]   a `p4` command against the
//                                              server named by P4PORT=sim:DIR
//   p4sim admin init|load|generate ...         administration
//
// Test switches (environment): P4SIM_JOURNAL, P4SIM_FAIL, P4SIM_LATENCY_MS,
// P4SIM_GARBLE (with P4SIM_GARBLE_MODE). See README.md.
#include "Admin.h"
#include "Commands.h"
#include "Util.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <regex.h>
#include <sys/file.h>
#include <unistd.h>

using namespace p4sim;

namespace {

std::string EnvOr(const char* name, const std::string& def)
{
    const char* v = getenv(name);
    return v ? std::string(v) : def;
}

std::string HostName()
{
    char buf[256];
    if (gethostname(buf, sizeof buf) != 0) return "localhost";
    buf[sizeof buf - 1] = 0;
    return buf;
}

std::string LoginName()
{
    if (const char* u = getenv("USER")) return u;
    if (struct passwd* pw = getpwuid(getuid())) return pw->pw_name;
    return "user";
}

std::string ReadFd(int fd)
{
    std::string s;
    char buf[65536];
    while (true) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        s.append(buf, size_t(n));
    }
    return s;
}

void WriteAll(int fd, const std::string& s)
{
    size_t done = 0;
    while (done < s.size()) {
        ssize_t n = write(fd, s.data() + done, s.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += size_t(n);
    }
}

// POSIX extended regular expression, searched anywhere in text.
bool MatchesEnvRegex(const char* var, const std::string& text)
{
    const char* pattern = getenv(var);
    if (!pattern || !*pattern) return false;
    regex_t re;
    if (regcomp(&re, pattern, REG_EXTENDED | REG_NOSUB) != 0) return false;
    bool match = regexec(&re, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&re);
    return match;
}

// Breaks a marshalled output the ways a damaged stream can be broken.
std::string Garble(const std::string& out)
{
    std::string mode = EnvOr("P4SIM_GARBLE_MODE", "cut");
    std::string s = out;
    if (s.empty()) return s;
    if (mode == "type") {
        // The type code of the first value becomes one no reader expects as
        // a string: an integer code.
        size_t key = s.find('s');
        if (key != std::string::npos && key + 5 <= s.size()) {
            uint32_t len = uint32_t((unsigned char)s[key + 1]) | (uint32_t((unsigned char)s[key + 2]) << 8) |
                           (uint32_t((unsigned char)s[key + 3]) << 16) | (uint32_t((unsigned char)s[key + 4]) << 24);
            size_t value = key + 5 + len;
            if (value < s.size()) s[value] = 'i';
        }
        return s;
    }
    if (mode == "length") {
        // The last string's length runs past the end of the output.
        size_t pos = 0, last = std::string::npos;
        while (pos < s.size()) {
            char c = s[pos];
            if (c == '{' || c == '0') {
                ++pos;
            } else if (c == 's' && pos + 5 <= s.size()) {
                uint32_t len = uint32_t((unsigned char)s[pos + 1]) | (uint32_t((unsigned char)s[pos + 2]) << 8) |
                               (uint32_t((unsigned char)s[pos + 3]) << 16) |
                               (uint32_t((unsigned char)s[pos + 4]) << 24);
                last = pos;
                pos += 5 + len;
            } else if (c == 'i') {
                pos += 5;
            } else {
                break;
            }
        }
        if (last != std::string::npos) {
            uint32_t len = uint32_t(s.size() - last) + 1000;
            for (int i = 0; i < 4; ++i) s[last + 1 + i] = char((len >> (8 * i)) & 0xFF);
        }
        return s;
    }
    // "cut": the output ends in the middle of the first record.
    size_t end = s.find('0', 1);
    size_t recordEnd = end == std::string::npos ? s.size() : end;
    return s.substr(0, std::max<size_t>(1, recordEnd / 2));
}

std::string JsonOrNull(const char* var)
{
    const char* v = getenv(var);
    return v ? nlohmann::json(std::string(v)).dump() : "null";
}

void Journal(const std::vector<std::string>& argv, const std::string& cwd, const std::string& input, int status)
{
    const char* path = getenv("P4SIM_JOURNAL");
    if (!path || !*path) return;
    nlohmann::json args = argv;
    std::string joined;
    for (size_t i = 1; i < argv.size(); ++i) joined += (i > 1 ? " " : "") + argv[i];
    auto str = [](const std::string& s) {
        return nlohmann::json(s).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    };
    std::string line = "{\"argv\":" + args.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                       ",\"args\":" + str(joined) + ",\"cwd\":" + str(cwd) + ",\"P4CLIENT\":" + JsonOrNull("P4CLIENT") +
                       ",\"P4HOST\":" + JsonOrNull("P4HOST") + ",\"P4PORT\":" + JsonOrNull("P4PORT") +
                       ",\"P4USER\":" + JsonOrNull("P4USER") + ",\"stdin\":" + str(input) +
                       ",\"exit\":" + std::to_string(status) + "}\n";
    int fd = open(path, O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (fd < 0) return;
    flock(fd, LOCK_EX);
    WriteAll(fd, line);
    flock(fd, LOCK_UN);
    close(fd);
}

struct Invocation {
    std::vector<std::string> argv;
    std::string cwd;
    std::string stdinRead;
    bool stdinTaken = false;

    std::string ReadStdin()
    {
        if (!stdinTaken) {
            stdinRead = ReadFd(0);
            stdinTaken = true;
        }
        return stdinRead;
    }
};

// Prints the error that the real client prints when no server answers.
int ConnectError(const std::string& port, OutputMode mode)
{
    std::string target = port.find(':') == std::string::npos ? port + ":1666" : port;
    if (StartsWith(target, "sim:")) target = port;
    Output out(mode);
    std::string text = "Connect to server failed; check $P4PORT.\nTCP connect to " + target +
                       " failed.\nconnect: " + target + ": Connection refused";
    if (mode == OutputMode::Marshal) {
        out.Message(text, 4, 38);
        WriteAll(1, out.StdOut());
    } else {
        std::string plain = "Perforce client error:\n";
        for (const std::string& l : SplitLines(text)) plain += "\t" + l + "\n";
        WriteAll(2, plain);
    }
    return 1;
}

int Run(Invocation& inv)
{
    std::vector<std::string>& argv = inv.argv;
    OutputMode mode = OutputMode::Plain;
    std::string port = EnvOr("P4PORT", "perforce:1666");
    std::string user = EnvOr("P4USER", "");
    std::string client = EnvOr("P4CLIENT", "");
    std::string host = EnvOr("P4HOST", "");
    std::string argFile;
    size_t i = 1;
    for (; i < argv.size(); ++i) {
        const std::string& a = argv[i];
        if (a.size() < 2 || a[0] != '-') break;
        char f = a[1];
        auto value = [&]() -> std::string {
            if (a.size() > 2) return a.substr(2);
            if (i + 1 < argv.size()) return argv[++i];
            return "";
        };
        switch (f) {
        case 'G': mode = OutputMode::Marshal; break;
        case 'c': client = value(); break;
        case 'H': host = value(); break;
        case 'p': port = value(); break;
        case 'u': user = value(); break;
        case 'x': argFile = value(); break;
        case 'd': inv.cwd = NormalizePath(JoinPath(inv.cwd, value())); break;
        case 'z':
            if (value() == "tag" && mode != OutputMode::Marshal) mode = OutputMode::Tagged;
            break;
        case 'P': case 'C': case 'L': case 'Q': case 'r': case 'v': case 'b': value(); break;
        case 'q': case 'I': case 's': break;
        case 'V':
            WriteAll(1, "Perforce - The Fast Software Configuration Management System.\n"
                        "Rev. P4/LINUX26X86_64/2014.1/p4sim (2014/01/01).\n");
            return 0;
        default: {
            std::string usage = "Usage: p4 [ -G -c client -H host -p port -u user -x file -z tag -d dir ] "
                                "command [ arg ... ]\nInvalid option: " + a + ".\n";
            WriteAll(2, usage);
            return 1;
        }
        }
    }
    if (user.empty()) user = LoginName();
    if (host.empty()) host = HostName();
    if (client.empty()) client = host;
    if (i >= argv.size()) {
        WriteAll(1, "Perforce -- the Fast Software Configuration Management System.\n\n"
                    "    p4sim answers the p4 commands listed in its README.\n");
        return 0;
    }
    std::string command = argv[i];
    std::vector<std::string> args(argv.begin() + long(i) + 1, argv.end());
    if (!argFile.empty()) {
        std::string text = argFile == "-" ? inv.ReadStdin() : ReadWholeFile(argFile);
        for (std::string l : SplitLines(text)) {
            if (!l.empty() && l.back() == '\r') l.pop_back();
            if (!l.empty()) args.push_back(l);
        }
    }

    if (!StartsWith(port, "sim:") || !FileExists(Store::DbPath(port.substr(4)))) return ConnectError(port, mode);

    Output out(mode);
    CommandFn fn = FindCommand(command);
    if (!fn) {
        out.Message("Unknown command.  Try 'p4 help' for info.", 3, 1);
    } else {
        Store store(port.substr(4));
        Context ctx;
        ctx.port = port;
        ctx.user = user;
        ctx.client = client;
        ctx.host = host;
        ctx.cwd = inv.cwd;
        ctx.store = &store;
        ctx.out = &out;
        ctx.readStdin = [&inv]() { return inv.ReadStdin(); };
        ctx.now = (long long)time(nullptr);
        store.Begin(CommandWrites(command, args));
        try {
            fn(ctx, args);
            store.Commit();
        } catch (const P4Error& e) {
            store.Rollback();
            out.Message(e.what(), e.severity, e.generic);
        }
    }
    std::string stdoutText = out.StdOut();
    if (mode == OutputMode::Marshal && MatchesEnvRegex("P4SIM_GARBLE", [&] {
            std::string j;
            for (size_t k = 1; k < argv.size(); ++k) j += (k > 1 ? " " : "") + argv[k];
            return j;
        }())) {
        stdoutText = Garble(stdoutText);
    }
    WriteAll(1, stdoutText);
    WriteAll(2, out.StdErr());
    return out.ExitStatus();
}

}  // namespace

int main(int argc, char** argv)
{
    Invocation inv;
    inv.argv.assign(argv, argv + argc);
    inv.cwd = CurrentDir();
    if (const char* pwd = getenv("PWD")) {
        // Keep the logical current directory, as the real client does.
        if (NormalizePath(pwd) == NormalizePath(inv.cwd)) inv.cwd = pwd;
    }

    if (const char* ms = getenv("P4SIM_LATENCY_MS")) {
        long long v;
        if (ParseUInt(ms, v) && v > 0) {
            struct timespec ts = {time_t(v / 1000), long(v % 1000) * 1000000L};
            while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
            }
        }
    }

    if (argc >= 2 && std::string(argv[1]) == "admin") {
        return RunAdmin(std::vector<std::string>(inv.argv.begin() + 2, inv.argv.end()));
    }

    std::string joined;
    for (int k = 1; k < argc; ++k) joined += (k > 1 ? " " : "") + std::string(argv[k]);
    int status;
    if (MatchesEnvRegex("P4SIM_FAIL", joined)) {
        WriteAll(2, "p4sim: simulated failure of '" + joined + "'\np4sim: the command matched P4SIM_FAIL\n");
        status = 1;
    } else {
        try {
            status = Run(inv);
        } catch (const std::exception& e) {
            WriteAll(2, std::string("p4sim: ") + e.what() + "\n");
            status = 1;
        }
    }
    Journal(inv.argv, inv.cwd, inv.stdinRead, status);
    return status;
}
