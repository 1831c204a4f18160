// p4sim: a local stand-in for a Perforce server and its `p4` client.
//
//   p4sim [global options] command [args...]   a `p4` command against the
//                                              server named by P4PORT=sim:DIR
//   p4sim admin init|load|generate|limits ...  administration
//
// Test switches (environment): P4SIM_JOURNAL, P4SIM_FAIL, P4SIM_LATENCY_MS,
// P4SIM_GARBLE (with P4SIM_GARBLE_MODE), P4SIM_TICKET, P4SIM_DROP (with
// P4SIM_DROP_AT, P4SIM_DROP_TIMES, P4SIM_DROP_COUNTER). See README.md.
#include "Admin.h"
#include "Commands.h"
#include "FileSystem.h"
#include "Help.h"
#include "Switches.h"
#include "Text.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <pwd.h>
#include <unistd.h>

using namespace ORVANE::P4SIM;

namespace {

std::string EnvOr(const char* pszName, const std::string& strDefault)
{
    const char* pszValue = getenv(pszName);
    return pszValue ? std::string(pszValue) : strDefault;
}

std::string HostName()
{
    char szBuffer[256];
    if (gethostname(szBuffer, sizeof szBuffer) != 0)
        return "localhost";
    szBuffer[sizeof szBuffer - 1] = 0;
    return szBuffer;
}

std::string LoginName()
{
    if (const char* pszUser = getenv("USER"))
        return pszUser;
    if (struct passwd* pEntry = getpwuid(getuid()))
        return pEntry->pw_name;
    return "user";
}

std::string ReadFd(int nFd)
{
    std::string strOut;
    char szBuffer[65536];
    while (true)
    {
        ssize_t nRead = read(nFd, szBuffer, sizeof szBuffer);
        if (nRead < 0 && errno == EINTR)
            continue;
        if (nRead <= 0)
            return strOut;
        strOut.append(szBuffer, size_t(nRead));
    }
}

// One run of the program: its arguments, current directory and, once
// read, its standard input.
class CInvocation
{
public:
    CInvocation(int nArgc, char** ppszArgv);
    const std::vector<std::string>& Argv() const { return m_astrArgv; }
    const std::string& Cwd() const { return m_strCwd; }
    void SetCwd(const std::string& strCwd) { m_strCwd = strCwd; }
    const std::string& StdinRead() const { return m_strStdin; }
    std::string ReadStdin();

private:
    std::vector<std::string> m_astrArgv;
    std::string m_strCwd;
    std::string m_strStdin;
    bool m_bStdinTaken = false;
};

CInvocation::CInvocation(int nArgc, char** ppszArgv) : m_astrArgv(ppszArgv, ppszArgv + nArgc), m_strCwd(CurrentDir())
{
    // The logical current directory, as the real client keeps it.
    const char* pszPwd = getenv("PWD");
    if (pszPwd && NormalizePath(pszPwd) == NormalizePath(m_strCwd))
        m_strCwd = pszPwd;
}

std::string CInvocation::ReadStdin()
{
    if (!m_bStdinTaken)
    {
        m_strStdin = ReadFd(0);
        m_bStdinTaken = true;
    }
    return m_strStdin;
}

// The global options and environment, resolved.
struct TGlobals
{
    TOutputMode eMode = eOutputPlain;
    std::string strPort, strUser, strClient, strHost, strArgFile;
    std::string strCharset; // P4CHARSET or -C; empty when neither

