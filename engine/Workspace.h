// The folder under which each stream's files are synced, and what of it
// is removed at the end.
#pragma once

#include <string>
#include <thread>
#include <vector>

namespace ORVANE {
namespace IMP {

class CWorkspace
{
public:
    CWorkspace() = default;
    CWorkspace(const CWorkspace&) = delete;
    CWorkspace& operator=(const CWorkspace&) = delete;
    // Waits for a removal that was started.
    ~CWorkspace();

    // A new folder below $TMPDIR (or /tmp), named after this process, when
    // strGiven is empty; else the
    // given folder, made absolute and created when missing. Throws EStop
    // when it cannot be made.
    void Make(const std::string& strGiven);
    // Creates a folder below the workspace when it is missing, or empties
    // the one that is there, and remembers it. Throws EStop when it cannot
    // be made.
    void MakeFolder(const std::string& strFolder);
    // Removes what this run made: the whole workspace when it made it,
    // else the folders MakeFolder made. Waits for a removal that was
    // started first.
    void Remove();
    // Starts that removal on a thread of its own, once nothing is synced or
    // read any more, so that the run's last steps (git writing its pack,
    // the client's removal) need not wait for thousands of files to go.
    // Nothing may be made in the workspace after it.
    void StartRemoval();

    const std::string& Path() const { return m_strPath; }
    // The workspace folder itself was made by this run.
    bool Made() const { return m_bMade; }

private:
    // The folders Remove removes.
    std::vector<std::string> MadeByThisRun() const;
    void WaitForRemoval();

    std::string m_strPath;
    bool m_bMade = false;
    std::vector<std::string> m_astrMadeFolders;
    std::thread m_cRemoval;
};

// Where temporary workspaces are made: $TMPDIR, else /tmp.
std::string TemporaryFolder();

// Removes the temporary workspaces below the folder whose run is gone (a
// run killed outright): folders "orvane-import-PID-XXXXXX" of this user
// whose process is no more. Returns the paths removed.
std::vector<std::string> RemoveStaleWorkspaces(const std::string& strFolder);

// Makes the folder and every missing folder above it; false with errno set
// when one cannot be made. Something other than a folder in the way of the
// last one is no failure here.
bool MakeFolders(const std::string& strPath);

} // namespace IMP
} // namespace ORVANE
