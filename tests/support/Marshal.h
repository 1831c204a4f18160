// Marshalled bytes as "p4 -G" writes them, for prepared answers and seeds.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ORVANE {
namespace TEST {

// A little-endian 32-bit number as 4 bytes.
std::string Le32(uint32_t n);
// One string item: 's', the length as Le32, the bytes.
std::string MarshalString(const std::string& str);
// One integer item: 'i' and the number as Le32.
std::string MarshalInteger(uint32_t n);
// One record: '{', each pair as two string items, '0'.
std::string MarshalRecord(const std::vector<std::pair<std::string, std::string>>& atPairs);

} // namespace TEST
} // namespace ORVANE
