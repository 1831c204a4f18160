#include "Commands.h"

#include "Util.h"

#include <algorithm>
#include <fstream>
#include <set>

namespace p4sim {

// ---------------------------------------------------------------- helpers

Options ParseOptions(const std::vector<std::string>& argv, const std::string& plain, const std::string& withValue,
                     const std::string& usage)
{
    Options o;
    size_t i = 0;
    for (; i < argv.size(); ++i) {
        const std::string& a = argv[i];
        if (a == "--") {
            ++i;
            break;
        }
        if (a.size() < 2 || a[0] != '-') break;
        for (size_t k = 1; k < a.size(); ++k) {
            char c = a[k];
            if (withValue.find(c) != std::string::npos) {
                std::string v;
                if (k + 1 < a.size()) v = a.substr(k + 1);
                else if (i + 1 < argv.size()) v = argv[++i];
                else throw P4Error("Usage: " + usage + "\nMissing argument for flag -" + std::string(1, c) + ".", 3, 1);
                o.flags[c].push_back(v);
                break;
            }
            if (plain.find(c) == std::string::npos) {
                throw P4Error("Usage: " + usage + "\nInvalid option: " + a + ".", 3, 1);
            }
            o.flags[c];
        }
    }
    for (; i < argv.size(); ++i) o.args.push_back(argv[i]);
    return o;
}

FileArg SplitFileArg(const std::string& arg)
{
    size_t p = arg.find_first_of("@#");
    if (p == std::string::npos) return {arg, ""};
    return {arg.substr(0, p), arg.substr(p)};
}

bool IsTextType(const std::string& type)
{
    // Everything but the binary kinds is text as far as line ends and
    // print's record code go.
    return !(StartsWith(type, "binary") || StartsWith(type, "ubinary") || StartsWith(type, "apple") ||
             StartsWith(type, "resource") || StartsWith(type, "utf16"));
}

std::string ClientView::LocalPath(const std::string& clientFile) const
{
    std::string rest = clientFile.substr(spec.name.size() + 3);
    return JoinPath(spec.root, UnescapeName(rest));
}

bool ClientView::ClientPathOf(const std::string& local, std::string& clientPath) const
{
    std::string root = NormalizePath(spec.root);
    std::string rel;
    if (local == root) rel = "";
    else if (root == "/") rel = local.substr(1);
    else if (StartsWith(local, root + "/")) rel = local.substr(root.size() + 1);
    else return false;
    clientPath = "//" + spec.name + "/" + rel;
    return true;
}

ClientView LoadClient(Context& ctx, bool checkHost)
{
    auto c = ctx.store->Client(ctx.client);
    if (!c) throw P4Error("Client '" + ctx.client + "' unknown - use 'client' command to create it.", 3, 2);
    if (checkHost && !c->host.empty() && c->host != ctx.host) {
        throw P4Error("Client '" + c->name + "' can only be used from host '" + c->host + "'.", 3, 6);
    }
    ClientView cv;
    cv.spec = *c;
    for (const std::string& l : c->view) {
        MapLine ml;
        if (ParseViewLine(l, ml)) cv.map.Add(ml);
    }
    return cv;
}

std::string AbsoluteLocal(const Context& ctx, const std::string& path)
{
    if (StartsWith(path, "/")) return NormalizePath(path);
    return NormalizePath(JoinPath(ctx.cwd, path));
}

std::string ArgPattern(Context& ctx, const std::string& path, const ClientView* cv, bool& isDepot)
{
    if (StartsWith(path, "//")) {
        std::string first = path.substr(2, path.find('/', 2) == std::string::npos ? std::string::npos
                                                                                  : path.find('/', 2) - 2);
        if (cv && first == cv->spec.name) {
            isDepot = false;
            return path;
        }
        isDepot = true;
        return path;
    }
    if (!cv) throw P4Error("Client '" + ctx.client + "' unknown - use 'client' command to create it.", 3, 2);
    std::string local = AbsoluteLocal(ctx, path);
    // A trailing "..." survives normalisation as the last item.
    std::string cp;
    if (!cv->ClientPathOf(local, cp)) {
        throw P4Error("Path '" + local + "' is not under client's root '" + cv->spec.root + "'.", 3, 3);
    }
    isDepot = false;
    return cp;
}

namespace {

std::string Num(long long v) { return std::to_string(v); }

// Description as listings show it: the first 31 bytes, or up to 250 with
// -L, or all of it with -l.
std::string ShortDesc(const std::string& d, size_t max) { return d.size() > max ? d.substr(0, max) : d; }

std::string OneLine(std::string s)
{
    for (char& c : s) {
        if (c == '\n' || c == '\t' || c == '\r') c = ' ';
    }
    return s;
}

std::string Indented(const std::string& text)
{
    std::string out;
    for (const std::string& l : SplitLines(text.size() && text.back() == '\n' ? text.substr(0, text.size() - 1)
                                                                               : text)) {
        out += "\t" + l + "\n";
    }
    return out;
}

// Depot paths that a pattern can touch, with revision bounds, for the
// listing commands.
struct RevBounds {
    long long lo = 1, hi = 0;  // change range, hi 0 = no limit
    long long rev = -1;        // #N exact revision, -1 none
    bool none = false;         // #none
    bool have = false;         // #have
};

RevBounds ParseRev(const std::string& rev, long long maxChange)
{
    RevBounds b;
    b.hi = maxChange;
    if (rev.empty()) return b;
    auto one = [&](const std::string& r, bool upper) -> long long {
        std::string t = r;
        if (!t.empty() && (t[0] == '@' || t[0] == '#')) t = t.substr(1);
        long long v;
        if (t == "head" || t == "now") return maxChange;
        if (ParseUInt(t, v)) return v;
        (void)upper;
        throw P4Error("Invalid changelist number '" + t + "'.", 3, 1);
    };
    size_t comma = rev.find(',');
    if (comma != std::string::npos) {
        std::string a = rev.substr(0, comma), z = rev.substr(comma + 1);
        if (z[0] != '@' && z[0] != '#') z = std::string(1, rev[0]) + z;
        if (rev[0] == '@') {
            b.lo = one(a, false);
            b.hi = std::min(maxChange, one(z, true));
        }
        return b;
    }
    if (rev == "#none" || rev == "#0") {
        b.none = true;
        return b;
    }
    if (rev == "#have") {
        b.have = true;
        return b;
    }
    if (rev == "#head" || rev == "@now") return b;
    if (rev[0] == '#') {
        long long v;
        if (!ParseUInt(rev.substr(1), v)) throw P4Error("Invalid revision number '" + rev.substr(1) + "'.", 3, 1);
        b.rev = v;
        return b;
    }
    if (StartsWith(rev, "@=")) {
        long long v;
        if (!ParseUInt(rev.substr(2), v)) throw P4Error("Invalid changelist number '" + rev.substr(2) + "'.", 3, 1);
        b.lo = b.hi = v;
        return b;
    }
    long long v;
    if (!ParseUInt(rev.substr(1), v)) throw P4Error("Invalid changelist number '" + rev.substr(1) + "'.", 3, 1);
    b.hi = std::min(maxChange, v);
    return b;
}

// The files (with their revision selected by the rev specifier) that one
// argument names. Client and local syntax go through the client's view.
struct ResolvedFile {
    RevRec rev;
    std::string clientFile;  // empty when not mapped or no client
};

std::vector<ResolvedFile> Resolve(Context& ctx, const FileArg& fa, const ClientView* cv, bool allRevs = false)
{
    bool isDepot = true;
    std::string pattern = ArgPattern(ctx, fa.path, cv, isDepot);
    long long maxChange = ctx.store->MaxChange();
    RevBounds b = ParseRev(fa.rev, maxChange);
    std::vector<std::string> prefixes;
    if (isDepot) prefixes.push_back(LiteralPrefix(pattern));
    else prefixes = cv->map.LeftPrefixesFor(LiteralPrefix(pattern));
    std::vector<ResolvedFile> out;
    for (const std::string& prefix : prefixes) {
        std::vector<RevRec> revs;
        if (allRevs) {
            revs = ctx.store->RevsUnder(prefix, b.lo, b.hi);
            std::sort(revs.begin(), revs.end(), [](const RevRec& x, const RevRec& y) {
                return x.depotFile != y.depotFile ? x.depotFile < y.depotFile : x.rev > y.rev;
            });
        } else if (b.rev >= 0) {
            for (RevRec& r : ctx.store->HeadsUnder(prefix, maxChange)) {
                if (r.rev < b.rev) continue;
                auto exact = ctx.store->Rev(r.depotFile, b.rev);
                if (exact) revs.push_back(*exact);
            }
        } else {
            revs = ctx.store->HeadsUnder(prefix, b.hi);
            if (b.lo > 1) {
                revs.erase(std::remove_if(revs.begin(), revs.end(), [&](const RevRec& r) { return r.change < b.lo; }),
                           revs.end());
            }
        }
        for (RevRec& r : revs) {
            ResolvedFile f;
            std::string cf;
            bool mapped = cv && cv->map.Translate(r.depotFile, cf);
            if (isDepot) {
                if (!WildMatch(pattern, r.depotFile)) continue;
            } else {
                if (!mapped || !WildMatch(pattern, cf)) continue;
            }
            if (mapped) f.clientFile = cf;
            f.rev = std::move(r);
            out.push_back(std::move(f));
        }
    }
    return out;
}

std::string NoSuchFiles(const FileArg& fa) { return fa.path + fa.rev + " - no such file(s)."; }

// ---------------------------------------------------------------- forms

struct Form {
    std::vector<std::pair<std::string, std::string>> fields;  // name -> value (lines joined by \n)
    std::string Get(const std::string& name) const
    {
        for (const auto& f : fields) {
            if (ToLower(f.first) == ToLower(name)) return f.second;
        }
        return "";
    }
    bool Has(const std::string& name) const
    {
        for (const auto& f : fields) {
            if (ToLower(f.first) == ToLower(name)) return true;
        }
        return false;
    }
    std::vector<std::string> GetLines(const std::string& name) const
    {
        std::vector<std::string> out;
        for (const std::string& l : SplitLines(Get(name))) {
            if (!Trim(l).empty()) out.push_back(Trim(l));
        }
        return out;
    }
};

// Reads a spec form: "Name: value" on one line, or "Name:" followed by
// lines that start with a blank or a tab; '#' starts a comment line.
Form ParseForm(const std::string& text, const std::string& what)
{
    Form f;
    std::vector<std::string> lines = SplitLines(text);
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string line = lines[i];
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (Trim(line).empty() || line[0] == '#') continue;
        if (line[0] == ' ' || line[0] == '\t') {
            if (f.fields.empty()) {
                throw P4Error("Error in " + what + " specification.\nSyntax error in '" + Trim(line) + "'.", 3, 1);
            }
            std::string& v = f.fields.back().second;
            std::string t = line;
            size_t b = 0;
            while (b < t.size() && (t[b] == ' ' || t[b] == '\t')) ++b;
            v += (v.empty() ? "" : "\n") + t.substr(b);
            continue;
        }
        size_t colon = line.find(':');
        if (colon == std::string::npos || line.find(' ') < colon) {
            throw P4Error("Error in " + what + " specification.\nSyntax error in '" + Trim(line) + "'.", 3, 1);
        }
        std::string name = line.substr(0, colon);
        std::string value = Trim(line.substr(colon + 1));
        f.fields.push_back({name, value});
    }
    return f;
}

std::string FormDescription(const Form& f)
{
    std::string d = f.Get("Description");
    if (d.empty()) return d;
    return d + "\n";
}

// ---------------------------------------------------------------- branches

void CmdBranches(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "t", "umeE", "branches [ -t ] [ -u user ] [ [-e|-E] query -m max ]");
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    long long n = 0;
    for (const BranchRec& b : ctx.store->Branches()) {
        if (max >= 0 && n >= max) break;
        if (o.Has('u') && b.owner != o.Value('u')) continue;
        if (o.Has('e') && !WildMatch(o.Value('e'), b.name)) continue;
        if (o.Has('E') && !WildMatch(ToLower(o.Value('E')), ToLower(b.name))) continue;
        ++n;
        Record r = {{"branch", b.name},      {"Update", Num(b.updated)}, {"Access", Num(b.accessed)},
                    {"Owner", b.owner},      {"Options", b.options},     {"Description", b.description}};
        std::string date = o.Has('t') ? FormatDateTime(b.updated) : FormatDate(b.updated);
        ctx.out->Stat(r, "Branch " + b.name + " " + date + " '" + OneLine(ShortDesc(b.description, 31)) + "'\n");
    }
}

