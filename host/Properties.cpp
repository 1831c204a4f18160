#include "host/Properties.h"

#include <cstring>

namespace ORVANE {
namespace VCM {

CProperties::CProperties(const CProperties& other)
    : m_aEntries(other.m_aEntries.begin(), other.m_aEntries.begin() + other.m_nCount), m_nCount(other.m_nCount)
{
}

CProperties& CProperties::operator=(const CProperties& other)
{
    if (this == &other)
        return *this;
    if (m_aEntries.size() < static_cast<size_t>(other.m_nCount))
        m_aEntries.resize(static_cast<size_t>(other.m_nCount));
    for (int i = 0; i < other.m_nCount; ++i)
        m_aEntries[static_cast<size_t>(i)] = other.m_aEntries[static_cast<size_t>(i)];
    m_nCount = other.m_nCount;
    return *this;
}

int CProperties::Find(unsigned short nId) const
{
    for (int i = 0; i < m_nCount; ++i)
        if (m_aEntries[static_cast<size_t>(i)].nId == nId)
            return i;
    return -1;
}

bool CProperties::AddProperty(unsigned short nId, const void* pData, unsigned nSize)
{
    if (Find(nId) >= 0 || (pData == nullptr && nSize != 0))
        return false;
    if (m_aEntries.size() <= static_cast<size_t>(m_nCount))
        m_aEntries.emplace_back();
    TEntry& tEntry = m_aEntries[static_cast<size_t>(m_nCount)];
    tEntry.nId = nId;
    const unsigned char* pb = static_cast<const unsigned char*>(pData);
    tEntry.abData.assign(pb, pb + nSize);
    ++m_nCount;
    return true;
}

bool CProperties::ChangeProperty(unsigned short nId, const void* pData, unsigned nSize)
{
    const int nIndex = Find(nId);
    if (nIndex < 0 || (pData == nullptr && nSize != 0))
        return false;
    const unsigned char* pb = static_cast<const unsigned char*>(pData);
    m_aEntries[static_cast<size_t>(nIndex)].abData.assign(pb, pb + nSize);
    return true;
}

bool CProperties::RemoveProperty(unsigned short nId)
{
    const int nIndex = Find(nId);
    if (nIndex < 0)
        return false;
    for (int i = nIndex; i + 1 < m_nCount; ++i)
        std::swap(m_aEntries[static_cast<size_t>(i)], m_aEntries[static_cast<size_t>(i + 1)]);
    --m_nCount;
    return true;
}

bool CProperties::SetProperty(unsigned short nId, const wxString& str)
{
    const wxScopedCharBuffer utf8 = str.utf8_str();
    const unsigned nSize = static_cast<unsigned>(utf8.length());
    bool bResult = ChangeProperty(nId, utf8.data(), nSize);
    if (!bResult)
        bResult = AddProperty(nId, utf8.data(), nSize);
    return bResult;
}

bool CProperties::GetProperty(unsigned short nId, unsigned int& nValue) const
{
    const int nIndex = Find(nId);
    if (nIndex < 0)
        return false;
    const std::vector<unsigned char>& ab = m_aEntries[static_cast<size_t>(nIndex)].abData;
    if (ab.size() != 4)
        return false;
    nValue = (static_cast<uint32_t>(ab[0]) << 24) | (static_cast<uint32_t>(ab[1]) << 16) |
             (static_cast<uint32_t>(ab[2]) << 8) | static_cast<uint32_t>(ab[3]);
    return true;
}

bool CProperties::GetProperty(unsigned short nId, CString& strValue) const
{
    const int nIndex = Find(nId);
    if (nIndex < 0)
        return false;
    const std::vector<unsigned char>& ab = m_aEntries[static_cast<size_t>(nIndex)].abData;
    strValue = wxString::FromUTF8(reinterpret_cast<const char*>(ab.data()), ab.size());
    return true;
}

const unsigned char* CProperties::GetPropertyData(unsigned short nId, unsigned* pnSize) const
{
    const int nIndex = Find(nId);
    if (nIndex < 0)
        return nullptr;
    const std::vector<unsigned char>& ab = m_aEntries[static_cast<size_t>(nIndex)].abData;
    if (pnSize)
        *pnSize = static_cast<unsigned>(ab.size());
    return ab.data();
}

bool CProperties::operator==(const CProperties& other) const
{
    if (m_nCount != other.m_nCount)
        return false;
    for (int i = 0; i < m_nCount; ++i)
    {
        const TEntry& a = m_aEntries[static_cast<size_t>(i)];
        const TEntry& b = other.m_aEntries[static_cast<size_t>(i)];
        if (a.nId != b.nId || a.abData != b.abData)
            return false;
    }
    return true;
}

} // namespace VCM
} // namespace ORVANE
