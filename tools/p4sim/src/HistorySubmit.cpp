// Submitting a history into the server state, change by change.
#include "History.h"

#include "Digest.h"
#include "FileTypes.h"
#include "Store.h"
#include "Text.h"
#include "View.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

namespace ORVANE {
namespace P4SIM {

namespace {

// The common folder of a change's files, as the server shows it in the
// "path" field: //depot/main/... for //depot/main/a and //depot/main/b/c.
std::string CommonPath(const std::vector<TRevRec>& atRevs)
{
    if (atRevs.empty())
        return "";
    const std::string& strFirst = atRevs[0].strDepotFile;
    std::string strPrefix = strFirst.substr(0, strFirst.rfind('/') + 1);
    for (const TRevRec& tRev : atRevs)
    {
        while (!StartsWith(tRev.strDepotFile, strPrefix))
        {
            strPrefix.pop_back();
            strPrefix = strPrefix.substr(0, strPrefix.rfind('/') + 1);
        }
    }
    if (strPrefix.size() < 3)
        strPrefix = "//";
    return strPrefix + "...";
}

// The change record of a change of the history with its number, status and
// files.
TChangeRec ChangeRecord(const TChangeSpec& tChange, long long nNumber, const std::string& strStatus,
                        const std::vector<TRevRec>& atFiles)
{
    TChangeRec tRecord;
    tRecord.nChange = nNumber;
    tRecord.strUser = tChange.strUser;
    tRecord.strClient = tChange.strClient;
    tRecord.nTime = tChange.nTime;
    tRecord.strDescription = tChange.strDescription;
    tRecord.strStatus = strStatus;
    tRecord.strPath = CommonPath(atFiles);
    return tRecord;
}

bool IsAddition(const std::string& strAction)
{
    return strAction == "add" || strAction == "branch" || strAction == "move/add";
}

bool TakesSource(const std::string& strAction)
{
    return strAction == "branch" || strAction == "integrate" || strAction == "move/add";
}

// Which actions each way of resolving an integration goes with.
void CheckHow(const std::string& strAction, const std::string& strHow, const std::string& strWhat)
{
    static const std::map<std::string, std::set<std::string>> s_mapActions = {
        {"branch from", {"branch"}},          {"copy from", {"integrate"}}, {"merge from", {"integrate"}},
        {"edit from", {"integrate", "edit"}}, {"ignored", {"integrate"}},   {"delete from", {"integrate", "delete"}},
        {"moved from", {"move/add"}},
    };
    if (strHow.empty())
    {
        if (TakesSource(strAction))
            throw std::runtime_error(strWhat + ": no 'from'");
        return;
    }
    auto it = s_mapActions.find(strHow);
    if (it == s_mapActions.end())
        throw std::runtime_error(strWhat + ": unknown 'how' '" + strHow + "'");
    if (!it->second.count(strAction))
        throw std::runtime_error(strWhat + ": '" + strHow + "' does not go with the action " + strAction);
}

// A tag's trailing "@N" or "#N" (a path may hold '@' and '#' of its own):
// the path before it, the number, and which of the two it was ('\0' none).
char SplitTag(const std::string& strTag, std::string& strPath, long long& nNumber)
{
    size_t nMark = strTag.find_last_of("@#");
    strPath = strTag;
    nNumber = 0;
    if (nMark == std::string::npos || !ParseUInt(strTag.substr(nMark + 1), nNumber))
        return '\0';
    strPath = strTag.substr(0, nMark);
    return strTag[nMark];
}

// What the server stores of a file's content: Unicode kinds as UTF-8
// without a byte order mark (a utf16 file given as UTF-16 with one is
// translated, as the client does on submit), and a +k file's expanded
// keywords back to "$Id$".
std::string StoredForm(const std::string& strContent, const std::string& strType)
{
    const TFileType tType = ParseFileType(strType);
    std::string strOut = strContent;
    if (tType.IsUtf16())
    {
        std::string strUtf8;
        if (Utf16ToUtf8(strOut, strUtf8))
            strOut = strUtf8;
    }
    if ((tType.IsUtf16() || tType.IsUtf8() || tType.IsUnicode()) && StartsWith(strOut, g_pszUtf8Bom))
        strOut.erase(0, 3);
    return ContractKeywords(strOut, tType.eKeywords);
}

// A unicode server keeps only UTF-8 in its metadata.
void CheckUtf8(bool bUnicode, const std::string& strText, const std::string& strWhat)
{
    if (bUnicode && !IsUtf8(strText))
        throw std::runtime_error(strWhat + " is not UTF-8, which a unicode server refuses");
}

} // namespace

std::string DefaultHow(const TFileAction& tAction)
{
    if (!tAction.strHow.empty())
        return tAction.strHow;
    if (tAction.strAction == "branch")
        return "branch from";
    if (tAction.strAction == "integrate")
        return tAction.pContent ? "merge from" : "copy from";
    if (tAction.strAction == "move/add")
        return "moved from";
    if (tAction.strAction == "delete")
        return "delete from";
    return "edit from";
}

CSubmitter::CSubmitter(CStore& rStore) : m_rStore(rStore), m_nNext(rStore.MaxChange() + 1), m_bUnicode(rStore.Unicode())
{
}

void CSubmitter::AddUsers(const std::vector<TUserRec>& atUsers)
{
    for (const TUserRec& tUser : atUsers)
    {
        CheckUtf8(m_bUnicode, tUser.strName + tUser.strFullName + tUser.strEmail, "user " + tUser.strName);
        m_rStore.PutUser(tUser);
    }
}

std::vector<TFileAction> CSubmitter::ActionsOf(const TChangeSpec& tChange, long long nNumber) const
{
    // Each file once per change; move/add brings its move/delete along.
    std::vector<TFileAction> atActions = tChange.atFiles;
    std::set<std::string> setSeen;
    for (const TFileAction& tAction : tChange.atFiles)
        setSeen.insert(FoldPath(tAction.strPath));
    for (const TFileAction& tAction : tChange.atFiles)
    {
        // A move/add from another stream ("how": "moved from") is an
        // integration: the change names the file it replaces itself.
        if (tAction.strAction != "move/add" || !tAction.strHow.empty())
            continue;
        if (tAction.strFrom.empty())
            throw std::runtime_error("move/add of " + tAction.strPath + " without 'from'");
        if (setSeen.insert(FoldPath(tAction.strFrom)).second)
        {
            TFileAction tDelete;
            tDelete.strPath = tAction.strFrom;
            tDelete.strAction = "move/delete";
            atActions.push_back(tDelete);
        }
    }
    if (setSeen.size() != atActions.size())
        throw std::runtime_error("change " + std::to_string(nNumber) + " names a file twice");
    return atActions;
}

TRevRec CSubmitter::SourceOf(const TFileAction& tAction, long long nNumber, const std::string& strWhat, bool bDeleted)
{
    if (tAction.strFrom.empty())
        throw std::runtime_error(strWhat + ": no 'from'");
    std::string strSource = EscapeName(tAction.strFrom);
    std::optional<TRevRec> tSource =
        tAction.nFromRev ? m_rStore.Rev(strSource, tAction.nFromRev) : m_rStore.HeadRev(strSource, nNumber - 1);
    if (!tSource || (!bDeleted && !tSource->HasContent()))
        throw std::runtime_error(strWhat + ": no such source " + tAction.strFrom);
    if (bDeleted && !tSource->Deleted())
        throw std::runtime_error(strWhat + ": the source " + tAction.strFrom + " is not deleted");
    if (tSource->nChange >= nNumber)
        throw std::runtime_error(strWhat + ": the source revision is not older than the change");
    return *tSource;
}

// A branch, integration or move takes the source's content and type unless
// the action gives them; the source's digest and size come along unread.
void CSubmitter::TakeSource(const TFileAction& tAction, long long nNumber, const std::string& strWhat, TRevRec& tRev,
                            std::shared_ptr<const std::string>& pContent)
{
    const TRevRec tSource = SourceOf(tAction, nNumber, strWhat, false);
    if (!pContent)
    {
        tRev.strDigest = tSource.strDigest;
        tRev.nSize = tSource.nSize;
    }
    if (tRev.strType.empty())
        tRev.strType = tSource.strType;
}

TIntegRec CSubmitter::IntegrationOf(const TFileAction& tAction, const std::string& strHow, const TRevRec& tSource,
                                    const TRevRec& tTarget)
{
    TIntegRec tInteg;
    tInteg.strToFile = tTarget.strDepotFile;
    tInteg.nToRev = tTarget.nRev;
    tInteg.strFromFile = tSource.strDepotFile;
    tInteg.nFromEnd = tSource.nRev;
    tInteg.strHow = strHow;
    tInteg.nChange = tTarget.nChange;
    // The revisions after the last one integrated before: all of them for
    // a move, or from the one given.
    if (tAction.nFromRevStart > 0)
        tInteg.nFromStart = tAction.nFromRevStart - 1;
    else if (strHow != "moved from")
        tInteg.nFromStart = m_rStore.LastIntegrated(tInteg.strToFile, tInteg.strFromFile);
    if (tInteg.nFromStart >= tInteg.nFromEnd)
        tInteg.nFromStart = tInteg.nFromEnd - 1;
    return tInteg;
}

TRevRec CSubmitter::RevisionFor(const TFileAction& tAction, const TChangeSpec& tChange, long long nNumber,
                                TIntegRec& tInteg)
{
    TRevRec tRev;
    tRev.strDepotFile = EscapeName(tAction.strPath);
    std::optional<TRevRec> tHead = m_rStore.HeadRev(tRev.strDepotFile, nNumber - 1);
    // A server that compares paths without case keeps a file's first name.
    if (tHead)
        tRev.strDepotFile = tHead->strDepotFile;
    CheckUtf8(m_bUnicode, tRev.strDepotFile, "the path " + tRev.strDepotFile);
    bool bExists = tHead && !tHead->Deleted();
    tRev.nRev = tHead ? tHead->nRev + 1 : 1;
    tRev.nChange = nNumber;
    tRev.strAction = tAction.strAction;
    tRev.nTime = tRev.nModTime = tChange.nTime;
    tRev.strType = tAction.strType;
    std::string strWhat = tAction.strAction + " of " + tAction.strPath + " in change " + std::to_string(nNumber);
    const std::string strHow = tAction.strFrom.empty() ? std::string() : DefaultHow(tAction);
    CheckHow(tAction.strAction, strHow, strWhat);
    // An integration of a deleted source deletes the target.
    if (strHow == "delete from")
        tRev.strAction = "delete";
    if (IsAddition(tAction.strAction) && bExists)
        throw std::runtime_error(strWhat + ": the file exists");
    if (!IsAddition(tAction.strAction) && !bExists)
        throw std::runtime_error(strWhat + ": no such file");
    std::shared_ptr<const std::string> pContent = tAction.pContent;
    if (!strHow.empty())
    {
        const TRevRec tSource = SourceOf(tAction, nNumber, strWhat, strHow == "delete from");
        tInteg = IntegrationOf(tAction, strHow, tSource, tRev);
        // An ignored integration keeps the target's content.
        if (strHow == "ignored" && !pContent)
        {
            tRev.strDigest = tHead->strDigest;
            tRev.nSize = tHead->nSize;
        }
        else if (strHow != "delete from")
            TakeSource(tAction, nNumber, strWhat, tRev, pContent);
        if (tRev.strType.empty())
            tRev.strType = strHow == "ignored" || strHow == "delete from" ? tHead->strType : tSource.strType;
    }
    if (tRev.Deleted())
    {
        if (tRev.strType.empty())
            tRev.strType = tHead->strType;
        tRev.strDigest.clear();
        tRev.nSize = 0;
        return tRev;
    }
    if (tRev.strType.empty())
        tRev.strType = bExists ? tHead->strType : "text";
    if (ParseFileType(tRev.strType).IsUnicode() && !m_bUnicode)
        throw std::runtime_error(strWhat + ": the unicode type needs a unicode server");
    const bool bGone = tAction.bPurged || tAction.bArchived;
    if (bGone)
        tRev.strAction = tAction.bPurged ? "purge" : "archive";
    if (tAction.strAction == "edit" && !pContent && !bGone)
        throw std::runtime_error(strWhat + ": no content");
    if (bGone && !pContent && !TakesSource(tAction.strAction))
    {
        // Nothing is known of the content but that it is gone.
        tRev.strDigest.clear();
        tRev.nSize = 0;
        return tRev;
    }
    if (pContent || tRev.strDigest.empty())
    {
        const std::string strContent = pContent ? StoredForm(*pContent, tRev.strType) : std::string();
        tRev.strDigest = Md5Hex(strContent);
        tRev.nSize = static_cast<long long>(strContent.size());
        if (!bGone)
            m_rStore.PutContent(tRev.strDigest, strContent);
    }
    return tRev;
}

// A +S type keeps the content of the newest revision only (+S<n>: the
// newest n): older ones are purged when a new one is submitted.
void CSubmitter::PurgeOlderRevisions(const TRevRec& tRev)
{
    const int nKeep = ParseFileType(tRev.strType).nStoredRevisions;
    if (nKeep <= 0 || !tRev.HasContent())
        return;
    int nKept = 1;
    for (long long nRev = tRev.nRev - 1; nRev >= 1; --nRev)
    {
        std::optional<TRevRec> tOlder = m_rStore.Rev(tRev.strDepotFile, nRev);
        if (!tOlder || !tOlder->HasContent())
            continue;
        if (nKept < nKeep)
        {
            ++nKept;
            continue;
        }
        m_rStore.SetRevAction(tRev.strDepotFile, nRev, "purge");
    }
}

void CSubmitter::AddUserOf(const TChangeSpec& tChange)
{
    if (m_rStore.User(tChange.strUser))
        return;
    TUserRec tUser;
    tUser.strName = tChange.strUser;
    tUser.strEmail = tChange.strUser + "@" + tChange.strClient;
    tUser.strFullName = tChange.strUser;
    tUser.nUpdated = tUser.nAccessed = tChange.nTime;
    m_rStore.PutUser(tUser);
}

long long CSubmitter::NumberFor(const TChangeSpec& tChange)
{
    long long nNumber = tChange.nChange ? tChange.nChange : m_nNext;
    if (nNumber < m_nNext)
    {
        throw std::runtime_error("change " + std::to_string(nNumber) + " is not above the last change " +
                                 std::to_string(m_nNext - 1));
    }
    m_nNext = nNumber + 1;
    m_nLastTime = tChange.nTime;
    return nNumber;
}

void CSubmitter::AddChange(const TChangeSpec& tChange)
{
    if (tChange.nSubmit)
    {
        SubmitPending(tChange);
        return;
    }
    if (tChange.strStatus != "submitted")
    {
        AddPending(tChange);
        return;
    }
    StoreSubmitted(tChange, NumberFor(tChange));
}

void CSubmitter::StoreSubmitted(const TChangeSpec& tChange, long long nNumber)
{
    if (tChange.atFiles.empty())
        throw std::runtime_error("change " + std::to_string(nNumber) + " has no files");
    // All revisions are worked out against the state before the change,
    // then stored.
    std::vector<TRevRec> atRevs;
    std::vector<TIntegRec> atIntegs;
    for (const TFileAction& tAction : ActionsOf(tChange, nNumber))
    {
        TIntegRec tInteg;
        atRevs.push_back(RevisionFor(tAction, tChange, nNumber, tInteg));
        if (tInteg.nToRev)
            atIntegs.push_back(tInteg);
    }
    for (const TRevRec& tRev : atRevs)
    {
        m_rStore.PutRev(tRev);
        PurgeOlderRevisions(tRev);
    }
    for (const TIntegRec& tInteg : atIntegs)
        m_rStore.PutInteg(tInteg);
    CheckUtf8(m_bUnicode, tChange.strDescription + tChange.strUser + tChange.strClient,
              "change " + std::to_string(nNumber) + "'s description, user or client");

    TChangeRec tRecord = ChangeRecord(tChange, nNumber, "submitted", atRevs);
    m_rStore.PutChange(tRecord);
    AddUserOf(tChange);
}

// A file opened in a pending change: checked as its submission would be,
// against the head before the change, without any revision.
TOpenedRec CSubmitter::OpenedFor(const TFileAction& tAction, long long nNumber, bool bShelved)
{
    TOpenedRec tOpened;
    tOpened.nChange = nNumber;
    tOpened.strDepotFile = EscapeName(tAction.strPath);
    tOpened.strAction = tAction.strAction;
    tOpened.strType = tAction.strType;
    std::optional<TRevRec> tHead = m_rStore.HeadRev(tOpened.strDepotFile, nNumber - 1);
    if (tHead)
        tOpened.strDepotFile = tHead->strDepotFile;
    bool bExists = tHead && !tHead->Deleted();
    tOpened.nRev = tHead ? tHead->nRev : 0;
    std::string strWhat = tAction.strAction + " of " + tAction.strPath + " in change " + std::to_string(nNumber);
    if (IsAddition(tAction.strAction) && bExists)
        throw std::runtime_error(strWhat + ": the file exists");
    if (!IsAddition(tAction.strAction) && !bExists)
        throw std::runtime_error(strWhat + ": no such file");
    if (!tAction.strFrom.empty())
    {
        tOpened.strFromFile = EscapeName(tAction.strFrom);
        tOpened.nFromRev = tAction.nFromRev;
    }
    // Branches, integrations and moves take the source's type (and, when
    // shelved without content, its content).
    TRevRec tFromSource;
    std::shared_ptr<const std::string> pContent = tAction.pContent;
    if (TakesSource(tAction.strAction))
    {
        tFromSource.strType = tOpened.strType;
        TakeSource(tAction, nNumber, strWhat, tFromSource, pContent);
        tOpened.strType = tFromSource.strType;
    }
    bool bDelete = tAction.strAction == "delete" || tAction.strAction == "move/delete";
    if (tOpened.strType.empty())
        tOpened.strType = tHead ? tHead->strType : "text";
    if (bDelete)
        return tOpened;
    if (pContent)
    {
        const std::string strContent = StoredForm(*pContent, tOpened.strType);
        tOpened.strDigest = Md5Hex(strContent);
        tOpened.nSize = static_cast<long long>(strContent.size());
        m_rStore.PutContent(tOpened.strDigest, strContent);
    }
    else if (bShelved && !tFromSource.strDigest.empty())
    {
        tOpened.strDigest = tFromSource.strDigest;
        tOpened.nSize = tFromSource.nSize;
    }
    else if (bShelved && tAction.strAction == "edit")
    {
        throw std::runtime_error(strWhat + ": no content to shelve");
    }
    else if (bShelved)
    {
        tOpened.strDigest = Md5Hex("");
        m_rStore.PutContent(tOpened.strDigest, "");
    }
    return tOpened;
}

void CSubmitter::AddPending(const TChangeSpec& tChange)
{
    long long nNumber = NumberFor(tChange);
    bool bShelved = tChange.strStatus == "shelved";
    std::vector<TOpenedRec> atOpened;
    std::vector<TRevRec> atPaths;
    for (const TFileAction& tAction : ActionsOf(tChange, nNumber))
    {
        atOpened.push_back(OpenedFor(tAction, nNumber, bShelved));
        TRevRec tPath;
        tPath.strDepotFile = atOpened.back().strDepotFile;
        atPaths.push_back(tPath);
    }
    for (const TOpenedRec& tOpened : atOpened)
        m_rStore.PutOpened(tOpened);
    std::sort(atPaths.begin(), atPaths.end(),
              [](const TRevRec& tA, const TRevRec& tB) { return tA.strDepotFile < tB.strDepotFile; });
    TChangeRec tRecord = ChangeRecord(tChange, nNumber, tChange.strStatus, atPaths);
    m_rStore.PutChange(tRecord);
    m_rStore.AddPendingCount(1);
    AddUserOf(tChange);
}

// As `p4 submit -c N`: the pending change's files become revisions, under
// the next number when newer changes exist.
void CSubmitter::SubmitPending(const TChangeSpec& tSubmit)
{
    const long long nPending = tSubmit.nSubmit;
    const std::string strWhat = "submit of change " + std::to_string(nPending);
    std::optional<TChangeRec> tRecord = m_rStore.Change(nPending);
    if (!tRecord || tRecord->Submitted())
        throw std::runtime_error(strWhat + ": no pending change " + std::to_string(nPending));
    TChangeSpec tChange;
    tChange.strUser = tRecord->strUser;
    tChange.strClient = tRecord->strClient;
    tChange.nTime = tSubmit.nTime ? tSubmit.nTime : tRecord->nTime;
    tChange.strDescription = tSubmit.strDescription.empty() ? tRecord->strDescription : tSubmit.strDescription;
    std::map<std::string, const TFileAction*> mapGiven;
    for (const TFileAction& tGiven : tSubmit.atFiles)
        mapGiven[EscapeName(tGiven.strPath)] = &tGiven;
    for (const TOpenedRec& tOpened : m_rStore.OpenedOfChange(nPending))
    {
        TFileAction tAction;
        tAction.strPath = UnescapeName(tOpened.strDepotFile);
        tAction.strAction = tOpened.strAction;
        tAction.strType = tOpened.strType;
        tAction.strFrom = UnescapeName(tOpened.strFromFile);
        tAction.nFromRev = tOpened.nFromRev;
        if (!tOpened.strDigest.empty())
            tAction.pContent = std::make_shared<const std::string>(m_rStore.Content(tOpened.strDigest));
        auto itGiven = mapGiven.find(tOpened.strDepotFile);
        if (itGiven != mapGiven.end())
        {
            if (itGiven->second->pContent)
                tAction.pContent = itGiven->second->pContent;
            mapGiven.erase(itGiven);
        }
        tChange.atFiles.push_back(tAction);
    }
    if (!mapGiven.empty())
        throw std::runtime_error(strWhat + ": " + UnescapeName(mapGiven.begin()->first) + " is not opened in it");
    // The highest number so far keeps its number; an older one is renamed.
    const bool bRenamed = nPending != m_nNext - 1;
    const long long nNumber = bRenamed ? m_nNext : nPending;
    m_rStore.DeleteOpened(nPending);
    m_rStore.DeleteChange(nPending);
    m_rStore.AddPendingCount(-1);
    m_nNext = nNumber + 1;
    m_nLastTime = tChange.nTime;
    StoreSubmitted(tChange, nNumber);
    m_astrMessages.push_back(bRenamed ? "Change " + std::to_string(nPending) + " renamed change " +
                                            std::to_string(nNumber) + " and submitted."
                                      : "Change " + std::to_string(nPending) + " submitted.");
}

void CSubmitter::Finish(const std::vector<TBranchRec>& atBranches, const std::vector<TClientRec>& atClients)
{
    for (TBranchRec tBranch : atBranches)
    {
        if (!tBranch.nUpdated)
            tBranch.nUpdated = tBranch.nAccessed = m_nLastTime;
        m_rStore.PutBranch(tBranch);
    }
    for (TClientRec tClient : atClients)
    {
        if (!tClient.nUpdated)
            tClient.nUpdated = tClient.nAccessed = m_nLastTime;
        m_rStore.PutClient(tClient);
    }
    m_rStore.SetMeta("change", std::to_string(m_nNext - 1));
}

void CSubmitter::AddLabels(const std::vector<TLabelSpec>& atLabels)
{
    for (const TLabelSpec& tSpec : atLabels)
    {
        // One revision per file: a later tag of the same file wins, as with
        // `p4 tag`. Deleted revisions are not tagged.
        std::map<std::string, long long> mapRevs;
        for (const std::string& strTag : tSpec.astrTags)
        {
            std::string strPath;
            long long nNumber = 0;
            const char cKind = SplitTag(strTag, strPath, nNumber);
            const std::string strPattern = EscapeName(strPath);
            std::vector<TRevRec> atRevs;
            if (cKind == '#')
            {
                std::optional<TRevRec> tRev = m_rStore.Rev(strPattern, nNumber);
                if (tRev)
                    atRevs.push_back(*tRev);
            }
            else
                atRevs = m_rStore.HeadsUnder(LiteralPrefix(strPattern), cKind == '@' ? nNumber : m_nNext - 1);
            size_t nTagged = 0;
            for (const TRevRec& tRev : atRevs)
            {
                if (!tRev.HasContent() || !WildMatch(strPattern, tRev.strDepotFile))
                    continue;
                mapRevs[tRev.strDepotFile] = tRev.nRev;
                ++nTagged;
            }
            if (nTagged == 0)
                throw std::runtime_error("label " + tSpec.tLabel.strName + ": " + strTag + " names no revision");
        }
        TLabelRec tLabel = tSpec.tLabel;
        if (!tLabel.nUpdated)
            tLabel.nUpdated = tLabel.nAccessed = m_nLastTime;
        m_rStore.PutLabel(tLabel, std::vector<std::pair<std::string, long long>>(mapRevs.begin(), mapRevs.end()));
    }
}

void CHistoryCollector::AddUsers(const std::vector<TUserRec>& atUsers)
{
    m_tHistory.atUsers.insert(m_tHistory.atUsers.end(), atUsers.begin(), atUsers.end());
    m_rNext.AddUsers(atUsers);
}

void CHistoryCollector::AddChange(const TChangeSpec& tChange)
{
    m_tHistory.atChanges.push_back(tChange);
    m_rNext.AddChange(tChange);
}

void CHistoryCollector::Finish(const std::vector<TBranchRec>& atBranches, const std::vector<TClientRec>& atClients)
{
    m_tHistory.atBranches.insert(m_tHistory.atBranches.end(), atBranches.begin(), atBranches.end());
    m_tHistory.atClients.insert(m_tHistory.atClients.end(), atClients.begin(), atClients.end());
    m_rNext.Finish(atBranches, atClients);
}

void CHistoryCollector::AddLabels(const std::vector<TLabelSpec>& atLabels)
{
    m_tHistory.atLabels.insert(m_tHistory.atLabels.end(), atLabels.begin(), atLabels.end());
    m_rNext.AddLabels(atLabels);
}

namespace {

// Whether every text of the server is UTF-8, as `p4d -xi` checks before it
// switches a server to unicode mode: the number of tables that are not.
int TablesWithOtherText(CStore& rStore)
{
    int nTables = 0;
    bool bBad = false;
    for (const TUserRec& tUser : rStore.Users())
        bBad = bBad || !IsUtf8(tUser.strName + tUser.strFullName + tUser.strEmail);
    nTables += bBad ? 1 : 0;
    bBad = false;
    rStore.VisitChanges(1, rStore.MaxChange(), true, [&](const TChangeRec& tChange) {
        bBad = !IsUtf8(tChange.strDescription + tChange.strUser + tChange.strClient);
        return !bBad;
    });
    nTables += bBad ? 1 : 0;
    bBad = false;
    for (const TRevRec& tRev : rStore.HeadsUnder("//", rStore.MaxChange()))
        bBad = bBad || !IsUtf8(tRev.strDepotFile);
    return nTables + (bBad ? 1 : 0);
}

} // namespace

void ApplyServerSettings(CStore& rStore, const THistory& tHistory)
{
    if (tHistory.nUnicode == 0 && rStore.Unicode())
        throw std::runtime_error("the server is in unicode mode, which cannot be switched off");
    if (tHistory.nUnicode == 1 && !rStore.Unicode())
    {
        const int nTables = TablesWithOtherText(rStore);
        if (nTables > 0)
            throw std::runtime_error("Database has " + std::to_string(nTables) +
                                     " tables with non-UTF8 text and can't be switched to Unicode mode.");
        rStore.SetUnicode();
    }
    if (tHistory.strCaseHandling.empty() || (tHistory.strCaseHandling == "insensitive") == rStore.CaseInsensitive())
        return;
    if (rStore.MaxChange() > 0)
        throw std::runtime_error("the server's case handling cannot change once it has changes");
    if (tHistory.strCaseHandling == "insensitive")
        rStore.MakeCaseInsensitive();
}

std::vector<std::string> SubmitHistory(CStore& rStore, const THistory& tHistory)
{
    ApplyServerSettings(rStore, tHistory);
    CSubmitter cSubmitter(rStore);
    cSubmitter.AddUsers(tHistory.atUsers);
    for (const TChangeSpec& tChange : tHistory.atChanges)
        cSubmitter.AddChange(tChange);
    cSubmitter.Finish(tHistory.atBranches, tHistory.atClients);
    cSubmitter.AddLabels(tHistory.atLabels);
    for (const std::string& strUser : tHistory.astrDeletedUsers)
        rStore.DeleteUser(strUser);
    if (tHistory.nMaxResults >= 0)
        rStore.SetMaxResults(tHistory.nMaxResults);
    if (tHistory.nMaxScanRows >= 0)
        rStore.SetMaxScanRows(tHistory.nMaxScanRows);
    return cSubmitter.Messages();
}

} // namespace P4SIM
} // namespace ORVANE
