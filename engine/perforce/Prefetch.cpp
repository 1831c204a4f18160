#include "perforce/Prefetch.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "WorkerChannel.h"
#include "perforce/Gateway.h"
#include "perforce/P4Query.h"
#include "perforce/PrintReader.h"
#include "perforce/StreamedRun.h"

namespace ORVANE {
namespace IMP {

namespace {

enum TState
{
    eSlotPending,   // wanted, no command asks for it yet
    eSlotScheduled, // a command will fetch it or is fetching it
    eSlotReady,
    eSlotFailed
};

std::string RevisionKey(const std::string& strDepotFile, unsigned int nRev)
{
    return strDepotFile + "#" + std::to_string(nRev);
}

// What a fetch's answer says went wrong ("" when nothing did), and
// whether it is worth another try.
std::string ProblemOf(int nStatus, const std::string& strError, std::vector<TP4Record>& atMessages, bool bCutShort,
                      bool& bTransient, bool& bLimit)
{
    TP4Result tResult;
    tResult.nStatus = nStatus;
    tResult.strError = strError;
    for (const TP4Record& t : atMessages)
        if (IsFailureRecord(t))
            tResult.atRecords.push_back(t);
    std::string strProblem = tResult.Problem();
    if (strProblem.empty() && bCutShort)
        strProblem = "the answer broke off";
    bTransient = !strProblem.empty() && (bCutShort || IsTransientProblem(tResult.AllMessages()));
    bLimit = !strProblem.empty() && IsLimitProblem(tResult.AllMessages());
    return strProblem;
}

} // namespace

struct CPrefetcher::TTask
{
    std::vector<unsigned int> anChanges;      // a describe
    std::vector<TWantedRevision> atRevisions; // a print
    std::vector<std::string> astrEnvironment;
};

struct CPrefetcher::TDescription
{
    TState eState = eSlotScheduled;
    std::string strRecord;
    std::string strProblem;
};

struct CPrefetcher::TRevision
{
    TState eState = eSlotPending;
    bool bDropped = false; // let go of while on its way: forgotten when it comes
    uint64_t nCost = 1;    // what it counts against the window, in bytes
    TFetched tFetched;
    std::string strProblem;
};

CPrefetcher::CPrefetcher(const std::string& strP4, const TPrefetchPolicy& tPolicy) : m_strP4(strP4), m_tPolicy(tPolicy)
{
    if (m_tPolicy.nJobs == 0)
        m_tPolicy.nJobs = 1;
    if (m_tPolicy.nDescribeBatch == 0)
        m_tPolicy.nDescribeBatch = 1;
    if (m_tPolicy.nDescriptionsAhead == 0)
        m_tPolicy.nDescriptionsAhead = 4 * m_tPolicy.nJobs * m_tPolicy.nDescribeBatch;
    if (m_tPolicy.nPrintFiles == 0)
        m_tPolicy.nPrintFiles = 1;
}

CPrefetcher::~CPrefetcher()
{
    Stop();
}

bool CPrefetcher::Stopping() const
{
    return m_bStopping || (m_fnStop && m_fnStop());
}

void CPrefetcher::Stop()
{
    {
        std::lock_guard<std::mutex> cLock(m_cMutex);
        m_bStopping = true;
    }
    m_cWork.notify_all();
    m_cReady.notify_all();
    for (std::thread& c : m_acThreads)
        c.join();
    m_acThreads.clear();
    if (m_nSpoolFd < 0 && !m_strSpool.empty())
        m_nSpoolFd = ::open(m_strSpool.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (m_nSpoolFd >= 0)
    {
        // The spool holds files only, each named by this class.
        if (DIR* pDir = ::fdopendir(::dup(m_nSpoolFd)))
        {
            std::vector<std::string> astrNames;
            while (struct dirent* p = ::readdir(pDir))
                if (std::strcmp(p->d_name, ".") != 0 && std::strcmp(p->d_name, "..") != 0)
                    astrNames.emplace_back(p->d_name);
            ::closedir(pDir);
            for (const std::string& str : astrNames)
                ::unlinkat(m_nSpoolFd, str.c_str(), 0);
        }
        ::close(m_nSpoolFd);
        m_nSpoolFd = -1;
        ::rmdir(m_strSpool.c_str());
    }
}

void CPrefetcher::StartThreads()
{
    m_astrEnvironment = CurrentEnvironment();
    if (!m_acThreads.empty() || m_bStopping)
        return;
    for (unsigned i = 0; i < m_tPolicy.nJobs; ++i)
        m_acThreads.emplace_back([this]() { Worker(); });
}

bool CPrefetcher::WaitFor(std::unique_lock<std::mutex>& rLock, const std::function<bool()>& fnDone)
{
    const auto tStart = std::chrono::steady_clock::now();
    while (!fnDone())
    {
        if (Stopping())
            return false;
        m_cReady.wait_for(rLock, std::chrono::milliseconds(100));
    }
    m_tStats.fWaitSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
    return true;
}

void CPrefetcher::Worker()
{
    std::unique_lock<std::mutex> cLock(m_cMutex);
    for (;;)
    {
        while (!m_bStopping && m_aTasks.empty())
            m_cWork.wait(cLock);
        if (m_bStopping)
            return;
        std::unique_ptr<TTask> pTask = std::move(m_aTasks.front());
        m_aTasks.pop_front();
        cLock.unlock();
        if (!pTask->anChanges.empty())
            RunDescribe(*pTask);
        else
            RunPrint(*pTask);
        cLock.lock();
        Schedule(cLock);
        m_cReady.notify_all();
    }
}

void CPrefetcher::Schedule(std::unique_lock<std::mutex>& /*rLock*/)
{
    bool bAdded = false;
    while (!m_anDescribePending.empty() && m_nDescriptionsOut < m_tPolicy.nDescriptionsAhead)
    {
        std::unique_ptr<TTask> pTask(new TTask);
        while (!m_anDescribePending.empty() && pTask->anChanges.size() < m_tPolicy.nDescribeBatch)
        {
            const unsigned int nChange = m_anDescribePending.front();
            m_anDescribePending.pop_front();
            auto it = m_mapDescriptions.find(nChange);
            if (it == m_mapDescriptions.end() || it->second.eState != eSlotPending)
                continue;
            it->second.eState = eSlotScheduled;
            pTask->anChanges.push_back(nChange);
            ++m_nDescriptionsOut;
        }
        if (pTask->anChanges.empty())
            continue;
        pTask->astrEnvironment = m_astrEnvironment;
        m_aTasks.push_back(std::move(pTask));
        bAdded = true;
    }
    const unsigned nRevisionsAhead = 4 * m_tPolicy.nJobs * m_tPolicy.nPrintFiles;
    while (!m_atRevisionPending.empty() &&
           (m_nRevisionsOut == 0 || (m_nBytesOut < m_tPolicy.nBytesAhead && m_nRevisionsOut < nRevisionsAhead)))
    {
        std::unique_ptr<TTask> pTask(new TTask);
        uint64_t nBytes = 0;
        while (!m_atRevisionPending.empty() && pTask->atRevisions.size() < m_tPolicy.nPrintFiles)
        {
            const TWantedRevision& t = m_atRevisionPending.front();
            auto it = m_mapRevisions.find(RevisionKey(t.strDepotFile, t.nRev));
            if (it == m_mapRevisions.end() || it->second.eState != eSlotPending)
            {
                m_atRevisionPending.pop_front();
                continue;
            }
            if (!pTask->atRevisions.empty() && nBytes + t.nSize > m_tPolicy.nPrintBytes)
                break;
            it->second.eState = eSlotScheduled;
            nBytes += t.nSize;
            m_nBytesOut += it->second.nCost;
            ++m_nRevisionsOut;
            pTask->atRevisions.push_back(t);
            m_atRevisionPending.pop_front();
        }
        if (pTask->atRevisions.empty())
            continue;
        pTask->astrEnvironment = m_astrEnvironment;
        m_aTasks.push_back(std::move(pTask));
        bAdded = true;
    }
    if (bAdded)
        m_cWork.notify_all();
}

void CPrefetcher::WantDescriptions(const std::vector<unsigned int>& anChanges)
{
    std::unique_lock<std::mutex> cLock(m_cMutex);
    if (m_bStopping)
        return;
    for (unsigned int n : anChanges)
        if (m_mapDescriptions.emplace(n, TDescription()).second)
        {
            m_mapDescriptions[n].eState = eSlotPending;
            m_anDescribePending.push_back(n);
        }
    StartThreads();
    Schedule(cLock);
}

bool CPrefetcher::TakeDescription(unsigned int nChange, std::string& strRecord, std::string& strProblem, bool bWait)
{
    std::unique_lock<std::mutex> cLock(m_cMutex);
    auto it = m_mapDescriptions.find(nChange);
    if (it == m_mapDescriptions.end())
        return false;
    if (!bWait && it->second.eState != eSlotReady)
        return false;
    if (it->second.eState == eSlotPending)
    {
        // Asked for out of the expected order: the module's own command
        // fetches it.
        m_mapDescriptions.erase(it);
        return false;
    }
    if (!WaitFor(cLock, [&]() { return it->second.eState != eSlotScheduled; }))
    {
        strProblem = "stopped";
        return false;
    }
    const bool bReady = it->second.eState == eSlotReady;
    strRecord.swap(it->second.strRecord);
    strProblem = it->second.strProblem;
    m_mapDescriptions.erase(it);
    --m_nDescriptionsOut;
    Schedule(cLock);
    return bReady;
}

void CPrefetcher::SetSpool(const std::string& strFolder)
{
    std::lock_guard<std::mutex> cLock(m_cMutex);
    if (m_strSpool.empty())
        m_strSpool = strFolder;
}

int CPrefetcher::OpenSpool(std::string& strError)
{
    // Made when the first large revision comes: most runs never need it.
    std::lock_guard<std::mutex> cLock(m_cMutex);
    if (m_nSpoolFd >= 0)
        return m_nSpoolFd;
    if (::mkdir(m_strSpool.c_str(), 0700) != 0 && errno != EEXIST)
    {
        strError = "cannot make the folder '" + m_strSpool + "': " + std::strerror(errno);
        return -1;
    }
    m_nSpoolFd = ::open(m_strSpool.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (m_nSpoolFd < 0)
        strError = "cannot open the folder '" + m_strSpool + "': " + std::strerror(errno);
    return m_nSpoolFd;
}

void CPrefetcher::WantRevisions(const std::vector<TWantedRevision>& atRevisions)
{
    std::unique_lock<std::mutex> cLock(m_cMutex);
    if (m_bStopping || m_strSpool.empty())
        return;
    for (const TWantedRevision& t : atRevisions)
    {
        auto itNew = m_mapRevisions.emplace(RevisionKey(t.strDepotFile, t.nRev), TRevision());
        if (!itNew.second)
            continue;
        itNew.first->second.nCost = t.nSize ? t.nSize : 1;
        m_atRevisionPending.push_back(t);
    }
    StartThreads();
    Schedule(cLock);
}

size_t CPrefetcher::Outstanding() const
{
    std::lock_guard<std::mutex> cLock(m_cMutex);
    return m_mapRevisions.size();
}

void CPrefetcher::Drop(const std::string& strDepotFile, unsigned int nRev)
{
    std::unique_lock<std::mutex> cLock(m_cMutex);
    auto it = m_mapRevisions.find(RevisionKey(strDepotFile, nRev));
    if (it == m_mapRevisions.end())
        return;
    if (it->second.eState == eSlotScheduled)
    {
        it->second.bDropped = true;
        return;
    }
    if (it->second.eState == eSlotReady || it->second.eState == eSlotFailed)
    {
        if (it->second.eState == eSlotReady && it->second.tFetched.bSpooled)
            ::unlinkat(m_nSpoolFd, it->second.tFetched.strName.c_str(), 0);
        m_nBytesOut -= it->second.nCost;
        --m_nRevisionsOut;
    }
    m_mapRevisions.erase(it);
    Schedule(cLock);
}

CPrefetcher::TTaken CPrefetcher::TakeRevision(const std::string& strDepotFile, unsigned int nRev, TFetched& tFetched,
                                              std::string& strProblem)
{
    std::unique_lock<std::mutex> cLock(m_cMutex);
    auto it = m_mapRevisions.find(RevisionKey(strDepotFile, nRev));
    if (it == m_mapRevisions.end())
        return eNotWanted;
    if (it->second.eState == eSlotPending)
    {
        // Needed before those ahead of it (the window is full of others):
        // fetched next, on its own.
        std::unique_ptr<TTask> pTask(new TTask);
        pTask->atRevisions.push_back(TWantedRevision{strDepotFile, nRev, it->second.nCost});
        pTask->astrEnvironment = m_astrEnvironment;
        it->second.eState = eSlotScheduled;
        m_nBytesOut += it->second.nCost;
        ++m_nRevisionsOut;
        m_aTasks.push_front(std::move(pTask));
        m_cWork.notify_all();
    }
    if (!WaitFor(cLock, [&]() { return it->second.eState == eSlotReady || it->second.eState == eSlotFailed; }))
    {
        strProblem = "stopped";
        return eFailed;
    }
    const bool bReady = it->second.eState == eSlotReady;
    tFetched = std::move(it->second.tFetched);
    strProblem = it->second.strProblem;
    m_nBytesOut -= it->second.nCost;
    --m_nRevisionsOut;
    m_mapRevisions.erase(it);
    Schedule(cLock);
    return bReady ? eTaken : eFailed;
}

bool CPrefetcher::WaitBeforeTry(unsigned nTry)
{
    {
        std::lock_guard<std::mutex> cLock(m_cMutex);
        ++m_tStats.nRetried;
    }
    return WaitBeforeRetry(nTry, m_tPolicy.fFirstWait, [this]() { return Stopping(); });
}

namespace {

// Collects a batch of descriptions: each change's record, byte for byte.
// Walks the marshalled dictionaries of the bytes without taking them
// apart: each one's range with its "code" and "change" values. False when
// the bytes are no dictionaries or end inside one.
bool WalkRecords(const std::string& str,
                 const std::function<void(size_t, size_t, const std::string&, const std::string&)>& fnRecord)
{
    size_t i = 0;
    auto fnLength = [&](uint32_t& n) {
        if (str.size() - i < 4)
            return false;
        n = uint32_t(uint8_t(str[i])) | uint32_t(uint8_t(str[i + 1])) << 8 | uint32_t(uint8_t(str[i + 2])) << 16 |
            uint32_t(uint8_t(str[i + 3])) << 24;
        i += 4;
        return true;
    };
    auto fnString = [&](std::string* pstr) {
        uint32_t n;
        if (i >= str.size() || (str[i] != 's' && str[i] != 'u' && str[i] != 't'))
            return false;
        ++i;
        if (!fnLength(n) || str.size() - i < n)
            return false;
        if (pstr)
            pstr->assign(str, i, n);
        i += n;
        return true;
    };
    while (i < str.size())
    {
        const size_t nBegin = i;
        if (str[i++] != '{')
            return false;
        std::string strCode, strChange, strKey;
        for (;;)
        {
            if (i >= str.size())
                return false;
            if (str[i] == '0')
            {
                ++i;
                break;
            }
            if (!fnString(&strKey))
                return false;
            if (i < str.size() && str[i] == 'i')
            {
                uint32_t n;
                ++i;
                if (!fnLength(n))
                    return false;
                if (strKey == "change")
                    strChange = std::to_string(n);
                continue;
            }
            if (!fnString(strKey == "code" ? &strCode : strKey == "change" ? &strChange : nullptr))
                return false;
        }
        fnRecord(nBegin, i, strCode, strChange);
    }
    return true;
}

// A batch of descriptions: each change's record, byte for byte.
class CDescriptions
{
public:
    void StartOver()
    {
        m_strOutput.clear();
        m_mapRecords.clear();
        m_atMessages.clear();
        m_bBroken = false;
    }
    bool Feed(const char* p, size_t n)
    {
        m_strOutput.append(p, n);
        return true;
    }
    // Takes the whole answer apart.
    void End()
    {
        m_bBroken = !WalkRecords(
            m_strOutput, [this](size_t nBegin, size_t nEnd, const std::string& strCode, const std::string& strChange) {
                if (strCode == "stat" && !strChange.empty())
                    m_mapRecords[unsigned(std::stoul(strChange))] = m_strOutput.substr(nBegin, nEnd - nBegin);
                else
                {
                    // Messages are small: read whole.
                    CMarshalDecoder cDecoder;
                    cDecoder.Feed(m_strOutput.data() + nBegin, nEnd - nBegin, [this](const TP4Record& t) {
                        m_atMessages.push_back(t);
                        return true;
                    });
                }
            });
        std::string().swap(m_strOutput);
    }
    bool CutShort() const { return m_bBroken; }

    std::string m_strOutput;
    std::map<unsigned int, std::string> m_mapRecords;
    std::vector<TP4Record> m_atMessages;
    bool m_bBroken = false;
};

} // namespace

void CPrefetcher::RunDescribe(TTask& tTask)
{
    std::vector<std::string> astrArgs = {m_strP4, "-G", "describe", "-s"};
    for (unsigned int n : tTask.anChanges)
        astrArgs.push_back(std::to_string(n));
    CDescriptions cAnswer;
    std::string strProblem;
    bool bLimit = false;
    for (unsigned nTry = 0;; ++nTry)
    {
        cAnswer.StartOver();
        const TStreamedRun tRun = RunStreamed(
            astrArgs, tTask.astrEnvironment, [&](const char* p, size_t n) { return cAnswer.Feed(p, n); },
            [this]() { return Stopping(); });
        cAnswer.End();
        bool bTransient = false;
        strProblem = tRun.bStopped ? std::string("stopped")
                                   : ProblemOf(tRun.nStatus, tRun.strError, cAnswer.m_atMessages, cAnswer.CutShort(),
                                               bTransient, bLimit);
        if (!bTransient || nTry >= m_tPolicy.nRetries || !WaitBeforeTry(nTry))
            break;
    }
    std::lock_guard<std::mutex> cLock(m_cMutex);
    ++m_tStats.nDescribeCommands;
    if (bLimit && tTask.anChanges.size() > 1)
    {
        // Too large for the server's limits: asked again in two halves.
        ++m_tStats.nSplit;
        SplitTask(tTask);
        return;
    }
    const bool bWhole = !cAnswer.CutShort();
    for (unsigned int n : tTask.anChanges)
    {
        auto it = m_mapDescriptions.find(n);
        if (it == m_mapDescriptions.end())
            continue;
        auto itRecord = cAnswer.m_mapRecords.find(n);
        if (bWhole && itRecord != cAnswer.m_mapRecords.end())
        {
            it->second.eState = eSlotReady;
            it->second.strRecord.swap(itRecord->second);
            ++m_tStats.nDescriptions;
        }
        else
        {
            it->second.eState = eSlotFailed;
            it->second.strProblem =
                strProblem == "stopped"
                    ? strProblem
                    : "'" + CommandText(astrArgs) + "' failed: " +
                          (strProblem.empty() ? "it did not describe change " + std::to_string(n) : strProblem);
            ++m_tStats.nFailed;
        }
    }
}

namespace {

// Keeps each printed revision: a small one in memory, a larger one in a
// file of its own in the spool.
class CSpoolSink : public CPrintReader::ISink
{
public:
    CSpoolSink(std::function<int(std::string&)> fnOpenSpool, const std::map<std::string, uint64_t>& mapWanted,
               uint64_t nInMemory, std::function<std::string()> fnNewName)
        : m_fnOpenSpool(std::move(fnOpenSpool)), m_mapWanted(mapWanted), m_nInMemory(nInMemory),
          m_fnNewName(std::move(fnNewName))
    {
    }
    ~CSpoolSink() override { CloseCurrent(); }

    bool OnFile(const TP4Record& tStat) override
    {
        if (!CloseCurrent())
            return false;
        m_pCurrent = nullptr;
        const std::string strKey = RecordValue(tStat, "depotFile") + "#" + RecordValue(tStat, "rev");
        auto itWanted = m_mapWanted.find(strKey);
        if (itWanted == m_mapWanted.end() || m_mapFetched.count(strKey))
            return true; // its content is skipped
        TFetched& t = m_mapFetched[strKey];
        m_pCurrent = &t;
        // The header's size, else the description's: a revision of no known
        // size goes to the spool.
        const std::string strSize = RecordValue(tStat, "fileSize");
        const bool bKnown = !strSize.empty() || itWanted->second != 0;
        const uint64_t nSize = strSize.empty() ? itWanted->second : std::strtoull(strSize.c_str(), nullptr, 10);
        if (bKnown && nSize <= m_nInMemory)
        {
            t.strContent.reserve(size_t(nSize));
            return true;
        }
        if (m_nSpoolFd < 0 && (m_nSpoolFd = m_fnOpenSpool(m_strError)) < 0)
            return false;
        t.bSpooled = true;
        t.strName = m_fnNewName();
        m_nFd = ::openat(m_nSpoolFd, t.strName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (m_nFd < 0)
        {
            m_strError = "cannot write to the spool: " + std::string(std::strerror(errno));
            return false;
        }
        return true;
    }
    bool OnContent(const char* p, size_t n) override
    {
        m_nBytes += n;
        if (!m_pCurrent)
            return true;
        if (!m_pCurrent->bSpooled)
        {
            m_pCurrent->strContent.append(p, n);
            return true;
        }
        while (n > 0)
        {
            const ssize_t nWritten = ::write(m_nFd, p, n);
            if (nWritten < 0 && errno == EINTR)
                continue;
            if (nWritten <= 0)
            {
                m_strError = "cannot write to the spool: " + std::string(std::strerror(errno));
                return false;
            }
            p += nWritten;
            n -= size_t(nWritten);
        }
        return true;
    }
    void OnMessage(const TP4Record& tRecord) override { m_atMessages.push_back(tRecord); }

    // Forgets what a try that failed brought.
    void Discard()
    {
        CloseCurrent();
        m_pCurrent = nullptr;
        for (const auto& kv : m_mapFetched)
            if (kv.second.bSpooled)
                ::unlinkat(m_nSpoolFd, kv.second.strName.c_str(), 0);
        m_mapFetched.clear();
        m_atMessages.clear();
        m_nBytes = 0;
    }
    bool CloseCurrent()
    {
        if (m_nFd < 0)
            return true;
        const bool bOk = ::close(m_nFd) == 0;
        m_nFd = -1;
        if (!bOk && m_strError.empty())
            m_strError = "cannot write to the spool: " + std::string(std::strerror(errno));
        return bOk;
    }

    std::function<int(std::string&)> m_fnOpenSpool;
    int m_nSpoolFd = -1;
    const std::map<std::string, uint64_t>& m_mapWanted; // "FILE#REV" -> the size the description gave
    uint64_t m_nInMemory;
    std::function<std::string()> m_fnNewName;
    int m_nFd = -1;
    TFetched* m_pCurrent = nullptr;
    std::map<std::string, TFetched> m_mapFetched; // "FILE#REV" -> its content
    std::vector<TP4Record> m_atMessages;
    std::string m_strError;
    uint64_t m_nBytes = 0;
};

} // namespace

void CPrefetcher::RunPrint(TTask& tTask)
{
    std::vector<std::string> astrArgs = {m_strP4, "-G", "print"};
    std::map<std::string, uint64_t> mapWanted;
    for (const TWantedRevision& t : tTask.atRevisions)
    {
        astrArgs.push_back(RevisionKey(t.strDepotFile, t.nRev));
        mapWanted[astrArgs.back()] = t.nSize;
    }
    CSpoolSink cSink([this](std::string& strError) { return OpenSpool(strError); }, mapWanted, m_tPolicy.nInMemory,
                     [this]() {
                         std::lock_guard<std::mutex> cLock(m_cMutex);
                         return "r" + std::to_string(++m_nSpoolNames);
                     });
    std::string strProblem;
    bool bLimit = false;
    for (unsigned nTry = 0;; ++nTry)
    {
        cSink.Discard();
        CPrintReader cReader(cSink);
        const TStreamedRun tRun = RunStreamed(
            astrArgs, tTask.astrEnvironment, [&](const char* p, size_t n) { return cReader.Feed(p, n); },
            [this]() { return Stopping(); });
        cSink.CloseCurrent();
        bool bTransient = false;
        if (!cSink.m_strError.empty())
            strProblem = cSink.m_strError;
        else if (tRun.bStopped && Stopping())
            strProblem = "stopped";
        else
            strProblem = ProblemOf(tRun.nStatus, tRun.strError, cSink.m_atMessages,
                                   !cReader.AtRecordEnd() || tRun.bStopped, bTransient, bLimit);
        if (!bTransient || nTry >= m_tPolicy.nRetries)
        {
            if (bTransient || !cSink.m_strError.empty() || strProblem == "stopped")
                cSink.Discard(); // nothing of a broken answer is used
            break;
        }
        if (!WaitBeforeTry(nTry))
        {
            cSink.Discard();
            break;
        }
    }
    std::lock_guard<std::mutex> cLock(m_cMutex);
    ++m_tStats.nPrintCommands;
    if (bLimit && tTask.atRevisions.size() > 1)
    {
        // Too large for the server's limits: asked again in two halves.
        cSink.Discard();
        ++m_tStats.nSplit;
        SplitTask(tTask);
        return;
    }
    m_tStats.nBytes += cSink.m_nBytes;
    for (const TWantedRevision& t : tTask.atRevisions)
    {
        const std::string strKey = RevisionKey(t.strDepotFile, t.nRev);
        auto it = m_mapRevisions.find(strKey);
        auto itFetched = cSink.m_mapFetched.find(strKey);
        if (it == m_mapRevisions.end())
        {
            // Let go of meanwhile.
            if (itFetched != cSink.m_mapFetched.end() && itFetched->second.bSpooled)
                ::unlinkat(m_nSpoolFd, itFetched->second.strName.c_str(), 0);
            continue;
        }
        if (it->second.bDropped)
        {
            if (itFetched != cSink.m_mapFetched.end() && itFetched->second.bSpooled)
                ::unlinkat(m_nSpoolFd, itFetched->second.strName.c_str(), 0);
            m_nBytesOut -= it->second.nCost;
            --m_nRevisionsOut;
            m_mapRevisions.erase(it);
            continue;
        }
        if (itFetched != cSink.m_mapFetched.end())
        {
            it->second.eState = eSlotReady;
            it->second.tFetched = std::move(itFetched->second);
            ++m_tStats.nRevisions;
        }
        else
        {
            it->second.eState = eSlotFailed;
            it->second.strProblem = strProblem == "stopped"
                                        ? strProblem
                                        : "'" + CommandText(astrArgs) + "' failed: " +
                                              (strProblem.empty() ? "it sent no content for " + strKey : strProblem);
            ++m_tStats.nFailed;
        }
    }
}

void CPrefetcher::SplitTask(TTask& tTask)
{
    std::unique_ptr<TTask> pFirst(new TTask), pSecond(new TTask);
    pFirst->astrEnvironment = pSecond->astrEnvironment = tTask.astrEnvironment;
    const size_t nChanges = tTask.anChanges.size() / 2;
    pFirst->anChanges.assign(tTask.anChanges.begin(), tTask.anChanges.begin() + std::ptrdiff_t(nChanges));
    pSecond->anChanges.assign(tTask.anChanges.begin() + std::ptrdiff_t(nChanges), tTask.anChanges.end());
    const size_t nRevisions = tTask.atRevisions.size() / 2;
    pFirst->atRevisions.assign(tTask.atRevisions.begin(), tTask.atRevisions.begin() + std::ptrdiff_t(nRevisions));
    pSecond->atRevisions.assign(tTask.atRevisions.begin() + std::ptrdiff_t(nRevisions), tTask.atRevisions.end());
    // First in the queue: the module waits for them.
    m_aTasks.push_front(std::move(pSecond));
    m_aTasks.push_front(std::move(pFirst));
    m_cWork.notify_all();
}

CPrefetcher::TStats CPrefetcher::Stats() const
{
    std::lock_guard<std::mutex> cLock(m_cMutex);
    return m_tStats;
}

} // namespace IMP
} // namespace ORVANE
