// The two C functions through which an engine enters a migration module.
//
// A module for the provider id ID (lower-case letters, digits and '_')
// exports, with C linkage and default visibility:
//
//   orvane_em_ID_getoptions     a TModuleGetOptions
//   orvane_em_ID_createprovider a TModuleCreateProvider
//
// and nothing else. An engine finds them with dlsym under the names that
// ModuleGetOptionsName and ModuleCreateProviderName give. Their types are
// part of the binary contract with engines: never change them.
#pragma once

#include <string>

// Marks one of the two exports of a module.
#define ORVANE_MODULE_EXPORT extern "C" __attribute__((visibility("default")))

namespace ORVANE {
namespace MCE {

// Copies the provider id into pszID and its display name into pszName, and
// stores the module's flags (0) in *pnFlags. No lengths are passed: the
// caller's buffers must hold the texts and their terminators.
typedef void TModuleGetOptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags);

// Creates one provider and returns it as an ORVANE::MCE::CProvider*. The
// caller disposes of it with its Destroy(), never with delete.
typedef void* TModuleCreateProvider(void);

inline std::string ModuleGetOptionsName(const std::string& strProviderID)
{
    return "orvane_em_" + strProviderID + "_getoptions";
}

inline std::string ModuleCreateProviderName(const std::string& strProviderID)
{
    return "orvane_em_" + strProviderID + "_createprovider";
}

} // namespace MCE
} // namespace ORVANE
