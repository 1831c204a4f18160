// Linked into a test program, this gives the whole run a folder of its own
// for temporary files: $TMPDIR points into it while the tests run, and it
// goes with everything in it when they end. What the code under test leaves
// there by design (a provider's log, which its host would collect) is then
// never left behind in the machine's /tmp.
#include <memory>

#include <gtest/gtest.h>

#include "Environment.h"
#include "Scratch.h"

namespace {

class CPrivateTemporaryFolder : public ::testing::Environment
{
public:
    void SetUp() override
    {
        m_pFolder = std::make_unique<ORVANE::TEST::CScratchFolder>("orvane-tests");
        ASSERT_NE("", m_pFolder->Path()) << "cannot make a temporary folder in " << ORVANE::TEST::TemporaryFolder();
        m_pTmpdir = std::make_unique<ORVANE::TEST::CEnvironment>("TMPDIR", m_pFolder->Path());
    }
    void TearDown() override
    {
        m_pTmpdir.reset();
        m_pFolder.reset();
    }

private:
    std::unique_ptr<ORVANE::TEST::CScratchFolder> m_pFolder;
    std::unique_ptr<ORVANE::TEST::CEnvironment> m_pTmpdir;
};

::testing::Environment* const s_pPrivateTemporaryFolder =
    ::testing::AddGlobalTestEnvironment(new CPrivateTemporaryFolder);

} // namespace
