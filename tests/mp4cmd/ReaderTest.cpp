// The marshalled record reader against prepared byte strings.
#include <stdexcept>

#include "TestSupport.h"

namespace mp4test {
namespace {

class ReaderTest : public CCommandTest
{
protected:
    // Runs the stand-in so that the reader's stream holds exactly strBytes.
    void Load(const std::string& strBytes)
    {
        Feed("default", strBytes);
        ASSERT_TRUE(m_cCmd.Execute(L"-G test"));
    }
    int Next()
    {
        m_strKey = L"(key untouched)";
        m_strValue = L"(value untouched)";
        return m_cCmd.GetNextPair(m_strKey, m_strValue);
    }

    CReaderCmd m_cCmd;
    CString m_strKey;
    CString m_strValue;
};

const std::string s_strCodeStat = std::string("{") + "s" + std::string("\x04\x00\x00\x00", 4) + "code" + "s" +
                                  std::string("\x04\x00\x00\x00", 4) + "stat" + "0";

TEST_F(ReaderTest, OneRecordGivesItsPairThenItsEndThenNothing)
{
    Load(s_strCodeStat);
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"code");
    EXPECT_EQ(W(m_strValue), L"stat");
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(W(m_strKey), L"(key untouched)");
    EXPECT_EQ(W(m_strValue), L"(value untouched)");
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(W(m_strKey), L"(key untouched)");
    // Reading after the end keeps giving 0.
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, SecondRecordStartsWithoutACallOfItsOwn)
{
    Load(s_strCodeStat + MarshalRecord({{"change", "12"}, {"user", "jo"}}));
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"change");
    EXPECT_EQ(W(m_strValue), L"12");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"user");
    EXPECT_EQ(W(m_strValue), L"jo");
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, EmptyRecordGivesItsEndAtOnce)
{
    Load("{0{0");
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, IntegerValueGivesTwoAfterTheKeyWasAssigned)
{
    Load("{" + MarshalString("level") + "i" + Le32(7) + "0");
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(W(m_strKey), L"level");
    EXPECT_EQ(W(m_strValue), L"(value untouched)");
}

TEST_F(ReaderTest, IntegerBytesAreNotSkipped)
{
    // The stream stays just behind the 'i': its four bytes come next, here
    // the characters "0s" and two more.
    Load("{" + MarshalString("level") + "i0sxy");
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(Next(), 3); // the first of the integer's bytes, '0'
    EXPECT_EQ(Next(), 2); // 's' followed by a length cut short
}

TEST_F(ReaderTest, IntegerKeyGivesTwo)
{
    Load("{i" + Le32(1) + "0");
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(W(m_strKey), L"(key untouched)");
}

TEST_F(ReaderTest, UnknownCodesGiveTwo)
{
    Load("x{N0");
    EXPECT_EQ(Next(), 2); // 'x'
    EXPECT_EQ(Next(), 2); // '{' then 'N'
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, EmptyOutputGivesNothing)
{
    Load("");
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(W(m_strKey), L"(key untouched)");
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, NoStreamBeforeExecute)
{
    CReaderCmd cFresh;
    CString strKey = L"k", strValue = L"v";
    EXPECT_EQ(cFresh.GetNextPair(strKey, strValue), 0);
    EXPECT_FALSE(cFresh.ReadString(strKey));
    EXPECT_EQ(W(strKey), L"k");
    EXPECT_EQ(W(strValue), L"v");
}

TEST_F(ReaderTest, FailedCommandLeavesNoStream)
{
    Feed("default", s_strCodeStat, "refused\n", 1);
    CReaderCmd cCmd;
    EXPECT_FALSE(cCmd.Execute(L"-G test"));
    CString strKey, strValue;
    EXPECT_EQ(cCmd.GetNextPair(strKey, strValue), 0);
}

TEST_F(ReaderTest, TrailingRecordStartGivesTwo)
{
    Load(s_strCodeStat + "{");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, LoneRecordStartGivesTwo)
{
    Load("{");
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, DoubledRecordStartGivesTwo)
{
    Load("{{" + MarshalString("a") + MarshalString("b") + "0");
    EXPECT_EQ(Next(), 2);
}

TEST_F(ReaderTest, RecordEndWithoutStartGivesThree)
{
    Load("0");
    EXPECT_EQ(Next(), 3);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, BodyEndingEarlyGivesTwo)
{
    Load("{s" + Le32(10) + "code");
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(W(m_strKey), L"(key untouched)");
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, ValueEndingEarlyGivesTwoWithTheKeyAssigned)
{
    Load("{" + MarshalString("code") + "s" + Le32(100) + "stat");
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(W(m_strKey), L"code");
    EXPECT_EQ(W(m_strValue), L"(value untouched)");
}

TEST_F(ReaderTest, TruncatedLengthGivesTwo)
{
    Load("{s" + std::string("\x04\x00", 2));
    EXPECT_EQ(Next(), 2);
}

TEST_F(ReaderTest, TypeCodeAsLastByteGivesTwo)
{
    Load("{s");
    EXPECT_EQ(Next(), 2);
}

TEST_F(ReaderTest, LengthAsLastFieldGivesTwo)
{
    Load("{" + MarshalString("code") + "s" + Le32(0));
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(W(m_strKey), L"code");
    EXPECT_EQ(W(m_strValue), L"(value untouched)");
}

