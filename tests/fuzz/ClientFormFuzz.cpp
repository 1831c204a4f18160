// The client form writer with arbitrary TClient contents: any character
// (control characters, NUL, code points no encoding has), any root and view
// paths, any option bits. The form reaches "p4 client -i"; its Options and
// LineEnd lines are plain ASCII and always arrive exactly.
#include "FuzzSupport.h"
#include "mp4/MP4ClientCmds.h"

using namespace ORVANE;

namespace {

// Mostly Latin-1 characters, now and then any other Unicode character. The
// texts of a client come from the server's output as the reader converted
// it, so there are no surrogates and nothing beyond U+10FFFF (wx refuses to
// encode those, with a debug message on standard error).
VCM::CString Text(FUZZ::CByteSource& cData)
{
    std::wstring str;
    const uint32_t nLength = cData.InRange(0, 48);
    for (uint32_t i = 0; i < nLength && !cData.AtEnd(); ++i)
    {
        const uint32_t c = cData.Number(1);
        uint32_t nCode = c < 0xF0 ? c : cData.Number(4) % 0x10F800;
        if (nCode >= 0xD800 && c >= 0xF0)
            nCode += 0x800;
        str += static_cast<wchar_t>(nCode);
    }
    return VCM::CString(wxString(str.data(), str.size()));
}

VCM::CFilePath Path(FUZZ::CByteSource& cData)
{
    const VCM::CString strText = Text(cData);
    VCM::CFilePath cPath;
    cPath.Parse(strText.wc_str(), static_cast<int>(strText.length()), false);
    return cPath;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FUZZ::CInputScope cInput(pData, nSize);
    if (cInput.IsEmpty())
        return 0;
    FUZZ::CByteSource cData(cInput.Body());

    MP4::TClient tClient;
    tClient.strName = Text(cData);
    tClient.strOwner = Text(cData);
    tClient.strHost = Text(cData);
    tClient.strDescription = Text(cData);
    tClient.cRoot = Path(cData);
    tClient.nOptions = cData.Number(4);
    // Every value the enumeration can hold, the five named ones and three more.
    tClient.eLineEnd = static_cast<MP4::TClientLEOption>(cData.InRange(0, 7));
    const uint32_t nLines = cData.InRange(0, 6);
    for (uint32_t i = 0; i < nLines; ++i)
    {
        tClient.aDepotPaths.Add(Path(cData));
        tClient.aClientPaths.Add(Path(cData));
    }

    cInput.Answer("client", "Client saved.\n");
    MP4::CClientCmd cClient;
    FUZZ::Require(cClient.CreateClient(tClient), "client -i runs");

    const std::string strForm = cInput.Input("client");
    MP4::CClientCmd cWords;
    const std::string strOptions =
        "Options: " + std::string(cWords.GetOptionsString(tClient.nOptions).utf8_str()) + "\n";
    const std::string strLineEnd =
        "LineEnd: " + std::string(cWords.GetLEOptionsString(tClient.eLineEnd).utf8_str()) + "\n";
    FUZZ::Require(strForm.find(strOptions) != std::string::npos, "the Options line is in the form");
    FUZZ::Require(strForm.find(strLineEnd) != std::string::npos, "the LineEnd line is in the form");
    return 0;
}
