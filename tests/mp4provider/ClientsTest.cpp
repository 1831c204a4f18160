// The temporary client, the environment around it, and file retrieval.
#include <sys/stat.h>
#include <unistd.h>

#include <wx/utils.h>

#include "ProviderFixture.h"

using namespace p4test;

namespace {

std::string HostName()
{
    return Utf8(wxGetHostName());
}

nlohmann::json Change(int nTime, const std::string& strDescription, const nlohmann::json& ajFiles)
{
    return {{"user", "jo"}, {"client", "ws"}, {"time", nTime}, {"description", strDescription}, {"files", ajFiles}};
}

std::string TwoStreamHistory()
{
    nlohmann::json j;
    j["users"] = nlohmann::json::array({{{"name", "jo"}}});
    j["branches"] = {{{"name", "rel1"}, {"owner", "jo"}, {"view", {"//depot/main/... //depot/rel1/..."}}}};
    j["changes"] = {
        Change(1000, "add", {{{"path", "//depot/main/a.txt"}, {"action", "add"}, {"content", "one\n"}},
                             {{"path", "//depot/main/src/b.c"}, {"action", "add"}, {"content", "int b;\n"}}}),
        Change(1100, "branch", {{{"path", "//depot/rel1/a.txt"}, {"action", "branch"}, {"from", "//depot/main/a.txt"}}}),
        Change(1200, "edit and delete", {{{"path", "//depot/main/a.txt"}, {"action", "edit"}, {"content", "two\n"}},
                                         {{"path", "//depot/main/src/b.c"}, {"action", "delete"}}}),
    };
    return j.dump();
}

// The client form that p4sim received on standard input.
std::string FormOf(const std::vector<nlohmann::json>& aj)
{
    for (const nlohmann::json& j : aj)
        if (j.at("args").get<std::string>() == "client -i")
            return j.at("stdin").get<std::string>();
    return "(no client -i)";
}

std::string ExpectedForm(const std::string& strHost, const std::string& strRoot, const std::string& strOptions,
                         const std::string& strView)
{
    return "Client: Orvane_Temp_Client\nOwner: " + Utf8(wxGetUserId()) + "\nHost: " + strHost +
           "\nDescription: A temporary client for Orvane migration\nRoot: " + strRoot + "\nOptions: " + strOptions +
           "\nLineEnd: local\n" + strView;
}

} // namespace

TEST_F(CProviderTest, ClientFormEnvironmentAndRestoreWithNothingSetBefore)
{
    Load(TwoStreamHistory());
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    EXPECT_EQ("Orvane_Temp_Client", Env("P4CLIENT"));
    EXPECT_EQ(HostName(), Env("P4HOST"));
    EXPECT_TRUE(m_pProvider->m_bCaseInsensitive);

    const std::vector<nlohmann::json> aj = Journal();
    ASSERT_EQ(std::vector<std::string>({"-G branches", "-G branch -o rel1", "client -d Orvane_Temp_Client", "client -i"}),
              JournalArgs());
    EXPECT_EQ(ExpectedForm("", m_strWorkspace, "noallwrite clobber nocompress nocrlf unlocked modtime normdir ",
                           "View: \n"
                           " \"//depot/main/...\" \"//Orvane_Temp_Client/depot_main/...\"\n"
                           " \"//depot/rel1/...\" \"//Orvane_Temp_Client/rel1/...\"\n"),
              FormOf(aj));
    // The client was made from a process with neither variable set.
    EXPECT_TRUE(aj[3].at("P4CLIENT").is_null());
    EXPECT_TRUE(aj[3].at("P4HOST").is_null());
    const std::string strSpec = P4("client -o Orvane_Temp_Client");
    EXPECT_NE(std::string::npos, strSpec.find("Root:\t" + m_strWorkspace + "\n")) << strSpec;

    const std::string strLog = Log();
    EXPECT_NE(std::string::npos,
              strLog.find("42: Input Form to p4 client -i :-\n  Client: Orvane_Temp_Client\n"));
    EXPECT_NE(std::string::npos, strLog.find("42:    \"//depot/rel1/...\" \"//Orvane_Temp_Client/rel1/...\"\n"));

    EXPECT_TRUE(m_pProvider->RemoveClients());
    EXPECT_EQ("(unset)", Env("P4CLIENT"));
    EXPECT_EQ("(unset)", Env("P4HOST"));
    const std::vector<std::string> astrArgs = JournalArgs();
    EXPECT_EQ("client -d Orvane_Temp_Client", astrArgs.back());
    int nStatus = 0;
    P4("clients", &nStatus);
    EXPECT_EQ(std::string::npos, P4("clients").find("Orvane_Temp_Client"));
}

