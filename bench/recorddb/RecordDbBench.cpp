// The record database under the load of a large import: 100,000 changes and
// 1,000,000 change items added in one transaction, committed, then every
// index of both tables walked, and both tables walked as the import walks
// them, with and without a transaction. Prints records per second for each
// phase, the sizes of the two files and the process's peak memory.
//
//   bench-recorddb [BASE]     (default /tmp/orvane-bench-<pid>; --help: usage)
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "host/VDB.h"
#include "host/VDBStore.h"
#include "mce/MCE.h"

using namespace ORVANE;
using namespace ORVANE::MCE;
using namespace ORVANE::VDB;
using Clock = std::chrono::steady_clock;

namespace {

const unsigned s_nChanges = 100000;
const unsigned s_nItemsPerChange = 10;
const unsigned s_nStreams = 40;

double Seconds(Clock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

void Report(const char* pszPhase, unsigned long nRecords, double dSeconds)
{
    std::printf("%-34s %9lu records %8.3f s %12.0f records/s\n", pszPhase, nRecords, dSeconds,
                dSeconds > 0 ? static_cast<double>(nRecords) / dSeconds : 0.0);
}

long long FileSize(const std::string& strPath)
{
    struct stat tStat;
    return ::stat(strPath.c_str(), &tStat) == 0 ? static_cast<long long>(tStat.st_size) : -1;
}

std::string PeakMemory()
{
    std::ifstream cStatus("/proc/self/status");
    std::string strLine;
    while (std::getline(cStatus, strLine))
        if (strLine.compare(0, 6, "VmHWM:") == 0)
        {
            const size_t nStart = strLine.find_first_not_of(" \t", 6);
            return nStart == std::string::npos ? strLine : strLine.substr(nStart);
        }
    return "unknown";
}

template <typename TRecord, typename TCheck>
bool Walk(const char* pszPhase, CIterator<TRecord> cIt, unsigned long nExpected, TCheck fnCheck)
{
    TRecord t;
    unsigned long n = 0;
    bool bOrdered = true;
    const Clock::time_point tStart = Clock::now();
    TRecord tPrevious;
    for (bool b = cIt.GetFirst(&t, false); b; b = cIt.GetNext(&t, false))
    {
        if (n > 0 && !fnCheck(tPrevious, t))
            bOrdered = false;
        tPrevious = t;
        ++n;
    }
    Report(pszPhase, n, Seconds(Clock::now() - tStart));
    if (n != nExpected || !bOrdered)
    {
        std::printf("  wrong: %lu records (expected %lu), %s\n", n, nExpected, bOrdered ? "in order" : "out of order");
        return false;
    }
    return true;
}

// The import's pattern: per stream its changes by time, per change its
// items. Returns the records read.
unsigned long WalkAsTheImport(CChangeTable& cChanges, CChangeItemTable& cItems, CTransaction* pTx)
{
    CIterator<TChangeRecord> cChangeIt = cChanges.GetStreamTimeIterator(pTx);
    CIterator<TChangeItemRecord> cItemIt = cItems.GetIterator(pTx);
    TChangeRecord tChange;
    TChangeItemRecord tItem;
    unsigned long nRecords = 0;
    for (unsigned nStream = 1; nStream <= s_nStreams; ++nStream)
    {
        tChange.nStreamID = nStream;
        tChange.tTime = 0;
        for (bool b = cChangeIt.GetGTE(&tChange, false); b && tChange.nStreamID == nStream;
             b = cChangeIt.GetNext(&tChange, false))
        {
            ++nRecords;
            tItem.nID = tChange.nID;
            tItem.nItem = 0;
            for (bool c = cItemIt.GetGTE(&tItem, false); c && tItem.nID == tChange.nID;
                 c = cItemIt.GetNext(&tItem, false))
                ++nRecords;
        }
    }
    return nRecords;
}

} // namespace

const char* const s_pszUsage = "Usage: bench-recorddb [BASE]\n"
                               "  Makes the database BASE.tdf / BASE.tlf (by default /tmp/orvane-bench-PID),\n"
                               "  measures it, and removes it.\n";

int main(int argc, char** argv)
{
    if (argc > 1 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0))
    {
        std::fputs(s_pszUsage, stdout);
        return 0;
    }
    // A base path that looks like an option is one mistyped, not a name.
    if (argc > 2 || (argc == 2 && (argv[1][0] == '-' || argv[1][0] == '\0')))
    {
        std::fprintf(stderr, "bench-recorddb: unexpected argument '%s'\n%s", argv[argc - 1], s_pszUsage);
        return 2;
    }
    const std::string strBase = argc > 1 ? argv[1] : "/tmp/orvane-bench-" + std::to_string(::getpid());
    VCM::CString strConnection;
    strConnection.Format(L"type=native;path=%s;create=1;nobinaries=1", wxString(strBase).wc_str());
    CDatabase* pDb = CDatabaseFactory::Create(strConnection);
    if (pDb == nullptr)
    {
        std::fprintf(stderr, "cannot make the database at %s\n", strBase.c_str());
        return 1;
    }
    std::printf("database %s.tdf / .tlf: %u changes, %u items each, %u streams\n", strBase.c_str(), s_nChanges,
                s_nItemsPerChange, s_nStreams);
    bool bOk = true;
    CChangeTable cChanges(nullptr);
    CChangeItemTable cItems(nullptr);

