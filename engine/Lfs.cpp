#include "Lfs.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "Wildmatch.h"

namespace ORVANE {
namespace IMP {

namespace {

// The attributes of a file in Git LFS, as `git lfs track` writes them, and
// those that take them off again.
const char* const s_pszLfsAttributes = " filter=lfs diff=lfs merge=lfs -text\n";
const char* const s_pszNoLfsAttributes = " !filter !diff !merge !text\n";

// What ends a pattern in git's reading of .gitattributes.
bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string FileName(const std::string& strPath)
{
    const size_t n = strPath.rfind('/');
    return n == std::string::npos ? strPath : strPath.substr(n + 1);
}

// The name of a pattern "/NAME" that Git LFS 3.3 takes for "NAME" in any
// folder; empty for any other pattern.
std::string RootOnlyName(const std::string& strPattern)
{
    return strPattern.size() > 1 && strPattern[0] == '/' && strPattern.find('/', 1) == std::string::npos
               ? strPattern.substr(1)
               : std::string();
}

} // namespace

bool ParseSize(const std::string& strText, uint64_t& nBytes)
{
    size_t nDigits = 0;
    while (nDigits < strText.size() && strText[nDigits] >= '0' && strText[nDigits] <= '9')
        ++nDigits;
    if (nDigits == 0 || strText.size() > nDigits + 1)
        return false;
    uint64_t nUnit = 1;
    if (strText.size() == nDigits + 1)
    {
        static const std::string s_strUnits = "KMGT";
        const size_t nUnitIndex = s_strUnits.find(char(std::toupper(static_cast<unsigned char>(strText.back()))));
        if (nUnitIndex == std::string::npos)
            return false;
        nUnit <<= 10 * (nUnitIndex + 1);
    }
    uint64_t n = 0;
    for (size_t i = 0; i < nDigits; ++i)
    {
        const uint64_t nDigit = uint64_t(strText[i] - '0');
        if (n > (std::numeric_limits<uint64_t>::max() - nDigit) / 10)
            return false;
        n = n * 10 + nDigit;
    }
    if (n == 0 || n > std::numeric_limits<uint64_t>::max() / nUnit)
        return false;
    nBytes = n * nUnit;
    return true;
}

std::string TLfsSettings::Describe() const
{
    if (!Any())
        return "no Git LFS";
    std::string str;
    if (nThreshold)
        str = "--lfs-threshold " + std::to_string(nThreshold);
    for (const std::string& strPattern : astrPatterns)
        str += std::string(str.empty() ? "" : " ") + "--lfs-pattern '" + strPattern + "'";
    return str;
}

std::string PatternProblem(const std::string& strGlob)
{
    if (strGlob.empty())
        return "an empty pattern matches no file";
    if (std::any_of(strGlob.begin(), strGlob.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }))
        return "a pattern may not hold control characters";
    if (strGlob[0] == '!')
        return ".gitattributes has no negative patterns ('!')";
    if (strGlob[0] == '"')
        return "a pattern may not begin with '\"'";
    if (strGlob.back() == '/')
        return "a pattern that ends with '/' matches folders only, and attributes apply to files: write '" + strGlob +
               "**' for every file below the folder";
    return std::string();
}

std::string AttributePattern(const std::string& strGlob)
{
    std::string str = strGlob[0] == '#' ? "\\" : "";
    for (char c : strGlob)
        str += IsBlank(c) ? std::string("[[:space:]]") : std::string(1, c);
    return str;
}

std::string PathPattern(const std::string& strPath)
{
    std::string str = "/";
    for (char c : strPath)
    {
        if (IsBlank(c))
            str += "[[:space:]]";
        else
        {
            if (c == '\\' || c == '*' || c == '?' || c == '[')
                str += '\\';
            str += c;
        }
    }
    return str;
}

bool AttributeMatches(const std::string& strPattern, const std::string& strPath)
{
    if (strPattern.find('/') == std::string::npos)
        return WildMatch(strPattern, FileName(strPath), false);
    return WildMatch(strPattern[0] == '/' ? strPattern.substr(1) : strPattern, strPath, true);
}

std::string LfsPointer(const std::string& strOid, uint64_t nSize)
{
    if (nSize == 0)
        return std::string();
    return "version https://git-lfs.github.com/spec/v1\noid sha256:" + strOid + "\nsize " + std::to_string(nSize) +
           "\n";
}

std::string LfsObjectPath(const std::string& strGitDir, const std::string& strOid)
{
    return strGitDir + "/lfs/objects/" + strOid.substr(0, 2) + "/" + strOid.substr(2, 2) + "/" + strOid;
}

CLfsRules::CLfsRules(const TLfsSettings& tSettings) : m_tSettings(tSettings)
{
    for (const std::string& strGlob : m_tSettings.astrPatterns)
        m_astrPatterns.push_back(AttributePattern(strGlob));
}

bool CLfsRules::Matches(const std::string& strPath) const
{
    for (const std::string& strPattern : m_astrPatterns)
        if (AttributeMatches(strPattern, strPath))
            return true;
    return false;
}

bool CLfsRules::Takes(const std::string& strPath, uint64_t nSize) const
{
    return !IsKeptOut(strPath) && ((m_tSettings.nThreshold && nSize >= m_tSettings.nThreshold) || Matches(strPath));
}

bool CLfsRules::IsKeptOut(const std::string& strPath)
{
    const std::string strName = FileName(strPath);
    return strName == ".gitattributes" || strName == ".lfsconfig";
}

bool CLfsAttributes::IsBySize(const std::string& strPath, const TEntry& tEntry) const
{
    return tEntry.bLfs && !m_cRules.Matches(strPath);
}

bool CLfsAttributes::NeedsOverride(const std::string& strPath, const TEntry& tEntry) const
{
    // Git LFS does not look at symbolic links.
    if (tEntry.bLfs || tEntry.nMode == 0120000)
        return false;
    if (CLfsRules::IsKeptOut(strPath) && m_cRules.Matches(strPath))
        return true;
    const size_t nSlash = strPath.rfind('/');
    if (nSlash == std::string::npos)
        return false; // at the root git and Git LFS read "/NAME" alike
    const std::string strName = strPath.substr(nSlash + 1);
    if (m_setRootNames.count(strName))
        return true;
    for (const std::string& strPattern : m_cRules.Patterns())
    {
        const std::string strRootName = RootOnlyName(strPattern);
        if (!strRootName.empty() && WildMatch(strRootName, strName, false))
            return true;
    }
    return false;
}

void CLfsAttributes::Set(std::set<std::string>& set, const std::string& strPath, bool bIn)
{
    if (bIn)
        set.insert(strPath);
    else
        set.erase(strPath);
}

void CLfsAttributes::Update(const TTree& tTree, const TTreeDelta& tDelta, bool bWhole)
{
    const std::set<std::string> setRootNames = m_setRootNames;
    if (bWhole)
    {
        m_setBySize.clear();
        m_setRootNames.clear();
    }
    const auto fnBySize = [this](const std::string& strPath, const TEntry* pEntry) {
        const bool bIn = pEntry && IsBySize(strPath, *pEntry);
        Set(m_setBySize, strPath, bIn);
        if (strPath.find('/') == std::string::npos)
            Set(m_setRootNames, strPath, bIn);
    };
    if (bWhole)
        for (const auto& kv : tTree)
            fnBySize(kv.first, &kv.second);
    for (const std::string& strPath : tDelta.setRemoved)
        fnBySize(strPath, nullptr);
    for (const std::string& strPath : tDelta.setChanged)
    {
        auto it = tTree.find(strPath);
        fnBySize(strPath, it == tTree.end() ? nullptr : &it->second);
    }
    // A new or lost name at the root changes what every file of that name
    // needs.
    if (bWhole || setRootNames != m_setRootNames)
    {
        m_setOverrides.clear();
        for (const auto& kv : tTree)
            if (NeedsOverride(kv.first, kv.second))
                m_setOverrides.insert(kv.first);
    }
    else
    {
        for (const std::string& strPath : tDelta.setRemoved)
            m_setOverrides.erase(strPath);
        for (const std::string& strPath : tDelta.setChanged)
        {
            auto it = tTree.find(strPath);
            Set(m_setOverrides, strPath, it != tTree.end() && NeedsOverride(strPath, it->second));
        }
    }
    // The root .gitattributes is there whenever these lines are, whatever
    // the depot has.
    TEntry tAttributes;
    tAttributes.nMode = 0100644;
    Set(m_setOverrides, ".gitattributes", NeedsOverride(".gitattributes", tAttributes));
}

std::string CLfsAttributes::Text(const std::string& strDepot) const
{
    std::string str;
    for (const std::string& strPattern : m_cRules.Patterns())
        str += strPattern + s_pszLfsAttributes;
    for (const std::string& strPath : m_setBySize)
        str += PathPattern(strPath) + s_pszLfsAttributes;
    for (const std::string& strPath : m_setOverrides)
        str += PathPattern(strPath) + s_pszNoLfsAttributes;
    if (str.empty() || strDepot.empty())
        return strDepot + str;
    return strDepot + (strDepot.back() == '\n' ? "" : "\n") + str;
}

} // namespace IMP
} // namespace ORVANE
