// Virtual time: a sleep moves the clock and returns.
#pragma once

#include <cstdint>

namespace sim
{

// In nanoseconds.
const std::int64_t Microsecond = 1000;
const std::int64_t Millisecond = 1000000;
const std::int64_t Second = 1000000000;

class CClock
{
  public:
    // Nanoseconds since the epoch. Starts at the host's time, or where the run options say; asking moves it by a
    // microsecond, so that a loop that waits for a time by asking for it comes to an end.
    std::int64_t Ask();
    std::int64_t Now() const;

    // Lets so many nanoseconds pass.
    void Wait(std::int64_t nanoseconds);

    // True when the run options ask for the host's own time instead.
    bool IsReal() const { return m_bReal; }

    static CClock& Instance();

  private:
    CClock(bool real, std::int64_t start);

    bool m_bReal;
    std::int64_t m_Now;
};

}  // namespace sim
