// The binary contract with engines: every slot of the provider interface,
// called through an engine's own declaration of it, reaches the intended
// operation of a real provider, and the data members sit where the engine
// expects them: where both declarations put them, and where the declared
// order puts them by hand on 32-bit and 64-bit x86.
#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <map>
#include <string>

#include "ItaniumLayout.h"
#include "MirrorProvider.h"
#include "TestProvider.h"

using namespace test;

namespace {

bool g_bDestroyed = false;

class CContractProvider : public CTestProvider
{
public:
    ~CContractProvider() override { g_bDestroyed = true; }

    int CheckEnvironment(CString& strError) override
    {
        strError = L"checked";
        return 5;
    }
    int ResolveStreamLinkage() override { return 11; }
    bool ValidateStringProperty(const wchar_t* pszKey, CString& strValue, CString& strError) override
    {
        strValue = CString(L"validated ") + pszKey;
        strError = L"none";
        return false;
    }
    bool InitialiseClients(const CString& strRoot) override
    {
        m_strClientsRoot = strRoot;
        return true;
    }
    bool RemoveClients() override
    {
        ++m_nRemoveCalls;
        return true;
    }
    int RetrieveFiles(unsigned int nStream) override { return 100 + static_cast<int>(nStream); }

    CString m_strClientsRoot;
    int m_nRemoveCalls = 0;
};

// Answers the engine side's questions about the real object.
class CProbe : public mirror::IRealProbe
{
public:
    explicit CProbe(CContractProvider& c) : m_c(c) {}

    std::string StringProperty(const wchar_t* pszKey) override { return Utf8(m_c.GetStringProperty(pszKey)); }
    const void* Engine() override { return m_c.GetEngine(); }
    const void* EngineToSet() override { return &m_tEngine.cEngine; }
    const void* PropertyTable() override { return CTestProvider::s_atProperties; }
    bool LogOpen() override { return m_c.IsLogOpen(); }
    std::vector<std::string> ConnectionMessages() override { return m_tEngine.cConnection.m_astrMessages; }
    int StreamCount() override { return m_c.StreamCount(); }
    int SearchCalls() override { return m_c.m_nSearchCalls; }
    int EnumerateCalls() override { return m_c.m_nEnumerateCalls; }
    int RemoveCalls() override { return m_c.m_nRemoveCalls; }
    std::string ClientsRoot() override { return Utf8(m_c.m_strClientsRoot); }
    unsigned int CurrentStreamID() override { return m_c.CurrentStream().nID; }
    std::vector<unsigned int> RetrievedChanges() override { return m_c.m_anRetrievedChanges; }
    std::vector<std::string> RetrievedItems() override { return m_c.m_astrRetrievedItems; }
    void SetStreamsToFind() override
    {
        m_c.m_atToFind = {Stream(1, 0, L"main", L"//depot/main"), Stream(2, 1, L"rel1", L"//depot/rel1")};
    }
    void SetEnumeration() override
    {
        m_c.m_fnEnumerate = [](CTestProvider& p) {
            const unsigned int n = p.AddChange(77, 1, L"jo@ws", L"the change", 1234);
            p.AddChangeItem(n, 1, ORVANE::MCE::eChangeItemModify, Path(L"a.c"), 3);
            p.AddChangeItem(n, 2, ORVANE::MCE::eChangeItemDelete, Path(L"b.c"), 4);
            p.UpdateChangeItemCount(n, 3);
        };
    }
    const void* ChangeRecord(unsigned int nID) override
    {
        m_tChange.nID = nID;
        return &m_tChange;
    }
    const void* ChangeItemRecord(unsigned int nID, unsigned int nItem) override
    {
        m_tItem.nID = nID;
        m_tItem.nItem = nItem;
        return &m_tItem;
    }

private:
    CContractProvider& m_c;
    TTestEngine m_tEngine;
    TChangeRecord m_tChange;
    TChangeItemRecord m_tItem;
};

// The address an engine holds: that of the interface part.
void* AsEngineSees(CContractProvider* p)
{
    return static_cast<ORVANE::MCE::CProvider*>(p);
}

} // namespace

