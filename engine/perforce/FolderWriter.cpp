#include "perforce/FolderWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace ORVANE {
namespace IMP {

namespace {

class CFd
{
public:
    explicit CFd(int n = -1) : m_n(n) {}
    ~CFd()
    {
        if (m_n >= 0)
            ::close(m_n);
    }
    CFd(const CFd&) = delete;
    CFd& operator=(const CFd&) = delete;
    int Get() const { return m_n; }
    int Release()
    {
        const int n = m_n;
        m_n = -1;
        return n;
    }
    void Reset(int n)
    {
        if (m_n >= 0)
            ::close(m_n);
        m_n = n;
    }

private:
    int m_n;
};

bool SplitPath(const std::string& strPath, std::vector<std::string>& astrParts)
{
    if (strPath.empty() || strPath[0] == '/')
        return false;
    size_t nStart = 0;
    for (;;)
    {
        const size_t nSlash = strPath.find('/', nStart);
        const std::string strPart = strPath.substr(nStart, nSlash == std::string::npos ? nSlash : nSlash - nStart);
        if (strPart.empty() || strPart == "." || strPart == ".." || strPart.find('\0') != std::string::npos)
            return false;
        astrParts.push_back(strPart);
        if (nSlash == std::string::npos)
            return true;
        nStart = nSlash + 1;
    }
}

std::string Why(const std::string& strWhat, const std::string& strPath, int nErrno)
{
    return strWhat + " '" + strPath + "': " + std::strerror(nErrno);
}

// The process's umask, read without changing it (other threads make
// files and start programs meanwhile); asked once.
mode_t ProcessUmask()
{
    static const mode_t s_nMask = []() {
        std::ifstream cStatus("/proc/self/status");
        std::string strLine;
        while (std::getline(cStatus, strLine))
            if (strLine.compare(0, 6, "Umask:") == 0)
                return mode_t(std::strtoul(strLine.c_str() + 6, nullptr, 8));
        const mode_t nMask = ::umask(022);
        ::umask(nMask);
        return nMask;
    }();
    return s_nMask;
}

// A name for a file being made next to its final name.
std::string TemporaryName(const std::string& strLeaf)
{
    static unsigned s_n = 0;
    return "." + strLeaf.substr(0, 64) + ".fetched-" + std::to_string(::getpid()) + "-" + std::to_string(++s_n);
}

} // namespace

int CFolderWriter::OpenParent(const std::string& strPath, bool bMake, std::string& strLeaf, std::string& strError) const
{
    std::vector<std::string> astrParts;
    if (!SplitPath(strPath, astrParts))
    {
        strError = "the server named the path '" + strPath + "', which does not stay inside the folder";
        return -1;
    }
    CFd cDir(::open(m_strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (cDir.Get() < 0)
    {
        strError = Why("cannot open", m_strFolder, errno);
        return -1;
    }
    std::string strSoFar;
    for (size_t i = 0; i + 1 < astrParts.size(); ++i)
    {
        const std::string& strPart = astrParts[i];
        strSoFar += (strSoFar.empty() ? "" : "/") + strPart;
        int nNext = ::openat(cDir.Get(), strPart.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (nNext < 0 && errno == ENOENT && bMake)
        {
            if (::mkdirat(cDir.Get(), strPart.c_str(), 0777) != 0 && errno != EEXIST)
            {
                strError = Why("cannot make the folder", strSoFar, errno);
                return -1;
            }
            nNext = ::openat(cDir.Get(), strPart.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        }
        if (nNext < 0)
        {
            const int nErrno = errno;
            struct stat tStat;
            if (nErrno == ENOENT && !bMake)
                return -1; // nothing there: strError stays empty
            if (::fstatat(cDir.Get(), strPart.c_str(), &tStat, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(tStat.st_mode))
                strError = "'" + strSoFar + "' is a symbolic link: nothing is written through it";
            else
                strError = Why("cannot open the folder", strSoFar, nErrno);
            return -1;
        }
        cDir.Reset(nNext);
    }
    strLeaf = astrParts.back();
    return cDir.Release();
}

std::string CFolderWriter::PutFile(const std::string& strPath, int nSourceDir, const std::string& strSource,
                                   mode_t nMode) const
{
    std::string strLeaf, strError;
    CFd cDir(OpenParent(strPath, true, strLeaf, strError));
    if (cDir.Get() < 0)
        return strError;
    const mode_t nMask = ProcessUmask();
    if (::fchmodat(nSourceDir, strSource.c_str(), nMode & ~nMask, 0) != 0)
        return Why("cannot set the mode of", strPath, errno);
    if (::renameat(nSourceDir, strSource.c_str(), cDir.Get(), strLeaf.c_str()) != 0)
        return Why("cannot write", strPath, errno);
    return std::string();
}

std::string CFolderWriter::PutContent(const std::string& strPath, const std::string& strContent, mode_t nMode) const
{
    std::string strLeaf, strError;
    CFd cDir(OpenParent(strPath, true, strLeaf, strError));
    if (cDir.Get() < 0)
        return strError;
    const mode_t nMask = ProcessUmask();
    struct stat tStat;
    CFd cFile;
    bool bNew = false;
    if (::fstatat(cDir.Get(), strLeaf.c_str(), &tStat, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(tStat.st_mode))
    {
        // A file of an earlier change (read-only, as sync leaves it): the
        // same file takes the new content, which spares the file system a
        // file made and one removed for each revision. It is written over
        // and then cut to its size: emptied first, the file system would
        // write it out at once when it is closed.
        cFile.Reset(::openat(cDir.Get(), strLeaf.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
        if (cFile.Get() < 0 && errno == EACCES)
        {
            // The workspace is this run's own: nothing replaces the file
            // with a link in the meantime.
            if (::fchmodat(cDir.Get(), strLeaf.c_str(), 0600, 0) != 0)
                return Why("cannot write", strPath, errno);
            cFile.Reset(::openat(cDir.Get(), strLeaf.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
        }
    }
    else
    {
        if (::unlinkat(cDir.Get(), strLeaf.c_str(), 0) != 0 && errno != ENOENT)
            return Why("cannot write", strPath, errno);
        cFile.Reset(::openat(cDir.Get(), strLeaf.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        bNew = true;
    }
    if (cFile.Get() < 0)
        return Why("cannot write", strPath, errno);
    // A new file that could not be written whole is not left behind.
    auto fnFailed = [&](const char* pszWhat) {
        const std::string strWhy = Why(pszWhat, strPath, errno);
        if (bNew)
            ::unlinkat(cDir.Get(), strLeaf.c_str(), 0);
        return strWhy;
    };
    const char* p = strContent.data();
    size_t n = strContent.size();
    while (n > 0)
    {
        const ssize_t nWritten = ::write(cFile.Get(), p, n);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten <= 0)
            return fnFailed("cannot write");
        p += nWritten;
        n -= size_t(nWritten);
    }
    if (::ftruncate(cFile.Get(), off_t(strContent.size())) != 0)
        return fnFailed("cannot write");
    if (::fchmod(cFile.Get(), nMode & ~nMask) != 0)
        return fnFailed("cannot set the mode of");
    return std::string();
}

std::string CFolderWriter::PutLink(const std::string& strPath, const std::string& strTarget) const
{
    std::string strLeaf, strError;
    CFd cDir(OpenParent(strPath, true, strLeaf, strError));
    if (cDir.Get() < 0)
        return strError;
    const std::string strTemp = TemporaryName(strLeaf);
    if (::symlinkat(strTarget.c_str(), cDir.Get(), strTemp.c_str()) != 0)
        return Why("cannot make the link", strPath, errno);
    if (::renameat(cDir.Get(), strTemp.c_str(), cDir.Get(), strLeaf.c_str()) != 0)
    {
        const int nErrno = errno;
        ::unlinkat(cDir.Get(), strTemp.c_str(), 0);
        return Why("cannot write", strPath, nErrno);
    }
    return std::string();
}

std::string CFolderWriter::Remove(const std::string& strPath) const
{
    std::string strLeaf, strError;
    CFd cDir(OpenParent(strPath, false, strLeaf, strError));
    if (cDir.Get() < 0)
        return strError;
    if (::unlinkat(cDir.Get(), strLeaf.c_str(), 0) != 0 && errno != ENOENT)
        return Why("cannot remove", strPath, errno);
    return std::string();
}

} // namespace IMP
} // namespace ORVANE
