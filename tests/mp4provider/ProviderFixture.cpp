#include "ProviderFixture.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "mp4/MP4CommandBase.h"

namespace p4test {

const char* const g_pszP4Sim = MP4PROVIDER_P4SIM;

namespace {
time_t FixedClock(time_t* pt)
{
    if (pt)
        *pt = 42;
    return 42;
}

// Runs a command line directly; its status, and its standard output.
int RunCommand(const std::string& strCommandLine, std::string* pstrOut)
{
    ORVANE::VCM::CProcessCapture cCapture;
    const int nStatus = cCapture.Execute(wxString::FromUTF8(strCommandLine.c_str()));
    if (pstrOut)
    {
        pstrOut->clear();
        wxInputStream* pOut = cCapture.GetStdOutputStream();
        char ach[4096];
        while (!pOut->Eof())
        {
            pOut->Read(ach, sizeof(ach));
            pstrOut->append(ach, pOut->LastRead());
            if (pOut->LastRead() == 0)
                break;
        }
    }
    return nStatus;
}
} // namespace

std::string Utf8(const wxString& str)
{
    return std::string(str.utf8_str().data());
}

CFilePath Path(const wchar_t* psz)
{
    CFilePath c;
    c.Parse(psz, -1, false);
    return c;
}

std::vector<std::string> Describe(const ORVANE::VCM::CArray<TStreamInfo>& atStreams)
{
    std::vector<std::string> astr;
    for (int i = 0; i < atStreams.GetCount(); ++i)
    {
        const TStreamInfo& t = atStreams[i];
        astr.push_back(std::to_string(t.nID) + " " + std::to_string(t.nParentID) + " " + Utf8(t.strName) + " " +
                       Utf8(t.cDstPath.GeneratePath(L'/', true)) + " " + Utf8(t.cSrcPath.GeneratePath(L'/', true)) +
                       " " + std::to_string(t.nBaseChangeID));
    }
    return astr;
}

void CProviderTest::SetUp()
{
    m_pScratch.reset(new ORVANE::TEST::CScratchFolder("orvane-p4provider"));
    m_strTemp = m_pScratch->Path();
    ASSERT_FALSE(m_strTemp.empty());
    m_strServer = m_strTemp + "/server";
    m_strJournal = m_strTemp + "/journal.jsonl";
    m_strWorkspace = m_strTemp + "/ws";
    const ORVANE::TEST::TRunResult tInit = ORVANE::TEST::RunProgram({g_pszP4Sim, "admin", "init", m_strServer});
    ASSERT_EQ(0, tInit.nStatus) << tInit.strErr;
    setenv("P4PORT", ("sim:" + m_strServer).c_str(), 1);
    setenv("P4USER", "tester", 1);
    setenv("P4SIM_JOURNAL", m_strJournal.c_str(), 1);
    unsetenv("P4CLIENT");
    unsetenv("P4HOST");
    unsetenv("P4SIM_FAIL");
    unsetenv("P4SIM_GARBLE");
    ORVANE::MCE::CProviderBase::s_pfnClock = &FixedClock;
    m_pProvider = new CTestableProvider;
    m_pProvider->OpenLog(true);
}

void CProviderTest::TearDown()
{
    if (m_pProvider)
    {
        const CString strLog = m_pProvider->GetLogPath();
        if (!strLog.empty())
            unlink(strLog.utf8_str().data());
        m_pProvider->Destroy();
    }
    ORVANE::MCE::CProviderBase::s_pfnClock = &::time;
    ORVANE::MP4::CCommandBase::SetP4Executable(L"p4");
    for (const char* psz : {"P4PORT", "P4USER", "P4SIM_JOURNAL", "P4CLIENT", "P4HOST", "P4SIM_FAIL"})
        unsetenv(psz);
    m_pScratch.reset();
}

void CProviderTest::Load(const std::string& strHistory)
{
    const std::string strFile = m_strTemp + "/history.json";
    WriteWholeFile(strFile, strHistory);
    unsetenv("P4SIM_JOURNAL");
    const ORVANE::TEST::TRunResult tLoad =
        ORVANE::TEST::RunProgram({g_pszP4Sim, "admin", "load", m_strServer, strFile});
    setenv("P4SIM_JOURNAL", m_strJournal.c_str(), 1);
    ASSERT_EQ(0, tLoad.nStatus) << tLoad.strErr;
}

void CProviderTest::Settings(const std::vector<std::pair<std::wstring, std::wstring>>& atOverrides)
{
    for (const ORVANE::MCE::TPropertyInfo* p = m_pProvider->GetPropertyInfo(); p->pszKey; ++p)
        m_pProvider->SetProperty(p->pszKey, p->pszDefault);
    m_pProvider->SetProperty(L"P4Path", wxString::FromUTF8(g_pszP4Sim));
    for (const auto& t : atOverrides)
        m_pProvider->SetProperty(t.first.c_str(), t.second.c_str());
}

std::string CProviderTest::Log()
{
    const CString strPath = m_pProvider->GetLogPath();
    std::string strLog = ReadWholeFile(Utf8(strPath));
    unlink(strPath.utf8_str().data());
    const std::string strFirst = "42: Beginning Import with Perforce\n";
    EXPECT_EQ(0u, strLog.find(strFirst));
    return strLog.substr(strFirst.size());
}

std::vector<nlohmann::json> CProviderTest::Journal()
{
    std::vector<nlohmann::json> aj;
    std::istringstream in(ReadWholeFile(m_strJournal));
    std::string strLine;
    while (std::getline(in, strLine))
        if (!strLine.empty())
            aj.push_back(nlohmann::json::parse(strLine));
    return aj;
}

std::vector<std::string> CProviderTest::JournalArgs()
{
    std::vector<std::string> astr;
    for (const nlohmann::json& j : Journal())
        astr.push_back(j.at("args").get<std::string>());
    return astr;
}

std::string CProviderTest::P4(const std::string& strArgs, int* pnStatus)
{
    unsetenv("P4SIM_JOURNAL");
    std::string strOut;
    const int nStatus = RunCommand(std::string(g_pszP4Sim) + " " + strArgs, &strOut);
    setenv("P4SIM_JOURNAL", m_strJournal.c_str(), 1);
    if (pnStatus)
        *pnStatus = nStatus;
    return strOut;
}

std::string CProviderTest::Env(const char* pszName)
{
    const char* psz = getenv(pszName);
    return psz ? psz : "(unset)";
}

} // namespace p4test
