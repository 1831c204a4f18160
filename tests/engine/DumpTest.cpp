// The dump's lines, exactly.
#include <gtest/gtest.h>

#include "Dump.h"
#include "EngineHarness.h"
#include "FakeProvider.h"
#include "Stop.h"
#include "UnitSupport.h"

using namespace ORVANE::IMP;
using namespace enginetest;

TEST(Dump, EachKindOfLine)
{
    CMemoryFile cFile;
    CDumpWriter cDump;
    cDump.Attach(cFile.File());
    EXPECT_TRUE(cDump.IsOpen());
    EXPECT_FALSE(cDump.IsStandardOutput());

    TStreamInfo tStream = FakeStream(2, 1, "r\xC3\xA9l", "//depot/rel1", "//depot/main");
    tStream.nBaseChangeID = 41;
    cDump.Stream(tStream);
    cDump.Stream(FakeStream(1, 0, "main", "//depot/main"));
    TChangeInfo tChange;
    tChange.nID = 7;
    tChange.strUser = L"jo@ws";
    tChange.tTime = 1262303999;
    tChange.strComment = L"Say \"hi\"\n\ttabbed \u20ac";
    tChange.nItemCount = 3;
    cDump.Change(2, tChange);
    TChangeItemInfo tItem;
    tItem.nChangeID = 7;
    tItem.eType = ORVANE::MCE::eChangeItemModify;
    tItem.cFilePath.Parse(L"docs/a b.txt", -1, false);
    tItem.nRevision = 4;
    const std::string strDigest = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    cDump.Item(tItem, &strDigest);
    tItem.eType = ORVANE::MCE::eChangeItemDelete;
    cDump.Item(tItem, nullptr);
    tItem.eType = static_cast<ORVANE::MCE::TChangeItemType>(9);
    cDump.Item(tItem, nullptr);
    cDump.Failure("OnNextChangeItem", 1);
    EXPECT_EQ(
        "{\"kind\":\"stream\",\"id\":2,\"parent\":1,\"name\":\"r\xC3\xA9l\",\"src\":\"//depot/main\","
        "\"dst\":\"//depot/rel1\",\"base\":41}\n"
        "{\"kind\":\"stream\",\"id\":1,\"parent\":0,\"name\":\"main\",\"src\":\"\",\"dst\":\"//depot/main\","
        "\"base\":0}\n"
        "{\"kind\":\"change\",\"stream\":2,\"id\":7,\"user\":\"jo@ws\",\"time\":1262303999,"
        "\"comment\":\"Say \\\"hi\\\"\\n\\ttabbed \xE2\x82\xAC\",\"items\":3}\n"
        "{\"kind\":\"item\",\"change\":7,\"type\":\"modify\",\"path\":\"docs/a b.txt\",\"revision\":4,"
        "\"sha256\":\"" +
            strDigest +
            "\"}\n"
            "{\"kind\":\"item\",\"change\":7,\"type\":\"delete\",\"path\":\"docs/a b.txt\",\"revision\":4,"
            "\"sha256\":null}\n"
            "{\"kind\":\"item\",\"change\":7,\"type\":9,\"path\":\"docs/a b.txt\",\"revision\":4,\"sha256\":null}\n"
            "{\"kind\":\"failure\",\"call\":\"OnNextChangeItem\",\"result\":1}\n",
        cFile.Text());
    cDump.Close();
    EXPECT_FALSE(cDump.IsOpen());
}

TEST(Dump, NothingIsWrittenWhenClosed)
{
    CDumpWriter cDump;
    cDump.Failure("EstablishStreams", 1);
    cDump.Stream(FakeStream(1, 0, "main", "//depot/main"));
    EXPECT_FALSE(cDump.IsOpen());
}

TEST(Dump, FilesAndStandardOutput)
{
    TScratch tScratch;
    {
        CDumpWriter cDump;
        cDump.Open(tScratch.Path() + "/dump.jsonl");
        cDump.Failure("X", 2);
    }
    EXPECT_EQ("{\"kind\":\"failure\",\"call\":\"X\",\"result\":2}\n", ReadWholeFile(tScratch.Path() + "/dump.jsonl"));
    CDumpWriter cDump;
    cDump.Open("-");
    EXPECT_TRUE(cDump.IsStandardOutput());
    cDump.Close();
    try
    {
        cDump.Open(tScratch.Path() + "/none/dump.jsonl");
        FAIL() << "opened";
    }
    catch (const EStop& e)
    {
        EXPECT_EQ(eExitFailure, e.Status());
        EXPECT_EQ("cannot write " + tScratch.Path() + "/none/dump.jsonl: No such file or directory",
                  std::string(e.what()));
    }
}
