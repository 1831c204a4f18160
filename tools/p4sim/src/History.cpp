#include "History.h"

#include "Util.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

namespace p4sim {

using nlohmann::json;

namespace {

std::string Str(const json& j, const char* key, const std::string& def = "")
{
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    if (!it->is_string()) throw std::runtime_error(std::string("'") + key + "' must be a string");
    return it->get<std::string>();
}

long long Int(const json& j, const char* key, long long def = 0)
{
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    if (!it->is_number_integer()) throw std::runtime_error(std::string("'") + key + "' must be an integer");
    return it->get<long long>();
}

std::vector<std::string> Lines(const json& j, const char* key)
{
    std::vector<std::string> out;
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return out;
    if (it->is_string()) return SplitLines(it->get<std::string>());
    if (!it->is_array()) throw std::runtime_error(std::string("'") + key + "' must be a list of lines");
    for (const json& l : *it) out.push_back(l.get<std::string>());
    return out;
}

// A server keeps form and change descriptions with a final line end.
std::string WithNewline(const std::string& s)
{
    if (s.empty() || s.back() == '\n') return s;
    return s + "\n";
}

bool IsBinaryType(const std::string& type)
{
    return StartsWith(type, "binary") || StartsWith(type, "ubinary") || StartsWith(type, "apple") ||
           StartsWith(type, "resource");
}

void CheckDepotPath(const std::string& p)
{
    if (!StartsWith(p, "//") || p.size() < 4 || EndsWith(p, "/") || p.find("...") != std::string::npos) {
        throw std::runtime_error("bad depot file path '" + p + "'");
    }
}

}  // namespace

History ParseHistory(const json& j)
{
    if (!j.is_object()) throw std::runtime_error("the history must be a JSON object");
    History h;
    for (const json& u : j.value("users", json::array())) {
        UserRec r;
        r.name = Str(u, "name");
        if (r.name.empty()) throw std::runtime_error("a user without a name");
        r.email = Str(u, "email", r.name + "@p4sim");
        r.fullName = Str(u, "fullName", r.name);
        r.updated = r.accessed = Int(u, "time", 0);
        h.users.push_back(r);
    }
    for (const json& b : j.value("branches", json::array())) {
        BranchRec r;
        r.name = Str(b, "name");
        if (r.name.empty()) throw std::runtime_error("a branch spec without a name");
        r.owner = Str(b, "owner", "p4sim");
        r.description = WithNewline(Str(b, "description", "Created by " + r.owner + "."));
        r.options = Str(b, "options", "unlocked");
        r.view = Lines(b, "view");
        r.updated = r.accessed = Int(b, "time", 0);
        h.branches.push_back(r);
    }
    for (const json& c : j.value("clients", json::array())) {
        ClientRec r;
        r.name = Str(c, "name");
        if (r.name.empty()) throw std::runtime_error("a client without a name");
        r.owner = Str(c, "owner", "p4sim");
        r.host = Str(c, "host");
        r.description = WithNewline(Str(c, "description", "Created by " + r.owner + "."));
        r.root = Str(c, "root");
        r.options = Str(c, "options", "noallwrite noclobber nocompress unlocked nomodtime normdir");
        r.submitOptions = Str(c, "submitOptions", "submitunchanged");
        r.lineEnd = Str(c, "lineEnd", "local");
        r.view = Lines(c, "view");
        r.updated = r.accessed = Int(c, "time", 0);
        h.clients.push_back(r);
    }
    for (const json& c : j.value("changes", json::array())) {
        ChangeSpec cs;
        cs.change = Int(c, "change", 0);
        cs.user = Str(c, "user", "p4sim");
        cs.client = Str(c, "client", cs.user + "-ws");
        cs.time = Int(c, "time", 0);
        cs.description = WithNewline(Str(c, "description", "change"));
        for (const json& f : c.value("files", json::array())) {
            FileAction a;
            a.path = Str(f, "path");
            CheckDepotPath(a.path);
            a.action = Str(f, "action", "edit");
            static const std::set<std::string> actions = {"add",       "edit",     "delete",     "branch",
                                                          "integrate", "move/add", "move/delete"};
            if (!actions.count(a.action)) throw std::runtime_error("unknown action '" + a.action + "'");
            a.type = Str(f, "type");
            if (f.contains("content")) {
                a.hasContent = true;
                a.content = Str(f, "content");
            } else if (f.contains("base64")) {
                a.hasContent = true;
                a.content = Base64Decode(Str(f, "base64"));
            }
            a.from = Str(f, "from");
            if (!a.from.empty()) CheckDepotPath(a.from);
            a.fromRev = Int(f, "fromRev", 0);
            cs.files.push_back(a);
        }
        h.changes.push_back(cs);
    }
    return h;
}

json HistoryToJson(const History& h)
{
    json j = json::object();
    json users = json::array();
    for (const UserRec& u : h.users) {
        users.push_back({{"name", u.name}, {"email", u.email}, {"fullName", u.fullName}, {"time", u.updated}});
    }
    j["users"] = users;
    json branches = json::array();
    for (const BranchRec& b : h.branches) {
        branches.push_back({{"name", b.name},
                            {"owner", b.owner},
                            {"description", b.description},
                            {"options", b.options},
                            {"view", b.view},
                            {"time", b.updated}});
    }
    j["branches"] = branches;
    json changes = json::array();
    for (const ChangeSpec& c : h.changes) {
        json files = json::array();
        for (const FileAction& a : c.files) {
            json f = {{"path", a.path}, {"action", a.action}};
            if (!a.type.empty()) f["type"] = a.type;
            if (a.hasContent) {
                if (IsBinaryType(a.type)) f["base64"] = Base64Encode(a.content);
                else f["content"] = a.content;
            }
            if (!a.from.empty()) f["from"] = a.from;
            if (a.fromRev) f["fromRev"] = a.fromRev;
            files.push_back(f);
        }
        json jc = {{"user", c.user}, {"client", c.client}, {"time", c.time}, {"description", c.description}};
        if (c.change) jc["change"] = c.change;
        jc["files"] = files;
        changes.push_back(jc);
    }
    j["changes"] = changes;
    return j;
}

// ---------------------------------------------------------------- submission

namespace {

// The common folder of a change's files, as the server shows it in the
// "path" field: //depot/main/... for //depot/main/a and //depot/main/b/c.
std::string CommonPath(const std::vector<std::string>& files)
{
    if (files.empty()) return "";
    std::string prefix = files[0].substr(0, files[0].rfind('/') + 1);
    for (const std::string& f : files) {
        while (!StartsWith(f, prefix)) {
            prefix.pop_back();
            prefix = prefix.substr(0, prefix.rfind('/') + 1);
        }
    }
    if (prefix.size() < 3) prefix = "//";
    return prefix + "...";
}

}  // namespace

void SubmitHistory(Store& store, const History& h)
{
    for (const UserRec& u : h.users) store.PutUser(u);
    long long lastTime = 0;
    long long next = store.MaxChange() + 1;
    for (const ChangeSpec& c : h.changes) {
        long long number = c.change ? c.change : next;
        if (number < next) {
            throw std::runtime_error("change " + std::to_string(number) + " is not above the last change " +
                                     std::to_string(next - 1));
        }
        next = number + 1;
        lastTime = c.time;
        if (c.files.empty()) throw std::runtime_error("change " + std::to_string(number) + " has no files");

        // Each file once per change; move/add brings its move/delete along.
        std::vector<FileAction> actions = c.files;
        std::set<std::string> seen;
        for (const FileAction& a : c.files) seen.insert(a.path);
        for (const FileAction& a : c.files) {
            if (a.action == "move/add") {
                if (a.from.empty()) throw std::runtime_error("move/add of " + a.path + " without 'from'");
                if (!seen.count(a.from)) {
                    FileAction d;
                    d.path = a.from;
                    d.action = "move/delete";
                    actions.push_back(d);
                    seen.insert(a.from);
                }
            }
        }
        if (seen.size() != actions.size()) {
            throw std::runtime_error("change " + std::to_string(number) + " names a file twice");
        }

        std::vector<std::string> depotFiles;
        std::vector<RevRec> revs;
        for (const FileAction& a : actions) {
            std::string depot = EscapeName(a.path);
            auto head = store.HeadRev(depot, number - 1);
            bool exists = head && !head->Deleted();
            RevRec r;
            r.depotFile = depot;
            r.rev = head ? head->rev + 1 : 1;
            r.change = number;
            r.action = a.action;
            r.time = c.time;
            r.modTime = c.time;
            std::string what = a.action + " of " + a.path + " in change " + std::to_string(number);
            std::string content = a.content;
            bool haveContent = a.hasContent;
            std::string type = a.type;

            if (a.action == "add" || a.action == "branch" || a.action == "move/add") {
                if (exists) throw std::runtime_error(what + ": the file exists");
            } else if (!exists) {
                throw std::runtime_error(what + ": no such file");
            }
            if (a.action == "branch" || a.action == "integrate" || a.action == "move/add") {
                if (a.from.empty()) throw std::runtime_error(what + ": no 'from'");
                std::string src = EscapeName(a.from);
                std::optional<RevRec> s =
                    a.fromRev ? store.Rev(src, a.fromRev) : store.HeadRev(src, number - 1);
                if (!s || s->Deleted()) throw std::runtime_error(what + ": no such source " + a.from);
                if (!haveContent) {
                    content = store.Content(s->digest);
                    haveContent = true;
                }
                if (type.empty()) type = s->type;
            }
            if (a.action == "delete" || a.action == "move/delete") {
                r.type = type.empty() ? head->type : type;
                r.size = 0;
            } else {
                if (type.empty()) type = exists ? head->type : "text";
                if (a.action == "edit" && !haveContent) throw std::runtime_error(what + ": no content");
                r.type = type;
                r.digest = Md5Hex(content);
                r.size = (long long)content.size();
                store.PutContent(r.digest, content);
            }
            depotFiles.push_back(depot);
            revs.push_back(r);
        }
        for (const RevRec& r : revs) store.PutRev(r);

        ChangeRec cr;
        cr.change = number;
        cr.user = c.user;
        cr.client = c.client;
        cr.time = c.time;
        cr.description = c.description;
        cr.status = "submitted";
        cr.path = CommonPath(depotFiles);
        store.PutChange(cr);

        if (!store.User(c.user)) {
            UserRec u;
            u.name = c.user;
            u.email = c.user + "@" + c.client;
            u.fullName = c.user;
            u.updated = u.accessed = c.time;
            store.PutUser(u);
        }
    }
    for (BranchRec b : h.branches) {
        if (!b.updated) b.updated = b.accessed = lastTime;
        store.PutBranch(b);
    }
    for (ClientRec c : h.clients) {
        if (!c.updated) c.updated = c.accessed = lastTime;
        store.PutClient(c);
    }
    store.SetMeta("change", std::to_string(next - 1));
}

// ---------------------------------------------------------------- generation

namespace {

const char* kWords[] = {"alpha",  "buffer", "cache", "delta",  "engine", "filter", "graph", "handle",
                        "index",  "join",   "kernel", "layout", "merge", "node",   "offset", "parse",
                        "queue",  "render", "stream", "token", "update", "vector", "window", "yield"};
const char* kUsers[] = {"alice", "bob", "carol", "dave", "erin", "frank"};
const char* kDirs[] = {"src", "src/core", "src/ui", "include", "docs", "tests", "assets", "tools"};

struct FileState {
    std::string type;
    std::string content;
};

std::string Word(Random& r) { return kWords[r.Below(sizeof kWords / sizeof *kWords)]; }

std::string MakeText(Random& r, size_t lines)
{
    std::string s;
    for (size_t i = 0; i < lines; ++i) {
        size_t n = 1 + r.Below(8);
        for (size_t k = 0; k < n; ++k) {
            if (k) s += ' ';
            s += Word(r);
        }
        s += '\n';
    }
    return s;
}

std::string MakeBinary(Random& r, size_t size)
{
    std::string s(size, '\0');
    for (char& c : s) c = char(r.Below(256));
    return s;
}

// Varied sizes: mostly small, some medium, now and then a large one.
size_t TextLines(Random& r)
{
    unsigned k = unsigned(r.Below(100));
    if (k < 60) return 1 + r.Below(20);
    if (k < 95) return 20 + r.Below(200);
    return 1000 + r.Below(2000);
}

std::string EditText(Random& r, const std::string& old)
{
    std::vector<std::string> lines = SplitLines(old);
    if (!lines.empty() && lines.back().empty()) lines.pop_back();
    size_t edits = 1 + r.Below(4);
    for (size_t e = 0; e < edits; ++e) {
        size_t at = lines.empty() ? 0 : r.Below(lines.size() + 1);
        switch (r.Below(3)) {
        case 0: lines.insert(lines.begin() + long(at), Word(r) + " " + Word(r)); break;
        case 1:
            if (!lines.empty() && at < lines.size()) lines.erase(lines.begin() + long(at));
            break;
        default:
            if (at < lines.size()) lines[at] = Word(r) + " " + Word(r) + " " + Word(r);
            else lines.push_back(Word(r));
        }
    }
    std::string s;
    for (const std::string& l : lines) s += l + "\n";
    return s;
}

class Generator {
public:
    explicit Generator(const GenerateOptions& o) : m_opt(o), m_rand(o.seed) {}

