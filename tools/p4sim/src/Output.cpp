#include "Output.h"

#include <cstdint>

namespace ORVANE {
namespace P4SIM {

void COutput::PutString(std::string& strOut, const std::string& str)
{
    strOut += 's';
    uint32_t nSize = uint32_t(str.size());
    for (int i = 0; i < 4; ++i)
        strOut += char((nSize >> (8 * i)) & 0xFF);
    strOut += str;
}

void COutput::PutInt(std::string& strOut, int n)
{
    strOut += 'i';
    uint32_t nValue = uint32_t(n);
    for (int i = 0; i < 4; ++i)
        strOut += char((nValue >> (8 * i)) & 0xFF);
}

void COutput::OpenRecord(const char* pszCode)
{
    m_strOut += '{';
    PutString(m_strOut, "code");
    PutString(m_strOut, pszCode);
}

void COutput::Stat(const TRecord& aFields, const std::string& strPlain)
{
    switch (m_eMode)
    {
    case eOutputMarshal:
        OpenRecord("stat");
        for (const auto& tField : aFields)
        {
            PutString(m_strOut, tField.first);
            PutString(m_strOut, tField.second);
        }
        m_strOut += '0';
        break;
    case eOutputTagged:
        for (const auto& tField : aFields)
            m_strOut += "... " + tField.first + " " + tField.second + "\n";
        m_strOut += "\n";
        break;
    case eOutputPlain:
        m_strOut += strPlain;
        break;
    }
}

void COutput::Info(const std::string& strText, int nLevel)
{
    if (m_eMode != eOutputMarshal)
    {
        m_strOut += strText + "\n";
        return;
    }
    // The real client's order: "code", "level", then "data".
    OpenRecord("info");
    PutString(m_strOut, "level");
    PutInt(m_strOut, nLevel);
    PutString(m_strOut, "data");
    PutString(m_strOut, strText);
    m_strOut += '0';
}

void COutput::Message(const std::string& strText, TSeverity eSeverity, TGeneric eGeneric)
{
    if (eSeverity >= eSeverityFailed)
        m_bFailed = true;
    if (m_eMode != eOutputMarshal)
    {
        m_strErr += strText + "\n";
        return;
    }
    OpenRecord("error");
    PutString(m_strOut, "data");
    PutString(m_strOut, strText + "\n");
    PutString(m_strOut, "severity");
    PutInt(m_strOut, eSeverity);
    PutString(m_strOut, "generic");
    PutInt(m_strOut, eGeneric);
    m_strOut += '0';
}

void COutput::Discard()
{
    m_strOut.clear();
    m_strErr.clear();
    m_bFailed = false;
}

void COutput::Content(const std::string& strData, bool bBinary)
{
    if (m_eMode != eOutputMarshal)
    {
        m_strOut += strData;
        return;
    }
    OpenRecord(bBinary ? "binary" : "text");
    PutString(m_strOut, "data");
    PutString(m_strOut, strData);
    m_strOut += '0';
}

} // namespace P4SIM
} // namespace ORVANE
