// Reads what an installer reports beside what it prints; host/report.h says how.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "host/report.h"
#include "tools/deploy/offer.h"

struct Progress
{
    std::string What;  // "Uploading"
    long long Done = 0;
    long long Total = 0;  // above 0
};

struct ReportedResult
{
    std::string Message;
    ::Left Left = Left_Unknown;
};

// Gathers the lines of one run. What is no such line, or says what is not known here, is left out.
class CReport
{
  public:
    void Read(const std::string& line);

    // True when the installer reports at all.
    bool IsGiven() const { return m_bGiven; }

    // The properties, with nothing of what only a discovery document has.
    const Discovery& Properties() const { return m_Properties; }

    const std::optional<Progress>& LastProgress() const { return m_Progress; }
    const std::optional<ReportedResult>& Result() const { return m_Result; }

    // The file in which the installer has kept what it was about to replace; empty: none.
    const std::string& Backup() const { return m_Backup; }

  private:
    bool m_bGiven = false;
    Discovery m_Properties;
    std::optional<Progress> m_Progress;
    std::optional<ReportedResult> m_Result;
    std::string m_Backup;
};