    History Run()
    {
        for (const char* u : kUsers) {
            UserRec rec;
            rec.name = u;
            rec.email = std::string(u) + "@example.com";
            rec.fullName = std::string(1, char(u[0] - 'a' + 'A')) + (u + 1);
            rec.updated = rec.accessed = m_time;
            m_h.users.push_back(rec);
        }
        m_streams.push_back("//depot/main/");
        long long total = std::max(1LL, m_opt.changes);
        // The first change imports the mainline.
        Begin("Initial import of the mainline");
        for (long long i = 0; i < std::max(1LL, m_opt.files); ++i) AddNewFile("//depot/main/");
        End();
        long long branchesMade = 0;
        for (long long n = 2; n <= total; ++n) {
            // Branches are spread evenly over the history.
            if (branchesMade < m_opt.branches && n >= 2 + (branchesMade + 1) * (total - 1) / (m_opt.branches + 1)) {
                MakeBranch();
                ++branchesMade;
                continue;
            }
            unsigned kind = unsigned(m_rand.Below(100));
            if (kind < 10 && m_streams.size() > 1) {
                Integrate();
            } else if (kind < 18 && m_streams.size() > 1) {
                MultiStreamEdit();
            } else {
                Work(m_streams[m_rand.Below(m_streams.size())]);
            }
        }
        long long branchesLeft = m_opt.branches - branchesMade;
        while (branchesLeft-- > 0) MakeBranch();
        return m_h;
    }

private:
    void Begin(const std::string& desc)
    {
        // Equal submit times now and then; otherwise minutes to hours apart.
        if (!m_h.changes.empty() && !m_rand.Chance(8)) m_time += 60 + static_cast<long long>(m_rand.Below(7200));
        ChangeSpec c;
        c.user = kUsers[m_rand.Below(sizeof kUsers / sizeof *kUsers)];
        c.client = c.user + "-ws";
        c.time = m_time;
        c.description = desc + "\n";
        if (m_rand.Chance(20)) c.description += "\n" + MakeText(m_rand, 1 + m_rand.Below(4));
        m_cur = c;
    }

