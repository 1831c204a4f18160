// git's pattern matching of .gitattributes: stars, double stars, brackets,
// classes and escapes, byte by byte.
#include <string>

#include <gtest/gtest.h>

#include "Wildmatch.h"

using ORVANE::IMP::WildMatch;

TEST(WildMatchTest, LiteralsQuestionMarksAndStars)
{
    EXPECT_TRUE(WildMatch("foo", "foo", true));
    EXPECT_FALSE(WildMatch("foo", "fooo", true));
    EXPECT_FALSE(WildMatch("foo", "fo", true));
    EXPECT_TRUE(WildMatch("f?o", "fxo", true));
    EXPECT_FALSE(WildMatch("f?o", "f/o", true));
    EXPECT_TRUE(WildMatch("f?o", "f/o", false));
    EXPECT_TRUE(WildMatch("*.psd", "a.psd", true));
    EXPECT_TRUE(WildMatch("*.psd", ".psd", true));
    EXPECT_FALSE(WildMatch("*.psd", "dir/a.psd", true));
    EXPECT_TRUE(WildMatch("*.psd", "dir/a.psd", false));
    EXPECT_TRUE(WildMatch("dir/*", "dir/a", true));
    EXPECT_FALSE(WildMatch("dir/*", "dir/a/b", true));
    EXPECT_TRUE(WildMatch("*/b/*", "a/b/c", true));
    EXPECT_FALSE(WildMatch("*/b/*", "a/x/b/c", true));
    EXPECT_TRUE(WildMatch("a*b*c", "axxbyyc", true));
    EXPECT_FALSE(WildMatch("a*b*c", "axxbyy", true));
    // A byte at a time: 'é' is two of them.
    EXPECT_FALSE(WildMatch("caf?.psd", "caf\xc3\xa9.psd", true));
    EXPECT_TRUE(WildMatch("caf??.psd", "caf\xc3\xa9.psd", true));
    EXPECT_TRUE(WildMatch("caf*.psd", "caf\xc3\xa9.psd", true));
}

TEST(WildMatchTest, DoubleStarsAsWholeComponentsCrossFolders)
{
    EXPECT_TRUE(WildMatch("assets/**", "assets/a.png", true));
    EXPECT_TRUE(WildMatch("assets/**", "assets/a/b/c.png", true));
    EXPECT_FALSE(WildMatch("assets/**", "assets", true));
    EXPECT_FALSE(WildMatch("assets/**", "other/a.png", true));
    EXPECT_TRUE(WildMatch("**/b", "b", true));
    EXPECT_TRUE(WildMatch("**/b", "x/y/b", true));
    EXPECT_FALSE(WildMatch("**/b", "x/yb", true));
    EXPECT_TRUE(WildMatch("a/**/b", "a/b", true));
    EXPECT_TRUE(WildMatch("a/**/b", "a/x/b", true));
    EXPECT_TRUE(WildMatch("a/**/b", "a/x/y/b", true));
    EXPECT_FALSE(WildMatch("a/**/b", "a/xb", true));
    EXPECT_TRUE(WildMatch("**", "a/b/c", true));
    EXPECT_TRUE(WildMatch("**/*.psd", "art/x/y.psd", true));
    // Not a whole component: a plain star.
    EXPECT_TRUE(WildMatch("a/**b", "a/xb", true));
    EXPECT_FALSE(WildMatch("a/**b", "a/x/b", true));
    EXPECT_TRUE(WildMatch("a**", "abc", true));
    EXPECT_FALSE(WildMatch("a**", "a/c", true));
}

TEST(WildMatchTest, BracketsClassesAndEscapes)
{
    EXPECT_TRUE(WildMatch("[abc].txt", "b.txt", true));
    EXPECT_FALSE(WildMatch("[abc].txt", "d.txt", true));
    EXPECT_FALSE(WildMatch("[!abc].txt", "b.txt", true));
    EXPECT_TRUE(WildMatch("[!abc].txt", "d.txt", true));
    EXPECT_TRUE(WildMatch("[^abc].txt", "d.txt", true));
    EXPECT_TRUE(WildMatch("[a-c]x", "bx", true));
    EXPECT_FALSE(WildMatch("[a-c]x", "dx", true));
    EXPECT_TRUE(WildMatch("[]]", "]", true));
    EXPECT_TRUE(WildMatch("[]-]", "-", true));
    EXPECT_TRUE(WildMatch("[a-]", "-", true));
    EXPECT_TRUE(WildMatch("[\\]]", "]", true));
    EXPECT_TRUE(WildMatch("[[:digit:]]x", "5x", true));
    EXPECT_FALSE(WildMatch("[[:digit:]]x", "ax", true));
    EXPECT_TRUE(WildMatch("a[[:space:]]b", "a b", true));
    EXPECT_TRUE(WildMatch("a[[:space:]]b", "a\tb", true));
    EXPECT_FALSE(WildMatch("a[[:space:]]b", "a_b", true));
    EXPECT_TRUE(WildMatch("[[:upper:][:digit:]]", "Q", true));
    EXPECT_TRUE(WildMatch("[[:alpha:]]", "q", true));
    EXPECT_FALSE(WildMatch("[[:alpha:]]", "\xc3", true));
    EXPECT_TRUE(WildMatch("[[:punct:]]", "!", true));
    EXPECT_TRUE(WildMatch("[[:xdigit:]]", "F", true));
    EXPECT_TRUE(WildMatch("[[]", "[", true));
    EXPECT_TRUE(WildMatch("[[:x]", ":", true));
    EXPECT_FALSE(WildMatch("[/]", "/", true));
    EXPECT_TRUE(WildMatch("[/]", "/", false));
    // Malformed: matches nothing.
    EXPECT_FALSE(WildMatch("[abc", "a", true));
    EXPECT_FALSE(WildMatch("[abc", "[abc", true));
    EXPECT_FALSE(WildMatch("[[:bogus:]]", "b", true));
    EXPECT_FALSE(WildMatch("a\\", "a\\", true));
    // Escapes.
    EXPECT_TRUE(WildMatch("st\\*r", "st*r", true));
    EXPECT_FALSE(WildMatch("st\\*r", "star", true));
    EXPECT_TRUE(WildMatch("\\#x", "#x", true));
    EXPECT_TRUE(WildMatch("a\\\\b", "a\\b", true));
    EXPECT_TRUE(WildMatch("\\[x]", "[x]", true));
}

// A matcher without the early ends of its stars would not come back from
// these within the test's timeout.
TEST(WildMatchTest, ManyStarsGiveUpEarly)
{
    EXPECT_FALSE(WildMatch("*a*a*a*a*a*a*a*a*a*a*a*a*b", std::string(60, 'a'), true));
    EXPECT_FALSE(WildMatch("**/**/**/**/**/**/**/x", std::string(40, 'a') + "/y", true));
    EXPECT_TRUE(WildMatch("*a*a*a*a*a*a*b", std::string(60, 'a') + "b", true));
}
