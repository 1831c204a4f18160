#include "Import.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>

#include <nlohmann/json.hpp>

#include "GitOutput.h"
#include "Hash.h"
#include "Process.h"
#include "Tree.h"
#include "host/VCM.h"
#include "mce/Provider.h"

#ifndef ORVANE_IMPORT_BUILD_MODULE_DIR
#define ORVANE_IMPORT_BUILD_MODULE_DIR ""
#endif

namespace ORVANE {
namespace IMP {

volatile std::sig_atomic_t g_nStopSignal = 0;

namespace {

using MCE::CProvider;
using TStreamInfo = CProvider::TStreamInfo;
using TChangeInfo = CProvider::TChangeInfo;
using TChangeItemInfo = CProvider::TChangeItemInfo;
using TJson = nlohmann::ordered_json;

// Ends the run with an exit status and a one-line message.
struct TStop
{
    int nStatus;
    std::string strMessage;
};

std::string Utf8(const wxString& str)
{
    const wxScopedCharBuffer ach = str.utf8_str();
    return std::string(ach.data(), ach.length());
}

VCM::CString Wide(const std::string& str)
{
    return VCM::CString(wxString::FromUTF8(str.c_str(), str.size()));
}

std::string PathText(const VCM::CFilePath& cPath)
{
    return Utf8(cPath.GeneratePath(L'/', true));
}

std::string ExecutableFolder()
{
    char ach[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", ach, sizeof(ach) - 1);
    if (n <= 0)
        return std::string();
    std::string str(ach, size_t(n));
    return str.substr(0, str.rfind('/'));
}

bool FileExists(const std::string& strPath)
{
    struct stat st;
    return stat(strPath.c_str(), &st) == 0;
}

int RemoveOne(const char* pszPath, const struct stat*, int nFlag, struct FTW*)
{
    if (nFlag == FTW_DP)
        rmdir(pszPath);
    else
        unlink(pszPath);
    return 0;
}

void RemoveTree(const std::string& strPath)
{
    nftw(strPath.c_str(), RemoveOne, 32, FTW_DEPTH | FTW_PHYS);
}

bool MakeFolders(const std::string& strPath)
{
    for (size_t n = 1; n <= strPath.size(); ++n)
    {
        if (n < strPath.size() && strPath[n] != '/')
            continue;
        const std::string strPart = strPath.substr(0, n);
        if (mkdir(strPart.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

// The SHA-256 of the regular file at the path, or false when there is none.
bool FileDigest(const std::string& strPath, std::string& strHex)
{
    struct stat st;
    if (stat(strPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    const int fd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    CSha256 c;
    char ach[65536];
    for (;;)
    {
        const ssize_t r = read(fd, ach, sizeof(ach));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            break;
        c.Update(ach, size_t(r));
    }
    close(fd);
    strHex = c.HexDigest();
    return true;
}

const char* TypeName(int eType)
{
    switch (eType)
    {
    case MCE::eChangeItemAdd:
        return "add";
    case MCE::eChangeItemModify:
        return "modify";
    case MCE::eChangeItemDelete:
        return "delete";
    default:
        return nullptr;
    }
}

// Width of UTF-8 text in characters, for tables.
size_t Width(const std::string& str)
{
    size_t n = 0;
    for (unsigned char c : str)
        if ((c & 0xC0) != 0x80)
            ++n;
    return n;
}

void PrintTable(const std::vector<std::vector<std::string>>& aastrRows, std::FILE* pOut = stdout)
{
    std::vector<size_t> anWidths;
    for (const auto& astrRow : aastrRows)
        for (size_t i = 0; i < astrRow.size(); ++i)
        {
            if (anWidths.size() <= i)
                anWidths.push_back(0);
            anWidths[i] = std::max(anWidths[i], Width(astrRow[i]));
        }
    for (const auto& astrRow : aastrRows)
    {
        std::string strLine;
        for (size_t i = 0; i < astrRow.size(); ++i)
        {
            strLine += astrRow[i];
            if (i + 1 < astrRow.size())
                strLine += std::string(anWidths[i] - Width(astrRow[i]) + 2, ' ');
        }
        std::fprintf(pOut, "%s\n", strLine.c_str());
    }
    std::fflush(pOut);
}

std::string DotText(const std::string& str)
{
    std::string strOut;
    for (char c : str)
    {
        if (c == '"' || c == '\\')
            strOut += '\\';
        strOut += c;
    }
    return strOut;
}

// Information messages of the provider go to standard error.
class CConsoleConnection : public VRM::IConnectionProxyBase
{
protected:
    void OnInfoMessage(const VCM::CString& strMessage) override
    {
        std::string str = Utf8(strMessage);
        if (str.empty() || str.back() != '\n')
            str += '\n';
        std::fputs(str.c_str(), stderr);
        std::fflush(stderr);
    }
};

class CImport
{
public:
    explicit CImport(const TOptions& tOptions) : m_tOptions(tOptions), m_cView(&m_cConnection), m_cEngine(&m_cView) {}
    int Run();

private:
    struct TStream
    {
        TStreamInfo tInfo;
        std::string strName;    // UTF-8
        std::string strFolder;  // WORKSPACE/<name>
        std::string strBranch;  // below refs/heads/
        std::vector<std::pair<long, unsigned>> atCommits; // time, mark
        unsigned nChanges = 0;
    };

    void LoadModule();
    void ApplySettings();
    void ListSettings();
    void WalkStreams(std::vector<TStreamInfo>& atStreams);
    void WalkChildren(unsigned nParent, std::vector<TStreamInfo>& atStreams, std::set<unsigned>& setSeen, int nDepth);
    void WriteGraph();
    void PrintStreams(bool bWithCommits);
    void MakeWorkspace();
    void ImportStream(TStream& tStream, bool bFirst);
    void ImportChange(TStream& tStream, TChangeInfo& tChange);
    void Verify(const TStream& tStream, const TChangeInfo& tChange, unsigned nMark);
    void DumpStreams();
    void DumpLine(const TJson& j);
    void Failure(const char* pszCall, int nResult);
    void CheckStop();
    void Progress(const TStream& tStream, bool bFinal);
    void Cleanup(int nStatus);
    void Say(const std::string& str);

    const TOptions& m_tOptions;
    CConsoleConnection m_cConnection;
    VRO::CReposView m_cView;
    MCE::CConvertEngine m_cEngine;
    void* m_pModule = nullptr;
    CProvider* m_pProvider = nullptr;
    bool m_bClientsInitialised = false;
    std::vector<TStream> m_atStreams;
    std::string m_strWorkspace;
    bool m_bWorkspaceMade = false;        // the workspace folder itself was made here
    std::vector<std::string> m_astrMadeFolders;
    std::FILE* m_pDump = nullptr;
    bool m_bDumpOwned = false;
    std::unique_ptr<CGitOutput> m_pGit;
    std::set<std::string> m_setBranches;
    CFolderWatch m_cWatch;
    bool m_bWatching = false;
    TTree m_tTree;
    unsigned m_nTotalChanges = 0;
    unsigned m_nDoneChanges = 0;
    unsigned m_nShownChanges = ~0u;
    std::chrono::steady_clock::time_point m_tStart;
    std::chrono::steady_clock::time_point m_tLastProgress;
    bool m_bShowProgress = false;
    bool m_bProgressOnTerminal = false;
    bool m_bProgressLineOpen = false;
};

void CImport::Say(const std::string& str)
{
    if (m_bProgressLineOpen)
    {
        std::fputs("\n", stderr);
        m_bProgressLineOpen = false;
    }
    std::fprintf(stderr, "orvane-import: %s\n", str.c_str());
}

void CImport::CheckStop()
{
    if (g_nStopSignal)
        throw TStop{128 + int(g_nStopSignal),
                    std::string("interrupted by ") + (g_nStopSignal == SIGINT ? "SIGINT" : "SIGTERM") +
                        "; the migration did not complete"};
}

void CImport::DumpLine(const TJson& j)
{
    if (!m_pDump)
        return;
    const std::string str = j.dump(-1, ' ', false, TJson::error_handler_t::replace) + "\n";
    std::fwrite(str.data(), 1, str.size(), m_pDump);
}

void CImport::Failure(const char* pszCall, int nResult)
{
    TJson j;
    j["kind"] = "failure";
    j["call"] = pszCall;
    j["result"] = nResult;
    DumpLine(j);
    throw TStop{1, std::string("the provider reported a failure in ") + pszCall + " (result " +
                       std::to_string(nResult) + ")"};
}

void CImport::LoadModule()
{
    const std::string& strID = m_tOptions.strProvider;
    for (char c : strID)
        if (!(std::islower(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c)) || c == '_'))
            throw TStop{2, "invalid provider id '" + strID + "'"};
    std::string strPath = m_tOptions.strModule;
    if (strPath.empty())
    {
        const std::string strFile = "liborvane-em-" + strID + ".so";
        std::vector<std::string> astrCandidates = {ExecutableFolder() + "/../lib/orvane/" + strFile};
        const std::string strBuild = ORVANE_IMPORT_BUILD_MODULE_DIR;
        if (!strBuild.empty())
            astrCandidates.push_back(strBuild + "/" + strFile);
        for (const std::string& s : astrCandidates)
            if (FileExists(s))
            {
                strPath = s;
                break;
            }
        if (strPath.empty())
            throw TStop{2, "no module for the provider '" + strID + "' (looked for " + astrCandidates[0] + ")"};
    }
    m_pModule = dlopen(strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_pModule)
        throw TStop{2, std::string("cannot load ") + strPath + ": " + dlerror()};
    void* pGetOptions = dlsym(m_pModule, ("orvane_em_" + strID + "_getoptions").c_str());
    void* pCreate = dlsym(m_pModule, ("orvane_em_" + strID + "_createprovider").c_str());
    if (!pGetOptions || !pCreate)
        throw TStop{2, strPath + " is not a migration module for the provider '" + strID + "'"};
    void (*pfnGetOptions)(wchar_t*, wchar_t*, unsigned int*) = nullptr;
    void* (*pfnCreate)(void) = nullptr;
    static_assert(sizeof(pfnCreate) == sizeof(pCreate), "function and object pointers differ in size");
    std::memcpy(&pfnGetOptions, &pGetOptions, sizeof(pGetOptions));
    std::memcpy(&pfnCreate, &pCreate, sizeof(pCreate));
    wchar_t szID[256] = {0}, szName[256] = {0};
    unsigned int nFlags = 0;
    pfnGetOptions(szID, szName, &nFlags);
    m_pProvider = static_cast<CProvider*>(pfnCreate());
    if (!m_pProvider)
        throw TStop{1, "the module created no provider"};
    m_pProvider->m_pEngine = &m_cEngine;
}

void CImport::ApplySettings()
{
    const MCE::TPropertyInfo* pInfo = m_pProvider->GetPropertyInfo();
    std::map<std::string, std::string> mapGiven;
    for (const auto& kv : m_tOptions.atSettings)
        mapGiven[kv.first] = kv.second;
    std::set<std::string> setKnown;
    for (const MCE::TPropertyInfo* p = pInfo; p && p->pszKey; ++p)
        setKnown.insert(Utf8(wxString(p->pszKey)));
    for (const auto& kv : mapGiven)
        if (!setKnown.count(kv.first))
            throw TStop{2, "unknown setting '" + kv.first + "' (see --list-settings)"};
    for (const MCE::TPropertyInfo* p = pInfo; p && p->pszKey; ++p)
    {
        const std::string strKey = Utf8(wxString(p->pszKey));
        auto it = mapGiven.find(strKey);
        VCM::CString strValue = it != mapGiven.end() ? Wide(it->second) : VCM::CString(p->pszDefault ? p->pszDefault : L"");
        if (p->nType == MCE::ePropertyBoolean && strValue != L"0" && strValue != L"1")
            throw TStop{2, "the setting '" + strKey + "' takes 0 or 1"};
        VCM::CString strError;
        if (!m_pProvider->ValidateStringProperty(p->pszKey, strValue, strError))
            throw TStop{2, "the setting '" + strKey + "' is not valid: " + Utf8(strError)};
        m_pProvider->SetProperty(VCM::CString(p->pszKey), strValue);
    }
}

void CImport::ListSettings()
{
    std::vector<std::vector<std::string>> aastrRows = {{"NAME", "KEY", "DEFAULT", "TYPE"}};
    for (const MCE::TPropertyInfo* p = m_pProvider->GetPropertyInfo(); p && p->pszKey; ++p)
    {
        std::string strType = "text";
        if (p->nType == MCE::ePropertyBoolean)
            strType = "boolean";
        else if (p->nType == MCE::ePropertyFile)
            strType = "file";
        else if (p->nType != MCE::ePropertyText)
            strType = std::to_string(p->nType);
        aastrRows.push_back({Utf8(wxString(p->pszDisplayName ? p->pszDisplayName : L"")), Utf8(wxString(p->pszKey)),
                             Utf8(wxString(p->pszDefault ? p->pszDefault : L"")), strType});
    }
    PrintTable(aastrRows);
}

void CImport::WalkChildren(unsigned nParent, std::vector<TStreamInfo>& atStreams, std::set<unsigned>& setSeen,
                           int nDepth)
{
    std::vector<TStreamInfo> atLevel;
    POSITION pos = nullptr;
    TStreamInfo tInfo;
    for (;;)
    {
        CheckStop();
        const int nResult = m_pProvider->GetNextStream(pos, tInfo, nParent);
        if (nResult == 2)
            break;
        if (nResult != 0)
            Failure("GetNextStream", nResult);
        atLevel.push_back(tInfo);
    }
    for (const TStreamInfo& t : atLevel)
    {
        if (!setSeen.insert(t.nID).second || nDepth > 10000)
            continue;
        atStreams.push_back(t);
        WalkChildren(t.nID, atStreams, setSeen, nDepth + 1);
    }
}

void CImport::WalkStreams(std::vector<TStreamInfo>& atStreams)
{
    atStreams.clear();
    std::set<unsigned> setSeen;
    WalkChildren(0, atStreams, setSeen, 0);
}

void CImport::WriteGraph()
{
    std::string strDot = "digraph streams {\n    rankdir=LR;\n    node [shape=box, fontname=\"sans-serif\"];\n";
    for (const TStream& t : m_atStreams)
        strDot += "    s" + std::to_string(t.tInfo.nID) + " [label=\"" + DotText(t.strName) + "\\n" +
                  DotText(PathText(t.tInfo.cDstPath)) + "\"];\n";
    for (const TStream& t : m_atStreams)
        if (t.tInfo.nParentID)
            strDot += "    s" + std::to_string(t.tInfo.nParentID) + " -> s" + std::to_string(t.tInfo.nID) + ";\n";
    strDot += "}\n";
    const std::string& strFile = m_tOptions.strGraph;
    if (strFile.size() >= 4 && strFile.compare(strFile.size() - 4, 4, ".svg") == 0)
    {
        std::string strOut, strErr;
        const int nStatus = RunProcess({"dot", "-Tsvg", "-o", strFile}, strDot, &strOut, &strErr);
        if (nStatus != 0)
            throw TStop{1, "graphviz dot could not write " + strFile + ": " +
                               strErr.substr(0, strErr.find('\n'))};
        return;
    }
    std::ofstream out(strFile, std::ios::binary);
    out << strDot;
    if (!out.good())
        throw TStop{1, "cannot write " + strFile};
}

void CImport::PrintStreams(bool bWithCommits)
{
    std::vector<std::vector<std::string>> aastrRows;
    if (bWithCommits)
        aastrRows.push_back({"ID", "PARENT", "NAME", "SOURCE", "DESTINATION", "BRANCH", "COMMITS"});
    else
        aastrRows.push_back({"ID", "PARENT", "NAME", "SOURCE", "DESTINATION"});
    for (const TStream& t : m_atStreams)
    {
        std::vector<std::string> astrRow = {std::to_string(t.tInfo.nID), std::to_string(t.tInfo.nParentID), t.strName,
                                            t.tInfo.cSrcPath.IsEmpty() ? "-" : PathText(t.tInfo.cSrcPath),
                                            PathText(t.tInfo.cDstPath)};
        if (bWithCommits)
        {
            astrRow.push_back(t.atCommits.empty() ? "-" : "refs/heads/" + t.strBranch);
            astrRow.push_back(std::to_string(t.nChanges));
        }
        aastrRows.push_back(astrRow);
    }
    // The dump may own standard output.
    PrintTable(aastrRows, m_pDump == stdout ? stderr : stdout);
}

void CImport::MakeWorkspace()
{
    if (m_tOptions.strWorkspace.empty())
    {
        const char* pszTemp = std::getenv("TMPDIR");
        std::string strTemplate = std::string(pszTemp && *pszTemp ? pszTemp : "/tmp") + "/orvane-import-XXXXXX";
        std::vector<char> ach(strTemplate.begin(), strTemplate.end());
        ach.push_back('\0');
        if (!mkdtemp(ach.data()))
            throw TStop{1, "cannot make a temporary workspace: " + std::string(std::strerror(errno))};
        m_strWorkspace = ach.data();
        m_bWorkspaceMade = true;
        return;
    }
    m_strWorkspace = m_tOptions.strWorkspace;
    while (m_strWorkspace.size() > 1 && m_strWorkspace.back() == '/')
        m_strWorkspace.pop_back();
    if (m_strWorkspace[0] != '/')
    {
        char ach[PATH_MAX];
        if (getcwd(ach, sizeof(ach)))
            m_strWorkspace = std::string(ach) + "/" + m_strWorkspace;
    }
    m_bWorkspaceMade = !FileExists(m_strWorkspace);
    if (!MakeFolders(m_strWorkspace))
        throw TStop{1, "cannot make the workspace " + m_strWorkspace + ": " + std::strerror(errno)};
}

void CImport::DumpStreams()
{
    std::vector<TStreamInfo> atFresh;
    WalkStreams(atFresh);
    for (const TStreamInfo& t : atFresh)
    {
        for (TStream& s : m_atStreams)
            if (s.tInfo.nID == t.nID)
                s.tInfo = t;
        TJson j;
        j["kind"] = "stream";
        j["id"] = t.nID;
        j["parent"] = t.nParentID;
        j["name"] = Utf8(t.strName);
        j["src"] = PathText(t.cSrcPath);
        j["dst"] = PathText(t.cDstPath);
        j["base"] = t.nBaseChangeID;
        DumpLine(j);
    }
}

void CImport::Progress(const TStream& tStream, bool bFinal)
{
    if (!m_bShowProgress)
        return;
    const auto tNow = std::chrono::steady_clock::now();
    const double fInterval = m_bProgressOnTerminal ? 0.1 : 1.0;
    if (!bFinal && std::chrono::duration<double>(tNow - m_tLastProgress).count() < fInterval)
        return;
    if (bFinal && m_nShownChanges == m_nDoneChanges && !m_bProgressLineOpen)
        return;
    m_nShownChanges = m_nDoneChanges;
    m_tLastProgress = tNow;
    const double fSeconds = std::chrono::duration<double>(tNow - m_tStart).count();
    const double fRate = fSeconds > 0 ? m_nDoneChanges / fSeconds : 0;
    std::string strLeft = "-";
    if (fRate > 0 && m_nTotalChanges >= m_nDoneChanges)
    {
        const long nLeft = long((m_nTotalChanges - m_nDoneChanges) / fRate + 0.5);
        char ach[32];
        std::snprintf(ach, sizeof(ach), "%ld:%02ld", nLeft / 60, nLeft % 60);
        strLeft = ach;
    }
    char ach[512];
    std::snprintf(ach, sizeof(ach), "stream %s: change %u of %u, %.1f changes/s, %s left", tStream.strName.c_str(),
                  m_nDoneChanges, m_nTotalChanges, fRate, strLeft.c_str());
    if (m_bProgressOnTerminal)
    {
        std::fprintf(stderr, "\r%s\033[K", ach);
        m_bProgressLineOpen = true;
        if (bFinal)
        {
            std::fputs("\n", stderr);
            m_bProgressLineOpen = false;
        }
    }
    else
        std::fprintf(stderr, "%s\n", ach);
    std::fflush(stderr);
}

void CImport::Verify(const TStream& tStream, const TChangeInfo& tChange, unsigned nMark)
{
    TTree tFolder;
    ScanTree(tStream.strFolder, tFolder);
    TTree tGit;
    std::string strWhere = "change " + std::to_string(tChange.nID) + " of stream " + tStream.strName;
    if (m_pGit)
    {
        std::string strCommit, strError;
        if (!m_pGit->Checkpoint(nMark, strCommit))
            throw TStop{1, "git fast-import failed while verifying " + strWhere};
        if (!m_pGit->ReadTree(strCommit, tGit, strError))
            throw TStop{1, strError};
        strWhere += " (commit " + strCommit.substr(0, 12) + ")";
    }
    else
        tGit = m_tTree;
    auto itG = tGit.begin();
    auto itF = tFolder.begin();
    auto Mode = [](unsigned n) {
        char ach[16];
        std::snprintf(ach, sizeof(ach), "%06o", n);
        return std::string(ach);
    };
    while (itG != tGit.end() || itF != tFolder.end())
    {
        if (itF == tFolder.end() || (itG != tGit.end() && itG->first < itF->first))
            throw TStop{1, "verify: " + strWhere + ": '" + itG->first + "' is in git but not in the folder"};
        if (itG == tGit.end() || itF->first < itG->first)
            throw TStop{1, "verify: " + strWhere + ": '" + itF->first + "' is in the folder but not in git"};
        if (itG->second != itF->second)
            throw TStop{1, "verify: " + strWhere + ": '" + itG->first + "' differs: git has " + Mode(itG->second.nMode) +
                               " " + itG->second.strBlob + ", the folder " + Mode(itF->second.nMode) + " " +
                               itF->second.strBlob};
        ++itG, ++itF;
    }
}

void CImport::ImportChange(TStream& tStream, TChangeInfo& tChange)
{
    CheckStop();
    int nResult = m_pProvider->OnProcessChange(tChange);
    if (nResult != 0)
        Failure("OnProcessChange", nResult);

    // What the sync did to the folder.
    TTreeDelta tDelta;
    CGitOutput* pGit = m_pGit.get();
    TBlobSink fnSink;
    if (pGit)
        fnSink = [pGit](const std::string& strBlob, const std::string& strContent) { pGit->Blob(strBlob, strContent); };
    std::set<std::string> setDirty;
    if (m_bWatching && m_cWatch.Collect(setDirty))
        UpdateTree(tStream.strFolder, setDirty, m_tTree, tDelta, fnSink);
    else
        RescanTree(tStream.strFolder, m_tTree, tDelta, fnSink);

    TJson jChange;
    jChange["kind"] = "change";
    jChange["stream"] = tStream.tInfo.nID;
    jChange["id"] = tChange.nID;
    jChange["user"] = Utf8(tChange.strUser);
    jChange["time"] = tChange.tTime;
    jChange["comment"] = Utf8(tChange.strComment);
    jChange["items"] = tChange.nItemCount;
    DumpLine(jChange);

    // The items say where to look: anything the watch missed is caught here.
    std::set<std::string> setItems;
    std::string strMissing;
    TChangeItemInfo tItem;
    CheckStop();
    nResult = m_pProvider->OnFirstChangeItem(tItem);
    bool bFirstItem = true;
    while (nResult == 0)
    {
        const std::string strPath = PathText(tItem.cFilePath);
        const std::string strFull = tStream.strFolder + "/" + strPath;
        std::string strDigest;
        const bool bFile = FileDigest(strFull, strDigest);
        TJson j;
        j["kind"] = "item";
        j["change"] = tItem.nChangeID;
        const char* pszType = TypeName(tItem.eType);
        if (pszType)
            j["type"] = pszType;
        else
            j["type"] = int(tItem.eType);
        j["path"] = strPath;
        j["revision"] = tItem.nRevision;
        if (bFile)
            j["sha256"] = strDigest;
        else
            j["sha256"] = nullptr;
        DumpLine(j);
        setItems.insert(strPath);
        const bool bDelete = tItem.eType == MCE::eChangeItemDelete;
        if (strMissing.empty() && bDelete == bFile)
            strMissing = bDelete ? "the file '" + strPath + "' is still there although the change deletes it"
                                 : "the file '" + strPath + "#" + std::to_string(tItem.nRevision) + "' is missing";
        CheckStop();
        bFirstItem = false;
        nResult = m_pProvider->OnNextChangeItem(tItem);
    }
    if (nResult != 2)
        Failure(bFirstItem ? "OnFirstChangeItem" : "OnNextChangeItem", nResult);
    if (!strMissing.empty())
        throw TStop{1, "change " + std::to_string(tChange.nID) + " of stream " + tStream.strName +
                           " was not synced completely: " + strMissing};
    {
        TTreeDelta tItemsDelta;
        UpdateTree(tStream.strFolder, setItems, m_tTree, tItemsDelta, fnSink);
        for (const std::string& s : tItemsDelta.setChanged)
            tDelta.setChanged.insert(s), tDelta.setRemoved.erase(s);
        for (const std::string& s : tItemsDelta.setRemoved)
            tDelta.setRemoved.insert(s), tDelta.setChanged.erase(s);
    }

    ++tStream.nChanges;
    ++m_nDoneChanges;
    unsigned nMark = 0;
    if (pGit)
    {
        CGitOutput::TCommit tCommit;
        tCommit.strBranch = tStream.strBranch;
        tCommit.strUser = Utf8(tChange.strUser);
        tCommit.tTime = tChange.tTime;
        tCommit.strMessage = Utf8(tChange.strComment);
        if (tStream.atCommits.empty())
        {
            tCommit.bFullTree = true;
            for (const TStream& tParent : m_atStreams)
                if (tParent.tInfo.nID == tStream.tInfo.nParentID)
                    for (const auto& tc : tParent.atCommits)
                        if (tc.first <= tChange.tTime)
                            tCommit.nFrom = tc.second;
        }
        nMark = pGit->Commit(tCommit, m_tTree, tDelta);
        if (pGit->Failed())
            throw TStop{1, "git fast-import stopped (see its message above)"};
    }
    tStream.atCommits.emplace_back(tChange.tTime, nMark);
    if (m_tOptions.bVerify)
        Verify(tStream, tChange, nMark);
    Progress(tStream, false);
}

void CImport::ImportStream(TStream& tStream, bool bFirst)
{
    CheckStop();
    if (!FileExists(tStream.strFolder))
    {
        if (!MakeFolders(tStream.strFolder))
            throw TStop{1, "cannot make the folder " + tStream.strFolder + ": " + std::strerror(errno)};
        m_astrMadeFolders.push_back(tStream.strFolder);
    }
    int nResult = m_pProvider->OnBeginStream(tStream.tInfo.nID, Wide(tStream.strFolder).wc_str());
    if (nResult != 0)
        Failure("OnBeginStream", nResult);
    CheckStop();
    unsigned int nCount = 0;
    nResult = m_pProvider->EstablishChangesets(nCount);
    if (nResult != 0)
        Failure("EstablishChangesets", nResult);
    m_nTotalChanges = nCount;
    if (bFirst)
        DumpStreams();

    m_tTree.clear();
    ScanTree(tStream.strFolder, m_tTree); // empty unless the workspace was kept from before
    m_bWatching = m_cWatch.Start(tStream.strFolder);
    TChangeInfo tChange;
    CheckStop();
    nResult = m_pProvider->OnFirstChangeset(tChange);
    bool bFirstChange = true;
    while (nResult == 0)
    {
        ImportChange(tStream, tChange);
        bFirstChange = false;
        CheckStop();
        nResult = m_pProvider->OnNextChangeset(tChange);
    }
    if (nResult != 2)
        Failure(bFirstChange ? "OnFirstChangeset" : "OnNextChangeset", nResult);
    m_cWatch.Stop();
    m_bWatching = false;
}

void CImport::Cleanup(int nStatus)
{
    m_cWatch.Stop();
    if (m_pProvider)
    {
        if (m_bClientsInitialised)
            m_pProvider->RemoveClients();
        const std::string strLog = Utf8(m_pProvider->GetLogPath());
        if (!strLog.empty())
        {
            if (!m_tOptions.strLog.empty())
            {
                std::ifstream in(strLog, std::ios::binary);
                std::ofstream out(m_tOptions.strLog, std::ios::binary);
                out << in.rdbuf();
                if (!out.good())
                    Say("cannot write the log to " + m_tOptions.strLog);
                else
                    unlink(strLog.c_str());
            }
            else if (!m_tOptions.bQuiet || nStatus != 0)
                Say("import log: " + strLog);
        }
        m_pProvider->Destroy();
        m_pProvider = nullptr;
    }
    // The module stays loaded until the process ends: whatever it registered
    // to run at exit (static destructors) must find its code in place.
    if (!m_strWorkspace.empty() && !m_tOptions.bKeepWorkspace)
    {
        if (m_bWorkspaceMade)
            RemoveTree(m_strWorkspace);
        else
            for (const std::string& s : m_astrMadeFolders)
                RemoveTree(s);
    }
    else if (!m_strWorkspace.empty() && !m_tOptions.bQuiet)
        Say("workspace kept: " + m_strWorkspace);
    if (m_pDump)
    {
        std::fflush(m_pDump);
        if (m_bDumpOwned)
            std::fclose(m_pDump);
        m_pDump = nullptr;
    }
}

int CImport::Run()
{
    int nStatus = 0;
    std::string strMessage;
    try
    {
        if (!m_tOptions.strGit.empty())
        {
            bool bExists = false;
            DIR* pDir = opendir(m_tOptions.strGit.c_str());
            if (pDir)
            {
                while (dirent* p = readdir(pDir))
                    if (std::strcmp(p->d_name, ".") && std::strcmp(p->d_name, ".."))
                        bExists = true;
                closedir(pDir);
            }
            else if (errno != ENOENT)
                bExists = true;
            if (bExists)
                throw TStop{2, "the git folder '" + m_tOptions.strGit + "' exists and is not empty"};
        }
        LoadModule();
        ApplySettings();
        if (m_tOptions.bListSettings)
        {
            ListSettings();
            throw TStop{0, ""};
        }
        if (!m_tOptions.strDump.empty())
        {
            if (m_tOptions.strDump == "-")
                m_pDump = stdout;
            else
            {
                m_pDump = std::fopen(m_tOptions.strDump.c_str(), "wb");
                if (!m_pDump)
                    throw TStop{1, "cannot write " + m_tOptions.strDump + ": " + std::strerror(errno)};
                m_bDumpOwned = true;
            }
        }
        VCM::CString strWarning;
        if (m_pProvider->CheckEnvironment(strWarning) != 0 && !m_tOptions.bQuiet)
            Say("warning: " + Utf8(strWarning));
        m_pProvider->OpenLog(true);
        if (m_tOptions.bLogToConsole)
            m_pProvider->LogToConnection();

        CheckStop();
        unsigned int nCount = 0;
        int nResult = m_pProvider->EstablishStreams(nCount);
        if (nResult != 0)
            Failure("EstablishStreams", nResult);
        std::vector<TStreamInfo> atStreams;
        WalkStreams(atStreams);
        for (const TStreamInfo& t : atStreams)
        {
            TStream s;
            s.tInfo = t;
            s.strName = Utf8(t.strName);
            m_atStreams.push_back(s);
        }
        if (!m_tOptions.strGraph.empty())
            WriteGraph();
        if (m_tOptions.bStreamsOnly)
        {
            PrintStreams(false);
            throw TStop{0, ""};
        }

        if (!m_tOptions.strGit.empty())
        {
            m_pGit.reset(new CGitOutput);
            std::string strError;
            if (!m_pGit->Open(m_tOptions.strGit, strError))
                throw TStop{1, strError};
        }
        for (TStream& s : m_atStreams)
            s.strBranch = MakeBranchName(s.strName, m_setBranches);

        MakeWorkspace();
        for (TStream& s : m_atStreams)
            s.strFolder = m_strWorkspace + "/" + s.strName;
        CheckStop();
        m_bClientsInitialised = true;
        if (!m_pProvider->InitialiseClients(Wide(m_strWorkspace)))
            Failure("InitialiseClients", 1);

        m_bShowProgress = !m_tOptions.bQuiet && (m_tOptions.bProgress || isatty(2));
        m_bProgressOnTerminal = isatty(2);
        m_tStart = m_tLastProgress = std::chrono::steady_clock::now();
        for (size_t i = 0; i < m_atStreams.size(); ++i)
            ImportStream(m_atStreams[i], i == 0);
        if (!m_atStreams.empty())
            Progress(m_atStreams.back(), true);
        if (m_pGit)
        {
            std::string strHead, strError;
            for (const TStream& s : m_atStreams)
                if (!s.atCommits.empty())
                {
                    strHead = s.strBranch;
                    break;
                }
            if (!m_pGit->Close(strHead, strError))
                throw TStop{1, strError};
        }
        if (!m_tOptions.bQuiet)
            PrintStreams(true);
        strMessage = "imported " + std::to_string(m_nDoneChanges) + " changes of " +
                     std::to_string(m_atStreams.size()) + " streams" +
                     (m_pGit ? " into " + m_tOptions.strGit : std::string());
    }
    catch (const TStop& tStop)
    {
        nStatus = tStop.nStatus;
        strMessage = tStop.strMessage;
    }
    catch (const std::exception& e)
    {
        nStatus = 1;
        strMessage = std::string("unexpected error: ") + e.what();
    }
    if (m_pGit && m_pGit->IsOpen())
    {
        // Keep what was imported before the stop.
        std::string strError;
        m_pGit->Close(std::string(), strError);
    }
    if (!strMessage.empty() && nStatus != 0 && m_bProgressLineOpen)
        std::fputs("\n", stderr), m_bProgressLineOpen = false;
    Cleanup(nStatus);
    if (!strMessage.empty() && (nStatus != 0 || !m_tOptions.bQuiet))
        Say(nStatus == 0 ? strMessage : "error: " + strMessage);
    return nStatus;
}

} // namespace

int RunImport(const TOptions& tOptions)
{
    CImport cImport(tOptions);
    return cImport.Run();
}

} // namespace IMP
} // namespace ORVANE
