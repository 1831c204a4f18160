#include "perforce/PrintReader.h"

#include <algorithm>

namespace ORVANE {
namespace IMP {

namespace {

// Texts other than content (header values, messages) are short: anything
// longer is no print output.
const uint32_t nMaxText = 64u << 20;

uint32_t LittleEndian(const unsigned char ach[4])
{
    return uint32_t(ach[0]) | uint32_t(ach[1]) << 8 | uint32_t(ach[2]) << 16 | uint32_t(ach[3]) << 24;
}

} // namespace

bool CPrintReader::Fail(const std::string& strWhy)
{
    m_bFailed = true;
    m_strError = strWhy;
    return false;
}

bool CPrintReader::IsContent() const
{
    // Content records name their kind first ("text", "binary", "utf16",
    // ...): everything but headers and messages.
    auto it = m_tRecord.find("code");
    return it != m_tRecord.end() && it->second != "stat" && it->second != "error" && it->second != "info";
}

bool CPrintReader::TakeFixed(const char*& p, const char* pEnd)
{
    while (m_nHave < 4 && p < pEnd)
        m_ach[m_nHave++] = static_cast<unsigned char>(*p++);
    if (m_nHave < 4)
        return false;
    m_nHave = 0;
    return true;
}

bool CPrintReader::EndValue()
{
    if (!m_bStreaming)
        m_tRecord[m_strKey] = m_strValue;
    m_bStreaming = false;
    m_strValue.clear();
    m_bKey = true;
    m_eState = eKeyType;
    return true;
}

bool CPrintReader::EndRecord()
{
    m_eState = eDictStart;
    TP4Record tRecord;
    tRecord.swap(m_tRecord);
    auto it = tRecord.find("code");
    const std::string strCode = it == tRecord.end() ? std::string() : it->second;
    if (strCode == "stat")
        return m_rSink.OnFile(tRecord) || Fail("stopped");
    if (strCode == "error" || strCode == "info" || strCode.empty())
    {
        m_rSink.OnMessage(tRecord);
        return true;
    }
    // Content whose data was too short to be streamed went into the record.
    auto itData = tRecord.find("data");
    if (itData != tRecord.end() && !m_rSink.OnContent(itData->second.data(), itData->second.size()))
        return Fail("stopped");
    return true;
}

bool CPrintReader::Feed(const char* pData, size_t nSize)
{
    if (m_bFailed)
        return false;
    const char* p = pData;
    const char* const pEnd = pData + nSize;
    while (p < pEnd)
    {
        switch (m_eState)
        {
        case eDictStart:
            if (*p != '{')
                return Fail("not a marshalled dictionary");
            ++p;
            m_eState = eKeyType;
            m_bKey = true;
            break;
        case eKeyType:
            if (*p == '0')
            {
                ++p;
                if (!EndRecord())
                    return false;
                break;
            }
            if (*p != 's' && *p != 'u' && *p != 't')
                return Fail("a key that is no string");
            ++p;
            m_eState = eLength;
            break;
        case eLength:
            if (!TakeFixed(p, pEnd))
                break;
            m_nLeft = LittleEndian(m_ach);
            if (m_bKey)
            {
                if (m_nLeft > 4096)
                    return Fail("a key too long");
                m_strKey.clear();
                m_eState = eKeyBytes;
            }
            else
            {
                m_bStreaming = m_strKey == "data" && IsContent();
                if (!m_bStreaming && m_nLeft > nMaxText)
                    return Fail("a text too long");
                m_eState = eValueBytes;
            }
            if (m_nLeft == 0)
            {
                if (m_bKey)
                    m_bKey = false, m_eState = eValueType;
                else
                    EndValue();
            }
            break;
        case eKeyBytes:
        {
            const size_t n = std::min<size_t>(m_nLeft, size_t(pEnd - p));
            m_strKey.append(p, n);
            p += n;
            m_nLeft -= uint32_t(n);
            if (m_nLeft == 0)
            {
                m_bKey = false;
                m_eState = eValueType;
            }
            break;
        }
        case eValueType:
            if (*p == 'i')
                m_eState = eInteger;
            else if (*p == 's' || *p == 'u' || *p == 't')
                m_eState = eLength;
            else
                return Fail("a value of a kind print does not write");
            ++p;
            break;
        case eValueBytes:
        {
            const size_t n = std::min<size_t>(m_nLeft, size_t(pEnd - p));
            if (m_bStreaming)
            {
                if (n > 0 && !m_rSink.OnContent(p, n))
                    return Fail("stopped");
            }
            else
                m_strValue.append(p, n);
            p += n;
            m_nLeft -= uint32_t(n);
            if (m_nLeft == 0)
                EndValue();
            break;
        }
        case eInteger:
            if (!TakeFixed(p, pEnd))
                break;
            m_strValue = std::to_string(static_cast<int32_t>(LittleEndian(m_ach)));
            EndValue();
            break;
        }
    }
    return true;
}

} // namespace IMP
} // namespace ORVANE
