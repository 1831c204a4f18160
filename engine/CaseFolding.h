// Folder names of a source that compares paths without case: on such a
// server //depot/main/Src/a.c and //depot/main/src/b.c lie in one folder,
// while a sync on Linux writes two. In git they are one folder again,
// spelt as it was first seen.
#pragma once

#include <map>
#include <string>

#include "Tree.h"

namespace ORVANE {
namespace IMP {

class CFolderSpelling
{
public:
    // Takes the spellings of a tree written before (a branch that an
    // earlier run left), so that they stay.
    void Seed(const TTree& tTree);
    // The path with each of its folders spelt as first seen (the file's own
    // name as it is).
    std::string Fold(const std::string& strPath);
    // The tree and delta with every path folded.
    void Apply(const TTree& tTree, const TTreeDelta& tDelta, TTree& tFolded, TTreeDelta& tFoldedDelta);

private:
    // The folder path without case -> its spelling.
    std::map<std::string, std::string> m_mapSpelling;
};

// A path compared without case: its ASCII letters in lower case, as the
// server compares them.
std::string CaselessKey(const std::string& strPath);

} // namespace IMP
} // namespace ORVANE
