// Records of the record database and the static definitions that describe
// its tables: the file, field and index definitions, and the binding of a
// record class's members to the fields of its table.
#pragma once

#include <cstdint>
#include <type_traits>
#include <typeinfo>

#include "host/FilePath.h"
#include "host/Properties.h"
#include "host/String.h"
#include "host/Timestamp.h"

namespace ORVANE {
namespace VDB {

// Type codes of the field definitions.
enum TFieldType : uint32_t
{
    eFieldNumber = 3,     // 32-bit unsigned number (also a signed 32-bit time held in a long)
    eFieldName = 4,       // CString, a short text such as a user name
    eFieldText = 5,       // CString, a free text such as a comment
    eFieldTimestamp = 11, // CTimestamp
    eFieldPath = 12,      // CFilePath
    eFieldProperties = 13 // CProperties
};

// One per table. flags 1: the first field "ID" is numbered by the database,
// which gives every added record a new, nonzero ID and writes it back into
// the record. flags 0: the records carry their whole key themselves.
struct TFileDef
{
    const wchar_t* pszName;
    uint32_t nFlags;
};

// One per field, in record order; the list ends with an entry whose three
// words are all 0.
struct TFieldDef
{
    const wchar_t* pszName;
    uint32_t nType;     // a TFieldType code
    uint32_t nReserved; // 0
};

// One per index, 32 raw bytes, the list ended by an all-zero entry:
//   bytes 0-1  flags, 16-bit little-endian: 0 unique keys, 1 equal keys
//              allowed (kept in the order the records were added)
//   bytes 2-3  number of key fields, 16-bit little-endian
//   bytes 4..  the key fields as 16-bit little-endian field numbers,
//              most significant first; the rest is 0
// An index is chosen by its position in the list.
struct TIndexDef
{
    unsigned char abData[32];

    enum
    {
        eMaxKeyFields = 14
    };

