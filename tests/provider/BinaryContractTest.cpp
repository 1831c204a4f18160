// The binary contract with engines: every slot of the provider interface,
// called through an engine's own declaration of it, reaches the intended
// operation of a real provider, and the data members sit where the engine
// expects them.
#include <gtest/gtest.h>

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