std::string BranchFormText(const BranchRec& b, bool existing)
{
    std::string t =
        "# A Perforce Branch Specification.\n"
        "#\n"
        "#  Branch:      The branch name.\n"
        "#  Update:      The date this specification was last modified.\n"
        "#  Access:      The date of the last 'integrate' using this branch.\n"
        "#  Owner:       The user who created this branch.\n"
        "#  Description: A short description of the branch (optional).\n"
        "#  Options:     Branch update options: [un]locked to allow owner-only edits.\n"
        "#  View:        Lines to map source depot files to target depot files.\n"
        "#\n"
        "# Use 'p4 help branch' to see more about branch views.\n\n";
    t += "Branch:\t" + b.name + "\n\n";
    if (existing) {
        t += "Update:\t" + FormatDateTime(b.updated) + "\n\n";
        t += "Access:\t" + FormatDateTime(b.accessed) + "\n\n";
    }
    t += "Owner:\t" + b.owner + "\n\n";
    t += "Description:\n" + Indented(b.description) + "\n";
    t += "Options:\t" + b.options + "\n\n";
    t += "View:\n";
    for (const std::string& v : b.view) t += "\t" + v + "\n";
    t += "\n";
    return t;
}

void CmdBranch(Context& ctx, const std::vector<std::string>& argv)
{
    const std::string usage = "branch [ -d -f -o -i ] branchname";
    Options o = ParseOptions(argv, "dfoi", "", usage);
    if (o.Has('i')) {
        if (!o.args.empty()) throw P4Error("Usage: " + usage + "\nExtra argument.", 3, 1);
        Form f = ParseForm(ctx.readStdin(), "branch");
        BranchRec b;
        b.name = f.Get("Branch");
        if (b.name.empty()) throw P4Error("Error in branch specification.\nMissing required field 'Branch'.", 3, 1);
        auto old = ctx.store->Branch(b.name);
        b.owner = f.Has("Owner") ? f.Get("Owner") : ctx.user;
        b.description = FormDescription(f);
        b.options = f.Has("Options") ? f.Get("Options") : "unlocked";
        for (const std::string& l : f.GetLines("View")) {
            MapLine ml;
            if (!ParseViewLine(l, ml)) {
                throw P4Error("Error in branch specification.\nWrong number of words for field 'View'.", 3, 1);
            }
            b.view.push_back(FormatViewLine(ml));
        }
        b.updated = b.accessed = ctx.now;
        if (old && old->owner == b.owner && old->description == b.description && old->options == b.options &&
            old->view == b.view) {
            ctx.out->Info("Branch " + b.name + " not changed.");
            return;
        }
        if (old) b.accessed = old->accessed;
        ctx.store->PutBranch(b);
        ctx.out->Info("Branch " + b.name + " saved.");
        return;
    }
    if (o.args.size() != 1) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
    const std::string& name = o.args[0];
    if (o.Has('d')) {
        if (!ctx.store->Branch(name)) throw P4Error("Branch '" + name + "' doesn't exist.", 3, 2);
        ctx.store->DeleteBranch(name);
        ctx.out->Info("Branch " + name + " deleted.");
        return;
    }
    if (!o.Has('o')) {
        throw P4Error("p4sim runs no editor: use 'branch -o " + name + "' and 'branch -i'.", 3, 1);
    }
    auto b = ctx.store->Branch(name);
    bool existing = b.has_value();
    if (!b) {
        b = BranchRec();
        b->name = name;
        b->owner = ctx.user;
        b->description = "Created by " + ctx.user + ".\n";
        b->options = "unlocked";
    }
    Record r = {{"Branch", b->name}};
    if (existing) {
        r.push_back({"Update", FormatDateTime(b->updated)});
        r.push_back({"Access", FormatDateTime(b->accessed)});
    }
    r.push_back({"Owner", b->owner});
    r.push_back({"Description", b->description});
    r.push_back({"Options", b->options});
    for (size_t i = 0; i < b->view.size(); ++i) r.push_back({"View" + Num((long long)i), b->view[i]});
    ctx.out->Stat(r, BranchFormText(*b, existing));
}

