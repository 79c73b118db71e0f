#include "signals.h"

CIgnoreSignals::CIgnoreSignals()
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction* pBefore = m_Before;
    for (int signal : Signals) sigaction(signal, &ignore, pBefore++);
}

CIgnoreSignals::~CIgnoreSignals()
{
    const struct sigaction* pBefore = m_Before;
    for (int signal : Signals) sigaction(signal, pBefore++, nullptr);
}
