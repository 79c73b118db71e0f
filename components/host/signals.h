// Keeps signals from a part of the program that must not be cut off.
#pragma once

#include <signal.h>

// While an object lives, every signal that can be held is held: hardware that is being written is written to its end.
// The object drops the signals that came meanwhile when it goes; what they wanted to end is over then.
class CHoldSignals
{
  public:
    CHoldSignals();
    ~CHoldSignals();
    CHoldSignals(const CHoldSignals&) = delete;
    CHoldSignals& operator=(const CHoldSignals&) = delete;

  private:
    sigset_t m_Before;
};