TEST_F(CProviderTest, HostSetBeforeStaysAndComesBack)
{
    setenv("P4HOST", "h1", 1);
    setenv("P4CLIENT", "mine", 1);
    Load(TwoStreamHistory());
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    EXPECT_EQ("Orvane_Temp_Client", Env("P4CLIENT"));
    EXPECT_EQ("h1", Env("P4HOST"));
    EXPECT_EQ("h1", Utf8(m_pProvider->m_strHostName));
    EXPECT_EQ(0u, FormOf(Journal()).find("Client: Orvane_Temp_Client\nOwner: " + Utf8(wxGetUserId()) + "\nHost: \n"));
    EXPECT_TRUE(m_pProvider->RemoveClients());
    EXPECT_EQ("mine", Env("P4CLIENT"));
    EXPECT_EQ("h1", Env("P4HOST"));
}

TEST_F(CProviderTest, EmptyVariablesBeforeAreRemovedAfter)
{
    setenv("P4HOST", "", 1);
    setenv("P4CLIENT", "", 1);
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    EXPECT_EQ("", Env("P4HOST")); // set, though empty: it counts as the host name
    EXPECT_TRUE(m_pProvider->RemoveClients());
    EXPECT_EQ("(unset)", Env("P4CLIENT"));
    EXPECT_EQ("(unset)", Env("P4HOST"));
}

TEST_F(CProviderTest, RemoveClientsWithoutInitialiseRemovesBothVariables)
{
    setenv("P4HOST", "h1", 1);
    setenv("P4CLIENT", "mine", 1);
    Settings();
    ORVANE::MP4::CCommandBase::SetP4Executable(wxString::FromUTF8(g_pszP4Sim));
    EXPECT_TRUE(m_pProvider->RemoveClients());
    EXPECT_EQ("(unset)", Env("P4CLIENT"));
    EXPECT_EQ("(unset)", Env("P4HOST"));
    EXPECT_EQ(std::vector<std::string>{"client -d Orvane_Temp_Client"}, JournalArgs());
}

TEST_F(CProviderTest, CompressionAddsItsOptionAndCaseSettingIsTaken)
{
    Settings({{L"Compression", L"1"}, {L"CaseInsensitive", L"0"}});
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    EXPECT_FALSE(m_pProvider->m_bCaseInsensitive);
    EXPECT_NE(std::string::npos,
              FormOf(Journal()).find("\nOptions: noallwrite clobber compress nocrlf unlocked modtime normdir \n"));
    m_pProvider->RemoveClients();
}

TEST_F(CProviderTest, SecondInitialisationPutsTheFoundHostIntoTheSpec)
{
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    std::vector<std::string> astrForms;
    for (const nlohmann::json& j : Journal())
        if (j.at("args").get<std::string>() == "client -i")
            astrForms.push_back(j.at("stdin").get<std::string>());
    ASSERT_EQ(2u, astrForms.size());
    EXPECT_NE(std::string::npos, astrForms[0].find("\nHost: \n"));
    EXPECT_NE(std::string::npos, astrForms[1].find("\nHost: " + HostName() + "\n"));
    // The saved values are now the temporary ones: restoring reinstates them.
    m_pProvider->RemoveClients();
    EXPECT_EQ("Orvane_Temp_Client", Env("P4CLIENT"));
    EXPECT_EQ(HostName(), Env("P4HOST"));
}

TEST_F(CProviderTest, UnparsableRootFailsBeforeTheClientIsMade)
{
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_FALSE(m_pProvider->InitialiseClients(L""));
    EXPECT_EQ((std::vector<std::string>{"-G branches", "client -d Orvane_Temp_Client"}), JournalArgs());
    EXPECT_EQ("(unset)", Env("P4CLIENT"));
}

TEST_F(CProviderTest, RefusedClientFails)
{
    setenv("P4SIM_FAIL", "^client -i$", 1);
    Settings();
    ASSERT_TRUE(m_pProvider->SearchForStreams());
    EXPECT_FALSE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    EXPECT_EQ("(unset)", Env("P4CLIENT"));
    EXPECT_EQ("(unset)", Env("P4HOST"));
}

