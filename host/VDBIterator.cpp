// Cursors of the record database.
#include <atomic>

#include "host/VDBStore.h"

namespace ORVANE {
namespace VDB {
namespace Detail {

namespace {
std::atomic<uint64_t> s_nNextCursorId{1};
} // namespace

// The state of one cursor. Its place is the key (and, in an index whose
// keys may repeat, the rowid) of the current record, or of the record last
// removed through it; every step starts from there. While nothing has been
// written since its last read, a step goes on reading the rows of the
// statement that read that record instead of seeking the place again.
class CCursor
{
public:
    CCursor(const std::shared_ptr<CTableState>& pTable, size_t nIndex, const TFieldBinding* pBindings,
            uint64_t nTransaction)
        : m_pTable(pTable), m_nIndex(nIndex), m_pBindings(pBindings), m_nTransaction(nTransaction)
    {
    }
    CCursor(const CCursor& other)
        : m_pTable(other.m_pTable), m_nIndex(other.m_nIndex), m_pBindings(other.m_pBindings),
          m_nTransaction(other.m_nTransaction), m_bPlaced(other.m_bPlaced), m_bCurrent(other.m_bCurrent),
          m_aPlace(other.m_aPlace), m_nRowid(other.m_nRowid), m_nFilterType(other.m_nFilterType),
          m_nFilterFields(other.m_nFilterFields), m_aFilter(other.m_aFilter), m_nTopCount(other.m_nTopCount),
          m_nWalkCount(other.m_nWalkCount)
    {
    }
    CCursor& operator=(const CCursor&) = delete;

    // The table, when the cursor may work now.
    std::shared_ptr<CTableState> Enter() const
    {
        std::shared_ptr<CTableState> pTable = m_pTable.lock();
        if (!pTable)
            return nullptr;
        if (m_nTransaction != 0 && !pTable->GetStore()->IsActive(m_nTransaction))
            return nullptr;
        if (!pTable->EnsureCreated())
            return nullptr;
        return pTable;
    }

    bool Seek(TIndexQuery eQuery, const std::vector<TValue>* paParams, void* pRecord, int nDirection, bool bEqual,
              bool bStartsWalk);
    bool Step(int nDirection, void* pRecord);
    bool Add(void* pRecord, bool bReplace);
    bool Update(void* pRecord);
    bool AddNew();
    bool Delete(void* pRecord);
    int ExecSP(void* pRecord, int nProcedure);
    bool KeyFilter(const void* pRecord, int nFields, TKeyFilterType eType);
    void ClearRecord(void* pRecord) const;

    std::weak_ptr<CTableState> m_pTable;
    size_t m_nIndex;
    const TFieldBinding* m_pBindings;
    uint64_t m_nTransaction; // 0: whatever transaction is active at the time
    const uint64_t m_nId = s_nNextCursorId++;

    bool m_bPlaced = false;  // there is a place to step from
    bool m_bCurrent = false; // the place is that of a record that exists (for Update)
    std::vector<TValue> m_aPlace;
    int64_t m_nRowid = 0;

    CStatement* m_pStream = nullptr; // the statement whose rows a step goes on reading
    int m_nStreamDirection = 0;
    uint64_t m_nStreamGeneration = 0;

    int m_nFilterType = -1;
    int m_nFilterFields = 0;
    std::vector<TValue> m_aFilter;
    int m_nTopCount = 0;
    int m_nWalkCount = 0;

