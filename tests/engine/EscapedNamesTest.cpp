// How the module reads escaped depot names, and what the engine makes of a
// depot's file list: names it would hang on, names it reads differently.
#include <gtest/gtest.h>

#include "perforce/EscapedNames.h"

using namespace ORVANE::IMP;

TEST(EscapedNames, ModuleDecodesEachItemUntilNoEscapeIsLeft)
{
    EXPECT_EQ(L"//depot/a@b.txt", ReadAsModule(L"//depot/a%40b.txt").strPath);
    EXPECT_EQ(L"//depot/*/*", ReadAsModule(L"//depot/%2a/%2A").strPath);
    // "%2541" is "%41" once decoded, and the module decodes that as well.
    EXPECT_EQ(L"//depot/pctA.txt", ReadAsModule(L"//depot/pct%2541.txt").strPath);
    EXPECT_EQ(L"//depot/a b.txt", ReadAsModule(L"//depot/a%2520b.txt").strPath);
    EXPECT_EQ(L"//depot/plain", ReadAsModule(L"//depot/plain").strPath);
    EXPECT_TRUE(ReadAsModule(L"//depot/a%2520b.txt").bFinishes);
}

TEST(EscapedNames, AnItemThatCannotBeDecodedLeavesTheRestAsItIs)
{
    const TModuleReading t = ReadAsModule(L"//depot/x%zz%40/y%40");
    EXPECT_TRUE(t.bFinishes);
    EXPECT_EQ(L"//depot/x%zz%40/y%40", t.strPath);
    EXPECT_EQ(L"//depot/@/x%zz/y%40", ReadAsModule(L"//depot/%40/x%zz/y%40").strPath);
}

TEST(EscapedNames, NamesTheModuleNeverFinishes)
{
    // A '%' with fewer than two characters after it, at once or after a
    // round of decoding.
    EXPECT_FALSE(ReadAsModule(L"//depot/done 100%").bFinishes);
    EXPECT_FALSE(ReadAsModule(L"//depot/done 100%25").bFinishes);
    EXPECT_FALSE(ReadAsModule(L"//depot/x%4").bFinishes);
    EXPECT_FALSE(ReadAsModule(L"//depot/50%25/file").bFinishes);
    EXPECT_FALSE(ReadAsModule(L"//depot/a%252525").bFinishes);
    EXPECT_TRUE(ReadAsModule(L"//depot/a%25252541").bFinishes);
    EXPECT_EQ(L"//depot/aA", ReadAsModule(L"//depot/a%25252541").strPath);
}

TEST(EscapedNames, ServerDecodesOnce)
{
    EXPECT_EQ(L"//depot/pct%41.txt", DecodeOnce(L"//depot/pct%2541.txt"));
    EXPECT_EQ(L"//depot/done 100%", DecodeOnce(L"//depot/done 100%25"));
    EXPECT_EQ(L"//depot/a@b#c*d", DecodeOnce(L"//depot/a%40b%23c%2Ad"));
    EXPECT_EQ(L"//depot/x%zz%4", DecodeOnce(L"//depot/x%zz%4"));
}

TEST(EscapedNames, ListingGivesNeverEndingNamesAndSyncedPaths)
{
    CEscapedNames cNames;
    for (const char* psz :
         {"//depot/main/plain.txt", "//depot/main/pct%2541.txt", "//depot/main/done 100%25", "//depot/main/a%2520b.txt",
          "//depot/main/at%40sign", "//depot/rel/50%25/f", "//depot/main/caf\xC3\xA9%2541"})
        cNames.Add(psz);
    EXPECT_EQ((std::vector<std::string>{"//depot/main/done 100%25", "//depot/rel/50%25/f"}), cNames.GetNeverEnding());
    EXPECT_EQ(3u, cNames.CountDiffering());
    EXPECT_EQ("pct%41.txt", cNames.SyncedPath("//depot/main", "pctA.txt"));
    EXPECT_EQ("a%20b.txt", cNames.SyncedPath("//depot/main", "a b.txt"));
    EXPECT_EQ("caf\xC3\xA9%41", cNames.SyncedPath("//depot/main", "caf\xC3\xA9"
                                                                  "A"));
    // Read alike, or not known: the same path.
    EXPECT_EQ("at@sign", cNames.SyncedPath("//depot/main", "at@sign"));
    EXPECT_EQ("plain.txt", cNames.SyncedPath("//depot/main", "plain.txt"));
    EXPECT_EQ("pctA.txt", cNames.SyncedPath("//depot/other", "pctA.txt"));
}
