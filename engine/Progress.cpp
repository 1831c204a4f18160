#include "Progress.h"

namespace ORVANE {
namespace IMP {

void CProgress::Start(bool bShow, bool bTerminal)
{
    m_bShow = bShow;
    m_bTerminal = bTerminal;
    m_tStart = m_tLast = m_fnNow();
}

std::string CProgress::Line(const std::string& strStream, TClock::time_point tNow) const
{
    const double fSeconds = std::chrono::duration<double>(tNow - m_tStart).count();
    const double fRate = fSeconds > 0 ? m_nDone / fSeconds : 0;
    const unsigned nTotal = m_nTotal >= m_nLeftOut ? m_nTotal - m_nLeftOut : 0;
    std::string strLeft = "-";
    if (fRate > 0 && nTotal >= m_nDone)
    {
        const long nLeft = long((nTotal - m_nDone) / fRate + 0.5);
        char ach[32];
        std::snprintf(ach, sizeof(ach), "%ld:%02ld", nLeft / 60, nLeft % 60);
        strLeft = ach;
    }
    char ach[512];
    std::snprintf(ach, sizeof(ach), "stream %s: change %u of %u, %.1f changes/s, %s left", strStream.c_str(), m_nDone,
                  nTotal, fRate, strLeft.c_str());
    return ach;
}

void CProgress::Show(const std::string& strStream, bool bFinal)
{
    if (!m_bShow)
        return;
    const TClock::time_point tNow = m_fnNow();
    // Compared as durations: exact on every platform (in x87 arithmetic
    // 100 ms as seconds is a little less than the double 0.1).
    const std::chrono::milliseconds tInterval(m_bTerminal ? 100 : 1000);
    if (!bFinal && tNow - m_tLast < tInterval)
        return;
    if (bFinal && m_nShown == m_nDone && !m_bLineOpen)
        return;
    m_nShown = m_nDone;
    m_tLast = tNow;
    const std::string strLine = Line(strStream, tNow);
    if (m_bTerminal)
    {
        std::fprintf(m_pOut, "\r%s\033[K", strLine.c_str());
        m_bLineOpen = true;
        if (bFinal)
            BreakLine();
    }
    else
        std::fprintf(m_pOut, "%s\n", strLine.c_str());
    std::fflush(m_pOut);
}

void CProgress::BreakLine()
{
    if (!m_bLineOpen)
        return;
    std::fputs("\n", m_pOut);
    m_bLineOpen = false;
}

} // namespace IMP
} // namespace ORVANE
