// Text conversions and names shared by the tests and their helper programs.
#pragma once

#include <string>

namespace ORVANE {
namespace TEST {

// UTF-8 of a wide text (one wchar_t a code point); code points that UTF-8
// cannot carry become U+FFFD.
std::string Utf8(const std::wstring& str);
// The wide text of UTF-8 bytes; bytes that are not valid UTF-8 become U+FFFD.
std::wstring Wide(const std::string& str);

// The name under which the prepared-answer stand-in for p4 finds the answer
// to an argument text: every character other than an ASCII letter, a digit,
// '.' or '-' becomes '_' ("-G branch -o b1" -> "-G_branch_-o_b1").
std::string FeedName(const std::string& strArgs);

} // namespace TEST
} // namespace ORVANE
