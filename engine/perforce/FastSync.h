// The module's sync of a stream's folder to a change, done without the
// server where that gives the same workspace: the descriptions say which
// files the change added, changed and deleted in the folder, the contents
// were fetched ahead, and they are put in place as a sync puts them. Any
// sync this cannot do exactly (the folder is not where the last change left
// it, a file type the client translates, a revision whose content is gone,
// a fetch that failed, a path that would leave the folder) goes to the
// server, whose have list is first brought up to what was written here.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "perforce/ClientView.h"
#include "perforce/FolderWriter.h"
#include "perforce/P4Query.h"
#include "perforce/Prefetch.h"

namespace ORVANE {
namespace IMP {

// How a sync writes a revision of the file type ("text+x", "kxtext", ...).
struct TSyncedType
{
    bool bSupported = false; // written as the server sends it (no translation)
    bool bLink = false;
    bool bExecutable = false;
    bool bWritable = false;
};
TSyncedType SyncedType(const std::string& strType);

// The local name of a depot name: "%40", "%23", "%25" and "%2A" are the
// characters they stand for.
std::string LocalName(const std::string& strDepotName);

class CFastSync
{
public:
    // pFetcher: where revisions are fetched (it stays the caller's).
    CFastSync(const std::string& strP4, CPrefetcher& rFetcher) : m_strP4(strP4), m_rFetcher(rFetcher) {}

    // A server that compares names without case maps them in ways this
    // does not follow: every sync goes to the server.
    void Disable() { m_bDisabled = true; }

    // The module listed the changes of the depot path ("//depot/main/...").
    void OnListing(const std::string& strPath, const std::vector<unsigned int>& anChanges);
    // The module was given the description of the change of the listed
    // path (its records as the server sent them).
    void OnDescribed(const std::string& strListing, unsigned int nChange, const std::vector<TP4Record>& atRecords);

    // Brings the folder to the change; false when the server must (with
    // strNotice set when the user should know why).
    bool Sync(const std::string& strFolder, unsigned int nChange, std::string& strNotice);
    // Before the server syncs the folder: its have list is brought up to
    // what was written here.
    void BeforeServerSync(const std::string& strFolder);
    // The server's sync of the folder to the change (0: "#none") ended.
    void AfterServerSync(const std::string& strFolder, unsigned int nChange, bool bSucceeded);
    // Before the client is removed: every have list as the folders are.
    void BeforeClientRemoval();

    unsigned FastSyncs() const { return m_nFast; }
    unsigned ServerSyncs() const { return m_nServer; }

private:
    // One file of a change as its description says.
    struct TFileAction
    {
        std::string strName; // the depot file as the server writes it
        uint32_t nRev = 0;
        uint64_t nSize = 0;
        uint8_t eKind = 0;
        TSyncedType tType;
    };
    struct TFolder
    {
        bool bKnown = true;         // nAt says what the folder holds
        unsigned int nAt = 0;       // the change the folder is at (0: empty)
        unsigned int nServerAt = 0; // the change the server's have list is at
        size_t nDescribedUpTo = 0;  // the listing's changes whose descriptions were asked for
        size_t nWantedUpTo = 0;     // the listing's changes whose revisions were asked for
        size_t nPassed = 0;         // the listing's changes the folder is past
    };
    // Of each listing, the descriptions of the first changes the module
    // reads are kept for the start of the import.
    static const size_t nKeptFirst = 64;

    static std::vector<TFileAction> FileActions(const std::vector<TP4Record>& atRecords);
    // The files of the change, from its description (fetched now when it is
    // not here and bWait, else only when it came); null when it cannot be
    // had.
    const std::vector<TFileAction>* FilesOf(unsigned int nChange, bool bWait);
    bool ReadView();
    // The depot folder of the local folder and its listing (oldest first).
    const std::vector<unsigned int>* ListingOf(const std::string& strFolder, std::string& strDepotFolder);
    // Adds to at the revisions of the actions from nFirst to before nEnd
    // that the folder will need.
    void WantOf(const std::string& strFolder, const std::vector<TFileAction>& atActions, size_t nFirst, size_t nEnd,
                std::vector<TWantedRevision>& at);
    // Asks for the descriptions of the listing's changes from nFrom on, and
    // for the revisions the folder will need of those that came, and those
    // in at.
    void WantAhead(const std::string& strFolder, TFolder& tFolder, const std::vector<unsigned int>& anListing,
                   size_t nFrom, std::vector<TWantedRevision>& at);
    bool Flush(const std::string& strFolder, TFolder& tFolder);
    // Does what the change does to one file; "" or why it could not.
    std::string Put(const CFolderWriter& cWriter, const std::string& strPath, const TFileAction& tAction,
                    TFetched& tFetched);
    // The folder was synced to the change: the changes of its listing up
    // to it are behind it, their files forgotten.
    void Reached(const std::string& strFolder, TFolder& tFolder, unsigned int nChange);

    std::string m_strP4;
    CPrefetcher& m_rFetcher;
    bool m_bDisabled = false;
    int m_nView = -1; // -1: not read yet; 0: unusable; 1: read
    CClientView m_cView;
    std::map<std::string, std::vector<unsigned int>> m_mapListings; // "//depot/main/" -> changes, oldest first
    // The files of the changes about to be synced.
    std::unordered_map<unsigned int, std::vector<TFileAction>> m_mapChanges;
    std::map<std::string, TFolder> m_mapFolders;
    unsigned m_nFast = 0;
    unsigned m_nServer = 0;
};

} // namespace IMP
} // namespace ORVANE