// ---------------------------------------------------------------- changes, describe

void CmdChanges(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "ilLtfr", "cemsu",
                             "changes [ -c client -e changelist# -i -l -L -f -m max -r -s status -t -u user ] "
                             "[ file[revRange] ... ]");
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    std::string status = o.Value('s');
    if (o.Has('s') && status != "submitted" && status != "pending" && status != "shelved")
        throw P4Error("Invalid changelist status '" + status + "'.", 3, 1);
    long long minChange = 1;
    if (o.Has('e') && !ParseUInt(o.Value('e'), minChange))
        throw P4Error("Invalid changelist number '" + o.Value('e') + "'.", 3, 1);
    long long maxChange = ctx.store->MaxChange();

    std::set<long long> numbers;
    std::vector<ChangeRec> changes;
    if (o.args.empty()) {
        changes = ctx.store->AllChanges(minChange, maxChange);
    } else {
        std::unique_ptr<ClientView> cv;
        for (const std::string& a : o.args) {
            FileArg fa = SplitFileArg(a);
            bool isDepot = StartsWith(fa.path, "//");
            if (!isDepot || (!ctx.client.empty() && StartsWith(fa.path, "//" + ctx.client + "/"))) {
                if (!cv) cv = std::make_unique<ClientView>(LoadClient(ctx, false));
            }
            RevBounds b = ParseRev(fa.rev, maxChange);
            if (b.rev >= 0 || b.none || b.have) b = RevBounds{1, maxChange, -1, false, false};
            for (const ResolvedFile& f : Resolve(ctx, FileArg{fa.path, "@" + Num(b.lo) + ",@" + Num(b.hi)}, cv.get(), true)) {
                if (f.rev.change >= minChange) numbers.insert(f.rev.change);
            }
        }
        for (auto it = numbers.rbegin(); it != numbers.rend(); ++it) {
            auto c = ctx.store->Change(*it);
            if (c) changes.push_back(*c);
        }
    }
    if (o.Has('r')) std::reverse(changes.begin(), changes.end());
    long long n = 0;
    for (const ChangeRec& c : changes) {
        if (max >= 0 && n >= max) break;
        if (o.Has('s') && c.status != status) continue;
        if (o.Has('u') && c.user != o.Value('u')) continue;
        if (o.Has('c') && c.client != o.Value('c')) continue;
        ++n;
        std::string desc = o.Has('l') ? c.description : ShortDesc(c.description, o.Has('L') ? 250 : 31);
        Record r = {{"change", Num(c.change)}, {"time", Num(c.time)},   {"user", c.user},
                    {"client", c.client},      {"status", c.status},   {"changeType", "public"},
                    {"path", c.path},          {"desc", desc}};
        std::string date = o.Has('t') ? FormatDateTime(c.time) : FormatDate(c.time);
        std::string head = "Change " + Num(c.change) + " on " + date + " by " + c.user + "@" + c.client;
        if (c.status == "pending") head += " *pending*";
        std::string plain = (o.Has('l') || o.Has('L')) ? head + "\n\n" + Indented(desc) + "\n"
                                                       : head + " '" + OneLine(desc) + "'\n";
        ctx.out->Stat(r, plain);
    }
}