TEST_F(ReaderTest, EmptyStringsInsideTheStream)
{
    Load("{" + MarshalString("") + MarshalString("") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"");
    EXPECT_EQ(W(m_strValue), L"");
    EXPECT_EQ(Next(), 3);
}

TEST_F(ReaderTest, BodyIsCutAtANulByte)
{
    Load("{" + MarshalString("key") + MarshalString(std::string("ab\0cd", 5)) + MarshalString("next") +
         MarshalString("x") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strValue), L"ab");
    // The whole body was consumed all the same.
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"next");
}

TEST_F(ReaderTest, BinaryBytesInTheBody)
{
    // Line ends, '0', '{' and 's' inside a body are plain data.
    Load("{" + MarshalString("desc") + MarshalString("a\r\n{s0\t") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strValue), L"a\r\n{s0\t");
    EXPECT_EQ(Next(), 3);
}

TEST_F(ReaderTest, BufferIsReusedAcrossLongAndShortStrings)
{
    const std::string strLong(200000, 'L');
    Load("{" + MarshalString("long") + MarshalString(strLong) + MarshalString("k") + MarshalString("v") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(m_strValue.length(), strLong.size());
    EXPECT_EQ(Utf8(W(m_strValue)), strLong);
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"k");
    EXPECT_EQ(W(m_strValue), L"v");
}

TEST_F(ReaderTest, ReadStringAlone)
{
    Load(MarshalString("one") + "x" + MarshalString("two"));
    CString str = L"old";
    EXPECT_TRUE(m_cCmd.ReadString(str));
    EXPECT_EQ(W(str), L"one");
    // A byte other than 's' is refused and consumed.
    EXPECT_FALSE(m_cCmd.ReadString(str));
    EXPECT_EQ(W(str), L"one");
    EXPECT_TRUE(m_cCmd.ReadString(str));
    EXPECT_EQ(W(str), L"two");
    EXPECT_FALSE(m_cCmd.ReadString(str));
}

TEST_F(ReaderTest, LengthWithoutRoomForTheTerminatorFailsAllocation)
{
    Load("{s" + Le32(0xFFFFFFFFu) + "abc0");
    EXPECT_THROW(Next(), std::bad_alloc);
}

TEST_F(ReaderTest, Utf8BodyUnderAUtf8Locale)
{
    ASSERT_TRUE(UseUtf8Locale());
    Load("{" + MarshalString("desc") + MarshalString("Gr\xC3\xBC\xC3\x9F" "e \xE2\x9C\x93 \xF0\x9F\x98\x80") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strValue), std::wstring(L"Gr\u00FC\u00DFe \u2713 \U0001F600"));
}

TEST_F(ReaderTest, NonAsciiBodyUnderTheCLocaleIsEmpty)
{
    Load("{" + MarshalString("desc") + MarshalString("Gr\xC3\xBC\xC3\x9F" "e") + MarshalString("plain") +
         MarshalString("ascii") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strKey), L"desc");
    EXPECT_EQ(W(m_strValue), L"");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strValue), L"ascii");
}

TEST_F(ReaderTest, InvalidUtf8UnderAUtf8LocaleIsEmpty)
{
    ASSERT_TRUE(UseUtf8Locale());
    Load("{" + MarshalString("desc") + MarshalString("bad \xFF byte") + "0");
    EXPECT_EQ(Next(), 1);
    EXPECT_EQ(W(m_strValue), L"");
}

// p4sim's own output, damaged on purpose.
TEST_F(ReaderTest, OutputCutInTheFirstRecord)
{
    Server(R"({"branches":[{"name":"rel1","view":["//depot/main/... //depot/rel1/..."]}]})");
    ::setenv("P4SIM_GARBLE", "branches", 1);
    ::setenv("P4SIM_GARBLE_MODE", "cut", 1);
    ASSERT_TRUE(m_cCmd.Execute(L"-G branches"));
    int nResult;
    int nPairs = 0;
    while ((nResult = Next()) == 1)
        ++nPairs;
    // The whole record has seven pairs (code, branch, Update, Access, Owner,
    // Options, Description). The cut falls inside the second pair, so the
    // first one is read whole and the broken one is a failure.
    EXPECT_EQ(nPairs, 1);
    EXPECT_EQ(nResult, 2);
}

TEST_F(ReaderTest, LengthRunningPastTheEnd)
{
    Server(R"({"branches":[{"name":"rel1","view":["//depot/main/... //depot/rel1/..."]}]})");
    ::setenv("P4SIM_GARBLE", "branches", 1);
    ::setenv("P4SIM_GARBLE_MODE", "length", 1);
    ASSERT_TRUE(m_cCmd.Execute(L"-G branches"));
    int nResult;
    while ((nResult = Next()) == 1)
    {
    }
    EXPECT_EQ(nResult, 2);
    EXPECT_EQ(Next(), 0);
}

TEST_F(ReaderTest, IntegerInPlaceOfTheFirstValue)
{
    Server(R"({"branches":[{"name":"rel1","view":["//depot/main/... //depot/rel1/..."]}]})");
    ::setenv("P4SIM_GARBLE", "branches", 1);
    ::setenv("P4SIM_GARBLE_MODE", "type", 1);
    ASSERT_TRUE(m_cCmd.Execute(L"-G branches"));
    EXPECT_EQ(Next(), 2);
    EXPECT_EQ(W(m_strKey), L"code");
}

} // namespace
} // namespace mp4test
