// Finding and loading a migration module: the real one, modules lacking
// an export or a provider, and files that are no module.
#include <unistd.h>

#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "EngineHarness.h"
#include "Module.h"
#include "Stop.h"
#include "Text.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using enginetest::StopOf;

namespace {

std::string Folder(const std::string& strPath)
{
    return strPath.substr(0, strPath.rfind('/'));
}

} // namespace

TEST(Module, ProviderIds)
{
    EXPECT_TRUE(CModule::IsValidID("p4"));
    EXPECT_TRUE(CModule::IsValidID("my_svn2"));
    EXPECT_TRUE(CModule::IsValidID(""));
    EXPECT_FALSE(CModule::IsValidID("P4"));
    EXPECT_FALSE(CModule::IsValidID("p-4"));
    EXPECT_FALSE(CModule::IsValidID("../p4"));
    EXPECT_EQ("liborvane-em-p4.so", CModule::FileName("p4"));
}

TEST(Module, FoldersAreTheInstallationsThenTheBuildTrees)
{
    char ach[4096];
    const ssize_t n = readlink("/proc/self/exe", ach, sizeof(ach) - 1);
    ASSERT_GT(n, 0);
    const std::vector<std::string> astrFolders = CModule::Folders();
    ASSERT_EQ(2u, astrFolders.size());
    EXPECT_EQ(Folder(std::string(ach, size_t(n))) + "/../lib/orvane", astrFolders[0]);
    EXPECT_EQ(Folder(ENGINETEST_MODULE), astrFolders[1]);
}

TEST(Module, FindTakesTheFirstFolderThatHasIt)
{
    enginetest::TScratch tScratch;
    const std::string strA = tScratch.Path() + "/a", strB = tScratch.Path() + "/b";
    ASSERT_TRUE(std::filesystem::create_directory(strA) && std::filesystem::create_directory(strB));
    enginetest::WriteWholeFile(strB + "/liborvane-em-x.so", "");
    EXPECT_EQ(strB + "/liborvane-em-x.so", CModule::Find("x", {strA, strB}));
    enginetest::WriteWholeFile(strA + "/liborvane-em-x.so", "");
    EXPECT_EQ(strA + "/liborvane-em-x.so", CModule::Find("x", {strA, strB}));
    EXPECT_EQ("2 no module for the provider 'y' (looked for " + strA + "/liborvane-em-y.so)", StopOf([&] {
                  CModule::Find("y", {strA, strB});
              }));
}

TEST(Module, TheRealModule)
{
    CModule cModule;
    cModule.Load(ENGINETEST_MODULE, "p4");
    EXPECT_EQ("p4", cModule.ProviderID());
    EXPECT_EQ("Perforce", cModule.ProviderName());
    EXPECT_EQ(0u, cModule.Flags());
    ORVANE::MCE::CProvider* pProvider = cModule.CreateProvider();
    ASSERT_NE(nullptr, pProvider);
    EXPECT_EQ("Perforce", Utf8(pProvider->GetProviderName()));
    EXPECT_EQ(nullptr, pProvider->GetEngine());
    pProvider->Destroy();
}

TEST(Module, ModulesThatAreNotRight)
{
    CModule cModule;
    EXPECT_EQ("2 " ENGINETEST_FAKE_MODULE " is not a migration module for the provider 'half'",
              StopOf([&] { cModule.Load(ENGINETEST_FAKE_MODULE, "half"); }));
    EXPECT_EQ("2 " ENGINETEST_FAKE_MODULE " is not a migration module for the provider 'p4'",
              StopOf([&] { cModule.Load(ENGINETEST_FAKE_MODULE, "p4"); }));
    EXPECT_EQ("2 " ENGINETEST_MODULE " is not a migration module for the provider 'none'",
              StopOf([&] { cModule.Load(ENGINETEST_MODULE, "none"); }));
    EXPECT_EQ("2 cannot load /nonexistent/x.so: /nonexistent/x.so: cannot open shared object file: No such file or "
              "directory",
              StopOf([&] { cModule.Load("/nonexistent/x.so", "x"); }));
    enginetest::TScratch tScratch;
    enginetest::WriteWholeFile(tScratch.Path() + "/text.so", "not a library\n");
    EXPECT_EQ(0u, StopOf([&] {
                      cModule.Load(tScratch.Path() + "/text.so", "x");
                  }).find("2 cannot load " + tScratch.Path() + "/text.so: " + tScratch.Path() + "/text.so: "));

    CModule cNone;
    cNone.Load(ENGINETEST_FAKE_MODULE, "none");
    EXPECT_EQ("none", cNone.ProviderID());
    EXPECT_EQ("Nothing at all", cNone.ProviderName());
    EXPECT_EQ(5u, cNone.Flags());
    EXPECT_EQ("1 the module created no provider", StopOf([&] { cNone.CreateProvider(); }));
}