void CmdDescribe(Context& ctx, const std::vector<std::string>& argv)
{
    const std::string usage = "describe [-d<flags> -m max -s -S -f -O -I] changelist# ...";
    Options o = ParseOptions(argv, "sSfOI", "dm", usage);
    if (o.args.empty()) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
    for (const std::string& a : o.args) {
        long long n;
        if (!ParseUInt(a, n) || n == 0) {
            ctx.out->Message("Invalid changelist number '" + a + "'.", 3, 1);
            continue;
        }
        auto c = ctx.store->Change(n);
        if (!c) {
            ctx.out->Message("Change " + a + " unknown.", 3, 2);
            continue;
        }
        Record r = {{"change", Num(c->change)}, {"user", c->user},     {"client", c->client},
                    {"time", Num(c->time)},     {"desc", c->description}, {"status", c->status},
                    {"changeType", "public"},   {"path", c->path}};
        std::string plain = "Change " + Num(c->change) + " by " + c->user + "@" + c->client + " on " +
                            FormatDateTime(c->time) + "\n\n" + Indented(c->description) + "\nAffected files ...\n\n";
        std::vector<RevRec> revs = ctx.store->RevsOfChange(n);
        for (size_t i = 0; i < revs.size(); ++i) {
            const RevRec& f = revs[i];
            std::string k = Num((long long)i);
            r.push_back({"depotFile" + k, f.depotFile});
            r.push_back({"action" + k, f.action});
            r.push_back({"type" + k, f.type});
            r.push_back({"rev" + k, Num(f.rev)});
            if (!f.Deleted()) {
                r.push_back({"fileSize" + k, Num(f.size)});
                r.push_back({"digest" + k, f.digest});
            }
            plain += "... " + f.depotFile + "#" + Num(f.rev) + " " + f.action + "\n";
        }
        plain += "\n";
        if (!o.Has('s') && !o.Has('S')) {
            // Differences are announced but not computed: see README.
            plain += "Differences ...\n\n";
            for (const RevRec& f : revs) {
                if (f.action == "edit" || f.action == "integrate") {
                    plain += "==== " + f.depotFile + "#" + Num(f.rev) + " (" + f.type + ") ====\n\n";
                }
            }
        }
        ctx.out->Stat(r, plain);
    }
}

// ---------------------------------------------------------------- clients

const char* kOptionPairs[][2] = {{"allwrite", "noallwrite"}, {"clobber", "noclobber"}, {"compress", "nocompress"},
                                 {"locked", "unlocked"},     {"modtime", "nomodtime"}, {"rmdir", "normdir"}};

