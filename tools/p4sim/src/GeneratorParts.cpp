#include "GeneratorParts.h"

#include "Text.h"

#include <algorithm>
#include <iterator>

namespace ORVANE {
namespace P4SIM {

namespace {

const char* const s_apszWords[] = {"alpha", "buffer", "cache",  "delta",  "engine", "filter", "graph",  "handle",
                                   "index", "join",   "kernel", "layout", "merge",  "node",   "offset", "parse",
                                   "queue", "render", "stream", "token",  "update", "vector", "window", "yield"};
const char* const s_apszUsers[] = {"alice", "bob", "carol", "dave", "erin", "frank"};
const char* const s_apszDirs[] = {"src", "src/core", "src/ui", "include", "docs", "tests", "assets", "tools"};

template <size_t N> const char* Pick(CRandom& rRandom, const char* const (&apsz)[N])
{
    return apsz[rRandom.Below(N)];
}

} // namespace

const std::vector<const char*>& GeneratedUsers()
{
    static const std::vector<const char*> s_apszAll(std::begin(s_apszUsers), std::end(s_apszUsers));
    return s_apszAll;
}

const char* PickUser(CRandom& rRandom)
{
    return Pick(rRandom, s_apszUsers);
}

const char* PickDir(CRandom& rRandom)
{
    return Pick(rRandom, s_apszDirs);
}

std::string Word(CRandom& rRandom)
{
    return Pick(rRandom, s_apszWords);
}

std::string MakeText(CRandom& rRandom, size_t nLines)
{
    std::string str;
    for (size_t i = 0; i < nLines; ++i)
    {
        size_t nWords = 1 + rRandom.Below(8);
        for (size_t k = 0; k < nWords; ++k)
        {
            if (k)
                str += ' ';
            str += Word(rRandom);
        }
        str += '\n';
    }
    return str;
}

std::string MakeBinary(CRandom& rRandom, size_t nSize)
{
    std::string str(nSize, '\0');
    for (char& c : str)
        c = char(rRandom.Below(256));
    return str;
}

size_t TextLines(CRandom& rRandom)
{
    unsigned nKind = unsigned(rRandom.Below(100));
    if (nKind < 60)
        return 1 + rRandom.Below(20);
    if (nKind < 95)
        return 20 + rRandom.Below(200);
    return 1000 + rRandom.Below(2000);
}

std::string EditText(CRandom& rRandom, const std::string& strOld)
{
    std::vector<std::string> astrLines = SplitLines(strOld);
    if (!astrLines.empty() && astrLines.back().empty())
        astrLines.pop_back();
    size_t nEdits = 1 + rRandom.Below(4);
    for (size_t e = 0; e < nEdits; ++e)
    {
        size_t nAt = astrLines.empty() ? 0 : rRandom.Below(astrLines.size() + 1);
        switch (rRandom.Below(3))
        {
        case 0:
            astrLines.insert(astrLines.begin() + long(nAt), Word(rRandom) + " " + Word(rRandom));
            break;
        case 1:
            if (!astrLines.empty() && nAt < astrLines.size())
                astrLines.erase(astrLines.begin() + long(nAt));
            break;
        default:
            if (nAt < astrLines.size())
                astrLines[nAt] = Word(rRandom) + " " + Word(rRandom) + " " + Word(rRandom);
            else
                astrLines.push_back(Word(rRandom));
        }
    }
    std::string str;
    for (const std::string& strLine : astrLines)
        str += strLine + "\n";
    return str;
}

bool SameContent(const TContent& pA, const TContent& pB)
{
    return pA == pB || *pA == *pB;
}

namespace {

// The branch folder of a depot path: "//depot/NAME/".
std::string StreamOf(const std::string& strPath)
{
    return strPath.substr(0, strPath.find('/', 8) + 1);
}

bool NameLess(const std::string* pA, const std::string& strB)
{
    return *pA < strB;
}

} // namespace

void CFileIndex::Set(const std::string& strPath, const TFileState& tState)
{
    auto tInserted = m_mapFiles.insert({strPath, tState});
    if (!tInserted.second)
    {
        tInserted.first->second = tState;
        return;
    }
    std::vector<const std::string*>& apFiles = m_mapStreams[StreamOf(strPath)];
    apFiles.insert(std::lower_bound(apFiles.begin(), apFiles.end(), strPath, NameLess), &tInserted.first->first);
}

void CFileIndex::Erase(const std::string& strPath)
{
    auto it = m_mapFiles.find(strPath);
    if (it == m_mapFiles.end())
        return;
    std::vector<const std::string*>& apFiles = m_mapStreams[StreamOf(strPath)];
    apFiles.erase(std::lower_bound(apFiles.begin(), apFiles.end(), strPath, NameLess));
    m_mapFiles.erase(it);
}

const std::vector<const std::string*>& CFileIndex::FilesIn(const std::string& strStream) const
{
    static const std::vector<const std::string*> s_apNone;
    auto it = m_mapStreams.find(strStream);
    return it == m_mapStreams.end() ? s_apNone : it->second;
}

} // namespace P4SIM
} // namespace ORVANE
