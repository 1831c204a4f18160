// The store's integration records: what each branch, integration and move
// took from which revisions of which file.
#include "Store.h"

#include "Text.h"

#include <algorithm>

namespace ORVANE {
namespace P4SIM {

namespace {

TIntegRec ReadInteg(const CStatement& cRow)
{
    TIntegRec tInteg;
    tInteg.strToFile = cRow.Text(0);
    tInteg.nToRev = cRow.Int(1);
    tInteg.strFromFile = cRow.Text(2);
    tInteg.nFromStart = cRow.Int(3);
    tInteg.nFromEnd = cRow.Int(4);
    tInteg.strHow = cRow.Text(5);
    tInteg.nChange = cRow.Int(6);
    return tInteg;
}

} // namespace

void CStore::PutInteg(const TIntegRec& tInteg)
{
    Prepare(eQueryIntegPut)
        .Bind(1, tInteg.strToFile)
        .Bind(2, tInteg.nToRev)
        .Bind(3, tInteg.strFromFile)
        .Bind(4, tInteg.nFromStart)
        .Bind(5, tInteg.nFromEnd)
        .Bind(6, tInteg.strHow)
        .Bind(7, tInteg.nChange)
        .Run();
}

std::vector<TIntegRec> CStore::IntegsInto(const std::string& strPrefix)
{
    return ReadRows(Prepare(eQueryIntegsInto).Bind(1, strPrefix).Bind(2, PrefixEnd(strPrefix)), ReadInteg);
}

std::vector<TIntegRec> CStore::IntegsFrom(const std::string& strPrefix)
{
    return ReadRows(Prepare(eQueryIntegsFrom).Bind(1, strPrefix).Bind(2, PrefixEnd(strPrefix)), ReadInteg);
}

namespace {

long long MaxOf(CStatement cQuery)
{
    return cQuery.Step() && !cQuery.IsNull(0) ? cQuery.Int(0) : 0;
}

} // namespace

long long CStore::LastIntegrated(const std::string& strToFile, const std::string& strFromFile)
{
    // The source's revisions that were integrated into the target, or that
    // came from the target themselves.
    return std::max(MaxOf(Prepare(eQueryIntegLast).Bind(1, strToFile).Bind(2, strFromFile)),
                    MaxOf(Prepare(eQueryIntegLastBack).Bind(1, strFromFile).Bind(2, strToFile)));
}

bool CStore::HasIntegs()
{
    // A server made before integration records gets the table with its
    // first write; until then a read finds none.
    bool bThere = false;
    sqlite3_exec(
        m_pDb, "SELECT 1 FROM sqlite_master WHERE type='table' AND name='integs'",
        [](void* pThere, int, char**, char**) {
            *static_cast<bool*>(pThere) = true;
            return 0;
        },
        &bThere, nullptr);
    return bThere;
}

} // namespace P4SIM
} // namespace ORVANE
