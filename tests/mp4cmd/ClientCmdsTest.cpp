// The client workspace and sync commands against p4sim servers.
#include <filesystem>

#include "TestSupport.h"

namespace mp4test {
namespace {

using ORVANE::MP4::CClientCmd;
using ORVANE::MP4::CSyncCmd;
using ORVANE::MP4::eLELocal;
using ORVANE::MP4::eLEMac;
using ORVANE::MP4::eLEShare;
using ORVANE::MP4::eLEUnix;
using ORVANE::MP4::eLEWin;
using ORVANE::MP4::TClient;
using ORVANE::MP4::TClientLEOption;

const char* const s_pszHistory = R"({"changes":[
    {"change":1,"time":1000,"files":[{"path":"//depot/main/a.c","action":"add","content":"one\n"},
                                     {"path":"//depot/main/sub/b.c","action":"add","content":"bee\n"}]},
    {"change":2,"time":2000,"files":[{"path":"//depot/main/a.c","action":"edit","content":"two\n"}]},
    {"change":3,"time":3000,"files":[{"path":"//depot/rel1/r.c","action":"add","content":"r\n"}]}]})";

const char* const s_pszClient = "Orvane_Temp_Client";

CFilePath ClientSide(const wchar_t* pszStream)
{
    CFilePath cPath;
    cPath.Add(L"/");
    cPath.Add(L"Orvane_Temp_Client");
    cPath.Add(pszStream);
    return cPath;
}

class ClientCmdsTest : public CCommandTest
{
protected:
    // The client of a migration with the streams main and rel1.
    TClient Spec()
    {
        TClient cClient;
        cClient.strName = L"Orvane_Temp_Client";
        cClient.strOwner = L"tester";
        cClient.strHost = L"";
        cClient.strDescription = L"A temporary client for Orvane migration";
        cClient.cRoot = Path(CString(wxString(Root())).wc_str());
        cClient.nOptions = 34;
        cClient.eLineEnd = eLELocal;
        cClient.aDepotPaths.Add(Path(L"//depot/main"));
        cClient.aClientPaths.Add(ClientSide(L"main"));
        cClient.aDepotPaths.Add(Path(L"//depot/rel1"));
        cClient.aClientPaths.Add(ClientSide(L"rel1"));
        return cClient;
    }
    std::string Root() const { return m_strTemp + "/ws"; }

    // The standard input of the only journal entry.
    std::string OnlyInput()
    {
        const auto aJournal = Journal();
        EXPECT_EQ(aJournal.size(), 1u);
        return aJournal.empty() ? std::string() : aJournal[0]["stdin"].get<std::string>();
    }

    CClientCmd m_cCmd;
};

TEST_F(ClientCmdsTest, FormIsWrittenAndLogged)
{
    Server(s_pszHistory);
    ASSERT_TRUE(m_cCmd.CreateClient(Spec()));

    const std::string strForm = "Client: Orvane_Temp_Client\n"
                                "Owner: tester\n"
                                "Host: \n"
                                "Description: A temporary client for Orvane migration\n"
                                "Root: " +
                                Root() +
                                "\n"
                                "Options: noallwrite clobber nocompress nocrlf unlocked modtime normdir \n"
                                "LineEnd: local\n"
                                "View: \n"
                                " \"//depot/main/...\" \"//Orvane_Temp_Client/main/...\"\n"
                                " \"//depot/rel1/...\" \"//Orvane_Temp_Client/rel1/...\"\n";
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["argv"], nlohmann::json({g_pszP4Sim, "client", "-i"}));
    EXPECT_EQ(aJournal[0]["stdin"], strForm);
    EXPECT_EQ(aJournal[0]["exit"], 0);

    EXPECT_EQ(Log(), "42: Input Form to p4 client -i :-\n"
                     "  Client: Orvane_Temp_Client\n"
                     "  Owner: tester\n"
                     "  Host: \n"
                     "  Description: A temporary client for Orvane migration\n"
                     "  Root: " +
                         Root() +
                         "\n"
                         "  Options: noallwrite clobber nocompress nocrlf unlocked modtime normdir \n"
                         "  LineEnd: local\n"
                         "  View:\n"
                         "42:    \"//depot/main/...\" \"//Orvane_Temp_Client/main/...\"\n"
                         "42:    \"//depot/rel1/...\" \"//Orvane_Temp_Client/rel1/...\"\n" +
                         Performed("client -i"));

    // The server has the client as the form described it.
    ::unsetenv("P4SIM_JOURNAL");
    std::string strOut;
    ASSERT_EQ(Run(std::string(g_pszP4Sim) + " client -o Orvane_Temp_Client", &strOut), 0);
    EXPECT_NE(strOut.find("\nRoot:\t" + Root() + "\n"), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("\nOptions:\tnoallwrite clobber nocompress unlocked modtime normdir\n"), std::string::npos)
        << strOut;
    EXPECT_NE(strOut.find("\nView:\n\t//depot/main/... //Orvane_Temp_Client/main/...\n"
                          "\t//depot/rel1/... //Orvane_Temp_Client/rel1/...\n"),
              std::string::npos)
        << strOut;
}

