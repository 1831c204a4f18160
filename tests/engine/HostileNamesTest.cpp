// Hostile names end to end: depot files and branch specs whose names hold
// blanks, quotes, ';', "$(...)", backquotes, a leading '-', the server's '%'
// escapes, letters beyond ASCII and bytes that are not UTF-8. Nothing that
// a name smuggles in may run (each command would make a marker file in the
// test's folder), and each name arrives in git byte for byte, or is lost in
// exactly the way the module's own reading of names loses it.
#include <algorithm>

#include "EngineHarness.h"

namespace enginetest {

namespace {

// A file action of the history (for "branch" the content is the source);
// an escaped path is in p4sim's form for names that are not UTF-8 (\xe9 is
// the byte 0xE9).
nlohmann::json FileJson(const std::string& strPath, const std::string& strAction, const std::string& strContent,
                        bool bEscaped = false)
{
    nlohmann::json j = {{"action", strAction}};
    j[bEscaped ? "pathEscaped" : "path"] = strPath;
    if (strAction == "branch")
        j["from"] = strContent;
    else
        j["content"] = strContent;
    return j;
}

// The paths of a commit's tree, each ended by NUL, as `git ls-tree -r -z
// --name-only` prints them.
std::string NulList(const std::vector<std::string>& astrPaths)
{
    std::string str;
    for (const std::string& strPath : astrPaths)
        str += strPath + '\0';
    return str;
}

// The stream lines of a dump.
std::vector<nlohmann::json> Streams(const std::vector<nlohmann::json>& aDump)
{
    std::vector<nlohmann::json> aOut;
    for (const nlohmann::json& j : aDump)
        if (j["kind"] == "stream")
            aOut.push_back(j);
    return aOut;
}

// "NAME DESTINATION" of each stream.
std::vector<std::string> StreamNames(const std::vector<nlohmann::json>& aStreams)
{
    std::vector<std::string> astr;
    for (const nlohmann::json& j : aStreams)
        astr.push_back(j["name"].get<std::string>() + " " + j["dst"].get<std::string>());
    return astr;
}

} // namespace

class CHostileNamesTest : public CEngineTest
{
protected:
    void SetUp() override
    {
        CEngineTest::SetUp();
        m_strMarker = m_strTemp + "/MARKER";
    }

    // Loads users, branch specs and changes (each change's files as
    // path -> content, or source for "branch").
    void Load(const std::vector<std::pair<std::string, std::string>>& atBranches,
              const std::vector<std::vector<nlohmann::json>>& aaChanges)
    {
        nlohmann::json jBranches = nlohmann::json::array();
        for (const auto& t : atBranches)
            jBranches.push_back({{"name", t.first}, {"owner", "jo"}, {"view", {t.second}}, {"time", 1000}});
        nlohmann::json jChanges = nlohmann::json::array();
        unsigned nTime = 1000;
        for (const auto& aFiles : aaChanges)
            jChanges.push_back({{"user", "jo"},
                                {"client", "ws"},
                                {"time", nTime += 100},
                                {"description", "names"},
                                {"files", aFiles}});
        const nlohmann::json j = {
            {"users", {{{"name", "jo"}, {"email", "jo@example.com"}, {"fullName", "Jo Doe"}, {"time", 1000}}}},
            {"branches", jBranches},
            {"changes", jChanges}};
        const std::string strHistory = m_strTemp + "/history.json";
        WriteWholeFile(strHistory, j.dump());
        LoadHistory(strHistory);
    }

    // Branch specs (name, destination folder) of //depot/main, with a file
    // f.txt there and a change that branches it into each destination.
    void LoadBranches(const std::vector<std::pair<std::string, std::string>>& atSpecs)
    {
        std::vector<std::pair<std::string, std::string>> atBranches;
        std::vector<nlohmann::json> aBranch;
        for (const auto& tSpec : atSpecs)
        {
            // Quotes only around a path with a blank, as a server writes
            // views.
            const std::string strQuote = tSpec.second.find(' ') == std::string::npos ? "" : "\"";
            atBranches.emplace_back(tSpec.first, "//depot/main/... " + strQuote + tSpec.second + "/..." + strQuote);
            aBranch.push_back(FileJson(tSpec.second + "/f.txt", "branch", "//depot/main/f.txt"));
        }
        Load(atBranches, {{FileJson("//depot/main/f.txt", "add", "f\n")}, aBranch});
    }

