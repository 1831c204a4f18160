#include "Trailers.h"

#include "Text.h"

namespace ORVANE {
namespace IMP {

const char* const g_pszChangeTrailer = "Perforce-Change";
const char* const g_pszPathTrailer = "Perforce-Path";
const char* const g_pszIntegratedTrailer = "Perforce-Integrated";

std::string DepotPattern(const std::string& strDepotPath)
{
    std::string str = strDepotPath;
    if (str.size() >= 4 && str.compare(str.size() - 4, 4, "/...") == 0)
        return str;
    if (str.empty() || str.back() != '/')
        str += '/';
    return str + "...";
}

std::string CommitMessage(const std::string& strComment, unsigned int nChange, const std::string& strDepotPath,
                          const std::vector<std::string>& astrMore)
{
    if (nChange == 0)
        return strComment;
    std::string str = TrimmedEnd(strComment);
    const std::string strNumber = std::to_string(nChange);
    if (str.empty())
        str = "Perforce change " + strNumber;
    str += "\n\n" + std::string(g_pszChangeTrailer) + ": " + strNumber + "\n" + g_pszPathTrailer + ": " +
           DepotPattern(strDepotPath) + "\n";
    for (const std::string& strTrailer : astrMore)
        str += strTrailer + "\n";
    return str;
}

std::string IntegratedTrailer(const std::string& strDepotPath, unsigned int nFirst, unsigned int nLast)
{
    std::string str = std::string(g_pszIntegratedTrailer) + ": " + DepotPattern(strDepotPath);
    if (nFirst != 0 && nFirst != nLast)
        str += "@" + std::to_string(nFirst) + ",";
    return str + "@" + std::to_string(nLast);
}

} // namespace IMP
} // namespace ORVANE
