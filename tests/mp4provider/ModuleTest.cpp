// The loadable module, used the way a host uses it: loaded with dlopen, its
// two exports called, and a small migration run through the returned object
// alone.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>
#include <cwchar>

#include "ProviderFixture.h"
#include "mce/ModuleEntry.h"

using namespace p4test;

namespace {

const char* const g_pszModule = MP4PROVIDER_MODULE;

typedef ORVANE::MCE::TModuleCreateProvider* TCreate;
typedef ORVANE::MCE::TModuleGetOptions* TGetOptions;

// dlsym gives an object pointer; its bits are the function's address.
template <typename TFunction>
TFunction Symbol(void* pHandle, const char* pszName)
{
    void* p = dlsym(pHandle, pszName);
    TFunction pfn = nullptr;
    static_assert(sizeof(pfn) == sizeof(p), "function and object pointers differ in size");
    std::memcpy(&pfn, &p, sizeof(p));
    return pfn;
}

struct TModule
{
    void* pHandle = dlopen(g_pszModule, RTLD_NOW | RTLD_LOCAL);
    ~TModule()
    {
        if (pHandle)
            dlclose(pHandle);
    }
};

} // namespace

TEST(Module, GetOptionsWritesExactlyIdNameAndFlags)
{
    TModule tModule;
    ASSERT_NE(nullptr, tModule.pHandle) << dlerror();
    TGetOptions pfnGetOptions = Symbol<TGetOptions>(tModule.pHandle, ORVANE::MCE::ModuleGetOptionsName("p4").c_str());
    ASSERT_NE(nullptr, pfnGetOptions);
    wchar_t szID[8];
    wchar_t szName[16];
    std::wmemset(szID, L'#', 8);
    std::wmemset(szName, L'#', 16);
    unsigned int nFlags = 0xdeadbeef;
    pfnGetOptions(szID, szName, &nFlags);
    EXPECT_EQ(0, std::wmemcmp(szID, L"p4\0#####", 8));
    EXPECT_EQ(0, std::wmemcmp(szName, L"Perforce\0#######", 16));
    EXPECT_EQ(0u, nFlags);
}

TEST(Module, OnlyTheTwoExportsAreVisible)
{
    EXPECT_EQ("orvane_em_p4_getoptions", ORVANE::MCE::ModuleGetOptionsName("p4"));
    EXPECT_EQ("orvane_em_p4_createprovider", ORVANE::MCE::ModuleCreateProviderName("p4"));
    TModule tModule;
    ASSERT_NE(nullptr, tModule.pHandle) << dlerror();
    EXPECT_NE(nullptr, dlsym(tModule.pHandle, "orvane_em_p4_createprovider"));
    EXPECT_EQ(nullptr, dlsym(tModule.pHandle, "_ZN6ORVANE3MP49CProviderC1Ev"));
    EXPECT_EQ(nullptr, dlsym(tModule.pHandle, "_ZN6ORVANE3MCE13CProviderBase11s_poInstanceE"));
}

TEST_F(CProviderTest, SmallMigrationThroughTheModuleAlone)
{
    nlohmann::json j;
    j["users"] = nlohmann::json::array({{{"name", "jo"}}});
    j["branches"] = {{{"name", "rel1"}, {"owner", "jo"}, {"view", {"//depot/main/... //depot/rel1/..."}}}};
    j["changes"] = {
        {{"user", "jo"}, {"client", "ws"}, {"time", 1000}, {"description", "add"},
         {"files", {{{"path", "//depot/main/a.txt"}, {"action", "add"}, {"content", "one\n"}}}}},
        {{"user", "ann"}, {"client", "ws2"}, {"time", 1100}, {"description", "branch"},
         {"files", {{{"path", "//depot/rel1/a.txt"}, {"action", "branch"}, {"from", "//depot/main/a.txt"}}}}},
    };
    Load(j.dump());

    TModule tModule;
    ASSERT_NE(nullptr, tModule.pHandle) << dlerror();
    TCreate pfnCreate = Symbol<TCreate>(tModule.pHandle, ORVANE::MCE::ModuleCreateProviderName("p4").c_str());
    ASSERT_NE(nullptr, pfnCreate);
    ORVANE::MCE::CProvider* p = static_cast<ORVANE::MCE::CProvider*>(pfnCreate());
    ASSERT_NE(nullptr, p);
    EXPECT_EQ("Perforce", Utf8(p->GetProviderName()));

    for (const ORVANE::MCE::TPropertyInfo* pInfo = p->GetPropertyInfo(); pInfo->pszKey; ++pInfo)
        p->SetProperty(pInfo->pszKey, pInfo->pszDefault);
    p->SetProperty(L"P4Path", wxString::FromUTF8(g_pszP4Sim));
    CString strWarning;
    EXPECT_EQ(0, p->CheckEnvironment(strWarning));
    p->OpenLog(true);

    unsigned int nCount = 0;
    ASSERT_EQ(0, p->EstablishStreams(nCount));
    ASSERT_EQ(2u, nCount);
    ASSERT_TRUE(p->InitialiseClients(wxString::FromUTF8(m_strWorkspace.c_str())));
    ASSERT_EQ(0, mkdir(m_strWorkspace.c_str(), 0755));

    std::vector<std::string> astrSeen;
    for (unsigned int nParent : {0u, 1u})
    {
        ORVANE::POSITION pos = nullptr;
        TStreamInfo tStream;
        while (p->GetNextStream(pos, tStream, nParent) == 0)
        {
            const std::string strRoot = m_strWorkspace + "/" + Utf8(tStream.strName);
            ASSERT_EQ(0, mkdir(strRoot.c_str(), 0755));
            ASSERT_EQ(0, p->OnBeginStream(tStream.nID, wxString::FromUTF8(strRoot.c_str())));
            ASSERT_EQ(0, p->EstablishChangesets(nCount));
            EXPECT_EQ(2u, nCount);
            ORVANE::MCE::CProvider::TChangeInfo tChange;
            for (int r = p->OnFirstChangeset(tChange); r == 0; r = p->OnNextChangeset(tChange))
            {
                ASSERT_EQ(0, p->OnProcessChange(tChange));
                ORVANE::MCE::CProvider::TChangeItemInfo tItem;
                for (int s = p->OnFirstChangeItem(tItem); s == 0; s = p->OnNextChangeItem(tItem))
                {
                    const std::string strFile = strRoot + "/" + Utf8(tItem.cFilePath.GeneratePath(L'/', true));
                    astrSeen.push_back(Utf8(tStream.strName) + " " + Utf8(tChange.strUser) + " " +
                                       std::to_string(tChange.tTime) + " " + std::to_string(tItem.eType) + " " +
                                       Utf8(tItem.cFilePath.GeneratePath(L'/', true)) + " " +
                                       ReadWholeFile(strFile));
                }
            }
        }
    }
    EXPECT_EQ((std::vector<std::string>{"depot_main jo@ws 1000 0 a.txt one\n", "rel1 ann@ws2 1100 0 a.txt one\n"}),
              astrSeen);

    EXPECT_TRUE(p->RemoveClients());
    EXPECT_EQ("(unset)", Env("P4CLIENT"));
    const CString strLog = p->GetLogPath();
    EXPECT_NE(std::string::npos, ReadWholeFile(Utf8(strLog)).find("Beginning Import with Perforce\n"));
    unlink(strLog.utf8_str().data());
    p->Destroy();
    struct stat st;
    EXPECT_NE(0, stat(("/tmp/orvane-em-" + std::to_string(getpid()) + ".tdf").c_str(), &st));
}
