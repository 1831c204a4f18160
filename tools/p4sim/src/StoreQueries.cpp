#include "StoreQueries.h"

namespace ORVANE {
namespace P4SIM {

#define P4SIM_REV_COLUMNS "depot_file,rev,change,action,type,digest,size,time,modtime"
#define P4SIM_CHANGE_COLUMNS "change,user,client,time,description,status,path"
#define P4SIM_USER_COLUMNS "name,email,fullname,updated,accessed"
#define P4SIM_BRANCH_COLUMNS "name,owner,description,options,view,updated,accessed"
#define P4SIM_LABEL_COLUMNS "name,owner,description,options,view,updated,accessed"
#define P4SIM_CLIENT_COLUMNS "name,owner,host,description,root,options,submit_options,line_end,view,updated,accessed"

const char* const g_pszSyncMarksSchema =
    "CREATE TABLE IF NOT EXISTS sync_marks(client TEXT NOT NULL, pattern TEXT NOT NULL, change INTEGER NOT NULL,"
    " have_count INTEGER NOT NULL, PRIMARY KEY(client, pattern)) WITHOUT ROWID;";

// A label's revisions: one per file, as a server tags them.
const char* const g_pszLabelsSchema =
    "CREATE TABLE IF NOT EXISTS labels(name TEXT PRIMARY KEY, owner TEXT NOT NULL, description TEXT NOT NULL,"
    " options TEXT NOT NULL, view TEXT NOT NULL, updated INTEGER NOT NULL, accessed INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS label_revs(label TEXT NOT NULL, depot_file TEXT NOT NULL, rev INTEGER NOT NULL,"
    " PRIMARY KEY(label, depot_file)) WITHOUT ROWID;";

// Opened files by change, and by file for `changes PATH`.
const char* const g_pszOpenedSchema =
    "CREATE TABLE IF NOT EXISTS opened(change INTEGER NOT NULL, depot_file TEXT NOT NULL, action TEXT NOT NULL,"
    " type TEXT NOT NULL, rev INTEGER NOT NULL, digest TEXT, size INTEGER NOT NULL, from_file TEXT NOT NULL,"
    " from_rev INTEGER NOT NULL, PRIMARY KEY(change, depot_file)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS opened_by_file ON opened(depot_file, change);";

// Integration records by target file, and by source file for the other
// direction.
const char* const g_pszIntegsSchema =
    "CREATE TABLE IF NOT EXISTS integs(to_file TEXT NOT NULL, to_rev INTEGER NOT NULL, from_file TEXT NOT NULL,"
    " from_start INTEGER NOT NULL, from_end INTEGER NOT NULL, how TEXT NOT NULL, change INTEGER NOT NULL,"
    " PRIMARY KEY(to_file, to_rev, from_file)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS integs_by_from ON integs(from_file, from_end);";
const char* const g_pszCaseInsensitiveSchema = R"SQL(
DROP TABLE IF EXISTS revs;
DROP TABLE IF EXISTS have;
DROP TABLE IF EXISTS label_revs;
DROP TABLE IF EXISTS opened;
DROP TABLE IF EXISTS sync_marks;
CREATE TABLE revs(depot_file TEXT COLLATE NOCASE NOT NULL, rev INTEGER NOT NULL, change INTEGER NOT NULL,
    action TEXT NOT NULL, type TEXT NOT NULL, digest TEXT, size INTEGER NOT NULL,
    time INTEGER NOT NULL, modtime INTEGER NOT NULL,
    PRIMARY KEY(depot_file, rev)) WITHOUT ROWID;
CREATE INDEX revs_by_change ON revs(change, depot_file);
CREATE TABLE have(client TEXT NOT NULL, client_file TEXT COLLATE NOCASE NOT NULL,
    depot_file TEXT COLLATE NOCASE NOT NULL, rev INTEGER NOT NULL, PRIMARY KEY(client, client_file)) WITHOUT ROWID;
CREATE TABLE label_revs(label TEXT NOT NULL, depot_file TEXT COLLATE NOCASE NOT NULL, rev INTEGER NOT NULL,
    PRIMARY KEY(label, depot_file)) WITHOUT ROWID;
CREATE TABLE opened(change INTEGER NOT NULL, depot_file TEXT COLLATE NOCASE NOT NULL, action TEXT NOT NULL,
    type TEXT NOT NULL, rev INTEGER NOT NULL, digest TEXT, size INTEGER NOT NULL,
    from_file TEXT COLLATE NOCASE NOT NULL, from_rev INTEGER NOT NULL, PRIMARY KEY(change, depot_file)) WITHOUT ROWID;
CREATE INDEX opened_by_file ON opened(depot_file, change);
CREATE TABLE sync_marks(client TEXT NOT NULL, pattern TEXT NOT NULL, change INTEGER NOT NULL,
    have_count INTEGER NOT NULL, PRIMARY KEY(client, pattern)) WITHOUT ROWID;
DROP TABLE IF EXISTS integs;
CREATE TABLE integs(to_file TEXT COLLATE NOCASE NOT NULL, to_rev INTEGER NOT NULL,
    from_file TEXT COLLATE NOCASE NOT NULL, from_start INTEGER NOT NULL, from_end INTEGER NOT NULL,
    how TEXT NOT NULL, change INTEGER NOT NULL, PRIMARY KEY(to_file, to_rev, from_file)) WITHOUT ROWID;
CREATE INDEX integs_by_from ON integs(from_file, from_end);
)SQL";

const char* const g_pszSchema = R"SQL(
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

namespace {

// In the order of TQuery.
const char* const s_apszQueries[eQueryCount] = {
    "SELECT value FROM meta WHERE key=?",
    "INSERT OR REPLACE INTO meta(key,value) VALUES(?,?)",
    "SELECT " P4SIM_USER_COLUMNS " FROM users ORDER BY name",
    "SELECT " P4SIM_USER_COLUMNS " FROM users WHERE name=?",
    "INSERT OR REPLACE INTO users(" P4SIM_USER_COLUMNS ") VALUES(?,?,?,?,?)",
    "DELETE FROM users WHERE name=?",
    "SELECT MAX(change) FROM changes",
    "SELECT " P4SIM_CHANGE_COLUMNS " FROM changes WHERE change=?",
    "INSERT OR REPLACE INTO changes(" P4SIM_CHANGE_COLUMNS ") VALUES(?,?,?,?,?,?,?)",
    "SELECT " P4SIM_CHANGE_COLUMNS " FROM changes WHERE change>=? AND change<=? ORDER BY change DESC",
    "SELECT " P4SIM_CHANGE_COLUMNS " FROM changes WHERE change>=? AND change<=? ORDER BY change",
    // Through the change index, newest first: a listing with a maximum stops
    // after the first few changes instead of sorting every revision of the
    // path. The unary + keeps the path bounds out of the index choice.
    "SELECT change,depot_file FROM revs INDEXED BY revs_by_change"
    " WHERE change>=? AND change<=? AND +depot_file>=? AND +depot_file<? ORDER BY change DESC",
    "SELECT change,depot_file FROM revs INDEXED BY revs_by_change"
    " WHERE change>=? AND change<=? AND +depot_file>=? AND +depot_file<? ORDER BY change",
    "SELECT depot_file FROM revs WHERE change>? AND change<=? LIMIT ?",
    "INSERT OR REPLACE INTO revs(" P4SIM_REV_COLUMNS ") VALUES(?,?,?,?,?,?,?,?,?)",
    "SELECT " P4SIM_REV_COLUMNS " FROM revs WHERE change=? ORDER BY depot_file",
    // One row per file, in depot order: with MAX() the other columns come
    // from the row that holds the maximum, the file's head.
    "SELECT depot_file,MAX(rev),change,action,type,digest,size,time,modtime FROM revs"
    " WHERE depot_file>=? AND depot_file<? AND change<=? GROUP BY depot_file",
    "SELECT " P4SIM_REV_COLUMNS " FROM revs WHERE depot_file=? AND rev=?",
    "SELECT " P4SIM_REV_COLUMNS " FROM revs WHERE depot_file=? AND change<=? ORDER BY rev DESC LIMIT 1",
    "SELECT " P4SIM_REV_COLUMNS " FROM revs WHERE depot_file>=? AND depot_file<? AND change>=? AND change<=?",
    "SELECT COUNT(*) FROM revs WHERE depot_file>=? AND depot_file<? AND change<=?",
    "INSERT OR IGNORE INTO contents(digest,data) VALUES(?,?)",
    "SELECT data FROM contents WHERE digest=?",
    "SELECT " P4SIM_BRANCH_COLUMNS " FROM branches ORDER BY name",
    "SELECT " P4SIM_BRANCH_COLUMNS " FROM branches WHERE name=?",
    "INSERT OR REPLACE INTO branches(" P4SIM_BRANCH_COLUMNS ") VALUES(?,?,?,?,?,?,?)",
    "DELETE FROM branches WHERE name=?",
    "SELECT " P4SIM_LABEL_COLUMNS " FROM labels ORDER BY name",
    "SELECT " P4SIM_LABEL_COLUMNS " FROM labels WHERE name=?",
    "INSERT OR REPLACE INTO labels(" P4SIM_LABEL_COLUMNS ") VALUES(?,?,?,?,?,?,?)",
    "INSERT OR REPLACE INTO label_revs(label,depot_file,rev) VALUES(?,?,?)",
    "DELETE FROM label_revs WHERE label=?",
    // The tagged revisions under a path, in depot order, each read through
    // the revisions' primary key.
    "SELECT r.depot_file,r.rev,r.change,r.action,r.type,r.digest,r.size,r.time,r.modtime"
    " FROM label_revs l JOIN revs r ON r.depot_file=l.depot_file AND r.rev=l.rev"
    " WHERE l.label=? AND l.depot_file>=? AND l.depot_file<? ORDER BY l.depot_file",
    "SELECT " P4SIM_CLIENT_COLUMNS " FROM clients ORDER BY name",
    "SELECT " P4SIM_CLIENT_COLUMNS " FROM clients WHERE name=?",
    "INSERT OR REPLACE INTO clients(" P4SIM_CLIENT_COLUMNS ") VALUES(?,?,?,?,?,?,?,?,?,?,?)",
    "UPDATE clients SET accessed=? WHERE name=?",
    "DELETE FROM clients WHERE name=?",
    "SELECT client_file,depot_file,rev FROM have WHERE client=? AND client_file>=? AND client_file<?"
    " ORDER BY client_file",
    "SELECT client_file,depot_file,rev FROM have WHERE client=? AND client_file=?",
    "INSERT OR REPLACE INTO have(client,client_file,depot_file,rev) VALUES(?,?,?,?)",
    "DELETE FROM have WHERE client=? AND client_file=?",
    "DELETE FROM have WHERE client=?",
    "SELECT pattern,change,have_count FROM sync_marks WHERE client=?",
    "INSERT OR REPLACE INTO sync_marks(client,pattern,change,have_count) VALUES(?,?,?,?)",
    "DELETE FROM sync_marks WHERE client=? AND pattern=?",
    "DELETE FROM sync_marks WHERE client=?",
    "DELETE FROM changes WHERE change=?",
    "SELECT MAX(change) FROM revs",
    "INSERT OR REPLACE INTO opened(change,depot_file,action,type,rev,digest,size,from_file,from_rev)"
    " VALUES(?,?,?,?,?,?,?,?,?)",
    "SELECT change,depot_file,action,type,rev,digest,size,from_file,from_rev FROM opened WHERE change=?"
    " ORDER BY depot_file",
    "SELECT change,depot_file FROM opened WHERE depot_file>=? AND depot_file<?",
    "DELETE FROM opened WHERE change=?",
    "INSERT OR REPLACE INTO integs(to_file,to_rev,from_file,from_start,from_end,how,change) VALUES(?,?,?,?,?,?,?)",
    "SELECT to_file,to_rev,from_file,from_start,from_end,how,change FROM integs"
    " WHERE to_file>=? AND to_file<? ORDER BY to_file,to_rev,from_file",
    "SELECT to_file,to_rev,from_file,from_start,from_end,how,change FROM integs"
    " WHERE from_file>=? AND from_file<? ORDER BY from_file,from_end,to_file",
    "SELECT MAX(from_end) FROM integs WHERE to_file=? AND from_file=?",
    "SELECT MAX(to_rev) FROM integs WHERE to_file=? AND from_file=? AND how IN ('branch from','copy from')",
    "UPDATE revs SET action=? WHERE depot_file=? AND rev=?",
};

} // namespace

const char* QueryText(TQuery eQuery)
{
    return s_apszQueries[eQuery];
}

} // namespace P4SIM
} // namespace ORVANE
