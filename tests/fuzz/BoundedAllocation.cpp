// The byte buffers of the fuzz programs cannot grow beyond 16 MiB.
//
// The reader makes room for a string's length before it reads the string
// (the module's kept behaviour), and wx's Read zeroes the whole destination
// first: a broken length field costs up to 4 GiB of memory, written, before
// the output turns out to be short. That is far beyond the fuzzer's memory
// limit and would stop every run at the first such input. Here a larger
// buffer cannot be had: the allocation fails with std::bad_alloc, as new[]
// does when memory runs out, which is the outcome the reader documents for an
// absurd length. Smaller buffers come from the host library's own Allocate.
//
// This definition takes the place of the host library's in the programs
// that link it (the executable's definition wins over the shared library's).
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/BinaryData.h"

namespace ORVANE {
namespace VCM {

namespace {

const unsigned s_nLimit = 16u << 20;

// The host library's Allocate: a member function is called with the object
// as its first argument.
using TAllocate = bool (*)(CBinaryData*, unsigned, bool);

TAllocate HostAllocate()
{
    static const TAllocate s_pfn = [] {
        void* p = ::dlsym(RTLD_NEXT, "_ZN6ORVANE3VCM11CBinaryData8AllocateEjb");
        if (p == nullptr)
        {
            std::fprintf(stderr, "fuzz: the host library's CBinaryData::Allocate was not found\n");
            std::abort();
        }
        // dlsym gives an object pointer; its bits are the function's address.
        TAllocate pfn = nullptr;
        static_assert(sizeof(pfn) == sizeof(p), "function and object pointers differ in size");
        std::memcpy(&pfn, &p, sizeof(p));
        return pfn;
    }();
    return s_pfn;
}

} // namespace

bool CBinaryData::Allocate(unsigned nSize, bool bKeep)
{
    if (nSize > s_nLimit)
        throw std::bad_alloc();
    return HostAllocate()(this, nSize, bKeep);
}

} // namespace VCM
} // namespace ORVANE
