// The `p4` commands that p4sim answers, and what they share: the context of
// one invocation, option parsing, the current client and file arguments.
#pragma once

#include "Errors.h"
#include "Output.h"
#include "Store.h"
#include "View.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

struct TCommandSpec;

// The server's MaxResults and MaxScanRows for one command, and what the
// command has counted against them: the rows it returns and the database
// rows it reads. Going past either fails the command (ELimitError).
class CLimits
{
public:
    void Set(long long nMaxResults, long long nMaxScanRows);
    bool Active() const { return m_nMaxResults > 0 || m_nMaxScanRows > 0; }
    bool ScanLimited() const { return m_nMaxScanRows > 0; }
    void AddResults(long long nRows)
    {
        m_nResults += nRows;
        if (m_nMaxResults > 0 && m_nResults > m_nMaxResults)
            TooManyResults();
    }
    void AddScanned(long long nRows)
    {
        m_nScanned += nRows;
        if (m_nMaxScanRows > 0 && m_nScanned > m_nMaxScanRows)
            TooManyScanned();
    }

private:
    [[noreturn]] void TooManyResults() const;
    [[noreturn]] void TooManyScanned() const;

    long long m_nMaxResults = 0, m_nMaxScanRows = 0; // 0: unlimited
    long long m_nResults = 0, m_nScanned = 0;
};

// What the client side knows when it runs one command: the global options
// and environment as resolved, the standard input on demand.
struct TContext
{
    std::string strPort, strUser, strClient, strHost, strCwd;
    CStore* pStore = nullptr;
    COutput* pOutput = nullptr;
    const TCommandSpec* pCommand = nullptr;
    std::function<std::string()> fnReadStdin;
    long long nNow = 0;
    CLimits cLimits;
    // The client's character set on a unicode server (utf8 or utf8-bom),
    // empty on any other.
    std::string strCharset;

    std::string ServerDir() const { return strPort.substr(4); }
};

// Options of one command, parsed the way the real client parses them: a
// flag, or a flag with a value either attached (-m5) or in the next
// argument (-m 5).
struct TOptions
{
    std::map<char, std::vector<std::string>> mapFlags;
    std::vector<std::string> astrArgs;

    bool Has(char c) const { return mapFlags.count(c) != 0; }
    std::string Value(char c, const std::string& strDefault = "") const;
    const std::vector<std::string>& Values(char c) const;
};

using TCommandFn = void (*)(TContext&, const TOptions&);

enum TWriteMode
{
    eReadOnly,
    eWrites,
    eWritesUnlessOutput // writes, except with -o
};

struct TCommandSpec
{
    const char* pszName;
    TCommandFn fnRun;
    const char* pszFlags;      // flags without a value
    const char* pszValueFlags; // flags with a value
    const char* pszUsage;
    TWriteMode eWriteMode;
};

// The command of that name (aliases included), or null.
const TCommandSpec* FindCommand(const std::string& strName);
// Every command, in the order `p4sim help` lists them.
const std::vector<TCommandSpec>& AllCommands();

// An unknown flag is a usage error.
TOptions ParseOptions(const TCommandSpec& tCommand, const std::vector<std::string>& astrArgs);
// "Usage: USAGE\nWHAT" as the command's usage error.
EP4Error UsageError(const TContext& tContext, const std::string& strWhat);
// The -m value, -1 without one.
long long MaxOption(const TOptions& tOptions);

// A file argument split into its path and revision specifier ("@12",
// "#3", "#none", "#head", "@1,@5", or empty).
struct TFileArg
{
    std::string strPath;
    std::string strRev;
};
TFileArg SplitFileArg(const std::string& strArg);

// What a revision specifier selects, for the listing commands.
struct TRevBounds
{
    long long nLow = 1, nHigh = 0; // change range
    long long nRev = -1;           // #N: that revision, -1 none
    bool bNone = false;            // #none
    bool bHave = false;            // #have
    std::string strLabel;          // @NAME: the revisions the label tags
};
TRevBounds ParseRevBounds(const std::string& strRev, long long nMaxChange);
// The label's revisions of the files under the prefix; the server's error
// when there is no such label.
std::vector<TRevRec> LabelRevisions(TContext& tContext, const std::string& strLabel, const std::string& strPrefix);

