// The server state, kept in one SQLite database (DIR/p4sim.db): users,
// changelists, file revisions with their contents, branch and client
// specifications and each client's have list. Every command runs inside
// one transaction, so a p4sim killed mid-command leaves the state as it was
// before that command.
#pragma once

#include <sqlite3.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace p4sim {

class Stmt {
public:
    explicit Stmt(sqlite3_stmt* st) : m_st(st) {}
    Stmt& Bind(int i, const std::string& s);
    Stmt& Bind(int i, long long v);
    Stmt& BindBlob(int i, const std::string& s);
    Stmt& BindNull(int i);
    bool Step();  // true while a row is there
    void Run();   // step to the end
    std::string Text(int col) const;
    long long Int(int col) const;
    bool IsNull(int col) const;

private:
    sqlite3_stmt* m_st;
};

struct UserRec {
    std::string name, email, fullName;
    long long updated = 0, accessed = 0;
};

struct ChangeRec {
    long long change = 0;
    std::string user, client;
    long long time = 0;
    std::string description, status, path;
};

struct RevRec {
    std::string depotFile;
    long long rev = 0, change = 0;
    std::string action, type, digest;
    long long size = 0, time = 0, modTime = 0;
    bool Deleted() const { return action == "delete" || action == "move/delete" || action == "purge"; }
};

struct BranchRec {
    std::string name, owner, description, options;
    std::vector<std::string> view;
    long long updated = 0, accessed = 0;
};

struct ClientRec {
    std::string name, owner, host, description, root, options, submitOptions, lineEnd;
    std::vector<std::string> view;
    long long updated = 0, accessed = 0;
};

struct HaveRec {
    std::string clientFile, depotFile;
    long long rev = 0;
};

class Store {
public:
    // Opens DIR/p4sim.db; throws std::runtime_error when it does not exist.
    explicit Store(const std::string& dir, bool create = false);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    static std::string DbPath(const std::string& dir);
    const std::string& Dir() const { return m_dir; }

    void Begin(bool write);
    void Commit();
    void Rollback();
    // Folds the write-ahead log into the database file and empties the log
    // (outside a transaction).
    void Checkpoint();

    Stmt Prep(const char* sql);
    void Exec(const char* sql);

    std::string Meta(const std::string& key, const std::string& def = "");
    void SetMeta(const std::string& key, const std::string& value);

    // Users
    std::vector<UserRec> Users();
    std::optional<UserRec> User(const std::string& name);
    void PutUser(const UserRec& u);

    // Changes
    long long MaxChange();
    std::optional<ChangeRec> Change(long long n);
    void PutChange(const ChangeRec& c);
    // Changes that touched a file whose depot path starts with prefix,
    // newest first, within [lo, hi].
    std::vector<long long> ChangesUnder(const std::string& prefix, long long lo, long long hi);
    std::vector<ChangeRec> AllChanges(long long lo, long long hi);

    // Revisions
    void PutRev(const RevRec& r);
    std::vector<RevRec> RevsOfChange(long long change);
    // The newest revision of every file under prefix with change <= atChange.
    std::vector<RevRec> HeadsUnder(const std::string& prefix, long long atChange);
    std::optional<RevRec> Rev(const std::string& depotFile, long long rev);
    std::optional<RevRec> HeadRev(const std::string& depotFile, long long atChange);
    // Every revision of the files under prefix whose change lies in [lo, hi].
    std::vector<RevRec> RevsUnder(const std::string& prefix, long long lo, long long hi);

    // Contents, stored once per digest.
    void PutContent(const std::string& digest, const std::string& data);
    std::string Content(const std::string& digest);

    // Branch specifications
    std::vector<BranchRec> Branches();
    std::optional<BranchRec> Branch(const std::string& name);
    void PutBranch(const BranchRec& b);
    void DeleteBranch(const std::string& name);

    // Client specifications
    std::vector<ClientRec> Clients();
    std::optional<ClientRec> Client(const std::string& name);
    void PutClient(const ClientRec& c);
    void DeleteClient(const std::string& name);

    // Have lists
    std::vector<HaveRec> HaveUnder(const std::string& client, const std::string& clientPrefix);
    std::optional<HaveRec> Have(const std::string& client, const std::string& clientFile);
    void PutHave(const std::string& client, const HaveRec& h);
    void DeleteHave(const std::string& client, const std::string& clientFile);

private:
    std::string m_dir;
    sqlite3* m_db = nullptr;
    std::map<const char*, sqlite3_stmt*> m_cache;
    bool m_inTx = false;
};

// "prefix" ends: the smallest text greater than every text starting with
// prefix, for range scans on an index.
std::string PrefixEnd(const std::string& prefix);

std::string JoinLines(const std::vector<std::string>& lines);
std::vector<std::string> SplitLines(const std::string& text);

}  // namespace p4sim
