// Finding the provider's import log while it is being written. The log is a
// temporary file whose name starts with "Orvane", and the provider names it
// only when it ends the log; but the supervisor must be able to point the
// user to it after a worker that never got that far.
#pragma once

#include <set>
#include <string>

namespace ORVANE {
namespace IMP {

// The files of the folder for temporary files ($TMPDIR, else /tmp) whose
// names start as an import log's do.
std::set<std::string> ListImportLogs();

// The one such file that is new since the listing; empty when there is none,
// or more than one (another run made its own at the same time).
std::string NewImportLog(const std::set<std::string>& setBefore);

} // namespace IMP
} // namespace ORVANE
