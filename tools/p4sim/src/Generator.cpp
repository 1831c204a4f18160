// `admin generate`: a reproducible, realistic history. The same options
// give the same history, byte for byte, on every platform.
#include "History.h"

#include "GeneratorParts.h"
#include "Text.h"

#include <algorithm>
#include <map>

namespace ORVANE {
namespace P4SIM {

namespace {

TFileAction Action(const std::string& strPath, const char* pszAction, const std::string& strFrom = "")
{
    TFileAction tAction;
    tAction.strPath = strPath;
    tAction.strAction = pszAction;
    tAction.strFrom = strFrom;
    return tAction;
}

class CGenerator
{
public:
    CGenerator(const TGenerateOptions& tOptions, CHistorySink& rSink)
        : m_tOptions(tOptions), m_cRandom(tOptions.nSeed), m_rSink(rSink)
    {
    }
    void Run();

private:
    void AddUsers();
    void Begin(const std::string& strDescription);
    void End();
    bool Touched(const std::string& strPath) const;
    std::string NewName(const std::string& strStream);
    void AddNewFile(const std::string& strStream);
    void EditFile(const std::string& strPath);
    void Work(const std::string& strStream);
    void MoveOneOf(const std::string& strStream, const std::vector<const std::string*>& apFiles);
    void MakeBranch();
    void Integrate();
    // The integrations a merge of the source stream into the target would
    // make: every file whose source has changed since the two last met.
    std::vector<TFileAction> PendingIntegrations(const std::string& strSource, const std::string& strTarget);
    void Apply(const TFileAction& tAction);
    void MultiStreamEdit();
    // The file is deleted (or moved away) in its stream.
    void MarkDeleted(const std::string& strPath);
    // The content the two files last had in common through an integration.
    TContent& Met(const std::string& strA, const std::string& strB) { return m_mapMet[strA + '\n' + strB]; }

