#include "LfsStore.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Digest.h"

namespace ORVANE {
namespace IMP {

namespace {

// How much of a file is read at a time.
const size_t s_nPieceBytes = 1 << 20;
// The temporary files of this program in GITDIR/lfs/tmp.
const char* const s_pszTempPrefix = "orvane-import-";

std::string Errno()
{
    return std::strerror(errno);
}

bool MakeFolder(const std::string& strPath)
{
    return ::mkdir(strPath.c_str(), 0777) == 0 || errno == EEXIST;
}

bool WriteAll(int fd, const char* p, size_t n)
{
    while (n)
    {
        const ssize_t r = ::write(fd, p, n);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        p += r;
        n -= size_t(r);
    }
    return true;
}

// Makes a rename in the folder last through a crash of the machine.
void SyncFolder(const std::string& strFolder)
{
    const int fd = ::open(strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0)
    {
        ::fsync(fd);
        ::close(fd);
    }
}

// A temporary file that goes unless it was moved away.
class CTempFile
{
public:
    CTempFile() = default;
    CTempFile(const CTempFile&) = delete;
    CTempFile& operator=(const CTempFile&) = delete;
    ~CTempFile()
    {
        Close();
        if (!m_strPath.empty())
            ::unlink(m_strPath.c_str());
    }
    bool Open(const std::string& strFolder)
    {
        std::string strTemplate = strFolder + "/" + s_pszTempPrefix + "XXXXXX";
        m_fd = ::mkostemp(&strTemplate[0], O_CLOEXEC);
        if (m_fd >= 0)
            m_strPath = strTemplate;
        return m_fd >= 0;
    }
    int Fd() const { return m_fd; }
    const std::string& Path() const { return m_strPath; }
    bool Close()
    {
        const bool b = m_fd < 0 || ::close(m_fd) == 0;
        m_fd = -1;
        return b;
    }
    // It was renamed: nothing to remove.
    void Moved() { m_strPath.clear(); }

private:
    int m_fd = -1;
    std::string m_strPath;
};

} // namespace

CLfsStore::CLfsStore(const CLfsRules& cRules, const std::string& strGitDir, bool bWrite)
    : m_cRules(cRules), m_strGitDir(strGitDir), m_bWrite(bWrite)
{
}

bool CLfsStore::Prepare(std::string& strError)
{
    const std::string strLfs = m_strGitDir + "/lfs";
    for (const std::string& strFolder : {strLfs, strLfs + "/objects", strLfs + "/tmp"})
        if (!MakeFolder(strFolder))
        {
            strError = "cannot make the Git LFS folder " + strFolder + ": " + Errno();
            return false;
        }
    // Objects are as readable as the repository's other files.
    const mode_t nMask = ::umask(0);
    ::umask(nMask);
    m_nMode = 0666 & ~nMask;
    if (DIR* pDir = ::opendir((strLfs + "/tmp").c_str()))
    {
        while (const dirent* p = ::readdir(pDir))
            if (std::strncmp(p->d_name, s_pszTempPrefix, std::strlen(s_pszTempPrefix)) == 0)
                ::unlinkat(::dirfd(pDir), p->d_name, 0);
        ::closedir(pDir);
    }
    return true;
}

bool CLfsStore::Takes(const std::string& strPath, uint64_t nSize) const
{
    return m_cRules.Takes(strPath, nSize);
}

bool CLfsStore::Fail(const std::string& strMessage)
{
    if (m_strError.empty())
        m_strError = strMessage;
    return false;
}

bool CLfsStore::Read(const std::string& strPath, int fd, uint64_t nSize, std::string& strText)
{
    CTempFile cTemp;
    if (m_bWrite && !cTemp.Open(m_strGitDir + "/lfs/tmp"))
        return Fail("cannot store '" + strPath + "' in Git LFS: cannot make a file in " + m_strGitDir +
                    "/lfs/tmp: " + Errno());
    m_achBuffer.resize(s_nPieceBytes);
    CSha256 cHash;
    uint64_t nDone = 0;
    while (nDone < nSize)
    {
        const ssize_t r = ::read(fd, m_achBuffer.data(), size_t(std::min<uint64_t>(s_nPieceBytes, nSize - nDone)));
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return Fail("cannot read '" + strPath + "' for Git LFS: " + Errno());
        if (r == 0)
            break;
        cHash.Update(m_achBuffer.data(), size_t(r));
        if (m_bWrite && !WriteAll(cTemp.Fd(), m_achBuffer.data(), size_t(r)))
            return Fail("cannot store '" + strPath + "' in Git LFS: " + Errno());
        nDone += uint64_t(r);
    }
    const std::string strOid = cHash.HexDigest();
    if (m_bWrite)
    {
        // The content is on the disk before its name is.
        if (::fchmod(cTemp.Fd(), m_nMode) != 0 || ::fsync(cTemp.Fd()) != 0 || !cTemp.Close())
            return Fail("cannot store '" + strPath + "' in Git LFS: " + Errno());
        if (nDone && !Place(cTemp.Path(), strOid, nDone))
            return Fail("cannot store '" + strPath + "' in Git LFS as " + LfsObjectPath(m_strGitDir, strOid) + ": " +
                        Errno());
        if (nDone)
            cTemp.Moved();
    }
    else
        m_atObjects.push_back(TObject{strPath, strOid, nDone});
    strText = LfsPointer(strOid, nDone);
    return true;
}

bool CLfsStore::Place(const std::string& strTemp, const std::string& strOid, uint64_t nSize)
{
    const std::string strObjects = m_strGitDir + "/lfs/objects/";
    const std::string strOuter = strObjects + strOid.substr(0, 2);
    const std::string strInner = strOuter + "/" + strOid.substr(2, 2);
    if (!MakeFolder(strOuter) || !MakeFolder(strInner))
        return false;
    if (Holds(strOid, nSize))
    {
        // Stored once: the object that is there stays.
        ::unlink(strTemp.c_str());
        return true;
    }
    if (::rename(strTemp.c_str(), LfsObjectPath(m_strGitDir, strOid).c_str()) != 0)
        return false;
    SyncFolder(strInner);
    return true;
}

bool CLfsStore::Holds(const std::string& strOid, uint64_t nSize) const
{
    struct stat st;
    return ::stat(LfsObjectPath(m_strGitDir, strOid).c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           uint64_t(st.st_size) == nSize;
}

std::vector<CLfsStore::TObject> CLfsStore::TakeObjects()
{
    std::vector<TObject> at;
    at.swap(m_atObjects);
    return at;
}

} // namespace IMP
} // namespace ORVANE