TEST_F(ClientCmdsTest, NoViewLinesNoViewLine)
{
    Server(s_pszHistory);
    TClient cClient = Spec();
    cClient.aDepotPaths.RemoveAll();
    cClient.aClientPaths.RemoveAll();
    cClient.nOptions = 0x41;
    cClient.eLineEnd = eLEWin;
    cClient.strHost = L"h1";
    ASSERT_TRUE(m_cCmd.CreateClient(cClient));
    EXPECT_EQ(OnlyInput(), "Client: Orvane_Temp_Client\n"
                           "Owner: tester\n"
                           "Host: h1\n"
                           "Description: A temporary client for Orvane migration\n"
                           "Root: " +
                               Root() +
                               "\n"
                               "Options: allwrite noclobber nocompress nocrlf unlocked nomodtime rmdir \n"
                               "LineEnd: win\n");
    EXPECT_EQ(Log(), "42: Input Form to p4 client -i :-\n"
                     "  Client: Orvane_Temp_Client\n"
                     "  Owner: tester\n"
                     "  Host: h1\n"
                     "  Description: A temporary client for Orvane migration\n"
                     "  Root: " +
                         Root() +
                         "\n"
                         "  Options: allwrite noclobber nocompress nocrlf unlocked nomodtime rmdir \n"
                         "  LineEnd: win\n"
                         "  View:\n" +
                         Performed("client -i"));
}

TEST_F(ClientCmdsTest, LineEndOutOfRangeWritesAnEmptyValue)
{
    Server(s_pszHistory);
    TClient cClient = Spec();
    cClient.eLineEnd = static_cast<TClientLEOption>(7);
    ASSERT_TRUE(m_cCmd.CreateClient(cClient));
    const std::string strInput = OnlyInput();
    EXPECT_NE(strInput.find("\nLineEnd: \nView: \n"), std::string::npos) << strInput;
}

TEST_F(ClientCmdsTest, LineEndTexts)
{
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(eLELocal)), L"local");
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(eLEUnix)), L"unix");
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(eLEMac)), L"mac");
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(eLEWin)), L"win");
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(eLEShare)), L"share");
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(static_cast<TClientLEOption>(5))), L"");
    EXPECT_EQ(W(m_cCmd.GetLEOptionsString(static_cast<TClientLEOption>(7))), L"");
    EXPECT_EQ(static_cast<int>(eLELocal), 0);
    EXPECT_EQ(static_cast<int>(eLEShare), 4);
}

