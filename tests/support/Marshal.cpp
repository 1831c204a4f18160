#include "Marshal.h"

namespace ORVANE {
namespace TEST {

std::string Le32(uint32_t n)
{
    std::string str;
    for (int i = 0; i < 4; ++i)
        str += static_cast<char>((n >> (8 * i)) & 0xFF);
    return str;
}

std::string MarshalString(const std::string& str)
{
    return "s" + Le32(static_cast<uint32_t>(str.size())) + str;
}

std::string MarshalInteger(uint32_t n)
{
    return "i" + Le32(n);
}

std::string MarshalRecord(const std::vector<std::pair<std::string, std::string>>& atPairs)
{
    std::string str = "{";
    for (const auto& tPair : atPairs)
        str += MarshalString(tPair.first) + MarshalString(tPair.second);
    return str + "0";
}

} // namespace TEST
} // namespace ORVANE
