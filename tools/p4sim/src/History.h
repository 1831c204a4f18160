// A server history as `admin load` reads it from JSON and `admin generate`
// makes it, and its submission into the server state.
#pragma once

#include "Records.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

class CStore;

struct TFileAction
{
    std::string strPath;   // depot path as the file is named (unescaped)
    std::string strAction; // add edit delete branch integrate move/add move/delete
    std::string strType;   // empty: text for new files, else the previous type
    // The bytes; none given (null) for actions that take them from the source
    // or need none.
    std::shared_ptr<const std::string> pContent;
    std::string strFrom;    // source of branch, integrate, move/add (unescaped)
    long long nFromRev = 0; // 0: the source's head before this change
    // How the integration from strFrom was resolved ("branch from", "copy
    // from", "merge from", "edit from", "ignored", "delete from", "moved
    // from"); empty: the action's own (see DefaultHow).
    std::string strHow;
    // The first source revision integrated; 0: the one after the last
    // integrated from that file into this one before (#1 for a move).
    long long nFromRevStart = 0;
    // The revision's content was purged (p4 archive -p) or archived
    // (p4 archive): its action becomes "purge" or "archive".
    bool bPurged = false, bArchived = false;
};

// The integration a file action records with a source: strHow, or the
// action's own ("branch from" for branch, "copy from" for an integrate that
// takes the source's content, "merge from" for one with content of its own,
// "moved from" for move/add, "delete from" for delete, "edit from" for
// edit).
std::string DefaultHow(const TFileAction& tAction);

// A change of the history: a submitted one (its files become revisions),
// a pending or shelved one (its files are opened, and for a shelved one
// shelved, without any revision), or the submission of an earlier pending
// change (nSubmit): its files become revisions then, under the next
// number when newer changes exist; atFiles may give content for them, and
// a description replaces the pending one's.
struct TChangeSpec
{
    long long nChange = 0; // 0: the next number
    std::string strUser, strClient;
    long long nTime = 0;
    std::string strDescription;
    std::vector<TFileAction> atFiles;
    std::string strStatus = "submitted"; // or "pending", "shelved"
    long long nSubmit = 0;               // the pending change submitted
};

// A label and the revisions it tags, each given as `p4 tag` takes them:
// "//depot/main/...@12" (the files' revisions at change 12), "PATH#3",
// "PATH" (the head revisions); unescaped paths, "..." as the only wildcard.
struct TLabelSpec
{
    TLabelRec tLabel;
    std::vector<std::string> astrTags;
};

struct THistory
{
    std::vector<TUserRec> atUsers;
    std::vector<TBranchRec> atBranches;
    std::vector<TClientRec> atClients;
    std::vector<TChangeSpec> atChanges;
    std::vector<TLabelSpec> atLabels;
    // Users removed once everything else is in, as `p4 user -d -f` would:
    // their changes stay.
    std::vector<std::string> astrDeletedUsers;
    // The server's MaxResults and MaxScanRows (0: unlimited; -1: not given,
    // the server's stay as they are).
    long long nMaxResults = -1, nMaxScanRows = -1;
    // The server's unicode mode (-1: not given, 0 off, 1 on) and case
    // handling ("sensitive", "insensitive", empty: not given).
    int nUnicode = -1;
    std::string strCaseHandling;
};

// Throws std::runtime_error with a readable message on a malformed history.
THistory ParseHistory(const nlohmann::json& jHistory);
nlohmann::json HistoryToJson(const THistory& tHistory);

// Where a history goes, part by part: users first, then the changes one by
// one, then branch and client specifications, then labels.
class CHistorySink
{
public:
    virtual ~CHistorySink() = default;
    virtual void AddUsers(const std::vector<TUserRec>& atUsers) = 0;
    virtual void AddChange(const TChangeSpec& tChange) = 0;
    virtual void Finish(const std::vector<TBranchRec>& atBranches, const std::vector<TClientRec>& atClients) = 0;
    virtual void AddLabels(const std::vector<TLabelSpec>& atLabels) { (void)atLabels; }
};