std::string NormalizeClientOptions(const std::string& text)
{
    std::vector<std::string> words = SplitWords(text);
    std::vector<std::string> chosen;
    for (auto& pair : kOptionPairs) chosen.push_back(pair[1]);
    for (const std::string& w : words) {
        bool ok = false;
        for (size_t i = 0; i < sizeof kOptionPairs / sizeof *kOptionPairs; ++i) {
            if (w == kOptionPairs[i][0] || w == kOptionPairs[i][1]) {
                chosen[i] = w;
                ok = true;
            }
        }
        // "crlf"/"nocrlf" is an old option that the server still accepts.
        if (w == "crlf" || w == "nocrlf") ok = true;
        if (!ok) throw P4Error("Error in client specification.\nInvalid option '" + w + "' in Options option field.", 3, 1);
    }
    std::string out;
    for (size_t i = 0; i < chosen.size(); ++i) out += (i ? " " : "") + chosen[i];
    return out;
}

ClientRec DefaultClient(const Context& ctx, const std::string& name)
{
    ClientRec c;
    c.name = name;
    c.owner = ctx.user;
    c.host = ctx.host;
    c.description = "Created by " + ctx.user + ".\n";
    c.root = ctx.cwd;
    c.options = "noallwrite noclobber nocompress unlocked nomodtime normdir";
    c.submitOptions = "submitunchanged";
    c.lineEnd = "local";
    c.view.push_back("//depot/... //" + name + "/...");
    return c;
}

std::string ClientFormText(const ClientRec& c, bool existing)
{
    std::string t =
        "# A Perforce Client Specification.\n"
        "#\n"
        "#  Client:      The client name.\n"
        "#  Update:      The date this specification was last modified.\n"
        "#  Access:      The date this client was last used in any way.\n"
        "#  Owner:       The Perforce user name of the user who owns the client\n"
        "#               workspace. The default is the user who created the\n"
        "#               client workspace.\n"
        "#  Host:        If set, restricts access to the named host.\n"
        "#  Description: A short description of the client (optional).\n"
        "#  Root:        The base directory of the client workspace.\n"
        "#  Options:     Client options:\n"
        "#                      [no]allwrite [no]clobber [no]compress\n"
        "#                      [un]locked [no]modtime [no]rmdir\n"
        "#  SubmitOptions:\n"
        "#                      submitunchanged/submitunchanged+reopen\n"
        "#                      revertunchanged/revertunchanged+reopen\n"
        "#                      leaveunchanged/leaveunchanged+reopen\n"
        "#  LineEnd:     Text file line endings on client: local/unix/mac/win/share.\n"
        "#  View:        Lines to map depot files into the client workspace.\n"
        "#\n"
        "# Use 'p4 help client' to see more about client views and options.\n\n";
    t += "Client:\t" + c.name + "\n\n";
    if (existing) {
        t += "Update:\t" + FormatDateTime(c.updated) + "\n\n";
        t += "Access:\t" + FormatDateTime(c.accessed) + "\n\n";
    }
    t += "Owner:\t" + c.owner + "\n\n";
    t += "Host:\t" + c.host + "\n\n";
    t += "Description:\n" + Indented(c.description) + "\n";
    t += "Root:\t" + c.root + "\n\n";
    t += "Options:\t" + c.options + "\n\n";
    t += "SubmitOptions:\t" + c.submitOptions + "\n\n";
    t += "LineEnd:\t" + c.lineEnd + "\n\n";
    t += "View:\n";
    for (const std::string& v : c.view) t += "\t" + v + "\n";
    t += "\n";
    return t;
}

