// The engine-facing half of every migration provider: settings, the import
// log, the stream list, the staging store and the iteration the engine
// drives. A concrete provider supplies the four source-specific operations.
#pragma once

#include <ctime>

#include <wx/txtstrm.h>
#include <wx/wfstream.h>

#include "host/Array.h"
#include "host/Map.h"
#include "host/VDB.h"
#include "mce/Provider.h"
#include "mce/StagingTables.h"

namespace ORVANE {
namespace MCE {

class CProviderBase : public CProvider
{
public:
    CProviderBase(const VCM::CString& strID, const VCM::CString& strName, const VCM::CString& strDescription,
                  bool bFlag1, bool bFlag2);
    ~CProviderBase() override;

    // The most recently constructed provider. It is not reset when that
    // provider is destroyed: one provider at a time is the supported use.
    static CProviderBase* GetInstance() { return s_poInstance; }

    // Lifetime.
    void Destroy() override;

    // Settings.
    void SetProperty(const VCM::CString& strKey, const VCM::CString& strValue) override;
    int CheckEnvironment(VCM::CString& strError) override;
    VCM::CString GetStringProperty(const VCM::CString& strKey);
    bool GetBooleanProperty(const VCM::CString& strKey);

    // Import log.
    void LogToConnection() override;
    void OpenLog(bool bOpen) override;
    bool IsLogOpen() const override;
    VCM::CString GetLogPath() override;
    void WriteLog(const wchar_t* pszFormat, ...) override;
    void LogStreamsAndChanges() override;

    // Engine iteration.
    void ResetStreams() override;
    int EstablishStreams(unsigned int& nCount) override;
    int GetNextStream(POSITION& pos, TStreamInfo& tInfo, unsigned int nParentID) override;
    int OnBeginStream(unsigned int nStreamID, const wchar_t* pszRoot) override;
    int EstablishChangesets(unsigned int& nCount) override;
    int OnFirstChangeset(TChangeInfo& tInfo) override;
    int OnNextChangeset(TChangeInfo& tInfo) override;
    int OnProcessChange(TChangeInfo& tInfo) override;
    int OnFirstChangeItem(TChangeItemInfo& tInfo) override;
    int OnNextChangeItem(TChangeItemInfo& tInfo) override;

    // Source-specific operations.
    // Brings the files of the change into place below the stream's folder;
    // 0 on success.
    virtual int RetrieveChangeFiles(const TChangeRecord& tChange) = 0;
    // Brings one item's file to strTarget; 0 on success.
    virtual int RetrieveChangeItemFile(const TChangeItemRecord& tItem, const VCM::CString& strTarget) = 0;
    // Fills the stream list; false on failure.
    virtual bool SearchForStreams() = 0;
    // Records every stream's changes in the staging store; false on failure.
    virtual bool EnumerateChanges() = 0;

    // Staging store.
    bool PrepareForChanges(bool bReset);
    void CommitChanges();
    bool EnsureFolderExists(const VCM::CFilePath& cPath);

    // Change recording.
    unsigned int AddChange(unsigned int nProviderID, unsigned int nStreamID, const VCM::CString& strUser,
                           const VCM::CString& strComment, long tTime);
    bool AddChangeItem(unsigned int nChangeID, unsigned int nItem, TChangeItemType eType,
                       const VCM::CFilePath& cPath, unsigned int nRevision);
    void AddChangeItem(const TStreamInfo& tStream, const VCM::CString& strUser, TChangeItemType eType,
                       const VCM::CFilePath& cPath, long tTime, const VCM::CString& strComment, int nRevision);
    void AddChangeItem(const TStreamInfo& tStream, const VCM::CString& strUser, TChangeItemType eType,
                       const VCM::CFilePath& cPath, long tTime, const VCM::CString& strComment,
                       TCVSRevision tRevision, long tMaxTime);
    bool AddChangeItem(const TStreamInfo& tStream, const VCM::CString& strUser, TChangeItemType eType,
                       const VCM::CFilePath& cPath, long tTime, const VCM::CString& strComment, int nRevision,
                       TCVSRevision tRevision, bool bCheckComment, long tMaxTime);
    bool UpdateChangeItemCount(unsigned int nChangeID, unsigned int nNextItem);
    bool CheckForExistingItem(const TChangeRecord& tChange, const VCM::CFilePath& cPath, int& nRevision);
    unsigned int FindNearestChange(const TStreamInfo& tStream, long tTime);
    void AddToComment(VCM::CString& strComment, const VCM::CString& strAdd);

    // The source system's number of the change the iteration stands on
    // (after OnFirstChangeset or OnNextChangeset): read in place, so that an
    // engine needs no entry of the interface for it.
    unsigned int GetCurrentProviderChangeID() const { return m_cChangeRecord.nProviderID; }

    // The clock of the log's time prefix. Tests set it to see the prefix at
    // chosen instants; the product leaves it at the C library's time().
    static time_t (*s_pfnClock)(time_t*);

protected:
    VCM::CArray<TStreamInfo> m_atStreams;
    TStreamInfo m_cCurrentStream;
    VCM::CFilePath m_cStreamRoot;
    VCM::CMap<VCM::CString, VCM::CString> m_mapProperties;
    VCM::CString m_strDatabasePath;
    VDB::CDatabase* m_pDatabase;
    CChangeTable m_cChangeTable;
    CChangeItemTable m_cChangeItemTable;
    VDB::CTransaction* m_pTransaction;
    VDB::CIterator<TChangeRecord> m_cChangeIterator;
    VDB::CIterator<TChangeItemRecord> m_cChangeItemIterator;
    TChangeRecord m_cChangeRecord;
    TChangeItemRecord m_cChangeItemRecord;
    unsigned int m_nChangeCount;
    bool m_bStreamsEstablished;
    bool m_bChangesEstablished;
    wxFFileOutputStream* m_pLogFile;
    wxTextOutputStream* m_pLogText;
    VCM::CString m_strLogPath;
    VCM::CString m_strLogLine;
    bool m_bLogOpen;
    bool m_bLogToConnection;

    static CProviderBase* s_poInstance;

private:
    void FillChangeInfo(TChangeInfo& tInfo) const;
    void FillChangeItemInfo(TChangeItemInfo& tInfo) const;
    // Makes the current item's folders and fetches its file.
    // 0 done, 1 failure; bReport writes the failure to the log.
    int RetrieveCurrentItem(TChangeItemInfo& tInfo, bool bReport);
};

} // namespace MCE
} // namespace ORVANE
