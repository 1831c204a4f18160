#include "Verify.h"

#include <cstdio>

namespace ORVANE {
namespace IMP {

namespace {

std::string Mode(unsigned n)
{
    char ach[16];
    std::snprintf(ach, sizeof(ach), "%06o", n);
    return ach;
}

} // namespace

std::string TreeDifference(const TTree& tGit, const TTree& tFolder)
{
    auto itG = tGit.begin();
    auto itF = tFolder.begin();
    for (; itG != tGit.end() || itF != tFolder.end(); ++itG, ++itF)
    {
        if (itF == tFolder.end() || (itG != tGit.end() && itG->first < itF->first))
            return "'" + itG->first + "' is in git but not in the folder";
        if (itG == tGit.end() || itF->first < itG->first)
            return "'" + itF->first + "' is in the folder but not in git";
        if (itG->second != itF->second)
            return "'" + itG->first + "' differs: git has " + Mode(itG->second.nMode) + " " + itG->second.strBlob +
                   ", the folder " + Mode(itF->second.nMode) + " " + itF->second.strBlob;
    }
    return std::string();
}

} // namespace IMP
} // namespace ORVANE
