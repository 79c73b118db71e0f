#include "signals.h"

#include <time.h>

#include <cerrno>

namespace
{

sigset_t AllSignals()
{
    sigset_t all;
    sigfillset(&all);
    return all;
}

}  // namespace

CHoldSignals::CHoldSignals()
{
    const sigset_t all = AllSignals();
    sigprocmask(SIG_BLOCK, &all, &m_Before);
}

CHoldSignals::~CHoldSignals()
{
    const sigset_t all = AllSignals();
    const timespec now = {};
    while (sigtimedwait(&all, nullptr, &now) > 0 || errno == EINTR) continue;
    sigprocmask(SIG_SETMASK, &m_Before, nullptr);
}
