// Large files in Git LFS: which files go there, the pointer that stands for
// each in git, where the repository keeps their content, and the root
// .gitattributes that tells git and Git LFS which files they are.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Tree.h"

namespace ORVANE {
namespace IMP {

// "50M" -> 52428800: a number of bytes, or a number with K, M, G or T
// (powers of 1024, either case). False for anything else, for 0 and for a
// size beyond 64 bits.
bool ParseSize(const std::string& strText, uint64_t& nBytes);

// What an import puts into Git LFS: files of nThreshold bytes or more (0:
// no size rule) and files that one of the patterns matches.
struct TLfsSettings
{
    uint64_t nThreshold = 0;
    std::vector<std::string> astrPatterns; // as given, sorted, each once

    bool Any() const { return nThreshold != 0 || !astrPatterns.empty(); }
    bool operator==(const TLfsSettings& o) const
    {
        return nThreshold == o.nThreshold && astrPatterns == o.astrPatterns;
    }
    bool operator!=(const TLfsSettings& o) const { return !(*this == o); }
    // "--lfs-threshold 52428800 --lfs-pattern '*.psd'", or "no Git LFS".
    std::string Describe() const;
};

// Why the glob cannot be an --lfs-pattern; empty when it can.
std::string PatternProblem(const std::string& strGlob);

// The glob as a line of .gitattributes has it: each blank as
// "[[:space:]]" (git and Git LFS end the pattern at a blank), a leading '#'
// escaped (it would make the line a comment).
std::string AttributePattern(const std::string& strGlob);
// The pattern that names exactly the file at the path (relative to the
// root): anchored with a leading '/', the characters that are special in a
// pattern escaped with a backslash, blanks as "[[:space:]]".
std::string PathPattern(const std::string& strPath);
// Whether the pattern, as a line of the root .gitattributes has it, applies
// to the file at the path, by git's rules: a pattern without '/' is
// matched against the file's name in any folder, any other against the
// whole path (a leading '/' only anchors it).
bool AttributeMatches(const std::string& strPattern, const std::string& strPath);

// The pointer file that stands for content of this size with this SHA-256
// (64 lowercase hex digits), exactly as Git LFS writes it. Empty content has
// an empty pointer, as with Git LFS.
std::string LfsPointer(const std::string& strOid, uint64_t nSize);
// Where a repository keeps the content: GITDIR/lfs/objects/OID[0:2]/OID[2:4]/OID.
std::string LfsObjectPath(const std::string& strGitDir, const std::string& strOid);

// The rules of TLfsSettings applied to files.
class CLfsRules
{
public:
    explicit CLfsRules(const TLfsSettings& tSettings);
    const TLfsSettings& Settings() const { return m_tSettings; }
    // The patterns as the .gitattributes lines have them.
    const std::vector<std::string>& Patterns() const { return m_astrPatterns; }
    // Whether a regular file of this size at the path goes into Git LFS.
    bool Takes(const std::string& strPath, uint64_t nSize) const;
    // Whether one of the patterns applies to the path.
    bool Matches(const std::string& strPath) const;
    // The files that git and Git LFS read from the tree themselves
    // (.gitattributes and .lfsconfig, in any folder): never in Git LFS.
    static bool IsKeptOut(const std::string& strPath);

private:
    TLfsSettings m_tSettings;
    std::vector<std::string> m_astrPatterns;
};

// The lines of the root .gitattributes that name what is in Git LFS, kept
// up to date commit by commit: a line for each pattern, one for each file
// that is in LFS by its size alone, and after them one that takes the LFS
// attributes off each file that is not in LFS although a reader would take
// it for one: a .gitattributes or .lfsconfig that a pattern matches, and a
// file below the root that has the name of a line "/NAME" (Git LFS 3.3
// reads such a line as "NAME" in any folder, where git reads the root only).
class CLfsAttributes
{
public:
    explicit CLfsAttributes(const CLfsRules& cRules) : m_cRules(cRules) {}
    // Takes the tree after a commit's change: all of it, or only the paths
    // of the delta.
    void Update(const TTree& tTree, const TTreeDelta& tDelta, bool bWhole);
    // The text of the root .gitattributes: the depot's own (when it has
    // one, given), then the lines above (after a line end the depot's text
    // lacks at its end). The depot's text as it is when there are no lines.
    std::string Text(const std::string& strDepot) const;

private:
    bool IsBySize(const std::string& strPath, const TEntry& tEntry) const;
    bool NeedsOverride(const std::string& strPath, const TEntry& tEntry) const;
    void Set(std::set<std::string>& set, const std::string& strPath, bool bIn);

    const CLfsRules& m_cRules;
    std::set<std::string> m_setBySize;    // paths in LFS by their size alone
    std::set<std::string> m_setRootNames; // those of them at the root
    std::set<std::string> m_setOverrides; // paths whose LFS attributes are taken off
};

} // namespace IMP
} // namespace ORVANE
