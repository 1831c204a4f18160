// RCS keywords as Perforce expands them in files of a +k type: `p4 sync`
// writes "$Id: //depot/a.c#3 $" where the depot holds "$Id$", so every
// revision and every branch would differ in those lines. The engine puts
// them back to their unexpanded form before a file goes into git.
#pragma once

#include <string>

namespace ORVANE {
namespace IMP {

// How a file type expands keywords.
enum TKeywordMode
{
    eKeywordsNone,  // no expansion
    eKeywordsAll,   // +k: every keyword
    eKeywordsIdOnly // +ko: $Id$ and $Header$ only
};

// The keyword mode of a Perforce file type: "ktext", "kxtext",
// "text+k", "text+kx", "binary+ko", "ktext+S", ...
TKeywordMode KeywordMode(const std::string& strType);

// Collapses every expanded keyword of the mode ("$Change: 1234 $") back to
// its unexpanded form ("$Change$"). Returns whether anything changed.
bool CollapseKeywords(std::string& strText, TKeywordMode eMode);

} // namespace IMP
} // namespace ORVANE
