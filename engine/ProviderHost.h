// The engine's side of a provider: the engine object it reports to, whose
// connection prints its information messages, and the provider's lifetime.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "host/Connection.h"
#include "mce/Provider.h"

namespace ORVANE {
namespace IMP {

// Prints each information message as one line.
class CConsoleConnection : public VRM::IConnectionProxyBase
{
public:
    explicit CConsoleConnection(std::FILE* pOut) : m_pOut(pOut) {}

protected:
    void OnInfoMessage(const VCM::CString& strMessage) override;

private:
    std::FILE* m_pOut;
};

class CProviderHost
{
public:
    explicit CProviderHost(std::FILE* pMessages = stderr)
        : m_cConnection(pMessages), m_cView(&m_cConnection), m_cEngine(&m_cView)
    {
    }
    CProviderHost(const CProviderHost&) = delete;
    CProviderHost& operator=(const CProviderHost&) = delete;
    ~CProviderHost() { Destroy(); }

    // Takes the provider over and makes this host its engine.
    void Adopt(MCE::CProvider* pProvider);
    MCE::CProvider* Provider() const { return m_pProvider; }
    MCE::CConvertEngine& Engine() { return m_cEngine; }
    // Disposes of the provider the only way the interface allows.
    void Destroy();

private:
    CConsoleConnection m_cConnection;
    VRO::CReposView m_cView;
    MCE::CConvertEngine m_cEngine;
    MCE::CProvider* m_pProvider = nullptr;
};

// Keeps the provider's import log at the target path: copies it there and
// removes the original. False, with the original left, when the copy could
// not be written.
bool MoveLog(const std::string& strLog, const std::string& strTarget);

// Adds lines of the engine's own at the end of the provider's log, in its
// form ("SECONDS: TEXT", the seconds within the hour).
void AppendToLog(const std::string& strLog, const std::vector<std::string>& astrLines);

} // namespace IMP
} // namespace ORVANE
