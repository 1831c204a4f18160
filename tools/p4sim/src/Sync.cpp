// `p4 sync`: brings the files of the current client to a revision, through
// the client's view, writing, updating and removing files under its root and
// keeping its have list on the server.
#include "Commands.h"
#include "Util.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace p4sim {

namespace {

std::string Num(long long v) { return std::to_string(v); }

enum class Kind { Add, Update, Refresh, Delete };

struct Action {
    Kind kind;
    std::string depotFile, clientFile, local;
    RevRec target;         // for Add, Update, Refresh; for Delete the deleting revision if any
    bool targetKnown = false;
};

struct ClientOptions {
    bool allwrite = false, clobber = false, modtime = false, rmdir = false;
    std::string lineEnd = "\n";
};

ClientOptions ReadOptions(const ClientRec& c)
{
    ClientOptions o;
    for (const std::string& w : SplitWords(c.options)) {
        if (w == "allwrite") o.allwrite = true;
        if (w == "clobber") o.clobber = true;
        if (w == "modtime") o.modtime = true;
        if (w == "rmdir") o.rmdir = true;
    }
    if (c.lineEnd == "win") o.lineEnd = "\r\n";
    else if (c.lineEnd == "mac") o.lineEnd = "\r";
    return o;
}

bool Executable(const std::string& type)
{
    size_t plus = type.find('+');
    if (plus != std::string::npos && type.find('x', plus) != std::string::npos) return true;
    return type == "xtext" || type == "kxtext" || type == "xbinary";
}

bool Writable(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return false;
    return (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
}

std::string ConvertLineEnds(const std::string& data, const std::string& eol)
{
    if (eol == "\n") return data;
    std::string out;
    out.reserve(data.size() + data.size() / 16);
    for (char c : data) {
        if (c == '\n') out += eol;
        else out += c;
    }
    return out;
}

// Writes the file through a temporary name and a rename, so that a reader
// never sees half a file. Returns an error text or "".
std::string WriteLocal(const std::string& path, const std::string& data, mode_t mode, long long mtime)
{
    try {
        MakeDirs(DirName(path));
    } catch (const std::exception& e) {
        return e.what();
    }
    std::string tmp = path + ".p4sim-tmp";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) return "open for write: " + tmp + ": " + std::strerror(errno);
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            std::string err = "write: " + tmp + ": " + std::strerror(errno);
            close(fd);
            unlink(tmp.c_str());
            return err;
        }
        done += size_t(n);
    }
    fchmod(fd, mode);
    close(fd);
    if (mtime > 0) {
        struct timeval tv[2];
        tv[0].tv_sec = time_t(mtime);
        tv[0].tv_usec = 0;
        tv[1] = tv[0];
        utimes(tmp.c_str(), tv);
    }
    if (rename(tmp.c_str(), path.c_str()) != 0) {
        std::string err = "rename: " + path + ": " + std::strerror(errno);
        unlink(tmp.c_str());
        return err;
    }
    return "";
}

void RemoveEmptyDirs(std::string dir, const std::string& root)
{
    std::string r = NormalizePath(root);
    while (dir.size() > r.size() && StartsWith(dir, r + "/")) {
        if (rmdir(dir.c_str()) != 0) break;
        dir = DirName(dir);
    }
}

}  // namespace

