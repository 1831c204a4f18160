// The staging store of CProviderBase: the database's lifecycle, folders for
// change items, and the recording of changes and change items.
#include <unistd.h>

#include <cstdint>

#include <wx/filefn.h>
#include <wx/log.h>

#include "mce/ProviderBase.h"

namespace ORVANE {
namespace MCE {

namespace {
// Seconds either side of a change's base time within which a revision may
// join it.
const uint32_t nGroupingWindow = 300;

// Times are signed 32-bit counts held in a long; comparisons of the grouping
// rules are made on their unsigned 32-bit form.
inline uint32_t U32(long tTime)
{
    return static_cast<uint32_t>(tTime);
}
inline long FromU32(uint32_t nTime)
{
    return static_cast<long>(static_cast<int32_t>(nTime));
}
} // namespace

bool CProviderBase::PrepareForChanges(bool bReset)
{
    bool bResult = true;
    if (m_pDatabase == nullptr)
    {
        m_strDatabasePath.Format(L"/tmp/orvane-em-%d", static_cast<int>(getpid()));
        VCM::CString strConnection;
        strConnection.Format(L"type=native;path=%s;create=1;nobinaries=1", m_strDatabasePath);
        m_pDatabase = VDB::CDatabaseFactory::Create(strConnection);
        if (m_pDatabase == nullptr)
            bResult = false;
    }
    if (bReset)
    {
        if (m_cChangeIterator.IsOpen())
            m_cChangeIterator.Close();
        if (m_cChangeItemIterator.IsOpen())
            m_cChangeItemIterator.Close();
        if (m_cChangeTable.IsOpen())
            m_cChangeTable.Close();
        if (m_cChangeItemTable.IsOpen())
            m_cChangeItemTable.Close();
        delete m_pTransaction;
        m_pTransaction = nullptr;
    }
    if (m_pDatabase != nullptr && m_pTransaction == nullptr)
    {
        m_pTransaction = new VDB::CTransaction(m_pDatabase, 60000);
        if (!m_cChangeTable.IsOpen())
        {
            m_cChangeTable.Open(m_pDatabase, nullptr, m_pTransaction, false);
            m_cChangeItemTable.Open(m_pDatabase, nullptr, m_pTransaction, false);
        }
        m_cChangeIterator = m_cChangeTable.GetStreamTimeIterator(m_pTransaction);
        m_cChangeItemIterator = m_cChangeItemTable.GetIterator(m_pTransaction);
        bResult = true;
    }
    return bResult;
}

void CProviderBase::CommitChanges()
{
    if (m_pTransaction == nullptr)
        return;
    m_cChangeIterator.Close();
    m_cChangeItemIterator.Close();
    m_pTransaction->Commit(false, nullptr, nullptr);
    delete m_pTransaction;
    m_pTransaction = nullptr;
}

bool CProviderBase::EnsureFolderExists(const VCM::CFilePath& cPath)
{
    if (cPath.GetItemCount() == 0)
        return true;
    VCM::CFilePath cFolder(m_cStreamRoot);
    for (unsigned i = 0; i + 1 < cPath.GetItemCount(); ++i)
    {
        cFolder.Add(cPath.GetItemText(i, nullptr));
        const VCM::CString strFolder = cFolder.GeneratePath();
        if (!wxDirExists(strFolder))
        {
            bool bMade;
            {
                wxLogNull cNoMessages; // reported below, in the import log
                bMade = wxMkdir(strFolder, 0777);
            }
            if (!bMade)
            {
                WriteLog(L"Failed to create directory '%s'", strFolder.wc_str());
                return false;
            }
        }
    }
    return true;
}

unsigned int CProviderBase::AddChange(unsigned int nProviderID, unsigned int nStreamID, const VCM::CString& strUser,
                                      const VCM::CString& strComment, long tTime)
{
    if (!m_cChangeIterator.IsOpen())
        PrepareForChanges(false);
    m_cChangeRecord.nID = 0;
    m_cChangeRecord.nProviderID = nProviderID;
    m_cChangeRecord.nStreamID = nStreamID;
    m_cChangeRecord.strUser = strUser;
    m_cChangeRecord.tTime = tTime;
    m_cChangeRecord.strComment = strComment;
    m_cChangeRecord.nNextItem = 0;
    m_cChangeRecord.cProps.RemoveAll();
    const bool bAdded = m_cChangeIterator.Add(&m_cChangeRecord, false);
    ++m_nChangeCount; // counted whether or not the add succeeded
    return bAdded ? m_cChangeRecord.nID : 0;
}

bool CProviderBase::AddChangeItem(unsigned int nChangeID, unsigned int nItem, TChangeItemType eType,
                                  const VCM::CFilePath& cPath, unsigned int nRevision)
{
    if (!m_cChangeItemIterator.IsOpen())
        PrepareForChanges(false);
    m_cChangeItemRecord.nID = nChangeID;
    m_cChangeItemRecord.nItem = nItem;
    m_cChangeItemRecord.eType = eType;
    m_cChangeItemRecord.cFilePath = cPath;
    m_cChangeItemRecord.nRevision = nRevision;
    m_cChangeItemRecord.cProps.RemoveAll();
    return m_cChangeItemIterator.Add(&m_cChangeItemRecord, false);
}

void CProviderBase::AddChangeItem(const TStreamInfo& tStream, const VCM::CString& strUser, TChangeItemType eType,
                                  const VCM::CFilePath& cPath, long tTime, const VCM::CString& strComment,
                                  int nRevision)
{
    AddChangeItem(tStream, strUser, eType, cPath, tTime, strComment, nRevision, TCVSRevision(), false, -1);
}

void CProviderBase::AddChangeItem(const TStreamInfo& tStream, const VCM::CString& strUser, TChangeItemType eType,
                                  const VCM::CFilePath& cPath, long tTime, const VCM::CString& strComment,
                                  TCVSRevision tRevision, long tMaxTime)
{
    AddChangeItem(tStream, strUser, eType, cPath, tTime, strComment, 0, tRevision, true, tMaxTime);
}

bool CProviderBase::AddChangeItem(const TStreamInfo& tStream, const VCM::CString& strUser, TChangeItemType eType,
                                  const VCM::CFilePath& cPath, long tTime, const VCM::CString& strComment,
                                  int nRevision, TCVSRevision tRevision, bool bCheckComment, long tMaxTime)
{
    // Look for a change of the same stream and user whose time lies within
    // the window around tTime; the first allowed one in index order wins.
    long tNewTime = tTime;
    bool bFound = false;
    m_cChangeRecord.nStreamID = tStream.nID;
    m_cChangeRecord.tTime = FromU32(U32(tTime) - nGroupingWindow);
    const uint32_t nUpperBound = U32(tTime) + nGroupingWindow;

    bool bRead = m_cChangeIterator.GetGTE(&m_cChangeRecord, true);
    while (bRead && m_cChangeRecord.nStreamID == tStream.nID && U32(m_cChangeRecord.tTime) <= nUpperBound)
    {
        const bool bCandidate = m_cChangeRecord.strUser.CompareNoCase(strUser) == 0 &&
                                (!bCheckComment || m_cChangeRecord.strComment.CompareNoCase(strComment) == 0) &&
                                m_cChangeRecord.AllowChangeItem(tTime, tMaxTime);
        if (bCandidate)
        {
            if (U32(tTime) > U32(m_cChangeRecord.tTime))
                m_cChangeRecord.tTime = tTime;
            if (U32(m_cChangeRecord.GetMaxTime()) > U32(tMaxTime))
                m_cChangeRecord.SetMaxTime(U32(tMaxTime));
            bFound = true;
            break;
        }
        bRead = m_cChangeIterator.GetNext(&m_cChangeRecord, true);
    }

    // A change may hold one revision of a file: a newer revision goes one
    // second after that change, an older or equal one a second before it.
    if (bFound)
    {
        int nExisting = 0;
        if (CheckForExistingItem(m_cChangeRecord, cPath, nExisting))
        {
            if (nExisting < nRevision)
            {
                if (U32(m_cChangeRecord.tTime) >= U32(tTime))
                    tNewTime = FromU32(U32(m_cChangeRecord.tTime) + 1);
            }
            else if (U32(m_cChangeRecord.tTime) <= U32(tTime))
            {
                tNewTime = FromU32(U32(m_cChangeRecord.tTime) - 1);
            }
            bFound = false;
        }
    }

    if (bFound)
    {
        ++m_cChangeRecord.nNextItem;
        AddToComment(m_cChangeRecord.strComment, strComment);
        m_cChangeIterator.Update(&m_cChangeRecord, false);
    }
    else
    {
        // The buffer's ID may still hold the last record read; the database
        // numbers the new change whatever it holds.
        m_cChangeRecord.nStreamID = tStream.nID;
        m_cChangeRecord.nProviderID = 0;
        m_cChangeRecord.strUser = strUser;
        m_cChangeRecord.tTime = tNewTime;
        m_cChangeRecord.strComment = strComment;
        m_cChangeRecord.nNextItem = 2;
        m_cChangeRecord.cProps.RemoveAll();
        m_cChangeRecord.SetBaseTime(U32(tNewTime));
        m_cChangeRecord.SetMaxTime(U32(tMaxTime));
        m_cChangeIterator.Add(&m_cChangeRecord, false);
        ++m_nChangeCount;
    }

    m_cChangeItemRecord.nID = m_cChangeRecord.nID;
    m_cChangeItemRecord.nItem = m_cChangeRecord.nNextItem - 1;
    m_cChangeItemRecord.eType = eType;
    m_cChangeItemRecord.cFilePath = cPath;
    m_cChangeItemRecord.nRevision = static_cast<unsigned int>(nRevision);
    m_cChangeItemRecord.cProps.RemoveAll();
    m_cChangeItemRecord.SetCVSRevision(tRevision);
    m_cChangeItemRecord.cTimestamp.Set(tNewTime);
    return m_cChangeItemIterator.Add(&m_cChangeItemRecord, false);
}

bool CProviderBase::UpdateChangeItemCount(unsigned int nChangeID, unsigned int nNextItem)
{
    bool bResult = false;
    VDB::CIterator<TChangeRecord> cIterator = m_cChangeTable.GetIterator(m_pTransaction);
    m_cChangeRecord.nID = nChangeID;
    if (cIterator.GetEqual(&m_cChangeRecord, true))
    {
        m_cChangeRecord.nNextItem = nNextItem;
        bResult = cIterator.Update(&m_cChangeRecord, false);
    }
    cIterator.Close();
    return bResult;
}

bool CProviderBase::CheckForExistingItem(const TChangeRecord& tChange, const VCM::CFilePath& cPath, int& nRevision)
{
    m_cChangeItemRecord.nID = tChange.nID;
    m_cChangeItemRecord.nItem = 0;
    bool bRead = m_cChangeItemIterator.GetGTE(&m_cChangeItemRecord, false);
    while (bRead && m_cChangeItemRecord.nID == tChange.nID)
    {
        if (m_cChangeItemRecord.cFilePath.IsEqualTo(cPath, true))
        {
            nRevision = static_cast<int>(m_cChangeItemRecord.nRevision);
            return true;
        }
        bRead = m_cChangeItemIterator.GetNext(&m_cChangeItemRecord, false);
    }
    return false;
}

unsigned int CProviderBase::FindNearestChange(const TStreamInfo& tStream, long tTime)
{
    PrepareForChanges(false);
    m_cChangeRecord.nStreamID = tStream.nID;
    m_cChangeRecord.tTime = tTime;
    if (m_cChangeIterator.GetLTE(&m_cChangeRecord, false) && m_cChangeRecord.nStreamID == tStream.nID)
        return m_cChangeRecord.nID;
    return 0;
}

namespace {
// Splits off the text before the first '.' of strText into strPiece and
// the text after it into strRest (the '.' is dropped). Without a '.',
// strPiece becomes strWhole and strRest empty.
void SplitSentence(const VCM::CString& strText, const VCM::CString& strWhole, VCM::CString& strPiece,
                   VCM::CString& strRest)
{
    const int nDot = strText.Find(L'.', 0);
    if (nDot < 0)
    {
        strPiece = strWhole;
        strRest = VCM::CString();
    }
    else if (nDot == strText.GetLength())
    {
        strPiece = strText;
        strRest = VCM::CString();
    }
    else
    {
        strPiece = strText.Left(static_cast<size_t>(nDot));
        strRest = strText.Mid(static_cast<size_t>(nDot) + 1);
    }
}
} // namespace

void CProviderBase::AddToComment(VCM::CString& strComment, const VCM::CString& strAdd)
{
    if (strComment == strAdd)
        return;
    // An added text without any full stop contributes nothing: its "piece"
    // is the comment itself.
    VCM::CString strPiece, strRest;
    SplitSentence(strAdd, strComment, strPiece, strRest);
    do
    {
        strPiece.Trim(true).Trim(false);
        if (!strPiece.empty() && strComment.Lower().Find(strPiece.Lower()) == wxNOT_FOUND)
        {
            if (!strComment.empty())
            {
                strComment += L"\n";
                strComment += strPiece;
            }
            else
            {
                strComment = strPiece;
            }
        }
        const VCM::CString strText = strRest;
        SplitSentence(strText, strText, strPiece, strRest);
    } while (!(strPiece.empty() && strRest.empty()));
}

} // namespace MCE
} // namespace ORVANE
