// The temporary client through which file contents are synced, and the
// environment that points p4 at it.
#include <wx/utils.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "mp4/MP4Provider.h"

namespace ORVANE {
namespace MP4 {

const wchar_t* const s_pszClientName = L"Orvane_Temp_Client";

namespace {
const unsigned int nClientOptions = eClientClobber | eClientModTime; // 34
const int nNameBufferSize = 256;
} // namespace

bool CProvider::InitialiseClients(const VCM::CString& strRootFolder)
{
    // Never released, on purpose: hosts have always seen this object stay
    // alive after the call. The leak checker is told it is intended.
    CClientCmd* pClientCmd = new CClientCmd;
#if defined(__SANITIZE_ADDRESS__)
    __lsan_ignore_object(pClientCmd);
#endif
    pClientCmd->DeleteClient(s_pszClientName); // a leftover of an earlier run, or nothing

    TClient tClient;
    tClient.strName = s_pszClientName;
    wxChar szUser[nNameBufferSize];
    if (!wxGetUserId(szUser, nNameBufferSize))
        return false;
    tClient.strOwner = szUser;
    // The host is worked out only once the client exists, so the first
    // client of a provider may be used from any host.
    tClient.strHost = m_strHostName;
    tClient.strDescription = L"A temporary client for Orvane migration";
    if (!tClient.cRoot.Parse(strRootFolder, -1, false))
        return false;
    tClient.nOptions = nClientOptions;
    if (GetBooleanProperty(L"Compression"))
        tClient.nOptions |= eClientCompress;
    tClient.eLineEnd = static_cast<TClientLEOption>(0);
    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        tClient.aDepotPaths.Add(GetClientSourcePath(m_atStreams[i].cDstPath));
        tClient.aClientPaths.Add(GetClientDestPath(s_pszClientName, m_atStreams[i].strName));
    }

    m_bCaseInsensitive = GetBooleanProperty(L"CaseInsensitive");
    if (!pClientCmd->CreateClient(tClient))
        return false;

    wxString strValue;
    m_strSavedClient = wxGetEnv(L"P4CLIENT", &strValue) ? VCM::CString(strValue) : VCM::CString();
    if (wxGetEnv(L"P4HOST", &strValue))
    {
        m_strSavedHost = strValue;
        m_strHostName = strValue;
    }
    else
    {
        m_strSavedHost = VCM::CString();
        wxChar szHost[nNameBufferSize];
        if (!wxGetHostName(szHost, nNameBufferSize))
            return false;
        m_strHostName = szHost;
    }

    if (!wxSetEnv(L"P4CLIENT", s_pszClientName))
        return false;
    return wxSetEnv(L"P4HOST", m_strHostName);
}

bool CProvider::RemoveClients()
{
    CClientCmd cClientCmd;
    cClientCmd.DeleteClient(s_pszClientName);
    // A variable that was empty or unset before the run is removed.
    if (m_strSavedClient.empty())
        wxUnsetEnv(L"P4CLIENT");
    else
        wxSetEnv(L"P4CLIENT", m_strSavedClient);
    if (m_strSavedHost.empty())
        wxUnsetEnv(L"P4HOST");
    else
        wxSetEnv(L"P4HOST", m_strSavedHost);
    return true;
}

VCM::CFilePath CProvider::GetClientSourcePath(const VCM::CFilePath& cStreamPath)
{
    return cStreamPath;
}

VCM::CFilePath CProvider::GetClientDestPath(const VCM::CString& strClient, const VCM::CString& strStream)
{
    VCM::CFilePath cPath;
    cPath.Add(L"/");
    cPath.Add(strClient);
    cPath.Add(strStream);
    return cPath;
}

int CProvider::RetrieveChangeFiles(const MCE::TChangeRecord& tChange)
{
    // One sync brings the stream's folder to the change; a failed sync is
    // not reported here: the files the engine then looks for are missing.
    m_cSyncCmd.SyncToChange(m_cStreamRoot, tChange.nProviderID);
    return 0;
}

int CProvider::RetrieveChangeItemFile(const MCE::TChangeItemRecord& /*tItem*/, const VCM::CString& /*strLocalPath*/)
{
    // The change's sync has put every file in place already.
    return 0;
}

} // namespace MP4
} // namespace ORVANE
