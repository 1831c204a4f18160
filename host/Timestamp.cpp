#include "host/Timestamp.h"

namespace ORVANE {
namespace VCM {

CString CTimestamp::Format(wxDateTime::TZ eZone) const
{
    // From milliseconds: a time_t of -1 would read as "invalid".
    const wxDateTime tTime(wxLongLong(m_tSeconds) * 1000);
    return CString(tTime.Format(L"%Y-%m-%d %H:%M:%S", wxDateTime::TimeZone(eZone)));
}

} // namespace VCM
} // namespace ORVANE
