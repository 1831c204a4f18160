#include "Trailers.h"

#include "Text.h"

namespace ORVANE {
namespace IMP {

const char* const g_pszChangeTrailer = "Perforce-Change";
const char* const g_pszPathTrailer = "Perforce-Path";

std::string DepotPattern(const std::string& strDepotPath)
{
    std::string str = strDepotPath;
    if (str.size() >= 4 && str.compare(str.size() - 4, 4, "/...") == 0)
        return str;
    if (str.empty() || str.back() != '/')
        str += '/';
    return str + "...";
}

std::string CommitMessage(const std::string& strComment, unsigned int nChange, const std::string& strDepotPath)
{
    if (nChange == 0)
        return strComment;
    std::string str = TrimmedEnd(strComment);
    const std::string strNumber = std::to_string(nChange);
    if (str.empty())
        str = "Perforce change " + strNumber;
    return str + "\n\n" + g_pszChangeTrailer + ": " + strNumber + "\n" + g_pszPathTrailer + ": " +
           DepotPattern(strDepotPath) + "\n";
}

} // namespace IMP
} // namespace ORVANE