void CmdClient(Context& ctx, const std::vector<std::string>& argv)
{
    const std::string usage = "client [ -d -f -Fs -i -o -t template ] [ clientname ]";
    Options o = ParseOptions(argv, "dfoiFs", "tS", usage);
    if (o.Has('i')) {
        if (!o.args.empty()) throw P4Error("Usage: " + usage + "\nExtra argument.", 3, 1);
        Form f = ParseForm(ctx.readStdin(), "client");
        ClientRec c;
        c.name = f.Get("Client");
        if (c.name.empty()) throw P4Error("Error in client specification.\nMissing required field 'Client'.", 3, 1);
        if (c.name.find_first_of("@#/ ") != std::string::npos || c.name.find("...") != std::string::npos ||
            c.name[0] == '-') {
            throw P4Error("Error in client specification.\nInvalid client name '" + c.name + "'.", 3, 1);
        }
        if (!f.Has("Root") || f.Get("Root").empty()) {
            throw P4Error("Error in client specification.\nMissing required field 'Root'.", 3, 1);
        }
        auto old = ctx.store->Client(c.name);
        c.owner = f.Has("Owner") && !f.Get("Owner").empty() ? f.Get("Owner") : ctx.user;
        c.host = f.Get("Host");
        c.description = FormDescription(f);
        c.root = f.Get("Root");
        c.options = NormalizeClientOptions(f.Get("Options"));
        c.submitOptions = f.Get("SubmitOptions").empty() ? "submitunchanged" : f.Get("SubmitOptions");
        c.lineEnd = f.Get("LineEnd").empty() ? "local" : f.Get("LineEnd");
        static const std::set<std::string> ends = {"local", "unix", "mac", "win", "share"};
        if (!ends.count(c.lineEnd)) {
            throw P4Error("Error in client specification.\nInvalid LineEnd '" + c.lineEnd + "'.", 3, 1);
        }
        std::string prefix = "//" + c.name + "/";
        for (const std::string& l : f.GetLines("View")) {
            MapLine ml;
            if (!ParseViewLine(l, ml)) {
                throw P4Error("Error in client specification.\nWrong number of words for field 'View'.", 3, 1);
            }
            if (!StartsWith(ml.left, "//")) {
                throw P4Error("Error in client specification.\nMapping '" + ml.left + "' is not under '//...'.", 3, 3);
            }
            if (!StartsWith(ml.right, prefix)) {
                throw P4Error("Error in client specification.\nMapping '" + ml.right + "' is not under '" + prefix +
                                  "...'.",
                              3, 3);
            }
            c.view.push_back(FormatViewLine(ml));
        }
        c.updated = c.accessed = ctx.now;
        if (old && old->owner == c.owner && old->host == c.host && old->description == c.description &&
            old->root == c.root && old->options == c.options && old->submitOptions == c.submitOptions &&
            old->lineEnd == c.lineEnd && old->view == c.view) {
            ctx.out->Info("Client " + c.name + " not changed.");
            return;
        }
        ctx.store->PutClient(c);
        ctx.out->Info("Client " + c.name + " saved.");
        return;
    }
    if (o.args.size() > 1) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
    std::string name = o.args.empty() ? ctx.client : o.args[0];
    if (o.Has('d')) {
        if (o.args.empty()) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
        auto c = ctx.store->Client(name);
        if (!c) throw P4Error("Client '" + name + "' doesn't exist.", 3, 2);
        ctx.store->DeleteClient(name);
        ctx.out->Info("Client " + name + " deleted.");
        return;
    }
    if (!o.Has('o')) throw P4Error("p4sim runs no editor: use 'client -o' and 'client -i'.", 3, 1);
    auto c = ctx.store->Client(name);
    bool existing = c.has_value();
    if (!c) c = DefaultClient(ctx, name);
    Record r = {{"Client", c->name}};
    if (existing) {
        r.push_back({"Update", FormatDateTime(c->updated)});
        r.push_back({"Access", FormatDateTime(c->accessed)});
    }
    r.push_back({"Owner", c->owner});
    if (!c->host.empty()) r.push_back({"Host", c->host});
    r.push_back({"Description", c->description});
    r.push_back({"Root", c->root});
    r.push_back({"Options", c->options});
    r.push_back({"SubmitOptions", c->submitOptions});
    r.push_back({"LineEnd", c->lineEnd});
    for (size_t i = 0; i < c->view.size(); ++i) r.push_back({"View" + Num((long long)i), c->view[i]});
    ctx.out->Stat(r, ClientFormText(*c, existing));
}

void CmdClients(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "ta", "umeES", "clients [ -t ] [ -u user ] [ [-e|-E] query -m max ] [ -a ]");
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    long long n = 0;
    for (const ClientRec& c : ctx.store->Clients()) {
        if (max >= 0 && n >= max) break;
        if (o.Has('u') && c.owner != o.Value('u')) continue;
        if (o.Has('e') && !WildMatch(o.Value('e'), c.name)) continue;
        if (o.Has('E') && !WildMatch(ToLower(o.Value('E')), ToLower(c.name))) continue;
        ++n;
        Record r = {{"client", c.name},        {"Update", Num(c.updated)},         {"Access", Num(c.accessed)},
                    {"Owner", c.owner},        {"Options", c.options},             {"SubmitOptions", c.submitOptions},
                    {"LineEnd", c.lineEnd},    {"Root", c.root},                   {"Host", c.host},
                    {"Description", c.description}};
        std::string date = o.Has('t') ? FormatDateTime(c.updated) : FormatDate(c.updated);
        ctx.out->Stat(r, "Client " + c.name + " " + date + " root " + c.root + " '" +
                             OneLine(ShortDesc(c.description, 31)) + "'\n");
    }
}

// ---------------------------------------------------------------- files, fstat, print, have, where

std::unique_ptr<ClientView> ClientIfNeeded(Context& ctx, const std::vector<std::string>& args, bool required,
                                           bool checkHost)
{
    bool need = required;
    for (const std::string& a : args) {
        if (!StartsWith(a, "//") || (!ctx.client.empty() && StartsWith(a, "//" + ctx.client + "/"))) need = true;
    }
    if (!need) {
        // A mapped client file name is shown when the client exists.
        if (ctx.store->Client(ctx.client)) {
            try {
                return std::make_unique<ClientView>(LoadClient(ctx, false));
            } catch (const P4Error&) {
                return nullptr;
            }
        }
        return nullptr;
    }
    return std::make_unique<ClientView>(LoadClient(ctx, checkHost));
}

void CmdFiles(Context& ctx, const std::vector<std::string>& argv)
{
    const std::string usage = "files [ -a ] [ -A ] [ -e ] [ -m max ] file[revRange] ...";
    Options o = ParseOptions(argv, "aAe", "m", usage);
    if (o.args.empty()) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    auto cv = ClientIfNeeded(ctx, o.args, false, false);
    long long n = 0;
    for (const std::string& a : o.args) {
        FileArg fa = SplitFileArg(a);
        bool any = false;
        for (const ResolvedFile& f : Resolve(ctx, fa, cv.get(), o.Has('a'))) {
            if (o.Has('e') && f.rev.Deleted()) continue;
            if (max >= 0 && n >= max) return;
            ++n;
            any = true;
            const RevRec& r = f.rev;
            Record rec = {{"depotFile", r.depotFile}, {"rev", Num(r.rev)},  {"change", Num(r.change)},
                          {"action", r.action},       {"type", r.type},     {"time", Num(r.time)}};
            ctx.out->Stat(rec, r.depotFile + "#" + Num(r.rev) + " - " + r.action + " change " + Num(r.change) + " (" +
                                   r.type + ")\n");
        }
        if (!any) ctx.out->Message(NoSuchFiles(fa), 2, 17);
    }
}

