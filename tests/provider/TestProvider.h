// A provider for the framework's tests: the source-specific operations work
// in memory and record how they were called; the protected state of the
// framework is reachable for inspection.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Files.h"
#include "Scratch.h"
#include "mce/MCE.h"
#include "mce/ProviderBase.h"

namespace test {

using ORVANE::MCE::CProvider;
using ORVANE::MCE::CProviderBase;
using ORVANE::MCE::TChangeItemRecord;
using ORVANE::MCE::TChangeRecord;
using ORVANE::VCM::CFilePath;
using ORVANE::VCM::CString;

inline CFilePath Path(const wchar_t* psz)
{
    CFilePath c;
    c.Parse(psz, -1, false);
    return c;
}

inline std::string Utf8(const wxString& str)
{
    return std::string(str.utf8_str().data());
}

inline std::string ReadFile(const wxString& strPath)
{
    return ORVANE::TEST::ReadWholeFile(Utf8(strPath));
}

inline bool FileExists(const std::string& strPath)
{
    return access(strPath.c_str(), F_OK) == 0;
}

// The staging files of this process.
inline std::string StagingBase()
{
    return "/tmp/orvane-em-" + std::to_string(getpid());
}

// A scratch folder of its own, removed with everything in it.
struct TScratch
{
    ORVANE::TEST::CScratchFolder cFolder{"orvane-provider-test"};
    const std::string strPath = cFolder.Path();
};

class CTestProvider : public CProviderBase
{
public:
    CTestProvider() : CProviderBase(L"test", L"Test Source", L"Streams converted from a test", false, false) {}

    // What SearchForStreams adds, and what it returns.
    std::vector<TStreamInfo> m_atToFind;
    bool m_bSearchResult = true;
    int m_nSearchCalls = 0;

    // What EnumerateChanges does (records through the framework), and its
    // result.
    std::function<void(CTestProvider&)> m_fnEnumerate;
    bool m_bEnumerateResult = true;
    int m_nEnumerateCalls = 0;

    // Retrieval: calls recorded, results chosen per call.
    std::vector<unsigned int> m_anRetrievedChanges;
    std::vector<std::string> m_astrRetrievedItems; // "<change>/<item> <target>"
    int m_nChangeFilesResult = 0;
    std::vector<int> m_anItemResults; // by call, 0 when not given

    int RetrieveChangeFiles(const TChangeRecord& tChange) override
    {
        m_anRetrievedChanges.push_back(tChange.nID);
        return m_nChangeFilesResult;
    }
    int RetrieveChangeItemFile(const TChangeItemRecord& tItem, const CString& strTarget) override
    {
        const size_t nCall = m_astrRetrievedItems.size();
        m_astrRetrievedItems.push_back(std::to_string(tItem.nID) + "/" + std::to_string(tItem.nItem) + " " +
                                       Utf8(strTarget));
        return nCall < m_anItemResults.size() ? m_anItemResults[nCall] : 0;
    }
    bool SearchForStreams() override
    {
        ++m_nSearchCalls;
        for (const TStreamInfo& t : m_atToFind)
            m_atStreams.Add(t);
        return m_bSearchResult;
    }
    bool EnumerateChanges() override
    {
        ++m_nEnumerateCalls;
        if (m_fnEnumerate)
            m_fnEnumerate(*this);
        return m_bEnumerateResult;
    }
    int ResolveStreamLinkage() override { return 0; }
    const ORVANE::MCE::TPropertyInfo* GetPropertyInfo() override { return s_atProperties; }
    bool InitialiseClients(const CString&) override { return true; }
    bool RemoveClients() override { return true; }

    // Inspection.
    ORVANE::VDB::CDatabase* Database() const { return m_pDatabase; }
    ORVANE::VDB::CTransaction* Transaction() const { return m_pTransaction; }
    const CString& DatabasePath() const { return m_strDatabasePath; }
    bool ChangeTableOpen() const { return m_cChangeTable.IsOpen(); }
    bool ChangeItemTableOpen() const { return m_cChangeItemTable.IsOpen(); }
    bool ChangeIteratorOpen() const { return m_cChangeIterator.IsOpen(); }
    bool ChangeItemIteratorOpen() const { return m_cChangeItemIterator.IsOpen(); }
    unsigned int ChangeCount() const { return m_nChangeCount; }
    const TChangeRecord& ChangeBuffer() const { return m_cChangeRecord; }
    const TChangeItemRecord& ChangeItemBuffer() const { return m_cChangeItemRecord; }
    const TStreamInfo& CurrentStream() const { return m_cCurrentStream; }
    const CFilePath& StreamRoot() const { return m_cStreamRoot; }
    int StreamCount() const { return m_atStreams.GetCount(); }
    ORVANE::VCM::CArray<TStreamInfo>& Streams() { return m_atStreams; }
    void SetStreamRoot(const wchar_t* psz) { m_cStreamRoot.Parse(psz, -1, false); }

    // Reads a change by ID, and an item by change and number, through the
    // framework's own tables in a transaction of their own.
    bool ReadChange(unsigned int nID, TChangeRecord& tOut)
    {
        ORVANE::VDB::CIterator<TChangeRecord> it = m_cChangeTable.GetIterator(m_pTransaction);
        tOut.nID = nID;
        return it.GetEqual(&tOut, false);
    }
    bool ReadItem(unsigned int nChange, unsigned int nItem, TChangeItemRecord& tOut)
    {
        ORVANE::VDB::CIterator<TChangeItemRecord> it = m_cChangeItemTable.GetIterator(m_pTransaction);
        tOut.nID = nChange;
        tOut.nItem = nItem;
        return it.GetEqual(&tOut, false);
    }

    static const ORVANE::MCE::TPropertyInfo s_atProperties[];
};

inline const ORVANE::MCE::TPropertyInfo CTestProvider::s_atProperties[] = {
    {L"Flag", L"Flag", L"1", 1},
    {L"Text", L"Text", L"default text", 0},
    {nullptr, nullptr, nullptr, 0},
};

// A connection that keeps every information message.
class CRecordingConnection : public ORVANE::VRM::IConnectionProxyBase
{
public:
    std::vector<std::string> m_astrMessages;

protected:
    void OnInfoMessage(const CString& strMessage) override { m_astrMessages.push_back(Utf8(strMessage)); }
};

// An engine whose connection records the messages.
struct TTestEngine
{
    CRecordingConnection cConnection;
    ORVANE::VRO::CReposView cView{&cConnection};
    ORVANE::MCE::CConvertEngine cEngine{&cView};
};

// A clock for the log's prefix.
struct TFixedClock
{
    static time_t s_tNow;
    static time_t Now(time_t* pt)
    {
        if (pt)
            *pt = s_tNow;
        return s_tNow;
    }
    TFixedClock(time_t tNow)
    {
        s_tNow = tNow;
        CProviderBase::s_pfnClock = &Now;
    }
    ~TFixedClock() { CProviderBase::s_pfnClock = &::time; }
};
inline time_t TFixedClock::s_tNow = 0;

inline CProvider::TStreamInfo Stream(unsigned int nID, unsigned int nParent, const wchar_t* pszName,
                                     const wchar_t* pszDst, const wchar_t* pszSrc = L"")
{
    CProvider::TStreamInfo t;
    t.nID = nID;
    t.nParentID = nParent;
    t.strName = pszName;
    t.cDstPath = Path(pszDst);
    if (*pszSrc)
        t.cSrcPath = Path(pszSrc);
    return t;
}

} // namespace test