    std::vector<TValue> m_aKey; // scratch

private:
    // Binds the parameters and the filter, and runs the statement to its
    // first row.
    int Run(CStatement& cStmt, const std::vector<TValue>* paParams)
    {
        cStmt.Reset();
        int nParam = 1;
        if (paParams)
            nParam = cStmt.Bind(nParam, *paParams);
        if (m_nFilterType >= 0)
            cStmt.Bind(nParam, m_aFilter);
        return sqlite3_step(cStmt.Get());
    }
    // Takes the statement's current row as the current record.
    void Take(CTableState& cTable, CStatement& cStmt, void* pRecord, int nDirection)
    {
        sqlite3_stmt* pStmt = cStmt.Get();
        cTable.ReadRecord(pStmt, m_pBindings, pRecord);
        SetPlaceFromRow(cTable, pStmt);
        cStmt.m_nOwner = m_nId;
        cStmt.m_nGeneration = cTable.GetStore()->GetGeneration();
        m_pStream = &cStmt;
        m_nStreamDirection = nDirection;
        m_nStreamGeneration = cStmt.m_nGeneration;
    }
    void SetPlaceFromRow(const CTableState& cTable, sqlite3_stmt* pStmt)
    {
        cTable.KeyFromRow(m_nIndex, pStmt, m_aPlace);
        m_nRowid = sqlite3_column_int64(pStmt, static_cast<int>(cTable.GetFieldCount()));
        if (!cTable.GetIndex(m_nIndex).bUnique)
        {
            TValue tRowid;
            tRowid.nInteger = m_nRowid;
            m_aPlace.push_back(tRowid);
        }
        m_bPlaced = m_bCurrent = true;
    }
    void SetPlaceFromRecord(const CTableState& cTable, const void* pRecord, int64_t nRowid)
    {
        cTable.KeyFromRecord(m_nIndex, m_pBindings, pRecord, m_aPlace, cTable.GetIndex(m_nIndex).anKeys.size());
        m_nRowid = nRowid;
        if (!cTable.GetIndex(m_nIndex).bUnique)
        {
            TValue tRowid;
            tRowid.nInteger = nRowid;
            m_aPlace.push_back(tRowid);
        }
        m_bPlaced = m_bCurrent = true;
        m_pStream = nullptr;
    }
    bool KeyMatches(const CTableState& cTable, sqlite3_stmt* pStmt, const std::vector<TValue>& aKey)
    {
        std::vector<TValue> aRow;
        cTable.KeyFromRow(m_nIndex, pStmt, aRow);
        return aRow == aKey;
    }
    // Finds the rowid of the first record with the key, without reading it
    // into a record; sets the place there.
    bool FindKey(CTableState& cTable, const std::vector<TValue>& aKey);
    void Wrote(CTableState& cTable)
    {
        cTable.GetStore()->Written();
        m_pStream = nullptr;
    }
};

bool CCursor::Seek(TIndexQuery eQuery, const std::vector<TValue>* paParams, void* pRecord, int nDirection,
                   bool bEqual, bool bStartsWalk)
{
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable)
        return false;
    if (!bStartsWalk && m_nTopCount > 0 && m_nWalkCount >= m_nTopCount)
        return false;
    CStatement* pStmt = pTable->GetQuery(m_nIndex, eQuery, m_nFilterType, m_nFilterFields);
    if (pStmt == nullptr)
        return false;
    if (Run(*pStmt, paParams) != SQLITE_ROW || (bEqual && !KeyMatches(*pTable, pStmt->Get(), *paParams)))
    {
        pStmt->Reset();
        if (m_pStream == pStmt)
            m_pStream = nullptr;
        return false;
    }
    Take(*pTable, *pStmt, pRecord, nDirection);
    m_nWalkCount = bStartsWalk ? 1 : m_nWalkCount + 1;
    return true;
}

bool CCursor::Step(int nDirection, void* pRecord)
{
    if (!m_bPlaced)
        return nDirection > 0 ? Seek(eQueryFirst, nullptr, pRecord, 1, false, true)
                              : Seek(eQueryLast, nullptr, pRecord, -1, false, true);
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable)
        return false;
    if (m_nTopCount > 0 && m_nWalkCount >= m_nTopCount)
        return false;
    CStatement* pStream = m_pStream;
    if (pStream && pStream->m_nOwner == m_nId && m_nStreamDirection == nDirection &&
        m_nStreamGeneration == pTable->GetStore()->GetGeneration() && pStream->m_nGeneration == m_nStreamGeneration)
    {
        if (sqlite3_step(pStream->Get()) != SQLITE_ROW)
        {
            pStream->Reset();
            m_pStream = nullptr;
            return false;
        }
        Take(*pTable, *pStream, pRecord, nDirection);
        ++m_nWalkCount;
        return true;
    }
    return Seek(nDirection > 0 ? eQueryNext : eQueryPrevious, &m_aPlace, pRecord, nDirection, false, false);
}

bool CCursor::Add(void* pRecord, bool bReplace)
{
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable)
        return false;
    CStatement* pStmt = pTable->GetInsert(bReplace);
    if (pStmt == nullptr)
        return false;
    const bool bNumbered = pTable->IsNumbered();
    pStmt->Reset();
    pTable->BindRecord(*pStmt, m_pBindings, pRecord, bNumbered);
    const int nResult = sqlite3_step(pStmt->Get());
    pStmt->Reset();
    Wrote(*pTable);
    if (nResult != SQLITE_DONE)
        return false;
    sqlite3* pDb = pTable->GetStore()->GetDb();
    const int64_t nRowid = sqlite3_last_insert_rowid(pDb);
    if (bNumbered)
    {
        if (nRowid <= 0 || nRowid > 0xFFFFFFFFll)
        {
            // IDs are 32-bit: the table is full.
            if (CStatement* pDelete = pTable->GetDelete())
            {
                sqlite3_bind_int64(pDelete->Get(), 1, nRowid);
                sqlite3_step(pDelete->Get());
                pDelete->Reset();
            }
            return false;
        }
        m_pBindings[0].pfnSetNumber(pRecord, static_cast<uint32_t>(nRowid));
    }
    SetPlaceFromRecord(*pTable, pRecord, nRowid);
    return true;
}

