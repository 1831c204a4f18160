#include "Table.h"

#include <algorithm>

#include "Text.h"

namespace ORVANE {
namespace IMP {

std::string FormatTable(const TRows& aastrRows)
{
    std::vector<size_t> anWidths;
    for (const auto& astrRow : aastrRows)
        for (size_t i = 0; i < astrRow.size(); ++i)
        {
            if (anWidths.size() <= i)
                anWidths.push_back(0);
            anWidths[i] = std::max(anWidths[i], Width(astrRow[i]));
        }
    std::string strText;
    for (const auto& astrRow : aastrRows)
    {
        for (size_t i = 0; i < astrRow.size(); ++i)
        {
            strText += astrRow[i];
            if (i + 1 < astrRow.size())
                strText += std::string(anWidths[i] - Width(astrRow[i]) + 2, ' ');
        }
        strText += '\n';
    }
    return strText;
}

void PrintTable(const TRows& aastrRows, std::FILE* pOut)
{
    const std::string strText = FormatTable(aastrRows);
    std::fwrite(strText.data(), 1, strText.size(), pOut);
    std::fflush(pOut);
}

} // namespace IMP
} // namespace ORVANE
