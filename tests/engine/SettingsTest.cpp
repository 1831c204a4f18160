// The provider's settings: the table shown, and the values set.
#include <gtest/gtest.h>

#include "FakeProvider.h"
#include "Settings.h"
#include "Stop.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;

namespace {

class CSettingsTest : public ::testing::Test
{
protected:
    CSettingsTest()
    {
        m_cProvider.m_atProperties = {{L"Program Path", L"Path", L"p4", ORVANE::MCE::ePropertyFile},
                                      {L"R\u00e9sum\u00e9", L"Root", L"//depot/...", ORVANE::MCE::ePropertyText},
                                      {L"Fast", L"Fast", L"1", ORVANE::MCE::ePropertyBoolean},
                                      {nullptr, L"Odd", nullptr, 7},
                                      {nullptr, nullptr, nullptr, 0}};
    }
    std::string Failure(const TSettings& atGiven)
    {
        return StopOf([&] { ApplySettings(m_cProvider, atGiven); });
    }
    CFakeProvider m_cProvider;
};

} // namespace

TEST_F(CSettingsTest, TheTable)
{
    EXPECT_EQ("NAME          KEY   DEFAULT      TYPE\n"
              "Program Path  Path  p4           file\n"
              "R\xC3\xA9sum\xC3\xA9        Root  //depot/...  text\n"
              "Fast          Fast  1            boolean\n"
              "              Odd                7\n",
              FormatTable(SettingRows(m_cProvider.GetPropertyInfo())));
    EXPECT_EQ(1u, SettingRows(nullptr).size());
}

TEST_F(CSettingsTest, GivenValuesOverDefaultsInTableOrder)
{
    ApplySettings(m_cProvider, {{"Fast", "1"}, {"Root", "//a/..."}, {"Fast", "0"}});
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{
                  {"Path", "p4"}, {"Root", "//a/..."}, {"Fast", "0"}, {"Odd", ""}}),
              m_cProvider.m_atSet);
    EXPECT_EQ((std::vector<std::string>{"ValidateStringProperty Path", "ValidateStringProperty Root",
                                        "ValidateStringProperty Fast", "ValidateStringProperty Odd"}),
              m_cProvider.m_astrCalls);
}

TEST_F(CSettingsTest, RefusedSettings)
{
    EXPECT_EQ("2 unknown setting 'Nope' (see --list-settings)", Failure({{"Root", "x"}, {"Nope", "1"}}));
    EXPECT_TRUE(m_cProvider.m_atSet.empty());
    EXPECT_EQ("2 the setting 'Fast' takes 0 or 1", Failure({{"Fast", "yes"}}));
    m_cProvider.m_atSet.clear();
    m_cProvider.m_strRejected = "bad";
    EXPECT_EQ("2 the setting 'Root' is not valid: not this one", Failure({{"Root", "bad"}}));
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"Path", "p4"}}), m_cProvider.m_atSet);
}
