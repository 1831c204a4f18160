// The migration driver: every call of a migration to its provider, in the
// order the provider's iteration requires. What becomes of the streams,
// changes and items it walks is the handler's.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "mce/Provider.h"

namespace ORVANE {
namespace IMP {

// What the provider's iteration calls return.
enum TResult : int
{
    eResultDone = 0,    // done, or an element was produced
    eResultFailure = 1, // failed
    eResultNoMore = 2   // no (more) elements
};

typedef MCE::CProvider::TStreamInfo TStreamInfo;
typedef MCE::CProvider::TChangeInfo TChangeInfo;
typedef MCE::CProvider::TChangeItemInfo TChangeItemInfo;

// Told of each step of an import, in this order for each stream:
// OnStreamOpening, (for the first stream) OnStreamsRefreshed,
// OnChangesReady, then for each change OnChangeListed and, when that wants
// the change, OnChangeSynced, OnChangeItem for each of its items and
// OnChangeDone, and last OnStreamClosed.
class CMigrationHandler
{
public:
    virtual ~CMigrationHandler();
    // Before each provider call, with the call's name: throws to stop the
    // migration there.
    virtual void BeforeCall(const char* pszCall) = 0;
    // Before the provider is told of the stream: its folder must exist.
    virtual void OnStreamOpening() {}
    // The streams as they are once the changes are known (the first time).
    virtual void OnStreamsRefreshed(const std::vector<TStreamInfo>& atStreams) { (void)atStreams; }
    // The changes are established: their number for all streams together.
    virtual void OnChangesReady(unsigned int nCount) { (void)nCount; }
    // The provider named the next change of the stream, with its number in
    // the source system (0: not known). False leaves the change out: it is
    // neither synced nor walked.
    virtual bool OnChangeListed(const TChangeInfo& tChange, unsigned int nNumber)
    {
        (void)tChange, (void)nNumber;
        return true;
    }
    // The provider synced the folder to the change.
    virtual void OnChangeSynced(const TChangeInfo& tChange) { (void)tChange; }
    virtual void OnChangeItem(const TChangeItemInfo& tItem) { (void)tItem; }
    // After the change's last item.
    virtual void OnChangeDone(const TChangeInfo& tChange) { (void)tChange; }
    // After the stream's last change.
    virtual void OnStreamClosed() {}
    // Why the provider could not give the item (its path filled in), when
    // the handler can tell; "" else.
    virtual std::string WhyItemFailed(const TChangeItemInfo& tItem) const
    {
        (void)tItem;
        return std::string();
    }
};

// Every call that fails throws EProviderFailure naming the call; a stop
// thrown by the handler passes through.
class CMigrationDriver
{
public:
    CMigrationDriver(MCE::CProvider& cProvider, CMigrationHandler& cHandler)
        : m_cProvider(cProvider), m_cHandler(cHandler)
    {
    }

    // Where the source system's number of the provider's current change is
    // read (none: the number is 0).
    void SetChangeNumbers(std::function<unsigned int()> fnNumber) { m_fnChangeNumber = std::move(fnNumber); }

    // False, with the provider's warning, when it finds its environment
    // unusable.
    bool CheckEnvironment(std::string& strWarning);
    // Starts the provider's import log; its lines go to the engine's
    // connection as well when asked.
    void OpenLog(bool bToConnection);
    // The number of streams the provider proposes.
    unsigned int EstablishStreams();
    // Every stream once: each root stream followed by its descendants,
    // depth first, children in the provider's order.
    std::vector<TStreamInfo> WalkStreams();
    // Lets the provider prepare its clients for files under the folder.
    void InitialiseClients(const std::string& strRoot);
    // Imports the stream's changes into the folder.
    void ImportStream(unsigned int nStreamID, const std::string& strRoot);
    // Hands each change of the stream to the callback without processing
    // it: nothing is synced, and no handler call but BeforeCall is made.
    // Returns the number of changes established for all streams.
    unsigned int ListChanges(unsigned int nStreamID, const std::string& strRoot,
                             const std::function<void(const TChangeInfo&)>& fnChange);
    // Removes the provider's clients when InitialiseClients was called.
    void RemoveClients();

private:
    void WalkChildren(unsigned int nParent, std::vector<TStreamInfo>& atStreams, std::set<unsigned int>& setSeen,
                      int nDepth);
    // The stream's changes, first to last, each handed to the callback.
    void WalkChanges(const std::function<void(TChangeInfo&)>& fnChange);
    void ImportChange(TChangeInfo& tChange);

    MCE::CProvider& m_cProvider;
    CMigrationHandler& m_cHandler;
    std::function<unsigned int()> m_fnChangeNumber;
    bool m_bStreamsRefreshed = false;
    bool m_bClientsInitialised = false;
};

} // namespace IMP
} // namespace ORVANE