void CmdSync(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "fnkNpqLr", "m", "sync [ -f -L -n -N -k -q -r ] [-m max] [ file[revRange] ... ]");
    ClientView cv = LoadClient(ctx, true);
    ClientOptions copt = ReadOptions(cv.spec);
    bool force = o.Has('f'), preview = o.Has('n') || o.Has('N'), keep = o.Has('k'), noHave = o.Has('p');
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    std::vector<std::string> args = o.args;
    if (args.empty()) args.push_back("//" + cv.spec.name + "/...");
    long long maxChange = ctx.store->MaxChange();
    const std::string clientRoot = "//" + cv.spec.name + "/";

    std::vector<Action> plan;
    long long syncChange = 0;
    for (const std::string& a : args) {
        FileArg fa = SplitFileArg(a);
        bool isDepot = false;
        std::string pattern = ArgPattern(ctx, fa.path, &cv, isDepot);
        // The revision specifier, as listings read it.
        bool none = fa.rev == "#none" || fa.rev == "#0";
        bool haveRev = fa.rev == "#have";
        long long atChange = maxChange, exactRev = -1;
        if (!fa.rev.empty() && !none && !haveRev && fa.rev != "#head" && fa.rev != "@now") {
            long long v;
            std::string t = fa.rev.substr(1);
            if (fa.rev[0] == '#') {
                if (!ParseUInt(t, v)) throw P4Error("Invalid revision number '" + t + "'.", 3, 1);
                exactRev = v;
            } else {
                if (!ParseUInt(t, v)) throw P4Error("Invalid changelist number '" + t + "'.", 3, 1);
                if (v > maxChange) v = maxChange;
                atChange = v;
            }
        }
        syncChange = std::max(syncChange, atChange);

        std::map<std::string, RevRec> targets;  // client file -> revision to have
        std::map<std::string, RevRec> deletedAt;
        bool anyInDepot = false, anyMapped = false;
        if (!none && !haveRev) {
            std::vector<std::string> prefixes;
            if (isDepot) prefixes.push_back(LiteralPrefix(pattern));
            else prefixes = cv.map.LeftPrefixesFor(LiteralPrefix(pattern));
            for (const std::string& prefix : prefixes) {
                for (RevRec& r : ctx.store->HeadsUnder(prefix, exactRev >= 0 ? maxChange : atChange)) {
                    std::string cf;
                    bool mapped = cv.map.Translate(r.depotFile, cf);
                    if (isDepot) {
                        if (!WildMatch(pattern, r.depotFile)) continue;
                        anyInDepot = true;
                        if (!mapped) continue;
                    } else if (!mapped || !WildMatch(pattern, cf)) {
                        continue;
                    }
                    anyInDepot = anyMapped = true;
                    if (exactRev >= 0) {
                        if (exactRev > r.rev) continue;
                        auto exact = ctx.store->Rev(r.depotFile, exactRev);
                        if (!exact) continue;
                        r = *exact;
                    }
                    if (r.Deleted()) deletedAt[cf] = r;
                    else targets[cf] = r;
                }
            }
        }
        std::map<std::string, HaveRec> haves;
        for (HaveRec& h : ctx.store->HaveUnder(cv.spec.name, isDepot ? clientRoot : LiteralPrefix(pattern))) {
            if (!WildMatch(pattern, isDepot ? h.depotFile : h.clientFile)) continue;
            haves[h.clientFile] = h;
        }
        if (haveRev) {
            for (auto& kv : haves) {
                auto r = ctx.store->Rev(kv.second.depotFile, kv.second.rev);
                if (r) targets[kv.first] = *r;
            }
            anyInDepot = anyMapped = !haves.empty();
        }

        std::vector<Action> here;
        for (auto& kv : targets) {
            auto h = haves.find(kv.first);
            Action act;
            act.depotFile = kv.second.depotFile;
            act.clientFile = kv.first;
            act.local = cv.LocalPath(kv.first);
            act.target = kv.second;
            act.targetKnown = true;
            if (h == haves.end()) act.kind = Kind::Add;
            else if (h->second.rev != kv.second.rev) act.kind = Kind::Update;
            else if (force) act.kind = Kind::Refresh;
            else continue;
            here.push_back(act);
        }
        for (auto& kv : haves) {
            if (targets.count(kv.first)) continue;
            Action act;
            act.kind = Kind::Delete;
            act.depotFile = kv.second.depotFile;
            act.clientFile = kv.first;
            act.local = cv.LocalPath(kv.first);
            auto d = deletedAt.find(kv.first);
            if (d != deletedAt.end()) {
                act.target = d->second;
                act.targetKnown = true;
            }
            here.push_back(act);
        }
        if (here.empty()) {
            if (!haves.empty() || !targets.empty() || (anyMapped && !deletedAt.empty()) || none) {
                if (haves.empty() && targets.empty() && none) ctx.out->Message(a + " - file(s) up-to-date.", 2, 17);
                else ctx.out->Message(a + " - file(s) up-to-date.", 2, 17);
            } else if (isDepot && anyInDepot && !anyMapped) {
                ctx.out->Message(a + " - file(s) not in client view.", 2, 17);
            } else if (!fa.rev.empty() && fa.rev[0] == '@') {
                ctx.out->Message(a + " - no file(s) at that changelist number.", 2, 17);
            } else {
                ctx.out->Message(a + " - no such file(s).", 2, 17);
            }
        }
        std::sort(here.begin(), here.end(),
                  [](const Action& x, const Action& y) { return x.depotFile < y.depotFile; });
        plan.insert(plan.end(), here.begin(), here.end());
    }
    if (max >= 0 && (long long)plan.size() > max) plan.resize(size_t(max));

    long long totalSize = 0;
    for (const Action& act : plan) {
        if (act.kind != Kind::Delete) totalSize += act.target.size;
    }

    bool first = true;
    for (const Action& act : plan) {
        std::string revText = act.targetKnown ? Num(act.target.rev) : "none";
        const char* word = act.kind == Kind::Add      ? "added"
                           : act.kind == Kind::Update ? "updated"
                           : act.kind == Kind::Refresh ? "refreshed"
                                                       : "deleted";
        const char* plainWord = act.kind == Kind::Add      ? " - added as "
                                : act.kind == Kind::Update ? " - updating "
                                : act.kind == Kind::Refresh ? " - refreshing "
                                                            : " - deleted as ";
        if (!preview) {
            if (act.kind == Kind::Delete) {
                if (!keep) {
                    if (!force && !copt.clobber && Writable(act.local)) {
                        // A writable file may hold the user's work.
                        ctx.out->Message("Can't clobber writable file " + act.local, 3, 34);
                        continue;
                    }
                    if (unlink(act.local.c_str()) != 0 && errno != ENOENT) {
                        ctx.out->Message("unlink: " + act.local + ": " + std::strerror(errno), 3, 34);
                        continue;
                    }
                    if (copt.rmdir) RemoveEmptyDirs(DirName(act.local), cv.spec.root);
                }
                if (!noHave) ctx.store->DeleteHave(cv.spec.name, act.clientFile);
            } else {
                if (!keep) {
                    bool had = act.kind != Kind::Add;
                    if (!force && !copt.clobber && Writable(act.local) && (had || FileExists(act.local))) {
                        ctx.out->Message("Can't clobber writable file " + act.local, 3, 34);
                        continue;
                    }
                    std::string data = ctx.store->Content(act.target.digest);
                    if (IsTextType(act.target.type)) data = ConvertLineEnds(data, copt.lineEnd);
                    mode_t um = umask(0);
                    umask(um);
                    mode_t mode = copt.allwrite ? 0666 : 0444;
                    if (Executable(act.target.type)) mode |= 0111;
                    mode &= ~um;
                    std::string err = WriteLocal(act.local, data, mode, copt.modtime ? act.target.modTime : 0);
                    if (!err.empty()) {
                        ctx.out->Message(err, 3, 34);
                        continue;
                    }
                }
                if (!noHave) ctx.store->PutHave(cv.spec.name, HaveRec{act.clientFile, act.depotFile, act.target.rev});
            }
        }
        Record rec = {{"depotFile", act.depotFile}, {"clientFile", act.local}, {"rev", revText}, {"action", word}};
        if (act.kind != Kind::Delete) rec.push_back({"fileSize", Num(act.target.size)});
        if (first) {
            rec.push_back({"totalFileSize", Num(totalSize)});
            rec.push_back({"totalFileCount", Num((long long)plan.size())});
            rec.push_back({"change", Num(syncChange)});
            first = false;
        }
        if (!o.Has('q')) ctx.out->Stat(rec, act.depotFile + "#" + revText + plainWord + act.local + "\n");
    }
    if (!preview) {
        auto c = ctx.store->Client(cv.spec.name);
        if (c) {
            c->accessed = ctx.now;
            ctx.store->PutClient(*c);
        }
    }
}

}  // namespace p4sim
