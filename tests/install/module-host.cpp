// A host that loads the installed module by dlopen and talks to the
// provider through its interface only.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "mce/ModuleEntry.h"
#include "mce/Provider.h"

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    void* pHandle = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!pHandle)
    {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    void* pGetOptions = dlsym(pHandle, ORVANE::MCE::ModuleGetOptionsName("p4").c_str());
    void* pCreate = dlsym(pHandle, ORVANE::MCE::ModuleCreateProviderName("p4").c_str());
    if (!pGetOptions || !pCreate)
        return 1;
    ORVANE::MCE::TModuleGetOptions* pfnGetOptions;
    ORVANE::MCE::TModuleCreateProvider* pfnCreate;
    std::memcpy(&pfnGetOptions, &pGetOptions, sizeof(pGetOptions));
    std::memcpy(&pfnCreate, &pCreate, sizeof(pCreate));

    wchar_t szID[3], szName[9];
    unsigned int nFlags = 1;
    pfnGetOptions(szID, szName, &nFlags);
    ORVANE::MCE::CProvider* pProvider = static_cast<ORVANE::MCE::CProvider*>(pfnCreate());
    const ORVANE::MCE::TPropertyInfo* pInfo = pProvider->GetPropertyInfo();
    int nRows = 0;
    while (pInfo[nRows].pszKey)
        ++nRows;
    std::printf("%ls %ls %u %s %d\n", szID, szName, nFlags,
                static_cast<const char*>(pProvider->GetProviderName().utf8_str()), nRows);
    pProvider->Destroy();
    dlclose(pHandle);
    return 0;
}
