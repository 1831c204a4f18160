// The git repository written through one git fast-import process: a new
// one, or one that an earlier run made and this run continues.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "FastImport.h"
#include "Process.h"
#include "Tree.h"

namespace ORVANE {
namespace IMP {

// Reads the output of git ls-tree -r -z into the tree.
void ParseTreeListing(const std::string& strListing, TTree& tTree);

// A commit of a branch as an earlier run wrote it.
struct TGitCommit
{
    std::string strName; // its 40 hex digits
    long tTime = 0;      // committer time
    unsigned int nChange = 0;
    std::string strPath; // the Perforce-Path trailer
};

// The output of git log with HistoryFormat(), newest first.
std::vector<TGitCommit> ParseHistory(const std::string& strLog);
const char* HistoryFormat();

// Runs git on the repository in the folder: its exit status (-1 when it
// could not run), with what it wrote to each output.
int RunGit(const std::string& strGitDir, const std::vector<std::string>& astrArgs, const std::string& strInput,
           std::string& strOut, std::string& strErr);
// The commits of the ref along first parents, newest first; false, with
// what git said, when git log fails (a ref that does not exist, say).
bool ReadFirstParents(const std::string& strGitDir, const std::string& strRef, std::vector<TGitCommit>& atCommits,
                      std::string& strErr);

class CGitRepository
{
public:
    CGitRepository() : m_cSink(*this), m_cWriter(m_cSink) {}
    CGitRepository(const CGitRepository&) = delete;
    CGitRepository& operator=(const CGitRepository&) = delete;
    ~CGitRepository();

    // True when there is nothing at the path, or an empty folder.
    static bool IsFree(const std::string& strDirectory);
    // Whether Open may make or continue a repository there: a free folder,
    // or a repository an earlier run made. False with the reason.
    static bool IsUsable(const std::string& strDirectory, std::string& strError);

    // A configuration entry that a repository made by Open gets.
    void SetNewConfig(const std::string& strKey, const std::string& strValue)
    {
        m_atNewConfig.emplace_back(strKey, strValue);
    }
    // The value of a configuration entry of the open repository ("" when
    // it has none).
    std::string Config(const std::string& strKey) const;

    // Creates the bare repository in a free folder, or opens one that an
    // earlier run made; either is locked against other runs until Close.
    // git fast-import starts with the first thing written.
    bool Open(const std::string& strDirectory, std::string& strError);
    bool IsOpen() const { return m_nLock >= 0; }
    // The repository was there before this run.
    bool Continued() const { return m_bContinued; }
    // A run that was killed left this repository in use: what was cleaned
    // up after it (lock files of git), for a message.
    const std::vector<std::string>& Recovered() const { return m_astrRecovered; }
    // Where the blobs and commits go.
    CFastImportWriter& Writer() { return m_cWriter; }

    // The branch's commits, newest first, following first parents; none
    // when it does not exist. False with a message when git fails.
    bool ReadHistory(const std::string& strBranch, std::vector<TGitCommit>& atCommits, std::string& strError);

    // Makes everything sent so far visible to other git processes and
    // returns the commit's name.
    bool Checkpoint(unsigned nCommitMark, std::string& strName);
    // Branches move only at a checkpoint or at the end: after a commit, one
    // is made when this long has passed since the last (0: every time).
    void SetSaveInterval(double fSeconds) { m_fSaveSeconds = fSeconds; }
    bool CommitWritten();
    // The tree of a commit, read back with git ls-tree.
    bool ReadTree(const std::string& strCommit, TTree& tTree, std::string& strError);

    // Tells fast-import that its input is complete, so that it writes its
    // pack while this program goes on; Close waits for it.
    void EndInput();
    // Ends fast-import; points HEAD at the branch when given and anything
    // was written. False with a message when git reported an error.
    bool Close(const std::string& strHeadBranch, std::string& strError);
    bool Failed() const { return m_cWriter.Failed(); }
    // After a failed write: waits for fast-import to end (its input is
    // closed, so it does) and says how it ended. The message is the one
    // that Close gives for the same end, however late the failure was seen.
    std::string StopMessage();
    // Something was sent to fast-import in this run.
    bool Wrote() const { return m_bStarted; }
    const std::string& Directory() const { return m_strDirectory; }

private:
    // Feeds fast-import's standard input, starting it first.
    class CChildSink : public CByteSink
    {
    public:
        explicit CChildSink(CGitRepository& cRepository) : m_cRepository(cRepository) {}
        bool Write(const char* p, size_t n) override;

    private:
        CGitRepository& m_cRepository;
    };

    bool Create(std::string& strError);
    static bool IsOurs(const std::string& strDirectory);
    bool Lock(std::string& strError);
    // Removes what a killed run of ours left: git's lock files below refs/
    // and the crash reports of fast-import.
    void Recover();
    bool StartFastImport();
    std::string RunMarker() const;
    void Unlock();

    CChild m_cChild;
    CChildSink m_cSink;
    CFastImportWriter m_cWriter;
    std::string m_strDirectory;
    int m_nLock = -1;
    bool m_bContinued = false;
    bool m_bStarted = false;
    bool m_bInputEnded = false;
    bool m_bStartFailed = false;
    std::string m_strStartError;
    std::vector<std::string> m_astrRecovered;
    std::vector<std::pair<std::string, std::string>> m_atNewConfig;
    double m_fSaveSeconds = 60;
    std::chrono::steady_clock::time_point m_tLastSave;
};

} // namespace IMP
} // namespace ORVANE
