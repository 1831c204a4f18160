#include "FakeProvider.h"

namespace enginetest {

using ORVANE::IMP::Utf8;
using ORVANE::IMP::Wide;

TStreamInfo FakeStream(unsigned nID, unsigned nParent, const std::string& strName, const std::string& strDst,
                       const std::string& strSrc)
{
    TStreamInfo t;
    t.nID = nID;
    t.nParentID = nParent;
    t.strName = Wide(strName);
    t.cDstPath.Parse(Wide(strDst).wc_str(), -1, false);
    if (!strSrc.empty())
        t.cSrcPath.Parse(Wide(strSrc).wc_str(), -1, false);
    return t;
}

int CFakeProvider::Result(const std::string& strCall, int nNormal)
{
    Record(strCall);
    auto it = m_mapResults.find(strCall);
    return it == m_mapResults.end() ? nNormal : it->second;
}

int CFakeProvider::GetNextStream(POSITION& pos, TStreamInfo& tInfo, unsigned int nParentID)
{
    for (size_t n = size_t(ORVANE::PtrToInt(pos)); n < m_atStreams.size(); ++n)
        if (m_atStreams[n].nParentID == nParentID)
        {
            tInfo = m_atStreams[n];
            pos = ORVANE::IntToPosition(int(n + 1));
            return Result("GetNextStream " + std::to_string(nParentID), 0);
        }
    pos = ORVANE::IntToPosition(int(m_atStreams.size()));
    return Result("GetNextStream " + std::to_string(nParentID), 2);
}

int CFakeProvider::CheckEnvironment(CString& strError)
{
    strError = Wide(m_strEnvironmentWarning);
    return Result("CheckEnvironment", m_strEnvironmentWarning.empty() ? 0 : 1);
}

int CFakeProvider::EstablishStreams(unsigned int& nCount)
{
    nCount = unsigned(m_atStreams.size());
    return Result("EstablishStreams", 0);
}

int CFakeProvider::OnBeginStream(unsigned int nStreamID, const wchar_t* pszRoot)
{
    m_nStream = nStreamID;
    m_strRoot = Utf8(wxString(pszRoot));
    return Result("OnBeginStream " + std::to_string(nStreamID) + " " + m_strRoot, 0);
}

int CFakeProvider::EstablishChangesets(unsigned int& nCount)
{
    nCount = 0;
    for (const auto& kv : m_mapChanges)
        nCount += unsigned(kv.second.size());
    return Result("EstablishChangesets", 0);
}

int CFakeProvider::FillChange(size_t nIndex, TChangeInfo& tInfo)
{
    const std::vector<TFakeChange>& at = m_mapChanges[m_nStream];
    m_nChange = nIndex;
    if (nIndex >= at.size())
        return 2;
    tInfo.nID = at[nIndex].nID;
    tInfo.strUser = Wide(at[nIndex].strUser);
    tInfo.tTime = at[nIndex].tTime;
    tInfo.strComment = Wide(at[nIndex].strComment);
    tInfo.nItemCount = unsigned(at[nIndex].atItems.size() + 1);
    return 0;
}

unsigned CFakeProvider::CurrentNumber() const
{
    auto it = m_mapChanges.find(m_nStream);
    return it != m_mapChanges.end() && m_nChange < it->second.size() ? it->second[m_nChange].nNumber : 0;
}

int CFakeProvider::OnFirstChangeset(TChangeInfo& tInfo)
{
    return Result("OnFirstChangeset", FillChange(0, tInfo));
}

int CFakeProvider::OnNextChangeset(TChangeInfo& tInfo)
{
    return Result("OnNextChangeset", FillChange(m_nChange + 1, tInfo));
}

int CFakeProvider::OnProcessChange(TChangeInfo& tInfo)
{
    const TFakeChange& t = m_mapChanges[m_nStream][m_nChange];
    if (t.fnSync)
        t.fnSync(m_strRoot);
    return Result("OnProcessChange " + std::to_string(tInfo.nID), 0);
}

int CFakeProvider::FillItem(size_t nIndex, TChangeItemInfo& tInfo)
{
    const TFakeChange& t = m_mapChanges[m_nStream][m_nChange];
    m_nItem = nIndex;
    if (nIndex >= t.atItems.size())
        return 2;
    tInfo.nChangeID = t.nID;
    tInfo.eType = t.atItems[nIndex].eType;
    tInfo.cFilePath.Parse(Wide(t.atItems[nIndex].strPath).wc_str(), -1, false);
    tInfo.nRevision = t.atItems[nIndex].nRevision;
    return 0;
}

int CFakeProvider::OnFirstChangeItem(TChangeItemInfo& tInfo)
{
    return Result("OnFirstChangeItem", FillItem(0, tInfo));
}

int CFakeProvider::OnNextChangeItem(TChangeItemInfo& tInfo)
{
    return Result("OnNextChangeItem", FillItem(m_nItem + 1, tInfo));
}

void CFakeProvider::SetProperty(const CString& strKey, const CString& strValue)
{
    m_atSet.emplace_back(Utf8(strKey), Utf8(strValue));
}

bool CFakeProvider::ValidateStringProperty(const wchar_t* pszKey, CString& strValue, CString& strError)
{
    Record("ValidateStringProperty " + Utf8(wxString(pszKey)));
    if (m_strRejected.empty() || Utf8(strValue) != m_strRejected)
        return true;
    strError = L"not this one";
    return false;
}

bool CFakeProvider::InitialiseClients(const CString& strRootFolder)
{
    Record("InitialiseClients " + Utf8(strRootFolder));
    return m_bClientsResult;
}

bool CFakeProvider::RemoveClients()
{
    Record("RemoveClients");
    return true;
}

} // namespace enginetest
