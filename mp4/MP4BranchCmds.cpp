#include "mp4/MP4BranchCmds.h"

#include <cwchar>

#include <wx/tokenzr.h>

namespace ORVANE {
namespace MP4 {

using VCM::CFilePath;
using VCM::CString;

namespace {

// Drops a trailing wildcard item ("...", or any item that begins with it).
void RemoveTrailingWildcard(CFilePath& cPath)
{
    const unsigned nCount = cPath.GetItemCount();
    if (nCount > 0 && wcsncmp(cPath.GetItemText(nCount - 1, nullptr), L"...", 3) == 0)
        cPath.RemoveLastItem();
}

} // namespace

CBranchesCmd::CBranchesCmd()
{
}

bool CBranchesCmd::EnumBranchesForPath(const CFilePath& cPath)
{
    m_cPath = cPath;
    return Execute(L"-G branches");
}

bool CBranchesCmd::GetNextBranch(TBranch& cBranch)
{
    CString strKey, strValue;
    int nResult = GetNextPair(strKey, strValue);
    cBranch = TBranch();

    while (nResult == 1 || nResult == 3)
    {
        if (nResult == 1)
        {
            if (strKey.CompareNoCase(L"branch") == 0)
                cBranch.strName = strValue;
        }
        else
        {
            // A listing record without a name ends the whole iteration.
            if (cBranch.strName.empty())
                return false;

            CBranchCmd cDetails;
            if (!cDetails.GetBranchDetails(cBranch))
            {
                cBranch = TBranch();
            }
            else
            {
                // Keep the view lines whose both sides lie at or below the path.
                int i = 0;
                while (i < cBranch.aSourcePaths.GetCount())
                {
                    if (cBranch.aSourcePaths[i].IsSupersetOf(m_cPath, nullptr, false) &&
                        cBranch.aTargetPaths[i].IsSupersetOf(m_cPath, nullptr, false))
                    {
                        ++i;
                    }
                    else
                    {
                        cBranch.aSourcePaths.RemoveAt(i);
                        cBranch.aTargetPaths.RemoveAt(i);
                    }
                }
                if (cBranch.aSourcePaths.GetCount() > 0)
                    return true;
                cBranch = TBranch();
            }
        }
        nResult = GetNextPair(strKey, strValue);
    }
    return false;
}

bool CBranchCmd::GetBranchDetails(TBranch& cBranch)
{
    CString strCommand;
    strCommand.Format(L"-G branch -o %s", cBranch.strName);
    if (!Execute(strCommand))
        return false;

    // Only the first record is read; whatever ends it, what was read stands.
    CString strKey, strValue;
    while (GetNextPair(strKey, strValue) == 1)
    {
        if (strKey.CompareNoCase(L"Description") == 0)
        {
            cBranch.strDescription = strValue;
        }
        else if (strKey.Left(4).CmpNoCase(L"View") == 0)
        {
            // "SOURCE TARGET": quotes and +/- marks are not interpreted.
            wxStringTokenizer cTokens(strValue, L" \t\r\n");
            CFilePath cSource, cTarget;
            if (cSource.Parse(CString(cTokens.GetNextToken()), -1, false) &&
                cTarget.Parse(CString(cTokens.GetNextToken()), -1, false))
            {
                RemoveTrailingWildcard(cSource);
                RemoveTrailingWildcard(cTarget);
                cBranch.aSourcePaths.Add(cSource);
                cBranch.aTargetPaths.Add(cTarget);
            }
        }
    }
    return true;
}

} // namespace MP4
} // namespace ORVANE
