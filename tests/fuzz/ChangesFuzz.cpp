// The changelist listing reader over arbitrary bytes: every change given has
// a number.
#include <new>

#include "FuzzSupport.h"
#include "mp4/MP4ChangeCmds.h"

using namespace ORVANE;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FUZZ::CInputScope cInput(pData, nSize);
    if (cInput.IsEmpty())
        return 0;
    cInput.Answer("changes", cInput.Body());

    MP4::CChangesCmd cChanges;
    FUZZ::Require(cChanges.EnumChangesForPath(FUZZ::DepotMain()), "the listing runs");
    MP4::TChange tChange;
    size_t nChanges = 0;
    try
    {
        while (cChanges.GetNextChange(tChange))
        {
            ++nChanges;
            FUZZ::Require(nChanges <= cInput.Body().size(), "every change takes bytes of the listing");
            FUZZ::Require(tChange.nChange != 0, "a change has a number");
        }
    }
    catch (const std::bad_alloc&)
    {
        // A string length of 2^32 - 1: an allocation failure by design.
    }
    return 0;
}
