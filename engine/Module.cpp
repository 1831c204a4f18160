#include "Module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <filesystem>

#include "Process.h"
#include "Stop.h"
#include "Text.h"

#ifndef ORVANE_IMPORT_MODULE_DIR
#define ORVANE_IMPORT_MODULE_DIR "../lib/orvane"
#endif
#ifndef ORVANE_IMPORT_BUILD_MODULE_DIR
#define ORVANE_IMPORT_BUILD_MODULE_DIR ""
#endif

namespace ORVANE {
namespace IMP {

namespace {

std::string ExecutableFolder()
{
    const std::string str = ExecutablePath();
    return str.substr(0, str.rfind('/'));
}

// dlsym gives an object pointer; its bits are the function's address.
template <typename TFunction> TFunction* Export(void* pHandle, const std::string& strName)
{
    void* p = dlsym(pHandle, strName.c_str());
    TFunction* pfn = nullptr;
    static_assert(sizeof(pfn) == sizeof(p), "function and object pointers differ in size");
    std::memcpy(&pfn, &p, sizeof(p));
    return pfn;
}

} // namespace

bool CModule::IsValidID(const std::string& strID)
{
    for (char c : strID)
        if (!(std::islower(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c)) || c == '_'))
            return false;
    return true;
}

std::string CModule::FileName(const std::string& strID)
{
    return "liborvane-em-" + strID + ".so";
}

std::vector<std::string> CModule::Folders()
{
    std::vector<std::string> astrFolders = {ExecutableFolder() + "/" ORVANE_IMPORT_MODULE_DIR};
    const std::string strBuild = ORVANE_IMPORT_BUILD_MODULE_DIR;
    if (!strBuild.empty())
        astrFolders.push_back(strBuild);
    return astrFolders;
}

std::string CModule::Find(const std::string& strID, const std::vector<std::string>& astrFolders)
{
    const std::string strFile = FileName(strID);
    for (const std::string& strFolder : astrFolders)
    {
        std::error_code ec;
        if (std::filesystem::exists(strFolder + "/" + strFile, ec))
            return strFolder + "/" + strFile;
    }
    throw EStop(eExitUsage, "no module for the provider '" + strID + "' (looked for " +
                                (astrFolders.empty() ? strFile : astrFolders[0] + "/" + strFile) + ")");
}

void CModule::Load(const std::string& strPath, const std::string& strID)
{
    m_pHandle = dlopen(strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_pHandle)
        throw EStop(eExitUsage, std::string("cannot load ") + strPath + ": " + dlerror());
    m_pfnGetOptions = Export<MCE::TModuleGetOptions>(m_pHandle, MCE::ModuleGetOptionsName(strID));
    m_pfnCreateProvider = Export<MCE::TModuleCreateProvider>(m_pHandle, MCE::ModuleCreateProviderName(strID));
    if (!m_pfnGetOptions || !m_pfnCreateProvider)
        throw EStop(eExitUsage, strPath + " is not a migration module for the provider '" + strID + "'");
    wchar_t szID[256] = {0}, szName[256] = {0};
    m_nFlags = 0;
    m_pfnGetOptions(szID, szName, &m_nFlags);
    m_strProviderID = Utf8(wxString(szID));
    m_strProviderName = Utf8(wxString(szName));
}

MCE::CProvider* CModule::CreateProvider() const
{
    MCE::CProvider* pProvider = static_cast<MCE::CProvider*>(m_pfnCreateProvider());
    if (!pProvider)
        throw EStop(eExitFailure, "the module created no provider");
    return pProvider;
}

} // namespace IMP
} // namespace ORVANE