bool CCursor::Update(void* pRecord)
{
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable || !m_bCurrent)
        return false;
    CStatement* pStmt = pTable->GetUpdate();
    if (pStmt == nullptr)
        return false;
    const bool bNumbered = pTable->IsNumbered();
    pStmt->Reset();
    const int nParam = pTable->BindRecord(*pStmt, m_pBindings, pRecord, bNumbered);
    sqlite3_bind_int64(pStmt->Get(), nParam, m_nRowid);
    const int nResult = sqlite3_step(pStmt->Get());
    pStmt->Reset();
    Wrote(*pTable);
    if (nResult != SQLITE_DONE || sqlite3_changes(pTable->GetStore()->GetDb()) == 0)
        return false;
    if (bNumbered)
        m_pBindings[0].pfnSetNumber(pRecord, static_cast<uint32_t>(m_nRowid));
    SetPlaceFromRecord(*pTable, pRecord, m_nRowid);
    return true;
}

bool CCursor::AddNew()
{
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable)
        return false;
    CStatement* pStmt = pTable->GetInsertEmpty();
    if (pStmt == nullptr)
        return false;
    pStmt->Reset();
    const int nResult = sqlite3_step(pStmt->Get());
    pStmt->Reset();
    Wrote(*pTable);
    if (nResult != SQLITE_DONE)
        return false;
    const int64_t nRowid = sqlite3_last_insert_rowid(pTable->GetStore()->GetDb());
    // The place of the new record: empty key values (its ID in a numbered table).
    const TIndexLayout& tLayout = pTable->GetIndex(m_nIndex);
    m_aPlace.clear();
    for (unsigned nField : tLayout.anKeys)
    {
        TValue tValue;
        const uint32_t nType = pTable->GetFieldType(nField);
        if (nField == 0 && pTable->IsNumbered())
            tValue.nInteger = nRowid;
        else if (nType == eFieldName || nType == eFieldText)
            tValue.eKind = TValue::eText;
        else if (nType == eFieldPath || nType == eFieldProperties)
            tValue.eKind = TValue::eBlob;
        m_aPlace.push_back(tValue);
    }
    if (!tLayout.bUnique)
    {
        TValue tRowid;
        tRowid.nInteger = nRowid;
        m_aPlace.push_back(tRowid);
    }
    m_nRowid = nRowid;
    m_bPlaced = m_bCurrent = true;
    return true;
}