TEST_F(ClientCmdsTest, OptionTexts)
{
    EXPECT_EQ(W(m_cCmd.GetOptionsString(0)), L"noallwrite noclobber nocompress nocrlf unlocked nomodtime normdir ");
    EXPECT_EQ(W(m_cCmd.GetOptionsString(0x7F)), L"allwrite clobber compress crlf locked modtime rmdir ");
    EXPECT_EQ(W(m_cCmd.GetOptionsString(0x41)), L"allwrite noclobber nocompress nocrlf unlocked nomodtime rmdir ");
    EXPECT_EQ(W(m_cCmd.GetOptionsString(34)), L"noallwrite clobber nocompress nocrlf unlocked modtime normdir ");
    EXPECT_EQ(W(m_cCmd.GetOptionsString(38)), L"noallwrite clobber compress nocrlf unlocked modtime normdir ");
    EXPECT_EQ(W(m_cCmd.GetOptionsString(0x08 | 0x10)),
              L"noallwrite noclobber nocompress crlf locked nomodtime normdir ");
    // Higher bits are ignored.
    EXPECT_EQ(W(m_cCmd.GetOptionsString(0xFFFFFF80u)),
              L"noallwrite noclobber nocompress nocrlf unlocked nomodtime normdir ");
    EXPECT_EQ(W(m_cCmd.GetOptionsString(0xFFFFFFFFu)), L"allwrite clobber compress crlf locked modtime rmdir ");
}

TEST_F(ClientCmdsTest, ValuesAreWrittenAsTheyStand)
{
    Server(s_pszHistory);
    TClient cClient = Spec();
    cClient.strDescription = L"line one\nline two";
    // The second description line is not indented: the server refuses the
    // form, and the first line of its complaint is logged.
    EXPECT_FALSE(m_cCmd.CreateClient(cClient));
    const std::string strInput = OnlyInput();
    EXPECT_NE(strInput.find("\nDescription: line one\nline two\nRoot: "), std::string::npos) << strInput;
    const std::string strLog = Log();
    const std::string strTail = Performed("client -i") + "42:  Command failure (1) - Error in client specification. \n";
    ASSERT_GE(strLog.size(), strTail.size());
    EXPECT_EQ(strLog.substr(strLog.size() - strTail.size()), strTail);
}

TEST_F(ClientCmdsTest, PathsWithBlanksAreQuoted)
{
    Server(s_pszHistory);
    TClient cClient = Spec();
    cClient.aDepotPaths.RemoveAll();
    cClient.aClientPaths.RemoveAll();
    cClient.aDepotPaths.Add(Path(L"//depot/my dir"));
    cClient.aClientPaths.Add(ClientSide(L"my dir"));
    ASSERT_TRUE(m_cCmd.CreateClient(cClient));
    const std::string strInput = OnlyInput();
    EXPECT_NE(strInput.find("\nView: \n \"//depot/my dir/...\" \"//Orvane_Temp_Client/my dir/...\"\n"),
              std::string::npos)
        << strInput;
}

TEST_F(ClientCmdsTest, TextOutsideTheLocaleDropsTheLine)
{
    Server(s_pszHistory);
    TClient cClient = Spec();
    cClient.strDescription = L"Gr\u00FC\u00DFe";
    ASSERT_TRUE(m_cCmd.CreateClient(cClient));
    const std::string strInput = OnlyInput();
    EXPECT_EQ(strInput.find("Description"), std::string::npos) << strInput;
    EXPECT_NE(strInput.find("Host: \nRoot: "), std::string::npos) << strInput;
    // The log is UTF-8 whatever the locale.
    EXPECT_NE(Log().find("  Description: Gr\xC3\xBC\xC3\x9F" "e\n"), std::string::npos);
}

TEST_F(ClientCmdsTest, TextInAUtf8Locale)
{
    Server(s_pszHistory);
    ASSERT_TRUE(UseUtf8Locale());
    TClient cClient = Spec();
    cClient.strDescription = L"Gr\u00FC\u00DFe \u2713";
    ASSERT_TRUE(m_cCmd.CreateClient(cClient));
    const std::string strInput = OnlyInput();
    EXPECT_NE(strInput.find("\nDescription: Gr\xC3\xBC\xC3\x9F" "e \xE2\x9C\x93\nRoot: "), std::string::npos)
        << strInput;
}

TEST_F(ClientCmdsTest, RootIsMadeAbsoluteAndNormalised)
{
    Server(s_pszHistory);
    TClient cClient = Spec();
    cClient.cRoot = Path(CString(wxString(m_strTemp + "/x/../ws")).wc_str());
    ASSERT_TRUE(m_cCmd.CreateClient(cClient));
    EXPECT_NE(OnlyInput().find("\nRoot: " + Root() + "\n"), std::string::npos);
}