// Submits a history into the store, inside the caller's transaction. Throws
// std::runtime_error when an action is impossible (an edit of a file that
// does not exist, say).
class CSubmitter : public CHistorySink
{
public:
    explicit CSubmitter(CStore& rStore);
    void AddUsers(const std::vector<TUserRec>& atUsers) override;
    void AddChange(const TChangeSpec& tChange) override;
    // What the submissions of pending changes said, as `p4 submit` says it
    // ("Change 3 renamed change 7 and submitted.").
    const std::vector<std::string>& Messages() const { return m_astrMessages; }
    // Specifications without a time get the last change's.
    void Finish(const std::vector<TBranchRec>& atBranches, const std::vector<TClientRec>& atClients) override;
    // Labels without a time get the last change's. Throws when a tag names
    // no revision.
    void AddLabels(const std::vector<TLabelSpec>& atLabels) override;

private:
    long long NumberFor(const TChangeSpec& tChange);
    void StoreSubmitted(const TChangeSpec& tChange, long long nNumber);
    void AddPending(const TChangeSpec& tChange);
    TOpenedRec OpenedFor(const TFileAction& tAction, long long nNumber, bool bShelved);
    void SubmitPending(const TChangeSpec& tSubmit);
    std::vector<TFileAction> ActionsOf(const TChangeSpec& tChange, long long nNumber) const;
    // The revision the action makes and, for one with a source, its
    // integration record (tInteg.nToRev 0 for none).
    TRevRec RevisionFor(const TFileAction& tAction, const TChangeSpec& tChange, long long nNumber, TIntegRec& tInteg);
    // The source revision of an action with one; throws when it is missing
    // (or, unless bDeleted, deleted).
    TRevRec SourceOf(const TFileAction& tAction, long long nNumber, const std::string& strWhat, bool bDeleted);
    void TakeSource(const TFileAction& tAction, long long nNumber, const std::string& strWhat, TRevRec& tRev,
                    std::shared_ptr<const std::string>& pContent);
    TIntegRec IntegrationOf(const TFileAction& tAction, const std::string& strHow, const TRevRec& tSource,
                            const TRevRec& tTarget);
    void AddUserOf(const TChangeSpec& tChange);
    void PurgeOlderRevisions(const TRevRec& tRev);

    CStore& m_rStore;
    long long m_nNext;
    bool m_bUnicode;
    long long m_nLastTime = 0;
    std::vector<std::string> m_astrMessages;
};

// Keeps the whole history while passing it on (for `generate --json`).
class CHistoryCollector : public CHistorySink
{
public:
    explicit CHistoryCollector(CHistorySink& rNext) : m_rNext(rNext) {}
    void AddUsers(const std::vector<TUserRec>& atUsers) override;
    void AddChange(const TChangeSpec& tChange) override;
    void Finish(const std::vector<TBranchRec>& atBranches, const std::vector<TClientRec>& atClients) override;
    void AddLabels(const std::vector<TLabelSpec>& atLabels) override;
    const THistory& History() const { return m_tHistory; }

private:
    CHistorySink& m_rNext;
    THistory m_tHistory;
};

// Returns what the submissions of pending changes said.
std::vector<std::string> SubmitHistory(CStore& rStore, const THistory& tHistory);

// Switches the server to unicode mode and to a case handling as the history
// asks, before anything else of it goes in. Throws when the server cannot
// be switched: non-UTF-8 text in it, case handling changed on a server with
// revisions, or unicode mode switched off again.
void ApplyServerSettings(CStore& rStore, const THistory& tHistory);

struct TGenerateOptions
{
    long long nChanges = 100;
    long long nBranches = 2;
    long long nFiles = 50;
    unsigned long long nSeed = 1;
};

// A reproducible history: the same options give the same history, made and
// handed on change by change (nothing of it is kept).
void GenerateHistory(const TGenerateOptions& tOptions, CHistorySink& rSink);

} // namespace P4SIM
} // namespace ORVANE
