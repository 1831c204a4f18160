// Carrying out a sync under the client's root: writing, updating and
// removing files, and keeping the have list.
#include "Sync.h"

#include "FileSystem.h"
#include "FileTypes.h"
#include "Text.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace ORVANE {
namespace P4SIM {

namespace {

// A writable plain file; a symbolic link is never one (its own mode means
// nothing), so a sync replaces it without clobber.
bool Writable(const std::string& strPath)
{
    struct stat tStat;
    if (lstat(strPath.c_str(), &tStat) != 0 || S_ISLNK(tStat.st_mode))
        return false;
    return (tStat.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
}

std::string WriteAllTo(int nFd, const std::string& strData, const std::string& strPath)
{
    size_t nDone = 0;
    while (nDone < strData.size())
    {
        ssize_t nWritten = write(nFd, strData.data() + nDone, strData.size() - nDone);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten < 0)
            return "write: " + strPath + ": " + std::strerror(errno);
        nDone += size_t(nWritten);
    }
    return "";
}

void SetModTime(const std::string& strPath, long long nModTime)
{
    struct timeval atTimes[2];
    atTimes[0].tv_sec = time_t(nModTime);
    atTimes[0].tv_usec = 0;
    atTimes[1] = atTimes[0];
    utimes(strPath.c_str(), atTimes);
}

// Writes a new file through a temporary name and a rename, so that a reader
// never sees half a file. Returns an error text or "".
std::string WriteNew(const std::string& strPath, const std::string& strData, mode_t nMode, long long nModTime)
{
    std::string strTemp = strPath + ".p4sim-tmp";
    int nFd = open(strTemp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (nFd < 0)
        return "open for write: " + strTemp + ": " + std::strerror(errno);
    std::string strError = WriteAllTo(nFd, strData, strTemp);
    fchmod(nFd, nMode);
    close(nFd);
    if (strError.empty() && nModTime > 0)
        SetModTime(strTemp, nModTime);
    if (strError.empty() && rename(strTemp.c_str(), strPath.c_str()) != 0)
        strError = "rename: " + strPath + ": " + std::strerror(errno);
    if (!strError.empty())
        unlink(strTemp.c_str());
    return strError;
}

// Rewrites an existing plain file in place: the same content, mode and time
// as a new file, without the file system work of a new inode for every
// update and of a rename over the old file (on ext4 both cost more than
// the write itself). The length is cut only after the new bytes are in, and
// never to nothing first. False when the file cannot be opened so; the
// caller then writes a new one.
bool RewriteInPlace(const std::string& strPath, const struct stat& tOld, const std::string& strData, mode_t nMode,
                    long long nModTime, std::string& strError)
{
    int nFd = open(strPath.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (nFd < 0 && errno == EACCES && chmod(strPath.c_str(), (tOld.st_mode & 07777) | S_IWUSR) == 0)
        nFd = open(strPath.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (nFd < 0)
        return false;
    strError = WriteAllTo(nFd, strData, strPath);
    if (strError.empty() && off_t(strData.size()) < tOld.st_size && ftruncate(nFd, off_t(strData.size())) != 0)
        strError = "truncate: " + strPath + ": " + std::strerror(errno);
    fchmod(nFd, nMode);
    close(nFd);
    if (strError.empty() && nModTime > 0)
        SetModTime(strPath, nModTime);
    return true;
}

// Writes the file's new content; an error text or "".
std::string WriteLocal(const std::string& strPath, const std::string& strData, mode_t nMode, long long nModTime)
{
    struct stat tOld;
    if (lstat(strPath.c_str(), &tOld) == 0 && S_ISREG(tOld.st_mode) && tOld.st_nlink == 1)
    {
        std::string strError;
        if (RewriteInPlace(strPath, tOld, strData, nMode, nModTime, strError))
            return strError;
    }
    try
    {
        MakeDirs(DirName(strPath));
    }
    catch (const std::exception& e)
    {
        return e.what();
    }
    return WriteNew(strPath, strData, nMode, nModTime);
}

void RemoveEmptyDirs(std::string strDir, const std::string& strRoot)
{
    std::string strTop = NormalizePath(strRoot);
    while (strDir.size() > strTop.size() && StartsWith(strDir, strTop + "/"))
    {
        if (rmdir(strDir.c_str()) != 0)
            break;
        strDir = DirName(strDir);
    }
}

// A writable file may hold the user's work: without clobber (or -f) it
// stays.
bool MayReplace(const TSyncSettings& tSettings, const std::string& strLocal)
{
    return tSettings.bForce || tSettings.bClobber || !Writable(strLocal);
}

// Removes the local file of a deletion; an error text or "".
std::string RemoveLocal(const TClientView& tView, const TSyncSettings& tSettings, const TSyncAction& tAction)
{
    if (!MayReplace(tSettings, tAction.strLocal))
        return "Can't clobber writable file " + tAction.strLocal;
    if (unlink(tAction.strLocal.c_str()) != 0 && errno != ENOENT)
        return "unlink: " + tAction.strLocal + ": " + std::strerror(errno);
    if (tSettings.bRmDir)
        RemoveEmptyDirs(DirName(tAction.strLocal), tView.tSpec.strRoot);
    return "";
}

// Makes the local file a symbolic link to strTarget, in place of whatever
// file or link is there; an error text or "".
std::string PutSymlink(const std::string& strPath, const std::string& strTarget)
{
    try
    {
        MakeDirs(DirName(strPath));
    }
    catch (const std::exception& e)
    {
        return e.what();
    }
    std::string strTemp = strPath + ".p4sim-tmp";
    unlink(strTemp.c_str());
    if (symlink(strTarget.c_str(), strTemp.c_str()) != 0)
        return "symlink: " + strPath + ": " + std::strerror(errno);
    if (rename(strTemp.c_str(), strPath.c_str()) != 0)
    {
        std::string strError = "rename: " + strPath + ": " + std::strerror(errno);
        unlink(strTemp.c_str());
        return strError;
    }
    return "";
}

// Writes the target revision to the local file; an error text or "".
std::string PutLocal(TContext& tContext, const TSyncSettings& tSettings, const TSyncAction& tAction)
{
    if (!MayReplace(tSettings, tAction.strLocal))
        return "Can't clobber writable file " + tAction.strLocal;
    const TRevRec& tRev = tAction.tTarget;
    const TFileType tType = ParseFileType(tRev.strType);
    if (tType.IsSymlink())
    {
        // The content is the link's target; a final line end is not part
        // of it.
        std::string strTarget = tContext.pStore->Content(tRev.strDigest);
        if (!strTarget.empty() && strTarget.back() == '\n')
            strTarget.pop_back();
        return PutSymlink(tAction.strLocal, strTarget);
    }
    std::string strData = ClientContent(tContext, tRev, true, tSettings.strLineEnd);
    mode_t nUmask = umask(0);
    umask(nUmask);
    mode_t nMode = tSettings.bAllWrite || tType.bWritable ? 0666 : 0444;
    if (tType.bExecutable)
        nMode |= 0111;
    const bool bModTime = tSettings.bModTime || tType.bModTime;
    return WriteLocal(tAction.strLocal, strData, nMode & ~nUmask, bModTime ? tRev.nModTime : 0);
}

// The first folder of the local path below the client root that is a
// symbolic link ("" when there is none): a file of the depot written through
// it would land outside the workspace (a link "lib" to /etc, then a file
// "lib/passwd").
std::string LinkOnTheWay(const std::string& strRoot, const std::string& strLocal)
{
    const std::string strPrefix = strRoot.empty() || strRoot.back() == '/' ? strRoot : strRoot + "/";
    if (strLocal.compare(0, strPrefix.size(), strPrefix) != 0)
        return std::string();
    for (size_t nSlash = strLocal.find('/', strPrefix.size()); nSlash != std::string::npos;
         nSlash = strLocal.find('/', nSlash + 1))
    {
        const std::string strFolder = strLocal.substr(0, nSlash);
        struct stat tStat;
        if (lstat(strFolder.c_str(), &tStat) != 0)
            return std::string();
        if (S_ISLNK(tStat.st_mode))
            return strFolder;
    }
    return std::string();
}

// Does one action on disk and in the have list; false (after its error
// message) when it failed.
bool Carry(TContext& tContext, const TClientView& tView, const TSyncSettings& tSettings, const TSyncAction& tAction,
           std::vector<THaveRec>& atChanged)
{
    bool bDelete = tAction.eKind == eSyncDelete;
    if (!tSettings.bKeep)
    {
        const std::string strLink = LinkOnTheWay(tView.tSpec.strRoot, tAction.strLocal);
        std::string strError = !strLink.empty()
                                   ? tAction.strLocal + ": cannot be written through the symbolic link " + strLink
                               : bDelete ? RemoveLocal(tView, tSettings, tAction)
                                         : PutLocal(tContext, tSettings, tAction);
        if (!strError.empty())
        {
            tContext.pOutput->Message(strError, eSeverityFailed, eGenericClient);
            return false;
        }
    }
    if (tSettings.bNoHave)
        return true;
    THaveRec tHave{tAction.strClientFile, tAction.strDepotFile, tAction.tTarget.nRev};
    if (bDelete)
        tContext.pStore->DeleteHave(tView.tSpec.strName, tAction.strClientFile);
    else
        tContext.pStore->PutHave(tView.tSpec.strName, tHave);
    atChanged.push_back(tHave);
    return true;
}

const char* ActionWord(TSyncKind eKind)
{
    switch (eKind)
    {
    case eSyncAdd:
        return "added";
    case eSyncUpdate:
        return "updated";
    case eSyncRefresh:
        return "refreshed";
    case eSyncDelete:
        break;
    }
    return "deleted";
}

const char* ActionPhrase(TSyncKind eKind)
{
    switch (eKind)
    {
    case eSyncAdd:
        return " - added as ";
    case eSyncUpdate:
        return " - updating ";
    case eSyncRefresh:
        return " - refreshing ";
    case eSyncDelete:
        break;
    }
    return " - deleted as ";
}

} // namespace

bool ApplySyncPlan(TContext& tContext, const TClientView& tView, const TSyncSettings& tSettings,
                   const std::vector<TSyncAction>& atActions, long long nSyncChange, std::vector<THaveRec>& atChanged)
{
    long long nTotalSize = 0;
    for (const TSyncAction& tAction : atActions)
    {
        if (tAction.eKind != eSyncDelete)
            nTotalSize += tAction.tTarget.nSize;
    }
    bool bAllDone = true, bFirst = true;
    for (const TSyncAction& tAction : atActions)
    {
        if (!tSettings.bPreview && !Carry(tContext, tView, tSettings, tAction, atChanged))
        {
            bAllDone = false;
            continue;
        }
        std::string strRev = tAction.bTargetKnown ? Num(tAction.tTarget.nRev) : "none";
        TRecord aRecord = {{"depotFile", tAction.strDepotFile},
                           {"clientFile", tAction.strLocal},
                           {"rev", strRev},
                           {"action", ActionWord(tAction.eKind)}};
        if (tAction.eKind != eSyncDelete)
            aRecord.push_back({"fileSize", Num(tAction.tTarget.nSize)});
        if (bFirst)
        {
            aRecord.push_back({"totalFileSize", Num(nTotalSize)});
            aRecord.push_back({"totalFileCount", Num(static_cast<long long>(atActions.size()))});
            aRecord.push_back({"change", Num(nSyncChange)});
            bFirst = false;
        }
        if (!tSettings.bQuiet)
        {
            tContext.pOutput->Stat(aRecord, tAction.strDepotFile + "#" + strRev + ActionPhrase(tAction.eKind) +
                                                tAction.strLocal + "\n");
        }
    }
    return bAllDone;
}

} // namespace P4SIM
} // namespace ORVANE
