// The provider interface as an engine compiled on its own would declare it:
// written from the published slot table, independently of mce/. Calls made
// through it must reach the intended operations of a real provider.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/VCM.h"

namespace mirror {

using ORVANE::POSITION;
using ORVANE::VCM::CString;

struct TStreamInfo
{
    unsigned int nID;
    unsigned int nParentID;
    ORVANE::VCM::CFilePath cDstPath;
    ORVANE::VCM::CFilePath cSrcPath;
    unsigned int nBaseChangeID;
    ORVANE::VCM::CProperties cProperties;
    CString strName;
};

struct TChangeInfo
{
    unsigned int nID;
    CString strUser;
    long tTime;
    CString strComment;
    unsigned int nItemCount;
};

struct TChangeItemInfo
{
    unsigned int nChangeID;
    unsigned int eType;
    ORVANE::VCM::CFilePath cFilePath;
    unsigned int nRevision;
};

struct TPropertyInfo
{
    const wchar_t* pszDisplayName;
    const wchar_t* pszKey;
    const wchar_t* pszDefault;
    unsigned int nType;
};

struct TChangeRecordOpaque;
struct TChangeItemRecordOpaque;

class IProvider
{
public:
    virtual void Destroy() = 0;
    virtual void ResetStreams() = 0;
    virtual int GetNextStream(POSITION& pos, TStreamInfo& tInfo, unsigned int nParentID) = 0;
    virtual int CheckEnvironment(CString& strError) = 0;
    virtual int EstablishStreams(unsigned int& nCount) = 0;
    virtual int ResolveStreamLinkage() = 0;
    virtual int OnBeginStream(unsigned int nStreamID, const wchar_t* pszRoot) = 0;
    virtual int OnFirstChangeset(TChangeInfo&) = 0;
    virtual int OnNextChangeset(TChangeInfo&) = 0;
    virtual int OnProcessChange(TChangeInfo&) = 0;
    virtual int OnFirstChangeItem(TChangeItemInfo&) = 0;
    virtual int OnNextChangeItem(TChangeItemInfo&) = 0;
    virtual int EstablishChangesets(unsigned int& nCount) = 0;
    virtual void SetProperty(const CString& strKey, const CString& strValue) = 0;
    virtual const TPropertyInfo* GetPropertyInfo() = 0;
    virtual bool ValidateStringProperty(const wchar_t* pszKey, CString& strValue, CString& strError) = 0;
    virtual bool InitialiseClients(const CString&) = 0;
    virtual void RemoveClients() = 0;
    virtual int RetrieveFiles(unsigned int) = 0;
    virtual void LogToConnection() = 0;
    virtual void OpenLog(bool bOpen) = 0;
    virtual bool IsLogOpen() const = 0;
    virtual CString GetLogPath() = 0;
    virtual void WriteLog(const wchar_t* pszFormat, ...) = 0;
    virtual void LogStreamsAndChanges() = 0;
    virtual ~IProvider() = default;
    // Introduced by the providers' common base.
    virtual int RetrieveChangeFiles(const TChangeRecordOpaque&) = 0;
    virtual int RetrieveChangeItemFile(const TChangeItemRecordOpaque&, const CString& strTarget) = 0;
    virtual bool SearchForStreams() = 0;
    virtual bool EnumerateChanges() = 0;

    // Data members, in order.
    void* m_pEngine;
    CString m_strID;
    CString m_strName;
    CString m_strDescription;
    bool m_bFlag1;
    bool m_bFlag2;
};

} // namespace mirror

// The names of the operations and data members, for the layout report: each
// side reads where they are from its own declaration.
#define MIRROR_PROVIDER_OPERATIONS(X)                                                                                  \
    X(Destroy) X(ResetStreams) X(GetNextStream) X(CheckEnvironment) X(EstablishStreams) X(ResolveStreamLinkage)       \
        X(OnBeginStream) X(OnFirstChangeset) X(OnNextChangeset) X(OnProcessChange) X(OnFirstChangeItem)               \
            X(OnNextChangeItem) X(EstablishChangesets) X(SetProperty) X(GetPropertyInfo) X(ValidateStringProperty)    \
                X(InitialiseClients) X(RemoveClients) X(RetrieveFiles) X(LogToConnection) X(OpenLog) X(IsLogOpen)     \
                    X(GetLogPath) X(WriteLog) X(LogStreamsAndChanges)
#define MIRROR_BASE_OPERATIONS(X) X(RetrieveChangeFiles) X(RetrieveChangeItemFile) X(SearchForStreams) X(EnumerateChanges)
#define MIRROR_PROVIDER_MEMBERS(X) X(m_pEngine) X(m_strID) X(m_strName) X(m_strDescription) X(m_bFlag1) X(m_bFlag2)
#define MIRROR_STREAM_FIELDS(X) X(nID) X(nParentID) X(cDstPath) X(cSrcPath) X(nBaseChangeID) X(cProperties) X(strName)
#define MIRROR_CHANGE_FIELDS(X) X(nID) X(strUser) X(tTime) X(strComment) X(nItemCount)
#define MIRROR_ITEM_FIELDS(X) X(nChangeID) X(eType) X(cFilePath) X(nRevision)
#define MIRROR_PROPERTY_FIELDS(X) X(pszDisplayName) X(pszKey) X(pszDefault) X(nType)

namespace mirror {

// What the engine-side code may learn about the real object, answered by
// code that knows the real provider class.
class IRealProbe
{
public:
    virtual ~IRealProbe() = default;
    virtual std::string StringProperty(const wchar_t* pszKey) = 0;
    virtual const void* Engine() = 0;
    virtual const void* EngineToSet() = 0;
    virtual const void* PropertyTable() = 0;
    virtual bool LogOpen() = 0;
    virtual std::vector<std::string> ConnectionMessages() = 0;
    virtual int StreamCount() = 0;
    virtual int SearchCalls() = 0;
    virtual int EnumerateCalls() = 0;
    virtual int RemoveCalls() = 0;
    virtual std::string ClientsRoot() = 0;
    virtual unsigned int CurrentStreamID() = 0;
    virtual std::vector<unsigned int> RetrievedChanges() = 0;
    virtual std::vector<std::string> RetrievedItems() = 0;
    virtual void SetStreamsToFind() = 0;
    virtual void SetEnumeration() = 0;
    virtual const void* ChangeRecord(unsigned int nID) = 0;
    virtual const void* ChangeItemRecord(unsigned int nID, unsigned int nItem) = 0;
};

// Calls every slot of the object at pObject through IProvider and checks
// what each did (GoogleTest expectations). Compiled on its own, without the
// real provider's declaration.
void CallEverySlot(void* pObject, IRealProbe& cProbe);
// Where this declaration puts things, by name: "CProvider::m_strID" (byte
// offset), "sizeof TChangeInfo" (bytes), "slot Destroy" (slot number).
std::map<std::string, long> Layout();
void DestroyThroughMirror(void* pObject);
void DeleteThroughMirror(void* pObject);

} // namespace mirror
