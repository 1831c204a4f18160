// The Perforce migration provider.
#pragma once

#include <cstdint>

#include "host/Array.h"
#include "host/FilePath.h"
#include "host/String.h"
#include "mce/ProviderBase.h"
#include "mp4/MP4ChangeCmds.h"
#include "mp4/MP4ClientCmds.h"

namespace ORVANE {
namespace MP4 {

// The one temporary client of a run. A client of this name left behind by an
// interrupted run is deleted and replaced.
extern const wchar_t* const s_pszClientName;

class CProvider : public MCE::CProviderBase
{
public:
    CProvider();
    ~CProvider() override;

    // Settings and environment.
    int CheckEnvironment(VCM::CString& strMessage) override;
    int ResolveStreamLinkage() override;
    const MCE::TPropertyInfo* GetPropertyInfo() override;

    // The temporary client and file retrieval.
    bool InitialiseClients(const VCM::CString& strRootFolder) override;
    bool RemoveClients() override;
    int RetrieveChangeFiles(const MCE::TChangeRecord& tChange) override;
    int RetrieveChangeItemFile(const MCE::TChangeItemRecord& tItem, const VCM::CString& strLocalPath) override;
    VCM::CFilePath GetClientSourcePath(const VCM::CFilePath& cStreamPath);
    VCM::CFilePath GetClientDestPath(const VCM::CString& strClient, const VCM::CString& strStream);

    // Stream discovery: one stream per branch spec.
    bool SearchForStreams() override;
    unsigned int ProposeStream(const VCM::CString& strName, VCM::CFilePath& cSrcPath, VCM::CFilePath& cDstPath);
    bool ProposeStreamSrc(VCM::CFilePath& cSrcPath, unsigned int& nParentID);
    bool ProposeStreamDst(const VCM::CString& strName, unsigned int nParentID, VCM::CFilePath& cSrcPath,
                          VCM::CFilePath& cDstPath, unsigned int& nExistingID);

    // Change enumeration into the staging store.
    bool EnumerateChanges() override;
    bool EnumerateStreamChanges(TStreamInfo& tStream);
    static MCE::TChangeItemType GetChangeItemTypeFromAction(TChangeItemAction eAction);
    static VCM::CFilePath GetChangeItemLocalPath(const VCM::CFilePath& cItemPath, const VCM::CFilePath& cStreamPath);

    static const MCE::TPropertyInfo s_atPropertyInfo[];

protected:
    uint32_t m_nNextStreamID;
    VCM::CString m_strSavedClient;
    VCM::CString m_strSavedHost;
    VCM::CString m_strHostName;
    VCM::CArray<VCM::CString> m_astrIgnoredPatterns;
    CSyncCmd m_cSyncCmd;
    bool m_bCaseInsensitive;
};

} // namespace MP4
} // namespace ORVANE