bool CCursor::FindKey(CTableState& cTable, const std::vector<TValue>& aKey)
{
    CStatement* pStmt = cTable.GetQuery(m_nIndex, eQueryGTE, m_nFilterType, m_nFilterFields);
    if (pStmt == nullptr)
        return false;
    const bool bFound = Run(*pStmt, &aKey) == SQLITE_ROW && KeyMatches(cTable, pStmt->Get(), aKey);
    if (bFound)
        SetPlaceFromRow(cTable, pStmt->Get());
    pStmt->Reset();
    if (m_pStream == pStmt)
        m_pStream = nullptr;
    return bFound;
}

bool CCursor::Delete(void* pRecord)
{
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable)
        return false;
    const size_t nKeys = pTable->GetIndex(m_nIndex).anKeys.size();
    pTable->KeyFromRecord(m_nIndex, m_pBindings, pRecord, m_aKey, nKeys);
    const bool bCurrent = m_bCurrent && std::equal(m_aKey.begin(), m_aKey.end(), m_aPlace.begin());
    if (!bCurrent && !FindKey(*pTable, m_aKey))
        return false;
    CStatement* pStmt = pTable->GetDelete();
    if (pStmt == nullptr)
        return false;
    pStmt->Reset();
    sqlite3_bind_int64(pStmt->Get(), 1, m_nRowid);
    const int nResult = sqlite3_step(pStmt->Get());
    pStmt->Reset();
    Wrote(*pTable);
    if (nResult != SQLITE_DONE || sqlite3_changes(pTable->GetStore()->GetDb()) == 0)
        return false;
    m_bCurrent = false; // the place stays, so that steps reach its neighbours
    return true;
}

int CCursor::ExecSP(void* pRecord, int nProcedure)
{
    std::shared_ptr<CTableState> pTable = Enter();
    if (!pTable)
        return -1;
    TIndexQuery eQuery;
    switch (nProcedure)
    {
    case eProcCountEqual:
        eQuery = eQueryCountEqual;
        break;
    case eProcCountAll:
        eQuery = eQueryCountAll;
        break;
    case eProcDeleteEqual:
        eQuery = eQueryDeleteEqual;
        break;
    default:
        return -1;
    }
    CStatement* pStmt = pTable->GetQuery(m_nIndex, eQuery, m_nFilterType, m_nFilterFields);
    if (pStmt == nullptr)
        return -1;
    if (eQuery != eQueryCountAll)
        pTable->KeyFromRecord(m_nIndex, m_pBindings, pRecord, m_aKey, pTable->GetIndex(m_nIndex).anKeys.size());
    const int nResult = Run(*pStmt, eQuery != eQueryCountAll ? &m_aKey : nullptr);
    int nCount = -1;
    if (eQuery == eQueryDeleteEqual)
    {
        if (nResult == SQLITE_DONE)
        {
            nCount = sqlite3_changes(pTable->GetStore()->GetDb());
            if (nCount > 0 && m_bCurrent && std::equal(m_aKey.begin(), m_aKey.end(), m_aPlace.begin()))
                m_bCurrent = false;
        }
        pStmt->Reset();
        Wrote(*pTable);
    }
    else
    {
        if (nResult == SQLITE_ROW)
            nCount = sqlite3_column_int(pStmt->Get(), 0);
        pStmt->Reset();
        if (m_pStream == pStmt)
            m_pStream = nullptr;
    }
    return nCount;
}

