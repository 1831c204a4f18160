// Shared pieces of the command layer tests: a provider that owns the import
// log, a prepared-bytes stand-in for p4, p4sim servers and their journal.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Files.h"
#include "Marshal.h"
#include "Scratch.h"
#include "Text.h"
#include "host/VCM.h"
#include "mce/ProviderBase.h"
#include "mp4/MP4.h"

namespace mp4test {

using ORVANE::VCM::CFilePath;
using ORVANE::VCM::CString;

// The smallest provider: it exists so that commands have a log to write to.
class CTestProvider : public ORVANE::MCE::CProviderBase
{
public:
    CTestProvider();
    int RetrieveChangeFiles(const ORVANE::MCE::TChangeRecord&) override { return 0; }
    int RetrieveChangeItemFile(const ORVANE::MCE::TChangeItemRecord&, const CString&) override { return 0; }
    bool SearchForStreams() override { return true; }
    bool EnumerateChanges() override { return true; }
    const ORVANE::MCE::TPropertyInfo* GetPropertyInfo() override;
    bool InitialiseClients(const CString&) override { return true; }
    bool RemoveClients() override { return true; }
    int ResolveStreamLinkage() override { return 0; }
};

// Opens the protected reader of the command base for the tests.
class CReaderCmd : public ORVANE::MP4::CCommandBase
{
public:
    using CCommandBase::Execute;
    using CCommandBase::GetNextPair;
    using CCommandBase::GetStdInputStream;
    using CCommandBase::ReadString;
};

using ORVANE::TEST::Le32;
using ORVANE::TEST::MarshalRecord;
using ORVANE::TEST::MarshalString;

std::wstring W(const CString& str);
CFilePath Path(const wchar_t* psz);
using ORVANE::TEST::ReadWholeFile;
using ORVANE::TEST::Utf8;
// Replaces the file's content; the test fails when it cannot.
void WriteWholeFile(const std::string& strPath, const std::string& strData);

// Every test: a temporary folder, a provider with an open log whose prefix
// is always "42: ", the p4 executable put back afterwards, and no p4 or
// p4sim setting inherited from the environment.
class CCommandTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // Ends the log and returns what was written after its first line
    // ("Beginning Import with Test").
    std::string Log();

    // The prepared-bytes stand-in becomes the p4 executable; the answer to
    // the argument text strArgs (or to any, for "default").
    void Feed(const std::string& strArgs, const std::string& strOut, const std::string& strErr = "",
              int nExit = 0);
    // Argument texts the stand-in was run with, in order.
    std::vector<std::string> FeedArgs();

    // A p4sim server loaded with a history; p4sim becomes the p4 executable
    // and its journal is switched on.
    void Server(const std::string& strHistory);
    std::vector<nlohmann::json> Journal();
    // The argument texts of the journal's entries, in order.
    std::vector<std::string> JournalArgs();
    // The log entry of a command run with the current executable.
    static std::string Performed(const std::string& strArgs);
    // The log entry of a command that p4sim failed on purpose (P4SIM_FAIL).
    static std::string SimFailure(const std::string& strArgs);
    // Runs a program with arguments through the host's capture; its status.
    int Run(const std::string& strCommandLine, std::string* pstrOut = nullptr, std::string* pstrErr = nullptr);

    std::unique_ptr<ORVANE::TEST::CScratchFolder> m_pScratch;
    std::string m_strTemp;
    std::string m_strServer;
    std::string m_strFeed;
    std::string m_strJournal;
    CTestProvider* m_pProvider = nullptr;
    CString m_strSavedExecutable;
};

// The program paths given by the build.
extern const char* const g_pszP4Sim;
extern const char* const g_pszFeeder;
extern const char* const g_pszDecodeChild;

// Switches the C library's locale to a UTF-8 one; false when there is none.
bool UseUtf8Locale();

} // namespace mp4test
