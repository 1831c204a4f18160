// Tables printed for the user: columns lined up, two blanks apart.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

typedef std::vector<std::vector<std::string>> TRows;

// One line per row; every cell but the last of a row is padded to its
// column's width (in characters) plus two blanks.
std::string FormatTable(const TRows& aastrRows);
void PrintTable(const TRows& aastrRows, std::FILE* pOut);

} // namespace IMP
} // namespace ORVANE