    // A run that succeeds quietly, with its dump; nothing of the names ran.
    // pstrErr: where what the run said goes (none: it must say nothing).
    std::vector<nlohmann::json> ImportQuietly(std::string* pstrErr = nullptr)
    {
        const std::string strDump = m_strTemp + "/dump";
        const TResult r = Import({"--git", m_strGit, "--dump", strDump, "--verify", "--quiet"});
        EXPECT_EQ(0, r.nStatus) << r.strErr;
        if (pstrErr)
            *pstrErr = r.strErr;
        else
            EXPECT_EQ("", r.strErr);
        ExpectNothingRan();
        return ReadDump(strDump);
    }

    // The branch specifications named by the warnings of a run, which must
    // say nothing else.
    static void LeftOutBranches(const std::string& strErr, std::vector<std::string>& astrLeftOut)
    {
        const std::string strWarning = "orvane-import: warning: the branch specification ";
        for (const std::string& strLine : Lines(strErr))
        {
            const size_t nEnd = strLine.find(" is left out, its files are in no stream: ");
            ASSERT_TRUE(strLine.compare(0, strWarning.size(), strWarning) == 0 && nEnd != std::string::npos) << strLine;
            astrLeftOut.push_back(strLine.substr(strWarning.size(), nEnd - strWarning.size()));
        }
    }

    // No marker of a smuggled command anywhere in the test's folder, nor
    // where the commands name it.
    void ExpectNothingRan() const
    {
        for (const char* psz : {"-dollar", "-backquote", "-semicolon"})
            EXPECT_FALSE(Exists(m_strMarker + psz)) << m_strMarker + psz;
        // Nor anywhere else in it: the names hold "MARKER" too, but only the
        // workspace (gone after the run) had files by those names; the
        // repository is bare.
        std::vector<std::string> astr;
        for (const std::string& strPath : Tree(m_strTemp))
            if (strPath.find("MARKER") != std::string::npos)
                astr.push_back(strPath);
        EXPECT_EQ(std::vector<std::string>(), astr);
    }

