#include "RefName.h"

#include <cctype>

namespace ORVANE {
namespace IMP {

namespace {

std::string Lower(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The characters and sequences that git check-ref-format refuses become
// '_'.
std::string ValidName(const std::string& strStreamName)
{
    std::string str;
    for (unsigned char c : strStreamName)
    {
        const bool bBad = c < 0x20 || c == 0x7f || c == ' ' || c == '~' || c == '^' || c == ':' || c == '?' ||
                          c == '*' || c == '[' || c == '\\' || c == '/';
        str += bBad ? '_' : char(c);
    }
    for (size_t n; (n = str.find("..")) != std::string::npos;)
        str[n] = '_';
    for (size_t n; (n = str.find("@{")) != std::string::npos;)
        str[n] = '_';
    if (str.empty() || str == "@")
        str = "stream";
    if (str[0] == '.' || str[0] == '-')
        str[0] = '_';
    if (str.back() == '.')
        str.back() = '_';
    if (str.size() >= 5 && str.compare(str.size() - 5, 5, ".lock") == 0)
        str += "_";
    return str;
}

} // namespace

std::string MakeBranchName(const std::string& strStreamName, std::set<std::string>& setUsed)
{
    const std::string str = ValidName(strStreamName);
    std::string strName = str;
    for (int n = 2; setUsed.count(Lower(strName)); ++n)
        strName = str + "-" + std::to_string(n);
    setUsed.insert(Lower(strName));
    return strName;
}

} // namespace IMP
} // namespace ORVANE
