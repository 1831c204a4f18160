// What the host knows of one folder of a stream.
#pragma once

#include "host/FilePath.h"
#include "host/Properties.h"

namespace ORVANE {
namespace VCM {

// A folder's path and its property bag. Value type.
class CDirectoryData
{
public:
    CDirectoryData() = default;
    CDirectoryData(const CDirectoryData&) = default;
    CDirectoryData& operator=(const CDirectoryData&) = default;
    ~CDirectoryData() = default;

    bool operator==(const CDirectoryData& other) const { return m_cPath == other.m_cPath && m_cProps == other.m_cProps; }
    bool operator!=(const CDirectoryData& other) const { return !(*this == other); }

    CFilePath m_cPath;
    CProperties m_cProps;
};

} // namespace VCM
} // namespace ORVANE