void CmdFstat(Context& ctx, const std::vector<std::string>& argv)
{
    const std::string usage = "fstat [ -F filter -T fields -m max -r ] [ -c | -e changelist# ] [ -Ox -Rx -Sx ] file[rev] ...";
    Options o = ParseOptions(argv, "rL", "FTmceOSRA", usage);
    if (o.args.empty()) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    std::set<std::string> only;
    for (const std::string& t : o.flags['T']) {
        std::string s = t;
        for (char& ch : s) {
            if (ch == ',') ch = ' ';
        }
        for (const std::string& w : SplitWords(s)) only.insert(w);
    }
    auto cv = ClientIfNeeded(ctx, o.args, false, false);
    long long n = 0;
    for (const std::string& a : o.args) {
        FileArg fa = SplitFileArg(a);
        bool any = false;
        for (const ResolvedFile& f : Resolve(ctx, fa, cv.get())) {
            if (max >= 0 && n >= max) return;
            ++n;
            any = true;
            const RevRec& r = f.rev;
            Record rec = {{"depotFile", r.depotFile}};
            if (!f.clientFile.empty()) {
                rec.push_back({"clientFile", cv->LocalPath(f.clientFile)});
                rec.push_back({"isMapped", ""});
            }
            rec.push_back({"headAction", r.action});
            rec.push_back({"headType", r.type});
            rec.push_back({"headTime", Num(r.time)});
            rec.push_back({"headRev", Num(r.rev)});
            rec.push_back({"headChange", Num(r.change)});
            rec.push_back({"headModTime", Num(r.modTime)});
            if (cv && !f.clientFile.empty()) {
                auto h = ctx.store->Have(cv->spec.name, f.clientFile);
                if (h) rec.push_back({"haveRev", Num(h->rev)});
            }
            if (!only.empty()) {
                Record kept;
                for (auto& kv : rec) {
                    if (only.count(kv.first)) kept.push_back(kv);
                }
                rec = kept;
            }
            std::string plain;
            for (auto& kv : rec) plain += "... " + kv.first + (kv.second.empty() ? "" : " " + kv.second) + "\n";
            plain += "\n";
            ctx.out->Stat(rec, plain);
        }
        if (!any) ctx.out->Message(NoSuchFiles(fa), 2, 17);
    }
}

void CmdPrint(Context& ctx, const std::vector<std::string>& argv)
{
    const std::string usage = "print [-a -A -k -o localFile -q -m max] [--offset offset --size size] file[revRange] ...";
    Options o = ParseOptions(argv, "aAkqU", "om", usage);
    if (o.args.empty()) throw P4Error("Usage: " + usage + "\nMissing/wrong number of arguments.", 3, 1);
    auto cv = ClientIfNeeded(ctx, o.args, false, false);
    std::string outFile = o.Value('o');
    std::string written;
    for (const std::string& a : o.args) {
        FileArg fa = SplitFileArg(a);
        bool any = false;
        for (const ResolvedFile& f : Resolve(ctx, fa, cv.get(), o.Has('a'))) {
            const RevRec& r = f.rev;
            any = true;
            if (r.Deleted() && !o.Has('a')) continue;
            Record rec = {{"depotFile", r.depotFile}, {"rev", Num(r.rev)},  {"change", Num(r.change)},
                          {"action", r.action},       {"type", r.type},     {"time", Num(r.time)},
                          {"fileSize", Num(r.size)}};
            std::string header = r.depotFile + "#" + Num(r.rev) + " - " + r.action + " change " + Num(r.change) +
                                 " (" + r.type + ")\n";
            if (!o.Has('q')) ctx.out->Stat(rec, header);
            if (r.Deleted()) continue;
            std::string data = ctx.store->Content(r.digest);
            if (!outFile.empty()) {
                written += data;
            } else {
                ctx.out->Content(data, !IsTextType(r.type));
            }
        }
        if (!any) ctx.out->Message(NoSuchFiles(fa), 2, 17);
    }
    if (!outFile.empty()) {
        std::string path = AbsoluteLocal(ctx, outFile);
        std::ofstream f(path, std::ios::binary | std::ios::trunc);
        if (!f) throw P4Error("open for write: " + path + ": No such file or directory", 3, 33);
        f << written;
    }
}

void CmdHave(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "", "", "have [ file ... ]");
    ClientView cv = LoadClient(ctx, true);
    std::vector<std::string> args = o.args;
    if (args.empty()) args.push_back("//" + cv.spec.name + "/...");
    for (const std::string& a : args) {
        FileArg fa = SplitFileArg(a);
        bool isDepot = false;
        std::string pattern = ArgPattern(ctx, fa.path, &cv, isDepot);
        bool any = false;
        for (const HaveRec& h : ctx.store->HaveUnder(cv.spec.name, isDepot ? "//" + cv.spec.name + "/" : LiteralPrefix(pattern))) {
            if (!WildMatch(pattern, isDepot ? h.depotFile : h.clientFile)) continue;
            any = true;
            std::string local = cv.LocalPath(h.clientFile);
            Record rec = {{"depotFile", h.depotFile}, {"clientFile", h.clientFile}, {"path", local},
                          {"haveRev", Num(h.rev)}};
            ctx.out->Stat(rec, h.depotFile + "#" + Num(h.rev) + " - " + local + "\n");
        }
        if (!any) ctx.out->Message(fa.path + fa.rev + " - file(s) not on client.", 2, 17);
    }
}