    void End()
    {
        if (!m_cur.files.empty()) m_h.changes.push_back(m_cur);
        m_cur = ChangeSpec();
    }

    bool Touched(const std::string& path) const
    {
        for (const FileAction& a : m_cur.files) {
            if (a.path == path || a.from == path) return true;
        }
        return false;
    }

    std::vector<std::string> FilesIn(const std::string& stream) const
    {
        std::vector<std::string> out;
        for (auto it = m_files.lower_bound(stream); it != m_files.end() && StartsWith(it->first, stream); ++it) {
            out.push_back(it->first);
        }
        return out;
    }

    std::string NewName(const std::string& stream)
    {
        std::string dir = kDirs[m_rand.Below(sizeof kDirs / sizeof *kDirs)];
        std::string name;
        bool binary = dir == "assets";
        do {
            name = Word(m_rand) + "_" + std::to_string(m_serial++);
            // A few names with the characters the server escapes.
            if (m_rand.Chance(3)) name += "@v2";
            if (m_rand.Chance(2)) name += "#1";
            name += binary ? ".bin" : (dir == "docs" ? ".txt" : (m_rand.Chance(10) ? ".sh" : ".c"));
        } while (m_files.count(stream + dir + "/" + name));
        return stream + dir + "/" + name;
    }

