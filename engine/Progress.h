// Progress of the import on standard error: one line rewritten in place on
// a terminal (every tenth of a second at most), else a line a second.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace ORVANE {
namespace IMP {

class CProgress
{
public:
    typedef std::chrono::steady_clock TClock;
    typedef std::function<TClock::time_point()> TNow;

    explicit CProgress(std::FILE* pOut, TNow fnNow = &TClock::now) : m_pOut(pOut), m_fnNow(std::move(fnNow)) {}

    // Shows progress from now on when bShow, on a terminal when bTerminal.
    void Start(bool bShow, bool bTerminal);
    // The number of changes to import, for the time left.
    void SetTotal(unsigned nTotal) { m_nTotal = nTotal; }
    void CountChange() { ++m_nDone; }
    // A change an earlier run imported: not counted among those to import.
    void CountLeftOut() { ++m_nLeftOut; }
    unsigned Done() const { return m_nDone; }
    unsigned LeftOut() const { return m_nLeftOut; }

    // "stream NAME: change D of T, R changes/s, M:SS left", when the last
    // line is old enough; the final one whenever something is unshown or
    // the line is open, and it ends the line.
    void Show(const std::string& strStream, bool bFinal);
    // Ends a line left open on the terminal, so that a message can follow.
    void BreakLine();

private:
    std::string Line(const std::string& strStream, TClock::time_point tNow) const;

    std::FILE* m_pOut;
    TNow m_fnNow;
    bool m_bShow = false;
    bool m_bTerminal = false;
    bool m_bLineOpen = false;
    unsigned m_nTotal = 0;
    unsigned m_nDone = 0;
    unsigned m_nLeftOut = 0;
    unsigned m_nShown = ~0u;
    TClock::time_point m_tStart;
    TClock::time_point m_tLast;
};

} // namespace IMP
} // namespace ORVANE