void CmdWhere(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "", "", "where [ file ... ]");
    ClientView cv = LoadClient(ctx, true);
    std::vector<std::string> args = o.args;
    if (args.empty()) args.push_back(ctx.cwd + "/...");
    for (const std::string& a : args) {
        bool isDepot = false;
        std::string pattern = ArgPattern(ctx, SplitFileArg(a).path, &cv, isDepot);
        std::string depot, client;
        bool ok = isDepot ? cv.map.Translate(pattern, client) : cv.map.TranslateBack(pattern, depot);
        if (isDepot) depot = pattern;
        else client = pattern;
        if (!ok) {
            ctx.out->Message(a + " - file(s) not in client view.", 2, 17);
            continue;
        }
        std::string local = cv.LocalPath(client);
        Record rec = {{"depotFile", depot}, {"clientFile", client}, {"path", local}};
        ctx.out->Stat(rec, depot + " " + client + " " + local + "\n");
    }
}

// ---------------------------------------------------------------- users, info, login

void CmdUsers(Context& ctx, const std::vector<std::string>& argv)
{
    Options o = ParseOptions(argv, "alr", "m", "users [ -l -a -r ] [ -m max ] [ user ... ]");
    long long max = -1;
    if (o.Has('m') && !ParseUInt(o.Value('m'), max)) throw P4Error("Invalid maximum value '" + o.Value('m') + "'.", 3, 1);
    long long n = 0;
    for (const UserRec& u : ctx.store->Users()) {
        if (max >= 0 && n >= max) break;
        if (!o.args.empty()) {
            bool match = false;
            for (const std::string& p : o.args) match = match || WildMatch(p, u.name);
            if (!match) continue;
        }
        ++n;
        Record rec = {{"User", u.name},          {"Type", "standard"},        {"Email", u.email},
                      {"Update", Num(u.updated)}, {"Access", Num(u.accessed)}, {"FullName", u.fullName}};
        ctx.out->Stat(rec, u.name + " <" + u.email + "> (" + u.fullName + ") accessed " + FormatDate(u.accessed) + "\n");
    }
}

void CmdInfo(Context& ctx, const std::vector<std::string>& argv)
{
    ParseOptions(argv, "s", "", "info [ -s ]");
    auto c = ctx.store->Client(ctx.client);
    std::string root = c ? c->root : "*unknown*";
    std::string created = ctx.store->Meta("created", "0");
    long long start = 0;
    ParseUInt(created, start);
    std::string date = FormatDateTime(ctx.now);
    char tz[16];
    time_t now = time_t(ctx.now);
    struct tm tmv;
    localtime_r(&now, &tmv);
    strftime(tz, sizeof tz, "%z %Z", &tmv);
    std::string version = "P4D/LINUX26X86_64/2014.1/p4sim (2014/01/01)";
    Record rec = {{"userName", ctx.user},
                  {"clientName", c ? ctx.client : "*unknown*"},
                  {"clientRoot", root},
                  {"clientCwd", ctx.cwd},
                  {"clientHost", ctx.host},
                  {"clientAddress", "127.0.0.1"},
                  {"serverAddress", ctx.port},
                  {"serverRoot", ctx.ServerDir()},
                  {"serverDate", date + " " + tz},
                  {"serverUptime", "00:00:00"},
                  {"serverVersion", version},
                  {"serverLicense", "none"},
                  {"caseHandling", "sensitive"}};
    std::string plain = "User name: " + ctx.user + "\nClient name: " + (c ? ctx.client : "*unknown*") +
                        "\nClient host: " + ctx.host + "\nClient root: " + root + "\nCurrent directory: " + ctx.cwd +
                        "\nPeer address: 127.0.0.1:0\nClient address: 127.0.0.1\nServer address: " + ctx.port +
                        "\nServer root: " + ctx.ServerDir() + "\nServer date: " + date + " " + tz +
                        "\nServer uptime: 00:00:00\nServer version: " + version +
                        "\nServer license: none\nCase Handling: sensitive\n";
    ctx.out->Stat(rec, plain);
}

void CmdLogin(Context& ctx, const std::vector<std::string>& argv)
{
    ParseOptions(argv, "asp", "h", "login [ -a -p ] [ -h host ] [ user ]");
    // No passwords in p4sim: every user is at security level 0 without one.
    ctx.out->Message("'login' not necessary, no password set for this user.", 1, 0);
}

struct Entry {
    const char* name;
    CommandFn fn;
};

const Entry kCommands[] = {
    {"branches", CmdBranches}, {"branch", CmdBranch}, {"changes", CmdChanges}, {"changelists", CmdChanges},
    {"describe", CmdDescribe}, {"client", CmdClient}, {"workspace", CmdClient}, {"clients", CmdClients},
    {"workspaces", CmdClients}, {"sync", CmdSync},    {"get", CmdSync},        {"have", CmdHave},
    {"files", CmdFiles},       {"fstat", CmdFstat},   {"print", CmdPrint},     {"users", CmdUsers},
    {"info", CmdInfo},         {"where", CmdWhere},   {"login", CmdLogin},
};

}  // namespace

CommandFn FindCommand(const std::string& name)
{
    for (const Entry& e : kCommands) {
        if (name == e.name) return e.fn;
    }
    return nullptr;
}

bool CommandWrites(const std::string& name, const std::vector<std::string>& args)
{
    if (name == "sync" || name == "get") return true;
    if (name == "client" || name == "workspace" || name == "branch") {
        for (const std::string& a : args) {
            if (a == "-o") return false;
        }
        return true;
    }
    return false;
}

}  // namespace p4sim
