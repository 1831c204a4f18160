// The trailers that tie each commit to its Perforce changelist: written at
// the end of the commit's message, in the form git interpret-trailers reads.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

// "Perforce-Change" and "Perforce-Path".
extern const char* const g_pszChangeTrailer;
extern const char* const g_pszPathTrailer;
// "Perforce-Integrated": what a change took of another stream without
// merging it.
extern const char* const g_pszIntegratedTrailer;

// The stream's depot path as a pattern of everything below it:
// "//depot/main" -> "//depot/main/...".
std::string DepotPattern(const std::string& strDepotPath);

// The message of a change's commit: its description without trailing
// blanks, then a blank line and the trailers "Perforce-Change: N" and
// "Perforce-Path: <pattern>". A change without a description gets the title
// "Perforce change N" (trailers never stand in the first paragraph). Without
// a number (0) the description is the message, unchanged.
// astrMore: further trailer lines ("Key: value"), after those two.
std::string CommitMessage(const std::string& strComment, unsigned int nChange, const std::string& strDepotPath,
                          const std::vector<std::string>& astrMore = std::vector<std::string>());

// "Perforce-Integrated: //depot/rel1/...@12" for the work of one change of
// another stream, "...@10,@12" for that of a range of its changes.
std::string IntegratedTrailer(const std::string& strDepotPath, unsigned int nFirst, unsigned int nLast);

} // namespace IMP
} // namespace ORVANE
