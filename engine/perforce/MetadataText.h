// The texts of a change that a server on which unicode is not enabled keeps
// as the bytes a client sent (descriptions, user and client names, full
// names): in the code page of that client, often Windows-1252. The module
// reads every text as UTF-8 and turns one that is not into empty text; the
// engine hands it UTF-8 instead, decoded from the code page the user names.
#pragma once

#include <string>

namespace ORVANE {
namespace IMP {

// Whether the bytes are valid UTF-8 (no overlong forms, no surrogates).
bool IsUtf8(const std::string& str);

class CMetadataDecoder
{
public:
    // strEncoding: an encoding name iconv knows ("cp1252", "latin1",
    // "shift_jis", ...); empty: texts pass as they are.
    explicit CMetadataDecoder(const std::string& strEncoding = std::string()) : m_strEncoding(strEncoding) {}

    // Whether the encoding is one this system can decode.
    static bool IsKnown(const std::string& strEncoding);

    // Whether the value of this key of a -G record is such a text (not a
    // file name, whose bytes must reach git as they are).
    static bool IsMetadataKey(const std::string& strKey);

    // The text as UTF-8: as it is when it is UTF-8 already (or no encoding
    // is set), else decoded; a byte the encoding does not define becomes
    // U+FFFD. False when the text was left as it is.
    bool ToUtf8(std::string& strText) const;

private:
    std::string m_strEncoding;
};

} // namespace IMP
} // namespace ORVANE
