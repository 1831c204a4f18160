// Reading "p4 -G print" output as it arrives: headers, content in pieces
// (however the bytes are cut), messages, and broken output.
#include <gtest/gtest.h>

#include "Marshal.h"
#include "perforce/PrintReader.h"

using namespace ORVANE::IMP;
using ORVANE::TEST::MarshalInteger;
using ORVANE::TEST::MarshalRecord;
using ORVANE::TEST::MarshalString;

namespace {

// What the reader handed on, as text: "FILE path#rev", "DATA bytes",
// "MESSAGE text".
class CCollect : public CPrintReader::ISink
{
public:
    bool OnFile(const TP4Record& t) override
    {
        m_astr.push_back("FILE " + RecordValue(t, "depotFile") + "#" + RecordValue(t, "rev"));
        return m_nStopAt == 0 || m_astr.size() < m_nStopAt;
    }
    bool OnContent(const char* p, size_t n) override
    {
        m_nBytes += n;
        if (m_bKeep)
            m_strContent.append(p, n);
        m_nLargestPiece = std::max(m_nLargestPiece, n);
        return true;
    }
    void OnMessage(const TP4Record& t) override { m_astr.push_back("MESSAGE " + RecordValue(t, "data")); }

    std::vector<std::string> m_astr;
    std::string m_strContent;
    size_t m_nBytes = 0;
    size_t m_nLargestPiece = 0;
    size_t m_nStopAt = 0;
    bool m_bKeep = true;
};

std::string Header(const std::string& strFile, const std::string& strRev)
{
    return MarshalRecord({{"code", "stat"}, {"depotFile", strFile}, {"rev", strRev}, {"type", "text"}});
}

std::string Content(const std::string& strCode, const std::string& strData)
{
    return MarshalRecord({{"code", strCode}, {"data", strData}});
}

} // namespace

TEST(PrintReaderTest, HeadersAndContentInAnyCut)
{
    const std::string strOut = Header("//depot/a.txt", "3") + Content("text", "hello ") + Content("text", "world\n") +
                               Header("//depot/b.bin", "1") + Content("binary", std::string("\0\x01\x02", 3));
    // Fed whole, and fed one byte at a time: the same.
    for (size_t nPiece : {strOut.size(), size_t(1), size_t(7)})
    {
        CCollect cSink;
        CPrintReader cReader(cSink);
        for (size_t i = 0; i < strOut.size(); i += nPiece)
            ASSERT_TRUE(cReader.Feed(strOut.data() + i, std::min(nPiece, strOut.size() - i))) << cReader.Error();
        EXPECT_TRUE(cReader.AtRecordEnd());
        EXPECT_EQ((std::vector<std::string>{"FILE //depot/a.txt#3", "FILE //depot/b.bin#1"}), cSink.m_astr);
        EXPECT_EQ(std::string("hello world\n\0\x01\x02", 15), cSink.m_strContent);
    }
}

TEST(PrintReaderTest, MessagesAreNoContent)
{
    // An error's text is in its "data" too: it must not become content.
    const std::string strOut =
        MarshalRecord({{"code", "error"}, {"data", "//depot/x#2 - no such file(s).\n"}, {"severity", "2"}}) +
        Header("//depot/a", "1") + Content("text", "a\n");
    CCollect cSink;
    CPrintReader cReader(cSink);
    ASSERT_TRUE(cReader.Feed(strOut.data(), strOut.size()));
    EXPECT_EQ((std::vector<std::string>{"MESSAGE //depot/x#2 - no such file(s).\n", "FILE //depot/a#1"}), cSink.m_astr);
    EXPECT_EQ("a\n", cSink.m_strContent);
}

TEST(PrintReaderTest, IntegerValues)
{
    // A header whose size is marshalled as a number.
    std::string strOut = "{" + MarshalString("code") + MarshalString("stat") + MarshalString("depotFile") +
                         MarshalString("//depot/n") + MarshalString("rev") + MarshalInteger(12) + "0";
    CCollect cSink;
    CPrintReader cReader(cSink);
    ASSERT_TRUE(cReader.Feed(strOut.data(), strOut.size())) << cReader.Error();
    EXPECT_EQ((std::vector<std::string>{"FILE //depot/n#12"}), cSink.m_astr);
}

TEST(PrintReaderTest, ALargeContentPassesInPieces)
{
    // 32 MB in one record: handed on as it arrives, never held whole.
    const std::string strData(32u << 20, 'x');
    const std::string strOut = Header("//depot/big", "1") + Content("binary", strData);
    CCollect cSink;
    cSink.m_bKeep = false;
    CPrintReader cReader(cSink);
    for (size_t i = 0; i < strOut.size(); i += 65536)
        ASSERT_TRUE(cReader.Feed(strOut.data() + i, std::min<size_t>(65536, strOut.size() - i)));
    EXPECT_TRUE(cReader.AtRecordEnd());
    EXPECT_EQ(strData.size(), cSink.m_nBytes);
    EXPECT_LE(cSink.m_nLargestPiece, size_t(65536));
}

TEST(PrintReaderTest, OutputCutShortIsNotAtARecordEnd)
{
    const std::string strOut = Header("//depot/a", "1") + Content("text", "abcdef");
    CCollect cSink;
    CPrintReader cReader(cSink);
    ASSERT_TRUE(cReader.Feed(strOut.data(), strOut.size() - 3));
    EXPECT_FALSE(cReader.AtRecordEnd());
}

TEST(PrintReaderTest, BrokenOutputFails)
{
    CCollect cSink;
    CPrintReader cReader(cSink);
    EXPECT_FALSE(cReader.Feed("Perforce password (P4PASSWD) invalid", 36));
    EXPECT_EQ("not a marshalled dictionary", cReader.Error());
    const std::string strBadValue = "{" + MarshalString("code") + "[";
    CPrintReader cOther(cSink);
    EXPECT_FALSE(cOther.Feed(strBadValue.data(), strBadValue.size()));
    EXPECT_EQ("a value of a kind print does not write", cOther.Error());
}

TEST(PrintReaderTest, TheSinkStops)
{
    const std::string strOut = Header("//depot/a", "1") + Header("//depot/b", "1");
    CCollect cSink;
    cSink.m_nStopAt = 1;
    CPrintReader cReader(cSink);
    EXPECT_FALSE(cReader.Feed(strOut.data(), strOut.size()));
    EXPECT_EQ("stopped", cReader.Error());
    EXPECT_EQ((std::vector<std::string>{"FILE //depot/a#1"}), cSink.m_astr);
}
