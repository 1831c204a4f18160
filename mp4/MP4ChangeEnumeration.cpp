// Change enumeration: every changelist of every stream, with the files that
// lie inside the stream, recorded in the staging store.
#include <cstdint>

#include "host/DebugTrace.h"
#include "mp4/MP4Provider.h"

namespace ORVANE {
namespace MP4 {

bool CProvider::EnumerateChanges()
{
    // Roots in array order; each root's children are reached depth first.
    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        TStreamInfo& tStream = m_atStreams.ElementAt(i);
        if (tStream.nParentID == 0 && !EnumerateStreamChanges(tStream))
            return false;
    }
    return true;
}

bool CProvider::EnumerateStreamChanges(TStreamInfo& tStream)
{
    tStream.nBaseChangeID = 0;
    bool bResult = true;
    const VCM::CString strStreamPath = tStream.cDstPath.GeneratePath(L'/', true);

    CChangesCmd cChanges;
    if (!cChanges.EnumChangesForPath(tStream.cDstPath))
    {
        WriteLog(L"** Failed to enumerate changes for %s\n", strStreamPath.wc_str());
    }
    else
    {
        unsigned int nLastRecordID = 0;
        unsigned int nRecorded = 0;
        int32_t tPrevious = 0;
        CDescribeCmd cDescribe; // one for every change of the stream
        TChange tChange;
        while (cChanges.GetNextChange(tChange))
        {
            VCM::CString strDescription;
            if (!cDescribe.EnumItemsForChange(tChange.nChange, strDescription))
            {
                WriteLog(L"** Failed to enumerate change %d\n", tChange.nChange);
                continue;
            }

            // Changes come newest first: each must be strictly older than
            // the one processed before it.
            int32_t tTime = static_cast<int32_t>(tChange.cTime.GetUTC());
            if (tPrevious != 0 && tTime >= tPrevious)
            {
                tTime = tPrevious - 1;
                WriteLog(L"Manually changed time for change '%s'. It's time was after the next change!\n",
                         strDescription.wc_str());
            }

            VCM::CString strUser;
            strUser.Format(L"%s@%s", tChange.strUser, tChange.strClient);
            nLastRecordID = AddChange(tChange.nChange, tStream.nID, strUser, strDescription, tTime);
            tPrevious = tTime;
            if (nLastRecordID == 0)
            {
                WriteLog(L"** Failed to add change '%s'\n", strDescription.wc_str());
                continue;
            }

            ++nRecorded;
            unsigned int nItem = 1;
            TChangeItem tItem;
            while (cDescribe.GetNextItem(tItem))
            {
                const VCM::CString strItemPath = tItem.cPath.GeneratePath();
                if (!tItem.cPath.IsSupersetOf(tStream.cDstPath, nullptr, m_bCaseInsensitive))
                {
                    VCM::CDummyDebugTrace()(L"-- Not adding changeitem for '%s' (didn't match '%s')\n",
                                            strItemPath.wc_str(), tStream.cDstPath.GeneratePath().wc_str());
                    continue;
                }
                VCM::CDummyDebugTrace()(L"++ Adding changeitem for '%s'\n", strItemPath.wc_str());
                AddChangeItem(nLastRecordID, nItem, GetChangeItemTypeFromAction(tItem.eAction),
                              GetChangeItemLocalPath(tItem.cPath, tStream.cDstPath), tItem.nRev);
                ++nItem;
            }
            // The count stored is the next free item number, by convention.
            WriteLog(L"Added %u changeitems\n", nItem - 1);
            UpdateChangeItemCount(nLastRecordID, nItem);
        }
        if (nRecorded == 0)
            WriteLog(L"** Found no changelists for stream %s\n", strStreamPath.wc_str());
        tStream.nBaseChangeID = nLastRecordID;
    }

    const unsigned int nStreamID = tStream.nID;
    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        TStreamInfo& tChild = m_atStreams.ElementAt(i);
        if (tChild.nParentID == nStreamID && bResult)
            bResult = EnumerateStreamChanges(tChild);
    }
    return bResult;
}

MCE::TChangeItemType CProvider::GetChangeItemTypeFromAction(TChangeItemAction eAction)
{
    switch (eAction)
    {
    case eActionAdd:
    case eActionBranch:
        return MCE::eChangeItemAdd;
    case eActionDelete:
        return MCE::eChangeItemDelete;
    case eActionEdit:
    case eActionIntegrate:
    default:
        return MCE::eChangeItemModify;
    }
}

VCM::CFilePath CProvider::GetChangeItemLocalPath(const VCM::CFilePath& cItemPath, const VCM::CFilePath& cStreamPath)
{
    VCM::CFilePath cLocal;
    for (unsigned i = cStreamPath.GetItemCount(); i < cItemPath.GetItemCount(); ++i)
        cLocal.Add(cItemPath.GetItemText(i, nullptr));
    return cLocal;
}

} // namespace MP4
} // namespace ORVANE
