#include "sim/base/clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "sim/base/runoptions.h"

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

CClock::CClock(bool real, std::int64_t start) : m_bReal(real), m_Now(start) {}

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
    static CClock clock = [] {
        const RunOptions options = ReadRunOptions();
        return CClock(options.RealTime, options.ClockStart ? *options.ClockStart * Second : HostTime());
    }();
    return clock;
}

}  // namespace sim