    void AddNewFile(const std::string& stream)
    {
        std::string path = NewName(stream);
        FileAction a;
        a.path = path;
        a.action = "add";
        a.hasContent = true;
        if (EndsWith(path, ".bin")) {
            a.type = "binary";
            a.content = MakeBinary(m_rand, 16 + m_rand.Below(m_rand.Chance(10) ? 200000 : 4000));
        } else {
            a.type = EndsWith(path, ".sh") ? "text+x" : "text";
            a.content = MakeText(m_rand, TextLines(m_rand));
        }
        m_files[path] = FileState{a.type, a.content};
        m_cur.files.push_back(a);
    }

    void EditFile(const std::string& path)
    {
        FileState& st = m_files[path];
        FileAction a;
        a.path = path;
        a.action = "edit";
        a.type = st.type;
        a.hasContent = true;
        a.content = st.type == "binary" ? MakeBinary(m_rand, 16 + m_rand.Below(4000)) : EditText(m_rand, st.content);
        st.content = a.content;
        m_cur.files.push_back(a);
    }

    void Work(const std::string& stream)
    {
        Begin(Word(m_rand) + ": " + Word(m_rand) + " the " + Word(m_rand) + " " + Word(m_rand));
        std::vector<std::string> files = FilesIn(stream);
        size_t edits = files.empty() ? 0 : 1 + m_rand.Below(std::min<size_t>(6, files.size()));
        for (size_t i = 0; i < edits; ++i) {
            const std::string& p = files[m_rand.Below(files.size())];
            if (!Touched(p)) EditFile(p);
        }
        if (m_rand.Chance(30) || files.empty()) AddNewFile(stream);
        if (files.size() > 3 && m_rand.Chance(10)) {
            const std::string& p = files[m_rand.Below(files.size())];
            if (!Touched(p)) {
                m_cur.files.push_back(FileAction{p, "delete", "", false, "", "", 0});
                m_files.erase(p);
            }
        }
        if (files.size() > 3 && m_rand.Chance(8)) {
            const std::string& p = files[m_rand.Below(files.size())];
            if (!Touched(p) && m_files.count(p)) {
                std::string to = NewName(stream);
                FileState st = m_files[p];
                m_cur.files.push_back(FileAction{to, "move/add", "", false, "", p, 0});
                m_cur.files.push_back(FileAction{p, "move/delete", "", false, "", "", 0});
                m_files.erase(p);
                m_files[to] = st;
            }
        }
        End();
    }

