// The check that a commit holds exactly what the provider synced.
#pragma once

#include <string>

#include "Tree.h"

namespace ORVANE {
namespace IMP {

// The first difference, in path order, between the commit's tree and the
// folder's: "'PATH' is in git but not in the folder", "'PATH' is in the
// folder but not in git" or "'PATH' differs: git has MODE BLOB, the folder
// MODE BLOB". Empty when they are the same.
std::string TreeDifference(const TTree& tGit, const TTree& tFolder);

} // namespace IMP
} // namespace ORVANE
