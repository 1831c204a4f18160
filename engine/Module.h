// A migration module loaded with dlopen, entered through its two exports.
#pragma once

#include <string>
#include <vector>

#include "mce/ModuleEntry.h"
#include "mce/Provider.h"

namespace ORVANE {
namespace IMP {

class CModule
{
public:
    // Provider ids are lower-case letters, digits and '_'.
    static bool IsValidID(const std::string& strID);
    // The file name of the module for the provider id.
    static std::string FileName(const std::string& strID);
    // The folders to look in: the installation's lib/orvane/ next to this
    // program, then the build tree's when there is one.
    static std::vector<std::string> Folders();
    // The module file in the first folder that has one; throws EStop
    // (usage) naming the first candidate when none has.
    static std::string Find(const std::string& strID, const std::vector<std::string>& astrFolders);

    // Loads the file and finds the provider's exports, then asks the
    // module for its identity. Throws EStop (usage) when the file cannot
    // be loaded or lacks either export. The module stays loaded until the
    // process ends: whatever it registered to run at exit must find its
    // code in place.
    void Load(const std::string& strPath, const std::string& strID);
    // A new provider from the module; throws EStop when it made none.
    MCE::CProvider* CreateProvider() const;

    // What the module said of itself.
    const std::string& ProviderID() const { return m_strProviderID; }
    const std::string& ProviderName() const { return m_strProviderName; }
    unsigned int Flags() const { return m_nFlags; }

private:
    void* m_pHandle = nullptr;
    MCE::TModuleGetOptions* m_pfnGetOptions = nullptr;
    MCE::TModuleCreateProvider* m_pfnCreateProvider = nullptr;
    std::string m_strProviderID;
    std::string m_strProviderName;
    unsigned int m_nFlags = 0;
};

} // namespace IMP
} // namespace ORVANE
