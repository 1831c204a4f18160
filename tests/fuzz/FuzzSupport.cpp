#include "FuzzSupport.h"

#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "mce/ProviderBase.h"
#include "mp4/MP4ChangeCmds.h"

namespace ORVANE {
namespace FUZZ {

const char* const g_pszSeparator = "\n=next=\n";

namespace {

// The smallest provider: commands need one for their log.
class CFuzzProvider : public MCE::CProviderBase
{
public:
    CFuzzProvider() : CProviderBase(L"fuzz", L"Fuzz", L"Fuzz provider", false, false) {}
    int RetrieveChangeFiles(const MCE::TChangeRecord&) override { return 0; }
    int RetrieveChangeItemFile(const MCE::TChangeItemRecord&, const VCM::CString&) override { return 0; }
    bool SearchForStreams() override { return true; }
    bool EnumerateChanges() override { return true; }
    const MCE::TPropertyInfo* GetPropertyInfo() override
    {
        static const MCE::TPropertyInfo s_atNone[] = {{nullptr, nullptr, nullptr, 0}};
        return s_atNone;
    }
    bool InitialiseClients(const VCM::CString&) override { return true; }
    bool RemoveClients() override { return true; }
    int ResolveStreamLinkage() override { return 0; }
};

std::string s_strFeed;
CFuzzProvider* s_pProvider = nullptr;

void TakeDown()
{
    if (s_pProvider)
        s_pProvider->Destroy();
    s_pProvider = nullptr;
    if (!s_strFeed.empty())
        ::rmdir(s_strFeed.c_str());
}

// Once per process: the answer folder, the stand-in p4, the provider.
void SetUpProcess()
{
    if (s_pProvider)
        return;
    const char* pszTemp = std::getenv("TMPDIR");
    std::string strTemplate = std::string(pszTemp && *pszTemp ? pszTemp : "/tmp") + "/orvane-fuzz-XXXXXX";
    std::vector<char> acName(strTemplate.begin(), strTemplate.end());
    acName.push_back('\0');
    Require(::mkdtemp(acName.data()) != nullptr, "cannot make the answer folder");
    s_strFeed = acName.data();
    ::setenv("ORVANE_FUZZ_FEED", s_strFeed.c_str(), 1);
    MP4::CCommandBase::SetP4Executable(VCM::CString(wxString(ORVANE_FUZZ_P4)));
    s_pProvider = new CFuzzProvider;
    std::atexit(&TakeDown);
}

} // namespace

void Require(bool bCondition, const char* pszWhat)
{
    if (bCondition)
        return;
    std::fprintf(stderr, "fuzz target: property failed: %s\n", pszWhat);
    std::abort();
}

CInputScope::CInputScope(const uint8_t* pData, size_t nSize)
{
    SetUpProcess();
    m_bEmpty = nSize == 0;
    if (!m_bEmpty)
    {
        m_nMode = pData[0];
        m_strBody.assign(reinterpret_cast<const char*>(pData) + 1, nSize - 1);
    }
    if ((m_nMode & 1) == 0 ||
        (std::setlocale(LC_ALL, "C.UTF-8") == nullptr && std::setlocale(LC_ALL, "C.utf8") == nullptr))
        std::setlocale(LC_ALL, "C");
    s_pProvider->OpenLog(true);
}

CInputScope::~CInputScope()
{
    const VCM::CString strLog = s_pProvider->GetLogPath(); // closes the log
    std::remove(strLog.utf8_str().data());
    for (const std::string& strFile : m_astrFiles)
        std::remove(strFile.c_str());
    std::setlocale(LC_ALL, "C");
}

std::vector<std::string> CInputScope::Parts(size_t nParts) const
{
    std::vector<std::string> astrParts;
    const std::string strSeparator(g_pszSeparator);
    size_t nPos = 0;
    while (astrParts.size() + 1 < nParts)
    {
        const size_t nEnd = m_strBody.find(strSeparator, nPos);
        if (nEnd == std::string::npos)
            break;
        astrParts.push_back(m_strBody.substr(nPos, nEnd - nPos));
        nPos = nEnd + strSeparator.size();
    }
    astrParts.push_back(nPos <= m_strBody.size() ? m_strBody.substr(nPos) : std::string());
    astrParts.resize(nParts);
    return astrParts;
}

void CInputScope::Answer(const std::string& strName, const std::string& strOut, const std::string& strErr, int nExit)
{
    const std::string strBase = s_strFeed + "/" + strName;
    const std::pair<const char*, std::string> atFiles[] = {
        {".out", strOut}, {".err", strErr}, {".exit", std::to_string(nExit)}};
    for (const auto& tFile : atFiles)
    {
        std::ofstream cFile(strBase + tFile.first, std::ios::binary | std::ios::trunc);
        cFile.write(tFile.second.data(), static_cast<std::streamsize>(tFile.second.size()));
        Require(cFile.good(), "cannot write a prepared answer");
        m_astrFiles.push_back(strBase + tFile.first);
    }
    m_astrFiles.push_back(strBase + ".in");
}

std::string CInputScope::Input(const std::string& strName) const
{
    std::ifstream cFile(s_strFeed + "/" + strName + ".in", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(cFile), std::istreambuf_iterator<char>());
}

VCM::CFilePath DepotMain()
{
    VCM::CFilePath cPath;
    Require(cPath.Parse(L"//depot/main"), "the depot path parses");
    return cPath;
}

uint32_t CByteSource::Number(size_t nBytes)
{
    uint32_t n = 0;
    for (size_t i = 0; i < nBytes && i < 4; ++i, ++m_nPos)
        if (m_nPos < m_strBytes.size())
            n |= static_cast<uint32_t>(static_cast<unsigned char>(m_strBytes[m_nPos])) << (8 * i);
    return n;
}

uint32_t CByteSource::InRange(uint32_t nLow, uint32_t nHigh)
{
    const uint64_t nSpan = static_cast<uint64_t>(nHigh) - nLow + 1;
    return nLow + static_cast<uint32_t>(Number(nSpan > 256 ? 4 : 1) % nSpan);
}

bool HexDecodingNeverEnds(const VCM::CFilePath& cPath)
{
    MP4::CDescribeCmd cDecoder; // for its digit conversion only
    VCM::CFilePath cCopy(cPath);
    for (unsigned int i = 0; i < cCopy.GetItemCount(); ++i)
    {
        for (;;)
        {
            // Every round reads the item back, as the module does: the
            // replacement goes in as a terminated text.
            const VCM::CString strItem = cCopy.GetItemText(i, nullptr);
            const int nPos = strItem.Find(L'%');
            if (nPos < 0)
                break;
            const int nLength = strItem.GetLength();
            if (!(nPos + 2 < nLength))
                return true;
            const int nHigh = cDecoder.ConvertHexChar(strItem.GetAt(nPos + 1));
            const int nLow = cDecoder.ConvertHexChar(strItem.GetAt(nPos + 2));
            if (nHigh < 0 || nLow < 0)
                return false; // the module stops decoding the whole path here
            VCM::CString strNew;
            strNew.Format(L"%s%c%s", strItem.Left(static_cast<size_t>(nPos)), static_cast<wchar_t>(nHigh * 16 + nLow),
                          strItem.Right(static_cast<size_t>(nLength - nPos - 3)));
            cCopy.ReplaceItem(i, strNew);
        }
    }
    return false;
}

} // namespace FUZZ
} // namespace ORVANE
