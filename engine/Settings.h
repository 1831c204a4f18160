// The provider's settings: listed for the user, and set from the command
// line over their defaults.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Table.h"
#include "mce/Provider.h"

namespace ORVANE {
namespace IMP {

typedef std::vector<std::pair<std::string, std::string>> TSettings; // key, value (UTF-8)

// The settings table: a heading row, then NAME, KEY, DEFAULT and TYPE of
// each row of the provider's table.
TRows SettingRows(const MCE::TPropertyInfo* pInfo);

// Sets every setting of the provider's table: the given value, else its
// default. Throws EStop (usage) for a key the table lacks, a boolean that
// is not 0 or 1, or a value the provider rejects; nothing is set then
// beyond the settings before it in the table. Returns every key with the
// value it was set to.
std::map<std::string, std::string> ApplySettings(MCE::CProvider& cProvider, const TSettings& atGiven);

} // namespace IMP
} // namespace ORVANE
