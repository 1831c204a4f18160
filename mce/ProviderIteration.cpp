// The iteration over streams, changesets and change items that the engine
// drives through CProviderBase.
#include "mce/ProviderBase.h"

namespace ORVANE {
namespace MCE {

void CProviderBase::ResetStreams()
{
    m_atStreams.RemoveAll(false);
    m_bStreamsEstablished = false;
}

int CProviderBase::EstablishStreams(unsigned int& nCount)
{
    if (!m_bStreamsEstablished)
    {
        ResetStreams();
        if (!SearchForStreams())
            return 1;
        m_bStreamsEstablished = true;
    }
    if (m_atStreams.GetCount() == 0)
    {
        WriteLog(L"No streams were found.");
        return 1;
    }
    nCount = static_cast<unsigned int>(m_atStreams.GetCount());
    return 0;
}

int CProviderBase::GetNextStream(POSITION& pos, TStreamInfo& tInfo, unsigned int nParentID)
{
    if (!m_bStreamsEstablished)
    {
        if (!SearchForStreams())
            return 1;
        m_bStreamsEstablished = true;
    }

    // The parent id to match: that of the first stream with the given id,
    // or a default stream's id when there is none.
    unsigned int nMatch = 0;
    if (nParentID != 0)
    {
        nMatch = TStreamInfo().nID;
        for (int i = 0; i < m_atStreams.GetCount(); ++i)
        {
            if (m_atStreams[i].nID == nParentID)
            {
                nMatch = m_atStreams[i].nID;
                break;
            }
        }
    }

    // The position is a bare 0-based index of the next stream to look at.
    for (;;)
    {
        const int nIndex = PtrToInt(pos);
        if (nIndex < 0 || nIndex >= m_atStreams.GetCount())
            return 2;
        tInfo = m_atStreams[nIndex];
        pos = IntToPosition(nIndex + 1);
        if (tInfo.nParentID == nMatch)
            return 0;
    }
}

int CProviderBase::OnBeginStream(unsigned int nStreamID, const wchar_t* pszRoot)
{
    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        if (m_atStreams[i].nID == nStreamID)
        {
            m_cCurrentStream = m_atStreams[i];
            break;
        }
    }
    m_cStreamRoot.Parse(pszRoot, -1, false);
    return 0;
}

int CProviderBase::EstablishChangesets(unsigned int& nCount)
{
    if (m_bChangesEstablished)
    {
        nCount = m_nChangeCount;
        return 0;
    }
    if (m_pDatabase == nullptr && !PrepareForChanges(false))
        return 1;
    if (!EnumerateChanges())
        return 1;
    CommitChanges();
    m_bChangesEstablished = true;
    nCount = m_nChangeCount;
    return 0;
}

void CProviderBase::FillChangeInfo(TChangeInfo& tInfo) const
{
    tInfo.nID = m_cChangeRecord.nID;
    tInfo.strUser = m_cChangeRecord.strUser;
    tInfo.tTime = m_cChangeRecord.tTime;
    tInfo.strComment = m_cChangeRecord.strComment;
    tInfo.nItemCount = m_cChangeRecord.nNextItem;
}

void CProviderBase::FillChangeItemInfo(TChangeItemInfo& tInfo) const
{
    tInfo.nChangeID = m_cChangeItemRecord.nID;
    tInfo.eType = m_cChangeItemRecord.eType;
    tInfo.cFilePath = m_cChangeItemRecord.cFilePath;
    tInfo.nRevision = m_cChangeItemRecord.nRevision;
}

int CProviderBase::OnFirstChangeset(TChangeInfo& tInfo)
{
    if (!PrepareForChanges(false))
        return 1;
    m_cChangeRecord.nStreamID = m_cCurrentStream.nID;
    m_cChangeRecord.tTime = 0;
    if (!m_cChangeIterator.GetGTE(&m_cChangeRecord, false) || m_cChangeRecord.nStreamID != m_cCurrentStream.nID)
        return 2;
    FillChangeInfo(tInfo);
    return 0;
}

int CProviderBase::OnNextChangeset(TChangeInfo& tInfo)
{
    if (!m_cChangeIterator.GetNext(&m_cChangeRecord, false) || m_cChangeRecord.nStreamID != m_cCurrentStream.nID)
        return 2;
    FillChangeInfo(tInfo);
    return 0;
}

int CProviderBase::OnProcessChange(TChangeInfo& /*tInfo*/)
{
    // The current change record is what counts, not what the engine holds.
    return RetrieveChangeFiles(m_cChangeRecord);
}

int CProviderBase::RetrieveCurrentItem(TChangeItemInfo& tInfo, bool bReport)
{
    FillChangeItemInfo(tInfo);
    if (!EnsureFolderExists(m_cChangeItemRecord.cFilePath))
    {
        if (bReport)
            WriteLog(L"Failed to create folder for change item '%s'",
                     m_cChangeItemRecord.cFilePath.GeneratePath().wc_str());
        return 1;
    }
    const VCM::CString strTarget = tInfo.cFilePath.GeneratePath(m_cStreamRoot, 0);
    if (RetrieveChangeItemFile(m_cChangeItemRecord, strTarget) != 0)
    {
        if (bReport)
            WriteLog(L"Failed to retrieve change item file '%s'",
                     m_cChangeItemRecord.cFilePath.GeneratePath().wc_str());
        return 1;
    }
    return 0;
}

int CProviderBase::OnFirstChangeItem(TChangeItemInfo& tInfo)
{
    // The first item of a change fails without a message of its own; later
    // items say what failed. Kept as engines know it.
    m_cChangeItemRecord.nID = m_cChangeRecord.nID;
    m_cChangeItemRecord.nItem = 0;
    if (m_cChangeItemIterator.GetGTE(&m_cChangeItemRecord, false) && m_cChangeItemRecord.nID == m_cChangeRecord.nID)
        return RetrieveCurrentItem(tInfo, false);
    return 2;
}

int CProviderBase::OnNextChangeItem(TChangeItemInfo& tInfo)
{
    if (m_cChangeItemIterator.GetNext(&m_cChangeItemRecord, false) && m_cChangeItemRecord.nID == m_cChangeRecord.nID)
        return RetrieveCurrentItem(tInfo, true);
    return 2;
}

} // namespace MCE
} // namespace ORVANE
