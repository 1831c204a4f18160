#include "perforce/P4Query.h"

#include <cstdint>
#include <cstdlib>

#include "host/ProcessCapture.h"

namespace ORVANE {
namespace IMP {

namespace {

bool ReadLe32(const std::string& str, size_t nPos, int32_t& n)
{
    if (nPos + 4 > str.size())
        return false;
    uint32_t u = 0;
    for (int i = 3; i >= 0; --i)
        u = (u << 8) | static_cast<unsigned char>(str[nPos + size_t(i)]);
    n = static_cast<int32_t>(u);
    return true;
}

// Reads one value at nPos: 1 read (nPos moved past it), 0 more bytes
// needed, -1 not a value this decoder knows.
int ReadValue(const std::string& str, size_t& nPos, std::string& strValue, std::string& strError)
{
    if (nPos >= str.size())
        return 0;
    const char cType = str[nPos];
    int32_t n = 0;
    switch (cType)
    {
    case 's':
    case 't':
    case 'u':
        if (!ReadLe32(str, nPos + 1, n))
            return 0;
        if (n < 0)
        {
            strError = "a negative string length";
            return -1;
        }
        if (nPos + 5 + size_t(n) > str.size())
            return 0;
        strValue.assign(str, nPos + 5, size_t(n));
        nPos += 5 + size_t(n);
        return 1;
    case 'i':
        if (!ReadLe32(str, nPos + 1, n))
            return 0;
        strValue = std::to_string(n);
        nPos += 5;
        return 1;
    case 'N':
        strValue.clear();
        nPos += 1;
        return 1;
    case 'T':
    case 'F':
        strValue = cType == 'T' ? "1" : "0";
        nPos += 1;
        return 1;
    default:
        strError = std::string("an unknown type code 0x") + "0123456789abcdef"[(cType >> 4) & 0xF] +
                   "0123456789abcdef"[cType & 0xF];
        return -1;
    }
}

// The first line of a message; of the client's "Perforce client error:"
// (or server's) heading, the line that says what the error is.
std::string FirstLine(const std::string& str)
{
    size_t nStart = 0;
    size_t nEnd = str.find('\n');
    const std::string strHead = str.substr(0, nEnd);
    if ((strHead == "Perforce client error:" || strHead == "Perforce server error:") && nEnd != std::string::npos &&
        nEnd + 1 < str.size())
    {
        nStart = str.find_first_not_of(" \t", nEnd + 1);
        nEnd = str.find('\n', nStart);
    }
    std::string strLine = str.substr(nStart, nEnd == std::string::npos ? std::string::npos : nEnd - nStart);
    while (!strLine.empty() && (strLine.back() == '\r' || strLine.back() == ' ' || strLine.back() == '\t'))
        strLine.pop_back();
    return strLine;
}

} // namespace

int CMarshalDecoder::DecodeOne(size_t nStart, TP4Record& tRecord, size_t& nEnd)
{
    const std::string& str = m_strPending;
    if (str[nStart] != '{')
    {
        m_strError = "the output is not a marshalled dictionary";
        return -1;
    }
    size_t nPos = nStart + 1;
    tRecord.clear();
    for (;;)
    {
        if (nPos >= str.size())
            return 0;
        if (str[nPos] == '0')
        {
            nEnd = nPos + 1;
            return 1;
        }
        std::string strKey, strValue;
        int n = ReadValue(str, nPos, strKey, m_strError);
        if (n <= 0)
            return n;
        n = ReadValue(str, nPos, strValue, m_strError);
        if (n <= 0)
            return n;
        tRecord[strKey] = strValue;
    }
}

bool CMarshalDecoder::Feed(const char* pData, size_t nSize, const std::function<bool(const TP4Record&)>& fnRecord)
{
    return Feed(pData, nSize, [&fnRecord](const TP4Record& t, uint64_t, uint64_t) { return fnRecord(t); });
}

bool CMarshalDecoder::Feed(const char* pData, size_t nSize, const TRangeCallback& fnRecord)
{
    if (m_bFailed)
        return false;
    if (m_bStopped)
        return true;
    m_strPending.append(pData, nSize);
    size_t nStart = 0;
    TP4Record tRecord;
    while (nStart < m_strPending.size())
    {
        // The decoded part is dropped once, at the end.
        size_t nEnd = 0;
        const int n = DecodeOne(nStart, tRecord, nEnd);
        if (n < 0)
        {
            m_bFailed = true;
            return false;
        }
        if (n == 0)
            break;
        const size_t nBegin = nStart;
        nStart = nEnd;
        if (!fnRecord(tRecord, m_nDropped + nBegin, m_nDropped + nEnd))
        {
            m_bStopped = true;
            m_strPending.clear();
            return true;
        }
    }
    m_strPending.erase(0, nStart);
    m_nDropped += nStart;
    return true;
}

namespace {

enum TPairFate
{
    ePairKept,
    ePairReplaced,
    ePairDropped
};

// Copies a stream of marshalled dictionaries; fnPair decides of each pair
// whose value is a string.
bool CopyMarshalled(const std::string& strIn, std::string& strOut,
                    const std::function<TPairFate(const std::string& strKey, std::string& strValue)>& fnPair)
{
    strOut.clear();
    strOut.reserve(strIn.size());
    std::string strError;
    size_t nPos = 0;
    while (nPos < strIn.size())
    {
        if (strIn[nPos] != '{')
            return false;
        strOut += '{';
        ++nPos;
        for (;;)
        {
            if (nPos >= strIn.size())
                return false;
            if (strIn[nPos] == '0')
            {
                strOut += '0';
                ++nPos;
                break;
            }
            std::string strKey, strValue;
            const size_t nKey = nPos;
            if (ReadValue(strIn, nPos, strKey, strError) <= 0)
                return false;
            const size_t nValue = nPos;
            const char cType = strIn[nValue];
            if (ReadValue(strIn, nPos, strValue, strError) <= 0)
                return false;
            const bool bString = cType == 's' || cType == 't' || cType == 'u';
            const TPairFate eFate = bString ? fnPair(strKey, strValue) : ePairKept;
            if (eFate == ePairDropped)
                continue;
            strOut.append(strIn, nKey, nValue - nKey);
            if (eFate == ePairReplaced)
            {
                const uint32_t n = static_cast<uint32_t>(strValue.size());
                strOut += cType;
                for (int i = 0; i < 4; ++i)
                    strOut += static_cast<char>((n >> (8 * i)) & 0xFF);
                strOut += strValue;
            }
            else
                strOut.append(strIn, nValue, nPos - nValue);
        }
    }
    return true;
}

} // namespace

bool RewriteMarshalled(const std::string& strIn, std::string& strOut,
                       const std::function<bool(const std::string& strKey, std::string& strValue)>& fnValue)
{
    return CopyMarshalled(strIn, strOut, [&fnValue](const std::string& strKey, std::string& strValue) {
        return fnValue(strKey, strValue) ? ePairReplaced : ePairKept;
    });
}

bool DropMarshalledPairs(const std::string& strIn, std::string& strOut,
                         const std::function<bool(const std::string& strKey)>& fnDrop)
{
    return CopyMarshalled(strIn, strOut, [&fnDrop](const std::string& strKey, std::string&) {
        return fnDrop(strKey) ? ePairDropped : ePairKept;
    });
}

std::string RecordValue(const TP4Record& tRecord, const char* pszKey)
{
    auto it = tRecord.find(pszKey);
    return it != tRecord.end() ? it->second : std::string();
}

bool IsFailureRecord(const TP4Record& tRecord)
{
    auto it = tRecord.find("code");
    if (it == tRecord.end() || it->second != "error")
        return false;
    // Warnings ("no such file(s).", "file(s) up-to-date.") have severity 2;
    // a record without one counts as a failure.
    auto itSeverity = tRecord.find("severity");
    return itSeverity == tRecord.end() || std::atoi(itSeverity->second.c_str()) >= 3;
}

std::string TP4Result::Problem() const
{
    for (const TP4Record& t : atRecords)
    {
        if (IsFailureRecord(t))
        {
            auto itData = t.find("data");
            return FirstLine(itData != t.end() ? itData->second : std::string("an error without a message"));
        }
    }
    if (nStatus == 0 && bDecoded)
        return std::string();
    if (!strError.empty())
        return FirstLine(strError);
    if (!bDecoded)
        return "its output could not be read";
    return "it ended with exit status " + std::to_string(nStatus);
}

std::string TP4Result::AllMessages() const
{
    std::string str;
    for (const TP4Record& t : atRecords)
        if (IsFailureRecord(t))
            str += RecordValue(t, "data") + "\n";
    return str + strError;
}

TP4Result CP4Query::Run(const std::vector<std::string>& astrArgs) const
{
    std::vector<TP4Record> atRecords;
    TP4Result tResult = Run(astrArgs, [&atRecords](const TP4Record& t) {
        atRecords.push_back(t);
        return true;
    });
    tResult.atRecords.swap(atRecords);
    return tResult;
}

TP4Result CP4Query::Run(const std::vector<std::string>& astrArgs,
                        const std::function<bool(const TP4Record&)>& fnRecord) const
{
    std::vector<std::string> astrAll = {m_strP4, "-G"};
    astrAll.insert(astrAll.end(), astrArgs.begin(), astrArgs.end());
    VCM::CProcessCapture cCapture;
    TP4Result tResult;
    tResult.nStatus = cCapture.Execute(astrAll);
    wxInputStream& rOut = *cCapture.GetStdOutputStream();
    CMarshalDecoder cDecoder;
    // Error records are kept whatever the callback does with them, so that
    // Problem() can tell what went wrong.
    auto fnKeep = [&](const TP4Record& t) {
        auto it = t.find("code");
        if (it != t.end() && it->second == "error")
            tResult.atRecords.push_back(t);
        return fnRecord(t);
    };
    char ach[65536];
    while (!rOut.Eof())
    {
        const size_t nRead = rOut.Read(ach, sizeof(ach)).LastRead();
        if (nRead == 0)
            break;
        if (!cDecoder.Feed(ach, nRead, fnKeep))
            break;
    }
    tResult.bDecoded = cDecoder.AtRecordEnd();
    tResult.strError = VCM::ReadAllBytes(*cCapture.GetStdErrorStream());
    return tResult;
}

} // namespace IMP
} // namespace ORVANE
