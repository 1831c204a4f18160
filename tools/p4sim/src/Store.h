// The server state, kept in one SQLite database (DIR/p4sim.db): users,
// changelists, file revisions with their contents, branch, label and client
// specifications, each client's have list and its sync marks. Every command
// runs inside one transaction, so a p4sim killed mid-command leaves the
// state as it was before that command.
#pragma once

#include "Records.h"
#include "StoreQueries.h"

#include <sqlite3.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// A prepared statement of the store, reset and unbound when handed out.
class CStatement
{
public:
    explicit CStatement(sqlite3_stmt* pStmt) : m_pStmt(pStmt) {}
    CStatement& Bind(int nIndex, const std::string& str);
    CStatement& Bind(int nIndex, long long n);
    // Throws when SQLite refuses the value (one longer than its limit).
    CStatement& BindBlob(int nIndex, const char* pData, size_t nSize);
    CStatement& BindBlob(int nIndex, const std::string& str) { return BindBlob(nIndex, str.data(), str.size()); }
    CStatement& BindNull(int nIndex);
    bool Step(); // true while a row is there
    void Run();  // steps to the end
    std::string Text(int nColumn) const;
    long long Int(int nColumn) const;
    bool IsNull(int nColumn) const;

private:
    sqlite3_stmt* m_pStmt;
};

// Every row of a query, or its first one, read by fnRead.
template <class T> std::vector<T> ReadRows(CStatement cQuery, T (*fnRead)(const CStatement&))
{
    std::vector<T> atOut;
    while (cQuery.Step())
        atOut.push_back(fnRead(cQuery));
    return atOut;
}

template <class T> std::optional<T> ReadRow(CStatement cQuery, T (*fnRead)(const CStatement&))
{
    if (!cQuery.Step())
        return std::nullopt;
    return fnRead(cQuery);
}

class CStore
{
public:
    // Opens DIR/p4sim.db; throws std::runtime_error when it does not exist
    // (unless bCreate, which makes a new server with its schema).
    explicit CStore(const std::string& strDir, bool bCreate = false);
    ~CStore();
    CStore(const CStore&) = delete;
    CStore& operator=(const CStore&) = delete;

    static std::string DbPath(const std::string& strDir);
    const std::string& Dir() const { return m_strDir; }

    void Begin(bool bWrite);
    // Commits; after a write the write-ahead log is folded into the database
    // file and emptied, so that no later command reads through it.
    void Commit();
    void Rollback();
    // Folds the write-ahead log into the database and truncates it, as far
    // as no other process is reading from it: never waits for one.
    void Checkpoint();
    // For a bulk load: a page cache large enough that the pages of one big
    // transaction are not read back from the log.
    void SetBulkCache();

    CStatement Prepare(TQuery eQuery);
    // The plan SQLite chooses for a query, one line per step
    // ("SEARCH revs USING INDEX ...").
    std::vector<std::string> QueryPlan(TQuery eQuery);

    std::string Meta(const std::string& strKey, const std::string& strDefault = "");
    void SetMeta(const std::string& strKey, const std::string& strValue);

    // The server's settings: unicode mode and case handling, kept in the
    // meta table. LoadSettings() makes the process compare paths the way
    // the server does (see SetCaseInsensitive).
    bool Unicode();
    void SetUnicode();
    bool CaseInsensitive();
    // Makes an empty server's case handling insensitive: its tables of
    // paths are made anew, comparing without ASCII case.
    void MakeCaseInsensitive();
    void LoadSettings();

    // The server's MaxResults and MaxScanRows (0: unlimited), kept in the
    // meta table so that they hold for every later command.
    long long MaxResults();
    long long MaxScanRows();
    void SetMaxResults(long long nLimit);
    void SetMaxScanRows(long long nLimit);

    // Users
    std::vector<TUserRec> Users();
    std::optional<TUserRec> User(const std::string& strName);
    void PutUser(const TUserRec& tUser);
    void DeleteUser(const std::string& strName);

    // Changes. MaxChange() is the highest number, pending ones included;
    // MaxSubmittedChange() the highest with revisions.
    long long MaxChange();
    long long MaxSubmittedChange();
    std::optional<TChangeRec> Change(long long nChange);
    void PutChange(const TChangeRec& tChange);
    void DeleteChange(long long nChange);
    // Changes in [nLow, nHigh], newest first (oldest first with bOldestFirst),
    // for as long as fnVisit returns true.
    void VisitChanges(long long nLow, long long nHigh, bool bOldestFirst,
                      const std::function<bool(const TChangeRec&)>& fnVisit);
    // Revisions whose change lies in [nLow, nHigh] and whose depot path
    // starts with strPrefix, in change order (newest first unless
    // bOldestFirst), as change number and depot path, for as long as
    // fnVisit returns true.
    void VisitRevsByChange(long long nLow, long long nHigh, const std::string& strPrefix, bool bOldestFirst,
                           const std::function<bool(long long, const std::string&)>& fnVisit);

