#include "LfsImport.h"

#include <algorithm>
#include <sstream>

#include "Digest.h"
#include "GitRepository.h"
#include "Stop.h"
#include "Text.h"

namespace ORVANE {
namespace IMP {

namespace {

const char* const s_pszThresholdKey = "orvane.lfsThreshold";
const char* const s_pszPatternKey = "orvane.lfsPattern";
const char* const s_pszAttributes = ".gitattributes";

} // namespace

bool ReadLfsSettings(const std::string& strGitDir, TLfsSettings& tSettings, std::string& strError)
{
    tSettings = TLfsSettings();
    std::string strOut, strErr;
    // Exit status 1: the key is not there.
    int nStatus = RunGit(strGitDir, {"config", "--get", s_pszThresholdKey}, std::string(), strOut, strErr);
    if (nStatus == 0 && !ParseSize(TrimmedEnd(strOut), tSettings.nThreshold))
    {
        strError =
            "the repository " + strGitDir + " has a broken " + s_pszThresholdKey + ": '" + TrimmedEnd(strOut) + "'";
        return false;
    }
    if (nStatus == 0 || nStatus == 1)
        nStatus = RunGit(strGitDir, {"config", "-z", "--get-all", s_pszPatternKey}, std::string(), strOut, strErr);
    if (nStatus != 0 && nStatus != 1)
    {
        strError = TrimmedEnd("git config failed: " + strErr);
        return false;
    }
    if (nStatus == 0)
        for (size_t nPos = 0, nEnd; (nEnd = strOut.find('\0', nPos)) != std::string::npos; nPos = nEnd + 1)
            tSettings.astrPatterns.push_back(strOut.substr(nPos, nEnd - nPos));
    return true;
}

bool WriteLfsSettings(const std::string& strGitDir, const TLfsSettings& tSettings, std::string& strError)
{
    std::vector<std::vector<std::string>> aastrCommands;
    if (tSettings.nThreshold)
        aastrCommands.push_back({"config", s_pszThresholdKey, std::to_string(tSettings.nThreshold)});
    for (const std::string& strPattern : tSettings.astrPatterns)
        aastrCommands.push_back({"config", "--add", s_pszPatternKey, strPattern});
    for (const std::vector<std::string>& astr : aastrCommands)
    {
        std::string strOut, strErr;
        if (RunGit(strGitDir, astr, std::string(), strOut, strErr) != 0)
        {
            strError = TrimmedEnd("git config failed: " + strErr);
            return false;
        }
    }
    return true;
}

TLfsSettings LfsSettings(const std::string& strThreshold, const std::vector<std::string>& astrPatterns)
{
    TLfsSettings tSettings;
    if (!strThreshold.empty())
        ParseSize(strThreshold, tSettings.nThreshold);
    tSettings.astrPatterns = astrPatterns;
    std::sort(tSettings.astrPatterns.begin(), tSettings.astrPatterns.end());
    tSettings.astrPatterns.erase(std::unique(tSettings.astrPatterns.begin(), tSettings.astrPatterns.end()),
                                 tSettings.astrPatterns.end());
    return tSettings;
}

TLfsSettings ChooseLfsSettings(const std::string& strGitDir, const TLfsSettings& tGiven)
{
    if (strGitDir.empty() || CGitRepository::IsFree(strGitDir))
        return tGiven;
    TLfsSettings tRecorded;
    std::string strError;
    if (!ReadLfsSettings(strGitDir, tRecorded, strError))
        throw EStop(eExitFailure, strError);
    if (!tGiven.Any() || tGiven == tRecorded)
        return tRecorded;
    throw EStop(eExitUsage, "the repository " + strGitDir + " was made with " + tRecorded.Describe() +
                                ", and this run asks for " + tGiven.Describe() +
                                ": the commits depend on them, so a run that continues it uses the same (give the "
                                "same options, or none)");
}

CLfsImport::CLfsImport(const TLfsSettings& tSettings, const std::string& strGitDir)
    : m_strGitDir(strGitDir), m_cRules(tSettings), m_cStore(m_cRules, strGitDir, true),
      m_cChecker(m_cRules, strGitDir, false), m_cAttributes(m_cRules)
{
}

void CLfsImport::Open(bool bNewRepository)
{
    std::string strError;
    if ((bNewRepository && !WriteLfsSettings(m_strGitDir, m_cRules.Settings(), strError)) ||
        !m_cStore.Prepare(strError))
        throw EStop(eExitFailure, strError);
}

void CLfsImport::CheckStore() const
{
    if (!m_cStore.Error().empty())
        throw EStop(eExitFailure, m_cStore.Error());
}

TEntry CLfsImport::RootAttributes(const CLfsAttributes& cAttributes, const std::string& strFolder, const TTree& tTree)
{
    auto it = tTree.find(s_pszAttributes);
    std::string strDepot;
    TEntry tEntry;
    tEntry.nMode = 0100644;
    if (it != tTree.end() && it->second.nMode != 0120000)
    {
        tEntry.nMode = it->second.nMode;
        if (it->second.strBlob != m_strDepotBlob)
        {
            TEntry tRead;
            std::string strText;
            if (ReadEntry(strFolder + "/" + s_pszAttributes, tRead, &strText) && tRead == it->second)
            {
                m_strDepotBlob = tRead.strBlob;
                m_strDepotText = strText;
            }
        }
        strDepot = it->second.strBlob == m_strDepotBlob ? m_strDepotText : std::string();
    }
    const std::string strText = cAttributes.Text(strDepot);
    if (strText.empty() && (it == tTree.end() || it->second.nMode == 0120000))
    {
        // Nothing of ours: what the depot has (a symbolic link, which git
        // does not read, or nothing) stays.
        return it == tTree.end() ? TEntry() : it->second;
    }
    tEntry.strBlob = GitBlobName(strText);
    m_strAttributesText = strText;
    return tEntry;
}

void CLfsImport::CommitTree(const std::string& strFolder, const TTree& tTree, const TTreeDelta& tDelta, bool bWhole,
                            const TBlobSink& fnSink, TTree& tCommit, TTreeDelta& tCommitDelta)
{
    m_cAttributes.Update(tTree, tDelta, bWhole);
    const TEntry tAttributes = RootAttributes(m_cAttributes, strFolder, tTree);
    tCommitDelta = tDelta;
    tCommitDelta.setChanged.erase(s_pszAttributes);
    tCommitDelta.setRemoved.erase(s_pszAttributes);
    if (bWhole)
        tCommit = tTree;
    else
    {
        tCommit.clear();
        for (const std::string& strPath : tCommitDelta.setChanged)
        {
            auto it = tTree.find(strPath);
            if (it != tTree.end())
                tCommit.insert(*it);
        }
    }
    tCommit.erase(s_pszAttributes);
    if (!tAttributes.strBlob.empty())
    {
        tCommit[s_pszAttributes] = tAttributes;
        if (fnSink && tAttributes.nMode != 0120000)
            fnSink(tAttributes.strBlob, CBlobContent(m_strAttributesText));
    }
    if (bWhole || tAttributes != m_tLastAttributes)
    {
        if (!tAttributes.strBlob.empty())
            tCommitDelta.Changed(s_pszAttributes);
        else if (!m_tLastAttributes.strBlob.empty())
            tCommitDelta.Removed(s_pszAttributes);
    }
    m_tLastAttributes = tAttributes;
}

std::string CLfsImport::ScanFolder(const std::string& strFolder, TTree& tTree,
                                   const std::function<CContentFilter*(CContentFilter*)>& fnWrap)
{
    m_cChecker.TakeObjects();
    ScanTree(strFolder, tTree, TBlobSink(), nullptr, fnWrap ? fnWrap(&m_cChecker) : &m_cChecker);
    if (!m_cChecker.Error().empty())
        return m_cChecker.Error();
    CLfsAttributes cAttributes(m_cRules);
    cAttributes.Update(tTree, TTreeDelta(), true);
    const TEntry tAttributes = RootAttributes(cAttributes, strFolder, tTree);
    tTree.erase(s_pszAttributes);
    if (!tAttributes.strBlob.empty())
        tTree[s_pszAttributes] = tAttributes;
    for (const CLfsStore::TObject& t : m_cChecker.TakeObjects())
        if (t.nSize && !m_cStore.Holds(t.strOid, t.nSize))
            return "the Git LFS object of '" + t.strPath + "' (sha256:" + t.strOid + ", " + std::to_string(t.nSize) +
                   " bytes) is not in " + m_strGitDir + "/lfs/objects";
    return std::string();
}

} // namespace IMP
} // namespace ORVANE
