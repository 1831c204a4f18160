#include "host/Connection.h"

namespace ORVANE {
namespace VRM {

IConnectionProxyBase::~IConnectionProxyBase() = default;

void IConnectionProxyBase::DisplayInfoMsg(const wxFormatString& strFormat, const wchar_t* pszArgument)
{
    VCM::CString strMessage;
    strMessage.Format(strFormat, pszArgument ? pszArgument : L"");
    OnInfoMessage(strMessage);
}

CMsgTarget::~CMsgTarget() = default;

} // namespace VRM

namespace VRO {
CReposView::~CReposView() = default;
} // namespace VRO

namespace MCE {
CConvertEngine::~CConvertEngine() = default;
} // namespace MCE
} // namespace ORVANE
