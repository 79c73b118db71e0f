// Shows how far an upload is.
#pragma once

#include <cstdint>

#include "component.h"

// A bar with bytes, percent and rate that is redrawn in place on a terminal; elsewhere a plain line at every tenth
// part. A deployment tool is told at every hundredth.
class CProgressBar
{
  public:
    // Lines go to logger; null: nothing is shown.
    CProgressBar(PLOGFN logger, const char* what, int total);

    // Ends the line of a bar that did not come to its end.
    ~CProgressBar();
    CProgressBar(const CProgressBar&) = delete;
    CProgressBar& operator=(const CProgressBar&) = delete;

    // So many of the total bytes are done.
    void Show(int done);

  private:
    PLOGFN m_pfnLogger;
    const char* m_pszWhat;
    int m_Total;  // bytes
    bool m_bTerminal;
    int m_Shown = -1;      // percent; -1: nothing so far
    int m_Reported = -1;   // the same
    std::int64_t m_Start;  // ms
};
