#include "host/ProcessCapture.h"

#include "host/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <wx/strconv.h>

namespace ORVANE {
namespace VCM {

namespace {

// Output kept in memory up to this size per stream; beyond it the whole
// stream moves to an unlinked temporary file. Small, so that a listing that
// grows with the history (every change of a path) does not make the process
// grow with it: the file is in the system's cache all the same.
const size_t s_nMemoryLimit = 256u << 10;
// Size of the chunks moved between the pipes, the spool file and the readers.
const size_t s_nChunkSize = 64u << 10;

bool SetNonBlocking(int nFd)
{
    const int nFlags = ::fcntl(nFd, F_GETFL);
    return nFlags >= 0 && ::fcntl(nFd, F_SETFL, nFlags | O_NONBLOCK) == 0;
}

// Opens an anonymous read-write file in the temporary folder: O_TMPFILE
// where the file system has it, otherwise a named file removed at once.
int OpenSpoolFile()
{
    std::vector<std::string> astrFolders;
    const char* pszTmp = std::getenv("TMPDIR");
    if (pszTmp && *pszTmp)
        astrFolders.emplace_back(pszTmp);
    astrFolders.emplace_back("/tmp");

    int nError = 0;
    for (const std::string& strFolder : astrFolders)
    {
        int nFd;
        do
            nFd = ::open(strFolder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        while (nFd < 0 && errno == EINTR);
        if (nFd < 0)
        {
            std::string strTemplate = strFolder + "/orvane-capture-XXXXXX";
            std::vector<char> acName(strTemplate.begin(), strTemplate.end());
            acName.push_back('\0');
            nFd = ::mkostemp(acName.data(), O_CLOEXEC);
            if (nFd >= 0)
                ::unlink(acName.data());
        }
        if (nFd >= 0 && MoveAboveStandard(nFd))
            return nFd;
        nError = errno;
    }
    errno = nError;
    return -1;
}

// Everything one child wrote on one of its streams: in memory while it is
// small, in an unlinked temporary file once it grows beyond the limit.
class CCaptureBuffer
{
public:
    CCaptureBuffer() = default;
    CCaptureBuffer(const CCaptureBuffer&) = delete;
    CCaptureBuffer& operator=(const CCaptureBuffer&) = delete;
    ~CCaptureBuffer() { CloseDescriptor(m_nFile); }

    void Clear()
    {
        CloseDescriptor(m_nFile);
        // Give back what a big capture held; a small one keeps its storage.
        if (m_acMemory.capacity() > s_nChunkSize)
            std::vector<char>().swap(m_acMemory);
        else
            m_acMemory.clear();
        m_nSize = 0;
        m_strNote.clear();
        m_bFailed = false;
        m_nError = 0;
    }

    // Appends bytes; false (and the capture marked failed) when they could
    // not be kept. Bytes after a failure are dropped.
    bool Append(const char* p, size_t n)
    {
        if (m_bFailed)
            return false;
        if (n == 0)
            return true;
        if (m_nFile < 0 && m_acMemory.size() + n > s_nMemoryLimit)
        {
            const int nFile = OpenSpoolFile();
            if (nFile < 0 || !WriteAll(nFile, m_acMemory.data(), m_acMemory.size()))
                return Fail(nFile);
            m_nFile = nFile;
            std::vector<char>().swap(m_acMemory);
        }
        if (m_nFile >= 0)
        {
            if (!WriteAll(m_nFile, p, n))
                return Fail(-1);
        }
        else
            m_acMemory.insert(m_acMemory.end(), p, p + n);
        m_nSize += n;
        return true;
    }

    // Adds a line of our own after the captured bytes. Kept in memory, so it
    // is there even when the capture itself has failed.
    void AppendNote(const std::string& strLine) { m_strNote += strLine; }

    // Copies up to n bytes from offset nPos; the count copied, 0 at the end
    // or on a read error (errno set, and not 0, in that case).
    size_t ReadAt(uint64_t nPos, char* p, size_t n) const
    {
        errno = 0;
        if (nPos >= GetSize() || n == 0)
            return 0;
        if (nPos >= m_nSize)
        {
            const size_t nOffset = static_cast<size_t>(nPos - m_nSize);
            n = std::min(n, m_strNote.size() - nOffset);
            std::memcpy(p, m_strNote.data() + nOffset, n);
            return n;
        }
        n = static_cast<size_t>(std::min<uint64_t>(n, m_nSize - nPos));
        if (m_nFile < 0)
        {
            std::memcpy(p, m_acMemory.data() + nPos, n);
            return n;
        }
        for (;;)
        {
            const ssize_t nDone = ::pread(m_nFile, p, n, static_cast<off_t>(nPos));
            if (nDone >= 0)
            {
                if (nDone == 0)
                    errno = EIO; // the file is shorter than what we wrote
                return static_cast<size_t>(nDone);
            }
            if (errno != EINTR)
                return 0;
        }
    }

    uint64_t GetSize() const { return m_nSize + m_strNote.size(); }
    bool IsSpooled() const { return m_nFile >= 0; }
    bool HasFailed() const { return m_bFailed; }
    int GetError() const { return m_nError; }

private:
    bool Fail(int nFile)
    {
        m_nError = errno ? errno : EIO;
        CloseDescriptor(nFile);
        m_bFailed = true;
        return false;
    }

    std::vector<char> m_acMemory;
    int m_nFile = -1;
    // Bytes kept (in memory or in the file), not counting the note.
    uint64_t m_nSize = 0;
    std::string m_strNote;
    bool m_bFailed = false;
    int m_nError = 0;
};

// Reads a capture from its first byte. Eof() is true exactly when every byte
// has been consumed (nothing pushed back with Ungetch), whether or not a read
// has already failed at the end.
class CCaptureInputStream : public wxInputStream
{
public:
    explicit CCaptureInputStream(const CCaptureBuffer& cBuffer) : m_cBuffer(cBuffer) {}

    // Back to the first byte of a (new) capture, pushed-back bytes dropped.
    void Rewind()
    {
        char acDiscard[256];
        while (m_wbacksize > m_wbackcur)
            GetWBack(acDiscard, sizeof(acDiscard));
        m_nPos = 0;
        m_nCacheStart = 0;
        m_nCacheLength = 0;
        m_lastcount = 0;
        Reset();
    }

    bool Eof() const override
    {
        if (m_wbacksize > m_wbackcur)
            return false;
        return m_lasterror == wxSTREAM_EOF || m_nPos >= m_cBuffer.GetSize();
    }
    bool CanRead() const override { return m_lasterror != wxSTREAM_READ_ERROR && !Eof(); }
    wxFileOffset GetLength() const override { return static_cast<wxFileOffset>(m_cBuffer.GetSize()); }
    bool IsSeekable() const override { return true; }

protected:
    size_t OnSysRead(void* pBuffer, size_t nSize) override
    {
        const uint64_t nTotal = m_cBuffer.GetSize();
        if (m_nPos >= nTotal)
        {
            m_lasterror = wxSTREAM_EOF;
            return 0;
        }
        char* p = static_cast<char*>(pBuffer);
        size_t nDone = 0;
        if (!m_cBuffer.IsSpooled() || nSize >= s_nChunkSize)
        {
            // Memory is copied directly; big reads from the file bypass the cache.
            nDone = m_cBuffer.ReadAt(m_nPos, p, nSize);
        }
        else
        {
            // Small reads from the file (type codes, short strings) go
            // through a window of the file, so they cost no system call each.
            if (m_nPos < m_nCacheStart || m_nPos >= m_nCacheStart + m_nCacheLength)
            {
                if (m_acCache.empty())
                    m_acCache.resize(s_nChunkSize);
                m_nCacheStart = m_nPos;
                m_nCacheLength = m_cBuffer.ReadAt(m_nPos, m_acCache.data(), m_acCache.size());
            }
            if (m_nPos >= m_nCacheStart && m_nPos < m_nCacheStart + m_nCacheLength)
            {
                const size_t nOffset = static_cast<size_t>(m_nPos - m_nCacheStart);
                nDone = std::min(nSize, m_nCacheLength - nOffset);
                std::memcpy(p, m_acCache.data() + nOffset, nDone);
            }
        }
        if (nDone == 0)
        {
            m_lasterror = wxSTREAM_READ_ERROR;
            return 0;
        }
        m_nPos += nDone;
        return nDone;
    }

    wxFileOffset OnSysSeek(wxFileOffset nPos, wxSeekMode eMode) override
    {
        const wxFileOffset nTotal = static_cast<wxFileOffset>(m_cBuffer.GetSize());
        wxFileOffset nNew;
        switch (eMode)
        {
        case wxFromStart:
            nNew = nPos;
            break;
        case wxFromCurrent:
            nNew = static_cast<wxFileOffset>(m_nPos) + nPos;
            break;
        case wxFromEnd:
            nNew = nTotal + nPos;
            break;
        default:
            return wxInvalidOffset;
        }
        if (nNew < 0 || nNew > nTotal)
            return wxInvalidOffset;
        m_nPos = static_cast<uint64_t>(nNew);
        return nNew;
    }

    wxFileOffset OnSysTell() const override { return static_cast<wxFileOffset>(m_nPos); }

private:
    const CCaptureBuffer& m_cBuffer;
    uint64_t m_nPos = 0;
    std::vector<char> m_acCache;
    uint64_t m_nCacheStart = 0;
    size_t m_nCacheLength = 0;
};

// Collects the next child's standard input in memory.
class CInputCollector : public wxOutputStream
{
public:
    const std::vector<char>& GetData() const { return m_acData; }

    void Clear()
    {
        std::vector<char>().swap(m_acData);
        m_lastcount = 0;
        Reset();
    }

    // The input again, for another run of the same command.
    void Assign(const std::vector<char>& acData)
    {
        Clear();
        m_acData = acData;
    }

    wxFileOffset GetLength() const override { return static_cast<wxFileOffset>(m_acData.size()); }

protected:
    size_t OnSysWrite(const void* pBuffer, size_t nSize) override
    {
        const char* p = static_cast<const char*>(pBuffer);
        m_acData.insert(m_acData.end(), p, p + nSize);
        return nSize;
    }
    wxFileOffset OnSysTell() const override { return static_cast<wxFileOffset>(m_acData.size()); }

private:
    std::vector<char> m_acData;
};

// Splits a command line at blanks; text in double quotes belongs to one
// argument and loses its quotes. A quote left open runs to the end.
std::vector<wxString> SplitCommandLine(const wxString& strLine)
{
    std::vector<wxString> astrArgs;
    wxString strArg;
    bool bInArg = false;
    bool bInQuotes = false;
    for (wxString::const_iterator it = strLine.begin(); it != strLine.end(); ++it)
    {
        const wxUniChar ch = *it;
        if (bInQuotes)
        {
            if (ch == '"')
                bInQuotes = false;
            else
                strArg += ch;
        }
        else if (ch == ' ' || ch == '\t')
        {
            if (bInArg)
            {
                astrArgs.push_back(strArg);
                strArg.clear();
                bInArg = false;
            }
        }
        else
        {
            bInArg = true;
            if (ch == '"')
                bInQuotes = true;
            else
                strArg += ch;
        }
    }
    if (bInArg)
        astrArgs.push_back(strArg);
    return astrArgs;
}

// Text to bytes with the C library's locale; false when some character has
// no representation there.
bool ToLibcBytes(const wxString& str, std::string& strBytes)
{
    strBytes.clear();
    if (str.empty())
        return true;
    const wxWCharBuffer awc = str.wc_str();
    const size_t nLength = str.length();
    const size_t nNeeded = wxConvLibc.FromWChar(nullptr, 0, awc.data(), nLength);
    if (nNeeded == wxCONV_FAILED)
        return false;
    std::vector<char> ac(nNeeded + 1);
    if (wxConvLibc.FromWChar(ac.data(), ac.size(), awc.data(), nLength) == wxCONV_FAILED)
        return false;
    strBytes.assign(ac.data(), nNeeded);
    // An argument cannot hold a NUL byte.
    return strBytes.find('\0') == std::string::npos;
}

// Keeps SIGPIPE from this thread while it writes to a child that may have
// gone: the write then fails with EPIPE instead, and the signal it raised is
// consumed before the mask is restored. A SIGPIPE that was already pending
// stays pending.
class CSigPipeGuard
{
public:
    CSigPipeGuard()
    {
        sigemptyset(&m_cPipeSet);
        sigaddset(&m_cPipeSet, SIGPIPE);
        sigset_t cPending;
        sigemptyset(&cPending);
        m_bWasPending = sigpending(&cPending) == 0 && sigismember(&cPending, SIGPIPE) == 1;
        m_bActive = pthread_sigmask(SIG_BLOCK, &m_cPipeSet, &m_cOldMask) == 0;
    }
    CSigPipeGuard(const CSigPipeGuard&) = delete;
    CSigPipeGuard& operator=(const CSigPipeGuard&) = delete;
    ~CSigPipeGuard()
    {
        if (!m_bActive)
            return;
        if (m_bBrokenPipe && !m_bWasPending)
        {
            const struct timespec cZero = {0, 0};
            while (sigtimedwait(&m_cPipeSet, nullptr, &cZero) < 0 && errno == EINTR)
            {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_cOldMask, nullptr);
    }

    void NoteBrokenPipe() { m_bBrokenPipe = true; }

private:
    sigset_t m_cPipeSet;
    sigset_t m_cOldMask;
    bool m_bWasPending = false;
    bool m_bActive = false;
    bool m_bBrokenPipe = false;
};

} // namespace

struct CProcessCapture::TImpl
{
    TImpl() : m_cOutStream(m_cOut), m_cErrStream(m_cErr) {}

    int Run(const CProcessCapture& cOwner, const CString& strCommandLine);
    int RunArguments(const std::vector<std::string>& astrArgs, const TSpawnOptions& tOptions);
    // The same through the gateway, when there is one.
    int RunPassed(const CProcessCapture& cOwner, const std::vector<std::string>& astrArgs,
                  const TSpawnOptions& tOptions);
    // The same, told to the observer when there is one.
    int RunObserved(const CProcessCapture& cOwner, const std::vector<std::string>& astrArgs,
                    const TSpawnOptions& tOptions);
    void Reset();
    void Pump(int nIn, int nOut, int nErr);
    void ReportStartFailure(const std::string& strMessage);

    CCaptureBuffer m_cOut;
    CCaptureBuffer m_cErr;
    CCaptureInputStream m_cOutStream;
    CCaptureInputStream m_cErrStream;
    CInputCollector m_cIn;
    struct rusage m_tUsage = {};
};

void CProcessCapture::TImpl::ReportStartFailure(const std::string& strMessage)
{
    m_cErr.AppendNote(strMessage + "\n");
}

void CProcessCapture::TImpl::Pump(int nIn, int nOut, int nErr)
{
    const std::vector<char>& acInput = m_cIn.GetData();
    size_t nInputPos = 0;
    CSigPipeGuard cGuard;
    std::vector<char> acChunk(s_nChunkSize);

    if (nIn >= 0 && acInput.empty())
        CloseDescriptor(nIn);

    while (nIn >= 0 || nOut >= 0 || nErr >= 0)
    {
        struct pollfd acPoll[3];
        nfds_t nCount = 0;
        int* apnFd[3];
        if (nIn >= 0)
        {
            acPoll[nCount] = {nIn, POLLOUT, 0};
            apnFd[nCount++] = &nIn;
        }
        if (nOut >= 0)
        {
            acPoll[nCount] = {nOut, POLLIN, 0};
            apnFd[nCount++] = &nOut;
        }
        if (nErr >= 0)
        {
            acPoll[nCount] = {nErr, POLLIN, 0};
            apnFd[nCount++] = &nErr;
        }

        if (::poll(acPoll, nCount, -1) < 0)
        {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            // Cannot wait any more: stop feeding and reading; the child sees
            // its pipes closed.
            CloseDescriptor(nIn);
            CloseDescriptor(nOut);
            CloseDescriptor(nErr);
            break;
        }

        for (nfds_t i = 0; i < nCount; ++i)
        {
            if (acPoll[i].revents == 0)
                continue;
            int& nFd = *apnFd[i];
            if (&nFd == &nIn)
            {
                const ssize_t nDone = ::write(nFd, acInput.data() + nInputPos, acInput.size() - nInputPos);
                if (nDone > 0)
                {
                    nInputPos += static_cast<size_t>(nDone);
                    if (nInputPos == acInput.size())
                        CloseDescriptor(nFd);
                }
                else if (nDone < 0 && errno != EINTR && errno != EAGAIN)
                {
                    // The child closed its input (EPIPE) or the pipe broke:
                    // the rest of the input is dropped.
                    if (errno == EPIPE)
                        cGuard.NoteBrokenPipe();
                    CloseDescriptor(nFd);
                }
                continue;
            }

            CCaptureBuffer& cCapture = &nFd == &nOut ? m_cOut : m_cErr;
            // Drain what is there now; the next poll tells when there is more.
            for (;;)
            {
                const ssize_t nDone = ::read(nFd, acChunk.data(), acChunk.size());
                if (nDone > 0)
                {
                    // A capture that cannot keep its bytes still drains the
                    // pipe, so that the child is never blocked.
                    cCapture.Append(acChunk.data(), static_cast<size_t>(nDone));
                    if (static_cast<size_t>(nDone) < acChunk.size())
                        break;
                    continue;
                }
                if (nDone < 0 && errno == EINTR)
                    continue;
                if (nDone < 0 && errno == EAGAIN)
                    break;
                // End of output (or a broken pipe).
                CloseDescriptor(nFd);
                break;
            }
        }
    }
}

void CProcessCapture::TImpl::Reset()
{
    m_cOut.Clear();
    m_cErr.Clear();
    m_cOutStream.Rewind();
    m_cErrStream.Rewind();
}

int CProcessCapture::TImpl::Run(const CProcessCapture& cOwner, const CString& strCommandLine)
{
    const std::vector<wxString> astrWide = SplitCommandLine(strCommandLine);
    std::vector<std::string> astrArgs;
    astrArgs.reserve(astrWide.size());
    for (const wxString& strWide : astrWide)
    {
        std::string strArg;
        if (!ToLibcBytes(strWide, strArg))
        {
            std::string strProgram;
            if (!ToLibcBytes(astrWide[0], strProgram))
                strProgram = "?";
            Reset();
            ReportStartFailure("cannot run '" + strProgram +
                               "': the command line cannot be represented in the current locale");
            m_cIn.Clear();
            return eStatusNotFound;
        }
        astrArgs.push_back(strArg);
    }
    return RunPassed(cOwner, astrArgs, TSpawnOptions());
}

namespace {

IProcessObserver* s_pObserver = nullptr;
IProcessGateway* s_pGateway = nullptr;

std::string Peek(const CCaptureBuffer& cBuffer, size_t nMax, uint64_t nOffset = 0)
{
    const uint64_t nLeft = cBuffer.GetSize() > nOffset ? cBuffer.GetSize() - nOffset : 0;
    std::string str(static_cast<size_t>(std::min<uint64_t>(nMax, nLeft)), '\0');
    size_t nDone = 0;
    while (nDone < str.size())
    {
        const size_t n = cBuffer.ReadAt(nOffset + nDone, &str[nDone], str.size() - nDone);
        if (n == 0)
            break;
        nDone += n;
    }
    str.resize(nDone);
    return str;
}

} // namespace

namespace {

// A command handed to the gateway: each run gets the input the caller
// wrote before Execute.
class CGatewayRun : public IChildRun
{
public:
    typedef std::function<int()> TRunner;
    CGatewayRun(const std::vector<std::string>& astrArgs, const CProcessCapture& cOwner, CCaptureBuffer& cOut,
                CCaptureBuffer& cErr, CInputCollector& cIn, TRunner fnRun)
        : m_astrArgs(astrArgs), m_cOwner(cOwner), m_cOut(cOut), m_cErr(cErr), m_cIn(cIn), m_acInput(cIn.GetData()),
          m_fnRun(std::move(fnRun))
    {
    }
    const std::vector<std::string>& Arguments() const override { return m_astrArgs; }
    int Run() override
    {
        if (m_nRuns++ > 0)
            m_cIn.Assign(m_acInput);
        return m_fnRun();
    }
    const CProcessCapture& Capture() const override { return m_cOwner; }
    void SetOutput(const std::string& strBytes) override { Replace(m_cOut, strBytes); }
    void SetError(const std::string& strBytes) override { Replace(m_cErr, strBytes); }

private:
    static void Replace(CCaptureBuffer& cBuffer, const std::string& strBytes)
    {
        cBuffer.Clear();
        cBuffer.Append(strBytes.data(), strBytes.size());
    }

    const std::vector<std::string>& m_astrArgs;
    const CProcessCapture& m_cOwner;
    CCaptureBuffer& m_cOut;
    CCaptureBuffer& m_cErr;
    CInputCollector& m_cIn;
    const std::vector<char> m_acInput;
    TRunner m_fnRun;
    int m_nRuns = 0;
};

} // namespace

int CProcessCapture::TImpl::RunPassed(const CProcessCapture& cOwner, const std::vector<std::string>& astrArgs,
                                      const TSpawnOptions& tOptions)
{
    IProcessGateway* pGateway = s_pGateway;
    if (!pGateway)
        return RunObserved(cOwner, astrArgs, tOptions);
    CGatewayRun cRun(astrArgs, cOwner, m_cOut, m_cErr, m_cIn,
                     [&]() { return RunObserved(cOwner, astrArgs, tOptions); });
    const int nStatus = pGateway->Pass(cRun);
    // What the gateway left is read from its first byte; input not used up
    // by a run is not the next command's.
    m_cIn.Clear();
    m_cOutStream.Rewind();
    m_cErrStream.Rewind();
    return nStatus;
}

int CProcessCapture::TImpl::RunObserved(const CProcessCapture& cOwner, const std::vector<std::string>& astrArgs,
                                        const TSpawnOptions& tOptions)
{
    IProcessObserver* pObserver = s_pObserver;
    if (!pObserver)
        return RunArguments(astrArgs, tOptions);
    pObserver->OnChildStarting(astrArgs);
    const auto tStart = std::chrono::steady_clock::now();
    const int nStatus = RunArguments(astrArgs, tOptions);
    const std::chrono::duration<double> tTaken = std::chrono::steady_clock::now() - tStart;
    pObserver->OnChildEnded(astrArgs, nStatus, tTaken.count(), cOwner);
    return nStatus;
}

int CProcessCapture::TImpl::RunArguments(const std::vector<std::string>& astrArgs, const TSpawnOptions& tOptions)
{
    Reset();
    if (astrArgs.empty())
    {
        ReportStartFailure("cannot run '': empty command line");
        m_cIn.Clear();
        return eStatusNotFound;
    }

    int anIn[2] = {-1, -1};
    int anOut[2] = {-1, -1};
    int anErr[2] = {-1, -1};
    if (!MakePipe(anIn) || !MakePipe(anOut) || !MakePipe(anErr) || !SetNonBlocking(anIn[1]) ||
        !SetNonBlocking(anOut[0]) || !SetNonBlocking(anErr[0]))
    {
        const int nError = errno;
        for (int* pnFd : {&anIn[0], &anIn[1], &anOut[0], &anOut[1], &anErr[0], &anErr[1]})
            CloseDescriptor(*pnFd);
        ReportStartFailure("cannot run '" + astrArgs[0] + "': " + ErrorText(nError));
        m_cIn.Clear();
        return eStatusCannotExecute;
    }

    TSpawnOptions tSpawn = tOptions;
    tSpawn.nStdIn = anIn[0];
    tSpawn.nStdOut = anOut[1];
    tSpawn.nStdErr = anErr[1];
    CChildProcess cChild;
    const int nSpawnError = cChild.Start(astrArgs, tSpawn);
    // The child's ends belong to the child now (or to nobody).
    CloseDescriptor(anIn[0]);
    CloseDescriptor(anOut[1]);
    CloseDescriptor(anErr[1]);

    if (nSpawnError != 0)
    {
        CloseDescriptor(anIn[1]);
        CloseDescriptor(anOut[0]);
        CloseDescriptor(anErr[0]);
        ReportStartFailure("cannot run '" + astrArgs[0] + "': " + ErrorText(nSpawnError));
        m_cIn.Clear();
        return StartFailureStatus(nSpawnError);
    }

    Pump(anIn[1], anOut[0], anErr[0]);
    m_cIn.Clear();
    int nStatus = cChild.Wait();
    m_tUsage = cChild.GetUsage();

    // Output that could not be kept completely must not pass for a success.
    for (const CCaptureBuffer* pCapture : {&m_cOut, &m_cErr})
    {
        if (!pCapture->HasFailed())
            continue;
        const char* pszStream = pCapture == &m_cOut ? "standard output" : "standard error";
        m_cErr.AppendNote(std::string(pszStream) + " of '" + astrArgs[0] +
                          "' could not be captured completely: " + ErrorText(pCapture->GetError()) + "\n");
        if (nStatus == 0)
            nStatus = 1;
    }
    return nStatus;
}

CProcessCapture::CProcessCapture() : m_pImpl(new TImpl) {}

CProcessCapture::~CProcessCapture() = default;

int CProcessCapture::Execute(const CString& strCommandLine)
{
    return m_pImpl->Run(*this, strCommandLine);
}

int CProcessCapture::Execute(const std::vector<std::string>& astrArgs)
{
    return m_pImpl->RunPassed(*this, astrArgs, TSpawnOptions());
}

int CProcessCapture::Execute(const std::vector<std::string>& astrArgs, const TSpawnOptions& tOptions)
{
    return m_pImpl->RunPassed(*this, astrArgs, tOptions);
}

std::string CProcessCapture::PeekOutput(size_t nMax) const
{
    return Peek(m_pImpl->m_cOut, nMax);
}

std::string CProcessCapture::PeekOutput(uint64_t nOffset, size_t nMax) const
{
    return Peek(m_pImpl->m_cOut, nMax, nOffset);
}

uint64_t CProcessCapture::OutputSize() const
{
    return m_pImpl->m_cOut.GetSize();
}

std::string CProcessCapture::PeekError(size_t nMax) const
{
    return Peek(m_pImpl->m_cErr, nMax);
}

std::string ReadAllBytes(wxInputStream& rStream)
{
    std::string str;
    char ach[65536];
    while (!rStream.Eof())
    {
        const size_t nRead = rStream.Read(ach, sizeof(ach)).LastRead();
        if (nRead == 0)
            break;
        str.append(ach, nRead);
    }
    return str;
}

void CProcessCapture::SetObserver(IProcessObserver* pObserver)
{
    s_pObserver = pObserver;
}

void CProcessCapture::SetGateway(IProcessGateway* pGateway)
{
    s_pGateway = pGateway;
}

const struct rusage& CProcessCapture::GetUsage() const
{
    return m_pImpl->m_tUsage;
}

wxInputStream* CProcessCapture::GetStdOutputStream()
{
    return &m_pImpl->m_cOutStream;
}

wxInputStream* CProcessCapture::GetStdErrorStream()
{
    return &m_pImpl->m_cErrStream;
}

wxOutputStream* CProcessCapture::GetStdInputStream()
{
    return &m_pImpl->m_cIn;
}

} // namespace VCM
} // namespace ORVANE
