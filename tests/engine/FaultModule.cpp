// A migration module that fails the way a broken module can, for the
// supervision of a migration: its provider (id "fault") does what the
// environment variable ORVANE_FAULT says when it searches for streams:
//   crash   dies of SIGSEGV
//   abort   aborts (SIGABRT)
//   spin    loops for ever without a sign of work
// and otherwise proposes one stream "main".
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "mce/MCE.h"

namespace {

using namespace ORVANE;

class CFaultProvider : public MCE::CProviderBase
{
public:
    CFaultProvider() : CProviderBase(L"fault", L"Fault", L"A provider that fails on request", false, false) {}

    const MCE::TPropertyInfo* GetPropertyInfo() override
    {
        static const MCE::TPropertyInfo s_atNone[] = {{nullptr, nullptr, nullptr, 0}};
        return s_atNone;
    }
    bool SearchForStreams() override
    {
        const char* psz = std::getenv("ORVANE_FAULT");
        const std::string strFault = psz ? psz : "";
        if (strFault == "crash")
        {
            // A plain signal, even where a sanitizer watches for faults.
            std::signal(SIGSEGV, SIG_DFL);
            std::raise(SIGSEGV);
        }
        if (strFault == "abort")
            std::abort();
        if (strFault == "spin")
        {
            volatile unsigned long n = 0;
            for (;;)
                n = n + 1;
        }
        TStreamInfo tStream;
        tStream.nID = 1;
        tStream.strName = L"main";
        tStream.cDstPath.Parse(L"//fault/main", -1, false);
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

ORVANE_MODULE_EXPORT MCE::TModuleGetOptions orvane_em_fault_getoptions;
ORVANE_MODULE_EXPORT MCE::TModuleCreateProvider orvane_em_fault_createprovider;

ORVANE_MODULE_EXPORT void orvane_em_fault_getoptions(wchar_t* pszID, wchar_t* pszName, unsigned int* pnFlags)
{
    std::wcscpy(pszID, L"fault");
    std::wcscpy(pszName, L"Fault");
    *pnFlags = 0;
}

ORVANE_MODULE_EXPORT void* orvane_em_fault_createprovider(void)
{
    MCE::CProvider* pProvider = new CFaultProvider;
    return pProvider;
}
