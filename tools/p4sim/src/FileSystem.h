// Files and folders as p4sim reads and writes them.
#pragma once

#include <string>

namespace ORVANE {
namespace P4SIM {

std::string ReadWholeFile(const std::string& strPath); // throws std::runtime_error
bool FileExists(const std::string& strPath);
void MakeDirs(const std::string& strDir); // like mkdir -p; throws on failure
std::string DirName(const std::string& strPath);
std::string JoinPath(const std::string& strDir, const std::string& strRelative);
std::string NormalizePath(const std::string& strPath); // removes . and .. and //
std::string CurrentDir();
long long FileSize(const std::string& strPath); // -1 when it does not exist

} // namespace P4SIM
} // namespace ORVANE
