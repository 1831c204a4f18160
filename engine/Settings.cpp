#include "Settings.h"

#include <map>
#include <set>

#include "Stop.h"
#include "Text.h"

namespace ORVANE {
namespace IMP {

namespace {

std::string TypeName(unsigned int nType)
{
    switch (nType)
    {
    case MCE::ePropertyText:
        return "text";
    case MCE::ePropertyBoolean:
        return "boolean";
    case MCE::ePropertyFile:
        return "file";
    default:
        return std::to_string(nType);
    }
}

std::string Text(const wchar_t* psz)
{
    return Utf8(wxString(psz ? psz : L""));
}

} // namespace

TRows SettingRows(const MCE::TPropertyInfo* pInfo)
{
    TRows aastrRows = {{"NAME", "KEY", "DEFAULT", "TYPE"}};
    for (const MCE::TPropertyInfo* p = pInfo; p && p->pszKey; ++p)
        aastrRows.push_back({Text(p->pszDisplayName), Text(p->pszKey), Text(p->pszDefault), TypeName(p->nType)});
    return aastrRows;
}

std::map<std::string, std::string> ApplySettings(MCE::CProvider& cProvider, const TSettings& atGiven)
{
    std::map<std::string, std::string> mapSet;
    const MCE::TPropertyInfo* pInfo = cProvider.GetPropertyInfo();
    std::map<std::string, std::string> mapGiven;
    for (const auto& kv : atGiven)
        mapGiven[kv.first] = kv.second; // the last of a key counts
    std::set<std::string> setKnown;
    for (const MCE::TPropertyInfo* p = pInfo; p && p->pszKey; ++p)
        setKnown.insert(Text(p->pszKey));
    for (const auto& kv : mapGiven)
        if (!setKnown.count(kv.first))
            throw EStop(eExitUsage, "unknown setting '" + kv.first + "' (see --list-settings)");
    for (const MCE::TPropertyInfo* p = pInfo; p && p->pszKey; ++p)
    {
        const std::string strKey = Text(p->pszKey);
        auto it = mapGiven.find(strKey);
        VCM::CString strValue = it != mapGiven.end() ? Wide(it->second) : VCM::CString(p->pszDefault);
        if (p->nType == MCE::ePropertyBoolean && strValue != L"0" && strValue != L"1")
            throw EStop(eExitUsage, "the setting '" + strKey + "' takes 0 or 1");
        VCM::CString strError;
        if (!cProvider.ValidateStringProperty(p->pszKey, strValue, strError))
            throw EStop(eExitUsage, "the setting '" + strKey + "' is not valid: " + Utf8(strError));
        cProvider.SetProperty(VCM::CString(p->pszKey), strValue);
        mapSet[strKey] = Utf8(strValue);
    }
    return mapSet;
}

} // namespace IMP
} // namespace ORVANE
