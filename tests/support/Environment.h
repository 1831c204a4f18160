// An environment variable set for a scope: the value it had before (or its
// absence) comes back when the object goes.
#pragma once

#include <cstdlib>
#include <string>

namespace ORVANE {
namespace TEST {

class CEnvironment
{
public:
    CEnvironment(const std::string& strName, const std::string& strValue) : m_strName(strName)
    {
        const char* psz = std::getenv(m_strName.c_str());
        m_bHad = psz != nullptr;
        if (psz)
            m_strOld = psz;
        ::setenv(m_strName.c_str(), strValue.c_str(), 1);
    }
    CEnvironment(const CEnvironment&) = delete;
    CEnvironment& operator=(const CEnvironment&) = delete;
    ~CEnvironment()
    {
        if (m_bHad)
            ::setenv(m_strName.c_str(), m_strOld.c_str(), 1);
        else
            ::unsetenv(m_strName.c_str());
    }

private:
    std::string m_strName;
    std::string m_strOld;
    bool m_bHad = false;
};

} // namespace TEST
} // namespace ORVANE
