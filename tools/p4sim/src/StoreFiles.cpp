// File revisions, contents, have lists and sync marks in the store.
#include "Store.h"

#include "Text.h"

#include <algorithm>

namespace ORVANE {
namespace P4SIM {

namespace {

TRevRec ReadRev(const CStatement& cRow)
{
    TRevRec tRev;
    tRev.strDepotFile = cRow.Text(0);
    tRev.nRev = cRow.Int(1);
    tRev.nChange = cRow.Int(2);
    tRev.strAction = cRow.Text(3);
    tRev.strType = cRow.Text(4);
    tRev.strDigest = cRow.IsNull(5) ? std::string() : cRow.Text(5);
    tRev.nSize = cRow.Int(6);
    tRev.nTime = cRow.Int(7);
    tRev.nModTime = cRow.Int(8);
    return tRev;
}

THaveRec ReadHave(const CStatement& cRow)
{
    return THaveRec{cRow.Text(0), cRow.Text(1), cRow.Int(2)};
}

TSyncMark ReadMark(const CStatement& cRow)
{
    return TSyncMark{cRow.Text(0), cRow.Int(1), cRow.Int(2)};
}

TOpenedRec ReadOpened(const CStatement& cRow)
{
    TOpenedRec tOpened;
    tOpened.nChange = cRow.Int(0);
    tOpened.strDepotFile = cRow.Text(1);
    tOpened.strAction = cRow.Text(2);
    tOpened.strType = cRow.Text(3);
    tOpened.nRev = cRow.Int(4);
    tOpened.strDigest = cRow.IsNull(5) ? std::string() : cRow.Text(5);
    tOpened.nSize = cRow.Int(6);
    tOpened.strFromFile = cRow.Text(7);
    tOpened.nFromRev = cRow.Int(8);
    return tOpened;
}

const char* const s_pszPendingCount = "pendingChanges";

} // namespace

// ---------------------------------------------------------------- revisions

void CStore::PutRev(const TRevRec& tRev)
{
    CStatement cInsert = Prepare(eQueryRevPut);
    cInsert.Bind(1, tRev.strDepotFile).Bind(2, tRev.nRev).Bind(3, tRev.nChange).Bind(4, tRev.strAction);
    cInsert.Bind(5, tRev.strType);
    if (tRev.strDigest.empty())
        cInsert.BindNull(6);
    else
        cInsert.Bind(6, tRev.strDigest);
    cInsert.Bind(7, tRev.nSize).Bind(8, tRev.nTime).Bind(9, tRev.nModTime).Run();
}

void CStore::SetRevAction(const std::string& strDepotFile, long long nRev, const std::string& strAction)
{
    Prepare(eQueryRevSetAction).Bind(1, strAction).Bind(2, strDepotFile).Bind(3, nRev).Run();
}

std::vector<TRevRec> CStore::RevsOfChange(long long nChange)
{
    return ReadRows(Prepare(eQueryRevsOfChange).Bind(1, nChange), ReadRev);
}

std::vector<TRevRec> CStore::HeadsUnder(const std::string& strPrefix, long long nAtChange)
{
    CStatement cQuery = Prepare(eQueryHeadsUnder);
    cQuery.Bind(1, FoldPath(strPrefix)).Bind(2, PrefixEnd(FoldPath(strPrefix))).Bind(3, nAtChange);
    return ReadRows(cQuery, ReadRev);
}

std::optional<TRevRec> CStore::Rev(const std::string& strDepotFile, long long nRev)
{
    return ReadRow(Prepare(eQueryRev).Bind(1, strDepotFile).Bind(2, nRev), ReadRev);
}

std::optional<TRevRec> CStore::HeadRev(const std::string& strDepotFile, long long nAtChange)
{
    return ReadRow(Prepare(eQueryHeadRev).Bind(1, strDepotFile).Bind(2, nAtChange), ReadRev);
}

std::vector<TRevRec> CStore::RevsUnder(const std::string& strPrefix, long long nLow, long long nHigh)
{
    CStatement cQuery = Prepare(eQueryRevsUnderBetween);
    cQuery.Bind(1, FoldPath(strPrefix)).Bind(2, PrefixEnd(FoldPath(strPrefix))).Bind(3, nLow).Bind(4, nHigh);
    return ReadRows(cQuery, ReadRev);
}

long long CStore::CountRevsUnder(const std::string& strPrefix, long long nAtChange)
{
    CStatement cQuery = Prepare(eQueryCountRevsUnder);
    cQuery.Bind(1, FoldPath(strPrefix)).Bind(2, PrefixEnd(FoldPath(strPrefix))).Bind(3, nAtChange);
    return cQuery.Step() ? cQuery.Int(0) : 0;
}

std::vector<TRevRec> CStore::LabelRevsUnder(const std::string& strLabel, const std::string& strPrefix)
{
    CStatement cQuery = Prepare(eQueryLabelRevsUnder);
    cQuery.Bind(1, strLabel).Bind(2, FoldPath(strPrefix)).Bind(3, PrefixEnd(FoldPath(strPrefix)));
    return ReadRows(cQuery, ReadRev);
}

bool CStore::FilesChangedBetween(long long nAfter, long long nUpTo, size_t nLimit, std::vector<std::string>& astrOut)
{
    CStatement cQuery = Prepare(eQueryFilesChangedBetween);
    cQuery.Bind(1, nAfter).Bind(2, nUpTo).Bind(3, static_cast<long long>(nLimit) + 1);
    size_t nRows = 0;
    while (cQuery.Step())
    {
        if (++nRows > nLimit)
            return false;
        astrOut.push_back(cQuery.Text(0));
    }
    return true;
}

// ---------------------------------------------------------------- opened files

bool CStore::HasPending()
{
    long long nCount = 0;
    return ParseUInt(Meta(s_pszPendingCount, "0"), nCount) && nCount > 0;
}

void CStore::AddPendingCount(long long nDelta)
{
    long long nCount = 0;
    if (!ParseUInt(Meta(s_pszPendingCount, "0"), nCount))
        nCount = 0;
    SetMeta(s_pszPendingCount, std::to_string(std::max(0LL, nCount + nDelta)));
}

void CStore::PutOpened(const TOpenedRec& tOpened)
{
    CStatement cInsert = Prepare(eQueryOpenedPut);
    cInsert.Bind(1, tOpened.nChange).Bind(2, tOpened.strDepotFile).Bind(3, tOpened.strAction);
    cInsert.Bind(4, tOpened.strType).Bind(5, tOpened.nRev);
    if (tOpened.strDigest.empty())
        cInsert.BindNull(6);
    else
        cInsert.Bind(6, tOpened.strDigest);
    cInsert.Bind(7, tOpened.nSize).Bind(8, tOpened.strFromFile).Bind(9, tOpened.nFromRev).Run();
}

std::vector<TOpenedRec> CStore::OpenedOfChange(long long nChange)
{
    return ReadRows(Prepare(eQueryOpenedOfChange).Bind(1, nChange), ReadOpened);
}

std::vector<std::pair<long long, std::string>> CStore::OpenedUnder(const std::string& strPrefix)
{
    CStatement cQuery = Prepare(eQueryOpenedUnder);
    cQuery.Bind(1, FoldPath(strPrefix)).Bind(2, PrefixEnd(FoldPath(strPrefix)));
    std::vector<std::pair<long long, std::string>> atOut;
    while (cQuery.Step())
        atOut.emplace_back(cQuery.Int(0), cQuery.Text(1));
    return atOut;
}

void CStore::DeleteOpened(long long nChange)
{
    Prepare(eQueryOpenedDeleteChange).Bind(1, nChange).Run();
}

// ---------------------------------------------------------------- contents

namespace {

std::string ContentKey(const std::string& strDigest, size_t nPart)
{
    return nPart == 0 ? strDigest : strDigest + "+" + std::to_string(nPart);
}

} // namespace

void CStore::PutContent(const std::string& strDigest, const std::string& strData)
{
    size_t nPart = 0;
    size_t nOffset = 0;
    do
    {
        const size_t nSize = std::min(m_nContentPart, strData.size() - nOffset);
        Prepare(eQueryContentPut)
            .Bind(1, ContentKey(strDigest, nPart))
            .BindBlob(2, strData.data() + nOffset, nSize)
            .Run();
        nOffset += nSize;
        ++nPart;
    } while (nOffset < strData.size());
}

std::string CStore::Content(const std::string& strDigest)
{
    std::string strData;
    for (size_t nPart = 0;; ++nPart)
    {
        CStatement cQuery = Prepare(eQueryContent);
        cQuery.Bind(1, ContentKey(strDigest, nPart));
        if (!cQuery.Step())
            break;
        const size_t nBefore = strData.size();
        strData += cQuery.Text(0);
        // A part that is not full is the last one.
        if (strData.size() - nBefore < m_nContentPart)
            break;
    }
    return strData;
}

// ---------------------------------------------------------------- have lists

std::vector<THaveRec> CStore::HaveUnder(const std::string& strClient, const std::string& strClientPrefix)
{
    CStatement cQuery = Prepare(eQueryHaveUnder);
    cQuery.Bind(1, strClient).Bind(2, FoldPath(strClientPrefix)).Bind(3, PrefixEnd(FoldPath(strClientPrefix)));
    return ReadRows(cQuery, ReadHave);
}

std::optional<THaveRec> CStore::Have(const std::string& strClient, const std::string& strClientFile)
{
    return ReadRow(Prepare(eQueryHave).Bind(1, strClient).Bind(2, strClientFile), ReadHave);
}

void CStore::PutHave(const std::string& strClient, const THaveRec& tHave)
{
    Prepare(eQueryHavePut)
        .Bind(1, strClient)
        .Bind(2, tHave.strClientFile)
        .Bind(3, tHave.strDepotFile)
        .Bind(4, tHave.nRev)
        .Run();
}

void CStore::DeleteHave(const std::string& strClient, const std::string& strClientFile)
{
    Prepare(eQueryHaveDelete).Bind(1, strClient).Bind(2, strClientFile).Run();
}

// ---------------------------------------------------------------- sync marks

std::vector<TSyncMark> CStore::SyncMarks(const std::string& strClient)
{
    return ReadRows(Prepare(eQueryMarks).Bind(1, strClient), ReadMark);
}

void CStore::PutSyncMark(const std::string& strClient, const TSyncMark& tMark)
{
    Prepare(eQueryMarkPut)
        .Bind(1, strClient)
        .Bind(2, tMark.strPattern)
        .Bind(3, tMark.nChange)
        .Bind(4, tMark.nHaveCount)
        .Run();
}

void CStore::DeleteSyncMark(const std::string& strClient, const std::string& strPattern)
{
    Prepare(eQueryMarkDelete).Bind(1, strClient).Bind(2, strPattern).Run();
}

} // namespace P4SIM
} // namespace ORVANE
