// Identities: the authors file and the server's users as a CAuthors reads
// them, and orvane-import end to end with `p4 users`, --authors and
// --authors-missing.
#include <gtest/gtest.h>

#include "Authors.h"
#include "EngineHarness.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;

namespace {

std::string Text(const TIdent& t)
{
    return t.strName + " <" + t.strEmail + ">";
}

} // namespace

TEST(Authors, TheUserIsTheTextBeforeTheFirstAt)
{
    EXPECT_EQ("jo", PerforceUser("jo@ws"));
    EXPECT_EQ("jo", PerforceUser("jo@ws@odd"));
    EXPECT_EQ("max", PerforceUser("max"));
    EXPECT_EQ("", PerforceUser("@ws"));
}

TEST(Authors, FileLinesOverrideTheServersUsers)
{
    CAuthors cAuthors;
    cAuthors.AddServerUser("jo", TIdent{"Jo Doe", "jo@example.com"});
    cAuthors.AddServerUser("max", TIdent{"Max M", "max@example.com"});
    cAuthors.AddServerUser("nameless", TIdent{"", "nameless@example.com"});
    cAuthors.ParseFile("# the team\n"
                       "\n"
                       "  max =  Max Mustermann   <max@mustermann.example>  \n"
                       "ann=Ann Other <>\r\n"
                       "   # indented comment\n",
                       "team.txt");
    EXPECT_EQ("Jo Doe <jo@example.com>", Text(cAuthors.Ident("jo@jo-ws")));
    EXPECT_EQ("Max Mustermann <max@mustermann.example>", Text(cAuthors.Ident("max@max-box")));
    EXPECT_EQ("Ann Other <>", Text(cAuthors.Ident("ann@x")));
    EXPECT_EQ("nameless <nameless@example.com>", Text(cAuthors.Ident("nameless@ws")));
    // Known to neither: as without any mapping.
    EXPECT_EQ("zed <zed@zed-ws>", Text(cAuthors.Ident("zed@zed-ws")));
    TIdent tIdent;
    EXPECT_FALSE(cAuthors.Find("zed", tIdent));
    EXPECT_EQ((std::vector<std::string>{"bob", "zed"}),
              cAuthors.Missing({"zed@zed-ws", "jo@jo-ws", "bob@b1", "bob@b2", "ann@a"}));
}

TEST(Authors, AMalformedLineIsNamedByFileAndLine)
{
    const std::vector<std::pair<std::string, std::string>> aCases = {
        {"jo Jo Doe <jo@example.com>",
         "a.txt:2: expected 'user = Full Name <email>', not 'jo Jo Doe <jo@example.com>'"},
        {"jo = Jo Doe jo@example.com",
         "a.txt:2: expected 'user = Full Name <email>', not 'jo = Jo Doe jo@example.com'"},
        {" = Jo Doe <jo@example.com>", "a.txt:2: expected 'user = Full Name <email>', not '= Jo Doe <jo@example.com>'"},
        {"jo = <jo@example.com>", "a.txt:2: expected 'user = Full Name <email>', not 'jo = <jo@example.com>'"},
        {"jo = Jo <jo<x>", "a.txt:2: expected 'user = Full Name <email>', not 'jo = Jo <jo<x>'"},
        {"max = Max <max@example.com>", "a.txt:2: the user 'max' is mapped already on line 1"},
    };
    for (const auto& tCase : aCases)
    {
        CAuthors cAuthors;
        EXPECT_EQ("2 " + tCase.second,
                  StopOf([&] { cAuthors.ParseFile("max = Max <max@example.com>\n" + tCase.first + "\n", "a.txt"); }))
            << tCase.first;
    }
    CAuthors cAuthors;
    EXPECT_EQ("2 cannot read the authors file '/nonexistent/authors.txt'",
              StopOf([&] { cAuthors.ReadFile("/nonexistent/authors.txt"); }));
}

// The small history: jo is listed with a full name; max made a change and
// is known only by the entry the server made for him; "gone" made a change
// and was deleted since.
class CAuthorsImportTest : public CEngineTest
{
protected:
    void SetUp() override
    {
        CEngineTest::SetUp();
        LoadHistory(ENGINETEST_DATA "/small-history.json");
        WriteWholeFile(m_strTemp + "/more.json",
                       R"({"changes": [{"user": "gone", "client": "gone-ws", "time": 1300, "description": "Late",
                            "files": [{"path": "//depot/main/late.txt", "action": "add", "content": "late\n"}]}],
                           "deletedUsers": ["gone"]})");
        LoadHistory(m_strTemp + "/more.json");
    }
    std::string Idents(const std::string& strBranch) const
    {
        const TResult r = Git({"log", "--reverse", "--format=%an <%ae>|%cn <%ce>", strBranch});
        EXPECT_EQ(0, r.nStatus) << r.strErr;
        return r.strOut;
    }
};

TEST_F(CAuthorsImportTest, IdentitiesFromTheServersUsers)
{
    const TResult r = Import({"--git", m_strGit, "--quiet"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n"
              "max <max@max-box>|max <max@max-box>\n"
              "Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n"
              "gone <gone@gone-ws>|gone <gone@gone-ws>\n",
              Idents("depot_main"));
}

TEST_F(CAuthorsImportTest, AnAuthorsFileOverridesAndCompletes)
{
    WriteWholeFile(m_strTemp + "/authors.txt", "# people\nmax = Max Mustermann <max@example.com>\n"
                                               "gone = Gone Away <gone@example.com>\n");
    const TResult r = Import({"--git", m_strGit, "--quiet", "--authors", m_strTemp + "/authors.txt"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n"
              "Max Mustermann <max@example.com>|Max Mustermann <max@example.com>\n"
              "Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n"
              "Gone Away <gone@example.com>|Gone Away <gone@example.com>\n",
              Idents("depot_main"));
    // rel1 branches off after max's change.
    EXPECT_EQ("Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n"
              "Max Mustermann <max@example.com>|Max Mustermann <max@example.com>\n"
              "Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n"
              "Jo Doe <jo@example.com>|Jo Doe <jo@example.com>\n",
              Idents("rel1"));
}

TEST_F(CAuthorsImportTest, AuthorsMissingListsTheUnmappedUsersAndWritesNothing)
{
    TResult r = Import({"--authors-missing", "--git", m_strGit});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("gone\n", r.strOut);
    EXPECT_NE(std::string::npos, r.strErr.find("orvane-import: 1 of the 3 users of the history have no name and "
                                               "e-mail address\n"))
        << r.strErr;
    EXPECT_FALSE(Exists(m_strGit));
    ExpectCleanedUp(std::string());
    WriteWholeFile(m_strTemp + "/authors.txt", "gone = Gone Away <gone@example.com>\n");
    r = Import({"--authors-missing", "--quiet", "--authors", m_strTemp + "/authors.txt"});
    ASSERT_EQ(0, r.nStatus) << r.strErr;
    EXPECT_EQ("", r.strOut);
    EXPECT_EQ("", r.strErr);
}

TEST_F(CAuthorsImportTest, AMalformedAuthorsFileIsAUsageError)
{
    WriteWholeFile(m_strTemp + "/authors.txt", "max = Max Mustermann <max@example.com>\nbroken line\n");
    const TResult r = Import({"--git", m_strGit, "--authors", m_strTemp + "/authors.txt"});
    EXPECT_EQ(2, r.nStatus);
    EXPECT_EQ("orvane-import: error: " + m_strTemp +
                  "/authors.txt:2: expected 'user = Full Name <email>', not 'broken line'\n",
              r.strErr);
    EXPECT_FALSE(Exists(m_strGit));
}
