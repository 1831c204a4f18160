// The staging records: defaults, copies, revisions, base and maximum times
// and the merge rule.
#include <gtest/gtest.h>

#include <cstring>

#include "mce/MCE.h"

using namespace ORVANE;
using namespace ORVANE::MCE;
using ORVANE::VCM::CString;

namespace {

TCVSRevision Revision(std::initializer_list<unsigned> anComponents)
{
    TCVSRevision t;
    for (unsigned n : anComponents)
        t.Add(n);
    return t;
}

std::vector<unsigned char> Bytes(const VCM::CProperties& cProps, unsigned short nId)
{
    unsigned nSize = 0;
    const unsigned char* pb = cProps.GetPropertyData(nId, &nSize);
    return pb ? std::vector<unsigned char>(pb, pb + nSize) : std::vector<unsigned char>{};
}

} // namespace

TEST(StagingTypes, ChangeItemTypeValues)
{
    EXPECT_EQ(eChangeItemAdd, 0);
    EXPECT_EQ(eChangeItemModify, 1);
    EXPECT_EQ(eChangeItemDelete, 2);
    EXPECT_EQ(sizeof(TChangeItemType), 4u);
}

TEST(StagingRevision, DottedText)
{
    EXPECT_EQ(Revision({1, 2, 3}).GetRevisionAsString(), L"1.2.3");
    EXPECT_EQ(Revision({7}).GetRevisionAsString(), L"7");
    EXPECT_EQ(Revision({}).GetRevisionAsString(), L"");
    EXPECT_EQ(Revision({1, 4, 2, 1}).GetRevisionAsString(), L"1.4.2.1");
    // Components are formatted as signed numbers.
    EXPECT_EQ(Revision({1, 4294967295u}).GetRevisionAsString(), L"1.-1");
    EXPECT_EQ(Revision({2147483648u}).GetRevisionAsString(), L"-2147483648");
}

TEST(StagingRevision, ValueSemantics)
{
    TCVSRevision t;
    EXPECT_EQ(t.GetCount(), 0);
    TCVSRevision tCopy(Revision({1, 2}));
    t = tCopy;
    tCopy.Add(3);
    EXPECT_EQ(t.GetRevisionAsString(), L"1.2");
    EXPECT_EQ(tCopy.GetRevisionAsString(), L"1.2.3");
    EXPECT_EQ(tCopy.GetAt(2), 3u);
    EXPECT_THROW(tCopy.GetAt(3), EArrayIndexOutOfRange);
    tCopy.RemoveAll();
    EXPECT_EQ(tCopy.GetRevisionAsString(), L"");
}

TEST(StagingChangeRecord, Defaults)
{
    TChangeRecord t;
    EXPECT_EQ(t.nID, 0u);
    EXPECT_EQ(t.nProviderID, 0u);
    EXPECT_EQ(t.nStreamID, 0u);
    EXPECT_TRUE(t.strUser.empty());
    EXPECT_EQ(t.tTime, 0);
    EXPECT_TRUE(t.strComment.empty());
    EXPECT_EQ(t.nNextItem, 0u);
    EXPECT_EQ(t.cProps.GetCount(), 0);
}

TEST(StagingChangeRecord, CopiesCloneAndCopyFrom)
{
    TChangeRecord t;
    t.nID = 1;
    t.nProviderID = 2;
    t.nStreamID = 3;
    t.strUser = L"user";
    t.tTime = 4;
    t.strComment = L"comment";
    t.nNextItem = 5;
    t.SetBaseTime(6);
    const auto Same = [](const TChangeRecord& a, const TChangeRecord& b) {
        return a.nID == b.nID && a.nProviderID == b.nProviderID && a.nStreamID == b.nStreamID &&
               a.strUser == b.strUser && a.tTime == b.tTime && a.strComment == b.strComment &&
               a.nNextItem == b.nNextItem && a.cProps == b.cProps;
    };
    TChangeRecord tCopy(t);
    EXPECT_TRUE(Same(tCopy, t));
    TChangeRecord tAssigned;
    tAssigned = t;
    EXPECT_TRUE(Same(tAssigned, t));
    tAssigned = tAssigned; // self-assignment changes nothing
    EXPECT_TRUE(Same(tAssigned, t));

    VDB::TRecordBase* pClone = t.Clone();
    ASSERT_NE(dynamic_cast<TChangeRecord*>(pClone), nullptr);
    EXPECT_TRUE(Same(*static_cast<TChangeRecord*>(pClone), t));
    TChangeRecord tFrom;
    tFrom.CopyFrom(pClone);
    EXPECT_TRUE(Same(tFrom, t));
    pClone->Delete();
}