TEST(BinaryContract, EverySlotReachesItsOperation)
{
    CContractProvider* pReal = new CContractProvider;
    {
        CProbe cProbe(*pReal);
        mirror::CallEverySlot(AsEngineSees(pReal), cProbe);
    }
    g_bDestroyed = false;
    mirror::DestroyThroughMirror(AsEngineSees(pReal));
    EXPECT_TRUE(g_bDestroyed);
    EXPECT_FALSE(FileExists(StagingBase() + ".tdf"));
}

TEST(BinaryContract, DeletingDestructorSlot)
{
    CContractProvider* pReal = new CContractProvider;
    g_bDestroyed = false;
    mirror::DeleteThroughMirror(AsEngineSees(pReal));
    EXPECT_TRUE(g_bDestroyed);
}

// ---------------------------------------------------------------------------
// Layout: slots and offsets, printed on every platform, and checked on i386
// (the engines' platform) and x86-64 against the places derived by hand.
//
// The rules (i386 System V ABI; x86-64 in brackets), as GCC applies them to
// C++ classes under the Itanium C++ ABI:
//  - Pointers, long and size_t have 4 bytes and are 4-aligned [8, 8]; int,
//    unsigned int, wchar_t and the 32-bit enumerations 4, 4-aligned; bool 1.
//    double, long long and uint64_t are 4-aligned inside structures on i386
//    [8]; none of them is a member of the classes below.
//  - A member goes to the next offset that is a multiple of its alignment; a
//    class is aligned as its most aligned member, and its size is rounded up
//    to a multiple of that.
//  - A class with virtual functions begins with the pointer to its table of
//    virtual functions (vptr) at 0. A derived class's own members start after
//    the data of its primary base (in the base's tail padding, if any).
//  - Virtual operations take slots in the order declared; a virtual
//    destructor takes two (complete object, deleting); a derived class's new
//    operations follow its base's slots.
// The member types, in bytes, i386 [x86-64]:
//  - CString: a wxString, nothing added. wxWidgets 3.2 as Debian builds it
//    (wide characters, std::wstring inside) holds a std::wstring and a
//    conversion buffer {char*, size_t}. libstdc++'s std::wstring is a
//    pointer, a size_t length and a 16-byte local buffer (15 / sizeof(wchar_t)
//    + 1 = 4 wide characters): 4 + 4 + 16 = 24 [32]; with the buffer 8 [16]:
//    32 [48], 4-aligned [8].
//  - CFilePath: a std::vector (three pointers): 12 [24].
//  - CProperties: a std::vector and an int: 16 [28, rounded to 32].
//  - CArray<T>, CMap<K, V>: capacity and count (int32_t) and a pointer: 12 [16].
//  - CChangeTable, CChangeItemTable: a CTable (vptr, database pointer,
//    bindings pointer, std::weak_ptr of two pointers): 20 [40].
//  - CIterator<T>: a std::unique_ptr: 4 [8].
//  - CTimestamp: an int32_t: 4.
// Each row's comment gives the step from the row before it.