TEST_F(CProviderTest, EachChangeIsSyncedIntoItsStreamsFolder)
{
    Load(TwoStreamHistory());
    Settings();
    unsigned int nCount = 0;
    ASSERT_EQ(0, m_pProvider->EstablishStreams(nCount));
    ASSERT_EQ(2u, nCount);
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));

    const std::string strMain = m_strWorkspace + "/depot_main";
    ASSERT_EQ(0, mkdir(m_strWorkspace.c_str(), 0755));
    ASSERT_EQ(0, mkdir(strMain.c_str(), 0755));
    ASSERT_EQ(0, m_pProvider->OnBeginStream(1, wxString::FromUTF8(strMain.c_str())));
    ASSERT_EQ(0, m_pProvider->EstablishChangesets(nCount));
    EXPECT_EQ(3u, nCount);

    ORVANE::MCE::CProvider::TChangeInfo tChange;
    ORVANE::MCE::CProvider::TChangeItemInfo tItem;
    ASSERT_EQ(0, m_pProvider->OnFirstChangeset(tChange));
    EXPECT_EQ(0, m_pProvider->OnProcessChange(tChange));
    EXPECT_EQ("one\n", ReadWholeFile(strMain + "/a.txt"));
    EXPECT_EQ("int b;\n", ReadWholeFile(strMain + "/src/b.c"));
    ASSERT_EQ(0, m_pProvider->OnFirstChangeItem(tItem));
    ASSERT_EQ(0, m_pProvider->OnNextChangeItem(tItem));
    EXPECT_EQ(2, m_pProvider->OnNextChangeItem(tItem));

    ASSERT_EQ(0, m_pProvider->OnNextChangeset(tChange));
    EXPECT_EQ(0, m_pProvider->OnProcessChange(tChange));
    EXPECT_EQ("two\n", ReadWholeFile(strMain + "/a.txt"));
    struct stat st;
    EXPECT_NE(0, stat((strMain + "/src/b.c").c_str(), &st));
    EXPECT_EQ(2, m_pProvider->OnNextChangeset(tChange));

    // The sync ran in the temporary client, on the stream's folder.
    const std::vector<nlohmann::json> aj = Journal();
    std::vector<std::string> astrSyncs;
    for (const nlohmann::json& j : aj)
    {
        const std::string strArgs = j.at("args").get<std::string>();
        if (strArgs.compare(0, 5, "sync ") == 0)
        {
            astrSyncs.push_back(strArgs);
            EXPECT_EQ("Orvane_Temp_Client", j.at("P4CLIENT").get<std::string>());
            EXPECT_EQ(HostName(), j.at("P4HOST").get<std::string>());
            EXPECT_EQ(0, j.at("exit").get<int>());
        }
    }
    EXPECT_EQ((std::vector<std::string>{"sync " + strMain + "/...@1", "sync " + strMain + "/...@3"}), astrSyncs);

    // The second stream.
    const std::string strRel = m_strWorkspace + "/rel1";
    ASSERT_EQ(0, mkdir(strRel.c_str(), 0755));
    ASSERT_EQ(0, m_pProvider->OnBeginStream(2, wxString::FromUTF8(strRel.c_str())));
    ASSERT_EQ(0, m_pProvider->EstablishChangesets(nCount));
    ASSERT_EQ(0, m_pProvider->OnFirstChangeset(tChange));
    EXPECT_EQ(0, m_pProvider->OnProcessChange(tChange));
    EXPECT_EQ("one\n", ReadWholeFile(strRel + "/a.txt"));
    EXPECT_TRUE(m_pProvider->RemoveClients());
}

TEST_F(CProviderTest, FailedSyncIsNoFailureOfTheChange)
{
    Load(TwoStreamHistory());
    setenv("P4SIM_FAIL", "^sync ", 1);
    Settings();
    unsigned int nCount = 0;
    ASSERT_EQ(0, m_pProvider->EstablishStreams(nCount));
    ASSERT_TRUE(m_pProvider->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    const std::string strMain = m_strWorkspace + "/depot_main";
    ASSERT_EQ(0, m_pProvider->OnBeginStream(1, wxString::FromUTF8(strMain.c_str())));
    ASSERT_EQ(0, m_pProvider->EstablishChangesets(nCount));
    ORVANE::MCE::CProvider::TChangeInfo tChange;
    ASSERT_EQ(0, m_pProvider->OnFirstChangeset(tChange));
    EXPECT_EQ(0, m_pProvider->OnProcessChange(tChange));
    struct stat st;
    EXPECT_NE(0, stat((strMain + "/a.txt").c_str(), &st));
    ORVANE::MCE::TChangeItemRecord tItem;
    EXPECT_EQ(0, m_pProvider->RetrieveChangeItemFile(tItem, L"/nonexistent/x"));
    m_pProvider->RemoveClients();
}

TEST_F(CProviderTest, ClientPaths)
{
    EXPECT_EQ("//Orvane_Temp_Client/main",
              Utf8(m_pProvider->GetClientDestPath(L"Orvane_Temp_Client", L"main").GeneratePath(L'/', true)));
    EXPECT_EQ(3u, m_pProvider->GetClientDestPath(L"Orvane_Temp_Client", L"main").GetItemCount());
    EXPECT_EQ("//depot/rel1", Utf8(m_pProvider->GetClientSourcePath(Path(L"//depot/rel1")).GeneratePath(L'/', true)));
    EXPECT_STREQ(L"Orvane_Temp_Client", ORVANE::MP4::s_pszClientName);
}
