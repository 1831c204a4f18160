// Users, changelists, branch, label and client specifications in the store.
#include "Store.h"

#include "Text.h"

namespace ORVANE {
namespace P4SIM {

namespace {

TUserRec ReadUser(const CStatement& cRow)
{
    TUserRec tUser;
    tUser.strName = cRow.Text(0);
    tUser.strEmail = cRow.Text(1);
    tUser.strFullName = cRow.Text(2);
    tUser.nUpdated = cRow.Int(3);
    tUser.nAccessed = cRow.Int(4);
    return tUser;
}

TChangeRec ReadChange(const CStatement& cRow)
{
    TChangeRec tChange;
    tChange.nChange = cRow.Int(0);
    tChange.strUser = cRow.Text(1);
    tChange.strClient = cRow.Text(2);
    tChange.nTime = cRow.Int(3);
    tChange.strDescription = cRow.Text(4);
    tChange.strStatus = cRow.Text(5);
    tChange.strPath = cRow.Text(6);
    return tChange;
}

// Branches and labels: name, owner, description, options, view, updated,
// accessed.
template <class T> T ReadViewSpec(const CStatement& cRow)
{
    T tSpec;
    tSpec.strName = cRow.Text(0);
    tSpec.strOwner = cRow.Text(1);
    tSpec.strDescription = cRow.Text(2);
    tSpec.strOptions = cRow.Text(3);
    tSpec.astrView = SplitLines(cRow.Text(4));
    tSpec.nUpdated = cRow.Int(5);
    tSpec.nAccessed = cRow.Int(6);
    return tSpec;
}

TBranchRec ReadBranch(const CStatement& cRow)
{
    return ReadViewSpec<TBranchRec>(cRow);
}

TLabelRec ReadLabel(const CStatement& cRow)
{
    return ReadViewSpec<TLabelRec>(cRow);
}

void PutViewSpec(CStatement cInsert, const TViewSpecRec& tSpec)
{
    cInsert.Bind(1, tSpec.strName)
        .Bind(2, tSpec.strOwner)
        .Bind(3, tSpec.strDescription)
        .Bind(4, tSpec.strOptions)
        .Bind(5, JoinLines(tSpec.astrView))
        .Bind(6, tSpec.nUpdated)
        .Bind(7, tSpec.nAccessed)
        .Run();
}

TClientRec ReadClient(const CStatement& cRow)
{
    TClientRec tClient;
    tClient.strName = cRow.Text(0);
    tClient.strOwner = cRow.Text(1);
    tClient.strHost = cRow.Text(2);
    tClient.strDescription = cRow.Text(3);
    tClient.strRoot = cRow.Text(4);
    tClient.strOptions = cRow.Text(5);
    tClient.strSubmitOptions = cRow.Text(6);
    tClient.strLineEnd = cRow.Text(7);
    tClient.astrView = SplitLines(cRow.Text(8));
    tClient.nUpdated = cRow.Int(9);
    tClient.nAccessed = cRow.Int(10);
    return tClient;
}

} // namespace

// ---------------------------------------------------------------- users

std::vector<TUserRec> CStore::Users()
{
    return ReadRows(Prepare(eQueryUsers), ReadUser);
}

std::optional<TUserRec> CStore::User(const std::string& strName)
{
    return ReadRow(Prepare(eQueryUser).Bind(1, strName), ReadUser);
}

void CStore::PutUser(const TUserRec& tUser)
{
    Prepare(eQueryUserPut)
        .Bind(1, tUser.strName)
        .Bind(2, tUser.strEmail)
        .Bind(3, tUser.strFullName)
        .Bind(4, tUser.nUpdated)
        .Bind(5, tUser.nAccessed)
        .Run();
}

void CStore::DeleteUser(const std::string& strName)
{
    Prepare(eQueryUserDelete).Bind(1, strName).Run();
}

// ---------------------------------------------------------------- changes

long long CStore::MaxChange()
{
    CStatement cQuery = Prepare(eQueryMaxChange);
    return cQuery.Step() ? cQuery.Int(0) : 0;
}

long long CStore::MaxSubmittedChange()
{
    CStatement cQuery = Prepare(eQueryMaxSubmittedChange);
    return cQuery.Step() ? cQuery.Int(0) : 0;
}

void CStore::DeleteChange(long long nChange)
{
    Prepare(eQueryChangeDelete).Bind(1, nChange).Run();
}

std::optional<TChangeRec> CStore::Change(long long nChange)
{
    return ReadRow(Prepare(eQueryChange).Bind(1, nChange), ReadChange);
}

void CStore::PutChange(const TChangeRec& tChange)
{
    Prepare(eQueryChangePut)
        .Bind(1, tChange.nChange)
        .Bind(2, tChange.strUser)
        .Bind(3, tChange.strClient)
        .Bind(4, tChange.nTime)
        .Bind(5, tChange.strDescription)
        .Bind(6, tChange.strStatus)
        .Bind(7, tChange.strPath)
        .Run();
}

void CStore::VisitChanges(long long nLow, long long nHigh, bool bOldestFirst,
                          const std::function<bool(const TChangeRec&)>& fnVisit)
{
    CStatement cQuery = Prepare(bOldestFirst ? eQueryChangesOldestFirst : eQueryChangesNewestFirst);
    cQuery.Bind(1, nLow).Bind(2, nHigh);
    while (cQuery.Step())
    {
        if (!fnVisit(ReadChange(cQuery)))
            return;
    }
}

void CStore::VisitRevsByChange(long long nLow, long long nHigh, const std::string& strPrefix, bool bOldestFirst,
                               const std::function<bool(long long, const std::string&)>& fnVisit)
{
    CStatement cQuery = Prepare(bOldestFirst ? eQueryRevsByChangeOldestFirst : eQueryRevsByChangeNewestFirst);
    cQuery.Bind(1, nLow).Bind(2, nHigh).Bind(3, FoldPath(strPrefix)).Bind(4, PrefixEnd(FoldPath(strPrefix)));
    while (cQuery.Step())
    {
        if (!fnVisit(cQuery.Int(0), cQuery.Text(1)))
            return;
    }
}

// ---------------------------------------------------------------- branches

std::vector<TBranchRec> CStore::Branches()
{
    return ReadRows(Prepare(eQueryBranches), ReadBranch);
}

std::optional<TBranchRec> CStore::Branch(const std::string& strName)
{
    return ReadRow(Prepare(eQueryBranch).Bind(1, strName), ReadBranch);
}

void CStore::PutBranch(const TBranchRec& tBranch)
{
    PutViewSpec(Prepare(eQueryBranchPut), tBranch);
}

void CStore::DeleteBranch(const std::string& strName)
{
    Prepare(eQueryBranchDelete).Bind(1, strName).Run();
}

// ---------------------------------------------------------------- labels

std::vector<TLabelRec> CStore::Labels()
{
    return ReadRows(Prepare(eQueryLabels), ReadLabel);
}

std::optional<TLabelRec> CStore::Label(const std::string& strName)
{
    return ReadRow(Prepare(eQueryLabel).Bind(1, strName), ReadLabel);
}

void CStore::PutLabel(const TLabelRec& tLabel, const std::vector<std::pair<std::string, long long>>& atRevs)
{
    PutViewSpec(Prepare(eQueryLabelPut), tLabel);
    Prepare(eQueryLabelRevsDelete).Bind(1, tLabel.strName).Run();
    for (const auto& tRev : atRevs)
        Prepare(eQueryLabelRevPut).Bind(1, tLabel.strName).Bind(2, tRev.first).Bind(3, tRev.second).Run();
}

// ---------------------------------------------------------------- clients

std::vector<TClientRec> CStore::Clients()
{
    return ReadRows(Prepare(eQueryClients), ReadClient);
}

std::optional<TClientRec> CStore::Client(const std::string& strName)
{
    return ReadRow(Prepare(eQueryClient).Bind(1, strName), ReadClient);
}

void CStore::PutClient(const TClientRec& tClient)
{
    Prepare(eQueryClientPut)
        .Bind(1, tClient.strName)
        .Bind(2, tClient.strOwner)
        .Bind(3, tClient.strHost)
        .Bind(4, tClient.strDescription)
        .Bind(5, tClient.strRoot)
        .Bind(6, tClient.strOptions)
        .Bind(7, tClient.strSubmitOptions)
        .Bind(8, tClient.strLineEnd)
        .Bind(9, JoinLines(tClient.astrView))
        .Bind(10, tClient.nUpdated)
        .Bind(11, tClient.nAccessed)
        .Run();
    Prepare(eQueryMarksDeleteClient).Bind(1, tClient.strName).Run();
}

void CStore::TouchClient(const std::string& strName, long long nAccessed)
{
    Prepare(eQueryClientTouch).Bind(1, nAccessed).Bind(2, strName).Run();
}

void CStore::DeleteClient(const std::string& strName)
{
    Prepare(eQueryClientDelete).Bind(1, strName).Run();
    Prepare(eQueryHaveDeleteClient).Bind(1, strName).Run();
    Prepare(eQueryMarksDeleteClient).Bind(1, strName).Run();
}

} // namespace P4SIM
} // namespace ORVANE
