#include "host/BinaryData.h"

#include <cstring>
#include <new>

namespace ORVANE {
namespace VCM {

CBinaryData::~CBinaryData()
{
    delete[] m_pbData;
}

bool CBinaryData::Allocate(unsigned nSize, bool bKeep)
{
    if (nSize <= m_nSize && m_pbData)
        return true;
    // Grow geometrically so that a reader asking for slightly larger
    // buffers again and again does not reallocate every time.
    unsigned nNew = m_nSize < 64 ? 64 : m_nSize;
    while (nNew < nSize)
        nNew = nNew > 0x7fffffffu ? nSize : nNew * 2;
    unsigned char* pbNew = new unsigned char[nNew];
    if (bKeep && m_pbData)
        std::memcpy(pbNew, m_pbData, m_nSize);
    delete[] m_pbData;
    m_pbData = pbNew;
    m_nSize = nNew;
    return true;
}

} // namespace VCM
} // namespace ORVANE
