// Growable byte buffer owned by its holder.
#pragma once

#include <cstddef>

namespace ORVANE {
namespace VCM {

class CBinaryData
{
public:
    CBinaryData() = default;
    CBinaryData(const CBinaryData&) = delete;
    CBinaryData& operator=(const CBinaryData&) = delete;
    ~CBinaryData();

    // Makes the buffer at least nSize bytes. With bKeep the old contents
    // survive; otherwise they need not. False when memory cannot be had.
    bool Allocate(unsigned nSize, bool bKeep);

    unsigned char* GetData() { return m_pbData; }
    const unsigned char* GetData() const { return m_pbData; }
    unsigned GetSize() const { return m_nSize; }

private:
    unsigned char* m_pbData = nullptr;
    unsigned m_nSize = 0;
};

} // namespace VCM
} // namespace ORVANE
