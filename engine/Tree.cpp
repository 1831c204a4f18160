#include "Tree.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "Hash.h"

namespace ORVANE {
namespace IMP {

namespace {

std::string Join(const std::string& strRoot, const std::string& strRelative)
{
    return strRelative.empty() ? strRoot : strRoot + "/" + strRelative;
}

bool ReadFile(const std::string& strPath, std::string& strContent)
{
    const int fd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    strContent.clear();
    char ach[65536];
    for (;;)
    {
        const ssize_t r = read(fd, ach, sizeof(ach));
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
        {
            close(fd);
            return false;
        }
        if (r == 0)
            break;
        strContent.append(ach, size_t(r));
    }
    close(fd);
    return true;
}

void ScanInto(const std::string& strRoot, const std::string& strRelative, TTree& tTree, const TBlobSink& fnSink,
              const TTree* pOld)
{
    DIR* pDir = opendir(Join(strRoot, strRelative).c_str());
    if (!pDir)
        return;
    std::vector<std::string> astrNames;
    while (dirent* p = readdir(pDir))
    {
        const std::string strName = p->d_name;
        if (strName != "." && strName != "..")
            astrNames.push_back(strName);
    }
    closedir(pDir);
    for (const std::string& strName : astrNames)
    {
        const std::string strPath = strRelative.empty() ? strName : strRelative + "/" + strName;
        struct stat st;
        if (lstat(Join(strRoot, strPath).c_str(), &st) != 0)
            continue;
        if (S_ISDIR(st.st_mode))
        {
            ScanInto(strRoot, strPath, tTree, fnSink, pOld);
            continue;
        }
        TEntry tEntry;
        std::string strContent;
        if (!ReadEntry(Join(strRoot, strPath), tEntry, &strContent))
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
                fnSink(tEntry.strBlob, strContent);
        }
        tTree[strPath] = tEntry;
    }
}

// Removes the path and everything below it from the tree.
void RemoveBelow(TTree& tTree, const std::string& strPath, TTreeDelta& tDelta, bool bSelfToo)
{
    if (bSelfToo && tTree.erase(strPath))
    {
        tDelta.setRemoved.insert(strPath);
        tDelta.setChanged.erase(strPath);
    }
    const std::string strPrefix = strPath + "/";
    for (auto it = tTree.lower_bound(strPrefix); it != tTree.end() && it->first.compare(0, strPrefix.size(), strPrefix) == 0;)
    {
        tDelta.setRemoved.insert(it->first);
        tDelta.setChanged.erase(it->first);
        it = tTree.erase(it);
    }
}

void Apply(TTree& tTree, const std::string& strPath, const TEntry& tEntry, TTreeDelta& tDelta)
{
    auto it = tTree.find(strPath);
    if (it != tTree.end() && it->second == tEntry)
        return;
    tTree[strPath] = tEntry;
    tDelta.setChanged.insert(strPath);
    tDelta.setRemoved.erase(strPath);
}

} // namespace

bool ReadEntry(const std::string& strPath, TEntry& tEntry, std::string* pstrContent)
{
    struct stat st;
    if (lstat(strPath.c_str(), &st) != 0)
        return false;
    std::string strContent;
    if (S_ISLNK(st.st_mode))
    {
        std::vector<char> ach(size_t(st.st_size > 0 ? st.st_size : 0) + 4096);
        const ssize_t n = readlink(strPath.c_str(), ach.data(), ach.size());
        if (n < 0)
            return false;
        strContent.assign(ach.data(), size_t(n));
        tEntry.nMode = 0120000;
    }
    else if (S_ISREG(st.st_mode))
    {
        if (!ReadFile(strPath, strContent))
            return false;
        tEntry.nMode = (st.st_mode & S_IXUSR) ? 0100755 : 0100644;
    }
    else
        return false;
    tEntry.strBlob = GitBlobName(strContent);
    if (pstrContent)
        *pstrContent = std::move(strContent);
    return true;
}

void ScanTree(const std::string& strRoot, TTree& tTree, const TBlobSink& fnSink, const TTree* pOld)
{
    tTree.clear();
    ScanInto(strRoot, std::string(), tTree, fnSink, pOld);
}

void UpdateTree(const std::string& strRoot, const std::set<std::string>& setDirty, TTree& tTree,
                TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    for (const std::string& strPath : setDirty)
    {
        const std::string strFull = Join(strRoot, strPath);
        struct stat st;
        if (strPath.empty() || lstat(strFull.c_str(), &st) != 0 ||
            !(S_ISDIR(st.st_mode) || S_ISREG(st.st_mode) || S_ISLNK(st.st_mode)))
        {
            if (strPath.empty())
            {
                RescanTree(strRoot, tTree, tDelta, fnSink);
                return;
            }
            RemoveBelow(tTree, strPath, tDelta, true);
            continue;
        }
        if (S_ISDIR(st.st_mode))
        {
            // A folder that came, or changed below: everything under it.
            TTree tSub;
            ScanInto(strRoot, strPath, tSub, fnSink, &tTree);
            if (tTree.count(strPath))
            {
                tTree.erase(strPath); // a file became a folder
                tDelta.setRemoved.insert(strPath);
                tDelta.setChanged.erase(strPath);
            }
            const std::string strPrefix = strPath + "/";
            for (auto it = tTree.lower_bound(strPrefix);
                 it != tTree.end() && it->first.compare(0, strPrefix.size(), strPrefix) == 0;)
            {
                if (tSub.count(it->first))
                {
                    ++it;
                    continue;
                }
                tDelta.setRemoved.insert(it->first);
                tDelta.setChanged.erase(it->first);
                it = tTree.erase(it);
            }
            for (const auto& kv : tSub)
                Apply(tTree, kv.first, kv.second, tDelta);
            continue;
        }
        TEntry tEntry;
        std::string strContent;
        if (!ReadEntry(strFull, tEntry, &strContent))
        {
            RemoveBelow(tTree, strPath, tDelta, true);
            continue;
        }
        RemoveBelow(tTree, strPath, tDelta, false); // it was a folder before
        auto it = tTree.find(strPath);
        if (it != tTree.end() && it->second == tEntry)
            continue;
        if (fnSink)
            fnSink(tEntry.strBlob, strContent);
        Apply(tTree, strPath, tEntry, tDelta);
    }
}

void RescanTree(const std::string& strRoot, TTree& tTree, TTreeDelta& tDelta, const TBlobSink& fnSink)
{
    TTree tNew;
    ScanTree(strRoot, tNew, fnSink, &tTree);
    for (const auto& kv : tTree)
        if (!tNew.count(kv.first))
        {
            tDelta.setRemoved.insert(kv.first);
            tDelta.setChanged.erase(kv.first);
        }
    for (const auto& kv : tNew)
    {
        auto it = tTree.find(kv.first);
        if (it == tTree.end() || it->second != kv.second)
        {
            tDelta.setChanged.insert(kv.first);
            tDelta.setRemoved.erase(kv.first);
        }
    }
    tTree.swap(tNew);
}

bool CFolderWatch::Start(const std::string& strRoot)
{
    Stop();
    m_strRoot = strRoot;
    m_bLost = false;
    m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0)
        return false;
    AddTree(std::string());
    return !m_bLost;
}

