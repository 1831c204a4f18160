// Writes files into a stream's folder the way a sync does, and never
// anywhere else: a path with an empty, "." or ".." part, or one that passes
// through a symbolic link, is refused, whatever the server sent.
#pragma once

#include <sys/types.h>

#include <string>

namespace ORVANE {
namespace IMP {

class CFolderWriter
{
public:
    // The folder (an absolute path) must exist.
    explicit CFolderWriter(const std::string& strFolder) : m_strFolder(strFolder) {}

    // Moves the file nSourceDir/strSource (a folder on the same file
    // system) to the relative path, in place of a file or link that is
    // there, with the mode given (the process's umask applied). Missing
    // folders on the way are made. "" or why it was not done.
    std::string PutFile(const std::string& strPath, int nSourceDir, const std::string& strSource, mode_t nMode) const;
    // Writes the content to the relative path with the mode given (the
    // umask applied): a file that is there is written again in place, a
    // link or nothing there makes way for a new file.
    std::string PutContent(const std::string& strPath, const std::string& strContent, mode_t nMode) const;
    // Makes the relative path a symbolic link to the target.
    std::string PutLink(const std::string& strPath, const std::string& strTarget) const;
    // Removes the file or link at the relative path; nothing there is no
    // failure.
    std::string Remove(const std::string& strPath) const;

private:
    // Opens the folder that holds the relative path, making missing ones
    // when bMake; its descriptor (-1 with strError set, or with strError
    // empty when it is missing and not made) and the path's last part.
    int OpenParent(const std::string& strPath, bool bMake, std::string& strLeaf, std::string& strError) const;

    std::string m_strFolder;
};

} // namespace IMP
} // namespace ORVANE
