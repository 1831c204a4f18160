// Whole files read and written as bytes.
#pragma once

#include <string>

namespace ORVANE {
namespace TEST {

// The file's bytes; empty when it cannot be read.
std::string ReadWholeFile(const std::string& strPath);
// Replaces the file's content; false when it cannot be written.
bool WriteWholeFile(const std::string& strPath, const std::string& strData);
// True when something (a symbolic link included) is at the path.
bool Exists(const std::string& strPath);

} // namespace TEST
} // namespace ORVANE
