#include <gtest/gtest.h>

#include "host/Exceptions.h"

using namespace ORVANE;

TEST(Exceptions, ArrayMessageShowsIndex)
{
    EArrayIndexOutOfRange e(-1);
    EXPECT_TRUE(e.GetErrorMessage() == VCM::CString(L"Array index (-1) out of range"));
    EXPECT_EQ(-1, e.GetIndex());
    EArrayIndexOutOfRange eCopy(e);
    EXPECT_TRUE(eCopy.GetErrorMessage() == VCM::CString(L"Array index (-1) out of range"));
}

TEST(Exceptions, MapMessageShowsIndex)
{
    EMapIndexOutOfRange e(7);
    EXPECT_TRUE(e.GetErrorMessage() == VCM::CString(L"Map index (7) out of range"));
    const EBaseException& eBase = e;
    EXPECT_TRUE(eBase.GetErrorMessage() == VCM::CString(L"Map index (7) out of range"));
}

TEST(Exceptions, PositionIsAnIndexInThePointer)
{
    POSITION pos = IntToPosition(5);
    EXPECT_EQ(5, PtrToInt(pos));
    EXPECT_EQ(0, PtrToInt(nullptr));
}
