#include "ProviderHost.h"

#include <cstdio>
#include <ctime>

#include <unistd.h>

#include <fstream>

#include "Text.h"

namespace ORVANE {
namespace IMP {

void CConsoleConnection::OnInfoMessage(const VCM::CString& strMessage)
{
    std::string str = Utf8(strMessage);
    if (str.empty() || str.back() != '\n')
        str += '\n';
    std::fputs(str.c_str(), m_pOut);
    std::fflush(m_pOut);
}

void CProviderHost::Adopt(MCE::CProvider* pProvider)
{
    Destroy();
    m_pProvider = pProvider;
    m_pProvider->m_pEngine = &m_cEngine;
}

void CProviderHost::Destroy()
{
    if (m_pProvider)
        m_pProvider->Destroy();
    m_pProvider = nullptr;
}

void AppendToLog(const std::string& strLog, const std::vector<std::string>& astrLines)
{
    if (astrLines.empty())
        return;
    std::FILE* pFile = std::fopen(strLog.c_str(), "a");
    if (!pFile)
        return;
    const std::time_t tNow = std::time(nullptr);
    for (const std::string& str : astrLines)
        std::fprintf(pFile, "%d: %s\n", static_cast<int>(tNow % 3600), str.c_str());
    std::fclose(pFile);
}

bool MoveLog(const std::string& strLog, const std::string& strTarget)
{
    std::ifstream in(strLog, std::ios::binary);
    std::ofstream out(strTarget, std::ios::binary);
    out << in.rdbuf();
    if (!out.good())
        return false;
    unlink(strLog.c_str());
    return true;
}

} // namespace IMP
} // namespace ORVANE
