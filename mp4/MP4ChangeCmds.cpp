#include "mp4/MP4ChangeCmds.h"

#include <thread>

#include <wx/string.h>
#include <wx/wxcrt.h>

#include "mce/Atoi32.h"

namespace ORVANE {
namespace MP4 {

using VCM::CFilePath;
using VCM::CString;

bool CChangesCmd::EnumChangesForPath(const CFilePath& cPath)
{
    // Everything below the path, in the server's order; the path unquoted.
    const CString strPath = cPath.GeneratePath(L'/', true);
    CString strCommand;
    strCommand.Format(L"-G changes %s/...", strPath);
    return Execute(strCommand);
}

bool CChangesCmd::GetNextChange(TChange& cChange)
{
    cChange = TChange();
    CString strKey, strValue;
    int nResult = GetNextPair(strKey, strValue);

    while (nResult == 1 || nResult == 3)
    {
        if (nResult == 1)
        {
            if (strKey.CompareNoCase(L"change") == 0)
                cChange.nChange = static_cast<unsigned int>(MCE::Atoi32(strValue));
            else if (strKey.CompareNoCase(L"time") == 0)
                cChange.cTime.Set(static_cast<long>(MCE::Atoi32(strValue)));
            else if (strKey.CompareNoCase(L"user") == 0)
                cChange.strUser = strValue;
            else if (strKey.CompareNoCase(L"client") == 0)
                cChange.strClient = strValue;
        }
        else
        {
            if (cChange.nChange != 0)
                return true;
            // A record without a usable number is skipped.
            cChange = TChange();
        }
        nResult = GetNextPair(strKey, strValue);
    }

    if (nResult == 2)
        return false;
    // The output ended: a last record cut short before its end still counts.
    return cChange.nChange != 0;
}

bool CDescribeCmd::EnumItemsForChange(unsigned int nChange, CString& strDescription)
{
    CString strCommand;
    strCommand.Format(L"-G describe %d", nChange);
    if (!Execute(strCommand))
        return false;
    return GetDescription(strDescription);
}

bool CDescribeCmd::GetDescription(CString& strDescription)
{
    CString strKey, strValue;
    while (GetNextPair(strKey, strValue) == 1)
    {
        if (strKey.CompareNoCase(L"desc") == 0)
        {
            strDescription = strValue;
            return true;
        }
    }
    return false;
}

bool CDescribeCmd::GetNextItem(TChangeItem& cItem)
{
    CString strKey, strValue;
    int nResult = GetNextPair(strKey, strValue);
    cItem = TChangeItem();
    // The numeric suffix of the last depot file key: the other keys of the
    // same file must carry it too.
    CString strSuffix;

    while (nResult == 1)
    {
        if (strKey.Left(9).CmpNoCase(L"depotFile") == 0)
        {
            strSuffix = strKey.Mid(9);
            cItem.cPath.Parse(strValue, -1, false);
            ReplaceHexChars(cItem.cPath);
        }
        else if (strKey.Left(6).CmpNoCase(L"action") == 0)
        {
            if (strKey.Mid(6).CmpNoCase(strSuffix) != 0)
                return false;
            // An action outside the table ends the whole file list.
            if (!GetActionFromString(strValue, cItem.eAction))
                return false;
        }
        else if (strKey.Left(4).CmpNoCase(L"type") == 0)
        {
            if (strKey.Mid(4).CmpNoCase(strSuffix) != 0)
                return false;
        }
        else if (strKey.Left(3).CmpNoCase(L"rev") == 0)
        {
            if (strKey.Mid(3).CmpNoCase(strSuffix) != 0)
                return false;
            // The revision completes an item.
            cItem.nRev = static_cast<unsigned int>(MCE::Atoi32(strValue));
            return cItem.nRev != 0;
        }
        nResult = GetNextPair(strKey, strValue);
    }
    return false;
}

bool CDescribeCmd::GetActionFromString(const CString& strAction, TChangeItemAction& eAction)
{
    static const struct
    {
        const wchar_t* pszText;
        TChangeItemAction eAction;
    } s_atActions[] = {
        {L"add", eActionAdd},
        {L"edit", eActionEdit},
        {L"branch", eActionBranch},
        {L"integrate", eActionIntegrate},
        {L"delete", eActionDelete},
    };
    for (const auto& tAction : s_atActions)
    {
        if (strAction.CompareNoCase(tAction.pszText) == 0)
        {
            eAction = tAction.eAction;
            return true;
        }
    }
    return false;
}

bool CDescribeCmd::ReplaceHexChars(CFilePath& cPath)
{
    for (unsigned int i = 0; i < cPath.GetItemCount(); ++i)
    {
        for (;;)
        {
            const CString strItem = cPath.GetItemText(i, nullptr);
            const int nPos = strItem.Find(L'%');
            if (nPos < 0)
                break;
            const int nLength = strItem.GetLength();
            if (!(nPos + 2 < nLength))
            {
                // A '%' without two characters after it: the item is
                // examined again, unchanged, and the loop never ends. The
                // yield keeps the spin well defined and gives way to others.
                std::this_thread::yield();
                continue;
            }
            const int nHigh = ConvertHexChar(strItem.GetAt(nPos + 1));
            if (nHigh < 0 || nHigh > 16)
                return false;
            const int nLow = ConvertHexChar(strItem.GetAt(nPos + 2));
            if (nLow < 0 || nLow > 16)
                return false;
            const int nCode = nHigh * 16 + nLow;

            // Every round starts again at the first '%' of the new text, so
            // an escape that decodes to '%' is decoded once more.
            CString strNew;
            strNew.Format(L"%s%c%s", strItem.Left(static_cast<size_t>(nPos)), static_cast<wchar_t>(nCode),
                          strItem.Right(static_cast<size_t>(nLength - nPos - 3)));
            cPath.ReplaceItem(i, strNew);
        }
    }
    return true;
}

int CDescribeCmd::ConvertHexChar(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return wxAtoi(wxString(1, c));
    if (c >= L'a' && c <= L'f')
        return static_cast<int>(c) - 87;
    if (c >= L'A' && c <= L'F')
        return static_cast<int>(c) - 55;
    return -1;
}

} // namespace MP4
} // namespace ORVANE
