// A private folder for one test, in $TMPDIR (or /tmp), removed with
// everything in it when the object goes.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace TEST {

class CScratchFolder
{
public:
    // The folder's name starts with the prefix; an empty path when it could
    // not be made.
    explicit CScratchFolder(const std::string& strPrefix = "orvane-test");
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;
    ~CScratchFolder();

    const std::string& Path() const { return m_strPath; }
    // The path of an entry of the folder.
    std::string File(const std::string& strName) const { return m_strPath + "/" + strName; }
    // The names in the folder, sorted.
    std::vector<std::string> List() const;
    // Keeps the folder when the object goes.
    void Keep() { m_bKeep = true; }

private:
    std::string m_strPath;
    bool m_bKeep = false;
};

// The folder for temporary files: $TMPDIR when it is set, otherwise /tmp.
std::string TemporaryFolder();

// Removes a file or a folder with everything in it, making read-only
// folders writable first. Symbolic links are removed, never followed.
void RemoveTree(const std::string& strPath);

} // namespace TEST
} // namespace ORVANE
