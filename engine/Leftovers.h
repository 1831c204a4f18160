// What a run leaves in the temporary folders while it works (the module's
// staging files, the temporary workspace), and its removal once the process
// that made it is gone: a run killed with SIGKILL cleans up nothing itself.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

// The folder of the module's staging files: the module fixes it.
extern const char* const g_pszStagingFolder;
// The two staging files of a process are this with ".tdf" and ".tlf".
std::string StagingPrefix(const std::string& strFolder, long nPid);
extern const char* const g_apszStagingSuffixes[2];
// The process whose staging file the name is; 0 when it is none.
pid_t StagingOwner(const std::string& strName);

// Removes the entries of the folder whose owner (fnOwner of the name, 0 when
// the name is not one of ours) is a process that is gone: only this user's
// regular files, or with bFolders this user's folders with all in them,
// never a symbolic link. The paths removed.
std::vector<std::string> RemoveLeftovers(const std::string& strFolder,
                                         const std::function<pid_t(const std::string&)>& fnOwner, bool bFolders);

} // namespace IMP
} // namespace ORVANE
