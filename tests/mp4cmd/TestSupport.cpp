#include "TestSupport.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <wx/strconv.h>

namespace mp4test {

const char* const g_pszP4Sim = MP4CMD_P4SIM;
const char* const g_pszFeeder = MP4CMD_FEEDER;
const char* const g_pszDecodeChild = MP4CMD_DECODE_CHILD;

namespace {

// 100 hours and 42 seconds: every log line is prefixed "42: ".
time_t FixedClock(time_t* pt)
{
    const time_t t = 360042;
    if (pt)
        *pt = t;
    return t;
}

const char* const s_apszClearedVariables[] = {
    "P4SIM_FAIL", "P4SIM_GARBLE", "P4SIM_GARBLE_MODE", "P4SIM_JOURNAL", "P4SIM_LATENCY_MS", "P4CLIENT",
    "P4HOST", "P4PORT", "P4CONFIG", "P4TICKETS", "P4PASSWD", "MP4CMD_FEED",
};

} // namespace

CTestProvider::CTestProvider() : CProviderBase(L"test", L"Test", L"Test provider", false, false)
{
}

const ORVANE::MCE::TPropertyInfo* CTestProvider::GetPropertyInfo()
{
    static const ORVANE::MCE::TPropertyInfo s_atNone[] = {{nullptr, nullptr, nullptr, 0}};
    return s_atNone;
}

std::wstring W(const CString& str)
{
    return std::wstring(str.wc_str(), str.length());
}

CFilePath Path(const wchar_t* psz)
{
    CFilePath cPath;
    EXPECT_TRUE(cPath.Parse(psz, -1, false)) << "cannot parse a test path";
    return cPath;
}

void WriteWholeFile(const std::string& strPath, const std::string& strData)
{
    ASSERT_TRUE(ORVANE::TEST::WriteWholeFile(strPath, strData)) << strPath;
}

bool UseUtf8Locale()
{
    return std::setlocale(LC_ALL, "C.UTF-8") != nullptr || std::setlocale(LC_ALL, "C.utf8") != nullptr;
}

void CCommandTest::SetUp()
{
    std::setlocale(LC_ALL, "C");
    for (const char* pszName : s_apszClearedVariables)
        ::unsetenv(pszName);
    ::setenv("P4USER", "tester", 1);

    m_pScratch.reset(new ORVANE::TEST::CScratchFolder("mp4cmd"));
    m_strTemp = m_pScratch->Path();
    ASSERT_FALSE(m_strTemp.empty());
    m_strServer = m_strTemp + "/server";
    m_strFeed = m_strTemp + "/feed";
    m_strJournal = m_strTemp + "/journal.jsonl";

    m_strSavedExecutable = ORVANE::MP4::CCommandBase::s_strP4Executable;
    ORVANE::MCE::CProviderBase::s_pfnClock = &FixedClock;
    m_pProvider = new CTestProvider;
    m_pProvider->OpenLog(true);
}

void CCommandTest::TearDown()
{
    if (m_pProvider)
        m_pProvider->Destroy();
    m_pProvider = nullptr;
    ORVANE::MP4::CCommandBase::SetP4Executable(m_strSavedExecutable);
    for (const char* pszName : s_apszClearedVariables)
        ::unsetenv(pszName);
    std::setlocale(LC_ALL, "C");
    m_pScratch.reset();
}

std::string CCommandTest::Log()
{
    const CString strPath = m_pProvider->GetLogPath();
    const std::string strFile(strPath.utf8_str().data());
    std::string strText = ReadWholeFile(strFile);
    std::remove(strFile.c_str());
    const std::string strFirst = "42: Beginning Import with Test\n";
    EXPECT_EQ(strText.substr(0, strFirst.size()), strFirst);
    if (strText.compare(0, strFirst.size(), strFirst) == 0)
        strText.erase(0, strFirst.size());
    return strText;
}

void CCommandTest::Feed(const std::string& strArgs, const std::string& strOut, const std::string& strErr, int nExit)
{
    std::filesystem::create_directories(m_strFeed);
    const std::string strName = ORVANE::TEST::FeedName(strArgs);
    WriteWholeFile(m_strFeed + "/" + strName + ".out", strOut);
    WriteWholeFile(m_strFeed + "/" + strName + ".err", strErr);
    WriteWholeFile(m_strFeed + "/" + strName + ".exit", std::to_string(nExit));
    ::setenv("MP4CMD_FEED", m_strFeed.c_str(), 1);
    ORVANE::MP4::CCommandBase::SetP4Executable(CString(wxString(g_pszFeeder)));
}

std::vector<std::string> CCommandTest::FeedArgs()
{
    std::vector<std::string> astrLines;
    std::istringstream cText(ReadWholeFile(m_strFeed + "/args.log"));
    for (std::string strLine; std::getline(cText, strLine);)
        astrLines.push_back(strLine);
    return astrLines;
}

int CCommandTest::Run(const std::string& strCommandLine, std::string* pstrOut, std::string* pstrErr)
{
    ORVANE::VCM::CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(CString(wxString(strCommandLine)));
    auto Drain = [](wxInputStream* pStream) {
        std::string str;
        char acBuffer[4096];
        while (pStream && !pStream->Eof())
        {
            pStream->Read(acBuffer, sizeof(acBuffer));
            if (pStream->LastRead() == 0)
                break;
            str.append(acBuffer, pStream->LastRead());
        }
        return str;
    };
    const std::string strOut = Drain(cCapture.GetStdOutputStream());
    const std::string strErr = Drain(cCapture.GetStdErrorStream());
    if (pstrOut)
        *pstrOut = strOut;
    if (pstrErr)
        *pstrErr = strErr;
    return nStatus;
}

void CCommandTest::Server(const std::string& strHistory)
{
    const std::string strHistoryFile = m_strTemp + "/history.json";
    WriteWholeFile(strHistoryFile, strHistory);
    std::string strErr;
    ASSERT_EQ(Run(std::string(g_pszP4Sim) + " admin init " + m_strServer, nullptr, &strErr), 0) << strErr;
    ASSERT_EQ(Run(std::string(g_pszP4Sim) + " admin load " + m_strServer + " " + strHistoryFile, nullptr, &strErr), 0)
        << strErr;
    ::setenv("P4PORT", ("sim:" + m_strServer).c_str(), 1);
    ::setenv("P4SIM_JOURNAL", m_strJournal.c_str(), 1);
    ORVANE::MP4::CCommandBase::SetP4Executable(CString(wxString(g_pszP4Sim)));
}

std::vector<nlohmann::json> CCommandTest::Journal()
{
    std::vector<nlohmann::json> aEntries;
    std::istringstream cText(ReadWholeFile(m_strJournal));
    for (std::string strLine; std::getline(cText, strLine);)
        if (!strLine.empty())
            aEntries.push_back(nlohmann::json::parse(strLine));
    return aEntries;
}

std::vector<std::string> CCommandTest::JournalArgs()
{
    std::vector<std::string> astrArgs;
    for (const auto& tEntry : Journal())
        astrArgs.push_back(tEntry["args"].get<std::string>());
    return astrArgs;
}

std::string CCommandTest::Performed(const std::string& strArgs)
{
    const std::string strExecutable(ORVANE::MP4::CCommandBase::s_strP4Executable.utf8_str().data());
    return "42: Performing command " + strExecutable + " " + strArgs + "\n";
}

std::string CCommandTest::SimFailure(const std::string& strArgs)
{
    return "42:  Command failure (1) - p4sim: simulated failure of '" + strArgs + "' \n";
}

} // namespace mp4test
