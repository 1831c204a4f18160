// The changelist trailers of a commit message, as git reads them back.
#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "Trailers.h"

using namespace ORVANE::IMP;
using namespace enginetest;

namespace {

// What git interpret-trailers --parse makes of the message.
std::string ParsedTrailers(const std::string& strMessage)
{
    const TResult r = RunProgram({"git", "interpret-trailers", "--parse"},
                                 {{"GIT_CONFIG_NOSYSTEM", "1"}, {"GIT_CONFIG_GLOBAL", "/dev/null"}}, strMessage);
    EXPECT_EQ(0, r.nStatus) << r.strErr;
    return r.strOut;
}

} // namespace

TEST(Trailers, DepotPatternCoversEverythingBelowThePath)
{
    EXPECT_EQ("//depot/main/...", DepotPattern("//depot/main"));
    EXPECT_EQ("//depot/main/...", DepotPattern("//depot/main/"));
    EXPECT_EQ("//depot/main/...", DepotPattern("//depot/main/..."));
    EXPECT_EQ("//depot/r\xC3\xA9 1/...", DepotPattern("//depot/r\xC3\xA9 1"));
}

TEST(Trailers, EndTheDescriptionAfterABlankLine)
{
    EXPECT_EQ("Fix the build\n\nPerforce-Change: 42\nPerforce-Path: //depot/main/...\n",
              CommitMessage("Fix the build\n", 42, "//depot/main"));
    EXPECT_EQ("Two lines\n\nthe second\n\nPerforce-Change: 7\nPerforce-Path: //depot/rel1/...\n",
              CommitMessage("Two lines\n\nthe second \n\n\n", 7, "//depot/rel1"));
    EXPECT_EQ("Perforce change 9\n\nPerforce-Change: 9\nPerforce-Path: //depot/main/...\n",
              CommitMessage(" \n", 9, "//depot/main"));
    // No number: the description as it is.
    EXPECT_EQ("as it is \n", CommitMessage("as it is \n", 0, "//depot/main"));
}

TEST(Trailers, AreWhatGitParses)
{
    const std::string strTrailers = "Perforce-Change: 42\nPerforce-Path: //depot/main/...\n";
    EXPECT_EQ(strTrailers, ParsedTrailers(CommitMessage("Fix the build", 42, "//depot/main")));
    EXPECT_EQ(strTrailers, ParsedTrailers(CommitMessage("", 42, "//depot/main")));
    // A description that ends in lines of its own that look like trailers:
    // only the changelist's are the message's trailers.
    EXPECT_EQ(strTrailers,
              ParsedTrailers(CommitMessage("Merge\n\nReviewed-by: jo\nSee: ticket 5", 42, "//depot/main")));
    // A one-line description that looks like a trailer is still the title.
    EXPECT_EQ(strTrailers, ParsedTrailers(CommitMessage("Note: read me", 42, "//depot/main")));
}
