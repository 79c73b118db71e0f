#include "signals.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

// Asks the kernel itself: the C library's sigprocmask leaves out the real-time signals that it uses for threads, which
// end a process like any other when somebody else sends them.
void HoldSignals()
{
    const std::uint64_t all = ~std::uint64_t{0};  // one bit a signal
    syscall(SYS_rt_sigprocmask, SIG_BLOCK, &all, nullptr, sizeof all);
}
