#include "progress.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "report.h"

namespace
{

const int BarWidth = 18;  // the line fits into 80 columns up to eight digits

std::int64_t Milliseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

CProgressBar::CProgressBar(PLOGFN logger, const char* what, int total)
    : m_pfnLogger(logger),
      m_pszWhat(what),
      m_Total(total),
      m_bTerminal(isatty(STDOUT_FILENO) != 0),
      m_Start(Milliseconds())
{
}

CProgressBar::~CProgressBar()
{
    if (m_bTerminal && m_Shown >= 0 && m_Shown < 100) m_pfnLogger("\n");
}

void CProgressBar::Show(int done)
{
    if (m_Total <= 0) return;
    const int percent = static_cast<int>(std::int64_t{done} * 100 / m_Total);
    if (percent != m_Reported) ReportProgress(m_pszWhat, done, m_Total);
    m_Reported = percent;
    if (!m_pfnLogger) return;
    const int step = m_bTerminal ? 1 : 10;
    if (m_Shown >= 0 && percent / step == m_Shown / step) return;
    m_Shown = percent;

    const std::int64_t elapsed = std::max<std::int64_t>(Milliseconds() - m_Start, 1);
    const long long rate = done * std::int64_t{1000} / elapsed;
    const bool slow = rate < 10240;
    const char* pszUnit = slow ? "bytes/s" : "KiB/s";
    const long long shownRate = slow ? rate : rate / 1024;
    if (!m_bTerminal) {
        m_pfnLogger("  %s: %d of %d bytes, %d%%, %lld %s\n", m_pszWhat, done, m_Total, percent, shownRate, pszUnit);
        return;
    }
    char szBar[BarWidth + 1];
    std::memset(szBar, ' ', BarWidth);
    std::memset(szBar, '#', static_cast<std::size_t>(percent * BarWidth / 100));
    szBar[BarWidth] = '\0';
    m_pfnLogger("\r  %s [%s] %d of %d bytes, %3d%%, %lld %-7s%s", m_pszWhat, szBar, done, m_Total, percent, shownRate,
                pszUnit, done == m_Total ? "\n" : "");
}
