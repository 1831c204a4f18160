#include "CaseFolding.h"

#include <iterator>

namespace ORVANE {
namespace IMP {

std::string CaselessKey(const std::string& strPath)
{
    // As the server compares: ASCII letters without case, every other byte
    // as it is (the same whatever the locale).
    std::string str = strPath;
    for (char& c : str)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return str;
}

void CFolderSpelling::Seed(const TTree& tTree)
{
    for (const auto& kv : tTree)
        Fold(kv.first);
}

std::string CFolderSpelling::Fold(const std::string& strPath)
{
    std::string strFolded;
    size_t nStart = 0;
    for (size_t nSlash; (nSlash = strPath.find('/', nStart)) != std::string::npos; nStart = nSlash + 1)
    {
        const std::string strCandidate = strFolded + strPath.substr(nStart, nSlash - nStart);
        auto it = m_mapSpelling.emplace(CaselessKey(strCandidate), strCandidate).first;
        strFolded = it->second + "/";
    }
    return strFolded + strPath.substr(nStart);
}

void CFolderSpelling::Apply(const TTree& tTree, const TTreeDelta& tDelta, TTree& tFolded, TTreeDelta& tFoldedDelta)
{
    tFolded.clear();
    tFoldedDelta = TTreeDelta();
    for (const auto& kv : tTree)
        tFolded[Fold(kv.first)] = kv.second;
    for (const std::string& str : tDelta.setRemoved)
        tFoldedDelta.Removed(Fold(str));
    for (const std::string& str : tDelta.setChanged)
        tFoldedDelta.Changed(Fold(str));
    // A path removed in one spelling and there in another stays.
    for (auto it = tFoldedDelta.setRemoved.begin(); it != tFoldedDelta.setRemoved.end();)
        it = tFolded.count(*it) ? tFoldedDelta.setRemoved.erase(it) : std::next(it);
}

} // namespace IMP
} // namespace ORVANE
