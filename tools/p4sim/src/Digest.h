// Digests and encodings, from nettle: the MD5 of file revisions as the
// server shows it, and base64 for binary contents in history files.
#pragma once

#include <string>

namespace ORVANE {
namespace P4SIM {

// MD5 of the bytes, as 32 upper-case hexadecimal digits (the form of the
// server's digest field).
std::string Md5Hex(const std::string& strData);

// Blanks, line ends and '=' are skipped; any other byte outside the
// alphabet throws std::runtime_error.
std::string Base64Decode(const std::string& strText);
std::string Base64Encode(const std::string& strData);

} // namespace P4SIM
} // namespace ORVANE
