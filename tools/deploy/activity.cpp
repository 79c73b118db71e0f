#include "tools/deploy/activity.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "support/printable.h"

namespace fs = std::filesystem;

namespace
{

const int WidestBar = 30;
const int NarrowestBar = 5;
const int BesideBar = 37;  // columns that the numbers need, and the margins
const char* const Margin = "  ";
const char* const LogMark = "  log: ";
const double FirstRate = 0.5;  // seconds until a rate can be told

std::uintmax_t Size(const fs::path& file)
{
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file, error);
    return error ? 0 : size;
}

template <typename... Arguments>
std::string Format(const char* format, Arguments... arguments)
{
    char szText[64];
    std::snprintf(szText, sizeof szText, format, arguments...);
    return szText;
}

std::string RateText(double rate)
{
    if (rate < 10240) return Format("%.0f B/s", rate);
    return rate < 10240.0 * 1024 ? Format("%.0f KiB/s", rate / 1024) : Format("%.1f MiB/s", rate / 1024 / 1024);
}

}  // namespace

CActivity::CActivity(CScreen& screen, const fs::path& log, const CReport& report)
    : m_Screen(screen), m_Log(log), m_Report(report), m_LogShown(Size(log))
{
}

CActivity::~CActivity()
{
    ShowLog();
}

void CActivity::Show()
{
    ShowLog();
    if (!m_Screen.IsLive()) return;
    if (m_Report.LastProgress())
        m_Screen.Draw(Margin + Bar(*m_Report.LastProgress()));
    else
        m_Screen.Draw(m_Screen.Label() + Format(" for %.0f s", std::floor(m_Screen.Elapsed())));
}

void CActivity::ShowLine(const std::string& line)
{
    if (m_Screen.IsVerbose()) m_Screen.Print(Margin + line);
}

void CActivity::ShowLog()
{
    if (!m_Screen.IsVerbose() || Size(m_Log) <= m_LogShown) return;
    std::ifstream file(m_Log, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(m_LogShown));
    std::string line;
    while (std::getline(file, line) && !file.eof()) {
        m_Screen.Print(LogMark + Printable(line));
        m_LogShown += line.size() + 1;
    }
}

// "Uploading [#######       ]  50%  120 KiB/s  0:12 left". On a narrow screen the numbers come first, without a bar.
std::string CActivity::Bar(const Progress& progress)
{
    const double now = m_Screen.Elapsed();
    if (progress.What != m_What) {
        m_What = progress.What;
        m_BarStart = now;
        m_BarFirst = progress.Done;
    }
    std::string numbers = Format("%3lld%%", progress.Done * 100 / progress.Total);
    const double rate = static_cast<double>(progress.Done - m_BarFirst) / std::max(now - m_BarStart, FirstRate);
    if (rate > 0 && now - m_BarStart >= FirstRate) {
        const long long left = std::llround(static_cast<double>(progress.Total - progress.Done) / rate);
        numbers += "  " + RateText(rate) + Format("  %lld:%02lld left", left / 60, left % 60);
    }
    const int width = std::min(m_Screen.Width() - Columns(m_What) - BesideBar, WidestBar);
    if (width < NarrowestBar) return numbers + "  " + m_What;
    std::string bar(static_cast<std::size_t>(width), ' ');
    std::fill_n(bar.begin(), progress.Done * width / progress.Total, '#');
    return m_What + " [" + bar + "] " + numbers;
}
