// A point in time, held as whole seconds since 1970-01-01 UTC.
#pragma once

#include <cstdint>
#include <wx/datetime.h>

#include "host/String.h"

namespace ORVANE {
namespace VCM {

class CTimestamp
{
public:
    CTimestamp() = default;
    CTimestamp(const CTimestamp&) = default;
    CTimestamp& operator=(const CTimestamp&) = default;

    // Seconds since 1970-01-01 UTC. Times of the migration modules are
    // signed 32-bit counts whatever the width of long on this platform.
    void Set(long tSeconds) { m_tSeconds = static_cast<int32_t>(tSeconds); }
    // The instant as seconds since 1970-01-01 UTC.
    long GetUTC() const { return m_tSeconds; }

    // "YYYY-MM-DD HH:MM:SS" in the given zone.
    CString Format(wxDateTime::TZ eZone) const;

    bool operator==(const CTimestamp& other) const { return m_tSeconds == other.m_tSeconds; }
    bool operator!=(const CTimestamp& other) const { return m_tSeconds != other.m_tSeconds; }

private:
    int32_t m_tSeconds = 0;
};

} // namespace VCM
} // namespace ORVANE
