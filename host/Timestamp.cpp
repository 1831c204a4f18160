#include "host/Timestamp.h"

namespace ORVANE {
namespace VCM {

CString CTimestamp::Format(wxDateTime::TZ eZone) const
{
    const wxDateTime tTime(static_cast<time_t>(m_tSeconds));
    return CString(tTime.Format(L"%Y-%m-%d %H:%M:%S", wxDateTime::TimeZone(eZone)));
}

} // namespace VCM
} // namespace ORVANE
