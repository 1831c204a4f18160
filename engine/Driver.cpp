#include "Driver.h"

#include "Stop.h"
#include "Text.h"

namespace ORVANE {
namespace IMP {

namespace {

// Deeper stream trees than this are cut off: a cycle of parents cannot
// recurse without end.
const int s_nMaxDepth = 10000;

void Require(int nResult, int nExpected, const char* pszCall)
{
    if (nResult != nExpected)
        throw EProviderFailure(pszCall, nResult);
}

} // namespace

CMigrationHandler::~CMigrationHandler() = default;

bool CMigrationDriver::CheckEnvironment(std::string& strWarning)
{
    VCM::CString str;
    const bool bUsable = m_cProvider.CheckEnvironment(str) == 0;
    strWarning = Utf8(str);
    return bUsable;
}

void CMigrationDriver::OpenLog(bool bToConnection)
{
    m_cProvider.OpenLog(true);
    if (bToConnection)
        m_cProvider.LogToConnection();
}

unsigned int CMigrationDriver::EstablishStreams()
{
    m_cHandler.BeforeCall("EstablishStreams");
    unsigned int nCount = 0;
    Require(m_cProvider.EstablishStreams(nCount), eResultDone, "EstablishStreams");
    return nCount;
}

std::vector<TStreamInfo> CMigrationDriver::WalkStreams()
{
    std::vector<TStreamInfo> atStreams;
    std::set<unsigned int> setSeen;
    WalkChildren(0, atStreams, setSeen, 0);
    return atStreams;
}

void CMigrationDriver::WalkChildren(unsigned int nParent, std::vector<TStreamInfo>& atStreams,
                                    std::set<unsigned int>& setSeen, int nDepth)
{
    std::vector<TStreamInfo> atLevel;
    POSITION pos = nullptr;
    TStreamInfo tInfo;
    for (;;)
    {
        m_cHandler.BeforeCall("GetNextStream");
        const int nResult = m_cProvider.GetNextStream(pos, tInfo, nParent);
        if (nResult == eResultNoMore)
            break;
        Require(nResult, eResultDone, "GetNextStream");
        atLevel.push_back(tInfo);
    }
    for (const TStreamInfo& t : atLevel)
    {
        if (!setSeen.insert(t.nID).second || nDepth > s_nMaxDepth)
            continue;
        atStreams.push_back(t);
        WalkChildren(t.nID, atStreams, setSeen, nDepth + 1);
    }
}

void CMigrationDriver::InitialiseClients(const std::string& strRoot)
{
    m_cHandler.BeforeCall("InitialiseClients");
    m_bClientsInitialised = true;
    if (!m_cProvider.InitialiseClients(Wide(strRoot)))
        throw EProviderFailure("InitialiseClients", eResultFailure);
}

void CMigrationDriver::RemoveClients()
{
    if (m_bClientsInitialised)
        m_cProvider.RemoveClients();
    m_bClientsInitialised = false;
}

void CMigrationDriver::ImportStream(unsigned int nStreamID, const std::string& strRoot)
{
    m_cHandler.BeforeCall("OnBeginStream");
    m_cHandler.OnStreamOpening();
    Require(m_cProvider.OnBeginStream(nStreamID, Wide(strRoot).wc_str()), eResultDone, "OnBeginStream");
    m_cHandler.BeforeCall("EstablishChangesets");
    unsigned int nCount = 0;
    Require(m_cProvider.EstablishChangesets(nCount), eResultDone, "EstablishChangesets");
    if (!m_bStreamsRefreshed)
    {
        // Enumerating the changes may have told the provider more of each
        // stream (where it starts, say).
        m_bStreamsRefreshed = true;
        m_cHandler.OnStreamsRefreshed(WalkStreams());
    }
    m_cHandler.OnChangesReady(nCount);
    WalkChanges([this](TChangeInfo& tChange) {
        // Leaving a change out is the engine's choice: the provider needs
        // its OnProcessChange and item walk only for the changes it is asked
        // to bring.
        if (m_cHandler.OnChangeListed(tChange, m_fnChangeNumber ? m_fnChangeNumber() : 0))
            ImportChange(tChange);
    });
    m_cHandler.OnStreamClosed();
}

unsigned int CMigrationDriver::ListChanges(unsigned int nStreamID, const std::string& strRoot,
                                           const std::function<void(const TChangeInfo&)>& fnChange)
{
    m_cHandler.BeforeCall("OnBeginStream");
    Require(m_cProvider.OnBeginStream(nStreamID, Wide(strRoot).wc_str()), eResultDone, "OnBeginStream");
    m_cHandler.BeforeCall("EstablishChangesets");
    unsigned int nCount = 0;
    Require(m_cProvider.EstablishChangesets(nCount), eResultDone, "EstablishChangesets");
    WalkChanges([&fnChange](TChangeInfo& tChange) { fnChange(tChange); });
    return nCount;
}

void CMigrationDriver::WalkChanges(const std::function<void(TChangeInfo&)>& fnChange)
{
    TChangeInfo tChange;
    m_cHandler.BeforeCall("OnFirstChangeset");
    int nResult = m_cProvider.OnFirstChangeset(tChange);
    const char* pszCall = "OnFirstChangeset";
    while (nResult == eResultDone)
    {
        fnChange(tChange);
        m_cHandler.BeforeCall("OnNextChangeset");
        nResult = m_cProvider.OnNextChangeset(tChange);
        pszCall = "OnNextChangeset";
    }
    Require(nResult, eResultNoMore, pszCall);
}

void CMigrationDriver::ImportChange(TChangeInfo& tChange)
{
    m_cHandler.BeforeCall("OnProcessChange");
    Require(m_cProvider.OnProcessChange(tChange), eResultDone, "OnProcessChange");
    m_cHandler.OnChangeSynced(tChange);
    TChangeItemInfo tItem;
    m_cHandler.BeforeCall("OnFirstChangeItem");
    int nResult = m_cProvider.OnFirstChangeItem(tItem);
    const char* pszCall = "OnFirstChangeItem";
    while (nResult == eResultDone)
    {
        m_cHandler.OnChangeItem(tItem);
        m_cHandler.BeforeCall("OnNextChangeItem");
        nResult = m_cProvider.OnNextChangeItem(tItem);
        pszCall = "OnNextChangeItem";
    }
    if (nResult == eResultFailure)
        throw EProviderFailure(pszCall, nResult, m_cHandler.WhyItemFailed(tItem));
    Require(nResult, eResultNoMore, pszCall);
    m_cHandler.OnChangeDone(tChange);
}

} // namespace IMP
} // namespace ORVANE