    void MakeBranch()
    {
        std::string name = "rel" + std::to_string(m_streams.size());
        std::string src = m_streams[m_rand.Below(m_streams.size())];
        std::string dst = "//depot/" + name + "/";
        BranchRec b;
        b.name = name;
        b.owner = kUsers[m_rand.Below(sizeof kUsers / sizeof *kUsers)];
        b.description = "Created by " + b.owner + ".\n";
        b.options = "unlocked";
        b.view.push_back(src + "... " + dst + "...");
        b.updated = b.accessed = m_time;
        m_h.branches.push_back(b);
        Begin("Branch " + src + "... to " + dst + "...");
        for (const std::string& p : FilesIn(src)) {
            std::string to = dst + p.substr(src.size());
            m_cur.files.push_back(FileAction{to, "branch", "", false, "", p, 0});
            m_files[to] = m_files[p];
        }
        m_streams.push_back(dst);
        End();
    }

    void Integrate()
    {
        size_t d = 1 + m_rand.Below(m_streams.size() - 1);
        const std::string& dst = m_streams[d];
        const std::string& src = m_streams[0];
        Begin("Integrate " + src + "... to " + dst + "...");
        for (const std::string& p : FilesIn(src)) {
            std::string to = dst + p.substr(src.size());
            auto it = m_files.find(to);
            if (it == m_files.end()) {
                if (m_rand.Chance(50)) {
                    m_cur.files.push_back(FileAction{to, "branch", "", false, "", p, 0});
                    m_files[to] = m_files[p];
                }
            } else if (it->second.content != m_files[p].content && m_rand.Chance(60)) {
                m_cur.files.push_back(FileAction{to, "integrate", "", false, "", p, 0});
                it->second = m_files[p];
            }
        }
        if (m_cur.files.empty()) {
            m_cur = ChangeSpec();
            Work(dst);
            return;
        }
        End();
    }

    void MultiStreamEdit()
    {
        Begin("Fix the same " + Word(m_rand) + " bug on several branches");
        for (const std::string& s : m_streams) {
            if (!m_rand.Chance(60) && s != m_streams[0]) continue;
            std::vector<std::string> files = FilesIn(s);
            if (files.empty()) continue;
            const std::string& p = files[m_rand.Below(files.size())];
            if (!Touched(p)) EditFile(p);
        }
        if (m_cur.files.empty()) AddNewFile(m_streams[0]);
        End();
    }

    GenerateOptions m_opt;
    Random m_rand;
    History m_h;
    ChangeSpec m_cur;
    std::map<std::string, FileState> m_files;
    std::vector<std::string> m_streams;
    long long m_time = 1300000000;
    long long m_serial = 1;
};

}  // namespace

History GenerateHistory(const GenerateOptions& opt) { return Generator(opt).Run(); }

}  // namespace p4sim
