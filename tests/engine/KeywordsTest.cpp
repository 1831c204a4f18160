// RCS keywords of +k files back to their unexpanded form.
#include <gtest/gtest.h>

#include "perforce/Keywords.h"

using namespace ORVANE::IMP;

TEST(Keywords, TheModeComesFromTheType)
{
    EXPECT_EQ(eKeywordsNone, KeywordMode("text"));
    EXPECT_EQ(eKeywordsNone, KeywordMode("binary+x"));
    EXPECT_EQ(eKeywordsNone, KeywordMode("text+S"));
    EXPECT_EQ(eKeywordsAll, KeywordMode("ktext"));
    EXPECT_EQ(eKeywordsAll, KeywordMode("kxtext"));
    EXPECT_EQ(eKeywordsAll, KeywordMode("text+k"));
    EXPECT_EQ(eKeywordsAll, KeywordMode("text+kx"));
    EXPECT_EQ(eKeywordsAll, KeywordMode("ktext+S"));
    EXPECT_EQ(eKeywordsIdOnly, KeywordMode("text+ko"));
    EXPECT_EQ(eKeywordsIdOnly, KeywordMode("binary+ko"));
    EXPECT_EQ(eKeywordsIdOnly, KeywordMode("text+xko"));
}

TEST(Keywords, EveryExpandedKeywordIsCollapsed)
{
    std::string str = "/* $Id: //depot/main/a.c#3 $\n"
                      " * $Header: //depot/main/a.c#3 $\n"
                      " * $Date: 2026/01/02 $ $DateUTC: 2026/01/02 $\n"
                      " * $DateTime: 2026/01/02 03:04:05 $ $DateTimeUTC: 2026/01/02 11:04:05 $\n"
                      " * $DateTimeTZ: 2026/01/02 03:04:05 -0800 PST $\n"
                      " * $Change: 1234 $ $File: //depot/main/a.c $ $Revision: #3 $ $Author: jo $\n"
                      " */\n";
    EXPECT_TRUE(CollapseKeywords(str, eKeywordsAll));
    EXPECT_EQ("/* $Id$\n"
              " * $Header$\n"
              " * $Date$ $DateUTC$\n"
              " * $DateTime$ $DateTimeUTC$\n"
              " * $DateTimeTZ$\n"
              " * $Change$ $File$ $Revision$ $Author$\n"
              " */\n",
              str);
}

TEST(Keywords, KoCollapsesIdAndHeaderOnly)
{
    std::string str = "$Id: //depot/a.c#3 $ $Header: //depot/a.c#3 $ $Change: 12 $ $Author: jo $";
    EXPECT_TRUE(CollapseKeywords(str, eKeywordsIdOnly));
    EXPECT_EQ("$Id$ $Header$ $Change: 12 $ $Author: jo $", str);
}

TEST(Keywords, WhatIsNoExpandedKeywordStays)
{
    for (const char* psz : {"costs $5 and $6", "$Id$ unexpanded", "$Idea: not a keyword $",
                            "$Id: runs past\nthe line $", "$Id: no end", "$Change:", "plain", "$Revisions: 3 $", ""})
    {
        std::string str = psz;
        EXPECT_FALSE(CollapseKeywords(str, eKeywordsAll)) << psz;
        EXPECT_EQ(psz, str);
    }
    std::string str = "$Id: //depot/a.c#1 $";
    EXPECT_FALSE(CollapseKeywords(str, eKeywordsNone));
    EXPECT_EQ("$Id: //depot/a.c#1 $", str);
}

TEST(Keywords, TextAroundAndBytesBeyondAsciiAreKept)
{
    std::string str = std::string("caf\xC3\xA9 $Author: ren\xC3\xA9 $ \0 end $Change: 7 $", 41);
    EXPECT_TRUE(CollapseKeywords(str, eKeywordsAll));
    EXPECT_EQ(std::string("caf\xC3\xA9 $Author$ \0 end $Change$", 29), str);
}
