#include "sim/base/clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace sim
{

namespace
{

// The C library's own calls are the ones that the simulation takes over.
std::int64_t HostTime()
{
    timespec now = {};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return now.tv_sec * Second + now.tv_nsec;
}

}  // namespace

CClock::CClock() : m_bReal(std::getenv("ZALSIM_REAL_TIME") != nullptr), m_Now(HostTime()) {}

std::int64_t CClock::Now() const
{
    return m_bReal ? HostTime() : m_Now;
}

void CClock::Wait(std::int64_t nanoseconds)
{
    m_Now += nanoseconds;
    if (!m_bReal) return;
    const timespec time = {static_cast<time_t>(nanoseconds / Second), static_cast<long>(nanoseconds % Second)};
    syscall(SYS_nanosleep, &time, nullptr);
}

std::int64_t CClock::Ask()
{
    m_Now += Microsecond;
    return m_Now;
}

CClock& CClock::Instance()
{
    static CClock clock;
    return clock;
}

}  // namespace sim
