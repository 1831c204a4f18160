// The engine-facing interface of a migration provider.
//
// The order of the virtual operations and of the data members of CProvider
// is a binary contract with engines compiled against their own copy of this
// declaration: never reorder, insert or remove anything here.
#pragma once

#include "host/Connection.h"
#include "host/Exceptions.h"
#include "host/FilePath.h"
#include "host/Properties.h"
#include "host/String.h"
#include "mce/StagingRecords.h"

namespace ORVANE {
namespace MCE {

// One row of a provider's settings table. A table ends with a row whose four
// fields are all zero.
struct TPropertyInfo
{
    const wchar_t* pszDisplayName; // label shown to the user
    const wchar_t* pszKey;         // key passed to SetProperty
    const wchar_t* pszDefault;     // default value as text ("0"/"1" for booleans)
    unsigned int nType;            // ePropertyText, ePropertyBoolean or ePropertyFile
};

enum TPropertyType : unsigned int
{
    ePropertyText = 0,    // free text: a path in the source system, a list of patterns
    ePropertyBoolean = 1, // "0" or "1"
    ePropertyFile = 3     // a program to run, as a path or a name found through PATH
};

class CProvider
{
public:
    // One stream (line of development) proposed for import.
    struct TStreamInfo
    {
        unsigned int nID = 0;            // looked up by this id
        unsigned int nParentID = 0;      // the stream it branched from; 0 for a root stream
        VCM::CFilePath cDstPath;         // where it goes in the host
        VCM::CFilePath cSrcPath;         // where it comes from in the source system
        unsigned int nBaseChangeID = 0;  // the parent's change the stream starts from
        VCM::CProperties cProperties;    // further attributes
        VCM::CString strName;            // the stream's name
    };

    // One change as handed to the engine.
    struct TChangeInfo
    {
        unsigned int nID = 0;        // staging id of the change
        VCM::CString strUser;        // who made it
        long tTime = 0;              // seconds since 1970 UTC (signed 32-bit value)
        VCM::CString strComment;     // its description
        unsigned int nItemCount = 0; // the next free item number: items held plus one
    };

    // One file-level item of a change.
    struct TChangeItemInfo
    {
        unsigned int nChangeID = 0;            // the change it belongs to
        TChangeItemType eType = eChangeItemAdd; // what happened to the file
        VCM::CFilePath cFilePath;              // the file's path below the stream's folder
        unsigned int nRevision = 0;            // the source system's file revision
    };

    CProvider(const VCM::CString& strID, const VCM::CString& strName, const VCM::CString& strDescription,
              bool bFlag1, bool bFlag2);
    CProvider(const CProvider&) = delete;
    CProvider& operator=(const CProvider&) = delete;

    CConvertEngine* GetEngine() const { return m_pEngine; }
    VCM::CString GetProviderName() const { return m_strName; }

    // The virtual interface, in slot order.
    virtual void Destroy() = 0;
    virtual void ResetStreams() = 0;
    virtual int GetNextStream(POSITION& pos, TStreamInfo& tInfo, unsigned int nParentID) = 0;
    virtual int CheckEnvironment(VCM::CString& strError) = 0;
    virtual int EstablishStreams(unsigned int& nCount) = 0;
    virtual int ResolveStreamLinkage() = 0;
    virtual int OnBeginStream(unsigned int nStreamID, const wchar_t* pszRoot) = 0;
    virtual int OnFirstChangeset(TChangeInfo& tInfo) = 0;
    virtual int OnNextChangeset(TChangeInfo& tInfo) = 0;
    virtual int OnProcessChange(TChangeInfo& tInfo) = 0;
    virtual int OnFirstChangeItem(TChangeItemInfo& tInfo) = 0;
    virtual int OnNextChangeItem(TChangeItemInfo& tInfo) = 0;
    virtual int EstablishChangesets(unsigned int& nCount) = 0;
    virtual void SetProperty(const VCM::CString& strKey, const VCM::CString& strValue) = 0;
    virtual const TPropertyInfo* GetPropertyInfo() = 0;
    // Accepts every value unchanged.
    virtual bool ValidateStringProperty(const wchar_t* pszKey, VCM::CString& strValue, VCM::CString& strError);
    virtual bool InitialiseClients(const VCM::CString& strRootFolder) = 0;
    virtual bool RemoveClients() = 0;
    // Fetches nothing: providers that fetch per change keep this.
    virtual int RetrieveFiles(unsigned int nStreamID);
    virtual void LogToConnection() = 0;
    virtual void OpenLog(bool bOpen) = 0;
    virtual bool IsLogOpen() const = 0;
    virtual VCM::CString GetLogPath() = 0;
    // Text arguments must be passed as const wchar_t*.
    virtual void WriteLog(const wchar_t* pszFormat, ...) = 0;
    virtual void LogStreamsAndChanges() = 0;
    virtual ~CProvider();

    // Set by the engine that drives this provider; the provider never
    // assigns it.
    CConvertEngine* m_pEngine;

protected:
    VCM::CString m_strID;          // lower-case key, e.g. "perforce"
    VCM::CString m_strName;        // display name
    VCM::CString m_strDescription; // description given to what the import creates
    bool m_bFlag1;
    bool m_bFlag2;
};

} // namespace MCE
} // namespace ORVANE