    TGenerateOptions m_tOptions;
    CRandom m_cRandom;
    CHistorySink& m_rSink;
    std::vector<TBranchRec> m_atBranches;
    long long m_nChangesMade = 0;
    TChangeSpec m_tCurrent;
    CFileIndex m_cFiles;
    std::vector<std::string> m_astrStreams;
    // The stream each branch was made from.
    std::map<std::string, std::string> m_mapParents;
    // Files deleted in their stream, each with a marker that stands for its
    // deletion; what two files last had in common ("A\nB").
    std::map<std::string, TContent> m_mapDeleted;
    std::map<std::string, TContent> m_mapMet;
    long long m_nTime = 1300000000;
    long long m_nSerial = 1;
};

void CGenerator::Run()
{
    AddUsers();
    m_astrStreams.push_back("//depot/main/");
    long long nTotal = std::max(1LL, m_tOptions.nChanges);
    // The first change imports the mainline.
    Begin("Initial import of the mainline");
    for (long long i = 0; i < std::max(1LL, m_tOptions.nFiles); ++i)
        AddNewFile("//depot/main/");
    End();
    long long nBranchesMade = 0;
    for (long long n = 2; n <= nTotal; ++n)
    {
        // Branches are spread evenly over the history.
        if (nBranchesMade < m_tOptions.nBranches &&
            n >= 2 + (nBranchesMade + 1) * (nTotal - 1) / (m_tOptions.nBranches + 1))
        {
            MakeBranch();
            ++nBranchesMade;
            continue;
        }
        unsigned nKind = unsigned(m_cRandom.Below(100));
        if (nKind < 10 && m_astrStreams.size() > 1)
            Integrate();
        else if (nKind < 18 && m_astrStreams.size() > 1)
            MultiStreamEdit();
        else
            Work(m_astrStreams[m_cRandom.Below(m_astrStreams.size())]);
    }
    for (long long nLeft = m_tOptions.nBranches - nBranchesMade; nLeft > 0; --nLeft)
        MakeBranch();
    m_rSink.Finish(m_atBranches, {});
}

void CGenerator::AddUsers()
{
    std::vector<TUserRec> atUsers;
    for (const char* pszUser : GeneratedUsers())
    {
        TUserRec tUser;
        tUser.strName = pszUser;
        tUser.strEmail = std::string(pszUser) + "@example.com";
        tUser.strFullName = std::string(1, char(pszUser[0] - 'a' + 'A')) + (pszUser + 1);
        tUser.nUpdated = tUser.nAccessed = m_nTime;
        atUsers.push_back(tUser);
    }
    m_rSink.AddUsers(atUsers);
}

void CGenerator::Begin(const std::string& strDescription)
{
    // Equal submit times now and then; otherwise minutes to hours apart.
    if (m_nChangesMade > 0 && !m_cRandom.Chance(8))
        m_nTime += 60 + static_cast<long long>(m_cRandom.Below(7200));
    TChangeSpec tChange;
    tChange.strUser = PickUser(m_cRandom);
    tChange.strClient = tChange.strUser + "-ws";
    tChange.nTime = m_nTime;
    tChange.strDescription = strDescription + "\n";
    if (m_cRandom.Chance(20))
        tChange.strDescription += "\n" + MakeText(m_cRandom, 1 + m_cRandom.Below(4));
    m_tCurrent = tChange;
}

void CGenerator::End()
{
    if (!m_tCurrent.atFiles.empty())
    {
        ++m_nChangesMade;
        m_rSink.AddChange(m_tCurrent);
    }
    m_tCurrent = TChangeSpec();
}

bool CGenerator::Touched(const std::string& strPath) const
{
    for (const TFileAction& tAction : m_tCurrent.atFiles)
    {
        if (tAction.strPath == strPath || tAction.strFrom == strPath)
            return true;
    }
    return false;
}

std::string CGenerator::NewName(const std::string& strStream)
{
    std::string strDir = PickDir(m_cRandom);
    bool bBinary = strDir == "assets";
    std::string strName;
    do
    {
        strName = Word(m_cRandom) + "_" + std::to_string(m_nSerial++);
        // A few names with the characters the server escapes.
        if (m_cRandom.Chance(3))
            strName += "@v2";
        if (m_cRandom.Chance(2))
            strName += "#1";
        strName += bBinary ? ".bin" : (strDir == "docs" ? ".txt" : (m_cRandom.Chance(10) ? ".sh" : ".c"));
    } while (m_cFiles.Has(strStream + strDir + "/" + strName));
    return strStream + strDir + "/" + strName;
}

void CGenerator::AddNewFile(const std::string& strStream)
{
    TFileAction tAction = Action(NewName(strStream), "add");
    if (EndsWith(tAction.strPath, ".bin"))
    {
        tAction.strType = "binary";
        size_t nRange = m_cRandom.Chance(10) ? 200000 : 4000;
        tAction.pContent = std::make_shared<const std::string>(MakeBinary(m_cRandom, 16 + m_cRandom.Below(nRange)));
    }
    else
    {
        tAction.strType = EndsWith(tAction.strPath, ".sh") ? "text+x" : "text";
        tAction.pContent = std::make_shared<const std::string>(MakeText(m_cRandom, TextLines(m_cRandom)));
    }
    m_cFiles.Set(tAction.strPath, TFileState{tAction.strType, tAction.pContent});
    m_mapDeleted.erase(tAction.strPath);
    m_tCurrent.atFiles.push_back(tAction);
}

void CGenerator::EditFile(const std::string& strPath)
{
    TFileState& tState = m_cFiles.Get(strPath);
    TFileAction tAction = Action(strPath, "edit");
    tAction.strType = tState.strType;
    tAction.pContent = std::make_shared<const std::string>(tState.strType == "binary"
                                                               ? MakeBinary(m_cRandom, 16 + m_cRandom.Below(4000))
                                                               : EditText(m_cRandom, *tState.pContent));
    tState.pContent = tAction.pContent;
    m_tCurrent.atFiles.push_back(tAction);
}

void CGenerator::Work(const std::string& strStream)
{
    Begin(Word(m_cRandom) + ": " + Word(m_cRandom) + " the " + Word(m_cRandom) + " " + Word(m_cRandom));
    std::vector<const std::string*> apFiles = m_cFiles.FilesIn(strStream);
    size_t nEdits = apFiles.empty() ? 0 : 1 + m_cRandom.Below(std::min<size_t>(6, apFiles.size()));
    for (size_t i = 0; i < nEdits; ++i)
    {
        const std::string& strPath = *apFiles[m_cRandom.Below(apFiles.size())];
        if (!Touched(strPath))
            EditFile(strPath);
    }
    if (m_cRandom.Chance(30) || apFiles.empty())
        AddNewFile(strStream);
    // A deleted file leaves the list of files only at the end, so that the
    // names picked from apFiles stay valid; the move below skips it as
    // touched.
    std::string strDeleted;
    if (apFiles.size() > 3 && m_cRandom.Chance(10))
    {
        const std::string& strPath = *apFiles[m_cRandom.Below(apFiles.size())];
        if (!Touched(strPath))
        {
            m_tCurrent.atFiles.push_back(Action(strPath, "delete"));
            strDeleted = strPath;
        }
    }
    if (apFiles.size() > 3 && m_cRandom.Chance(8))
        MoveOneOf(strStream, apFiles);
    if (!strDeleted.empty())
        MarkDeleted(strDeleted);
    End();
}

void CGenerator::MoveOneOf(const std::string& strStream, const std::vector<const std::string*>& apFiles)
{
    std::string strPath = *apFiles[m_cRandom.Below(apFiles.size())];
    if (Touched(strPath) || !m_cFiles.Has(strPath))
        return;
    std::string strTo = NewName(strStream);
    TFileState tState = m_cFiles.Get(strPath);
    m_tCurrent.atFiles.push_back(Action(strTo, "move/add", strPath));
    m_tCurrent.atFiles.push_back(Action(strPath, "move/delete"));
    MarkDeleted(strPath);
    m_cFiles.Set(strTo, tState);
    m_mapDeleted.erase(strTo);
}

void CGenerator::MakeBranch()
{
    std::string strName = "rel" + std::to_string(m_astrStreams.size());
    std::string strSource = m_astrStreams[m_cRandom.Below(m_astrStreams.size())];
    std::string strTarget = "//depot/" + strName + "/";
    TBranchRec tBranch;
    tBranch.strName = strName;
    tBranch.strOwner = PickUser(m_cRandom);
    tBranch.strDescription = "Created by " + tBranch.strOwner + ".\n";
    tBranch.strOptions = "unlocked";
    tBranch.astrView.push_back(strSource + "... " + strTarget + "...");
    tBranch.nUpdated = tBranch.nAccessed = m_nTime;
    m_atBranches.push_back(tBranch);
    Begin("Branch " + strSource + "... to " + strTarget + "...");
    std::vector<const std::string*> apFiles = m_cFiles.FilesIn(strSource);
    for (const std::string* pPath : apFiles)
    {
        std::string strTo = strTarget + pPath->substr(strSource.size());
        m_tCurrent.atFiles.push_back(Action(strTo, "branch", *pPath));
        m_cFiles.Set(strTo, m_cFiles.Get(*pPath));
        Met(strTo, *pPath) = Met(*pPath, strTo) = m_cFiles.Get(*pPath).pContent;
    }
    m_mapParents[strTarget] = strSource;
    m_astrStreams.push_back(strTarget);
    End();
}

void CGenerator::MarkDeleted(const std::string& strPath)
{
    m_cFiles.Erase(strPath);
    m_mapDeleted[strPath] = std::make_shared<const std::string>();
}

std::vector<TFileAction> CGenerator::PendingIntegrations(const std::string& strSource, const std::string& strTarget)
{
    std::vector<TFileAction> atActions;
    for (const std::string* pPath : m_cFiles.FilesIn(strSource))
    {
        const std::string strTo = strTarget + pPath->substr(strSource.size());
        const TContent pSource = m_cFiles.Get(*pPath).pContent;
        if (Met(strTo, *pPath) == pSource)
            continue;
        if (!m_cFiles.Has(strTo))
            atActions.push_back(Action(strTo, "branch", *pPath));
        else
        {
            atActions.push_back(Action(strTo, "integrate", *pPath));
            // Now and then the target keeps its own content.
            if (!SameContent(m_cFiles.Get(strTo).pContent, pSource) && m_cRandom.Chance(10))
                atActions.back().strHow = "ignored";
        }
    }
    // Files the source deleted since the two last met.
    for (auto it = m_mapDeleted.lower_bound(strSource); it != m_mapDeleted.end() && StartsWith(it->first, strSource);
         ++it)
    {
        const std::string strTo = strTarget + it->first.substr(strSource.size());
        if (m_cFiles.Has(strTo) && Met(strTo, it->first) != it->second)
            atActions.push_back(Action(strTo, "delete", it->first));
    }
    return atActions;
}

void CGenerator::Apply(const TFileAction& tAction)
{
    m_tCurrent.atFiles.push_back(tAction);
    const std::string& strTo = tAction.strPath;
    if (tAction.strAction == "delete")
    {
        Met(strTo, tAction.strFrom) = m_mapDeleted[tAction.strFrom];
        MarkDeleted(strTo);
        Met(tAction.strFrom, strTo) = m_mapDeleted[strTo];
        return;
    }
    const TFileState tSource = m_cFiles.Get(tAction.strFrom);
    if (tAction.strHow != "ignored")
        m_cFiles.Set(strTo, tSource);
    m_mapDeleted.erase(strTo);
    Met(strTo, tAction.strFrom) = Met(tAction.strFrom, strTo) = tSource.pContent;
}

void CGenerator::Integrate()
{
    // A branch and the stream it was made from, merged one way or the
    // other: everything that changed since they last met (a complete
    // merge), or some of it (a cherry-pick).
    const std::string strBranch = m_astrStreams[1 + m_cRandom.Below(m_astrStreams.size() - 1)];
    const std::string strParent = m_mapParents[strBranch];
    const bool bBack = m_cRandom.Chance(35);
    const std::string& strSource = bBack ? strBranch : strParent;
    const std::string& strTarget = bBack ? strParent : strBranch;
    std::vector<TFileAction> atActions = PendingIntegrations(strSource, strTarget);
    if (atActions.empty())
    {
        Work(strTarget);
        return;
    }
    const bool bComplete = atActions.size() < 2 || m_cRandom.Chance(60);
    Begin((bComplete ? "Merge " : "Cherry-pick from ") + strSource + "... to " + strTarget + "...");
    if (!bComplete)
    {
        // At least one left out, at least one taken.
        const size_t nLeftOut = m_cRandom.Below(atActions.size());
        std::vector<TFileAction> atSome;
        for (size_t i = 0; i < atActions.size(); ++i)
            if (i != nLeftOut && (atSome.empty() || m_cRandom.Chance(50)))
                atSome.push_back(atActions[i]);
        atActions.swap(atSome);
    }
    for (const TFileAction& tAction : atActions)
        Apply(tAction);
    End();
}

void CGenerator::MultiStreamEdit()
{
    Begin("Fix the same " + Word(m_cRandom) + " bug on several branches");
    for (const std::string& strStream : m_astrStreams)
    {
        if (!m_cRandom.Chance(60) && strStream != m_astrStreams[0])
            continue;
        const std::vector<const std::string*>& apFiles = m_cFiles.FilesIn(strStream);
        if (apFiles.empty())
            continue;
        const std::string& strPath = *apFiles[m_cRandom.Below(apFiles.size())];
        if (!Touched(strPath))
            EditFile(strPath);
    }
    if (m_tCurrent.atFiles.empty())
        AddNewFile(m_astrStreams[0]);
    End();
}

} // namespace

void GenerateHistory(const TGenerateOptions& tOptions, CHistorySink& rSink)
{
    CGenerator(tOptions, rSink).Run();
}

} // namespace P4SIM
} // namespace ORVANE