bool CCursor::KeyFilter(const void* pRecord, int nFields, TKeyFilterType eType)
{
    std::shared_ptr<CTableState> pTable = m_pTable.lock();
    m_nFilterType = -1;
    m_nFilterFields = 0;
    m_pStream = nullptr;
    if (!pTable || nFields < 1 || static_cast<size_t>(nFields) > pTable->GetIndex(m_nIndex).anKeys.size() ||
        (eType != eKeyFilterEqual && eType != eKeyFilterGreaterOrEqual && eType != eKeyFilterLessOrEqual))
        return false;
    pTable->KeyFromRecord(m_nIndex, m_pBindings, pRecord, m_aFilter, static_cast<size_t>(nFields));
    m_nFilterType = eType;
    m_nFilterFields = nFields;
    return true;
}

void CCursor::ClearRecord(void* pRecord) const
{
    for (const TFieldBinding* p = m_pBindings; p->pszName != nullptr || p->nType != 0; ++p)
    {
        switch (p->nType)
        {
        case eFieldNumber:
            p->pfnSetNumber(pRecord, 0);
            break;
        case eFieldName:
        case eFieldText:
            static_cast<VCM::CString*>(p->pfnMember(pRecord))->clear();
            break;
        case eFieldTimestamp:
            static_cast<VCM::CTimestamp*>(p->pfnMember(pRecord))->Set(0);
            break;
        case eFieldPath:
            static_cast<VCM::CFilePath*>(p->pfnMember(pRecord))->RemoveAll();
            break;
        case eFieldProperties:
            static_cast<VCM::CProperties*>(p->pfnMember(pRecord))->RemoveAll();
            break;
        }
    }
}

} // namespace Detail

// ---------------------------------------------------------------------------
// CIteratorBase

CIteratorBase::CIteratorBase(CTable* pTable, int nIndex, CTransaction* pTransaction,
                             const std::type_info* pRecordType)
{
    if (pTable == nullptr || nIndex < 0)
        return;
    std::shared_ptr<Detail::CTableState> pState = pTable->m_pState.lock();
    const TFieldBinding* pBindings = pTable->GetFieldBindings();
    if (!pState || pBindings == nullptr || static_cast<size_t>(nIndex) >= pState->GetIndexCount())
        return;
    if (pRecordType && *pRecordType != *pBindings[0].pRecordType)
        return;
    uint64_t nTransaction = 0;
    if (pTransaction)
    {
        std::shared_ptr<Detail::CStore> pStore = pTransaction->m_pStore.lock();
        if (pStore.get() != pState->GetStore() || !pStore->IsActive(pTransaction->m_nSerial))
            return;
        nTransaction = pTransaction->m_nSerial;
    }
    m_pCursor = std::make_unique<Detail::CCursor>(pState, static_cast<size_t>(nIndex), pBindings, nTransaction);
}

CIteratorBase::CIteratorBase(const CIteratorBase& other)
    : m_pCursor(other.m_pCursor ? std::make_unique<Detail::CCursor>(*other.m_pCursor) : nullptr)
{
}

CIteratorBase& CIteratorBase::operator=(const CIteratorBase& other)
{
    if (this != &other)
        m_pCursor = other.m_pCursor ? std::make_unique<Detail::CCursor>(*other.m_pCursor) : nullptr;
    return *this;
}

CIteratorBase::~CIteratorBase() = default;

bool CIteratorBase::IsOpen() const
{
    return m_pCursor != nullptr;
}

void CIteratorBase::Close()
{
    m_pCursor.reset();
}

int CIteratorBase::GetIndex() const
{
    return m_pCursor ? static_cast<int>(m_pCursor->m_nIndex) : -1;
}