    unsigned GetFlags() const { return Word(0); }
    unsigned GetKeyCount() const { return Word(2); }
    unsigned GetKeyField(unsigned nKey) const { return nKey < eMaxKeyFields ? Word(4 + 2 * nKey) : 0xFFFFu; }
    bool IsEnd() const
    {
        for (unsigned char b : abData)
            if (b != 0)
                return false;
        return true;
    }

private:
    unsigned Word(unsigned nOffset) const
    {
        return static_cast<unsigned>(abData[nOffset]) | (static_cast<unsigned>(abData[nOffset + 1]) << 8);
    }
};
static_assert(sizeof(TIndexDef) == 32, "an index definition is 32 raw bytes");

// Base of every record class. It holds no data: a record's data members are
// the fields of its table, bound to them by a TFieldBinding list.
class TRecordBase
{
public:
    virtual ~TRecordBase();
    // A heap copy of the record.
    virtual TRecordBase* Clone() const = 0;
    // Destroys and frees a record made by Clone.
    virtual void Delete() = 0;
    // Assigns every field from a record of the same class.
    virtual void CopyFrom(const TRecordBase* pOther) = 0;

protected:
    TRecordBase() = default;
    TRecordBase(const TRecordBase&) = default;
    TRecordBase& operator=(const TRecordBase&) = default;
};

// How the database reaches one record member: one entry per field, in field
// order, ended by an all-null entry (TFieldBinding{}). Made with BindField
// next to the table's definitions, so that the link from a field to a
// member is written out once and checked by the compiler: member offsets
// are never derived from type codes (a long is 8 bytes on one platform and
// 4 on another).
struct TFieldBinding
{
    const wchar_t* pszName;             // the field's name, as in the field definitions
    uint32_t nType;                     // the field's type code
    const std::type_info* pRecordType;  // the record class the member belongs to
    // Type code 3: the member's value as stored, and the member set from it.
    uint32_t (*pfnGetNumber)(const void* pRecord);
    void (*pfnSetNumber)(void* pRecord, uint32_t nValue);
    // Other type codes: the address of the member object (CString,
    // CTimestamp, CFilePath or CProperties as the code says).
    void* (*pfnMember)(void* pRecord);
};

namespace Binding {

template <typename TPointer>
struct TMemberOf;
template <typename TRecord_, typename TMember_>
struct TMemberOf<TMember_ TRecord_::*>
{
    using TRecord = TRecord_;
    using TMember = TMember_;
};

template <auto pMember>
using TRecordOf = typename TMemberOf<decltype(pMember)>::TRecord;
template <auto pMember>
using TValueOf = typename TMemberOf<decltype(pMember)>::TMember;

// A number is stored as 32 unsigned bits. A long (a time in seconds) keeps
// its low 32 bits, so -1 is stored as 4294967295; it is read back as the
// signed 32-bit value of those bits, so every signed 32-bit time survives
// the round trip exactly, whatever the width of long.
template <auto pMember>
uint32_t GetNumber(const void* pRecord)
{
    using TValue = TValueOf<pMember>;
    const TValue& tValue = static_cast<const TRecordOf<pMember>*>(pRecord)->*pMember;
    if constexpr (std::is_enum_v<TValue>)
        return static_cast<uint32_t>(static_cast<std::underlying_type_t<TValue>>(tValue));
    else
        return static_cast<uint32_t>(tValue);
}

template <auto pMember>
void SetNumber(void* pRecord, uint32_t nValue)
{
    using TValue = TValueOf<pMember>;
    TValue& tValue = static_cast<TRecordOf<pMember>*>(pRecord)->*pMember;
    if constexpr (std::is_enum_v<TValue>)
        tValue = static_cast<TValue>(static_cast<std::underlying_type_t<TValue>>(nValue));
    else if constexpr (std::is_signed_v<TValue>)
        tValue = static_cast<TValue>(static_cast<int32_t>(nValue));
    else
        tValue = static_cast<TValue>(nValue);
}

template <auto pMember>
void* Member(void* pRecord)
{
    return &(static_cast<TRecordOf<pMember>*>(pRecord)->*pMember);
}

template <typename TValue>
constexpr bool IsNumberMember()
{
    if constexpr (std::is_enum_v<TValue>)
        return sizeof(TValue) == 4 && !std::is_signed_v<std::underlying_type_t<TValue>>;
    else
        return std::is_same_v<TValue, unsigned int> || std::is_same_v<TValue, long> || std::is_same_v<TValue, int>;
}

} // namespace Binding

// The binding of the member pMember to a field of type code nType named
// pszName. The member's type must suit the code: 3 an unsigned int, int,
// long or 32-bit unsigned enumeration; 4 and 5 a CString; 11 a CTimestamp;
// 12 a CFilePath; 13 a CProperties.
template <uint32_t nType, auto pMember>
constexpr TFieldBinding BindField(const wchar_t* pszName)
{
    using TValue = Binding::TValueOf<pMember>;
    static_assert(nType == eFieldNumber || nType == eFieldName || nType == eFieldText || nType == eFieldTimestamp ||
                      nType == eFieldPath || nType == eFieldProperties,
                  "unknown field type code");
    static_assert(nType != eFieldNumber || Binding::IsNumberMember<TValue>(),
                  "type code 3 binds an unsigned int, int, long or 32-bit unsigned enumeration");
    static_assert((nType != eFieldName && nType != eFieldText) || std::is_same_v<TValue, VCM::CString>,
                  "type codes 4 and 5 bind a CString");
    static_assert(nType != eFieldTimestamp || std::is_same_v<TValue, VCM::CTimestamp>,
                  "type code 11 binds a CTimestamp");
    static_assert(nType != eFieldPath || std::is_same_v<TValue, VCM::CFilePath>, "type code 12 binds a CFilePath");
    static_assert(nType != eFieldProperties || std::is_same_v<TValue, VCM::CProperties>,
                  "type code 13 binds a CProperties");
    if constexpr (nType == eFieldNumber)
        return TFieldBinding{pszName, nType, &typeid(Binding::TRecordOf<pMember>), &Binding::GetNumber<pMember>,
                             &Binding::SetNumber<pMember>, nullptr};
    else
        return TFieldBinding{pszName, nType, &typeid(Binding::TRecordOf<pMember>), nullptr, nullptr,
                             &Binding::Member<pMember>};
}

} // namespace VDB
} // namespace ORVANE