void CFolderWatch::Stop()
{
    if (m_fd >= 0)
        close(m_fd);
    m_fd = -1;
    m_mapDirs.clear();
}

void CFolderWatch::AddTree(const std::string& strRelative)
{
    const uint32_t nMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM |
                           IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
    const int wd = inotify_add_watch(m_fd, Join(m_strRoot, strRelative).c_str(), nMask);
    if (wd < 0)
    {
        if (errno != ENOENT && errno != ENOTDIR)
            m_bLost = true; // out of watches: fall back to scanning
        return;
    }
    m_mapDirs[wd] = strRelative;
    DIR* pDir = opendir(Join(m_strRoot, strRelative).c_str());
    if (!pDir)
        return;
    std::vector<std::string> astrSubs;
    while (dirent* p = readdir(pDir))
    {
        const std::string strName = p->d_name;
        if (strName == "." || strName == "..")
            continue;
        const std::string strPath = strRelative.empty() ? strName : strRelative + "/" + strName;
        struct stat st;
        if (lstat(Join(m_strRoot, strPath).c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            astrSubs.push_back(strPath);
    }
    closedir(pDir);
    for (const std::string& s : astrSubs)
        AddTree(s);
}

bool CFolderWatch::Collect(std::set<std::string>& setDirty)
{
    setDirty.clear();
    if (m_fd < 0)
        return false;
    alignas(inotify_event) char ach[65536];
    for (;;)
    {
        const ssize_t n = read(m_fd, ach, sizeof(ach));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        for (ssize_t i = 0; i < n;)
        {
            const inotify_event* pEvent = reinterpret_cast<const inotify_event*>(ach + i);
            i += ssize_t(sizeof(inotify_event) + pEvent->len);
            if (pEvent->mask & IN_Q_OVERFLOW)
            {
                m_bLost = true;
                continue;
            }
            auto it = m_mapDirs.find(pEvent->wd);
            if (it == m_mapDirs.end())
                continue;
            const std::string strDir = it->second;
            if (pEvent->mask & IN_IGNORED)
            {
                m_mapDirs.erase(it);
                continue;
            }
            if (pEvent->mask & (IN_DELETE_SELF | IN_MOVE_SELF))
            {
                setDirty.insert(strDir);
                continue;
            }
            if (pEvent->len == 0)
                continue;
            const std::string strName = pEvent->name;
            const std::string strPath = strDir.empty() ? strName : strDir + "/" + strName;
            setDirty.insert(strPath);
            if ((pEvent->mask & IN_ISDIR) && (pEvent->mask & (IN_CREATE | IN_MOVED_TO)))
                AddTree(strPath);
        }
    }
    if (m_bLost)
    {
        m_bLost = false;
        // Watch whatever folders exist now, so that the next change is
        // watched completely again.
        const std::string strRoot = m_strRoot;
        Stop();
        m_strRoot = strRoot;
        m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_fd >= 0)
            AddTree(std::string());
        return false;
    }
    return true;
}

} // namespace IMP
} // namespace ORVANE
