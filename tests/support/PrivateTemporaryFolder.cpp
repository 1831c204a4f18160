// Linked into a test program, this gives the whole run a folder of its own
// for temporary files: $TMPDIR points into it while the tests run, and it
// goes with everything in it when they end. What the code under test leaves
// there by design (a provider's log, which its host would collect) is then
// never left behind in the machine's /tmp.
#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "Scratch.h"

namespace {

class CPrivateTemporaryFolder : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const char* psz = std::getenv("TMPDIR");
        m_bHadTmpdir = psz != nullptr;
        if (psz)
            m_strTmpdir = psz;
        m_pFolder = std::make_unique<ORVANE::TEST::CScratchFolder>("orvane-tests");
        ASSERT_NE("", m_pFolder->Path()) << "cannot make a temporary folder in " << ORVANE::TEST::TemporaryFolder();
        ::setenv("TMPDIR", m_pFolder->Path().c_str(), 1);
    }
    void TearDown() override
    {
        if (m_bHadTmpdir)
            ::setenv("TMPDIR", m_strTmpdir.c_str(), 1);
        else
            ::unsetenv("TMPDIR");
        m_pFolder.reset();
    }

private:
    std::unique_ptr<ORVANE::TEST::CScratchFolder> m_pFolder;
    bool m_bHadTmpdir = false;
    std::string m_strTmpdir;
};

::testing::Environment* const s_pPrivateTemporaryFolder =
    ::testing::AddGlobalTestEnvironment(new CPrivateTemporaryFolder);

} // namespace