TEST_F(ClientCmdsTest, RelativeRootIsTakenFromTheCurrentFolder)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "client", 1);
    TClient cClient = Spec();
    cClient.cRoot = Path(L"ws/sub");
    EXPECT_FALSE(m_cCmd.CreateClient(cClient));
    const std::string strCwd = std::filesystem::current_path().string();
    EXPECT_NE(Log().find("\n  Root: " + strCwd + "/ws/sub\n"), std::string::npos);
}

TEST_F(ClientCmdsTest, CreateFailure)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "^client -i$", 1);
    EXPECT_FALSE(m_cCmd.CreateClient(Spec()));
    const std::string strLog = Log();
    const std::string strTail = Performed("client -i") + SimFailure("client -i");
    ASSERT_GE(strLog.size(), strTail.size());
    EXPECT_EQ(strLog.substr(strLog.size() - strTail.size()), strTail);
    EXPECT_EQ(std::count(strLog.begin(), strLog.end(), '\n'), 13);
}

TEST_F(ClientCmdsTest, DeleteClient)
{
    Server(s_pszHistory);
    ASSERT_TRUE(m_cCmd.CreateClient(Spec()));
    CClientCmd cDelete;
    EXPECT_TRUE(cDelete.DeleteClient(L"Orvane_Temp_Client"));
    CClientCmd cAgain;
    EXPECT_FALSE(cAgain.DeleteClient(L"Orvane_Temp_Client"));
    EXPECT_EQ(JournalArgs(), (std::vector<std::string>{"client -i", "client -d Orvane_Temp_Client",
                                                       "client -d Orvane_Temp_Client"}));
    const std::string strLog = Log();
    const std::string strTail = Performed("client -i") + Performed("client -d Orvane_Temp_Client") +
                                Performed("client -d Orvane_Temp_Client") +
                                "42:  Command failure (1) - Client 'Orvane_Temp_Client' doesn't exist. \n";
    ASSERT_GE(strLog.size(), strTail.size());
    EXPECT_EQ(strLog.substr(strLog.size() - strTail.size()), strTail);
}

TEST_F(ClientCmdsTest, DeleteClientNameIsNotQuoted)
{
    Server(s_pszHistory);
    EXPECT_FALSE(m_cCmd.DeleteClient(L"my client"));
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["argv"], nlohmann::json({g_pszP4Sim, "client", "-d", "my", "client"}));
    const std::string strLog = Log();
    EXPECT_EQ(strLog.substr(0, Performed("client -d my client").size()), Performed("client -d my client"));
}

TEST_F(ClientCmdsTest, SyncArgumentTexts)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "^sync", 1);
    CSyncCmd cSync;
    EXPECT_FALSE(cSync.SyncToChange(Path(L"/tmp/ws/main"), 42));
    EXPECT_FALSE(cSync.RemoveFromClient(Path(L"/tmp/ws/main")));
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 2u);
    EXPECT_EQ(aJournal[0]["argv"], nlohmann::json({g_pszP4Sim, "sync", "/tmp/ws/main/...@42"}));
    EXPECT_EQ(aJournal[1]["argv"], nlohmann::json({g_pszP4Sim, "sync", "-f", "/tmp/ws/main/...#none"}));
    EXPECT_EQ(Log(), Performed("sync \"/tmp/ws/main/...@42\"") + SimFailure("sync /tmp/ws/main/...@42") +
                         Performed("sync -f \"/tmp/ws/main/...#none\"") + SimFailure("sync -f /tmp/ws/main/...#none"));
}

TEST_F(ClientCmdsTest, OnlySyncMakesARelativePathAbsolute)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "^sync", 1);
    CSyncCmd cSync;
    EXPECT_FALSE(cSync.SyncToChange(Path(L"ws/main"), 7));
    EXPECT_FALSE(cSync.RemoveFromClient(Path(L"ws/main")));
    const std::string strCwd = std::filesystem::current_path().string();
    EXPECT_EQ(JournalArgs(), (std::vector<std::string>{"sync " + strCwd + "/ws/main/...@7",
                                                       "sync -f ws/main/...#none"}));
}

