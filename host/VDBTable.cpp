// Tables of the record database: the encoding of field values, the SQL
// layout made from the definitions, and the prepared statements.
#include <algorithm>
#include <cstring>
#include <cwchar>

#include "host/VDBStore.h"

namespace ORVANE {
namespace VDB {
namespace Detail {

// ---------------------------------------------------------------------------
// Encoding of field values

void AppendUtf8(const VCM::CString& str, std::string& strOut)
{
    const wchar_t* pch = str.wc_str();
    const size_t nLength = str.length();
    for (size_t i = 0; i < nLength; ++i)
    {
        const uint32_t u = pch[i] < 0 ? 0xFFFDu : static_cast<uint32_t>(pch[i]);
        if (u < 0x80)
            strOut += static_cast<char>(u);
        else
        {
            // Number of continuation bytes and the lead byte's marker.
            int nMore;
            unsigned char bLead;
            if (u < 0x800)
                nMore = 1, bLead = 0xC0;
            else if (u < 0x10000)
                nMore = 2, bLead = 0xE0;
            else if (u < 0x200000)
                nMore = 3, bLead = 0xF0;
            else if (u < 0x4000000)
                nMore = 4, bLead = 0xF8;
            else
                nMore = 5, bLead = 0xFC;
            strOut += static_cast<char>(bLead | (u >> (6 * nMore)));
            for (int k = nMore - 1; k >= 0; --k)
                strOut += static_cast<char>(0x80 | ((u >> (6 * k)) & 0x3F));
        }
    }
}

namespace {

// DecodeUtf8 into wide text whose storage is kept from one call to the
// next: a walk reads every record's texts, and each would cost an
// allocation of its own.
void DecodeUtf8Into(const unsigned char* pb, size_t nSize, std::wstring& str)
{
    str.resize(nSize); // never more characters than bytes
    size_t n = 0;
    size_t i = 0;
    while (i < nSize)
    {
        const unsigned char b = pb[i++];
        int nMore;
        uint32_t u;
        if (b < 0x80)
            nMore = 0, u = b;
        else if ((b & 0xE0) == 0xC0)
            nMore = 1, u = b & 0x1F;
        else if ((b & 0xF0) == 0xE0)
            nMore = 2, u = b & 0x0F;
        else if ((b & 0xF8) == 0xF0)
            nMore = 3, u = b & 0x07;
        else if ((b & 0xFC) == 0xF8)
            nMore = 4, u = b & 0x03;
        else if ((b & 0xFE) == 0xFC)
            nMore = 5, u = b & 0x01;
        else
        {
            str[n++] = static_cast<wchar_t>(0xFFFD);
            continue;
        }
        bool bOk = true;
        for (int k = 0; k < nMore; ++k)
        {
            if (i >= nSize || (pb[i] & 0xC0) != 0x80)
            {
                bOk = false;
                break;
            }
            u = (u << 6) | (pb[i++] & 0x3F);
        }
        str[n++] = bOk ? static_cast<wchar_t>(u) : static_cast<wchar_t>(0xFFFD);
    }
    str.resize(n);
}

std::wstring& DecodeScratch()
{
    thread_local std::wstring s_str;
    return s_str;
}

} // namespace

void DecodeUtf8(const unsigned char* pb, size_t nSize, VCM::CString& strOut)
{
    std::wstring& str = DecodeScratch();
    DecodeUtf8Into(pb, nSize, str);
    strOut.assign(str.data(), str.size());
}

namespace {

void AppendUInt32(uint32_t n, std::string& strOut)
{
    unsigned char ab[4];
    VCM::CProperties::EncodeUInt32(n, ab);
    strOut.append(reinterpret_cast<const char*>(ab), 4);
}

uint32_t ReadUInt32(const unsigned char* pb)
{
    return (static_cast<uint32_t>(pb[0]) << 24) | (static_cast<uint32_t>(pb[1]) << 16) |
           (static_cast<uint32_t>(pb[2]) << 8) | static_cast<uint32_t>(pb[3]);
}

} // namespace

void EncodePath(const VCM::CFilePath& cPath, std::string& strOut)
{
    std::string strItem;
    VCM::CString strText;
    for (unsigned i = 0; i < cPath.GetItemCount(); ++i)
    {
        unsigned nLength = 0;
        const wchar_t* psz = cPath.GetItemText(i, &nLength);
        strText.assign(psz, nLength);
        strItem.clear();
        AppendUtf8(strText, strItem);
        AppendUInt32(static_cast<uint32_t>(strItem.size()), strOut);
        strOut += strItem;
    }
}

bool DecodePath(const unsigned char* pb, size_t nSize, VCM::CFilePath& cPath)
{
    // The path's items are written over in place: a record read after
    // another keeps its path's storage.
    std::wstring& strItem = DecodeScratch();
    unsigned nItems = 0;
    size_t i = 0;
    while (i < nSize)
    {
        if (nSize - i < 4)
            break;
        const uint32_t nLength = ReadUInt32(pb + i);
        i += 4;
        if (nLength > nSize - i)
            break;
        DecodeUtf8Into(pb + i, nLength, strItem);
        cPath.SetItem(nItems++, strItem.data(), strItem.size());
        i += nLength;
    }
    if (i != nSize)
    {
        cPath.RemoveAll();
        return false;
    }
    cPath.KeepItems(nItems);
    return true;
}

void EncodeProperties(const VCM::CProperties& cProps, std::string& strOut)
{
    for (int i = 0; i < cProps.GetCount(); ++i)
    {
        const unsigned short nId = cProps.GetIdAt(i);
        const std::vector<unsigned char>& ab = cProps.GetDataAt(i);
        strOut += static_cast<char>(nId >> 8);
        strOut += static_cast<char>(nId & 0xFF);
        AppendUInt32(static_cast<uint32_t>(ab.size()), strOut);
        strOut.append(reinterpret_cast<const char*>(ab.data()), ab.size());
    }
}

bool DecodeProperties(const unsigned char* pb, size_t nSize, VCM::CProperties& cProps)
{
    cProps.RemoveAll();
    size_t i = 0;
    while (i < nSize)
    {
        if (nSize - i < 6)
            break;
        const unsigned short nId = static_cast<unsigned short>((pb[i] << 8) | pb[i + 1]);
        const uint32_t nLength = ReadUInt32(pb + i + 2);
        i += 6;
        if (nLength > nSize - i)
            break;
        static const unsigned char s_bNone = 0;
        cProps.AddProperty(nId, nLength ? pb + i : &s_bNone, nLength);
        i += nLength;
    }
    if (i != nSize)
    {
        cProps.RemoveAll();
        return false;
    }
    return true;
}

void EncodeField(const TFieldBinding& tBinding, const void* pRecord, TValue& tValue)
{
    void* pMutable = const_cast<void*>(pRecord); // the member is only read
    tValue.strBytes.clear();
    tValue.nInteger = 0;
    switch (tBinding.nType)
    {
    case eFieldNumber:
        tValue.eKind = TValue::eInteger;
        tValue.nInteger = static_cast<int64_t>(tBinding.pfnGetNumber(pRecord));
        break;
    case eFieldName:
    case eFieldText:
        tValue.eKind = TValue::eText;
        AppendUtf8(*static_cast<const VCM::CString*>(tBinding.pfnMember(pMutable)), tValue.strBytes);
        break;
    case eFieldTimestamp:
        tValue.eKind = TValue::eInteger;
        tValue.nInteger = static_cast<int32_t>(static_cast<const VCM::CTimestamp*>(tBinding.pfnMember(pMutable))->GetUTC());
        break;
    case eFieldPath:
        tValue.eKind = TValue::eBlob;
        EncodePath(*static_cast<const VCM::CFilePath*>(tBinding.pfnMember(pMutable)), tValue.strBytes);
        break;
    case eFieldProperties:
        tValue.eKind = TValue::eBlob;
        EncodeProperties(*static_cast<const VCM::CProperties*>(tBinding.pfnMember(pMutable)), tValue.strBytes);
        break;
    }
}

// ---------------------------------------------------------------------------
// CTableState

namespace {

std::string Quote(const std::string& strName)
{
    std::string str = "\"";
    for (char ch : strName)
    {
        if (ch == '"')
            str += '"';
        str += ch;
    }
    return str + "\"";
}

std::string Column(unsigned nField)
{
    return "f" + std::to_string(nField);
}

const char* SqlType(uint32_t nType)
{
    switch (nType)
    {
    case eFieldNumber:
    case eFieldTimestamp:
        return "INTEGER";
    case eFieldName:
    case eFieldText:
        return "TEXT";
    default:
        return "BLOB";
    }
}

const char* EmptyLiteral(uint32_t nType)
{
    switch (nType)
    {
    case eFieldNumber:
    case eFieldTimestamp:
        return "0";
    case eFieldName:
    case eFieldText:
        return "''";
    default:
        return "X''";
    }
}

std::string Placeholders(size_t nCount)
{
    std::string str = "(";
    for (size_t i = 0; i < nCount; ++i)
        str += i ? ",?" : "?";
    return str + ")";
}

} // namespace

CTableState::CTableState(CStore* pStore, const std::string& strName, const TFileDef& tFileDef,
                         const TFieldDef* pFields, const TIndexDef* pIndexes)
    : m_pStore(pStore), m_strName(strName), m_strQuoted(Quote(strName)), m_nFlags(tFileDef.nFlags)
{
    for (const TFieldDef* p = pFields; p->pszName || p->nType || p->nReserved; ++p)
    {
        m_aFields.push_back(*p);
        m_astrFieldNames.emplace_back(p->pszName);
    }
    for (size_t i = 0; i < m_aFields.size(); ++i)
        m_strColumns += Column(static_cast<unsigned>(i)) + ",";
    m_strColumns += "rowid";
    m_astrScratch.resize(m_aFields.size());

    for (const TIndexDef* p = pIndexes; !p->IsEnd(); ++p)
    {
        m_aIndexDefs.push_back(*p);
        TIndexLayout tLayout;
        tLayout.bUnique = p->GetFlags() == 0;
        for (unsigned k = 0; k < p->GetKeyCount(); ++k)
            tLayout.anKeys.push_back(p->GetKeyField(k));
        tLayout.bRowidKey = IsNumbered() && tLayout.anKeys.size() == 1 && tLayout.anKeys[0] == 0;
        if (tLayout.bRowidKey)
            tLayout.bUnique = true; // the IDs are unique whatever the flags say
        std::string strKeys, strAsc, strDesc;
        for (size_t k = 0; k < tLayout.anKeys.size(); ++k)
        {
            const std::string strColumn = Column(tLayout.anKeys[k]);
            strKeys += (k ? "," : "") + strColumn;
            strAsc += (k ? "," : "") + strColumn;
            strDesc += (k ? "," : "") + strColumn + " DESC";
        }
        tLayout.strKeyTuple = "(" + strKeys + ")";
        // Equal keys are kept in the order the records were added: the
        // rowid, which only grows, decides between them.
        if (tLayout.bUnique)
            tLayout.strPlaceTuple = tLayout.strKeyTuple;
        else
        {
            tLayout.strPlaceTuple = "(" + strKeys + ",rowid)";
            strAsc += ",rowid";
            strDesc += ",rowid DESC";
        }
        tLayout.strOrderAsc = " ORDER BY " + strAsc;
        tLayout.strOrderDesc = " ORDER BY " + strDesc;
        m_aIndexes.push_back(std::move(tLayout));
    }
}

bool CTableState::HasDefinitions(const TFileDef& tFileDef, const TFieldDef* pFields, const TIndexDef* pIndexes) const
{
    if (tFileDef.nFlags != m_nFlags)
        return false;
    size_t i = 0;
    for (const TFieldDef* p = pFields; p->pszName || p->nType || p->nReserved; ++p, ++i)
        if (i >= m_aFields.size() || p->nType != m_aFields[i].nType || p->nReserved != m_aFields[i].nReserved ||
            p->pszName == nullptr || m_astrFieldNames[i] != p->pszName)
            return false;
    if (i != m_aFields.size())
        return false;
    i = 0;
    for (const TIndexDef* p = pIndexes; !p->IsEnd(); ++p, ++i)
        if (i >= m_aIndexDefs.size() || std::memcmp(p->abData, m_aIndexDefs[i].abData, sizeof(p->abData)) != 0)
            return false;
    return i == m_aIndexDefs.size();
}

bool CTableState::Exists()
{
    if (m_bCreated)
        return true;
    if (!m_pExists)
        m_pExists = std::make_unique<CStatement>(m_pStore->GetDb(),
                                                 "SELECT 1 FROM sqlite_schema WHERE type='table' AND name=?");
    if (!m_pExists->IsValid())
        return false;
    sqlite3_bind_text(m_pExists->Get(), 1, m_strName.data(), static_cast<int>(m_strName.size()), SQLITE_TRANSIENT);
    const bool bFound = sqlite3_step(m_pExists->Get()) == SQLITE_ROW;
    m_pExists->Reset();
    return bFound;
}

std::string CTableState::IndexColumns(const TIndexLayout& tLayout) const
{
    // A walk of a numbered table by any other order than its IDs would look
    // each record up in the table, a page read at random for each step. An
    // index whose keys may repeat therefore carries the whole record after
    // its keys and the ID (the order of equal keys), and a walk reads the
    // index alone. A unique index cannot: its uniqueness is that of all its
    // columns.
    if (tLayout.bUnique || !IsNumbered())
        return tLayout.strKeyTuple;
    std::vector<unsigned> anColumns = tLayout.anKeys;
    for (unsigned nField = 0; nField < m_aFields.size(); ++nField)
        if (std::find(tLayout.anKeys.begin(), tLayout.anKeys.end(), nField) == tLayout.anKeys.end())
            anColumns.push_back(nField);
    std::string strColumns;
    for (unsigned nField : anColumns)
        strColumns += (strColumns.empty() ? "(" : ",") + Column(nField);
    return strColumns + ")";
}

bool CTableState::EnsureCreated()
{
    if (m_bCreated)
        return true;
    std::string strSql = "CREATE TABLE IF NOT EXISTS " + m_strQuoted + "(";
    for (size_t i = 0; i < m_aFields.size(); ++i)
    {
        strSql += (i ? "," : "") + Column(static_cast<unsigned>(i)) + " ";
        if (i == 0 && IsNumbered())
            strSql += "INTEGER PRIMARY KEY"; // the ID is the rowid
        else
            strSql += std::string(SqlType(m_aFields[i].nType)) + " NOT NULL";
    }
    strSql += ");";
    for (size_t n = 0; n < m_aIndexes.size(); ++n)
    {
        const TIndexLayout& tLayout = m_aIndexes[n];
        if (tLayout.bRowidKey)
            continue; // the table itself is ordered by its IDs
        strSql += std::string("CREATE ") + (tLayout.bUnique ? "UNIQUE " : "") + "INDEX IF NOT EXISTS " +
                  Quote(m_strName + "#" + std::to_string(n)) + " ON " + m_strQuoted + IndexColumns(tLayout) + ";";
    }
    m_pStore->ResetAll();
    m_pStore->Written();
    if (sqlite3_exec(m_pStore->GetDb(), strSql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        return false;
    m_bCreated = true;
    m_nCreatedIn = m_pStore->GetInnermost();
    return true;
}

CStatement* CTableState::Make(std::unique_ptr<CStatement>& pStmt, const std::string& strSql)
{
    if (!pStmt)
        pStmt = std::make_unique<CStatement>(m_pStore->GetDb(), strSql);
    return pStmt->IsValid() ? pStmt.get() : nullptr;
}

CStatement* CTableState::GetInsert(bool bReplace)
{
    std::unique_ptr<CStatement>& pStmt = bReplace ? m_pInsertReplace : m_pInsert;
    if (pStmt)
        return pStmt->IsValid() ? pStmt.get() : nullptr;
    const size_t nFirst = IsNumbered() ? 1 : 0;
    std::string strColumns;
    for (size_t i = nFirst; i < m_aFields.size(); ++i)
        strColumns += (i > nFirst ? "," : "") + Column(static_cast<unsigned>(i));
    const std::string strSql = std::string(bReplace ? "INSERT OR REPLACE INTO " : "INSERT INTO ") + m_strQuoted +
                               (strColumns.empty() ? " DEFAULT VALUES"
                                                   : "(" + strColumns + ") VALUES" +
                                                         Placeholders(m_aFields.size() - nFirst));
    return Make(pStmt, strSql);
}

CStatement* CTableState::GetInsertEmpty()
{
    if (m_pInsertEmpty)
        return m_pInsertEmpty->IsValid() ? m_pInsertEmpty.get() : nullptr;
    const size_t nFirst = IsNumbered() ? 1 : 0;
    std::string strColumns, strValues;
    for (size_t i = nFirst; i < m_aFields.size(); ++i)
    {
        strColumns += (i > nFirst ? "," : "") + Column(static_cast<unsigned>(i));
        strValues += std::string(i > nFirst ? "," : "") + EmptyLiteral(m_aFields[i].nType);
    }
    return Make(m_pInsertEmpty, "INSERT INTO " + m_strQuoted +
                                    (strColumns.empty() ? " DEFAULT VALUES"
                                                        : "(" + strColumns + ") VALUES(" + strValues + ")"));
}

CStatement* CTableState::GetUpdate()
{
    if (m_pUpdate)
        return m_pUpdate->IsValid() ? m_pUpdate.get() : nullptr;
    const size_t nFirst = IsNumbered() ? 1 : 0;
    std::string strSql = "UPDATE " + m_strQuoted + " SET ";
    for (size_t i = nFirst; i < m_aFields.size(); ++i)
        strSql += (i > nFirst ? "," : "") + Column(static_cast<unsigned>(i)) + "=?";
    if (nFirst == m_aFields.size())
        strSql += "rowid=rowid";
    strSql += " WHERE rowid=?";
    return Make(m_pUpdate, strSql);
}

CStatement* CTableState::GetDelete()
{
    return Make(m_pDelete, "DELETE FROM " + m_strQuoted + " WHERE rowid=?");
}

CStatement* CTableState::GetQuery(size_t nIndex, TIndexQuery eQuery, int nFilterType, int nFilterFields)
{
    const uint32_t nKey = static_cast<uint32_t>(nIndex) << 16 | static_cast<uint32_t>(eQuery) << 8 |
                          static_cast<uint32_t>(nFilterType + 1) << 5 | static_cast<uint32_t>(nFilterFields);
    std::unique_ptr<CStatement>& pStmt = m_mapQueries[nKey];
    if (pStmt)
        return pStmt->IsValid() ? pStmt.get() : nullptr;

    const TIndexLayout& tLayout = m_aIndexes[nIndex];
    std::string strCondition, strOrder;
    std::string strSql = "SELECT " + m_strColumns + " FROM " + m_strQuoted;
    const std::string strKeyParams = Placeholders(tLayout.anKeys.size());
    switch (eQuery)
    {
    case eQueryFirst:
        strOrder = tLayout.strOrderAsc;
        break;
    case eQueryLast:
        strOrder = tLayout.strOrderDesc;
        break;
    case eQueryNext:
        strCondition = tLayout.strPlaceTuple + ">" + Placeholders(tLayout.anKeys.size() + (tLayout.bUnique ? 0 : 1));
        strOrder = tLayout.strOrderAsc;
        break;
    case eQueryPrevious:
        strCondition = tLayout.strPlaceTuple + "<" + Placeholders(tLayout.anKeys.size() + (tLayout.bUnique ? 0 : 1));
        strOrder = tLayout.strOrderDesc;
        break;
    case eQueryGTE:
        strCondition = tLayout.strKeyTuple + ">=" + strKeyParams;
        strOrder = tLayout.strOrderAsc;
        break;
    case eQueryLTE:
        strCondition = tLayout.strKeyTuple + "<=" + strKeyParams;
        strOrder = tLayout.strOrderDesc;
        break;
    case eQueryCountEqual:
        strSql = "SELECT count(*) FROM " + m_strQuoted;
        strCondition = tLayout.strKeyTuple + "=" + strKeyParams;
        break;
    case eQueryCountAll:
        strSql = "SELECT count(*) FROM " + m_strQuoted;
        break;
    case eQueryDeleteEqual:
        strSql = "DELETE FROM " + m_strQuoted;
        strCondition = tLayout.strKeyTuple + "=" + strKeyParams;
        break;
    case eQueryCount:
        return nullptr;
    }
    if (nFilterType >= 0)
    {
        std::string strColumns;
        for (int k = 0; k < nFilterFields; ++k)
            strColumns += (k ? "," : "") + Column(tLayout.anKeys[static_cast<size_t>(k)]);
        const char* pszOp = nFilterType == eKeyFilterEqual ? "=" : nFilterType == eKeyFilterGreaterOrEqual ? ">=" : "<=";
        const std::string strFilter =
            "(" + strColumns + ")" + pszOp + Placeholders(static_cast<size_t>(nFilterFields));
        strCondition = strCondition.empty() ? strFilter : strCondition + " AND " + strFilter;
    }
    if (!strCondition.empty())
        strSql += " WHERE " + strCondition;
    strSql += strOrder;
    return Make(pStmt, strSql);
}

void CTableState::ResetAll()
{
    for (std::unique_ptr<CStatement>* pp :
         {&m_pInsert, &m_pInsertReplace, &m_pInsertEmpty, &m_pUpdate, &m_pDelete, &m_pExists})
        if (*pp)
            (*pp)->Reset();
    for (auto& tEntry : m_mapQueries)
        if (tEntry.second)
            tEntry.second->Reset();
}

int CTableState::BindRecord(CStatement& cStmt, const TFieldBinding* pBindings, const void* pRecord, bool bSkipID)
{
    sqlite3_stmt* pStmt = cStmt.Get();
    void* pMutable = const_cast<void*>(pRecord); // members are only read
    int nParam = 1;
    for (size_t i = bSkipID ? 1 : 0; i < m_aFields.size(); ++i, ++nParam)
    {
        const TFieldBinding& tBinding = pBindings[i];
        std::string& strScratch = m_astrScratch[i];
        strScratch.clear();
        switch (tBinding.nType)
        {
        case eFieldNumber:
            sqlite3_bind_int64(pStmt, nParam, static_cast<int64_t>(tBinding.pfnGetNumber(pRecord)));
            continue;
        case eFieldTimestamp:
            sqlite3_bind_int64(pStmt, nParam,
                               static_cast<int32_t>(static_cast<const VCM::CTimestamp*>(tBinding.pfnMember(pMutable))->GetUTC()));
            continue;
        case eFieldName:
        case eFieldText:
            AppendUtf8(*static_cast<const VCM::CString*>(tBinding.pfnMember(pMutable)), strScratch);
            sqlite3_bind_text(pStmt, nParam, strScratch.data(), static_cast<int>(strScratch.size()), SQLITE_STATIC);
            continue;
        case eFieldPath:
            EncodePath(*static_cast<const VCM::CFilePath*>(tBinding.pfnMember(pMutable)), strScratch);
            break;
        case eFieldProperties:
            EncodeProperties(*static_cast<const VCM::CProperties*>(tBinding.pfnMember(pMutable)), strScratch);
            break;
        }
        if (strScratch.empty())
            sqlite3_bind_zeroblob(pStmt, nParam, 0);
        else
            sqlite3_bind_blob(pStmt, nParam, strScratch.data(), static_cast<int>(strScratch.size()), SQLITE_STATIC);
    }
    return nParam;
}

void CTableState::ReadRecord(sqlite3_stmt* pStmt, const TFieldBinding* pBindings, void* pRecord) const
{
    for (size_t i = 0; i < m_aFields.size(); ++i)
    {
        const TFieldBinding& tBinding = pBindings[i];
        const int nColumn = static_cast<int>(i);
        switch (tBinding.nType)
        {
        case eFieldNumber:
            tBinding.pfnSetNumber(pRecord, static_cast<uint32_t>(sqlite3_column_int64(pStmt, nColumn)));
            break;
        case eFieldTimestamp:
            static_cast<VCM::CTimestamp*>(tBinding.pfnMember(pRecord))
                ->Set(static_cast<long>(static_cast<int32_t>(sqlite3_column_int64(pStmt, nColumn))));
            break;
        case eFieldName:
        case eFieldText:
        {
            const unsigned char* pb = sqlite3_column_text(pStmt, nColumn);
            DecodeUtf8(pb, pb ? static_cast<size_t>(sqlite3_column_bytes(pStmt, nColumn)) : 0,
                       *static_cast<VCM::CString*>(tBinding.pfnMember(pRecord)));
            break;
        }
        case eFieldPath:
        {
            const unsigned char* pb = static_cast<const unsigned char*>(sqlite3_column_blob(pStmt, nColumn));
            DecodePath(pb, pb ? static_cast<size_t>(sqlite3_column_bytes(pStmt, nColumn)) : 0,
                       *static_cast<VCM::CFilePath*>(tBinding.pfnMember(pRecord)));
            break;
        }
        case eFieldProperties:
        {
            const unsigned char* pb = static_cast<const unsigned char*>(sqlite3_column_blob(pStmt, nColumn));
            DecodeProperties(pb, pb ? static_cast<size_t>(sqlite3_column_bytes(pStmt, nColumn)) : 0,
                             *static_cast<VCM::CProperties*>(tBinding.pfnMember(pRecord)));
            break;
        }
        }
    }
}

void CTableState::KeyFromRecord(size_t nIndex, const TFieldBinding* pBindings, const void* pRecord,
                                std::vector<TValue>& aKey, size_t nFields) const
{
    const TIndexLayout& tLayout = m_aIndexes[nIndex];
    aKey.resize(nFields);
    for (size_t k = 0; k < nFields; ++k)
        EncodeField(pBindings[tLayout.anKeys[k]], pRecord, aKey[k]);
}

void CTableState::ColumnValue(sqlite3_stmt* pStmt, int nColumn, uint32_t nType, TValue& tValue)
{
    tValue.strBytes.clear();
    tValue.nInteger = 0;
    switch (nType)
    {
    case eFieldNumber:
    case eFieldTimestamp:
        tValue.eKind = TValue::eInteger;
        tValue.nInteger = sqlite3_column_int64(pStmt, nColumn);
        return;
    case eFieldName:
    case eFieldText:
    {
        tValue.eKind = TValue::eText;
        const unsigned char* pb = sqlite3_column_text(pStmt, nColumn);
        if (pb)
            tValue.strBytes.assign(reinterpret_cast<const char*>(pb),
                                   static_cast<size_t>(sqlite3_column_bytes(pStmt, nColumn)));
        return;
    }
    default:
    {
        tValue.eKind = TValue::eBlob;
        const void* pb = sqlite3_column_blob(pStmt, nColumn);
        if (pb)
            tValue.strBytes.assign(static_cast<const char*>(pb),
                                   static_cast<size_t>(sqlite3_column_bytes(pStmt, nColumn)));
        return;
    }
    }
}

void CTableState::KeyFromRow(size_t nIndex, sqlite3_stmt* pStmt, std::vector<TValue>& aKey) const
{
    const TIndexLayout& tLayout = m_aIndexes[nIndex];
    aKey.resize(tLayout.anKeys.size());
    for (size_t k = 0; k < tLayout.anKeys.size(); ++k)
    {
        const unsigned nField = tLayout.anKeys[k];
        ColumnValue(pStmt, static_cast<int>(nField), m_aFields[nField].nType, aKey[k]);
    }
}

} // namespace Detail

// ---------------------------------------------------------------------------
// CTable

namespace {

bool KnownType(uint32_t nType)
{
    return nType == eFieldNumber || nType == eFieldName || nType == eFieldText || nType == eFieldTimestamp ||
           nType == eFieldPath || nType == eFieldProperties;
}

// Whether the definitions describe a table this store can hold, and the
// bindings reach one member of the right kind for every field.
bool CheckDefinitions(const TFileDef* pFile, const TFieldDef* pFields, const TIndexDef* pIndexes,
                      const TFieldBinding* pBindings)
{
    const unsigned nMaxFields = 1000, nMaxIndexes = 64;
    if (pFile == nullptr || pFields == nullptr || pIndexes == nullptr || pBindings == nullptr || pFile->nFlags > 1)
        return false;
    unsigned nFields = 0;
    for (const TFieldDef* p = pFields; p->pszName || p->nType || p->nReserved; ++p, ++nFields)
    {
        const TFieldBinding& tBinding = pBindings[nFields];
        if (nFields >= nMaxFields || p->pszName == nullptr || !KnownType(p->nType) || tBinding.pszName == nullptr ||
            std::wcscmp(tBinding.pszName, p->pszName) != 0 || tBinding.nType != p->nType ||
            tBinding.pRecordType == nullptr || *tBinding.pRecordType != *pBindings[0].pRecordType)
            return false;
        if (p->nType == eFieldNumber ? !tBinding.pfnGetNumber || !tBinding.pfnSetNumber : !tBinding.pfnMember)
            return false;
    }
    if (nFields == 0 || pBindings[nFields].pszName != nullptr || pBindings[nFields].nType != 0)
        return false;
    if (pFile->nFlags == 1 && pFields[0].nType != eFieldNumber)
        return false;
    unsigned nIndexes = 0;
    for (const TIndexDef* p = pIndexes; !p->IsEnd(); ++p, ++nIndexes)
    {
        const unsigned nKeys = p->GetKeyCount();
        if (nIndexes >= nMaxIndexes || p->GetFlags() > 1 || nKeys == 0 || nKeys > TIndexDef::eMaxKeyFields)
            return false;
        for (unsigned k = 0; k < nKeys; ++k)
            if (p->GetKeyField(k) >= nFields)
                return false;
        for (unsigned b = 4 + 2 * nKeys; b < sizeof(p->abData); ++b)
            if (p->abData[b] != 0)
                return false;
    }
    return nIndexes > 0;
}

} // namespace

CTable::CTable(CDatabase* pDatabase) : m_pDatabase(pDatabase), m_pBindings(nullptr) {}

CTable::CTable(CDatabase* pDatabase, const TFieldBinding* pBindings) : m_pDatabase(pDatabase), m_pBindings(pBindings)
{
}

CTable::~CTable() = default;

bool CTable::Open(CDatabase* pDatabase, const wchar_t* pszName, CTransaction* pTransaction, bool bMustExist)
{
    Close();
    CDatabase* pTarget = pDatabase ? pDatabase : m_pDatabase;
    std::shared_ptr<Detail::CStore> pStore = Detail::StoreOf(pTarget);
    if (!pStore)
        return false;
    if (pTransaction && (pTransaction->m_pStore.lock() != pStore || !pStore->IsActive(pTransaction->m_nSerial)))
        return false;
    const TFileDef* pFile = GetFileDef();
    const TFieldDef* pFields = GetFieldDefs();
    const TIndexDef* pIndexes = GetIndexDefs();
    if (!CheckDefinitions(pFile, pFields, pIndexes, m_pBindings))
        return false;
    const wchar_t* pszTable = pszName ? pszName : pFile->pszName;
    if (pszTable == nullptr || *pszTable == 0)
        return false;
    std::string strName;
    Detail::AppendUtf8(VCM::CString(pszTable), strName);
    std::shared_ptr<Detail::CTableState> pState = pStore->OpenTable(strName, *pFile, pFields, pIndexes, bMustExist);
    if (!pState)
        return false;
    m_pState = pState;
    m_pDatabase = pTarget;
    return true;
}

bool CTable::IsOpen() const
{
    return !m_pState.expired();
}

void CTable::Close()
{
    m_pState.reset();
}

} // namespace VDB
} // namespace ORVANE
