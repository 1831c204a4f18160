#include "mp4/MP4ClientCmds.h"

#include <cstring>

#include <wx/filename.h>
#include <wx/strconv.h>

#include "mce/ProviderBase.h"

namespace ORVANE {
namespace MP4 {

using VCM::CFilePath;
using VCM::CString;

namespace {

// A local folder as a full, normalised native path.
CString FullNativePath(const CString& strPath)
{
    wxFileName cName(strPath, wxPATH_NATIVE);
    cName.MakeAbsolute();
    return CString(cName.GetFullPath());
}

// The text of a view side: the path with '/' separators and "/...".
CString ViewSide(const CFilePath& cPath)
{
    CString str = cPath.GeneratePath(L'/', true);
    str += L"/...";
    return str;
}

} // namespace

CClientCmd::CClientCmd() : m_pStdIn(nullptr)
{
}

bool CClientCmd::CreateClient(const TClient& cClient)
{
    m_pStdIn = GetStdInputStream();

    const CString strRootFull = FullNativePath(cClient.cRoot.GeneratePath(L'/', true));
    const CString strOptions = GetOptionsString(cClient.nOptions);
    const CString strLineEnd = GetLEOptionsString(cClient.eLineEnd);

    MCE::CProviderBase* pProvider = MCE::CProviderBase::GetInstance();
    if (pProvider)
    {
        pProvider->WriteLog(L"Input Form to p4 client -i :-\n  Client: %s\n  Owner: %s\n  Host: %s\n"
                            L"  Description: %s\n  Root: %s\n  Options: %s\n  LineEnd: %s\n  View:\n",
                            cClient.strName.wc_str(), cClient.strOwner.wc_str(), cClient.strHost.wc_str(),
                            cClient.strDescription.wc_str(), strRootFull.wc_str(), strOptions.wc_str(),
                            strLineEnd.wc_str());
        for (int i = 0; i < cClient.aDepotPaths.GetCount(); ++i)
        {
            pProvider->WriteLog(L"   \"%s\" \"%s\"\n", ViewSide(cClient.aDepotPaths[i]).wc_str(),
                                ViewSide(cClient.aClientPaths[i]).wc_str());
        }
    }

    // Values go in as they stand: line ends inside them are neither indented
    // nor escaped.
    WriteProperty(L"Client", cClient.strName);
    WriteProperty(L"Owner", cClient.strOwner);
    WriteProperty(L"Host", cClient.strHost);
    WriteProperty(L"Description", cClient.strDescription);
    WriteProperty(L"Root", strRootFull);
    WriteProperty(L"Options", strOptions);
    WriteProperty(L"LineEnd", strLineEnd);
    if (cClient.aDepotPaths.GetCount() > 0)
    {
        WriteProperty(L"View", CString());
        for (int i = 0; i < cClient.aDepotPaths.GetCount(); ++i)
            WritePathPair(cClient.aDepotPaths[i], cClient.aClientPaths[i]);
    }

    return Execute(L"client -i");
}

bool CClientCmd::DeleteClient(const CString& strName)
{
    CString strCommand;
    strCommand.Format(L"client -d %s", strName);
    return Execute(strCommand);
}

void CClientCmd::WriteProperty(const wchar_t* szName, const CString& strValue)
{
    m_strLine.Format(L"%s: %s\n", szName, strValue);
    WriteLine();
}

void CClientCmd::WritePathPair(const CFilePath& cLeft, const CFilePath& cRight)
{
    // Both sides quoted, so that paths with blanks survive.
    m_strLine.Format(L" \"%s\" \"%s\"\n", ViewSide(cLeft), ViewSide(cRight));
    WriteLine();
}

void CClientCmd::WriteLine()
{
    if (m_pStdIn == nullptr)
        return;
    // Text that the locale cannot represent converts to nothing: the line
    // is then missing from the form.
    const auto cBytes = m_strLine.mb_str(wxConvLibc);
    const char* pszBytes = cBytes.data();
    if (pszBytes == nullptr)
        return;
    m_pStdIn->Write(pszBytes, std::strlen(pszBytes));
}

CString CClientCmd::GetOptionsString(unsigned int nOptions)
{
    static const struct
    {
        unsigned int nBit;
        const wchar_t* pszSet;
        const wchar_t* pszClear;
    } s_atOptions[] = {
        {eClientAllWrite, L"allwrite ", L"noallwrite "}, {eClientClobber, L"clobber ", L"noclobber "},
        {eClientCompress, L"compress ", L"nocompress "}, {eClientCrLf, L"crlf ", L"nocrlf "},
        {eClientLocked, L"locked ", L"unlocked "},       {eClientModTime, L"modtime ", L"nomodtime "},
        {eClientRmDir, L"rmdir ", L"normdir "},
    };
    m_strLine.Empty();
    for (const auto& tOption : s_atOptions)
        m_strLine += (nOptions & tOption.nBit) ? tOption.pszSet : tOption.pszClear;
    return m_strLine;
}

CString CClientCmd::GetLEOptionsString(TClientLEOption eOption)
{
    switch (eOption)
    {
    case eLELocal:
        return L"local";
    case eLEUnix:
        return L"unix";
    case eLEMac:
        return L"mac";
    case eLEWin:
        return L"win";
    case eLEShare:
        return L"share";
    }
    return CString();
}

bool CSyncCmd::SyncToChange(const CFilePath& cPath, unsigned int nChange)
{
    const CString strFull = FullNativePath(cPath.GeneratePath());
    CString strCommand;
    strCommand.Format(L"sync \"%s%c...@%d\"", strFull, L'/', nChange);
    return Execute(strCommand);
}

bool CSyncCmd::RemoveFromClient(const CFilePath& cPath)
{
    // The path as generated, not made absolute (unlike SyncToChange).
    const CString strPath = cPath.GeneratePath(L'/', true);
    CString strCommand;
    strCommand.Format(L"sync -f \"%s%c...#none\"", strPath, L'/');
    return Execute(strCommand);
}

} // namespace MP4
} // namespace ORVANE
