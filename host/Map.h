// Associative array held as key/value pairs sorted by key, the host's CMap.
#pragma once

#include <cstdint>

#include "host/Exceptions.h"

namespace ORVANE {
namespace VCM {

template <typename K, typename V>
class CMap
{
public:
    struct TPair
    {
        K key;
        V value;
    };

    CMap() = default;
    CMap(const CMap& other) { CopyFrom(other); }
    CMap& operator=(const CMap& other)
    {
        if (this != &other)
        {
            RemoveAll();
            CopyFrom(other);
        }
        return *this;
    }
    ~CMap() { delete[] m_pPairs; }

    int GetCount() const { return m_nCount; }
    bool IsEmpty() const { return m_nCount == 0; }

    // Replaces the value of an equal key, or inserts the pair at its place.
    void SetAt(const K& key, const V& value)
    {
        bool bFound = false;
        const int nPlace = FindPlace(key, bFound);
        if (bFound)
        {
            m_pPairs[nPlace].value = value;
            return;
        }
        if (m_nCount == m_nCapacity)
            Grow();
        for (int i = m_nCount; i > nPlace; --i)
            m_pPairs[i] = m_pPairs[i - 1];
        m_pPairs[nPlace].key = key;
        m_pPairs[nPlace].value = value;
        ++m_nCount;
    }

    // False, with value untouched, when the key is absent.
    bool GetAt(const K& key, V& value) const
    {
        bool bFound = false;
        const int nPlace = FindPlace(key, bFound);
        if (bFound)
            value = m_pPairs[nPlace].value;
        return bFound;
    }
    bool Lookup(const K& key, V& value) const { return GetAt(key, value); }

    bool RemoveKey(const K& key)
    {
        bool bFound = false;
        const int nPlace = FindPlace(key, bFound);
        if (!bFound)
            return false;
        for (int i = nPlace; i + 1 < m_nCount; ++i)
            m_pPairs[i] = m_pPairs[i + 1];
        m_pPairs[--m_nCount] = TPair();
        return true;
    }

    void RemoveAll()
    {
        delete[] m_pPairs;
        m_pPairs = nullptr;
        m_nCapacity = 0;
        m_nCount = 0;
    }

    // Position of the first pair (1-based index), null when empty.
    POSITION GetStartPosition() const { return m_nCount > 0 ? IntToPosition(1) : nullptr; }

    // Returns the pair at the 1-based position and advances it; the position
    // becomes null after the last pair.
    void GetNextAssoc(POSITION& pos, K& key, V& value) const
    {
        const int nIndex = PtrToInt(pos);
        if (nIndex < 1 || nIndex > m_nCount)
            throw EMapIndexOutOfRange(nIndex - 1);
        key = m_pPairs[nIndex - 1].key;
        value = m_pPairs[nIndex - 1].value;
        pos = nIndex < m_nCount ? IntToPosition(nIndex + 1) : nullptr;
    }

private:
    // Binary search: the index of an equal key, or where the key belongs.
    int FindPlace(const K& key, bool& bFound) const
    {
        int nLow = 0;
        int nHigh = m_nCount;
        while (nLow < nHigh)
        {
            const int nMid = nLow + (nHigh - nLow) / 2;
            if (m_pPairs[nMid].key < key)
                nLow = nMid + 1;
            else
                nHigh = nMid;
        }
        bFound = nLow < m_nCount && !(key < m_pPairs[nLow].key);
        return nLow;
    }

    void Grow()
    {
        const int32_t nNew = m_nCapacity == 0 ? 16 : m_nCapacity * 2;
        TPair* pNew = new TPair[nNew];
        for (int i = 0; i < m_nCount; ++i)
            pNew[i] = m_pPairs[i];
        delete[] m_pPairs;
        m_pPairs = pNew;
        m_nCapacity = nNew;
    }

    void CopyFrom(const CMap& other)
    {
        if (other.m_nCount > 0)
        {
            m_pPairs = new TPair[other.m_nCapacity];
            m_nCapacity = other.m_nCapacity;
            for (int i = 0; i < other.m_nCount; ++i)
                m_pPairs[i] = other.m_pPairs[i];
            m_nCount = other.m_nCount;
        }
    }

    int32_t m_nCapacity = 0;
    int32_t m_nCount = 0;
    TPair* m_pPairs = nullptr;
};

} // namespace VCM
} // namespace ORVANE
