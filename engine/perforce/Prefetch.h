// Fetches from the server ahead of the module, over several connections at
// once: the descriptions of the changes the module has listed (in batches,
// "p4 -G describe -s N1 N2 ..."), and the file revisions the coming syncs
// need ("p4 -G print FILE#REV ..."), written to a spool folder as they
// arrive. What is fetched waits in a bounded window until it is taken.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ORVANE {
namespace IMP {

struct TPrefetchPolicy
{
    unsigned nJobs = 4;                // connections at once
    unsigned nRetries = 3;             // further tries of a command that failed on the way
    double fFirstWait = 1;             // seconds before the first of them; doubled for each further one
    unsigned nDescribeBatch = 32;      // changes per describe
    unsigned nDescriptionsAhead = 0;   // 0: four batches per connection
    unsigned nPrintFiles = 64;         // revisions per print
    uint64_t nPrintBytes = 16u << 20;  // content per print (a larger revision goes alone)
    uint64_t nBytesAhead = 8u << 20;   // content fetched and not yet taken
    // A revision up to this size waits in memory, a larger one in the spool
    // folder (so that memory stays bounded whatever the files' sizes).
    uint64_t nInMemory = 1u << 20;
};

// A fetched revision's content: in memory, or a file of the spool folder.
struct TFetched
{
    bool bSpooled = false;
    std::string strContent; // in memory
    std::string strName;    // in the spool folder, the taker's to move or remove
};

// A revision a coming sync needs.
struct TWantedRevision
{
    std::string strDepotFile; // as the server writes it
    unsigned int nRev = 0;
    uint64_t nSize = 0; // as the description gave it (0: unknown)
};

class CPrefetcher
{
public:
    // strP4: the p4 client to run.
    CPrefetcher(const std::string& strP4, const TPrefetchPolicy& tPolicy);
    ~CPrefetcher();
    CPrefetcher(const CPrefetcher&) = delete;
    CPrefetcher& operator=(const CPrefetcher&) = delete;

    // Asked between tries and while waiting: true ends every fetch.
    void SetStopCheck(std::function<bool()> fnStop) { m_fnStop = std::move(fnStop); }

    // Ends every fetch (running commands are killed), waits for the
    // connections to end and removes the spool folder. Nothing is fetched
    // afterwards.
    void Stop();

    // The changes whose descriptions the module will ask for, in its order.
    void WantDescriptions(const std::vector<unsigned int>& anChanges);
    // The change's description as the server sent it (one marshalled
    // record), waiting while it is on its way (unless !bWait: then false
    // while it is). False when it was not fetched (not asked for, or the
    // fetch failed: strProblem says how).
    bool TakeDescription(unsigned int nChange, std::string& strRecord, std::string& strProblem, bool bWait = true);

    // The folder the revisions are spooled to (made here, removed by Stop).
    // False with the reason when it cannot be made.
    void SetSpool(const std::string& strFolder);
    int SpoolDescriptor() const { return m_nSpoolFd; }
    // Revisions the coming syncs need, in the order they need them. Each
    // revision is fetched once.
    void WantRevisions(const std::vector<TWantedRevision>& atRevisions);
    // How many revisions were asked for and are not taken yet.
    size_t Outstanding() const;
    // Lets go of a wanted revision that will not be taken (its change was
    // synced by the server after all).
    void Drop(const std::string& strDepotFile, unsigned int nRev);
    enum TTaken
    {
        eTaken,  // tFetched: its content
        eFailed, // strProblem: why
        eNotWanted
    };
    // Waits while the revision is on its way.
    TTaken TakeRevision(const std::string& strDepotFile, unsigned int nRev, TFetched& tFetched,
                        std::string& strProblem);

    // What was fetched.
    struct TStats
    {
        unsigned nDescribeCommands = 0;
        unsigned nDescriptions = 0;
        unsigned nPrintCommands = 0;
        unsigned nRevisions = 0;
        uint64_t nBytes = 0;
        unsigned nRetried = 0;
        unsigned nFailed = 0;    // fetches that failed for good
        unsigned nSplit = 0;     // commands too large for the server's limits, asked again in halves
        double fWaitSeconds = 0; // the module's time waiting for a fetch
    };
    TStats Stats() const;

private:
    struct TTask;
    struct TDescription;
    struct TRevision;

    void Worker();
    void Schedule(std::unique_lock<std::mutex>& rLock);
    void RunDescribe(TTask& tTask);
    void RunPrint(TTask& tTask);
    // Puts the task's two halves first in the queue (with the lock held).
    void SplitTask(TTask& tTask);
    // Counts a further try and waits before it; false when a stop came.
    bool WaitBeforeTry(unsigned nTry);
    // The spool folder's descriptor, the folder made the first time; -1
    // with strError set when it cannot be.
    int OpenSpool(std::string& strError);
    bool Stopping() const;
    void StartThreads();
    // Waits (in slices, watching for a stop) while the predicate is false;
    // false when stopping.
    bool WaitFor(std::unique_lock<std::mutex>& rLock, const std::function<bool()>& fnDone);

    std::string m_strP4;
    TPrefetchPolicy m_tPolicy;
    std::function<bool()> m_fnStop;

    mutable std::mutex m_cMutex;
    std::condition_variable m_cWork;  // a task to run, or stopping
    std::condition_variable m_cReady; // something fetched
    std::vector<std::thread> m_acThreads;
    std::deque<std::unique_ptr<TTask>> m_aTasks;
    std::atomic<bool> m_bStopping{false};
    // The environment the commands run with, as it was when work was last
    // asked for (the module changes P4CLIENT while it runs).
    std::vector<std::string> m_astrEnvironment;

    std::deque<unsigned int> m_anDescribePending;
    std::map<unsigned int, TDescription> m_mapDescriptions;
    unsigned m_nDescriptionsOut = 0; // scheduled and not taken

    std::string m_strSpool;
    int m_nSpoolFd = -1;
    unsigned m_nSpoolNames = 0;
    std::deque<TWantedRevision> m_atRevisionPending;
    std::map<std::string, TRevision> m_mapRevisions; // "FILE#REV"
    uint64_t m_nBytesOut = 0;                        // scheduled and not taken
    unsigned m_nRevisionsOut = 0;

    TStats m_tStats;
};

} // namespace IMP
} // namespace ORVANE
