// What every fuzz target shares: a provider for the command log, the folder
// of prepared answers for the stand-in p4, the C locale of an input, and the
// framing that splits one input into the answers of several commands.
//
// Every input starts with a mode byte; its lowest bit selects the locale in
// which string bodies are converted (0: "C", 1: "C.UTF-8"). The rest of the
// input belongs to the target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/FilePath.h"
#include "host/String.h"
#include "mp4/MP4CommandBase.h"

// The entry of every target: one input. 0 when it ran; -1 asks libFuzzer
// not to keep the input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

namespace ORVANE {
namespace FUZZ {

// The separator between the parts of an input that several commands answer.
extern const char* const g_pszSeparator;

// Stops the process with a message when a property of a target fails:
// libFuzzer keeps the input as a crash.
void Require(bool bCondition, const char* pszWhat);

// Everything one input needs, set up on construction and taken down when it
// ends: the provider (made once per process), its log (a new file per input,
// removed afterwards), the stand-in p4 as the executable, the locale of the
// mode byte. Prepared answers are removed at the end of the input.
class CInputScope
{
public:
    CInputScope(const uint8_t* pData, size_t nSize);
    CInputScope(const CInputScope&) = delete;
    CInputScope& operator=(const CInputScope&) = delete;
    ~CInputScope();

    bool IsEmpty() const { return m_bEmpty; }
    uint8_t Mode() const { return m_nMode; }
    // The input after the mode byte.
    const std::string& Body() const { return m_strBody; }
    // The body cut at the first nParts - 1 separators; missing parts are empty.
    std::vector<std::string> Parts(size_t nParts) const;

    // The answer of the stand-in p4 to the command NAME.
    void Answer(const std::string& strName, const std::string& strOut, const std::string& strErr = "", int nExit = 0);
    // What the command NAME was given on its standard input.
    std::string Input(const std::string& strName) const;

private:
    bool m_bEmpty = true;
    uint8_t m_nMode = 0;
    std::string m_strBody;
    std::vector<std::string> m_astrFiles;
};

// "//depot/main", the path the listings are run for.
VCM::CFilePath DepotMain();

// Takes values from the front of bytes; past their end every value is 0.
class CByteSource
{
public:
    explicit CByteSource(const std::string& strBytes) : m_strBytes(strBytes) {}
    bool AtEnd() const { return m_nPos >= m_strBytes.size(); }
    // The next N bytes as a little-endian number.
    uint32_t Number(size_t nBytes);
    // A number from nLow to nHigh (inclusive).
    uint32_t InRange(uint32_t nLow, uint32_t nHigh);

private:
    const std::string& m_strBytes;
    size_t m_nPos = 0;
};

// Opens the protected reader of the command base.
class CReaderCmd : public MP4::CCommandBase
{
public:
    using CCommandBase::Execute;
    using CCommandBase::GetNextPair;
    using CCommandBase::ReadString;
};

// True when the module's %XX decoding of the depot path would never return
// (an item that comes to end in '%' or in '%' and one character). The same
// steps as the module's, with the endless round replaced by the answer.
bool HexDecodingNeverEnds(const VCM::CFilePath& cPath);

} // namespace FUZZ
} // namespace ORVANE
