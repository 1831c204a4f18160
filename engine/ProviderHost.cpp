#include "ProviderHost.h"

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