#if ORVANE_TEST_ITANIUM_LAYOUT
namespace {

using ORVANE::TEST::MemberOffset;
using ORVANE::TEST::VirtualSlot;

struct TPlace
{
    const char* pszName;
    long nI386;
    long nX86_64;
};

const TPlace s_atPlaces[] = {
    // Sizes of the member types.
    {"sizeof void*", 4, 8},
    {"sizeof long", 4, 8},
    {"sizeof wchar_t", 4, 4},
    {"sizeof CString", 32, 48},
    {"sizeof CFilePath", 12, 24},
    {"sizeof CProperties", 16, 32},
    {"sizeof CArray<TStreamInfo>", 12, 16},
    {"sizeof CMap<CString, CString>", 12, 16},
    {"sizeof CChangeTable", 20, 40},
    {"sizeof CIterator<TChangeRecord>", 4, 8},
    {"sizeof CTimestamp", 4, 4},

    // The virtual interface: the same slots on every platform.
    {"slot Destroy", 0, 0},
    {"slot ResetStreams", 1, 1},
    {"slot GetNextStream", 2, 2},
    {"slot CheckEnvironment", 3, 3},
    {"slot EstablishStreams", 4, 4},
    {"slot ResolveStreamLinkage", 5, 5},
    {"slot OnBeginStream", 6, 6},
    {"slot OnFirstChangeset", 7, 7},
    {"slot OnNextChangeset", 8, 8},
    {"slot OnProcessChange", 9, 9},
    {"slot OnFirstChangeItem", 10, 10},
    {"slot OnNextChangeItem", 11, 11},
    {"slot EstablishChangesets", 12, 12},
    {"slot SetProperty", 13, 13},
    {"slot GetPropertyInfo", 14, 14},
    {"slot ValidateStringProperty", 15, 15},
    {"slot InitialiseClients", 16, 16},
    {"slot RemoveClients", 17, 17},
    {"slot RetrieveFiles", 18, 18},
    {"slot LogToConnection", 19, 19},
    {"slot OpenLog", 20, 20},
    {"slot IsLogOpen", 21, 21},
    {"slot GetLogPath", 22, 22},
    {"slot WriteLog", 23, 23},
    {"slot LogStreamsAndChanges", 24, 24},
    // 25 and 26: the destructor.
    {"slot RetrieveChangeFiles", 27, 27},
    {"slot RetrieveChangeItemFile", 28, 28},
    {"slot SearchForStreams", 29, 29},
    {"slot EnumerateChanges", 30, 30},

    // CProvider: vptr at 0.
    {"CProvider::m_pEngine", 4, 8},           // after the vptr
    {"CProvider::m_strID", 8, 16},            // + pointer
    {"CProvider::m_strName", 40, 64},         // + CString 32 [48]
    {"CProvider::m_strDescription", 72, 112}, // + CString
    {"CProvider::m_bFlag1", 104, 160},        // + CString
    {"CProvider::m_bFlag2", 105, 161},        // + bool; data end 106 [162]
    {"sizeof CProvider", 108, 168},           // 106 [162] rounded to 4 [8]

    // CProviderBase: on from CProvider's data end, 106 [162].
    {"CProviderBase::m_atStreams", 108, 168},            // 106 [162] aligned to 4 [8]
    {"CProviderBase::m_cCurrentStream", 120, 184},       // + CArray 12 [16]
    {"CProviderBase::m_cStreamRoot", 204, 328},          // + TStreamInfo 84 [144]
    {"CProviderBase::m_mapProperties", 216, 352},        // + CFilePath 12 [24]
    {"CProviderBase::m_strDatabasePath", 228, 368},      // + CMap 12 [16]
    {"CProviderBase::m_pDatabase", 260, 416},            // + CString 32 [48]
    {"CProviderBase::m_cChangeTable", 264, 424},         // + pointer
    {"CProviderBase::m_cChangeItemTable", 284, 464},     // + CChangeTable 20 [40]
    {"CProviderBase::m_pTransaction", 304, 504},         // + CChangeItemTable 20 [40]
    {"CProviderBase::m_cChangeIterator", 308, 512},      // + pointer
    {"CProviderBase::m_cChangeItemIterator", 312, 520},  // + CIterator 4 [8]
    {"CProviderBase::m_cChangeRecord", 316, 528},        // + CIterator
    {"CProviderBase::m_cChangeItemRecord", 420, 696},    // + TChangeRecord 104 [168]
    {"CProviderBase::m_nChangeCount", 472, 792},         // + TChangeItemRecord 52 [96]
    {"CProviderBase::m_bStreamsEstablished", 476, 796},  // + unsigned int
    {"CProviderBase::m_bChangesEstablished", 477, 797},  // + bool
    {"CProviderBase::m_pLogFile", 480, 800},             // + bool, 478 [798] aligned to 4 [8]
    {"CProviderBase::m_pLogText", 484, 808},             // + pointer
    {"CProviderBase::m_strLogPath", 488, 816},           // + pointer
    {"CProviderBase::m_strLogLine", 520, 864},           // + CString
    {"CProviderBase::m_bLogOpen", 552, 912},             // + CString
    {"CProviderBase::m_bLogToConnection", 553, 913},     // + bool
    {"sizeof CProviderBase", 556, 920},                  // 554 [914] rounded to 4 [8]

    // The records handed across the interface.
    {"TStreamInfo::nID", 0, 0},
    {"TStreamInfo::nParentID", 4, 4},       // + unsigned int
    {"TStreamInfo::cDstPath", 8, 8},        // + unsigned int
    {"TStreamInfo::cSrcPath", 20, 32},      // + CFilePath 12 [24]
    {"TStreamInfo::nBaseChangeID", 32, 56}, // + CFilePath
    {"TStreamInfo::cProperties", 36, 64},   // + unsigned int, 60 aligned to [8]
    {"TStreamInfo::strName", 52, 96},       // + CProperties 16 [32]
    {"sizeof TStreamInfo", 84, 144},        // + CString
    {"TChangeInfo::nID", 0, 0},
    {"TChangeInfo::strUser", 4, 8},         // + unsigned int, aligned to 4 [8]
    {"TChangeInfo::tTime", 36, 56},         // + CString
    {"TChangeInfo::strComment", 40, 64},    // + long 4 [8]
    {"TChangeInfo::nItemCount", 72, 112},   // + CString
    {"sizeof TChangeInfo", 76, 120},        // + unsigned int, rounded to 4 [8]
    {"TChangeItemInfo::nChangeID", 0, 0},
    {"TChangeItemInfo::eType", 4, 4},       // + unsigned int
    {"TChangeItemInfo::cFilePath", 8, 8},   // + enumeration 4
    {"TChangeItemInfo::nRevision", 20, 32}, // + CFilePath
    {"sizeof TChangeItemInfo", 24, 40},     // + unsigned int, rounded to 4 [8]
    {"TPropertyInfo::pszDisplayName", 0, 0},
    {"TPropertyInfo::pszKey", 4, 8},        // + pointer
    {"TPropertyInfo::pszDefault", 8, 16},   // + pointer
    {"TPropertyInfo::nType", 12, 24},       // + pointer
    {"sizeof TPropertyInfo", 16, 32},       // + unsigned int, rounded to 4 [8]

    // The staging records the framework holds (vptr at 0).
    {"TChangeRecord::nID", 4, 8},
    {"TChangeRecord::nProviderID", 8, 12},   // + unsigned int
    {"TChangeRecord::nStreamID", 12, 16},    // + unsigned int
    {"TChangeRecord::strUser", 16, 24},      // + unsigned int, aligned to 4 [8]
    {"TChangeRecord::tTime", 48, 72},        // + CString
    {"TChangeRecord::strComment", 52, 80},   // + long
    {"TChangeRecord::nNextItem", 84, 128},   // + CString
    {"TChangeRecord::cProps", 88, 136},      // + unsigned int, aligned to 4 [8]
    {"sizeof TChangeRecord", 104, 168},      // + CProperties
    {"TChangeItemRecord::nID", 4, 8},
    {"TChangeItemRecord::nItem", 8, 12},     // + unsigned int
    {"TChangeItemRecord::eType", 12, 16},    // + unsigned int
    {"TChangeItemRecord::cFilePath", 16, 24}, // + enumeration, aligned to 4 [8]
    {"TChangeItemRecord::nRevision", 28, 48}, // + CFilePath
    {"TChangeItemRecord::cProps", 32, 56},   // + unsigned int, aligned to 4 [8]
    {"TChangeItemRecord::cTimestamp", 48, 88}, // + CProperties
    {"sizeof TChangeItemRecord", 52, 96},    // + CTimestamp, rounded to 4 [8]
};

#define CONTRACT_BASE_MEMBERS(X)                                                                                       \
    X(m_atStreams) X(m_cCurrentStream) X(m_cStreamRoot) X(m_mapProperties) X(m_strDatabasePath) X(m_pDatabase)        \
        X(m_cChangeTable) X(m_cChangeItemTable) X(m_pTransaction) X(m_cChangeIterator) X(m_cChangeItemIterator)       \
            X(m_cChangeRecord) X(m_cChangeItemRecord) X(m_nChangeCount) X(m_bStreamsEstablished)                      \
                X(m_bChangesEstablished) X(m_pLogFile) X(m_pLogText) X(m_strLogPath) X(m_strLogLine) X(m_bLogOpen)    \
                    X(m_bLogToConnection)
#define CONTRACT_CHANGE_RECORD_FIELDS(X)                                                                               \
    X(nID) X(nProviderID) X(nStreamID) X(strUser) X(tTime) X(strComment) X(nNextItem) X(cProps)
#define CONTRACT_ITEM_RECORD_FIELDS(X) X(nID) X(nItem) X(eType) X(cFilePath) X(nRevision) X(cProps) X(cTimestamp)
#define CONTRACT_PLACE(map, type, declared, name) map[type "::" #name] = MemberOffset(&declared::name);

// Names the framework's protected members; never constructed.
class CLayoutProbe : public CProviderBase
{
public:
    static void AddMembers(std::map<std::string, long>& mapLayout)
    {
#define CONTRACT_PROVIDER_MEMBER(name) CONTRACT_PLACE(mapLayout, "CProvider", CLayoutProbe, name)
#define CONTRACT_BASE_MEMBER(name) CONTRACT_PLACE(mapLayout, "CProviderBase", CLayoutProbe, name)
        MIRROR_PROVIDER_MEMBERS(CONTRACT_PROVIDER_MEMBER)
        CONTRACT_BASE_MEMBERS(CONTRACT_BASE_MEMBER)
#undef CONTRACT_BASE_MEMBER
#undef CONTRACT_PROVIDER_MEMBER
    }
};

// Where the module's own declarations put things, by the names of
// mirror::Layout.
std::map<std::string, long> ModuleLayout()
{
    using namespace ORVANE::MCE;
    using ORVANE::VCM::CArray;
    using ORVANE::VCM::CMap;
    using ORVANE::VCM::CProperties;
    using ORVANE::VCM::CTimestamp;
    using ORVANE::VDB::CIterator;
    using TStreamInfo = CProvider::TStreamInfo;
    using TChangeInfo = CProvider::TChangeInfo;
    using TChangeItemInfo = CProvider::TChangeItemInfo;

    std::map<std::string, long> mapLayout;
#define CONTRACT_SLOT(name) mapLayout["slot " #name] = VirtualSlot(&CProvider::name);
#define CONTRACT_BASE_SLOT(name) mapLayout["slot " #name] = VirtualSlot(&CProviderBase::name);
    MIRROR_PROVIDER_OPERATIONS(CONTRACT_SLOT)
    MIRROR_BASE_OPERATIONS(CONTRACT_BASE_SLOT)
#undef CONTRACT_BASE_SLOT
#undef CONTRACT_SLOT
    CLayoutProbe::AddMembers(mapLayout);
#define CONTRACT_STREAM_FIELD(name) CONTRACT_PLACE(mapLayout, "TStreamInfo", TStreamInfo, name)
#define CONTRACT_CHANGE_FIELD(name) CONTRACT_PLACE(mapLayout, "TChangeInfo", TChangeInfo, name)
#define CONTRACT_ITEM_FIELD(name) CONTRACT_PLACE(mapLayout, "TChangeItemInfo", TChangeItemInfo, name)
#define CONTRACT_PROPERTY_FIELD(name) CONTRACT_PLACE(mapLayout, "TPropertyInfo", TPropertyInfo, name)
#define CONTRACT_CHANGE_RECORD_FIELD(name) CONTRACT_PLACE(mapLayout, "TChangeRecord", TChangeRecord, name)
#define CONTRACT_ITEM_RECORD_FIELD(name) CONTRACT_PLACE(mapLayout, "TChangeItemRecord", TChangeItemRecord, name)
    MIRROR_STREAM_FIELDS(CONTRACT_STREAM_FIELD)
    MIRROR_CHANGE_FIELDS(CONTRACT_CHANGE_FIELD)
    MIRROR_ITEM_FIELDS(CONTRACT_ITEM_FIELD)
    MIRROR_PROPERTY_FIELDS(CONTRACT_PROPERTY_FIELD)
    CONTRACT_CHANGE_RECORD_FIELDS(CONTRACT_CHANGE_RECORD_FIELD)
    CONTRACT_ITEM_RECORD_FIELDS(CONTRACT_ITEM_RECORD_FIELD)
#undef CONTRACT_ITEM_RECORD_FIELD
#undef CONTRACT_CHANGE_RECORD_FIELD
#undef CONTRACT_PROPERTY_FIELD
#undef CONTRACT_ITEM_FIELD
#undef CONTRACT_CHANGE_FIELD
#undef CONTRACT_STREAM_FIELD
    mapLayout["sizeof void*"] = sizeof(void*);
    mapLayout["sizeof long"] = sizeof(long);
    mapLayout["sizeof wchar_t"] = sizeof(wchar_t);
    mapLayout["sizeof CString"] = sizeof(CString);
    mapLayout["sizeof CFilePath"] = sizeof(CFilePath);
    mapLayout["sizeof CProperties"] = sizeof(CProperties);
    mapLayout["sizeof CArray<TStreamInfo>"] = sizeof(CArray<TStreamInfo>);
    mapLayout["sizeof CMap<CString, CString>"] = sizeof(CMap<CString, CString>);
    mapLayout["sizeof CChangeTable"] = sizeof(CChangeTable);
    mapLayout["sizeof CIterator<TChangeRecord>"] = sizeof(CIterator<TChangeRecord>);
    mapLayout["sizeof CTimestamp"] = sizeof(CTimestamp);
    mapLayout["sizeof CProvider"] = sizeof(CProvider);
    mapLayout["sizeof CProviderBase"] = sizeof(CProviderBase);
    mapLayout["sizeof TStreamInfo"] = sizeof(TStreamInfo);
    mapLayout["sizeof TChangeInfo"] = sizeof(TChangeInfo);
    mapLayout["sizeof TChangeItemInfo"] = sizeof(TChangeItemInfo);
    mapLayout["sizeof TPropertyInfo"] = sizeof(TPropertyInfo);
    mapLayout["sizeof TChangeRecord"] = sizeof(TChangeRecord);
    mapLayout["sizeof TChangeItemRecord"] = sizeof(TChangeItemRecord);
    return mapLayout;
}

#if defined(__i386__)
const char s_szPlatform[] = "i386";
long ByHand(const TPlace& t)
{
    return t.nI386;
}
#elif defined(__x86_64__)
const char s_szPlatform[] = "x86-64";
long ByHand(const TPlace& t)
{
    return t.nX86_64;
}
#endif

} // namespace

