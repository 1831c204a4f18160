// A provider for the engine's unit tests: streams, changes and items given
// in memory, every call recorded as a line of text, and any call made to
// answer with another result.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Text.h"
#include "mce/Provider.h"

namespace enginetest {

using ORVANE::POSITION;
using ORVANE::MCE::CProvider;
using ORVANE::VCM::CString;
typedef CProvider::TStreamInfo TStreamInfo;
typedef CProvider::TChangeInfo TChangeInfo;
typedef CProvider::TChangeItemInfo TChangeItemInfo;

struct TFakeItem
{
    ORVANE::MCE::TChangeItemType eType;
    std::string strPath;
    unsigned nRevision;
};

struct TFakeChange
{
    unsigned nID = 0;
    std::string strUser;
    long tTime = 0;
    std::string strComment;
    std::vector<TFakeItem> atItems;
    // What the sync does to the stream's folder.
    std::function<void(const std::string& strRoot)> fnSync;
    unsigned nNumber = 0; // in the source system
};

TStreamInfo FakeStream(unsigned nID, unsigned nParent, const std::string& strName, const std::string& strDst,
                       const std::string& strSrc = std::string());

class CFakeProvider : public CProvider
{
public:
    CFakeProvider() : CProvider(L"fake", L"Fake Source", L"Streams from a test", false, false) {}

    // Every call, in order: its name and its arguments ("GetNextStream 0",
    // "OnBeginStream 1 /ws/main", "OnProcessChange 7").
    std::vector<std::string> m_astrCalls;
    // A call (as recorded) that answers with this result instead.
    std::map<std::string, int> m_mapResults;

    std::vector<TStreamInfo> m_atStreams;
    std::map<unsigned, std::vector<TFakeChange>> m_mapChanges; // by stream id
    std::vector<ORVANE::MCE::TPropertyInfo> m_atProperties{{nullptr, nullptr, nullptr, 0}};
    std::vector<std::pair<std::string, std::string>> m_atSet; // SetProperty calls
    std::string m_strRejected;                                // a value ValidateStringProperty rejects
    std::string m_strEnvironmentWarning;                      // CheckEnvironment fails with it when set
    std::string m_strLogPath;
    bool m_bClientsResult = true;

    // The source system's number of the current change (0 past the last).
    unsigned CurrentNumber() const;

    void Destroy() override { Record("Destroy"); }
    void ResetStreams() override { Record("ResetStreams"); }
    int GetNextStream(POSITION& pos, TStreamInfo& tInfo, unsigned int nParentID) override;
    int CheckEnvironment(CString& strError) override;
    int EstablishStreams(unsigned int& nCount) override;
    int ResolveStreamLinkage() override { return Result("ResolveStreamLinkage", 0); }
    int OnBeginStream(unsigned int nStreamID, const wchar_t* pszRoot) override;
    int OnFirstChangeset(TChangeInfo& tInfo) override;
    int OnNextChangeset(TChangeInfo& tInfo) override;
    int OnProcessChange(TChangeInfo& tInfo) override;
    int OnFirstChangeItem(TChangeItemInfo& tInfo) override;
    int OnNextChangeItem(TChangeItemInfo& tInfo) override;
    int EstablishChangesets(unsigned int& nCount) override;
    void SetProperty(const CString& strKey, const CString& strValue) override;
    const ORVANE::MCE::TPropertyInfo* GetPropertyInfo() override { return m_atProperties.data(); }
    bool ValidateStringProperty(const wchar_t* pszKey, CString& strValue, CString& strError) override;
    bool InitialiseClients(const CString& strRootFolder) override;
    bool RemoveClients() override;
    void LogToConnection() override { Record("LogToConnection"); }
    void OpenLog(bool bOpen) override { Record(std::string("OpenLog ") + (bOpen ? "1" : "0")); }
    bool IsLogOpen() const override { return false; }
    CString GetLogPath() override { return ORVANE::IMP::Wide(m_strLogPath); }
    void WriteLog(const wchar_t*, ...) override {}
    void LogStreamsAndChanges() override {}

private:
    void Record(const std::string& strCall) { m_astrCalls.push_back(strCall); }
    // Records the call and gives its result: the one chosen for it, else
    // the normal one.
    int Result(const std::string& strCall, int nNormal);
    int FillChange(size_t nIndex, TChangeInfo& tInfo);
    int FillItem(size_t nIndex, TChangeItemInfo& tInfo);

    unsigned m_nStream = 0;
    std::string m_strRoot;
    size_t m_nChange = 0;
    size_t m_nItem = 0;
};

} // namespace enginetest