TEST(StagingChangeRecord, BaseAndMaximumTimes)
{
    TChangeRecord t;
    EXPECT_EQ(t.GetBaseTime(), -1);
    EXPECT_EQ(t.GetMaxTime(), -1);
    t.SetBaseTime(1000);
    EXPECT_EQ(t.GetBaseTime(), 1000);
    EXPECT_EQ(t.GetMaxTime(), -1);
    EXPECT_EQ(Bytes(t.cProps, 0), (std::vector<unsigned char>{0x00, 0x00, 0x03, 0xE8}));
    t.SetMaxTime(5000);
    EXPECT_EQ(Bytes(t.cProps, 1), (std::vector<unsigned char>{0x00, 0x00, 0x13, 0x88}));
    t.SetBaseTime(1001); // replaced, not added
    EXPECT_EQ(t.GetBaseTime(), 1001);
    EXPECT_EQ(t.cProps.GetCount(), 2);
    // -1 as a maximum time (no bound) is stored as its 32 bits.
    t.SetMaxTime(static_cast<unsigned int>(-1));
    EXPECT_EQ(Bytes(t.cProps, 1), (std::vector<unsigned char>{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(t.GetMaxTime(), -1);
    t.SetMaxTime(2147483648u);
    EXPECT_EQ(t.GetMaxTime(), -2147483647L - 1);
}

TEST(StagingChangeRecord, WithoutPropertiesAllowsOnlyTheLastTimes)
{
    TChangeRecord t;
    EXPECT_FALSE(t.AllowChangeItem(0, 0));
    EXPECT_FALSE(t.AllowChangeItem(1000, -1));
    EXPECT_FALSE(t.AllowChangeItem(static_cast<long>(4294966994u), -1));
    // From 4294966995 on the base check passes (below the maximum -1).
    EXPECT_TRUE(t.AllowChangeItem(static_cast<long>(4294966995u), -1));
    EXPECT_TRUE(t.AllowChangeItem(-301, -1)); // the same value as a signed 32-bit time
    // Above it tTime + 300 wraps round below the base.
    EXPECT_FALSE(t.AllowChangeItem(static_cast<long>(4294966996u), -1));
    EXPECT_FALSE(t.AllowChangeItem(-2, -1));
    EXPECT_FALSE(t.AllowChangeItem(-1, -1)); // not below the maximum either
}

TEST(StagingChangeRecord, MergeWindow)
{
    TChangeRecord t;
    t.SetBaseTime(1000);
    t.SetMaxTime(5000);
    t.tTime = 1000;
    EXPECT_TRUE(t.AllowChangeItem(1300, 2000));
    EXPECT_FALSE(t.AllowChangeItem(1301, 2000));
    EXPECT_TRUE(t.AllowChangeItem(700, 2000));
    EXPECT_FALSE(t.AllowChangeItem(699, 2000));
    EXPECT_FALSE(t.AllowChangeItem(1200, 999));
    EXPECT_TRUE(t.AllowChangeItem(1200, 1000));
    EXPECT_FALSE(t.AllowChangeItem(5000, 9000));
    EXPECT_TRUE(t.AllowChangeItem(1000, -1)); // no upper bound: the largest value
    // Below 300 the subtraction wraps: always refused.
    t.SetBaseTime(100);
    t.tTime = 0;
    EXPECT_FALSE(t.AllowChangeItem(100, 2000));
    EXPECT_FALSE(t.AllowChangeItem(299, 2000));
    EXPECT_TRUE(t.AllowChangeItem(300, 2000));
    EXPECT_TRUE(t.AllowChangeItem(400, 2000));
}

TEST(StagingChangeItemRecord, DefaultsCopiesAndRevision)
{
    TChangeItemRecord t;
    EXPECT_EQ(t.nID, 0u);
    EXPECT_EQ(t.nItem, 0u);
    EXPECT_EQ(t.eType, eChangeItemAdd);
    EXPECT_EQ(t.cFilePath.GetItemCount(), 0u);
    EXPECT_EQ(t.nRevision, 0u);
    EXPECT_EQ(t.cProps.GetCount(), 0);
    EXPECT_EQ(t.cTimestamp, VCM::CTimestamp());

    t.SetCVSRevision(Revision({1, 4, 2, 1}));
    CString str;
    ASSERT_TRUE(t.cProps.GetProperty(1, str));
    EXPECT_EQ(str, L"1.4.2.1");
    t.SetCVSRevision(TCVSRevision()); // empty text, still set
    ASSERT_TRUE(t.cProps.GetProperty(1, str));
    EXPECT_EQ(str, L"");
    EXPECT_EQ(t.cProps.GetCount(), 1);
    TChangeItemRecord tEmpty;
    tEmpty.SetCVSRevision(TCVSRevision());
    EXPECT_TRUE(tEmpty.cProps.HasProperty(1));

    t.nID = 3;
    t.nItem = 4;
    t.eType = eChangeItemDelete;
    t.cFilePath.Parse(L"a/b.txt");
    t.nRevision = 9;
    t.cTimestamp.Set(77);
    TChangeItemRecord tCopy(t);
    EXPECT_EQ(tCopy.nItem, 4u);
    EXPECT_EQ(tCopy.eType, eChangeItemDelete);
    EXPECT_EQ(tCopy.cFilePath, t.cFilePath);
    EXPECT_EQ(tCopy.cProps, t.cProps);
    EXPECT_EQ(tCopy.cTimestamp.GetUTC(), 77);
    VDB::TRecordBase* pClone = t.Clone();
    TChangeItemRecord tFrom;
    tFrom.CopyFrom(pClone);
    pClone->Delete();
    EXPECT_EQ(tFrom.nRevision, 9u);
    EXPECT_EQ(tFrom.cFilePath, t.cFilePath);
    tFrom = tFrom;
    EXPECT_EQ(tFrom.nID, 3u);
}

TEST(StagingFileRecord, CopyLeavesTheBagEmptyAssignmentCopiesAll)
{
    TFileRecord t;
    EXPECT_EQ(t.nID, 0u);
    t.nID = 5;
    t.cPath.Parse(L"x/y");
    t.cProps.SetProperty(1, 2u);
    t.cProps.SetProperty(3, 4u);
    TFileRecord tCopy(t);
    EXPECT_EQ(tCopy.nID, 5u);
    EXPECT_EQ(tCopy.cPath, t.cPath);
    EXPECT_EQ(tCopy.cProps.GetCount(), 0);
    TFileRecord tAssigned;
    tAssigned = t;
    EXPECT_EQ(tAssigned.nID, 5u);
    EXPECT_EQ(tAssigned.cPath, t.cPath);
    EXPECT_EQ(tAssigned.cProps, t.cProps);
    EXPECT_EQ(tAssigned.cProps.GetCount(), 2);
}

TEST(StagingFolderRecord, CopiesAll)
{
    TFolderRecord t;
    EXPECT_EQ(t.nID, 0u);
    t.nID = 8;
    t.cCurrent.m_cPath.Parse(L"a");
    t.cPrevious.m_cProps.SetProperty(1, 1u);
    TFolderRecord tCopy(t);
    EXPECT_EQ(tCopy.nID, 8u);
    EXPECT_EQ(tCopy.cCurrent, t.cCurrent);
    EXPECT_EQ(tCopy.cPrevious, t.cPrevious);
    TFolderRecord tAssigned;
    tAssigned = t;
    EXPECT_EQ(tAssigned.cPrevious.m_cProps.GetCount(), 1);
    EXPECT_NE(tAssigned.cCurrent, VCM::CDirectoryData());
}
