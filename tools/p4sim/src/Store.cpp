#include "Store.h"

#include "Util.h"

#include <ctime>
#include <stdexcept>

namespace p4sim {

namespace {

const char* kSchema = R"SQL(
CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE users(name TEXT PRIMARY KEY, email TEXT NOT NULL, fullname TEXT NOT NULL,
    updated INTEGER NOT NULL, accessed INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE changes(change INTEGER PRIMARY KEY, user TEXT NOT NULL, client TEXT NOT NULL,
    time INTEGER NOT NULL, description TEXT NOT NULL, status TEXT NOT NULL, path TEXT NOT NULL);
CREATE TABLE contents(digest TEXT PRIMARY KEY, data BLOB NOT NULL) WITHOUT ROWID;
CREATE TABLE revs(depot_file TEXT NOT NULL, rev INTEGER NOT NULL, change INTEGER NOT NULL,
    action TEXT NOT NULL, type TEXT NOT NULL, digest TEXT, size INTEGER NOT NULL,
    time INTEGER NOT NULL, modtime INTEGER NOT NULL,
    PRIMARY KEY(depot_file, rev)) WITHOUT ROWID;
CREATE INDEX revs_by_change ON revs(change, depot_file);
CREATE TABLE branches(name TEXT PRIMARY KEY, owner TEXT NOT NULL, description TEXT NOT NULL,
    options TEXT NOT NULL, view TEXT NOT NULL, updated INTEGER NOT NULL, accessed INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE clients(name TEXT PRIMARY KEY, owner TEXT NOT NULL, host TEXT NOT NULL,
    description TEXT NOT NULL, root TEXT NOT NULL, options TEXT NOT NULL, submit_options TEXT NOT NULL,
    line_end TEXT NOT NULL, view TEXT NOT NULL, updated INTEGER NOT NULL, accessed INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE have(client TEXT NOT NULL, client_file TEXT NOT NULL, depot_file TEXT NOT NULL,
    rev INTEGER NOT NULL, PRIMARY KEY(client, client_file)) WITHOUT ROWID;
)SQL";

void Check(sqlite3* db, int rc, const char* what)
{
    if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) {
        throw std::runtime_error(std::string(what) + ": " + sqlite3_errmsg(db));
    }
}

}  // namespace

// ---------------------------------------------------------------- Stmt

Stmt& Stmt::Bind(int i, const std::string& s)
{
    sqlite3_bind_text(m_st, i, s.data(), int(s.size()), SQLITE_TRANSIENT);
    return *this;
}

Stmt& Stmt::Bind(int i, long long v)
{
    sqlite3_bind_int64(m_st, i, v);
    return *this;
}

Stmt& Stmt::BindBlob(int i, const std::string& s)
{
    sqlite3_bind_blob(m_st, i, s.data(), int(s.size()), SQLITE_TRANSIENT);
    return *this;
}

Stmt& Stmt::BindNull(int i)
{
    sqlite3_bind_null(m_st, i);
    return *this;
}

bool Stmt::Step()
{
    int rc = sqlite3_step(m_st);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    throw std::runtime_error(std::string("database: ") + sqlite3_errmsg(sqlite3_db_handle(m_st)));
}

void Stmt::Run()
{
    while (Step()) {
    }
}

std::string Stmt::Text(int col) const
{
    const void* p = sqlite3_column_blob(m_st, col);
    int n = sqlite3_column_bytes(m_st, col);
    if (!p) return std::string();
    return std::string(static_cast<const char*>(p), size_t(n));
}

long long Stmt::Int(int col) const { return sqlite3_column_int64(m_st, col); }
bool Stmt::IsNull(int col) const { return sqlite3_column_type(m_st, col) == SQLITE_NULL; }

// ---------------------------------------------------------------- Store

std::string Store::DbPath(const std::string& dir) { return JoinPath(dir, "p4sim.db"); }

Store::Store(const std::string& dir, bool create) : m_dir(dir)
{
    std::string path = DbPath(dir);
    if (!create && !FileExists(path)) throw std::runtime_error("no server state in " + dir);
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
    int rc = sqlite3_open_v2(path.c_str(), &m_db, flags, nullptr);
    if (rc != SQLITE_OK) {
        std::string msg = m_db ? sqlite3_errmsg(m_db) : "cannot open";
        sqlite3_close(m_db);
        m_db = nullptr;
        throw std::runtime_error(path + ": " + msg);
    }
    sqlite3_busy_timeout(m_db, 30000);
    // The last connection to close would checkpoint the log and sync the
    // files: a cost paid on every command. Checkpoints happen as the log
    // grows instead.
    sqlite3_db_config(m_db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    if (create) {
        Exec("PRAGMA journal_mode=WAL");
        Begin(true);
        Exec(kSchema);
        SetMeta("version", "1");
        SetMeta("created", std::to_string((long long)time(nullptr)));
        Commit();
    }
    // A killed process cannot leave a half-done transaction with any of
    // these settings; only a machine crash could lose the last commits,
    // which a test server can afford.
    Exec("PRAGMA synchronous=OFF");
    // Pages come straight from the mapped file: no read call per page in a
    // process that lives for one command.
    Exec("PRAGMA mmap_size=1073741824");
}

Store::~Store()
{
    if (m_inTx) {
        sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    for (auto& kv : m_cache) sqlite3_finalize(kv.second);
    sqlite3_close(m_db);
}

void Store::Exec(const char* sql)
{
    char* err = nullptr;
    int rc = sqlite3_exec(m_db, sql, nullptr, nullptr, &err);
    if (rc != SQLITE_OK) {
        std::string msg = err ? err : "error";
        sqlite3_free(err);
        throw std::runtime_error(std::string("database: ") + msg);
    }
}

void Store::Begin(bool write)
{
    Exec(write ? "BEGIN IMMEDIATE" : "BEGIN");
    m_inTx = true;
}

void Store::Commit()
{
    Exec("COMMIT");
    m_inTx = false;
}

void Store::Rollback()
{
    if (m_inTx) Exec("ROLLBACK");
    m_inTx = false;
}

void Store::Checkpoint()
{
    // A cached statement that was stepped and never reset still counts as a
    // reader and would keep the log from being emptied.
    for (auto& kv : m_cache) sqlite3_reset(kv.second);
    Check(m_db, sqlite3_wal_checkpoint_v2(m_db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr),
          "checkpoint");
}

Stmt Store::Prep(const char* sql)
{
    auto it = m_cache.find(sql);
    if (it != m_cache.end()) {
        sqlite3_reset(it->second);
        sqlite3_clear_bindings(it->second);
        return Stmt(it->second);
    }
    sqlite3_stmt* st = nullptr;
    Check(m_db, sqlite3_prepare_v2(m_db, sql, -1, &st, nullptr), sql);
    m_cache[sql] = st;
    return Stmt(st);
}

std::string Store::Meta(const std::string& key, const std::string& def)
{
    Stmt s = Prep("SELECT value FROM meta WHERE key=?");
    s.Bind(1, key);
    return s.Step() ? s.Text(0) : def;
}

void Store::SetMeta(const std::string& key, const std::string& value)
{
    Prep("INSERT OR REPLACE INTO meta(key,value) VALUES(?,?)").Bind(1, key).Bind(2, value).Run();
}

std::string PrefixEnd(const std::string& prefix)
{
    std::string end = prefix;
    while (!end.empty()) {
        unsigned char c = (unsigned char)end.back();
        if (c < 0xFF) {
            end.back() = char(c + 1);
            return end;
        }
        end.pop_back();
    }
    return std::string(8, '\xFF');
}

std::string JoinLines(const std::vector<std::string>& lines)
{
    std::string out;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i) out += '\n';
        out += lines[i];
    }
    return out;
}

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> out;
    if (text.empty()) return out;
    size_t start = 0;
    while (true) {
        size_t p = text.find('\n', start);
        if (p == std::string::npos) {
            out.push_back(text.substr(start));
            break;
        }
        out.push_back(text.substr(start, p - start));
        start = p + 1;
    }
    return out;
}

// ---------------------------------------------------------------- users

static UserRec ReadUser(Stmt& s)
{
    UserRec u;
    u.name = s.Text(0);
    u.email = s.Text(1);
    u.fullName = s.Text(2);
    u.updated = s.Int(3);
    u.accessed = s.Int(4);
    return u;
}

std::vector<UserRec> Store::Users()
{
    std::vector<UserRec> out;
    Stmt s = Prep("SELECT name,email,fullname,updated,accessed FROM users ORDER BY name");
    while (s.Step()) out.push_back(ReadUser(s));
    return out;
}

std::optional<UserRec> Store::User(const std::string& name)
{
    Stmt s = Prep("SELECT name,email,fullname,updated,accessed FROM users WHERE name=?");
    s.Bind(1, name);
    if (!s.Step()) return std::nullopt;
    return ReadUser(s);
}

void Store::PutUser(const UserRec& u)
{
    Prep("INSERT OR REPLACE INTO users(name,email,fullname,updated,accessed) VALUES(?,?,?,?,?)")
        .Bind(1, u.name)
        .Bind(2, u.email)
        .Bind(3, u.fullName)
        .Bind(4, u.updated)
        .Bind(5, u.accessed)
        .Run();
}

// ---------------------------------------------------------------- changes

static ChangeRec ReadChange(Stmt& s)
{
    ChangeRec c;
    c.change = s.Int(0);
    c.user = s.Text(1);
    c.client = s.Text(2);
    c.time = s.Int(3);
    c.description = s.Text(4);
    c.status = s.Text(5);
    c.path = s.Text(6);
    return c;
}

long long Store::MaxChange()
{
    Stmt s = Prep("SELECT MAX(change) FROM changes");
    return s.Step() ? s.Int(0) : 0;
}

std::optional<ChangeRec> Store::Change(long long n)
{
    Stmt s = Prep("SELECT change,user,client,time,description,status,path FROM changes WHERE change=?");
    s.Bind(1, n);
    if (!s.Step()) return std::nullopt;
    return ReadChange(s);
}

void Store::PutChange(const ChangeRec& c)
{
    Prep("INSERT OR REPLACE INTO changes(change,user,client,time,description,status,path) VALUES(?,?,?,?,?,?,?)")
        .Bind(1, c.change)
        .Bind(2, c.user)
        .Bind(3, c.client)
        .Bind(4, c.time)
        .Bind(5, c.description)
        .Bind(6, c.status)
        .Bind(7, c.path)
        .Run();
}

std::vector<long long> Store::ChangesUnder(const std::string& prefix, long long lo, long long hi)
{
    std::vector<long long> out;
    Stmt s = Prep(
        "SELECT DISTINCT change FROM revs WHERE depot_file>=? AND depot_file<? AND change>=? AND change<=? "
        "ORDER BY change DESC");
    s.Bind(1, prefix).Bind(2, PrefixEnd(prefix)).Bind(3, lo).Bind(4, hi);
    while (s.Step()) out.push_back(s.Int(0));
    return out;
}

std::vector<ChangeRec> Store::AllChanges(long long lo, long long hi)
{
    std::vector<ChangeRec> out;
    Stmt s = Prep(
        "SELECT change,user,client,time,description,status,path FROM changes WHERE change>=? AND change<=? "
        "ORDER BY change DESC");
    s.Bind(1, lo).Bind(2, hi);
    while (s.Step()) out.push_back(ReadChange(s));
    return out;
}

// ---------------------------------------------------------------- revisions

#define REV_COLUMNS "depot_file,rev,change,action,type,digest,size,time,modtime"

static RevRec ReadRev(Stmt& s)
{
    RevRec r;
    r.depotFile = s.Text(0);
    r.rev = s.Int(1);
    r.change = s.Int(2);
    r.action = s.Text(3);
    r.type = s.Text(4);
    r.digest = s.IsNull(5) ? std::string() : s.Text(5);
    r.size = s.Int(6);
    r.time = s.Int(7);
    r.modTime = s.Int(8);
    return r;
}

void Store::PutRev(const RevRec& r)
{
    Stmt s = Prep("INSERT OR REPLACE INTO revs(" REV_COLUMNS ") VALUES(?,?,?,?,?,?,?,?,?)");
    s.Bind(1, r.depotFile).Bind(2, r.rev).Bind(3, r.change).Bind(4, r.action).Bind(5, r.type);
    if (r.digest.empty()) s.BindNull(6);
    else s.Bind(6, r.digest);
    s.Bind(7, r.size).Bind(8, r.time).Bind(9, r.modTime).Run();
}

std::vector<RevRec> Store::RevsOfChange(long long change)
{
    std::vector<RevRec> out;
    Stmt s = Prep("SELECT " REV_COLUMNS " FROM revs WHERE change=? ORDER BY depot_file");
    s.Bind(1, change);
    while (s.Step()) out.push_back(ReadRev(s));
    return out;
}

std::vector<RevRec> Store::HeadsUnder(const std::string& prefix, long long atChange)
{
    std::vector<RevRec> out;
    // Rows come in (depot_file, rev) order; the last qualifying row of each
    // file is its head as of atChange.
    Stmt s = Prep("SELECT " REV_COLUMNS " FROM revs WHERE depot_file>=? AND depot_file<? AND change<=?");
    s.Bind(1, prefix).Bind(2, PrefixEnd(prefix)).Bind(3, atChange);
    while (s.Step()) {
        RevRec r = ReadRev(s);
        if (!out.empty() && out.back().depotFile == r.depotFile) out.back() = std::move(r);
        else out.push_back(std::move(r));
    }
    return out;
}

std::optional<RevRec> Store::Rev(const std::string& depotFile, long long rev)
{
    Stmt s = Prep("SELECT " REV_COLUMNS " FROM revs WHERE depot_file=? AND rev=?");
    s.Bind(1, depotFile).Bind(2, rev);
    if (!s.Step()) return std::nullopt;
    return ReadRev(s);
}

std::optional<RevRec> Store::HeadRev(const std::string& depotFile, long long atChange)
{
    Stmt s = Prep("SELECT " REV_COLUMNS " FROM revs WHERE depot_file=? AND change<=? ORDER BY rev DESC LIMIT 1");
    s.Bind(1, depotFile).Bind(2, atChange);
    if (!s.Step()) return std::nullopt;
    return ReadRev(s);
}

std::vector<RevRec> Store::RevsUnder(const std::string& prefix, long long lo, long long hi)
{
    std::vector<RevRec> out;
    Stmt s = Prep(
        "SELECT " REV_COLUMNS " FROM revs WHERE depot_file>=? AND depot_file<? AND change>=? AND change<=?");
    s.Bind(1, prefix).Bind(2, PrefixEnd(prefix)).Bind(3, lo).Bind(4, hi);
    while (s.Step()) out.push_back(ReadRev(s));
    return out;
}

// ---------------------------------------------------------------- contents

void Store::PutContent(const std::string& digest, const std::string& data)
{
    Prep("INSERT OR IGNORE INTO contents(digest,data) VALUES(?,?)").Bind(1, digest).BindBlob(2, data).Run();
}

std::string Store::Content(const std::string& digest)
{
    Stmt s = Prep("SELECT data FROM contents WHERE digest=?");
    s.Bind(1, digest);
    return s.Step() ? s.Text(0) : std::string();
}

// ---------------------------------------------------------------- branches

static BranchRec ReadBranch(Stmt& s)
{
    BranchRec b;
    b.name = s.Text(0);
    b.owner = s.Text(1);
    b.description = s.Text(2);
    b.options = s.Text(3);
    b.view = SplitLines(s.Text(4));
    b.updated = s.Int(5);
    b.accessed = s.Int(6);
    return b;
}

std::vector<BranchRec> Store::Branches()
{
    std::vector<BranchRec> out;
    Stmt s = Prep("SELECT name,owner,description,options,view,updated,accessed FROM branches ORDER BY name");
    while (s.Step()) out.push_back(ReadBranch(s));
    return out;
}

std::optional<BranchRec> Store::Branch(const std::string& name)
{
    Stmt s = Prep("SELECT name,owner,description,options,view,updated,accessed FROM branches WHERE name=?");
    s.Bind(1, name);
    if (!s.Step()) return std::nullopt;
    return ReadBranch(s);
}

void Store::PutBranch(const BranchRec& b)
{
    Prep("INSERT OR REPLACE INTO branches(name,owner,description,options,view,updated,accessed) "
         "VALUES(?,?,?,?,?,?,?)")
        .Bind(1, b.name)
        .Bind(2, b.owner)
        .Bind(3, b.description)
        .Bind(4, b.options)
        .Bind(5, JoinLines(b.view))
        .Bind(6, b.updated)
        .Bind(7, b.accessed)
        .Run();
}

void Store::DeleteBranch(const std::string& name)
{
    Prep("DELETE FROM branches WHERE name=?").Bind(1, name).Run();
}

// ---------------------------------------------------------------- clients

#define CLIENT_COLUMNS "name,owner,host,description,root,options,submit_options,line_end,view,updated,accessed"

static ClientRec ReadClient(Stmt& s)
{
    ClientRec c;
    c.name = s.Text(0);
    c.owner = s.Text(1);
    c.host = s.Text(2);
    c.description = s.Text(3);
    c.root = s.Text(4);
    c.options = s.Text(5);
    c.submitOptions = s.Text(6);
    c.lineEnd = s.Text(7);
    c.view = SplitLines(s.Text(8));
    c.updated = s.Int(9);
    c.accessed = s.Int(10);
    return c;
}

std::vector<ClientRec> Store::Clients()
{
    std::vector<ClientRec> out;
    Stmt s = Prep("SELECT " CLIENT_COLUMNS " FROM clients ORDER BY name");
    while (s.Step()) out.push_back(ReadClient(s));
    return out;
}

std::optional<ClientRec> Store::Client(const std::string& name)
{
    Stmt s = Prep("SELECT " CLIENT_COLUMNS " FROM clients WHERE name=?");
    s.Bind(1, name);
    if (!s.Step()) return std::nullopt;
    return ReadClient(s);
}

void Store::PutClient(const ClientRec& c)
{
    Prep("INSERT OR REPLACE INTO clients(" CLIENT_COLUMNS ") VALUES(?,?,?,?,?,?,?,?,?,?,?)")
        .Bind(1, c.name)
        .Bind(2, c.owner)
        .Bind(3, c.host)
        .Bind(4, c.description)
        .Bind(5, c.root)
        .Bind(6, c.options)
        .Bind(7, c.submitOptions)
        .Bind(8, c.lineEnd)
        .Bind(9, JoinLines(c.view))
        .Bind(10, c.updated)
        .Bind(11, c.accessed)
        .Run();
}

void Store::DeleteClient(const std::string& name)
{
    Prep("DELETE FROM clients WHERE name=?").Bind(1, name).Run();
    Prep("DELETE FROM have WHERE client=?").Bind(1, name).Run();
}

// ---------------------------------------------------------------- have

std::vector<HaveRec> Store::HaveUnder(const std::string& client, const std::string& clientPrefix)
{
    std::vector<HaveRec> out;
    Stmt s = Prep(
        "SELECT client_file,depot_file,rev FROM have WHERE client=? AND client_file>=? AND client_file<? "
        "ORDER BY client_file");
    s.Bind(1, client).Bind(2, clientPrefix).Bind(3, PrefixEnd(clientPrefix));
    while (s.Step()) out.push_back(HaveRec{s.Text(0), s.Text(1), s.Int(2)});
    return out;
}

std::optional<HaveRec> Store::Have(const std::string& client, const std::string& clientFile)
{
    Stmt s = Prep("SELECT client_file,depot_file,rev FROM have WHERE client=? AND client_file=?");
    s.Bind(1, client).Bind(2, clientFile);
    if (!s.Step()) return std::nullopt;
    return HaveRec{s.Text(0), s.Text(1), s.Int(2)};
}

void Store::PutHave(const std::string& client, const HaveRec& h)
{
    Prep("INSERT OR REPLACE INTO have(client,client_file,depot_file,rev) VALUES(?,?,?,?)")
        .Bind(1, client)
        .Bind(2, h.clientFile)
        .Bind(3, h.depotFile)
        .Bind(4, h.rev)
        .Run();
}

void Store::DeleteHave(const std::string& client, const std::string& clientFile)
{
    Prep("DELETE FROM have WHERE client=? AND client_file=?").Bind(1, client).Bind(2, clientFile).Run();
}

}  // namespace p4sim
