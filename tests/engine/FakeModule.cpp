// Modules that are not quite right, for the engine's module loading: for
// the provider id "half" only the identity export, for "none" both exports
// but no provider.
#include <cwchar>

#include "mce/ModuleEntry.h"

ORVANE_MODULE_EXPORT ORVANE::MCE::TModuleGetOptions orvane_em_half_getoptions;
ORVANE_MODULE_EXPORT ORVANE::MCE::TModuleGetOptions orvane_em_none_getoptions;
ORVANE_MODULE_EXPORT ORVANE::MCE::TModuleCreateProvider orvane_em_none_createprovider;

ORVANE_MODULE_EXPORT void orvane_em_half_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags)
{
    std::wcscpy(pszID, L"half");
    std::wcscpy(pszName, L"Half");
    *pnFlags = 0;
}

ORVANE_MODULE_EXPORT void orvane_em_none_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags)
{
    std::wcscpy(pszID, L"none");
    std::wcscpy(pszName, L"Nothing at all");
    *pnFlags = 5;
}

ORVANE_MODULE_EXPORT void* orvane_em_none_createprovider(void)
{
    return nullptr;
}
