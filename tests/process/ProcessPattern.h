// The byte sequence the test child writes for "bytes" and "both", so that
// the tests can check large outputs byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ORVANE {
namespace TEST {

inline unsigned char PatternByte(uint64_t nIndex)
{
    uint32_t n = static_cast<uint32_t>(nIndex) * 2654435761u;
    n ^= n >> 15;
    n += static_cast<uint32_t>(nIndex >> 24);
    return static_cast<unsigned char>(n >> 8);
}

// Fills p with the pattern bytes from nStart on.
inline void FillPattern(unsigned char* p, size_t nCount, uint64_t nStart)
{
    for (size_t i = 0; i < nCount; ++i)
        p[i] = PatternByte(nStart + i);
}

} // namespace TEST
} // namespace ORVANE
