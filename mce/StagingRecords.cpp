#include "mce/StagingRecords.h"

namespace ORVANE {
namespace MCE {

namespace {

// A stored time property as the signed 32-bit value a long holds on every
// platform; -1 when absent.
long TimeProperty(const VCM::CProperties& cProps, unsigned short nId)
{
    unsigned int nValue = 0;
    if (!cProps.GetProperty(nId, nValue))
        return -1;
    return static_cast<long>(static_cast<int32_t>(nValue));
}

} // namespace

// ---------------------------------------------------------------------------
// TCVSRevision

VCM::CString TCVSRevision::GetRevisionAsString() const
{
    VCM::CString str;
    for (int i = 0; i < m_anRevision.GetCount(); ++i)
    {
        const int nComponent = static_cast<int>(m_anRevision.GetAt(i));
        if (str.empty())
            str.Format(L"%d", nComponent);
        else
            str.Format(L"%s.%d", str.wc_str(), nComponent);
    }
    return str;
}

// ---------------------------------------------------------------------------
// TChangeRecord

TChangeRecord::TChangeRecord() : nID(0), nProviderID(0), nStreamID(0), tTime(0), nNextItem(0) {}

TChangeRecord::TChangeRecord(const TChangeRecord& other)
    : VDB::TRecordBase(other), nID(other.nID), nProviderID(other.nProviderID), nStreamID(other.nStreamID),
      strUser(other.strUser), tTime(other.tTime), strComment(other.strComment), nNextItem(other.nNextItem),
      cProps(other.cProps)
{
}

TChangeRecord& TChangeRecord::operator=(const TChangeRecord& other)
{
    if (this == &other)
        return *this;
    nID = other.nID;
    nProviderID = other.nProviderID;
    nStreamID = other.nStreamID;
    strUser = other.strUser;
    tTime = other.tTime;
    strComment = other.strComment;
    nNextItem = other.nNextItem;
    cProps = other.cProps;
    return *this;
}

TChangeRecord::~TChangeRecord() = default;

VDB::TRecordBase* TChangeRecord::Clone() const
{
    return new TChangeRecord(*this);
}

void TChangeRecord::Delete()
{
    delete this;
}

void TChangeRecord::CopyFrom(const VDB::TRecordBase* pOther)
{
    *this = *static_cast<const TChangeRecord*>(pOther);
}

long TChangeRecord::GetBaseTime() const
{
    return TimeProperty(cProps, ePropBaseTime);
}

long TChangeRecord::GetMaxTime() const
{
    return TimeProperty(cProps, ePropMaxTime);
}

void TChangeRecord::SetBaseTime(unsigned int tBase)
{
    cProps.SetProperty(ePropBaseTime, tBase);
}

void TChangeRecord::SetMaxTime(unsigned int tMax)
{
    cProps.SetProperty(ePropMaxTime, tMax);
}

bool TChangeRecord::AllowChangeItem(long tItemTime, long tItemMaxTime) const
{
    // Unsigned 32-bit throughout, whatever the width of long.
    const uint32_t nTime = static_cast<uint32_t>(tItemTime);
    const uint32_t nItemMax = static_cast<uint32_t>(tItemMaxTime);
    const uint32_t nMax = static_cast<uint32_t>(GetMaxTime());
    const uint32_t nChangeTime = static_cast<uint32_t>(tTime);
    const uint32_t nBase = static_cast<uint32_t>(GetBaseTime());
    if (!(nTime < nMax))
        return false;
    if (nItemMax < nChangeTime)
        return false;
    if (static_cast<uint32_t>(nTime + 300u) < nBase)
        return false;
    if (static_cast<uint32_t>(nTime - 300u) > nBase)
        return false;
    return true;
}

// ---------------------------------------------------------------------------
// TChangeItemRecord

TChangeItemRecord::TChangeItemRecord() : nID(0), nItem(0), eType(eChangeItemAdd), nRevision(0) {}

TChangeItemRecord::TChangeItemRecord(const TChangeItemRecord& other)
    : VDB::TRecordBase(other), nID(other.nID), nItem(other.nItem), eType(other.eType), cFilePath(other.cFilePath),
      nRevision(other.nRevision), cProps(other.cProps), cTimestamp(other.cTimestamp)
{
}

TChangeItemRecord& TChangeItemRecord::operator=(const TChangeItemRecord& other)
{
    if (this == &other)
        return *this;
    nID = other.nID;
    nItem = other.nItem;
    eType = other.eType;
    cFilePath = other.cFilePath;
    nRevision = other.nRevision;
    cProps = other.cProps;
    cTimestamp = other.cTimestamp;
    return *this;
}

TChangeItemRecord::~TChangeItemRecord() = default;

VDB::TRecordBase* TChangeItemRecord::Clone() const
{
    return new TChangeItemRecord(*this);
}

void TChangeItemRecord::Delete()
{
    delete this;
}

void TChangeItemRecord::CopyFrom(const VDB::TRecordBase* pOther)
{
    *this = *static_cast<const TChangeItemRecord*>(pOther);
}

void TChangeItemRecord::SetCVSRevision(TCVSRevision tRevision)
{
    cProps.SetProperty(ePropCVSRevision, tRevision.GetRevisionAsString());
}

} // namespace MCE
} // namespace ORVANE