// The current client, with its view parsed.
struct TClientView
{
    TClientRec tSpec;
    CMapTable cMap;

    std::string LocalPath(const std::string& strClientFile) const; // //ws/a%40b -> ROOT/a@b
    // Local path (absolute, normalised) to client syntax; false when the
    // path is not under the root.
    bool ClientPathOf(const std::string& strLocal, std::string& strClientPath) const;
};
// Error texts as the server's when the client is unknown or locked to
// another host.
TClientView LoadClient(TContext& tContext, bool bCheckHost);
// Whether the file argument needs the client: one in local syntax, or in
// client syntax ("//CLIENT/..."); "@label" alone names depot files.
bool NeedsClient(const TContext& tContext, const std::string& strArg);
// The client for commands whose arguments may be in client or local syntax:
// needed (and loaded, or an error) when an argument is; otherwise loaded when
// it exists, to show mapped client files.
std::unique_ptr<TClientView> ClientIfNeeded(TContext& tContext, const std::vector<std::string>& astrArgs,
                                            bool bCheckHost);

// A file argument in depot, client or local syntax, as a pattern in client
// syntax (for client and local paths) or depot syntax; bIsDepot tells which.
std::string ArgPattern(TContext& tContext, const std::string& strPath, const TClientView* pView, bool& bIsDepot);
std::string AbsoluteLocal(const TContext& tContext, const std::string& strPath);
// The depot prefixes under which the files of a pattern lie.
std::vector<std::string> DepotPrefixes(const std::string& strPattern, bool bIsDepot, const TClientView* pView);
// Does a depot file fall under the pattern? strClientFile gets its client
// path when the client maps it.
bool PatternNames(const std::string& strPattern, bool bIsDepot, const TClientView* pView,
                  const std::string& strDepotFile, std::string& strClientFile);

bool IsTextType(const std::string& strType);

// The bytes of a revision as a client writes them: RCS keywords expanded
// for +k types (unless bExpandKeywords is false), line ends of text kinds
// as strLineEnd, utf16 files as UTF-16 with a byte order mark, utf8 files
// (and unicode files for a utf8-bom client) after a UTF-8 one.
std::string ClientContent(TContext& tContext, const TRevRec& tRev, bool bExpandKeywords, const std::string& strLineEnd);
std::string ConvertLineEnds(const std::string& strData, const std::string& strLineEnd);

// The -u, -e and -E filters of the spec listings (branches, clients, labels).
bool ListingSelects(const TOptions& tOptions, const std::string& strName, const std::string& strOwner);

// Branch and label specifications alike: the -G record of the form (Update
// and Access only for one that exists, then Owner Description Options
// View0...), and one line of the listing with its record. strKeyword is
// "Branch" or "Label".
TRecord ViewSpecFormRecord(const std::string& strKeyword, const TViewSpecRec& tSpec, bool bExisting);
void ListViewSpec(TContext& tContext, const TOptions& tOptions, const std::string& strKeyword,
                  const TViewSpecRec& tSpec);

// The commands, by family.
void CmdBranches(TContext& tContext, const TOptions& tOptions);
void CmdBranch(TContext& tContext, const TOptions& tOptions);
void CmdChanges(TContext& tContext, const TOptions& tOptions);
void CmdDescribe(TContext& tContext, const TOptions& tOptions);
void CmdClient(TContext& tContext, const TOptions& tOptions);
void CmdClients(TContext& tContext, const TOptions& tOptions);
void CmdSync(TContext& tContext, const TOptions& tOptions);
void CmdHave(TContext& tContext, const TOptions& tOptions);
void CmdWhere(TContext& tContext, const TOptions& tOptions);
void CmdFiles(TContext& tContext, const TOptions& tOptions);
void CmdFstat(TContext& tContext, const TOptions& tOptions);
void CmdIntegrated(TContext& tContext, const TOptions& tOptions);
void CmdPrint(TContext& tContext, const TOptions& tOptions);
void CmdLabels(TContext& tContext, const TOptions& tOptions);
void CmdLabel(TContext& tContext, const TOptions& tOptions);
void CmdUsers(TContext& tContext, const TOptions& tOptions);
void CmdInfo(TContext& tContext, const TOptions& tOptions);
void CmdLogin(TContext& tContext, const TOptions& tOptions);

} // namespace P4SIM
} // namespace ORVANE
