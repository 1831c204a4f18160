// The engine's own p4 questions: marshalled output decoded, problems named.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "Marshal.h"
#include "host/ProcessCapture.h"
#include "perforce/P4Query.h"

#include <unistd.h>

using namespace ORVANE::IMP;

namespace {

using ORVANE::TEST::Le32;

std::string S(const std::string& str)
{
    return ORVANE::TEST::MarshalString(str);
}

std::vector<TP4Record> DecodeAll(const std::string& strBytes, size_t nChunk, bool& bOk, bool& bAtEnd)
{
    CMarshalDecoder cDecoder;
    std::vector<TP4Record> at;
    bOk = true;
    for (size_t i = 0; i < strBytes.size() && bOk; i += nChunk)
        bOk = cDecoder.Feed(strBytes.data() + i, std::min(nChunk, strBytes.size() - i), [&at](const TP4Record& t) {
            at.push_back(t);
            return true;
        });
    bAtEnd = cDecoder.AtRecordEnd();
    return at;
}

} // namespace

TEST(MarshalDecoder, RecordsInAnyPieces)
{
    const std::string strBytes = "{" + S("code") + S("stat") + S("depotFile") + S("//depot/a b") + "0" + "{" +
                                 S("code") + S("error") + S("severity") + "i" + Le32(3) + S("data") +
                                 S("no such file(s).\n") + "0";
    for (size_t nChunk : {size_t(1), size_t(3), size_t(7), strBytes.size()})
    {
        bool bOk = false, bAtEnd = false;
        const std::vector<TP4Record> at = DecodeAll(strBytes, nChunk, bOk, bAtEnd);
        EXPECT_TRUE(bOk);
        EXPECT_TRUE(bAtEnd);
        ASSERT_EQ(2u, at.size()) << nChunk;
        EXPECT_EQ((TP4Record{{"code", "stat"}, {"depotFile", "//depot/a b"}}), at[0]);
        EXPECT_EQ((TP4Record{{"code", "error"}, {"severity", "3"}, {"data", "no such file(s).\n"}}), at[1]);
    }
}

TEST(MarshalDecoder, BrokenAndCutOutput)
{
    bool bOk = true, bAtEnd = true;
    DecodeAll("{" + S("code") + "x", 100, bOk, bAtEnd);
    EXPECT_FALSE(bOk);
    DecodeAll("plain text\n", 100, bOk, bAtEnd);
    EXPECT_FALSE(bOk);
    const std::vector<TP4Record> at = DecodeAll("{" + S("code") + S("stat") + "0{" + S("code"), 100, bOk, bAtEnd);
    EXPECT_TRUE(bOk);
    EXPECT_FALSE(bAtEnd);
    EXPECT_EQ(1u, at.size());
    CMarshalDecoder cDecoder;
    EXPECT_FALSE(cDecoder.Feed("{s\xff\xff\xff\xff", 6, [](const TP4Record&) { return true; }));
    EXPECT_EQ("a negative string length", cDecoder.GetError());
}

TEST(MarshalDecoder, CallbackStopsTheListing)
{
    const std::string strOne = "{" + S("n") + "i" + Le32(7) + "0";
    CMarshalDecoder cDecoder;
    int nSeen = 0;
    EXPECT_TRUE(cDecoder.Feed((strOne + strOne + strOne).data(), strOne.size() * 3, [&nSeen](const TP4Record& t) {
        EXPECT_EQ("7", t.at("n"));
        return ++nSeen < 2;
    }));
    EXPECT_EQ(2, nSeen);
}

TEST(P4Result, ProblemNamesTheServersMessageFirst)
{
    TP4Result t;
    t.nStatus = 1;
    t.strError = "stderr line\nsecond\n";
    EXPECT_EQ("stderr line", t.Problem());
    t.atRecords.push_back({{"code", "error"}, {"data", "Connect to server failed; check $P4PORT.\nTCP...\n"}});
    EXPECT_EQ("Connect to server failed; check $P4PORT.", t.Problem());
    TP4Result tOk;
    tOk.nStatus = 0;
    EXPECT_EQ("", tOk.Problem());
    tOk.bDecoded = false;
    EXPECT_EQ("its output could not be read", tOk.Problem());
    TP4Result tStatus;
    tStatus.nStatus = 3;
    EXPECT_EQ("it ended with exit status 3", tStatus.Problem());
}

TEST(P4Query, MissingClientIsAStartFailure)
{
    const TP4Result t = CP4Query("/nonexistent/p4").Run({"info"});
    EXPECT_EQ(127, t.nStatus);
    EXPECT_EQ("cannot run '/nonexistent/p4': No such file or directory", t.Problem());
}

TEST(P4Result, WarningsAreNoProblem)
{
    TP4Result t;
    t.nStatus = 0;
    t.atRecords.push_back({{"code", "error"}, {"severity", "2"}, {"data", "//depot/... - no such file(s).\n"}});
    EXPECT_EQ("", t.Problem());
    EXPECT_FALSE(IsFailureRecord(t.atRecords[0]));
    EXPECT_TRUE(IsFailureRecord({{"code", "error"}, {"severity", "3"}}));
    EXPECT_TRUE(IsFailureRecord({{"code", "error"}}));
    EXPECT_FALSE(IsFailureRecord({{"code", "stat"}}));
}

TEST(RewriteMarshalled, OnlyTheValuesReplacedChangeAndTheOrderStays)
{
    const std::string strIn = "{" + S("code") + S("stat") + S("rev0") + S("3") + S("desc") + S("old") + S("n") + "i" +
                              Le32(7) + "0" + "{" + S("desc") + S("x") + "0";
    std::string strOut;
    ASSERT_TRUE(RewriteMarshalled(strIn, strOut, [](const std::string& strKey, std::string& strValue) {
        if (strKey != "desc")
            return false;
        strValue = "new " + strValue;
        return true;
    }));
    EXPECT_EQ("{" + S("code") + S("stat") + S("rev0") + S("3") + S("desc") + S("new old") + S("n") + "i" + Le32(7) +
                  "0" + "{" + S("desc") + S("new x") + "0",
              strOut);
    // Nothing replaced: the same bytes.
    ASSERT_TRUE(RewriteMarshalled(strIn, strOut, [](const std::string&, std::string&) { return false; }));
    EXPECT_EQ(strIn, strOut);
    // Bytes cut short, or no dictionary: false.
    EXPECT_FALSE(
        RewriteMarshalled(strIn.substr(0, 10), strOut, [](const std::string&, std::string&) { return false; }));
    EXPECT_FALSE(RewriteMarshalled("plain text", strOut, [](const std::string&, std::string&) { return false; }));
}
