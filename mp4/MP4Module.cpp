// The module's two exports. Everything else of the module is hidden.
#include <cwchar>

#include "mp4/MP4Provider.h"

#define ORVANE_EXPORT extern "C" __attribute__((visibility("default")))

ORVANE_EXPORT void* orvane_em_p4_createprovider(void)
{
    ORVANE::MCE::CProvider* pProvider = new ORVANE::MP4::CProvider;
    return pProvider;
}

ORVANE_EXPORT void orvane_em_p4_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags)
{
    // The caller's buffers hold at least 3 and 9 wide characters.
    std::wcscpy(pszID, L"p4");
    std::wcscpy(pszName, L"Perforce");
    *pnFlags = 0;
}
