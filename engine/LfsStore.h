// The Git LFS store of a bare repository, GITDIR/lfs/objects, filled while
// the import reads the files: each large file is read in pieces through
// SHA-256 into a temporary file, which is renamed into place (an object
// that is there already stays as it is).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Lfs.h"
#include "Tree.h"

namespace ORVANE {
namespace IMP {

class CLfsStore : public CContentFilter
{
public:
    // bWrite false: the files are only hashed (what a check needs), and what
    // was read is kept for Objects().
    CLfsStore(const CLfsRules& cRules, const std::string& strGitDir, bool bWrite);
    CLfsStore(const CLfsStore&) = delete;
    CLfsStore& operator=(const CLfsStore&) = delete;

    // Makes the store's folders and removes the temporary files of a run
    // that was killed (the caller holds the repository). False with the
    // reason.
    bool Prepare(std::string& strError);

    bool Takes(const std::string& strPath, uint64_t nSize) const override;
    bool Read(const std::string& strPath, int fd, uint64_t nSize, std::string& strText) override;
    // Why the first file that could not be read or stored failed ("" when
    // none did).
    const std::string& Error() const { return m_strError; }

    // A file read without writing: its path, SHA-256 and size.
    struct TObject
    {
        std::string strPath;
        std::string strOid;
        uint64_t nSize;
    };
    // What was read since the last call, and forgets it.
    std::vector<TObject> TakeObjects();
    // Whether the store holds an object of this oid and size.
    bool Holds(const std::string& strOid, uint64_t nSize) const;

private:
    bool Fail(const std::string& strMessage);
    // Moves the temporary file to the object's place, unless it is there.
    bool Place(const std::string& strTemp, const std::string& strOid, uint64_t nSize);

    const CLfsRules& m_cRules;
    const std::string m_strGitDir;
    const bool m_bWrite;
    mode_t m_nMode = 0644; // of the objects
    std::string m_strError;
    std::vector<char> m_achBuffer;
    std::vector<TObject> m_atObjects;
};

} // namespace IMP
} // namespace ORVANE
