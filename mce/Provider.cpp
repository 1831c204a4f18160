#include "mce/Provider.h"

namespace ORVANE {
namespace MCE {

CProvider::CProvider(const VCM::CString& strID, const VCM::CString& strName, const VCM::CString& strDescription,
                     bool bFlag1, bool bFlag2)
    : m_pEngine(nullptr), m_strID(strID), m_strName(strName), m_strDescription(strDescription), m_bFlag1(bFlag1),
      m_bFlag2(bFlag2)
{
}

CProvider::~CProvider() = default;

bool CProvider::ValidateStringProperty(const wchar_t* /*pszKey*/, VCM::CString& /*strValue*/,
                                       VCM::CString& /*strError*/)
{
    return true;
}

int CProvider::RetrieveFiles(unsigned int /*nStreamID*/)
{
    return 0;
}

} // namespace MCE
} // namespace ORVANE
