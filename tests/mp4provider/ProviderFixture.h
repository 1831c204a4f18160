// Perforce provider tests: a p4sim server per test in a temporary folder,
// p4sim as the p4 executable with its journal on, and a provider whose log
// prefix is fixed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Files.h"
#include "Run.h"
#include "Scratch.h"
#include "host/VCM.h"
#include "mp4/MP4Provider.h"

namespace p4test {

using ORVANE::VCM::CFilePath;
using ORVANE::VCM::CString;
using TStreamInfo = ORVANE::MCE::CProvider::TStreamInfo;

extern const char* const g_pszP4Sim;

std::string Utf8(const wxString& str);
using ORVANE::TEST::ReadWholeFile;
using ORVANE::TEST::WriteWholeFile;
CFilePath Path(const wchar_t* psz);

// The provider with its protected state open for inspection.
class CTestableProvider : public ORVANE::MP4::CProvider
{
public:
    using CProvider::m_atStreams;
    using CProvider::m_bCaseInsensitive;
    using CProvider::m_cStreamRoot;
    using CProvider::m_nNextStreamID;
    using CProvider::m_strHostName;
    using CProvider::m_strID;
    using CProvider::m_strSavedClient;
    using CProvider::m_strSavedHost;
    using CProvider::m_astrIgnoredPatterns;
    using CProvider::m_strDescription;
    using CProvider::m_bFlag1;
    using CProvider::m_bFlag2;
};

// "id parent name dst src base" for every stream, in array order.
std::vector<std::string> Describe(const ORVANE::VCM::CArray<TStreamInfo>& atStreams);

class CProviderTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // Loads a history (JSON text) into the test's server.
    void Load(const std::string& strHistory);
    // Sets every setting: defaults, P4Path = p4sim, then the given ones.
    void Settings(const std::vector<std::pair<std::wstring, std::wstring>>& atOverrides = {});
    // Ends the log and returns what was written after its first line.
    std::string Log();
    std::vector<nlohmann::json> Journal();
    std::vector<std::string> JournalArgs();
    // Runs p4sim with arguments (one string, split at blanks) against the
    // test's server, outside the journal; its standard output.
    std::string P4(const std::string& strArgs, int* pnStatus = nullptr);
    // Environment variable, or "(unset)".
    static std::string Env(const char* pszName);

    std::unique_ptr<ORVANE::TEST::CScratchFolder> m_pScratch;
    std::string m_strTemp;
    std::string m_strServer;
    std::string m_strJournal;
    std::string m_strWorkspace;
    CTestableProvider* m_pProvider = nullptr;
};

} // namespace p4test