    std::string m_strMarker;
};

TEST_F(CHostileNamesTest, FileNamesArriveByteForByteAndNothingRuns)
{
    // Each command would make a marker file in the test's folder; its
    // absolute path makes folders of the depot path.
    const std::vector<std::string> astrNames = {
        "a b.txt",
        "it's.txt",
        "say \"hi\".txt",
        "semi;colon; touch " + m_strMarker + "-semicolon",
        "$(touch " + m_strMarker + "-dollar)",
        "`touch " + m_strMarker + "-backquote`",
        "-rf",
        "--help/-x.txt",
        "at@sign.txt",
        "hash#tag.txt",
        "star*.txt",
        "50%off.txt",
        "pct%41.txt",
        "caf\xC3\xA9.txt",
        "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E/\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82.txt",
        "e\xCC\x81 decomposed.txt",
        "tab\there.txt",
        "back\\slash.txt",
        "trailing blank .txt",
    };
    std::vector<nlohmann::json> aAdd, aEdit;
    for (const std::string& strName : astrNames)
    {
        aAdd.push_back(FileJson("//depot/main/" + strName, "add", "added " + strName + "\n"));
        aEdit.push_back(FileJson("//depot/main/" + strName, "edit", "edited " + strName + "\n"));
    }
    ASSERT_NO_FATAL_FAILURE(Load({}, {aAdd, aEdit}));
    const std::vector<nlohmann::json> aDump = ImportQuietly();
    std::vector<std::string> astrSorted;
    for (const std::string& strName : astrNames)
        astrSorted.push_back("main/" + strName);
    std::sort(astrSorted.begin(), astrSorted.end());
    EXPECT_EQ(NulList(astrSorted), Git({"ls-tree", "-r", "-z", "--name-only", "depot"}).strOut);
    ExpectBranchesMatchDepot(Streams(aDump));
    ExpectCleanedUp(std::string());
}

// Names that are not UTF-8 (a Latin-1 'é', bytes 0xFF 0xFE) are not text
// to the module: it reads them as empty names and reports no item for them.
// The engine writes each commit's tree from what p4 sync put in the stream's
// folder, byte for byte, so the files arrive in git under their exact names
// all the same, and their edits and deletes with them.
TEST_F(CHostileNamesTest, FileNamesThatAreNotUtf8ArriveAlthoughTheModuleHasNoItemForThem)
{
    const std::string strLatin1 = "main/caf\xE9.txt", strBytes = "main/\xFF\xFE/x.bin";
    const std::string strLatin1Escaped = "//depot/main/caf\\xe9.txt", strBytesEscaped = "//depot/main/\\xff\\xfe/x.bin";
    ASSERT_NO_FATAL_FAILURE(
        Load({}, {{FileJson("//depot/main/ok.txt", "add", "ok\n"), FileJson(strLatin1Escaped, "add", "latin-1\n", true),
                   FileJson(strBytesEscaped, "add", "bytes\n", true)},
                  {FileJson(strLatin1Escaped, "edit", "latin-1 edited\n", true),
                   FileJson(strBytesEscaped, "delete", "", true)}}));
    const std::vector<nlohmann::json> aDump = ImportQuietly();
    EXPECT_EQ(NulList({strLatin1, "main/ok.txt", strBytes}),
              Git({"ls-tree", "-r", "-z", "--name-only", "depot~1"}).strOut);
    EXPECT_EQ(NulList({strLatin1, "main/ok.txt"}), Git({"ls-tree", "-r", "-z", "--name-only", "depot"}).strOut);
    EXPECT_EQ("latin-1 edited\n", Git({"cat-file", "blob", "depot:" + strLatin1}).strOut);
    // The module's record of the changes: it counts an item for the names
    // it could not read (one for both of change 1), yet hands over only the
    // UTF-8 name.
    std::vector<std::string> astrRecords;
    for (const nlohmann::json& j : aDump)
        astrRecords.push_back(j.dump());
    EXPECT_EQ((std::vector<std::string>{
                  R"({"base":2,"dst":"//depot","id":1,"kind":"stream","name":"depot","parent":0,"src":""})",
                  R"({"comment":"names\n","id":2,"items":2,"kind":"change","stream":1,"time":1100,"user":"jo@ws"})",
                  R"({"change":2,"kind":"item","path":"main/ok.txt","revision":1,)"
                  R"("sha256":"dc51b8c96c2d745df3bd5590d990230a482fd247123599548e0632fdbf97fc22","type":"add"})",
                  R"({"comment":"names\n","id":1,"items":1,"kind":"change","stream":1,"time":1200,"user":"jo@ws"})"}),
              astrRecords);
    ExpectBranchesMatchDepot(Streams(aDump));
    ExpectCleanedUp(std::string());
}

// Branch spec names. The module asks for each spec's view with its name
// written unquoted into the command line, which is split at blanks and
// quotes (never through a shell): a name with a blank or a double quote
// reaches p4 as other arguments, and one that starts with '-' as an option;
// those specs give no view and their streams are left out, as the module
// does. The other names become streams ('%' made '_' by the host's rule
// for stream names) and git branches as they are.
TEST_F(CHostileNamesTest, BranchSpecNamesBecomeStreamsOrAreLeftOutAsTheModuleDoes)
{
    const std::vector<std::string> astrNames = {"rel 1",
                                                "it's",
                                                "say \"hi\"",
                                                "a;b",
                                                "$(touch " + m_strMarker + "-dollar)",
                                                "`touch " + m_strMarker + "-backquote`",
                                                "-rf",
                                                "--help",
                                                "pct%41",
                                                "caf\xC3\xA9",
                                                "\xE6\x97\xA5\xE6\x9C\xAC"};
    std::vector<std::pair<std::string, std::string>> atSpecs;
    for (size_t i = 0; i < astrNames.size(); ++i)
        atSpecs.emplace_back(astrNames[i], "//depot/b" + std::to_string(i + 1));
    ASSERT_NO_FATAL_FAILURE(LoadBranches(atSpecs));
    std::string strErr;
    const std::vector<nlohmann::json> aStreams = Streams(ImportQuietly(&strErr));
    // Each specification the module leaves out is named.
    std::vector<std::string> astrLeftOut;
    ASSERT_NO_FATAL_FAILURE(LeftOutBranches(strErr, astrLeftOut));
    EXPECT_EQ((std::vector<std::string>{"$(touch " + m_strMarker + "-dollar)", "--help", "-rf",
                                        "`touch " + m_strMarker + "-backquote`", "rel 1", "say \"hi\""}),
              astrLeftOut);
    EXPECT_EQ(
        (std::vector<std::string>{"depot_main //depot/main", "a;b //depot/b4", "caf\xC3\xA9 //depot/b10",
                                  "it's //depot/b2", "pct_41 //depot/b9", "\xE6\x97\xA5\xE6\x9C\xAC //depot/b11"}),
        StreamNames(aStreams));
    EXPECT_EQ("refs/heads/a;b\nrefs/heads/caf\xC3\xA9\nrefs/heads/depot_main\nrefs/heads/it's\nrefs/heads/pct_41\n"
              "refs/heads/\xE6\x97\xA5\xE6\x9C\xAC\n",
              Git({"for-each-ref", "--format=%(refname)"}).strOut);
    // What the module asked, and what failed, for the names it split.
    std::vector<std::string> astrAsked;
    bool bAsking = false;
    for (const std::string& strLine : Lines(ReadWholeFile(m_strLog)))
    {
        const size_t nAt = strLine.find(" -G branch -o ");
        if (strLine.find(": Performing command ") != std::string::npos)
            bAsking = nAt != std::string::npos;
        if (nAt != std::string::npos)
            astrAsked.push_back(strLine.substr(nAt + 14));
        else if (bAsking && strLine.find(" Command failure (1)") != std::string::npos)
            astrAsked.back() += " (failed)";
    }
    EXPECT_EQ((std::vector<std::string>{"$(touch " + m_strMarker + "-dollar) (failed)", "--help", "-rf (failed)",
                                        "`touch " + m_strMarker + "-backquote` (failed)", "a;b", "caf\xC3\xA9", "it's",
                                        "pct%41", "rel 1 (failed)", "say \"hi\" (failed)", "\xE6\x97\xA5\xE6\x9C\xAC"}),
              astrAsked);
    ExpectBranchesMatchDepot(aStreams);
    ExpectCleanedUp(std::string());
}

// Destination folders of branch specs. The module splits each view line at
// blanks without reading quotes, so a spec whose folder holds a blank gives
// no view line and is left out, unreported, as the module does; its files
// are in no branch. Quotes, ';' and a leading '-' in a folder's name are
// kept: those streams arrive.
TEST_F(CHostileNamesTest, BranchSpecFoldersWithABlankAreLeftOutOthersArrive)
{
    const std::vector<std::string> astrDst = {"//depot/rel 2", "//depot/it's;a", "//depot/-rf",
                                              "//depot/$(touch " + m_strMarker + "-dollar)"};
    std::vector<std::pair<std::string, std::string>> atSpecs;
    for (size_t i = 0; i < astrDst.size(); ++i)
        atSpecs.emplace_back("d" + std::to_string(i + 1), astrDst[i]);
    ASSERT_NO_FATAL_FAILURE(LoadBranches(atSpecs));
    std::string strErr;
    const std::vector<nlohmann::json> aStreams = Streams(ImportQuietly(&strErr));
    // Each specification the module leaves out is named.
    std::vector<std::string> astrLeftOut;
    ASSERT_NO_FATAL_FAILURE(LeftOutBranches(strErr, astrLeftOut));
    EXPECT_EQ((std::vector<std::string>{"d1", "d4"}), astrLeftOut);
    EXPECT_EQ((std::vector<std::string>{"depot_main //depot/main", "d2 //depot/it's;a", "d3 //depot/-rf"}),
              StreamNames(aStreams));
    EXPECT_EQ("refs/heads/d2\nrefs/heads/d3\nrefs/heads/depot_main\n",
              Git({"for-each-ref", "--format=%(refname)"}).strOut);
    for (const char* pszBranch : {"d2", "d3", "depot_main"})
        EXPECT_EQ(NulList({"f.txt"}), Git({"ls-tree", "-r", "-z", "--name-only", pszBranch}).strOut) << pszBranch;
    ExpectBranchesMatchDepot(aStreams);
    ExpectCleanedUp(std::string());
}

} // namespace enginetest
