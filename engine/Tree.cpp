#include "Tree.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "Digest.h"

namespace ORVANE {
namespace IMP {

namespace {

// Reads the file's content: as many bytes as the caller's look at it saw,
// as git does itself (the command that wrote the file has ended; a file
// that changes after all the same is reported again and read again). Fewer
// when it shrank in between. The path is below the folder fdBase is open
// on, or absolute.
bool ReadFile(int fdBase, const char* pszPath, size_t nSize, std::string& strContent)
{
    const int fd = openat(fdBase, pszPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    strContent.resize(nSize);
    size_t nDone = 0;
    while (nDone < nSize)
    {
        const ssize_t r = read(fd, &strContent[nDone], nSize - nDone);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
        {
            close(fd);
            return false;
        }
        if (r == 0)
            break;
        nDone += size_t(r);
    }
    close(fd);
    strContent.resize(nDone);
    return true;
}

// Reads through the filter the regular file at pszPath (below fdBase), of
// the size seen; strPath is its path in the tree.
bool ReadFiltered(int fdBase, const char* pszPath, uint64_t nSize, const std::string& strPath, CContentFilter& cFilter,
                  std::string& strContent)
{
    const int fd = openat(fdBase, pszPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    const bool bRead = cFilter.Read(strPath, fd, nSize, strContent);
    close(fd);
    return bRead;
}

// A regular file too large to hold (pszPath below fdBase; strPath names
// it in the tree): its blob name hashed in pieces, and the file left open
// as the content, when that is asked for, to be read again when needed.
bool ReadLargeFile(int fdBase, const char* pszPath, const std::string& strPath, TEntry& tEntry, CBlobContent* pContent)
{
    const int fd = openat(fdBase, pszPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    // The size of what is open now: the blob is named for it, and what is
    // sent later must be as long.
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0 ||
        !HashFileBlob(fd, uint64_t(st.st_size), tEntry.strBlob))
    {
        close(fd);
        return false;
    }
    if (pContent)
        *pContent = CBlobContent(fd, uint64_t(st.st_size), tEntry.strBlob, strPath.empty() ? pszPath : strPath);
    else
        close(fd);
    return true;
}

// ReadEntry for a path whose lstat the caller has (below fdBase, or
// absolute), its content (when asked for) held, or for a large regular file
// the file open. The filter, when there is one, is asked about the file by
// strPath, its path in the tree.
bool ReadEntryAs(int fdBase, const char* pszPath, const struct stat& st, TEntry& tEntry, CBlobContent* pContent,
                 const std::string& strPath = std::string(), CContentFilter* pFilter = nullptr)
{
    const size_t nSize = size_t(st.st_size > 0 ? st.st_size : 0);
    std::string strContent;
    if (S_ISLNK(st.st_mode))
    {
        std::vector<char> ach(nSize + 4096);
        const ssize_t n = readlinkat(fdBase, pszPath, ach.data(), ach.size());
        if (n < 0)
            return false;
        strContent.assign(ach.data(), size_t(n));
        tEntry.nMode = 0120000;
    }
    else if (S_ISREG(st.st_mode))
    {
        tEntry.nMode = (st.st_mode & S_IXUSR) ? 0100755 : 0100644;
        // The filter gets the whole size, also where size_t is narrower.
        const uint64_t nFileSize = uint64_t(st.st_size > 0 ? st.st_size : 0);
        const bool bFiltered = pFilter && pFilter->Takes(strPath, nFileSize);
        if (!bFiltered && nFileSize > g_nStreamedBlobBytes)
            return ReadLargeFile(fdBase, pszPath, strPath, tEntry, pContent);
        if (bFiltered ? !ReadFiltered(fdBase, pszPath, nFileSize, strPath, *pFilter, strContent)
                      : !ReadFile(fdBase, pszPath, nSize, strContent))
            return false;
        tEntry.bLfs = bFiltered && pFilter->LastReadKeptElsewhere();
    }
    else
        return false;
    tEntry.strBlob = GitBlobName(strContent);
    if (pContent)
        *pContent = CBlobContent(std::move(strContent));
    return true;
}

// Everything below a folder (strRelative in the tree) that fdFolder is open
// on; the descriptor is closed at the end. Each entry is looked at by its
// name in the folder, so that no look walks the folders above again.
void ScanFolder(int fdFolder, const std::string& strRelative, TTree& tTree, const TBlobSink& fnSink, const TTree* pOld,
                CContentFilter* pFilter)
{
    // Closed also when the sink throws.
    const std::unique_ptr<DIR, int (*)(DIR*)> pDir(fdopendir(fdFolder), closedir);
    if (!pDir)
    {
        close(fdFolder);
        return;
    }
    std::vector<std::string> astrNames;
    while (dirent* p = readdir(pDir.get()))
    {
        const std::string strName = p->d_name;
        if (strName != "." && strName != "..")
            astrNames.push_back(strName);
    }
    const int fd = dirfd(pDir.get());
    for (const std::string& strName : astrNames)
    {
        const std::string strPath = strRelative.empty() ? strName : strRelative + "/" + strName;
        struct stat st;
        if (fstatat(fd, strName.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISDIR(st.st_mode))
        {
            const int fdSub = openat(fd, strName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (fdSub >= 0)
                ScanFolder(fdSub, strPath, tTree, fnSink, pOld, pFilter);
            continue;
        }
        TEntry tEntry;
        CBlobContent cContent;
        if (!ReadEntryAs(fd, strName.c_str(), st, tEntry, fnSink ? &cContent : nullptr, strPath, pFilter))
            continue;
        if (fnSink)
        {
            bool bKnown = false;
            if (pOld)
            {
                auto it = pOld->find(strPath);
                bKnown = it != pOld->end() && it->second == tEntry;
            }
            if (!bKnown)
                fnSink(tEntry.strBlob, cContent);
        }
        tTree[strPath] = tEntry;
    }
}

// ScanFolder for the folder at pszPath (below fdBase, or absolute).
void ScanInto(int fdBase, const char* pszPath, const std::string& strRelative, TTree& tTree, const TBlobSink& fnSink,
              const TTree* pOld, CContentFilter* pFilter)
{
    const int fd = openat(fdBase, pszPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0)
        ScanFolder(fd, strRelative, tTree, fnSink, pOld, pFilter);
}

// The root folder of an update, open while it lasts: the paths below it are
// looked at from there. A root that cannot be opened holds nothing.
class CRoot
{
public:
    explicit CRoot(const std::string& strRoot) : m_fd(open(strRoot.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
    ~CRoot()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    CRoot(const CRoot&) = delete;
    CRoot& operator=(const CRoot&) = delete;
    int Fd() const { return m_fd; }

private:
    const int m_fd;
};

bool IsBelow(const std::string& strPath, const std::string& strPrefix)
{
    return strPath.compare(0, strPrefix.size(), strPrefix) == 0;
}

// Removes the path and everything below it from the tree.
void RemoveBelow(TTree& tTree, const std::string& strPath, TTreeDelta& tDelta, bool bSelfToo)
{
    if (bSelfToo && tTree.erase(strPath))
        tDelta.Removed(strPath);
    const std::string strPrefix = strPath + "/";
    for (auto it = tTree.lower_bound(strPrefix); it != tTree.end() && IsBelow(it->first, strPrefix);)
    {
        tDelta.Removed(it->first);
        it = tTree.erase(it);
    }
}

void Apply(TTree& tTree, const std::string& strPath, const TEntry& tEntry, TTreeDelta& tDelta)
{
    auto it = tTree.find(strPath);
    if (it != tTree.end() && it->second == tEntry)
        return;
    tTree[strPath] = tEntry;
    tDelta.Changed(strPath);
}

// A folder that came, or changed below: everything under it.
void UpdateFolder(const CRoot& cRoot, const std::string& strPath, TTree& tTree, TTreeDelta& tDelta,
                  const TBlobSink& fnSink, CContentFilter* pFilter)
{
    TTree tSub;
    ScanInto(cRoot.Fd(), strPath.c_str(), strPath, tSub, fnSink, &tTree, pFilter);
    if (tTree.erase(strPath))
        tDelta.Removed(strPath); // a file became a folder
    const std::string strPrefix = strPath + "/";
    for (auto it = tTree.lower_bound(strPrefix); it != tTree.end() && IsBelow(it->first, strPrefix);)
    {
        if (tSub.count(it->first))
        {
            ++it;
            continue;
        }
        tDelta.Removed(it->first);
        it = tTree.erase(it);
    }
    for (const auto& kv : tSub)
        Apply(tTree, kv.first, kv.second, tDelta);
}

// A file or symbolic link that came or changed (st: what lstat saw), or
// that went between that look and the reading.
void UpdateFile(const CRoot& cRoot, const std::string& strPath, const struct stat& st, TTree& tTree, TTreeDelta& tDelta,
                const TBlobSink& fnSink, CContentFilter* pFilter)
{
    TEntry tEntry;
    CBlobContent cContent;
    if (!ReadEntryAs(cRoot.Fd(), strPath.c_str(), st, tEntry, fnSink ? &cContent : nullptr, strPath, pFilter))
    {
        RemoveBelow(tTree, strPath, tDelta, true);
        return;
    }
    RemoveBelow(tTree, strPath, tDelta, false); // it was a folder before
    auto it = tTree.find(strPath);
    if (it != tTree.end() && it->second == tEntry)
        return;
    if (fnSink)
        fnSink(tEntry.strBlob, cContent);
    Apply(tTree, strPath, tEntry, tDelta);
}

} // namespace

CContentFilter::~CContentFilter() = default;

bool ReadEntry(const std::string& strPath, TEntry& tEntry, std::string* pstrContent)
{
    struct stat st;
    CBlobContent cContent;
    if (lstat(strPath.c_str(), &st) != 0 ||
        !ReadEntryAs(AT_FDCWD, strPath.c_str(), st, tEntry, pstrContent ? &cContent : nullptr))
        return false;
    if (pstrContent)
        *pstrContent = cContent.Whole();
    return true;
}

void ScanTree(const std::string& strRoot, TTree& tTree, const TBlobSink& fnSink, const TTree* pOld,
              CContentFilter* pFilter)
{
    tTree.clear();
    ScanInto(AT_FDCWD, strRoot.c_str(), std::string(), tTree, fnSink, pOld, pFilter);
}

void UpdateTree(const std::string& strRoot, const std::set<std::string>& setDirty, TTree& tTree, TTreeDelta& tDelta,
                const TBlobSink& fnSink, CContentFilter* pFilter)
{
    if (setDirty.empty())
        return;
    if (setDirty.count(std::string()))
    {
        RescanTree(strRoot, tTree, tDelta, fnSink, pFilter);
        return;
    }
    const CRoot cRoot(strRoot);
    for (const std::string& strPath : setDirty)
    {
        struct stat st;
        if (fstatat(cRoot.Fd(), strPath.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
            !(S_ISDIR(st.st_mode) || S_ISREG(st.st_mode) || S_ISLNK(st.st_mode)))
            RemoveBelow(tTree, strPath, tDelta, true);
        else if (S_ISDIR(st.st_mode))
            UpdateFolder(cRoot, strPath, tTree, tDelta, fnSink, pFilter);
        else
            UpdateFile(cRoot, strPath, st, tTree, tDelta, fnSink, pFilter);
    }
}

void RescanTree(const std::string& strRoot, TTree& tTree, TTreeDelta& tDelta, const TBlobSink& fnSink,
                CContentFilter* pFilter)
{
    TTree tNew;
    ScanTree(strRoot, tNew, fnSink, &tTree, pFilter);
    for (const auto& kv : tTree)
        if (!tNew.count(kv.first))
            tDelta.Removed(kv.first);
    for (const auto& kv : tNew)
    {
        auto it = tTree.find(kv.first);
        if (it == tTree.end() || it->second != kv.second)
            tDelta.Changed(kv.first);
    }
    tTree.swap(tNew);
}

} // namespace IMP
} // namespace ORVANE
