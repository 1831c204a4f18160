// Where the compiler put things, read from member pointers as the Itanium
// C++ ABI represents them (GCC and Clang on 32- and 64-bit x86 Linux): the
// slot of a virtual operation in its class's table of virtual functions and
// the byte offset of a data member. Nothing has to be constructed, and
// protected members can be reached through a pointer named in a derived
// class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define ORVANE_TEST_ITANIUM_LAYOUT 1

namespace ORVANE {
namespace TEST {

// A pointer to a virtual member function holds 1 + the slot's byte offset,
// then the adjustment of this.
template <typename TPointer>
long VirtualSlot(TPointer pMember)
{
    struct TRaw
    {
        intptr_t nPtr;
        intptr_t nAdjust;
    } tRaw;
    static_assert(sizeof(pMember) == sizeof(tRaw), "Itanium member function pointer");
    std::memcpy(&tRaw, &pMember, sizeof(tRaw));
    return static_cast<long>((tRaw.nPtr - 1) / static_cast<intptr_t>(sizeof(void*)));
}

// A pointer to a data member holds the member's byte offset from the start
// of its class.
template <typename TClass, typename TMember>
long MemberOffset(TMember TClass::*pMember)
{
    ptrdiff_t nOffset;
    static_assert(sizeof(pMember) == sizeof(nOffset), "Itanium data member pointer");
    std::memcpy(&nOffset, &pMember, sizeof(nOffset));
    return static_cast<long>(nOffset);
}

} // namespace TEST
} // namespace ORVANE

#endif