    // Phase 1: add everything in one transaction, as change enumeration does.
    auto* pTx = new CTransaction(pDb, 60000);
    cChanges.Open(pDb, nullptr, pTx, false);
    cItems.Open(pDb, nullptr, pTx, false);
    {
        CIterator<TChangeRecord> cChangeIt = cChanges.GetStreamTimeIterator(pTx);
        CIterator<TChangeItemRecord> cItemIt = cItems.GetIterator(pTx);
        TChangeRecord tChange;
        TChangeItemRecord tItem;
        Clock::duration dChanges{}, dItems{};
        const Clock::time_point tStart = Clock::now();
        // The add phases time the Add calls alone, not the making of the
        // records; "in all" is everything.
        for (unsigned c = 0; c < s_nChanges && bOk; ++c)
        {
            tChange.nID = 0;
            tChange.nProviderID = 100000 + c;
            tChange.nStreamID = 1 + c % s_nStreams;
            tChange.strUser.Printf(L"user%u", c % 97);
            tChange.tTime = static_cast<long>(1600000000u + (c / 3) * 60); // some equal (stream, time) keys
            tChange.strComment.Printf(L"Change %u: fix the thing in module %u.", c, c % 131);
            tChange.nNextItem = s_nItemsPerChange + 1;
            tChange.cProps.RemoveAll();
            tChange.SetBaseTime(static_cast<unsigned>(tChange.tTime));
            tChange.SetMaxTime(static_cast<unsigned>(-1));
            const Clock::time_point t0 = Clock::now();
            bOk = cChangeIt.Add(&tChange, false) && tChange.nID != 0;
            dChanges += Clock::now() - t0;
            for (unsigned i = 1; i <= s_nItemsPerChange && bOk; ++i)
            {
                tItem.nID = tChange.nID;
                tItem.nItem = i;
                tItem.eType = static_cast<TChangeItemType>(i % 3);
                tItem.cFilePath.RemoveAll();
                tItem.cFilePath.Add(L"src");
                tItem.cFilePath.Add(wxString::Format(L"module%u", c % 131));
                tItem.cFilePath.Add(wxString::Format(L"part%u", i));
                tItem.cFilePath.Add(wxString::Format(L"file%u_%u.cpp", c, i));
                tItem.nRevision = c % 50 + i;
                tItem.cProps.RemoveAll();
                TCVSRevision tRevision;
                tRevision.Add(1);
                tRevision.Add(tItem.nRevision);
                tItem.SetCVSRevision(tRevision);
                tItem.cTimestamp.Set(tChange.tTime);
                const Clock::time_point tAdd = Clock::now();
                bOk = cItemIt.Add(&tItem, false);
                dItems += Clock::now() - tAdd;
            }
        }
        const double dTotal = Seconds(Clock::now() - tStart);
        Report("add changes (stream/time cursor)", s_nChanges, Seconds(dChanges));
        Report("add change items", static_cast<unsigned long>(s_nChanges) * s_nItemsPerChange, Seconds(dItems));
        Report("add both, in all", static_cast<unsigned long>(s_nChanges) * (s_nItemsPerChange + 1), dTotal);
    }
    {
        const Clock::time_point tStart = Clock::now();
        bOk = pTx->Commit(false, nullptr, nullptr) && bOk;
        Report("commit", static_cast<unsigned long>(s_nChanges) * (s_nItemsPerChange + 1),
               Seconds(Clock::now() - tStart));
        delete pTx;
    }
    std::printf("after commit: %s.tdf %lld bytes, %s.tlf %lld bytes\n", strBase.c_str(), FileSize(strBase + ".tdf"),
                strBase.c_str(), FileSize(strBase + ".tlf"));

