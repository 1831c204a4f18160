// Each distinct string once, named by a small number: the strings end to
// end in one buffer, found again through an open hash of their numbers.
// For the many depot paths that every record of a long history repeats.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ORVANE {
namespace IMP {

class CStringTable
{
public:
    static constexpr uint32_t npos = UINT32_MAX;

    // The string's number: the one it has, or the next one.
    uint32_t Intern(std::string_view str);
    // The string's number, npos when it has none.
    uint32_t Find(std::string_view str) const;
    // The string of a number it gave (valid until the next Intern).
    std::string_view At(uint32_t nID) const;
    size_t Size() const { return m_anStart.size() - 1; }
    // What the table holds, in bytes.
    size_t Bytes() const;
    void Clear();

private:
    static uint64_t Hash(std::string_view str);
    // The slot of the string: where its number is, or the empty one where
    // it would go.
    size_t Slot(std::string_view str, uint64_t nHash) const;
    void Grow();

    std::string m_strBytes;
    std::vector<uint32_t> m_anStart{0}; // where each string starts; its end is the next one's start
    std::vector<uint32_t> m_anSlots;    // number + 1, 0: empty
};

} // namespace IMP
} // namespace ORVANE