TEST(BinaryContract, MembersAndSlotsSitWhereTheDeclaredOrderPutsThem)
{
    const std::map<std::string, long> mapModule = ModuleLayout();
    const std::map<std::string, long> mapEngine = mirror::Layout();

    std::printf("Provider interface on %s: module's place, engine's place, place by hand\n", s_szPlatform);
    for (const TPlace& t : s_atPlaces)
    {
        const auto itModule = mapModule.find(t.pszName);
        const auto itEngine = mapEngine.find(t.pszName);
        ASSERT_NE(itModule, mapModule.end()) << t.pszName;
        const std::string strEngine = itEngine == mapEngine.end() ? "-" : std::to_string(itEngine->second);
        std::printf("  %-40s %6ld %6s %6ld\n", t.pszName, itModule->second, strEngine.c_str(), ByHand(t));
        EXPECT_EQ(itModule->second, ByHand(t)) << t.pszName;
        if (itEngine != mapEngine.end())
        {
            EXPECT_EQ(itEngine->second, itModule->second) << t.pszName;
        }
    }
    // Every place either side reports has its row.
    EXPECT_EQ(mapModule.size(), std::size(s_atPlaces));
    for (const auto& tEngine : mapEngine)
        EXPECT_EQ(mapModule.count(tEngine.first), 1u) << tEngine.first;
}
#endif
