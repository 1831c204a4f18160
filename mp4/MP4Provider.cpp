// The Perforce provider object, its settings and the environment check.
#include "mp4/MP4Provider.h"

#include <wx/filefn.h>

namespace ORVANE {
namespace MP4 {

const MCE::TPropertyInfo CProvider::s_atPropertyInfo[] = {
    {L"p4 Executable Path", L"P4Path", L"p4", MCE::ePropertyFile},
    {L"Root Path", L"RootPath", L"//depot/...", MCE::ePropertyText},
    {L"Ignored Branch Specs", L"IgnoredBranches", L"IgnoredBranch*;ZZ*", MCE::ePropertyText},
    {L"Use Compression", L"Compression", L"0", MCE::ePropertyBoolean},
    {L"Server Case-Insensitive (Windows)", L"CaseInsensitive", L"1", MCE::ePropertyBoolean},
    {nullptr, nullptr, nullptr, 0},
};

CProvider::CProvider()
    : MCE::CProviderBase(L"perforce", L"Perforce", L"Streams originally converted from Perforce", false, false),
      m_nNextStreamID(1), m_astrIgnoredPatterns(0), m_bCaseInsensitive(true)
{
}

CProvider::~CProvider() = default;

int CProvider::CheckEnvironment(VCM::CString& strMessage)
{
    // Only a file of exactly that name counts: PATH is not searched, so the
    // default "p4" is a warning, not an error.
    const VCM::CString strPath = GetStringProperty(L"P4Path");
    if (wxFileExists(strPath))
        return 0;
    strMessage.Format(L"The file '%s' doesn't seem to exist (ignore if p4/p4.exe is somewhere on your PATH)", strPath);
    return 1;
}

int CProvider::ResolveStreamLinkage()
{
    // Parents are set while streams are proposed.
    return 0;
}

const MCE::TPropertyInfo* CProvider::GetPropertyInfo()
{
    return s_atPropertyInfo;
}

} // namespace MP4
} // namespace ORVANE
