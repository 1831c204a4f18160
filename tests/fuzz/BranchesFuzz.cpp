// The branch spec readers: arbitrary bytes for the listing ("branches") and
// for every spec's details ("branch -o"), the two parts of the input. Every
// branch given has a name and at least one view line, each with both sides,
// all at or below the path.
#include <new>

#include "FuzzSupport.h"
#include "mp4/MP4BranchCmds.h"

using namespace ORVANE;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FUZZ::CInputScope cInput(pData, nSize);
    if (cInput.IsEmpty())
        return 0;
    const std::vector<std::string> astrParts = cInput.Parts(2);
    cInput.Answer("branches", astrParts[0]);
    cInput.Answer("branch", astrParts[1]);

    const VCM::CFilePath cBase = FUZZ::DepotMain();
    MP4::CBranchesCmd cBranches;
    FUZZ::Require(cBranches.EnumBranchesForPath(cBase), "the listing runs");
    MP4::TBranch tBranch;
    size_t nBranches = 0;
    try
    {
        while (cBranches.GetNextBranch(tBranch))
        {
            ++nBranches;
            FUZZ::Require(nBranches <= astrParts[0].size(), "every branch takes bytes of the listing");
            FUZZ::Require(!tBranch.strName.empty(), "a branch has a name");
            FUZZ::Require(tBranch.aSourcePaths.GetCount() > 0, "a branch has a view line");
            FUZZ::Require(tBranch.aSourcePaths.GetCount() == tBranch.aTargetPaths.GetCount(), "both sides");
            for (int i = 0; i < tBranch.aSourcePaths.GetCount(); ++i)
                FUZZ::Require(tBranch.aSourcePaths[i].IsSupersetOf(cBase, nullptr, false) &&
                                  tBranch.aTargetPaths[i].IsSupersetOf(cBase, nullptr, false),
                              "view lines lie below the path");
        }
    }
    catch (const std::bad_alloc&)
    {
        // A string length of 2^32 - 1: an allocation failure by design.
    }
    return 0;
}
