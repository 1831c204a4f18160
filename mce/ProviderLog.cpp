// The import log of CProviderBase.
#include <cstdarg>

#include <wx/convauto.h>
#include <wx/filename.h>
#include <wx/log.h>

#include "host/DebugTrace.h"
#include "mce/ProviderBase.h"

namespace ORVANE {
namespace MCE {

void CProviderBase::LogToConnection()
{
    m_bLogToConnection = true;
    m_bLogOpen = true;
}

void CProviderBase::OpenLog(bool bOpen)
{
    if (!bOpen)
    {
        m_bLogOpen = false;
        return;
    }
    if (m_bLogOpen)
        return;
    m_bLogOpen = true;

    wxFileName cLogName;
    {
        wxLogNull cNoMessages; // a log that cannot be made loses its lines silently
        cLogName.AssignTempFileName(L"Orvane");
    }
    m_strLogPath = cLogName.GetFullPath();
    // A log switched off with OpenLog(false) still has its streams: close
    // that file (every line of it was flushed) before starting the new one.
    delete m_pLogText;
    delete m_pLogFile;
    {
        wxLogNull cNoMessages;
        m_pLogFile = new wxFFileOutputStream(m_strLogPath, L"wb");
    }
    m_pLogText = new wxTextOutputStream(*m_pLogFile, wxEOL_NATIVE, wxConvAuto(wxFONTENCODING_DEFAULT));

    WriteLog(L"Beginning Import with %s", GetProviderName().wc_str());
}

bool CProviderBase::IsLogOpen() const
{
    return m_bLogOpen;
}

VCM::CString CProviderBase::GetLogPath()
{
    if (m_pLogText)
        delete m_pLogText;
    if (m_pLogFile)
        delete m_pLogFile;
    m_pLogText = nullptr;
    m_pLogFile = nullptr;
    m_bLogOpen = false;
    return m_strLogPath;
}

void CProviderBase::WriteLog(const wchar_t* pszFormat, ...)
{
    if (!m_bLogOpen)
        return;

    va_list args;
    va_start(args, pszFormat);
    m_strLogLine.FormatV(pszFormat, args);
    va_end(args);

    // One entry is one line; an empty text becomes a bare line end.
    if (m_strLogLine.empty() || m_strLogLine.Last() != L'\n')
        m_strLogLine += L'\n';

    // The prefix is the seconds within the current hour, by design: lines
    // carry neither date nor hour.
    const int nSeconds = static_cast<int>(s_pfnClock(nullptr) % 3600);
    m_strLogLine.Format(L"%d: %s", nSeconds, m_strLogLine);

    if (m_pLogText)
    {
        m_pLogText->WriteString(m_strLogLine);
        if (m_pLogFile)
            m_pLogFile->Sync();
    }
    if (m_bLogToConnection && GetEngine() && GetEngine()->GetConnection())
        GetEngine()->GetConnection()->DisplayInfoMsg("%s", m_strLogLine.wc_str());

    VCM::CDummyDebugTrace()(L"Log: %s", m_strLogLine.wc_str());
}

void CProviderBase::LogStreamsAndChanges()
{
    PrepareForChanges(false);
    if (!m_bLogOpen || !m_cChangeIterator.IsOpen())
        return;

    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        const TStreamInfo& tStream = m_atStreams[i];
        WriteLog(L"Processing stream '%s' (id=%d,parentid=%d,destpath=%s,srcpath=%s,basechangeid=%d)",
                 tStream.strName.wc_str(), tStream.nID, tStream.nParentID,
                 tStream.cDstPath.GeneratePath(L'/', true).wc_str(),
                 tStream.cSrcPath.GeneratePath(L'/', true).wc_str(), tStream.nBaseChangeID);

        TChangeRecord tChange;
        tChange.nStreamID = tStream.nID;
        tChange.tTime = 0;
        int nCount = 1;
        bool bFound = m_cChangeIterator.GetGTE(&tChange, false);
        while (bFound && tChange.nStreamID == tStream.nID)
        {
            VCM::CTimestamp cTime, cBase, cMax;
            cTime.Set(tChange.tTime);
            const long tBase = tChange.GetBaseTime();
            const long tMax = tChange.GetMaxTime();
            cBase.Set(tBase);
            cMax.Set(tMax);
            WriteLog(L"\tChange (count=%d,id=%d,providerid=%d,user=%s,time=%s UTC,comment=%s,basetime=%s "
                     L"UTC(%d),maxtime=%s UTC(%d))",
                     nCount, tChange.nID, tChange.nProviderID, tChange.strUser.wc_str(),
                     cTime.Format(wxDateTime::GMT0).wc_str(), tChange.strComment.wc_str(),
                     cBase.Format(wxDateTime::GMT0).wc_str(), static_cast<int>(tBase),
                     cMax.Format(wxDateTime::GMT0).wc_str(), static_cast<int>(tMax));
            bFound = m_cChangeIterator.GetNext(&tChange, false);
            ++nCount;
        }
    }
}

} // namespace MCE
} // namespace ORVANE
