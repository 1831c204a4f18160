#include "Stop.h"

namespace ORVANE {
namespace IMP {

volatile std::sig_atomic_t g_nStopSignal = 0;

EProviderFailure::EProviderFailure(const char* pszCall, int nResult, const std::string& strCause)
    : EStop(eExitFailure,
            std::string("the provider reported a failure in ") + pszCall + " (result " + std::to_string(nResult) + ")"),
      m_strCall(pszCall), m_nResult(nResult), m_strCause(strCause)
{
}

EStop StopBySignal(int nSignal)
{
    return EStop(eExitSignal + nSignal, std::string("interrupted by ") + (nSignal == SIGINT ? "SIGINT" : "SIGTERM") +
                                            "; the migration did not complete");
}

void CheckStopSignal()
{
    const int nSignal = g_nStopSignal;
    if (nSignal)
        throw StopBySignal(nSignal);
}

} // namespace IMP
} // namespace ORVANE
