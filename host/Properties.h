// Bag of binary properties keyed by a 16-bit id.
#pragma once

#include <cstdint>
#include <vector>

#include "host/String.h"

namespace ORVANE {
namespace VCM {

class CProperties
{
public:
    CProperties() = default;
    CProperties(const CProperties& other);
    CProperties& operator=(const CProperties& other);
    ~CProperties() = default;

    // Adds a property; false when one with this id is present already.
    bool AddProperty(unsigned short nId, const void* pData, unsigned nSize);
    // Replaces the bytes of an existing property; false when there is none.
    bool ChangeProperty(unsigned short nId, const void* pData, unsigned nSize);
    // Removes one property; false when there is none.
    bool RemoveProperty(unsigned short nId);

    // Stores nValue as 4 big-endian bytes: replaces, or adds when absent.
    bool SetProperty(unsigned short nId, unsigned int nValue)
    {
        unsigned char abBytes[4];
        EncodeUInt32(nValue, abBytes);
        bool bResult = ChangeProperty(nId, abBytes, 4);
        if (!bResult)
            bResult = AddProperty(nId, abBytes, 4);
        return bResult;
    }
    // Stores text as UTF-8 bytes: replaces, or adds when absent.
    bool SetProperty(unsigned short nId, const wxString& str);

    // False when absent or not 4 bytes long; otherwise the big-endian value.
    bool GetProperty(unsigned short nId, unsigned int& nValue) const;
    // False when absent; otherwise the stored UTF-8 bytes as text.
    bool GetProperty(unsigned short nId, CString& strValue) const;
    // Pointer to the stored bytes and their size, or null when absent.
    const unsigned char* GetPropertyData(unsigned short nId, unsigned* pnSize) const;
    bool HasProperty(unsigned short nId) const { return Find(nId) >= 0; }

    // Number of properties and access by position (0 .. count-1), in the
    // order they were added.
    int GetCount() const { return m_nCount; }
    unsigned short GetIdAt(int nIndex) const { return m_aEntries[static_cast<size_t>(nIndex)].nId; }
    const std::vector<unsigned char>& GetDataAt(int nIndex) const { return m_aEntries[static_cast<size_t>(nIndex)].abData; }

    // Empties the bag; the storage is kept for reuse.
    void RemoveAll() { m_nCount = 0; }

    bool operator==(const CProperties& other) const;
    bool operator!=(const CProperties& other) const { return !(*this == other); }

    static void EncodeUInt32(uint32_t nValue, unsigned char* pbOut)
    {
        pbOut[0] = static_cast<unsigned char>(nValue >> 24);
        pbOut[1] = static_cast<unsigned char>(nValue >> 16);
        pbOut[2] = static_cast<unsigned char>(nValue >> 8);
        pbOut[3] = static_cast<unsigned char>(nValue);
    }

private:
    struct TEntry
    {
        unsigned short nId = 0;
        std::vector<unsigned char> abData;
    };

    int Find(unsigned short nId) const;

    std::vector<TEntry> m_aEntries; // slots beyond m_nCount are spare storage
    int m_nCount = 0;
};

} // namespace VCM
} // namespace ORVANE