TEST_F(ClientCmdsTest, SyncPathWithABlankIsOneArgument)
{
    Server(s_pszHistory);
    ::setenv("P4SIM_FAIL", "^sync", 1);
    CSyncCmd cSync;
    EXPECT_FALSE(cSync.SyncToChange(Path(L"/tmp/my ws/main"), 3));
    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 1u);
    EXPECT_EQ(aJournal[0]["argv"], nlohmann::json({g_pszP4Sim, "sync", "/tmp/my ws/main/...@3"}));
}

TEST_F(ClientCmdsTest, SyncBringsTheFilesOfAChange)
{
    Server(s_pszHistory);
    ASSERT_TRUE(m_cCmd.CreateClient(Spec()));
    ::setenv("P4CLIENT", s_pszClient, 1);
    ::setenv("P4HOST", "h1", 1);

    const CFilePath cMain = Path(CString(wxString(Root() + "/main")).wc_str());
    const std::string strA = Root() + "/main/a.c";
    const std::string strB = Root() + "/main/sub/b.c";
    CSyncCmd cSync;
    ASSERT_TRUE(cSync.SyncToChange(cMain, 1));
    EXPECT_EQ(ReadWholeFile(strA), "one\n");
    EXPECT_EQ(ReadWholeFile(strB), "bee\n");
    // The same object runs the next sync.
    ASSERT_TRUE(cSync.SyncToChange(cMain, 2));
    EXPECT_EQ(ReadWholeFile(strA), "two\n");
    EXPECT_FALSE(std::filesystem::exists(Root() + "/rel1/r.c"));
    ASSERT_TRUE(cSync.RemoveFromClient(cMain));
    EXPECT_FALSE(std::filesystem::exists(strA));
    EXPECT_FALSE(std::filesystem::exists(strB));

    const auto aJournal = Journal();
    ASSERT_EQ(aJournal.size(), 4u);
    EXPECT_EQ(aJournal[1]["args"], "sync " + Root() + "/main/...@1");
    EXPECT_EQ(aJournal[2]["args"], "sync " + Root() + "/main/...@2");
    EXPECT_EQ(aJournal[3]["args"], "sync -f " + Root() + "/main/...#none");
    for (size_t i = 1; i < aJournal.size(); ++i)
    {
        EXPECT_EQ(aJournal[i]["P4CLIENT"], "Orvane_Temp_Client");
        EXPECT_EQ(aJournal[i]["P4HOST"], "h1");
        EXPECT_EQ(aJournal[i]["P4PORT"], "sim:" + m_strServer);
        EXPECT_EQ(aJournal[i]["P4USER"], "tester");
        EXPECT_EQ(aJournal[i]["stdin"], "");
        EXPECT_EQ(aJournal[i]["exit"], 0);
    }
    const std::string strLog = Log();
    const std::string strTail = Performed("client -i") + Performed("sync \"" + Root() + "/main/...@1\"") +
                                Performed("sync \"" + Root() + "/main/...@2\"") +
                                Performed("sync -f \"" + Root() + "/main/...#none\"");
    ASSERT_GE(strLog.size(), strTail.size());
    EXPECT_EQ(strLog.substr(strLog.size() - strTail.size()), strTail);
}

TEST_F(ClientCmdsTest, SyncWithoutAClientFails)
{
    Server(s_pszHistory);
    ::setenv("P4CLIENT", "nobody", 1);
    CSyncCmd cSync;
    EXPECT_FALSE(cSync.SyncToChange(Path(CString(wxString(Root() + "/main")).wc_str()), 1));
    const std::string strLog = Log();
    EXPECT_EQ(strLog.substr(0, Performed("sync").size() - 1), Performed("sync").substr(0, Performed("sync").size() - 1));
    EXPECT_NE(strLog.find("\n42:  Command failure (1) - Client 'nobody' unknown"), std::string::npos) << strLog;
}

} // namespace
} // namespace mp4test
