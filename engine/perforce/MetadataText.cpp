#include "perforce/MetadataText.h"

#include <iconv.h>

#include <cerrno>

namespace ORVANE {
namespace IMP {

namespace {

// An iconv descriptor for one conversion, closed when it goes.
class CConversion
{
public:
    explicit CConversion(const std::string& strFrom) : m_hConv(::iconv_open("UTF-8", strFrom.c_str())) {}
    CConversion(const CConversion&) = delete;
    CConversion& operator=(const CConversion&) = delete;
    ~CConversion()
    {
        if (IsOpen())
            ::iconv_close(m_hConv);
    }
    bool IsOpen() const { return m_hConv != reinterpret_cast<iconv_t>(-1); }
    iconv_t Get() const { return m_hConv; }

private:
    iconv_t m_hConv;
};

} // namespace

bool IsUtf8(const std::string& str)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(str.data());
    const unsigned char* pEnd = p + str.size();
    while (p < pEnd)
    {
        const unsigned c = *p++;
        if (c < 0x80)
            continue;
        unsigned nMore;
        uint32_t nCode;
        if (c >= 0xC2 && c <= 0xDF)
            nMore = 1, nCode = c & 0x1F;
        else if (c >= 0xE0 && c <= 0xEF)
            nMore = 2, nCode = c & 0x0F;
        else if (c >= 0xF0 && c <= 0xF4)
            nMore = 3, nCode = c & 0x07;
        else
            return false;
        if (static_cast<size_t>(pEnd - p) < nMore)
            return false;
        for (unsigned i = 0; i < nMore; ++i)
        {
            if ((p[i] & 0xC0) != 0x80)
                return false;
            nCode = (nCode << 6) | (p[i] & 0x3F);
        }
        p += nMore;
        if ((nMore == 2 && nCode < 0x800) || (nMore == 3 && (nCode < 0x10000 || nCode > 0x10FFFF)) ||
            (nCode >= 0xD800 && nCode <= 0xDFFF))
            return false;
    }
    return true;
}

bool CMetadataDecoder::IsKnown(const std::string& strEncoding)
{
    return !strEncoding.empty() && CConversion(strEncoding).IsOpen();
}

bool CMetadataDecoder::IsMetadataKey(const std::string& strKey)
{
    static const char* const s_apsz[] = {"desc", "user", "client", "User", "FullName", "Email", "Owner", "Description"};
    for (const char* psz : s_apsz)
        if (strKey == psz)
            return true;
    return false;
}

bool CMetadataDecoder::ToUtf8(std::string& strText) const
{
    if (m_strEncoding.empty() || IsUtf8(strText))
        return false;
    CConversion cConv(m_strEncoding);
    if (!cConv.IsOpen())
        return false;
    std::string strOut;
    char achOut[1024];
    char* pIn = &strText[0];
    size_t nIn = strText.size();
    while (nIn > 0)
    {
        char* pOut = achOut;
        size_t nOut = sizeof(achOut);
        const size_t nDone = ::iconv(cConv.Get(), &pIn, &nIn, &pOut, &nOut);
        strOut.append(achOut, static_cast<size_t>(pOut - achOut));
        if (nDone != static_cast<size_t>(-1) || errno == E2BIG)
            continue;
        // A byte the encoding does not define (or a sequence cut short).
        strOut += "\xEF\xBF\xBD";
        ++pIn;
        --nIn;
        ::iconv(cConv.Get(), nullptr, nullptr, nullptr, nullptr);
    }
    strText.swap(strOut);
    return true;
}

} // namespace IMP
} // namespace ORVANE
