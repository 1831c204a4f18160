// The pieces `admin generate` makes its history from: pseudo-random numbers
// that are the same everywhere, words, file contents and edits, and the
// files of each branch as the history goes on.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// Deterministic pseudo-random numbers (splitmix64), the same on every
// platform and library.
class CRandom
{
public:
    explicit CRandom(uint64_t nSeed) : m_nState(nSeed) {}
    uint64_t Next()
    {
        uint64_t n = (m_nState += 0x9e3779b97f4a7c15ULL);
        n = (n ^ (n >> 30)) * 0xbf58476d1ce4e5b9ULL;
        n = (n ^ (n >> 27)) * 0x94d049bb133111ebULL;
        return n ^ (n >> 31);
    }
    // A value in [0, nRange), nRange > 0.
    uint64_t Below(uint64_t nRange) { return Next() % nRange; }
    bool Chance(unsigned nPercent) { return Below(100) < nPercent; }

private:
    uint64_t m_nState;
};

const std::vector<const char*>& GeneratedUsers();
const char* PickUser(CRandom& rRandom);
const char* PickDir(CRandom& rRandom);
std::string Word(CRandom& rRandom);

std::string MakeText(CRandom& rRandom, size_t nLines);
std::string MakeBinary(CRandom& rRandom, size_t nSize);
// Varied sizes: mostly small, some medium, now and then a large one.
size_t TextLines(CRandom& rRandom);
// A few lines inserted, removed or replaced.
std::string EditText(CRandom& rRandom, const std::string& strOld);

using TContent = std::shared_ptr<const std::string>;

struct TFileState
{
    std::string strType;
    TContent pContent; // shared with the branches that copied it
};

bool SameContent(const TContent& pA, const TContent& pB);

// The files of the history as it is made, by depot path ("//depot/NAME/..."),
// with the sorted list of each branch's files at hand.
class CFileIndex
{
public:
    bool Has(const std::string& strPath) const { return m_mapFiles.count(strPath) != 0; }
    // The state of a file that exists.
    TFileState& Get(const std::string& strPath) { return m_mapFiles.at(strPath); }
    void Set(const std::string& strPath, const TFileState& tState);
    void Erase(const std::string& strPath);
    // The files under a branch's folder ("//depot/main/"), in order: the
    // names stay valid until their file is erased.
    const std::vector<const std::string*>& FilesIn(const std::string& strStream) const;

private:
    std::map<std::string, TFileState> m_mapFiles;
    std::map<std::string, std::vector<const std::string*>> m_mapStreams;
};

} // namespace P4SIM
} // namespace ORVANE
