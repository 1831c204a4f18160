// The module's two exports. Everything else of the module is hidden.
#include <cwchar>
#include <type_traits>

#include "mce/ModuleEntry.h"
#include "mp4/MP4Provider.h"

// Declared through the framework's types first: a definition of another
// type would not compile.
ORVANE_MODULE_EXPORT ORVANE::MCE::TModuleCreateProvider orvane_em_p4_createprovider;
ORVANE_MODULE_EXPORT ORVANE::MCE::TModuleGetOptions orvane_em_p4_getoptions;
static_assert(std::is_same<decltype(orvane_em_p4_createprovider), ORVANE::MCE::TModuleCreateProvider>::value,
              "the provider factory has the framework's type");
static_assert(std::is_same<decltype(orvane_em_p4_getoptions), ORVANE::MCE::TModuleGetOptions>::value,
              "the identity export has the framework's type");

ORVANE_MODULE_EXPORT void* orvane_em_p4_createprovider(void)
{
    ORVANE::MCE::CProvider* pProvider = new ORVANE::MP4::CProvider;
    return pProvider;
}

ORVANE_MODULE_EXPORT void orvane_em_p4_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags)
{
    // The caller's buffers hold at least 3 and 9 wide characters.
    std::wcscpy(pszID, L"p4");
    std::wcscpy(pszName, L"Perforce");
    *pnFlags = 0;
}
