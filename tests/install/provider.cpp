// A migration module built against an installation alone: the provider
// framework from liborvane-mce, found with pkg-config. It proposes one
// stream and has one setting, so that the installed engine can list both.
#include <cwchar>

#include "mce/MCE.h"

namespace {

using namespace ORVANE;

class CDemoProvider : public MCE::CProviderBase
{
public:
    CDemoProvider() : CProviderBase(L"demo", L"Demo", L"A provider built against an installation", false, false) {}

    const MCE::TPropertyInfo* GetPropertyInfo() override
    {
        static const MCE::TPropertyInfo s_atInfo[] = {
            {L"Greeting", L"Greeting", L"hello", MCE::ePropertyText},
            {nullptr, nullptr, nullptr, 0},
        };
        return s_atInfo;
    }
    bool SearchForStreams() override
    {
        TStreamInfo tStream;
        tStream.nID = 1;
        tStream.strName = GetStringProperty(L"Greeting");
        tStream.cDstPath.Parse(L"//demo/main", -1, false);
        m_atStreams.Add(tStream);
        return true;
    }
    bool EnumerateChanges() override { return true; }
    int RetrieveChangeFiles(const MCE::TChangeRecord&) override { return 0; }
    int RetrieveChangeItemFile(const MCE::TChangeItemRecord&, const VCM::CString&) override { return 0; }
    bool InitialiseClients(const VCM::CString&) override { return true; }
    bool RemoveClients() override { return true; }
    int ResolveStreamLinkage() override { return 0; }
};

} // namespace

ORVANE_MODULE_EXPORT void* orvane_em_demo_createprovider(void);
ORVANE_MODULE_EXPORT void orvane_em_demo_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags);

static_assert(std::is_same<decltype(orvane_em_demo_createprovider), MCE::TModuleCreateProvider>::value,
              "the export's type is the framework's");

void* orvane_em_demo_createprovider(void)
{
    MCE::CProvider* pProvider = new CDemoProvider;
    return pProvider;
}

void orvane_em_demo_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags)
{
    std::wcscpy(pszID, L"demo");
    std::wcscpy(pszName, L"Demo");
    *pnFlags = 0;
}
