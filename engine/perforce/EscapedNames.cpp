#include "perforce/EscapedNames.h"

#include "Text.h"

namespace ORVANE {
namespace IMP {

namespace {

// The value of a hexadecimal digit, -1 for any other character.
int HexValue(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    if (c >= L'a' && c <= L'f')
        return c - L'a' + 10;
    if (c >= L'A' && c <= L'F')
        return c - L'A' + 10;
    return -1;
}

enum TItemOutcome
{
    eItemDone,      // decoded completely
    eItemStopped,   // a '%' without two hexadecimal digits: the rest is kept
    eItemNeverEnds, // a '%' with fewer than two characters after it
};

// The module's rounds on one item: each starts again at the first '%'.
TItemOutcome DecodeItemAsModule(std::wstring& strItem)
{
    for (;;)
    {
        const size_t nPos = strItem.find(L'%');
        if (nPos == std::wstring::npos)
            return eItemDone;
        if (nPos + 2 >= strItem.size())
            return eItemNeverEnds;
        const int nHigh = HexValue(strItem[nPos + 1]);
        const int nLow = HexValue(strItem[nPos + 2]);
        if (nHigh < 0 || nLow < 0)
            return eItemStopped;
        strItem.replace(nPos, 3, 1, static_cast<wchar_t>(nHigh * 16 + nLow));
    }
}

} // namespace

TModuleReading ReadAsModule(const std::wstring& strDepotPath)
{
    TModuleReading tReading;
    std::wstring strOut;
    size_t nStart = 0;
    bool bStopped = false;
    while (nStart <= strDepotPath.size())
    {
        size_t nEnd = strDepotPath.find(L'/', nStart);
        if (nEnd == std::wstring::npos)
            nEnd = strDepotPath.size();
        std::wstring strItem = strDepotPath.substr(nStart, nEnd - nStart);
        if (!bStopped)
        {
            const TItemOutcome eOutcome = DecodeItemAsModule(strItem);
            if (eOutcome == eItemNeverEnds)
            {
                tReading.bFinishes = false;
                return tReading;
            }
            // After an item it cannot decode, the module leaves the rest of
            // the path as it is.
            bStopped = eOutcome == eItemStopped;
        }
        strOut += strItem;
        if (nEnd < strDepotPath.size())
            strOut += L'/';
        nStart = nEnd + 1;
    }
    tReading.strPath = strOut;
    return tReading;
}

std::wstring DecodeOnce(const std::wstring& strDepotPath)
{
    std::wstring strOut;
    for (size_t i = 0; i < strDepotPath.size(); ++i)
    {
        if (strDepotPath[i] == L'%' && i + 2 < strDepotPath.size())
        {
            const int nHigh = HexValue(strDepotPath[i + 1]);
            const int nLow = HexValue(strDepotPath[i + 2]);
            if (nHigh >= 0 && nLow >= 0)
            {
                strOut += static_cast<wchar_t>(nHigh * 16 + nLow);
                i += 2;
                continue;
            }
        }
        strOut += strDepotPath[i];
    }
    return strOut;
}

void CEscapedNames::Add(const std::string& strDepotPath)
{
    if (strDepotPath.find('%') == std::string::npos)
        return;
    const std::wstring strWide = Wide(strDepotPath).ToStdWstring();
    if (strWide.empty())
        return; // not UTF-8: nothing can be said about it here
    const TModuleReading tReading = ReadAsModule(strWide);
    if (!tReading.bFinishes)
    {
        m_astrNeverEnding.push_back(strDepotPath);
        return;
    }
    const std::wstring strServer = DecodeOnce(strWide);
    if (strServer != tReading.strPath)
        m_mapModuleToServer[Utf8(wxString(tReading.strPath))] = Utf8(wxString(strServer));
}

std::string CEscapedNames::SyncedPath(const std::string& strStreamPath, const std::string& strItemPath) const
{
    if (m_mapModuleToServer.empty())
        return strItemPath;
    const std::string strPrefix = strStreamPath + "/";
    auto it = m_mapModuleToServer.find(strPrefix + strItemPath);
    if (it == m_mapModuleToServer.end() || it->second.compare(0, strPrefix.size(), strPrefix) != 0)
        return strItemPath;
    return it->second.substr(strPrefix.size());
}

} // namespace IMP
} // namespace ORVANE
