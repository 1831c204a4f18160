// The one way from the module to the Perforce server: every p4 command of
// this process passes here. The module's command lines reach the server as
// the module wrote them; what the gateway does acts on the answers only:
// - a command that failed on the way (a dropped connection, a time-out) is
//   run again, a bounded number of times, with growing waits;
// - pending and shelved changes are left out of the module's listings of
//   changes, so they never become commits;
// - a description that names a depot file on which the module's decoding
//   would never finish is refused before the module reads it;
// - every failure of a command that loses history (the listing of a
//   stream's changes, the description of a change, the sync of a change)
//   is kept, with the server's message, for the engine to act on.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/ProcessCapture.h"
#include "perforce/EscapedNames.h"
#include "perforce/FastSync.h"
#include "perforce/Keywords.h"
#include "perforce/MetadataText.h"
#include "perforce/P4Query.h"
#include "perforce/Prefetch.h"

namespace ORVANE {
namespace IMP {

// A p4 command line taken apart: the global options, the command's name
// and its own arguments.
struct TP4Command
{
    bool bMarshalled = false; // -G
    std::string strName;      // "changes", "describe", ... ("" when none)
    std::vector<std::string> astrArgs;
};

TP4Command ParseP4Command(const std::vector<std::string>& astrArgs);

// Whether the message of a failed command says that the connection to the
// server failed or dropped, or timed out: worth another try.
bool IsTransientProblem(const std::string& strMessages);

// Whether the message says that the server refused a query as too large
// (MaxResults, MaxScanRows, MaxLockTime).
bool IsLimitProblem(const std::string& strMessages);

// A command of the module whose failure loses history.
struct TLostCommand
{
    enum TKind
    {
        eListing, // the changes of a path
        eDescribe,
        eSync
    };
    TKind eKind = eListing;
    std::string strCommand; // as a person would type it
    std::string strProblem; // the server's message
    std::string strPath;    // the depot path being listed ("//depot/main/...")
    unsigned int nChange = 0;
    bool bNotRun = false; // refused before it ran (strProblem says why)
};

// A revision that a description names but the server no longer has the
// content of (purged, or archived to other storage).
struct TGoneRevision
{
    std::string strDepotFile; // as the server writes it
    unsigned int nRevision = 0;
    unsigned int nChange = 0;
    std::string strAction; // "purge" or "archive"
};

class CP4Gateway : public VCM::IProcessGateway
{
public:
    struct TPolicy
    {
        unsigned nRetries = 3;
        double fFirstWait = 1; // seconds; doubled for each further try
        // The code page of texts that are not UTF-8 ("": they pass as
        // they are).
        std::string strMetadataEncoding;
    };

    // strP4: the p4 client the module and the engine run (its commands are
    // the ones looked at; every other child passes untouched). cNames
    // learns the name of every file the module is told of.
    CP4Gateway(const std::string& strP4, const TPolicy& tPolicy, CEscapedNames& cNames)
        : m_strP4(strP4), m_tPolicy(tPolicy), m_cNames(cNames)
    {
    }

    int Pass(VCM::IChildRun& rRun) override;

    // Fetches descriptions and contents ahead of the module, over
    // several connections, and does its syncs without the server where
    // that gives the same workspace. Large contents wait in the spool
    // folder (made when needed) until they are taken.
    void FetchAhead(const TPrefetchPolicy& tPolicy);
    void SetSpool(const std::string& strFolder);
    // Ends every fetch and removes the spool.
    void StopFetching();
    // What was fetched ahead, and how the syncs went ("" without fetching).
    std::string FetchSummary() const;
    // The commands run to fetch ahead, and how long the module waited for
    // what they fetched.
    void Fetched(unsigned& nCommands, double& fWaitSeconds) const;
    // A server that compares names without case: every sync goes to it.
    void SetCaseInsensitiveServer();

    // Told of each retry (one line).
    void SetNotice(std::function<void(const std::string&)> fnNotice) { m_fnNotice = std::move(fnNotice); }
    // Looks at the module's sync of a folder to a change before it runs:
    // returns why it must not run ("" when it may).
    void SetSyncGuard(std::function<std::string(const std::string& strFolder, unsigned int nChange)> fnGuard)
    {
        m_fnSyncGuard = std::move(fnGuard);
    }
    // The depot files below the prefix ("//depot/main/") that are symbolic
    // links at the change, as the descriptions said.
    std::vector<std::string> LinksAt(const std::string& strPrefix, unsigned int nChange) const;
    // Whether the waits between retries are cut short (a stop was asked).
    void SetStopCheck(std::function<bool()> fnStop) { m_fnStop = std::move(fnStop); }

    // The module's commands that lost history since the last call.
    std::vector<TLostCommand> TakeLost();
    // What the module could not read of the branch specifications since
    // the last call: for each, the name of the specification ("" for the
    // list of them) and "'COMMAND' failed: MESSAGE".
    std::vector<std::pair<std::string, std::string>> TakeUnreadBranches();
    // How many submitted changes the module's listings gave it so far.
    unsigned ListedChanges() const { return m_nListed; }
    // The last command that failed, with the server's message ("" when none
    // failed since ForgetFailure).
    const std::string& LastFailure() const { return m_strLastFailure; }
    void ForgetFailure() { m_strLastFailure.clear(); }
    // The depot files on which the module would never finish, refused so
    // far (in the order met, each once).
    const std::vector<std::string>& RefusedNames() const { return m_astrRefused; }

