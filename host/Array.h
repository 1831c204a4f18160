// Growable array of values, the host's CArray.
#pragma once

#include <cstdint>

#include "host/Exceptions.h"

namespace ORVANE {
namespace VCM {

// State is three words in this order: capacity, count, storage. Storage is
// made with T's default constructor for every slot; elements are assigned in.
template <typename T>
class CArray
{
public:
    explicit CArray(int nInitial = 0)
    {
        if (nInitial > 0)
        {
            m_pData = new T[nInitial];
            m_nCapacity = nInitial;
        }
    }
    CArray(const CArray& other)
    {
        CopyFrom(other);
    }
    CArray& operator=(const CArray& other)
    {
        if (this != &other)
        {
            RemoveAll(true);
            CopyFrom(other);
        }
        return *this;
    }
    ~CArray() { delete[] m_pData; }

    int GetCount() const { return m_nCount; }
    int GetSize() const { return m_nCount; }
    int GetCapacity() const { return m_nCapacity; }
    bool IsEmpty() const { return m_nCount == 0; }

    // Appends a copy of tValue; returns its index.
    int Add(const T& tValue)
    {
        if (m_nCount == m_nCapacity || m_pData == nullptr)
            Grow();
        m_pData[m_nCount] = tValue;
        return m_nCount++;
    }

    const T& GetAt(int nIndex) const
    {
        Check(nIndex);
        return m_pData[nIndex];
    }
    T& ElementAt(int nIndex)
    {
        Check(nIndex);
        return m_pData[nIndex];
    }
    const T& operator[](int nIndex) const { return GetAt(nIndex); }
    T& operator[](int nIndex) { return ElementAt(nIndex); }
    void SetAt(int nIndex, const T& tValue) { ElementAt(nIndex) = tValue; }

    // With bFree every element is destroyed and the storage released;
    // otherwise the storage is kept and each used slot is reset to T().
    void RemoveAll(bool bFree = true)
    {
        if (bFree)
        {
            delete[] m_pData;
            m_pData = nullptr;
            m_nCapacity = 0;
        }
        else
        {
            for (int i = 0; i < m_nCount; ++i)
                m_pData[i] = T();
        }
        m_nCount = 0;
    }

    // Removes one element, moving the later ones down.
    void RemoveAt(int nIndex)
    {
        Check(nIndex);
        for (int i = nIndex; i + 1 < m_nCount; ++i)
            m_pData[i] = m_pData[i + 1];
        m_pData[--m_nCount] = T();
    }

    const T* GetData() const { return m_pData; }

private:
    void Check(int nIndex) const
    {
        if (nIndex < 0 || nIndex >= m_nCount)
            throw EArrayIndexOutOfRange(nIndex);
    }

    void Grow()
    {
        int32_t nNew = m_nCapacity;
        if (nNew == 0)
            nNew = 16;
        else if (nNew <= m_nCount)
            nNew *= 2;
        T* pNew = new T[nNew];
        for (int i = 0; i < m_nCount; ++i)
            pNew[i] = m_pData[i];
        delete[] m_pData;
        m_pData = pNew;
        m_nCapacity = nNew;
    }

    void CopyFrom(const CArray& other)
    {
        if (other.m_nCount > 0)
        {
            m_pData = new T[other.m_nCount];
            m_nCapacity = other.m_nCount;
            for (int i = 0; i < other.m_nCount; ++i)
                m_pData[i] = other.m_pData[i];
            m_nCount = other.m_nCount;
        }
    }

    int32_t m_nCapacity = 0;
    int32_t m_nCount = 0;
    T* m_pData = nullptr;
};

} // namespace VCM
} // namespace ORVANE
