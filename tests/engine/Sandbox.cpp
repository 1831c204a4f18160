// engine_sandbox: runs a program with file systems of its own, for tests of
// faults that need them (a full disk, a folder nobody may write, a staging
// name taken in advance). Unprivileged: a user namespace (the caller's user
// and group mapped to themselves) with a mount namespace, and on request a
// PID namespace in which the program is process 1, so that its first child
// is process 2.
//
//     engine_sandbox [--tmpfs DIR KB | --bind FROM TO | --readonly DIR | --mkdir DIR]...
//                    [--pid] [--list-after DIR FILE] -- PROGRAM [ARGS...]
//
// The mounts are made in the order given (a folder made with --mkdir in a
// tmpfs mounted before it, say). --list-after writes the names in DIR, one
// a line, into FILE once the program has ended: what it left in a file
// system that goes with the sandbox.
//
// Exit status: the program's (128 + N for signal N), 125 when the sandbox
// cannot be made here (the reason on standard error), 127 when the program
// cannot be run.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const int s_nCannot = 125;

struct TMount
{
    enum TKind
    {
        eTmpfs,
        eBind,
        eReadOnly,
        eFolder
    } eKind;
    std::string strFrom;
    std::string strTo;
    std::string strKb;
};

int Cannot(const std::string& strWhat)
{
    std::fprintf(stderr, "engine_sandbox: cannot %s: %s\n", strWhat.c_str(), std::strerror(errno));
    return s_nCannot;
}

bool WriteFile(const std::string& strPath, const std::string& strText)
{
    const int fd = ::open(strPath.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool bOk = ::write(fd, strText.data(), strText.size()) == static_cast<ssize_t>(strText.size());
    ::close(fd);
    return bOk;
}

int MakeMounts(const std::vector<TMount>& atMounts)
{
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return Cannot("make the mounts private");
    for (const TMount& t : atMounts)
    {
        if (t.eKind == TMount::eTmpfs)
        {
            const std::string strOptions = "size=" + t.strKb + "k,mode=0755";
            if (::mount("sandbox", t.strTo.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, strOptions.c_str()) != 0)
                return Cannot("mount a tmpfs on " + t.strTo);
        }
        else if (t.eKind == TMount::eBind)
        {
            if (::mount(t.strFrom.c_str(), t.strTo.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
                return Cannot("bind " + t.strFrom + " to " + t.strTo);
        }
        else if (t.eKind == TMount::eFolder)
        {
            for (size_t n = 1; n <= t.strTo.size(); ++n)
                if (n == t.strTo.size() || t.strTo[n] == '/')
                    if (::mkdir(t.strTo.substr(0, n).c_str(), 0755) != 0 && errno != EEXIST)
                        return Cannot("make " + t.strTo);
        }
        else
        {
            if (::mount(t.strTo.c_str(), t.strTo.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
                ::mount(nullptr, t.strTo.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV,
                        nullptr) != 0)
                return Cannot("make " + t.strTo + " read-only");
        }
    }
    return 0;
}

int Usage()
{
    std::fprintf(stderr, "usage: engine_sandbox [--tmpfs DIR KB | --bind FROM TO | --readonly DIR | --mkdir DIR]... "
                         "[--pid] [--list-after DIR FILE] -- PROGRAM [ARGS...]\n");
    return 2;
}

void ListFolder(const std::string& strFolder, const std::string& strFile)
{
    std::string strText;
    if (DIR* pDir = ::opendir(strFolder.c_str()))
    {
        while (const dirent* pEntry = ::readdir(pDir))
            if (std::strcmp(pEntry->d_name, ".") != 0 && std::strcmp(pEntry->d_name, "..") != 0)
                strText += std::string(pEntry->d_name) + "\n";
        ::closedir(pDir);
    }
    const int fd = ::open(strFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0)
    {
        if (::write(fd, strText.data(), strText.size()) != static_cast<ssize_t>(strText.size()))
            std::fprintf(stderr, "engine_sandbox: cannot write %s\n", strFile.c_str());
        ::close(fd);
    }
}

int StatusOf(int nWait)
{
    if (WIFEXITED(nWait))
        return WEXITSTATUS(nWait);
    if (WIFSIGNALED(nWait))
        return 128 + WTERMSIG(nWait);
    return s_nCannot;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<TMount> atMounts;
    bool bPid = false;
    std::string strListFolder, strListFile;
    int i = 1;
    for (; i < argc; ++i)
    {
        const std::string str = argv[i];
        if (str == "--")
        {
            ++i;
            break;
        }
        if (str == "--tmpfs" && i + 2 < argc)
            atMounts.push_back({TMount::eTmpfs, std::string(), argv[i + 1], argv[i + 2]}), i += 2;
        else if (str == "--bind" && i + 2 < argc)
            atMounts.push_back({TMount::eBind, argv[i + 1], argv[i + 2], std::string()}), i += 2;
        else if (str == "--readonly" && i + 1 < argc)
            atMounts.push_back({TMount::eReadOnly, std::string(), argv[i + 1], std::string()}), i += 1;
        else if (str == "--mkdir" && i + 1 < argc)
            atMounts.push_back({TMount::eFolder, std::string(), argv[i + 1], std::string()}), i += 1;
        else if (str == "--list-after" && i + 2 < argc)
            strListFolder = argv[i + 1], strListFile = argv[i + 2], i += 2;
        else if (str == "--pid")
            bPid = true;
        else
            return Usage();
    }
    if (i >= argc)
        return Usage();

    const uid_t nUid = ::getuid();
    const gid_t nGid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS | (bPid ? CLONE_NEWPID : 0)) != 0)
        return Cannot("make user and mount namespaces");
    // The same user and group inside: files made there belong to the caller.
    WriteFile("/proc/self/setgroups", "deny");
    if (!WriteFile("/proc/self/uid_map", std::to_string(nUid) + " " + std::to_string(nUid) + " 1\n") ||
        !WriteFile("/proc/self/gid_map", std::to_string(nGid) + " " + std::to_string(nGid) + " 1\n"))
        return Cannot("map the user into the namespace");
    if (const int nError = MakeMounts(atMounts))
        return nError;

    // With --pid the first child is process 1 of the new PID namespace.
    const pid_t nChild = ::fork();
    if (nChild < 0)
        return Cannot("start the program");
    if (nChild == 0)
    {
        ::execvp(argv[i], argv + i);
        std::fprintf(stderr, "engine_sandbox: cannot run %s: %s\n", argv[i], std::strerror(errno));
        _exit(127);
    }
    int nWait = 0;
    while (::waitpid(nChild, &nWait, 0) < 0)
        if (errno != EINTR)
            return Cannot("wait for the program");
    if (!strListFolder.empty())
        ListFolder(strListFolder, strListFile);
    return StatusOf(nWait);
}
