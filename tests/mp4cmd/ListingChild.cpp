// Reads a changelist listing through the module's own command reader (the
// changes command, its process capture and its marshalled reader) in a
// process of its own, and prints what it read and the process's peak
// resident memory (VmHWM):
//
//     mp4cmd_listing_child P4 PATH   ->   "COUNT FIRST LAST VMHWM_KB"
//
// P4 is the p4 client to run (a stand-in that floods, say).
#include <clocale>
#include <cstdio>
#include <fstream>
#include <string>

#include "mce/ProviderBase.h"
#include "mp4/MP4.h"

namespace {

// The command layer writes to the log of the live provider: this one has
// none open.
class CListingProvider : public ORVANE::MCE::CProviderBase
{
public:
    CListingProvider() : CProviderBase(L"listing", L"Listing", L"Listing reader", false, false) {}
    int RetrieveChangeFiles(const ORVANE::MCE::TChangeRecord&) override { return 0; }
    int RetrieveChangeItemFile(const ORVANE::MCE::TChangeItemRecord&, const ORVANE::VCM::CString&) override
    {
        return 0;
    }
    bool SearchForStreams() override { return true; }
    bool EnumerateChanges() override { return true; }
    const ORVANE::MCE::TPropertyInfo* GetPropertyInfo() override
    {
        static const ORVANE::MCE::TPropertyInfo s_atNone[] = {{nullptr, nullptr, nullptr, 0}};
        return s_atNone;
    }
    bool InitialiseClients(const ORVANE::VCM::CString&) override { return true; }
    bool RemoveClients() override { return true; }
    int ResolveStreamLinkage() override { return 0; }
};

long PeakResidentKb()
{
    std::ifstream in("/proc/self/status");
    for (std::string strLine; std::getline(in, strLine);)
        if (strLine.compare(0, 6, "VmHWM:") == 0)
            return std::stol(strLine.substr(6));
    return -1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    std::setlocale(LC_ALL, "C.UTF-8");
    CListingProvider cProvider;
    ORVANE::MP4::CCommandBase::SetP4Executable(wxString::FromUTF8(argv[1]));
    ORVANE::VCM::CFilePath cPath;
    if (!cPath.Parse(wxString::FromUTF8(argv[2]), -1, false))
        return 3;
    ORVANE::MP4::CChangesCmd cCmd;
    if (!cCmd.EnumChangesForPath(cPath))
        return 4;
    unsigned long nCount = 0;
    unsigned int nFirst = 0, nLast = 0;
    ORVANE::MP4::TChange tChange;
    while (cCmd.GetNextChange(tChange))
    {
        if (nCount++ == 0)
            nFirst = tChange.nChange;
        nLast = tChange.nChange;
    }
    std::printf("%lu %u %u %ld\n", nCount, nFirst, nLast, PeakResidentKb());
    return 0;
}
