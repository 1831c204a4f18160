#include "Digest.h"

#include <nettle/base64.h>
#include <nettle/md5.h>

#include <cstdint>
#include <stdexcept>

namespace ORVANE {
namespace P4SIM {

std::string Md5Hex(const std::string& strData)
{
    struct md5_ctx tContext;
    md5_init(&tContext);
    md5_update(&tContext, strData.size(), reinterpret_cast<const uint8_t*>(strData.data()));
    uint8_t abDigest[MD5_DIGEST_SIZE];
    md5_digest(&tContext, sizeof abDigest, abDigest);
    static const char s_szHex[] = "0123456789ABCDEF";
    std::string strOut;
    strOut.reserve(2 * MD5_DIGEST_SIZE);
    for (uint8_t b : abDigest)
    {
        strOut += s_szHex[b >> 4];
        strOut += s_szHex[b & 15];
    }
    return strOut;
}

std::string Base64Decode(const std::string& strText)
{
    // Padding may stand anywhere and need not be there at all: the text
    // goes to the decoder without it.
    std::string strClean;
    strClean.reserve(strText.size());
    for (char c : strText)
    {
        if (c != '=' && c != ' ' && c != '\n' && c != '\r' && c != '\t')
            strClean += c;
    }
    struct base64_decode_ctx tContext;
    base64_decode_init(&tContext);
    std::string strOut(BASE64_DECODE_LENGTH(strClean.size()), '\0');
    size_t nOut = strOut.size();
    if (!base64_decode_update(&tContext, &nOut, reinterpret_cast<uint8_t*>(&strOut[0]), strClean.size(),
                              strClean.data()))
        throw std::runtime_error("invalid base64 text");
    strOut.resize(nOut);
    return strOut;
}

std::string Base64Encode(const std::string& strData)
{
    std::string strOut(BASE64_ENCODE_RAW_LENGTH(strData.size()), '\0');
    if (!strOut.empty())
        base64_encode_raw(&strOut[0], strData.size(), reinterpret_cast<const uint8_t*>(strData.data()));
    return strOut;
}

} // namespace P4SIM
} // namespace ORVANE
