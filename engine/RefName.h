// Branch names for streams.
#pragma once

#include <set>
#include <string>

namespace ORVANE {
namespace IMP {

// A valid ref name below refs/heads/ for the stream name, different from
// every name in setUsed (compared without regard to case, so that the refs
// also live side by side on a case-insensitive file system); it is added to
// setUsed.
std::string MakeBranchName(const std::string& strStreamName, std::set<std::string>& setUsed);

} // namespace IMP
} // namespace ORVANE
