#include "FolderWatch.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace ORVANE {
namespace IMP {

namespace {

std::string Join(const std::string& strRoot, const std::string& strRelative)
{
    return strRelative.empty() ? strRoot : strRoot + "/" + strRelative;
}

} // namespace

CFolderWatch::~CFolderWatch()
{
    if (m_fd >= 0)
        close(m_fd);
}

bool CFolderWatch::Start(const std::string& strRoot)
{
    Stop();
    m_strRoot = strRoot;
    m_bLost = false;
    if (m_fd < 0)
        m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0)
        return false;
    // What the watches of an earlier start left in the queue goes: with no
    // folder watched, each of its events names nothing known.
    std::set<std::string> setLeftOver;
    ReadQueue(setLeftOver);
    m_bLost = false;
    m_bWatching = true;
    AddTree(std::string());
    return !m_bLost;
}

void CFolderWatch::Stop()
{
    // The instance stays for the next start: closing one waits for the
    // kernel to let go of its watches, several milliseconds each time.
    // Events of the watches removed here name descriptors no longer known
    // and are passed over.
    for (const auto& kv : m_mapDirs)
        inotify_rm_watch(m_fd, kv.first);
    m_mapDirs.clear();
    m_bWatching = false;
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
        const char* pszName = p->d_name;
        if (std::strcmp(pszName, ".") == 0 || std::strcmp(pszName, "..") == 0)
            continue;
        // The listing says which entries are folders; only a file system
        // that does not say needs a look at each.
        bool bFolder = p->d_type == DT_DIR;
        if (p->d_type == DT_UNKNOWN)
        {
            struct stat st;
            bFolder = fstatat(dirfd(pDir), pszName, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        }
        if (bFolder)
            astrSubs.push_back(strRelative.empty() ? std::string(pszName) : strRelative + "/" + pszName);
    }
    closedir(pDir);
    for (const std::string& s : astrSubs)
        AddTree(s);
}

void CFolderWatch::Take(const inotify_event& tEvent, std::set<std::string>& setDirty)
{
    if (tEvent.mask & IN_Q_OVERFLOW)
    {
        m_bLost = true;
        return;
    }
    auto it = m_mapDirs.find(tEvent.wd);
    if (it == m_mapDirs.end())
        return;
    const std::string& strDir = it->second;
    if (tEvent.mask & IN_IGNORED)
    {
        m_mapDirs.erase(it);
        return;
    }
    if (tEvent.mask & (IN_DELETE_SELF | IN_MOVE_SELF))
    {
        setDirty.insert(strDir);
        return;
    }
    if (tEvent.len == 0)
        return;
    // A written file brings several events: each path is put together in
    // place and moved into the set, without copies.
    const size_t nName = std::strlen(tEvent.name);
    std::string strPath;
    strPath.reserve(strDir.size() + 1 + nName);
    if (!strDir.empty())
        strPath.append(strDir).push_back('/');
    strPath.append(tEvent.name, nName);
    const auto itDirty = setDirty.insert(std::move(strPath)).first;
    if ((tEvent.mask & IN_ISDIR) && (tEvent.mask & (IN_CREATE | IN_MOVED_TO)))
        AddTree(*itDirty);
}

void CFolderWatch::ReadQueue(std::set<std::string>& setDirty)
{
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
            Take(*pEvent, setDirty);
        }
    }
}

bool CFolderWatch::Collect(std::set<std::string>& setDirty)
{
    setDirty.clear();
    if (!m_bWatching)
        return false;
    ReadQueue(setDirty);
    if (!m_bLost)
        return true;
    m_bLost = false;
    // Watch whatever folders exist now, so that the next change is watched
    // completely again.
    Stop();
    m_bWatching = true;
    AddTree(std::string());
    return false;
}

} // namespace IMP
} // namespace ORVANE
