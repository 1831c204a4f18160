// The engine-side objects through which a provider reaches the user's client.
#pragma once

#include <wx/string.h>

#include "host/String.h"

namespace ORVANE {
namespace VRM {

// A connection to the user's client. An engine derives from it and decides
// where information messages go (a console, a window, a log).
class IConnectionProxyBase
{
public:
    IConnectionProxyBase() = default;
    IConnectionProxyBase(const IConnectionProxyBase&) = delete;
    IConnectionProxyBase& operator=(const IConnectionProxyBase&) = delete;
    virtual ~IConnectionProxyBase();

    // Formats one information message and hands it to OnInfoMessage.
    void DisplayInfoMsg(const wxFormatString& strFormat, const wchar_t* pszArgument);

protected:
    virtual void OnInfoMessage(const VCM::CString& strMessage) = 0;
};

// Anything that can report to the user through a connection.
class CMsgTarget
{
public:
    explicit CMsgTarget(IConnectionProxyBase* pConnection = nullptr) : m_pConnection(pConnection) {}
    virtual ~CMsgTarget();

    IConnectionProxyBase* GetConnection() const { return m_pConnection; }
    void SetConnection(IConnectionProxyBase* pConnection) { m_pConnection = pConnection; }

private:
    IConnectionProxyBase* m_pConnection;
};

} // namespace VRM

namespace VRO {

// The engine's view of the repository being written.
class CReposView : public VRM::CMsgTarget
{
public:
    explicit CReposView(VRM::IConnectionProxyBase* pConnection = nullptr) : VRM::CMsgTarget(pConnection) {}
    ~CReposView() override;
};

} // namespace VRO

namespace VRW {

// A reference to an engine object, used through operator->.
template <typename T>
class TObjectInvokeRef
{
public:
    explicit TObjectInvokeRef(T* pObject = nullptr) : m_pObject(pObject) {}
    T* operator->() const { return m_pObject; }
    T* Get() const { return m_pObject; }
    void Set(T* pObject) { m_pObject = pObject; }

private:
    T* m_pObject;
};

} // namespace VRW

namespace MCE {

// The history-import engine as a provider sees it.
class CConvertEngine
{
public:
    explicit CConvertEngine(VRO::CReposView* pView = nullptr) : m_rView(pView) {}
    virtual ~CConvertEngine();

    VRM::IConnectionProxyBase* GetConnection() { return m_rView->GetConnection(); }
    void SetReposView(VRO::CReposView* pView) { m_rView.Set(pView); }

protected:
    VRW::TObjectInvokeRef<VRO::CReposView> m_rView;
};

} // namespace MCE
} // namespace ORVANE