    // Phase 2: walk both tables by every index, in a new transaction.
    pTx = new CTransaction(pDb, 60000);
    bOk = Walk("walk change by ID", cChanges.GetIterator(pTx), s_nChanges,
               [](const TChangeRecord& a, const TChangeRecord& b) { return a.nID < b.nID; }) &&
          bOk;
    bOk = Walk("walk change by stream/time", cChanges.GetStreamTimeIterator(pTx), s_nChanges,
               [](const TChangeRecord& a, const TChangeRecord& b) {
                   return a.nStreamID < b.nStreamID ||
                          (a.nStreamID == b.nStreamID &&
                           (static_cast<uint32_t>(a.tTime) < static_cast<uint32_t>(b.tTime) ||
                            (a.tTime == b.tTime && a.nID < b.nID)));
               }) &&
          bOk;
    bOk = Walk("walk citems by change/item", cItems.GetIterator(pTx),
               static_cast<unsigned long>(s_nChanges) * s_nItemsPerChange,
               [](const TChangeItemRecord& a, const TChangeItemRecord& b) {
                   return a.nID < b.nID || (a.nID == b.nID && a.nItem < b.nItem);
               }) &&
          bOk;
    // The import's pattern, in a transaction and, as the import runs it
    // once the changes are staged, without one.
    const auto WalkTimed = [&](const char* pszPhase, CTransaction* pWalkTx) {
        const Clock::time_point tStart = Clock::now();
        const unsigned long nRecords = WalkAsTheImport(cChanges, cItems, pWalkTx);
        Report(pszPhase, nRecords, Seconds(Clock::now() - tStart));
        return nRecords == static_cast<unsigned long>(s_nChanges) * (s_nItemsPerChange + 1);
    };
    bOk = WalkTimed("walk streams > changes > items", pTx) && bOk;
    delete pTx;
    bOk = WalkTimed("... the same, no transaction", nullptr) && bOk;

    cChanges.Close();
    cItems.Close();
    pDb->Release();
    std::printf("files: %s.tdf %lld bytes, %s.tlf %lld bytes\n", strBase.c_str(), FileSize(strBase + ".tdf"),
                strBase.c_str(), FileSize(strBase + ".tlf"));
    std::printf("files refused to SQLite: %lu\n", Detail::GetRefusedFileCount());
    std::printf("peak memory (VmHWM): %s\n", PeakMemory().c_str());
    ::unlink((strBase + ".tdf").c_str());
    ::unlink((strBase + ".tlf").c_str());
    std::printf("%s\n", bOk ? "ok" : "FAILED");
    return bOk ? 0 : 1;
}