    size_t nCommand = 1; // where the command is in argv
};

enum TGlobalsResult
{
    eGlobalsRun,
    eGlobalsVersion,
    eGlobalsHelp,
    eGlobalsInvalid
};

// Options that p4sim accepts and ignores: with a value, and without.
bool IgnoredOption(char c, bool& bTakesValue)
{
    bTakesValue = c == 'P' || c == 'L' || c == 'Q' || c == 'r' || c == 'v' || c == 'b';
    return bTakesValue || c == 'q' || c == 'I' || c == 's';
}

TGlobalsResult ParseGlobals(CInvocation& rInvocation, TGlobals& tGlobals)
{
    const std::vector<std::string>& astrArgv = rInvocation.Argv();
    tGlobals.strPort = EnvOr("P4PORT", "perforce:1666");
    tGlobals.strUser = EnvOr("P4USER", "");
    tGlobals.strClient = EnvOr("P4CLIENT", "");
    tGlobals.strHost = EnvOr("P4HOST", "");
    tGlobals.strCharset = EnvOr("P4CHARSET", "");
    size_t& i = tGlobals.nCommand;
    for (i = 1; i < astrArgv.size(); ++i)
    {
        const std::string& strArg = astrArgv[i];
        if (strArg.size() < 2 || strArg[0] != '-')
            break;
        if (strArg == "--help" || strArg == "-h")
            return eGlobalsHelp;
        auto fnValue = [&]() -> std::string {
            if (strArg.size() > 2)
                return strArg.substr(2);
            return i + 1 < astrArgv.size() ? astrArgv[++i] : "";
        };
        bool bTakesValue = false;
        switch (strArg[1])
        {
        case 'G':
            tGlobals.eMode = eOutputMarshal;
            break;
        case 'c':
            tGlobals.strClient = fnValue();
            break;
        case 'H':
            tGlobals.strHost = fnValue();
            break;
        case 'C':
            tGlobals.strCharset = fnValue();
            break;
        case 'p':
            tGlobals.strPort = fnValue();
            break;
        case 'u':
            tGlobals.strUser = fnValue();
            break;
        case 'x':
            tGlobals.strArgFile = fnValue();
            break;
        case 'd':
            rInvocation.SetCwd(NormalizePath(JoinPath(rInvocation.Cwd(), fnValue())));
            break;
        case 'z':
            if (fnValue() == "tag" && tGlobals.eMode != eOutputMarshal)
                tGlobals.eMode = eOutputTagged;
            break;
        case 'V':
            return eGlobalsVersion;
        default:
            if (!IgnoredOption(strArg[1], bTakesValue))
                return eGlobalsInvalid;
            if (bTakesValue)
                fnValue();
        }
    }
    return eGlobalsRun;
}

// Prints an error of the client itself (not one the server sent): with -G
// an error record, otherwise "Perforce client error:" and the message's
// lines, each after a tab, on standard error.
int ClientError(const std::string& strText, TSeverity eSeverity, TOutputMode eMode)
{
    if (eMode == eOutputMarshal)
    {
        COutput cOutput(eMode);
        cOutput.Message(strText, eSeverity, eGenericComm);
        WriteAll(1, cOutput.StdOut());
        return eExitFailed;
    }
    std::string strPlain = "Perforce client error:\n";
    for (const std::string& strLine : SplitLines(strText))
        strPlain += "\t" + strLine + "\n";
    WriteAll(2, strPlain);
    return eExitFailed;
}

// Prints the error that the real client prints when no server answers.
int ConnectError(const std::string& strPort, TOutputMode eMode)
{
    std::string strTarget = strPort.find(':') == std::string::npos ? strPort + ":1666" : strPort;
    return ClientError("Connect to server failed; check $P4PORT.\nTCP connect to " + strTarget +
                           " failed.\nconnect: " + strTarget + ": Connection refused",
                       eSeverityFatal, eMode);
}

// Prints the error that the real client prints when the server's side of
// the connection goes away in the middle of a command.
int DroppedConnection(TOutputMode eMode)
{
    return ClientError("TCP receive failed.\nread: socket: Connection reset by peer", eSeverityFailed, eMode);
}

// The character sets a client knows (its message when P4CHARSET or -C
// names another).
bool KnownCharset(const std::string& strCharset)
{
    static const char* const s_apszCharsets[] = {
        "none",        "auto",        "utf8",        "utf8-bom",    "iso8859-1", "shiftjis",    "eucjp",
        "iso8859-15",  "iso8859-5",   "macosroman",  "winansi",     "koi8-r",    "cp949",       "cp1251",
        "utf16",       "utf16-nobom", "utf16le",     "utf16le-bom", "utf16be",   "utf16be-bom", "utf32",
        "utf32-nobom", "utf32le",     "utf32le-bom", "utf32be",     "cp936",     "cp950",       "cp850",
        "cp858",       "cp1253",      "iso8859-7",   "utf32be-bom", "cp852",     "cp1250",      "iso8859-2"};
    for (const char* pszCharset : s_apszCharsets)
    {
        if (strCharset == pszCharset)
            return true;
    }
    return false;
}

const char* const s_pszBadCharset = "Character set must be one of:\n"
                                    "none, auto, utf8, utf8-bom, iso8859-1, shiftjis, eucjp, iso8859-15,\n"
                                    "iso8859-5, macosroman, winansi, koi8-r, cp949, cp1251,\n"
                                    "utf16, utf16-nobom, utf16le, utf16le-bom, utf16be,\n"
                                    "utf16be-bom, utf32, utf32-nobom, utf32le, utf32le-bom, utf32be,\n"
                                    "cp936, cp950, cp850, cp858, cp1253, iso8859-7, utf32be-bom,\n"
                                    "cp852, cp1250, or iso8859-2.\n"
                                    "Check P4CHARSET and your '-C' option.\n";

// The character set the client uses against a server: none for a
// non-unicode one when auto; auto picks utf8 from a UTF-8 locale.
std::string EffectiveCharset(const std::string& strCharset, bool bUnicodeServer)
{
    if (strCharset.empty())
        return "none";
    if (strCharset != "auto")
        return strCharset;
    if (!bUnicodeServer)
        return "none";
    for (const char* pszVariable : {"LC_ALL", "LC_CTYPE", "LANG"})
    {
        const std::string strLocale = ToLower(EnvOr(pszVariable, ""));
        if (strLocale.empty())
            continue;
        return strLocale.find("utf-8") != std::string::npos || strLocale.find("utf8") != std::string::npos
                   ? "utf8"
                   : "iso8859-1";
    }
    return "iso8859-1";
}

// The server's refusal of a client whose character set does not fit its
// unicode mode; `info` answers any client. Sets the character set the
// command works with.
bool CharsetRefusal(const std::string& strCommand, const std::string& strCharset, TContext& tContext)
{
    const bool bUnicode = tContext.pStore->Unicode();
    const std::string strEffective = EffectiveCharset(strCharset, bUnicode);
    tContext.strCharset = bUnicode ? strEffective : std::string();
    if (strCommand == "info")
        return false;
    if (bUnicode && strEffective == "none")
    {
        tContext.pOutput->Message("Unicode server permits only unicode enabled clients.", eSeverityFailed,
                                  eGenericConfig);
        return true;
    }
    if (!bUnicode && strEffective != "none")
    {
        tContext.pOutput->Message("Unicode clients require a unicode enabled server.", eSeverityFailed, eGenericConfig);
        return true;
    }
    if (bUnicode && strEffective != "utf8" && strEffective != "utf8-bom")
    {
        tContext.pOutput->Message("p4sim: the character set '" + strEffective +
                                      "' is not modelled; use utf8 or utf8-bom.",
                                  eSeverityFailed, eGenericConfig);
        return true;
    }
    return false;
}

// The server's refusal of a command without a valid login ticket, if
// P4SIM_TICKET asks for one. `info` needs no login.
bool TicketRefusal(const std::string& strCommand, COutput& rOutput)
{
    if (strCommand == "info")
        return false;
    switch (TicketState())
    {
    case eTicketExpired:
        rOutput.Message("Your session has expired, please login again.", eSeverityFailed, eGenericIllegal);
        return true;
    case eTicketMissing:
        rOutput.Message("Perforce password (P4PASSWD) invalid or unset.", eSeverityFailed, eGenericConfig);
        return true;
    case eTicketValid:
        break;
    }
    return false;
}

// The command in one transaction: committed when it ends normally, rolled
// back when it fails.
void RunCommand(CInvocation& rInvocation, const TGlobals& tGlobals, const TCommandSpec& tCommand,
                const std::vector<std::string>& astrArgs, COutput& rOutput)
{
    CStore cStore(tGlobals.strPort.substr(4));
    TContext tContext;
    tContext.strPort = tGlobals.strPort;
    tContext.strUser = tGlobals.strUser;
    tContext.strClient = tGlobals.strClient;
    tContext.strHost = tGlobals.strHost;
    tContext.strCwd = rInvocation.Cwd();
    tContext.pStore = &cStore;
    tContext.pOutput = &rOutput;
    tContext.pCommand = &tCommand;
    tContext.fnReadStdin = [&rInvocation]() { return rInvocation.ReadStdin(); };
    tContext.nNow = static_cast<long long>(time(nullptr));
    try
    {
        cStore.Begin(false);
        cStore.LoadSettings();
        // The server checks the client's character set first, then its
        // login, then the command line.
        if (CharsetRefusal(tCommand.pszName, tGlobals.strCharset, tContext) || TicketRefusal(tCommand.pszName, rOutput))
        {
            cStore.Rollback();
            return;
        }
        TOptions tOptions = ParseOptions(tCommand, astrArgs);
        bool bWrites =
            tCommand.eWriteMode == eWrites || (tCommand.eWriteMode == eWritesUnlessOutput && !tOptions.Has('o'));
        if (bWrites)
        {
            // A write needs the write lock from the start of its transaction.
            cStore.Rollback();
            cStore.Begin(true);
        }
        tContext.cLimits.Set(cStore.MaxResults(), cStore.MaxScanRows());
        tCommand.fnRun(tContext, tOptions);
        cStore.Commit();
    }
    catch (const ELimitError& e)
    {
        cStore.Rollback();
        rOutput.Discard();
        rOutput.Message(e.what(), e.Severity(), e.Generic());
    }
    catch (const EP4Error& e)
    {
        cStore.Rollback();
        rOutput.Message(e.what(), e.Severity(), e.Generic());
    }
}

// The command's arguments: those on the command line, then those of the
// -x file, one a line.
std::vector<std::string> CommandArgs(CInvocation& rInvocation, const TGlobals& tGlobals)
{
    const std::vector<std::string>& astrArgv = rInvocation.Argv();
    std::vector<std::string> astrArgs(astrArgv.begin() + long(tGlobals.nCommand) + 1, astrArgv.end());
    if (tGlobals.strArgFile.empty())
        return astrArgs;
    std::string strText = tGlobals.strArgFile == "-" ? rInvocation.ReadStdin() : ReadWholeFile(tGlobals.strArgFile);
    for (std::string strLine : SplitLines(strText))
    {
        if (!strLine.empty() && strLine.back() == '\r')
            strLine.pop_back();
        if (!strLine.empty())
            astrArgs.push_back(strLine);
    }
    return astrArgs;
}

// The help p4sim gives itself, without a server; -1 when the command line
// asks for none.
int HelpStatus(const std::string& strCommand, const std::vector<std::string>& astrArgs)
{
    std::string strText;
    if (strCommand == "help")
    {
        bool bKnown = HelpFor(astrArgs, strText);
        WriteAll(bKnown ? 1 : 2, strText);
        return bKnown ? eExitOk : eExitUsage;
    }
    if (FindCommand(strCommand) && AsksForHelp(astrArgs))
    {
        HelpFor({strCommand}, strText);
        WriteAll(1, strText);
        return eExitOk;
    }
    return -1;
}

int RunClient(CInvocation& rInvocation)
{
    TGlobals tGlobals;
    switch (ParseGlobals(rInvocation, tGlobals))
    {
    case eGlobalsVersion:
        WriteAll(1, "Perforce - The Fast Software Configuration Management System.\n"
                    "Rev. P4/LINUX26X86_64/2014.1/p4sim (2014/01/01).\n");
        return eExitOk;
    case eGlobalsHelp:
        WriteAll(1, GlobalHelp());
        return eExitOk;
    case eGlobalsInvalid:
        WriteAll(2,
                 std::string(g_pszGlobalUsage) + "\nInvalid option: " + rInvocation.Argv()[tGlobals.nCommand] + ".\n");
        return eExitFailed;
    case eGlobalsRun:
        break;
    }
    const std::vector<std::string>& astrArgv = rInvocation.Argv();
    if (tGlobals.nCommand >= astrArgv.size())
    {
        WriteAll(1, GlobalHelp());
        return eExitOk;
    }
    if (tGlobals.strUser.empty())
        tGlobals.strUser = LoginName();
    if (tGlobals.strHost.empty())
        tGlobals.strHost = HostName();
    if (tGlobals.strClient.empty())
        tGlobals.strClient = tGlobals.strHost;
    const std::string& strCommand = astrArgv[tGlobals.nCommand];
    std::vector<std::string> astrArgs = CommandArgs(rInvocation, tGlobals);
    int nHelp = HelpStatus(strCommand, astrArgs);
    if (nHelp >= 0)
        return nHelp;
    // The client checks its character set before it connects.
    if (!tGlobals.strCharset.empty() && !KnownCharset(tGlobals.strCharset))
    {
        WriteAll(1, s_pszBadCharset);
        return eExitFailed;
    }
    if (!StartsWith(tGlobals.strPort, "sim:") || !FileExists(CStore::DbPath(tGlobals.strPort.substr(4))))
        return ConnectError(tGlobals.strPort, tGlobals.eMode);
    // A connection that drops fails the command before the server does
    // anything.
    if (MatchesEnvRegex("P4SIM_DROP", JoinedArgs(astrArgv)) &&
        CountDrop(JoinPath(tGlobals.strPort.substr(4), "p4sim-drop.count")))
        return DroppedConnection(tGlobals.eMode);

    COutput cOutput(tGlobals.eMode);
    const TCommandSpec* pCommand = FindCommand(strCommand);
    if (!pCommand)
        cOutput.Message("Unknown command.  Try 'p4 help' for info.", eSeverityFailed, eGenericUsage);
    else
        RunCommand(rInvocation, tGlobals, *pCommand, astrArgs, cOutput);
    std::string strOut = cOutput.StdOut();
    if (tGlobals.eMode == eOutputMarshal && MatchesEnvRegex("P4SIM_GARBLE", JoinedArgs(astrArgv)))
        strOut = Garble(strOut);
    WriteAll(1, strOut);
    WriteAll(2, cOutput.StdErr());
    return cOutput.ExitStatus();
}

} // namespace

int main(int argc, char** argv)
{
    CInvocation cInvocation(argc, argv);
    WaitLatency();
    if (argc >= 2 && std::string(argv[1]) == "admin")
        return RunAdmin(std::vector<std::string>(cInvocation.Argv().begin() + 2, cInvocation.Argv().end()));

    std::string strJoined = JoinedArgs(cInvocation.Argv());
    int nStatus;
    if (MatchesEnvRegex("P4SIM_FAIL", strJoined))
    {
        WriteAll(2, "p4sim: simulated failure of '" + strJoined + "'\np4sim: the command matched P4SIM_FAIL\n");
        nStatus = eExitFailed;
    }
    else
    {
        try
        {
            nStatus = RunClient(cInvocation);
        }
        catch (const std::exception& e)
        {
            WriteAll(2, std::string("p4sim: ") + e.what() + "\n");
            nStatus = eExitFailed;
        }
    }
    Journal(cInvocation.Argv(), cInvocation.Cwd(), cInvocation.StdinRead(), nStatus);
    return nStatus;
}
