#include "clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace sim
{

namespace
{

const std::int64_t Second = 1000000000;

}  // namespace

CClock::CClock() : m_bReal(std::getenv("ZALSIM_REAL_TIME") != nullptr), m_Now(0)
{
    // The C library's own calls are the ones that the simulation takes over.
    timespec now = {};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    m_Now = now.tv_sec * Second + now.tv_nsec;
}

std::int64_t CClock::Ask()
{
    m_Now += 1000;
    return m_Now;
}

CClock& CClock::Instance()
{
    static CClock clock;
    return clock;
}

}  // namespace sim
