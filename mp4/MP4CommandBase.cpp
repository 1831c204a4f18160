#include "mp4/MP4CommandBase.h"

#include <cstdint>
#include <new>

#include <wx/convauto.h>
#include <wx/strconv.h>
#include <wx/txtstrm.h>

#include "host/DebugTrace.h"
#include "mce/ProviderBase.h"

namespace ORVANE {
namespace MP4 {

using VCM::CString;

namespace {

// The capture's streams report their end as soon as the last byte has been
// consumed, which the record reader relies on. wx's text reader reads ahead
// and takes such an early end for the end of its text, losing a last
// character that has no line end after it; through this stream it sees the
// end only once a read has found nothing more, as with wx's own streams.
class CTextSourceStream : public wxInputStream
{
public:
    explicit CTextSourceStream(wxInputStream& rSource) : m_rSource(rSource) {}

protected:
    size_t OnSysRead(void* pBuffer, size_t nSize) override
    {
        const size_t nRead = m_rSource.Read(pBuffer, nSize).LastRead();
        if (nRead == 0)
            m_lasterror = m_rSource.Eof() ? wxSTREAM_EOF : wxSTREAM_READ_ERROR;
        return nRead;
    }

private:
    wxInputStream& m_rSource;
};

} // namespace

CString CCommandBase::s_strP4Executable(L"p4");

CCommandBase::CCommandBase() : m_pStdOut(nullptr)
{
}

CCommandBase::~CCommandBase()
{
}

void CCommandBase::SetP4Executable(const CString& strPath)
{
    s_strP4Executable = strPath;
}

bool CCommandBase::Execute(const CString& strCommand)
{
    // The executable goes in exactly as configured: a path with blanks is not
    // supported, the setting names a plain path or a program on the PATH.
    CString strActualCommand;
    strActualCommand.Format(L"%s %s", s_strP4Executable, strCommand);

    VCM::CDummyDebugTrace()(L"s_strP4Executable='%s',strCommand='%s',strActualCommand='%s'\n",
                            s_strP4Executable.wc_str(), strCommand.wc_str(), strActualCommand.wc_str());

    // Commands run only while a provider exists.
    MCE::CProviderBase::GetInstance()->WriteLog(L"Performing command %s\n", strActualCommand.wc_str());

    const int nResult = m_cCapture.Execute(strActualCommand);
    if (nResult == 0)
    {
        m_pStdOut = m_cCapture.GetStdOutputStream();
        return true;
    }

    // Only the first line of the error output reaches the log.
    CString strError;
    wxInputStream* pStdErr = m_cCapture.GetStdErrorStream();
    if (pStdErr)
    {
        CTextSourceStream cErrorSource(*pStdErr);
        wxTextInputStream cErrorText(cErrorSource, L" \t", wxConvAuto());
        strError = cErrorText.ReadLine();
    }
    MCE::CProviderBase::GetInstance()->WriteLog(L" Command failure (%d) - %s \n", nResult, strError.wc_str());
    return false;
}

wxOutputStream* CCommandBase::GetStdInputStream()
{
    return m_cCapture.GetStdInputStream();
}

int CCommandBase::GetNextPair(CString& strKey, CString& strValue)
{
    if (m_pStdOut == nullptr || m_pStdOut->Eof())
        return 0;

    char c = static_cast<char>(m_pStdOut->GetC());
    if (m_pStdOut->LastRead() != 1)
        return 0;

    // A record start costs no call of its own: the byte after it is the
    // first item of the record. A '{' at the very end stays and is refused
    // below.
    if (c == '{' && !m_pStdOut->Eof())
        c = static_cast<char>(m_pStdOut->GetC());

    if (c == '0')
        return 3;
    if (c != 's')
        return 2;

    // ReadString reads the type code itself.
    m_pStdOut->Ungetch(c);
    if (!ReadString(strKey))
        return 2;
    if (!ReadString(strValue))
        return 2;
    return 1;
}

bool CCommandBase::ReadString(CString& str)
{
    if (m_pStdOut == nullptr || m_pStdOut->Eof())
        return false;

    const char c = static_cast<char>(m_pStdOut->GetC());
    if (c != 's')
        return false;
    if (m_pStdOut->Eof())
        return false;

    // The length as the processor stores it: the stream is little-endian,
    // and so is every processor the module runs on.
    uint32_t nLength = 0;
    m_pStdOut->Read(&nLength, sizeof(nLength));
    if (m_pStdOut->Eof())
        return false;

    // The body plus a terminator must fit in the buffer's size type; a
    // length that leaves no room for the terminator cannot be had.
    if (nLength == UINT32_MAX)
        throw std::bad_alloc();
    if (!m_cReadBuffer.Allocate(nLength + 1, false) || m_cReadBuffer.GetData() == nullptr)
        return false;
    m_pStdOut->Read(m_cReadBuffer.GetData(), nLength);
    if (m_pStdOut->LastRead() != nLength)
        return false;

    // Converted as a terminated byte string in the C library's locale: a NUL
    // inside the body cuts it, bytes invalid in the locale give empty text.
    m_cReadBuffer.GetData()[nLength] = 0;
    const CString strText(wxString(reinterpret_cast<const char*>(m_cReadBuffer.GetData()), wxConvLibc));
    str = strText;
    return true;
}

} // namespace MP4
} // namespace ORVANE
