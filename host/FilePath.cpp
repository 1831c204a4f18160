#include "host/FilePath.h"

namespace ORVANE {
namespace VCM {

bool CFilePath::Parse(const wchar_t* psz, int nLength, bool /*bFlag*/)
{
    m_astrItems.clear();
    if (psz == nullptr)
        return false;
    const size_t nLen = nLength < 0 ? wcslen(psz) : static_cast<size_t>(nLength);
    if (nLen == 0)
        return false;
    for (size_t i = 0; i < nLen; ++i)
        if (psz[i] == L'\0')
            return false;

    size_t nPos = 0;
    if (nLen >= 2 && psz[0] == L'/' && psz[1] == L'/')
    {
        m_astrItems.push_back(L"/");
        nPos = 2;
    }
    else if (psz[0] == L'/')
    {
        m_astrItems.push_back(CString());
        nPos = 1;
    }
    while (nPos < nLen)
    {
        size_t nEnd = nPos;
        while (nEnd < nLen && psz[nEnd] != L'/')
            ++nEnd;
        if (nEnd == nPos)
        {
            m_astrItems.clear();
            return false; // an empty component inside the path
        }
        m_astrItems.push_back(CString(wxString(psz + nPos, nEnd - nPos)));
        nPos = nEnd + 1; // a single trailing separator simply ends the loop
    }
    return true;
}

const wchar_t* CFilePath::GetItemText(unsigned nIndex, unsigned* pnLength) const
{
    if (nIndex >= m_astrItems.size())
    {
        if (pnLength)
            *pnLength = 0;
        return L"";
    }
    if (pnLength)
        *pnLength = static_cast<unsigned>(m_astrItems[nIndex].length());
    return m_astrItems[nIndex].wc_str();
}

CString CFilePath::GeneratePath(wchar_t chSeparator, bool /*bFlag*/) const
{
    CString str;
    for (size_t i = 0; i < m_astrItems.size(); ++i)
    {
        if (i > 0)
            str += chSeparator;
        str += m_astrItems[i];
    }
    // A lone root item: "" is the local root, "/" the depot root.
    if (m_astrItems.size() == 1)
    {
        if (m_astrItems[0].empty())
            str = CString(wxString(1, chSeparator));
        else if (m_astrItems[0] == L"/")
            str = CString(wxString(2, chSeparator));
    }
    return str;
}

CString CFilePath::GeneratePath() const
{
    return GeneratePath(L'/', true);
}

CString CFilePath::GeneratePath(const CFilePath& cBase, unsigned /*nFlags*/) const
{
    CString str = cBase.GeneratePath();
    const CString strSelf = GeneratePath();
    if (str.empty())
        return strSelf;
    if (strSelf.empty())
        return str;
    if (str.Last() != L'/')
        str += L'/';
    // A relative path joins as it is; an absolute one loses its root item.
    size_t nSkip = 0;
    while (nSkip < strSelf.length() && strSelf[nSkip] == L'/')
        ++nSkip;
    str += CString(strSelf.Mid(nSkip));
    return str;
}

bool CFilePath::IsSupersetOf(const CFilePath& cOther, CFilePath* pRemainder, bool bCaseInsensitive) const
{
    if (cOther.m_astrItems.size() > m_astrItems.size())
        return false;
    for (size_t i = 0; i < cOther.m_astrItems.size(); ++i)
        if (!ItemsEqual(m_astrItems[i], cOther.m_astrItems[i], bCaseInsensitive))
            return false;
    if (pRemainder)
    {
        std::vector<CString> astrRest(m_astrItems.begin() + static_cast<std::ptrdiff_t>(cOther.m_astrItems.size()),
                                      m_astrItems.end());
        pRemainder->m_astrItems.swap(astrRest);
    }
    return true;
}

bool CFilePath::IsEqualTo(const CFilePath& cOther, bool bCaseInsensitive) const
{
    if (cOther.m_astrItems.size() != m_astrItems.size())
        return false;
    for (size_t i = 0; i < m_astrItems.size(); ++i)
        if (!ItemsEqual(m_astrItems[i], cOther.m_astrItems[i], bCaseInsensitive))
            return false;
    return true;
}

} // namespace VCM
} // namespace ORVANE
