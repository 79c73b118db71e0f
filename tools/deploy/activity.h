// Shows what an installer is doing.
#pragma once

#include <filesystem>
#include <string>

#include "tools/deploy/report.h"
#include "tools/deploy/screen.h"

// Draws the line at the bottom of the screen: how far the installer says that it is, or for how long it has run. In
// detail (--verbose) prints what it prints, and what comes into its debug log.
class CActivity
{
  public:
    CActivity(CScreen& screen, const std::filesystem::path& log, const CReport& report);
    ~CActivity();
    CActivity(const CActivity&) = delete;
    CActivity& operator=(const CActivity&) = delete;

    void Show();
    void ShowLine(const std::string& line);

  private:
    void ShowLog();
    std::string Bar(const Progress& progress);

    CScreen& m_Screen;
    const std::filesystem::path m_Log;
    const CReport& m_Report;
    std::uintmax_t m_LogShown;  // bytes
    std::string m_What;         // what the bar is about
    double m_BarStart = 0;      // seconds, of the screen
    long long m_BarFirst = 0;   // how much was done by then
};
