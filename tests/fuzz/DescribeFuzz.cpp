// The describe reader over arbitrary bytes: the description, then the file
// entries; every entry given has a revision and a known action.
//
// Depot paths whose %XX decoding never returns are kept away: the module's
// decoding examines an item that comes to end in '%' or in '%' and one
// character again and again, by design, so such an input would only stop the
// fuzzer. Every depot file value of the input is read beforehand with the
// same reader and the same locale, and the input is refused when one of them
// would spin.
#include <new>

#include "FuzzSupport.h"
#include "mp4/MP4ChangeCmds.h"

using namespace ORVANE;

namespace {

bool WouldSpin()
{
    FUZZ::CReaderCmd cScan;
    FUZZ::Require(cScan.Execute(L"-G describe 7"), "the scan runs");
    VCM::CString strKey, strValue;
    try
    {
        int nResult;
        while ((nResult = cScan.GetNextPair(strKey, strValue)) != 0)
        {
            if (nResult != 1 || strKey.Left(9).CmpNoCase(L"depotFile") != 0)
                continue;
            VCM::CFilePath cPath;
            cPath.Parse(strValue, -1, false);
            if (FUZZ::HexDecodingNeverEnds(cPath))
                return true;
        }
    }
    catch (const std::bad_alloc&)
    {
        // Nothing after an absurd length is read.
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FUZZ::CInputScope cInput(pData, nSize);
    if (cInput.IsEmpty())
        return 0;
    cInput.Answer("describe", cInput.Body());
    if (WouldSpin())
        return -1; // not kept in the corpus

    MP4::CDescribeCmd cDescribe;
    VCM::CString strDescription;
    size_t nItems = 0;
    try
    {
        if (!cDescribe.EnumItemsForChange(7, strDescription))
            return 0;
        MP4::TChangeItem tItem;
        while (cDescribe.GetNextItem(tItem))
        {
            ++nItems;
            FUZZ::Require(nItems <= cInput.Body().size(), "every entry takes bytes of the output");
            FUZZ::Require(tItem.nRev != 0, "an entry has a revision");
            FUZZ::Require(tItem.eAction >= MP4::eActionAdd && tItem.eAction <= MP4::eActionDelete, "a known action");
        }
    }
    catch (const std::bad_alloc&)
    {
        // A string length of 2^32 - 1: an allocation failure by design.
    }
    return 0;
}
