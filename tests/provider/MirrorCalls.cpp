// The engine side of the binary contract test: only the engine's own
// declaration of the interface is known here.
#include <gtest/gtest.h>

#include "ItaniumLayout.h"
#include "MirrorProvider.h"

namespace mirror {

namespace {
std::string Utf8(const wxString& str)
{
    return std::string(str.utf8_str().data());
}
} // namespace

// To the sanitizer, calls through this declaration are calls on an object
// of another class: that is the very point here.
__attribute__((no_sanitize("vptr"))) void CallEverySlot(void* pObject, IRealProbe& cProbe)
{
    IProvider* pm = static_cast<IProvider*>(pObject);

    // Data members.
    EXPECT_EQ(nullptr, pm->m_pEngine);
    EXPECT_EQ("test", Utf8(pm->m_strID));
    EXPECT_EQ("Test Source", Utf8(pm->m_strName));
    EXPECT_EQ("Streams converted from a test", Utf8(pm->m_strDescription));
    EXPECT_FALSE(pm->m_bFlag1);
    EXPECT_FALSE(pm->m_bFlag2);
    pm->m_pEngine = const_cast<void*>(cProbe.EngineToSet()); // the engine sets it itself
    EXPECT_EQ(cProbe.EngineToSet(), cProbe.Engine());

    // Settings.
    pm->SetProperty(L"Text", L"through the mirror");
    EXPECT_EQ("through the mirror", cProbe.StringProperty(L"Text"));
    EXPECT_EQ(cProbe.PropertyTable(), static_cast<const void*>(pm->GetPropertyInfo()));
    EXPECT_STREQ(L"Flag", pm->GetPropertyInfo()[0].pszKey);
    CString strValue(L"v"), strError;
    EXPECT_FALSE(pm->ValidateStringProperty(L"Key", strValue, strError));
    EXPECT_EQ("validated Key", Utf8(strValue));
    EXPECT_EQ("none", Utf8(strError));
    EXPECT_EQ(5, pm->CheckEnvironment(strError));
    EXPECT_EQ("checked", Utf8(strError));

    // Log.
    pm->LogToConnection();
    EXPECT_TRUE(pm->IsLogOpen());
    EXPECT_TRUE(cProbe.LogOpen());
    pm->WriteLog(L"via mirror %d %ls", 42, L"text");
    const std::vector<std::string> astrMessages = cProbe.ConnectionMessages();
    ASSERT_EQ(1u, astrMessages.size());
    EXPECT_NE(std::string::npos, astrMessages[0].find(": via mirror 42 text\n"));
    pm->OpenLog(false);
    EXPECT_FALSE(pm->IsLogOpen());
    EXPECT_FALSE(cProbe.LogOpen());
    EXPECT_TRUE(pm->GetLogPath().empty());

    // Streams.
    cProbe.SetStreamsToFind();
    unsigned int nCount = 0;
    EXPECT_EQ(0, pm->EstablishStreams(nCount));
    EXPECT_EQ(2u, nCount);
    EXPECT_EQ(11, pm->ResolveStreamLinkage());
    POSITION pos = nullptr;
    TStreamInfo tStream;
    EXPECT_EQ(0, pm->GetNextStream(pos, tStream, 1));
    EXPECT_EQ(2u, tStream.nID);
    EXPECT_EQ(1u, tStream.nParentID);
    EXPECT_EQ("rel1", Utf8(tStream.strName));
    EXPECT_EQ("//depot/rel1", Utf8(tStream.cDstPath.GeneratePath(L'/', true)));
    pm->ResetStreams();
    EXPECT_EQ(0, cProbe.StreamCount());
    EXPECT_EQ(0, pm->EstablishStreams(nCount));
    EXPECT_EQ(2, cProbe.SearchCalls());
    EXPECT_TRUE(pm->SearchForStreams());
    EXPECT_EQ(3, cProbe.SearchCalls());

    EXPECT_TRUE(pm->InitialiseClients(L"/tmp/ws"));
    EXPECT_EQ("/tmp/ws", cProbe.ClientsRoot());

    // Changesets and items.
    cProbe.SetEnumeration();
    EXPECT_EQ(0, pm->OnBeginStream(1, L"/tmp/orvane-contract-root"));
    EXPECT_EQ(1u, cProbe.CurrentStreamID());
    EXPECT_EQ(0, pm->EstablishChangesets(nCount));
    EXPECT_EQ(1u, nCount);
    EXPECT_EQ(1, cProbe.EnumerateCalls());
    TChangeInfo tChange;
    EXPECT_EQ(0, pm->OnFirstChangeset(tChange));
    EXPECT_EQ("jo@ws", Utf8(tChange.strUser));
    EXPECT_EQ(1234, tChange.tTime);
    EXPECT_EQ("the change", Utf8(tChange.strComment));
    EXPECT_EQ(3u, tChange.nItemCount);
    const unsigned int nChangeID = tChange.nID;
    EXPECT_NE(0u, nChangeID);
    EXPECT_EQ(0, pm->OnProcessChange(tChange));
    EXPECT_EQ(std::vector<unsigned int>{nChangeID}, cProbe.RetrievedChanges());
    TChangeItemInfo tItem;
    EXPECT_EQ(0, pm->OnFirstChangeItem(tItem));
    EXPECT_EQ(nChangeID, tItem.nChangeID);
    EXPECT_EQ(1u, tItem.eType);
    EXPECT_EQ("a.c", Utf8(tItem.cFilePath.GeneratePath(L'/', true)));
    EXPECT_EQ(3u, tItem.nRevision);
    EXPECT_EQ(0, pm->OnNextChangeItem(tItem));
    EXPECT_EQ(2u, tItem.eType);
    EXPECT_EQ(4u, tItem.nRevision);
    EXPECT_EQ(2, pm->OnNextChangeItem(tItem));
    EXPECT_EQ(2, pm->OnNextChangeset(tChange));
    EXPECT_EQ(2u, cProbe.RetrievedItems().size());

    // The common base's own slots.
    EXPECT_EQ(0, pm->RetrieveChangeFiles(*static_cast<const TChangeRecordOpaque*>(cProbe.ChangeRecord(999))));
    EXPECT_EQ(999u, cProbe.RetrievedChanges().back());
    EXPECT_EQ(0, pm->RetrieveChangeItemFile(
                     *static_cast<const TChangeItemRecordOpaque*>(cProbe.ChangeItemRecord(5, 6)), L"/x/y"));
    EXPECT_EQ("5/6 /x/y", cProbe.RetrievedItems().back());
    EXPECT_TRUE(pm->EnumerateChanges());
    EXPECT_EQ(2, cProbe.EnumerateCalls());
    EXPECT_EQ(107, pm->RetrieveFiles(7));

    // The log dump, through a file log this time.
    pm->OpenLog(true);
    pm->LogStreamsAndChanges();
    const CString strLog = pm->GetLogPath();
    FILE* pf = fopen(strLog.utf8_str().data(), "rb");
    ASSERT_NE(nullptr, pf);
    std::string strText;
    char ach[4096];
    size_t n;
    while ((n = fread(ach, 1, sizeof(ach), pf)) > 0)
        strText.append(ach, n);
    fclose(pf);
    remove(strLog.utf8_str().data());
    EXPECT_NE(std::string::npos, strText.find(": Beginning Import with Test Source\n"));
    EXPECT_NE(std::string::npos, strText.find(": Processing stream 'main' "
                                              "(id=1,parentid=0,destpath=//depot/main,srcpath=,basechangeid=0)"));
    EXPECT_NE(std::string::npos, strText.find("comment=the change"));

    pm->RemoveClients();
    EXPECT_EQ(1, cProbe.RemoveCalls());
    pm->m_pEngine = nullptr;
}

std::map<std::string, long> Layout()
{
    std::map<std::string, long> mapLayout;
#if ORVANE_TEST_ITANIUM_LAYOUT
#define MIRROR_SLOT(name) mapLayout["slot " #name] = ORVANE::TEST::VirtualSlot(&IProvider::name);
    MIRROR_PROVIDER_OPERATIONS(MIRROR_SLOT)
    MIRROR_BASE_OPERATIONS(MIRROR_SLOT)
#undef MIRROR_SLOT
#define MIRROR_MEMBER(type, declared, name) mapLayout[type "::" #name] = ORVANE::TEST::MemberOffset(&declared::name);
#define MIRROR_PROVIDER_MEMBER(name) MIRROR_MEMBER("CProvider", IProvider, name)
#define MIRROR_STREAM_FIELD(name) MIRROR_MEMBER("TStreamInfo", TStreamInfo, name)
#define MIRROR_CHANGE_FIELD(name) MIRROR_MEMBER("TChangeInfo", TChangeInfo, name)
#define MIRROR_ITEM_FIELD(name) MIRROR_MEMBER("TChangeItemInfo", TChangeItemInfo, name)
#define MIRROR_PROPERTY_FIELD(name) MIRROR_MEMBER("TPropertyInfo", TPropertyInfo, name)
    MIRROR_PROVIDER_MEMBERS(MIRROR_PROVIDER_MEMBER)
    MIRROR_STREAM_FIELDS(MIRROR_STREAM_FIELD)
    MIRROR_CHANGE_FIELDS(MIRROR_CHANGE_FIELD)
    MIRROR_ITEM_FIELDS(MIRROR_ITEM_FIELD)
    MIRROR_PROPERTY_FIELDS(MIRROR_PROPERTY_FIELD)
#undef MIRROR_PROPERTY_FIELD
#undef MIRROR_ITEM_FIELD
#undef MIRROR_CHANGE_FIELD
#undef MIRROR_STREAM_FIELD
#undef MIRROR_PROVIDER_MEMBER
#undef MIRROR_MEMBER
#endif
    mapLayout["sizeof CProvider"] = sizeof(IProvider);
    mapLayout["sizeof TStreamInfo"] = sizeof(TStreamInfo);
    mapLayout["sizeof TChangeInfo"] = sizeof(TChangeInfo);
    mapLayout["sizeof TChangeItemInfo"] = sizeof(TChangeItemInfo);
    mapLayout["sizeof TPropertyInfo"] = sizeof(TPropertyInfo);
    return mapLayout;
}

__attribute__((no_sanitize("vptr"))) void DestroyThroughMirror(void* pObject)
{
    static_cast<IProvider*>(pObject)->Destroy();
}

__attribute__((no_sanitize("vptr"))) void DeleteThroughMirror(void* pObject)
{
    delete static_cast<IProvider*>(pObject);
}

} // namespace mirror
