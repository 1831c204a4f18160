// Path parsing and generation with arbitrary text. The body holds two texts
// (the parts of the input); mode bit 1 reads each 4 bytes as one character
// of any 32-bit value instead of each byte as one Latin-1 character, mode
// bit 2 parses up to the first NUL instead of the whole text.
//
// Parsing accepts exactly the texts without NUL and without an empty
// component after the root; generating gives the text back without one
// trailing separator; generating and parsing again gives the same items.
#include <cstring>

#include "FuzzSupport.h"

using namespace ORVANE;

namespace {

std::wstring Characters(const std::string& strBytes, bool bWide)
{
    std::wstring str;
    if (!bWide)
    {
        for (const char c : strBytes)
            str += static_cast<wchar_t>(static_cast<unsigned char>(c));
        return str;
    }
    for (size_t i = 0; i + 4 <= strBytes.size(); i += 4)
    {
        uint32_t n;
        std::memcpy(&n, strBytes.data() + i, 4);
        str += static_cast<wchar_t>(n);
    }
    return str;
}

// What Parse accepts, said independently.
bool Parsable(const std::wstring& str)
{
    if (str.empty() || str.find(L'\0') != std::wstring::npos)
        return false;
    size_t nPos = str.compare(0, 2, L"//") == 0 ? 2 : (str[0] == L'/' ? 1 : 0);
    while (nPos < str.size())
    {
        const size_t nEnd = std::min(str.find(L'/', nPos), str.size());
        if (nEnd == nPos)
            return false;
        nPos = nEnd + 1;
    }
    return true;
}

std::wstring W(const VCM::CString& str)
{
    return std::wstring(str.wc_str(), str.length());
}

VCM::CFilePath Check(const std::wstring& strAll, bool bToTerminator)
{
    VCM::CFilePath cPath;
    const std::wstring strText = bToTerminator ? std::wstring(strAll.c_str()) : strAll;
    const bool bParsed = bToTerminator ? cPath.Parse(strAll.c_str(), -1, false)
                                       : cPath.Parse(strAll.c_str(), static_cast<int>(strAll.size()), true);
    FUZZ::Require(bParsed == Parsable(strText), "Parse accepts exactly the paths");
    FUZZ::Require(bParsed != cPath.IsEmpty(), "a refused text leaves the path empty");
    if (!bParsed)
        return cPath;

    std::wstring strExpected = strText;
    if (strExpected != L"/" && strExpected != L"//" && strExpected.back() == L'/')
        strExpected.pop_back();
    const std::wstring strGenerated = W(cPath.GeneratePath(L'/', true));
    FUZZ::Require(strGenerated == strExpected, "generating gives the text back");
    FUZZ::Require(W(cPath.GeneratePath()) == strGenerated, "the platform form is the '/' form");
    FUZZ::Require(cPath.GeneratePath(L'\\', false).length() == strGenerated.size(), "any separator, same length");

    VCM::CFilePath cAgain;
    FUZZ::Require(cAgain.Parse(strGenerated.c_str(), -1, false), "a generated path parses");
    FUZZ::Require(cAgain == cPath && cAgain.IsEqualTo(cPath, false) && cAgain.IsEqualTo(cPath, true),
                  "generated and parsed again, the same items");
    for (unsigned i = 0; i < cPath.GetItemCount(); ++i)
    {
        unsigned nLength = 0;
        const wchar_t* psz = cPath.GetItemText(i, &nLength);
        FUZZ::Require(std::wcslen(psz) == nLength, "an item holds no NUL");
        // The depot root is the one item "/".
        const bool bDepotRoot = i == 0 && std::wcscmp(psz, L"/") == 0 && strText.compare(0, 2, L"//") == 0;
        FUZZ::Require(bDepotRoot || std::wstring(psz).find(L'/') == std::wstring::npos, "an item holds no separator");
    }
    return cPath;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FUZZ::CInputScope cInput(pData, nSize);
    if (cInput.IsEmpty())
        return 0;
    const bool bWide = (cInput.Mode() & 2) != 0;
    const bool bToTerminator = (cInput.Mode() & 4) != 0;
    const std::vector<std::string> astrParts = cInput.Parts(2);
    const VCM::CFilePath cA = Check(Characters(astrParts[0], bWide), bToTerminator);
    const VCM::CFilePath cB = Check(Characters(astrParts[1], bWide), bToTerminator);

    VCM::CFilePath cRest;
    if (cA.IsSupersetOf(cB, &cRest, false))
    {
        FUZZ::Require(cA.GetItemCount() == cB.GetItemCount() + cRest.GetItemCount(), "the remainder is the rest");
        for (unsigned i = 0; i < cRest.GetItemCount(); ++i)
            FUZZ::Require(std::wcscmp(cRest.GetItemText(i), cA.GetItemText(cB.GetItemCount() + i)) == 0,
                          "the remainder holds the items beyond");
        FUZZ::Require(cA.IsSupersetOf(cB, nullptr, true), "what matches with case matches without");
    }
    FUZZ::Require(cA.IsSupersetOf(cA, nullptr, false) && cA.IsEqualTo(cA, false), "a path covers itself");
    FUZZ::Require(cA.IsEqualTo(cB, false) == (cA == cB), "equality item by item");

    const std::wstring strJoined = W(cB.GeneratePath(cA, 0));
    const std::wstring strBase = W(cA.GeneratePath());
    FUZZ::Require(strJoined.compare(0, strBase.size(), strBase) == 0, "a joined path starts with its base");
    return 0;
}
