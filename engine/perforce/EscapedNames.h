// Depot file names with '%' escapes, as the server writes them ("%40" for
// '@', "%23" for '#', "%25" for '%', "%2A" for '*'), and how the module reads
// them. The module decodes each path item again and again from its first
// '%' (so "%2541" becomes "%41" and then "A"), and it never finishes an item
// in which a '%' is followed by fewer than two characters ("done 100%" is
// stored as "done 100%25", which it decodes to "done 100%" and then loops
// on). The server and `p4 sync` decode once. The engine must know both: to
// refuse names the module would hang on before it meets them, and to find
// the file that `p4 sync` wrote for an item the module names differently.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

// The module's reading of one depot path.
struct TModuleReading
{
    bool bFinishes = true; // false: the module would never return from it
    std::wstring strPath;  // the path it reports (when it finishes)
};

// The module's item-by-item decoding of a depot path ("//depot/a%2541").
TModuleReading ReadAsModule(const std::wstring& strDepotPath);

// The server's own decoding: every "%XX" once.
std::wstring DecodeOnce(const std::wstring& strDepotPath);

// What the engine learns from the depot's file list.
class CEscapedNames
{
public:
    // Takes one depot path (UTF-8) of the listing.
    void Add(const std::string& strDepotPath);

    // Depot paths (UTF-8, as the server writes them) on which the module
    // would hang, in the order they were added.
    const std::vector<std::string>& GetNeverEnding() const { return m_astrNeverEnding; }

    // For an item that the module reports in the stream whose depot folder is
    // strStreamPath ("//depot/main"), at strItemPath relative to it (both
    // UTF-8): the relative path under which `p4 sync` writes it. The same
    // path when both read the name alike.
    std::string SyncedPath(const std::string& strStreamPath, const std::string& strItemPath) const;

    // How many depot paths the module reads differently from the server.
    size_t CountDiffering() const { return m_mapModuleToServer.size(); }

private:
    // The module's reading -> the server's, for the paths where they differ.
    std::map<std::string, std::string> m_mapModuleToServer;
    std::vector<std::string> m_astrNeverEnding;
};

} // namespace IMP
} // namespace ORVANE
