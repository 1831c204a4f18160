// The marshalled record reader over arbitrary bytes: every call gives one of
// its four results, every call but the last consumes input, and the end is
// final. Mode bit 1: the bytes come as the error output of a failing
// command instead, whose first line the command base logs.
#include <new>

#include "FuzzSupport.h"

using namespace ORVANE;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FUZZ::CInputScope cInput(pData, nSize);
    if (cInput.IsEmpty())
        return 0;
    const std::string& strBytes = cInput.Body();
    FUZZ::CReaderCmd cCmd;
    VCM::CString strKey, strValue;
    if (cInput.Mode() & 2)
    {
        cInput.Answer("test", "", strBytes, 1);
        FUZZ::Require(!cCmd.Execute(L"-G test"), "a failed command counts as failed");
        FUZZ::Require(cCmd.GetNextPair(strKey, strValue) == 0, "a failed command has nothing to read");
        return 0;
    }

    cInput.Answer("test", strBytes);
    FUZZ::Require(cCmd.Execute(L"-G test"), "the command runs");
    size_t nCalls = 0;
    try
    {
        int nResult;
        do
        {
            nResult = cCmd.GetNextPair(strKey, strValue);
            FUZZ::Require(nResult >= 0 && nResult <= 3, "a result is 0, 1, 2 or 3");
            ++nCalls;
            FUZZ::Require(nCalls <= strBytes.size() + 1, "every call before the end consumes a byte");
        } while (nResult != 0);
    }
    catch (const std::bad_alloc&)
    {
        // A string length of 2^32 - 1 leaves no room for the terminator:
        // the reader ends in an allocation failure by design.
        return 0;
    }
    FUZZ::Require(cCmd.GetNextPair(strKey, strValue) == 0, "the end is final");
    FUZZ::Require(!cCmd.ReadString(strKey), "no string after the end");
    return 0;
}
