#include "host/Exceptions.h"

namespace ORVANE {

EBaseException::~EBaseException() = default;

EArrayIndexOutOfRange::~EArrayIndexOutOfRange() = default;

VCM::CString EArrayIndexOutOfRange::GetErrorMessage() const
{
    VCM::CString str;
    str.Format(L"Array index (%d) out of range", static_cast<int>(m_nIndex));
    return str;
}

EMapIndexOutOfRange::~EMapIndexOutOfRange() = default;

VCM::CString EMapIndexOutOfRange::GetErrorMessage() const
{
    VCM::CString str;
    str.Format(L"Map index (%d) out of range", static_cast<int>(m_nIndex));
    return str;
}

} // namespace ORVANE
