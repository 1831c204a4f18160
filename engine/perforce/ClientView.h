// The view of the temporary client as the server holds it: which depot
// files a sync of one of its folders writes, and where.
#pragma once

#include <string>
#include <vector>

#include "perforce/P4Query.h"

namespace ORVANE {
namespace IMP {

class CClientView
{
public:
    // Reads the "Client", "Root" and "View0", "View1", ... of the record of
    // "p4 -G client -o". False when the view holds something this reading
    // does not follow (wildcards other than a final "...", overlay lines):
    // then nothing is mapped.
    bool Read(const TP4Record& tSpec);

    // The depot folder ("//depot/main/") that the view maps onto the local
    // folder (an absolute path), when exactly one line maps anything onto
    // it and it maps a whole depot folder; "" otherwise.
    std::string DepotFolderOf(const std::string& strLocalFolder) const;
    // Where the depot file lands, relative to the local folder, as the
    // view maps it ("" when it maps it elsewhere or not at all). The names
    // are the server's (escapes such as "%40" are left as they are).
    std::string LocalPathBelow(const std::string& strLocalFolder, const std::string& strDepotFile) const;

private:
    struct TLine
    {
        bool bExclude = false;
        std::string strDepot; // the depot side without its final "..."
        std::string strLocal; // the client side, below the root, without its final "..."
    };

    // The last line that matches the depot file, or nullptr.
    const TLine* LineOf(const std::string& strDepotFile) const;
    // The folder below the root ("main/"), or "" when the path is not
    // below the root.
    std::string BelowRoot(const std::string& strLocalFolder) const;

    std::string m_strRoot;
    std::vector<TLine> m_atLines;
};

} // namespace IMP
} // namespace ORVANE
