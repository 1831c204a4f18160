// Finds what changed below a folder, through inotify.
#pragma once

#include <sys/inotify.h>

#include <map>
#include <set>
#include <string>

namespace ORVANE {
namespace IMP {

// Watches a folder and all folders below it, folders created later
// included, and reports the paths that something touched.
class CFolderWatch
{
public:
    CFolderWatch() = default;
    CFolderWatch(const CFolderWatch&) = delete;
    CFolderWatch& operator=(const CFolderWatch&) = delete;
    ~CFolderWatch();

    // False when inotify cannot be used: then every collection is a full
    // scan. A watch can be started again, on another folder.
    bool Start(const std::string& strRoot);
    void Stop();
    // The paths touched since the last call. False when events were lost
    // (queue overflow, or no watch at all): the caller must scan the whole
    // folder.
    bool Collect(std::set<std::string>& setDirty);

private:
    void AddTree(const std::string& strRelative);
    // Reads every event queued, each through Take.
    void ReadQueue(std::set<std::string>& setDirty);
    // One event: the path it names goes into the set; a new folder is
    // watched too.
    void Take(const inotify_event& tEvent, std::set<std::string>& setDirty);

    int m_fd = -1;            // the inotify instance, for the watch's life
    bool m_bWatching = false; // started and not stopped
    std::string m_strRoot;
    std::map<int, std::string> m_mapDirs;
    bool m_bLost = false;
};

} // namespace IMP
} // namespace ORVANE
