// Construction, destruction and settings of CProviderBase.
#include "mce/ProviderBase.h"

#include <wx/filefn.h>
#include <wx/log.h>

#include "mce/Atoi32.h"

namespace ORVANE {
namespace MCE {

CProviderBase* CProviderBase::s_poInstance = nullptr;
time_t (*CProviderBase::s_pfnClock)(time_t*) = &::time;

CProviderBase::CProviderBase(const VCM::CString& strID, const VCM::CString& strName,
                             const VCM::CString& strDescription, bool bFlag1, bool bFlag2)
    : CProvider(strID, strName, strDescription, bFlag1, bFlag2), m_atStreams(0), m_pDatabase(nullptr),
      m_cChangeTable(nullptr), m_cChangeItemTable(nullptr), m_pTransaction(nullptr), m_nChangeCount(0),
      m_bStreamsEstablished(false), m_bChangesEstablished(false), m_pLogFile(nullptr), m_pLogText(nullptr),
      m_bLogOpen(false), m_bLogToConnection(false)
{
    s_poInstance = this;
}

CProviderBase::~CProviderBase()
{
    // The staging store: cursors, the transaction (given up), the tables,
    // the database, and its two files.
    m_cChangeIterator.Close();
    m_cChangeItemIterator.Close();
    if (m_pTransaction)
        delete m_pTransaction;
    m_cChangeTable.Close();
    m_cChangeItemTable.Close();
    if (m_pDatabase)
        m_pDatabase->Release();
    if (!m_strDatabasePath.empty())
    {
        wxLogNull cNoMessages; // a file that is not there is no error here
        VCM::CString strFile;
        strFile.Format(L"%s.tdf", m_strDatabasePath);
        wxRemoveFile(strFile);
        strFile.Format(L"%s.tlf", m_strDatabasePath);
        wxRemoveFile(strFile);
    }

    // The log streams; nothing more is written to the log.
    if (m_pLogText)
    {
        delete m_pLogText;
        m_pLogText = nullptr;
    }
    if (m_pLogFile)
    {
        delete m_pLogFile;
        m_pLogFile = nullptr;
    }
}

void CProviderBase::Destroy()
{
    delete this;
}

void CProviderBase::SetProperty(const VCM::CString& strKey, const VCM::CString& strValue)
{
    m_mapProperties.SetAt(strKey, strValue);
}

int CProviderBase::CheckEnvironment(VCM::CString& /*strError*/)
{
    return 0;
}

VCM::CString CProviderBase::GetStringProperty(const VCM::CString& strKey)
{
    VCM::CString strValue;
    m_mapProperties.GetAt(strKey, strValue);
    return strValue;
}

bool CProviderBase::GetBooleanProperty(const VCM::CString& strKey)
{
    VCM::CString strValue;
    if (!m_mapProperties.GetAt(strKey, strValue) || strValue.empty())
        return false;
    // The C library's reading of a decimal integer on the locale's multibyte
    // form: blanks skipped, a sign, digits up to the first non-digit.
    return Atoi32(strValue) != 0;
}

} // namespace MCE
} // namespace ORVANE