    // Revisions
    void PutRev(const TRevRec& tRev);
    void SetRevAction(const std::string& strDepotFile, long long nRev, const std::string& strAction);
    std::vector<TRevRec> RevsOfChange(long long nChange);
    // The newest revision of every file under strPrefix with a change at or
    // below nAtChange.
    std::vector<TRevRec> HeadsUnder(const std::string& strPrefix, long long nAtChange);
    std::optional<TRevRec> Rev(const std::string& strDepotFile, long long nRev);
    std::optional<TRevRec> HeadRev(const std::string& strDepotFile, long long nAtChange);
    // Every revision of the files under strPrefix whose change lies in
    // [nLow, nHigh].
    std::vector<TRevRec> RevsUnder(const std::string& strPrefix, long long nLow, long long nHigh);
    // How many revisions of the files under strPrefix have a change at or
    // below nAtChange: the rows a listing of those files reads.
    long long CountRevsUnder(const std::string& strPrefix, long long nAtChange);
    // The depot paths of the revisions whose change lies in (nAfter, nUpTo],
    // at most nLimit of them (false when there are more).
    bool FilesChangedBetween(long long nAfter, long long nUpTo, size_t nLimit, std::vector<std::string>& astrOut);

    // Files opened in pending and shelved changes. HasPending() is false
    // while there is no such change (nor, on a server made before them,
    // the table), and the other queries need not run.
    bool HasPending();
    void AddPendingCount(long long nDelta);
    void PutOpened(const TOpenedRec& tOpened);
    std::vector<TOpenedRec> OpenedOfChange(long long nChange);
    // The pending and shelved changes that have a file under strPrefix
    // open, as change number and depot path.
    std::vector<std::pair<long long, std::string>> OpenedUnder(const std::string& strPrefix);
    void DeleteOpened(long long nChange);

    // Integration records: each one put with the target's revision; those
    // whose target, or whose source, lies under strPrefix (in depot order);
    // the last source revision integrated from one file into another, or
    // that is a branch or copy of the target itself (0: none).
    void PutInteg(const TIntegRec& tInteg);
    std::vector<TIntegRec> IntegsInto(const std::string& strPrefix);
    std::vector<TIntegRec> IntegsFrom(const std::string& strPrefix);
    long long LastIntegrated(const std::string& strToFile, const std::string& strFromFile);
    // Whether the server has the table of integration records (one made
    // before it existed has none until its next write).
    bool HasIntegs();

    // Contents, stored once per digest. SQLite keeps no value longer than
    // 1,000,000,000 bytes: a content longer than one part is kept in parts,
    // the first under its digest, part N under "DIGEST+N"; every part but
    // the last is full. SetContentPart() sets the part's size (tests use
    // small ones; the default is kContentPart).
    static constexpr size_t kContentPart = size_t(256) << 20;
    void SetContentPart(size_t nBytes) { m_nContentPart = nBytes; }
    void PutContent(const std::string& strDigest, const std::string& strData);
    std::string Content(const std::string& strDigest);

    // Branch specifications
    std::vector<TBranchRec> Branches();
    std::optional<TBranchRec> Branch(const std::string& strName);
    void PutBranch(const TBranchRec& tBranch);
    void DeleteBranch(const std::string& strName);

    // Label specifications and the revisions each tags (one per file).
    std::vector<TLabelRec> Labels();
    std::optional<TLabelRec> Label(const std::string& strName);
    // Saves the label with exactly these revisions (depot file and rev).
    void PutLabel(const TLabelRec& tLabel, const std::vector<std::pair<std::string, long long>>& atRevs);
    // The label's revisions of the files under strPrefix, in depot order.
    std::vector<TRevRec> LabelRevsUnder(const std::string& strLabel, const std::string& strPrefix);

    // Client specifications. Saving a client drops its sync marks (its view
    // may have changed); deleting one drops its have list too.
    std::vector<TClientRec> Clients();
    std::optional<TClientRec> Client(const std::string& strName);
    void PutClient(const TClientRec& tClient);
    void TouchClient(const std::string& strName, long long nAccessed);
    void DeleteClient(const std::string& strName);

    // Have lists
    std::vector<THaveRec> HaveUnder(const std::string& strClient, const std::string& strClientPrefix);
    std::optional<THaveRec> Have(const std::string& strClient, const std::string& strClientFile);
    void PutHave(const std::string& strClient, const THaveRec& tHave);
    void DeleteHave(const std::string& strClient, const std::string& strClientFile);

    // Sync marks
    std::vector<TSyncMark> SyncMarks(const std::string& strClient);
    void PutSyncMark(const std::string& strClient, const TSyncMark& tMark);
    void DeleteSyncMark(const std::string& strClient, const std::string& strPattern);

private:
    void Exec(const char* pszSql);
    void CreateSchema();

    std::string m_strDir;
    sqlite3* m_pDb = nullptr;
    sqlite3_stmt* m_apStatements[eQueryCount] = {};
    bool m_bInTransaction = false;
    bool m_bWriting = false;
    size_t m_nContentPart = kContentPart;
};

} // namespace P4SIM
} // namespace ORVANE