bool CIteratorBase::DB_GetByKey(void* pRecord, bool /*bForUpdate*/, bool bGreaterOrEqual)
{
    if (!m_pCursor || pRecord == nullptr)
        return false;
    std::shared_ptr<Detail::CTableState> pTable = m_pCursor->m_pTable.lock();
    if (!pTable)
        return false;
    pTable->KeyFromRecord(m_pCursor->m_nIndex, m_pCursor->m_pBindings, pRecord, m_pCursor->m_aKey,
                          pTable->GetIndex(m_pCursor->m_nIndex).anKeys.size());
    const std::vector<Detail::TValue> aKey = m_pCursor->m_aKey;
    return m_pCursor->Seek(Detail::eQueryGTE, &aKey, pRecord, 1, !bGreaterOrEqual, true);
}

bool CIteratorBase::DB_GetLTE(void* pRecord, bool /*bForUpdate*/)
{
    if (!m_pCursor || pRecord == nullptr)
        return false;
    std::shared_ptr<Detail::CTableState> pTable = m_pCursor->m_pTable.lock();
    if (!pTable)
        return false;
    pTable->KeyFromRecord(m_pCursor->m_nIndex, m_pCursor->m_pBindings, pRecord, m_pCursor->m_aKey,
                          pTable->GetIndex(m_pCursor->m_nIndex).anKeys.size());
    const std::vector<Detail::TValue> aKey = m_pCursor->m_aKey;
    return m_pCursor->Seek(Detail::eQueryLTE, &aKey, pRecord, -1, false, true);
}

bool CIteratorBase::DB_GetFirst(void* pRecord, bool /*bForUpdate*/)
{
    return m_pCursor && pRecord && m_pCursor->Seek(Detail::eQueryFirst, nullptr, pRecord, 1, false, true);
}

bool CIteratorBase::DB_GetLast(void* pRecord, bool /*bForUpdate*/)
{
    return m_pCursor && pRecord && m_pCursor->Seek(Detail::eQueryLast, nullptr, pRecord, -1, false, true);
}

bool CIteratorBase::DB_GetNext(void* pRecord, bool /*bForUpdate*/)
{
    return m_pCursor && pRecord && m_pCursor->Step(1, pRecord);
}

bool CIteratorBase::DB_GetPrevious(void* pRecord, bool /*bForUpdate*/)
{
    return m_pCursor && pRecord && m_pCursor->Step(-1, pRecord);
}

bool CIteratorBase::DB_Add(void* pRecord, bool bReplace)
{
    return m_pCursor && pRecord && m_pCursor->Add(pRecord, bReplace);
}

bool CIteratorBase::DB_Update(void* pRecord, bool /*bFlag*/)
{
    return m_pCursor && pRecord && m_pCursor->Update(pRecord);
}

bool CIteratorBase::DB_AddNew()
{
    return m_pCursor && m_pCursor->AddNew();
}

bool CIteratorBase::DB_Delete(void* pRecord)
{
    return m_pCursor && pRecord && m_pCursor->Delete(pRecord);
}

void CIteratorBase::DB_ClearRecord(void* pRecord) const
{
    if (m_pCursor && pRecord)
        m_pCursor->ClearRecord(pRecord);
}

int CIteratorBase::DB_ExecSP(void* pRecord, int nProcedure)
{
    if (!m_pCursor || (pRecord == nullptr && nProcedure != eProcCountAll))
        return -1;
    return m_pCursor->ExecSP(pRecord, nProcedure);
}

bool CIteratorBase::DB_KeyFilter(const void* pRecord, int nFields, TKeyFilterType eType)
{
    return m_pCursor && pRecord && m_pCursor->KeyFilter(pRecord, nFields, eType);
}

void CIteratorBase::DB_KeyFilterReset()
{
    if (m_pCursor)
    {
        m_pCursor->m_nFilterType = -1;
        m_pCursor->m_nFilterFields = 0;
        m_pCursor->m_pStream = nullptr;
    }
}

void CIteratorBase::DB_SetTopCount(int nCount)
{
    if (m_pCursor)
        m_pCursor->m_nTopCount = nCount > 0 ? nCount : 0;
}

} // namespace VDB
} // namespace ORVANE
