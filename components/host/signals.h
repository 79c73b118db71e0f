// Keeps the signals that end a program from a part of it that must not be cut off.
#pragma once

#include <signal.h>

// While an object lives, a lost terminal, a closed pipe, and requests to end are ignored: hardware that is being
// written is written to its end.
class CIgnoreSignals
{
  public:
    CIgnoreSignals();
    ~CIgnoreSignals();
    CIgnoreSignals(const CIgnoreSignals&) = delete;
    CIgnoreSignals& operator=(const CIgnoreSignals&) = delete;

  private:
    static constexpr int Signals[] = {SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM};

    struct sigaction m_Before[sizeof Signals / sizeof Signals[0]];
};