    // A server with unicode enabled sends UTF-8 only: nothing to decode.
    void SetUnicodeServer(bool bUnicode) { m_bUnicodeServer = bUnicode; }
    // How many texts were decoded from the code page.
    unsigned DecodedTexts() const { return m_nDecoded; }

    // The purged and archived revisions the module's descriptions named,
    // left out of what it read so that it reads the rest of the change.
    const std::vector<TGoneRevision>& GoneRevisions() const { return m_atGone; }

    // The keyword mode of the depot file (as the server writes its path)
    // in its newest revision at the change, as the descriptions said.
    TKeywordMode KeywordModeAt(const std::string& strDepotFile, unsigned int nChange) const;
    // Whether any description named a file of a type that expands keywords.
    bool HasKeywordTypes() const { return !m_mapKeywordTypes.empty(); }

    unsigned Retried() const { return m_nRetried; }
    unsigned Recovered() const { return m_nRecovered; }
    unsigned PendingLeftOut() const { return m_nPendingLeftOut; }

private:
    // Runs the command, again while it fails on the way; the final status
    // and the problem ("" none). strOutput: what it printed (-G commands).
    int RunWithRetries(VCM::IChildRun& rRun, const TP4Command& tCommand, std::string& strOutput,
                       std::string& strProblem);
    bool Wait(unsigned nTry) const;
    // Leaves pending and shelved changes out of a listing.
    void FilterListing(VCM::IChildRun& rRun, const std::string& strOutput);
    // Decodes a marshalled answer: its failure records and the problem they
    // tell ("" when none), the descriptions kept; whether it came whole.
    bool Decode(const TP4Command& tCommand, const std::string& strOutput, TP4Result& tResult);
    // One record of an answer: a failure kept, a description kept when
    // bKeep, the others counted.
    bool TakeRecord(const TP4Record& tRecord, TP4Result& tResult, bool bKeep);
    // The same for a large answer, read from the capture a piece at a time
    // (strOutput of RunWithRetries stays empty): false, having decoded
    // nothing, when the answer is small, is one whose bytes are looked at
    // again, or holds metadata to decode.
    bool DecodeInPieces(const VCM::CProcessCapture& cCapture, const TP4Command& tCommand, TP4Result& tResult);
    // The module's sync of a folder to a change, done here when it can be.
    bool SyncHere(VCM::IChildRun& rRun, const TP4Command& tCommand);
    // Tells the user of a fetch that failed, once for each problem.
    void NoticeFetch(const std::string& strNotice, const std::string& strProblem);
    // The change numbers of a listing, in its order.
    static std::vector<unsigned int> ListedChanges(const std::string& strOutput);
    // Hands texts that are not UTF-8 on as UTF-8.
    void DecodeMetadata(VCM::IChildRun& rRun, std::string& strOutput);
    // Refuses a description that names a file the module cannot read, and
    // leaves out the revisions whose content is gone.
    int CheckDescription(VCM::IChildRun& rRun, std::string& strOutput, int nStatus, unsigned int nChange);

    std::string m_strP4;
    TPolicy m_tPolicy;
    CEscapedNames& m_cNames;
    std::function<void(const std::string&)> m_fnNotice;
    std::function<bool()> m_fnStop;
    std::function<std::string(const std::string&, unsigned int)> m_fnSyncGuard;
    // The files ever a symbolic link: each change that made one a link or
    // something else (or deleted it).
    std::map<std::string, std::vector<std::pair<unsigned int, bool>>> m_mapLinks;
    std::vector<TLostCommand> m_atLost;
    std::vector<std::pair<std::string, std::string>> m_atUnreadBranches;
    std::vector<std::string> m_astrRefused;
    std::vector<TGoneRevision> m_atGone;
    // The files ever of a type that expands keywords: each change that
    // gave one a type, with its mode.
    std::map<std::string, std::vector<std::pair<unsigned int, TKeywordMode>>> m_mapKeywordTypes;
    std::string m_strLastFailure;
    // The path whose changes the module lists now: its descriptions
    // belong to it.
    std::string m_strListing;
    // Whether the server has answered a command of this run: a connection
    // that could never be made is no dropped one, and is not tried again.
    bool m_bServerAnswered = false;
    bool m_bUnicodeServer = false;
    CMetadataDecoder m_cDecoder{m_tPolicy.strMetadataEncoding};
    unsigned m_nDecoded = 0;
    unsigned m_nRetried = 0;
    unsigned m_nRecovered = 0;
    unsigned m_nPendingLeftOut = 0;
    unsigned m_nListed = 0;
    // Records of the last command's output that are no message, and those
    // of the module's last description.
    unsigned m_nStatRecords = 0;
    std::vector<TP4Record> m_atDescribed;
    std::unique_ptr<CPrefetcher> m_pFetcher;
    std::unique_ptr<CFastSync> m_pFastSync;
    std::set<std::string> m_setFetchProblems;
};

} // namespace IMP
} // namespace ORVANE
